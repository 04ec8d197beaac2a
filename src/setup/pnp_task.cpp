#include "setup/pnp_task.h"

#include "common/com.h"
#include "common/registry.h"
#include "common/text.h"
#include "common/trace.h"
#include "setup/event_trigger.h"

#define PNP_TASK_NAME      L"Mestra Power Management Driver PnP Task"
#define PLATFORM_TASK_NAME L"Mestra Platform Task"
#define PLATFORM_FOLDER    L"Mestra"
#define CONFIGURATION_LOG  L"Microsoft-Windows-Kernel-PnP/Configuration"

static const wchar_t g_eventQuery[] =
    L"<QueryList>"
    L"<Query Id=\"0\" Path=\"" CONFIGURATION_LOG L"\">"
    L"<Select Path=\"" CONFIGURATION_LOG L"\">"
    L"*[System[Provider[@Name='Microsoft-Windows-Kernel-PnP'] and EventID=420]]"
    L"</Select></Query></QueryList>";

constexpr DWORD RETRY_INTERVAL_MS = 5000;
constexpr DWORD FIRST_RELEASE_WITHOUT_TASK = 1903;
constexpr HRESULT NOT_FOUND = static_cast<HRESULT>(0x80070002);

// Whether a step failed; its message takes the result.
static bool Failed(HRESULT result, const wchar_t* message) {
    if (SUCCEEDED(result))
        return false;
    Trace(message, result);
    return true;
}

OPERATION(BOOL, IsReleaseId1903OrLater, ()) {
    KeyHolder key;
    wchar_t text[64];
    if (!OpenKey(&key, HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", KEY_READ) ||
        !QueryString(key.key, L"ReleaseId", text, ARRAYSIZE(text), sizeof(text) - sizeof(wchar_t)))
        return FALSE;
    return LeadingNumber(text, FIRST_RELEASE_WITHOUT_TASK) >= FIRST_RELEASE_WITHOUT_TASK;
}

// Fills `path` (MAX_PATH characters) with the running executable's full path, or with an empty text when that
// is not known or too long.
static OPERATION(void, GetModulePath, (wchar_t * path), path) {
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    // A path that was cut to fit fills the buffer.
    if (length == 0 || length >= MAX_PATH)
        path[0] = L'\0';
}

OPERATION(BOOL, InitTaskSchedulerCom, ()) {
    HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(result)) {
        Trace(L"InitTaskSchedulerCom(): Error: COM not initialised. (0x%08x)\n", result);
        return FALSE;
    }
    result = CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_PKT,
                                  RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    if (FAILED(result)) {
        Trace(L"InitTaskSchedulerCom(): Error: COM security not set. (0x%08x)\n", result);
        CoUninitialize();
        return FALSE;
    }
    return TRUE;
}

namespace {

// The messages of the three steps to the root folder.
struct ConnectMessages {
    const wchar_t* create;
    const wchar_t* connect;
    const wchar_t* root;
};

} // namespace

static const ConnectMessages g_pnpTaskMessages = {
    TRACE_NAME(L"Failed to create an instance of ITaskService: %x\n"),
    TRACE_NAME(L"ITaskService::Connect failed: %x\n"),
    TRACE_NAME(L"Cannot get Root Folder pointer: %x\n"),
};
static const ConnectMessages g_platformTaskMessages = {
    TRACE_NAME(L"Failed to create an instance of ITaskService: %x"),
    TRACE_NAME(L"ITaskService::Connect failed: %x"),
    TRACE_NAME(L"Cannot get Root Folder pointer: %x"),
};

// Connects to the local Task Scheduler and opens its root folder.
static bool OpenRootFolder(const ConnectMessages& messages, ComPointer<ITaskService>* service,
                           ComPointer<ITaskFolder>* root) {
    if (Failed(CoCreateInstance(CLSID_TaskScheduler, nullptr, CLSCTX_INPROC_SERVER, IID_ITaskService,
                                service->ReceiveAny()),
               messages.create))
        return false;
    const VARIANT empty = {};
    if (Failed((*service)->Connect(empty, empty, empty, empty), messages.connect))
        return false;
    BstrHolder path(L"\\");
    return !Failed(path.text != nullptr ? (*service)->GetFolder(path.text, root->Receive()) : E_OUTOFMEMORY,
                   messages.root);
}

static HRESULT DeleteTask(ITaskFolder* folder, const wchar_t* name) {
    BstrHolder task(name);
    return task.text != nullptr ? folder->DeleteTask(task.text, 0) : E_OUTOFMEMORY;
}

static bool CreateDefinition(ComPointer<ITaskFolder>* root, ComPointer<ITaskDefinition>* definition) {
    ComPointer<ITaskService> service;
    if (!OpenRootFolder(g_pnpTaskMessages, &service, root))
        return false;
    // Usually there is one from the previous start; none is as good.
    DeleteTask(root->pointer, PNP_TASK_NAME);
    return !Failed(service->NewTask(0, definition->Receive()),
                   TRACE_NAME(L"Failed to create a task definition: %x\n"));
}

static bool AddEventTrigger(ITaskDefinition* definition) {
    ComPointer<ITriggerCollection> triggers;
    if (Failed(definition->get_Triggers(triggers.Receive()),
               TRACE_NAME(L"\nCannot get trigger collection: %x")))
        return false;
    ComPointer<ITrigger> trigger;
    if (Failed(triggers->Create(TASK_TRIGGER_EVENT, trigger.Receive()),
               TRACE_NAME(L"\nCannot create the event trigger: %x")))
        return false;
    triggers.Release();
    BstrHolder id(L"Trigger1");
    if (Failed(id.text != nullptr ? trigger->put_Id(id.text) : E_OUTOFMEMORY,
               TRACE_NAME(L"\nCannot put trigger ID: %x")))
        return false;
    ComPointer<IEventTrigger> event;
    if (Failed(trigger->QueryInterface(IID_IEventTrigger, event.ReceiveAny()),
               TRACE_NAME(L"\nQueryInterface call failed on IEventTrigger: %x")))
        return false;
    BstrHolder query(g_eventQuery);
    return !Failed(query.text != nullptr ? event->put_Subscription(query.text) : E_OUTOFMEMORY,
                   TRACE_NAME(L"\nCannot put subscription: %x"));
}

static bool AddExecAction(ITaskDefinition* definition, const wchar_t* executable) {
    ComPointer<IActionCollection> actions;
    if (Failed(definition->get_Actions(actions.Receive()),
               TRACE_NAME(L"\nCannot get Task collection pointer: %x")))
        return false;
    ComPointer<IAction> action;
    if (Failed(actions->Create(TASK_ACTION_EXEC, action.Receive()),
               TRACE_NAME(L"\nCannot create the action: %x")))
        return false;
    ComPointer<IExecAction> exec;
    if (Failed(action->QueryInterface(IID_IExecAction, exec.ReceiveAny()),
               TRACE_NAME(L"\nQueryInterface call failed on IExecAction: %x")))
        return false;
    BstrHolder path(executable);
    if (Failed(path.text != nullptr ? exec->put_Path(path.text) : E_OUTOFMEMORY,
               TRACE_NAME(L"\nCannot add path for executable action: %x")))
        return false;
    BstrHolder arguments(L"-PnPTask");
    return !Failed(arguments.text != nullptr ? exec->put_Arguments(arguments.text) : E_OUTOFMEMORY,
                   TRACE_NAME(L"\nCannot add command line arg for executable action: %x"));
}

static bool ApplySettings(ITaskDefinition* definition) {
    ComPointer<ITaskSettings> settings;
    if (Failed(definition->get_Settings(settings.Receive()),
               TRACE_NAME(L"\nCannot get Task setting pointer: %x")))
        return false;
    // Results of the first two are ignored on purpose: the task serves without them.
    settings->put_AllowDemandStart(VARIANT_FALSE);
    settings->put_DisallowStartIfOnBatteries(VARIANT_FALSE);
    return !Failed(settings->put_StopIfGoingOnBatteries(VARIANT_FALSE),
                   TRACE_NAME(L"\nCannot add idle setting for task setting: %x"));
}

static bool RegisterTask(ITaskFolder* root, ITaskDefinition* definition) {
    BstrHolder name(PNP_TASK_NAME);
    StringVariant user(L"NT AUTHORITY\\System");
    const VARIANT no_password = {};
    StringVariant security(L"");
    ComPointer<IRegisteredTask> registered;
    const bool complete = name.text != nullptr && user.Valid() && security.Valid();
    return !Failed(complete ? root->RegisterTaskDefinition(
                                  name.text, definition, TASK_CREATE_OR_UPDATE, user.value, no_password,
                                  TASK_LOGON_SERVICE_ACCOUNT, security.value, registered.Receive())
                            : E_OUTOFMEMORY,
                   TRACE_NAME(L"\nError saving the Task : %x"));
}

OPERATION(BOOL, CreatePnPTask, ()) {
    wchar_t executable[MAX_PATH];
    GetModulePath(executable);
    if (executable[0] == L'\0') {
        Trace(L"\nGetModulePath returned empty");
        return FALSE;
    }
    ComPointer<ITaskFolder> root;
    ComPointer<ITaskDefinition> definition;
    return CreateDefinition(&root, &definition) && AddEventTrigger(definition.pointer) &&
           AddExecAction(definition.pointer, executable) && ApplySettings(definition.pointer) &&
           RegisterTask(root.pointer, definition.pointer);
}

OPERATION(DWORD WINAPI, CreatePnPTaskThreadProc, ([[maybe_unused]] void* parameter), parameter) {
    if (!InitTaskSchedulerCom())
        return 0;
    while (!CreatePnPTask()) {
        Trace(L"CreatePnPTask failed. Retry after 5 sec.\n");
        Sleep(RETRY_INTERVAL_MS);
    }
    CoUninitialize();
    return 0;
}

OPERATION(BOOL, DeletePnPTask, ()) {
    ComPointer<ITaskService> service;
    ComPointer<ITaskFolder> root;
    if (!OpenRootFolder(g_pnpTaskMessages, &service, &root))
        return FALSE;
    const HRESULT deleted = DeleteTask(root.pointer, PNP_TASK_NAME);
    return SUCCEEDED(deleted) || deleted == NOT_FOUND;
}

OPERATION(BOOL, DeletePlatformTask, ()) {
    ComPointer<ITaskService> service;
    ComPointer<ITaskFolder> root;
    if (!OpenRootFolder(g_platformTaskMessages, &service, &root))
        return FALSE;
    BstrHolder path(PLATFORM_FOLDER);
    ComPointer<ITaskFolder> folder;
    const HRESULT opened =
        path.text != nullptr ? root->GetFolder(path.text, folder.Receive()) : E_OUTOFMEMORY;
    if (Failed(opened, TRACE_NAME(L"Cannot open Mestra folder: %x")))
        return opened == NOT_FOUND;
    const HRESULT deleted = DeleteTask(folder.pointer, PLATFORM_TASK_NAME);
    return SUCCEEDED(deleted) || deleted == NOT_FOUND;
}
