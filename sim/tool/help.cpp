#include "sim/tool/help.h"

#include <cstdio>

#include "sim/script/commands.h"
#include "sim/script/nearest.h"
#include "sim/tool/output.h"

static std::string shown_command(const sim::Command& command) {
    return std::string("  ") + command.words + " " + command.help + "\n";
}

static int print_commands(const std::string& beginning) {
    std::vector<std::string> words;
    bool found = false;
    for (const sim::Command* command : sim::sorted_commands()) {
        words.emplace_back(command->words);
        if (words.back() != beginning && !words.back().starts_with(beginning + " "))
            continue;
        say(shown_command(*command));
        found = true;
    }
    if (!found)
        std::fprintf(stderr, "zorpmsim: no such command: %s%s\n", beginning.c_str(),
                     sim::suggestion(beginning, words).c_str());
    return found ? EXIT_HOLDS : EXIT_UNUSABLE;
}

int print_help(const Options& options) {
    if (!options.command.empty())
        return print_commands(options.command);
    say("zorpmsim [OPTION]... FILE...: the notebook on the bench (a FILE of - is standard "
        "input)\n\nOptions:\n");
    say(shown_options());
    say("\nCommands:\n");
    for (const sim::Command* command : sim::sorted_commands())
        say(shown_command(*command));
    say("\nExit status: 0 all expectations hold, 1 one does not (or a violation, or a crash), 2 a script or "
        "the\n"
        "command line is unusable, 3 the output cannot be written, 130 interrupted.\n");
    return EXIT_HOLDS;
}

int print_version() {
    say("zorpmsim " ZORPMSIM_VERSION "\n");
    return EXIT_HOLDS;
}
