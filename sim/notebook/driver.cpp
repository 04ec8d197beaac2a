// The power-management driver: its devices, the catalogue of codes with their sizes, scripted firmware
// answers, the event queue and the five notification events. Written from the driver's side, apart from the
// service's own table.
#include "sim/notebook/driver.h"

#include <algorithm>
#include <deque>
#include <map>
#include <optional>

#include "sim/machine/files.h"
#include "sim/script/commands.h"
#include "sim/script/grammar.h"
#include "sim/script/nearest.h"
#include "sim/script/show.h"

namespace sim {

namespace {

enum class Device { Primary, Secondary, Stick };

// The requests that do more than answer.
constexpr DWORD GETEVENT = 0x222408;
constexpr DWORD REGISTEREVENTS = 0x2227D4;
constexpr DWORD UNREGISTEREVENTS = 0x2227D8;
constexpr DWORD REGISTRATION_WORDS = 12; // eight bytes of 0, then the handles of the driver's events

// The ways in which the service opens the devices. Every request comes by one of its own.
enum Opening : unsigned { QUERY = 1, FULL = 2, TABLET = 4, FAMILY = 8 };

struct OpeningRow {
    Opening opening;
    DWORD access;
    DWORD share;
};

struct Method {
    DWORD code;
    const char* name;
    Device device;
    DWORD in_bytes;
    DWORD out_bytes;
    unsigned openings;   // those by which the request may come
    bool input_optional; // may also come without input; the trace then shows none either way
};

struct OpenedDevice { // what a file object refers to
    Device device;
    Opening opening;
};

struct Answers {
    std::deque<Answer> next;
    std::optional<Answer> lasting;
    std::deque<Span> takes; // in turn, the last one for good; chosen anew for each request
    bool late = false;      // the answer is that of the request's beginning
    std::uint32_t line = 0; // of the script, that says so
};

constexpr std::int64_t EVERY_ARGUMENT = -1;

struct EventRecord {
    DWORD code;
    DWORD second;
};

// The driver's events, in the order of their registration.
enum : size_t { START_EVENT, STOP_EVENT, SLEEP_EVENT, RESUME_EVENT, NOTIFY_EVENT, DRIVER_EVENTS };

struct LastRequest {
    std::string line; // of the trace
    Ms time = 0;
};

struct Driver {
    bool primary = true;
    bool secondary = true;
    bool stick = true;
    std::map<std::string, std::map<std::int64_t, Answers>, TextOrder> answers; // by method and argument
    std::deque<EventRecord> events;
    ObjectRef notify[DRIVER_EVENTS];
    std::map<const Method*, LastRequest> last;
    std::map<std::string, std::string> commands; // the last of each kind, by what it commands
    std::function<bool(const std::string&, DWORD, Answer*)> answer_hook;
    std::function<void(const std::string&, const DWORD*, DWORD)> request_hook;
};

} // namespace

// clang-format off
static const Method g_methods[] = {
    {0x222410, "LIDCLOSEACTIONNONE", Device::Primary,   0,  0, QUERY,        false},
    {0x222420, "SETLIDBEEP",         Device::Primary,   4,  0, QUERY,        false},
    {0x222434, "MHKV",               Device::Primary,   4,  4, QUERY | FULL, false},
    {0x222438, "MHKA",               Device::Primary,   4,  4, QUERY | FULL, false},
    {0x22243C, "MHKN",               Device::Primary,   4,  4, QUERY | FULL, false},
    {0x222444, "QCPULEVELCTRL",      Device::Primary,   4,  4, QUERY,        false},
    {0x222448, "CSTATESELECT",       Device::Primary,   0,  4, QUERY,        false},
    {0x22244C, "CSTATEPARAMS",       Device::Primary,   4,  0, QUERY,        false},
    {0x222510, "TABGETSTATE",        Device::Primary,   4,  4, TABLET,       false},
    {0x22251C, "PWMGET",             Device::Primary,   4,  4, FULL,         false},
    {0x222520, "PWMSET",             Device::Primary,   4,  4, FULL,         false},
    {0x222584, "GETLIDSTATUS",       Device::Primary,   4,  4, QUERY,        true},
    {0x222590, "LCDCSGETSTATE",      Device::Primary,   4,  4, QUERY,        true},
    {0x222594, "LCDCSCONTROL",       Device::Primary,   4,  4, QUERY,        false},
    {0x2225A4, "DOCKMODE",           Device::Primary,   4,  4, QUERY,        false},
    {0x222700, "GMMS",               Device::Primary,   4,  4, QUERY,        false},
    {0x22270C, "DYTC",               Device::Primary,   4,  4, QUERY,        false},
    {0x222728, "GOPT",               Device::Primary,   4,  4, QUERY,        false},
    {0x222748, "THERMALMODE",        Device::Primary,   4,  4, QUERY,        false},
    {0x22274C, "DGPUTEMP",           Device::Primary,   4,  4, QUERY,        false},
    {0x222404, "CONNECT",            Device::Secondary, 4,  4, QUERY,        false},
    {0x222408, "GETEVENT",           Device::Secondary, 0,  8, FULL,         false},
    {0x222440, "MHKM",               Device::Secondary, 8,  8, QUERY,        false},
    {0x222450, "GETTIMERRESOL",      Device::Secondary, 0,  4, QUERY,        false},
    {0x2227D4, "REGISTEREVENTS",     Device::Secondary, 48, 8, FULL,         false},
    {0x2227D8, "UNREGISTEREVENTS",   Device::Secondary, 48, 8, FULL,         false},
    {0x2227E4, "SYSTEMFAMILY",       Device::Secondary, 4,  4, FAMILY,       false},
    {0xF30D8,  "MOUSEDATA",          Device::Stick,     4,  0, QUERY,        false},
};

static const OpeningRow g_openings[] = {
    {QUERY,  GENERIC_READ,                 FILE_SHARE_READ},
    {FULL,   GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE},
    {TABLET, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ},
    {FAMILY, GENERIC_WRITE,                FILE_SHARE_READ | FILE_SHARE_WRITE},
};

static const struct { const char* name; std::uint64_t value; } g_defaults[] = {
    {"MHKV", 0x200}, {"CSTATESELECT", 3}, {"GETLIDSTATUS", 3}, {"LCDCSGETSTATE", 2}, {"GMMS", 1}, {"DYTC", 0},
    {"GETTIMERRESOL", 156250},
};
// clang-format on

// What the trace says of requests.
static std::vector<std::string> request_forms() {
    std::vector<std::string> forms;
    for (const Method& method : g_methods) {
        const bool empty = method.in_bytes == 0 || method.input_optional;
        const std::string request = std::string("request ") + method.name +
                                    (method.in_bytes > 8    ? "(48 bytes)"
                                     : method.in_bytes == 8 ? "(%u, %u)"
                                     : empty                ? "()"
                                                            : "(0x%x)");
        forms.push_back(request + " failed");
        if (method.code == GETEVENT)
            forms.push_back(request + " = 0x%x 0x%x{| bytes %u}");
        else
            forms.push_back(request + (method.out_bytes == 4 ? " = 0x%x{| bytes %u}" : ""));
    }
    return forms;
}

static const TraceForms g_forms(request_forms());

static Driver& driver() {
    return machine_state<Driver>();
}

static const Method* method_named(const std::string& name) {
    for (const Method& method : g_methods) {
        if (same_text(method.name, name))
            return &method;
    }
    return nullptr;
}

static std::vector<std::string> method_names() {
    std::vector<std::string> names;
    for (const Method& method : g_methods)
        names.emplace_back(method.name);
    return names;
}

static Answers& answers_for(const std::string& method, const DWORD* argument) {
    return driver()
        .answers[method][argument != nullptr ? static_cast<std::int64_t>(*argument) : EVERY_ARGUMENT];
}

void set_answer(const std::string& method, const DWORD* argument, const Answer& answer, unsigned times) {
    Answers& answers = answers_for(method, argument);
    if (times == 0)
        answers.lasting = answer;
    for (unsigned i = 0; i < times; ++i)
        answers.next.push_back(answer);
}

void set_answer_durations(const std::string& method, const DWORD* argument, const std::vector<Span>& spans,
                          bool late) {
    Answers& answers = answers_for(method, argument);
    answers.takes.assign(spans.begin(), spans.end());
    answers.late = late;
    answers.line = machine().schedule.line;
}

void set_answer_duration(const std::string& method, const DWORD* argument, Ms shortest, Ms longest) {
    set_answer_durations(method, argument, {{shortest, std::max(shortest, longest)}});
}

void set_answer_hook(std::function<bool(const std::string&, DWORD, Answer*)> hook) {
    driver().answer_hook = std::move(hook);
}

void set_request_hook(std::function<void(const std::string&, const DWORD*, DWORD)> hook) {
    driver().request_hook = std::move(hook);
}

void set_driver_present(bool primary, bool secondary) {
    driver().primary = primary;
    driver().secondary = secondary;
}

// The answers of one argument first, then those of all; each kind uses up its numbered answers before its
// lasting one.
static bool take_answer(std::map<std::int64_t, Answers>& of_method, std::int64_t argument, Answer* answer) {
    auto found = of_method.find(argument);
    if (found == of_method.end())
        return false;
    if (!found->second.next.empty()) {
        *answer = found->second.next.front();
        found->second.next.pop_front();
        return true;
    }
    if (!found->second.lasting)
        return false;
    *answer = *found->second.lasting;
    return true;
}

static Answer answer_to(const Method& method, DWORD argument) {
    Answer answer;
    for (const auto& row : g_defaults) {
        if (same_text(row.name, method.name))
            answer.value = row.value;
    }
    if (driver().answer_hook && driver().answer_hook(method.name, argument, &answer))
        return answer;
    auto& of_method = driver().answers[method.name];
    if (!take_answer(of_method, argument, &answer))
        take_answer(of_method, EVERY_ARGUMENT, &answer);
    return answer;
}

// The next of these durations: the seed's choice; seed 0 takes the longest.
static Ms next_duration(Answers* answers) {
    const Span span = answers->takes.front();
    if (answers->takes.size() > 1)
        answers->takes.pop_front();
    const Ms chosen =
        machine().seed == 0 ? span.longest : span.shortest + random_below(span.longest - span.shortest + 1);
    note_drawn(answers->line, chosen);
    return chosen;
}

// The answers that say how long such a request takes; null when none do.
static Answers* slow_answers(const Method& method, DWORD argument) {
    auto& of_method = driver().answers[method.name];
    for (const std::int64_t key : {static_cast<std::int64_t>(argument), EVERY_ARGUMENT}) {
        const auto found = of_method.find(key);
        if (found == of_method.end() || found->second.takes.empty())
            continue;
        if (found->second.takes.size() > 1 || found->second.takes.front().longest != 0)
            return &found->second;
    }
    return nullptr;
}

Answer scripted_answer(const std::string& method, DWORD argument) {
    const Method* row = method_named(method);
    return row != nullptr ? answer_to(*row, argument) : Answer{};
}

Ms scripted_duration(const std::string& method, DWORD argument) {
    const Method* row = method_named(method);
    Answers* slow = row != nullptr ? slow_answers(*row, argument) : nullptr;
    return slow != nullptr ? next_duration(slow) : 0;
}

static void pass_request_time(Ms takes) {
    if (takes == 0)
        return;
    Thread* thread = current();
    thread->in_request = true;
    sleep_for(takes);
    thread->in_request = false;
}

// The answer to a request, when its time has passed.
static Answer await_answer(const Method& method, DWORD argument) {
    Answers* slow = slow_answers(method, argument);
    if (slow == nullptr)
        return answer_to(method, argument);
    const Ms takes = next_duration(slow);
    if (!slow->late) {
        pass_request_time(takes);
        return answer_to(method, argument);
    }
    const Answer answer = answer_to(method, argument);
    pass_request_time(takes);
    return answer;
}

// ---- events ----

static void update_notify_event() {
    Driver& d = driver();
    if (d.notify[NOTIFY_EVENT] == nullptr)
        return;
    if (d.events.empty())
        reset_object(*d.notify[NOTIFY_EVENT]);
    else
        signal_object(*d.notify[NOTIFY_EVENT]);
}

void post_event(DWORD code, DWORD second) {
    driver().events.push_back({code, second});
    update_notify_event();
}

size_t pending_events() {
    return driver().events.size();
}

static void take_registration(const void* in) {
    std::uint64_t words[1 + DRIVER_EVENTS];
    std::memcpy(words, in, sizeof(words));
    if (words[0] != 0)
        violation("REGISTEREVENTS: the first eight bytes are not 0");
    for (size_t i = 0; i < DRIVER_EVENTS; ++i) {
        HANDLE handle = reinterpret_cast<HANDLE>(words[i + 1]);
        HandleEntry* entry = handle != nullptr
                                 ? handle_entry(handle, Kind::Event, "REGISTEREVENTS", EVENT_MODIFY_STATE)
                                 : nullptr;
        driver().notify[i] = entry != nullptr ? entry->object : nullptr;
        if (entry != nullptr && !entry->object->manual_reset && !entry->object->foreign)
            violation("REGISTEREVENTS: event %zu is not manual-reset", i);
    }
    update_notify_event();
}

static void take_unregistration(const void* in) {
    std::uint64_t words[1 + DRIVER_EVENTS];
    std::memcpy(words, in, sizeof(words));
    for (const std::uint64_t word : words) {
        if (word != 0)
            violation("UNREGISTEREVENTS: not all bytes are 0");
    }
    for (ObjectRef& event : driver().notify)
        event = nullptr;
}

// ---- requests ----

static std::string shown_request(const Method& method, const DWORD* in) {
    if (method.in_bytes == sizeof(DWORD) * REGISTRATION_WORDS)
        return format("request %s(%u bytes)", method.name, method.in_bytes);
    if (method.in_bytes == 8)
        return format("request %s(%u, %u)", method.name, in[0], in[1]);
    if (method.in_bytes == 0 || method.input_optional)
        return format("request %s()", method.name);
    return format("request %s(0x%x)", method.name, in[0]);
}

// What a request commands; empty for one that asks. A word of DYTC commands a function of version 3, or the
// mode of version 2.
static std::string commanded(const std::string& method, const std::string& line) {
    static const char* const methods[] = {"DYTC", "MHKM", "LCDCSCONTROL", "SETLIDBEEP"};
    if (std::find(std::begin(methods), std::end(methods), method) == std::end(methods))
        return "";
    const auto word = static_cast<DWORD>(std::strtoull(line.c_str() + line.find('(') + 1, nullptr, 0));
    if (method == "MHKM")
        return format("MHKM(%u)", word);
    if (method == "DYTC")
        return (word & 0xFF) == 1 ? format("DYTC function %u", word >> 12 & 0xF) : "";
    return method;
}

const std::map<std::string, std::string>& last_commands() {
    return driver().commands;
}

// The request's line in the trace; `show firmware` has the last of each method.
static void trace_request(const Method& method, const std::string& line) {
    driver().last[&method] = {line, machine().now};
    const std::string what = commanded(method.name, line);
    if (!what.empty())
        driver().commands[what] = line;
    trace("%s", line.c_str());
}

static BOOL request_failed(const Method& method, const std::string& shown) {
    trace_request(method, shown + " failed");
    set_last_error(ERROR_GEN_FAILURE);
    return FALSE;
}

// Hands out the oldest record; a failed fetch keeps it. Without a record the answer has no bytes.
static BOOL fetch_event(const Method& method, const Answer& answer, const std::string& shown, void* out,
                        DWORD* returned) {
    Driver& d = driver();
    if (answer.fails)
        return request_failed(method, shown);
    DWORD record[2] = {};
    const bool empty = d.events.empty();
    if (!empty) {
        record[0] = d.events.front().code;
        record[1] = d.events.front().second;
        d.events.pop_front();
    }
    update_notify_event();
    *returned = answer.bytes != ALL_BYTES ? answer.bytes : empty ? 0 : DWORD{sizeof(record)};
    std::memcpy(out, record, std::min<DWORD>(*returned, sizeof(record)));
    if (*returned == sizeof(record))
        trace_request(method, shown + format(" = 0x%x 0x%x", record[0], record[1]));
    else
        trace_request(method, shown + format(" = 0x%x 0x%x bytes %u", record[0], record[1], *returned));
    return TRUE;
}

static BOOL answer_request(const Method& method, const Answer& answer, const DWORD* in, void* out,
                           DWORD* returned) {
    const std::string shown = shown_request(method, in);
    if (method.code == GETEVENT)
        return fetch_event(method, answer, shown, out, returned);
    if (answer.fails)
        return request_failed(method, shown);
    if (driver().request_hook)
        driver().request_hook(method.name, in, method.in_bytes);
    if (method.code == REGISTEREVENTS && in != nullptr)
        take_registration(in);
    if (method.code == UNREGISTEREVENTS)
        take_unregistration(in);
    *returned = answer.bytes != ALL_BYTES ? answer.bytes : method.out_bytes;
    if (method.out_bytes != 4) {
        trace_request(method, shown);
        *returned = std::min(*returned, method.out_bytes);
        return TRUE;
    }
    // A driver that claims more than the buffer holds has still written no more than that.
    const DWORD bytes = std::min<DWORD>(*returned, 4);
    const auto value = static_cast<DWORD>(answer.value & ((std::uint64_t{1} << (8 * bytes)) - 1));
    std::memcpy(out, &value, bytes);
    if (*returned == 4)
        trace_request(method, shown + format(" = 0x%x", value));
    else
        trace_request(method, shown + format(" = 0x%x bytes %u", value, *returned));
    return TRUE;
}

// The first page of the hot keys is asked for with the classic interface's opening, the others by themselves.
static unsigned openings_for(const Method& method, DWORD argument) {
    if (!same_text(method.name, "MHKA") && !same_text(method.name, "MHKN"))
        return method.openings;
    return argument <= 1 ? FULL : QUERY; // the first version of the firmware has one page, 0
}

static BOOL control(Object& file, DWORD code, const void* in, DWORD in_bytes, void* out, DWORD out_bytes,
                    DWORD* returned) {
    const OpenedDevice& opened = *static_cast<OpenedDevice*>(file.as<File>().data.get());
    const Method* method = nullptr;
    for (const Method& row : g_methods) {
        if (row.code == code && row.device == opened.device)
            method = &row;
    }
    if (method == nullptr) {
        violation("DeviceIoControl: code 0x%x is none of %s", code, file.name.c_str());
        set_last_error(ERROR_INVALID_FUNCTION);
        return FALSE;
    }
    const bool input_fits = in_bytes == method->in_bytes || (method->input_optional && in_bytes == 0);
    if (!input_fits || out_bytes != method->out_bytes) {
        violation("%s: buffers of %u and %u bytes, wanted %u and %u", method->name, in_bytes, out_bytes,
                  method->in_bytes, method->out_bytes);
        set_last_error(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    DWORD words[REGISTRATION_WORDS] = {};
    if (in_bytes != 0)
        std::memcpy(words, in, in_bytes);
    if ((openings_for(*method, words[0]) & opened.opening) == 0)
        violation("%s: sent on a device opened with access 0x%x, share %u", method->name,
                  file.as<File>().access, file.as<File>().share);
    // The wait comes first: what a thread that is terminated in it has on its stack is lost.
    const Answer answer = await_answer(*method, words[0]);
    return answer_request(*method, answer, words, out, returned);
}

static const FileOps g_deviceOps = {nullptr, nullptr, control, nullptr};

// The opening that the request is, among those that some request of the device comes by; QUERY, and a
// violation, for any other.
static Opening opening_of(const OpenRequest& request, Device device) {
    unsigned usual = 0;
    for (const Method& method : g_methods)
        usual |= method.device == device ? method.openings : 0;
    for (const OpeningRow& row : g_openings) {
        if ((row.opening & usual) != 0 && row.access == request.access && row.share == request.share)
            return row.opening;
    }
    violation("CreateFileW: %s opened with access 0x%x, share %u, which no request uses",
              request.path.c_str(), request.access, request.share);
    return QUERY;
}

static bool open_device(const OpenRequest& request, ObjectRef* file) {
    static const struct {
        const char* path;
        Device device;
    } devices[] = {{"\\\\.\\ZORPmDrv", Device::Primary},
                   {"\\\\.\\PMDRVS", Device::Secondary},
                   {"\\\\.\\sx4track", Device::Stick}};
    for (const auto& row : devices) {
        if (!same_text(row.path, request.path))
            continue;
        const Driver& d = driver();
        const bool present = row.device == Device::Primary     ? d.primary
                             : row.device == Device::Secondary ? d.secondary
                                                               : d.stick;
        if (!present) {
            set_last_error(ERROR_FILE_NOT_FOUND);
            return true;
        }
        check_device_opening(request);
        const OpenedDevice opened = {row.device, opening_of(request, row.device)};
        *file = make_file(request, &g_deviceOps, true);
        (*file)->as<File>().data = std::make_shared<OpenedDevice>(opened);
        return true;
    }
    return false;
}

static const FileKinds g_deviceKind(open_device);

// ---- commands ----

// METHOD or METHOD(ARG).
static const Method* read_method(Tokens& tokens, std::optional<DWORD>* argument) {
    const std::string text = tokens.word();
    const size_t bracket = text.find('(');
    if (bracket != std::string::npos) {
        std::uint32_t value = 0;
        const bool closed = text.ends_with(')');
        if (!closed || !read_number(text.substr(bracket + 1, text.size() - bracket - 2), &value).empty())
            tokens.fail("METHOD(ARG), ARG a number of 32 bits, expected: " + text);
        *argument = value;
    }
    const Method* method = method_named(text.substr(0, bracket));
    if (method == nullptr)
        tokens.fail("no such method: " + text + suggestion(text.substr(0, bracket), method_names()));
    return method;
}

static Action compile_firmware(Tokens& tokens) {
    std::optional<DWORD> argument;
    const Method* method = read_method(tokens, &argument);
    const std::string name = method != nullptr ? method->name : "";
    auto pointer = [](const std::optional<DWORD>& value) { return value ? &*value : nullptr; };
    if (tokens.accept("takes")) {
        const std::vector<Span> takes = tokens.spans();
        const bool late = tokens.accept("late");
        return [=] { set_answer_durations(name, pointer(argument), takes, late); };
    }
    Answer answer;
    if (tokens.accept("fails"))
        answer.fails = true;
    else if (tokens.accept("="))
        answer.value = tokens.number();
    else if (method == nullptr || method->code != GETEVENT) // GETEVENT may have bytes alone
        tokens.fail("= VALUE, fails or takes DURATION expected");
    if (tokens.accept("bytes"))
        answer.bytes = static_cast<DWORD>(tokens.number());
    unsigned times = 0;
    if (tokens.accept("times"))
        times = static_cast<unsigned>(tokens.number());
    // Applies to the next fetch, not to all.
    if (method != nullptr && method->code == GETEVENT && times == 0)
        times = 1;
    return [=] { set_answer(name, pointer(argument), answer, times); };
}

// Later, as the machine itself.
static void after(Ms duration, const std::function<void()>& action) {
    start_thread(machine().host, "machine", [duration, action] {
        sleep_for(duration);
        action();
        return DWORD{0};
    });
}

static Action compile_driver(Tokens& tokens) {
    bool primary = true;
    bool secondary = true;
    if (tokens.accept("primary"))
        secondary = false;
    else if (tokens.accept("secondary"))
        primary = false;
    const bool present = tokens.choice({"missing", "present"}) == 1;
    auto set = [=](bool value) {
        if (primary)
            driver().primary = value;
        if (secondary)
            driver().secondary = value;
    };
    if (tokens.accept("for")) {
        const Ms duration = tokens.duration();
        return [=] {
            set(present);
            after(duration, [=] { set(!present); });
        };
    }
    return [=] { set(present); };
}

static Action compile_stick(Tokens& tokens) {
    const bool present = tokens.choice({"missing", "present"}) == 1;
    return [present] { driver().stick = present; };
}

static Action compile_event(Tokens& tokens) {
    const auto code = static_cast<DWORD>(tokens.number());
    const auto second = tokens.done() ? 0 : static_cast<DWORD>(tokens.number());
    return [=] { post_event(code, second); };
}

static Action compile_signal(Tokens& tokens) {
    const std::string name = tokens.done() ? "" : tokens.list[tokens.at].text;
    const size_t index = tokens.choice({"Start", "Stop", "Sleep", "Resume", "NotifyEvent"});
    return [index, name] {
        if (driver().notify[index] != nullptr)
            signal_object(*driver().notify[index]);
        else
            trace("refused signal %s", name.c_str()); // no events are registered
    };
}

static void show_firmware(const std::string&) {
    const Driver& d = driver();
    show_line("devices: %s, %s; %zu events wait", d.primary ? "primary" : "no primary",
              d.secondary ? "secondary" : "no secondary", d.events.size());
    for (const Method& method : g_methods) {
        const auto last = d.last.find(&method);
        if (last != d.last.end())
            show_line("%s at %.3f", last->second.line.c_str(), static_cast<double>(last->second.time) / 1000);
    }
}

static const Shows g_firmwareShown("firmware", show_firmware);

static const Commands g_commands({
    {"firmware", Use::Machine, compile_firmware,
     "METHOD[(ARG)] = VALUE [bytes N] [times N] | fails [times N] | takes DURATION|A..B[,...] [late] - "
     "answers of the firmware",
     method_names},
    {"driver", Use::Machine, compile_driver,
     "[primary|secondary] missing|present [for DURATION] - the power-management devices"},
    {"device stick", Use::Machine, compile_stick, "missing|present - the pointing stick"},
    {"event", Use::Drive, compile_event, "CODE [SECOND] - one hardware event"},
    {"signal", Use::Drive, compile_signal,
     "Start|Stop|Sleep|Resume|NotifyEvent - the driver signals one of its events"},
});

} // namespace sim
