// Merges two images read from arbitrary bytes under a policy the input picks,
// edits the result (offset, crop, exclude, fill, swap, checksum insertion)
// and checks every step against a byte-by-byte model: the same bytes, a
// well-formed image, and no change at all when a step fails. Checksums over
// an image range must equal those over the same bytes flattened.
#include "checksum.h"
#include "fuzz_common.h"
#include "formats.h"
#include "memory_image.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

using namespace hexblocks;

namespace {

// Every data byte with its address, in address order: flat, so that the
// model costs little beside the code it checks.
using byte_t = std::pair<uint32_t, uint8_t>;
using bytemap_t = std::vector<byte_t>;
using range_t = range_t;

const uint64_t TOP = 0x100000000ull;
const uint64_t MAX_DATA = 1 << 16; // keeps the model cheap

bytemap_t modelOf(const MemoryImage& image)
{
    bytemap_t bytes;
    for (const segment_t& s : image.segments())
        for (size_t i = 0; i < s.bytes.size(); ++i)
            bytes.emplace_back(static_cast<uint32_t>(s.address + i), s.bytes[i]);
    return bytes;
}

const byte_t* lookup(const bytemap_t& model, uint32_t address)
{
    const auto at = std::lower_bound(model.begin(), model.end(), byte_t{address, 0},
                                     [](const byte_t& x, const byte_t& y) { return x.first < y.first; });
    return at != model.end() && at->first == address ? &*at : nullptr;
}

// a and b joined; where both give an address, b's byte unless keepA.
bytemap_t joined(const bytemap_t& a, const bytemap_t& b, bool keepA)
{
    bytemap_t out;
    size_t i = 0, j = 0;
    while (i < a.size() || j < b.size()) {
        if (j == b.size() || (i < a.size() && a[i].first < b[j].first)) {
            out.push_back(a[i++]);
        } else if (i == a.size() || b[j].first < a[i].first) {
            out.push_back(b[j++]);
        } else {
            out.push_back(keepA ? a[i] : b[j]);
            ++i;
            ++j;
        }
    }
    return out;
}

template <typename Keep> bytemap_t kept(const bytemap_t& model, Keep keep)
{
    bytemap_t out;
    std::copy_if(model.begin(), model.end(), std::back_inserter(out), keep);
    return out;
}

void checkWellFormed(const MemoryImage& image)
{
    const std::vector<segment_t>& segments = image.segments();
    for (size_t i = 0; i < segments.size(); ++i) {
        FUZZ_CHECK(!segments[i].bytes.empty());
        FUZZ_CHECK(segments[i].endAddress() <= TOP);
        FUZZ_CHECK(i == 0 || segments[i - 1].endAddress() < segments[i].address);
    }
}

// The parameters at the front of the input, read a few bytes at a time.
class Parameters {
public:
    Parameters(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint32_t next(unsigned bytes)
    {
        uint32_t value = 0;
        for (unsigned i = 0; i < bytes; ++i)
            value = value << 8 | (at_ < size_ ? data_[at_++] : 0);
        return value;
    }

private:
    const uint8_t* data_;
    size_t size_;
    size_t at_ = 0;
};

// A range near the image's data (or anywhere), at most 4 KiB long.
range_t rangeNear(const MemoryImage& image, Parameters& p)
{
    const uint64_t base = p.next(1) & 1 ? image.lowestAddress() : p.next(4);
    const uint64_t start = std::min<uint64_t>(TOP - 1, base + (p.next(2) & 0x1FFF) - std::min<uint64_t>(base, 0x1000));
    const uint64_t end = std::min<uint64_t>(TOP, start + 1 + (p.next(2) & 0xFFF));
    return range_t{static_cast<uint32_t>(start), end};
}

bool inside(uint32_t address, const range_t& r)
{
    return address >= r.start && address < r.end;
}

MemoryImage readPart(const uint8_t* data, size_t size, uint32_t address)
{
    MemoryImage image;
    read_options_t options;
    if (!readMemory(image, data, size, options)) {
        options.detect = false;
        options.format = file_format_t::BINARY;
        options.address = address;
        readMemory(image, data, size, options);
    }
    return image;
}

void checkMerge(MemoryImage& merged, MemoryImage& later, Parameters& p)
{
    merge_options_t options;
    options.overlap = static_cast<overlap_policy_t>(p.next(1) % 4);
    options.start = static_cast<start_policy_t>(p.next(1) % 4);
    bytemap_t model = modelOf(merged);
    const bytemap_t theirs = modelOf(later);
    const bool error = options.overlap == overlap_policy_t::ERROR;
    const bool identical = options.overlap == overlap_policy_t::IDENTICAL;
    bool clash = false;
    uint32_t clashAt = 0;
    for (const auto& b : theirs) {
        const byte_t* held = lookup(model, b.first);
        if (held != nullptr && (error || (identical && held->second != b.second))) {
            clash = true;
            clashAt = b.first;
            break;
        }
    }
    const bytemap_t before = model;
    const merge_result_t result = merged.merge(std::move(later), options);
    checkWellFormed(merged);
    if (clash) {
        FUZZ_CHECK(!result && result.clash == merge_result_t::clash_t::DATA && result.address == clashAt);
        FUZZ_CHECK(modelOf(merged) == before);
        return;
    }
    if (!result) {
        FUZZ_CHECK(result.clash == merge_result_t::clash_t::START_ADDRESS);
        FUZZ_CHECK(modelOf(merged) == before);
        return;
    }
    model = joined(model, theirs, options.overlap == overlap_policy_t::FIRST);
    FUZZ_CHECK(modelOf(merged) == model);
}

void checkEdit(MemoryImage& image, Parameters& p)
{
    bytemap_t model = modelOf(image);
    const bytemap_t before = model;
    switch (p.next(1) % 6) {
    case 0: {
        const int64_t delta = static_cast<int32_t>(p.next(4));
        auto moves = [delta](int64_t a) { return a + delta >= 0 && a + delta < static_cast<int64_t>(TOP); };
        bool fits = model.empty() || (moves(model.begin()->first) && moves(model.rbegin()->first));
        if (image.hasStartAddress()) {
            const start_address_t s = image.startAddress();
            fits = fits && moves(s.type == 5 ? s.value : (s.value >> 16) * 16 + (s.value & 0xFFFF));
        }
        const result_t r = image.offset(delta);
        FUZZ_CHECK(static_cast<bool>(r) == fits);
        if (!fits)
            break; // unchanged, as checked below
        for (byte_t& b : model)
            b.first = static_cast<uint32_t>(b.first + delta);
        break;
    }
    case 1: {
        const range_t a = rangeNear(image, p), b = rangeNear(image, p);
        image.crop({a, b});
        model = kept(model, [&a, &b](const byte_t& x) { return inside(x.first, a) || inside(x.first, b); });
        break;
    }
    case 2: {
        const range_t r = rangeNear(image, p);
        image.exclude(r);
        model = kept(model, [&r](const byte_t& x) { return !inside(x.first, r); });
        break;
    }
    case 3: {
        const range_t r = rangeNear(image, p);
        const uint8_t fill = static_cast<uint8_t>(p.next(1));
        image.fillRange(r, fill);
        bytemap_t filled;
        for (uint64_t a = r.start; a < r.end; ++a)
            filled.emplace_back(static_cast<uint32_t>(a), fill);
        model = joined(model, filled, true);
        break;
    }
    case 4: {
        const unsigned word = p.next(1) & 1 ? 4 : 2;
        // Whole words are runs of word entries from an aligned address.
        bool whole = model.size() % word == 0;
        for (size_t i = 0; whole && i < model.size(); i += word)
            for (unsigned k = 0; k < word; ++k)
                whole = whole && model[i + k].first == model[i].first + k && model[i].first % word == 0;
        const result_t r = image.swapBytes(word);
        FUZZ_CHECK(static_cast<bool>(r) == whole);
        if (!whole)
            break;
        for (size_t i = 0; i < model.size(); i += word)
            for (unsigned k = 0; k < word / 2; ++k)
                std::swap(model[i + k].second, model[i + word - 1 - k].second);
        break;
    }
    default: {
        const Checksum::algorithm_t& algorithm = Checksum::algorithms()[p.next(1) % Checksum::algorithms().size()];
        const range_t r = rangeNear(image, p);
        const uint8_t fill = static_cast<uint8_t>(p.next(1));
        Checksum overImage(algorithm, fill), overBytes(algorithm, fill);
        overImage.updateImage(image, r, fill);
        const std::vector<uint8_t> flat = image.copyRange(r.start, static_cast<size_t>(r.size()), fill);
        overBytes.update(flat.data(), flat.size());
        FUZZ_CHECK(overImage.value() == overBytes.value());
        const uint32_t at = p.next(4);
        const uint64_t end = static_cast<uint64_t>(at) + overImage.size();
        const bool fits = end <= TOP && (end <= r.start || at >= r.end);
        const result_t inserted =
            Checksum::insert(image, algorithm, r, fill, at, p.next(1) & 1 ? Checksum::byte_order_t::BIG
                                                                          : Checksum::byte_order_t::LITTLE);
        FUZZ_CHECK(static_cast<bool>(inserted) == fits);
        if (fits) {
            bytemap_t stored;
            uint32_t value = 0;
            for (uint32_t i = 0; i < overImage.size(); ++i) {
                stored.emplace_back(at + i, image.copyRange(at + i, 1)[0]);
                value |= static_cast<uint32_t>(stored.back().second) << (8 * i);
            }
            model = joined(model, stored, false);
            const uint32_t swapped = overImage.size() == 1 ? value
                                   : overImage.size() == 2 ? ((value & 0xFF) << 8 | value >> 8)
                                                           : __builtin_bswap32(value);
            FUZZ_CHECK(value == overBytes.value() || swapped == overBytes.value());
        }
        break;
    }
    }
    checkWellFormed(image);
    FUZZ_CHECK(modelOf(image) == model);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const size_t PARAMETERS = 32;
    if (size < PARAMETERS)
        return 0;
    Parameters p(data, PARAMETERS);
    const uint8_t* rest = data + PARAMETERS;
    const size_t restSize = size - PARAMETERS;
    const uint8_t* bar = static_cast<const uint8_t*>(std::memchr(rest, '|', restSize));
    const size_t firstSize = bar != nullptr ? static_cast<size_t>(bar - rest) : restSize / 2;
    const size_t secondStart = bar != nullptr ? firstSize + 1 : firstSize;
    MemoryImage first = readPart(rest, firstSize, p.next(4));
    MemoryImage second = readPart(rest + secondStart, restSize - secondStart, p.next(4));
    if (first.dataSize() > MAX_DATA || second.dataSize() > MAX_DATA)
        return 0;
    checkMerge(first, second, p);
    for (int i = 0; i < 3; ++i)
        checkEdit(first, p);
    return 0;
}
