// Operations of all subsystems at once, in random disorder, on a machine that changes meanwhile: whatever the
// threads do, some order of the same operations, one after another, would have left the same.
#include "tests/support/busy_machine.h"
#include "tests/support/orders.h"

namespace {

using orders::Change;
using orders::Operation;
using sim::format;

// Of each of them; a round costs up to 24 more on a second machine.
constexpr unsigned SEEDS = 300;

unsigned draw(std::uint64_t bound) {
    return static_cast<unsigned>(sim::random_below(bound));
}
template <class T, size_t N> const T& draw_from(const T (&values)[N]) {
    return values[sim::random_below(N)];
}

// An option interface, audio software, and a Harrow BIOS with auto-rotation on.
const std::string SURROUNDINGS = R"(
    registry set HKLM\HARDWARE\DESCRIPTION\System\BIOS BIOSVersion sz "GD1"
    registry set HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable dword 1
    registry set HKLM\SOFTWARE\Dolby\DAX
    firmware GOPT(0) = 0x102
    firmware GOPT(0x100) = 1
)";
// Both versions' answers, every command accepted; the revision is the script's.
const std::string THERMAL = R"(
    firmware DYTC = 1
    firmware DYTC(1) = 0
    firmware DYTC(0x101) = 0
    firmware DYTC(0x201) = 0
    firmware DYTC(0x100) = 0x20010000
    firmware DYTC(3) = 0x03ff0201
)";
const std::string ORDERS_V2 = "firmware DYTC(0) = 0x20000001\n";
const std::string ORDERS_V3 = "firmware DYTC(0) = 0x30000001\n";

// ---- operations ----

// Each posture has an indicator and a command.
Operation posture_change() {
    return {"", "", Change{"GMMS", -1, 1 + draw(5), 0x60C0}};
}

// Each status has a row for both indicators. None of them begins or ends flip mode, which cooling would hear
// of in the form factor's turn, behind its own: one event, two operations.
Operation option_change() {
    static const DWORD statuses[] = {0, 2, 4, 8};
    static const DWORD events[] = {0x4012, 0x4013};
    return {"", "", Change{"GOPT", 0x200, draw_from(statuses), draw_from(events)}};
}

Operation lid_change(bool open) {
    return {"", "", Change{"GETLIDSTATUS", -1, open ? 3u : 2u, open ? 0x5002u : 0x5001u}};
}

Operation form_factor_operation() {
    static const char* const others[] = {"handler power resume", "power monitor 1", "event 0x4012",
                                         "event 0x60C0",         "event 0x5009",    "event 0x500A"};
    switch (draw(6)) {
    case 0:
    case 1:
        return posture_change();
    case 2:
        return option_change();
    case 3:
        return lid_change(draw(2) != 0);
    default:
        return {draw_from(others)};
    }
}

Operation thermal_change() {
    switch (draw(5)) {
    case 0:
        return {"", "", Change{"DGPUTEMP", -1, 1 + draw(3), 0x6031}};
    case 1:
        return {"", "", Change{"THERMALMODE", -1, draw(4), 0x60F0}};
    case 2:
        return {"", "", Change{"DOCKMODE", -1, draw(2), 0x4010}};
    case 3:
        return posture_change();
    default:
        return option_change();
    }
}

Operation version3_operation() {
    static const unsigned events[] = {0x4012, 0x4013, 0x6031, 0x60F0, 0x60C0, 0x4010};
    // 134, 135 and 139 to 142 more often than those that start and end.
    static const unsigned controls[] = {134, 135, 134, 135, 139, 140, 139, 140, 141, 142, 136, 137, 138};
    switch (draw(6)) {
    case 0:
        return {format("event 0x%x", draw_from(events))};
    case 1:
    case 2:
        return thermal_change();
    default:
        return {format("control %u", draw_from(controls))};
    }
}

Operation version2_operation() {
    static const char* const acts[] = {"event 0x4012", "event 0x4013", "control 134", "control 135",
                                       "control 134",  "control 136",  "control 137", "control 138"};
    return draw(3) == 0 ? option_change() : Operation{draw_from(acts)};
}

Operation lid_operation() {
    static const char* const acts[] = {"control 131", "control 132", "control 131", "handler power resume"};
    return {draw_from(acts)};
}

Operation hot_key_operation() {
    static const DWORD masks[] = {0x80000000, 0x80000005, 0x800003FF, 0};
    switch (draw(5)) {
    case 0:
        return {format("registry set SVC\\Parameters\\CurrentSetting @ dword %u", draw_from(masks))};
    case 1:
        return {format("registry set SVC\\Parameters\\OverrideSetting @ dword %u", draw(2) * 0x801)};
    case 2:
        return {format("registry set SVC\\Parameters2\\Type10\\CurrentSetting @ dword %u", draw(8))};
    case 3:
        return {format("registry set SVC\\Parameters2\\Type10\\OverrideSetting @ dword %u", draw(8))};
    default:
        return {format("event 0x%x", 0x1001 + draw(2))};
    }
}

// At most two changes: their places in the orders are many.
std::vector<Operation> several(Operation (*one)(), size_t most) {
    std::vector<Operation> operations;
    size_t changes = 0;
    for (size_t count = 2 + draw(most - 1); count > 0;) {
        Operation operation = one();
        if (operation.change && ++changes > 2)
            continue;
        operations.push_back(std::move(operation));
        --count;
    }
    // The initialisation that 136 or 138 asks for comes later, or never when 137 is first: it has a place of
    // its own among them.
    const auto among = [&operations](const char* act) {
        return std::any_of(operations.begin(), operations.end(),
                           [act](const Operation& operation) { return operation.act == act; });
    };
    if (among("control 137") && (among("control 136") || among("control 138")))
        operations.push_back({"", "advance 2s"});
    return operations;
}

// ---- stories ----

std::string machine_at_rest() {
    return format("firmware GMMS = %u\nfirmware GOPT(512) = %u\nfirmware GETLIDSTATUS = %u\n", 1 + draw(5),
                  draw(2) * 2, 2 + draw(2));
}

const std::vector<const char*> FORM_FACTOR_METHODS = {"GMMS", "GOPT", "GETLIDSTATUS"};
const std::vector<const char*> THERMAL_METHODS = {"GMMS",     "GOPT",        "DYTC",
                                                  "DGPUTEMP", "THERMALMODE", "DOCKMODE"};
const std::vector<const char*> LID_METHODS = {"GETLIDSTATUS", "LCDCSGETSTATE", "LCDCSCONTROL"};

TEST(OrdersSweep, FormFactor) {
    run_seeds(SEEDS, [](Bench& bench) {
        orders::Story story = orders::begin(bench, SURROUNDINGS + machine_at_rest() + "start\nadvance 1s");
        orders::play(bench, &story, several(form_factor_operation, 4),
                     {FORM_FACTOR_METHODS, draw(8) == 0, draw(3) == 0}, "advance 1m");
    });
}

// The first power notification comes during the start, while the machine changes.
TEST(OrdersSweep, FirstNotification) {
    run_seeds(SEEDS, [](Bench& bench) {
        orders::Story story =
            orders::begin(bench, "windows power-settings at-registration" + SURROUNDINGS + machine_at_rest());
        orders::play(
            bench, &story,
            {{"start", "start\nadvance 5s"}, posture_change(), option_change(), lid_change(draw(2) != 0)},
            {FORM_FACTOR_METHODS, draw(8) == 0, false}, "advance 1m");
    });
}

TEST(OrdersSweep, CoolingVersion3) {
    run_seeds(SEEDS, [](Bench& bench) {
        orders::Story story = orders::begin(bench, SURROUNDINGS + THERMAL + ORDERS_V3 + machine_at_rest() +
                                                       "start\nadvance 30s");
        orders::play(bench, &story, several(version3_operation, 4),
                     {THERMAL_METHODS, draw(8) == 0, draw(6) == 0}, "advance 1m");
    });
}

// The initialisation, by the clock, among requests and events: the first ever, or a later one.
TEST(OrdersSweep, CoolingInitialises) {
    run_seeds(SEEDS, [](Bench& bench) {
        const bool first = draw(2) == 0;
        const bool version2 = draw(4) == 0;
        const char* near = version2 ? "advance 19999ms" : "advance 999ms";
        orders::Story story = orders::begin(
            bench, SURROUNDINGS + THERMAL + (version2 ? ORDERS_V2 : ORDERS_V3) + machine_at_rest() +
                       "start\n" + (first ? near : format("advance 30s\ncontrol 138\n%s", near)));
        std::vector<Operation> operations = {{"", "advance 2ms"}};
        for (unsigned count = 1 + draw(3); count > 0; --count)
            operations.push_back(version2 ? version2_operation() : version3_operation());
        orders::play(bench, &story, operations, {THERMAL_METHODS, draw(8) == 0, false}, "advance 2m");
    });
}

TEST(OrdersSweep, CoolingVersion2) {
    run_seeds(SEEDS, [](Bench& bench) {
        orders::Story story = orders::begin(
            bench,
            SURROUNDINGS + THERMAL + ORDERS_V2 + machine_at_rest() +
                format("registry set SVC\\TMCT\\Parameters SPCT dword %u\nstart\nadvance 30s", draw(2) * 2));
        orders::play(bench, &story, several(version2_operation, 4),
                     {THERMAL_METHODS, draw(8) == 0, draw(6) == 0}, "advance 2m");
    });
}

// The first polls are slow, so that the limit does not come in the same instant as a later poll.
const char NEAR_LIMIT[] = R"(
    firmware LCDCSGETSTATE takes 3ms
    control 131
    advance 10s
    firmware LCDCSGETSTATE takes 0ms
    advance 291002ms)";

TEST(OrdersSweep, LidInhibit) {
    // `near`: the clock brings a poll or the limit next.
    static const struct {
        const char* script;
        bool near;
    } beginnings[] = {{"", false},
                      {"control 131\nadvance 10s", false},
                      {"control 131\nadvance 2999ms", true},
                      {NEAR_LIMIT, true}};
    run_seeds(SEEDS, [](Bench& bench) {
        const auto& beginning = draw_from(beginnings);
        orders::Story story =
            orders::begin(bench, SURROUNDINGS + machine_at_rest() + "start\nadvance 1s\n" + beginning.script);
        std::vector<Operation> operations = several(lid_operation, 2);
        if (draw(2) == 0)
            operations.push_back(lid_change(draw(2) != 0));
        if (beginning.near)
            operations.push_back({"", "advance 2ms"});
        operations.push_back({"", "advance 1500ms"});
        orders::play(bench, &story, operations, {LID_METHODS, draw(8) == 0, draw(6) == 0}, "advance 10s");
        // No run is left that would end another time, and what comes next finds all in order.
        if (draw(4) == 0)
            orders::play(bench, &story, {{"control 131"}}, {}, "advance 302s");
    });
}

TEST(OrdersSweep, HotKeys) {
    run_seeds(SEEDS, [](Bench& bench) {
        orders::Story story = orders::begin(bench, R"(
            firmware MHKN(1) = 0x80000000
            registry set SVC\Parameters\Notification @ dword 0
            start
            advance 2s)");
        orders::play(bench, &story, several(hot_key_operation, 4), {{"MHKM"}, false, draw(6) == 0},
                     "advance 1m");
    });
}

Operation any_operation() {
    static Operation (*const kinds[])() = {form_factor_operation, version3_operation, version3_operation,
                                           hot_key_operation};
    return draw_from(kinds)();
}

TEST(OrdersSweep, WholeService) {
    run_seeds(SEEDS, [](Bench& bench) {
        orders::Story story =
            orders::begin(bench, SURROUNDINGS + g_busyMachine + "firmware MHKN(1) = 0x80000000\n" +
                                     machine_at_rest() + "start\nadvance 5s");
        orders::play(bench, &story, several(any_operation, 4), {THERMAL_METHODS, draw(8) == 0, draw(3) == 0},
                     "advance 1m");
    });
}

} // namespace
