// Two threads at once, order by order; many more schedules of them are in the sweeps.
#include "tests/support/order_scripts.h"

TEST(Orders, Scripts) {
    for (const ScriptCase& row : g_orderScripts) {
        run_case(row.name, row.script);
        run_seeds(10, [&row](Bench& bench) { run_order_script(bench, row); });
    }
}
