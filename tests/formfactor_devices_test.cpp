// One-byte transfers on Windows' device interfaces: what they read and write, the last error, nothing left
// open.
#include "formfactor/mode_switch.h"
#include "sim/notebook/device_interfaces.h"
#include "sim/notebook/driver.h"
#include "tests/support/bench.h"

namespace {

constexpr DWORD UNTOUCHED = 77;

struct DeviceCase {
    const char* setup;
    BOOL (*act)(DWORD* value);
    BOOL result;
    DWORD error;
    DWORD value;       // UNTOUCHED on failure
    const char* trace; // the writes and requests, each with a semicolon
};

BOOL set_dock(DWORD*) {
    return SetSystemDockingTransformation(1);
}

BOOL toggle(DWORD*) {
    return ToggleConversionIndicator();
}

BOOL press(DWORD*) {
    return RotationLockButtonPress();
}

// As if another thread had the indicator open.
template <DWORD ACCESS> BOOL read_while_open(DWORD* value) {
    wchar_t* path =
        GetDevicePath({0x317FC439, 0x3F77, 0x41C8, {0xB0, 0x9E, 0x08, 0xAD, 0x63, 0x27, 0x2A, 0xA3}});
    HANDLE other = CreateFileW(path, ACCESS, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ReleaseDevicePath(path);
    const BOOL result = GetSystemTransformation(value);
    const DWORD error = GetLastError();
    CloseHandle(other);
    SetLastError(error);
    return result;
}

constexpr auto slate = GetSystemTransformation;
constexpr auto dock = GetSystemDockingTransformation;
constexpr auto bios = GetSystemTransformationFromBIOS;
constexpr DWORD NONE = UNTOUCHED;

// clang-format off
const DeviceCase g_cases[] = {
    {"",                                   slate, 1, 0, 1, ""},
    {"device slate = 0",                   slate, 1, 0, 0, ""},
    {"device slate = 7",                   slate, 1, 0, 7, ""},
    {"device slate = 7 bytes 0",           slate, 1, 0, 0, ""},
    {"device dock = 1",                    dock,  1, 0, 1, ""},
    {"device dock = 255",                  dock,  1, 0, 255, ""},
    {"device slate second present",        slate, 1, 0, 1, ""},
    {"device slate missing",               slate, 0, ERROR_NO_MORE_ITEMS, NONE, ""},
    {"device slate missing",               toggle, 0, ERROR_NO_MORE_ITEMS, NONE, ""},
    {"device dock read fails",             dock,  0, ERROR_GEN_FAILURE, NONE, ""},
    {"",                                   read_while_open<GENERIC_WRITE>, 0, ERROR_SHARING_VIOLATION, NONE, ""},
    {"",                                   read_while_open<GENERIC_READ>, 0, ERROR_SHARING_VIOLATION, NONE, ""},
    {"",                                   toggle, 1, 0, NONE, "write slate 0;"},
    {"device slate = 0",                   toggle, 1, 0, NONE, "write slate 0;"},
    {"device slate second present",        toggle, 1, 0, NONE, "write slate 0;"},
    {"device slate write fails",           toggle, 0, ERROR_GEN_FAILURE, NONE, ""},
    {"device dock = 1",                    set_dock, 1, 0, NONE, "write dock 1;"},
    {"device dock missing",                set_dock, 0, ERROR_NO_MORE_ITEMS, NONE, ""},
    {"",                                   press, 1, 0, NONE, "write button 4;write button 4;"},
    {"device button write fails times 1",  press, 0, ERROR_GEN_FAILURE, NONE, ""},
    {"device button missing",              press, 0, ERROR_NO_MORE_ITEMS, NONE, ""},
    {"firmware TABGETSTATE = 0x8",         bios, 1, 0, 0, "request TABGETSTATE(0x0) = 0x8;"},
    {"firmware TABGETSTATE = 0xffffffff",  bios, 1, 0, 0, "request TABGETSTATE(0x0) = 0xffffffff;"},
    {"firmware TABGETSTATE = 0x0",         bios, 1, 0, 1, "request TABGETSTATE(0x0) = 0x0;"},
    {"firmware TABGETSTATE = 0xfffffff7",  bios, 1, 0, 1, "request TABGETSTATE(0x0) = 0xfffffff7;"},
    {"firmware TABGETSTATE = 8 bytes 1",   bios, 1, 0, 0, "request TABGETSTATE(0x0) = 0x8 bytes 1;"},
    {"firmware TABGETSTATE = 8 bytes 0",   bios, 1, 0, 1, "request TABGETSTATE(0x0) = 0x0 bytes 0;"},
    {"firmware TABGETSTATE fails",         bios, 0, ERROR_GEN_FAILURE, NONE, "request TABGETSTATE(0x0) failed;"},
    {"driver primary missing",             bios, 0, ERROR_FILE_NOT_FOUND, NONE, ""},
};
// clang-format on

std::string effects_since(size_t first) {
    std::string text;
    for (size_t i = first; i < sim::machine().trace.size(); ++i) {
        if (sim::machine().trace[i].effect)
            text += sim::machine().trace[i].text + ";";
    }
    return text;
}

struct Outcome {
    BOOL result = 0;
    DWORD error = 0;
    DWORD value = UNTOUCHED;
    size_t handles = 0;
    size_t blocks = 0;
};

Outcome act_on_thread(const DeviceCase& test) {
    Outcome outcome;
    sim::run_on_thread([&] {
        sim::Process* process = sim::current_process();
        const size_t handles = sim::handle_count();
        const size_t blocks = process->local_blocks;
        SetLastError(ERROR_KEY_DELETED);
        outcome.result = test.act(&outcome.value);
        outcome.error = GetLastError();
        outcome.handles = sim::handle_count() - handles;
        outcome.blocks = process->local_blocks - blocks;
    });
    return outcome;
}

TEST(FormFactorDevices, TransfersAndLastError) {
    for (const DeviceCase& test : g_cases) {
        SCOPED_TRACE(std::string(test.setup) + " -> " + test.trace);
        Bench bench;
        bench.run(test.setup);
        const size_t first = sim::machine().trace.size();
        const Outcome outcome = act_on_thread(test);
        EXPECT_EQ(outcome.result, test.result);
        EXPECT_EQ(outcome.error, test.error);
        EXPECT_EQ(outcome.value, test.value);
        EXPECT_EQ(effects_since(first), test.trace);
        EXPECT_EQ(outcome.handles, 0u);
        EXPECT_EQ(outcome.blocks, 0u);
    }
}

} // namespace
