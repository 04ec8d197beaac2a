#include "sim/tool/run.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <unistd.h>

#include "sim/machine/image.h"
#include "sim/machine/machine.h"
#include "sim/script/show.h"
#include "sim/script/source.h"
#include "sim/tool/output.h"
#include "sim/tool/page.h"

using namespace sim;

static std::string g_crashBeginning; // made before: a crashed process allocates nothing

static void crashed(int signal_number) {
    std::fflush(stdout);
    write_rest();
    char text[512];
    const Place& place = running_place();
    const bool runs_on = signal_number == SIGALRM && interrupted();
    const int length =
        runs_on ? std::snprintf(text, sizeof(text), "%s%s:%d: interrupted, the product runs on\n",
                                g_crashBeginning.c_str(), place.file.c_str(), place.line)
                : std::snprintf(text, sizeof(text), "%s%s:%d: the product crashed (signal %d)\n",
                                g_crashBeginning.c_str(), place.file.c_str(), place.line, signal_number);
    if (length > 0 && write(STDOUT_FILENO, text, static_cast<size_t>(length)) < 0)
        _exit(EXIT_OUTPUT);
    image_remove_copies();
    _exit(runs_on ? EXIT_INTERRUPTED : EXIT_FAILS);
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

bool compile_source(Source* source, std::vector<Fault>* faults) {
    source->script = compile_script(source->text, source->path, faults);
    return source->script != nullptr;
}

static bool read_source(const std::string& path, Source* source) {
    std::vector<Fault> faults;
    const std::string error = read_script(path, &source->text);
    source->path = path;
    if (!error.empty())
        faults.push_back({{path, 0}, error});
    else if (compile_source(source, &faults) && expectations_in(*source->script) == 0)
        std::fprintf(stderr, "%s: it expects nothing\n", path.c_str());
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

ScriptResult run_on(Machine& machine, const Source& source, const Options& options) {
    machine.hands_over_at_atomics = options.atomics;
    if (options.scheduled) {
        machine.schedule.policy = Policy::Chosen;
        machine.schedule.chosen = options.choices;
    }
    ScriptResult result = run_script(*source.script);
    if (interrupted())
        alarm(0); // it has come to rest
    if (result.exit_code == 0 && options.strict && expectations_in(*source.script) == 0) {
        result.exit_code = EXIT_FAILS;
        result.place = {source.path, 0};
        result.message = "it expects nothing (--strict)";
    }
    return result;
}

ScriptResult run_quietly(const Source& source, const Options& options, std::uint64_t seed) {
    Machine machine(seed);
    machine.forget_trace = true;
    return run_on(machine, source, options);
}

std::string shown_failure(const ScriptResult& result) {
    return shown_place(result.place) + shown_text(result.message);
}

// The verdict stands above what explains it, and once more at the very end.
static void print_failure(const ScriptResult& result) {
    say(shown_failure(result) + result.context + "\n");
    show_state();
    say(shown_failure(result) + "\n");
}

static bool told(bool written, const std::string& path) {
    if (!written)
        std::fprintf(stderr, "zorpmsim: %s: cannot be written\n", path.c_str());
    return written;
}

// The run in the files that are asked for; an exit status.
static int write_files(const Source& source, const Options& options) {
    const std::vector<Moment>& moments = moments_of_run();
    const bool written =
        (options.page.empty() || told(write_page(options.page, moments, source.path), options.page)) &&
        (options.perfetto.empty() || told(write_trace_events(options.perfetto, moments), options.perfetto));
    return written ? EXIT_HOLDS : EXIT_OUTPUT;
}

int run_source(const Source& source, const Options& options) {
    Machine machine(options.seed);
    machine.keep_details = wants_details(options.view);
    machine.forget_trace = true;
    ViewOptions view = options.view;
    view.keep = !options.page.empty() || !options.perfetto.empty();
    begin_timeline(view);
    machine.on_show = print_shown;
    const ScriptResult result = run_on(machine, source, options);
    end_timeline();
    if (result.exit_code == 0 && result.effects != 0)
        say(format("%s: %zu of %zu effects as recorded\n", source.path.c_str(), result.effects,
                   result.effects));
    else if (result.exit_code == 0)
        say(format("%s: %u expectations hold\n", source.path.c_str(), result.expectations));
    else if (interrupted())
        say(shown_failure(result) + format(", %u expectations held\n", result.expectations));
    else
        print_failure(result);
    flush_output();
    return std::max(result.exit_code, write_files(source, options));
}
