// What the script says of the machine, by name; each with its value on a new machine.
#pragma once

#include <windows.h>
#include <string>

namespace runner {

DWORD setting(const std::string& name, DWORD otherwise);
void set_setting(const std::string& name, DWORD value);

// The next call of the name fails; whether this one is it, then with the error.
void fail_next(const std::string& call);
bool told_to_fail(const std::string& call, DWORD error);

// A key that cannot be opened or created, and all below it.
void refuse_key(const std::string& path, DWORD rights); // MAXDWORD: whatever rights
bool key_refused(const std::string& path, REGSAM access);

} // namespace runner
