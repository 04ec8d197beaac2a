// What stands behind a handle of Kind::File: files and devices, whose kinds register themselves.
#pragma once

#include <windows.h>
#include <memory>
#include <string>

#include "sim/machine/handles.h"

namespace sim {

struct FileOps {
    BOOL (*read)(Object& file, void* buffer, DWORD bytes, DWORD* read);
    BOOL (*write)(Object& file, const void* buffer, DWORD bytes, DWORD* written);
    BOOL(*control)
    (Object& file, DWORD code, const void* in, DWORD in_bytes, void* out, DWORD out_bytes, DWORD* returned);
    void (*closed)(Object& file);
};

struct File { // body of a Kind::File object
    const FileOps* ops = nullptr;
    std::string path;
    DWORD access = 0;
    DWORD share = 0;
    bool device = false; // counts for `check handles`
    std::shared_ptr<void> data;
};

struct OpenRequest {
    std::string path;
    DWORD access = 0;
    DWORD share = 0;
    DWORD disposition = 0;
    DWORD flags = 0;
    SECURITY_ATTRIBUTES* security = nullptr;
};

// Adds a kind of file: `open` looks at the path, returns false when it is not its own; else it sets *file, or
// the last error and leaves *file null.
struct FileKinds {
    FileKinds(bool (*open)(const OpenRequest& request, ObjectRef* file));
};
// Asks each kind in turn; false when the path is none of theirs.
bool open_file(const OpenRequest& request, ObjectRef* file);

// For kinds of devices: an existing one, synchronous, without attributes and security; else a violation.
void check_device_opening(const OpenRequest& request);

// For kinds: the object of an opened file.
ObjectRef make_file(const OpenRequest& request, const FileOps* ops, bool device);
// The file of a handle that `call` is given; null, with the last error, for another one or one that was
// opened without `access`, which is a violation.
ObjectRef file_of(HANDLE handle, DWORD access, const char* call);
// Handles open now to devices, in all processes.
size_t device_handle_count();

} // namespace sim
