// The graphics driver's COM class.
#include <cstring>

#include "sim/machine/machine.h"
#include "sim/notebook/panel.h"
#include "sim/windows/com.h"

namespace sim {

constexpr CLSID GRAPHICS_CLASS = {
    0x6F1D2A30, 0x53B2, 0x4E0C, {0x9A, 0x51, 0x1C, 0x7E, 0x44, 0x0B, 0xD2, 0x96}};
constexpr IID CUI_EXTERNAL = {0x2CED2F89, 0x627B, 0x4E5D, {0x84, 0x0F, 0xB1, 0x26, 0xEE, 0x85, 0x8C, 0xD8}};
constexpr GUID INVERTER_BLOCK = {
    0x814472D8, 0x36EE, 0x4AFD, {0xBA, 0xB0, 0xD6, 0x80, 0xEE, 0xBB, 0x00, 0x34}};
constexpr DWORD DRIVER_ERROR = 0x2A; // what the methods leave in the error code when they fail

namespace {

// What a caller sees: the method table's address. By position, as the driver's own header would give it.
struct CuiDouble;
struct CuiFace {
    void* const* table;
    CuiDouble* object;
};

struct CuiDouble : ComObject {
    CuiFace face = {};
};

} // namespace

static CuiDouble& object_of(void* self) {
    return *static_cast<CuiFace*>(self)->object;
}

static HRESULT STDMETHODCALLTYPE cui_query_interface(void* self, REFIID wanted, void** object) {
    note_call("QueryInterface");
    com_use(object_of(self), "QueryInterface");
    const bool known = wanted == CUI_EXTERNAL || wanted == UNKNOWN_INTERFACE;
    *object = known ? self : nullptr;
    if (known)
        com_add_reference(object_of(self));
    return known ? S_OK : E_NOINTERFACE;
}

static ULONG STDMETHODCALLTYPE cui_add_reference(void* self) {
    com_use(object_of(self), "AddRef");
    return com_add_reference(object_of(self));
}

static ULONG STDMETHODCALLTYPE cui_release(void* self) {
    com_use(object_of(self), "Release");
    return com_release(object_of(self));
}

static HRESULT STDMETHODCALLTYPE cui_unknown() {
    violation("ICUIExternal: a method at another position");
    return E_FAIL;
}

static bool right_block(const GUID* block, DWORD count, DWORD size, const DWORD* error, const char* method) {
    if (*block == INVERTER_BLOCK && count == 1 && size == 8 && *error == 0)
        return true;
    violation("%s: block, count %u, size %u or error %u", method, count, size, *error);
    return false;
}

static HRESULT STDMETHODCALLTYPE GetInverterParams(void* self, const GUID* block, DWORD count, DWORD size,
                                                   void* data, DWORD* error) {
    COM_CALL(object_of(self));
    if (!right_block(block, count, size, error, "GetInverterParams") || inverter().get_fails) {
        *error = DRIVER_ERROR;
        return E_FAIL;
    }
    const DWORD words[2] = {inverter().type, inverter().frequency};
    std::memcpy(data, words, sizeof(words));
    const HRESULT result = inverter().get_positive ? S_FALSE : S_OK;
    trace_detail("call GetInverterParams(%u, %u) = 0x%x", words[0], words[1], static_cast<unsigned>(result));
    return result;
}

static HRESULT STDMETHODCALLTYPE SetInverterParams(void* self, const GUID* block, DWORD count, DWORD size,
                                                   const void* data, DWORD* error) {
    COM_CALL(object_of(self));
    DWORD words[2] = {};
    std::memcpy(words, data, sizeof(words));
    HRESULT result = inverter().set_positive ? S_FALSE : S_OK;
    if (!right_block(block, count, size, error, "SetInverterParams") || inverter().set_fails) {
        *error = DRIVER_ERROR;
        result = E_FAIL;
    } else {
        inverter().type = words[0];
        inverter().frequency = words[1];
    }
    trace("call SetInverterParams(%u, %u) = 0x%x", words[0], words[1], static_cast<unsigned>(result));
    return result;
}

// Places in the method table.
constexpr size_t METHODS = 60;
constexpr size_t GET_INVERTER_PARAMS = 37;
constexpr size_t SET_INVERTER_PARAMS = 38;

static void* const* method_table() {
    static void* table[METHODS];
    for (void*& entry : table)
        entry = reinterpret_cast<void*>(cui_unknown);
    table[0] = reinterpret_cast<void*>(cui_query_interface);
    table[1] = reinterpret_cast<void*>(cui_add_reference);
    table[2] = reinterpret_cast<void*>(cui_release);
    table[GET_INVERTER_PARAMS] = reinterpret_cast<void*>(GetInverterParams);
    table[SET_INVERTER_PARAMS] = reinterpret_cast<void*>(SetInverterParams);
    return table;
}

static HRESULT create_cui(REFIID wanted, void** object) {
    if (wanted != CUI_EXTERNAL)
        return E_NOINTERFACE;
    auto* made = com_make<CuiDouble>("ICUIExternal");
    made->face = {method_table(), made};
    *object = &made->face;
    return S_OK;
}

static const ComClasses g_graphicsClass({GRAPHICS_CLASS, "IgfxExt.CUIExternal", graphics_present,
                                         CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER, create_cui});

} // namespace sim
