// Nothing in a recording names the user: these are the words that stand for it.
#pragma once

#include <string>

namespace record {

// In a line: SIDs of accounts, the folders of profiles, the machine's name, and accounts that were noted.
void replace_names(std::string* line);
void note_account(const std::string& name); // it is USER from now on

} // namespace record
