// The control program's surroundings: its console or redirected output, Ctrl-C and the end of the session.
#include "sim/machine/files.h"
#include "sim/machine/machine.h"
#include "sim/script/commands.h"
#include "sim/script/expectations.h"
#include "sim/windows/messages.h"

namespace sim {

namespace {

enum class Output { Console, Redirected, Missing };

struct Consoles {
    Output output = Output::Console;
};

struct Console { // of a process
    PHANDLER_ROUTINE handler = nullptr;
    HANDLE redirected = nullptr;
    std::string line; // begun
};

} // namespace

static Consoles& consoles() {
    return machine_state<Consoles>();
}

static void put_out(const std::string& text) {
    std::string& line = process_state<Console>().line;
    for (const char c : text) {
        if (c == '\n') {
            trace("output %s \"%s\"", current_process()->program.c_str(), line.c_str());
            line.clear();
        } else if (c != '\r') {
            line += c;
        }
    }
}

static BOOL write_output(Object&, const void* buffer, DWORD bytes, DWORD* written) {
    put_out({static_cast<const char*>(buffer), bytes});
    *written = bytes;
    return TRUE;
}

static const FileOps g_outputOps = {nullptr, write_output, nullptr, nullptr};
static const HANDLE STALE_HANDLE = reinterpret_cast<HANDLE>(0xFFFFF54);
static const char g_consoleName[] = "CONOUT$";

static bool open_console(const OpenRequest& request, ObjectRef* file) {
    if (!same_text(request.path, g_consoleName))
        return false;
    if (consoles().output == Output::Console)
        *file = make_file(request, &g_outputOps, false);
    else
        set_last_error(ERROR_FILE_NOT_FOUND);
    return true;
}

static const FileKinds g_consoleKind(open_console);

} // namespace sim

using namespace sim;

extern "C" {

HANDLE WINAPI GetStdHandle(DWORD which) {
    SIM_VISIT();
    if (consoles().output != Output::Redirected)
        return which == STD_ERROR_HANDLE ? STALE_HANDLE
                                         : nullptr; // of a program without a console of its own
    Console& console = process_state<Console>();
    if (console.redirected == nullptr) {
        const OpenRequest request = {"output", GENERIC_WRITE, 0, OPEN_EXISTING, 0, nullptr};
        console.redirected = open_handle(make_file(request, &g_outputOps, false), GENERIC_WRITE);
    }
    return console.redirected;
}

DWORD WINAPI GetFileType(HANDLE file) {
    SIM_VISIT();
    return file == nullptr || file == STALE_HANDLE ? FILE_TYPE_UNKNOWN : FILE_TYPE_DISK;
}

BOOL WINAPI AttachConsole(DWORD) {
    SIM_CALL(FALSE, ERROR_INVALID_HANDLE);
    if (consoles().output == Output::Missing)
        set_last_error(ERROR_INVALID_HANDLE);
    return consoles().output != Output::Missing;
}

BOOL WINAPI GetConsoleMode(HANDLE console, LPDWORD mode) {
    SIM_VISIT();
    HandleEntry* entry = handle_entry(console, Kind::File, "GetConsoleMode");
    *mode = 3;
    return entry != nullptr && entry->object->as<File>().path == g_consoleName &&
           file_of(console, GENERIC_READ, "GetConsoleMode") != nullptr;
}

BOOL WINAPI WriteConsoleW(HANDLE console, const void* text, DWORD characters, LPDWORD written, LPVOID) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    if (file_of(console, GENERIC_WRITE, "WriteConsoleW") == nullptr)
        return FALSE;
    put_out(narrow(static_cast<const WCHAR*>(text), characters));
    *written = characters;
    return TRUE;
}

BOOL WINAPI SetConsoleCtrlHandler(PHANDLER_ROUTINE handler, BOOL add) {
    SIM_CALL(FALSE, ERROR_NOT_ENOUGH_MEMORY);
    process_state<Console>().handler = add ? handler : nullptr;
    return TRUE;
}

int WINAPI WideCharToMultiByte(UINT page, DWORD flags, LPCWSTR wide, int characters, LPSTR bytes,
                               int capacity, LPCSTR, LPBOOL) {
    SIM_CALL(0, ERROR_INVALID_PARAMETER);
    const std::string text = narrow(wide, static_cast<size_t>(characters));
    if (page != CP_UTF8 || flags != 0 || static_cast<int>(text.size()) > capacity) {
        set_last_error(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    std::memcpy(bytes, text.data(), text.size());
    return static_cast<int>(text.size());
}

HMODULE WINAPI GetModuleHandleW(LPCWSTR) {
    SIM_VISIT();
    return reinterpret_cast<HMODULE>(std::uintptr_t{0x140000000});
}

BOOL WINAPI GetExitCodeProcess(HANDLE handle, LPDWORD code) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    HandleEntry* entry = handle_entry(handle, Kind::Process, "GetExitCodeProcess", PROCESS_QUERY_INFORMATION);
    if (entry == nullptr)
        return FALSE;
    const auto& process = entry->object->as<Process>();
    *code = process.ended ? process.exit_code : STILL_ACTIVE;
    return TRUE;
}

} // extern "C"

namespace sim {

// ---- commands ----

namespace {

struct Ending {
    const char* word;
    DWORD type;
    bool by_window; // the session's end, of which its window is told
};

} // namespace

static const Ending g_endings[] = {
    {"ctrl-c", CTRL_C_EVENT, false},
    {"close", CTRL_CLOSE_EVENT, false},
    {"log-off", CTRL_LOGOFF_EVENT, true},
};

static Process* control_program() {
    for (auto& process : machine().processes) {
        if (!process->ended && process->program == "zorpmctl")
            return process.get();
    }
    return nullptr;
}

// The handler runs on a thread of its own; after its return from anything but Ctrl-C the process is ended.
static void interrupt(Process* process, DWORD type) {
    start_thread(process, "console", [process, type] {
        const PHANDLER_ROUTINE handler = process_state<Console>(process).handler;
        const bool handled = handler != nullptr && handler(type) != FALSE;
        if (!handled || type != CTRL_C_EVENT)
            end_process(process, 0xC000013A);
        return DWORD{0};
    });
}

static Action compile_interrupt(Tokens& tokens) {
    const Ending* ending = &g_endings[0];
    if (!tokens.done())
        ending = &g_endings[tokens.choice({"ctrl-c", "close", "log-off"})];
    return [ending] {
        Process* process = control_program();
        const HWND window = find_window("ZorpmctlSessionWindow");
        if (process == nullptr || (ending->by_window && window == nullptr)) {
            trace("refused interrupt zorpmctl");
        } else if (ending->by_window) {
            send_message(window, WM_QUERYENDSESSION, 0, 0, nullptr);
            send_message(window, WM_ENDSESSION, TRUE, 0, [process](LRESULT) {
                if (!process->ended)
                    end_process(process, 0xC000013A); // the system waits for nothing more
            });
        } else {
            interrupt(process, ending->type);
        }
    };
}

static Action compile_console(Tokens& tokens) {
    const auto output = static_cast<Output>(tokens.choice({"present", "redirected", "missing"}));
    return [output] { consoles().output = output; };
}

static const Commands g_commands({
    {"interrupt zorpmctl", Use::Drive, compile_interrupt,
     "[ctrl-c|close|log-off] - Ctrl-C to it, its console closed, the session ended"},
    {"windows console", Use::Machine, compile_console,
     "present|redirected|missing - what the control program writes to"},
});

} // namespace sim
