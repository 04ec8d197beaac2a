// The scenario language: how an area adds its commands, and how tests and zorpmsim run scripts.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

struct Token {
    std::string text;
    bool quoted = false;
};

// The words of one line behind the command's own. A reader that does not find what it asks for notes the
// first error and returns something harmless; the line is then unusable.
struct Tokens {
    std::vector<Token> list;
    size_t at = 0;
    std::string rest_of_line; // behind the command's words, for patterns
    std::string error;

    bool done() const { return at >= list.size(); }
    void fail(const std::string& what);
    std::string word();                                      // any token
    std::string text();                                      // a quoted token
    std::uint64_t number();                                  // decimal or 0x
    Ms duration();                                           // number and ms, s, m, h or d
    bool accept(const char* word);                           // takes the next token if it is this word
    size_t choice(std::initializer_list<const char*> words); // index of the next token among these
};

using Action = std::function<void()>;

// What a command is: of the machine, a driving one (marks just before it acts), or a check.
enum class Use { Machine, Drive, Check };

struct Command {
    const char* words; // e.g. "windows hibernate"; the longest match wins
    Use use;
    Action (*compile)(Tokens&); // reads its arguments; the action runs later
};

// `static const sim::Commands g_commands({{"windows hibernate", Use::Machine, compile_hibernate}});`
struct Commands {
    Commands(std::initializer_list<Command> commands);
};

// For actions of checks: one more expectation that holds, or the first that does not.
void expectation(bool holds, const std::string& what);

// Shared readers: registry paths ("HKLM\...", "SVC\..."), and values as TYPE DATA.
struct RegistryData {
    DWORD type = 0;
    std::vector<BYTE> bytes;
};
RegistryData read_registry_data(Tokens& tokens); // dword|sz|expand|multi|binary DATA, raw TYPE HEX

struct ScriptResult {
    int exit_code = 0; // 0 all hold, 1 one does not (or a violation), 2 unusable
    unsigned expectations = 0;
    std::string message; // "LINE: ..." of what went wrong, with the trace since the mark
    int line = 0;
};

struct Script; // a compiled script
std::shared_ptr<Script> compile_script(const std::string& text, ScriptResult* result);
// Runs a compiled script on the current machine.
ScriptResult run_script(Script& script);
// The line that runs, 0 outside a script; for reports of a crash.
int running_line();
// Both, on the current machine.
ScriptResult run_text(const std::string& text);

} // namespace sim
