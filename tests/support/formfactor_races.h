// Races of the form factor: the bodies that the unit tests run with a few seeds and the sweeps with many.
#pragma once

#include "sim/notebook/device_interfaces.h"
#include "tests/support/sweep.h"

namespace formfactor_races {

using sim::format;
using sim::indicator_state;
using sim::Interface;

// An option interface, audio software, and a Harrow BIOS with auto-rotation on.
inline const char g_setup[] = R"(
    registry set HKLM\HARDWARE\DESCRIPTION\System\BIOS BIOSVersion sz "GD1"
    registry set HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable dword 1
    registry set HKLM\SOFTWARE\Dolby\DAX
    firmware GOPT(0) = 0x102
    firmware GOPT(0x200) = 2
)";

struct Option {
    DWORD status;
    BYTE slate;
    BYTE dock;
};
inline const Option g_options[] = {{0x0, 0, 0}, {0x1, 0, 1}, {0x2, 1, 0}, {0x4, 1, 1}, {0x8, 0, 1}};

inline void expect_indicators(const Option& option) {
    EXPECT_EQ(indicator_state(Interface::Slate), option.slate);
    EXPECT_EQ(indicator_state(Interface::Dock), option.dock);
}

// A refresh in the control handler against events in the notification thread. All of them want the same, so
// an indicator that two threads had between its read and its write ends in the wrong state or is written
// twice.
inline void race_once(Bench& bench) {
    const Option& option = g_options[sim::random_below(std::size(g_options))];
    // The hinge agrees with the option, or says nothing about the indicator.
    static constexpr DWORD postures[2][4] = {{3, 4, 5, 7}, {1, 2, 0, 7}};
    const DWORD posture = postures[option.slate][sim::random_below(4)];
    bench.run(format(R"(
        firmware GMMS = %u
        firmware GOPT(0x200) = 0x%x)",
                     posture, option.status));
    const size_t first = sim::machine().trace.size();
    // A pause suspends the notification thread wherever it is; the refresh must come through all the same.
    const bool pause = sim::random_below(3) == 0;
    bench.run(format(R"(
        together
        event 0x4012
        event 0x60C0
        event 0x4013
        %s
        handler power resume
        power monitor 1
        end
        advance 20s
        %s
        handler power resume
        advance 1s)",
                     pause ? "handler 2" : "event 0x60C0", pause ? "handler 3\n advance 1s" : ""));
    expect_indicators(option);
    EXPECT_LE(traced("write slate", first), 1u);
    EXPECT_LE(traced("write dock", first), 1u);
    EXPECT_EQ(sim::registry_dword("SVC\\Transform\\CurrentStatus", "MM"), posture);
    EXPECT_EQ(sim::registry_dword("HKLM\\SOFTWARE\\Mestra\\MultiMode", "CurrentMode"), posture);
    EXPECT_EQ(sim::registry_dword("HKLM\\SOFTWARE\\Dolby\\DAX", "MultimodeFormFactor"), posture);
    EXPECT_EQ(sim::registry_dword("SVC\\Transform\\CurrentStatus", "Lid"), 2u);
}

inline void refresh_against_events(Bench& bench) {
    sim::set_power_settings_at_registration(sim::random_below(2) == 0);
    bench.run(format("%s start\n advance 1s", g_setup));
    for (int round = 0; round < 3 && !::testing::Test::HasFailure(); ++round)
        race_once(bench);
}

// ---- answers that change while several threads ask ----

// The machine changes with every answer; what the form factor was told last stands at rest. Lid: the driver
// says closed once, and then the lid is opened, with its event.
struct ChangingMachine {
    DWORD posture = 0;
    BYTE slate = 0;
    BYTE dock = 0;
    bool lid_open = false;
    unsigned event_readings =
        0; // of the notification thread: the form factor's, and cooling's right behind it

    ChangingMachine() {
        sim::set_answer_hook([this](const std::string& method, DWORD argument, sim::Answer* answer) {
            if (method == "GMMS")
                answer->value = next_posture();
            else if (method == "GOPT" && argument == 0x200)
                answer->value = next_option();
            else if (method == "GETLIDSTATUS")
                answer->value = next_lid();
            else
                return false;
            return true;
        });
    }
    ~ChangingMachine() { sim::set_answer_hook(nullptr); }

    DWORD next_posture() {
        const auto next = static_cast<DWORD>(1 + sim::random_below(5));
        const bool cooling = sim::current()->name == "TerminalThread" && event_readings++ % 2 == 1;
        if (!cooling) {
            posture = next;
            slate = next <= 2 ? 1 : 0;
        }
        return next;
    }
    DWORD next_option() {
        const Option& option = g_options[sim::random_below(std::size(g_options))];
        slate = option.slate;
        dock = option.dock;
        return option.status;
    }
    DWORD next_lid() {
        if (lid_open)
            return 3;
        lid_open = true;
        sim::post_event(0x5002);
        return 2;
    }
};

inline void answers_change(Bench& bench) {
    sim::set_power_settings_at_registration(sim::random_below(2) == 0);
    bench.run(format("%s start\n advance 1s", g_setup));
    for (int round = 0; round < 3 && !::testing::Test::HasFailure(); ++round) {
        ChangingMachine changing;
        static const char* const slow[] = {"0ms", "1ms", "3ms"};
        for (const char* method : {"GMMS", "GOPT", "GETLIDSTATUS"})
            bench.run(format("firmware %s takes %s", method, slow[sim::random_below(std::size(slow))]));
        bench.run(R"(
            together
            event 0x60C0
            handler power resume
            event 0x4012
            power monitor 1
            event 0x60C0
            end
            advance 20s)");
        EXPECT_EQ(sim::registry_dword("SVC\\Transform\\CurrentStatus", "MM"), changing.posture);
        EXPECT_EQ(sim::registry_dword("HKLM\\SOFTWARE\\Mestra\\MultiMode", "CurrentMode"), changing.posture);
        EXPECT_EQ(sim::registry_dword("HKLM\\SOFTWARE\\Dolby\\DAX", "MultimodeFormFactor"), changing.posture);
        EXPECT_EQ(indicator_state(Interface::Slate), changing.slate);
        EXPECT_EQ(indicator_state(Interface::Dock), changing.dock);
        EXPECT_EQ(sim::registry_dword("SVC\\Transform\\CurrentStatus", "Lid"), 2u);
    }
}

// ---- the lid-inhibit limit ----

// The driver's side of it, with a log of what the service asked for.
struct InhibitDriver {
    DWORD lid = 3;
    DWORD inhibit = 2;
    unsigned polls = 0;
    unsigned off_requests = 0;

    InhibitDriver() {
        sim::set_answer_hook([this](const std::string& method, DWORD, sim::Answer* answer) {
            if (method == "GETLIDSTATUS")
                answer->value = lid;
            else if (method == "LCDCSGETSTATE")
                answer->value = inhibit;
            return method == "GETLIDSTATUS" || method == "LCDCSGETSTATE";
        });
        sim::set_request_hook([this](const std::string& method, const DWORD* in, DWORD) {
            polls += method == "GETLIDSTATUS";
            if (method != "LCDCSCONTROL")
                return;
            inhibit = in[0] == 1 ? 3 : 2;
            off_requests += in[0] == 2;
        });
    }
};

// Lid, requests and time in any order and at once; the driver takes its time, so that polls overlap
// everything.
inline void disturb(Bench& bench, InhibitDriver& driver) {
    static const char* const waits[] = {"0ms", "1ms", "998ms", "1s", "1001ms", "299s", "300s", "301s"};
    static const char* const controls[] = {"control 131", "control 132", "control 131\n control 132",
                                           "control 132\n control 131", R"(
                                               control 131
                                               control 132
                                               control 131
                                               control 131
                                               control 132
                                               control 131)"};
    static const char* const durations[] = {"0ms", "1ms", "1500ms"};
    for (int step = 0; step < 12; ++step) {
        if (sim::random_below(3) == 0)
            driver.lid = 1 + static_cast<DWORD>(sim::random_below(3)); // invalid, closed, open
        if (sim::random_below(4) == 0)
            bench.run(format("firmware LCDCSGETSTATE takes %s",
                             durations[sim::random_below(std::size(durations))]));
        if (sim::random_below(2) == 0) {
            const std::string block = controls[sim::random_below(std::size(controls))];
            bench.run(format(R"(
                together
                %s
                end)",
                             block.c_str()));
            const unsigned off_requests = driver.off_requests;
            bench.run("advance 5s");
            // Whatever ended when the inhibit was started, the start holds; an open lid may end the watch.
            if (block.ends_with("131") && driver.lid != 3 && driver.off_requests == off_requests) {
                EXPECT_EQ(live_threads("LCDCSWatchdogThreadProc"), 1u);
            }
        }
        bench.run(format("advance %s", waits[sim::random_below(std::size(waits))]));
        EXPECT_LE(live_threads("LCDCSWatchdogThreadProc"), 1u);
    }
}

inline void lid_inhibit(Bench& bench) {
    bench.run("start\n advance 1s");
    InhibitDriver driver;
    disturb(bench, driver);
    // An invalid reading would leave a run to its end.
    driver.lid = 2;
    bench.run(R"(
        firmware LCDCSGETSTATE takes 0ms
        advance 10s
        control 132
        advance 10s)");
    // Quiet: no watch and no run is left.
    EXPECT_EQ(live_threads("LCDCSWatchdogThreadProc"), 0u);
    driver.polls = driver.off_requests = 0;
    bench.run("advance 20m");
    EXPECT_EQ(driver.polls + driver.off_requests, 0u);
    // And the whole works as on the first day: one watch, one switching off.
    driver.lid = 2;
    bench.run("control 131\n advance 100s");
    EXPECT_EQ(driver.polls, 100u);
    bench.run("advance 200s");
    EXPECT_EQ(driver.off_requests, 0u);
    bench.run("advance 1s");
    EXPECT_EQ(driver.off_requests, 1u);
    bench.run("advance 1ms"); // a watch may have waited for who told it to end
    EXPECT_EQ(live_threads("LCDCSWatchdogThreadProc"), 0u);
    bench.run("advance 20m");
    EXPECT_EQ(driver.off_requests, 1u);
    // A stop in the middle of anything.
    bench.run("control 131");
    disturb(bench, driver);
    bench.run(R"(
        together
        control 131
        stop
        end
        advance 10s
        check status STOPPED)");
    EXPECT_EQ(live_threads("LCDCSWatchdogThreadProc"), 0u);
}

} // namespace formfactor_races
