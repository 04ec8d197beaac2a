// The registry's tree and its openings, for the calls on it.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sim/machine/machine.h"
#include "sim/windows/registry.h"

namespace sim {

struct Key;
using KeyRef = std::shared_ptr<Key>;

struct KeyValue {
    std::string name; // as first written
    RegistryValue data;
};

struct Key {
    std::string name;
    Key* parent = nullptr;
    bool deleted = false;
    bool is_volatile = false;                          // gone at the machine's next start
    std::map<std::string, KeyRef, TextOrder> children; // by name, lower case; so are the values
    std::map<std::string, KeyValue, TextOrder> values;
};

struct KeyWait {
    ObjectRef event;
    Thread* armed_by = nullptr; // whose end is told like a change
};

// Body of a handle: one opening of a key, with the change notifications that belong to it.
struct OpenedKey {
    KeyRef key;
    std::string path;            // as the service named it, for the trace
    std::vector<KeyWait> waits;  // asked for since the last change was reported
    bool subtree = false;        // of the keys below too, and of their coming and going
    bool asked = false;          // a notification has been asked for on this handle
    bool change_pending = false; // a change since the last one was reported
};

// One successful opening, for `expect open`.
struct KeyOpening {
    size_t at;        // among all lines of the run
    std::string path; // as the service named it
    REGSAM access;
    const Process* process;
};

constexpr size_t REGISTRY_ROOTS = 4; // HKCR, HKCU, HKLM, HKU
extern const char* const g_registryRoots[REGISTRY_ROOTS];

struct Registry {
    KeyRef roots[REGISTRY_ROOTS];
    std::vector<OpenedKey*> opened;
    bool remembers_changes = true;
    bool tells_of_same_data = true;
    bool takes_null_behind = false;
    std::map<std::string, REGSAM> refused; // by plain path, of keys that may not exist: these rights
    std::vector<KeyOpening> openings;      // while a trace is kept
    Registry();
};

Registry& registry();

// Takes the next name off a path; "" at its end.
std::string_view next_name(std::string_view* path);
std::vector<std::string_view> path_components(std::string_view path);
// "SVC\TMC" or "HKLM\..." to the key; in the merged view the user's before the machine's. A new key of the
// view is the machine's.
KeyRef find_key(std::string_view path, bool create = false);
KeyRef find_below(const KeyRef& key, std::string_view path); // not in the merged view
bool is_merged(std::string_view path);                       // of HKEY_CLASSES_ROOT
// The machine's half of such a path.
std::string machine_classes(std::string_view path);
// A value as a handle of this path reads it: the merged view has the machine's where the user has none.
const KeyValue* find_value(const Key& key, std::string_view path, std::string_view name);
// Writes it; false when the key held the same already.
bool put_value(Key& key, const std::string& name, RegistryValue data);
// Whether the account of the current process may not: an ordinary user changes nothing of the machine's.
bool user_refused(const Key* key, REGSAM access);
// Whether opening the key with these rights is refused: by its own path, or one that it lies below.
bool registry_refused(std::string_view path, REGSAM access);
// All names of a key in one form: lower case, without SVC, each part ended.
std::string plain_path(std::string_view path);
// As the trace shows it, with SVC for the service key.
std::string shown_path(std::string_view path);

// Notification: to be told of what has changed.
// `names`: a key has come or gone below it; only the watchers of whole trees ask for that.
void key_changed(const Key* key, bool names = false);
void key_deleted(Key* key); // with all below it; its handles outlive it
// A change ends all waits of the handle: every event is signalled, and the handle no longer armed.
void complete_notifications(OpenedKey* opened);
// The current thread asks for notifications: they end with it, and ending signals their events.
Thread* asking_thread();

} // namespace sim
