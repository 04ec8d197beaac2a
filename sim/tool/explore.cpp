#include "sim/tool/explore.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
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
    std::atomic<std::uint64_t> points;  // passed in the blocks
    std::atomic<std::uint64_t> tried;   // schedules
    std::atomic<std::uint64_t> failing; // of them
    std::atomic<std::int64_t> free_jobs;
    std::atomic<bool> cut_short;   // by the limit, or for want of a process
    std::atomic_flag lock;         // of what follows
    std::uint64_t fewest;          // choices of a schedule that fails
    char choices[LONGEST_CHOICES]; // these
};

// Of the process at hand: it runs one schedule.
struct Path {
    Exploration* shared = nullptr;
    std::uint64_t limit = 0;
    unsigned overtakings = 0;
    std::uint64_t count = 0;
    char choices[LONGEST_CHOICES] = ""; // as text: a crashed process allocates nothing
    bool holds_job = false;             // that becomes free with its end
};

} // namespace

static Path g_path;

// ---- a process for each schedule ----

static void reap_all() {
    int status = 0;
    for (;;) {
        const pid_t process = waitpid(-1, &status, 0);
        if (process < 0 && errno != EINTR)
            return;
        forget_process(process);
        if (process > 0 && status != 0)
            g_path.shared->cut_short = true;
    }
}

[[noreturn]] static void end_schedule(bool holds) {
    Exploration* shared = g_path.shared;
    ++shared->tried;
    if (!holds) {
        ++shared->failing;
        while (shared->lock.test_and_set()) {
        }
        if (g_path.count < shared->fewest ||
            (g_path.count == shared->fewest && std::strcmp(g_path.choices, shared->choices) < 0)) {
            shared->fewest = g_path.count;
            std::memcpy(shared->choices, g_path.choices, LONGEST_CHOICES);
        }
        shared->lock.clear();
    }
    reap_all();
    shared->free_jobs += g_path.holds_job;
    _exit(0);
}

static void end_crashed_schedule(int) {
    end_schedule(sim::interrupted());
}

static bool take_job() {
    std::int64_t free = g_path.shared->free_jobs;
    while (free > 0) {
        if (g_path.shared->free_jobs.compare_exchange_weak(free, free - 1))
            return true;
    }
    return false;
}

// A process that goes on from here with another choice: true in that one. With a job of its own it runs
// beside, otherwise it comes first.
static bool branch() {
    const bool beside = take_job();
    const pid_t process = fork();
    if (process == 0) {
        forget_processes();
        end_with_parent();
        g_path.holds_job = beside;
        return true;
    }
    if (process > 0)
        note_process(process);
    int status = process < 0 ? -1 : 0;
    while (process > 0 && !beside && waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (!beside)
        forget_process(process);
    if (status != 0)
        g_path.shared->cut_short = true;
    return false;
}

static void choose(const Choice& choice, bool overtakes) {
    const std::string text = (g_path.count == 0 ? "" : ",") + sim::shown_choice(choice);
    const size_t length = std::strlen(g_path.choices);
    if (length + text.size() < LONGEST_CHOICES)
        std::memcpy(g_path.choices + length, text.c_str(), text.size() + 1);
    ++g_path.count;
    g_path.overtakings += overtakes;
}

static bool may_branch() {
    if (!sim::interrupted() && (g_path.limit == 0 || g_path.shared->tried < g_path.limit))
        return true;
    g_path.shared->cut_short = true;
    return false;
}

// The Explorer: this process goes on as usual, and one more with each other choice.
static std::uint32_t explore_point(const Choice& point, size_t alternatives, bool overtakes) {
    ++g_path.shared->points;
    if (overtakes && g_path.overtakings == MOST_OVERTAKINGS)
        return 0;
    for (std::uint32_t pick = 1; pick < alternatives && may_branch(); ++pick) {
        if (branch()) {
            choose({point.line, point.point, pick}, overtakes);
            return pick;
        }
    }
    return 0;
}

[[noreturn]] static void explore(Exploration* shared, const Source& source, const Options& options) {
    watch_for_crashes(end_crashed_schedule);
    g_path.shared = shared;
    g_path.limit = options.limit;
    sim::Machine machine(options.seed);
    machine.schedule.explorer = explore_point;
    Options chosen = options;
    chosen.scheduled = true;
    end_schedule(run_on(machine, source, chosen).exit_code == EXIT_HOLDS || sim::interrupted());
}

// ---- what is told ----

std::string shown_schedule(const std::vector<PassedPoint>& passed, const char* beginning) {
    std::string text;
    for (const PassedPoint& point : passed)
        text += beginning +
                sim::format("line %u, %.3f: ", point.choice.line, static_cast<double>(point.time) / 1000) +
                point.other +
                (point.overtakes ? " overtakes " + point.thread + " before its " + point.where
                                 : " goes on before " + point.thread) +
                "\n";
    return text;
}

static void tell_failure(const Exploration& shared, const Source& source, const Options& options) {
    Options chosen = options;
    chosen.scheduled = true;
    sim::read_choices(shared.choices, &chosen.choices);
    const std::string choices = sim::shown_choices(chosen.choices);
    const pid_t process = start_process([&] {
        watch_for_crashes();
        set_crash_beginning(source.path + ": schedule " + choices + ": ");
        sim::Machine machine(options.seed);
        machine.schedule.records = true;
        const sim::ScriptResult result = run_on(machine, source, chosen);
        say(source.path + ": schedule " + choices + ": " + shown_failure(result) + result.context + "\n" +
            shown_schedule(machine.schedule.passed, "    "));
    });
    if (process > 0)
        exit_status_of(process);
    say("    repeat with: zorpmsim" + atomics_option(options) + " --schedule " + choices + " " + source.path +
        "\n");
}

static int tell_result(const Exploration& shared, const Source& source, const Options& options) {
    const bool holds = shared.failing == 0;
    if (!holds)
        tell_failure(shared, source, options);
    const std::string count = std::to_string(shared.tried);
    say(source.path + ": " +
        (holds ? count + " schedules hold"
               : std::to_string(shared.failing) + " of " + count + " schedules fail") +
        (shared.cut_short ? ", not complete\n" : ", complete (at most two overtakings)\n"));
    return holds && !shared.cut_short ? EXIT_HOLDS : EXIT_FAILS;
}

static int explore_source(const Source& source, const Options& options) {
    auto* shared = share<Exploration>();
    if (shared == nullptr)
        return EXIT_UNUSABLE;
    shared->fewest = ~0ull;
    shared->free_jobs = jobs_of(options) - 1;
    const pid_t process = start_process([&] { explore(shared, source, options); });
    if (process < 0 || exit_status_of(process) != 0)
        shared->cut_short = true;
    int exit_code = EXIT_UNUSABLE;
    if (shared->points == 0 && shared->failing == 0)
        std::fprintf(stderr, "%s: no together or after in it that wakes two threads: nothing to explore\n",
                     source.path.c_str());
    else
        exit_code = tell_result(*shared, source, options);
    unshare(shared);
    return exit_code;
}

int explore_sources(const std::vector<Source>& sources, const Options& options) {
    int exit_code = EXIT_HOLDS;
    for (const Source& source : sources)
        exit_code = std::max(exit_code, explore_source(source, options));
    return exit_code;
}
