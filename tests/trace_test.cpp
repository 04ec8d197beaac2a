// What --trace-all tells: every operation's entry and end, and why the service acts or does not.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "tests/support/bench.h"

// The operations that the trace tells of.
static const char g_operations[] = R"(
    StartAdaptiveCooling_v2 StartAdaptiveCooling_v3 TerminateAdaptiveCooling_v2
    TerminateAdaptiveCooling_v3 StartAdaptiveCooling TerminateAdaptiveCooling RestartAdaptiveCooling
    AdaptiveCoolingRiseAttachEventOfTwoInOne AdaptiveCoolingRiseDetachEventOfTwoInOne
    AdaptiveCoolingEnableCurrentSettingsOfTwoInOne AdaptiveCoolingDisableCurrentSettingsOfTwoInOne
    AdaptiveCoolingDetectOnHand AdaptiveCoolingUndetectOnHand AdaptiveCoolingEnterFlipMode
    AdaptiveCoolingExitFlipMode AdaptiveCoolingRiseEventOfPivoModeChange
    AdaptiveCoolingRiseEventOfCoolQuietHingeAngle AdaptiveCoolingRiseEventOfDynamicCpuControl
    AdaptiveCoolingRiseEventOfDockModeControlChange AdaptiveCoolingGetRegKeyDwordValue
    AdaptiveCoolingSetRegKeyDwordValue AdaptiveCoolingSetRegDYTCVersion
    AdaptiveCoolingSetRegCurrentOptionStatusForTwoInOne_v3
    AdaptiveCoolingSetRegCurrentOnhandStatusForTwoInOne_v3
    GetAdaptiveCoolingGetCurrentSettingsStatusFromReg SetAdaptiveCoolingCurrentSettingReg
    SetAdaptiveCoolingCreateReg AdaptiveCoolingCreateInitTimeFromReg
    SetAdaptiveCoolingCreateSpcialCoolingTimeReg AdaptiveCoolingInitRegKeyForTwoInOne_v3
    AdaptiveCoolingSetRegCapabilityForTwoInOne_v3 AdaptiveCoolingSetRegCurrentSettingsForTwoInOne_v3
    AdaptiveCoolingGetRegCurrentSettingsForTwoInOne_v3 AdaptiveCoolingSetRegCurrentStatusForTwoInOne_v3
    AdaptiveCoolingInitRegKeyForMultiPivoHinge_v3 AdaptiveCoolingSetRegCapabilityForMultiPivoHinge_v3
    AdaptiveCoolingSetRegCurrentSettingsForMultiPivoHinge_v3
    AdaptiveCoolingGetRegCurrentSettingsForMultiPivoHinge_v3
    AdaptiveCoolingSetRegCurrentStatusForMultiPivoHinge_v3 AdaptiveCoolingInitRegKeyForCoolQuietHinge_v3
    AdaptiveCoolingSetRegCapabilityForCoolQuietHinge_v3
    AdaptiveCoolingSetRegCurrentSettingsForCoolQuietHinge_v3
    AdaptiveCoolingGetRegCurrentSettingsForCoolQuietHinge_v3
    AdaptiveCoolingSetRegCurrentStatusForCoolQuietHinge_v3
    AdaptiveCoolingInitRegKeyForDynamicCpuControl_v3
    AdaptiveCoolingSetRegCapabilityForDynamicCpuControl_v3
    AdaptiveCoolingSetRegCurrentSettingsForDynamicCpuControl_v3
    AdaptiveCoolingGetRegCurrentSettingsForDynamicCpuControl_v3
    AdaptiveCoolingSetRegCurrentStatusForDynamicCpuControl_v3
    AdaptiveCoolingInitRegKeyForDockModeControl_v3 AdaptiveCoolingSetRegCapabilityForDockModeControl_v3
    AdaptiveCoolingSetRegCurrentSettingsForDockModeControl_v3
    AdaptiveCoolingGetRegCurrentSettingsForDockModeControl_v3
    AdaptiveCoolingSetRegCurrentStatusForDockModeControl_v3
    AdaptiveCoolingInitRegKeyForForceHighPerfomanceMode_v3
    AdaptiveCoolingSetRegCapabilityForForceHighPerfomanceMode_v3
    AdaptiveCoolingSetRegCurrentSettingsForForceHighPerfomanceMode_v3
    AdaptiveCoolingGetRegCurrentSettingsForForceHighPerfomanceMode_v3
    AdaptiveCoolingSetRegCurrentStatusForForceHighPerfomanceMode_v3
    InitAdaptiveCoolingInitTabletOptionControlSettings AdaptiveCoolingInitSettings_v2
    SetAdaptiveCoolingCurrentStatus AdaptiveCoolingDoOptionAttached AdaptiveCoolingDoOptionDetached
    AdaptiveCoolingDoOptionDetachedIntoSpecialCoolingMode AdaptiveCoolingInitSettings_v3
    AdaptiveCoolingEnableCurrentSettingsOfTwoInOne_v3 AdaptiveCoolingDisableCurrentSettingsOfTwoInOne_v3
    AdaptiveCoolingEnableDynamicCpuControlSettings_v3 AdaptiveCoolingDisableDynamicCpuControlSettings_v3
    AdaptiveCoolingChageThermalModeByTwoInOne_v3 AdaptiveCoolingDetectOnHand_v3
    AdaptiveCoolingUndetectOnHand_v3 AdaptiveCoolingEnterFlipMode_v3 AdaptiveCoolingExitFlipMode_v3
    AdaptiveCoolingPivoModeChange AdaptiveCoolingThermalModeByHingeSettings_v3
    AdaptiveCoolingDynamicCpuControlSettings_v3 AdaptiveCoolingDockModeControlChange
    AdaptiveCoolingInitSettingsTwoInOne_v3 AdaptiveCoolingInitSettingsMultiPivoHinge_v3
    AdaptiveCoolingInitSettingsCoolQuietHinge_v3 AdaptiveCoolingInitSettingsDynamicCpuControl_v3
    AdaptiveCoolingInitSettingsDockModeControl_v3 AdaptiveCoolingInitSettingsForceHighPerfomanceMode_v3
    AdaptiveCoolingRetireWorkers AdaptiveCoolingCreateWorkerThread AdaptiveCoolingTerminateWorkerThread
    AdaptiveCoolingCreateInitilizeWorkerThread AdaptiveCoolingTerminateInitilizeWorkerThread
    AdaptiveCoolingRiseEventOfOptionAttached AdaptiveCoolingRiseEventOfOptionDetached
    AdaptiveCoolingWorkerThread_v1 AdaptiveCoolingInitilizeWorkerThread
    AdaptiveCoolingGetCurrentBIOSInterfaceVersion AdaptiveCoolingCheckBIOSVersion
    AdaptiveCoolingGetSystemControlMode AdaptiveCoolingGetFunctionCapability_v3
    AdaptiveCoolingSetCommand_v3 AdaptiveCoolingGetDytcCurrentAvailability AdaptiveCoolingSetNominalMode
    SetAdaptiveCoolingCoolQuite AdaptiveCoolingSetHighPerformanceMode
    AdaptiveCoolingGetDockModeStatusFromBIOS AdaptiveCoolingGetThermalModeStatusFromBIOS
    AdaptiveCoolingGetThermalDiscreteGUPTempertureFromBIOS AdaptiveCoolingGetPivoModeStatusFromBIOS
    AdaptiveCoolingCheckTabletOptionAtachStatus_v1 AdaptiveCoolingQueryTabletOptionAtachStatusVersion
    AdaptiveCoolingSetTwoInOneStatusToCool AdaptiveCoolingSetTwoInOneStatusToHighPerformance
    AdaptiveCoolingSetMultiPivoHingeStatusToClamShell AdaptiveCoolingSetMultiPivoHingeStatusToTablet
    AdaptiveCoolingSetMultiPivoHingeStatusToTent AdaptiveCoolingSetMultiPivoHingeStatusToLayFlat
    AdaptiveCoolingSetCoolQuietHingeStatusToCool AdaptiveCoolingSetCoolQuietHingeStatusToHigh
    AdaptiveCoolingSetDynamicCpuControlStatusToCool AdaptiveCoolingSetDynamicCpuControlStatusToHigh
    AdaptiveCoolingSetDockModeControlToUndocked AdaptiveCoolingSetDockModeControlToDocked
    SetHRSPMode GetSystemBiosVersion LCDCSDisableInhibit CheckSensorAndLidStatus StartLCDCSTimerThread
    LCDCSWatchdogThreadProc LCDCSWatchdogControl LCDCSControl LCDCSStartInhibit LCDCSStopInhibit
    LCDCSGetInhibitCapability GetDevicePath GetSystemTransformation GetSystemDockingTransformation
    ToggleConversionIndicator SetSystemDockingTransformation RotationLockButtonPress
    GetSystemTransformationFromBIOS SystemTransformationGetCurrentSystemStatus
    SystemTransformationUpdateCurrentSystemStatus SystemTransformationEventActionChangeTransformation
    CheckExsitIntelVirtualButtonDevices IsExsitIntelVirtualButtonDevices
    SystemTransformationCheckCurrentSettingsFormReg GetCurrentLidtatus PublishLidStatus PublishLidClosed
    PublishLidOpen SystemTransformationCreateParamatersToReg ConvertToModeName GetCurrentDateAndTime
    UpdatePrevMultimode UpdateCurrentModeRegValue CopyTimeStampToPrev UpdateTimeStampRegValue
    UpdateSettingsMultimodeRegistry UpdateDolbyMultimodeRegistry
    SystemTransformationCreateCurrentStatusToReg SystemTransformationInitReg
    SystemTransformationSetCurrentStatusToReg PublishLidState SystemTransformationCreateReg
    SystemTransformationIsWindows10orLater SystemTransformationSetLaptopIndicatorToLaptop
    SystemTransformationSetLaptopIndicatorToTablet SetDockModeIndicatorToDocked
    SetDockModeIndicatorToUndocked GetCurrentOptionStatusVersion GetCurrentOptionStatusInterfaceType
    GetCurrentOptionStatus SetOptionStatus OptionStatusInit GetLastSystemTransformation
    GetSystemScreenRotationState SetLastSystemTransformationNotebookMode
    SetLastSystemTransformationTabletMode SetSystemScreenRotationStateNotebookMode
    SetSystemScreenRotationStateTabletMode InitSystemTransformationNotebookMode
    NotebookScreenRotationFunctionality TabletScreenRotationFunctionality CheckLegacyTabletModel
    InitPHInterface Initialize_Registry_Type10_Capability Initialize_Registry_Type10_CurrentSetting
    Initialize_Registry_Type10_OverrideSetting Initialize_Registry_Type10_Notification
    Initialize_Registry_Type20_Capability Initialize_Registry_Type20_Notification Initialize_PH_Ex_Thread
    InitPHInterfaceEx FirmwareHasPHPages NotifyPHHotKey IsPHHotKeyOverridden NotifyPHType2Event
    NotifyPHType22Event StartPHWatch InitHarrowRegistryInterface
    SendOneWord OpenPMDriver ClosePMDriver FindDevice GetSystemFamily SendSystemFamilyRequest
    PMDriverIoControl PMDRVSIoControl CreateDriverNotificationEvents RegisterDriverNotificationEvents
    UnregisterDriverNotificationEvents CloseDriverNotificationEvents MakeConnect
    ChkHotkeyEvent HandleCalderLcdCloseOpen HandleHotKey3 DispatchHotKey InitLidBeepIniPaths
    NotifyLidCloseActionNone SetLidBeep HandleLidCloseBeep SuspendSystem ForceSuspendSystem
    HibernateSystem ForcePowerOff TimerThread HandleWakeupEvent HandleBatteryWakeup StandbySystem
    MonitorOffThreadProc StartMonitorOff HandleNotifyEvent TerminalThread
    PowrProfCallNtPowerInformation PowrProfIsPwrHibernateAllowed PowrProfSetSuspendState
    PowrProfGetActivePwrScheme PowrProfSetActivePwrScheme PowrProfReadPwrScheme PowrProfWritePwrScheme
    PowrProfReadGlobalPwrPolicy EnablePrivilege EnableShutdownPrivilege SidToString LoadUserHive
    LoadUserProfileHive GetDefaultUserSidString GetCurrentPowerPolicyIndex ReadGlobalUserPowerPolicy
    ReadUserPowerPolicy WriteDefaultGlobalPowerPolicy WriteDefaultUserPowerPolicy
    ServiceCtrlHandlerEx ReportServiceStatus ReportServicePendingStatus ServiceMain
    WriteHelperRegistryValue ReadHelperRegistryValue IsActiveConsoleSession TurnOffMonitorByDefaultScheme
    EndMonitorOffDialog ShowMonitorOffDialog MonitorOffRequestThreadProc SaveGlobalPowerPolicy
    SaveActivePowerSchemeIndex SaveUserPowerPolicy RestoreUserPowerPolicy HelperLcdOffHandler
    PmHelperCommand RegisterPmHelperWindowClass
    IsINFFileExits GetPMDRVInstallStatus StopPMService GetINFPath GetRunDLLPath CreateINF
    DeleteServiceFiles IsReleaseId1903OrLater GetModulePath InitTaskSchedulerCom CreatePnPTask
    CreatePnPTaskThreadProc DeletePnPTask DeletePlatformTask
    CPUStateC3C4MonitorThreadProc StartCPUMonitorThread Open5nitInterface SetInverterFrequency
    ChangePWMFrequency Close5nitInterface
)";

// These do not end: their thread or process is terminated, or ends itself.
static const char g_endless[] = R"(
    PHThreadProc PHOverrideThreadProc PHType12ThreadProc PHType12OverrideThreadProc PHType13ThreadProc
    PHType13OverrideThreadProc LCDCSWatchdogThreadProc LCDCSTimerThreadProc PmHelperMain
)";

static std::vector<std::string> words_of(const char* text) {
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

// What the scenarios leave out.
static const char g_otherOperations[] = R"(
windows hibernate forbidden | firmware DYTC(0) = 0x30000001 | firmware DYTC(3) = 0x03ff0001
firmware DYTC = 0x1 | firmware GOPT(0) = 0x102 | firmware GOPT(0x100) = 1
firmware GOPT(0x200) = 0x10001 | firmware TABGETSTATE = 8
registry set SVC\Status LastSystemTransformation dword 0
registry set HKLM\HARDWARE\DESCRIPTION\System\BIOS SystemFamily sz "Corbel K11 Tablet" | start
advance 3s | event 0x4012 | firmware GOPT(0x200) = 1 | event 0x4012 | control 134 | control 135
control 138 | firmware THERMALMODE = 3 | advance 2s | event 0x60F0 | event 0x1003 | event 0x2013
event 0x5007 | advance 6s | signal Stop | advance 1s
)";

static void run_traced(const std::string& script, std::set<std::string>* said) {
    Bench bench;
    bench.machine.keep_details = true;
    bench.run(script);
    for (const sim::TraceLine& line : bench.machine.trace) {
        if (line.text.starts_with("says "))
            said->insert(line.text.substr(5, line.text.find('(') - 5));
    }
}

static std::set<std::string> run_scenarios() {
    std::set<std::string> said;
    for (const auto& entry : std::filesystem::directory_iterator(ZORPM_SOURCE_DIR "/scenarios")) {
        if (entry.path().extension() != ".txt")
            continue;
        SCOPED_TRACE(entry.path().string());
        std::ifstream file(entry.path());
        std::stringstream text;
        text << file.rdbuf();
        run_traced(text.str(), &said);
    }
    run_traced(g_otherOperations, &said);
    return said;
}

TEST(Trace, EveryOperationShowsItsEntryAndItsEnd) {
    const std::set<std::string> said = run_scenarios();
    for (const std::string& name : words_of(g_operations)) {
        EXPECT_TRUE(said.contains("Enter " + name)) << name;
        EXPECT_TRUE(said.contains("Return " + name) || said.contains("Exit " + name)) << name;
    }
    for (const std::string& name : words_of(g_endless))
        EXPECT_TRUE(said.contains("Enter " + name)) << name;
}

// What lets go of something only says so in the trace.
TEST(Trace, TheStopsOrder) {
    Bench bench;
    bench.machine.keep_details = true;
    bench.started();
    const size_t first = bench.machine.trace.size();
    bench.run("stop");
    std::string order;
    for (size_t i = first; i < bench.machine.trace.size(); ++i) {
        for (const char* name : {"ReportServiceStatus", "MakeConnect", "Close5nitInterface",
                                 "TerminateAdaptiveCooling", "ClosePMDriver"})
            order += bench.machine.trace[i].text.starts_with(std::string("says Enter ") + name + "(")
                         ? std::string(name) + " "
                         : "";
    }
    EXPECT_EQ("ReportServiceStatus ReportServiceStatus ReportServiceStatus MakeConnect Close5nitInterface "
              "TerminateAdaptiveCooling ReportServiceStatus ClosePMDriver ",
              order);
}

namespace {

struct Decision {
    const char* setup;
    const char* script;
    const char* said; // the whole line
};

} // namespace

// Why the service acts or does not.
static const Decision g_decisions[] = {
    {"firmware DYTC(0) = 0x30000001\nfirmware DYTC(3) = 0x00040001\nfirmware DYTC = 1\n"
     "firmware GOPT(0) = 0x101\nfirmware GOPT(0x100) = 1\nfirmware GOPT(0x200) = 2",
     "control 142", "Option is attached(): only the report is published"},
    {"firmware DYTC(0) = 0x30000001\nfirmware DYTC(3) = 0x00040001\nfirmware DYTC = 1",
     "control 134\nevent 0x4012", "Enabled(): Glbal flag OFF. (function 2)"},
    {"", "event 0x4012", "RouteByVersion(): Routing failed (version 0x0)"},
    {"firmware MHKV = 0x100\nfirmware MHKA = 0xff0fff",
     "registry set SVC\\Parameters\\OverrideSetting @ dword 0x800\nadvance 1s\nevent 0x100C",
     "DispatchHotKey(): 0x100c is taken over by a client"},
    {"", "event 0x5009", "FollowPosture(): no Harrow platform, nothing to do"},
    {"hardware \"INT33D6\" present\nfirmware GMMS = 1", "event 0x60C0",
     "DriveIndicator(): no support, laptop/slate indicator left alone"},
    {"firmware GMMS = 9", "event 0x60C0", "DrivePostureIndicator(): no posture 9, indicator left alone"},
    {"", "registry delete SVC\\Parameters2\\Type20\\Notification\nevent 0x5012",
     "FlipBits(0x2): no key "
     "SYSTEM\\CurrentControlSet\\Services\\ZORPMSVC\\Parameters2\\Type20\\Notification, "
     "nobody is told"},
    {"", "event 0x4003", "ReturnToSleepOnDisconnect(): no return to sleep is armed"},
    {"", "handler power event 4", "HandlePowerEvent(): 0x4 is of no interest"},
};

TEST(Trace, DecisionsAreTold) {
    for (const Decision& row : g_decisions) {
        SCOPED_TRACE(row.said);
        Bench bench;
        bench.machine.keep_details = true;
        bench.started(row.setup);
        bench.run(row.script);
        const auto& lines = bench.machine.trace;
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const sim::TraceLine& line) {
            return !line.effect && line.text == std::string("says ") + row.said;
        }));
    }
}

// Arguments are whole numbers and texts; an answer is a word given out, by an operation that has not failed.
TEST(Trace, ArgumentsAndAnswersAreShown) {
    Bench bench;
    bench.machine.keep_details = true;
    bench.started("firmware MHKV = 0x234\nfirmware GMMS fails");
    std::set<std::string> said;
    for (const sim::TraceLine& line : bench.machine.trace)
        said.insert(line.text);
    EXPECT_TRUE(said.contains("says Enter PMDriverIoControl(0x222434, 0x0)"));
    EXPECT_TRUE(said.contains("says Return PMDriverIoControl() 0x00000001, 0x234"));
    EXPECT_TRUE(said.contains("says Return PMDriverIoControl() 0x00000000"));
    EXPECT_TRUE(said.contains("says Enter FindDevice(\"INT33D6\")"));
}
