// The power-management driver's devices: how they are found and opened, one request per opening.
#pragma once

#include "driver/ioctl.h"

// Access and sharing of the opening that most single requests use.
constexpr DWORD QUERY_ACCESS = GENERIC_READ;
constexpr DWORD QUERY_SHARE = FILE_SHARE_READ;
// Access and sharing of event retrieval, event registration and event dispatch.
constexpr DWORD FULL_ACCESS = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD FULL_SHARE = FILE_SHARE_READ | FILE_SHARE_WRITE;

// Opens an existing device (OPEN_EXISTING, no attributes, no template). INVALID_HANDLE_VALUE on failure, with
// the system's last error.
HANDLE OpenDevice(const wchar_t* path, DWORD access, DWORD share);

// Sends one code of the catalogue with the buffer sizes of its row, synchronously. `input` and `output` must
// be that large (null where the row says 0). `returned` takes the byte count as the driver reports it;
// whoever copies by it checks it against the output size. FALSE on failure, with the
// system's last error.
BOOL SendIoCode(HANDLE device, DWORD code, const void* input, void* output, DWORD* returned);

// One word in, one word out, on an open device. Rows without input ignore `argument`; rows with more than 4
// bytes are refused. `result` may be null; on success exactly the bytes that the driver returned (0 to 4) are
// copied to it, so initialise it before the call. FALSE when the request fails, with the system's last error;
// *result is then untouched.
BOOL OneWordRequest(HANDLE device, DWORD code, DWORD argument, DWORD* result);

// The same on the code's own device, opened with the given access and sharing and closed again. FALSE also
// when it cannot be opened (nothing is sent); the last error is that of the failing step.
BOOL SendOneWord(DWORD code, DWORD argument, DWORD* result, DWORD access = QUERY_ACCESS,
                 DWORD share = QUERY_SHARE);

// The start-up probe's handle. OpenPMDriver: TRUE when the primary device was opened; FALSE when it cannot be
// opened, or is open already (then nothing changes). ClosePMDriver: TRUE when there was an open handle to
// close. Service thread only.
BOOL OpenPMDriver();
BOOL ClosePMDriver();

// Searches all present devices for one whose hardware-id list has a string that contains `id`
// (case-sensitive). *found becomes 1 only for a match, else 0. Result TRUE: match, or the enumeration failed;
// FALSE: enumerated to the end without a match. Decide on *found.
BOOL FindDevice(const wchar_t* id, DWORD* found);

// Reads the machine's "SystemFamily" text, at most 256 bytes, into a buffer of SYSTEM_FAMILY_CHARACTERS. TRUE
// when it was read.
constexpr DWORD SYSTEM_FAMILY_CHARACTERS = 129;
BOOL GetSystemFamily(wchar_t* buffer);

// Sends IOCTL_PMDRV_SYSTEMFAMILY with the input 0. TRUE when the request succeeded.
BOOL SendSystemFamilyRequest();
