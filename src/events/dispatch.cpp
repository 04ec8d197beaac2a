#include "events/dispatch.h"

#include "common/holders.h"
#include "common/process.h"
#include "common/trace.h"
#include "cooling/adaptive_cooling.h"
#include "display/pwm_frequency.h"
#include "driver/device.h"
#include "events/lid_beep.h"
#include "events/sleep_wake.h"
#include "events/standby.h"
#include "formfactor/multimode.h"
#include "formfactor/option_status.h"
#include "formfactor/transformation.h"
#include "hotkeys/ph_notification.h"

namespace {

// What the dispatcher derives from an event's code.
struct EventFields {
    DWORD fn_number;   // key or event number within its page
    DWORD page;        // kept in place, e.g. 0x1100
    DWORD sleep_state; // carried by wake events
    DWORD key_mask;
    DWORD table_key;
};

} // namespace

static EventFields DeriveFields(DWORD code) {
    EventFields fields;
    fields.fn_number = code & 0xFF;
    fields.page = code & 0xFF00;
    fields.sleep_state = (code >> 8) & 0xF;
    if (fields.sleep_state == 1 || fields.sleep_state == 2)
        fields.sleep_state = 3;
    fields.key_mask = 1u << ((fields.fn_number - 1) % 32);
    fields.table_key = code & 0xFFFFF0FF;
    return fields;
}

OPERATION(DWORD, ChkHotkeyEvent, (HardwareEvent * event), event) {
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

static OPERATION(void, HandleCalderLcdCloseOpen, (DWORD mouse_data_enable), mouse_data_enable) {
    SendOneWord(IOCTL_POINTING_STICK_MOUSE_DATA, mouse_data_enable, nullptr);
}

static OPERATION(void, HandleHotKey3, ()) {
    // Since Vista the system handles the standby key itself.
    if (!IsVistaOrLater)
        StandbySystem();
    else
        Trace(L"HandleHotKey3(): left to the system\n");
}

// ---- the action table ----

namespace {

// One step of a row: an operation, with the number it is given in the table and the event's fields.
struct Step {
    void (*run)(DWORD argument, const EventFields& fields);
    DWORD argument;
};

} // namespace

// An operation without arguments; its result is of no interest here.
template <auto Operation> constexpr Step Do() {
    return {[](DWORD, const EventFields&) { Operation(); }, 0};
}

// An operation with one number.
template <auto Operation> constexpr Step Do(DWORD argument) {
    return {[](DWORD number, const EventFields&) { Operation(number); }, argument};
}

// Event notification k to clients: bit k-1 of the value flips.
static constexpr Step Type2(DWORD k) {
    return Do<NotifyPHType2Event>(k);
}
static constexpr Step Type22(DWORD k) {
    return Do<NotifyPHType22Event>(k);
}

static constexpr Step Wakeup() {
    return {[](DWORD, const EventFields& fields) { HandleWakeupEvent(TRUE, FALSE, fields.sleep_state); }, 0};
}
static constexpr Step BusDisconnect() {
    return {[](DWORD, const EventFields&) { HandleWakeupEvent(FALSE, TRUE, 0); }, 0};
}

namespace {

struct EventRow {
    DWORD table_key;
    const wchar_t* name; // for the trace
    Step steps[3];       // run in this order; an empty step ends the row
};

} // namespace

// clang-format off
static const EventRow g_eventTable[] = {
    {0x0015, TRACE_NAME(L"ZORPM_FAST_FLASH_STANDBY_CHANGED"),               {Type2(21)}},
    {0x1003, TRACE_NAME(L"classic hot key 3"),                              {Do<HandleHotKey3>()}},
    {0x100C, TRACE_NAME(L"classic hot key 12"),                             {Do<HibernateSystem>()}},
    {0x2004, TRACE_NAME(L"wake-up"),                                        {Wakeup()}},
    {0x2005, TRACE_NAME(L"wake-up"),                                        {Wakeup()}},
    {0x2013, TRACE_NAME(L"ZORPM_WAKEUP_BATT"),                              {Do<HandleBatteryWakeup>()}},
    {0x2020, TRACE_NAME(L"HK_CHANGE_CONNECTED_STANDBY_STATUS_CHNAGED"),     {}},
    {0x3003, TRACE_NAME(L"bus disconnect"),                                 {BusDisconnect()}},
    {0x4003, TRACE_NAME(L"bus disconnect"),                                 {BusDisconnect()}},
    {0x3006, TRACE_NAME(L"notification to clients only"),                   {Type2(8)}},
    {0x4010, TRACE_NAME(L"dock mode changed"),                              {Type2(11), Do<AdaptiveCoolingRiseEventOfDockModeControlChange>()}},
    {0x4011, TRACE_NAME(L"dock mode changed"),                              {Type2(12), Do<AdaptiveCoolingRiseEventOfDockModeControlChange>()}},
    {0x4012, TRACE_NAME(L"ZORPM_TABLET_OPTION_ATTACHED"),                   {Do<AdaptiveCoolingRiseAttachEventOfTwoInOne>(), Do<SetOptionStatus>(), Type22(3)}},
    {0x4013, TRACE_NAME(L"ZORPM_TABLET_OPTION_DETACHED"),                   {Do<AdaptiveCoolingRiseDetachEventOfTwoInOne>(), Do<SetOptionStatus>(), Type22(4)}},
    {0x5001, TRACE_NAME(L"lid close"),                                      {Type2(5), Do<HandleLidCloseBeep>(), Do<PublishLidClosed>()}},
    {0x5002, TRACE_NAME(L"lid open"),                                       {Type2(6), Do<SetLidBeep>(0), Do<PublishLidOpen>()}},
    {0x5007, TRACE_NAME(L"Calder LCD closed"),                              {Do<HandleCalderLcdCloseOpen>(0)}},
    {0x5008, TRACE_NAME(L"Calder LCD opened"),                              {Do<HandleCalderLcdCloseOpen>(1)}},
    {0x5009, TRACE_NAME(L"ZORPM_TABLET_MODE"),                              {Type2(28), Do<TabletScreenRotationFunctionality>()}},
    {0x500A, TRACE_NAME(L"ZORPM_NOTEBOOK_MODE"),                            {Type2(29), Do<NotebookScreenRotationFunctionality>()}},
    {0x500B, TRACE_NAME(L"notification to clients only"),                   {Type2(2)}},
    {0x500C, TRACE_NAME(L"notification to clients only"),                   {Type2(3)}},
    {0x500D, TRACE_NAME(L"ZORPM_PEN_LOSE"),                                 {Type2(15)}},
    {0x5010, TRACE_NAME(L"panel wants its PWM frequency"),                  {Do<ChangePWMFrequency>()}},
    {0x5012, TRACE_NAME(L"ZORPM_EVENT_LAYFLAT_STATE_CHANGE"),               {Type22(2)}},
    {0x5020, TRACE_NAME(L"ZORPM_EVENT_DOG_EAR_CHANGED"),                    {Type22(1)}},
    {0x5030, TRACE_NAME(L"notification to clients only"),                   {Type2(10)}},
    {0x6000, TRACE_NAME(L"ZORPM_NUMLOCK_STATE_CHANGED"),                    {Type2(13)}},
    {0x6001, TRACE_NAME(L"ZORPM_KEYBOARD_LIGHT_DEVICE_STATE_CHANGED"),      {Type2(23)}},
    {0x6005, TRACE_NAME(L"ZORPM_FNSTICKY_STATE_CHANGED"),                   {Type2(14)}},
    {0x6011, TRACE_NAME(L"nothing to do"),                                  {}},
    {0x6012, TRACE_NAME(L"forced sleep"),                                   {Do<ForceSuspendSystem>()}},
    {0x6020, TRACE_NAME(L"ZORPM_ROTATIONLOCK_BUTTON_PRESSED"),              {Type2(31)}},
    {0x6022, TRACE_NAME(L"forced sleep"),                                   {Do<ForceSuspendSystem>()}},
    {0x6030, TRACE_NAME(L"notification to clients only"),                   {Type2(9)}},
    {0x6031, TRACE_NAME(L"ZORPM_EVENT_THERMAL_DISCRETE_GPU_TEMPATURE_CHANGED"), {Type22(7), Do<AdaptiveCoolingRiseEventOfDynamicCpuControl>()}},
    {0x6032, TRACE_NAME(L"ZORPM_DYNAMIC_THERMAL_CONTROL_SET_COMMAND_COMPLIETION"), {Type22(8)}},
    {0x6040, TRACE_NAME(L"ZORPM_ACADPTER_RAW_STATE_CHANGED"),               {Type2(16)}},
    {0x6050, TRACE_NAME(L"ZORPM_BRIGHTNESS_CHANGED"),                       {Type2(17)}},
    {0x6060, TRACE_NAME(L"ZORPM_MEDIAKEY_CHANGED"),                         {Type2(18)}},
    {0x6070, TRACE_NAME(L"ZORPM_INTELLIGENT_SLEEP_STATE_WAKES_FROM_S3_TO_S4"), {Type2(19)}},
    {0x6080, TRACE_NAME(L"ZORPM_INTELLIGENT_SLEEP_STATE_WAKES_FROM_S4_TO_S3"), {Type2(20)}},
    {0x6090, TRACE_NAME(L"ZORPM_SHOCK_SHIELD_BUTTON_CANGED"),               {Type2(22)}},
    {0x60A0, TRACE_NAME(L"ZORPM_TOUCHPAD_DEVICE_STATE_CANGED"),             {Type2(25)}},
    {0x60B0, TRACE_NAME(L"ZORPM_PSENSOR_DETECTED"),                         {Type2(26)}},
    {0x60B1, TRACE_NAME(L"ZORPM_PSENSOR_UNDETECTED"),                       {Type2(27)}},
    {0x60C0, TRACE_NAME(L"ZORPM_DEVICE_TRANSFORMATION_CHANGED"),            {Type2(30), Do<SystemTransformationEventActionChangeTransformation>(), Do<AdaptiveCoolingRiseEventOfPivoModeChange>()}},
    {0x60D0, TRACE_NAME(L"ZORPM_EVENT__INSTANT_ON_SETTINGS"),               {Type2(24)}},
    {0x60E0, TRACE_NAME(L"HK_KEYBORAD_LIGHT_CONTROL_MODE_CHANGED"),         {Type22(5)}},
    {0x60F0, TRACE_NAME(L"ZORPM_EVENT_THERMAL_TRANSFORMATION_CHANGED"),     {Type22(6), Do<AdaptiveCoolingRiseEventOfCoolQuietHingeAngle>()}},
    {0x7000, TRACE_NAME(L"notification to clients only"),                   {Type2(1)}},
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

OPERATION(DWORD, DispatchHotKey, (const HardwareEvent& event), event) {
    HandleHolder device(OpenDevice(PRIMARY_DEVICE, FULL_ACCESS, FULL_SHARE));
    if (!device.Valid()) {
        Trace(L"DispatchHotKey(): Error: primary device not opened. (%lu)\n", GetLastError());
        return 1;
    }
    const EventFields fields = DeriveFields(event.code);
    const bool classic = fields.page == PH_PAGE_CLASSIC;
    if (classic)
        NotifyPHHotKey(fields.page, fields.key_mask);
    if (event.second != 0) {
        Trace(L"DispatchHotKey(): 0x%lx carries 0x%lx, clients only\n", event.code, event.second);
        return 0;
    }
    if (classic && IsPHHotKeyOverridden(fields.key_mask)) {
        Trace(L"DispatchHotKey(): 0x%lx is taken over by a client\n", event.code);
        return 0;
    }
    if (FirmwareHasPHPages(device.handle) && (fields.page == PH_PAGE_2 || fields.page == PH_PAGE_3)) {
        // No built-in action is behind these.
        Trace(L"DispatchHotKey(): 0x%lx is a hot key of an extended page, clients only\n", event.code);
        NotifyPHHotKey(fields.page, fields.key_mask);
        return 0;
    }
    return RunAction(fields);
}
