// Windows' laptop/slate, dock and button-injection device interfaces, and the firmware's own tablet state.
//
// Every operation looks its interface up, opens it without sharing, transfers one or two single bytes and
// closes it; nothing is cached, so any thread may call. The out parameter is written only on success. The
// thread's last error is the code of the first step that failed, and 0 on success.
#pragma once

#include <windows.h>

// Transformation state. An indicator may report other bytes; they are passed on unchanged.
constexpr DWORD TRANSFORMATION_TABLET = 0;
constexpr DWORD TRANSFORMATION_NOTEBOOK = 1;

// Dock state, likewise.
constexpr DWORD DOCK_UNDOCKED = 0;
constexpr DWORD DOCK_DOCKED = 1;

// The path of the first present interface of a class, or null. The caller gives it back with
// ReleaseDevicePath.
wchar_t* GetDevicePath(const GUID& interface_class);
void ReleaseDevicePath(wchar_t* path);

// The states that Windows holds now.
BOOL GetSystemTransformation(DWORD* state);
BOOL GetSystemDockingTransformation(DWORD* state);

// Make Windows change the indicator to its other state. The dock indicator takes the state that was just
// read.
BOOL ToggleConversionIndicator();
BOOL SetSystemDockingTransformation(BYTE state);

// One press of the rotation-lock button, which toggles Windows' rotation lock.
BOOL RotationLockButtonPress();

// The firmware's view, as a transformation state.
BOOL GetSystemTransformationFromBIOS(DWORD* state);
