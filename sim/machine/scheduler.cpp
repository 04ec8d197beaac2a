#include "sim/machine/scheduler.h"

#include <algorithm>
#include <cstdlib>

#include "sim/machine/fiber.h"
#include "sim/machine/machine.h"

namespace sim {

// A thread may make this many waits of no length in one instant; then the clock must move for it.
constexpr unsigned ZERO_WAITS_PER_INSTANT = 1000;
// A thread that makes this many calls in one instant without any wait runs on.
constexpr unsigned CALLS_WITHOUT_WAIT = 100000;

// One call in so many hands over, with a seed other than 0.
constexpr std::uint64_t CALLS_PER_HAND_OVER = 6;

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
    schedule(thread);
    return true;
}

void wake_waiting() {
    std::vector<Thread*>& waiting = machine().waiting;
    waiting.erase(std::remove_if(waiting.begin(), waiting.end(), try_wake), waiting.end());
}

void signal_object(Object& object) {
    object.signaled = true;
    wake_waiting();
}

void reset_object(Object& object) {
    object.signaled = false;
}

void unschedule(Thread* thread) {
    remove_from(machine().ready, thread);
    remove_from(machine().waiting, thread);
    thread->run = Run::Ended;
    end_wait(thread);
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
    if (m.seed != 0 && !m.ready.empty() && random_below(CALLS_PER_HAND_OVER) == 0)
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
        wake_waiting();
        settle();
    }
    now = target;
}

} // namespace sim
