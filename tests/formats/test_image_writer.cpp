// Writing a MemoryImage: the exact text of Intel HEX and S-record output, the
// bytes of binary output, every option and its limits, and writeFile()'s
// promise that a failure leaves no partial file.
#include "formats.h"
#include "memory_image.h"
#include "support/capture.h"
#include "support/hex_text.h"
#include "support/image_view.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>

using namespace hexblocks;

namespace {


write_options_t optionsFor(file_format_t format)
{
    write_options_t options;
    options.format = format;
    return options;
}

// What save() writes, or "failed: REASON".
std::string saved(const MemoryImage& image, const write_options_t& options = write_options_t())
{
    std::ostringstream out;
    const result_t result = writeStream(image, out, options);
    if (!result)
        return "failed: " + result.reason + (out.str().empty() ? "" : " (after writing " + out.str() + ")");
    return out.str();
}

std::string savedSrecords(const MemoryImage& image, write_options_t options = optionsFor(file_format_t::SRECORD))
{
    options.format = file_format_t::SRECORD;
    return saved(image, options);
}

MemoryImage withStart(MemoryImage image, uint8_t type, uint32_t value)
{
    EXPECT_TRUE(image.setStartAddress({type, value}));
    return image;
}

// A stream buffer that keeps only the number of bytes and the last lines.
class TailBuffer : public std::streambuf {
public:
    uint64_t count = 0;
    std::string tail;

protected:
    std::streamsize xsputn(const char* s, std::streamsize n) override
    {
        count += static_cast<uint64_t>(n);
        tail.append(s, static_cast<size_t>(n));
        if (tail.size() > 4096)
            tail.erase(0, tail.size() - 1024);
        return n;
    }
    int_type overflow(int_type c) override
    {
        if (c != traits_type::eof()) {
            const char ch = static_cast<char>(c);
            xsputn(&ch, 1);
        }
        return c;
    }
};

} // namespace

// --- Intel HEX ------------------------------------------------------------

TEST(HexWriter, RecordsOf16BytesThenTheEndRecord)
{
    EXPECT_EQ(saved(imageOf({{0, countingBytes(18)}})), ":10000000000102030405060708090A0B0C0D0E0F78\n"
                                                       ":020010001011CD\n"
                                                       ":00000001FF\n");
}

TEST(HexWriter, EmptyImageIsJustTheEndRecord)
{
    EXPECT_EQ(saved(MemoryImage()), ":00000001FF\n");
}

TEST(HexWriter, RecordsNeverCrossA64KiBBoundaryAndTheAddressRecordComesWhenTheUpperBitsChange)
{
    EXPECT_EQ(saved(imageOf({{0xFFF8, countingBytes(16)}})), ":08FFF8000001020304050607E5\n"
                                                           ":020000040001F9\n"
                                                           ":0800000008090A0B0C0D0E0F9C\n"
                                                           ":00000001FF\n");
}

TEST(HexWriter, OneAddressRecordPerChangeOfTheUpperBits)
{
    const std::string text =
        saved(imageOf({{0x08000000, {1}}, {0x08000100, {2}}, {0x08010000, {3}}, {0x08010010, {4}}}));
    EXPECT_EQ(text, ":020000040800F2\n"
                    ":0100000001FE\n"
                    ":0101000002FC\n"
                    ":020000040801F1\n"
                    ":0100000003FC\n"
                    ":0100100004EB\n"
                    ":00000001FF\n");
}

TEST(HexWriter, DataRightUpToTheTopOfTheAddressSpace)
{
    EXPECT_EQ(saved(imageOf({{0xFFFFFFFE, {1, 2}}})), ":02000004FFFFFC\n:02FFFE000102FE\n:00000001FF\n");
}

TEST(HexWriter, RecordSizeFrom1To255)
{
    write_options_t options;
    options.recordSize = 1;
    EXPECT_EQ(saved(imageOf({{0x10, {0xAA, 0xBB}}}), options), ":01001000AA45\n:01001100BB33\n:00000001FF\n");
    options.recordSize = 255;
    const std::string text = saved(imageOf({{0, countingBytes(300)}}), options);
    EXPECT_EQ(text.substr(0, 9), ":FF000000");
    EXPECT_EQ(text.substr(text.find('\n') + 1, 9), ":2D00FF00");
    options.recordSize = 32;
    EXPECT_EQ(saved(imageOf({{0, countingBytes(40)}}), options).substr(0, 3), ":20");
}

TEST(HexWriter, RecordSizeOutOfRangeFailsAndWritesNothing)
{
    write_options_t options;
    options.recordSize = 0;
    EXPECT_EQ(saved(imageOf({{0, {1}}}), options), "failed: record size 0 is out of range (1 to 255)");
    options.recordSize = 256;
    EXPECT_EQ(saved(imageOf({{0, {1}}}), options), "failed: record size 256 is out of range (1 to 255)");
}

TEST(HexWriter, SegmentAddressingUsesType02Records)
{
    write_options_t options;
    options.addressing = addressing_t::SEGMENT;
    EXPECT_EQ(saved(imageOf({{0x12340, {0xAA, 0xBB}}}), options), ":020000021000EC\n:02234000AABB36\n:00000001FF\n");
    // The last address of the first MiB is the highest it reaches.
    const std::string top = saved(imageOf({{0xFFFFF, {1}}}), options);
    EXPECT_EQ(top, ":02000002F0000C\n:01FFFF000100\n:00000001FF\n");
}

TEST(HexWriter, SegmentAddressingFailsForAnImageThatReaches1MiB)
{
    write_options_t options;
    options.addressing = addressing_t::SEGMENT;
    EXPECT_EQ(saved(imageOf({{0xFFFFF, {1, 2}}}), options),
              "failed: segment addressing reaches only the first MiB, and the image goes up to 0x00100000");
}

TEST(HexWriter, StartAddressIsWrittenAsTheImageHoldsItBeforeTheEndRecord)
{
    EXPECT_EQ(saved(withStart(imageOf({{0, {1}}}), 5, 0x08000131)),
              ":0100000001FE\n:0400000508000131BD\n:00000001FF\n");
    EXPECT_EQ(saved(withStart(MemoryImage(), 3, 0x12345678)), ":0400000312345678E5\n:00000001FF\n");
}

TEST(HexWriter, CrLfOnRequest)
{
    write_options_t options;
    options.crlf = true;
    EXPECT_EQ(saved(imageOf({{0x10, {0xAA}}}), options), ":01001000AA45\r\n:00000001FF\r\n");
}

TEST(HexWriter, OutputReadsBackAsTheSameImage)
{
    std::mt19937 random(12);
    for (int i = 0; i < 20; ++i) {
        const MemoryImage image = randomImage(random, i % 2 == 0);
        write_options_t options;
        options.recordSize = 1 + random() % 255;
        options.crlf = i % 3 == 0;
        const std::string text = saved(image, options);
        MemoryImage read;
        ASSERT_TRUE(readMemory(read, text.data(), text.size(), readAs(file_format_t::INTEL_HEX))) << i;
        EXPECT_EQ(segmentsOf(read), segmentsOf(image)) << i;
        EXPECT_EQ(startOf(read), startOf(image)) << i;
    }
}

TEST(HexWriter, SixteenByteRecordsAreTheRecordsTheTestsBuild)
{
    // The usual record size has a path of its own in the writer: its text is
    // checked here against records built one by one, for a segment that
    // starts off a record boundary and runs across 64 KiB boundaries and
    // across the pieces the writer takes at a time.
    const uint32_t address = 0x0000FFF3;
    const size_t size = (1u << 20) + 0x10003;
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(i * 13 + 5);
    std::vector<std::string> lines;
    uint32_t upper = 0;
    for (uint64_t at = address; at < address + size;) {
        if (at >> 16 != upper) {
            upper = static_cast<uint32_t>(at >> 16);
            lines.push_back(linearBaseRecord(static_cast<uint16_t>(upper)));
        }
        const size_t length = static_cast<size_t>(std::min<uint64_t>({16, address + size - at, (at | 0xFFFF) + 1 - at}));
        const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(at - address);
        lines.push_back(dataRecord(static_cast<uint16_t>(at), std::vector<uint8_t>(first, first + static_cast<std::ptrdiff_t>(length))));
        at += length;
    }
    lines.push_back(EOF_RECORD);
    const MemoryImage image = imageOf({{address, bytes}});
    EXPECT_EQ(saved(image), joinLines(lines));
    write_options_t crlf;
    crlf.crlf = true;
    EXPECT_EQ(saved(image, crlf), joinLines(lines, "\r\n"));
}

// --- S-records ---------------------------------------------------------------

TEST(SrecordWriter, HeaderDataCountAndTermination)
{
    EXPECT_EQ(savedSrecords(imageOf({{0x1000, {1, 2, 3}}})), "S0030000FC\n"
                                                           "S1061000010203E3\n"
                                                           "S5030001FB\n"
                                                           "S9030000FC\n");
}

TEST(SrecordWriter, TheImagesHeaderGoesIntoS0)
{
    MemoryImage image;
    ASSERT_TRUE(image.setHeader("HDR"));
    EXPECT_EQ(savedSrecords(image), "S00600004844521B\nS5030000FC\nS9030000FC\n");
}

TEST(SrecordWriter, SmallestAddressSizeThatHoldsTheHighestAddress)
{
    EXPECT_EQ(savedSrecords(imageOf({{0xFFFD, {1, 2, 3}}})).substr(11, 2), "S1");
    EXPECT_EQ(savedSrecords(imageOf({{0x10000, {1, 2, 3}}})),
              "S0030000FC\nS207010000010203F1\nS5030001FB\nS804000000FB\n");
    EXPECT_EQ(savedSrecords(withStart(imageOf({{0x08000000, {1, 2, 3}}}), 5, 0x08000131)),
              "S0030000FC\nS30808000000010203E9\nS5030001FB\nS70508000131C0\n");
}

TEST(SrecordWriter, TheStartAddressCountsForTheAddressSize)
{
    EXPECT_EQ(savedSrecords(withStart(imageOf({{0x100, {9}}}), 5, 0x08000000)),
              "S0030000FC\nS3060000010009EF\nS5030001FB\nS70508000000F2\n");
}

TEST(SrecordWriter, SegmentStartAddressIsWrittenAsCsTimes16PlusIp)
{
    EXPECT_EQ(savedSrecords(withStart(imageOf({{0x100, {9}}}), 3, 0x12345678)),
              "S0030000FC\nS20500010009F0\nS5030001FB\nS8040179B8C9\n");
}

TEST(SrecordWriter, ForcedAddressSize)
{
    write_options_t options = optionsFor(file_format_t::SRECORD);
    options.addressSize = 4;
    EXPECT_EQ(savedSrecords(imageOf({{0x100, {9}}}), options), "S0030000FC\nS3060000010009EF\nS5030001FB\nS70500000000FA\n");
    options.addressSize = 2;
    EXPECT_EQ(savedSrecords(imageOf({{0xFFFF, {1, 2}}}), options),
              "failed: S-record address size 2 cannot hold address 0x00010000");
    EXPECT_EQ(savedSrecords(withStart(imageOf({{0x100, {9}}}), 5, 0x10000), options),
              "failed: S-record address size 2 cannot hold the start address 0x00010000");
    options.addressSize = 5;
    EXPECT_EQ(savedSrecords(MemoryImage(), options), "failed: S-record address size 5 is not 2, 3 or 4");
}

TEST(SrecordWriter, RecordSizeLimitDependsOnTheAddressSize)
{
    write_options_t options = optionsFor(file_format_t::SRECORD);
    options.recordSize = 252;
    EXPECT_EQ(savedSrecords(imageOf({{0, countingBytes(252)}}), options).substr(11, 4), "S1FF");
    options.recordSize = 253;
    EXPECT_EQ(savedSrecords(imageOf({{0, countingBytes(252)}}), options),
              "failed: record size 253 is out of range: S-records with 2-byte addresses hold 1 to 252 data bytes");
    options.recordSize = 251;
    EXPECT_EQ(savedSrecords(imageOf({{0x08000000, countingBytes(251)}}), options),
              "failed: record size 251 is out of range: S-records with 4-byte addresses hold 1 to 250 data bytes");
}

TEST(SrecordWriter, S6CountAbove65535RecordsAndNoneAbove16777215)
{
    write_options_t options = optionsFor(file_format_t::SRECORD);
    options.recordSize = 1;
    const std::string text = savedSrecords(imageOf({{0x100, std::vector<uint8_t>(65536, 9)}}), options);
    EXPECT_EQ(text.substr(text.size() - 26), "S604010000FA\nS804000000FB\n");

    std::vector<uint8_t> many(0x1000000, 7); // 16777216 one-byte records
    const MemoryImage image = imageOf({{0x1000000, many}});
    many.clear();
    TailBuffer tail;
    std::ostream out(&tail);
    ASSERT_TRUE(writeStream(image, out, options));
    // No count record between the last data record and the termination.
    const std::string last = srecordLine(3, 4, 0x1FFFFFF, {7}) + "\n" + srecordLine(7, 4, 0, {}) + "\n";
    EXPECT_EQ(tail.tail.substr(tail.tail.size() - last.size()), last);
}

TEST(SrecordWriter, CrLfOnRequest)
{
    write_options_t options = optionsFor(file_format_t::SRECORD);
    options.crlf = true;
    EXPECT_EQ(savedSrecords(MemoryImage(), options), "S0030000FC\r\nS5030000FC\r\nS9030000FC\r\n");
}

TEST(SrecordWriter, OutputReadsBackAsTheSameImageWithHeaderAndStartAddress)
{
    std::mt19937 random(34);
    for (int i = 0; i < 20; ++i) {
        MemoryImage image = randomImage(random, i % 2 == 0);
        ASSERT_TRUE(image.setHeader(i % 4 == 0 ? std::string("firmware \x01\xFF v1", 15) : ""));
        write_options_t options = optionsFor(file_format_t::SRECORD);
        options.recordSize = 1 + random() % 250;
        options.crlf = i % 3 == 0;
        const std::string text = savedSrecords(image, options);
        MemoryImage read;
        read_options_t readOptions;
        const read_result_t result = readMemory(read, text.data(), text.size(), readOptions);
        ASSERT_TRUE(result) << i << ": " << result.line << ": " << result.reason;
        EXPECT_TRUE(result.warnings.empty()) << i;
        EXPECT_EQ(segmentsOf(read), segmentsOf(image)) << i;
        EXPECT_EQ(startOf(read), startOf(image)) << i;
        EXPECT_EQ(read.header(), image.header()) << i;
    }
}

// --- Binary -------------------------------------------------------------------

TEST(BinaryWriter, FromTheLowestToTheHighestAddressWithFillInTheGaps)
{
    write_options_t options = optionsFor(file_format_t::BINARY);
    EXPECT_EQ(saved(imageOf({{0x08000001, {1, 2}}, {0x08000005, {3}}}), options), std::string("\x01\x02\xFF\xFF\x03", 5));
    options.fill = 0x00;
    EXPECT_EQ(saved(imageOf({{0x10, {1}}, {0x12, {3}}}), options), std::string("\x01\x00\x03", 3));
    EXPECT_EQ(saved(MemoryImage(), options), "");
}

TEST(BinaryWriter, GapsLargerThanTheFillBuffer)
{
    const std::string text = saved(imageOf({{0, {1}}, {300000, {2}}}), optionsFor(file_format_t::BINARY));
    ASSERT_EQ(text.size(), 300001u);
    EXPECT_EQ(text.front(), '\x01');
    EXPECT_EQ(text.back(), '\x02');
    EXPECT_EQ(text.find_first_not_of('\xFF', 1), 300000u);
}

TEST(ImageWriter, ElfCannotBeSaved)
{
    EXPECT_EQ(saved(MemoryImage(), optionsFor(file_format_t::ELF)), "failed: images cannot be saved as ELF");
}

TEST(ImageWriter, AFailingStreamIsAFailure)
{
    std::ostringstream out;
    out.setstate(std::ios::badbit);
    const result_t result = writeStream(imageOf({{0, {1}}}), out);
    EXPECT_FALSE(result);
    EXPECT_EQ(result.reason, "cannot write to the stream");
}

TEST(ImageWriter, SavingPrintsNothing)
{
    const CapturedOutput output = captureOutput([] {
        std::ostringstream out;
        writeStream(imageOf({{0, {1}}}), out);
        write_options_t bad;
        bad.recordSize = 0;
        writeStream(imageOf({{0, {1}}}), out, bad);
    });
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
}

// --- writeMemory ----------------------------------------------------------------

TEST(WriteMemory, AppendsWhatWriteStreamWrites)
{
    std::mt19937 random(31);
    for (int i = 0; i < 6; ++i) {
        const MemoryImage image = randomImage(random, i % 2 == 0, true);
        for (file_format_t format : {file_format_t::INTEL_HEX, file_format_t::SRECORD, file_format_t::BINARY}) {
            std::string out = "kept ";
            ASSERT_TRUE(writeMemory(image, out, optionsFor(format))) << i;
            EXPECT_EQ(out, "kept " + saved(image, optionsFor(format))) << i;
        }
    }
}

TEST(WriteMemory, AnOutputLargerThanTheBuffersIsWhole)
{
    // 4 MiB of data: several of the buffers that the output goes through.
    std::vector<uint8_t> bytes(4u << 20);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(i * 31 + (i >> 16));
    const MemoryImage image = imageOf({{0x08000000, bytes}});
    std::string out;
    ASSERT_TRUE(writeMemory(image, out));
    EXPECT_EQ(out, saved(image));
    MemoryImage read;
    ASSERT_TRUE(readMemory(read, out.data(), out.size(), readAs(file_format_t::INTEL_HEX)));
    EXPECT_EQ(segmentsOf(read), segmentsOf(image));
}

TEST(WriteMemory, AFailureLeavesTheStringAsItWas)
{
    std::string out = "as it was";
    write_options_t bad;
    bad.recordSize = 0;
    const result_t result = writeMemory(imageOf({{0, {1}}}), out, bad);
    EXPECT_EQ(result.status, status_t::BAD_ARGUMENT);
    EXPECT_EQ(result.reason, "record size 0 is out of range (1 to 255)");
    EXPECT_EQ(out, "as it was");
    EXPECT_FALSE(writeMemory(MemoryImage(), out, optionsFor(file_format_t::ELF)));
    EXPECT_EQ(out, "as it was");
}

// --- writeFile ------------------------------------------------------------------

TEST(SaveFile, WritesTheFileWithTheModeOfANewFile)
{
    TempDir dir;
    const mode_t old = umask(022);
    const result_t result = writeFile(imageOf({{0x10, {0xAA}}}), dir.file("out.hex").c_str());
    umask(old);
    ASSERT_TRUE(result) << result.reason;
    const std::vector<uint8_t> bytes = readFileBytes(dir.file("out.hex"));
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), ":01001000AA45\n:00000001FF\n");
    struct stat status;
    ASSERT_EQ(stat(dir.file("out.hex").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644u);
}

TEST(SaveFile, AReplacedFileKeepsItsMode)
{
    TempDir dir;
    const std::string path = dir.write("out.bin", "old");
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    ASSERT_TRUE(writeFile(imageOf({{0, {1, 2}}}), path.c_str(), optionsFor(file_format_t::BINARY)));
    EXPECT_EQ(readFileBytes(path), std::vector<uint8_t>({1, 2}));
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST(SaveFile, BadOptionsLeaveNoFileAndAnExistingOneAsItWas)
{
    TempDir dir;
    write_options_t bad;
    bad.recordSize = 0;
    EXPECT_FALSE(writeFile(imageOf({{0, {1}}}), dir.file("new.hex").c_str(), bad));
    EXPECT_FALSE(fileExists(dir.file("new.hex")));
    const std::string old = dir.write("old.hex", "keep me");
    EXPECT_FALSE(writeFile(imageOf({{0, {1}}}), old.c_str(), bad));
    EXPECT_EQ(readFileBytes(old), std::vector<uint8_t>({'k', 'e', 'e', 'p', ' ', 'm', 'e'}));
    EXPECT_EQ(listFiles(dir.path()), std::vector<std::string>({"old.hex"}));
}

TEST(SaveFile, AWriteFailingPartWayLeavesTheExistingFileAndNoTemporaryFile)
{
    TempDir dir;
    const std::string old = dir.write("out.hex", "keep me");
    struct rlimit saved;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    void (*previous)(int) = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limited = saved;
    limited.rlim_cur = 100000;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    const result_t result = writeFile(imageOf({{0, std::vector<uint8_t>(1 << 20, 1)}}), old.c_str());
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, previous);
    EXPECT_FALSE(result);
    EXPECT_EQ(result.reason.substr(0, 17), "cannot write '" + dir.path().substr(0, 3));
    EXPECT_NE(result.reason.find("File too large"), std::string::npos) << result.reason;
    EXPECT_EQ(readFileBytes(old), std::vector<uint8_t>({'k', 'e', 'e', 'p', ' ', 'm', 'e'}));
    EXPECT_EQ(listFiles(dir.path()), std::vector<std::string>({"out.hex"}));
}

TEST(SaveFile, AMissingDirectoryIsAFailureNamingThePath)
{
    TempDir dir;
    const std::string path = dir.file("missing/out.hex");
    const result_t result = writeFile(imageOf({{0, {1}}}), path.c_str());
    EXPECT_FALSE(result);
    EXPECT_EQ(result.reason, "cannot create '" + path + "': No such file or directory");
}

TEST(SaveFile, ADeviceIsWrittenDirectly)
{
    EXPECT_TRUE(writeFile(imageOf({{0, {1}}}), "/dev/null"));
    const result_t full = writeFile(imageOf({{0, {1}}}), "/dev/full");
    EXPECT_FALSE(full);
    EXPECT_EQ(full.reason, "cannot write '/dev/full': No space left on device");
}

namespace {

// What readFile() (binary at address) and then writeFile() give, as
// {ok, reason, the output's bytes}; an output written is removed after.
struct written_t {
    bool ok;
    std::string reason;
    std::vector<uint8_t> output;
};

written_t throughTheImage(const std::string& input, uint32_t address, const std::string& output,
                          const write_options_t& options)
{
    MemoryImage image;
    read_options_t binary;
    binary.detect = false;
    binary.format = file_format_t::BINARY;
    binary.address = address;
    const read_result_t read = readFile(image, input.c_str(), binary);
    if (!read)
        return {false, read.reason, {}};
    const result_t saved = writeFile(image, output.c_str(), options);
    written_t w{saved.ok(), saved.reason, saved ? readFileBytes(output) : std::vector<uint8_t>()};
    if (saved)
        std::remove(output.c_str());
    return w;
}

written_t streamed(const std::string& input, uint32_t address, const std::string& output, const write_options_t& options,
                   bool* inputFailed = nullptr)
{
    const convert_result_t converted =
        convertBinaryFile(input.c_str(), address, output.c_str(), options);
    if (inputFailed != nullptr)
        *inputFailed = converted.inputFailed;
    written_t w{converted.ok(), converted.reason, converted ? readFileBytes(output) : std::vector<uint8_t>()};
    if (converted)
        std::remove(output.c_str());
    return w;
}

} // namespace

TEST(ConvertBinaryFile, WritesWhatReadingAndSavingTheImageWrites)
{
    // Sizes around the pieces the writers ask for (1 MiB) and the 64 KiB
    // windows, at addresses aligned and not, up to the top of the address
    // space; every format with record sizes that divide neither.
    TempDir dir;
    std::mt19937 random(7);
    const size_t sizes[] = {0, 1, 17, 65537, (1u << 20) + 0x10003};
    std::vector<write_options_t> formats;
    for (unsigned recordSize : {1u, 7u, 16u, 255u}) {
        write_options_t hex;
        hex.recordSize = recordSize;
        hex.crlf = recordSize == 7;
        formats.push_back(hex);
        write_options_t srec = optionsFor(file_format_t::SRECORD);
        srec.recordSize = std::min(recordSize, 250u);
        srec.addressSize = recordSize == 16 ? 4 : 0;
        formats.push_back(srec);
    }
    formats.push_back(optionsFor(file_format_t::BINARY));
    write_options_t segment;
    segment.addressing = addressing_t::SEGMENT;
    formats.push_back(segment);
    for (size_t size : sizes) {
        std::string bytes(size, '\0');
        for (char& c : bytes)
            c = static_cast<char>(random());
        const std::string input = dir.write("in.bin", bytes);
        for (uint32_t address : {0u, 0x08004000u, 0x0000FFF3u, static_cast<uint32_t>(0x100000000ull - size)}) {
            // The largest size at two addresses: an odd one and the top.
            if (size > 65537 && (address == 0 || address == 0x08004000u))
                continue;
            for (const write_options_t& options : formats) {
                // Records of 1 and 7 bytes: the small sizes are enough.
                if (size > 65537 && options.recordSize < 16)
                    continue;
                SCOPED_TRACE(std::to_string(size) + " bytes at " + std::to_string(address) + ", format " +
                             std::to_string(static_cast<int>(options.format)) + ", records of " +
                             std::to_string(options.recordSize));
                const written_t expected = throughTheImage(input, address, dir.file("image.out"), options);
                const written_t got = streamed(input, address, dir.file("streamed.out"), options);
                EXPECT_EQ(got.ok, expected.ok);
                EXPECT_EQ(got.reason, expected.reason);
                EXPECT_TRUE(got.output == expected.output);
                if (HasFailure())
                    return;
            }
        }
    }
}

TEST(ConvertBinaryFile, FailuresAreThoseOfReadingAndSavingAndLeaveNoOutput)
{
    TempDir dir;
    const std::string input = dir.write("in.bin", std::string(100, 'x'));
    const std::string kept = dir.write("kept.hex", "keep me");
    bool inputFailed = false;
    // The input's failures.
    written_t got = streamed(dir.file("missing.bin"), 0, kept, write_options_t(), &inputFailed);
    EXPECT_FALSE(got.ok);
    EXPECT_TRUE(inputFailed);
    EXPECT_EQ(got.reason, "cannot open the file: No such file or directory");
    EXPECT_EQ(got.reason, throughTheImage(dir.file("missing.bin"), 0, kept, write_options_t()).reason);
    got = streamed(input, 0xFFFFFFA0u, kept, write_options_t(), &inputFailed);
    EXPECT_TRUE(inputFailed);
    EXPECT_EQ(got.reason, "binary input of 100 bytes at 0xFFFFFFA0 would run past address 0xFFFFFFFF");
    EXPECT_EQ(got.reason, throughTheImage(input, 0xFFFFFFA0u, kept, write_options_t()).reason);
    // The output's and the options'.
    write_options_t bad;
    bad.recordSize = 0;
    got = streamed(input, 0, kept, bad, &inputFailed);
    EXPECT_FALSE(inputFailed);
    EXPECT_EQ(got.reason, "record size 0 is out of range (1 to 255)");
    write_options_t segment;
    segment.addressing = addressing_t::SEGMENT;
    got = streamed(input, 0x100000, kept, segment, &inputFailed);
    EXPECT_FALSE(inputFailed);
    EXPECT_EQ(got.reason, "segment addressing reaches only the first MiB, and the image goes up to 0x00100063");
    got = streamed(input, 0, dir.file("missing/out.hex"), write_options_t(), &inputFailed);
    EXPECT_FALSE(inputFailed);
    EXPECT_EQ(got.reason, "cannot create '" + dir.file("missing/out.hex") + "': No such file or directory");
    EXPECT_EQ(readFileBytes(kept), std::vector<uint8_t>({'k', 'e', 'e', 'p', ' ', 'm', 'e'}));
    EXPECT_EQ(listFiles(dir.path()), std::vector<std::string>({"in.bin", "kept.hex"}));
}

TEST(ConvertBinaryFile, AFileShorterThanItSaysFailsAndLeavesNoOutput)
{
    // sysfs attributes say 4096 bytes and hold a line.
    const char* attribute = "/sys/kernel/mm/transparent_hugepage/enabled";
    struct stat status;
    if (::stat(attribute, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size != 4096)
        GTEST_SKIP() << attribute << " is not here";
    TempDir dir;
    bool inputFailed = false;
    const written_t got = streamed(attribute, 0, dir.file("out.hex"), write_options_t(), &inputFailed);
    EXPECT_FALSE(got.ok);
    EXPECT_TRUE(inputFailed);
    EXPECT_EQ(got.reason, "the file became shorter while it was read");
    EXPECT_TRUE(listFiles(dir.path()).empty());
}

TEST(ConvertBinaryFile, APipeIsReadWholeFirst)
{
    // More than a pipe holds, so the writer is still writing when the pipe
    // is first looked at: it must be read through that one opening, or the
    // writer finds no reader for a moment and fails.
    TempDir dir;
    const std::string bytes(70000, '\x5A');
    for (int round = 0; round < 10; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        FifoFile fifo(dir, "in" + std::to_string(round) + ".fifo", bytes);
        const convert_result_t converted =
            convertBinaryFile(fifo.path().c_str(), 0x100, dir.file("out.hex").c_str());
        EXPECT_TRUE(fifo.wroteAll());
        ASSERT_TRUE(converted) << converted.reason;
        MemoryImage image;
        ASSERT_TRUE(readFile(image, dir.file("out.hex").c_str()));
        EXPECT_EQ(image.segments().size(), 1u);
        EXPECT_EQ(image.lowestAddress(), 0x100u);
        EXPECT_EQ(image.copyRange(0x100, 70000, 0), std::vector<uint8_t>(bytes.begin(), bytes.end()));
    }
}

TEST(ImageWriter, RecordsOfLargeSegmentsAreLaidOutAsOfSmallOnes)
{
    // Segments longer than the pieces the writers take at a time: every
    // data record is as long as the record size allows, counted from the
    // segment's start (Intel HEX: and from each 64 KiB boundary), so the
    // pieces leave no trace in the output.
    const uint32_t address = 0x0000FFF3;
    const size_t size = (1u << 20) + 0x10003;
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(i * 7 + 1);
    const MemoryImage image = imageOf({{address, bytes}});
    for (unsigned recordSize : {7u, 16u, 250u}) {
        SCOPED_TRACE("records of " + std::to_string(recordSize));
        write_options_t hex;
        hex.recordSize = recordSize;
        std::istringstream hexText(saved(image, hex));
        uint64_t expected = address;
        uint32_t upper = 0;
        for (std::string line; std::getline(hexText, line);) {
            const unsigned length = static_cast<unsigned>(std::stoul(line.substr(1, 2), nullptr, 16));
            const unsigned type = static_cast<unsigned>(std::stoul(line.substr(7, 2), nullptr, 16));
            if (type == 4)
                upper = static_cast<uint32_t>(std::stoul(line.substr(9, 4), nullptr, 16));
            if (type != 0)
                continue;
            const uint64_t at = uint64_t{upper} << 16 | std::stoul(line.substr(3, 4), nullptr, 16);
            ASSERT_EQ(at, expected);
            ASSERT_EQ(length, std::min<uint64_t>({recordSize, (at | 0xFFFF) + 1 - at, address + size - at}));
            expected += length;
        }
        EXPECT_EQ(expected, address + size);

        write_options_t srec = optionsFor(file_format_t::SRECORD);
        srec.recordSize = recordSize;
        std::istringstream srecText(saved(image, srec));
        expected = address;
        for (std::string line; std::getline(srecText, line);) {
            if (line[1] != '2')
                continue;
            const unsigned count = static_cast<unsigned>(std::stoul(line.substr(2, 2), nullptr, 16));
            const uint64_t at = std::stoul(line.substr(4, 6), nullptr, 16);
            ASSERT_EQ(at, expected);
            ASSERT_EQ(count - 4, std::min<uint64_t>(recordSize, address + size - at));
            expected += count - 4;
        }
        EXPECT_EQ(expected, address + size);
    }
}
