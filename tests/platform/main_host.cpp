// zorpmprobe on the simulated machine: each group on a machine of its own. Facts go to the standard output.
#include <cstdio>

#include "sim/machine/machine.h"
#include "sim/script/scenario.h"
#include "sim/windows/disk.h"
#include "sim/windows/scm_client.h"
#include "sim/windows/settings.h"
#include "tests/platform/probe.h"

static const char g_folder[] = "C:\\Probe";

// What the bench refuses as a violation is told as such.
void write_fact(const char* group, const char* name, const char* value) {
    const bool refused = !sim::machine().violations.empty();
    std::printf("%s.%s = %s\n", group, name, refused ? "refused" : value);
    if (refused)
        std::fprintf(stderr, "%s.%s: %s\n", group, name, sim::machine().violations.front().c_str());
    sim::machine().violations.clear();
    Sleep(1); // no thread runs on for ever without waiting
}

const WCHAR* probe_folder() {
    return L"C:\\Probe";
}

void write_settings(const WCHAR* path, const char* text) {
    std::string section;
    while (*text != 0) {
        const std::string line(text, std::strcspn(text, "\n"));
        text += line.size();
        text += *text == '\n';
        if (line.starts_with("["))
            section = line.substr(1, line.find(']') - 1);
        else
            sim::add_setting(sim::narrow(path), section, line);
    }
}

const GUID* probe_interface_class() {
    static const GUID slates = {0x317FC439, 0x3F77, 0x41C8, {0xB0, 0x9E, 0x08, 0xAD, 0x63, 0x27, 0x2A, 0xA3}};
    return &slates;
}

const WCHAR* probe_service() {
    sim::set_platform_service(true, true);
    return L"MPLATSVC";
}

int main() {
    for (unsigned i = 0; i < g_probeGroupCount; ++i) {
        sim::Machine machine;
        // The one program that is there, and a privilege that nobody holds.
        if (sim::run_text(R"(
                windows program "cmd" takes 100ms exits 7
                windows privilege SeCreateTokenPrivilege denied)")
                .exit_code != 0)
            return 2;
        sim::set_file(g_folder, sim::FileState::Directory);
        sim::run_on_thread(g_probeGroups[i].probe);
        for (const std::string& violation : machine.violations)
            std::fprintf(stderr, "%s: at the end: %s\n", g_probeGroups[i].name, violation.c_str());
    }
    return 0;
}
