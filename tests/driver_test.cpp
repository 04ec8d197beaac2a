// Devices, the one-word request, the search for hardware ids, the catalogue.
#include "driver/firmware.h"
#include "sim/notebook/present_devices.h"
#include "tests/support/bench.h"

// Counts the openings and requests of one operation.
static std::uint64_t calls_of(sim::Machine& machine, const char* name, const std::function<void()>& work) {
    machine.count_calls = true;
    machine.call_counts.clear();
    sim::run_on_thread(work);
    return machine.call_counts[name];
}

TEST(Driver, OneWordRequestsCopyWhatTheDriverReturned) {
    const struct {
        DWORD bytes;
        DWORD expected;
    } rows[] = {{0, 0xAAAAAAAA}, {1, 0xAAAAAA44}, {2, 0xAAAA3344},
                {3, 0xAA223344}, {4, 0x11223344}, {9, 0x11223344}};
    for (const auto& row : rows) {
        Bench bench;
        sim::set_answer("GOPT", nullptr, {false, 0x11223344, row.bytes});
        sim::set_answer("CONNECT", nullptr, {false, 0x11223344, row.bytes});
        sim::run_on_thread([&row] {
            DriverHandles holder;
            DWORD result = 0xAAAAAAAA;
            EXPECT_TRUE(PMDriverIoControl(&holder, IOCTL_PMDRV_GOPT, 0, &result));
            EXPECT_EQ(row.expected, result);
            EXPECT_TRUE(PMDriverIoControl(&holder, IOCTL_PMDRV_GOPT, 0, nullptr));
            result = 0xAAAAAAAA;
            EXPECT_TRUE(PMDRVSIoControl(&holder, IOCTL_PMDRV_CONNECT, 1, &result));
            EXPECT_EQ(row.expected, result);
            result = 0xAAAAAAAA;
            EXPECT_TRUE(SendOneWord(IOCTL_PMDRV_GOPT, 0, &result));
            EXPECT_EQ(row.expected, result);
        });
    }
}

// A code that no row of the catalogue has, or none for one word each way, is not sent.
TEST(Driver, UnknownRequests) {
    Bench bench;
    sim::run_on_thread([] {
        DWORD result = 0;
        SetLastError(0);
        EXPECT_FALSE(OneWordRequest(nullptr, IOCTL_PMDRV_GETEVENT, 0, &result)); // no word each way
        EXPECT_EQ(ERROR_INVALID_FUNCTION, GetLastError());
        DWORD returned = 7;
        SetLastError(0);
        EXPECT_FALSE(SendIoCode(nullptr, 0x12345678, nullptr, nullptr, &returned));
        EXPECT_EQ(ERROR_INVALID_FUNCTION, GetLastError());
        EXPECT_EQ(0u, returned);
    });
}

TEST(Driver, AHolderOpensOnceAndClosesOnce) {
    Bench bench;
    const auto requests = [] {
        {
            DriverHandles holder;
            PMDriverIoControl(&holder, IOCTL_PMDRV_GMMS, 0, nullptr);
            PMDriverIoControl(&holder, IOCTL_PMDRV_GMMS, 0, nullptr);
            EXPECT_EQ(1u, sim::handle_count(sim::Kind::File));
        }
        EXPECT_EQ(0u, sim::handle_count(sim::Kind::File));
    };
    EXPECT_EQ(1u, calls_of(bench.machine, "CreateFileW", requests));
    // A failed request keeps the result; a missing device sends nothing and closes nothing.
    bench.run("firmware GMMS fails");
    sim::run_on_thread([] {
        DriverHandles holder;
        DWORD result = 7;
        EXPECT_FALSE(PMDriverIoControl(&holder, IOCTL_PMDRV_GMMS, 0, &result));
        sim::set_driver_present(false, false);
        DriverHandles unopened;
        EXPECT_FALSE(PMDriverIoControl(&unopened, IOCTL_PMDRV_GMMS, 0, &result));
        EXPECT_FALSE(PMDRVSIoControl(&unopened, IOCTL_PMDRV_CONNECT, 0, &result));
        EXPECT_EQ(nullptr, unopened.primary);
        EXPECT_EQ(7u, result);
        EXPECT_FALSE(SendOneWord(IOCTL_PMDRV_GMMS, 0, &result));
        EXPECT_EQ(ERROR_FILE_NOT_FOUND, GetLastError());
    });
}

TEST(Driver, TheProbeHandle) {
    Bench bench;
    sim::run_on_thread([] {
        EXPECT_FALSE(ClosePMDriver());
        EXPECT_TRUE(OpenPMDriver());
        EXPECT_FALSE(OpenPMDriver());
        EXPECT_EQ(1u, sim::handle_count(sim::Kind::File));
        EXPECT_TRUE(ClosePMDriver());
        EXPECT_FALSE(ClosePMDriver());
        EXPECT_EQ(0u, sim::handle_count(sim::Kind::File));
        sim::set_driver_present(false, true);
        EXPECT_FALSE(OpenPMDriver());
        EXPECT_FALSE(ClosePMDriver());
        sim::set_driver_present(true, true);
        EXPECT_TRUE(OpenPMDriver());
        EXPECT_TRUE(ClosePMDriver());
    });
}

TEST(Driver, HardwareIdsAreSearchedAsSubstrings) {
    using namespace std::string_literals;
    const struct {
        std::string present;
        const wchar_t* id;
        DWORD found;
        BOOL result;
        const char* failing; // a call that fails
    } rows[] = {
        {"ACPI\\INT33D6", L"INT33D6", 1, TRUE, ""},
        {"ACPI\\INT33D6", L"int33d6", 0, FALSE, ""},
        {"ACPI\\ANT33D6", L"INT33D6", 0, FALSE, ""},
        {"ACPI\\INT33D6", L"ACPI\\INT33D6&X", 0, FALSE, ""},
        {"ACPI\\INT33D6", L"INT33D6", 0, TRUE, "SetupDiGetClassDevsW"},
        {"ACPI\\INT33D6", L"INT33D6", 0, TRUE, "SetupDiEnumDeviceInfo"}, // the enumeration failed
        {"ACPI\\INT33D6", L"*PNP0C0A", 1, TRUE, ""},                     // second string of a list
        {"ACPI\\INT33D6", L"PNP0C0A*PNP", 0, FALSE, ""},                 // not across two strings
        {"ACPI\\INT33D6", L"*PNP0C0A", 0, FALSE, "LocalAlloc"},          // the ids of the first device
        {"ACPI\\A\0ACPI\\INT33D6"s, L"INT33D6", 1, TRUE, ""},
        {"ACPI\\A\0\0ACPI\\INT33D6"s, L"INT33D6", 0, FALSE, ""}, // an empty string ends a list
        {"\0ACPI\\INT33D6"s, L"INT33D6", 0, FALSE, ""},
        {std::string(0x80000, 'A') + "INT33D6", L"INT33D6", 0, FALSE, ""}, // more than a mebibyte is not read
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.failing);
        Bench bench;
        sim::set_hardware(row.present, true);
        bench.machine.fail_name = row.failing;
        bench.machine.fail_countdown = 1;
        sim::run_on_thread([&row] {
            DWORD found = 9;
            EXPECT_EQ(row.result, FindDevice(row.id, &found));
            EXPECT_EQ(row.found, found);
            EXPECT_EQ(0u, sim::handle_count());
            EXPECT_EQ(0u, sim::current_process()->local_blocks);
        });
    }
}

TEST(Driver, DevicesThatAreNotPresentOrListTheirIdsOddly) {
    const struct {
        const char* script;
        DWORD found;
    } rows[] = {
        {R"(hardware "ACPI\INT33D6" absent)", 0},  // known from before only
        {R"(hardware "ACPI\INT33D6" unended)", 1}, // without a null, the match at the very end
        {R"(hardware "ACPI\INT33D6" growing)", 0}, // whoever asks for ever stays here
        {"hardware nameless\nhardware \"ACPI\\INT33D6\" present", 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.script);
        Bench bench;
        bench.run(row.script);
        sim::run_on_thread([&row] {
            DWORD found = 9;
            EXPECT_EQ(row.found != 0, FindDevice(L"INT33D6", &found));
            EXPECT_EQ(row.found, found);
        });
    }
}

TEST(Driver, SystemFamilyIsBounded) {
    const struct {
        const char* stored;
        BOOL result;
        const char* family = "";
    } rows[] = {
        {"sz \"Corbel\"", TRUE, "Corbel"},
        {"dword 5", FALSE},
        {"raw 1 430043004300", TRUE, "CCC"}, // no end
        {"raw 1 43", TRUE},                  // half a character
        {"raw 1", TRUE},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.stored);
        Bench bench;
        bench.run(std::string("registry set HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS SystemFamily ") +
                  row.stored);
        sim::run_on_thread([&row] {
            wchar_t family[SYSTEM_FAMILY_CHARACTERS];
            EXPECT_EQ(row.result, GetSystemFamily(family));
            EXPECT_EQ(row.family, sim::narrow(family));
        });
    }
    Bench bench;
    for (const size_t characters : {128, 129}) {
        sim::registry_set("HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS", "SystemFamily", REG_SZ,
                          sim::wide_bytes(std::string(characters, 'x'), false));
        sim::run_on_thread([characters] {
            wchar_t family[SYSTEM_FAMILY_CHARACTERS];
            EXPECT_EQ(characters == 128, GetSystemFamily(family)); // 256 bytes, and no more
        });
    }
}

TEST(Driver, TheCatalogue) {
    // The simulated driver has the numbers and sizes on its own and checks every request.
    EXPECT_EQ(nullptr, FindIoCode(0x222411));
    Bench bench;
    sim::run_on_thread([] {
        DWORD result = 0;
        HANDLE device = OpenDevice(SECONDARY_DEVICE, FULL_ACCESS, FULL_SHARE);
        ULONGLONG answer = 0;
        DWORD returned = 7;
        SetLastError(0);
        EXPECT_FALSE(SendIoCode(device, 0x222411, &answer, &answer, &returned)); // in no catalogue
        EXPECT_EQ(ERROR_INVALID_FUNCTION, GetLastError());
        EXPECT_EQ(0u, returned);
        // What does not fit one word, either way.
        for (const DWORD code :
             {DWORD{0x222411}, DWORD{IOCTL_PMDRV_REGISTEREVENTS}, DWORD{IOCTL_PMDRV_GETEVENT}}) {
            SetLastError(0);
            EXPECT_FALSE(SendOneWord(code, 0, &result)) << code;
            EXPECT_EQ(ERROR_INVALID_FUNCTION, GetLastError());
            EXPECT_FALSE(OneWordRequest(device, code, 0, &result)) << code;
        }
        EXPECT_EQ(0u, result);
        EXPECT_TRUE(SendSystemFamilyRequest());
        CloseHandle(device);
        sim::set_driver_present(false, false);
        EXPECT_FALSE(SendSystemFamilyRequest());
    });
}
