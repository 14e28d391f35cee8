// load() reads files with the fast reader and falls back to the exact reader
// for everything the fast reader declines. These tests check that both give
// the same blocks, results, exceptions and diagnostics, in either mode and in
// any record order, and that the fast reader really takes the files it should
// and declines the others without a trace.
#include "fast_reader.h"
#include "intelhex.h"
#include "support/capture.h"
#include "support/hex_text.h"
#include "support/temp_dir.h"
#include "support/test_access.h"
#include "support/understated_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>


namespace {

struct Outcome {
    std::string result; // "true", "false" or the exception's type
    std::vector<std::vector<uint8_t>> bytes;
    std::vector<uint32_t> addresses;
    std::vector<size_t> sizes;
    CapturedOutput io;
};

bool operator==(const Outcome& a, const Outcome& b)
{
    return a.result == b.result && a.bytes == b.bytes && a.addresses == b.addresses && a.sizes == b.sizes &&
           a.io.out == b.io.out && a.io.err == b.io.err;
}

std::ostream& operator<<(std::ostream& os, const Outcome& o)
{
    return os << o.result << ", " << o.addresses.size() << " blocks, out \"" << o.io.out << "\", err \""
              << o.io.err << "\"";
}

template <typename Load> Outcome run(const Load& load)
{
    Outcome o;
    IntelHexFile image;
    const uint8_t marker[] = {0x5A};
    image = IntelHexFile(0x1234, 0x5678, 1, marker); // a block from before
    try {
        o.io = captureOutputKeeping([&] { o.result = load(image) ? "true" : "false"; }, &o.io);
    } catch (const std::out_of_range&) {
        o.result = "out_of_range";
    } catch (const std::bad_alloc&) {
        o.result = "bad_alloc";
    }
    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        const IntelHexFileBlock& b = image[i];
        o.addresses.push_back(static_cast<uint32_t>(b.getLinearBase()) << 16 | b.getStartAddress());
        o.sizes.push_back(b.getSize());
        o.bytes.emplace_back(b.getBuffer(), b.getBuffer() + b.getSize());
    }
    return o;
}

Outcome viaLoad(const std::string& path, bool oneBlock)
{
    return run([&](IntelHexFile& image) { return image.load(path.c_str(), oneBlock); });
}

Outcome viaExactReader(const std::string& path, bool oneBlock)
{
    return run([&](IntelHexFile& image) { return IntelHexTestAccess::loadExact(image, path, oneBlock); });
}

// The fast reader alone: whether it took the file, and what it printed.
struct FastAttempt {
    bool taken;
    size_t runCount;
    CapturedOutput io;
};

FastAttempt viaFast(const std::string& path)
{
    FastAttempt a{false, 0, {}};
    std::ifstream file(path);
    hexblocks::detail::StreamBufferText text(*file.rdbuf());
    std::vector<hexblocks::detail::fastrun_t> runs;
    a.io = captureOutput([&] { a.taken = hexblocks::detail::readFast(text, runs); });
    a.runCount = runs.size();
    return a;
}

class FastReader : public ::testing::Test {
protected:
    // Checks that load() and the exact reader agree on text in both modes,
    // and that the fast reader takes the file exactly when expectTaken.
    void expectSameAsExact(const std::string& text, bool expectTaken, const std::string& what)
    {
        const std::string path = dir.write("case" + std::to_string(++cases) + ".hex", text);
        for (bool oneBlock : {false, true}) {
            SCOPED_TRACE(what + (oneBlock ? " (one block)" : " (normal)"));
            EXPECT_EQ(viaLoad(path, oneBlock), viaExactReader(path, oneBlock));
        }
        SCOPED_TRACE(what);
        const FastAttempt fast = viaFast(path);
        EXPECT_EQ(fast.taken, expectTaken);
        EXPECT_EQ(fast.io.out, "");
        EXPECT_EQ(fast.io.err, "");
        if (!fast.taken) {
            EXPECT_EQ(fast.runCount, 0u);
        }
    }

    TempDir dir;
    int cases = 0;
};

} // namespace

TEST_F(FastReader, TakesQuietFilesInAscendingOrder)
{
    expectSameAsExact(joinLines({":0300300002337A1E", ":04003300AABBCCDDBB", EOF_RECORD}), true, "contiguous");
    expectSameAsExact(joinLines({dataRecord(0, countingBytes(16)), dataRecord(0x20, countingBytes(16)), EOF_RECORD}),
                      true, "gap");
    expectSameAsExact(joinLines({linearBaseRecord(0x0800), dataRecord(0, {1}), linearBaseRecord(0x0801),
                                 dataRecord(4, {2}), EOF_RECORD}),
                      true, "two bases");
    expectSameAsExact(joinLines({dataRecord(0xFFF0, countingBytes(16)), linearBaseRecord(1),
                                 dataRecord(0, countingBytes(4)), EOF_RECORD}),
                      true, "one-block size wraps");
    expectSameAsExact(joinLines({dataRecord(0x0010, countingBytes(4)), linearBaseRecord(1),
                                 dataRecord(0x0008, countingBytes(12)), dataRecord(0x0020, {0xEE}), EOF_RECORD}),
                      true, "later base below the first address");
    expectSameAsExact(joinLines({dataRecord(0xFFF8, countingBytes(16)), EOF_RECORD}), true, "record past 0xFFFF");
    expectSameAsExact(joinLines({dataRecord(0, {1}), dataRecord(1, {2})}, "\r\n") + ":00000001FF\r\n", true, "CRLF");
    expectSameAsExact(joinLines({dataRecord(0, {1})}) + ":00000001FF", true, "no final newline");
    expectSameAsExact(joinLines({dataRecord(0, {1}), EOF_RECORD, "garbage"}), true, "text after the end");
    expectSameAsExact(joinLines({dataRecord(0, {1}), ":00000001FFjunk"}), true, "end record with a tail");
    expectSameAsExact(":0300300002337a1e\n:00000001FF\n", true, "lower-case digits");
    expectSameAsExact(":00000001FF\n", true, "no data");
    expectSameAsExact(joinLines({linearBaseRecord(0x0800), EOF_RECORD}), true, "only a base");
    expectSameAsExact(joinLines({hexRecord(0x04, 0, {0x12, 0x34, 0x56}), dataRecord(0, {1}), EOF_RECORD}), true,
                      "base record with three bytes");
}

TEST_F(FastReader, TakesRecordsInAnyOrder)
{
    const std::string d0 = dataRecord(0, {1, 2});
    expectSameAsExact(joinLines({dataRecord(0x10, {1}), dataRecord(0x00, {2}), EOF_RECORD}), true, "descending");
    expectSameAsExact(joinLines({d0, d0, EOF_RECORD}), true, "duplicate");
    expectSameAsExact(joinLines({d0, dataRecord(0, {9, 9, 9}), EOF_RECORD}), true, "longer record at a repeated address");
    expectSameAsExact(joinLines({dataRecord(0, countingBytes(16)), dataRecord(0, {7}), EOF_RECORD}), true,
                      "shorter record at a repeated address");
    expectSameAsExact(joinLines({dataRecord(0x20, {3}), dataRecord(0x10, {2}), dataRecord(0x20, {9}),
                                 dataRecord(0x11, {4}), EOF_RECORD}),
                      true, "repeated and contiguous out of order");
    expectSameAsExact(joinLines({linearBaseRecord(2), dataRecord(0, {1}), linearBaseRecord(1), dataRecord(0xFFFF, {2, 3}),
                                 linearBaseRecord(2), dataRecord(1, {4}), EOF_RECORD}),
                      true, "a base visited twice");
    expectSameAsExact(joinLines({dataRecord(0xFFF8, countingBytes(16)), dataRecord(0x0000, countingBytes(8)),
                                 dataRecord(0xFFF0, countingBytes(8, 0x80)), EOF_RECORD}),
                      true, "record past 0xFFFF out of order");
    expectSameAsExact(joinLines({linearBaseRecord(1), dataRecord(0x0000, {1}), linearBaseRecord(0),
                                 dataRecord(0xFFF0, countingBytes(16)), EOF_RECORD}),
                      true, "one-block size wraps, out of order");
    expectSameAsExact(joinLines({linearBaseRecord(1), dataRecord(0x0008, countingBytes(12)), linearBaseRecord(0),
                                 dataRecord(0x0010, countingBytes(4)), linearBaseRecord(1), dataRecord(0x0020, {0xEE}),
                                 EOF_RECORD}),
                      true, "later base below the first address, out of order");
    expectSameAsExact(joinLines({dataRecord(0x10, {1}), dataRecord(0x00, {2})}, "\r\n") + ":00000001FF\r\n", true,
                      "CRLF out of order");
}

TEST_F(FastReader, DeclinesEverythingElse)
{
    const std::string d0 = dataRecord(0, {1, 2});
    expectSameAsExact(joinLines({dataRecord(0, countingBytes(16)), dataRecord(8, countingBytes(16)), EOF_RECORD}),
                      true, "overlap in ascending order");
    expectSameAsExact(joinLines({dataRecord(8, countingBytes(16)), dataRecord(0, countingBytes(16)), EOF_RECORD}),
                      false, "overlap out of order");
    expectSameAsExact(joinLines({dataRecord(0x10, {1}), dataRecord(0, countingBytes(32)), dataRecord(0, countingBytes(16)),
                                 EOF_RECORD}),
                      false, "a longer record at a repeated address, out of order, over a later one");
    expectSameAsExact(joinLines({d0, ":00001000F0", EOF_RECORD}), false, "zero-length record");
    expectSameAsExact(joinLines({d0, ":0000000000", EOF_RECORD}), false, "ten zeros");
    expectSameAsExact(joinLines({d0, "", EOF_RECORD}), false, "blank line");
    expectSameAsExact(joinLines({" " + d0, EOF_RECORD}), false, "leading space");
    expectSameAsExact(joinLines({d0 + " ", EOF_RECORD}), false, "trailing space");
    expectSameAsExact(joinLines({d0 + "\r\r", EOF_RECORD}), false, "two carriage returns");
    expectSameAsExact(joinLines({"\t" + d0, EOF_RECORD}), false, "tab");
    expectSameAsExact(joinLines({":0300300002337A1F", EOF_RECORD}), false, "checksum");
    expectSameAsExact(joinLines({":0300300002337A1E00", EOF_RECORD}), false, "characters after the checksum");
    expectSameAsExact(joinLines({":0300300002337A", EOF_RECORD}), false, "missing checksum");
    expectSameAsExact(joinLines({":05003000023", EOF_RECORD}), false, "data past an even-length line");
    expectSameAsExact(joinLines({":-10000000000", EOF_RECORD}), false, "negative byte count");
    expectSameAsExact(joinLines({":010000000xFF", EOF_RECORD}), false, "0x prefix");
    expectSameAsExact(joinLines({":+1000000AB54", EOF_RECORD}), false, "sign");
    expectSameAsExact(joinLines({hexRecord(0x04, 0, {0x08}), d0, EOF_RECORD}), false, "short base record");
    expectSameAsExact(joinLines({hexRecord(0x02, 0, {0x10, 0x00}), d0, EOF_RECORD}), false, "segment record");
    expectSameAsExact(joinLines({d0, hexRecord(0x05, 0, {8, 0, 1, 1}), EOF_RECORD}), false, "start record");
    expectSameAsExact(joinLines({d0, ":00000001ff"}), false, "lower-case end record");
    expectSameAsExact(joinLines({d0, " :00000001FF"}), false, "end record after a space");
    expectSameAsExact(joinLines({d0, dataRecord(2, {3})}), false, "no end record, final newline");
    expectSameAsExact(d0 + "\n" + dataRecord(2, {3}), false, "no end record, no final newline");
    expectSameAsExact("", false, "empty file");
    expectSameAsExact(joinLines({d0, std::string(300000, 'A'), EOF_RECORD}), false, "very long line");
    expectSameAsExact(joinLines({d0, std::string("\0\0\0", 3), EOF_RECORD}), false, "NUL bytes");
}

TEST_F(FastReader, LargeGeneratedImagesAgree)
{
    std::mt19937 rng(99);
    std::uniform_int_distribution<int> len(1, 255);
    std::uniform_int_distribution<int> gapChance(0, 20);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int image = 0; image < 6; ++image) {
        std::vector<std::string> lines;
        uint32_t address = 0x08000000u + static_cast<uint32_t>(image) * 0x1000u;
        uint16_t base = 0xFFFF;
        for (int i = 0; i < 3000; ++i) {
            if (address >> 16 != base) {
                base = static_cast<uint16_t>(address >> 16);
                lines.push_back(linearBaseRecord(base));
            }
            const size_t n = static_cast<size_t>(len(rng));
            std::vector<uint8_t> data(n);
            for (uint8_t& b : data)
                b = static_cast<uint8_t>(byte(rng));
            lines.push_back(dataRecord(static_cast<uint16_t>(address), data));
            // A record may run past 0xFFFF; the next starts under the next base.
            address += static_cast<uint32_t>(n);
            if (gapChance(rng) == 0)
                address += static_cast<uint32_t>(len(rng));
        }
        lines.push_back(EOF_RECORD);
        expectSameAsExact(joinLines(lines, image % 2 ? "\r\n" : "\n"), true, "image " + std::to_string(image));
    }
}

TEST_F(FastReader, GeneratedImagesInAnyOrderAgree)
{
    // Runs of records under several linear bases, some records repeated at
    // the same address with other bytes, some running past 0xFFFF, the whole
    // in ascending, descending, shuffled or interleaved order.
    std::mt19937 rng(11);
    std::uniform_int_distribution<int> percent(0, 99);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int image = 0; image < 40; ++image) {
        struct Record {
            uint16_t base;
            uint16_t address;
            std::vector<uint8_t> bytes;
        };
        std::vector<Record> records;
        for (uint16_t base : {uint16_t(0x0800), uint16_t(0x0801), uint16_t(0x2000 + image)}) {
            uint32_t address = static_cast<uint32_t>(std::uniform_int_distribution<int>(0, 0xFF00)(rng));
            for (int i = std::uniform_int_distribution<int>(1, 200)(rng); i > 0 && address <= 0xFFFF; --i) {
                const size_t n = percent(rng) < 5 ? 255 : static_cast<size_t>(std::uniform_int_distribution<int>(1, 32)(rng));
                Record r{base, static_cast<uint16_t>(address), std::vector<uint8_t>(n)};
                for (uint8_t& b : r.bytes)
                    b = static_cast<uint8_t>(byte(rng));
                records.push_back(r);
                if (percent(rng) < 5) { // the same address again, other bytes, no further
                    Record again = r;
                    again.bytes.resize(static_cast<size_t>(std::uniform_int_distribution<int>(1, static_cast<int>(n))(rng)));
                    for (uint8_t& b : again.bytes)
                        b = static_cast<uint8_t>(byte(rng));
                    records.push_back(again);
                }
                address += static_cast<uint32_t>(n);
                if (percent(rng) < 10)
                    address += static_cast<uint32_t>(std::uniform_int_distribution<int>(1, 3000)(rng));
            }
        }
        const int order = image % 4;
        if (order == 1)
            std::reverse(records.begin(), records.end());
        else if (order == 2)
            std::shuffle(records.begin(), records.end(), rng);
        else if (order == 3) // the bases interleaved
            std::stable_sort(records.begin(), records.end(),
                             [](const Record& a, const Record& b) { return a.address / 512 < b.address / 512; });
        std::vector<std::string> lines;
        int base = -1;
        for (const Record& r : records) {
            if (r.base != base)
                lines.push_back(linearBaseRecord(r.base));
            base = r.base;
            lines.push_back(dataRecord(r.address, r.bytes));
        }
        lines.push_back(EOF_RECORD);
        const std::string path = dir.write("gen" + std::to_string(image) + ".hex", joinLines(lines));
        for (bool oneBlock : {false, true})
            EXPECT_EQ(viaLoad(path, oneBlock), viaExactReader(path, oneBlock)) << "image " << image;
        const FastAttempt fast = viaFast(path);
        EXPECT_TRUE(fast.taken) << "image " << image;
        EXPECT_EQ(fast.io.out + fast.io.err, "");
    }
}

// Full bases, then records that go round them again and again.
std::vector<std::string> jumpingBetween(int bases, int jumps)
{
    std::vector<std::string> lines;
    for (int base = 1; base <= bases; ++base) {
        lines.push_back(linearBaseRecord(static_cast<uint16_t>(base)));
        for (uint32_t a = 0; a < 0xF000; a += 0x80)
            lines.push_back(dataRecord(static_cast<uint16_t>(a), countingBytes(0x80)));
    }
    for (int i = 0; i < jumps; ++i) {
        lines.push_back(linearBaseRecord(static_cast<uint16_t>(1 + i % bases)));
        lines.push_back(dataRecord(static_cast<uint16_t>(0xF000 + i), {static_cast<uint8_t>(i)}));
    }
    lines.push_back(EOF_RECORD);
    return lines;
}

TEST_F(FastReader, RecordsJumpingBetweenManyBasesAreLeftToTheExactReader)
{
    // A few bases stay open at once; going round six of them keeps reopening.
    expectSameAsExact(joinLines(jumpingBetween(6, 120)), false, "round six bases");
    expectSameAsExact(joinLines(jumpingBetween(6, 12)), true, "a few returns");
    expectSameAsExact(joinLines(jumpingBetween(3, 300)), true, "round three bases");
}

TEST_F(FastReader, PipesAreReadByTheExactReader)
{
    const FifoFile fifo(dir, "pipe.hex", joinLines({dataRecord(0x10, {1}), dataRecord(0x00, {2}), EOF_RECORD}));
    IntelHexFile image;
    const bool ok = image.load(fifo.path().c_str(), false);
    ASSERT_TRUE(ok);
    ASSERT_EQ(image.getBlockCount(), 2u);
    EXPECT_EQ(image[0].getStartAddress(), 0x00);
    EXPECT_EQ(image[1].getStartAddress(), 0x10);
}

namespace {

std::vector<std::pair<uint32_t, std::vector<uint8_t>>> runsOf(hexblocks::detail::TextSource& source)
{
    std::vector<hexblocks::detail::fastrun_t> runs;
    EXPECT_TRUE(hexblocks::detail::readFast(source, runs));
    std::vector<std::pair<uint32_t, std::vector<uint8_t>>> result;
    for (const auto& run : runs)
        result.emplace_back(static_cast<uint32_t>(run.linearBase) << 16 | run.startAddr, run.bytes);
    return result;
}

} // namespace

TEST_F(FastReader, ASourceLongerThanItSaidIsReadWhole)
{
    // A run of a whole 64 KiB and some more, read from a source that says it
    // holds 100 bytes: the buffers sized by that grow as they must.
    std::mt19937 random(5);
    std::vector<std::string> lines;
    for (uint32_t address = 0; address < 0x10000; address += 32) {
        std::vector<uint8_t> bytes(32);
        for (uint8_t& b : bytes)
            b = static_cast<uint8_t>(random());
        lines.push_back(dataRecord(static_cast<uint16_t>(address), bytes));
    }
    lines.push_back(EOF_RECORD);
    const std::string text = joinLines(lines);
    UnderstatedText understated(text, 100);
    hexblocks::detail::MemoryText whole(text.data(), text.size());
    const auto runs = runsOf(understated);
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].second.size(), 0x10000u);
    EXPECT_EQ(runs, runsOf(whole));
}
