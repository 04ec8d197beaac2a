// Who answers a command of the scenario language on Wine.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sim/script/script.h"

namespace sim {

using Step = std::function<void()>;

// What the line does on Wine. Null, and why, for one that cannot be there.
Step step_on_wine(const ScriptLine& line, std::string* reason);

// The registry and the notebook of a new machine, without what an earlier run of the script left.
void reset_wine(const std::vector<std::string>& keys_of_script, const std::vector<std::string>& files);
// The keys that the line sets.
std::vector<std::string> keys_set_by(const ScriptLine& line);
// The file that it writes; "" for none.
std::string file_made_by(const ScriptLine& line);

} // namespace sim
