#include "sim/windows/programs.h"

#include <cstring>
#include <map>

#include "sim/machine/machine.h"
#include "sim/script/commands.h"
#include "sim/windows/disk.h"

namespace sim {

constexpr ULONG_PTR FORMER_REDIRECTION = 0x7E5; // what the disabling call leaves for the other one

namespace {

struct Wow64 {
    bool works = false;
};

struct Program {
    Ms duration = 0;
    DWORD code = 0;
};

struct Programs {
    std::map<std::string, Program> known; // that can be started by name, lower case
};

struct Redirection {
    bool off = false;
};

} // namespace

void set_redirection_works(bool works) {
    machine_state<Wow64>().works = works;
}

static std::string redirection_left(Process* process) {
    return process_state<Redirection>(process).off ? "redirection off; " : "";
}

static const LeftTeller g_redirectionLeft(redirection_left);

// Runs as long as `windows program` says, at once otherwise; its handles are signalled when it ends.
static BOOL start_program(const std::string& line, const Program& program, PROCESS_INFORMATION* info) {
    auto process = std::make_unique<Process>();
    process->id = machine().next_id += 4;
    process->command_line = line;
    process->object = make_object(Kind::Process, line);
    process->object->body = std::shared_ptr<void>(process.get(), [](void*) {});
    Process* started = process.get();
    machine().processes.push_back(std::move(process));
    Thread* thread = start_thread(started, "program", [started, program] {
        sleep_for(program.duration);
        end_process(started, program.code);
        return DWORD{0};
    });
    *info = {open_handle(started->object, PROCESS_ALL_ACCESS), open_handle(thread->object, THREAD_ALL_ACCESS),
             started->id, thread->id};
    return TRUE;
}

static const Program* known_program(const std::string& name) {
    const auto& known = machine_state<Programs>().known;
    const auto found = known.find(lower(name.substr(name.rfind('\\') + 1)));
    return found != known.end() ? &found->second : nullptr;
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

BOOL WINAPI CreateProcessW(LPCWSTR application, LPWSTR command_line, LPSECURITY_ATTRIBUTES process_security,
                           LPSECURITY_ATTRIBUTES thread_security, BOOL inherit, DWORD flags,
                           LPVOID environment, LPCWSTR directory, STARTUPINFOW* startup,
                           PROCESS_INFORMATION* process) {
    SIM_CALL(FALSE, ERROR_NOT_ENOUGH_MEMORY);
    // By its path, from the service; by its command line, with its handles, from the control program.
    const bool by_path = application != nullptr;
    STARTUPINFOW zeroed = {};
    zeroed.cb = sizeof(zeroed);
    // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): padding included, as from = {}
    if (std::memcmp(startup, &zeroed, sizeof(zeroed)) != 0)
        violation("CreateProcessW: the startup record is not zeroed");
    if ((by_path && inherit != FALSE) || flags != (by_path ? CREATE_NEW_PROCESS_GROUP : 0) ||
        environment != nullptr || directory != nullptr || process_security != nullptr ||
        thread_security != nullptr)
        violation("CreateProcessW: inherit %d flags 0x%x", inherit, flags);
    const std::string line = narrow(command_line);
    const std::string name = by_path ? narrow(application) : line.substr(0, line.find(' '));
    const Program* program = known_program(name);
    const PlainFile* file = by_path ? find_file(name) : nullptr;
    const bool starts = by_path ? file != nullptr && !file->directory : program != nullptr;
    const std::string shown = by_path ? "\"" + name + "\"" : "null";
    trace("call CreateProcessW(%s, \"%s\") = %d", shown.c_str(), line.c_str(), starts);
    if (starts)
        return start_program(line, program != nullptr ? *program : Program{}, process);
    return fail_with(file != nullptr                     ? ERROR_ACCESS_DENIED
                     : by_path && !file_has_folder(name) ? ERROR_PATH_NOT_FOUND
                                                         : ERROR_FILE_NOT_FOUND);
}

} // extern "C"

// ---- commands ----

namespace sim {

static Action compile_program(Tokens& tokens) {
    const std::string name = tokens.text();
    Program program;
    tokens.choice({"takes"});
    program.duration = tokens.duration();
    if (tokens.accept("exits"))
        program.code = static_cast<DWORD>(tokens.number());
    return [name, program] { machine_state<Programs>().known[lower(name)] = program; };
}

static const Commands g_commands({
    {"windows program", Use::Machine, compile_program,
     "\"NAME\" takes DURATION [exits CODE] - a program that it can start"},
});

} // namespace sim
