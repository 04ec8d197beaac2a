// The extended PH interface: two further pages of 32 hot keys (family Type10) and a second set of event
// notifications (family Type20), for firmware of interface version 0x200 or later.
#include "common/registry.h"
#include "common/trace.h"
#include "driver/firmware.h"
#include "driver/firmware_words.h"
#include "hotkeys/ph_interface.h"
#include "hotkeys/ph_masks.h"
#include "hotkeys/ph_watch.h"

static BOOL Failed(const wchar_t* message) {
    Trace(message);
    return FALSE;
}

static BOOL Publish(const wchar_t* path, const wchar_t* name, DWORD value) {
    return CreateKeySetDword(HKEY_LOCAL_MACHINE, path, name, value);
}

static OPERATION(BOOL, Initialize_Registry_Type10_Capability, ()) {
    DriverHandles driver;
    DWORD version = 0;
    if (!PMDriverIoControl(&driver, IOCTL_PMDRV_MHKV, 0, &version) || version < MHKV_SECOND) {
        Trace(L"Error: Initialize_Registry_Type10_Capability(): Couldn't call MHKV or MHKV < 0x200.\n");
        if (!Publish(ZORPM_PAGES_CAPABILITY_KEY, nullptr, 0))
            Trace(L"Error: Initialize_Registry_Type10_Capability(): Couldn't write Type10 default capability "
                  L"registry.\n");
        return FALSE;
    }
    DWORD hot_keys = 0;
    if (!PMDriverIoControl(&driver, IOCTL_PMDRV_MHKA, MHK_PAGE_2, &hot_keys))
        return Failed(L"Error: Initialize_Registry_Type10_Capability(): Couldn't call MHKA. (Param: 2)\n");
    if (!Publish(ZORPM_PAGES_CAPABILITY_KEY, ZORPM_TYPE12, hot_keys))
        return Failed(
            L"Error: Initialize_Registry_Type10_Capability(): Couldn't write type12 default capability "
            L"registry.\n");
    hot_keys = 0;
    if (!PMDriverIoControl(&driver, IOCTL_PMDRV_MHKA, MHK_PAGE_3, &hot_keys))
        return Failed(L"Error: Initialize_Registry_Type10_Capability(): Couldn't call MHKA (Param: 3).\n");
    if (!Publish(ZORPM_PAGES_CAPABILITY_KEY, ZORPM_TYPE13, hot_keys))
        return Failed(
            L"Error: Initialize_Registry_Type10_Capability(): Couldn't write type13 default capability "
            L"registry.\n");
    return TRUE;
}

static OPERATION(BOOL, Initialize_Registry_Type10_CurrentSetting, ()) {
    DriverHandles driver;
    DWORD mask = 0;
    if (!PMDriverIoControl(&driver, IOCTL_PMDRV_MHKN, MHK_PAGE_2, &mask))
        return Failed(
            L"Error: Initialize_Registry_Type10_CurrentSetting(): Couldn't call MHKN (Param: 2).\n");
    g_Type12CurrentSetting = mask;
    if (!Publish(ZORPM_PAGES_SETTING_KEY, ZORPM_TYPE11, 0))
        return Failed(
            L"Error: Initialize_Registry_Type10_CurrentSetting(): Couldn't write type11 current setting "
            L"registry.\n");
    if (!Publish(ZORPM_PAGES_SETTING_KEY, ZORPM_TYPE12, mask))
        return Failed(
            L"Error: Initialize_Registry_Type10_CurrentSetting(): Couldn't write type12 current setting "
            L"registry.\n");
    mask = 0;
    if (!PMDriverIoControl(&driver, IOCTL_PMDRV_MHKN, MHK_PAGE_3, &mask))
        return Failed(
            L"Error: Initialize_Registry_Type10_CurrentSetting(): Couldn't call MHKN (Param: 3).\n");
    g_Type13CurrentSetting = mask;
    if (!Publish(ZORPM_PAGES_SETTING_KEY, ZORPM_TYPE13, mask))
        return Failed(
            L"Error: Initialize_Registry_Type10_CurrentSetting(): Couldn't write type13 current setting "
            L"registry.\n");
    return TRUE;
}

static OPERATION(BOOL, Initialize_Registry_Type10_OverrideSetting, ()) {
    DWORD mask = 0;
    if (CreateKeyQueryDword(HKEY_LOCAL_MACHINE, ZORPM_PAGES_OVERRIDE_KEY, nullptr, &mask)) {
        g_Type10OverrideSetting = mask;
        return TRUE;
    }
    if (!Publish(ZORPM_PAGES_OVERRIDE_KEY, nullptr, 0))
        return Failed(
            L"Error: Initialize_Registry_Type10_OverrideSetting(): Cannot initialize type10 override "
            L"setting registry.\n");
    return TRUE;
}

static OPERATION(BOOL, Initialize_Registry_Type10_Notification, ()) {
    if (!Publish(ZORPM_PAGES_NOTIFICATION_KEY, ZORPM_TYPE11, 0))
        return Failed(L"Error: Initialize_Registry_Type10_Notification(): Couldn't write type11 notification "
                      L"registry.\n");
    if (!Publish(ZORPM_PAGES_NOTIFICATION_KEY, ZORPM_TYPE12, g_Type12CurrentSetting))
        return Failed(L"Error: Initialize_Registry_Type10_Notification(): Couldn't write type12 notification "
                      L"registry.\n");
    if (!Publish(ZORPM_PAGES_NOTIFICATION_KEY, ZORPM_TYPE13, g_Type13CurrentSetting))
        return Failed(L"Error: Initialize_Registry_Type10_Notification(): Couldn't write type13 notification "
                      L"registry.\n");
    return TRUE;
}

static OPERATION(BOOL, Initialize_Registry_Type20_Capability, ()) {
    return Publish(ZORPM_TYPE20_CAPABILITY_KEY, ZORPM_TYPE21, 0) &&
           Publish(ZORPM_TYPE20_CAPABILITY_KEY, ZORPM_TYPE22, 0);
}

static OPERATION(BOOL, Initialize_Registry_Type20_Notification, ()) {
    return Publish(ZORPM_TYPE20_NOTIFICATION_KEY, ZORPM_TYPE21, 0) &&
           Publish(ZORPM_TYPE20_NOTIFICATION_KEY, ZORPM_TYPE22, 0);
}

static OPERATION(BOOL, Initialize_PH_Ex_Thread, ()) {
    constexpr PHWatchIndex watches[] = {PH_WATCH_TYPE12, PH_WATCH_TYPE12_OVERRIDE, PH_WATCH_TYPE13,
                                        PH_WATCH_TYPE13_OVERRIDE};
    for (const PHWatchIndex watch : watches) {
        if (StartPHWatch(watch) == nullptr)
            return FALSE;
    }
    return TRUE;
}

OPERATION(BOOL, InitPHInterfaceEx, ()) {
    if (!Initialize_Registry_Type10_Capability() || !Initialize_Registry_Type10_CurrentSetting() ||
        !Initialize_Registry_Type10_OverrideSetting() || !Initialize_Registry_Type10_Notification())
        return FALSE;
    if (!Initialize_Registry_Type20_Capability())
        return Failed(L"Error: InitPHInterfaceEx(): Couldn't initialize Type20 Capability registry.\n");
    if (!Initialize_Registry_Type20_Notification())
        return Failed(L"Error: InitPHInterfaceEx(): Couldn't initialize Type20 notification registry.\n");
    return Initialize_PH_Ex_Thread();
}
