// The registry's calls: handles of keys, their rights, and change notification.
#include <algorithm>
#include <cstring>
#include <utility>

#include "sim/machine/machine.h"
#include "sim/script/expectations.h"
#include "sim/windows/registry_tree.h"

namespace sim {

constexpr size_t LONGEST_KEY_NAME = 255;
constexpr REGSAM KEY_RIGHTS = KEY_ALL_ACCESS | GENERIC_ALL | GENERIC_READ | GENERIC_WRITE;
constexpr size_t MOST_OPENINGS = 1000; // remembered, if all are before the mark
constexpr size_t MOST_WAITS = 100;     // of one handle that has not been told of a change

namespace {

struct ResolvedKey {
    KeyRef key;
    std::string_view path; // while the handle is open
    DWORD access = KEY_ALL_ACCESS;
    OpenedKey* handle = nullptr; // null for a root
};

enum class Missing { Fails, Made, MadeVolatile }; // a key that is not there

} // namespace

static int root_index(HKEY key) {
    const auto value = reinterpret_cast<ULONG_PTR>(key) - 0xFFFFFFFF80000000ull;
    return value < ARRAYSIZE(g_registryRoots) ? static_cast<int>(value) : -1;
}

static void key_closed(Object& object) {
    auto& opened = object.as<OpenedKey>();
    std::erase(registry().opened, &opened);
    // A notification still waiting on a closed handle is over; the platform signals its event.
    complete_notifications(&opened);
}

// What a key handle stands for. Null key with the error in *error otherwise; missing rights are a violation.
static ResolvedKey resolve(HKEY handle, DWORD needed, const char* call, LSTATUS* error) {
    ResolvedKey result;
    const int root = root_index(handle);
    if (root >= 0) {
        result.key = find_key(g_registryRoots[root]);
        result.path = g_registryRoots[root];
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

static std::string joined(std::string_view base, const std::string& path) {
    std::string full(base);
    return path.empty() ? full : full.append("\\").append(path);
}

// The platform maps generic rights to the specific ones.
static REGSAM specific_rights(REGSAM access) {
    REGSAM rights = access & KEY_ALL_ACCESS;
    if ((access & GENERIC_ALL) != 0)
        rights |= KEY_ALL_ACCESS;
    if ((access & GENERIC_READ) != 0)
        rights |= KEY_READ;
    if ((access & GENERIC_WRITE) != 0)
        rights |= KEY_WRITE;
    return rights;
}

// A long run forgets openings that nothing can ask for any more.
static void note_opening(const std::string& path, REGSAM access) {
    std::vector<KeyOpening>& openings = registry().openings;
    if (openings.size() >= MOST_OPENINGS && openings.size() == openings.capacity())
        std::erase_if(openings, [](const KeyOpening& opening) { return opening.at < mark_position(); });
    openings.push_back({machine().forgotten + machine().trace.size(), path, access, current_process()});
}

static HKEY open_key(const KeyRef& key, const std::string& path, REGSAM access) {
    ObjectRef object = make_object(Kind::Key, path);
    auto opened = std::make_shared<OpenedKey>();
    opened->key = key;
    opened->path = path;
    object->body = opened;
    object->on_last_close = key_closed;
    registry().opened.push_back(opened.get());
    if (machine().keep_trace)
        note_opening(path, access);
    return static_cast<HKEY>(static_cast<void*>(open_handle(object, access)));
}

// What is neither modelled nor used: backups, views, links and no rights at all.
static bool unknown_rights(REGSAM access, DWORD options, const char* call, LPCWSTR path) {
    if (options == 0 && access != 0 && (access & ~KEY_RIGHTS) == 0)
        return false;
    violation("%s: %s with options 0x%x, rights 0x%x: not known here", call, narrow(path).c_str(), options,
              access);
    return true;
}

// Right below these two stand whole hives: they are loaded, not created.
static bool is_hive(const std::string& path) {
    const std::vector<std::string_view> parts = path_components(path);
    return parts.size() == 2 && (same_text(parts[0], "HKLM") || same_text(parts[0], "HKU"));
}

// Makes the key and all that is missing above it. Null with the error.
static KeyRef create_key(const ResolvedKey& from, const std::string& full, bool is_volatile, LSTATUS* error) {
    if ((from.access & KEY_CREATE_SUB_KEY) == 0) {
        violation("%s: a key below needs the right to create subkeys", std::string(from.path).c_str());
        *error = ERROR_ACCESS_DENIED;
        return nullptr;
    }
    std::string deepest = full;
    while (find_key(deepest) == nullptr)
        deepest.resize(deepest.rfind('\\'));
    if (user_refused(is_merged(full) ? find_key(machine_classes("HKCR")).get() : find_key(deepest).get(),
                     KEY_CREATE_SUB_KEY)) {
        *error = ERROR_ACCESS_DENIED;
        return nullptr;
    }
    const std::vector<std::string_view> missing =
        path_components(std::string_view(full).substr(deepest.size()));
    if (is_hive(joined(deepest, std::string(missing[0])))) {
        *error = ERROR_INVALID_PARAMETER;
        return nullptr;
    }
    if (!is_volatile && find_key(deepest)->is_volatile) {
        *error = ERROR_CHILD_MUST_BE_VOLATILE;
        return nullptr;
    }
    KeyRef key = find_key(full, true);
    Key* made = key.get();
    for (size_t i = 0; i < missing.size(); ++i, made = made->parent)
        made->is_volatile = is_volatile;
    trace("registry create %s%s", shown_path(full).c_str(), is_volatile ? " volatile" : "");
    key_changed(key->parent, true);
    return key;
}

// Bad paths, before anything is looked up.
static LSTATUS path_error(const std::string& path) {
    if (!path.empty() && path[0] == '\\')
        return ERROR_BAD_PATHNAME;
    std::string_view rest = path;
    for (std::string_view name = next_name(&rest); !name.empty(); name = next_name(&rest)) {
        if (name.size() > LONGEST_KEY_NAME)
            return ERROR_INVALID_PARAMETER;
    }
    return ERROR_SUCCESS;
}

static LSTATUS open_or_create(HKEY base, LPCWSTR wide_path, REGSAM access, Missing missing, PHKEY result,
                              LPDWORD disposition, const char* call) {
    LSTATUS error = ERROR_SUCCESS;
    const ResolvedKey from = resolve(base, 0, call, &error);
    if (from.key == nullptr)
        return error;
    const std::string path = narrow(wide_path);
    error = path_error(path);
    if (error != ERROR_SUCCESS)
        return error;
    const std::string full = joined(from.path, path);
    trace_detail("%s(%s, 0x%x)", call, shown_path(full).c_str(), access);
    access = specific_rights(access);
    if (registry_refused(full, access))
        return ERROR_ACCESS_DENIED;
    KeyRef key = path.empty() || !is_merged(full) ? find_below(from.key, path) : find_key(full);
    const bool created = key == nullptr;
    if (created && missing == Missing::Fails)
        return ERROR_FILE_NOT_FOUND;
    if (created)
        await_turn("create_key");
    if (created)
        key = create_key(from, full, missing == Missing::MadeVolatile, &error);
    if (key == nullptr)
        return error;
    if (!created && user_refused(key.get(), access))
        return ERROR_ACCESS_DENIED;
    if (disposition != nullptr)
        *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    *result = open_key(key, full, access);
    return ERROR_SUCCESS;
}

// Bytes of a null that is taken along although the text was given without it.
static DWORD null_behind(DWORD type, const BYTE* data, DWORD bytes) {
    const bool text = type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
    constexpr DWORD character = sizeof(WCHAR);
    if (!text || bytes < character || bytes % character != 0 || !registry().takes_null_behind)
        return 0;
    WCHAR last[2];
    std::memcpy(last, data + bytes - character, sizeof(last));
    return last[0] != 0 && last[1] == 0 ? character : 0;
}

static std::string value_name(const std::string& name) {
    return name.empty() ? "@" : name;
}

} // namespace sim

using namespace sim;

extern "C" {

LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY result) {
    SIM_CALL(ERROR_ACCESS_DENIED, last_error());
    if (unknown_rights(access, options, "RegOpenKeyExW", path))
        return ERROR_INVALID_PARAMETER;
    return open_or_create(key, path, access, Missing::Fails, result, nullptr, "RegOpenKeyExW");
}

// NOLINTNEXTLINE(readability-non-const-parameter): the platform's type
LSTATUS WINAPI RegCreateKeyExW(HKEY key, LPCWSTR path, DWORD reserved, LPWSTR key_class, DWORD options,
                               REGSAM access, const LPSECURITY_ATTRIBUTES security, PHKEY result,
                               LPDWORD disposition) {
    SIM_CALL(ERROR_ACCESS_DENIED, last_error());
    if (reserved != 0)
        return ERROR_INVALID_PARAMETER;
    const bool is_volatile = options == REG_OPTION_VOLATILE;
    if (unknown_rights(access, is_volatile ? 0 : options, "RegCreateKeyExW", path))
        return ERROR_INVALID_PARAMETER;
    if (key_class != nullptr || security != nullptr) {
        violation("RegCreateKeyExW: %s with a class or security attributes: not known here",
                  narrow(path).c_str());
        return ERROR_INVALID_PARAMETER;
    }
    return open_or_create(key, path, access, is_volatile ? Missing::MadeVolatile : Missing::Made, result,
                          disposition, "RegCreateKeyExW");
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

// NOLINTNEXTLINE(readability-non-const-parameter): the platform's type
LSTATUS WINAPI RegQueryValueExW(HKEY handle, LPCWSTR wide_name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                LPDWORD bytes) {
    SIM_CALL(ERROR_GEN_FAILURE, last_error());
    LSTATUS error = ERROR_SUCCESS;
    const ResolvedKey opened = resolve(handle, KEY_QUERY_VALUE, "RegQueryValueExW", &error);
    if (opened.key == nullptr)
        return error;
    if (reserved != nullptr || (data != nullptr && bytes == nullptr))
        return ERROR_INVALID_PARAMETER;
    const std::string name = narrow(wide_name);
    trace_detail("query %s %s", shown_path(opened.path).c_str(), value_name(name).c_str());
    const KeyValue* found = find_value(*opened.key, opened.path, name);
    if (found == nullptr)
        return ERROR_FILE_NOT_FOUND;
    const RegistryValue& value = found->data;
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

LSTATUS WINAPI RegSetValueExW(HKEY handle, LPCWSTR wide_name, DWORD reserved, DWORD type, const BYTE* data,
                              DWORD bytes) {
    SIM_CALL(ERROR_ACCESS_DENIED, last_error());
    LSTATUS error = ERROR_SUCCESS;
    const ResolvedKey opened = resolve(handle, KEY_SET_VALUE, "RegSetValueExW", &error);
    if (opened.key == nullptr)
        return error;
    if (reserved != 0)
        return ERROR_INVALID_PARAMETER;
    const std::string name = narrow(wide_name);
    const std::vector<BYTE> content(data, data + bytes + null_behind(type, data, bytes));
    const bool changed = put_value(*opened.key, name, {type, content});
    trace("registry %s %s = %s", shown_path(opened.path).c_str(), value_name(name).c_str(),
          shown_data(type, content).c_str());
    if (changed || registry().tells_of_same_data)
        key_changed(opened.key.get());
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegDeleteKeyW(HKEY handle, LPCWSTR wide_path) {
    SIM_CALL(ERROR_ACCESS_DENIED, last_error());
    LSTATUS error = ERROR_SUCCESS;
    const ResolvedKey opened = resolve(handle, 0, "RegDeleteKeyW", &error);
    if (opened.key == nullptr)
        return error;
    const std::string path = narrow(wide_path);
    error = wide_path == nullptr ? static_cast<LSTATUS>(ERROR_INVALID_PARAMETER) : path_error(path);
    if (error != ERROR_SUCCESS)
        return error;
    KeyRef key = find_key(joined(opened.path, path));
    if (key == nullptr)
        return ERROR_FILE_NOT_FOUND;
    if (registry_refused(joined(opened.path, path), DELETE) || !key->children.empty() ||
        (opened.handle == nullptr && path.empty()) || user_refused(key.get(), DELETE))
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
    const ResolvedKey opened = resolve(handle, KEY_SET_VALUE, "RegDeleteValueW", &error);
    if (opened.key == nullptr)
        return error;
    const std::string name = narrow(wide_name);
    if (opened.key->values.erase(lower(name)) == 0)
        return ERROR_FILE_NOT_FOUND;
    trace("registry delete %s %s", shown_path(opened.path).c_str(), value_name(name).c_str());
    key_changed(opened.key.get());
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegNotifyChangeKeyValue(HKEY handle, BOOL subtree, DWORD filter, HANDLE event,
                                       BOOL asynchronous) {
    SIM_CALL(ERROR_NOT_ENOUGH_MEMORY, last_error());
    LSTATUS error = ERROR_SUCCESS;
    const ResolvedKey opened = resolve(handle, KEY_NOTIFY, "RegNotifyChangeKeyValue", &error);
    if (opened.key == nullptr)
        return error;
    const bool agnostic = (filter & REG_NOTIFY_THREAD_AGNOSTIC) != 0;
    const DWORD told = REG_NOTIFY_CHANGE_LAST_SET | (subtree ? REG_NOTIFY_CHANGE_NAME : 0);
    if (opened.handle == nullptr || !asynchronous || (filter & ~REG_NOTIFY_THREAD_AGNOSTIC) != told) {
        violation("RegNotifyChangeKeyValue: only written values of one key, or all changes of a tree, "
                  "asynchronously, are told of here");
        return ERROR_INVALID_PARAMETER;
    }
    HandleEntry* entry = handle_entry(event, Kind::Event, "RegNotifyChangeKeyValue", EVENT_MODIFY_STATE);
    if (entry == nullptr)
        return ERROR_INVALID_HANDLE;
    OpenedKey& watched = *opened.handle;
    // What the first call on a handle has asked for stays; the platform does not look at it again.
    if (watched.asked && watched.subtree != (subtree != FALSE)) {
        violation("RegNotifyChangeKeyValue: %s was asked for something else before", watched.path.c_str());
        return ERROR_INVALID_PARAMETER;
    }
    trace_detail("watch %s", shown_path(opened.path).c_str());
    // Asking again while a wait is under way makes one more of them, and they pile up.
    if (watched.waits.size() >= MOST_WAITS)
        violation("RegNotifyChangeKeyValue: %s is armed already, %zu times", watched.path.c_str(),
                  watched.waits.size());
    watched.asked = true;
    watched.subtree = subtree != FALSE;
    reset_object(*entry->object);
    watched.waits.push_back({entry->object, agnostic ? nullptr : asking_thread()});
    if (std::exchange(watched.change_pending, false))
        complete_notifications(&watched);
    return ERROR_SUCCESS;
}

} // extern "C"
