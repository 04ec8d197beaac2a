// Many seeds: the files run under each, in several processes.
#pragma once

#include <vector>

#include "sim/tool/run.h"

// An exit status; prints one line for each file, and how to repeat a failure.
int search_seeds(const std::vector<Source>& sources, const Options& options);
