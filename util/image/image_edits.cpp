// Merging and editing a MemoryImage: merge(), offset(), crop(), exclude(),
// fillRange() and swapBytes(), declared with the rest of the class in
// memory_image.h. Each checks everything before it changes anything, so a
// failure leaves the image as it was.
#include "memory_image.h"

#include "hex_format.h"

#include <algorithm>
#include <new>
#include <utility>

namespace hexblocks {

using hexblocks::detail::hexAddress;
using hexblocks::detail::hexByte;
using segments_t = std::vector<segment_t>;

namespace {

const uint64_t ADDRESS_SPACE = 0x100000000ull;

// A run of another image's bytes to place.
struct piece_t {
    uint32_t address;
    const uint8_t* data;
    size_t length;
};

// The first address at which a and b both hold data (with different bytes,
// when onlyDifferent); false when there is none.
bool findClash(const segments_t& a, const segments_t& b, bool onlyDifferent, merge_result_t& clash)
{
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        const uint64_t from = std::max(a[i].address, b[j].address);
        const uint64_t to = std::min(a[i].endAddress(), b[j].endAddress());
        if (from < to) {
            const uint8_t* mine = a[i].bytes.data() + (from - a[i].address);
            const uint8_t* theirs = b[j].bytes.data() + (from - b[j].address);
            const size_t offset = onlyDifferent ? static_cast<size_t>(
                                                      std::mismatch(mine, mine + (to - from), theirs).first - mine)
                                                : 0;
            if (offset < to - from) {
                clash.address = static_cast<uint32_t>(from + offset);
                clash.imageByte = mine[offset];
                clash.otherByte = theirs[offset];
                return true;
            }
        }
        if (a[i].endAddress() < b[j].endAddress())
            ++i;
        else
            ++j;
    }
    return false;
}

// The parts of b's segments where a holds no data.
std::vector<piece_t> piecesOutside(const segments_t& a, const segments_t& b)
{
    std::vector<piece_t> pieces;
    size_t i = 0;
    for (const segment_t& s : b) {
        uint64_t at = s.address;
        while (at < s.endAddress()) {
            while (i < a.size() && a[i].endAddress() <= at)
                ++i;
            const uint64_t gapEnd = i < a.size() ? std::min<uint64_t>(a[i].address, s.endAddress()) : s.endAddress();
            if (gapEnd > at)
                pieces.push_back(piece_t{static_cast<uint32_t>(at), s.bytes.data() + (at - s.address),
                                         static_cast<size_t>(gapEnd - at)});
            at = i < a.size() ? std::max(gapEnd, a[i].endAddress()) : s.endAddress();
        }
    }
    return pieces;
}

// The start address merge() leaves, by policy; false when they clash.
bool mergedStart(const MemoryImage& image, const MemoryImage& other, start_policy_t policy,
                 bool& has, start_address_t& start)
{
    using policy_t = start_policy_t;
    const start_address_t mine = image.startAddress();
    const start_address_t theirs = other.startAddress();
    has = image.hasStartAddress() || other.hasStartAddress();
    const bool takeTheirs = !image.hasStartAddress() || (policy == policy_t::LAST && other.hasStartAddress());
    start = takeTheirs ? theirs : mine;
    if (policy == policy_t::DROP)
        has = false;
    return !(policy == policy_t::ERROR && image.hasStartAddress() && other.hasStartAddress() &&
             (mine.type != theirs.type || mine.value != theirs.value));
}

std::string signedHex(int64_t value)
{
    const uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    std::string digits;
    for (uint64_t v = magnitude; digits.empty() || v > 0; v >>= 4)
        digits.insert(digits.begin(), "0123456789ABCDEF"[v & 0xF]);
    return (value < 0 ? "-0x" : "0x") + digits;
}

// The ranges in order, clipped to the address space, with the empty ones
// dropped and those that overlap or meet joined.
std::vector<range_t> normalized(std::vector<range_t> ranges)
{
    for (range_t& r : ranges)
        r.end = std::min(r.end, ADDRESS_SPACE);
    ranges.erase(std::remove_if(ranges.begin(), ranges.end(), [](const range_t& r) { return r.size() == 0; }),
                 ranges.end());
    std::sort(ranges.begin(), ranges.end(),
              [](const range_t& x, const range_t& y) { return x.start < y.start; });
    std::vector<range_t> joined;
    for (const range_t& r : ranges) {
        if (!joined.empty() && r.start <= joined.back().end)
            joined.back().end = std::max(joined.back().end, r.end);
        else
            joined.push_back(r);
    }
    return joined;
}

} // namespace

merge_result_t MemoryImage::merge(const MemoryImage& other, const merge_options_t& options)
{
    MemoryImage copy(other);
    return merge(std::move(copy), options);
}

merge_result_t MemoryImage::merge(MemoryImage&& other, const merge_options_t& options)
{
    merge_result_t result;
    const bool checkData = options.overlap == overlap_policy_t::ERROR || options.overlap == overlap_policy_t::IDENTICAL;
    if (checkData && findClash(segments_, other.segments_, options.overlap == overlap_policy_t::IDENTICAL, result)) {
        result.status = status_t::OVERLAP;
        result.clash = merge_result_t::clash_t::DATA;
        result.reason = options.overlap == overlap_policy_t::ERROR
                            ? "both images give data at " + hexAddress(*result.address)
                            : "the images give different bytes at " + hexAddress(*result.address) + " (0x" +
                                  hexByte(result.imageByte) + " and 0x" + hexByte(result.otherByte) + ")";
        return result;
    }
    bool hasStart = false;
    start_address_t start{0, 0};
    if (!mergedStart(*this, other, options.start, hasStart, start)) {
        result.status = status_t::OVERLAP;
        result.clash = merge_result_t::clash_t::START_ADDRESS;
        result.reason = "the images give different start addresses (" + hexAddress(start_.value) + " and " +
                        hexAddress(other.start_.value) + ")";
        return result;
    }
    if (segments_.empty()) {
        segments_ = std::move(other.segments_);
    } else if (options.overlap == overlap_policy_t::FIRST) {
        for (const piece_t& p : piecesOutside(segments_, other.segments_))
            write(p.address, p.data, p.length);
    } else {
        for (segment_t& s : other.segments_) {
            // A segment that meets none of the image's moves in whole.
            const auto after = std::lower_bound(segments_.begin(), segments_.end(), s.address,
                                                [](const segment_t& t, uint64_t a) { return t.endAddress() < a; });
            if (after == segments_.end() || after->address > s.endAddress())
                segments_.insert(after, std::move(s));
            else
                write(s.address, s.bytes.data(), s.bytes.size());
        }
    }
    if (header_.empty())
        header_ = other.header_;
    hasStart_ = hasStart;
    start_ = hasStart ? start : start_address_t{0, 0};
    other.clear();
    return result;
}

result_t MemoryImage::offset(int64_t delta)
{
    result_t result;
    if (!segments_.empty()) {
        const int64_t lowest = static_cast<int64_t>(lowestAddress()) + delta;
        const int64_t highest = static_cast<int64_t>(highestAddress()) + delta;
        if (lowest < 0 || highest >= static_cast<int64_t>(ADDRESS_SPACE)) {
            const uint32_t at = lowest < 0 ? lowestAddress() : highestAddress();
            return failureAt(status_t::OUT_OF_RANGE,
                             "moving the data by " + signedHex(delta) + " would put the byte at " + hexAddress(at) +
                                 (lowest < 0 ? " below address 0" : " past address 0xFFFFFFFF"),
                             at);
        }
    }
    int64_t start = 0;
    if (hasStart_) {
        const uint32_t linear = start_.type == 5 ? start_.value : (start_.value >> 16) * 16 + (start_.value & 0xFFFF);
        start = static_cast<int64_t>(linear) + delta;
        if (start < 0 || start >= static_cast<int64_t>(ADDRESS_SPACE))
            return failureAt(status_t::OUT_OF_RANGE,
                             "moving the start address " + hexAddress(linear) + " by " + signedHex(delta) +
                                 " would put it " + (start < 0 ? "below address 0" : "past address 0xFFFFFFFF"),
                             linear);
        start_ = start_address_t{5, static_cast<uint32_t>(start)};
    }
    for (segment_t& s : segments_)
        s.address = static_cast<uint32_t>(static_cast<int64_t>(s.address) + delta);
    return result;
}

void MemoryImage::crop(const std::vector<range_t>& ranges)
{
    const std::vector<range_t> keep = normalized(ranges);
    segments_t kept;
    size_t r = 0;
    for (segment_t& s : segments_) {
        while (r < keep.size() && keep[r].end <= s.address)
            ++r;
        for (size_t k = r; k < keep.size() && keep[k].start < s.endAddress(); ++k) {
            const uint64_t from = std::max<uint64_t>(keep[k].start, s.address);
            const uint64_t to = std::min(keep[k].end, s.endAddress());
            if (from == s.address && to == s.endAddress()) {
                kept.push_back(std::move(s));
                break;
            }
            const auto begin = s.bytes.begin() + static_cast<long>(from - s.address);
            kept.push_back(segment_t{static_cast<uint32_t>(from),
                                     std::vector<uint8_t>(begin, begin + static_cast<long>(to - from))});
        }
    }
    segments_ = std::move(kept);
}

void MemoryImage::exclude(const range_t& range)
{
    if (range.size() == 0)
        return;
    std::vector<range_t> keep{range_t{0, range.start}};
    if (range.end < ADDRESS_SPACE)
        keep.push_back(range_t{static_cast<uint32_t>(range.end), ADDRESS_SPACE});
    crop(keep);
}

void MemoryImage::fillRange(const range_t& range, uint8_t fill)
{
    const uint64_t end = std::min(range.end, ADDRESS_SPACE);
    if (end <= range.start)
        return;
    // The segments that overlap or meet the range become one with it.
    const auto first = std::lower_bound(segments_.begin(), segments_.end(), static_cast<uint64_t>(range.start),
                                        [](const segment_t& s, uint64_t a) { return s.endAddress() < a; });
    const auto last = std::upper_bound(first, segments_.end(), end,
                                       [](uint64_t e, const segment_t& s) { return e < s.address; });
    const uint32_t lowest = first == last ? range.start : std::min(first->address, range.start);
    const uint64_t highest = first == last ? end : std::max(std::prev(last)->endAddress(), end);
    if (highest - lowest > std::vector<uint8_t>().max_size())
        throw std::bad_alloc();
    std::vector<uint8_t> bytes;
    auto s = first;
    if (s != last && s->address == lowest) {
        bytes = std::move(s->bytes); // grown in place where it can be
        ++s;
    }
    bytes.resize(static_cast<size_t>(highest - lowest), fill);
    for (; s != last; ++s) {
        std::copy(s->bytes.begin(), s->bytes.end(), bytes.begin() + static_cast<long>(s->address - lowest));
        std::vector<uint8_t>().swap(s->bytes);
    }
    const auto at = segments_.erase(first, last);
    segments_.insert(at, segment_t{lowest, std::move(bytes)});
}

result_t MemoryImage::swapBytes(unsigned wordSize)
{
    result_t result;
    if (wordSize != 2 && wordSize != 4)
        return failure(status_t::BAD_ARGUMENT, "words are 2 or 4 bytes, not " + std::to_string(wordSize));
    for (const segment_t& s : segments_) {
        const bool startsInside = s.address % wordSize != 0;
        if (startsInside || s.endAddress() % wordSize != 0) {
            const uint64_t at = startsInside ? s.address : s.endAddress() - s.endAddress() % wordSize;
            return failureAt(status_t::BAD_ARGUMENT,
                             "the data at " + hexAddress(at) + " does not fill its " + std::to_string(wordSize) +
                                 "-byte word",
                             static_cast<uint32_t>(at));
        }
    }
    for (segment_t& s : segments_)
        for (size_t i = 0; i < s.bytes.size(); i += wordSize)
            std::reverse(s.bytes.begin() + static_cast<long>(i), s.bytes.begin() + static_cast<long>(i + wordSize));
    return result;
}

} // namespace hexblocks
