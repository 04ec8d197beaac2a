#include "sim/tool/search.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "sim/machine/image.h"
#include "sim/machine/machine.h"
#include "sim/tool/output.h"
#include "sim/tool/processes.h"

constexpr std::uint64_t NONE = ~0ull;

namespace {

// Shared by the processes of one search.
struct Search {
    std::atomic<std::uint64_t> next;               // seed, for whoever is free
    std::atomic<std::uint64_t> lowest = NONE;      // that fails
    std::atomic<std::uint64_t> failing;            // how many do
    std::atomic<std::uint64_t> done;               // how many have run
    std::atomic<std::uint64_t> running[MOST_JOBS]; // seed that each process runs
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

} // namespace

static void note_failure(Search* search, std::uint64_t seed) {
    ++search->failing;
    std::uint64_t lowest = search->lowest;
    while (seed < lowest && !search->lowest.compare_exchange_weak(lowest, seed)) {
    }
}

// The next seed that nobody has taken, until all are gone or, unless all are wanted, one before has failed.
static void run_seeds(Search* search, unsigned job, const Source& source, const Options& options) {
    while (true) {
        const std::uint64_t seed = search->next++;
        if (sim::interrupted() || seed > options.last_seed || seed < options.first_seed ||
            (!options.every_seed && seed > search->lowest))
            return;
        search->running[job] = seed;
        const int exit_code = run_quietly(source, options, seed).exit_code;
        if (sim::interrupted())
            return;
        if (exit_code != EXIT_HOLDS)
            note_failure(search, seed);
        ++search->done;
    }
}

static void end_silently(int) {
    sim::image_remove_copies();
    _exit(sim::interrupted() ? EXIT_HOLDS : EXIT_FAILS); // the interrupted seed's verdict is nobody's
}

static pid_t start_job(Search* search, unsigned job, const Source& source, const Options& options) {
    return start_process([&] {
        watch_for_crashes(end_silently);
        run_seeds(search, job, source, options);
    });
}

// Runs all jobs to their end; the seed in which one crashed fails, and another process takes its place.
static bool run_jobs(Search* search, unsigned jobs, const Source& source, const Options& options) {
    std::vector<pid_t> processes;
    for (unsigned job = 0; job < jobs; ++job)
        processes.push_back(start_job(search, job, source, options));
    bool all_started = true;
    for (unsigned job = 0; job < jobs; ++job) {
        while (processes[job] > 0 && exit_status_of(processes[job]) != 0) {
            note_failure(search, search->running[job]);
            processes[job] = start_job(search, job, source, options);
        }
        all_started = all_started && processes[job] > 0;
    }
    return all_started;
}

// Once more, in a process of its own in case it crashes: this time the verdict is printed.
static void tell_failure(const Source& source, const Options& options, std::uint64_t seed) {
    const std::string beginning = source.path + ": seed " + std::to_string(seed) + ": ";
    const pid_t process = start_process([&] {
        watch_for_crashes();
        set_crash_beginning(beginning);
        const sim::ScriptResult result = run_quietly(source, options, seed);
        say(beginning + shown_failure(result) + result.context + "\n");
    });
    if (process > 0)
        exit_status_of(process);
    say("    repeat with: zorpmsim" + atomics_option(options) + " --seed " + std::to_string(seed) + " " +
        source.path + "\n");
}

static int tell_result(const Search& search, const Source& source, const Options& options) {
    const std::uint64_t seeds = options.last_seed - options.first_seed + 1;
    const bool holds = search.lowest == NONE;
    if (sim::interrupted())
        say(source.path + ": interrupted, " + std::to_string(search.done) + " of " + std::to_string(seeds) +
            " seeds were run\n");
    else if (holds)
        say(source.path + ": " + std::to_string(seeds) + " seeds hold\n");
    if (!holds)
        tell_failure(source, options, search.lowest);
    if (!holds && options.every_seed)
        say(source.path + ": " + std::to_string(search.failing) + " of " + std::to_string(seeds) +
            " seeds fail\n");
    return !holds ? EXIT_FAILS : sim::interrupted() ? EXIT_INTERRUPTED : EXIT_HOLDS;
}

static int search_source(const Source& source, const Options& options) {
    auto* search = share<Search>();
    if (search != nullptr)
        search->next = options.first_seed;
    if (search == nullptr || !run_jobs(search, jobs_of(options), source, options)) {
        std::fprintf(stderr, "zorpmsim: no process for the seeds: %s\n", std::strerror(errno));
        return EXIT_UNUSABLE;
    }
    const int status = tell_result(*search, source, options);
    unshare(search);
    return status;
}

int search_seeds(const std::vector<Source>& sources, const Options& options) {
    int exit_code = EXIT_HOLDS;
    for (const Source& source : sources) {
        const int status = search_source(source, options);
        exit_code = status > exit_code ? status : exit_code;
    }
    return exit_code;
}
