// The service's monitor-off request with its dialog.
#pragma once

#include <windows.h>

// Thread procedure; the parameter points to a process-wide std::atomic<DWORD> whose low 29 bits are the
// power-scheme index. Before Vista, and in the console session, shows the dialog twice and turns the monitor
// off behind the second; ends at once otherwise. A request while another one's dialog is up ends without
// touching it. Always 0.
DWORD WINAPI MonitorOffRequestThreadProc(void* parameter);
