// Runs the hexblocks tool as a process and checks what it prints, the files
// it writes and its exit codes.
#include "support/diagnostics.h"
#include "support/hex_text.h"
#include "support/run_process.h"
#include "support/run_tool.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

bool startsWith(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

// A small image: two blocks under base 0x0800, one under 0x0801.
std::string smallImage()
{
    return joinLines({linearBaseRecord(0x0800), dataRecord(0x0000, countingBytes(20, 0x41)),
                      dataRecord(0x0100, {0xDE, 0xAD}), linearBaseRecord(0x0801),
                      dataRecord(0x0010, {0x00, 0x7F, 0x80, 0xFF}), EOF_RECORD});
}

const std::vector<std::string> COMMANDS = {"info", "map", "bin", "dump"};

class Hexblocks : public ::testing::Test {
protected:
    TempDir dir;
};

} // namespace

TEST_F(Hexblocks, VersionAndHelp)
{
    ProcessResult r = runTool({"--version"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, std::string("hexblocks ") + HEXBLOCKS_VERSION + "\n");
    EXPECT_EQ(r.err, "");

    for (const char* flag : {"--help", "-h", "help"}) {
        r = runTool({flag});
        EXPECT_EQ(r.exitCode, 0) << flag;
        EXPECT_TRUE(startsWith(r.out, "usage: hexblocks COMMAND FILE [OPTIONS]\n")) << r.out;
        for (const std::string& command : COMMANDS)
            EXPECT_NE(r.out.find("  " + command + " FILE"), std::string::npos) << command;
        EXPECT_EQ(r.err, "");
    }
}

TEST_F(Hexblocks, HelpOfEachCommand)
{
    for (const std::string& command : COMMANDS) {
        for (const std::vector<std::string>& args :
             {std::vector<std::string>{command, "--help"}, std::vector<std::string>{command, "-h"},
              std::vector<std::string>{"help", command}, std::vector<std::string>{command, "x.hex", "--help"}}) {
            const ProcessResult r = runTool(args);
            EXPECT_EQ(r.exitCode, 0) << command;
            EXPECT_TRUE(startsWith(r.out, "usage: hexblocks " + command + " FILE")) << r.out;
            EXPECT_EQ(r.err, "");
        }
    }
}

TEST_F(Hexblocks, UsageErrorsExitTwo)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, "hexblocks: missing command\n"},
        {{"frobnicate", "x.hex"}, "hexblocks: unknown command 'frobnicate'\n"},
        {{"--frobnicate"}, "hexblocks: unknown option '--frobnicate'\n"},
        {{"info"}, "hexblocks: missing FILE\n"},
        {{"info", "a.hex", "b.hex"}, "hexblocks: unexpected argument 'b.hex'\n"},
        {{"info", "a.hex", "--reverse"}, "hexblocks: unknown option '--reverse'\n"},
        {{"bin", "a.hex", "-x"}, "hexblocks: unknown option '-x'\n"},
        {{"bin", "a.hex", "-o"}, "hexblocks: option '-o' needs a value\n"},
        {{"dump", "a.hex", "--block"}, "hexblocks: option '--block' needs a value\n"},
        {{"dump", "a.hex", "--block", "two"}, "hexblocks: invalid block number 'two'\n"},
        {{"dump", "a.hex", "--block", "-1"}, "hexblocks: invalid block number '-1'\n"},
        {{"map", "a.hex", "--width", "5"}, "hexblocks: invalid width '5' (16 to 1000)\n"},
        {{"help", "nothing"}, "hexblocks: unknown command 'nothing'\n"},
    };
    for (const auto& c : cases) {
        const ProcessResult r = runTool(c.first);
        EXPECT_EQ(r.exitCode, 2) << c.second;
        EXPECT_EQ(r.out, "") << c.second;
        EXPECT_TRUE(startsWith(r.err, c.second)) << r.err;
        EXPECT_NE(r.err.find("usage: hexblocks"), std::string::npos) << r.err;
    }
}

TEST_F(Hexblocks, InfoOnTheSample)
{
    const ProcessResult r = runTool({"info", SAMPLE_HEX});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out,
              "#  start       end                   size  base    start16\n"
              "0  0x08000000  0x08000FFF    4096 (4 KiB)  0x0800  0x0000\n"
              "1  0x08004000  0x08006FFF  12288 (12 KiB)  0x0800  0x4000\n"
              "2  0x0801FC00  0x0801FC3F              64  0x0801  0xFC00\n"
              "total: 3 blocks, 16448 bytes (16.1 KiB), span 0x08000000-0x0801FC3F, 130112 bytes (127.1 KiB)\n");
}

TEST_F(Hexblocks, InfoJson)
{
    const std::string path = dir.write("small.hex", smallImage());
    const ProcessResult r = runTool({"info", "--json", path});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "{\n  \"file\": \"" + path +
                         "\",\n  \"mode\": \"normal\",\n  \"format\": \"full\",\n  \"start_address\": null,\n"
                         "  \"blocks\": [\n"
                         "    {\"index\": 0, \"start\": 134217728, \"end\": 134217747, \"size\": 20, "
                         "\"linear_base\": 2048, \"start_address\": 0},\n"
                         "    {\"index\": 1, \"start\": 134217984, \"end\": 134217985, \"size\": 2, "
                         "\"linear_base\": 2048, \"start_address\": 256},\n"
                         "    {\"index\": 2, \"start\": 134283280, \"end\": 134283283, \"size\": 4, "
                         "\"linear_base\": 2049, \"start_address\": 16}\n"
                         "  ],\n"
                         "  \"total\": {\"blocks\": 3, \"bytes\": 26, \"span_start\": 134217728, "
                         "\"span_end\": 134283283, \"span_bytes\": 65556}\n}\n");
}

TEST_F(Hexblocks, InfoJsonWithoutBlocks)
{
    const std::string path = dir.write("empty.hex", ":00000001FF\n");
    const ProcessResult r = runTool({"info", path, "-j"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "{\n  \"file\": \"" + path +
                         "\",\n  \"mode\": \"normal\",\n  \"format\": \"full\",\n  \"start_address\": null,\n"
                         "  \"blocks\": [],\n"
                         "  \"total\": {\"blocks\": 0, \"bytes\": 0, \"span_start\": null, \"span_end\": null, "
                         "\"span_bytes\": 0}\n}\n");
}

TEST_F(Hexblocks, InfoOneBlock)
{
    const std::string path = dir.write("one.hex", joinLines({linearBaseRecord(0x0800), dataRecord(0x0000, {1}),
                                                             dataRecord(0x0010, {2}), EOF_RECORD}));
    const ProcessResult r = runTool({"info", path, "--one-block"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out,
              "#  start       end         size  base    start16\n"
              "0  0x08000000  0x08000010    17  0x0800  0x0000\n"
              "total: 1 block, 17 bytes, span 0x08000000-0x08000010, 17 bytes\n");
}

TEST_F(Hexblocks, MapOnTheSample)
{
    const ProcessResult r = runTool({"map", SAMPLE_HEX});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, std::string(SAMPLE_HEX) +
                         ": 3 blocks, 16.1 KiB of data in 127.1 KiB\n"
                         "\n"
                         "0x08000000                                            0x0801FC3F\n"
                         "AAA.......BBBBBB...............................................C\n"
                         "\n"
                         "  A  0x08000000-0x08000FFF       4 KiB  block 0\n"
                         "     0x08001000-0x08003FFF      12 KiB  gap\n"
                         "  B  0x08004000-0x08006FFF      12 KiB  block 1\n"
                         "     0x08007000-0x0801FBFF      99 KiB  gap\n"
                         "  C  0x0801FC00-0x0801FC3F        64 B  block 2\n");
}

TEST_F(Hexblocks, BinWritesOneFilePerBlock)
{
    const std::string path = dir.write("app.hex", smallImage());
    const ProcessResult r = runTool({"bin", path, "-o", dir.path()});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, dir.path() + "/app_0x08000000.bin  20 bytes\n" + dir.path() +
                         "/app_0x08000100.bin  2 bytes\n" + dir.path() + "/app_0x08010010.bin  4 bytes\n");
    EXPECT_EQ(listFiles(dir.path()), std::vector<std::string>({"app.hex", "app_0x08000000.bin",
                                                             "app_0x08000100.bin", "app_0x08010010.bin"}));
    EXPECT_EQ(readFileBytes(dir.file("app_0x08000000.bin")), countingBytes(20, 0x41));
    EXPECT_EQ(readFileBytes(dir.file("app_0x08000100.bin")), std::vector<uint8_t>({0xDE, 0xAD}));
    EXPECT_EQ(readFileBytes(dir.file("app_0x08010010.bin")), std::vector<uint8_t>({0x00, 0x7F, 0x80, 0xFF}));
}

TEST_F(Hexblocks, BinFilesGetTheModeOfANewFile)
{
    const std::string path = dir.write("app.hex", smallImage());
    const mode_t mask = umask(022);
    const ProcessResult r = runTool({"bin", path, "-o", dir.path()});
    umask(mask);
    ASSERT_EQ(r.exitCode, 0);
    struct stat info;
    ASSERT_EQ(stat(dir.file("app_0x08000000.bin").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644u);
}

TEST_F(Hexblocks, BinIntoTheCurrentDirectoryByDefault)
{
    dir.write("fw.ihex", smallImage());
    const ProcessResult r = runTool({"bin", "fw.ihex"}, dir.path());
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_TRUE(startsWith(r.out, "./fw_0x08000000.bin  20 bytes\n")) << r.out;
    EXPECT_EQ(readFileBytes(dir.file("fw_0x08000000.bin")), countingBytes(20, 0x41));
}

TEST_F(Hexblocks, BinReverse)
{
    const std::string path = dir.write("app.hex", smallImage());
    const ProcessResult r = runTool({"bin", "--reverse", path, "--output", dir.path()});
    EXPECT_EQ(r.exitCode, 0);
    std::vector<uint8_t> reversed = countingBytes(20, 0x41);
    std::reverse(reversed.begin(), reversed.end());
    EXPECT_EQ(readFileBytes(dir.file("app_0x08000000.bin")), reversed);
    EXPECT_EQ(readFileBytes(dir.file("app_0x08010010.bin")), std::vector<uint8_t>({0xFF, 0x80, 0x7F, 0x00}));
}

TEST_F(Hexblocks, BinOneBlock)
{
    const std::string path = dir.write("one.hex", joinLines({linearBaseRecord(0x0800), dataRecord(0x0000, {1, 2}),
                                                             dataRecord(0x0004, {3}), EOF_RECORD}));
    const ProcessResult r = runTool({"bin", path, "-1", "-o", dir.path() + "/"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, dir.path() + "/one_0x08000000.bin  5 bytes\n");
    EXPECT_EQ(readFileBytes(dir.file("one_0x08000000.bin")), std::vector<uint8_t>({1, 2, 0xFF, 0xFF, 3}));
}

TEST_F(Hexblocks, BinIntoAMissingDirectoryFailsAndLeavesNothing)
{
    const std::string path = dir.write("app.hex", smallImage());
    // A name ending in '/' is a directory; without it, a file, which a
    // file of three blocks cannot go into.
    const std::string out = dir.file("missing");
    ProcessResult r = runTool({"bin", path, "-o", out + "/"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "hexblocks: cannot create '" + out + "/app_0x08000000.bin': No such file or directory\n");
    r = runTool({"bin", path, "-o", out});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "hexblocks: " + path + " has 3 blocks: give -o a directory for one file per block, or use "
                                            "--one-block for one file\n");
    EXPECT_EQ(listFiles(dir.path()), std::vector<std::string>({"app.hex"}));
}

TEST_F(Hexblocks, BinIntoAnUnwritableDirectoryFails)
{
    const std::string path = dir.write("app.hex", smallImage());
    // Not writable even for root.
    const ProcessResult r = runTool({"bin", path, "-o", "/proc"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_TRUE(startsWith(r.err, "hexblocks: cannot create '/proc/app_0x08000000.bin': ")) << r.err;

    const std::string notADir = dir.write("plain-file", "x");
    const ProcessResult r2 = runTool({"bin", path, "-o", notADir + "/"});
    EXPECT_EQ(r2.exitCode, 1);
    EXPECT_EQ(r2.err, "hexblocks: cannot create '" + notADir + "/app_0x08000000.bin': Not a directory\n");
}

TEST_F(Hexblocks, FailedWriteLeavesNoPartialFile)
{
    std::vector<std::string> lines;
    for (uint16_t a = 0; a < 0x1000; a += 16)
        lines.push_back(dataRecord(a, countingBytes(16, static_cast<uint8_t>(a))));
    lines.push_back(EOF_RECORD);
    const std::string path = dir.write("big.hex", joinLines(lines));
    const std::string out = dir.file("out");
    ASSERT_EQ(runProcess("/bin/mkdir", {out}).exitCode, 0);
    // Files may grow to 1000 bytes only: the 4096-byte block fails part way.
    const ProcessResult r = runToolLimited({"bin", path, "-o", out}, "", 1000);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "hexblocks: cannot write '" + out + "/big_0x00000000.bin': File too large\n");
    EXPECT_TRUE(listFiles(out).empty());
}

TEST_F(Hexblocks, DumpInTheStyleOfXxd)
{
    const std::string path = dir.write("small.hex", smallImage());
    const ProcessResult r = runTool({"dump", path});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out,
              "block 0: 0x08000000-0x08000013, 20 bytes\n"
              "08000000: 4142 4344 4546 4748 494a 4b4c 4d4e 4f50  ABCDEFGHIJKLMNOP\n"
              "08000010: 5152 5354                                QRST\n"
              "\n"
              "block 1: 0x08000100-0x08000101, 2 bytes\n"
              "08000100: dead                                     ..\n"
              "\n"
              "block 2: 0x08010010-0x08010013, 4 bytes\n"
              "08010010: 007f 80ff                                ....\n");
}

TEST_F(Hexblocks, DumpOneBlock)
{
    const std::string path = dir.write("small.hex", smallImage());
    const ProcessResult r = runTool({"dump", path, "--block", "1"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "block 1: 0x08000100-0x08000101, 2 bytes\n"
                     "08000100: dead                                     ..\n");

    const ProcessResult missing = runTool({"dump", path, "-b", "3"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(missing.err, "hexblocks: no block 3 in '" + path + "' (it has 3 blocks)\n");
}

TEST_F(Hexblocks, BadChecksumInEveryCommand)
{
    const std::string path =
        dir.write("bad.hex", joinLines({dataRecord(0, {1}), ":0300300002337A1F", EOF_RECORD}));
    for (const std::string& command : COMMANDS) {
        const ProcessResult r = runTool({command, path, command == "bin" ? "-o" + dir.path() : "-1"});
        EXPECT_EQ(r.exitCode, 1) << command;
        EXPECT_EQ(r.out, "") << command;
        EXPECT_EQ(r.err, path + ":2: checksum error\n") << command;
    }
    EXPECT_EQ(listFiles(dir.path()), std::vector<std::string>({"bad.hex"}));
}

TEST_F(Hexblocks, UnsupportedTypeInEveryCommand)
{
    const std::string record = hexRecord(0x0A, 0, {0x01, 0x02});
    const std::string path = dir.write("ten.hex", joinLines({dataRecord(0, {1}), record, EOF_RECORD}));
    for (const std::string& command : COMMANDS) {
        const ProcessResult r = runTool({command, path}, dir.path());
        EXPECT_EQ(r.exitCode, 1) << command;
        EXPECT_EQ(r.out, "") << command;
        EXPECT_EQ(r.err, path + ":2: unsupported record type 0A\n") << command;
    }
}

TEST_F(Hexblocks, StrictRejectsStartAddressesInEveryCommand)
{
    const std::string start = hexRecord(0x05, 0, {0x08, 0x00, 0x01, 0x01});
    const std::string path = dir.write("start.hex", joinLines({dataRecord(0, {1}), start, EOF_RECORD}));
    for (const std::string& command : COMMANDS) {
        const ProcessResult r = runTool({command, "--strict", path}, dir.path());
        EXPECT_EQ(r.exitCode, 1) << command;
        EXPECT_EQ(r.out, "") << command;
        EXPECT_EQ(r.err, start + "\n#ERROR: unsupported record type found (5)\n") << command;
    }
}

TEST_F(Hexblocks, EveryCommandReadsTheWholeFormatByDefault)
{
    // A start address and records out of order, as most toolchains write.
    const std::string path =
        dir.write("app.hex", joinLines({linearBaseRecord(0x0800), dataRecord(0x0010, {3, 4}), dataRecord(0x0000, {1, 2}),
                                        hexRecord(0x05, 0, {0x08, 0x00, 0x00, 0x11}), EOF_RECORD}));
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"info", path}, std::vector<std::string>{"info", "-F", path},
          std::vector<std::string>{"info", "--full-format", path}}) {
        const ProcessResult r = runTool(args);
        EXPECT_EQ(r.exitCode, 0);
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.out, "#  start       end         size  base    start16\n"
                         "0  0x08000000  0x08000001     2  0x0800  0x0000\n"
                         "1  0x08000010  0x08000011     2  0x0800  0x0010\n"
                         "total: 2 blocks, 4 bytes, span 0x08000000-0x08000011, 18 bytes\n"
                         "start address: 0x08000011 (linear, type 05)\n");
    }
    for (const char* command : {"map", "dump"}) {
        const ProcessResult r = runTool({command, path});
        EXPECT_EQ(r.exitCode, 0) << command;
        EXPECT_EQ(r.err, "") << command;
    }
    const ProcessResult bin = runTool({"bin", path, "-o", dir.path()});
    EXPECT_EQ(bin.exitCode, 0);
    EXPECT_EQ(readFileBytes(dir.file("app_0x08000000.bin")), std::vector<uint8_t>({1, 2}));
    EXPECT_EQ(readFileBytes(dir.file("app_0x08000010.bin")), std::vector<uint8_t>({3, 4}));
}

TEST_F(Hexblocks, StrictKeepsBlocksWithinALinearBase)
{
    const std::string path = dir.write("cross.hex", joinLines({linearBaseRecord(0x0800), dataRecord(0xFFFE, {1, 2}),
                                                               linearBaseRecord(0x0801), dataRecord(0, {3}), EOF_RECORD}));
    const ProcessResult strict = runTool({"info", "--strict", path});
    EXPECT_EQ(strict.exitCode, 0);
    EXPECT_EQ(strict.out, "#  start       end         size  base    start16\n"
                          "0  0x0800FFFE  0x0800FFFF     2  0x0800  0xFFFE\n"
                          "1  0x08010000  0x08010000     1  0x0801  0x0000\n"
                          "total: 2 blocks, 3 bytes, span 0x0800FFFE-0x08010000, 3 bytes\n");
    const ProcessResult full = runTool({"info", path});
    EXPECT_EQ(full.exitCode, 0);
    EXPECT_EQ(full.out, "#  start       end         size  base    start16\n"
                        "0  0x0800FFFE  0x08010000     3  0x0800  0xFFFE\n"
                        "total: 1 block, 3 bytes, span 0x0800FFFE-0x08010000, 3 bytes\n");
    const ProcessResult json = runTool({"info", "--strict", "--json", path});
    EXPECT_NE(json.out.find("\"format\": \"strict\",\n  \"start_address\": null,\n"), std::string::npos) << json.out;
}

TEST_F(Hexblocks, MissingFileInEveryCommand)
{
    const std::string path = dir.file("nowhere.hex");
    for (const std::string& command : COMMANDS) {
        const ProcessResult r = runTool({command, path}, dir.path());
        EXPECT_EQ(r.exitCode, 1) << command;
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, path + ": cannot open the file: No such file or directory\n");
    }
    EXPECT_TRUE(listFiles(dir.path()).empty());
}

// An input that opens but cannot be read (a directory) fails every command
// with one line, "FILE: reason", and the command's exit code for an input it
// cannot read: 1, or 2 for verify and diff, whose 1 means "different". With
// --strict the exact reader's diagnostics for a read that yields no line
// appear once, and nothing else.
TEST_F(Hexblocks, AnInputThatCannotBeReadFailsWithOneLineInEveryCommand)
{
    const std::string unreadable = dir.path() + "/folder";
    ASSERT_EQ(mkdir(unreadable.c_str(), 0755), 0);
    const std::string dump = dir.write("dump.bin", std::string(16, '\xFF'));
    const std::string line = unreadable + ": cannot read the file: Is a directory\n";
    const std::vector<std::pair<std::vector<std::string>, int>> runs = {
        {{"info", unreadable}, 1},
        {{"map", unreadable}, 1},
        {{"bin", unreadable, "-o", dir.path()}, 1},
        {{"dump", unreadable}, 1},
        {{"convert", unreadable, "-o", dir.file("out.hex")}, 1},
        {{"crc", unreadable}, 1},
        {{"plan", unreadable, "--sectors", "4x1K"}, 1},
        {{"verify", unreadable, dump, "--at", "0"}, 2},
        {{"verify", SAMPLE_HEX, unreadable, "--at", "0"}, 2},
        {{"diff", unreadable, SAMPLE_HEX}, 2},
        {{"diff", SAMPLE_HEX, unreadable}, 2}};
    for (const auto& run : runs) {
        const ProcessResult r = runTool(run.first);
        EXPECT_EQ(r.exitCode, run.second) << run.first[0];
        EXPECT_EQ(r.out, "") << run.first[0];
        EXPECT_EQ(r.err, line) << run.first[0];
    }
    for (const std::string& command : COMMANDS) {
        std::vector<std::string> args = {command, "--strict", unreadable};
        if (command == "bin")
            args.insert(args.end(), {"-o", dir.path()});
        const ProcessResult r = runTool(args);
        EXPECT_EQ(r.exitCode, 1) << command;
        EXPECT_EQ(r.out, "") << command;
        EXPECT_EQ(r.err, SIGNATURE + ": hexline to short\n#ERROR: corrupt line data in line \"\"\n") << command;
    }
    EXPECT_EQ(listFiles(dir.path()), std::vector<std::string>({"dump.bin", "folder"}));
}

// An input of no format the tool can tell gives the same line in every
// command, read by the one path every command reads through.
TEST_F(Hexblocks, AnInputOfNoKnownFormatGivesOneLineInEveryCommand)
{
    const std::string text = dir.write("notes.txt", "hello\n");
    const std::string line = text + ": not Intel HEX, S-records, ELF, UF2, TI-TXT, Verilog memory file or Intel MIF (the format of binary input must be given)\n";
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"info", text}, {"map", text}, {"dump", text}, {"crc", text},
          {"convert", text, "-o", dir.file("out.hex")}, {"plan", text, "--sectors", "4x1K"}}) {
        const ProcessResult r = runTool(args);
        EXPECT_EQ(r.exitCode, 1) << args[0];
        EXPECT_EQ(r.out, "") << args[0];
        EXPECT_EQ(r.err, line) << args[0];
    }
}

// With --strict the exact reader prints the record parser's shape
// diagnostics on standard output; the tool keeps standard output for its
// own output and sends them to standard error, in the order printed, and
// adds no line that repeats them.
TEST_F(Hexblocks, TruncatedFileShowsTheParserDiagnosticsOnStandardError)
{
    const std::string path = dir.write("cut.hex", dataRecord(0, {1}) + "\n");
    for (const std::vector<std::string>& args : {std::vector<std::string>{"info", "--strict", path},
                                                 std::vector<std::string>{"info", "--strict", "--json", path}}) {
        const ProcessResult r = runTool(args);
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, SIGNATURE + ": hexline to short\n#ERROR: corrupt line data in line \"\"\n");
    }
}

TEST_F(Hexblocks, ExceptionsFromTheLibraryBecomeAnErrorLine)
{
    const std::string shortLine = dir.write("short.hex", joinLines({":05003000023", EOF_RECORD}));
    ProcessResult r = runTool({"info", "--strict", shortLine});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, shortLine + ":1: the record's data runs past the end of the line\n");

    const std::string minus = dir.write("minus.hex", joinLines({":-10000000000", EOF_RECORD}));
    r = runTool({"info", "--strict", minus});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, minus + ":1: impossible byte count\n");

    const std::string wrap = dir.write("wrap.hex", joinLines({dataRecord(0xFFF0, countingBytes(16)), linearBaseRecord(1),
                                                              dataRecord(0x0000, {1}), EOF_RECORD}));
    r = runTool({"bin", "--strict", wrap, "--one-block", "-o", dir.path()});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, wrap + ": the one-block image size wraps around (records of several linear bases)\n");
}

TEST_F(Hexblocks, OneBlockBinEqualsObjcopy)
{
    // Images under a single linear base, with gaps, overlap-free.
    const std::vector<std::pair<std::string, std::string>> images = {
        {"flat.hex", joinLines({dataRecord(0x0000, countingBytes(16)), dataRecord(0x0040, countingBytes(200, 9)),
                                dataRecord(0x0300, {0xAA}), EOF_RECORD})},
        {"based.hex", joinLines({linearBaseRecord(0x0800), dataRecord(0x4000, countingBytes(255, 1)),
                                 dataRecord(0x40FF, countingBytes(3)), dataRecord(0x8000, {1, 2, 3, 4}), EOF_RECORD},
                                "\r\n")},
        {"shuffled.hex", joinLines({linearBaseRecord(0x0002), dataRecord(0x0100, {5, 6}), dataRecord(0x0000, {1}),
                                    dataRecord(0xFFF0, countingBytes(16)), EOF_RECORD})},
    };
    for (const auto& image : images) {
        const std::string path = dir.write(image.first, image.second);
        const std::string objcopyOut = dir.file(image.first + ".objcopy.bin");
        const ProcessResult oc = runProcess(OBJCOPY_PATH, {"-I", "ihex", "-O", "binary", "--gap-fill", "0xFF", path, objcopyOut});
        ASSERT_EQ(oc.exitCode, 0) << "objcopy: " << oc.err;

        const std::string outDir = dir.file(image.first + ".out");
        ASSERT_EQ(runProcess("/bin/mkdir", {outDir}).exitCode, 0);
        const ProcessResult r = runTool({"bin", "--one-block", path, "-o", outDir});
        ASSERT_EQ(r.exitCode, 0) << r.err;
        const std::vector<std::string> written = listFiles(outDir);
        ASSERT_EQ(written.size(), 1u);
        const std::vector<uint8_t> ours = readFileBytes(outDir + "/" + written[0]);
        EXPECT_FALSE(ours.empty());
        EXPECT_EQ(ours, readFileBytes(objcopyOut)) << image.first;
    }
}

TEST_F(Hexblocks, FullFormatReadsSegmentAndStartRecords)
{
    // Segment 0x1000 (base 0x10000), data at 0xFFFE wrapping to 0x10000, a
    // start segment address, lower-case digits, a blank line, CR LF.
    const std::string path = dir.write(
        "avr.hex", joinLines({hexRecord(0x02, 0, {0x10, 0x00}), "", dataRecord(0xFC00, {1, 2, 3}),
                              "  " + hexRecord(0x03, 0, {0x10, 0x00, 0xFC, 0x00}) + "  ", ":00000001ff"},
                             "\r\n"));
    const ProcessResult strict = runTool({"info", "--strict", path});
    EXPECT_EQ(strict.exitCode, 1);
    EXPECT_EQ(strict.out, "");
    EXPECT_EQ(strict.err, hexRecord(0x02, 0, {0x10, 0x00}) + "\n#ERROR: unsupported record type found (2)\n");

    const ProcessResult r = runTool({"info", "--full-format", path});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, "#  start       end         size  base    start16\n"
                     "0  0x0001FC00  0x0001FC02     3  0x0001  0xFC00\n"
                     "total: 1 block, 3 bytes, span 0x0001FC00-0x0001FC02, 3 bytes\n"
                     "start address: 1000:FC00 = 0x0001FC00 (segment CS:IP, type 03)\n");

    const ProcessResult json = runTool({"info", "-F", "-j", path});
    EXPECT_EQ(json.exitCode, 0);
    EXPECT_NE(json.out.find("\"format\": \"full\",\n  \"start_address\": {\"type\": 3, \"value\": 268499968},\n"),
              std::string::npos)
        << json.out;
}

TEST_F(Hexblocks, FullFormatBlocksCrossLinearBases)
{
    const std::string path = dir.write(
        "cross.hex", joinLines({linearBaseRecord(0x0800), dataRecord(0xFFF0, countingBytes(16)), linearBaseRecord(0x0801),
                                dataRecord(0x0000, countingBytes(16, 16)), hexRecord(0x05, 0, {0x08, 0x00, 0x01, 0x01}),
                                EOF_RECORD}));
    const ProcessResult r = runTool({"info", path, "--full-format"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "#  start       end         size  base    start16\n"
                     "0  0x0800FFF0  0x0801000F    32  0x0800  0xFFF0\n"
                     "total: 1 block, 32 bytes, span 0x0800FFF0-0x0801000F, 32 bytes\n"
                     "start address: 0x08000101 (linear, type 05)\n");
    const ProcessResult bin = runTool({"bin", path, "-F", "-o", dir.path()});
    EXPECT_EQ(bin.exitCode, 0);
    EXPECT_EQ(readFileBytes(dir.file("cross_0x0800FFF0.bin")), countingBytes(32));
    const ProcessResult map = runTool({"map", "-F", path});
    EXPECT_EQ(map.exitCode, 0);
    EXPECT_NE(map.out.find("  A  0x0800FFF0-0x0801000F        32 B  block 0\n"), std::string::npos) << map.out;
    const ProcessResult dump = runTool({"dump", "-F", path});
    EXPECT_EQ(dump.exitCode, 0);
    EXPECT_NE(dump.out.find("08010000: 1011 1213"), std::string::npos) << dump.out;
}

TEST_F(Hexblocks, FullFormatErrorNamesTheLine)
{
    const std::string path =
        dir.write("bad.hex", joinLines({dataRecord(0, {1}), "", dataRecord(1, {2}), ":0300300002337A1F", EOF_RECORD}));
    const ProcessResult r = runTool({"info", "--full-format", path});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, path + ":4: checksum error\n");
}

TEST_F(Hexblocks, OneBlockFullFormatEqualsObjcopyAcrossLinearBases)
{
    // objcopy writes types 02 (via --change-addresses below 1 MiB) or 04, and 03 or 05.
    const std::string binPath = dir.file("data.bin");
    std::vector<uint8_t> data(70000);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<uint8_t>(i * 31 + 7);
    {
        FILE* f = std::fopen(binPath.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        std::fwrite(data.data(), 1, data.size(), f);
        std::fclose(f);
    }
    struct Case {
        std::string name;
        std::vector<std::string> objcopyArgs;
        uint8_t startType;
    };
    const std::vector<Case> cases = {
        {"linear.hex", {"--change-addresses", "0x0800F000", "--set-start", "0x0800F101"}, 5},
        {"segment.hex", {"--change-addresses", "0x1F000", "--set-start", "0x1F123"}, 3},
    };
    for (const Case& c : cases) {
        const std::string hex = dir.file(c.name);
        std::vector<std::string> args = {"-I", "binary", "-O", "ihex"};
        args.insert(args.end(), c.objcopyArgs.begin(), c.objcopyArgs.end());
        args.push_back(binPath);
        args.push_back(hex);
        const ProcessResult made = runProcess(OBJCOPY_PATH, args);
        ASSERT_EQ(made.exitCode, 0) << made.err;
        const std::vector<uint8_t> hexBytes = readFileBytes(hex);
        const std::string text(hexBytes.begin(), hexBytes.end());
        EXPECT_NE(text.find(c.startType == 5 ? ":04000005" : ":04000003"), std::string::npos) << c.name;
        if (c.startType == 3) {
            EXPECT_NE(text.find(":02000002"), std::string::npos) << "objcopy wrote no segment record";
        }

        const std::string out = dir.file(c.name + ".out");
        ASSERT_EQ(runProcess("/bin/mkdir", {out}).exitCode, 0);
        const ProcessResult r = runTool({"bin", "--full-format", "--one-block", hex, "-o", out});
        ASSERT_EQ(r.exitCode, 0) << r.err;
        const std::vector<std::string> files = listFiles(out);
        ASSERT_EQ(files.size(), 1u);
        EXPECT_EQ(readFileBytes(out + "/" + files[0]), data) << c.name;

        const std::string back = dir.file(c.name + ".objcopy.bin");
        ASSERT_EQ(runProcess(OBJCOPY_PATH, {"-I", "ihex", "-O", "binary", "--gap-fill", "0xFF", hex, back}).exitCode, 0);
        EXPECT_EQ(readFileBytes(back), data) << c.name;
    }
}

TEST_F(Hexblocks, FullFormatJsonWithoutStartAddress)
{
    const std::string path = dir.write("small.hex", smallImage());
    const ProcessResult r = runTool({"info", "--json", "--full-format", path});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.out.find("  \"mode\": \"normal\",\n  \"format\": \"full\",\n  \"start_address\": null,\n  \"blocks\": ["),
              std::string::npos)
        << r.out;
    // load() never gives a start address.
    const ProcessResult strict = runTool({"info", "--json", "--strict", path});
    EXPECT_NE(strict.out.find("  \"mode\": \"normal\",\n  \"format\": \"strict\",\n  \"start_address\": null,\n"),
              std::string::npos)
        << strict.out;
}
