// Work in processes of their own.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <new>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/tool/options.h"

constexpr unsigned MOST_JOBS = 1024;

// How many processes run at once.
unsigned jobs_of(const Options& options);

// A SIGINT of this process is handed on to those that it has started, as long as it waits for their end.
void note_process(pid_t process);
void forget_process(pid_t process);
void forget_processes();  // in a new one
void hand_on_interrupt(); // from a signal handler

// Ends this process when the one that has started it ends.
void end_with_parent();

// A process of its own for `work`; -1 when there can be none. It leaves in order, so that its images go.
template <class Work> pid_t start_process(const Work& work) {
    std::fflush(stdout);
    const pid_t process = fork();
    if (process > 0)
        note_process(process);
    if (process != 0)
        return process;
    forget_processes();
    end_with_parent();
    work();
    std::exit(0);
}

// Waits for its end; its exit status, 256 for one that ended otherwise.
int exit_status_of(pid_t process);

// Memory that processes started later share; null when there is none.
template <class Shared> Shared* share() {
    void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory != MAP_FAILED ? new (memory) Shared() : nullptr;
}
template <class Shared> void unshare(Shared* shared) {
    munmap(shared, sizeof(Shared));
}
