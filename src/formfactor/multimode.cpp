#include "formfactor/multimode.h"

#include "common/trace.h"
#include "driver/firmware.h"
#include "driver/firmware_words.h"
#include "formfactor/multimode_registry.h"
#include "formfactor/option_status.h"

// Hardware id of Intel's virtual-button device, which moves the indicators itself.
static const wchar_t g_virtualButtonId[] = L"INT33D6";

OPERATION(BOOL, SystemTransformationGetCurrentSystemStatus, (DWORD * word), word) {
    DriverHandles holder;
    DWORD answer = 0;
    if (!PMDriverIoControl(&holder, IOCTL_PMDRV_GMMS, 0, &answer)) {
        Trace(L"SystemTransformationGetCurrentSystemStatus(): Error: GMMS failed. (%lu)\n", GetLastError());
        return FALSE;
    }
    *word = answer;
    return TRUE;
}

// What each multimode state does to the laptop/slate indicator.
static BOOL LeaveIndicator() {
    return TRUE;
}

namespace {

struct PostureIndicator {
    DWORD state;
    BOOL (*drive)();
};

} // namespace

static const PostureIndicator g_postureIndicators[] = {
    {MM_SYSTEM_STATE_NotReceived, LeaveIndicator},
    {MM_SYSTEM_STATE_NoteBook, SystemTransformationSetLaptopIndicatorToLaptop},
    {MM_SYSTEM_STATE_Layflat, SystemTransformationSetLaptopIndicatorToLaptop},
    {MM_SYSTEM_STATE_Tablet, SystemTransformationSetLaptopIndicatorToTablet},
    {MM_SYSTEM_STATE_Media, SystemTransformationSetLaptopIndicatorToTablet},
    {MM_SYSTEM_STATE_Tent, SystemTransformationSetLaptopIndicatorToTablet},
};

// FALSE for a state without a row.
static BOOL DrivePostureIndicator(DWORD state) {
    for (const PostureIndicator& row : g_postureIndicators) {
        if (row.state == state)
            return row.drive();
    }
    Trace(L"DrivePostureIndicator(): no posture %lu, indicator left alone\n", state);
    return FALSE;
}

static OPERATION(BOOL, SystemTransformationUpdateCurrentSystemStatus, ()) {
    DWORD word = 0;
    if (!SystemTransformationGetCurrentSystemStatus(&word))
        return FALSE;
    const DWORD state = word & STATUS_VALUE;
    Trace(L"SystemTransformationUpdateCurrentSystemStatus(): multimode state %lu\n", state);
    SystemTransformationSetCurrentStatusToReg(state);
    return DrivePostureIndicator(state);
}

OPERATION(BOOL, SystemTransformationEventActionChangeTransformation, ()) {
    return RunExclusive(&g_formFactorLock, SystemTransformationUpdateCurrentSystemStatus);
}

static OPERATION(DWORD, CheckExsitIntelVirtualButtonDevices, ()) {
    DWORD found = 0;
    // Its result also covers a failed enumeration; only a device that was found counts.
    FindDevice(g_virtualButtonId, &found);
    return found != 0 ? 1 : 0;
}

static OPERATION(BOOL, IsExsitIntelVirtualButtonDevices, ()) {
    return CheckExsitIntelVirtualButtonDevices() == 1;
}

// Decides whether this machine may have its indicators driven, and leaves the decision in the support flag.
static OPERATION(BOOL, SystemTransformationCheckCurrentSettingsFormReg, ()) {
    g_dwFormFactorSupport = 0;
    if (!SystemTransformationInitReg())
        return FALSE;
    if (IsExsitIntelVirtualButtonDevices() && g_dwChkINode == 1) {
        Trace(L"SystemTransformationCheckCurrentSettingsFormReg(): virtual-button device, no support\n");
        return FALSE;
    }
    if (!SystemTransformationIsWindows10orLater() && g_dwChkOSV == 1) {
        Trace(L"SystemTransformationCheckCurrentSettingsFormReg(): Windows before 10, no support\n");
        return FALSE;
    }
    g_dwFormFactorSupport = 1;
    return TRUE;
}

// The driver's lid status word. *word is written only on success.
static OPERATION(BOOL, GetCurrentLidtatus, (DWORD * word), word) {
    DriverHandles holder;
    DWORD answer = 0;
    if (!PMDriverIoControl(&holder, IOCTL_PMDRV_GETLIDSTATUS, 0, &answer)) {
        Trace(L"GetCurrentLidtatus(): Error: lid status not read. (%lu)\n", GetLastError());
        return FALSE;
    }
    *word = answer;
    return TRUE;
}

// A word with any other bit is published as unknown.
constexpr DWORD LID_WORD_CLOSED = LID_READING_VALID;
constexpr DWORD LID_WORD_OPEN = LID_READING_VALID | LID_SWITCH_OPEN;

static OPERATION(BOOL, PublishLidStatus, ()) {
    DWORD word = 0;
    GetCurrentLidtatus(&word);
    PublishLidState(word == LID_WORD_CLOSED ? LID_STATE_CLOSED
                    : word == LID_WORD_OPEN ? LID_STATE_OPEN
                                            : LID_STATE_UNKNOWN);
    return TRUE;
}

static BOOL Refresh() {
    // Each step runs whatever became of the one before.
    SystemTransformationCheckCurrentSettingsFormReg();
    SystemTransformationUpdateCurrentSystemStatus();
    OptionStatusInit();
    PublishLidStatus();
    return TRUE;
}

OPERATION(BOOL, SystemTransformationGetCurrentSystemStatus, ()) {
    return RunExclusive(&g_formFactorLock, Refresh);
}

// A refresh that read the lid before the event must not publish it after.
OPERATION(BOOL, PublishLidClosed, ()) {
    return RunExclusive(
        &g_formFactorLock, +[]() -> BOOL {
            PublishLidState(LID_STATE_CLOSED);
            return TRUE;
        });
}

OPERATION(BOOL, PublishLidOpen, ()) {
    return RunExclusive(
        &g_formFactorLock, +[]() -> BOOL {
            PublishLidState(LID_STATE_OPEN);
            return TRUE;
        });
}
