// The doubles are told by their tables of functions: one object each, which lives as long as the process.
// What the product does not call is no function.
#define CINTERFACE
#include "recorder/runner/com.h"

#include <cstring>
#include <set>
#include <taskschd.h>
#include <utility>

#include "recorder/real.h"
#include "recorder/runner/output.h"
#include "recorder/runner/settings.h"

namespace runner {

// ---- what all have ----

static HRESULT WINAPI query_itself(void* self, const IID&, void** object) {
    *object = self;
    return S_OK;
}

static ULONG WINAPI count_nothing(void*) {
    return 1;
}

// The first three functions of each table.
template <class Table> static void add_unknown(Table* table) {
    void* const functions[] = {reinterpret_cast<void*>(query_itself), reinterpret_cast<void*>(count_nothing),
                               reinterpret_cast<void*>(count_nothing)};
    std::memcpy(static_cast<void*>(table), functions, sizeof(functions));
}

// ---- the graphics driver ----

static const GUID g_graphicsClass = {
    0x6F1D2A30, 0x53B2, 0x4E0C, {0x9A, 0x51, 0x1C, 0x7E, 0x44, 0x0B, 0xD2, 0x96}};
constexpr DWORD DRIVER_ERROR = 0x2A; // what the methods leave in the error code when they fail
constexpr size_t GET_INVERTER_PARAMS = 37;
constexpr size_t SET_INVERTER_PARAMS = 38;

static HRESULT WINAPI get_inverter(void*, const GUID*, DWORD, DWORD, DWORD* words, DWORD* error) {
    if (setting("inverter-get-fails", 0) != 0) {
        *error = DRIVER_ERROR;
        return E_FAIL;
    }
    words[0] = setting("inverter-type", 1);
    words[1] = setting("inverter-frequency", 1000);
    return S_OK;
}

static HRESULT WINAPI set_inverter(void*, const GUID*, DWORD, DWORD, const DWORD* words, DWORD* error) {
    HRESULT result = S_OK;
    if (setting("inverter-set-fails", 0) != 0) {
        *error = DRIVER_ERROR;
        result = E_FAIL;
    } else {
        set_setting("inverter-type", words[0]);
        set_setting("inverter-frequency", words[1]);
    }
    effect("call SetInverterParams(%lu, %lu) = 0x%lx", words[0], words[1], result);
    return result;
}

static void* graphics() {
    static void* table[SET_INVERTER_PARAMS + 1];
    static void* object = table;
    add_unknown(&table);
    table[GET_INVERTER_PARAMS] = reinterpret_cast<void*>(get_inverter);
    table[SET_INVERTER_PARAMS] = reinterpret_cast<void*>(set_inverter);
    return &object;
}

// ---- the task scheduler ----

constexpr HRESULT NOT_FOUND = static_cast<HRESULT>(0x80070002u);
constexpr HRESULT NOT_RUNNING = static_cast<HRESULT>(0x80041315u);
constexpr HRESULT UNAVAILABLE = static_cast<HRESULT>(0x800706BAu);

static std::set<std::pair<std::string, std::string>> g_tasks; // folder and name, in small letters
static std::set<std::string> g_folders = {"\\"};

static std::string folder_path(const std::string& folder) {
    return small(folder.starts_with("\\") ? folder : "\\" + folder);
}

bool has_task(const std::string& folder, const std::string& name) {
    return g_tasks.contains({folder_path(folder), small(name)});
}

void add_task(const std::string& folder, const std::string& name) {
    g_folders.insert(folder_path(folder));
    g_tasks.insert({folder_path(folder), small(name)});
}

static bool scheduler_runs() {
    return setting("scheduler", 1) != 0;
}

namespace {

struct Folder {
    const ITaskFolderVtbl* table;
    std::string path;
};

} // namespace

static HRESULT open_folder(const std::string& path, ITaskFolder** folder);

static HRESULT WINAPI folder_get(ITaskFolder* self, BSTR name, ITaskFolder** folder) {
    const std::string& path = reinterpret_cast<Folder*>(self)->path;
    return open_folder(path == "\\" ? narrow(name) : path + "\\" + narrow(name), folder);
}

static HRESULT WINAPI folder_delete(ITaskFolder* self, BSTR name, LONG) {
    const std::string& path = reinterpret_cast<Folder*>(self)->path;
    HRESULT result = UNAVAILABLE;
    if (scheduler_runs())
        result = g_tasks.erase({folder_path(path), small(narrow(name))}) != 0 ? S_OK : NOT_FOUND;
    effect("call DeleteTask(\"%s\", \"%s\") = 0x%lx", path.c_str(), narrow(name).c_str(), result);
    return result;
}

static HRESULT WINAPI folder_register(ITaskFolder* self, BSTR name, ITaskDefinition*, LONG, VARIANT, VARIANT,
                                      TASK_LOGON_TYPE, VARIANT, IRegisteredTask** task) {
    const HRESULT result = scheduler_runs() ? S_OK : UNAVAILABLE;
    if (result == S_OK) {
        static IUnknownVtbl table;
        static const void* registered = &table;
        add_unknown(&table);
        add_task(reinterpret_cast<Folder*>(self)->path, narrow(name));
        *task = reinterpret_cast<IRegisteredTask*>(&registered);
    }
    effect("call RegisterTaskDefinition(\"%s\") = 0x%lx", narrow(name).c_str(), result);
    return result;
}

static HRESULT open_folder(const std::string& path, ITaskFolder** folder) {
    static ITaskFolderVtbl table;
    if (!scheduler_runs())
        return UNAVAILABLE;
    if (!g_folders.contains(folder_path(path)))
        return NOT_FOUND;
    add_unknown(&table);
    table.GetFolder = folder_get;
    table.DeleteTask = folder_delete;
    table.RegisterTaskDefinition = folder_register;
    *folder = reinterpret_cast<ITaskFolder*>(
        new Folder{&table, path.starts_with("\\") ? path : "\\" + path}); // as long as the process
    return S_OK;
}

// The parts of a definition take what they are told.

static HRESULT WINAPI take_text(void*, BSTR) {
    return S_OK;
}

static HRESULT WINAPI take_flag(void*, VARIANT_BOOL) {
    return S_OK;
}

static HRESULT WINAPI create_trigger(void*, int type, void** trigger) {
    constexpr size_t put_id = 9;
    constexpr size_t put_subscription = 21; // of the trigger by an event, behind all that a trigger has
    static void* table[put_subscription + 1];
    static void* object = table;
    add_unknown(&table);
    table[put_id] = reinterpret_cast<void*>(take_text);
    table[put_subscription] = reinterpret_cast<void*>(take_text);
    *trigger = &object;
    return type == TASK_TRIGGER_EVENT ? S_OK : E_INVALIDARG;
}

static HRESULT WINAPI create_action(void*, int type, void** action) {
    static IExecActionVtbl table;
    static const void* object = &table;
    add_unknown(&table);
    table.put_Path = reinterpret_cast<decltype(table.put_Path)>(take_text);
    table.put_Arguments = reinterpret_cast<decltype(table.put_Arguments)>(take_text);
    *action = &object;
    return type == TASK_ACTION_EXEC ? S_OK : E_INVALIDARG;
}

static HRESULT WINAPI get_triggers(ITaskDefinition*, ITriggerCollection** triggers) {
    static ITriggerCollectionVtbl table;
    static const void* object = &table;
    add_unknown(&table);
    table.Create = reinterpret_cast<decltype(table.Create)>(create_trigger);
    *triggers = reinterpret_cast<ITriggerCollection*>(&object);
    return S_OK;
}

static HRESULT WINAPI get_actions(ITaskDefinition*, IActionCollection** actions) {
    static IActionCollectionVtbl table;
    static const void* object = &table;
    add_unknown(&table);
    table.Create = reinterpret_cast<decltype(table.Create)>(create_action);
    *actions = reinterpret_cast<IActionCollection*>(&object);
    return S_OK;
}

static HRESULT WINAPI get_settings(ITaskDefinition*, ITaskSettings** settings) {
    static ITaskSettingsVtbl table;
    static const void* object = &table;
    add_unknown(&table);
    table.put_AllowDemandStart = reinterpret_cast<decltype(table.put_AllowDemandStart)>(take_flag);
    table.put_DisallowStartIfOnBatteries =
        reinterpret_cast<decltype(table.put_DisallowStartIfOnBatteries)>(take_flag);
    table.put_StopIfGoingOnBatteries =
        reinterpret_cast<decltype(table.put_StopIfGoingOnBatteries)>(take_flag);
    *settings = reinterpret_cast<ITaskSettings*>(&object);
    return S_OK;
}

static HRESULT WINAPI new_task(ITaskService*, DWORD, ITaskDefinition** definition) {
    static ITaskDefinitionVtbl table;
    static const void* object = &table;
    add_unknown(&table);
    table.get_Triggers = get_triggers;
    table.get_Actions = get_actions;
    table.get_Settings = get_settings;
    *definition = reinterpret_cast<ITaskDefinition*>(&object);
    return S_OK;
}

static HRESULT WINAPI service_connect(ITaskService*, VARIANT, VARIANT, VARIANT, VARIANT) {
    return scheduler_runs() ? S_OK : NOT_RUNNING;
}

static HRESULT WINAPI service_folder(ITaskService*, BSTR path, ITaskFolder** folder) {
    return open_folder(narrow(path), folder);
}

static void* task_service() {
    static ITaskServiceVtbl table;
    static const void* object = &table;
    add_unknown(&table);
    table.Connect = service_connect;
    table.GetFolder = service_folder;
    table.NewTask = new_task;
    return &object;
}

// ---- the wrapped calls ----

HRESULT WINAPI class_of_name(LPCOLESTR name, CLSID* result) {
    if (lstrcmpiW(name, L"IgfxExt.CUIExternal") != 0)
        return REAL(CLSIDFromProgID)(name, result);
    *result = g_graphicsClass;
    return setting("graphics", 0) != 0 ? S_OK : CO_E_CLASSSTRING;
}

HRESULT WINAPI create_instance(REFCLSID name, IUnknown* outer, DWORD context, REFIID wanted, void** object) {
    const bool is_graphics = IsEqualGUID(name, g_graphicsClass);
    if (!is_graphics && !IsEqualGUID(name, CLSID_TaskScheduler))
        return REAL(CoCreateInstance)(name, outer, context, wanted, object);
    if (is_graphics && setting("graphics", 0) == 0)
        return REGDB_E_CLASSNOTREG;
    *object = is_graphics ? graphics() : task_service();
    return S_OK;
}

} // namespace runner
