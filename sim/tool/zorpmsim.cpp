// zorpmsim [OPTION]... FILE...: the notebook on the bench.
#include <algorithm>

#include "sim/tool/run.h"
#include "sim/tool/search.h"

static int run_sources(const std::vector<Source>& sources, const Options& options) {
    int exit_code = EXIT_HOLDS;
    for (const Source& source : sources)
        exit_code = std::max(exit_code, run_source(source, options));
    return exit_code;
}

// clang-format off
static const struct { Mode mode; int (*run)(const std::vector<Source>&, const Options&); } g_modes[] = {
    {Mode::Run,   run_sources},
    {Mode::Seeds, search_seeds},
};
// clang-format on

int main(int count, char** arguments) {
    Options options;
    std::vector<Source> sources;
    if (!read_options(count, arguments, &options) || !read_sources(options, &sources))
        return EXIT_UNUSABLE;
    watch_for_crashes();
    for (const auto& row : g_modes) {
        if (row.mode == options.mode)
            return row.run(sources, options);
    }
    return EXIT_UNUSABLE;
}
