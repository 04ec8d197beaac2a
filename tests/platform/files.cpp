// Files, folders and what their calls say.
#include <windows.h>
#include <strsafe.h>

#include "tests/platform/probe.h"

static WCHAR g_path[MAX_PATH];

static const WCHAR* in_folder(const WCHAR* name) {
    StringCchPrintfW(g_path, ARRAYSIZE(g_path), L"%ls\\%ls", probe_folder(), name);
    return g_path;
}

static HANDLE open_path(const WCHAR* path, DWORD disposition, DWORD access, DWORD share = 0,
                        DWORD flags = FILE_ATTRIBUTE_NORMAL) {
    return CreateFileW(path, access, share, nullptr, disposition, flags, nullptr);
}

static HANDLE open_name(const WCHAR* name, DWORD disposition, DWORD access = GENERIC_READ | GENERIC_WRITE,
                        DWORD share = 0) {
    return open_path(in_folder(name), disposition, access, share);
}

// The error of an opening that is closed at once.
static DWORD opens(const WCHAR* path, DWORD disposition = OPEN_EXISTING, DWORD access = GENERIC_READ,
                   DWORD share = 0, DWORD flags = FILE_ATTRIBUTE_NORMAL) {
    HANDLE file = INVALID_HANDLE_VALUE;
    const DWORD error =
        ERROR_OF((file = open_path(path, disposition, access, share, flags)) != INVALID_HANDLE_VALUE);
    if (file != INVALID_HANDLE_VALUE)
        CloseHandle(file);
    return error;
}

static DWORD attributes(const WCHAR* path) {
    SetLastError(0);
    const DWORD result = GetFileAttributesW(path);
    return result != INVALID_FILE_ATTRIBUTES ? result : 1000 + GetLastError();
}

static void make(const WCHAR* name) {
    CloseHandle(open_name(name, CREATE_NEW));
}

static DWORD remove(const WCHAR* path) {
    return ERROR_OF(DeleteFileW(path));
}

// ---- paths ----

static const struct {
    const char* name;
    const WCHAR* below; // the probe's folder; null: the path itself
    const WCHAR* path;
} g_paths[] = {
    {"file", L"there.txt", nullptr},
    {"other-case", L"THERE.TXT", nullptr},
    {"missing", L"none.txt", nullptr},
    {"missing-folder", L"none\\none.txt", nullptr},
    {"below-file", L"there.txt\\x", nullptr},
    {"star", L"*.txt", nullptr},
    {"question", L"th?re.txt", nullptr},
    {"star-missing-folder", L"none\\*.txt", nullptr},
    {"less", L"a<b", nullptr},
    {"bar", L"a|b", nullptr},
    {"quote", L"a\"b", nullptr},
    {"backslash-last", L"there.txt\\", nullptr},
    {"folder", L"", nullptr},
    {"slash", L"./there.txt", nullptr},
    {"dot", L".\\there.txt", nullptr},
    {"dot-dot", L"none\\..\\there.txt", nullptr},
    {"blank-last", L"there.txt ", nullptr},
    {"dot-last", L"there.txt.", nullptr},
    {"backslash-double", L"\\there.txt", nullptr},
    {"empty", nullptr, L""},
    {"drive-root", nullptr, L"C:\\"},
    {"other-drive", nullptr, L"Q:\\none.txt"},
    {"system-folder", nullptr, L"C:\\Windows\\System32"},
    {"inf-folder", nullptr, L"C:\\Windows\\Inf"},
    {"windows-folder-backslash", nullptr, L"C:\\Windows\\"},
    {"relative", nullptr, L"zorpmprobe-none.txt"},
    {"device-missing", nullptr, L"\\\\.\\ZorpmProbeNone"},
};

static void probe_paths() {
    make(L"there.txt");
    for (const auto& row : g_paths) {
        auto path = [&row] { return row.below != nullptr ? in_folder(row.below) : row.path; };
        group("path-open");
        fact(row.name, opens(path()));
        group("path-attributes");
        fact(row.name, attributes(path()));
        group("path-create");
        if (row.below != nullptr)
            fact(row.name, opens(path(), CREATE_NEW, GENERIC_WRITE));
        group("path-delete");
        if (row.below != nullptr)
            fact(row.name, remove(path()));
        DeleteFileW(in_folder(L"there.txt"));
        DeleteFileW(in_folder(L"none.txt"));
        make(L"there.txt");
    }
}

// ---- dispositions and reading and writing ----

static void probe_contents() {
    group("file");
    DWORD count = 99;
    HANDLE file = open_name(L"c.txt", CREATE_NEW);
    fact("create-new", file != INVALID_HANDLE_VALUE);
    fact("new-attributes", attributes(in_folder(L"c.txt")));
    fact("write", ERROR_OF(WriteFile(file, "abc", 3, &count, nullptr)));
    fact("written", count);
    fact("write-nothing", ERROR_OF(WriteFile(file, "", 0, &count, nullptr)));
    fact("written-nothing", count);
    fact("delete-open", remove(in_folder(L"c.txt")));
    fact("type", GetFileType(file));
    BYTE buffer[8] = {};
    fact("control", ERROR_OF(DeviceIoControl(file, 0x222000, nullptr, 0, buffer, 8, &count, nullptr)));
    CloseHandle(file);
    fact("create-new-again", opens(in_folder(L"c.txt"), CREATE_NEW, GENERIC_WRITE));
    file = open_name(L"c.txt", OPEN_EXISTING, GENERIC_READ);
    fact("read", ReadFile(file, buffer, 8, &count, nullptr) ? count : 1000 + GetLastError());
    fact("read-at-end", ReadFile(file, buffer, 8, &count, nullptr) ? count : 1000 + GetLastError());
    CloseHandle(file);
    file = open_name(L"c.txt", OPEN_EXISTING, GENERIC_WRITE);
    CloseHandle(file);
    SetLastError(0);
    file = open_name(L"c.txt", CREATE_ALWAYS);
    fact("create-always", file != INVALID_HANDLE_VALUE);
    fact("create-always-error", GetLastError());
    fact("create-always-empties", ReadFile(file, buffer, 8, &count, nullptr) ? count : 1000 + GetLastError());
    CloseHandle(file);
    SetLastError(5);
    CloseHandle(open_name(L"always.txt", CREATE_ALWAYS));
    fact("create-always-new-error", GetLastError());
    fact("access-none", opens(in_folder(L"c.txt"), OPEN_EXISTING, 0));
    fact("flags-0", opens(in_folder(L"c.txt"), OPEN_EXISTING, GENERIC_READ, 0, 0));
    fact("delete", remove(in_folder(L"c.txt")));
    fact("delete-again", remove(in_folder(L"c.txt")));
    fact("close-invalid-file", ERROR_OF(ReadFile(INVALID_HANDLE_VALUE, buffer, 1, &count, nullptr)));
    fact("read-null", ERROR_OF(ReadFile(nullptr, buffer, 1, &count, nullptr)));
    fact("write-null", ERROR_OF(WriteFile(nullptr, buffer, 1, &count, nullptr)));
    fact("control-null", ERROR_OF(DeviceIoControl(nullptr, 0, nullptr, 0, nullptr, 0, &count, nullptr)));
    fact("control-event", ERROR_OF(DeviceIoControl(CreateEventW(nullptr, TRUE, TRUE, nullptr), 0x222000,
                                                   nullptr, 0, nullptr, 0, &count, nullptr)));
}

// ---- sharing: what a second opener is told ----

static const struct {
    const char* name;
    DWORD access;
    DWORD share;
    DWORD second_access;
    DWORD second_share;
} g_sharing[] = {
    {"read-none-read", GENERIC_READ, 0, GENERIC_READ, FILE_SHARE_READ},
    {"read-read-read", GENERIC_READ, FILE_SHARE_READ, GENERIC_READ, FILE_SHARE_READ},
    {"read-read-read-none", GENERIC_READ, FILE_SHARE_READ, GENERIC_READ, 0},
    {"read-read-write", GENERIC_READ, FILE_SHARE_READ, GENERIC_WRITE, FILE_SHARE_READ},
    {"read-write-write", GENERIC_READ, FILE_SHARE_WRITE, GENERIC_WRITE, FILE_SHARE_READ},
    {"read-write-read", GENERIC_READ, FILE_SHARE_WRITE, GENERIC_READ, FILE_SHARE_READ},
    {"write-read-read", GENERIC_WRITE, FILE_SHARE_READ, GENERIC_READ, FILE_SHARE_READ},
    {"write-read-read-both", GENERIC_WRITE, FILE_SHARE_READ, GENERIC_READ,
     FILE_SHARE_READ | FILE_SHARE_WRITE},
    {"write-both-write", GENERIC_WRITE, 3, GENERIC_WRITE, 3},
    {"write-both-write-read", GENERIC_WRITE, 3, GENERIC_WRITE, FILE_SHARE_READ},
    {"none-none-read", 0, 0, GENERIC_READ, 0},
    {"read-none-none", GENERIC_READ, 0, 0, 0},
    {"both-none-both", GENERIC_READ | GENERIC_WRITE, 0, GENERIC_READ | GENERIC_WRITE, 3},
    {"both-both-both", GENERIC_READ | GENERIC_WRITE, 3, GENERIC_READ | GENERIC_WRITE, 3},
};

static void probe_sharing() {
    group("sharing");
    make(L"s.txt");
    for (const auto& row : g_sharing) {
        HANDLE first = open_name(L"s.txt", OPEN_EXISTING, row.access, row.share);
        fact(row.name, opens(in_folder(L"s.txt"), OPEN_EXISTING, row.second_access, row.second_share));
        CloseHandle(first);
    }
    HANDLE first = open_name(L"s.txt", OPEN_EXISTING, GENERIC_READ, 3);
    fact("delete", remove(in_folder(L"s.txt")));
    fact("create-always", opens(in_folder(L"s.txt"), CREATE_ALWAYS, GENERIC_WRITE, 3));
    CloseHandle(first);
    fact("deleted", remove(in_folder(L"s.txt")));
}

void probe_files() {
    probe_paths();
    probe_contents();
    probe_sharing();
}
