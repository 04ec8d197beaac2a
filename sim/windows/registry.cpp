#include "sim/windows/registry.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "sim/windows/registry_tree.h"

namespace sim {

static const char g_serviceKey[] = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\ZORPMSVC";
const char* const g_registryRoots[REGISTRY_ROOTS] = {"HKCR", "HKCU", "HKLM", "HKU"};

Registry& registry() {
    return machine_state<Registry>();
}

std::string_view next_name(std::string_view* path) {
    path->remove_prefix(std::min(path->find_first_not_of('\\'), path->size()));
    const std::string_view name = path->substr(0, path->find('\\'));
    path->remove_prefix(name.size());
    return name;
}

std::vector<std::string_view> path_components(std::string_view path) {
    std::vector<std::string_view> parts;
    for (std::string_view name = next_name(&path); !name.empty(); name = next_name(&path))
        parts.push_back(name);
    return parts;
}

static const KeyRef& make_child(Key& key, std::string_view name) {
    auto made = std::make_shared<Key>();
    made->name = name;
    made->parent = &key;
    return key.children[lower(name)] = made;
}

// Each name of the path, from `key` down; null where one is missing and none is to be made.
static KeyRef walk(const KeyRef& start, std::string_view path, bool create) {
    const KeyRef* key = &start;
    for (std::string_view name = next_name(&path); !name.empty(); name = next_name(&path)) {
        const auto found = (*key)->children.find(name);
        if (found == (*key)->children.end() && !create)
            return nullptr;
        key = found != (*key)->children.end() ? &found->second : &make_child(**key, name);
    }
    return *key;
}

KeyRef find_below(const KeyRef& key, std::string_view path) {
    return walk(key, path, false);
}

static bool is_short_form(std::string_view path) {
    return same_text(path.substr(0, 4), "SVC\\") || same_text(path, "SVC");
}

static KeyRef find_in(Registry& reg, std::string_view path, bool create) {
    if (is_short_form(path)) {
        const KeyRef service = find_in(reg, g_serviceKey, create);
        return service != nullptr ? walk(service, path.substr(3), create) : nullptr;
    }
    const std::string_view first = next_name(&path);
    for (size_t root = 0; root < ARRAYSIZE(g_registryRoots); ++root) {
        if (same_text(first, g_registryRoots[root]))
            return walk(reg.roots[root], path, create);
    }
    return nullptr;
}

bool is_merged(std::string_view path) {
    return same_text(path.substr(0, 5), "HKCR\\") || same_text(path, "HKCR");
}

std::string machine_classes(std::string_view path) {
    return "HKLM\\SOFTWARE\\Classes" + std::string(path.substr(sizeof("HKCR") - 1));
}

KeyRef find_key(std::string_view path, bool create) {
    Registry& reg = registry();
    if (!is_merged(path))
        return find_in(reg, path, create);
    const std::string below(path.substr(sizeof("HKCR") - 1));
    const KeyRef own = below.empty() ? nullptr : find_in(reg, "HKCU\\Software\\Classes" + below, false);
    return own != nullptr ? own : find_in(reg, machine_classes(path), create);
}

bool put_value(Key& key, const std::string& name, RegistryValue data) {
    auto at = key.values.find(name);
    const bool made = at == key.values.end();
    if (made)
        at = key.values.try_emplace(lower(name), KeyValue{name, {}}).first;
    RegistryValue& value = at->second.data;
    const bool same = !made && value.type == data.type && value.bytes == data.bytes;
    value = std::move(data);
    return !same;
}

static void put(Registry& reg, const std::string& path, const std::string& name, DWORD type,
                std::vector<BYTE> bytes) {
    put_value(*find_in(reg, path, true), name, {type, std::move(bytes)});
}

const KeyValue* find_value(const Key& key, std::string_view path, std::string_view name) {
    const auto found = key.values.find(name);
    if (found != key.values.end())
        return &found->second;
    if (!is_merged(path))
        return nullptr;
    const KeyRef machine_key = find_in(registry(), machine_classes(path), false);
    return machine_key != nullptr && machine_key.get() != &key
               ? find_value(*machine_key, machine_classes(path), name)
               : nullptr;
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
    find_in(*this, g_serviceKey, true);
    find_in(*this, "HKLM\\SOFTWARE\\Classes", true);
    find_in(*this, "HKU\\.DEFAULT", true);
}

// ---- change notification ----

void complete_notifications(OpenedKey* opened) {
    for (const KeyWait& wait : std::exchange(opened->waits, {}))
        signal_object(*wait.event);
}

static bool below(const Key* key, const Key* above) {
    while (key != nullptr && key != above)
        key = key->parent;
    return key != nullptr;
}

void key_changed(const Key* key, bool names) {
    for (OpenedKey* opened : registry().opened) {
        const bool concerned =
            opened->subtree ? below(key, opened->key.get()) : !names && opened->key.get() == key;
        if (!concerned || !opened->asked)
            continue;
        if (!opened->waits.empty())
            complete_notifications(opened);
        else if (registry().remembers_changes)
            opened->change_pending = true;
    }
}

// Who waits for a change is told.
void key_deleted(Key* key) {
    key->deleted = true;
    for (OpenedKey* opened : registry().opened) {
        if (opened->key.get() == key)
            complete_notifications(opened);
    }
    for (auto& [name, below] : key->children)
        key_deleted(below.get());
}

namespace {

// State of a thread that has asked for notifications.
struct AskingThread {
    Thread* thread = current();
    ~AskingThread() {
        for (OpenedKey* opened : registry().opened) {
            for (const KeyWait& wait : opened->waits) {
                if (wait.armed_by == thread)
                    signal_object(*wait.event);
            }
            std::erase_if(opened->waits, [this](const KeyWait& wait) { return wait.armed_by == thread; });
        }
    }
};

} // namespace

Thread* asking_thread() {
    return thread_state<AskingThread>().thread;
}

void registry_remembers_changes(bool remembers) {
    registry().remembers_changes = remembers;
}

void registry_tells_of_same_data(bool tells) {
    registry().tells_of_same_data = tells;
}

void registry_takes_null_behind(bool takes) {
    registry().takes_null_behind = takes;
}

// ---- as another program ----

void registry_create(const std::string& path) {
    find_key(path, true);
}

void registry_set(const std::string& path, const std::string& name, DWORD type, std::vector<BYTE> bytes) {
    const KeyRef key = find_key(path, true);
    if (put_value(*key, name == "@" ? "" : name, {type, std::move(bytes)}) || registry().tells_of_same_data)
        key_changed(key.get());
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
    KeyRef key = find_key(path);
    if (key == nullptr || key->parent == nullptr)
        return false;
    key->parent->children.erase(lower(key->name));
    key_deleted(key.get());
    key_changed(key->parent, true);
    return true;
}

bool registry_is_open(const std::string& path) {
    const KeyRef key = find_key(path);
    for (const OpenedKey* opened : registry().opened) {
        for (const Key* at = opened->key.get(); key != nullptr && at != nullptr; at = at->parent) {
            if (at == key.get())
                return true;
        }
    }
    return false;
}

bool registry_delete_value(const std::string& path, const std::string& name) {
    KeyRef key = find_key(path);
    if (key == nullptr || key->values.erase(lower(name == "@" ? "" : name)) == 0)
        return false;
    key_changed(key.get());
    return true;
}

std::string plain_path(std::string_view path) {
    const std::string full =
        is_short_form(path) ? g_serviceKey + std::string(path.substr(3)) : std::string(path);
    std::string plain;
    for (const std::string_view part : path_components(full))
        plain += lower(part) + "\\";
    return plain;
}

void registry_refuse(const std::string& path, REGSAM rights) {
    registry().refused[plain_path(path)] |= rights;
}

bool registry_refused(std::string_view path, REGSAM access) {
    if (registry().refused.empty())
        return false;
    const std::string plain = plain_path(path);
    return std::any_of(registry().refused.begin(), registry().refused.end(), [&](const auto& row) {
        return plain.starts_with(row.first) && (row.second == EVERY_RIGHT || (row.second & access) != 0);
    });
}

bool registry_has_key(const std::string& path) {
    return find_key(path) != nullptr;
}

const RegistryValue* registry_value(const std::string& path, const std::string& name) {
    KeyRef key = find_key(path);
    if (key == nullptr)
        return nullptr;
    const KeyValue* found = find_value(*key, path, name == "@" ? "" : name);
    return found != nullptr ? &found->data : nullptr;
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

std::string shown_data(DWORD type, const std::vector<BYTE>& bytes) {
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
                 shown_data(value.data.type, value.data.bytes) + format(" type %u\n", value.data.type);
    for (const auto& [name, below] : key.children) {
        *text += path + "\\" + below->name + "\n";
        dump(*below, path + "\\" + below->name, text);
    }
}

std::string registry_dump(const std::string& path) {
    std::string text;
    if (KeyRef key = find_key(path))
        dump(*key, path, &text);
    return text;
}

std::string shown_path(std::string_view path) {
    constexpr size_t length = sizeof(g_serviceKey) - 1;
    if (path.size() >= length && same_text(path.substr(0, length), g_serviceKey) &&
        (path.size() == length || path[length] == '\\'))
        return "SVC" + std::string(path.substr(length));
    return std::string(path);
}

} // namespace sim
