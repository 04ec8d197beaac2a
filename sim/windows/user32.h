// Windows, the dialog and input, for scripts and tests.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

struct Screen {
    RECT work = {0, 54, 800, 600}; // an application bar takes the upper part
    bool work_area_fails = false;
    bool buttons_swapped = false;
    bool input_desktop_refused = false;
    bool registering_fails = false;     // of messages
    DWORD console_session = 0xFFFFFFFF; // none: every process is in the console session
    POINT cursor = {0, 0};
    HWND focus = nullptr;
    HWND capture = nullptr;
};

Screen& screen();
// The first window of a class in a session; "#101" is the dialog. Null when there is none.
HWND find_window(const std::string& class_name, DWORD session = 1);
// As another program's PostMessage. False when the window is gone.
bool post_message(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
// As another program's SendMessage that does not wait: `done` gets the result.
bool send_message(HWND window, UINT message, WPARAM wparam, LPARAM lparam, std::function<void(LRESULT)> done);
// The number of a registered message.
UINT registered_message(const std::string& name);

} // namespace sim
