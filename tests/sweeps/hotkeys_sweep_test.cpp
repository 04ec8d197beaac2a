// Clients and users at once: masks are written while hot keys are pressed, under many schedules, and every
// platform call fails once.
#include <map>

#include "tests/support/sweep.h"

static const char CLASSIC[] = "SVC\\Parameters\\CurrentSetting";
static const char EXTENDED[] = "SVC\\Parameters2\\Type10\\CurrentSetting";

// Keeps the classic notifications on whatever else a client wants.
constexpr DWORD ALWAYS = 0x80000000;

namespace {

// A mask that clients write, and the hot keys that it moves.
struct Page {
    const char* key;
    const char* value;
    DWORD first_hot_key;
};

struct Totals {
    std::uint64_t masks = 0;
    std::uint64_t requests = 0;
    std::uint64_t presses = 0;
    std::uint64_t behind = 0; // pages whose last mask had not reached the firmware when all was quiet
};

struct Notebook {
    Page pages[2];
    std::map<DWORD, DWORD> modes; // of the firmware, by hot key
    DWORD last[2] = {ALWAYS, 0};
    DWORD pressed = 0; // bit n-1: hot key n, an odd number of times
    Totals* totals = nullptr;

    DWORD firmware_mask(const Page& page) const {
        DWORD mask = 0;
        for (const auto& [hot_key, mode] : modes) {
            if (hot_key >= page.first_hot_key && hot_key < page.first_hot_key + 32 && mode == 1)
                mask |= 1u << (hot_key - page.first_hot_key);
        }
        return mask;
    }

    void write(size_t page, DWORD mask) {
        last[page] = page == 0 ? mask | ALWAYS : mask;
        ++totals->masks;
        sim::registry_set_dword(pages[page].key, pages[page].value, last[page]);
    }
};

} // namespace

// What no good client does. The mask in force stays.
static void do_harm(const Page& page) {
    if (sim::random_below(2) == 0)
        sim::registry_delete_value(page.key, page.value);
    else
        sim::registry_set_text(page.key, page.value, "no mask at all");
}

// One client: bursts of writes, and a good mask last on each page.
static DWORD client(Notebook* notebook) {
    for (int i = 0; i < 20; ++i) {
        const auto page = static_cast<size_t>(sim::random_below(2));
        if (sim::random_below(8) == 0)
            do_harm(notebook->pages[page]);
        notebook->write(page, static_cast<DWORD>(sim::random_below(0x100000000)));
        sim::sleep_for(sim::random_below(3));
    }
    for (const size_t page : {0, 1}) {
        notebook->write(page, static_cast<DWORD>(sim::random_below(0x100000000)));
        sim::sleep_for(sim::random_below(2));
    }
    return 0;
}

static DWORD user(Notebook* notebook) {
    for (int i = 0; i < 20; ++i) {
        const auto hot_key =
            static_cast<DWORD>(1 + sim::random_below(11)); // none that puts the notebook to sleep
        if (hot_key != 3) {
            notebook->pressed ^= 1u << (hot_key - 1);
            ++notebook->totals->presses;
            sim::post_event(0x1000 + hot_key);
        }
        sim::sleep_for(sim::random_below(4));
    }
    return 0;
}

static void play(Bench& bench, bool remembers, Totals* totals) {
    Notebook notebook;
    notebook.totals = totals;
    const bool third = sim::random_below(2) != 0; // page 2 and 3 share their numbers: one of them in a run
    notebook.pages[0] = {CLASSIC, "@", 1};
    notebook.pages[1] = {EXTENDED, third ? "Type13" : "@", 33};
    notebook.modes[32] = 1;
    sim::registry_remembers_changes(remembers);
    sim::registry_tells_of_same_data(sim::random_below(2) != 0);
    bench.started("firmware MHKN(1) = 0x80000000\nregistry set SVC\\Parameters\\Notification @ dword 0");
    sim::set_request_hook([&](const std::string& method, const DWORD* in, DWORD) {
        if (method == "MHKM") {
            notebook.modes[in[0]] = in[1];
            ++totals->requests;
        }
    });
    sim::set_answer_duration("MHKM", nullptr, sim::random_below(2)); // a slow firmware makes long passes
    sim::start_thread(bench.machine.host, "client", [&] { return client(&notebook); });
    sim::start_thread(bench.machine.host, "user", [&] { return user(&notebook); });
    bench.machine.advance(60000);
    for (const size_t page : {0, 1}) {
        if (notebook.firmware_mask(notebook.pages[page]) == notebook.last[page])
            continue;
        EXPECT_FALSE(remembers) << "the last mask did not reach the firmware, page " << page;
        ++totals->behind;
        // Whatever is written next brings it.
        sim::registry_set_dword(notebook.pages[page].key, "anything", 1);
        bench.machine.advance(1000);
        EXPECT_EQ(notebook.last[page], notebook.firmware_mask(notebook.pages[page]));
    }
    EXPECT_EQ(notebook.pressed, sim::registry_dword("SVC\\Parameters\\Notification", "@"));
    bench.run(R"(
        stop
        check status STOPPED 0/0
        check handles 0)");
    sim::set_request_hook({});
}

TEST(HotkeySweep, TheLastMaskReachesTheFirmware) {
    Totals totals;
    run_seeds(1000, [&](Bench& bench) { play(bench, true, &totals); });
    figure("hot keys: schedules of clients and a user", std::to_string(runs_of(1000)));
    figure("hot keys: masks written / requests / presses",
           sim::format("%llu / %llu / %llu", (unsigned long long)totals.masks,
                       (unsigned long long)totals.requests, (unsigned long long)totals.presses));
    figure("hot keys: last masks that did not reach the firmware",
           sim::format("%lu of %lu", totals.behind, 2 * runs_of(1000)));
}

// The registry need not remember a change that falls between the reading and the arming. How often that
// shows.
TEST(HotkeySweep, WithoutTheKernelsMemoryTheLastMaskMayComeLate) {
    Totals totals;
    run_seeds(300, [&](Bench& bench) { play(bench, false, &totals); });
    EXPECT_NE(0u, totals.behind);
    figure("hot keys: the same where the registry remembers nothing",
           sim::format("%lu of %lu, all sent with the next change", totals.behind, 2 * runs_of(300)));
}

TEST(HotkeySweep, EveryCallFails) {
    const std::uint64_t calls = sweep_failures(R"(
        registry set HKLM\HARDWARE\DESCRIPTION\System\BIOS BIOSVersion sz "GD"
        start
        advance 4s
        registry set SVC\Parameters\CurrentSetting @ dword 0x5
        registry set SVC\Parameters\OverrideSetting @ dword 0x800
        registry set SVC\Parameters2\Type10\CurrentSetting @ dword 0x5
        registry set SVC\Parameters2\Type10\CurrentSetting Type13 dword 0x6
        registry set SVC\Parameters2\Type10\OverrideSetting @ dword 0x6
        event 0x1001
        event 0x1101
        event 0x7000
        event 0x5020
        registry set SVC\Parameters\CurrentSetting @ dword 0
        stop
        advance 4s
    )");
    figure("hot keys: calls failed, one a run", std::to_string(calls));
}
