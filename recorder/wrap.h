// In the place of a call: what the product's objects import is a pointer of ours, and the name itself goes by
// it. The object that says so is linked before the product's.
#pragma once

#define WRAP(name, wrapper)                                                                                  \
    extern "C" void* const __imp_##name = reinterpret_cast<void*>(wrapper);                                  \
    asm(".text\n.globl " #name "\n" #name ":\n\tjmp *__imp_" #name "(%rip)\n");
