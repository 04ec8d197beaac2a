// Identifiers of the monitor-off dialog, for the sources and the resource compiler.
#pragma once

#define IDD_MONITOR_OFF      101
#define IDC_MONITOR_OFF_TEXT 1000
#define IDC_MONITOR_OFF_EDIT 1001
