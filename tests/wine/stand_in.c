/* A stand-in for both drivers of the package: answers every request of the service as a notebook with hot keys, lid
 * inhibit and cooling interface 3 would, and has its indicators and its rotation-lock button (devices.reg). tell_stand_in.cpp posts hardware events, changes answers and asks what the
 * service has sent last. Wine hands over one request at a time, so nothing is locked. */
#include <ntifs.h>

#define CODE(function) ((0x22u << 16) | ((function) << 2))

#define GETEVENT       CODE(0x902)
#define REGISTEREVENTS CODE(0x9F5)

/* For the test alone: in a function number and its new answer; in an event's code; in a function number, out the first
 * word of its last request, or its answer. */
#define TELL_ANSWER CODE(0x7F0)
#define TELL_EVENT  CODE(0x7F1)
#define TELL_LAST   CODE(0x7F2)
#define TELL_STATE  CODE(0x7F3)

/* One answer: to this request, for this first word of the input or for any; and that word of the last such request. */
static struct {
    ULONG code;
    ULONG argument;
    ULONG answer;
    ULONG last;
} answers[] = {
#define ANY 0xFFFFFFFFu
    {CODE(0x90D), ANY, 0x200, 0},    /* MHKV: hot-key interface */
    {CODE(0x90E), ANY, 0x884, 0},    /* MHKA: hot keys 3, 8 and 12 */
    {CODE(0x961), ANY, 3, 0},        /* GETLIDSTATUS: open */
    {CODE(0x964), ANY, 3, 0},        /* LCDCSGETSTATE: inhibited */
    {CODE(0x965), ANY, 0, 0},        /* LCDCSCONTROL: done */
    {CODE(0x9C0), ANY, 1, 0},        /* GMMS: notebook */
    {CODE(0x9C3), 0, 0x30000001, 0}, /* DYTC: cooling interface 3 */
    {CODE(0x9C3), 3, 0x03ff0001, 0}, /* all functions */
    {CODE(0x9C3), ANY, 1, 0},        /* commands are accepted */
    {CODE(0x9CA), 0, 0x100, 0},      /* GOPT: option interface */
    {CODE(0x9CA), 0x100, 1, 0},      /* no keyboard attached */
    /* No requests: what the indicators say, and how often each device was written to. */
    {CODE(0x7E0), ANY, 1, 0}, /* slate (0) or laptop (1) */
    {CODE(0x7E1), ANY, 0, 0}, /* dock */
    {CODE(0x7E2), ANY, 0, 0}, /* button */
};

static NTSTATUS finish(IRP *irp, NTSTATUS status, ULONG bytes)
{
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = bytes;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

#define COUNT(array) (sizeof(array) / sizeof *(array))

static NTSTATUS WINAPI open_or_close(DEVICE_OBJECT *device, IRP *irp)
{
    (void)device;
    return finish(irp, STATUS_SUCCESS, 0);
}

/* The waiting events, oldest first, and the service's event that says that there are some. */
static ULONG queue[16];
static ULONG queued;
static HANDLE notify_event;

static void tell_service(void)
{
    if (notify_event == NULL)
        return;
    if (queued != 0)
        ZwSetEvent(notify_event, NULL);
    else
        ZwClearEvent(notify_event);
}

/* The last of the five handles of the record, which are those of the process that asks. */
static void take_registration(const ULONGLONG *record)
{
    OBJECT_ATTRIBUTES attributes;
    CLIENT_ID client = {PsGetCurrentProcessId(), NULL};
    HANDLE process;
    if (notify_event != NULL)
        ZwClose(notify_event);
    notify_event = NULL;
    InitializeObjectAttributes(&attributes, NULL, 0, NULL, NULL);
    if (ZwOpenProcess(&process, PROCESS_DUP_HANDLE, &attributes, &client) != STATUS_SUCCESS)
        return;
    if (ZwDuplicateObject(process, (HANDLE)record[5], ZwCurrentProcess(), &notify_event, 0, 0, DUPLICATE_SAME_ACCESS) != STATUS_SUCCESS)
        notify_event = NULL;
    ZwClose(process);
    tell_service();
}

/* Fetches the oldest event: 8 bytes, the code first. None: no bytes. */
static ULONG fetch_event(ULONG *words)
{
    ULONG i;
    if (queued == 0)
        return 0;
    words[0] = queue[0];
    words[1] = 0;
    --queued;
    for (i = 0; i < queued; ++i)
        queue[i] = queue[i + 1];
    tell_service();
    return 2 * sizeof *words;
}

/* What the test asks for; the bytes of the answer. */
static ULONG tell(ULONG code, ULONG *words)
{
    ULONG i;
    if (code == TELL_EVENT) {
        if (queued < COUNT(queue))
            queue[queued++] = words[0];
        tell_service();
        return 0;
    }
    for (i = 0; i < COUNT(answers) && answers[i].code != CODE(words[0]); ++i)
        ;
    while (code == TELL_LAST && i + 1 < COUNT(answers) && answers[i + 1].code == CODE(words[0]))
        ++i; /* the row for any argument stands last */
    if (i == COUNT(answers))
        return 0;
    if (code == TELL_ANSWER)
        answers[i].answer = words[1];
    words[0] = code == TELL_STATE ? answers[i].answer : answers[i].last;
    return sizeof *words;
}

static ULONG answer_request(ULONG code, ULONG argument, ULONG *words, ULONG out)
{
    ULONG answer = 0, i;
    for (i = 0; i < COUNT(answers); ++i) {
        if (answers[i].code == code && (answers[i].argument == ANY || answers[i].argument == argument)) {
            answer = answers[i].answer;
            answers[i].last = argument;
            break;
        }
    }
    for (i = 0; i < out / sizeof *words; ++i)
        words[i] = i == 0 ? answer : 0;
    return out;
}

static NTSTATUS WINAPI control(DEVICE_OBJECT *device, IRP *irp)
{
    const IO_STACK_LOCATION *stack = IoGetCurrentIrpStackLocation(irp);
    const ULONG in = stack->Parameters.DeviceIoControl.InputBufferLength;
    const ULONG out = stack->Parameters.DeviceIoControl.OutputBufferLength;
    const ULONG code = stack->Parameters.DeviceIoControl.IoControlCode;
    ULONG *words = irp->AssociatedIrp.SystemBuffer;
    (void)device;
    if (code == REGISTEREVENTS && in == 6 * sizeof(ULONGLONG))
        take_registration(irp->AssociatedIrp.SystemBuffer);
    if (code == GETEVENT && out == 2 * sizeof(ULONG))
        return finish(irp, STATUS_SUCCESS, fetch_event(words));
    if (code >= TELL_ANSWER && code <= TELL_STATE && in == 2 * sizeof(ULONG))
        return finish(irp, STATUS_SUCCESS, tell(code, words));
    return finish(irp, STATUS_SUCCESS, answer_request(code, in >= sizeof(ULONG) ? words[0] : 0, words, out));
}

/* An indicator's device knows its function number. */
static ULONG *state_of(DEVICE_OBJECT *device)
{
    ULONG i;
    for (i = 0; i + 1 < COUNT(answers) && answers[i].code != *(ULONG *)device->DeviceExtension; ++i)
        ;
    return &answers[i].answer;
}

static NTSTATUS WINAPI read(DEVICE_OBJECT *device, IRP *irp)
{
    *(UCHAR *)irp->AssociatedIrp.SystemBuffer = (UCHAR)*state_of(device);
    return finish(irp, STATUS_SUCCESS, 1);
}

/* The laptop/slate indicator changes on any byte, the dock's takes it; of the button the writes are counted. */
static NTSTATUS WINAPI write(DEVICE_OBJECT *device, IRP *irp)
{
    ULONG *state = state_of(device);
    switch (*(ULONG *)device->DeviceExtension) {
    case CODE(0x7E0): *state ^= 1; break;
    case CODE(0x7E1): *state = *(UCHAR *)irp->AssociatedIrp.SystemBuffer; break;
    default: ++*state;
    }
    return finish(irp, STATUS_SUCCESS, 1);
}

/* FUNCTION: of an indicator; 0: a driver. */
static NTSTATUS make_device(DRIVER_OBJECT *driver, const WCHAR *name, const WCHAR *link, ULONG function)
{
    UNICODE_STRING device_name, link_name;
    DEVICE_OBJECT *device;
    NTSTATUS status;
    RtlInitUnicodeString(&device_name, name);
    RtlInitUnicodeString(&link_name, link);
    status = IoCreateDevice(driver, sizeof(ULONG), &device_name, 0x22, 0, FALSE, &device);
    if (status != STATUS_SUCCESS)
        return status;
    *(ULONG *)device->DeviceExtension = CODE(function);
    device->Flags |= DO_BUFFERED_IO;
    device->Flags &= ~DO_DEVICE_INITIALIZING;
    return IoCreateSymbolicLink(&link_name, &device_name);
}

#define ROOT_LINK(name, guid) L"\\DosDevices\\ROOT#" name L"#0000#{" guid L"}"

static const struct {
    const WCHAR *name;
    const WCHAR *link;
    ULONG function;
} devices[] = {
    {L"\\Device\\ZORPmDrv", L"\\DosDevices\\ZORPmDrv", 0},
    {L"\\Device\\PMDRVS", L"\\DosDevices\\PMDRVS", 0},
    {L"\\Device\\ZorpSlate", ROOT_LINK(L"ZORPSLATE", L"317fc439-3f77-41c8-b09e-08ad63272aa3"), 0x7E0},
    {L"\\Device\\ZorpDock", ROOT_LINK(L"ZORPDOCK", L"a84e689b-0dce-493a-a164-acde05478fc3"), 0x7E1},
    {L"\\Device\\ZorpButton", ROOT_LINK(L"ZORPBUTTON", L"30ebfbf8-df5f-4d4d-9fc5-a26c7fd1df4a"), 0x7E2},
};

NTSTATUS WINAPI DriverEntry(DRIVER_OBJECT *driver, UNICODE_STRING *path)
{
    NTSTATUS status = STATUS_SUCCESS;
    ULONG i;
    (void)path;
    driver->MajorFunction[IRP_MJ_CREATE] = open_or_close;
    driver->MajorFunction[IRP_MJ_CLOSE] = open_or_close;
    driver->MajorFunction[IRP_MJ_READ] = read;
    driver->MajorFunction[IRP_MJ_WRITE] = write;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = control;
    for (i = 0; i < COUNT(devices) && status == STATUS_SUCCESS; ++i)
        status = make_device(driver, devices[i].name, devices[i].link, devices[i].function);
    return status;
}
