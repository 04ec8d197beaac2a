// Scenarios: how tests and zorpmsim run scripts.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sim/script/place.h"

namespace sim {

struct ScriptResult {
    int exit_code = 0; // 0 all hold, 1 one does not (or a violation), 2 unusable
    unsigned expectations = 0;
    size_t effects = 0;  // of a recording, all as recorded
    std::string message; // what went wrong; of an expectation "expected ..."
    std::string context; // the trace lines since the mark, each behind a line break
    Place place;
    bool rests = false; // at its end no thread was in the midst of a request that takes time
};

struct Script; // a compiled script
// Null, and at least one fault, for a text that is no script. Files that it includes are looked for beside
// `path`.
std::shared_ptr<Script> compile_script(const std::string& text, const std::string& path,
                                       std::vector<Fault>* faults);
// How many of its lines expect or check something.
size_t expectations_in(const Script& script);
// Runs a compiled script on the current machine.
ScriptResult run_script(const Script& script);
// The same behind others, told line by line: with their expectations, and their mark.
struct Expectations;
ScriptResult run_on_script(const Script& script, Expectations* expectations);
// Where it runs now (line 0: nowhere); for reports of a crash.
const Place& running_place();
// Both, on the current machine.
ScriptResult run_text(const std::string& text);

} // namespace sim
