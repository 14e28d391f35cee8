#include "support/block_view.h"

#include <ios>

std::ostream& operator<<(std::ostream& os, const BlockView& b)
{
    return os << std::hex << "{0x" << b.address << ", " << std::dec << b.bytes.size() << " bytes}";
}

std::vector<BlockView> blocksOf(const IntelHexFile& image)
{
    std::vector<BlockView> views;
    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        const IntelHexFileBlock& b = image[i];
        const uint8_t* p = b.getBuffer();
        views.emplace_back(b.getLinearBase(), b.getStartAddress(), std::vector<uint8_t>(p, p + b.getSize()));
    }
    return views;
}
