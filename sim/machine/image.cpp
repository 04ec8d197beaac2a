#include "sim/machine/image.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <fstream>
#include <iterator>
#include <link.h>
#include <map>
#include <memory>
#include <unistd.h>
#include <vector>

namespace sim {

namespace {

struct WritableRange {
    char* start = nullptr;
    size_t bytes = 0;
    std::vector<char> fresh;
};

// A library that processes are images of.
struct Program {
    std::vector<char> file;
    std::map<std::uintptr_t, std::string> names; // offset in the image -> function name
};

} // namespace

struct Image {
    const Program* program = nullptr;
    void* library = nullptr;
    char* base = nullptr;
    EntryPoint entry = nullptr;
    std::vector<WritableRange> ranges;
    bool in_use = false;
};

static std::vector<std::unique_ptr<Image>> g_images;
static std::map<std::string, Program> g_programs;
static std::string g_directory; // of the copies, removed at exit
static pid_t g_directoryOwner = 0;

[[noreturn]] static void give_up(const std::string& what) {
    std::fprintf(stderr, "zorpmsim: %s\n", what.c_str());
    std::exit(2);
}

void image_remove_copies() {
    if (g_directoryOwner != getpid())
        return; // a fork of the process that made them
    char path[64];
    for (size_t i = 0; i < g_images.size(); ++i) {
        std::snprintf(path, sizeof(path), "%s/image-%zu.so", g_directory.c_str(), i);
        unlink(path);
    }
    rmdir(g_directory.c_str());
}

static std::string library_path(const std::string& program) {
    Dl_info info = {};
    dladdr(reinterpret_cast<void*>(&image_acquire), &info);
    const std::string own = info.dli_fname != nullptr ? info.dli_fname : "";
    return own.substr(0, own.rfind('/') + 1) + "lib" + program + "_image.so";
}

static std::vector<char> read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        give_up("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// "_Z14TerminalThreadPv" -> "TerminalThread"; static functions have "_ZL".
static std::string plain_name(const char* mangled) {
    const char* at = mangled;
    if (std::strncmp(at, "_Z", 2) != 0)
        return mangled;
    at += 2;
    if (*at == 'L')
        ++at;
    if (!std::isdigit(static_cast<unsigned char>(*at)))
        return mangled;
    char* rest = nullptr;
    const size_t length = std::strtoul(at, &rest, 10);
    return std::strlen(rest) >= length ? std::string(rest, length) : mangled;
}

static void read_symbols(Program* program) {
    const std::vector<char>& file = program->file;
    if (file.size() < sizeof(Elf64_Ehdr))
        give_up("the image is no library");
    Elf64_Ehdr header;
    std::memcpy(&header, file.data(), sizeof(header));
    std::vector<Elf64_Shdr> sections(header.e_shnum);
    if (header.e_shoff + sections.size() * sizeof(Elf64_Shdr) > file.size())
        return;
    std::memcpy(sections.data(), file.data() + header.e_shoff, sections.size() * sizeof(Elf64_Shdr));
    for (const Elf64_Shdr& section : sections) {
        if (section.sh_type != SHT_SYMTAB || section.sh_link >= sections.size())
            continue;
        const char* names = file.data() + sections[section.sh_link].sh_offset;
        for (size_t at = 0; at + sizeof(Elf64_Sym) <= section.sh_size; at += sizeof(Elf64_Sym)) {
            Elf64_Sym symbol;
            std::memcpy(&symbol, file.data() + section.sh_offset + at, sizeof(symbol));
            if (ELF64_ST_TYPE(symbol.st_info) == STT_FUNC && symbol.st_value != 0)
                program->names.emplace(symbol.st_value, plain_name(names + symbol.st_name));
        }
    }
}

// Copies over redzones too, so it must be no instrumented memcpy.
// NOLINTNEXTLINE(readability-non-const-parameter): written by the instruction
__attribute__((no_sanitize("address", "undefined"))) static void raw_copy(char* to, const char* from,
                                                                          size_t bytes) {
    asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(bytes) : : "memory");
}

namespace {

struct FindRanges {
    Image* image;
    char* relro_end;
};

} // namespace

// The writable part of the library that the loader does not protect again after relocation.
static int note_ranges(dl_phdr_info* info, size_t, void* context) {
    auto* find = static_cast<FindRanges*>(context);
    if (reinterpret_cast<char*>(info->dlpi_addr) != find->image->base)
        return 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& header = info->dlpi_phdr[i];
        if (header.p_type == PT_GNU_RELRO)
            find->relro_end = find->image->base + ((header.p_vaddr + header.p_memsz + 4095) & ~size_t{4095});
    }
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& header = info->dlpi_phdr[i];
        if (header.p_type != PT_LOAD || (header.p_flags & PF_W) == 0)
            continue;
        char* start = find->image->base + header.p_vaddr;
        char* end = start + header.p_memsz;
        if (find->relro_end > start)
            start = find->relro_end;
        if (start >= end)
            continue;
        WritableRange range;
        range.start = start;
        range.bytes = static_cast<size_t>(end - start);
        range.fresh.resize(range.bytes);
        raw_copy(range.fresh.data(), start, range.bytes);
        find->image->ranges.push_back(std::move(range));
    }
    return 1;
}

static const Program& find_program(const std::string& name) {
    Program& program = g_programs[name];
    if (program.file.empty()) {
        program.file = read_file(library_path(name));
        read_symbols(&program);
    }
    return program;
}

static void load(Image* image, size_t number) {
    if (g_directoryOwner != getpid()) { // a fork has its own: it must not write over what others have loaded
        char pattern[] = "/tmp/zorpmsim-XXXXXX";
        if (mkdtemp(pattern) == nullptr)
            give_up("no place for the images");
        g_directory = pattern;
        g_directoryOwner = getpid();
        std::atexit(image_remove_copies);
    }
    const std::string path = g_directory + "/image-" + std::to_string(number) + ".so";
    const std::vector<char>& file = image->program->file;
    std::ofstream(path, std::ios::binary).write(file.data(), static_cast<std::streamsize>(file.size()));
    image->library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (image->library == nullptr)
        give_up(std::string("cannot load the image: ") + dlerror());
    image->entry = reinterpret_cast<EntryPoint>(dlsym(image->library, "wWinMain"));
    if (image->entry == nullptr)
        give_up("the image has no wWinMain");
    link_map* map = nullptr;
    dlinfo(image->library, RTLD_DI_LINKMAP, &map);
    image->base = reinterpret_cast<char*>(map->l_addr);
    FindRanges find = {image, nullptr};
    dl_iterate_phdr(note_ranges, &find);
}

Image* image_acquire(const std::string& name) {
    const Program& program = find_program(name);
    for (auto& image : g_images) {
        if (!image->in_use && image->program == &program) {
            image->in_use = true;
            return image.get();
        }
    }
    auto image = std::make_unique<Image>();
    image->program = &program;
    load(image.get(), g_images.size());
    image->in_use = true;
    g_images.push_back(std::move(image));
    return g_images.back().get();
}

void image_release(Image* image) {
    for (WritableRange& range : image->ranges)
        raw_copy(range.start, range.fresh.data(), range.bytes);
    image->in_use = false;
}

EntryPoint image_entry(const Image* image) {
    return image->entry;
}

HINSTANCE image_instance(const Image* image) {
    return reinterpret_cast<HINSTANCE>(image->base);
}

std::string image_symbol(const Image* image, const void* address) {
    const auto offset = static_cast<std::uintptr_t>(static_cast<const char*>(address) - image->base);
    const auto found = image->program->names.find(offset);
    return found != image->program->names.end() ? found->second : "";
}

} // namespace sim
