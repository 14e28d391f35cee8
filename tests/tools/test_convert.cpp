// hexblocks convert, run as a process: output formats by extension and by
// option, input formats told from the content or named, standard input and
// output, several inputs, every option, bad input of each format, and
// output that is never left half written. Also info, map and dump on the
// formats other than Intel HEX.
#include "support/elf_builder.h"
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

// Two blocks and a start address.
const std::string FIRMWARE = joinLines({linearBaseRecord(0x0800), dataRecord(0x0000, countingBytes(16, 0x41)),
                                        dataRecord(0x0010, countingBytes(4, 0x51)),
                                        dataRecord(0x0100, {0xDE, 0xAD}), hexRecord(0x05, 0, {8, 0, 1, 0x31}),
                                        EOF_RECORD});

// FIRMWARE as S-records, as the tool writes them.
const std::string FIRMWARE_SRECORDS = joinLines({"S0030000FC", srecordLine(3, 4, 0x08000000, countingBytes(16, 0x41)),
                                                 srecordLine(3, 4, 0x08000010, countingBytes(4, 0x51)),
                                                 srecordLine(3, 4, 0x08000100, {0xDE, 0xAD}), "S5030003F9",
                                                 srecordLine(7, 4, 0x08000131, {})});

class Convert : public ::testing::Test {
protected:
    TempDir dir;
    std::string firmware = dir.write("fw.hex", FIRMWARE);
};

} // namespace

TEST_F(Convert, OutputFormatFromTheExtension)
{
    for (const std::string name : {"a.srec", "a.s19", "a.s28", "a.s37", "a.mot", "A.S37"}) {
        const ProcessResult r = runTool({"convert", firmware, "-o", dir.file(name)});
        ASSERT_EQ(r.exitCode, 0) << name << ": " << r.err;
        EXPECT_EQ(r.out, "") << name;
        EXPECT_EQ(r.err, "") << name;
        EXPECT_EQ(fileText(dir.file(name)), FIRMWARE_SRECORDS) << name;
    }
    for (const std::string name : {"b.hex", "b.ihex", "b.ihx"}) {
        ASSERT_EQ(runTool({"convert", dir.file("a.srec"), "-o", dir.file(name)}).exitCode, 0) << name;
        EXPECT_EQ(fileText(dir.file(name)), FIRMWARE) << name;
    }
    ASSERT_EQ(runTool({"convert", firmware, "-o", dir.file("c.bin")}).exitCode, 0);
    std::string flat(0x102, '\xFF');
    for (int i = 0; i < 20; ++i)
        flat[static_cast<size_t>(i)] = static_cast<char>(0x41 + i);
    flat[0x100] = '\xDE';
    flat[0x101] = '\xAD';
    EXPECT_EQ(fileText(dir.file("c.bin")), flat);
}

TEST_F(Convert, BinaryOutputEqualsObjcopys)
{
    ASSERT_EQ(runTool({"convert", firmware, "-o", dir.file("ours.bin")}).exitCode, 0);
    const ProcessResult objcopy =
        runProcess(OBJCOPY_PATH, {"-I", "ihex", "-O", "binary", "--gap-fill", "0xFF", firmware, dir.file("objcopy.bin")});
    ASSERT_EQ(objcopy.exitCode, 0) << objcopy.err;
    EXPECT_EQ(readFileBytes(dir.file("ours.bin")), readFileBytes(dir.file("objcopy.bin")));
}

TEST_F(Convert, OutputFormatOptionOverridesTheExtensionAndIsNeededForStandardOutput)
{
    ASSERT_EQ(runTool({"convert", firmware, "-o", dir.file("x.hex"), "--output-format", "srec"}).exitCode, 0);
    EXPECT_EQ(fileText(dir.file("x.hex")), FIRMWARE_SRECORDS);

    const ProcessResult toStdout = runTool({"convert", firmware, "-o", "-", "-O", "srec"});
    EXPECT_EQ(toStdout.exitCode, 0) << toStdout.err;
    EXPECT_EQ(toStdout.out, FIRMWARE_SRECORDS);
    EXPECT_EQ(toStdout.err, "");

    const ProcessResult noFormat = runTool({"convert", firmware, "-o", "-"});
    EXPECT_EQ(noFormat.exitCode, 2);
    EXPECT_EQ(noFormat.out, "");
    EXPECT_EQ(noFormat.err.substr(0, noFormat.err.find('\n')),
              "hexblocks: --output-format is needed to write to standard output");
}

TEST_F(Convert, UsageErrors)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"convert", firmware}, "hexblocks: missing -o OUTPUT"},
        {{"convert", "-o", "x.hex"}, "hexblocks: missing INPUT"},
        {{"convert", firmware, "-o", dir.file("x.elf")},
         "hexblocks: cannot tell the output format from '" + dir.file("x.elf") + "': use --output-format ihex|srec|uf2|ti-txt|vmem|mif|coe|c|ihex16|bin"},
        {{"convert", firmware, "-o", "x", "-O", "elf"}, "hexblocks: invalid output format 'elf' (ihex, srec, uf2, ti-txt, vmem, mif, coe, c, ihex16 or bin)"},
        {{"convert", firmware, "-o", "x.hex", "-I", "coff"},
         "hexblocks: invalid input format 'coff' (ihex, srec, elf, uf2, ti-txt, vmem, mif, ihex16 or bin)"},
        {{"convert", firmware, "-o", "x.coe", "-I", "coe"},
         "hexblocks: invalid input format 'coe' (ihex, srec, elf, uf2, ti-txt, vmem, mif, ihex16 or bin)"},
        {{"convert", firmware, "-o", "x.vmem", "--word-width", "12"},
         "hexblocks: invalid word width '12' (8, 16, 32 or 64)"},
        {{"convert", firmware, "-o", "x.uf2", "--family", "rp9999"},
         "hexblocks: invalid UF2 family 'rp9999' (a name such as rp2040, or a number such as 0xE48BFF56)"},
        {{"convert", firmware, "-o", "x.hex", "--record-size", "0"}, "hexblocks: invalid record size '0' (1 to 255)"},
        {{"convert", firmware, "-o", "x.hex", "--record-size", "256"},
         "hexblocks: invalid record size '256' (1 to 255)"},
        {{"convert", firmware, "-o", "x.hex", "--addressing", "flat"},
         "hexblocks: invalid addressing 'flat' (linear or segment)"},
        {{"convert", firmware, "-o", "x.srec", "--address-size", "1"},
         "hexblocks: invalid address size '1' (2, 3 or 4)"},
        {{"convert", firmware, "-o", "x.bin", "--fill", "0x100"},
         "hexblocks: invalid fill byte '0x100' (0 to 255, or 0x00 to 0xFF)"},
        {{"convert", "-", "-", "-o", "x.hex"}, "hexblocks: standard input ('-') can be read only once"},
        {{"convert", "app.bin@0x1G", "-o", "x.hex"},
         "hexblocks: invalid address '0x1G' in 'app.bin@0x1G' (0 to 0xFFFFFFFF)"},
        {{"convert", firmware, "-o", "x.hex", "--one-block"}, "hexblocks: unknown option '--one-block'"},
    };
    for (const auto& c : cases) {
        const ProcessResult r = runTool(c.first, dir.path());
        EXPECT_EQ(r.exitCode, 2) << c.second;
        EXPECT_EQ(r.out, "") << c.second;
        EXPECT_EQ(r.err, c.second + "\nusage: hexblocks convert INPUT... -o OUTPUT [OPTIONS]\n"
                                    "Try 'hexblocks --help' for more information.\n");
    }
    EXPECT_TRUE(listFiles(dir.path()) == std::vector<std::string>({"fw.hex"}));
}

TEST_F(Convert, InputFormatsToldFromTheContent)
{
    const std::string srec = dir.write("noext", FIRMWARE_SRECORDS);
    ASSERT_EQ(runTool({"convert", srec, "-o", dir.file("from-srec.hex")}).exitCode, 0);
    EXPECT_EQ(fileText(dir.file("from-srec.hex")), FIRMWARE);

    const std::vector<ElfSegment> segments = {{1, 0x08000000, 0x08000000, countingBytes(20, 0x41)},
                                              {1, 0x08000100, 0x08000100, {0xDE, 0xAD}}};
    dir.write("fw.elf", ElfBuilder(false, true).build(0x08000131, segments));
    const ProcessResult r = runTool({"convert", dir.file("fw.elf"), "-o", dir.file("from-elf.hex")});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(fileText(dir.file("from-elf.hex")), FIRMWARE);

    const std::string text = dir.write("notes.txt", "hello\n");
    const ProcessResult unknown = runTool({"convert", text, "-o", dir.file("out.hex")});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_EQ(unknown.err, text + ": not Intel HEX, S-records, ELF, UF2, TI-TXT, Verilog memory file or Intel MIF (the format of binary input must be given)\n");
    EXPECT_FALSE(fileExists(dir.file("out.hex")));
}

TEST_F(Convert, BinaryInputAtAnAddressByNameExtensionOrOption)
{
    dir.write("app.bin", "\x01\x02\x03");
    ASSERT_EQ(runTool({"convert", dir.file("app.bin") + "@0x08004000", "-o", dir.file("a.hex")}).exitCode, 0);
    EXPECT_EQ(fileText(dir.file("a.hex")),
              joinLines({linearBaseRecord(0x0800), dataRecord(0x4000, {1, 2, 3}), EOF_RECORD}));
    ASSERT_EQ(runTool({"convert", dir.file("app.bin"), "-o", dir.file("b.hex")}).exitCode, 0);
    EXPECT_EQ(fileText(dir.file("b.hex")), joinLines({dataRecord(0, {1, 2, 3}), EOF_RECORD}));
    dir.write("app.raw", ":not hex");
    ASSERT_EQ(runTool({"convert", dir.file("app.raw") + "@16", "-o", dir.file("c.hex")}).exitCode, 0);
    EXPECT_EQ(fileText(dir.file("c.hex")), joinLines({dataRecord(16, {':', 'n', 'o', 't', ' ', 'h', 'e', 'x'}), EOF_RECORD}));
    ASSERT_EQ(runTool({"convert", "--input-format", "bin", dir.file("app.raw"), "-o", dir.file("d.hex")}).exitCode, 0);
    EXPECT_EQ(fileText(dir.file("d.hex")), joinLines({dataRecord(0, {':', 'n', 'o', 't', ' ', 'h', 'e', 'x'}), EOF_RECORD}));

    const ProcessResult past = runTool({"convert", dir.file("app.bin") + "@0xFFFFFFFE", "-o", dir.file("e.hex")});
    EXPECT_EQ(past.exitCode, 1);
    EXPECT_EQ(past.err, dir.file("app.bin") +
                            ": binary input of 3 bytes at 0xFFFFFFFE would run past address 0xFFFFFFFF\n");
}

TEST_F(Convert, OneBinaryFileIsWrittenAsItIsReadWithTheSameOutputAndMessages)
{
    // One binary file, no edits, an output file: written as it is read.
    // Standard output, an edit or a second input read it into an image
    // first; the output and the messages are the same either way.
    std::string bytes(200000, '\0');
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 13 + i / 251);
    const std::string bin = dir.write("big.bin", bytes);
    for (const char* format : {"ihex", "srec", "bin"}) {
        SCOPED_TRACE(format);
        const ProcessResult streamed =
            runTool({"convert", bin + "@0x0800FFF0", "-O", format, "--record-size", "32", "-o", dir.file("s.out")});
        ASSERT_EQ(streamed.exitCode, 0) << streamed.err;
        EXPECT_EQ(streamed.out + streamed.err, "");
        const ProcessResult held =
            runTool({"convert", bin + "@0x0800FFF0", "-O", format, "--record-size", "32", "-o", "-"});
        ASSERT_EQ(held.exitCode, 0) << held.err;
        EXPECT_TRUE(fileText(dir.file("s.out")) == held.out);
        const ProcessResult edited = runTool({"convert", bin + "@0x0800FFF0", "-O", format, "--record-size", "32",
                                                "--offset", "0", "-o", dir.file("e.out")});
        ASSERT_EQ(edited.exitCode, 0) << edited.err;
        EXPECT_TRUE(fileText(dir.file("e.out")) == held.out);
    }
    const ProcessResult missing = runTool({"convert", dir.file("none.bin"), "-o", dir.file("n.hex")});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(missing.err, dir.file("none.bin") + ": cannot open the file: No such file or directory\n");
    const ProcessResult segment =
        runTool({"convert", bin + "@0x100000", "--addressing", "segment", "-o", dir.file("n.hex")});
    EXPECT_EQ(segment.exitCode, 1);
    EXPECT_EQ(segment.err, "hexblocks: " + dir.file("n.hex") +
                               ": segment addressing reaches only the first MiB, and the image goes up to 0x00130D3F\n");
    EXPECT_FALSE(fileExists(dir.file("n.hex")));
}

TEST_F(Convert, StandardInputIsReadOnceFromAPipe)
{
    const ProcessResult r = runToolWithInput({"convert", "-", "-o", "-", "-O", "srec"}, FIRMWARE);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, FIRMWARE_SRECORDS);
    // After "--", "-@ADDRESS" is binary standard input at ADDRESS.
    const ProcessResult binary = runToolWithInput({"convert", "-o", "-", "-O", "ihex", "--", "-@0x100"}, "\x05");
    EXPECT_EQ(binary.exitCode, 0) << binary.err;
    EXPECT_EQ(binary.out, joinLines({dataRecord(0x100, {5}), EOF_RECORD}));
}

TEST_F(Convert, SeveralInputsAreCombined)
{
    dir.write("boot.bin", std::string(4, '\x11'));
    const ProcessResult r =
        runTool({"convert", dir.file("boot.bin") + "@0x07FFFFFC", firmware, "-o", dir.file("all.hex")});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(fileText(dir.file("all.hex")),
              joinLines({linearBaseRecord(0x07FF), dataRecord(0xFFFC, {0x11, 0x11, 0x11, 0x11}),
                         linearBaseRecord(0x0800), dataRecord(0x0000, countingBytes(16, 0x41)),
                         dataRecord(0x0010, countingBytes(4, 0x51)), dataRecord(0x0100, {0xDE, 0xAD}),
                         hexRecord(0x05, 0, {8, 0, 1, 0x31}), EOF_RECORD}));
}

TEST_F(Convert, OverlappingInputsAreAnErrorNamingBoth)
{
    dir.write("patch.bin", std::string(1, '\0'));
    const std::string existing = dir.write("out.hex", "old");
    const ProcessResult r = runTool({"convert", firmware, dir.file("patch.bin") + "@0x08000101", "-o", existing});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "hexblocks: " + firmware + ":4 and " + dir.file("patch.bin") + "@0x08000101 both give data at 0x08000101\n");
    EXPECT_EQ(fileText(existing), "old");
}

TEST_F(Convert, DifferentStartAddressesAreAnError)
{
    const std::string other = dir.write("other.hex", joinLines({hexRecord(0x05, 0, {0, 0, 0, 1}), EOF_RECORD}));
    const ProcessResult r = runTool({"convert", firmware, other, "-o", dir.file("out.hex")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "hexblocks: " + firmware + " and " + other +
                         " give different start addresses (0x08000131 and 0x00000001)\n");
    EXPECT_FALSE(fileExists(dir.file("out.hex")));
    const std::string same = dir.write("same.hex", joinLines({hexRecord(0x05, 0, {8, 0, 1, 0x31}), EOF_RECORD}));
    EXPECT_EQ(runTool({"convert", firmware, same, "-o", dir.file("out.hex")}).exitCode, 0);
}

TEST_F(Convert, BadInputOfEachFormatNamesItsLineAndWritesNothing)
{
    const std::string existing = dir.write("out.hex", "old");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {dir.write("checksum.hex", joinLines({dataRecord(0, {1}), ":0100010002FD", EOF_RECORD})),
         ":2: checksum error"},
        {dir.write("short.hex", joinLines({dataRecord(0, {1}), ":0300000001FE"})),
         ":2: byte count 3 does not match the length of the line"},
        {dir.write("digit.hex", joinLines({":01000000G1FE"})), ":1: character that is not a hex digit"},
        {dir.write("checksum.srec", joinLines({"S0030000FC", "S1061000010203E4"})), ":2: checksum error"},
        {dir.write("short.srec", joinLines({"S0030000FC", "S1061000010203"})),
         ":2: byte count 6 does not match the length of the line"},
        {dir.write("count.srec", joinLines({srecordLine(1, 2, 0, {1}), "S5030002FA"})),
         ":2: record count 2 does not match the 1 data records before it"},
        {dir.write("digit.srec", joinLines({"S10410000X"})), ":1: character that is not a hex digit"},
        {dir.write("short.elf", std::string("\x7F" "ELF\x01\x01\x01\x00", 8) + std::string(30, '\0')),
         ": truncated ELF file: the header needs 52 bytes, the file has 38"},
    };
    for (const auto& c : cases) {
        const ProcessResult r = runTool({"convert", c.first, "-o", existing});
        EXPECT_EQ(r.exitCode, 1) << c.first;
        EXPECT_EQ(r.out, "") << c.first;
        EXPECT_EQ(r.err, c.first + c.second + "\n");
        EXPECT_EQ(fileText(existing), "old") << c.first;
    }
}

TEST_F(Convert, WarningsAreShownAndTheOutputWritten)
{
    const std::string noEnd = dir.write("noend.srec", srecordLine(1, 2, 0x10, {1}) + "\n");
    const ProcessResult r = runTool({"convert", noEnd, "-o", dir.file("out.hex")});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, noEnd + ": warning: end of file reached without a termination record (S7, S8 or S9)\n");
    EXPECT_EQ(fileText(dir.file("out.hex")), joinLines({dataRecord(0x10, {1}), EOF_RECORD}));
}

TEST_F(Convert, RecordSizeAddressingAddressSizeLineEndsAndFill)
{
    const std::string big = dir.write("big.hex", joinLines({dataRecord(0, countingBytes(40)), EOF_RECORD}));
    ASSERT_EQ(runTool({"convert", big, "-o", dir.file("r.hex"), "--record-size", "32"}).exitCode, 0);
    EXPECT_EQ(fileText(dir.file("r.hex")),
              joinLines({dataRecord(0, countingBytes(32)), dataRecord(32, countingBytes(8, 32)), EOF_RECORD}));

    const std::string low = dir.write("low.hex", joinLines({linearBaseRecord(1), dataRecord(0x2340, {0xAA}), EOF_RECORD}));
    ASSERT_EQ(runTool({"convert", low, "-o", dir.file("s.hex"), "--addressing", "segment"}).exitCode, 0);
    EXPECT_EQ(fileText(dir.file("s.hex")), joinLines({hexRecord(0x02, 0, {0x10, 0}), dataRecord(0x2340, {0xAA}), EOF_RECORD}));
    const ProcessResult tooHigh = runTool({"convert", firmware, "-o", dir.file("t.hex"), "--addressing", "segment"});
    EXPECT_EQ(tooHigh.exitCode, 1);
    EXPECT_EQ(tooHigh.err, "hexblocks: " + dir.file("t.hex") +
                               ": segment addressing reaches only the first MiB, and the image goes up to 0x08000101\n");
    EXPECT_FALSE(fileExists(dir.file("t.hex")));

    ASSERT_EQ(runTool({"convert", low, "-o", dir.file("a.srec"), "--address-size", "4"}).exitCode, 0);
    EXPECT_EQ(fileText(dir.file("a.srec")),
              joinLines({"S0030000FC", srecordLine(3, 4, 0x12340, {0xAA}), "S5030001FB", srecordLine(7, 4, 0, {})}));

    ASSERT_EQ(runTool({"convert", low, "-o", dir.file("crlf.hex"), "--crlf"}).exitCode, 0);
    EXPECT_EQ(fileText(dir.file("crlf.hex")), joinLines({linearBaseRecord(1), dataRecord(0x2340, {0xAA}), EOF_RECORD}, "\r\n"));

    const std::string gap = dir.write("gap.hex", joinLines({dataRecord(0, {1}), dataRecord(3, {2}), EOF_RECORD}));
    ASSERT_EQ(runTool({"convert", gap, "-o", dir.file("gap.bin"), "--fill", "0x5A"}).exitCode, 0);
    EXPECT_EQ(fileText(dir.file("gap.bin")), "\x01\x5A\x5A\x02");
}

TEST_F(Convert, AWriteFailingPartWayLeavesTheExistingOutputAsItWas)
{
    const std::string big = dir.write("big.hex", joinLines({dataRecord(0, countingBytes(200)), EOF_RECORD}));
    const std::string existing = dir.write("out.bin", "old");
    const ProcessResult r = runToolLimited({"convert", big, "-o", existing}, "", 150);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "hexblocks: " + existing + ": cannot write '" + existing + "': File too large\n");
    EXPECT_EQ(fileText(existing), "old");
    EXPECT_EQ(listFiles(dir.path()), std::vector<std::string>({"big.hex", "fw.hex", "out.bin"}));
}

TEST_F(Convert, InfoMapDumpAndBinReadEveryFormat)
{
    const std::string srec = dir.write("fw.s37", FIRMWARE_SRECORDS);
    const ProcessResult hexInfo = runTool({"info", firmware});
    const ProcessResult srecInfo = runTool({"info", srec});
    EXPECT_EQ(srecInfo.exitCode, 0) << srecInfo.err;
    EXPECT_EQ(srecInfo.out, hexInfo.out);
    EXPECT_EQ(runTool({"dump", srec}).out, runTool({"dump", firmware}).out);
    const ProcessResult map = runTool({"map", srec});
    EXPECT_EQ(map.exitCode, 0);
    EXPECT_EQ(map.out.substr(map.out.find('\n')), runTool({"map", firmware}).out.substr(map.out.find('\n')));

    dir.write("app.bin", "\x01\x02");
    const ProcessResult dump = runTool({"dump", dir.file("app.bin") + "@0x08004000"});
    EXPECT_EQ(dump.exitCode, 0) << dump.err;
    EXPECT_EQ(dump.out, "block 0: 0x08004000-0x08004001, 2 bytes\n"
                        "08004000: 0102                                     ..\n");
    const ProcessResult bin = runTool({"bin", srec, "-o", dir.path()});
    EXPECT_EQ(bin.exitCode, 0) << bin.err;
    EXPECT_EQ(readFileBytes(dir.file("fw_0x08000100.bin")), std::vector<uint8_t>({0xDE, 0xAD}));

    const ProcessResult named = runTool({"info", "--input-format", "bin", dir.file("app.bin")});
    EXPECT_EQ(named.exitCode, 0) << named.err;
    EXPECT_NE(named.out.find("0  0x00000000  0x00000001     2  0x0000  0x0000"), std::string::npos) << named.out;
    const ProcessResult strict = runTool({"info", "--strict", srec});
    EXPECT_EQ(strict.exitCode, 1);
    EXPECT_EQ(strict.err, srec + ": --strict reads only Intel HEX, and this is srec\n");
    const ProcessResult badSrec = runTool({"info", dir.write("bad.srec", "S1061000010203E4\n")});
    EXPECT_EQ(badSrec.exitCode, 1);
    EXPECT_EQ(badSrec.out, "");
    EXPECT_EQ(badSrec.err, dir.file("bad.srec") + ":1: checksum error\n");
}

TEST_F(Convert, Help)
{
    const ProcessResult r = runTool({"convert", "--help"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out.substr(0, r.out.find('\n')), "usage: hexblocks convert INPUT... -o OUTPUT [OPTIONS]");
    for (const std::string option : {"--output", "--output-format", "--input-format", "--record-size", "--addressing",
                                     "--address-size", "--crlf", "--fill"})
        EXPECT_NE(r.out.find(option), std::string::npos) << option;
    EXPECT_NE(runTool({"--help"}).out.find("  convert INPUT... -o OUTPUT"), std::string::npos);
}
