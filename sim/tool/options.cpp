#include "sim/tool/options.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "sim/machine/text.h"
#include "sim/script/nearest.h"

namespace {

// Reads the option's value ("" when it takes none); false when it cannot be used.
using Reader = bool (*)(const std::string& value, Options* options);

struct Option {
    const char* name;
    const char* takes; // "" for none; the value stands behind the name, or behind it and =
    Reader read;
    const char* help;
};

} // namespace

static bool read_count(const std::string& text, std::uint64_t* value) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    const std::string digits = hex ? text.substr(2) : text;
    if (digits.empty() ||
        digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos)
        return false;
    errno = 0;
    *value = std::strtoull(digits.c_str(), nullptr, hex ? 16 : 10);
    return errno == 0;
}

static bool read_seed(const std::string& value, Options* options) {
    return read_count(value, &options->seed);
}

// N: 1 to N; A..B.
static bool read_seeds(const std::string& value, Options* options) {
    options->mode = Mode::Seeds;
    const size_t dots = value.find("..");
    options->first_seed = 1;
    if (dots == std::string::npos)
        return read_count(value, &options->last_seed) && options->last_seed >= 1;
    return read_count(value.substr(0, dots), &options->first_seed) &&
           read_count(value.substr(dots + 2), &options->last_seed) &&
           options->first_seed <= options->last_seed;
}

static bool read_jobs(const std::string& value, Options* options) {
    std::uint64_t jobs = 0;
    if (!read_count(value, &jobs) || jobs < 1 || jobs > 1024)
        return false;
    options->jobs = static_cast<unsigned>(jobs);
    return true;
}

static bool read_limit(const std::string& value, Options* options) {
    return read_count(value, &options->limit) && options->limit != 0;
}

// ---- what is shown ----

static bool set_trace_all(const std::string&, Options* options) {
    return options->view.all = true;
}

static bool set_read(const std::string&, Options* options) {
    return options->view.read = true;
}

static bool set_plain(const std::string&, Options* options) {
    options->view.read = false;
    return true;
}

static bool read_trace(const std::string& value, Options* options) {
    return sim::read_kinds(value, &options->view.kinds);
}

static bool read_thread(const std::string& value, Options* options) {
    options->view.thread = value;
    return !value.empty();
}

static bool read_page(const std::string& value, Options* options) {
    options->page = value;
    return options->view.quiet = !value.empty();
}

static bool read_perfetto(const std::string& value, Options* options) {
    options->perfetto = value;
    return options->view.quiet = !value.empty();
}

static bool read_from(const std::string& value, Options* options) {
    return sim::read_time_bound(value, &options->view.from);
}

static bool read_to(const std::string& value, Options* options) {
    return sim::read_time_bound(value, &options->view.to);
}

// ---- what is done ----

static bool read_schedule(const std::string& value, Options* options) {
    options->scheduled = true;
    return sim::read_choices(value, &options->choices);
}

static bool read_diff(const std::string& value, Options* options) {
    const size_t blank = value.find(' ');
    options->mode = Mode::Diff;
    return read_count(value.substr(0, blank), &options->first_seed) &&
           read_count(value.substr(blank + 1), &options->last_seed);
}

static bool read_command(const std::string& value, Options* options) {
    options->mode = Mode::Help;
    options->command = value;
    return true;
}

template <bool Options::*Flag> static bool set(const std::string&, Options* options) {
    return options->*Flag = true;
}

template <Mode Wanted> static bool set_mode(const std::string&, Options* options) {
    options->mode = Wanted;
    return true;
}

// clang-format off
static const Option g_options[] = {
    {"-i",          "",          set_mode<Mode::Interactive>, "commands from the keyboard (or a pipe), one after the other, behind those of the files"},
    {"--seed",      "N",         read_seed,                "the threads run in another, repeatable order"},
    {"--seeds",     "N|A..B",    read_seeds,               "each file under each of these seeds, quiet; the first that fails is named"},
    {"--jobs",      "N",         read_jobs,                "with so many processes at once (as many as there are processors)"},
    {"--all",       "",          set<&Options::every_seed>, "behind the first seed that fails too: they are counted"},
    {"--explore",   "",          set_mode<Mode::Explore>,  "every schedule of each `together` and `after` that overtakes twice at most"},
    {"--limit",     "N",         read_limit,               "so many schedules of them"},
    {"--shrink",    "",          set_mode<Mode::Shrink>,   "the shortest script that fails as this one does under --seed"},
    {"--diff",      "A B",       read_diff,                "where the runs of two seeds part"},
    {"--schedule",  "LINE.POINT:PICK,...", read_schedule,       "the threads run as a search has printed it"},
    {"--atomics",   "",          set<&Options::atomics>,   "threads are overtaken between two atomics too, as half the sweeps do"},
    {"--strict",    "",          set<&Options::strict>,    "a file that expects nothing fails"},
    {"--trace-all", "",          set_trace_all, "shows reads, opens, closes, waits and the service's own messages too"},
    {"--read",      "",       set_read,       "the trace for people: with meanings, folded; so on a terminal"},
    {"--plain",     "",       set_plain,      "the raw trace; so where the output is no terminal"},
    {"--trace",     "KIND,...", read_trace,   "only requests, registry, opens, waits, says or calls"},
    {"--thread",    "NAME",   read_thread,    "only this thread"},
    {"--from",      "TIME",   read_from,      "from here on: 1805 (seconds of virtual time), 30m, 09:30:03 (of the first day)"},
    {"--to",        "TIME",   read_to,        "up to here"},
    {"--page",      "FILE.html", read_page,   "writes the run of one file as a page to look at, instead of the trace"},
    {"--perfetto",  "FILE.json", read_perfetto, "writes it as trace events, for Perfetto and chrome://tracing"},
    {"--help",      "[COMMAND]", read_command,             "this, or what a command of the language takes"},
    {"--version",   "",          set_mode<Mode::Version>,  "which this is"},
};
// clang-format on

static const Option* find_option(const std::string& name) {
    for (const Option& option : g_options) {
        if (option.name == name)
            return &option;
    }
    return nullptr;
}

static bool unusable(const std::string& what) {
    std::fprintf(stderr, "zorpmsim: %s\n", what.c_str());
    return false;
}

static bool no_such_option(const std::string& name) {
    std::vector<std::string> names;
    for (const Option& option : g_options)
        names.emplace_back(option.name);
    return unusable("no such option: " + name + sim::suggestion(name, names));
}

std::string shown_options() {
    std::string text;
    for (const Option& option : g_options)
        text +=
            sim::format("  %-26s %s\n", (std::string(option.name) + " " + option.takes).c_str(), option.help);
    return text;
}

std::string atomics_option(const Options& options) {
    return options.atomics ? " --atomics" : "";
}

static bool usage() {
    std::fprintf(stderr, "zorpmsim [OPTION]... FILE...\n%s", shown_options().c_str());
    return false;
}

// The value of an option from the arguments behind it: one for each word of `takes`; [WORD]: all up to the
// next option. False when there are too few.
static bool take_value(const Option& option, int count, char** arguments, int* at, std::string* value) {
    const std::string_view takes = option.takes;
    const bool optional = takes.starts_with('[');
    size_t wanted = takes.empty() ? 0 : static_cast<size_t>(std::count(takes.begin(), takes.end(), ' ')) + 1;
    while ((optional || wanted > 0) && *at + 1 < count) {
        if (optional && arguments[*at + 1][0] == '-')
            break;
        *value += (value->empty() ? "" : " ") + std::string(arguments[++*at]);
        wanted -= wanted > 0;
    }
    return optional || wanted == 0;
}

static bool read_option(int count, char** arguments, int* at, Options* options) {
    const std::string argument = arguments[*at];
    const size_t equals = argument.find('=');
    const std::string name = argument.substr(0, equals);
    const Option* option = find_option(name);
    if (option == nullptr)
        return no_such_option(name);
    std::string value;
    if (equals != std::string::npos && option->takes[0] == 0)
        return unusable(name + " takes no value");
    if (equals != std::string::npos)
        value = argument.substr(equals + 1);
    else if (!take_value(*option, count, arguments, at, &value))
        return unusable(name + " takes " + option->takes);
    return option->read(value, options) ||
           unusable(name + " takes " + option->takes + ", not \"" + value + "\"");
}

bool read_options(int count, char** arguments, Options* options) {
    sim::look_at_terminal(&options->view);
    for (int i = 1; i < count; ++i) {
        const std::string argument = arguments[i];
        if (!argument.starts_with('-') || argument == "-")
            options->files.push_back(argument);
        else if (!read_option(count, arguments, &i, options))
            return false;
    }
    if ((!options->page.empty() || !options->perfetto.empty()) && options->files.size() > 1)
        return unusable("--page and --perfetto take one script");
    const bool no_files =
        options->mode == Mode::Help || options->mode == Mode::Version || options->mode == Mode::Interactive;
    return no_files || !options->files.empty() || usage();
}
