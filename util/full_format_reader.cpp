#include "full_format_reader.h"

#include "region_window.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <utility>

#include <sys/mman.h>

// Builds a MemoryImage from segments already in order, without checks.
class MemoryImageBuilder {
public:
    static void assign(MemoryImage& image, std::vector<MemoryImage::segment_t>&& segments, uint8_t startType,
                       uint32_t startValue)
    {
        image.segments_ = std::move(segments);
        image.hasStart_ = startType != 0;
        image.start_ = MemoryImage::startaddress_t{startType, startType != 0 ? startValue : 0};
    }
};

namespace intelhex_internal {

namespace {

// One record's bytes at their full addresses: one piece, or two when the
// bytes wrap (past the end of a 64 KiB segment, or past 0xFFFFFFFF).
struct piece_t {
    uint32_t address;
    const uint8_t* data;
    uint32_t length;
};

const uint64_t REGION_SIZE = 0x10000;

// Where each region's data is kept once its window is closed: the window's
// own pages when the region is mostly data, else just the runs' bytes.
struct closedregion_t {
    PageBytes pages;
    std::vector<uint8_t> packed;
    std::vector<run_t> runs;         // positions in the region
    std::vector<uint32_t> runOffset; // where each run's bytes are kept
    std::vector<progression_t> starts;

    const uint8_t* bytesOf(size_t run) const
    {
        return (pages.empty() ? packed.data() : pages.data()) + runOffset[run];
    }

    void close(uint32_t, RegionWindow& window)
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

    uint64_t reopen(RegionWindow& window) const
    {
        uint64_t moved = 0;
        for (size_t i = 0; i < runs.size(); ++i) {
            window.placeNew(runs[i].start, bytesOf(i), runs[i].length);
            moved += runs[i].length;
        }
        window.markStarts(starts);
        return moved;
    }
};

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

// Places records in file order into a window per 64 KiB region, which keeps
// the first value of each byte, finds repeated record addresses and counts
// bytes given again, as records arrive. A few windows are open at a time;
// closed regions keep their runs and their record starts.
class WindowAssembler {
public:
    uint64_t repeatedBytes = 0;
    size_t firstRepeatLine = 0;

    // False when records jump between regions so often that reopening them
    // would cost more than reading the whole file again another way.
    bool addRecord(const piece_t* pieces, size_t count, size_t line)
    {
        const piece_t& first = pieces[0];
        const size_t position = first.address & 0xFFFF;
        if (count == 1 && regions_.isOpen(first.address >> 16) && position + first.length <= REGION_SIZE) {
            // The usual record: one piece, in the open window.
            dataBytes_ += first.length;
            const size_t repeated = regions_.window().placeRecord(position, first.data, first.length);
            if (repeated != RegionWindow::REPEATED_START && repeated > 0)
                countRepeated(repeated, line);
            return true;
        }
        return addPieces(pieces, count, line);
    }

    // The segments: runs of neighbouring regions that meet are joined.
    std::vector<MemoryImage::segment_t> finish()
    {
        regions_.close();
        std::map<uint32_t, closedregion_t>& closed = regions_.closed();
        std::vector<MemoryImage::segment_t> segments;
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
                    segments.push_back(MemoryImage::segment_t{static_cast<uint32_t>(address), {}});
                    segments.back().bytes.reserve(static_cast<size_t>(sizes[segments.size() - 1]));
                }
                appendBytes(segments.back().bytes, region.bytesOf(i), region.runs[i].length);
            }
        }
        return segments;
    }

private:
    void countRepeated(size_t repeated, size_t line)
    {
        if (repeatedBytes == 0)
            firstRepeatLine = line;
        repeatedBytes += repeated;
    }

    // Any record: pieces that wrap, or cross into another region.
    bool addPieces(const piece_t* pieces, size_t count, size_t line)
    {
        dataBytes_ += pieces[0].length + (count > 1 ? pieces[1].length : 0);
        if (!regions_.open(pieces[0].address >> 16, dataBytes_))
            return false;
        RegionWindow& window = regions_.window();
        const size_t start = pieces[0].address & 0xFFFF;
        if (window.isStart(start))
            return true; // repeats an earlier record's address: dropped whole
        window.markStart(start);
        for (size_t i = 0; i < count; ++i) {
            uint32_t address = pieces[i].address;
            const uint8_t* data = pieces[i].data;
            for (uint32_t left = pieces[i].length; left > 0;) {
                const uint32_t position = address & 0xFFFF;
                const uint32_t take = std::min<uint32_t>(left, static_cast<uint32_t>(REGION_SIZE - position));
                if (!regions_.open(address >> 16, dataBytes_))
                    return false;
                const size_t repeated = regions_.window().placeNew(position, data, take);
                if (repeated > 0)
                    countRepeated(repeated, line);
                address += take;
                data += take;
                left -= take;
            }
        }
        return true;
    }

    RegionWindows<closedregion_t> regions_{REGION_SIZE};
    uint64_t dataBytes_ = 0;
};

// Takes records in any order by collecting every piece with its line and
// sorting them at the end. Slower and hungrier than the windows, but its cost
// does not depend on the order of the records.
class SortingAssembler {
public:
    uint64_t repeatedBytes = 0;
    size_t firstRepeatLine = 0;

    bool addRecord(const piece_t* pieces, size_t count, size_t line)
    {
        for (size_t i = 0; i < count; ++i) {
            pieces_.push_back(stored_t{pieces[i].address, pieces[i].length, store_.size(), line, i == 0});
            store_.insert(store_.end(), pieces[i].data, pieces[i].data + pieces[i].length);
        }
        return true;
    }

    std::vector<MemoryImage::segment_t> finish()
    {
        dropRepeatedRecords();
        // Maximal runs of contiguous data; pieces are now in address order.
        std::vector<MemoryImage::segment_t> segments;
        std::vector<uint64_t> ends;
        bool overlaps = false;
        for (const stored_t& p : pieces_) {
            const uint64_t end = static_cast<uint64_t>(p.address) + p.length;
            if (!ends.empty() && p.address <= ends.back()) {
                overlaps = overlaps || p.address < ends.back();
                ends.back() = std::max(ends.back(), end);
            } else {
                segments.push_back(MemoryImage::segment_t{p.address, {}});
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
                                 [](uint32_t address, const MemoryImage::segment_t& seg) { return address < seg.address; }) -
                segments.begin() - 1);
            const size_t at = p.address - segments[s].address;
            const uint8_t* bytes = store_.data() + p.storeOffset;
            if (!overlaps) {
                std::copy(bytes, bytes + p.length, segments[s].bytes.begin() + static_cast<long>(at));
                continue;
            }
            for (size_t i = 0; i < p.length; ++i) {
                if (written[s][at + i]) {
                    if (repeatedBytes++ == 0)
                        firstRepeatLine = p.line;
                    continue;
                }
                written[s][at + i] = true;
                segments[s].bytes[at + i] = bytes[i];
            }
        }
        return segments;
    }

private:
    struct stored_t {
        uint32_t address;
        uint32_t length;
        size_t storeOffset;
        size_t line; // of the record; also its order in the file
        bool recordStart;
    };

    // Drops every record that starts where an earlier record started, with
    // all its pieces; leaves the pieces sorted by address.
    void dropRepeatedRecords()
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

    std::vector<stored_t> pieces_;
    std::vector<uint8_t> store_;
};

// Interprets the records of source for an assembler: data records become
// pieces, the other types set the base or the start address.
template <typename Assembler> class RecordInterpreter {
public:
    RecordInterpreter(Assembler& assembler, fullread_t& read) : assembler_(assembler), read_(read) {}

    // False when the assembler gave up; read_ tells the rest.
    bool run(TextSource& source)
    {
        RecordScanner scanner(linerules_t::FULL_FORMAT);
        const scanend_t end = scanner.scan(source, [this](const scannedrecord_t& record) { return take(record); });
        switch (end) {
        case scanend_t::END_RECORD:
            read_.sawEndRecord = true;
            break;
        case scanend_t::END_OF_INPUT:
            break;
        case scanend_t::BAD_LINE:
            fail(fullread_t::status_t::BAD_LINE, scanner.badLine().line, scanner.badLine().reason,
                 scanner.badLine().text);
            break;
        case scanend_t::READ_ERROR:
            fail(fullread_t::status_t::READ_ERROR, 0, std::string("cannot read the file: ") + std::strerror(errno), "");
            break;
        case scanend_t::STOPPED:
            break; // take() said why
        }
        return !gaveUp_;
    }

    uint8_t startType() const { return startType_; }
    uint32_t startValue() const { return startValue_; }

private:
    void fail(fullread_t::status_t status, size_t line, const std::string& reason, const std::string& text)
    {
        read_.status = status;
        read_.line = line;
        read_.reason = reason;
        read_.text = text;
    }

    bool badRecord(const scannedrecord_t& record, const std::string& reason)
    {
        fail(fullread_t::status_t::BAD_LINE, record.line, reason, textOf(record));
        return false;
    }

    static std::string textOf(const scannedrecord_t& record) { return std::string(record.text, record.textLength); }

    bool take(const scannedrecord_t& record)
    {
        switch (record.type) {
        case 0x00:
            return takeData(record);
        case 0x02:
        case 0x04:
            if (record.length != 2)
                return badRecord(record, std::string(record.type == 0x02 ? "extended segment" : "extended linear") +
                                             " address record needs 2 data bytes");
            segmented_ = record.type == 0x02;
            base_ = segmented_ ? static_cast<uint32_t>(record.data[0] << 8 | record.data[1]) * 16
                               : static_cast<uint32_t>(record.data[0] << 8 | record.data[1]) << 16;
            return true;
        case 0x03:
        case 0x05:
            return takeStart(record);
        default:
            fail(fullread_t::status_t::UNSUPPORTED_TYPE, record.line, "", textOf(record));
            read_.type = record.type;
            return false;
        }
    }

    bool takeStart(const scannedrecord_t& record)
    {
        if (record.length != 4)
            return badRecord(record, std::string(record.type == 0x03 ? "start segment" : "start linear") +
                                         " address record needs 4 data bytes");
        const uint32_t value = static_cast<uint32_t>(record.data[0]) << 24 |
                               static_cast<uint32_t>(record.data[1]) << 16 |
                               static_cast<uint32_t>(record.data[2]) << 8 | record.data[3];
        if (startType_ == 0) {
            startType_ = record.type;
            startValue_ = value;
        } else if (startType_ != record.type || startValue_ != value) {
            read_.ignoredStartLines.push_back(record.line); // the first one wins
        }
        return true;
    }

    // A data record as one or two pieces: segment offsets wrap at 64 KiB, and
    // full addresses at 4 GiB. Linear bases are multiples of 64 KiB, so either
    // can only happen to a record that runs past its offset 0xFFFF.
    bool takeData(const scannedrecord_t& record)
    {
        if (record.length == 0)
            return true;
        const uint32_t address = base_ + record.offset;
        piece_t pieces[2];
        pieces[0] = piece_t{address, record.data, record.length};
        size_t count = 1;
        if (record.offset + record.length > 0x10000u) {
            const uint64_t room = segmented_ ? 0x10000u - record.offset : 0x100000000ull - address;
            if (record.length > room) {
                pieces[0].length = static_cast<uint32_t>(room);
                pieces[1] = {segmented_ ? base_ : 0, record.data + room, static_cast<uint32_t>(record.length - room)};
                count = 2;
            }
        }
        if (assembler_.addRecord(pieces, count, record.line))
            return true;
        gaveUp_ = true;
        return false;
    }

    Assembler& assembler_;
    fullread_t& read_;
    bool segmented_ = false;
    uint32_t base_ = 0;
    uint8_t startType_ = 0;
    uint32_t startValue_ = 0;
    bool gaveUp_ = false;
};

// Reads source with one assembler; false when the assembler gave up.
template <typename Assembler> bool readWith(TextSource& source, MemoryImage& image, fullread_t& read)
{
    Assembler assembler;
    RecordInterpreter<Assembler> interpreter(assembler, read);
    if (!interpreter.run(source))
        return false;
    if (read.status != fullread_t::status_t::OK)
        return true;
    MemoryImageBuilder::assign(image, assembler.finish(), interpreter.startType(), interpreter.startValue());
    // Bytes given again are a warning about an image that was read; the
    // sorting method counts them only when it finishes.
    read.repeatedBytes = assembler.repeatedBytes;
    read.firstRepeatLine = assembler.firstRepeatLine;
    return true;
}

} // namespace

fullread_t readFullFormat(TextSource& source, MemoryImage& image, placement_t placement)
{
    fullread_t read;
    if (!source.canRewind()) {
        std::vector<char> text;
        if (!readWhole(source, text)) {
            read.status = fullread_t::status_t::READ_ERROR;
            read.reason = std::string("cannot read the file: ") + std::strerror(errno);
            return read;
        }
        MemoryText memory(text.data(), text.size());
        return readFullFormat(memory, image, placement);
    }
    if (placement == placement_t::WINDOWS) {
        if (readWith<WindowAssembler>(source, image, read))
            return read;
        read = fullread_t();
        if (!source.rewind()) {
            read.status = fullread_t::status_t::READ_ERROR;
            read.reason = "cannot read the file again";
            return read;
        }
    }
    read.sorted = true;
    readWith<SortingAssembler>(source, image, read);
    return read;
}

std::vector<MemoryImage::warning_t> warningsOf(const fullread_t& read)
{
    std::vector<MemoryImage::warning_t> warnings;
    for (size_t line : read.ignoredStartLines)
        warnings.push_back({line, "a second, different start address is ignored"});
    if (read.status == fullread_t::status_t::OK && !read.sawEndRecord)
        warnings.push_back({0, "end of file reached without an end-of-file record"});
    if (read.repeatedBytes > 0)
        warnings.push_back({read.firstRepeatLine, std::to_string(read.repeatedBytes) +
                                                      " bytes given by more than one record; the first value of "
                                                      "each is kept"});
    return warnings;
}

} // namespace intelhex_internal
