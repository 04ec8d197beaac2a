#include "recorder/runner/accounts.h"

#include <algorithm>
#include <map>
#include <sddl.h>
#include <set>

#include "recorder/real.h"
#include "recorder/runner/output.h"
#include "recorder/runner/power.h"
#include "recorder/runner/wrapped.h"

namespace runner {

// ---- accounts ----

static std::map<std::string, std::string> g_accounts; // texts of SIDs by name, small letters

void add_account(const std::string& name, const std::string& sid) {
    g_accounts[small(name)] = sid;
}

BOOL WINAPI look_up_account(LPCWSTR system, LPCWSTR account, PSID sid, DWORD* sid_bytes, LPWSTR domain,
                            DWORD* domain_letters, SID_NAME_USE* use) {
    static const wchar_t its_domain[] = L"CALDER";
    const auto found = g_accounts.find(small(narrow(account)));
    PSID its_sid = nullptr;
    if (system != nullptr || found == g_accounts.end() ||
        !ConvertStringSidToSidW(widen(found->second).c_str(), &its_sid)) {
        SetLastError(ERROR_NONE_MAPPED);
        return FALSE;
    }
    const DWORD bytes = GetLengthSid(its_sid);
    const bool fits = *sid_bytes >= bytes && *domain_letters >= ARRAYSIZE(its_domain);
    if (fits) {
        CopySid(bytes, sid, its_sid);
        lstrcpyW(domain, its_domain);
        *use = SidTypeUser;
    }
    *sid_bytes = bytes;
    *domain_letters = ARRAYSIZE(its_domain) - (fits ? 1 : 0);
    LocalFree(its_sid);
    if (!fits)
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return fits;
}

// ---- hives: what stands in one is kept below a key of its own, and copied to where it is loaded ----

static const wchar_t g_store[] = L"SOFTWARE\\ZORPHives";
static std::set<std::string> g_files;               // that are hives, small letters
static std::map<std::string, std::string> g_loaded; // the file by the name under HKU, small letters

static std::wstring stored(const std::string& file) {
    std::string name = small(file);
    std::replace(name.begin(), name.end(), '\\', '/');
    return g_store + (L"\\" + widen(name));
}

void forget_hives() {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, g_store);
}

static void set_stored(const std::wstring& path, const std::string& name, DWORD type,
                       const std::vector<BYTE>& data) {
    HKEY key = nullptr;
    if (REAL(RegCreateKeyExW)(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                              nullptr) != ERROR_SUCCESS)
        broken("a hive cannot be kept");
    if (!name.empty())
        REAL(RegSetValueExW)
    (key, name == "@" ? L"" : widen(name).c_str(), 0, type, data.data(), static_cast<DWORD>(data.size()));
    REAL(RegCloseKey)(key);
}

void add_hive_value(const std::string& file, const std::string& key, const std::string& name, DWORD type,
                    const std::vector<BYTE>& data) {
    g_files.insert(small(file));
    set_stored(stored(file) + L"\\" + widen(key), name, type, data);
}

static void copy_tree(HKEY from, const std::wstring& source, HKEY to, const std::wstring& target) {
    HKEY key = nullptr;
    REAL(RegCreateKeyExW)(to, target.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    RegCopyTreeW(from, source.c_str(), key);
    REAL(RegCloseKey)(key);
}

static bool user_key_exists(const std::wstring& name) {
    HKEY key = nullptr;
    const bool there = REAL(RegOpenKeyExW)(HKEY_USERS, name.c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS;
    if (there)
        REAL(RegCloseKey)(key);
    return there;
}

// The file behind a hive that is to be loaded. One that is missing is made, as an empty hive.
static DWORD open_hive(const std::string& file) {
    const std::wstring path = widen(file);
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        return ERROR_ACCESS_DENIED;
    if (attributes != INVALID_FILE_ATTRIBUTES)
        return g_files.contains(small(file)) ? ERROR_SUCCESS : ERROR_BADDB;
    HANDLE made = REAL(CreateFileW)(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    if (made == INVALID_HANDLE_VALUE)
        return ERROR_PATH_NOT_FOUND;
    REAL(CloseHandle)(made);
    effect("file create \"%s\"", file.c_str());
    g_files.insert(small(file));
    set_stored(stored(file), "", 0, {});
    return ERROR_SUCCESS;
}

LSTATUS WINAPI load_hive(HKEY key, LPCWSTR name, LPCWSTR file) {
    DWORD error = ERROR_SUCCESS;
    if (key != HKEY_USERS)
        error = ERROR_INVALID_PARAMETER;
    else if (!privilege_enabled(SE_RESTORE_NAME))
        error = ERROR_PRIVILEGE_NOT_HELD;
    else if (user_key_exists(name))
        error = ERROR_ALREADY_EXISTS;
    else
        error = open_hive(narrow(file));
    effect("call RegLoadKeyW(\"%s\", \"%s\") = %lu", narrow(name).c_str(), narrow(file).c_str(), error);
    if (error != ERROR_SUCCESS)
        return static_cast<LSTATUS>(error);
    g_loaded[small(narrow(name))] = narrow(file);
    copy_tree(HKEY_LOCAL_MACHINE, stored(narrow(file)), HKEY_USERS, name);
    return ERROR_SUCCESS;
}

LSTATUS WINAPI unload_hive(HKEY key, LPCWSTR name) {
    const auto found = g_loaded.find(small(narrow(name)));
    DWORD error = ERROR_SUCCESS;
    if (!privilege_enabled(SE_RESTORE_NAME))
        error = ERROR_PRIVILEGE_NOT_HELD;
    else if (key != HKEY_USERS || !user_key_exists(name))
        error = ERROR_FILE_NOT_FOUND;
    else if (found == g_loaded.end())
        error = ERROR_INVALID_PARAMETER; // an ordinary key
    else if (key_is_open("HKU\\" + narrow(name)))
        error = ERROR_ACCESS_DENIED;
    effect("call RegUnLoadKeyW(\"%s\") = %lu", narrow(name).c_str(), error);
    if (error != ERROR_SUCCESS)
        return static_cast<LSTATUS>(error);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, stored(found->second).c_str());
    copy_tree(HKEY_USERS, name, HKEY_LOCAL_MACHINE, stored(found->second));
    RegDeleteTreeW(HKEY_USERS, name);
    g_loaded.erase(found);
    return ERROR_SUCCESS;
}

} // namespace runner
