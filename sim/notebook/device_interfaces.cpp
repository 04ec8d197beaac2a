#include "sim/notebook/device_interfaces.h"

#include "sim/notebook/device_sets.h"
#include "sim/notebook/driver.h"
#include "sim/script/scenario.h"
#include "sim/windows/registry.h"

#include <setupapi.h>

namespace sim {

struct InterfaceRow {
    const char* name;
    GUID interface_class;
    const char* path; // of the first interface; the second one's ends in "#2"
    bool readable;
};

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

// How often the next transfers fail; FOREVER until told otherwise.
constexpr unsigned FOREVER = ~0u;

struct InterfaceState {
    BYTE state[2] = {}; // of the first and the second interface
    bool present[2] = {true, false};
    unsigned read_failures = 0;
    unsigned write_failures = 0;
    std::vector<const File*> open[2]; // for the share modes
};

struct InterfaceStates {
    InterfaceState of[ARRAYSIZE(g_interfaces)];
    bool rotation_follows = false; // a press of the rotation lock changes Windows' setting
    bool half_pressed = false;
    InterfaceStates() { of[0].state[0] = 1; }
};

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

struct Opened { // what a file object refers to
    size_t which;
    size_t instance;
};

static std::string shown_name(const Opened& opened) {
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

static bool one_byte(const char* call, const Opened& opened, DWORD bytes) {
    if (bytes == 1)
        return true;
    violation("%s: %u bytes on %s", call, bytes, shown_name(opened).c_str());
    set_last_error(ERROR_INVALID_PARAMETER);
    return false;
}

static BOOL read_indicator(Object& file, void* buffer, DWORD bytes, DWORD* read) {
    const Opened& opened = *static_cast<Opened*>(file.as<File>().data.get());
    if (!one_byte("ReadFile", opened, bytes))
        return FALSE;
    InterfaceState& state = state_of(opened.which);
    if (use_failure(&state.read_failures))
        return FALSE;
    *static_cast<BYTE*>(buffer) = state.state[opened.instance];
    *read = 1;
    trace_detail("read %s = %u", shown_name(opened).c_str(), state.state[opened.instance]);
    return TRUE;
}

// Two bytes are one press, which turns Windows' auto-rotation over.
static void rotation_button_byte() {
    static const char key[] = "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AutoRotation";
    auto& states = machine_state<InterfaceStates>();
    states.half_pressed = !states.half_pressed;
    if (states.rotation_follows && !states.half_pressed && registry_value(key, "Enable") != nullptr)
        registry_set_dword(key, "Enable", registry_dword(key, "Enable") ^ 1);
}

static BOOL write_interface(Object& file, const void* buffer, DWORD bytes, DWORD* written) {
    const Opened& opened = *static_cast<Opened*>(file.as<File>().data.get());
    if (!one_byte("WriteFile", opened, bytes))
        return FALSE;
    InterfaceState& state = state_of(opened.which);
    if (use_failure(&state.write_failures))
        return FALSE;
    *written = 1;
    trace("write %s %u", shown_name(opened).c_str(), *static_cast<const BYTE*>(buffer));
    if (!g_interfaces[opened.which].readable && *static_cast<const BYTE*>(buffer) == 4)
        rotation_button_byte();
    // An indicator changes to its other state, whatever the byte.
    BYTE& indicator = state.state[opened.instance];
    if (indicator <= 1)
        indicator ^= 1;
    return TRUE;
}

static void closed(Object& object) {
    const File& file = object.as<File>();
    const Opened& opened = *static_cast<Opened*>(file.data.get());
    std::erase(state_of(opened.which).open[opened.instance], &file);
}

static const FileOps g_indicatorOps = {read_indicator, write_interface, nullptr, closed};
static const FileOps g_buttonOps = {nullptr, write_interface, nullptr, closed};

// Whether an opening lets the other one read or write as it wants to.
static bool shares(DWORD share, DWORD access) {
    return ((access & GENERIC_READ) == 0 || (share & FILE_SHARE_READ) != 0) &&
           ((access & GENERIC_WRITE) == 0 || (share & FILE_SHARE_WRITE) != 0);
}

static void open_instance(const OpenRequest& request, const Opened& opened, ObjectRef* file) {
    InterfaceState& state = state_of(opened.which);
    if (!state.present[opened.instance]) {
        set_last_error(ERROR_FILE_NOT_FOUND);
        return;
    }
    if (request.disposition != OPEN_EXISTING)
        violation("CreateFileW: a device is opened with OPEN_EXISTING");
    for (const File* other : state.open[opened.instance]) {
        if (!shares(other->share, request.access) || !shares(request.share, other->access)) {
            set_last_error(ERROR_SHARING_VIOLATION);
            return;
        }
    }
    *file = make_file(request, g_interfaces[opened.which].readable ? &g_indicatorOps : &g_buttonOps, true);
    (*file)->as<File>().data = std::make_shared<Opened>(opened);
    state.open[opened.instance].push_back(&(*file)->as<File>());
}

static bool open_interface(const OpenRequest& request, ObjectRef* file) {
    for (size_t which = 0; which < ARRAYSIZE(g_interfaces); ++which) {
        for (size_t instance = 0; instance < 2; ++instance) {
            if (!same_text(path_of(which, instance), request.path))
                continue;
            open_instance(request, {which, instance}, file);
            return true;
        }
    }
    return false;
}

static const FileKinds g_fileKind(open_interface);

// ---- enumeration ----

struct InterfaceSet {
    GUID interface_class;
    std::vector<std::string> paths;
};
static const char g_setName[] = "interfaces of a class";

// A class without a present interface gives an empty set.
static ObjectRef make_interface_set(const GUID& interface_class) {
    auto set = std::make_shared<InterfaceSet>();
    set->interface_class = interface_class;
    for (size_t which = 0; which < ARRAYSIZE(g_interfaces); ++which) {
        for (size_t instance = 0; instance < 2; ++instance) {
            if (g_interfaces[which].interface_class == interface_class && state_of(which).present[instance])
                set->paths.push_back(path_of(which, instance));
        }
    }
    ObjectRef object = make_object(Kind::DeviceSet, g_setName);
    object->body = set;
    return object;
}

static const bool g_setMakerKnown = (set_interface_set_maker(make_interface_set), true);

// The set behind a handle, if the interface record that goes with it has its size.
static InterfaceSet* interface_set(HDEVINFO handle, const SP_DEVICE_INTERFACE_DATA* record,
                                   const char* call) {
    HandleEntry* entry = handle_entry(handle, Kind::DeviceSet, call);
    if (entry == nullptr)
        return nullptr;
    if (entry->object->name != g_setName || record->cbSize != sizeof(*record)) {
        violation("%s: set without interfaces, or size field %u", call, record->cbSize);
        set_last_error(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return &entry->object->as<InterfaceSet>();
}

// ---- scenario commands ----

// missing | present | = VALUE | second missing|present | read|write fails [times N]
template <size_t which> static Action compile_device(Tokens& tokens) {
    if (g_interfaces[which].readable && tokens.accept("=")) {
        const auto value = static_cast<BYTE>(tokens.number());
        return [value] { state_of(which).state[0] = value; };
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

static Action compile_rotation(Tokens& tokens) {
    const bool follows = tokens.choice({"stays", "follows"}) == 1;
    return [follows] { machine_state<InterfaceStates>().rotation_follows = follows; };
}

static const Commands g_commands({
    {"windows rotation", Use::Machine, compile_rotation},
    {"device slate", Use::Machine, compile_device<0>},
    {"device dock", Use::Machine, compile_device<1>},
    {"device button", Use::Machine, compile_device<2>},
    {"check device", Use::Check, compile_check_device},
});

} // namespace sim

using namespace sim;

extern "C" {

BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO devices, PSP_DEVINFO_DATA, const GUID* interface_class,
                                        DWORD index, PSP_DEVICE_INTERFACE_DATA record) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    const InterfaceSet* set = interface_set(devices, record, "SetupDiEnumDeviceInterfaces");
    if (set == nullptr)
        return FALSE;
    if (!(set->interface_class == *interface_class) || index >= set->paths.size()) {
        set_last_error(ERROR_NO_MORE_ITEMS);
        return FALSE;
    }
    record->InterfaceClassGuid = *interface_class;
    record->Flags = 1; // active
    record->Reserved = index + 1;
    return TRUE;
}

BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO devices, PSP_DEVICE_INTERFACE_DATA record,
                                             PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD capacity,
                                             PDWORD required, PSP_DEVINFO_DATA) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    const InterfaceSet* set = interface_set(devices, record, "SetupDiGetDeviceInterfaceDetailW");
    if (set == nullptr)
        return FALSE;
    if (record->Reserved == 0 || record->Reserved > set->paths.size() ||
        (detail == nullptr) != (capacity == 0) || (detail != nullptr && detail->cbSize != sizeof(*detail))) {
        violation("SetupDiGetDeviceInterfaceDetailW: no interface of this set, or size field not 8");
        set_last_error(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::u16string path = widen(set->paths[record->Reserved - 1]);
    const size_t bytes = (path.size() + 1) * sizeof(char16_t);
    const auto whole = static_cast<DWORD>(offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath) + bytes);
    if (required != nullptr)
        *required = whole;
    if (capacity < whole) {
        set_last_error(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(detail->DevicePath, path.c_str(), bytes);
    return TRUE;
}

} // extern "C"
