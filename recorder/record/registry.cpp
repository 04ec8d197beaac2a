// The registry: what the service writes, and what it finds there that nothing has told of before.
#include <algorithm>
#include <cstring>
#include <map>
#include <vector>
#include <zorpm/zorpm.h>

#include "recorder/lines.h"
#include "recorder/record/calls.h"
#include "recorder/record/journal.h"
#include "recorder/record/known.h"
#include "recorder/record/replaced.h"

namespace record {

using lines::small;

// ---- what is known ----

namespace {

struct Value {
    bool present = false;
    DWORD type = 0;
    std::vector<BYTE> data;

    bool operator==(const Value&) const = default;
};

struct Key {
    bool present = false;
    bool complete = false; // a value that is not among these is absent
    bool whole = false;    // so is a key below it that is not known
    std::map<std::string, Value> values;
};

enum class Presence { Unknown, Present, Absent };

} // namespace

static std::map<std::string, Key> g_keys; // by path, all names in small letters

static std::string parent_of(const std::string& path) {
    const size_t slash = path.rfind('\\');
    return slash != std::string::npos ? path.substr(0, slash) : "";
}

// Below a key that is absent all are.
static Presence presence_of(const std::string& key) {
    for (std::string path = key; !path.empty(); path = parent_of(path)) {
        const auto found = g_keys.find(path);
        if (found == g_keys.end())
            continue;
        if (!found->second.present)
            return Presence::Absent;
        if (path == key)
            return Presence::Present;
        if (found->second.whole)
            return Presence::Absent;
    }
    return Presence::Unknown;
}

static Key* know_present(const std::string& key) {
    for (std::string path = parent_of(key); !path.empty(); path = parent_of(path))
        g_keys[path].present = true;
    Key* known = &g_keys[key];
    known->present = true;
    return known;
}

static void know_absent(const std::string& key) {
    const auto below = [&](const auto& row) { return row.first.starts_with(key + "\\"); };
    std::erase_if(g_keys, below);
    g_keys[key] = {};
}

static void tell_key(const std::string& path, bool present) {
    const std::string key = small(path);
    if (presence_of(key) == (present ? Presence::Present : Presence::Absent))
        return;
    command((present ? "registry set " : "registry delete ") + quoted(lines::shown_path(path)));
    if (present)
        know_present(key);
    else
        know_absent(key);
}

// ---- values as arguments of a command ----

static const char* text_kind(DWORD type) {
    return type == REG_SZ ? "sz" : type == REG_EXPAND_SZ ? "expand" : nullptr;
}

// Text that a token of a scenario can hold, with the null at its end and no other.
static bool is_plain(const std::wstring& text) {
    return !text.empty() && text.find(L'\0') == text.size() - 1 &&
           std::none_of(text.begin(), text.end() - 1, [](wchar_t c) { return c < L' ' || c == L'"'; });
}

// Bytes of a text with the names in it replaced, part by part.
static std::wstring replaced_text(const std::wstring& text) {
    std::wstring result;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find(L'\0', at), text.size());
        std::string part = lines::narrow(text.substr(at, end - at).c_str());
        const std::string before = part;
        replace_names(&part);
        result += part == before ? text.substr(at, end - at) : lines::widen(part);
        if (end < text.size())
            result += L'\0';
        at = end + 1;
    }
    return result;
}

static std::string hex_of(const BYTE* data, size_t bytes) {
    std::string text;
    for (size_t i = 0; i < bytes; ++i) {
        static const char digits[] = "0123456789abcdef";
        text += {digits[data[i] >> 4], digits[data[i] & 15]};
    }
    return text;
}

static std::string data_argument(const Value& value) {
    const size_t bytes = value.data.size();
    if (value.type == REG_DWORD && bytes == sizeof(DWORD))
        return "dword " + lines::shown_data(value.type, value.data.data(), static_cast<DWORD>(bytes));
    if (value.type == REG_BINARY)
        return "binary " + hex_of(value.data.data(), bytes);
    const std::string raw = "raw " + std::to_string(value.type) + " ";
    if ((value.type != REG_MULTI_SZ && text_kind(value.type) == nullptr) || bytes % sizeof(wchar_t) != 0)
        return raw + hex_of(value.data.data(), bytes);
    std::wstring text(bytes / sizeof(wchar_t), 0);
    std::memcpy(text.data(), value.data.data(), bytes);
    if (text_kind(value.type) != nullptr && is_plain(text))
        return std::string(text_kind(value.type)) + " \"" + lines::narrow(text.c_str()) + "\"";
    text = replaced_text(text);
    return raw + hex_of(reinterpret_cast<const BYTE*>(text.data()), text.size() * sizeof(wchar_t));
}

// Accounts that the service may look up; from here on their names are replaced.
static void note_names(const std::string& name, const Value& value) {
    if ((name == "altdefaultusername" || name == "altdefaultdomainname") && value.type == REG_SZ) {
        const std::wstring text(reinterpret_cast<const wchar_t*>(value.data.data()),
                                value.data.size() / sizeof(wchar_t));
        note_account(lines::narrow(text.c_str()));
    }
}

static void tell_value(const std::string& path, LPCWSTR name, const Value& value) {
    Key* key = know_present(small(path));
    const std::string shown = lines::value_name(name);
    const auto [found, first] = key->values.try_emplace(small(shown), Value{});
    if ((!first || key->complete) && found->second == value)
        return;
    found->second = value;
    note_names(found->first, value);
    const std::string where = quoted(lines::shown_path(path)) + " " + quoted(shown);
    command(value.present ? "registry set " + where + " " + data_argument(value)
                          : "registry delete " + where);
}

// ---- reading by ourselves ----

static Value read_value(HKEY key, LPCWSTR name) {
    Value value;
    DWORD bytes = 0;
    LSTATUS error = os::RegQueryValueExW(key, name, nullptr, &value.type, nullptr, &bytes);
    do {
        if (error != ERROR_SUCCESS && error != ERROR_MORE_DATA)
            return {};
        value.data.resize(bytes);
        error = os::RegQueryValueExW(key, name, nullptr, &value.type, value.data.data(), &bytes);
    } while (error == ERROR_MORE_DATA);
    value.data.resize(bytes);
    value.present = true;
    return value;
}

static void tell_values(HKEY key, const std::string& path) {
    wchar_t name[256];
    DWORD letters = ARRAYSIZE(name);
    for (DWORD i = 0;
         RegEnumValueW(key, i, name, &letters, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++i, letters = ARRAYSIZE(name))
        tell_value(path, name, read_value(key, name));
    g_keys[small(path)].complete = true;
}

// The values of the service's key itself are the manager's, its key Security too.
static void tell_tree(HKEY above, const wchar_t* name, const std::string& path, bool top) {
    HKEY key = nullptr;
    if (os::RegOpenKeyExW(above, name, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return;
    if (top) {
        know_present(small(path))->whole = fresh_journal(); // on a new machine nothing is below it
    } else {
        tell_key(path, true);
        tell_values(key, path);
    }
    wchar_t below[256];
    DWORD letters = ARRAYSIZE(below);
    for (DWORD i = 0;
         RegEnumKeyExW(key, i, below, &letters, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++i, letters = ARRAYSIZE(below)) {
        if (!top || (lstrcmpiW(below, L"Security") != 0 && lstrcmpiW(below, L"Enum") != 0))
            tell_tree(key, below, path + "\\" + lines::narrow(below), false);
    }
    os::RegCloseKey(key);
}

// What the service looks for in other keys of HKLM: these values, or all that is below the key.
// clang-format off
static const struct { const wchar_t* path; const wchar_t* values[2]; } g_readKeys[] = {
    {L"HARDWARE\\DESCRIPTION\\System",                              {L"SystemBiosVersion"}},
    {L"HARDWARE\\DESCRIPTION\\System\\BIOS",                        {L"BIOSVersion", L"SystemFamily"}},
    {L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion",            {L"CurrentBuildNumber", L"ReleaseId"}},
    {ZORPM_AUTOROTATION_KEY,                                        {}},
    {ZORPM_CAPABILITY_KEY,                                          {}},
    {ZORPM_MULTIMODE_KEY,                                           {}},
    {ZORPM_DOLBY_KEY,                                               {}},
    {L"SOFTWARE\\Mestra\\ShortCutKey\\AppLaunch",                   {}},
    {L"SOFTWARE\\Wow6432Node\\Mestra\\ENERDSK\\Path",               {L""}},
};
// clang-format on

static void tell_read_key(const wchar_t* path, const wchar_t* const values[2]) {
    const std::string full = "HKLM\\" + lines::narrow(path);
    HKEY key = nullptr;
    const LSTATUS error = os::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key);
    if (error == ERROR_FILE_NOT_FOUND)
        tell_key(full, false);
    if (error != ERROR_SUCCESS)
        return;
    tell_key(full, true);
    for (int i = 0; i < 2 && values[i] != nullptr; ++i)
        tell_value(full, values[i], read_value(key, values[i]));
    os::RegCloseKey(key);
    if (values[0] == nullptr)
        tell_tree(HKEY_LOCAL_MACHINE, path, full, false);
}

void tell_start_values() {
    tell_tree(HKEY_LOCAL_MACHINE, ZORPM_SERVICE_KEY, "HKLM\\" + lines::narrow(ZORPM_SERVICE_KEY), true);
    for (const auto& row : g_readKeys)
        tell_read_key(row.path, row.values);
}

// ---- the calls ----

// A key that could not be opened or created.
static void tell_failed_opening(const char* call, const std::string& path, REGSAM access, LSTATUS error) {
    if (error == ERROR_FILE_NOT_FOUND)
        tell_key(path, false);
    char rights[16];
    std::snprintf(rights, sizeof(rights), " 0x%lx", access);
    const std::string refusal = "registry refuse " + quoted(lines::shown_path(path)) + rights;
    if (error == ERROR_ACCESS_DENIED)
        tell(refusal, refusal);
    outcome(call, error != ERROR_FILE_NOT_FOUND && error != ERROR_ACCESS_DENIED);
}

LSTATUS WINAPI open_key(HKEY key, LPCWSTR path, DWORD options, REGSAM access, HKEY* result) {
    if (!recording())
        return os::RegOpenKeyExW(key, path, options, access, result);
    const Guard guard;
    const LSTATUS error = os::RegOpenKeyExW(key, path, options, access, result);
    const std::string full = lines::joined(key, path);
    if (error != ERROR_SUCCESS) {
        tell_failed_opening("RegOpenKeyExW", full, access, error);
        return error;
    }
    outcome("RegOpenKeyExW", false);
    tell_key(full, true);
    lines::keep_key(*result, full);
    return error;
}

LSTATUS WINAPI create_key(HKEY key, LPCWSTR path, DWORD reserved, LPWSTR key_class, DWORD options,
                          REGSAM access, SECURITY_ATTRIBUTES* security, HKEY* result, DWORD* disposition) {
    if (!recording())
        return os::RegCreateKeyExW(key, path, reserved, key_class, options, access, security, result,
                                   disposition);
    const Guard guard;
    DWORD made = 0;
    const LSTATUS error =
        os::RegCreateKeyExW(key, path, reserved, key_class, options, access, security, result, &made);
    const std::string full = lines::joined(key, path);
    if (error != ERROR_SUCCESS) {
        tell_failed_opening("RegCreateKeyExW", full, access, error);
        return error;
    }
    outcome("RegCreateKeyExW", false);
    if (disposition != nullptr)
        *disposition = made;
    lines::keep_key(*result, full);
    tell_key(full, made != REG_CREATED_NEW_KEY);
    if (made == REG_CREATED_NEW_KEY) {
        know_present(small(full))->complete = true;
        effect("registry create %s%s", lines::shown_path(full).c_str(),
               options == REG_OPTION_VOLATILE ? " volatile" : "");
    }
    return error;
}

LSTATUS WINAPI close_key(HKEY key) {
    if (recording()) { // before the handle's number can be another's
        const Guard guard;
        lines::forget_key(key);
    }
    return os::RegCloseKey(key);
}

LSTATUS WINAPI query_value(HKEY key, LPCWSTR name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* bytes) {
    if (!recording())
        return os::RegQueryValueExW(key, name, reserved, type, data, bytes);
    const Guard guard;
    const LSTATUS error = os::RegQueryValueExW(key, name, reserved, type, data, bytes);
    const bool told = error == ERROR_SUCCESS || error == ERROR_MORE_DATA || error == ERROR_FILE_NOT_FOUND;
    outcome("RegQueryValueExW", !told);
    if (!told)
        return error;
    Value value;
    if (error == ERROR_SUCCESS && type != nullptr && data != nullptr)
        value = {true, *type, std::vector<BYTE>(data, data + *bytes)};
    else if (error != ERROR_FILE_NOT_FOUND)
        value = read_value(key, name);
    tell_value(lines::key_path(key), name, value);
    return error;
}

LSTATUS WINAPI set_value(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD bytes) {
    if (!recording())
        return os::RegSetValueExW(key, name, reserved, type, data, bytes);
    const Guard guard;
    const LSTATUS error = os::RegSetValueExW(key, name, reserved, type, data, bytes);
    outcome("RegSetValueExW", error != ERROR_SUCCESS);
    if (error != ERROR_SUCCESS)
        return error;
    const std::string path = lines::key_path(key);
    know_present(small(path))->values[small(lines::value_name(name))] = {
        true, type, std::vector<BYTE>(data, data + bytes)};
    effect("registry %s %s = %s", lines::shown_path(path).c_str(), lines::value_name(name).c_str(),
           lines::shown_data(type, data, bytes).c_str());
    return error;
}

// What lies below keeps a key from being deleted: one of it is enough.
static void tell_key_below(HKEY above, LPCWSTR path, const std::string& full) {
    HKEY key = nullptr;
    wchar_t name[256];
    DWORD letters = ARRAYSIZE(name);
    if (os::RegOpenKeyExW(above, path, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return;
    if (RegEnumKeyExW(key, 0, name, &letters, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS)
        tell_key(full + "\\" + lines::narrow(name), true);
    os::RegCloseKey(key);
}

LSTATUS WINAPI delete_key(HKEY key, LPCWSTR path) {
    if (!recording())
        return os::RegDeleteKeyW(key, path);
    const Guard guard;
    const LSTATUS error = os::RegDeleteKeyW(key, path);
    const std::string full = lines::joined(key, path);
    outcome("RegDeleteKeyW", false);
    if (error == ERROR_FILE_NOT_FOUND)
        tell_key(full, false);
    else if (error != ERROR_SUCCESS)
        tell_key_below(key, path, full);
    if (error != ERROR_SUCCESS)
        return error;
    know_absent(small(full));
    effect("registry delete %s", lines::shown_path(full).c_str());
    return error;
}

LSTATUS WINAPI load_key(HKEY key, LPCWSTR name, LPCWSTR file) {
    const LSTATUS error = os::RegLoadKeyW(key, name, file);
    if (!recording())
        return error;
    const Guard guard;
    const std::string path = lines::narrow(file);
    if (error == ERROR_SUCCESS)
        command("windows hive \"" + path + "\" Recorded @ dword 0");
    effect("call RegLoadKeyW(\"%s\", \"%s\") = %ld", lines::narrow(name).c_str(), path.c_str(), error);
    return error;
}

LSTATUS WINAPI unload_key(HKEY key, LPCWSTR name) {
    const LSTATUS error = os::RegUnLoadKeyW(key, name);
    if (recording()) {
        const Guard guard;
        effect("call RegUnLoadKeyW(\"%s\") = %ld", lines::narrow(name).c_str(), error);
    }
    return error;
}

LSTATUS WINAPI notify_change(HKEY key, BOOL below, DWORD filter, HANDLE event, BOOL asynchronous) {
    const LSTATUS error = os::RegNotifyChangeKeyValue(key, below, filter, event, asynchronous);
    if (recording()) {
        const Guard guard;
        outcome("RegNotifyChangeKeyValue", error != ERROR_SUCCESS);
    }
    return error;
}

} // namespace record
