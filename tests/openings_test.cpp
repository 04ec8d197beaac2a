// Which operation opens which device and which key, with which rights. The machine refuses, as a violation,
// every opening of a device that the request does not come by; the rows here say it of the keys, and that the
// machine looks.
#include <set>
#include <sstream>

#include "driver/device.h"
#include "sim/windows/registry_tree.h"
#include "tests/support/bench.h"

static std::string right_names(REGSAM access) {
    static const struct {
        REGSAM rights;
        const char* name;
    } rows[] = {{KEY_ALL_ACCESS, "all"},
                {KEY_READ | KEY_WRITE, "read write"},
                {KEY_READ | KEY_SET_VALUE, "read set"},
                {KEY_READ, "read"},
                {KEY_WRITE, "write"},
                {KEY_QUERY_VALUE, "query"},
                {KEY_QUERY_VALUE | KEY_SET_VALUE, "query set"},
                {KEY_QUERY_VALUE | KEY_NOTIFY, "query notify"},
                {KEY_QUERY_VALUE | KEY_NOTIFY | KEY_SET_VALUE, "query notify set"},
                {KEY_NOTIFY, "notify"}};
    for (const auto& row : rows) {
        if (row.rights == access)
            return row.name;
    }
    return sim::format("0x%x", access);
}

// Who has opened which key with which rights, a line each.
static void add_openings(std::set<std::string>* lines) {
    for (const sim::KeyOpening& opening : sim::registry().openings) {
        const sim::Process& process = *opening.process;
        const std::string who = process.is_service ? "service" : process.command_line;
        const std::string plain = sim::plain_path(opening.path);
        const std::string key = sim::shown_path(std::string_view(plain).substr(0, plain.size() - 1));
        lines->insert(who.substr(0, who.find(' ')) + ": " + key + ": " + right_names(opening.access));
    }
}

// Everything that opens a key, in few machines. What the steps do is other tests' matter.
static const char* const g_everything[] = {
    R"(
        firmware DYTC = 1 | firmware DYTC(0) = 0x30000001 | firmware DYTC(3) = 0x03ff0001
        firmware GOPT(0) = 0x102 | firmware MHKA = 0x00ff0fff
        registry set HKLM\SOFTWARE\Dolby\DAX
        registry set HKLM\SOFTWARE\Wow6432Node\Mestra\ENERDSK\Path @ sz "C:\Program Files\Mestra"
        start | advance 5s | windows hibernate forbidden | event 0x100C | event 0x1101
        event 0x4012 | event 0x5001 | run "zorpmctl" watch | run "zorpmctl" status
        run "zorpmctl" hotkey list | run "zorpmctl" hotkey notify 2:3
        run "zorpmctl" hotkey notify 12 | run "zorpmctl" hotkey override 12 | interrupt zorpmctl
        run "-PnPTask" | run "-helper" | helper 1 | helper 2 | helper 3 | helper 4)",
    R"(
        firmware DYTC(0) = 0x20000001 | firmware DYTC(0x100) = 0x20010000
        firmware DYTC(3) = 0x201 | start | advance 30s | run "zorpmctl" status)",
    R"(
        registry set HKLM\HARDWARE\DESCRIPTION\System\BIOS BIOSVersion sz "GDET40W"
        registry set HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AutoRotation Enable dword 1
        start | advance 1s | event 0x5009 | run "zorpmctl" TabletToClamshellForHarrow
        advance 1s)",
    R"(
        windows version 5.2
        registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Winlogon" AltDefaultDomainName sz "X"
        registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Winlogon" AltDefaultUserName sz "anna"
        windows account anna S-1-5-9
        registry set "HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\ProfileList\S-1-5-9" ProfileImagePath sz "C:\Users\A"
        windows hive "C:\Users\A\ntuser.dat" "Control Panel\PowerCfg" CurrentPowerPolicy sz "4"
        windows hive "C:\Users\A\ntuser.dat" "Control Panel\PowerCfg\GlobalPowerPolicy" Policies binary 01
        windows hive "C:\Users\A\ntuser.dat" "Control Panel\PowerCfg\PowerPolicies\4" Policies binary 01
        start | advance 1s | control 130 | advance 5s)",
};

static const char g_allOpenings[] = R"(
-PnPTask: SVC: query notify
-helper: hkcr\qwrsauto.pmhelper\globalpowerpolicy: read write
-helper: hkcr\qwrsauto.pmhelper\powerpolicies: read
-helper: hkcr\qwrsauto.pmhelper\powerpolicies: read write
service: SVC\configurations: all
service: SVC\configurations\screenrotation: all
service: SVC\parameters2\type10\capability: write
service: SVC\parameters2\type10\currentsetting: query notify
service: SVC\parameters2\type10\currentsetting: query notify set
service: SVC\parameters2\type10\currentsetting: write
service: SVC\parameters2\type10\notification: write
service: SVC\parameters2\type10\overridesetting: query notify
service: SVC\parameters2\type10\overridesetting: read
service: SVC\parameters2\type10\overridesetting: write
service: SVC\parameters2\type20\capability: write
service: SVC\parameters2\type20\notification: all
service: SVC\parameters2\type20\notification: write
service: SVC\parameters\capability: all
service: SVC\parameters\currentsetting: all
service: SVC\parameters\currentsetting: query notify
service: SVC\parameters\interfaceversion: all
service: SVC\parameters\notification: all
service: SVC\parameters\overridesetting: all
service: SVC\status: all
service: SVC\tmc: all
service: SVC\tmc\cqh: all
service: SVC\tmc\dcc: all
service: SVC\tmc\dmc: all
service: SVC\tmc\fhp: all
service: SVC\tmc\mph: all
service: SVC\tmc\tio: all
service: SVC\tmct\parameters: all
service: SVC\transform\currentstatus: all
service: SVC\transform\parameters: all
service: hklm\hardware\description\system: read
service: hklm\hardware\description\system\bios: read
service: hklm\software\dolby\dax: all
service: hklm\software\mestra\multimode: read set
service: hklm\software\mestra\shortcutkey\applaunch\ex_3b: all
service: hklm\software\mestra\shortcutkey\applaunch\ex_3b\uiaccess: all
service: hklm\software\mestra\shortcutkey\applaunch\ex_3c: all
service: hklm\software\mestra\shortcutkey\applaunch\ex_3c\uiaccess: all
service: hklm\software\mestra\shortcutkey\applaunch\ex_3e: all
service: hklm\software\mestra\shortcutkey\applaunch\ex_3e\uiaccess: all
service: hklm\software\microsoft\windows nt\currentversion: read
service: hklm\software\microsoft\windows nt\currentversion\profilelist\s-1-5-9: read
service: hklm\software\microsoft\windows nt\currentversion\winlogon: read
service: hklm\software\microsoft\windows\currentversion\autorotation: all
service: hklm\software\wow6432node\mestra\enerdsk\path: read
service: hklm\software\zor\zorpm: read
service: hklm\software\zor\zorpm: read write
service: hklm\software\zor\zorpm\cpucontrol: read write
service: hku\.default\control panel\powercfg\globalpowerpolicy: read write
service: hku\.default\control panel\powercfg\powerpolicies\4: read write
service: hku\s-1-5-9: read
service: hku\s-1-5-9\control panel\powercfg: read
service: hku\s-1-5-9\control panel\powercfg\globalpowerpolicy: read
service: hku\s-1-5-9\control panel\powercfg\powerpolicies\4: read
zorpmctl: SVC: notify
zorpmctl: SVC\configurations\screenrotation: query
zorpmctl: SVC\parameters2\type10\capability: query
zorpmctl: SVC\parameters2\type10\currentsetting: query
zorpmctl: SVC\parameters2\type10\currentsetting: query set
zorpmctl: SVC\parameters2\type10\notification: query
zorpmctl: SVC\parameters2\type20\notification: query
zorpmctl: SVC\parameters\capability: query
zorpmctl: SVC\parameters\currentsetting: query
zorpmctl: SVC\parameters\currentsetting: query set
zorpmctl: SVC\parameters\interfaceversion: query
zorpmctl: SVC\parameters\notification: query
zorpmctl: SVC\parameters\overridesetting: query
zorpmctl: SVC\parameters\overridesetting: query set
zorpmctl: SVC\tmc: query
zorpmctl: SVC\tmc\cqh: query
zorpmctl: SVC\tmc\dcc: query
zorpmctl: SVC\tmc\dmc: query
zorpmctl: SVC\tmc\fhp: query
zorpmctl: SVC\tmc\mph: query
zorpmctl: SVC\tmc\tio: query
zorpmctl: SVC\tmct\parameters: query
zorpmctl: SVC\transform\currentstatus: query
zorpmctl: hklm\software\mestra\multimode: query
zorpmctl: hklm\software\microsoft\windows\currentversion\autorotation: query
zorpmctl: hklm\software\zor\zorpm: query
)";

TEST(Openings, KeysAreOpenedWithExactlyTheirRights) {
    std::vector<std::string> scripts(std::begin(g_everything), std::end(g_everything));
    scripts.emplace_back("start\nadvance 1s\n");
    for (int i = 0; i < 60; ++i) // a watch that is told of no change at all takes a new handle
        scripts.back() += "registry set SVC\\Parameters\\CurrentSetting @ dword 0\n";
    std::set<std::string> opened;
    for (const std::string& script : scripts) {
        Bench bench;
        bench.run(script);
        add_openings(&opened);
    }
    std::set<std::string> wanted;
    std::istringstream lines(g_allOpenings);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty())
            wanted.insert(line);
    }
    for (const std::string& line : opened)
        EXPECT_TRUE(wanted.contains(line)) << "surplus: " << line;
    for (const std::string& line : wanted)
        EXPECT_TRUE(opened.contains(line)) << "missing: " << line;
}

TEST(Openings, ADeviceIsOpenedAsItsRequestWants) {
    static const struct {
        const char* name;
        const wchar_t* path;
        DWORD access;
        DWORD share;
        DWORD flags;
        DWORD code;
        const char* violation; // null: allowed
    } rows[] = {
        {"query", PRIMARY_DEVICE, GENERIC_READ, FILE_SHARE_READ, 0, IOCTL_PMDRV_GMMS, nullptr},
        {"no access", PRIMARY_DEVICE, 0, FILE_SHARE_READ, 0, IOCTL_PMDRV_GMMS, "which no request uses"},
        {"no share", PRIMARY_DEVICE, GENERIC_READ, 0, 0, IOCTL_PMDRV_GMMS, "which no request uses"},
        {"overlapped", PRIMARY_DEVICE, GENERIC_READ, FILE_SHARE_READ, 0x40000000, IOCTL_PMDRV_GMMS, "flags"},
        {"another's", PRIMARY_DEVICE, FULL_ACCESS, FULL_SHARE, 0, IOCTL_PMDRV_GMMS, "GMMS: sent on"},
        {"version, first", PRIMARY_DEVICE, FULL_ACCESS, FULL_SHARE, 0, IOCTL_PMDRV_MHKV, nullptr},
        {"version, second", PRIMARY_DEVICE, GENERIC_READ, FILE_SHARE_READ, 0, IOCTL_PMDRV_MHKV, nullptr},
        {"tablet", PRIMARY_DEVICE, FULL_ACCESS, FILE_SHARE_READ, 0, IOCTL_PMDRV_TABGETSTATE, nullptr},
        {"family", SECONDARY_DEVICE, GENERIC_WRITE, FULL_SHARE, 0, IOCTL_PMDRV_SYSTEMFAMILY, nullptr},
        {"tablet's on secondary", SECONDARY_DEVICE, FULL_ACCESS, FILE_SHARE_READ, 0, IOCTL_PMDRV_CONNECT,
         "which no request uses"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        expect_violation(row.violation, [&row] {
            HANDLE device =
                CreateFileW(row.path, row.access, row.share, nullptr, OPEN_EXISTING, row.flags, nullptr);
            DWORD result = 0;
            EXPECT_TRUE(OneWordRequest(device, row.code, 0, &result));
            CloseHandle(device);
        });
    }
}
