// What the driving tool asks of a process of the runner.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace runner {

using Fields = std::vector<std::string>;

struct Request {
    const char* word;
    size_t fields; // behind the word
    void (*act)(const Fields& fields);
};

const Request* find_request(const std::string& word); // null: none

std::uint32_t number(const std::string& field); // decimal

} // namespace runner
