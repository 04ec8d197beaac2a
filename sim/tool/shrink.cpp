#include "sim/tool/shrink.h"

#include <algorithm>

#include "sim/tool/apart.h"
#include "sim/tool/explore.h"
#include "sim/tool/output.h"
#include "sim/tool/processes.h"
#include "sim/tool/script_lines.h"

using sim::Choice;
using Choices = std::vector<Choice>;

// Where a shorter script passes other points, a choice is looked for among so many beside its own;
constexpr int POINTS_BESIDE = 16;
// as long as there are no more choices than these.
constexpr size_t CHOICES_MOVED = 4;
constexpr unsigned LONGEST_TRIAL_S = 10;

namespace {

struct Failing {
    std::string path;
    Lines lines;
    Choices choices;
    std::uint64_t seed = 0; // 0: nothing is left for it to choose
    bool atomics = false;
    std::string message;
    bool ends_process = false;   // it crashes, or runs on
    bool rests = false;          // at its end
    bool holds_in[FORMS] = {};   // told so, under seed 0; so must a shorter one
    bool holds_unchosen = false; // when nobody is overtaken
};

// What the process that tries a candidate answers.
struct Answer {
    bool fails;
    size_t moved; // choice, that was found
    int by;       // so many points away
    End end;
};

} // namespace

// ---- trying ----

static Source source_of(const Failing& failing, Form form) {
    Source source;
    std::vector<sim::Fault> faults;
    source.path = failing.path;
    source.text = joined(failing.lines, form);
    compile_source(&source, &faults);
    return source;
}

static Options chosen(const Failing& failing, const Choices& choices, std::uint64_t seed) {
    Options options;
    options.seed = seed;
    options.atomics = failing.atomics;
    options.scheduled = true;
    options.choices = choices;
    return options;
}

static sim::ScriptResult run_chosen(const Failing& failing, const Source& source, const Choices& choices,
                                    std::uint64_t seed) {
    return run_quietly(source, chosen(failing, choices, seed), seed);
}

// Does not return when it fails by ending this process.
static bool fails_alike(const Failing& failing, const Source& source, const Choices& choices) {
    const sim::ScriptResult result = run_chosen(failing, source, choices, failing.seed);
    return result.exit_code != EXIT_HOLDS && result.message == failing.message &&
           (result.rests || !failing.rests);
}

static Choices moved(const Choices& choices, size_t which, int by) {
    Choices list = choices;
    if (which < list.size())
        list[which].point += static_cast<std::uint64_t>(static_cast<std::int64_t>(by));
    return list;
}

static void look_beside(const Failing& failing, const Source& source, Answer* answer) {
    if (failing.choices.size() > CHOICES_MOVED)
        return;
    for (int by = 1; by <= POINTS_BESIDE; ++by) {
        for (size_t i = 0; i < failing.choices.size(); ++i) {
            for (const int way : {by, -by}) {
                *answer = {false, i, way, {}};
                answer->fails = fails_alike(failing, source, moved(failing.choices, i, way));
                if (answer->fails)
                    return;
            }
        }
    }
}

static bool holds_at_rest(const sim::ScriptResult& result) {
    return result.exit_code == EXIT_HOLDS && result.rests;
}

// Told at leisure, or with nobody overtaken, it must hold where the script at the beginning does: otherwise
// it is no race any more.
static bool holds_otherwise(const Failing& failing, const Source& source) {
    if (failing.holds_unchosen && !holds_at_rest(run_chosen(failing, source, {}, failing.seed)))
        return false;
    for (const Form form : {LONGEST, SHORTEST, DRAWN}) {
        if (failing.holds_in[form] && !holds_at_rest(run_chosen(failing, source_of(failing, form), {}, 0)))
            return false;
    }
    return true;
}

static void try_candidate(const Failing& candidate, const Source& source, Answer* answer) {
    answer->fails = fails_alike(candidate, source, candidate.choices);
    if (!answer->fails)
        look_beside(candidate, source, answer);
    answer->fails = answer->fails && holds_otherwise(candidate, source);
}

// What fails by ending its process leaves it to another one to look where it holds.
static bool fails_apart(const Failing& candidate, const Source& source, Answer* answer) {
    const bool ended =
        run_apart([&] { try_candidate(candidate, source, answer); }, &answer->end, LONGEST_TRIAL_S);
    if (!candidate.ends_process)
        return ended && answer->fails;
    if (candidate.message != answer->end.text)
        return false;
    answer->fails = false;
    return run_apart([&] { answer->fails = holds_otherwise(candidate, source); }, &answer->end,
                     LONGEST_TRIAL_S) &&
           answer->fails;
}

static bool take_if_failing(Failing* failing, Failing candidate) {
    if (stopped())
        return false;
    const Source source = source_of(candidate, AS_IT_FAILS);
    auto* answer = source.script != nullptr ? share<Answer>() : nullptr;
    if (answer == nullptr)
        return false;
    const bool taken = fails_apart(candidate, source, answer);
    if (taken) {
        candidate.choices = moved(candidate.choices, answer->moved, answer->by);
        *failing = candidate;
    }
    unshare(answer);
    return taken;
}

// ---- what the seed chose, made fixed ----

static Choices choices_in(const std::vector<sim::PassedPoint>& passed) {
    Choices choices;
    choices.reserve(passed.size());
    for (const sim::PassedPoint& point : passed)
        choices.push_back(point.choice);
    return choices;
}

// The script as it fails under a seed; false when it does not.
static bool begin(Failing* failing, const Source& source, const Options& options) {
    failing->path = source.path;
    failing->lines = lines_of(source.text, source.path);
    failing->seed = options.seed;
    failing->atomics = options.atomics;
    const Outcome outcome = outcome_apart(source_of(*failing, AS_IT_FAILS), options);
    if (!outcome.known || outcome.exit_code == EXIT_HOLDS)
        return false;
    failing->message = outcome.message;
    failing->ends_process = outcome.ended_process;
    failing->rests = outcome.rests;
    failing->choices = choices_in(outcome.passed);
    Failing fixed = *failing;
    fixed.seed = 0;
    for (const bool together : {true, false}) {
        fixed.lines = with_drawn(failing->lines, outcome.drawn, together);
        if (take_if_failing(failing, fixed))
            break;
    }
    return true;
}

static bool holds_apart(const Failing& failing, Form form, std::uint64_t seed) {
    if (stopped())
        return false;
    const Outcome outcome = outcome_apart(source_of(failing, form), chosen(failing, {}, seed));
    return outcome.known && outcome.exit_code == EXIT_HOLDS && outcome.rests;
}

static void note_where_it_holds(Failing* failing) {
    for (const Form form : {LONGEST, SHORTEST, DRAWN})
        failing->holds_in[form] = holds_apart(*failing, form, 0);
    failing->holds_unchosen = holds_apart(*failing, AS_IT_FAILS, failing->seed);
}

// ---- left out ----

// Calls leave_out(first, count) for halves of `size` things, then for quarters, and at last for each.
template <class LeaveOut> static bool by_halves(size_t size, const LeaveOut& leave_out) {
    bool any = false;
    for (size_t count = std::max<size_t>(size / 2, 1); count > 0 && size > 0; count /= 2) {
        for (size_t end = size; end > 0 && !stopped(); end -= std::min(end, count))
            any = leave_out(end - std::min(end, count), std::min(end, count)) || any;
    }
    return any;
}

static void erase_line(Failing* failing, size_t at) {
    failing->lines.erase(failing->lines.begin() + static_cast<std::ptrdiff_t>(at));
    std::erase_if(failing->choices, [at](const Choice& choice) { return choice.line == at + 1; });
    for (Choice& choice : failing->choices)
        choice.line -= choice.line > at;
}

static bool leave_out_lines(Failing* failing) {
    return by_halves(failing->lines.size(), [failing](size_t first, size_t count) {
        Failing candidate = *failing;
        for (size_t i = 0; i < count && first < candidate.lines.size(); ++i)
            erase_line(&candidate, first);
        return take_if_failing(failing, candidate);
    });
}

static bool leave_out_choices(Failing* failing) {
    return by_halves(failing->choices.size(), [failing](size_t first, size_t count) {
        Failing candidate = *failing;
        for (size_t i = 0; i < count && first < candidate.choices.size(); ++i)
            candidate.choices.erase(candidate.choices.begin() + static_cast<std::ptrdiff_t>(first));
        return candidate.choices.size() != failing->choices.size() && take_if_failing(failing, candidate);
    });
}

static bool open_blocks(Failing* failing) {
    bool any = false;
    for (size_t at = failing->lines.size(); at-- > 0 && !stopped();) {
        const size_t end = end_of_block(failing->lines, at);
        if (end == 0)
            continue;
        Failing candidate = *failing;
        erase_line(&candidate, end);
        erase_line(&candidate, at);
        any = take_if_failing(failing, candidate) || any;
    }
    return any;
}

static bool make_smaller(Failing* failing, size_t at) {
    for (const Line& line : smaller_lines(failing->lines[at])) {
        Failing candidate = *failing;
        candidate.lines[at] = line;
        if (take_if_failing(failing, candidate))
            return true;
    }
    return false;
}

static void shrink(Failing* failing) {
    bool any = true;
    leave_out_choices(failing);
    while (any && !stopped()) {
        any = leave_out_lines(failing);
        any = open_blocks(failing) || any;
        any = leave_out_choices(failing) || any;
        for (size_t at = failing->lines.size(); at-- > 0 && !stopped();) {
            while (make_smaller(failing, at))
                any = true;
        }
    }
}

// ---- what is told ----

// Where it would hold: behind the script, as comments, so that its lines keep their numbers.
static std::string shown_remedies(const Failing& failing) {
    std::string text;
    if (failing.holds_unchosen)
        text += "# It holds when nobody is overtaken.\n";
    if (!failing.holds_in[LONGEST])
        return text;
    for (size_t i = 0; i < failing.lines.size(); ++i) {
        if (failing.lines[i][AS_IT_FAILS] != failing.lines[i][LONGEST])
            text += "# Line " + std::to_string(i + 1) + " was: " + failing.lines[i][LONGEST] + "\n";
    }
    return text;
}

static std::string repeating_command(const Failing& failing) {
    std::string command = failing.atomics ? "zorpmsim --atomics" : "zorpmsim";
    if (failing.seed != 0)
        command += " --seed " + std::to_string(failing.seed);
    if (failing.seed != 0 || !failing.choices.empty())
        command += " --schedule " + sim::shown_choices(failing.choices);
    return command + " THIS";
}

static void print_shrunk(const Failing& failing, std::uint64_t seed) {
    const bool in_time = !stopped();
    const Outcome outcome =
        outcome_apart(source_of(failing, AS_IT_FAILS), chosen(failing, failing.choices, failing.seed));
    say(joined(failing.lines) + "# " + failing.path + ", seed " + std::to_string(seed) + ", in " +
        std::to_string(commands_in(failing.lines)) + " commands and " +
        std::to_string(failing.choices.size()) + " choices of the schedule: " + failing.message + "\n" +
        shown_schedule(outcome.passed, "#   ") + shown_remedies(failing) +
        (in_time ? "" : "# Interrupted: it may not be the shortest.\n") +
        "# Repeat with: " + repeating_command(failing) + "\n");
    flush_output();
}

static int shrink_source(const Source& source, const Options& options) {
    Failing failing;
    const bool fails = begin(&failing, source, options);
    if (!fails && stopped()) {
        std::fprintf(stderr, "%s: interrupted before it failed\n", source.path.c_str());
        return EXIT_INTERRUPTED;
    }
    if (!fails) {
        std::fprintf(stderr, "%s: it does not fail under seed %llu\n", source.path.c_str(),
                     static_cast<unsigned long long>(options.seed));
        return EXIT_UNUSABLE;
    }
    std::fprintf(stderr, "%s: %u commands: %s\n", source.path.c_str(),
                 static_cast<unsigned>(commands_in(failing.lines)), failing.message.c_str());
    note_where_it_holds(&failing);
    shrink(&failing);
    print_shrunk(failing, options.seed);
    return EXIT_FAILS;
}

int shrink_sources(const std::vector<Source>& sources, const Options& options) {
    int exit_code = EXIT_HOLDS;
    watch_for_stop();
    for (const Source& source : sources) {
        if (!stopped())
            exit_code = std::max(exit_code, shrink_source(source, options));
    }
    return exit_code;
}
