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
    // Its owner was terminated, which let go of every level at once, and perhaps in the midst of repeating.
    if (result == WAIT_ABANDONED) {
        lock->depth = 0;
        lock->overtaken = true;
    }
    if (result != WAIT_OBJECT_0 && result != WAIT_ABANDONED)
        return false;
    ++lock->depth;
    return true;
}

static void EnterRepeat(SubsystemLock* lock, SubsystemOperation operation) {
    lock->repeats[lock->entered++ % REPEAT_LIMIT] = operation;
}

// The owner's. Who overtakes may yet undo what the owner has just done. The last run of an operation makes an
// earlier one of it superfluous, so that a long overtaking fills no more places than there are operations.
static void EnterOwnRepeat(SubsystemLock* lock, SubsystemOperation operation) {
    if (lock->overtaking == 0)
        return;
    for (auto& place : lock->repeats) {
        SubsystemOperation same = operation;
        place.compare_exchange_strong(same, nullptr);
    }
    EnterRepeat(lock, operation);
}

// The owner's, when somebody who overtook has ended. From the oldest place on: the next one to be filled.
// Places, not numbers, tell what is to be done: who enters takes a number first and fills its place a moment
// later. While others still overtake, all stays for the end of these.
static void Repeat(SubsystemLock* lock) {
    while (lock->overtaken.exchange(false)) {
        const DWORD oldest = lock->entered;
        for (DWORD i = 0; i < REPEAT_LIMIT; ++i) {
            auto& place = lock->repeats[(oldest + i) % REPEAT_LIMIT];
            SubsystemOperation operation = place;
            if (operation == nullptr)
                continue;
            operation();
            if (lock->overtaking == 0)
                place.compare_exchange_strong(operation, nullptr);
        }
    }
}

// An overtaking may end behind the last look of an owner that is just letting go: the look after it sees it.
static void LetGo(SubsystemLock* lock) {
    do {
        // Only the outermost level is at the end of its operation.
        if (lock->depth == 1)
            Repeat(lock);
        --lock->depth;
        const bool outermost = lock->depth == 0;
        ReleaseMutex(lock->mutex);
        if (!outermost)
            return;
    } while (lock->overtaken && Take(lock, 0));
}

static BOOL Overtake(SubsystemLock* lock, SubsystemOperation operation) {
    Trace(L"RunExclusive(): the owner is overtaken\n");
    ++lock->overtaking;
    const BOOL result = operation();
    EnterRepeat(lock, operation);
    --lock->overtaking;
    lock->overtaken = true;
    if (Take(lock, 0))
        LetGo(lock);
    return result;
}

BOOL RunExclusive(SubsystemLock* lock, SubsystemOperation operation) {
    if (!Take(lock, SUBSYSTEM_WAIT_MS))
        return Overtake(lock, operation);
    // What an owner that was terminated has left comes before what was asked for later.
    if (lock->depth == 1)
        Repeat(lock);
    const BOOL result = operation();
    if (lock->depth == 1)
        EnterOwnRepeat(lock, operation);
    LetGo(lock);
    return result;
}
