// The service's monitor-off request with its dialog.
#pragma once

#include <windows.h>

// Thread procedure; the parameter points to a process-wide 32-bit word whose low 29 bits are the power-scheme index.
DWORD WINAPI MonitorOffRequestThreadProc(void* parameter);
