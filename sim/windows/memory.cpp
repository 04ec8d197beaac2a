// LocalAlloc: blocks with a header that names their process.
#include <cstdlib>
#include <cstring>

#include "sim/machine/machine.h"

namespace sim {

namespace {

struct BlockHeader {
    std::uint64_t magic;
    Process* process;
};
} // namespace

constexpr std::uint64_t BLOCK_ALIVE = 0x4C4F43414C424C4Bull;
constexpr int FRESH_BYTE = 0xCD; // memory that is not asked to be zero holds anything but zeros

} // namespace sim

using namespace sim;

extern "C" {

HLOCAL WINAPI LocalAlloc(UINT flags, SIZE_T bytes) {
    SIM_CALL(nullptr, ERROR_NOT_ENOUGH_MEMORY);
    auto* header = static_cast<BlockHeader*>(std::malloc(sizeof(BlockHeader) + bytes));
    if (header == nullptr)
        return nullptr;
    *header = {BLOCK_ALIVE, current_process()};
    ++header->process->local_blocks;
    std::memset(header + 1, (flags & LMEM_ZEROINIT) != 0 ? 0 : FRESH_BYTE, bytes);
    return header + 1;
}

HLOCAL WINAPI LocalFree(HLOCAL block) {
    SIM_VISIT();
    if (block == nullptr)
        return nullptr;
    BlockHeader* header = static_cast<BlockHeader*>(block) - 1;
    if (header->magic != BLOCK_ALIVE || header->process != current_process()) {
        violation("LocalFree: no block of this process");
        return block;
    }
    header->magic = 0;
    --header->process->local_blocks;
    std::free(header);
    return nullptr;
}

} // extern "C"
