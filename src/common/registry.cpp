#include "common/registry.h"

BOOL OpenKey(KeyHolder* holder, HKEY root, const wchar_t* path, REGSAM access) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, path, 0, access, &key) != ERROR_SUCCESS)
        return FALSE;
    holder->key = key;
    return TRUE;
}

BOOL CreateKey(KeyHolder* holder, HKEY root, const wchar_t* path, REGSAM access, BOOL* created) {
    HKEY key = nullptr;
    DWORD disposition = 0;
    if (RegCreateKeyExW(root, path, 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr, &key,
                        &disposition) != ERROR_SUCCESS)
        return FALSE;
    holder->key = key;
    if (created != nullptr)
        *created = disposition == REG_CREATED_NEW_KEY;
    return TRUE;
}

BOOL QueryDword(HKEY key, const wchar_t* name, DWORD* value) {
    DWORD type = 0;
    DWORD data = 0;
    DWORD size = sizeof(data);
    if (RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&data), &size) != ERROR_SUCCESS)
        return FALSE;
    if (type != REG_DWORD || size != sizeof(data))
        return FALSE;
    *value = data;
    return TRUE;
}

BOOL QueryString(HKEY key, const wchar_t* name, wchar_t* text, DWORD capacity, DWORD limit_bytes,
                 DWORD also) {
    text[0] = L'\0';
    if (limit_bytes / sizeof(wchar_t) >= capacity)
        return FALSE;
    DWORD stored_type = 0;
    DWORD size = limit_bytes;
    if (RegQueryValueExW(key, name, nullptr, &stored_type, reinterpret_cast<BYTE*>(text), &size) !=
            ERROR_SUCCESS ||
        (stored_type != REG_SZ && stored_type != also) || size > limit_bytes) {
        text[0] = L'\0';
        return FALSE;
    }
    text[size / sizeof(wchar_t)] = L'\0';
    return TRUE;
}

BOOL SetDword(HKEY key, const wchar_t* name, DWORD value) {
    return RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value)) ==
           ERROR_SUCCESS;
}

BOOL SetString(HKEY key, const wchar_t* name, const wchar_t* text) {
    const DWORD size = (static_cast<DWORD>(lstrlenW(text)) + 1) * static_cast<DWORD>(sizeof(wchar_t));
    return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text), size) == ERROR_SUCCESS;
}

BOOL CreateKeySetDword(HKEY root, const wchar_t* path, const wchar_t* name, DWORD value) {
    KeyHolder key;
    return CreateKey(&key, root, path, KEY_WRITE) && SetDword(key.key, name, value);
}

BOOL CreateKeyQueryDword(HKEY root, const wchar_t* path, const wchar_t* name, DWORD* value) {
    KeyHolder key;
    if (!CreateKey(&key, root, path, KEY_READ))
        return FALSE;
    DWORD type = 0;
    DWORD size = 0;
    if (RegQueryValueExW(key.key, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS)
        return FALSE;
    if (type != REG_DWORD || size != sizeof(DWORD))
        return FALSE;
    return QueryDword(key.key, name, value);
}
