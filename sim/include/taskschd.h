// The Task Scheduler 2.0. Methods that the service does not use only keep their places.
#pragma once

#include <objbase.h>
#include <oleauto.h>

constexpr CLSID CLSID_TaskScheduler = {
    0x0F87369F, 0xA4E5, 0x4CFC, {0xBD, 0x3E, 0x73, 0xE6, 0x15, 0x45, 0x72, 0xDD}};
constexpr IID IID_ITaskService = {
    0x2FABA4C7, 0x4DA9, 0x4013, {0x96, 0x97, 0x20, 0xCC, 0x3F, 0xD4, 0x0F, 0x85}};
constexpr IID IID_IExecAction = {
    0x4C3D624D, 0xFD6B, 0x49A3, {0xB9, 0xB7, 0x09, 0xCB, 0x3C, 0xD3, 0xF0, 0x47}};

enum TASK_TRIGGER_TYPE2 { TASK_TRIGGER_EVENT = 0 };
enum TASK_ACTION_TYPE { TASK_ACTION_EXEC = 0 };
enum TASK_LOGON_TYPE { TASK_LOGON_NONE = 0, TASK_LOGON_SERVICE_ACCOUNT = 5 };
enum TASK_CREATION { TASK_CREATE_OR_UPDATE = 6 };

struct ITrigger : public IDispatch {
    SIM_UNUSED_METHOD(get_Type)
    SIM_UNUSED_METHOD(get_Id)
    virtual HRESULT STDMETHODCALLTYPE put_Id(BSTR id) = 0;
    SIM_UNUSED_PROPERTY(Repetition)
    SIM_UNUSED_PROPERTY(ExecutionTimeLimit)
    SIM_UNUSED_PROPERTY(StartBoundary)
    SIM_UNUSED_PROPERTY(EndBoundary)
    SIM_UNUSED_PROPERTY(Enabled)
};

struct ITriggerCollection : public IDispatch {
    SIM_UNUSED_METHOD(get_Count)
    SIM_UNUSED_METHOD(get_Item)
    SIM_UNUSED_METHOD(get__NewEnum)
    virtual HRESULT STDMETHODCALLTYPE Create(TASK_TRIGGER_TYPE2 type, ITrigger** trigger) = 0;
    SIM_UNUSED_METHOD(Remove)
    SIM_UNUSED_METHOD(Clear)
};

struct IAction : public IDispatch {
    SIM_UNUSED_PROPERTY(Id)
    SIM_UNUSED_METHOD(get_Type)
};

struct IExecAction : public IAction {
    SIM_UNUSED_METHOD(get_Path)
    virtual HRESULT STDMETHODCALLTYPE put_Path(BSTR path) = 0;
    SIM_UNUSED_METHOD(get_Arguments)
    virtual HRESULT STDMETHODCALLTYPE put_Arguments(BSTR arguments) = 0;
    SIM_UNUSED_PROPERTY(WorkingDirectory)
};

struct IActionCollection : public IDispatch {
    SIM_UNUSED_METHOD(get_Count)
    SIM_UNUSED_METHOD(get_Item)
    SIM_UNUSED_METHOD(get__NewEnum)
    SIM_UNUSED_PROPERTY(XmlText)
    virtual HRESULT STDMETHODCALLTYPE Create(TASK_ACTION_TYPE type, IAction** action) = 0;
    SIM_UNUSED_METHOD(Remove)
    SIM_UNUSED_METHOD(Clear)
    SIM_UNUSED_PROPERTY(Context)
};

struct ITaskSettings : public IDispatch {
    SIM_UNUSED_METHOD(get_AllowDemandStart)
    virtual HRESULT STDMETHODCALLTYPE put_AllowDemandStart(VARIANT_BOOL allow) = 0;
    SIM_UNUSED_PROPERTY(RestartInterval)
    SIM_UNUSED_PROPERTY(RestartCount)
    SIM_UNUSED_PROPERTY(MultipleInstances)
    SIM_UNUSED_METHOD(get_StopIfGoingOnBatteries)
    virtual HRESULT STDMETHODCALLTYPE put_StopIfGoingOnBatteries(VARIANT_BOOL stop) = 0;
    SIM_UNUSED_METHOD(get_DisallowStartIfOnBatteries)
    virtual HRESULT STDMETHODCALLTYPE put_DisallowStartIfOnBatteries(VARIANT_BOOL disallow) = 0;
    SIM_UNUSED_PROPERTY(AllowHardTerminate)
    SIM_UNUSED_PROPERTY(StartWhenAvailable)
    SIM_UNUSED_PROPERTY(XmlText)
    SIM_UNUSED_PROPERTY(RunOnlyIfNetworkAvailable)
    SIM_UNUSED_PROPERTY(ExecutionTimeLimit)
    SIM_UNUSED_PROPERTY(Enabled)
    SIM_UNUSED_PROPERTY(DeleteExpiredTaskAfter)
    SIM_UNUSED_PROPERTY(Priority)
    SIM_UNUSED_PROPERTY(Compatibility)
    SIM_UNUSED_PROPERTY(Hidden)
    SIM_UNUSED_PROPERTY(IdleSettings)
    SIM_UNUSED_PROPERTY(RunOnlyIfIdle)
    SIM_UNUSED_PROPERTY(WakeToRun)
    SIM_UNUSED_PROPERTY(NetworkSettings)
};

struct ITaskDefinition : public IDispatch {
    SIM_UNUSED_PROPERTY(RegistrationInfo)
    virtual HRESULT STDMETHODCALLTYPE get_Triggers(ITriggerCollection** triggers) = 0;
    SIM_UNUSED_METHOD(put_Triggers)
    virtual HRESULT STDMETHODCALLTYPE get_Settings(ITaskSettings** settings) = 0;
    SIM_UNUSED_METHOD(put_Settings)
    SIM_UNUSED_PROPERTY(Data)
    SIM_UNUSED_PROPERTY(Principal)
    virtual HRESULT STDMETHODCALLTYPE get_Actions(IActionCollection** actions) = 0;
    SIM_UNUSED_METHOD(put_Actions)
    SIM_UNUSED_PROPERTY(XmlText)
};

struct IRegisteredTask : public IDispatch {};

struct ITaskFolder : public IDispatch {
    SIM_UNUSED_METHOD(get_Name)
    SIM_UNUSED_METHOD(get_Path)
    virtual HRESULT STDMETHODCALLTYPE GetFolder(BSTR path, ITaskFolder** folder) = 0;
    SIM_UNUSED_METHOD(GetFolders)
    SIM_UNUSED_METHOD(CreateFolder)
    SIM_UNUSED_METHOD(DeleteFolder)
    SIM_UNUSED_METHOD(GetTask)
    SIM_UNUSED_METHOD(GetTasks)
    virtual HRESULT STDMETHODCALLTYPE DeleteTask(BSTR name, LONG flags) = 0;
    SIM_UNUSED_METHOD(RegisterTask)
    virtual HRESULT STDMETHODCALLTYPE RegisterTaskDefinition(BSTR path, ITaskDefinition* definition,
                                                             LONG flags, VARIANT user, VARIANT password,
                                                             TASK_LOGON_TYPE logon, VARIANT security,
                                                             IRegisteredTask** task) = 0;
    SIM_UNUSED_METHOD(GetSecurityDescriptor)
    SIM_UNUSED_METHOD(SetSecurityDescriptor)
};

struct ITaskService : public IDispatch {
    virtual HRESULT STDMETHODCALLTYPE GetFolder(BSTR path, ITaskFolder** folder) = 0;
    SIM_UNUSED_METHOD(GetRunningTasks)
    virtual HRESULT STDMETHODCALLTYPE NewTask(DWORD flags, ITaskDefinition** definition) = 0;
    virtual HRESULT STDMETHODCALLTYPE Connect(VARIANT server, VARIANT user, VARIANT domain,
                                              VARIANT password) = 0;
    SIM_UNUSED_METHOD(get_Connected)
    SIM_UNUSED_METHOD(get_TargetServer)
    SIM_UNUSED_METHOD(get_ConnectedUser)
    SIM_UNUSED_METHOD(get_ConnectedDomain)
    SIM_UNUSED_METHOD(get_HighestVersion)
};
