// The processes under Wine that run the product (zorpmrunner.exe), and what is asked of them.
#pragma once

#include <string>
#include <vector>

namespace sim {

// Joins fields of a request.
std::string request(std::initializer_list<std::string> fields);

// Asks the process of the service, which is started when there is none; effects that come with the answer go
// into the current machine's trace. Returns the answer's value, "" for none. After something has broken,
// nothing is asked any more.
std::string ask(const std::string& text);
// Another process of the executable, with this command line, which must end by itself at once.
void run_program(const std::string& command_line);
// Asked now, and of every process that is started later.
void ask_every(const std::string& text);
// "" while all is well.
const std::string& broken();

// Where Wine and the runner are; before the first request.
void use_runner(const std::string& wine, const std::string& executable);
// The machine ends: its processes too.
void end_runner();

} // namespace sim
