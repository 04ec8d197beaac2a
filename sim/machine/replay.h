// Replay of a recording: the order of its effects is the schedule. A thread that comes to a call which others
// can see waits there for its turn; what nobody sees it does as it likes.
#pragma once

#include <deque>
#include <map>
#include <string>

#include "sim/machine/clock.h"
#include "sim/machine/trace.h"

namespace sim {

struct Thread;

struct Replay {
    bool on = false;
    std::string turn;  // the thread whose effect comes next
    bool open = false; // it may make it now
    bool came = false; // it has: everything stands still
    Ms target = 0;     // the recording's clock; the machine's follows as far as somebody needs it
    std::map<std::string, std::deque<TraceLine>> effects; // made, not yet compared; by thread
    size_t recorded = 0;                                  // effects in the recording
    size_t same = 0;                                      // of them, so far
};

void replay_begin();
void replay_end();
// Time has passed in the recording.
void replay_pass(Ms duration);
// What nobody sees and is over, but for the last `slack` milliseconds, has happened.
void replay_catch_up(Ms slack);
// The next effect of that thread; false when it does not come.
bool replay_effect(const std::string& thread, TraceLine* effect);

// At each platform call of a thread.
void await_turn(const char* call);
// Before a wait for a mutex: whoever takes it too early would keep it until its turn.
void await_mutex();
// Whether the thread may go on: it waits for no turn, or for one that has come.
bool has_turn(const Thread& thread);
// An effect has been made.
void note_effect(const TraceLine& line);

} // namespace sim
