// Special folders.
#pragma once

#include <windows.h>

#define CSIDL_WINDOWS      0x0024
#define CSIDL_SYSTEM       0x0025
#define CSIDL_FLAG_CREATE  0x8000
#define SHGFP_TYPE_CURRENT 0u

extern "C" HRESULT WINAPI SHGetFolderPathW(HWND owner, int folder, HANDLE token, DWORD flags, LPWSTR path);
