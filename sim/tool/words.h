// Values and their words, from the headers of the service.
#pragma once

#include <cstdint>
#include <string>

#include "driver/firmware_words.h"

namespace sim {

struct Word {
    std::uint32_t value;
    const char* words;
};
#define WORD_ROW(value, name, words) {value, words},

// The words of a value; those of `other` with the number behind, or only these without a number in it.
template <size_t N>
std::string word(const Word (&rows)[N], std::uint32_t value, const char* other = "unknown") {
    for (const Word& row : rows) {
        if (row.value == value)
            return row.words;
    }
    return std::string(other) + " " + std::to_string(value);
}

} // namespace sim
