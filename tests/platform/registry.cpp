// Keys of the registry: their life, rights, options, change notification and hives. All stands below one key
// of the user's, which is gone when a group begins.
#include <windows.h>
#include <strsafe.h>

#include "tests/platform/probe.h"

static const WCHAR g_root[] = L"Software\\ZorpmProbe";

static HKEY create(HKEY above, const WCHAR* path, REGSAM access = KEY_ALL_ACCESS, DWORD options = 0) {
    HKEY key = nullptr;
    RegCreateKeyExW(above, path, 0, nullptr, options, access, nullptr, &key, nullptr);
    return key;
}

static HKEY root_key() {
    return create(HKEY_CURRENT_USER, g_root);
}

static LSTATUS opens(HKEY above, const WCHAR* path, REGSAM access = KEY_READ, DWORD options = 0) {
    HKEY key = nullptr;
    const LSTATUS error = RegOpenKeyExW(above, path, options, access, &key);
    if (error == ERROR_SUCCESS)
        RegCloseKey(key);
    return error;
}

// The error, or 100 and the disposition.
static DWORD creates(HKEY above, const WCHAR* path, REGSAM access = KEY_READ, DWORD options = 0) {
    HKEY key = nullptr;
    DWORD disposition = 0;
    const LSTATUS error =
        RegCreateKeyExW(above, path, 0, nullptr, options, access, nullptr, &key, &disposition);
    if (error != ERROR_SUCCESS)
        return static_cast<DWORD>(error);
    RegCloseKey(key);
    return 100 + disposition;
}

static LSTATUS set(HKEY key, const WCHAR* name, DWORD value) {
    return RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value));
}

static LSTATUS query(HKEY key, const WCHAR* name) {
    DWORD value = 0;
    DWORD bytes = sizeof(value);
    return RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &bytes);
}

// ---- paths ----

static void probe_paths(HKEY root) {
    group("key");
    fact("create", creates(root, L"a"));
    fact("create-again", creates(root, L"a"));
    fact("create-path", creates(root, L"b\\c\\d"));
    fact("create-path-end-again", creates(root, L"b\\c"));
    fact("create-other-case", creates(root, L"B\\C\\D"));
    fact("open", opens(root, L"b\\c\\d"));
    fact("open-other-case", opens(root, L"B\\c\\D"));
    fact("open-missing", opens(root, L"missing"));
    fact("open-missing-below", opens(root, L"missing\\below"));
    fact("open-backslash-first", opens(root, L"\\a"));
    fact("open-backslash-last", opens(root, L"a\\"));
    fact("open-backslash-double", opens(root, L"b\\\\c"));
    fact("open-backslashes-last", opens(root, L"a\\\\"));
    fact("create-backslash-first", creates(root, L"\\e"));
    fact("create-backslash-last", creates(root, L"e\\"));
    fact("create-backslash-last-made", opens(root, L"e"));
    fact("open-slash", opens(root, L"b/c"));
    fact("create-slash", creates(root, L"f/g"));
    fact("open-blank", opens(root, L"a "));
    fact("open-dot", opens(root, L"a\\."));
    fact("open-empty", opens(root, L""));
    fact("open-no-path", opens(root, nullptr));
    fact("create-empty", creates(root, L""));
    WCHAR name[300];
    for (WCHAR& character : name)
        character = L'x';
    name[255] = 0;
    fact("create-255-characters", creates(root, name));
    name[255] = L'x';
    name[256] = 0;
    fact("create-256-characters", creates(root, name));
    fact("open-256-characters", opens(root, name));
    fact("open-null-key", opens(nullptr, L"a"));
    fact("close-null", RegCloseKey(nullptr));
    fact("close-root", RegCloseKey(HKEY_LOCAL_MACHINE));
    fact("root-after-close", opens(HKEY_LOCAL_MACHINE, L"SOFTWARE"));
    fact("root-empty-path", opens(HKEY_LOCAL_MACHINE, L""));
    fact("root-no-path", opens(HKEY_CURRENT_USER, nullptr));
    fact("users", opens(HKEY_USERS, L".DEFAULT"));
    fact("close-with-closehandle", ERROR_OF(CloseHandle(create(root, L"a"))));
}

// ---- rights and options ----

static const struct {
    const char* group;
    REGSAM access;
} g_rights[] = {
    {"right-query", KEY_QUERY_VALUE},
    {"right-set", KEY_SET_VALUE},
    {"right-create", KEY_CREATE_SUB_KEY},
    {"right-enumerate", KEY_ENUMERATE_SUB_KEYS},
    {"right-notify", KEY_NOTIFY},
    {"right-read", KEY_READ},
    {"right-write", KEY_WRITE},
    {"right-generic-read", GENERIC_READ},
    {"right-generic-write", GENERIC_WRITE},
    {"right-generic-all", GENERIC_ALL},
    {"right-read-control", READ_CONTROL},
};

static LSTATUS watch(HKEY key, HANDLE event, bool tree = false) {
    const DWORD filter = REG_NOTIFY_CHANGE_LAST_SET | (tree ? REG_NOTIFY_CHANGE_NAME : 0);
    return RegNotifyChangeKeyValue(key, tree, filter, event, TRUE);
}

static void probe_rights(HKEY root) {
    set(create(root, L"r"), L"v", 1);
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    for (const auto& row : g_rights) {
        HKEY key = nullptr;
        group(row.group);
        fact("opens", RegOpenKeyExW(root, L"r", 0, row.access, &key));
        fact("queries", query(key, L"v"));
        fact("sets", set(key, L"v", 2));
        fact("deletes-value", RegDeleteValueW(key, L"none"));
        fact("creates", creates(key, L"new"));
        create(root, L"r\\below");
        fact("opens-below", opens(key, L"below"));
        fact("watches", watch(key, event));
        fact("deletes-below", RegDeleteKeyW(key, L"below"));
        RegDeleteKeyW(root, L"r\\new");
    }
}

static void probe_options(HKEY root) {
    group("option");
    constexpr DWORD VOLATILE = 1;
    fact("volatile", creates(root, L"v", KEY_READ, VOLATILE));
    fact("volatile-open", opens(root, L"v"));
    fact("stable-below-volatile", creates(root, L"v\\stable"));
    fact("volatile-below-volatile", creates(root, L"v\\below", KEY_READ, VOLATILE));
    fact("volatile-of-a-stable-one", creates(root, L"a", KEY_READ, VOLATILE));
    fact("stable-of-a-volatile-one", creates(root, L"v"));
    HKEY key = nullptr;
    fact("reserved", RegCreateKeyExW(root, L"k", 1, nullptr, 0, KEY_READ, nullptr, &key, nullptr));
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), nullptr, FALSE};
    fact("security", RegCreateKeyExW(root, L"k", 0, nullptr, 0, KEY_READ, &attributes, &key, nullptr));
    fact("root-create", creates(HKEY_USERS, L"ZorpmProbe\\x", KEY_READ));
    // The merged view of machine and user.
    HKEY classes = create(HKEY_CURRENT_USER, L"Software\\Classes\\ZorpmProbe");
    fact("classes-user", opens(HKEY_CLASSES_ROOT, L"ZorpmProbe"));
    fact("classes-none", opens(HKEY_CLASSES_ROOT, L"ZorpmProbe.none"));
    set(classes, L"v", 5);
    HKEY merged = nullptr;
    RegOpenKeyExW(HKEY_CLASSES_ROOT, L"ZorpmProbe", 0, KEY_READ, &merged);
    fact("classes-value", query(merged, L"v"));
    fact("classes-delete", RegDeleteKeyW(HKEY_CLASSES_ROOT, L"ZorpmProbe"));
    fact("classes-deleted", opens(HKEY_CURRENT_USER, L"Software\\Classes\\ZorpmProbe"));
}

// ---- the end of keys ----

static void probe_deletion(HKEY root) {
    group("deletion");
    create(root, L"d\\below");
    HKEY key = create(root, L"d");
    set(key, L"v", 1);
    fact("with-subkeys", RegDeleteKeyW(root, L"d"));
    fact("missing", RegDeleteKeyW(root, L"none"));
    fact("missing-below", RegDeleteKeyW(root, L"none\\none"));
    fact("no-path", RegDeleteKeyW(key, nullptr));
    fact("backslash-first", RegDeleteKeyW(root, L"\\d"));
    fact("path", RegDeleteKeyW(root, L"d\\below"));
    fact("null-key", RegDeleteKeyW(nullptr, L"d"));
    HKEY reader = nullptr;
    RegOpenKeyExW(root, L"d", 0, KEY_READ, &reader);
    fact("whole", RegDeleteKeyW(root, L"D"));
    fact("gone", opens(root, L"d"));
    fact("gone-again", RegDeleteKeyW(root, L"d"));
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    fact("then-query", query(key, L"v"));
    fact("then-query-missing", query(key, L"none"));
    fact("then-set", set(key, L"v", 2));
    fact("then-delete-value", RegDeleteValueW(key, L"v"));
    fact("then-open-below", opens(key, L"below"));
    fact("then-open-itself", opens(key, L""));
    fact("then-create-below", creates(key, L"below"));
    fact("then-delete-below", RegDeleteKeyW(key, L"below"));
    fact("then-watch", watch(key, event));
    fact("made-again", creates(root, L"d"));
    fact("made-again-old-handle", query(key, L"v"));
    fact("made-again-reader", query(reader, L"v"));
    fact("then-close", RegCloseKey(key));
    key = create(root, L"self");
    fact("empty-path", RegDeleteKeyW(key, L""));
    fact("empty-path-gone", opens(root, L"self"));
    create(root, L"reader");
    RegOpenKeyExW(root, L"reader", 0, KEY_READ, &reader);
    fact("by-reader-itself", RegDeleteKeyW(reader, L""));
    create(root, L"last");
    fact("backslash-last", RegDeleteKeyW(root, L"last\\"));
}

void probe_registry_keys() {
    HKEY root = root_key();
    probe_paths(root);
    probe_options(root);
    probe_deletion(root);
    probe_rights(root);
}

// ---- notification ----

// Whether the event is set, a little later; then it is reset.
static bool told(HANDLE event) {
    const bool result = WaitForSingleObject(event, 30) == WAIT_OBJECT_0;
    ResetEvent(event);
    return result;
}

static void probe_changes(HKEY root, HANDLE event) {
    group("watch-key");
    HKEY key = create(root, L"w");
    HKEY other = create(root, L"w");
    fact("arm", watch(key, event));
    fact("quiet", told(event));
    set(other, L"v", 1);
    fact("new-value", told(event));
    set(other, L"v", 2);
    fact("once", told(event));
    watch(key, event);
    fact("arm-after-change", told(event));
    watch(key, event);
    set(other, L"v", 3);
    fact("value", told(event));
    watch(key, event);
    set(other, L"v", 3);
    fact("identical-value", told(event));
    RegCloseKey(key);
    RegOpenKeyExW(root, L"w", 0, KEY_NOTIFY, &key);
    fact("arm-with-notify-alone", watch(key, event));
    set(other, L"v", 4);
    fact("arm-with-notify-alone-told", told(event));
    watch(key, event);
    query(other, L"v");
    fact("query", told(event));
    RegDeleteValueW(other, L"none");
    fact("delete-missing-value", told(event));
    RegDeleteValueW(other, L"v");
    fact("delete-value", told(event));
    watch(key, event);
    HKEY below = create(other, L"below");
    fact("new-subkey", told(event));
    set(below, L"v", 1);
    fact("value-of-subkey", told(event));
    set(root, L"v", 1);
    fact("value-of-parent", told(event));
    SetEvent(event);
    watch(key, event);
    fact("arm-clears-event", told(event));
    RegDeleteKeyW(other, L"below");
    set(other, L"v", 5);
    fact("armed-twice", told(event));
    RegCloseKey(key);
    fact("close-unarmed", told(event));
}

static void probe_trees(HKEY root, HANDLE event) {
    group("watch-tree");
    HKEY key = create(root, L"t");
    HKEY other = create(root, L"t");
    watch(key, event, true);
    HKEY below = create(other, L"below");
    fact("new-subkey", told(event));
    watch(key, event, true);
    set(below, L"v", 1);
    fact("value-of-subkey", told(event));
    watch(key, event, true);
    create(below, L"deep");
    fact("new-subkey-below", told(event));
    watch(key, event, true);
    RegDeleteKeyW(below, L"deep");
    fact("deleted-subkey-below", told(event));
    watch(key, event, true);
    create(root, L"beside");
    fact("beside", told(event));
    create(other, L"below");
    fact("existing-subkey", told(event));
    RegDeleteKeyW(other, L"below");
    fact("deleted-subkey", told(event));
    watch(key, event, true);
    RegCloseKey(key);
    fact("close-armed", told(event));
}

static DWORD WINAPI watch_and_end(void* context) {
    const auto* both = static_cast<void**>(context);
    return static_cast<DWORD>(watch(static_cast<HKEY>(both[0]), both[1]));
}

static void probe_ends(HKEY root, HANDLE event) {
    group("watch-end");
    HKEY other = create(root, L"e");
    HANDLE second = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    auto arm = [&](DWORD filter, HANDLE with) {
        return RegNotifyChangeKeyValue(create(root, L"e"), FALSE, filter, with, TRUE);
    };
    fact("null-event", arm(REG_NOTIFY_CHANGE_LAST_SET, nullptr));
    fact("agnostic", arm(REG_NOTIFY_CHANGE_LAST_SET | REG_NOTIFY_THREAD_AGNOSTIC, event));
    set(other, L"v", 1);
    fact("agnostic-told", told(event));
    HKEY key = create(root, L"e");
    watch(key, event);
    watch(key, second);
    set(other, L"v", 2);
    fact("two-events-first", told(event));
    fact("two-events-second", told(second));
    HKEY third = create(root, L"e");
    watch(key, event);
    watch(third, second);
    set(other, L"v", 3);
    fact("two-handles-first", told(event));
    fact("two-handles-second", told(second));
    void* context[] = {third, event};
    on_thread(watch_and_end, static_cast<void*>(context));
    fact("thread-ends", told(event));
    watch(key, event);
    RegDeleteKeyW(root, L"e");
    fact("deleted", told(event));
    fact("deleted-arm", watch(key, event));
    fact("deleted-close", RegCloseKey(key));
    fact("null-key", watch(nullptr, event));
    fact("invalid-event", watch(create(root, L"i"), INVALID_HANDLE_VALUE));
}

void probe_registry_watch() {
    HKEY root = root_key();
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    probe_changes(root, event);
    probe_trees(root, event);
    probe_ends(root, event);
}

// ---- hives ----

void probe_registry_hives() {
    group("hive");
    static const WCHAR name[] = L"ZorpmProbeHive";
    WCHAR file[MAX_PATH];
    WCHAR other[MAX_PATH];
    StringCchPrintfW(file, ARRAYSIZE(file), L"%ls\\hive.dat", probe_folder());
    StringCchPrintfW(other, ARRAYSIZE(other), L"%ls\\none\\hive.dat", probe_folder());
    switch_privilege(L"SeRestorePrivilege", false);
    fact("load-without-privilege", RegLoadKeyW(HKEY_USERS, name, file));
    fact("unload-without-privilege", RegUnLoadKeyW(HKEY_USERS, name));
    switch_privilege(L"SeRestorePrivilege", true);
    switch_privilege(L"SeBackupPrivilege", true);
    fact("missing-folder", RegLoadKeyW(HKEY_USERS, name, other));
    fact("folder", RegLoadKeyW(HKEY_USERS, name, probe_folder()));
    fact("missing-file", RegLoadKeyW(HKEY_USERS, name, file));
    fact("missing-file-made", GetFileAttributesW(file) != INVALID_FILE_ATTRIBUTES);
    fact("loaded", opens(HKEY_USERS, name));
    fact("loaded-twice", RegLoadKeyW(HKEY_USERS, name, file));
    fact("other-root", RegLoadKeyW(HKEY_CURRENT_USER, name, file));
    RegUnLoadKeyW(HKEY_CURRENT_USER, name); // should it have been loaded
    HKEY key = create(HKEY_USERS, name);
    fact("write", set(key, L"v", 5));
    fact("unload-open", RegUnLoadKeyW(HKEY_USERS, name));
    fact("unload-open-kept", query(key, L"v"));
    RegCloseKey(key);
    fact("unload", RegUnLoadKeyW(HKEY_USERS, name));
    fact("unloaded", opens(HKEY_USERS, name));
    fact("unload-again", RegUnLoadKeyW(HKEY_USERS, name));
    fact("load-again", RegLoadKeyW(HKEY_USERS, name, file));
    key = nullptr;
    RegOpenKeyExW(HKEY_USERS, name, 0, KEY_READ, &key);
    fact("kept", query(key, L"v"));
    RegCloseKey(key);
    RegUnLoadKeyW(HKEY_USERS, name);
}
