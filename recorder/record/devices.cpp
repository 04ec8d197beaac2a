// The driver, the indicators, present devices; files and other programs.
#include <algorithm>
#include <cstring>
#include <map>

#include "driver/ioctl.h"
#include "recorder/lines.h"
#include "recorder/record/calls.h"
#include "recorder/record/journal.h"
#include "recorder/record/known.h"

namespace record {

// ---- openings ----

namespace {

struct Opened {
    const char* interface_name; // "" for a device of the driver
};

} // namespace

static std::map<HANDLE, Opened> g_devices;

// clang-format off
static const struct { const wchar_t* path; const char* subject; } g_driverDevices[] = {
    {PRIMARY_DEVICE,        "driver primary"},
    {SECONDARY_DEVICE,      "driver secondary"},
    {POINTING_STICK_DEVICE, "device stick"},
};
// clang-format on

static void tell_presence(const std::string& device, bool present) {
    tell(device, device + (present ? " present" : " missing"), present);
}

static void note_opening(LPCWSTR path, const char* name, HANDLE file, DWORD error) {
    const bool opened = file != INVALID_HANDLE_VALUE;
    const bool missing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    if (opened)
        g_devices[file] = {name};
    for (const auto& row : g_driverDevices) {
        if (lstrcmpiW(path, row.path) == 0 && (opened || missing)) {
            tell_presence(row.subject, opened);
            return outcome("CreateFileW", false);
        }
    }
    outcome("CreateFileW", !opened);
}

static void note_file(LPCWSTR path, DWORD disposition) {
    if (disposition == CREATE_NEW)
        effect("file create \"%s\"", lines::narrow(path).c_str());
}

HANDLE WINAPI create_file(LPCWSTR path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                          DWORD disposition, DWORD flags, HANDLE pattern) {
    HANDLE file = os::CreateFileW(path, access, share, security, disposition, flags, pattern);
    if (!recording())
        return file;
    const DWORD error = GetLastError();
    {
        const Guard guard;
        if (const char* name = lines::device_name(path))
            note_opening(path, name, file, error);
        else if (file != INVALID_HANDLE_VALUE)
            note_file(path, disposition);
    }
    SetLastError(error);
    return file;
}

BOOL WINAPI close_handle(HANDLE handle) {
    if (!recording())
        return os::CloseHandle(handle);
    { // before the handle's number can be another's
        const Guard guard;
        g_devices.erase(handle);
        forget_event(handle);
    }
    return os::CloseHandle(handle);
}

// ---- indicators and the button ----

static std::string interface_of(HANDLE file) {
    const auto found = g_devices.find(file);
    return found != g_devices.end() ? found->second.interface_name : "";
}

BOOL WINAPI read_file(HANDLE file, LPVOID data, DWORD bytes, DWORD* read, OVERLAPPED* overlapped) {
    const BOOL done = os::ReadFile(file, data, bytes, read, overlapped);
    if (!recording())
        return done;
    const DWORD error = GetLastError();
    {
        const Guard guard;
        if (const std::string name = interface_of(file); !name.empty()) {
            const std::string device = "device " + name;
            if (done)
                tell(device + " =", device + " = " + std::to_string(*static_cast<const BYTE*>(data)));
            else
                command(device + " read fails times 1");
        }
    }
    SetLastError(error);
    return done;
}

// An indicator may change by what is written to it: its byte is told anew with the next reading.
BOOL WINAPI write_file(HANDLE file, LPCVOID data, DWORD bytes, DWORD* written, OVERLAPPED* overlapped) {
    const BOOL done = os::WriteFile(file, data, bytes, written, overlapped);
    if (!recording())
        return done;
    const DWORD error = GetLastError();
    {
        const Guard guard;
        if (const std::string name = interface_of(file); !name.empty()) {
            if (done)
                effect("write %s %u", name.c_str(), *static_cast<const BYTE*>(data));
            else
                command("device " + name + " write fails times 1");
            no_longer_known("device " + name + " =");
        }
    }
    SetLastError(error);
    return done;
}

// ---- requests ----

namespace {

struct Sent {
    DWORD code;
    DWORD in[12]; // a copy: the input may be the output's buffer
    DWORD in_bytes;
    const DWORD* out;
    DWORD out_bytes;
    DWORD returned;
    bool failed;
};

} // namespace

// clang-format off
static const struct { DWORD code; DWORD answer; } g_firstAnswers[] = { // of the bench's new machine, other than 0
    {IOCTL_PMDRV_MHKV, 0x200}, {IOCTL_PMDRV_CSTATESELECT, 3},  {IOCTL_PMDRV_GETLIDSTATUS, 3},
    {IOCTL_PMDRV_LCDCSGETSTATE, 2}, {IOCTL_PMDRV_GMMS, 1}, {IOCTL_PMDRV_GETTIMERRESOL, 156250},
};
// clang-format on

static DWORD first_answer(DWORD code) {
    for (const auto& row : g_firstAnswers) {
        if (row.code == code)
            return row.answer;
    }
    return 0;
}

static std::string hex(DWORD number) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%lx", number);
    return text;
}

// The event is handed out in this request; it may have come long before.
static void tell_event(const Sent& sent) {
    if (sent.failed || sent.returned == 0)
        command("signal NotifyEvent"); // there is none, and the service asks all the same
    else
        command("event " + hex(sent.out[0]) + (sent.out[1] != 0 ? " " + hex(sent.out[1]) : ""));
    if (sent.failed)
        command("firmware GETEVENT fails");
    else if (sent.returned != 0 && sent.returned != sent.out_bytes)
        command("firmware GETEVENT bytes " + std::to_string(sent.returned));
}

static void tell_answer(const Sent& sent) {
    std::string subject = "firmware " + lines::method_of(sent.code);
    if (sent.in_bytes != 0)
        subject += "(" + hex(sent.in[0]) + ")";
    if (sent.failed)
        return tell(subject, subject + " fails");
    const bool answers = sent.out_bytes == sizeof(DWORD);
    DWORD answer = 0;
    if (answers)
        memcpy(&answer, sent.out, std::min<DWORD>(sent.returned, sizeof(answer)));
    const bool whole = !answers || sent.returned == sent.out_bytes;
    const std::string bytes = whole ? "" : " bytes " + std::to_string(sent.returned);
    tell(subject, subject + " = " + hex(answer) + bytes,
         whole && answer == (answers ? first_answer(sent.code) : 0));
}

BOOL WINAPI device_control(HANDLE device, DWORD code, LPVOID in, DWORD in_bytes, LPVOID out, DWORD out_bytes,
                           DWORD* returned, OVERLAPPED* overlapped) {
    Sent sent = {code, {}, in_bytes, static_cast<const DWORD*>(out), out_bytes, 0, false};
    if (in != nullptr)
        memcpy(sent.in, in, std::min<size_t>(in_bytes, sizeof(sent.in)));
    const BOOL done = os::DeviceIoControl(device, code, in, in_bytes, out, out_bytes, returned, overlapped);
    if (!recording())
        return done;
    const DWORD error = GetLastError();
    {
        const Guard guard;
        sent.failed = done == FALSE;
        sent.returned = done ? *returned : 0;
        if (g_devices.contains(device)) { // otherwise it could not be opened, and nobody was asked
            if (code == IOCTL_PMDRV_GETEVENT)
                tell_event(sent);
            else
                tell_answer(sent);
            effect("%s%s", lines::shown_request(code, sent.in, in_bytes).c_str(),
                   done ? lines::shown_answer(code, sent.out, out_bytes, sent.returned).c_str() : " failed");
        }
    }
    SetLastError(error);
    return done;
}

// ---- present devices ----

static const wchar_t g_wantedId[] = L"INT33D6"; // the one that the service looks for among all
static const char g_wantedDevice[] = "hardware \"INT33D6\"";
static bool g_wantedFound = false; // in this enumeration

BOOL WINAPI enum_device(HDEVINFO devices, DWORD index, SP_DEVINFO_DATA* device) {
    const BOOL found = os::SetupDiEnumDeviceInfo(devices, index, device);
    if (!recording())
        return found;
    const DWORD error = GetLastError();
    {
        const Guard guard;
        if (index == 0)
            g_wantedFound = false;
        if (!found && !g_wantedFound)
            tell(g_wantedDevice, std::string(g_wantedDevice) + " absent", true);
    }
    SetLastError(error);
    return found;
}

BOOL WINAPI device_property(HDEVINFO devices, SP_DEVINFO_DATA* device, DWORD property, DWORD* type,
                            BYTE* data, DWORD bytes, DWORD* needed) {
    const BOOL read =
        os::SetupDiGetDeviceRegistryPropertyW(devices, device, property, type, data, bytes, needed);
    if (!recording() || !read || property != SPDRP_HARDWAREID || data == nullptr)
        return read;
    const Guard guard;
    const DWORD held = std::min(bytes, needed != nullptr ? *needed : bytes);
    const std::wstring ids(reinterpret_cast<const wchar_t*>(data), held / sizeof(wchar_t));
    if (ids.find(g_wantedId) != std::wstring::npos) {
        g_wantedFound = true;
        tell(g_wantedDevice, std::string(g_wantedDevice) + " present");
    }
    return read;
}

// clang-format off
static const struct { DWORD first; const char* device; } g_classes[] = { // by the first word of the GUID
    {0x317FC439, "device slate"}, {0xA84E689B, "device dock"}, {0x30EBFBF8, "device button"},
};
// clang-format on

BOOL WINAPI enum_interface(HDEVINFO devices, SP_DEVINFO_DATA* device, const GUID* interface_class,
                           DWORD index, SP_DEVICE_INTERFACE_DATA* found) {
    const BOOL is_there = os::SetupDiEnumDeviceInterfaces(devices, device, interface_class, index, found);
    if (!recording())
        return is_there;
    const DWORD error = GetLastError();
    {
        const Guard guard;
        for (const auto& row : g_classes) {
            if (row.first == interface_class->Data1 && index == 0)
                tell_presence(row.device, is_there != FALSE);
        }
    }
    SetLastError(error);
    return is_there;
}

// ---- files and programs ----

BOOL WINAPI delete_file(LPCWSTR path) {
    const BOOL deleted = os::DeleteFileW(path);
    if (recording() && deleted) {
        const Guard guard;
        effect("file delete \"%s\"", lines::narrow(path).c_str());
    }
    return deleted;
}

DWORD WINAPI file_attributes(LPCWSTR path) {
    const DWORD attributes = os::GetFileAttributesW(path);
    if (!recording())
        return attributes;
    const DWORD error = GetLastError();
    {
        const Guard guard;
        const bool is_there = attributes != INVALID_FILE_ATTRIBUTES;
        const std::string subject = "file \"" + lines::narrow(path) + "\"";
        tell(subject, subject + (!is_there                                          ? " absent"
                                 : (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ? " link"
                                 : (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0     ? " directory"
                                                                                    : " present"));
    }
    SetLastError(error);
    return attributes;
}

UINT WINAPI profile_int(LPCWSTR section, LPCWSTR key, INT otherwise, LPCWSTR path) {
    const UINT value = os::GetPrivateProfileIntW(section, key, otherwise, path);
    if (!recording())
        return value;
    const Guard guard;
    const std::string subject = "ini \"" + lines::narrow(path) + "\" " + quoted(lines::narrow(section)) +
                                " " + quoted(lines::narrow(key));
    if (value != static_cast<UINT>(otherwise) || is_known(subject))
        tell(subject, subject + " " + std::to_string(value));
    return value;
}

BOOL WINAPI create_process(LPCWSTR program, LPWSTR line, SECURITY_ATTRIBUTES* process_security,
                           SECURITY_ATTRIBUTES* thread_security, BOOL inherit, DWORD flags,
                           LPVOID environment, LPCWSTR folder, STARTUPINFOW* startup,
                           PROCESS_INFORMATION* process) {
    const std::string shown = lines::narrow(line); // Windows may write into the line
    const BOOL started = os::CreateProcessW(program, line, process_security, thread_security, inherit, flags,
                                            environment, folder, startup, process);
    if (recording()) {
        const Guard guard;
        effect("call CreateProcessW(\"%s\", \"%s\") = %d", lines::narrow(program).c_str(), shown.c_str(),
               started);
    }
    return started;
}

} // namespace record
