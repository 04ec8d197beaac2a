/* A stand-in for both drivers of the package: answers every request of the service as a notebook with hot keys, lid
 * inhibit and cooling interface 3 would. No events come from it. */
#include <ntddk.h>

#define CODE(function) ((0x22u << 16) | ((function) << 2))

/* One answer: to this request, for this first word of the input or for any. */
static const struct {
    ULONG code;
    ULONG argument;
    ULONG answer;
} answers[] = {
#define ANY 0xFFFFFFFFu
    {CODE(0x90D), ANY, 0x200},    /* MHKV: hot-key interface */
    {CODE(0x90E), ANY, 0x884},    /* MHKA: hot keys 3, 8 and 12 */
    {CODE(0x961), ANY, 3},        /* GETLIDSTATUS: open */
    {CODE(0x964), ANY, 3},        /* LCDCSGETSTATE: inhibited */
    {CODE(0x9C0), ANY, 1},        /* GMMS: notebook */
    {CODE(0x9C3), 0, 0x30000001}, /* DYTC: cooling interface 3 */
    {CODE(0x9C3), 3, 0x03ff0001}, /* all functions */
    {CODE(0x9C3), ANY, 1},        /* commands are accepted */
    {CODE(0x9CA), 0, 0x100},      /* GOPT: option interface */
    {CODE(0x9CA), 0x100, 1},      /* no keyboard attached */
};

static NTSTATUS finish(IRP *irp, NTSTATUS status, ULONG bytes)
{
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = bytes;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

static NTSTATUS WINAPI open_or_close(DEVICE_OBJECT *device, IRP *irp)
{
    (void)device;
    return finish(irp, STATUS_SUCCESS, 0);
}

static NTSTATUS WINAPI control(DEVICE_OBJECT *device, IRP *irp)
{
    const IO_STACK_LOCATION *stack = IoGetCurrentIrpStackLocation(irp);
    const ULONG in = stack->Parameters.DeviceIoControl.InputBufferLength;
    const ULONG out = stack->Parameters.DeviceIoControl.OutputBufferLength;
    ULONG *words = irp->AssociatedIrp.SystemBuffer;
    const ULONG argument = in >= sizeof(ULONG) ? words[0] : 0;
    ULONG answer = 0, i;
    (void)device;
    for (i = 0; i < sizeof answers / sizeof answers[0]; ++i) {
        if (answers[i].code == stack->Parameters.DeviceIoControl.IoControlCode &&
            (answers[i].argument == ANY || answers[i].argument == argument)) {
            answer = answers[i].answer;
            break;
        }
    }
    for (i = 0; i < out / sizeof(ULONG); ++i)
        words[i] = i == 0 ? answer : 0;
    return finish(irp, STATUS_SUCCESS, out);
}

static NTSTATUS make_device(DRIVER_OBJECT *driver, const WCHAR *name, const WCHAR *link)
{
    UNICODE_STRING device_name, link_name;
    DEVICE_OBJECT *device;
    NTSTATUS status;
    RtlInitUnicodeString(&device_name, name);
    RtlInitUnicodeString(&link_name, link);
    status = IoCreateDevice(driver, 0, &device_name, 0x22, 0, FALSE, &device);
    return status == STATUS_SUCCESS ? IoCreateSymbolicLink(&link_name, &device_name) : status;
}

NTSTATUS WINAPI DriverEntry(DRIVER_OBJECT *driver, UNICODE_STRING *path)
{
    NTSTATUS status;
    (void)path;
    driver->MajorFunction[IRP_MJ_CREATE] = open_or_close;
    driver->MajorFunction[IRP_MJ_CLOSE] = open_or_close;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = control;
    status = make_device(driver, L"\\Device\\ZORPmDrv", L"\\DosDevices\\ZORPmDrv");
    return status == STATUS_SUCCESS ? make_device(driver, L"\\Device\\PMDRVS", L"\\DosDevices\\PMDRVS") : status;
}
