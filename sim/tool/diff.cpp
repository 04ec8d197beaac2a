#include "sim/tool/diff.h"

#include <algorithm>

#include "sim/tool/output.h"

constexpr size_t LINES_BEFORE = 8;
constexpr size_t LINES_BEHIND = 12;

static std::vector<sim::TraceLine> trace_of(const Source& source, const Options& options,
                                            std::uint64_t seed) {
    sim::Machine machine(seed);
    run_on(machine, source, options);
    return machine.trace;
}

static std::string shown(const sim::TraceLine& line) {
    return sim::format("%.3f ", static_cast<double>(line.time) / 1000) + line.thread + " " + line.text;
}

static void print_side(const char* sign, const std::vector<sim::TraceLine>& lines, size_t from) {
    for (size_t i = from; i < std::min(from + LINES_BEHIND, lines.size()); ++i)
        say(std::string(sign) + shown(lines[i]) + "\n");
    if (from >= lines.size())
        say(std::string(sign) + "(the run has ended)\n");
}

static bool runs_differ(const Source& source, const Options& options) {
    const std::vector<sim::TraceLine> a = trace_of(source, options, options.first_seed);
    const std::vector<sim::TraceLine> b = trace_of(source, options, options.last_seed);
    size_t at = 0;
    while (at < a.size() && at < b.size() && shown(a[at]) == shown(b[at]))
        ++at;
    if (at == a.size() && at == b.size()) {
        say(source.path + ": both runs are the same\n");
        return false;
    }
    say(source.path + ": the runs part in line " + std::to_string(at + 1) + " of their traces\n");
    for (size_t i = at - std::min(at, LINES_BEFORE); i < at; ++i)
        say("  " + shown(a[i]) + "\n");
    say("seed " + std::to_string(options.first_seed) + ":\n");
    print_side("- ", a, at);
    say("seed " + std::to_string(options.last_seed) + ":\n");
    print_side("+ ", b, at);
    return true;
}

int diff_sources(const std::vector<Source>& sources, const Options& options) {
    bool differ = false;
    for (const Source& source : sources)
        differ = runs_differ(source, options) || differ;
    return differ ? EXIT_FAILS : EXIT_HOLDS;
}
