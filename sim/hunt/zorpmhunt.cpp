// zorpmhunt GENERATOR [--seed N] [--count N] [--seconds N] [--jobs N]: random runs of the notebook on the
// bench.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sim/hunt/runner.h"
#include "sim/machine/machine.h"
#include "sim/tool/options.h"
#include "sim/tool/output.h"

static const hunt::Generator* const g_generators[] = {&hunt::g_hunt, &hunt::g_soak, &hunt::g_fuzz};

static int usage() {
    std::fprintf(stderr, "zorpmhunt GENERATOR [--seed N] [--count N] [--seconds N] [--jobs N]\n"
                         "What fails leaves its script in build/hunt/; without --seed it goes on where the "
                         "run before ended.\n");
    for (const hunt::Generator* generator : g_generators)
        std::fprintf(stderr, "  %-6s %s\n", generator->name, generator->help);
    return EXIT_UNUSABLE;
}

static bool read_limit(const char* name, const char* value, hunt::Limits* limits) {
    char* end = nullptr;
    const std::uint64_t number = std::strtoull(value, &end, 0);
    if (end == value || *end != 0)
        return false;
    if (std::strcmp(name, "--seed") == 0)
        limits->seed = number;
    else if (std::strcmp(name, "--count") == 0)
        limits->count = number;
    else if (std::strcmp(name, "--seconds") == 0)
        limits->seconds = static_cast<unsigned>(number);
    else if (std::strcmp(name, "--jobs") == 0)
        limits->jobs = static_cast<unsigned>(number);
    else
        return false;
    return true;
}

static void interrupt(int) {
    sim::interrupt_machines();
}

int main(int count, char** arguments) {
    hunt::Limits limits;
    if (count % 2 != 0)
        return usage();
    for (int i = 2; i + 1 < count; i += 2) {
        if (!read_limit(arguments[i], arguments[i + 1], &limits))
            return usage();
    }
    prepare_output();
    std::signal(SIGINT, interrupt);
    std::signal(SIGTERM, interrupt);
    for (const hunt::Generator* generator : g_generators) {
        if (std::strcmp(arguments[1], generator->name) == 0)
            return hunt::run_generator(*generator, limits);
    }
    return usage();
}
