#include "ctl/service_link.h"

#include "common/registry.h"
#include "ctl/ctl.h"
#include "ctl/output.h"

ServiceHolder::~ServiceHolder() {
    if (service != nullptr)
        CloseServiceHandle(service);
    if (manager != nullptr)
        CloseServiceHandle(manager);
}

// In the order of Right.
static const wchar_t* const g_rights[] = {
    L"not allowed: control codes take the right SERVICE_USER_DEFINED_CONTROL on the "
    L"service"
    L" " ZORPM_SERVICE_NAME L"; administrators, services and users who are logged on at the machine itself "
    L"have it",
    L"not allowed: its state takes the right SERVICE_QUERY_STATUS on the "
    L"service"
    L" " ZORPM_SERVICE_NAME L"; administrators, services and users who are logged on at the machine itself "
    L"have it",
    L"not allowed: hot keys are changed with the right KEY_SET_VALUE on "
    L"HKLM\\" ZORPM_SERVICE_KEY L"; administrators and LocalSystem have it",
    L"not allowed: the rotation lock is pressed with the right GENERIC_WRITE on the button device; "
    L"administrators and LocalSystem have it",
};

int NotAllowed(Right right) {
    Complain(L"%ls", g_rights[static_cast<DWORD>(right)]);
    return CTL_NOT_ALLOWED;
}

// Every way in which the control manager refuses what is asked of it here.
static int ExplainError(DWORD error, Right right) {
    static const struct {
        DWORD error;
        int status;
        const wchar_t* words;
    } rows[] = {
        {ERROR_SERVICE_DOES_NOT_EXIST, CTL_NOT_RUNNING, L"the service is not installed"},
        {ERROR_SERVICE_NOT_ACTIVE, CTL_NOT_RUNNING, L"the service is not running"},
        {ERROR_SERVICE_CANNOT_ACCEPT_CTRL, CTL_NOT_RUNNING, L"the service is starting or stopping"},
        {ERROR_SERVICE_REQUEST_TIMEOUT, CTL_REFUSED,
         L"the service has not answered in time; it may still do what was asked"},
        {WAIT_TIMEOUT, CTL_REFUSED, L"the service has not answered in time; it may still do what was asked"},
    };
    if (error == ERROR_ACCESS_DENIED)
        return NotAllowed(right);
    for (const auto& row : rows) {
        if (row.error == error) {
            Complain(L"%ls", row.words);
            return row.status;
        }
    }
    Complain(L"the service cannot be reached, error %lu", error);
    return CTL_REFUSED;
}

// The result is an error code.
static DWORD OpenHandles(ServiceHolder* holder, DWORD access) {
    holder->manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    if (holder->manager == nullptr)
        return GetLastError();
    holder->service = OpenServiceW(holder->manager, ZORPM_SERVICE_NAME, access);
    return holder->service != nullptr ? ERROR_SUCCESS : GetLastError();
}

int OpenZorpmService(ServiceHolder* holder, DWORD access) {
    const DWORD error = OpenHandles(holder, access);
    const bool controls = (access & SERVICE_USER_DEFINED_CONTROL) != 0;
    return error == ERROR_SUCCESS ? CTL_DONE
                                  : ExplainError(error, controls ? Right::SendControls : Right::QueryStatus);
}

static DWORD QueryStatus(SERVICE_STATUS_PROCESS* status) {
    ServiceHolder holder;
    const DWORD error = OpenHandles(&holder, SERVICE_QUERY_STATUS);
    if (error != ERROR_SUCCESS)
        return error;
    DWORD needed = 0;
    return QueryServiceStatusEx(holder.service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(status),
                                sizeof(*status), &needed)
               ? ERROR_SUCCESS
               : GetLastError();
}

bool QueryZorpmService(SERVICE_STATUS_PROCESS* status) {
    *status = {};
    return QueryStatus(status) == ERROR_SUCCESS;
}

int RequireRunningService() {
    SERVICE_STATUS_PROCESS status = {};
    DWORD error = QueryStatus(&status);
    if (error == ERROR_SUCCESS && status.dwCurrentState != SERVICE_RUNNING &&
        status.dwCurrentState != SERVICE_PAUSED)
        error = status.dwCurrentState == SERVICE_STOPPED ? ERROR_SERVICE_NOT_ACTIVE
                                                         : ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    return error == ERROR_SUCCESS ? CTL_DONE : ExplainError(error, Right::QueryStatus);
}

namespace {

// The control manager answers when the service has handled the code, which may take as long as its firmware
// does; so a thread waits for it. A thread that is given up keeps its record until the process ends.
struct Sending {
    DWORD code;
    DWORD error;
};

} // namespace

static DWORD WINAPI SendControlThreadProc(LPVOID parameter) {
    auto* sending = static_cast<Sending*>(parameter);
    ServiceHolder holder;
    sending->error = OpenHandles(&holder, SERVICE_USER_DEFINED_CONTROL);
    SERVICE_STATUS status = {};
    if (sending->error == ERROR_SUCCESS && !ControlService(holder.service, sending->code, &status))
        sending->error = GetLastError();
    return 0;
}

int SendControl(DWORD code) {
    LocalBlock block(LocalAlloc(LPTR, sizeof(Sending)));
    auto* sending = static_cast<Sending*>(block.data);
    if (sending == nullptr)
        return ExplainError(ERROR_NOT_ENOUGH_MEMORY, Right::SendControls);
    sending->code = code;
    const HandleHolder thread(CreateThread(nullptr, 0, SendControlThreadProc, sending, 0, nullptr));
    if (!thread.Valid())
        return ExplainError(GetLastError(), Right::SendControls);
    if (WaitForSingleObject(thread.handle, g_arguments.timeout_s * 1000) != WAIT_OBJECT_0) {
        block.data = nullptr;
        return ExplainError(WAIT_TIMEOUT, Right::SendControls);
    }
    return sending->error == ERROR_SUCCESS ? CTL_DONE : ExplainError(sending->error, Right::SendControls);
}

bool ReadPublished(const wchar_t* key, const wchar_t* name, DWORD* value) {
    KeyHolder holder;
    return OpenKey(&holder, HKEY_LOCAL_MACHINE, key, KEY_QUERY_VALUE) &&
           QueryDword(holder.key, name, value) != FALSE;
}

bool ReadPublishedText(const wchar_t* key, const wchar_t* name, wchar_t (&text)[PUBLISHED_CHARACTERS]) {
    text[0] = L'\0';
    KeyHolder holder;
    return OpenKey(&holder, HKEY_LOCAL_MACHINE, key, KEY_QUERY_VALUE) &&
           QueryString(holder.key, name, text, PUBLISHED_CHARACTERS,
                       (PUBLISHED_CHARACTERS - 1) * static_cast<DWORD>(sizeof(wchar_t))) != FALSE;
}

const wchar_t* ServiceStateName(DWORD state) {
    static const wchar_t* const names[] = {L"unknown", L"stopped",    L"starting", L"stopping",
                                           L"running", L"continuing", L"pausing",  L"paused"};
    return names[state < ARRAYSIZE(names) ? state : 0];
}
