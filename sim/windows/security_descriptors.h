// SIDs, access-control lists and security descriptors.
#pragma once

#include <windows.h>
#include <string>
#include <vector>

namespace sim {

struct AclEntry {
    std::string sid; // "S-1-5-18"
    DWORD mask = 0;
    BYTE type = 0;  // 0: access allowed
    BYTE flags = 0; // inheritance
};

// What security attributes grant, and the control word of their descriptor. Other sizes and revisions than
// the platform's are a violation of the call.
WORD read_dacl(const SECURITY_ATTRIBUTES* attributes, std::vector<AclEntry>* entries, const char* call);

} // namespace sim
