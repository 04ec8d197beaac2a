#include "recorder/clock/turns.h"

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "recorder/real.h"

namespace turns {

// A thread may make this many waits of no length in one instant; then the clock must move for it.
constexpr unsigned ZERO_WAITS_PER_INSTANT = 1000;
constexpr DWORD STUCK_MS = 30000; // of real time
constexpr DWORD FAILED_COUNT = ~DWORD{0};

namespace {

enum class Run { Ready, Waiting, Running, Ended };

struct Thread {
    std::string name;
    LPTHREAD_START_ROUTINE procedure = nullptr;
    LPVOID parameter = nullptr;
    HANDLE handle = nullptr; // of our own
    DWORD id = 0;
    DWORD home = 0;
    volatile LONG turn = 0; // 1: it has the turn
    Run run = Run::Ready;
    int suspended = 0;
    // What it waits for. `given`: a wait that somebody else has ended for it.
    DWORD count = 0;
    HANDLE objects[MAXIMUM_WAIT_OBJECTS] = {};
    bool all = false;
    bool own_wait = false; // a mutex among them: only the thread itself can take it
    bool messages = false; // or for messages
    Ms deadline = NEVER;
    DWORD result = WAIT_TIMEOUT;
    bool given = false;
    Ms instant = 0;
    unsigned zero_waits = 0; // of that instant
};

struct Timer {
    Thread* thread;
    HWND window;
    UINT_PTR id;
    UINT period;
    TIMERPROC procedure;
    Ms due;
};

} // namespace

static Ms g_now = 0;
static DWORD g_driving = 0;      // the driving thread's id
static volatile LONG g_back = 0; // 1: the driving thread has the turn
static std::vector<std::unique_ptr<Thread>> g_threads;
static std::vector<Thread*> g_ready;
static std::vector<Thread*> g_waiting; // in the order in which they began to wait
static std::vector<Timer> g_timers;
static unsigned g_held = 0; // threads that made too many waits of no length
static void (*g_stuck)(const char*) = nullptr;
static DWORD g_slot = TLS_OUT_OF_INDEXES;

static Thread* self() {
    return g_slot == TLS_OUT_OF_INDEXES ? nullptr : static_cast<Thread*>(TlsGetValue(g_slot));
}

// ---- real waits: by calls that are never wrapped ----

static DWORD real_wait(HANDLE object, DWORD timeout_ms) {
    return WaitForSingleObjectEx(object, timeout_ms, FALSE);
}

static DWORD try_objects(DWORD count, const HANDLE* objects, bool all) {
    return WaitForMultipleObjectsEx(count, objects, all, 0, FALSE);
}

struct MutantState {
    LONG count;
    BOOLEAN owned_by_caller;
    BOOLEAN abandoned;
};
using QueryMutant = LONG(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);

static bool query_mutex(HANDLE object, MutantState* state) {
    static const auto query = reinterpret_cast<QueryMutant>(real::find("NtQueryMutant"));
    return query(object, 0, state, sizeof(*state), nullptr) >= 0;
}

static std::set<HANDLE> g_mutexes;

void note_mutex(HANDLE mutex) {
    g_mutexes.insert(mutex);
}

void forget_mutex(HANDLE mutex) {
    g_mutexes.erase(mutex);
}

static bool has_mutex(const Thread& thread) {
    return std::any_of(thread.objects, thread.objects + thread.count,
                       [](HANDLE object) { return g_mutexes.contains(object); });
}

// Whether the thread itself would find what it waits for; mutexes alone are waited for so.
static bool could_take(const Thread& thread) {
    MutantState state = {};
    return std::any_of(thread.objects, thread.objects + thread.count,
                       [&](HANDLE object) { return query_mutex(object, &state) && state.count > 0; });
}

// ---- who comes next ----

static void schedule(Thread* thread) {
    thread->run = Run::Ready;
    g_ready.push_back(thread);
}

static bool finds_objects(Thread* thread) {
    if (thread->count == 0)
        return false;
    if (thread->own_wait)
        return could_take(*thread); // it takes the mutex when its turn comes
    thread->result = try_objects(thread->count, thread->objects, thread->all);
    thread->given = thread->result != WAIT_TIMEOUT;
    return thread->given;
}

static bool is_due(Thread* thread) {
    if (thread->deadline > g_now)
        return false;
    thread->result = WAIT_TIMEOUT;
    thread->given = true;
    return true;
}

// Those whose wait has ended, in the order in which they began to wait. Their objects are looked at only
// where something can have happened to them.
template <class May> static void wake_those(May objects) {
    const auto ends = [objects](Thread* thread) {
        if (thread->suspended > 0 || thread->messages ||
            !((objects(*thread) && finds_objects(thread)) || is_due(thread)))
            return false;
        schedule(thread);
        return true;
    };
    g_waiting.erase(std::remove_if(g_waiting.begin(), g_waiting.end(), ends), g_waiting.end());
}

static void wake_waiting(bool objects) {
    wake_those([objects](const Thread&) { return objects; });
}

void signalled() {
    wake_waiting(true);
}

void signalled(HANDLE object) {
    wake_those([object](const Thread& thread) {
        return std::find(thread.objects, thread.objects + thread.count, object) !=
               thread.objects + thread.count;
    });
}

void released() {
    wake_those([](const Thread& thread) { return thread.own_wait; });
}

static void remove_from(std::vector<Thread*>& list, const Thread* thread) {
    list.erase(std::remove(list.begin(), list.end(), thread), list.end());
}

// ---- handing over ----

// Turns go by a word in memory and an alert to its thread: handing over is the most frequent thing here, and
// an event costs Wine a message. A thread that is terminated as it waits so leaves nothing behind.
extern "C" __declspec(dllimport) LONG WINAPI NtAlertThreadByThreadId(HANDLE thread);
extern "C" __declspec(dllimport) LONG WINAPI
    NtWaitForAlertByThreadId(const void* address, const LARGE_INTEGER* limit);

static void give(volatile LONG* turn, DWORD thread) {
    InterlockedExchange(turn, 1);
    NtAlertThreadByThreadId(ULongToHandle(thread));
}

// False when nothing came within so many real milliseconds.
static bool take(volatile LONG* turn, DWORD timeout_ms) {
    LARGE_INTEGER limit = {};
    limit.QuadPart = -10000LL * timeout_ms;
    const LARGE_INTEGER* given = timeout_ms != INFINITE ? &limit : nullptr;
    while (InterlockedExchange(turn, 0) == 0) {
        if (NtWaitForAlertByThreadId(nullptr, given) == WAIT_TIMEOUT)
            return InterlockedExchange(turn, 0) != 0;
    }
    return true;
}

static void await_turn(Thread* thread) {
    take(&thread->turn, INFINITE);
}

static void hand_back(Thread* thread) {
    give(&g_back, g_driving);
    await_turn(thread);
}

// Its handle is signalled before others look, and what it owned is abandoned.
static void end_of(const Thread* thread) {
    real_wait(thread->handle, STUCK_MS);
    wake_waiting(true);
}

// Gives the turn to a thread until it waits or has ended.
static void run_thread(Thread* thread) {
    thread->run = Run::Running;
    give(&thread->turn, thread->id);
    if (!take(&g_back, STUCK_MS)) {
        if (g_stuck != nullptr)
            g_stuck(thread->name.c_str());
        ExitProcess(3);
    }
    if (thread->run == Run::Ended)
        end_of(thread);
}

static Thread* take_next() {
    const auto first =
        std::find_if(g_ready.begin(), g_ready.end(), [](const Thread* t) { return t->suspended == 0; });
    if (first == g_ready.end())
        return nullptr;
    Thread* thread = *first;
    g_ready.erase(first);
    return thread;
}

// Lets those that wait for messages look for some; whether one found any.
static bool look_for_messages() {
    const std::vector<Thread*> looking = g_waiting;
    for (Thread* thread : looking) {
        if (!thread->messages || thread->suspended > 0 || thread->run != Run::Waiting)
            continue;
        thread->given = false;
        run_thread(thread);
        if (thread->given || !g_ready.empty()) // what was sent to it may have woken others
            return true;
    }
    return false;
}

static void run_ready() {
    do {
        while (Thread* thread = take_next())
            run_thread(thread);
    } while (look_for_messages());
}

void settle() {
    wake_waiting(true);
    run_ready();
    if (g_held == 0)
        return;
    g_held = 0;
    ++g_now;
    wake_waiting(false);
    run_ready();
}

static Ms next_deadline() {
    Ms next = NEVER;
    for (const Thread* thread : g_waiting) {
        if (thread->suspended == 0)
            next = std::min(next, thread->deadline);
    }
    for (const Timer& timer : g_timers)
        next = std::min(next, timer.due);
    return next;
}

void advance(Ms duration) {
    const Ms target = g_now + duration;
    wake_waiting(true);
    run_ready();
    for (Ms next = next_deadline(); next <= target; next = next_deadline()) {
        // A timer whose thread does not look for messages stays due.
        if (next <= g_now && std::none_of(g_waiting.begin(), g_waiting.end(),
                                          [](const Thread* t) { return t->deadline <= g_now; }))
            break;
        g_now = std::max(g_now, next);
        wake_waiting(false);
        run_ready();
    }
    g_now = std::max(g_now, target);
}

void pass(Ms duration) {
    if (duration == 0)
        return;
    advance(duration - 1);
    ++g_now;
    wake_waiting(false);
}

Ms now() {
    return g_now;
}

void begin() {
    g_slot = TlsAlloc();
    g_driving = GetCurrentThreadId();
}

void on_stuck(void (*stuck)(const char*)) {
    g_stuck = stuck;
}

const char* thread_name() {
    const Thread* thread = self();
    return thread != nullptr ? thread->name.c_str() : "";
}

// ---- threads ----

static Thread* thread_of(HANDLE handle) {
    const DWORD id = GetThreadId(handle);
    for (const auto& thread : g_threads) {
        if (thread->id == id && thread->run != Run::Ended)
            return thread.get();
    }
    return nullptr;
}

static void end_turns(Thread* thread) {
    thread->run = Run::Ended;
    remove_from(g_ready, thread);
    remove_from(g_waiting, thread);
    g_timers.erase(std::remove_if(g_timers.begin(), g_timers.end(),
                                  [thread](const Timer& timer) { return timer.thread == thread; }),
                   g_timers.end());
}

static DWORD WINAPI thread_entry(LPVOID argument) {
    auto* thread = static_cast<Thread*>(argument);
    TlsSetValue(g_slot, thread);
    await_turn(thread);
    const DWORD code = thread->procedure(thread->parameter);
    end_turns(thread);
    give(&g_back, g_driving);
    return code;
}

DWORD home() {
    const Thread* thread = self();
    return thread != nullptr ? thread->home : 0;
}

void set_home(DWORD home) {
    if (Thread* thread = self())
        thread->home = home;
}

void end_others(DWORD home) {
    std::vector<HANDLE> others;
    for (const auto& thread : g_threads) {
        if (thread->home == home && thread->run != Run::Ended && thread.get() != self())
            others.push_back(thread->handle);
    }
    for (HANDLE thread : others)
        terminate_thread(thread, 0);
}

HANDLE start_thread(const char* name, LPTHREAD_START_ROUTINE procedure, LPVOID parameter, DWORD flags,
                    DWORD* id, DWORD its_home) {
    auto thread = std::make_unique<Thread>();
    thread->home = its_home == SAME_HOME ? home() : its_home;
    thread->name = name;
    thread->procedure = procedure;
    thread->parameter = parameter;
    thread->suspended = (flags & CREATE_SUSPENDED) != 0 ? 1 : 0;
    HANDLE handle = REAL(CreateThread)(nullptr, 0, thread_entry, thread.get(), flags, &thread->id);
    if (handle == nullptr)
        return nullptr;
    DuplicateHandle(GetCurrentProcess(), handle, GetCurrentProcess(), &thread->handle, 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    if (id != nullptr)
        *id = thread->id;
    schedule(thread.get());
    g_threads.push_back(std::move(thread));
    return handle;
}

void exit_thread(DWORD code) {
    if (Thread* thread = self()) {
        end_turns(thread);
        give(&g_back, g_driving);
    }
    REAL(ExitThread)(code);
    __builtin_unreachable();
}

BOOL terminate_thread(HANDLE handle, DWORD code) {
    Thread* thread = thread_of(handle);
    if (thread == nullptr || thread == self())
        return REAL(TerminateThread)(handle, code);
    if (!REAL(TerminateThread)(handle, code))
        return FALSE;
    end_turns(thread);
    end_of(thread);
    return TRUE;
}

DWORD suspend_thread(HANDLE handle) {
    Thread* thread = thread_of(handle);
    if (thread != nullptr && thread == self()) {
        ++thread->suspended;
        schedule(thread);
        hand_back(thread);
        return static_cast<DWORD>(thread->suspended);
    }
    const DWORD before = REAL(SuspendThread)(handle);
    if (thread != nullptr && before != FAILED_COUNT)
        ++thread->suspended;
    return before;
}

DWORD resume_thread(HANDLE handle) {
    Thread* thread = thread_of(handle);
    const DWORD before = REAL(ResumeThread)(handle);
    if (thread != nullptr && before != FAILED_COUNT && thread->suspended > 0) {
        --thread->suspended;
        wake_waiting(true);
    }
    return before;
}

// ---- waits ----

static void block(Thread* thread) {
    thread->run = Run::Waiting;
    thread->given = false;
    remove_from(g_waiting, thread); // it may wait within the handling of a message
    g_waiting.push_back(thread);
    hand_back(thread);
}

static void yield(Thread* thread) {
    if (g_ready.empty())
        return;
    schedule(thread);
    hand_back(thread);
}

// Waits of no length: after too many of them the thread is held until the next millisecond.
static void count_zero_wait(Thread* thread) {
    if (thread->instant != g_now)
        thread->zero_waits = 0;
    thread->instant = g_now;
    if (++thread->zero_waits < ZERO_WAITS_PER_INSTANT)
        return;
    ++g_held;
    thread->count = 0;
    thread->own_wait = false;
    thread->deadline = g_now + 1;
    block(thread);
}

DWORD wait(DWORD count, const HANDLE* handles, BOOL all, DWORD timeout_ms) {
    Thread* thread = self();
    if (thread == nullptr || count == 0 || count > MAXIMUM_WAIT_OBJECTS)
        return WaitForMultipleObjectsEx(count, handles, all, timeout_ms, FALSE);
    DWORD result = try_objects(count, handles, all != FALSE);
    const DWORD error = GetLastError();
    if (result != WAIT_TIMEOUT || timeout_ms == 0) {
        if (result == WAIT_TIMEOUT)
            count_zero_wait(thread);
        yield(thread);
        SetLastError(error);
        return result;
    }
    const Ms deadline = timeout_ms == INFINITE ? NEVER : g_now + timeout_ms;
    std::copy_n(handles, count, thread->objects);
    thread->all = all != FALSE;
    do {
        thread->count = count;
        thread->own_wait = has_mutex(*thread);
        thread->deadline = deadline;
        block(thread);
        result = thread->given ? thread->result : try_objects(count, handles, all != FALSE);
    } while (!thread->given && result == WAIT_TIMEOUT);
    thread->count = 0;
    thread->deadline = NEVER;
    SetLastError(error);
    return result;
}

DWORD signal_and_wait(HANDLE signal, HANDLE object, DWORD timeout_ms) {
    // Together or one after the other: nobody else runs between.
    if (!REAL(SetEvent)(signal) && !REAL(ReleaseMutex)(signal))
        return WAIT_FAILED;
    wake_waiting(true);
    return wait(1, &object, FALSE, timeout_ms);
}

void sleep(DWORD duration_ms) {
    Thread* thread = self();
    if (thread == nullptr) {
        SleepEx(duration_ms, FALSE);
        return;
    }
    if (duration_ms == 0) {
        count_zero_wait(thread);
        yield(thread);
        return;
    }
    thread->count = 0;
    thread->own_wait = false;
    thread->deadline = duration_ms == INFINITE ? NEVER : g_now + duration_ms;
    block(thread);
}

// ---- messages and timers ----

static bool due_timer(const Thread* thread, MSG* message) {
    for (Timer& timer : g_timers) {
        if (timer.thread != thread || timer.due > g_now)
            continue;
        timer.due = g_now + timer.period;
        *message = {timer.window,
                    WM_TIMER,
                    timer.id,
                    reinterpret_cast<LPARAM>(timer.procedure),
                    static_cast<DWORD>(g_now),
                    {}};
        return true;
    }
    return false;
}

BOOL get_message(MSG* message, HWND window, UINT first, UINT last) {
    Thread* thread = self();
    if (thread == nullptr)
        return REAL(GetMessageW)(message, window, first, last);
    for (;;) {
        thread->messages = false; // what is sent is handled within the look, and may wait
        if (PeekMessageW(message, window, first, last, PM_REMOVE) || due_timer(thread, message))
            break;
        thread->count = 0;
        thread->messages = true;
        thread->deadline = NEVER;
        // Where it stands among those that wait is kept while it only looks.
        if (std::find(g_waiting.begin(), g_waiting.end(), thread) == g_waiting.end())
            g_waiting.push_back(thread);
        thread->run = Run::Waiting;
        hand_back(thread);
    }
    remove_from(g_waiting, thread);
    thread->given = true;
    return message->message != WM_QUIT;
}

UINT_PTR set_timer(HWND window, UINT_PTR id, UINT period_ms, TIMERPROC procedure) {
    kill_timer(window, id);
    g_timers.push_back({self(), window, id, period_ms, procedure, g_now + period_ms});
    return id != 0 ? id : 1;
}

BOOL kill_timer(HWND window, UINT_PTR id) {
    const size_t before = g_timers.size();
    g_timers.erase(std::remove_if(g_timers.begin(), g_timers.end(),
                                  [=](const Timer& t) { return t.window == window && t.id == id; }),
                   g_timers.end());
    return g_timers.size() != before;
}

} // namespace turns
