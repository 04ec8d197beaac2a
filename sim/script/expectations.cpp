#include "sim/script/expectations.h"

#include <cctype>
#include <string_view>

#include "sim/machine/machine.h"
#include "sim/script/commands.h"

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
    g_expectations->mark = g_expectations->cursor = machine().trace.size();
}

size_t mark_position() {
    return g_expectations != nullptr ? g_expectations->mark : 0;
}

std::string lines_since_mark() {
    std::string text;
    const auto& lines = machine().trace;
    for (size_t i = next_effect(g_expectations->mark); i < lines.size(); i = next_effect(i + 1))
        text += format("\n    %.3f %s ", static_cast<double>(lines[i].time) / 1000, lines[i].thread.c_str()) +
                lines[i].text;
    return text;
}

// ---- commands ----

// The pattern is the rest of the line as it stands.
static std::string take_pattern(Tokens& tokens) {
    tokens.at = tokens.list.size();
    if (tokens.rest_of_line.empty())
        tokens.fail("a pattern expected");
    return tokens.rest_of_line;
}

static Action compile_expect(Tokens& tokens) {
    const std::string pattern = take_pattern(tokens);
    return [pattern] { expect_line(pattern, false); };
}

static Action compile_expect_next(Tokens& tokens) {
    const std::string pattern = take_pattern(tokens);
    return [pattern] { expect_line(pattern, true); };
}

static Action compile_expect_no(Tokens& tokens) {
    const std::string pattern = take_pattern(tokens);
    return [pattern] { expectation(count_lines(pattern) == 0, "no " + pattern); };
}

static Action compile_expect_count(Tokens& tokens) {
    const std::uint64_t wanted = tokens.number();
    std::string pattern = take_pattern(tokens);
    const size_t blank = pattern.find_first_of(" \t");
    pattern = blank == std::string::npos ? "" : pattern.substr(pattern.find_first_not_of(" \t", blank));
    if (pattern.empty())
        tokens.fail("a pattern expected");
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
    {"mark", Use::Check, compile_mark},
    {"expect", Use::Check, compile_expect},
    {"expect next", Use::Check, compile_expect_next},
    {"expect no", Use::Check, compile_expect_no},
    {"expect count", Use::Check, compile_expect_count},
});

} // namespace sim
