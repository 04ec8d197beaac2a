// Where the runs of two seeds part.
#pragma once

#include <vector>

#include "sim/tool/run.h"

// An exit status.
int diff_sources(const std::vector<Source>& sources, const Options& options);
