// Access control lists.
#pragma once

#include <windows.h>

enum ACCESS_MODE { NOT_USED_ACCESS = 0, GRANT_ACCESS, SET_ACCESS };
enum TRUSTEE_FORM { TRUSTEE_IS_SID = 0, TRUSTEE_IS_NAME };
enum TRUSTEE_TYPE {
    TRUSTEE_IS_UNKNOWN = 0,
    TRUSTEE_IS_USER,
    TRUSTEE_IS_GROUP,
    TRUSTEE_IS_DOMAIN,
    TRUSTEE_IS_ALIAS,
    TRUSTEE_IS_WELL_KNOWN_GROUP
};
enum MULTIPLE_TRUSTEE_OPERATION { NO_MULTIPLE_TRUSTEE = 0 };
#define NO_INHERITANCE 0x0u

struct TRUSTEE_W {
    TRUSTEE_W* pMultipleTrustee;
    MULTIPLE_TRUSTEE_OPERATION MultipleTrusteeOperation;
    TRUSTEE_FORM TrusteeForm;
    TRUSTEE_TYPE TrusteeType;
    LPWSTR ptstrName;
};

struct EXPLICIT_ACCESS_W {
    DWORD grfAccessPermissions;
    ACCESS_MODE grfAccessMode;
    DWORD grfInheritance;
    TRUSTEE_W Trustee;
};
static_assert(sizeof(EXPLICIT_ACCESS_W) == 48);

extern "C" DWORD WINAPI SetEntriesInAclW(ULONG count, EXPLICIT_ACCESS_W* entries, ACL* old, ACL** created);
