#include "sim/script/commands.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

#include "sim/script/nearest.h"

namespace sim {

// Filled by static registration, in any order, before main.
static std::map<std::string, Command, std::less<>>& commands() {
    static std::map<std::string, Command, std::less<>> list;
    return list;
}

static size_t g_mostWords = 0; // that a command has

Commands::Commands(std::initializer_list<Command> more) {
    for (const Command& command : more) {
        commands().emplace(command.words, command);
        g_mostWords = std::max(g_mostWords, words_in(command.words));
    }
}

size_t words_in(const char* words) {
    return static_cast<size_t>(std::count(words, words + std::string_view(words).size(), ' ')) + 1;
}

// The first `count` words of a line; a quoted text is no word of a command.
static std::string joined(const std::vector<RawToken>& tokens, size_t count) {
    std::string words;
    for (size_t i = 0; i < count; ++i)
        words += (i == 0 ? "" : " ") + (tokens[i].token.quoted ? std::string("\"") : tokens[i].token.text);
    return words;
}

const Command* find_command(const std::vector<RawToken>& tokens) {
    for (size_t count = std::min(tokens.size(), g_mostWords); count > 0; --count) {
        const auto found = commands().find(joined(tokens, count));
        if (found != commands().end())
            return &found->second;
    }
    return nullptr;
}

std::vector<const Command*> sorted_commands() {
    std::vector<const Command*> sorted;
    for (const auto& [words, command] : commands())
        sorted.push_back(&command);
    return sorted;
}

std::string suggested_command(const std::vector<RawToken>& tokens) {
    for (size_t count = std::min(tokens.size(), g_mostWords); count > 0; --count) {
        std::vector<std::string> candidates;
        for (const auto& [words, command] : commands()) {
            if (words_in(command.words) == count)
                candidates.push_back(words);
        }
        const std::string words = joined(tokens, count);
        // Two words resemble another command's two by their first alone.
        const std::string found = nearest(words, candidates);
        if (!found.empty() && letters_apart(words, found, words.size()) <= count + 1)
            return "; did you mean " + found + "?";
    }
    return "";
}

// The words of a command's help that stand for themselves: in small letters, before the " - ".
static std::vector<std::string> words_of_help(const std::string& help) {
    std::vector<std::string> words;
    std::string word;
    for (const char c : help.substr(0, help.find("- ")) + ' ') {
        if (std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '"' || c == '.') {
            word += c;
            continue;
        }
        if (!word.empty() && std::islower(static_cast<unsigned char>(word[0])))
            words.push_back(word);
        word.clear();
    }
    return words;
}

std::vector<std::string> completions(const std::string& text) {
    std::string line = text;
    std::vector<RawToken> tokens;
    split(&line, &tokens);
    const bool at_end = !tokens.empty() && tokens.back().end == text.size();
    const std::string begun = at_end ? tokens.back().token.text : "";
    if (at_end)
        tokens.pop_back();
    std::set<std::string> words;
    auto add = [&](const std::string& word) {
        if (word.starts_with(begun) && !word.empty())
            words.insert(word);
    };
    const std::string before = joined(tokens, tokens.size()) + (tokens.empty() ? "" : " ");
    for (const auto& [name, command] : commands()) {
        if (name.starts_with(before))
            add(name.substr(before.size(), name.find(' ', before.size()) - before.size()));
    }
    if (const Command* command = find_command(tokens); command != nullptr) {
        for (const std::string& word : words_of_help(command->help))
            add(word);
        for (const std::string& word :
             command->arguments != nullptr ? command->arguments() : std::vector<std::string>())
            add(word);
    }
    return {words.begin(), words.end()};
}

} // namespace sim
