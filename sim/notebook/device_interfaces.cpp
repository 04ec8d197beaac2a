#include "sim/notebook/device_interfaces.h"

#include "sim/machine/files.h"
#include "sim/machine/machine.h"
#include "sim/script/commands.h"
#include "sim/script/expectations.h"
#include "sim/script/show.h"

namespace sim {

constexpr size_t INSTANCES = 2; // interfaces of a class

namespace {

struct InterfaceRow {
    const char* name;
    GUID interface_class;
    const char* path; // of the first interface; the second one's ends in "#2"
    bool readable;
};

} // namespace

static const InterfaceRow g_interfaces[] = {
    {"slate",
     {0x317FC439, 0x3F77, 0x41C8, {0xB0, 0x9E, 0x08, 0xAD, 0x63, 0x27, 0x2A, 0xA3}},
     "\\\\?\\acpi#convertible#1#{317fc439-3f77-41c8-b09e-08ad63272aa3}",
     true},
    {"dock",
     {0xA84E689B, 0x0DCE, 0x493A, {0xA1, 0x64, 0xAC, 0xDE, 0x05, 0x47, 0x8F, 0xC3}},
     "\\\\?\\acpi#docking#1#{a84e689b-0dce-493a-a164-acde05478fc3}",
     true},
    {"button",
     {0x30EBFBF8, 0xDF5F, 0x4D4D, {0x9F, 0xC5, 0xA2, 0x6C, 0x7F, 0xD1, 0xDF, 0x4A}},
     "\\\\?\\acpi#buttons#1#{30ebfbf8-df5f-4d4d-9fc5-a26c7fd1df4a}",
     false},
};
static const char g_secondSuffix[] = "#2";

namespace {

// How often the next transfers fail; FOREVER until told otherwise.
constexpr unsigned FOREVER = ~0u;

struct InterfaceState {
    BYTE state[INSTANCES] = {}; // of the first and the second interface
    bool empty = false;         // a read succeeds and gives no byte
    bool present[INSTANCES] = {true, false};
    unsigned read_failures = 0;
    unsigned write_failures = 0;
    std::vector<const File*> open[INSTANCES]; // for the share modes
};

struct OpenedInterface { // what a file object refers to
    size_t which;
    size_t instance;
};

struct InterfaceStates {
    InterfaceState of[ARRAYSIZE(g_interfaces)];
    InterfaceStates() { of[0].state[0] = 1; }
};

} // namespace

static InterfaceState& state_of(size_t which) {
    return machine_state<InterfaceStates>().of[which];
}

BYTE indicator_state(Interface which) {
    return state_of(static_cast<size_t>(which)).state[0];
}

void set_indicator_state(Interface which, BYTE state) {
    state_of(static_cast<size_t>(which)).state[0] = state;
}

static std::string path_of(size_t which, size_t instance) {
    return std::string(g_interfaces[which].path) + (instance != 0 ? g_secondSuffix : "");
}

// ---- transfers ----

static std::string interface_name(const OpenedInterface& opened) {
    return std::string(g_interfaces[opened.which].name) + (opened.instance != 0 ? g_secondSuffix : "");
}

// Whether this transfer fails as told.
static bool use_failure(unsigned* failures) {
    if (*failures == 0)
        return false;
    if (*failures != FOREVER)
        --*failures;
    set_last_error(ERROR_GEN_FAILURE);
    return true;
}

static bool one_byte(const char* call, const OpenedInterface& opened, DWORD bytes) {
    if (bytes == 1)
        return true;
    violation("%s: %u bytes on %s", call, bytes, interface_name(opened).c_str());
    set_last_error(ERROR_INVALID_PARAMETER);
    return false;
}

static BOOL read_indicator(Object& file, void* buffer, DWORD bytes, DWORD* read) {
    const OpenedInterface& opened = *static_cast<OpenedInterface*>(file.as<File>().data.get());
    if (!one_byte("ReadFile", opened, bytes))
        return FALSE;
    InterfaceState& state = state_of(opened.which);
    if (use_failure(&state.read_failures))
        return FALSE;
    if (!state.empty)
        *static_cast<BYTE*>(buffer) = state.state[opened.instance];
    *read = state.empty ? 0 : 1;
    trace_detail("read %s = %u", interface_name(opened).c_str(), state.state[opened.instance]);
    return TRUE;
}

static void (*g_buttonListener)(BYTE) = nullptr;

ButtonListener::ButtonListener(void (*written)(BYTE)) {
    g_buttonListener = written;
}

static BOOL write_interface(Object& file, const void* buffer, DWORD bytes, DWORD* written) {
    const OpenedInterface& opened = *static_cast<OpenedInterface*>(file.as<File>().data.get());
    if (!one_byte("WriteFile", opened, bytes))
        return FALSE;
    InterfaceState& state = state_of(opened.which);
    if (use_failure(&state.write_failures))
        return FALSE;
    *written = 1;
    trace("write %s %u", interface_name(opened).c_str(), *static_cast<const BYTE*>(buffer));
    if (!g_interfaces[opened.which].readable && g_buttonListener != nullptr)
        g_buttonListener(*static_cast<const BYTE*>(buffer));
    // An indicator changes to its other state, whatever the byte.
    BYTE& indicator = state.state[opened.instance];
    if (indicator <= 1)
        indicator ^= 1;
    return TRUE;
}

static void closed(Object& object) {
    const File& file = object.as<File>();
    const OpenedInterface& opened = *static_cast<OpenedInterface*>(file.data.get());
    std::erase(state_of(opened.which).open[opened.instance], &file);
}

static const FileOps g_indicatorOps = {read_indicator, write_interface, nullptr, closed};
static const FileOps g_buttonOps = {nullptr, write_interface, nullptr, closed};

// Whether an opening lets the other one read or write as it wants to.
static bool shares(DWORD share, DWORD access) {
    return ((access & GENERIC_READ) == 0 || (share & FILE_SHARE_READ) != 0) &&
           ((access & GENERIC_WRITE) == 0 || (share & FILE_SHARE_WRITE) != 0);
}

// The accesses that a program of this system comes with, never sharing; other programs come as they like.
static void check_request(const OpenRequest& request, size_t which) {
    static const struct {
        const char* name;
        DWORD access;
    } rows[] = {
        {"slate", GENERIC_READ},   {"slate", GENERIC_WRITE},
        {"dock", GENERIC_READ},    {"dock", GENERIC_READ | GENERIC_WRITE},
        {"button", GENERIC_WRITE},
    };
    if (current_process()->image == nullptr)
        return;
    for (const auto& row : rows) {
        if (same_text(row.name, g_interfaces[which].name) && row.access == request.access &&
            request.share == 0)
            return;
    }
    violation("CreateFileW: the %s opened with access 0x%x, share %u, which no request uses",
              g_interfaces[which].name, request.access, request.share);
}

static void open_instance(const OpenRequest& request, const OpenedInterface& opened, ObjectRef* file) {
    InterfaceState& state = state_of(opened.which);
    if (!state.present[opened.instance]) {
        set_last_error(ERROR_FILE_NOT_FOUND);
        return;
    }
    check_device_opening(request);
    check_request(request, opened.which);
    for (const File* other : state.open[opened.instance]) {
        if (!shares(other->share, request.access) || !shares(request.share, other->access)) {
            set_last_error(ERROR_SHARING_VIOLATION);
            return;
        }
    }
    *file = make_file(request, g_interfaces[opened.which].readable ? &g_indicatorOps : &g_buttonOps, true);
    (*file)->as<File>().data = std::make_shared<OpenedInterface>(opened);
    state.open[opened.instance].push_back(&(*file)->as<File>());
}

static bool open_interface(const OpenRequest& request, ObjectRef* file) {
    for (size_t which = 0; which < ARRAYSIZE(g_interfaces); ++which) {
        for (size_t instance = 0; instance < INSTANCES; ++instance) {
            if (!same_text(path_of(which, instance), request.path))
                continue;
            open_instance(request, {which, instance}, file);
            return true;
        }
    }
    return false;
}

static const FileKinds g_interfaceKind(open_interface);

std::vector<std::string> interfaces_of_class(const GUID& interface_class, bool present_only) {
    std::vector<std::string> paths;
    for (size_t which = 0; which < ARRAYSIZE(g_interfaces); ++which) {
        for (size_t instance = 0; instance < INSTANCES; ++instance) {
            const bool listed = state_of(which).present[instance] || (!present_only && instance == 0);
            if (g_interfaces[which].interface_class == interface_class && listed)
                paths.push_back(path_of(which, instance));
        }
    }
    return paths;
}

// ---- commands ----

// missing | present | = VALUE [bytes 0] | second missing|present | read|write fails [times N]
template <size_t which> static Action compile_device(Tokens& tokens) {
    if (g_interfaces[which].readable && tokens.accept("=")) {
        const auto value = static_cast<BYTE>(tokens.number());
        const bool empty = tokens.accept("bytes") && tokens.number() == 0;
        return [value, empty] {
            state_of(which).state[0] = value;
            state_of(which).empty = empty;
        };
    }
    const size_t word = tokens.choice({"missing", "present", "second", "read", "write"});
    if (word <= 1)
        return [word] { state_of(which).present[0] = word == 1; };
    if (word == 2) {
        const bool present = tokens.choice({"missing", "present"}) == 1;
        return [present] { state_of(which).present[1] = present; };
    }
    unsigned times = FOREVER;
    tokens.choice({"fails"});
    if (tokens.accept("times"))
        times = static_cast<unsigned>(tokens.number());
    return [word, times] {
        InterfaceState& state = state_of(which);
        (word == 3 ? state.read_failures : state.write_failures) = times;
    };
}

static Action compile_check_device(Tokens& tokens) {
    const size_t which = tokens.choice({"slate", "dock"});
    tokens.choice({"="});
    const auto wanted = static_cast<unsigned>(tokens.number());
    return [which, wanted] {
        const unsigned state = state_of(which).state[0];
        expectation(state == wanted,
                    format("device %s = %u, it is %u", g_interfaces[which].name, wanted, state));
    };
}

static void show_devices(const std::string&) {
    for (size_t which = 0; which < ARRAYSIZE(g_interfaces); ++which) {
        for (size_t instance = 0; instance < INSTANCES; ++instance) {
            const InterfaceState& state = state_of(which);
            if (instance == 0 || state.present[instance])
                show_line("%s%s %s, state %u, opened %zu times", g_interfaces[which].name,
                          instance == 0 ? "" : g_secondSuffix,
                          state.present[instance] ? "present" : "missing", state.state[instance],
                          state.open[instance].size());
        }
    }
}

static const Shows g_devicesShown("devices", show_devices);

static const Commands g_commands({
    {"device slate", Use::Machine, compile_device<0>,
     "missing|present | = VALUE [bytes 0] | second missing|present | read|write fails [times N] - the slate "
     "indicator"},
    {"device dock", Use::Machine, compile_device<1>,
     "missing|present | = VALUE [bytes 0] | second missing|present | read|write fails [times N] - the dock "
     "indicator"},
    {"device button", Use::Machine, compile_device<2>,
     "missing|present | second missing|present | write fails [times N] - the button device"},
    {"check device", Use::Check, compile_check_device, "slate|dock = VALUE - the indicator's state byte"},
});

} // namespace sim
