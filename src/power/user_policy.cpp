#include "power/user_policy.h"

#include <strsafe.h>

#include "common/registry.h"
#include "common/text.h"
#include "common/trace.h"
#include "power/privileges.h"

#define DEFAULT_USER  L".DEFAULT"
#define WINLOGON_KEY  L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon"
#define MICROSOFT_KEY L"SOFTWARE\\Microsoft\\"
#define PROFILES_KEY  L"Windows NT\\CurrentVersion\\ProfileList\\"
#define HIVE_FILE     L"\\ntuser.dat"

#define POLICY_KEY        L"%ls\\Control Panel\\PowerCfg"
#define GLOBAL_POLICY_KEY L"%ls\\Control Panel\\PowerCfg\\GlobalPowerPolicy"
#define SCHEME_KEY        L"%ls\\Control Panel\\PowerCfg\\PowerPolicies\\%d"
#define POLICY_VALUE      L"Policies"

// Limit of a registry string or policy record, in bytes.
constexpr DWORD VALUE_BYTES = 260;
constexpr DWORD VALUE_CHARACTERS = VALUE_BYTES / 2 + 1;

OPERATION(BOOL, SidToString, (PSID sid, wchar_t* text, DWORD* size), sid, text, size) {
    if (!IsValidSid(sid))
        return FALSE;
    const DWORD sub_authorities = *GetSidSubAuthorityCount(sid);
    const DWORD required = 24 * sub_authorities + 56;
    if (*size < required) {
        *size = required;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }

    // The room is certain: 19 characters for revision and authority, 11 for a sub-authority, and the null.
    wchar_t part[24];
    StringCchPrintfW(text, *size, L"S-%lu-", static_cast<DWORD>(SID_REVISION));
    const BYTE* a = GetSidIdentifierAuthority(sid)->Value;
    if (a[0] != 0 || a[1] != 0)
        StringCchPrintfW(part, ARRAYSIZE(part), L"0x%02hx%02hx%02hx%02hx%02hx%02hx", a[0], a[1], a[2], a[3],
                         a[4], a[5]);
    else
        StringCchPrintfW(part, ARRAYSIZE(part), L"%lu",
                         DWORD{a[2]} << 24 | DWORD{a[3]} << 16 | DWORD{a[4]} << 8 | DWORD{a[5]});
    StringCchCatW(text, *size, part);
    for (DWORD i = 0; i < sub_authorities; ++i) {
        StringCchPrintfW(part, ARRAYSIZE(part), L"-%lu", *GetSidSubAuthority(sid, i));
        StringCchCatW(text, *size, part);
    }
    return TRUE;
}

OPERATION(BOOL, LoadUserHive, (const wchar_t* name, const wchar_t* path, BOOL load), name, path, load) {
    const LONG error = load ? RegLoadKeyW(HKEY_USERS, name, path) : RegUnLoadKeyW(HKEY_USERS, name);
    if (error != ERROR_SUCCESS)
        Trace(L"LoadUserHive(%ls, %d): Error: %ld\n", name, load, error);
    return error == ERROR_SUCCESS;
}

// The profile's path as stored, at most 256 bytes, with its environment variables still in it.
static BOOL QueryProfilePath(const wchar_t* sid_string, wchar_t* path, DWORD capacity) {
    wchar_t key_path[PATH_CHARACTERS + SID_STRING_CHARACTERS];
    if (FAILED(StringCchPrintfW(key_path, ARRAYSIZE(key_path), L"%ls%ls", MICROSOFT_KEY PROFILES_KEY,
                                sid_string)))
        return FALSE;
    KeyHolder key;
    return OpenKey(&key, HKEY_LOCAL_MACHINE, key_path, KEY_READ) &&
           QueryString(key.key, L"ProfileImagePath", path, capacity, 256, REG_EXPAND_SZ);
}

static bool IsSeparator(wchar_t character) {
    return character == L'\\' || character == L'/';
}

static bool IsNetworkPath(const wchar_t* path) {
    return IsSeparator(path[0]) && IsSeparator(path[1]);
}

// A path that is not there has no attributes.
static bool HasAttributes(const wchar_t* path, DWORD looked_at, DWORD wanted) {
    const DWORD attributes = GetFileAttributesW(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & looked_at) == wanted;
}

// Leaves the folder that the file lies in. FALSE when the path names none.
static BOOL CutToFolder(wchar_t* path) {
    DWORD length = static_cast<DWORD>(lstrlenW(path));
    while (length > 0 && !IsSeparator(path[length - 1]))
        --length;
    while (length > 0 && IsSeparator(path[length - 1]))
        --length;
    // The root of a drive keeps its separator: "C:" alone is that drive's current folder.
    if (length == 2 && path[1] == L':')
        ++length;
    path[length] = L'\0';
    return length > 0;
}

// Whether the hive is an existing file and neither it nor its folder a link. The folder belongs to the user,
// and the load runs with the restore privilege: it would follow a link to any file, and make an empty hive
// where there is none, which then stands in the way of the profile. Whoever exchanges file or folder between
// this look and the load still can.
static BOOL IsPlainHiveFile(const wchar_t* path) {
    constexpr DWORD looked_at = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    wchar_t folder[PATH_CHARACTERS + ARRAYSIZE(HIVE_FILE)];
    return HasAttributes(path, looked_at, 0) && SUCCEEDED(StringCchCopyW(folder, ARRAYSIZE(folder), path)) &&
           CutToFolder(folder) && HasAttributes(folder, looked_at, FILE_ATTRIBUTE_DIRECTORY);
}

// Loads the hive of the user with this SID from the profile, under HKEY_USERS, where it stays. Enables the
// restore privilege, which stays enabled too. FALSE, with nothing enabled or loaded, unless the hive is an
// existing file on a local drive and neither it nor its folder is a link.
static OPERATION(BOOL, LoadUserProfileHive, (const wchar_t* sid_string), sid_string) {
    wchar_t profile[256 / 2 + 1];
    if (!QueryProfilePath(sid_string, profile, ARRAYSIZE(profile)))
        return FALSE;
    constexpr DWORD limit = 256;
    wchar_t path[limit + ARRAYSIZE(HIVE_FILE)];
    const DWORD expanded = ExpandEnvironmentStringsW(profile, path, limit);
    if (expanded == 0 || expanded > limit || IsNetworkPath(path))
        return FALSE;
    if (HasAttributes(path, FILE_ATTRIBUTE_DIRECTORY, FILE_ATTRIBUTE_DIRECTORY))
        StringCchCatW(path, ARRAYSIZE(path), HIVE_FILE);
    if (!IsPlainHiveFile(path)) {
        Trace(L"LoadUserProfileHive(): Error: %ls is no plain file.\n", path);
        return FALSE;
    }
    if (!EnablePrivilege(SE_RESTORE_NAME, TRUE))
        return FALSE;
    return LoadUserHive(sid_string, path, TRUE);
}

// The name of the alternate default user. The domain must be there, but is not used: the account is looked up
// on the local machine.
static BOOL QueryAlternateUser(wchar_t* user, DWORD capacity) {
    KeyHolder key;
    wchar_t domain[VALUE_CHARACTERS];
    return OpenKey(&key, HKEY_LOCAL_MACHINE, WINLOGON_KEY, KEY_READ) &&
           QueryString(key.key, L"AltDefaultDomainName", domain, ARRAYSIZE(domain), VALUE_BYTES) &&
           QueryString(key.key, L"AltDefaultUserName", user, capacity, VALUE_BYTES);
}

static BOOL LookUpAccount(const wchar_t* user, wchar_t* sid_string) {
    DWORD sid_bytes = 1024;
    LocalBlock sid(LocalAlloc(LPTR, sid_bytes));
    if (sid.data == nullptr)
        return FALSE;
    wchar_t domain[1024];
    DWORD domain_characters = ARRAYSIZE(domain);
    SID_NAME_USE use = SidTypeUnknown;
    if (!LookupAccountNameW(nullptr, user, sid.data, &sid_bytes, domain, &domain_characters, &use))
        return FALSE;
    DWORD size = SID_STRING_CHARACTERS - 1;
    return SidToString(sid.data, sid_string, &size);
}

static BOOL IsHiveLoaded(const wchar_t* sid_string) {
    KeyHolder key;
    return OpenKey(&key, HKEY_USERS, sid_string, KEY_READ);
}

OPERATION(BOOL, GetDefaultUserSidString, (wchar_t * buffer), buffer) {
    StringCchCopyW(buffer, SID_STRING_CHARACTERS, DEFAULT_USER);
    wchar_t user[VALUE_CHARACTERS];
    if (!QueryAlternateUser(user, ARRAYSIZE(user)))
        return FALSE;
    wchar_t sid_string[SID_STRING_CHARACTERS];
    if (!LookUpAccount(user, sid_string)) {
        Trace(L"GetDefaultUserSidString(): Error: account not found. (%lu)\n", GetLastError());
        return FALSE;
    }
    if (!IsHiveLoaded(sid_string) && !LoadUserProfileHive(sid_string)) {
        Trace(L"GetDefaultUserSidString(): Error: no hive of %ls.\n", sid_string);
        return FALSE;
    }
    StringCchCopyW(buffer, SID_STRING_CHARACTERS, sid_string);
    return TRUE;
}

// Opens a key of the interactive user's hive, or of the default user's without one. `index` fills the
// format's second place, if it has one.
static BOOL OpenUserKey(KeyHolder* key, const wchar_t* format, DWORD index) {
    wchar_t user[SID_STRING_CHARACTERS];
    // FALSE leaves the default user, which then serves.
    GetDefaultUserSidString(user);
    wchar_t path[PATH_CHARACTERS];
    if (FAILED(StringCchPrintfW(path, ARRAYSIZE(path), format, user, index)))
        return FALSE;
    return OpenKey(key, HKEY_USERS, path, KEY_READ);
}

OPERATION(BOOL, GetCurrentPowerPolicyIndex, (DWORD * index), index) {
    KeyHolder key;
    wchar_t text[VALUE_CHARACTERS];
    if (!OpenUserKey(&key, POLICY_KEY, 0) ||
        !QueryString(key.key, L"CurrentPowerPolicy", text, ARRAYSIZE(text), VALUE_BYTES)) {
        Trace(L"GetCurrentPowerPolicyIndex(): Error: no current policy.\n");
        return FALSE;
    }
    *index = LeadingNumber(text, 0x7FFFFFFF);
    return TRUE;
}

// Copies the first `size` bytes of the policy record under the key.
static BOOL ReadPolicy(const wchar_t* format, DWORD index, void* policy, DWORD size) {
    KeyHolder key;
    if (!OpenUserKey(&key, format, index))
        return FALSE;
    BYTE data[VALUE_BYTES] = {};
    DWORD type = 0;
    DWORD stored = sizeof(data);
    if (RegQueryValueExW(key.key, POLICY_VALUE, nullptr, &type, data, &stored) != ERROR_SUCCESS ||
        type != REG_BINARY) {
        Trace(L"ReadPolicy(): Error: no policy record.\n");
        return FALSE;
    }
    CopyMemory(policy, data, size);
    return TRUE;
}

OPERATION(BOOL, ReadGlobalUserPowerPolicy, (GLOBAL_USER_POWER_POLICY * policy), policy) {
    return ReadPolicy(GLOBAL_POLICY_KEY, 0, policy, sizeof(*policy));
}

OPERATION(BOOL, ReadUserPowerPolicy, (DWORD index, POWER_POLICY* policy), index, policy) {
    return ReadPolicy(SCHEME_KEY, index, policy, sizeof(*policy));
}

static BOOL WriteDefaultPolicy(const wchar_t* format, DWORD index, const void* policy, DWORD size) {
    wchar_t path[PATH_CHARACTERS];
    if (FAILED(StringCchPrintfW(path, ARRAYSIZE(path), format, DEFAULT_USER, index)))
        return FALSE;
    KeyHolder key;
    if (!CreateKey(&key, HKEY_USERS, path, KEY_READ | KEY_WRITE))
        return FALSE;
    return RegSetValueExW(key.key, POLICY_VALUE, 0, REG_BINARY, static_cast<const BYTE*>(policy), size) ==
           ERROR_SUCCESS;
}

OPERATION(BOOL, WriteDefaultGlobalPowerPolicy, (const GLOBAL_USER_POWER_POLICY* policy), policy) {
    return WriteDefaultPolicy(GLOBAL_POLICY_KEY, 0, policy, sizeof(*policy));
}

OPERATION(BOOL, WriteDefaultUserPowerPolicy, (const DWORD* index, const USER_POWER_POLICY* policy), index,
          policy) {
    return WriteDefaultPolicy(SCHEME_KEY, *index, policy, sizeof(*policy));
}
