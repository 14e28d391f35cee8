#include "image_blocks.h"

#include "image_builder.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace hexblocks {

namespace detail {

// Reaches the parts of IntelHexFile that appending blocks needs.
class BlockBridge {
public:
    static void appendBlock(IntelHexFile& file, uint32_t address, std::vector<uint8_t>& bytes)
    {
        file.appendBlock(static_cast<uint16_t>(address >> 16), static_cast<uint16_t>(address), bytes);
    }
    static void setStartAddress(IntelHexFile& file, const start_address_t& start)
    {
        file.startAddressType = start.type;
        file.startAddressValue = start.value;
    }
};

} // namespace detail

namespace {

const uint64_t ADDRESS_SPACE = 0x100000000ull;

} // namespace

MemoryImage imageFromBlocks(const IntelHexFile& file)
{
    MemoryImage image;
    for (size_t i = 0; i < file.getBlockCount(); ++i) {
        const IntelHexFileBlock& block = file[i];
        const uint32_t address = static_cast<uint32_t>(block.getLinearBase()) << 16 | block.getStartAddress();
        const uint8_t* bytes = block.getBuffer();
        size_t size = block.getSize();
        // A block that runs past 0xFFFFFFFF goes on at 0.
        const size_t below = static_cast<size_t>(std::min<uint64_t>(size, ADDRESS_SPACE - address));
        image.write(address, bytes, below);
        image.write(0, bytes + below, size - below);
    }
    if (file.hasStartAddress())
        image.setStartAddress(start_address_t{file.getStartAddressType(), file.getStartAddressValue()});
    return image;
}

result_t appendToBlocks(const MemoryImage& image, IntelHexFile& file, const block_options_t& options)
{
    MemoryImage copy(image);
    return appendToBlocks(std::move(copy), file, options);
}

result_t appendToBlocks(MemoryImage&& image, IntelHexFile& file, const block_options_t& options)
{
    if (options.oneBlock && image.span() > options.maxImageSize)
        return failure(status_t::TOO_LARGE, "image spans " + std::to_string(image.span()) +
                                                " bytes, more than the limit of " +
                                                std::to_string(options.maxImageSize) + " bytes");
    const uint64_t span = image.span();
    std::vector<segment_t> segments = detail::ImageBuilder::takeSegments(image);
    if (options.oneBlock && segments.size() > 1) {
        // Each segment's bytes are released as soon as they are copied.
        const uint32_t lowest = segments.front().address;
        std::vector<uint8_t> flat(static_cast<size_t>(span), options.fill);
        for (segment_t& s : segments) {
            std::copy(s.bytes.begin(), s.bytes.end(), flat.begin() + static_cast<long>(s.address - lowest));
            std::vector<uint8_t>().swap(s.bytes);
        }
        segments.assign(1, segment_t{lowest, std::move(flat)});
    }
    for (segment_t& s : segments)
        detail::BlockBridge::appendBlock(file, s.address, s.bytes);
    if (image.hasStartAddress())
        detail::BlockBridge::setStartAddress(file, image.startAddress());
    image.clear();
    return result_t();
}

} // namespace hexblocks
