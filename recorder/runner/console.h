// The control program's console or redirected output, and what interrupts it.
#pragma once

#include <windows.h>

namespace runner {

enum class Ending : DWORD { CtrlC, Close, LogOff };

void interrupt_program(Ending ending);

bool open_console(LPCWSTR path, HANDLE* console); // whether the path is the console's
bool is_output(HANDLE handle);
void write_output(const void* data, DWORD bytes);

// The wrapped calls.
HANDLE WINAPI standard_handle(DWORD which);
DWORD WINAPI file_type(HANDLE file);
BOOL WINAPI attach_console(DWORD process);
BOOL WINAPI console_mode(HANDLE console, DWORD* mode);
BOOL WINAPI write_console(HANDLE console, const void* text, DWORD letters, DWORD* written, LPVOID reserved);
BOOL WINAPI set_control_handler(PHANDLER_ROUTINE handler, BOOL add);

} // namespace runner
