// The orders in which operations can come one after another, while answers change.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace sim {

// An answer that changes: some time before the operation that tells of it.
struct ChangedAnswer {
    size_t operation = 0; // index of that
    std::string what;     // the same for two that set the same answer: these stay in order
};

// Calls `visit` with each order until it returns true; whether one did. Numbers below `operations` stand for
// these, those from there on for the changes. First the orders in which every answer has changed before the
// first operation, then those in which each change has a place of its own.
bool visit_orders(size_t operations, const std::vector<ChangedAnswer>& changes,
                  const std::function<bool(const std::vector<size_t>&)>& visit);

} // namespace sim
