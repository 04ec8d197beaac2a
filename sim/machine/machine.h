// The simulated machine: one current machine, its threads as fibers on one real thread, a virtual clock,
// processes, kernel objects and handles, the trace. Platform calls (sim/*.cpp, extern "C") stand on what is
// declared here.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <typeindex>
#include <unordered_map>
#include <vector>

namespace sim {

using Ms = std::uint64_t; // virtual milliseconds since the machine was made
constexpr Ms NEVER = ~Ms{0};

// ---- text
// ---------------------------------------------------------------------------------------------------- All
// sim code holds text as UTF-8; wide text exists only at the edge. `narrow` of null gives "".
std::string narrow(const WCHAR* text);
std::string narrow(const WCHAR* text, size_t length);
std::u16string widen(std::string_view text);
bool same_text(std::string_view a, std::string_view b); // ASCII case ignored
std::string lower(std::string_view text);
std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
// Writes text and its null into a buffer of `capacity` characters; returns the length, or 0 when it does not
// fit.
DWORD put_wide(WCHAR* buffer, DWORD capacity, std::string_view text);

// ---- state of an area
// ---------------------------------------------------------------------------------------- Each area keeps
// its state in a struct of its own, default-constructed on first use in a machine (process, thread) and gone
// with it: `struct Power {...}; static Power& power() { return machine_state<Power>(); }`
struct StateSlots {
    std::unordered_map<std::type_index, std::shared_ptr<void>> slots;
    template <class T> T& get() {
        auto& slot = slots[std::type_index(typeid(T))];
        if (!slot)
            slot = std::make_shared<T>();
        return *static_cast<T*>(slot.get());
    }
};

// ---- kernel objects and handles ----
enum class Kind {
    Event,
    Mutex,
    Thread,
    Process,
    File,
    Key,
    DeviceSet,
    ServiceManager,
    Service,
    Token,
    Desktop,
    PowerNotify,
    Other
};

struct Thread;
struct Process;
struct Object;

struct Object {
    Kind kind = Kind::Other;
    std::string name;         // of a named object, or what it stands for in messages
    bool signaled = false;    // events, ended threads and processes
    bool manual_reset = true; // events
    Thread* owner = nullptr;  // mutexes
    int owned_depth = 0;
    bool abandoned = false;
    bool foreign = false;                     // another program's
    std::shared_ptr<void> body;               // what the area keeps with the object
    void (*on_last_close)(Object&) = nullptr; // called when the last handle goes, also at the process's end
    int handles = 0;
    Process* home = nullptr; // threads: their process
    template <class T> T& as() { return *static_cast<T*>(body.get()); }
};
using ObjectRef = std::shared_ptr<Object>;

struct HandleEntry {
    ObjectRef object;
    DWORD access = 0;
    Process* process = nullptr;
};

ObjectRef make_object(Kind kind, std::string name = {});
// A named object of the machine's one namespace (an event and a mutex may not share a name). Null when none
// lives.
ObjectRef find_named(const std::string& name);
void remember_named(const ObjectRef& object);

// Opens a handle in the current process.
HANDLE open_handle(const ObjectRef& object, DWORD access = 0);
// The entry of a handle of the wanted kind. Null with last error 6 otherwise; a handle that is neither null
// nor INVALID_HANDLE_VALUE and not open, or of another kind, is a violation of the call.
HandleEntry* handle_entry(HANDLE handle, Kind kind, const char* call);
HandleEntry* any_handle(HANDLE handle, const char* call);
BOOL close_handle(HANDLE handle, const char* call); // any kind
// Handles open now (of one kind, or of all) in a process (null: all processes).
size_t handle_count(Process* process = nullptr);
size_t handle_count(Kind kind, Process* process = nullptr);

// ---- processes and threads ----
struct Process {
    DWORD id = 0;
    std::string command_line; // without the program name
    DWORD session = 1;
    DWORD exit_code = 0;
    bool ended = false;
    bool is_service = false;
    std::string program; // that it is an image of; "": none
    ObjectRef object;
    StateSlots state;
    size_t local_blocks = 0; // LocalAlloc blocks alive
    void* image = nullptr;   // see image.cpp
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
    std::vector<Object*> objects;
    std::vector<ObjectRef> keep; // keeps the objects alive while a wait on them lasts
    bool wait_all = false;
    Ms deadline = NEVER;
    DWORD wait_result = 0;
    // what it did in this instant
    Ms instant = NEVER;
    unsigned zero_waits = 0;
    unsigned calls = 0;
    struct Fiber* fiber = nullptr;
    std::vector<Object*> owned; // mutexes
};

Thread* current();          // null outside the simulated threads
Process* current_process(); // of the current thread; outside, a process "host" of its own
DWORD last_error();
void set_last_error(DWORD code);

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

// ---- waiting (for platform calls that can wait)
// -------------------------------------------------------------- As WaitForMultipleObjects; timeout INFINITE
// waits for good. The current thread hands over.
DWORD wait_for(const std::vector<ObjectRef>& objects, bool all, DWORD timeout_ms);
void sleep_for(Ms duration); // 0: hands over
// Wakes every thread whose wait can end now (after a change that is no signal, such as a resumption).
void wake_waiting();
// Wakes whoever waits for it.
void signal_object(Object& object);
void reset_object(Object& object);
// An auto-reset (or manual) event for an area's own use.
ObjectRef make_event(bool manual_reset = false);

// ---- the gate of every platform call
// ------------------------------------------------------------------------- First line of each call that can
// fail: `SIM_CALL(FALSE, ERROR_...)` counts it, may hand over (seeds), and returns the given value when this
// call was chosen to fail, with that last error set.
bool enter_call(const char* name, bool can_fail, DWORD failure_code);
#define SIM_CALL(failure_value, failure_code)                                                                \
    do {                                                                                                     \
        if (!::sim::enter_call(__func__, true, (failure_code)))                                              \
            return failure_value;                                                                            \
    } while (0)
// First line of each call that cannot fail.
#define SIM_VISIT() ((void)::sim::enter_call(__func__, false, 0))

// ---- the machine ----
struct TraceLine {
    Ms time = 0;
    std::string thread;
    std::string text;
    bool effect = true; // else: a detail that only --trace-all shows
};

struct Machine {
    std::uint64_t seed = 0;
    std::uint64_t random_state = 0;
    Ms now = 0;
    StateSlots state;

    std::vector<TraceLine> trace;
    bool keep_trace = true;
    bool keep_details = false;
    std::uint64_t trace_hash = 1469598103934665603ull;
    void (*on_line)(const TraceLine&) = nullptr;

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
    std::vector<Thread*> waiting; // in the order in which they began to wait
    std::unordered_map<std::uintptr_t, HandleEntry> handles;
    std::uintptr_t next_handle = 0x100;
    DWORD next_id = 1000;
    std::unordered_map<std::string, std::weak_ptr<Object>> named;
    Process* host = nullptr; // stands for code outside all simulated threads
    DWORD host_last_error = 0;
    Thread* running = nullptr;

    explicit Machine(std::uint64_t seed = 0); // becomes the current machine; one at a time
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    void settle();             // runs until every thread waits
    void advance(Ms duration); // time passes; what falls due at its very end is included
    Ms next_deadline() const;  // NEVER when nobody waits for the clock
};

Machine& machine();
bool have_machine();
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

// One line per effect that someone outside the service can see; details show only with --trace-all.
void trace(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
void trace_detail(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
// The product did what no correct program does; fails the run.
void violation(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
// Repeatable random numbers of the machine's seed, below `bound`.
std::uint64_t random_below(std::uint64_t bound);

} // namespace sim
