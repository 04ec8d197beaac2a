// Processes, each with an image of its own, and their threads.
#pragma once

#include <functional>
#include <span>
#include <vector>

#include "sim/machine/clock.h"
#include "sim/machine/handles.h"
#include "sim/machine/state.h"

namespace sim {

struct Fiber;
struct Image;

struct Process {
    DWORD id = 0;
    std::string command_line; // without the program name
    DWORD session = 1;
    DWORD exit_code = 0;
    bool ended = false;
    bool is_service = false;
    bool ordinary_user = false; // otherwise an administrator's, or the system's
    std::string program;        // that it is an image of; "": none
    ObjectRef object;
    StateSlots state;
    size_t local_blocks = 0; // LocalAlloc blocks alive
    size_t handles_left = 0; // once it has ended: those that it had not closed,
    size_t blocks_left = 0;  // not freed,
    std::string left;        // or not given back otherwise, in words
    Image* image = nullptr;  // null: no process of the product
};

// An area's account of what a process that ends has not given back, in words; "": nothing.
struct LeftTeller {
    explicit LeftTeller(std::string (*tell)(Process* process));
};

enum class Run { Ready, Waiting, Ended };

struct Thread {
    DWORD id = 0;
    std::string name;
    Process* process = nullptr;
    ObjectRef object;
    Run run = Run::Ready;
    int suspended = 0;
    DWORD exit_code = STILL_ACTIVE;
    DWORD last_error = 0;
    std::function<DWORD()> body;
    StateSlots state;
    // the wait it is in
    std::vector<ObjectRef> last_objects; // of the last one, kept alive: a thread mostly waits for the same
    std::span<const ObjectRef> objects;  // these, while it lasts
    std::vector<HANDLE> last_handles;    // what they were named by, if by handles,
    std::uint64_t last_closes = 0;       // when so many had been closed
    bool wait_all = false;
    Ms deadline = NEVER;
    DWORD wait_result = 0;
    bool in_request = false; // that takes time
    // what it did in this instant
    Ms instant = NEVER;
    unsigned zero_waits = 0;
    unsigned calls = 0;
    unsigned instant_waits = 0;
    bool awaits_turn = false;  // before a call that others see, in a replay
    bool awaits_mutex = false; // before one that it would take out of turn
    bool held = false;         // until the next millisecond, after too many waits of no length
    // of schedules by priority
    std::uint64_t priority = 0;
    std::uint64_t priority_drawn = 0; // the instant
    Fiber* fiber = nullptr;
    std::vector<Object*> owned; // mutexes
};

inline Thread* current();          // null outside the simulated threads
inline Process* current_process(); // of the current thread; outside, a process "host" of its own
DWORD last_error();
void set_last_error(DWORD code);
BOOL fail_with(DWORD code); // sets it; FALSE

// Starts a process: a new image runs wWinMain with this command line.
Process* start_process(const std::string& command_line, DWORD session = 1, bool service = false);
// The control program, with these arguments.
Process* start_control_program(const std::string& arguments, DWORD session = 1);
Process* find_process(const std::string& command_line, DWORD session); // alive
void end_process(Process* process, DWORD exit_code);
// A thread of a process; runs when scheduled.
Thread* start_thread(Process* process, std::string name, std::function<DWORD()> body, bool suspended = false);
void end_thread(Thread* thread, DWORD exit_code); // hard termination; of the current one: does not return
// For tests: runs `work` on a simulated thread of a process of its own, and the machine until it has ended
// (time passes when it waits).
void run_on_thread(const std::function<void()>& work);

} // namespace sim
