// Windows, messages, timers, the one dialog, input and desktops: enough for a hidden window and for a modal
// dialog that counts input.
#include "sim/windows/user32.h"

#include <algorithm>
#include <deque>
#include <map>
#include <utility>

#include "sim/script/scenario.h"
#include "sim/windows/modules.h"

namespace sim {

// The frame of a dialog, and the measures of dialog 101 in the font that it asks for.
constexpr int FRAME = 3;
constexpr int CAPTION_HEIGHT = 26;
constexpr int DIALOG_101_WIDTH = 173 * 6 / 4 + 2 * FRAME + 1;
constexpr int DIALOG_101_HEIGHT = 39 * 13 / 8 + CAPTION_HEIGHT + 2 * FRAME;

constexpr LPARAM HTCAPTION = 2;
constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;
constexpr DWORD NO_SESSION = 0xFFFFFFFF;

namespace { // types of this file alone

struct Window {
    HWND handle = nullptr;
    std::string class_name;
    Thread* thread = nullptr;
    WNDPROC proc = nullptr;
    DLGPROC dialog_proc = nullptr;
    HWND parent = nullptr;
    int id = 0;
    RECT rect = {};
    bool dialog = false;
    bool ended = false; // EndDialog was called
    INT_PTR result = 0;
};

struct Timer {
    HWND window;
    UINT_PTR id;
    Ms period;
    Ms due;
};

struct Message {
    HWND window;
    UINT message;
    WPARAM wparam;
    LPARAM lparam;
    bool sent = false;
    std::function<void(LRESULT)> done;
};

struct Queue { // of a thread
    std::deque<Message> messages;
    ObjectRef arrived = make_event(false);
    HDESK desktop = nullptr; // null: the one that the thread began on
};

struct Classes { // of a process
    std::map<std::string, WNDPROC> procs;
};

struct WindowList {
    std::map<HWND, Window> list;
    std::vector<Timer> timers;
    std::vector<std::string> registered; // messages
    std::uintptr_t next = 0x10010;
    ATOM next_atom = 0xC101;
};

} // namespace

static WindowList& windows() {
    return machine_state<WindowList>();
}

Screen& screen() {
    return machine_state<Screen>();
}

static Queue& queue_of(Thread* thread) {
    return thread->state.get<Queue>();
}

// The window of a handle, unless it or its thread is gone.
static Window* window_of(HWND handle) {
    const auto found = windows().list.find(handle);
    if (found == windows().list.end() || found->second.thread->run == Run::Ended)
        return nullptr;
    return &found->second;
}

static Window* checked_window(HWND handle) {
    Window* window = window_of(handle);
    if (window == nullptr)
        set_last_error(ERROR_INVALID_WINDOW_HANDLE);
    return window;
}

HWND find_window(const std::string& class_name, DWORD session) {
    for (const auto& [handle, window] : windows().list) {
        if (window_of(handle) != nullptr && same_text(window.class_name, class_name) &&
            window.thread->process->session == session)
            return handle;
    }
    return nullptr;
}

UINT registered_message(const std::string& name) {
    std::vector<std::string>& names = windows().registered;
    const auto found = std::find_if(names.begin(), names.end(),
                                    [&name](const std::string& known) { return same_text(known, name); });
    const auto index = static_cast<UINT>(found - names.begin());
    if (found == names.end())
        names.push_back(name);
    return 0xC000 + index;
}

static bool enqueue(Message message) {
    const Window* window = window_of(message.window);
    if (window == nullptr)
        return false;
    Queue& queue = queue_of(window->thread);
    queue.messages.push_back(std::move(message));
    signal_object(*queue.arrived);
    return true;
}

bool post_message(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    return enqueue({window, message, wparam, lparam, false, nullptr});
}

bool send_message(HWND window, UINT message, WPARAM wparam, LPARAM lparam,
                  std::function<void(LRESULT)> done) {
    return enqueue({window, message, wparam, lparam, true, std::move(done)});
}

// Calls a window's procedure; a dialog's own comes first.
static LRESULT call_window(HWND handle, UINT message, WPARAM wparam, LPARAM lparam) {
    const Window* window = window_of(handle);
    if (window == nullptr)
        return 0;
    if (!window->dialog)
        return window->proc != nullptr ? window->proc(handle, message, wparam, lparam) : 0;
    if (window->dialog_proc(handle, message, wparam, lparam) != FALSE)
        return 0;
    return DefWindowProcW(handle, message, wparam, lparam);
}

static void destroy_window(HWND handle) {
    WindowList& w = windows();
    std::erase_if(w.timers, [handle](const Timer& timer) { return timer.window == handle; });
    std::erase_if(w.list, [handle](const auto& entry) { return entry.second.parent == handle; });
    w.list.erase(handle);
    if (screen().focus == handle)
        screen().focus = nullptr;
    if (screen().capture == handle)
        screen().capture = nullptr;
}

static HWND add_window(Window window) {
    window.handle = reinterpret_cast<HWND>(windows().next);
    windows().next += 2;
    window.thread = current();
    windows().list[window.handle] = window;
    return window.handle;
}

// ---- messages ----

// The first timer of the thread that is due, with its next expiry set; a missed period is not made up for.
static bool take_timer(MSG* message) {
    for (Timer& timer : windows().timers) {
        const Window* window = window_of(timer.window);
        if (window == nullptr || window->thread != current() || timer.due > machine().now)
            continue;
        timer.due = machine().now + timer.period;
        *message = {timer.window, WM_TIMER, timer.id, 0, 0, screen().cursor};
        return true;
    }
    return false;
}

static Ms next_timer() {
    Ms due = NEVER;
    for (const Timer& timer : windows().timers) {
        const Window* window = window_of(timer.window);
        if (window != nullptr && window->thread == current())
            due = std::min(due, timer.due);
    }
    return due;
}

// The next posted message of the current thread; those sent by others are handled on the way.
static bool take_message(MSG* message) {
    Queue& queue = queue_of(current());
    while (!queue.messages.empty()) {
        const auto sent = std::find_if(queue.messages.begin(), queue.messages.end(),
                                       [](const Message& waiting) { return waiting.sent; });
        const bool was_sent = sent != queue.messages.end();
        // Nothing with a destructor may live on this stack while the procedure runs.
        const auto place = was_sent ? sent : queue.messages.begin();
        const Message* parked = new Message(std::move(*place));
        queue.messages.erase(place);
        *message = {parked->window, parked->message, parked->wparam, parked->lparam, 0, screen().cursor};
        if (!was_sent) {
            delete parked;
            return true;
        }
        const LRESULT result = call_window(message->hwnd, message->message, message->wParam, message->lParam);
        if (parked->done)
            parked->done(result);
        delete parked;
    }
    return false;
}

// Waits for the next message of the current thread. False when a dialog has ended meanwhile.
static bool next_message(MSG* message, HWND dialog) {
    while (true) {
        if (dialog != nullptr && (window_of(dialog) == nullptr || window_of(dialog)->ended))
            return false;
        if (take_message(message) || take_timer(message))
            return true;
        const Ms due = next_timer();
        const ObjectRef& arrived = queue_of(current()).arrived;
        wait_for({arrived}, false, due == NEVER ? INFINITE : static_cast<DWORD>(due - machine().now));
    }
}

// ---- input ----

static LPARAM client_position(const RECT& rect, POINT at) {
    const auto x = static_cast<WORD>(at.x - rect.left - FRAME);
    const auto y = static_cast<WORD>(at.y - rect.top - FRAME - CAPTION_HEIGHT);
    return static_cast<LPARAM>(x) | static_cast<LPARAM>(y) << 16;
}

// A mouse message at the cursor: to the window that has the mouse captured, or to the one below the cursor.
static void mouse_input(UINT message) {
    const POINT at = screen().cursor;
    Window* target = window_of(screen().capture);
    const bool captured = target != nullptr;
    for (auto& [handle, window] : windows().list) {
        if (target == nullptr && window.dialog && at.x >= window.rect.left && at.x < window.rect.right &&
            at.y >= window.rect.top && at.y < window.rect.bottom)
            target = window_of(handle);
    }
    if (target == nullptr)
        return;
    if (captured || at.y >= target->rect.top + FRAME + CAPTION_HEIGHT)
        post_message(target->handle, message, 0, client_position(target->rect, at));
    else if (message == WM_LBUTTONDOWN)
        post_message(target->handle, WM_NCLBUTTONDOWN, HTCAPTION, 0);
}

// ---- the language ----

static Action compile_helper(Tokens& tokens) {
    const DWORD session = tokens.accept("session") ? static_cast<DWORD>(tokens.number()) : 1;
    const bool close = tokens.accept("close");
    const WPARAM command = close ? 0 : tokens.number();
    const auto argument = static_cast<LPARAM>(tokens.done() ? 0 : tokens.number());
    return [=] {
        const HWND window = find_window("PmHelperWindowClass", session);
        const std::string name = close ? "close" : std::to_string(command);
        if (window == nullptr)
            trace("refused helper %s", name.c_str());
        else if (close)
            post_message(window, WM_CLOSE, 0, 0);
        else
            send_message(window, registered_message("PmHelperMessage"), command, argument,
                         [name](LRESULT result) {
                             trace("result helper %s = %u", name.c_str(), static_cast<DWORD>(result));
                         });
    };
}

static const struct {
    const char* word;
    UINT down;
    UINT up;
} g_inputs[] = {
    {"key", WM_KEYDOWN, WM_KEYUP},           {"left", WM_LBUTTONDOWN, WM_LBUTTONUP},
    {"right", WM_RBUTTONDOWN, WM_RBUTTONUP}, {"middle", WM_MBUTTONDOWN, WM_MBUTTONUP},
    {"move", WM_MOUSEMOVE, WM_NULL},
};

static void give_input(size_t kind, POINT at) {
    const Window* target = window_of(screen().focus);
    const auto& input = g_inputs[kind];
    if (target == nullptr) {
        trace("refused input %s", input.word);
        return;
    }
    if (input.down == WM_MOUSEMOVE)
        screen().cursor = at;
    const bool key = input.down == WM_KEYDOWN;
    const WPARAM wparam = key ? ' ' : 0;
    const LPARAM lparam = key ? 1 : client_position(target->rect, screen().cursor);
    post_message(target->handle, input.down, wparam, lparam);
    if (input.up != WM_NULL)
        post_message(target->handle, input.up, wparam, lparam);
}

static Action compile_input(Tokens& tokens) {
    const size_t kind = tokens.choice({"key", "left", "right", "middle", "move"});
    POINT at = {};
    if (kind == ARRAYSIZE(g_inputs) - 1) {
        at.x = static_cast<LONG>(tokens.number());
        at.y = static_cast<LONG>(tokens.number());
    }
    return [kind, at] { give_input(kind, at); };
}

static Action compile_system_command(Tokens& tokens) {
    const WPARAM command = tokens.number();
    return [command] {
        if (!post_message(screen().focus, WM_SYSCOMMAND, command, 0))
            trace("refused input system");
    };
}

static Action compile_buttons(Tokens& tokens) {
    const bool swapped = tokens.choice({"swapped", "normal"}) == 0;
    return [swapped] { screen().buttons_swapped = swapped; };
}

static Action compile_work_area(Tokens& tokens) {
    const bool fails = tokens.choice({"fails", "works"}) == 0;
    return [fails] { screen().work_area_fails = fails; };
}

static Action compile_desktop(Tokens& tokens) {
    const bool refused = tokens.choice({"refused", "granted"}) == 0;
    return [refused] { screen().input_desktop_refused = refused; };
}

static Action compile_console(Tokens& tokens) {
    const auto session = static_cast<DWORD>(tokens.number());
    return [session] { screen().console_session = session; };
}

static const Commands g_commands({
    {"helper", Use::Drive, compile_helper},
    {"input", Use::Drive, compile_input},
    {"input system", Use::Drive, compile_system_command},
    {"windows buttons", Use::Machine, compile_buttons},
    {"windows work-area", Use::Machine, compile_work_area},
    {"windows desktop", Use::Machine, compile_desktop},
    {"windows console-session", Use::Machine, compile_console},
});

// ---- kernel32 functions that are looked up at run time ----

static BOOL WINAPI ProcessIdToSessionId(DWORD id, DWORD* session) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    require_loaded("kernel32.dll", __func__);
    for (auto& process : machine().processes) {
        if (process->id != id)
            continue;
        *session = process->session;
        return TRUE;
    }
    set_last_error(ERROR_INVALID_PARAMETER);
    return FALSE;
}

static DWORD WINAPI WTSGetActiveConsoleSessionId() {
    SIM_VISIT();
    require_loaded("kernel32.dll", __func__);
    return screen().console_session != NO_SESSION ? screen().console_session : current_process()->session;
}

static const Module
    g_kernel32("kernel32.dll",
               {
                   {"ProcessIdToSessionId", reinterpret_cast<void*>(ProcessIdToSessionId)},
                   {"WTSGetActiveConsoleSessionId", reinterpret_cast<void*>(WTSGetActiveConsoleSessionId)},
               });

// ---- desktops ----

// What a thread begins on; its handle is never closed.
static HDESK first_desktop() {
    return reinterpret_cast<HDESK>(0x58);
}

static bool on_input_desktop() {
    return queue_of(current()).desktop != nullptr;
}

static bool has_windows(const Thread* thread) {
    for (const auto& [handle, window] : windows().list) {
        if (window.thread == thread)
            return true;
    }
    return false;
}

static BOOL fail_with(DWORD error) {
    set_last_error(error);
    return FALSE;
}

} // namespace sim

using namespace sim;

extern "C" {

ATOM WINAPI RegisterClassExW(const WNDCLASSEXW* window_class) {
    SIM_CALL(0, ERROR_NOT_ENOUGH_MEMORY);
    if (window_class->cbSize != sizeof(WNDCLASSEXW) || window_class->lpfnWndProc == nullptr) {
        violation("RegisterClassExW: size %u", window_class->cbSize);
        return static_cast<ATOM>(fail_with(ERROR_INVALID_PARAMETER));
    }
    const std::string name = lower(narrow(window_class->lpszClassName));
    if (!process_state<Classes>().procs.try_emplace(name, window_class->lpfnWndProc).second)
        return static_cast<ATOM>(fail_with(ERROR_CLASS_ALREADY_EXISTS));
    return windows().next_atom++;
}

HWND WINAPI CreateWindowExW(DWORD ex_style, LPCWSTR class_name, LPCWSTR, DWORD style, int x, int y, int width,
                            int height, HWND parent, HMENU, HINSTANCE, LPVOID) {
    SIM_CALL(nullptr, ERROR_NOT_ENOUGH_MEMORY);
    Window window;
    window.class_name = narrow(class_name);
    window.parent = parent;
    window.rect = {x, y, x + width, y + height};
    const auto& procs = process_state<Classes>().procs;
    const auto found = procs.find(lower(window.class_name));
    if (found == procs.end()) {
        set_last_error(ERROR_CANNOT_FIND_WND_CLASS);
        return nullptr;
    }
    window.proc = found->second;
    trace_detail("CreateWindowExW(0x%x, %s, 0x%x)", ex_style, window.class_name.c_str(), style);
    const HWND handle = add_window(window);
    if (!call_window(handle, WM_NCCREATE, 0, 0) || call_window(handle, WM_CREATE, 0, 0) == -1) {
        destroy_window(handle);
        return nullptr;
    }
    return handle;
}

BOOL WINAPI DestroyWindow(HWND handle) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    const Window* window = checked_window(handle);
    if (window == nullptr)
        return FALSE;
    if (window->thread != current())
        return fail_with(ERROR_ACCESS_DENIED);
    call_window(handle, WM_DESTROY, 0, 0);
    call_window(handle, WM_NCDESTROY, 0, 0);
    destroy_window(handle);
    return TRUE;
}

LRESULT WINAPI DefWindowProcW(HWND handle, UINT message, WPARAM wparam, LPARAM) {
    SIM_VISIT();
    const Window* window = checked_window(handle);
    if (window == nullptr)
        return 0;
    if (message == WM_NCCREATE)
        return TRUE;
    if (message == WM_CLOSE && !window->dialog)
        DestroyWindow(handle);
    if (message == WM_NCLBUTTONDOWN && wparam == HTCAPTION)
        call_window(handle, WM_SYSCOMMAND, SC_MOVE | HTCAPTION, 0);
    return 0;
}

HCURSOR WINAPI LoadCursorW(HINSTANCE, LPCWSTR name) {
    SIM_CALL(nullptr, ERROR_RESOURCE_NAME_NOT_FOUND);
    return reinterpret_cast<HCURSOR>(const_cast<LPWSTR>(name));
}

UINT WINAPI RegisterWindowMessageW(LPCWSTR name) {
    SIM_CALL(0, ERROR_NOT_ENOUGH_MEMORY);
    if (screen().registering_fails)
        return static_cast<UINT>(fail_with(ERROR_NOT_ENOUGH_MEMORY));
    return registered_message(narrow(name));
}

BOOL WINAPI GetMessageW(MSG* message, HWND window, UINT first, UINT last) {
    SIM_CALL(-1, ERROR_INVALID_WINDOW_HANDLE);
    if (window != nullptr || first != 0 || last != 0)
        violation("GetMessageW: filters are not simulated");
    next_message(message, nullptr);
    return TRUE;
}

BOOL WINAPI TranslateMessage(const MSG* message) {
    SIM_VISIT();
    return message->message == WM_KEYDOWN &&
           post_message(message->hwnd, WM_CHAR, message->wParam, message->lParam);
}

LRESULT WINAPI DispatchMessageW(const MSG* message) {
    SIM_VISIT();
    return call_window(message->hwnd, message->message, message->wParam, message->lParam);
}

INT_PTR WINAPI DialogBoxParamW(HINSTANCE, LPCWSTR name, HWND owner, DLGPROC proc, LPARAM parameter) {
    SIM_CALL(-1, ERROR_RESOURCE_NAME_NOT_FOUND);
    if (name != MAKEINTRESOURCEW(101) || owner != nullptr) {
        violation("DialogBoxParamW: the executable holds dialog 101 only");
        set_last_error(ERROR_RESOURCE_NAME_NOT_FOUND);
        return -1;
    }
    const RECT& work = screen().work;
    const int left = (work.left + work.right - DIALOG_101_WIDTH) / 2;
    const int top = (work.top + work.bottom - DIALOG_101_HEIGHT) / 2;
    Window window;
    window.class_name = "#101";
    window.dialog = true;
    window.dialog_proc = proc;
    window.rect = {left, top, left + DIALOG_101_WIDTH, top + DIALOG_101_HEIGHT};
    const HWND dialog = add_window(std::move(window));
    for (const int id : {1000, 1001}) {
        Window control;
        control.class_name = id == 1000 ? "Static" : "Edit";
        control.parent = dialog;
        control.id = id;
        add_window(std::move(control));
    }
    trace("dialog 101 opened");
    proc(dialog, WM_INITDIALOG, 0, parameter);
    if (screen().focus == nullptr)
        screen().focus = dialog; // a new dialog is activated
    MSG message;
    while (next_message(&message, dialog)) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    const INT_PTR result = window_of(dialog)->result;
    destroy_window(dialog);
    trace("dialog 101 ended %d", static_cast<int>(result));
    return result;
}

BOOL WINAPI EndDialog(HWND handle, INT_PTR result) {
    SIM_CALL(FALSE, ERROR_INVALID_WINDOW_HANDLE);
    Window* window = checked_window(handle);
    if (window == nullptr)
        return FALSE;
    window->ended = true;
    window->result = result;
    return TRUE;
}

HWND WINAPI GetDlgItem(HWND dialog, int id) {
    SIM_CALL(nullptr, ERROR_CONTROL_ID_NOT_FOUND);
    for (const auto& [handle, window] : windows().list) {
        if (window.parent == dialog && window.id == id)
            return handle;
    }
    set_last_error(ERROR_CONTROL_ID_NOT_FOUND);
    return nullptr;
}

UINT_PTR WINAPI SetTimer(HWND handle, UINT_PTR id, UINT period, TIMERPROC) {
    SIM_CALL(0, ERROR_INVALID_WINDOW_HANDLE);
    if (checked_window(handle) == nullptr)
        return 0;
    std::erase_if(windows().timers,
                  [=](const Timer& timer) { return timer.window == handle && timer.id == id; });
    windows().timers.push_back({handle, id, period, machine().now + period});
    return id;
}

BOOL WINAPI KillTimer(HWND handle, UINT_PTR id) {
    SIM_CALL(FALSE, ERROR_INVALID_PARAMETER);
    const size_t erased = std::erase_if(
        windows().timers, [=](const Timer& timer) { return timer.window == handle && timer.id == id; });
    return erased != 0 ? TRUE : fail_with(ERROR_INVALID_PARAMETER);
}

BOOL WINAPI GetWindowRect(HWND handle, RECT* rect) {
    SIM_CALL(FALSE, ERROR_INVALID_WINDOW_HANDLE);
    const Window* window = checked_window(handle);
    if (window == nullptr)
        return FALSE;
    *rect = window->rect;
    return TRUE;
}

BOOL WINAPI SetWindowPos(HWND handle, HWND after, int x, int y, int width, int height, UINT flags) {
    SIM_CALL(FALSE, ERROR_INVALID_WINDOW_HANDLE);
    Window* window = checked_window(handle);
    if (window == nullptr)
        return FALSE;
    trace_detail("SetWindowPos(%s, %d, %d, %d, %d, 0x%x)", after == HWND_TOPMOST ? "topmost" : "top", x, y,
                 width, height, flags);
    RECT& rect = window->rect;
    const int old_width = rect.right - rect.left;
    const int old_height = rect.bottom - rect.top;
    if ((flags & SWP_NOMOVE) == 0)
        rect = {x, y, x + old_width, y + old_height};
    if ((flags & SWP_NOSIZE) == 0)
        rect = {rect.left, rect.top, rect.left + width, rect.top + height};
    return TRUE;
}

BOOL WINAPI ShowWindow(HWND handle, int command) {
    SIM_VISIT();
    if (checked_window(handle) == nullptr)
        return FALSE;
    trace_detail("ShowWindow(%d, %d)", window_of(handle)->id, command);
    return TRUE;
}

HWND WINAPI SetFocus(HWND handle) {
    SIM_CALL(nullptr, ERROR_INVALID_WINDOW_HANDLE);
    if (checked_window(handle) == nullptr)
        return nullptr;
    return std::exchange(screen().focus, handle);
}

BOOL WINAPI SetForegroundWindow(HWND handle) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    return checked_window(handle) != nullptr;
}

HWND WINAPI SetCapture(HWND handle) {
    SIM_VISIT();
    trace_detail("SetCapture()");
    if (checked_window(handle) == nullptr)
        return nullptr;
    return std::exchange(screen().capture, handle);
}

BOOL WINAPI SetCursorPos(int x, int y) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    if (!on_input_desktop())
        return fail_with(ERROR_ACCESS_DENIED);
    trace("call SetCursorPos(%d, %d)", x, y);
    POINT& cursor = screen().cursor;
    const bool moved = cursor.x != x || cursor.y != y;
    cursor = {x, y};
    if (moved)
        mouse_input(WM_MOUSEMOVE);
    return TRUE;
}

UINT WINAPI SendInput(UINT count, INPUT* inputs, int bytes) {
    SIM_CALL(0, ERROR_ACCESS_DENIED);
    if (count != 1 || bytes != sizeof(INPUT) || inputs->type != INPUT_MOUSE) {
        violation("SendInput(%u, %d bytes)", count, bytes);
        return static_cast<UINT>(fail_with(ERROR_INVALID_PARAMETER));
    }
    if (!on_input_desktop())
        return static_cast<UINT>(fail_with(ERROR_ACCESS_DENIED));
    const DWORD flags = inputs->mi.dwFlags;
    trace("call SendInput(0x%x)", flags);
    // The flags name the physical button.
    const bool left = (flags & (MOUSEEVENTF_LEFTDOWN | MOUSEEVENTF_LEFTUP)) != 0;
    const bool down = (flags & (MOUSEEVENTF_LEFTDOWN | MOUSEEVENTF_RIGHTDOWN)) != 0;
    if (left != screen().buttons_swapped)
        mouse_input(down ? WM_LBUTTONDOWN : WM_LBUTTONUP);
    else
        mouse_input(down ? WM_RBUTTONDOWN : WM_RBUTTONUP);
    return 1;
}

int WINAPI GetSystemMetrics(int index) {
    SIM_VISIT();
    if (index == SM_CYCAPTION)
        return CAPTION_HEIGHT;
    if (index == SM_SWAPBUTTON)
        return screen().buttons_swapped;
    violation("GetSystemMetrics(%d)", index);
    return 0;
}

BOOL WINAPI SystemParametersInfoW(UINT action, UINT, PVOID data, UINT) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    if (action != SPI_GETWORKAREA || screen().work_area_fails)
        return fail_with(ERROR_ACCESS_DENIED);
    *static_cast<RECT*>(data) = screen().work;
    return TRUE;
}

HDESK WINAPI GetThreadDesktop(DWORD thread) {
    SIM_CALL(nullptr, ERROR_ACCESS_DENIED);
    if (thread != GetCurrentThreadId())
        violation("GetThreadDesktop: of another thread");
    const HDESK desktop = queue_of(current()).desktop;
    return desktop != nullptr ? desktop : first_desktop();
}

HDESK WINAPI OpenInputDesktop(DWORD, BOOL, ACCESS_MASK access) {
    SIM_CALL(nullptr, ERROR_ACCESS_DENIED);
    if (screen().input_desktop_refused) {
        set_last_error(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    trace_detail("OpenInputDesktop(0x%x)", access);
    return static_cast<HDESK>(open_handle(make_object(Kind::Desktop, "input desktop"), access));
}

BOOL WINAPI SetThreadDesktop(HDESK desktop) {
    SIM_CALL(FALSE, ERROR_BUSY);
    if (has_windows(current()))
        return fail_with(ERROR_BUSY);
    if (desktop != first_desktop() && handle_entry(desktop, Kind::Desktop, "SetThreadDesktop") == nullptr)
        return FALSE;
    queue_of(current()).desktop = desktop != first_desktop() ? desktop : nullptr;
    return TRUE;
}

BOOL WINAPI CloseDesktop(HDESK desktop) {
    SIM_CALL(FALSE, ERROR_BUSY);
    if (handle_entry(desktop, Kind::Desktop, "CloseDesktop") == nullptr)
        return FALSE;
    if (queue_of(current()).desktop == desktop)
        return fail_with(ERROR_BUSY);
    return close_handle(desktop, "CloseDesktop");
}

} // extern "C"
