// The words that travel with the requests of ioctl.h: what firmware and driver are told and what they answer.
// Each number of that interface stands here once, under the name of its request, with its words where it has
// some: X(value, name, words). The service takes names and values; zorpmsim's timeline shows the words.
#pragma once

#include <windows.h>

#define WORD_VALUE(value, name, words) name = (value),

// ---- GMMS, THERMALMODE, DGPUTEMP: hinge posture, thermal mode, graphics temperature ----

// Status words carry their value in the low half.
constexpr DWORD STATUS_VALUE = 0xFFFF;

// GMMS: the multimode states, that is the postures of the hinge.
enum : DWORD {
    MM_SYSTEM_STATE_NotReceived,
    MM_SYSTEM_STATE_NoteBook,
    MM_SYSTEM_STATE_Layflat,
    MM_SYSTEM_STATE_Tablet,
    MM_SYSTEM_STATE_Media,
    MM_SYSTEM_STATE_Tent,
};

// THERMALMODE: the one mode of the hinge angle that allows high performance.
#define THERMAL_MODES(X) X(3, THERMAL_MODE_HIGH, "high performance allowed")
enum : DWORD { THERMAL_MODES(WORD_VALUE) };

// ---- TABGETSTATE ----

#define TABLET_STATES(X) X(0x8, TABLET_STATE_TABLET, "tablet")
enum : DWORD { TABLET_STATES(WORD_VALUE) };

// ---- GETLIDSTATUS ----

#define LID_STATUS_BITS(X)                                                                                   \
    X(0x1, LID_SWITCH_OPEN, "open")                                                                          \
    X(0x2, LID_READING_VALID, "reading valid")
enum : DWORD { LID_STATUS_BITS(WORD_VALUE) };

// ---- LCDCSCONTROL, LCDCSGETSTATE: lid inhibit ----

#define LCDCS_CONTROLS(X)                                                                                    \
    X(1, LCDCS_CONTROL_INHIBIT_ON, "lid inhibit on")                                                         \
    X(2, LCDCS_CONTROL_INHIBIT_OFF, "lid inhibit off")
enum : DWORD { LCDCS_CONTROLS(WORD_VALUE) };
// The answer to a control word.
constexpr DWORD LCDCS_CONTROL_ACCEPTED = 0;

#define LCDCS_STATES(X)                                                                                      \
    X(2, LCDCS_STATE_INHIBIT_OFF, "lid not inhibited")                                                       \
    X(3, LCDCS_STATE_INHIBIT_ON, "lid inhibited")
enum : DWORD { LCDCS_STATES(WORD_VALUE) };

// ---- DOCKMODE ----

constexpr DWORD DOCK_STATUS_DOCKED = 0x1;

#define DOCK_TYPES(X)                                                                                        \
    X(0, DOCK_TYPE_VANTOR, "Vantor")                                                                         \
    X(1, DOCK_TYPE_QUILLON, "Quillon")                                                                       \
    X(2, DOCK_TYPE_BASTION, "Bastion")                                                                       \
    X(8, DOCK_TYPE_LINKWAY, "Linkway")
enum : DWORD { DOCK_TYPES(WORD_VALUE) };

constexpr DWORD DockType(DWORD status) {
    return (status >> 16) & 0xF;
}

// ---- GOPT: keyboard and tablet options ----

// What is asked for.
#define GOPT_QUERIES(X)                                                                                      \
    X(0x000, GOPT_VERSION, "version of the option interface")                                                \
    X(0x100, GOPT_TYPE, "type of the option interface")                                                      \
    X(0x200, GOPT_STATUS, "option")
enum : DWORD { GOPT_QUERIES(WORD_VALUE) };

constexpr DWORD OPTION_VERSION_1 = 0x100;
constexpr DWORD OPTION_VERSION_2 = 0x102;
constexpr DWORD OPTION_VERSION_LAST_KNOWN = 0x103;

// Interface types 1 to 4. The last tells in one bit of its status whether an option is attached, the others
// by a status other than 0.
constexpr DWORD OPTION_TYPE_FIRST = 1;
constexpr DWORD OPTION_TYPE_LAST = 4;
constexpr DWORD OPTION_TYPE_LAST_ATTACHED = 0x1;

// The status of interface version 1, then of version 2 and later.
#define OPTION_1_STATUSES(X)                                                                                 \
    X(0x0, OPTION_1_NONE, "none")                                                                            \
    X(0x1, OPTION_1_DOCK, "dock")                                                                            \
    X(0x10, OPTION_1_KEYBOARD, "keyboard")                                                                   \
    X(0x100, OPTION_1_KEYBOARD_DOCK_CLAMSHELL, "keyboard and dock, as a clamshell")                          \
    X(0x1000, OPTION_1_KEYBOARD_DOCK_TABLET, "keyboard and dock, as a tablet")
enum : DWORD { OPTION_1_STATUSES(WORD_VALUE) };

#define OPTION_2_STATUSES(X)                                                                                 \
    X(0x0, OPTION_2_NONE, "none")                                                                            \
    X(0x1, OPTION_2_DOCK, "dock")                                                                            \
    X(0x2, OPTION_2_KEYBOARD, "keyboard attached")                                                           \
    X(0x4, OPTION_2_KEYBOARD_DOCK_CLAMSHELL, "keyboard and dock, as a clamshell")                            \
    X(0x8, OPTION_2_KEYBOARD_DOCK_TABLET, "keyboard and dock, as a tablet")                                  \
    X(0x12, OPTION_2_KEYBOARD_SECOND_CODE, "keyboard attached, as a tablet")                                 \
    X(0x10001, OPTION_2_ORRIN_KEYBOARD_FLIPPED, "keyboard attached, flip mode")
enum : DWORD { OPTION_2_STATUSES(WORD_VALUE) };

// ---- MHKV, MHKA, MHKN: hot keys ----

#define MHKV_VERSIONS(X)                                                                                     \
    X(0x100, MHKV_FIRST, "one page of hot keys")                                                             \
    X(0x200, MHKV_SECOND, "three pages of hot keys")
enum : DWORD { MHKV_VERSIONS(WORD_VALUE) };

// The page asked for; the first version has but one and no number for it.
enum : DWORD { MHK_ONLY_PAGE, MHK_PAGE_1, MHK_PAGE_2, MHK_PAGE_3 };

// ---- QCPULEVELCTRL, CSTATESELECT, CSTATEPARAMS: processor idle states ----

// What is asked for.
#define CPU_QUERIES(X)                                                                                       \
    X(0, CPU_QUERY_WORKAROUND, "idle-state control wanted")                                                  \
    X(1, CPU_QUERY_POLLING_DURATION, "seconds between two looks")                                            \
    X(2, CPU_QUERY_C4_THRESHOLD, "threshold for C4")
enum : DWORD { CPU_QUERIES(WORD_VALUE) };

#define CPU_SELECTS(X)                                                                                       \
    X(3, CPU_SELECT_C3, "C3")                                                                                \
    X(4, CPU_SELECT_C4, "C4")
enum : DWORD { CPU_SELECTS(WORD_VALUE) };

// ---- DYTC: thermal control ----

#define DYTC_QUERIES(X)                                                                                      \
    X(0x000, DYTC_QUERY_REVISION, "revision of thermal control")                                             \
    X(0x003, DYTC_QUERY_FUNCTION_CAPABILITY, "thermal functions")                                            \
    X(0x100, DYTC_QUERY_SYSTEM_CONTROL_MODE, "system-wide mode")
#define DYTC_SYSTEM_MODES(X)                                                                                 \
    X(0x001, DYTC_SET_NOMINAL_MODE, "system: nominal")                                                       \
    X(0x101, DYTC_SET_COOL_QUIET_MODE, "system: cool and quiet")                                             \
    X(0x201, DYTC_SET_HIGH_PERFORMANCE_MODE, "system: high performance")
enum : DWORD { DYTC_QUERIES(WORD_VALUE) DYTC_SYSTEM_MODES(WORD_VALUE) };

// Answers to revision query, capability query and set words: supported, carried out, accepted. The system
// modes (DYTC_SET_...) are accepted with another answer.
constexpr DWORD DYTC_SUCCESS = 0x1;
constexpr DWORD DYTC_MODE_ACCEPTED = 0;
// Answer to a set word, read by the readiness probe; the meaning of the single bits is the firmware's.
constexpr DWORD DYTC_NOT_READY = 0x6;

constexpr DWORD DytcRevision(DWORD answer) {
    return answer >> 28;
}

// 0x2000 to 0x2FFF on firmware of version 2.
constexpr DWORD DytcSystemControlMode(DWORD answer) {
    return answer >> 16;
}

// The thermal functions.
#define THERMAL_FUNCTIONS(X)                                                                                 \
    X(0, THERMAL_STANDARD, "standard")                                                                       \
    X(1, THERMAL_COOL_QUIET_ON_LAPTOP, "cool on the lap")                                                    \
    X(2, THERMAL_TWO_IN_ONE, "two in one")                                                                   \
    X(3, THERMAL_MULTI_PIVO_HINGE, "hinge")                                                                  \
    X(4, THERMAL_SKIN_TEMPERATURE_PROTECTION, "skin temperature")                                            \
    X(5, THERMAL_COOL_QUIET_HINGE, "quiet hinge")                                                            \
    X(6, THERMAL_DYNAMIC_CPU_CONTROL, "processor")                                                           \
    X(7, THERMAL_SINGLE_FAN, "single fan")                                                                   \
    X(8, THERMAL_DOCK_MODE_CONTROL, "dock")                                                                  \
    X(9, THERMAL_FORCE_HIGH_PERFORMANCE, "forced high performance")
enum ThermalFunction : DWORD { THERMAL_FUNCTIONS(WORD_VALUE) THERMAL_FUNCTION_COUNT };

// Whether the capability word announces the function.
constexpr bool DytcAnnounces(DWORD capability, DWORD function) {
    return (capability & (1u << (16 + function))) != 0;
}

// The current setting of the system-wide mode in the capability word of version 2.
#define TMCT_CURRENT_SETTINGS(X)                                                                             \
    X(0, TMCT_CURRENT_SETTING_NOMINAL_MODE, "nominal")                                                       \
    X(1, TMCT_CURRENT_SETTING_COOL_QUIET_MODE, "cool and quiet")                                             \
    X(2, TMCT_CURRENT_SETTING_HIGH_PERFORMANCE_MODE, "high performance")
enum : DWORD { TMCT_CURRENT_SETTINGS(WORD_VALUE) };
constexpr DWORD DytcCurrentSetting(DWORD capability) {
    return (capability >> 8) & 0xF;
}

// The mode field of a function that has no modes, or that is switched off.
constexpr DWORD THERMAL_NO_MODE = 0xF;

// A set word: command 0x001 in bits 0 to 11, function in 12 to 15, mode in 16 to 19, on or off in bit 20.
constexpr DWORD ThermalSetWord(ThermalFunction function, DWORD mode, bool on) {
    return 0x001u | (function << 12) | (mode << 16) | (on ? 1u << 20 : 0u);
}
