#include "sim/windows/resources.h"

#include "sim/machine/machine.h"

// The executable's one data resource, the bytes of the file.
asm(".section .rodata\n"
    ".global zorpm_embedded_inf, zorpm_embedded_inf_end\n"
    "zorpm_embedded_inf:\n"
    ".incbin \"" ZORPM_SOURCE_DIR "/src/setup/zorpmdrv.inf\"\n"
    "zorpm_embedded_inf_end:\n"
    ".byte 0\n"
    ".previous\n");
extern "C" const char zorpm_embedded_inf[];
extern "C" const char zorpm_embedded_inf_end[];

namespace sim {

constexpr DWORD TYPE_NOT_THERE = 1813;
constexpr DWORD RESOURCE_NOT_THERE = 1814;
constexpr ULONG_PTR RESOURCE = 0x7E5;
constexpr WORD INF_ID = 105;
constexpr WORD INF_TYPE = 10;

std::string embedded_inf() {
    return {zorpm_embedded_inf, zorpm_embedded_inf_end};
}

static bool is_id(LPCWSTR name, WORD id) {
    return reinterpret_cast<ULONG_PTR>(name) == id;
}

} // namespace sim

using namespace sim;

extern "C" {

HRSRC WINAPI FindResourceW(HMODULE, LPCWSTR name, LPCWSTR type) {
    SIM_CALL(nullptr, RESOURCE_NOT_THERE);
    if (is_id(name, INF_ID) && is_id(type, INF_TYPE))
        return reinterpret_cast<HRSRC>(RESOURCE);
    set_last_error(is_id(type, INF_TYPE) ? RESOURCE_NOT_THERE : TYPE_NOT_THERE);
    return nullptr;
}

HGLOBAL WINAPI LoadResource(HMODULE, HRSRC resource) {
    SIM_CALL(nullptr, ERROR_NOT_ENOUGH_MEMORY);
    return resource;
}

LPVOID WINAPI LockResource(HGLOBAL loaded) {
    SIM_CALL(nullptr, ERROR_NOT_ENOUGH_MEMORY);
    return loaded != nullptr ? const_cast<char*>(zorpm_embedded_inf) : nullptr;
}

DWORD WINAPI SizeofResource(HMODULE, HRSRC resource) {
    SIM_CALL(0, RESOURCE_NOT_THERE);
    if (resource == nullptr)
        return 0;
    // cppcheck-suppress comparePointers ; both ends of one object of the assembler
    return static_cast<DWORD>(zorpm_embedded_inf_end - zorpm_embedded_inf);
}

} // extern "C"
