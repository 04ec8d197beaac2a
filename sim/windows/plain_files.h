// Files and directories of the disk, and the security descriptors that they are made with.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

struct AclEntry {
    std::string sid; // "S-1-5-18"
    DWORD mask = 0;
    BYTE type = 0;  // 0: access allowed
    BYTE flags = 0; // inheritance
};

struct PlainFile {
    bool directory = false;
    std::string bytes;
    bool has_dacl = false;
    std::vector<AclEntry> dacl;
};

enum class FileState { Absent, Present, Directory };

void set_file(const std::string& path, FileState state);
const PlainFile* find_file(const std::string& path); // null: absent; names in any case
void set_disk_full(bool full);                       // writing fails

// The system folders that SHGetFolderPathW knows; "" for one that cannot be found.
void set_folder(int csidl, const std::string& path);

} // namespace sim
