// Input, focus, desktops and sessions: enough for a dialog that counts input.
#include "sim/windows/desktop.h"

#include <utility>

#include "sim/machine/machine.h"
#include "sim/script/commands.h"
#include "sim/windows/dialog_frame.h"
#include "sim/windows/messages.h"
#include "sim/windows/modules.h"

namespace sim {

namespace {

struct ThreadDesktop {       // of a thread
    HDESK desktop = nullptr; // null: the one that the thread began on
};

} // namespace

Screen& screen() {
    return machine_state<Screen>();
}

static HDESK& thread_desktop() {
    return thread_state<ThreadDesktop>().desktop;
}

// What a thread begins on; its handle is never closed.
static HDESK first_desktop() {
    return reinterpret_cast<HDESK>(0x58);
}

static bool on_input_desktop() {
    return thread_desktop() != nullptr;
}

constexpr ACCESS_MASK DESKTOP_CREATEWINDOW = 0x2;
constexpr ACCESS_MASK DESKTOP_WRITEOBJECTS = 0x80;

bool may_create_windows() {
    if (thread_desktop() == nullptr)
        return true;
    constexpr ACCESS_MASK needed = DESKTOP_CREATEWINDOW | DESKTOP_WRITEOBJECTS;
    const HandleEntry* entry = handle_entry(thread_desktop(), Kind::Desktop, "DialogBoxParamW");
    return entry != nullptr && (entry->access & needed) == needed;
}

static bool has_windows(const Thread* thread) {
    for (const auto& [handle, window] : window_list()) {
        if (window.thread == thread)
            return true;
    }
    return false;
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
    for (auto& [handle, window] : window_list()) {
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

// ---- functions that are looked up at run time ----

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

} // namespace sim

using namespace sim;

extern "C" {

HWND WINAPI SetFocus(HWND handle) {
    SIM_CALL(nullptr, ERROR_INVALID_WINDOW_HANDLE);
    const Window* window = own_window(handle);
    if (window == nullptr)
        return nullptr;
    trace("window %s focus", window_name(*window).c_str());
    return std::exchange(screen().focus, handle);
}

BOOL WINAPI SetForegroundWindow(HWND handle) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    const Window* window = checked_window(handle);
    if (window == nullptr)
        return FALSE;
    const bool refused = screen().foreground_refused;
    trace("window %s foreground%s", window_name(*window).c_str(), refused ? " refused" : "");
    return refused ? fail_with(ERROR_ACCESS_DENIED) : TRUE;
}

HWND WINAPI SetCapture(HWND handle) {
    SIM_VISIT();
    const Window* window = own_window(handle);
    if (window == nullptr)
        return nullptr;
    const bool refused = screen().capture_refused;
    trace("window %s capture%s", window_name(*window).c_str(), refused ? " refused" : "");
    return refused ? nullptr : std::exchange(screen().capture, handle);
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
    if (current() == nullptr || thread != current()->id)
        violation("GetThreadDesktop: of another thread");
    const HDESK desktop = thread_desktop();
    return desktop != nullptr ? desktop : first_desktop();
}

HDESK WINAPI OpenInputDesktop(DWORD flags, BOOL inherit, ACCESS_MASK access) {
    SIM_CALL(nullptr, ERROR_ACCESS_DENIED);
    if (flags != 0 || inherit)
        violation("OpenInputDesktop: flags 0x%x, inherit %d", flags, inherit);
    if (screen().input_desktop_refused) {
        set_last_error(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    trace("window input desktop opened 0x%x", access);
    return static_cast<HDESK>(open_handle(make_object(Kind::Desktop, "input desktop"), access));
}

BOOL WINAPI SetThreadDesktop(HDESK desktop) {
    SIM_CALL(FALSE, ERROR_BUSY);
    if (has_windows(current()))
        return fail_with(ERROR_BUSY);
    if (desktop != first_desktop() && handle_entry(desktop, Kind::Desktop, "SetThreadDesktop") == nullptr)
        return FALSE;
    thread_desktop() = desktop != first_desktop() ? desktop : nullptr;
    trace("window thread desktop %s", on_input_desktop() ? "input" : "first");
    return TRUE;
}

BOOL WINAPI CloseDesktop(HDESK desktop) {
    SIM_CALL(FALSE, ERROR_BUSY);
    if (handle_entry(desktop, Kind::Desktop, "CloseDesktop") == nullptr)
        return FALSE;
    if (thread_desktop() == desktop)
        return fail_with(ERROR_BUSY);
    return close_handle(desktop, "CloseDesktop");
}

} // extern "C"

// ---- commands ----

namespace sim {

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

static Action compile_foreground(Tokens& tokens) {
    const bool refused = tokens.choice({"refused", "granted"}) == 0;
    return [refused] { screen().foreground_refused = refused; };
}

static Action compile_capture(Tokens& tokens) {
    const bool refused = tokens.choice({"refused", "granted"}) == 0;
    return [refused] { screen().capture_refused = refused; };
}

static Action compile_console_session(Tokens& tokens) {
    const auto session = static_cast<DWORD>(tokens.number());
    return [session] { screen().console_session = session; };
}

static const Commands g_commands({
    {"input", Use::Drive, compile_input,
     "key | move X Y | left | right | middle - to the window or dialog that has the focus"},
    {"input system", Use::Drive, compile_system_command, "NUMBER - a system command (WM_SYSCOMMAND) to it"},
    {"windows buttons", Use::Machine, compile_buttons, "swapped|normal - the mouse buttons"},
    {"windows work-area", Use::Machine, compile_work_area, "fails|works - asking for the screen's work area"},
    {"windows desktop", Use::Machine, compile_desktop, "refused|granted - opening the input desktop"},
    {"windows foreground", Use::Machine, compile_foreground, "refused|granted - what a window asks for"},
    {"windows capture", Use::Machine, compile_capture, "refused|granted - what a window asks for"},
    {"windows console-session", Use::Machine, compile_console_session, "N - the session at the console"},
});

} // namespace sim
