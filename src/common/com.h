// Holders for what COM calls hand out or take: interface pointers, strings and variants. Each releases on
// every path out of a scope, so it must go before its thread ends its use of COM.
#pragma once

#include <windows.h>
#include <oleauto.h>

// Owns one reference to a COM object.
template <typename T> struct ComPointer {
    T* pointer = nullptr;

    ComPointer() = default;
    ComPointer(const ComPointer&) = delete;
    ComPointer& operator=(const ComPointer&) = delete;
    ~ComPointer() { Release(); }

    T* operator->() const { return pointer; }

    // Where a call stores the reference that it hands out; the holder must be empty.
    T** Receive() { return &pointer; }
    void** ReceiveAny() { return reinterpret_cast<void**>(&pointer); }

    void Release() {
        if (pointer != nullptr)
            pointer->Release();
        pointer = nullptr;
    }
};

// Owns a string argument; `text` is null when there was no memory for it.
struct BstrHolder {
    BSTR text = nullptr;

    explicit BstrHolder(const wchar_t* source) : text(SysAllocString(source)) {}
    BstrHolder(const BstrHolder&) = delete;
    BstrHolder& operator=(const BstrHolder&) = delete;
    ~BstrHolder() { SysFreeString(text); }
};

// Owns a variant that holds a string; `Valid` is false when there was no memory for it.
struct StringVariant {
    VARIANT value = {};

    explicit StringVariant(const wchar_t* source) {
        value.vt = VT_BSTR;
        value.bstrVal = SysAllocString(source);
    }
    StringVariant(const StringVariant&) = delete;
    StringVariant& operator=(const StringVariant&) = delete;
    ~StringVariant() { VariantClear(&value); }

    bool Valid() const { return value.bstrVal != nullptr; }
};
