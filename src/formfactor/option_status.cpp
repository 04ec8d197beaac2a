#include "formfactor/option_status.h"

#include "common/trace.h"
#include "cooling/adaptive_cooling.h"
#include "driver/firmware.h"
#include "driver/firmware_words.h"
#include "formfactor/mode_switch.h"

SubsystemLock g_formFactorLock;
std::atomic<DWORD> g_dwFormFactorSupport{0};

static std::atomic<DWORD> g_dwOptionInterfaceVersion{0};
// Only kept for a look at a running service: no decision depends on it.
static std::atomic<DWORD> g_dwOptionInterfaceType{0};

namespace {

// An indicator of Windows. A write does not say which state is wanted, it changes the one there is: between
// reading and toggling an indicator belongs to one thread.
struct Indicator {
    const wchar_t* name;
    BOOL (*read)(DWORD* state);
    BOOL (*toggle)(DWORD state_read);
    // Created by the first driver that needs it, and kept.
    std::atomic<HANDLE>* mutex;
};

} // namespace

static BOOL ToggleLaptopSlate(DWORD) {
    return ToggleConversionIndicator();
}

static BOOL ToggleDock(DWORD state_read) {
    return SetSystemDockingTransformation(static_cast<BYTE>(state_read));
}

static std::atomic<HANDLE> g_hLaptopSlateMutex{nullptr};
static std::atomic<HANDLE> g_hDockMutex{nullptr};

static const Indicator g_laptopSlate = {TRACE_NAME(L"laptop/slate"), GetSystemTransformation,
                                        ToggleLaptopSlate, &g_hLaptopSlateMutex};
static const Indicator g_dock = {TRACE_NAME(L"dock"), GetSystemDockingTransformation, ToggleDock,
                                 &g_hDockMutex};

// The indicator's mutex, or null when it cannot be created.
static HANDLE IndicatorMutex(const Indicator& indicator) {
    HANDLE mutex = indicator.mutex->load();
    if (mutex != nullptr)
        return mutex;
    HANDLE created = CreateMutexW(nullptr, FALSE, nullptr);
    if (created == nullptr)
        return nullptr;
    if (indicator.mutex->compare_exchange_strong(mutex, created))
        return created;
    // Another thread was first.
    CloseHandle(created);
    return mutex;
}

// Takes the indicator. The wait is bounded because its holder may have been suspended; a holder that was
// terminated leaves the mutex abandoned, which is as good as free.
static bool TakeIndicator(HANDLE mutex) {
    if (mutex == nullptr)
        return false;
    const DWORD result = WaitForSingleObject(mutex, INDICATOR_WAIT_MS);
    return result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
}

// Toggles the indicator if it is in the state `from`.
static BOOL DriveIndicator(const Indicator& indicator, DWORD from) {
    if (g_dwFormFactorSupport == 0) {
        Trace(L"DriveIndicator(): no support, %ls indicator left alone\n", indicator.name);
        return FALSE;
    }
    HANDLE mutex = IndicatorMutex(indicator);
    if (!TakeIndicator(mutex)) {
        Trace(L"DriveIndicator(): Error: %ls indicator not free. (%lu)\n", indicator.name, GetLastError());
        return FALSE;
    }
    DWORD state = 0;
    BOOL result = indicator.read(&state);
    if (result && state == from) {
        Trace(L"DriveIndicator(): %ls indicator leaves %lu\n", indicator.name, state);
        result = indicator.toggle(state);
    } else {
        Trace(L"DriveIndicator(): %ls indicator stays %lu\n", indicator.name, state);
    }
    ReleaseMutex(mutex);
    return result;
}

// clang-format off
OPERATION(BOOL, SystemTransformationSetLaptopIndicatorToLaptop, ()) { return DriveIndicator(g_laptopSlate, TRANSFORMATION_TABLET); }
OPERATION(BOOL, SystemTransformationSetLaptopIndicatorToTablet, ()) { return DriveIndicator(g_laptopSlate, TRANSFORMATION_NOTEBOOK); }
static OPERATION(BOOL, SetDockModeIndicatorToDocked, ()) { return DriveIndicator(g_dock, DOCK_UNDOCKED); }
static OPERATION(BOOL, SetDockModeIndicatorToUndocked, ()) { return DriveIndicator(g_dock, DOCK_DOCKED); }
// clang-format on

namespace {

// What an option status means, in the order of its steps. No cooling call where the column is null.
struct OptionRow {
    DWORD status;
    BOOL (*laptop_slate)();
    BOOL (*dock)();
    BOOL (*cooling)();
};

} // namespace

constexpr auto NOTEBOOK = SystemTransformationSetLaptopIndicatorToLaptop;
constexpr auto TABLET = SystemTransformationSetLaptopIndicatorToTablet;
constexpr auto DOCKED = SetDockModeIndicatorToDocked;
constexpr auto UNDOCKED = SetDockModeIndicatorToUndocked;

// clang-format off
static const OptionRow g_optionRowsVersion1[] = {
    {OPTION_1_NONE,                    TABLET,   UNDOCKED, nullptr},
    {OPTION_1_DOCK,                    TABLET,   DOCKED,   nullptr},
    {OPTION_1_KEYBOARD,                NOTEBOOK, UNDOCKED, nullptr},
    {OPTION_1_KEYBOARD_DOCK_CLAMSHELL, NOTEBOOK, DOCKED,   nullptr},
    {OPTION_1_KEYBOARD_DOCK_TABLET,    TABLET,   DOCKED,   nullptr},
};

static const OptionRow g_optionRowsVersion2[] = {
    {OPTION_2_NONE,                    TABLET,   UNDOCKED, nullptr},
    {OPTION_2_DOCK,                    TABLET,   DOCKED,   AdaptiveCoolingExitFlipMode},
    {OPTION_2_KEYBOARD,                NOTEBOOK, UNDOCKED, nullptr},
    {OPTION_2_KEYBOARD_DOCK_CLAMSHELL, NOTEBOOK, DOCKED,   nullptr},
    {OPTION_2_KEYBOARD_DOCK_TABLET,    TABLET,   DOCKED,   nullptr},
    {OPTION_2_KEYBOARD_SECOND_CODE,    TABLET,   UNDOCKED, nullptr},
    {OPTION_2_ORRIN_KEYBOARD_FLIPPED,  TABLET,   DOCKED,   AdaptiveCoolingEnterFlipMode},
};
// clang-format on

// Each step of a row runs whatever became of the one before; a status without a row changes nothing.
template <size_t N> static void ApplyOptionRow(const OptionRow (&rows)[N], DWORD status) {
    for (const OptionRow& row : rows) {
        if (row.status != status)
            continue;
        row.laptop_slate();
        row.dock();
        if (row.cooling != nullptr)
            row.cooling();
        return;
    }
    Trace(L"ApplyOptionRow(): no option has the status 0x%08lx\n", status);
}

// One selector of the firmware method GOPT. *result is written only on success.
static BOOL QueryOption(DWORD selector, DWORD* result) {
    DriverHandles holder;
    DWORD answer = 0;
    if (!PMDriverIoControl(&holder, IOCTL_PMDRV_GOPT, selector, &answer)) {
        Trace(L"QueryOption(): Error: GOPT 0x%lx failed. (%lu)\n", selector, GetLastError());
        return FALSE;
    }
    *result = answer;
    return TRUE;
}

// clang-format off
static OPERATION(BOOL, GetCurrentOptionStatusVersion, (DWORD* version), version) { return QueryOption(GOPT_VERSION, version); }
static OPERATION(BOOL, GetCurrentOptionStatusInterfaceType, (DWORD* type), type) { return QueryOption(GOPT_TYPE, type); }
static OPERATION(BOOL, GetCurrentOptionStatus, (DWORD* status), status) { return QueryOption(GOPT_STATUS, status); }
// clang-format on

static BOOL ApplyOptionStatus() {
    const DWORD version = g_dwOptionInterfaceVersion;
    if (version < OPTION_VERSION_1) {
        Trace(L"ApplyOptionStatus(): no option interface known\n");
        return FALSE;
    }
    DWORD status = 0;
    if (!GetCurrentOptionStatus(&status))
        return FALSE;
    // The version in between is known and drives nothing.
    if (version == OPTION_VERSION_1)
        ApplyOptionRow(g_optionRowsVersion1, status);
    else if (version >= OPTION_VERSION_2)
        ApplyOptionRow(g_optionRowsVersion2, status);
    else
        Trace(L"ApplyOptionStatus(): interface version 0x%lx drives nothing\n", version);
    return TRUE;
}

OPERATION(BOOL, SetOptionStatus, ()) {
    return RunExclusive(&g_formFactorLock, ApplyOptionStatus);
}

OPERATION(BOOL, OptionStatusInit, ()) {
    DWORD version = 0;
    if (!GetCurrentOptionStatusVersion(&version))
        return FALSE;
    // No option interface. A version known from before stays.
    if (version < OPTION_VERSION_1) {
        Trace(L"OptionStatusInit(): no option interface\n");
        return TRUE;
    }
    g_dwOptionInterfaceVersion = version;
    DWORD type = 0;
    if (!GetCurrentOptionStatusInterfaceType(&type))
        return FALSE;
    g_dwOptionInterfaceType = type;
    return ApplyOptionStatus();
}
