// What the requests to the driver and the firmware mean.
#include <zorpm/zorpm.h>

#include "cooling/thermal_firmware.h"
#include "sim/machine/text.h"
#include "sim/tool/meanings.h"
#include "sim/tool/words.h"

namespace sim {

namespace {

struct Request {
    std::uint32_t argument;
    std::uint32_t second;
    std::uint32_t answer;
    bool failed;
};

struct ThermalWords {
    std::uint32_t function;
    std::uint32_t word;
    const char* words;
};

} // namespace

static const Word g_postures[] = {
#define POSTURE(number, name, mode, words) {number, words},
    ZORPM_POSTURES(POSTURE)
#undef POSTURE
};
static const Word g_thermalModes[] = {THERMAL_MODES(WORD_ROW)};
static const Word g_tabletStates[] = {TABLET_STATES(WORD_ROW)};
static const Word g_inhibitControls[] = {LCDCS_CONTROLS(WORD_ROW)};
static const Word g_inhibitStates[] = {LCDCS_STATES(WORD_ROW)};
static const Word g_dockTypes[] = {DOCK_TYPES(WORD_ROW)};
static const Word g_optionQueries[] = {GOPT_QUERIES(WORD_ROW)};
static const Word g_optionsFirst[] = {OPTION_1_STATUSES(WORD_ROW)};
static const Word g_optionsSecond[] = {OPTION_2_STATUSES(WORD_ROW)};
static const Word g_hotkeyVersions[] = {MHKV_VERSIONS(WORD_ROW)};
static const Word g_cpuQueries[] = {CPU_QUERIES(WORD_ROW)};
static const Word g_cpuStates[] = {CPU_SELECTS(WORD_ROW)};
static const Word g_thermalQueries[] = {DYTC_QUERIES(WORD_ROW)};
static const Word g_systemModes[] = {DYTC_SYSTEM_MODES(WORD_ROW)};
static const Word g_currentSettings[] = {TMCT_CURRENT_SETTINGS(WORD_ROW)};
static const Word g_functions[] = {THERMAL_FUNCTIONS(WORD_ROW)};
static const ThermalWords g_thermalWords[] = {
#define THERMAL_ROW(name, function, mode, on, operation, words)                                              \
    {function, ThermalSetWord(function, mode, on), words},
    THERMAL_WORDS(THERMAL_ROW)
#undef THERMAL_ROW
};

std::string posture_words(std::uint32_t posture) {
    return word(g_postures, posture, "unknown posture");
}

static const char* yes(std::uint32_t value) {
    return value != 0 ? "yes" : "no";
}

// ---- one function a method ----

static Meaning lid_action(const Request&, MeaningMemory*) {
    return {"closing the lid does nothing"};
}

static Meaning lid_beep(const Request& r, MeaningMemory*) {
    return {r.argument != 0 ? "lid beep on" : "lid beep off"};
}

static Meaning hotkey_version(const Request& r, MeaningMemory*) {
    return {word(g_hotkeyVersions, r.answer, "unknown interface of hot keys"), Lane::None, "",
            Weight::Ceremony};
}

static std::string page_words(std::uint32_t page) {
    return "page " + std::to_string(page == MHK_ONLY_PAGE ? 1 : page);
}

static std::uint32_t first_key(std::uint32_t page) {
    return page <= MHK_PAGE_1 ? 1 : 33;
}

static Meaning hotkeys_announced(const Request& r, MeaningMemory*) {
    return {page_words(r.argument) + " can hand over " + keys_words(r.answer, first_key(r.argument))};
}

static Meaning hotkeys_handed(const Request& r, MeaningMemory*) {
    return {page_words(r.argument) + " hands over " + keys_words(r.answer, first_key(r.argument))};
}

static Meaning hotkey_mode(const Request& r, MeaningMemory*) {
    return {"hot key " + std::to_string(r.argument) +
            (r.second != 0 ? " is handed to clients" : " is left to the firmware")};
}

static Meaning cpu_query(const Request& r, MeaningMemory*) {
    const std::string asked = word(g_cpuQueries, r.argument) + ": ";
    return {asked + (r.argument == CPU_QUERY_WORKAROUND ? yes(r.answer) : std::to_string(r.answer))};
}

static Meaning cpu_selected(const Request& r, MeaningMemory*) {
    return {"idle state " + word(g_cpuStates, r.answer) + " is in force"};
}

static Meaning cpu_select(const Request& r, MeaningMemory*) {
    return {word(g_cpuStates, r.argument, "idle state")};
}

static Meaning tablet_state(const Request& r, MeaningMemory*) {
    return {(r.answer & TABLET_STATE_TABLET) != 0 ? g_tabletStates[0].words : "no tablet"};
}

static Meaning panel_wants(const Request& r, MeaningMemory*) {
    return {r.answer != 0 ? "the panel wants " + std::to_string(r.answer) + " Hz" : "the panel wants none"};
}

static Meaning panel_has(const Request& r, MeaningMemory*) {
    return {r.argument != 0 ? "the panel has " + std::to_string(r.argument) + " Hz" : "not set"};
}

static Meaning lid_status(const Request& r, MeaningMemory*) {
    if ((r.answer & LID_READING_VALID) == 0)
        return {"lid: no valid reading"};
    const char* words = (r.answer & LID_SWITCH_OPEN) != 0 ? "lid open" : "lid closed";
    return {words, Lane::Lid, words + 4};
}

static Meaning inhibit_state(const Request& r, MeaningMemory*) {
    return {word(g_inhibitStates, r.answer, "lid inhibit: unknown state")};
}

static Meaning inhibit_control(const Request& r, MeaningMemory*) {
    const std::string words = word(g_inhibitControls, r.argument);
    if (r.answer != LCDCS_CONTROL_ACCEPTED)
        return {words + ", refused"};
    return {words + ", accepted", Lane::Inhibit, r.argument == LCDCS_CONTROL_INHIBIT_ON ? "on" : "off"};
}

static Meaning dock_mode(const Request& r, MeaningMemory*) {
    if ((r.answer & DOCK_STATUS_DOCKED) == 0)
        return {"undocked", Lane::Dock, "undocked"};
    const std::string words = "docked, " + word(g_dockTypes, DockType(r.answer), "unknown type");
    return {words, Lane::Dock, words};
}

static Meaning posture(const Request& r, MeaningMemory*) {
    const std::string words = posture_words(r.answer & STATUS_VALUE);
    return {words, Lane::Posture, words};
}

static std::string option_words(std::uint32_t status, const MeaningMemory& memory) {
    if (memory.option_type == OPTION_TYPE_LAST) // tells in one bit
        return (status & OPTION_TYPE_LAST_ATTACHED) != 0 ? "attached" : "none";
    return memory.option_version == OPTION_VERSION_1 ? word(g_optionsFirst, status, "unknown status")
                                                     : word(g_optionsSecond, status, "unknown status");
}

static Meaning option(const Request& r, MeaningMemory* memory) {
    if (r.argument == GOPT_STATUS) {
        const std::string words = option_words(r.answer, *memory);
        return {"option: " + words, Lane::Option, words};
    }
    (r.argument == GOPT_VERSION ? memory->option_version : memory->option_type) = r.answer;
    return {format("%s 0x%x", word(g_optionQueries, r.argument).c_str(), r.answer), Lane::None, "",
            Weight::Ceremony};
}

static Meaning thermal_mode(const Request& r, MeaningMemory*) {
    return {word(g_thermalModes, r.answer & STATUS_VALUE, "hinge angle: thermal mode")};
}

static Meaning graphics(const Request& r, MeaningMemory*) {
    return {"graphics temperature level " + std::to_string(r.answer & STATUS_VALUE)};
}

static Meaning connect(const Request& r, MeaningMemory*) {
    return {r.argument != 0 ? "the service takes the driver" : "the service leaves the driver"};
}

static Meaning fetched(const Request& r, MeaningMemory*) {
    return {event_words(r.answer), Lane::None, "", Weight::Ceremony};
}

static Meaning timer(const Request& r, MeaningMemory*) {
    return {format("timer resolution %.3f ms", r.answer / 10000.0)};
}

static Meaning events_registered(const Request&, MeaningMemory*) {
    return {"the driver signals the five events"};
}

static Meaning events_left(const Request&, MeaningMemory*) {
    return {"the driver signals no event any more"};
}

static Meaning family(const Request&, MeaningMemory*) {
    return {"family of the system"};
}

static Meaning pointing_stick(const Request& r, MeaningMemory*) {
    return {r.argument != 0 ? "pointing stick on" : "pointing stick off"};
}

// ---- thermal control ----

static Lane function_lane(std::uint32_t function) {
    switch (function) {
    case THERMAL_TWO_IN_ONE:
        return Lane::TwoInOne;
    case THERMAL_MULTI_PIVO_HINGE:
        return Lane::Hinge;
    case THERMAL_COOL_QUIET_HINGE:
        return Lane::QuietHinge;
    case THERMAL_DYNAMIC_CPU_CONTROL:
        return Lane::Processor;
    case THERMAL_DOCK_MODE_CONTROL:
        return Lane::DockMode;
    default:
        return Lane::None;
    }
}

static std::string announced(std::uint32_t capability) {
    std::string list;
    for (const Word& row : g_functions) {
        if (DytcAnnounces(capability, row.value))
            list += (list.empty() ? "" : ", ") + std::string(row.words);
    }
    return list.empty() ? "none" : list;
}

static Meaning thermal_query(const Request& r, MeaningMemory* memory) {
    const std::string asked = word(g_thermalQueries, r.argument) + ": ";
    // Revision 2 tells of the one mode of the whole system here.
    if (r.argument == DYTC_QUERY_FUNCTION_CAPABILITY && memory->thermal_revision == 2)
        return {"system-wide mode: " + word(g_currentSettings, DytcCurrentSetting(r.answer))};
    if ((r.answer & DYTC_SUCCESS) == 0 && r.argument != DYTC_QUERY_SYSTEM_CONTROL_MODE)
        return {asked + "not supported"};
    if (r.argument == DYTC_QUERY_REVISION) {
        memory->thermal_revision = DytcRevision(r.answer);
        return {asked + std::to_string(memory->thermal_revision)};
    }
    if (r.argument == DYTC_QUERY_FUNCTION_CAPABILITY)
        return {asked + announced(r.answer)};
    return {asked + format("0x%x", DytcSystemControlMode(r.answer))};
}

static Meaning thermal(const Request& r, MeaningMemory* memory) {
    for (const Word& row : g_thermalQueries) {
        if (row.value == r.argument)
            return thermal_query(r, memory);
    }
    for (const Word& row : g_systemModes) {
        if (row.value != r.argument)
            continue;
        const bool accepted = r.answer == DYTC_MODE_ACCEPTED;
        return {std::string(row.words) + (accepted ? ", accepted" : ", refused"),
                accepted ? Lane::SystemMode : Lane::None, row.words + 8};
    }
    for (const ThermalWords& row : g_thermalWords) {
        if (row.word != r.argument)
            continue;
        const bool accepted = (r.answer & DYTC_SUCCESS) != 0;
        return {word(g_functions, row.function) + ": " + row.words + (accepted ? ", accepted" : ", refused"),
                accepted ? function_lane(row.function) : Lane::None, row.words};
    }
    return {};
}

// ---- the table of methods ----

namespace {

struct MethodRow {
    const char* name;
    const char* asks; // when the request fails
    Meaning (*meaning)(const Request& request, MeaningMemory* memory);
};

} // namespace

static const MethodRow g_methods[] = {
    {"LIDCLOSEACTIONNONE", "lid-close action", lid_action},
    {"SETLIDBEEP", "lid beep", lid_beep},
    {"MHKV", "interface of hot keys", hotkey_version},
    {"MHKA", "hot keys that can be handed over", hotkeys_announced},
    {"MHKN", "hot keys handed over", hotkeys_handed},
    {"QCPULEVELCTRL", "idle-state control", cpu_query},
    {"CSTATESELECT", "idle state", cpu_selected},
    {"CSTATEPARAMS", "idle state", cpu_select},
    {"TABGETSTATE", "tablet state", tablet_state},
    {"PWMGET", "panel frequency", panel_wants},
    {"PWMSET", "panel frequency", panel_has},
    {"GETLIDSTATUS", "lid", lid_status},
    {"LCDCSGETSTATE", "lid inhibit", inhibit_state},
    {"LCDCSCONTROL", "lid inhibit", inhibit_control},
    {"DOCKMODE", "dock", dock_mode},
    {"GMMS", "posture", posture},
    {"DYTC", "thermal control", thermal},
    {"GOPT", "option", option},
    {"THERMALMODE", "hinge angle", thermal_mode},
    {"DGPUTEMP", "graphics temperature", graphics},
    {"CONNECT", "driver", connect},
    {"GETEVENT", "event", fetched},
    {"MHKM", "mode of a hot key", hotkey_mode},
    {"GETTIMERRESOL", "timer resolution", timer},
    {"REGISTEREVENTS", "driver's events", events_registered},
    {"UNREGISTEREVENTS", "driver's events", events_left},
    {"SYSTEMFAMILY", "family of the system", family},
    {"MOUSEDATA", "pointing stick", pointing_stick},
};

Meaning request_meaning(std::string_view text, MeaningMemory* memory) {
    const CallText call = read_call(text);
    for (const MethodRow& row : g_methods) {
        if (!same_text(row.name, call.name))
            continue;
        if (call.failed)
            return {std::string(row.asks) + ": fails"};
        return row.meaning(
            {number_in(call.arguments), number_in(call.arguments, 1), number_in(call.answer), false}, memory);
    }
    return {};
}

} // namespace sim
