// Plans an image read from arbitrary bytes onto a flash whose geometry text
// comes from the input too, and checks the plan against a byte-by-byte
// model: the erase list is exactly the sectors that hold data with the
// right partial flags, every data byte lies in one written or skipped-blank
// page, and the walker's pages are aligned, full and hold the image. Then
// verifies the image against its own flat copy with chosen bytes changed,
// and diffs it against a copy with a range removed and a byte changed.
#include "flash_plan.h"
#include "fuzz_common.h"
#include "formats.h"
#include "memory_image.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

using namespace hexblocks;

namespace {

const uint64_t MAX_DATA = 1 << 16; // keeps the model cheap
const uint32_t MAX_WALKED_PAGE = 1 << 16;

using byte_t = std::pair<uint32_t, uint8_t>;

std::vector<byte_t> modelOf(const MemoryImage& image)
{
    std::vector<byte_t> bytes;
    for (const segment_t& s : image.segments())
        for (size_t i = 0; i < s.bytes.size(); ++i)
            bytes.emplace_back(static_cast<uint32_t>(s.address + i), s.bytes[i]);
    return bytes;
}

// The data bytes in [start, end), as a range of the model.
std::pair<size_t, size_t> within(const std::vector<byte_t>& model, uint64_t start, uint64_t end)
{
    auto before = [](const byte_t& b, uint64_t a) { return b.first < a; };
    const size_t first = static_cast<size_t>(std::lower_bound(model.begin(), model.end(), start, before) - model.begin());
    const size_t last = static_cast<size_t>(std::lower_bound(model.begin(), model.end(), end, before) - model.begin());
    return {first, last};
}

void checkPlan(const MemoryImage& image, const FlashPlan::geometry_t& geometry, bool keepBlank)
{
    FlashPlan plan;
    const result_t made = plan.make(image, geometry, keepBlank);
    const std::vector<byte_t> model = modelOf(image);
    const bool outside = !model.empty() && (model.front().first < geometry.start || model.back().first >= geometry.end());
    FUZZ_CHECK(static_cast<bool>(made) == !outside);
    if (!made) {
        FUZZ_CHECK(made.status == status_t::OUT_OF_RANGE && made.address.has_value());
        const uint32_t address = made.address.value_or(0);
        FUZZ_CHECK(address < geometry.start || address >= geometry.end());
        FUZZ_CHECK(std::binary_search(model.begin(), model.end(), byte_t{address, 0},
                                      [](const byte_t& x, const byte_t& y) { return x.first < y.first; }));
        FUZZ_CHECK(plan.eraseList().empty() && plan.writeList().empty());
        return;
    }

    // Erase: ascending sectors of the geometry, each holding data, and every
    // data byte in one of them.
    uint64_t erased = 0, partial = 0, covered = 0, previousEnd = 0;
    for (const FlashPlan::sector_t& s : plan.eraseList()) {
        const uint64_t end = static_cast<uint64_t>(s.address) + s.size;
        FUZZ_CHECK(s.address >= previousEnd && s.address >= geometry.start && end <= geometry.end());
        const std::pair<size_t, size_t> held = within(model, s.address, end);
        FUZZ_CHECK(held.second > held.first);
        FUZZ_CHECK(s.partial == (held.second - held.first < s.size));
        covered += held.second - held.first;
        erased += s.size;
        partial += s.partial ? 1 : 0;
        previousEnd = end;
    }
    FUZZ_CHECK(covered == model.size());
    FUZZ_CHECK(erased == plan.eraseBytes() && partial == plan.partialSectors());

    // Write: every page with data is written, or skipped when all its data
    // bytes are the erased value.
    const uint32_t pageSize = geometry.pageSize;
    uint64_t pages = 0, skipped = 0;
    size_t run = 0;
    for (size_t i = 0; i < model.size();) {
        const uint64_t page = model[i].first - model[i].first % pageSize;
        const std::pair<size_t, size_t> held = within(model, page, page + pageSize);
        const bool blank = std::all_of(model.begin() + static_cast<long>(held.first),
                                       model.begin() + static_cast<long>(held.second),
                                       [&geometry](const byte_t& b) { return b.second == geometry.erased; });
        while (run < plan.writeList().size() && plan.writeList()[run].end <= page)
            ++run;
        const bool written = run < plan.writeList().size() && plan.writeList()[run].start <= page;
        FUZZ_CHECK(written == (!blank || keepBlank));
        pages += written ? 1 : 0;
        skipped += written ? 0 : 1;
        i = held.second;
    }
    FUZZ_CHECK(pages == plan.writePages() && skipped == plan.skippedBlank());

    if (pageSize > MAX_WALKED_PAGE)
        return;
    FlashPlan::PageWalker walker(image, plan);
    uint64_t walked = 0;
    while (walker.next()) {
        FUZZ_CHECK(walker.address() % pageSize == 0 && walker.size() == pageSize);
        const std::vector<uint8_t> expected = image.copyRange(walker.address(), pageSize, geometry.erased);
        FUZZ_CHECK(std::memcmp(walker.data(), expected.data(), pageSize) == 0);
        ++walked;
    }
    FUZZ_CHECK(walked == plan.writePages());
}

void checkCompare(const MemoryImage& image, const uint8_t* data, size_t size)
{
    if (image.empty() || image.span() > MAX_DATA)
        return;
    // A dump of the image from a little below its data, with the bytes the
    // input names changed.
    const uint32_t low = image.lowestAddress();
    const uint32_t from = low - std::min<uint32_t>(low, size > 0 ? data[0] : 0);
    std::vector<uint8_t> dump = image.copyRange(from, static_cast<size_t>(image.span() + (low - from)), 0xFF);
    for (size_t i = 1; i + 1 < size && i < 16; i += 2)
        dump[data[i] * 257u % dump.size()] ^= data[i + 1];
    const verify_result_t verified = image.verify(dump.data(), dump.size(), from, 1000);
    FUZZ_CHECK(verified.compared == image.dataSize() && verified.notCovered == 0);
    FUZZ_CHECK(verified.mismatches == verified.first.size());
    FUZZ_CHECK(verified.ok() == (verified.mismatches == 0));
    for (const mismatch_t& m : verified.first)
        FUZZ_CHECK(m.expected == image.copyRange(m.address, 1)[0] && m.found == dump[m.address - from]);

    // A copy with a range removed and the first byte changed.
    FUZZ_CHECK(image.diff(image).equal());
    MemoryImage other = image;
    const uint32_t cut = low + (size > 1 ? data[1] : 0) % static_cast<uint32_t>(image.span());
    other.exclude(range_t{cut, std::min<uint64_t>(0x100000000ull, static_cast<uint64_t>(cut) + (size > 2 ? data[2] : 1))});
    const uint64_t removed = image.dataSize() - other.dataSize();
    const uint8_t first = static_cast<uint8_t>(image.copyRange(low, 1)[0] ^ 0x5A);
    const bool firstKept = other.hasDataAt(low);
    if (firstKept)
        other.write(low, &first, 1);
    const diff_result_t diff = image.diff(other);
    uint64_t onlyImage = 0, differ = 0;
    uint64_t previousEnd = 0;
    for (const difference_t& d : diff.ranges) {
        FUZZ_CHECK(d.start >= previousEnd && d.end > d.start);
        FUZZ_CHECK(d.kind != difference_t::kind_t::ONLY_OTHER);
        if (d.kind == difference_t::kind_t::ONLY_IMAGE) {
            FUZZ_CHECK(d.bytes == d.end - d.start);
            onlyImage += d.bytes;
        } else {
            differ += d.bytes;
        }
        previousEnd = d.end;
    }
    FUZZ_CHECK(onlyImage == removed);
    FUZZ_CHECK(differ == (firstKept ? 1u : 0u));
    FUZZ_CHECK(!diff.startDiffers);
}

} // namespace

// The input: geometry text up to the first newline, a page size, an erased
// value and the blank-page flag in the next six bytes, then the image (any
// format, else binary at 0x08000000).
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const uint8_t* newline = static_cast<const uint8_t*>(std::memchr(data, '\n', std::min<size_t>(size, 80)));
    if (newline == nullptr || static_cast<size_t>(newline - data) + 7 > size)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data), static_cast<size_t>(newline - data));
    const uint8_t* p = newline + 1;
    FlashPlan::geometry_t geometry;
    geometry.pageSize = static_cast<uint32_t>(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3];
    geometry.erased = p[4];
    const bool keepBlank = p[5] & 1;
    const uint8_t* rest = p + 6;
    const size_t restSize = size - static_cast<size_t>(rest - data);

    MemoryImage image;
    read_options_t options;
    if (!readMemory(image, rest, restSize, options)) {
        options.detect = false;
        options.format = file_format_t::BINARY;
        options.address = 0x08000000;
        readMemory(image, rest, restSize, options);
    }
    if (image.dataSize() > MAX_DATA)
        return 0;

    const result_t parsed = FlashPlan::parseSectors(text, geometry);
    if (parsed) {
        FUZZ_CHECK(FlashPlan::checkGeometry(geometry));
        checkPlan(image, geometry, keepBlank);
    }
    checkCompare(image, rest, restSize);
    return 0;
}
