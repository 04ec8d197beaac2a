// Files and directories of the disk.
#pragma once

#include <string>
#include <vector>

#include "sim/windows/security_descriptors.h"

namespace sim {

struct PlainFile {
    bool directory = false;
    bool link = false; // a reparse point
    std::string bytes;
    WORD control = 0; // of the security descriptor that it was made with
    std::vector<AclEntry> dacl;
};

enum class FileState { Absent, Present, Directory, Link };

// Makes the folders above it too. A link is one to what was there: a directory if there is one, or something
// below it.
void set_file(const std::string& path, FileState state);
const PlainFile* find_file(const std::string& path); // null: absent; names in any case
bool file_has_folder(const std::string& path);       // whether it could be made there
// Leaves the one form of a path: absolute, backslashes, none at its end, where it means a folder; "." and
// ".." are walked. One of a device, a server or below the folder of a drive is a violation of the call, and
// so is a stream's. An error, or 0.
DWORD resolve_path(const char* call, std::string* path, bool* as_folder);

enum class Writing { Works, DiskFull, Short }; // Short: all but the last byte, and no error
void set_writing(Writing writing);

// The system folders that SHGetFolderPathW knows; "" for one that cannot be found.
void set_folder(int csidl, const std::string& path);

} // namespace sim
