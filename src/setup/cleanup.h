// The clean-up run ("-PnPTask"): removes the service once its driver package is gone.
#pragma once

#include <windows.h>

// FALSE only when no owner INF of the driver package is left; TRUE on any doubt.
BOOL GetPMDRVInstallStatus();

// Stops the services, deletes the tasks and starts the uninstall.
void DeleteServiceFiles();
