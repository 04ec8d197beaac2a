#include "recorder/symbols.h"

#include <windows.h>
#include <cstring>
#include <map>
#include <vector>

namespace symbols {

// A name as the compiler writes it: _Z, L for a static one, then a length and the name; or plain C.
static std::string plain_name(const std::string& symbol) {
    if (!symbol.starts_with("_Z"))
        return symbol;
    size_t at = 2;
    if (symbol[at] == 'L')
        ++at;
    size_t length = 0;
    while (at < symbol.size() && symbol[at] >= '0' && symbol[at] <= '9')
        length = length * 10 + static_cast<size_t>(symbol[at++] - '0');
    return symbol.substr(at, length);
}

static std::vector<char> read_file(const wchar_t* path) {
    HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return {};
    std::vector<char> bytes(GetFileSize(file, nullptr));
    DWORD read = 0;
    ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr);
    CloseHandle(file);
    return bytes;
}

static std::string name_of(const IMAGE_SYMBOL& symbol, const char* strings) {
    if (symbol.N.Name.Short == 0)
        return strings + symbol.N.Name.Long;
    return std::string(
        reinterpret_cast<const char*>(symbol.N.ShortName),
        strnlen(reinterpret_cast<const char*>(symbol.N.ShortName), sizeof(symbol.N.ShortName)));
}

// The file of the module, read once.
static const std::vector<char>& file_of(HMODULE module) {
    static std::map<std::wstring, std::vector<char>> files;
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(module, path, MAX_PATH);
    const auto [found, made] = files.try_emplace(path);
    if (made)
        found->second = read_file(path);
    return found->second;
}

std::string name_at(const void* address) {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       static_cast<LPCWSTR>(address), &module);
    const std::vector<char>& file = file_of(module);
    const auto* base = reinterpret_cast<const char*>(module);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(
        base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const IMAGE_SECTION_HEADER* sections = IMAGE_FIRST_SECTION(headers);
    const DWORD table = headers->FileHeader.PointerToSymbolTable;
    const DWORD count = headers->FileHeader.NumberOfSymbols;
    const auto offset = static_cast<DWORD>(static_cast<const char*>(address) - base);
    if (table == 0 || table + size_t{count} * sizeof(IMAGE_SYMBOL) > file.size())
        return "thread";
    const char* strings = file.data() + table + size_t{count} * sizeof(IMAGE_SYMBOL);
    for (DWORD i = 0; i < count; ++i) {
        IMAGE_SYMBOL symbol;
        std::memcpy(&symbol, file.data() + table + size_t{i} * sizeof(symbol), sizeof(symbol));
        i += symbol.NumberOfAuxSymbols;
        if (symbol.SectionNumber <= 0 || symbol.Type != 0x20)
            continue;
        if (sections[symbol.SectionNumber - 1].VirtualAddress + symbol.Value == offset)
            return plain_name(name_of(symbol, strings));
    }
    return "thread";
}

} // namespace symbols
