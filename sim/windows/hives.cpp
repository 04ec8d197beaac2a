// Registry hives in files, loaded below HKEY_USERS.
#include <map>

#include "sim/machine/machine.h"
#include "sim/script/commands.h"
#include "sim/windows/disk.h"
#include "sim/windows/registry.h"
#include "sim/windows/registry_commands.h"
#include "sim/windows/registry_tree.h"
#include "sim/windows/security.h"

namespace sim {

namespace {

struct HiveValue {
    std::string key;
    std::string name;
    RegistryValue data;
};

struct Hives {
    std::map<std::string, std::vector<HiveValue>> files; // by path, lower case
    std::map<std::string, std::string> loaded;           // the file by its name under HKU, lower case
};

} // namespace

static std::vector<HiveValue>& values_of(const std::string& path) {
    return machine_state<Hives>().files[lower(path)];
}

// The file behind a hive that is to be loaded. One that is missing is made, as an empty hive.
static DWORD open_hive(const std::string& path) {
    const PlainFile* file = find_file(path);
    if (file != nullptr && file->directory)
        return ERROR_ACCESS_DENIED;
    if (file != nullptr)
        return machine_state<Hives>().files.count(lower(path)) != 0 ? ERROR_SUCCESS : ERROR_BADDB;
    if (!file_has_folder(path))
        return ERROR_PATH_NOT_FOUND;
    trace("file create \"%s\"", path.c_str());
    set_file(path, FileState::Present);
    values_of(path) = {};
    return ERROR_SUCCESS;
}

// The values of a loaded hive, for its file. A key without any is not kept.
static void collect_values(const Key& key, const std::string& path, std::vector<HiveValue>* values) {
    for (const auto& [name, value] : key.values)
        values->push_back({path, value.name.empty() ? "@" : value.name, value.data});
    for (const auto& [name, below] : key.children)
        collect_values(*below, path.empty() ? below->name : path + "\\" + below->name, values);
}

static void unload_hive(const std::string& name) {
    auto& loaded = machine_state<Hives>().loaded;
    std::vector<HiveValue>& values = values_of(loaded[lower(name)]);
    values.clear();
    if (const KeyRef key = find_key("HKU\\" + name); key != nullptr)
        collect_values(*key, "", &values);
    registry_delete("HKU\\" + name);
    loaded.erase(lower(name));
}

} // namespace sim

using namespace sim;

extern "C" {

LSTATUS WINAPI RegLoadKeyW(HKEY key, LPCWSTR wide_name, LPCWSTR wide_file) {
    SIM_CALL(static_cast<LSTATUS>(ERROR_ACCESS_DENIED), ERROR_ACCESS_DENIED);
    const std::string name = narrow(wide_name);
    std::string file = narrow(wide_file);
    const std::string shown = file;
    bool as_folder = false;
    DWORD error = ERROR_SUCCESS;
    if (key != HKEY_USERS)
        error = ERROR_INVALID_PARAMETER;
    else if (!privilege_enabled("SeRestorePrivilege", "RegLoadKeyW"))
        error = ERROR_PRIVILEGE_NOT_HELD;
    else if (registry_has_key("HKU\\" + name))
        error = ERROR_ALREADY_EXISTS;
    else if ((error = resolve_path("RegLoadKeyW", &file, &as_folder)) == ERROR_SUCCESS)
        error = open_hive(file);
    trace("call RegLoadKeyW(\"%s\", \"%s\") = %u", name.c_str(), shown.c_str(), error);
    if (error != ERROR_SUCCESS)
        return static_cast<LSTATUS>(error);
    registry_create("HKU\\" + name);
    machine_state<Hives>().loaded[lower(name)] = file;
    for (const HiveValue& value : values_of(file))
        registry_set("HKU\\" + name + "\\" + value.key, value.name, value.data.type, value.data.bytes);
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegUnLoadKeyW(HKEY key, LPCWSTR wide_name) {
    SIM_CALL(static_cast<LSTATUS>(ERROR_ACCESS_DENIED), ERROR_ACCESS_DENIED);
    const std::string name = narrow(wide_name);
    DWORD error = ERROR_SUCCESS;
    if (!privilege_enabled("SeRestorePrivilege", "RegUnLoadKeyW"))
        error = ERROR_PRIVILEGE_NOT_HELD;
    else if (key != HKEY_USERS || !registry_has_key("HKU\\" + name))
        error = ERROR_FILE_NOT_FOUND;
    else if (machine_state<Hives>().loaded.count(lower(name)) == 0)
        error = ERROR_INVALID_PARAMETER; // an ordinary key
    else if (registry_is_open("HKU\\" + name))
        error = ERROR_ACCESS_DENIED;
    else
        unload_hive(name);
    trace("call RegUnLoadKeyW(\"%s\") = %u", name.c_str(), error);
    return static_cast<LSTATUS>(error);
}

} // extern "C"

// ---- commands ----

namespace sim {

static Action compile_hive(Tokens& tokens) {
    const std::string path = tokens.text();
    HiveValue value;
    value.key = tokens.word();
    value.name = tokens.word();
    value.data = read_registry_data(tokens);
    return [path, value] {
        values_of(path).push_back(value);
        if (find_file(path) == nullptr)
            set_file(path, FileState::Present);
    };
}

static const Commands
    g_commands({{"windows hive", Use::Machine, compile_hive,
                 "\"PATH\" KEY VALUE TYPE DATA - a value in a user hive file that can be loaded"}});

} // namespace sim
