#include "formfactor/transformation.h"

#include "common/registry.h"
#include "common/trace.h"
#include "driver/device.h"
#include "formfactor/bios_version.h"
#include "formfactor/mode_switch.h"

namespace {

// A REG_DWORD under HKEY_LOCAL_MACHINE. Its key is never created here: a machine without it has no use for
// the value.
struct PostureValue {
    const wchar_t* key;
    const wchar_t* name;
};

} // namespace

// The posture that the event actions saw last, as a transformation state.
static const PostureValue g_lastTransformation = {ZORPM_STATUS_KEY, ZORPM_STATUS_LAST};
// Windows' own setting; bit 0 set means that the screen rotates by itself.
static const PostureValue g_autoRotation = {ZORPM_AUTOROTATION_KEY, ZORPM_AUTOROTATION_ENABLE};

static BOOL ReadPostureValue(const PostureValue& value, DWORD* data) {
    KeyHolder key;
    if (OpenKey(&key, HKEY_LOCAL_MACHINE, value.key, KEY_ALL_ACCESS) && QueryDword(key.key, value.name, data))
        return TRUE;
    Trace(L"ReadPostureValue(): Error: %ls not read.\n", value.name);
    return FALSE;
}

static BOOL WritePostureValue(const PostureValue& value, DWORD data) {
    KeyHolder key;
    if (OpenKey(&key, HKEY_LOCAL_MACHINE, value.key, KEY_ALL_ACCESS) && SetDword(key.key, value.name, data))
        return TRUE;
    Trace(L"WritePostureValue(): Error: %ls not written.\n", value.name);
    return FALSE;
}

static OPERATION(BOOL, GetLastSystemTransformation, (DWORD * state), state) {
    return ReadPostureValue(g_lastTransformation, state);
}

// 1 when auto-rotation is on, else 0.
static OPERATION(BOOL, GetSystemScreenRotationState, (DWORD * on), on) {
    DWORD enable = 0;
    if (!ReadPostureValue(g_autoRotation, &enable))
        return FALSE;
    *on = enable & 1;
    return TRUE;
}

// clang-format off
static OPERATION(BOOL, SetLastSystemTransformationNotebookMode, ()) { return WritePostureValue(g_lastTransformation, TRANSFORMATION_NOTEBOOK); }
static OPERATION(BOOL, SetLastSystemTransformationTabletMode, ()) { return WritePostureValue(g_lastTransformation, TRANSFORMATION_TABLET); }
static OPERATION(BOOL, SetSystemScreenRotationStateNotebookMode, ()) { return WritePostureValue(g_autoRotation, 0); }
static OPERATION(BOOL, SetSystemScreenRotationStateTabletMode, ()) { return WritePostureValue(g_autoRotation, 1); }
// clang-format on

OPERATION(BOOL, InitSystemTransformationNotebookMode, ()) {
    DWORD firmware = 0;
    DWORD last = 0;
    if (!GetSystemTransformationFromBIOS(&firmware) || !GetLastSystemTransformation(&last))
        return FALSE;
    if (firmware == TRANSFORMATION_NOTEBOOK && last != TRANSFORMATION_NOTEBOOK)
        SetSystemScreenRotationStateNotebookMode();
    else if (firmware == TRANSFORMATION_TABLET && last == TRANSFORMATION_TABLET)
        SetSystemScreenRotationStateTabletMode();
    return TRUE;
}

// Follows a change to `posture`: auto-rotation is to be off in notebook posture and on in tablet posture, so
// the button is pressed when its state (1 on, 0 off) is the one that the new posture must not have - and only
// on a real change, so that a user who turned the lock by hand keeps it.
static BOOL FollowPosture(DWORD posture, BOOL (*record)()) {
    if (g_dwHarrowBios == 0) {
        Trace(L"FollowPosture(): no Harrow platform, nothing to do\n");
        return FALSE;
    }
    DWORD previous = 0;
    if (!GetLastSystemTransformation(&previous))
        return FALSE;
    // Recorded first: a machine without the auto-rotation setting still has its posture on record.
    record();
    DWORD rotation = 0;
    if (!GetSystemScreenRotationState(&rotation))
        return FALSE;
    if (rotation == posture && previous != posture)
        RotationLockButtonPress();
    else
        Trace(L"FollowPosture(): posture %lu before, %lu now, rotation %lu: no press\n", previous, posture,
              rotation);
    return TRUE;
}

OPERATION(BOOL, NotebookScreenRotationFunctionality, ()) {
    return FollowPosture(TRANSFORMATION_NOTEBOOK, SetLastSystemTransformationNotebookMode);
}

OPERATION(BOOL, TabletScreenRotationFunctionality, ()) {
    return FollowPosture(TRANSFORMATION_TABLET, SetLastSystemTransformationTabletMode);
}

static const wchar_t* const g_legacyTabletModels[] = {
    L"Corbel K11 Tablet",  L"Corbel K11s Tablet", L"Corbel K21 Tablet",
    L"Corbel K21s Tablet", L"Corbel K31 Tablet",  L"Corbel K31s Tablet",
};

// Equality character by character; the linguistic comparisons of the platform pass over some characters.
static bool SameText(const wchar_t* left, const wchar_t* right) {
    while (*left != L'\0' && *left == *right) {
        ++left;
        ++right;
    }
    return *left == *right;
}

OPERATION(BOOL, CheckLegacyTabletModel, ()) {
    wchar_t family[SYSTEM_FAMILY_CHARACTERS] = {};
    if (!GetSystemFamily(family))
        return FALSE;
    for (const wchar_t* model : g_legacyTabletModels) {
        if (SameText(family, model)) {
            SendSystemFamilyRequest();
            break;
        }
    }
    return TRUE;
}
