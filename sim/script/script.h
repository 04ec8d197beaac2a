// What a script is compiled to: made by the reader, run by scenario.cpp.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "sim/script/commands.h"
#include "sim/script/place.h"

namespace sim {

struct ScriptLine {
    enum class Kind { Command, Together, Repeat, Within };
    Kind kind = Kind::Command;
    Use use = Use::Machine;
    const std::string* file = nullptr; // one of the script's
    int number = 0;
    std::string text;         // of Command, without its comment
    std::uint32_t count = 0;  // of Repeat
    Ms span = 0;              // of Within
    bool exact = false;       // it passes whole, up to what falls due at its very end
    bool at_once = false;     // what it begins is a race: `together`, or the command of an exact Within
    bool asked_behind = true; // for trace lines, before the next mark
    Action action;
    std::vector<ScriptLine> block;
};

struct Script {
    std::deque<std::string> files; // their places do not move
    std::vector<ScriptLine> lines;
    size_t expectations = 0;
    size_t effects = 0; // of a recording
};

// The script that runs, and the index of its top line that does; null outside.
const Script* running_script(size_t* line);
// Runs lines on the current machine, without their expectations, until one goes wrong; whether none did.
bool run_parts(const std::vector<const ScriptLine*>& lines);

} // namespace sim
