#include "memory_image.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace hexblocks {

namespace {

const uint64_t ADDRESS_SPACE = 0x100000000ull;

// The first segment that ends after address.
std::vector<segment_t>::const_iterator firstEndingAfter(const std::vector<segment_t>& segments,
                                                                     uint64_t address)
{
    return std::upper_bound(segments.begin(), segments.end(), address,
                            [](uint64_t a, const segment_t& s) { return a < s.endAddress(); });
}

} // namespace

MemoryImage::MemoryImage() : start_{0, 0}, hasStart_(false) {}

// ---------------------------------------------------------------------------
// Queries

const std::vector<segment_t>& MemoryImage::segments() const
{
    return segments_;
}

bool MemoryImage::empty() const
{
    return segments_.empty();
}

uint32_t MemoryImage::lowestAddress() const
{
    return segments_.empty() ? 0 : segments_.front().address;
}

uint32_t MemoryImage::highestAddress() const
{
    return segments_.empty() ? 0 : segments_.back().lastAddress();
}

uint64_t MemoryImage::span() const
{
    return segments_.empty() ? 0 : segments_.back().endAddress() - segments_.front().address;
}

uint64_t MemoryImage::dataSize() const
{
    uint64_t size = 0;
    for (const segment_t& s : segments_)
        size += s.bytes.size();
    return size;
}

bool MemoryImage::hasDataAt(uint32_t address) const
{
    const auto s = firstEndingAfter(segments_, address);
    return s != segments_.end() && s->address <= address;
}

void MemoryImage::copyRange(uint32_t address, size_t length, uint8_t fill, uint8_t* out) const
{
    std::fill(out, out + length, fill);
    const uint64_t end = static_cast<uint64_t>(address) + length;
    for (auto s = firstEndingAfter(segments_, address); s != segments_.end() && s->address < end; ++s) {
        const uint64_t from = std::max<uint64_t>(address, s->address);
        const uint64_t to = std::min(end, s->endAddress());
        std::copy(s->bytes.begin() + static_cast<long>(from - s->address),
                  s->bytes.begin() + static_cast<long>(to - s->address), out + (from - address));
    }
}

std::vector<uint8_t> MemoryImage::copyRange(uint32_t address, size_t length, uint8_t fill) const
{
    std::vector<uint8_t> bytes(length);
    copyRange(address, length, fill, bytes.data());
    return bytes;
}

bool MemoryImage::hasStartAddress() const
{
    return hasStart_;
}

start_address_t MemoryImage::startAddress() const
{
    return start_;
}

const std::string& MemoryImage::header() const
{
    return header_;
}

// ---------------------------------------------------------------------------
// Changing the image

result_t MemoryImage::write(uint32_t address, const uint8_t* data, size_t length)
{
    result_t result;
    if (length == 0)
        return result;
    const uint64_t end = static_cast<uint64_t>(address) + length;
    if (end > ADDRESS_SPACE)
        return failureAt(status_t::OUT_OF_RANGE, "the bytes would run past address 0xFFFFFFFF", address);
    // The segments the new bytes overlap or touch: [first, last).
    const auto first = std::lower_bound(segments_.begin(), segments_.end(), static_cast<uint64_t>(address),
                                        [](const segment_t& s, uint64_t a) { return s.endAddress() < a; });
    const auto last = std::upper_bound(first, segments_.end(), end,
                                       [](uint64_t e, const segment_t& s) { return e < s.address; });
    if (first == last) {
        segments_.insert(first, segment_t{address, std::vector<uint8_t>(data, data + length)});
        return result;
    }
    // Everything goes into the first of them, grown to take the rest.
    segment_t& target = *first;
    const uint32_t start = std::min(target.address, address);
    const uint64_t stop = std::max(std::prev(last)->endAddress(), end);
    if (start < target.address)
        target.bytes.insert(target.bytes.begin(), target.address - start, 0);
    target.address = start;
    target.bytes.resize(static_cast<size_t>(stop - start));
    for (auto s = std::next(first); s != last; ++s)
        std::copy(s->bytes.begin(), s->bytes.end(), target.bytes.begin() + static_cast<long>(s->address - start));
    std::copy(data, data + length, target.bytes.begin() + static_cast<long>(address - start));
    segments_.erase(std::next(first), last);
    return result;
}

result_t MemoryImage::setStartAddress(const start_address_t& start)
{
    result_t result;
    if (start.type != 3 && start.type != 5)
        return failure(status_t::BAD_ARGUMENT, "a start address has type 3 or 5, not " + std::to_string(start.type));
    start_ = start;
    hasStart_ = true;
    return result;
}

void MemoryImage::clearStartAddress()
{
    start_ = start_address_t{0, 0};
    hasStart_ = false;
}

result_t MemoryImage::setHeader(const std::string& header)
{
    result_t result;
    if (header.size() > 252)
        return failure(status_t::TOO_LARGE, "a header holds at most 252 bytes, not " + std::to_string(header.size()));
    header_ = header;
    return result;
}

void MemoryImage::clear()
{
    segments_.clear();
    clearStartAddress();
    header_.clear();
}

} // namespace hexblocks
