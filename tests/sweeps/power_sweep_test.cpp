// Power actions, helper and monitor-off dialog: every platform call failing once, without leaks; schedules
// over wake-ups, disconnects, timers and the stop.
#include <algorithm>
#include <set>

#include "tests/support/sweep.h"

// The user's hive is not loaded at first; hibernation needs its file.
static const char g_user[] = R"(
    registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Winlogon" AltDefaultDomainName sz "CALDER"
    registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Winlogon" AltDefaultUserName sz "anna"
    windows account anna S-1-5-21-1-2-3-1001
    registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\ProfileList\S-1-5-21-1-2-3-1001" ProfileImagePath expand "%SystemDrive%\Users\Anna"
    windows hive "C:\Users\Anna\ntuser.dat" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4"
    windows hive "C:\Users\Anna\ntuser.dat" "Control Panel\PowerCfg\PowerPolicies\4" Policies binary 01020304
    ini "C:\Windows\LidBeep.ini" LidCloseBeep Status 1
    windows hibernate forbidden
)";

namespace {

struct Round {
    const char* name;
    std::string setup;
    std::string acts;              // leaves nothing behind, however often it is run
    std::set<const char*> excuses; // releases: when they fail themselves, what they release stays
};

} // namespace

static const Round g_rounds[] = {
    {"power actions",
     std::string(g_user) + "start\nadvance 5s",
     R"(
         event 0x5001
         event 0x5002
         event 0x6012
         event 0x100C
         control 130
         event 0x2304
         advance 4m
         event 0x2404
         advance 10s
         event 0x3003
         advance 10s
         event 0x2013
         advance 1m)",
     {}},
    {"helper commands",
     "windows scheme 2\nrun \"-helper\"",
     R"(
         helper 1
         helper 2
         helper 3
         helper 4
         helper 5
         helper 6 2)",
     {}},
    {"monitor-off dialog",
     "windows version 5.2\n" + std::string(g_user) + "start\nadvance 5s",
     R"(
         control 130
         advance 1s
         input move 10 10
         input key
         input key
         input key
         advance 1s)",
     {"CloseDesktop", "SetThreadDesktop"}},
};

TEST(PowerSweep, EveryCallFailingOnceLeaksNothing) {
    for (const Round& round : g_rounds) {
        SCOPED_TRACE(round.name);
        const std::string begin = round.setup + "\n" + round.acts;
        const size_t usual = held_after(begin + "\n" + round.acts);
        const std::uint64_t calls = fail_each_call(begin, round.acts, [&](Bench& bench) {
            bench.run(round.acts);
            const std::string& failed = bench.machine.failed_call;
            // A failed wait for messages ends the helper, as it should.
            if (sim::service_process() == nullptr && sim::find_process("-helper", 1) == nullptr) {
                EXPECT_EQ("GetMessageW", failed);
                return;
            }
            const bool excused = std::any_of(round.excuses.begin(), round.excuses.end(),
                                             [&failed](const char* name) { return failed == name; });
            EXPECT_TRUE(excused || usual == held());
            if (sim::service_process() != nullptr)
                bench.run(R"(
                    stop
                    advance 10s
                    check status STOPPED)");
        });
        figure((std::string("power: platform calls failed once, ") + round.name).c_str(),
               std::to_string(calls));
    }
}

// The bus disconnects at the very moment when the timer fires: one of the two puts the machine to sleep,
// once.
TEST(PowerSweep, TimerAgainstDisconnect) {
    size_t by_timer = 0;
    run_seeds(1000, [&by_timer](Bench& bench) {
        bench.started();
        bench.run("event 0x2304");
        sim::start_thread(bench.machine.host, "bus", [] {
            sim::sleep_for(180000);
            sim::post_event(0x3003);
            return DWORD{0};
        });
        const sim::Ms armed = bench.machine.now;
        bench.machine.advance(600000);
        EXPECT_EQ(1u, traced("call SetSuspendState"));
        for (const sim::TraceLine& line : bench.machine.trace)
            by_timer += line.text.rfind("call SetSuspendState", 0) == 0 && line.time == armed + 180000;
    });
    const std::uint64_t rare = share() == 1 ? 50 : 1;
    EXPECT_LT(rare, by_timer); // both ends of the race were seen
    EXPECT_GT(runs_of(1000) - rare, by_timer);
    figure("power: schedules of a timer against a disconnect", "1000");
}

namespace {

// What the state machine says, in the plainest form: when the machine sleeps.
struct Model {
    struct Timer {
        sim::Ms due;
        bool alive;
    };
    std::vector<Timer> timers; // the last one is held
    std::vector<sim::Ms> sleeps;
    bool armed = false;
    DWORD pending = 0;

    void act(sim::Ms now) {
        if (pending == 3 || pending == 4)
            sleeps.push_back(now);
    }
    void run_timers(sim::Ms until) {
        for (Timer& timer : timers) {
            if (!timer.alive || timer.due > until)
                continue;
            timer.alive = false;
            armed = false;
            act(timer.due);
        }
    }
    void wake(sim::Ms now, DWORD state) {
        pending = state;
        armed = true;
        timers.push_back({now + 180000, true});
    }
    void disconnect(sim::Ms now) {
        if (armed) {
            armed = false;
            timers.back().alive = false;
            run_timers(now + 3000);
            act(now + 3000);
        }
        pending = 0;
    }
};

} // namespace

TEST(PowerSweep, RandomWakeupsAndDisconnects) {
    std::uint64_t events = 0;
    sim::Ms time = 0;
    run_seeds(300, [&](Bench& bench) {
        bench.started();
        Model model;
        for (int i = 0; i < 40; ++i) {
            // No event falls on a timer or into the pause of a disconnect: those moments have a test of their
            // own.
            bench.machine.advance(3001 + 7 * sim::random_below(12000));
            const sim::Ms now = bench.machine.now;
            model.run_timers(now);
            const DWORD state = static_cast<DWORD>(3 + sim::random_below(3));
            const bool on_a_timer =
                std::any_of(model.timers.begin(), model.timers.end(),
                            [now](const auto& timer) { return timer.due == now || timer.due == now + 3000; });
            if (on_a_timer)
                continue;
            ++events;
            if (sim::random_below(3) != 0) {
                sim::post_event(0x2004 | state << 8);
                model.wake(now, state);
            } else {
                sim::post_event(sim::random_below(2) != 0 ? 0x3003 : 0x4003);
                model.disconnect(now);
            }
            bench.machine.settle();
        }
        bench.machine.advance(200000);
        model.run_timers(bench.machine.now);
        std::vector<sim::Ms> sleeps;
        for (const sim::TraceLine& line : bench.machine.trace) {
            if (line.text.rfind("call Set", 0) == 0)
                sleeps.push_back(line.time);
        }
        EXPECT_EQ(model.sleeps, sleeps);
        time += bench.machine.now;
        // The stop in the midst of it, a second wake-up armed: nothing sleeps once the service is gone.
        sim::post_event(0x2304);
        sim::post_event(0x3003);
        sim::post_event(0x2404);
        sim::service_stop();
        bench.machine.advance(10000);
        bench.run(R"(
            mark
            advance 10m
            expect no *
            check status STOPPED)");
        EXPECT_EQ(0u, sim::handle_count());
    });
    figure("power: random wake-ups and disconnects", std::to_string(events));
    figure("power: simulated hours of them", std::to_string(time / 3600000));
}

// Requests, input and the stop at once: never two dialogs, and the stop is always answered.
TEST(PowerSweep, MonitorOffRequestsAndTheStop) {
    run_seeds(300, [](Bench& bench) {
        bench.run("windows version 5.2\n" + std::string(g_user) + "start\nadvance 5s");
        for (int i = 0; i < 6; ++i) {
            sim::service_control(130);
            sim::post_event(0x1003);
            bench.machine.advance(sim::random_below(600));
            bench.run("input key");
        }
        size_t open = 0;
        for (const sim::TraceLine& line : bench.machine.trace) {
            open += line.text == "dialog 101 opened";
            open -= line.text.rfind("dialog 101 ended", 0) == 0;
            EXPECT_LE(open, 1u);
        }
        sim::service_control(130);
        sim::service_stop();
        bench.machine.advance(10000);
        EXPECT_EQ(nullptr, sim::service_process());
        EXPECT_EQ(0u, sim::handle_count());
    });
    figure("power: schedules of monitor-off requests, input and stop", "300");
}
