// COM objects keep their identity: the methods that tell something are exchanged in their tables, once for
// each table of this process.
#define CINTERFACE
#include <cstring>
#include <map>
#include <set>
#include <taskschd.h>

#include "recorder/lines.h"
#include "recorder/record/calls.h"
#include "recorder/record/journal.h"
#include "recorder/record/known.h"

namespace record {

// ---- tables of methods ----

static std::map<void**, void*> g_methods; // the own one, by its place

static void exchange(void** place, void* wrapper) {
    DWORD protection = 0;
    if (*place == wrapper || !VirtualProtect(place, sizeof(*place), PAGE_READWRITE, &protection))
        return;
    g_methods[place] = *place;
    *place = wrapper;
    VirtualProtect(place, sizeof(*place), protection, &protection);
}

template <class Method> static Method own_method(void* self, size_t number) {
    const Guard guard;
    return reinterpret_cast<Method>(g_methods[*static_cast<void***>(self) + number]);
}

// With the lock held.
static void wrap_method(void* object, size_t number, void* wrapper) {
    exchange(*static_cast<void***>(object) + number, wrapper);
}

// ---- the graphics driver ----

constexpr size_t GET_INVERTER_PARAMS = 37;
constexpr size_t SET_INVERTER_PARAMS = 38;
using GetInverter = HRESULT(WINAPI*)(void*, const GUID*, DWORD, DWORD, DWORD*, DWORD*);
using SetInverter = HRESULT(WINAPI*)(void*, const GUID*, DWORD, DWORD, const DWORD*, DWORD*);

static std::string inverter_line(const DWORD* words) {
    return "windows inverter " + std::to_string(words[0]) + " " + std::to_string(words[1]);
}

static HRESULT WINAPI get_inverter(void* self, const GUID* block, DWORD one, DWORD bytes, DWORD* words,
                                   DWORD* error) {
    const HRESULT result =
        own_method<GetInverter>(self, GET_INVERTER_PARAMS)(self, block, one, bytes, words, error);
    if (recording()) {
        const Guard guard;
        tell("inverter", result == S_OK ? inverter_line(words) : "windows inverter get-fails");
    }
    return result;
}

static HRESULT WINAPI set_inverter(void* self, const GUID* block, DWORD one, DWORD bytes, const DWORD* words,
                                   DWORD* error) {
    const HRESULT result =
        own_method<SetInverter>(self, SET_INVERTER_PARAMS)(self, block, one, bytes, words, error);
    if (recording()) {
        const Guard guard;
        if (result == S_OK)
            now_known("inverter", inverter_line(words));
        else
            command("windows inverter set-fails");
        effect("call SetInverterParams(%lu, %lu) = 0x%lx", words[0], words[1], result);
    }
    return result;
}

// ---- the task scheduler ----

// The number of a method in its table.
#define METHOD(table, name) (offsetof(table, name) / sizeof(void*))

static std::map<void*, std::string> g_folders; // paths
static std::set<std::string> g_tasks;          // that the service has registered

static std::string folder_path(void* self) {
    const auto found = g_folders.find(self);
    return found != g_folders.end() ? found->second : "\\";
}

static HRESULT WINAPI folder_delete(ITaskFolder* self, BSTR name, LONG flags) {
    const HRESULT result = own_method<decltype(ITaskFolderVtbl::DeleteTask)>(
        self, METHOD(ITaskFolderVtbl, DeleteTask))(self, name, flags);
    if (!recording())
        return result;
    const Guard guard;
    const std::string task = lines::narrow(name);
    const std::string folder = folder_path(self);
    if (result == S_OK && g_tasks.erase(folder + task) == 0)
        command("windows task \"" + folder + "\" \"" + task + "\" present");
    effect("call DeleteTask(\"%s\", \"%s\") = 0x%lx", folder.c_str(), task.c_str(), result);
    return result;
}

static HRESULT WINAPI folder_register(ITaskFolder* self, BSTR name, ITaskDefinition* definition, LONG flags,
                                      VARIANT user, VARIANT password, TASK_LOGON_TYPE logon, VARIANT security,
                                      IRegisteredTask** task) {
    const HRESULT result = own_method<decltype(ITaskFolderVtbl::RegisterTaskDefinition)>(
        self, METHOD(ITaskFolderVtbl, RegisterTaskDefinition))(self, name, definition, flags, user, password,
                                                               logon, security, task);
    if (recording()) {
        const Guard guard;
        if (result == S_OK)
            g_tasks.insert(folder_path(self) + lines::narrow(name));
        effect("call RegisterTaskDefinition(\"%s\") = 0x%lx", lines::narrow(name).c_str(), result);
    }
    return result;
}

static void wrap_folder(ITaskFolder* folder, const std::string& path);

static HRESULT WINAPI folder_get(ITaskFolder* self, BSTR name, ITaskFolder** folder) {
    const HRESULT result = own_method<decltype(ITaskFolderVtbl::GetFolder)>(
        self, METHOD(ITaskFolderVtbl, GetFolder))(self, name, folder);
    if (recording() && result == S_OK) {
        const Guard guard;
        const std::string above = folder_path(self);
        wrap_folder(*folder, above + (above == "\\" ? "" : "\\") + lines::narrow(name));
    }
    return result;
}

static void wrap_folder(ITaskFolder* folder, const std::string& path) {
    wrap_method(folder, METHOD(ITaskFolderVtbl, GetFolder), reinterpret_cast<void*>(folder_get));
    wrap_method(folder, METHOD(ITaskFolderVtbl, DeleteTask), reinterpret_cast<void*>(folder_delete));
    wrap_method(folder, METHOD(ITaskFolderVtbl, RegisterTaskDefinition),
                reinterpret_cast<void*>(folder_register));
    g_folders[folder] = path;
}

static HRESULT WINAPI service_connect(ITaskService* self, VARIANT server, VARIANT user, VARIANT domain,
                                      VARIANT password) {
    const HRESULT result = own_method<decltype(ITaskServiceVtbl::Connect)>(
        self, METHOD(ITaskServiceVtbl, Connect))(self, server, user, domain, password);
    if (recording()) {
        const Guard guard;
        tell("scheduler", std::string("windows scheduler ") + (result == S_OK ? "present" : "missing"),
             result == S_OK);
    }
    return result;
}

static HRESULT WINAPI service_folder(ITaskService* self, BSTR path, ITaskFolder** folder) {
    const HRESULT result = own_method<decltype(ITaskServiceVtbl::GetFolder)>(
        self, METHOD(ITaskServiceVtbl, GetFolder))(self, path, folder);
    if (recording() && result == S_OK) {
        const Guard guard;
        wrap_folder(*folder, lines::narrow(path));
    }
    return result;
}

// ---- the wrapped calls ----

HRESULT WINAPI initialize_com(LPVOID reserved) {
    const HRESULT result = os::CoInitialize(reserved);
    if (recording()) {
        const Guard guard;
        outcome("CoInitialize", result != S_OK);
    }
    return result;
}

static CLSID g_graphics; // the class as it was found last

HRESULT WINAPI class_of_name(LPCOLESTR name, CLSID* result) {
    const HRESULT found = os::CLSIDFromProgID(name, result);
    if (recording() && lstrcmpiW(name, L"IgfxExt.CUIExternal") == 0) {
        const Guard guard;
        g_graphics = *result;
        tell("graphics", std::string("windows graphics ") + (SUCCEEDED(found) ? "present" : "missing"),
             FAILED(found));
    }
    return found;
}

HRESULT WINAPI create_instance(REFCLSID name, IUnknown* outer, DWORD context, REFIID wanted, void** object) {
    const HRESULT result = os::CoCreateInstance(name, outer, context, wanted, object);
    if (!recording() || FAILED(result))
        return result;
    const Guard guard;
    if (IsEqualGUID(name, CLSID_TaskScheduler)) {
        wrap_method(*object, METHOD(ITaskServiceVtbl, Connect), reinterpret_cast<void*>(service_connect));
        wrap_method(*object, METHOD(ITaskServiceVtbl, GetFolder), reinterpret_cast<void*>(service_folder));
    } else if (IsEqualGUID(name, g_graphics)) {
        wrap_method(*object, GET_INVERTER_PARAMS, reinterpret_cast<void*>(get_inverter));
        wrap_method(*object, SET_INVERTER_PARAMS, reinterpret_cast<void*>(set_inverter));
    }
    return result;
}

} // namespace record
