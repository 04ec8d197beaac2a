/* The interface of the power-management service ZORPMSVC for client programs: its control codes, registry
 * keys, values and bits. C and C++; include <windows.h> first. The service itself is built with this file.
 *
 * All keys lie under HKEY_LOCAL_MACHINE unless said otherwise, and every value is a REG_DWORD of four bytes
 * unless said otherwise: whatever has another type or size counts as absent. "Default value" is the key's
 * unnamed value.
 *
 * Programs of 32 bits open the keys below SOFTWARE with KEY_WOW64_64KEY; SYSTEM has one view only.
 */
#ifndef ZORPM_ZORPM_H
#define ZORPM_ZORPM_H

/* ---- the service ---- */

#define ZORPM_SERVICE_NAME L"ZORPMSVC"

/* Service-specific exit codes of a failed start (Win32 exit code 1066, ERROR_SERVICE_SPECIFIC_ERROR). */
#define ZORPM_START_NO_THREAD 680001u /* the notification thread could not be created */
#define ZORPM_START_NO_DRIVER 680002u /* the driver could not be opened in 11 attempts, 300 ms apart */
#define ZORPM_START_NO_EVENT  680003u /* the stop event could not be created */

/* ---- control codes ----
 * For ControlService; the handle needs SERVICE_USER_DEFINED_CONTROL. X(code, name, what it does). On
 * cooling interface 2, 134 and 135 switch the one mode of the whole system.
 */
#define ZORPM_CONTROL_CODES(X)                                                                               \
    X(130, MONITOROFF, "turn the monitor off")                                                               \
    X(131, LCDCS_STARTINHIBITLIDEVENT, "start a lid inhibit")                                                \
    X(132, LCDCS_STOPINHIBITLIDEVENT, "end the lid inhibit")                                                 \
    X(133, LCDCS_GETINHIBITCAPABILITY, "lid-inhibit capability and state")                                   \
    X(134, SET_ADAPTIVE_COOLING_DISABLE, "disable thermal function Two In One")                              \
    X(135, SET_ADAPTIVE_COOLING_ENABLE, "enable thermal function Two In One")                                \
    X(136, SET_ADAPTIVE_COOLING_START, "start adaptive cooling")                                             \
    X(137, SET_ADAPTIVE_COOLING_STOP, "stop adaptive cooling")                                               \
    X(138, SET_ADAPTIVE_COOLING_RESTART, "restart adaptive cooling")                                         \
    X(139, SET_ADAPTIVE_COOLING_DYNAMIC_CPU_CONTROL_DISABLE, "disable thermal function Dynamic Cpu Control") \
    X(140, SET_ADAPTIVE_COOLING_DYNAMIC_CPU_CONTROL_ENABLE, "enable thermal function Dynamic Cpu Control")   \
    X(141, SET_ADAPTIVE_COOLING_DYNAMIC_ON_HAND_UNDETECTED, "the device is no longer held in the hand")      \
    X(142, SET_ADAPTIVE_COOLING_DYNAMIC_ON_HAND_DETECTED, "the device is held in the hand")                  \
    X(251, DEBUG_5, "nothing; reserved for debugging")                                                       \
    X(252, DEBUG_4, "nothing; reserved for debugging")                                                       \
    X(253, DEBUG_3, "nothing; reserved for debugging")                                                       \
    X(254, DEBUG_2, "nothing; reserved for debugging")                                                       \
    X(255, DEBUG, "nothing; reserved for debugging")

enum {
#define ZORPM_CONTROL_CODE(code, name, words) SERVICE_CONTROL_MESSAGE_##name = (code),
    ZORPM_CONTROL_CODES(ZORPM_CONTROL_CODE)
#undef ZORPM_CONTROL_CODE
};

/* Answers of 133, the service-specific exit code beside 1066. An answer of 0 is not reported: an older one
 * stands. */
#define ZORPM_INHIBIT_OFF 2u
#define ZORPM_INHIBIT_ON  3u

/* An inhibit ends when the lid has been closed for this long, in milliseconds. Inhibits are not counted: the
 * first 132 ends the inhibits of all programs. */
#define ZORPM_INHIBIT_LIMIT_MS 300000u

/* ---- capabilities; written by the service at every start, deleted at its stop ---- */

#define ZORPM_CAPABILITY_KEY      L"Software\\ZOR\\ZORPM"
#define ZORPM_CAPABILITY_LID_BEEP L"CapaLidBeep"     /* 1: the lid-close beep is supported */
#define ZORPM_CAPABILITY_CODES    L"SvcCtrlCodeCapa" /* mask of the groups of control codes: 3 */
#define ZORPM_CAPABILITY_HIBERFILE                                                                           \
    L"HibFileCreation" /* 0 forbids the service to create the hibernation file; */
                       /* yours to set: created with 1 when missing */

/* ---- the service's own key; the keys below are under it ---- */

#define ZORPM_SERVICE_KEY L"SYSTEM\\CurrentControlSet\\Services\\ZORPMSVC"

/* ---- hot keys ----
 * Bit n-1 of a mask stands for hot key n of its page (1 to 32). Page 1 is the classic page.
 */
#define ZORPM_BIT(n) (1u << ((n)-1u))

#define ZORPM_HOTKEY_VERSION_KEY ZORPM_SERVICE_KEY L"\\Parameters\\InterfaceVersion"
#define ZORPM_HOTKEY_VERSION_100 0x102u /* default value on firmware 0x100: page 1 only */
#define ZORPM_HOTKEY_VERSION_200 0x201u /* default value on firmware 0x200: pages 1 to 3 */

/* Page 1. */
#define ZORPM_HOTKEY_CAPABILITY_KEY ZORPM_SERVICE_KEY L"\\Parameters\\Capability"
/* default value: hot keys that the firmware can hand over; service, every start */
#define ZORPM_HOTKEY_INTERNAL          L"IsExistPMInternalFunction" /* those with an action of the service's own */
#define ZORPM_HOTKEY_CAN_BE_OVERRIDDEN L"OverrideCapability" /* those whose action a client can take over */
#define ZORPM_HOTKEY_EVENTS            L"Type2"              /* event notifications that exist: 0x7fffffff */
#define ZORPM_OVERRIDE_MASK            0x804u                /* of both: hot keys 3 and 12 */

#define ZORPM_HOTKEY_SETTING_KEY ZORPM_SERVICE_KEY L"\\Parameters\\CurrentSetting"
/* default value: bit set NOTIFY, clear BIOS; the service at every start, then clients */
#define ZORPM_HOTKEY_OVERRIDE_KEY ZORPM_SERVICE_KEY L"\\Parameters\\OverrideSetting"
/* default value: bit set, the client has taken the action over; clients. Kept across restarts */
#define ZORPM_NOTIFICATION_KEY ZORPM_SERVICE_KEY L"\\Parameters\\Notification"
/* default value: a bit flips with every press while the setting is not 0; service */
#define ZORPM_TYPE2 L"Type2" /* bit k-1 flips with event notification k; service; 0 at every start */

/* Pages 2 and 3. */
#define ZORPM_PAGES_CAPABILITY_KEY ZORPM_SERVICE_KEY L"\\Parameters2\\Type10\\Capability"
#define ZORPM_PAGES_SETTING_KEY    ZORPM_SERVICE_KEY L"\\Parameters2\\Type10\\CurrentSetting"
/* Setting: the page-2 mask that clients want is the default value, made by the first client that changes it
 * (start from "Type12", what the firmware had at the start); the page-3 mask is "Type13". */
#define ZORPM_PAGES_OVERRIDE_KEY ZORPM_SERVICE_KEY L"\\Parameters2\\Type10\\OverrideSetting"
/* reserved: these hot keys have no action of the service's own */
#define ZORPM_PAGES_NOTIFICATION_KEY ZORPM_SERVICE_KEY L"\\Parameters2\\Type10\\Notification"
#define ZORPM_TYPE11                 L"Type11" /* 0 */
#define ZORPM_TYPE12                 L"Type12" /* of page 2 */
#define ZORPM_TYPE13                 L"Type13" /* of page 3 */

/* Programs that change a mask read, change and write it under this mutex, held for no longer. */
#define ZORPM_MASK_MUTEX L"Global\\ZORPMSVC hot-key masks"

/* ---- event notifications: bit k-1 flips when it occurs ----
 * X(k, name, event code, what has happened)
 */
#define ZORPM_TYPE2_NOTIFICATIONS(X)                                                                         \
    X(1, EVENT_7000, 0x7000, "event code 0x7000")                                                            \
    X(2, EVENT_500B, 0x500B, "event code 0x500B")                                                            \
    X(3, EVENT_500C, 0x500C, "event code 0x500C")                                                            \
    X(5, LID_CLOSED, 0x5001, "lid closed")                                                                   \
    X(6, LID_OPENED, 0x5002, "lid opened")                                                                   \
    X(8, EVENT_3006, 0x3006, "event code 0x3006")                                                            \
    X(9, EVENT_6030, 0x6030, "event code 0x6030")                                                            \
    X(10, EVENT_5030, 0x5030, "event code 0x5030")                                                           \
    X(11, DOCK_MODE_4010, 0x4010, "dock mode changed (0x4010)")                                              \
    X(12, DOCK_MODE_4011, 0x4011, "dock mode changed (0x4011)")                                              \
    X(13, NUMLOCK, 0x6000, "NumLock changed")                                                                \
    X(14, FN_STICKY, 0x6005, "sticky Fn changed")                                                            \
    X(15, PEN_LOST, 0x500D, "pen lost")                                                                      \
    X(16, AC_ADAPTER, 0x6040, "AC adapter changed")                                                          \
    X(17, BRIGHTNESS, 0x6050, "brightness changed")                                                          \
    X(18, MEDIA_KEY, 0x6060, "media key changed")                                                            \
    X(19, WOKE_TO_HIBERNATE, 0x6070, "woke to hibernate (S3 to S4)")                                         \
    X(20, WOKE_TO_SLEEP, 0x6080, "woke to sleep (S4 to S3)")                                                 \
    X(21, FAST_FLASH_STANDBY, 0x0015, "fast flash standby changed")                                          \
    X(22, SHOCK_SHIELD_BUTTON, 0x6090, "shock-shield button changed")                                        \
    X(23, KEYBOARD_LIGHT_DEVICE, 0x6001, "keyboard-light device changed")                                    \
    X(24, INSTANT_ON, 0x60D0, "instant-on settings")                                                         \
    X(25, TOUCHPAD, 0x60A0, "touchpad changed")                                                              \
    X(26, PRESENCE, 0x60B0, "presence detected")                                                             \
    X(27, NO_PRESENCE, 0x60B1, "presence no longer detected")                                                \
    X(28, TABLET_MODE, 0x5009, "tablet mode")                                                                \
    X(29, NOTEBOOK_MODE, 0x500A, "notebook mode")                                                            \
    X(30, TRANSFORMATION, 0x60C0, "transformation changed")                                                  \
    X(31, ROTATION_LOCK_BUTTON, 0x6020, "rotation-lock button pressed")

#define ZORPM_TYPE22_NOTIFICATIONS(X)                                                                        \
    X(1, DOG_EAR, 0x5020, "dog-ear changed")                                                                 \
    X(2, LAY_FLAT, 0x5012, "lay-flat state changed")                                                         \
    X(3, OPTION_ATTACHED, 0x4012, "keyboard option attached")                                                \
    X(4, OPTION_DETACHED, 0x4013, "keyboard option detached")                                                \
    X(5, KEYBOARD_LIGHT_MODE, 0x60E0, "keyboard-light control mode changed")                                 \
    X(6, HINGE_ANGLE, 0x60F0, "thermal transformation changed")                                              \
    X(7, GRAPHICS_TEMPERATURE, 0x6031, "temperature of the discrete graphics changed")                       \
    X(8, THERMAL_COMMAND_COMPLETED, 0x6032, "thermal-control set command completed")

enum {
#define ZORPM_NOTIFICATION(k, name, code, words) ZORPM_TYPE2_##name = (k),
    ZORPM_TYPE2_NOTIFICATIONS(ZORPM_NOTIFICATION)
#undef ZORPM_NOTIFICATION
#define ZORPM_NOTIFICATION(k, name, code, words) ZORPM_TYPE22_##name = (k),
        ZORPM_TYPE22_NOTIFICATIONS(ZORPM_NOTIFICATION)
#undef ZORPM_NOTIFICATION
};

/* "Type22": family Type20, on firmware 0x200 and later. "Type21" is 0. */
#define ZORPM_TYPE20_CAPABILITY_KEY   ZORPM_SERVICE_KEY L"\\Parameters2\\Type20\\Capability"
#define ZORPM_TYPE20_NOTIFICATION_KEY ZORPM_SERVICE_KEY L"\\Parameters2\\Type20\\Notification"
#define ZORPM_TYPE21                  L"Type21"
#define ZORPM_TYPE22                  L"Type22" /* service; 0 at every start */

/* ---- posture and lid; written by the service ---- */

#define ZORPM_POSTURE_KEY ZORPM_SERVICE_KEY L"\\Transform\\CurrentStatus"
#define ZORPM_POSTURE     L"MM"  /* the posture, below */
#define ZORPM_LID         L"Lid" /* the lid, below */

/* X(number, name in C, name in the registry, words). Any other number is an unknown posture. */
#define ZORPM_POSTURES(X)                                                                                    \
    X(0, NOT_RECEIVED, L"UNKNOWN", "not reported yet")                                                       \
    X(1, NOTEBOOK, L"LAPTOP", "notebook")                                                                    \
    X(2, LAYFLAT, L"LAYFLAT", "lay-flat")                                                                    \
    X(3, TABLET, L"TABLET", "tablet")                                                                        \
    X(4, STAND, L"STAND", "stand")                                                                           \
    X(5, TENT, L"TENT", "tent")

enum {
#define ZORPM_POSTURE_NUMBER(number, name, mode, words) ZORPM_POSTURE_##name = (number),
    ZORPM_POSTURES(ZORPM_POSTURE_NUMBER)
#undef ZORPM_POSTURE_NUMBER
};

#define ZORPM_LID_UNKNOWN 0u
#define ZORPM_LID_CLOSED  1u
#define ZORPM_LID_OPEN    2u

#define ZORPM_MULTIMODE_KEY        L"SOFTWARE\\Mestra\\MultiMode"
#define ZORPM_MULTIMODE_CURRENT    L"CurrentMode"         /* the posture; 0 for a moment in every refresh */
#define ZORPM_MULTIMODE_PREVIOUS   L"PrevMode"            /* REG_SZ: mode name of the posture before */
#define ZORPM_MULTIMODE_STAMP      L"ModeChangeTimeStamp" /* REG_SZ: local time of the last publication */
#define ZORPM_MULTIMODE_PREV_STAMP L"PrevTimeStamp"       /* REG_SZ: the time stamp before */

#define ZORPM_DOLBY_KEY     L"SOFTWARE\\Dolby\\DAX" /* only where the audio software has made it */
#define ZORPM_DOLBY_POSTURE L"MultimodeFormFactor"

#define ZORPM_TRANSFORM_SETTINGS_KEY ZORPM_SERVICE_KEY L"\\Transform\\Parameters"
#define ZORPM_TRANSFORM_CHECK_BUTTON                                                                         \
    L"ChkINode" /* yours, default 1: leave indicators to Intel's button device */
#define ZORPM_TRANSFORM_CHECK_BUILD L"ChkOSV" /* yours, default 0; 1: no indicators on builds up to 9600 */

/* ---- screen rotation on the Harrow platform ---- */

#define ZORPM_ROTATION_KEY    ZORPM_SERVICE_KEY L"\\Configurations\\ScreenRotation"
#define ZORPM_ROTATION_HARROW L"HRSPMode" /* service: 1 on a Harrow platform */
#define ZORPM_STATUS_KEY      ZORPM_SERVICE_KEY L"\\Status"
#define ZORPM_STATUS_LAST                                                                                    \
    L"LastSystemTransformation" /* service: 1 notebook, 0 tablet: the last such event                        \
                                 */

/* Windows' own setting. */
#define ZORPM_AUTOROTATION_KEY    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AutoRotation"
#define ZORPM_AUTOROTATION_ENABLE L"Enable" /* bit 0 set: the screen rotates by itself */

/* ---- adaptive cooling ----
 * The switches are changed by control codes, not by writing them: a value that was written is read at the
 * next initialisation (138).
 */
#define ZORPM_COOLING_V2_KEY  ZORPM_SERVICE_KEY L"\\TMCT\\Parameters" /* interface 2 */
#define ZORPM_COOLING_V3_KEY  ZORPM_SERVICE_KEY L"\\TMC"              /* interface 3 */
#define ZORPM_COOLING_VERSION L"Version"                              /* 0x2001 or 0x3000; service */

#define ZORPM_COOLING_CAPABILITY L"Capability"     /* 1: works here; service */
#define ZORPM_COOLING_SETTING    L"CurrentSetting" /* the user's switch: not 0 enabled; 134, 135, 139, 140 */
#define ZORPM_COOLING_STATUS     L"CurrentStatus"  /* interface 3: what was applied last; service */
#define ZORPM_COOLING_INIT       L"INIT" /* interface 2, yours: seconds until the mode is set again, 20 */
#define ZORPM_COOLING_SPECIAL    L"SPCT" /* interface 2, yours: seconds of special cooling, 0 */

/* The subkeys of ZORPM_COOLING_V3_KEY. X(bit of the function in the firmware's words, subkey, name, what
 * "CurrentStatus" holds). */
#define ZORPM_COOLING_FUNCTIONS(X)                                                                           \
    X(2, TIO, "Two In One", "1 or 0, by the last command")                                                   \
    X(3, MPH, "Multi Pivo Hinge", "the posture reported")                                                    \
    X(5, CQH, "Cool Quiet Hinge", "the thermal mode reported")                                               \
    X(6, DCC, "Dynamic Cpu Control", "the graphics temperature level reported")                              \
    X(8, DMC, "Dock Mode Control", "1 docked, 0 undocked")                                                   \
    X(9, FHP, "Force High Performance", "0")

/* Two more values of TIO; service. */
#define ZORPM_TIO_OPTION          L"CurrentOptionStatus" /* the tablet option, the keyboard: */
#define ZORPM_TIO_OPTION_NONE     1u
#define ZORPM_TIO_OPTION_ATTACHED 2u
#define ZORPM_TIO_ON_HAND         L"CurrentOnHandStatus" /* 1 held in the hand, 0 no longer */

/* ---- processor idle states; written by the service where the driver asks for the control ---- */

#define ZORPM_CPU_KEY       ZORPM_CAPABILITY_KEY L"\\CPUControl"
#define ZORPM_CPU_WANTED    L"Workaround"      /* yours: 0 turns the control off */
#define ZORPM_CPU_USE       L"UseRegValue"     /* yours: not 0, the next two are taken from here */
#define ZORPM_CPU_POLLING   L"PollingDuration" /* seconds between two looks */
#define ZORPM_CPU_THRESHOLD L"C4TimerReso"     /* C4 above this tenth of the timer resolution, else C3 */

/* ---- the helper of each session ----
 * SendMessageW(FindWindowW(ZORPM_HELPER_CLASS, NULL), RegisterWindowMessageW(ZORPM_HELPER_MESSAGE), command,
 * argument); the result is the command's.
 */
#define ZORPM_HELPER_CLASS   L"PmHelperWindowClass"
#define ZORPM_HELPER_MESSAGE L"PmHelperMessage"

#define ZORPM_HELPER_SAVE_GLOBAL_POLICY  1u /* the global power policy into the store */
#define ZORPM_HELPER_SAVE_SCHEME_INDEX   2u /* index of the active scheme into the store */
#define ZORPM_HELPER_SAVE_USER_POLICY    3u /* user part of the active scheme into the store */
#define ZORPM_HELPER_RESTORE_USER_POLICY 4u /* and back */
#define ZORPM_HELPER_MONITOR_OFF         5u /* result: index of the active scheme */
#define ZORPM_HELPER_ACTIVATE_SCHEME     6u /* the scheme whose index is the argument */

/* The helper store, under HKEY_CLASSES_ROOT; values are REG_BINARY. */
#define ZORPM_HELPER_STORE        L"QWRSAUTO.PMHELPER"
#define ZORPM_HELPER_POLICIES     L"PowerPolicies"    /* subkey with the next two */
#define ZORPM_HELPER_SCHEME_INDEX L"CurrentPwrPolicy" /* 4 bytes */
#define ZORPM_HELPER_POLICY       L"Policies"         /* 80 bytes: USER_POWER_POLICY */
#define ZORPM_HELPER_GLOBAL       L"GlobalPowerPolicy" /* subkey with "Policies", 176: GLOBAL_USER_POWER_POLICY */

#endif
