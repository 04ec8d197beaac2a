#include "sim/windows/security.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>

#include "sim/machine/machine.h"
#include "sim/script/commands.h"

namespace sim {

// The privileges of the local system account that matter here, with their LUIDs.
static const struct Privilege {
    const char* name;
    DWORD id;
} g_privileges[] = {
    {"SeCreateTokenPrivilege", 2}, {"SeCreatePagefilePrivilege", 15}, {"SeBackupPrivilege", 17},
    {"SeRestorePrivilege", 18},    {"SeShutdownPrivilege", 19},       {"SeDebugPrivilege", 20},
};

namespace {

struct Security {
    std::set<std::string> denied;                // privileges that no token holds, lower case
    std::set<std::string> refused;               // those that cannot be adjusted, lower case
    std::map<std::string, std::string> accounts; // SID texts by name, lower case
};

struct ProcessPrivileges {
    bool begun = false;
    std::set<std::string> enabled;
};

} // namespace

static Security& security() {
    return machine_state<Security>();
}

// What the local system account has enabled from the beginning; nobody else holds it so.
static std::set<std::string>& enabled_privileges() {
    auto& privileges = process_state<ProcessPrivileges>();
    if (!privileges.begun && current_process()->is_service)
        privileges.enabled = {"SeCreatePagefilePrivilege", "SeDebugPrivilege"};
    privileges.begun = true;
    return privileges.enabled;
}

bool privilege_enabled(const char* name, const char* call) {
    if (enabled_privileges().count(name) != 0 && security().denied.count(lower(name)) == 0)
        return true;
    trace_detail("%s: without %s", call, name);
    set_last_error(ERROR_PRIVILEGE_NOT_HELD);
    return false;
}

// The bytes of a SID from its text; empty when it is none.
static std::vector<BYTE> parse_sid(const std::string& text) {
    if (text.rfind("S-1-", 0) != 0)
        return {};
    std::vector<std::uint64_t> numbers;
    for (size_t at = 4; at <= text.size();) {
        const size_t end = std::min(text.find('-', at), text.size());
        char* rest = nullptr;
        const std::string part = text.substr(at, end - at);
        numbers.push_back(std::strtoull(part.c_str(), &rest, part.rfind("0x", 0) == 0 ? 16 : 10));
        if (part.empty() || *rest != '\0')
            return {};
        at = end + 1;
    }
    if (numbers.size() > 1 + SID_MAX_SUB_AUTHORITIES)
        return {};
    std::vector<BYTE> sid = {SID_REVISION, static_cast<BYTE>(numbers.size() - 1)};
    for (int shift = 40; shift >= 0; shift -= 8)
        sid.push_back(static_cast<BYTE>(numbers[0] >> shift));
    for (size_t i = 1; i < numbers.size(); ++i) {
        for (int shift = 0; shift < 32; shift += 8)
            sid.push_back(static_cast<BYTE>(numbers[i] >> shift));
    }
    return sid;
}

} // namespace sim

using namespace sim;

extern "C" {

BOOL WINAPI OpenProcessToken(HANDLE process, DWORD access, HANDLE* token) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    if (process != INVALID_HANDLE_VALUE) {
        violation("OpenProcessToken: of another process");
        return fail_with(ERROR_INVALID_HANDLE);
    }
    trace_detail("OpenProcessToken(0x%x)", access);
    *token = open_handle(make_object(Kind::Token, "token"), access);
    return TRUE;
}

BOOL WINAPI LookupPrivilegeValueW(LPCWSTR system, LPCWSTR name, LUID* luid) {
    SIM_CALL(FALSE, ERROR_NO_SUCH_PRIVILEGE);
    const std::string wanted = narrow(name);
    for (const Privilege& row : g_privileges) {
        if (system == nullptr && same_text(row.name, wanted)) {
            *luid = {row.id, 0};
            return TRUE;
        }
    }
    return fail_with(ERROR_NO_SUCH_PRIVILEGE);
}

BOOL WINAPI AdjustTokenPrivileges(
    HANDLE token, BOOL disable_all, TOKEN_PRIVILEGES* state, DWORD bytes, TOKEN_PRIVILEGES* former,
    LPDWORD needed) { // NOLINT(readability-non-const-parameter): the platform's type
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    const HandleEntry* entry = handle_entry(token, Kind::Token, "AdjustTokenPrivileges");
    if (entry == nullptr)
        return FALSE;
    if ((entry->access & TOKEN_ADJUST_PRIVILEGES) == 0) {
        violation("AdjustTokenPrivileges: opened without the right to adjust");
        return fail_with(ERROR_ACCESS_DENIED);
    }
    if (bytes != 0 || former != nullptr || needed != nullptr) {
        violation("AdjustTokenPrivileges: the former state is not told here");
        return fail_with(ERROR_INVALID_PARAMETER);
    }
    const Privilege* known = std::end(g_privileges);
    if (!disable_all && state != nullptr && state->PrivilegeCount == 1 &&
        state->Privileges[0].Luid.HighPart == 0)
        known = std::find_if(std::begin(g_privileges), known, [state](const Privilege& row) {
            return row.id == state->Privileges[0].Luid.LowPart;
        });
    if (known == std::end(g_privileges)) {
        violation("AdjustTokenPrivileges: not one known privilege");
        return fail_with(ERROR_INVALID_PARAMETER);
    }
    const std::string name = known->name;
    const bool enable = (state->Privileges[0].Attributes & SE_PRIVILEGE_ENABLED) != 0;
    if (security().refused.count(lower(name)) != 0)
        return fail_with(ERROR_ACCESS_DENIED);
    trace_detail("AdjustTokenPrivileges(%s, %d)", name.c_str(), enable);
    const bool held = security().denied.count(lower(name)) == 0;
    if (held && enable)
        enabled_privileges().insert(name);
    else
        enabled_privileges().erase(name);
    // It succeeds either way; only the last error tells.
    set_last_error(held ? ERROR_SUCCESS : ERROR_NOT_ALL_ASSIGNED);
    return TRUE;
}

BOOL WINAPI IsValidSid(PSID sid) {
    SIM_VISIT();
    const auto* header = static_cast<const SID*>(sid);
    return header != nullptr && header->Revision == SID_REVISION &&
           header->SubAuthorityCount <= SID_MAX_SUB_AUTHORITIES;
}

BYTE* WINAPI GetSidSubAuthorityCount(PSID sid) {
    SIM_NOTE();
    return &static_cast<SID*>(sid)->SubAuthorityCount;
}

DWORD* WINAPI GetSidSubAuthority(PSID sid, DWORD index) {
    SIM_NOTE();
    return reinterpret_cast<DWORD*>(static_cast<BYTE*>(sid) + offsetof(SID, SubAuthority)) + index;
}

SID_IDENTIFIER_AUTHORITY* WINAPI GetSidIdentifierAuthority(PSID sid) {
    SIM_NOTE();
    return &static_cast<SID*>(sid)->IdentifierAuthority;
}

BOOL WINAPI LookupAccountNameW(LPCWSTR system, LPCWSTR account, PSID sid, LPDWORD sid_bytes, LPWSTR domain,
                               LPDWORD domain_characters, SID_NAME_USE* use) {
    SIM_CALL(FALSE, ERROR_NONE_MAPPED);
    const auto found = security().accounts.find(lower(narrow(account)));
    if (system != nullptr || found == security().accounts.end())
        return fail_with(ERROR_NONE_MAPPED);
    const std::vector<BYTE> bytes = parse_sid(found->second);
    const std::string domain_name = "CALDER";
    if (*sid_bytes < bytes.size() || *domain_characters < domain_name.size() + 1) {
        *sid_bytes = static_cast<DWORD>(bytes.size());
        *domain_characters = static_cast<DWORD>(domain_name.size() + 1);
        return fail_with(ERROR_INSUFFICIENT_BUFFER);
    }
    std::memcpy(sid, bytes.data(), bytes.size());
    *sid_bytes = static_cast<DWORD>(bytes.size());
    *domain_characters = put_wide(domain, *domain_characters, domain_name);
    *use = SidTypeUser;
    return TRUE;
}

} // extern "C"

// ---- commands ----

namespace sim {

static Action compile_privilege(Tokens& tokens) {
    enum { DENIED, REFUSED };
    const std::string name = tokens.word();
    if (std::none_of(std::begin(g_privileges), std::end(g_privileges),
                     [&](const Privilege& known) { return same_text(known.name, name); }))
        tokens.fail("no such privilege: " + name);
    const size_t what = tokens.choice({"denied", "refused", "granted"});
    return [name = lower(name), what] {
        security().denied.erase(name);
        security().refused.erase(name);
        if (what == DENIED)
            security().denied.insert(name);
        else if (what == REFUSED)
            security().refused.insert(name);
    };
}

static Action compile_account(Tokens& tokens) {
    const std::string name = lower(tokens.word());
    const std::string sid = tokens.word();
    if (parse_sid(sid).empty())
        tokens.fail("a SID expected");
    return [name, sid] { security().accounts[name] = sid; };
}

static const Commands g_commands({
    {"windows privilege", Use::Machine, compile_privilege,
     "NAME denied|refused|granted - a privilege of the token"},
    {"windows account", Use::Machine, compile_account, "NAME SID - what LookupAccountNameW finds"},
});

} // namespace sim
