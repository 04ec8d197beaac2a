#include "sim/tool/script_lines.h"

#include <algorithm>

#include "sim/script/source.h"
#include "sim/script/tokens.h"

constexpr unsigned DEEPEST_INCLUDE = 16;

using Words = std::vector<std::string>;

static Line same_in_all(const std::string& text) {
    Line line;
    line.fill(text);
    return line;
}

static std::vector<sim::RawToken> tokens_of(std::string text) {
    std::vector<sim::RawToken> tokens;
    sim::split(&text, &tokens);
    return tokens;
}

static void add_lines(const std::string& text, const std::string& path, unsigned depth, Lines* lines) {
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const std::string line = text.substr(at, end - at);
        at = end + 1;
        const std::vector<sim::RawToken> tokens = tokens_of(line);
        if (tokens.empty())
            continue;
        std::string included;
        if (tokens.size() == 2 && tokens[0].token.text == "include" && depth < DEEPEST_INCLUDE &&
            sim::read_script(sim::beside(path, tokens[1].token.text), &included).empty())
            add_lines(included, sim::beside(path, tokens[1].token.text), depth + 1, lines);
        else
            lines->push_back(same_in_all(line.substr(0, tokens.back().end)));
    }
}

Lines lines_of(const std::string& text, const std::string& path) {
    Lines lines;
    add_lines(text, path, 0, &lines);
    return lines;
}

std::string joined(const Lines& lines, Form form) {
    std::string text;
    for (const Line& line : lines)
        text += line[form] + "\n";
    return text;
}

static std::string first_word(const std::string& text) {
    const std::vector<sim::RawToken> tokens = tokens_of(text);
    return tokens.empty() ? "" : tokens[0].token.text;
}

size_t commands_in(const Lines& lines) {
    return static_cast<size_t>(std::count_if(
        lines.begin(), lines.end(), [](const Line& line) { return first_word(line[AS_IT_FAILS]) != "end"; }));
}

size_t end_of_block(const Lines& lines, size_t at) {
    size_t depth = 0;
    for (size_t i = at; i < lines.size(); ++i) {
        const std::string word = first_word(lines[i][AS_IT_FAILS]);
        depth += word == "together" || word == "repeat";
        if (word == "end" && --depth == 0)
            return i;
        if (depth == 0)
            return 0;
    }
    return 0;
}

// ---- what the seed chose ----

// The text with another word in the place of one of its tokens.
static std::string with_word(const std::string& text, const sim::RawToken& token, const std::string& word) {
    return text.substr(0, token.end - token.token.text.size()) + word + text.substr(token.end);
}

static std::string milliseconds(sim::Ms value) {
    return std::to_string(value) + "ms";
}

// The durations of a list, with only one end of each A..B.
static std::string one_end(const std::string& list, bool longest) {
    std::string text;
    for (size_t at = 0; at < list.size();) {
        const size_t end = std::min(list.find(',', at), list.size());
        const std::string span = list.substr(at, end - at);
        const size_t dots = span.find("..");
        text += (text.empty() ? "" : ",") + (dots == std::string::npos ? span
                                             : longest                 ? span.substr(dots + 2)
                                                                       : span.substr(0, dots));
        at = end + 1;
    }
    return text;
}

// The durations in the order of their requests; one that stays is said once.
static std::string listed(std::vector<sim::Ms> values) {
    while (values.size() > 1 && values.back() == values[values.size() - 2])
        values.pop_back();
    std::string text;
    for (const sim::Ms value : values)
        text += (text.empty() ? "" : ",") + milliseconds(value);
    return text;
}

static Line with_durations(const std::string& text, const sim::RawToken& token,
                           const std::vector<sim::Ms>& values) {
    const std::string& list = token.token.text;
    Line line;
    line[LONGEST] = with_word(text, token, one_end(list, true));
    line[SHORTEST] = with_word(text, token, one_end(list, false));
    line[DRAWN] = values.empty() ? line[LONGEST] : with_word(text, token, listed(values));
    line[AS_IT_FAILS] = line[DRAWN];
    return line;
}

Lines with_drawn(const Lines& lines, const std::vector<sim::Drawn>& drawn, bool together) {
    Lines fixed = lines;
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string& text = lines[i][AS_IT_FAILS];
        const std::vector<sim::RawToken> tokens = tokens_of(text);
        std::vector<sim::Ms> values;
        for (const sim::Drawn& one : drawn) {
            if (one.line == i + 1)
                values.push_back(one.value);
        }
        for (size_t k = 1; k < tokens.size(); ++k) {
            if (tokens[k - 1].token.text == "takes" && tokens[k].token.text.find("..") != std::string::npos)
                fixed[i] = with_durations(text, tokens[k], values);
        }
        if (tokens[0].token.text == "within" && tokens.size() > 2 && !values.empty())
            fixed[i][AS_IT_FAILS] =
                (together ? "after " : "within ") + milliseconds(values.back()) + text.substr(tokens[1].end);
    }
    return fixed;
}

// ---- numbers made smaller ----

// Smaller ones for a duration or a count. No count becomes 0.
static Words smaller_numbers(const std::string& word) {
    const size_t digits = std::min(word.find_first_not_of("0123456789"), word.size());
    const std::string unit = word.substr(digits);
    if (digits == 0 || digits > 9)
        return {};
    const unsigned long value = std::stoul(word.substr(0, digits));
    Words list;
    for (const unsigned long less : {0ul, 1ul, value / 10, value / 2, value - 1}) {
        if (less < value && (less != 0 || !unit.empty()) &&
            (list.empty() || list.back() != std::to_string(less) + unit))
            list.push_back(std::to_string(less) + unit);
    }
    return list;
}

// Shorter lists for one of durations: the last one alone, the first, half of it, all but the first.
static Words shorter_lists(const std::string& word) {
    const size_t half = word.find(',', word.size() / 2);
    const size_t first = word.find(',');
    Words list = {word.substr(word.rfind(',') + 1), word.substr(0, first)};
    if (half != std::string::npos) {
        list.push_back(word.substr(half + 1));
        list.push_back(word.substr(0, half));
    }
    list.push_back(word.substr(first + 1));
    return list;
}

// Words behind which a number may be made smaller.
static bool counts(const std::string& word) {
    for (const char* known : {"advance", "within", "after", "takes", "for", "times", "repeat"}) {
        if (word == known)
            return true;
    }
    return false;
}

// Forms that read alike change alike.
static Line with_text(const Line& line, const std::string& text) {
    Line changed = line;
    for (std::string& form : changed) {
        if (form == line[AS_IT_FAILS])
            form = text;
    }
    changed[AS_IT_FAILS] = text;
    return changed;
}

std::vector<Line> smaller_lines(const Line& line) {
    const std::string& text = line[AS_IT_FAILS];
    const std::vector<sim::RawToken> tokens = tokens_of(text);
    std::vector<Line> list;
    for (size_t i = 1; i < tokens.size(); ++i) {
        const std::string& word = tokens[i].token.text;
        if (!counts(tokens[i - 1].token.text))
            continue;
        for (const std::string& less :
             word.find(',') != std::string::npos ? shorter_lists(word) : smaller_numbers(word))
            list.push_back(with_text(line, with_word(text, tokens[i], less)));
    }
    return list;
}
