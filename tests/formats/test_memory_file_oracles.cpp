// The newer formats against independent tools, on random images with gaps,
// several 64 KiB windows and data up to 0xFFFFFFFF where the format reaches
// it:
// - srec_cat reads our TI-TXT, Verilog, MIF and INHX16 as we read them, and
//   we read what it writes in those formats as it reads it; its COE and C
//   arrays hold the words and bytes of ours;
// - objcopy's Verilog output (every --verilog-data-width) reads as the image;
// - the uf2 package of the npm registry decodes our UF2 blocks field by
//   field, and we read the blocks it encodes; file(1) names our UF2's family;
// - a C array compiled into a C99 and a C++ program gives back the image.
#include "formats.h"
#include "memory_image.h"
#include "support/image_view.h"
#include "support/run_process.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cctype>
#include <algorithm>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>

using namespace hexblocks;

namespace {

const int CASES = 8;

std::string fileText(const std::string& path)
{
    const std::vector<uint8_t> bytes = readFileBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

std::string writeOurs(const MemoryImage& image, const TempDir& dir, const std::string& name, file_format_t format,
                      unsigned wordWidth = 8, uint8_t fill = 0xFF)
{
    write_options_t options;
    options.format = format;
    options.wordWidth = wordWidth;
    options.fill = fill;
    const std::string path = dir.file(name);
    const result_t written = writeFile(image, path.c_str(), options);
    EXPECT_TRUE(written) << name << ": " << written.reason;
    return path;
}

MemoryImage readOurs(const std::string& path, file_format_t format, unsigned wordWidth = 8)
{
    read_options_t options = readAs(format);
    options.wordWidth = wordWidth;
    MemoryImage image;
    const read_result_t read = readFile(image, path.c_str(), options);
    EXPECT_TRUE(read) << path << ": " << read.line << ": " << read.reason;
    return image;
}

void run(const std::string& program, const std::vector<std::string>& args, const std::string& what)
{
    const ProcessResult result = runProcess(program, args);
    ASSERT_EQ(result.exitCode, 0) << what << ": " << result.err;
}

// An image whose segments start and end on multiples of 8, for the tools
// that write only whole words: 1 to 5 segments (or more, until one fits)
// of up to 2 KiB, in areas from 0 to the top of the address space.
MemoryImage alignedImage(std::mt19937& random)
{
    const uint64_t areas[] = {0, 0x00010000, 0x0800FF00, 0x20000000, 0xFFFFF000};
    MemoryImage image;
    const unsigned segments = 1 + random() % 5;
    for (unsigned s = 0; s < segments || image.empty(); ++s) {
        const uint64_t area = areas[random() % 5];
        const uint64_t size = 8 * (1 + random() % 256);
        const uint64_t address = area + 8 * (random() % 512);
        if (address + size > 0x100000000ull)
            continue;
        std::vector<uint8_t> bytes(size);
        for (uint8_t& b : bytes)
            b = static_cast<uint8_t>(random());
        image.write(static_cast<uint32_t>(address), bytes.data(), bytes.size());
    }
    return image;
}

// The words of a COE file's vector, upper case.
std::vector<std::string> coeWords(const std::string& text)
{
    const size_t vector = text.find("memory_initialization_vector");
    EXPECT_NE(vector, std::string::npos);
    std::vector<std::string> words;
    std::string word;
    for (size_t i = text.find('=', vector) + 1; i < text.size(); ++i) {
        const char c = text[i];
        if (std::isxdigit(static_cast<unsigned char>(c))) {
            word += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        } else if (!word.empty()) {
            words.push_back(word);
            word.clear();
        }
        if (c == ';')
            break;
    }
    return words;
}

// Every "0xHH" byte of a C file's array initialisers, in order.
std::vector<uint8_t> cArrayBytes(const std::string& text)
{
    std::vector<uint8_t> bytes;
    for (size_t at = text.find("[] =") != std::string::npos ? text.find("[] =") : text.find("] = {");
         (at = text.find("0x", at)) != std::string::npos; at += 2) {
        if (at + 4 < text.size() && std::isxdigit(static_cast<unsigned char>(text[at + 2])) &&
            std::isxdigit(static_cast<unsigned char>(text[at + 3])) &&
            !std::isxdigit(static_cast<unsigned char>(text[at + 4])))
            bytes.push_back(static_cast<uint8_t>(std::stoul(text.substr(at + 2, 2), nullptr, 16)));
        const size_t end = text.find("};", at);
        if (end == std::string::npos || text.find("0x", at + 2) > end)
            break;
    }
    return bytes;
}

} // namespace

// srec_cat reads what we write as we read it.
TEST(MemoryFileOracles, SrecCatReadsOurTiTxtVerilogMifAndInhx16)
{
    struct kind_t {
        file_format_t format;
        unsigned width;
        const char* srecFormat;
    };
    // srec_cat 1.64 reads MIF words of more than 8 bits in the reverse of
    // the byte order it writes them in (and its manual states), so MIF is
    // read by it at 8 bits; its own wider MIF is read by us below.
    const kind_t kinds[] = {{file_format_t::TI_TXT, 8, "-ti_txt"},    {file_format_t::VERILOG, 8, "-vmem"},
                            {file_format_t::VERILOG, 16, "-vmem"},    {file_format_t::VERILOG, 32, "-vmem"},
                            {file_format_t::MIF, 8, "-mif"},          {file_format_t::INTEL_HEX_16, 8, "-intel_hex_16"}};
    std::mt19937 random(251);
    TempDir dir;
    for (int c = 0; c < CASES; ++c) {
        const MemoryImage image = randomImage(random, false);
        for (const kind_t& k : kinds) {
            const std::string what = std::string(formatInfo(k.format).name) + " " + std::to_string(k.width) +
                                     " case " + std::to_string(c);
            const std::string ours = writeOurs(image, dir, "ours", k.format, k.width);
            const std::string theirs = dir.file("theirs.hex");
            run(SREC_CAT_PATH, {ours, k.srecFormat, "-o", theirs, "-intel", "-address-length=4"}, what);
            const MemoryImage expected = readOurs(ours, k.format, k.width);
            EXPECT_EQ(segmentsOf(readOurs(theirs, file_format_t::INTEL_HEX)), segmentsOf(expected)) << what;
            for (const segment_t& s : image.segments())
                ASSERT_EQ(expected.copyRange(s.address, s.bytes.size()), s.bytes) << what;
        }
    }
}

// We read what srec_cat writes as it reads it. srec_cat writes only whole
// words (and its padding filter does not end at the top of the address
// space), so the images are made of whole 64-bit words.
TEST(MemoryFileOracles, WeReadSrecCatsTiTxtVerilogMifAndInhx16)
{
    struct kind_t {
        file_format_t format;
        unsigned width;
        std::vector<std::string> srecOutput;
    };
    const kind_t kinds[] = {{file_format_t::TI_TXT, 8, {"-ti_txt"}},        {file_format_t::VERILOG, 8, {"-vmem", "8"}},
                            {file_format_t::VERILOG, 16, {"-vmem", "16"}},  {file_format_t::VERILOG, 32, {"-vmem", "32"}},
                            {file_format_t::MIF, 8, {"-mif", "8"}},         {file_format_t::MIF, 16, {"-mif", "16"}},
                            {file_format_t::MIF, 32, {"-mif", "32"}},       {file_format_t::INTEL_HEX_16, 16, {"-intel_hex_16"}}};
    std::mt19937 random(252);
    TempDir dir;
    for (int c = 0; c < CASES; ++c) {
        const MemoryImage image = alignedImage(random);
        const std::string hex = writeOurs(image, dir, "image.hex", file_format_t::INTEL_HEX);
        for (const kind_t& k : kinds) {
            const std::string what = std::string(formatInfo(k.format).name) + " " + std::to_string(k.width) +
                                     " case " + std::to_string(c);
            std::vector<std::string> args = {hex, "-intel", "-o", dir.file("theirs")};
            args.insert(args.end(), k.srecOutput.begin(), k.srecOutput.end());
            run(SREC_CAT_PATH, args, what);
            EXPECT_EQ(segmentsOf(readOurs(dir.file("theirs"), k.format, k.width)), segmentsOf(image)) << what;
        }
    }
}

// srec_cat's COE writer takes only an image without holes from address 0
// that fits one of its output blocks (at most 248 bytes of whole words).
TEST(MemoryFileOracles, SrecCatsCoeHoldsOurWords)
{
    std::mt19937 random(253);
    TempDir dir;
    for (int c = 0; c < CASES; ++c) {
        for (unsigned width : {8u, 16u, 32u}) {
            std::vector<uint8_t> bytes(width / 8 * (1 + random() % (240 / (width / 8))));
            for (uint8_t& b : bytes)
                b = static_cast<uint8_t>(random());
            const MemoryImage image = imageOf({{0, bytes}});
            const std::string what = "coe " + std::to_string(width) + " case " + std::to_string(c);
            const std::string hex = writeOurs(image, dir, "image.hex", file_format_t::INTEL_HEX);
            run(SREC_CAT_PATH, {hex, "-intel", "-o", dir.file("theirs.coe"), "-coe", std::to_string(width), "-obs", "248"},
                what);
            const std::string ours = writeOurs(image, dir, "ours.coe", file_format_t::COE, width);
            const std::vector<std::string> words = coeWords(fileText(ours));
            EXPECT_EQ(words.size(), bytes.size() / (width / 8)) << what;
            EXPECT_EQ(words, coeWords(fileText(dir.file("theirs.coe")))) << what;
            EXPECT_NE(fileText(ours).find("memory_initialization_radix=16;"), std::string::npos);
        }
    }
}

TEST(MemoryFileOracles, SrecCatsCArrayHoldsOurBytes)
{
    std::mt19937 random(254);
    TempDir dir;
    for (int c = 0; c < CASES; ++c) {
        std::vector<uint8_t> bytes(1 + random() % 3000);
        for (uint8_t& b : bytes)
            b = static_cast<uint8_t>(random());
        const MemoryImage image = imageOf({{static_cast<uint32_t>(random() % 0x10000000), bytes}});
        const std::string hex = writeOurs(image, dir, "image.hex", file_format_t::INTEL_HEX);
        run(SREC_CAT_PATH, {hex, "-intel", "-o", dir.file("theirs.c"), "-c-array", "image"}, "c array");
        const std::string ours = writeOurs(image, dir, "ours.h", file_format_t::C_ARRAY);
        EXPECT_EQ(cArrayBytes(fileText(ours)), bytes) << c;
        EXPECT_EQ(cArrayBytes(fileText(dir.file("theirs.c"))), bytes) << c;
    }
}

// objcopy writes only Verilog, whole words, first byte most significant.
TEST(MemoryFileOracles, ObjcopysVerilogReadsAsTheImage)
{
    std::mt19937 random(255);
    TempDir dir;
    for (int c = 0; c < CASES; ++c) {
        const MemoryImage image = alignedImage(random);
        const std::string hex = writeOurs(image, dir, "image.hex", file_format_t::INTEL_HEX);
        for (unsigned bytes : {1u, 2u, 4u, 8u}) {
            const std::string what = "verilog " + std::to_string(8 * bytes) + " case " + std::to_string(c);
            run(OBJCOPY_PATH,
                {"-I", "ihex", "-O", "verilog", "--verilog-data-width", std::to_string(bytes), hex, dir.file("theirs.vmem")},
                what);
            EXPECT_EQ(segmentsOf(readOurs(dir.file("theirs.vmem"), file_format_t::VERILOG, 8 * bytes)),
                      segmentsOf(image))
                << what;
        }
    }
}

// The uf2 package of the npm registry, version 2.0.0, installed in
// build/npm by scripts/oracles.sh.
class Uf2Oracle : public ::testing::Test {
protected:
    void SetUp() override
    {
        struct stat status;
        ASSERT_EQ(::stat((std::string(UF2_NODE_MODULES) + "/uf2/package.json").c_str(), &status), 0)
            << "the uf2 package is not in " << UF2_NODE_MODULES << ": scripts/oracles.sh installs it";
        ::setenv("NODE_PATH", UF2_NODE_MODULES, 1);
    }

    std::string node(const std::vector<std::string>& args)
    {
        std::vector<std::string> all = {std::string(TESTS_SOURCE_DIR) + "/formats/oracles/uf2_oracle.js"};
        all.insert(all.end(), args.begin(), args.end());
        const ProcessResult result = runProcess(NODE_PATH_EXECUTABLE, all);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return result.out;
    }
};

TEST_F(Uf2Oracle, ItDecodesOurBlocks)
{
    std::mt19937 random(256);
    TempDir dir;
    for (int c = 0; c < CASES; ++c) {
        const MemoryImage image = randomImage(random, false);
        write_options_t options;
        options.format = file_format_t::UF2;
        // Families that file(1) knows by name: RP2040 and nRF52840.
        const uint32_t families[] = {0xE48BFF56, 0xADA52840};
        const char* familyNames[] = {"family Raspberry Pi RP2040", "family Nordic NRF52840"};
        options.family = c % 2 == 0 ? std::optional<uint32_t>(families[c / 2 % 2]) : std::nullopt;
        options.fill = static_cast<uint8_t>(random());
        const std::string path = dir.file("ours.uf2");
        ASSERT_TRUE(writeFile(image, path.c_str(), options));
        // The blocks we expect: every 256-byte page that holds data, in order.
        std::vector<uint32_t> pages;
        for (const segment_t& s : image.segments())
            for (uint64_t page = s.address & ~0xFFull; page < uint64_t{s.address} + s.bytes.size(); page += 256)
                if (pages.empty() || pages.back() != page)
                    pages.push_back(static_cast<uint32_t>(page));
        std::istringstream lines(node({"decode", path}));
        std::string line;
        size_t number = 0;
        for (; std::getline(lines, line); ++number) {
            ASSERT_LT(number, pages.size());
            std::istringstream fields(line);
            uint64_t flags, address, blockNumber, total, family;
            std::string payload;
            fields >> flags >> address >> blockNumber >> total >> family >> payload;
            EXPECT_EQ(flags, options.family ? 0x2000u : 0u);
            EXPECT_EQ(address, pages[number]);
            EXPECT_EQ(blockNumber, number);
            EXPECT_EQ(total, pages.size());
            EXPECT_EQ(family, options.family.value_or(0));
            std::string expected;
            char digits[3];
            for (uint8_t b : image.copyRange(pages[number], 256, options.fill)) {
                std::snprintf(digits, sizeof digits, "%02x", b);
                expected += digits;
            }
            EXPECT_EQ(payload, expected) << "block " << number;
        }
        EXPECT_EQ(number, pages.size()) << c;
        const ProcessResult file = runProcess("file", {"-b", path});
        EXPECT_EQ(file.exitCode, 0);
        EXPECT_EQ(file.out.rfind("UF2 firmware image", 0), 0u) << file.out;
        if (options.family) {
            EXPECT_NE(file.out.find(familyNames[c / 2 % 2]), std::string::npos) << file.out;
        }
    }
}

TEST_F(Uf2Oracle, WeReadTheBlocksItEncodes)
{
    std::mt19937 random(257);
    TempDir dir;
    for (int c = 0; c < CASES; ++c) {
        // Blocks of 4 to 476 bytes at 4-byte-aligned addresses that do not
        // overlap, in any order, some not for the flash, some of a family.
        std::string blockList;
        MemoryImage expected;
        const size_t count = 1 + random() % 20;
        uint64_t next = 4 * (random() % 0x4000000);
        std::vector<std::string> lines;
        for (size_t i = 0; i < count; ++i) {
            const size_t size = 4 * (1 + random() % 119);
            if (next + size > 0x100000000ull)
                break;
            std::vector<uint8_t> payload(size);
            std::string hex;
            char digits[3];
            for (uint8_t& b : payload) {
                b = static_cast<uint8_t>(random());
                std::snprintf(digits, sizeof digits, "%02x", b);
                hex += digits;
            }
            const bool notForFlash = random() % 5 == 0;
            const bool family = random() % 2 == 0;
            const unsigned flags = (notForFlash ? 1u : 0u) | (family ? 0x2000u : 0u);
            lines.push_back(std::to_string(flags) + " " + std::to_string(next) + " " + std::to_string(i) + " " +
                            std::to_string(count) + " " + std::to_string(family ? 0xADA52840u : 0u) + " " + hex);
            if (!notForFlash)
                expected.write(static_cast<uint32_t>(next), payload.data(), payload.size());
            next += size + 4 * (random() % 3) * (random() % 64);
        }
        std::shuffle(lines.begin(), lines.end(), random);
        for (const std::string& l : lines)
            blockList += l + "\n";
        const std::string listPath = dir.write("blocks.txt", blockList);
        node({"encode", listPath, dir.file("theirs.uf2")});
        MemoryImage image;
        const read_result_t read = readFile(image, dir.file("theirs.uf2").c_str());
        ASSERT_TRUE(read) << read.reason;
        EXPECT_EQ(read.blocks, lines.size());
        EXPECT_EQ(segmentsOf(image), segmentsOf(expected)) << c;
    }
}

// A C array compiled into a C99 program and a C++ program gives back the
// image: its segments, their addresses and sizes, and the start address.
TEST(MemoryFileOracles, ACArrayCompiledIntoAProgramGivesBackTheImage)
{
    std::mt19937 random(258);
    TempDir dir;
    MemoryImage image = randomImage(random, true);
    write_options_t options;
    options.format = file_format_t::C_ARRAY;
    options.name = "firmware";
    ASSERT_TRUE(writeFile(image, dir.file("firmware.h").c_str(), options));
    const std::string program = dir.write("print.c",
                                          "#include <stdio.h>\n"
                                          "#include \"firmware.h\"\n"
                                          "int main(void)\n{\n"
                                          "    unsigned i, j;\n"
                                          "    for (i = 0; i < FIRMWARE_SEGMENT_COUNT; ++i) {\n"
                                          "        printf(\"%08X %u\", (unsigned)firmware_segments[i].address,\n"
                                          "               (unsigned)firmware_segments[i].size);\n"
                                          "        for (j = 0; j < firmware_segments[i].size; ++j)\n"
                                          "            printf(\" %02X\", firmware_segments[i].bytes[j]);\n"
                                          "        printf(\"\\n\");\n"
                                          "    }\n"
                                          "    printf(\"start %08X\\n\", (unsigned)FIRMWARE_START_ADDRESS);\n"
                                          "    return 0;\n}\n");
    std::string expected;
    char text[32];
    for (const segment_t& s : image.segments()) {
        std::snprintf(text, sizeof text, "%08X %zu", s.address, s.bytes.size());
        expected += text;
        for (uint8_t b : s.bytes) {
            std::snprintf(text, sizeof text, " %02X", b);
            expected += text;
        }
        expected += "\n";
    }
    std::snprintf(text, sizeof text, "start %08X\n", image.startAddress().value);
    expected += text;
    const std::vector<std::pair<std::string, std::vector<std::string>>> compilers = {
        {C_COMPILER_PATH, {"-std=c99", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-x", "c"}},
        {CXX_COMPILER_PATH, {"-std=c++17", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-x", "c++"}}};
    for (const auto& compiler : compilers) {
        std::vector<std::string> args = compiler.second;
        args.insert(args.end(), {program, "-o", dir.file("print")});
        run(compiler.first, args, compiler.first);
        const ProcessResult printed = runProcess(dir.file("print"), {});
        ASSERT_EQ(printed.exitCode, 0) << compiler.first;
        EXPECT_EQ(printed.out, expected) << compiler.first;
    }
}
