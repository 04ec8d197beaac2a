// Bounded string operations.
#pragma once

#include "sim_base.h"

#define STRSAFE_E_INSUFFICIENT_BUFFER (static_cast<HRESULT>(0x8007007Au))
#define STRSAFE_E_INVALID_PARAMETER   (static_cast<HRESULT>(0x80070057u))

extern "C" {
HRESULT StringCchVPrintfW(WCHAR* to, size_t capacity, const WCHAR* pattern, va_list arguments);
HRESULT StringCchPrintfW(WCHAR* to, size_t capacity, const WCHAR* pattern, ...);
HRESULT StringCchCopyW(WCHAR* to, size_t capacity, const WCHAR* from);
HRESULT StringCchCatW(WCHAR* to, size_t capacity, const WCHAR* from);
HRESULT StringCchLengthW(const WCHAR* text, size_t capacity, size_t* length);
}
