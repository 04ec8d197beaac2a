#include "sim/tool/keyboard.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <histedit.h>
#include <iostream>
#include <unistd.h>
#include <utility>

#include "sim/script/commands.h"
#include "sim/script/expectations.h"
#include "sim/script/tokens.h"
#include "sim/tool/meanings.h"
#include "sim/tool/output.h"
#include "sim/windows/scm.h"

constexpr int HISTORY_LINES = 1000;

static size_t g_openBlocks = 0; // that the lines so far have begun

// ---- lines ----

namespace {

struct Keyboard {
    EditLine* editor = nullptr; // null: no terminal
    History* history = nullptr;
};

} // namespace

static const char* prompt(EditLine*) {
    static std::string text;
    text = g_openBlocks != 0 ? "... " : sim::format("%.3f> ", static_cast<double>(sim::machine().now) / 1000);
    return text.c_str();
}

static std::string common_beginning(const std::vector<std::string>& words) {
    std::string beginning = words.front();
    for (const std::string& word : words) {
        const auto parting = std::mismatch(beginning.begin(), beginning.end(), word.begin(), word.end());
        beginning.erase(parting.first, beginning.end());
    }
    return beginning;
}

static std::vector<std::string> words_behind(const std::string& text) {
    const size_t blank = text.find(' ');
    const std::string command = text.substr(0, blank);
    if (blank == std::string::npos || (command != "event" && command != "control"))
        return sim::completions(text);
    std::vector<std::string> codes = command == "event" ? sim::known_events() : sim::known_controls();
    std::erase_if(codes, [&](const std::string& code) { return !code.starts_with(text.substr(blank + 1)); });
    return codes;
}

// The tabulator: adds what is sure, or lists what is possible.
static unsigned char complete(EditLine* editor, int) {
    const LineInfo* line = el_line(editor);
    const std::string text(line->buffer, line->cursor);
    const size_t begun = text.size() - (text.find_last_of(' ') + 1);
    const std::vector<std::string> words = words_behind(text);
    if (words.empty())
        return CC_ERROR;
    const std::string addition = common_beginning(words).substr(begun) + (words.size() == 1 ? " " : "");
    if (!addition.empty())
        return el_insertstr(editor, addition.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    std::string list;
    for (const std::string& word : words)
        list += "  " + word;
    say("\n" + list + "\n");
    flush_output();
    return CC_REDISPLAY;
}

static void open_keyboard(Keyboard* keyboard) {
    if (isatty(STDIN_FILENO) == 0)
        return;
    struct sigaction action = {};
    sigaction(SIGINT, nullptr, &action);
    action.sa_flags &= ~SA_RESTART; // it ends the line that is awaited
    sigaction(SIGINT, &action, nullptr);
    HistEvent event;
    keyboard->editor = el_init("zorpmsim", stdin, stdout, stderr);
    keyboard->history = history_init();
    history(keyboard->history, &event, H_SETSIZE, HISTORY_LINES);
    el_set(keyboard->editor, EL_PROMPT, prompt);
    el_set(keyboard->editor, EL_EDITOR, "emacs");
    el_set(keyboard->editor, EL_HIST, history, keyboard->history);
    el_set(keyboard->editor, EL_ADDFN, "complete", "the words that can stand here", complete);
    el_set(keyboard->editor, EL_BIND, "^I", "complete", nullptr);
    el_source(keyboard->editor, nullptr);
}

static void close_keyboard(Keyboard* keyboard) {
    if (keyboard->editor == nullptr)
        return;
    el_end(keyboard->editor);
    history_end(keyboard->history);
}

// False at the end of the input.
static bool next_line(Keyboard* keyboard, std::string* line) {
    if (keyboard->editor == nullptr)
        return static_cast<bool>(std::getline(std::cin, *line));
    int length = 0;
    const char* text = el_gets(keyboard->editor, &length);
    if (text == nullptr || length <= 0)
        return false;
    HistEvent event;
    if (length > 1)
        history(keyboard->history, &event, H_ENTER, text);
    *line = std::string(text, static_cast<size_t>(length));
    while (!line->empty() && (line->back() == '\n' || line->back() == '\r'))
        line->pop_back();
    return true;
}

// How the line changes the number of blocks that are open.
static void count_blocks(std::string line) {
    std::vector<sim::RawToken> tokens;
    sim::split(&line, &tokens);
    const std::string word = tokens.empty() ? "" : tokens[0].token.text;
    if (word == "together" || word == "repeat")
        ++g_openBlocks;
    else if (word == "end" && g_openBlocks != 0)
        --g_openBlocks;
}

// ---- commands ----

// Tells what went wrong; what comes later is told anew.
static int tell(const sim::ScriptResult& result, sim::Expectations* expectations) {
    sim::flush_timeline();
    if (result.exit_code != EXIT_HOLDS)
        say(sim::format("%s%s\n", result.message.c_str(), result.context.c_str()));
    flush_output();
    expectations->failed = false;
    expectations->pattern.clear();
    sim::machine().violations.clear();
    return result.exit_code;
}

static int run_lines(const std::string& text, sim::Expectations* expectations) {
    std::vector<sim::Fault> faults;
    const std::shared_ptr<sim::Script> script = sim::compile_script(text, "", &faults);
    for (const sim::Fault& fault : faults)
        say((fault.place.file.empty() ? "" : sim::shown_place(fault.place)) + fault.what + "\n");
    flush_output();
    return script != nullptr ? tell(sim::run_on_script(*script, expectations), expectations) : EXIT_UNUSABLE;
}

static int run_typed(sim::Expectations* expectations) {
    Keyboard keyboard;
    int exit_code = EXIT_HOLDS;
    std::string line;
    std::string lines; // of a block that is not ended
    open_keyboard(&keyboard);
    while (!sim::interrupted() && next_line(&keyboard, &line)) {
        count_blocks(line);
        lines += line + "\n";
        if (g_openBlocks == 0)
            exit_code = std::max(exit_code, run_lines(std::exchange(lines, ""), expectations));
    }
    if (!lines.empty())
        exit_code = std::max(exit_code, run_lines(lines, expectations));
    if (keyboard.editor != nullptr)
        say("\n");
    close_keyboard(&keyboard);
    return exit_code;
}

int run_keyboard(const std::vector<Source>& sources, const Options& options) {
    sim::Machine machine(options.seed);
    machine.hands_over_at_atomics = options.atomics;
    machine.keep_details = sim::wants_details(options.view);
    sim::begin_timeline(options.view);
    machine.on_show = print_shown;
    int exit_code = EXIT_HOLDS;
    {
        sim::Expectations expectations;
        for (const Source& source : sources)
            exit_code =
                std::max(exit_code, tell(sim::run_on_script(*source.script, &expectations), &expectations));
        exit_code = std::max(exit_code, run_typed(&expectations));
        if (sim::service_process() != nullptr)
            exit_code = std::max(exit_code, run_lines("stop", &expectations));
    }
    sim::end_timeline();
    flush_output();
    return sim::interrupted() ? EXIT_INTERRUPTED : exit_code;
}
