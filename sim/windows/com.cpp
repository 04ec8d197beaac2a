#include "sim/windows/com.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>

namespace sim {

namespace {

struct ComThread {
    int initialised = 0;
    bool multithreaded = false;
};

struct ComProcess {
    bool security_set = false;
    size_t initialisations = 0;
    size_t multithreaded_users = 0;
    std::vector<std::unique_ptr<ComObject>> objects;
    std::map<BSTR, std::u16string> strings; // the map's text is what the pointer shows

    ~ComProcess() {
        for (const auto& [text, kept] : strings)
            std::free(reinterpret_cast<DWORD*>(text) - 1);
    }
};

} // namespace

static ComThread& com_thread() {
    return thread_state<ComThread>();
}

static ComProcess& com_process() {
    return process_state<ComProcess>();
}

static std::vector<ComClass>& classes() {
    static std::vector<ComClass> list;
    return list;
}

ComClasses::ComClasses(const ComClass& added) {
    classes().push_back(added);
}

// ---- objects ----

static DWORD own_apartment() {
    return com_thread().multithreaded ? 0 : current()->id;
}

void com_use(const ComObject& object, const char* method) {
    const char* name = object.name.c_str();
    if (object.process != current_process())
        violation("%s::%s: an object of another process", name, method);
    else if (object.references <= 0)
        violation("%s::%s: after the last release", name, method);
    else if (com_thread().initialised == 0)
        violation("%s::%s: COM is not in use on this thread", name, method);
    else if (object.apartment != own_apartment())
        violation("%s::%s: the object belongs to another apartment", name, method);
}

ULONG com_add_reference(ComObject& object) {
    enter_call("AddRef", false, 0);
    return static_cast<ULONG>(++object.references);
}

ULONG com_release(ComObject& object) {
    enter_call("Release", false, 0);
    return static_cast<ULONG>(object.references > 0 ? --object.references : 0);
}

void com_adopt(std::unique_ptr<ComObject> object, std::string name) {
    object->name = std::move(name);
    object->process = current_process();
    object->apartment = own_apartment();
    com_process().objects.push_back(std::move(object));
}

bool com_is_named(const ComObject& object, REFIID wanted) {
    // clang-format off
    static const struct { const char* name; IID id; } rows[] = {
        {"IAction",            {0xBAE54997, 0x48B1, 0x4CBE, {0x99, 0x65, 0xD6, 0xBE, 0x26, 0x3E, 0xBE, 0xA4}}},
        {"IActionCollection",  {0x02820E19, 0x7B98, 0x4ED2, {0xB2, 0xE8, 0xFD, 0xCC, 0xCE, 0xFF, 0x61, 0x9B}}},
        {"IRegisteredTask",    {0x9C86F320, 0xDEE3, 0x4DD1, {0xB9, 0x72, 0xA3, 0x03, 0xF2, 0x6B, 0x06, 0x1E}}},
        {"ITaskDefinition",    {0xF5BC8FC5, 0x536D, 0x4F77, {0xB8, 0x52, 0xFB, 0xC1, 0x35, 0x6F, 0xDE, 0xB6}}},
        {"ITaskFolder",        {0x8CFAC062, 0xA080, 0x4C15, {0x9A, 0x88, 0xAA, 0x7C, 0x2A, 0xF8, 0x0D, 0xFC}}},
        {"ITaskService",       {0x2FABA4C7, 0x4DA9, 0x4013, {0x96, 0x97, 0x20, 0xCC, 0x3F, 0xD4, 0x0F, 0x85}}},
        {"ITaskSettings",      {0x8FD4711D, 0x2D02, 0x4C8C, {0x87, 0xE3, 0xEF, 0xF6, 0x99, 0xDE, 0x12, 0x7E}}},
        {"ITrigger",           {0x09941815, 0xEA89, 0x4B5B, {0x89, 0xE0, 0x2A, 0x77, 0x38, 0x01, 0xFA, 0xC3}}},
        {"ITriggerCollection", {0x85DF5081, 0x1B24, 0x4F32, {0x87, 0x8A, 0xD9, 0xD1, 0x4D, 0xF4, 0xCB, 0x77}}},
    };
    // clang-format on
    return std::any_of(std::begin(rows), std::end(rows),
                       [&](const auto& row) { return object.name == row.name && wanted == row.id; });
}

size_t com_references(Process* process) {
    size_t count = 0;
    for (const auto& object : process_state<ComProcess>(process).objects)
        count += static_cast<size_t>(object->references);
    return count;
}

size_t com_strings(Process* process) {
    return process_state<ComProcess>(process).strings.size();
}

size_t com_initialisations(Process* process) {
    return process_state<ComProcess>(process).initialisations;
}

static std::string com_left(Process* process) {
    const size_t references = com_references(process);
    const size_t strings = com_strings(process);
    const size_t initialisations = com_initialisations(process);
    return references + strings + initialisations == 0
               ? ""
               : format("%zu COM references, %zu strings, %zu initialisations; ", references, strings,
                        initialisations);
}

static const LeftTeller g_comLeft(com_left);

// ---- strings ----

std::string bstr_text(BSTR text, const char* call) {
    if (text == nullptr)
        return {};
    if (com_process().strings.count(text) == 0) {
        violation("%s: a string that is no living BSTR", call);
        return {};
    }
    return narrow(text);
}

std::string variant_text(const VARIANT& variant, const char* call) {
    if (variant.vt == VT_BSTR)
        return bstr_text(variant.bstrVal, call);
    if (variant.vt != VT_EMPTY)
        violation("%s: variant type %u", call, variant.vt);
    return {};
}

// ---- apartments ----

static HRESULT enter_apartment(bool multithreaded) {
    ComThread& thread = com_thread();
    if (thread.initialised > 0 && thread.multithreaded != multithreaded)
        return RPC_E_CHANGED_MODE;
    thread.multithreaded = multithreaded;
    ++com_process().initialisations;
    if (thread.initialised++ > 0)
        return S_FALSE;
    com_process().multithreaded_users += multithreaded;
    return S_OK;
}

static void leave_apartment() {
    ComThread& thread = com_thread();
    ComProcess& process = com_process();
    if (thread.initialised == 0) {
        violation("CoUninitialize: COM is not in use on this thread");
        return;
    }
    --process.initialisations;
    if (--thread.initialised > 0)
        return;
    if (thread.multithreaded && --process.multithreaded_users > 0)
        return;
    const DWORD apartment = thread.multithreaded ? 0 : current()->id;
    for (const auto& object : process.objects) {
        if (object->apartment == apartment && object->references > 0)
            violation("CoUninitialize: %s is still held", object->name.c_str());
    }
}

static const ComClass* find_class(REFCLSID id) {
    for (const ComClass& entry : classes()) {
        if (entry.id == id && entry.registered())
            return &entry;
    }
    return nullptr;
}

} // namespace sim

using namespace sim;

extern "C" {

HRESULT sim_unused_method(const char* name) {
    violation("%s: a method that the simulation does not know", name);
    return E_FAIL;
}

HRESULT WINAPI CoInitialize(LPVOID reserved) {
    SIM_CALL(E_OUTOFMEMORY, ERROR_NOT_ENOUGH_MEMORY);
    if (reserved != nullptr)
        return E_INVALIDARG;
    return enter_apartment(false);
}

HRESULT WINAPI CoInitializeEx(LPVOID reserved, DWORD model) {
    SIM_CALL(E_OUTOFMEMORY, ERROR_NOT_ENOUGH_MEMORY);
    if (reserved != nullptr)
        return E_INVALIDARG;
    trace_detail("CoInitializeEx(%u)", model);
    if (model != COINIT_MULTITHREADED && model != COINIT_APARTMENTTHREADED)
        violation("CoInitializeEx: model %u is not known here", model);
    return enter_apartment(model == COINIT_MULTITHREADED);
}

void WINAPI CoUninitialize() {
    SIM_VISIT();
    leave_apartment();
}

HRESULT WINAPI CoInitializeSecurity(PVOID descriptor, LONG service_count, PVOID services, PVOID reserved,
                                    DWORD authentication, DWORD impersonation, PVOID authentication_list,
                                    DWORD capabilities, PVOID reserved_too) {
    SIM_CALL(E_FAIL, ERROR_GEN_FAILURE);
    if (services != nullptr || authentication_list != nullptr)
        violation("CoInitializeSecurity: lists of services are not known here");
    if (reserved != nullptr || reserved_too != nullptr)
        return E_INVALIDARG;
    if (com_thread().initialised == 0)
        return CO_E_NOTINITIALIZED;
    if (com_process().security_set)
        return RPC_E_TOO_LATE;
    com_process().security_set = true;
    trace_detail("CoInitializeSecurity(%s, %d, %u, %u, %u)", descriptor == nullptr ? "null" : "descriptor",
                 service_count, authentication, impersonation, capabilities);
    return S_OK;
}

HRESULT WINAPI CLSIDFromProgID(LPCWSTR program, CLSID* found) {
    SIM_CALL(CO_E_CLASSSTRING, ERROR_GEN_FAILURE);
    const std::string name = narrow(program);
    for (const ComClass& entry : classes()) {
        if (entry.program == nullptr || !same_text(entry.program, name) || !entry.registered())
            continue;
        *found = entry.id;
        return S_OK;
    }
    return CO_E_CLASSSTRING;
}

HRESULT WINAPI CoCreateInstance(REFCLSID wanted, IUnknown* outer, DWORD context, REFIID interface_id,
                                LPVOID* object) {
    SIM_CALL(E_OUTOFMEMORY, ERROR_NOT_ENOUGH_MEMORY);
    *object = nullptr;
    trace_detail("CoCreateInstance(0x%x)", context);
    if (outer != nullptr)
        violation("CoCreateInstance: aggregation is not known here");
    if (com_thread().initialised == 0) {
        violation("CoCreateInstance: COM is not in use on this thread");
        return CO_E_NOTINITIALIZED;
    }
    const ComClass* entry = find_class(wanted);
    if (entry == nullptr || (entry->contexts & context) == 0)
        return REGDB_E_CLASSNOTREG;
    return entry->create(interface_id, object);
}

BSTR WINAPI SysAllocString(const WCHAR* text) {
    SIM_CALL(nullptr, ERROR_NOT_ENOUGH_MEMORY);
    if (text == nullptr)
        return nullptr;
    const std::u16string wide = widen(narrow(text));
    const size_t bytes = wide.size() * sizeof(WCHAR);
    auto* block = static_cast<DWORD*>(std::malloc(sizeof(DWORD) + bytes + sizeof(WCHAR)));
    *block = static_cast<DWORD>(bytes); // a BSTR has its length in front
    std::memcpy(block + 1, wide.c_str(), bytes + sizeof(WCHAR));
    const auto made = reinterpret_cast<BSTR>(block + 1);
    com_process().strings.emplace(made, wide);
    return made;
}

void WINAPI SysFreeString(BSTR text) {
    SIM_VISIT();
    if (text == nullptr)
        return;
    if (com_process().strings.erase(text) == 0) {
        violation("SysFreeString: no living BSTR of this process");
        return;
    }
    std::free(reinterpret_cast<DWORD*>(text) - 1);
}

HRESULT WINAPI VariantClear(VARIANT* variant) {
    SIM_VISIT();
    if (variant->vt == VT_BSTR)
        SysFreeString(variant->bstrVal);
    *variant = VARIANT{};
    return S_OK;
}

} // extern "C"
