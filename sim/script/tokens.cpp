#include "sim/script/tokens.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>

namespace sim {

void Tokens::fail(const std::string& what) {
    if (error.empty())
        error = what;
}

std::string Tokens::word() {
    if (done()) {
        fail("something is missing at the end");
        return {};
    }
    return list[at++].text;
}

std::string Tokens::text() {
    if (!done() && !list[at].quoted)
        fail("quoted text expected: " + list[at].text);
    return word();
}

// Digits, decimal or 0x, of as many bits; "" or what is wrong.
static std::string read_digits(const std::string& text, int bits, std::uint64_t* value) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hex ? text.substr(2) : text;
    const char* allowed = hex ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos)
        return "number expected: " + text;
    errno = 0;
    *value = std::strtoull(digits.c_str(), nullptr, hex ? 16 : 10);
    if (errno == 0 && *value <= ~std::uint64_t{0} >> (64 - bits))
        return "";
    return "a number of " + std::to_string(bits) + " bits expected: " + text;
}

std::string read_number(const std::string& text, std::uint32_t* value) {
    std::uint64_t read = 0;
    std::string error = read_digits(text, 32, &read);
    *value = static_cast<std::uint32_t>(read);
    return error;
}

std::uint64_t Tokens::long_number(int bits) {
    std::uint64_t value = 0;
    const std::string error = done() ? "" : read_digits(list[at].text, bits, &value);
    word();
    if (!error.empty())
        fail(error);
    return value;
}

std::uint32_t Tokens::number() {
    return static_cast<std::uint32_t>(long_number(32));
}

// clang-format off
static const struct { const char* unit; Ms milliseconds; } g_units[] = {
    {"ms", 1}, {"s", 1000}, {"m", 60000}, {"h", 3600000}, {"d", 86400000},
};
// clang-format on

static bool read_duration(const std::string& text, Ms* duration) {
    const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    std::uint64_t value = 0;
    if (!read_digits(text.substr(0, digits), 36, &value).empty()) // two years in milliseconds
        return false;
    for (const auto& row : g_units) {
        if (text.substr(digits) == row.unit) {
            *duration = value * row.milliseconds;
            return true;
        }
    }
    return false;
}

Ms Tokens::duration() {
    Ms value = 0;
    const std::string text = word();
    if (!read_duration(text, &value))
        fail("duration expected (a number and ms, s, m, h or d): " + text);
    return value;
}

static bool read_span(const std::string& text, Span* span) {
    const size_t dots = text.find("..");
    return read_duration(text.substr(0, dots), &span->shortest) &&
           read_duration(dots == std::string::npos ? text : text.substr(dots + 2), &span->longest) &&
           span->shortest <= span->longest;
}

std::vector<Span> Tokens::spans() {
    std::vector<Span> list;
    const std::string text = word();
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find(',', at), text.size());
        list.emplace_back();
        if (!read_span(text.substr(at, end - at), &list.back()))
            fail("duration, or A..B, expected: " + text);
        at = end + 1;
    }
    return list;
}

bool Tokens::accept(const char* wanted) {
    if (done() || list[at].quoted || list[at].text != wanted)
        return false;
    ++at;
    return true;
}

size_t Tokens::choice(std::initializer_list<const char*> words) {
    std::string all;
    size_t index = 0;
    for (const char* wanted : words) {
        if (accept(wanted))
            return index;
        all += all.empty() ? wanted : std::string(", ") + wanted;
        ++index;
    }
    fail("one of " + all + " expected");
    return 0;
}

// A recorded effect is the rest of its line, whatever stands there.
static bool takes_all(const std::vector<RawToken>& tokens) {
    return !tokens.empty() && tokens.front().token.text == "effect";
}

bool split(std::string* line, std::vector<RawToken>* tokens) {
    size_t at = 0;
    while (at < line->size()) {
        if (std::isspace(static_cast<unsigned char>((*line)[at]))) {
            ++at;
            continue;
        }
        if ((*line)[at] == '#' && !takes_all(*tokens)) {
            line->resize(at);
            break;
        }
        RawToken raw;
        if ((*line)[at] == '"') {
            size_t end = line->find('"', at + 1);
            if (end == std::string::npos) {
                if (!takes_all(*tokens) && (tokens->empty() || tokens->front().token.text != "expect"))
                    return false;
                end = line->size() - 1;
            }
            raw.token = {line->substr(at + 1, end - at - 1), true};
            at = end + 1;
        } else {
            const size_t start = at;
            while (at < line->size() && !std::isspace(static_cast<unsigned char>((*line)[at])) &&
                   ((*line)[at] != '#' || takes_all(*tokens)) && (*line)[at] != '"')
                ++at;
            raw.token = {line->substr(start, at - start), false};
        }
        raw.end = at;
        tokens->push_back(raw);
    }
    return true;
}

} // namespace sim
