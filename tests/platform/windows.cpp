// Windows, their messages, timers, the dialog, focus and desktops.
#include <initializer_list>

#include "tests/platform/probe.h"

static WCHAR g_told[200]; // messages of a window procedure, in hexadecimal
static size_t g_length = 0;
static LRESULT g_answers[2]; // to WM_NCCREATE and WM_CREATE

static void begin() {
    g_length = 0;
    g_told[0] = 0;
}

// Keeps the messages that the service knows; a real window gets some more.
static void note(UINT message) {
    static const UINT known[] = {WM_CREATE, WM_DESTROY,    WM_CLOSE,   WM_NCCREATE, WM_NCDESTROY, WM_KEYDOWN,
                                 WM_CHAR,   WM_INITDIALOG, WM_COMMAND, WM_TIMER,    WM_SYSCOMMAND};
    bool is_known = false;
    for (const UINT each : known)
        is_known |= each == message;
    if (!is_known || g_length + 5 >= ARRAYSIZE(g_told))
        return;
    if (g_length != 0)
        g_told[g_length++] = L' ';
    for (int shift = 8; shift >= 0; shift -= 4)
        g_told[g_length++] = L"0123456789abcdef"[(message >> shift) & 0xF];
    g_told[g_length] = 0;
}

static LRESULT CALLBACK window_proc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    note(message);
    if (message == WM_NCCREATE && g_answers[0] == 0)
        return 0;
    if (message == WM_CREATE)
        return g_answers[1];
    return DefWindowProcW(window, message, wparam, lparam);
}

static ATOM register_class(const WCHAR* name) {
    WNDCLASSEXW window_class = {};
    window_class.cbSize = sizeof(window_class);
    window_class.lpfnWndProc = window_proc;
    window_class.hInstance = GetModuleHandleW(nullptr);
    window_class.lpszClassName = name;
    return RegisterClassExW(&window_class);
}

static HWND create(const WCHAR* class_name = L"ZorpmProbe", LRESULT nc_create = 1, LRESULT create = 0) {
    g_answers[0] = nc_create;
    g_answers[1] = create;
    return CreateWindowExW(WS_EX_TOOLWINDOW, class_name, nullptr, WS_POPUP, 10, 20, 300, 200, nullptr,
                           nullptr, GetModuleHandleW(nullptr), nullptr);
}

// ---- their life ----

static DWORD WINAPI destroy(void* window) {
    return ERROR_OF(DestroyWindow(static_cast<HWND>(window)));
}

static DWORD WINAPI focus(void* window) {
    return ERROR_OF(SetFocus(static_cast<HWND>(window)));
}

static void probe_life() {
    group("window-class");
    fact("new", register_class(L"ZorpmProbe") != 0);
    fact("again", ERROR_OF(register_class(L"ZorpmProbe")));
    fact("other-case", ERROR_OF(register_class(L"ZORPMPROBE")));
    group("window");
    fact("unknown-class", ERROR_OF(create(L"ZorpmNone")));
    begin();
    HWND window = create(L"zorpmprobe");
    fact("created", window != nullptr);
    fact_text("created-messages", g_told);
    begin();
    fact("refused-early", create(L"ZorpmProbe", 0) == nullptr);
    fact_text("refused-early-messages", g_told);
    begin();
    fact("refused-late", create(L"ZorpmProbe", 1, -1) == nullptr);
    fact_text("refused-late-messages", g_told);
    fact("destroy-by-another-thread", on_thread(destroy, window));
    fact("focus-by-another-thread", on_thread(focus, window));
    begin();
    fact("destroy", DestroyWindow(window));
    fact_text("destroy-messages", g_told);
    fact("destroy-again", ERROR_OF(DestroyWindow(window)));
    fact("destroy-null", ERROR_OF(DestroyWindow(nullptr)));
    window = create();
    begin();
    DefWindowProcW(window, WM_CLOSE, 0, 0);
    fact_text("close-messages", g_told);
    fact("closed", ERROR_OF(DestroyWindow(window)));
    fact("default-of-nobody", DefWindowProcW(nullptr, WM_CLOSE, 0, 0));
    fact("cursor", LoadCursorW(nullptr, IDC_ARROW) != nullptr);
    fact("cursor-again", LoadCursorW(nullptr, IDC_ARROW) == LoadCursorW(nullptr, IDC_ARROW));
    fact("cursor-missing", LoadCursorW(nullptr, MAKEINTRESOURCEW(77)) == nullptr);
    const UINT message = RegisterWindowMessageW(L"ZorpmProbeMessage");
    group("window-message");
    fact("range", message >= 0xC000 && message <= 0xFFFF);
    fact("again", RegisterWindowMessageW(L"ZorpmProbeMessage") == message);
    fact("other-case", RegisterWindowMessageW(L"ZORPMPROBEMESSAGE") == message);
    fact("other", RegisterWindowMessageW(L"ZorpmProbeOther") != message);
}

// ---- their place ----

static void fact_place(const char* name, HWND window) {
    RECT rect = {};
    GetWindowRect(window, &rect);
    WCHAR text[40];
    size_t length = 0;
    for (const LONG each : {rect.left, rect.top, rect.right, rect.bottom}) {
        LONG value = each < 0 ? -each : each;
        if (length != 0)
            text[length++] = L' ';
        if (each < 0)
            text[length++] = L'-';
        for (const LONG power : {1000, 100, 10, 1}) {
            if (value >= power || power == 1 || (length != 0 && each >= power))
                text[length++] = static_cast<WCHAR>(L'0' + value / power % 10);
        }
    }
    text[length] = 0;
    fact_text(name, text);
}

static void probe_places() {
    group("window-place");
    HWND window = create();
    RECT rect = {};
    fact_place("new", window);
    fact("move", SetWindowPos(window, HWND_TOP, 50, 60, 1, 1, SWP_NOSIZE));
    fact_place("moved", window);
    fact("resize", SetWindowPos(window, HWND_TOP, 1, 1, 320, 240, SWP_NOMOVE));
    fact_place("resized", window);
    SetWindowPos(window, HWND_TOPMOST, -30, -40, 200, 100, 0);
    fact_place("negative", window);
    SetWindowPos(window, HWND_TOP, 5, 5, 10, 10, SWP_NOMOVE | SWP_NOSIZE);
    fact_place("neither", window);
    fact("hide-hidden", ShowWindow(window, SW_HIDE));
    SetWindowPos(window, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_SHOWWINDOW);
    fact("hide-shown", ShowWindow(window, SW_HIDE) != FALSE);
    fact("hide-again", ShowWindow(window, SW_HIDE));
    fact("capture", SetCapture(window) == nullptr);
    fact("capture-again", SetCapture(window) == window);
    fact("rect-null", ERROR_OF(GetWindowRect(nullptr, &rect)));
    fact("place-null", ERROR_OF(SetWindowPos(nullptr, HWND_TOP, 0, 0, 0, 0, 0)));
    fact("show-null", ShowWindow(nullptr, SW_HIDE));
    DestroyWindow(window);
    fact("rect-destroyed", ERROR_OF(GetWindowRect(window, &rect)));
    fact("place-destroyed", ERROR_OF(SetWindowPos(window, HWND_TOP, 0, 0, 0, 0, 0)));
    fact("focus-destroyed", ERROR_OF(SetFocus(window)));
    fact("capture-destroyed", ERROR_OF(SetCapture(window)));
    fact("foreground-destroyed", ERROR_OF(SetForegroundWindow(window)));
    fact("item-of-destroyed", ERROR_OF(GetDlgItem(window, 1)));
    fact("end-dialog-destroyed", ERROR_OF(EndDialog(window, 1)));
    fact("swapped", GetSystemMetrics(SM_SWAPBUTTON));
    fact("caption", GetSystemMetrics(SM_CYCAPTION) > 10);
    fact("work-area", SystemParametersInfoW(SPI_GETWORKAREA, 0, &rect, 0));
    fact("work-area-size", rect.right > rect.left && rect.bottom > rect.top);
}

// ---- timers and the message loop ----

static bool next_is(UINT message, WPARAM wparam, MSG* got) {
    return GetMessageW(got, nullptr, 0, 0) > 0 && got->message == message && got->wParam == wparam;
}

static void probe_loop() {
    group("message");
    HWND window = create();
    MSG got = {};
    fact("timer", SetTimer(window, 7, 20, nullptr));
    const ULONGLONG start = GetTickCount64();
    fact("timer-message", next_is(WM_TIMER, 7, &got));
    const ULONGLONG waited = GetTickCount64() - start;
    fact("timer-in-time", waited >= 5 && waited < 5000);
    fact("timer-of-window", got.hwnd == window);
    begin();
    DispatchMessageW(&got);
    fact_text("timer-dispatched", g_told);
    fact("timer-again", next_is(WM_TIMER, 7, &got));
    SetTimer(window, 7, 100000, nullptr);
    SetTimer(window, 8, 20, nullptr);
    fact("timer-set-anew", next_is(WM_TIMER, 8, &got));
    fact("kill", KillTimer(window, 8));
    fact("kill-again", KillTimer(window, 8));
    fact("kill-of-nobody", KillTimer(nullptr, 8));
    fact("kill-other", KillTimer(window, 7));
    fact("translate-timer", TranslateMessage(&got));
    MSG key = {};
    key.hwnd = window;
    key.message = WM_KEYDOWN;
    key.wParam = ' ';
    key.lParam = 0x390001;
    fact("translate-key", TranslateMessage(&key) != FALSE);
    fact("translated", next_is(WM_CHAR, ' ', &got));
    fact("translated-to", got.hwnd == window);
    key.message = WM_KEYUP;
    TranslateMessage(&key);
    SetTimer(window, 9, 20, nullptr);
    fact("key-up-gives-none", next_is(WM_TIMER, 9, &got));
    begin();
    got.message = WM_CLOSE;
    got.wParam = 0;
    fact("dispatch-close", DispatchMessageW(&got));
    fact_text("dispatch-close-messages", g_told);
    fact("timer-of-destroyed", ERROR_OF(SetTimer(window, 9, 20, nullptr)));
    fact("kill-of-destroyed", KillTimer(window, 9));
    fact("dispatch-to-destroyed", DispatchMessageW(&got));
    got.hwnd = nullptr;
    fact("dispatch-to-nobody", DispatchMessageW(&got));
}

// ---- the dialog ----

static struct {
    LPARAM parameter;
    DWORD found;
    DWORD missing;
    bool has_size;
    bool by_timer;
    LRESULT at_end;
} g_dialog;

static INT_PTR CALLBACK dialog_proc(HWND dialog, UINT message, WPARAM, LPARAM lparam) {
    note(message);
    if (message == WM_INITDIALOG) {
        RECT rect = {};
        g_dialog.parameter = lparam;
        g_dialog.found = ERROR_OF(GetDlgItem(dialog, 1000)) + ERROR_OF(GetDlgItem(dialog, 1001));
        g_dialog.missing = ERROR_OF(GetDlgItem(dialog, 77));
        g_dialog.has_size = GetWindowRect(dialog, &rect) && rect.right - rect.left > 200;
        if (g_dialog.by_timer)
            SetTimer(dialog, 5, 20, nullptr);
        else
            g_dialog.at_end = EndDialog(dialog, 42);
        return TRUE;
    }
    if (message == WM_TIMER) {
        KillTimer(dialog, 5);
        EndDialog(dialog, 43);
        g_dialog.at_end = EndDialog(dialog, 44);
        return TRUE;
    }
    return FALSE;
}

static INT_PTR run_dialog(bool by_timer) {
    begin();
    g_dialog = {};
    g_dialog.by_timer = by_timer;
    return DialogBoxParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(101), nullptr, dialog_proc, 4711);
}

static DWORD WINAPI other_desktop(void*) {
    HDESK first = GetThreadDesktop(GetCurrentThreadId());
    HDESK input = OpenInputDesktop(0, FALSE, GENERIC_ALL);
    fact("input", input != nullptr);
    fact("first", first != nullptr);
    fact("first-again", GetThreadDesktop(GetCurrentThreadId()) == first);
    fact("set", ERROR_OF(SetThreadDesktop(input)));
    fact("set-get", GetThreadDesktop(GetCurrentThreadId()) == input);
    fact("close-own", ERROR_OF(CloseDesktop(input)));
    fact("set-back", ERROR_OF(SetThreadDesktop(first)));
    fact("close", ERROR_OF(CloseDesktop(input)));
    fact("set-null", ERROR_OF(SetThreadDesktop(nullptr)));
    fact("close-null", ERROR_OF(CloseDesktop(nullptr)));
    fact("close-closed", ERROR_OF(CloseDesktop(input)));
    create();
    input = OpenInputDesktop(0, FALSE, GENERIC_ALL);
    fact("set-with-window", ERROR_OF(SetThreadDesktop(input)));
    return 0;
}

static void probe_dialog() {
    group("dialog");
    fact("result", run_dialog(false));
    fact_text("messages", g_told);
    fact("parameter", g_dialog.parameter);
    fact("items", g_dialog.found);
    fact("item-missing", g_dialog.missing);
    fact("size", g_dialog.has_size);
    fact("end", g_dialog.at_end);
    fact("result-by-timer", run_dialog(true));
    fact_text("messages-by-timer", g_told);
    fact("end-twice", g_dialog.at_end);
    fact("missing", ERROR_OF(DialogBoxParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(102), nullptr,
                                             dialog_proc, 0) != -1));
    fact("end-null", ERROR_OF(EndDialog(nullptr, 1)));
    fact("item-of-null", ERROR_OF(GetDlgItem(nullptr, 1)));
}

void probe_windows() {
    probe_life();
    probe_places();
    probe_loop();
    probe_dialog();
    group("desktop");
    fact("thread", on_thread(other_desktop, nullptr));
}
