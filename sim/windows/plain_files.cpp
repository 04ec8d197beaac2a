#include "sim/windows/plain_files.h"

#include <aclapi.h>
#include <map>
#include <shlobj.h>

#include "sim/notebook/driver.h"
#include "sim/script/scenario.h"

namespace sim {

constexpr DWORD ERROR_DISK_FULL = 112;

static PlainFile make_folder() {
    PlainFile folder;
    folder.directory = true;
    return folder;
}

static const PlainFile FOLDER = make_folder();

struct Disk {
    std::map<std::string, PlainFile> files = {
        // by lower-case path
        {"c:\\windows", FOLDER},
        {"c:\\windows\\inf", FOLDER},
        {"c:\\windows\\system32", FOLDER},
        {"c:\\windows\\system32\\rundll32.exe", {}},
        {"c:\\users", FOLDER},
    };
    std::map<int, std::string> folders = {{CSIDL_WINDOWS, "C:\\Windows"},
                                          {CSIDL_SYSTEM, "C:\\Windows\\system32"}};
    bool full = false;
};

static Disk& disk() {
    return machine_state<Disk>();
}

static std::string folder_of(const std::string& path) {
    const size_t end = path.rfind('\\');
    return end == std::string::npos ? "" : path.substr(0, end);
}

static bool has_entries(const std::string& folder) {
    const auto below = disk().files.upper_bound(folder + "\\");
    return below != disk().files.end() && below->first.starts_with(folder + "\\");
}

// A drive's root is always there.
bool file_has_folder(const std::string& path) {
    const std::string folder = folder_of(path);
    if (folder.size() == 2)
        return true;
    const PlainFile* found = find_file(folder);
    return found != nullptr && found->directory;
}

static void make_folders_above(const std::string& path) {
    const std::string folder = folder_of(path);
    if (folder.size() <= 2 || find_file(folder) != nullptr)
        return;
    make_folders_above(folder);
    disk().files[lower(folder)].directory = true;
}

void set_file(const std::string& path, FileState state) {
    const std::string key = lower(path);
    const PlainFile* former = find_file(path);
    const bool folder =
        state == FileState::Directory ||
        (state == FileState::Link && ((former != nullptr && former->directory) || has_entries(key)));
    disk().files.erase(key);
    if (state == FileState::Absent)
        return;
    make_folders_above(path);
    PlainFile& file = disk().files[key];
    file.directory = folder;
    file.link = state == FileState::Link;
}

const PlainFile* find_file(const std::string& path) {
    auto found = disk().files.find(lower(path));
    return found != disk().files.end() ? &found->second : nullptr;
}

void set_disk_full(bool full) {
    disk().full = full;
}

void set_folder(int csidl, const std::string& path) {
    disk().folders[csidl] = path;
    if (!path.empty() && find_file(path) == nullptr)
        set_file(path, FileState::Directory);
}

// ---- security descriptors ----

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

static void take_security(const SECURITY_ATTRIBUTES* attributes, PlainFile* file) {
    if (attributes == nullptr || attributes->lpSecurityDescriptor == nullptr)
        return;
    const auto* descriptor = static_cast<const SECURITY_DESCRIPTOR*>(attributes->lpSecurityDescriptor);
    if (attributes->nLength != sizeof(SECURITY_ATTRIBUTES) ||
        descriptor->Revision != SECURITY_DESCRIPTOR_REVISION)
        violation("CreateFileW: security attributes of %u bytes, revision %u", attributes->nLength,
                  descriptor->Revision);
    file->control = descriptor->Control;
    file->dacl = acl_entries(descriptor->Dacl);
}

// ---- files ----

static BOOL write_plain(Object& object, const void* buffer, DWORD bytes, DWORD* written) {
    if (disk().full) {
        set_last_error(ERROR_DISK_FULL);
        return FALSE;
    }
    disk().files[lower(object.name)].bytes.append(static_cast<const char*>(buffer), bytes);
    *written = bytes;
    return TRUE;
}

static const FileOps g_plainOps = {nullptr, write_plain, nullptr, nullptr};

static bool open_plain(const OpenRequest& request, ObjectRef* file) {
    if (request.path.size() < 3 || request.path[1] != ':')
        return false;
    const PlainFile* existing = find_file(request.path);
    if (existing == nullptr && !file_has_folder(request.path)) {
        set_last_error(ERROR_PATH_NOT_FOUND);
        return true;
    }
    if (request.disposition == CREATE_NEW && existing != nullptr) {
        set_last_error(ERROR_FILE_EXISTS);
        return true;
    }
    if (request.disposition != CREATE_NEW && (existing == nullptr || existing->directory)) {
        set_last_error(existing == nullptr ? ERROR_FILE_NOT_FOUND : ERROR_ACCESS_DENIED);
        return true;
    }
    if (request.disposition == CREATE_NEW) {
        take_security(request.security, &disk().files[lower(request.path)]);
        trace("file create \"%s\"", request.path.c_str());
    }
    *file = make_file(request, &g_plainOps, false);
    return true;
}

static const FileKinds g_kind(open_plain);

static bool is_open(const std::string& path) {
    for (const auto& [value, entry] : machine().handles) {
        if (entry.object->kind == Kind::File && same_text(entry.object->name, path))
            return true;
    }
    return false;
}

// ---- the language ----

static Action compile_file(Tokens& tokens) {
    const std::string path = tokens.text();
    const auto state = static_cast<FileState>(tokens.choice({"absent", "present", "directory", "link"}));
    return [path, state] { set_file(path, state); };
}

static Action compile_check_file(Tokens& tokens) {
    const std::string path = tokens.text();
    const bool present = tokens.choice({"absent", "present"}) == 1;
    return [path, present] {
        expectation((find_file(path) != nullptr) == present,
                    "file \"" + path + "\" " + (present ? "present" : "absent"));
    };
}

static const Commands g_commands({
    {"file", Use::Machine, compile_file},
    {"check file", Use::Check, compile_check_file},
});

} // namespace sim

using namespace sim;

extern "C" {

BOOL WINAPI DeleteFileW(LPCWSTR wide_path) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    const std::string path = narrow(wide_path);
    const PlainFile* existing = find_file(path);
    const DWORD error = existing == nullptr   ? ERROR_FILE_NOT_FOUND
                        : existing->directory ? ERROR_ACCESS_DENIED
                        : is_open(path)       ? ERROR_SHARING_VIOLATION
                                              : ERROR_SUCCESS;
    if (error != ERROR_SUCCESS) {
        set_last_error(error);
        return FALSE;
    }
    disk().files.erase(lower(path));
    trace("file delete \"%s\"", path.c_str());
    return TRUE;
}

DWORD WINAPI GetFileAttributesW(LPCWSTR path) {
    SIM_CALL(INVALID_FILE_ATTRIBUTES, ERROR_ACCESS_DENIED);
    const std::string name = narrow(path);
    const PlainFile* existing = find_file(name);
    if (existing == nullptr) {
        set_last_error(file_has_folder(name) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
        return INVALID_FILE_ATTRIBUTES;
    }
    return (existing->directory ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE) |
           (existing->link ? FILE_ATTRIBUTE_REPARSE_POINT : 0);
}

HRESULT WINAPI SHGetFolderPathW(HWND, int folder, HANDLE, DWORD flags, LPWSTR path) {
    SIM_CALL(E_FAIL, ERROR_GEN_FAILURE);
    path[0] = 0;
    if ((folder & CSIDL_FLAG_CREATE) == 0 || flags != SHGFP_TYPE_CURRENT)
        violation("SHGetFolderPathW: folder 0x%x flags %u", static_cast<unsigned>(folder), flags);
    auto found = disk().folders.find(folder & ~CSIDL_FLAG_CREATE);
    if (found == disk().folders.end() || found->second.empty())
        return E_FAIL;
    return put_wide(path, MAX_PATH, found->second) != 0 ? S_OK : E_FAIL;
}

BOOL WINAPI CreateWellKnownSid(WELL_KNOWN_SID_TYPE type, PVOID, PVOID sid, DWORD* bytes) {
    SIM_CALL(FALSE, ERROR_INVALID_PARAMETER);
    if (type != WinLocalSystemSid || *bytes < sizeof(SYSTEM_SID)) {
        set_last_error(type != WinLocalSystemSid ? ERROR_INVALID_PARAMETER : ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(sid, SYSTEM_SID, sizeof(SYSTEM_SID));
    *bytes = sizeof(SYSTEM_SID);
    return TRUE;
}

DWORD WINAPI SetEntriesInAclW(ULONG count, EXPLICIT_ACCESS_W* entries, ACL* old, ACL** created) {
    SIM_CALL(ERROR_NOT_ENOUGH_MEMORY, ERROR_NOT_ENOUGH_MEMORY);
    std::vector<BYTE> aces;
    for (ULONG i = 0; i < count; ++i) {
        const EXPLICIT_ACCESS_W& entry = entries[i];
        if (entry.grfAccessMode != SET_ACCESS || entry.Trustee.TrusteeForm != TRUSTEE_IS_SID ||
            old != nullptr)
            return ERROR_INVALID_PARAMETER;
        const auto* sid = reinterpret_cast<const BYTE*>(entry.Trustee.ptstrName);
        const auto size = static_cast<WORD>(8 + sid_size(sid));
        BYTE head[8] = {0, static_cast<BYTE>(entry.grfInheritance), static_cast<BYTE>(size & 0xFF),
                        static_cast<BYTE>(size >> 8)};
        std::memcpy(head + 4, &entry.grfAccessPermissions, sizeof(DWORD));
        aces.insert(aces.end(), head, head + sizeof(head));
        aces.insert(aces.end(), sid, sid + sid_size(sid));
    }
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
    *static_cast<SECURITY_DESCRIPTOR*>(descriptor) = {
        static_cast<BYTE>(revision), 0, 0, nullptr, nullptr, nullptr, nullptr};
    return TRUE;
}

BOOL WINAPI SetSecurityDescriptorDacl(PVOID descriptor, BOOL present, PACL dacl, BOOL) {
    SIM_CALL(FALSE, ERROR_INVALID_PARAMETER);
    auto* changed = static_cast<SECURITY_DESCRIPTOR*>(descriptor);
    changed->Control =
        static_cast<WORD>((changed->Control & ~SE_DACL_PRESENT) | (present != FALSE ? SE_DACL_PRESENT : 0));
    changed->Dacl = dacl;
    return TRUE;
}

BOOL WINAPI SetSecurityDescriptorControl(PVOID descriptor, SECURITY_DESCRIPTOR_CONTROL bits,
                                         SECURITY_DESCRIPTOR_CONTROL values) {
    SIM_CALL(FALSE, ERROR_INVALID_PARAMETER);
    constexpr SECURITY_DESCRIPTOR_CONTROL settable = SE_DACL_PROTECTED;
    if ((bits & ~settable) != 0 || (values & ~bits) != 0) {
        set_last_error(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    auto* changed = static_cast<SECURITY_DESCRIPTOR*>(descriptor);
    changed->Control = static_cast<WORD>((changed->Control & ~bits) | values);
    return TRUE;
}

} // extern "C"
