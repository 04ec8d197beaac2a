// The words that travel with the requests of ioctl.h: what firmware and driver are told and what they answer.
// Each number of that interface stands here once, under the name of its request.
#pragma once

#include <windows.h>

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
constexpr DWORD THERMAL_MODE_HIGH = 3;

// ---- TABGETSTATE ----

constexpr DWORD TABLET_STATE_TABLET = 0x8;

// ---- GETLIDSTATUS ----

constexpr DWORD LID_SWITCH_OPEN = 0x1;
constexpr DWORD LID_READING_VALID = 0x2;

// ---- LCDCSCONTROL, LCDCSGETSTATE: lid inhibit ----

enum : DWORD { LCDCS_CONTROL_INHIBIT_ON = 1, LCDCS_CONTROL_INHIBIT_OFF = 2 };
// The answer to a control word.
constexpr DWORD LCDCS_CONTROL_ACCEPTED = 0;

enum : DWORD { LCDCS_STATE_INHIBIT_OFF = 2, LCDCS_STATE_INHIBIT_ON = 3 };

// ---- DOCKMODE ----

constexpr DWORD DOCK_STATUS_DOCKED = 0x1;

enum : DWORD {
    DOCK_TYPE_VANTOR = 0,
    DOCK_TYPE_QUILLON = 1,
    DOCK_TYPE_BASTION = 2,
    DOCK_TYPE_LINKWAY = 8,
};

constexpr DWORD DockType(DWORD status) {
    return (status >> 16) & 0xF;
}

// ---- GOPT: keyboard and tablet options ----

// What is asked for.
enum : DWORD { GOPT_VERSION = 0, GOPT_TYPE = 0x100, GOPT_STATUS = 0x200 };

constexpr DWORD OPTION_VERSION_1 = 0x100;
constexpr DWORD OPTION_VERSION_2 = 0x102;
constexpr DWORD OPTION_VERSION_LAST_KNOWN = 0x103;

// Interface types 1 to 4. The last tells in one bit of its status whether an option is attached, the others
// by a status other than 0.
constexpr DWORD OPTION_TYPE_FIRST = 1;
constexpr DWORD OPTION_TYPE_LAST = 4;
constexpr DWORD OPTION_TYPE_LAST_ATTACHED = 0x1;

// The status of interface version 1, then of version 2 and later.
enum : DWORD {
    OPTION_1_NONE = 0x0,
    OPTION_1_DOCK = 0x1,
    OPTION_1_KEYBOARD = 0x10,
    OPTION_1_KEYBOARD_DOCK_CLAMSHELL = 0x100,
    OPTION_1_KEYBOARD_DOCK_TABLET = 0x1000,
};
enum : DWORD {
    OPTION_2_NONE = 0x0,
    OPTION_2_DOCK = 0x1,
    OPTION_2_KEYBOARD = 0x2,
    OPTION_2_KEYBOARD_DOCK_CLAMSHELL = 0x4,
    OPTION_2_KEYBOARD_DOCK_TABLET = 0x8,
    OPTION_2_KEYBOARD_SECOND_CODE = 0x12,
    OPTION_2_ORRIN_KEYBOARD_FLIPPED = 0x10001,
};

// ---- MHKV, MHKA, MHKN: hot keys ----

// Interface versions: one page of 32 keys, then pages 1 to 3.
constexpr DWORD MHKV_FIRST = 0x100;
constexpr DWORD MHKV_SECOND = 0x200;

// The page asked for; the first version has but one and no number for it.
enum : DWORD { MHK_ONLY_PAGE, MHK_PAGE_1, MHK_PAGE_2, MHK_PAGE_3 };

// ---- QCPULEVELCTRL, CSTATESELECT, CSTATEPARAMS: processor idle states ----

// What is asked for.
enum : DWORD { CPU_QUERY_WORKAROUND, CPU_QUERY_POLLING_DURATION, CPU_QUERY_C4_THRESHOLD };

enum : DWORD { CPU_SELECT_C3 = 3, CPU_SELECT_C4 = 4 };

// ---- DYTC: thermal control ----

enum : DWORD {
    DYTC_QUERY_REVISION = 0x000,
    DYTC_QUERY_FUNCTION_CAPABILITY = 0x003,
    DYTC_QUERY_SYSTEM_CONTROL_MODE = 0x100,
    DYTC_SET_NOMINAL_MODE = 0x001,
    DYTC_SET_COOL_QUIET_MODE = 0x101,
    DYTC_SET_HIGH_PERFORMANCE_MODE = 0x201,
};

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
enum ThermalFunction : DWORD {
    THERMAL_STANDARD,
    THERMAL_COOL_QUIET_ON_LAPTOP,
    THERMAL_TWO_IN_ONE,
    THERMAL_MULTI_PIVO_HINGE,
    THERMAL_SKIN_TEMPERATURE_PROTECTION,
    THERMAL_COOL_QUIET_HINGE,
    THERMAL_DYNAMIC_CPU_CONTROL,
    THERMAL_SINGLE_FAN,
    THERMAL_DOCK_MODE_CONTROL,
    THERMAL_FORCE_HIGH_PERFORMANCE,
    THERMAL_FUNCTION_COUNT
};

// Whether the capability word announces the function.
constexpr bool DytcAnnounces(DWORD capability, DWORD function) {
    return (capability & (1u << (16 + function))) != 0;
}

// The current setting of the system-wide mode in the capability word of version 2.
enum : DWORD {
    TMCT_CURRENT_SETTING_NOMINAL_MODE,
    TMCT_CURRENT_SETTING_COOL_QUIET_MODE,
    TMCT_CURRENT_SETTING_HIGH_PERFORMANCE_MODE,
};
constexpr DWORD DytcCurrentSetting(DWORD capability) {
    return (capability >> 8) & 0xF;
}

// The mode field of a function that has no modes, or that is switched off.
constexpr DWORD THERMAL_NO_MODE = 0xF;

// A set word: command 0x001 in bits 0 to 11, function in 12 to 15, mode in 16 to 19, on or off in bit 20.
constexpr DWORD ThermalSetWord(ThermalFunction function, DWORD mode, bool on) {
    return 0x001u | (function << 12) | (mode << 16) | (on ? 1u << 20 : 0u);
}
