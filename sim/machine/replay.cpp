#include "sim/machine/replay.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "sim/machine/machine.h"

namespace sim {

// A real wait may end that much before or behind its time, by the clock's tick and what a thread does
// between.
constexpr Ms SLACK = 50;

// The calls that others can see; a key is created in the midst of its call. Not those that wait for what
// others do.
// clang-format off
static constexpr std::string_view g_visible[] = {
    "DeviceIoControl", "WriteFile", "RegSetValueExW", "RegDeleteKeyW", "RegDeleteValueW", "create_key", "SetServiceStatus",
    "CallNtPowerInformation", "SetSuspendState", "SetActivePwrScheme", "WritePwrScheme", "SetSystemPowerState", "ExitWindowsEx",
    "CreateProcessW", "DeleteFileW", "CopyFileW", "RegLoadKeyW", "RegUnLoadKeyW",
    "RegisterClassExW", "CreateWindowExW", "DestroyWindow", "SetWindowPos", "ShowWindow", "SetFocus", "SetForegroundWindow",
    "SetCapture", "SetCursorPos", "SendInput", "OpenInputDesktop", "SetThreadDesktop",
    "DeleteTask", "RegisterTaskDefinition", "SetInverterParams",
};
// clang-format on

static bool is_visible(const char* call) {
    return std::find(std::begin(g_visible), std::end(g_visible), call) != std::end(g_visible);
}

void replay_begin() {
    Machine& m = machine();
    m.schedule.policy = Policy::First;
    m.replay = {};
    m.replay.on = true;
    m.replay.target = m.now;
}

void replay_end() {
    Machine& m = machine();
    m.replay.on = false;
    m.advance(std::max(m.replay.target, m.now) - m.now);
}

void replay_pass(Ms duration) {
    machine().replay.target += duration;
}

bool has_turn(const Thread& thread) {
    const Replay& replay = machine().replay;
    return !(thread.awaits_turn || thread.awaits_mutex) || !replay.on ||
           (replay.open && thread.name == replay.turn);
}

// Lets the others run, and comes back as soon as it may.
static void stand_back(Thread* thread, bool behind) {
    schedule(thread);
    if (!behind)
        std::rotate(machine().ready.rbegin(), machine().ready.rbegin() + 1, machine().ready.rend());
    leave_to_others(thread);
}

void await_turn(const char* call) {
    const Replay& replay = machine().replay;
    Thread* thread = machine().running;
    if (!replay.on || thread == nullptr)
        return;
    if (replay.came)
        stand_back(thread, false);
    thread->awaits_turn = is_visible(call);
    if (!has_turn(*thread))
        stand_back(thread, true);
    thread->awaits_turn = false;
}

void await_mutex() {
    const Replay& replay = machine().replay;
    Thread* thread = machine().running;
    if (!replay.on || thread == nullptr)
        return;
    thread->awaits_mutex = true;
    if (!has_turn(*thread))
        stand_back(thread, true);
    thread->awaits_mutex = false;
}

void note_effect(const TraceLine& line) {
    Replay& replay = machine().replay;
    if (!replay.on)
        return;
    replay.effects[line.thread].push_back(line);
    replay.came |= replay.open && line.thread == replay.turn;
}

// The next one to run, the thread whose turn it is before others.
static bool run_one() {
    Machine& m = machine();
    const auto turn = std::find_if(m.ready.begin(), m.ready.end(), [&m](const Thread* thread) {
        return thread->name == m.replay.turn && thread->suspended == 0 && has_turn(*thread);
    });
    m.overtaking = turn != m.ready.end() ? *turn : nullptr;
    return run_next();
}

// Nobody else can run: the first one that stands before a mutex takes it out of turn.
static bool let_take_mutex() {
    const auto& ready = machine().ready;
    const auto first =
        std::find_if(ready.begin(), ready.end(), [](const Thread* thread) { return thread->awaits_mutex; });
    if (first == ready.end())
        return false;
    (*first)->awaits_mutex = false;
    return true;
}

// The clock goes on to what falls due next, at most to the end.
static bool pass_to_next(Ms end) {
    Machine& m = machine();
    const Ms next = m.next_deadline();
    if (next > end)
        return false;
    m.now = std::max(m.now, next);
    wake_waiting();
    return true;
}

void replay_catch_up(Ms slack) {
    Machine& m = machine();
    const Ms end = m.replay.target - std::min(m.replay.target, slack);
    while (!interrupted() && (run_one() || pass_to_next(end))) {
    }
    m.now = std::max(m.now, end);
}

bool replay_effect(const std::string& thread, TraceLine* effect) {
    Replay& replay = machine().replay;
    replay.turn = thread;
    replay.open = true;
    std::deque<TraceLine>& effects = replay.effects[thread];
    while (effects.empty() && !interrupted()) {
        if (!run_one() && !pass_to_next(replay.target) && !let_take_mutex() &&
            !pass_to_next(std::max(machine().now, replay.target) + SLACK))
            break;
    }
    replay.open = replay.came = false;
    if (effects.empty())
        return false;
    *effect = std::move(effects.front());
    effects.pop_front();
    return true;
}

} // namespace sim
