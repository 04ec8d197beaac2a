#include "helper/helper_store.h"

#include <strsafe.h>

#include "common/registry.h"
#include "common/trace.h"

constexpr REGSAM WRITE_ACCESS = KEY_READ | KEY_SET_VALUE | KEY_CREATE_SUB_KEY;
static_assert(WRITE_ACCESS == 0x2001F);

static bool StorePath(wchar_t (&path)[PATH_CHARACTERS], const wchar_t* subkey) {
    return SUCCEEDED(StringCchPrintfW(path, ARRAYSIZE(path), L"%ls\\%ls", ZORPM_HELPER_STORE, subkey));
}

OPERATION(void, WriteHelperRegistryValue,
          (const wchar_t* subkey, const wchar_t* name, const void* data, DWORD size), subkey, name, data,
          size) {
    wchar_t path[PATH_CHARACTERS];
    KeyHolder key;
    if (!StorePath(path, subkey) || !CreateKey(&key, HKEY_CLASSES_ROOT, path, WRITE_ACCESS) ||
        RegSetValueExW(key.key, name, 0, REG_BINARY, static_cast<const BYTE*>(data), size) != ERROR_SUCCESS)
        Trace(L"WriteHelperRegistryValue(%ls, %ls): Error: not written.\n", subkey, name);
}

OPERATION(void, ReadHelperRegistryValue,
          (const wchar_t* subkey, const wchar_t* name, void* buffer, DWORD size), subkey, name, buffer,
          size) {
    wchar_t path[PATH_CHARACTERS];
    KeyHolder key;
    // A failed query may leave anything in its buffer.
    BYTE data[HELPER_RECORD_BYTES];
    DWORD type = 0;
    DWORD stored = size;
    if (size > sizeof(data) || !StorePath(path, subkey) ||
        !OpenKey(&key, HKEY_CLASSES_ROOT, path, KEY_READ) ||
        RegQueryValueExW(key.key, name, nullptr, &type, data, &stored) != ERROR_SUCCESS ||
        type != REG_BINARY || stored > size) {
        Trace(L"ReadHelperRegistryValue(%ls, %ls): Error: not read.\n", subkey, name);
        return;
    }
    CopyMemory(buffer, data, stored);
}
