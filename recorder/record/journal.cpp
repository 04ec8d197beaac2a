#include "recorder/record/journal.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <shlobj.h>
#include <vector>

#include "recorder/lines.h"
#include "recorder/record/os.h"
#include "recorder/record/replaced.h"

namespace record {

constexpr size_t WINDOW_BYTES = 1024 * 1024; // of the file, mapped at a time
constexpr size_t GRANULARITY = 64 * 1024;    // of the places where a window can begin
constexpr size_t LONGEST_LINE = 60 * 1024;
constexpr unsigned long long MOST_BYTES = 64ull * 1024 * 1024;

// ---- the lock ----

static volatile LONG g_owner = 0; // id of the thread that holds it
constexpr unsigned BUSY_TRIES = 200;
constexpr unsigned TRIES_PER_LOOK = 20; // of a millisecond or a tick each: whether the owner lives

static bool has_ended(DWORD thread) {
    HANDLE handle = OpenThread(SYNCHRONIZE, FALSE, thread);
    if (handle == nullptr)
        return true;
    const bool ended = WaitForSingleObjectEx(handle, 0, FALSE) == WAIT_OBJECT_0;
    os::CloseHandle(handle);
    return ended;
}

static void take_lock() {
    const auto own = static_cast<LONG>(GetCurrentThreadId());
    for (unsigned tries = 1; InterlockedCompareExchange(&g_owner, own, 0) != 0; ++tries) {
        if (tries < BUSY_TRIES) {
            SwitchToThread();
            continue;
        }
        os::Sleep(1);
        const LONG owner = g_owner;
        if (tries % TRIES_PER_LOOK == 0 && owner != 0 && has_ended(static_cast<DWORD>(owner)) &&
            InterlockedCompareExchange(&g_owner, own, owner) == owner)
            return;
    }
}

Guard::Guard() {
    const DWORD error = GetLastError();
    take_lock();
    SetLastError(error);
}

Guard::~Guard() {
    InterlockedExchange(&g_owner, 0);
}

// ---- the file ----

static volatile LONG g_recording = 0;
static bool g_fresh = false;
static JournalSettings g_settings;
static HANDLE g_file = INVALID_HANDLE_VALUE;
static char* g_window = nullptr;             // of the file
static unsigned long long g_windowBegin = 0; // where in the file
static unsigned long long g_end = 0;         // behind the last line

bool recording() {
    return g_recording != 0;
}

bool fresh_journal() {
    return g_fresh;
}

static std::wstring environment(const wchar_t* name) {
    wchar_t text[MAX_PATH] = L"";
    const DWORD length = GetEnvironmentVariableW(name, text, MAX_PATH);
    return length < MAX_PATH ? std::wstring(text, length) : L"";
}

static bool is_link(const std::wstring& path) {
    const DWORD attributes = os::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

JournalSettings usual_settings() {
    std::wstring path = environment(L"ZORPM_RECORDING");
    if (path.empty()) {
        wchar_t data[MAX_PATH] = L"";
        SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, data);
        path = std::wstring(data) + L"\\ZORPMSVC";
        CreateDirectoryW(path.c_str(), nullptr);
        if (is_link(path)) // anybody may make the folder first
            return {L"", 0};
        path += L"\\recording.txt";
    }
    return {path, MOST_BYTES};
}

static void drop_window() {
    if (g_window != nullptr)
        UnmapViewOfFile(g_window);
    g_window = nullptr;
}

static unsigned long long file_size() {
    LARGE_INTEGER size = {};
    return GetFileSizeEx(g_file, &size) ? static_cast<unsigned long long>(size.QuadPart) : 0;
}

// Maps the part of the file from its last line on. What is not written yet is empty lines: whoever reads the
// file meanwhile, or finds it after the process was ended, reads a text.
static bool map_window() {
    drop_window();
    const unsigned long long before = file_size();
    g_windowBegin = g_end / GRANULARITY * GRANULARITY;
    ULARGE_INTEGER size = {};
    size.QuadPart = g_windowBegin + WINDOW_BYTES;
    HANDLE mapping =
        CreateFileMappingW(g_file, nullptr, PAGE_READWRITE, size.HighPart, size.LowPart, nullptr);
    if (mapping == nullptr)
        return false;
    ULARGE_INTEGER begin = {};
    begin.QuadPart = g_windowBegin;
    g_window = static_cast<char*>(
        MapViewOfFile(mapping, FILE_MAP_WRITE, begin.HighPart, begin.LowPart, WINDOW_BYTES));
    os::CloseHandle(mapping);
    if (g_window == nullptr)
        return false;
    const unsigned long long filled = std::max(before, g_windowBegin) - g_windowBegin;
    if (filled < WINDOW_BYTES)
        std::memset(g_window + filled, '\n', static_cast<size_t>(WINDOW_BYTES - filled));
    return true;
}

// Behind the last line of what an earlier process has left: there the file is empty lines, or nulls.
static unsigned long long end_of_lines() {
    std::vector<char> block(GRANULARITY);
    unsigned long long end = file_size();
    while (end > 0) {
        const auto bytes = static_cast<DWORD>(std::min<unsigned long long>(end, block.size()));
        LARGE_INTEGER from = {};
        from.QuadPart = static_cast<LONGLONG>(end - bytes);
        DWORD read = 0;
        if (!SetFilePointerEx(g_file, from, nullptr, FILE_BEGIN) ||
            !os::ReadFile(g_file, block.data(), bytes, &read, nullptr) || read != bytes)
            break;
        DWORD left = bytes;
        while (left > 0 && (block[left - 1] == '\n' || block[left - 1] == 0))
            --left;
        end -= bytes - left;
        if (left > 0)
            return end + 1; // with the end of that line
    }
    return 0;
}

static void cut_file() {
    drop_window();
    LARGE_INTEGER end = {};
    end.QuadPart = static_cast<LONGLONG>(g_end);
    if (SetFilePointerEx(g_file, end, nullptr, FILE_BEGIN))
        SetEndOfFile(g_file);
    os::CloseHandle(g_file);
    g_file = INVALID_HANDLE_VALUE;
}

static bool open_file() {
    if (is_link(g_settings.path))
        return false;
    g_file = os::CreateFileW(g_settings.path.c_str(), GENERIC_READ | GENERIC_WRITE,
                             FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                             nullptr);
    if (g_file == INVALID_HANDLE_VALUE)
        return false;
    g_end = end_of_lines();
    return map_window();
}

// recording.txt becomes recording.1.txt.
static std::wstring older_path() {
    const size_t dot = g_settings.path.rfind(L'.');
    return g_settings.path.substr(0, dot) + L".1" +
           (dot != std::wstring::npos ? g_settings.path.substr(dot) : L"");
}

// A line that is cut because its process ends in the midst of it is a comment: its first letter comes last.
static void append(const char* text, size_t bytes) {
    if (g_end - g_windowBegin + bytes > WINDOW_BYTES && !map_window()) {
        InterlockedExchange(&g_recording, 0);
        return;
    }
    volatile char* first = g_window + (g_end - g_windowBegin);
    *first = '#';
    std::memcpy(g_window + (g_end - g_windowBegin) + 1, text + 1, bytes - 1);
    MemoryBarrier();
    *first = text[0];
    g_end += bytes;
}

void begin_new_file() {
    cut_file();
    MoveFileExW(g_settings.path.c_str(), older_path().c_str(), MOVEFILE_REPLACE_EXISTING);
    InterlockedExchange(&g_recording, open_file() ? 1 : 0);
    g_fresh = g_end == 0;
}

static void roll() {
    const bool was_fresh = g_fresh; // what is known of the machine stays known
    begin_new_file();
    g_fresh = was_fresh;
    static const char note[] = "# goes on behind the older file, recording.1.txt; replay both as one\n";
    if (recording() && g_end == 0)
        append(note, sizeof(note) - 1);
}

bool ends_with(const char* line) {
    const size_t length = std::strlen(line);
    const size_t at = static_cast<size_t>(g_end - g_windowBegin);
    // A line may begin in the window before.
    return at > length && std::memcmp(g_window + at - 1 - length, line, length) == 0;
}

// ---- time ----

static LARGE_INTEGER g_began; // 0: the clock stands still
static LARGE_INTEGER g_frequency;
static std::atomic<unsigned long long> g_past{0}; // the clock is here at least
static unsigned long long g_written = 0;          // of the last line

void begin_clock() {
    QueryPerformanceCounter(&g_began);
}

unsigned long long clock_ms() {
    if (g_began.QuadPart == 0)
        return 0;
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    const auto passed =
        static_cast<unsigned long long>((now.QuadPart - g_began.QuadPart) * 1000 / g_frequency.QuadPart);
    return std::max(passed, g_past.load());
}

void clock_is_past(unsigned long long time) {
    g_past = std::max(g_past.load(), time);
}

// ---- lines ----

static void put(std::string line) {
    if (!recording())
        return;
    const DWORD error = GetLastError();
    replace_names(&line);
    std::replace(line.begin(), line.end(), '\n', ' ');
    line.resize(std::min(line.size(), LONGEST_LINE));
    line += '\n';
    if (const unsigned long long now = clock_ms(); now > g_written) {
        char advance[48];
        const int bytes = std::snprintf(advance, sizeof(advance), "advance %llums\n", now - g_written);
        g_written = now;
        line.insert(0, advance, static_cast<size_t>(bytes));
    }
    if (g_end + line.size() > g_settings.most_bytes)
        roll();
    if (recording())
        append(line.data(), line.size());
    SetLastError(error);
}

void command(const std::string& line) {
    put(line);
}

// ---- threads ----

namespace {

struct Thread {
    std::string name = "thread";
    std::map<std::string, unsigned> calls; // since its last effect
    std::vector<std::string> failures;     // lines, for its next effect
};

} // namespace

static DWORD g_slot = TLS_OUT_OF_INDEXES;

static Thread* self() {
    const DWORD error = GetLastError();
    auto* thread = static_cast<Thread*>(TlsGetValue(g_slot));
    if (thread == nullptr) {
        thread = new Thread; // as long as the process: threads are ended by others
        TlsSetValue(g_slot, thread);
    }
    SetLastError(error);
    return thread;
}

void name_thread(const char* name) {
    self()->name = name;
}

void outcome(const char* call, bool failed) {
    Thread* thread = self();
    const unsigned count = ++thread->calls[call];
    if (failed)
        thread->failures.push_back("fail " + std::string(call) + " " + std::to_string(count));
}

void effect(const char* pattern, ...) {
    const DWORD error = GetLastError();
    char text[8192];
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text, sizeof(text), pattern, arguments);
    va_end(arguments);
    Thread* thread = self();
    for (const std::string& line : thread->failures)
        put(line);
    thread->failures.clear();
    thread->calls.clear();
    put("effect " + thread->name + " " + text);
    SetLastError(error);
}

// ---- begin and end ----

bool begin_journal(const JournalSettings& settings) {
    g_settings = settings;
    if (g_slot == TLS_OUT_OF_INDEXES)
        g_slot = TlsAlloc();
    QueryPerformanceFrequency(&g_frequency);
    if (g_slot == TLS_OUT_OF_INDEXES || !open_file())
        return false;
    g_fresh = g_end == 0;
    InterlockedExchange(&g_recording, 1);
    return true;
}

void end_journal() {
    if (InterlockedExchange(&g_recording, 0) != 0)
        cut_file();
}

} // namespace record
