// The words of a scenario's line.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "sim/machine/clock.h"

namespace sim {

struct Token {
    std::string text;
    bool quoted = false;
};

// The words of one line behind the command's own. A reader that does not find what it asks for notes the
// first error and returns something harmless; the line is then unusable.
struct Tokens {
    std::vector<Token> list;
    size_t at = 0;
    std::string rest_of_line; // behind the command's words, for patterns
    std::string error;

    bool done() const { return at >= list.size(); }
    void fail(const std::string& what);
    std::string word();                                      // any token
    std::string text();                                      // a quoted token
    std::uint32_t number();                                  // decimal or 0x, of 32 bits
    std::uint64_t long_number(int bits = 64);                // of so many
    Ms duration();                                           // number and ms, s, m, h or d
    std::vector<Span> spans();                               // durations, or A..B, with commas between
    bool accept(const char* word);                           // takes the next token if it is this word
    size_t choice(std::initializer_list<const char*> words); // index of the next token among these
};

// Reads a number; "" when it could, else what is wrong with it.
std::string read_number(const std::string& text, std::uint32_t* value);

struct RawToken {
    Token token;
    size_t end = 0; // offset behind it in the line
};
// Splits a line, cutting a comment off; false for a quote without its end, which only a pattern may hold.
bool split(std::string* line, std::vector<RawToken>* tokens);

} // namespace sim
