// Accounts of the script and the hives of their profiles: Wine has neither.
#pragma once

#include <windows.h>
#include <string>
#include <vector>

namespace runner {

void add_account(const std::string& name, const std::string& sid);
void forget_hives(); // of an earlier script
void add_hive_value(const std::string& file, const std::string& key, const std::string& name, DWORD type,
                    const std::vector<BYTE>& data);

// The wrapped calls.
BOOL WINAPI look_up_account(LPCWSTR system, LPCWSTR account, PSID sid, DWORD* sid_bytes, LPWSTR domain,
                            DWORD* domain_letters, SID_NAME_USE* use);
LSTATUS WINAPI load_hive(HKEY key, LPCWSTR name, LPCWSTR file);
LSTATUS WINAPI unload_hive(HKEY key, LPCWSTR name);

} // namespace runner
