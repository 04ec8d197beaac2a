/* What the runner asks of the notebook's stand-in driver (notebook.c), through its control device. Words of
 * 32 bits in and out. Plain C, for the driver and for programs. */
#ifndef RECORDER_RUNNER_NOTEBOOK_H
#define RECORDER_RUNNER_NOTEBOOK_H

#define NOTEBOOK_DEVICE L"\\\\.\\ZORPNotebook"

#define NOTEBOOK_CODE(function) ((0x22u << 16) | ((function) << 2))

#define NOTEBOOK_RESET NOTEBOOK_CODE(0x801) /* all as on a new machine */
#define NOTEBOOK_PRIME NOTEBOOK_CODE(0x802) /* in: fails, bytes, value of the answers to a code; the code */
#define NOTEBOOK_EVENT NOTEBOOK_CODE(0x803) /* in: code, second word */
#define NOTEBOOK_SIGNAL                                                                                      \
    NOTEBOOK_CODE(0x804) /* in: number of a registered event; out: 1 when there is one                       \
                          */
#define NOTEBOOK_SET_STATE NOTEBOOK_CODE(0x805) /* in: indicator (0 slate, 1 dock), its byte */
#define NOTEBOOK_STATE     NOTEBOOK_CODE(0x806) /* in: indicator; out: its byte */
#define NOTEBOOK_FAILURES                                                                                    \
    NOTEBOOK_CODE(0x807) /* in: interface, 0 read or 1 write, how many fail from now on */
#define NOTEBOOK_PRESENT NOTEBOOK_CODE(0x808) /* in: device, 1 present or 0 missing */
#define NOTEBOOK_HANDLES NOTEBOOK_CODE(0x809) /* out: openings that are not closed */

#define NOTEBOOK_ALL_BYTES 0xFFFFFFFFu

/* The devices, by number. */
enum {
    NOTEBOOK_SLATE,
    NOTEBOOK_DOCK,
    NOTEBOOK_BUTTON,
    NOTEBOOK_PRIMARY,
    NOTEBOOK_SECONDARY,
    NOTEBOOK_STICK,
    NOTEBOOK_DEVICES
};

#endif
