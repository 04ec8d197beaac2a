#include "recorder/runner/console.h"

#include <map>
#include <memory>
#include <string>

#include "recorder/clock/turns.h"
#include "recorder/real.h"
#include "recorder/runner/images.h"
#include "recorder/runner/output.h"
#include "recorder/runner/settings.h"

namespace runner {

namespace {

struct Console { // of an image
    PHANDLER_ROUTINE handler = nullptr;
    std::string line; // begun
};

enum : DWORD { PRESENT, REDIRECTED, MISSING };

} // namespace

static std::map<DWORD, Console> g_consoles;
static const auto g_console = reinterpret_cast<HANDLE>(ULONG_PTR{0xFFFFF50});
static const auto g_stale = reinterpret_cast<HANDLE>(ULONG_PTR{0xFFFFF54});
static const auto g_redirected = reinterpret_cast<HANDLE>(ULONG_PTR{0xFFFFF58});

static DWORD output_kind() {
    return setting("console", PRESENT);
}

static void put_out(const std::string& text) {
    std::string& line = g_consoles[current_image()].line;
    for (const char c : text) {
        if (c == '\n') {
            effect("output zorpmctl \"%s\"", line.c_str());
            line.clear();
        } else if (c != '\r') {
            line += c;
        }
    }
}

bool open_console(LPCWSTR path, HANDLE* console) {
    if (lstrcmpiW(path, L"CONOUT$") != 0)
        return false;
    *console = output_kind() == PRESENT ? g_console : INVALID_HANDLE_VALUE;
    if (output_kind() != PRESENT)
        SetLastError(ERROR_FILE_NOT_FOUND);
    return true;
}

bool is_output(HANDLE handle) {
    return handle == g_console || handle == g_redirected;
}

void write_output(const void* data, DWORD bytes) {
    put_out({static_cast<const char*>(data), bytes});
}

HANDLE WINAPI standard_handle(DWORD which) {
    if (output_kind() == REDIRECTED)
        return g_redirected;
    return which == STD_ERROR_HANDLE ? g_stale : nullptr; // of a program without a console of its own
}

DWORD WINAPI file_type(HANDLE file) {
    return is_output(file) ? FILE_TYPE_DISK : FILE_TYPE_UNKNOWN;
}

BOOL WINAPI attach_console(DWORD) {
    if (output_kind() == MISSING)
        SetLastError(ERROR_INVALID_HANDLE);
    return output_kind() != MISSING;
}

BOOL WINAPI console_mode(HANDLE console, DWORD* mode) {
    *mode = 3;
    return console == g_console;
}

BOOL WINAPI write_console(HANDLE, const void* text, DWORD letters, DWORD* written, LPVOID) {
    put_out(narrow(std::wstring(static_cast<const wchar_t*>(text), letters).c_str()));
    *written = letters;
    return TRUE;
}

BOOL WINAPI set_control_handler(PHANDLER_ROUTINE handler, BOOL add) {
    g_consoles[current_image()].handler = add ? handler : nullptr;
    return TRUE;
}

// ---- interrupts ----

// The handler runs on a thread of its own; after its return from anything but Ctrl-C the process is ended.
static DWORD WINAPI run_handler(LPVOID parameter) {
    const auto type = static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(parameter));
    const PHANDLER_ROUTINE handler = g_consoles[current_image()].handler;
    const bool handled = handler != nullptr && handler(type);
    if (!handled || type != CTRL_C_EVENT)
        end_image(current_image(), STATUS_CONTROL_C_EXIT);
    return 0;
}

void interrupt_program(Ending ending) {
    const DWORD image = first_image("zorpmctl_image");
    HWND window = ending == Ending::LogOff ? FindWindowW(L"ZorpmctlSessionWindow", nullptr) : nullptr;
    if (image == 0 || (ending == Ending::LogOff && window == nullptr)) {
        effect("refused interrupt zorpmctl");
        return;
    }
    if (window != nullptr) { // handled when its thread looks for messages
        SendNotifyMessageW(window, WM_QUERYENDSESSION, 0, 0);
        SendNotifyMessageW(window, WM_ENDSESSION, TRUE, 0);
        return;
    }
    const ULONG_PTR type = ending == Ending::CtrlC ? CTRL_C_EVENT : CTRL_CLOSE_EVENT;
    CloseHandle(
        turns::start_thread("console", run_handler, reinterpret_cast<LPVOID>(type), 0, nullptr, image));
}

} // namespace runner
