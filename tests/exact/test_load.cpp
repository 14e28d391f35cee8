// load(): block assembly in both modes, the first record kept for an
// address, the diagnostics of every failure on their streams, the exceptions
// that pass through, and a path that opens but cannot be read.
#include "intelhex.h"
#include "support/block_view.h"
#include "support/diagnostics.h"
#include "support/capture.h"
#include "support/hex_text.h"
#include "support/temp_dir.h"
#include "support/test_access.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace {


class Load : public ::testing::Test {
protected:
    // Writes text as a HEX file and loads it into image.
    bool load(const std::string& text, bool oneBlock)
    {
        const std::string path = dir.write("input" + std::to_string(++files) + ".hex", text);
        bool ok = false;
        io = captureOutput([&] { ok = image.load(path.c_str(), oneBlock); });
        return ok;
    }

    TempDir dir;
    IntelHexFile image;
    CapturedOutput io;
    int files = 0;
};

} // namespace

TEST_F(Load, ContiguousRecordsMakeOneBlockInEitherMode)
{
    const std::string text = joinLines({":0300300002337A1E", ":04003300AABBCCDDBB", EOF_RECORD});
    const BlockView expected{0, 0x0030, {0x02, 0x33, 0x7A, 0xAA, 0xBB, 0xCC, 0xDD}};
    for (bool oneBlock : {false, true}) {
        image.clear();
        ASSERT_TRUE(load(text, oneBlock));
        EXPECT_EQ(blocksOf(image), std::vector<BlockView>({expected})) << "oneBlock " << oneBlock;
        EXPECT_EQ(image[0].getSize(), 7u);
        EXPECT_EQ(io.out, "");
        EXPECT_EQ(io.err, "");
    }
}

TEST_F(Load, GapMakesTwoBlocksOrOneFilledBlock)
{
    const std::vector<uint8_t> a = countingBytes(16, 0x00);
    const std::vector<uint8_t> b = countingBytes(16, 0x80);
    const std::string text = joinLines({dataRecord(0x0000, a), dataRecord(0x0020, b), EOF_RECORD});

    ASSERT_TRUE(load(text, false));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0x0000, a}, {0, 0x0020, b}}));

    image.clear();
    ASSERT_TRUE(load(text, true));
    const std::vector<uint8_t> filled = concat(concat(a, std::vector<uint8_t>(16, 0xFF)), b);
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0x0000, filled}}));
    EXPECT_EQ(image[0].getSize(), 48u);
}

TEST_F(Load, OverlapEndsTheRunAndTheHigherRecordWinsInOneBlockMode)
{
    const std::vector<uint8_t> a = countingBytes(16, 0x00);
    const std::vector<uint8_t> b = countingBytes(16, 0xA0);
    const std::string text = joinLines({dataRecord(0x0000, a), dataRecord(0x0008, b), EOF_RECORD});

    ASSERT_TRUE(load(text, false));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0x0000, a}, {0, 0x0008, b}}));

    image.clear();
    ASSERT_TRUE(load(text, true));
    const std::vector<uint8_t> merged = concat(std::vector<uint8_t>(a.begin(), a.begin() + 8), b);
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0x0000, merged}}));
    EXPECT_EQ(image[0].getSize(), 24u);
}

TEST_F(Load, RunNeverCrossesALinearBaseChange)
{
    const std::vector<uint8_t> a = countingBytes(16, 0x10);
    const std::vector<uint8_t> b = countingBytes(4, 0x50);
    const std::string text =
        joinLines({dataRecord(0xFFF0, a), linearBaseRecord(0x0001), dataRecord(0x0000, b), EOF_RECORD});
    ASSERT_TRUE(load(text, false));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x0000, 0xFFF0, a}, {0x0001, 0x0000, b}}));
}

TEST_F(Load, OneBlockSizeThatWrapsIsAnAllocationError)
{
    const std::string text = joinLines({dataRecord(0xFFF0, countingBytes(16)), linearBaseRecord(0x0001),
                                        dataRecord(0x0000, countingBytes(4)), EOF_RECORD});
    const std::string path = dir.write("wrap.hex", text);
    EXPECT_THROW(image.load(path.c_str(), true), std::bad_alloc);
    EXPECT_EQ(image.getBlockCount(), 0u);
}

TEST_F(Load, DescendingAndShuffledOrderGiveTheSameBlocks)
{
    std::vector<std::string> records;
    for (uint16_t addr = 0; addr < 0x100; addr += 0x10)
        records.push_back(dataRecord(addr, countingBytes(16, static_cast<uint8_t>(addr))));
    records.push_back(dataRecord(0x0200, {0xEE}));

    std::vector<std::string> ascending = records;
    ascending.push_back(EOF_RECORD);
    ASSERT_TRUE(load(joinLines(ascending), false));
    const std::vector<BlockView> expected = blocksOf(image);
    ASSERT_EQ(expected.size(), 2u);
    EXPECT_EQ(expected[0].bytes, countingBytes(256));

    std::vector<std::string> descending(records.rbegin(), records.rend());
    descending.push_back(EOF_RECORD);
    image.clear();
    ASSERT_TRUE(load(joinLines(descending), false));
    EXPECT_EQ(blocksOf(image), expected);

    std::vector<std::string> shuffled = records;
    std::swap(shuffled[0], shuffled[9]);
    std::swap(shuffled[3], shuffled[16]);
    std::swap(shuffled[5], shuffled[12]);
    shuffled.push_back(EOF_RECORD);
    image.clear();
    ASSERT_TRUE(load(joinLines(shuffled), false));
    EXPECT_EQ(blocksOf(image), expected);
}

TEST_F(Load, BlocksComeInOrderOfBaseThenAddressWhateverTheFileOrder)
{
    const std::string text = joinLines({linearBaseRecord(0x0002), dataRecord(0x0010, {2}),
                                        linearBaseRecord(0x0000), dataRecord(0x0100, {1}),
                                        dataRecord(0x0010, {0}), EOF_RECORD});
    ASSERT_TRUE(load(text, false));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0x0010, {0}}, {0, 0x0100, {1}}, {2, 0x0010, {2}}}));
}

TEST_F(Load, DuplicateAddressFirstRecordWins)
{
    const std::string text =
        joinLines({dataRecord(0x0000, {1, 2, 3, 4}), dataRecord(0x0000, {9, 9, 9, 9, 9, 9}), EOF_RECORD});
    for (bool oneBlock : {false, true}) {
        image.clear();
        ASSERT_TRUE(load(text, oneBlock));
        EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0, {1, 2, 3, 4}}}));
    }
}

TEST_F(Load, ZeroLengthRecordEndsItsRun)
{
    // The empty record at 0x0010 continues the first run and closes it; the
    // record at 0x0010 of the next line is a duplicate and dropped.
    const std::string text = joinLines({dataRecord(0x0000, countingBytes(16)), ":00001000F0",
                                        dataRecord(0x0010, {0xAB}), EOF_RECORD});
    ASSERT_TRUE(load(text, false));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0x0000, countingBytes(16)}}));
    EXPECT_EQ(io.err, "#ERROR: line.data.size() is zero\n");
}

TEST_F(Load, LoneZeroLengthRecordIsAnEmptyBlock)
{
    const std::string text = joinLines({dataRecord(0x0000, {1, 2}), ":00010000FF", EOF_RECORD});
    ASSERT_TRUE(load(text, false));
    ASSERT_EQ(image.getBlockCount(), 2u);
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0x0000, {1, 2}}, {0, 0x0100, {}}}));
    EXPECT_EQ(image[1].getSize(), 0u);
    EXPECT_TRUE(image.hasData());
}

TEST_F(Load, ZeroLengthFinalRecordSetsTheEndInOneBlockMode)
{
    const std::string text = joinLines({dataRecord(0x0000, {1, 2}), ":00010000FF", EOF_RECORD});
    ASSERT_TRUE(load(text, true));
    std::vector<uint8_t> expected(0x100, 0xFF);
    expected[0] = 1;
    expected[1] = 2;
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0x0000, expected}}));
}

TEST_F(Load, OneBlockSizeComesFromTheFinalRecordAndLongerRecordsAreClipped)
{
    // 16 bytes at 0x0000 and 1 byte at 0x0004: the block is 5 bytes long.
    const std::string text =
        joinLines({dataRecord(0x0000, countingBytes(16, 0x10)), dataRecord(0x0004, {0xEE}), EOF_RECORD});
    ASSERT_TRUE(load(text, true));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0, {0x10, 0x11, 0x12, 0x13, 0xEE}}}));
    EXPECT_EQ(image[0].getSize(), 5u);
}

TEST_F(Load, OneBlockRecordOfALaterBaseBelowTheFirstAddressIsClipped)
{
    // Placed by 16-bit address only: the record of base 1 at 0x0008 lies 8
    // bytes before the block's start; only its part from 0x0010 on is kept.
    const std::string text =
        joinLines({dataRecord(0x0010, countingBytes(4, 0xA0)), linearBaseRecord(1),
                   dataRecord(0x0008, countingBytes(12, 0x00)), dataRecord(0x0020, {0xEE}), EOF_RECORD});
    ASSERT_TRUE(load(text, true));
    ASSERT_EQ(image.getBlockCount(), 1u);
    EXPECT_EQ(image[0].getLinearBase(), 0);
    EXPECT_EQ(image[0].getStartAddress(), 0x0010);
    std::vector<uint8_t> expected(0x11, 0xFF);
    // Bytes 8..11 of the base-1 record land at offsets 0..3, over the first
    // record's bytes because they are copied later.
    expected[0] = 0x08;
    expected[1] = 0x09;
    expected[2] = 0x0A;
    expected[3] = 0x0B;
    expected[0x10] = 0xEE;
    EXPECT_EQ(blocksOf(image)[0].bytes, expected);
}

TEST_F(Load, OneBlockIgnoresLinearBasesWhenPlacing)
{
    const std::string text = joinLines({linearBaseRecord(0x0800), dataRecord(0x0000, {1}),
                                        linearBaseRecord(0x0801), dataRecord(0x0004, {2}), EOF_RECORD});
    ASSERT_TRUE(load(text, true));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x0800, 0, {1, 0xFF, 0xFF, 0xFF, 2}}}));
}

TEST_F(Load, SeveralLinearBasesInNormalMode)
{
    const std::string text = joinLines({linearBaseRecord(0x0800), dataRecord(0x0000, countingBytes(8)),
                                        dataRecord(0x0008, countingBytes(8, 8)), linearBaseRecord(0x0801),
                                        dataRecord(0x0000, {0x55}), linearBaseRecord(0x1FFF),
                                        dataRecord(0xF800, {0x66, 0x77}), EOF_RECORD});
    ASSERT_TRUE(load(text, false));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0x0800, 0x0000, countingBytes(16)},
                                                       {0x0801, 0x0000, {0x55}},
                                                       {0x1FFF, 0xF800, {0x66, 0x77}}}));
}

TEST_F(Load, CarriageReturnLineEndingsAndNoFinalNewline)
{
    const std::vector<std::string> lines = {dataRecord(0x0100, {1, 2}), dataRecord(0x0102, {3})};
    ASSERT_TRUE(load(joinLines(lines, "\r\n") + ":00000001FF\r\n", false));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0x0100, {1, 2, 3}}}));
    image.clear();
    ASSERT_TRUE(load(joinLines(lines, "\r\n") + ":00000001FF", false));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0x0100, {1, 2, 3}}}));
    image.clear();
    ASSERT_TRUE(load(joinLines(lines) + ":00000001FF", false));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0x0100, {1, 2, 3}}}));
}

TEST_F(Load, LinesAfterEndOfFileAreIgnored)
{
    ASSERT_TRUE(load(joinLines({dataRecord(0, {1}), EOF_RECORD, "// built by some tool", ""}), false));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0, {1}}}));
    EXPECT_EQ(io.out, "");
    EXPECT_EQ(io.err, "");
}

TEST_F(Load, SecondLoadAppends)
{
    ASSERT_TRUE(load(joinLines({dataRecord(0x0010, {1}), EOF_RECORD}), false));
    ASSERT_TRUE(load(joinLines({dataRecord(0x0000, {2}), EOF_RECORD}), false));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0x0010, {1}}, {0, 0x0000, {2}}}));
}

TEST_F(Load, SameFileTwiceDoublesTheBlocks)
{
    const std::string path = dir.write("twice.hex", joinLines({dataRecord(0x0010, {1}), EOF_RECORD}));
    ASSERT_TRUE(image.load(path.c_str(), false));
    ASSERT_TRUE(image.load(path.c_str(), false));
    EXPECT_EQ(blocksOf(image), std::vector<BlockView>({{0, 0x0010, {1}}, {0, 0x0010, {1}}}));
}

TEST_F(Load, FailedLoadLeavesTheBlocksAsTheyWere)
{
    const uint8_t bytes[] = {7, 8, 9};
    image = IntelHexFile(0x0800, 0x4000, sizeof bytes, bytes);
    const std::vector<BlockView> before = blocksOf(image);

    EXPECT_FALSE(load(joinLines({dataRecord(0, {1}), ":0300300002337A1F", EOF_RECORD}), false));
    EXPECT_EQ(blocksOf(image), before);
    EXPECT_FALSE(load(joinLines({dataRecord(0, {1})}), true));
    EXPECT_EQ(blocksOf(image), before);
    EXPECT_FALSE(load(joinLines({dataRecord(0, {1}), hexRecord(0x03, 0, {0, 0, 0, 0}), EOF_RECORD}), false));
    EXPECT_EQ(blocksOf(image), before);
}

TEST_F(Load, MissingFile)
{
    const std::string path = dir.file("missing.hex");
    bool ok = true;
    io = captureOutput([&] { ok = image.load(path.c_str(), false); });
    EXPECT_FALSE(ok);
    EXPECT_EQ(io.out, "");
    EXPECT_EQ(io.err, "#ERROR: failed to open \"" + path + "\"\n");
    EXPECT_EQ(image.getBlockCount(), 0u);
}

TEST_F(Load, OnlyEndOfFileRecordGivesNoBlockAndSucceeds)
{
    for (bool oneBlock : {false, true}) {
        ASSERT_TRUE(load(":00000001FF\n", oneBlock));
        EXPECT_FALSE(image.hasData());
        EXPECT_EQ(io.out, "");
        EXPECT_EQ(io.err, "");
    }
}

TEST_F(Load, OnlyBaseRecordsGiveNoBlock)
{
    for (bool oneBlock : {false, true}) {
        ASSERT_TRUE(load(joinLines({linearBaseRecord(0x0800), linearBaseRecord(0x0801), EOF_RECORD}), oneBlock));
        EXPECT_EQ(image.getBlockCount(), 0u);
    }
}

TEST_F(Load, EmptyFileFails)
{
    EXPECT_FALSE(load("", false));
    EXPECT_EQ(io.out, TOO_SHORT);
    EXPECT_EQ(io.err, "#ERROR: corrupt line data in line \"\"\n");
    EXPECT_FALSE(image.hasData());
}

// A path that opens but cannot be read (a directory; /proc/self/mem, whose
// first page is not mapped, fails with EIO) gives no line: load() then
// prints what it prints for an empty line and fails, in either mode, exactly
// as the exact reader does, and throws nothing.
TEST_F(Load, APathThatOpensButCannotBeReadFailsAsAnEmptyLine)
{
    for (const std::string& path : {dir.path(), std::string("/proc/self/mem")}) {
        for (bool oneBlock : {false, true}) {
            SCOPED_TRACE(path + (oneBlock ? ", one block" : ", blocks"));
            IntelHexFile loaded, exact;
            bool ok = true, exactOk = true;
            const CapturedOutput got = captureOutput([&] { EXPECT_NO_THROW(ok = loaded.load(path.c_str(), oneBlock)); });
            const CapturedOutput want =
                captureOutput([&] { exactOk = IntelHexTestAccess::loadExact(exact, path, oneBlock); });
            EXPECT_FALSE(ok);
            EXPECT_FALSE(exactOk);
            EXPECT_EQ(got.out, TOO_SHORT);
            EXPECT_EQ(got.err, "#ERROR: corrupt line data in line \"\"\n");
            EXPECT_EQ(got.out, want.out);
            EXPECT_EQ(got.err, want.err);
            EXPECT_FALSE(loaded.hasData());
        }
    }
}

TEST_F(Load, DataRunningPastAnEvenLengthLinePropagatesOutOfRange)
{
    const std::string path = dir.write("short.hex", joinLines({":05003000023", EOF_RECORD}));
    EXPECT_THROW(image.load(path.c_str(), false), std::out_of_range);
    EXPECT_EQ(image.getBlockCount(), 0u);
}

TEST_F(Load, NegativeByteCountPropagatesBadAlloc)
{
    const std::string path = dir.write("minus.hex", joinLines({":-10000000000", EOF_RECORD}));
    EXPECT_THROW(image.load(path.c_str(), false), std::bad_alloc);
    EXPECT_THROW(image.load(path.c_str(), true), std::bad_alloc);
    EXPECT_EQ(image.getBlockCount(), 0u);
}

TEST(FileConstructor, LoadsTheFile)
{
    TempDir dir;
    const std::string path = dir.write("ctor.hex", joinLines({linearBaseRecord(0x0800), dataRecord(0x4000, {1, 2}),
                                                              dataRecord(0x5000, {3}), EOF_RECORD}));
    IntelHexFile normal(path.c_str(), false);
    EXPECT_EQ(normal.getBlockCount(), 2u);
    IntelHexFile single(path.c_str(), true);
    ASSERT_EQ(single.getBlockCount(), 1u);
    EXPECT_EQ(single[0].getSize(), 0x1001u);
    EXPECT_EQ(single[0].getLinearBase(), 0x0800);
}

TEST(FileConstructor, FailedLoadGivesAnEmptyContainerAndPrints)
{
    TempDir dir;
    const std::string path = dir.write("bad.hex", joinLines({dataRecord(0, {1})}));
    CapturedOutput io = captureOutput([&] {
        IntelHexFile image(path.c_str(), false);
        EXPECT_FALSE(image.hasData());
    });
    EXPECT_EQ(io.out, TOO_SHORT);
    EXPECT_EQ(io.err, "#ERROR: corrupt line data in line \"\"\n");

    const std::string missing = dir.file("missing.hex");
    io = captureOutput([&] {
        IntelHexFile image(missing.c_str(), true);
        EXPECT_EQ(image.getBlockCount(), 0u);
    });
    EXPECT_EQ(io.err, "#ERROR: failed to open \"" + missing + "\"\n");
}

TEST(FileConstructor, PropagatesTheAllocationError)
{
    TempDir dir;
    const std::string path = dir.write("minus.hex", joinLines({":-10000000000", EOF_RECORD}));
    EXPECT_THROW(IntelHexFile(path.c_str(), false), std::bad_alloc);
}

// The in-memory entry that the fuzz targets use reads as load() reads a file:
// the same result, blocks, error and printed text, in both modes and for
// both readers.
TEST_F(Load, TextInMemoryLoadsAsTheFileDoes)
{
    const std::vector<std::string> texts = {
        joinLines({":0300300002337A1E", ":04003300AABBCCDDBB", EOF_RECORD}),
        joinLines({":04003300AABBCCDDBB", ":0300300002337A1E", EOF_RECORD}), // out of order
        joinLines({":0300300002337A1F", EOF_RECORD}),                        // a bad checksum
        joinLines({":0300300002337A1E", ":00000005FB"}),                     // another type, no end
        std::string(":0300300002337A1E\n") + "junk\n" + EOF_RECORD + "\n",
        ""};
    for (const std::string& text : texts) {
        for (bool oneBlock : {false, true}) {
            SCOPED_TRACE(text + (oneBlock ? " (one block)" : ""));
            const bool fromFile = load(text, oneBlock);
            const std::vector<BlockView> fileBlocks = blocksOf(image);
            const CapturedOutput fileOutput = io;
            const size_t fileLine = image.getErrorLine();
            for (bool exact : {false, true}) {
                IntelHexFile memory;
                bool fromMemory = false;
                const CapturedOutput memoryOutput = captureOutput([&] {
                    fromMemory = exact ? IntelHexTestAccess::loadExactText(memory, text, oneBlock)
                                       : IntelHexTestAccess::loadText(memory, text, oneBlock);
                });
                EXPECT_EQ(fromMemory, fromFile);
                EXPECT_EQ(blocksOf(memory), fileBlocks);
                EXPECT_EQ(memoryOutput.out, fileOutput.out);
                EXPECT_EQ(memoryOutput.err, fileOutput.err);
                if (!exact) {
                    EXPECT_EQ(memory.getErrorLine(), fileLine);
                }
            }
            image.clear();
        }
    }
}
