// The lock of a subsystem: spans what one of its operations reads and does, so that at rest everything
// published and commanded is as the operations, one after another, would have left it.
//
// A kernel mutex, so that a thread that is terminated while it owns it stops nobody, and one that is
// suspended stops others for a bounded time only. Locks are taken downwards: form factor, then an indicator's
// or cooling's. None is held while waiting for a thread to end.
#pragma once

#include <windows.h>
#include <atomic>

// How long an operation waits for its turn, in milliseconds. Then it runs all the same.
constexpr DWORD SUBSYSTEM_WAIT_MS = 5000;

// Reads and acts anew each time; run twice in a row it leaves what it leaves once.
using SubsystemOperation = BOOL (*)();

// Operations that may have to be run again at one time, more than any subsystem has; of more, the oldest go.
constexpr DWORD REPEAT_LIMIT = 32;

// Static; all its words start as 0.
struct SubsystemLock {
    std::atomic<HANDLE> mutex;     // made by the first who needs it, and kept
    DWORD depth;                   // how often its owner has taken it; the owner's word
    std::atomic<DWORD> overtaking; // operations that run without their turn, now
    std::atomic<bool> overtaken;   // one of them has ended since the last look
    // What is to be run again then, in the order of its end; null where there is nothing.
    std::atomic<SubsystemOperation> repeats[REPEAT_LIMIT];
    std::atomic<DWORD> entered; // number of the next
};

// Runs an operation in its turn and returns its result. An operation that has waited in vain runs without. It
// may act late on what it read early, and owners have read and acted meanwhile, so all of them are run again,
// in order and in one turn, once it has ended: by itself, or by the owner of then before it lets go. An owner
// may take the lock again.
BOOL RunExclusive(SubsystemLock* lock, SubsystemOperation operation);
