// Which operation opens which device and which key, with which rights. The machine refuses, as a violation,
// every opening of a device that the request does not come by; the rows here say it of the keys, and that the
// machine looks.
#include "driver/device.h"
#include "tests/support/bench.h"

TEST(Openings, KeysAreOpenedWithExactlyTheirRights) {
    static const struct {
        const char* setup;
        const char* drive;
        const char* key;
        const char* rights;
    } rows[] = {
        {"", "start", "HKLM\\Software\\ZOR\\ZORPM", "KEY_READ|KEY_WRITE"},
        {"", "start", "SVC\\Parameters\\Capability", "KEY_ALL_ACCESS"},
        {"", "start", "SVC\\Parameters\\CurrentSetting", "KEY_ALL_ACCESS"},
        {"", "start", "SVC\\Parameters\\OverrideSetting", "KEY_ALL_ACCESS"},
        {"", "start", "HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS", "KEY_READ"},
        {"", "start", "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", "KEY_READ"},
        {"", "start", "SVC\\Transform\\Parameters", "KEY_ALL_ACCESS"},
        {"", "start", "SVC\\Transform\\CurrentStatus", "KEY_ALL_ACCESS"},
        {"", "start", "HKLM\\SOFTWARE\\Mestra\\MultiMode", "KEY_READ|KEY_SET_VALUE"},
        {"registry set HKLM\\SOFTWARE\\Dolby\\DAX\n", "start", "HKLM\\SOFTWARE\\Dolby\\DAX",
         "KEY_ALL_ACCESS"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key);
        Bench bench;
        bench.run(std::string(row.setup) + row.drive + "\nadvance 2s\nexpect open \"" + row.key + "\" " +
                  row.rights + "\n");
    }
}

TEST(Openings, ADeviceIsOpenedAsItsRequestWants) {
    static const struct {
        const char* name;
        const wchar_t* path;
        DWORD access;
        DWORD share;
        DWORD flags;
        DWORD code;
        const char* violation; // null: allowed
    } rows[] = {
        {"query", PRIMARY_DEVICE, GENERIC_READ, FILE_SHARE_READ, 0, IOCTL_PMDRV_GMMS, nullptr},
        {"no access", PRIMARY_DEVICE, 0, FILE_SHARE_READ, 0, IOCTL_PMDRV_GMMS, "which no request uses"},
        {"no share", PRIMARY_DEVICE, GENERIC_READ, 0, 0, IOCTL_PMDRV_GMMS, "which no request uses"},
        {"overlapped", PRIMARY_DEVICE, GENERIC_READ, FILE_SHARE_READ, 0x40000000, IOCTL_PMDRV_GMMS, "flags"},
        {"another's", PRIMARY_DEVICE, FULL_ACCESS, FULL_SHARE, 0, IOCTL_PMDRV_GMMS, "GMMS: sent on"},
        {"version, first", PRIMARY_DEVICE, FULL_ACCESS, FULL_SHARE, 0, IOCTL_PMDRV_MHKV, nullptr},
        {"version, second", PRIMARY_DEVICE, GENERIC_READ, FILE_SHARE_READ, 0, IOCTL_PMDRV_MHKV, nullptr},
        {"tablet", PRIMARY_DEVICE, FULL_ACCESS, FILE_SHARE_READ, 0, IOCTL_PMDRV_TABGETSTATE, nullptr},
        {"family", SECONDARY_DEVICE, GENERIC_WRITE, FULL_SHARE, 0, IOCTL_PMDRV_SYSTEMFAMILY, nullptr},
        {"tablet's on secondary", SECONDARY_DEVICE, FULL_ACCESS, FILE_SHARE_READ, 0, IOCTL_PMDRV_CONNECT,
         "which no request uses"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        expect_violation(row.violation, [&row] {
            HANDLE device =
                CreateFileW(row.path, row.access, row.share, nullptr, OPEN_EXISTING, row.flags, nullptr);
            DWORD result = 0;
            EXPECT_TRUE(OneWordRequest(device, row.code, 0, &result));
            CloseHandle(device);
        });
    }
}

TEST(Openings, AKeyIsCreatedPlain) {
    static wchar_t key_class[] = L"Class";
    static SECURITY_ATTRIBUTES security = {};
    static const struct {
        const char* name;
        wchar_t* key_class;
        DWORD options;
        REGSAM access;
        SECURITY_ATTRIBUTES* security;
        const char* violation;
    } rows[] = {
        {"plain", nullptr, 0, KEY_READ, nullptr, nullptr},
        {"volatile", nullptr, 1, KEY_READ, nullptr, "options 0x1"},
        {"class", key_class, 0, KEY_READ, nullptr, "class"},
        {"security", nullptr, 0, KEY_READ, &security, "class or security"},
        {"32-bit view", nullptr, 0, KEY_READ | 0x200, nullptr, "rights 0x20219"},
        {"no rights", nullptr, 0, 0, nullptr, "rights 0x0"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        expect_violation(row.violation, [&row] {
            HKEY key = nullptr;
            const LSTATUS error = RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\X", 0, row.key_class,
                                                  row.options, row.access, row.security, &key, nullptr);
            EXPECT_EQ(row.violation == nullptr, error == ERROR_SUCCESS);
            if (key != nullptr)
                RegCloseKey(key);
        });
    }
}

TEST(Openings, RightsAreRefusedOneByOne) {
    Bench bench;
    bench.run("registry refuse HKLM\\SOFTWARE\\X KEY_SET_VALUE|KEY_NOTIFY\nregistry set HKLM\\SOFTWARE\\X\n");
    sim::run_on_thread([] {
        HKEY key = nullptr;
        EXPECT_EQ(ERROR_ACCESS_DENIED,
                  static_cast<DWORD>(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\X", 0, KEY_READ, &key)));
        EXPECT_EQ(ERROR_SUCCESS, static_cast<DWORD>(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\X", 0,
                                                                  KEY_QUERY_VALUE, &key)));
        RegCloseKey(key);
    });
}
