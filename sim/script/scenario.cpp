// Running scenarios, and the commands that drive the machine itself.
#include "sim/script/scenario.h"

#include <utility>

#include "sim/machine/machine.h"
#include "sim/script/expectations.h"
#include "sim/script/moments.h"
#include "sim/script/recording.h"
#include "sim/script/script.h"

namespace sim {

static Place g_place; // of what runs; line 0 outside a script

const Place& running_place() {
    return g_place;
}

namespace {

struct Running {
    Expectations* expectations;
    ScriptResult result;
};

} // namespace

static void act(const ScriptLine& line, bool marks = true) {
    g_place.line = line.number;
    if (g_place.file != *line.file)
        g_place.file = *line.file;
    schedule_line(static_cast<std::uint32_t>(line.number));
    if (marks)
        machine().trace_asked = line.asked_behind;
    if (marks && line.use == Use::Drive)
        set_mark();
    if (marks && (line.use == Use::Drive || line.at_once))
        schedule_block(line.at_once);
    if (line.action && line.use != Use::Check && line.use != Use::Note && machine().on_command != nullptr)
        machine().on_command(line.text, line.number);
    if (line.action) {
        recorded_line(line);
        line.action();
    }
}

// Whether nothing has gone wrong so far; else the result says what.
static bool holds(Running* run) {
    if (machine().violations.empty() && !run->expectations->failed && !interrupted())
        return true;
    run->result.exit_code = 1;
    run->result.message = !machine().violations.empty() ? machine().violations.front()
                          : run->expectations->failed   ? run->expectations->message
                                                        : "interrupted";
    run->result.context = lines_around();
    run->result.place = g_place;
    return false;
}

// All that `together` holds, in one instant.
static void act_together(const std::vector<ScriptLine>& lines) {
    for (const ScriptLine& line : lines) {
        for (std::uint32_t i = 0;
             !interrupted() && i < (line.kind == ScriptLine::Kind::Repeat ? line.count : 1); ++i) {
            act(line, false);
            act_together(line.block);
        }
    }
}

static bool run_lines(Running* run, const std::vector<ScriptLine>& lines);

static bool run_line(Running* run, const ScriptLine& line) {
    using Kind = ScriptLine::Kind;
    act(line);
    if (line.kind == Kind::Together)
        act_together(line.block);
    if (line.kind == Kind::Within) {
        if (line.exact)
            pass_to_moment(line.span);
        else
            pass_to_a_moment(line.span);
        return run_lines(run, line.block);
    }
    for (std::uint32_t i = 0; line.kind == Kind::Repeat && i < line.count; ++i) {
        if (!run_lines(run, line.block))
            return false;
    }
    machine().settle();
    return holds(run);
}

static bool run_lines(Running* run, const std::vector<ScriptLine>& lines) {
    for (const ScriptLine& line : lines) {
        if (!run_line(run, line))
            return false;
    }
    return true;
}

// What runs, for commands that look at the script itself.
static const Script* g_script = nullptr;
static size_t g_line = 0;

const Script* running_script(size_t* line) {
    *line = g_line;
    return g_script;
}

ScriptResult run_on_script(const Script& script, Expectations* expectations) {
    Running run = {expectations, {}};
    const Place outer = g_place;
    const Script* outer_script = std::exchange(g_script, &script);
    const size_t outer_line = g_line;
    if (script.effects != 0) {
        replay_begin();
        machine().replay.recorded = script.effects;
    }
    for (g_line = 0; g_line < script.lines.size() && run_line(&run, script.lines[g_line]);)
        ++g_line;
    run.result.rests = requests_rest();
    run.result.expectations = expectations->held;
    run.result.effects = script.effects;
    g_place = outer;
    g_script = outer_script;
    g_line = outer_line;
    return run.result;
}

ScriptResult run_script(const Script& script) {
    Expectations expectations;
    return run_on_script(script, &expectations);
}

bool run_parts(const std::vector<const ScriptLine*>& lines) {
    Expectations expectations;
    Running run = {&expectations, {}};
    const Place outer = g_place;
    bool all = true;
    for (const ScriptLine* line : lines)
        all = all && (line->use == Use::Check || run_line(&run, *line));
    g_place = outer;
    return all;
}

ScriptResult run_text(const std::string& text) {
    std::vector<Fault> faults;
    const std::shared_ptr<Script> script = compile_script(text, "", &faults);
    ScriptResult result;
    if (script != nullptr)
        return run_script(*script);
    result.exit_code = 2;
    result.message = faults.front().what;
    result.place = faults.front().place;
    return result;
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
    {"say", Use::Note, compile_say, "\"TEXT\" - a heading for the reader"},
    {"advance", Use::Machine, compile_advance,
     "DURATION - virtual time passes; what falls due at its very end is included"},
    {"fail call", Use::Machine, compile_fail_call, "N - the N-th platform call from here fails"},
    {"fail", Use::Machine, compile_fail, "NAME [N] - the N-th call of that name from here fails"},
});

} // namespace sim
