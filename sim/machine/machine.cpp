#include "sim/machine/machine.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "sim/machine/fiber.h"

namespace sim {

Machine* g_currentMachine = nullptr;

void no_machine() {
    std::fprintf(stderr, "platform call without a machine\n");
    std::abort();
}

static volatile std::sig_atomic_t g_interrupted = 0;

void interrupt_machines() {
    g_interrupted = 1;
}

bool interrupted() {
    return g_interrupted != 0;
}

std::uint64_t splitmix(std::uint64_t* state) {
    std::uint64_t z = (*state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

std::uint64_t random_below(std::uint64_t bound) {
    const std::uint64_t drawn = splitmix(&machine().random_state);
    return bound != 0 ? drawn % bound : 0;
}

size_t next_state_number() {
    static size_t next = 0;
    return next++;
}

void StateSlots::clear() {
    // What ends may still look at what was made before it.
    while (!made.empty()) {
        const std::shared_ptr<void> last = std::move(made.back());
        made.pop_back();
        std::replace(by_number.begin(), by_number.end(), last.get(), static_cast<void*>(nullptr));
    }
}

Machine::Machine(std::uint64_t chosen_seed)
    : seed(chosen_seed), random_state(chosen_seed), schedule(chosen_seed), outer(g_currentMachine) {
    if (outer != nullptr && outer->running != nullptr) {
        std::fprintf(stderr, "two machines at once\n");
        std::abort();
    }
    g_currentMachine = this;
    processes.push_back(std::make_unique<Process>());
    host = processes.back().get();
    host->id = 4;
    host->command_line = "host";
    host->object = make_object(Kind::Process, "host");
    host->object->body = std::shared_ptr<void>(host, [](void*) {});
}

Machine::~Machine() {
    keep_trace = false;
    on_line = nullptr;
    for (size_t i = processes.size(); i-- > 0;)
        end_process(processes[i].get(), 0);
    handles.clear();
    own_process = {};
    state.clear();
    for (auto& thread : threads) {
        if (thread->fiber != nullptr)
            fiber_release(thread->fiber);
    }
    g_currentMachine = outer;
}

} // namespace sim
