#include "sim/windows/disk.h"

#include <map>
#include <shlobj.h>

#include "sim/machine/files.h"
#include "sim/machine/machine.h"
#include "sim/script/commands.h"
#include "sim/script/expectations.h"

namespace sim {

constexpr DWORD ERROR_DISK_FULL = 112;

static PlainFile make_folder() {
    PlainFile folder;
    folder.directory = true;
    return folder;
}

static const PlainFile FOLDER = make_folder();

namespace {

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

} // namespace

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

static void take_security(const SECURITY_ATTRIBUTES* attributes, PlainFile* file) {
    if (attributes != nullptr && attributes->lpSecurityDescriptor != nullptr)
        file->control = read_dacl(attributes, &file->dacl, "CreateFileW");
}

static BOOL write_plain(Object& object, const void* buffer, DWORD bytes, DWORD* written) {
    if (disk().full) {
        set_last_error(ERROR_DISK_FULL);
        return FALSE;
    }
    disk().files[lower(object.name)].bytes.append(static_cast<const char*>(buffer), bytes);
    *written = bytes;
    return TRUE;
}

static BOOL read_plain(Object& object, void*, DWORD, DWORD*) {
    violation("ReadFile: %s is a plain file, whose text is not known here", object.name.c_str());
    return fail_with(ERROR_INVALID_FUNCTION);
}

static const FileOps g_plainOps = {read_plain, write_plain, nullptr, nullptr};

static bool open_plain(const OpenRequest& request, ObjectRef* file) {
    if (request.path.size() < 3 || request.path[1] != ':')
        return false;
    if (request.path.find_first_of("*?") != std::string::npos) {
        set_last_error(ERROR_INVALID_NAME);
        return true;
    }
    if ((request.flags & ~FILE_ATTRIBUTE_NORMAL) != 0 ||
        (request.disposition != CREATE_NEW && request.disposition != OPEN_EXISTING))
        violation("CreateFileW: %s opened with disposition %u, flags 0x%x: not known here",
                  request.path.c_str(), request.disposition, request.flags);
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
    if (found == disk().folders.end())
        return E_INVALIDARG;
    if (found->second.empty())
        return E_FAIL;
    return put_wide(path, MAX_PATH, found->second) != 0 ? S_OK : E_FAIL;
}

} // extern "C"

// ---- commands ----

namespace sim {

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
    {"file", Use::Machine, compile_file, "\"PATH\" present|absent|directory|link - a file"},
    {"check file", Use::Check, compile_check_file, "\"PATH\" present|absent - whether there is one"},
});

} // namespace sim
