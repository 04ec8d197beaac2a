// The helper store: the key under HKEY_CLASSES_ROOT through which the helper and its clients exchange policy
// records.
#pragma once

#include <windows.h>

// Writes one REG_BINARY value under a subkey of the store, creating the subkey. A failure is silent.
void WriteHelperRegistryValue(const wchar_t* subkey, const wchar_t* name, const void* data, DWORD size);

// Reads one REG_BINARY value of at most `size` bytes, and `size` at most HELPER_RECORD_BYTES. A shorter value
// leaves the rest of the buffer as it was; an absent, longer or differently typed one all of it.
constexpr DWORD HELPER_RECORD_BYTES = 176;
void ReadHelperRegistryValue(const wchar_t* subkey, const wchar_t* name, void* buffer, DWORD size);
