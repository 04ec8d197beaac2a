// Random text from tables of what may come.
//
//     name:
//         a line that may come; another line behind it
//         *3 three times as likely: {a|b|$other}, a number {1-300}, {x=1-5} which {@x} repeats, $other*2-4
//         lines
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace hunt {

struct Draw {
    std::uint64_t state;
    std::map<std::string, std::string> kept; // by {name=...}

    explicit Draw(std::uint64_t seed) : state(seed) {}
    std::uint64_t below(std::uint64_t bound); // 0 for 0
    bool one_in(std::uint64_t chances) { return below(chances) == 0; }
    template <class List> const auto& from(const List& list) { return list[below(std::size(list))]; }
};

using Maker = std::function<std::string(Draw&)>;

struct Tables {
    std::map<std::string, std::vector<std::string>> rows; // by name; a likelier one stands there more often
    std::map<std::string, Maker> makers;                  // what is made by a function instead
};

Tables read_tables(const std::string& text);
// One row of a table, written out.
std::string draw_row(const Tables& tables, const std::string& name, Draw& draw);

} // namespace hunt
