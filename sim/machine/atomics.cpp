// A second image of the product is compiled with the compiler's thread instrumentation: each access to an
// atomic becomes a call to what stands here, where another thread may overtake as it may at a platform call.
// So orders are seen whose steps have no platform call between them.
#include <cstdint>

#include "sim/machine/machine.h"
#include "sim/machine/scheduler.h"

static void pass_atomic() {
    if (sim::machine().hands_over_at_atomics)
        sim::may_hand_over("an atomic");
}

// The instrumentation's own names. Orders of memory do not matter: one thread runs at a time.
#define CHANGE(bits, type, name, result)                                                                     \
    extern "C" type __tsan_atomic##bits##_##name(volatile type* at, type value, int) {                       \
        pass_atomic();                                                                                       \
        const type old = *at;                                                                                \
        *at = static_cast<type>(result);                                                                     \
        return old;                                                                                          \
    }
#define ATOMIC(bits, type)                                                                                   \
    CHANGE(bits, type, exchange, value)                                                                      \
    CHANGE(bits, type, fetch_add, old + value)                                                               \
    CHANGE(bits, type, fetch_sub, old - value)                                                               \
    CHANGE(bits, type, fetch_and, old& value)                                                                \
    CHANGE(bits, type, fetch_or, old | value)                                                                \
    extern "C" type __tsan_atomic##bits##_load(const volatile type* at, int) {                               \
        pass_atomic();                                                                                       \
        return *at;                                                                                          \
    }                                                                                                        \
    extern "C" void __tsan_atomic##bits##_store(volatile type* at, type value, int) {                        \
        pass_atomic();                                                                                       \
        *at = value;                                                                                         \
    }                                                                                                        \
    extern "C" int __tsan_atomic##bits##_compare_exchange_strong(volatile type* at, type* expected,          \
                                                                 type value, int, int) {                     \
        pass_atomic();                                                                                       \
        const type old = *at;                                                                                \
        const bool same = old == *expected;                                                                  \
        if (same)                                                                                            \
            *at = value;                                                                                     \
        else                                                                                                 \
            *expected = old;                                                                                 \
        return same;                                                                                         \
    }                                                                                                        \
    extern "C" int __tsan_atomic##bits##_compare_exchange_weak(volatile type* at, type* expected,            \
                                                               type value, int order, int failed) {          \
        return __tsan_atomic##bits##_compare_exchange_strong(at, expected, value, order, failed);            \
    }

ATOMIC(8, std::uint8_t)
ATOMIC(16, std::uint16_t)
ATOMIC(32, std::uint32_t)
ATOMIC(64, std::uint64_t)

// Plain accesses belong to one thread.
#define NOTHING(name, ...)                                                                                   \
    extern "C" void __tsan_##name(__VA_ARGS__) {}

NOTHING(init)
NOTHING(func_entry, void*)
NOTHING(func_exit)
NOTHING(vptr_update, void**, void*)
NOTHING(vptr_read, void**)
NOTHING(read_range, void*, unsigned long)
NOTHING(write_range, void*, unsigned long)
#define PLAIN(bytes)                                                                                         \
    NOTHING(read##bytes, void*)                                                                              \
    NOTHING(write##bytes, void*)                                                                             \
    NOTHING(unaligned_read##bytes, const void*)                                                              \
    NOTHING(unaligned_write##bytes, void*)
PLAIN(1)
PLAIN(2)
PLAIN(4)
PLAIN(8)
PLAIN(16)
