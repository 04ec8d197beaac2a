// Tokens and privileges, security identifiers, descriptors, lists, accounts.
#include <windows.h>
#include <aclapi.h>

#include "tests/platform/probe.h"

static const struct {
    const char* name;
    const WCHAR* privilege;
} g_privileges[] = {
    {"create-token", L"SeCreateTokenPrivilege"},
    {"create-pagefile", L"SeCreatePagefilePrivilege"},
    {"backup", L"SeBackupPrivilege"},
    {"restore", L"SeRestorePrivilege"},
    {"shutdown", L"SeShutdownPrivilege"},
    {"debug", L"SeDebugPrivilege"},
    {"other-case", L"sebackupprivilege"},
    {"unknown", L"SeZorpmPrivilege"},
    {"empty", L""},
};

static DWORD adjust(HANDLE token, const WCHAR* privilege, DWORD attributes) {
    TOKEN_PRIVILEGES state = {};
    state.PrivilegeCount = 1;
    state.Privileges[0].Attributes = attributes;
    LookupPrivilegeValueW(nullptr, privilege, &state.Privileges[0].Luid);
    SetLastError(0xBAD);
    const BOOL adjusted = AdjustTokenPrivileges(token, FALSE, &state, 0, nullptr, nullptr);
    return adjusted ? GetLastError() : 10000 + GetLastError();
}

static void probe_privileges() {
    for (const auto& row : g_privileges) {
        LUID id = {};
        group("privilege");
        fact(row.name, ERROR_OF(LookupPrivilegeValueW(nullptr, row.privilege, &id)));
        group("privilege-id");
        fact(row.name, id.LowPart);
    }
    group("token");
    HANDLE token = nullptr;
    HANDLE reader = nullptr;
    fact("open",
         ERROR_OF(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES, &token)));
    OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &reader);
    fact("enable", adjust(token, L"SeShutdownPrivilege", SE_PRIVILEGE_ENABLED));
    fact("enable-again", adjust(token, L"SeShutdownPrivilege", SE_PRIVILEGE_ENABLED));
    fact("disable", adjust(token, L"SeShutdownPrivilege", 0));
    fact("enable-not-held", adjust(token, L"SeCreateTokenPrivilege", SE_PRIVILEGE_ENABLED));
    fact("disable-not-held", adjust(token, L"SeCreateTokenPrivilege", 0));
    fact("enable-by-reader", adjust(reader, L"SeShutdownPrivilege", SE_PRIVILEGE_ENABLED));
    fact("enable-null", adjust(nullptr, L"SeShutdownPrivilege", SE_PRIVILEGE_ENABLED));
    fact("close", CloseHandle(token));
}

static void probe_identifiers() {
    group("sid");
    BYTE sid[SECURITY_MAX_SID_SIZE] = {};
    DWORD bytes = sizeof(sid);
    fact("create", ERROR_OF(CreateWellKnownSid(WinLocalSystemSid, nullptr, sid, &bytes)));
    fact("bytes", bytes);
    fact("valid", IsValidSid(sid));
    fact("subauthorities", *GetSidSubAuthorityCount(sid));
    fact("subauthority", *GetSidSubAuthority(sid, 0));
    fact("authority", GetSidIdentifierAuthority(sid)->Value[5]);
    bytes = 11;
    fact("create-short", ERROR_OF(CreateWellKnownSid(WinLocalSystemSid, nullptr, sid, &bytes)));
    fact("create-short-bytes", bytes);
    sid[0] = 2;
    fact("revision-2", IsValidSid(sid));
    sid[0] = SID_REVISION;
    sid[1] = SID_MAX_SUB_AUTHORITIES;
    fact("15-subauthorities", IsValidSid(sid));
    sid[1] = SID_MAX_SUB_AUTHORITIES + 1;
    fact("16-subauthorities", IsValidSid(sid));
    sid[1] = 0;
    fact("no-subauthorities", IsValidSid(sid));
    fact("null", IsValidSid(nullptr));
    WCHAR domain[60];
    DWORD characters = ARRAYSIZE(domain);
    SID_NAME_USE use = SidTypeUnknown;
    bytes = sizeof(sid);
    fact("account-unknown",
         ERROR_OF(LookupAccountNameW(nullptr, L"zorpm-nobody", sid, &bytes, domain, &characters, &use)));
}

static void probe_descriptors() {
    group("descriptor");
    SECURITY_DESCRIPTOR descriptor = {};
    fact("initialise", InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    fact("revision", descriptor.Revision);
    fact("control", descriptor.Control);
    fact("initialise-revision-2", ERROR_OF(InitializeSecurityDescriptor(&descriptor, 2)));
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    fact("protect",
         ERROR_OF(SetSecurityDescriptorControl(&descriptor, SE_DACL_PROTECTED, SE_DACL_PROTECTED)));
    fact("protected", descriptor.Control);
    fact("protect-present",
         ERROR_OF(SetSecurityDescriptorControl(&descriptor, SE_DACL_PRESENT, SE_DACL_PRESENT)));
    fact("protect-more-values", ERROR_OF(SetSecurityDescriptorControl(&descriptor, 0, SE_DACL_PROTECTED)));
    fact("unprotect", ERROR_OF(SetSecurityDescriptorControl(&descriptor, SE_DACL_PROTECTED, 0)));
    fact("unprotected", descriptor.Control);
    ACL empty = {2, 0, sizeof(ACL), 0, 0};
    fact("list", ERROR_OF(SetSecurityDescriptorDacl(&descriptor, TRUE, &empty, FALSE)));
    fact("list-control", descriptor.Control);
    fact("list-kept", descriptor.Dacl == &empty);
    fact("list-defaulted", ERROR_OF(SetSecurityDescriptorDacl(&descriptor, TRUE, &empty, TRUE)));
    fact("list-defaulted-control", descriptor.Control);
    fact("list-none", ERROR_OF(SetSecurityDescriptorDacl(&descriptor, FALSE, nullptr, FALSE)));
    fact("list-none-control", descriptor.Control);
    fact("list-none-pointer", descriptor.Dacl == nullptr);
    descriptor.Revision = 9;
    fact("other-revision", ERROR_OF(SetSecurityDescriptorDacl(&descriptor, TRUE, &empty, FALSE)));
}

static void probe_lists() {
    group("list");
    BYTE sid[SECURITY_MAX_SID_SIZE] = {};
    DWORD bytes = sizeof(sid);
    CreateWellKnownSid(WinLocalSystemSid, nullptr, sid, &bytes);
    EXPLICIT_ACCESS_W entry = {};
    entry.grfAccessPermissions = GENERIC_ALL;
    entry.grfAccessMode = SET_ACCESS;
    entry.grfInheritance = NO_INHERITANCE;
    entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    entry.Trustee.TrusteeType = TRUSTEE_IS_USER;
    entry.Trustee.ptstrName = reinterpret_cast<LPWSTR>(sid);
    ACL* list = nullptr;
    fact("one", SetEntriesInAclW(1, &entry, nullptr, &list));
    fact("one-revision", list->AclRevision);
    fact("one-entries", list->AceCount);
    fact("one-is-large-enough", list->AclSize >= sizeof(ACL) + 20);
    const auto* ace = reinterpret_cast<const BYTE*>(list + 1);
    fact("entry-type", ace[0]);
    fact("entry-flags", ace[1]);
    fact("entry-bytes", ace[2]);
    DWORD rights = 0;
    CopyMemory(&rights, ace + 4, sizeof(rights));
    fact("entry-rights", rights);
    fact("entry-sid", ace[8] == SID_REVISION && ace[15] == 5 && ace[16] == 18);
    fact("free", LocalFree(list) == nullptr);
    EXPLICIT_ACCESS_W two[] = {entry, entry};
    two[1].grfAccessPermissions = GENERIC_READ;
    list = nullptr;
    fact("same-twice", SetEntriesInAclW(2, two, nullptr, &list));
    fact("same-twice-entries", list != nullptr ? list->AceCount : 99);
}

void probe_security() {
    probe_privileges();
    probe_identifiers();
    probe_descriptors();
    probe_lists();
}
