// Flash plans: the geometry and its text form with every error, plans on a
// mixed-sector flash worked out by hand, blank pages, data outside the
// flash, the top of the address space, the page walker, and plans on
// generated images and geometries against a byte-by-byte model.
#include "flash_plan.h"

#include "support/image_view.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {

using geometry_t = FlashPlan::geometry_t;
using range_t = range_t;

geometry_t parsed(const std::string& text, uint32_t pageSize = 256)
{
    geometry_t geometry;
    geometry.pageSize = pageSize;
    const result_t result = FlashPlan::parseSectors(text, geometry);
    EXPECT_TRUE(result.ok()) << text << ": " << result.reason;
    return geometry;
}

std::string groupsText(const geometry_t& geometry)
{
    std::string text = std::to_string(geometry.start) + ":";
    for (const FlashPlan::sector_group_t& g : geometry.sectors)
        text += std::to_string(g.count) + "x" + std::to_string(g.size) + ";";
    return text;
}

struct SectorView {
    uint32_t address;
    uint32_t size;
    bool partial;
    bool operator==(const SectorView& o) const
    {
        return address == o.address && size == o.size && partial == o.partial;
    }
};

std::ostream& operator<<(std::ostream& os, const SectorView& s)
{
    return os << "{" << s.address << ", " << s.size << (s.partial ? ", partial}" : "}");
}

std::vector<SectorView> eraseOf(const FlashPlan& plan)
{
    std::vector<SectorView> sectors;
    for (const FlashPlan::sector_t& s : plan.eraseList())
        sectors.push_back(SectorView{s.address, s.size, s.partial});
    return sectors;
}

std::vector<std::pair<uint64_t, uint64_t>> writeOf(const FlashPlan& plan)
{
    std::vector<std::pair<uint64_t, uint64_t>> runs;
    for (const range_t& r : plan.writeList())
        runs.emplace_back(r.start, r.end);
    return runs;
}

// Every page the walker gives, by address.
std::map<uint32_t, std::vector<uint8_t>> walk(const MemoryImage& image, const FlashPlan& plan)
{
    std::map<uint32_t, std::vector<uint8_t>> pages;
    FlashPlan::PageWalker walker(image, plan);
    while (walker.next()) {
        EXPECT_EQ(pages.count(walker.address()), 0u) << "page given twice";
        pages[walker.address()] = std::vector<uint8_t>(walker.data(), walker.data() + walker.size());
    }
    EXPECT_FALSE(walker.next()) << "a finished walker stays finished";
    return pages;
}

TEST(FlashGeometry, ParsesUniformAndMixedSectors)
{
    geometry_t g = parsed("0x08000000:64x4K");
    EXPECT_EQ(groupsText(g), "134217728:64x4096;");
    EXPECT_EQ(g.end(), 0x08040000u);

    g = parsed("0x08000000:4x16K,1x64K,7x128K");
    EXPECT_EQ(groupsText(g), "134217728:4x16384;1x65536;7x131072;");
    EXPECT_EQ(g.end(), 0x08100000u); // 1 MiB: an STM32F405's flash

    EXPECT_EQ(groupsText(parsed("0:2x1M,1x0x800,3x512")), "0:2x1048576;1x2048;3x512;");
    EXPECT_EQ(groupsText(parsed("16x4k")), "0:16x4096;"); // no address: the flash starts at 0
    EXPECT_EQ(groupsText(parsed("0x1000:1x0x1000", 0x1000)), "4096:1x4096;");
    EXPECT_EQ(groupsText(parsed("4096:2x2m", 4096)), "4096:2x2097152;");
}

TEST(FlashGeometry, ParsesSizes)
{
    const std::vector<std::pair<const char*, uint32_t>> good = {
        {"1", 1},       {"256", 256},         {"528", 528},       {"4K", 4096},           {"4k", 4096},
        {"2M", 2097152}, {"2m", 2097152},     {"0x800", 0x800},   {"0x10K", 0x4000},      {"4095M", 4095u << 20},
        {"4194303K", 0xFFFFFC00u},            {"4294967295", 0xFFFFFFFFu}, {"0xFFFFFFFF", 0xFFFFFFFFu}};
    for (const auto& g : good) {
        uint32_t size = 0;
        EXPECT_TRUE(FlashPlan::parseSize(g.first, size)) << g.first;
        EXPECT_EQ(size, g.second) << g.first;
    }
    for (const char* bad : {"", "0", "0K", "K", "4KB", "4G", "4096M", "4194304K", "4294967296", "0x100000000",
                            "-1", "+1", " 1", "1 ", "0x", "1.5K", "010x", "4KK"}) {
        uint32_t size = 7;
        EXPECT_FALSE(FlashPlan::parseSize(bad, size)) << bad;
        EXPECT_EQ(size, 7u) << bad;
    }
}

TEST(FlashGeometry, ParsingLeavesPageSizeAndErasedValueAlone)
{
    geometry_t g;
    g.pageSize = 512;
    g.erased = 0x00;
    ASSERT_TRUE(FlashPlan::parseSectors("0x400:2x1K", g));
    EXPECT_EQ(g.pageSize, 512u);
    EXPECT_EQ(g.erased, 0x00);
    EXPECT_EQ(g.start, 0x400u);
}

TEST(FlashGeometry, RefusesTextOfAnotherFormLeavingTheGeometryAlone)
{
    const std::string form =
        "expected ADDRESS:COUNTxSIZE[,COUNTxSIZE...], such as 0x08000000:4x16K,1x64K,7x128K";
    for (const char* text : {"", ":", "0x08000000:", "0x08000000", "x4K", "4x", "4x0", "0x4K", "4x4G", "4xK",
                             "4x4KB", "4x-4K", "-1:4x4K", "4x4K,", ",4x4K", "4 x 4K", "4x4K;1x64K", "1x4K:2x4K",
                             "0x100000000:1x4K", "4x0x", "0x10x4K", "4x4K ", "4294967296x1", "4x4096M",
                             "abc:1x1K", "0xG:1x1K"}) {
        geometry_t g = parsed("0x100:1x256");
        const result_t result = FlashPlan::parseSectors(text, g);
        EXPECT_FALSE(result.ok()) << text;
        EXPECT_EQ(result.reason, form) << text;
        EXPECT_EQ(groupsText(g), "256:1x256;") << text;
    }
}

TEST(FlashGeometry, ChecksPageBoundariesAndTheAddressSpace)
{
    geometry_t g;
    EXPECT_EQ(FlashPlan::checkGeometry(g).reason, "the flash has no sectors");

    g = parsed("0:4x1K");
    g.pageSize = 0;
    EXPECT_EQ(FlashPlan::checkGeometry(g).reason, "the page size is 0");

    g.pageSize = 512;
    g.start = 0x100;
    EXPECT_EQ(FlashPlan::checkGeometry(g).reason,
              "the sector boundary 0x00000100 is not a multiple of the page size 512");

    g.start = 0x08000000;
    g.sectors = {{2, 1024}, {1, 1536}};
    EXPECT_TRUE(FlashPlan::checkGeometry(g).ok());
    g.pageSize = 1024;
    EXPECT_EQ(FlashPlan::checkGeometry(g).reason,
              "the sector boundary 0x08000E00 is not a multiple of the page size 1024");
    g.pageSize = 512;

    g.sectors = {{1, 1024}, {0, 1024}};
    EXPECT_EQ(FlashPlan::checkGeometry(g).reason, "a sector group has no sectors or sectors of size 0");
    g.sectors = {{1, 0}};
    EXPECT_EQ(FlashPlan::checkGeometry(g).reason, "a sector group has no sectors or sectors of size 0");

    // Sectors that end exactly at 2^32 are fine; one byte more is not.
    g.start = 0xFFFF0000;
    g.sectors = {{16, 4096}};
    EXPECT_TRUE(FlashPlan::checkGeometry(g).ok());
    g.sectors = {{15, 4096}, {2, 4096}};
    EXPECT_EQ(FlashPlan::checkGeometry(g).reason, "the sectors 2x4096 at 0xFFFFF000 run past address 0xFFFFFFFF");
    g.start = 0;
    g.sectors = {{0xFFFFFFFF, 0xFFFFFFFF}};
    g.pageSize = 1;
    EXPECT_EQ(FlashPlan::checkGeometry(g).reason,
              "the sectors 4294967295x4294967295 at 0x00000000 run past address 0xFFFFFFFF");
    EXPECT_EQ(g.end(), 0xFFFFFFFFull * 0xFFFFFFFFull);

    // parseSectors checks with the page size already set.
    geometry_t h;
    h.pageSize = 4096;
    const result_t parsedTooSmall = FlashPlan::parseSectors("0x08000000:4x1K", h);
    EXPECT_EQ(parsedTooSmall.reason, "the sector boundary 0x08000400 is not a multiple of the page size 4096");
    EXPECT_TRUE(h.sectors.empty());
}

// An STM32F4-style flash, worked out by hand.
TEST(FlashPlan, PlansMixedSectors)
{
    MemoryImage image;
    const std::vector<uint8_t> vectors(0x200, 0x11);
    const std::vector<uint8_t> app(0x10000, 0x22);    // 0x08004000-0x08013FFF: sectors 1 to 4
    const std::vector<uint8_t> settings(0x20, 0x33); // in the first 128 KiB sector's last page
    ASSERT_TRUE(image.write(0x08000000, vectors.data(), vectors.size()));
    ASSERT_TRUE(image.write(0x08004000, app.data(), app.size()));
    ASSERT_TRUE(image.write(0x0803FFE0, settings.data(), settings.size()));

    FlashPlan plan;
    ASSERT_TRUE(plan.make(image, parsed("0x08000000:4x16K,1x64K,7x128K")));
    const std::vector<SectorView> erase = {{0x08000000, 0x4000, true},   {0x08004000, 0x4000, false},
                                           {0x08008000, 0x4000, false},  {0x0800C000, 0x4000, false},
                                           {0x08010000, 0x10000, true},  {0x08020000, 0x20000, true}};
    EXPECT_EQ(eraseOf(plan), erase);
    EXPECT_EQ(plan.partialSectors(), 3u);
    EXPECT_EQ(plan.eraseBytes(), 4u * 0x4000 + 0x10000 + 0x20000);
    const std::vector<std::pair<uint64_t, uint64_t>> write = {
        {0x08000000, 0x08000200}, {0x08004000, 0x08014000}, {0x0803FF00, 0x08040000}};
    EXPECT_EQ(writeOf(plan), write);
    EXPECT_EQ(plan.writePages(), 2u + 256 + 1);
    EXPECT_EQ(plan.writeBytes(), (2u + 256 + 1) * 256);
    EXPECT_EQ(plan.skippedBlank(), 0u);
    EXPECT_EQ(plan.geometry().end(), 0x08100000u);

    // The last page holds the settings at its end, erased value before them.
    const auto pages = walk(image, plan);
    ASSERT_EQ(pages.size(), 259u);
    std::vector<uint8_t> last(256, 0xFF);
    std::copy(settings.begin(), settings.end(), last.begin() + 0xE0);
    EXPECT_EQ(pages.at(0x0803FF00), last);
    EXPECT_EQ(pages.at(0x08000100), std::vector<uint8_t>(256, 0x11));
}

TEST(FlashPlan, SkipsBlankPagesUnlessKept)
{
    // Page 0 holds only 0xFF bytes, page 1 a gap of 0xFF and one 0x00, page 2
    // only 0xFF bytes and no gap, page 3 nothing.
    MemoryImage image;
    const std::vector<uint8_t> blank(300, 0xFF);
    ASSERT_TRUE(image.write(0x10, blank.data(), 16));
    const uint8_t zero = 0x00;
    ASSERT_TRUE(image.write(0x180, &zero, 1));
    ASSERT_TRUE(image.write(0x200, blank.data(), 256));
    geometry_t g = parsed("0:8x256");

    FlashPlan plan;
    ASSERT_TRUE(plan.make(image, g));
    EXPECT_EQ(writeOf(plan), (std::vector<std::pair<uint64_t, uint64_t>>{{0x100, 0x200}}));
    EXPECT_EQ(plan.skippedBlank(), 2u);
    EXPECT_EQ(plan.writePages(), 1u);
    // Blank pages are still erased: their sectors hold data.
    EXPECT_EQ(eraseOf(plan), (std::vector<SectorView>{{0, 256, true}, {0x100, 256, true}, {0x200, 256, false}}));

    ASSERT_TRUE(plan.make(image, g, true));
    EXPECT_EQ(writeOf(plan), (std::vector<std::pair<uint64_t, uint64_t>>{{0, 0x300}}));
    EXPECT_EQ(plan.skippedBlank(), 0u);
    EXPECT_EQ(plan.writePages(), 3u);
    EXPECT_EQ(walk(image, plan).at(0x200), std::vector<uint8_t>(256, 0xFF));

    // With 0x00 as the erased value, page 1 is blank and pages 0 and 2 are not.
    g.erased = 0x00;
    ASSERT_TRUE(plan.make(image, g));
    EXPECT_EQ(writeOf(plan), (std::vector<std::pair<uint64_t, uint64_t>>{{0, 0x100}, {0x200, 0x300}}));
    EXPECT_EQ(plan.skippedBlank(), 1u);
    std::vector<uint8_t> first(256, 0x00);
    std::fill(first.begin() + 0x10, first.begin() + 0x20, 0xFF);
    EXPECT_EQ(walk(image, plan).at(0), first) << "gaps take the erased value";
}

TEST(FlashPlan, RefusesDataOutsideTheFlash)
{
    const geometry_t g = parsed("0x08000000:4x16K");
    const uint8_t byte = 0xA5;
    FlashPlan plan;
    MemoryImage image;
    ASSERT_TRUE(image.write(0x08000000, &byte, 1));
    ASSERT_TRUE(plan.make(image, g));
    ASSERT_FALSE(plan.eraseList().empty());

    MemoryImage below = image;
    ASSERT_TRUE(below.write(0x07FFFFF0, &byte, 1));
    result_t made = plan.make(below, g);
    EXPECT_FALSE(made.ok());
    EXPECT_EQ(made.address, 0x07FFFFF0u);
    EXPECT_EQ(made.reason, "the data at 0x07FFFFF0 lies outside the flash (0x08000000-0x0800FFFF)");
    EXPECT_TRUE(plan.eraseList().empty()) << "a failed plan is empty";
    EXPECT_TRUE(plan.writeList().empty());

    // A segment that starts inside and runs past the end names the first
    // byte past the end.
    MemoryImage across;
    const std::vector<uint8_t> bytes(0x20, 0x01);
    ASSERT_TRUE(across.write(0x0800FFF0, bytes.data(), bytes.size()));
    ASSERT_TRUE(across.write(0x09000000, bytes.data(), bytes.size()));
    made = plan.make(across, g);
    EXPECT_EQ(made.address, 0x08010000u);
    EXPECT_EQ(made.reason, "the data at 0x08010000 lies outside the flash (0x08000000-0x0800FFFF)");

    MemoryImage far;
    ASSERT_TRUE(far.write(0x08000000, &byte, 1));
    ASSERT_TRUE(far.write(0xFFFFFFFF, &byte, 1));
    EXPECT_EQ(plan.make(far, g).address, 0xFFFFFFFFu);

    geometry_t bad = g;
    bad.pageSize = 3;
    made = plan.make(image, bad);
    EXPECT_EQ(made.reason, "the sector boundary 0x08000000 is not a multiple of the page size 3");
}

TEST(FlashPlan, EmptyImageGivesAnEmptyPlan)
{
    FlashPlan plan;
    ASSERT_TRUE(plan.make(MemoryImage(), parsed("0:4x1K")));
    EXPECT_TRUE(plan.eraseList().empty());
    EXPECT_TRUE(plan.writeList().empty());
    EXPECT_EQ(plan.eraseBytes() + plan.writeBytes() + plan.skippedBlank() + plan.partialSectors(), 0u);
    FlashPlan::PageWalker walker(MemoryImage(), plan);
    EXPECT_FALSE(walker.next());
}

TEST(FlashPlan, ReachesTheTopOfTheAddressSpace)
{
    MemoryImage image;
    const std::vector<uint8_t> tail = {0x01, 0x02, 0x03};
    ASSERT_TRUE(image.write(0xFFFFFFFD, tail.data(), tail.size()));
    ASSERT_TRUE(image.write(0xFFFF0000, tail.data(), 1));
    FlashPlan plan;
    ASSERT_TRUE(plan.make(image, parsed("0xFFFF0000:15x4K,4x1K", 1024)));
    EXPECT_EQ(eraseOf(plan), (std::vector<SectorView>{{0xFFFF0000, 4096, true}, {0xFFFFFC00, 1024, true}}));
    EXPECT_EQ(writeOf(plan), (std::vector<std::pair<uint64_t, uint64_t>>{{0xFFFF0000, 0xFFFF0400},
                                                                          {0xFFFFFC00, 0x100000000ull}}));
    EXPECT_EQ(plan.eraseBytes(), 5120u);
    const auto pages = walk(image, plan);
    ASSERT_EQ(pages.size(), 2u);
    const std::vector<uint8_t>& top = pages.at(0xFFFFFC00);
    ASSERT_EQ(top.size(), 1024u);
    EXPECT_EQ(std::vector<uint8_t>(top.end() - 4, top.end()), (std::vector<uint8_t>{0xFF, 0x01, 0x02, 0x03}));

    // One sector and one page for the whole 4 GiB, with 2 GiB sectors.
    geometry_t whole = parsed("0:2x0x80000000", 0x80000000);
    ASSERT_TRUE(plan.make(image, whole));
    EXPECT_EQ(eraseOf(plan), (std::vector<SectorView>{{0x80000000, 0x80000000, true}}));
    EXPECT_EQ(writeOf(plan), (std::vector<std::pair<uint64_t, uint64_t>>{{0x80000000, 0x100000000ull}}));
    EXPECT_EQ(plan.writeBytes(), 0x80000000u);
}

// A random geometry of up to 1 MiB, at a low address or ending at 2^32.
geometry_t randomGeometry(std::mt19937& random)
{
    geometry_t g;
    const uint32_t pageSizes[] = {1, 16, 100, 256, 528, 1024};
    g.pageSize = pageSizes[random() % 6];
    uint64_t size = 0;
    const unsigned groups = 1 + random() % 3;
    for (unsigned i = 0; i < groups; ++i) {
        const uint32_t pages = 1 + random() % 16;
        const uint32_t count = 1 + random() % 8;
        g.sectors.push_back({count, pages * g.pageSize});
        size += static_cast<uint64_t>(count) * pages * g.pageSize;
    }
    if (random() % 3 == 0)
        g.start = static_cast<uint32_t>((0x100000000ull - size) / g.pageSize * g.pageSize);
    else
        g.start = (random() % 64) * g.pageSize;
    g.erased = random() % 2 ? 0xFF : 0x00;
    return g;
}

// Random runs of data inside the flash; some bytes, and some whole pages,
// are the erased value.
MemoryImage randomDataIn(std::mt19937& random, const geometry_t& g)
{
    MemoryImage image;
    const uint64_t size = g.end() - g.start;
    const unsigned runs = random() % 6;
    for (unsigned r = 0; r < runs; ++r) {
        const uint64_t at = g.start + random() % size;
        const uint64_t length = std::min<uint64_t>(1 + random() % (3 * g.pageSize + 40), g.end() - at);
        std::vector<uint8_t> bytes(static_cast<size_t>(length));
        const bool blank = random() % 3 == 0;
        for (uint8_t& b : bytes)
            b = blank || random() % 4 == 0 ? g.erased : static_cast<uint8_t>(random());
        EXPECT_TRUE(image.write(static_cast<uint32_t>(at), bytes.data(), bytes.size()));
    }
    return image;
}

TEST(FlashPlan, AgreesWithAModelOnGeneratedImagesAndGeometries)
{
    std::mt19937 random(2026);
    for (int round = 0; round < 300; ++round) {
        const geometry_t g = randomGeometry(random);
        ASSERT_TRUE(FlashPlan::checkGeometry(g)) << groupsText(g);
        const MemoryImage image = randomDataIn(random, g);
        const bool keepBlank = random() % 4 == 0;
        const bytemap_t data = bytesOf(image);
        SCOPED_TRACE("round " + std::to_string(round) + ", " + groupsText(g) + " pages of " +
                     std::to_string(g.pageSize));

        FlashPlan plan;
        ASSERT_TRUE(plan.make(image, g, keepBlank));

        // The model: every sector and every page of the flash, one by one.
        std::vector<SectorView> erase;
        uint64_t base = g.start;
        for (const FlashPlan::sector_group_t& group : g.sectors) {
            for (uint32_t i = 0; i < group.count; ++i, base += group.size) {
                uint64_t held = 0;
                for (auto d = data.lower_bound(static_cast<uint32_t>(base));
                     d != data.end() && d->first < base + group.size; ++d)
                    ++held;
                if (held > 0)
                    erase.push_back({static_cast<uint32_t>(base), group.size, held < group.size});
            }
        }
        EXPECT_EQ(eraseOf(plan), erase);

        std::set<uint64_t> written, skipped;
        for (uint64_t page = g.start; page < g.end(); page += g.pageSize) {
            bool any = false, blank = true;
            for (auto d = data.lower_bound(static_cast<uint32_t>(page)); d != data.end() && d->first < page + g.pageSize;
                 ++d) {
                any = true;
                blank = blank && d->second == g.erased;
            }
            if (any)
                (blank && !keepBlank ? skipped : written).insert(page);
        }
        const auto pages = walk(image, plan);
        std::set<uint64_t> walked;
        for (const auto& p : pages) {
            walked.insert(p.first);
            EXPECT_EQ(p.first % g.pageSize, 0u) << "aligned";
            ASSERT_EQ(p.second.size(), g.pageSize) << "full";
            for (uint32_t i = 0; i < g.pageSize; ++i) {
                const auto d = data.find(p.first + i);
                EXPECT_EQ(p.second[i], d == data.end() ? g.erased : d->second) << p.first + i;
            }
        }
        EXPECT_EQ(walked, written);
        EXPECT_EQ(plan.skippedBlank(), skipped.size());
        EXPECT_EQ(plan.writePages(), written.size());
        EXPECT_EQ(plan.writeBytes(), written.size() * g.pageSize);
        // Every data byte lies in exactly one written or skipped page.
        for (const auto& d : data) {
            const uint64_t page = d.first - d.first % g.pageSize;
            EXPECT_EQ(written.count(page) + skipped.count(page), 1u) << d.first;
        }
        uint64_t eraseBytes = 0, partial = 0;
        for (const SectorView& s : erase) {
            eraseBytes += s.size;
            partial += s.partial ? 1 : 0;
        }
        EXPECT_EQ(plan.eraseBytes(), eraseBytes);
        EXPECT_EQ(plan.partialSectors(), partial);
        // Adjacent pages share a range: no two ranges touch.
        for (size_t i = 1; i < plan.writeList().size(); ++i)
            EXPECT_LT(plan.writeList()[i - 1].end, plan.writeList()[i].start);
    }
}

} // namespace
