// Processes of the product within the runner: each is an image (recorder/image/) that is loaded afresh. At
// its end its threads are terminated and what it has open is closed, as Windows would do.
#pragma once

#include <windows.h>
#include <string>

namespace runner {

struct ImageProcess {
    const char* image;         // zorpm_image or zorpmctl_image
    std::string thread;        // its first thread's name
    std::string command_line;  // what it is given
    std::string shown;         // what it is called
    void (*ended)() = nullptr; // at its very end
};

// The id of the process; it runs by the next settle().
DWORD start_image(const ImageProcess& process);
DWORD current_image();                       // the calling thread's; 0: none
DWORD first_image(const std::string& image); // the first process of it; 0: none
void end_image(DWORD image, DWORD code);     // as from outside, by a thread of it or another one

// What the calling image has open, and how it is closed.
void keep_open(void* handle, void (*close)(void* handle));
void forget_open(void* handle);

void* wrapper_of(const char* name); // null: none (wrapped.cpp)

// The wrapped calls.
HMODULE WINAPI module_handle(LPCWSTR name);
ATOM WINAPI register_class(const WNDCLASSEXW* window_class);
HWND WINAPI create_window(DWORD extended, LPCWSTR class_name, LPCWSTR title, DWORD style, int x, int y,
                          int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                          LPVOID parameter);

} // namespace runner
