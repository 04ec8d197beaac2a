// The process under Wine that runs the product (zorpmrunner.exe), one for each script, and what is asked of
// it.
#pragma once

#include <string>
#include <vector>

namespace sim {

// Joins fields of a request.
std::string request(std::initializer_list<std::string> fields);

// Asks the process, which is started when there is none; effects that come with the answer go
// into the current machine's trace. Returns the answer's value, "" for none. After something has broken,
// nothing is asked any more.
std::string ask(const std::string& text);
// "" while all is well.
const std::string& broken();

// Where Wine and the runner are; before the first request.
void use_runner(const std::string& wine, const std::string& executable);
// The machine ends: its process too.
void end_runner();

} // namespace sim
