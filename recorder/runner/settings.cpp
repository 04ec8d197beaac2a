#include "recorder/runner/settings.h"

#include <algorithm>
#include <map>

#include "recorder/lines.h"

namespace runner {

using lines::small;

static std::map<std::string, DWORD> g_settings;
static std::map<std::string, DWORD>
    g_refused; // rights by path, small letters, each name followed by a backslash

DWORD setting(const std::string& name, DWORD otherwise) {
    const auto found = g_settings.find(name);
    return found != g_settings.end() ? found->second : otherwise;
}

void set_setting(const std::string& name, DWORD value) {
    g_settings[name] = value;
}

static std::string g_failing;

void fail_next(const std::string& call) {
    g_failing = call;
}

bool told_to_fail(const std::string& call, DWORD error) {
    if (g_failing != call)
        return false;
    g_failing.clear();
    SetLastError(error);
    return true;
}

static std::string plain_path(const std::string& path) {
    static const char service[] = "hklm\\system\\currentcontrolset\\services\\zorpmsvc\\";
    std::string plain = small(path) + "\\";
    for (size_t twice = plain.find("\\\\"); twice != std::string::npos; twice = plain.find("\\\\"))
        plain.erase(twice, 1);
    return plain.starts_with("svc\\") ? service + plain.substr(4) : plain;
}

void refuse_key(const std::string& path, DWORD rights) {
    g_refused[plain_path(path)] |= rights;
}

bool key_refused(const std::string& path, REGSAM access) {
    const std::string plain = plain_path(path);
    return std::any_of(g_refused.begin(), g_refused.end(), [&](const auto& row) {
        return plain.starts_with(row.first) && (row.second == MAXDWORD || (row.second & access) != 0);
    });
}

} // namespace runner
