#include "sim/hunt/draw.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "sim/machine/machine.h"

namespace hunt {

std::uint64_t Draw::below(std::uint64_t bound) {
    const std::uint64_t drawn = sim::splitmix(&state);
    return bound != 0 ? drawn % bound : 0;
}

// ---- reading ----

static void add_row(std::vector<std::string>* rows, std::string row) {
    size_t weight = 1;
    if (row.starts_with('*')) {
        char* rest = nullptr;
        weight = std::strtoul(row.c_str() + 1, &rest, 10);
        row.erase(0, static_cast<size_t>(rest - row.c_str()) + 1);
    }
    for (size_t at = row.find("; "); at != std::string::npos; at = row.find("; ", at))
        row.replace(at, 2, "\n");
    rows->insert(rows->end(), weight, row);
}

Tables read_tables(const std::string& text) {
    Tables tables;
    std::vector<std::string>* rows = nullptr;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const size_t first = text.find_first_not_of(' ', at);
        const std::string line = first < end ? text.substr(first, end - first) : "";
        at = end + 1;
        if (line.ends_with(':'))
            rows = &tables.rows[line.substr(0, line.size() - 1)];
        else if (!line.empty() && rows != nullptr)
            add_row(rows, line);
    }
    return tables;
}

// ---- writing out ----

static std::string written_out(const Tables& tables, const std::string& text, Draw& draw);

// The parts of what stands in braces, or of a number's range.
static std::vector<std::string> parts_of(const std::string& text, char between) {
    std::vector<std::string> parts(1);
    int depth = 0;
    for (const char c : text) {
        depth += c == '{' ? 1 : c == '}' ? -1 : 0;
        if (c == between && depth == 0)
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

static bool is_number(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

static std::uint64_t draw_number(const std::string& range, Draw& draw) {
    const std::vector<std::string> ends = parts_of(range, '-');
    const std::uint64_t low = std::strtoull(ends.front().c_str(), nullptr, 10);
    return low + draw.below(std::strtoull(ends.back().c_str(), nullptr, 10) - low + 1);
}

static bool is_range(const std::string& text) {
    const std::vector<std::string> ends = parts_of(text, '-');
    return ends.size() == 2 && is_number(ends[0]) && is_number(ends[1]);
}

static std::string braces(const Tables& tables, const std::string& inside, Draw& draw) {
    if (inside.starts_with('@'))
        return draw.kept[inside.substr(1)];
    const size_t equals = inside.find('=');
    const bool keeps = equals != std::string::npos && equals > 0 &&
                       std::all_of(inside.begin(), inside.begin() + static_cast<std::ptrdiff_t>(equals),
                                   [](char c) { return std::islower(static_cast<unsigned char>(c)) != 0; });
    if (keeps)
        return draw.kept[inside.substr(0, equals)] = braces(tables, inside.substr(equals + 1), draw);
    const std::vector<std::string> parts = parts_of(inside, '|');
    const std::string& part = draw.from(parts);
    return is_range(part) ? std::to_string(draw_number(part, draw)) : written_out(tables, part, draw);
}

static std::string named(const Tables& tables, const std::string& name, const std::string& range,
                         Draw& draw) {
    const std::uint64_t count = range.empty() ? 1 : draw_number(range, draw);
    std::string text;
    for (std::uint64_t i = 0; i < count; ++i)
        text += (i > 0 ? "\n" : "") + draw_row(tables, name, draw);
    return text;
}

static size_t behind(const std::string& text, size_t at, const char* letters) {
    return std::min(text.find_first_not_of(letters, at), text.size());
}

static std::string written_out(const Tables& tables, const std::string& text, Draw& draw) {
    std::string written;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '{') {
            size_t end = at;
            for (int depth = 0; end < text.size(); ++end) {
                depth += text[end] == '{' ? 1 : text[end] == '}' ? -1 : 0;
                if (depth == 0)
                    break;
            }
            written += braces(tables, text.substr(at + 1, end - at - 1), draw);
            at = end;
        } else if (text[at] == '$') {
            const size_t end = behind(text, at + 1, "abcdefghijklmnopqrstuvwxyz_");
            const bool repeats = end < text.size() && text[end] == '*';
            const size_t last = repeats ? behind(text, end + 1, "0123456789-") : end;
            written += named(tables, text.substr(at + 1, end - at - 1),
                             repeats ? text.substr(end + 1, last - end - 1) : "", draw);
            at = last - 1;
        } else {
            written += text[at];
        }
    }
    return written;
}

std::string draw_row(const Tables& tables, const std::string& name, Draw& draw) {
    const auto maker = tables.makers.find(name);
    if (maker != tables.makers.end())
        return maker->second(draw);
    const auto found = tables.rows.find(name);
    if (found == tables.rows.end() || found->second.empty())
        return "no table " + name; // no command: the run says so
    return written_out(tables, draw.from(found->second), draw);
}

} // namespace hunt
