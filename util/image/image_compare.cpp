// Comparing images: an image against a read-back dump (verify), and two
// images against each other (diff).
#include "memory_image.h"

#include "hex_format.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

namespace hexblocks {

namespace {

const uint64_t ADDRESS_SPACE = 0x100000000ull;

using segments_t = std::vector<segment_t>;

// Gives a finished comparison its status: MISMATCH, with a reason and the
// lowest address to blame, when some data byte differs or lies outside the
// dump.
void settle(verify_result_t& result)
{
    if (result.mismatches == 0 && result.notCovered == 0)
        return;
    result.status = status_t::MISMATCH;
    std::string reason;
    if (result.mismatches > 0)
        reason = std::to_string(result.mismatches) + " of " + std::to_string(result.compared) + " bytes differ";
    if (result.notCovered > 0)
        reason += (reason.empty() ? "" : "; ") + std::to_string(result.notCovered) +
                  " bytes lie outside the dump, the first at " + detail::hexAddress(result.firstNotCovered);
    result.reason = reason;
    if (!result.first.empty())
        result.address = result.first.front().address;
    else if (result.notCovered > 0)
        result.address = result.firstNotCovered;
}

// Compares the data of an image with the pieces of a dump, which arrive in
// address order, and counts what the dump does not cover at the end.
class DumpComparer {
public:
    DumpComparer(const segments_t& segments, uint32_t dumpAddress, size_t maxListed,
                 verify_result_t& result)
        : segments_(segments), index_(0), dumpAddress_(dumpAddress), maxListed_(maxListed), result_(result)
    {
    }

    // The dump offset of the first data byte at or after offset; false when
    // no data lies there.
    bool nextNeeded(uint64_t offset, uint64_t& needed)
    {
        const uint64_t address = dumpAddress_ + offset;
        skipEndingBy(address);
        if (index_ == segments_.size() || address >= ADDRESS_SPACE)
            return false;
        needed = std::max<uint64_t>(address, segments_[index_].address) - dumpAddress_;
        return true;
    }

    // Compares size bytes of the dump, from offset on.
    void compare(uint64_t offset, const uint8_t* bytes, size_t size)
    {
        const uint64_t start = dumpAddress_ + offset;
        const uint64_t end = start + size;
        skipEndingBy(start);
        for (size_t i = index_; i < segments_.size() && segments_[i].address < end; ++i) {
            const segment_t& s = segments_[i];
            const uint64_t from = std::max<uint64_t>(start, s.address);
            const uint64_t to = std::min(end, s.endAddress());
            compareRun(from, s.bytes.data() + (from - s.address), bytes + (from - start), to - from);
        }
    }

    // Settles the result once the dump ends dumpSize bytes after its start.
    void finish(uint64_t dumpSize)
    {
        const uint64_t dumpEnd = dumpAddress_ + dumpSize;
        bool first = true;
        for (const segment_t& s : segments_) {
            const uint64_t below = std::min<uint64_t>(s.endAddress(), dumpAddress_);
            const uint64_t above = std::max<uint64_t>(s.address, dumpEnd);
            const uint64_t uncovered = (below > s.address ? below - s.address : 0) +
                                       (s.endAddress() > above ? s.endAddress() - above : 0);
            if (uncovered != 0 && first) {
                result_.firstNotCovered = below > s.address ? s.address : static_cast<uint32_t>(above);
                first = false;
            }
            result_.notCovered += uncovered;
        }
        settle(result_);
    }

private:
    void skipEndingBy(uint64_t address)
    {
        while (index_ < segments_.size() && segments_[index_].endAddress() <= address)
            ++index_;
    }

    void compareRun(uint64_t address, const uint8_t* expected, const uint8_t* found, uint64_t size)
    {
        result_.compared += size;
        const uint8_t* const end = expected + size;
        for (;;) {
            const auto differ = std::mismatch(expected, end, found);
            if (differ.first == end)
                return;
            const uint64_t at = address + static_cast<uint64_t>(differ.first - expected);
            ++result_.mismatches;
            if (result_.first.size() < maxListed_)
                result_.first.push_back(mismatch_t{static_cast<uint32_t>(at), *differ.first, *differ.second});
            address = at + 1;
            expected = differ.first + 1;
            found = differ.second + 1;
        }
    }

    const segments_t& segments_;
    size_t index_;
    uint32_t dumpAddress_;
    size_t maxListed_;
    verify_result_t& result_;
};

// Reads up to size bytes; 0 at the end of the file, -1 on an error.
ssize_t readSome(int fd, uint8_t* buffer, size_t size)
{
    for (;;) {
        const ssize_t got = ::read(fd, buffer, size);
        if (got >= 0 || errno != EINTR)
            return got;
    }
}

// Moves the file from offset to target, by seeking or, where the file
// cannot seek, by reading; false at the end of the file or on an error
// (errno set), with offset where it stopped.
bool skipTo(int fd, uint64_t& offset, uint64_t target, uint8_t* buffer, size_t size)
{
    if (::lseek(fd, static_cast<off_t>(target), SEEK_SET) >= 0) {
        offset = target;
        return true;
    }
    if (errno != ESPIPE)
        return false;
    while (offset < target) {
        const ssize_t got = readSome(fd, buffer, static_cast<size_t>(std::min<uint64_t>(size, target - offset)));
        if (got <= 0)
            return false;
        offset += static_cast<uint64_t>(got);
    }
    return true;
}

// The address a start address stands for.
uint64_t startAddressValue(const MemoryImage& image)
{
    const start_address_t start = image.startAddress();
    if (start.type == 3)
        return (static_cast<uint64_t>(start.value >> 16) << 4) + (start.value & 0xFFFF);
    return start.value;
}

// Adds the DIFFER ranges of [start, start + size), where both images have
// data: differing bytes separated by at most join equal ones share a range.
void addDifferences(uint64_t start, const uint8_t* a, const uint8_t* b, uint64_t size, uint64_t join,
                    std::vector<difference_t>& ranges)
{
    const uint8_t* const end = a + size;
    const uint8_t* p = a;
    bool open = false;
    for (;;) {
        const auto differ = std::mismatch(p, end, b + (p - a));
        if (differ.first == end)
            return;
        const uint64_t at = start + static_cast<uint64_t>(differ.first - a);
        difference_t* last = open ? &ranges.back() : nullptr;
        if (last != nullptr && at - last->end <= join) {
            last->end = at + 1;
            ++last->bytes;
        } else {
            ranges.push_back(
                difference_t{difference_t::kind_t::DIFFER, static_cast<uint32_t>(at), at + 1, 1});
            open = true;
        }
        p = differ.first + 1;
    }
}

// The first data at or after address in segments, from index on (which moves
// forwards); ADDRESS_SPACE when there is none.
uint64_t nextData(const segments_t& segments, size_t& index, uint64_t address)
{
    while (index < segments.size() && segments[index].endAddress() <= address)
        ++index;
    return index == segments.size() ? ADDRESS_SPACE : std::max<uint64_t>(address, segments[index].address);
}

} // namespace

verify_result_t MemoryImage::verify(const void* dump, size_t size, uint32_t address,
                                                size_t maxListed) const
{
    verify_result_t result;
    DumpComparer comparer(segments_, address, maxListed, result);
    const uint64_t usable = std::min<uint64_t>(size, ADDRESS_SPACE - address);
    comparer.compare(0, static_cast<const uint8_t*>(dump), static_cast<size_t>(usable));
    comparer.finish(usable);
    return result;
}

verify_result_t MemoryImage::verifyFile(const char* path, uint32_t address, size_t maxListed) const
{
    verify_result_t result;
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        result.status = status_t::CANNOT_OPEN;
        result.reason = std::string("cannot open the file: ") + std::strerror(errno);
        return result;
    }
    DumpComparer comparer(segments_, address, maxListed, result);
    std::vector<uint8_t> buffer(64 * 1024);
    uint64_t offset = 0, needed = 0;
    int error = 0;
    while (comparer.nextNeeded(offset, needed)) {
        if (needed > offset && !skipTo(fd, offset, needed, buffer.data(), buffer.size())) {
            error = errno;
            break;
        }
        const uint64_t room = std::min<uint64_t>(buffer.size(), ADDRESS_SPACE - address - offset);
        const ssize_t got = readSome(fd, buffer.data(), static_cast<size_t>(room));
        if (got <= 0) {
            error = got < 0 ? errno : 0;
            break;
        }
        comparer.compare(offset, buffer.data(), static_cast<size_t>(got));
        offset += static_cast<uint64_t>(got);
    }
    ::close(fd);
    comparer.finish(offset);
    if (error != 0) {
        result.status = status_t::CANNOT_READ;
        result.reason = std::string("cannot read the file: ") + std::strerror(error);
        result.address.reset();
    }
    return result;
}

diff_result_t MemoryImage::diff(const MemoryImage& other, const diff_options_t& options) const
{
    using kind_t = difference_t::kind_t;
    diff_result_t result;
    const segments_t& a = segments_;
    const segments_t& b = other.segments_;
    size_t i = 0, j = 0;
    uint64_t address = 0;
    for (;;) {
        const uint64_t nextA = nextData(a, i, address);
        const uint64_t nextB = nextData(b, j, address);
        const uint64_t start = std::min(nextA, nextB);
        if (start == ADDRESS_SPACE)
            break;
        uint64_t end;
        if (nextA == start && nextB == start) {
            end = std::min(a[i].endAddress(), b[j].endAddress());
            addDifferences(start, a[i].bytes.data() + (start - a[i].address), b[j].bytes.data() + (start - b[j].address),
                           end - start, options.join, result.ranges);
        } else {
            const bool onlyA = nextA == start;
            end = onlyA ? std::min(a[i].endAddress(), nextB) : std::min(b[j].endAddress(), nextA);
            result.ranges.push_back(
                difference_t{onlyA ? kind_t::ONLY_IMAGE : kind_t::ONLY_OTHER, static_cast<uint32_t>(start), end, end - start});
        }
        address = end;
    }
    result.startDiffers = hasStart_ != other.hasStart_ ||
                          (hasStart_ && startAddressValue(*this) != startAddressValue(other));
    return result;
}

} // namespace hexblocks
