// Windows, messages and timers: enough for a hidden window and for a modal dialog.
#include "sim/windows/messages.h"

#include <algorithm>
#include <deque>
#include <utility>

#include "sim/machine/machine.h"
#include "sim/script/commands.h"
#include "sim/windows/desktop.h"

namespace sim {

constexpr UINT FIRST_REGISTERED_MESSAGE = 0xC000;

namespace {

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
};

struct Classes { // of a process
    std::map<std::string, WNDPROC> procs;
};

struct Messages {
    std::map<HWND, Window> list;
    std::vector<Timer> timers;
    std::vector<std::string> registered; // messages
    std::uintptr_t next = 0x10010;
    ATOM next_atom = 0xC101;
};

} // namespace

static Messages& messages() {
    return machine_state<Messages>();
}

std::map<HWND, Window>& window_list() {
    return messages().list;
}

static Queue& queue_of(Thread* thread) {
    return thread->state.get<Queue>();
}

Window* window_of(HWND handle) {
    const auto found = window_list().find(handle);
    if (found == window_list().end() || found->second.thread->run == Run::Ended)
        return nullptr;
    return &found->second;
}

Window* checked_window(HWND handle) {
    Window* window = window_of(handle);
    if (window == nullptr)
        set_last_error(ERROR_INVALID_WINDOW_HANDLE);
    return window;
}

Window* own_window(HWND handle) {
    Window* window = checked_window(handle);
    if (window == nullptr || window->thread == current())
        return window;
    set_last_error(ERROR_ACCESS_DENIED);
    return nullptr;
}

std::string window_name(const Window& window) {
    if (window.dialog)
        return window.class_name.substr(1);
    return window.id != 0 ? std::to_string(window.id) : window.class_name;
}

HWND find_window(const std::string& class_name, DWORD session) {
    for (const auto& [handle, window] : window_list()) {
        if (window_of(handle) != nullptr && same_text(window.class_name, class_name) &&
            window.thread->process->session == session)
            return handle;
    }
    return nullptr;
}

UINT registered_message(const std::string& name) {
    std::vector<std::string>& names = messages().registered;
    const auto found = std::find_if(names.begin(), names.end(),
                                    [&name](const std::string& known) { return same_text(known, name); });
    const auto index = static_cast<UINT>(found - names.begin());
    if (found == names.end())
        names.push_back(name);
    return FIRST_REGISTERED_MESSAGE + index;
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

void repost_quit(WPARAM code) {
    queue_of(current()).messages.push_back({nullptr, WM_QUIT, code, 0, false, nullptr});
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

void destroy_window(HWND handle) {
    Messages& w = messages();
    std::erase_if(w.timers, [handle](const Timer& timer) { return timer.window == handle; });
    std::erase_if(w.list, [handle](const auto& entry) { return entry.second.parent == handle; });
    w.list.erase(handle);
    if (screen().focus == handle)
        screen().focus = nullptr;
    if (screen().capture == handle)
        screen().capture = nullptr;
}

HWND add_window(Window window) {
    window.handle = reinterpret_cast<HWND>(messages().next);
    messages().next += 2;
    window.thread = current();
    window_list()[window.handle] = window;
    return window.handle;
}

// The first timer of the thread that is due, with its next expiry set; a missed period is not made up for.
static bool take_timer(MSG* message) {
    for (Timer& timer : messages().timers) {
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
    for (const Timer& timer : messages().timers) {
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

bool next_message(MSG* message, HWND dialog) {
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
    if (window_class->cbClsExtra != 0 || window_class->cbWndExtra != 0 ||
        window_class->lpszMenuName != nullptr)
        violation("RegisterClassExW: extra bytes or a menu");
    if (!process_state<Classes>().procs.try_emplace(name, window_class->lpfnWndProc).second)
        return static_cast<ATOM>(fail_with(ERROR_CLASS_ALREADY_EXISTS));
    trace("window class %s style 0x%x background %u cursor %u", narrow(window_class->lpszClassName).c_str(),
          window_class->style,
          static_cast<unsigned>(reinterpret_cast<ULONG_PTR>(window_class->hbrBackground)),
          static_cast<unsigned>(reinterpret_cast<ULONG_PTR>(window_class->hCursor)));
    return messages().next_atom++;
}

HWND WINAPI CreateWindowExW(DWORD ex_style, LPCWSTR class_name, LPCWSTR title, DWORD style, int x, int y,
                            int width, int height, HWND parent, HMENU menu, HINSTANCE, LPVOID parameter) {
    SIM_CALL(nullptr, ERROR_NOT_ENOUGH_MEMORY);
    if (title != nullptr || parent != nullptr || menu != nullptr || parameter != nullptr)
        violation("CreateWindowExW: title, parent, menu and parameter are not simulated");
    Window window;
    window.class_name = narrow(class_name);
    window.rect = {x, y, x + width, y + height};
    const auto& procs = process_state<Classes>().procs;
    const auto found = procs.find(lower(window.class_name));
    if (found == procs.end()) {
        set_last_error(ERROR_CANNOT_FIND_WND_CLASS);
        return nullptr;
    }
    window.proc = found->second;
    const HWND handle = add_window(window);
    if (!call_window(handle, WM_NCCREATE, 0, 0) || call_window(handle, WM_CREATE, 0, 0) == -1) {
        call_window(handle, WM_NCDESTROY, 0, 0);
        destroy_window(handle);
        return nullptr;
    }
    trace("window %s created style 0x%x extended 0x%x at %d %d size %d %d", window.class_name.c_str(), style,
          ex_style, x, y, width, height);
    return handle;
}

BOOL WINAPI DestroyWindow(HWND handle) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    const Window* window = checked_window(handle);
    if (window == nullptr)
        return FALSE;
    if (window->thread != current())
        return fail_with(ERROR_ACCESS_DENIED);
    trace("window %s destroyed", window_name(*window).c_str());
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
    if (name != IDC_ARROW) {
        set_last_error(ERROR_RESOURCE_NAME_NOT_FOUND);
        return nullptr;
    }
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
    return message->message != WM_QUIT;
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

UINT_PTR WINAPI SetTimer(HWND handle, UINT_PTR id, UINT period, TIMERPROC) {
    SIM_CALL(0, ERROR_INVALID_WINDOW_HANDLE);
    if (checked_window(handle) == nullptr)
        return 0;
    std::erase_if(messages().timers,
                  [=](const Timer& timer) { return timer.window == handle && timer.id == id; });
    messages().timers.push_back({handle, id, period, machine().now + period});
    return id;
}

BOOL WINAPI KillTimer(HWND handle, UINT_PTR id) {
    SIM_CALL(FALSE, ERROR_INVALID_PARAMETER);
    const size_t erased = std::erase_if(
        messages().timers, [=](const Timer& timer) { return timer.window == handle && timer.id == id; });
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
    if ((after != HWND_TOP && after != HWND_TOPMOST) ||
        (flags & ~(SWP_NOMOVE | SWP_NOSIZE | SWP_SHOWWINDOW)) != 0)
        violation("SetWindowPos: flags 0x%x, or a place in the order that is not simulated", flags);
    RECT& rect = window->rect;
    const int old_width = rect.right - rect.left;
    const int old_height = rect.bottom - rect.top;
    if ((flags & SWP_NOMOVE) == 0)
        rect = {x, y, x + old_width, y + old_height};
    if ((flags & SWP_NOSIZE) == 0)
        rect = {rect.left, rect.top, rect.left + width, rect.top + height};
    window->visible = window->visible || (flags & SWP_SHOWWINDOW) != 0;
    trace("window %s placed %d %d %d %d %s%s", window_name(*window).c_str(), rect.left, rect.top,
          rect.right - rect.left, rect.bottom - rect.top, after == HWND_TOPMOST ? "topmost" : "top",
          (flags & SWP_SHOWWINDOW) != 0 ? " shown" : "");
    return TRUE;
}

BOOL WINAPI ShowWindow(HWND handle, int command) {
    SIM_VISIT();
    Window* window = checked_window(handle);
    if (window == nullptr)
        return FALSE;
    if (command != SW_HIDE)
        violation("ShowWindow(%d)", command);
    trace("window %s hidden", window_name(*window).c_str());
    return std::exchange(window->visible, false);
}

} // extern "C"

// ---- commands ----

namespace sim {

static Action compile_helper(Tokens& tokens) {
    const DWORD session = tokens.accept("session") ? static_cast<DWORD>(tokens.number()) : 1;
    const bool quit = tokens.accept("quit");
    const bool close = !quit && tokens.accept("close");
    const WPARAM command = quit || close ? 0 : tokens.long_number();
    const auto argument = static_cast<LPARAM>(tokens.done() ? 0 : tokens.long_number());
    return [=] {
        const HWND window = find_window("PmHelperWindowClass", session);
        const std::string name = quit ? "quit" : close ? "close" : std::to_string(command);
        if (window == nullptr)
            trace("refused helper %s", name.c_str());
        else if (quit || close)
            post_message(window, quit ? WM_QUIT : WM_CLOSE, 0, 0);
        else
            send_message(window, registered_message("PmHelperMessage"), command, argument,
                         [name](LRESULT result) {
                             trace("result helper %s = %u", name.c_str(), static_cast<DWORD>(result));
                         });
    };
}

static const Commands
    g_commands({{"helper", Use::Drive, compile_helper,
                 "[session N] COMMAND [ARGUMENT] | close | quit - a message to the helper's window"}});

} // namespace sim
