// The power setting that the service is told of.
#pragma once

#include <windows.h>

// GUID_MONITOR_POWER_ON; first data byte 0 off, 1 on, 2 dimmed.
constexpr GUID g_guidMonitorPowerOn = {
    0x02731015, 0x4510, 0x4526, {0x99, 0xE6, 0xE5, 0xA1, 0x7E, 0xBD, 0x1A, 0xEA}};
