// Settings files (INI).
#pragma once

#include <string>

namespace sim {

// Adds a line KEY=TEXT to a section of the file; false when it is none.
bool add_setting(const std::string& path, const std::string& section, const std::string& line);

} // namespace sim
