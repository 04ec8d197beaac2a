// The simulated registry: roots, the merged view of classes, and notifications, as on Windows.
#include "sim/windows/registry_tree.h"
#include "tests/support/bench.h"

using namespace sim;

static LSTATUS create(HKEY root, const std::string& path, HKEY* key = nullptr, REGSAM access = KEY_READ) {
    HKEY opened = nullptr;
    const LSTATUS error = RegCreateKeyExW(root, reinterpret_cast<LPCWSTR>(widen(path).c_str()), 0, nullptr, 0,
                                          access, nullptr, &opened, nullptr);
    if (key != nullptr)
        *key = opened;
    else if (opened != nullptr)
        RegCloseKey(opened);
    return error;
}

static DWORD set(HKEY key, LPCWSTR name, DWORD value) {
    return static_cast<DWORD>(
        RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value)));
}

// Hives are not created, and a root is not deleted; all else of a root is an administrator's to change.
TEST(RegistrySim, Roots) {
    const struct {
        HKEY root;
        const char* path;
        DWORD error;
    } rows[] = {
        {HKEY_LOCAL_MACHINE, "New", ERROR_INVALID_PARAMETER},
        {HKEY_LOCAL_MACHINE, "New\\Below", ERROR_INVALID_PARAMETER},
        {HKEY_USERS, "S-1-5-21-1", ERROR_INVALID_PARAMETER},
        {HKEY_LOCAL_MACHINE, "Software", ERROR_SUCCESS},
        {HKEY_LOCAL_MACHINE, "Software\\New", ERROR_SUCCESS},
        {HKEY_USERS, ".Default\\New", ERROR_SUCCESS},
        {HKEY_CURRENT_USER, "New", ERROR_SUCCESS},
        {HKEY_CLASSES_ROOT, "New", ERROR_SUCCESS},
        {HKEY_CLASSES_ROOT, "", ERROR_SUCCESS},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        expect_violation(nullptr, [&row] {
            EXPECT_EQ(row.error, static_cast<DWORD>(create(row.root, row.path)));
            EXPECT_EQ(ERROR_ACCESS_DENIED, static_cast<DWORD>(RegDeleteKeyW(row.root, L"")));
            EXPECT_EQ(ERROR_SUCCESS, static_cast<DWORD>(RegCloseKey(row.root)));
        });
    }
}

// Reading, the user's half comes first; a new key is the machine's, a value goes where the key was found.
TEST(RegistrySim, ClassesAreOneViewOfTwoHalves) {
    const struct {
        const char* present;
        bool ordinary;
        DWORD opens; // the error
        DWORD creates;
        const char* holder; // of what is written
    } rows[] = {
        {"", false, ERROR_FILE_NOT_FOUND, ERROR_SUCCESS, "HKLM\\SOFTWARE\\Classes\\X"},
        {"HKLM\\SOFTWARE\\Classes\\X", false, ERROR_SUCCESS, ERROR_SUCCESS, "HKLM\\SOFTWARE\\Classes\\X"},
        {"HKCU\\Software\\Classes\\X", false, ERROR_SUCCESS, ERROR_SUCCESS, "HKCU\\Software\\Classes\\X"},
        {"", true, ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, nullptr},
        {"HKLM\\SOFTWARE\\Classes\\X", true, ERROR_SUCCESS, ERROR_ACCESS_DENIED, nullptr},
        {"HKCU\\Software\\Classes\\X", true, ERROR_SUCCESS, ERROR_SUCCESS, "HKCU\\Software\\Classes\\X"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.present) + (row.ordinary ? " ordinary" : ""));
        Bench bench;
        if (*row.present != '\0')
            registry_create(row.present);
        run_on_thread([&row] {
            current_process()->ordinary_user = row.ordinary;
            HKEY key = nullptr;
            EXPECT_EQ(row.opens,
                      static_cast<DWORD>(RegOpenKeyExW(HKEY_CLASSES_ROOT, L"X", 0, KEY_READ, &key)));
            if (key != nullptr)
                RegCloseKey(key);
            ASSERT_EQ(row.creates,
                      static_cast<DWORD>(create(HKEY_CLASSES_ROOT, "X", &key, KEY_READ | KEY_SET_VALUE)));
            if (key == nullptr)
                return;
            EXPECT_EQ(ERROR_SUCCESS, set(key, L"v", 5));
            EXPECT_EQ(5u, registry_dword("HKCR\\X", "v"));
            EXPECT_EQ(5u, registry_dword(row.holder, "v"));
            RegCloseKey(key);
            EXPECT_EQ(row.ordinary ? ERROR_ACCESS_DENIED : ERROR_SUCCESS,
                      static_cast<DWORD>(create(HKEY_CLASSES_ROOT, "X\\New")));
        });
    }
}

TEST(RegistrySim, AValueOfTheMachinesHalfShowsBehindTheUsersKey) {
    Bench bench;
    registry_set_dword("HKLM\\SOFTWARE\\Classes\\X", "both", 1);
    registry_set_dword("HKLM\\SOFTWARE\\Classes\\X", "machine", 1);
    registry_set_dword("HKCU\\Software\\Classes\\X", "both", 2);
    EXPECT_EQ(2u, registry_dword("HKCR\\X", "both"));
    EXPECT_EQ(1u, registry_dword("HKCR\\X", "machine"));
    EXPECT_EQ(NO_DWORD, registry_dword("HKCU\\Software\\Classes\\X", "machine"));
    EXPECT_TRUE(registry_delete("HKCR\\X")); // the user's
    EXPECT_EQ(1u, registry_dword("HKCR\\X", "both"));
}

// An ordinary user reads the machine's keys and changes none.
TEST(RegistrySim, AnOrdinaryUser) {
    expect_violation(nullptr, [] {
        registry_create("HKLM\\SOFTWARE\\Y");
        current_process()->ordinary_user = true;
        for (const REGSAM access :
             {KEY_READ, KEY_NOTIFY, KEY_SET_VALUE, KEY_CREATE_SUB_KEY, KEY_ALL_ACCESS}) {
            SCOPED_TRACE(access);
            HKEY key = nullptr;
            EXPECT_EQ((access & ~KEY_READ) == 0 ? ERROR_SUCCESS : ERROR_ACCESS_DENIED,
                      static_cast<DWORD>(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Y", 0, access, &key)));
            if (key != nullptr)
                RegCloseKey(key);
        }
        EXPECT_EQ(ERROR_ACCESS_DENIED, static_cast<DWORD>(RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Y")));
        EXPECT_EQ(ERROR_ACCESS_DENIED, static_cast<DWORD>(create(HKEY_LOCAL_MACHINE, "SOFTWARE\\Z")));
        EXPECT_EQ(ERROR_SUCCESS, static_cast<DWORD>(create(HKEY_CURRENT_USER, "Z")));
    });
}

static HKEY g_key;
static HANDLE g_events[2];

static bool told(int event) {
    return WaitForSingleObject(g_events[event], 0) == WAIT_OBJECT_0;
}

static DWORD ask(int event, BOOL subtree = FALSE) {
    return static_cast<DWORD>(RegNotifyChangeKeyValue(
        g_key, subtree, REG_NOTIFY_CHANGE_LAST_SET | (subtree ? REG_NOTIFY_CHANGE_NAME : 0), g_events[event],
        TRUE));
}

static const struct {
    const char* name;
    void (*act)();
    bool told[2];
    DWORD again; // error of the next call
} g_watchRows[] = {
    {"one above is", [] { registry_delete("HKLM\\SOFTWARE"); }, {true, true}, ERROR_KEY_DELETED},
    {"the same data, untold",
     [] {
         registry_tells_of_same_data(false);
         registry_set_dword("HKLM\\SOFTWARE\\N", "w", 7);
     },
     {false, false},
     0},
    {"other data then",
     [] {
         registry_tells_of_same_data(false);
         registry_set("HKLM\\SOFTWARE\\N", "w", REG_BINARY, {7, 0, 0, 0});
     },
     {true, true},
     0},
};

TEST(RegistrySim, Notifications) {
    for (const auto& row : g_watchRows) {
        SCOPED_TRACE(row.name);
        expect_violation(nullptr, [&row] {
            registry_set_dword("HKLM\\SOFTWARE\\N", "w", 7);
            for (HANDLE& event : g_events)
                event = CreateEventW(nullptr, FALSE, TRUE, nullptr);
            RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\N", 0, KEY_NOTIFY, &g_key);
            EXPECT_EQ(ERROR_SUCCESS, ask(0));
            EXPECT_EQ(ERROR_SUCCESS, ask(1));
            EXPECT_FALSE(told(0));
            row.act();
            for (const int event : {0, 1})
                EXPECT_EQ(row.told[event], told(event)) << event;
            EXPECT_EQ(row.again, ask(0));
            RegCloseKey(g_key);
        });
    }
    expect_violation("something else", [] {
        registry_create("HKLM\\SOFTWARE\\N");
        g_events[0] = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\N", 0, KEY_NOTIFY, &g_key);
        ask(0);
        ask(0, TRUE);
    });
}

TEST(RegistrySim, ANullBehindAText) {
    const struct {
        DWORD type;
        WCHAR last;
        DWORD given;
        DWORD stored[2]; // by default, and where it is taken along
    } rows[] = {
        {REG_SZ, 0, 4, {4, 6}},    {REG_EXPAND_SZ, 0, 4, {4, 6}}, {REG_BINARY, 0, 4, {4, 4}},
        {REG_SZ, L'c', 4, {4, 4}}, {REG_SZ, 0, 6, {6, 6}},        {REG_SZ, 0, 3, {3, 3}},
    };
    for (const auto& row : rows) {
        for (const bool taken : {false, true}) {
            expect_violation(nullptr, [&] {
                registry_takes_null_behind(taken);
                HKEY key = nullptr;
                create(HKEY_LOCAL_MACHINE, "SOFTWARE\\T", &key, KEY_SET_VALUE);
                const WCHAR text[] = {L'a', L'b', row.last, 0};
                RegSetValueExW(key, L"t", 0, row.type, reinterpret_cast<const BYTE*>(text), row.given);
                RegCloseKey(key);
                EXPECT_EQ(row.stored[taken], registry_value("HKLM\\SOFTWARE\\T", "t")->bytes.size());
            });
        }
    }
}
