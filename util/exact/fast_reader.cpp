#include "fast_reader.h"

#include "region_window.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace hexblocks::detail {

namespace {

const uint8_t TYPE_DATA = 0x00;
const uint8_t TYPE_LINEAR_BASE = 0x04;

// The 32-bit key by which the exact reader orders records.
uint32_t keyOf(uint16_t linearBase, uint16_t address)
{
    return static_cast<uint32_t>(linearBase) << 16 | address;
}

// Whether a record is one the exact reader takes without a word: a data
// record with bytes, or a linear base record with at least two.
bool isQuietRecord(const scannedrecord_t& record)
{
    return (record.type == TYPE_DATA && record.length > 0) || (record.type == TYPE_LINEAR_BASE && record.length >= 2);
}

uint16_t linearBaseOf(const scannedrecord_t& record)
{
    return static_cast<uint16_t>(record.data[0] << 8 | record.data[1]);
}

// Follows the linear base through the records the exact reader takes without
// a word. Data records with bytes are for the caller to take, with the
// current linear base; any other record is taken here: false, to stop, for
// one the exact reader would say something about.
class QuietRecords {
public:
    static bool isData(const scannedrecord_t& record) { return record.type == TYPE_DATA && record.length > 0; }

    bool takeOther(const scannedrecord_t& record)
    {
        if (!isQuietRecord(record))
            return false;
        linearBase_ = linearBaseOf(record);
        return true;
    }

    uint16_t linearBase() const { return linearBase_; }

private:
    uint16_t linearBase_ = 0;
};

// Records in strictly ascending order of linear base and address, appended
// to runs as they come. Stops at the first record that is not.
class AscendingReader {
public:
    enum class outcome_t { DONE, OUT_OF_ORDER, DECLINED };

    // textSize, when known, bounds a run (two digits a byte), and so the
    // buffer a run is gathered in.
    AscendingReader(std::vector<fastrun_t>& runs, uint64_t textSize)
        : runs_(runs), stagingSize_(textSize > 0 && textSize / 2 < MAX_RUN ? textSize / 2 + 1 : MAX_RUN),
          staging_(new uint8_t[stagingSize_])
    {
    }

    outcome_t read(TextSource& source)
    {
        RecordScanner<linerules_t::STRICT> scanner;
        Handler handler{*this};
        const scanend_t end = scanner.scan(source, handler);
        if (outOfOrder_)
            return outcome_t::OUT_OF_ORDER;
        if (end != scanend_t::END_RECORD)
            return outcome_t::DECLINED;
        if (!runs_.empty())
            closeRun(runs_.back());
        return outcome_t::DONE;
    }

private:
    // What the scanner hands records to: data records mostly in runs.
    struct Handler {
        AscendingReader& reader;
        HEXBLOCKS_ALWAYS_INLINE bool operator()(const scannedrecord_t& record) { return reader.take(record); }
        HEXBLOCKS_ALWAYS_INLINE bool takeRun(const datarun_t& run) { return reader.takeRun(run); }
    };

    HEXBLOCKS_ALWAYS_INLINE bool takeRun(const datarun_t& run)
    {
        const uint16_t offset = static_cast<uint16_t>(run.address);
        if (!continuesLastRun(offset) && !startRun(offset, records_.linearBase()))
            return false;
        appendBytes(run.data, run.length);
        runs_.back().lastRecordAddr = run.lastOffset;
        runs_.back().lastRecordLen = run.lastLength;
        return true;
    }

    bool continuesLastRun(uint16_t offset) const
    {
        if (runs_.empty())
            return false;
        const fastrun_t& run = runs_.back();
        const uint16_t runEnd = static_cast<uint16_t>(run.lastRecordAddr + run.lastRecordLen);
        return run.linearBase == records_.linearBase() && runEnd == offset && offset > run.lastRecordAddr;
    }

    HEXBLOCKS_ALWAYS_INLINE bool take(const scannedrecord_t& record)
    {
        if (!QuietRecords::isData(record))
            return records_.takeOther(record);
        if (!continuesLastRun(record.offset) && !startRun(record.offset, records_.linearBase()))
            return false;
        appendBytes(record.data, record.length);
        runs_.back().lastRecordAddr = record.offset;
        runs_.back().lastRecordLen = record.length;
        return true;
    }

    // The last run's bytes are gathered in a buffer as large as a run can
    // be, and become its vector when it is closed: one copy of each byte,
    // and none of the vector's bookkeeping for each record.
    HEXBLOCKS_ALWAYS_INLINE void appendBytes(const uint8_t* data, size_t length)
    {
        if (staged_ + length > stagingSize_)
            growStaging();
        copyRecordData(staging_.get() + staged_, data, length);
        staged_ += length;
    }

    void closeRun(fastrun_t& run)
    {
        // In pieces of a few kilobytes, which memcpy copies with vector moves
        // (larger ones make it switch to a string instruction that is no
        // faster here).
        run.bytes.reserve(staged_);
        for (size_t done = 0; done < staged_; done += COPY_PIECE)
            run.bytes.insert(run.bytes.end(), staging_.get() + done,
                             staging_.get() + std::min(staged_, done + COPY_PIECE));
        staged_ = 0;
    }

    static constexpr size_t COPY_PIECE = 2048;

    // The text was longer than it said: a run may reach its largest size.
    void growStaging()
    {
        std::unique_ptr<uint8_t[]> larger(new uint8_t[MAX_RUN]);
        std::memcpy(larger.get(), staging_.get(), staged_);
        staging_ = std::move(larger);
        stagingSize_ = MAX_RUN;
    }

    // Records that do not continue the last run start a new one, unless they
    // are out of order. The new run is empty; its final record is the first
    // record's place until the caller says otherwise.
    bool startRun(uint16_t offset, uint16_t linearBase)
    {
        if (!runs_.empty()) {
            fastrun_t& run = runs_.back();
            if (keyOf(linearBase, offset) <= keyOf(run.linearBase, run.lastRecordAddr)) {
                outOfOrder_ = true;
                return false;
            }
            closeRun(run);
        }
        runs_.push_back(fastrun_t{linearBase, offset, offset, 0, std::vector<uint8_t>()});
        return true;
    }

    std::vector<fastrun_t>& runs_;
    QuietRecords records_;
    // A run under one linear base holds at most the bytes from its start to
    // 0xFFFF and one record beyond.
    static constexpr size_t MAX_RUN = 0x10000 + 0xFF;
    size_t stagingSize_;
    std::unique_ptr<uint8_t[]> staging_;
    size_t staged_ = 0;
    bool outOfOrder_ = false;
};

// Closed bases keep everything themselves.
struct nostore_t {};

// A linear base whose window is closed: its runs, ready to become blocks,
// and its record starts.
struct closedbase_t {
    std::vector<fastrun_t> runs;
    std::vector<progression_t> starts;

    void close(uint32_t linearBase, RegionWindow& window, nostore_t&)
    {
        for (const run_t& r : window.runs()) {
            const uint8_t* bytes = window.bytes() + r.start;
            const size_t last = window.lastStartBefore(r.start + r.length);
            runs.push_back(fastrun_t{static_cast<uint16_t>(linearBase), static_cast<uint16_t>(r.start),
                                     static_cast<uint16_t>(last), static_cast<uint8_t>(r.start + r.length - last),
                                     std::vector<uint8_t>(bytes, bytes + r.length)});
        }
        starts = window.starts();
    }

    uint64_t reopen(RegionWindow& window, nostore_t&) const
    {
        uint64_t moved = 0;
        for (const fastrun_t& run : runs) {
            window.placeNew(run.startAddr, run.bytes.data(), run.bytes.size());
            moved += run.bytes.size();
        }
        window.markStarts(starts);
        return moved;
    }
};

// Records in any order: each linear base gets a window that shows which
// addresses hold data and where records started, so that a repeated record
// is dropped (the first one wins) and the runs fall out of the window. A
// record that overlaps another without repeating its address makes the
// exact reader build overlapping blocks, and records that keep jumping
// between linear bases would cost too much here: both are left to it.
class WindowReader {
public:
    bool read(TextSource& source, std::vector<fastrun_t>& runs)
    {
        RecordScanner<linerules_t::STRICT> scanner;
        const scanend_t end = scanner.scan(source, [this](const scannedrecord_t& record) { return take(record); });
        if (end != scanend_t::END_RECORD)
            return false;
        bases_.close();
        for (auto& entry : bases_.closed())
            for (fastrun_t& run : entry.second.runs)
                runs.push_back(std::move(run));
        return true;
    }

private:
    // A window spans a base's 64 KiB and the bytes a record starting at
    // 0xFFFF can carry beyond them.
    static constexpr size_t WINDOW_POSITIONS = 0x10000 + 0xFF - 1;

    bool take(const scannedrecord_t& record)
    {
        if (!QuietRecords::isData(record))
            return records_.takeOther(record);
        dataBytes_ += record.length;
        if (!bases_.open(records_.linearBase(), dataBytes_))
            return false;
        // A repeated address is dropped (the first record wins); an
        // overlap is left to the exact reader.
        const size_t repeated = bases_.window().placeRecord(record.offset, record.data, record.length);
        return repeated == RegionWindow::REPEATED_START || repeated == 0;
    }

    QuietRecords records_;
    nostore_t store_;
    RegionWindows<closedbase_t, nostore_t> bases_{WINDOW_POSITIONS, store_};
    uint64_t dataBytes_ = 0;
};

} // namespace

bool readFast(TextSource& source, std::vector<fastrun_t>& runs)
{
    AscendingReader ascending(runs, source.sizeLeft());
    const AscendingReader::outcome_t outcome = ascending.read(source);
    if (outcome == AscendingReader::outcome_t::DONE)
        return true;
    runs.clear();
    if (outcome == AscendingReader::outcome_t::DECLINED || !source.rewind())
        return false;
    WindowReader windows;
    if (windows.read(source, runs))
        return true;
    runs.clear();
    return false;
}

} // namespace hexblocks::detail
