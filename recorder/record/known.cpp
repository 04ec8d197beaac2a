#include "recorder/record/known.h"

#include <algorithm>
#include <unordered_map>

#include "recorder/record/journal.h"

namespace record {

static std::unordered_map<std::string, std::string> g_known;

void tell(const std::string& subject, const std::string& line, bool as_new_machine) {
    const auto [found, first] = g_known.try_emplace(subject, line);
    if (first ? as_new_machine && fresh_journal() : found->second == line)
        return;
    found->second = line;
    command(line);
}

void now_known(const std::string& subject, const std::string& line) {
    g_known[subject] = line;
}

void no_longer_known(const std::string& subject) {
    g_known.erase(subject);
}

bool is_known(const std::string& subject) {
    return g_known.contains(subject);
}

// No token holds a quotation mark.
std::string quoted(const std::string& text) {
    std::string token = text;
    std::replace(token.begin(), token.end(), '"', '\'');
    const bool plain = !token.empty() && token.find_first_of(" \t#") == std::string::npos;
    return plain ? token : "\"" + token + "\"";
}

} // namespace record
