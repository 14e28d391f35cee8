// Merging and editing MemoryImages: each overlap and start-address policy
// against a byte-by-byte model on generated overlapping inputs, offset, crop,
// exclude, fillRange and swapBytes with their errors and edges, and finding
// the line of the record that gives a byte.
#include "formats.h"
#include "memory_image.h"

#include "support/hex_text.h"
#include "support/image_view.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <optional>

#include <map>
#include <random>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {

using policy_t = overlap_policy_t;
using start_policy_t = start_policy_t;
using clash_t = merge_result_t::clash_t;
using range_t = range_t;

merge_options_t optionsOf(policy_t overlap, start_policy_t start = start_policy_t::ERROR)
{
    merge_options_t options;
    options.overlap = overlap;
    options.start = start;
    return options;
}

// What merging later into earlier gives, byte by byte; false with the
// address of the clash when the policy refuses.
bool modelMerge(bytemap_t& earlier, const bytemap_t& later, policy_t policy, uint32_t& clash)
{
    for (const auto& b : later) {
        const auto held = earlier.find(b.first);
        if (held == earlier.end())
            continue;
        if (policy == policy_t::ERROR || (policy == policy_t::IDENTICAL && held->second != b.second)) {
            clash = b.first; // the map is in address order: the lowest
            return false;
        }
    }
    for (const auto& b : later)
        if (policy != policy_t::FIRST || earlier.count(b.first) == 0)
            earlier[b.first] = b.second;
    return true;
}

// Up to four segments in a 256-byte area, some bytes copied from base so
// that identical overlaps happen too.
MemoryImage overlappingImage(std::mt19937& random, const bytemap_t& base)
{
    MemoryImage image;
    const int count = 1 + static_cast<int>(random() % 4);
    for (int i = 0; i < count; ++i) {
        const uint32_t address = 0x1000 + random() % 240;
        std::vector<uint8_t> bytes(1 + random() % 24);
        for (size_t k = 0; k < bytes.size(); ++k) {
            const auto held = base.find(static_cast<uint32_t>(address + k));
            bytes[k] = held != base.end() && random() % 4 != 0 ? held->second : static_cast<uint8_t>(random());
        }
        image.write(address, bytes.data(), bytes.size());
    }
    return image;
}

// A start address as startOf() gives it.
std::string startText(int type, uint32_t value)
{
    return "type " + std::to_string(type) + " value " + std::to_string(value);
}

} // namespace

TEST(ImageMerge, EveryPolicyMatchesTheModelOnOverlappingInputs)
{
    std::mt19937 random(99);
    int refused = 0, accepted = 0;
    for (policy_t policy : {policy_t::ERROR, policy_t::FIRST, policy_t::LAST, policy_t::IDENTICAL}) {
        for (int round = 0; round < 200; ++round) {
            MemoryImage merged;
            bytemap_t model;
            const int inputs = 2 + static_cast<int>(random() % 3);
            for (int i = 0; i < inputs; ++i) {
                MemoryImage input = overlappingImage(random, model);
                const bytemap_t inputBytes = bytesOf(input);
                const std::vector<SegmentView> before = segmentsOf(merged);
                uint32_t clash = 0;
                const bool expected = modelMerge(model, inputBytes, policy, clash);
                const merge_result_t result =
                    i % 2 ? merged.merge(input, optionsOf(policy)) : merged.merge(std::move(input), optionsOf(policy));
                ASSERT_EQ(static_cast<bool>(result), expected) << "round " << round << ", input " << i;
                expectWellFormed(merged);
                if (!expected) {
                    ++refused;
                    EXPECT_EQ(result.clash, clash_t::DATA);
                    EXPECT_EQ(result.address, clash);
                    EXPECT_EQ(result.imageByte, model.at(clash));
                    EXPECT_EQ(result.otherByte, inputBytes.at(clash));
                    EXPECT_EQ(segmentsOf(merged), before) << "a failed merge changes nothing";
                    break;
                }
                ++accepted;
                EXPECT_EQ(result.clash, clash_t::NONE);
                EXPECT_TRUE(result.reason.empty());
                ASSERT_EQ(bytesOf(merged), model) << "round " << round << ", input " << i;
            }
        }
    }
    EXPECT_GT(refused, 100);
    EXPECT_GT(accepted, 400);
}

TEST(ImageMerge, ReasonsNameTheAddressAndTheBytes)
{
    MemoryImage a = imageOf({{0x08000000, {1, 2, 3, 4}}});
    const MemoryImage b = imageOf({{0x08000002, {3, 9}}});
    merge_result_t r = a.merge(b);
    EXPECT_EQ(r.reason, "both images give data at 0x08000002");
    EXPECT_EQ(r.address, 0x08000002u);
    r = a.merge(b, optionsOf(policy_t::IDENTICAL));
    EXPECT_EQ(r.reason, "the images give different bytes at 0x08000003 (0x04 and 0x09)");
    EXPECT_EQ(r.address, 0x08000003u);
    EXPECT_EQ(r.imageByte, 4);
    EXPECT_EQ(r.otherByte, 9);
}

TEST(ImageMerge, DisjointImagesJoinWhereTheyMeet)
{
    MemoryImage a = imageOf({{0x100, {1, 2}}, {0x200, {3}}});
    MemoryImage b = imageOf({{0x102, {4}}, {0x0, {5}}, {0xFFFFFFFF, {6}}});
    ASSERT_TRUE(a.merge(std::move(b)));
    EXPECT_EQ(segmentsOf(a),
              (std::vector<SegmentView>{{0x0, {5}}, {0x100, {1, 2, 4}}, {0x200, {3}}, {0xFFFFFFFF, {6}}}));
    EXPECT_TRUE(b.empty());
    MemoryImage empty;
    ASSERT_TRUE(empty.merge(a));
    EXPECT_EQ(segmentsOf(empty), segmentsOf(a));
}

TEST(ImageMerge, StartAddressPolicies)
{
    const start_address_t one{5, 0x08000101}, two{5, 0x08004001};
    MemoryImage withOne, withTwo, withSame, without;
    withOne.setStartAddress(one);
    withTwo.setStartAddress(two);
    withSame.setStartAddress(one);
    struct expectation_t {
        start_policy_t policy;
        const MemoryImage* first;
        const MemoryImage* second;
        bool ok;
        std::string start;
    };
    const std::vector<expectation_t> cases = {
        {start_policy_t::ERROR, &withOne, &withTwo, false, ""},
        {start_policy_t::ERROR, &withOne, &withSame, true, startText(5, 0x08000101)},
        {start_policy_t::ERROR, &without, &withTwo, true, startText(5, 0x08004001)},
        {start_policy_t::ERROR, &withOne, &without, true, startText(5, 0x08000101)},
        {start_policy_t::FIRST, &withOne, &withTwo, true, startText(5, 0x08000101)},
        {start_policy_t::FIRST, &without, &withTwo, true, startText(5, 0x08004001)},
        {start_policy_t::LAST, &withOne, &withTwo, true, startText(5, 0x08004001)},
        {start_policy_t::LAST, &withOne, &without, true, startText(5, 0x08000101)},
        {start_policy_t::DROP, &withOne, &withTwo, true, "none"},
        {start_policy_t::DROP, &withOne, &without, true, "none"},
    };
    for (const expectation_t& c : cases) {
        MemoryImage merged(*c.first);
        const merge_result_t r = merged.merge(*c.second, optionsOf(policy_t::ERROR, c.policy));
        ASSERT_EQ(static_cast<bool>(r), c.ok) << static_cast<int>(c.policy);
        if (!c.ok) {
            EXPECT_EQ(r.clash, clash_t::START_ADDRESS);
            EXPECT_EQ(r.reason, "the images give different start addresses (0x08000101 and 0x08004001)");
            EXPECT_EQ(startOf(merged), startText(5, 0x08000101)) << "unchanged";
        } else {
            EXPECT_EQ(startOf(merged), c.start) << static_cast<int>(c.policy);
        }
    }
}

TEST(ImageMerge, TheFirstHeaderStays)
{
    MemoryImage a, b, c;
    b.setHeader("bootloader");
    c.setHeader("app");
    ASSERT_TRUE(a.merge(b));
    ASSERT_TRUE(a.merge(c));
    EXPECT_EQ(a.header(), "bootloader");
}

TEST(ImageEdits, OffsetMovesDataAndStartAddress)
{
    MemoryImage image = imageOf({{0x100, {1, 2}}, {0x200, {3}}});
    image.setStartAddress(start_address_t{3, 0x0010'0004}); // 0x10:0x0004 is 0x104
    ASSERT_TRUE(image.offset(0x08000000));
    EXPECT_EQ(segmentsOf(image), (std::vector<SegmentView>{{0x08000100, {1, 2}}, {0x08000200, {3}}}));
    EXPECT_EQ(startOf(image), startText(5, 0x08000104));
    ASSERT_TRUE(image.offset(-0x08000100));
    EXPECT_EQ(segmentsOf(image), (std::vector<SegmentView>{{0x0, {1, 2}}, {0x100, {3}}}));
    EXPECT_EQ(startOf(image), startText(5, 0x00000004));
}

TEST(ImageEdits, OffsetRefusesToLeaveTheAddressSpace)
{
    MemoryImage image = imageOf({{0x100, {1, 2}}, {0xFFFFFF00, {3, 4}}});
    result_t r = image.offset(0xFF);
    EXPECT_FALSE(r);
    EXPECT_EQ(r.reason, "moving the data by 0xFF would put the byte at 0xFFFFFF01 past address 0xFFFFFFFF");
    r = image.offset(-0x101);
    EXPECT_EQ(r.reason, "moving the data by -0x101 would put the byte at 0x00000100 below address 0");
    EXPECT_TRUE(image.offset(0xFE));
    EXPECT_EQ(image.highestAddress(), 0xFFFFFFFFu);
    EXPECT_TRUE(image.offset(-0x1FE));
    EXPECT_EQ(image.lowestAddress(), 0u);
    image.setStartAddress(start_address_t{5, 0x10});
    r = image.offset(-0x11);
    EXPECT_EQ(r.reason, "moving the data by -0x11 would put the byte at 0x00000000 below address 0");
    MemoryImage startOnly;
    startOnly.setStartAddress(start_address_t{5, 0x10});
    r = startOnly.offset(-0x11);
    EXPECT_EQ(r.reason, "moving the start address 0x00000010 by -0x11 would put it below address 0");
    EXPECT_EQ(startOf(startOnly), startText(5, 0x00000010));
    EXPECT_EQ(segmentsOf(image), (std::vector<SegmentView>{{0x0, {1, 2}}, {0xFFFFFE00, {3, 4}}}));
}

TEST(ImageEdits, CropKeepsTheUnionOfTheRanges)
{
    MemoryImage image = imageOf({{0x100, {1, 2, 3, 4, 5, 6, 7, 8}}, {0x200, {9, 10}}, {0xFFFFFFFE, {11, 12}}});
    image.setStartAddress(start_address_t{5, 0x100});
    image.crop({range_t{0x106, 0x300}, range_t{0x101, 0x103}, range_t{0x102, 0x104}, range_t{0x50, 0x50}});
    EXPECT_EQ(segmentsOf(image), (std::vector<SegmentView>{{0x101, {2, 3, 4}}, {0x106, {7, 8}}, {0x200, {9, 10}}}));
    EXPECT_EQ(startOf(image), startText(5, 0x00000100));
    MemoryImage top = imageOf({{0xFFFFFFFE, {11, 12}}, {0x10, {1}}});
    top.crop({range_t{0xFFFFFFFF, 0x100000000ull}});
    EXPECT_EQ(segmentsOf(top), (std::vector<SegmentView>{{0xFFFFFFFF, {12}}}));
    top.crop({});
    EXPECT_TRUE(top.empty());
}

TEST(ImageEdits, ExcludeRemovesARange)
{
    MemoryImage image = imageOf({{0x100, {1, 2, 3, 4}}, {0xFFFFFFFE, {5, 6}}});
    image.exclude(range_t{0x101, 0x103});
    EXPECT_EQ(segmentsOf(image), (std::vector<SegmentView>{{0x100, {1}}, {0x103, {4}}, {0xFFFFFFFE, {5, 6}}}));
    image.exclude(range_t{0xFFFFFFFF, 0x100000000ull});
    EXPECT_EQ(segmentsOf(image), (std::vector<SegmentView>{{0x100, {1}}, {0x103, {4}}, {0xFFFFFFFE, {5}}}));
    image.exclude(range_t{0x50, 0x50});
    EXPECT_EQ(image.dataSize(), 3u);
    image.exclude(range_t{0, 0x100000000ull});
    EXPECT_TRUE(image.empty());
}

TEST(ImageEdits, CropAndExcludeMatchTheModel)
{
    std::mt19937 random(31);
    for (int round = 0; round < 200; ++round) {
        MemoryImage image = overlappingImage(random, {});
        bytemap_t model = bytesOf(image);
        std::vector<range_t> ranges;
        for (unsigned i = random() % 4; i > 0; --i) {
            const uint32_t start = 0x1000 + random() % 270;
            ranges.push_back(range_t{start, start + random() % 40});
        }
        MemoryImage cropped(image);
        cropped.crop(ranges);
        bytemap_t keptModel;
        for (const auto& b : model)
            for (const range_t& r : ranges)
                if (b.first >= r.start && b.first < r.end)
                    keptModel.insert(b);
        EXPECT_EQ(bytesOf(cropped), keptModel);
        expectWellFormed(cropped);
        if (ranges.empty())
            continue;
        image.exclude(ranges[0]);
        for (auto b = model.begin(); b != model.end();)
            b = b->first >= ranges[0].start && b->first < ranges[0].end ? model.erase(b) : std::next(b);
        EXPECT_EQ(bytesOf(image), model);
        expectWellFormed(image);
    }
}

TEST(ImageEdits, FillRangeFillsOnlyTheGaps)
{
    MemoryImage image = imageOf({{0x0FF, {1}}, {0x102, {2, 3}}, {0x108, {4}}, {0x200, {5}}});
    image.fillRange(range_t{0x100, 0x106}, 0xEE);
    EXPECT_EQ(segmentsOf(image),
              (std::vector<SegmentView>{{0x0FF, {1, 0xEE, 0xEE, 2, 3, 0xEE, 0xEE}}, {0x108, {4}}, {0x200, {5}}}));
    image.fillRange(range_t{0x106, 0x108}, 0x00);
    EXPECT_EQ(segmentsOf(image),
              (std::vector<SegmentView>{{0x0FF, {1, 0xEE, 0xEE, 2, 3, 0xEE, 0xEE, 0, 0, 4}}, {0x200, {5}}}));
    MemoryImage empty;
    empty.fillRange(range_t{0xFFFFFFFC, 0x100000000ull}, 0xFF);
    EXPECT_EQ(segmentsOf(empty), (std::vector<SegmentView>{{0xFFFFFFFC, {0xFF, 0xFF, 0xFF, 0xFF}}}));
    empty.fillRange(range_t{0x10, 0x10}, 0xFF);
    EXPECT_EQ(empty.dataSize(), 4u);
}

TEST(ImageEdits, FillRangeMatchesTheModel)
{
    std::mt19937 random(41);
    for (int round = 0; round < 200; ++round) {
        MemoryImage image = overlappingImage(random, {});
        bytemap_t model = bytesOf(image);
        const uint32_t start = 0x1000 + random() % 270;
        const range_t range{start, start + random() % 60};
        image.fillRange(range, 0xC3);
        for (uint64_t a = range.start; a < range.end; ++a)
            model.insert(std::make_pair(static_cast<uint32_t>(a), uint8_t{0xC3}));
        EXPECT_EQ(bytesOf(image), model);
        expectWellFormed(image);
    }
}

TEST(ImageEdits, SwapReversesTheBytesOfEachWord)
{
    MemoryImage image = imageOf({{0x100, {1, 2, 3, 4, 5, 6, 7, 8}}, {0x200, {9, 10, 11, 12}}});
    ASSERT_TRUE(image.swapBytes(2));
    EXPECT_EQ(segmentsOf(image), (std::vector<SegmentView>{{0x100, {2, 1, 4, 3, 6, 5, 8, 7}}, {0x200, {10, 9, 12, 11}}}));
    ASSERT_TRUE(image.swapBytes(2));
    ASSERT_TRUE(image.swapBytes(4));
    EXPECT_EQ(segmentsOf(image), (std::vector<SegmentView>{{0x100, {4, 3, 2, 1, 8, 7, 6, 5}}, {0x200, {12, 11, 10, 9}}}));
    MemoryImage top = imageOf({{0xFFFFFFFC, {1, 2, 3, 4}}});
    ASSERT_TRUE(top.swapBytes(4));
    EXPECT_EQ(segmentsOf(top), (std::vector<SegmentView>{{0xFFFFFFFC, {4, 3, 2, 1}}}));
}

TEST(ImageEdits, SwapRefusesPartialWords)
{
    MemoryImage image = imageOf({{0x100, {1, 2, 3, 4}}, {0x202, {5, 6}}, {0x301, {7}}});
    const std::vector<SegmentView> before = segmentsOf(image);
    result_t r = image.swapBytes(4);
    EXPECT_FALSE(r);
    EXPECT_EQ(r.reason, "the data at 0x00000202 does not fill its 4-byte word");
    r = image.swapBytes(2);
    EXPECT_EQ(r.reason, "the data at 0x00000301 does not fill its 2-byte word");
    EXPECT_EQ(segmentsOf(image), before);
    MemoryImage tail = imageOf({{0x100, {1, 2, 3, 4, 5, 6}}});
    EXPECT_EQ(tail.swapBytes(4).reason, "the data at 0x00000104 does not fill its 4-byte word");
    EXPECT_EQ(tail.swapBytes(3).reason, "words are 2 or 4 bytes, not 3");
}

TEST(FindLine, NamesTheRecordThatGivesAByte)
{
    const std::string hex = ":020000040800F2\n"          // line 1
                            ":0400000001020304F2\n"      // line 2: 0x08000000-3
                            ":0400020011121314B0\n"      // line 3: 0x08000002-5, overlaps line 2
                            ":040000002122232472\n"      // line 4: starts where line 2 started: dropped
                            ":00000001FF\n";
    for (const std::pair<uint32_t, size_t>& expected :
         std::vector<std::pair<uint32_t, size_t>>{{0x08000000, 2}, {0x08000003, 2}, {0x08000004, 3},
                                                  {0x08000005, 3}, {0x08000006, 0}, {0x00000000, 0}}) {
        EXPECT_EQ(findLineInMemory(hex.data(), hex.size(), expected.first).value_or(0), expected.second)
            << std::hex << expected.first;
    }
    const std::string srec = "S00600004844521B\n"
                             "S1050100AABB94\n"
                             "S1050102CCDD4E\n"
                             "S9030000FC\n";
    EXPECT_EQ(findLineInMemory(srec.data(), srec.size(), 0x0103), std::optional<size_t>(3));
    EXPECT_EQ(findLineInMemory(srec.data(), srec.size(), 0x0100), std::optional<size_t>(2));
    TempDir dir;
    EXPECT_EQ(findLineInFile(dir.write("a.hex", hex).c_str(), 0x08000004), std::optional<size_t>(3));
    EXPECT_EQ(findLineInFile(dir.file("missing.hex").c_str(), 0x08000004), std::nullopt);
    read_options_t binary;
    binary.detect = false;
    binary.format = file_format_t::BINARY;
    EXPECT_EQ(findLineInMemory(hex.data(), hex.size(), 0, binary), std::nullopt) << "binary has no lines";
    EXPECT_EQ(findLineInMemory("junk", 4, 0), std::nullopt);
    EXPECT_EQ(findLineInMemory(hex.data(), hex.size(), 0x08000006), std::nullopt) << "no record gives it";
}

TEST(FindLine, AgreesWithReadingOnRandomRecordOrders)
{
    std::mt19937 random(7);
    for (int round = 0; round < 50; ++round) {
        // Overlapping records in a random order over one small area.
        std::vector<std::string> lines;
        for (int i = 0; i < 12; ++i) {
            std::vector<uint8_t> data(1 + random() % 8);
            for (uint8_t& b : data)
                b = static_cast<uint8_t>(random());
            lines.push_back(hexRecord(0x00, static_cast<uint16_t>(random() % 32), data));
        }
        std::string text;
        for (const std::string& l : lines)
            text += l + "\n";
        text += ":00000001FF\n";
        MemoryImage read;
        ASSERT_TRUE(readMemory(read, text.data(), text.size(), readAs(file_format_t::INTEL_HEX)));
        for (uint32_t address = 0; address < 48; ++address) {
            const std::optional<size_t> found = findLineInMemory(text.data(), text.size(), address);
            EXPECT_NE(found, std::optional<size_t>(0));
            const size_t line = found.value_or(0);
            EXPECT_EQ(line != 0, read.hasDataAt(address)) << address;
            if (line == 0)
                continue;
            // The byte read is the one that line gives.
            const std::string& record = lines[line - 1];
            const unsigned offset = std::stoul(record.substr(3, 4), nullptr, 16);
            const unsigned value = std::stoul(record.substr(9 + 2 * (address - offset), 2), nullptr, 16);
            EXPECT_EQ(read.copyRange(address, 1)[0], value) << "line " << line << ", address " << address;
        }
    }
}
