// What the registry's values mean.
#include <zorpm/zorpm.h>

#include "sim/machine/text.h"
#include "sim/tool/meanings.h"
#include "sim/tool/words.h"

namespace sim {

namespace {

struct Change {
    std::uint32_t now;
    std::uint32_t before;
    std::string_view text; // the data as it is shown
};

struct KeyRow {
    const wchar_t* path; // "" in front of it stands HKLM
    const char* words;
};

struct ValueRow {
    const wchar_t* path;
    const wchar_t* value; // null: the default value
    const char* words;    // in front of what `show` gives
    std::string (*show)(const Change& change);
    Lane lane = Lane::None;
    Weight weight = Weight::Full;
};

} // namespace

// ---- ways to show data ----

static std::string nothing(const Change&) {
    return "";
}

static std::string number(const Change& change) {
    return std::to_string(change.now);
}

static std::string hexadecimal(const Change& change) {
    return format("0x%x", change.now);
}

static std::string yes_or_no(const Change& change) {
    return change.now != 0 ? "yes" : "no";
}

static std::string on_or_off(const Change& change) {
    return change.now != 0 ? "on" : "off";
}

static std::string seconds(const Change& change) {
    return std::to_string(change.now) + " s";
}

static std::string text(const Change& change) {
    return std::string(change.text);
}

static std::string posture_shown(const Change& change) {
    return posture_words(change.now);
}

static std::string mode_name(const Change& change) {
#define POSTURE(number, name, mode, words)                                                                   \
    if (change.text == '"' + narrow(mode) + '"')                                                             \
        return words;
    ZORPM_POSTURES(POSTURE)
#undef POSTURE
    return "unknown posture";
}

static std::string lid_shown(const Change& change) {
    static const Word rows[] = {
        {ZORPM_LID_UNKNOWN, "unknown"}, {ZORPM_LID_CLOSED, "closed"}, {ZORPM_LID_OPEN, "open"}};
    return word(rows, change.now);
}

static std::string keys_of_page_1(const Change& change) {
    return keys_words(change.now, 1);
}

static std::string keys_of_page_2(const Change& change) {
    return keys_words(change.now, 33);
}

static std::string bits_shown(const Change& change) {
    return std::to_string(__builtin_popcount(change.now)) + " events";
}

// The bits that differ from before, each by `name`.
template <typename Name> static std::string flipped(const Change& change, Name name) {
    std::string words;
    for (std::uint32_t bit = 0; bit < 32; ++bit) {
        if (((change.now ^ change.before) >> bit & 1) != 0)
            words += (words.empty() ? "flipped bit " : ", ") + std::to_string(bit) + ": " + name(bit + 1);
    }
    return !words.empty() ? words : change.now == 0 ? "no bit is set" : "no bit flipped";
}

static std::string pressed_on_page_1(const Change& change) {
    return flipped(change, [](std::uint32_t k) { return "hot key " + std::to_string(k); });
}

static std::string pressed_on_others(const Change& change) {
    return flipped(change, [](std::uint32_t k) { return "hot key " + std::to_string(k + 32); });
}

static const Word g_type2[] = {
#define NOTIFICATION(k, name, code, words) {k, words},
    ZORPM_TYPE2_NOTIFICATIONS(NOTIFICATION)};
static const Word g_type22[] = {ZORPM_TYPE22_NOTIFICATIONS(NOTIFICATION)};
#undef NOTIFICATION

static std::string type2_shown(const Change& change) {
    return flipped(change, [](std::uint32_t k) { return word(g_type2, k, "notification"); });
}

static std::string type22_shown(const Change& change) {
    return flipped(change, [](std::uint32_t k) { return word(g_type22, k, "notification"); });
}

static std::string option_shown(const Change& change) {
    static const Word rows[] = {{ZORPM_TIO_OPTION_NONE, "none"}, {ZORPM_TIO_OPTION_ATTACHED, "attached"}};
    return word(rows, change.now);
}

static std::string docked_shown(const Change& change) {
    return change.now != 0 ? "docked" : "undocked";
}

static std::string system_setting(const Change& change) {
    static const Word rows[] = {{0, "switched off"}};
    return change.now == 0 ? rows[0].words : "switched on";
}

static std::string transformation_shown(const Change& change) {
    return change.now != 0 ? "notebook" : "tablet";
}

static std::string bytes(const Change& change) {
    return std::to_string(change.text.size() / 2) + " bytes";
}

// ---- the tables ----

#define SHORTCUTS L"SOFTWARE\\Mestra\\ShortCutKey\\AppLaunch\\Ex_"
#define PAGES     ZORPM_SERVICE_KEY L"\\Parameters2"
#define DEFAULTS  L"HKU\\.DEFAULT\\Control Panel\\PowerCfg\\"
#define STORE     L"HKCR\\" ZORPM_HELPER_STORE

// The first that the path begins with.
static const KeyRow g_keys[] = {
    {ZORPM_CPU_KEY, "control of the processor's idle states"},
    {ZORPM_CAPABILITY_KEY, "capabilities"},
    {ZORPM_HOTKEY_VERSION_KEY, "version of the hot keys"},
    {ZORPM_HOTKEY_CAPABILITY_KEY, "capabilities of the hot keys"},
    {ZORPM_HOTKEY_SETTING_KEY, "hot keys that clients want"},
    {ZORPM_HOTKEY_OVERRIDE_KEY, "hot keys that clients take over"},
    {ZORPM_NOTIFICATION_KEY, "notifications"},
    {ZORPM_SERVICE_KEY L"\\Parameters", "hot keys of page 1, events"},
    {ZORPM_TYPE20_CAPABILITY_KEY, "more events"},
    {ZORPM_TYPE20_NOTIFICATION_KEY, "notifications of more events"},
    {PAGES, "hot keys of pages 2 and 3"},
    {ZORPM_POSTURE_KEY, "posture and lid"},
    {ZORPM_TRANSFORM_SETTINGS_KEY, "settings of the posture switching"},
    {ZORPM_MULTIMODE_KEY, "posture, for other programs"},
    {ZORPM_DOLBY_KEY, "posture, for the audio software"},
    {ZORPM_SERVICE_KEY L"\\Configurations", "screen rotation"},
    {ZORPM_STATUS_KEY, "status"},
    {ZORPM_AUTOROTATION_KEY, "the system's screen rotation"},
    {ZORPM_COOLING_V2_KEY, "cooling, interface 2"},
#define FUNCTION(bit, subkey, name, status)                                                                  \
    {ZORPM_COOLING_V3_KEY L"\\"                                                                              \
                          L"" #subkey,                                                                       \
     name},
    ZORPM_COOLING_FUNCTIONS(FUNCTION)
#undef FUNCTION
        {ZORPM_COOLING_V3_KEY, "cooling, interface 3"},
    {STORE, "store of the helper"},
    {DEFAULTS L"GlobalPowerPolicy", "the default user's power policy"},
    {DEFAULTS L"PowerPolicies", "the default user's power policy"},
    {SHORTCUTS, "keys that start a program"},
};

// The thermal functions have the same two values each, behind their name.
static const ValueRow g_values[] = {
    {ZORPM_CAPABILITY_KEY, ZORPM_CAPABILITY_LID_BEEP, "lid beep is supported: ", yes_or_no},
    {ZORPM_CAPABILITY_KEY, ZORPM_CAPABILITY_CODES, "groups of control codes: ", hexadecimal},
    {ZORPM_CAPABILITY_KEY, ZORPM_CAPABILITY_HIBERFILE, "hibernation file may be made: ", yes_or_no},
    {ZORPM_HOTKEY_VERSION_KEY, nullptr, "version of the hot keys: ", hexadecimal},
    {ZORPM_HOTKEY_CAPABILITY_KEY, nullptr, "can be handed over: ", keys_of_page_1},
    {ZORPM_HOTKEY_CAPABILITY_KEY, ZORPM_HOTKEY_INTERNAL, "have an action of the service: ", keys_of_page_1},
    {ZORPM_HOTKEY_CAPABILITY_KEY, ZORPM_HOTKEY_CAN_BE_OVERRIDDEN, "can be taken over: ", keys_of_page_1},
    {ZORPM_HOTKEY_CAPABILITY_KEY, ZORPM_HOTKEY_EVENTS, "notified: ", bits_shown},
    {ZORPM_HOTKEY_SETTING_KEY, nullptr, "handed to clients: ", keys_of_page_1},
    {ZORPM_HOTKEY_OVERRIDE_KEY, nullptr, "taken over by clients: ", keys_of_page_1},
    {ZORPM_NOTIFICATION_KEY, nullptr, "", pressed_on_page_1},
    {ZORPM_NOTIFICATION_KEY, ZORPM_TYPE2, "", type2_shown, Lane::None, Weight::Follows},
    {ZORPM_PAGES_CAPABILITY_KEY, ZORPM_TYPE12, "page 2 can hand over: ", keys_of_page_2},
    {ZORPM_PAGES_CAPABILITY_KEY, ZORPM_TYPE13, "page 3 can hand over: ", keys_of_page_2},
    {ZORPM_PAGES_SETTING_KEY, nullptr, "page 2, handed to clients: ", keys_of_page_2},
    {ZORPM_PAGES_SETTING_KEY, ZORPM_TYPE11, "reserved", nothing},
    {ZORPM_PAGES_SETTING_KEY, ZORPM_TYPE12, "page 2, handed over at the start: ", keys_of_page_2},
    {ZORPM_PAGES_SETTING_KEY, ZORPM_TYPE13, "page 3, handed to clients: ", keys_of_page_2},
    {ZORPM_PAGES_OVERRIDE_KEY, nullptr, "pages 2 and 3, taken over: ", keys_of_page_2},
    {ZORPM_PAGES_NOTIFICATION_KEY, ZORPM_TYPE11, "reserved", nothing},
    {ZORPM_PAGES_NOTIFICATION_KEY, ZORPM_TYPE12, "page 2, ", pressed_on_others},
    {ZORPM_PAGES_NOTIFICATION_KEY, ZORPM_TYPE13, "page 3, ", pressed_on_others},
    {ZORPM_TYPE20_CAPABILITY_KEY, ZORPM_TYPE21, "reserved", nothing},
    {ZORPM_TYPE20_CAPABILITY_KEY, ZORPM_TYPE22, "more events: ", bits_shown},
    {ZORPM_TYPE20_NOTIFICATION_KEY, ZORPM_TYPE21, "reserved", nothing},
    {ZORPM_TYPE20_NOTIFICATION_KEY, ZORPM_TYPE22, "", type22_shown, Lane::None, Weight::Follows},
    {ZORPM_POSTURE_KEY, ZORPM_POSTURE, "posture: ", posture_shown, Lane::Posture},
    {ZORPM_POSTURE_KEY, ZORPM_LID, "lid: ", lid_shown, Lane::Lid, Weight::Follows},
    {ZORPM_MULTIMODE_KEY, ZORPM_MULTIMODE_CURRENT, "posture: ", posture_shown, Lane::None, Weight::Follows},
    {ZORPM_MULTIMODE_KEY, ZORPM_MULTIMODE_PREVIOUS, "before: ", mode_name, Lane::None, Weight::Follows},
    {ZORPM_MULTIMODE_KEY, ZORPM_MULTIMODE_STAMP, "published at ", text, Lane::None, Weight::Follows},
    {ZORPM_MULTIMODE_KEY, ZORPM_MULTIMODE_PREV_STAMP, "before, at ", text, Lane::None, Weight::Follows},
    {ZORPM_DOLBY_KEY, ZORPM_DOLBY_POSTURE, "posture, for the audio software: ", posture_shown, Lane::None,
     Weight::Follows},
    {ZORPM_TRANSFORM_SETTINGS_KEY, L"CurrentSetting", "kept for clients: ", number, Lane::None,
     Weight::Follows},
    {ZORPM_TRANSFORM_SETTINGS_KEY, ZORPM_TRANSFORM_CHECK_BUTTON,
     "indicators left to a button device: ", yes_or_no},
    {ZORPM_TRANSFORM_SETTINGS_KEY, ZORPM_TRANSFORM_CHECK_BUILD, "no indicators on old builds: ", yes_or_no},
    {ZORPM_ROTATION_KEY, ZORPM_ROTATION_HARROW, "Harrow platform: ", yes_or_no},
    {ZORPM_STATUS_KEY, ZORPM_STATUS_LAST, "last told: ", transformation_shown},
    {ZORPM_AUTOROTATION_KEY, ZORPM_AUTOROTATION_ENABLE, "the screen rotates by itself: ", yes_or_no},
    {ZORPM_COOLING_V2_KEY, ZORPM_COOLING_VERSION, "cooling interface ", hexadecimal},
    {ZORPM_COOLING_V2_KEY, ZORPM_COOLING_CAPABILITY, "cooling works here: ", yes_or_no},
    {ZORPM_COOLING_V2_KEY, ZORPM_COOLING_SETTING, "cooling: ", system_setting},
    {ZORPM_COOLING_V2_KEY, ZORPM_COOLING_INIT, "until the mode is set again: ", seconds},
    {ZORPM_COOLING_V2_KEY, ZORPM_COOLING_SPECIAL, "special cooling: ", seconds},
    {ZORPM_COOLING_V3_KEY, ZORPM_COOLING_VERSION, "cooling interface ", hexadecimal},
#define FUNCTION(bit, subkey, name, status)                                                                  \
    {ZORPM_COOLING_V3_KEY L"\\"                                                                              \
                          L"" #subkey,                                                                       \
     ZORPM_COOLING_CAPABILITY, name " works here: ", yes_or_no},                                             \
        {ZORPM_COOLING_V3_KEY L"\\"                                                                          \
                              L"" #subkey,                                                                   \
         ZORPM_COOLING_SETTING, name " is switched ", on_or_off},
    ZORPM_COOLING_FUNCTIONS(FUNCTION)
#undef FUNCTION
        {ZORPM_COOLING_V3_KEY L"\\TIO", ZORPM_COOLING_STATUS, "Two In One: ", on_or_off, Lane::None,
         Weight::Follows},
    {ZORPM_COOLING_V3_KEY L"\\TIO", ZORPM_TIO_OPTION, "keyboard: ", option_shown, Lane::None,
     Weight::Follows},
    {ZORPM_COOLING_V3_KEY L"\\TIO", ZORPM_TIO_ON_HAND, "held in the hand: ", yes_or_no, Lane::None,
     Weight::Follows},
    {ZORPM_COOLING_V3_KEY L"\\MPH", ZORPM_COOLING_STATUS, "Multi Pivo Hinge: ", posture_shown, Lane::None,
     Weight::Follows},
    {ZORPM_COOLING_V3_KEY L"\\CQH", ZORPM_COOLING_STATUS, "Cool Quiet Hinge: mode ", number, Lane::None,
     Weight::Follows},
    {ZORPM_COOLING_V3_KEY L"\\DCC", ZORPM_COOLING_STATUS, "Dynamic Cpu Control: level ", number, Lane::None,
     Weight::Follows},
    {ZORPM_COOLING_V3_KEY L"\\DMC", ZORPM_COOLING_STATUS, "Dock Mode Control: ", docked_shown, Lane::None,
     Weight::Follows},
    {ZORPM_COOLING_V3_KEY L"\\FHP", ZORPM_COOLING_STATUS, "Force High Performance: ", on_or_off, Lane::None,
     Weight::Follows},
    {ZORPM_CPU_KEY, ZORPM_CPU_WANTED, "idle states are controlled: ", yes_or_no},
    {ZORPM_CPU_KEY, ZORPM_CPU_USE, "by the values here: ", yes_or_no},
    {ZORPM_CPU_KEY, ZORPM_CPU_POLLING, "between two looks: ", seconds},
    {ZORPM_CPU_KEY, ZORPM_CPU_THRESHOLD, "threshold for C4: ", number},
    {STORE L"\\" ZORPM_HELPER_POLICIES, ZORPM_HELPER_SCHEME_INDEX, "index of the active scheme", nothing},
    {STORE L"\\" ZORPM_HELPER_POLICIES, ZORPM_HELPER_POLICY, "user's part of the active scheme: ", bytes},
    {STORE L"\\" ZORPM_HELPER_GLOBAL, ZORPM_HELPER_POLICY, "global power policy: ", bytes},
    {DEFAULTS L"GlobalPowerPolicy", L"Policies", "the default user's global policy: ", bytes},
};

// ---- looking up ----

// A path of zorpm.h as the trace shows it.
static std::string shown(const wchar_t* path) {
    std::string text = narrow(path);
    static const std::string service = narrow(ZORPM_SERVICE_KEY);
    if (text.starts_with(service))
        return "SVC" + text.substr(service.size());
    return text.starts_with("HK") ? text : "HKLM\\" + text;
}

static bool begins(std::string_view text, std::string_view with) {
    return text.size() >= with.size() && same_text(text.substr(0, with.size()), with);
}

static const KeyRow* find_key(std::string_view path) {
    for (const KeyRow& row : g_keys) {
        if (begins(path, shown(row.path)))
            return &row;
    }
    return nullptr;
}

static Meaning key_meaning(std::string_view path, const char* what) {
    const KeyRow* row = find_key(path);
    if (row == nullptr)
        return {};
    return {std::string(row->words) + what, Lane::None, "", Weight::Follows};
}

static Meaning value_meaning(std::string_view path, std::string_view value, const Change& change) {
    for (const ValueRow& row : g_values) {
        if (!same_text(path, shown(row.path)) ||
            !same_text(value, row.value != nullptr ? narrow(row.value) : "@"))
            continue;
        const std::string words = row.show(change);
        return {row.words + words, row.lane, words, row.weight};
    }
    // Of a key whose values are all alike.
    for (const wchar_t* alike : {DEFAULTS L"PowerPolicies\\", SHORTCUTS}) {
        if (begins(path, shown(alike)))
            return key_meaning(path, "");
    }
    return {};
}

// "PATH VALUE = DATA", "create PATH", "delete PATH" or "delete PATH VALUE". Paths and names may hold blanks.
Meaning registry_meaning(std::string_view text, MeaningMemory* memory) {
    if (text.starts_with("create "))
        return key_meaning(text.substr(7), ": new");
    const bool deleted = text.starts_with("delete ");
    if (deleted)
        text.remove_prefix(7);
    const size_t equals = text.find(" = ");
    const std::string_view where = text.substr(0, equals);
    const std::string name = lower(where);
    if (deleted) {
        memory->values.erase(name);
        return key_meaning(where, ": gone");
    }
    const size_t blank = where.rfind(' ');
    if (equals == std::string_view::npos || blank == std::string_view::npos)
        return {};
    const std::string_view data = text.substr(equals + 3);
    const Change change = {number_in(data), memory->values[name], data};
    memory->values[name] = change.now;
    return value_meaning(where.substr(0, blank), where.substr(blank + 1), change);
}

} // namespace sim
