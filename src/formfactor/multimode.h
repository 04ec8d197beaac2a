// The multimode posture of the hinge: what the firmware reports, the form-factor refresh and the
// transformation event.
#pragma once

#include <windows.h>

// The form-factor refresh: start-up, resume and monitor-on. Always 1.
BOOL SystemTransformationGetCurrentSystemStatus();

// The firmware's posture word; the low 16 bits are the multimode state. *word is written only on success.
BOOL SystemTransformationGetCurrentSystemStatus(DWORD* word);

// Publishes the posture that the firmware reports now, and moves the laptop/slate indicator accordingly. 0
// when the firmware does not answer (then nothing changes), knows a state that has no row, or the indicator
// cannot be driven.
BOOL SystemTransformationEventActionChangeTransformation();

// Publish the lid as the lid events tell it. Always 1.
BOOL PublishLidClosed();
BOOL PublishLidOpen();
