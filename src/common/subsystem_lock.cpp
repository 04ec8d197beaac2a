#include "common/subsystem_lock.h"

#include "common/trace.h"

// Null when it cannot be created.
static HANDLE LockMutex(SubsystemLock* lock) {
    HANDLE mutex = lock->mutex;
    if (mutex != nullptr)
        return mutex;
    HANDLE created = CreateMutexW(nullptr, FALSE, nullptr);
    if (created == nullptr || lock->mutex.compare_exchange_strong(mutex, created))
        return created;
    // Another thread was first.
    CloseHandle(created);
    return mutex;
}

static bool Take(SubsystemLock* lock, DWORD wait_ms) {
    HANDLE mutex = LockMutex(lock);
    if (mutex == nullptr)
        return false;
    const DWORD result = WaitForSingleObject(mutex, wait_ms);
    // Its owner was terminated, which let go of every level at once.
    if (result == WAIT_ABANDONED)
        lock->depth = 0;
    if (result != WAIT_OBJECT_0 && result != WAIT_ABANDONED)
        return false;
    ++lock->depth;
    return true;
}

static bool Overtaken(const SubsystemLock* lock) {
    for (const auto& place : lock->overtakers) {
        if (place != nullptr)
            return true;
    }
    return false;
}

// The present owner's. From the oldest place on: the next one to be filled. Places, not numbers, tell what is
// to be done: who enters takes a number first and fills its place a moment later.
static void RunOvertakers(SubsystemLock* lock) {
    const DWORD oldest = lock->entered;
    for (DWORD i = 0; i < OVERTAKER_LIMIT; ++i) {
        const SubsystemOperation operation =
            lock->overtakers[(oldest + i) % OVERTAKER_LIMIT].exchange(nullptr);
        if (operation != nullptr)
            operation();
    }
}

// An operation may be entered behind the last look of an owner that is just letting go: the look after it
// sees it.
static void LetGo(SubsystemLock* lock) {
    do {
        // Only the outermost level is at the end of its operation.
        if (lock->depth == 1)
            RunOvertakers(lock);
        --lock->depth;
        const bool outermost = lock->depth == 0;
        ReleaseMutex(lock->mutex);
        if (!outermost)
            return;
    } while (Overtaken(lock) && Take(lock, 0));
}

BOOL RunExclusive(SubsystemLock* lock, SubsystemOperation operation) {
    bool taken = Take(lock, SUBSYSTEM_WAIT_MS);
    // What an owner that was terminated has left comes before what was asked for later.
    if (taken && lock->depth == 1)
        RunOvertakers(lock);
    const BOOL result = operation();
    if (!taken) {
        Trace(L"RunExclusive(): the owner was overtaken\n");
        lock->overtakers[lock->entered++ % OVERTAKER_LIMIT] = operation;
        taken = Take(lock, 0);
    }
    if (taken)
        LetGo(lock);
    return result;
}
