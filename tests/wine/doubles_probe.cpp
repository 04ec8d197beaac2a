// Asks everything of the stand-in driver that a test can ask, once by its control device and once by the
// device that it is about: the platform's own code stands in between. Prints what is not as it must be.
#include <setupapi.h>

#include "stand_in_client.h"

using namespace stand_in;

constexpr DWORD GOPT = 0x222728;
constexpr DWORD DYTC = 0x22270C;
constexpr DWORD MHKV = 0x222434;
constexpr DWORD GETEVENT = 0x222408;
constexpr DWORD REGISTEREVENTS = 0x2227D4;
constexpr DWORD UNTOUCHED = 0xEEEEEEEE;

static int g_wrong = 0;

static void holds(bool condition, const char* what) {
    if (!condition)
        std::printf("not so: %s\n", what);
    g_wrong += !condition;
}

#define HOLDS(condition) holds(condition, #condition)

static HANDLE open_device(const wchar_t* path) {
    return CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                       OPEN_EXISTING, 0, nullptr);
}

static void reset() {
    HOLDS(ask(STAND_IN_RESET, nullptr, 0, nullptr, 0) == 0);
}

namespace {

// A request of one word each way, and all that comes back.
struct Sent {
    BOOL done;
    DWORD error;
    DWORD value = UNTOUCHED;
    DWORD bytes = 0;

    Sent(HANDLE device, DWORD code, DWORD argument) {
        SetLastError(0);
        done = DeviceIoControl(device, code, &argument, sizeof(argument), &value, sizeof(value), &bytes,
                               nullptr);
        error = GetLastError();
    }
    bool answers(DWORD expected) const { return done && value == expected && bytes == sizeof(value); }
};

} // namespace

static void set_answer(DWORD code, DWORD every, DWORD argument, DWORD value, DWORD times) {
    const StandInAnswer answer = {{code, every, argument}, 0, value, STAND_IN_ALL, times};
    HOLDS(tell(STAND_IN_ANSWER, answer));
}

// Numbered answers before lasting ones, those of an argument before those of all.
static void check_answers(HANDLE device) {
    HOLDS(Sent(device, MHKV, 0).answers(0x200)); // of a new machine
    HOLDS(Sent(device, GOPT, 0).answers(0));
    set_answer(GOPT, 1, 0, 1, 0);
    set_answer(GOPT, 0, 7, 2, 0);
    set_answer(GOPT, 0, 7, 3, 2);
    set_answer(GOPT, 0, 7, 4, 0); // in the place of 2
    HOLDS(Sent(device, GOPT, 0).answers(1));
    HOLDS(Sent(device, GOPT, 7).answers(3));
    HOLDS(Sent(device, GOPT, 7).answers(3));
    HOLDS(Sent(device, GOPT, 7).answers(4));

    // Bytes that there are not stay as they were; more than there is room for are only said.
    StandInAnswer odd = {{GOPT, 1, 0}, 0, 0x12345, 2, 1};
    tell(STAND_IN_ANSWER, odd);
    const Sent part(device, GOPT, 0);
    HOLDS(part.done && part.bytes == 2 && part.value == ((UNTOUCHED & 0xFFFF0000) | 0x2345));
    odd.bytes = 8;
    tell(STAND_IN_ANSWER, odd);
    const Sent more(device, GOPT, 0);
    HOLDS(more.done && more.bytes == 8 && more.value == 0x12345);
    odd.fails = 1;
    tell(STAND_IN_ANSWER, odd);
    const Sent failed(device, GOPT, 0);
    HOLDS(!failed.done && failed.error == ERROR_GEN_FAILURE && failed.value == UNTOUCHED);
    HOLDS(Sent(device, GOPT, 0).answers(1));

    const Sent misled(device, GETEVENT, 0); // of the other device
    HOLDS(!misled.done && misled.error == ERROR_INVALID_FUNCTION);
    reset();
    HOLDS(Sent(device, GOPT, 7).answers(0));
}

static DWORD WINAPI ask_slowly(LPVOID device) {
    return Sent(device, DYTC, 5).value;
}

// A request that takes time waits until it is released, and keeps no other one waiting.
static void check_held_requests(HANDLE device) {
    const StandInTakes takes = {{DYTC, 1, 0}, 2, {50, 0}};
    HOLDS(tell(STAND_IN_TAKES, takes));
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const auto handle = reinterpret_cast<ULONGLONG>(event);
    HOLDS(tell(STAND_IN_NOTIFY, handle));
    HANDLE thread = CreateThread(nullptr, 0, ask_slowly, device, 0, nullptr);
    HOLDS(WaitForSingleObject(event, 10000) == WAIT_OBJECT_0);
    StandInHeld held[2] = {};
    HOLDS(ask(STAND_IN_HELD, nullptr, 0, held, sizeof(held)) == sizeof(held[0]));
    HOLDS(held[0].code == DYTC && held[0].argument == 5 && held[0].milliseconds == 50);
    HOLDS(held[0].process == GetCurrentProcessId());
    HOLDS(Sent(device, MHKV, 0).answers(0x200)); // meanwhile, by the same handle
    HOLDS(WaitForSingleObject(thread, 0) == WAIT_TIMEOUT);
    set_answer(DYTC, 0, 5, 0x77, 0); // chosen when the time is over
    const DWORD number[] = {held[0].number};
    HOLDS(tell(STAND_IN_RELEASE, number));
    HOLDS(WaitForSingleObject(thread, 10000) == WAIT_OBJECT_0);
    DWORD value = 0;
    GetExitCodeThread(thread, &value);
    HOLDS(value == 0x77);
    HOLDS(!tell(STAND_IN_RELEASE, number) && GetLastError() == ERROR_NOT_FOUND);
    HOLDS(Sent(device, DYTC, 5).answers(0x77)); // takes no time any more
    CloseHandle(thread);
    CloseHandle(event);
    reset();
}

static void check_events() {
    HANDLE device = open_device(L"\\\\.\\PMDRVS");
    ULONGLONG record[6] = {};
    HANDLE events[5];
    for (size_t i = 0; i < ARRAYSIZE(events); ++i) {
        events[i] = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        record[i + 1] = reinterpret_cast<ULONGLONG>(events[i]);
    }
    DWORD words[2] = {};
    DWORD bytes = 0;
    const auto fetch = [&] {
        return DeviceIoControl(device, GETEVENT, nullptr, 0, words, sizeof(words), &bytes, nullptr);
    };
    DWORD registered = 1;
    const DWORD sleep = 2;
    HOLDS(ask(STAND_IN_SIGNAL, &sleep, sizeof(sleep), &registered, sizeof(registered)) != STAND_IN_ALL);
    HOLDS(registered == 0);
    HOLDS(DeviceIoControl(device, REGISTEREVENTS, record, sizeof(record), words, sizeof(words), &bytes,
                          nullptr));
    HOLDS(WaitForSingleObject(events[4], 0) == WAIT_TIMEOUT);
    HOLDS(tell(STAND_IN_EVENT, {0x60C0, 9}) && tell(STAND_IN_EVENT, {0x5001, 0}));
    HOLDS(WaitForSingleObject(events[4], 0) == WAIT_OBJECT_0);
    const StandInAnswer fails = {{GETEVENT, 1, 0}, 1, 0, STAND_IN_ALL, 0};
    tell(STAND_IN_ANSWER, fails);
    HOLDS(!fetch()); // and the event is kept
    HOLDS(fetch() && bytes == 8 && words[0] == 0x60C0 && words[1] == 9);
    HOLDS(WaitForSingleObject(events[4], 0) == WAIT_OBJECT_0);
    HOLDS(fetch() && bytes == 8 && words[0] == 0x5001);
    HOLDS(WaitForSingleObject(events[4], 0) == WAIT_TIMEOUT);
    HOLDS(fetch() && bytes == 0);
    ask(STAND_IN_SIGNAL, &sleep, sizeof(sleep), &registered, sizeof(registered));
    HOLDS(registered == 1 && WaitForSingleObject(events[2], 0) == WAIT_OBJECT_0);
    for (HANDLE event : events)
        CloseHandle(event);
    CloseHandle(device);
}

// ---- interfaces ----

// How many are listed; the path of the last one.
static int listed(wchar_t (&path)[MAX_PATH]) {
    const GUID slate = {0x317FC439, 0x3F77, 0x41C8, {0xB0, 0x9E, 0x08, 0xAD, 0x63, 0x27, 0x2A, 0xA3}};
    HDEVINFO list = SetupDiGetClassDevsW(&slate, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
    SP_DEVICE_INTERFACE_DATA found = {};
    found.cbSize = sizeof(found);
    DWORD count = 0;
    for (; SetupDiEnumDeviceInterfaces(list, nullptr, &slate, count, &found); ++count) {
        alignas(SP_DEVICE_INTERFACE_DETAIL_DATA_W) BYTE block[1024] = {};
        auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(block);
        detail->cbSize = sizeof(*detail);
        if (SetupDiGetDeviceInterfaceDetailW(list, &found, detail, sizeof(block), nullptr, nullptr))
            lstrcpynW(path, detail->DevicePath, ARRAYSIZE(path));
    }
    SetupDiDestroyDeviceInfoList(list);
    return static_cast<int>(count);
}

static DWORD openings() {
    DWORD count = STAND_IN_ALL;
    ask(STAND_IN_OPENINGS, nullptr, 0, &count, sizeof(count));
    return count;
}

static void check_interfaces() {
    wchar_t path[MAX_PATH] = {};
    HOLDS(listed(path) == 1);
    const DWORD before = openings();
    HANDLE slate = open_device(path);
    HOLDS(openings() == before + 1);
    BYTE byte = 0xEE;
    DWORD bytes = 0;
    HOLDS(ReadFile(slate, &byte, 1, &bytes, nullptr) && bytes == 1 && byte == 1); // a notebook
    HOLDS(WriteFile(slate, &byte, 1, &bytes, nullptr) && ReadFile(slate, &byte, 1, &bytes, nullptr) &&
          byte == 0);
    HOLDS(tell(STAND_IN_CHANGE, {STAND_IN_SLATE, 5}));
    HOLDS(ReadFile(slate, &byte, 1, &bytes, nullptr) && byte == 5);
    StandInFailures failures = {STAND_IN_SLATE, 0, 1};
    HOLDS(tell(STAND_IN_FAILURES, failures));
    HOLDS(!ReadFile(slate, &byte, 1, &bytes, nullptr) && GetLastError() == ERROR_GEN_FAILURE);
    HOLDS(ReadFile(slate, &byte, 1, &bytes, nullptr) && WriteFile(slate, &byte, 1, &bytes, nullptr));
    failures.interface_number = STAND_IN_INTERFACES;
    HOLDS(!tell(STAND_IN_FAILURES, failures) && GetLastError() == ERROR_INVALID_PARAMETER);
    CloseHandle(slate);
    HOLDS(openings() == before);

    wchar_t second[MAX_PATH] = {};
    HOLDS(tell(STAND_IN_PRESENT, {STAND_IN_SLATE_2, 1}) && listed(second) == 2);
    HOLDS(tell(STAND_IN_PRESENT, {STAND_IN_SLATE, 0}) && listed(second) == 1 && lstrcmpiW(path, second) != 0);
    HOLDS(open_device(path) == INVALID_HANDLE_VALUE && GetLastError() == ERROR_FILE_NOT_FOUND);
    HOLDS(tell(STAND_IN_PRESENT, {STAND_IN_STICK, 0}));
    HOLDS(open_device(L"\\\\.\\sx4track") == INVALID_HANDLE_VALUE && GetLastError() == ERROR_FILE_NOT_FOUND);
    HOLDS(!tell(STAND_IN_PRESENT, {STAND_IN_DEVICES, 0}));
    reset();
    HOLDS(listed(path) == 1);
}

static void check_log() {
    static const char* const expected[] = {"open stick",
                                           "refused stick 0x222434, buffers of 4 and 4 bytes",
                                           "close stick",
                                           "open primary",
                                           "request DYTC(0x1f2001) = 0x5 bytes 2",
                                           "request DYTC(0x3) failed",
                                           "close primary"};
    HANDLE stick = open_device(L"\\\\.\\sx4track");
    const Sent misled(stick, MHKV, 0);
    CloseHandle(stick);
    HANDLE device = open_device(L"\\\\.\\ZORPmDrv");
    const StandInAnswer part = {{DYTC, 0, 0x1F2001}, 0, 0x10005, 2, 0};
    const StandInAnswer fails = {{DYTC, 0, 3}, 1, 0, STAND_IN_ALL, 0};
    tell(STAND_IN_ANSWER, part);
    tell(STAND_IN_ANSWER, fails);
    const Sent first(device, DYTC, 0x1F2001);
    const Sent second(device, DYTC, 3);
    CloseHandle(device);
    size_t count = 0;
    for_rows(0, [&](const StandInRow& row) {
        char text[160];
        show_row(row, text, sizeof(text));
        holds(count < ARRAYSIZE(expected) && std::strcmp(text, expected[count]) == 0, text);
        holds(row.number == ++count, "rows are numbered from 1");
    });
    HOLDS(count == ARRAYSIZE(expected));
}

int wmain() {
    reset();
    HANDLE device = open_device(L"\\\\.\\ZORPmDrv");
    check_answers(device);
    check_held_requests(device);
    CloseHandle(device);
    check_events();
    reset();
    check_interfaces();
    reset();
    check_log();
    reset();
    return g_wrong == 0 ? 0 : 1;
}
