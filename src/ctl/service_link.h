// The service as its clients reach it: its status, its control codes, the values it publishes, and the rights
// that all of this takes.
#pragma once

#include <windows.h>

// The two handles of one use of the service.
struct ServiceHolder {
    SC_HANDLE manager = nullptr;
    SC_HANDLE service = nullptr;

    ServiceHolder() = default;
    ServiceHolder(const ServiceHolder&) = delete;
    ServiceHolder& operator=(const ServiceHolder&) = delete;
    ~ServiceHolder();
};

// What a command needs and may lack.
enum class Right { SendControls, QueryStatus, ChangeHotKeys, PressButton };

// Says which right is missing and who has it. CTL_NOT_ALLOWED.
int NotAllowed(Right right);

// Open the service (SERVICE_USER_DEFINED_CONTROL, SERVICE_QUERY_STATUS). CTL_DONE, or an exit status after a
// complaint.
int OpenZorpmService(ServiceHolder* holder, DWORD access);

// The status now. FALSE when there is no such service or it cannot be asked; the process id is 0 while it
// does not run.
bool QueryZorpmService(SERVICE_STATUS_PROCESS* status);

// CTL_DONE while the service runs or is paused; an exit status after a complaint otherwise.
int RequireRunningService();

// Sends one control code and waits until the service has handled it, --timeout seconds at most. CTL_DONE, or
// an exit status after a complaint.
int SendControl(DWORD code);

// Read a published value of HKEY_LOCAL_MACHINE; `name` null is the default value. Whatever has another type
// or size counts as absent. FALSE leaves *value untouched, and an empty text.
bool ReadPublished(const wchar_t* key, const wchar_t* name, DWORD* value);
constexpr DWORD PUBLISHED_CHARACTERS = 64;
bool ReadPublishedText(const wchar_t* key, const wchar_t* name, wchar_t (&text)[PUBLISHED_CHARACTERS]);

// The words of a state of the service, e.g. "running".
const wchar_t* ServiceStateName(DWORD state);
