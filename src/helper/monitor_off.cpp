#include "helper/monitor_off.h"

#include <atomic>

#include "common/process.h"
#include "common/trace.h"
#include "helper/pm_helper.h"
#include "helper/resource.h"
#include "power/powrprof.h"
#include "power/system_library.h"
#include "power/user_policy.h"

constexpr DWORD SCHEME_INDEX_MASK = 0x1FFFFFFF;

constexpr ACCESS_MASK DESKTOP_ACCESS = 0x1FF;

// Timer ids of the dialog, and their period.
constexpr UINT_PTR TIMER_CAPTURE = 1001;
constexpr UINT_PTR TIMER_TURN_OFF = 1005;
constexpr UINT TIMER_PERIOD_MS = 200;

// The cursor rests this far below the caption's height.
constexpr int CURSOR_OFFSET = 4;

// Counted mouse events that a showing tolerates: the dialog's own cursor move and click.
constexpr DWORD TOLERATED_INPUTS = 2;

// 0 no dialog is up, 1 first showing, 2 second. Claims the request: the values below belong to the thread
// that turned it from 0 to 1.
static std::atomic<DWORD> g_dwMonitorOffPass{0};
static DWORD g_dwSchemeIndex;
static DWORD g_dwInputCount;
static DWORD g_dwLastMousePosition;

static OPERATION(BOOL, IsActiveConsoleSession, ()) {
    if (IsVistaOrLater)
        return FALSE;
    const SystemLibrary kernel32(L"kernel32.dll");
    const auto session_of_process =
        kernel32.Find<BOOL(WINAPI*)(DWORD process, DWORD * session)>("ProcessIdToSessionId");
    const auto console_session = kernel32.Find<DWORD(WINAPI*)()>("WTSGetActiveConsoleSessionId");
    // A system too old for sessions has only the console.
    if (session_of_process == nullptr || console_session == nullptr)
        return TRUE;
    DWORD session = 0;
    return session_of_process(GetCurrentProcessId(), &session) && session == console_session();
}

// The default user's schemes are what the service's own account runs under.
static OPERATION(BOOL, TurnOffMonitorByDefaultScheme, ()) {
    DWORD index = 0;
    POWER_POLICY policy = {};
    if (!GetCurrentPowerPolicyIndex(&index) || !ReadUserPowerPolicy(index, &policy)) {
        Trace(L"TurnOffMonitorByDefaultScheme(): Error: no scheme to work on.\n");
        return FALSE;
    }
    const POWER_POLICY one_second = WithOneSecondTimeouts(policy);
    WriteDefaultUserPowerPolicy(&index, &one_second.user);
    GLOBAL_POWER_POLICY global_policy = {};
    ReadGlobalUserPowerPolicy(&global_policy.user);
    WriteDefaultGlobalPowerPolicy(&global_policy.user);
    PowrProfSetActivePwrScheme(index, nullptr, nullptr);
    return WriteDefaultUserPowerPolicy(&index, &policy.user);
}

static OPERATION(void, EndMonitorOffDialog, (HWND dialog), dialog) {
    // The stored timeouts come back whether or not they had been replaced.
    if (g_dwMonitorOffPass == 2)
        PowrProfSetActivePwrScheme(g_dwSchemeIndex, nullptr, nullptr);
    EndDialog(dialog, 1);
}

static void CountInput(HWND dialog) {
    if (++g_dwInputCount > TOLERATED_INPUTS)
        EndMonitorOffDialog(dialog);
}

static void SendMouseButton(DWORD flags) {
    INPUT input = {};
    input.type = INPUT_MOUSE;
    input.mi.dwFlags = flags;
    SendInput(1, &input, sizeof(input));
}

static void OnInitDialog(HWND dialog) {
    const bool swapped = GetSystemMetrics(SM_SWAPBUTTON) != 0;
    g_dwInputCount = 0;
    RECT work = {};
    RECT window = {};
    if (!SystemParametersInfoW(SPI_GETWORKAREA, 0, &work, 0)) {
        Trace(L"OnInitDialog(): Error: no work area. (%lu)\n", GetLastError());
        return;
    }
    GetWindowRect(dialog, &window);
    const int width = window.right - window.left;
    const int height = window.bottom - window.top;
    const int work_width = work.right - work.left;
    const int work_height = work.bottom - work.top;
    const int x = work.left + (work_width / 2 - width / 2);
    const int y = work.top + (work_height / 2 - height / 2);
    SetWindowPos(dialog, HWND_TOP, x, y, width, height, SWP_SHOWWINDOW);
    SetCursorPos(work_width / 2, y + GetSystemMetrics(SM_CYCAPTION) + CURSOR_OFFSET);
    SetWindowPos(dialog, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE);
    SendMouseButton(swapped ? MOUSEEVENTF_RIGHTDOWN : MOUSEEVENTF_LEFTDOWN);
    SendMouseButton(swapped ? MOUSEEVENTF_RIGHTUP : MOUSEEVENTF_LEFTUP);
    SetFocus(dialog);
    SetForegroundWindow(dialog);
    SetTimer(dialog, TIMER_CAPTURE, TIMER_PERIOD_MS, nullptr);
    ShowWindow(GetDlgItem(dialog, IDC_MONITOR_OFF_EDIT), SW_HIDE);
}

static void OnTimer(HWND dialog, WPARAM timer) {
    if (timer == TIMER_CAPTURE) {
        RECT window = {};
        GetWindowRect(dialog, &window);
        SetCursorPos(window.left + (window.right - window.left) / 2,
                     window.top + GetSystemMetrics(SM_CYCAPTION) + CURSOR_OFFSET);
        SetCapture(dialog);
        KillTimer(dialog, TIMER_CAPTURE);
        if (g_dwMonitorOffPass == 1)
            EndDialog(dialog, 1);
        else
            SetTimer(dialog, TIMER_TURN_OFF, TIMER_PERIOD_MS, nullptr);
    } else if (timer == TIMER_TURN_OFF) {
        KillTimer(dialog, TIMER_TURN_OFF);
        TurnOffMonitorByDefaultScheme();
    }
}

static void OnMouseMove(HWND dialog, LPARAM position) {
    if (static_cast<DWORD>(position) == g_dwLastMousePosition)
        return;
    g_dwLastMousePosition = static_cast<DWORD>(position);
    CountInput(dialog);
}

static INT_PTR CALLBACK MonitorOffDialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_INITDIALOG:
        OnInitDialog(dialog);
        return FALSE;
    case WM_TIMER:
        OnTimer(dialog, wParam);
        return TRUE;
    case WM_MOUSEMOVE:
        OnMouseMove(dialog, lParam);
        return TRUE;
    case WM_LBUTTONDOWN:
        CountInput(dialog);
        return TRUE;
    case WM_SYSCOMMAND:
        // The system keeps the low four bits for itself.
        if ((wParam & 0xFFF0) == SC_SCREENSAVE)
            return FALSE;
        [[fallthrough]];
    case WM_RBUTTONDOWN:
    case WM_MBUTTONDOWN:
    case WM_KEYDOWN:
    case WM_CHAR:
    case WM_SYSKEYDOWN:
    case WM_COMMAND:
        EndMonitorOffDialog(dialog);
        return TRUE;
    default:
        return FALSE;
    }
}

// One showing on the desktop that receives the user's input. The thread must be on that desktop before its
// first window.
static OPERATION(BOOL, ShowMonitorOffDialog, ()) {
    HDESK own = GetThreadDesktop(GetCurrentThreadId());
    if (own == nullptr)
        return FALSE;
    HDESK input = OpenInputDesktop(0, FALSE, DESKTOP_ACCESS);
    if (input == nullptr) {
        Trace(L"ShowMonitorOffDialog(): Error: OpenInputDesktop(). (%lu)\n", GetLastError());
        return FALSE;
    }
    if (SetThreadDesktop(input)) {
        DialogBoxParamW(g_hInstance, MAKEINTRESOURCEW(IDD_MONITOR_OFF), nullptr, MonitorOffDialogProc, 0);
        SetThreadDesktop(own);
    } else {
        Trace(L"ShowMonitorOffDialog(): Error: SetThreadDesktop(). (%lu)\n", GetLastError());
    }
    return CloseDesktop(input);
}

OPERATION(DWORD WINAPI, MonitorOffRequestThreadProc, (void* parameter), parameter) {
    const DWORD index = static_cast<std::atomic<DWORD>*>(parameter)->load() & SCHEME_INDEX_MASK;
    if (!IsActiveConsoleSession())
        return 0;
    DWORD idle = 0;
    if (!g_dwMonitorOffPass.compare_exchange_strong(idle, 1)) {
        Trace(L"MonitorOffRequestThreadProc(): a dialog is up already.\n");
        return 0;
    }
    g_dwSchemeIndex = index;
    ShowMonitorOffDialog();
    g_dwMonitorOffPass = 2;
    ShowMonitorOffDialog();
    g_dwMonitorOffPass = 0;
    return 0;
}
