// The switches that clients set and the state that the service publishes for them, in the TMCT key (interface
// version 2) and in the TMC key with one subkey per thermal function (version 3). Every operation opens its
// own key and closes it; results are nonzero on success.
#pragma once

#include <windows.h>

#include "cooling/cooling_state.h"

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

// A thermal function with a subkey of its own, and the names under which the trace reports what is done to
// it.
struct CoolingKey {
    ThermalFunction function;
    const wchar_t* subkey;
    const wchar_t* initialise;
    const wchar_t* set_capability;
    const wchar_t* set_setting;
    const wchar_t* get_setting;
    const wchar_t* set_status;
};
extern const CoolingKey TMC_TIO;
extern const CoolingKey TMC_MPH;
extern const CoolingKey TMC_CQH;
extern const CoolingKey TMC_DCC;
extern const CoolingKey TMC_DMC;
extern const CoolingKey TMC_FHP;

// Writes "Capability", keeps a "CurrentSetting" that is there (1 when there is none, 0 when the machine is
// not capable), hands it out in *setting and resets "CurrentStatus"; ends at the first failing write.
BOOL AdaptiveCoolingInitRegKey_v3(const CoolingKey& key, DWORD capable, DWORD* setting);

// "CurrentSetting" and "CurrentStatus".
BOOL AdaptiveCoolingSetRegCurrentSettings_v3(const CoolingKey& key, DWORD value);
BOOL AdaptiveCoolingGetRegCurrentSettings_v3(const CoolingKey& key, DWORD* value);
BOOL AdaptiveCoolingSetRegCurrentStatus_v3(const CoolingKey& key, DWORD value);

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
