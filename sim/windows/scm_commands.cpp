// The commands of the service control manager, and of what reaches the service through it or past it.
#include <algorithm>
#include <cstdio>

#include "sim/machine/machine.h"
#include "sim/script/commands.h"
#include "sim/script/expectations.h"
#include "sim/script/show.h"
#include "sim/windows/scm.h"
#include "sim/windows/users.h"

namespace sim {

static Action compile_start(Tokens&) {
    return service_start;
}

static Action compile_stop(Tokens&) {
    return service_stop;
}

bool read_guid(const std::string& text, GUID* guid) {
    unsigned b[8];
    unsigned d1 = 0, d2 = 0, d3 = 0;
    const char* at = text.c_str() + (text[0] == '{');
    if (std::sscanf(at, "%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x", &d1, &d2, &d3, &b[0], &b[1], &b[2], &b[3],
                    &b[4], &b[5], &b[6], &b[7]) != 11)
        return false;
    guid->Data1 = d1;
    guid->Data2 = static_cast<WORD>(d2);
    guid->Data3 = static_cast<WORD>(d3);
    for (int i = 0; i < 8; ++i)
        guid->Data4[i] = static_cast<BYTE>(b[i]);
    return true;
}

static Action compile_code(Tokens& tokens, Via via) {
    const auto code = static_cast<DWORD>(tokens.number());
    return [code, via] { service_control(code, via); };
}

static Action compile_power_event(Tokens& tokens, Via via) {
    enum { RESUME, MONITOR, SETTING, EVENT };
    const size_t what = tokens.choice({"resume", "monitor", "setting", "event"});
    if (what == RESUME)
        return [via] { service_power_event(PBT_APMRESUMESUSPEND, via); };
    GUID guid = g_monitorPowerOn;
    if (what == SETTING && !read_guid(tokens.word(), &guid))
        tokens.fail("GUID expected");
    const auto number = static_cast<DWORD>(tokens.number());
    if (what == EVENT)
        return [number, via] { service_power_event(number, via); };
    return [guid, number, via] { service_power_setting(guid, number, via); };
}

static Action compile_control(Tokens& tokens) {
    return compile_code(tokens, Via::Manager);
}

static Action compile_power(Tokens& tokens) {
    return compile_power_event(tokens, Via::Manager);
}

static Action compile_handler(Tokens& tokens) {
    return tokens.accept("power") ? compile_power_event(tokens, Via::Handler)
                                  : compile_code(tokens, Via::Handler);
}

static Action compile_power_settings(Tokens& tokens) {
    const bool at_registration = tokens.choice({"at-registration", "later"}) == 0;
    return [at_registration] { set_power_settings_at_registration(at_registration); };
}

static Action compile_run(Tokens& tokens) {
    const std::string line = tokens.text();
    if (line == "zorpmctl") {
        std::string arguments;
        while (!tokens.done())
            arguments += (arguments.empty() ? "" : " ") + tokens.word();
        return [arguments] { start_control_program(arguments); };
    }
    const DWORD session = tokens.accept("session") ? static_cast<DWORD>(tokens.number()) : 1;
    const bool helper = same_text(line, "-helper");
    return [=] {
        Process* process = start_process(line, session);
        if (helper)
            give_helper_its_user(process);
    };
}

static Action compile_check_status(Tokens& tokens) {
    const std::string state = tokens.word();
    const bool known = std::any_of(std::begin(g_stateNames), std::end(g_stateNames),
                                   [&](const char* name) { return same_text(name, state); });
    if (!known)
        tokens.fail("no such state: " + state);
    const std::string codes = tokens.done() ? "" : tokens.word();
    // cppcheck-suppress returnDanglingLifetime ; captured by value
    return [=] {
        const SERVICE_STATUS now = service_status();
        const std::string is = g_stateNames[now.dwCurrentState];
        const std::string has = format("%u/%u", now.dwWin32ExitCode, now.dwServiceSpecificExitCode);
        expectation(same_text(is, state) && (codes.empty() || codes == has),
                    "status " + state + " " + codes + ", it is " + is + " " + has);
    };
}

static void show_status(const std::string&) {
    const SERVICE_STATUS now = service_status();
    show_line("%s %u/%u, accepts 0x%x, checkpoint %u, hint %u ms", g_stateNames[now.dwCurrentState],
              now.dwWin32ExitCode, now.dwServiceSpecificExitCode, now.dwControlsAccepted, now.dwCheckPoint,
              now.dwWaitHint);
}

static const Shows g_status("status", show_status);

static const Commands g_commands({
    {"start", Use::Drive, compile_start, "- the service starts, through the service control manager"},
    {"stop", Use::Drive, compile_stop, "- and stops"},
    {"control", Use::Drive, compile_control, "CODE - a control code, through the service control manager"},
    {"power", Use::Drive, compile_power,
     "monitor VALUE | setting GUID VALUE | resume | event TYPE - through the manager"},
    {"handler", Use::Drive, compile_handler,
     "CODE | power monitor VALUE | power setting GUID VALUE | power resume | power event TYPE - past the "
     "manager"},
    {"run", Use::Drive, compile_run,
     "\"ARGUMENTS\" [session N] | \"zorpmctl\" ARGUMENT... - another process of the executable; the control "
     "program"},
    {"windows power-settings", Use::Machine, compile_power_settings,
     "at-registration|later - when a setting's present value reaches the handler"},
    {"check status", Use::Check, compile_check_status,
     "STATE [WIN32/SPECIFIC] - what the service control manager holds now"},
});

} // namespace sim
