#include "sim/windows/task_scheduler.h"

#include <map>
#include <taskschd.h>

#include "sim/script/commands.h"
#include "sim/script/expectations.h"
#include "sim/windows/com.h"

namespace sim {

constexpr HRESULT NOT_FOUND = static_cast<HRESULT>(0x80070002u);
constexpr HRESULT NOT_RUNNING = static_cast<HRESULT>(0x80041315u);   // SCHED_E_SERVICE_NOT_RUNNING
constexpr HRESULT NOT_CONNECTED = static_cast<HRESULT>(0x800704E3u); // ERROR_ONLY_IF_CONNECTED
constexpr HRESULT UNAVAILABLE = static_cast<HRESULT>(0x800706BAu);   // RPC_S_SERVER_UNAVAILABLE
constexpr HRESULT INCOMPLETE = static_cast<HRESULT>(0x8004131Fu);

namespace {

using Folder = std::map<std::string, ScheduledTask>; // by lower-case name

struct TaskScheduler {
    bool running = true;
    std::map<std::string, Folder> folders = {{"\\", {}}}; // by lower-case path
};

} // namespace

static TaskScheduler& scheduler() {
    return machine_state<TaskScheduler>();
}

// "Mestra" and "\Mestra" are the same folder.
static std::string folder_path(const std::string& folder) {
    return folder.empty() || folder[0] != '\\' ? "\\" + folder : folder;
}

static Folder* find_folder(const std::string& folder) {
    auto found = scheduler().folders.find(lower(folder_path(folder)));
    return found != scheduler().folders.end() ? &found->second : nullptr;
}

const ScheduledTask* find_task(const std::string& folder, const std::string& name) {
    const Folder* tasks = find_folder(folder);
    if (tasks == nullptr)
        return nullptr;
    auto found = tasks->find(lower(name));
    return found != tasks->end() ? &found->second : nullptr;
}

size_t task_count(const std::string& folder) {
    const Folder* tasks = find_folder(folder);
    return tasks != nullptr ? tasks->size() : 0;
}

// ---- the parts of a definition; each shows the task that it belongs to ----

namespace {

using TaskRef = std::shared_ptr<ScheduledTask>;

constexpr IID EVENT_TRIGGER = {0xD45B0167, 0x9653, 0x4EEF, {0xB9, 0x4F, 0x07, 0x32, 0xCA, 0x7A, 0xF2, 0x51}};

struct EventTrigger : ITrigger {
    SIM_UNUSED_METHOD(get_Subscription)
    virtual HRESULT STDMETHODCALLTYPE put_Subscription(BSTR query) = 0;
    SIM_UNUSED_PROPERTY(Delay)
    SIM_UNUSED_PROPERTY(ValueQueries)
};

struct TriggerDouble : ComDouble<EventTrigger> {
    TaskRef task;
    HRESULT STDMETHODCALLTYPE put_Id(BSTR id) override {
        COM_CALL(*this);
        task->trigger_id = bstr_text(id, "put_Id");
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_Subscription(BSTR query) override {
        COM_CALL(*this);
        task->subscription = bstr_text(query, "put_Subscription");
        return S_OK;
    }
};

struct TriggersDouble : ComDouble<ITriggerCollection> {
    TaskRef task;
    HRESULT STDMETHODCALLTYPE Create(TASK_TRIGGER_TYPE2 type, ITrigger** trigger) override {
        COM_CALL(*this);
        if (type != TASK_TRIGGER_EVENT)
            return E_INVALIDARG;
        auto* made = com_make<TriggerDouble>("ITrigger");
        made->also = &EVENT_TRIGGER;
        made->task = task;
        *trigger = made;
        return S_OK;
    }
};

struct ActionDouble : ComDouble<IExecAction> {
    TaskRef task;
    HRESULT STDMETHODCALLTYPE put_Path(BSTR path) override {
        COM_CALL(*this);
        task->path = bstr_text(path, "put_Path");
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_Arguments(BSTR arguments) override {
        COM_CALL(*this);
        task->arguments = bstr_text(arguments, "put_Arguments");
        return S_OK;
    }
};

struct ActionsDouble : ComDouble<IActionCollection> {
    TaskRef task;
    HRESULT STDMETHODCALLTYPE Create(TASK_ACTION_TYPE type, IAction** action) override {
        COM_CALL(*this);
        if (type != TASK_ACTION_EXEC)
            return E_INVALIDARG;
        auto* made = com_make<ActionDouble>("IAction");
        made->also = &IID_IExecAction;
        made->task = task;
        *action = made;
        return S_OK;
    }
};

struct SettingsDouble : ComDouble<ITaskSettings> {
    TaskRef task;
    HRESULT STDMETHODCALLTYPE put_AllowDemandStart(VARIANT_BOOL allow) override {
        COM_CALL(*this);
        task->allow_demand_start = allow != VARIANT_FALSE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_DisallowStartIfOnBatteries(VARIANT_BOOL disallow) override {
        COM_CALL(*this);
        task->disallow_start_on_batteries = disallow != VARIANT_FALSE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_StopIfGoingOnBatteries(VARIANT_BOOL stop) override {
        COM_CALL(*this);
        task->stop_on_batteries = stop != VARIANT_FALSE;
        return S_OK;
    }
};

// Hands out a part of the definition's task.
template <class Part, class Interface>
static HRESULT hand_out(const TaskRef& task, const char* name, Interface** out) {
    auto* made = com_make<Part>(name);
    made->task = task;
    *out = made;
    return S_OK;
}

struct DefinitionDouble : ComDouble<ITaskDefinition> {
    TaskRef task = std::make_shared<ScheduledTask>();
    HRESULT STDMETHODCALLTYPE get_Triggers(ITriggerCollection** triggers) override {
        COM_CALL(*this);
        return hand_out<TriggersDouble>(task, "ITriggerCollection", triggers);
    }
    HRESULT STDMETHODCALLTYPE get_Settings(ITaskSettings** settings) override {
        COM_CALL(*this);
        return hand_out<SettingsDouble>(task, "ITaskSettings", settings);
    }
    HRESULT STDMETHODCALLTYPE get_Actions(IActionCollection** actions) override {
        COM_CALL(*this);
        return hand_out<ActionsDouble>(task, "IActionCollection", actions);
    }
};

// ---- folders and the service ----

constexpr DWORD TASK_CREATE = 2;
constexpr DWORD TASK_UPDATE = 4;
constexpr HRESULT ALREADY_EXISTS = static_cast<HRESULT>(0x800700B7);
constexpr HRESULT NONE_MAPPED = static_cast<HRESULT>(0x80070534);
constexpr HRESULT INVALID_DESCRIPTOR = static_cast<HRESULT>(0x8007053A);

struct RegisteredDouble : ComDouble<IRegisteredTask> {};

struct FolderDouble : ComDouble<ITaskFolder> {
    std::string path;

    static HRESULT open(const std::string& path, ITaskFolder** folder) {
        if (!scheduler().running)
            return UNAVAILABLE;
        if (find_folder(path) == nullptr)
            return NOT_FOUND;
        auto* made = com_make<FolderDouble>("ITaskFolder");
        made->path = folder_path(path);
        *folder = made;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetFolder(BSTR name, ITaskFolder** folder) override {
        COM_CALL(*this);
        const std::string below = bstr_text(name, "GetFolder");
        return open(path == "\\" ? below : path + "\\" + below, folder);
    }

    HRESULT STDMETHODCALLTYPE DeleteTask(BSTR name, LONG flags) override {
        COM_CALL(*this);
        const std::string text = bstr_text(name, "DeleteTask");
        HRESULT result = flags != 0 ? E_INVALIDARG : UNAVAILABLE;
        if (flags == 0 && scheduler().running)
            result = find_folder(path)->erase(lower(text)) != 0 ? S_OK : NOT_FOUND;
        trace("call DeleteTask(\"%s\", \"%s\") = 0x%x", path.c_str(), text.c_str(),
              static_cast<unsigned>(result));
        return result;
    }

    // What the scheduler says to a registration's flags, account and security.
    HRESULT registration_result(const ScheduledTask& task) const {
        if (!scheduler().running)
            return UNAVAILABLE;
        const bool exists = find_folder(path)->contains(lower(task.name));
        if (task.flags == TASK_CREATE && exists)
            return ALREADY_EXISTS;
        if (task.flags == TASK_UPDATE && !exists)
            return NOT_FOUND;
        if (task.flags == 0 || (task.flags & ~static_cast<DWORD>(TASK_CREATE_OR_UPDATE)) != 0 ||
            task.logon != TASK_LOGON_SERVICE_ACCOUNT || task.has_password)
            return E_INVALIDARG;
        if (!same_text(task.user, "NT AUTHORITY\\System"))
            return NONE_MAPPED;
        return task.security.empty() ? S_OK : INVALID_DESCRIPTOR;
    }

    HRESULT STDMETHODCALLTYPE RegisterTaskDefinition(BSTR name, ITaskDefinition* definition, LONG flags,
                                                     VARIANT user, VARIANT password, TASK_LOGON_TYPE logon,
                                                     VARIANT security, IRegisteredTask** task) override {
        COM_CALL(*this);
        auto* own = dynamic_cast<DefinitionDouble*>(definition);
        if (own == nullptr)
            return E_INVALIDARG;
        com_use(*own, "RegisterTaskDefinition");
        ScheduledTask made = *own->task;
        made.name = bstr_text(name, "RegisterTaskDefinition");
        made.user = variant_text(user, "RegisterTaskDefinition");
        made.security = variant_text(security, "RegisterTaskDefinition");
        made.has_password = password.vt != VT_EMPTY;
        made.logon = static_cast<DWORD>(logon);
        made.flags = static_cast<DWORD>(flags);
        HRESULT result = made.path.empty() ? INCOMPLETE : registration_result(made);
        if (result == S_OK) {
            (*find_folder(path))[lower(made.name)] = made;
            *task = com_make<RegisteredDouble>("IRegisteredTask");
        }
        trace("call RegisterTaskDefinition(\"%s\") = 0x%x", made.name.c_str(), static_cast<unsigned>(result));
        return result;
    }
};

struct ServiceDouble : ComDouble<ITaskService> {
    bool connected = false;

    HRESULT STDMETHODCALLTYPE Connect(VARIANT server, VARIANT user, VARIANT domain,
                                      VARIANT password) override {
        COM_CALL(*this);
        for (const VARIANT* argument : {&server, &user, &domain, &password}) {
            if (argument->vt != VT_EMPTY)
                return E_INVALIDARG;
        }
        if (!scheduler().running)
            return NOT_RUNNING;
        connected = true;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetFolder(BSTR path, ITaskFolder** folder) override {
        COM_CALL(*this);
        const std::string text = bstr_text(path, "GetFolder");
        return connected ? FolderDouble::open(text, folder) : NOT_CONNECTED;
    }
    HRESULT STDMETHODCALLTYPE NewTask(DWORD flags, ITaskDefinition** definition) override {
        COM_CALL(*this);
        if (flags != 0)
            return E_INVALIDARG;
        if (!connected)
            return NOT_CONNECTED;
        *definition = com_make<DefinitionDouble>("ITaskDefinition");
        return S_OK;
    }
};

} // namespace

static HRESULT create_service(REFIID wanted, void** object) {
    if (wanted != IID_ITaskService)
        return E_NOINTERFACE;
    *object = static_cast<ITaskService*>(com_make<ServiceDouble>("ITaskService"));
    return S_OK;
}

static const ComClasses g_taskClass({CLSID_TaskScheduler, nullptr, [] { return true; }, CLSCTX_INPROC_SERVER,
                                     create_service});

// ---- commands ----

static Action compile_scheduler(Tokens& tokens) {
    const bool running = tokens.choice({"missing", "present"}) == 1;
    return [running] { scheduler().running = running; };
}

static Action compile_task(Tokens& tokens) {
    const std::string folder = tokens.text();
    const std::string name = tokens.text();
    tokens.choice({"present"});
    return [folder, name] {
        ScheduledTask task;
        task.name = name;
        scheduler().folders[lower(folder_path(folder))][lower(name)] = task;
    };
}

static Action compile_check_task(Tokens& tokens) {
    const std::string folder = tokens.text();
    const std::string name = tokens.text();
    const bool present = tokens.choice({"absent", "present"}) == 1;
    return [folder, name, present] {
        expectation(
            (find_task(folder, name) != nullptr) == present,
            format("task \"%s\" \"%s\" %s", folder.c_str(), name.c_str(), present ? "present" : "absent"));
    };
}

static const Commands g_commands({
    {"windows scheduler", Use::Machine, compile_scheduler, "missing|present - the task scheduler"},
    {"windows task", Use::Machine, compile_task,
     "\"FOLDER\" \"NAME\" present - a task that is already registered"},
    {"check task", Use::Check, compile_check_task,
     "\"FOLDER\" \"NAME\" present|absent - whether it is registered"},
});

} // namespace sim
