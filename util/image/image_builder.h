// Builds a MemoryImage from segments already in order, and takes its
// segments back out, without the checks of the public operations: for the
// readers, which make segments that are ascending and apart by
// construction, and for the bridge to IntelHexFile blocks.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_IMAGE_BUILDER_H
#define HEXBLOCKS_IMAGE_BUILDER_H

#include "memory_image.h"

#include <string>
#include <utility>
#include <vector>

namespace hexblocks::detail {

class ImageBuilder {
public:
    // Makes the segments (ascending, apart, none empty), the start address
    // (none for type 0) and the header the whole image.
    static void assign(MemoryImage& image, std::vector<segment_t>&& segments, uint8_t startType,
                       uint32_t startValue, std::string&& header)
    {
        image.segments_ = std::move(segments);
        image.header_ = std::move(header);
        image.hasStart_ = startType != 0;
        image.start_ = start_address_t{startType, startType != 0 ? startValue : 0};
    }

    // Moves the segments out; the image keeps its start address and header.
    static std::vector<segment_t> takeSegments(MemoryImage& image)
    {
        return std::move(image.segments_);
    }
};

} // namespace hexblocks::detail

#endif // HEXBLOCKS_IMAGE_BUILDER_H
