// Libraries that are looked up at run time.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

struct Export {
    const char* name;
    void* function;
};

// `static const sim::Module g_module("name.dll", {{"Function", reinterpret_cast<void*>(function)}});`
struct Module {
    Module(const char* name, std::vector<Export> exports);
};

void set_module_missing(const std::string& module, bool missing);
void set_export_missing(const std::string& module, const std::string& function, bool missing);

// Loads not yet freed, in all living processes.
size_t loaded_modules();
// Loads of one module so far.
size_t module_loads(const std::string& module);
// For the functions of a module: a call through a pointer of a library that has been freed is a violation.
void require_loaded(const char* module, const char* function);

} // namespace sim
