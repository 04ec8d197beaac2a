// The words for what the service publishes as numbers.
#pragma once

#include <windows.h>

const wchar_t* PostureWords(DWORD posture);
const wchar_t* LidWords(DWORD lid);

// What notification k of "Type2" or "Type22" means.
const wchar_t* Type2Words(DWORD k);
const wchar_t* Type22Words(DWORD k);
