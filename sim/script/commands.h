// How an area adds its commands to the scenario language.
#pragma once

#include <functional>
#include <initializer_list>
#include <vector>

#include "sim/script/tokens.h"

namespace sim {

using Action = std::function<void()>;

// What a command is: of the machine, a driving one (marks just before it acts), or a check.
enum class Use { Machine, Drive, Check };

struct Command {
    const char* words; // e.g. "windows hibernate"; the longest match wins
    Use use;
    Action (*compile)(Tokens&); // reads its arguments; the action runs later
};

// `static const sim::Commands g_commands({{"windows hibernate", Use::Machine, compile_hibernate}});`
struct Commands {
    Commands(std::initializer_list<Command> commands);
};

// The command whose words the line begins with, the longest of them; null for none.
const Command* find_command(const std::vector<RawToken>& tokens);
size_t words_in(const char* words);

} // namespace sim
