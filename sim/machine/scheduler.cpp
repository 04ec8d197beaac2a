#include "sim/machine/scheduler.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "sim/machine/fiber.h"
#include "sim/machine/machine.h"

namespace sim {

// A thread may make this many waits of no length in one instant; then the clock must move for it.
constexpr unsigned ZERO_WAITS_PER_INSTANT = 1000;
// A thread that makes this many calls in one instant without any wait runs on.
constexpr unsigned CALLS_WITHOUT_WAIT = 100000;

// A thread whose waits all end at once, so often in one instant, runs on too.
constexpr unsigned WAITS_PER_INSTANT = 1000000;

static void hand_over_to_machine(Thread* thread) {
    ++machine().switches;
    fiber_hand_back(thread->run == Run::Ended);
}

static void remove_from(std::vector<Thread*>& list, Thread* thread) {
    list.erase(std::remove(list.begin(), list.end(), thread), list.end());
}

void schedule(Thread* thread) {
    thread->run = Run::Ready;
    machine().ready.push_back(thread);
}

// Lets the other ready threads run first.
static void yield() {
    Machine& m = machine();
    if (m.running == nullptr || m.ready.empty())
        return;
    Thread* thread = m.running;
    give_way(thread);
    schedule(thread);
    hand_over_to_machine(thread);
}

static bool can_run(const Thread& thread) {
    return thread.suspended == 0 && has_turn(thread);
}

// The others that could run now; until the next look.
static const std::vector<Thread*>& runnable() {
    std::vector<Thread*>& threads = machine().runnable;
    threads.clear();
    for (Thread* thread : machine().ready) {
        if (can_run(*thread)) // a suspended one keeps its place
            threads.push_back(thread);
    }
    return threads;
}

void may_hand_over(const char* where) {
    Machine& m = machine();
    if (m.running == nullptr || m.ready.empty() || m.schedule.policy == Policy::First)
        return;
    const std::vector<Thread*>& others = runnable();
    if (others.empty())
        return;
    Thread* other = overtaker(where, others);
    if (other == nullptr)
        return;
    m.overtaking = other;
    Thread* thread = m.running;
    schedule(thread);
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
    const std::span<const ObjectRef> objects = thread->objects;
    if (objects.empty())
        return false;
    if (thread->wait_all) {
        for (const ObjectRef& object : objects) {
            if (!available(*object, thread))
                return false;
        }
        bool abandoned = false;
        for (const ObjectRef& object : objects)
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
    thread->objects = {};
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
    schedule(thread);
    return true;
}

void wake_waiting() {
    std::vector<Thread*>& waiting = machine().waiting;
    waiting.erase(std::remove_if(waiting.begin(), waiting.end(), try_wake), waiting.end());
}

// The same for those alone that a test lets through: the others' waits cannot have ended.
template <class May> static void wake_those(May may) {
    std::vector<Thread*>& waiting = machine().waiting;
    waiting.erase(std::remove_if(waiting.begin(), waiting.end(),
                                 [may](Thread* thread) { return may(*thread) && try_wake(thread); }),
                  waiting.end());
}

void signal_object(Object& object) {
    object.signaled = true;
    wake_those([&object](const Thread& thread) {
        return std::any_of(thread.objects.begin(), thread.objects.end(),
                           [&object](const ObjectRef& other) { return other.get() == &object; });
    });
}

void reset_object(Object& object) {
    object.signaled = false;
}

void unschedule(Thread* thread) {
    remove_from(machine().ready, thread);
    remove_from(machine().waiting, thread);
    thread->run = Run::Ended;
    end_wait(thread);
    thread->last_objects.clear();
    thread->last_handles.clear();
}

void leave_to_others(Thread* thread) {
    hand_over_to_machine(thread);
}

void leave_for_good(Thread* thread) {
    hand_over_to_machine(thread);
    std::abort();
}

static void new_instant(Thread* thread) {
    if (thread->instant == machine().now)
        return;
    thread->instant = machine().now;
    thread->zero_waits = 0;
    thread->calls = 0;
    thread->instant_waits = 0;
}

// The thread that runs next, taken out of those that are ready; null when none can.
static Thread* take_next() {
    Machine& m = machine();
    Thread* thread = std::exchange(m.overtaking, nullptr);
    const auto first =
        std::find_if(m.ready.begin(), m.ready.end(), [](const Thread* t) { return can_run(*t); });
    if (first == m.ready.end())
        return nullptr;
    if (thread == nullptr)
        thread = m.schedule.policy == Policy::First ? *first : next_thread(runnable());
    m.ready.erase(std::find(m.ready.begin(), m.ready.end(), thread));
    return thread;
}

// Whether nobody else can run before this thread's wait has timed out, which the machine waits for.
static bool waits_alone(const Thread* thread) {
    const Machine& m = machine();
    return thread->deadline <= m.advances_to && m.ready.empty() && thread->suspended == 0 && !interrupted() &&
           thread->deadline < m.next_deadline();
}

// What the machine does then: on this thread, which need not hand over to itself.
static void pass_wait(Thread* thread) {
    Machine& m = machine();
    m.running = nullptr;
    show_noted_call();
    m.now = thread->deadline;
    thread->wait_result = WAIT_TIMEOUT;
    end_wait(thread);
    schedule(thread);
    schedule_instant();
    m.running = take_next();
}

static void block(Thread* thread) {
    thread->calls = 0;
    if (waits_alone(thread))
        return pass_wait(thread);
    thread->run = Run::Waiting;
    machine().waiting.push_back(thread);
    hand_over_to_machine(thread);
}

// Counts a wait of no length; after too many of them the thread is held until the next millisecond, to which
// the clock moves by itself when nobody else can run.
static void count_zero_wait(Thread* thread) {
    new_instant(thread);
    thread->calls = 0;
    if (++thread->zero_waits < ZERO_WAITS_PER_INSTANT)
        return;
    thread->deadline = machine().now + 1;
    ++machine().held;
    thread->held = true;
    block(thread);
    thread->held = false;
}

// Whether a thread is held that the next millisecond lets go.
static bool anyone_held() {
    Machine& m = machine();
    if (m.held == 0)
        return false;
    m.held =
        static_cast<unsigned>(std::count_if(m.waiting.begin(), m.waiting.end(), [](const Thread* thread) {
            return thread->held && thread->suspended == 0;
        }));
    return m.held != 0;
}

// Counts a wait that had nothing to wait for.
static void count_satisfied_wait(Thread* thread) {
    new_instant(thread);
    thread->calls = 0;
    if (++thread->instant_waits < WAITS_PER_INSTANT)
        return;
    violation("%u waits in one instant, each for what was there already", WAITS_PER_INSTANT);
    end_thread(thread, 0);
}

DWORD wait_for(std::vector<ObjectRef> objects, bool all, DWORD timeout_ms) {
    Thread* thread = machine().running;
    if (thread == nullptr) {
        violation("a wait outside the simulated threads");
        return WAIT_FAILED;
    }
    thread->last_objects = std::move(objects);
    thread->last_handles.clear();
    return wait_for_last(all, timeout_ms);
}

DWORD wait_for_last(bool all, DWORD timeout_ms) {
    Machine& m = machine();
    Thread* thread = m.running;
    thread->objects = thread->last_objects;
    thread->wait_all = all;
    if (m.replay.on && std::any_of(thread->objects.begin(), thread->objects.end(),
                                   [](const ObjectRef& object) { return object->kind == Kind::Mutex; }))
        await_mutex();
    const bool satisfied = satisfy(thread);
    if (satisfied || timeout_ms == 0) {
        const DWORD result = thread->wait_result;
        end_wait(thread);
        if (satisfied)
            count_satisfied_wait(thread);
        else
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
        violation("%s: %u calls in one instant without a wait", name, CALLS_WITHOUT_WAIT);
        end_thread(thread, 0);
    }
    may_hand_over(name);
    await_turn(name);
    note_call(name);
    if (!can_fail || !chosen_to_fail(m, name))
        return true;
    m.failed_call = name;
    trace_detail("%s fails as told, error %u", name, failure_code);
    set_last_error(failure_code);
    return false;
}

bool run_next() {
    Machine& m = machine();
    Thread* thread = take_next();
    if (thread == nullptr)
        return false;
    m.running = thread;
    fiber_resume(thread->fiber);
    m.running = nullptr;
    if (thread->run == Run::Ended && thread->fiber != nullptr) {
        fiber_release(thread->fiber);
        thread->fiber = nullptr;
    }
    return true;
}

static void run_ready() {
    schedule_instant();
    while (!interrupted()) {
        if (!run_next())
            return show_noted_call();
    }
}

void Machine::settle() {
    if (replay.on)
        return;
    run_ready();
    if (!anyone_held() || interrupted())
        return;
    ++now;
    wake_waiting();
    run_ready();
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
    if (replay.on)
        return replay_pass(duration);
    const Ms target = now + duration;
    const Ms outer_target = std::exchange(advances_to, target);
    run_ready();
    while (!interrupted()) {
        const Ms next = next_deadline();
        if (next > target)
            break;
        now = std::max(now, next);
        wake_those([this](const Thread& thread) { return thread.deadline <= now; });
        run_ready();
    }
    advances_to = outer_target;
    now = std::max(now, target);
}

} // namespace sim
