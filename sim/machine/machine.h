// The simulated machine: one current machine, its threads as fibers on one real thread, a virtual clock,
// processes, kernel objects and handles, the trace. Platform calls (extern "C") stand on what is declared
// here and in the headers that it includes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "sim/machine/clock.h"
#include "sim/machine/handles.h"
#include "sim/machine/process.h"
#include "sim/machine/replay.h"
#include "sim/machine/schedule.h"
#include "sim/machine/scheduler.h"
#include "sim/machine/state.h"
#include "sim/machine/text.h"
#include "sim/machine/trace.h"

namespace sim {

constexpr std::uint32_t RUBBISH = 0xCCCCCCCC; // what a call leaves in an output that it does not fill

constexpr std::uint64_t HASH_START = 1469598103934665603ull; // FNV-1a
constexpr std::uint64_t HASH_PRIME = 1099511628211ull;

struct Machine {
    std::uint64_t seed = 0;
    std::uint64_t random_state = 0;
    Schedule schedule;
    Replay replay;
    bool hands_over_at_atomics = false; // of processes started from now on
    Ms now = 0;
    Ms advances_to = 0; // while `advance` runs
    StateSlots state;

    std::vector<TraceLine> trace;
    bool keep_trace = true;
    bool forget_trace = false; // each mark drops what was before it,
    bool trace_asked = true;   // and what nobody asks for is not kept until then
    size_t forgotten = 0;      // lines dropped so far
    bool keep_details = false;
    TraceLine noted_call; // that nothing has told of yet; no text: none
    std::uint64_t trace_hash = HASH_START;
    void (*on_line)(const TraceLine&) = nullptr;
    void (*on_command)(const std::string& text, int line) = nullptr; // of a script, before it acts
    void (*on_show)(const std::string&) = nullptr; // a line of state, which is no part of the trace

    std::vector<std::string> violations;
    std::uint64_t calls = 0;                                    // platform calls that can fail, so far
    std::uint64_t fail_at = 0;                                  // number of the call that fails; 0 none
    std::string fail_name;                                      // or the call of this name that fails,
    std::uint64_t fail_countdown = 0;                           // the n-th from here
    std::string failed_call;                                    // the name of the one that has failed
    std::uint64_t switches = 0;                                 // fiber switches
    std::unordered_map<std::string, std::uint64_t> call_counts; // by name, when count_calls
    bool count_calls = false;

    std::vector<std::unique_ptr<Process>> processes;
    std::vector<std::unique_ptr<Thread>> threads;
    std::vector<Thread*> ready;
    std::vector<Thread*> waiting;  // in the order in which they began to wait
    std::vector<Thread*> runnable; // as last looked for
    std::unordered_map<std::uintptr_t, HandleEntry> handles;
    struct {
        std::uintptr_t value;
        HandleEntry* entry;
    } recent_handles[64] = {}; // by their lowest bits: most calls are about these
    std::uintptr_t next_handle = 0x100;
    std::uint64_t closes = 0;
    HandleEntry own_process; // what INVALID_HANDLE_VALUE stands for, while a call looks at it
    DWORD next_id = 1000;
    std::unordered_map<std::string, std::weak_ptr<Object>> named;
    Process* host = nullptr; // stands for code outside all simulated threads
    DWORD host_last_error = 0;
    Thread* running = nullptr;
    Thread* overtaking = nullptr; // runs next
    unsigned held = 0;            // threads that were held since the last look
    Machine* outer = nullptr;     // stands still as long as this one lives

    // Becomes the current machine. Another one only where no thread of the first runs, and gone before it.
    explicit Machine(std::uint64_t seed = 0);
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    void settle(); // runs until every thread waits; too many waits of no length move the clock by 1 ms
    void advance(Ms duration); // time passes; what falls due at its very end is included
    Ms next_deadline() const;  // NEVER when nobody waits for the clock
};

extern Machine* g_currentMachine; // the current one
[[noreturn]] void no_machine();
inline Machine& machine() {
    if (g_currentMachine == nullptr)
        no_machine();
    return *g_currentMachine;
}
inline bool have_machine() {
    return g_currentMachine != nullptr;
}
inline Thread* current() {
    return machine().running;
}
inline Process* current_process() {
    const Machine& m = machine();
    return m.running != nullptr ? m.running->process : m.host;
}
template <class T> T& machine_state() {
    return machine().state.get<T>();
}
template <class T> T& process_state() {
    return current_process()->state.get<T>();
}
template <class T> T& process_state(Process* process) {
    return process->state.get<T>();
}
template <class T> T& thread_state() {
    return current()->state.get<T>();
}

// From now on no machine runs on, and scripts end where they are; from any thread or signal handler.
void interrupt_machines();
bool interrupted();

// The next number of a sequence; small, repeatable, good enough to draw schedules.
std::uint64_t splitmix(std::uint64_t* state);
// Repeatable random numbers of the machine's seed, below `bound`.
std::uint64_t random_below(std::uint64_t bound);

} // namespace sim
