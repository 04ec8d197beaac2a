// The per-session helper process.
#pragma once

#include <windows.h>

// Runs the helper window until its message loop ends.
void PmHelperMain();
