// Every schedule of the `together` blocks of a script.
#pragma once

#include <vector>

#include "sim/tool/run.h"

// The choices that differ from the usual, in words: a line for each.
std::string shown_schedule(const std::vector<sim::PassedPoint>& passed, const char* beginning);
// An exit status.
int explore_sources(const std::vector<Source>& sources, const Options& options);
