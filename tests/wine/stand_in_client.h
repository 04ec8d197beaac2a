// The stand-in driver from a program's side: its control device, names for its numbers, and its log in the
// words of the bench's trace.
#pragma once

#include <windows.h>
#include <cstdio>
#include <cstring>
#include <cwchar>

#include "stand_in.h"

namespace stand_in {

struct Method {
    const wchar_t* name;
    DWORD code;
    DWORD in_bytes;
    DWORD out_bytes;
};

#define METHOD_ROW(name, code, device, in, out) {L## #name, code, in, out},
inline constexpr Method g_methods[] = {STAND_IN_METHODS(METHOD_ROW)};
#undef METHOD_ROW

// By device number.
inline constexpr const wchar_t* g_devices[STAND_IN_DEVICES] = {
    L"slate", L"dock", L"button", L"slate#2", L"dock#2", L"button#2", L"primary", L"secondary", L"stick"};

inline const Method* method_of(DWORD code) {
    for (const Method& method : g_methods) {
        if (method.code == code)
            return &method;
    }
    return nullptr;
}

// METHOD, or METHOD(ARGUMENT) with a hexadecimal number.
inline bool read_which(const wchar_t* text, StandInWhich* which) {
    const size_t length = wcscspn(text, L"(");
    for (const Method& method : g_methods) {
        if (wcslen(method.name) != length || _wcsnicmp(method.name, text, length) != 0)
            continue;
        const bool every = text[length] == 0;
        *which = {method.code, every,
                  every ? 0 : static_cast<DWORD>(wcstoul(text + length + 1, nullptr, 16))};
        return true;
    }
    return false;
}

inline bool read_device(const wchar_t* text, DWORD* device) {
    for (DWORD i = 0; i < STAND_IN_DEVICES; ++i) {
        if (_wcsicmp(g_devices[i], text) == 0) {
            *device = i;
            return true;
        }
    }
    return false;
}

// INVALID_HANDLE_VALUE while the driver is not loaded.
inline HANDLE open_control() {
    return CreateFileW(STAND_IN_DEVICE, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                       nullptr, OPEN_EXISTING, 0, nullptr);
}

// One request; the bytes of its answer, or STAND_IN_ALL with the last error.
inline DWORD ask(DWORD code, const void* in, DWORD in_bytes, void* out, DWORD out_bytes) {
    HANDLE device = open_control();
    DWORD bytes = 0;
    const BOOL sent =
        DeviceIoControl(device, code, const_cast<void*>(in), in_bytes, out, out_bytes, &bytes, nullptr);
    const DWORD error = GetLastError();
    CloseHandle(device);
    SetLastError(error);
    return sent ? bytes : STAND_IN_ALL;
}

template <size_t count> bool tell(DWORD code, const DWORD (&words)[count]) {
    return ask(code, words, sizeof(words), nullptr, 0) != STAND_IN_ALL;
}

template <class Record> bool tell(DWORD code, const Record& record) {
    return ask(code, &record, sizeof(record), nullptr, 0) != STAND_IN_ALL;
}

// ---- the log ----

inline void show_request(const StandInRow& row, char* text, size_t room) {
    const Method* method = method_of(row.code);
    const bool asks = row.code == 0x222584 || row.code == 0x222590; // may come without input: shown so
    int at = std::snprintf(text, room, "request %ls", method != nullptr ? method->name : L"?");
    if (row.in_bytes > 8)
        at += std::snprintf(text + at, room - at, "(%lu bytes)", row.in_bytes);
    else if (row.in_bytes == 8)
        at += std::snprintf(text + at, room - at, "(%lu, %lu)", row.in[0], row.in[1]);
    else if (row.in_bytes == 0 || asks)
        at += std::snprintf(text + at, room - at, "()");
    else
        at += std::snprintf(text + at, room - at, "(0x%lx)", row.in[0]);
    const DWORD whole = method != nullptr ? method->out_bytes : 0;
    if (row.failed)
        std::snprintf(text + at, room - at, " failed");
    else if (whole == 4 || row.code == 0x222408) {
        const unsigned bits = 8 * (row.bytes < 4 ? row.bytes : 4);
        const DWORD value = whole == 4 ? static_cast<DWORD>(row.out[0] & ((1ull << bits) - 1)) : row.out[0];
        at += std::snprintf(text + at, room - at, " = 0x%lx", value);
        if (whole == 8)
            at += std::snprintf(text + at, room - at, " 0x%lx", row.out[1]);
        if (row.bytes != whole)
            std::snprintf(text + at, room - at, " bytes %lu", row.bytes);
    }
}

// The row as the bench's trace has it; refusals and openings, which that does not have, in like words.
inline void show_row(const StandInRow& row, char* text, size_t room) {
    const wchar_t* device = row.device < STAND_IN_DEVICES ? g_devices[row.device] : L"?";
    const char* failed = row.failed ? " failed" : "";
    switch (row.kind) {
    case STAND_IN_ROW_REQUEST:
        return show_request(row, text, room);
    case STAND_IN_ROW_READ:
        std::snprintf(text, room, row.failed ? "read %ls failed" : "read %ls = %lu", device, row.out[0]);
        return;
    case STAND_IN_ROW_WRITE:
        std::snprintf(text, room, "write %ls %lu%s", device, row.in[0], failed);
        return;
    case STAND_IN_ROW_OPEN:
        std::snprintf(text, room, "open %ls", device);
        return;
    case STAND_IN_ROW_CLOSE:
        std::snprintf(text, room, "close %ls", device);
        return;
    default:
        std::snprintf(text, room, "refused %ls 0x%lx, buffers of %lu and %lu bytes", device, row.code,
                      row.in[0], row.in[1]);
    }
}

// Calls for each row from a number on, in order.
template <class Action> void for_rows(DWORD from, Action action) {
    static StandInRow rows[64];
    for (;;) {
        const DWORD bytes = ask(STAND_IN_LOG, &from, sizeof(from), rows, sizeof(rows));
        if (bytes == STAND_IN_ALL || bytes == 0)
            return;
        for (DWORD i = 0; i < bytes / sizeof(StandInRow); ++i) {
            action(rows[i]);
            from = rows[i].number + 1;
        }
    }
}

} // namespace stand_in
