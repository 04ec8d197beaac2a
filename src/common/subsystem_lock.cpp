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

// The present owner's.
static void RunOvertakers(SubsystemLock* lock) {
    while (lock->settled != lock->entered) {
        if (lock->entered - lock->settled > OVERTAKER_LIMIT)
            lock->settled = lock->entered - OVERTAKER_LIMIT;
        const SubsystemOperation operation =
            lock->overtakers[lock->settled % OVERTAKER_LIMIT].exchange(nullptr);
        ++lock->settled;
        if (operation != nullptr)
            operation();
    }
}

// An operation may be entered behind the last look of an owner that is just letting go: then whoever of the
// two comes by later settles it.
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
    } while (lock->settled != lock->entered && Take(lock, 0));
}

BOOL RunExclusive(SubsystemLock* lock, SubsystemOperation operation) {
    bool taken = Take(lock, SUBSYSTEM_WAIT_MS);
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
