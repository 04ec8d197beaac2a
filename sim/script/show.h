// The machine's state for whoever looks: `show WHAT`.
#pragma once

#include <string>

namespace sim {

// How an area adds what it can show. `tell` calls show_line for each line; `which` is what stands behind the
// word.
struct Shows {
    Shows(const char* what, void (*tell)(const std::string& which));
};

// One line, to whoever listens (Machine::on_show).
void show_line(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
// Everything.
void show_state();

} // namespace sim
