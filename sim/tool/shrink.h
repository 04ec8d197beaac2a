// From a script that fails to the shortest that fails alike.
#pragma once

#include <vector>

#include "sim/tool/run.h"

// An exit status.
int shrink_sources(const std::vector<Source>& sources, const Options& options);
