// The simulated disk, names and handles, as on Windows.
#include <shlobj.h>

#include "sim/windows/disk.h"
#include "tests/support/bench.h"

using namespace sim;

static HANDLE open_as(const wchar_t* path, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING,
                      DWORD flags = 0) {
    return CreateFileW(path, access, share, nullptr, disposition, flags, nullptr);
}

// Errors of opening an existing file, of deleting it, and of asking for its attributes.
TEST(FileSim, Paths) {
    const struct {
        const wchar_t* path;
        DWORD opening;
        DWORD deletion;
        DWORD attributes; // or the error
    } rows[] = {
        {L"D:\\none.txt", 3, 3, 3},
        {L"C:\\windows\\", 5, 5, FILE_ATTRIBUTE_DIRECTORY},
        {L"C:/Windows//INF/", 5, 5, FILE_ATTRIBUTE_DIRECTORY},
        {L"C:\\", 5, 5, FILE_ATTRIBUTE_DIRECTORY},
        {L"C:\\.\\none\\..\\..\\x.txt. .", 0, 0, FILE_ATTRIBUTE_ARCHIVE},
        {L"C:\\Windows.\\INF.", 5, 5, FILE_ATTRIBUTE_DIRECTORY},
        {L"C:\\Windows \\INF", 3, 3, 3},
        {L"C:\\Windows\\C:\\x.txt", 123, 123, 123},
        {L"C:\\Windows\\C:\\", 123, 123, 123},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(narrow(row.path));
        expect_violation(nullptr, [&row] {
            set_file("C:\\x.txt", FileState::Present);
            const DWORD attributes = GetFileAttributesW(row.path);
            EXPECT_EQ(row.attributes, attributes == INVALID_FILE_ATTRIBUTES ? GetLastError() : attributes);
            HANDLE file = open_as(row.path, GENERIC_READ, 0);
            EXPECT_EQ(row.opening, file == INVALID_HANDLE_VALUE ? GetLastError() : 0);
            if (file != INVALID_HANDLE_VALUE)
                CloseHandle(file);
            EXPECT_EQ(row.deletion, DeleteFileW(row.path) ? 0 : GetLastError());
        });
    }
    for (const wchar_t* path : {L"C:x.txt", L"\\\\?\\C:\\x.txt", L"\\\\server\\x.txt", L"\\x.txt"}) {
        SCOPED_TRACE(narrow(path));
        expect_violation("is not spelled", [path] { GetFileAttributesW(path); });
    }
    expect_violation("no streams", [] { GetFileAttributesW(L"C:\\x.txt:stream"); });
}

TEST(FileSim, WhatIsNotKnownIsRefusedLoudly) {
    static SECURITY_ATTRIBUTES inherited = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    static SECURITY_ATTRIBUTES wrong_size = {4, nullptr, FALSE};
    static const struct {
        const char* word;
        void (*act)();
    } rows[] = {
        {"flags 0x40000000", [] { open_as(L"C:\\x.txt", GENERIC_READ, 0, OPEN_EXISTING, 0x40000000); }},
        {"flags 0x2000000", [] { open_as(L"C:\\Windows", GENERIC_READ, 0, OPEN_EXISTING, 0x02000000); }},
        {"disposition 4", [] { open_as(L"C:\\x.txt", GENERIC_READ, 0, 4); }},
        {"access 0x100", [] { open_as(L"C:\\x.txt", 0x100, 0); }},
        {"security", [] { CreateFileW(L"C:\\y", GENERIC_WRITE, 0, &inherited, CREATE_NEW, 0, nullptr); }},
        {"security", [] { CreateEventW(&inherited, TRUE, FALSE, nullptr); }},
        {"security", [] { CreateMutexW(&wrong_size, FALSE, nullptr); }},
        {"synchronous", [] { ReadFile(INVALID_HANDLE_VALUE, nullptr, 0, nullptr, nullptr); }},
        {"beyond ASCII", [] { CreateEventW(nullptr, TRUE, FALSE, L"\u00C4"); }},
        {"flags 0x10004",
         [] { CreateThread(nullptr, 0, nullptr, nullptr, CREATE_SUSPENDED | 0x10000, nullptr); }},
        {"nothing to wait for", [] { WaitForSingleObject(open_as(L"C:\\x.txt", GENERIC_READ, 0), 0); }},
        {"is open",
         [] {
             open_as(L"C:\\x.txt", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE);
             DeleteFileW(L"C:\\x.txt");
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.word);
        expect_violation(row.word, [&row] {
            set_file("C:\\x.txt", FileState::Present);
            row.act();
        });
    }
}

// Whoever lacks a right on an object is told so.
TEST(HandleSim, Rights) {
    static HANDLE handle;
    static const struct {
        Kind kind;
        DWORD rights;
        bool (*act)();
    } rows[] = {
        {Kind::Event, EVENT_MODIFY_STATE, [] { return SetEvent(handle) != FALSE; }},
        {Kind::Event, EVENT_MODIFY_STATE, [] { return ResetEvent(handle) != FALSE; }},
        {Kind::Event, SYNCHRONIZE, [] { return WaitForSingleObject(handle, 0) != WAIT_FAILED; }},
        {Kind::Mutex, SYNCHRONIZE, [] { return WaitForSingleObject(handle, 0) != WAIT_FAILED; }},
        {Kind::Thread, SYNCHRONIZE, [] { return WaitForSingleObject(handle, 0) != WAIT_FAILED; }},
        {Kind::Thread, THREAD_SUSPEND_RESUME, [] { return SuspendThread(handle) == 0; }},
        {Kind::Thread, THREAD_SUSPEND_RESUME, [] { return ResumeThread(handle) == 0; }},
        {Kind::Thread, THREAD_TERMINATE, [] { return TerminateThread(handle, 0) != FALSE; }},
        {Kind::Thread, THREAD_QUERY_INFORMATION,
         [] {
             DWORD code = 0;
             return GetExitCodeThread(handle, &code) != FALSE;
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        for (const bool has : {false, true}) {
            expect_violation(has ? nullptr : "needs", [&row, has] {
                const ObjectRef object =
                    row.kind == Kind::Thread
                        ? start_thread(current_process(), "other", [] { return sleep_for(1), DWORD{0}; })
                              ->object
                        : make_object(row.kind);
                handle = open_handle(object, has ? row.rights : EVERY_ACCESS & ~row.rights);
                EXPECT_EQ(has, row.act());
                EXPECT_EQ(has ? ERROR_SUCCESS : ERROR_ACCESS_DENIED, GetLastError());
            });
        }
    }
}

TEST(HandleSim, AStartedProcessIsSignalledWhenItEnds) {
    Bench bench;
    bench.run("windows program \"rundll32.exe\" takes 5s exits 3");
    run_on_thread([] {
        wchar_t line[] = L"rundll32 x";
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process = {};
        ASSERT_TRUE(CreateProcessW(L"C:\\Windows\\System32\\rundll32.exe", line, nullptr, nullptr, FALSE,
                                   CREATE_NEW_PROCESS_GROUP, nullptr, nullptr, &startup, &process));
        for (HANDLE handle : {process.hProcess, process.hThread}) {
            EXPECT_EQ(handle == process.hProcess ? WAIT_TIMEOUT : WAIT_OBJECT_0,
                      WaitForSingleObject(handle, 4999));
            EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(handle, 2));
        }
        DWORD code = 0;
        EXPECT_TRUE(GetExitCodeProcess(process.hProcess, &code));
        EXPECT_EQ(3u, code);
    });
}

// What an executable without a manifest is told.
TEST(HandleSim, Versions) {
    const struct {
        const char* machine;
        DWORD major;
        DWORD minor;
        DWORD build;
    } rows[] = {
        {"10.0", 6, 2, 9200}, {"6.3", 6, 2, 9200}, {"6.2", 6, 2, 9200},
        {"6.1", 6, 1, 7601},  {"6.0", 6, 0, 6002}, {"5.2", 5, 2, 3790},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.machine);
        Bench bench;
        bench.run(std::string("windows version ") + row.machine);
        run_on_thread([&row] {
            OSVERSIONINFOW version = {};
            version.dwOSVersionInfoSize = sizeof(version);
            EXPECT_TRUE(GetVersionExW(&version));
            EXPECT_EQ(row.major, version.dwMajorVersion);
            EXPECT_EQ(row.minor, version.dwMinorVersion);
            EXPECT_EQ(row.build, version.dwBuildNumber);
        });
    }
}
