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

static const EventRow g_eventTable[] = {
#define EVENT_ROW(code, name, ...) {code, TRACE_NAME(L"" name), {__VA_ARGS__}},
#include "events/event_rows.h"
#undef EVENT_ROW
};

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
