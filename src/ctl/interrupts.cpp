#include "ctl/interrupts.h"

#include "ctl/output.h"

// Windows gives a program five seconds at the closing of its console and at a session's end.
constexpr DWORD GRACE_MS = 4000;

#define WINDOW_CLASS L"ZorpmctlSessionWindow"

static HANDLE g_hInterrupted = nullptr;
static HANDLE g_hHandled = nullptr;

// After the return from the last three of these the process is ended; Ctrl-C leaves it its time.
static BOOL WINAPI HandleConsoleControl(DWORD type) {
    SetEvent(g_hInterrupted);
    if (type == CTRL_CLOSE_EVENT || type == CTRL_LOGOFF_EVENT || type == CTRL_SHUTDOWN_EVENT)
        WaitForSingleObject(g_hHandled, GRACE_MS);
    return TRUE;
}

HANDLE CatchInterrupts() {
    g_hInterrupted = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (g_hInterrupted != nullptr)
        g_hHandled = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (g_hHandled == nullptr) {
        Complain(L"cannot be interrupted in order, error %lu", GetLastError());
        return nullptr;
    }
    SetConsoleCtrlHandler(HandleConsoleControl, TRUE);
    return g_hInterrupted;
}

static LRESULT CALLBACK SessionWindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    if (message == WM_ENDSESSION && wparam != 0) {
        SetEvent(g_hInterrupted);
        WaitForSingleObject(g_hHandled, GRACE_MS);
        return 0;
    }
    return DefWindowProcW(window, message, wparam, lparam);
}

static DWORD WINAPI SessionThreadProc(LPVOID) {
    WNDCLASSEXW window_class = {};
    window_class.cbSize = sizeof(window_class);
    window_class.lpfnWndProc = SessionWindowProc;
    window_class.hInstance = GetModuleHandleW(nullptr);
    window_class.lpszClassName = WINDOW_CLASS;
    RegisterClassExW(&window_class);
    // A top-level window: those that only take messages are not told of a session's end.
    if (CreateWindowExW(WS_EX_TOOLWINDOW, WINDOW_CLASS, nullptr, WS_POPUP, 0, 0, 0, 0, nullptr, nullptr,
                        window_class.hInstance, nullptr) == nullptr)
        return 0;
    MSG message = {};
    while (GetMessageW(&message, nullptr, 0, 0) > 0)
        DispatchMessageW(&message);
    return 0;
}

void CatchSessionEnd() {
    HANDLE thread = CreateThread(nullptr, 0, SessionThreadProc, nullptr, 0, nullptr);
    if (thread != nullptr)
        CloseHandle(thread); // it lives as long as the process
}

void InterruptHandled() {
    SetEvent(g_hHandled);
}
