#include "sim/windows/disk.h"

#include <algorithm>
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
    Writing writing = Writing::Works;
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
    const auto below = disk().files.upper_bound(lower(folder) + "\\");
    return below != disk().files.end() && below->first.starts_with(lower(folder) + "\\");
}

// "C:", with or without a backslash behind it; a drive is there when anything is on it.
static bool is_drive(const std::string& path) {
    return path.size() == 2 && path[1] == ':' && has_entries(path);
}

bool file_has_folder(const std::string& path) {
    const std::string folder = folder_of(path);
    const PlainFile* found = find_file(folder);
    return found != nullptr && found->directory;
}

// The parts of a path behind its drive: "." and ".." are walked, a dot ends no part, nor blanks the last.
static std::vector<std::string> parts_of_path(const std::string& path) {
    std::vector<std::string> parts;
    for (size_t start = 3; start < path.size();) {
        const size_t end = std::min(path.find('\\', start), path.size());
        std::string part = path.substr(start, end - start);
        start = end + 1;
        if (part == "..") {
            if (!parts.empty())
                parts.pop_back();
            continue;
        }
        if (end == path.size())
            part.erase(part.find_last_not_of(". ") + 1);
        else if (part.ends_with('.'))
            part.pop_back();
        if (!part.empty())
            parts.push_back(part);
    }
    return parts;
}

// The one form of a full path. A colon parts the name of a stream from that of its file, the last part.
static DWORD walk_parts(const char* call, std::string* path) {
    const std::string whole = *path;
    path->resize(2);
    for (const std::string& part : parts_of_path(whole)) {
        if (path->find(':', 2) != std::string::npos || part.ends_with(':'))
            return ERROR_INVALID_NAME;
        *path += "\\" + part;
    }
    if (path->find(':', 2) == std::string::npos)
        return ERROR_SUCCESS;
    violation("%s: %s: the disk of this machine keeps no streams", call, path->c_str());
    return ERROR_INVALID_NAME;
}

DWORD resolve_path(const char* call, std::string* path, bool* as_folder) {
    *as_folder = false;
    if (path->empty())
        return ERROR_PATH_NOT_FOUND;
    if (path->find_first_of("*?<>|\"") != std::string::npos && path->front() != '\\')
        return ERROR_INVALID_NAME;
    std::replace(path->begin(), path->end(), '/', '\\');
    while (path->find("\\\\", 1) != std::string::npos)
        path->erase(path->find("\\\\", 1), 1);
    if (path->front() != '\\' && path->find(':') == std::string::npos) // every process stands here
        *path = disk().folders[CSIDL_SYSTEM] + "\\" + *path;
    *as_folder = path->size() > 3 && path->back() == '\\';
    if (path->back() == '\\')
        path->pop_back();
    if (path->size() == 2 && (*path)[1] == ':')
        return ERROR_SUCCESS;
    if (path->substr(1, 2) == ":\\")
        return walk_parts(call, path);
    violation("%s: %s is not spelled as the names of this machine's disk are", call, path->c_str());
    return ERROR_INVALID_NAME;
}

// The file or folder of a path, which is left in its one form. An error when it is not there.
static DWORD look_up(const char* call, std::string* path, const PlainFile** found) {
    bool as_folder = false;
    if (const DWORD error = resolve_path(call, path, &as_folder))
        return error;
    *found = find_file(*path);
    if (*found == nullptr)
        return file_has_folder(*path) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
    return as_folder && !(*found)->directory ? ERROR_INVALID_NAME : ERROR_SUCCESS;
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
    if (is_drive(path))
        return &FOLDER;
    auto found = disk().files.find(lower(path));
    return found != disk().files.end() ? &found->second : nullptr;
}

void set_writing(Writing writing) {
    disk().writing = writing;
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

// Where a handle of the file stands.
static size_t& position(Object& object) {
    return *static_cast<size_t*>(object.as<File>().data.get());
}

static BOOL read_plain(Object& object, void* buffer, DWORD bytes, DWORD* read) {
    const std::string& content = disk().files[lower(object.name)].bytes;
    const size_t start = std::min(position(object), content.size());
    *read = static_cast<DWORD>(content.copy(static_cast<char*>(buffer), bytes, start));
    position(object) = start + *read;
    return TRUE;
}

static BOOL write_plain(Object& object, const void* buffer, DWORD bytes, DWORD* written) {
    if (disk().writing == Writing::DiskFull) {
        set_last_error(ERROR_DISK_FULL);
        return FALSE;
    }
    if (disk().writing == Writing::Short && bytes > 0)
        --bytes;
    std::string& content = disk().files[lower(object.name)].bytes;
    const size_t start = position(object);
    content.resize(std::max(content.size(), start + bytes));
    content.replace(start, bytes, static_cast<const char*>(buffer), bytes);
    position(object) += bytes;
    *written = bytes;
    return TRUE;
}

static const FileOps g_plainOps = {read_plain, write_plain, nullptr, nullptr};

constexpr DWORD FILE_SHARE_ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD KNOWN_ACCESS = GENERIC_READ | GENERIC_WRITE | GENERIC_ALL | DELETE;

// The share mode that an access needs of all the other openers.
static DWORD needed_share(DWORD access) {
    constexpr struct {
        DWORD access;
        DWORD share;
    } rows[] = {
        {GENERIC_READ, FILE_SHARE_READ}, {GENERIC_WRITE, FILE_SHARE_WRITE}, {DELETE, FILE_SHARE_DELETE}};
    DWORD share = 0;
    for (const auto& row : rows) {
        if ((access & (row.access | GENERIC_ALL)) != 0)
            share |= row.share;
    }
    return share;
}

static std::vector<const File*> openers(const std::string& path) {
    std::vector<const File*> found;
    for (const auto& [value, entry] : machine().handles) {
        if (entry.object->kind == Kind::File && same_text(entry.object->name, path))
            found.push_back(&entry.object->as<File>());
    }
    return found;
}

// Whether no opener stands in the way of another with this access and share mode. Those without access do not
// count.
static bool is_shared(const std::string& path, DWORD access, DWORD share) {
    const DWORD needed = needed_share(access);
    for (const File* other : openers(path)) {
        const DWORD others_need = needed_share(other->access);
        if (needed != 0 && others_need != 0 && ((needed & ~other->share) != 0 || (others_need & ~share) != 0))
            return false;
    }
    return true;
}

// Whether the file can be opened so; an error, or 0.
static DWORD opening_error(const OpenRequest& request, const PlainFile* existing) {
    const bool creates = request.disposition == CREATE_NEW || request.disposition == CREATE_ALWAYS;
    if (existing == nullptr) {
        if (!file_has_folder(request.path))
            return ERROR_PATH_NOT_FOUND;
        return creates ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    }
    if (request.disposition == CREATE_NEW)
        return ERROR_FILE_EXISTS;
    if (existing->directory)
        return ERROR_ACCESS_DENIED;
    return is_shared(request.path, request.access, request.share) ? ERROR_SUCCESS : ERROR_SHARING_VIOLATION;
}

static void check_plain_opening(const OpenRequest& request) {
    if ((request.flags & ~FILE_ATTRIBUTE_NORMAL) != 0 || (request.access & ~KNOWN_ACCESS) != 0 ||
        request.disposition < CREATE_NEW || request.disposition > OPEN_EXISTING)
        violation("CreateFileW: %s opened with disposition %u, access 0x%x, flags 0x%x: not known here",
                  request.path.c_str(), request.disposition, request.access, request.flags);
    if (request.security != nullptr &&
        (request.security->nLength != sizeof(*request.security) || request.security->bInheritHandle))
        violation("CreateFileW: %s with security attributes not known here", request.path.c_str());
}

static bool open_plain(const OpenRequest& given, ObjectRef* file) {
    if (given.path.size() < 2 || given.path[1] != ':')
        return false;
    OpenRequest request = given;
    bool as_folder = false;
    DWORD error = resolve_path("CreateFileW", &request.path, &as_folder);
    check_plain_opening(request);
    const PlainFile* existing = find_file(request.path);
    if (error == ERROR_SUCCESS && as_folder && (existing == nullptr || !existing->directory))
        error = ERROR_INVALID_NAME;
    if (error == ERROR_SUCCESS)
        error = opening_error(request, existing);
    if (error != ERROR_SUCCESS) {
        set_last_error(error);
        return true;
    }
    if (existing == nullptr) {
        take_security(request.security, &disk().files[lower(request.path)]);
        trace("file create \"%s\"", request.path.c_str());
    } else if (request.disposition == CREATE_ALWAYS) {
        disk().files[lower(request.path)].bytes.clear();
        trace("file overwrite \"%s\"", request.path.c_str());
        set_last_error(ERROR_ALREADY_EXISTS);
    }
    *file = make_file(request, &g_plainOps, false);
    (*file)->as<File>().data = std::make_shared<size_t>(0);
    return true;
}

static const FileKinds g_kind(open_plain);

} // namespace sim

using namespace sim;

extern "C" {

BOOL WINAPI DeleteFileW(LPCWSTR wide_path) {
    SIM_CALL(FALSE, ERROR_ACCESS_DENIED);
    std::string path = narrow(wide_path);
    const PlainFile* existing = nullptr;
    DWORD error = look_up("DeleteFileW", &path, &existing);
    if (error == ERROR_SUCCESS && existing->directory)
        error = ERROR_ACCESS_DENIED;
    else if (error == ERROR_SUCCESS && !is_shared(path, DELETE, FILE_SHARE_ALL))
        error = ERROR_SHARING_VIOLATION;
    if (error != ERROR_SUCCESS) {
        set_last_error(error);
        return FALSE;
    }
    if (!openers(path).empty())
        violation("DeleteFileW: %s is open: its end with the last handle is not known here", path.c_str());
    disk().files.erase(lower(path));
    trace("file delete \"%s\"", path.c_str());
    return TRUE;
}

DWORD WINAPI GetFileAttributesW(LPCWSTR wide_path) {
    SIM_CALL(INVALID_FILE_ATTRIBUTES, ERROR_ACCESS_DENIED);
    std::string path = narrow(wide_path);
    const PlainFile* existing = nullptr;
    if (const DWORD error = look_up("GetFileAttributesW", &path, &existing)) {
        set_last_error(error);
        return INVALID_FILE_ATTRIBUTES;
    }
    return (existing->directory ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE) |
           (existing->link ? FILE_ATTRIBUTE_REPARSE_POINT : 0);
}

HRESULT WINAPI SHGetFolderPathW(HWND owner, int folder, HANDLE token, DWORD flags, LPWSTR path) {
    SIM_CALL(E_FAIL, ERROR_GEN_FAILURE);
    path[0] = 0;
    if ((folder & CSIDL_FLAG_CREATE) == 0 || flags != SHGFP_TYPE_CURRENT || owner != nullptr ||
        token != nullptr)
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
