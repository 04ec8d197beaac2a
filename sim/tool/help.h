// --help: the options and the commands of the language, from their tables; --version.
#pragma once

#include "sim/tool/options.h"

// Exit statuses.
int print_help(const Options& options);
int print_version();
