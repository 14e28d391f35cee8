// Turns arbitrary bytes into an image (linear bases, blocks with gaps, record
// lengths, record order), encodes it as Intel HEX, loads it, and compares the
// blocks with the image.
#include "fuzz_common.h"
#include "intelhex.h"
#include "support/hex_text.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

namespace {

struct Segment {
    uint16_t linearBase;
    uint16_t start;
    std::vector<uint8_t> bytes;
};

struct Record {
    uint16_t linearBase;
    uint16_t address;
    std::vector<uint8_t> bytes;
};

// A record line, upper case or, for lower, lower case.
std::string recordLine(const std::string& upperCase, bool lower)
{
    std::string line = upperCase;
    if (lower)
        std::transform(line.begin(), line.end(), line.begin(), [](char c) { return static_cast<char>(std::tolower(c)); });
    return line;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    silenceDiagnostics();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider in(data, size);

    // Segments in ascending order under ascending bases, at least one byte
    // apart, each within its 64 KiB page.
    std::vector<Segment> segments;
    uint16_t base = in.ConsumeIntegral<uint16_t>() & 0x00FF;
    const int baseCount = in.ConsumeIntegralInRange<int>(1, 4);
    for (int b = 0; b < baseCount; ++b) {
        uint32_t next = in.ConsumeIntegralInRange<uint32_t>(0, 0xFFFF);
        const int count = in.ConsumeIntegralInRange<int>(1, 6);
        for (int s = 0; s < count && next < 0x10000; ++s) {
            const uint32_t room = 0x10000 - next;
            const uint32_t length = in.ConsumeIntegralInRange<uint32_t>(1, std::min<uint32_t>(room, 2048));
            Segment segment{base, static_cast<uint16_t>(next), in.ConsumeBytes<uint8_t>(length)};
            segment.bytes.resize(length, 0xA5);
            segments.push_back(segment);
            next += length + in.ConsumeIntegralInRange<uint32_t>(1, 4096);
        }
        base = static_cast<uint16_t>(base + in.ConsumeIntegralInRange<uint16_t>(1, 0x100));
    }

    // Records of 1 to 255 bytes, then a shuffle driven by the input.
    std::vector<Record> records;
    for (const Segment& s : segments) {
        size_t offset = 0;
        while (offset < s.bytes.size()) {
            const size_t n = std::min<size_t>(in.ConsumeIntegralInRange<size_t>(1, 255), s.bytes.size() - offset);
            records.push_back(Record{s.linearBase, static_cast<uint16_t>(s.start + offset),
                                     std::vector<uint8_t>(s.bytes.begin() + static_cast<long>(offset),
                                                          s.bytes.begin() + static_cast<long>(offset + n))});
            offset += n;
        }
    }
    if (in.ConsumeBool())
        for (size_t i = records.size(); i > 1; --i)
            std::swap(records[i - 1], records[in.ConsumeIntegralInRange<size_t>(0, i - 1)]);
    const bool crlf = in.ConsumeBool();
    const bool lower = in.ConsumeBool();

    std::string text;
    bool haveBase = false;
    uint16_t current = 0;
    const char* eol = crlf ? "\r\n" : "\n";
    for (const Record& r : records) {
        if (!haveBase || r.linearBase != current) {
            text += recordLine(linearBaseRecord(r.linearBase), lower) + eol;
            current = r.linearBase;
            haveBase = true;
        }
        text += recordLine(dataRecord(r.address, r.bytes), lower) + eol;
    }
    text += ":00000001FF";
    text += eol;

    const MemoryFile file(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    IntelHexFile image;
    FUZZ_CHECK(image.load(file.path(), false));
    FUZZ_CHECK(image.getBlockCount() == segments.size());
    for (size_t i = 0; i < segments.size(); ++i) {
        const IntelHexFileBlock& block = image[i];
        FUZZ_CHECK(block.getLinearBase() == segments[i].linearBase);
        FUZZ_CHECK(block.getStartAddress() == segments[i].start);
        FUZZ_CHECK(block.getSize() == segments[i].bytes.size());
        FUZZ_CHECK(std::equal(segments[i].bytes.begin(), segments[i].bytes.end(), block.getBuffer()));
    }

    // One block: under a single base, the flat image with 0xFF in the gaps.
    if (baseCount == 1) {
        IntelHexFile single;
        FUZZ_CHECK(single.load(file.path(), true));
        FUZZ_CHECK(single.getBlockCount() == 1);
        const Segment& first = segments.front();
        const Segment& last = segments.back();
        std::vector<uint8_t> flat(last.start + last.bytes.size() - first.start, 0xFF);
        for (const Segment& s : segments)
            std::copy(s.bytes.begin(), s.bytes.end(), flat.begin() + (s.start - first.start));
        FUZZ_CHECK(single[0].getSize() == flat.size());
        FUZZ_CHECK(std::equal(flat.begin(), flat.end(), single[0].getBuffer()));
    }
    return 0;
}
