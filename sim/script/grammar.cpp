#include "sim/script/grammar.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <unordered_map>

#include "sim/script/nearest.h"

namespace sim {

// clang-format off
static const TraceForms g_lines({
    "status {STOPPED|START_PENDING|STOP_PENDING|RUNNING|CONTINUE_PENDING|PAUSE_PENDING|PAUSED} %u/%u{| checkpoint %u}",
    "registry {SVC|HKLM|HKCR|HKU}%s = %s",
    "registry {create|delete} {SVC|HKLM|HKCR|HKU}%s",
    "write {slate|dock|button}{|#%u} %u",
    "file {create|delete} \"%s\"",
    "call SetSuspendState(%u, %u, %u) = %u",
    "call SetSystemPowerState(%u, %u) = %u",
    "call ExitWindowsEx(%u, %u) = %u",
    "call CallNtPowerInformation(10) = {0|0x%x}",
    "call WritePwrScheme(%u) = 1",
    "call SetActivePwrScheme(%u, {null|policy}, {null|policy}) = %u",
    "call RegLoadKeyW(\"%s\", \"%s\") = %u",
    "call RegUnLoadKeyW(\"%s\") = %u",
    "call SetInverterParams(%u, %u) = 0x%x",
    "call RegisterTaskDefinition(\"%s\") = 0x%x",
    "call DeleteTask(\"%s\", \"%s\") = 0x%x",
    "call ControlService(\"%s\", %u) = %u",
    "call CreateProcessW({null|\"%s\"}, \"%s\") = %u",
    "call SendInput(0x%x)",
    "call SetCursorPos(%d, %d)",
    "dialog 101 {opened|ended %d}",
    "window class %s style 0x%x background %u cursor %u",
    "window input desktop opened 0x%x",
    "window thread desktop {input|first}",
    "window %s created style 0x%x extended 0x%x at %d %d size %d %d",
    "window %s placed %d %d %d %d {top|topmost}{| shown}",
    "window %s {destroyed|focus|hidden}",
    "window %s {foreground|capture}{| refused}",
    "process \"%s\" ended %u",
    "result helper %u = %u",
    "output zorpmctl \"%s\"",
    "refused {start|stop|control %u|helper %s|interrupt zorpmctl}",
    "refused input {key|move|left|right|middle|system}",
    "refused signal {Start|Stop|Sleep|Resume|NotifyEvent}",
});
// clang-format on

// ---- forms ----

namespace {

enum class Part {
    Letter,     // itself, whatever the case
    Minus,      // or nothing
    FirstDigit, // 0 ends the number
    MoreDigits, // or nothing
    FirstHex,   // likewise
    MoreHex,
    Anything
};

struct Step {
    Part part;
    char letter;
};

using Form = std::vector<Step>;

// Forms by their first word.
using Forms = std::unordered_map<std::string, std::vector<Form>>;

} // namespace

static Forms& forms() {
    static Forms all;
    return all;
}

static char small(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

static std::string first_word(std::string_view text) {
    std::string word(text.substr(0, text.find(' ')));
    for (char& c : word)
        c = small(c);
    return word;
}

static Form compiled(std::string_view text) {
    Form form;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            form.push_back({Part::Letter, text[i]});
            continue;
        }
        const char kind = text[++i];
        if (kind == 's')
            form.push_back({Part::Anything, 0});
        if (kind == 'd')
            form.push_back({Part::Minus, 0});
        if (kind != 's') {
            form.push_back({kind == 'x' ? Part::FirstHex : Part::FirstDigit, 0});
            form.push_back({kind == 'x' ? Part::MoreHex : Part::MoreDigits, 0});
        }
    }
    return form;
}

// Adds the form once for each of the choices in its first braces.
static void add_form(const std::string& text) {
    const size_t open = text.find('{');
    if (open == std::string::npos) {
        forms()[first_word(text)].push_back(compiled(text));
        return;
    }
    const size_t close = text.find('}', open);
    for (size_t at = open + 1; at <= close;) {
        const size_t end = std::min(text.find('|', at), close);
        add_form(text.substr(0, open) + text.substr(at, end - at) + text.substr(close + 1));
        at = end + 1;
    }
}

TraceForms::TraceForms(const std::vector<std::string>& more) {
    for (const std::string& form : more)
        add_form(form);
}

// ---- patterns ----

static bool fits(const Step& step, char c) {
    switch (step.part) {
    case Part::Letter:
        return small(step.letter) == small(c);
    case Part::Minus:
        return c == '-';
    case Part::FirstDigit:
    case Part::MoreDigits:
        return std::isdigit(static_cast<unsigned char>(c)) != 0;
    case Part::FirstHex:
    case Part::MoreHex:
        return std::isxdigit(static_cast<unsigned char>(c)) != 0;
    default:
        return true;
    }
}

static bool may_be_empty(Part part) {
    return part == Part::Minus || part == Part::MoreDigits || part == Part::MoreHex || part == Part::Anything;
}

static bool repeats(Part part) {
    return part == Part::MoreDigits || part == Part::MoreHex || part == Part::Anything;
}

namespace {

// Where in a form one can be behind each letter of a pattern: row i, place j.
struct Reach {
    std::vector<std::vector<bool>> rows;
    bool whole = false;
    size_t furthest = 0; // letter of the pattern
};

} // namespace

// From place j of row i, by the pattern's next letter or by nothing.
static void reach_on(Reach* reach, std::string_view pattern, const Form& form, size_t i, size_t j) {
    const bool star = i < pattern.size() && pattern[i] == '*';
    if (star)
        reach->rows[i + 1][j] = true;
    if (j == form.size())
        return;
    const Step& step = form[j];
    if (star || may_be_empty(step.part))
        reach->rows[i][j + 1] = true;
    if (star || i == pattern.size() || !fits(step, pattern[i]))
        return;
    const bool zero = pattern[i] == '0' && (step.part == Part::FirstDigit || step.part == Part::FirstHex);
    reach->rows[i + 1][j + (repeats(step.part) ? 0 : zero ? 2 : 1)] = true;
}

static Reach reach_of(std::string_view pattern, const Form& form) {
    Reach reach;
    reach.rows.assign(pattern.size() + 1, std::vector<bool>(form.size() + 1));
    reach.rows[0][0] = true;
    for (size_t i = 0; i <= pattern.size(); ++i) {
        for (size_t j = 0; j <= form.size(); ++j) {
            if (!reach.rows[i][j])
                continue;
            reach.furthest = i;
            reach_on(&reach, pattern, form, i, j);
        }
    }
    reach.whole = reach.rows[pattern.size()][form.size()];
    return reach;
}

constexpr size_t LONGEST_PATTERN = 4096;
constexpr std::string_view WORD_ENDS = " (),=\\/\"";

// The words that could stand at a letter of the pattern.
static void add_words_at(const Reach& reach, const Form& form, size_t at, std::vector<std::string>* words) {
    for (size_t j = 0; j < form.size(); ++j) {
        std::string word;
        for (size_t k = j; reach.rows[at][j] && k < form.size() && form[k].part == Part::Letter &&
                           WORD_ENDS.find(form[k].letter) == std::string_view::npos;
             ++k)
            word += form[k].letter;
        if (!word.empty() && std::find(words->begin(), words->end(), word) == words->end())
            words->push_back(word);
    }
}

static std::string listed(const std::vector<std::string>& words) {
    constexpr size_t most = 8;
    std::string list;
    for (size_t i = 0; i < words.size() && i < most; ++i)
        list += (i == 0 ? "; there stands " : ", ") + words[i];
    return list + (words.size() > most ? ", ..." : "");
}

static std::string explained(std::string_view pattern, const std::vector<const Form*>& candidates) {
    size_t furthest = 0;
    for (const Form* form : candidates)
        furthest = std::max(furthest, reach_of(pattern, *form).furthest);
    if (furthest == pattern.size())
        return "no trace line ends there: " + std::string(pattern) + " (* stands for anything)";
    size_t start = furthest;
    while (start > 0 && WORD_ENDS.find(pattern[start - 1]) == std::string_view::npos &&
           pattern[start - 1] != '*')
        --start;
    const std::string_view rest = pattern.substr(start);
    const std::string word(rest.substr(0, std::max<size_t>(1, rest.find_first_of(WORD_ENDS))));
    std::vector<std::string> words;
    for (const Form* form : candidates)
        add_words_at(reach_of(pattern.substr(0, start), *form), *form, start, &words);
    const std::string meant = suggestion(word, words);
    return "no trace line can be so, from \"" + word + "\" on" + (meant.empty() ? listed(words) : meant);
}

static std::string checked(const std::string& pattern) {
    const std::string word = first_word(pattern);
    std::vector<const Form*> candidates;
    const auto found = forms().find(word);
    for (const auto& [first, list] : forms()) {
        if (found != forms().end() && first != word)
            continue;
        for (const Form& form : list)
            candidates.push_back(&form);
    }
    for (const Form* form : candidates) {
        if (reach_of(pattern, *form).whole)
            return "";
    }
    return explained(pattern, candidates);
}

std::string impossible_pattern(const std::string& pattern) {
    if (pattern.size() > LONGEST_PATTERN)
        return "longer than any trace line";
    constexpr size_t most_kept = 10000; // scripts repeat their patterns
    static std::unordered_map<std::string, std::string> known;
    const auto found = known.find(pattern);
    if (found != known.end())
        return found->second;
    if (known.size() == most_kept)
        known.clear();
    return known[pattern] = checked(pattern);
}

} // namespace sim
