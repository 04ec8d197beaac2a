// zorpmwine WINE RUNNER FILE...: scripts on real Win32. The bench's machine is there to read them, to keep
// the trace and to hold what checks look at; the product runs under Wine. Started by tools/scenario-on-wine.
#include <algorithm>
#include <cstdio>
#include <map>

#include "sim/machine/machine.h"
#include "sim/script/expectations.h"
#include "sim/script/scenario.h"
#include "sim/script/script.h"
#include "sim/tool/options.h"
#include "sim/tool/output.h"
#include "sim/tool/run.h"
#include "sim/tool/timeline.h"
#include "sim/wine/commands.h"
#include "sim/wine/runner.h"

using namespace sim;

constexpr int EXIT_NOT_ON_WINE = 4;

using Steps = std::map<const ScriptLine*, Step>;

static Place place_of(const ScriptLine& line) {
    return {*line.file, line.number};
}

// ---- before it runs ----

namespace {

struct Prepared {
    Steps steps;
    std::vector<std::string> keys; // that the script sets
    std::vector<std::string> files;
    Place place;        // of the first line that cannot be on Wine
    std::string reason; // "" when all can
};

} // namespace

static void prepare(const std::vector<ScriptLine>& lines, Prepared* prepared) {
    for (const ScriptLine& line : lines) {
        if (line.kind == ScriptLine::Kind::Command) {
            prepared->steps[&line] = step_on_wine(line, &prepared->reason);
            for (const std::string& key : keys_set_by(line))
                prepared->keys.push_back(key);
            if (const std::string file = file_made_by(line); !file.empty())
                prepared->files.push_back(file);
            prepared->place = place_of(line);
        }
        if (prepared->reason.empty())
            prepare(line.block, prepared);
        if (!prepared->reason.empty())
            return;
    }
}

static Prepared prepared_script(const Script& script) {
    Prepared prepared;
    prepare(script.lines, &prepared);
    return prepared;
}

// ---- the run ----

namespace {

struct OnWine {
    const Steps* steps;
    Expectations* expectations;
    ScriptResult result;
};

} // namespace

static bool holds(OnWine* run, const ScriptLine& line) {
    if (broken().empty() && !run->expectations->failed)
        return true;
    run->result.exit_code = 1;
    run->result.message = broken().empty() ? run->expectations->message : broken();
    run->result.context = lines_around();
    run->result.place = place_of(line);
    return false;
}

static bool run_lines(OnWine* run, const std::vector<ScriptLine>& lines, bool at_once);

static bool run_line(OnWine* run, const ScriptLine& line, bool at_once) {
    using Kind = ScriptLine::Kind;
    if (line.use == Use::Drive && !at_once)
        set_mark();
    if (line.kind == Kind::Command)
        run->steps->at (&line)();
    if (line.kind == Kind::Within) { // its end, as with seed 0
        ask(request({line.exact ? "pass" : "advance", std::to_string(line.span)}));
        machine().now += line.span;
    }
    const std::uint32_t times = line.kind == Kind::Repeat ? line.count : 1;
    for (std::uint32_t i = 0; i < times; ++i) {
        if (!run_lines(run, line.block, at_once || line.kind == Kind::Together))
            return false;
    }
    if (!at_once) // as on the bench, behind checks too: each lets a thread go on that polls without a pause
        ask("settle");
    return holds(run, line);
}

static bool run_lines(OnWine* run, const std::vector<ScriptLine>& lines, bool at_once) {
    return std::all_of(lines.begin(), lines.end(),
                       [=](const ScriptLine& line) { return run_line(run, line, at_once); });
}

// What each thread did, in its order: "TIME LINE" each.
using Effects = std::map<std::string, std::vector<std::string>>;

static Effects effects_of(const Machine& machine) {
    Effects effects;
    for (const TraceLine& line : machine.trace) {
        if (line.effect)
            effects[line.thread].push_back(format("%.3f ", static_cast<double>(line.time) / 1000) +
                                           line.text);
    }
    return effects;
}

static ScriptResult run_on_wine(const Source& source, const Prepared& prepared) {
    Expectations expectations;
    OnWine run = {&prepared.steps, &expectations, {}};
    reset_wine(prepared.keys, prepared.files);
    run_lines(&run, source.script->lines, false);
    run.result.expectations = expectations.held;
    end_runner();
    return run.result;
}

// ---- what is told ----

static void print_refused(const Prepared& prepared) {
    std::fprintf(stderr, "%snot on Wine: %s\n", shown_place(prepared.place).c_str(), prepared.reason.c_str());
}

static int run_source_on_wine(const Source& source, const Options& options) {
    const Prepared prepared = prepared_script(*source.script);
    if (!prepared.reason.empty()) {
        print_refused(prepared);
        return EXIT_NOT_ON_WINE;
    }
    Machine machine;
    begin_timeline(options.view);
    const ScriptResult result = run_on_wine(source, prepared);
    end_timeline();
    if (result.exit_code == 0)
        say(format("%s: %u expectations hold\n", source.path.c_str(), result.expectations));
    else
        say(shown_failure(result) + result.context + "\n" + shown_failure(result) + "\n");
    flush_output();
    return result.exit_code;
}

// ---- bench and Wine, side by side ----

// "" when both did the same, thread by thread; else the first that is not.
static std::string difference(const Effects& bench, const Effects& wine) {
    Effects all = bench;
    all.insert(wine.begin(), wine.end());
    for (const auto& [thread, lines] : all) {
        const auto of = [name = thread](const Effects& effects) {
            const auto found = effects.find(name);
            return found != effects.end() ? found->second : std::vector<std::string>();
        };
        std::vector<std::string> here = of(bench);
        std::vector<std::string> there = of(wine);
        const size_t longest = std::max(here.size(), there.size());
        here.resize(longest, "nothing");
        there.resize(longest, "nothing");
        const auto parts = std::mismatch(here.begin(), here.end(), there.begin());
        if (parts.first != here.end())
            return thread + " on the bench: " + *parts.first + "; on Wine: " + *parts.second;
    }
    return "";
}

static int compare_source(const Source& source) {
    const Prepared prepared = prepared_script(*source.script);
    const std::string name = source.path.substr(source.path.rfind('/') + 1);
    if (!prepared.reason.empty()) {
        say(format("skipped    %s:%d: %s\n", name.c_str(), prepared.place.line, prepared.reason.c_str()));
        return EXIT_HOLDS;
    }
    Effects bench;
    ScriptResult on_bench;
    {
        Machine machine;
        on_bench = run_script(*source.script);
        bench = effects_of(machine);
    }
    Machine machine;
    const ScriptResult on_wine = run_on_wine(source, prepared);
    std::string what = on_wine.exit_code != 0 ? shown_failure(on_wine) : "";
    if (on_bench.exit_code != 0 &&
        !what.empty()) { // a test's code did something beside it, or another test reports it
        say(format("skipped    %s: it does not hold by itself\n", name.c_str()));
        return EXIT_HOLDS;
    }
    if (on_bench.exit_code != 0)
        what = "it holds, and not on the bench: " + shown_failure(on_bench);
    const std::string differs = difference(bench, effects_of(machine));
    if (!differs.empty())
        what += (what.empty() ? "" : "; ") + differs;
    say(format("%s %s%s\n", what.empty() ? "equal     " : "different ", name.c_str(),
               what.empty() ? format(", %zu effects", machine.trace.size()).c_str() : (": " + what).c_str()));
    flush_output();
    return what.empty() ? EXIT_HOLDS : EXIT_FAILS;
}

int main(int count, char** arguments) {
    const bool compares = count > 1 && std::string_view(arguments[1]) == "--compare";
    const int first = compares ? 2 : 1;
    if (count < first + 3) {
        std::fprintf(stderr, "zorpmwine [--compare] WINE RUNNER FILE...\n");
        return EXIT_UNUSABLE;
    }
    use_runner(arguments[first], arguments[first + 1]);
    prepare_output();
    Options options;
    options.files.assign(arguments + first + 2, arguments + count);
    look_at_terminal(&options.view);
    std::vector<Source> sources;
    if (!read_sources(options, &sources))
        return EXIT_UNUSABLE;
    int exit_code = EXIT_HOLDS;
    for (const Source& source : sources)
        exit_code =
            std::max(exit_code, compares ? compare_source(source) : run_source_on_wine(source, options));
    return exit_code;
}
