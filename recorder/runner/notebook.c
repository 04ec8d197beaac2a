/* The notebook's drivers and devices for the runner, as a kernel driver that Wine loads: the firmware's answers are
 * primed by who sends the request, where they change; events are queued and told here. Wine hands over one request at a time, so
 * nothing is locked. A missing device has no link: it cannot be opened then, as on Windows. */
#include <ntifs.h>

#include "recorder/runner/notebook.h"

#define GETEVENT         NOTEBOOK_CODE(0x902)
#define REGISTEREVENTS   NOTEBOOK_CODE(0x9F5)
#define UNREGISTEREVENTS NOTEBOOK_CODE(0x9F6)

#define DRIVER_EVENTS 5
#define NOTIFY_EVENT  4

#define ROOT_LINK(name, guid) L"\\DosDevices\\ROOT#" name L"#0000#{" guid L"}"

static struct {
    const WCHAR *name;
    const WCHAR *link;
    int present;
} devices[NOTEBOOK_DEVICES] = {
    {L"\\Device\\ZorpSlate", ROOT_LINK(L"ZORPSLATE", L"317fc439-3f77-41c8-b09e-08ad63272aa3"), 0},
    {L"\\Device\\ZorpDock", ROOT_LINK(L"ZORPDOCK", L"a84e689b-0dce-493a-a164-acde05478fc3"), 0},
    {L"\\Device\\ZorpButton", ROOT_LINK(L"ZORPBUTTON", L"30ebfbf8-df5f-4d4d-9fc5-a26c7fd1df4a"), 0},
    {L"\\Device\\ZORPmDrv", L"\\DosDevices\\ZORPmDrv", 0},
    {L"\\Device\\PMDRVS", L"\\DosDevices\\PMDRVS", 0},
    {L"\\Device\\sx4track", L"\\DosDevices\\sx4track", 0},
};

#define CONTROL NOTEBOOK_DEVICES /* the number of the control device */

static struct {
    ULONG state;
    ULONG failures[2]; /* of reads, of writes */
} interfaces[3];

#define MOST_EVENTS 4096
static struct {
    ULONG code;
    ULONG second;
} queue[MOST_EVENTS];
static ULONG queued;
static HANDLE events[DRIVER_EVENTS];
static ULONG openings;
#define MOST_CODES 64
static struct answer {
    ULONG code; /* 0: none */
    ULONG fails;
    ULONG bytes;
    ULONG value;
} answers[MOST_CODES];

static NTSTATUS finish(IRP *irp, NTSTATUS status, ULONG bytes)
{
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = bytes;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

static ULONG number_of(DEVICE_OBJECT *device)
{
    return *(ULONG *)device->DeviceExtension;
}

static NTSTATUS WINAPI open(DEVICE_OBJECT *device, IRP *irp)
{
    openings += number_of(device) != CONTROL;
    return finish(irp, STATUS_SUCCESS, 0);
}

static NTSTATUS WINAPI close(DEVICE_OBJECT *device, IRP *irp)
{
    openings -= number_of(device) != CONTROL;
    return finish(irp, STATUS_SUCCESS, 0);
}

/* ---- events ---- */

static void tell_service(void)
{
    if (events[NOTIFY_EVENT] == NULL)
        return;
    if (queued != 0)
        ZwSetEvent(events[NOTIFY_EVENT], NULL);
    else
        ZwClearEvent(events[NOTIFY_EVENT]);
}

static void forget_registration(void)
{
    ULONG i;
    for (i = 0; i < DRIVER_EVENTS; ++i) {
        if (events[i] != NULL)
            ZwClose(events[i]);
        events[i] = NULL;
    }
}

/* Eight bytes of 0, then the handles of the process that asks. */
static void take_registration(const ULONGLONG *record)
{
    OBJECT_ATTRIBUTES attributes;
    CLIENT_ID client = {PsGetCurrentProcessId(), NULL};
    HANDLE process;
    ULONG i;
    forget_registration();
    InitializeObjectAttributes(&attributes, NULL, 0, NULL, NULL);
    if (ZwOpenProcess(&process, PROCESS_DUP_HANDLE, &attributes, &client) != STATUS_SUCCESS)
        return;
    for (i = 0; i < DRIVER_EVENTS; ++i) {
        if (record[i + 1] != 0 && ZwDuplicateObject(process, (HANDLE)record[i + 1], ZwCurrentProcess(), &events[i], 0,
                                                    0, DUPLICATE_SAME_ACCESS) != STATUS_SUCCESS)
            events[i] = NULL;
    }
    ZwClose(process);
    tell_service();
}

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

/* ---- what the runner asks ---- */

static void set_present(ULONG number, int present)
{
    UNICODE_STRING link, name;
    RtlInitUnicodeString(&link, devices[number].link);
    RtlInitUnicodeString(&name, devices[number].name);
    if (present && !devices[number].present)
        IoCreateSymbolicLink(&link, &name);
    if (!present && devices[number].present)
        IoDeleteSymbolicLink(&link);
    devices[number].present = present;
}

static void reset(void)
{
    ULONG i;
    forget_registration();
    queued = openings = 0;
    for (i = 0; i < MOST_CODES; ++i)
        answers[i].code = 0;
    for (i = 0; i < 3; ++i)
        interfaces[i].state = interfaces[i].failures[0] = interfaces[i].failures[1] = 0;
    interfaces[NOTEBOOK_SLATE].state = 1;
    for (i = 0; i < NOTEBOOK_DEVICES; ++i)
        set_present(i, 1);
}

static ULONG signal_event(ULONG number)
{
    if (number >= DRIVER_EVENTS || events[number] == NULL)
        return 0;
    ZwSetEvent(events[number], NULL);
    return 1;
}

/* Its place, or the first free one. */
static struct answer *answer_to(ULONG code)
{
    ULONG i;
    for (i = 0; i < MOST_CODES - 1; ++i) {
        if (answers[i].code == code || answers[i].code == 0)
            break;
    }
    return &answers[i];
}

/* Four words in, one out. */
static NTSTATUS answer_runner(ULONG code, ULONG *words)
{
    const ULONG first = words[0];
    struct answer *primed;
    if ((code == NOTEBOOK_SET_STATE || code == NOTEBOOK_STATE || code == NOTEBOOK_FAILURES) && first > NOTEBOOK_BUTTON)
        return STATUS_INVALID_PARAMETER;
    switch (code) {
    case NOTEBOOK_RESET: reset(); break;
    case NOTEBOOK_PRIME:
        primed = answer_to(words[3]);
        primed->code = words[3];
        primed->fails = first;
        primed->bytes = words[1];
        primed->value = words[2];
        break;
    case NOTEBOOK_EVENT:
        if (queued == MOST_EVENTS)
            return STATUS_INSUFFICIENT_RESOURCES;
        queue[queued].code = first;
        queue[queued++].second = words[1];
        tell_service();
        break;
    case NOTEBOOK_SIGNAL: words[0] = signal_event(first); break;
    case NOTEBOOK_SET_STATE: interfaces[first].state = words[1]; break;
    case NOTEBOOK_STATE: words[0] = interfaces[first].state; break;
    case NOTEBOOK_FAILURES: interfaces[first].failures[words[1] & 1] = words[2]; break;
    case NOTEBOOK_PRESENT:
        if (first >= NOTEBOOK_DEVICES)
            return STATUS_INVALID_PARAMETER;
        set_present(first, words[1] != 0);
        break;
    case NOTEBOOK_HANDLES: words[0] = openings; break;
    default: return STATUS_INVALID_DEVICE_REQUEST;
    }
    return STATUS_SUCCESS;
}

/* ---- what the service asks ---- */

/* The primed answer; the bytes that it is said to have. */
static ULONG answer_request(const struct answer *primed, ULONG *words, ULONG out)
{
    const ULONG bytes = primed->bytes;
    ULONG i;
    if (primed->code == GETEVENT && out == 2 * sizeof *words) {
        const ULONG fetched = fetch_event(words);
        return bytes == NOTEBOOK_ALL_BYTES ? fetched : bytes;
    }
    for (i = 0; i < out / sizeof *words; ++i)
        words[i] = i == 0 ? primed->value : 0;
    return bytes == NOTEBOOK_ALL_BYTES ? out : bytes;
}

static NTSTATUS WINAPI control(DEVICE_OBJECT *device, IRP *irp)
{
    const IO_STACK_LOCATION *stack = IoGetCurrentIrpStackLocation(irp);
    const ULONG in = stack->Parameters.DeviceIoControl.InputBufferLength;
    const ULONG out = stack->Parameters.DeviceIoControl.OutputBufferLength;
    const ULONG code = stack->Parameters.DeviceIoControl.IoControlCode;
    ULONG *words = irp->AssociatedIrp.SystemBuffer;
    const struct answer *primed;
    if (number_of(device) == CONTROL) {
        const NTSTATUS status =
            in == 4 * sizeof *words && out == sizeof *words ? answer_runner(code, words) : STATUS_INVALID_PARAMETER;
        return finish(irp, status, status == STATUS_SUCCESS ? sizeof *words : 0);
    }
    primed = answer_to(code);
    if (primed->fails)
        return finish(irp, STATUS_UNSUCCESSFUL, 0);
    if (code == REGISTEREVENTS && in == 6 * sizeof(ULONGLONG))
        take_registration(irp->AssociatedIrp.SystemBuffer);
    if (code == UNREGISTEREVENTS)
        forget_registration();
    return finish(irp, STATUS_SUCCESS, answer_request(primed, words, out));
}

static int fails(ULONG *failures)
{
    if (*failures == 0)
        return 0;
    if (*failures != NOTEBOOK_ALL_BYTES)
        --*failures;
    return 1;
}

static NTSTATUS WINAPI read(DEVICE_OBJECT *device, IRP *irp)
{
    const ULONG number = number_of(device);
    if (number >= NOTEBOOK_BUTTON || fails(&interfaces[number].failures[0]))
        return finish(irp, STATUS_UNSUCCESSFUL, 0);
    *(UCHAR *)irp->AssociatedIrp.SystemBuffer = (UCHAR)interfaces[number].state;
    return finish(irp, STATUS_SUCCESS, 1);
}

/* An indicator changes to its other state, whatever the byte. */
static NTSTATUS WINAPI write(DEVICE_OBJECT *device, IRP *irp)
{
    const ULONG number = number_of(device);
    if (number > NOTEBOOK_BUTTON || fails(&interfaces[number].failures[1]))
        return finish(irp, STATUS_UNSUCCESSFUL, 0);
    if (interfaces[number].state <= 1)
        interfaces[number].state ^= 1;
    return finish(irp, STATUS_SUCCESS, 1);
}

static NTSTATUS make_device(DRIVER_OBJECT *driver, const WCHAR *name, ULONG number)
{
    UNICODE_STRING device_name;
    DEVICE_OBJECT *device;
    NTSTATUS status;
    RtlInitUnicodeString(&device_name, name);
    status = IoCreateDevice(driver, sizeof(ULONG), &device_name, 0x22, 0, FALSE, &device);
    if (status != STATUS_SUCCESS)
        return status;
    *(ULONG *)device->DeviceExtension = number;
    device->Flags |= DO_BUFFERED_IO;
    device->Flags &= ~DO_DEVICE_INITIALIZING;
    return STATUS_SUCCESS;
}

NTSTATUS WINAPI DriverEntry(DRIVER_OBJECT *driver, UNICODE_STRING *path)
{
    UNICODE_STRING link, name;
    NTSTATUS status;
    ULONG i;
    (void)path;
    driver->MajorFunction[IRP_MJ_CREATE] = open;
    driver->MajorFunction[IRP_MJ_CLOSE] = close;
    driver->MajorFunction[IRP_MJ_READ] = read;
    driver->MajorFunction[IRP_MJ_WRITE] = write;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = control;
    status = make_device(driver, L"\\Device\\ZORPNotebook", CONTROL);
    for (i = 0; i < NOTEBOOK_DEVICES && status == STATUS_SUCCESS; ++i)
        status = make_device(driver, devices[i].name, i);
    reset();
    RtlInitUnicodeString(&link, L"\\DosDevices\\ZORPNotebook");
    RtlInitUnicodeString(&name, L"\\Device\\ZORPNotebook");
    return status == STATUS_SUCCESS ? IoCreateSymbolicLink(&link, &name) : status;
}
