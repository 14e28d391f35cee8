// Reading ELF files into a MemoryImage: hand-made files of both classes and
// byte orders with exact expectations, every kind of bad file, and files
// made by the installed compilers checked against objcopy -O binary.
#include "formats.h"
#include "memory_image.h"
#include "support/capture.h"
#include "support/elf_builder.h"
#include "support/image_view.h"
#include "support/run_process.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace hexblocks;

namespace {


read_result_t readElf(MemoryImage& image, const std::string& file)
{
    return readMemory(image, file.data(), file.size());
}

std::string failureOf(const std::string& file)
{
    MemoryImage image = imageOf({{7, {7}}});
    const read_result_t result = readElf(image, file);
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{7, {7}}})) << "a failed read changed the image";
    return result ? "ok" : result.reason;
}

const std::vector<ElfSegment> TWO_SEGMENTS = {{1, 0x08000000, 0x20000000, {1, 2, 3}},
                                              {6, 0x100, 0x100, {9, 9}}, // PT_PHDR: not loaded
                                              {1, 0x08010000, 0x08010000, {4, 5}}};

struct ElfKind {
    bool is64;
    bool big;
};

class ElfKinds : public ::testing::TestWithParam<ElfKind> {};

} // namespace

TEST_P(ElfKinds, LoadSegmentsAtTheirPhysicalAddressesAndTheEntryPoint)
{
    const ElfBuilder builder(GetParam().is64, GetParam().big);
    MemoryImage image;
    const read_result_t result = readElf(image, builder.build(0x08000131, TWO_SEGMENTS));
    ASSERT_TRUE(result) << result.reason;
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x08000000, {1, 2, 3}}, {0x08010000, {4, 5}}}));
    EXPECT_EQ(startOf(image), "type 5 value " + std::to_string(0x08000131));
    EXPECT_EQ(result.line, 0u);
    EXPECT_TRUE(result.warnings.empty());
}

TEST_P(ElfKinds, ObjcopyAgrees)
{
    // objcopy makes sections of the program headers of a file without
    // section headers; its flat binary must equal ours.
    const ElfBuilder builder(GetParam().is64, GetParam().big);
    TempDir dir;
    const std::string elf = dir.write("hand.elf", builder.build(0x08000131, TWO_SEGMENTS));
    const std::string target = std::string(GetParam().is64 ? "elf64-" : "elf32-") + (GetParam().big ? "big" : "little");
    const ProcessResult objcopy =
        runProcess(OBJCOPY_PATH, {"-I", target, "-O", "binary", "--gap-fill", "0xFF", elf, dir.file("objcopy.bin")});
    ASSERT_EQ(objcopy.exitCode, 0) << objcopy.err;
    MemoryImage image;
    ASSERT_TRUE(readFile(image, elf.c_str()));
    write_options_t flat;
    flat.format = file_format_t::BINARY;
    ASSERT_TRUE(writeFile(image, dir.file("ours.bin").c_str(), flat));
    EXPECT_EQ(readFileBytes(dir.file("ours.bin")), readFileBytes(dir.file("objcopy.bin")));
}

TEST_P(ElfKinds, SegmentsThatMeetAreJoined)
{
    const ElfBuilder builder(GetParam().is64, GetParam().big);
    MemoryImage image;
    ASSERT_TRUE(readElf(image, builder.build(0, {{1, 0x1003, 0x1003, {4}}, {1, 0x1000, 0x1000, {1, 2, 3}}})));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x1000, {1, 2, 3, 4}}}));
    EXPECT_FALSE(image.hasStartAddress()) << "an entry point of 0 is no start address";
}

TEST_P(ElfKinds, VirtualAddressesWhenNoPhysicalAddressIsSet)
{
    const ElfBuilder builder(GetParam().is64, GetParam().big);
    MemoryImage image;
    ASSERT_TRUE(readElf(image, builder.build(0, {{1, 0, 0x2000, {1}}, {1, 0, 0x3000, {2}}})));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x2000, {1}}, {0x3000, {2}}}));
}

TEST_P(ElfKinds, ASegmentRightUpTo0xFFFFFFFF)
{
    const ElfBuilder builder(GetParam().is64, GetParam().big);
    MemoryImage image;
    ASSERT_TRUE(readElf(image, builder.build(0, {{1, 0xFFFFFFFE, 0xFFFFFFFE, {1, 2}}})));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0xFFFFFFFE, {1, 2}}}));
    EXPECT_EQ(failureOf(builder.build(0, {{1, 0xFFFFFFFE, 0xFFFFFFFE, {1, 2, 3}}})),
              "section .s0 at 0xFFFFFFFE (3 bytes) lies outside the 32-bit address space");
    ElfBuilder stripped(GetParam().is64, GetParam().big);
    stripped.withoutSections();
    ASSERT_TRUE(readElf(image, stripped.build(0, {{1, 0xFFFFFFFE, 0xFFFFFFFE, {1, 2}}})));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0xFFFFFFFE, {1, 2}}}));
    EXPECT_EQ(failureOf(stripped.build(0, {{1, 0xFFFFFFFE, 0xFFFFFFFE, {1, 2, 3}}})),
              "segment 0 at 0xFFFFFFFE (3 bytes) lies outside the 32-bit address space");
}

TEST_P(ElfKinds, TruncatedFiles)
{
    const ElfBuilder builder(GetParam().is64, GetParam().big);
    const std::string file = builder.build(0x08000131, TWO_SEGMENTS);
    const size_t headerSize = GetParam().is64 ? 64 : 52;
    EXPECT_EQ(failureOf(file.substr(0, 10)), "truncated ELF file: 10 bytes");
    EXPECT_EQ(failureOf(file.substr(0, 40)), "truncated ELF file: the header needs " + std::to_string(headerSize) +
                                                 " bytes, the file has 40");
    EXPECT_EQ(failureOf(file.substr(0, headerSize + 10)),
              "truncated ELF file: program header 0 lies past its end");
    const size_t dataEnd = builder.dataEnd(TWO_SEGMENTS);
    EXPECT_EQ(failureOf(file.substr(0, file.size() - 1)),
              "truncated ELF file: section header " + std::to_string(TWO_SEGMENTS.size() + 1) + " lies past its end");
    // Without section headers the segments are read whole.
    ElfBuilder stripped(GetParam().is64, GetParam().big);
    const std::string cut = stripped.withoutSections().build(0x08000131, TWO_SEGMENTS).substr(0, dataEnd - 1);
    EXPECT_EQ(failureOf(cut), "truncated ELF file: segment 2 needs bytes " + std::to_string(dataEnd - 2) + " to " +
                                  std::to_string(dataEnd) + ", the file has " + std::to_string(cut.size()));
}

TEST_P(ElfKinds, OverlappingSegmentsAreAnError)
{
    const ElfBuilder builder(GetParam().is64, GetParam().big);
    const std::vector<ElfSegment> overlapping = {{1, 0x1000, 0x1000, {1, 2, 3}}, {1, 0x1002, 0x1002, {4}}};
    EXPECT_EQ(failureOf(builder.build(0, overlapping)), "section .s0 and section .s1 overlap at 0x00001002");
    ElfBuilder stripped(GetParam().is64, GetParam().big);
    EXPECT_EQ(failureOf(stripped.withoutSections().build(0, overlapping)), "segment 0 and segment 1 overlap at 0x00001002");
}

INSTANTIATE_TEST_SUITE_P(ClassesAndByteOrders, ElfKinds,
                         ::testing::Values(ElfKind{false, false}, ElfKind{false, true}, ElfKind{true, false},
                                           ElfKind{true, true}),
                         [](const ::testing::TestParamInfo<ElfKind>& info) {
                             return std::string(info.param.is64 ? "Elf64" : "Elf32") +
                                    (info.param.big ? "BigEndian" : "LittleEndian");
                         });

TEST(ElfReader, AddressesBeyond32BitsInA64BitFile)
{
    const ElfBuilder builder(true, false);
    EXPECT_EQ(failureOf(builder.build(0, {{1, 0x100000000ull, 0x100000000ull, {1}}})),
              "section .s0 at 0x100000000 (1 bytes) lies outside the 32-bit address space");
    EXPECT_EQ(failureOf(builder.build(0x100000000ull, {{1, 0x1000, 0x1000, {1}}})),
              "the entry point 0x100000000 lies outside the 32-bit address space");
}

TEST(ElfReader, AnObjectFileWithoutProgramHeadersIsAnError)
{
    EXPECT_EQ(failureOf(ElfBuilder(false, false).build(0, {})),
              "no program headers: a relocatable object file, not a linked program");
}

TEST(ElfReader, NotElfAndBadIdentification)
{
    read_options_t elf;
    elf.detect = false;
    elf.format = file_format_t::ELF;
    MemoryImage image;
    const std::string text = ":00000001FF\n";
    EXPECT_EQ(readMemory(image, text.data(), text.size(), elf).reason,
              "not an ELF file: it does not start with the ELF magic bytes");
    std::string file = ElfBuilder(false, false).build(0, {});
    file[4] = 3;
    EXPECT_EQ(failureOf(file), "bad ELF file: unknown class 3");
    file[4] = 1;
    file[5] = 0;
    EXPECT_EQ(failureOf(file), "bad ELF file: unknown byte order 0");
}

TEST(ElfReader, ReadingPrintsNothing)
{
    const CapturedOutput output = captureOutput([] {
        MemoryImage image;
        readElf(image, ElfBuilder(false, true).build(0x10, TWO_SEGMENTS));
        readElf(image, std::string("\x7F" "ELF", 4));
    });
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
}

namespace {

// Builds source with script by each installed compiler, and hands check()
// the compiler, the file and objcopy's flat binary of it
// (-O binary --gap-fill 0xFF). Returns how many were built.
template <typename Check>
size_t buildWithEachToolchain(TempDir& dir, const std::string& source, const std::string& script, Check&& check)
{
    const std::string toolchains = ELF_TOOLCHAINS; // "compiler|objcopy,..."
    size_t built = 0;
    for (size_t start = 0; start < toolchains.size();) {
        const size_t end = std::min(toolchains.find(',', start), toolchains.size());
        const std::string pair = toolchains.substr(start, end - start);
        start = end + 1;
        const std::string compiler = pair.substr(0, pair.find('|'));
        const std::string objcopy = pair.substr(pair.find('|') + 1);
        const std::string elf = dir.file("built-" + std::to_string(built) + ".elf");
        const ProcessResult compiled =
            runProcess(compiler, {"-nostdlib", "-static", "-fno-pie", "-no-pie", "-fno-asynchronous-unwind-tables",
                                  "-Wl,-T," + script, "-Wl,--entry=0x08000101", "-Wl,--build-id=none", "-o", elf,
                                  source});
        EXPECT_EQ(compiled.exitCode, 0) << compiler << ": " << compiled.err;
        const ProcessResult flat = runProcess(objcopy, {"-O", "binary", "--gap-fill", "0xFF", elf, elf + ".bin"});
        EXPECT_EQ(flat.exitCode, 0) << objcopy << ": " << flat.err;
        if (compiled.exitCode != 0 || flat.exitCode != 0)
            continue;
        check(compiler, elf, readFileBytes(elf + ".bin"));
        ++built;
    }
    return built;
}

// The image from its lowest address, fill where there is no data: what
// objcopy -O binary --gap-fill 0xFF makes.
std::vector<uint8_t> flatImage(const MemoryImage& image)
{
    return image.empty() ? std::vector<uint8_t>() : image.copyRange(image.lowestAddress(), image.span(), 0xFF);
}

} // namespace

// Files made by the installed compilers, with sections at chosen load
// addresses (one loaded at an address other than where it runs, one across
// a 64 KiB boundary), against objcopy -O binary --gap-fill 0xFF.
TEST(ElfReader, CompilerMadeFilesGiveTheImageOfObjcopy)
{
    TempDir dir;
    const std::string source = dir.write("sections.cpp",
                                         "__attribute__((section(\".b\"), used)) const unsigned char b[] = {9, 10, 11};\n"
                                         "__attribute__((section(\".c\"), used)) const unsigned char c[] = {12, 13, 14, 15, 16};\n"
                                         "__attribute__((section(\".a\"), used)) const unsigned char a[] = {1, 2, 3, 4, 5, 6, 7, 8};\n");
    const std::string script = dir.write("sections.ld", "SECTIONS\n{\n"
                                                        "  .b 0x08001000 : { KEEP(*(.b)) }\n"
                                                        "  .c 0x0801FFFC : { KEEP(*(.c)) }\n"
                                                        "  .a 0x20000000 : AT(0x08000000) { KEEP(*(.a)) }\n"
                                                        "  /DISCARD/ : { *(*) }\n}\n");
    const size_t built = buildWithEachToolchain(
        dir, source, script, [](const std::string& compiler, const std::string& elf, const std::vector<uint8_t>& flat) {
            MemoryImage image;
            const read_result_t read = readFile(image, elf.c_str());
            ASSERT_TRUE(read) << compiler << ": " << read.reason;
            EXPECT_EQ(image.copyRange(0x08000000, 8), std::vector<uint8_t>({1, 2, 3, 4, 5, 6, 7, 8})) << compiler;
            EXPECT_EQ(image.copyRange(0x08001000, 3), std::vector<uint8_t>({9, 10, 11})) << compiler;
            EXPECT_EQ(image.copyRange(0x0801FFFC, 5), std::vector<uint8_t>({12, 13, 14, 15, 16})) << compiler;
            EXPECT_EQ(startOf(image), "type 5 value " + std::to_string(0x08000101)) << compiler;
            EXPECT_EQ(flatImage(image), flat) << compiler;
        });
    EXPECT_GE(built, 1u);
}

// A linker script that loads the ELF and program headers in the first
// segment, with a gap between two sections of that segment and .data stored
// in flash after .rodata (run in RAM, loaded in flash): the image is the
// sections, at their load addresses, as objcopy makes it, and neither the
// headers nor the gap are data.
TEST(ElfReader, OnlySectionsAreDataNotTheHeadersOrGapsOfTheirSegment)
{
    TempDir dir;
    const std::string source = dir.write("headers.c",
                                         "__attribute__((section(\".text.a\"), used)) const unsigned char t[] = {1, 2, 3, 4, 5};\n"
                                         "__attribute__((section(\".r\"), used)) const unsigned char r[] = {6, 7, 8};\n"
                                         "__attribute__((section(\".d\"), used)) unsigned char d[] = {9, 10, 11, 12};\n");
    const std::string script = dir.write("headers.ld", "PHDRS { flash PT_LOAD FILEHDR PHDRS; ram PT_LOAD; }\n"
                                                       "SECTIONS\n{\n"
                                                       "  . = 0x08000000 + SIZEOF_HEADERS;\n"
                                                       "  .text : { KEEP(*(.text.a)) } :flash\n"
                                                       "  .rodata ALIGN(0x40) : { KEEP(*(.r)) } :flash\n"
                                                       "  .data 0x20000000 : AT(LOADADDR(.rodata) + SIZEOF(.rodata))"
                                                       " { KEEP(*(.d)) } :ram\n"
                                                       "  /DISCARD/ : { *(*) }\n}\n");
    const size_t built = buildWithEachToolchain(
        dir, source, script, [](const std::string& compiler, const std::string& elf, const std::vector<uint8_t>& flat) {
            MemoryImage image;
            const read_result_t read = readFile(image, elf.c_str());
            ASSERT_TRUE(read) << compiler << ": " << read.reason;
            ASSERT_EQ(image.segments().size(), 2u) << compiler << ": .text, then .rodata and .data's load bytes";
            EXPECT_GT(image.lowestAddress(), 0x08000000u) << compiler << ": the ELF header is not data";
            EXPECT_FALSE(image.hasDataAt(0x08000000)) << compiler;
            EXPECT_EQ(image.copyRange(image.lowestAddress(), 5), std::vector<uint8_t>({1, 2, 3, 4, 5})) << compiler;
            const segment_t& loaded = image.segments()[1];
            EXPECT_EQ(loaded.address % 0x40, 0u) << compiler;
            EXPECT_EQ(loaded.bytes, std::vector<uint8_t>({6, 7, 8, 9, 10, 11, 12})) << compiler;
            EXPECT_EQ(flatImage(image), flat) << compiler;
        });
    EXPECT_GE(built, 1u);
}

// A file whose section headers were stripped is read by its load segments,
// headers and all.
TEST(ElfReader, WithoutSectionHeadersTheSegmentsAreReadWhole)
{
    ElfBuilder builder(false, false);
    const std::vector<ElfSegment> segments = {{1, 0x08000000, 0x08000000, {0x7F, 'E', 'L', 'F', 1, 2, 3}}};
    MemoryImage image;
    ASSERT_TRUE(readElf(image, builder.withoutSections().build(0, segments)));
    EXPECT_EQ(segmentsOf(image), std::vector<SegmentView>({{0x08000000, {0x7F, 'E', 'L', 'F', 1, 2, 3}}}));
}
