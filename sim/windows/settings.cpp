// Settings files (INI) and environment variables.
#include <cstdlib>
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
    {"systemdrive", "C:"},
    {"systemroot", "C:\\Windows"},
    {"windir", "C:\\Windows"},
    {"programfiles", "C:\\Program Files"},
    {"userprofile", "C:\\Windows\\system32\\config\\systemprofile"},
};

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

} // namespace sim

using namespace sim;

extern "C" {

UINT WINAPI GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT otherwise, LPCWSTR path) {
    SIM_VISIT();
    trace_detail("GetPrivateProfileIntW(%s)", narrow(path).c_str());
    const auto& values = machine_state<Settings>().values;
    const auto found = values.find(place(narrow(path), narrow(section), narrow(key)));
    return found != values.end() ? static_cast<UINT>(std::atoi(found->second.c_str()))
                                 : static_cast<UINT>(otherwise);
}

DWORD WINAPI ExpandEnvironmentStringsW(LPCWSTR from, LPWSTR to, DWORD characters) {
    SIM_CALL(0, ERROR_NOT_ENOUGH_MEMORY);
    const std::string text = expand(narrow(from));
    put_wide(to, characters, text);
    return static_cast<DWORD>(widen(text).size() + 1);
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

static const Commands g_commands({{"ini", Use::Machine, compile_ini}});

} // namespace sim
