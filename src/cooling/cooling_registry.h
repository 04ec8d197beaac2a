// The switches that clients set and the state that the service publishes for them, in the TMCT key (interface
// version 2) and in the TMC key with one subkey per thermal function (version 3). Every operation opens its
// own key and closes it; results are nonzero on success.
#pragma once

#include <windows.h>

// Last-error codes of AdaptiveCoolingGetRegKeyDwordValue.
constexpr DWORD COOLING_ERROR_KEY_NOT_OPENED = 0xE1100002;
constexpr DWORD COOLING_ERROR_VALUE_MISSING = 0xE1100003;

// Reads one REG_DWORD of an existing key under HKEY_LOCAL_MACHINE; `subkey` is the whole path. FALSE leaves
// *value untouched, and sets the last error when the key cannot be opened or the value is missing; other
// failures (a value of another type or size among them) leave the last error alone.
BOOL AdaptiveCoolingGetRegKeyDwordValue(const wchar_t* subkey, const wchar_t* name, DWORD* value);

// Writes one REG_DWORD; the key is created when missing.
BOOL AdaptiveCoolingSetRegKeyDwordValue(const wchar_t* subkey, const wchar_t* name, DWORD value);

// "Version" of the TMC key.
BOOL AdaptiveCoolingSetRegDYTCVersion(DWORD value);

// The functions with a subkey: X(function, subkey).
#define COOLING_FUNCTION_KEYS(X)                                                                             \
    X(TwoInOne, L"TIO")                                                                                      \
    X(MultiPivoHinge, L"MPH")                                                                                \
    X(CoolQuietHinge, L"CQH")                                                                                \
    X(DynamicCpuControl, L"DCC")                                                                             \
    X(DockModeControl, L"DMC")                                                                               \
    X(ForceHighPerfomanceMode, L"FHP")

// For each function: write "Capability", write and read "CurrentSetting", write "CurrentStatus", and
// initialise the subkey. Initialising writes "Capability", keeps a "CurrentSetting" that is there (1 when
// there is none, 0 when the machine is not capable), hands it out in *setting and resets "CurrentStatus"; it
// ends at the first failing write.
#define COOLING_FUNCTION_KEY_OPERATIONS(F, subkey)                                                           \
    BOOL AdaptiveCoolingSetRegCapabilityFor##F##_v3(DWORD value);                                            \
    BOOL AdaptiveCoolingSetRegCurrentSettingsFor##F##_v3(DWORD value);                                       \
    BOOL AdaptiveCoolingGetRegCurrentSettingsFor##F##_v3(DWORD* value);                                      \
    BOOL AdaptiveCoolingSetRegCurrentStatusFor##F##_v3(DWORD value);                                         \
    BOOL AdaptiveCoolingInitRegKeyFor##F##_v3(DWORD capable, DWORD* setting);
COOLING_FUNCTION_KEYS(COOLING_FUNCTION_KEY_OPERATIONS)
#undef COOLING_FUNCTION_KEY_OPERATIONS

// "CurrentOptionStatus" (1 no option, 2 option attached) and "CurrentOnHandStatus" (1 held in the hand).
BOOL AdaptiveCoolingSetRegCurrentOptionStatusForTwoInOne_v3(DWORD value);
BOOL AdaptiveCoolingSetRegCurrentOnhandStatusForTwoInOne_v3(DWORD value);

// The version 2 key. All of these refuse while the interface version is 0, create the key when missing, and
// succeed once it is open unless said otherwise.

// Reads "CurrentSetting"; *setting keeps the caller's preset when there is none.
BOOL GetAdaptiveCoolingGetCurrentSettingsStatusFromReg(DWORD* setting);

// Writes "CurrentSetting"; succeeds when the write does.
BOOL SetAdaptiveCoolingCurrentSettingReg(DWORD setting);

// Publishes "Version" and "Capability" and hands out "CurrentSetting", created with 1 when missing. On
// interfaces other than 0x2001 it publishes that there is no capability, and fails.
BOOL SetAdaptiveCoolingCreateReg(DWORD* setting);

// "INIT" and "SPCT", in ticks of one second; created with 20 and 0 when missing.
BOOL AdaptiveCoolingCreateInitTimeFromReg(DWORD* ticks);
BOOL SetAdaptiveCoolingCreateSpcialCoolingTimeReg(DWORD* ticks);
