#include "support/image_view.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace hexblocks;

std::ostream& operator<<(std::ostream& os, const SegmentView& s)
{
    return os << std::hex << "{0x" << s.address << ", " << std::dec << s.bytes.size() << " bytes}";
}

std::vector<SegmentView> segmentsOf(const MemoryImage& image)
{
    std::vector<SegmentView> views;
    for (const segment_t& s : image.segments())
        views.push_back(SegmentView{s.address, s.bytes});
    return views;
}

bytemap_t bytesOf(const MemoryImage& image)
{
    bytemap_t bytes;
    for (const segment_t& s : image.segments())
        for (size_t i = 0; i < s.bytes.size(); ++i)
            bytes[static_cast<uint32_t>(s.address + i)] = s.bytes[i];
    return bytes;
}

MemoryImage imageOf(const std::vector<SegmentView>& parts)
{
    MemoryImage image;
    for (const SegmentView& p : parts)
        EXPECT_TRUE(image.write(p.address, p.bytes.data(), p.bytes.size()));
    return image;
}

void expectWellFormed(const MemoryImage& image)
{
    const std::vector<segment_t>& segments = image.segments();
    for (size_t i = 0; i < segments.size(); ++i) {
        EXPECT_FALSE(segments[i].bytes.empty()) << i;
        EXPECT_LE(segments[i].endAddress(), 0x100000000ull) << i;
        if (i > 0) {
            EXPECT_LT(segments[i - 1].endAddress(), segments[i].address) << i;
        }
    }
}

std::string startOf(const MemoryImage& image)
{
    if (!image.hasStartAddress())
        return "none";
    return "type " + std::to_string(image.startAddress().type) + " value " + std::to_string(image.startAddress().value);
}

MemoryImage randomImage(std::mt19937& random, bool withStart, bool small)
{
    auto below = [&random](uint64_t n) { return static_cast<uint64_t>(random() % n); };
    MemoryImage image;
    const unsigned areas = small ? 1 : 1 + static_cast<unsigned>(below(3));
    for (unsigned a = 0; a < areas; ++a) {
        const uint64_t span = small ? 0x8000 : 0x10000 * (1 + below(4));
        uint64_t base;
        switch (below(4)) {
        case 0: base = 0; break;
        case 1: base = 0x100000000ull - span; break;
        default: base = below(0x100000000ull - span) & ~0xFull; break;
        }
        const unsigned segments = 1 + static_cast<unsigned>(below(small ? 3 : 4));
        for (unsigned s = 0; s < segments; ++s) {
            const uint64_t length = 1 + below(small ? 600 : 70000);
            const uint64_t at = base + below(span);
            const uint64_t end = std::min(at + length, base + span);
            std::vector<uint8_t> bytes(static_cast<size_t>(end - at));
            for (uint8_t& b : bytes)
                b = static_cast<uint8_t>(random());
            image.write(static_cast<uint32_t>(at), bytes.data(), bytes.size());
        }
        // The top of the address space gets its last byte.
        if (base + span == 0x100000000ull) {
            const uint8_t last = static_cast<uint8_t>(random());
            image.write(0xFFFFFFFF, &last, 1);
        }
    }
    if (withStart)
        image.setStartAddress({5, static_cast<uint32_t>(1 + below(0xFFFFFFFE))});
    return image;
}
