#include "sim/tool/processes.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <sys/prctl.h>
#include <thread>

#include "sim/machine/machine.h"

unsigned jobs_of(const Options& options) {
    const unsigned processors = std::thread::hardware_concurrency();
    return options.jobs != 0 ? options.jobs : processors != 0 ? processors : 1;
}

static std::atomic<pid_t> g_processes[MOST_JOBS];

static void exchange_process(pid_t before, pid_t after) {
    for (std::atomic<pid_t>& process : g_processes) {
        pid_t expected = before;
        if (process.compare_exchange_strong(expected, after))
            return;
    }
}

void hand_on_interrupt() {
    for (const std::atomic<pid_t>& process : g_processes) {
        if (process != 0)
            kill(process, SIGINT);
    }
}

void note_process(pid_t process) {
    exchange_process(0, process);
    if (sim::interrupted())
        hand_on_interrupt();
}

void forget_process(pid_t process) {
    exchange_process(process, 0);
}

void forget_processes() {
    for (std::atomic<pid_t>& process : g_processes)
        process = 0;
}

void end_with_parent() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

int exit_status_of(pid_t process) {
    int status = 0;
    siginfo_t ended = {};
    while (waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
    }
    forget_process(process); // as long as its number is its own
    while (waitpid(process, &status, 0) < 0) {
        if (errno != EINTR)
            return 256;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 256;
}
