// The lines of a script that is being shrunk.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "sim/machine/schedule.h"

// What stands in a line: as it fails, with all that the seed chose made fixed; and the same told so that
// every command finds the machine at rest, its requests as long as they may be, as short, or as the seed
// chose.
enum Form { AS_IT_FAILS, LONGEST, SHORTEST, DRAWN, FORMS };
using Line = std::array<std::string, FORMS>;
using Lines = std::vector<Line>;

// The lines of a script that say something, with those of included files in their place.
Lines lines_of(const std::string& text, const std::string& path);
std::string joined(const Lines& lines, Form form = AS_IT_FAILS);
size_t commands_in(const Lines& lines);
// `within` and `takes A..B` as they were drawn. `together` says what comes at a moment: before what falls due
// at it has run; otherwise behind that.
Lines with_drawn(const Lines& lines, const std::vector<sim::Drawn>& drawn, bool together);
// The line in which the block ends that begins at `at`; 0: none begins there.
size_t end_of_block(const Lines& lines, size_t at);
// The line with one of its durations or counts made smaller, the boldest first.
std::vector<Line> smaller_lines(const Line& line);
