/* A stand-in for the drivers and devices of the notebook, which Wine loads as it would a real one: what it answers, what
 * is there and what fails is told through its control device (stand_in.h), which also tells what came. Wine hands over
 * one request at a time, so nothing is locked. */
#include <ntifs.h>

#include "stand_in.h"

#define COUNT(array) (sizeof(array) / sizeof *(array))

#define GETEVENT         0x222408u
#define REGISTEREVENTS   0x2227D4u
#define UNREGISTEREVENTS 0x2227D8u
#define GETLIDSTATUS     0x222584u
#define LCDCSGETSTATE    0x222590u

#define DRIVER_EVENTS 5
#define NOTIFY_EVENT  4

/* ---- the devices ---- */

#define CONTROL_DEVICE STAND_IN_DEVICES

#define SLATE_CLASS  L"{317fc439-3f77-41c8-b09e-08ad63272aa3}"
#define DOCK_CLASS   L"{a84e689b-0dce-493a-a164-acde05478fc3}"
#define BUTTON_CLASS L"{30ebfbf8-df5f-4d4d-9fc5-a26c7fd1df4a}"

#define INTERFACE_LINK(instance, class) L"\\DosDevices\\ROOT#" instance L"#" class
/* Where SetupAPI looks whether an interface is there. */
#define INTERFACE_KEY(instance, class)                                                                       \
    L"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\DeviceClasses\\" class L"\\##?#ROOT#" instance L"#" \
        class L"\\#\\Control"
#define INTERFACE_ROW(name, instance, class, first)                                                          \
    {L"\\Device\\" name, INTERFACE_LINK(instance, class), INTERFACE_KEY(instance, class), first, -1}

static struct {
    const WCHAR *name;
    const WCHAR *link;
    const WCHAR *key;
    int at_first; /* present on a new machine */
    int present;  /* -1: not known */
} devices[STAND_IN_DEVICES + 1] = {
    [STAND_IN_SLATE] = INTERFACE_ROW(L"ZorpSlate", L"ZORPSLATE#0000", SLATE_CLASS, 1),
    [STAND_IN_DOCK] = INTERFACE_ROW(L"ZorpDock", L"ZORPDOCK#0000", DOCK_CLASS, 1),
    [STAND_IN_BUTTON] = INTERFACE_ROW(L"ZorpButton", L"ZORPBUTTON#0000", BUTTON_CLASS, 1),
    [STAND_IN_SLATE_2] = INTERFACE_ROW(L"ZorpSlate2", L"ZORPSLATE#0001", SLATE_CLASS, 0),
    [STAND_IN_DOCK_2] = INTERFACE_ROW(L"ZorpDock2", L"ZORPDOCK#0001", DOCK_CLASS, 0),
    [STAND_IN_BUTTON_2] = INTERFACE_ROW(L"ZorpButton2", L"ZORPBUTTON#0001", BUTTON_CLASS, 0),
    [STAND_IN_PRIMARY] = {L"\\Device\\ZORPmDrv", L"\\DosDevices\\ZORPmDrv", NULL, 1, -1},
    [STAND_IN_SECONDARY] = {L"\\Device\\PMDRVS", L"\\DosDevices\\PMDRVS", NULL, 1, -1},
    [STAND_IN_STICK] = {L"\\Device\\sx4track", L"\\DosDevices\\sx4track", NULL, 1, -1},
    [CONTROL_DEVICE] = {L"\\Device\\ZORPStandIn", L"\\DosDevices\\ZORPStandIn", NULL, 1, -1},
};

/* Of the interfaces: the indicators' bytes, and how many reads and writes fail from now on. */
static ULONG states[2 * STAND_IN_INTERFACES];
static ULONG failures[STAND_IN_INTERFACES][2];

static ULONG openings;

static ULONG number_of(DEVICE_OBJECT *device)
{
    return *(ULONG *)device->DeviceExtension;
}

/* Without the key nothing is there to be listed. */
static void set_listed(const WCHAR *path, ULONG listed)
{
    UNICODE_STRING key_path, value;
    OBJECT_ATTRIBUTES attributes;
    HANDLE key;
    RtlInitUnicodeString(&key_path, path);
    RtlInitUnicodeString(&value, L"Linked");
    InitializeObjectAttributes(&attributes, &key_path, OBJ_CASE_INSENSITIVE, NULL, NULL);
    if (ZwOpenKey(&key, KEY_SET_VALUE, &attributes) != STATUS_SUCCESS)
        return;
    ZwSetValueKey(key, &value, 0, REG_DWORD, &listed, sizeof listed);
    ZwClose(key);
}

static void set_present(ULONG number, int present)
{
    UNICODE_STRING link, name;
    RtlInitUnicodeString(&link, devices[number].link);
    RtlInitUnicodeString(&name, devices[number].name);
    if (present && devices[number].present != 1)
        IoCreateSymbolicLink(&link, &name);
    if (!present && devices[number].present == 1)
        IoDeleteSymbolicLink(&link);
    devices[number].present = present;
    if (devices[number].key != NULL)
        set_listed(devices[number].key, (ULONG)present);
}

/* ---- handles of other processes ---- */

static void close_event(HANDLE *event)
{
    if (*event != NULL)
        ZwClose(*event);
    *event = NULL;
}

static HANDLE take_event(ULONG process_id, ULONGLONG handle)
{
    OBJECT_ATTRIBUTES attributes;
    CLIENT_ID client = {(HANDLE)(ULONG_PTR)process_id, NULL};
    HANDLE process, event = NULL;
    InitializeObjectAttributes(&attributes, NULL, 0, NULL, NULL);
    if (handle == 0 || ZwOpenProcess(&process, PROCESS_DUP_HANDLE, &attributes, &client) != STATUS_SUCCESS)
        return NULL;
    if (ZwDuplicateObject(process, (HANDLE)handle, ZwCurrentProcess(), &event, 0, 0, DUPLICATE_SAME_ACCESS) !=
        STATUS_SUCCESS)
        event = NULL;
    ZwClose(process);
    return event;
}

static ULONG asking_process(void)
{
    return (ULONG)(ULONG_PTR)PsGetCurrentProcessId();
}

/* ---- the log ---- */

static struct StandInRow rows[STAND_IN_ROWS]; /* row N at N % STAND_IN_ROWS */
static ULONG logged;
static HANDLE watcher; /* the test's event */

static void tell_watcher(void)
{
    if (watcher != NULL)
        ZwSetEvent(watcher, NULL);
}

/* A new row, to be filled. */
static struct StandInRow *log_row(ULONG kind, ULONG device, ULONG process)
{
    struct StandInRow *row = &rows[++logged % STAND_IN_ROWS];
    RtlZeroMemory(row, sizeof *row);
    row->number = logged;
    row->kind = kind;
    row->device = device;
    row->process = process;
    tell_watcher();
    return row;
}

static ULONG copy_log(ULONG from, struct StandInRow *out, ULONG room)
{
    const ULONG oldest = logged > STAND_IN_ROWS ? logged - STAND_IN_ROWS + 1 : 1;
    ULONG count = 0, number;
    for (number = from > oldest ? from : oldest; number <= logged && count < room; ++number)
        out[count++] = rows[number % STAND_IN_ROWS];
    return count * sizeof *out;
}

/* ---- answers ---- */

static const struct {
    ULONG code;
    ULONG device;
    ULONG in_bytes;
    ULONG out_bytes;
} methods[] = {
#define METHOD_ROW(name, code, device, in, out) {code, device, in, out},
    STAND_IN_METHODS(METHOD_ROW)
};

/* What a new machine answers other than 0. */
static const struct {
    ULONG code;
    ULONG value;
} defaults[] = {
    {0x222434, 0x200},  /* MHKV */
    {0x222448, 3},      /* CSTATESELECT */
    {0x222584, 3},      /* GETLIDSTATUS */
    {0x222590, 2},      /* LCDCSGETSTATE */
    {0x222700, 1},      /* GMMS */
    {0x222450, 156250}, /* GETTIMERRESOL */
};

static struct StandInAnswer answers[1024]; /* in the order told; times 0: lasting */
static ULONG answered;
static struct StandInTakes durations[128];
static ULONG timed;

static int same_which(const struct StandInWhich *one, const struct StandInWhich *other)
{
    return one->code == other->code && one->every == other->every && (one->every || one->argument == other->argument);
}

static NTSTATUS add_answer(const struct StandInAnswer *told)
{
    const int lasting = told->times == 0 && told->which.code != GETEVENT;
    ULONG i = answered;
    if (lasting)
        for (i = 0; i < answered && !(answers[i].times == 0 && same_which(&answers[i].which, &told->which)); ++i)
            ;
    if (i == COUNT(answers))
        return STATUS_INSUFFICIENT_RESOURCES;
    answers[i] = *told;
    answers[i].which.every = told->which.every != 0;
    answers[i].times += !lasting && told->times == 0; /* of an event: the next fetch */
    answered += i == answered;
    return STATUS_SUCCESS;
}

/* Uses up a numbered answer. */
static int take_answer(const struct StandInWhich *which, struct StandInAnswer *taken)
{
    ULONG i, found = answered;
    for (i = 0; i < answered; ++i) {
        if (same_which(&answers[i].which, which) && (found == answered || answers[found].times == 0)) {
            found = i; /* a numbered one comes before the lasting one, wherever that stands */
            if (answers[i].times != 0)
                break;
        }
    }
    if (found == answered)
        return 0;
    *taken = answers[found];
    if (answers[found].times != 0 && --answers[found].times == 0) {
        --answered;
        for (i = found; i < answered; ++i)
            answers[i] = answers[i + 1];
    }
    return 1;
}

static struct StandInAnswer answer_to(ULONG code, ULONG argument)
{
    const struct StandInWhich one = {code, 0, argument}, every = {code, 1, 0};
    struct StandInAnswer answer = {{0, 0, 0}, 0, 0, STAND_IN_ALL, 0};
    ULONG i;
    for (i = 0; i < COUNT(defaults); ++i)
        if (defaults[i].code == code)
            answer.value = defaults[i].value;
    if (!take_answer(&one, &answer))
        take_answer(&every, &answer);
    return answer;
}

static NTSTATUS set_durations(const struct StandInTakes *told)
{
    ULONG i;
    if (told->count > STAND_IN_DURATIONS)
        return STATUS_INVALID_PARAMETER;
    for (i = 0; i < timed && !same_which(&durations[i].which, &told->which); ++i)
        ;
    if (i == COUNT(durations))
        return STATUS_INSUFFICIENT_RESOURCES;
    durations[i] = *told;
    durations[i].which.every = told->which.every != 0;
    timed += i == timed;
    return STATUS_SUCCESS;
}

static ULONG next_duration(struct StandInTakes *takes)
{
    const ULONG chosen = takes->milliseconds[0];
    ULONG i;
    if (takes->count > 1) {
        --takes->count;
        for (i = 0; i < takes->count; ++i)
            takes->milliseconds[i] = takes->milliseconds[i + 1];
    }
    return chosen;
}

/* Durations of the argument first, unless they say that it takes no time, then those of all. */
static ULONG duration_of(ULONG code, ULONG argument)
{
    const struct StandInWhich of[] = {{code, 0, argument}, {code, 1, 0}};
    ULONG i, j;
    for (j = 0; j < COUNT(of); ++j)
        for (i = 0; i < timed; ++i)
            if (same_which(&durations[i].which, &of[j]) && durations[i].count != 0 &&
                (durations[i].count > 1 || durations[i].milliseconds[0] != 0))
                return next_duration(&durations[i]);
    return 0;
}

/* ---- events ---- */

static struct {
    ULONG code;
    ULONG second;
} queue[1024]; /* oldest first */
static ULONG queued;
static HANDLE driver_events[DRIVER_EVENTS]; /* of the service */

static void tell_service(void)
{
    if (driver_events[NOTIFY_EVENT] == NULL)
        return;
    if (queued != 0)
        ZwSetEvent(driver_events[NOTIFY_EVENT], NULL);
    else
        ZwClearEvent(driver_events[NOTIFY_EVENT]);
}

static void forget_registration(void)
{
    ULONG i;
    for (i = 0; i < DRIVER_EVENTS; ++i)
        close_event(&driver_events[i]);
}

/* Eight bytes of 0, then the handles of the process that asks. */
static void take_registration(ULONG process, const ULONGLONG *record)
{
    ULONG i;
    forget_registration();
    for (i = 0; i < DRIVER_EVENTS; ++i)
        driver_events[i] = take_event(process, record[i + 1]);
    tell_service();
}

static NTSTATUS post_event(ULONG code, ULONG second)
{
    if (queued == COUNT(queue))
        return STATUS_INSUFFICIENT_RESOURCES;
    queue[queued].code = code;
    queue[queued++].second = second;
    tell_service();
    return STATUS_SUCCESS;
}

/* The bytes of the oldest event, 0 without one. */
static ULONG fetch_event(ULONG *words)
{
    ULONG i;
    words[0] = words[1] = 0;
    if (queued == 0)
        return 0;
    words[0] = queue[0].code;
    words[1] = queue[0].second;
    --queued;
    for (i = 0; i < queued; ++i)
        queue[i] = queue[i + 1];
    tell_service();
    return 2 * sizeof *words;
}

static ULONG signal_event(ULONG number)
{
    if (number >= DRIVER_EVENTS || driver_events[number] == NULL)
        return 0;
    ZwSetEvent(driver_events[number], NULL);
    return 1;
}

/* ---- what the service asks ---- */

static NTSTATUS finish(IRP *irp, NTSTATUS status, ULONG bytes)
{
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = bytes;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

/* A driver that claims more than the buffer holds has still written no more than that. */
static ULONG fill_output(ULONG code, ULONG out, const struct StandInAnswer *answer, ULONG *words)
{
    ULONG bytes = out, i;
    if (code == GETEVENT) {
        bytes = fetch_event(words);
    } else {
        for (i = 0; i < out / sizeof *words; ++i)
            words[i] = i == 0 ? answer->value : 0;
    }
    return answer->bytes != STAND_IN_ALL ? answer->bytes : bytes;
}

static NTSTATUS answer_request(IRP *irp, ULONG device, ULONG process)
{
    const IO_STACK_LOCATION *stack = IoGetCurrentIrpStackLocation(irp);
    const ULONG in = stack->Parameters.DeviceIoControl.InputBufferLength;
    const ULONG out = stack->Parameters.DeviceIoControl.OutputBufferLength;
    const ULONG code = stack->Parameters.DeviceIoControl.IoControlCode;
    ULONG *words = irp->AssociatedIrp.SystemBuffer;
    const struct StandInAnswer answer = answer_to(code, in != 0 ? words[0] : 0);
    struct StandInRow *row = log_row(STAND_IN_ROW_REQUEST, device, process);
    ULONG i;
    row->code = code;
    row->in_bytes = in;
    for (i = 0; i < COUNT(row->in) && i < in / sizeof *words; ++i)
        row->in[i] = words[i];
    row->failed = answer.fails != 0;
    if (answer.fails)
        return finish(irp, STATUS_UNSUCCESSFUL, 0);
    if (code == REGISTEREVENTS)
        take_registration(process, irp->AssociatedIrp.SystemBuffer);
    if (code == UNREGISTEREVENTS)
        forget_registration();
    row->bytes = fill_output(code, out, &answer, words);
    for (i = 0; i < COUNT(row->out) && i < out / sizeof *words; ++i)
        row->out[i] = words[i];
    return finish(irp, STATUS_SUCCESS, row->bytes);
}

/* ---- requests that take time ---- */

static struct {
    IRP *irp;
    ULONG device;
    struct StandInHeld as_told;
} held[64]; /* oldest first */
static ULONG holding;
static ULONG last_held;

static IRP *take_out(ULONG at)
{
    IRP *irp = held[at].irp;
    --holding;
    for (; at < holding; ++at)
        held[at] = held[at + 1];
    IoSetCancelRoutine(irp, NULL);
    return irp;
}

/* Who asked has gone. */
static void WINAPI cancel_held(DEVICE_OBJECT *device, IRP *irp)
{
    ULONG i;
    (void)device;
    IoReleaseCancelSpinLock(irp->CancelIrql);
    for (i = 0; i < holding && held[i].irp != irp; ++i)
        ;
    if (i < holding)
        finish(take_out(i), STATUS_CANCELLED, 0);
}

static NTSTATUS hold_request(IRP *irp, ULONG device, ULONG code, ULONG argument, ULONG milliseconds)
{
    const struct StandInHeld told = {++last_held, code, argument, milliseconds, asking_process()};
    IoMarkIrpPending(irp);
    held[holding].irp = irp;
    held[holding].device = device;
    held[holding++].as_told = told;
    IoSetCancelRoutine(irp, cancel_held);
    tell_watcher();
    return STATUS_PENDING;
}

static NTSTATUS release_held(ULONG number)
{
    ULONG i, device, process;
    for (i = 0; i < holding && held[i].as_told.number != number; ++i)
        ;
    if (i == holding)
        return STATUS_NOT_FOUND;
    device = held[i].device;
    process = held[i].as_told.process;
    answer_request(take_out(i), device, process);
    return STATUS_SUCCESS;
}

static ULONG copy_held(struct StandInHeld *out, ULONG room)
{
    ULONG i;
    for (i = 0; i < holding && i < room; ++i)
        out[i] = held[i].as_told;
    return i * sizeof *out;
}

/* ---- what the test asks ---- */

static void reset(void)
{
    ULONG i;
    while (holding != 0)
        finish(take_out(0), STATUS_CANCELLED, 0);
    forget_registration();
    close_event(&watcher);
    queued = openings = answered = timed = logged = last_held = 0;
    RtlZeroMemory(states, sizeof states);
    RtlZeroMemory(failures, sizeof failures);
    states[STAND_IN_SLATE] = 1;
    for (i = 0; i < STAND_IN_DEVICES; ++i)
        set_present(i, devices[i].at_first);
}

static NTSTATUS set_failures(const struct StandInFailures *told)
{
    if (told->interface_number >= STAND_IN_INTERFACES)
        return STATUS_INVALID_PARAMETER;
    failures[told->interface_number][told->writes != 0] = told->times;
    return STATUS_SUCCESS;
}

static NTSTATUS watch(const ULONGLONG *event)
{
    close_event(&watcher);
    watcher = take_event(asking_process(), *event);
    return watcher != NULL || *event == 0 ? STATUS_SUCCESS : STATUS_INVALID_HANDLE;
}

/* Bytes in and out (0: one record or more) of each request. */
static const struct {
    ULONG code;
    ULONG in_bytes;
    ULONG out_bytes;
    ULONG record_bytes; /* of an answer of many records */
    ULONG bound;        /* of the first word, which is a device; 0: it is none */
} asked[] = {
    {STAND_IN_RESET, 0, 0, 0, 0},
    {STAND_IN_ANSWER, sizeof(struct StandInAnswer), 0, 0, 0},
    {STAND_IN_EVENT, 2 * sizeof(ULONG), 0, 0, 0},
    {STAND_IN_LOG, sizeof(ULONG), 0, sizeof(struct StandInRow), 0},
    {STAND_IN_TAKES, sizeof(struct StandInTakes), 0, 0, 0},
    {STAND_IN_HELD, 0, 0, sizeof(struct StandInHeld), 0},
    {STAND_IN_RELEASE, sizeof(ULONG), 0, 0, 0},
    {STAND_IN_SIGNAL, sizeof(ULONG), sizeof(ULONG), 0, 0},
    {STAND_IN_PRESENT, 2 * sizeof(ULONG), 0, 0, STAND_IN_DEVICES},
    {STAND_IN_STATE, sizeof(ULONG), sizeof(ULONG), 0, 2 * STAND_IN_INTERFACES},
    {STAND_IN_CHANGE, 2 * sizeof(ULONG), 0, 0, 2 * STAND_IN_INTERFACES},
    {STAND_IN_FAILURES, sizeof(struct StandInFailures), 0, 0, 0},
    {STAND_IN_OPENINGS, 0, sizeof(ULONG), 0, 0},
    {STAND_IN_NOTIFY, sizeof(ULONGLONG), 0, 0, 0},
};

static int well_formed(ULONG code, ULONG in, ULONG out, const ULONG *words)
{
    ULONG i;
    for (i = 0; i < COUNT(asked) && asked[i].code != code; ++i)
        ;
    return i < COUNT(asked) && in == asked[i].in_bytes &&
           (asked[i].record_bytes != 0 ? out >= asked[i].record_bytes : out == asked[i].out_bytes) &&
           (asked[i].bound == 0 || words[0] < asked[i].bound);
}

/* The request's records are where its answer goes. */
static NTSTATUS answer_test(ULONG code, void *buffer, ULONG out, ULONG *bytes)
{
    ULONG *words = buffer;
    const ULONG first = words != NULL ? words[0] : 0;
    *bytes = out;
    switch (code) {
    case STAND_IN_RESET: reset(); break;
    case STAND_IN_ANSWER: return add_answer(buffer);
    case STAND_IN_EVENT: return post_event(first, words[1]);
    case STAND_IN_LOG: *bytes = copy_log(first, buffer, out / sizeof(struct StandInRow)); break;
    case STAND_IN_TAKES: return set_durations(buffer);
    case STAND_IN_HELD: *bytes = copy_held(buffer, out / sizeof(struct StandInHeld)); break;
    case STAND_IN_RELEASE: return release_held(first);
    case STAND_IN_SIGNAL: words[0] = signal_event(first); break;
    case STAND_IN_PRESENT: set_present(first, words[1] != 0); break;
    case STAND_IN_STATE: words[0] = states[first]; break;
    case STAND_IN_CHANGE: states[first] = words[1] & 0xFF; break;
    case STAND_IN_FAILURES: return set_failures(buffer);
    case STAND_IN_OPENINGS: words[0] = openings; break;
    case STAND_IN_NOTIFY: return watch(buffer);
    }
    return STATUS_SUCCESS;
}

/* ---- the driver ---- */

static NTSTATUS refuse(IRP *irp, ULONG device, ULONG code, ULONG in, ULONG out, NTSTATUS status)
{
    struct StandInRow *row = log_row(STAND_IN_ROW_REFUSED, device, asking_process());
    row->code = code;
    row->in[0] = in;
    row->in[1] = out;
    row->failed = 1;
    return finish(irp, status, 0);
}

static NTSTATUS WINAPI control(DEVICE_OBJECT *device, IRP *irp)
{
    const IO_STACK_LOCATION *stack = IoGetCurrentIrpStackLocation(irp);
    const ULONG in = stack->Parameters.DeviceIoControl.InputBufferLength;
    const ULONG out = stack->Parameters.DeviceIoControl.OutputBufferLength;
    const ULONG code = stack->Parameters.DeviceIoControl.IoControlCode;
    const ULONG number = number_of(device);
    ULONG *words = irp->AssociatedIrp.SystemBuffer;
    ULONG i, takes, bytes = 0;
    if (number == CONTROL_DEVICE) {
        const NTSTATUS status = well_formed(code, in, out, words) ? answer_test(code, words, out, &bytes)
                                                                  : STATUS_INVALID_PARAMETER;
        return finish(irp, status, status == STATUS_SUCCESS ? bytes : 0);
    }
    for (i = 0; i < COUNT(methods) && !(methods[i].code == code && methods[i].device == number); ++i)
        ;
    if (i == COUNT(methods))
        return refuse(irp, number, code, in, out, STATUS_INVALID_DEVICE_REQUEST);
    if (out != methods[i].out_bytes ||
        (in != methods[i].in_bytes && !(in == 0 && (code == GETLIDSTATUS || code == LCDCSGETSTATE))))
        return refuse(irp, number, code, in, out, STATUS_INVALID_PARAMETER);
    takes = duration_of(code, in != 0 ? words[0] : 0);
    if (takes != 0 && holding < COUNT(held))
        return hold_request(irp, number, code, in != 0 ? words[0] : 0, takes);
    return answer_request(irp, number, asking_process());
}

static NTSTATUS WINAPI open(DEVICE_OBJECT *device, IRP *irp)
{
    const ULONG number = number_of(device);
    if (number != CONTROL_DEVICE) {
        ++openings;
        log_row(STAND_IN_ROW_OPEN, number, asking_process())->in[0] =
            IoGetCurrentIrpStackLocation(irp)->Parameters.Create.ShareAccess;
    }
    return finish(irp, STATUS_SUCCESS, 0);
}

static NTSTATUS WINAPI close(DEVICE_OBJECT *device, IRP *irp)
{
    const ULONG number = number_of(device);
    if (number != CONTROL_DEVICE) {
        openings -= openings != 0;
        log_row(STAND_IN_ROW_CLOSE, number, asking_process());
    }
    return finish(irp, STATUS_SUCCESS, 0);
}

static int transfer_fails(ULONG number, int writes)
{
    ULONG *count = &failures[number % STAND_IN_INTERFACES][writes];
    if (*count == 0)
        return 0;
    if (*count != STAND_IN_ALL)
        --*count;
    return 1;
}

/* One byte at a time; the button is only written to. */
static NTSTATUS WINAPI read(DEVICE_OBJECT *device, IRP *irp)
{
    const ULONG number = number_of(device);
    const ULONG bytes = IoGetCurrentIrpStackLocation(irp)->Parameters.Read.Length;
    struct StandInRow *row;
    if (number >= 2 * STAND_IN_INTERFACES || number % STAND_IN_INTERFACES == STAND_IN_BUTTON || bytes != 1)
        return refuse(irp, number, 0, 0, bytes, STATUS_INVALID_PARAMETER);
    row = log_row(STAND_IN_ROW_READ, number, asking_process());
    row->failed = transfer_fails(number, 0);
    if (row->failed)
        return finish(irp, STATUS_UNSUCCESSFUL, 0);
    row->out[0] = states[number];
    row->bytes = 1;
    *(UCHAR *)irp->AssociatedIrp.SystemBuffer = (UCHAR)states[number];
    return finish(irp, STATUS_SUCCESS, 1);
}

/* An indicator changes to its other state, whatever the byte. */
static NTSTATUS WINAPI write(DEVICE_OBJECT *device, IRP *irp)
{
    const ULONG number = number_of(device);
    const ULONG bytes = IoGetCurrentIrpStackLocation(irp)->Parameters.Write.Length;
    struct StandInRow *row;
    if (number >= 2 * STAND_IN_INTERFACES || bytes != 1)
        return refuse(irp, number, 0, bytes, 0, STATUS_INVALID_PARAMETER);
    row = log_row(STAND_IN_ROW_WRITE, number, asking_process());
    row->in[0] = *(UCHAR *)irp->AssociatedIrp.SystemBuffer;
    row->in_bytes = 1;
    row->failed = transfer_fails(number, 1);
    if (row->failed)
        return finish(irp, STATUS_UNSUCCESSFUL, 0);
    if (states[number] <= 1)
        states[number] ^= 1;
    return finish(irp, STATUS_SUCCESS, 1);
}

static NTSTATUS make_device(DRIVER_OBJECT *driver, ULONG number)
{
    UNICODE_STRING name;
    DEVICE_OBJECT *device;
    NTSTATUS status;
    RtlInitUnicodeString(&name, devices[number].name);
    status = IoCreateDevice(driver, sizeof(ULONG), &name, 0x22, 0, FALSE, &device);
    if (status != STATUS_SUCCESS)
        return status;
    *(ULONG *)device->DeviceExtension = number;
    device->Flags |= DO_BUFFERED_IO;
    device->Flags &= ~DO_DEVICE_INITIALIZING;
    return STATUS_SUCCESS;
}

NTSTATUS WINAPI DriverEntry(DRIVER_OBJECT *driver, UNICODE_STRING *path)
{
    NTSTATUS status = STATUS_SUCCESS;
    ULONG i;
    (void)path;
    driver->MajorFunction[IRP_MJ_CREATE] = open;
    driver->MajorFunction[IRP_MJ_CLOSE] = close;
    driver->MajorFunction[IRP_MJ_READ] = read;
    driver->MajorFunction[IRP_MJ_WRITE] = write;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = control;
    for (i = 0; i < COUNT(devices) && status == STATUS_SUCCESS; ++i)
        status = make_device(driver, i);
    if (status == STATUS_SUCCESS)
        set_present(CONTROL_DEVICE, 1);
    reset();
    return status;
}
