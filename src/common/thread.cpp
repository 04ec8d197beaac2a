#include "common/thread.h"

#include "common/trace.h"

OPERATION(BOOL, StartThreadInSlot, (LPTHREAD_START_ROUTINE procedure, std::atomic<HANDLE>* slot), procedure,
          slot) {
    if (*slot != nullptr)
        return FALSE;
    // Suspended, so that a thread that ends at once finds in the slot what it empties.
    HANDLE thread = CreateThread(nullptr, 0, procedure, nullptr, CREATE_SUSPENDED, nullptr);
    if (thread == nullptr) {
        Trace(L"StartThreadInSlot(): Error: thread not created. (%lu)\n", GetLastError());
        return FALSE;
    }
    *slot = thread;
    if (ResumeThread(thread) != static_cast<DWORD>(-1))
        return TRUE;
    Trace(L"StartThreadInSlot(): Error: thread not started. (%lu)\n", GetLastError());
    *slot = nullptr;
    TerminateThread(thread, 0);
    CloseHandle(thread);
    return FALSE;
}
