// zorpmsim [OPTION]... FILE...: the notebook on the bench.
#include <algorithm>
#include <csignal>

#include "sim/tool/diff.h"
#include "sim/tool/explore.h"
#include "sim/tool/help.h"
#include "sim/tool/keyboard.h"
#include "sim/tool/output.h"
#include "sim/tool/processes.h"
#include "sim/tool/run.h"
#include "sim/tool/search.h"
#include "sim/tool/shrink.h"

constexpr unsigned AFTER_INTERRUPT_S = 1; // a machine that does not come to rest by then is ended

static int run_sources(const std::vector<Source>& sources, const Options& options) {
    int exit_code = EXIT_HOLDS;
    for (const Source& source : sources) {
        exit_code = std::max(exit_code, run_source(source, options));
        if (sim::interrupted())
            return EXIT_INTERRUPTED;
    }
    return exit_code;
}

// clang-format off
static const struct { Mode mode; int (*run)(const std::vector<Source>&, const Options&); } g_modes[] = {
    {Mode::Run,     run_sources},
    {Mode::Interactive, run_keyboard},
    {Mode::Seeds,   search_seeds},
    {Mode::Explore, explore_sources},
    {Mode::Shrink,  shrink_sources},
    {Mode::Diff,    diff_sources},
};
// clang-format on

static int run_mode(const Options& options) {
    std::vector<Source> sources;
    if (options.mode == Mode::Help)
        return print_help(options);
    if (options.mode == Mode::Version)
        return print_version();
    if (!read_sources(options, &sources))
        return EXIT_UNUSABLE;
    watch_for_crashes();
    for (const auto& row : g_modes) {
        if (row.mode == options.mode)
            return row.run(sources, options);
    }
    return EXIT_UNUSABLE;
}

// Ends the machines of this process and those that it has started, also those whose product runs on.
static void interrupt(int) {
    sim::interrupt_machines();
    hand_on_interrupt();
    if (sim::have_machine())
        alarm(AFTER_INTERRUPT_S);
}

int main(int count, char** arguments) {
    Options options;
    if (!read_options(count, arguments, &options))
        return EXIT_UNUSABLE;
    prepare_output();
    std::signal(SIGINT, interrupt);
    const int exit_code = run_mode(options);
    flush_output();
    return exit_code;
}
