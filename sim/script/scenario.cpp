// The scenario language: reading, the commands of the language itself, running.
#include "sim/script/scenario.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace sim {

// ---- tokens ----

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

// ---- the table of commands ----

// Filled by static registration, in any order, before main.
static std::vector<Command>& commands() {
    static std::vector<Command> list;
    return list;
}

Commands::Commands(std::initializer_list<Command> more) {
    commands().insert(commands().end(), more);
}

struct Line {
    int number = 0;
    Use use = Use::Machine;
    bool marks = false;
    Action action;
    std::vector<Line> block; // of `together`
};

struct Script {
    std::vector<Line> lines;
};

struct RunState {
    size_t mark = 0;
    size_t cursor = 0;
    unsigned held = 0;
    bool failed = false;
    std::string message;
    int line = 0;
};
static RunState* g_run = nullptr; // of the script that runs

void expectation(bool holds, const std::string& what) {
    if (g_run == nullptr || g_run->failed)
        return;
    if (holds) {
        ++g_run->held;
        return;
    }
    g_run->failed = true;
    g_run->message = "expected " + what;
}

// ---- patterns ----

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
    for (size_t i = next_effect(g_run->cursor); i < lines.size(); i = next_effect(i + 1)) {
        if (like(pattern, lines[i].text)) {
            g_run->cursor = i + 1;
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
    for (size_t i = next_effect(g_run->mark); i < lines.size(); i = next_effect(i + 1))
        count += like(pattern, lines[i].text);
    return count;
}

static void set_mark() {
    g_run->mark = g_run->cursor = machine().trace.size();
}

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

static Action compile_advance(Tokens& tokens) {
    const Ms duration = tokens.duration();
    return [duration] { machine().advance(duration); };
}

static Action compile_fail_call(Tokens& tokens) {
    const std::uint64_t number = tokens.number();
    if (number == 0)
        tokens.fail("calls are counted from 1");
    return [number] { machine().fail_at = machine().calls + number; };
}

// `fail NAME [N]`: the N-th call of that name from here.
static Action compile_fail(Tokens& tokens) {
    const std::string name = tokens.word();
    const std::uint64_t number = tokens.done() ? 1 : tokens.number();
    return [=] {
        machine().fail_name = name;
        machine().fail_countdown = number;
    };
}

// `say "TEXT"`: a heading for whoever reads the timeline; no part of the trace.
static Action compile_say(Tokens& tokens) {
    const std::string text = tokens.text();
    return [text] {
        if (machine().on_line != nullptr)
            machine().on_line({machine().now, "", text, false});
    };
}

static const Commands g_commands({
    {"say", Use::Check, compile_say},
    {"mark", Use::Check, compile_mark},
    {"expect", Use::Check, compile_expect},
    {"expect next", Use::Check, compile_expect_next},
    {"expect no", Use::Check, compile_expect_no},
    {"expect count", Use::Check, compile_expect_count},
    {"advance", Use::Machine, compile_advance},
    {"fail call", Use::Machine, compile_fail_call},
    {"fail", Use::Machine, compile_fail},
});

// ---- reading ----

struct RawToken {
    Token token;
    size_t end = 0; // offset behind it in the line
};

// Splits a line, cutting a comment off; false for a quote without its end, which only a pattern may hold.
static bool split(std::string* line, std::vector<RawToken>* tokens) {
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

static size_t words_in(const char* words) {
    return static_cast<size_t>(std::count(words, words + std::string_view(words).size(), ' ')) + 1;
}

// The command whose words the line begins with, the longest of them.
static const Command* find_command(const std::vector<RawToken>& tokens) {
    const Command* best = nullptr;
    for (const Command& command : commands()) {
        const size_t count = words_in(command.words);
        if (count > tokens.size() || (best != nullptr && count <= words_in(best->words)))
            continue;
        std::string joined;
        for (size_t i = 0; i < count; ++i)
            joined +=
                (i == 0 ? "" : " ") + (tokens[i].token.quoted ? std::string("\"") : tokens[i].token.text);
        if (joined == command.words)
            best = &command;
    }
    return best;
}

static std::string compile_line(std::string text, Line* line) {
    std::vector<RawToken> raw;
    if (!split(&text, &raw))
        return "a quote has no end";
    const Command* command = find_command(raw);
    if (command == nullptr)
        return "no such command: " + text;
    const size_t words = words_in(command->words);
    Tokens tokens;
    for (size_t i = words; i < raw.size(); ++i)
        tokens.list.push_back(raw[i].token);
    const std::string rest = text.substr(raw[words - 1].end);
    const size_t first = rest.find_first_not_of(" \t\r");
    if (first != std::string::npos)
        tokens.rest_of_line = rest.substr(first, rest.find_last_not_of(" \t\r") - first + 1);
    line->action = command->compile(tokens);
    line->use = command->use;
    line->marks = command->use == Use::Drive;
    if (tokens.error.empty() && !tokens.done())
        tokens.fail("more than the command takes: " + tokens.list[tokens.at].text);
    return tokens.error;
}

std::shared_ptr<Script> compile_script(const std::string& text, ScriptResult* result) {
    auto script = std::make_shared<Script>();
    std::istringstream stream(text);
    std::string source;
    bool in_block = false;
    auto unusable = [&](int number, const std::string& what) {
        *result = {2, 0, what, number};
        return nullptr;
    };
    int number = 0;
    while (std::getline(stream, source)) {
        ++number;
        if (number == 1 && source.starts_with("\xEF\xBB\xBF"))
            source.erase(0, 3); // the mark that some editors put before UTF-8
        std::vector<RawToken> probe;
        std::string cut = source;
        if (!split(&cut, &probe))
            return unusable(number, "a quote has no end");
        if (probe.empty())
            continue;
        Line line;
        line.number = number;
        const std::string& word = probe[0].token.text;
        if (probe.size() == 1 && word == "together" && !in_block) {
            in_block = true;
            line.use = Use::Drive;
            line.marks = true;
            script->lines.push_back(std::move(line));
            continue;
        }
        if (probe.size() == 1 && word == "end" && in_block) {
            in_block = false;
            continue;
        }
        const std::string error = compile_line(source, &line);
        if (!error.empty())
            return unusable(number, error);
        if (in_block && line.use == Use::Check)
            return unusable(number, "a check inside together");
        (in_block ? script->lines.back().block : script->lines).push_back(std::move(line));
    }
    if (in_block)
        return unusable(number, "together without end");
    return script;
}

// ---- running ----

int running_line() {
    return g_run != nullptr ? g_run->line : 0;
}

static std::string lines_since_mark() {
    std::string text;
    const auto& lines = machine().trace;
    for (size_t i = next_effect(g_run->mark); i < lines.size(); i = next_effect(i + 1))
        text += format("\n    %.3f %s ", static_cast<double>(lines[i].time) / 1000, lines[i].thread.c_str()) +
                lines[i].text;
    return text;
}

ScriptResult run_script(Script& script) {
    RunState run;
    RunState* outer = g_run;
    g_run = &run;
    ScriptResult result;
    set_mark();
    for (const Line& line : script.lines) {
        result.line = run.line = line.number;
        if (line.marks)
            set_mark();
        if (line.action)
            line.action();
        for (const Line& part : line.block) {
            result.line = run.line = part.number;
            part.action();
        }
        machine().settle();
        if (!machine().violations.empty()) {
            result.exit_code = 1;
            result.message = machine().violations.front() + lines_since_mark();
            break;
        }
        if (run.failed) {
            result.exit_code = 1;
            result.message = run.message + lines_since_mark();
            break;
        }
    }
    result.expectations = run.held;
    g_run = outer;
    return result;
}

ScriptResult run_text(const std::string& text) {
    ScriptResult result;
    const std::shared_ptr<Script> script = compile_script(text, &result);
    return script != nullptr ? run_script(*script) : result;
}

} // namespace sim
