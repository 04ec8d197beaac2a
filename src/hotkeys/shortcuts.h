// The shortcut-key launch entries and configuration values of the Harrow platform.
#pragma once

#include <windows.h>

void InitHarrowRegistryInterface();
