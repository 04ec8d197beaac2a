// The clean-up run ("-PnPTask"): removes the service once its driver package is gone.
#pragma once

#include <windows.h>

// FALSE only when the service key names its owner INF files and none of them is in the INF store; TRUE on any
// doubt.
BOOL GetPMDRVInstallStatus();

// Stops the services, deletes the scheduled tasks, writes the INF copy and starts the uninstall without
// waiting for its end. Does nothing when COM is not to be had; any later failure leaves out what depends on
// it.
void DeleteServiceFiles();
