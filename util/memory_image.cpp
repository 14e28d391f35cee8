#include "memory_image.h"

#include "exact_reader.h"
#include "full_format_reader.h"
#include "record_scanner.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

using intelhex_internal::fullread_t;

namespace {

const uint64_t ADDRESS_SPACE = 0x100000000ull;

// The first segment that ends after address.
std::vector<MemoryImage::segment_t>::const_iterator firstEndingAfter(const std::vector<MemoryImage::segment_t>& segments,
                                                                     uint64_t address)
{
    return std::upper_bound(segments.begin(), segments.end(), address,
                            [](uint64_t a, const MemoryImage::segment_t& s) { return a < s.endAddress(); });
}

MemoryImage::readresult_t resultOf(const fullread_t& read)
{
    MemoryImage::readresult_t result;
    result.ok = read.status == fullread_t::status_t::OK;
    result.line = read.line;
    result.reason = read.status == fullread_t::status_t::UNSUPPORTED_TYPE ? "unsupported record type " + intelhex_internal::hexByte(read.type)
                                                                          : read.reason;
    result.warnings = intelhex_internal::warningsOf(read);
    return result;
}

MemoryImage::readresult_t failedRead(const std::string& reason)
{
    MemoryImage::readresult_t result;
    result.reason = reason;
    return result;
}

} // namespace

MemoryImage::MemoryImage() : start_{0, 0}, hasStart_(false) {}

// ---------------------------------------------------------------------------
// Queries

const std::vector<MemoryImage::segment_t>& MemoryImage::segments() const
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

MemoryImage::startaddress_t MemoryImage::startAddress() const
{
    return start_;
}

// ---------------------------------------------------------------------------
// Changing the image

MemoryImage::result_t MemoryImage::write(uint32_t address, const uint8_t* data, size_t length)
{
    result_t result;
    if (length == 0)
        return result;
    const uint64_t end = static_cast<uint64_t>(address) + length;
    if (end > ADDRESS_SPACE) {
        result.ok = false;
        result.reason = "the bytes would run past address 0xFFFFFFFF";
        return result;
    }
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

MemoryImage::result_t MemoryImage::setStartAddress(const startaddress_t& start)
{
    result_t result;
    if (start.type != 3 && start.type != 5) {
        result.ok = false;
        result.reason = "a start address has type 3 or 5, not " + std::to_string(start.type);
        return result;
    }
    start_ = start;
    hasStart_ = true;
    return result;
}

void MemoryImage::clearStartAddress()
{
    start_ = startaddress_t{0, 0};
    hasStart_ = false;
}

void MemoryImage::clear()
{
    segments_.clear();
    clearStartAddress();
}

// ---------------------------------------------------------------------------
// Reading Intel HEX

MemoryImage::readresult_t MemoryImage::readHexFile(const char* path)
{
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return failedRead(std::string("cannot open the file: ") + std::strerror(errno));
    intelhex_internal::DescriptorText file(fd);
    const readresult_t result = resultOf(intelhex_internal::readFullFormat(file, *this));
    ::close(fd);
    return result;
}

MemoryImage::readresult_t MemoryImage::readHex(const void* text, size_t size)
{
    intelhex_internal::MemoryText memory(text, size);
    return resultOf(intelhex_internal::readFullFormat(memory, *this));
}

// ---------------------------------------------------------------------------
// IntelHexFile blocks

MemoryImage MemoryImage::fromBlocks(const IntelHexFile& file)
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
        image.setStartAddress(startaddress_t{file.getStartAddressType(), file.getStartAddressValue()});
    return image;
}

MemoryImage::result_t MemoryImage::appendTo(IntelHexFile& file, const blockoptions_t& options) const&
{
    MemoryImage copy(*this);
    return std::move(copy).appendTo(file, options);
}

MemoryImage::result_t MemoryImage::appendTo(IntelHexFile& file, const blockoptions_t& options) &&
{
    result_t result;
    if (options.oneBlock && span() > options.maxImageSize) {
        result.ok = false;
        result.reason = "image spans " + std::to_string(span()) + " bytes, more than the limit of " +
                        std::to_string(options.maxImageSize) + " bytes";
        return result;
    }
    if (options.oneBlock && segments_.size() > 1) {
        // Each segment's bytes are released as soon as they are copied.
        const uint32_t lowest = segments_.front().address;
        std::vector<uint8_t> flat(static_cast<size_t>(span()), options.fill);
        for (segment_t& s : segments_) {
            std::copy(s.bytes.begin(), s.bytes.end(), flat.begin() + static_cast<long>(s.address - lowest));
            std::vector<uint8_t>().swap(s.bytes);
        }
        segments_.assign(1, segment_t{lowest, std::move(flat)});
    }
    for (segment_t& s : segments_)
        file.appendBlock(static_cast<uint16_t>(s.address >> 16), static_cast<uint16_t>(s.address), s.bytes);
    if (hasStart_) {
        file.startAddressType = start_.type;
        file.startAddressValue = start_.value;
    }
    clear();
    return result;
}
