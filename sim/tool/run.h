// Scripts, read and run on machines of their own.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sim/machine/machine.h"
#include "sim/script/scenario.h"
#include "sim/tool/options.h"

struct Source {
    std::string path;
    std::string text;
    std::shared_ptr<sim::Script> script;
};

// Reads all files; false, and every fault on standard error, when one is unusable.
bool read_sources(const Options& options, std::vector<Source>* sources);

// A machine of this seed runs the script; it says nothing.
sim::ScriptResult run_quietly(const Source& source, const Options& options, std::uint64_t seed);
// The same on a machine that stands already.
sim::ScriptResult run_on(sim::Machine& machine, const Source& source, const Options& options);
// Makes the source's script of its text; false, and its faults, when it is none.
bool compile_source(Source* source, std::vector<sim::Fault>* faults);
// Prints the trace and the verdict; an exit status.
int run_source(const Source& source, const Options& options);
// "FILE:LINE: what went wrong".
std::string shown_failure(const sim::ScriptResult& result);

// From here on a crash of the product ends this process. By itself it prints the beginning, the place in the
// script and what happened, and ends with EXIT_FAILS.
void watch_for_crashes(void (*on_crash)(int signal_number) = nullptr);
void set_crash_beginning(const std::string& beginning);
