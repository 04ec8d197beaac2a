// Doubles of two COM classes that Wine lacks or answers otherwise: the graphics driver's and the task
// scheduler's.
#pragma once

#include <windows.h>
#include <string>

namespace runner {

bool has_task(const std::string& folder, const std::string& name);
void add_task(const std::string& folder, const std::string& name);

// The wrapped calls.
HRESULT WINAPI class_of_name(LPCOLESTR name, CLSID* result);
HRESULT WINAPI create_instance(REFCLSID name, IUnknown* outer, DWORD context, REFIID wanted, void** object);

} // namespace runner
