// hexblocks crc: the line and the JSON it prints, every algorithm, ranges
// and fill, a CRC of the user's own, standard input and its errors; Python's
// zlib over objcopy's flat binary judges the value for generated images, and
// sha256sum and sha512sum the digests; --insert-digest.
#include "formats.h"
#include "support/hex_text.h"
#include "support/image_view.h"
#include "support/run_tool.h"
#include "support/temp_dir.h"
#include "text_format.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>
#include <vector>

using namespace hexblocks;
using namespace hexblocks::cli;

namespace {

class Crc : public ::testing::Test {
protected:
    TempDir dir;
    std::string nine = dir.write("nine.bin", "123456789");
};

} // namespace

TEST_F(Crc, PrintsTheAlgorithmValueRangeAndSize)
{
    const ProcessResult r = runTool({"crc", nine});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "crc32: 0xCBF43926 over 0x00000000:0x00000009, 9 bytes\n");
    EXPECT_EQ(r.err, "");
}

TEST_F(Crc, EveryAlgorithmGivesItsCheckValue)
{
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"crc32", "0xCBF43926"},        {"crc32c", "0xE3069283"},     {"crc32-mpeg2", "0x0376E6E7"},
        {"crc32-bzip2", "0xFC891918"},  {"crc16-ccitt-false", "0x29B1"}, {"crc16-xmodem", "0x31C3"},
        {"crc16-kermit", "0x2189"},     {"crc16-modbus", "0x4B37"},   {"crc16-arc", "0xBB3D"},
        {"crc8", "0xF4"},               {"stm32", "0xD9020D98"},      {"sum8", "0xDD"},
        {"sum16", "0x01DD"}};
    const ProcessResult help = runTool({"crc", "--help"});
    for (const auto& e : expected) {
        for (const char* option : {"--algorithm", "-a"}) {
            const ProcessResult r = runTool({"crc", nine, option, e.first});
            EXPECT_EQ(r.exitCode, 0) << r.err;
            EXPECT_EQ(r.out, e.first + ": " + e.second + " over 0x00000000:0x00000009, 9 bytes\n");
        }
        // The help lists each with its check value.
        EXPECT_NE(help.out.find("  " + padRight(e.first, 19) + e.second), std::string::npos) << e.first;
    }
}

TEST_F(Crc, JsonGivesNumbers)
{
    ProcessResult r = runTool({"crc", nine, "--json", "--algorithm", "sum16", "--range", "0x0:0x10", "--fill", "0"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "{\"algorithm\": \"sum16\", \"value\": 477, \"start\": 0, \"size\": 16, \"fill\": 0}\n");
    r = runTool({"crc", nine, "--json", "--algorithm", "sum16", "--range", "0x0:0x10", "--fill", "1"});
    EXPECT_EQ(r.out, "{\"algorithm\": \"sum16\", \"value\": 484, \"start\": 0, \"size\": 16, \"fill\": 1}\n");
    r = runTool({"crc", nine, "-j"});
    EXPECT_EQ(r.out, "{\"algorithm\": \"crc32\", \"value\": 3421780262, \"start\": 0, \"size\": 9, \"fill\": 255}\n");
    r = runTool({"crc", nine, "-j", "--range", "0xFFFFFFF0:0x100000000"});
    EXPECT_EQ(r.out.substr(r.out.find("\"start\"")), "\"start\": 4294967280, \"size\": 16, \"fill\": 255}\n");
}

TEST_F(Crc, RangeAndFillCoverAddressesWithoutData)
{
    // "123456789" at 0x100 and 0xFF from 0x109 to 0x10F: crc32 of those 16 bytes.
    const ProcessResult r = runTool({"crc", nine + "@0x100", "--range", "0x100:0x110"});
    const ProcessResult flat = runTool({"crc", dir.write("flat.bin", "123456789\xFF\xFF\xFF\xFF\xFF\xFF\xFF")});
    EXPECT_EQ(r.out, "crc32: " + flat.out.substr(7, 10) + " over 0x00000100:0x00000110, 16 bytes\n");
    const ProcessResult zeros = runTool({"crc", nine + "@0x100", "--range", "0x100:0x110", "--fill", "0"});
    const ProcessResult flatZeros = runTool({"crc", dir.write("zeros.bin", std::string("123456789") + std::string(7, '\0'))});
    EXPECT_EQ(zeros.out.substr(0, 17), flatZeros.out.substr(0, 17));
    EXPECT_NE(zeros.out, r.out);
    // One byte, and the top of the address space.
    EXPECT_EQ(runTool({"crc", nine + "@0x100", "--range", "0x100:0x101", "-a", "sum8"}).out,
              "sum8: 0x31 over 0x00000100:0x00000101, 1 byte\n");
    EXPECT_EQ(runTool({"crc", nine + "@0xFFFFFFF7", "--range", "0xFFFFFFF7:0x100000000", "-a", "sum16"}).out,
              "sum16: 0x01DD over 0xFFFFFFF7:0x100000000, 9 bytes\n");
}

TEST_F(Crc, ACrcOfYourOwn)
{
    const ProcessResult r = runTool({"crc", nine, "--width", "16", "--poly", "0x8005", "--reflect-in", "--reflect-out"});
    EXPECT_EQ(r.out, "custom: 0xBB3D over 0x00000000:0x00000009, 9 bytes\n");
    EXPECT_EQ(runTool({"crc", nine, "--width", "32", "--poly", "0x1EDC6F41", "--init", "0xFFFFFFFF", "--xorout",
                         "0xFFFFFFFF", "--reflect-in", "--reflect-out"})
                  .out,
              "custom: 0xE3069283 over 0x00000000:0x00000009, 9 bytes\n");
    EXPECT_EQ(runTool({"crc", nine, "--width", "8", "--poly", "7"}).out, "custom: 0xF4 over 0x00000000:0x00000009, 9 bytes\n");
}

TEST_F(Crc, ReadsEveryFormatAndStandardInput)
{
    const std::string hex = dir.write("nine.hex", joinLines({dataRecord(0x0000, countingBytes(9, '1')), EOF_RECORD}));
    EXPECT_EQ(runTool({"crc", hex}).out, "crc32: 0xCBF43926 over 0x00000000:0x00000009, 9 bytes\n");
    EXPECT_EQ(runToolWithInput({"crc", "-"}, joinLines({srecordLine(1, 2, 0x10, countingBytes(9, '1'))})).out,
              "crc32: 0xCBF43926 over 0x00000010:0x00000019, 9 bytes\n");
    EXPECT_EQ(runToolWithInput({"crc", "--input-format", "bin", "-"}, "123456789").out,
              "crc32: 0xCBF43926 over 0x00000000:0x00000009, 9 bytes\n");
    const std::string empty = dir.write("empty.hex", joinLines({EOF_RECORD}));
    EXPECT_EQ(runTool({"crc", empty}).out, "crc32: 0x00000000 over 0x00000000:0x00000000, 0 bytes\n");
}

TEST_F(Crc, Errors)
{
    ProcessResult r = runTool({"crc", dir.write("bad.hex", ":0000\n")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.substr(0, r.err.find(':', r.err.find("bad.hex") + 8) + 1), dir.file("bad.hex") + ":1:");
    r = runTool({"crc", dir.file("missing.hex")});
    EXPECT_EQ(r.exitCode, 1);
    const std::vector<std::pair<std::vector<std::string>, std::string>> usage = {
        {{"crc"}, "missing FILE"},
        {{"crc", nine, nine}, "unexpected argument '" + nine + "'"},
        {{"crc", nine, "--range", "5"}, "invalid range '5' (START:END, END exclusive, above START and at most 0x100000000)"},
        {{"crc", nine, "--algorithm", "crc64"}, "unknown algorithm 'crc64' (see 'hexblocks crc --help')"},
        {{"crc", nine, "--width", "12", "--poly", "1"}, "invalid CRC width '12' (8, 16 or 32)"},
        {{"crc", nine, "--width", "8"}, "a CRC of your own needs --width and --poly"},
        {{"crc", nine, "--width", "8", "--poly", "7", "--init", "0x100"}, "the initial value does not fit in 8 bits"},
        {{"crc", nine, "--fill", "256"}, "invalid fill byte '256' (0 to 255, or 0x00 to 0xFF)"},
        {{"crc", nine, "--one-block"}, "unknown option '--one-block'"},
    };
    for (const auto& u : usage) {
        r = runTool(u.first);
        EXPECT_EQ(r.exitCode, 2) << u.second;
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err.substr(0, r.err.find('\n')), "hexblocks: " + u.second);
    }
}

TEST_F(Crc, PythonZlibAgreesOnGeneratedImagesWithGaps)
{
    std::mt19937 random(3);
    for (int round = 0; round < 10; ++round) {
        const MemoryImage image = randomImage(random, false, true);
        const std::string hex = dir.file("image.hex");
        ASSERT_TRUE(writeFile(image, hex.c_str()));
        const ProcessResult objcopy = runProcess(OBJCOPY_PATH, {"-I", "ihex", "-O", "binary", "--gap-fill", "0xFF", hex,
                                                                dir.file("flat.bin")});
        ASSERT_EQ(objcopy.exitCode, 0) << objcopy.err;
        const ProcessResult python = runProcess(PYTHON3_PATH, {"-c", "import sys, zlib; print(zlib.crc32(open(sys.argv[1], 'rb').read()))",
                                                               dir.file("flat.bin")});
        ASSERT_EQ(python.exitCode, 0) << python.err;
        const ProcessResult ours = runTool({"crc", hex, "--json"});
        ASSERT_EQ(ours.exitCode, 0) << ours.err;
        EXPECT_EQ(ours.out, "{\"algorithm\": \"crc32\", \"value\": " + python.out.substr(0, python.out.size() - 1) +
                                ", \"start\": " + std::to_string(image.lowestAddress()) +
                                ", \"size\": " + std::to_string(image.span()) + ", \"fill\": 255}\n");
    }
}

TEST_F(Crc, DigestsAreWhatSha256sumAndSha512sumGiveForObjcopysFlatBinary)
{
    std::mt19937 random(4);
    for (int round = 0; round < 6; ++round) {
        const MemoryImage image = randomImage(random, false, true);
        const std::string hex = dir.file("image.hex");
        ASSERT_TRUE(writeFile(image, hex.c_str()));
        const std::string flat = dir.file("flat.bin");
        const ProcessResult objcopy =
            runProcess(OBJCOPY_PATH, {"-I", "ihex", "-O", "binary", "--gap-fill", "0xFF", hex, flat});
        ASSERT_EQ(objcopy.exitCode, 0) << objcopy.err;
        for (const char* algorithm : {"sha256", "sha512"}) {
            const ProcessResult sum = runProcess(std::string(algorithm) + "sum", {flat});
            ASSERT_EQ(sum.exitCode, 0) << sum.err;
            const std::string value = sum.out.substr(0, sum.out.find(' '));
            const std::string range = hexAddress(image.lowestAddress()) + ":" +
                                      hexAddress(image.lowestAddress() + image.span()) + ", " +
                                      std::to_string(image.span()) + " bytes";
            ProcessResult ours = runTool({"crc", hex, "--algorithm", algorithm});
            ASSERT_EQ(ours.exitCode, 0) << ours.err;
            EXPECT_EQ(ours.out, std::string(algorithm) + ": " + value + " over " + range + "\n");
            ours = runTool({"crc", hex, "-a", algorithm, "--json"});
            EXPECT_EQ(ours.out, "{\"algorithm\": \"" + std::string(algorithm) + "\", \"value\": \"" + value +
                                    "\", \"start\": " + std::to_string(image.lowestAddress()) +
                                    ", \"size\": " + std::to_string(image.span()) + ", \"fill\": 255}\n");
        }
    }
}

TEST_F(Crc, InsertDigestStoresWhatCrcPrints)
{
    const std::string abc = dir.write("abc.bin", "abc");
    ProcessResult r = runTool({"crc", abc, "--algorithm", "sha256"});
    EXPECT_EQ(r.out, "sha256: ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad over "
                     "0x00000000:0x00000003, 3 bytes\n");
    // sha256 by default; sha512 with --algorithm.
    const std::string out = dir.file("out.hex");
    r = runTool({"convert", abc, "-o", out, "--insert-digest", "0:3@0x100"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    MemoryImage image;
    ASSERT_TRUE(readFile(image, out.c_str()));
    EXPECT_EQ(image.copyRange(0x100, 4), (std::vector<uint8_t>{0xBA, 0x78, 0x16, 0xBF}));
    EXPECT_EQ(image.highestAddress(), 0x11Fu);
    r = runTool({"convert", abc, "-o", out, "--insert-digest", "0:3@0xFFFFFFC0", "--algorithm", "sha512"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    ASSERT_TRUE(readFile(image, out.c_str()));
    EXPECT_EQ(image.copyRange(0xFFFFFFC0, 2), (std::vector<uint8_t>{0xDD, 0xAF}));
    EXPECT_EQ(image.highestAddress(), 0xFFFFFFFFu);
}

TEST_F(Crc, InsertDigestErrors)
{
    const std::string abc = dir.write("abc.bin", "abc");
    const std::string out = dir.file("out.hex");
    ProcessResult r = runTool({"convert", abc, "-o", out, "--insert-digest", "0:3@0x1"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "hexblocks: --insert-digest 0:3@0x1: the sha256 digest at 0x00000001 would lie inside the range "
                     "it covers, 0x00000000:0x00000003\n");
    r = runTool({"convert", abc, "-o", out, "--insert-digest", "0:3@0xFFFFFFF0"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "hexblocks: --insert-digest 0:3@0xFFFFFFF0: the sha256 digest at 0xFFFFFFF0 would run past "
                     "address 0xFFFFFFFF\n");
    r = runTool({"convert", abc, "-o", out, "--insert-digest", "0:3"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err.substr(0, r.err.find('\n')),
              "hexblocks: invalid --insert-digest '0:3' (START:END@ADDRESS, END exclusive and at most 0x100000000)");
    r = runTool({"convert", abc, "-o", out, "--insert-digest", "0:3@0x100", "--algorithm", "crc32"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err.substr(0, r.err.find('\n')),
              "hexblocks: --insert-digest stores a digest, and --algorithm names the checksum crc32 (sha256 or sha512)");
    r = runTool({"convert", abc, "-o", out, "--insert-crc", "0:3@0x100", "--algorithm", "sha256"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err.substr(0, r.err.find('\n')),
              "hexblocks: --insert-crc stores a CRC or sum, and --algorithm names the digest sha256");
}
