#include "sim/tool/explore.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "sim/tool/output.h"
#include "sim/tool/processes.h"

constexpr unsigned MOST_OVERTAKINGS = 2;
constexpr size_t LONGEST_CHOICES = 4096;

using sim::Choice;
using sim::PassedPoint;

namespace {

// Shared by the processes of one exploration.
struct Exploration {
    std::atomic<std::uint64_t>
        next; // first point at which a schedule differs from the usual one, for whoever is free
    std::atomic<std::uint64_t> tried;   // schedules
    std::atomic<std::uint64_t> failing; // of them
    std::atomic<bool> cut_short;        // by the limit, or a crash
    std::atomic_flag lock;              // of what follows
    std::uint64_t first_failing;        // by its first point
    char choices[LONGEST_CHOICES];      // of that one
};

struct Tried {
    sim::ScriptResult result;
    std::vector<PassedPoint> passed;
};

} // namespace

static Tried try_schedule(const Source& source, const Options& options, const std::vector<Choice>& choices) {
    sim::Machine machine(options.seed);
    Options chosen = options;
    chosen.scheduled = true;
    chosen.choices = choices;
    machine.schedule.explores = true;
    Tried tried;
    tried.result = run_on(machine, source, chosen);
    tried.passed = std::move(machine.schedule.passed);
    return tried;
}

// Leaves it noted as failing until it is known to hold, so that a crash is seen.
static Tried count_schedule(Exploration* shared, const Source& source, const Options& options,
                            std::uint64_t first, const std::vector<Choice>& choices) {
    ++shared->tried;
    Tried tried = try_schedule(source, options, choices);
    if (tried.result.exit_code == EXIT_HOLDS || sim::interrupted())
        return tried;
    ++shared->failing;
    while (shared->lock.test_and_set()) {
    }
    const std::string text = sim::shown_choices(choices);
    if (first < shared->first_failing && text.size() < LONGEST_CHOICES) {
        shared->first_failing = first;
        std::memcpy(shared->choices, text.c_str(), text.size() + 1);
    }
    shared->lock.clear();
    return tried;
}

static bool may_go_on(Exploration* shared, const Options& options) {
    if (!sim::interrupted() && (options.limit == 0 || shared->tried < options.limit))
        return true;
    shared->cut_short = true;
    return false;
}

// The choices that lead to the next schedule behind this one, of those that begin alike up to `fixed` points;
// empty when there is none.
static std::vector<Choice> next_choices(const std::vector<PassedPoint>& passed, size_t fixed) {
    std::vector<unsigned> overtakings(passed.size() + 1); // before each point
    for (size_t i = 0; i < passed.size(); ++i)
        overtakings[i + 1] = overtakings[i] + (passed[i].overtakes && passed[i].choice.pick != 0);
    for (size_t i = passed.size(); i-- > fixed;) {
        const PassedPoint& point = passed[i];
        if (point.choice.pick + 1 >= point.alternatives ||
            overtakings[i] + point.overtakes > MOST_OVERTAKINGS)
            continue;
        std::vector<Choice> choices;
        for (size_t k = 0; k < i; ++k) {
            if (passed[k].choice.pick != 0)
                choices.push_back(passed[k].choice);
        }
        choices.push_back({point.choice.point, point.choice.pick + 1});
        return choices;
    }
    return {};
}

// All schedules that differ from the usual one at this point for the first time.
static void explore_from(Exploration* shared, const Source& source, const Options& options,
                         const PassedPoint& point, size_t index) {
    for (std::uint32_t pick = 1; pick < point.alternatives; ++pick) {
        std::vector<Choice> choices = {{point.choice.point, pick}};
        while (!choices.empty() && may_go_on(shared, options)) {
            const Tried tried = count_schedule(shared, source, options, index + 1, choices);
            choices = next_choices(tried.passed, index + 1);
        }
    }
}

static void explore_points(Exploration* shared, const Source& source, const Options& options) {
    const std::vector<PassedPoint> usual = try_schedule(source, options, {}).passed;
    while (may_go_on(shared, options)) {
        const std::uint64_t index = shared->next++;
        if (index >= usual.size())
            return;
        explore_from(shared, source, options, usual[index], index);
    }
}

static void end_silently(int) {
    _exit(EXIT_FAILS);
}

static bool run_jobs(Exploration* shared, const Source& source, const Options& options) {
    std::vector<pid_t> processes;
    for (unsigned job = 0; job < jobs_of(options); ++job) {
        processes.push_back(start_process([&] {
            watch_for_crashes(end_silently);
            explore_points(shared, source, options);
        }));
    }
    bool all_well = true;
    for (const pid_t process : processes)
        all_well = process > 0 && exit_status_of(process) == 0 && all_well;
    return all_well;
}

std::string shown_schedule(const std::vector<PassedPoint>& passed, const char* beginning) {
    std::string text;
    for (const PassedPoint& point : passed) {
        if (point.choice.pick == 0)
            continue;
        text += beginning + sim::format("%.3f ", static_cast<double>(point.time) / 1000) + point.other +
                (point.overtakes ? " overtakes " + point.thread + " before its " + point.where
                                 : " goes on before " + point.thread) +
                "\n";
    }
    return text;
}

static void tell_failure(const Exploration& shared, const Source& source, const Options& options) {
    std::vector<Choice> choices;
    sim::read_choices(shared.choices, &choices);
    const Tried tried = try_schedule(source, options, choices);
    say(source.path + ": schedule " + shared.choices + ": " + shown_failure(tried.result) +
        tried.result.context + "\n" + shown_schedule(tried.passed, "    "));
    say("    repeat with: zorpmsim --schedule " + std::string(choices.empty() ? "0:0" : shared.choices) +
        " " + source.path + "\n");
}

static int explore_source(const Source& source, const Options& options) {
    auto* shared = share<Exploration>();
    if (shared == nullptr)
        return EXIT_UNUSABLE;
    shared->first_failing = ~0ull;
    const Tried usual = count_schedule(shared, source, options, 0, {});
    if (usual.passed.empty() && usual.result.exit_code == EXIT_HOLDS) {
        std::fprintf(stderr, "%s: no together in it whose commands wake two threads: nothing to explore\n",
                     source.path.c_str());
        unshare(shared);
        return EXIT_UNUSABLE;
    }
    const bool whole = run_jobs(shared, source, options) && !shared->cut_short;
    const bool holds = shared->failing == 0;
    if (!holds)
        tell_failure(*shared, source, options);
    const std::string count = std::to_string(shared->tried);
    say(source.path + ": " +
        (holds ? count + " schedules hold"
               : std::to_string(shared->failing) + " of " + count + " schedules fail") +
        (whole ? ", complete (at most two overtakings)\n" : ", not complete\n"));
    unshare(shared);
    return holds && whole ? EXIT_HOLDS : EXIT_FAILS;
}

int explore_sources(const std::vector<Source>& sources, const Options& options) {
    int exit_code = EXIT_HOLDS;
    for (const Source& source : sources)
        exit_code = std::max(exit_code, explore_source(source, options));
    return exit_code;
}
