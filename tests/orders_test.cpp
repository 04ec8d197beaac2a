// Two threads at once, order by order; many more schedules of them are in the sweeps.
#include "sim/machine/scheduler.h"
#include "tests/support/order_scripts.h"

TEST(Orders, Scripts) {
    for (const ScriptCase& row : g_orderScripts) {
        run_case(row.name, row.script);
        run_seeds(10, [&row](Bench& bench) { run_order_script(bench, row); });
    }
}

// A watch that is told to end before it has begun ends, although the firmware goes on telling of an inhibit.
TEST(Orders, AWatchIsToldToEndBeforeItBegins) {
    run_seeds(60, [](Bench& bench) {
        bench.started("firmware LCDCSGETSTATE = 3 | firmware GETLIDSTATUS = 3");
        bench.run("together | control 131 | control 132 | end | advance 5s");
        std::string last;
        for (const sim::TraceLine& line : bench.machine.trace) {
            if (line.text.starts_with("request LCDCSCONTROL("))
                last = line.text;
        }
        EXPECT_EQ(last.starts_with("request LCDCSCONTROL(0x1)") ? 1u : 0u, live_threads("LCDCSWatchdog"));
    });
}

// A watch is told to end as it begins, and as another program has ended it: no event of it is used that is
// closed, and the inhibit after that has a watch.
TEST(Orders, AWatchEndsAsItBegins) {
    run_seeds(800, [](Bench& bench) {
        bench.started("firmware LCDCSGETSTATE = 3 | firmware GETLIDSTATUS = 3");
        bench.run("together | control 131 | control 132 | end | advance 5s | control 131 | advance 5s");
        sim::signal_object(*sim::machine().named.at("PMDRVLCDCSWATCHDOG").lock());
        bench.run("control 132 | control 131 | advance 5s");
        EXPECT_EQ(live_threads("LCDCSWatchdog"), 1u);
    });
}
