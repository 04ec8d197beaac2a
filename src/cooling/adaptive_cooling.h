// Adaptive cooling: the entry points that service, events and form factor call. Each returns nonzero on
// success; no caller depends on it.
#pragma once

#include <windows.h>

// Life: service start and stop, control codes 136 to 138.
BOOL StartAdaptiveCooling();
BOOL TerminateAdaptiveCooling();
BOOL RestartAdaptiveCooling();

// Routed by the interface version.
BOOL AdaptiveCoolingRiseAttachEventOfTwoInOne();
BOOL AdaptiveCoolingRiseDetachEventOfTwoInOne();
BOOL AdaptiveCoolingEnableCurrentSettingsOfTwoInOne();
BOOL AdaptiveCoolingDisableCurrentSettingsOfTwoInOne();
BOOL AdaptiveCoolingDetectOnHand();
BOOL AdaptiveCoolingUndetectOnHand();
BOOL AdaptiveCoolingEnterFlipMode();
BOOL AdaptiveCoolingExitFlipMode();

// Not routed: they act whatever the version.
BOOL AdaptiveCoolingRiseEventOfPivoModeChange();
BOOL AdaptiveCoolingRiseEventOfCoolQuietHingeAngle();
BOOL AdaptiveCoolingRiseEventOfDynamicCpuControl();
BOOL AdaptiveCoolingRiseEventOfDockModeControlChange();
BOOL AdaptiveCoolingEnableDynamicCpuControlSettings_v3();
BOOL AdaptiveCoolingDisableDynamicCpuControlSettings_v3();
