#include "sim/hunt/runner.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/time.h>
#include <unordered_set>

#include "sim/machine/machine.h"
#include "sim/script/scenario.h"
#include "sim/tool/output.h"
#include "sim/tool/processes.h"
#include "sim/tool/run.h"

namespace hunt {

using Clock = std::chrono::steady_clock;

constexpr unsigned MOST_PROCESSES = 64;
constexpr size_t LONGEST_TEXT = size_t{16} << 20; // of a case; taken only as it is written
constexpr size_t LONGEST_MESSAGE = 4096;
constexpr size_t MOST_SHRUNK = 8; // failures of different messages
constexpr int CRASHED = 64;       // exit status, and the signal's number
static const std::string g_folder = "build/hunt/";

namespace {

// What a process leaves, however it ends.
struct Job {
    std::atomic<std::uint64_t> seed;
    std::atomic<size_t> length;
    char message[LONGEST_MESSAGE];
    char* text; // in memory that is shared too
};

struct Shared {
    std::atomic<std::uint64_t> next;
    std::atomic<std::uint64_t> end; // behind the last
    std::atomic<bool> stop;
    std::atomic<std::uint64_t> done;
    std::atomic<std::uint64_t> commands;
    std::atomic<std::uint64_t> expectations;
    std::atomic<std::uint64_t> virtual_s;
    std::atomic<std::uint64_t> cpu_ms;
    std::atomic<std::uint64_t> kinds[4096]; // a bit each
    Job jobs[MOST_PROCESSES];
};

struct Failure {
    std::uint64_t seed = 0;
    unsigned times = 0;
    std::string message;
    std::string file;
    std::string shrunk; // what became of it
};

} // namespace

static Shared* g_shared = nullptr;
static Job* g_job = nullptr; // of this process

// ---- one case ----

static void keep_text(const std::string& text) {
    const size_t length = g_job->length;
    const size_t more = std::min(text.size(), LONGEST_TEXT - length);
    std::memcpy(g_job->text + length, text.data(), more);
    g_job->length = length + more;
}

bool play(Case& seed, const std::string& text) {
    keep_text(text + "\n");
    const sim::ScriptResult result = sim::run_text(text + "\n");
    g_shared->commands += static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    g_shared->expectations += result.expectations;
    if (result.exit_code != 0)
        seed.failure = result.message;
    return result.exit_code == 0;
}

void play_bytes(Case& seed, const std::string& bytes, bool runs) {
    keep_text(bytes);
    g_shared->commands += static_cast<std::uint64_t>(std::count(bytes.begin(), bytes.end(), '\n')) + 1;
    std::vector<sim::Fault> faults;
    const auto script = sim::compile_script(bytes, "", &faults);
    const sim::ScriptResult result =
        runs && script != nullptr ? sim::run_script(*script) : sim::ScriptResult();
    if (result.exit_code == 1 && !result.message.starts_with("expected "))
        seed.failure = result.message;
}

bool note_kind(std::uint64_t hash) {
    hash %= std::size(g_shared->kinds) * 64;
    const std::uint64_t bit = std::uint64_t{1} << hash % 64;
    return (g_shared->kinds[hash / 64].fetch_or(bit) & bit) == 0;
}

// Of processor, so that a machine with much else to do makes nothing fail.
static void limit_time(unsigned seconds) {
    itimerval limit = {};
    limit.it_value.tv_sec = seconds;
    setitimer(ITIMER_PROF, &limit, nullptr);
}

static void run_seed(const Generator& generator, std::uint64_t number) {
    g_job->length = 0;
    g_job->seed = number;
    limit_time(generator.longest_s);
    Case seed = {number, Draw(number), ""};
    {
        sim::Machine machine(number);
        generator.run(seed);
        g_shared->virtual_s += machine.now / 1000;
    }
    limit_time(0);
    if (sim::interrupted())
        std::exit(EXIT_INTERRUPTED);
    if (!seed.failure.empty()) {
        std::snprintf(g_job->message, LONGEST_MESSAGE, "%s", seed.failure.c_str());
        std::exit(EXIT_FAILS);
    }
    ++g_shared->done;
}

static std::uint64_t used_cpu_ms() {
    return static_cast<std::uint64_t>(std::clock()) / (CLOCKS_PER_SEC / 1000);
}

// What crashes is no more in order: nothing is cleared up.
static void crashed(int signal_number) {
    _exit(CRASHED + signal_number);
}

static pid_t start_job(const Generator& generator, unsigned number) {
    return start_process([&] {
        g_job = &g_shared->jobs[number];
        watch_for_crashes(crashed);
        signal(SIGPROF, crashed);
        const std::string log = g_folder + generator.name + ".log"; // the sanitizers' reports
        const int file = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
        dup2(file, STDERR_FILENO);
        while (!g_shared->stop && !sim::interrupted()) {
            const std::uint64_t seed = g_shared->next++;
            if (seed >= g_shared->end)
                break;
            const std::uint64_t before = used_cpu_ms();
            run_seed(generator, seed);
            g_shared->cpu_ms += used_cpu_ms() - before;
        }
        g_job->seed = 0;
    });
}

// ---- failures ----

static std::string without_digits(std::string text) {
    std::erase_if(text, [](unsigned char c) { return std::isdigit(c) != 0; });
    return text;
}

static std::string message_of(const Generator& generator, const Job& job, int status) {
    if (status == EXIT_FAILS)
        return job.message;
    if (status == CRASHED + SIGPROF)
        return sim::format("no end within %u s", generator.longest_s);
    return sim::format("the product crashed (signal %d)", status - CRASHED);
}

static void note_failure(const Generator& generator, const Job& job, int status,
                         std::vector<Failure>* failures) {
    const std::string message = message_of(generator, job, status);
    for (Failure& known : *failures) {
        if (without_digits(known.message) == without_digits(message)) {
            ++known.times;
            return;
        }
    }
    Failure failure = {job.seed, 1, message, g_folder + generator.name + "-" + std::to_string(job.seed), ""};
    std::ofstream file(failure.file + ".txt", std::ios::binary);
    file.write(job.text, static_cast<std::streamsize>(job.length));
    say(sim::format("%s: seed %llu: %s\n", generator.name, static_cast<unsigned long long>(job.seed),
                    message.c_str()));
    flush_output();
    failures->push_back(failure);
}

// zorpmsim --shrink in a process of its own, a minute at most.
static void shrink(Failure* failure) {
    const std::string shrunk = failure->file + ".shrunk.txt";
    const std::string tool = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "zorpmsim";
    const std::string command =
        sim::format("timeout -s INT -k 5 60 %s --shrink --seed %llu %s.txt >%s 2>>%s.log", tool.c_str(),
                    static_cast<unsigned long long>(failure->seed), failure->file.c_str(), shrunk.c_str(),
                    failure->file.c_str());
    const int status = std::system(command.c_str()); // NOLINT(cert-env33-c): words of our own
    failure->shrunk = WIFEXITED(status) && WEXITSTATUS(status) == EXIT_FAILS
                          ? shrunk
                          : "not shrunk (zorpmsim --shrink: " + std::to_string(WEXITSTATUS(status)) + ")";
}

// ---- the whole run ----

static std::string next_file(const Generator& generator) {
    return g_folder + generator.name + ".next";
}

static std::uint64_t read_next(const Generator& generator) {
    std::uint64_t seed = 0;
    std::ifstream(next_file(generator)) >> seed;
    return seed != 0 ? seed : 1;
}

// Seeds that run now are run again after an interruption.
static void write_next(const Generator& generator, unsigned jobs) {
    std::uint64_t next = g_shared->next;
    for (unsigned i = 0; i < jobs; ++i) {
        const std::uint64_t seed = g_shared->jobs[i].seed;
        next = seed != 0 ? std::min(next, seed) : next;
    }
    std::ofstream(next_file(generator)) << std::min<std::uint64_t>(next, g_shared->end) << "\n";
}

static void watch_jobs(const Generator& generator, unsigned jobs, Clock::time_point end,
                       std::vector<Failure>* failures) {
    std::vector<pid_t> processes(jobs);
    for (unsigned i = 0; i < jobs; ++i)
        processes[i] = start_job(generator, i);
    for (unsigned left = jobs; left > 0;) {
        usleep(50000);
        g_shared->stop = g_shared->stop || sim::interrupted() || Clock::now() > end;
        for (unsigned i = 0; i < jobs; ++i) {
            int status = 0;
            if (processes[i] > 0 && sim::interrupted())
                kill(processes[i], SIGINT);
            if (processes[i] <= 0 || waitpid(processes[i], &status, WNOHANG) != processes[i])
                continue;
            const int code = WIFEXITED(status) ? WEXITSTATUS(status) : CRASHED + WTERMSIG(status);
            Job& job = g_shared->jobs[i];
            if (code != 0 && code != EXIT_INTERRUPTED) {
                note_failure(generator, job, code, failures);
                job.seed = 0;
                processes[i] = start_job(generator, i);
            } else {
                processes[i] = 0;
                --left;
            }
        }
        write_next(generator, jobs);
    }
}

static void print_figures(const Generator& generator, std::uint64_t first, unsigned jobs, double seconds) {
    const auto count = [](const std::atomic<std::uint64_t>& value) {
        return static_cast<unsigned long long>(value);
    };
    const double cpu = static_cast<double>(g_shared->cpu_ms) / 1000;
    const auto done = static_cast<double>(g_shared->done);
    say(sim::format("%s: %llu seeds from %llu on, in %.0f s on %u processors (%.0f a second; %.0f a second "
                    "of processor)\n",
                    generator.name, count(g_shared->done), static_cast<unsigned long long>(first), seconds,
                    jobs, done / seconds, cpu > 0 ? done / cpu : 0.0));
    std::uint64_t kinds = 0;
    for (const auto& bits : g_shared->kinds)
        kinds += static_cast<unsigned>(__builtin_popcountll(bits));
    say(sim::format("%s: %llu commands, %llu expectations held, %.1f simulated days", generator.name,
                    count(g_shared->commands), count(g_shared->expectations),
                    static_cast<double>(g_shared->virtual_s) / 86400));
    say(kinds != 0 ? sim::format(", %llu kinds of lines\n", static_cast<unsigned long long>(kinds)) : "\n");
}

static bool share_memory() {
    void* texts = mmap(nullptr, MOST_PROCESSES * LONGEST_TEXT, PROT_READ | PROT_WRITE,
                       MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    g_shared = share<Shared>();
    if (texts == MAP_FAILED || g_shared == nullptr)
        return false;
    for (size_t i = 0; i < MOST_PROCESSES; ++i)
        g_shared->jobs[i].text = static_cast<char*>(texts) + i * LONGEST_TEXT;
    return true;
}

int run_generator(const Generator& generator, const Limits& limits) {
    std::filesystem::create_directories(g_folder);
    if (!share_memory()) {
        std::fprintf(stderr, "zorpmhunt: no memory for the processes\n");
        return EXIT_UNUSABLE;
    }
    const bool own = limits.count == 0 && limits.seconds == 0;
    const std::uint64_t count = own ? generator.count : limits.count;
    const unsigned seconds = own ? generator.seconds : limits.seconds;
    const std::uint64_t first = limits.seed != 0 ? limits.seed : read_next(generator);
    Options options;
    options.jobs = limits.jobs;
    const unsigned jobs = std::min(jobs_of(options), MOST_PROCESSES);
    g_shared->next = first;
    g_shared->end = count != 0 ? first + count : ~std::uint64_t{0};
    if (generator.begin != nullptr)
        generator.begin(limits);
    std::vector<Failure> failures;
    const auto begun = Clock::now();
    const auto end = seconds != 0 ? begun + std::chrono::seconds(seconds) : Clock::time_point::max();
    watch_jobs(generator, jobs, end, &failures);
    print_figures(generator, first, jobs, std::chrono::duration<double>(Clock::now() - begun).count());
    for (size_t i = 0; i < failures.size(); ++i) {
        Failure& failure = failures[i];
        if (i < MOST_SHRUNK && !sim::interrupted())
            shrink(&failure);
        say(sim::format("%s: %u times: %s\n    %s.txt, seed %llu; %s\n", generator.name, failure.times,
                        failure.message.c_str(), failure.file.c_str(),
                        static_cast<unsigned long long>(failure.seed), failure.shrunk.c_str()));
    }
    return failures.empty() ? EXIT_HOLDS : EXIT_FAILS;
}

} // namespace hunt
