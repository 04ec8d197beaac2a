#include "sim/machine/schedule.h"

#include <algorithm>
#include <cstdlib>

#include "sim/machine/machine.h"

namespace sim {

// Uniform: one call in so many may hand over.
constexpr std::uint64_t CALLS_PER_HAND_OVER = 6;
// Priority: the change comes among the first 4, 8, ... 256 calls of an instant.
constexpr std::uint64_t SHORTEST_REACH = 2;
constexpr std::uint64_t REACHES = 7;
constexpr std::uint64_t HIGH = std::uint64_t{1} << 32; // priorities drawn lie above, lowered ones below

// The schedule's own numbers: what a script draws does not depend on them.
static std::uint64_t draw(std::uint64_t bound) {
    return splitmix(&machine().schedule.random_state) % bound;
}

Schedule::Schedule(std::uint64_t seed) : random_state(seed * 0x9E3779B97F4A7C15ull + 1) {
    if (seed != 0)
        policy = seed % 2 == 0 ? Policy::Priority : Policy::Uniform;
    depth = 2 + static_cast<unsigned>(seed / 2 % 2);
}

void schedule_instant() {
    Schedule& schedule = machine().schedule;
    if (schedule.policy != Policy::Priority)
        return;
    ++schedule.instants; // priorities are drawn when first asked for
    schedule.calls = 0;
    schedule.lowest = HIGH;
    const std::uint64_t reach = std::uint64_t{1} << (SHORTEST_REACH + draw(REACHES));
    for (std::uint64_t& change : schedule.changes)
        change = 1 + draw(reach);
    if (schedule.depth == 2)
        schedule.changes[1] = 0;
}

static std::uint64_t priority_of(Thread* thread) {
    if (thread->priority_drawn != machine().schedule.instants) {
        thread->priority_drawn = machine().schedule.instants;
        thread->priority = HIGH + draw(HIGH);
    }
    return thread->priority;
}

static size_t highest(const std::vector<Thread*>& threads) {
    size_t best = 0;
    for (size_t i = 1; i < threads.size(); ++i) {
        if (priority_of(threads[i]) > priority_of(threads[best]))
            best = i;
    }
    return best;
}

static std::uint32_t listed_pick(Schedule* schedule, std::uint64_t point, size_t alternatives) {
    while (schedule->next_chosen < schedule->chosen.size() &&
           schedule->chosen[schedule->next_chosen].point < point)
        ++schedule->next_chosen;
    if (schedule->next_chosen == schedule->chosen.size() ||
        schedule->chosen[schedule->next_chosen].point != point)
        return 0;
    const std::uint32_t pick = schedule->chosen[schedule->next_chosen].pick;
    return pick < alternatives ? pick : 0;
}

static void note(Schedule* schedule, Choice choice, size_t alternatives, const char* call,
                 const Thread* first, const Thread* picked) {
    if (!schedule->record_all && (!schedule->record_changes || choice.pick == 0))
        return;
    schedule->passed.push_back({choice, static_cast<std::uint32_t>(alternatives), call != nullptr,
                                machine().now, call != nullptr ? call : "", first->name,
                                choice.pick != 0 ? picked->name : std::string()});
}

void give_way(Thread* thread) {
    Schedule& schedule = machine().schedule;
    if (schedule.policy != Policy::Priority)
        return;
    thread->priority_drawn = schedule.instants;
    thread->priority = --schedule.lowest;
}

static size_t pick_at_call(Schedule* schedule, std::uint64_t point, const std::vector<Thread*>& others) {
    Thread* running = machine().running;
    switch (schedule->policy) {
    case Policy::Uniform:
        return draw(CALLS_PER_HAND_OVER) == 0 ? draw(others.size() + 1) : 0;
    case Policy::Priority: {
        ++schedule->calls;
        if (schedule->calls == schedule->changes[0] || schedule->calls == schedule->changes[1])
            give_way(running);
        const size_t best = highest(others);
        return priority_of(others[best]) > priority_of(running) ? best + 1 : 0;
    }
    default:
        return listed_pick(schedule, point, others.size() + 1);
    }
}

Thread* overtaker(const char* call, const std::vector<Thread*>& others) {
    Schedule& schedule = machine().schedule;
    const std::uint64_t point = schedule.points++;
    const size_t pick = pick_at_call(&schedule, point, others);
    Thread* other = pick != 0 ? others[pick - 1] : nullptr;
    note(&schedule, {point, static_cast<std::uint32_t>(pick)}, others.size() + 1, call, machine().running,
         other);
    return other;
}

Thread* next_thread(const std::vector<Thread*>& runnable) {
    Schedule& schedule = machine().schedule;
    if (runnable.size() == 1)
        return runnable[0];
    const std::uint64_t point = schedule.points++;
    const size_t pick = schedule.policy == Policy::Uniform ? draw(runnable.size())
                        : schedule.policy == Policy::Priority
                            ? highest(runnable)
                            : listed_pick(&schedule, point, runnable.size());
    note(&schedule, {point, static_cast<std::uint32_t>(pick)}, runnable.size(), nullptr, runnable[0],
         runnable[pick]);
    return runnable[pick];
}

std::string shown_choices(const std::vector<Choice>& choices) {
    std::string text;
    for (const Choice& choice : choices)
        text += (text.empty() ? "" : ",") + std::to_string(choice.point) + ":" + std::to_string(choice.pick);
    return text;
}

bool read_choices(const std::string& text, std::vector<Choice>* choices) {
    const char* at = text.c_str();
    while (*at != 0) {
        char* end = nullptr;
        Choice choice;
        choice.point = std::strtoull(at, &end, 10);
        if (end == at || *end != ':')
            return false;
        at = end + 1;
        choice.pick = static_cast<std::uint32_t>(std::strtoul(at, &end, 10));
        if (end == at || (*end != ',' && *end != 0))
            return false;
        if (!choices->empty() && choices->back().point >= choice.point)
            return false;
        choices->push_back(choice);
        at = *end == ',' ? end + 1 : end;
    }
    return true;
}

} // namespace sim
