#include "fast_reader.h"

#include "region_window.h"

namespace intelhex_internal {

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
// a word, and hands on the data records with their base; false, to stop,
// at any other record.
class QuietRecords {
public:
    template <typename OnData> bool take(const scannedrecord_t& record, OnData onData)
    {
        if (!isQuietRecord(record))
            return false;
        if (record.type == TYPE_LINEAR_BASE) {
            linearBase_ = linearBaseOf(record);
            return true;
        }
        return onData(record, linearBase_);
    }

private:
    uint16_t linearBase_ = 0;
};

// Gives back the spare capacity of a run that will not grow any more.
void trim(fastrun_t& run)
{
    if (run.bytes.capacity() - run.bytes.size() > run.bytes.size() / 8)
        run.bytes.shrink_to_fit();
}

// Records in strictly ascending order of linear base and address, appended
// to runs as they come. Stops at the first record that is not.
class AscendingReader {
public:
    enum class outcome_t { DONE, OUT_OF_ORDER, DECLINED };

    explicit AscendingReader(std::vector<fastrun_t>& runs) : runs_(runs) {}

    outcome_t read(TextSource& source)
    {
        RecordScanner scanner(linerules_t::STRICT);
        const scanend_t end = scanner.scan(source, [this](const scannedrecord_t& record) { return take(record); });
        if (outOfOrder_)
            return outcome_t::OUT_OF_ORDER;
        if (end != scanend_t::END_RECORD)
            return outcome_t::DECLINED;
        if (!runs_.empty())
            trim(runs_.back());
        return outcome_t::DONE;
    }

private:
    bool take(const scannedrecord_t& record)
    {
        return records_.take(record, [this](const scannedrecord_t& data, uint16_t linearBase) {
            return takeData(data, linearBase);
        });
    }

    bool takeData(const scannedrecord_t& record, uint16_t linearBase)
    {
        if (!runs_.empty()) {
            fastrun_t& run = runs_.back();
            if (keyOf(linearBase, record.offset) <= keyOf(run.linearBase, run.lastRecordAddr)) {
                outOfOrder_ = true;
                return false;
            }
            const uint16_t runEnd = static_cast<uint16_t>(run.lastRecordAddr + run.lastRecordLen);
            if (run.linearBase == linearBase && runEnd == record.offset) {
                run.bytes.insert(run.bytes.end(), record.data, record.data + record.length);
                run.lastRecordAddr = record.offset;
                run.lastRecordLen = record.length;
                return true;
            }
            trim(run);
        }
        runs_.push_back(fastrun_t{linearBase, record.offset, record.offset, record.length,
                                  std::vector<uint8_t>(record.data, record.data + record.length)});
        return true;
    }

    std::vector<fastrun_t>& runs_;
    QuietRecords records_;
    bool outOfOrder_ = false;
};

// A linear base whose window is closed: its runs, ready to become blocks,
// and its record starts.
struct closedbase_t {
    std::vector<fastrun_t> runs;
    std::vector<progression_t> starts;

    void close(uint32_t linearBase, RegionWindow& window)
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

    uint64_t reopen(RegionWindow& window) const
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
        RecordScanner scanner(linerules_t::STRICT);
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
        return records_.take(record, [this](const scannedrecord_t& data, uint16_t linearBase) {
            dataBytes_ += data.length;
            if (!bases_.open(linearBase, dataBytes_))
                return false;
            // A repeated address is dropped (the first record wins); an
            // overlap is left to the exact reader.
            const size_t repeated = bases_.window().placeRecord(data.offset, data.data, data.length);
            return repeated == RegionWindow::REPEATED_START || repeated == 0;
        });
    }

    QuietRecords records_;
    RegionWindows<closedbase_t> bases_{WINDOW_POSITIONS};
    uint64_t dataBytes_ = 0;
};

} // namespace

bool readFast(TextSource& source, std::vector<fastrun_t>& runs)
{
    AscendingReader ascending(runs);
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

} // namespace intelhex_internal
