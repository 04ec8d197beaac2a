#include "sim/machine/fiber.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <sys/mman.h>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#define WITH_ASAN 1
#else
#define WITH_ASAN 0
#endif

namespace sim {

constexpr size_t STACK_BYTES = size_t{256} * 1024;
constexpr size_t GUARD_BYTES = 4096;

struct Fiber {
    void* stack_pointer = nullptr;
    char* mapping = nullptr; // guard page, then the stack
    void (*entry)(void*) = nullptr;
    void* argument = nullptr;
    void* fake_stack = nullptr;
    char* stack() const { return mapping + GUARD_BYTES; }
};

static std::vector<char*> g_stackPool;
static Fiber* g_running = nullptr;
static void* g_mainStackPointer = nullptr;
#if WITH_ASAN
static void* g_mainFakeStack = nullptr;
static const void* g_mainBottom = nullptr;
static size_t g_mainSize = 0;
#endif

extern "C" void sim_switch_stack(void** save, void* load);

// Callee-saved registers and the stack pointer are all that a cooperative switch must keep.
asm(R"(
.text
.globl sim_switch_stack
.hidden sim_switch_stack
.type sim_switch_stack, @function
sim_switch_stack:
    pushq %rbp
    pushq %rbx
    pushq %r12
    pushq %r13
    pushq %r14
    pushq %r15
    movq %rsp, (%rdi)
    movq %rsi, %rsp
    popq %r15
    popq %r14
    popq %r13
    popq %r12
    popq %rbx
    popq %rbp
    ret
.size sim_switch_stack, .-sim_switch_stack
)");

static void arrived_on_fiber() {
#if WITH_ASAN
    __sanitizer_finish_switch_fiber(g_running->fake_stack, &g_mainBottom, &g_mainSize);
#endif
}

static void fiber_start() {
    arrived_on_fiber();
    Fiber* self = g_running;
    self->entry(self->argument);
    std::fprintf(stderr, "fiber entry returned\n");
    std::abort();
}

Fiber* fiber_create(void (*entry)(void*), void* argument) {
    auto* fiber = new Fiber;
    fiber->entry = entry;
    fiber->argument = argument;
    if (!g_stackPool.empty()) {
        fiber->mapping = g_stackPool.back();
        g_stackPool.pop_back();
    } else {
        void* mapping = mmap(nullptr, GUARD_BYTES + STACK_BYTES, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (mapping == MAP_FAILED || mprotect(mapping, GUARD_BYTES, PROT_NONE) != 0) {
            std::perror("fiber stack");
            std::abort();
        }
        fiber->mapping = static_cast<char*>(mapping);
    }
#if WITH_ASAN
    __asan_unpoison_memory_region(fiber->stack(), STACK_BYTES);
#endif
    auto* top = reinterpret_cast<std::uint64_t*>(fiber->stack() + STACK_BYTES);
    // Alignment at a function's entry is 8 modulo 16: one empty word, the return address, six registers.
    *--top = 0;
    *--top = reinterpret_cast<std::uint64_t>(&fiber_start);
    for (int i = 0; i < 6; ++i)
        *--top = 0;
    fiber->stack_pointer = top;
    return fiber;
}

void fiber_resume(Fiber* fiber) {
    g_running = fiber;
#if WITH_ASAN
    __sanitizer_start_switch_fiber(&g_mainFakeStack, fiber->stack(), STACK_BYTES);
#endif
    sim_switch_stack(&g_mainStackPointer, fiber->stack_pointer);
#if WITH_ASAN
    __sanitizer_finish_switch_fiber(g_mainFakeStack, nullptr, nullptr);
#endif
    g_running = nullptr;
}

void fiber_hand_back(bool last) {
    Fiber* self = g_running;
#if WITH_ASAN
    __sanitizer_start_switch_fiber(last ? nullptr : &self->fake_stack, g_mainBottom, g_mainSize);
#else
    (void)last;
#endif
    sim_switch_stack(&self->stack_pointer, g_mainStackPointer);
    arrived_on_fiber();
}

void fiber_release(Fiber* fiber) {
#if WITH_ASAN
    __asan_unpoison_memory_region(fiber->stack(), STACK_BYTES);
#endif
    g_stackPool.push_back(fiber->mapping);
    delete fiber;
}

} // namespace sim
