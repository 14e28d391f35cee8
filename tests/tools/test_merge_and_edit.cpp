// hexblocks convert merging several inputs under each overlap and
// start-address policy, and editing the image: offset, crop, exclude,
// fill-range, swap and insert-crc, in the order given, with their errors.
// srec_cat judges the edits and the inserted CRCs on generated images.
#include "formats.h"
#include "memory_image.h"

#include "support/hex_text.h"
#include "support/image_view.h"
#include "support/run_tool.h"
#include "support/temp_dir.h"
#include "text_format.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

using namespace hexblocks;
using namespace hexblocks::cli;

namespace {

std::string fileText(const std::string& path)
{
    const std::vector<uint8_t> bytes = readFileBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

MemoryImage imageIn(const std::string& path)
{
    MemoryImage image;
    const read_result_t read = readFile(image, path.c_str());
    EXPECT_TRUE(read) << path << ":" << read.line << ": " << read.reason;
    return image;
}

// A bootloader at 0x08000000 and an application at 0x08000010 that share
// the bytes 0x08000010 to 0x08000013, equal in the first two.
const std::string BOOT = joinLines({linearBaseRecord(0x0800), dataRecord(0x0000, countingBytes(16, 0x00)),
                                    dataRecord(0x0010, {0xA0, 0xA1, 0xA2, 0xA3}), hexRecord(0x05, 0, {8, 0, 0, 1}),
                                    EOF_RECORD});
const std::string APP = joinLines({"S0030000FC", srecordLine(3, 4, 0x08000010, {0xA0, 0xA1, 0xB2, 0xB3, 0xB4}),
                                   srecordLine(7, 4, 0x08000011, {})});

class MergeAndEdit : public ::testing::Test {
protected:
    TempDir dir;
    std::string boot = dir.write("boot.hex", BOOT);
    std::string app = dir.write("app.srec", APP);
    std::string out = dir.file("out.hex");

    // Runs convert with args after the inputs and returns the image written.
    std::vector<SegmentView> converted(const std::vector<std::string>& inputs, std::vector<std::string> args)
    {
        std::vector<std::string> all = {"convert"};
        all.insert(all.end(), inputs.begin(), inputs.end());
        all.insert(all.end(), {"-o", out});
        all.insert(all.end(), args.begin(), args.end());
        const ProcessResult r = runTool(all);
        EXPECT_EQ(r.exitCode, 0) << r.err;
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.out, "");
        return segmentsOf(imageIn(out));
    }

    std::vector<SegmentView> converted(std::vector<std::string> args) { return converted({boot, app}, args); }
};

std::vector<uint8_t> bootThen(const std::vector<uint8_t>& shared, const std::vector<uint8_t>& after)
{
    return concat(concat(countingBytes(16, 0x00), shared), after);
}

} // namespace

TEST_F(MergeAndEdit, OverlapErrorNamesBothInputsAndLines)
{
    const std::string existing = dir.write("existing.hex", "old");
    for (const std::vector<std::string>& extra : {std::vector<std::string>{}, {"--overlap", "error"}}) {
        std::vector<std::string> args = {"convert", boot, app, "-o", existing};
        args.insert(args.end(), extra.begin(), extra.end());
        const ProcessResult r = runTool(args);
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, "hexblocks: " + boot + ":3 and " + app + ":2 both give data at 0x08000010\n");
        EXPECT_EQ(fileText(existing), "old");
    }
}

TEST_F(MergeAndEdit, OverlapFirstKeepsTheEarlierInput)
{
    EXPECT_EQ(converted({"--overlap", "first", "--start-address", "first"}),
              (std::vector<SegmentView>{{0x08000000, bootThen({0xA0, 0xA1, 0xA2, 0xA3}, {0xB4})}}));
}

TEST_F(MergeAndEdit, OverlapLastTakesTheLaterInput)
{
    EXPECT_EQ(converted({"--overlap", "last", "--start-address", "first"}),
              (std::vector<SegmentView>{{0x08000000, bootThen({0xA0, 0xA1, 0xB2, 0xB3}, {0xB4})}}));
    // In the other order the bootloader is the later one.
    EXPECT_EQ(converted({app, boot}, {"--overlap", "last", "--start-address", "first"}),
              (std::vector<SegmentView>{{0x08000000, bootThen({0xA0, 0xA1, 0xA2, 0xA3}, {0xB4})}}));
}

TEST_F(MergeAndEdit, OverlapIdenticalAcceptsOnlyEqualBytes)
{
    const ProcessResult r = runTool({"convert", boot, app, "-o", out, "--overlap", "identical"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "hexblocks: " + boot + ":3 and " + app + ":2 give different bytes at 0x08000012 (0xA2 and 0xB2)\n");
    EXPECT_FALSE(fileExists(out));
    const std::string same = dir.write("same.hex", joinLines({linearBaseRecord(0x0800), dataRecord(0x0011, {0xA1, 0xA2}),
                                                              dataRecord(0x0020, {0x77}), EOF_RECORD}));
    EXPECT_EQ(converted({boot, same}, {"--overlap", "identical"}),
              (std::vector<SegmentView>{{0x08000000, bootThen({0xA0, 0xA1, 0xA2, 0xA3}, {})}, {0x08000020, {0x77}}}));
}

TEST_F(MergeAndEdit, ClashesWithBinaryAndStandardInputNameWhatTheyCan)
{
    dir.write("patch.bin", "\x01\x02");
    ProcessResult r = runTool({"convert", boot, dir.file("patch.bin") + "@0x0800000F", "-o", out});
    EXPECT_EQ(r.err, "hexblocks: " + boot + ":2 and " + dir.file("patch.bin") + "@0x0800000F both give data at 0x0800000F\n");
    r = runToolWithInput({"convert", boot, "-", "-o", out}, APP);
    EXPECT_EQ(r.err, "hexblocks: " + boot + ":3 and -:2 both give data at 0x08000010\n");
    r = runToolWithInput({"convert", "-", boot, "-o", out}, APP);
    EXPECT_EQ(r.err, "hexblocks: -:2 and " + boot + ":3 both give data at 0x08000010\n");
}

TEST_F(MergeAndEdit, StartAddressPolicies)
{
    const ProcessResult r = runTool({"convert", boot, app, "-o", out, "--overlap", "first"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "hexblocks: " + boot + " and " + app + " give different start addresses (0x08000001 and 0x08000011)\n");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"first", ":0400000508000001EE\n"}, {"last", ":0400000508000011DE\n"}, {"drop", ""}};
    for (const auto& c : cases) {
        converted({"--overlap", "first", "--start-address", c.first});
        const std::string text = fileText(out);
        if (!c.second.empty())
            EXPECT_NE(text.find(c.second), std::string::npos) << c.first << ": " << text;
        else
            EXPECT_EQ(text.find(":04000005"), std::string::npos) << text;
    }
}

TEST_F(MergeAndEdit, OffsetCropExcludeFillSwapOneByOne)
{
    const std::vector<std::string> first = {"--overlap", "first", "--start-address", "drop"};
    auto with = [&first](std::vector<std::string> edits) {
        edits.insert(edits.begin(), first.begin(), first.end());
        return edits;
    };
    const std::vector<uint8_t> merged = bootThen({0xA0, 0xA1, 0xA2, 0xA3}, {0xB4});
    EXPECT_EQ(converted(with({"--offset", "-0x08000000"})), (std::vector<SegmentView>{{0x0, merged}}));
    EXPECT_EQ(converted(with({"--offset", "0x100"})), (std::vector<SegmentView>{{0x08000100, merged}}));
    EXPECT_EQ(converted(with({"--crop", "0x08000002:0x08000004", "--crop", "0x08000012:0x08000100"})),
              (std::vector<SegmentView>{{0x08000002, {2, 3}}, {0x08000012, {0xA2, 0xA3, 0xB4}}}));
    EXPECT_EQ(converted(with({"--exclude", "0x08000001:0x08000014"})),
              (std::vector<SegmentView>{{0x08000000, {0}}, {0x08000014, {0xB4}}}));
    EXPECT_EQ(converted(with({"--fill-range", "0x08000014:0x08000018", "--fill", "0x5A"})),
              (std::vector<SegmentView>{{0x08000000, concat(merged, {0x5A, 0x5A, 0x5A})}}));
    EXPECT_EQ(converted(with({"--fill-range", "0x07FFFFFE:0x08000000"})),
              (std::vector<SegmentView>{{0x07FFFFFE, concat({0xFF, 0xFF}, merged)}}));
    EXPECT_EQ(converted(with({"--crop", "0:0x08000014", "--swap", "4"})),
              (std::vector<SegmentView>{{0x08000000, {3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12, 0xA3, 0xA2,
                                                      0xA1, 0xA0}}}));
    EXPECT_EQ(converted(with({"--crop", "0:0x08000014", "--swap", "2"})),
              (std::vector<SegmentView>{{0x08000000, {1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14, 0xA1, 0xA0,
                                                      0xA3, 0xA2}}}));
}

TEST_F(MergeAndEdit, EditsApplyInTheOrderGiven)
{
    const std::vector<std::string> first = {"--overlap", "first", "--start-address", "drop"};
    std::vector<std::string> cropThenMove = first, moveThenCrop = first;
    cropThenMove.insert(cropThenMove.end(), {"--crop", "0x08000000:0x08000004", "--offset", "0x10"});
    moveThenCrop.insert(moveThenCrop.end(), {"--offset", "0x10", "--crop", "0x08000000:0x08000004"});
    EXPECT_EQ(converted(cropThenMove), (std::vector<SegmentView>{{0x08000010, {0, 1, 2, 3}}}));
    EXPECT_EQ(converted(moveThenCrop), (std::vector<SegmentView>{}));
    // --crop options that do not follow each other are two crops.
    std::vector<std::string> twoCrops = first;
    twoCrops.insert(twoCrops.end(), {"--crop", "0x08000000:0x08000004", "--offset", "0", "--crop", "0x08000002:0x08000010"});
    EXPECT_EQ(converted(twoCrops), (std::vector<SegmentView>{{0x08000002, {2, 3}}}));
}

TEST_F(MergeAndEdit, InsertCrcStoresTheChecksumOfTheRange)
{
    const std::string nine = dir.write("nine.bin", "123456789");
    EXPECT_EQ(converted({nine + "@0x100"}, {"--insert-crc", "0x100:0x109@0x10C"}),
              (std::vector<SegmentView>{{0x100, concat(countingBytes(9, '1'), {})}, {0x10C, {0x26, 0x39, 0xF4, 0xCB}}}));
    EXPECT_EQ(converted({nine + "@0x100"}, {"--insert-crc", "0x100:0x109@0x109", "--crc-endian", "big", "--algorithm",
                                            "crc16-xmodem"}),
              (std::vector<SegmentView>{{0x100, concat(countingBytes(9, '1'), {0x31, 0xC3})}}));
    EXPECT_EQ(converted({nine + "@0x100"}, {"--insert-crc", "0x100:0x109@0xF0", "--width", "16", "--poly", "0x1021",
                                            "--init", "0xFFFF"}),
              (std::vector<SegmentView>{{0xF0, {0xB1, 0x29}}, {0x100, countingBytes(9, '1')}}));
    // The gap up to the end of the range counts as the fill byte.
    EXPECT_EQ(converted({nine + "@0x100"}, {"--insert-crc", "0x100:0x10C@0x10C", "--algorithm", "sum8", "--fill", "1"}),
              (std::vector<SegmentView>{{0x100, concat(countingBytes(9, '1'), {})}, {0x10C, {0xDD + 3}}}));
}

TEST_F(MergeAndEdit, EditErrorsNameTheOptionAndLeaveNoOutput)
{
    const std::string nine = dir.write("nine.bin", "123456789");
    struct failure_t {
        std::vector<std::string> args;
        std::string message;
    };
    const std::vector<failure_t> failures = {
        {{"--offset", "-0x101"}, "--offset -0x101: moving the data by -0x101 would put the byte at 0x00000100 below address 0"},
        {{"--offset", "0xFFFFFEF8"}, "--offset 0xFFFFFEF8: moving the data by 0xFFFFFEF8 would put the byte at 0x00000108 past address 0xFFFFFFFF"},
        {{"--swap", "4"}, "--swap 4: the data at 0x00000108 does not fill its 4-byte word"},
        {{"--insert-crc", "0x100:0x109@0x106"},
         "--insert-crc 0x100:0x109@0x106: the crc32 value at 0x00000106 would lie inside the range it covers, 0x00000100:0x00000109"},
        {{"--fill-range", "0:0x10000001"},
         "--fill-range 0:0x10000001: the range spans 268435457 bytes, more than the limit of 268435456 bytes"},
        {{"--insert-crc", "0x100:0x109@0xFFFFFFFE"},
         "--insert-crc 0x100:0x109@0xFFFFFFFE: the crc32 value at 0xFFFFFFFE would run past address 0xFFFFFFFF"},
    };
    for (const failure_t& f : failures) {
        std::vector<std::string> args = {"convert", nine + "@0x100", "-o", out};
        args.insert(args.end(), f.args.begin(), f.args.end());
        const ProcessResult r = runTool(args);
        EXPECT_EQ(r.exitCode, 1) << f.message;
        EXPECT_EQ(r.err, "hexblocks: " + f.message + "\n");
        EXPECT_EQ(r.out, "");
        EXPECT_FALSE(fileExists(out)) << f.message;
    }
}

TEST_F(MergeAndEdit, UsageErrors)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--overlap", "newest"}, "invalid overlap policy 'newest' (error, first, last or identical)"},
        {{"--start-address", "keep"}, "invalid start address policy 'keep' (error, first, last or drop)"},
        {{"--offset", "0x100000000"}, "invalid offset '0x100000000' (-0xFFFFFFFF to 0xFFFFFFFF)"},
        {{"--offset", "--1"}, "invalid offset '--1' (-0xFFFFFFFF to 0xFFFFFFFF)"},
        {{"--crop", "0x10"}, "invalid range '0x10' for --crop (START:END, END exclusive, above START and at most 0x100000000)"},
        {{"--crop", "0x10:0x10"}, "invalid range '0x10:0x10' for --crop (START:END, END exclusive, above START and at most 0x100000000)"},
        {{"--exclude", "0:0x100000001"}, "invalid range '0:0x100000001' for --exclude (START:END, END exclusive, above START and at most 0x100000000)"},
        {{"--fill-range", "0x20:0x10"}, "invalid range '0x20:0x10' for --fill-range (START:END, END exclusive, above START and at most 0x100000000)"},
        {{"--swap", "3"}, "invalid word size '3' for --swap (2 or 4)"},
        {{"--insert-crc", "0:0x10"}, "invalid --insert-crc '0:0x10' (START:END@ADDRESS, END exclusive and at most 0x100000000)"},
        {{"--algorithm", "md5"}, "unknown algorithm 'md5' (see 'hexblocks crc --help')"},
        {{"--crc-endian", "middle"}, "invalid byte order 'middle' for --crc-endian (little or big)"},
        {{"--poly", "0x1021"}, "a CRC of your own needs --width and --poly"},
        {{"--width", "16", "--poly", "0x11021"}, "the polynomial does not fit in 16 bits"},
        {{"--algorithm", "crc32", "--width", "8", "--poly", "7"},
         "--algorithm and a CRC of your own (--width, --poly, ...) exclude each other"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args = {"convert", boot, "-o", out};
        args.insert(args.end(), c.first.begin(), c.first.end());
        const ProcessResult r = runTool(args);
        EXPECT_EQ(r.exitCode, 2) << c.second;
        EXPECT_EQ(r.err.substr(0, r.err.find('\n')), "hexblocks: " + c.second);
        EXPECT_FALSE(fileExists(out));
    }
    // The top of the address space is a valid END.
    EXPECT_EQ(runTool({"convert", boot, "-o", out, "--crop", "0x08000000:0x100000000"}).exitCode, 0);
}

TEST_F(MergeAndEdit, SrecCatAgreesOnEditsAndCrcs)
{
    std::mt19937 random(17);
    int compared = 0;
    for (int round = 0; round < 12; ++round) {
        MemoryImage image = randomImage(random, false, true);
        while (image.highestAddress() >= 0xFFFFFF00u)
            image = randomImage(random, false, true);
        const std::string in = dir.file("in" + std::to_string(round) + ".hex");
        ASSERT_TRUE(writeFile(image, in.c_str()));
        const uint32_t low = image.lowestAddress();
        const uint64_t high = low + image.span();
        const uint64_t mid = low + image.span() / 2;
        const uint64_t top = std::min<uint64_t>(high + 16, 0xFFFFFFF0ull);
        const std::string L = hexAddress(low), M = hexAddress(mid), H = hexAddress(high), T = hexAddress(top);
        // Each: our options, srec_cat's filters.
        const std::vector<std::pair<std::vector<std::string>, std::vector<std::string>>> cases = {
            {{"--crop", L + ":" + M}, {"-crop", L, M}},
            {{"--exclude", M + ":" + H}, {"-exclude", M, H}},
            {{"--fill-range", L + ":" + T, "--fill", "0xA5"}, {"-fill", "0xA5", L, T}},
            {{"--crop", L + ":" + M, "--offset", "-" + L}, {"-crop", L, M, "-offset", "-" + L}},
            {{"--fill-range", L + ":" + H, "--insert-crc", L + ":" + H + "@" + H},
             {"-fill", "0xFF", L, H, "-crc32-l-e", H}},
            {{"--fill-range", L + ":" + H, "--insert-crc", L + ":" + H + "@" + H, "--crc-endian", "big", "--algorithm",
              "crc16-xmodem"},
             {"-fill", "0xFF", L, H, "-crc16-b-e", H, "-xmodem"}},
        };
        for (const auto& c : cases) {
            std::vector<std::string> ours = {"convert", in, "-o", dir.file("ours.hex")};
            ours.insert(ours.end(), c.first.begin(), c.first.end());
            const ProcessResult r = runTool(ours);
            ASSERT_EQ(r.exitCode, 0) << r.err;
            std::vector<std::string> theirs = {in, "-intel"};
            theirs.insert(theirs.end(), c.second.begin(), c.second.end());
            theirs.insert(theirs.end(), {"-o", dir.file("theirs.hex"), "-intel"});
            const ProcessResult s = runProcess(SREC_CAT_PATH, theirs);
            ASSERT_EQ(s.exitCode, 0) << s.err;
            EXPECT_EQ(segmentsOf(imageIn(dir.file("ours.hex"))), segmentsOf(imageIn(dir.file("theirs.hex"))))
                << "round " << round << ": " << c.first[0] << " " << c.first[1];
            ++compared;
        }
    }
    EXPECT_EQ(compared, 72);
}

// The tool guide's recipe: a bootloader, an application and a settings page,
// the application's region filled and its STM32 CRC stored in the region's
// last 4 bytes. srec_cat builds the same image from the same files.
TEST_F(MergeAndEdit, ReadmeRecipeMatchesSrecCat)
{
    std::mt19937 random(23);
    auto part = [&random](uint32_t address, size_t size) {
        std::vector<uint8_t> bytes(size);
        for (uint8_t& b : bytes)
            b = static_cast<uint8_t>(random());
        MemoryImage image;
        image.write(address, bytes.data(), bytes.size());
        return image;
    };
    const std::string bootHex = dir.file("boot.hex"), appHex = dir.file("app.hex"), settingsHex = dir.file("settings.hex");
    ASSERT_TRUE(writeFile(part(0x08000000, 0x3000), bootHex.c_str()));
    ASSERT_TRUE(writeFile(part(0x08004000, 0x1235), appHex.c_str()));
    ASSERT_TRUE(writeFile(part(0x0803F800, 0x40), settingsHex.c_str()));
    const std::string factory = dir.file("factory.hex");
    ProcessResult r = runTool({"convert", bootHex, appHex, settingsHex, "-o", factory, "--fill-range",
                                 "0x08004000:0x0803F7FC", "--insert-crc", "0x08004000:0x0803F7FC@0x0803F7FC",
                                 "--algorithm", "stm32"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out + r.err, "");

    const std::string appWithCrc = dir.file("app-crc.hex"), expected = dir.file("expected.hex");
    ProcessResult s = runProcess(SREC_CAT_PATH, {appHex, "-intel", "-fill", "0xFF", "0x08004000", "0x0803F7FC",
                                                 "-stm32-l-e", "0x0803F7FC", "-o", appWithCrc, "-intel"});
    ASSERT_EQ(s.exitCode, 0) << s.err;
    s = runProcess(SREC_CAT_PATH, {bootHex, "-intel", appWithCrc, "-intel", settingsHex, "-intel", "-o", expected, "-intel"});
    ASSERT_EQ(s.exitCode, 0) << s.err;
    EXPECT_EQ(segmentsOf(imageIn(factory)), segmentsOf(imageIn(expected)));

    // What the bootloader computes over the region is the value stored.
    r = runTool({"crc", factory, "--algorithm", "stm32", "--range", "0x08004000:0x0803F7FC"});
    const std::vector<uint8_t> stored = imageIn(factory).copyRange(0x0803F7FC, 4);
    char value[16];
    std::snprintf(value, sizeof value, "0x%02X%02X%02X%02X", stored[3], stored[2], stored[1], stored[0]);
    EXPECT_EQ(r.out, "stm32: " + std::string(value) + " over 0x08004000:0x0803F7FC, 243708 bytes\n");
}

// The overlap policy applies to the records of one input too: without
// --overlap the first value is kept with a warning; with it, the policy
// decides within each input and between the inputs alike.
TEST(OverlapWithinAnInput, ThePolicyDecidesAsBetweenInputs)
{
    TempDir dir;
    const std::string hex = dir.write("twice.hex", joinLines({dataRecord(0x100, {1, 2, 3, 4}), dataRecord(0x102, {3, 7}),
                                                              EOF_RECORD}));
    const ProcessResult byDefault = runTool({"convert", hex, "-o", "-", "-O", "ti-txt"});
    EXPECT_EQ(byDefault.exitCode, 0);
    EXPECT_EQ(byDefault.out, "@0100\n01 02 03 04\nq\n");
    EXPECT_EQ(byDefault.err, hex + ":2: warning: 2 bytes given by more than one record; the first value of each is kept\n");
    const ProcessResult last = runTool({"convert", hex, "-o", "-", "-O", "ti-txt", "--overlap", "last"});
    EXPECT_EQ(last.exitCode, 0);
    EXPECT_EQ(last.out, "@0100\n01 02 03 07\nq\n");
    EXPECT_EQ(last.err, "");
    const ProcessResult first = runTool({"convert", hex, "-o", "-", "-O", "ti-txt", "--overlap", "first"});
    EXPECT_EQ(first.out, "@0100\n01 02 03 04\nq\n");
    EXPECT_EQ(first.err, "");
    const ProcessResult identical = runTool({"convert", hex, "-o", dir.file("x.hex"), "--overlap", "identical"});
    EXPECT_EQ(identical.exitCode, 1);
    EXPECT_EQ(identical.out, "");
    EXPECT_EQ(identical.err, hex + ":2: this record gives 0x07 at 0x00000103, where line 1 gave 0x04\n");
    const ProcessResult error = runTool({"convert", hex, "-o", dir.file("x.hex"), "--overlap", "error"});
    EXPECT_EQ(error.exitCode, 1);
    EXPECT_EQ(error.err, hex + ":2: this record gives 0x00000102, which line 1 gave\n");
    EXPECT_FALSE(fileExists(dir.file("x.hex")));
}
