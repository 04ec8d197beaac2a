#include "sim/tool/shrink.h"

#include <algorithm>
#include <optional>

#include "sim/script/source.h"
#include "sim/script/tokens.h"
#include "sim/tool/explore.h"
#include "sim/tool/output.h"
#include "sim/tool/processes.h"

using sim::Choice;
using sim::PassedPoint;

// A candidate that does not fail under the seed at hand is tried under so many others.
constexpr std::uint64_t SEEDS_TRIED = 100;
constexpr size_t LONGEST_ANSWER = 65536;

namespace {

using Lines = std::vector<std::string>;

struct Failing {
    std::string path;
    Lines lines;
    std::uint64_t seed = 0;
    std::string message;
    bool is_race = false; // it holds under seed 0; so must a shorter one
};

// What the process that tries a candidate answers.
struct Answer {
    bool fails;
    std::uint64_t seed;
};

} // namespace

// ---- the text ----

static std::string joined(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

// The lines that say something, with those of included files in their place.
static void add_lines(const std::string& text, const std::string& path, unsigned depth, Lines* lines) {
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        std::string line = text.substr(at, end - at);
        at = end + 1;
        std::vector<sim::RawToken> tokens;
        if (!sim::split(&line, &tokens) || tokens.empty())
            continue;
        std::string included;
        if (tokens.size() == 2 && tokens[0].token.text == "include" && depth < 16 &&
            sim::read_script(sim::beside(path, tokens[1].token.text), &included).empty())
            add_lines(included, sim::beside(path, tokens[1].token.text), depth + 1, lines);
        else
            lines->push_back(line.substr(0, tokens.back().end));
    }
}

// ---- trying ----

static Source source_of(const std::string& path, const Lines& lines) {
    Source source;
    std::vector<sim::Fault> faults;
    source.path = path;
    source.text = joined(lines);
    compile_source(&source, &faults);
    return source;
}

static bool fails_alike(const Source& source, const Options& options, std::uint64_t seed,
                        const std::string& message) {
    const sim::ScriptResult result = run_quietly(source, options, seed);
    return result.exit_code != EXIT_HOLDS && result.message == message;
}

// Whether these lines fail with the same message, under the seed at hand or another one; in a process of its
// own, which may crash.
static std::optional<std::uint64_t> failing_seed(const Failing& failing, const Lines& lines,
                                                 const Options& options) {
    const Source source = source_of(failing.path, lines);
    if (source.script == nullptr)
        return std::nullopt;
    auto* answer = share<Answer>();
    if (answer == nullptr)
        return std::nullopt;
    const pid_t process = start_process([&] {
        if (failing.is_race && run_quietly(source, options, 0).exit_code != EXIT_HOLDS)
            return;
        for (std::uint64_t i = 0; i <= SEEDS_TRIED && !answer->fails && !sim::interrupted(); ++i) {
            answer->seed = i == 0 ? failing.seed : i;
            answer->fails = fails_alike(source, options, answer->seed, failing.message);
        }
    });
    std::optional<std::uint64_t> seed;
    if (process > 0 && exit_status_of(process) == 0 && answer->fails)
        seed = answer->seed;
    unshare(answer);
    return seed;
}

static bool take_if_failing(Failing* failing, const Lines& lines, const Options& options) {
    const std::optional<std::uint64_t> seed = failing_seed(*failing, lines, options);
    if (!seed)
        return false;
    failing->lines = lines;
    failing->seed = *seed;
    return true;
}

// ---- commands left out ----

static bool leave_out(Failing* failing, size_t count, const Options& options) {
    bool any = false;
    for (size_t at = failing->lines.size(); at-- > 0;) {
        if (at + count > failing->lines.size())
            continue;
        Lines lines = failing->lines;
        const auto first = lines.begin() + static_cast<std::ptrdiff_t>(at);
        lines.erase(first, first + static_cast<std::ptrdiff_t>(count));
        any = take_if_failing(failing, lines, options) || any;
    }
    return any;
}

// The end of the block that begins in a line; 0: it begins none.
static size_t end_of_block(const Lines& lines, size_t at) {
    size_t depth = 0;
    for (size_t i = at; i < lines.size(); ++i) {
        std::string line = lines[i];
        std::vector<sim::RawToken> tokens;
        sim::split(&line, &tokens);
        const std::string word = tokens.empty() ? "" : tokens[0].token.text;
        depth += word == "together" || word == "repeat";
        if (word == "end" && --depth == 0)
            return i;
        if (depth == 0)
            return 0;
    }
    return 0;
}

static bool open_blocks(Failing* failing, const Options& options) {
    bool any = false;
    for (size_t at = failing->lines.size(); at-- > 0;) {
        const size_t end = end_of_block(failing->lines, at);
        if (end == 0)
            continue;
        Lines lines = failing->lines;
        lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(end));
        lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(at));
        any = take_if_failing(failing, lines, options) || any;
    }
    return any;
}

// ---- numbers made smaller ----

// Smaller numbers to be tried for a duration or a count, the boldest first. No count becomes 0.
static Lines smaller(const std::string& word) {
    const size_t digits = std::min(word.find_first_not_of("0123456789"), word.size());
    const std::string unit = word.substr(digits);
    if (digits == 0 || digits > 9)
        return {};
    const unsigned long value = std::stoul(word.substr(0, digits));
    Lines list;
    for (const unsigned long less : {0ul, 1ul, value / 10, value / 2, value - 1}) {
        if (less < value && (less != 0 || !unit.empty()) &&
            (list.empty() || list.back() != std::to_string(less) + unit))
            list.push_back(std::to_string(less) + unit);
    }
    return list;
}

// Words behind which a number may be made smaller.
static bool counts(const std::string& word) {
    for (const char* known : {"advance", "within", "takes", "for", "times", "repeat"}) {
        if (word == known)
            return true;
    }
    return false;
}

static bool make_smaller(Failing* failing, size_t at, const Options& options) {
    std::string text = failing->lines[at];
    std::vector<sim::RawToken> tokens;
    sim::split(&text, &tokens);
    for (size_t i = 1; i < tokens.size(); ++i) {
        const std::string& word = tokens[i].token.text;
        if (!counts(tokens[i - 1].token.text))
            continue;
        for (const std::string& less : smaller(word)) {
            Lines lines = failing->lines;
            lines[at] = text.substr(0, tokens[i].end - word.size()) + less + text.substr(tokens[i].end);
            if (take_if_failing(failing, lines, options))
                return true;
        }
    }
    return false;
}

// ---- the schedule ----

static std::vector<PassedPoint> changes_of(const Source& source, const Options& options, std::uint64_t seed,
                                           std::string* message) {
    sim::Machine machine(seed);
    machine.schedule.record_changes = true;
    *message = run_on(machine, source, options).message;
    return machine.schedule.passed;
}

static std::vector<Choice> choices_in(const std::vector<PassedPoint>& passed) {
    std::vector<Choice> choices;
    choices.reserve(passed.size());
    for (const PassedPoint& point : passed)
        choices.push_back(point.choice);
    return choices;
}

// Takes choices away, halves first, as long as the run fails alike.
static std::vector<PassedPoint> fewest_changes(const Source& source, const Failing& failing,
                                               Options* options) {
    std::string message;
    std::vector<PassedPoint> passed = changes_of(source, *options, failing.seed, &message);
    options->scheduled = true;
    options->choices = choices_in(passed);
    for (size_t count = std::max<size_t>(options->choices.size() / 2, 1); count > 0; count /= 2) {
        for (size_t at = options->choices.size(); at-- > 0;) {
            if (at + count > options->choices.size())
                continue;
            Options fewer = *options;
            const auto first = fewer.choices.begin() + static_cast<std::ptrdiff_t>(at);
            fewer.choices.erase(first, first + static_cast<std::ptrdiff_t>(count));
            changes_of(source, fewer, failing.seed, &message);
            if (message == failing.message)
                *options = fewer;
        }
    }
    return changes_of(source, *options, failing.seed, &message);
}

// Prints the script, and above it, as comments, what fails and under which schedule.
static void print_shrunk(const Failing& failing, Options options) {
    const Source source = source_of(failing.path, failing.lines);
    const std::vector<PassedPoint> passed = fewest_changes(source, failing, &options);
    const std::string choices = sim::shown_choices(options.choices);
    say("# " + failing.path + ", seed " + std::to_string(failing.seed) + ", with " +
        std::to_string(failing.lines.size()) + " commands and " + std::to_string(passed.size()) +
        " choices of the schedule: " + failing.message + "\n# repeat with: zorpmsim --seed " +
        std::to_string(failing.seed) + " --schedule " + (choices.empty() ? "0:0" : choices) + " THIS\n" +
        shown_schedule(passed, "#   ") + joined(failing.lines));
    flush_output();
}

static int shrink_source(const Source& source, const Options& options) {
    Failing failing;
    failing.path = source.path;
    failing.seed = options.seed;
    add_lines(source.text, source.path, 0, &failing.lines);
    failing.message = run_quietly(source, options, options.seed).message;
    failing.is_race = options.seed != 0 && run_quietly(source, options, 0).exit_code == EXIT_HOLDS;
    if (failing.message.empty() || sim::interrupted()) {
        std::fprintf(stderr, "%s: it does not fail under seed %llu\n", source.path.c_str(),
                     static_cast<unsigned long long>(options.seed));
        return EXIT_UNUSABLE;
    }
    bool any = true;
    while (any && !sim::interrupted()) {
        any = false;
        for (size_t count = failing.lines.size() / 2; count > 0; count /= 2)
            any = leave_out(&failing, count, options) || any;
        any = open_blocks(&failing, options) || any;
        for (size_t at = failing.lines.size(); at-- > 0;) {
            while (make_smaller(&failing, at, options) && !sim::interrupted())
                any = true;
        }
    }
    const pid_t process = start_process([&] { print_shrunk(failing, options); }); // the product may crash
    return process > 0 && exit_status_of(process) == 0 ? EXIT_FAILS : EXIT_UNUSABLE;
}

int shrink_sources(const std::vector<Source>& sources, const Options& options) {
    int exit_code = EXIT_HOLDS;
    for (const Source& source : sources)
        exit_code = std::max(exit_code, shrink_source(source, options));
    return exit_code;
}
