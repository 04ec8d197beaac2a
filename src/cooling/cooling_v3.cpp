#include "cooling/cooling_v3.h"

#include "common/trace.h"
#include "cooling/adaptive_cooling.h"
#include "cooling/cooling_registry.h"
#include "cooling/thermal_firmware.h"

using Operation = BOOL (*)();

// Counts the user's requests that have stored their switch. An initialisation that read "CurrentSetting"
// before one of them did reads it again, so that the later of the two holds.
static std::atomic<DWORD> g_dwCoolingSettledRequests{0};

static bool Enabled(ThermalFunction function, const wchar_t* operation) {
    const bool enabled = ThermalFunctionEnabled(function);
    if (!enabled)
        Trace(L"%ls(): Glbal flag OFF.\n", operation);
    return enabled;
}

static BOOL Command(Operation setter) {
    const BOOL accepted = setter();
    if (!accepted)
        Trace(L"Failed to call Power control setting\n");
    return accepted;
}

// What the firmware is told for one value of a status word. Values without a row need no command.
struct CommandRow {
    DWORD value;
    Operation setter;
};

template <size_t N> static BOOL CommandFor(const CommandRow (&rows)[N], DWORD value) {
    for (const CommandRow& row : rows) {
        if (row.value == value)
            return Command(row.setter);
    }
    return TRUE;
}

// ---- initialisation ----

static BOOL InitFunction(ThermalFunction function, BOOL (*init_key)(DWORD, DWORD*),
                         BOOL (*get_setting)(DWORD*), Operation apply) {
    SetThermalFunctionEnabled(function, false);
    DWORD settled = g_dwCoolingSettledRequests;
    DWORD setting = 0;
    if (!init_key(1, &setting))
        return FALSE;
    if (setting != 0)
        SetThermalFunctionEnabled(function, true);
    for (DWORD now = g_dwCoolingSettledRequests; now != settled; now = g_dwCoolingSettledRequests) {
        settled = now;
        if (get_setting(&setting))
            SetThermalFunctionEnabled(function, setting != 0);
    }
    return apply == nullptr ? TRUE : apply();
}

// The arguments of InitFunction that belong to one set of registry wrappers.
#define FUNCTION_KEY(F) AdaptiveCoolingInitRegKeyFor##F##_v3, AdaptiveCoolingGetRegCurrentSettingsFor##F##_v3

BOOL AdaptiveCoolingInitSettingsTwoInOne_v3() {
    g_dwCoolingOptionState = 0;
    // Attached or detached: the handler reads the real state.
    return InitFunction(THERMAL_TWO_IN_ONE, FUNCTION_KEY(TwoInOne), AdaptiveCoolingRiseAttachEventOfTwoInOne);
}

BOOL AdaptiveCoolingInitSettingsMultiPivoHinge_v3() {
    return InitFunction(THERMAL_MULTI_PIVO_HINGE, FUNCTION_KEY(MultiPivoHinge),
                        AdaptiveCoolingRiseEventOfPivoModeChange);
}

BOOL AdaptiveCoolingInitSettingsCoolQuietHinge_v3() {
    return InitFunction(THERMAL_COOL_QUIET_HINGE, FUNCTION_KEY(CoolQuietHinge),
                        AdaptiveCoolingRiseEventOfCoolQuietHingeAngle);
}

BOOL AdaptiveCoolingInitSettingsDynamicCpuControl_v3() {
    return InitFunction(THERMAL_DYNAMIC_CPU_CONTROL, FUNCTION_KEY(DynamicCpuControl),
                        AdaptiveCoolingRiseEventOfDynamicCpuControl);
}

BOOL AdaptiveCoolingInitSettingsDockModeControl_v3() {
    return InitFunction(THERMAL_DOCK_MODE_CONTROL, FUNCTION_KEY(DockModeControl),
                        AdaptiveCoolingRiseEventOfDockModeControlChange);
}

BOOL AdaptiveCoolingInitSettingsForceHighPerfomanceMode_v3() {
    // The option state stays as Two In One has just found it.
    return InitFunction(THERMAL_FORCE_HIGH_PERFORMANCE, FUNCTION_KEY(ForceHighPerfomanceMode), nullptr);
}

struct FunctionRow {
    const wchar_t* name;
    Operation initialise;
};

// By function number, in the order of initialisation. Functions without an operation are only recognised.
static const FunctionRow g_thermalFunctions[] = {
    {L"Standard", nullptr},
    {L"Cool Quiet On Laptop", nullptr},
    {L"Two In One", AdaptiveCoolingInitSettingsTwoInOne_v3},
    {L"Multi Pivo Hinge", AdaptiveCoolingInitSettingsMultiPivoHinge_v3},
    {L"Skin Temperature Protection", nullptr},
    {L"Cool Quiet Hinge", AdaptiveCoolingInitSettingsCoolQuietHinge_v3},
    {L"Dynamic Cpu Control", AdaptiveCoolingInitSettingsDynamicCpuControl_v3},
    {L"Single Fan", nullptr},
    {L"Dock Mode Control", AdaptiveCoolingInitSettingsDockModeControl_v3},
    {L"Force High Performance", AdaptiveCoolingInitSettingsForceHighPerfomanceMode_v3},
};
static_assert(ARRAYSIZE(g_thermalFunctions) == THERMAL_FUNCTION_COUNT);

BOOL AdaptiveCoolingInitSettings_v3() {
    Trace(L"Enter AdaptiveCoolingInitSettings_v3()\n");
    g_dwCoolingFunctionFlags = 0;
    DWORD capability = 0;
    if (!AdaptiveCoolingGetFunctionCapability_v3(&capability))
        return FALSE;
    for (DWORD function = 0; function < THERMAL_FUNCTION_COUNT; ++function) {
        if (!DytcAnnounces(capability, function))
            continue;
        const FunctionRow& row = g_thermalFunctions[function];
        Trace(L"AdaptiveCoolingInitSettings_v3(): %ls\n", row.name);
        if (row.initialise != nullptr && !row.initialise())
            Trace(L"AdaptiveCoolingInitSettings_v3(): Error: %ls not initialised.\n", row.name);
    }
    return TRUE;
}

// ---- the user's switches ----

// Ends a request: stores the switch and makes flag and switch agree, whatever an initialisation has read
// meanwhile. Counted between the two: an initialisation that misses the count has set its flag before, and
// the flag set here is the last.
static BOOL SettleSwitch(ThermalFunction function, DWORD setting, BOOL (*set_setting)(DWORD)) {
    const BOOL written = set_setting(setting);
    ++g_dwCoolingSettledRequests;
    SetThermalFunctionEnabled(function, setting != 0);
    return written;
}

static BOOL EnableFunction(ThermalFunction function, Operation apply, BOOL (*set_setting)(DWORD)) {
    SetThermalFunctionEnabled(function, true);
    return apply() && SettleSwitch(function, 1, set_setting);
}

static BOOL DisableFunction(ThermalFunction function, Operation cool, BOOL (*set_status)(DWORD), DWORD status,
                            BOOL (*set_setting)(DWORD)) {
    if (!Command(cool))
        return FALSE;
    set_status(status);
    SetThermalFunctionEnabled(function, false);
    return SettleSwitch(function, 0, set_setting);
}

BOOL AdaptiveCoolingEnableCurrentSettingsOfTwoInOne_v3() {
    return EnableFunction(THERMAL_TWO_IN_ONE, AdaptiveCoolingChageThermalModeByTwoInOne_v3,
                          AdaptiveCoolingSetRegCurrentSettingsForTwoInOne_v3);
}

BOOL AdaptiveCoolingDisableCurrentSettingsOfTwoInOne_v3() {
    return DisableFunction(THERMAL_TWO_IN_ONE, AdaptiveCoolingSetTwoInOneStatusToCool,
                           AdaptiveCoolingSetRegCurrentStatusForTwoInOne_v3, 1,
                           AdaptiveCoolingSetRegCurrentSettingsForTwoInOne_v3);
}

BOOL AdaptiveCoolingEnableDynamicCpuControlSettings_v3() {
    return EnableFunction(THERMAL_DYNAMIC_CPU_CONTROL, AdaptiveCoolingDynamicCpuControlSettings_v3,
                          AdaptiveCoolingSetRegCurrentSettingsForDynamicCpuControl_v3);
}

BOOL AdaptiveCoolingDisableDynamicCpuControlSettings_v3() {
    return DisableFunction(THERMAL_DYNAMIC_CPU_CONTROL, AdaptiveCoolingSetDynamicCpuControlStatusToCool,
                           AdaptiveCoolingSetRegCurrentStatusForDynamicCpuControl_v3, 0,
                           AdaptiveCoolingSetRegCurrentSettingsForDynamicCpuControl_v3);
}

// ---- Two In One ----

BOOL AdaptiveCoolingChageThermalModeByTwoInOne_v3() {
    if (!Enabled(THERMAL_TWO_IN_ONE, L"AdaptiveCoolingChageThermalModeByTwoInOne_v3"))
        return FALSE;
    DWORD option = 0;
    if (!AdaptiveCoolingCheckTabletOptionAtachStatus_v1(&option))
        return FALSE;
    const bool attached = option == TABLET_OPTION_ATTACHED;
    if (attached)
        g_dwCoolingOptionState.fetch_or(COOLING_OPTION_ATTACHED);
    else
        g_dwCoolingOptionState.fetch_and(~COOLING_OPTION_ATTACHED);
    AdaptiveCoolingSetRegCurrentOptionStatusForTwoInOne_v3(option);
    if (!Command(attached ? AdaptiveCoolingSetTwoInOneStatusToHighPerformance
                          : AdaptiveCoolingSetTwoInOneStatusToCool))
        return FALSE;
    return AdaptiveCoolingSetRegCurrentStatusForTwoInOne_v3(attached ? 1 : 0);
}

// The device is held in the hand or no longer held. With an option attached only the report is published.
static BOOL ChangeOnHand(DWORD on_hand, Operation setter, DWORD status) {
    if (!ThermalFunctionEnabled(THERMAL_TWO_IN_ONE)) {
        Trace(L"Not support or unfertilized the TIO()\n");
        return FALSE;
    }
    const BOOL written = AdaptiveCoolingSetRegCurrentOnhandStatusForTwoInOne_v3(on_hand);
    if ((g_dwCoolingOptionState.load() & COOLING_OPTION_ATTACHED) != 0) {
        Trace(L"Option is attached()\n");
        return written;
    }
    if (!Command(setter))
        return FALSE;
    AdaptiveCoolingSetRegCurrentStatusForTwoInOne_v3(status);
    return TRUE;
}

BOOL AdaptiveCoolingDetectOnHand_v3() {
    return ChangeOnHand(1, AdaptiveCoolingSetTwoInOneStatusToCool, 1);
}

BOOL AdaptiveCoolingUndetectOnHand_v3() {
    return ChangeOnHand(0, AdaptiveCoolingSetTwoInOneStatusToHighPerformance, 0);
}

BOOL AdaptiveCoolingEnterFlipMode_v3() {
    return Enabled(THERMAL_TWO_IN_ONE, L"AdaptiveCoolingEnterFlipMode_v3") &&
           Command(AdaptiveCoolingSetTwoInOneStatusToCool);
}

BOOL AdaptiveCoolingExitFlipMode_v3() {
    return Enabled(THERMAL_TWO_IN_ONE, L"AdaptiveCoolingExitFlipMode_v3") &&
           Command(AdaptiveCoolingSetTwoInOneStatusToHighPerformance);
}

// ---- hinge, graphics temperature, dock ----

static const CommandRow g_hingePostures[] = {
    {MM_SYSTEM_STATE_NoteBook, AdaptiveCoolingSetMultiPivoHingeStatusToClamShell},
    {MM_SYSTEM_STATE_Layflat, AdaptiveCoolingSetMultiPivoHingeStatusToLayFlat},
    {MM_SYSTEM_STATE_Tablet, AdaptiveCoolingSetMultiPivoHingeStatusToTablet},
    {MM_SYSTEM_STATE_Media, AdaptiveCoolingSetMultiPivoHingeStatusToTent},
    {MM_SYSTEM_STATE_Tent, AdaptiveCoolingSetMultiPivoHingeStatusToTent},
};

BOOL AdaptiveCoolingPivoModeChange() {
    DWORD status = 0;
    if (!AdaptiveCoolingGetPivoModeStatusFromBIOS(&status))
        return FALSE;
    const DWORD posture = status & STATUS_VALUE;
    return CommandFor(g_hingePostures, posture) &&
           AdaptiveCoolingSetRegCurrentStatusForMultiPivoHinge_v3(posture);
}

BOOL AdaptiveCoolingThermalModeByHingeSettings_v3() {
    if (!Enabled(THERMAL_COOL_QUIET_HINGE, L"AdaptiveCoolingThermalModeByHingeSettings_v3"))
        return FALSE;
    DWORD status = 0;
    if (!AdaptiveCoolingGetThermalModeStatusFromBIOS(&status))
        return FALSE;
    const DWORD mode = status & STATUS_VALUE;
    // Modes 0 to 2, and all that are unknown, run cool.
    if (!Command(mode == HINGE_MODE_HIGH ? AdaptiveCoolingSetCoolQuietHingeStatusToHigh
                                         : AdaptiveCoolingSetCoolQuietHingeStatusToCool))
        return FALSE;
    return AdaptiveCoolingSetRegCurrentStatusForCoolQuietHinge_v3(mode);
}

static const CommandRow g_graphicsLevels[] = {
    {1, AdaptiveCoolingSetDynamicCpuControlStatusToCool},
    {2, AdaptiveCoolingSetDynamicCpuControlStatusToHigh},
    {3, AdaptiveCoolingSetDynamicCpuControlStatusToCool},
};

BOOL AdaptiveCoolingDynamicCpuControlSettings_v3() {
    if (!Enabled(THERMAL_DYNAMIC_CPU_CONTROL, L"AdaptiveCoolingDynamicCpuControlSettings_v3"))
        return FALSE;
    DWORD status = 0;
    if (!AdaptiveCoolingGetThermalDiscreteGUPTempertureFromBIOS(&status))
        return FALSE;
    const DWORD level = status & STATUS_VALUE;
    if (!CommandFor(g_graphicsLevels, level))
        return FALSE;
    AdaptiveCoolingSetRegCurrentStatusForDynamicCpuControl_v3(level);
    return TRUE;
}

// The dock types that the firmware may report; only some take power commands.
struct DockRow {
    const wchar_t* name;
    DWORD type;
    bool sets_power;
};

static const DockRow g_docks[] = {
    {L"Vantor", DOCK_TYPE_VANTOR, true},
    {L"Quillon", DOCK_TYPE_QUILLON, true},
    {L"Bastion", DOCK_TYPE_BASTION, false},
    {L"Linkway", DOCK_TYPE_LINKWAY, false},
};

static const DockRow* FindDock(DWORD type) {
    for (const DockRow& row : g_docks) {
        if (row.type == type)
            return &row;
    }
    return nullptr;
}

BOOL AdaptiveCoolingDockModeControlChange() {
    DWORD status = 0;
    if (!AdaptiveCoolingGetDockModeStatusFromBIOS(&status))
        return FALSE;
    const DockRow* dock = FindDock(DockType(status));
    if (dock == nullptr) {
        Trace(L"AdaptiveCoolingDockModeControlChange(): Error: unknown dock type. (0x%08x)\n", status);
        return FALSE;
    }
    Trace(L"AdaptiveCoolingDockModeControlChange(): %ls dock, %ls\n", dock->name,
          dock->sets_power ? L"set the power" : L"skip");
    if (!dock->sets_power)
        return TRUE;
    const DWORD docked = status & DOCK_STATUS_DOCKED;
    Trace(docked != 0 ? L"Docking detected!\n" : L"Undock detected!\n");
    if (!Command(docked != 0 ? AdaptiveCoolingSetDockModeControlToDocked
                             : AdaptiveCoolingSetDockModeControlToUndocked))
        return FALSE;
    return AdaptiveCoolingSetRegCurrentStatusForDockModeControl_v3(docked);
}
