// Reading scripts: the text becomes lines with actions, and every fault in it is found.
#include <algorithm>

#include "sim/script/nearest.h"
#include "sim/script/scenario.h"
#include "sim/script/script.h"
#include "sim/script/source.h"

namespace sim {

constexpr unsigned DEEPEST_INCLUDE = 16;
constexpr size_t MOST_FAULTS = 1000; // told of a script

namespace {

using LineKind = ScriptLine::Kind;

struct OpenBlock {
    LineKind kind;
    Place begun;
    std::vector<ScriptLine>* lines; // does not move: the list around it grows no more before the block's end
};

struct Reader {
    Script* script;
    std::vector<Fault>* faults;
    Place place;
    std::vector<OpenBlock> blocks;     // the innermost last
    const std::string* file = nullptr; // that is read, one of the script's
    size_t bytes = 0;                  // of all files
    unsigned depth = 0;                // of includes

    void fault(const std::string& what) { faults->push_back({place, shown_text(what)}); }
    std::vector<ScriptLine>& lines() { return blocks.empty() ? script->lines : *blocks.back().lines; }
    bool inside(LineKind kind) const {
        return std::any_of(blocks.begin(), blocks.end(),
                           [kind](const OpenBlock& b) { return b.kind == kind; });
    }
};

} // namespace

static void read_text(Reader* reader, const std::string& text, const std::string& path);

static bool is_looking(Use use) {
    return use == Use::Check || use == Use::Note;
}

// ---- the words of structure ----

static void open_block(Reader* reader, ScriptLine& line) {
    const LineKind kind = line.kind;
    reader->lines().push_back(std::move(line));
    reader->blocks.push_back({kind, reader->place, &reader->lines().back().block});
}

static void read_together(Reader* reader, Tokens&, ScriptLine& line) {
    if (reader->inside(LineKind::Together))
        reader->fault("together inside together");
    line.kind = LineKind::Together;
    line.use = Use::Drive;
    line.at_once = true;
    open_block(reader, line);
}

static void read_repeat(Reader* reader, Tokens& tokens, ScriptLine& line) {
    line.kind = LineKind::Repeat;
    line.count = tokens.number();
    open_block(reader, line);
}

static void read_end(Reader* reader, Tokens&, ScriptLine&) {
    if (reader->blocks.empty())
        reader->fault("end without together or repeat");
    else
        reader->blocks.pop_back();
}

static void read_include(Reader* reader, Tokens& tokens, ScriptLine&) {
    const std::string path = beside(reader->place.file, tokens.word());
    std::string text;
    if (!tokens.error.empty())
        return;
    if (reader->depth == DEEPEST_INCLUDE)
        return reader->fault("files that include each other, or too deep");
    const std::string error = path == "-" ? "standard input cannot be included" : read_script(path, &text);
    if (!error.empty())
        return reader->fault(path + ": " + error);
    const Place outer = reader->place;
    ++reader->depth;
    read_text(reader, text, path);
    --reader->depth;
    reader->place = outer;
}

static void read_command(Reader* reader, const std::vector<RawToken>& raw, const std::string& text);

// `within DURATION COMMAND`, `after DURATION COMMAND`: the command is the one line of a block.
static void read_moment(Reader* reader, Tokens& tokens, ScriptLine& line, bool exact) {
    line.kind = LineKind::Within;
    line.exact = exact;
    line.use = Use::Machine; // what comes in it marks
    line.span = tokens.duration();
    const std::string duration = tokens.list.empty() ? "" : tokens.list[0].text;
    tokens.at = tokens.list.size();
    if (!tokens.error.empty())
        return;
    if (reader->inside(LineKind::Together))
        return reader->fault("no time passes inside together");
    const std::string command = tokens.rest_of_line.substr(duration.size());
    std::string text = command;
    std::vector<RawToken> raw;
    split(&text, &raw);
    const Command* inner = find_command(raw);
    if (raw.empty() || (inner != nullptr && (is_looking(inner->use) || inner->use == Use::Structure)))
        return reader->fault("a command that acts expected: " + command);
    open_block(reader, line);
    read_command(reader, raw, text);
    for (ScriptLine& begun : reader->lines())
        begun.at_once = exact;
    reader->blocks.pop_back();
}

static void read_within(Reader* reader, Tokens& tokens, ScriptLine& line) {
    read_moment(reader, tokens, line, false);
}

static void read_after(Reader* reader, Tokens& tokens, ScriptLine& line) {
    read_moment(reader, tokens, line, true);
}

// clang-format off
static const struct { const char* word; void (*read)(Reader*, Tokens&, ScriptLine&); } g_structure[] = {
    {"together", read_together},
    {"repeat",   read_repeat},
    {"end",      read_end},
    {"include",  read_include},
    {"within",   read_within},
    {"after",    read_after},
};
// clang-format on

// ---- lines ----

static Tokens arguments_of(const std::vector<RawToken>& raw, size_t words, const std::string& text) {
    Tokens tokens;
    for (size_t i = words; i < raw.size(); ++i)
        tokens.list.push_back(raw[i].token);
    const size_t first = text.find_first_not_of(" \t\r", raw[words - 1].end);
    if (first != std::string::npos)
        tokens.rest_of_line = text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
    return tokens;
}

static void add_command(Reader* reader, const Command& command, Tokens& tokens, ScriptLine line) {
    line.action = command.compile(tokens);
    line.use = command.use;
    if (is_looking(command.use) && reader->inside(LineKind::Together))
        tokens.fail("a check inside together");
    reader->script->expectations += command.use == Use::Check;
    reader->script->effects += std::string_view(command.words) == "effect";
    reader->lines().push_back(std::move(line));
}

static void read_command(Reader* reader, const std::vector<RawToken>& raw, const std::string& text) {
    if (raw.empty())
        return;
    const Command* command = find_command(raw);
    if (command == nullptr)
        return reader->fault("no such command: " + text.substr(text.find_first_not_of(" \t")) +
                             suggested_command(raw));
    Tokens tokens = arguments_of(raw, words_in(command->words), text);
    ScriptLine line;
    line.file = reader->file;
    line.number = reader->place.line;
    if (command->use == Use::Structure) {
        for (const auto& row : g_structure) {
            if (std::string_view(row.word) == command->words)
                row.read(reader, tokens, line);
        }
    } else {
        const size_t first = text.find_first_not_of(" \t");
        line.text = text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
        add_command(reader, *command, tokens, std::move(line));
    }
    if (tokens.error.empty() && !tokens.done())
        tokens.fail("more than the command takes: " + tokens.list[tokens.at].text);
    if (!tokens.error.empty())
        reader->fault(tokens.error);
}

static void read_line(Reader* reader, std::string text) {
    std::vector<RawToken> raw;
    if (text.size() > LONGEST_LINE)
        reader->fault("longer than 64 KiB");
    else if (!split(&text, &raw))
        reader->fault("a quote has no end");
    else
        read_command(reader, raw, text);
}

static void read_text(Reader* reader, const std::string& text, const std::string& path) {
    reader->place = {path, 0};
    reader->bytes += text.size();
    if (reader->bytes > LARGEST_SCRIPT)
        return reader->fault("larger than 64 MiB, with all that is included");
    const std::string* outer = reader->file;
    reader->script->files.push_back(path);
    reader->file = &reader->script->files.back();
    const size_t depth = reader->blocks.size();
    size_t at = text.starts_with("\xEF\xBB\xBF") ? 3 : 0; // the mark that some editors put before UTF-8
    while (at < text.size()) {
        const size_t end = std::min(text.find('\n', at), text.size());
        ++reader->place.line;
        if (reader->faults->size() >= MOST_FAULTS)
            return reader->fault("more than 1,000 faults: no further line is read");
        read_line(reader, text.substr(at, end - at));
        at = end + 1;
    }
    while (reader->blocks.size() > depth) {
        const OpenBlock& open = reader->blocks.back();
        reader->place.line = open.begun.line;
        reader->fault(open.kind == LineKind::Together ? "together without end" : "repeat without end");
        reader->blocks.pop_back();
    }
    reader->file = outer;
}

static bool asks_for_trace(const ScriptLine& line) {
    return (line.use == Use::Check && !line.text.starts_with("check ")) ||
           std::any_of(line.block.begin(), line.block.end(), asks_for_trace);
}

// Tells each line whether trace lines are asked for behind it, before the next mark; whether they are at the
// beginning. Behind a repeated block it may come once more.
static bool tell_who_is_asked(std::vector<ScriptLine>* lines, bool asked) {
    for (auto line = lines->rbegin(); line != lines->rend(); ++line) {
        if (line->kind == LineKind::Repeat || line->kind == LineKind::Within)
            asked = tell_who_is_asked(&line->block, asked || asks_for_trace(*line)) || asked;
        line->asked_behind = asked;
        if (line->use == Use::Drive || line->text == "mark")
            asked = false;
        asked = asked || asks_for_trace(*line);
    }
    return asked;
}

std::shared_ptr<Script> compile_script(const std::string& text, const std::string& path,
                                       std::vector<Fault>* faults) {
    auto script = std::make_shared<Script>();
    const size_t before = faults->size();
    Reader reader = {script.get(), faults, {}, {}, nullptr, 0, 0};
    read_text(&reader, text, path);
    tell_who_is_asked(&script->lines, false);
    return faults->size() == before ? script : nullptr;
}

size_t expectations_in(const Script& script) {
    return script.expectations;
}

// ---- commands ----

static const Commands g_commands({
    {"together", Use::Structure, nullptr,
     "... end - the commands between come in one instant, before any thread runs"},
    {"repeat", Use::Structure, nullptr, "N ... end - the commands between, N times"},
    {"end", Use::Structure, nullptr, "- ends together or repeat"},
    {"include", Use::Structure, nullptr, "FILE - the lines of another file, looked for beside this one"},
    {"within", Use::Structure, nullptr,
     "DURATION COMMAND - the command comes at a moment of that span that the seed chooses"},
    {"after", Use::Structure, nullptr,
     "DURATION COMMAND - the command comes then, together with what falls due at that very moment"},
});

} // namespace sim
