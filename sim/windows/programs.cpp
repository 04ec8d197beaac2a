#include "sim/windows/programs.h"

#include <cstring>

#include "sim/machine/machine.h"
#include "sim/windows/disk.h"

namespace sim {

constexpr ULONG_PTR FORMER_REDIRECTION = 0x7E5; // what the disabling call leaves for the other one
constexpr DWORD STARTED_PROCESS = 4;            // ids of a program that only seems to run
constexpr DWORD STARTED_THREAD = 8;

namespace {

struct Wow64 {
    bool works = false;
};

struct Redirection {
    bool off = false;
};

} // namespace

void set_redirection_works(bool works) {
    machine_state<Wow64>().works = works;
}

bool redirection_off(Process* process) {
    return process_state<Redirection>(process).off;
}

} // namespace sim

using namespace sim;

extern "C" {

BOOL WINAPI Wow64DisableWow64FsRedirection(PVOID* old) {
    SIM_CALL(FALSE, ERROR_INVALID_FUNCTION);
    if (!machine_state<Wow64>().works) {
        set_last_error(ERROR_INVALID_FUNCTION);
        return FALSE;
    }
    process_state<Redirection>().off = true;
    *old = reinterpret_cast<PVOID>(FORMER_REDIRECTION);
    return TRUE;
}

BOOL WINAPI Wow64RevertWow64FsRedirection(PVOID old) {
    SIM_VISIT();
    if (!process_state<Redirection>().off || old != reinterpret_cast<PVOID>(FORMER_REDIRECTION))
        violation("Wow64RevertWow64FsRedirection: nothing was turned off");
    process_state<Redirection>().off = false;
    return TRUE;
}

BOOL WINAPI CreateProcessW(LPCWSTR application, LPWSTR command_line, LPSECURITY_ATTRIBUTES,
                           LPSECURITY_ATTRIBUTES, BOOL inherit, DWORD flags, LPVOID environment,
                           LPCWSTR directory, STARTUPINFOW* startup, PROCESS_INFORMATION* process) {
    SIM_CALL(FALSE, ERROR_NOT_ENOUGH_MEMORY);
    const std::string program = narrow(application);
    const std::string line = narrow(command_line);
    if (application == nullptr) { // by its command line, as the control program does
        const Thread* started = start_plain_program(line);
        if (started == nullptr)
            return FALSE;
        process->hProcess = open_handle(started->process->object);
        process->hThread = open_handle(started->object);
        return TRUE;
    }
    STARTUPINFOW zeroed = {};
    zeroed.cb = sizeof(zeroed);
    // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): padding included, as from = {}
    if (std::memcmp(startup, &zeroed, sizeof(zeroed)) != 0)
        violation("CreateProcessW: the startup record is not zeroed");
    if (inherit != FALSE || flags != CREATE_NEW_PROCESS_GROUP || environment != nullptr ||
        directory != nullptr)
        violation("CreateProcessW: inherit %d flags 0x%x", inherit, flags);
    const PlainFile* file = find_file(program);
    const bool starts = file != nullptr && !file->directory;
    trace("call CreateProcessW(\"%s\", \"%s\") = %d", program.c_str(), line.c_str(), starts);
    if (!starts)
        return fail_with(file != nullptr            ? ERROR_ACCESS_DENIED
                         : file_has_folder(program) ? ERROR_FILE_NOT_FOUND
                                                    : ERROR_PATH_NOT_FOUND);
    process->hProcess = open_handle(make_object(Kind::Process, program));
    process->hThread = open_handle(make_object(Kind::Thread, program));
    process->dwProcessId = STARTED_PROCESS;
    process->dwThreadId = STARTED_THREAD;
    return TRUE;
}

} // extern "C"
