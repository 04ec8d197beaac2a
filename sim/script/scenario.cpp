// Reading and running scenarios, and the commands that drive the machine itself.
#include "sim/script/scenario.h"

#include <sstream>
#include <vector>

#include "sim/machine/machine.h"
#include "sim/script/commands.h"
#include "sim/script/expectations.h"

namespace sim {

namespace {

struct Line {
    int number = 0;
    Use use = Use::Machine;
    bool marks = false;
    Action action;
    std::vector<Line> block; // of `together`
};

} // namespace

struct Script {
    std::vector<Line> lines;
};

static int g_runningLine = 0; // 0 outside a script

int running_line() {
    return g_runningLine;
}

// ---- reading ----

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

ScriptResult run_script(Script& script) {
    Expectations run;
    ScriptResult result;
    const int outer_line = g_runningLine;
    for (const Line& line : script.lines) {
        result.line = g_runningLine = line.number;
        if (line.marks)
            set_mark();
        if (line.action)
            line.action();
        for (const Line& part : line.block) {
            result.line = g_runningLine = part.number;
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
    g_runningLine = outer_line;
    return result;
}

ScriptResult run_text(const std::string& text) {
    ScriptResult result;
    const std::shared_ptr<Script> script = compile_script(text, &result);
    return script != nullptr ? run_script(*script) : result;
}

// ---- commands ----

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
    {"advance", Use::Machine, compile_advance},
    {"fail call", Use::Machine, compile_fail_call},
    {"fail", Use::Machine, compile_fail},
});

} // namespace sim
