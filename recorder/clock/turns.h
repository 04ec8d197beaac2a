// Virtual time in this process. One of its threads runs at a time; who waits gives its turn back, and the
// clock goes to the next deadline when nobody can run. The objects that are waited for are Windows' own.
//
// The driving thread (that of main) runs the others by settle() and advance(). Every other thread begins by
// start_thread(). Only who has the turn touches what is kept here, so nothing is locked.
#pragma once

#include <windows.h>
#include <cstdint>

namespace turns {

using Ms = std::uint64_t;
constexpr Ms NEVER = ~Ms{0};

// ---- for the driving thread ----

void begin();              // makes the calling thread the driving one
void settle();             // every thread runs until all wait
void advance(Ms duration); // time passes; what falls due at its very end is included
Ms now();                  // since begin()
// The time passes, and the last of it falls due together with what comes before the next settle().
void pass(Ms duration);
// A thread that does not come back within so many real seconds ends the process, by this.
void on_stuck(void (*stuck)(const char* thread));

// ---- for every thread: in the place of the calls of these names, with their results ----

// A new thread is of the process of which the one is that starts it, if not told otherwise.
constexpr DWORD SAME_HOME = ~DWORD{0};
HANDLE start_thread(const char* name, LPTHREAD_START_ROUTINE procedure, LPVOID parameter, DWORD flags,
                    DWORD* id, DWORD home = SAME_HOME);
[[noreturn]] void exit_thread(DWORD code);
BOOL terminate_thread(HANDLE thread, DWORD code);
DWORD suspend_thread(HANDLE thread);
DWORD resume_thread(HANDLE thread);
DWORD wait(DWORD count, const HANDLE* handles, BOOL all, DWORD timeout_ms);
DWORD signal_and_wait(HANDLE signal, HANDLE object, DWORD timeout_ms);
void sleep(DWORD duration_ms);
BOOL get_message(MSG* message, HWND window, UINT first, UINT last);
UINT_PTR set_timer(HWND window, UINT_PTR id, UINT period_ms, TIMERPROC procedure);
BOOL kill_timer(HWND window, UINT_PTR id);

// Somebody has signalled an object: whoever waits for it comes next, in the order of signals.
void signalled();
void signalled(HANDLE object); // that no other handle leads to
void released();               // a mutex
// Handles that are mutexes: asking Windows takes a message for every wait.
void note_mutex(HANDLE mutex);
void forget_mutex(HANDLE mutex);
// The process, one of several within this, of which the calling thread is; 0: none.
DWORD home();
void set_home(DWORD home);
void end_others(DWORD home); // terminates all other threads of it
// The name of the calling thread; "" of one that was not started here.
const char* thread_name();

} // namespace turns
