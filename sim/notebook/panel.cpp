#include "sim/notebook/panel.h"

#include "sim/machine/machine.h"
#include "sim/script/commands.h"

namespace sim {

namespace {

struct Graphics {
    bool present = false;
    Inverter inverter;
};

} // namespace

static Graphics& graphics() {
    return machine_state<Graphics>();
}

Inverter& inverter() {
    return graphics().inverter;
}

bool graphics_present() {
    return graphics().present;
}

void set_graphics_present(bool present) {
    graphics().present = present;
}

// ---- commands ----

static Action compile_graphics(Tokens& tokens) {
    const bool present = tokens.choice({"missing", "present"}) == 1;
    return [present] { set_graphics_present(present); };
}

static Action compile_inverter(Tokens& tokens) {
    if (tokens.accept("get-fails"))
        return [] { inverter().get_fails = true; };
    if (tokens.accept("set-fails"))
        return [] { inverter().set_fails = true; };
    if (tokens.accept("get-positive"))
        return [] { inverter().get_positive = true; };
    if (tokens.accept("set-positive"))
        return [] { inverter().set_positive = true; };
    Inverter works;
    works.type = static_cast<DWORD>(tokens.number());
    works.frequency = static_cast<DWORD>(tokens.number());
    return [works] { inverter() = works; };
}

static const Commands g_commands({
    {"windows graphics", Use::Machine, compile_graphics, "missing|present - the graphics driver's COM class"},
    {"windows inverter", Use::Machine, compile_inverter,
     "TYPE FREQUENCY | get-fails | set-fails - the panel's inverter"},
});

} // namespace sim
