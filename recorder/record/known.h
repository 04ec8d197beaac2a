// What the recording has said of the machine so far: a command is written only when something is otherwise.
#pragma once

#include <string>

namespace record {

// `subject` is as `line` says: written unless that was the last word on the subject. On a new machine the
// first word may be left out where it says what such a machine is.
void tell(const std::string& subject, const std::string& line, bool as_new_machine = false);
void now_known(const std::string& subject, const std::string& line); // without a line: the service did it
void no_longer_known(const std::string& subject);
bool is_known(const std::string& subject);

std::string quoted(const std::string& text); // as a token of a scenario

} // namespace record
