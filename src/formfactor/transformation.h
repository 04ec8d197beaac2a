// Screen rotation on the Harrow platform, and the platform checks at start.
#pragma once

#include <windows.h>

// Start-up steps, service thread. Results are of no interest to the caller.
BOOL InitSystemTransformationNotebookMode();
BOOL CheckLegacyTabletModel();

// Event actions of the notebook-mode and tablet-mode events.
BOOL NotebookScreenRotationFunctionality();
BOOL TabletScreenRotationFunctionality();
