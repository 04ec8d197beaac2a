// Windows' side of the rotation lock: a press of its button changes the setting.
#include "sim/machine/machine.h"
#include "sim/notebook/device_interfaces.h"
#include "sim/script/commands.h"
#include "sim/windows/registry.h"

namespace sim {

constexpr BYTE ROTATION_LOCK = 4; // the byte that stands for it
static const char g_autoRotation[] = "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AutoRotation";

namespace {

struct Rotation {
    bool follows = false;
    bool half_pressed = false;
};

} // namespace

// Two bytes are one press, which turns auto-rotation over.
static void button_byte(BYTE byte) {
    if (byte != ROTATION_LOCK)
        return;
    auto& rotation = machine_state<Rotation>();
    rotation.half_pressed = !rotation.half_pressed;
    if (rotation.follows && !rotation.half_pressed && registry_value(g_autoRotation, "Enable") != nullptr)
        registry_set_dword(g_autoRotation, "Enable", registry_dword(g_autoRotation, "Enable") ^ 1);
}

static const ButtonListener g_listener(button_byte);

// ---- commands ----

static Action compile_rotation(Tokens& tokens) {
    const bool follows = tokens.choice({"stays", "follows"}) == 1;
    return [follows] { machine_state<Rotation>().follows = follows; };
}

static const Commands
    g_commands({{"windows rotation", Use::Machine, compile_rotation,
                 "follows|stays - whether a press of the rotation lock changes AutoRotation Enable"}});

} // namespace sim
