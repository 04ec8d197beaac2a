#include "sim/script/expectations.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <vector>

#include "sim/machine/machine.h"
#include "sim/script/commands.h"
#include "sim/script/grammar.h"
#include "sim/script/nearest.h"

namespace sim {

static Expectations* g_expectations = nullptr; // of the script that runs

Expectations::Expectations() : outer(g_expectations) {
    g_expectations = this;
    set_mark();
}

Expectations::~Expectations() {
    g_expectations = outer;
}

void expectation(bool holds, const std::string& what) {
    if (g_expectations == nullptr || g_expectations->failed)
        return;
    if (holds) {
        ++g_expectations->held;
        return;
    }
    g_expectations->failed = true;
    g_expectations->message = "expected " + what;
}

static bool like(std::string_view pattern, std::string_view text) {
    size_t p = 0;
    size_t t = 0;
    size_t star = std::string_view::npos;
    size_t resume = 0;
    auto same = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    };
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            resume = t;
        } else if (p < pattern.size() && same(pattern[p], text[t])) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
        ++p;
    return p == pattern.size();
}

// Index of the next effect line at or behind `from`, or the trace's size.
static size_t next_effect(size_t from) {
    const auto& lines = machine().trace;
    while (from < lines.size() && !lines[from].effect)
        ++from;
    return from;
}

static void expect_line(const std::string& pattern, bool very_next) {
    const auto& lines = machine().trace;
    for (size_t i = next_effect(g_expectations->cursor); i < lines.size(); i = next_effect(i + 1)) {
        if (like(pattern, lines[i].text)) {
            g_expectations->cursor = i + 1;
            expectation(true, "");
            return;
        }
        if (very_next)
            break;
    }
    if (!g_expectations->failed)
        g_expectations->pattern = pattern;
    expectation(false, (very_next ? "next " : "") + pattern);
}

static std::uint64_t count_lines(const std::string& pattern) {
    const auto& lines = machine().trace;
    std::uint64_t count = 0;
    for (size_t i = next_effect(g_expectations->mark); i < lines.size(); i = next_effect(i + 1))
        count += like(pattern, lines[i].text);
    return count;
}

void set_mark() {
    Machine& m = machine();
    if (m.forget_trace && g_expectations->outer == nullptr) {
        m.forgotten += m.trace.size();
        m.trace.clear();
    }
    g_expectations->mark = g_expectations->cursor = m.trace.size();
}

size_t mark_position() {
    return machine().forgotten + (g_expectations != nullptr ? g_expectations->mark : 0);
}

constexpr size_t LINES_SHOWN = 20;
constexpr size_t LINES_COMPARED = 5000; // for the nearest

static std::string shown_line(const TraceLine& line) {
    return format("%.3f %s ", static_cast<double>(line.time) / 1000, line.thread.c_str()) + line.text;
}

static std::vector<const TraceLine*> effects_since_mark() {
    std::vector<const TraceLine*> lines;
    const auto& all = machine().trace;
    for (size_t i = next_effect(g_expectations->mark); i < all.size(); i = next_effect(i + 1))
        lines.push_back(&all[i]);
    return lines;
}

// The line that is fewest letters away from a pattern; null when none resembles it.
static const TraceLine* nearest_line(const std::vector<const TraceLine*>& lines, const std::string& pattern) {
    const bool open_end = pattern.ends_with('*');
    const std::string letters = open_end ? pattern.substr(0, pattern.size() - 1) : pattern;
    const TraceLine* nearest = nullptr;
    size_t limit = letters.size() / 2 + 1;
    for (size_t i = lines.size() - std::min(lines.size(), LINES_COMPARED); i < lines.size(); ++i) {
        const std::string_view text = lines[i]->text;
        const size_t apart = letters_apart(letters, open_end ? text.substr(0, letters.size()) : text, limit);
        if (apart < limit) {
            limit = apart;
            nearest = lines[i];
        }
    }
    return nearest;
}

std::string lines_around() {
    const std::vector<const TraceLine*> lines = effects_since_mark();
    if (lines.empty())
        return "\n    (no line since the mark)";
    const std::string& pattern = g_expectations->pattern;
    const TraceLine* nearest = pattern.empty() ? nullptr : nearest_line(lines, pattern);
    const auto* sought = machine().trace.data() + g_expectations->cursor;
    size_t middle = lines.size();
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i] == nearest ||
            (nearest == nullptr && !pattern.empty() && lines[i] >= sought && middle > i))
            middle = i;
    }
    const size_t first = std::min(middle - std::min(middle, LINES_SHOWN / 2),
                                  lines.size() - std::min(lines.size(), LINES_SHOWN));
    std::string text;
    for (size_t i = first; i < std::min(first + LINES_SHOWN, lines.size()); ++i)
        text += "\n    " + shown_line(*lines[i]);
    return text + (nearest != nullptr ? "\n    nearest: " + shown_line(*nearest) : "");
}

// ---- commands ----

// The pattern is the rest of the line as it stands.
static std::string take_pattern(Tokens& tokens) {
    tokens.at = tokens.list.size();
    if (tokens.rest_of_line.empty())
        tokens.fail("a pattern expected");
    return tokens.rest_of_line;
}

// The same, for a pattern that some line can match.
static std::string checked_pattern(Tokens& tokens, const std::string& pattern) {
    const std::string error = pattern.empty() ? "" : impossible_pattern(pattern);
    if (!error.empty())
        tokens.fail(error);
    return pattern;
}

static Action compile_expect(Tokens& tokens) {
    const std::string pattern = checked_pattern(tokens, take_pattern(tokens));
    return [pattern] { expect_line(pattern, false); };
}

static Action compile_expect_next(Tokens& tokens) {
    const std::string pattern = checked_pattern(tokens, take_pattern(tokens));
    return [pattern] { expect_line(pattern, true); };
}

static Action compile_expect_no(Tokens& tokens) {
    const std::string pattern = checked_pattern(tokens, take_pattern(tokens));
    return [pattern] { expectation(count_lines(pattern) == 0, "no " + pattern); };
}

static Action compile_expect_count(Tokens& tokens) {
    const std::uint64_t wanted = tokens.number();
    std::string pattern = take_pattern(tokens);
    const size_t blank = pattern.find_first_of(" \t");
    pattern = blank == std::string::npos ? "" : pattern.substr(pattern.find_first_not_of(" \t", blank));
    if (pattern.empty())
        tokens.fail("a pattern expected");
    checked_pattern(tokens, pattern);
    return [=] {
        const std::uint64_t count = count_lines(pattern);
        expectation(count == wanted, "count " + std::to_string(wanted) + " " + pattern + ", there are " +
                                         std::to_string(count));
    };
}

static Action compile_mark(Tokens&) {
    return set_mark;
}

static const Commands g_commands({
    {"mark", Use::Note, compile_mark, "- what follows counts from here"},
    {"expect", Use::Check, compile_expect,
     "PATTERN - a trace line since the mark, behind the one that the expectation before it found"},
    {"expect next", Use::Check, compile_expect_next, "PATTERN - the very next trace line"},
    {"expect no", Use::Check, compile_expect_no, "PATTERN - no such line since the mark"},
    {"expect count", Use::Check, compile_expect_count, "N PATTERN - exactly N such lines since the mark"},
});

} // namespace sim
