#include "helper/pm_helper.h"

#include <zorpm/zorpm.h>

#include "common/process.h"
#include "common/trace.h"
#include "helper/helper_store.h"
#include "power/powrprof.h"

static_assert(sizeof(GLOBAL_USER_POWER_POLICY) == HELPER_RECORD_BYTES);

// The registered id of the helper's message; 0 until it could be registered.
static UINT g_uHelperMessage;

POWER_POLICY WithOneSecondTimeouts(const POWER_POLICY& policy) {
    POWER_POLICY changed = policy;
    changed.user.VideoTimeoutAc = 1;
    changed.user.VideoTimeoutDc = 1;
    changed.user.SpindownTimeoutAc = 1;
    changed.user.SpindownTimeoutDc = 1;
    return changed;
}

static OPERATION(DWORD, SaveGlobalPowerPolicy, ([[maybe_unused]] LPARAM argument), argument) {
    GLOBAL_POWER_POLICY policy = {};
    if (PowrProfReadGlobalPwrPolicy(&policy))
        WriteHelperRegistryValue(ZORPM_HELPER_GLOBAL, ZORPM_HELPER_POLICY, &policy.user, sizeof(policy.user));
    return 0;
}

static OPERATION(DWORD, SaveActivePowerSchemeIndex, ([[maybe_unused]] LPARAM argument), argument) {
    UINT index = 0;
    if (PowrProfGetActivePwrScheme(&index))
        WriteHelperRegistryValue(ZORPM_HELPER_POLICIES, ZORPM_HELPER_SCHEME_INDEX, &index, sizeof(index));
    return 0;
}

// The active scheme's index (0 when it cannot be read) and policy. FALSE when the policy cannot be read.
static BOOL ReadActiveScheme(UINT* index, POWER_POLICY* policy) {
    if (!PowrProfGetActivePwrScheme(index))
        *index = 0;
    return PowrProfReadPwrScheme(*index, policy);
}

static OPERATION(DWORD, SaveUserPowerPolicy, ([[maybe_unused]] LPARAM argument), argument) {
    UINT index = 0;
    POWER_POLICY policy = {};
    if (ReadActiveScheme(&index, &policy))
        WriteHelperRegistryValue(ZORPM_HELPER_POLICIES, ZORPM_HELPER_POLICY, &policy.user,
                                 sizeof(policy.user));
    return 0;
}

static OPERATION(DWORD, RestoreUserPowerPolicy, ([[maybe_unused]] LPARAM argument), argument) {
    UINT index = 0;
    POWER_POLICY policy = {};
    if (!ReadActiveScheme(&index, &policy))
        return 0;
    // Without a stored policy the system's own is activated again.
    ReadHelperRegistryValue(ZORPM_HELPER_POLICIES, ZORPM_HELPER_POLICY, &policy.user, sizeof(policy.user));
    PowrProfSetActivePwrScheme(index, nullptr, &policy);
    return 0;
}

// Writes the scheme; the system may put another index into the word it is given.
static void WriteScheme(UINT index, POWER_POLICY policy) {
    PowrProfWritePwrScheme(&index, nullptr, nullptr, &policy);
}

// Activates the scheme with timeouts of one second and stores it again as it was: the display goes dark after
// a second without input, and activating the index again brings the stored timeouts back.
static OPERATION(DWORD, HelperLcdOffHandler, ([[maybe_unused]] LPARAM argument), argument) {
    UINT index = 0;
    if (!PowrProfGetActivePwrScheme(&index))
        return 0;
    POWER_POLICY policy = {};
    if (!PowrProfReadPwrScheme(index, &policy))
        return index;
    WriteScheme(index, WithOneSecondTimeouts(policy));
    PowrProfSetActivePwrScheme(index, nullptr, nullptr);
    WriteScheme(index, policy);
    return index;
}

static DWORD ActivateScheme(LPARAM index) {
    PowrProfSetActivePwrScheme(static_cast<UINT>(index), nullptr, nullptr);
    return 0;
}

// The commands by number.
static DWORD (*const g_helperCommands[])(LPARAM argument) = {
    nullptr,
    SaveGlobalPowerPolicy,      // 1
    SaveActivePowerSchemeIndex, // 2
    SaveUserPowerPolicy,        // 3
    RestoreUserPowerPolicy,     // 4
    HelperLcdOffHandler,        // 5
    ActivateScheme,             // 6
};

static OPERATION(DWORD, PmHelperCommand, (WPARAM command, LPARAM argument), command, argument) {
    if (command >= ARRAYSIZE(g_helperCommands) || g_helperCommands[command] == nullptr) {
        Trace(L"PmHelperCommand(): no such command\n");
        return 0;
    }
    return g_helperCommands[command](argument);
}

static LRESULT CALLBACK PmHelperWndProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (g_uHelperMessage == 0)
        g_uHelperMessage = RegisterWindowMessageW(ZORPM_HELPER_MESSAGE);
    // An id that could not be registered must not match WM_NULL.
    if (message == g_uHelperMessage && message != WM_NULL)
        return PmHelperCommand(wParam, lParam);
    return DefWindowProcW(window, message, wParam, lParam);
}

static OPERATION(ATOM, RegisterPmHelperWindowClass, ()) {
    WNDCLASSEXW window_class = {};
    window_class.cbSize = sizeof(window_class);
    window_class.style = CS_HREDRAW | CS_VREDRAW;
    window_class.lpfnWndProc = PmHelperWndProc;
    window_class.hInstance = g_hInstance;
    window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    window_class.hbrBackground = reinterpret_cast<HBRUSH>(static_cast<ULONG_PTR>(COLOR_WINDOW + 1));
    window_class.lpszClassName = ZORPM_HELPER_CLASS;
    return RegisterClassExW(&window_class);
}

OPERATION(void, PmHelperMain, ()) {
    if (RegisterPmHelperWindowClass() == 0)
        Trace(L"PmHelperMain(): Error: RegisterClassExW(). (%lu)\n", GetLastError());
    HWND window = CreateWindowExW(WS_EX_TOOLWINDOW, ZORPM_HELPER_CLASS, nullptr, WS_POPUP, 100, 100, 100, 100,
                                  nullptr, nullptr, g_hInstance, nullptr);
    if (window == nullptr) {
        Trace(L"PmHelperMain(): Error: CreateWindowExW(). (%lu)\n", GetLastError());
        return;
    }
    MSG message = {};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}
