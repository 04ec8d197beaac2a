#include "sim/tool/search.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

constexpr unsigned MOST_JOBS = 1024;
constexpr std::uint64_t NONE = ~0ull;

namespace {

// Shared by the processes of one search.
struct Search {
    std::atomic<std::uint64_t> next;               // seed, for whoever is free
    std::atomic<std::uint64_t> lowest;             // that fails; NONE
    std::atomic<std::uint64_t> failing;            // how many do
    std::atomic<std::uint64_t> running[MOST_JOBS]; // seed that each process runs
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

} // namespace

static Search* new_search(std::uint64_t first_seed) {
    void* memory = mmap(nullptr, sizeof(Search), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return nullptr;
    auto* search = new (memory) Search;
    search->next = first_seed;
    search->lowest = NONE;
    search->failing = 0;
    return search;
}

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
        if (seed > options.last_seed || seed < options.first_seed ||
            (!options.every_seed && seed > search->lowest))
            return;
        search->running[job] = seed;
        if (run_quietly(source, seed).exit_code != 0)
            note_failure(search, seed);
    }
}

// A process of its own for `work`; -1 when there can be none. It leaves in order, so that its images go.
template <class Work> static pid_t start_process(const Work& work) {
    std::fflush(stdout);
    const pid_t process = fork();
    if (process != 0)
        return process;
    work();
    std::exit(0);
}

static void end_silently(int) {
    _exit(EXIT_FAILS);
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
        int status = 0;
        while (processes[job] > 0 && waitpid(processes[job], &status, 0) == processes[job] && status != 0) {
            note_failure(search, search->running[job]);
            processes[job] = start_job(search, job, source, options);
        }
        all_started = all_started && processes[job] > 0;
    }
    return all_started;
}

// Once more, in a process of its own in case it crashes: this time the verdict is printed.
static void tell_failure(const Source& source, std::uint64_t seed) {
    const std::string beginning = source.path + ": seed " + std::to_string(seed) + ": ";
    const pid_t process = start_process([&] {
        watch_for_crashes();
        set_crash_beginning(beginning);
        const sim::ScriptResult result = run_quietly(source, seed);
        std::printf("%s%s%s\n", beginning.c_str(), shown_failure(result).c_str(), result.context.c_str());
    });
    if (process > 0)
        waitpid(process, nullptr, 0);
    std::printf("    repeat with: zorpmsim --seed %llu %s\n", static_cast<unsigned long long>(seed),
                source.path.c_str());
}

static int search_source(const Source& source, const Options& options, unsigned jobs) {
    Search* search = new_search(options.first_seed);
    if (search == nullptr || !run_jobs(search, jobs, source, options)) {
        std::fprintf(stderr, "zorpmsim: no process for the seeds: %s\n", std::strerror(errno));
        return EXIT_UNUSABLE;
    }
    const auto seeds = static_cast<unsigned long long>(options.last_seed - options.first_seed + 1);
    const bool holds = search->lowest == NONE;
    if (holds)
        std::printf("%s: %llu seeds hold\n", source.path.c_str(), seeds);
    else
        tell_failure(source, search->lowest);
    if (!holds && options.every_seed)
        std::printf("%s: %llu of %llu seeds fail\n", source.path.c_str(),
                    static_cast<unsigned long long>(search->failing), seeds);
    munmap(search, sizeof(Search));
    return holds ? EXIT_HOLDS : EXIT_FAILS;
}

int search_seeds(const std::vector<Source>& sources, const Options& options) {
    const unsigned processors = std::thread::hardware_concurrency();
    const unsigned jobs = options.jobs != 0 ? options.jobs : processors != 0 ? processors : 1;
    int exit_code = EXIT_HOLDS;
    for (const Source& source : sources) {
        const int status = search_source(source, options, jobs);
        exit_code = status > exit_code ? status : exit_code;
    }
    return exit_code;
}
