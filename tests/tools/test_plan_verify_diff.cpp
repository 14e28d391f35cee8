// hexblocks plan, verify and diff: the tables and JSON they print, their
// exit codes (verify and diff: 0 same, 1 different, 2 trouble), standard
// input, and every usage error; Python's json module reads the JSON, and
// objcopy's conversions of an image must diff as equal to it.
#include "checksum.h"
#include "formats.h"
#include "memory_image.h"

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

const std::string MIXED = "0x08000000:4x16K,1x64K,7x128K"; // an STM32F4

class FlashCommands : public ::testing::Test {
protected:
    TempDir dir;

    std::string save(const std::string& name, const MemoryImage& image)
    {
        const std::string path = dir.file(name);
        write_options_t options;
        if (name.size() > 5 && name.compare(name.size() - 5, 5, ".srec") == 0)
            options.format = file_format_t::SRECORD;
        if (name.size() > 4 && name.compare(name.size() - 4, 4, ".bin") == 0)
            options.format = file_format_t::BINARY;
        EXPECT_TRUE(writeFile(image, path.c_str(), options));
        return path;
    }

    // Vectors, an application over four sectors, and settings at the end
    // of the first 128 KiB sector.
    MemoryImage firmware()
    {
        std::vector<uint8_t> app(0x10000);
        for (size_t i = 0; i < app.size(); ++i)
            app[i] = static_cast<uint8_t>(i * 7 + 1);
        MemoryImage image = imageOf({{0x08000000, std::vector<uint8_t>(0x200, 0x11)},
                                     {0x08004000, app},
                                     {0x0803FFE0, std::vector<uint8_t>(0x20, 0x33)}});
        EXPECT_TRUE(image.setStartAddress({5, 0x08004101}));
        return image;
    }

    // Python reads the JSON and prints what the expression gives.
    std::string python(const std::string& json, const std::string& expression)
    {
        const ProcessResult r = runProcessWithInput(
            PYTHON3_PATH, {"-c", "import json, sys\nd = json.load(sys.stdin)\nprint(" + expression + ")"}, json);
        EXPECT_EQ(r.exitCode, 0) << r.err;
        return r.out;
    }

    // A usage error: exit 2, the message and the usage on standard error,
    // nothing on standard output.
    void expectUsageError(const std::vector<std::string>& args, const std::string& message)
    {
        const ProcessResult r = runTool(args);
        EXPECT_EQ(r.exitCode, 2) << args[0];
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err.substr(0, r.err.find('\n') + 1), "hexblocks: " + message + "\n");
        EXPECT_NE(r.err.find("usage: hexblocks " + args[0]), std::string::npos) << r.err;
    }
};

const char MIXED_PLAN[] =
    "erase  0x08000000-0x08003FFF  1 x 16K  partial\n"
    "erase  0x08004000-0x0800FFFF  3 x 16K\n"
    "erase  0x08010000-0x0801FFFF  1 x 64K  partial\n"
    "erase  0x08020000-0x0803FFFF  1 x 128K  partial\n"
    "write  0x08000000-0x080001FF  2 pages\n"
    "write  0x08004000-0x08013FFF  256 pages\n"
    "write  0x0803FF00-0x0803FFFF  1 page\n"
    "total  erase 262144 bytes in 6 sectors (3 partial), write 66304 bytes in 259 pages of 256, "
    "0 blank pages skipped\n";

TEST_F(FlashCommands, PlanPrintsTheEraseAndWriteListsAndTotals)
{
    const std::string hex = save("fw.hex", firmware());
    const ProcessResult r = runTool({"plan", hex, "--sectors", MIXED});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, MIXED_PLAN);
    EXPECT_EQ(r.err, "");

    // The same from S-records on standard input, with the short options.
    const std::string srec = save("fw.srec", firmware());
    const std::string text = readFileText(srec);
    const ProcessResult piped = runToolWithInput({"plan", "-", "-s", MIXED, "-p", "256", "-e", "0xFF"}, text);
    EXPECT_EQ(piped.exitCode, 0) << piped.err;
    EXPECT_EQ(piped.out, MIXED_PLAN);
}

TEST_F(FlashCommands, PlanJsonListsEveryPage)
{
    const std::string hex = save("fw.hex", firmware());
    const ProcessResult r = runTool({"plan", hex, "--sectors", MIXED, "--json"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    const std::string head = "{\n  \"erase\": [\n    {\"address\": 134217728, \"size\": 16384, \"partial\": true},\n"
                             "    {\"address\": 134234112, \"size\": 16384, \"partial\": false},\n";
    EXPECT_EQ(r.out.substr(0, head.size()), head);
    EXPECT_NE(r.out.find("  \"write\": [\n    {\"address\": 134217728, \"size\": 256},\n"
                         "    {\"address\": 134217984, \"size\": 256},\n    {\"address\": 134234112, \"size\": 256},\n"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("    {\"address\": 134479616, \"size\": 256}\n  ],\n  \"skipped_blank\": 0,\n"
                         "  \"page_size\": 256,\n  \"partial_sectors\": 3,\n  \"erase_bytes\": 262144,\n"
                         "  \"write_bytes\": 66304\n}\n"),
              std::string::npos)
        << r.out;
    EXPECT_EQ(python(r.out, "len(d['write']), set(w['size'] for w in d['write']), "
                            "[(e['size'], e['partial']) for e in d['erase']], d['skipped_blank']"),
              "259 {256} [(16384, True), (16384, False), (16384, False), (16384, False), (65536, True), "
              "(131072, True)] 0\n");
    // Every page aligned, ascending, and the pages of a range all listed.
    EXPECT_EQ(python(r.out, "all(w['address'] % 256 == 0 for w in d['write']), "
                            "[w['address'] for w in d['write']] == sorted(set(w['address'] for w in d['write'])), "
                            "sum(1 for w in d['write'] if 0x08004000 <= w['address'] < 0x08014000)"),
              "True True 256\n");
}

TEST_F(FlashCommands, PlanSkipsBlankPagesUnlessKept)
{
    // Page 0x100 holds only 0xFF; with 0x00 as the erased value page 0 is blank.
    const std::string hex = save("blank.hex", imageOf({{0x000, std::vector<uint8_t>(0x10, 0x00)},
                                                       {0x100, std::vector<uint8_t>(0x100, 0xFF)}}));
    ProcessResult r = runTool({"plan", hex, "--sectors", "0:4x1K"});
    EXPECT_EQ(r.out, "erase  0x00000000-0x000003FF  1 x 1K  partial\n"
                     "write  0x00000000-0x000000FF  1 page\n"
                     "total  erase 1024 bytes in 1 sector (1 partial), write 256 bytes in 1 page of 256, "
                     "1 blank page skipped\n");
    r = runTool({"plan", hex, "--sectors", "0:4x1K", "--keep-blank"});
    EXPECT_EQ(r.out, "erase  0x00000000-0x000003FF  1 x 1K  partial\n"
                     "write  0x00000000-0x000001FF  2 pages\n"
                     "total  erase 1024 bytes in 1 sector (1 partial), write 512 bytes in 2 pages of 256, "
                     "0 blank pages skipped\n");
    r = runTool({"plan", hex, "--sectors", "0:4x1K", "--erased", "0", "--page-size", "0x80"});
    EXPECT_EQ(r.out, "erase  0x00000000-0x000003FF  1 x 1K  partial\n"
                     "write  0x00000100-0x000001FF  2 pages\n"
                     "total  erase 1024 bytes in 1 sector (1 partial), write 256 bytes in 2 pages of 128, "
                     "1 blank page skipped\n");
    r = runTool({"plan", hex, "--sectors", "0:2x512,2x1K", "--page-size", "512", "--json"});
    EXPECT_EQ(r.out, "{\n  \"erase\": [\n    {\"address\": 0, \"size\": 512, \"partial\": true}\n  ],\n"
                     "  \"write\": [\n    {\"address\": 0, \"size\": 512}\n  ],\n  \"skipped_blank\": 0,\n"
                     "  \"page_size\": 512,\n  \"partial_sectors\": 1,\n  \"erase_bytes\": 512,\n"
                     "  \"write_bytes\": 512\n}\n");
}

TEST_F(FlashCommands, PlanRefusesDataOutsideTheFlash)
{
    const std::string hex = save("fw.hex", firmware());
    const ProcessResult r = runTool({"plan", hex, "--sectors", "0x08000000:4x16K"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "hexblocks: " + hex +
                         ": the data at 0x08010000 lies outside the flash (0x08000000-0x0800FFFF)\n");
    const ProcessResult json = runTool({"plan", hex, "--sectors", "0x08004000:4x16K", "--json"});
    EXPECT_EQ(json.exitCode, 1);
    EXPECT_EQ(json.out, "") << "no half-written JSON";
    EXPECT_EQ(json.err, "hexblocks: " + hex +
                            ": the data at 0x08000000 lies outside the flash (0x08004000-0x08013FFF)\n");

    const ProcessResult missing = runTool({"plan", dir.file("none.hex"), "--sectors", MIXED});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.err, dir.file("none.hex") + ": cannot open the file: No such file or directory\n");
}

TEST_F(FlashCommands, PlanUsageErrors)
{
    const std::string hex = save("fw.hex", firmware());
    expectUsageError({"plan", hex}, "missing --sectors");
    expectUsageError({"plan", "--sectors", MIXED}, "missing FILE");
    expectUsageError({"plan", hex, "--sectors", "0x08000000"},
                     "invalid --sectors '0x08000000': expected ADDRESS:COUNTxSIZE[,COUNTxSIZE...], such as "
                     "0x08000000:4x16K,1x64K,7x128K");
    expectUsageError({"plan", hex, "--sectors", "0x08000000:4x16K", "--page-size", "3"},
                     "invalid --sectors '0x08000000:4x16K': the sector boundary 0x08000000 is not a multiple of "
                     "the page size 3");
    expectUsageError({"plan", hex, "--page-size", "1536", "--sectors", "0:2x1K"},
                     "invalid --sectors '0:2x1K': the sector boundary 0x00000400 is not a multiple of the page "
                     "size 1536");
    expectUsageError({"plan", hex, "--sectors", "0xFFFF0000:17x4K"},
                     "invalid --sectors '0xFFFF0000:17x4K': the sectors 17x4096 at 0xFFFF0000 run past address "
                     "0xFFFFFFFF");
    expectUsageError({"plan", hex, "--sectors", MIXED, "--page-size", "0"},
                     "invalid page size '0' (1 to 0xFFFFFFFF, K or M allowed)");
    expectUsageError({"plan", hex, "--sectors", MIXED, "--page-size", "4G"},
                     "invalid page size '4G' (1 to 0xFFFFFFFF, K or M allowed)");
    expectUsageError({"plan", hex, "--sectors", MIXED, "--erased", "256"},
                     "invalid erased value '256' (0 to 255, or 0x00 to 0xFF)");
    expectUsageError({"plan", hex, "--sectors", MIXED, "--fill", "0"}, "unknown option '--fill'");
    expectUsageError({"plan", hex, hex, "--sectors", MIXED}, "unexpected argument '" + hex + "'");
    // K and M page sizes are fine.
    EXPECT_EQ(runTool({"plan", hex, "--sectors", MIXED, "--page-size", "2K"}).exitCode, 0);
    EXPECT_EQ(runTool({"plan", hex, "--sectors", "0x08000000:1x1M", "--page-size", "1M"}).exitCode, 0);
}

TEST_F(FlashCommands, VerifyPassesOnAMatchingDump)
{
    const MemoryImage image = firmware();
    const std::string hex = save("fw.hex", image);
    const std::string dump = dir.write("dump.bin", [&] {
        const std::vector<uint8_t> bytes = image.copyRange(0x08000000, 0x40000, 0xFF);
        return std::string(bytes.begin(), bytes.end());
    }());
    const ProcessResult r = runTool({"verify", hex, dump, "--at", "0x08000000"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "66080 bytes compared, 0 mismatches, 0 not covered: OK\n");
    EXPECT_EQ(r.err, "");

    const ProcessResult json = runTool({"verify", hex, dump, "--at", "134217728", "--json"});
    EXPECT_EQ(json.exitCode, 0);
    EXPECT_EQ(json.out, "{\n  \"compared\": 66080,\n  \"mismatches\": 0,\n  \"not_covered\": 0,\n"
                        "  \"first_not_covered\": null,\n  \"first\": [],\n  \"ok\": true\n}\n");
}

TEST_F(FlashCommands, VerifyListsTheFirstTenMismatches)
{
    const MemoryImage image = firmware();
    const std::string hex = save("fw.hex", image);
    std::vector<uint8_t> bytes = image.copyRange(0x08000000, 0x40000, 0xFF);
    for (size_t i = 0; i < 12; ++i)
        bytes[0x4000 + 3 * i] = 0x00; // the app's bytes are i * 7 + 1: never 0 at these
    bytes[0x100] = 0xEE;
    const std::string dump = dir.write("dump.bin", std::string(bytes.begin(), bytes.end()));
    const ProcessResult r = runTool({"verify", hex, dump, "--at", "0x08000000"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "0x08000100  expected 0x11  found 0xEE\n"
                     "0x08004000  expected 0x01  found 0x00\n"
                     "0x08004003  expected 0x16  found 0x00\n"
                     "0x08004006  expected 0x2B  found 0x00\n"
                     "0x08004009  expected 0x40  found 0x00\n"
                     "0x0800400C  expected 0x55  found 0x00\n"
                     "0x0800400F  expected 0x6A  found 0x00\n"
                     "0x08004012  expected 0x7F  found 0x00\n"
                     "0x08004015  expected 0x94  found 0x00\n"
                     "0x08004018  expected 0xA9  found 0x00\n"
                     "66080 bytes compared, 13 mismatches, 0 not covered: FAILED\n");
    EXPECT_EQ(r.err, "");

    const ProcessResult json = runTool({"verify", hex, dump, "--at", "0x08000000", "--json"});
    EXPECT_EQ(json.exitCode, 1);
    EXPECT_EQ(python(json.out, "d['compared'], d['mismatches'], d['not_covered'], len(d['first']), d['first'][0], "
                               "d['ok']"),
              "66080 13 0 10 {'address': 134217984, 'expected': 17, 'found': 238} False\n");
}

TEST_F(FlashCommands, VerifyFailsWhereTheDumpIsTooShort)
{
    const MemoryImage image = firmware();
    const std::string hex = save("fw.hex", image);
    const std::vector<uint8_t> bytes = image.copyRange(0x08000000, 0x8000, 0xFF);
    const std::string text(bytes.begin(), bytes.end());
    const std::string dump = dir.write("short.bin", text);
    ProcessResult r = runTool({"verify", hex, dump, "--at", "0x08000000"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "16896 bytes compared, 0 mismatches, 49184 not covered (from 0x08008000): FAILED\n");
    r = runTool({"verify", hex, dump, "--at", "0x08000000", "--json"});
    EXPECT_EQ(r.out, "{\n  \"compared\": 16896,\n  \"mismatches\": 0,\n  \"not_covered\": 49184,\n"
                     "  \"first_not_covered\": 134250496,\n  \"first\": [],\n  \"ok\": false\n}\n");

    // The dump read from standard input, through a pipe.
    r = runToolWithInput({"verify", hex, "-", "--at", "0x08000000"}, text);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "16896 bytes compared, 0 mismatches, 49184 not covered (from 0x08008000): FAILED\n");
}

TEST_F(FlashCommands, VerifyTroubleExitsTwo)
{
    const std::string hex = save("fw.hex", firmware());
    const std::string dump = dir.write("dump.bin", "x");
    ProcessResult r = runTool({"verify", hex, dir.file("none.bin"), "--at", "0"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, dir.file("none.bin") + ": cannot open the file: No such file or directory\n");
    r = runTool({"verify", dir.file("none.hex"), dump, "--at", "0"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err, dir.file("none.hex") + ": cannot open the file: No such file or directory\n");
    const std::string bad = dir.write("bad.hex", ":10000000\n");
    r = runTool({"verify", bad, dump, "--at", "0"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.out, "");

    expectUsageError({"verify", hex, dump}, "missing --at ADDRESS");
    expectUsageError({"verify", hex, "--at", "0"}, "missing DUMP");
    expectUsageError({"verify", hex, dump, dump, "--at", "0"}, "unexpected argument '" + dump + "'");
    expectUsageError({"verify", hex, dump, "--at", "0x100000000"},
                     "invalid address '0x100000000' for --at (0 to 0xFFFFFFFF)");
    expectUsageError({"verify", "-", "-", "--at", "0"}, "standard input ('-') can be read only once");
    expectUsageError({"verify", hex, dump, "--at", "0", "--join", "3"}, "unknown option '--join'");
}

TEST_F(FlashCommands, DiffOfEqualImagesPrintsNothing)
{
    const MemoryImage image = firmware();
    const std::string hex = save("a.hex", image);
    const std::string srec = save("a.srec", image);
    ProcessResult r = runTool({"diff", hex, srec});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
    r = runTool({"diff", hex, srec, "--json"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "{\n  \"ranges\": [],\n  \"start_address\": {\"a\": {\"type\": 5, \"value\": 134234369}, "
                     "\"b\": {\"type\": 5, \"value\": 134234369}, \"differ\": false},\n  \"equal\": true\n}\n");

    // objcopy's conversions of the same file hold the same image.
    for (const char* format : {"srec", "ihex"}) {
        const std::string converted = dir.file(std::string("objcopy.") + format);
        const ProcessResult oc = runProcess(OBJCOPY_PATH, {"-I", "ihex", "-O", format, hex, converted});
        ASSERT_EQ(oc.exitCode, 0) << oc.err;
        r = runTool({"diff", hex, converted});
        EXPECT_EQ(r.exitCode, 0) << format << ": " << r.out << r.err;
    }
    // A flat binary placed at its address differs by the gaps it fills.
    const std::string bin = dir.file("a.bin");
    ASSERT_EQ(runProcess(OBJCOPY_PATH, {"-I", "ihex", "-O", "binary", "--gap-fill", "0xFF", hex, bin}).exitCode, 0);
    r = runTool({"diff", hex, bin + "@0x08000000"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "0x08000200-0x08003FFF  only in B (15872 bytes)\n"
                     "0x08014000-0x0803FFDF  only in B (180192 bytes)\n"
                     "start address: 0x08004101 (linear, type 05) in A, none in B\n");
}

TEST_F(FlashCommands, DiffOfDisjointImages)
{
    const std::string a = save("a.hex", imageOf({{0x1000, std::vector<uint8_t>(0x100, 1)}}));
    const std::string b = save("b.hex", imageOf({{0x2000, std::vector<uint8_t>(0x10, 1)}, {0x3000, {1}}}));
    ProcessResult r = runTool({"diff", a, b});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "0x00001000-0x000010FF  only in A (256 bytes)\n"
                     "0x00002000-0x0000200F  only in B (16 bytes)\n"
                     "0x00003000-0x00003000  only in B (1 byte)\n");
    EXPECT_EQ(r.err, "");
    r = runTool({"diff", a, b, "-j"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "{\n  \"ranges\": [\n"
                     "    {\"start\": 4096, \"end\": 4352, \"kind\": \"only_a\", \"bytes\": 256},\n"
                     "    {\"start\": 8192, \"end\": 8208, \"kind\": \"only_b\", \"bytes\": 16},\n"
                     "    {\"start\": 12288, \"end\": 12289, \"kind\": \"only_b\", \"bytes\": 1}\n"
                     "  ],\n  \"start_address\": {\"a\": null, \"b\": null, \"differ\": false},\n"
                     "  \"equal\": false\n}\n");
    EXPECT_EQ(python(r.out, "[(x['kind'], x['end'] - x['start']) for x in d['ranges']]"),
              "[('only_a', 256), ('only_b', 16), ('only_b', 1)]\n");
}

TEST_F(FlashCommands, DiffOfImagesThatDifferByOneByte)
{
    MemoryImage image = firmware();
    const std::string a = save("a.hex", image);
    const uint8_t changed = 0x00;
    ASSERT_TRUE(image.write(0x08004010, &changed, 1));
    const std::string b = save("b.srec", image);
    ProcessResult r = runTool({"diff", a, b});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "0x08004010-0x08004010  differ (1 byte)\n");

    // Bytes 16 apart share a range; with --join 0 each has its own.
    ASSERT_TRUE(image.write(0x08004030, &changed, 1));
    ASSERT_TRUE(image.write(0x08004041, &changed, 1));
    const std::string c = save("c.hex", image);
    r = runTool({"diff", a, c});
    EXPECT_EQ(r.out, "0x08004010-0x08004010  differ (1 byte)\n"
                     "0x08004030-0x08004041  differ (2 bytes)\n");
    r = runTool({"diff", a, c, "--join", "31"});
    EXPECT_EQ(r.out, "0x08004010-0x08004041  differ (3 bytes)\n");
    r = runTool({"diff", a, c, "--join", "0"});
    EXPECT_EQ(r.out, "0x08004010-0x08004010  differ (1 byte)\n"
                     "0x08004030-0x08004030  differ (1 byte)\n"
                     "0x08004041-0x08004041  differ (1 byte)\n");

    // Start addresses.
    ASSERT_TRUE(image.setStartAddress({3, 0x08000101}));
    const std::string d = save("d.hex", image);
    r = runTool({"diff", c, d});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "start address: 0x08004101 (linear, type 05) in A, "
                     "0800:0101 = 0x00008101 (segment CS:IP, type 03) in B\n");
}

TEST_F(FlashCommands, DiffTroubleExitsTwo)
{
    const std::string a = save("a.hex", firmware());
    ProcessResult r = runTool({"diff", a, dir.file("none.hex")});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, dir.file("none.hex") + ": cannot open the file: No such file or directory\n");
    const std::string garbage = dir.write("garbage.txt", "hello\n");
    r = runTool({"diff", garbage, a, "--json"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.out, "");

    // Standard input for one of them.
    std::string text;
    {
        MemoryImage image = firmware();
        std::ostringstream out;
        ASSERT_TRUE(writeStream(image, out));
        text = out.str();
    }
    r = runToolWithInput({"diff", "-", a}, text);
    EXPECT_EQ(r.exitCode, 0) << r.err;

    expectUsageError({"diff", a}, "missing B");
    expectUsageError({"diff"}, "missing A");
    expectUsageError({"diff", a, a, a}, "unexpected argument '" + a + "'");
    expectUsageError({"diff", "-", "-"}, "standard input ('-') can be read only once");
    expectUsageError({"diff", a, a, "--join", "-1"}, "invalid --join '-1' (0 to 0xFFFFFFFF)");
    expectUsageError({"diff", a, a, "--at", "0"}, "unknown option '--at'");
}

#ifdef FLASH_PROGRAM_PATH
// The tool guide's recipe: plan, program page by page (the example flasher, on a
// simulated NOR flash that holds an old firmware), verify the read-back.
TEST_F(FlashCommands, RecipePlanProgramVerify)
{
    const std::string hex = save("fw.hex", firmware());
    ProcessResult r = runTool({"plan", hex, "--sectors", MIXED});
    EXPECT_EQ(r.out, MIXED_PLAN);

    const std::string readback = dir.file("readback.bin");
    r = runBuilt(FLASH_PROGRAM_PATH, {hex, MIXED, readback});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "sector 0x08000000 is partial: its bytes without data are erased\n"
                     "sector 0x08010000 is partial: its bytes without data are erased\n"
                     "sector 0x08020000 is partial: its bytes without data are erased\n"
                     "programmed 259 pages, 66080 bytes compared, 0 mismatches: OK\n");
    const std::string programmed = r.out;

    r = runTool({"verify", hex, readback, "--at", "0x08000000"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "66080 bytes compared, 0 mismatches, 0 not covered: OK\n");

#ifdef FLASH_PROGRAM_C_PATH
    // The same flasher written against the C API does and says the same.
    const std::string readbackC = dir.file("readback-c.bin");
    const ProcessResult c = runBuilt(FLASH_PROGRAM_C_PATH, {hex, MIXED, readbackC});
    EXPECT_EQ(c.exitCode, 0) << c.err;
    EXPECT_EQ(c.out, programmed);
    EXPECT_EQ(readFileText(readbackC), readFileText(readback));
    const ProcessResult outside = runBuilt(FLASH_PROGRAM_C_PATH, {hex, "0x08000000:1x1K", readbackC});
    EXPECT_EQ(outside.exitCode, 1);
    EXPECT_EQ(outside.err, hex + ": the data at 0x08004000 lies outside the flash (0x08000000-0x080003FF)\n");
#endif

    // Erased sectors read 0xFF where the image has no data; the sectors left
    // alone still hold the old firmware.
    MemoryImage flash;
    read_options_t binary;
    binary.detect = false;
    binary.format = file_format_t::BINARY;
    binary.address = 0x08000000;
    ASSERT_TRUE(readFile(flash, readback.c_str(), binary));
    EXPECT_EQ(flash.span(), 0x100000u);
    EXPECT_EQ(flash.copyRange(0x08000200, 4), (std::vector<uint8_t>{0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(flash.copyRange(0x0803FFDF, 2), (std::vector<uint8_t>{0xFF, 0x33}));
    EXPECT_EQ(flash.copyRange(0x08040000, 2), (std::vector<uint8_t>{0xA5, 0xA5}));
    r = runTool({"diff", hex, readback + "@0x08000000"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "0x08000200-0x08003FFF  only in B (15872 bytes)\n"
                     "0x08014000-0x0803FFDF  only in B (180192 bytes)\n"
                     "0x08040000-0x080FFFFF  only in B (786432 bytes)\n"
                     "start address: 0x08004101 (linear, type 05) in A, none in B\n");
}
#endif

#ifdef HEX_SEGMENTS_PATH
// The C example that reads standard input: the sample's segments, its
// start address and the CRC-32 of its data, as the C++ API gives them.
TEST(CExamples, HexSegmentsPrintsTheSegmentsStartAddressAndCrc32)
{
    const std::string text = readFileText(SAMPLE_HEX);
    MemoryImage image;
    ASSERT_TRUE(readMemory(image, text.data(), text.size()));
    Checksum::algorithm_t crc32;
    ASSERT_TRUE(Checksum::findAlgorithm("crc32", crc32));
    Checksum crc(crc32);
    std::string expected;
    char line[128];
    for (const segment_t& s : image.segments()) {
        std::snprintf(line, sizeof line, "0x%08X-0x%08X  %zu bytes\n", static_cast<unsigned>(s.address),
                      static_cast<unsigned>(s.lastAddress()), s.bytes.size());
        expected += line;
        crc.update(s.bytes.data(), s.bytes.size());
    }
    if (image.hasStartAddress()) {
        std::snprintf(line, sizeof line, "start address 0x%08X (type %u)\n",
                      static_cast<unsigned>(image.startAddress().value),
                      static_cast<unsigned>(image.startAddress().type));
        expected += line;
    }
    std::snprintf(line, sizeof line, "%zu segments, %llu bytes, CRC-32 of the data 0x%08X\n", image.segments().size(),
                  static_cast<unsigned long long>(image.dataSize()), static_cast<unsigned>(crc.value()));
    expected += line;
    ProcessResult r = runBuiltWithInput(HEX_SEGMENTS_PATH, {}, text);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, expected);
    // A start address, and an S-record input.
    r = runBuiltWithInput(HEX_SEGMENTS_PATH, {}, "S1060100010203F2\nS9030100FB\n");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "0x00000100-0x00000102  3 bytes\nstart address 0x00000100 (type 5)\n"
                     "1 segments, 3 bytes, CRC-32 of the data 0x55BC801D\n");
    r = runBuiltWithInput(HEX_SEGMENTS_PATH, {}, ":0400000001020304F3\n");
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "stdin:1: checksum error\n");
    EXPECT_EQ(r.out, "");
}
#endif

TEST_F(FlashCommands, HelpNamesTheCommandsAndExitCodes)
{
    const ProcessResult r = runTool({"--help"});
    for (const char* line : {"  plan FILE --sectors SECTORS ", "  verify FILE DUMP --at ADDRESS ", "  diff A B "})
        EXPECT_NE(r.out.find(line), std::string::npos) << line;
    EXPECT_NE(r.out.find("verify and diff, like cmp: 0 when the images match, 1 when\nthey differ, 2 on trouble"),
              std::string::npos);
    for (const char* command : {"plan", "verify", "diff"}) {
        const ProcessResult help = runTool({command, "--help"});
        EXPECT_EQ(help.exitCode, 0);
        EXPECT_EQ(help.out.compare(0, 17 + std::string(command).size(), "usage: hexblocks " + std::string(command)),
                  0);
    }
    EXPECT_NE(runTool({"verify", "--help"}).out.find("Exit status: 0 when every byte matches, 1 when not, 2 on trouble."),
              std::string::npos);
}

} // namespace
