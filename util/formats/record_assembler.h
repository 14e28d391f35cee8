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
#include "image_builder.h"
#include "memory_image.h"
#include "record_scanner.h"
#include "region_window.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
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
};


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

    void close(uint32_t, RegionWindow& window);

    uint64_t reopen(RegionWindow& window) const;
};

// Places records that come in ascending order of address, none reaching back
// over the data before it: the usual file, read at the speed of its text.
// Each record extends the last segment or starts a new one. It gives up at
// the first record that does not, and the file is read again another way.
class AscendingAssembler {
public:
    uint64_t repeatedBytes = 0; // always 0: a byte given again makes it give up
    size_t firstRepeatLine = 0;

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

// Reads source with an assembler and a reader's Interpreter<Assembler>;
// false when the assembler gave up.
template <template <typename> class Interpreter, typename Assembler, typename... Settings>
bool readWith(TextSource& source, MemoryImage& image, fullread_t& read, Assembler& assembler,
              const Settings&... settings)
{
    Interpreter<Assembler> interpreter(assembler, read, settings...);
    if (!interpreter.run(source))
        return false;
    if (read.status != fullread_t::status_t::OK)
        return true;
    ImageBuilder::assign(image, assembler.finish(), interpreter.startType(), interpreter.startValue(),
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

// Reads source with a reader's Interpreter. On success image is replaced by
// what was read; otherwise it is left as it was. Records out of order make
// the reader start again with windows, and records that keep jumping between
// regions make it start again with the sorting assembler, which takes any
// order; so a source that cannot be rewound (a pipe) is read into memory
// first.
// Settings, if any, go to the interpreter's constructor after the assembler
// and the read (a format's read options).
template <template <typename> class Interpreter, typename... Settings>
fullread_t readRecords(TextSource& source, MemoryImage& image, placement_t placement, const Settings&... settings)
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
        return readRecords<Interpreter>(memory, image, placement, settings...);
    }
    if (placement == placement_t::ASCENDING) {
        AscendingAssembler ascending(source.sizeLeft());
        if (readWith<Interpreter>(source, image, read, ascending, settings...) || !startAgain(source, read))
            return read;
    }
    if (placement != placement_t::SORTING) {
        WindowAssembler windows;
        if (readWith<Interpreter>(source, image, read, windows, settings...) || !startAgain(source, read))
            return read;
    }
    read.sorted = true;
    SortingAssembler sorting;
    readWith<Interpreter>(source, image, read, sorting, settings...);
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
