// The format table: one row per format with its name, extensions, how it is
// recognised, whether it is read and written and the write options it
// takes; detection, names and extensions all answer from it.
#include "formats.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

using namespace hexblocks;

TEST(FormatTable, OneRowForEveryFormat)
{
    const std::vector<format_info_t>& table = formats();
    ASSERT_EQ(table.size(), 11u);
    const std::vector<std::string> names = {"ihex", "srec", "elf", "uf2", "ti-txt", "vmem",
                                            "mif",  "coe",  "c",   "ihex16", "bin"};
    const std::vector<std::string> titles = {"Intel HEX", "S-records", "ELF", "UF2", "TI-TXT", "Verilog memory file",
                                             "Intel MIF", "Xilinx COE", "C array",
                                             "Intel HEX in 16-bit words (INHX16)", "binary"};
    const std::vector<std::string> extensions = {"hex ihex ihx", "srec s19 s28 s37 mot", "elf axf", "uf2", "",
                                                 "mem vmem", "mif", "coe", "c h", "", "bin"};
    const std::vector<bool> readable = {true, true, true, true, true, true, true, false, false, true, true};
    const std::vector<bool> writable = {true, true, false, true, true, true, true, true, true, true, true};
    for (size_t i = 0; i < table.size(); ++i) {
        EXPECT_EQ(table[i].name, names[i]);
        EXPECT_EQ(table[i].title, titles[i]);
        EXPECT_EQ(table[i].extensions, extensions[i]);
        EXPECT_EQ(table[i].readable, readable[i]) << names[i];
        EXPECT_EQ(table[i].writable, writable[i]) << names[i];
        EXPECT_EQ(&formatInfo(table[i].format), &formatInfo(table[i].format));
        EXPECT_EQ(formatInfo(table[i].format).name, names[i]);
        EXPECT_EQ(formatByName(names[i]), table[i].format);
    }
    EXPECT_EQ(formatInfo(file_format_t::UF2).writeOptions, WRITES_FILL | WRITES_FAMILY);
    EXPECT_EQ(formatInfo(file_format_t::VERILOG).writeOptions, WRITES_FILL | WRITES_WORD_WIDTH | WRITES_CRLF);
    EXPECT_EQ(formatInfo(file_format_t::C_ARRAY).writeOptions, WRITES_NAME | WRITES_CRLF);
    EXPECT_EQ(formatInfo(file_format_t::INTEL_HEX_16).recognise, nullptr) << "it looks like Intel HEX";
    EXPECT_TRUE(formatInfo(file_format_t::INTEL_HEX).writable);
    EXPECT_TRUE(formatInfo(file_format_t::SRECORD).writable);
    EXPECT_FALSE(formatInfo(file_format_t::ELF).writable);
    EXPECT_TRUE(formatInfo(file_format_t::BINARY).writable);
    EXPECT_EQ(formatInfo(file_format_t::INTEL_HEX).writeOptions, WRITES_RECORD_SIZE | WRITES_ADDRESSING | WRITES_CRLF);
    EXPECT_EQ(formatInfo(file_format_t::SRECORD).writeOptions, WRITES_RECORD_SIZE | WRITES_ADDRESS_SIZE | WRITES_CRLF);
    EXPECT_EQ(formatInfo(file_format_t::BINARY).writeOptions, WRITES_FILL);
    EXPECT_EQ(formatInfo(file_format_t::BINARY).recognise, nullptr);
    EXPECT_STREQ(formatInfo(file_format_t::BINARY).recognisedBy, "");
}

TEST(FormatTable, NamesAndExtensions)
{
    EXPECT_EQ(formatByName("ihex"), std::optional<file_format_t>(file_format_t::INTEL_HEX));
    EXPECT_EQ(formatByName("srec"), std::optional<file_format_t>(file_format_t::SRECORD));
    EXPECT_EQ(formatByName("elf"), std::optional<file_format_t>(file_format_t::ELF));
    EXPECT_EQ(formatByName("bin"), std::optional<file_format_t>(file_format_t::BINARY));
    EXPECT_EQ(formatByName("hex"), std::nullopt);
    EXPECT_EQ(formatByName("IHEX"), std::nullopt);
    EXPECT_EQ(formatByExtension("dir.d/app.HEX"), std::optional<file_format_t>(file_format_t::INTEL_HEX));
    EXPECT_EQ(formatByExtension("app.ihx"), std::optional<file_format_t>(file_format_t::INTEL_HEX));
    EXPECT_EQ(formatByExtension("app.s37"), std::optional<file_format_t>(file_format_t::SRECORD));
    EXPECT_EQ(formatByExtension("app.Mot"), std::optional<file_format_t>(file_format_t::SRECORD));
    EXPECT_EQ(formatByExtension("app.axf"), std::optional<file_format_t>(file_format_t::ELF));
    EXPECT_EQ(formatByExtension("app.bin"), std::optional<file_format_t>(file_format_t::BINARY));
    EXPECT_EQ(formatByExtension("app.txt"), std::nullopt);
    EXPECT_EQ(formatByExtension("app"), std::nullopt);
    EXPECT_EQ(formatByExtension(".hex"), std::nullopt) << "a hidden file's name is no extension";
    EXPECT_EQ(formatByExtension("hex.d/app"), std::nullopt) << "a directory's dot is no extension";
}

TEST(FormatTable, EachRowRecognisesItsOwnContentOnly)
{
    const std::vector<std::pair<std::string, file_format_t>> samples = {
        {":00000001FF\n", file_format_t::INTEL_HEX},
        {"S00600004844521B\n", file_format_t::SRECORD},
        {std::string("\x7F" "ELF\x01\x01", 6), file_format_t::ELF}};
    for (const auto& sample : samples)
        for (const format_info_t& f : formats()) {
            if (f.recognise == nullptr)
                continue;
            EXPECT_EQ(f.recognise(sample.first.data(), sample.first.size()), f.format == sample.second)
                << f.name << " on " << formatInfo(sample.second).name;
        }
}
