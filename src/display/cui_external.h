// The part of the graphics driver's COM interface ICUIExternal that is used here: two methods at fixed
// positions of its method table. Declared as a plain table of functions, so that no compiler adds entries of
// its own.
#pragma once

#include <windows.h>
#include <cstddef>

// What the block identifier g_inverterParamsGuid stands for; its 8 bytes go to the driver as they are.
struct InverterParams {
    DWORD uiInverterType;      // the graphics driver's; handed back as read
    DWORD ulInverterFrequency; // PWM frequency, in the firmware's unit
};
static_assert(sizeof(InverterParams) == 8);

// {2CED2F89-627B-4E5D-840F-B126EE858CD8}
constexpr GUID g_cuiExternalInterface = {
    0x2CED2F89, 0x627B, 0x4E5D, {0x84, 0x0F, 0xB1, 0x26, 0xEE, 0x85, 0x8C, 0xD8}};
// {814472D8-36EE-4AFD-BAB0-D680EEBB0034}
constexpr GUID g_inverterParamsGuid = {
    0x814472D8, 0x36EE, 0x4AFD, {0xBA, 0xB0, 0xD6, 0x80, 0xEE, 0xBB, 0x00, 0x34}};

struct ICUIExternal;

// Arguments: the block identifier, a word that is always 1 here and whose meaning is the driver's, the
// block's size in bytes, the block, and an error code of the driver's own. Success only when the result is 0.
typedef HRESULT(STDMETHODCALLTYPE* InverterMethod)(ICUIExternal* self, const GUID* block, DWORD always_1,
                                                   DWORD size, InverterParams* params, DWORD* error);

// Entries 0 to 2 are IUnknown's.
struct ICUIExternalMethods {
    void* unused[37];
    InverterMethod GetInverterParams;
    InverterMethod SetInverterParams;
};
static_assert(offsetof(ICUIExternalMethods, GetInverterParams) == 37 * sizeof(void*));
static_assert(offsetof(ICUIExternalMethods, SetInverterParams) == 38 * sizeof(void*));

struct ICUIExternal {
    const ICUIExternalMethods* methods;
};
