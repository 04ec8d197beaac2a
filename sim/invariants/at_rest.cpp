#include "sim/invariants/at_rest.h"

#include <algorithm>
#include <map>

#include "sim/machine/machine.h"
#include "sim/notebook/device_interfaces.h"
#include "sim/notebook/driver.h"
#include "sim/script/commands.h"
#include "sim/script/expectations.h"
#include "sim/windows/registry.h"
#include "sim/windows/scm.h"

namespace sim {

size_t live_threads(const std::string& part) {
    return static_cast<size_t>(
        std::count_if(machine().threads.begin(), machine().threads.end(), [&part](const auto& thread) {
            return thread->run != Run::Ended && thread->name.find(part) != std::string::npos;
        }));
}

// ---- published and commanded ----

static std::string last_words() {
    std::string text;
    for (const auto& [what, word] : last_commands()) {
        // A mode that is as it was at the start may have been told, or never: of the hot keys only 32 is on
        // there.
        const bool at_start = word.ends_with(what == "MHKM(32)" ? ", 1)" : ", 0)");
        if (!what.starts_with("MHKM") || !at_start)
            text.append(what).append(": ").append(word).append("\n");
    }
    return text;
}

static std::string published() {
    std::string text;
    for (const char* key : {"SVC", "HKLM\\SOFTWARE\\Mestra", "HKLM\\SOFTWARE\\Dolby", "HKLM\\SOFTWARE\\ZOR",
                            "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AutoRotation"}) {
        const std::string dump = registry_dump(key);
        for (size_t at = 0; at < dump.size();) {
            const size_t end = dump.find('\n', at);
            const std::string line = dump.substr(at, end + 1 - at);
            if (line.find("TimeStamp") == std::string::npos && line.find("PrevMode") == std::string::npos)
                text += line;
            at = end + 1;
        }
    }
    return text;
}

std::string state_at_rest() {
    Process* service = service_process();
    return published() + last_words() +
           format("indicators %u %u\nwatch %zu\nworkers %zu\nstatus %u\nhandles %zu\nblocks %zu\n",
                  indicator_state(Interface::Slate), indicator_state(Interface::Dock),
                  live_threads("LCDCSWatchdog"), live_threads("AdaptiveCooling"),
                  service_status().dwCurrentState, handle_count(service),
                  service != nullptr ? service->local_blocks : 0);
}

// ---- held ----

std::string held_by(Process* process) {
    const auto threads =
        std::count_if(machine().threads.begin(), machine().threads.end(), [process](const auto& thread) {
            return thread->process == process && thread->run != Run::Ended;
        });
    return format("%zu handles, %zu blocks, %zu threads", handle_count(process), process->local_blocks,
                  static_cast<size_t>(threads));
}

namespace {

struct Usual {
    std::map<DWORD, std::string> held; // by each process, at the first check in its life
};

} // namespace

// ---- commands ----

static void check_resources() {
    auto& usual = machine_state<Usual>().held;
    for (const auto& process : machine().processes) {
        if (process->image == nullptr || process->ended)
            continue;
        const std::string held = held_by(process.get());
        const std::string& first = usual.try_emplace(process->id, held).first->second;
        expectation(held == first, format("resources: %s, there are %s", first.c_str(), held.c_str()));
    }
}

static Action compile_check_resources(Tokens&) {
    return check_resources;
}

static const Commands g_commands({
    {"check resources", Use::Check, compile_check_resources,
     "- each process holds as many handles, memory blocks and threads as at the first such check in its "
     "life"},
});

} // namespace sim
