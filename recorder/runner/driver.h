// The notebook's stand-in driver, as the runner drives it.
#pragma once

#include <windows.h>
#include <string>

namespace runner {

// Asks through the control device; the first word of the answer.
DWORD ask_notebook(DWORD code, DWORD first = 0, DWORD second = 0, DWORD third = 0, DWORD fourth = 0);
// Asks the tool for the scripted answer to a request, lets the time that it takes pass, and primes the
// driver.
void prime_answer(DWORD code, const std::string& method, DWORD argument);

} // namespace runner
