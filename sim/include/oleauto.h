// COM strings and variants.
#pragma once

#include <windows.h>

extern "C" {
BSTR WINAPI SysAllocString(const WCHAR* text);
void WINAPI SysFreeString(BSTR text);
HRESULT WINAPI VariantClear(VARIANT* variant);
}
