#include "record_assembler.h"

#include "hex_format.h"

#include <algorithm>
#include <cstring>
#include <new>

#include <sys/mman.h>

namespace hexblocks::detail {

namespace {

// Appends bytes to a segment whose capacity is reserved. The pages of a
// large segment are asked for a step at a time, as the bytes reach it, all at
// once rather than one fault at a time; the system may refuse
// (MADV_POPULATE_WRITE came with Linux 5.14), and nothing changes then.
void appendBytes(std::vector<uint8_t>& segment, const uint8_t* bytes, size_t length)
{
#ifdef __linux__
    const size_t STEP = 1 << 20;
    const uintptr_t PAGE = 4096;
    const size_t size = segment.size();
    if (segment.capacity() >= STEP && (size == 0 || size / STEP != (size + length) / STEP)) {
        const uintptr_t start = reinterpret_cast<uintptr_t>(segment.data()) + (size + length) / STEP * STEP;
        const uintptr_t stop = std::min(start + STEP, reinterpret_cast<uintptr_t>(segment.data()) + segment.capacity());
        const uintptr_t begin = (start + PAGE - 1) & ~(PAGE - 1);
        const uintptr_t end = stop & ~(PAGE - 1);
        if (begin < end)
            madvise(reinterpret_cast<void*>(begin), end - begin, 23 /* MADV_POPULATE_WRITE */);
    }
#endif
    segment.insert(segment.end(), bytes, bytes + length);
}

} // namespace

void closedregion_t::close(uint32_t, RegionWindow& window)
{
    // Regions that are at least this full keep the window's pages.
    const size_t DENSE = 0x4000;
    runs = window.runs();
    starts = window.starts();
    size_t held = 0;
    for (const run_t& r : runs)
        held += r.length;
    if (held >= DENSE) {
        for (const run_t& r : runs)
            runOffset.push_back(r.start);
        pages = window.takeBytes();
        return;
    }
    packed.reserve(held);
    for (const run_t& r : runs) {
        runOffset.push_back(static_cast<uint32_t>(packed.size()));
        packed.insert(packed.end(), window.bytes() + r.start, window.bytes() + r.start + r.length);
    }
}

uint64_t closedregion_t::reopen(RegionWindow& window) const
{
    uint64_t moved = 0;
    for (size_t i = 0; i < runs.size(); ++i) {
        window.placeNew(runs[i].start, bytesOf(i), runs[i].length);
        moved += runs[i].length;
    }
    window.markStarts(starts);
    return moved;
}

AscendingAssembler::AscendingAssembler(uint64_t textSize)
    // No more than 256 MiB at once: room the data may not need must not
    // exhaust a 32-bit address space.
    : reserve_(std::min<uint64_t>(textSize / 2, 256u << 20)), staging_(new uint8_t[STAGING_SIZE])
{
}

bool AscendingAssembler::addPiece(uint32_t address, const uint8_t* data, uint32_t length)
{
    if ((segments_.empty() || address != end_) && !startSegment(address))
        return false;
    if (staged_ + length > STAGING_SIZE)
        flush();
    std::memcpy(staging_.get() + staged_, data, length);
    staged_ += length;
    end_ += length;
    return true;
}

bool AscendingAssembler::addRun(uint32_t address, const uint8_t* data, size_t length)
{
    if ((segments_.empty() || address != end_) && !startSegment(address))
        return false;
    flush();
    std::vector<uint8_t>& bytes = segments_.back().bytes;
    bytes.insert(bytes.end(), data, data + length);
    end_ += length;
    return true;
}

bool AscendingAssembler::startSegment(uint32_t address)
{
    if (!segments_.empty() && address < end_)
        return false; // it reaches back: not for this assembler
    flush();
    if (!segments_.empty())
        shrink(segments_.back().bytes);
    segments_.push_back(segment_t{address, std::vector<uint8_t>()});
    // The first segment takes the room that the text can fill; later ones,
    // after a gap, grow as they need. The room is only a hint: where it
    // cannot be had (a system that does not overcommit), the segment grows
    // as it needs too.
    if (segments_.size() == 1) {
        try {
            segments_.back().bytes.reserve(static_cast<size_t>(reserve_));
        } catch (const std::bad_alloc&) {
        }
    }
    end_ = address;
    return true;
}

void AscendingAssembler::flush()
{
    if (staged_ == 0)
        return;
    std::vector<uint8_t>& bytes = segments_.back().bytes;
    bytes.insert(bytes.end(), staging_.get(), staging_.get() + staged_);
    staged_ = 0;
}

// Gives back the room a closed segment reserved and did not fill, when that
// is more than an eighth of it.
void AscendingAssembler::shrink(std::vector<uint8_t>& bytes)
{
    if (bytes.capacity() - bytes.size() > bytes.size() / 8)
        bytes.shrink_to_fit();
}

std::vector<segment_t> AscendingAssembler::finish()
{
    flush();
    // The last segment keeps its reserved room: pages never written take no
    // memory, and giving the room back would copy the segment.
    return std::move(segments_);
}

std::vector<segment_t> WindowAssembler::finish()
{
    regions_.close();
    std::map<uint32_t, closedregion_t>& closed = regions_.closed();
    std::vector<segment_t> segments;
    // Sizes first, so that each segment is allocated once at its size.
    std::vector<uint64_t> sizes;
    uint64_t end = 0;
    for (const auto& entry : closed)
        for (const run_t& r : entry.second.runs) {
            const uint64_t address = entry.first * REGION_SIZE + r.start;
            if (sizes.empty() || address != end)
                sizes.push_back(0);
            sizes.back() += r.length;
            end = address + r.length;
        }
    segments.reserve(sizes.size());
    for (auto entry = closed.begin(); entry != closed.end(); entry = closed.erase(entry)) {
        const closedregion_t& region = entry->second;
        for (size_t i = 0; i < region.runs.size(); ++i) {
            const uint64_t address = entry->first * REGION_SIZE + region.runs[i].start;
            if (segments.empty() || address != segments.back().endAddress()) {
                segments.push_back(segment_t{static_cast<uint32_t>(address), {}});
                segments.back().bytes.reserve(static_cast<size_t>(sizes[segments.size() - 1]));
            }
            appendBytes(segments.back().bytes, region.bytesOf(i), region.runs[i].length);
        }
    }
    return segments;
}

bool WindowAssembler::overlapping(size_t position, const piece_t& piece, size_t repeated, size_t line)
{
    RegionWindow& window = regions_.window();
    switch (overlap_) {
    case overlap_policy_t::FIRST:
        if (repeated != RegionWindow::REPEATED_START)
            countRepeated(repeated, line);
        return true;
    case overlap_policy_t::LAST:
        window.overwrite(position, piece.data, piece.length);
        return true;
    case overlap_policy_t::IDENTICAL:
        if (repeated == RegionWindow::REPEATED_START)
            window.placeNew(position, piece.data, piece.length);
        if (!window.differs(position, piece.data, piece.length))
            return true;
        break;
    case overlap_policy_t::ERROR:
        break;
    }
    conflictLine = line;
    return false;
}

bool WindowAssembler::placePart(size_t position, const uint8_t* data, size_t length, size_t line)
{
    RegionWindow& window = regions_.window();
    const size_t repeated = window.placeNew(position, data, length);
    if (repeated == 0)
        return true;
    const piece_t part{0, data, static_cast<uint32_t>(length)};
    return overlapping(position, part, repeated, line);
}

bool WindowAssembler::addPieces(const piece_t* pieces, size_t count, size_t line)
{
    dataBytes_ += pieces[0].length + (count > 1 ? pieces[1].length : 0);
    if (!regions_.open(pieces[0].address >> 16, dataBytes_))
        return false;
    RegionWindow& window = regions_.window();
    const size_t start = pieces[0].address & 0xFFFF;
    if (window.isStart(start)) {
        if (overlap_ == overlap_policy_t::FIRST)
            return true; // repeats an earlier record's address: dropped whole
        if (overlap_ == overlap_policy_t::ERROR) {
            conflictLine = line;
            return false;
        }
    }
    window.markStart(start);
    for (size_t i = 0; i < count; ++i) {
        uint32_t address = pieces[i].address;
        const uint8_t* data = pieces[i].data;
        for (uint32_t left = pieces[i].length; left > 0;) {
            const uint32_t position = address & 0xFFFF;
            const uint32_t take = std::min<uint32_t>(left, static_cast<uint32_t>(REGION_SIZE - position));
            if (!regions_.open(address >> 16, dataBytes_))
                return false;
            if (!placePart(position, data, take, line))
                return false;
            address += take;
            data += take;
            left -= take;
        }
    }
    return true;
}

std::vector<segment_t> SortingAssembler::finish()
{
    if (overlap_ == overlap_policy_t::FIRST)
        dropRepeatedRecords();
    else
        std::stable_sort(pieces_.begin(), pieces_.end(),
                         [](const stored_t& a, const stored_t& b) { return a.address < b.address; });
    // Maximal runs of contiguous data; pieces are now in address order.
    std::vector<segment_t> segments;
    std::vector<uint64_t> ends;
    bool overlaps = false;
    for (const stored_t& p : pieces_) {
        const uint64_t end = static_cast<uint64_t>(p.address) + p.length;
        if (!ends.empty() && p.address <= ends.back()) {
            overlaps = overlaps || p.address < ends.back();
            ends.back() = std::max(ends.back(), end);
        } else {
            segments.push_back(segment_t{p.address, {}});
            ends.push_back(end);
        }
    }
    std::vector<std::vector<bool>> written(segments.size());
    for (size_t s = 0; s < segments.size(); ++s) {
        segments[s].bytes.assign(static_cast<size_t>(ends[s] - segments[s].address), 0xFF);
        if (overlaps)
            written[s].assign(segments[s].bytes.size(), false);
    }
    // Pieces go in in file order, and a byte already written keeps its value.
    std::stable_sort(pieces_.begin(), pieces_.end(),
                     [](const stored_t& a, const stored_t& b) { return a.line < b.line; });
    for (const stored_t& p : pieces_) {
        const size_t s = static_cast<size_t>(
            std::upper_bound(segments.begin(), segments.end(), p.address,
                             [](uint32_t address, const segment_t& seg) { return address < seg.address; }) -
            segments.begin() - 1);
        const size_t at = p.address - segments[s].address;
        const uint8_t* bytes = store_.data() + p.storeOffset;
        if (!overlaps) {
            std::copy(bytes, bytes + p.length, segments[s].bytes.begin() + static_cast<long>(at));
            continue;
        }
        for (size_t i = 0; i < p.length; ++i) {
            if (written[s][at + i]) {
                const bool refused = overlap_ == overlap_policy_t::ERROR ||
                                     (overlap_ == overlap_policy_t::IDENTICAL && segments[s].bytes[at + i] != bytes[i]);
                if (refused) {
                    conflictLine = p.line;
                    return std::vector<segment_t>();
                }
                if (overlap_ == overlap_policy_t::LAST)
                    segments[s].bytes[at + i] = bytes[i];
                if (overlap_ == overlap_policy_t::FIRST && repeatedBytes++ == 0)
                    firstRepeatLine = p.line;
                continue;
            }
            written[s][at + i] = true;
            segments[s].bytes[at + i] = bytes[i];
        }
    }
    return segments;
}

void SortingAssembler::dropRepeatedRecords()
{
    std::stable_sort(pieces_.begin(), pieces_.end(),
                     [](const stored_t& a, const stored_t& b) { return a.address < b.address; });
    std::vector<size_t> dropped; // lines of the records dropped
    const stored_t* previousStart = nullptr;
    for (const stored_t& p : pieces_) {
        if (!p.recordStart)
            continue;
        if (previousStart != nullptr && previousStart->address == p.address)
            dropped.push_back(p.line);
        else
            previousStart = &p;
    }
    if (dropped.empty())
        return;
    std::sort(dropped.begin(), dropped.end());
    pieces_.erase(std::remove_if(pieces_.begin(), pieces_.end(),
                                 [&](const stored_t& p) {
                                     return std::binary_search(dropped.begin(), dropped.end(), p.line);
                                 }),
                  pieces_.end());
}

void failRead(fullread_t& read, fullread_t::status_t status, size_t line, const std::string& reason,
              const std::string& text)
{
    read.status = status;
    read.line = line;
    read.reason = reason;
    read.text = text;
}

bool failRecord(fullread_t& read, const scannedrecord_t& record, const std::string& reason)
{
    failRead(read, fullread_t::status_t::BAD_LINE, record.line, reason, std::string(record.text, record.textLength));
    return false;
}

namespace {

// The status of what a text-format reader found.
status_t statusOf(const fullread_t& read)
{
    switch (read.status) {
    case fullread_t::status_t::OK:
        return status_t::OK;
    case fullread_t::status_t::BAD_LINE:
        return read.badChecksum ? status_t::CHECKSUM : status_t::SYNTAX;
    case fullread_t::status_t::UNSUPPORTED_TYPE:
        return status_t::UNSUPPORTED;
    case fullread_t::status_t::READ_ERROR:
        break;
    }
    return status_t::CANNOT_READ;
}

} // namespace

read_result_t readResultOf(const fullread_t& read)
{
    read_result_t result;
    result.status = read.status != fullread_t::status_t::OK && read.failureStatus != status_t::OK
                        ? read.failureStatus
                        : statusOf(read);
    result.line = read.line;
    result.reason = read.status == fullread_t::status_t::UNSUPPORTED_TYPE && read.reason.empty()
                        ? "unsupported record type " + hexByte(read.type)
                        : read.reason;
    result.warnings = warningsOf(read);
    result.address = read.address;
    result.blocks = read.blocks;
    result.families = read.families;
    return result;
}

std::vector<warning_t> warningsOf(const fullread_t& read)
{
    std::vector<warning_t> warnings;
    for (size_t line : read.ignoredStartLines)
        warnings.push_back({line, "a second, different start address is ignored"});
    if (read.status == fullread_t::status_t::OK && !read.sawEndRecord)
        warnings.push_back({0, std::string("end of file reached without ") + read.endRecordName});
    if (read.repeatedBytes > 0)
        warnings.push_back({read.firstRepeatLine, std::to_string(read.repeatedBytes) + " bytes given by more than one " +
                                                      read.recordName + "; the first value of each is kept"});
    return warnings;
}

} // namespace hexblocks::detail
