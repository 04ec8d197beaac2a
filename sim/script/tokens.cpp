#include "sim/script/tokens.h"

#include <algorithm>
#include <cctype>
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

static bool read_number(const std::string& text, std::uint64_t* value) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hex ? text.substr(2) : text;
    const char* allowed = hex ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.size() > 20 || digits.find_first_not_of(allowed) != std::string::npos)
        return false;
    *value = std::strtoull(digits.c_str(), nullptr, hex ? 16 : 10);
    return true;
}

std::uint64_t Tokens::number() {
    std::uint64_t value = 0;
    const std::string text = word();
    if (!read_number(text, &value))
        fail("number expected: " + text);
    return value;
}

Ms Tokens::duration() {
    static const struct {
        const char* unit;
        Ms milliseconds;
    } units[] = {{"ms", 1}, {"s", 1000}, {"m", 60000}, {"h", 3600000}, {"d", 86400000}};
    const std::string text = word();
    const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    std::uint64_t value = 0;
    if (read_number(text.substr(0, digits), &value)) {
        for (const auto& row : units) {
            if (text.substr(digits) == row.unit)
                return value * row.milliseconds;
        }
    }
    fail("duration expected: " + text);
    return 0;
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

bool split(std::string* line, std::vector<RawToken>* tokens) {
    size_t at = 0;
    while (at < line->size()) {
        if (std::isspace(static_cast<unsigned char>((*line)[at]))) {
            ++at;
            continue;
        }
        if ((*line)[at] == '#') {
            line->resize(at);
            break;
        }
        RawToken raw;
        if ((*line)[at] == '"') {
            size_t end = line->find('"', at + 1);
            if (end == std::string::npos) {
                if (tokens->empty() || tokens->front().token.text != "expect")
                    return false;
                end = line->size() - 1;
            }
            raw.token = {line->substr(at + 1, end - at - 1), true};
            at = end + 1;
        } else {
            const size_t start = at;
            while (at < line->size() && !std::isspace(static_cast<unsigned char>((*line)[at])) &&
                   (*line)[at] != '#' && (*line)[at] != '"')
                ++at;
            raw.token = {line->substr(start, at - start), false};
        }
        raw.end = at;
        tokens->push_back(raw);
    }
    return true;
}

} // namespace sim
