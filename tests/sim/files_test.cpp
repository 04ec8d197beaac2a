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
        {L"", 3, 3, 3},
        {L"C:\\Windows\\*.inf", 123, 123, 123},
        {L"C:\\Windows\\a?", 123, 123, 123},
        {L"C:\\Windows\\none.txt", 2, 2, 2},
        {L"C:\\None\\none.txt", 3, 3, 3},
        {L"D:\\none.txt", 3, 3, 3},
        {L"C:\\x.txt\\below.txt", 3, 3, 3},
        {L"C:\\Windows", 5, 5, FILE_ATTRIBUTE_DIRECTORY},
        {L"C:\\windows\\", 5, 5, FILE_ATTRIBUTE_DIRECTORY},
        {L"C:/Windows//INF/", 5, 5, FILE_ATTRIBUTE_DIRECTORY},
        {L"C:\\", 5, 5, FILE_ATTRIBUTE_DIRECTORY},
        {L"C:\\x.txt\\", 123, 123, 123},
        {L"C:\\X.TXT", 0, 0, FILE_ATTRIBUTE_ARCHIVE},
        {L"C:\\\\x.txt", 0, 0, FILE_ATTRIBUTE_ARCHIVE},
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

TEST(FileSim, ShareModesBetweenOpeners) {
    constexpr DWORD R = GENERIC_READ, W = GENERIC_WRITE, SR = FILE_SHARE_READ, SW = FILE_SHARE_WRITE;
    const struct {
        DWORD access[2];
        DWORD share[2];
        bool opens;
    } rows[] = {
        {{R, R}, {0, SR}, false},
        {{R, R}, {SR, 0}, false},
        {{R, R}, {SR, SR}, true},
        {{R, W}, {SR, SR}, false},
        {{R, W}, {SW, SR}, true},
        {{W, R}, {SR, SW}, true},
        {{W, R}, {SR, SR}, false},
        {{W, W}, {SW, SW}, true},
        {{GENERIC_ALL, R}, {7, 7}, true},
        {{GENERIC_ALL, R}, {7, SR | SW}, false},
        {{R, DELETE}, {SR | SW, 7}, false},
        {{0, R}, {0, 0}, true},
        {{0, 0}, {7, 7}, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        expect_violation(nullptr, [&row] {
            set_file("C:\\x.txt", FileState::Present);
            HANDLE first = open_as(L"C:\\x.txt", row.access[0], row.share[0]);
            EXPECT_NE(INVALID_HANDLE_VALUE, first);
            HANDLE second = open_as(L"C:\\x.txt", row.access[1], row.share[1]);
            EXPECT_EQ(row.opens, second != INVALID_HANDLE_VALUE);
            EXPECT_EQ(row.opens ? ERROR_SUCCESS : ERROR_SHARING_VIOLATION, GetLastError());
            EXPECT_FALSE(row.share[0] != 7 && DeleteFileW(L"C:\\x.txt"));
            CloseHandle(first);
            CloseHandle(second);
            EXPECT_TRUE(DeleteFileW(L"C:\\x.txt"));
        });
    }
}

TEST(FileSim, Dispositions) {
    const struct {
        DWORD disposition;
        bool present;
        bool opens;
        DWORD error; // the last one, of a success too
        const char* content;
        const char* effect;
    } rows[] = {
        {CREATE_NEW, false, true, ERROR_SUCCESS, "new", "file create \"C:\\x.txt\""},
        {CREATE_NEW, true, false, ERROR_FILE_EXISTS, "former", nullptr},
        {CREATE_ALWAYS, false, true, ERROR_SUCCESS, "new", "file create \"C:\\x.txt\""},
        {CREATE_ALWAYS, true, true, ERROR_ALREADY_EXISTS, "new", "file overwrite \"C:\\x.txt\""},
        {OPEN_EXISTING, true, true, ERROR_SUCCESS, "newmer", nullptr},
        {OPEN_EXISTING, false, false, ERROR_FILE_NOT_FOUND, nullptr, nullptr},
    };
    const auto write = [](DWORD disposition, const char* text) {
        HANDLE file = open_as(L"C:\\x.txt", GENERIC_WRITE, 0, disposition, FILE_ATTRIBUTE_NORMAL);
        const DWORD error = GetLastError();
        DWORD written = 0;
        if (file != INVALID_HANDLE_VALUE)
            WriteFile(file, text, static_cast<DWORD>(strlen(text)), &written, nullptr);
        EXPECT_EQ(file != INVALID_HANDLE_VALUE, written != 0 && CloseHandle(file));
        return error;
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        expect_violation(nullptr, [&] {
            if (row.present)
                write(CREATE_NEW, "former");
            const size_t from = machine().trace.size();
            EXPECT_EQ(row.error, write(row.disposition, "new"));
            EXPECT_EQ(row.effect != nullptr ? 1u : 0u, traced("file ", from));
            EXPECT_TRUE(row.effect == nullptr || traced(row.effect, from) == 1);
            const PlainFile* file = find_file("C:\\x.txt");
            EXPECT_STREQ(row.content != nullptr ? row.content : "",
                         file != nullptr ? file->bytes.c_str() : "");
        });
    }
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

TEST(HandleSim, Names) {
    const struct {
        const wchar_t* name;
        DWORD error; // of creating it beside the event X
    } rows[] = {
        {L"X", ERROR_ALREADY_EXISTS},
        {L"x", ERROR_SUCCESS},
        {L"Local\\X", ERROR_ALREADY_EXISTS},
        {L"LOCAL\\X", ERROR_PATH_NOT_FOUND},
        {L"Global\\X", ERROR_SUCCESS},
        {L"Global\\", ERROR_INVALID_NAME},
        {L"A\\X", ERROR_PATH_NOT_FOUND},
        {L"\\X", ERROR_BAD_PATHNAME},
        {nullptr, ERROR_SUCCESS},
        {L"", ERROR_SUCCESS},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(narrow(row.name));
        expect_violation(nullptr, [&row] {
            current_process()->session = 1;
            HANDLE first = CreateEventW(nullptr, TRUE, FALSE, L"X");
            CreateEventW(nullptr, TRUE, FALSE, row.name);
            EXPECT_EQ(row.error, GetLastError());
            CloseHandle(first);
        });
    }
}

TEST(HandleSim, AThreadIsSuspendedAtMost127Times) {
    expect_violation(nullptr, [] {
        HANDLE thread = CreateThread(
            nullptr, 0, [](LPVOID) -> DWORD { return 0; }, nullptr, CREATE_SUSPENDED, nullptr);
        for (DWORD count = 1; count < 127; ++count)
            EXPECT_EQ(count, SuspendThread(thread));
        EXPECT_EQ(~0u, SuspendThread(thread));
        EXPECT_EQ(ERROR_SIGNAL_REFUSED, GetLastError());
        for (DWORD count = 127; count > 0; --count)
            EXPECT_EQ(count, ResumeThread(thread));
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 1));
    });
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
