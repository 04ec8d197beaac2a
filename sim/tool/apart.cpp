#include "sim/tool/apart.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/time.h>

#include "sim/machine/image.h"
#include "sim/tool/processes.h"

constexpr unsigned AFTER_STOP_S = 2;   // for what is still to be told
constexpr suseconds_t TICK_US = 50000; // of processor time
constexpr unsigned STILL_TICKS = 4;    // without a platform call

static bool g_stopped = false;

static sigset_t watched_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGCHLD);
    sigaddset(&signals, SIGINT);
    return signals;
}

// The next of them, waiting for so long; -1: none has come.
static int next_signal(time_t seconds) {
    const sigset_t signals = watched_signals();
    const timespec patience = {seconds, 0};
    const int number = sigtimedwait(&signals, nullptr, &patience);
    g_stopped = g_stopped || number == SIGINT;
    return number;
}

void watch_for_stop() {
    const sigset_t signals = watched_signals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
}

bool stopped() {
    while (next_signal(0) > 0) {
    }
    return g_stopped || sim::interrupted();
}

// ---- in the process apart ----

static End* g_end = nullptr;
static int g_record = -1; // file for what the run leaves

// The machine of the script, not one that stands for a moment before it.
static const sim::Machine* outermost_machine() {
    const sim::Machine* machine = sim::have_machine() ? &sim::machine() : nullptr;
    while (machine != nullptr && machine->outer != nullptr)
        machine = machine->outer;
    return machine;
}

// The message is the last, to the file's end. Also called from a signal handler: it makes no text of its own.
static void write_record(int exit_code, bool rests, bool ended_process, const char* message) {
    const sim::Machine* machine = outermost_machine();
    if (g_record < 0 || machine == nullptr)
        return;
    for (const sim::PassedPoint& point : machine->schedule.passed)
        dprintf(g_record, "P\t%u\t%llu\t%u\t%d\t%llu\t%s\t%s\t%s\n", point.choice.line,
                static_cast<unsigned long long>(point.choice.point), point.choice.pick, point.overtakes,
                static_cast<unsigned long long>(point.time), point.where.c_str(), point.thread.c_str(),
                point.other.c_str());
    for (const sim::Drawn& drawn : machine->schedule.drawn)
        dprintf(g_record, "D\t%u\t%llu\n", drawn.line, static_cast<unsigned long long>(drawn.value));
    dprintf(g_record, "R\t%d\t%d\t%d\n%s", exit_code, rests, ended_process, message);
}

[[noreturn]] static void end_with(const char* message) {
    std::strncpy(g_end->text, message, sizeof(g_end->text) - 1);
    write_record(EXIT_FAILS, false, true, message);
    sim::image_remove_copies();
    _exit(EXIT_FAILS);
}

static void end_crashed(int number) {
    char message[sizeof(End)];
    std::snprintf(message, sizeof(message), "the product crashed (signal %d)", number);
    if (number != SIGALRM)
        end_with(message);
    sim::image_remove_copies();
    _exit(EXIT_FAILS);
}

// At every tick: whether anything has happened since the last.
static void look_for_progress(int) {
    static std::uint64_t last = 0;
    static unsigned still = 0;
    if (!sim::have_machine())
        return;
    const sim::Machine& machine = sim::machine();
    const std::uint64_t seen = machine.switches + machine.calls + machine.now;
    still = seen == last && machine.running != nullptr ? still + 1 : 0;
    last = seen;
    if (still == STILL_TICKS)
        end_with("the product runs on without a platform call");
}

static void watch_progress() {
    struct sigaction action = {};
    action.sa_handler = look_for_progress;
    action.sa_flags = SA_ONSTACK | SA_RESTART;
    sigaction(SIGPROF, &action, nullptr);
    const itimerval ticks = {{0, TICK_US}, {0, TICK_US}};
    setitimer(ITIMER_PROF, &ticks, nullptr);
}

static void work_apart(const std::function<void()>& work, End* end, unsigned limit_s) {
    g_end = end;
    watch_for_crashes(end_crashed);
    watch_progress();
    alarm(g_stopped ? AFTER_STOP_S : limit_s);
    if (g_stopped)
        std::signal(SIGINT, SIG_IGN);
    const sigset_t signals = watched_signals();
    sigprocmask(SIG_UNBLOCK, &signals, nullptr);
    work();
    const itimerval never = {};
    setitimer(ITIMER_PROF, &never, nullptr);
}

// ---- in this one ----

// Its end in order. The user's stop is handed on; who does not follow within a second is ended.
static bool comes_to_its_end(pid_t process) {
    bool told = false;
    int status = 0;
    for (;;) {
        const pid_t ended = waitpid(process, &status, WNOHANG);
        if (ended != 0 && (ended > 0 || errno != EINTR))
            return ended > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
        const int number = next_signal(1);
        if (number == SIGINT)
            told = kill(process, SIGINT) == 0;
        else if (number < 0 && told)
            kill(process, SIGKILL);
    }
}

bool run_apart(const std::function<void()>& work, End* end, unsigned limit_s) {
    const pid_t process = start_process([&] { work_apart(work, end, limit_s); });
    return process > 0 && comes_to_its_end(process);
}

static std::vector<std::string> fields_of(const std::string& line) {
    std::vector<std::string> fields;
    for (size_t at = 0; at <= line.size();) {
        const size_t end = std::min(line.find('\t', at), line.size());
        fields.push_back(line.substr(at, end - at));
        at = end + 1;
    }
    return fields;
}

static void read_record(std::FILE* file, Outcome* outcome) {
    std::string text;
    char part[4096];
    std::rewind(file);
    while (const size_t length = std::fread(part, 1, sizeof(part), file))
        text.append(part, length);
    for (size_t at = 0, end = 0; !outcome->known && (end = text.find('\n', at)) != std::string::npos;
         at = end + 1) {
        const std::vector<std::string> f = fields_of(text.substr(at, end - at));
        auto number = [&f](size_t i) { return std::strtoull(f[i].c_str(), nullptr, 10); };
        auto word = [&number](size_t i) { return static_cast<std::uint32_t>(number(i)); };
        if (f[0] == "P" && f.size() == 9)
            outcome->passed.push_back(
                {{word(1), number(2), word(3)}, number(4) != 0, number(5), f[6], f[7], f[8]});
        else if (f[0] == "D" && f.size() == 3)
            outcome->drawn.push_back({word(1), number(2)});
        else if (f[0] == "R" && f.size() == 4) {
            outcome->known = true;
            outcome->exit_code = static_cast<int>(number(1));
            outcome->rests = number(2) != 0;
            outcome->ended_process = number(3) != 0;
            outcome->message = text.substr(end + 1);
        }
    }
}

Outcome outcome_apart(const Source& source, const Options& options) {
    Outcome outcome;
    End* end = share<End>();
    std::FILE* file = std::tmpfile();
    if (end != nullptr && file != nullptr) {
        auto work = [&] {
            g_record = fileno(file);
            sim::Machine machine(options.seed);
            machine.forget_trace = true;
            machine.schedule.records = true;
            const sim::ScriptResult result = run_on(machine, source, options);
            if (!sim::interrupted())
                write_record(result.exit_code, result.rests, false, result.message.c_str());
        };
        run_apart(work, end, 0);
        read_record(file, &outcome);
    }
    if (file != nullptr)
        std::fclose(file);
    if (end != nullptr)
        unshare(end);
    return outcome;
}
