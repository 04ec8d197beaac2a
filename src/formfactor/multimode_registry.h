// What the multimode posture leaves in the registry, for this service and for other programs.
#pragma once

#include <windows.h>
#include <atomic>

// The settings in "Transform\Parameters", as of the last refresh.
extern std::atomic<DWORD> g_dwCurrentSetting;
// 1: a machine with Intel's virtual-button device gets no form-factor support.
extern std::atomic<DWORD> g_dwChkINode;
// 1: a Windows build of 9600 or lower gets no form-factor support.
extern std::atomic<DWORD> g_dwChkOSV;

// Creates the service's transform keys where they are missing and reads the settings. 0 when a key cannot be
// opened.
BOOL SystemTransformationInitReg();

// Publishes a multimode state under all keys.
void SystemTransformationSetCurrentStatusToReg(DWORD state);

// The lid state as it is published. Nothing is written where the status key is missing.
enum : DWORD { LID_STATE_UNKNOWN, LID_STATE_CLOSED, LID_STATE_OPEN };
void PublishLidState(DWORD state);

// 1 when the Windows build is above 9600, else 0 (also when it cannot be read).
BOOL SystemTransformationIsWindows10orLater();
