// zorpmsim [--seed N] [--trace-all] FILE...: the notebook on the bench.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <unistd.h>

#include "sim/machine/machine.h"
#include "sim/script/scenario.h"

using namespace sim;

namespace {

struct Source {
    std::string path;
    std::shared_ptr<Script> script;
};

} // namespace

static const char* g_currentFile = "";

static void print_line(const TraceLine& line) {
    if (line.thread.empty()) { // a heading of the script
        std::printf("\n== %s\n", line.text.c_str());
        return;
    }
    std::printf("%.3f %s %s\n", static_cast<double>(line.time) / 1000, line.thread.c_str(),
                line.text.c_str());
}

// The product crashed: say where in the script, as far as that can be said from here.
static void crashed(int signal_number) {
    std::fflush(stdout);
    char text[512];
    const int length = std::snprintf(text, sizeof(text), "%s:%d: the product crashed (signal %d)\n",
                                     g_currentFile, running_line(), signal_number);
    if (length > 0 && write(STDOUT_FILENO, text, static_cast<size_t>(length)) < 0)
        _exit(1);
    _exit(1);
}

static void watch_for_crashes() {
    static char stack[64 * 1024];
    stack_t alternate = {};
    alternate.ss_sp = stack;
    alternate.ss_size = sizeof(stack);
    sigaltstack(&alternate, nullptr);
    struct sigaction action = {};
    action.sa_handler = crashed;
    action.sa_flags = SA_ONSTACK;
    for (const int number : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGALRM})
        sigaction(number, &action, nullptr);
}

static bool read_source(const char* path, Source* source) {
    std::ifstream file(path);
    file.peek(); // a directory opens, but cannot be read
    if (!file.is_open() || file.bad()) {
        std::printf("%s:0: cannot be read\n", path);
        return false;
    }
    ScriptResult result;
    source->path = path;
    source->script = compile_script({std::istreambuf_iterator<char>(file), {}}, &result);
    if (source->script == nullptr)
        std::printf("%s:%d: %s\n", path, result.line, result.message.c_str());
    return source->script != nullptr;
}

static int run_source(Source& source, std::uint64_t seed, bool all) {
    g_currentFile = source.path.c_str();
    Machine machine(seed);
    machine.keep_details = all;
    machine.on_line = print_line;
    const ScriptResult result = run_script(*source.script);
    if (result.exit_code == 0)
        std::printf("%s: %u expectations hold\n", source.path.c_str(), result.expectations);
    else
        std::printf("%s:%d: %s\n", source.path.c_str(), result.line, result.message.c_str());
    return result.exit_code;
}

int main(int count, char** arguments) {
    std::uint64_t seed = 0;
    bool all = false;
    std::vector<Source> sources;
    bool usable = true;
    for (int i = 1; i < count; ++i) {
        const std::string argument = arguments[i];
        if (argument == "--seed" && i + 1 < count) {
            char* end = nullptr;
            seed = std::strtoull(arguments[++i], &end, 0);
            if (*end != 0 || end == arguments[i]) {
                std::fprintf(stderr, "--seed takes a number\n");
                return 2;
            }
        } else if (argument == "--trace-all") {
            all = true;
        } else {
            sources.emplace_back();
            usable = read_source(arguments[i], &sources.back()) && usable;
        }
    }
    if (sources.empty()) {
        std::fprintf(stderr, "zorpmsim [--seed N] [--trace-all] FILE...\n");
        return 2;
    }
    if (!usable)
        return 2;
    watch_for_crashes();
    int exit_code = 0;
    for (Source& source : sources) {
        if (run_source(source, seed, all) != 0)
            exit_code = 1;
    }
    return exit_code;
}
