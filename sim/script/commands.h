// How an area adds its commands to the scenario language.
#pragma once

#include <functional>
#include <initializer_list>
#include <vector>

#include "sim/script/tokens.h"

namespace sim {

using Action = std::function<void()>;

// What a command is: of the machine, a driving one (marks just before it acts), a check, a note (asks
// nothing), or a word that the reader of scripts itself knows (`together`), which has no action.
enum class Use { Machine, Drive, Check, Note, Structure };

struct Command {
    const char* words; // e.g. "windows hibernate"; the longest match wins
    Use use;
    Action (*compile)(Tokens&); // reads its arguments; the action runs later
    // For --help: the arguments, then " - " and what it does.
    const char* help = "";
    // For completion, beside the words of `help`: what its arguments may begin with.
    std::vector<std::string> (*arguments)() = nullptr;
};

// `static const sim::Commands g_commands({{"windows hibernate", Use::Machine, compile_hibernate}});`
struct Commands {
    Commands(std::initializer_list<Command> commands);
};

// The command whose words the line begins with, the longest of them; null for none.
const Command* find_command(const std::vector<RawToken>& tokens);
size_t words_in(const char* words);
// All commands, by their words.
std::vector<const Command*> sorted_commands();
// For a line that begins with no command: "; did you mean ...?", or nothing.
std::string suggested_command(const std::vector<RawToken>& tokens);

// The words that could stand next, behind the text up to the cursor, or begin with what it ends in.
std::vector<std::string> completions(const std::string& text);

} // namespace sim
