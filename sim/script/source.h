// The text of a script, from a file or from standard input.
#pragma once

#include <string>

namespace sim {

constexpr size_t LARGEST_SCRIPT = size_t{64} * 1024 * 1024; // with all that it includes
constexpr size_t LONGEST_LINE = size_t{64} * 1024;

// The path of a file that another one names.
std::string beside(const std::string& file, const std::string& other);
// Reads a file ("-": standard input). "" when it could be read, else why not.
std::string read_script(const std::string& path, std::string* text);

} // namespace sim
