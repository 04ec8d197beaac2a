#include "sim/machine/machine.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "sim/machine/fiber.h"
#include "sim/machine/image.h"

namespace sim {

// A thread may make this many waits of no length in one instant; then the clock must move for it.
constexpr unsigned ZERO_WAITS_PER_INSTANT = 1000;
// A thread that makes this many calls in one instant without any wait runs on.
constexpr unsigned CALLS_WITHOUT_WAIT = 100000;

static Machine* g_machine = nullptr;

Machine& machine() {
    if (g_machine == nullptr) {
        std::fprintf(stderr, "platform call without a machine\n");
        std::abort();
    }
    return *g_machine;
}

bool have_machine() {
    return g_machine != nullptr;
}

Thread* current() {
    return machine().running;
}

Process* current_process() {
    Machine& m = machine();
    return m.running != nullptr ? m.running->process : m.host;
}

DWORD last_error() {
    Machine& m = machine();
    return m.running != nullptr ? m.running->last_error : m.host_last_error;
}

void set_last_error(DWORD code) {
    Machine& m = machine();
    (m.running != nullptr ? m.running->last_error : m.host_last_error) = code;
}

std::uint64_t random_below(std::uint64_t bound) {
    // splitmix64: small, repeatable, good enough to draw schedules.
    std::uint64_t z = (machine().random_state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    z ^= z >> 31;
    return bound != 0 ? z % bound : 0;
}

// ---- trace ----

static std::string vformat(const char* pattern, va_list arguments) {
    char buffer[2048];
    const int length = std::vsnprintf(buffer, sizeof(buffer), pattern, arguments);
    return {buffer, static_cast<size_t>(std::clamp(length, 0, static_cast<int>(sizeof(buffer)) - 1))};
}

std::string format(const char* pattern, ...) {
    va_list arguments;
    va_start(arguments, pattern);
    std::string text = vformat(pattern, arguments);
    va_end(arguments);
    return text;
}

static void add_line(std::string text, bool effect) {
    Machine& m = machine();
    TraceLine line{m.now, m.running != nullptr ? m.running->name : "machine", std::move(text), effect};
    if (effect) {
        auto mix = [&m](std::string_view bytes) {
            for (const char c : bytes)
                m.trace_hash = (m.trace_hash ^ static_cast<unsigned char>(c)) * 1099511628211ull;
        };
        mix(std::to_string(line.time));
        mix(line.thread);
        mix(line.text);
    }
    if (m.on_line != nullptr)
        m.on_line(line);
    if (m.keep_trace)
        m.trace.push_back(std::move(line));
}

void trace(const char* pattern, ...) {
    va_list arguments;
    va_start(arguments, pattern);
    add_line(vformat(pattern, arguments), true);
    va_end(arguments);
}

void trace_detail(const char* pattern, ...) {
    if (!machine().keep_details)
        return;
    va_list arguments;
    va_start(arguments, pattern);
    add_line(vformat(pattern, arguments), false);
    va_end(arguments);
}

void violation(const char* pattern, ...) {
    Machine& m = machine();
    va_list arguments;
    va_start(arguments, pattern);
    std::string text = vformat(pattern, arguments);
    va_end(arguments);
    if (m.running != nullptr)
        text += " (thread " + m.running->name + ")";
    m.violations.push_back(std::move(text));
}

// ---- objects and handles ----

ObjectRef make_object(Kind kind, std::string name) {
    auto object = std::make_shared<Object>();
    object->kind = kind;
    object->name = std::move(name);
    return object;
}

ObjectRef make_event(bool manual_reset) {
    ObjectRef event = make_object(Kind::Event);
    event->manual_reset = manual_reset;
    return event;
}

ObjectRef find_named(const std::string& name) {
    auto found = machine().named.find(name);
    if (found == machine().named.end())
        return nullptr;
    ObjectRef object = found->second.lock();
    // The stack of a terminated thread may still refer to an object; without a handle its name is free again.
    return object != nullptr && object->handles > 0 ? object : nullptr;
}

void remember_named(const ObjectRef& object) {
    machine().named[object->name] = object;
}

HANDLE open_handle(const ObjectRef& object, DWORD access) {
    Machine& m = machine();
    const std::uintptr_t value = m.next_handle;
    m.next_handle += 4; // never used again, so that a stale handle is always seen
    m.handles[value] = HandleEntry{object, access, current_process()};
    ++object->handles;
    return reinterpret_cast<HANDLE>(value);
}

static bool null_or_invalid(HANDLE handle) {
    return handle == nullptr || handle == INVALID_HANDLE_VALUE;
}

HandleEntry* any_handle(HANDLE handle, const char* call) {
    auto found = machine().handles.find(reinterpret_cast<std::uintptr_t>(handle));
    if (found != machine().handles.end() && found->second.process == current_process())
        return &found->second;
    set_last_error(ERROR_INVALID_HANDLE);
    if (!null_or_invalid(handle))
        violation("%s: handle %p is not open", call, handle);
    return nullptr;
}

HandleEntry* handle_entry(HANDLE handle, Kind kind, const char* call) {
    HandleEntry* entry = any_handle(handle, call);
    if (entry == nullptr || entry->object->kind == kind)
        return entry;
    set_last_error(ERROR_INVALID_HANDLE);
    violation("%s: handle %p is of another kind", call, handle);
    return nullptr;
}

static void drop_handle(std::uintptr_t value) {
    auto found = machine().handles.find(value);
    const ObjectRef object = found->second.object;
    machine().handles.erase(found);
    if (--object->handles != 0)
        return;
    if (object->on_last_close != nullptr)
        object->on_last_close(*object);
    if (object->owner != nullptr) {
        std::vector<Object*>& owned = object->owner->owned;
        owned.erase(std::remove(owned.begin(), owned.end(), object.get()), owned.end());
    }
}

BOOL close_handle(HANDLE handle, const char* call) {
    if (any_handle(handle, call) == nullptr)
        return FALSE;
    drop_handle(reinterpret_cast<std::uintptr_t>(handle));
    return TRUE;
}

size_t handle_count(Process* process) {
    size_t count = 0;
    for (const auto& [value, entry] : machine().handles)
        count += process == nullptr || entry.process == process;
    return count;
}

size_t handle_count(Kind kind, Process* process) {
    size_t count = 0;
    for (const auto& [value, entry] : machine().handles)
        count += entry.object->kind == kind && (process == nullptr || entry.process == process);
    return count;
}

// ---- scheduling ----

static void hand_over_to_machine(Thread* thread) {
    ++machine().switches;
    fiber_hand_back(thread->run == Run::Ended);
}

static void remove_from(std::vector<Thread*>& list, Thread* thread) {
    list.erase(std::remove(list.begin(), list.end(), thread), list.end());
}

static void make_ready(Thread* thread) {
    thread->run = Run::Ready;
    machine().ready.push_back(thread);
}

// Lets the other ready threads run first.
static void yield() {
    Machine& m = machine();
    if (m.running == nullptr || m.ready.empty())
        return;
    Thread* thread = m.running;
    make_ready(thread);
    hand_over_to_machine(thread);
}

static bool available(const Object& object, const Thread* thread) {
    if (object.kind == Kind::Mutex)
        return object.owner == nullptr || object.owner == thread;
    return object.signaled;
}

// Takes what the wait gives; true for an abandoned mutex.
static bool take(Object& object, Thread* thread) {
    if (object.kind == Kind::Event && !object.manual_reset)
        object.signaled = false;
    if (object.kind != Kind::Mutex)
        return false;
    if (object.owner == nullptr)
        thread->owned.push_back(&object);
    object.owner = thread;
    ++object.owned_depth;
    const bool abandoned = object.abandoned;
    object.abandoned = false;
    return abandoned;
}

// Whether the wait can end now; then it takes its objects and writes the result.
static bool satisfy(Thread* thread) {
    std::vector<Object*>& objects = thread->objects;
    if (objects.empty())
        return false;
    if (thread->wait_all) {
        for (const Object* object : objects) {
            if (!available(*object, thread))
                return false;
        }
        bool abandoned = false;
        for (Object* object : objects)
            abandoned |= take(*object, thread);
        thread->wait_result = abandoned ? WAIT_ABANDONED_0 : WAIT_OBJECT_0;
        return true;
    }
    for (size_t i = 0; i < objects.size(); ++i) {
        if (!available(*objects[i], thread))
            continue;
        const DWORD base = take(*objects[i], thread) ? WAIT_ABANDONED_0 : WAIT_OBJECT_0;
        thread->wait_result = base + static_cast<DWORD>(i);
        return true;
    }
    return false;
}

static void end_wait(Thread* thread) {
    thread->objects.clear();
    thread->keep.clear();
    thread->deadline = NEVER;
}

// Wakes a waiting thread whose wait is over; a suspended one goes on waiting until it is resumed.
static bool try_wake(Thread* thread) {
    if (thread->suspended > 0)
        return false;
    if (!satisfy(thread)) {
        if (thread->deadline > machine().now)
            return false;
        thread->wait_result = WAIT_TIMEOUT;
    }
    end_wait(thread);
    make_ready(thread);
    return true;
}

static void wake_waiters() {
    std::vector<Thread*>& waiting = machine().waiting;
    waiting.erase(std::remove_if(waiting.begin(), waiting.end(), try_wake), waiting.end());
}

void wake_waiting() {
    wake_waiters();
}

void signal_object(Object& object) {
    object.signaled = true;
    wake_waiters();
}

void reset_object(Object& object) {
    object.signaled = false;
}

static void new_instant(Thread* thread) {
    if (thread->instant == machine().now)
        return;
    thread->instant = machine().now;
    thread->zero_waits = 0;
    thread->calls = 0;
}

static void block(Thread* thread) {
    thread->run = Run::Waiting;
    machine().waiting.push_back(thread);
    hand_over_to_machine(thread);
}

// Counts a wait of no length; after too many of them the thread is held until the next millisecond.
static void count_zero_wait(Thread* thread) {
    new_instant(thread);
    thread->calls = 0;
    if (++thread->zero_waits < ZERO_WAITS_PER_INSTANT)
        return;
    thread->deadline = machine().now + 1;
    block(thread);
}

DWORD wait_for(const std::vector<ObjectRef>& objects, bool all, DWORD timeout_ms) {
    Machine& m = machine();
    Thread* thread = m.running;
    if (thread == nullptr) {
        violation("a wait outside the simulated threads");
        return WAIT_FAILED;
    }
    thread->keep = objects;
    thread->objects.clear();
    for (const ObjectRef& object : objects)
        thread->objects.push_back(object.get());
    thread->wait_all = all;
    const bool satisfied = satisfy(thread);
    if (satisfied || timeout_ms == 0) {
        const DWORD result = thread->wait_result;
        end_wait(thread);
        count_zero_wait(thread);
        yield();
        return satisfied ? result : WAIT_TIMEOUT;
    }
    thread->deadline = timeout_ms == INFINITE ? NEVER : m.now + timeout_ms;
    block(thread);
    return thread->wait_result;
}

void sleep_for(Ms duration) {
    Machine& m = machine();
    Thread* thread = m.running;
    if (thread == nullptr) {
        violation("a wait outside the simulated threads");
        return;
    }
    if (duration == 0) {
        count_zero_wait(thread);
        yield();
        return;
    }
    end_wait(thread);
    thread->deadline = duration == NEVER ? NEVER : m.now + duration;
    block(thread);
}

// Whether this call is the one chosen to fail.
static bool chosen_to_fail(Machine& m, const char* name) {
    ++m.calls;
    if (m.fail_countdown != 0 && m.fail_name == name && --m.fail_countdown == 0)
        return true;
    return m.calls == m.fail_at;
}

bool enter_call(const char* name, bool can_fail, DWORD failure_code) {
    Machine& m = machine();
    if (m.count_calls && m.running != nullptr)
        ++m.call_counts[name];
    Thread* thread = m.running;
    if (thread == nullptr)
        return true;
    new_instant(thread);
    if (++thread->calls > CALLS_WITHOUT_WAIT) {
        violation("%s: runs on without ever waiting", name);
        end_thread(thread, 0);
    }
    if (m.seed != 0 && !m.ready.empty() && random_below(6) == 0)
        yield();
    if (!can_fail || !chosen_to_fail(m, name))
        return true;
    m.failed_call = name;
    trace_detail("%s fails as told, error %u", name, failure_code);
    set_last_error(failure_code);
    return false;
}

void Machine::settle() {
    while (true) {
        // A suspended thread keeps its place.
        std::vector<size_t> runnable;
        for (size_t i = 0; i < ready.size(); ++i) {
            if (ready[i]->suspended > 0)
                continue;
            runnable.push_back(i);
            if (seed == 0)
                break;
        }
        if (runnable.empty())
            return;
        const size_t pick = runnable[seed != 0 ? random_below(runnable.size()) : 0];
        Thread* thread = ready[pick];
        ready.erase(ready.begin() + static_cast<std::ptrdiff_t>(pick));
        running = thread;
        fiber_resume(thread->fiber);
        running = nullptr;
        if (thread->run == Run::Ended && thread->fiber != nullptr) {
            fiber_release(thread->fiber);
            thread->fiber = nullptr;
        }
    }
}

Ms Machine::next_deadline() const {
    Ms next = NEVER;
    for (const Thread* thread : waiting) {
        if (thread->suspended == 0)
            next = std::min(next, thread->deadline);
    }
    return next;
}

void Machine::advance(Ms duration) {
    const Ms target = now + duration;
    settle();
    while (true) {
        const Ms next = next_deadline();
        if (next > target)
            break;
        now = std::max(now, next);
        wake_waiters();
        settle();
    }
    now = target;
}

// ---- threads and processes ----

static void thread_entry(void* argument) {
    auto* thread = static_cast<Thread*>(argument);
    const DWORD exit_code = thread->body();
    end_thread(thread, exit_code);
    std::abort();
}

Thread* start_thread(Process* process, std::string name, std::function<DWORD()> body, bool suspended) {
    Machine& m = machine();
    auto thread = std::make_unique<Thread>();
    thread->id = m.next_id += 4;
    thread->name = std::move(name);
    thread->process = process;
    thread->body = std::move(body);
    thread->suspended = suspended ? 1 : 0;
    thread->object = make_object(Kind::Thread, thread->name);
    thread->object->home = process;
    thread->object->body = std::shared_ptr<void>(thread.get(), [](void*) {});
    thread->fiber = fiber_create(thread_entry, thread.get());
    m.threads.push_back(std::move(thread));
    make_ready(m.threads.back().get());
    return m.threads.back().get();
}

void end_thread(Thread* thread, DWORD exit_code) {
    Machine& m = machine();
    if (thread->run == Run::Ended)
        return;
    remove_from(m.ready, thread);
    remove_from(m.waiting, thread);
    thread->run = Run::Ended;
    thread->exit_code = exit_code;
    end_wait(thread);
    for (Object* mutex : thread->owned) {
        mutex->owner = nullptr;
        mutex->owned_depth = 0;
        mutex->abandoned = true;
    }
    thread->owned.clear();
    thread->state.slots.clear();
    signal_object(*thread->object);
    if (thread == m.running) {
        hand_over_to_machine(thread);
        std::abort();
    }
    fiber_release(thread->fiber);
    thread->fiber = nullptr;
}

// The control program's processes are known by their whole command line; they are given what follows the
// name.
static const char g_controlProgram[] = "zorpmctl";

static std::string main_thread_name(const Process& process) {
    if (process.program == g_controlProgram)
        return g_controlProgram;
    if (process.is_service)
        return "dispatcher";
    return process.command_line.empty() ? "main"
                                        : process.command_line.substr(process.command_line[0] == '-');
}

static DWORD run_image(Process* process) {
    auto* image = static_cast<Image*>(process->image);
    const size_t name = process->program == g_controlProgram ? process->program.size() + 1 : 0;
    // The loader leaves the command line writable; src must not run past its end.
    std::u16string line = widen(process->command_line.substr(std::min(name, process->command_line.size())));
    const int code =
        image_entry(image)(image_instance(image), nullptr, reinterpret_cast<WCHAR*>(line.data()), 0);
    return static_cast<DWORD>(code);
}

static Process* start_program(const std::string& program, const std::string& command_line, DWORD session,
                              bool service) {
    Machine& m = machine();
    auto process = std::make_unique<Process>();
    process->id = m.next_id += 4;
    process->command_line = command_line;
    process->session = session;
    process->is_service = service;
    process->object = make_object(Kind::Process, command_line);
    process->object->body = std::shared_ptr<void>(process.get(), [](void*) {});
    process->program = program;
    process->image = image_acquire(program);
    m.processes.push_back(std::move(process));
    Process* started = m.processes.back().get();
    start_thread(started, main_thread_name(*started), [started] {
        end_process(started, run_image(started));
        return DWORD{0};
    });
    return started;
}

Process* start_process(const std::string& command_line, DWORD session, bool service) {
    return start_program("zorpm", command_line, session, service);
}

Process* start_control_program(const std::string& arguments, DWORD session) {
    return start_program(g_controlProgram, std::string(g_controlProgram) + " " + arguments, session, false);
}

Process* find_process(const std::string& command_line, DWORD session) {
    for (auto& process : machine().processes) {
        if (!process->ended && same_text(process->command_line, command_line) &&
            process->session == session && process.get() != machine().host)
            return process.get();
    }
    return nullptr;
}

void end_process(Process* process, DWORD exit_code) {
    Machine& m = machine();
    if (process->ended)
        return;
    process->ended = true;
    process->exit_code = exit_code;
    if (process->image != nullptr)
        trace("process \"%s\" ended %u", process->command_line.c_str(), exit_code);
    for (auto& thread : m.threads) {
        if (thread->process == process && thread.get() != m.running)
            end_thread(thread.get(), exit_code);
    }
    std::vector<std::uintptr_t> open;
    for (const auto& [value, entry] : m.handles) {
        if (entry.process == process)
            open.push_back(value);
    }
    std::sort(open.begin(), open.end());
    for (const std::uintptr_t value : open) {
        if (m.handles.count(value) != 0)
            drop_handle(value);
    }
    process->state.slots.clear();
    process->local_blocks = 0;
    if (process->image != nullptr)
        image_release(static_cast<Image*>(process->image));
    process->image = nullptr;
    signal_object(*process->object);
    if (m.running != nullptr && m.running->process == process)
        end_thread(m.running, exit_code);
}

void run_on_thread(const std::function<void()>& work) {
    Machine& m = machine();
    auto process = std::make_unique<Process>();
    process->id = m.next_id += 4;
    process->command_line = "test";
    process->object = make_object(Kind::Process, "test");
    m.processes.push_back(std::move(process));
    Process* home = m.processes.back().get();
    Thread* thread = start_thread(home, "test", [work] {
        work();
        return DWORD{0};
    });
    m.settle();
    while (thread->run != Run::Ended && m.next_deadline() != NEVER)
        m.advance(m.next_deadline() - m.now);
    if (thread->run != Run::Ended)
        violation("the test's thread waits for ever");
    end_process(home, 0);
}

Machine::Machine(std::uint64_t chosen_seed) : seed(chosen_seed), random_state(chosen_seed) {
    if (g_machine != nullptr) {
        std::fprintf(stderr, "two machines at once\n");
        std::abort();
    }
    g_machine = this;
    processes.push_back(std::make_unique<Process>());
    host = processes.back().get();
    host->id = 4;
    host->command_line = "host";
    host->object = make_object(Kind::Process, "host");
}

Machine::~Machine() {
    keep_trace = false;
    on_line = nullptr;
    for (size_t i = processes.size(); i-- > 0;)
        end_process(processes[i].get(), 0);
    handles.clear();
    state.slots.clear();
    for (auto& thread : threads) {
        if (thread->fiber != nullptr)
            fiber_release(thread->fiber);
    }
    g_machine = nullptr;
}

} // namespace sim
