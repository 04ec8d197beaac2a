// Which machines are Harrow platforms, and what is set up on those.
#include "tests/support/bench.h"

// UTF-16 text as hexadecimal digits, without an end.
static std::string hex(const std::string& text) {
    std::string digits;
    for (const char character : text)
        digits += sim::format("%02x00", character);
    return digits;
}

TEST(HotkeyPlatform, TheMarkIsFoundWhereItCounts) {
    const std::string long_text(125, 'x');
    const struct {
        const char* name;
        std::string bios;   // TYPE DATA, or nothing: absent
        std::string system; // likewise
        std::uint64_t set_ups;
    } cases[] = {
        {"another notebook", "sz \"Q1AET40W\"", "multi \"QQ - 1\"", 0},
        {"neither value", "", "", 0},
        {"BIOS version, at its beginning", "sz \"GD1\"", "multi \"xxGDGD\"", 1},
        {"BIOS version, at its end", "sz \"N1GD\"", "", 1},
        {"G and D apart", "sz \"GxD\"", "multi \"xxGxD\"", 0},
        {"the other case", "sz \"gd\"", "multi \"xxgd\"", 0},
        {"BIOS version behind its end", "raw 1 " + hex(std::string("x\0GD", 4)), "", 0},
        {"BIOS version of 254 bytes, no end", "raw 1 " + hex(long_text + "GD"), "", 1},
        {"BIOS version of 255 bytes", "raw 1 " + hex(long_text + "GD") + "44", "", 1},
        {"BIOS version of 255 bytes, the D is half", "raw 1 " + hex(long_text + "xG") + "44", "", 0},
        {"BIOS version too long", "raw 1 " + hex(long_text + "GDx"), "multi \"xxGD\"", 1},
        {"BIOS version of another kind", "binary " + hex("GD"), "", 0},
        {"BIOS version empty", "raw 1", "multi \"xxGD\"", 1},
        {"system version, positions 0 and 1", "", "multi \"GDxx\"", 0},
        {"system version, position 1", "", "multi \"xGDx\"", 0},
        {"system version, position 2", "", "multi \"xxGD\"", 1},
        {"system version, twice", "", "multi \"xxGDGD\"", 2},
        {"the second string's beginning", "", "multi \"xx\" \"GD\"", 1},
        {"the second string behind one character", "", "multi \"x\" \"GD\"", 1},
        {"inside the second string", "", "multi \"xx\" \"xGD\"", 0},
        {"an empty first string", "", "multi \"\" \"GD\"", 0},
        {"system version of 254 bytes, no end", "", "raw 7 " + hex(long_text + "GD"), 1},
        {"system version of 255 bytes, the D is half", "", "raw 7 " + hex(long_text + "xG") + "44", 0},
        {"system version too long", "", "raw 7 " + hex(long_text + "GDx"), 0},
        {"system version as one string", "", "sz \"xxGD\"", 1},
        {"system version of another kind", "", "binary " + hex("xxGD"), 0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        Bench bench;
        std::string script = R"(
            registry delete HKLM\HARDWARE\DESCRIPTION\System\BIOS BIOSVersion
            registry delete HKLM\HARDWARE\DESCRIPTION\System SystemBiosVersion
        )";
        if (!row.bios.empty())
            script += "registry set HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS BIOSVersion " + row.bios + "\n";
        if (!row.system.empty())
            script +=
                "registry set HKLM\\HARDWARE\\DESCRIPTION\\System SystemBiosVersion " + row.system + "\n";
        bench.run(script + "start\n");
        // Every set-up ends with publishing the flag.
        EXPECT_EQ(row.set_ups, traced("registry SVC\\Configurations\\ScreenRotation HRSPMode = 0x1"));
        EXPECT_EQ(row.set_ups != 0, sim::registry_has_key("SVC\\Configurations"));
        EXPECT_EQ(row.set_ups != 0, sim::registry_has_key("HKLM\\SOFTWARE\\Mestra\\ShortCutKey"));
    }
}

static const char HARROW[] = "registry set HKLM\\HARDWARE\\DESCRIPTION\\System\\BIOS BIOSVersion sz \"GD\"\n";

TEST(HotkeyPlatform, TheSetUpInItsOrder) {
    std::string script = HARROW + std::string(R"(
        start | expect registry create SVC\Configurations
        expect next registry create SVC\Configurations\ScreenRotation
        expect next registry SVC\Configurations\ScreenRotation HRSPMode = 0x0
        expect next registry create SVC\Status
        expect next registry SVC\Status LastSystemTransformation = 0x0)");
    for (const auto& [entry, word] : {std::pair{"Ex_3C", "TabletToClamshellForHarrow"},
                                      {"Ex_3E", "FlipButtonForHarrow"},
                                      {"Ex_3B", "ClamshellToTabletForHarrow"}}) {
        const std::string launch = std::string("HKLM\\SOFTWARE\\Mestra\\ShortCutKey\\AppLaunch\\") + entry;
        const std::string access = launch + "\\UIAccess";
        for (const std::string& effect : {"create " + launch, launch + " AppType = 0x3", "create " + access,
                                          access + R"( File = "C:\Windows\System32\zorpmctl.exe")",
                                          access + " Parameters = \"" + word + "\""})
            script += "\nexpect next registry " + effect;
    }
    Bench bench;
    bench.run(script + "\nexpect next registry SVC\\Configurations\\ScreenRotation HRSPMode = 0x1");
    // With its null, as readers of the launch entries need it.
    const std::string key = "HKLM\\SOFTWARE\\Mestra\\ShortCutKey\\AppLaunch\\Ex_3E\\UIAccess";
    EXPECT_EQ(sim::wide_bytes("FlipButtonForHarrow"), sim::registry_value(key, "Parameters")->bytes);
}

TEST(HotkeyPlatform, TheSetUpOverwritesItsOwnAndSkipsWhatItCannotOpen) {
    run_cases(HARROW, {{"again", R"(
        registry set HKLM\SOFTWARE\Mestra\ShortCutKey\AppLaunch\Ex_3C AppType sz "x"
        registry set HKLM\SOFTWARE\Mestra\ShortCutKey\AppLaunch\Ex_3D AppType dword 9
        registry set SVC\Status LastSystemTransformation dword 1 | start
        check registry HKLM\SOFTWARE\Mestra\ShortCutKey\AppLaunch\Ex_3C AppType = 3
        check registry HKLM\SOFTWARE\Mestra\ShortCutKey\AppLaunch\Ex_3D AppType = 9
        check registry SVC\Status LastSystemTransformation = 0)"},
                       {"refused", R"(
                           registry refuse SVC\Configurations
                           registry refuse HKLM\SOFTWARE\Mestra\ShortCutKey\AppLaunch\Ex_3E
                           start
                           check registry SVC\Configurations\ScreenRotation HRSPMode absent
                           check registry SVC\Status LastSystemTransformation = 0
                           check registry HKLM\SOFTWARE\Mestra\ShortCutKey\AppLaunch\Ex_3E AppType absent
                           check registry HKLM\SOFTWARE\Mestra\ShortCutKey\AppLaunch\Ex_3B\UIAccess Parameters = "ClamshellToTabletForHarrow")"}});
}
