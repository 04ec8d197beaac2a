// Kernel objects and the handles to them.
#pragma once

#include <windows.h>
#include <memory>
#include <string>

namespace sim {

enum class Kind {
    Event,
    Mutex,
    Thread,
    Process,
    File,
    Key,
    DeviceSet,
    ServiceManager,
    Service,
    Token,
    Desktop,
    PowerNotify,
    Other
};

struct Thread;
struct Process;
struct Object;

struct Object {
    Kind kind = Kind::Other;
    std::string name;         // of a named object, or what it stands for in messages
    bool signaled = false;    // events, ended threads and processes
    bool manual_reset = true; // events
    Thread* owner = nullptr;  // mutexes
    int owned_depth = 0;
    bool abandoned = false;
    bool foreign = false;                     // another program's
    std::shared_ptr<void> body;               // what the area keeps with the object
    void (*on_last_close)(Object&) = nullptr; // called when the last handle goes, also at the process's end
    int handles = 0;
    Process* home = nullptr; // threads: their process
    template <class T> T& as() { return *static_cast<T*>(body.get()); }
};
using ObjectRef = std::shared_ptr<Object>;

struct HandleEntry {
    ObjectRef object;
    DWORD access = 0;
    Process* process = nullptr;
};

ObjectRef make_object(Kind kind, std::string name = {});
// An auto-reset (or manual) event for an area's own use.
ObjectRef make_event(bool manual_reset = false);
// A named object of the machine's one namespace (an event and a mutex may not share a name). Null when none
// lives.
ObjectRef find_named(const std::string& name);
void remember_named(const ObjectRef& object);

constexpr DWORD EVERY_ACCESS = 0x1FFFFF; // what whoever makes an object may do with it

// Opens a handle in the current process.
HANDLE open_handle(const ObjectRef& object, DWORD access = EVERY_ACCESS);
// The entry of a handle of the wanted kind. Null with last error 6 otherwise; a handle that is neither null
// nor INVALID_HANDLE_VALUE and not open, or of another kind, is a violation of the call. So is one that lacks
// a needed right, with last error 5. INVALID_HANDLE_VALUE is the process itself.
HandleEntry* handle_entry(HANDLE handle, Kind kind, const char* call, DWORD needed = 0);
HandleEntry* any_handle(HANDLE handle, const char* call);
BOOL close_handle(HANDLE handle, const char* call); // any kind; the process itself stays
void close_handles_of(Process* process);            // all that it has left open
// Handles open now (of one kind, or of all) in a process (null: all processes).
size_t handle_count(Process* process = nullptr);
size_t handle_count(Kind kind, Process* process = nullptr);

} // namespace sim
