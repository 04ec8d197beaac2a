// Values of the registry: what is stored and how its size is told.
#include "tests/platform/probe.h"

static HKEY g_key = nullptr;

static LSTATUS set(const WCHAR* name, DWORD type, const void* data, DWORD bytes) {
    return RegSetValueExW(g_key, name, 0, type, static_cast<const BYTE*>(data), bytes);
}

static DWORD size_of(const WCHAR* name) {
    DWORD bytes = 0xBAD;
    const LSTATUS error = RegQueryValueExW(g_key, name, nullptr, nullptr, nullptr, &bytes);
    return error == ERROR_SUCCESS ? bytes : 1000000 + static_cast<DWORD>(error);
}

static DWORD type_of(const WCHAR* name) {
    DWORD type = 0xBAD;
    RegQueryValueExW(g_key, name, nullptr, &type, nullptr, nullptr);
    return type;
}

// What is said to a buffer of this size, and the size that it then tells.
static void probe_capacity(const char* error_name, const char* size_name, const WCHAR* name, DWORD capacity) {
    BYTE buffer[64] = {};
    DWORD bytes = capacity;
    fact(error_name, RegQueryValueExW(g_key, name, nullptr, nullptr, buffer, &bytes));
    fact(size_name, bytes);
}

static void probe_sizes() {
    group("query");
    const DWORD number = 0x11223344;
    fact("set", set(L"n", REG_DWORD, &number, 4));
    fact("size", size_of(L"n"));
    fact("type", type_of(L"n"));
    fact("other-case", size_of(L"N"));
    fact("missing", size_of(L"none"));
    probe_capacity("exact", "exact-size", L"n", 4);
    probe_capacity("larger", "larger-size", L"n", 60);
    probe_capacity("short", "short-size", L"n", 3);
    probe_capacity("no-room", "no-room-size", L"n", 0);
    probe_capacity("missing-buffer", "missing-size", L"none", 4);
    BYTE buffer[64] = {};
    fact("data-without-size", RegQueryValueExW(g_key, L"n", nullptr, nullptr, buffer, nullptr));
    fact("nothing-asked", RegQueryValueExW(g_key, L"n", nullptr, nullptr, nullptr, nullptr));
    fact("nothing-asked-missing", RegQueryValueExW(g_key, L"none", nullptr, nullptr, nullptr, nullptr));
    DWORD reserved = 0;
    DWORD bytes = sizeof(buffer);
    fact("reserved", RegQueryValueExW(g_key, L"n", &reserved, nullptr, buffer, &bytes));
    DWORD type = 0xBAD;
    bytes = 1;
    RegQueryValueExW(g_key, L"n", nullptr, &type, buffer, &bytes);
    fact("short-type", type);
    buffer[0] = 0x77;
    bytes = 3;
    RegQueryValueExW(g_key, L"n", nullptr, nullptr, buffer, &bytes);
    fact("short-leaves-buffer", buffer[0]);
    bytes = 4;
    RegQueryValueExW(g_key, L"n", nullptr, nullptr, buffer, &bytes);
    fact("data", buffer[0]);
    fact("null-key", RegQueryValueExW(nullptr, L"n", nullptr, nullptr, nullptr, &bytes));
    fact("default-missing", size_of(nullptr));
    set(nullptr, REG_SZ, L"d", 4);
    fact("default", size_of(nullptr));
    fact("default-empty-name", size_of(L""));
    fact("default-by-at", size_of(L"@"));
    fact("delete-default", RegDeleteValueW(g_key, nullptr));
    fact("delete-default-again", RegDeleteValueW(g_key, L""));
}

static const struct {
    const char* name;
    DWORD type;
    DWORD bytes;
    BYTE data[16];
} g_values[] = {
    {"text", REG_SZ, 8, {'a', 0, 'b', 0, 'c', 0, 0, 0}},
    {"text-unended", REG_SZ, 6, {'a', 0, 'b', 0, 'c', 0, 'd', 0}},
    {"text-null-behind", REG_SZ, 6, {'a', 0, 'b', 0, 'c', 0, 0, 0}},
    {"text-two-nulls", REG_SZ, 10, {'a', 0, 'b', 0, 'c', 0, 0, 0, 0, 0}},
    {"text-null-inside", REG_SZ, 8, {'a', 0, 0, 0, 'c', 0, 0, 0}},
    {"text-odd", REG_SZ, 5, {'a', 0, 'b', 0, 'c', 'd'}},
    {"text-odd-null-behind", REG_SZ, 5, {'a', 0, 'b', 0, 'c', 0}},
    {"text-one-byte", REG_SZ, 1, {'a', 'b'}},
    {"text-empty", REG_SZ, 2, {0, 0}},
    {"text-nothing", REG_SZ, 0, {0, 0}},
    {"expand-unended", REG_EXPAND_SZ, 2, {'%', 0, 'a', 0}},
    {"expand-null-behind", REG_EXPAND_SZ, 2, {'%', 0, 0, 0}},
    {"multi", REG_MULTI_SZ, 8, {'a', 0, 0, 0, 'b', 0, 0, 0}},
    {"multi-unended", REG_MULTI_SZ, 2, {'a', 0, 'x', 0}},
    {"multi-null-behind", REG_MULTI_SZ, 2, {'a', 0, 0, 0}},
    {"multi-nothing", REG_MULTI_SZ, 0, {0}},
    {"binary", REG_BINARY, 3, {1, 2, 3}},
    {"binary-nothing", REG_BINARY, 0, {0}},
    {"number-3-bytes", REG_DWORD, 3, {1, 2, 3}},
    {"number-8-bytes", REG_DWORD, 8, {1, 2, 3}},
    {"none", REG_NONE, 2, {1, 2}},
    {"type-5", 5, 4, {0, 0, 0, 1}},
    {"type-11", 11, 8, {1}},
    {"type-99", 99, 4, {1}},
};

static void probe_values() {
    for (const auto& row : g_values) {
        group("set-value");
        fact(row.name, set(L"v", row.type, row.data, row.bytes));
        group("value-size");
        fact(row.name, size_of(L"v"));
        group("value-type");
        fact(row.name, type_of(L"v"));
        RegDeleteValueW(g_key, L"v");
    }
    group("set");
    const DWORD number = 5;
    const auto* data = reinterpret_cast<const BYTE*>(&number);
    fact("reserved", RegSetValueExW(g_key, L"v", 1, REG_DWORD, data, 4));
    fact("no-data", RegSetValueExW(g_key, L"v", 0, REG_BINARY, nullptr, 0));
    fact("null-key", RegSetValueExW(nullptr, L"v", 0, REG_DWORD, data, 4));
    fact("name-with-backslash", RegSetValueExW(g_key, L"a\\b", 0, REG_DWORD, data, 4));
    fact("name-with-backslash-size", size_of(L"a\\b"));
    fact("name-with-blank", RegSetValueExW(g_key, L" v ", 0, REG_DWORD, data, 4));
    fact("name-with-blank-size", size_of(L"v "));
    RegSetValueExW(g_key, L"Name", 0, REG_DWORD, data, 4);
    RegSetValueExW(g_key, L"NAME", 0, REG_BINARY, data, 1);
    fact("other-case", size_of(L"name"));
    fact("delete-other-case", RegDeleteValueW(g_key, L"nAME"));
    fact("delete-missing", RegDeleteValueW(g_key, L"name"));
    fact("delete-null-key", RegDeleteValueW(nullptr, L"name"));
    fact("delete-closed-root-name", RegDeleteValueW(HKEY_CURRENT_USER, L"ZorpmProbe-none"));
}

void probe_registry_values() {
    RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\ZorpmProbe", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                    &g_key, nullptr);
    probe_sizes();
    probe_values();
}
