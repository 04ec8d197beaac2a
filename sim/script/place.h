// Where a script is wrong, or runs.
#pragma once

#include <string>

namespace sim {

struct Place {
    std::string file; // "" for a text that came from no file
    int line = 0;     // from 1; 0: the file as a whole
};

struct Fault {
    Place place;
    std::string what;
};

// "FILE:LINE: ", and the text on one line that a terminal can show.
std::string shown_place(const Place& place);
std::string shown_text(const std::string& text);

} // namespace sim
