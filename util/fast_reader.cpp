#include "fast_reader.h"

#include "region_window.h"

#include <map>

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
        if (!isQuietRecord(record))
            return false;
        if (record.type == TYPE_LINEAR_BASE) {
            linearBase_ = linearBaseOf(record);
            return true;
        }
        if (!runs_.empty()) {
            fastrun_t& run = runs_.back();
            if (keyOf(linearBase_, record.offset) <= keyOf(run.linearBase, run.lastRecordAddr)) {
                outOfOrder_ = true;
                return false;
            }
            const uint16_t runEnd = static_cast<uint16_t>(run.lastRecordAddr + run.lastRecordLen);
            if (run.linearBase == linearBase_ && runEnd == record.offset) {
                run.bytes.insert(run.bytes.end(), record.data, record.data + record.length);
                run.lastRecordAddr = record.offset;
                run.lastRecordLen = record.length;
                return true;
            }
            trim(run);
        }
        runs_.push_back(fastrun_t{linearBase_, record.offset, record.offset, record.length,
                                  std::vector<uint8_t>(record.data, record.data + record.length)});
        return true;
    }

    std::vector<fastrun_t>& runs_;
    uint16_t linearBase_ = 0;
    bool outOfOrder_ = false;
};

// Records in any order: each linear base gets a window that shows which
// addresses hold data and where records started, so that a repeated record
// is dropped (the first one wins) and the runs fall out of the window. A
// record that overlaps another without repeating its address makes the
// exact reader build overlapping blocks: that is left to it.
class WindowReader {
public:
    bool read(TextSource& source, std::vector<fastrun_t>& runs)
    {
        RecordScanner scanner(linerules_t::STRICT);
        const scanend_t end = scanner.scan(source, [this](const scannedrecord_t& record) { return take(record); });
        if (end != scanend_t::END_RECORD)
            return false;
        closeWindow();
        for (auto& entry : closed_)
            for (fastrun_t& run : entry.second.runs)
                runs.push_back(std::move(run));
        return true;
    }

private:
    // A linear base whose window is closed.
    struct closedbase_t {
        std::vector<fastrun_t> runs;
        std::vector<progression_t> starts;
    };

    // A window spans a base's 64 KiB and the bytes a record starting at
    // 0xFFFF can carry beyond them.
    static const size_t WINDOW_POSITIONS = 0x10000 + 0xFF - 1;
    // Returning to closed bases may cost this much plus the data read so far.
    static const uint64_t REOPEN_ALLOWANCE = 1u << 20;

    bool take(const scannedrecord_t& record)
    {
        if (!isQuietRecord(record))
            return false;
        if (record.type == TYPE_LINEAR_BASE) {
            linearBase_ = linearBaseOf(record);
            return true;
        }
        dataBytes_ += record.length;
        if (!isOpen_ || openBase_ != linearBase_)
            if (!openWindow(linearBase_))
                return false;
        // A repeated address is dropped (the first record wins); an overlap is
        // left to the exact reader.
        const size_t repeated = window_.placeRecord(record.offset, record.data, record.length);
        return repeated == RegionWindow::REPEATED_START || repeated == 0;
    }

    bool openWindow(uint16_t linearBase)
    {
        closeWindow();
        isOpen_ = true;
        openBase_ = linearBase;
        const auto found = closed_.find(linearBase);
        if (found == closed_.end())
            return true;
        for (const fastrun_t& run : found->second.runs) {
            window_.placeNew(run.startAddr, run.bytes.data(), run.bytes.size());
            reopenCost_ += run.bytes.size();
        }
        window_.markStarts(found->second.starts);
        closed_.erase(found);
        // Records that keep jumping between bases are left to the exact reader.
        return reopenCost_ <= dataBytes_ + REOPEN_ALLOWANCE;
    }

    void closeWindow()
    {
        if (!isOpen_)
            return;
        isOpen_ = false;
        if (window_.empty())
            return;
        closedbase_t& base = closed_[openBase_];
        for (const run_t& r : window_.runs()) {
            const uint8_t* bytes = window_.bytes() + r.start;
            const size_t last = window_.lastStartBefore(r.start + r.length);
            base.runs.push_back(fastrun_t{openBase_, static_cast<uint16_t>(r.start), static_cast<uint16_t>(last),
                                          static_cast<uint8_t>(r.start + r.length - last),
                                          std::vector<uint8_t>(bytes, bytes + r.length)});
        }
        base.starts = window_.starts();
        window_.clear();
    }

    RegionWindow window_{WINDOW_POSITIONS};
    std::map<uint16_t, closedbase_t> closed_;
    uint16_t linearBase_ = 0;
    uint16_t openBase_ = 0;
    bool isOpen_ = false;
    uint64_t dataBytes_ = 0;
    uint64_t reopenCost_ = 0;
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
