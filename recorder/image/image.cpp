// Linked in front of the product's objects where they become an image, which the runner loads afresh for
// every process that it runs: the wrapped calls go by slots, which the runner fills before anything else is
// run.
#include <windows.h>

#include "recorder/runner/calls.h"

#define SLOT(name)                                                                                           \
    extern "C" {                                                                                             \
    void* __imp_##name = nullptr;                                                                            \
    }                                                                                                        \
    asm(".text\n.globl " #name "\n" #name ":\n\tjmp *__imp_" #name "(%rip)\n");
RUNNER_CALLS(SLOT)

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int); // the product's

static const struct {
    const char* name;
    void** slot;
} g_slots[] = {
#define SLOT_ROW(name) {#name, &__imp_##name},
    RUNNER_CALLS(SLOT_ROW)};

// Null, or the name of which there is no wrapper.
extern "C" __declspec(dllexport) const char* bind_image(void* (*wrapper_of)(const char* name)) {
    for (const auto& row : g_slots) {
        *row.slot = wrapper_of(row.name);
        if (*row.slot == nullptr)
            return row.name;
    }
    return nullptr;
}

extern "C" __declspec(dllexport) int run_image(HINSTANCE instance, wchar_t* command_line) {
    return wWinMain(instance, nullptr, command_line, 0);
}
