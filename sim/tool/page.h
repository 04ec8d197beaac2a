// A run as a page to look at, and as trace events for other viewers.
#pragma once

#include "sim/tool/moments.h"

namespace sim {

// One self-contained HTML file. False when it cannot be written. While the machine of the run is still there.
bool write_page(const std::string& path, const std::vector<Moment>& moments, const std::string& title);
// The Chrome trace-event format, in JSON.
bool write_trace_events(const std::string& path, const std::vector<Moment>& moments);

} // namespace sim
