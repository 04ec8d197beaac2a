// The screen, input and desktops, for scripts and tests.
#pragma once

#include <windows.h>

namespace sim {

constexpr DWORD NO_SESSION = ~DWORD{0};

struct Screen {
    RECT work = {0, 54, 800, 600}; // an application bar takes the upper part
    bool work_area_fails = false;
    bool buttons_swapped = false;
    bool input_desktop_refused = false;
    bool foreground_refused = false; // another program holds it
    bool capture_refused = false;
    bool registering_fails = false;     // of messages
    DWORD console_session = NO_SESSION; // none: every process is in the console session
    POINT cursor = {0, 0};
    HWND focus = nullptr;
    HWND capture = nullptr;
};

Screen& screen();
// Whether the current thread's desktop was opened with the rights that a window needs.
bool may_create_windows();

} // namespace sim
