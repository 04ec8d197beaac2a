// Settings files (INI) and environment variables.
#include "sim/windows/settings.h"

#include <cctype>
#include <map>

#include "sim/machine/machine.h"
#include "sim/script/commands.h"

namespace sim {

namespace {

struct Settings {
    std::map<std::string, std::string> values; // by "path|section|key", lower case
};

} // namespace

static const std::map<std::string, std::string> g_environment = {
    {"os", "Windows_NT"},
    {"systemdrive", "C:"},
    {"systemroot", "C:\\Windows"},
    {"windir", "C:\\Windows"},
    {"programfiles", "C:\\Program Files"},
    {"userprofile", "C:\\Windows\\system32\\config\\systemprofile"},
};

static const char g_blanks[] = " \t";

static std::string place(const std::string& path, const std::string& section, const std::string& key) {
    return lower(path + "|" + section + "|" + key);
}

// Puts the values in place of %NAME%; what is not known stays.
static std::string expand(const std::string& text) {
    std::string result;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text[at] == '%' ? text.find('%', at + 1) : std::string::npos;
        const auto found = end != std::string::npos
                               ? g_environment.find(lower(text.substr(at + 1, end - at - 1)))
                               : g_environment.end();
        if (found == g_environment.end()) {
            result += text[at++];
            continue;
        }
        result += found->second;
        at = end + 1;
    }
    return result;
}

// A value as the platform hands it out: without blanks around it, then without one pair of quotes.
static std::string without_quotes(const std::string& value) {
    const size_t first = value.find_first_not_of(g_blanks);
    if (first == std::string::npos)
        return {};
    const std::string text = value.substr(first, value.find_last_not_of(g_blanks) - first + 1);
    const bool quoted = text.size() > 1 && (text[0] == '"' || text[0] == '\'') && text.back() == text[0];
    return quoted ? text.substr(1, text.size() - 2) : text;
}

bool add_setting(const std::string& path, const std::string& section, const std::string& line) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos)
        return false;
    std::string key = line.substr(0, equals);
    key.erase(0, key.find_first_not_of(g_blanks));
    key.erase(key.find_last_not_of(g_blanks) + 1);
    machine_state<Settings>().values[place(path, section, key)] = line.substr(equals + 1);
    return true;
}

// The number that a text begins with: blanks, sign, 0x, 0o or 0b, digits. 0 when there is none; what is too
// large wraps.
static UINT leading_integer(const std::string& text) {
    size_t at = 0;
    while (at < text.size() && static_cast<unsigned char>(text[at]) <= ' ')
        ++at;
    const bool negative = at < text.size() && text[at] == '-';
    if (negative || (at < text.size() && text[at] == '+'))
        ++at;
    UINT base = 10;
    for (const auto& [prefix, its_base] : {std::pair("0x", 16u), std::pair("0o", 8u), std::pair("0b", 2u)}) {
        if (text.compare(at, 2, prefix) == 0)
            base = its_base;
    }
    if (base != 10)
        at += 2;
    UINT value = 0;
    for (; at < text.size(); ++at) {
        const auto character = static_cast<unsigned char>(std::tolower(static_cast<unsigned char>(text[at])));
        const UINT digit = std::isdigit(character)    ? character - '0'
                           : std::isxdigit(character) ? character - 'a' + 10u
                                                      : base;
        if (digit >= base)
            break;
        value = value * base + digit;
    }
    return negative ? 0 - value : value;
}

} // namespace sim

using namespace sim;

extern "C" {

UINT WINAPI GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT otherwise, LPCWSTR path) {
    SIM_VISIT();
    trace_detail("GetPrivateProfileIntW(%s, %s, %s)", narrow(path).c_str(), narrow(section).c_str(),
                 narrow(key).c_str());
    const auto& values = machine_state<Settings>().values;
    const auto found = values.find(place(narrow(path), narrow(section), narrow(key)));
    const std::string text = found != values.end() ? without_quotes(found->second) : std::string();
    // A value without text counts as none.
    return text.empty() ? static_cast<UINT>(otherwise) : leading_integer(text);
}

DWORD WINAPI ExpandEnvironmentStringsW(LPCWSTR from, LPWSTR to, DWORD characters) {
    SIM_CALL(0, ERROR_NOT_ENOUGH_MEMORY);
    const std::string text = expand(narrow(from));
    const DWORD needed = static_cast<DWORD>(widen(text).size() + 1);
    // Nobody may rely on what a buffer that is too small has then: it looks like a path.
    put_wide(to, characters, needed <= characters ? text : text.substr(0, characters - 1));
    return needed;
}

} // extern "C"

// ---- commands ----

namespace sim {

static Action compile_ini(Tokens& tokens) {
    const std::string path = tokens.text();
    const std::string section = tokens.word();
    const std::string key = tokens.word();
    const std::string value = tokens.word();
    return [=] { machine_state<Settings>().values[place(path, section, key)] = value; };
}

// KEY=TEXT as it stands in the file, to the end of the line.
static Action compile_ini_line(Tokens& tokens) {
    const std::string path = tokens.text();
    const std::string section = tokens.word();
    std::string line = tokens.rest_of_line;
    line.erase(0, line.find(section, line.find(path) + path.size()) + section.size());
    tokens.at = tokens.list.size();
    if (line.find('=') == std::string::npos)
        tokens.fail("KEY=TEXT expected");
    return [=] { add_setting(path, section, line); };
}

static const Commands g_commands({
    {"ini", Use::Machine, compile_ini, "\"PATH\" SECTION KEY VALUE - a value in an INI file"},
    {"ini line", Use::Machine, compile_ini_line,
     "\"PATH\" SECTION KEY=TEXT - the same as it stands in the file, to the end of the line"},
});

} // namespace sim
