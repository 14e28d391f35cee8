// The C API against the C++ API it wraps, on generated images: the same
// segments, text, checksums, plans, verify and diff results, and the same
// statuses and reasons for the same failures.
#include "checksum.h"
#include "flash_plan.h"
#include "formats.h"
#include "hexblocks.h"
#include "memory_image.h"
#include "support/image_view.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {

struct ImageDeleter {
    void operator()(hb_image_t* image) const { hb_imageDestroy(image); }
};
using c_image_t = std::unique_ptr<hb_image_t, ImageDeleter>;

// The C image of an image: its bytes and start address written through
// the C API.
c_image_t cImageOf(const MemoryImage& image)
{
    hb_image_t* made = nullptr;
    EXPECT_EQ(hb_imageCreate(&made, nullptr), HB_OK);
    c_image_t c(made);
    for (const segment_t& s : image.segments())
        EXPECT_EQ(hb_imageWrite(made, s.address, s.bytes.data(), s.bytes.size(), nullptr), HB_OK);
    if (image.hasStartAddress()) {
        const hb_start_address_t start{image.startAddress().type, image.startAddress().value};
        EXPECT_EQ(hb_imageSetStartAddress(made, &start, nullptr), HB_OK);
    }
    return c;
}

// The segments of a C image, as the tests compare them.
std::vector<SegmentView> segmentsOf(const hb_image_t* image)
{
    std::vector<SegmentView> segments;
    for (size_t i = 0; i < hb_imageSegmentCount(image); ++i) {
        hb_segment_t s;
        EXPECT_EQ(hb_imageSegment(image, i, &s, nullptr), HB_OK);
        segments.push_back({s.address, std::vector<uint8_t>(s.data, s.data + s.size)});
    }
    return segments;
}

std::string cText(const hb_image_t* image, hb_format_t format, unsigned recordSize)
{
    hb_write_options_t options;
    hb_writeOptionsInit(&options);
    options.format = format;
    options.recordSize = recordSize;
    void* data = nullptr;
    size_t size = 0;
    EXPECT_EQ(hb_writeMemory(image, &options, &data, &size, nullptr), HB_OK);
    std::string text(static_cast<const char*>(data), size);
    hb_free(data);
    return text;
}

std::string cppText(const MemoryImage& image, file_format_t format, unsigned recordSize)
{
    write_options_t options;
    options.format = format;
    options.recordSize = recordSize;
    std::string text;
    EXPECT_TRUE(writeMemory(image, text, options));
    return text;
}

} // namespace

TEST(CApiAgainstCpp, ImagesWrittenAndReadInEveryRecordFormat)
{
    std::mt19937 random(27);
    for (int i = 0; i < 12; ++i) {
        SCOPED_TRACE(i);
        const MemoryImage image = randomImage(random, i % 2 == 0);
        const c_image_t c = cImageOf(image);
        EXPECT_EQ(segmentsOf(c.get()), segmentsOf(image));
        EXPECT_EQ(hb_imageLowestAddress(c.get()), image.lowestAddress());
        EXPECT_EQ(hb_imageHighestAddress(c.get()), image.highestAddress());
        EXPECT_EQ(hb_imageSpan(c.get()), image.span());
        EXPECT_EQ(hb_imageDataSize(c.get()), image.dataSize());
        const unsigned recordSize = 1 + random() % 32;
        for (const auto& [cFormat, format] : {std::pair{HB_FORMAT_INTEL_HEX, file_format_t::INTEL_HEX},
                                              std::pair{HB_FORMAT_SRECORD, file_format_t::SRECORD},
                                              std::pair{HB_FORMAT_TI_TXT, file_format_t::TI_TXT}}) {
            const std::string text = cText(c.get(), cFormat, recordSize);
            EXPECT_EQ(text, cppText(image, format, recordSize));
            hb_image_t* read = nullptr;
            ASSERT_EQ(hb_imageCreate(&read, nullptr), HB_OK);
            const c_image_t owned(read);
            hb_read_options_t as;
            hb_readOptionsInit(&as);
            as.detect = 0;
            as.format = cFormat;
            ASSERT_EQ(hb_readMemory(read, text.data(), text.size(), &as, nullptr), HB_OK);
            EXPECT_EQ(segmentsOf(read), segmentsOf(image));
        }
    }
}

TEST(CApiAgainstCpp, ChecksumsOverImageRanges)
{
    std::mt19937 random(28);
    for (int i = 0; i < 6; ++i) {
        const MemoryImage image = randomImage(random, false, true);
        const c_image_t c = cImageOf(image);
        const hb_range_t range{image.lowestAddress(), image.highestAddress() + uint64_t{1}};
        for (const Checksum::algorithm_t& algorithm : Checksum::algorithms()) {
            SCOPED_TRACE(algorithm.name);
            Checksum cpp(algorithm);
            cpp.updateImage(image, range_t{range.start, range.end}, 0xA5);
            hb_checksum_t* checksum = nullptr;
            ASSERT_EQ(hb_checksumCreate(&checksum, algorithm.name.c_str(), 0xFF, nullptr), HB_OK);
            hb_checksumUpdateImage(checksum, c.get(), range, 0xA5);
            EXPECT_EQ(hb_checksumValue(checksum), cpp.value());
            EXPECT_EQ(hb_checksumSize(checksum), cpp.size());
            hb_checksumDestroy(checksum);
        }
    }
}

TEST(CApiAgainstCpp, FlashPlansAndTheirPages)
{
    std::mt19937 random(29);
    for (int i = 0; i < 8; ++i) {
        SCOPED_TRACE(i);
        std::vector<uint8_t> bytes(1 + random() % 70000);
        for (uint8_t& b : bytes)
            b = random() % 3 == 0 ? 0xFF : static_cast<uint8_t>(random());
        const uint32_t address = 0x08000000 + random() % 0x10000;
        const MemoryImage image = imageOf({{address, bytes}});
        const c_image_t c = cImageOf(image);
        FlashPlan::geometry_t geometry;
        ASSERT_TRUE(FlashPlan::parseSectors("0x08000000:4x16K,1x64K", geometry));
        geometry.pageSize = 256;
        FlashPlan cpp;
        ASSERT_TRUE(cpp.make(image, geometry));
        hb_flash_plan_t* plan = nullptr;
        ASSERT_EQ(hb_flashPlanCreate(&plan, c.get(), "0x08000000:4x16K,1x64K", nullptr, nullptr), HB_OK);
        size_t count = 0;
        const hb_sector_t* sectors = hb_flashPlanEraseList(plan, &count);
        ASSERT_EQ(count, cpp.eraseList().size());
        for (size_t s = 0; s < count; ++s) {
            EXPECT_EQ(sectors[s].address, cpp.eraseList()[s].address);
            EXPECT_EQ(sectors[s].size, cpp.eraseList()[s].size);
            EXPECT_EQ(sectors[s].partial != 0, cpp.eraseList()[s].partial);
        }
        const hb_range_t* writes = hb_flashPlanWriteList(plan, &count);
        ASSERT_EQ(count, cpp.writeList().size());
        for (size_t w = 0; w < count; ++w) {
            EXPECT_EQ(writes[w].start, cpp.writeList()[w].start);
            EXPECT_EQ(writes[w].end, cpp.writeList()[w].end);
        }
        EXPECT_EQ(hb_flashPlanSkippedBlank(plan), cpp.skippedBlank());
        hb_page_walker_t* walker = nullptr;
        ASSERT_EQ(hb_pageWalkerCreate(&walker, c.get(), plan, nullptr), HB_OK);
        FlashPlan::PageWalker pages(image, cpp);
        while (pages.next()) {
            ASSERT_TRUE(hb_pageWalkerNext(walker));
            EXPECT_EQ(hb_pageWalkerAddress(walker), pages.address());
            EXPECT_EQ(std::vector<uint8_t>(hb_pageWalkerData(walker), hb_pageWalkerData(walker) + hb_pageWalkerSize(walker)),
                      std::vector<uint8_t>(pages.data(), pages.data() + pages.size()));
        }
        EXPECT_FALSE(hb_pageWalkerNext(walker));
        hb_pageWalkerDestroy(walker);
        hb_flashPlanDestroy(plan);
    }
}

TEST(CApiAgainstCpp, VerifyAndDiff)
{
    std::mt19937 random(30);
    for (int i = 0; i < 8; ++i) {
        SCOPED_TRACE(i);
        const MemoryImage image = randomImage(random, i % 2 == 0, true);
        MemoryImage changed = image;
        const uint8_t poke = 0x5A;
        ASSERT_TRUE(changed.write(image.lowestAddress() + static_cast<uint32_t>(random() % image.span()), &poke, 1));
        const c_image_t c = cImageOf(image);
        const c_image_t other = cImageOf(changed);

        const std::vector<uint8_t> dump = changed.copyRange(image.lowestAddress(), static_cast<size_t>(image.span()));
        const verify_result_t cpp = image.verify(dump.data(), dump.size(), image.lowestAddress(), 4);
        hb_verify_result_t result;
        hb_mismatch_t first[4];
        EXPECT_EQ(hb_imageVerify(c.get(), dump.data(), dump.size(), image.lowestAddress(), &result, first, 4, nullptr),
                  cpp ? HB_OK : HB_MISMATCH);
        EXPECT_EQ(result.compared, cpp.compared);
        EXPECT_EQ(result.mismatches, cpp.mismatches);
        ASSERT_EQ(result.listed, cpp.first.size());
        for (size_t m = 0; m < result.listed; ++m)
            EXPECT_EQ(first[m].address, cpp.first[m].address);

        const diff_result_t diff = image.diff(changed);
        hb_difference_t* ranges = nullptr;
        size_t count = 0;
        int startDiffers = -1;
        ASSERT_EQ(hb_imageDiff(c.get(), other.get(), nullptr, &ranges, &count, &startDiffers, nullptr), HB_OK);
        ASSERT_EQ(count, diff.ranges.size());
        for (size_t r = 0; r < count; ++r) {
            EXPECT_EQ(ranges[r].start, diff.ranges[r].start);
            EXPECT_EQ(ranges[r].end, diff.ranges[r].end);
            EXPECT_EQ(ranges[r].bytes, diff.ranges[r].bytes);
        }
        EXPECT_EQ(startDiffers != 0, diff.startDiffers);
        hb_free(ranges);
    }
}

TEST(CApiAgainstCpp, FailuresHaveTheSameStatusReasonLineAndAddress)
{
    const std::vector<std::string> inputs = {":0400000001020304F3\n", ":0400000001020304F2\nhello\n",
                                             ":00000006FA\n",        "S1070100010203F1\nS9030000FC\n",
                                             "zzz",                  ":0400000001020304F2\n:0100020009F4\n"};
    read_options_t strict;
    strict.overlap = overlap_policy_t::ERROR;
    hb_read_options_t cStrict;
    hb_readOptionsInit(&cStrict);
    cStrict.hasOverlap = 1;
    cStrict.overlap = HB_OVERLAP_ERROR;
    for (const std::string& input : inputs) {
        SCOPED_TRACE(input);
        MemoryImage image;
        const read_result_t cpp = readMemory(image, input.data(), input.size(), strict);
        ASSERT_FALSE(cpp);
        hb_image_t* c = nullptr;
        ASSERT_EQ(hb_imageCreate(&c, nullptr), HB_OK);
        const c_image_t owned(c);
        hb_error_t error;
        EXPECT_EQ(hb_readMemory(c, input.data(), input.size(), &cStrict, &error), static_cast<int>(cpp.status));
        EXPECT_EQ(error.status, static_cast<int>(cpp.status));
        EXPECT_EQ(std::string(error.reason), cpp.reason);
        EXPECT_EQ(error.line, cpp.line);
        EXPECT_EQ(error.hasAddress != 0, cpp.address.has_value());
        if (cpp.address) {
            EXPECT_EQ(error.address, *cpp.address);
        }
    }
}
