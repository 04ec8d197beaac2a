// The power-management driver, its devices and the firmware behind it; also how other devices join.
#pragma once

#include "sim/machine/machine.h"

namespace sim {

// ---- files and devices: what stands behind a handle of Kind::File ----
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
ObjectRef make_file(const OpenRequest& request, const FileOps* ops, bool device);

// ---- the driver ----
struct Answer {
    bool fails = false;
    std::uint64_t value = 0;
    DWORD bytes = 0xFFFFFFFF; // all that the code has
};
// Sets the lasting answer of a method (catalogue name without IOCTL_PMDRV_), or `times` answers before it.
// `argument` null: for every argument without an answer of its own.
void set_answer(const std::string& method, const DWORD* argument, const Answer& answer, unsigned times = 0);
void set_answer_duration(const std::string& method, const DWORD* argument, Ms duration);
// Scripts in code may decide answers by function instead (null: back to the table). It runs on the calling
// thread.
void set_answer_hook(std::function<bool(const std::string& method, DWORD argument, Answer* answer)> hook);
// Called for each request carried out, with its input words.
void set_request_hook(std::function<void(const std::string& method, const DWORD* in, DWORD in_bytes)> hook);

void post_event(DWORD code, DWORD second = 0);
size_t pending_events();
void set_driver_present(bool primary, bool secondary);

// A device in the enumeration of all present devices.
void set_hardware(const std::string& hardware_id, bool present);

} // namespace sim
