/* What a test asks of the stand-in driver (stand_in.c), by DeviceIoControl on its control device. Plain C,
 * for the driver and for programs. Every record is of whole words; a request whose buffers have another size
 * than is said here fails with ERROR_INVALID_PARAMETER, and changes nothing. The words are those of the
 * scenario language (docs/scenarios.md), and so are the rules: answers for an argument before those for all,
 * numbered ones before lasting ones. */
#ifndef TESTS_WINE_STAND_IN_H
#define TESTS_WINE_STAND_IN_H

#define STAND_IN_DEVICE L"\\\\.\\ZORPStandIn"

#define STAND_IN_CODE(function) ((0x22u << 16) | ((function) << 2))

#define STAND_IN_RESET  STAND_IN_CODE(0x800) /* all as on the bench's new machine; the log is empty */
#define STAND_IN_ANSWER STAND_IN_CODE(0x801) /* in: StandInAnswer */
#define STAND_IN_EVENT  STAND_IN_CODE(0x802) /* in: code, second word */
#define STAND_IN_LOG                                                                                         \
    STAND_IN_CODE(0x803) /* in: number; out: StandInRow from that number on, as many as fit */
#define STAND_IN_TAKES   STAND_IN_CODE(0x804) /* in: StandInTakes */
#define STAND_IN_HELD    STAND_IN_CODE(0x805) /* out: StandInHeld, oldest first, as many as fit */
#define STAND_IN_RELEASE STAND_IN_CODE(0x806) /* in: number of a held request, which is answered now */
#define STAND_IN_SIGNAL                                                                                      \
    STAND_IN_CODE(0x807) /* in: number of a driver's event; out: 1, or 0 when none is registered */
#define STAND_IN_PRESENT  STAND_IN_CODE(0x808) /* in: device, 1 present or 0 missing */
#define STAND_IN_STATE    STAND_IN_CODE(0x809) /* in: device; out: the byte of the indicator */
#define STAND_IN_CHANGE   STAND_IN_CODE(0x80A) /* in: device, the indicator's byte */
#define STAND_IN_FAILURES STAND_IN_CODE(0x80B) /* in: StandInFailures */
#define STAND_IN_OPENINGS                                                                                    \
    STAND_IN_CODE(0x80C) /* out: openings of all devices but this one that are not closed */
#define STAND_IN_NOTIFY                                                                                      \
    STAND_IN_CODE(0x80D) /* in: event (8 bytes, 0: none) to set when a request is held or logged */

#define STAND_IN_ALL 0xFFFFFFFFu /* of bytes: as many as there are; of failures: from now on */

/* The devices. Interfaces have two each, of which the second is missing at first. A missing one has no link:
 * opening it fails with error 2; and its interface is unlinked in the registry (devices.reg has the keys). */
enum {
    STAND_IN_SLATE,
    STAND_IN_DOCK,
    STAND_IN_BUTTON,
    STAND_IN_SLATE_2,
    STAND_IN_DOCK_2,
    STAND_IN_BUTTON_2,
    STAND_IN_PRIMARY,
    STAND_IN_SECONDARY,
    STAND_IN_STICK,
    STAND_IN_DEVICES
};
#define STAND_IN_INTERFACES 3

/* The driver's catalogue: name, code, device, bytes in and out. Any other request is refused, and logged so.
 */
// clang-format off
#define STAND_IN_METHODS(ROW) \
    ROW(LIDCLOSEACTIONNONE, 0x222410, STAND_IN_PRIMARY,   0,  0) \
    ROW(SETLIDBEEP,         0x222420, STAND_IN_PRIMARY,   4,  0) \
    ROW(MHKV,               0x222434, STAND_IN_PRIMARY,   4,  4) \
    ROW(MHKA,               0x222438, STAND_IN_PRIMARY,   4,  4) \
    ROW(MHKN,               0x22243C, STAND_IN_PRIMARY,   4,  4) \
    ROW(QCPULEVELCTRL,      0x222444, STAND_IN_PRIMARY,   4,  4) \
    ROW(CSTATESELECT,       0x222448, STAND_IN_PRIMARY,   0,  4) \
    ROW(CSTATEPARAMS,       0x22244C, STAND_IN_PRIMARY,   4,  0) \
    ROW(TABGETSTATE,        0x222510, STAND_IN_PRIMARY,   4,  4) \
    ROW(PWMGET,             0x22251C, STAND_IN_PRIMARY,   4,  4) \
    ROW(PWMSET,             0x222520, STAND_IN_PRIMARY,   4,  4) \
    ROW(GETLIDSTATUS,       0x222584, STAND_IN_PRIMARY,   4,  4) \
    ROW(LCDCSGETSTATE,      0x222590, STAND_IN_PRIMARY,   4,  4) \
    ROW(LCDCSCONTROL,       0x222594, STAND_IN_PRIMARY,   4,  4) \
    ROW(DOCKMODE,           0x2225A4, STAND_IN_PRIMARY,   4,  4) \
    ROW(GMMS,               0x222700, STAND_IN_PRIMARY,   4,  4) \
    ROW(DYTC,               0x22270C, STAND_IN_PRIMARY,   4,  4) \
    ROW(GOPT,               0x222728, STAND_IN_PRIMARY,   4,  4) \
    ROW(THERMALMODE,        0x222748, STAND_IN_PRIMARY,   4,  4) \
    ROW(DGPUTEMP,           0x22274C, STAND_IN_PRIMARY,   4,  4) \
    ROW(CONNECT,            0x222404, STAND_IN_SECONDARY, 4,  4) \
    ROW(GETEVENT,           0x222408, STAND_IN_SECONDARY, 0,  8) \
    ROW(MHKM,               0x222440, STAND_IN_SECONDARY, 8,  8) \
    ROW(GETTIMERRESOL,      0x222450, STAND_IN_SECONDARY, 0,  4) \
    ROW(REGISTEREVENTS,     0x2227D4, STAND_IN_SECONDARY, 48, 8) \
    ROW(UNREGISTEREVENTS,   0x2227D8, STAND_IN_SECONDARY, 48, 8) \
    ROW(SYSTEMFAMILY,       0x2227E4, STAND_IN_SECONDARY, 4,  4) \
    ROW(MOUSEDATA,          0xF30D8,  STAND_IN_STICK,     4,  0)
// clang-format on

/* Which requests something is said of: those of a code, with this first word or (`every`) with any. A request
 * without input has the first word 0. */
struct StandInWhich {
    ULONG code;
    ULONG every;
    ULONG argument;
};

/* The answer to the next `times` such requests behind those told before, or (0) the lasting one. A request
 * that fails has error 31. `bytes`: how many the driver says that there are, STAND_IN_ALL for as many as the
 * method has; of a fetched event they tell of the next fetch alone, a failed fetch keeps the event. */
struct StandInAnswer {
    struct StandInWhich which;
    ULONG fails;
    ULONG value;
    ULONG bytes;
    ULONG times;
};

/* How long such requests take: in turn, the last duration for all further ones; none or 0: no time. A request
 * that takes time is held until it is released: the driver has no clock, whoever releases it has. The answer
 * is chosen then. */
#define STAND_IN_DURATIONS 8
struct StandInTakes {
    struct StandInWhich which;
    ULONG count;
    ULONG milliseconds[STAND_IN_DURATIONS];
};

struct StandInHeld {
    ULONG number; /* of held requests, from 1; its row in the log comes when it is answered */
    ULONG code;
    ULONG argument;
    ULONG milliseconds;
    ULONG process;
};

/* The next `times` transfers of both devices of an interface fail (STAND_IN_ALL: all). */
struct StandInFailures {
    ULONG interface_number; /* STAND_IN_SLATE, _DOCK, _BUTTON */
    ULONG writes;           /* 0: reads */
    ULONG times;
};

enum {
    STAND_IN_ROW_REQUEST, /* of the catalogue: what it was answered */
    STAND_IN_ROW_READ,    /* of an indicator: value */
    STAND_IN_ROW_WRITE,   /* in[0]: the byte */
    STAND_IN_ROW_OPEN,    /* in[0]: share mode */
    STAND_IN_ROW_CLOSE,
    STAND_IN_ROW_REFUSED /* no request of the device, or with buffers of other sizes: in[0], in[1] are those
                          */
};

/* What came to the driver, in order. Numbers begin at 1 and have no gap; of more than STAND_IN_ROWS the
 * oldest are gone. */
#define STAND_IN_ROWS 4096
struct StandInRow {
    ULONG number;
    ULONG kind;
    ULONG device;
    ULONG code;
    ULONG in_bytes;
    ULONG in[2];
    ULONG failed;
    ULONG bytes; /* as the driver has said */
    ULONG out[2];
    ULONG process;
};

#endif
