// Service main and entry: the start, its failures, the stop, the run modes.
#include "tests/support/sweep.h"

TEST(Service, StartReportsEachCheckPointAndStopTearsDownInOrder) {
    Bench bench;
    bench.run(R"(
        start | expect next status START_PENDING 0/0 checkpoint 1
        expect next status START_PENDING 0/0 checkpoint 2
        expect next status START_PENDING 0/0 checkpoint 3
        expect next status START_PENDING 0/0 checkpoint 4
        expect next request CONNECT(0x1) = 0x0
        expect next registry create HKLM\Software\ZOR\ZORPM
        expect next registry HKLM\Software\ZOR\ZORPM CapaLidBeep = 0x1
        expect next registry HKLM\Software\ZOR\ZORPM SvcCtrlCodeCapa = 0x3
        expect next registry HKLM\Software\ZOR\ZORPM HibFileCreation = 0x1
        expect next status START_PENDING 0/0 checkpoint 5 | expect request MHKV(0x0) = 0x200
        expect request DYTC(0x0) = 0x0 | expect registry create SVC\Transform\Parameters
        expect request GMMS(0x0) = 0x1 | expect status RUNNING 0/0
        expect request REGISTEREVENTS(48 bytes) | check handles 0
        stop | expect next status STOP_PENDING 0/0 checkpoint 1
        expect next status STOP_PENDING 0/0 checkpoint 2
        expect next status STOP_PENDING 0/0 checkpoint 3
        expect next request CONNECT(0x0) = 0x0
        expect next registry delete HKLM\Software\ZOR\ZORPM | expect next status STOPPED 0/0
        expect next process "" ended 0 | expect no request UNREGISTEREVENTS* | check handles 0
        start | advance 1s | check status RUNNING 0/0)");
}

TEST(Service, TheStartsOrderOfSubsystems) {
    // Each subsystem's first visible effect, on a machine that has them all.
    Bench bench;
    bench.run(R"(
        firmware DYTC(0) = 0x30000001
        registry set HKLM\HARDWARE\DESCRIPTION\System\BIOS SystemFamily sz "Corbel K21 Tablet"
        registry set HKLM\HARDWARE\DESCRIPTION\System\BIOS BIOSVersion sz "GD1" | start
        expect registry create SVC\Parameters\Capability
        expect registry create SVC\Parameters2\Type10\Capability
        expect registry create SVC\Configurations | expect registry SVC\TMC Version = 0x3000
        expect request TABGETSTATE(0x0) = 0x0 | expect registry create SVC\Transform\Parameters
        expect request SYSTEMFAMILY(0x0) = 0x0 | expect status RUNNING 0/0)");
}

TEST(Service, TheDriverIsProbedElevenTimes) {
    Bench bench;
    bench.machine.count_calls = true;
    bench.run(R"(
        driver missing | start | expect status START_PENDING 0/0 checkpoint 3
        advance 3299ms | check status START_PENDING
        advance 1ms | expect status STOPPED 1066/680002 | check status STOPPED 1066/680002)");
    // The eleven probes are the only device openings.
    EXPECT_EQ(11u, bench.machine.call_counts["CreateFileW"]);
    EXPECT_EQ(0u, sim::handle_count(sim::Kind::File));
}

// The disconnect of the driver takes 400 s: nothing that a thread would send comes meanwhile.
TEST(Service, TheStopEndsEveryThread) {
    Bench bench;
    bench.started(R"(
        firmware QCPULEVELCTRL(0) = 1 | firmware QCPULEVELCTRL(1) = 5 | firmware GETLIDSTATUS = 2
        firmware LCDCSGETSTATE = 3 | firmware CONNECT(0) takes 400s)");
    bench.run(R"(
        control 131 | advance 10s | expect request GETLIDSTATUS* | expect request GETTIMERRESOL*
        stop)");
    for (const char* name : {"PHThreadProc", "PHOverrideThreadProc", "CPUStateC3C4MonitorThreadProc",
                             "LCDCSTimerThreadProc", "LCDCSWatchdogThreadProc", "TerminalThread"})
        EXPECT_EQ(0u, live_threads(name)) << name;
    bench.run(R"(
        mark | registry set SVC\Parameters\CurrentSetting @ dword 1 | event 0x7000 | advance 399s
        expect no request * | advance 1s | check status STOPPED 0/0)");
}

// Threads of moments, on many schedules: once it has been ended one looks up no user any more.
TEST(Service, TheStopEndsAMonitorOffRequest) {
    run_seeds(60, [](Bench& bench) {
        bench.run(R"(
            registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Winlogon" AltDefaultDomainName sz "X"
            registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Winlogon" AltDefaultUserName sz "anna"
            windows account anna S-1-5-9
            registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\ProfileList\S-1-5-9" ProfileImagePath expand "C:\Users\A"
            windows hive "C:\Users\A\ntuser.dat" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4"
            start | advance 1s | together | control 130 | stop | end | advance 1s)");
        bool ended = false;
        for (const sim::TraceLine& line : bench.machine.trace) {
            ended |= line.text.ends_with("STOP_PENDING 0/0 checkpoint 2");
            EXPECT_FALSE(ended && line.text.starts_with("call RegLoadKeyW"));
        }
    });
}

// The pump, busy with events, does nothing more once check point 3 is told.
TEST(Service, TheStopEndsThePump) {
    run_seeds(120, [](Bench& bench) {
        bench.run(R"(
            start | advance 1s | together | repeat 9 | event 0x5001 | end | stop | end | advance 1s)");
        bool ended = false;
        for (const sim::TraceLine& line : bench.machine.trace) {
            ended |= line.text.ends_with("STOP_PENDING 0/0 checkpoint 3");
            EXPECT_FALSE(ended && line.thread == "TerminalThread") << line.text;
        }
    });
}

TEST(Service, ControlsAcceptedAndWaitHints) {
    Bench bench;
    const auto expect_status = [](DWORD state, DWORD accepted) {
        const SERVICE_STATUS status = sim::service_status();
        EXPECT_EQ(state, status.dwCurrentState);
        EXPECT_EQ(accepted, status.dwControlsAccepted);
        EXPECT_EQ(3000u, status.dwWaitHint);
        EXPECT_EQ(SERVICE_WIN32_OWN_PROCESS, status.dwServiceType);
    };
    bench.run(R"(
        driver missing for 1s | start | stop | expect refused stop)");
    expect_status(SERVICE_START_PENDING, 0);
    bench.run("advance 2s");
    expect_status(SERVICE_RUNNING, SERVICE_ACCEPT_STOP);
    bench.run("handler 2");
    expect_status(SERVICE_PAUSED, SERVICE_ACCEPT_STOP);
    bench.run("firmware CONNECT takes 5s\nstop");
    expect_status(SERVICE_STOP_PENDING, SERVICE_ACCEPT_STOP);
    bench.run("advance 5s");
    expect_status(SERVICE_STOPPED, SERVICE_ACCEPT_STOP);
}

TEST(Service, ALateDriverIsFound) {
    Bench bench;
    bench.run(R"(
        driver missing for 2s | start | advance 5s | expect no status STOPPED*
        check status RUNNING 0/0)");
}

TEST(Service, FailedStartsSayWhy) {
    const ScriptCase cases[] = {{"no stop event", R"(
            fail CreateEventW | start | expect status STOPPED 1066/680003
            expect no request CONNECT*)"},
                                {"no notification thread", R"(
            start | advance 1s | stop | fail CreateThread 8 | start | advance 1s
            expect status STOPPED 1066/680001 | expect no status RUNNING*
            expect process "" ended 0)"},
                                {"no handler: nothing can be said", R"(
            fail RegisterServiceCtrlHandlerExW | start | advance 1m | expect no status*)"},
                                {"no dispatcher", R"(
            fail StartServiceCtrlDispatcherW | start | expect next process "" ended 0)"},
                                {"no version", R"(
            fail GetVersionExW | start | expect next process "" ended 0
            fail GetVersionExW | run "-helper" | expect next process "-helper" ended 0)"}};
    run_cases("", cases);
}

TEST(Service, ConnectingStopsAtTheFirstFailureAndTheServiceRunsOn) {
    const ScriptCase cases[] = {{"kept", R"(
            start | check registry HKLM\Software\ZOR\ZORPM HibFileCreation = 0
            check registry HKLM\Software\ZOR\ZORPM CapaLidBeep = 1
            check registry HKLM\Software\ZOR\ZORPM SvcCtrlCodeCapa = 3)"},
                                {"of another type: rewritten", R"(
            registry set HKLM\Software\ZOR\ZORPM HibFileCreation sz "no" | start
            check registry HKLM\Software\ZOR\ZORPM HibFileCreation = 1)"},
                                {"the request fails", R"(
            firmware CONNECT fails times 1 | start
            check registry HKLM\Software\ZOR\ZORPM CapaLidBeep absent
            advance 1s | check status RUNNING
            firmware CONNECT fails | stop | expect no registry delete*
            expect status STOPPED 0/0)"},
                                {"the first value cannot be written", R"(
            fail RegSetValueExW | start
            check registry HKLM\Software\ZOR\ZORPM SvcCtrlCodeCapa absent)"},
                                {"the second", R"(
            fail RegSetValueExW 2 | registry delete HKLM\Software\ZOR\ZORPM HibFileCreation
            start | check registry HKLM\Software\ZOR\ZORPM CapaLidBeep = 1
            check registry HKLM\Software\ZOR\ZORPM HibFileCreation absent)"},
                                {"a subkey keeps the key", R"(
            registry set HKLM\Software\ZOR\ZORPM\CPUControl | start | advance 1s
            registry set HKLM\Software\ZOR\ZORPM\Other | stop
            expect no registry delete HKLM\Software\ZOR\ZORPM
            check registry HKLM\Software\ZOR\ZORPM present)"}};
    run_cases("registry set HKLM\\Software\\ZOR\\ZORPM HibFileCreation dword 0", cases);
}

TEST(Service, RunModes) {
    const ScriptCase cases[] = {{"a console start fails silently", R"(
            run "" | expect next process "" ended 0)"},
                                {"any other text goes to the dispatcher", R"(
            run "-helper " | expect next process "-helper " ended 0
            run "-helper x" | expect next process "-helper x" ended 0
            run "-PnPTask -helper" | expect next process "-PnPTask -helper" ended 0)"},
                                {"switches ignore case", R"(
            run "-HELPER" | expect no process*)"},
                                {"the clean-up run with no owners known leaves all alone", R"(
            run "-pnptask" | expect next process "-pnptask" ended 0)"},
                                {"a helper that cannot have its mutex still runs", R"(
            fail CreateMutexW | run "-helper" | expect no process*)"}};
    run_cases("", cases);
}

// Another program has taken a name of the service's first: it owns the event (which the service then shares),
// admits nobody, or has made something else of that name. The service starts, works as far as it can, and
// stops.
TEST(Service, NamesTakenByOthers) {
    static const char* const names[] = {
        "MestraPowerManagementDriverEventNotifyStart",
        "MestraPowerManagementDriverEventNotifyStop",
        "MestraPowerManagementDriverEventNotifySleep",
        "MestraPowerManagementDriverEventNotifyResume",
        "MestraPowerManagementDriverEventNotifyNotifyEvent",
        "PHThread",
        "PHOverrideThread",
        "PHType12Thread",
        "PHType12OverrideThread",
        "PHType13Thread",
        "PHType13OverrideThread",
        "PMDRVLCDCSTIMERSIGNAL",
        "PMDRVLCDCSTIMERSTART",
        "PMDRVLCDCSTIMERRESET",
        "PMDRVLCDCSWATCHDOGTIMERSIGNAL",
        "PMDRVLCDCSWATCHDOG",
    };
    for (const char* name : names) {
        for (const char* how : {"event", "event manual", "event denied", "mutex"}) {
            SCOPED_TRACE(sim::format("%s as %s", name, how));
            Bench bench;
            const std::string object = sim::format("windows object \"%s\" ", name);
            bench.started(object + how);
            bench.run(object + R"(set
                control 131 | registry set SVC\Parameters\CurrentSetting @ dword 0x10
                event 0x4012 | advance 10m | control 132 | advance 1s | check status RUNNING
                stop | advance 10s | check status STOPPED | check handles 0)");
        }
    }
}

// An event that somebody keeps set costs little, and does not keep a real change from being seen.
TEST(Service, EventsKeptSetByOthers) {
    Bench bench;
    bench.started(R"(windows object "MestraPowerManagementDriverEventNotifyNotifyEvent" event manual
                     windows object "PHThread" event)");
    bench.run(R"(windows object "MestraPowerManagementDriverEventNotifyNotifyEvent" set
                 advance 10s)");
    EXPECT_LE(traced("request GETEVENT"), 500u);
    // The machine counts what is asked for and still pending.
    for (int i = 0; i < 10000; ++i)
        bench.run("windows object \"PHThread\" set");
    // As little does a client harm that writes the same mask again and again, each time seen before the next.
    for (int i = 0; i < 200; ++i)
        bench.run("registry set SVC\\Parameters\\CurrentSetting @ dword 0");
    bench.run(R"(expect no request MHKM*
                 registry set SVC\Parameters\CurrentSetting @ dword 0x10
                 expect request MHKM(5, 1)
                 stop | check status STOPPED)");
}

// What each of the lid inhibit's names costs, and that a freed one serves again.
TEST(Service, LidInhibitWithoutItsEvents) {
    run_cases(R"(firmware GETLIDSTATUS = 2
                 firmware LCDCSGETSTATE = 3)",
              {{"no timer, nothing limited", R"(
                  windows object "PMDRVLCDCSTIMERRESET" event denied | start | control 131
                  advance 1h | expect no request LCDCSCONTROL(0x2)*)"},
               {"no watchdog until the name is free", R"(
                   windows object "PMDRVLCDCSWATCHDOG" event denied | start | control 131
                   advance 1h | expect no request GETLIDSTATUS*
                   windows object "PMDRVLCDCSWATCHDOG" free | control 131 | advance 302s
                   expect request LCDCSCONTROL(0x2)*)"},
               {"a wait that fails costs a period", R"(
                   firmware GETLIDSTATUS = 3 | start | control 131 | fail SignalObjectAndWait
                   advance 1s | mark | advance 1999ms | expect no request GETLIDSTATUS*
                   advance 1ms | expect request GETLIDSTATUS*)"}});
}

// The first monitor notification may come while the service's own refresh runs, on the handler's thread: in
// either order the posture is published, the indicators agree, and the start ends.
TEST(Service, TheFirstNotificationDuringTheStart) {
    static const char* const slow[] = {"0ms", "1ms", "30ms"};
    size_t overlapped = 0;
    run_seeds(100, [&](Bench& bench) {
        const std::string time = slow[sim::random_below(std::size(slow))];
        const std::string when = sim::random_below(4) == 0 ? "later" : "at-registration";
        bench.run("windows power-settings " + when + "\nfirmware GMMS = 3\nfirmware GMMS takes " + time +
                  "\nregistry set HKLM\\SOFTWARE\\Dolby\\DAX\ndevice slate = 1\nmark\nstart\nadvance 20s");
        size_t by_handler = 0;
        for (const sim::TraceLine& line : bench.machine.trace)
            by_handler += line.thread == "dispatcher" && line.text.starts_with("request GMMS");
        EXPECT_EQ(when == "at-registration", by_handler != 0);
        overlapped += by_handler != 0;
        bench.run(R"(
            check status RUNNING 0/0 | check registry SVC\Transform\CurrentStatus MM = 3
            check registry SVC\Transform\CurrentStatus Lid = 2
            check registry HKLM\SOFTWARE\Mestra\MultiMode CurrentMode = 3
            check registry HKLM\SOFTWARE\Dolby\DAX MultimodeFormFactor = 3
            check device slate = 0 | check handles 0
            mark | event 0x60C0 | advance 1s
            expect registry HKLM\SOFTWARE\Mestra\MultiMode CurrentMode = 0x3
            stop | advance 1s | check status STOPPED 0/0)");
    });
    EXPECT_LT(50u, overlapped);
}

// The notification thread suspended in the middle of an event: the other threads come through, what the event
// still has to do is done when it goes on, and the stop does not wait for it.
TEST(Service, TheNotificationThreadSuspendedInAnEvent) {
    const ScriptCase cases[] = {{"and continued", R"(
            handler power monitor 1 | advance 20s | expect request GMMS(0x0) = 0x4
            check status PAUSED 0/0 | check registry SVC\Transform\CurrentStatus MM = 4
            expect no request GETEVENT() = 0x7000*
            control 133 | expect request LCDCSGETSTATE() = 0x2
            event 0x7000 | handler 3 | advance 20s | expect status RUNNING 0/0
            expect request GETEVENT() = 0x7000 0x0
            check registry SVC\Transform\CurrentStatus MM = 4
            check registry HKLM\SOFTWARE\Mestra\MultiMode CurrentMode = 4 | check handles 0)"},
                                {"and stopped", R"(
            stop | advance 20s | expect status STOPPED 0/0 | check handles 0
            start | advance 1s | check status RUNNING
            event 0x7000 | expect request GETEVENT() = 0x7000 0x0)"}};
    run_cases(R"(
        firmware GMMS = 3 | start | advance 5s | firmware GMMS takes 100ms | event 0x60C0
        advance 50ms | firmware GMMS = 4 | handler 2 | expect status PAUSED 0/0
        advance 10ms)",
              cases);
}
