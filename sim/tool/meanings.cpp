// What calls, status reports, indicators and the commands of scripts mean; the parts of a line.
#include "sim/tool/meanings.h"

#include <cstdlib>
#include <zorpm/zorpm.h>

#include "cooling/thermal_firmware.h"
#include "hotkeys/ph_notification.h"
#include "sim/machine/text.h"
#include "sim/notebook/device_interfaces.h"
#include "sim/tool/words.h"

namespace sim {

static const char* const g_laneNames[] = {
    "",     "service", "power",      "display", "posture",     "lid",       "lid inhibit", "option",
    "dock", "system",  "two in one", "hinge",   "quiet hinge", "processor", "dock mode"};
static_assert(std::size(g_laneNames) == static_cast<size_t>(Lane::Count));

const char* lane_name(Lane lane) {
    return g_laneNames[static_cast<size_t>(lane)];
}

// ---- the parts of a line ----

// The first that a line begins with.
static const struct {
    const char* begin;
    LineKind kind;
} g_kinds[] = {
    {"request ", LineKind::Request},  {"registry ", LineKind::Registry}, {"call ", LineKind::Call},
    {"status ", LineKind::Status},    {"write ", LineKind::Write},       {"says ", LineKind::Says},
    {"query ", LineKind::Registry},   {"watch ", LineKind::Registry},    {"RegOpenKey", LineKind::Open},
    {"RegCreateKey", LineKind::Open}, {"RegCloseKey", LineKind::Open},   {"CreateFile", LineKind::Open},
    {"CloseHandle", LineKind::Open},  {"Wait", LineKind::Wait},          {"MsgWait", LineKind::Wait},
    {"Sleep", LineKind::Wait},
};

LineKind kind_of(const TraceLine& line) {
    for (const auto& row : g_kinds) {
        if (line.text.starts_with(row.begin))
            return row.kind;
    }
    return LineKind::Other;
}

CallText read_call(std::string_view text) {
    const size_t open = text.find('(');
    const size_t close = text.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open)
        return {text, "", "", false};
    CallText call = {text.substr(0, open), text.substr(open + 1, close - open - 1), "", false};
    const std::string_view rest = text.substr(close + 1);
    if (rest.starts_with(" = "))
        call.answer = rest.substr(3);
    call.failed = rest == " failed";
    return call;
}

std::uint32_t number_in(std::string_view text, size_t index) {
    for (; index > 0; --index) {
        const size_t comma = text.find(',');
        if (comma == std::string_view::npos)
            return 0;
        text.remove_prefix(comma + 1);
    }
    return static_cast<std::uint32_t>(std::strtoull(std::string(text).c_str(), nullptr, 0));
}

// The index-th quoted text.
static std::string quoted_in(std::string_view text, size_t index = 0) {
    for (;; --index) {
        const size_t open = text.find('"');
        const size_t close = text.find('"', open + 1);
        if (open == std::string_view::npos || close == std::string_view::npos)
            return "";
        if (index == 0)
            return std::string(text.substr(open + 1, close - open - 1));
        text.remove_prefix(close + 1);
    }
}

std::string keys_words(std::uint32_t mask, std::uint32_t first) {
    std::string list;
    for (std::uint32_t bit = 0; bit < 32; ++bit) {
        if ((mask >> bit & 1) == 0)
            continue;
        std::uint32_t last = bit;
        while (last < 31 && (mask >> (last + 1) & 1) != 0)
            ++last;
        list += (list.empty() ? "" : ", ") + std::to_string(bit + first);
        if (last > bit)
            list += (last > bit + 1 ? " to " : ", ") + std::to_string(last + first);
        bit = last;
    }
    if (list.empty())
        return "no hot key";
    return (list.find_first_of(" ,") == std::string::npos ? "hot key " : "hot keys ") + list;
}

// ---- events and controls ----

static const Word g_notified[] = {
#define NOTIFICATION(k, name, code, words) {code, words},
    ZORPM_TYPE2_NOTIFICATIONS(NOTIFICATION) ZORPM_TYPE22_NOTIFICATIONS(NOTIFICATION)
#undef NOTIFICATION
};

static const Word g_events[] = {
#define EVENT_ROW(code, name, ...) {code, name},
#include "events/event_rows.h"
#undef EVENT_ROW
};

static const Word g_controls[] = {{SERVICE_CONTROL_STOP, "stop"},
                                  {SERVICE_CONTROL_PAUSE, "pause"},
                                  {SERVICE_CONTROL_CONTINUE, "continue"},
                                  {SERVICE_CONTROL_INTERROGATE, "status asked for"},
#define CONTROL(code, name, words) {code, words},
                                  ZORPM_CONTROL_CODES(CONTROL)
#undef CONTROL
};

// A name that is no words, in words: "ZORPM_WAKEUP_BATT".
static std::string spoken(std::string name) {
    if (name.find_first_of("abcdefghijklmnopqrstuvwxyz") != std::string::npos)
        return name;
    for (const char* prefix : {"ZORPM_", "HK_"}) {
        if (name.starts_with(prefix))
            name.erase(0, std::string_view(prefix).size());
    }
    for (char& c : name)
        c = c == '_' ? ' ' : c;
    return lower(name);
}

// Hot keys have a page each; wake events carry a sleep state, which is no part of their row's code.
std::string event_words(std::uint32_t code) {
    const std::uint32_t row_code = code & 0xFFFFF0FF;
    for (const Word& row : g_notified) {
        if (row.value == row_code)
            return row.words;
    }
    for (const Word& row : g_events) {
        if (row.value != code && row.value != row_code)
            continue;
        const bool state = code != row.value && (code >> 8 & 0xF) != 0;
        return spoken(row.words) + (state ? ", sleep state " + std::to_string(code >> 8 & 0xF) : "");
    }
    const std::uint32_t page = code & 0xFF00;
    const std::uint32_t key = code & 0xFF;
    if (page == PH_PAGE_CLASSIC)
        return "hot key " + std::to_string(key);
    if (page == PH_PAGE_2 || page == PH_PAGE_3)
        return "hot key " + std::to_string(key) + " of page " + (page == PH_PAGE_2 ? "2" : "3");
    return code == 0 ? "no event" : "no event that is known";
}

std::vector<std::string> known_events() {
    std::vector<std::string> codes;
    for (const Word& row : g_events)
        codes.push_back(format("0x%x", row.value));
    return codes;
}

std::vector<std::string> known_controls() {
    std::vector<std::string> codes;
    for (const Word& row : g_controls)
        codes.push_back(std::to_string(row.value));
    return codes;
}

std::string event_name(std::uint32_t code) {
    for (const Word& row : g_events) {
        if (row.value == code)
            return row.words;
    }
    return "";
}

std::string control_words(std::uint32_t code) {
    return word(g_controls, code, "control code");
}

// ---- calls ----

static std::string privileged(const CallText& call, const char* words) {
    return std::string(words) + (number_in(call.answer) != 0 ? "" : ", refused");
}

static Meaning suspend(const CallText& call) {
    const char* words = number_in(call.arguments) != 0 ? "hibernate" : "sleep";
    const bool works = number_in(call.answer) != 0;
    return {privileged(call, words), works ? Lane::Power : Lane::None, words};
}

static Meaning suspend_at_once(const CallText& call) {
    const char* words = number_in(call.arguments) != 0 ? "sleep" : "hibernate";
    const bool works = number_in(call.answer) != 0;
    return {privileged(call, words), works ? Lane::Power : Lane::None, words};
}

static Meaning exit_windows(const CallText& call) {
    return {privileged(call, "power off"), Lane::Power, "off"};
}

static Meaning reserve_file(const CallText& call) {
    return {number_in(call.answer) == 0 ? "hibernation file made" : "hibernation file not made"};
}

static Meaning scheme_written(const CallText& call) {
    return {"power scheme " + std::to_string(number_in(call.arguments)) + " written"};
}

static Meaning scheme_active(const CallText& call) {
    const bool policy = call.arguments.find("policy") != std::string_view::npos;
    return {"power scheme " + std::to_string(number_in(call.arguments)) + " made active" +
            (policy ? ", with other timeouts" : "")};
}

static Meaning hive(const CallText& call) {
    const bool done = number_in(call.answer) == 0;
    return {
        std::string(call.name == "RegLoadKeyW" ? "a user's settings loaded" : "a user's settings unloaded") +
        (done ? "" : ": fails")};
}

static Meaning inverter(const CallText& call) {
    const std::string words = "panel frequency " + std::to_string(number_in(call.arguments, 1)) + " Hz";
    return {words + (number_in(call.answer) == 0 ? "" : ": fails")};
}

static Meaning task(const CallText& call) {
    const bool made = call.name == "RegisterTaskDefinition";
    if (number_in(call.answer) == 0)
        return {made ? "task registered" : "task deleted"};
    return {made ? "task not registered" : "no such task"};
}

static Meaning control_sent(const CallText& call) {
    const std::string words = control_words(number_in(call.arguments, 1));
    return {words + (number_in(call.answer) != 0 ? "" : ": refused")};
}

static Meaning program_started(const CallText& call) {
    std::string path = quoted_in(call.arguments);
    if (path.empty())
        path = std::string(call.arguments);
    const size_t slash = path.rfind('\\');
    return {(slash == std::string::npos ? path : path.substr(slash + 1)) +
            (number_in(call.answer) != 0 ? " starts" : " does not start")};
}

static Meaning input_sent(const CallText&) {
    return {"a mouse button is pressed and let go"};
}

static Meaning cursor(const CallText&) {
    return {"the pointer is moved"};
}

static const struct {
    const char* name;
    Meaning (*meaning)(const CallText& call);
} g_calls[] = {
    {"SetSuspendState", suspend},
    {"SetSystemPowerState", suspend_at_once},
    {"ExitWindowsEx", exit_windows},
    {"CallNtPowerInformation", reserve_file},
    {"WritePwrScheme", scheme_written},
    {"SetActivePwrScheme", scheme_active},
    {"RegLoadKeyW", hive},
    {"RegUnLoadKeyW", hive},
    {"SetInverterParams", inverter},
    {"RegisterTaskDefinition", task},
    {"DeleteTask", task},
    {"ControlService", control_sent},
    {"CreateProcessW", program_started},
    {"SendInput", input_sent},
    {"SetCursorPos", cursor},
};

Meaning call_meaning(std::string_view text) {
    const CallText call = read_call(text);
    for (const auto& row : g_calls) {
        if (call.name == row.name)
            return row.meaning(call);
    }
    return {};
}

// ---- status reports, indicators, the rest ----

static const Word g_inhibitAnswers[] = {{ZORPM_INHIBIT_OFF, "answer: lid not inhibited"},
                                        {ZORPM_INHIBIT_ON, "answer: lid inhibited"}};
static const Word g_startFailures[] = {{ZORPM_START_NO_THREAD, "no notification thread"},
                                       {ZORPM_START_NO_DRIVER, "the driver could not be opened"},
                                       {ZORPM_START_NO_EVENT, "no stop event"}};

// "RUNNING 1066/3", "START_PENDING 0/0 checkpoint 2"
static Meaning status_meaning(std::string_view text) {
    const size_t blank = text.find(' ');
    const size_t slash = text.find('/');
    std::string state = lower(text.substr(0, blank));
    for (char& c : state)
        c = c == '_' ? ' ' : c;
    const std::uint32_t code = slash != std::string_view::npos ? number_in(text.substr(slash + 1)) : 0;
    Meaning meaning = {state, Lane::Service, state};
    if (text == "RUNNING 0/0") // behind an answer that is none
        meaning.weight = Weight::Follows;
    if (code != 0)
        meaning.words = state == "stopped" ? word(g_startFailures, code, "stopped: code")
                                           : word(g_inhibitAnswers, code, "answer");
    return meaning;
}

// "slate 0": the byte does not count, the indicator goes to its other state.
static Meaning write_meaning(std::string_view text) {
    if (text.starts_with("button"))
        return {"rotation-lock button: " + std::string(text.substr(text.find(' ') + 1))};
    if (text.starts_with("slate#") || text.starts_with("dock#"))
        return {"the other indicator toggled"};
    const bool slate = text.starts_with("slate");
    const BYTE before = indicator_state(slate ? Interface::Slate : Interface::Dock);
    const char* const words[] = {slate ? "tablet" : "undocked", slate ? "notebook" : "docked"};
    if (before > 1)
        return {"indicator is " + std::to_string(before) + " and stays"};
    return {"toggled: " + std::string(words[before]) + " -> " + words[1 - before]};
}

static Meaning other_meaning(std::string_view text) {
    static const struct {
        const char* begin;
        Meaning meaning;
    } rows[] = {
        {"dialog 101 opened", {"the monitor goes off, until a key or the mouse", Lane::Display, "off"}},
        {"dialog 101 ended", {"a key or the mouse", Lane::Display, "on"}},
        {"file create", {"file written"}},
        {"file overwrite", {"file written anew"}},
        {"file delete", {"file deleted"}}};
    for (const auto& row : rows) {
        if (text.starts_with(row.begin))
            return row.meaning;
    }
    if (text.starts_with("refused control "))
        return {control_words(number_in(text.substr(16))) + ": refused"};
    if (text.starts_with("process "))
        return {text.ends_with(" 0") ? "ended" : "ended with an error", Lane::None, "", Weight::Follows};
    return {};
}

Meaning meaning_of(const TraceLine& line, MeaningMemory* memory) {
    if (!line.effect)
        return {};
    const std::string_view text = line.text;
    const std::string_view rest = text.substr(std::min(text.size(), text.find(' ') + 1));
    switch (kind_of(line)) {
    case LineKind::Request:
        return request_meaning(rest, memory);
    case LineKind::Registry:
        return registry_meaning(rest, memory);
    case LineKind::Call:
        return call_meaning(rest);
    case LineKind::Status:
        return status_meaning(rest);
    case LineKind::Write:
        return write_meaning(rest);
    default:
        return other_meaning(text);
    }
}

bool needs_words(const TraceLine& line) {
    const LineKind kind = kind_of(line);
    return line.effect && (kind == LineKind::Request || kind == LineKind::Registry ||
                           kind == LineKind::Call || kind == LineKind::Status || kind == LineKind::Write);
}

// ---- commands ----

namespace {

struct CommandRow {
    const char* begin;
    Meaning (*meaning)(const std::string& rest, MeaningMemory* memory);
};

} // namespace

static Meaning event_told(const std::string& rest, MeaningMemory*) {
    return {event_words(number_in(rest))};
}

static Meaning control_told(const std::string& rest, MeaningMemory*) {
    return {control_words(number_in(rest))};
}

static Meaning monitor_told(const std::string& rest, MeaningMemory*) {
    const char* words = number_in(rest) != 0 ? "display on" : "display off";
    return {words, Lane::Display, words + 8};
}

static Meaning woken(const std::string&, MeaningMemory*) {
    return {"the system wakes up", Lane::Power, "on"};
}

// "SVC\Parameters\CurrentSetting @ dword 0x800": as the service would have written it.
static Meaning client_writes(const std::string& rest, MeaningMemory* memory) {
    const size_t type = rest.find(" dword ");
    if (type == std::string::npos)
        return {};
    return registry_meaning(rest.substr(0, type) + " = " + rest.substr(type + 7), memory);
}

// "GMMS = 5", "GOPT(0x200) = 1 times 2"
static Meaning firmware_answers(const std::string& rest, MeaningMemory* memory) {
    if (rest.find(" = ") == std::string::npos)
        return {};
    std::string request = rest;
    if (request.find('(') == std::string::npos)
        request.insert(request.find(' '), "(0)");
    Meaning meaning = request_meaning(request, memory);
    meaning.lane = Lane::None;
    return meaning;
}

static Meaning helper_told(const std::string& rest, MeaningMemory*) {
    static const Word rows[] = {{ZORPM_HELPER_SAVE_GLOBAL_POLICY, "save the global policy"},
                                {ZORPM_HELPER_SAVE_SCHEME_INDEX, "save the scheme's index"},
                                {ZORPM_HELPER_SAVE_USER_POLICY, "save the user's policy"},
                                {ZORPM_HELPER_RESTORE_USER_POLICY, "restore the user's policy"},
                                {ZORPM_HELPER_MONITOR_OFF, "turn the monitor off"},
                                {ZORPM_HELPER_ACTIVATE_SCHEME, "make a scheme active"}};
    for (const char* word : {"close", "quit"}) {
        if (rest.ends_with(word))
            return {"its window is told to " + std::string(word)};
    }
    // "session 2 5 ARGUMENT"
    const size_t command = rest.starts_with("session ") ? rest.find(' ', 8) : 0;
    return {word(rows, number_in(rest.substr(std::min(command, rest.size()))), "helper's command")};
}

static const CommandRow g_commandRows[] = {
    {"event ", event_told},
    {"control ", control_told},
    {"power monitor ", monitor_told},
    {"handler power monitor ", monitor_told},
    {"power resume", woken},
    {"handler power resume", woken},
    {"handler power ", [](const std::string&, MeaningMemory*) { return Meaning{"power event"}; }},
    {"handler ", control_told},
    {"registry set ", client_writes},
    {"firmware ", firmware_answers},
    {"helper ", helper_told},
    {"start",
     [](const std::string&, MeaningMemory*) {
         return Meaning{"the service starts", Lane::Power, "on"};
     }},
    {"stop", [](const std::string&, MeaningMemory*) { return Meaning{"the service is told to stop"}; }},
    {"run \"-PnPTask\"", [](const std::string&, MeaningMemory*) { return Meaning{"clean-up run"}; }},
    {"run \"-helper\"", [](const std::string&, MeaningMemory*) { return Meaning{"helper of a session"}; }},
};

Meaning meaning_of_command(std::string_view command, MeaningMemory* memory) {
    for (const CommandRow& row : g_commandRows) {
        if (command.starts_with(row.begin))
            return row.meaning(std::string(command.substr(std::string_view(row.begin).size())), memory);
    }
    return {};
}

} // namespace sim
