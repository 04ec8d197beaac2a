// The clean-up run: when the package counts as installed, and what a removal leaves;
// scenarios/setup_cleanup.txt tells the usual course.
#include <shlobj.h>

#include "setup/cleanup.h"
#include "sim/windows/disk.h"
#include "sim/windows/programs.h"
#include "sim/windows/resources.h"
#include "sim/windows/scm_client.h"
#include "tests/support/bench.h"

static const char g_inf[] = "C:\\Windows\\system32\\ZORPMDRV.INF";

static std::string owners(const std::string& name) {
    return "registry set SVC Owners multi \"" + name + "\"\n";
}

TEST(Cleanup, InstallStatus) {
    static const std::string long_name(300, 'x');
    static const struct {
        const char* what;
        std::string setup;
        BOOL installed;
    } rows[] = {
        {"no value", "", TRUE},
        {"no key", "registry delete SVC", TRUE},
        {"key refused", owners("gone.inf") + "registry refuse SVC", TRUE},
        {"owner there", owners("here.inf"), TRUE},
        {"owner gone", owners("gone.inf"), FALSE},
        {"second there", "registry set SVC Owners multi \"gone.inf\" \"HERE.INF\"", TRUE},
        {"both gone", "registry set SVC Owners multi \"gone.inf\" \"gone\\2.inf\"",
         FALSE}, // in a folder that is not there
        {"a directory of the name", owners("dir.inf"), TRUE},
        {"name too long for a path", owners(long_name), TRUE},
        {"of another type", "registry set SVC Owners sz \"gone.inf\"", TRUE},
        {"a number", "registry set SVC Owners dword 0", TRUE},
        {"no bytes", "registry set SVC Owners raw 7 \"\"", FALSE},
        {"an empty list", "registry set SVC Owners raw 7 0000", FALSE},
        {"no final nulls", "registry set SVC Owners raw 7 78002e0069006e006600", FALSE},
        {"one final null", "registry set SVC Owners raw 7 78002e0069006e0066000000", FALSE},
        {"many final nulls", "registry set SVC Owners raw 7 7800000000000000", FALSE},
        {"half a character", "registry set SVC Owners raw 7 78002e0069006e006600000000", TRUE},
        {"more behind the end", "registry set SVC Owners raw 7 780000000000790000000000", TRUE},
        {"an empty name first", "registry set SVC Owners raw 7 0000790000000000", TRUE},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Bench bench;
        bench.run(
            "file \"C:\\Windows\\INF\\here.inf\" present\nfile \"C:\\Windows\\INF\\dir.inf\" directory\n" +
            row.setup);
        BOOL installed = FALSE;
        sim::run_on_thread([&installed] { installed = GetPMDRVInstallStatus(); });
        EXPECT_EQ(row.installed, installed);
        bench.run(std::string("run \"-PnPTask\"\n") + (installed ? "expect next process \"-PnPTask\" ended 0"
                                                                 : "expect call CreateProcessW(*) = 1"));
    }
}

// With an owner there or gone: a look-up that fails once never makes a package count as removed that is not.
TEST(Cleanup, NoRemovalOnDoubt) {
    for (std::uint64_t number = 1;; ++number) {
        Bench bench;
        bench.run(R"(
            registry set SVC Owners multi "gone.inf" "here.inf"
            file "C:\Windows\INF\here.inf" present)");
        BOOL installed = FALSE;
        sim::run_on_thread([&] {
            bench.machine.fail_at = bench.machine.calls + number;
            installed = GetPMDRVInstallStatus();
        });
        EXPECT_TRUE(installed) << bench.machine.failed_call;
        if (bench.machine.failed_call.empty())
            break;
    }
}

// The copy: the resource's very bytes, for the local system account alone.
TEST(Cleanup, Copy) {
    for (const char* earlier : {"absent", "present"}) {
        Bench bench;
        bench.run(sim::format("file \"%s\" %s", g_inf, earlier));
        bench.machine.keep_details = true;
        bench.run(owners("gone.inf") + "run \"-PnPTask\"\nexpect call CreateProcessW(*) = 1");
        const sim::PlainFile* copy = sim::find_file(g_inf);
        ASSERT_NE(nullptr, copy);
        EXPECT_EQ(sim::embedded_inf(), copy->bytes);
        EXPECT_LE(1u, details(sim::format("CreateFileW(%s, 0x40000000, 0)", g_inf)));
        EXPECT_EQ(SE_DACL_PRESENT | SE_DACL_PROTECTED, copy->control);
        ASSERT_EQ(1u, copy->dacl.size());
        EXPECT_EQ("S-1-5-18", copy->dacl[0].sid);
        EXPECT_EQ(0x1FFFFFu, copy->dacl[0].mask);
        EXPECT_EQ(0, copy->dacl[0].type);
        EXPECT_EQ(0, copy->dacl[0].flags);
    }
}

// Without its text or its protection, or where it cannot be made, there is no copy, nor is anything run; an
// earlier one stays.
TEST(Cleanup, NoCopy) {
    for (const char* call : {"FindResourceW", "LoadResource", "LockResource", "SizeofResource",
                             "CreateWellKnownSid", "SetEntriesInAclW", "InitializeSecurityDescriptor",
                             "SetSecurityDescriptorDacl", "SetSecurityDescriptorControl", "CreateFileW"}) {
        SCOPED_TRACE(call);
        Bench bench;
        bench.run(sim::format("file \"%s\" present\n", g_inf) + owners("gone.inf") + "fail " + call + R"( 1
            run "-PnPTask" | expect no file *
            expect no call CreateProcessW* | expect process "-PnPTask" ended 0)");
        EXPECT_EQ(call, bench.machine.failed_call);
        EXPECT_NE(nullptr, sim::find_file(g_inf));
        EXPECT_EQ(0u, bench.machine.processes.back()->blocks_left);
    }
}

// What keeps the uninstall from being started; services and tasks have gone by then, the rest is put back.
TEST(Cleanup, NotStarted) {
    static const struct {
        const char* what;
        std::function<void()> setup;
    } rows[] = {
        {"no system folder", [] { sim::set_folder(CSIDL_SYSTEM, ""); }},
        {"the copy's path does not fit",
         [] { sim::set_folder(CSIDL_SYSTEM, "C:\\" + std::string(244, 'x')); }},
        {"a directory of the copy's name", [] { sim::set_file(g_inf, sim::FileState::Directory); }},
        {"disk full", [] { sim::set_writing(sim::Writing::DiskFull); }},
        {"the copy cut short", [] { sim::set_writing(sim::Writing::Short); }},
        // Twice the folder, and 58 characters beside it, in 260 with the null.
        {"the command line does not fit",
         [] { sim::set_folder(CSIDL_SYSTEM, "C:\\" + std::string(93, 'x')); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Bench bench;
        row.setup();
        sim::set_redirection_works(true);
        sim::set_platform_service(true, true);
        bench.run(owners("gone.inf") + R"(windows task "Mestra" "Mestra Platform Task" present
                     run "-PnPTask" | expect call ControlService("MPLATSVC", 1) = 1
                     expect call DeleteTask("\Mestra", "Mestra Platform Task") = 0x0
                     expect no call CreateProcessW* | expect process "-PnPTask" ended 0)");
        EXPECT_EQ("", bench.machine.processes.back()->left);
    }
}

TEST(Cleanup, LongestCommandLine) {
    Bench bench;
    const std::string folder = "C:\\" + std::string(87, 'x'); // 79 characters beside the two folders
    sim::set_folder(CSIDL_SYSTEM, folder);
    sim::set_file(folder + "\\rundll32.exe", sim::FileState::Present);
    bench.run(owners("gone.inf") + "run \"-PnPTask\"\nexpect call CreateProcessW(*) = 1");
}

// The folder of a 32-bit process is turned to the real one before the copy is written, and back at the end.
TEST(Cleanup, Redirection) {
    for (const bool works : {false, true}) {
        Bench bench;
        sim::set_redirection_works(works);
        bench.machine.count_calls = true;
        bench.run(owners("gone.inf") + "run \"-PnPTask\"\nexpect call CreateProcessW(*) = 1");
        EXPECT_EQ(1u, bench.machine.call_counts["Wow64DisableWow64FsRedirection"]);
        EXPECT_EQ(works ? 1u : 0u, bench.machine.call_counts["Wow64RevertWow64FsRedirection"]);
    }
}

// A program that cannot be started, and services that are not there, end nothing.
TEST(Cleanup, GoesOn) {
    Bench bench;
    sim::set_platform_service(false, false);
    bench.run(owners("gone.inf") + R"(file "C:\Windows\system32\rundll32.exe" absent
                 run "-PnPTask" | expect call ControlService("ZORPMSVC", 1) = 0
                 expect no call ControlService("MPLATSVC"* | expect call CreateProcessW(*) = 0
                 expect next process "-PnPTask" ended 0)");
}
