// The writers and readers against independent tools, on random images with
// gaps, several 64 KiB windows, data at 0 and right up to 0xFFFFFFFF, with
// and without start addresses:
// - our Intel HEX and S-records read by objcopy, srec_cat and python
//   intelhex give the same image;
// - what those tools write, read by us, gives the same image;
// - our reader on our writer's output gives the same image.
#include "formats.h"
#include "memory_image.h"
#include "support/image_view.h"
#include "support/reference_records.h"
#include "support/run_process.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {


const int CASES = 24;

std::string fileText(const std::string& path)
{
    const std::vector<uint8_t> bytes = readFileBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

std::string save(const MemoryImage& image, const TempDir& dir, const std::string& name, file_format_t format,
                 unsigned recordSize)
{
    write_options_t options;
    options.format = format;
    options.recordSize = recordSize;
    const std::string path = dir.file(name);
    const result_t saved = writeFile(image, path.c_str(), options);
    EXPECT_TRUE(saved) << saved.reason;
    return path;
}

// The linear start address, 0 when there is none: S-records cannot tell
// the two apart, so a start address that went through them is compared so.
uint32_t startOrZero(const MemoryImage& image)
{
    return image.hasStartAddress() ? image.startAddress().value : 0;
}

// Reads path with our reader and checks it gives image, start address
// included (as startOrZero() when it went through S-records).
void expectWeRead(const std::string& path, const MemoryImage& image, const std::string& what, bool viaSrecords)
{
    MemoryImage read;
    const read_result_t result = readFile(read, path.c_str());
    ASSERT_TRUE(result) << what << ": " << result.line << ": " << result.reason;
    EXPECT_EQ(segmentsOf(read), segmentsOf(image)) << what;
    if (viaSrecords) {
        EXPECT_EQ(startOrZero(read), startOrZero(image)) << what;
    } else {
        EXPECT_EQ(startOf(read), startOf(image)) << what;
    }
}

void expectStart(const ReferenceRecords& records, const MemoryImage& image, const std::string& what)
{
    EXPECT_EQ(records.hasStart ? records.start : 0, startOrZero(image)) << what;
}

// Runs a tool that must succeed.
void run(const std::string& program, const std::vector<std::string>& args, const std::string& what)
{
    const ProcessResult result = runProcess(program, args);
    ASSERT_EQ(result.exitCode, 0) << what << ": " << result.err;
}

// Runs a tool that reads our file and writes its own (args name both), then
// checks the tool's file: with the plain reference reader (did the tool read
// ours right?) and with our reader (do we read the tool's right?). Its
// records are S-records when theirsIsSrecords, else Intel HEX.
void expectToolAgrees(const MemoryImage& image, const std::string& program, const std::vector<std::string>& args,
                      const std::string& theirs, bool theirsIsSrecords, const std::string& what)
{
    run(program, args, what);
    const std::string text = fileText(theirs);
    const ReferenceRecords records = theirsIsSrecords ? readSrecordReference(text) : readHexReference(text);
    expectSameData(image, records, what + ": " + program + " read our file");
    expectStart(records, image, what + ": " + program + " read our file");
    expectWeRead(theirs, image, what + ": we read " + program + "'s file", true);
}

// Python intelhex reads a HEX file and prints its start address and
// segments, then writes the file again as it writes HEX.
const char PYTHON_INTELHEX[] = R"(
import sys
from intelhex import IntelHex
ih = IntelHex(sys.argv[1])
start = ih.start_addr or {}
print('start', start.get('EIP', 'none'))
for begin, end in ih.segments():
    print('segment', begin, ih.tobinstr(begin, end - 1).hex())
ih.write_hex_file(sys.argv[2])
)";

class FormatOracles : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        std::mt19937 random(2026);
        for (int i = 0; i < CASES; ++i)
            images_.push_back(randomImage(random, i % 2 == 0));
    }
    static void TearDownTestSuite() { images_.clear(); }

    static std::vector<MemoryImage> images_;
};

std::vector<MemoryImage> FormatOracles::images_;

} // namespace

TEST_F(FormatOracles, ObjcopyReadsOurHexAndSrecordsAndWeReadItsOutput)
{
    TempDir dir;
    for (int i = 0; i < CASES; ++i) {
        const MemoryImage& image = images_[static_cast<size_t>(i)];
        const std::string what = "case " + std::to_string(i);
        const std::string hex = save(image, dir, "ours.hex", file_format_t::INTEL_HEX, 1 + (i * 37) % 255);
        // objcopy sizes the start address by the data addresses unless told.
        expectToolAgrees(image, OBJCOPY_PATH, {"-I", "ihex", "-O", "srec", "--srec-forceS3", hex, dir.file("objcopy.srec")},
                         dir.file("objcopy.srec"), true, what + ", our HEX");
        const std::string srec = save(image, dir, "ours.srec", file_format_t::SRECORD, 1 + (i * 41) % 250);
        expectToolAgrees(image, OBJCOPY_PATH, {"-I", "srec", "-O", "ihex", srec, dir.file("objcopy.hex")},
                         dir.file("objcopy.hex"), false, what + ", our S-records");
    }
}

TEST_F(FormatOracles, SrecCatReadsOurHexAndSrecordsAndWeReadItsOutput)
{
    TempDir dir;
    for (int i = 0; i < CASES; ++i) {
        const MemoryImage& image = images_[static_cast<size_t>(i)];
        const std::string what = "case " + std::to_string(i);
        const std::string hex = save(image, dir, "ours.hex", file_format_t::INTEL_HEX, 1 + (i * 53) % 255);
        expectToolAgrees(image, SREC_CAT_PATH, {hex, "-intel", "-o", dir.file("srec_cat.srec"), "-motorola"},
                         dir.file("srec_cat.srec"), true, what + ", our HEX");
        const std::string srec = save(image, dir, "ours.srec", file_format_t::SRECORD, 1 + (i * 59) % 250);
        expectToolAgrees(image, SREC_CAT_PATH, {srec, "-motorola", "-o", dir.file("srec_cat.hex"), "-intel"},
                         dir.file("srec_cat.hex"), false, what + ", our S-records");
    }
}

TEST_F(FormatOracles, PythonIntelhexReadsOurHexAndWeReadItsOutput)
{
    TempDir dir;
    const std::string script = dir.write("intelhex_check.py", PYTHON_INTELHEX);
    for (int i = 0; i < CASES; ++i) {
        const MemoryImage& image = images_[static_cast<size_t>(i)];
        const std::string what = "case " + std::to_string(i);
        const std::string hex = save(image, dir, "ours.hex", file_format_t::INTEL_HEX, 16);
        const ProcessResult python = runProcess(PYTHON3_PATH, {script, hex, dir.file("python.hex")});
        ASSERT_EQ(python.exitCode, 0) << what << ": " << python.err;

        std::istringstream lines(python.out);
        std::string word, value;
        lines >> word >> value;
        ASSERT_EQ(word, "start") << what;
        EXPECT_EQ(value, image.hasStartAddress() ? std::to_string(image.startAddress().value) : "none") << what;
        std::vector<SegmentView> segments;
        uint64_t address = 0;
        std::string digits;
        while (lines >> word >> address >> digits) {
            SegmentView segment{static_cast<uint32_t>(address), {}};
            for (size_t d = 0; d + 1 < digits.size(); d += 2)
                segment.bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(d, 2), nullptr, 16)));
            segments.push_back(segment);
        }
        EXPECT_EQ(segments, segmentsOf(image)) << what << ": python intelhex read our HEX";
        expectWeRead(dir.file("python.hex"), image, what + ": we read python intelhex's HEX", false);
    }
}

TEST_F(FormatOracles, OurReaderOnOurWriterWithEveryOption)
{
    for (int i = 0; i < CASES; ++i) {
        MemoryImage image = images_[static_cast<size_t>(i)];
        ASSERT_TRUE(image.setHeader(i % 3 == 0 ? "case " + std::to_string(i) : ""));
        for (file_format_t format : {file_format_t::INTEL_HEX, file_format_t::SRECORD}) {
            write_options_t options;
            options.format = format;
            options.recordSize = 1 + static_cast<unsigned>(i * 31) % 250;
            options.crlf = i % 2 == 1;
            options.addressSize = format == file_format_t::SRECORD && i % 4 == 3 ? 4 : 0;
            std::ostringstream out;
            ASSERT_TRUE(writeStream(image, out, options)) << i;
            const std::string text = out.str();
            MemoryImage read;
            const read_result_t result = readMemory(read, text.data(), text.size());
            ASSERT_TRUE(result) << i << ": " << result.reason;
            EXPECT_TRUE(result.warnings.empty()) << i;
            EXPECT_EQ(segmentsOf(read), segmentsOf(image)) << i;
            EXPECT_EQ(startOf(read), startOf(image)) << i;
            EXPECT_EQ(read.header(), format == file_format_t::SRECORD ? image.header() : "") << i;
        }
    }
}

TEST(FormatOraclesSmall, SegmentAddressingReadByObjcopyAndSrecCat)
{
    // Segment addressing reaches the first MiB only: images below 64 KiB,
    // moved up by up to 15 windows.
    std::mt19937 random(7);
    TempDir dir;
    for (int i = 0; i < 12; ++i) {
        const MemoryImage small = randomImage(random, false, true);
        MemoryImage image;
        const uint32_t shift = static_cast<uint32_t>(random() % 16) << 16;
        for (const segment_t& s : small.segments())
            image.write(s.address % 0x10000 + shift, s.bytes.data(), s.bytes.size());
        write_options_t options;
        options.addressing = addressing_t::SEGMENT;
        const std::string hex = dir.file("segment.hex");
        ASSERT_TRUE(writeFile(image, hex.c_str(), options));
        run(OBJCOPY_PATH, {"-I", "ihex", "-O", "srec", hex, dir.file("objcopy.srec")}, "objcopy");
        expectSameData(image, readSrecordReference(fileText(dir.file("objcopy.srec"))), "objcopy, segment addressing");
        run(SREC_CAT_PATH, {hex, "-intel", "-o", dir.file("srec_cat.srec"), "-motorola"}, "srec_cat");
        expectSameData(image, readSrecordReference(fileText(dir.file("srec_cat.srec"))), "srec_cat, segment addressing");
        expectWeRead(hex, image, "our reader, segment addressing", false);
    }
}

TEST(FormatOraclesBinary, ObjcopyBinaryInputAndOutputAgreeWithOurs)
{
    std::mt19937 random(99);
    TempDir dir;
    for (int i = 0; i < 8; ++i) {
        const MemoryImage image = randomImage(random, false, true);
        const uint32_t base = image.lowestAddress();
        // Our flat binary against objcopy's from our HEX.
        write_options_t flat;
        flat.format = file_format_t::BINARY;
        ASSERT_TRUE(writeFile(image, dir.file("ours.bin").c_str(), flat));
        const std::string hex = save(image, dir, "ours.hex", file_format_t::INTEL_HEX, 16);
        run(OBJCOPY_PATH, {"-I", "ihex", "-O", "binary", "--gap-fill", "0xFF", hex, dir.file("objcopy.bin")}, "objcopy");
        EXPECT_EQ(readFileBytes(dir.file("ours.bin")), readFileBytes(dir.file("objcopy.bin"))) << i;
        // objcopy's HEX of that binary at the same address, read by us.
        char address[16];
        std::snprintf(address, sizeof address, "0x%08X", base);
        run(OBJCOPY_PATH, {"-I", "binary", "-O", "ihex", "--change-addresses", address, dir.file("ours.bin"),
                           dir.file("from-binary.hex")},
            "objcopy");
        MemoryImage read;
        ASSERT_TRUE(readFile(read, dir.file("from-binary.hex").c_str()));
        read_options_t binary;
        binary.detect = false;
        binary.format = file_format_t::BINARY;
        binary.address = base;
        MemoryImage fromBinary;
        ASSERT_TRUE(readFile(fromBinary, dir.file("ours.bin").c_str(), binary));
        EXPECT_EQ(segmentsOf(read), segmentsOf(fromBinary)) << i;
        EXPECT_EQ(fromBinary.span(), image.span()) << i;
        // That binary written as it is read, as HEX and as S-records, read
        // back by objcopy.
        for (const char* format : {"ihex", "srec"}) {
            write_options_t options;
            options.format = format[0] == 'i' ? file_format_t::INTEL_HEX : file_format_t::SRECORD;
            options.recordSize = 1 + static_cast<unsigned>(i * 29) % 250;
            const std::string streamed = dir.file(std::string("streamed.") + format);
            const convert_result_t converted =
                convertBinaryFile(dir.file("ours.bin").c_str(), base, streamed.c_str(), options);
            ASSERT_TRUE(converted) << converted.reason;
            run(OBJCOPY_PATH, {"-I", format, "-O", "binary", streamed, dir.file("back.bin")}, "objcopy");
            EXPECT_EQ(readFileBytes(dir.file("back.bin")), readFileBytes(dir.file("ours.bin"))) << i << " " << format;
        }
    }
}
