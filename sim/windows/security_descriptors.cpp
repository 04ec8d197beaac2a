#include "sim/windows/security_descriptors.h"

#include <aclapi.h>
#include <cstring>

#include "sim/machine/machine.h"

namespace sim {

constexpr DWORD ERROR_UNKNOWN_REVISION = 1305;
constexpr WORD SE_DACL_DEFAULTED = 0x8;
constexpr BYTE SYSTEM_SID[12] = {1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0};

static DWORD word_at(const BYTE* bytes) {
    DWORD word = 0;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

static size_t sid_size(const BYTE* sid) {
    return 8 + 4 * size_t{sid[1]};
}

static std::string sid_text(const BYTE* sid) {
    std::string text = format("S-%u-%u", sid[0], sid[7]);
    for (size_t at = 8; at < sid_size(sid); at += 4)
        text += format("-%u", word_at(sid + at));
    return text;
}

static std::vector<AclEntry> acl_entries(const ACL* acl) {
    std::vector<AclEntry> entries;
    if (acl == nullptr)
        return entries;
    const BYTE* at = reinterpret_cast<const BYTE*>(acl + 1);
    for (unsigned i = 0; i < acl->AceCount; ++i) {
        WORD size = 0;
        std::memcpy(&size, at + 2, sizeof(size));
        entries.push_back({sid_text(at + 8), word_at(at + 4), at[0], at[1]});
        at += size;
    }
    return entries;
}

WORD read_dacl(const SECURITY_ATTRIBUTES* attributes, std::vector<AclEntry>* entries, const char* call) {
    const auto* descriptor = static_cast<const SECURITY_DESCRIPTOR*>(attributes->lpSecurityDescriptor);
    if (attributes->nLength != sizeof(SECURITY_ATTRIBUTES) ||
        descriptor->Revision != SECURITY_DESCRIPTOR_REVISION)
        violation("%s: security attributes of %u bytes, revision %u", call, attributes->nLength,
                  descriptor->Revision);
    *entries = acl_entries(descriptor->Dacl);
    return descriptor->Control;
}

} // namespace sim

using namespace sim;

extern "C" {

BOOL WINAPI CreateWellKnownSid(WELL_KNOWN_SID_TYPE type, PVOID, PVOID sid, DWORD* bytes) {
    SIM_CALL(FALSE, ERROR_INVALID_PARAMETER);
    if (type != WinLocalSystemSid) {
        violation("CreateWellKnownSid: type %u is not known here", type);
        return fail_with(ERROR_INVALID_PARAMETER);
    }
    const bool fits = *bytes >= sizeof(SYSTEM_SID);
    *bytes = sizeof(SYSTEM_SID);
    if (!fits)
        return fail_with(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(sid, SYSTEM_SID, sizeof(SYSTEM_SID));
    return TRUE;
}

DWORD WINAPI SetEntriesInAclW(ULONG count, EXPLICIT_ACCESS_W* entries, ACL* old, ACL** created) {
    SIM_CALL(ERROR_NOT_ENOUGH_MEMORY, ERROR_NOT_ENOUGH_MEMORY);
    std::vector<BYTE> aces;
    for (ULONG i = 0; i < count; ++i) {
        const EXPLICIT_ACCESS_W& entry = entries[i];
        if (entry.grfAccessMode != SET_ACCESS || entry.Trustee.TrusteeForm != TRUSTEE_IS_SID ||
            old != nullptr) {
            violation("SetEntriesInAclW: more than new entries that set rights of a SID");
            return ERROR_INVALID_PARAMETER;
        }
        const auto* sid = reinterpret_cast<const BYTE*>(entry.Trustee.ptstrName);
        const auto size = static_cast<WORD>(8 + sid_size(sid));
        BYTE head[8] = {0, static_cast<BYTE>(entry.grfInheritance), static_cast<BYTE>(size & 0xFF),
                        static_cast<BYTE>(size >> 8)};
        std::memcpy(head + 4, &entry.grfAccessPermissions, sizeof(DWORD));
        aces.insert(aces.end(), head, head + sizeof(head));
        aces.insert(aces.end(), sid, sid + sid_size(sid));
    }
    // cppcheck-suppress invalidLifetime ; the bytes were copied
    const size_t bytes = sizeof(ACL) + aces.size();
    auto* acl = static_cast<ACL*>(LocalAlloc(LPTR, bytes));
    if (acl == nullptr)
        return ERROR_NOT_ENOUGH_MEMORY;
    *acl = {2, 0, static_cast<WORD>(bytes), static_cast<WORD>(count), 0};
    std::memcpy(acl + 1, aces.data(), aces.size());
    *created = acl;
    return ERROR_SUCCESS;
}

BOOL WINAPI InitializeSecurityDescriptor(PVOID descriptor, DWORD revision) {
    SIM_CALL(FALSE, ERROR_INVALID_PARAMETER);
    if (revision != SECURITY_DESCRIPTOR_REVISION)
        return fail_with(ERROR_UNKNOWN_REVISION);
    *static_cast<SECURITY_DESCRIPTOR*>(descriptor) = {
        static_cast<BYTE>(revision), 0, 0, nullptr, nullptr, nullptr, nullptr};
    return TRUE;
}

BOOL WINAPI SetSecurityDescriptorDacl(PVOID descriptor, BOOL present, PACL dacl, BOOL defaulted) {
    SIM_CALL(FALSE, ERROR_INVALID_PARAMETER);
    auto* changed = static_cast<SECURITY_DESCRIPTOR*>(descriptor);
    if (changed->Revision != SECURITY_DESCRIPTOR_REVISION)
        return fail_with(ERROR_UNKNOWN_REVISION);
    int control = changed->Control & ~SE_DACL_PRESENT;
    if (present) { // else the list and its origin stay as they were
        control = (control & ~SE_DACL_DEFAULTED) | SE_DACL_PRESENT | (defaulted ? SE_DACL_DEFAULTED : 0);
        changed->Dacl = dacl;
    }
    changed->Control = static_cast<WORD>(control);
    return TRUE;
}

BOOL WINAPI SetSecurityDescriptorControl(PVOID descriptor, SECURITY_DESCRIPTOR_CONTROL bits,
                                         SECURITY_DESCRIPTOR_CONTROL values) {
    SIM_CALL(FALSE, ERROR_INVALID_PARAMETER);
    constexpr SECURITY_DESCRIPTOR_CONTROL settable = SE_DACL_PROTECTED;
    if (((bits | values) & ~settable) != 0)
        return fail_with(ERROR_INVALID_PARAMETER);
    auto* changed = static_cast<SECURITY_DESCRIPTOR*>(descriptor);
    changed->Control = static_cast<WORD>((changed->Control & ~bits) | (values & bits));
    return TRUE;
}

} // extern "C"
