#include "sim/script/source.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "sim/script/place.h"

namespace sim {

std::string shown_text(const std::string& text) {
    std::string shown = text;
    for (char& c : shown) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7f)
            c = c == '\n' ? '\n' : '?';
    }
    return shown;
}

std::string shown_place(const Place& place) {
    return (place.file.empty() ? "line " : place.file + ":") + std::to_string(place.line) + ": ";
}

std::string beside(const std::string& file, const std::string& other) {
    const size_t slash = file.rfind('/');
    return other.starts_with('/') || slash == std::string::npos ? other : file.substr(0, slash + 1) + other;
}

static void close_file(FILE* file) {
    if (file != stdin)
        std::fclose(file);
}

std::string read_script(const std::string& path, std::string* text) {
    errno = 0;
    const std::unique_ptr<FILE, void (*)(FILE*)> file(path == "-" ? stdin : std::fopen(path.c_str(), "rb"),
                                                      close_file);
    if (file == nullptr)
        return std::strerror(errno);
    text->clear();
    char block[65536];
    while (const size_t count = std::fread(block, 1, sizeof(block), file.get())) {
        text->append(block, count);
        if (text->size() > LARGEST_SCRIPT)
            return "larger than 64 MiB";
    }
    return std::ferror(file.get()) != 0 ? std::strerror(errno) : "";
}

} // namespace sim
