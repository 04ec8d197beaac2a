// The grammar of the trace: every form that a line of it can have.
#pragma once

#include <string>
#include <vector>

namespace sim {

// Adds forms: %u, %d and %x stand for a number (as printf writes it), %s for any text, {a|b} for one of both.
struct TraceForms {
    TraceForms(const std::vector<std::string>& forms);
};

// "" for a pattern (* stands for anything) that some line of the trace can match; else what is wrong with it.
std::string impossible_pattern(const std::string& pattern);

} // namespace sim
