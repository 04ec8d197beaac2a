// Windows and their messages.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "sim/machine/process.h"

namespace sim {

// The first window of a class in a session; "#101" is the dialog. Null when there is none.
HWND find_window(const std::string& class_name, DWORD session = 1);
// As another program's PostMessage. False when the window is gone.
bool post_message(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
// As another program's SendMessage that does not wait: `done` gets the result.
bool send_message(HWND window, UINT message, WPARAM wparam, LPARAM lparam, std::function<void(LRESULT)> done);
// The number of a registered message.
UINT registered_message(const std::string& name);

// ---- for dialogs and desktops ----

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
    bool visible = false;
    bool ended = false; // EndDialog was called
    INT_PTR result = 0;
};

std::map<HWND, Window>& window_list();
// The window of a handle, unless it or its thread is gone.
Window* window_of(HWND handle);
Window* checked_window(HWND handle); // null with last error 1400
Window* own_window(HWND handle);     // the same, and null with last error 5 when it is another thread's
// As the trace names it: a dialog and a control by number, others by their class.
std::string window_name(const Window& window);
HWND add_window(Window window); // of the current thread; gives its handle
void destroy_window(HWND handle);
void repost_quit(WPARAM code); // to the current thread
// Waits for the next message of the current thread. False when the dialog (null: none) has ended meanwhile.
bool next_message(MSG* message, HWND dialog);

} // namespace sim
