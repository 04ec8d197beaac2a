// The power policy of the person at the machine, read from that user's registry hive, and the policies of the
// default user, which apply to the service's own account.
//
// The user is the one that Winlogon names as the alternate default user. Without one, or when the hive can be
// neither opened nor loaded, all reads go to ".DEFAULT". Nothing is kept between calls. BOOL results: TRUE on
// success; an output is written on success only.
#pragma once

#include "power/powrprof.h"

// Room for a user's name under HKEY_USERS: a SID as text (255 characters at most) or ".DEFAULT".
constexpr DWORD SID_STRING_CHARACTERS = 256;

// `buffer` has SID_STRING_CHARACTERS. It holds ".DEFAULT" when the result is FALSE. Loads the user's hive if
// need be.
BOOL GetDefaultUserSidString(wchar_t* buffer);

// A SID as text ("S-1-5-21-..."). `size` is the room of `text` in characters. When it is below 24 per
// sub-authority plus 56, *size takes that number, the last error is ERROR_INSUFFICIENT_BUFFER, and nothing is
// written.
BOOL SidToString(PSID sid, wchar_t* text, DWORD* size);

// Loads (nonzero) or unloads a hive file under HKEY_USERS. Needs the restore privilege. `path` is used by
// loading only.
BOOL LoadUserHive(const wchar_t* name, const wchar_t* path, BOOL load);

// The user's power-scheme index, kept as decimal text: its leading digits count, 0 when there are none.
BOOL GetCurrentPowerPolicyIndex(DWORD* index);

// The user's policies. A stored record that is too short is filled up with zeros.
BOOL ReadGlobalUserPowerPolicy(GLOBAL_USER_POWER_POLICY* policy);
BOOL ReadUserPowerPolicy(DWORD index, POWER_POLICY* policy);

// The default user's policies.
BOOL WriteDefaultGlobalPowerPolicy(const GLOBAL_USER_POWER_POLICY* policy);
BOOL WriteDefaultUserPowerPolicy(const DWORD* index, const USER_POWER_POLICY* policy);
