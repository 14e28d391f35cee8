// The tool guide's recipes, run as written: the commands are read from the
// "Recipes" section of docs/tool.md and run by the shell, one after another, with
// hexblocks on the PATH, on files this test makes; each result is checked
// against objcopy and the library.
#include "formats.h"
#include "memory_image.h"

#include "support/elf_builder.h"
#include "support/image_view.h"
#include "support/run_tool.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {

// The commands of the tool guide's Recipes section: its shell block without
// comments, continued lines joined.
std::vector<std::string> recipeCommands()
{
    const std::string readme = readFileText(std::string(PROJECT_SOURCE_DIR) + "/docs/tool.md");
    const std::string::size_type section = readme.find("\n## Recipes\n");
    const std::string::size_type start = readme.find("```sh\n", section);
    const std::string::size_type end = readme.find("\n```", start);
    if (section == std::string::npos || start == std::string::npos || end == std::string::npos)
        return {};
    std::vector<std::string> commands;
    std::string pending;
    const std::string block = readme.substr(start + 6, end - start - 6) + "\n";
    std::string::size_type from = 0;
    for (std::string::size_type nl; (nl = block.find('\n', from)) != std::string::npos; from = nl + 1) {
        std::string line = block.substr(from, nl - from);
        if (pending.empty() && (line.empty() || line[0] == '#'))
            continue;
        const bool continued = !line.empty() && line.back() == '\\';
        if (continued)
            line.pop_back();
        pending += line;
        if (!continued) {
            commands.push_back(pending);
            pending.clear();
        }
    }
    return commands;
}

// A directory holding a "hexblocks" that runs the tool under test (through
// the emulator when the tests run on another architecture).
std::string toolDirectory(const TempDir& dir)
{
    std::string command = "exec";
    const std::string launcher = HEXBLOCKS_LAUNCHER;
    for (std::string::size_type from = 0; from < launcher.size();) {
        const std::string::size_type bar = std::min(launcher.find('|', from), launcher.size());
        command += " '" + launcher.substr(from, bar - from) + "'";
        from = bar + 1;
    }
    command += std::string(" '") + HEXBLOCKS_PATH + "' \"$@\"\n";
    const std::string script = dir.write("hexblocks", "#!/bin/sh\n" + command);
    runProcess("chmod", {"+x", script});
    return dir.path();
}

std::vector<uint8_t> counting(size_t size, uint8_t seed)
{
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(i * 13 + seed);
    return bytes;
}

} // namespace

TEST(Recipes, RunAsTheToolGuideWritesThem)
{
    const std::vector<std::string> commands = recipeCommands();
    ASSERT_EQ(commands.size(), 6u) << "the Recipes section of docs/tool.md has changed";

    TempDir dir;
    TempDir tools;
    const std::string path = toolDirectory(tools) + ":/usr/bin:/bin";
    // The inputs: an application as the compiler writes it, a bootloader and
    // two releases that differ in a byte and a settings page.
    const std::vector<uint8_t> code = counting(0x1800, 7);
    dir.write("app.elf", ElfBuilder(false, false).build(0x08004101, {{1, 0x08004000, 0x08004000, code}}));
    MemoryImage boot = imageOf({{0x08000000, counting(0x800, 1)}});
    ASSERT_TRUE(writeFile(boot, dir.file("boot.hex").c_str()));
    MemoryImage release = imageOf({{0x08004000, code}});
    ASSERT_TRUE(writeFile(release, dir.file("release-1.hex").c_str()));
    const uint8_t patched = 0x00;
    ASSERT_TRUE(release.write(0x08004010, &patched, 1));
    ASSERT_TRUE(release.write(0x0801F800, std::vector<uint8_t>(16, 0x5A).data(), 16));
    ASSERT_TRUE(writeFile(release, dir.file("release-2.hex").c_str()));

    std::vector<ProcessResult> results;
    for (const std::string& command : commands) {
        if (command.find("readback.bin") != std::string::npos) {
            // What a programmer reads back after flashing factory.hex.
            MemoryImage factory;
            ASSERT_TRUE(readFile(factory, dir.file("factory.hex").c_str()));
            const std::vector<uint8_t> flash = factory.copyRange(0x08000000, 0x20000, 0xFF);
            dir.write("readback.bin", std::string(flash.begin(), flash.end()));
        }
        results.push_back(runProcess("/bin/sh", {"-c", "cd '" + dir.path() + "' && PATH='" + path + "' " + command}));
        EXPECT_EQ(results.back().err, "") << command;
    }

    // ELF to HEX: the image objcopy makes of the ELF file.
    EXPECT_EQ(results[0].exitCode, 0);
    const std::string objcopyHex = dir.file("objcopy.hex");
    ASSERT_EQ(runProcess(OBJCOPY_PATH, {"-O", "ihex", dir.file("app.elf"), objcopyHex}).exitCode, 0);
    MemoryImage ours, theirs;
    ASSERT_TRUE(readFile(ours, dir.file("app.hex").c_str()));
    ASSERT_TRUE(readFile(theirs, objcopyHex.c_str()));
    EXPECT_EQ(segmentsOf(ours), segmentsOf(theirs));
    EXPECT_EQ(startOf(ours), startOf(theirs));
    EXPECT_EQ(startOf(ours), "type 5 value 134234369");

    // The flat binary: objcopy's.
    EXPECT_EQ(results[1].exitCode, 0);
    const std::string objcopyBin = dir.file("objcopy.bin");
    ASSERT_EQ(runProcess(OBJCOPY_PATH, {"-I", "ihex", "-O", "binary", "--gap-fill", "0xFF", dir.file("app.hex"),
                                        objcopyBin})
                  .exitCode,
              0);
    EXPECT_EQ(readFileText(dir.file("app.bin")), readFileText(objcopyBin));

    // The factory image: bootloader, application, the region filled, and
    // the CRC that 'hexblocks crc' computes over the region stored after it.
    EXPECT_EQ(results[2].exitCode, 0);
    MemoryImage factory;
    ASSERT_TRUE(readFile(factory, dir.file("factory.hex").c_str()));
    EXPECT_EQ(factory.copyRange(0x08000000, 0x800), boot.copyRange(0x08000000, 0x800));
    EXPECT_EQ(factory.copyRange(0x08004000, code.size()), code);
    EXPECT_EQ(factory.segments().size(), 2u);
    const ProcessResult crc =
        runTool({"crc", dir.file("factory.hex"), "--algorithm", "stm32", "--range", "0x08004000:0x0801FFFC"});
    const std::vector<uint8_t> stored = factory.copyRange(0x0801FFFC, 4);
    char expected[16];
    std::snprintf(expected, sizeof expected, "0x%02X%02X%02X%02X", stored[3], stored[2], stored[1], stored[0]);
    EXPECT_EQ(crc.out.substr(0, crc.out.find(" over")), std::string("stm32: ") + expected);

    // The plan, the verification and the diff.
    EXPECT_EQ(results[3].exitCode, 0);
    // The bootloader's sector is partial; the filled pages of the region
    // hold nothing but 0xFF, so only the application's 24 pages and the
    // CRC's page are written.
    EXPECT_EQ(results[3].out, "erase  0x08000000-0x08003FFF  1 x 16K  partial\n"
                              "erase  0x08004000-0x0800FFFF  3 x 16K\n"
                              "erase  0x08010000-0x0801FFFF  1 x 64K\n"
                              "write  0x08000000-0x080007FF  8 pages\n"
                              "write  0x08004000-0x080057FF  24 pages\n"
                              "write  0x0801FF00-0x0801FFFF  1 page\n"
                              "total  erase 131072 bytes in 5 sectors (1 partial), write 8448 bytes in 33 pages of "
                              "256, 423 blank pages skipped\n");
    EXPECT_EQ(results[4].exitCode, 0);
    EXPECT_EQ(results[4].out, "116736 bytes compared, 0 mismatches, 0 not covered: OK\n");
    EXPECT_EQ(results[5].exitCode, 1);
    EXPECT_EQ(results[5].out, "0x08004010-0x08004010  differ (1 byte)\n"
                              "0x0801F800-0x0801F80F  only in B (16 bytes)\n");
}
