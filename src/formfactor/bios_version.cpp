#include "formfactor/bios_version.h"

#include "common/registry.h"
#include "common/trace.h"
#include "hotkeys/shortcuts.h"

#define BIOS_DESCRIPTION_PARENT L"HARDWARE\\DESCRIPTION\\System"

DWORD g_dwHarrowBios = 0;

// Bytes that one BIOS text may have, and the characters that these can fill with a null after them.
constexpr DWORD BIOS_TEXT_BYTES = 255;
constexpr DWORD BIOS_TEXT_CHARACTERS = 128;
// Where the scan of the system BIOS version looks for the mark, seen from its position.
constexpr DWORD LOOK_AHEAD = 2;

namespace {

// A BIOS text and the nulls that the scan finds when it looks beyond the end.
struct BiosText {
    wchar_t text[BIOS_TEXT_CHARACTERS + LOOK_AHEAD + 1];
};

} // namespace

static bool IsHarrowMark(const wchar_t* text) {
    return text[0] == L'G' && text[1] == L'D';
}

// Publishes the flag as 1 in its existing key. FALSE when the key cannot be opened.
static OPERATION(BOOL, SetHRSPMode, ()) {
    KeyHolder key;
    if (!OpenKey(&key, HKEY_LOCAL_MACHINE, ZORPM_ROTATION_KEY, KEY_ALL_ACCESS)) {
        Trace(L"SetHRSPMode(): Error: key not opened.\n");
        return FALSE;
    }
    SetDword(key.key, ZORPM_ROTATION_HARROW, 1);
    return TRUE;
}

static void SetUpHarrowPlatform() {
    InitHarrowRegistryInterface();
    SetHRSPMode();
    g_dwHarrowBios = 1;
    Trace(L"SetUpHarrowPlatform(): Harrow BIOS.\n");
}

// Whether the BIOS version names a Harrow platform. FALSE also when it cannot be read.
static BOOL IsHarrowBiosVersion(HKEY key) {
    BiosText bios = {};
    if (!QueryString(key, L"BIOSVersion", bios.text, BIOS_TEXT_CHARACTERS, BIOS_TEXT_BYTES))
        return FALSE;
    for (const wchar_t* at = bios.text; *at != L'\0'; ++at) {
        if (IsHarrowMark(at))
            return TRUE;
    }
    return FALSE;
}

// The system BIOS version is a list of strings. The look-ahead reaches over the end of the first into the
// beginning of the second, and never sees a mark at the very beginning of the first. Each mark sets the
// platform up anew.
static BOOL ScanSystemBiosVersion() {
    KeyHolder key;
    BiosText bios = {};
    if (!OpenKey(&key, HKEY_LOCAL_MACHINE, BIOS_DESCRIPTION_PARENT, KEY_READ) ||
        !QueryString(key.key, L"SystemBiosVersion", bios.text, BIOS_TEXT_CHARACTERS, BIOS_TEXT_BYTES,
                     REG_MULTI_SZ))
        return FALSE;
    for (const wchar_t* at = bios.text; *at != L'\0'; ++at) {
        if (IsHarrowMark(at + LOOK_AHEAD))
            SetUpHarrowPlatform();
    }
    return TRUE;
}

OPERATION(BOOL, GetSystemBiosVersion, ()) {
    {
        KeyHolder key;
        if (OpenKey(&key, HKEY_LOCAL_MACHINE, BIOS_DESCRIPTION_PARENT L"\\BIOS", KEY_READ) &&
            IsHarrowBiosVersion(key.key)) {
            SetUpHarrowPlatform();
            return TRUE;
        }
        g_dwHarrowBios = 0;
    }
    return ScanSystemBiosVersion();
}
