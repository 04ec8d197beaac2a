// The language from the keyboard.
#pragma once

#include <vector>

#include "sim/tool/run.h"

// One machine runs the files, and then each command as it is typed, with its effects, until the input ends;
// then the service is stopped. What is wrong is told and ends nothing. Where standard input is no terminal it
// is read as it comes, without a prompt. The worst exit status of all.
int run_keyboard(const std::vector<Source>& sources, const Options& options);
