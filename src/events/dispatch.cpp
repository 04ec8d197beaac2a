#include "events/dispatch.h"

#include "common/process.h"
#include "common/registry.h"
#include "common/trace.h"
#include "cooling/adaptive_cooling.h"
#include "display/pwm_frequency.h"
#include "driver/device.h"
#include "driver/firmware_words.h"
#include "events/lid_beep.h"
#include "events/sleep_wake.h"
#include "events/standby.h"
#include "formfactor/multimode.h"
#include "formfactor/option_status.h"
#include "formfactor/transformation.h"
#include "hotkeys/ph_interface.h"

constexpr DWORD PAGE_CLASSIC = 0x1000;
constexpr DWORD PAGE_2 = 0x1100;
constexpr DWORD PAGE_3 = 0x1300;

// What the dispatcher derives from an event's code.
struct EventFields {
    DWORD FnNumber;   // key or event number within its page
    DWORD page;       // kept in place, e.g. 0x1100
    DWORD SleepState; // carried by wake events
    DWORD key_mask;
    DWORD table_key;
};

static EventFields DeriveFields(DWORD code) {
    EventFields fields;
    fields.FnNumber = code & 0xFF;
    fields.page = code & 0xFF00;
    fields.SleepState = (code >> 8) & 0xF;
    if (fields.SleepState == 1 || fields.SleepState == 2)
        fields.SleepState = 3;
    fields.key_mask = 1u << ((fields.FnNumber - 1) % 32);
    fields.table_key = code & 0xFFFFF0FF;
    return fields;
}

DWORD ChkHotkeyEvent(HardwareEvent* event) {
    *event = {};
    HANDLE device = OpenDevice(SECONDARY_DEVICE, FULL_ACCESS, FULL_SHARE);
    if (device == INVALID_HANDLE_VALUE)
        return ERROR_INVALID_HANDLE;
    HardwareEvent answer = {};
    DWORD returned = 0;
    const BOOL sent = SendIoCode(device, IOCTL_PMDRV_GETEVENT, nullptr, &answer, &returned);
    const DWORD error = sent ? ERROR_SUCCESS : GetLastError();
    CloseHandle(device);
    if (!sent)
        return error != ERROR_SUCCESS ? error : ERROR_GEN_FAILURE;
    if (returned == 0 || returned > sizeof(answer)) {
        Trace(L"ChkHotkeyEvent(): Error: Buffer overflow.");
        return ERROR_BUFFER_OVERFLOW;
    }
    CopyMemory(event, &answer, returned);
    return ERROR_SUCCESS;
}

// Flips one bit of a notification value; an absent one counts as 0. The key is never created.
static void ToggleNotification(const wchar_t* path, const wchar_t* name, DWORD mask) {
    KeyHolder key;
    if (!OpenKey(&key, HKEY_LOCAL_MACHINE, path, KEY_ALL_ACCESS))
        return;
    DWORD value = 0;
    QueryDword(key.key, name, &value);
    if (!SetDword(key.key, name, value ^ mask))
        Trace(L"ToggleNotification(): Error: %ls not written.\n", name != nullptr ? name : L"(default)");
}

static void PublishLid(DWORD state) {
    KeyHolder key;
    if (OpenKey(&key, HKEY_LOCAL_MACHINE, SERVICE_KEY L"\\Transform\\CurrentStatus", KEY_ALL_ACCESS))
        SetDword(key.key, L"Lid", state);
}

static void HandleCalderLcdCloseOpen(DWORD bMouseDataEnable) {
    SendOneWord(IOCTL_POINTING_STICK_MOUSE_DATA, bMouseDataEnable, nullptr);
}

static void HandleHotKey3() {
    // Since Vista the system handles the standby key itself.
    if (!IsVistaOrLater)
        StandbySystem();
}

// ---- the action table ----

// One step of a row: an operation, with the number it is given in the table and the event's fields.
struct Step {
    void (*run)(DWORD argument, const EventFields& fields);
    DWORD argument;
};

// An operation without arguments; its result is of no interest here.
template <auto Operation> constexpr Step Do() {
    return {[](DWORD, const EventFields&) { Operation(); }, 0};
}

// An operation with one number.
template <auto Operation> constexpr Step Do(DWORD argument) {
    return {[](DWORD number, const EventFields&) { Operation(number); }, argument};
}

// Event notification k to clients: bit k-1 of "Type2" (N) or "Type22" (M) flips.
static constexpr Step N(DWORD k) {
    return Do<NotifyPHType2Event>(k);
}
static constexpr Step M(DWORD k) {
    return Do<NotifyPHType22Event>(k);
}

static constexpr Step Wakeup() {
    return {[](DWORD, const EventFields& fields) { HandleWakeupEvent(TRUE, FALSE, fields.SleepState); }, 0};
}
static constexpr Step BusDisconnect() {
    return {[](DWORD, const EventFields&) { HandleWakeupEvent(FALSE, TRUE, 0); }, 0};
}

struct EventRow {
    DWORD table_key;
    const wchar_t* name;
    Step steps[3]; // run in this order; an empty step ends the row
};

// clang-format off
static const EventRow g_eventTable[] = {
    {0x0015, L"ZORPM_FAST_FLASH_STANDBY_CHANGED",          {N(21)}},
    {0x1003, L"classic hot key 3",                         {Do<HandleHotKey3>()}},
    {0x100C, L"classic hot key 12",                        {Do<HibernateSystem>()}},
    {0x2004, L"wake-up",                                   {Wakeup()}},
    {0x2005, L"wake-up",                                   {Wakeup()}},
    {0x2013, L"ZORPM_WAKEUP_BATT",                         {Do<HandleBatteryWakeup>()}},
    {0x2020, L"HK_CHANGE_CONNECTED_STANDBY_STATUS_CHNAGED", {}},
    {0x3003, L"bus disconnect",                            {BusDisconnect()}},
    {0x4003, L"bus disconnect",                            {BusDisconnect()}},
    {0x3006, L"",                                          {N(8)}},
    {0x4010, L"",                                          {N(11), Do<AdaptiveCoolingRiseEventOfDockModeControlChange>()}},
    {0x4011, L"",                                          {N(12), Do<AdaptiveCoolingRiseEventOfDockModeControlChange>()}},
    {0x4012, L"ZORPM_TABLET_OPTION_ATTACHED",              {Do<AdaptiveCoolingRiseAttachEventOfTwoInOne>(), Do<SetOptionStatus>(), M(3)}},
    {0x4013, L"ZORPM_TABLET_OPTION_DETACHED",              {Do<AdaptiveCoolingRiseDetachEventOfTwoInOne>(), Do<SetOptionStatus>(), M(4)}},
    {0x5001, L"lid close",                                 {N(5), Do<HandleLidCloseBeep>(), Do<PublishLid>(1)}},
    {0x5002, L"lid open",                                  {N(6), Do<SetLidBeep>(0), Do<PublishLid>(2)}},
    {0x5007, L"",                                          {Do<HandleCalderLcdCloseOpen>(0)}},
    {0x5008, L"",                                          {Do<HandleCalderLcdCloseOpen>(1)}},
    {0x5009, L"ZORPM_TABLET_MODE",                         {N(28), Do<TabletScreenRotationFunctionality>()}},
    {0x500A, L"ZORPM_NOTEBOOK_MODE",                       {N(29), Do<NotebookScreenRotationFunctionality>()}},
    {0x500B, L"",                                          {N(2)}},
    {0x500C, L"",                                          {N(3)}},
    {0x500D, L"ZORPM_PEN_LOSE",                            {N(15)}},
    {0x5010, L"",                                          {Do<ChangePWMFrequency>()}},
    {0x5012, L"ZORPM_EVENT_LAYFLAT_STATE_CHANGE",          {M(2)}},
    {0x5020, L"ZORPM_EVENT_DOG_EAR_CHANGED",               {M(1)}},
    {0x5030, L"",                                          {N(10)}},
    {0x6000, L"ZORPM_NUMLOCK_STATE_CHANGED",               {N(13)}},
    {0x6001, L"ZORPM_KEYBOARD_LIGHT_DEVICE_STATE_CHANGED", {N(23)}},
    {0x6005, L"ZORPM_FNSTICKY_STATE_CHANGED",              {N(14)}},
    {0x6011, L"",                                          {}},
    {0x6012, L"",                                          {Do<ForceSuspendSystem>()}},
    {0x6020, L"ZORPM_ROTATIONLOCK_BUTTON_PRESSED",         {N(31)}},
    {0x6022, L"",                                          {Do<ForceSuspendSystem>()}},
    {0x6030, L"",                                          {N(9)}},
    {0x6031, L"ZORPM_EVENT_THERMAL_DISCRETE_GPU_TEMPATURE_CHANGED", {M(7), Do<AdaptiveCoolingRiseEventOfDynamicCpuControl>()}},
    {0x6032, L"ZORPM_DYNAMIC_THERMAL_CONTROL_SET_COMMAND_COMPLIETION", {M(8)}},
    {0x6040, L"ZORPM_ACADPTER_RAW_STATE_CHANGED",          {N(16)}},
    {0x6050, L"ZORPM_BRIGHTNESS_CHANGED",                  {N(17)}},
    {0x6060, L"ZORPM_MEDIAKEY_CHANGED",                    {N(18)}},
    {0x6070, L"ZORPM_INTELLIGENT_SLEEP_STATE_WAKES_FROM_S3_TO_S4", {N(19)}},
    {0x6080, L"ZORPM_INTELLIGENT_SLEEP_STATE_WAKES_FROM_S4_TO_S3", {N(20)}},
    {0x6090, L"ZORPM_SHOCK_SHIELD_BUTTON_CANGED",          {N(22)}},
    {0x60A0, L"ZORPM_TOUCHPAD_DEVICE_STATE_CANGED",        {N(25)}},
    {0x60B0, L"ZORPM_PSENSOR_DETECTED",                    {N(26)}},
    {0x60B1, L"ZORPM_PSENSOR_UNDETECTED",                  {N(27)}},
    {0x60C0, L"ZORPM_DEVICE_TRANSFORMATION_CHANGED",       {N(30), Do<SystemTransformationEventActionChangeTransformation>(), Do<AdaptiveCoolingRiseEventOfPivoModeChange>()}},
    {0x60D0, L"ZORPM_EVENT__INSTANT_ON_SETTINGS",          {N(24)}},
    {0x60E0, L"HK_KEYBORAD_LIGHT_CONTROL_MODE_CHANGED",    {M(5)}},
    {0x60F0, L"ZORPM_EVENT_THERMAL_TRANSFORMATION_CHANGED", {M(6), Do<AdaptiveCoolingRiseEventOfCoolQuietHingeAngle>()}},
    {0x7000, L"",                                          {N(1)}},
};
// clang-format on

static DWORD RunAction(const EventFields& fields) {
    for (const EventRow& row : g_eventTable) {
        if (row.table_key != fields.table_key)
            continue;
        Trace(L"DispatchHotKey(): 0x%04lx %ls\n", row.table_key, row.name);
        for (const Step& step : row.steps) {
            if (step.run != nullptr)
                step.run(step.argument, fields);
        }
        return 0;
    }
    Trace(L"DispatchHotKey(): unknown event 0x%04lx\n", fields.table_key);
    return 1;
}

// Hot keys of pages 2 and 3 have no built-in action where the firmware has pages; they only notify. TRUE when
// the event was one of them.
static BOOL NotifyPagedHotKey(HANDLE device, const EventFields& fields) {
    DWORD version = 0;
    OneWordRequest(device, IOCTL_PMDRV_MHKV, 0, &version);
    if (version != MHKV_SECOND || (fields.page != PAGE_2 && fields.page != PAGE_3))
        return FALSE;
    const bool page2 = fields.page == PAGE_2;
    if ((page2 ? g_Type12CurrentSetting : g_Type13CurrentSetting) != 0)
        ToggleNotification(SERVICE_KEY L"\\Parameters2\\Type10\\Notification", page2 ? L"Type12" : L"Type13",
                           fields.key_mask);
    return TRUE;
}

DWORD DispatchHotKey(const HardwareEvent& event) {
    HandleHolder device(OpenDevice(PRIMARY_DEVICE, FULL_ACCESS, FULL_SHARE));
    if (!device.Valid()) {
        Trace(L"DispatchHotKey(): Error: primary device not opened. (%lu)\n", GetLastError());
        return 1;
    }
    const EventFields fields = DeriveFields(event.code);
    const bool classic = fields.page == PAGE_CLASSIC;
    // Any hot key in notify mode makes every classic hot key visible to clients.
    if (classic && g_PHCurrentSetting != 0)
        ToggleNotification(SERVICE_KEY L"\\Parameters\\Notification", nullptr, fields.key_mask);
    if (event.second != 0)
        return 0;
    if (classic && (fields.key_mask & g_PHOverrideSetting & PH_OVERRIDE_CAPABILITY) != 0)
        return 0; // a client has taken the key over
    if (NotifyPagedHotKey(device.handle, fields))
        return 0;
    return RunAction(fields);
}
