// The simulated power manager, security and windows, where they must be as strict as the platform.
#include "sim/windows/messages.h"
#include "sim/windows/modules.h"
#include "tests/support/bench.h"

using namespace sim;

static HMODULE load_powrprof() {
    return LoadLibraryExW(L"powrprof.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
}

TEST(PowerSim, Libraries) {
    expect_violation("system directory", [] { FreeLibrary(LoadLibraryExW(L"powrprof.dll", nullptr, 0)); });
    expect_violation("not loaded", [] {
        HMODULE module = load_powrprof();
        EXPECT_EQ(module, load_powrprof());
        EXPECT_TRUE(FreeLibrary(module));
        EXPECT_TRUE(FreeLibrary(module));
        EXPECT_FALSE(FreeLibrary(module));
    });
    expect_violation("was freed", [] {
        HMODULE module = load_powrprof();
        const auto allowed = reinterpret_cast<BOOLEAN(WINAPI*)()>(
            reinterpret_cast<void*>(GetProcAddress(module, "IsPwrHibernateAllowed")));
        FreeLibrary(module);
        allowed();
    });
    expect_violation(nullptr, [] {
        EXPECT_EQ(nullptr, LoadLibraryExW(L"other.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
        EXPECT_EQ(ERROR_MOD_NOT_FOUND, GetLastError());
        HMODULE module = load_powrprof();
        EXPECT_EQ(nullptr, GetProcAddress(module, "Setsuspendstate"));
        EXPECT_EQ(ERROR_PROC_NOT_FOUND, GetLastError());
        EXPECT_EQ(1u, loaded_modules());
        FreeLibrary(module);
        EXPECT_FALSE(FreeLibrary(nullptr));
    });
}

TEST(PowerSim, Privileges) {
    expect_violation("the former state", [] {
        HANDLE token = nullptr;
        TOKEN_PRIVILEGES state = {1, {}};
        EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &token));
        EXPECT_FALSE(AdjustTokenPrivileges(token, FALSE, &state, sizeof(state), &state, nullptr));
        CloseHandle(token);
    });
    expect_violation(nullptr, [] {
        LUID luid = {};
        EXPECT_FALSE(LookupPrivilegeValueW(nullptr, L"SeNothingPrivilege", &luid));
        EXPECT_EQ(ERROR_NO_SUCH_PRIVILEGE, GetLastError());
        EXPECT_FALSE(SetSystemPowerState(FALSE, FALSE));
        EXPECT_FALSE(ExitWindowsEx(12, 0));
        EXPECT_EQ(ERROR_PRIVILEGE_NOT_HELD, GetLastError());
        EXPECT_EQ(static_cast<LSTATUS>(ERROR_PRIVILEGE_NOT_HELD), RegLoadKeyW(HKEY_USERS, L"x", L"C:\\x"));
    });
}

static unsigned g_timers = 0;

static LRESULT CALLBACK count_timers(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    g_timers += message == WM_TIMER;
    return DefWindowProcW(window, message, wparam, lparam);
}

static HWND make_window() {
    WNDCLASSEXW window_class = {};
    window_class.cbSize = sizeof(window_class);
    window_class.lpfnWndProc = count_timers;
    window_class.lpszClassName = L"Test";
    EXPECT_NE(0, RegisterClassExW(&window_class));
    return CreateWindowExW(0, L"test", nullptr, 0, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr);
}

TEST(PowerSim, MissedTimersAreNotMadeUpFor) {
    expect_violation(nullptr, [] {
        const HWND window = make_window();
        g_timers = 0;
        SetTimer(window, 1, 100, nullptr);
        Sleep(1000);
        MSG message = {};
        for (int i = 0; i < 3; ++i) {
            GetMessageW(&message, nullptr, 0, 0);
            DispatchMessageW(&message);
        }
        EXPECT_EQ(3u, g_timers);
        EXPECT_EQ(1200u, machine().now);
        DestroyWindow(window);
    });
}
