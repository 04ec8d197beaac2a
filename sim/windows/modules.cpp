#include "sim/windows/modules.h"

#include <algorithm>
#include <map>

#include "sim/script/commands.h"

namespace sim {

namespace {

struct ModuleInfo {
    std::string name;
    std::vector<Export> exports;
};

} // namespace

// Static registration runs before main and in any order; the list lives in a function for that reason alone.
static std::vector<ModuleInfo>& modules() {
    static std::vector<ModuleInfo> list;
    return list;
}

Module::Module(const char* name, std::vector<Export> exports) {
    modules().push_back({name, std::move(exports)});
}

namespace {

struct ModuleSettings {
    std::map<std::string, bool> missing; // "module" or "module!function", lower case
    std::map<std::string, size_t> loads;
};

struct LoadedModules {
    std::map<size_t, unsigned> count; // by index of the module
};

} // namespace

static ModuleSettings& settings() {
    return machine_state<ModuleSettings>();
}

static bool is_missing(const std::string& what) {
    const auto found = settings().missing.find(lower(what));
    return found != settings().missing.end() && found->second;
}

void set_module_missing(const std::string& module, bool missing) {
    settings().missing[lower(module)] = missing;
}

void set_export_missing(const std::string& module, const std::string& function, bool missing) {
    settings().missing[lower(module + "!" + function)] = missing;
}

static size_t module_index(const std::string& name) {
    const std::string file = name.find('.') == std::string::npos ? name + ".dll" : name;
    size_t index = 0;
    while (index < modules().size() && !same_text(modules()[index].name, file))
        ++index;
    return index;
}

size_t loaded_modules() {
    size_t count = 0;
    for (auto& process : machine().processes) {
        for (const auto& [index, loads] : process_state<LoadedModules>(process.get()).count)
            count += loads;
    }
    return count;
}

size_t module_loads(const std::string& module) {
    return settings().loads[lower(module)];
}

void require_loaded(const char* module, const char* function) {
    if (process_state<LoadedModules>().count[module_index(module)] == 0)
        violation("%s: called after %s was freed", function, module);
}

// A module's handle is not one of the process's handles, and the same for every load.
static HMODULE as_handle(size_t index) {
    return reinterpret_cast<HMODULE>(0x7FF800000000 + (index << 20));
}

// The index of a loaded module; otherwise a violation, and the number of all modules.
static size_t loaded_index(HMODULE handle, const char* call) {
    for (size_t index = 0; index < modules().size(); ++index) {
        if (handle == as_handle(index) && process_state<LoadedModules>().count[index] != 0)
            return index;
    }
    set_last_error(ERROR_INVALID_HANDLE);
    if (handle != nullptr)
        violation("%s: the module is not loaded", call);
    return modules().size();
}

} // namespace sim

using namespace sim;

extern "C" {

HMODULE WINAPI LoadLibraryExW(LPCWSTR wide_name, HANDLE, DWORD flags) {
    SIM_CALL(nullptr, ERROR_MOD_NOT_FOUND);
    const std::string name = narrow(wide_name);
    if (flags != LOAD_LIBRARY_SEARCH_SYSTEM32)
        violation("LoadLibraryExW(%s, 0x%x): not from the system directory alone", name.c_str(), flags);
    const size_t index = module_index(name);
    if (index == modules().size() || is_missing(name)) {
        set_last_error(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    trace_detail("LoadLibraryExW(%s)", name.c_str());
    ++settings().loads[lower(name)];
    ++process_state<LoadedModules>().count[index];
    return as_handle(index);
}

FARPROC WINAPI GetProcAddress(HMODULE handle, LPCSTR name) {
    SIM_CALL(nullptr, ERROR_PROC_NOT_FOUND);
    const size_t index = loaded_index(handle, "GetProcAddress");
    if (index == modules().size()) {
        if (handle == nullptr) // the executable itself, which exports nothing
            set_last_error(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    const ModuleInfo& module = modules()[index];
    for (const Export& row : module.exports) {
        if (std::string_view(row.name) == name && !is_missing(module.name + "!" + name))
            return reinterpret_cast<FARPROC>(row.function);
    }
    set_last_error(ERROR_PROC_NOT_FOUND);
    return nullptr;
}

BOOL WINAPI FreeLibrary(HMODULE handle) {
    SIM_VISIT();
    const size_t index = loaded_index(handle, "FreeLibrary");
    if (index == modules().size())
        return FALSE;
    trace_detail("FreeLibrary(%s)", modules()[index].name.c_str());
    --process_state<LoadedModules>().count[index];
    return TRUE;
}

} // extern "C"

// ---- commands ----

namespace sim {

static Action compile_powrprof(Tokens& tokens) {
    enum { MISSING, PRESENT, WITHOUT };
    const size_t what = tokens.choice({"missing", "present", "without"});
    const std::string function = what == WITHOUT ? tokens.word() : "";
    return [what, function] {
        if (what == WITHOUT)
            set_export_missing("powrprof.dll", function, true);
        else
            set_module_missing("powrprof.dll", what == MISSING);
        // Whole again.
        if (what == PRESENT)
            std::erase_if(settings().missing,
                          [](const auto& entry) { return entry.first.starts_with("powrprof.dll!"); });
    };
}

static const Commands
    g_commands({{"windows powrprof", Use::Machine, compile_powrprof,
                 "missing|present | without FUNCTION - powrprof.dll, or one of its functions"}});

} // namespace sim
