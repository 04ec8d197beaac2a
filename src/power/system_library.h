// A system DLL that is looked up at run time instead of being linked.
#pragma once

#include <windows.h>

// Loads the library from the system directory only, and frees it when the holder goes.
struct SystemLibrary {
    HMODULE module;

    explicit SystemLibrary(const wchar_t* name)
        : module(LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)) {}
    SystemLibrary(const SystemLibrary&) = delete;
    SystemLibrary& operator=(const SystemLibrary&) = delete;
    ~SystemLibrary() {
        if (module != nullptr)
            FreeLibrary(module);
    }

    // The exported function, valid while the holder lives; null when the library is not loaded or lacks it.
    template <typename Function> Function Find(const char* name) const {
        if (module == nullptr)
            return nullptr;
        return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    }
};
