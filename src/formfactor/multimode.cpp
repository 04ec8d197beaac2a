#include "formfactor/multimode.h"

#include "common/trace.h"
#include "driver/firmware.h"
#include "formfactor/multimode_registry.h"
#include "formfactor/option_status.h"

// Hardware id of Intel's virtual-button device, which moves the indicators itself.
static const wchar_t g_virtualButtonId[] = L"INT33D6";

BOOL SystemTransformationGetCurrentSystemStatus(DWORD* word) {
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

static BOOL (*const g_postureIndicators[])() = {
    LeaveIndicator,                                 // MM_SYSTEM_STATE_NotReceived
    SystemTransformationSetLaptopIndicatorToLaptop, // MM_SYSTEM_STATE_NoteBook
    SystemTransformationSetLaptopIndicatorToLaptop, // MM_SYSTEM_STATE_Layflat
    SystemTransformationSetLaptopIndicatorToTablet, // MM_SYSTEM_STATE_Tablet
    SystemTransformationSetLaptopIndicatorToTablet, // MM_SYSTEM_STATE_Media
    SystemTransformationSetLaptopIndicatorToTablet, // MM_SYSTEM_STATE_Tent
};

static BOOL SystemTransformationUpdateCurrentSystemStatus() {
    DWORD word = 0;
    if (!SystemTransformationGetCurrentSystemStatus(&word))
        return FALSE;
    const DWORD state = word & 0xFFFF;
    Trace(L"SystemTransformationUpdateCurrentSystemStatus(): multimode state %lu\n", state);
    SystemTransformationSetCurrentStatusToReg(state);
    return state < ARRAYSIZE(g_postureIndicators) && g_postureIndicators[state]();
}

BOOL SystemTransformationEventActionChangeTransformation() {
    Trace(L"Enter SystemTransformationEventActionChangeTransformation()\n");
    return SystemTransformationUpdateCurrentSystemStatus();
}

static DWORD CheckExsitIntelVirtualButtonDevices() {
    DWORD found = 0;
    // Its result also covers a failed enumeration; only a device that was found counts.
    FindDevice(g_virtualButtonId, &found);
    return found != 0 ? 1 : 0;
}

static BOOL IsExsitIntelVirtualButtonDevices() {
    return CheckExsitIntelVirtualButtonDevices() == 1;
}

// Decides whether this machine may have its indicators driven, and leaves the decision in the support flag.
static BOOL SystemTransformationCheckCurrentSettingsFormReg() {
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
static BOOL GetCurrentLidtatus(DWORD* word) {
    DriverHandles holder;
    DWORD answer = 0;
    if (!PMDriverIoControl(&holder, IOCTL_PMDRV_GETLIDSTATUS, 0, &answer)) {
        Trace(L"GetCurrentLidtatus(): Error: lid status not read. (%lu)\n", GetLastError());
        return FALSE;
    }
    *word = answer;
    return TRUE;
}

// Lid status words with a valid reading and no other bit, and what they are published as.
static constexpr DWORD LID_WORD_CLOSED = 2;
static constexpr DWORD LID_WORD_OPEN = 3;

static BOOL PublishLidStatus() {
    DWORD word = 0;
    GetCurrentLidtatus(&word);
    PublishLidState(word == LID_WORD_CLOSED ? 1 : word == LID_WORD_OPEN ? 2 : 0);
    return TRUE;
}

BOOL SystemTransformationGetCurrentSystemStatus() {
    Trace(L"Enter SystemTransformationGetCurrentSystemStatus()\n");
    // Each step runs whatever became of the one before.
    SystemTransformationCheckCurrentSettingsFormReg();
    SystemTransformationEventActionChangeTransformation();
    OptionStatusInit();
    PublishLidStatus();
    return TRUE;
}
