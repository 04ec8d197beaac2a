// Scenarios: how tests and zorpmsim run scripts.
#pragma once

#include <memory>
#include <string>

namespace sim {

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
