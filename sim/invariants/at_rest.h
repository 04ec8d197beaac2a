// What stands when all threads wait: published, commanded and held. `check resources` compares what is held.
#pragma once

#include <string>

namespace sim {

struct Process;

// Threads that have this in their name and have not ended.
size_t live_threads(const std::string& part);
// Registry, last command of each kind, indicators, status and what the service holds, as lines. Without what
// tells of the way there: the time, and the posture before.
std::string state_at_rest();
// What a process holds: handles, memory blocks, threads.
std::string held_by(Process* process);

} // namespace sim
