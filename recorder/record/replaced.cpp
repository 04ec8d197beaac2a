#include "recorder/record/replaced.h"

#include <windows.h>
#include <algorithm>
#include <vector>

#include "recorder/lines.h"

namespace record {

// The n-th different one is word n, so that equal names stay equal.
static std::string numbered(std::vector<std::string>* seen, const std::string& name, const char* word,
                            size_t first) {
    const std::string key = lines::small(name);
    const auto found = std::find(seen->begin(), seen->end(), key);
    const auto number = static_cast<size_t>(found - seen->begin());
    if (found == seen->end())
        seen->push_back(key);
    return word + std::to_string(first + number);
}

static bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// An account's SID: of a domain or a machine, or of the cloud. Those of the system itself name nobody.
static void replace_sids(std::string* line) {
    static const char* const kinds[] = {"s-1-5-21-", "s-1-12-1-"};
    static std::vector<std::string> seen;
    for (const char* kind : kinds) {
        const size_t length = std::char_traits<char>::length(kind);
        std::string lower = lines::small(*line);
        for (size_t at = lower.find(kind); at != std::string::npos; at = lower.find(kind, at + 1)) {
            size_t end = at + length;
            while (end < line->size() && (is_digit((*line)[end]) || (*line)[end] == '-'))
                ++end;
            const std::string word = numbered(&seen, line->substr(at, end - at), "S-1-5-21-0-0-0-", 1001);
            line->replace(at, end - at, word);
            lower = lines::small(*line);
            at += word.size() - 1;
        }
    }
}

static void replace_profiles(std::string* line) {
    static const char* const parents[] = {"\\users\\", "\\documents and settings\\"};
    static const char* const common[] = {"public", "default", "default user", "all users"};
    static std::vector<std::string> seen;
    for (const char* parent : parents) {
        const size_t length = std::char_traits<char>::length(parent);
        std::string lower = lines::small(*line);
        for (size_t at = lower.find(parent); at != std::string::npos; at = lower.find(parent, at + length)) {
            const size_t begin = at + length;
            const size_t end = std::min(line->find_first_of("\\\"", begin), line->size());
            const std::string name = lower.substr(begin, end - begin);
            if (name.empty() || std::any_of(std::begin(common), std::end(common),
                                            [&](const char* other) { return name == other; }))
                continue;
            line->replace(begin, end - begin, numbered(&seen, name, "USER", 1));
            lower = lines::small(*line);
        }
    }
}

static bool is_letter(const std::string& text, size_t at) {
    return at < text.size() && (isalnum(static_cast<unsigned char>(text[at])) != 0 || text[at] == '_');
}

static void replace_word(std::string* line, const std::string& name, const char* word) {
    std::string lower = lines::small(*line);
    for (size_t at = lower.find(name); at != std::string::npos; at = lower.find(name, at + 1)) {
        if ((at > 0 && is_letter(lower, at - 1)) || is_letter(lower, at + name.size()))
            continue;
        line->replace(at, name.size(), word);
        lower = lines::small(*line);
    }
}

static std::string machine_name() {
    wchar_t name[MAX_COMPUTERNAME_LENGTH + 1] = L"";
    DWORD letters = MAX_COMPUTERNAME_LENGTH + 1;
    return GetComputerNameW(name, &letters) ? lines::small(lines::narrow(name)) : "";
}

static std::vector<std::string> g_accounts;

void note_account(const std::string& name) {
    const std::string key = lines::small(name);
    if (!key.empty() && std::find(g_accounts.begin(), g_accounts.end(), key) == g_accounts.end())
        g_accounts.push_back(key);
}

void replace_names(std::string* line) {
    static const std::string machine = machine_name();
    replace_sids(line);
    replace_profiles(line);
    if (machine.size() > 1)
        replace_word(line, machine, "COMPUTER");
    for (const std::string& account : g_accounts)
        replace_word(line, account, "USER");
}

} // namespace record
