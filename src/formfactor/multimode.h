// The multimode posture: the form-factor refresh and the transformation event.
#pragma once

#include <windows.h>

// The form-factor refresh: start-up, resume and monitor-on. Always 1.
BOOL SystemTransformationGetCurrentSystemStatus();

// Publishes the posture that the firmware reports now.
BOOL SystemTransformationEventActionChangeTransformation();
