#include "setup/cleanup.h"

#include <aclapi.h>
#include <objbase.h>
#include <shlobj.h>
#include <strsafe.h>

#include "common/registry.h"
#include "common/trace.h"
#include "setup/pnp_task.h"

constexpr WORD DRIVER_PACKAGE_RESOURCE = 105;
constexpr DWORD ALL_ACCESS = 0x1FFFFF;
constexpr DWORD COMMAND_LINE_CHARACTERS = 260;

namespace {

struct ServiceHandle {
    SC_HANDLE handle;

    explicit ServiceHandle(SC_HANDLE owned) : handle(owned) {}
    ServiceHandle(const ServiceHandle&) = delete;
    ServiceHandle& operator=(const ServiceHandle&) = delete;
    ~ServiceHandle() {
        if (handle != nullptr)
            CloseServiceHandle(handle);
    }
};

} // namespace

// Fills `path` (MAX_PATH characters) with a folder of the machine, created when it is not there.
static BOOL GetFolder(int folder, wchar_t* path) {
    return SHGetFolderPathW(nullptr, folder | CSIDL_FLAG_CREATE, nullptr, SHGFP_TYPE_CURRENT, path) == S_OK;
}

// Whether an error of a look-up says for certain that the file is not there.
static bool MeansAbsent(DWORD error) {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

// TRUE when the INF store holds at least one of the names of a multi-string (each ends in a null, the list in
// an empty name), or when that cannot be told.
static OPERATION(BOOL, IsINFFileExits, (const wchar_t* names), names) {
    for (const wchar_t* name = names; *name != L'\0'; name += lstrlenW(name) + 1) {
        wchar_t folder[MAX_PATH];
        if (!GetFolder(CSIDL_WINDOWS, folder))
            return TRUE;
        wchar_t path[MAX_PATH];
        if (FAILED(StringCchPrintfW(path, ARRAYSIZE(path), L"%ls\\INF\\%ls", folder, name)))
            return TRUE;
        if (GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES || !MeansAbsent(GetLastError()))
            return TRUE;
    }
    return FALSE;
}

// Whether nothing but nulls follows the end of a list of `length` characters. Anything else is no
// multi-string.
static bool EndsInNulls(const wchar_t* names, DWORD length) {
    DWORD end = 0;
    while (end < length && (names[end] != L'\0' || (end != 0 && names[end - 1] != L'\0')))
        ++end;
    while (end < length && names[end] == L'\0')
        ++end;
    return end == length;
}

OPERATION(BOOL, GetPMDRVInstallStatus, ()) {
    KeyHolder key;
    if (!OpenKey(&key, HKEY_LOCAL_MACHINE, ZORPM_SERVICE_KEY, KEY_QUERY_VALUE | KEY_NOTIFY))
        return TRUE;
    DWORD type = 0;
    DWORD size = 0;
    if (RegQueryValueExW(key.key, L"Owners", nullptr, &type, nullptr, &size) != ERROR_SUCCESS)
        return TRUE;
    // The block is zeroed and larger by two characters, so the list ends whatever is stored.
    LocalBlock owners(LocalAlloc(LPTR, static_cast<SIZE_T>(size) + 2 * sizeof(wchar_t)));
    if (owners.data == nullptr)
        return TRUE;
    if (RegQueryValueExW(key.key, L"Owners", nullptr, &type, static_cast<BYTE*>(owners.data), &size) !=
        ERROR_SUCCESS)
        return TRUE;
    const wchar_t* names = static_cast<const wchar_t*>(owners.data);
    if (type != REG_MULTI_SZ || size % sizeof(wchar_t) != 0 ||
        !EndsInNulls(names, size / static_cast<DWORD>(sizeof(wchar_t))))
        return TRUE;
    return IsINFFileExits(names);
}

// Sends the stop control to a service without waiting for its end; the result of the request.
static OPERATION(BOOL, StopPMService, (const wchar_t* name), name) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (manager.handle == nullptr) {
        Trace(L"StopPMService(): Error: no service control manager. (%lu)\n", GetLastError());
        return FALSE;
    }
    ServiceHandle service(OpenServiceW(manager.handle, name, SERVICE_ALL_ACCESS));
    if (service.handle == nullptr)
        return FALSE;
    SERVICE_STATUS status = {};
    const BOOL sent = ControlService(service.handle, SERVICE_CONTROL_STOP, &status);
    if (!sent)
        Trace(L"StopPMService() ControlService failed: %d\n", GetLastError());
    return sent;
}

// Fills `path` (MAX_PATH characters) with a file of the system folder. FALSE when that is not known or the
// path does not fit.
static BOOL GetSystemFilePath(const wchar_t* file, wchar_t* path) {
    wchar_t folder[MAX_PATH];
    return GetFolder(CSIDL_SYSTEM, folder) &&
           SUCCEEDED(StringCchPrintfW(path, MAX_PATH, L"%ls\\%ls", folder, file));
}

// Where the INF copy goes, and the program that runs it.
static OPERATION(BOOL, GetINFPath, (wchar_t * path), path) {
    return GetSystemFilePath(L"ZORPMDRV.INF", path);
}

static OPERATION(BOOL, GetRunDLLPath, (wchar_t * path), path) {
    return GetSystemFilePath(L"rundll32.exe", path);
}

namespace {

// A security descriptor that grants everything to the local system account and nothing to anyone else.
// Protected: otherwise the entries that the folder hands down would be added to it.
struct LocalSystemOnly {
    alignas(DWORD) BYTE sid[SECURITY_MAX_SID_SIZE] = {};
    LocalBlock acl;
    SECURITY_DESCRIPTOR descriptor = {};
    SECURITY_ATTRIBUTES attributes = {};
};
static_assert(SECURITY_MAX_SID_SIZE == 68);

} // namespace

static BOOL BuildLocalSystemOnly(LocalSystemOnly* security) {
    DWORD size = sizeof(security->sid);
    if (!CreateWellKnownSid(WinLocalSystemSid, nullptr, security->sid, &size))
        return FALSE;
    EXPLICIT_ACCESS_W entry = {};
    entry.grfAccessPermissions = ALL_ACCESS;
    entry.grfAccessMode = SET_ACCESS;
    entry.grfInheritance = NO_INHERITANCE;
    entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    entry.Trustee.TrusteeType = TRUSTEE_IS_WELL_KNOWN_GROUP;
    entry.Trustee.ptstrName = reinterpret_cast<wchar_t*>(security->sid);
    ACL* acl = nullptr;
    if (SetEntriesInAclW(1, &entry, nullptr, &acl) != ERROR_SUCCESS)
        return FALSE;
    security->acl.data = acl;
    if (!InitializeSecurityDescriptor(&security->descriptor, SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(&security->descriptor, TRUE, acl, FALSE) ||
        !SetSecurityDescriptorControl(&security->descriptor, SE_DACL_PROTECTED, SE_DACL_PROTECTED))
        return FALSE;
    security->attributes.nLength = sizeof(security->attributes);
    security->attributes.lpSecurityDescriptor = &security->descriptor;
    security->attributes.bInheritHandle = FALSE;
    return TRUE;
}

static HANDLE CreateNewFile(const wchar_t* path, SECURITY_ATTRIBUTES* attributes) {
    return CreateFileW(path, GENERIC_WRITE, 0, attributes, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
}

// The file is made anew rather than overwritten, so that it gets the security descriptor given here.
static HANDLE CreateINFFile(const wchar_t* path, SECURITY_ATTRIBUTES* attributes) {
    HANDLE file = CreateNewFile(path, attributes);
    if (file != INVALID_HANDLE_VALUE)
        return file;
    const DWORD error = GetLastError();
    if (error != ERROR_FILE_EXISTS) {
        Trace(L"Create INF File Failed: %d", error);
        return file;
    }
    Trace(L"Delete previous INF file\n");
    if (!DeleteFileW(path)) {
        Trace(L"Delete FILE FAILED.");
        return INVALID_HANDLE_VALUE;
    }
    return CreateNewFile(path, attributes);
}

// Writes the embedded INF to a new file that only the local system account may use, replacing one that is
// there. FALSE when the file is not complete.
static OPERATION(BOOL, CreateINF, (const wchar_t* path), path) {
    HRSRC resource = FindResourceW(nullptr, MAKEINTRESOURCEW(DRIVER_PACKAGE_RESOURCE), RT_RCDATA);
    if (resource == nullptr)
        return FALSE;
    HGLOBAL loaded = LoadResource(nullptr, resource);
    if (loaded == nullptr)
        return FALSE;
    const void* text = LockResource(loaded);
    const DWORD size = SizeofResource(nullptr, resource);
    if (text == nullptr || size == 0)
        return FALSE;
    LocalSystemOnly security;
    if (!BuildLocalSystemOnly(&security))
        return FALSE;
    HandleHolder file(CreateINFFile(path, &security.attributes));
    DWORD written = 0;
    return file.Valid() && WriteFile(file.handle, text, size, &written, nullptr) && written == size;
}

// Starts the program on the INF copy and leaves it to itself.
static void StartUninstall(const wchar_t* program, const wchar_t* inf) {
    wchar_t command[COMMAND_LINE_CHARACTERS];
    if (FAILED(StringCchPrintfW(command, ARRAYSIZE(command),
                                L"\"%ls\" setupapi,InstallHinfSection DefaultUninstall 128 %ls", program,
                                inf)))
        return;
    Trace(L"DeleteServiceFiles() CreateProceess: %ls", command);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(program, command, nullptr, nullptr, FALSE, CREATE_NEW_PROCESS_GROUP, nullptr, nullptr,
                        &startup, &process)) {
        Trace(L"CreateProcess Failed %d", GetLastError());
        return;
    }
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
}

OPERATION(void, DeleteServiceFiles, ()) {
    if (!InitTaskSchedulerCom())
        return;
    StopPMService(ZORPM_SERVICE_NAME);
    StopPMService(L"MPLATSVC");
    DeletePlatformTask();
    DeletePnPTask();
    // A 32-bit process would write into its own view of the system folder; in a 64-bit one there is nothing
    // to turn off and the call fails.
    void* redirection = nullptr;
    const BOOL turned_off = Wow64DisableWow64FsRedirection(&redirection);
    wchar_t inf[MAX_PATH];
    wchar_t program[MAX_PATH];
    if (GetINFPath(inf) && CreateINF(inf) && GetRunDLLPath(program))
        StartUninstall(program, inf);
    if (turned_off)
        Wow64RevertWow64FsRedirection(redirection);
    CoUninitialize();
}
