#include "sim/wine/commands.h"

#include <cstdio>

#include "recorder/runner/notebook.h"
#include "sim/machine/machine.h"
#include "sim/script/expectations.h"
#include "sim/windows/registry.h"
#include "sim/windows/registry_commands.h"
#include "sim/windows/scm.h"
#include "sim/wine/runner.h"

namespace sim {

static std::string decimal(std::uint64_t number) {
    return std::to_string(number);
}

static std::string hexadecimal(const void* data, size_t bytes) {
    std::string text;
    for (size_t i = 0; i < bytes; ++i)
        text += format("%02x", static_cast<const BYTE*>(data)[i]);
    return text;
}

static Step asks(const std::string& text) {
    return [text] { ask(text); };
}

// ---- the service ----

static Step on_start(Tokens&) {
    return asks("start");
}

static Step on_stop(Tokens&) {
    return asks("stop");
}

static Step on_power(Tokens& tokens, const std::string& via) {
    enum { RESUME, MONITOR, SETTING, EVENT };
    const size_t what = tokens.choice({"resume", "monitor", "setting", "event"});
    if (what == RESUME)
        return asks(request({"power-event", via, decimal(PBT_APMRESUMESUSPEND)}));
    GUID guid = g_monitorPowerOn;
    if (what == SETTING)
        read_guid(tokens.word(), &guid);
    const std::string number = decimal(tokens.number());
    return asks(what == EVENT ? request({"power-event", via, number})
                              : request({"power-setting", via, hexadecimal(&guid, sizeof(guid)), number}));
}

static Step on_control(Tokens& tokens) {
    return asks(request({"control", "manager", decimal(tokens.number())}));
}

static Step on_manager_power(Tokens& tokens) {
    return on_power(tokens, "manager");
}

static Step on_handler(Tokens& tokens) {
    if (tokens.accept("power"))
        return on_power(tokens, "handler");
    return asks(request({"control", "handler", decimal(tokens.number())}));
}

static Step on_power_settings(Tokens& tokens) {
    return asks(request({"power-settings", decimal(tokens.choice({"later", "at-registration"}))}));
}

static Step on_check_status(Tokens& tokens) {
    std::string wanted = tokens.word();
    const bool whole = !tokens.done();
    if (whole)
        wanted += " " + tokens.word();
    return [wanted, whole] {
        const std::string now = ask("status"); // STATE WIN32/SPECIFIC
        const std::string is = whole ? now : now.substr(0, now.find(' '));
        expectation(same_text(is, wanted), "status " + wanted + ", it is " + now);
    };
}

// ---- time ----

static Step on_advance(Tokens& tokens) {
    const Ms duration = tokens.duration();
    return [duration] {
        const Ms end = machine().now + duration;
        ask(request({"advance", decimal(duration)}));
        machine().now = end;
    };
}

static Step on_time(Tokens& tokens) {
    const std::string text = tokens.text();
    unsigned parts[6] = {};
    std::sscanf(text.c_str(), "%u-%u-%u %u:%u:%u", &parts[0], &parts[1], &parts[2], &parts[3], &parts[4],
                &parts[5]);
    std::string asked = "time";
    for (const unsigned part : parts)
        asked += "\t" + decimal(part);
    return asks(asked);
}

// ---- settings ----

static Step sets(const std::string& name, std::uint64_t value) {
    return asks(request({"set", name, decimal(value)}));
}

static Step on_hibernate(Tokens& tokens) {
    return sets("hibernate", tokens.choice({"forbidden", "allowed"}));
}

static Step on_hiberfile(Tokens& tokens) {
    return sets("hiberfile", tokens.choice({"fails", "works"}));
}

// N, or "fails".
static Step number_or_fails(Tokens& tokens, const std::string& name) {
    const bool fails = tokens.accept("fails");
    const std::uint64_t number = fails ? 0 : tokens.number();
    return [=] {
        ask(request({"set", name + "-fails", decimal(fails)}));
        if (!fails)
            ask(request({"set", name, decimal(number)}));
    };
}

static Step on_lid_action(Tokens& tokens) {
    return number_or_fails(tokens, "lid-action");
}

static Step on_scheme(Tokens& tokens) {
    return number_or_fails(tokens, "scheme");
}

static Step on_suspend(Tokens& tokens) {
    enum { WORKS, FAILS, TAKES };
    const size_t what = tokens.choice({"works", "fails", "takes"});
    if (what == TAKES)
        return sets("suspend-takes", tokens.duration());
    if (what == FAILS && tokens.accept("times"))
        return sets("suspend-failures", tokens.number());
    return [what] {
        ask(request({"set", "suspend-fails", decimal(what == FAILS)}));
        ask(request({"set", "suspend-failures", "0"}));
    };
}

static Step on_powrprof(Tokens& tokens) {
    const size_t what = tokens.choice({"missing", "present", "without"});
    const bool one_call = what == 2;
    return sets(one_call ? "without " + tokens.word() : "powrprof", one_call ? 1 : what);
}

static Step on_privilege(Tokens& tokens) {
    const std::string name = lower(tokens.word());
    return sets("privilege " + name, tokens.choice({"granted", "denied", "refused"}));
}

static Step on_version(Tokens& tokens) {
    unsigned major = 0;
    unsigned minor = 0;
    std::sscanf(tokens.word().c_str(), "%u.%u", &major, &minor);
    return [=] {
        ask(request({"set", "major", decimal(major)}));
        ask(request({"set", "minor", decimal(minor)}));
    };
}

// The runner asks the bench for answers, when their time has passed.
static Step on_firmware(Tokens& tokens, const Action& action) {
    while (!tokens.done()) {
        if (tokens.word() == "late")
            tokens.fail("an answer is chosen when its time has passed");
    }
    return action;
}

static Step on_registry_refuse(Tokens& tokens) {
    const std::string path = tokens.word();
    if (!tokens.done())
        tokens.fail("rights are not told apart");
    return asks(request({"refuse", path, decimal(EVERY_RIGHT)}));
}

static Step on_graphics(Tokens& tokens) {
    return sets("graphics", tokens.choice({"missing", "present"}));
}

static Step on_inverter(Tokens& tokens) {
    if (tokens.accept("get-fails"))
        return sets("inverter-get-fails", 1);
    if (tokens.accept("set-fails"))
        return sets("inverter-set-fails", 1);
    const std::string type = decimal(tokens.number());
    const std::string frequency = decimal(tokens.number());
    return [=] {
        ask(request({"set", "inverter-get-fails", "0"}));
        ask(request({"set", "inverter-set-fails", "0"}));
        ask(request({"set", "inverter-type", type}));
        ask(request({"set", "inverter-frequency", frequency}));
    };
}

static Step on_scheduler(Tokens& tokens) {
    return sets("scheduler", tokens.choice({"missing", "present"}));
}

static Step on_task(Tokens& tokens) {
    const std::string folder = tokens.text();
    const std::string name = tokens.text();
    tokens.accept("present");
    return asks(request({"task", folder, name}));
}

// present or absent, as the runner says.
static Step looks_for(const std::string& question, const std::string& wanted, const std::string& what) {
    return [=] { expectation(ask(question) == wanted, what + " " + wanted); };
}

static Step on_check_task(Tokens& tokens) {
    const std::string folder = tokens.text();
    const std::string name = tokens.text();
    return looks_for(request({"has-task", folder, name}), tokens.word(),
                     format("task \"%s\" \"%s\"", folder.c_str(), name.c_str()));
}

// ---- files ----

static Step on_ini(Tokens& tokens) {
    const std::string path = tokens.text();
    const std::string section = tokens.word();
    const std::string key = tokens.word();
    return asks(request({"ini", path, section, key, tokens.word()}));
}

static Step on_file(Tokens& tokens) {
    const std::string path = tokens.text();
    enum { PRESENT, ABSENT, OTHER };
    const size_t what = tokens.choice({"present", "absent"});
    return asks(request({what == PRESENT ? "file" : "delete-file", path}));
}

static Step on_check_file(Tokens& tokens) {
    const std::string path = tokens.text();
    return looks_for(request({"has-file", path}), tokens.word(), format("file \"%s\"", path.c_str()));
}

// ---- other processes ----

static Step on_run(Tokens& tokens) {
    const std::string line = tokens.text();
    if (same_text(line, "-helper"))
        tokens.fail("a helper's window is the bench's own");
    if (line != "zorpmctl") {
        tokens.at = tokens.list.size();
        return asks(request({"run", line}));
    }
    std::string arguments;
    while (!tokens.done())
        arguments += (arguments.empty() ? "" : " ") + tokens.word();
    return asks(request({"run-control", arguments}));
}

static Step on_interrupt(Tokens& tokens) {
    return asks(
        request({"interrupt", decimal(tokens.done() ? 0 : tokens.choice({"ctrl-c", "close", "log-off"}))}));
}

static Step on_program(Tokens& tokens) {
    const std::string name = tokens.text();
    tokens.accept("takes");
    const std::string duration = decimal(tokens.duration());
    return asks(request({"program", name, duration, decimal(tokens.accept("exits") ? tokens.number() : 0)}));
}

static Step on_console(Tokens& tokens) {
    return sets("console", tokens.choice({"present", "redirected", "missing"}));
}

static Step on_rotation(Tokens& tokens) {
    return sets("rotation-follows", tokens.choice({"stays", "follows"}));
}

// The calls that can be told to fail there.
static Step on_fail(Tokens& tokens) {
    const std::string name = tokens.word();
    for (const char* known : {"OpenServiceW", "CreateThread", "RegSetValueExW", "RegNotifyChangeKeyValue"}) {
        if (name == known && tokens.done())
            return asks(request({"fail", name}));
    }
    tokens.fail("no such call can be made to fail");
    return nullptr;
}

// event [manual] [denied] | mutex [denied] | set | free
static Step on_object(Tokens& tokens) {
    const std::string full = tokens.text();
    const std::string name = full.substr(full.rfind('\\') + 1);
    enum : size_t { EVENT, MUTEX, SET, FREE };
    const size_t what = tokens.choice({"event", "mutex", "set", "free"});
    if (what >= SET)
        return asks(request({what == SET ? "set-held" : "free", name}));
    const bool manual = what == EVENT && tokens.accept("manual");
    const std::string kind = decimal(what == MUTEX ? 0 : manual ? 2 : 1);
    return asks(request({"hold", name, kind, decimal(tokens.accept("denied"))}));
}

// ---- the notebook ----

static Step on_event(Tokens& tokens) {
    const std::string code = decimal(tokens.number());
    return asks(request({"event", code, tokens.done() ? "0" : decimal(tokens.number())}));
}

static Step on_signal(Tokens& tokens) {
    return asks(
        request({"signal", decimal(tokens.choice({"Start", "Stop", "Sleep", "Resume", "NotifyEvent"}))}));
}

static Step on_driver(Tokens& tokens) {
    const bool no_secondary = tokens.accept("primary");
    const bool no_primary = !no_secondary && tokens.accept("secondary");
    const size_t present = tokens.choice({"missing", "present"});
    const std::string later = tokens.accept("for") ? decimal(tokens.duration()) : "";
    return [=] {
        for (const int device : {NOTEBOOK_PRIMARY, NOTEBOOK_SECONDARY}) {
            if (device == NOTEBOOK_PRIMARY ? no_primary : no_secondary)
                continue;
            ask(request({"present", decimal(device), decimal(present)}));
            if (!later.empty())
                ask(request({"present-later", later, decimal(device), decimal(1 - present)}));
        }
    };
}

static Step on_hardware(Tokens& tokens) {
    const std::string id = tokens.text();
    if (id == "nameless")
        tokens.fail("no device without a hardware id");
    const size_t what = tokens.choice({"absent", "present", "unended"});
    if (what == 2)
        tokens.fail("no list of hardware ids without an end");
    return asks(request({"hardware", id, decimal(what)}));
}

static Step on_stick(Tokens& tokens) {
    return asks(
        request({"present", decimal(NOTEBOOK_STICK), decimal(tokens.choice({"missing", "present"}))}));
}

template <int which> static Step on_device(Tokens& tokens) {
    if (tokens.accept("="))
        return asks(request({"set-indicator", decimal(which), decimal(tokens.number())}));
    const size_t word = tokens.choice({"missing", "present", "second", "read", "write"});
    if (word <= 1)
        return asks(request({"present", decimal(which), decimal(word)}));
    if (word == 2)
        tokens.fail("no second interface");
    tokens.accept("fails");
    const std::string times = decimal(tokens.accept("times") ? tokens.number() : NOTEBOOK_ALL_BYTES);
    tokens.at = tokens.list.size();
    return asks(request({"failures", decimal(which), decimal(word - 3), times}));
}

static Step on_check_device(Tokens& tokens) {
    const size_t which = tokens.choice({"slate", "dock"});
    tokens.accept("=");
    const std::string wanted = decimal(tokens.number());
    return [=] {
        const std::string state = ask(request({"indicator", decimal(which)}));
        expectation(state == wanted, format("device %s = %s, it is %s", which == 0 ? "slate" : "dock",
                                            wanted.c_str(), state.c_str()));
    };
}

static Step on_check_handles(Tokens& tokens) {
    const std::string wanted = decimal(tokens.number());
    return [=] {
        const std::string open = ask("handles");
        expectation(open == wanted, "handles " + wanted + ", there are " + open);
    };
}

// ---- the registry ----

static Step on_registry_set(Tokens& tokens) {
    const std::string path = tokens.word();
    if (tokens.done())
        return asks(request({"key", path}));
    const std::string name = tokens.word();
    const RegistryValue data = read_registry_data(tokens);
    return asks(request(
        {"value", path, name, decimal(data.type), hexadecimal(data.bytes.data(), data.bytes.size())}));
}

static Step on_registry_delete(Tokens& tokens) {
    const std::string path = tokens.word();
    return tokens.done() ? asks(request({"delete-key", path}))
                         : asks(request({"delete-value", path, tokens.word()}));
}

// What the registry holds there now, into the machine's own, where the check looks.
static void mirror_value(const std::string& path, const std::string& name) {
    const std::string found = ask(request({"query", path, name}));
    if (!broken().empty())
        return;
    if (found == "absent") {
        registry_delete_value(path, name);
        return;
    }
    const std::string hex = found.substr(found.find(' ') + 1);
    std::vector<BYTE> bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<BYTE>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    registry_set(path, name, static_cast<DWORD>(std::stoul(found)), bytes);
}

static void mirror_key(const std::string& path) {
    if (ask(request({"has-key", path})) == "present")
        registry_create(path);
    else
        registry_delete(path);
}

static Step on_check_registry(Tokens& tokens, const Action& check) {
    const std::string path = tokens.word();
    const std::string name = tokens.word();
    const bool key = tokens.done();
    return [=] {
        if (key)
            mirror_key(path);
        else
            mirror_value(path, name);
        if (broken().empty())
            check();
    };
}

static Step on_hive(Tokens& tokens) {
    const std::string path = tokens.text();
    const std::string key = tokens.word();
    const std::string name = tokens.word();
    const RegistryValue data = read_registry_data(tokens);
    const std::string value = request(
        {"hive", path, key, name, decimal(data.type), hexadecimal(data.bytes.data(), data.bytes.size())});
    return [path, value] {
        ask(value);
        ask(request({"file", path}));
    };
}

static Step on_account(Tokens& tokens) {
    const std::string name = tokens.word();
    return asks(request({"account", name, tokens.word()}));
}

// ---- the table ----

namespace {

// One of: steps of its own; the bench's action, behind what it looks at; the bench's action alone; or why
// not.
struct Row {
    const char* words;
    Step (*step)(Tokens&);
    Step (*check)(Tokens&, const Action&);
    const char* reason;
};

constexpr Step (*SAME)(Tokens&) = nullptr;

} // namespace

// clang-format off
static const Row g_rows[] = {
    {"start",                  on_start,           nullptr, nullptr},
    {"stop",                   on_stop,            nullptr, nullptr},
    {"control",                on_control,         nullptr, nullptr},
    {"power",                  on_manager_power,   nullptr, nullptr},
    {"handler",                on_handler,         nullptr, nullptr},
    {"windows power-settings", on_power_settings,  nullptr, nullptr},
    {"check status",           on_check_status,    nullptr, nullptr},
    {"advance",                on_advance,         nullptr, nullptr},
    {"windows time",           on_time,            nullptr, nullptr},
    {"firmware",               SAME,               on_firmware, nullptr},
    {"event",                  on_event,           nullptr, nullptr},
    {"signal",                 on_signal,          nullptr, nullptr},
    {"driver",                 on_driver,          nullptr, nullptr},
    {"hardware",               on_hardware,        nullptr, nullptr},
    {"device stick",           on_stick,           nullptr, nullptr},
    {"device slate",           on_device<NOTEBOOK_SLATE>, nullptr, nullptr},
    {"device dock",            on_device<NOTEBOOK_DOCK>, nullptr, nullptr},
    {"device button",          on_device<NOTEBOOK_BUTTON>, nullptr, nullptr},
    {"check device",           on_check_device,    nullptr, nullptr},
    {"check handles",          on_check_handles,   nullptr, nullptr},
    {"windows hibernate",      on_hibernate,       nullptr, nullptr},
    {"windows hiberfile",      on_hiberfile,       nullptr, nullptr},
    {"windows lid-action",     on_lid_action,      nullptr, nullptr},
    {"windows scheme",         on_scheme,          nullptr, nullptr},
    {"windows suspend",        on_suspend,         nullptr, nullptr},
    {"windows powrprof",       on_powrprof,        nullptr, nullptr},
    {"windows privilege",      on_privilege,       nullptr, nullptr},
    {"windows version",        on_version,         nullptr, nullptr},
    {"registry refuse",        on_registry_refuse, nullptr, nullptr},
    {"windows graphics",       on_graphics,        nullptr, nullptr},
    {"windows inverter",       on_inverter,        nullptr, nullptr},
    {"windows scheduler",      on_scheduler,       nullptr, nullptr},
    {"windows task",           on_task,            nullptr, nullptr},
    {"check task",             on_check_task,      nullptr, nullptr},
    {"ini",                    on_ini,             nullptr, nullptr},
    {"file",                   on_file,            nullptr, nullptr},
    {"check file",             on_check_file,      nullptr, nullptr},
    {"run",                    on_run,             nullptr, nullptr},
    {"registry set",           on_registry_set,    nullptr, nullptr},
    {"registry delete",        on_registry_delete, nullptr, nullptr},
    {"check registry",         SAME,               on_check_registry, nullptr},
    {"mark",                   SAME,               nullptr, nullptr},
    {"say",                    SAME,               nullptr, nullptr},
    {"expect",                 SAME,               nullptr, nullptr},
    {"expect next",            SAME,               nullptr, nullptr},
    {"expect no",              SAME,               nullptr, nullptr},
    {"expect count",           SAME,               nullptr, nullptr},
    {"expect open",            SAME,               nullptr, "openings are not told there"},
    {"fail call",              SAME,               nullptr, "no call can be made to fail by its number"},
    {"fail",                   on_fail,            nullptr, nullptr},
    {"interrupt zorpmctl",     on_interrupt,       nullptr, nullptr},
    {"windows program",        on_program,         nullptr, nullptr},
    {"windows console",        on_console,         nullptr, nullptr},
    {"windows rotation",       on_rotation,        nullptr, nullptr},
    {"windows object",         on_object,          nullptr, nullptr},
    {"show",                   SAME,               nullptr, "the machine's state is the bench's own"},
    {"windows account",        on_account,         nullptr, nullptr},
    {"windows hive",           on_hive,            nullptr, nullptr},
};
// clang-format on

// The command's words behind its own.
static Tokens arguments_of(const std::vector<RawToken>& raw, size_t words) {
    Tokens tokens;
    for (size_t i = words; i < raw.size(); ++i)
        tokens.list.push_back(raw[i].token);
    return tokens;
}

static const Row* row_of(const Command& command) {
    for (const Row& row : g_rows) {
        if (std::string_view(row.words) == command.words)
            return &row;
    }
    return nullptr;
}

Step step_on_wine(const ScriptLine& line, std::string* reason) {
    std::string text = line.text;
    std::vector<RawToken> raw;
    split(&text, &raw);
    const Command* command = find_command(raw);
    const Row* row = row_of(*command);
    if (row == nullptr)
        *reason = std::string("nothing answers `") + command->words + "`";
    else if (row->reason != nullptr)
        *reason = row->reason;
    if (row == nullptr || !reason->empty())
        return nullptr;
    Tokens tokens = arguments_of(raw, words_in(command->words));
    Step step = row->step != nullptr    ? row->step(tokens)
                : row->check != nullptr ? row->check(tokens, line.action)
                                        : Step(line.action);
    *reason = tokens.error;
    return step;
}

// ---- a new machine ----

std::string file_made_by(const ScriptLine& line) {
    std::string text = line.text;
    std::vector<RawToken> raw;
    split(&text, &raw);
    const bool named = raw.size() > 1 && raw[1].token.quoted;
    if (raw.size() > 2 && raw[0].token.text == "windows" && raw[1].token.text == "hive")
        return raw[2].token.text;
    return named && (raw[0].token.text == "ini" || raw[0].token.text == "file") ? raw[1].token.text : "";
}

std::vector<std::string> keys_set_by(const ScriptLine& line) {
    std::string text = line.text;
    std::vector<RawToken> raw;
    split(&text, &raw);
    if (raw.size() > 3 && raw[0].token.text == "windows" && raw[1].token.text == "account")
        return {"HKU\\" + raw[3].token.text}; // its hive
    if (raw.size() < 3 || raw[0].token.text != "registry" || raw[1].token.text != "set")
        return {};
    return {raw[2].token.text};
}

// Keys of which nothing may be left from an earlier run, and those that Wine needs and only their values go.
static const char* const g_ownKeys[] = {
    "SVC",
    "HKLM\\SOFTWARE\\ZOR",
    "HKLM\\SOFTWARE\\Mestra",
    "HKLM\\SOFTWARE\\Dolby",
    "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AutoRotation",
    "HKLM\\SYSTEM\\CurrentControlSet\\Enum\\ROOT\\ZORPHARDWARE",
};
static const char* const g_winesKeys[] = {
    "HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS",
    "HKLM\\HARDWARE\\DESCRIPTION\\System",
    "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion",
};
static const struct {
    const char* key;
    const char* name;
} g_values[] = {
    {"HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS", "BIOSVersion"},
    {"HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS", "SystemFamily"},
    {"HKLM\\HARDWARE\\DESCRIPTION\\System", "SystemBiosVersion"},
    {"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", "CurrentBuildNumber"},
    {"HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", "ReleaseId"},
};

static bool is_wines(const std::string& key) {
    for (const char* wines : g_winesKeys) {
        if (same_text(key, wines))
            return true;
    }
    return false;
}

// Files that only a script or the service makes.
static const char* const g_ownFiles[] = {
    "C:\\Windows\\LidBeep.ini",
    "C:\\Program Files\\Mestra\\LidBeep.ini",
    "C:\\Desk\\LidBeep.ini",
    "C:\\Windows\\System32\\ZORPMDRV.INF",
};

void reset_wine(const std::vector<std::string>& keys_of_script, const std::vector<std::string>& files) {
    for (const std::string& file : files)
        ask(request({"delete-file", file}));
    for (const char* file : g_ownFiles)
        ask(request({"delete-file", file}));
    ask("new-notebook");
    ask("no-hives");
    for (const char* key : g_ownKeys)
        ask(request({"delete-key", key}));
    for (const std::string& key : keys_of_script) {
        if (!is_wines(key))
            ask(request({"delete-key", key}));
    }
    ask(request({"key", "SVC"}));
    for (const auto& row : g_values) {
        const RegistryValue* value = registry_value(row.key, row.name);
        ask(request({"value", row.key, row.name, decimal(value->type),
                     hexadecimal(value->bytes.data(), value->bytes.size())}));
    }
}

} // namespace sim
