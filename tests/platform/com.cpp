// Apartments, strings, classes; the task scheduler.
#include <windows.h>
#include <objbase.h>
#include <oleauto.h>
#include <taskschd.h>

#include "tests/platform/probe.h"

static const GUID g_noObject = {0x5A6F7270, 0x6D50, 0x726F, {0x62, 0x65, 0, 0, 0, 0, 0, 2}};
static const IID g_unknown = {0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

static DWORD WINAPI join_multithreaded(void*) {
    const HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (SUCCEEDED(result))
        CoUninitialize();
    return static_cast<DWORD>(result);
}

static HRESULT secure() {
    return CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_PKT,
                                RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
}

static void probe_apartments() {
    group("com");
    CLSID found = {};
    void* object = nullptr;
    fact("security-early", secure());
    fact("create-early",
         CoCreateInstance(CLSID_TaskScheduler, nullptr, CLSCTX_INPROC_SERVER, IID_ITaskService, &object));
    fact("first", CoInitialize(nullptr));
    fact("second", CoInitialize(nullptr));
    fact("other-kind", CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    fact("other-thread", on_thread(join_multithreaded, nullptr));
    CoUninitialize();
    fact("other-kind-still", CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    CoUninitialize();
    fact("multithreaded", CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    fact("multithreaded-again", CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    fact("multithreaded-other-kind", CoInitialize(nullptr));
    CoUninitialize();
    CoUninitialize();
    fact("apartment", CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    fact("security", secure());
    fact("security-again", secure());
    fact("class-unknown", CoCreateInstance(g_noObject, nullptr, CLSCTX_INPROC_SERVER, g_unknown, &object));
    fact("class-unknown-object", object == nullptr);
    fact("program-unknown", CLSIDFromProgID(L"Zorpm.None", &found));
    fact("interface-unknown",
         CoCreateInstance(CLSID_TaskScheduler, nullptr, CLSCTX_INPROC_SERVER, g_noObject, &object));
    fact("interface-unknown-object", object == nullptr);
    fact("other-context",
         CoCreateInstance(CLSID_TaskScheduler, nullptr, CLSCTX_REMOTE_SERVER, IID_ITaskService, &object));
}

static void probe_strings() {
    group("bstr");
    BSTR text = SysAllocString(L"abc");
    fact_text("text", text);
    DWORD bytes = 0;
    CopyMemory(&bytes, reinterpret_cast<const BYTE*>(text) - sizeof(bytes), sizeof(bytes));
    fact("bytes", bytes);
    fact("null", SysAllocString(nullptr) == nullptr);
    BSTR empty = SysAllocString(L"");
    fact("empty", empty != nullptr && empty[0] == 0);
    SysFreeString(nullptr);
    SysFreeString(empty);
    VARIANT variant = {};
    variant.vt = VT_BSTR;
    variant.bstrVal = text;
    fact("clear", VariantClear(&variant));
    fact("cleared", variant.vt);
    fact("clear-empty", VariantClear(&variant));
    fact("variant-bytes", sizeof(VARIANT));
}

// ---- the task scheduler ----

static HRESULT get_folder(ITaskService* service, const WCHAR* path, ITaskFolder** folder) {
    *folder = nullptr;
    BSTR text = SysAllocString(path);
    const HRESULT result = service->GetFolder(text, folder);
    SysFreeString(text);
    return result;
}

static HRESULT get_task_deleted(ITaskFolder* folder, const WCHAR* name, LONG flags = 0) {
    BSTR text = SysAllocString(name);
    const HRESULT result = folder->DeleteTask(text, flags);
    SysFreeString(text);
    return result;
}

static HRESULT enter(ITaskFolder* folder, ITaskDefinition* task, LONG flags, const WCHAR* account,
                     TASK_LOGON_TYPE logon) {
    BSTR name = SysAllocString(L"ZorpmProbe");
    VARIANT user = {};
    VARIANT none = {};
    user.vt = VT_BSTR;
    user.bstrVal = SysAllocString(account);
    IRegisteredTask* made = nullptr;
    const HRESULT result = folder->RegisterTaskDefinition(name, task, flags, user, none, logon, none, &made);
    if (made != nullptr)
        made->Release();
    VariantClear(&user);
    SysFreeString(name);
    return result;
}

static void fill(ITaskDefinition* task) {
    ITriggerCollection* triggers = nullptr;
    fact("triggers", task->get_Triggers(&triggers));
    ITrigger* trigger = nullptr;
    fact("trigger", triggers->Create(TASK_TRIGGER_EVENT, &trigger));
    if (trigger != nullptr)
        trigger->Release();
    triggers->Release();
    ITaskSettings* settings = nullptr;
    fact("settings", task->get_Settings(&settings));
    fact("on-batteries", settings->put_DisallowStartIfOnBatteries(VARIANT_FALSE));
    fact("going-on-batteries", settings->put_StopIfGoingOnBatteries(VARIANT_FALSE));
    fact("on-demand", settings->put_AllowDemandStart(VARIANT_TRUE));
    settings->Release();
}

static void add_action(ITaskDefinition* task) {
    IActionCollection* actions = nullptr;
    IAction* action = nullptr;
    IExecAction* execute = nullptr;
    fact("actions", task->get_Actions(&actions));
    fact("action", actions->Create(TASK_ACTION_EXEC, &action));
    fact("action-as-command", action->QueryInterface(IID_IExecAction, reinterpret_cast<void**>(&execute)));
    BSTR path = SysAllocString(L"C:\\Windows\\System32\\none.exe");
    void* other = nullptr;
    fact("action-unknown-interface", action->QueryInterface(g_noObject, &other));
    fact("action-unknown-interface-object", other == nullptr);
    fact("action-itself", action->QueryInterface(g_unknown, &other));
    static_cast<IUnknown*>(other)->Release();
    fact("action-path", execute->put_Path(path));
    fact("action-arguments", execute->put_Arguments(nullptr));
    SysFreeString(path);
    execute->Release();
    action->Release();
    actions->Release();
}

static void probe_folder_of_tasks(ITaskService* service, ITaskFolder* root) {
    ITaskDefinition* task = nullptr;
    fact("new", service->NewTask(0, &task));
    constexpr LONG CREATE = 2;
    constexpr LONG UPDATE = 4;
    constexpr LONG EITHER = 6;
    static const WCHAR system[] = L"NT AUTHORITY\\System";
    fill(task);
    fact("enter-without-action", enter(root, task, EITHER, system, TASK_LOGON_SERVICE_ACCOUNT));
    add_action(task);
    fact("update-missing", enter(root, task, UPDATE, system, TASK_LOGON_SERVICE_ACCOUNT));
    fact("enter-account-unknown", enter(root, task, EITHER, L"zorpm-nobody", TASK_LOGON_SERVICE_ACCOUNT));
    get_task_deleted(root, L"ZorpmProbe");
    fact("enter", enter(root, task, EITHER, system, TASK_LOGON_SERVICE_ACCOUNT));
    fact("create-existing", enter(root, task, CREATE, system, TASK_LOGON_SERVICE_ACCOUNT));
    fact("update", enter(root, task, UPDATE, system, TASK_LOGON_SERVICE_ACCOUNT));
    fact("enter-again", enter(root, task, EITHER, system, TASK_LOGON_SERVICE_ACCOUNT));
    fact("delete", get_task_deleted(root, L"ZorpmProbe"));
    fact("delete-again", get_task_deleted(root, L"ZorpmProbe"));
    fact("delete-flags", get_task_deleted(root, L"ZorpmProbe", 1));
    fact("release", task->Release());
}

static void probe_tasks() {
    group("task");
    ITaskService* service = nullptr;
    fact("service", CoCreateInstance(CLSID_TaskScheduler, nullptr, CLSCTX_INPROC_SERVER, IID_ITaskService,
                                     reinterpret_cast<void**>(&service)));
    ITaskFolder* folder = nullptr;
    VARIANT none = {};
    fact("folder-early", get_folder(service, L"\\", &folder));
    fact("connect", service->Connect(none, none, none, none));
    fact("connect-again", service->Connect(none, none, none, none));
    fact("folder", get_folder(service, L"\\", &folder));
    if (folder == nullptr)
        return;
    ITaskFolder* missing = nullptr;
    fact("folder-missing", get_folder(service, L"\\ZorpmNone", &missing));
    fact("folder-missing-object", missing == nullptr);
    fact("folder-without-backslash", get_folder(service, L"ZorpmNone", &missing));
    fact("delete-missing", get_task_deleted(folder, L"ZorpmNone"));
    ITaskDefinition* task = nullptr;
    fact("new-flags", service->NewTask(1, &task));
    probe_folder_of_tasks(service, folder);
    fact("release-folder", folder->Release());
    fact("release-service", service->Release());
}

void probe_com() {
    probe_strings();
    probe_apartments();
    probe_tasks();
    CoUninitialize();
}
