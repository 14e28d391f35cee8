#include "record_assembler.h"

#include "hex_format.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>

#include <sys/mman.h>

namespace hexblocks::detail {

namespace {

// Asks the system for the pages that hold the bytes [start, stop) of one
// allocation at once, rather than one fault at a time. It may refuse
// (MADV_POPULATE_WRITE came with Linux 5.14), and nothing changes then.
void populate(uintptr_t start, uintptr_t stop)
{
#ifdef __linux__
    const uintptr_t PAGE = 4096;
    const uintptr_t begin = start & ~(PAGE - 1);
    const uintptr_t end = (stop + PAGE - 1) & ~(PAGE - 1);
    if (begin < end)
        madvise(reinterpret_cast<void*>(begin), end - begin, 23 /* MADV_POPULATE_WRITE */);
#else
    (void)start;
    (void)stop;
#endif
}

// Appends bytes to a segment whose capacity is reserved. The pages of a
// large segment are asked for a step at a time, as the bytes reach it.
void appendBytes(std::vector<uint8_t>& segment, const uint8_t* bytes, size_t length)
{
    const size_t STEP = 1 << 20;
    const size_t size = segment.size();
    if (segment.capacity() >= STEP && (size == 0 || size / STEP != (size + length) / STEP)) {
        const uintptr_t start = reinterpret_cast<uintptr_t>(segment.data()) + (size + length) / STEP * STEP;
        populate(start, std::min(start + STEP, reinterpret_cast<uintptr_t>(segment.data()) + segment.capacity()));
    }
    segment.insert(segment.end(), bytes, bytes + length);
}

} // namespace

uint32_t regionarena_t::keep(const uint8_t* window)
{
    if (!freeSlots.empty()) {
        const uint32_t slot = freeSlots.back();
        freeSlots.pop_back();
        std::memcpy(slotBytes(slot), window, REGION_SIZE);
        return slot;
    }
    if (bytes.size() + REGION_SIZE > room)
        return NO_SLOT;
    if (bytes.capacity() < room) {
        // The room is asked for at once, so that the slots never move; pages
        // never written take no memory.
        try {
            bytes.reserve(static_cast<size_t>(room));
        } catch (const std::bad_alloc&) {
            room = 0;
            return NO_SLOT;
        }
    }
    const uint32_t slot = static_cast<uint32_t>(bytes.size() / REGION_SIZE);
    // The slot's pages at once: faulting them in one at a time took a tenth
    // of the time of reading a file whose records are out of order.
    const uintptr_t end = reinterpret_cast<uintptr_t>(bytes.data() + bytes.size());
    populate(end, end + REGION_SIZE);
    bytes.insert(bytes.end(), window, window + REGION_SIZE);
    return slot;
}

void closedregion_t::close(uint32_t, RegionWindow& window, regionarena_t& arena)
{
    // Regions that are at least this full keep every position.
    const size_t DENSE = 0x4000;
    runs = window.runs();
    starts = window.starts();
    size_t held = 0;
    for (const run_t& r : runs)
        held += r.length;
    if (held >= DENSE) {
        for (const run_t& r : runs)
            runOffset.push_back(r.start);
        slot = arena.keep(window.bytes());
        if (slot == regionarena_t::NO_SLOT)
            pages = window.takeBytes();
        return;
    }
    packed.reserve(held);
    for (const run_t& r : runs) {
        runOffset.push_back(static_cast<uint32_t>(packed.size()));
        packed.insert(packed.end(), window.bytes() + r.start, window.bytes() + r.start + r.length);
    }
}

uint64_t closedregion_t::reopen(RegionWindow& window, regionarena_t& arena) const
{
    uint64_t moved = 0;
    for (size_t i = 0; i < runs.size(); ++i) {
        window.placeNew(runs[i].start, bytesOf(i, arena), runs[i].length);
        moved += runs[i].length;
    }
    window.markStarts(starts);
    if (slot != regionarena_t::NO_SLOT)
        arena.freeSlots.push_back(slot);
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

namespace {

// Moves the slots of an arena so that slot j holds what slot source[j]
// held, for each j with a source (the others may hold anything). Each slot
// is copied once, and one more through a spare for each cycle of slots that
// want each other's place.
void arrangeSlots(regionarena_t& arena, const std::vector<uint32_t>& source)
{
    const uint32_t NO_SLOT = regionarena_t::NO_SLOT;
    const size_t n = source.size();
    std::vector<uint32_t> wantedBy(arena.bytes.size() / REGION_SIZE, NO_SLOT);
    for (size_t j = 0; j < n; ++j)
        if (source[j] != NO_SLOT)
            wantedBy[source[j]] = static_cast<uint32_t>(j);
    std::vector<bool> done(n);
    for (size_t j = 0; j < n; ++j)
        done[j] = source[j] == NO_SLOT || source[j] == j;
    // Chains: fill a slot whose bytes nobody wants, then the slot whose
    // bytes just moved, and so on.
    for (size_t head = 0; head < n; ++head) {
        if (done[head] || wantedBy[head] != NO_SLOT)
            continue;
        for (size_t j = head;;) {
            const uint32_t from = source[j];
            std::memcpy(arena.slotBytes(static_cast<uint32_t>(j)), arena.slotBytes(from), REGION_SIZE);
            done[j] = true;
            wantedBy[from] = NO_SLOT;
            if (from >= n || done[from])
                break;
            j = from;
        }
    }
    // What is left are cycles.
    std::vector<uint8_t> spare;
    for (size_t start = 0; start < n; ++start) {
        if (done[start])
            continue;
        spare.assign(arena.slotBytes(static_cast<uint32_t>(start)), arena.slotBytes(static_cast<uint32_t>(start)) + REGION_SIZE);
        for (size_t j = start;;) {
            const uint32_t from = source[j];
            done[j] = true;
            if (from == start) {
                std::memcpy(arena.slotBytes(static_cast<uint32_t>(j)), spare.data(), REGION_SIZE);
                break;
            }
            std::memcpy(arena.slotBytes(static_cast<uint32_t>(j)), arena.slotBytes(from), REGION_SIZE);
            j = from;
        }
    }
}

} // namespace

WindowAssembler::WindowAssembler(overlap_policy_t overlap, uint64_t textSize) : overlap_(overlap)
{
    // Room for as many bytes as the text has, at most 256 MiB at once (the
    // data of every text format takes less; a UF2 file holds its payload
    // and more), so that a 32-bit address space is not exhausted.
    arena_.room = std::min<uint64_t>(textSize, 256u << 20) / REGION_SIZE * REGION_SIZE;
}

std::vector<segment_t> WindowAssembler::finish()
{
    regions_.close();
    std::map<uint32_t, closedregion_t>& closed = regions_.closed();
    // The segments first, so that each is allocated once at its size.
    std::vector<span_t> spans;
    uint64_t end = 0;
    for (const auto& entry : closed) {
        size_t counted = SIZE_MAX; // the span this region was last counted in
        for (const run_t& r : entry.second.runs) {
            const uint64_t address = entry.first * REGION_SIZE + r.start;
            if (spans.empty() || address != end)
                spans.push_back(span_t{address, 0, entry.first, entry.first, 0});
            span_t& span = spans.back();
            span.size += r.length;
            span.lastRegion = entry.first;
            if (entry.second.slot != regionarena_t::NO_SLOT && spans.size() - 1 != counted) {
                ++span.slots;
                counted = spans.size() - 1;
            }
            end = address + r.length;
        }
    }
    // The segment with the most regions in the arena is built inside it.
    size_t inArena = spans.size();
    for (size_t k = 0; k < spans.size(); ++k)
        if (spans[k].slots > 0 && (inArena == spans.size() || spans[k].slots > spans[inArena].slots))
            inArena = k;
    std::vector<segment_t> segments(spans.size());
    size_t k = 0;
    for (auto entry = closed.begin(); entry != closed.end();) {
        const closedregion_t& region = entry->second;
        for (size_t i = 0; i < region.runs.size(); ++i) {
            const uint64_t address = entry->first * REGION_SIZE + region.runs[i].start;
            while (address >= spans[k].address + spans[k].size)
                ++k;
            if (k == inArena)
                continue;
            segment_t& segment = segments[k];
            if (segment.bytes.empty()) {
                segment.address = static_cast<uint32_t>(spans[k].address);
                segment.bytes.reserve(static_cast<size_t>(spans[k].size));
            }
            appendBytes(segment.bytes, region.bytesOf(i, arena_), region.runs[i].length);
        }
        // What the segment in the arena needs is kept until it is built.
        const bool needed = inArena < spans.size() && entry->first >= spans[inArena].firstRegion &&
                            entry->first <= spans[inArena].lastRegion;
        entry = needed ? std::next(entry) : closed.erase(entry);
    }
    if (inArena < spans.size()) {
        segments[inArena].address = static_cast<uint32_t>(spans[inArena].address);
        segments[inArena].bytes = buildInArena(spans[inArena]);
    }
    closed.clear();
    return segments;
}

std::vector<uint8_t> WindowAssembler::buildInArena(const span_t& span)
{
    std::map<uint32_t, closedregion_t>& closed = regions_.closed();
    const size_t regions = span.lastRegion - span.firstRegion + 1;
    // Slot j is to hold region firstRegion + j: those in the arena are moved
    // there, the others' runs copied in after.
    std::vector<uint32_t> source(regions, regionarena_t::NO_SLOT);
    for (size_t j = 0; j < regions; ++j)
        source[j] = closed.at(static_cast<uint32_t>(span.firstRegion + j)).slot;
    const size_t touched = std::max<size_t>(arena_.bytes.size(), regions * REGION_SIZE);
    if (arena_.bytes.size() < touched)
        arena_.bytes.resize(touched);
    arrangeSlots(arena_, source);
    for (size_t j = 0; j < regions; ++j) {
        if (source[j] != regionarena_t::NO_SLOT)
            continue;
        const closedregion_t& region = closed.at(static_cast<uint32_t>(span.firstRegion + j));
        // Runs of the region beyond the span land where the bytes are cut off.
        for (size_t i = 0; i < region.runs.size(); ++i)
            std::memcpy(arena_.slotBytes(static_cast<uint32_t>(j)) + region.runs[i].start, region.bytesOf(i, arena_),
                        region.runs[i].length);
    }
    std::vector<uint8_t> bytes = std::move(arena_.bytes);
    const size_t skip = static_cast<size_t>(span.address - span.firstRegion * REGION_SIZE);
    if (skip > 0)
        std::memmove(bytes.data(), bytes.data() + skip, static_cast<size_t>(span.size));
    bytes.resize(static_cast<size_t>(span.size));
    // Slots of other segments took memory that the segment does not use.
    if (touched - bytes.size() > bytes.size() / 8)
        bytes.shrink_to_fit();
    return bytes;
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
