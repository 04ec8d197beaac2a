// Registry access shared by all subsystems. Whatever a client may have written is untrusted: a value of the
// wrong type or size reads as an absent one, and no read can overrun its buffer.
#pragma once

#include <zorpm/zorpm.h>

#include "common/holders.h"

// Room for a path of the registry or of a file.
constexpr DWORD PATH_CHARACTERS = 260;

// Opens an existing key into an empty holder. TRUE on success; the holder stays empty otherwise.
BOOL OpenKey(KeyHolder* holder, HKEY root, const wchar_t* path, REGSAM access);

// Creates or opens a non-volatile key into an empty holder. `created`, when given, tells whether the key is
// new (written on success only).
BOOL CreateKey(KeyHolder* holder, HKEY root, const wchar_t* path, REGSAM access, BOOL* created = nullptr);

// Reads a REG_DWORD of exactly 4 bytes. `name` null means the default value. FALSE leaves *value untouched.
BOOL QueryDword(HKEY key, const wchar_t* name, DWORD* value);

// Reads a REG_SZ, or a value of the string type `also`, of at most `limit_bytes` bytes into `text`, which has
// room for `capacity` characters; the result always ends in a null, whatever was stored (an odd last byte is
// dropped). FALSE leaves an empty text. `capacity` must exceed limit_bytes / 2.
BOOL QueryString(HKEY key, const wchar_t* name, wchar_t* text, DWORD capacity, DWORD limit_bytes,
                 DWORD also = REG_SZ);

// Write one value; TRUE on success. A string is stored with its terminating null.
BOOL SetDword(HKEY key, const wchar_t* name, DWORD value);
BOOL SetString(HKEY key, const wchar_t* name, const wchar_t* text);

// Create or open the key (write access), write one DWORD and close the key.
BOOL CreateKeySetDword(HKEY root, const wchar_t* path, const wchar_t* name, DWORD value);

// Create or open the key (read access), read one DWORD (the size is asked first, then the data) and close the
// key. FALSE leaves *value untouched.
BOOL CreateKeyQueryDword(HKEY root, const wchar_t* path, const wchar_t* name, DWORD* value);
