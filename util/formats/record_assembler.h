// Where the records of the text formats (Intel HEX, S-records) are put
// together into an image: each reader turns its records into pieces of bytes
// at full addresses, and an assembler places them, keeping the first value
// of each byte, dropping records that repeat an earlier record's address and
// counting bytes given again.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_RECORD_ASSEMBLER_H
#define HEXBLOCKS_RECORD_ASSEMBLER_H

#include "formats.h"
#include "hex_format.h"
#include "image_builder.h"
#include "memory_image.h"
#include "record_scanner.h"
#include "region_window.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace hexblocks::detail {

// What a text-format reader found.
struct fullread_t {
    enum class status_t {
        OK,
        BAD_LINE,         // a malformed record: line, reason and text say which and why
        UNSUPPORTED_TYPE, // a record of an unknown type: line, type and text
        READ_ERROR        // the source could not be read
    };
    status_t status = status_t::OK;
    size_t line = 0;
    std::string reason;
    std::string text; // the offending line without surrounding white space
    uint8_t type = 0;
    bool badChecksum = false; // BAD_LINE: the line's checksum is wrong

    // Warnings: a second, different start address, kept after a failure too;
    // the others only after a success.
    std::vector<size_t> ignoredStartLines;
    bool sawEndRecord = false;
    const char* endRecordName = "an end-of-file record"; // for the warning when there is none
    uint64_t repeatedBytes = 0; // bytes given again by overlapping records
    size_t firstRepeatLine = 0; // the first line that gave one

    bool sorted = false; // the records were placed by sorting them

    // Block formats (UF2): the blocks in the input, and the families named.
    uint64_t blocks = 0;
    std::vector<uint32_t> families;
    // What a record is called in the warnings: "record", "block", "line".
    const char* recordName = "record";
    // The status of a failure when the record's shape is not what is wrong
    // (OK: the status follows from status above).
    hexblocks::status_t failureStatus = hexblocks::status_t::OK;
    // The address a failure concerns, when there is one.
    std::optional<uint32_t> address;
};



// One record's bytes at their full addresses: one piece, or two when the
// bytes wrap (past the end of a 64 KiB segment, or past 0xFFFFFFFF).
struct piece_t {
    uint32_t address;
    const uint8_t* data;
    uint32_t length;
};

const uint64_t REGION_SIZE = 0x10000;

// Where closed regions that are mostly data keep their bytes: a slot of
// REGION_SIZE bytes each in one vector, in the order the regions closed.
// At the end the slots of one segment are put in address order inside it,
// and the vector becomes that segment's bytes: the image is allocated once,
// and the windows' pages are used again and again.
struct regionarena_t {
    static constexpr uint32_t NO_SLOT = static_cast<uint32_t>(-1);

    std::vector<uint8_t> bytes;
    std::vector<uint32_t> freeSlots; // slots whose regions were opened again
    uint64_t room = 0;               // bytes may not grow beyond it (no copy)

    // Keeps a window's bytes; the slot, or NO_SLOT when there is no room.
    uint32_t keep(const uint8_t* window);

    uint8_t* slotBytes(uint32_t slot) { return bytes.data() + static_cast<uint64_t>(slot) * REGION_SIZE; }
    const uint8_t* slotBytes(uint32_t slot) const
    {
        return bytes.data() + static_cast<uint64_t>(slot) * REGION_SIZE;
    }
};

// Where each region's data is kept once its window is closed: a slot of
// the arena when the region is mostly data (or the window's own pages when
// the arena is full), else just the runs' bytes.
struct closedregion_t {
    uint32_t slot = regionarena_t::NO_SLOT;
    PageBytes pages;
    std::vector<uint8_t> packed;
    std::vector<run_t> runs;         // positions in the region
    std::vector<uint32_t> runOffset; // where each run's bytes are kept
    std::vector<progression_t> starts;

    const uint8_t* bytesOf(size_t run, const regionarena_t& arena) const
    {
        const uint8_t* kept = slot != regionarena_t::NO_SLOT ? arena.slotBytes(slot)
                              : pages.empty()                 ? packed.data()
                                                              : pages.data();
        return kept + runOffset[run];
    }

    void close(uint32_t, RegionWindow& window, regionarena_t& arena);

    uint64_t reopen(RegionWindow& window, regionarena_t& arena) const;
};

// Places records that come in ascending order of address, none reaching back
// over the data before it: the usual file, read at the speed of its text.
// Each record extends the last segment or starts a new one. It gives up at
// the first record that does not, and the file is read again another way.
class AscendingAssembler {
public:
    uint64_t repeatedBytes = 0; // always 0: a byte given again makes it give up
    size_t firstRepeatLine = 0;
    size_t conflictLine = 0; // always 0, as for the other assemblers

    // textSize, when known, bounds the data (two digits a byte): the first
    // segment reserves room for it at once, so that it never moves.
    explicit AscendingAssembler(uint64_t textSize);

    HEXBLOCKS_ALWAYS_INLINE bool addRecord(const piece_t* pieces, size_t count, size_t)
    {
        if (count == 1 && pieces[0].address == end_ && !segments_.empty() &&
            staged_ + pieces[0].length <= STAGING_SIZE) {
            // The usual record: it continues the segment.
            copyRecordData(staging_.get() + staged_, pieces[0].data, pieces[0].length);
            staged_ += pieces[0].length;
            end_ += pieces[0].length;
            return true;
        }
        for (size_t i = 0; i < count; ++i)
            if (!addPiece(pieces[i].address, pieces[i].data, pieces[i].length))
                return false;
        return true;
    }

    // Records gathered by the scanner, one after another (see datarun_t):
    // they go straight into the segment.
    bool addRun(uint32_t address, const uint8_t* data, size_t length);

    std::vector<segment_t> finish();

private:
    // Bytes are gathered here and put into the segment's vector a few
    // kilobytes at a time, which costs less than growing the vector by each
    // record; pieces this small are copied with vector moves (larger ones
    // make memcpy switch to a string instruction that is no faster here).
    static constexpr size_t STAGING_SIZE = 2048;

    // (The piece comes as values, so that the usual one need not be kept
    // in memory for this call.)
    bool addPiece(uint32_t address, const uint8_t* data, uint32_t length);
    bool startSegment(uint32_t address);
    void flush();
    static void shrink(std::vector<uint8_t>& bytes);

    std::vector<segment_t> segments_;
    uint64_t end_ = 0; // one past the last byte placed
    uint64_t reserve_;
    std::unique_ptr<uint8_t[]> staging_;
    size_t staged_ = 0;
};

// Places records in file order into a window per 64 KiB region, which keeps
// the first value of each byte, finds repeated record addresses and counts
// bytes given again, as records arrive. A few windows are open at a time;
// closed regions keep their runs and their record starts.
class WindowAssembler {
public:
    uint64_t repeatedBytes = 0;
    size_t firstRepeatLine = 0;
    size_t conflictLine = 0; // the record that the policy refused, which stopped the reading

    // textSize, when known, bounds the room the arena reserves.
    explicit WindowAssembler(overlap_policy_t overlap = overlap_policy_t::FIRST, uint64_t textSize = 0);

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
            return repeated == 0 || overlapping(position, first, repeated, line);
        }
        return addPieces(pieces, count, line);
    }

    // The segments: runs of neighbouring regions that meet are joined.
    std::vector<segment_t> finish();

private:
    void countRepeated(size_t repeated, size_t line)
    {
        if (repeatedBytes == 0)
            firstRepeatLine = line;
        repeatedBytes += repeated;
    }

    // Any record: pieces that wrap, or cross into another region.
    bool addPieces(const piece_t* pieces, size_t count, size_t line);

    // What the policy makes of a record in the open window that placeRecord()
    // found giving bytes again (repeated of them, or REPEATED_START); false
    // when it refuses them.
    bool overlapping(size_t position, const piece_t& piece, size_t repeated, size_t line);

    // The same for part of a record placed with placeNew().
    bool placePart(size_t position, const uint8_t* data, size_t length, size_t line);

    // A segment, and the regions it spans.
    struct span_t {
        uint64_t address;
        uint64_t size;
        uint32_t firstRegion;
        uint32_t lastRegion;
        size_t slots; // of its regions, those kept in the arena
    };

    // The segment of span built inside the arena, whose bytes it takes.
    std::vector<uint8_t> buildInArena(const span_t& span);

    overlap_policy_t overlap_;
    regionarena_t arena_;
    RegionWindows<closedregion_t, regionarena_t> regions_{REGION_SIZE, arena_};
    uint64_t dataBytes_ = 0;
};

// Takes records in any order by collecting every piece with its line and
// sorting them at the end. Slower and hungrier than the windows, but its cost
// does not depend on the order of the records.
class SortingAssembler {
public:
    uint64_t repeatedBytes = 0;
    size_t firstRepeatLine = 0;
    size_t conflictLine = 0;

    explicit SortingAssembler(overlap_policy_t overlap = overlap_policy_t::FIRST) : overlap_(overlap) {}

    bool addRecord(const piece_t* pieces, size_t count, size_t line)
    {
        for (size_t i = 0; i < count; ++i) {
            pieces_.push_back(stored_t{pieces[i].address, pieces[i].length, store_.size(), line, i == 0});
            store_.insert(store_.end(), pieces[i].data, pieces[i].data + pieces[i].length);
        }
        return true;
    }

    std::vector<segment_t> finish();

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
    void dropRepeatedRecords();

    overlap_policy_t overlap_;
    std::vector<stored_t> pieces_;
    std::vector<uint8_t> store_;
};

// Makes read a failure: status, the line to blame (0 for none), why, and the
// offending line's text.
void failRead(fullread_t& read, fullread_t::status_t status, size_t line, const std::string& reason,
              const std::string& text);

// A record that breaks a reader's rules: read fails at its line. Returns
// false, for a record handler to stop the scan.
bool failRecord(fullread_t& read, const scannedrecord_t& record, const std::string& reason);

// Scans source with a reader's line rules, handing each record to
// take(record), and records in read how the scan ended: the end record, a
// bad line or a read error (a handler that stops has said why itself).
template <linerules_t RULES, typename Take> void scanRecords(TextSource& source, fullread_t& read, Take&& take)
{
    RecordScanner<RULES> scanner;
    switch (scanner.scan(source, take)) {
    case scanend_t::END_RECORD:
        read.sawEndRecord = true;
        break;
    case scanend_t::BAD_LINE:
        failRead(read, fullread_t::status_t::BAD_LINE, scanner.badLine().line, scanner.badLine().reason,
                 scanner.badLine().text);
        read.badChecksum = scanner.badLine().badChecksum;
        break;
    case scanend_t::READ_ERROR:
        failRead(read, fullread_t::status_t::READ_ERROR, 0, std::string("cannot read the file: ") + std::strerror(errno),
                 "");
        break;
    case scanend_t::END_OF_INPUT:
    case scanend_t::STOPPED:
        break;
    }
}

// The record handlers of scanInto(): any record goes to the interpreter's
// take(record), and a run of data records to its takeRun(run).
template <typename Interpreter> struct RecordHandler {
    Interpreter& interpreter;
    HEXBLOCKS_ALWAYS_INLINE bool operator()(const scannedrecord_t& record) { return interpreter.take(record); }
};
template <typename Interpreter> struct RunHandler : RecordHandler<Interpreter> {
    bool takeRun(const datarun_t& run) { return this->interpreter.takeRun(run); }
};

// Scans source for a reader's interpreter, handing runs of data records on
// whole to the ascending assembler, which takes them in one piece.
template <linerules_t RULES, typename Assembler, typename Interpreter>
void scanInto(TextSource& source, fullread_t& read, Interpreter& interpreter)
{
    if constexpr (std::is_same_v<Assembler, AscendingAssembler>) {
        RunHandler<Interpreter> handler{{interpreter}};
        scanRecords<RULES>(source, read, handler);
    } else {
        RecordHandler<Interpreter> handler{interpreter};
        scanRecords<RULES>(source, read, handler);
    }
}

// How records are placed: as they come while they ascend, then in a window
// per region, falling back to sorting when records jump between regions too
// often; from the windows on; or by sorting alone.
enum class placement_t { ASCENDING, WINDOWS, SORTING };

// How records are placed, and what happens to bytes that two records of the
// input give: FIRST keeps the first value (and a record that starts where
// an earlier one started is dropped whole), LAST takes the later value,
// IDENTICAL accepts equal values only, ERROR none at all.
struct assembly_t {
    placement_t placement = placement_t::ASCENDING;
    overlap_policy_t overlap = overlap_policy_t::FIRST;

    assembly_t() = default;
    assembly_t(placement_t how) : placement(how) {} // NOLINT: a placement alone is an assembly
    assembly_t(placement_t how, overlap_policy_t policy) : placement(how), overlap(policy) {}
};

// Reads source with an assembler and a reader's Interpreter<Assembler>;
// false when the assembler gave up. A record that the overlap policy refuses
// fails the read, with conflictLine set in read.
template <template <typename> class Interpreter, typename Assembler, typename... Settings>
bool readWith(TextSource& source, MemoryImage& image, fullread_t& read, Assembler& assembler,
              size_t& conflictLine, const Settings&... settings)
{
    Interpreter<Assembler> interpreter(assembler, read, settings...);
    if (!interpreter.run(source)) {
        conflictLine = assembler.conflictLine;
        return conflictLine != 0;
    }
    if (read.status != fullread_t::status_t::OK)
        return true;
    std::vector<segment_t> segments = assembler.finish();
    conflictLine = assembler.conflictLine;
    if (conflictLine != 0)
        return true;
    ImageBuilder::assign(image, std::move(segments), interpreter.startType(), interpreter.startValue(),
                         interpreter.header());
    // Bytes given again are a warning about an image that was read; the
    // sorting method counts them only when it finishes.
    read.repeatedBytes = assembler.repeatedBytes;
    read.firstRepeatLine = assembler.firstRepeatLine;
    return true;
}

// Starts source again for another way of reading it; false, with read
// saying why, when it cannot.
inline bool startAgain(TextSource& source, fullread_t& read)
{
    read = fullread_t();
    if (source.rewind())
        return true;
    read.status = fullread_t::status_t::READ_ERROR;
    read.reason = "cannot read the file again";
    return false;
}

// Gathers the bytes of the records of one line: those of a record that an
// overlap policy refused.
class LineCapture {
public:
    explicit LineCapture(size_t line) : line_(line) {}

    bool addRecord(const piece_t* pieces, size_t count, size_t line)
    {
        if (line != line_)
            return true;
        for (size_t i = 0; i < count; ++i)
            for (uint32_t k = 0; k < pieces[i].length; ++k)
                bytes.emplace_back(static_cast<uint32_t>(pieces[i].address + k), pieces[i].data[k]);
        return true;
    }

    std::vector<std::pair<uint32_t, uint8_t>> bytes; // address, value

private:
    size_t line_;
};

// Finds, for each address of a set, the first record before a line that
// gives it: its line and the value.
class EarlierGivers {
public:
    EarlierGivers(const std::vector<std::pair<uint32_t, uint8_t>>& wanted, size_t before) : before_(before)
    {
        for (const auto& w : wanted)
            given_.emplace(w.first, std::make_pair(size_t(0), uint8_t(0)));
    }

    bool addRecord(const piece_t* pieces, size_t count, size_t line)
    {
        if (line >= before_)
            return true;
        for (size_t i = 0; i < count; ++i)
            for (uint32_t k = 0; k < pieces[i].length; ++k) {
                const auto found = given_.find(static_cast<uint32_t>(pieces[i].address + k));
                if (found != given_.end() && found->second.first == 0)
                    found->second = std::make_pair(line, pieces[i].data[k]);
            }
        return true;
    }

    // The line (0 for none) and the value the first earlier record gave.
    std::pair<size_t, uint8_t> giverOf(uint32_t address) const { return given_.at(address); }

private:
    size_t before_;
    std::map<uint32_t, std::pair<size_t, uint8_t>> given_;
};

// Fails read for the record on conflictLine that the overlap policy refused,
// saying which byte and which earlier line gave it first: reads source twice
// more, to find them.
template <template <typename> class Interpreter, typename... Settings>
void failConflict(TextSource& source, fullread_t& read, size_t conflictLine, overlap_policy_t overlap,
                  const Settings&... settings)
{
    const char* recordName = read.recordName;
    const bool blocks = std::strcmp(recordName, "block") == 0;
    const std::string here = blocks ? "block " + std::to_string(conflictLine - 1) : "this record";
    std::string reason = here + " gives bytes that an earlier " + recordName + " gave";
    std::optional<uint32_t> address;
    LineCapture capture(conflictLine);
    fullread_t scratch;
    if (source.rewind()) {
        Interpreter<LineCapture>(capture, scratch, settings...).run(source);
        EarlierGivers givers(capture.bytes, conflictLine);
        if (source.rewind())
            Interpreter<EarlierGivers>(givers, scratch, settings...).run(source);
        for (const auto& b : capture.bytes) {
            const std::pair<size_t, uint8_t> giver = givers.giverOf(b.first);
            if (giver.first == 0 || (overlap == overlap_policy_t::IDENTICAL && giver.second == b.second))
                continue;
            const std::string there =
                blocks ? "block " + std::to_string(giver.first - 1) : "line " + std::to_string(giver.first);
            reason = overlap == overlap_policy_t::IDENTICAL
                         ? here + " gives 0x" + hexByte(b.second) + " at " + hexAddress(b.first) + ", where " + there +
                               " gave 0x" + hexByte(giver.second)
                         : here + " gives " + hexAddress(b.first) + ", which " + there + " gave";
            address = b.first;
            break;
        }
    }
    const bool sorted = read.sorted;
    read = fullread_t();
    read.sorted = sorted;
    read.recordName = recordName;
    failRead(read, fullread_t::status_t::BAD_LINE, blocks ? 0 : conflictLine, reason, "");
    read.failureStatus = status_t::OVERLAP;
    read.address = address;
}

// Reads source with a reader's Interpreter. On success image is replaced by
// what was read; otherwise it is left as it was. Records out of order make
// the reader start again with windows, and records that keep jumping between
// regions make it start again with the sorting assembler, which takes any
// order; so a source that cannot be rewound (a pipe) is read into memory
// first. Settings, if any, go to the interpreter's constructor after the
// assembler and the read (a format's read options).
template <template <typename> class Interpreter, typename... Settings>
fullread_t readRecords(TextSource& source, MemoryImage& image, const assembly_t& assembly, const Settings&... settings)
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
        return readRecords<Interpreter>(memory, image, assembly, settings...);
    }
    size_t conflictLine = 0;
    bool done = false;
    if (assembly.placement == placement_t::ASCENDING) {
        AscendingAssembler ascending(source.sizeLeft());
        done = readWith<Interpreter>(source, image, read, ascending, conflictLine, settings...) ||
               !startAgain(source, read);
    }
    if (!done && assembly.placement != placement_t::SORTING) {
        WindowAssembler windows(assembly.overlap, source.sizeLeft());
        done = readWith<Interpreter>(source, image, read, windows, conflictLine, settings...) ||
               !startAgain(source, read);
    }
    if (!done) {
        read.sorted = true;
        SortingAssembler sorting(assembly.overlap);
        readWith<Interpreter>(source, image, read, sorting, conflictLine, settings...);
    }
    if (conflictLine != 0)
        failConflict<Interpreter>(source, read, conflictLine, assembly.overlap, settings...);
    return read;
}

// Finds the records that give the byte at an address: their lines and
// where each starts, in file order.
class CandidateAssembler {
public:
    explicit CandidateAssembler(uint32_t address) : address_(address) {}

    bool addRecord(const piece_t* pieces, size_t count, size_t line)
    {
        for (size_t i = 0; i < count; ++i)
            if (address_ - pieces[i].address < pieces[i].length)
                candidates.push_back(std::make_pair(line, pieces[0].address));
        return true;
    }

    std::vector<std::pair<size_t, uint32_t>> candidates; // line, record start

private:
    uint32_t address_;
};

// Picks the first candidate that reading keeps: one that does not start
// where an earlier record started.
class KeptCandidateAssembler {
public:
    explicit KeptCandidateAssembler(const std::vector<std::pair<size_t, uint32_t>>& candidates)
        : candidates_(candidates)
    {
    }

    bool addRecord(const piece_t* pieces, size_t, size_t line)
    {
        const uint32_t start = pieces[0].address;
        bool startsLikeCandidate = false;
        for (const auto& c : candidates_) {
            if (c.second != start)
                continue;
            startsLikeCandidate = true;
            if (c.first == line && std::find(seen_.begin(), seen_.end(), start) == seen_.end()) {
                found = line;
                return false;
            }
        }
        if (startsLikeCandidate)
            seen_.push_back(start);
        return true;
    }

    size_t found = 0;

private:
    const std::vector<std::pair<size_t, uint32_t>>& candidates_;
    std::vector<uint32_t> seen_;
};

// The line of the record that gives the byte at address as reading keeps
// it; 0 when none does. Reads source twice: it must be able to rewind.
template <template <typename> class Interpreter, typename... Settings>
size_t locateRecord(TextSource& source, uint32_t address, const Settings&... settings)
{
    CandidateAssembler candidates(address);
    fullread_t read;
    Interpreter<CandidateAssembler>(candidates, read, settings...).run(source);
    if (candidates.candidates.empty() || !source.rewind())
        return 0;
    KeptCandidateAssembler kept(candidates.candidates);
    read = fullread_t();
    Interpreter<KeptCandidateAssembler>(kept, read, settings...).run(source);
    return kept.found;
}

// The warnings of a read, as MemoryImage reports them.
std::vector<warning_t> warningsOf(const fullread_t& read);

// What reading reports for what a text-format reader found.
read_result_t readResultOf(const fullread_t& read);

} // namespace hexblocks::detail

#endif // HEXBLOCKS_RECORD_ASSEMBLER_H
