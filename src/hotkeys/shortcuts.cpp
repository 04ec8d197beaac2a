#include "hotkeys/shortcuts.h"

#include "common/registry.h"
#include "common/trace.h"

#define APP_LAUNCH_KEY  L"SOFTWARE\\Mestra\\ShortCutKey\\AppLaunch"
#define CONTROL_PROGRAM L"C:\\Windows\\System32\\zorpmctl.exe"

// Kind of launch entry, in the launcher's terms.
constexpr DWORD APP_TYPE = 3;

namespace {

struct PlatformValue {
    const wchar_t* name; // null: no value
    const wchar_t* text; // null: `number` is written
    DWORD number;
};

struct PlatformKey {
    const wchar_t* path;
    PlatformValue values[2];
};

} // namespace

// In the order of writing.
static const PlatformKey g_platformKeys[] = {
    {ZORPM_SERVICE_KEY L"\\Configurations", {}},
    {ZORPM_ROTATION_KEY, {{ZORPM_ROTATION_HARROW, nullptr, 0}}},
    {ZORPM_STATUS_KEY, {{ZORPM_STATUS_LAST, nullptr, 0}}},
    {APP_LAUNCH_KEY L"\\Ex_3C", {{L"AppType", nullptr, APP_TYPE}}},
    {APP_LAUNCH_KEY L"\\Ex_3C\\UIAccess",
     {{L"File", CONTROL_PROGRAM, 0}, {L"Parameters", L"TabletToClamshellForHarrow", 0}}},
    {APP_LAUNCH_KEY L"\\Ex_3E", {{L"AppType", nullptr, APP_TYPE}}},
    {APP_LAUNCH_KEY L"\\Ex_3E\\UIAccess",
     {{L"File", CONTROL_PROGRAM, 0}, {L"Parameters", L"FlipButtonForHarrow", 0}}},
    {APP_LAUNCH_KEY L"\\Ex_3B", {{L"AppType", nullptr, APP_TYPE}}},
    {APP_LAUNCH_KEY L"\\Ex_3B\\UIAccess",
     {{L"File", CONTROL_PROGRAM, 0}, {L"Parameters", L"ClamshellToTabletForHarrow", 0}}},
};

OPERATION(void, InitHarrowRegistryInterface, ()) {
    for (const PlatformKey& row : g_platformKeys) {
        KeyHolder key;
        if (!CreateKey(&key, HKEY_LOCAL_MACHINE, row.path, KEY_ALL_ACCESS))
            continue;
        for (const PlatformValue& value : row.values) {
            if (value.name == nullptr)
                continue;
            if (value.text != nullptr)
                SetString(key.key, value.name, value.text);
            else
                SetDword(key.key, value.name, value.number);
        }
    }
}
