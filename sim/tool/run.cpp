#include "sim/tool/run.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <unistd.h>

#include "sim/machine/machine.h"
#include "sim/script/source.h"
#include "sim/tool/page.h"

using namespace sim;

static std::string g_crashBeginning; // made before: a crashed process allocates nothing

static void crashed(int signal_number) {
    std::fflush(stdout);
    write_rest();
    char text[512];
    const Place& place = running_place();
    const int length = std::snprintf(text, sizeof(text), "%s%s:%d: the product crashed (signal %d)\n",
                                     g_crashBeginning.c_str(), place.file.c_str(), place.line, signal_number);
    if (length > 0 && write(STDOUT_FILENO, text, static_cast<size_t>(length)) < 0)
        _exit(EXIT_OUTPUT);
    _exit(EXIT_FAILS);
}

void set_crash_beginning(const std::string& beginning) {
    g_crashBeginning = beginning;
}

void watch_for_crashes(void (*on_crash)(int)) {
    static char stack[64 * 1024];
    stack_t alternate = {};
    alternate.ss_sp = stack;
    alternate.ss_size = sizeof(stack);
    sigaltstack(&alternate, nullptr);
    struct sigaction action = {};
    action.sa_handler = on_crash != nullptr ? on_crash : crashed;
    action.sa_flags = SA_ONSTACK;
    for (const int number : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGALRM})
        sigaction(number, &action, nullptr);
}

static bool read_source(const std::string& path, Source* source) {
    std::vector<Fault> faults;
    std::string text;
    const std::string error = read_script(path, &text);
    source->path = path;
    if (error.empty())
        source->script = compile_script(text, path, &faults);
    else
        faults.push_back({{path, 0}, error});
    for (const Fault& fault : faults)
        std::fprintf(stderr, "%s%s\n", shown_place(fault.place).c_str(), fault.what.c_str());
    return source->script != nullptr;
}

bool read_sources(const Options& options, std::vector<Source>* sources) {
    bool usable = true;
    for (const std::string& path : options.files) {
        sources->emplace_back();
        usable = read_source(path, &sources->back()) && usable;
    }
    return usable;
}

ScriptResult run_quietly(const Source& source, std::uint64_t seed) {
    Machine machine(seed);
    return run_script(*source.script);
}

std::string shown_failure(const ScriptResult& result) {
    return shown_place(result.place) + result.message;
}

// The run in the files that are asked for; an exit status.
static int write_files(const Source& source, const Options& options) {
    const std::vector<Moment>& moments = moments_of_run();
    const bool written = (options.page.empty() || write_page(options.page, moments, source.path)) &&
                         (options.perfetto.empty() || write_trace_events(options.perfetto, moments));
    if (!written)
        std::fprintf(stderr, "zorpmsim: the file cannot be written\n");
    return written ? EXIT_HOLDS : EXIT_OUTPUT;
}

int run_source(const Source& source, const Options& options) {
    Machine machine(options.seed);
    machine.keep_details = wants_details(options.view);
    begin_timeline(options.view);
    const ScriptResult result = run_script(*source.script);
    end_timeline();
    if (result.exit_code == 0)
        std::printf("%s: %u expectations hold\n", source.path.c_str(), result.expectations);
    else
        std::printf("%s%s\n", shown_failure(result).c_str(), result.context.c_str());
    return std::max(result.exit_code, write_files(source, options));
}
