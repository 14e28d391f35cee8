// The full-format reader into a MemoryImage, through readMemory() and
// readFile(), checked against a byte-by-byte model of the format's rules on
// generated files in every record order, and the window method checked
// against the sorting method it falls back to.
#include "image_blocks.h"
#include "full_format_reader.h"
#include "formats.h"
#include "memory_image.h"
#include "support/capture.h"
#include "support/hex_text.h"
#include "support/run_process.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

using namespace hexblocks;


namespace {

using hexblocks::detail::fullread_t;
using hexblocks::detail::MemoryText;
using hexblocks::detail::placement_t;

// What a file means, by the rules of the format as this library reads it:
// records in file order, a record whose first byte lies where an earlier
// record started is dropped whole, and each byte keeps its first value.
struct Model {
    std::map<uint32_t, uint8_t> bytes;
    uint8_t startType = 0;
    uint32_t startValue = 0;
    std::vector<size_t> ignoredStartLines;
    uint64_t repeated = 0;
    size_t firstRepeatLine = 0;
};

Model modelOf(const std::vector<std::string>& lines)
{
    Model m;
    std::set<uint32_t> starts;
    bool segmented = false;
    uint32_t base = 0;
    for (size_t n = 0; n < lines.size(); ++n) {
        std::string line = lines[n];
        line.erase(std::remove_if(line.begin(), line.end(), [](char c) { return std::isspace(static_cast<unsigned char>(c)); }),
                   line.end());
        if (line.empty())
            continue;
        std::vector<uint8_t> b;
        for (size_t i = 1; i + 1 < line.size(); i += 2)
            b.push_back(static_cast<uint8_t>(std::stoul(line.substr(i, 2), nullptr, 16)));
        const uint8_t type = b[3];
        const uint16_t offset = static_cast<uint16_t>(b[1] << 8 | b[2]);
        const std::vector<uint8_t> data(b.begin() + 4, b.end() - 1);
        if (type == 0x01)
            break;
        if (type == 0x02 || type == 0x04) {
            segmented = type == 0x02;
            base = segmented ? (data[0] << 8 | data[1]) * 16u : static_cast<uint32_t>(data[0] << 8 | data[1]) << 16;
        } else if (type == 0x03 || type == 0x05) {
            const uint32_t value = static_cast<uint32_t>(data[0]) << 24 | data[1] << 16 | data[2] << 8 | data[3];
            if (m.startType == 0) {
                m.startType = type;
                m.startValue = value;
            } else if (m.startType != type || m.startValue != value) {
                m.ignoredStartLines.push_back(n + 1);
            }
        } else if (type == 0x00 && !data.empty()) {
            auto addressOf = [&](size_t i) {
                return segmented ? base + static_cast<uint16_t>(offset + i) : base + offset + static_cast<uint32_t>(i);
            };
            if (!starts.insert(addressOf(0)).second)
                continue;
            for (size_t i = 0; i < data.size(); ++i) {
                if (m.bytes.emplace(addressOf(i), data[i]).second)
                    continue;
                if (m.repeated++ == 0)
                    m.firstRepeatLine = n + 1;
            }
        }
    }
    return m;
}

std::map<uint32_t, uint8_t> bytesOf(const MemoryImage& image)
{
    std::map<uint32_t, uint8_t> bytes;
    for (const segment_t& s : image.segments())
        for (size_t i = 0; i < s.bytes.size(); ++i)
            bytes[s.address + static_cast<uint32_t>(i)] = s.bytes[i];
    return bytes;
}

// Segments ascend, never touch and are never empty.
void expectWellFormed(const MemoryImage& image)
{
    const std::vector<segment_t>& segments = image.segments();
    for (size_t i = 0; i < segments.size(); ++i) {
        EXPECT_FALSE(segments[i].bytes.empty());
        if (i > 0) {
            EXPECT_LT(segments[i - 1].endAddress(), segments[i].address);
        }
    }
}

struct Read {
    fullread_t read;
    MemoryImage image;
};

Read readWith(const std::string& text, placement_t placement)
{
    Read r;
    MemoryText source(text.data(), text.size());
    r.read = hexblocks::detail::readFullFormat(source, r.image, placement);
    return r;
}

// Reads text both ways and checks both against the model.
void expectAsModel(const std::vector<std::string>& lines, const std::string& ending, const std::string& what)
{
    SCOPED_TRACE(what);
    const std::string text = joinLines(lines, ending);
    const Model model = modelOf(lines);
    for (placement_t placement : {placement_t::ASCENDING, placement_t::WINDOWS, placement_t::SORTING}) {
        SCOPED_TRACE(placement == placement_t::ASCENDING ? "ascending"
                     : placement == placement_t::WINDOWS ? "windows"
                                                         : "sorting");
        const Read r = readWith(text, placement);
        ASSERT_EQ(r.read.status, fullread_t::status_t::OK) << r.read.reason << " in line " << r.read.line;
        expectWellFormed(r.image);
        EXPECT_EQ(bytesOf(r.image), model.bytes);
        EXPECT_EQ(r.image.hasStartAddress(), model.startType != 0);
        EXPECT_EQ(r.image.startAddress().type, model.startType);
        EXPECT_EQ(r.image.startAddress().value, model.startValue);
        EXPECT_EQ(r.read.ignoredStartLines, model.ignoredStartLines);
        EXPECT_EQ(r.read.repeatedBytes, model.repeated);
        EXPECT_EQ(r.read.firstRepeatLine, model.firstRepeatLine);
    }
}

std::string segmentRecord(uint16_t segment)
{
    return hexRecord(0x02, 0, {static_cast<uint8_t>(segment >> 8), static_cast<uint8_t>(segment)});
}

std::string startRecord(uint8_t type, uint32_t value)
{
    return hexRecord(type, 0, {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
                               static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)});
}

// A random file: data records of 0 to 255 bytes around a few centres, some
// repeated or overlapping, under linear and segment bases, with start
// addresses, in the order given.
std::vector<std::string> randomFile(std::mt19937& rng, const std::string& order)
{
    struct Data {
        bool segmented;
        uint16_t base;
        uint16_t offset;
        std::vector<uint8_t> bytes;
    };
    std::uniform_int_distribution<int> percent(0, 99);
    std::uniform_int_distribution<int> byte(0, 255);
    const std::vector<uint16_t> linearBases = {0x0000, 0x0001, 0x0800, 0x0801, 0x0802, 0xFFFF};
    std::vector<Data> records;
    const int count = std::uniform_int_distribution<int>(1, 300)(rng);
    uint16_t base = linearBases[static_cast<size_t>(percent(rng)) % linearBases.size()];
    bool segmented = false;
    uint32_t next = static_cast<uint32_t>(std::uniform_int_distribution<int>(0, 0xFFFF)(rng));
    for (int i = 0; i < count; ++i) {
        if (percent(rng) < 4) {
            segmented = percent(rng) < 30;
            base = segmented ? static_cast<uint16_t>(std::uniform_int_distribution<int>(0, 0xFFFF)(rng))
                             : linearBases[static_cast<size_t>(percent(rng)) % linearBases.size()];
            next = static_cast<uint32_t>(std::uniform_int_distribution<int>(0, 0xFFFF)(rng));
        }
        size_t length = static_cast<size_t>(std::uniform_int_distribution<int>(1, 40)(rng));
        if (percent(rng) < 3)
            length = 0;
        else if (percent(rng) < 5)
            length = 255;
        if (percent(rng) < 5)
            next -= static_cast<uint32_t>(std::uniform_int_distribution<int>(0, 60)(rng)); // overlap or repeat
        else if (percent(rng) < 10)
            next += static_cast<uint32_t>(std::uniform_int_distribution<int>(1, 5000)(rng)); // a gap
        Data d{segmented, base, static_cast<uint16_t>(next), std::vector<uint8_t>(length)};
        for (uint8_t& b : d.bytes)
            b = static_cast<uint8_t>(byte(rng));
        records.push_back(d);
        next = static_cast<uint16_t>(next + length);
    }
    if (order == "descending")
        std::reverse(records.begin(), records.end());
    else if (order == "shuffled")
        std::shuffle(records.begin(), records.end(), rng);

    std::vector<std::string> lines;
    bool haveBase = false;
    Data current{false, 0, 0, {}};
    for (const Data& d : records) {
        if (!haveBase || d.segmented != current.segmented || d.base != current.base)
            lines.push_back(d.segmented ? segmentRecord(d.base) : linearBaseRecord(d.base));
        haveBase = true;
        current = d;
        lines.push_back(dataRecord(d.offset, d.bytes));
        if (percent(rng) < 2)
            lines.push_back(startRecord(percent(rng) < 50 ? 0x03 : 0x05, static_cast<uint32_t>(percent(rng) % 3)));
        if (percent(rng) < 2)
            lines.push_back("");
    }
    for (std::string& line : lines) {
        if (percent(rng) < 10)
            std::transform(line.begin(), line.end(), line.begin(), [](char c) { return static_cast<char>(std::tolower(c)); });
        if (percent(rng) < 5)
            line = " \t" + line + "  ";
    }
    if (percent(rng) < 80)
        lines.push_back(EOF_RECORD);
    return lines;
}

// Big regions filled in order, then records that go round them again and
// again. A few regions stay open at once; going round more reopens them.
std::vector<std::string> jumpingFile(int regions, int jumps)
{
    std::vector<std::string> lines;
    for (int region = 0; region < regions; ++region) {
        lines.push_back(linearBaseRecord(static_cast<uint16_t>(0x0100 + 0x200 * region)));
        for (uint32_t a = 0; a < 0xF000; a += 0x80)
            lines.push_back(dataRecord(static_cast<uint16_t>(a), countingBytes(0x80, static_cast<uint8_t>(a >> 7))));
    }
    for (int i = 0; i < jumps; ++i) {
        lines.push_back(linearBaseRecord(static_cast<uint16_t>(0x0100 + 0x200 * (i % regions))));
        lines.push_back(dataRecord(static_cast<uint16_t>(0xF000 + 8 * i), {static_cast<uint8_t>(i)}));
    }
    lines.push_back(EOF_RECORD);
    return lines;
}

// Segments of mostly full 64 KiB regions (what the window method keeps
// whole), as 32-byte records in the order given: "ascending", "descending",
// "regions" (the regions in a random order, each region's records in
// order) or "shuffled" (the same, each region's records in a random order). One segment starts in the middle of a region, one after
// a region that holds only a few of its bytes, one ends at 0xFFFFFFFF; a
// few bytes lie apart; and a few records repeat earlier ones.
std::vector<std::string> denseFile(std::mt19937& rng, const std::string& order)
{
    struct range_t {
        uint64_t start;
        uint64_t end;
    };
    const range_t ranges[] = {{0x08001234, 0x08038000}, {0x20000000, 0x20015000},  {0x4000FF00, 0x40030000},
                              {0x50000010, 0x50000030}, {0xFFFE0000, 0x100000000}, {0x60000000, 0x6000C000}};
    struct record_t {
        uint32_t address;
        std::vector<uint8_t> bytes;
    };
    std::vector<record_t> records;
    std::uniform_int_distribution<int> byte(0, 255);
    for (const range_t& range : ranges)
        for (uint64_t a = range.start; a < range.end; a += 32) {
            record_t r{static_cast<uint32_t>(a), std::vector<uint8_t>(std::min<uint64_t>(32, range.end - a))};
            for (uint8_t& b : r.bytes)
                b = static_cast<uint8_t>(byte(rng));
            records.push_back(r);
        }
    for (int i = 0; i < 6; ++i)
        records.push_back(records[static_cast<size_t>(byte(rng)) * 97 % records.size()]);
    if (order == "descending") {
        std::reverse(records.begin(), records.end());
    } else if (order == "shuffled" || order == "regions") {
        if (order == "shuffled")
            std::shuffle(records.begin(), records.end(), rng);
        std::set<uint32_t> seen;
        for (const record_t& r : records)
            seen.insert(r.address >> 16);
        std::vector<uint32_t> regions(seen.begin(), seen.end());
        std::shuffle(regions.begin(), regions.end(), rng);
        std::map<uint32_t, size_t> rank;
        for (size_t i = 0; i < regions.size(); ++i)
            rank[regions[i]] = i;
        std::stable_sort(records.begin(), records.end(), [&](const record_t& a, const record_t& b) {
            return rank[a.address >> 16] < rank[b.address >> 16];
        });
    }
    std::vector<std::string> lines;
    uint32_t base = 0x10000; // none yet
    for (const record_t& r : records) {
        if (r.address >> 16 != base) {
            base = r.address >> 16;
            lines.push_back(linearBaseRecord(static_cast<uint16_t>(base)));
        }
        lines.push_back(dataRecord(static_cast<uint16_t>(r.address), r.bytes));
    }
    lines.push_back(EOF_RECORD);
    return lines;
}

// A text in memory that says it has a given size left: how much room the
// window method may take for the regions it keeps whole.
class SizeHintText : public MemoryText {
public:
    SizeHintText(const std::string& text, uint64_t hint) : MemoryText(text.data(), text.size()), hint_(hint) {}
    uint64_t sizeLeft() const override { return hint_; }

private:
    uint64_t hint_;
};

// A region whose first record ends at its top, then records one after
// another from its bottom, the last of which gives bytes of the first.
std::vector<std::string> topThenFromTheBottom()
{
    std::vector<std::string> lines = {linearBaseRecord(3), dataRecord(0xFFF0, countingBytes(16, 0x80))};
    for (uint32_t a = 0; a < 0xFFE0; a += 32)
        lines.push_back(dataRecord(static_cast<uint16_t>(a), countingBytes(32, static_cast<uint8_t>(a >> 5))));
    lines.push_back(dataRecord(0xFFE0, countingBytes(24, 0x40)));
    lines.push_back(EOF_RECORD);
    return lines;
}

} // namespace

TEST(FullFormatReader, GeneratedFilesInEveryOrderFollowTheRules)
{
    std::mt19937 rng(2026);
    for (int file = 0; file < 120; ++file)
        for (const std::string order : {"ascending", "descending", "shuffled"})
            expectAsModel(randomFile(rng, order), file % 3 == 0 ? "\r\n" : "\n",
                          "file " + std::to_string(file) + ", " + order);
}

TEST(FullFormatReader, EdgesOfRegionsSegmentsAndTheAddressSpace)
{
    const std::vector<std::vector<std::string>> files = {
        // A linear record across a 64 KiB boundary, before and after the next
        // region's own records.
        {linearBaseRecord(1), dataRecord(0xFFF8, countingBytes(16)), linearBaseRecord(2), dataRecord(0, {9, 9}),
         dataRecord(8, {7}), EOF_RECORD},
        {linearBaseRecord(2), dataRecord(0, {9, 9}), linearBaseRecord(1), dataRecord(0xFFF8, countingBytes(16)),
         EOF_RECORD},
        // Segment offsets wrap to the segment's start, which is not 64 KiB aligned.
        {segmentRecord(0x1234), dataRecord(0xFFF0, countingBytes(40)), dataRecord(0x0000, {1}), EOF_RECORD},
        {segmentRecord(0x1234), dataRecord(0x0008, countingBytes(40)), dataRecord(0xFFF0, countingBytes(40)),
         EOF_RECORD},
        // Past 0xFFFFFFFF to 0, and a record repeating the start of the wrapped one.
        {linearBaseRecord(0xFFFF), dataRecord(0xFFF0, countingBytes(255)), linearBaseRecord(0),
         dataRecord(0, countingBytes(4, 0x40)), linearBaseRecord(0xFFFF), dataRecord(0xFFF0, {1}), EOF_RECORD},
        {linearBaseRecord(0xFFFF), dataRecord(0xFFFF, {0xAB}), EOF_RECORD},
        // Repeated starts in a region closed and reopened.
        {linearBaseRecord(5), dataRecord(0x10, {1, 2, 3}), linearBaseRecord(6), dataRecord(0, {4}), linearBaseRecord(5),
         dataRecord(0x10, countingBytes(10)), dataRecord(0x11, countingBytes(10)), EOF_RECORD},
        // A record at the top of an empty region, then records from its
        // bottom up that run into it.
        topThenFromTheBottom(),
        // Only start addresses, two of them different.
        {startRecord(0x05, 1), startRecord(0x05, 1), startRecord(0x03, 1), startRecord(0x05, 2), EOF_RECORD},
        {},
    };
    for (size_t i = 0; i < files.size(); ++i)
        expectAsModel(files[i], "\n", "file " + std::to_string(i));
}

TEST(FullFormatReader, FullRegionsInAnyOrderGiveTheSegmentsOfTheModel)
{
    // The window method keeps full regions in one block of memory that
    // becomes a segment at the end, however the regions came; with room for
    // only a few of them, or none, the rest are kept apart.
    std::mt19937 rng(64);
    for (const std::string order : {"ascending", "descending", "shuffled", "regions"}) {
        SCOPED_TRACE(order);
        const std::vector<std::string> lines = denseFile(rng, order);
        const std::string text = joinLines(lines);
        const Model model = modelOf(lines);
        std::vector<segment_t> first;
        for (uint64_t room : {uint64_t(text.size()), uint64_t(3 * 0x10000), uint64_t(0)}) {
            SCOPED_TRACE("room " + std::to_string(room));
            Read r;
            SizeHintText source(text, room);
            r.read = hexblocks::detail::readFullFormat(source, r.image, placement_t::WINDOWS);
            ASSERT_EQ(r.read.status, fullread_t::status_t::OK) << r.read.reason;
            EXPECT_FALSE(r.read.sorted);
            expectWellFormed(r.image);
            EXPECT_EQ(r.image.segments().size(), 6u);
            EXPECT_EQ(r.read.repeatedBytes, model.repeated);
            // The model's bytes once; the same segments with less room.
            if (first.empty()) {
                EXPECT_EQ(bytesOf(r.image), model.bytes);
                first = r.image.segments();
                continue;
            }
            ASSERT_EQ(r.image.segments().size(), first.size());
            for (size_t i = 0; i < first.size(); ++i) {
                EXPECT_EQ(r.image.segments()[i].address, first[i].address);
                EXPECT_TRUE(r.image.segments()[i].bytes == first[i].bytes) << "segment " << i;
            }
        }
    }
    // Regions closed and opened again give their room back.
    const std::vector<std::string> jumping = jumpingFile(6, 12);
    const Read again = readWith(joinLines(jumping), placement_t::WINDOWS);
    EXPECT_FALSE(again.read.sorted);
    EXPECT_EQ(bytesOf(again.image), modelOf(jumping).bytes);
}

TEST(FullFormatReader, RecordsJumpingBetweenRegionsAreSortedInstead)
{
    const std::vector<std::string> lines = jumpingFile(6, 120);
    const Read r = readWith(joinLines(lines), placement_t::WINDOWS);
    EXPECT_TRUE(r.read.sorted);
    EXPECT_EQ(bytesOf(r.image), modelOf(lines).bytes);
    expectAsModel(lines, "\n", "jumping");

    // A few returns, and going round a few regions, are taken in the windows.
    for (const std::vector<std::string>& taken : {jumpingFile(6, 12), jumpingFile(3, 300)}) {
        const Read w = readWith(joinLines(taken), placement_t::WINDOWS);
        EXPECT_FALSE(w.read.sorted);
        EXPECT_EQ(bytesOf(w.image), modelOf(taken).bytes);
    }
}

TEST(FullFormatReader, ReadHexReportsWarningsInTheOrderFound)
{
    MemoryImage image;
    const std::string text = joinLines({dataRecord(0x00, countingBytes(16)), startRecord(0x05, 0x100),
                                        startRecord(0x05, 0x200), dataRecord(0x08, countingBytes(16, 0xA0))});
    const read_result_t result = readMemory(image, text.data(), text.size(), readAs(file_format_t::INTEL_HEX));
    ASSERT_TRUE(result);
    EXPECT_TRUE(result.ok());
    EXPECT_EQ(result.line, 0u);
    EXPECT_EQ(result.reason, "");
    ASSERT_EQ(result.warnings.size(), 3u);
    EXPECT_EQ(result.warnings[0].line, 3u);
    EXPECT_EQ(result.warnings[0].message, "a second, different start address is ignored");
    EXPECT_EQ(result.warnings[1].line, 0u);
    EXPECT_EQ(result.warnings[1].message, "end of file reached without an end-of-file record");
    EXPECT_EQ(result.warnings[2].line, 4u);
    EXPECT_EQ(result.warnings[2].message, "8 bytes given by more than one record; the first value of each is kept");
    EXPECT_EQ(image.segments().size(), 1u);
    EXPECT_EQ(image.segments()[0].bytes, concat(countingBytes(16), countingBytes(8, 0xA8)));
    EXPECT_EQ(image.startAddress().value, 0x100u);
}

TEST(FullFormatReader, ReadHexFailuresNameTheLineAndKeepTheImage)
{
    MemoryImage image;
    const std::string good = joinLines({dataRecord(0x10, {1}), startRecord(0x05, 7), EOF_RECORD});
    ASSERT_TRUE(readMemory(image, good.data(), good.size(), readAs(file_format_t::INTEL_HEX)));

    const std::vector<std::tuple<std::string, size_t, std::string>> cases = {
        {joinLines({dataRecord(0, {1}), "", ":0300300002337A1F", EOF_RECORD}), 3, "checksum error"},
        {joinLines({dataRecord(0, {1}), "x"}), 2, "a record must start with ':'"},
        {joinLines({hexRecord(0x0A, 0, {1})}), 1, "unsupported record type 0A"},
        {joinLines({dataRecord(0, {1}), hexRecord(0x04, 0, {1})}), 2, "extended linear address record needs 2 data bytes"},
        {joinLines({std::string(300000, ' ') + ":00000001FF"}), 1, "line too long"},
    };
    for (const auto& c : cases) {
        const std::string& text = std::get<0>(c);
        const read_result_t result = readMemory(image, text.data(), text.size(), readAs(file_format_t::INTEL_HEX));
        EXPECT_FALSE(result);
        EXPECT_EQ(result.line, std::get<1>(c)) << std::get<2>(c);
        EXPECT_EQ(result.reason, std::get<2>(c));
        EXPECT_EQ(image.segments().size(), 1u);
        EXPECT_EQ(image.segments()[0].address, 0x10u);
        EXPECT_EQ(image.startAddress().value, 7u);
    }
    // A failure after a warning keeps the warning.
    const std::string late = joinLines({startRecord(0x05, 1), startRecord(0x05, 2), "x"});
    const read_result_t result = readMemory(image, late.data(), late.size(), readAs(file_format_t::INTEL_HEX));
    EXPECT_FALSE(result);
    ASSERT_EQ(result.warnings.size(), 1u);
    EXPECT_EQ(result.warnings[0].line, 2u);

    // Success replaces everything, the start address too.
    const std::string other = joinLines({dataRecord(0x20, {2}), EOF_RECORD});
    ASSERT_TRUE(readMemory(image, other.data(), other.size(), readAs(file_format_t::INTEL_HEX)));
    EXPECT_EQ(image.segments()[0].address, 0x20u);
    EXPECT_FALSE(image.hasStartAddress());
}

TEST(FullFormatReader, ReadHexFileFromAFileAPipeAndNowhere)
{
    TempDir dir;
    // Bigger than one piece of reading, with a line across a piece's end.
    std::vector<std::string> lines;
    for (uint32_t a = 0; a < 0x20000; a += 16) {
        if ((a & 0xFFFF) == 0)
            lines.push_back(linearBaseRecord(static_cast<uint16_t>(a >> 16)));
        lines.push_back(dataRecord(static_cast<uint16_t>(a), countingBytes(16, static_cast<uint8_t>(a >> 4))));
    }
    lines.push_back(EOF_RECORD);
    const std::string text = joinLines(lines, "\r\n");
    const std::string path = dir.write("big.hex", text);

    MemoryImage fromFile;
    ASSERT_TRUE(readFile(fromFile, path.c_str(), readAs(file_format_t::INTEL_HEX)));
    MemoryImage fromMemory;
    ASSERT_TRUE(readMemory(fromMemory, text.data(), text.size(), readAs(file_format_t::INTEL_HEX)));
    EXPECT_EQ(bytesOf(fromFile), bytesOf(fromMemory));
    EXPECT_EQ(fromFile.dataSize(), 0x20000u);

    MemoryImage fromPipe;
    read_result_t piped;
    {
        const FifoFile fifo(dir, "pipe.hex", text);
        piped = readFile(fromPipe, fifo.path().c_str(), readAs(file_format_t::INTEL_HEX));
    }
    ASSERT_TRUE(piped) << piped.reason;
    EXPECT_EQ(bytesOf(fromPipe), bytesOf(fromMemory));

    MemoryImage none;
    const read_result_t missing = readFile(none, dir.file("missing.hex").c_str(), readAs(file_format_t::INTEL_HEX));
    EXPECT_FALSE(missing);
    EXPECT_EQ(missing.line, 0u);
    EXPECT_EQ(missing.reason, "cannot open the file: No such file or directory");
    const read_result_t directory = readFile(none, dir.path().c_str(), readAs(file_format_t::INTEL_HEX));
    EXPECT_FALSE(directory);
    EXPECT_EQ(directory.line, 0u);
    EXPECT_EQ(directory.reason, "cannot read the file: Is a directory");
}

namespace {

// A file of records that never overlap, under linear or segment bases, in
// the order given: what objcopy and srec_cat read the same way as this
// library (where records overlap they keep the last value, this library the
// first).
std::string independentToolsFile(std::mt19937& rng, const std::string& order, bool segmented)
{
    struct Record {
        uint16_t base;
        uint16_t offset;
        std::vector<uint8_t> bytes;
    };
    std::vector<Record> records;
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> length(1, 32);
    std::uniform_int_distribution<int> gap(0, 40);
    for (int b = 0; b < 3; ++b) {
        // Segment bases are 16-byte steps; offsets stay below 0xF000 so that
        // no record wraps.
        const uint16_t base = static_cast<uint16_t>(segmented ? 0x1000 * (b + 1) + 0x123 : 0x0800 + 2 * b);
        uint32_t offset = static_cast<uint32_t>(std::uniform_int_distribution<int>(0, 0x8000)(rng));
        for (int i = std::uniform_int_distribution<int>(1, 150)(rng); i > 0 && offset < 0xF000; --i) {
            Record r{base, static_cast<uint16_t>(offset), std::vector<uint8_t>(static_cast<size_t>(length(rng)))};
            for (uint8_t& x : r.bytes)
                x = static_cast<uint8_t>(byte(rng));
            offset += static_cast<uint32_t>(r.bytes.size() + (gap(rng) < 4 ? gap(rng) : 0));
            records.push_back(r);
        }
    }
    if (order == "descending")
        std::reverse(records.begin(), records.end());
    else if (order == "shuffled")
        std::shuffle(records.begin(), records.end(), rng);
    std::vector<std::string> lines;
    for (const Record& r : records) {
        lines.push_back(segmented ? segmentRecord(r.base) : linearBaseRecord(r.base));
        lines.push_back(dataRecord(r.offset, r.bytes));
    }
    lines.push_back(startRecord(segmented ? 0x03 : 0x05, 0x08000101));
    lines.push_back(EOF_RECORD);
    return joinLines(lines);
}

} // namespace

TEST(FullFormatReader, ReadsAsObjcopyAndSrecCatDo)
{
    TempDir dir;
    std::mt19937 rng(31);
    int files = 0;
    for (bool segmented : {false, true}) {
        for (const std::string order : {"ascending", "descending", "shuffled"}) {
            const std::string name = "f" + std::to_string(++files);
            SCOPED_TRACE(name + (segmented ? " segmented, " : " linear, ") + order);
            const std::string text = independentToolsFile(rng, order, segmented);
            const std::string path = dir.write(name + ".hex", text);
            MemoryImage image;
            ASSERT_TRUE(readFile(image, path.c_str(), readAs(file_format_t::INTEL_HEX)));
            ASSERT_FALSE(image.empty());

            // objcopy writes the flat image from the lowest address, with the
            // gap fill between.
            const std::string objcopyOut = dir.file(name + ".objcopy.bin");
            const ProcessResult objcopy =
                runProcess(OBJCOPY_PATH, {"-I", "ihex", "-O", "binary", "--gap-fill", "0xFF", path, objcopyOut});
            ASSERT_EQ(objcopy.exitCode, 0) << objcopy.err;
            EXPECT_EQ(readFileBytes(objcopyOut),
                      image.copyRange(image.lowestAddress(), static_cast<size_t>(image.span()), 0xFF));

            // srec_cat, moved down to the lowest address, leaves the gaps 0.
            const std::string srecOut = dir.file(name + ".srec_cat.bin");
            const ProcessResult srecCat =
                runProcess(SREC_CAT_PATH, {path, "-intel", "-offset", "-" + std::to_string(image.lowestAddress()), "-o",
                                           srecOut, "-binary"});
            ASSERT_EQ(srecCat.exitCode, 0) << srecCat.err;
            EXPECT_EQ(readFileBytes(srecOut),
                      image.copyRange(image.lowestAddress(), static_cast<size_t>(image.span()), 0x00));
        }
    }
}

TEST(FullFormatReader, MemoryImageNeverPrints)
{
    // Failures, warnings and every other operation: nothing on either stream.
    TempDir dir;
    const std::string unsupported = joinLines({dataRecord(0, {1}), hexRecord(0x0A, 0, {1})});
    const std::string warned = joinLines({dataRecord(0, countingBytes(4)), dataRecord(2, {9, 9, 9}), startRecord(0x05, 1),
                                          startRecord(0x05, 2)});
    const std::vector<std::string> texts = {unsupported, warned, ":0300300002337A1F\n", "x\n", std::string(300000, ' ')};
    const CapturedOutput io = captureOutput([&] {
        MemoryImage image;
        for (const std::string& text : texts) {
            readMemory(image, text.data(), text.size(), readAs(file_format_t::INTEL_HEX));
            readFile(image, dir.write("in.hex", text).c_str(), readAs(file_format_t::INTEL_HEX));
        }
        readFile(image, dir.file("missing.hex").c_str(), readAs(file_format_t::INTEL_HEX));
        readFile(image, dir.path().c_str(), readAs(file_format_t::INTEL_HEX));
        ASSERT_TRUE(readMemory(image, warned.data(), warned.size(), readAs(file_format_t::INTEL_HEX)));
        image.write(0xFFFFFFFF, countingBytes(2).data(), 2);
        image.setStartAddress({4, 0});
        IntelHexFile file;
        block_options_t options;
        options.oneBlock = true;
        options.maxImageSize = 1;
        appendToBlocks(image, file, options);
        appendToBlocks(image, file);
        imageFromBlocks(file);
    });
    EXPECT_EQ(io.out, "");
    EXPECT_EQ(io.err, "");
}
