// The recording: a file that is a scenario of zorpmsim (docs/recording.md). Lines come from all threads.
#pragma once

#include <windows.h>
#include <string>

namespace record {

// The lines' lock. Whoever makes a line holds it, and so does whoever ends or suspends another thread: none
// is stopped in the midst of a line or of what is remembered here. An owner that has ended all the same (by
// the hand of another process) stops nobody: the next one goes on without it.
struct Guard {
    Guard();
    ~Guard();
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
};

struct JournalSettings {
    std::wstring path;
    unsigned long long most_bytes; // then the file is renamed to NAME.1.EXTENSION, in place of an older one
};

JournalSettings
usual_settings(); // %ProgramData%\ZORPMSVC\recording.txt, or what ZORPM_RECORDING says; 64 MiB

// Opens the file, behind what is in it. False when it cannot be: nothing is recorded then.
bool begin_journal(const JournalSettings& settings);
bool ends_with(const char* line); // what an earlier process has left does
void begin_new_file();            // it becomes the older file
void end_journal();               // cuts the file to its lines
bool recording();
bool fresh_journal(); // the file was empty: the machine that it is replayed on is a new one

// ---- lines: with the lock held; all keep the last error ----

void effect(const char* pattern, ...) __attribute__((format(gnu_printf, 1, 2)));
// What came from outside, or a comment: the line as it stands.
void command(const std::string& line);
// The calling thread has made this call once more since its last effect. A failure that no other line tells
// of becomes `fail NAME N`, just before the thread's next effect.
void outcome(const char* call, bool failed);

// ---- time: whole milliseconds since the service was started; 0 before ----

void begin_clock();
unsigned long long clock_ms();
void clock_is_past(unsigned long long time); // a timer of Windows that is early by less than one of its ticks

// ---- threads ----

void name_thread(const char* name); // the calling one

} // namespace record
