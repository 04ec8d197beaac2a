#include "sim/machine/schedule.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

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

bool requests_rest() {
    const auto& threads = machine().threads;
    return std::none_of(threads.begin(), threads.end(), [](const std::unique_ptr<Thread>& thread) {
        return thread->in_request && thread->run != Run::Ended;
    });
}

void schedule_block(bool explored) {
    Schedule& schedule = machine().schedule;
    schedule.explored = schedule.block_begins = explored && schedule.explorer != nullptr;
}

void schedule_instant() {
    Schedule& schedule = machine().schedule;
    if (schedule.explored && !schedule.block_begins && requests_rest())
        schedule.explored = false;
    schedule.block_begins = false;
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

void schedule_line(std::uint32_t line) {
    Schedule& schedule = machine().schedule;
    if (schedule.line == line)
        return;
    if (schedule.points != 0)
        schedule.points_of_lines[schedule.line] = schedule.points;
    const auto before = schedule.points_of_lines.find(line);
    schedule.line = line;
    schedule.points = before != schedule.points_of_lines.end() ? before->second : 0;
}

void note_drawn(std::uint32_t line, Ms value) {
    if (machine().schedule.records)
        machine().schedule.drawn.push_back({line, value});
}

static size_t listed_pick(const Schedule& schedule, const Choice& point, size_t alternatives,
                          bool overtakes) {
    if (schedule.explored)
        return schedule.explorer(point, alternatives, overtakes);
    for (const Choice& choice : schedule.chosen) {
        if (choice.line == point.line && choice.point == point.point)
            return choice.pick < alternatives ? choice.pick : 0;
    }
    return 0;
}

static void note(Schedule* schedule, Choice choice, const char* call, const Thread* first,
                 const Thread* picked) {
    if (schedule->records && choice.pick != 0)
        schedule->passed.push_back(
            {choice, call != nullptr, machine().now, call != nullptr ? call : "", first->name, picked->name});
}

void give_way(Thread* thread) {
    Schedule& schedule = machine().schedule;
    if (schedule.policy != Policy::Priority)
        return;
    thread->priority_drawn = schedule.instants;
    thread->priority = --schedule.lowest;
}

static size_t pick_at_call(Schedule* schedule, const Choice& point, const std::vector<Thread*>& others) {
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
        return listed_pick(*schedule, point, others.size() + 1, true);
    }
}

static size_t pick_next(const Schedule& schedule, const Choice& point, const std::vector<Thread*>& runnable) {
    switch (schedule.policy) {
    case Policy::Uniform:
        return draw(runnable.size());
    case Policy::Priority:
        return highest(runnable);
    default:
        return listed_pick(schedule, point, runnable.size(), false);
    }
}

Thread* overtaker(const char* call, const std::vector<Thread*>& others) {
    Schedule& schedule = machine().schedule;
    Choice choice = {schedule.line, schedule.points++, 0};
    const size_t pick = pick_at_call(&schedule, choice, others);
    choice.pick = static_cast<std::uint32_t>(pick);
    Thread* other = pick != 0 ? others[pick - 1] : nullptr;
    note(&schedule, choice, call, machine().running, other);
    return other;
}

Thread* next_thread(const std::vector<Thread*>& runnable) {
    Schedule& schedule = machine().schedule;
    if (runnable.size() == 1)
        return runnable[0];
    Choice choice = {schedule.line, schedule.points++, 0};
    const size_t pick = pick_next(schedule, choice, runnable);
    choice.pick = static_cast<std::uint32_t>(pick);
    note(&schedule, choice, nullptr, runnable[0], runnable[pick]);
    return runnable[pick];
}

std::string shown_choice(const Choice& choice) {
    return std::to_string(choice.line) + "." + std::to_string(choice.point) + ":" +
           std::to_string(choice.pick);
}

std::string shown_choices(const std::vector<Choice>& choices) {
    std::string text;
    for (const Choice& choice : choices)
        text += (text.empty() ? "" : ",") + shown_choice(choice);
    return text.empty() ? "none" : text;
}

// A number and the character behind it, which `ends` lists ('\0' is always listed).
static bool read_number(const char** at, const char* ends, std::uint64_t* value) {
    char* end = nullptr;
    *value = std::strtoull(*at, &end, 10);
    if (end == *at || !std::isdigit(static_cast<unsigned char>(**at)) || std::strchr(ends, *end) == nullptr)
        return false;
    *at = *end != 0 ? end + 1 : end;
    return true;
}

bool read_choices(const std::string& text, std::vector<Choice>* choices) {
    const char* at = text.c_str();
    while (*at != 0 && text != "none") {
        std::uint64_t line = 0;
        std::uint64_t point = 0;
        std::uint64_t pick = 0;
        if (!read_number(&at, ".", &line) || !read_number(&at, ":", &point) || !read_number(&at, ",", &pick))
            return false;
        choices->push_back({static_cast<std::uint32_t>(line), point, static_cast<std::uint32_t>(pick)});
    }
    return true;
}

} // namespace sim
