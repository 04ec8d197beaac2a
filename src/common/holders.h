// Small holders that release what they own on every path out of a scope.
#pragma once

#include <windows.h>

// Owns a kernel handle. Null and INVALID_HANDLE_VALUE both count as "nothing held".
struct HandleHolder {
    HANDLE handle = nullptr;

    HandleHolder() = default;
    explicit HandleHolder(HANDLE owned) : handle(owned) {}
    HandleHolder(const HandleHolder&) = delete;
    HandleHolder& operator=(const HandleHolder&) = delete;
    ~HandleHolder() { Release(); }

    bool Valid() const { return handle != nullptr && handle != INVALID_HANDLE_VALUE; }

    void Release() {
        if (Valid())
            CloseHandle(handle);
        handle = nullptr;
    }
};

// Owns a registry key.
struct KeyHolder {
    HKEY key = nullptr;

    KeyHolder() = default;
    KeyHolder(const KeyHolder&) = delete;
    KeyHolder& operator=(const KeyHolder&) = delete;
    ~KeyHolder() { Release(); }

    void Release() {
        if (key != nullptr)
            RegCloseKey(key);
        key = nullptr;
    }
};

// Owns a block of the local heap.
struct LocalBlock {
    void* data = nullptr;

    LocalBlock() = default;
    explicit LocalBlock(void* owned) : data(owned) {}
    LocalBlock(const LocalBlock&) = delete;
    LocalBlock& operator=(const LocalBlock&) = delete;
    ~LocalBlock() { Release(); }

    void Release() {
        if (data != nullptr)
            LocalFree(data);
        data = nullptr;
    }
};
