// Lets the compiler's counters outlive a simulated process. Linked into the machine in the coverage build
// only, with image_release wrapped: that puts an image's writable segment back as it was loaded, and the
// counters are in there.
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "sim/machine/image.h"

struct Counters {
    char* start;
    std::vector<char> kept;
};

// The counters of the library `file` loaded at `base`: the objects that the compiler names __gcov0.FUNCTION.
static std::vector<Counters> find_counters(const char* file_name, char* base) {
    std::vector<Counters> counters;
    std::ifstream stream(file_name, std::ios::binary);
    const std::vector<char> file{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    Elf64_Ehdr header = {};
    if (file.size() < sizeof(header))
        return counters;
    std::memcpy(&header, file.data(), sizeof(header));
    std::vector<Elf64_Shdr> sections(header.e_shnum);
    std::memcpy(sections.data(), file.data() + header.e_shoff, sections.size() * sizeof(Elf64_Shdr));
    for (const Elf64_Shdr& section : sections) {
        if (section.sh_type != SHT_SYMTAB)
            continue;
        const char* names = file.data() + sections[section.sh_link].sh_offset;
        for (size_t at = 0; at < section.sh_size; at += sizeof(Elf64_Sym)) {
            Elf64_Sym symbol;
            std::memcpy(&symbol, file.data() + section.sh_offset + at, sizeof(symbol));
            if (std::strncmp(names + symbol.st_name, "__gcov0.", 8) == 0)
                counters.push_back({base + symbol.st_value, std::vector<char>(symbol.st_size)});
        }
    }
    return counters;
}

extern "C" void __real__ZN3sim13image_releaseEPNS_5ImageE(sim::Image* image);
extern "C" void __wrap__ZN3sim13image_releaseEPNS_5ImageE(sim::Image* image);

extern "C" void __wrap__ZN3sim13image_releaseEPNS_5ImageE(sim::Image* image) {
    static std::map<void*, std::vector<Counters>> by_base;
    Dl_info info = {};
    dladdr(reinterpret_cast<void*>(sim::image_entry(image)), &info);
    auto found = by_base.find(info.dli_fbase);
    if (found == by_base.end())
        found =
            by_base.emplace(info.dli_fbase, find_counters(info.dli_fname, static_cast<char*>(info.dli_fbase)))
                .first;
    for (Counters& counters : found->second)
        std::memcpy(counters.kept.data(), counters.start, counters.kept.size());
    __real__ZN3sim13image_releaseEPNS_5ImageE(image);
    for (const Counters& counters : found->second)
        std::memcpy(counters.start, counters.kept.data(), counters.kept.size());
}
