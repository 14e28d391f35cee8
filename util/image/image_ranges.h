// Walking a range of an image as a checksum or digest takes it: the data
// bytes where the image has them, runs of a fill byte where it has none.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_IMAGE_RANGES_H
#define HEXBLOCKS_IMAGE_RANGES_H

#include "memory_image.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace hexblocks::detail {

// Hands take(bytes, size) count copies of byte, a few KiB at a time.
template <typename Take> void feedFill(uint8_t byte, uint64_t count, Take&& take)
{
    uint8_t bytes[4096];
    std::memset(bytes, byte, sizeof bytes);
    while (count > 0) {
        const size_t chunk = static_cast<size_t>(std::min<uint64_t>(count, sizeof bytes));
        take(bytes, chunk);
        count -= chunk;
    }
}

// Hands the addresses of range (cut at 2^32), in order, to data(bytes,
// size) where image has data and to gap(count) where it has none.
template <typename Data, typename Gap> void walkRange(const MemoryImage& image, const range_t& range, Data&& data, Gap&& gap)
{
    uint64_t at = range.start;
    const uint64_t end = std::min<uint64_t>(range.end, 0x100000000ull);
    for (const segment_t& s : image.segments()) {
        if (at >= end)
            break;
        if (s.endAddress() <= at)
            continue;
        if (s.address >= end)
            break;
        if (s.address > at) {
            gap(s.address - at);
            at = s.address;
        }
        const uint64_t to = std::min(end, s.endAddress());
        data(s.bytes.data() + (at - s.address), static_cast<size_t>(to - at));
        at = to;
    }
    if (at < end)
        gap(end - at);
}

} // namespace hexblocks::detail

#endif // HEXBLOCKS_IMAGE_RANGES_H
