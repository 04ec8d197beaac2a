// The registry: keys as a tree that handles outlive, values as bytes under any type, change notification.
#include "sim/windows/registry.h"

#include "sim/script/scenario.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace sim {

struct Key;
using KeyRef = std::shared_ptr<Key>;

struct Value {
    std::string name; // as first written
    RegistryValue data;
};

struct Key {
    std::string name;
    Key* parent = nullptr;
    bool deleted = false;
    std::map<std::string, KeyRef> children;
    std::map<std::string, Value> values;
};

// Body of a handle: one opening of a key, with the change notification that belongs to it.
struct OpenedKey {
    KeyRef key;
    std::string path;            // as the service named it, for the trace
    ObjectRef event;             // armed while not null
    unsigned waits = 0;          // asked for since the last one was reported
    Thread* armed_by = nullptr;  // whose end is told like a change
    bool subtree = false;        // of the keys below too, and of their coming and going
    bool asked = false;          // a notification has been asked for on this handle
    bool change_pending = false; // a change since the last one was reported
};

struct Registry {
    KeyRef roots[4]; // HKCR, HKCU, HKLM, HKU
    std::vector<OpenedKey*> opened;
    bool remembers_changes = true;
    std::set<std::string> refused; // plain paths, of keys that may not exist
    Registry();
};

static const char g_serviceKey[] = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\ZORPMSVC";
static const char* const g_rootNames[] = {"HKCR", "HKCU", "HKLM", "HKU"};

static Registry& registry() {
    return machine_state<Registry>();
}

static std::vector<std::string> components(const std::string& path) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= path.size()) {
        const size_t end = std::min(path.find('\\', start), path.size());
        if (end > start)
            parts.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

static KeyRef child(Key& key, const std::string& name, bool create, bool* created) {
    auto found = key.children.find(lower(name));
    if (found != key.children.end())
        return found->second;
    if (!create)
        return nullptr;
    auto made = std::make_shared<Key>();
    made->name = name;
    made->parent = &key;
    key.children[lower(name)] = made;
    if (created != nullptr)
        *created = true;
    return made;
}

static KeyRef walk(KeyRef key, const std::vector<std::string>& parts, bool create, bool* created = nullptr) {
    for (const std::string& part : parts) {
        if (key == nullptr)
            return nullptr;
        key = child(*key, part, create, created);
    }
    return key;
}

static std::string with_service_key(const std::string& path) {
    const bool short_form = same_text(path.substr(0, 4), "SVC\\") || same_text(path, "SVC");
    return short_form ? g_serviceKey + path.substr(3) : path;
}

// "SVC\TMC" or "HKLM\..." to the key.
static KeyRef find_key(Registry& reg, const std::string& path, bool create) {
    const std::vector<std::string> parts = components(with_service_key(path));
    if (parts.empty())
        return nullptr;
    for (size_t root = 0; root < ARRAYSIZE(g_rootNames); ++root) {
        if (same_text(parts[0], g_rootNames[root]))
            return walk(reg.roots[root], {parts.begin() + 1, parts.end()}, create);
    }
    return nullptr;
}

static void put(Registry& reg, const std::string& path, const std::string& name, DWORD type,
                std::vector<BYTE> bytes) {
    KeyRef key = find_key(reg, path, true);
    Value& value = key->values[lower(name)];
    if (value.name.empty())
        value.name = name;
    value.data = {type, std::move(bytes)};
}

std::vector<BYTE> wide_bytes(const std::string& text, bool end) {
    std::u16string wide = widen(text);
    if (end)
        wide += u'\0';
    const auto* bytes = reinterpret_cast<const BYTE*>(wide.data());
    return {bytes, bytes + wide.size() * sizeof(char16_t)};
}

Registry::Registry() {
    for (auto& root : roots)
        root = std::make_shared<Key>();
    const std::string bios = "HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS";
    put(*this, bios, "BIOSVersion", REG_SZ, wide_bytes("Q1AET40W"));
    put(*this, bios, "SystemFamily", REG_SZ, wide_bytes("Plain Model"));
    std::vector<BYTE> versions = wide_bytes("QQ - 1");
    versions.insert(versions.end(), {0, 0});
    put(*this, "HKLM\\HARDWARE\\DESCRIPTION\\System", "SystemBiosVersion", REG_MULTI_SZ, versions);
    const std::string windows = "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    put(*this, windows, "CurrentBuildNumber", REG_SZ, wide_bytes("19041"));
    put(*this, windows, "ReleaseId", REG_SZ, wide_bytes("2009"));
    find_key(*this, g_serviceKey, true);
}

// ---- change notification ----

// One call tells of one change: the event is signalled and the handle no longer armed.
static void complete_notification(OpenedKey* opened) {
    if (const ObjectRef event = std::exchange(opened->event, nullptr))
        signal_object(*event);
}

static bool below(const Key* key, const Key* above) {
    while (key != nullptr && key != above)
        key = key->parent;
    return key != nullptr;
}

// `names`: a key has come or gone below it; only the watchers of whole trees ask for that.
static void key_changed(const Key* key, bool names = false) {
    for (OpenedKey* opened : registry().opened) {
        const bool concerned =
            opened->subtree ? below(key, opened->key.get()) : !names && opened->key.get() == key;
        if (!concerned || !opened->asked)
            continue;
        if (opened->event != nullptr)
            complete_notification(opened);
        else if (registry().remembers_changes)
            opened->change_pending = true;
    }
}

// The key is gone for its handles; who waits for a change is told.
static void key_deleted(Key* key) {
    key->deleted = true;
    for (OpenedKey* opened : registry().opened) {
        if (opened->key.get() == key)
            complete_notification(opened);
    }
    for (auto& [name, below] : key->children)
        key_deleted(below.get());
}

// State of a thread that has asked for notifications. They end with the thread, and ending signals their
// events.
struct AskingThread {
    Thread* thread = current();
    ~AskingThread() {
        for (OpenedKey* opened : registry().opened) {
            if (opened->armed_by == thread)
                complete_notification(opened);
        }
    }
};

void registry_remembers_changes(bool remembers) {
    registry().remembers_changes = remembers;
}

// ---- as another program ----

void registry_create(const std::string& path) {
    find_key(registry(), path, true);
}

void registry_set(const std::string& path, const std::string& name, DWORD type, std::vector<BYTE> bytes) {
    put(registry(), path, name == "@" ? "" : name, type, std::move(bytes));
    key_changed(find_key(registry(), path, false).get());
}

void registry_set_dword(const std::string& path, const std::string& name, DWORD value) {
    std::vector<BYTE> bytes(sizeof(value));
    std::memcpy(bytes.data(), &value, sizeof(value));
    registry_set(path, name, REG_DWORD, bytes);
}

void registry_set_text(const std::string& path, const std::string& name, const std::string& text,
                       DWORD type) {
    registry_set(path, name, type, wide_bytes(text));
}

bool registry_delete(const std::string& path) {
    KeyRef key = find_key(registry(), path, false);
    if (key == nullptr || key->parent == nullptr)
        return false;
    key->parent->children.erase(lower(key->name));
    key_deleted(key.get());
    key_changed(key->parent, true);
    return true;
}

bool registry_is_open(const std::string& path) {
    const KeyRef key = find_key(registry(), path, false);
    for (const OpenedKey* opened : registry().opened) {
        for (const Key* at = opened->key.get(); key != nullptr && at != nullptr; at = at->parent) {
            if (at == key.get())
                return true;
        }
    }
    return false;
}

bool registry_delete_value(const std::string& path, const std::string& name) {
    KeyRef key = find_key(registry(), path, false);
    if (key == nullptr || key->values.erase(lower(name == "@" ? "" : name)) == 0)
        return false;
    key_changed(key.get());
    return true;
}

static std::string plain_path(const std::string& path) {
    std::string plain;
    for (const std::string& part : components(lower(with_service_key(path))))
        plain += part + "\\";
    return plain;
}

void registry_refuse(const std::string& path) {
    registry().refused.insert(plain_path(path));
}

// Whether opening the key is refused: its own path, or one that it lies below.
static bool refused(const std::string& path) {
    const std::string plain = plain_path(path);
    return std::any_of(registry().refused.begin(), registry().refused.end(),
                       [&plain](const std::string& above) { return plain.starts_with(above); });
}

bool registry_has_key(const std::string& path) {
    return find_key(registry(), path, false) != nullptr;
}

const RegistryValue* registry_value(const std::string& path, const std::string& name) {
    KeyRef key = find_key(registry(), path, false);
    if (key == nullptr)
        return nullptr;
    auto found = key->values.find(lower(name == "@" ? "" : name));
    return found != key->values.end() ? &found->second.data : nullptr;
}

DWORD registry_dword(const std::string& path, const std::string& name, DWORD otherwise) {
    const RegistryValue* value = registry_value(path, name);
    if (value == nullptr || value->type != REG_DWORD || value->bytes.size() != 4)
        return otherwise;
    DWORD number = 0;
    std::memcpy(&number, value->bytes.data(), 4);
    return number;
}

// The strings of the data, however it ends.
static std::vector<std::string> strings_of(const std::vector<BYTE>& bytes) {
    std::vector<std::string> strings;
    std::u16string wide(bytes.size() / 2, u'\0');
    if (!wide.empty())
        std::memcpy(wide.data(), bytes.data(), wide.size() * 2);
    size_t start = 0;
    while (start < wide.size()) {
        const size_t end = std::min(wide.find(u'\0', start), wide.size());
        if (end == start && !strings.empty())
            break;
        strings.push_back(narrow(reinterpret_cast<const WCHAR*>(wide.data() + start), end - start));
        start = end + 1;
    }
    return strings;
}

std::string registry_text(const std::string& path, const std::string& name) {
    const RegistryValue* value = registry_value(path, name);
    const std::vector<std::string> strings =
        value != nullptr ? strings_of(value->bytes) : std::vector<std::string>();
    return strings.empty() ? "" : strings[0];
}

static std::string show(DWORD type, const std::vector<BYTE>& bytes) {
    std::string text;
    if (type == REG_DWORD && bytes.size() == 4) {
        DWORD number = 0;
        std::memcpy(&number, bytes.data(), 4);
        return format("0x%x", number);
    }
    if (type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ) {
        for (const std::string& part : strings_of(bytes))
            text += (text.empty() ? "\"" : " \"") + part + "\"";
        return text.empty() ? "\"\"" : text;
    }
    for (const BYTE byte : bytes)
        text += format("%02x", byte);
    return text;
}

static void dump(const Key& key, const std::string& path, std::string* text) {
    for (const auto& [name, value] : key.values)
        *text += path + " " + (name.empty() ? "@" : value.name) + " = " +
                 show(value.data.type, value.data.bytes) + format(" type %u\n", value.data.type);
    for (const auto& [name, below] : key.children) {
        *text += path + "\\" + below->name + "\n";
        dump(*below, path + "\\" + below->name, text);
    }
}

std::string registry_dump(const std::string& path) {
    std::string text;
    if (KeyRef key = find_key(registry(), path, false))
        dump(*key, path, &text);
    return text;
}

// ---- handles ----

static int root_index(HKEY key) {
    const auto value = reinterpret_cast<ULONG_PTR>(key) - 0xFFFFFFFF80000000ull;
    return value < ARRAYSIZE(g_rootNames) ? static_cast<int>(value) : -1;
}

static void key_closed(Object& object) {
    auto& opened = object.as<OpenedKey>();
    std::erase(registry().opened, &opened);
    // A notification still waiting on a closed handle is over; the platform signals its event.
    complete_notification(&opened);
}

struct Opened {
    KeyRef key;
    std::string path;
    DWORD access = KEY_ALL_ACCESS;
    OpenedKey* handle = nullptr; // null for a root
};

// What a key handle stands for. Null key with the error in *error otherwise; missing rights are a violation.
static Opened resolve(HKEY handle, DWORD needed, const char* call, LSTATUS* error) {
    Opened result;
    const int root = root_index(handle);
    if (root >= 0) {
        result.key = registry().roots[root];
        result.path = g_rootNames[root];
        return result;
    }
    HandleEntry* entry = handle_entry(handle, Kind::Key, call);
    if (entry == nullptr) {
        *error = ERROR_INVALID_HANDLE;
        return result;
    }
    auto& opened = entry->object->as<OpenedKey>();
    if ((entry->access & needed) != needed) {
        violation("%s: %s opened with 0x%x, needs 0x%x", call, opened.path.c_str(), entry->access, needed);
        *error = ERROR_ACCESS_DENIED;
        return result;
    }
    if (opened.key->deleted) {
        *error = ERROR_KEY_DELETED;
        return result;
    }
    result = {opened.key, opened.path, entry->access, &opened};
    return result;
}

static std::string shown_path(const std::string& path) {
    constexpr size_t length = sizeof(g_serviceKey) - 1;
    if (path.size() >= length && same_text(path.substr(0, length), g_serviceKey) &&
        (path.size() == length || path[length] == '\\'))
        return "SVC" + path.substr(length);
    return path;
}

static std::string joined(const std::string& base, const std::string& path) {
    return path.empty() ? base : base + "\\" + path;
}

static HKEY open_key(const KeyRef& key, const std::string& path, REGSAM access) {
    ObjectRef object = make_object(Kind::Key, path);
    auto opened = std::make_shared<OpenedKey>();
    opened->key = key;
    opened->path = path;
    object->body = opened;
    object->on_last_close = key_closed;
    registry().opened.push_back(opened.get());
    // The platform maps generic rights to the specific ones.
    if ((access & GENERIC_ALL) != 0)
        access |= KEY_ALL_ACCESS;
    if ((access & GENERIC_READ) != 0)
        access |= KEY_READ;
    if ((access & GENERIC_WRITE) != 0)
        access |= KEY_WRITE;
    return static_cast<HKEY>(static_cast<void*>(open_handle(object, access)));
}

// Bad paths, before anything is looked up.
static LSTATUS path_error(const std::string& path) {
    if (!path.empty() && path[0] == '\\')
        return ERROR_BAD_PATHNAME;
    for (const std::string& part : components(path)) {
        if (part.size() > 255)
            return ERROR_INVALID_PARAMETER;
    }
    return ERROR_SUCCESS;
}

static LSTATUS open_or_create(HKEY base, LPCWSTR wide_path, REGSAM access, bool create, PHKEY result,
                              LPDWORD disposition, const char* call) {
    LSTATUS error = ERROR_SUCCESS;
    const Opened from = resolve(base, 0, call, &error);
    if (from.key == nullptr)
        return error;
    const std::string path = narrow(wide_path);
    error = path_error(path);
    if (error != ERROR_SUCCESS)
        return error;
    const std::string full = joined(from.path, path);
    trace_detail("%s(%s, 0x%x)", call, shown_path(full).c_str(), access);
    if (refused(full))
        return ERROR_ACCESS_DENIED;
    KeyRef key = walk(from.key, components(path), false);
    bool created = false;
    if (key == nullptr) {
        if (!create)
            return ERROR_FILE_NOT_FOUND;
        if ((from.access & KEY_CREATE_SUB_KEY) == 0) {
            violation("%s: %s needs the right to create subkeys", call, from.path.c_str());
            return ERROR_ACCESS_DENIED;
        }
        key = walk(from.key, components(path), true, &created);
    }
    if (created) {
        trace("registry create %s", shown_path(full).c_str());
        key_changed(key->parent, true);
    }
    if (disposition != nullptr)
        *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    *result = open_key(key, full, access);
    return ERROR_SUCCESS;
}

// ---- scenario commands ----

static std::vector<BYTE> hex_bytes(Tokens& tokens, const std::string& text) {
    std::vector<BYTE> bytes;
    if (text.size() % 2 != 0 || text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        tokens.fail("an even number of hexadecimal digits expected");
        return bytes;
    }
    for (size_t i = 0; i < text.size(); i += 2)
        bytes.push_back(static_cast<BYTE>(std::stoul(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

RegistryData read_registry_data(Tokens& tokens) {
    RegistryData data;
    static const DWORD types[] = {REG_DWORD, REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ, REG_BINARY, REG_NONE};
    const size_t kind = tokens.choice({"dword", "sz", "expand", "multi", "binary", "raw"});
    data.type = types[kind];
    switch (kind) {
    case 0: {
        const auto value = static_cast<DWORD>(tokens.number());
        data.bytes.resize(sizeof(value));
        std::memcpy(data.bytes.data(), &value, sizeof(value));
        break;
    }
    case 1:
    case 2:
        data.bytes = wide_bytes(tokens.text());
        break;
    case 3:
        do {
            const std::vector<BYTE> part = wide_bytes(tokens.text());
            data.bytes.insert(data.bytes.end(), part.begin(), part.end());
        } while (!tokens.done());
        data.bytes.insert(data.bytes.end(), {0, 0});
        break;
    case 4:
        data.bytes = hex_bytes(tokens, tokens.done() ? "" : tokens.word());
        break;
    default:
        data.type = static_cast<DWORD>(tokens.number());
        data.bytes = hex_bytes(tokens, tokens.done() ? "" : tokens.word());
    }
    return data;
}

static std::string registry_path(Tokens& tokens) {
    std::string path = tokens.word();
    const std::string root = lower(path.substr(0, path.find('\\')));
    if (root != "hklm" && root != "hkcr" && root != "hku" && root != "svc")
        tokens.fail("a registry path expected");
    return path;
}

static Action compile_set(Tokens& tokens) {
    const std::string path = registry_path(tokens);
    if (tokens.done())
        return [path] { registry_create(path); };
    const std::string name = tokens.word();
    const RegistryData data = read_registry_data(tokens);
    return [path, name, data] { registry_set(path, name, data.type, data.bytes); };
}

static Action compile_delete(Tokens& tokens) {
    const std::string path = registry_path(tokens);
    if (tokens.done())
        return [path] { registry_delete(path); };
    const std::string name = tokens.word();
    return [path, name] { registry_delete_value(path, name); };
}

static Action compile_refuse(Tokens& tokens) {
    const std::string path = registry_path(tokens);
    return [path] { registry_refuse(path); };
}

// `check registry KEY VALUE = DATA`: data that looks like a number is compared as a number.
static std::string expected_text(Tokens& tokens) {
    std::string text;
    while (!tokens.done()) {
        const Token& token = tokens.list[tokens.at];
        const std::string part = tokens.word();
        text += (text.empty() ? "" : " ") + (token.quoted ? "\"" + part + "\"" : part);
    }
    return text;
}

static bool matches(const RegistryValue& value, const std::string& expected) {
    const std::string holds = show(value.type, value.bytes);
    // Digits have no case; texts do.
    if (holds == expected || (holds.find('"') == std::string::npos && same_text(holds, expected)))
        return true;
    if (value.type != REG_DWORD || value.bytes.size() != 4 || expected.empty())
        return false;
    char* end = nullptr;
    const bool hex = lower(expected.substr(0, 2)) == "0x";
    const unsigned long long number = std::strtoull(expected.c_str(), &end, hex ? 16 : 10);
    DWORD stored = 0;
    std::memcpy(&stored, value.bytes.data(), 4);
    return *end == 0 && number == stored;
}

static Action compile_check(Tokens& tokens) {
    const std::string path = registry_path(tokens);
    const std::string name = tokens.word();
    if (tokens.done()) {
        const bool present = name == "present";
        if (!present && name != "absent")
            tokens.fail("present or absent expected");
        return [path, present] {
            expectation(registry_has_key(path) == present,
                        "registry " + path + (present ? " present" : " absent"));
        };
    }
    if (tokens.accept("absent"))
        return [path, name] {
            expectation(registry_value(path, name) == nullptr, "registry " + path + " " + name + " absent");
        };
    if (!tokens.accept("="))
        tokens.fail("= DATA or absent expected");
    const std::string expected = expected_text(tokens);
    return [path, name, expected] {
        const RegistryValue* value = registry_value(path, name);
        expectation(value != nullptr && matches(*value, expected),
                    "registry " + path + " " + name + " = " + expected + ", it " +
                        (value != nullptr ? "holds " + show(value->type, value->bytes) : "is absent"));
    };
}

static const Commands g_commands({
    {"registry set", Use::Machine, compile_set},
    {"registry delete", Use::Machine, compile_delete},
    {"registry refuse", Use::Machine, compile_refuse},
    {"check registry", Use::Check, compile_check},
});

static std::string shown_name(const std::string& name) {
    return name.empty() ? "@" : name;
}

} // namespace sim

using namespace sim;

extern "C" {

LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR path, DWORD, REGSAM access, PHKEY result) {
    SIM_CALL(ERROR_ACCESS_DENIED, last_error());
    return open_or_create(key, path, access, false, result, nullptr, "RegOpenKeyExW");
}

LSTATUS WINAPI RegCreateKeyExW(HKEY key, LPCWSTR path, DWORD, LPWSTR, DWORD, REGSAM access,
                               const LPSECURITY_ATTRIBUTES, PHKEY result, LPDWORD disposition) {
    SIM_CALL(ERROR_ACCESS_DENIED, last_error());
    return open_or_create(key, path, access, true, result, disposition, "RegCreateKeyExW");
}

LSTATUS WINAPI RegCloseKey(HKEY key) {
    SIM_VISIT();
    if (root_index(key) >= 0)
        return ERROR_SUCCESS;
    HandleEntry* entry = handle_entry(key, Kind::Key, "RegCloseKey");
    if (entry == nullptr)
        return ERROR_INVALID_HANDLE;
    trace_detail("RegCloseKey(%s)", shown_path(entry->object->as<OpenedKey>().path).c_str());
    close_handle(key, "RegCloseKey");
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegQueryValueExW(HKEY handle, LPCWSTR wide_name, LPDWORD, LPDWORD type, LPBYTE data,
                                LPDWORD bytes) {
    SIM_CALL(ERROR_GEN_FAILURE, last_error());
    LSTATUS error = ERROR_SUCCESS;
    const Opened opened = resolve(handle, KEY_QUERY_VALUE, "RegQueryValueExW", &error);
    if (opened.key == nullptr)
        return error;
    if (data != nullptr && bytes == nullptr)
        return ERROR_INVALID_PARAMETER;
    const std::string name = narrow(wide_name);
    trace_detail("query %s %s", shown_path(opened.path).c_str(), shown_name(name).c_str());
    auto found = opened.key->values.find(lower(name));
    if (found == opened.key->values.end())
        return ERROR_FILE_NOT_FOUND;
    const RegistryValue& value = found->second.data;
    if (type != nullptr)
        *type = value.type;
    if (bytes == nullptr)
        return ERROR_SUCCESS;
    const DWORD capacity = *bytes;
    *bytes = static_cast<DWORD>(value.bytes.size());
    if (data == nullptr)
        return ERROR_SUCCESS;
    if (capacity < value.bytes.size())
        return ERROR_MORE_DATA;
    if (!value.bytes.empty())
        std::memcpy(data, value.bytes.data(), value.bytes.size());
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegSetValueExW(HKEY handle, LPCWSTR wide_name, DWORD, DWORD type, const BYTE* data,
                              DWORD bytes) {
    SIM_CALL(ERROR_ACCESS_DENIED, last_error());
    LSTATUS error = ERROR_SUCCESS;
    const Opened opened = resolve(handle, KEY_SET_VALUE, "RegSetValueExW", &error);
    if (opened.key == nullptr)
        return error;
    const std::string name = narrow(wide_name);
    const std::vector<BYTE> content(data, data + bytes);
    Value& value = opened.key->values[lower(name)];
    if (value.name.empty())
        value.name = name;
    value.data = {type, content};
    trace("registry %s %s = %s", shown_path(opened.path).c_str(), shown_name(name).c_str(),
          show(type, content).c_str());
    key_changed(opened.key.get());
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegDeleteKeyW(HKEY handle, LPCWSTR wide_path) {
    SIM_CALL(ERROR_ACCESS_DENIED, last_error());
    LSTATUS error = ERROR_SUCCESS;
    const Opened opened = resolve(handle, 0, "RegDeleteKeyW", &error);
    if (opened.key == nullptr)
        return error;
    const std::string path = narrow(wide_path);
    error = path_error(path);
    if (error != ERROR_SUCCESS)
        return error;
    KeyRef key = walk(opened.key, components(path), false);
    if (key == nullptr)
        return ERROR_FILE_NOT_FOUND;
    if (refused(joined(opened.path, path)) || !key->children.empty() || key->parent == nullptr)
        return ERROR_ACCESS_DENIED;
    key->parent->children.erase(lower(key->name));
    key_deleted(key.get());
    key_changed(key->parent, true);
    trace("registry delete %s", shown_path(joined(opened.path, path)).c_str());
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegDeleteValueW(HKEY handle, LPCWSTR wide_name) {
    SIM_CALL(ERROR_ACCESS_DENIED, last_error());
    LSTATUS error = ERROR_SUCCESS;
    const Opened opened = resolve(handle, KEY_SET_VALUE, "RegDeleteValueW", &error);
    if (opened.key == nullptr)
        return error;
    const std::string name = narrow(wide_name);
    if (opened.key->values.erase(lower(name)) == 0)
        return ERROR_FILE_NOT_FOUND;
    trace("registry delete %s %s", shown_path(opened.path).c_str(), shown_name(name).c_str());
    key_changed(opened.key.get());
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegNotifyChangeKeyValue(HKEY handle, BOOL subtree, DWORD filter, HANDLE event,
                                       BOOL asynchronous) {
    SIM_CALL(ERROR_NOT_ENOUGH_MEMORY, last_error());
    LSTATUS error = ERROR_SUCCESS;
    const Opened opened = resolve(handle, KEY_NOTIFY, "RegNotifyChangeKeyValue", &error);
    if (opened.key == nullptr)
        return error;
    const bool agnostic = (filter & REG_NOTIFY_THREAD_AGNOSTIC) != 0;
    const DWORD told = REG_NOTIFY_CHANGE_LAST_SET | (subtree ? REG_NOTIFY_CHANGE_NAME : 0);
    if (opened.handle == nullptr || !asynchronous || (filter & ~REG_NOTIFY_THREAD_AGNOSTIC) != told) {
        violation("RegNotifyChangeKeyValue: only written values of one key, or all changes of a tree, "
                  "asynchronously, are told of here");
        return ERROR_INVALID_PARAMETER;
    }
    HandleEntry* entry = handle_entry(event, Kind::Event, "RegNotifyChangeKeyValue");
    if (entry == nullptr)
        return ERROR_INVALID_HANDLE;
    trace_detail("watch %s", shown_path(opened.path).c_str());
    OpenedKey& watched = *opened.handle;
    // Asking again while a wait is under way makes one more of them on the platform, and they pile up.
    watched.waits = watched.event != nullptr ? watched.waits + 1 : 1;
    if (watched.waits > 100 && !watched.event->foreign) // each setting by another program asks for one more
        violation("RegNotifyChangeKeyValue: %s is armed already, %u times", opened.path.c_str(),
                  watched.waits);
    watched.asked = true;
    watched.subtree = subtree != FALSE;
    watched.armed_by = agnostic ? nullptr : thread_state<AskingThread>().thread;
    watched.event = entry->object;
    if (std::exchange(watched.change_pending, false))
        complete_notification(&watched);
    return ERROR_SUCCESS;
}

} // extern "C"
