// The recorder's file (recorder/record/journal.h): recording_probe.exe FOLDER. What its lines cost is
// printed, in microseconds; with "write FILE" it writes until it is ended.
#include <windows.h>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "recorder/lines.h"
#include "recorder/record/journal.h"
#include "recorder/record/replaced.h"

using namespace record;

static int g_failures = 0;

static void expect(bool holds, const char* what) {
    if (!holds)
        std::printf("FAILED: %s\n", what);
    g_failures += !holds;
}

static void say(const char* text, unsigned number) {
    const Guard guard;
    effect("%s %u", text, number);
}

static std::vector<std::string> lines_of(const std::wstring& path) {
    std::vector<std::string> found;
    std::ifstream file(lines::narrow(path.c_str()), std::ios::binary);
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && !line.starts_with("advance "))
            found.push_back(line);
    }
    return found;
}

static unsigned long long size_of(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
    return data.nFileSizeLow;
}

// ---- one process after another, and what a line costs ----

static void check_cost(const std::wstring& path) {
    constexpr unsigned count = 20000;
    expect(begin_journal({path, 64 << 20}) && fresh_journal(), "a new file");
    begin_clock();
    LARGE_INTEGER begin;
    LARGE_INTEGER end;
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&begin);
    for (unsigned i = 0; i < count; ++i)
        say("request DYTC(0x1f2001) = 0x1: registry SVC\\TMC\\TIO CurrentStatus", i);
    QueryPerformanceCounter(&end);
    std::printf("cost %.1f us\n", static_cast<double>(end.QuadPart - begin.QuadPart) * 1e6 /
                                      static_cast<double>(frequency.QuadPart) / count);
    expect(lines_of(path).size() == count, "readable while it grows");
    end_journal();
    const unsigned long long size = size_of(path);
    expect(begin_journal({path, 64 << 20}) && !fresh_journal(), "the same file again");
    say("behind", 1);
    end_journal();
    const std::vector<std::string> lines = lines_of(path);
    expect(lines.size() == count + 1 && lines.back() == "effect thread behind 1",
           "goes on behind the last line");
    expect(size_of(path) - size < 64, "no gap");
}

// ---- bounds ----

static void check_bounds(const std::wstring& folder) {
    constexpr unsigned long long most = 3 << 20;
    const std::wstring path = folder + L"\\bound.txt";
    expect(begin_journal({path, most}), "a bounded file");
    unsigned written = 0;
    for (; written < 100000; ++written)
        say("a line of sixty letters or so, that fills the file in the end", written);
    end_journal();
    const std::vector<std::string> older = lines_of(folder + L"\\bound.1.txt");
    const std::vector<std::string> newer = lines_of(path);
    const auto whole = [](const std::wstring& file) { return size_of(file) > 0 && size_of(file) <= most; };
    expect(whole(folder + L"\\bound.1.txt") && whole(path), "both within the bound");
    expect(older.size() + newer.size() < written, "the oldest is dropped");
    expect(newer.size() > 2 && newer[0].starts_with("# goes on behind"), "the newer one says what it is");
    const auto number = [](const std::string& line) {
        return std::strtoul(line.c_str() + line.rfind(' '), nullptr, 10);
    };
    expect(number(newer[1]) == number(older.back()) + 1, "no line is lost between the two");
    expect(number(newer.back()) == written - 1, "nor at the end");
}

// ---- threads and processes that are ended ----

// Tells that it has begun: a thread that is ended while it comes to be leaves the loader's lock taken.
static DWORD WINAPI write_for_ever(LPVOID begun) {
    if (begun != nullptr)
        ReleaseSemaphore(static_cast<HANDLE>(begun), 1, nullptr);
    for (unsigned i = 0;; ++i) {
        say("a line of a thread that is ended at any moment, or with its process", i);
        if (i % 20 == 0)
            Sleep(1); // others want to write too
    }
}

static DWORD WINAPI keep_lock(LPVOID taken) {
    const Guard guard;
    SetEvent(static_cast<HANDLE>(taken));
    Sleep(INFINITE);
    return 0;
}

// As the wrapper of TerminateThread does it: whoever holds the lock is not ended.
static void end_as_recorder(HANDLE thread) {
    const Guard guard;
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_CONTROL;
    SuspendThread(thread);
    GetThreadContext(thread, &context);
    TerminateThread(thread, 0);
}

static bool all_whole(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        const bool cut = line.starts_with("#") && &line == &lines.back(); // as its process ended
        if (!cut && (!line.starts_with("effect thread ") || line.find('\0') != std::string::npos))
            return false;
    }
    return true;
}

static void check_threads(const std::wstring& folder) {
    const std::wstring path = folder + L"\\threads.txt";
    expect(begin_journal({path, 64 << 20}), "a file of many threads");
    HANDLE begun = CreateSemaphoreW(nullptr, 0, 100, nullptr);
    for (unsigned round = 0; round < 30; ++round) {
        HANDLE threads[3];
        for (HANDLE& thread : threads) {
            thread = CreateThread(nullptr, 0, write_for_ever, begun, 0, nullptr);
            WaitForSingleObject(begun, INFINITE);
        }
        say("meanwhile", round);
        for (HANDLE thread : threads) {
            end_as_recorder(thread);
            CloseHandle(thread);
        }
    }
    HANDLE taken = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HANDLE thread = CreateThread(nullptr, 0, keep_lock, taken, 0, nullptr);
    WaitForSingleObject(taken, INFINITE);
    TerminateThread(thread, 0); // by another hand than the recorder's
    say("meanwhile", 30);
    end_journal();
    const std::vector<std::string> lines = lines_of(path);
    unsigned meanwhile = 0;
    for (const std::string& line : lines)
        meanwhile += line == "effect thread meanwhile " + std::to_string(meanwhile);
    expect(all_whole(lines) && meanwhile == 31, "ended threads leave whole lines, and stop nobody");
}

static void check_killed(const std::wstring& own, const std::wstring& folder) {
    const std::wstring path = folder + L"\\killed.txt";
    std::wstring command = L"\"" + own + L"\" write \"" + path + L"\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    expect(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                          &process) != 0,
           "the writing process");
    while (lines_of(path).size() < 2000 && WaitForSingleObject(process.hProcess, 10) == WAIT_TIMEOUT)
        ;
    TerminateProcess(process.hProcess, 0);
    WaitForSingleObject(process.hProcess, INFINITE);
    expect(all_whole(lines_of(path)), "a process that was ended leaves whole lines");
    const size_t left = lines_of(path).size();
    expect(begin_journal({path, 64 << 20}), "the file of a process that was ended");
    say("after", 0);
    expect(ends_with("after 0") && !ends_with("after 1"), "the last line");
    end_journal();
    const std::vector<std::string> lines = lines_of(path);
    expect(lines.size() == left + 1 && lines.back() == "effect thread after 0", "goes on behind it");
    expect(begin_journal({path, 64 << 20}) && ends_with("after 0"), "the last line of an earlier process");
    begin_new_file();
    say("anew", 0);
    expect(fresh_journal(), "a new file");
    end_journal();
    expect(lines_of(folder + L"\\killed.1.txt").size() == left + 1, "the older file");
    expect(lines_of(path).size() == 1, "the new file");
}

// ---- names ----

static void check_names() {
    wchar_t machine[MAX_COMPUTERNAME_LENGTH + 1] = L"";
    DWORD letters = MAX_COMPUTERNAME_LENGTH + 1;
    GetComputerNameW(machine, &letters);
    note_account("Max");
    // clang-format off
    const std::string rows[][2] = {
        {"load \"S-1-5-21-10-20-30-1104\", \"C:\\Users\\mmuster\\ntuser.dat\"", "load \"S-1-5-21-0-0-0-1001\", \"C:\\Users\\USER1\\ntuser.dat\""},
        {"HKU\\s-1-5-21-10-20-30-1105\\Control Panel", "HKU\\S-1-5-21-0-0-0-1002\\Control Panel"},
        {"S-1-5-21-10-20-30-1104 S-1-12-1-7-8-9-10", "S-1-5-21-0-0-0-1001 S-1-5-21-0-0-0-1003"},
        {"S-1-5-18 and S-1-5-19", "S-1-5-18 and S-1-5-19"},
        {"D:\\USERS\\MMuster\\a \\users\\Public\\x C:\\Users\\Erika M\\a", "D:\\USERS\\USER1\\a \\users\\Public\\x C:\\Users\\USER2\\a"},
        {"max, Maximum, MAX\\x", "USER, Maximum, USER\\x"},
        {lines::narrow(machine) + "\\x, " + lines::narrow(machine) + "2", "COMPUTER\\x, " + lines::narrow(machine) + "2"},
    };
    // clang-format on
    for (const auto& row : rows) {
        std::string line = row[0];
        replace_names(&line);
        expect(line == row[1], (row[0] + " became " + line).c_str());
    }
}

int wmain(int count, wchar_t** words) {
    if (count == 3 && std::wstring(words[1]) == L"write") {
        if (begin_journal({words[2], 64 << 20}))
            CreateThread(nullptr, 0, write_for_ever, nullptr, 0, nullptr);
        return static_cast<int>(write_for_ever(nullptr));
    }
    if (count != 2)
        return 2;
    const std::wstring folder = words[1];
    check_cost(folder + L"\\cost.txt");
    check_bounds(folder);
    check_threads(folder);
    check_killed(words[0], folder);
    check_names();
    return g_failures == 0 ? 0 : 1;
}
