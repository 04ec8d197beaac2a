#include <windows.h>
#include <strsafe.h>

#include "common/holders.h"
#include "ctl/ctl.h"
#include "ctl/inhibit_state.h"
#include "ctl/interrupts.h"
#include "ctl/output.h"
#include "ctl/service_link.h"

constexpr DWORD POLL_PERIOD_MS = 10000;
constexpr DWORD COMMAND_LINE_CHARACTERS = 8192;

const wchar_t* InhibitWords(DWORD value) {
    return value == ZORPM_INHIBIT_ON ? L"on" : value == ZORPM_INHIBIT_OFF ? L"off" : L"unknown";
}

// The value that the status carries; 0: none.
static DWORD ReportedValue(const ServiceHolder& holder) {
    SERVICE_STATUS status = {};
    return QueryServiceStatus(holder.service, &status) &&
                   status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR
               ? status.dwServiceSpecificExitCode
               : 0;
}

int AskInhibit(const ServiceHolder& holder, InhibitAnswer* answer) {
    const DWORD before = ReportedValue(holder);
    const int sent = SendControl(SERVICE_CONTROL_MESSAGE_LCDCS_GETINHIBITCAPABILITY);
    answer->value = ReportedValue(holder);
    answer->fresh = answer->value != before;
    return sent;
}

static void EndInhibit() {
    SendControl(SERVICE_CONTROL_MESSAGE_LCDCS_STOPINHIBITLIDEVENT);
}

// Starts the inhibit and makes sure of it. An accepted 131 clears the value from the status, so that the
// answer to 133 is then one of its own; a value that is still there means that 131 was refused.
static int StartInhibit(const ServiceHolder& holder) {
    int result = SendControl(SERVICE_CONTROL_MESSAGE_LCDCS_STARTINHIBITLIDEVENT);
    InhibitAnswer answer = {};
    if (result == CTL_DONE)
        result = AskInhibit(holder, &answer);
    if (result == CTL_DONE && answer.value == ZORPM_INHIBIT_ON && answer.fresh)
        return CTL_DONE;
    if (result == CTL_DONE)
        Complain(L"%ls", answer.value == 0 ? L"no lid inhibit: the driver cannot be reached, or has none"
                                           : L"no lid inhibit: the driver has refused it");
    // What was not answered in time may still be carried out, and the service watches in vain for an inhibit
    // that is not on. One that another program has on stays.
    if (result == CTL_REFUSED || (result == CTL_DONE && answer.value != ZORPM_INHIBIT_ON))
        EndInhibit();
    return result == CTL_DONE ? CTL_REFUSED : result;
}

namespace {

// Since when the lid has been closed, counted in looks.
struct LidWatch {
    DWORD closed_looks = 0;

    void Look() {
        DWORD lid = ZORPM_LID_UNKNOWN;
        ReadPublished(ZORPM_POSTURE_KEY, ZORPM_LID, &lid);
        closed_looks = lid == ZORPM_LID_CLOSED ? closed_looks + 1 : 0;
    }
    bool LimitReached() const { return (closed_looks + 1) * POLL_PERIOD_MS >= ZORPM_INHIBIT_LIMIT_MS; }
};

} // namespace

// True while the inhibit is ours to end. Whoever ends one ends all: there is nobody who counts them.
static bool StillOn(const ServiceHolder& holder, LidWatch* lid) {
    InhibitAnswer answer = {};
    lid->Look();
    if (AskInhibit(holder, &answer) != CTL_DONE) {
        Complain(L"the lid inhibit is left to the driver: nobody limits or ends it now");
        return false;
    }
    if (answer.value != ZORPM_INHIBIT_OFF)
        return true;
    Complain(lid->LimitReached()
                 ? L"the service has ended the lid inhibit: the lid was closed for five minutes"
                 : L"another program has ended the lid inhibit: the first to end ends all");
    return false;
}

static HANDLE StartProgram(const wchar_t* command_line) {
    wchar_t writable[COMMAND_LINE_CHARACTERS];
    if (FAILED(StringCchCopyW(writable, ARRAYSIZE(writable), command_line))) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return nullptr;
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, writable, nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process))
        return nullptr;
    CloseHandle(process.hThread);
    return process.hProcess;
}

namespace {

// What ends the waiting, in the order of the handles.
enum : DWORD { END_INTERRUPT = WAIT_OBJECT_0, END_PROGRAM };

} // namespace

// Waits for the end and looks after the inhibit meanwhile. The result is that of the last wait; *on becomes
// false when the inhibit has gone before.
static DWORD WaitForEnd(const ServiceHolder& holder, HANDLE interrupted, HANDLE program, bool* on) {
    const HANDLE handles[] = {interrupted, program};
    const DWORD count = program != nullptr ? 2 : 1;
    LidWatch lid;
    DWORD waited_ms = 0;
    for (;;) {
        const bool bounded = program == nullptr && g_arguments.timed;
        const DWORD left_ms = bounded ? g_arguments.timeout_s * 1000 - waited_ms : INFINITE;
        const DWORD period_ms = !*on ? left_ms : left_ms < POLL_PERIOD_MS ? left_ms : POLL_PERIOD_MS;
        const DWORD result = WaitForMultipleObjects(count, handles, FALSE, period_ms);
        if (result == WAIT_FAILED)
            Complain(L"cannot wait, error %lu", GetLastError());
        if (result != WAIT_TIMEOUT)
            return result;
        waited_ms += period_ms;
        if (bounded && waited_ms >= g_arguments.timeout_s * 1000)
            return result;
        *on = *on && StillOn(holder, &lid);
        if (!*on && program == nullptr)
            return WAIT_TIMEOUT;
    }
}

static int ExitStatus(HANDLE program, DWORD end, bool on) {
    if (end == WAIT_FAILED)
        return CTL_REFUSED;
    if (program == nullptr)
        return on ? CTL_DONE : CTL_REFUSED;
    DWORD code = 0;
    if (end == END_PROGRAM && GetExitCodeProcess(program, &code))
        return static_cast<int>(code);
    Complain(L"interrupted before the program has ended");
    return CTL_REFUSED;
}

static int HoldInhibit(const ServiceHolder& holder, HANDLE interrupted) {
    bool on = true;
    DWORD end = END_INTERRUPT;
    HandleHolder program;
    if (g_arguments.tail[0] != L'\0') {
        program.handle = StartProgram(g_arguments.tail);
        if (!program.Valid()) {
            Complain(L"cannot start %ls, error %lu", g_arguments.tail, GetLastError());
            EndInhibit();
            return CTL_REFUSED;
        }
    }
    end = WaitForEnd(holder, interrupted, program.handle, &on);
    if (on)
        EndInhibit();
    return ExitStatus(program.handle, end, on);
}

int RunInhibitLid() {
    HANDLE interrupted = CatchInterrupts();
    if (interrupted == nullptr)
        return CTL_REFUSED;
    CatchSessionEnd();
    ServiceHolder holder;
    int result = OpenZorpmService(&holder, SERVICE_USER_DEFINED_CONTROL | SERVICE_QUERY_STATUS);
    if (result == CTL_DONE)
        result = StartInhibit(holder);
    if (result == CTL_DONE) {
        Record record(L"inhibit");
        AddText(&record, L"state", InhibitWords(ZORPM_INHIBIT_ON));
        Tell(&record,
             L"lid inhibit on; it ends after five minutes of closed lid, and when any program ends one");
        result = HoldInhibit(holder, interrupted);
    }
    InterruptHandled();
    return result;
}
