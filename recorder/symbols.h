// Names of the functions in this executable, from its own table of symbols.
#pragma once

#include <string>

namespace symbols {

// The function's plain name, without its namespaces and types; "thread" for an address that is none.
std::string name_at(const void* address);

} // namespace symbols
