// COM: what every interface builds on, strings and variants.
#pragma once

#include "sim_base.h"

using BSTR = WCHAR*;
using VARTYPE = WORD;
using VARIANT_BOOL = SHORT;
#define VARIANT_FALSE (static_cast<VARIANT_BOOL>(0))
#define VARIANT_TRUE  (static_cast<VARIANT_BOOL>(-1))
#define VT_EMPTY      0
#define VT_BSTR       8

struct VARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        BSTR bstrVal;
        LONG lVal;
        struct {
            PVOID pvRecord;
            PVOID pRecInfo;
        };
    };
};
static_assert(sizeof(VARIANT) == 24 && offsetof(VARIANT, bstrVal) == 8);

#define CO_E_NOTINITIALIZED (static_cast<HRESULT>(0x800401F0u))
#define CO_E_CLASSSTRING    (static_cast<HRESULT>(0x800401F3u))
#define REGDB_E_CLASSNOTREG (static_cast<HRESULT>(0x80040154u))
#define RPC_E_CHANGED_MODE  (static_cast<HRESULT>(0x80010106u))
#define RPC_E_TOO_LATE      (static_cast<HRESULT>(0x80010119u))

// The method stands for its place in the method table only: the service never calls it.
extern "C" HRESULT sim_unused_method(const char* name);
#define SIM_UNUSED_METHOD(name)                                                                              \
    virtual HRESULT STDMETHODCALLTYPE name() {                                                               \
        return sim_unused_method(#name);                                                                     \
    }
#define SIM_UNUSED_PROPERTY(name)                                                                            \
    SIM_UNUSED_METHOD(get_##name)                                                                            \
    SIM_UNUSED_METHOD(put_##name)

struct IUnknown {
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** object) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;
};

struct IDispatch : public IUnknown {
    SIM_UNUSED_METHOD(GetTypeInfoCount)
    SIM_UNUSED_METHOD(GetTypeInfo)
    SIM_UNUSED_METHOD(GetIDsOfNames)
    SIM_UNUSED_METHOD(Invoke)
};
