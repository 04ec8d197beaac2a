#include "sim/script/recording.h"

#include "sim/machine/machine.h"
#include "sim/script/expectations.h"
#include "sim/script/grammar.h"
#include "sim/script/scenario.h"

namespace sim {

// What somebody wrote to the registry is recorded when the service reads it: so long before, it was not
// there.
constexpr Ms READ_WITHIN = 50;

// Drives the machine, and finds it as it was: what the service did unseen before it is done.
static bool comes_from_outside(const ScriptLine& line) {
    return line.use == Use::Drive || line.use == Use::Check;
}

void recorded_line(const ScriptLine& line) {
    if (!machine().replay.on || line.text.starts_with("effect "))
        return;
    if (line.text.starts_with("registry "))
        replay_catch_up(READ_WITHIN);
    else if (comes_from_outside(line))
        replay_catch_up(0);
}

static std::string shown(const TraceLine& line) {
    return format("%.3f %s %s", static_cast<double>(line.time) / 1000, line.thread.c_str(),
                  line.text.c_str());
}

// The effects that nobody has asked for, the first of a thread each.
static std::string not_recorded() {
    std::string text;
    for (const auto& [thread, effects] : machine().replay.effects) {
        if (!effects.empty() && thread != "machine")
            text += "\n    not recorded: " + shown(effects.front());
    }
    return text;
}

static void compare(const std::string& thread, const std::string& text) {
    Replay& replay = machine().replay;
    if (!replay.on)
        return;
    TraceLine effect;
    const bool came = replay_effect(thread, &effect);
    const bool same = came && effect.text == text;
    replay.same += same;
    const bool last = replay.same == replay.recorded;
    const std::string more = !same || last ? not_recorded() : "";
    const std::string so_far = format("effect %zu of %zu as recorded", replay.same + !same, replay.recorded);
    expectation(same && more.empty(),
                so_far + "\n    recorded: " + shown({replay.target, thread, text}) +
                    (came ? "\n    replayed: " + shown(effect) : "\n    it does not come") + more);
    if (last)
        replay_end();
}

// ---- commands ----

static Action compile_effect(Tokens& tokens) {
    const std::string thread = tokens.word();
    const std::string& rest = tokens.rest_of_line;
    const size_t begin = rest.find_first_not_of(" \t", thread.size());
    tokens.at = tokens.list.size();
    if (begin == std::string::npos) {
        tokens.fail("the line of an effect expected");
        return {};
    }
    const std::string text = rest.substr(begin);
    if (const std::string error = impossible_pattern(text); !error.empty())
        tokens.fail(error);
    return [=] { compare(thread, text); };
}

static const Commands g_commands({
    {"effect", Use::Check, compile_effect,
     "THREAD LINE - the next effect of that thread is this line; the order of these lines is the schedule"},
});

} // namespace sim
