#include "sim/machine/handles.h"

#include <algorithm>
#include <vector>

#include "sim/machine/machine.h"

namespace sim {

ObjectRef make_object(Kind kind, std::string name) {
    auto object = std::make_shared<Object>();
    object->kind = kind;
    object->name = std::move(name);
    return object;
}

ObjectRef make_event(bool manual_reset) {
    ObjectRef event = make_object(Kind::Event);
    event->manual_reset = manual_reset;
    return event;
}

ObjectRef find_named(const std::string& name) {
    auto found = machine().named.find(name);
    if (found == machine().named.end())
        return nullptr;
    ObjectRef object = found->second.lock();
    // The stack of a terminated thread may still refer to an object; without a handle its name is free again.
    return object != nullptr && object->handles > 0 ? object : nullptr;
}

void remember_named(const ObjectRef& object) {
    machine().named[object->name] = object;
}

HANDLE open_handle(const ObjectRef& object, DWORD access) {
    Machine& m = machine();
    const std::uintptr_t value = m.next_handle;
    m.next_handle += 4; // never used again, so that a stale handle is always seen
    m.handles[value] = HandleEntry{object, access, current_process()};
    ++object->handles;
    return reinterpret_cast<HANDLE>(value);
}

// Null: not open, in any process.
static HandleEntry* find_handle(std::uintptr_t value) {
    Machine& m = machine();
    auto& recent = m.recent_handles[value / 4 % std::size(m.recent_handles)];
    if (recent.value == value)
        return recent.entry;
    const auto found = m.handles.find(value);
    if (found == m.handles.end())
        return nullptr;
    recent = {value, &found->second};
    return recent.entry;
}

HandleEntry* any_handle(HANDLE handle, const char* call) {
    if (handle == INVALID_HANDLE_VALUE) {
        machine().own_process = {current_process()->object, EVERY_ACCESS, current_process()};
        return &machine().own_process;
    }
    HandleEntry* entry = handle != nullptr ? find_handle(reinterpret_cast<std::uintptr_t>(handle)) : nullptr;
    if (entry != nullptr && entry->process == current_process())
        return entry;
    set_last_error(ERROR_INVALID_HANDLE);
    if (handle != nullptr)
        violation("%s: handle %p is not open", call, handle);
    return nullptr;
}

HandleEntry* handle_entry(HANDLE handle, Kind kind, const char* call, DWORD needed) {
    HandleEntry* entry = any_handle(handle, call);
    if (entry == nullptr)
        return nullptr;
    if (entry->object->kind != kind) {
        set_last_error(ERROR_INVALID_HANDLE);
        if (handle != INVALID_HANDLE_VALUE)
            violation("%s: handle %p is of another kind", call, handle);
        return nullptr;
    }
    if ((entry->access & needed) == needed)
        return entry;
    set_last_error(ERROR_ACCESS_DENIED);
    violation("%s: handle %p has the rights 0x%x, needs 0x%x", call, handle, entry->access, needed);
    return nullptr;
}

static void drop_handle(std::uintptr_t value) {
    Machine& m = machine();
    auto found = m.handles.find(value);
    const ObjectRef object = found->second.object;
    m.handles.erase(found);
    ++m.closes;
    auto& recent = m.recent_handles[value / 4 % std::size(m.recent_handles)];
    if (recent.value == value)
        recent = {};
    if (--object->handles != 0)
        return;
    if (object->on_last_close != nullptr)
        object->on_last_close(*object);
    if (object->owner != nullptr) {
        std::vector<Object*>& owned = object->owner->owned;
        owned.erase(std::remove(owned.begin(), owned.end(), object.get()), owned.end());
    }
}

BOOL close_handle(HANDLE handle, const char* call) {
    if (any_handle(handle, call) == nullptr)
        return FALSE;
    if (handle == INVALID_HANDLE_VALUE)
        return TRUE;
    drop_handle(reinterpret_cast<std::uintptr_t>(handle));
    return TRUE;
}

void close_handles_of(Process* process) {
    std::vector<std::uintptr_t> open;
    for (const auto& [value, entry] : machine().handles) {
        if (entry.process == process)
            open.push_back(value);
    }
    std::sort(open.begin(), open.end());
    for (const std::uintptr_t value : open) {
        if (machine().handles.count(value) != 0)
            drop_handle(value);
    }
}

size_t handle_count(Process* process) {
    size_t count = 0;
    for (const auto& [value, entry] : machine().handles)
        count += process == nullptr || entry.process == process;
    return count;
}

size_t handle_count(Kind kind, Process* process) {
    size_t count = 0;
    for (const auto& [value, entry] : machine().handles)
        count += entry.object->kind == kind && (process == nullptr || entry.process == process);
    return count;
}

} // namespace sim
