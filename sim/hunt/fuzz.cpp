// fuzz: hostile input. Every name that the service reads, asks for or is started with gets anything: the
// names are those that it used while the scripts of scenarios/ and tests/fuzz/ ran.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <set>

#include "sim/hunt/machines.h"
#include "sim/hunt/runner.h"
#include "sim/machine/machine.h"
#include "sim/notebook/driver.h"
#include "sim/script/scenario.h"
#include "sim/script/source.h"
#include "sim/script/tokens.h"

namespace hunt {

static const char g_attacks[] = R"(
story:
    *2 $machine; $attack*1-8; start; $touch; $touch; check resources; $touch; check resources; $stopped
    *2 $machine; $good; start; $touch; $attack*1-6; $touch; check resources; $touch; check resources; $stopped
    *6 $base; $stopped
    $machine; $attack*0-3; $run*1-4; advance 1m

data:
    *9 raw {1|2|3|4|7|7|0|5|11|4294967295} $hex
    *2 {sz|expand} $text
    *5 multi {$text|"%SystemDrive%\x.inf"|"C:\Windows\inf\$word.inf"} $text
answer_data:
    *2 $word bytes {0-9|80|4096|65535|4294967295}
    $word
attack:
    *16 registry set $value $data
    registry {delete|refuse} $key
    registry delete $value
    *6 firmware $method = $answer_data
    firmware $method fails
    firmware $method({0-3|256|512|$word}) = $word
    event $word $word
    *2 $ini
    hardware $hardware {present|unended|growing|absent}
    hardware nameless
    *2 $run
    windows account {anna|$word} S-1-{5-21-1-2-3-1001|5|$word|5-18-4294967295}
    windows hive "C:\Users\Anna\ntuser.dat" "Control Panel\PowerCfg{|\PowerPolicies\4|\PowerPolicies\$word}" {CurrentPowerPolicy|Policies} {sz $text|binary $hex}
    device {slate|dock} = $word
    windows time "{0001|1600|1999|2021|9999}-{01|12|02}-{01|28} {00|23}:59:59"

run:
    *2 run $text {|session 2|session 0}
    run "{-helper|-PnPTask|-helper -PnPTask|/helper|-HELPER |}{|$junk}" {|session 2}
    *3 $control_line {|$text|$word}
    run "zorpmctl" $text $text
    helper {1-7|$word} $word

touch:
    event 0x5001; event 0x5002; event 0x4012; event 0x4013; event 0x60C0; event 0x60F0; event 0x1005; event 0x100C; handler power resume; control 133; control 134; control 135; control 139; event 0x2013; advance 20s; registry set SVC\Parameters\CurrentSetting @ dword 5; registry set SVC\Parameters\OverrideSetting @ dword 5; advance 1m; control 138; event 0x6012; event 0x2304; advance 4m; helper 1; helper close; control 131; advance 1s; control 132; advance 6m; input key; advance 1s; input key; advance 1s; input key; advance 1m
stopped:
    repeat 60; handler 3; end; $fast; firmware CONNECT takes 0ms; advance 15m; stop; advance 15m; check status STOPPED
)";

namespace {

// What the service has used.
struct Names {
    std::set<std::string> values; // "KEY VALUE", as a script writes it
    std::set<std::string> keys;
    std::set<std::string> methods;
    std::set<std::string> ini; // "PATH" SECTION KEY
    std::vector<std::string> hardware;
    std::vector<std::string> control_lines;
};

// What drives the machine in a script, and the values that the service reads there.
struct Base {
    std::string text;
    std::set<std::string> values;
};

} // namespace

static Names g_names;
static Base* g_base = nullptr; // of this case; null: none
static Tables g_tables;
static std::vector<std::string> g_scripts; // whole
static std::vector<Base> g_bases;          // of the scripts, and of what has reached something new
static bool g_bGrows = true;               // with it, what comes depends on what came before

// ---- names ----

static std::string quoted(const std::string& text) {
    return text.find_first_of(" \t#") != std::string::npos || text.empty() ? '"' + text + '"' : text;
}

static std::vector<std::string> parts_of(const std::string& text, const char* between) {
    std::vector<std::string> parts;
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find(between, at), text.size());
        parts.push_back(text.substr(at, end - at));
        at = end + std::strlen(between);
    }
    return parts;
}

static void learn_name(const sim::TraceLine& line) {
    const std::string& text = line.text;
    const size_t bracket = text.find('(');
    if (text.starts_with("query ")) {
        const size_t blank = text.rfind(' ');
        const std::string value = quoted(text.substr(6, blank - 6)) + " " + text.substr(blank + 1);
        g_names.values.insert(value);
        g_bases.back().values.insert(value);
    } else if (text.starts_with("Reg") && bracket != std::string::npos &&
               text.find(", 0x") != std::string::npos) {
        g_names.keys.insert(quoted(text.substr(bracket + 1, text.rfind(", 0x") - bracket - 1)));
    } else if (text.starts_with("request ") && bracket != std::string::npos) {
        g_names.methods.insert(text.substr(8, bracket - 8));
    } else if (text.starts_with("GetPrivateProfileIntW(")) {
        const std::vector<std::string> parts =
            parts_of(text.substr(bracket + 1, text.size() - bracket - 2), ", ");
        if (parts.size() == 3)
            g_names.ini.insert('"' + parts[0] + "\" " + quoted(parts[1]) + " " + quoted(parts[2]));
    }
}

// The lines of a script that act, without what only looks.
static std::string driving_lines(const std::string& script) {
    std::string driving;
    for (const std::string& line : parts_of(script, "\n")) {
        const size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos)
            continue;
        const std::string text = line.substr(first);
        const std::string word = text.substr(0, text.find(' '));
        if (word == "hardware" && text.find('"') != text.rfind('"'))
            g_names.hardware.push_back(text.substr(text.find('"'), text.rfind('"') - text.find('"') + 1));
        if (text.starts_with("run \"zorpmctl\""))
            g_names.control_lines.push_back(text);
        if (word != "expect" && word != "check" && word != "mark" && word != "say" && word != "show")
            driving += text + "\n";
    }
    return driving;
}

static void learn_from(const std::string& script) {
    g_scripts.push_back(script);
    g_bases.push_back({driving_lines(script), {}});
    sim::Machine machine;
    machine.keep_details = true;
    machine.on_line = learn_name;
    sim::run_text(g_bases.back().text);
}

// ---- hostile data ----

static std::string bytes_of_wide(const std::string& text, bool end) {
    std::string bytes;
    for (const char c : text + (end ? std::string(1, '\0') : ""))
        bytes.append(1, c).append(1, '\0');
    return bytes;
}

static std::string draw_bytes(Draw& draw) {
    static const size_t lengths[] = {0,  1,   2,   3,   4,   5,   7,   8,   9,   12,   16,   40,   80,   84,
                                     88, 255, 256, 519, 520, 521, 522, 524, 600, 1024, 4095, 4096, 20000};
    static const char* const texts[] = {
        "4",  "-1",   "99999999999", "S-1-5-21-1-2-3-1001",        "%SystemDrive%\\Users",
        "%",  "%%%%", "..\\..\\x",   "%SystemDrive%%SystemDrive%", "\\",
        "GD1"};
    std::string bytes;
    const size_t length = draw.from(lengths);
    switch (draw.below(4)) {
    case 0:
        return std::string(length, static_cast<char>(draw.one_in(2) ? 0xFF : draw.below(256)));
    case 1:
        while (bytes.size() < length)
            bytes += static_cast<char>(draw.below(256));
        return bytes;
    case 2: // a text that comes again and again, with or without its end
        bytes = bytes_of_wide(draw.from(texts), false);
        for (size_t one = bytes.size(); bytes.size() < length && one != 0;)
            bytes += bytes.substr(0, one);
        return bytes + (draw.one_in(2) ? std::string(2, '\0') : "") + (draw.one_in(4) ? "x" : "");
    default:
        return bytes_of_wide(draw.from(texts), draw.one_in(2));
    }
}

static std::string make_hex(Draw& draw) {
    std::string hex;
    for (const char c : draw_bytes(draw))
        hex += sim::format("%02x", static_cast<unsigned char>(c));
    return hex.empty() ? "\"\"" : hex;
}

// Of bytes that a script's quotes can hold.
static std::string make_junk(Draw& draw) {
    static const char* const words[] = {
        "-helper",    "-PnPTask",         "%s%n", "\\\\?\\", "C:\\", " ", "  -",
        "\xC3\xA4",   "\xF0\x9F\x98\x80", "\xFF", "\x01",    "=",    ",", "0x",
        "4294967296", "-2147483649",      "A",    "'",       "\t"};
    static const size_t most[] = {1, 2, 3, 8, 40, 130, 131, 260, 2000};
    std::string text;
    for (std::uint64_t count = draw.below(draw.from(most) + 1); count > 0; --count)
        text += draw.from(words);
    return text;
}

template <class List> static Maker one_of(const List& list) {
    return [&list](Draw& draw) {
        return list.empty() ? std::string("x")
                            : *std::next(list.begin(), static_cast<std::ptrdiff_t>(draw.below(list.size())));
    };
}

// ---- scripts as bytes ----

static void spoil(std::string* text, Draw& draw) {
    static const char* const pieces[] = {"\r\n",
                                         "\xEF\xBB\xBF",
                                         "\"",
                                         "#",
                                         "\n\n",
                                         "4294967296",
                                         "99999999999999999999",
                                         "0x",
                                         "-1",
                                         "together\n",
                                         "end\n",
                                         "repeat 3\n",
                                         "within 5ms ",
                                         "include -\n",
                                         "*",
                                         "expect ",
                                         "\xFF\xFE",
                                         "9d",
                                         "bytes 4294967295",
                                         "times 0",
                                         "(",
                                         ")",
                                         "= "};
    const size_t at = draw.below(text->size() + 1);
    const size_t span = std::min<size_t>(draw.below(64), text->size() - at);
    switch (draw.below(7)) {
    case 0:
        text->erase(at, span);
        break;
    case 1:
        text->insert(at, draw.from(pieces));
        break;
    case 2:
        text->insert(at, std::string(1, static_cast<char>(draw.below(256))));
        break;
    case 3:
        text->insert(at, text->substr(draw.below(text->size() + 1), span));
        break;
    case 4: // a long line, or a long word
        text->insert(at, std::string(draw.one_in(4) ? 65536 : draw.below(3000), draw.one_in(2) ? 'x' : '9'));
        break;
    case 5: { // many lines
        const std::string again = text->substr(at, span) + "\n";
        for (std::uint64_t count = draw.one_in(100) ? 8000000 / again.size() : draw.below(500); count > 0;
             --count)
            *text += again;
        break;
    }
    default:
        if (at < text->size())
            (*text)[at] = static_cast<char>(draw.below(256));
    }
}

// Whether it says how long to go on with numbers that may be large, or reads other files.
static bool may_take_long(const std::string& text) {
    unsigned digits = 0;
    for (const char c : text) {
        digits = std::isdigit(static_cast<unsigned char>(c)) != 0 ? digits + 1 : 0;
        if (digits > 3)
            return true;
    }
    return text.size() > 100000 || text.find("repeat") != std::string::npos ||
           text.find('d') != std::string::npos;
}

static void run_bytes(Case& seed) {
    std::string text = seed.draw.from(g_scripts);
    const size_t first = seed.draw.below(text.size());
    if (seed.draw.one_in(2))
        text = text.substr(first, seed.draw.below(2000));
    for (std::uint64_t count = 1 + seed.draw.below(12); count > 0; --count)
        spoil(&text, seed.draw);
    play_bytes(seed, text, !may_take_long(text));
}

// ---- one case ----

// A value of the script that is attacked, mostly; or any.
static std::string make_value(Draw& draw) {
    const bool own = g_base != nullptr && !g_base->values.empty() && !draw.one_in(4);
    return one_of(own ? g_base->values : g_names.values)(draw);
}

// The same value or answer with other data; other lines stay as they are.
static std::string with_other_data(std::string line, Draw& draw) {
    std::vector<sim::RawToken> tokens;
    std::string text = line;
    if (!sim::split(&text, &tokens) || tokens.size() < 4)
        return line;
    const std::string& word = tokens[0].token.text;
    if (word == "registry" && tokens.size() > 5)
        return text.substr(0, tokens[3].end) + " " + draw_row(g_tables, "data", draw);
    if (word == "firmware" && tokens[2].token.text == "=")
        return text.substr(0, tokens[2].end) + " " + draw_row(g_tables, "answer_data", draw);
    return line;
}

// A known script with attacks anywhere.
static std::string make_base(Draw& draw) {
    g_base = &g_bases[draw.below(g_bases.size())];
    std::vector<std::string> lines = parts_of(g_base->text, "\n");
    for (std::string& line : lines) {
        if (draw.one_in(6))
            line = with_other_data(line, draw);
    }
    for (std::uint64_t count = 1 + draw.below(6); count > 0; --count)
        lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(draw.below(lines.size() + 1)),
                     draw_row(g_tables, "attack", draw));
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

static bool g_newKind = false; // this case has reached something

// Without numbers, all lines of one place in the sources are alike.
static void look_for_new_kind(const sim::TraceLine& line) {
    std::uint64_t hash = sim::HASH_START;
    for (const char c : line.text) {
        if (std::isdigit(static_cast<unsigned char>(c)) == 0)
            hash = (hash ^ static_cast<unsigned char>(c)) * sim::HASH_PRIME;
        if (c == '=')
            break;
    }
    g_newKind = note_kind(hash) || g_newKind;
}

// By the interface, a polling duration of 0 lets the processor's monitor ask without pause: it is ended when
// that has been seen.
static void end_busy_monitor() {
    sim::set_answer_hook([passes = 0](const std::string& method, DWORD, sim::Answer* answer) mutable {
        constexpr int most = 20000;
        answer->fails = method == "GETTIMERRESOL" && ++passes > most;
        return answer->fails;
    });
}

static void run(Case& seed) {
    constexpr size_t most_bases = 1000;
    end_busy_monitor();
    if (seed.draw.one_in(8))
        return run_bytes(seed);
    g_newKind = false;
    g_base = nullptr;
    sim::machine().keep_details = true;
    sim::machine().on_line = look_for_new_kind;
    const std::string text = draw_row(g_tables, "story", seed.draw);
    if (play(seed, text) && g_newKind && g_bGrows && g_bases.size() < most_bases)
        g_bases.push_back(
            {driving_lines(text), g_base != nullptr ? g_base->values : std::set<std::string>()});
}

static void begin(const Limits& limits) {
    g_bGrows = limits.seed == 0;
    for (const char* folder : {"scenarios", "tests/fuzz"}) {
        std::error_code none;
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(folder, none))
            files.push_back(entry.path());
        std::sort(files.begin(), files.end());
        for (const std::string& file : files) {
            std::string text;
            if (sim::read_script(file, &text).empty())
                learn_from(text);
        }
    }
    g_tables = read_tables(std::string(g_machines) + g_attacks);
    g_tables.makers = {
        {"value", make_value},
        {"key", one_of(g_names.keys)},
        {"method", one_of(g_names.methods)},
        {"hardware", one_of(g_names.hardware)},
        {"control_line", one_of(g_names.control_lines)},
        {"ini", [](Draw& draw) { return "ini line " + one_of(g_names.ini)(draw) + "=" + make_junk(draw); }},
        {"hex", make_hex},
        {"junk", make_junk},
        {"text", [](Draw& draw) { return '"' + make_junk(draw) + '"'; }},
        {"base", make_base}};
}

const Generator g_fuzz = {
    "fuzz", "hostile input: registry, answers, INI, command lines, hardware ids, scripts", begin, run, 60, 0,
    300};

} // namespace hunt
