// zorpmctl, the control program: what its areas share. It does what any client may do by the documented
// interface, and says what it did.
#pragma once

#include <windows.h>
#include <zorpm/zorpm.h>

// Exit statuses.
enum : int {
    CTL_DONE = 0,
    CTL_REFUSED = 1,     // by the service, the firmware or the state of the machine
    CTL_WRONG_USE = 2,   // the command line is wrong
    CTL_NOT_RUNNING = 3, // the service
    CTL_NOT_ALLOWED = 4, // a right is missing
};

constexpr DWORD ARGUMENT_CHARACTERS = 64;
constexpr DWORD MOST_ARGUMENTS = 3;
constexpr DWORD DEFAULT_TIMEOUT_S = 30;

// The command line, taken apart. `words` are the arguments behind the command's own word.
struct Arguments {
    wchar_t command[ARGUMENT_CHARACTERS];
    wchar_t words[MOST_ARGUMENTS][ARGUMENT_CHARACTERS];
    DWORD count;
    const wchar_t* tail; // what inhibit-lid is to run, as it was written; empty: nothing
    bool json;
    bool inhibit;
    bool help;
    bool version;
    bool timed; // --timeout was given
    DWORD timeout_s;
};

// Those of this run. Set once, before any command runs.
extern Arguments g_arguments;

// True when argument `index` is there and is this word, whatever the case.
bool ArgumentIs(DWORD index, const wchar_t* word);

// Takes the command line apart. CTL_DONE, or CTL_WRONG_USE after a complaint.
int ReadArguments(const wchar_t* command_line);

// A decimal number without sign. FALSE leaves *number untouched.
bool ReadNumber(const wchar_t* text, DWORD* number);

// The commands; each returns an exit status, inhibit-lid that of the program it ran.
int RunStatus();
int RunWatch();
int RunHotkey();
int RunInhibitLid();
int RunCooling();
int RunRotation();

// One line for each thermal function and interface that is published; their number.
DWORD TellCooling();

// Complains of the command line and returns CTL_WRONG_USE.
int WrongUse();
