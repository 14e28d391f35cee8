// hexblocks with the formats of boot loaders, programmers and FPGA tools:
// UF2 written with a family and read back, info on a UF2 file, --family
// choosing among families, TI-TXT and Verilog told apart only by
// --input-format, word widths, C arrays by name, and bad input of each
// format failing with its line or block and writing nothing.
#include "support/hex_text.h"
#include "support/run_tool.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string fileText(const std::string& path)
{
    const std::vector<uint8_t> bytes = readFileBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

// 16 bytes at 0x10000000 and 2 at 0x10000120.
const std::string FIRMWARE = joinLines({linearBaseRecord(0x1000), dataRecord(0x0000, countingBytes(16, 0x41)),
                                        dataRecord(0x0120, {0xDE, 0xAD}), EOF_RECORD});

class MemoryFileFormats : public ::testing::Test {
protected:
    TempDir dir;
    std::string firmware = dir.write("fw.hex", FIRMWARE);
};

} // namespace

TEST_F(MemoryFileFormats, Uf2WithAFamilyAndInfoOnIt)
{
    const ProcessResult converted = runTool({"convert", firmware, "-o", "fw.uf2", "--family", "rp2040"}, dir.path());
    ASSERT_EQ(converted.exitCode, 0) << converted.err;
    EXPECT_EQ(converted.out, "");
    EXPECT_EQ(converted.err, "");
    EXPECT_EQ(fileText(dir.file("fw.uf2")).size(), 2u * 512) << "two 256-byte pages";
    const ProcessResult info = runTool({"info", "fw.uf2"}, dir.path());
    ASSERT_EQ(info.exitCode, 0) << info.err;
    EXPECT_EQ(info.out, "#  start       end         size  base    start16\n"
                        "0  0x10000000  0x100001FF   512  0x1000  0x0000\n"
                        "total: 1 block, 512 bytes, span 0x10000000-0x100001FF, 512 bytes\n"
                        "UF2: 2 blocks, family rp2040 (0xE48BFF56)\n");
    const ProcessResult json = runTool({"info", "fw.uf2", "--json"}, dir.path());
    EXPECT_NE(json.out.find(",\n  \"uf2\": {\"blocks\": 2, \"families\": [{\"id\": 3834380118, \"name\": \"rp2040\"}]}\n}\n"),
              std::string::npos)
        << json.out;
    // Back to HEX: the pages, the rest of each filled with 0xFF.
    const ProcessResult back = runTool({"convert", "fw.uf2", "-o", "back.hex", "--crop", "0x10000000:0x10000010",
                                        "--family", "rp2040"},
                                       dir.path());
    ASSERT_EQ(back.exitCode, 0) << back.err;
    EXPECT_EQ(fileText(dir.file("back.hex")),
              joinLines({linearBaseRecord(0x1000), dataRecord(0x0000, countingBytes(16, 0x41)), EOF_RECORD}));
}

TEST_F(MemoryFileFormats, Uf2FamiliesAtTheSameAddressesNeedFamily)
{
    ASSERT_EQ(runTool({"convert", firmware, "-o", "a.uf2", "--family", "rp2040"}, dir.path()).exitCode, 0);
    ASSERT_EQ(runTool({"convert", firmware, "-o", "b.uf2", "--family", "samd51"}, dir.path()).exitCode, 0);
    dir.write("both.uf2", fileText(dir.file("a.uf2")) + fileText(dir.file("b.uf2")));
    const ProcessResult both = runTool({"convert", "both.uf2", "-o", "x.hex"}, dir.path());
    EXPECT_EQ(both.exitCode, 1);
    EXPECT_EQ(both.out, "");
    EXPECT_EQ(both.err, "both.uf2: blocks of families samd51 (0x55114460) and rp2040 (0xE48BFF56) give the same "
                        "addresses: a family must be selected: use --family\n");
    EXPECT_FALSE(fileExists(dir.file("x.hex")));
    const ProcessResult chosen = runTool({"convert", "both.uf2", "-o", "x.hex", "--family", "0x55114460"}, dir.path());
    EXPECT_EQ(chosen.exitCode, 0) << chosen.err;
    const ProcessResult info = runTool({"info", "both.uf2", "--family", "samd51"}, dir.path());
    EXPECT_EQ(info.exitCode, 0) << info.err;
    EXPECT_NE(info.out.find("UF2: 4 blocks, families samd51 (0x55114460) and rp2040 (0xE48BFF56)\n"),
              std::string::npos)
        << info.out;
    const ProcessResult missing = runTool({"info", "both.uf2", "--family", "nrf52840"}, dir.path());
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.err, "both.uf2: no block of family nrf52840 (0xADA52840): the file holds samd51 (0x55114460) "
                           "and rp2040 (0xE48BFF56)\n");
}

TEST_F(MemoryFileFormats, TiTxtAndVerilogAreToldApartByTheOption)
{
    dir.write("fw.txt", "@1000\n01 02\nq\n");
    const ProcessResult told = runTool({"info", "fw.txt"}, dir.path());
    EXPECT_EQ(told.exitCode, 1);
    EXPECT_EQ(told.out, "");
    EXPECT_EQ(told.err, "fw.txt: the content could be TI-TXT or Verilog memory file: the format must be given "
                        "(ti-txt or vmem): use --input-format\n");
    const ProcessResult tiTxt = runTool({"info", "fw.txt", "-I", "ti-txt"}, dir.path());
    EXPECT_EQ(tiTxt.exitCode, 0) << tiTxt.err;
    EXPECT_NE(tiTxt.out.find("total: 1 block, 2 bytes"), std::string::npos) << tiTxt.out;
    // As Verilog words of 16 bits the address is in words: 0x1000 is byte 0x2000.
    const ProcessResult vmem = runTool({"convert", "fw.txt", "-I", "vmem", "--word-width", "16", "-o", "w.ti",
                                        "-O", "ti-txt"},
                                       dir.path());
    EXPECT_EQ(vmem.exitCode, 1) << "q is not a Verilog word";
    EXPECT_EQ(vmem.err, "fw.txt:3: 'q' is not a hex digit\n");
    dir.write("fw.mem", "@1000\n0102 0304\n");
    const ProcessResult words =
        runTool({"convert", "fw.mem", "-I", "vmem", "--word-width", "16", "-o", "-", "-O", "ti-txt"}, dir.path());
    EXPECT_EQ(words.exitCode, 0) << words.err;
    EXPECT_EQ(words.out, "@2000\n01 02 03 04\nq\n");
}

TEST_F(MemoryFileFormats, EveryFormatByExtensionAndOption)
{
    const std::vector<std::pair<std::string, std::string>> outputs = {
        {"fw.uf2", "UF2\n"}, {"fw.mem", "@10000000\n"}, {"fw.vmem", "@10000000\n"}, {"fw.mif", "-- written by"},
        {"fw.coe", "; written by"}, {"fw.h", "/* written by"}, {"fw.c", "/* written by"}};
    for (const auto& o : outputs) {
        const ProcessResult r = runTool({"convert", firmware, "-o", o.first}, dir.path());
        ASSERT_EQ(r.exitCode, 0) << o.first << ": " << r.err;
        EXPECT_EQ(fileText(dir.file(o.first)).rfind(o.second, 0), 0u) << o.first;
    }
    const ProcessResult ti = runTool({"convert", firmware, "-o", "-", "-O", "ti-txt"}, dir.path());
    EXPECT_EQ(ti.out, "@10000000\n41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50\n@10000120\nDE AD\nq\n");
    const ProcessResult hex16 = runTool({"convert", firmware, "-o", "-", "-O", "ihex16"}, dir.path());
    EXPECT_EQ(hex16.out.substr(0, 16), ":010000040008F3\n") << "word address 0x08000000: upper 0x0800";
    const ProcessResult named = runTool({"convert", firmware, "-o", "-", "-O", "c", "--array-name", "boot"}, dir.path());
    EXPECT_NE(named.out.find("static const uint8_t boot_segment_0[16] = {"), std::string::npos) << named.out;
    const ProcessResult badName = runTool({"convert", firmware, "-o", "x.h", "--array-name", "my-image"}, dir.path());
    EXPECT_EQ(badName.exitCode, 1);
    EXPECT_EQ(badName.err, "hexblocks: x.h: the name \"my-image\" is not a C identifier\n");
    EXPECT_FALSE(fileExists(dir.file("x.h")));
    const ProcessResult wide = runTool({"convert", firmware, "-o", "-", "-O", "vmem", "--word-width", "32"}, dir.path());
    EXPECT_EQ(wide.out, "@04000000\n41424344 45464748 494A4B4C 4D4E4F50\n@04000048\nDEADFFFF\n");
}

TEST_F(MemoryFileFormats, BadInputOfEachFormatNamesTheLineOrBlockAndWritesNothing)
{
    ASSERT_EQ(runTool({"convert", firmware, "-o", "fw.uf2"}, dir.path()).exitCode, 0);
    const std::string uf2 = fileText(dir.file("fw.uf2"));
    dir.write("cut.uf2", uf2.substr(0, 700));
    std::string bigPayload = uf2;
    bigPayload[512 + 16] = static_cast<char>(0xDD); // 477 bytes
    bigPayload[512 + 17] = 0x01;
    dir.write("big.uf2", bigPayload);
    dir.write("noq.txt", "@1000\n01 02\n");
    dir.write("wide.mem", "@0\n123\n");
    dir.write("bad.mif", "WIDTH=8;\nDEPTH=4;\nCONTENT BEGIN\n0 : 1FF;\nEND;\n");
    dir.write("bad.hex16", ":0100000001020F\n");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"cut.uf2"}, "cut.uf2: block 1: truncated: the file ends 188 bytes into its 512\n"},
        {{"big.uf2"}, "big.uf2: block 1: payload of 477 bytes, more than 476\n"},
        {{"noq.txt", "-I", "ti-txt"}, "noq.txt: the file ends without the end marker q\n"},
        {{"wide.mem"}, "wide.mem:2: a word wider than 8 bits\n"},
        {{"bad.mif"}, "bad.mif:4: '1FF' is not a word of 8 bits in the data radix\n"},
        {{"bad.hex16", "-I", "ihex16"}, "bad.hex16:1: checksum error\n"}};
    for (const auto& c : cases) {
        std::vector<std::string> args = {"convert"};
        args.insert(args.end(), c.first.begin(), c.first.end());
        args.insert(args.end(), {"-o", "out.hex"});
        const ProcessResult r = runTool(args, dir.path());
        EXPECT_EQ(r.exitCode, 1) << c.second;
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, c.second);
        EXPECT_FALSE(fileExists(dir.file("out.hex"))) << c.second;
    }
}
