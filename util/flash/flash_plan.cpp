// Flash plans: the geometry and its text form, the sweep over the image that
// finds the sectors to erase and the pages to write, and the page walker.
#include "flash_plan.h"

#include "hex_format.h"

#include <algorithm>
#include <utility>

namespace hexblocks {

using hexblocks::detail::hexAddress;

namespace {

const uint64_t ADDRESS_SPACE = 0x100000000ull;

// A decimal number, or a hexadecimal one after "0x"; digits only, no sign or
// spaces, at most max.
bool parseUnsigned(const std::string& text, uint64_t max, uint64_t& value)
{
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const size_t first = hex ? 2 : 0;
    if (text.size() <= first)
        return false;
    uint64_t v = 0;
    for (size_t i = first; i < text.size(); ++i) {
        const char c = text[i];
        unsigned digit;
        if (c >= '0' && c <= '9')
            digit = static_cast<unsigned>(c - '0');
        else if (hex && c >= 'a' && c <= 'f')
            digit = static_cast<unsigned>(c - 'a' + 10);
        else if (hex && c >= 'A' && c <= 'F')
            digit = static_cast<unsigned>(c - 'A' + 10);
        else
            return false;
        const unsigned base = hex ? 16 : 10;
        if (v > (max - digit) / base)
            return false;
        v = v * base + digit;
    }
    value = v;
    return true;
}

// COUNTxSIZE, the count decimal.
bool parseGroup(const std::string& text, FlashPlan::sector_group_t& group)
{
    const std::string::size_type x = text.find('x');
    uint64_t count = 0;
    if (x == std::string::npos || text.find_first_not_of("0123456789") != x ||
        !parseUnsigned(text.substr(0, x), 0xFFFFFFFF, count) || count == 0)
        return false;
    group.count = static_cast<uint32_t>(count);
    return FlashPlan::parseSize(text.substr(x + 1), group.size);
}

// Walks the segments of an image forwards: the data addresses and the data
// bytes inside address ranges that never move backwards.
class DataCursor {
public:
    explicit DataCursor(const std::vector<segment_t>& segments)
        : segments_(segments), index_(0)
    {
    }

    // The first data address at or after from; false when there is none.
    bool nextData(uint64_t from, uint64_t& address)
    {
        skipEndingBy(from);
        if (index_ == segments_.size())
            return false;
        address = std::max<uint64_t>(from, segments_[index_].address);
        return true;
    }

    // The number of data bytes in [start, end).
    uint64_t countData(uint64_t start, uint64_t end)
    {
        skipEndingBy(start);
        uint64_t count = 0;
        for (size_t i = index_; i < segments_.size() && segments_[i].address < end; ++i)
            count += std::min(end, segments_[i].endAddress()) - std::max<uint64_t>(start, segments_[i].address);
        return count;
    }

    // True when every data byte in [start, end) equals value.
    bool allDataEquals(uint64_t start, uint64_t end, uint8_t value)
    {
        skipEndingBy(start);
        for (size_t i = index_; i < segments_.size() && segments_[i].address < end; ++i) {
            const segment_t& s = segments_[i];
            const auto first = s.bytes.begin() + static_cast<long>(std::max<uint64_t>(start, s.address) - s.address);
            const auto last = s.bytes.begin() + static_cast<long>(std::min(end, s.endAddress()) - s.address);
            if (std::find_if(first, last, [value](uint8_t b) { return b != value; }) != last)
                return false;
        }
        return true;
    }

private:
    void skipEndingBy(uint64_t address)
    {
        while (index_ < segments_.size() && segments_[index_].endAddress() <= address)
            ++index_;
    }

    const std::vector<segment_t>& segments_;
    size_t index_;
};

// Finds the sector that holds an address, for addresses that never move
// backwards, in a geometry checkGeometry() accepts.
class SectorCursor {
public:
    explicit SectorCursor(const FlashPlan::geometry_t& geometry)
        : groups_(geometry.sectors), index_(0), base_(geometry.start)
    {
    }

    // The sector holding address, which lies inside the flash.
    FlashPlan::sector_t sectorAt(uint64_t address)
    {
        while (address >= base_ + groupSize())
            base_ += groupSize(), ++index_;
        const uint32_t size = groups_[index_].size;
        const uint64_t start = base_ + (address - base_) / size * size;
        return FlashPlan::sector_t{static_cast<uint32_t>(start), size, false};
    }

private:
    uint64_t groupSize() const { return static_cast<uint64_t>(groups_[index_].count) * groups_[index_].size; }

    const std::vector<FlashPlan::sector_group_t>& groups_;
    size_t index_;
    uint64_t base_;
};

// The lowest data address outside [start, end); false when all data lies inside.
bool firstOutside(const MemoryImage& image, uint64_t start, uint64_t end, uint32_t& address)
{
    if (image.empty())
        return false;
    if (image.lowestAddress() < start) {
        address = image.lowestAddress();
        return true;
    }
    uint64_t found = 0;
    DataCursor data(image.segments());
    if (!data.nextData(end, found))
        return false;
    address = static_cast<uint32_t>(found);
    return true;
}

} // namespace

uint64_t FlashPlan::geometry_t::end() const
{
    uint64_t end = start;
    for (const sector_group_t& g : sectors)
        end += static_cast<uint64_t>(g.count) * g.size;
    return end;
}

bool FlashPlan::parseSize(const std::string& text, uint32_t& size)
{
    uint64_t unit = 1;
    std::string digits = text;
    if (!digits.empty() && (digits.back() == 'K' || digits.back() == 'k'))
        unit = 1024;
    else if (!digits.empty() && (digits.back() == 'M' || digits.back() == 'm'))
        unit = 1024 * 1024;
    if (unit != 1)
        digits.pop_back();
    uint64_t value = 0;
    if (!parseUnsigned(digits, 0xFFFFFFFFull / unit, value) || value == 0)
        return false;
    size = static_cast<uint32_t>(value * unit);
    return true;
}

result_t FlashPlan::parseSectors(const std::string& text, geometry_t& geometry)
{
    const char* const form = "expected ADDRESS:COUNTxSIZE[,COUNTxSIZE...], such as 0x08000000:4x16K,1x64K,7x128K";
    geometry_t parsed = geometry;
    parsed.start = 0;
    parsed.sectors.clear();
    std::string groups = text;
    const std::string::size_type colon = text.find(':');
    if (colon != std::string::npos) {
        uint64_t start = 0;
        if (!parseUnsigned(text.substr(0, colon), 0xFFFFFFFF, start))
            return failure(status_t::SYNTAX, form);
        parsed.start = static_cast<uint32_t>(start);
        groups = text.substr(colon + 1);
    }
    std::string::size_type from = 0;
    for (;;) {
        const std::string::size_type comma = groups.find(',', from);
        sector_group_t group{0, 0};
        if (!parseGroup(groups.substr(from, comma == std::string::npos ? std::string::npos : comma - from), group))
            return failure(status_t::SYNTAX, form);
        parsed.sectors.push_back(group);
        if (comma == std::string::npos)
            break;
        from = comma + 1;
    }
    const result_t checked = checkGeometry(parsed);
    if (checked)
        geometry = parsed;
    return checked;
}

result_t FlashPlan::checkGeometry(const geometry_t& geometry)
{
    if (geometry.sectors.empty())
        return failure(status_t::BAD_ARGUMENT, "the flash has no sectors");
    if (geometry.pageSize == 0)
        return failure(status_t::BAD_ARGUMENT, "the page size is 0");
    if (geometry.start % geometry.pageSize != 0)
        return failure(status_t::BAD_ARGUMENT, "the sector boundary " + hexAddress(geometry.start) + " is not a multiple of the page size " +
                       std::to_string(geometry.pageSize));
    uint64_t base = geometry.start;
    for (const sector_group_t& g : geometry.sectors) {
        if (g.count == 0 || g.size == 0)
            return failure(status_t::BAD_ARGUMENT, "a sector group has no sectors or sectors of size 0");
        if (g.size % geometry.pageSize != 0)
            return failure(status_t::BAD_ARGUMENT, "the sector boundary " + hexAddress(base + g.size) +
                           " is not a multiple of the page size " + std::to_string(geometry.pageSize));
        const uint64_t end = base + static_cast<uint64_t>(g.count) * g.size;
        if (end > ADDRESS_SPACE)
            return failure(status_t::OUT_OF_RANGE, "the sectors " + std::to_string(g.count) + "x" + std::to_string(g.size) + " at " +
                           hexAddress(base) + " run past address 0xFFFFFFFF");
        base = end;
    }
    return result_t();
}

FlashPlan::FlashPlan() : partialSectors_(0), eraseBytes_(0), writePages_(0), skippedBlank_(0) {}

result_t FlashPlan::make(const MemoryImage& image, const geometry_t& geometry, bool keepBlank)
{
    *this = FlashPlan();
    const result_t checked = checkGeometry(geometry);
    if (!checked)
        return checked;
    uint32_t outside = 0;
    if (firstOutside(image, geometry.start, geometry.end(), outside))
        return failureAt(status_t::OUT_OF_RANGE, "the data at " + hexAddress(outside) + " lies outside the flash (" +
                           hexAddress(geometry.start) + "-" + hexAddress(geometry.end() - 1) + ")",
                       outside);
    geometry_ = geometry;

    // The sectors that hold data, each with the data bytes it holds.
    DataCursor data(image.segments());
    SectorCursor sectors(geometry);
    uint64_t address = 0;
    while (data.nextData(address, address)) {
        sector_t sector = sectors.sectorAt(address);
        const uint64_t end = static_cast<uint64_t>(sector.address) + sector.size;
        sector.partial = data.countData(sector.address, end) < sector.size;
        partialSectors_ += sector.partial ? 1 : 0;
        eraseBytes_ += sector.size;
        erase_.push_back(sector);
        address = end;
    }

    // The pages that hold data; those with nothing but the erased value are
    // left out unless kept.
    const uint32_t pageSize = geometry.pageSize;
    DataCursor pageData(image.segments());
    address = 0;
    while (pageData.nextData(address, address)) {
        const uint64_t page = address - address % pageSize;
        address = page + pageSize;
        if (!keepBlank && pageData.allDataEquals(page, address, geometry.erased)) {
            ++skippedBlank_;
            continue;
        }
        ++writePages_;
        if (!write_.empty() && write_.back().end == page)
            write_.back().end = address;
        else
            write_.push_back(range_t{static_cast<uint32_t>(page), address});
    }
    return result_t();
}

const FlashPlan::geometry_t& FlashPlan::geometry() const
{
    return geometry_;
}

const std::vector<FlashPlan::sector_t>& FlashPlan::eraseList() const
{
    return erase_;
}

const std::vector<range_t>& FlashPlan::writeList() const
{
    return write_;
}

uint64_t FlashPlan::partialSectors() const
{
    return partialSectors_;
}

uint64_t FlashPlan::eraseBytes() const
{
    return eraseBytes_;
}

uint64_t FlashPlan::writePages() const
{
    return writePages_;
}

uint64_t FlashPlan::writeBytes() const
{
    return writePages_ * geometry_.pageSize;
}

uint64_t FlashPlan::skippedBlank() const
{
    return skippedBlank_;
}

FlashPlan::PageWalker::PageWalker(const MemoryImage& image, const FlashPlan& plan)
    : image_(image), plan_(plan), run_(0), next_(plan.writeList().empty() ? 0 : plan.writeList().front().start),
      address_(0), page_(plan.writeList().empty() ? 0 : plan.geometry().pageSize)
{
}

bool FlashPlan::PageWalker::next()
{
    const std::vector<range_t>& runs = plan_.writeList();
    if (run_ == runs.size())
        return false;
    address_ = static_cast<uint32_t>(next_);
    image_.copyRange(address_, page_.size(), plan_.geometry().erased, page_.data());
    next_ += page_.size();
    if (next_ == runs[run_].end && ++run_ < runs.size())
        next_ = runs[run_].start;
    return true;
}

uint32_t FlashPlan::PageWalker::address() const
{
    return address_;
}

const uint8_t* FlashPlan::PageWalker::data() const
{
    return page_.data();
}

size_t FlashPlan::PageWalker::size() const
{
    return page_.size();
}

} // namespace hexblocks
