// The lock of a subsystem by itself: what is run again behind an overtaking, and what an owner that is gone
// leaves.
#include <utility>

#include "common/subsystem_lock.h"
#include "common/thread.h"
#include "tests/support/sweep.h"

static SubsystemLock g_lock;
static std::string g_log;

namespace {

// Logs its number; one of 100 or more takes so many milliseconds before.
template <int Number> BOOL Log() {
    if (Number >= 100)
        Sleep(Number);
    g_log += std::to_string(Number) + " ";
    return TRUE;
}

template <int Number> BOOL Nested() {
    RunExclusive(&g_lock, Log<Number>);
    return Log<Number + 1>();
}

template <int Number> BOOL NestedLate() {
    Sleep(6000);
    return Nested<Number>();
}

template <SubsystemOperation Operation> DWORD WINAPI InTurn(void*) {
    RunExclusive(&g_lock, Operation);
    return 0;
}

HANDLE start(LPTHREAD_START_ROUTINE procedure) {
    return CreateThread(nullptr, 0, procedure, nullptr, 0, nullptr);
}

void await(HANDLE thread) {
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
}

template <int... Numbers> void run_all(std::integer_sequence<int, Numbers...>) {
    for (SubsystemOperation operation : {SubsystemOperation{Log<Numbers>}...})
        RunExclusive(&g_lock, operation);
}

void renew_lock() {
    g_lock.~SubsystemLock();
    new (&g_lock) SubsystemLock{};
}

// What `work` has logged; the lock is new.
std::string logged(void (*work)()) {
    Bench bench;
    renew_lock();
    g_log.clear();
    sim::run_on_thread(work);
    return g_log;
}

} // namespace

// The owner takes 6 s; who waits for 5 s runs then, for 10 s; others have their turns in between. Behind him
// all of them are run again, each once, in the order of their last ends.
TEST(SubsystemLock, WhatIsRunAgainBehindAnOvertaking) {
    EXPECT_EQ("6000 1 2 1 10000 6000 2 1 10000 ", logged([] {
                  const HANDLE owner = start(InTurn<Log<6000>>);
                  const HANDLE overtaker = start(InTurn<Log<10000>>);
                  Sleep(7000);
                  for (SubsystemOperation operation : {Log<1>, Log<2>, Log<1>})
                      RunExclusive(&g_lock, operation);
                  await(owner);
                  await(overtaker);
              }));
}

// Of more than it can note the oldest go.
TEST(SubsystemLock, NotesTheLastOnes) {
    std::string all = "6000 ";
    std::string last;
    for (int i = 0; i < 40; ++i)
        all += std::to_string(i) + " ";
    for (int i = 40 - static_cast<int>(REPEAT_LIMIT) + 1; i < 40; ++i)
        last += std::to_string(i) + " ";
    EXPECT_EQ(32u, REPEAT_LIMIT);
    EXPECT_EQ(all + "10000 " + last + "10000 ", logged([] {
                  const HANDLE owner = start(InTurn<Log<6000>>);
                  const HANDLE overtaker = start(InTurn<Log<10000>>);
                  Sleep(7000);
                  run_all(std::make_integer_sequence<int, 40>{});
                  await(owner);
                  await(overtaker);
              }));
}

// An owner that is terminated leaves what it would have run again to the next one, at any depth.
TEST(SubsystemLock, TheOwnerTerminated) {
    EXPECT_EQ("200 200 5 6 ", logged([] {
                  const HANDLE owner = start(InTurn<Nested<9000>>);
                  Sleep(1);
                  await(start(InTurn<Log<200>>));
                  TerminateThread(owner, 0);
                  CloseHandle(owner);
                  RunExclusive(&g_lock, Nested<5>);
              }));
}

// Whoever makes the mutex, one is left.
TEST(SubsystemLock, MadeByTwoAtOnce) {
    run_seeds(60, [](Bench&) {
        renew_lock();
        sim::run_on_thread([] {
            const HANDLE one = start(InTurn<Log<1>>);
            const HANDLE other = start(InTurn<Log<2>>);
            await(one);
            await(other);
            EXPECT_EQ(1u, sim::handle_count(sim::Kind::Mutex));
        });
    });
}

// So does who is terminated while he runs it again.
TEST(SubsystemLock, TerminatedInTheRepeat) {
    EXPECT_EQ("6000 3000 6000 3000 1 ", logged([] {
                  const HANDLE owner = start(InTurn<Log<6000>>);
                  const HANDLE overtaker = start(InTurn<Log<3000>>);
                  Sleep(9000);
                  TerminateThread(overtaker, 0);
                  CloseHandle(overtaker);
                  RunExclusive(&g_lock, Log<1>);
                  await(owner);
              }));
}

// What was overtaken is run again by the owner at his end, not in the midst, and by nobody who waits.
TEST(SubsystemLock, RunAgainAtTheOwnersEnd) {
    EXPECT_EQ("100 1 20000 100 1 ", logged([] {
                  const HANDLE owner = start(InTurn<Log<20000>>);
                  await(start(InTurn<Log<100>>));
                  RunExclusive(&g_lock, Log<1>);
                  await(owner);
              }));
    EXPECT_EQ("100 1 2 100 ", logged([] {
                  const HANDLE owner = start(InTurn<NestedLate<1>>);
                  await(start(InTurn<Log<100>>));
                  await(owner);
              }));
}

// What ends beside the owner's last look at the same moment is seen by one of the two.
TEST(SubsystemLock, EndsAtOneMoment) {
    run_seeds(400, [](Bench&) {
        renew_lock();
        sim::run_on_thread([] {
            const HANDLE owner = start(InTurn<Log<6000>>);
            await(start(InTurn<Log<1000>>));
            await(owner);
        });
        EXPECT_FALSE(g_lock.overtaken);
        for (const auto& place : g_lock.repeats)
            EXPECT_EQ(nullptr, place.load());
    });
}

// The lock is free behind its outermost level, though its owner goes on.
TEST(SubsystemLock, FreeBehindItsOwner) {
    EXPECT_EQ("7 8 9 ", logged([] {
                  const ULONGLONG begun = GetTickCount64();
                  RunExclusive(&g_lock, Nested<7>);
                  await(start(InTurn<Log<9>>));
                  EXPECT_EQ(begun, GetTickCount64());
              }));
}

// The lock is free behind its outermost level and no earlier.
TEST(SubsystemLock, TakenAgainByItsOwner) {
    EXPECT_EQ("300 301 7 8 ", logged([] {
                  const ULONGLONG begun = GetTickCount64();
                  const HANDLE owner = start(InTurn<Nested<300>>);
                  Sleep(1);
                  RunExclusive(&g_lock, Nested<7>);
                  EXPECT_EQ(601u, GetTickCount64() - begun);
                  await(owner);
              }));
}

static DWORD WINAPI Idle(void*) {
    return 0;
}

// Whoever starts a thread is told whether there is one.
TEST(Threads, InASlot) {
    Bench bench;
    sim::run_on_thread([&bench] {
        std::atomic<HANDLE> slot{nullptr};
        for (const char* call : {"CreateThread", "ResumeThread"}) {
            bench.machine.fail_name = call;
            bench.machine.fail_countdown = 1;
            EXPECT_FALSE(StartThreadInSlot(Idle, &slot)) << call;
            EXPECT_EQ(nullptr, slot.load()) << call;
        }
        EXPECT_TRUE(StartThreadInSlot(Idle, &slot));
        EXPECT_FALSE(StartThreadInSlot(Idle, &slot)); // taken
        CloseHandle(slot);
    });
}
