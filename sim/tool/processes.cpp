#include "sim/tool/processes.h"

#include <cerrno>
#include <csignal>
#include <sys/prctl.h>
#include <thread>

unsigned jobs_of(const Options& options) {
    const unsigned processors = std::thread::hardware_concurrency();
    return options.jobs != 0 ? options.jobs : processors != 0 ? processors : 1;
}

void end_with_parent() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

int exit_status_of(pid_t process) {
    int status = 0;
    while (waitpid(process, &status, 0) < 0) {
        if (errno != EINTR)
            return 256;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 256;
}
