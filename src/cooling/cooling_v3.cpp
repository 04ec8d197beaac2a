#include "cooling/cooling_v3.h"

#include "common/trace.h"
#include "cooling/adaptive_cooling.h"
#include "cooling/cooling_registry.h"
#include "cooling/thermal_firmware.h"

using Operation = BOOL (*)();

static bool Enabled(ThermalFunction function) {
    const bool enabled = ThermalFunctionEnabled(function);
    if (!enabled)
        Trace(L"Enabled(): Glbal flag OFF. (function %u)\n", function);
    return enabled;
}

namespace {

// What the firmware is told for one value of a status word.
struct CommandRow {
    DWORD value;
    ThermalWord word;
};

} // namespace

// Null for a value that needs no command.
template <size_t N> static const ThermalWord* FindWord(const CommandRow (&rows)[N], DWORD value) {
    for (const CommandRow& row : rows) {
        if (row.value == value)
            return &row.word;
    }
    return nullptr;
}

// ---- initialisation ----

namespace {

// A function with a subkey is initialised and then follows the present state of the hardware; the others are
// only recognised.
struct FunctionRow {
    ThermalFunction function;
    const wchar_t* name;
    const CoolingKey* key;
    Operation follow;
};

} // namespace

// In the order of initialisation, which is that of the capability bits. To follow, each does what its event
// does - Two In One's attach and detach alike -, in the turn that the initialisation has: the event's entry
// would wait for one of its own.
// clang-format off
static const FunctionRow g_thermalFunctions[] = {
    {THERMAL_STANDARD,                    TRACE_NAME(L"Standard"),                    nullptr, nullptr},
    {THERMAL_COOL_QUIET_ON_LAPTOP,        TRACE_NAME(L"Cool Quiet On Laptop"),        nullptr, nullptr},
    {THERMAL_TWO_IN_ONE,                  TRACE_NAME(L"AdaptiveCoolingInitSettingsTwoInOne_v3"),                &TMC_TIO, AdaptiveCoolingChageThermalModeByTwoInOne_v3},
    {THERMAL_MULTI_PIVO_HINGE,            TRACE_NAME(L"AdaptiveCoolingInitSettingsMultiPivoHinge_v3"),          &TMC_MPH, AdaptiveCoolingPivoModeChange},
    {THERMAL_SKIN_TEMPERATURE_PROTECTION, TRACE_NAME(L"Skin Temperature Protection"), nullptr, nullptr},
    {THERMAL_COOL_QUIET_HINGE,            TRACE_NAME(L"AdaptiveCoolingInitSettingsCoolQuietHinge_v3"),          &TMC_CQH, AdaptiveCoolingThermalModeByHingeSettings_v3},
    {THERMAL_DYNAMIC_CPU_CONTROL,         TRACE_NAME(L"AdaptiveCoolingInitSettingsDynamicCpuControl_v3"),       &TMC_DCC, AdaptiveCoolingDynamicCpuControlSettings_v3},
    {THERMAL_SINGLE_FAN,                  TRACE_NAME(L"Single Fan"),                  nullptr, nullptr},
    {THERMAL_DOCK_MODE_CONTROL,           TRACE_NAME(L"AdaptiveCoolingInitSettingsDockModeControl_v3"),         &TMC_DMC, AdaptiveCoolingDockModeControlChange},
    {THERMAL_FORCE_HIGH_PERFORMANCE,      TRACE_NAME(L"AdaptiveCoolingInitSettingsForceHighPerfomanceMode_v3"), &TMC_FHP, nullptr},
};
// clang-format on
static_assert(ARRAYSIZE(g_thermalFunctions) == THERMAL_FUNCTION_COUNT);

static BOOL InitFunction(const FunctionRow& row) {
    SetThermalFunctionEnabled(row.function, false);
    // Force High Performance leaves the option state as Two In One has just found it.
    if (row.function == THERMAL_TWO_IN_ONE)
        g_dwCoolingOptionState = 0;
    DWORD setting = 0;
    if (!AdaptiveCoolingInitRegKey_v3(*row.key, 1, &setting))
        return FALSE;
    if (setting != 0)
        SetThermalFunctionEnabled(row.function, true);
    else
        Trace(L"%ls(): switched off by the user\n", row.name);
    return row.follow == nullptr ? TRUE : row.follow();
}

static BOOL InitSettings() {
    g_dwCoolingFunctionFlags = 0;
    DWORD capability = 0;
    if (!AdaptiveCoolingGetFunctionCapability_v3(&capability))
        return FALSE;
    for (const FunctionRow& row : g_thermalFunctions) {
        if (!DytcAnnounces(capability, row.function))
            continue;
        if (row.key == nullptr)
            Trace(L"AdaptiveCoolingInitSettings_v3(): %ls is only recognised\n", row.name);
        else if (!TRACED(row.name, InitFunction(row)))
            Trace(L"AdaptiveCoolingInitSettings_v3(): Error: %ls failed.\n", row.name);
    }
    return TRUE;
}

OPERATION(BOOL, AdaptiveCoolingInitSettings_v3, ()) {
    return InTurn<InitSettings>();
}

// ---- the user's switches ----

static BOOL EnableFunction(const CoolingKey& key, Operation follow) {
    SetThermalFunctionEnabled(key.function, true);
    return follow() && AdaptiveCoolingSetRegCurrentSettings_v3(key, 1);
}

static BOOL DisableFunction(const CoolingKey& key, const ThermalWord& word, DWORD status) {
    if (!AdaptiveCoolingSetCommand_v3(word))
        return FALSE;
    AdaptiveCoolingSetRegCurrentStatus_v3(key, status);
    SetThermalFunctionEnabled(key.function, false);
    return AdaptiveCoolingSetRegCurrentSettings_v3(key, 0);
}

OPERATION(BOOL, AdaptiveCoolingEnableCurrentSettingsOfTwoInOne_v3, ()) {
    return EnableFunction(TMC_TIO, AdaptiveCoolingChageThermalModeByTwoInOne_v3);
}

OPERATION(BOOL, AdaptiveCoolingDisableCurrentSettingsOfTwoInOne_v3, ()) {
    return DisableFunction(TMC_TIO, TWO_IN_ONE_COOL, 1);
}

static BOOL EnableCpuControl() {
    return EnableFunction(TMC_DCC, AdaptiveCoolingDynamicCpuControlSettings_v3);
}

static BOOL DisableCpuControl() {
    return DisableFunction(TMC_DCC, CPU_CONTROL_COOL, 0);
}

OPERATION(BOOL, AdaptiveCoolingEnableDynamicCpuControlSettings_v3, ()) {
    return InTurn<EnableCpuControl>();
}

OPERATION(BOOL, AdaptiveCoolingDisableDynamicCpuControlSettings_v3, ()) {
    return InTurn<DisableCpuControl>();
}

// ---- Two In One ----

OPERATION(BOOL, AdaptiveCoolingChageThermalModeByTwoInOne_v3, ()) {
    if (!Enabled(THERMAL_TWO_IN_ONE))
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
    if (!AdaptiveCoolingSetCommand_v3(attached ? TWO_IN_ONE_HIGH_PERFORMANCE : TWO_IN_ONE_COOL))
        return FALSE;
    return AdaptiveCoolingSetRegCurrentStatus_v3(TMC_TIO, attached ? 1 : 0);
}

// The device is held in the hand (1) or no longer held (0). With an option attached - as the last mode change
// found it, not asked anew - only the report is published.
static BOOL ChangeOnHand(DWORD on_hand, const ThermalWord& word) {
    if (!ThermalFunctionEnabled(THERMAL_TWO_IN_ONE)) {
        Trace(L"Not support or unfertilized the TIO()\n");
        return FALSE;
    }
    const BOOL written = AdaptiveCoolingSetRegCurrentOnhandStatusForTwoInOne_v3(on_hand);
    if ((g_dwCoolingOptionState.load() & COOLING_OPTION_ATTACHED) != 0) {
        Trace(L"Option is attached(): only the report is published\n");
        return written;
    }
    if (!AdaptiveCoolingSetCommand_v3(word))
        return FALSE;
    AdaptiveCoolingSetRegCurrentStatus_v3(TMC_TIO, on_hand);
    return TRUE;
}

OPERATION(BOOL, AdaptiveCoolingDetectOnHand_v3, ()) {
    return ChangeOnHand(1, TWO_IN_ONE_COOL);
}

OPERATION(BOOL, AdaptiveCoolingUndetectOnHand_v3, ()) {
    return ChangeOnHand(0, TWO_IN_ONE_HIGH_PERFORMANCE);
}

OPERATION(BOOL, AdaptiveCoolingEnterFlipMode_v3, ()) {
    return Enabled(THERMAL_TWO_IN_ONE) && AdaptiveCoolingSetCommand_v3(TWO_IN_ONE_COOL);
}

OPERATION(BOOL, AdaptiveCoolingExitFlipMode_v3, ()) {
    return Enabled(THERMAL_TWO_IN_ONE) && AdaptiveCoolingSetCommand_v3(TWO_IN_ONE_HIGH_PERFORMANCE);
}

// ---- hinge, graphics temperature, dock ----

static const CommandRow g_hingePostures[] = {
    {MM_SYSTEM_STATE_NoteBook, HINGE_CLAMSHELL}, {MM_SYSTEM_STATE_Layflat, HINGE_LAYFLAT},
    {MM_SYSTEM_STATE_Tablet, HINGE_TABLET},      {MM_SYSTEM_STATE_Media, HINGE_TENT},
    {MM_SYSTEM_STATE_Tent, HINGE_TENT},
};

OPERATION(BOOL, AdaptiveCoolingPivoModeChange, ()) {
    DWORD status = 0;
    if (!AdaptiveCoolingGetPivoModeStatusFromBIOS(&status))
        return FALSE;
    const DWORD posture = status & STATUS_VALUE;
    const ThermalWord* word = FindWord(g_hingePostures, posture);
    if (word == nullptr)
        Trace(L"AdaptiveCoolingPivoModeChange(): no command for posture %u, only published\n", posture);
    if (word != nullptr && !AdaptiveCoolingSetCommand_v3(*word))
        return FALSE;
    return AdaptiveCoolingSetRegCurrentStatus_v3(TMC_MPH, posture);
}

OPERATION(BOOL, AdaptiveCoolingThermalModeByHingeSettings_v3, ()) {
    if (!Enabled(THERMAL_COOL_QUIET_HINGE))
        return FALSE;
    DWORD status = 0;
    if (!AdaptiveCoolingGetThermalModeStatusFromBIOS(&status))
        return FALSE;
    const DWORD mode = status & STATUS_VALUE;
    // Every mode but the high one runs cool, those that are unknown too.
    if (!AdaptiveCoolingSetCommand_v3(mode == THERMAL_MODE_HIGH ? QUIET_HINGE_HIGH : QUIET_HINGE_COOL))
        return FALSE;
    return AdaptiveCoolingSetRegCurrentStatus_v3(TMC_CQH, mode);
}

static const CommandRow g_graphicsLevels[] = {
    {1, CPU_CONTROL_COOL},
    {2, CPU_CONTROL_HIGH},
    {3, CPU_CONTROL_COOL},
};

OPERATION(BOOL, AdaptiveCoolingDynamicCpuControlSettings_v3, ()) {
    if (!Enabled(THERMAL_DYNAMIC_CPU_CONTROL))
        return FALSE;
    DWORD status = 0;
    if (!AdaptiveCoolingGetThermalDiscreteGUPTempertureFromBIOS(&status))
        return FALSE;
    const DWORD level = status & STATUS_VALUE;
    const ThermalWord* word = FindWord(g_graphicsLevels, level);
    if (word == nullptr)
        Trace(L"AdaptiveCoolingDynamicCpuControlSettings_v3(): no command for level %u, only published\n",
              level);
    if (word != nullptr && !AdaptiveCoolingSetCommand_v3(*word))
        return FALSE;
    AdaptiveCoolingSetRegCurrentStatus_v3(TMC_DCC, level);
    return TRUE;
}

namespace {

// The dock types that are known; only some take power commands. Another one is an error.
struct DockRow {
    const wchar_t* name;
    DWORD type;
    bool sets_power;
};

} // namespace

static const DockRow g_docks[] = {
    {TRACE_NAME(L"Vantor"), DOCK_TYPE_VANTOR, true},
    {TRACE_NAME(L"Quillon"), DOCK_TYPE_QUILLON, true},
    {TRACE_NAME(L"Bastion"), DOCK_TYPE_BASTION, false},
    {TRACE_NAME(L"Linkway"), DOCK_TYPE_LINKWAY, false},
};

static const DockRow* FindDock(DWORD type) {
    for (const DockRow& row : g_docks) {
        if (row.type == type)
            return &row;
    }
    return nullptr;
}

OPERATION(BOOL, AdaptiveCoolingDockModeControlChange, ()) {
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
    if (!AdaptiveCoolingSetCommand_v3(docked != 0 ? DOCK_MODE_DOCKED : DOCK_MODE_UNDOCKED))
        return FALSE;
    return AdaptiveCoolingSetRegCurrentStatus_v3(TMC_DMC, docked);
}
