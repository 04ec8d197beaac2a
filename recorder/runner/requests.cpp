#include "recorder/runner/requests.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>

#include "recorder/clock/turns.h"
#include "recorder/real.h"
#include "recorder/runner/accounts.h"
#include "recorder/runner/clients.h"
#include "recorder/runner/com.h"
#include "recorder/runner/console.h"
#include "recorder/runner/driver.h"
#include "recorder/runner/images.h"
#include "recorder/runner/manager.h"
#include "recorder/runner/notebook.h"
#include "recorder/runner/output.h"
#include "recorder/runner/settings.h"
#include "recorder/runner/wrapped.h"

namespace runner {

std::uint32_t number(const std::string& field) {
    return static_cast<std::uint32_t>(std::strtoul(field.c_str(), nullptr, 10));
}

static std::uint64_t long_number(const std::string& field) {
    return std::strtoull(field.c_str(), nullptr, 10);
}

// ---- time and the service ----

static void advance(const Fields& fields) {
    turns::advance(long_number(fields[0]));
}

static void pass(const Fields& fields) {
    turns::pass(long_number(fields[0]));
}

static void settle(const Fields&) {
    turns::signalled();
    turns::settle();
}

static void start(const Fields&) {
    service_start();
}

// Another process of the executable.
static void run(const Fields& fields) {
    const std::string& line = fields[0];
    const std::string thread = line.empty() ? "main" : line.substr(line[0] == '-');
    start_image({"zorpm_image", thread, line, line, nullptr});
}

static void run_control_program(const Fields& fields) {
    start_image({"zorpmctl_image", "zorpmctl", fields[0], "zorpmctl " + fields[0], nullptr});
}

static void interrupt(const Fields& fields) {
    interrupt_program(static_cast<Ending>(number(fields[0])));
}

static void program(const Fields& fields) {
    add_program(fields[0], number(fields[1]), number(fields[2]));
}

static void stop(const Fields&) {
    service_stop();
}

static Via via(const std::string& field) {
    return field == "handler" ? Via::Handler : Via::Manager;
}

static void control(const Fields& fields) {
    service_control(number(fields[1]), via(fields[0]));
}

static void power_event(const Fields& fields) {
    service_power_event(number(fields[1]), via(fields[0]));
}

// The sixteen bytes of a GUID in hexadecimal, and a value.
static void power_setting(const Fields& fields) {
    GUID guid = {};
    for (size_t i = 0; i < sizeof(guid); ++i)
        reinterpret_cast<BYTE*>(&guid)[i] =
            static_cast<BYTE>(std::strtoul(fields[1].substr(2 * i, 2).c_str(), nullptr, 16));
    service_power_setting(guid, number(fields[2]), via(fields[0]));
}

static void power_settings(const Fields& fields) {
    set_power_settings_at_registration(fields[0] == "1");
}

static void status(const Fields&) {
    const SERVICE_STATUS& now = service_status();
    say_line(std::string("value ") + g_stateNames[now.dwCurrentState] + " " +
             std::to_string(now.dwWin32ExitCode) + "/" + std::to_string(now.dwServiceSpecificExitCode));
}

static void time(const Fields& fields) {
    SYSTEMTIME time = {};
    WORD* const parts[] = {&time.wYear, &time.wMonth, &time.wDay, &time.wHour, &time.wMinute, &time.wSecond};
    for (size_t i = 0; i < std::size(parts); ++i)
        *parts[i] = static_cast<WORD>(number(fields[i]));
    set_local_time(time);
}

// ---- the registry, as another program ----

struct OpenKey {
    HKEY key = nullptr;
    ~OpenKey() {
        if (key != nullptr)
            REAL(RegCloseKey)(key);
    }
};

// A path with its root's name; SVC is the service's key.
static HKEY root_of(std::string path, std::wstring* below) {
    if (_strnicmp(path.c_str(), "SVC", 3) == 0 && (path.size() == 3 || path[3] == '\\'))
        path = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\ZORPMSVC" + path.substr(3);
    const size_t slash = std::min(path.find('\\'), path.size());
    *below = widen(slash < path.size() ? path.substr(slash + 1) : "");
    const std::string root = path.substr(0, slash);
    return _stricmp(root.c_str(), "HKCR") == 0   ? HKEY_CLASSES_ROOT
           : _stricmp(root.c_str(), "HKCU") == 0 ? HKEY_CURRENT_USER
           : _stricmp(root.c_str(), "HKU") == 0  ? HKEY_USERS
                                                 : HKEY_LOCAL_MACHINE;
}

static const DWORD g_options[] = {REG_OPTION_NON_VOLATILE, REG_OPTION_VOLATILE};

// Made where it is missing; a key below a volatile one is volatile too.
static bool make_key(const std::string& path, OpenKey* opened) {
    std::wstring below;
    HKEY root = root_of(path, &below);
    return std::any_of(std::begin(g_options), std::end(g_options), [&](DWORD option) {
        return REAL(RegCreateKeyExW)(root, below.c_str(), 0, nullptr, option, KEY_ALL_ACCESS, nullptr,
                                     &opened->key, nullptr) == ERROR_SUCCESS;
    });
}

static void set_key(const Fields& fields) {
    OpenKey opened;
    if (!make_key(fields[0], &opened))
        broken("the key " + fields[0] + " cannot be made");
}

static std::wstring name_of(const std::string& field) {
    return field == "@" ? L"" : widen(field);
}

static std::vector<BYTE> bytes_of(const std::string& hexadecimal) {
    std::vector<BYTE> bytes;
    for (size_t i = 0; i + 1 < hexadecimal.size(); i += 2)
        bytes.push_back(static_cast<BYTE>(std::strtoul(hexadecimal.substr(i, 2).c_str(), nullptr, 16)));
    return bytes;
}

static void set_value(const Fields& fields) {
    OpenKey opened;
    const std::vector<BYTE> bytes = bytes_of(fields[3]);
    if (!make_key(fields[0], &opened) ||
        REAL(RegSetValueExW)(opened.key, name_of(fields[1]).c_str(), 0, number(fields[2]), bytes.data(),
                             static_cast<DWORD>(bytes.size())) != ERROR_SUCCESS)
        broken("the value " + fields[0] + " " + fields[1] + " cannot be set");
}

static void delete_key(const Fields& fields) {
    std::wstring below;
    HKEY root = root_of(fields[0], &below);
    RegDeleteTreeW(root, below.c_str());
}

static void delete_value(const Fields& fields) {
    std::wstring below;
    OpenKey opened;
    HKEY root = root_of(fields[0], &below);
    if (REAL(RegOpenKeyExW)(root, below.c_str(), 0, KEY_ALL_ACCESS, &opened.key) == ERROR_SUCCESS)
        RegDeleteValueW(opened.key, name_of(fields[1]).c_str());
}

static void has_key(const Fields& fields) {
    std::wstring below;
    OpenKey opened;
    HKEY root = root_of(fields[0], &below);
    const bool there = REAL(RegOpenKeyExW)(root, below.c_str(), 0, KEY_READ, &opened.key) == ERROR_SUCCESS;
    say_line(there ? "value present" : "value absent");
}

// The type in decimal and the bytes in hexadecimal, or "absent".
static void query_value(const Fields& fields) {
    std::wstring below;
    OpenKey opened;
    HKEY root = root_of(fields[0], &below);
    DWORD type = 0;
    DWORD bytes = 0;
    if (REAL(RegOpenKeyExW)(root, below.c_str(), 0, KEY_READ, &opened.key) != ERROR_SUCCESS ||
        REAL(RegQueryValueExW)(opened.key, name_of(fields[1]).c_str(), nullptr, &type, nullptr, &bytes) !=
            ERROR_SUCCESS)
        return say_line("value absent");
    std::vector<BYTE> data(bytes + 1);
    REAL(RegQueryValueExW)(opened.key, name_of(fields[1]).c_str(), nullptr, &type, data.data(), &bytes);
    std::string text = "value " + std::to_string(type) + " ";
    for (DWORD i = 0; i < bytes; ++i) {
        static const char digits[] = "0123456789abcdef";
        text += {digits[data[i] >> 4], digits[data[i] & 15]};
    }
    say_line(text);
}

// ---- settings ----

static void set(const Fields& fields) {
    set_setting(fields[0], number(fields[1]));
}

static void refuse(const Fields& fields) {
    refuse_key(fields[0], number(fields[1]));
}

static void task(const Fields& fields) {
    add_task(fields[0], fields[1]);
}

static void check_task(const Fields& fields) {
    say_line(has_task(fields[0], fields[1]) ? "value present" : "value absent");
}

static void fail(const Fields& fields) {
    fail_next(fields[0]);
}

static void account(const Fields& fields) {
    add_account(fields[0], fields[1]);
}

static void hive(const Fields& fields) {
    add_hive_value(fields[0], fields[1], fields[2], number(fields[3]), bytes_of(fields[4]));
}

static void no_hives(const Fields&) {
    forget_hives();
}

// ---- names that another program holds ----

static std::map<std::string, std::vector<HANDLE>> g_held;
static const wchar_t* const g_namespaces[] = {L"", L"Global\\"};

static void free_name(const Fields& fields) {
    for (HANDLE object : g_held[fields[0]])
        CloseHandle(object);
    g_held.erase(fields[0]);
}

// 0 mutex, 1 event, 2 event that does not reset itself; 1: nobody else may open it.
static void hold_name(const Fields& fields) {
    SECURITY_DESCRIPTOR descriptor;
    ACL nobody;
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    InitializeAcl(&nobody, sizeof(nobody), ACL_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, &nobody, FALSE);
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), &descriptor, FALSE};
    SECURITY_ATTRIBUTES* security = number(fields[2]) != 0 ? &attributes : nullptr;
    const DWORD kind = number(fields[1]);
    for (const wchar_t* place : g_namespaces) {
        const std::wstring name = place + widen(fields[0]);
        HANDLE object = kind == 0 ? CreateMutexW(security, FALSE, name.c_str())
                                  : CreateEventW(security, kind == 2, FALSE, name.c_str());
        if (object != nullptr)
            g_held[fields[0]].push_back(object);
    }
}

// By whoever holds it; if nobody does, another program opens the service's own.
static void set_name(const Fields& fields) {
    for (HANDLE object : g_held[fields[0]])
        SetEvent(object);
    if (!g_held[fields[0]].empty())
        return;
    HANDLE object = OpenEventW(EVENT_MODIFY_STATE, FALSE, widen(fields[0]).c_str());
    if (object == nullptr)
        return;
    SetEvent(object);
    CloseHandle(object);
}

// ---- files ----

// The folders above a file.
static void make_folders(const std::wstring& path) {
    for (size_t slash = path.find(L'\\', 3); slash != std::wstring::npos; slash = path.find(L'\\', slash + 1))
        CreateDirectoryW(path.substr(0, slash).c_str(), nullptr);
}

static void write_setting(const Fields& fields) {
    make_folders(widen(fields[0]));
    if (!WritePrivateProfileStringW(widen(fields[1]).c_str(), widen(fields[2]).c_str(),
                                    widen(fields[3]).c_str(), widen(fields[0]).c_str()))
        broken("the file " + fields[0] + " cannot be written");
}

static void make_file(const Fields& fields) {
    make_folders(widen(fields[0]));
    HANDLE file =
        REAL(CreateFileW)(widen(fields[0]).c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        broken("the file " + fields[0] + " cannot be made");
    REAL(CloseHandle)(file);
}

static void delete_file(const Fields& fields) {
    delete_any_file(widen(fields[0]).c_str());
}

static void has_file(const Fields& fields) {
    const bool there = REAL(GetFileAttributesW)(widen(fields[0]).c_str()) != INVALID_FILE_ATTRIBUTES;
    say_line(there ? "value present" : "value absent");
}

// ---- the notebook ----

static void reset_notebook(const Fields&) {
    ask_notebook(NOTEBOOK_RESET);
}

static void event(const Fields& fields) {
    ask_notebook(NOTEBOOK_EVENT, number(fields[0]), number(fields[1]));
    turns::signalled(); // whom it wakes comes before whom the next request of this instant wakes
}

static void signal(const Fields& fields) {
    static const char* const names[] = {"Start", "Stop", "Sleep", "Resume", "NotifyEvent"};
    const DWORD index = number(fields[0]);
    if (ask_notebook(NOTEBOOK_SIGNAL, index) == 0)
        effect("refused signal %s", names[index]);
    turns::signalled();
}

static void set_indicator(const Fields& fields) {
    ask_notebook(NOTEBOOK_SET_STATE, number(fields[0]), number(fields[1]));
}

static void indicator(const Fields& fields) {
    say_line("value " + std::to_string(ask_notebook(NOTEBOOK_STATE, number(fields[0]))));
}

static void failures(const Fields& fields) {
    ask_notebook(NOTEBOOK_FAILURES, number(fields[0]), number(fields[1]), number(fields[2]));
}

static void present(const Fields& fields) {
    ask_notebook(NOTEBOOK_PRESENT, number(fields[0]), number(fields[1]));
}

// After so many milliseconds.
static void present_later(const Fields& fields) {
    const LPTHREAD_START_ROUTINE change = [](LPVOID parameter) -> DWORD {
        const std::unique_ptr<Fields> later(static_cast<Fields*>(parameter));
        turns::sleep(number((*later)[0]));
        ask_notebook(NOTEBOOK_PRESENT, number((*later)[1]), number((*later)[2]));
        return 0;
    };
    CloseHandle(turns::start_thread("machine", change, new Fields(fields), 0, nullptr));
}

// Its key among the enumerated devices; a missing one is gone from there.
static void hardware(const Fields& fields) {
    static std::map<std::string, DWORD> numbers;
    static const wchar_t device_class[] = L"{4d36e97d-e325-11ce-bfc1-08002be10318}";
    const DWORD number = numbers.try_emplace(fields[0], static_cast<DWORD>(numbers.size())).first->second;
    const std::wstring path =
        L"SYSTEM\\CurrentControlSet\\Enum\\ROOT\\ZORPHARDWARE\\" + std::to_wstring(9000 + number);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str());
    REAL(RegDeleteKeyW)(HKEY_LOCAL_MACHINE, path.c_str());
    OpenKey key;
    if (fields[1] == "0")
        return;
    REAL(RegCreateKeyExW)
    (HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key.key, nullptr);
    const std::wstring id = widen(fields[0]) + L'\0'; // and one more null, of the text itself
    REAL(RegSetValueExW)
    (key.key, L"HardwareID", 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(id.c_str()),
     static_cast<DWORD>((id.size() + 1) * sizeof(wchar_t)));
    REAL(RegSetValueExW)
    (key.key, L"ClassGUID", 0, REG_SZ, reinterpret_cast<const BYTE*>(device_class), sizeof(device_class));
}

static void handles(const Fields&) {
    say_line("value " + std::to_string(ask_notebook(NOTEBOOK_HANDLES)));
}

// clang-format off
static const Request g_requests[] = {
    {"settle",         0, settle},
    {"advance",        1, advance},
    {"pass",           1, pass},
    {"time",           6, time},
    {"start",          0, start},
    {"stop",           0, stop},
    {"control",        2, control},        // manager|handler, code
    {"power-event",    2, power_event},    // manager|handler, type
    {"power-setting",  3, power_setting},  // manager|handler, GUID, value
    {"power-settings", 1, power_settings}, // 1: told at registration
    {"status",         0, status},
    {"key",            1, set_key},
    {"value",          4, set_value},      // path, name, type, bytes
    {"delete-key",     1, delete_key},
    {"delete-value",   2, delete_value},
    {"has-key",        1, has_key},
    {"query",          2, query_value},
    {"set",            2, set},            // name, number
    {"refuse",         2, refuse},         // path, rights
    {"task",           2, task},           // folder, name: registered already
    {"has-task",       2, check_task},
    {"ini",            4, write_setting},  // path, section, key, value
    {"file",           1, make_file},
    {"delete-file",    1, delete_file},
    {"has-file",       1, has_file},
    {"run",            1, run},            // the command line
    {"run-control",    1, run_control_program}, // its arguments
    {"interrupt",      1, interrupt},      // Ctrl-C, its console closed, the session ended
    {"program",        3, program},        // name, milliseconds, exit code
    {"fail",           1, fail},           // the next call of this name
    {"account",        2, account},        // name, SID
    {"hive",           5, hive},           // file, key, name, type, bytes
    {"no-hives",       0, no_hives},
    {"hold",           3, hold_name},      // name, kind, 1: denied
    {"set-held",       1, set_name},
    {"free",           1, free_name},
    {"new-notebook",   0, reset_notebook},
    {"event",          2, event},          // code, second word
    {"signal",         1, signal},         // number of the driver's event
    {"set-indicator",  2, set_indicator},  // indicator, byte
    {"indicator",      1, indicator},
    {"failures",       3, failures},       // interface, 0 reads or 1 writes, how many
    {"present",        2, present},        // device, 1 or 0
    {"present-later",  3, present_later},  // milliseconds, device, 1 or 0
    {"hardware",       2, hardware},       // hardware id, 1 or 0
    {"handles",        0, handles},
};
// clang-format on

const Request* find_request(const std::string& word) {
    for (const Request& request : g_requests) {
        if (word == request.word)
            return &request;
    }
    return nullptr;
}

} // namespace runner
