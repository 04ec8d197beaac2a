// Text that comes from outside.
#pragma once

#include <windows.h>

// The number that a text begins with in decimal digits; 0 without any, and `most` for a larger one.
DWORD LeadingNumber(const wchar_t* text, DWORD most);
