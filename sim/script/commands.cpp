#include "sim/script/commands.h"

#include <algorithm>

namespace sim {

// Filled by static registration, in any order, before main.
static std::vector<Command>& commands() {
    static std::vector<Command> list;
    return list;
}

Commands::Commands(std::initializer_list<Command> more) {
    commands().insert(commands().end(), more);
}

size_t words_in(const char* words) {
    return static_cast<size_t>(std::count(words, words + std::string_view(words).size(), ' ')) + 1;
}

const Command* find_command(const std::vector<RawToken>& tokens) {
    const Command* best = nullptr;
    for (const Command& command : commands()) {
        const size_t count = words_in(command.words);
        if (count > tokens.size() || (best != nullptr && count <= words_in(best->words)))
            continue;
        std::string joined;
        for (size_t i = 0; i < count; ++i)
            joined +=
                (i == 0 ? "" : " ") + (tokens[i].token.quoted ? std::string("\"") : tokens[i].token.text);
        if (joined == command.words)
            best = &command;
    }
    return best;
}

} // namespace sim
