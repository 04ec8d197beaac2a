// Windows, device sets and settings files of the simulated machine, as the platform has them.
#include <objbase.h>
#include <setupapi.h>

#include "sim/windows/messages.h"
#include "tests/support/bench.h"

using namespace sim;

static UINT g_refused_message;
static std::vector<UINT> g_seen;

static LRESULT CALLBACK RefusingProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    g_seen.push_back(message);
    if (message == g_refused_message)
        return message == WM_NCCREATE ? FALSE : -1;
    return DefWindowProcW(window, message, wparam, lparam);
}

TEST(Sim, ARefusedCreationEndsWithNcDestroy) {
    const struct {
        UINT refused;
        std::vector<UINT> seen;
    } rows[] = {
        {WM_NCCREATE, {WM_NCCREATE, WM_NCDESTROY}},
        {WM_CREATE, {WM_NCCREATE, WM_CREATE, WM_NCDESTROY}},
        {WM_NULL, {WM_NCCREATE, WM_CREATE}},
    };
    for (const auto& row : rows) {
        Bench bench;
        run_on_thread([&row] {
            g_refused_message = row.refused;
            g_seen.clear();
            WNDCLASSEXW made = {};
            made.cbSize = sizeof(made);
            made.lpfnWndProc = RefusingProc;
            made.lpszClassName = L"Refusing";
            EXPECT_NE(0, RegisterClassExW(&made));
            HWND window =
                CreateWindowExW(0, L"Refusing", nullptr, 0, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr);
            EXPECT_EQ(row.refused == WM_NULL, window != nullptr);
            EXPECT_EQ(row.seen, g_seen);
        });
    }
}

TEST(Sim, DialogsNeedRightsOnTheDesktop) {
    for (const ACCESS_MASK access : {0x0u, 0x2u, 0x80u}) {
        Bench bench;
        run_on_thread([access] {
            HDESK desktop = OpenInputDesktop(0, FALSE, access);
            EXPECT_TRUE(SetThreadDesktop(desktop));
            EXPECT_EQ(-1, DialogBoxParamW(nullptr, MAKEINTRESOURCEW(101), nullptr, nullptr, 0));
            EXPECT_EQ(ERROR_ACCESS_DENIED, GetLastError());
        });
    }
}

TEST(Sim, WrongSizeFieldsOfDeviceSets) {
    expect_violation("SetupDiEnumDeviceInfo", [] {
        HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, DIGCF_PRESENT | DIGCF_ALLCLASSES);
        SP_DEVINFO_DATA device = {};
        EXPECT_FALSE(SetupDiEnumDeviceInfo(set, 0, &device));
        EXPECT_EQ(1784u, GetLastError());
    });
}

// Devices that the search must pass over, or find, whatever the list of ids looks like.
TEST(Sim, KnownDevices) {
    Bench bench;
    bench.run(R"(
        hardware nameless
        hardware "ACPI\GONE" absent)");
    run_on_thread([] {
        const struct {
            DWORD flags;
            DWORD devices;
        } rows[] = {{DIGCF_PRESENT | DIGCF_ALLCLASSES, 3}, {DIGCF_ALLCLASSES, 4}};
        for (const auto& row : rows) {
            HDEVINFO set = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, row.flags);
            SP_DEVINFO_DATA device = {};
            device.cbSize = sizeof(device);
            DWORD count = 0;
            DWORD nameless = 0;
            for (; SetupDiEnumDeviceInfo(set, count, &device); ++count) {
                BYTE ids[200];
                if (!SetupDiGetDeviceRegistryPropertyW(set, &device, SPDRP_HARDWAREID, nullptr, ids,
                                                       sizeof(ids), nullptr))
                    nameless += GetLastError() == ERROR_INVALID_DATA;
            }
            EXPECT_EQ(row.devices, count);
            EXPECT_EQ(1u, nameless);
            SetupDiDestroyDeviceInfoList(set);
        }
    });
}

TEST(Sim, NumbersOfSettingsFiles) {
    const struct {
        const char* line;
        UINT value;
    } rows[] = {
        {"\"1\"", 1}, {"'1'", 1},   {"  1  ", 1},      {"\" 1 \"", 1}, {"0x10", 16}, {"0X10", 0},
        {"0b11", 3},  {"0o17", 15}, {"-2", 0u - 2},    {"+3", 3},      {"1x", 1},    {"x1", 0},
        {"", 77},     {"\"\"", 77}, {"4294967297", 1}, {"1 2", 1},     {"0x", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        Bench bench;
        bench.run(std::string("ini line \"C:\\x.ini\" Part Key = ") + row.line);
        run_on_thread(
            [&row] { EXPECT_EQ(row.value, GetPrivateProfileIntW(L"Part", L"Key", 77, L"C:\\x.ini")); });
    }
}

static INT_PTR CALLBACK quit_at_once(HWND dialog, UINT message, WPARAM, LPARAM) {
    if (message == WM_INITDIALOG)
        sim::post_message(dialog, WM_QUIT, 7, 0);
    return FALSE;
}

// The dialog ends with it, and so does the loop around the dialog.
TEST(Sim, QuitInADialogReachesTheLoopAround) {
    expect_violation(nullptr, [] {
        EXPECT_TRUE(SetThreadDesktop(OpenInputDesktop(0, FALSE, 0x1FF)));
        EXPECT_EQ(0, DialogBoxParamW(nullptr, MAKEINTRESOURCEW(101), nullptr, quit_at_once, 0));
        MSG message = {};
        EXPECT_FALSE(GetMessageW(&message, nullptr, 0, 0));
        EXPECT_EQ(7u, message.wParam);
    });
}
