#include "sim/hunt/machines.h"

namespace hunt {

const char g_machines[] = R"(
surroundings:
    registry set HKLM\HARDWARE\DESCRIPTION\System\BIOS BIOSVersion sz "GD1"; registry set HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable dword 1; registry set HKLM\SOFTWARE\Dolby\DAX; firmware GOPT(0) = 0x102; firmware GOPT(0x100) = 1
thermal:
    firmware DYTC = 1; firmware DYTC(1) = 0; firmware DYTC(0x101) = 0; firmware DYTC(0x201) = 0; firmware DYTC(0x100) = 0x20010000; firmware DYTC(3) = 0x03ff0201
version_two:
    firmware DYTC(0) = 0x20000001
version_three:
    firmware DYTC(0) = 0x30000001
busy:
    firmware DYTC(0) = 0x30000001; firmware DYTC = 1; firmware DYTC(3) = 0x03ff0001; firmware GOPT(0) = 0x102; firmware GOPT(0x100) = 1
at_rest:
    firmware GMMS = {1-5}; firmware GOPT(0x200) = {0|2}; firmware GETLIDSTATUS = {2|3}

slow:
    firmware {GMMS|GOPT|DYTC|GETLIDSTATUS|MHKM|DGPUTEMP|THERMALMODE|DOCKMODE} takes {1ms|3ms|1ms..50ms|7s}
fast:
    firmware GMMS takes 0ms; firmware GOPT takes 0ms; firmware DYTC takes 0ms; firmware GETLIDSTATUS takes 0ms; firmware MHKM takes 0ms; firmware DGPUTEMP takes 0ms; firmware THERMALMODE takes 0ms; firmware DOCKMODE takes 0ms; firmware LCDCSGETSTATE takes 0ms

machine:
    firmware DYTC(0) = 0x{v=2|3|3}0000001; $bios; $windows; $user; $option*1-4
bios:
    registry set HKLM\HARDWARE\DESCRIPTION\System\BIOS BIOSVersion sz "{GD1|GCET|Q1AET40W|N0GET|G|}"
    registry set HKLM\HARDWARE\DESCRIPTION\System SystemBiosVersion multi "QQ - 1"
windows:
    *3 windows version {10.0|6.3|6.1}
    windows version 5.2
user:
    registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Winlogon" AltDefaultDomainName sz "CALDER"; registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Winlogon" AltDefaultUserName sz "anna"; windows account anna S-1-5-21-1-2-3-1001; registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\ProfileList\S-1-5-21-1-2-3-1001" ProfileImagePath expand "%SystemDrive%\Users\Anna"; windows hive "C:\Users\Anna\ntuser.dat" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4"; windows hive "C:\Users\Anna\ntuser.dat" "Control Panel\PowerCfg\PowerPolicies\4" Policies binary 01020304
    windows hibernate {allowed|forbidden}
option:
    registry set HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable dword {0|1}
    registry set HKLM\SOFTWARE\Dolby\DAX
    registry set SVC\TMCT\Parameters SPCT dword {0-3}
    windows graphics present
    windows power-settings at-registration
    windows rotation follows
    windows lid-action {0-3}
    windows hiberfile fails
    windows privilege SeShutdownPrivilege {denied|refused}
    windows powrprof missing
    windows suspend takes {1s|1m}
    device {slate|dock|button|stick} missing
    device {slate|dock|button} second present
    ini "C:\Windows\LidBeep.ini" LidCloseBeep Status {0|1}
    firmware MHKN = {0|1|129|0x80000000}
    firmware MHKV = {0x100|0x200|0x201|0}
    firmware PWMGET = {0|200|1000}
    firmware CSTATESELECT = {0-7}

good:
    $surroundings; $thermal; firmware DYTC(0) = 0x{@v}0000001; firmware GMMS = 1; firmware GOPT(0x200) = 0; firmware GETLIDSTATUS = 3; firmware LCDCSGETSTATE = 2; firmware DGPUTEMP = 1; firmware DYTC(0x1f0001) = 1
strange:
    driver {primary|secondary} missing
    driver missing for {1|5|100}s
    device {slate|dock|button} {read|write} fails
    firmware {CONNECT|MHKV|MHKA|MHKN|MHKM|GOPT|DYTC|GMMS|GETLIDSTATUS|CSTATESELECT|SYSTEMFAMILY|REGISTEREVENTS} {fails|= $word}
    firmware {CONNECT|DYTC|GOPT} takes {1|10|400}s
    registry refuse SVC\{Parameters|Parameters\CurrentSetting|Parameters2|TMC|TMC\TIO|TMCT\Parameters|Transform|Parameters\Notification}
    fail {CreateThread|CreateEventW|RegOpenKeyExW|RegCreateKeyExW|RegQueryValueExW|RegSetValueExW|DeviceIoControl|CreateFileW|LocalAlloc|CreateMutexW} {1-20}
    windows object "Global\$object" {event|mutex} {|denied}
object:
    {ZORPMSVC|Global|PMEvent}
word:
    {0|1|2|3|7|255|0x8000|0xffff|0x10000|0x7fffffff|0x80000000|0xffffffff|0-4095}

event:
    event {0x0015|0x1003|0x1005|0x100C|0x1101|0x1102|0x1301|0x2004|0x2005|0x2013|0x2020|0x2304|0x2404|0x3003|0x3006|0x4003|0x4010|0x4011|0x4012|0x4013}
    event {0x5001|0x5002|0x5007|0x5008|0x5009|0x500A|0x500B|0x500C|0x500D|0x5010|0x5012|0x5020|0x5030}
    event {0x6000|0x6001|0x6005|0x6011|0x6012|0x6020|0x6022|0x6030|0x6031|0x6032|0x6040|0x6050|0x60B0|0x60C0|0x60D0|0x60E0|0x60F0|0x7000|0x8000}
    event {0-65535} {0|1|0xffffffff}
control:
    control {130|131|132|133|134|135|136|137|138|139|140|141|142}
    control {134|135|137|138|139|140}
    handler {2|3|4|131|132|134|135}
power:
    handler power resume
    power {resume|monitor 0|monitor 1|event 4|event 7|event 18}
client:
    registry set SVC\Parameters\{Current|Override}Setting @ dword $word
    registry set SVC\Parameters2\Type10\{Current|Override}Setting {Type11|@|Type12|Type13} dword $word
    registry delete SVC\Parameters\{Current|Override}Setting @
    registry set SVC\TMCT\Parameters SPCT dword {0-3}
signal:
    signal {Sleep|Resume|NotifyEvent}
helper:
    run "-helper" session {1|2}
    helper session {1|2} {1|2|3|4|5|6} {0-7}
    helper session {1|2} close
    input {key|move 10 10|left|right}
answer:
    firmware GMMS = {1-7}
    firmware GOPT(0x200) = {0|1|2|4|8|$word}
    firmware {DGPUTEMP|THERMALMODE|DOCKMODE|GETLIDSTATUS|LCDCSGETSTATE} = {0-4}
    firmware {DYTC|GOPT|GMMS|GETLIDSTATUS|DGPUTEMP|MHKM} fails times {1-3}
    firmware {GMMS|GOPT|GETLIDSTATUS} = $word bytes {0-4}
    $slow
happening:
    *4 $event
    *4 $control
    *2 $power
    *2 $client
    $signal
    *3 $answer
    $helper
pause:
    advance {0|1|2|3|10|999|1000|1001|4999|5000}ms
    advance {1|2|5|20|30|100}s
disorder:
    *3 together; $happening*1-5; end; $pause
    within {10ms|1s|30s} $event; $pause
    within {10ms|1s|30s} $control; $pause
    $happening; $pause

round_of_all:
    event 0x5001; event 0x5002; event 0x4012; event 0x4013; event 0x4010; event 0x60C0; event 0x60F0; event 0x6031; event 0x1005; event 0x100C; advance 30s; event 0x2013; advance 10s; event 0x3003; advance 10s; control 133; control 134; control 135; control 137; control 138; handler power resume; advance 1m; event 0x5009; event 0x500A; control 131; advance 2s; control 132; advance 6m

quiet:
    repeat 60; handler 3; end; $fast; firmware CONNECT takes 0ms; firmware MHKM = 1; $good; driver present; windows suspend takes 0ms; advance 10m; repeat 12; event 0x60C0; event 0x4012; event 0x6031; end; repeat 12; input key; advance 1s; end; event 0x2304; advance 4m; control 132; control 137; advance 10m; control 136; advance 10m; helper session 1 close; helper session 2 close; advance 1m
truth:
    firmware GMMS = {p=1-5}; event 0x60C0; advance 1m; check registry SVC\Transform\CurrentStatus MM = {@p}; check registry HKLM\SOFTWARE\Mestra\MultiMode CurrentMode = {@p}
end:
    stop; advance 10m; check status STOPPED
)";

} // namespace hunt
