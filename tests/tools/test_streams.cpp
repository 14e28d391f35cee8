// hexblocks and the standard streams: standard output carries only what a
// command produces (never a loader's diagnostic, and with --json valid JSON
// or nothing), "-" reads standard input through a pipe for every command,
// and bin writes one file, or standard output, when -o names no directory.
#include "formats.h"
#include "memory_image.h"

#include "support/hex_text.h"
#include "support/image_view.h"
#include "support/run_tool.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {

class Streams : public ::testing::Test {
protected:
    TempDir dir;
    const std::string sample = SAMPLE_HEX;
    const std::string sectors = "0x08000000:4x16K,1x64K,7x128K";

    // Every command, reading path (and, for diff, the sample beside it), with
    // the options that make it run; {"--json"} variants where there are.
    std::vector<std::vector<std::string>> everyCommand(const std::string& path)
    {
        const std::string dump = dir.write("dump.bin", std::string(16, '\xFF'));
        return {{"info", path},
                {"info", "--json", path},
                {"info", "--strict", "--json", path},
                {"map", path},
                {"bin", path, "-o", dir.path()},
                {"bin", path, "--one-block", "-o", dir.file("one.bin")},
                {"bin", path, "--one-block", "-o", "-"},
                {"dump", path},
                {"convert", path, "-o", dir.file("out.hex")},
                {"convert", path, "-o", "-", "-O", "ihex"},
                {"crc", path},
                {"crc", path, "--json"},
                {"plan", path, "--sectors", sectors},
                {"plan", path, "--sectors", sectors, "--json"},
                {"verify", path, dump, "--at", "0x08000000"},
                {"verify", path, dump, "--at", "0x08000000", "--json"},
                {"diff", path, sample},
                {"diff", sample, path, "--json"}};
    }

    // Python's json module reads text, which holds one JSON value.
    void expectJson(const std::string& text, const std::string& what)
    {
        const ProcessResult r =
            runProcessWithInput(PYTHON3_PATH, {"-c", "import json, sys\njson.load(sys.stdin)\nprint('ok')"}, text);
        EXPECT_EQ(r.out, "ok\n") << what << ":\n" << text << r.err;
    }
};

} // namespace

TEST_F(Streams, BadInputLeavesStandardOutputEmptyInEveryCommand)
{
    // Inputs the loaders print something about, on standard output too.
    const std::vector<std::string> bad = {
        dir.write("short.hex", dataRecord(0, {1}) + "\n:00\n" + EOF_RECORD + "\n"),
        dir.write("type.hex", joinLines({dataRecord(0, {1}), hexRecord(0x0A, 0, {0x01, 0x02}), EOF_RECORD})),
        dir.write("checksum.hex", joinLines({dataRecord(0, {1}), ":0300300002337A1F", EOF_RECORD})),
        dir.write("text.txt", "hello\n"),
        dir.file("missing.hex")};
    for (const std::string& path : bad) {
        for (const std::vector<std::string>& args : everyCommand(path)) {
            std::string line;
            for (const std::string& a : args)
                line += a + " ";
            const ProcessResult r = runTool(args);
            EXPECT_NE(r.exitCode, 0) << line;
            EXPECT_EQ(r.out, "") << line;
            EXPECT_NE(r.err, "") << line;
        }
    }
    // The record parser's shape diagnostic is still printed, on standard error.
    const ProcessResult r = runTool({"info", "--strict", "--json", bad[0]});
    EXPECT_NE(r.err.find("hexline to short"), std::string::npos) << r.err;
}

TEST_F(Streams, JsonIsValidOnGoodInput)
{
    for (const std::vector<std::string>& args : everyCommand(sample)) {
        if (std::find(args.begin(), args.end(), "--json") == args.end())
            continue;
        const ProcessResult r = runTool(args);
        EXPECT_TRUE(r.exitCode == 0 || args[0] == "verify") << args[0] << ": " << r.err;
        expectJson(r.out, args[0]);
    }
}

TEST_F(Streams, EveryCommandReadsStandardInput)
{
    const std::string text = readFileText(sample);
    MemoryImage image;
    ASSERT_TRUE(readFile(image, sample.c_str()));
    std::ostringstream srecord;
    ASSERT_TRUE(writeStream(image, srecord, [] {
        write_options_t options;
        options.format = file_format_t::SRECORD;
        return options;
    }()));
    const std::string dump = dir.file("flat.bin");
    ASSERT_EQ(runTool({"convert", sample, "-o", dump}).exitCode, 0);

    // The same output from the file and from a pipe.
    const std::vector<std::vector<std::string>> same = {
        {"info"}, {"info", "--strict"}, {"info", "--json", "--strict"}, {"dump"}, {"dump", "--block", "1"},
        {"crc"}, {"crc", "--algorithm", "stm32"}, {"plan", "--sectors", sectors}, {"bin", "--one-block", "-o", "-"}};
    for (const std::vector<std::string>& args : same) {
        std::vector<std::string> fromFile = args, fromPipe = args;
        fromFile.insert(fromFile.begin() + 1, sample);
        fromPipe.insert(fromPipe.begin() + 1, "-");
        const ProcessResult file = runTool(fromFile);
        const ProcessResult pipe = runToolWithInput(fromPipe, text);
        EXPECT_EQ(pipe.exitCode, 0) << args[0] << ": " << pipe.err;
        std::string expected = file.out;
        if (expected.compare(0, 10, "{\n  \"file\"") == 0) // info --json names the file
            expected.replace(expected.find(sample), sample.size(), "-");
        EXPECT_EQ(pipe.out, expected) << args[0];
        EXPECT_EQ(pipe.err, "") << args[0];
        if (args[0] != "info" || args.size() > 1)
            continue;
        // S-records on standard input give the same table.
        const ProcessResult srec = runToolWithInput(fromPipe, srecord.str());
        EXPECT_EQ(srec.out, file.out);
    }
    ProcessResult r = runToolWithInput({"map", "-"}, text);
    EXPECT_EQ(r.out.substr(0, r.out.find('\n')), "-: 3 blocks, 16.1 KiB of data in 127.1 KiB");
    r = runToolWithInput({"verify", "-", dump, "--at", "0x08000000"}, text);
    EXPECT_EQ(r.out, "16448 bytes compared, 0 mismatches, 0 not covered: OK\n");
    r = runToolWithInput({"diff", sample, "-"}, srecord.str());
    EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
    r = runToolWithInput({"bin", "-", "-o", dir.path()}, text);
    EXPECT_EQ(r.out, dir.file("stdin_0x08000000.bin") + "  4096 bytes (4 KiB)\n" + dir.file("stdin_0x08004000.bin") +
                         "  12288 bytes (12 KiB)\n" + dir.file("stdin_0x0801FC00.bin") + "  64 bytes\n");

    // A bad file on standard input is named "-".
    r = runToolWithInput({"info", "-"}, joinLines({dataRecord(0, {1}), ":0300300002337A1F", EOF_RECORD}));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "-:2: checksum error\n");
}

TEST_F(Streams, BinWritesOneNamedFileOrStandardOutput)
{
    const std::string flat = dir.file("flat.bin");
    ASSERT_EQ(runTool({"convert", sample, "-o", flat}).exitCode, 0);
    const std::string expected = readFileText(flat);
    ASSERT_EQ(expected.size(), 130112u);

    // --one-block -o FILE: the flat image, as objcopy --gap-fill 0xFF gives it.
    const std::string out = dir.file("out.bin");
    ProcessResult r = runTool({"bin", "--one-block", "-o", out, sample});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, out + "  130112 bytes (127.1 KiB)\n");
    EXPECT_EQ(readFileText(out), expected);
    const std::string objcopyOut = dir.file("objcopy.bin");
    ASSERT_EQ(runProcess(OBJCOPY_PATH, {"-I", "ihex", "-O", "binary", "--gap-fill", "0xFF", sample, objcopyOut})
                  .exitCode,
              0);
    EXPECT_EQ(readFileText(out), readFileText(objcopyOut));

    // An existing file is replaced; -o - writes the bytes and nothing else.
    r = runTool({"bin", "--one-block", "--reverse", "-o", out, sample});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(readFileText(out), std::string(expected.rbegin(), expected.rend()));
    r = runTool({"bin", sample, "--one-block", "-o", "-"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, expected);
    EXPECT_EQ(r.err, "");

    // A file of one block needs no --one-block.
    const std::string one = dir.write("one.hex", joinLines({dataRecord(0x10, {1, 2, 3}), EOF_RECORD}));
    r = runTool({"bin", one, "-o", "-"});
    EXPECT_EQ(r.out, std::string("\x01\x02\x03", 3));
    r = runTool({"bin", one, "-o", dir.file("one.bin")});
    EXPECT_EQ(r.out, dir.file("one.bin") + "  3 bytes\n");
    EXPECT_EQ(readFileText(dir.file("one.bin")), std::string("\x01\x02\x03", 3));

    // Several blocks and a file name: an error, and no file.
    for (const std::string& target : {dir.file("many.bin"), std::string("-")}) {
        r = runTool({"bin", sample, "-o", target});
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, "hexblocks: " + sample + " has 3 blocks: give -o a directory for one file per block, or "
                                                  "use --one-block for one file\n");
    }
    EXPECT_EQ(readFileText(dir.file("many.bin")), "");
    FILE* f = std::fopen(dir.file("many.bin").c_str(), "rb");
    EXPECT_EQ(f, nullptr);
    if (f != nullptr)
        std::fclose(f);

    // A name ending in '/' is a directory, existing or not.
    r = runTool({"bin", sample, "-o", dir.file("none") + "/"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "hexblocks: cannot create '" + dir.file("none") + "/sample_0x08000000.bin': No such file or "
                                                                       "directory\n");
}
