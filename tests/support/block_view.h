// The blocks of an IntelHexFile as plain values, for comparing in tests.
#ifndef HEXBLOCKS_TESTS_BLOCK_VIEW_H
#define HEXBLOCKS_TESTS_BLOCK_VIEW_H

#include "intelhex.h"

#include <cstdint>
#include <ostream>
#include <vector>

// One block: its full 32-bit address and its bytes. Written either as
// {address, bytes} or as {linear base, start address, bytes}.
struct BlockView {
    uint32_t address;
    std::vector<uint8_t> bytes;

    BlockView(uint32_t theAddress, std::vector<uint8_t> theBytes) : address(theAddress), bytes(std::move(theBytes)) {}
    BlockView(uint16_t linearBase, uint16_t startAddr, std::vector<uint8_t> theBytes)
        : address(static_cast<uint32_t>(linearBase) << 16 | startAddr), bytes(std::move(theBytes))
    {
    }
    bool operator==(const BlockView& o) const { return address == o.address && bytes == o.bytes; }
};

std::ostream& operator<<(std::ostream& os, const BlockView& b);

// Every block of image, in order; each block's bytes are the getSize() bytes
// from getBuffer().
std::vector<BlockView> blocksOf(const IntelHexFile& image);

#endif
