// Generated images are encoded as Intel HEX, loaded in both modes, and every
// block is compared with what was encoded.
#include "intelhex.h"
#include "support/hex_text.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

// One contiguous run of bytes under one linear base.
struct Segment {
    uint16_t linearBase;
    uint16_t start;
    std::vector<uint8_t> bytes;
};

struct Record {
    uint16_t linearBase;
    uint16_t address;
    std::vector<uint8_t> bytes;
};

// Segments in ascending order of base and start, separated by gaps of at
// least one byte, never crossing a 64 KiB boundary.
std::vector<Segment> makeImage(std::mt19937& rng, int baseCount)
{
    std::vector<uint16_t> bases;
    std::uniform_int_distribution<int> anyBase(0, 0xFFFF);
    while (static_cast<int>(bases.size()) < baseCount) {
        const uint16_t base = static_cast<uint16_t>(anyBase(rng));
        if (std::find(bases.begin(), bases.end(), base) == bases.end())
            bases.push_back(base);
    }
    std::sort(bases.begin(), bases.end());

    std::vector<Segment> segments;
    std::uniform_int_distribution<int> segmentCount(1, 4);
    std::uniform_int_distribution<int> gap(1, 3000);
    std::uniform_int_distribution<int> length(1, 9000);
    std::uniform_int_distribution<int> byte(0, 255);
    for (uint16_t base : bases) {
        uint32_t next = static_cast<uint32_t>(gap(rng)) - 1; // may start at 0
        for (int n = segmentCount(rng); n > 0; --n) {
            const uint32_t len = static_cast<uint32_t>(length(rng));
            if (next + len > 0x10000)
                break;
            Segment s{base, static_cast<uint16_t>(next), std::vector<uint8_t>(len)};
            for (uint8_t& b : s.bytes)
                b = static_cast<uint8_t>(byte(rng));
            segments.push_back(s);
            next += len + static_cast<uint32_t>(gap(rng));
        }
    }
    return segments;
}

// Splits every segment into records of 1 to 255 bytes.
std::vector<Record> splitIntoRecords(std::mt19937& rng, const std::vector<Segment>& segments)
{
    std::vector<Record> records;
    std::uniform_int_distribution<int> recordLen(1, 255);
    for (const Segment& s : segments) {
        size_t offset = 0;
        while (offset < s.bytes.size()) {
            const size_t len = std::min(static_cast<size_t>(recordLen(rng)), s.bytes.size() - offset);
            records.push_back(Record{s.linearBase, static_cast<uint16_t>(s.start + offset),
                                     std::vector<uint8_t>(s.bytes.begin() + static_cast<long>(offset),
                                                          s.bytes.begin() + static_cast<long>(offset + len))});
            offset += len;
        }
    }
    return records;
}

// Records in the given order, with a base record wherever the base changes.
std::string encode(const std::vector<Record>& records)
{
    std::string text;
    bool first = true;
    uint16_t base = 0;
    for (const Record& r : records) {
        if (first || r.linearBase != base) {
            text += linearBaseRecord(r.linearBase) + "\n";
            base = r.linearBase;
            first = false;
        }
        text += dataRecord(r.address, r.bytes) + "\n";
    }
    return text + EOF_RECORD + "\n";
}

void expectBlockEquals(const IntelHexFileBlock& block, const Segment& expected, const std::string& where)
{
    EXPECT_EQ(block.getLinearBase(), expected.linearBase) << where;
    EXPECT_EQ(block.getStartAddress(), expected.start) << where;
    ASSERT_EQ(block.getSize(), expected.bytes.size()) << where;
    EXPECT_TRUE(std::equal(expected.bytes.begin(), expected.bytes.end(), block.getBuffer())) << where;
}

// The one-block image of segments under a single base: first byte to last,
// gaps filled with 0xFF.
Segment flatten(const std::vector<Segment>& segments)
{
    const Segment& first = segments.front();
    const Segment& last = segments.back();
    Segment flat{first.linearBase, first.start,
                 std::vector<uint8_t>(last.start + last.bytes.size() - first.start, 0xFF)};
    for (const Segment& s : segments)
        std::copy(s.bytes.begin(), s.bytes.end(), flat.bytes.begin() + (s.start - first.start));
    return flat;
}

} // namespace

TEST(RoundTrip, RandomImagesInBothModes)
{
    std::mt19937 rng(20261121);
    TempDir dir;
    for (int iteration = 0; iteration < 40; ++iteration) {
        const int baseCount = 1 + iteration % 4;
        const std::vector<Segment> segments = makeImage(rng, baseCount);
        if (segments.empty())
            continue;
        std::vector<Record> records = splitIntoRecords(rng, segments);
        std::shuffle(records.begin(), records.end(), rng);
        const std::string path = dir.write("image.hex", encode(records));
        const std::string where = "iteration " + std::to_string(iteration);

        IntelHexFile normal;
        ASSERT_TRUE(normal.load(path.c_str(), false)) << where;
        ASSERT_EQ(normal.getBlockCount(), segments.size()) << where;
        for (size_t i = 0; i < segments.size(); ++i)
            expectBlockEquals(normal[i], segments[i], where + ", block " + std::to_string(i));

        if (baseCount == 1) {
            IntelHexFile single;
            ASSERT_TRUE(single.load(path.c_str(), true)) << where;
            ASSERT_EQ(single.getBlockCount(), 1u) << where;
            expectBlockEquals(single[0], flatten(segments), where + ", one block");
        }
    }
}

TEST(RoundTrip, ReversedBuffersMatchReversedSegments)
{
    std::mt19937 rng(7);
    TempDir dir;
    std::vector<Segment> segments = makeImage(rng, 2);
    ASSERT_FALSE(segments.empty());
    const std::string path = dir.write("image.hex", encode(splitIntoRecords(rng, segments)));
    IntelHexFile image(path.c_str(), false);
    IntelHexFile copy(image);
    copy.reverseBuffers();
    ASSERT_EQ(copy.getBlockCount(), segments.size());
    for (size_t i = 0; i < segments.size(); ++i) {
        std::reverse(segments[i].bytes.begin(), segments[i].bytes.end());
        expectBlockEquals(copy[i], segments[i], "block " + std::to_string(i));
    }
}
