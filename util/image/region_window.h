// A dense picture of one address region while its records arrive in any
// order: the bytes placed so far, a bit per position that holds data, and a
// bit per position where a record started. The fast reader keeps one per
// linear base, the full-format reader one per 64 KiB of the 32-bit address
// space; only one is open at a time, the others are kept closed as runs of
// bytes and start progressions, and reopened when a record returns to them.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_REGION_WINDOW_H
#define HEXBLOCKS_REGION_WINDOW_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

namespace hexblocks::detail {

// Bytes in anonymous pages of their own, so that releasing them gives the
// memory back to the system at once (heap blocks would stay with the
// process), and pages never written cost nothing.
class PageBytes {
public:
    PageBytes() = default;
    explicit PageBytes(size_t size); // throws std::bad_alloc
    ~PageBytes();
    PageBytes(PageBytes&& other) noexcept;
    PageBytes& operator=(PageBytes&& other) noexcept;
    PageBytes(const PageBytes&) = delete;
    PageBytes& operator=(const PageBytes&) = delete;

    uint8_t* data() const { return data_; }
    size_t size() const { return size_; }
    bool empty() const { return data_ == nullptr; }

private:
    uint8_t* data_ = nullptr;
    size_t size_ = 0;
};

// Record starts in ascending order, as arithmetic progressions: records of
// one length one after another make a single entry.
struct progression_t {
    uint32_t first;
    uint32_t stride;
    uint32_t count;
    uint32_t last() const { return first + stride * (count - 1); }
};

// A run of positions holding data: [start, start + length).
struct run_t {
    uint32_t start;
    uint32_t length;
};

class RegionWindow {
public:
    // A window of the given number of positions, all empty.
    explicit RegionWindow(size_t positions);

    // The window's bytes; positions that hold no data have any value.
    uint8_t* bytes() { return bytes_.data(); }
    const uint8_t* bytes() const { return bytes_.data(); }

    // Takes the byte storage away (for keeping as it is) and gives the
    // window fresh storage; the window is then empty.
    PageBytes takeBytes();

    // Empties the window; costs only what was used since the last time.
    void clear();
    bool empty() const { return low_ > high_ && appendStart_ == appendEnd_ && prependStart_ == prependEnd_; }

    bool isStart(size_t position) const { return (starts_[position / 64] >> (position % 64) & 1) != 0; }
    void markStart(size_t position);

    // True when any position in [position, position + length) holds data.
    bool holdsData(size_t position, size_t length);

    // Places bytes at positions that hold no data yet; positions that do
    // keep their value. Returns how many of them did.
    size_t placeNew(size_t position, const uint8_t* data, size_t length);

    // Places bytes over whatever positions hold (the later value wins).
    void overwrite(size_t position, const uint8_t* data, size_t length);

    // True when the bytes at [position, position + length), which all hold
    // data, differ from data.
    bool differs(size_t position, const uint8_t* data, size_t length) const
    {
        return std::memcmp(bytes_.data() + position, data, length) != 0;
    }

    // What placeRecord() did.
    static constexpr size_t REPEATED_START = static_cast<size_t>(-1);

    // Places a record that starts at position: REPEATED_START, with nothing
    // placed, when a record started there before; otherwise marks the start,
    // places the bytes as placeNew() does and returns its count.
    size_t placeRecord(size_t position, const uint8_t* data, size_t length)
    {
        if (position == appendEnd_ && position == dataEnd_) {
            // Records one after another: nothing lies at or beyond position,
            // so the record is only copied; the run's bits are set later.
            starts_[position / 64] |= uint64_t(1) << (position % 64);
            copyBytes(bytes_.data() + position, data, length);
            appendEnd_ = dataEnd_ = position + length;
            dataStart_ = position < dataStart_ ? position : dataStart_;
            return 0;
        }
        if (position + length == dataStart_ && dataStart_ < dataEnd_) {
            // Records one before another (a file written backwards): nothing
            // lies below the record, so it is only copied; the run's bits are
            // set later. (A pending prepend run always starts at dataStart_;
            // an empty window has no data to go before, and dataEnd_ must
            // cover what it places.)
            starts_[position / 64] |= uint64_t(1) << (position % 64);
            copyBytes(bytes_.data() + position, data, length);
            if (prependStart_ == prependEnd_)
                prependEnd_ = dataStart_;
            prependStart_ = dataStart_ = position;
            return 0;
        }
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        if (length <= 56 && appendStart_ == appendEnd_ && prependStart_ == prependEnd_) {
            // A record elsewhere, of the usual size: its data bits lie in the
            // eight bytes of the bit map from the byte that holds its first
            // one, read and written at once.
            const size_t word = position / 64;
            const uint64_t bit = uint64_t(1) << (position % 64);
            if ((starts_[word] & bit) != 0)
                return REPEATED_START;
            uint8_t* const bits = reinterpret_cast<uint8_t*>(data_.data()) + position / 8;
            uint64_t held;
            std::memcpy(&held, bits, sizeof held);
            const uint64_t mask = ((uint64_t(1) << length) - 1) << (position % 8);
            if ((held & mask) == 0) {
                starts_[word] |= bit;
                held |= mask;
                std::memcpy(bits, &held, sizeof held);
                touch(word, (position + length - 1) / 64);
                copyBytes(bytes_.data() + position, data, length);
                dataStart_ = position < dataStart_ ? position : dataStart_;
                followWith(position + length);
                return 0;
            }
        }
#endif
        return placeRecordElsewhere(position, data, length);
    }

    // The runs of positions that hold data, in ascending order.
    std::vector<run_t> runs();

    // The highest position below before where a record started; before
    // itself when there is none.
    size_t lastStartBefore(size_t before) const;

    // Record starts as progressions, and back. Records of one length one
    // after another, the usual file, cost a few operations per 64 positions.
    std::vector<progression_t> starts();
    void markStarts(const std::vector<progression_t>& progressions);

private:
    void touch(size_t firstWord, size_t lastWord)
    {
        low_ = firstWord < low_ ? firstWord : low_;
        high_ = lastWord > high_ ? lastWord : high_;
    }

    // placeRecord() for any other record: over 56 bytes, after an append or
    // prepend run whose bits are not set yet, overlapping others, or on a
    // big-endian machine.
    size_t placeRecordElsewhere(size_t position, const uint8_t* data, size_t length);

    // Copies a record's bytes; the usual record sizes as fixed-size copies.
    static void copyBytes(uint8_t* to, const uint8_t* from, size_t length)
    {
        if (length == 16)
            std::memcpy(to, from, 16);
        else if (length == 32)
            std::memcpy(to, from, 32);
        else
            std::memcpy(to, from, length);
    }

    // Sets the bits of the append and prepend runs.
    void settle()
    {
        if (appendStart_ != appendEnd_ || prependStart_ != prependEnd_)
            settleRuns();
    }
    void settleRuns();

    // After a record that ends at end: when nothing lies beyond it, the
    // records that follow it directly are appended.
    void followWith(size_t end)
    {
        if (end < dataEnd_)
            return;
        dataEnd_ = end;
        appendStart_ = appendEnd_ = end;
    }

    size_t positions_;
    PageBytes bytes_;
    std::vector<uint64_t> data_;   // a bit per position holding data, and a spare zero word
    std::vector<uint64_t> starts_; // a bit per position where a record started
    size_t low_;                   // words that may be non-zero: [low_, high_]
    size_t high_;
    size_t dataEnd_ = 0;     // one past the highest position holding data
    size_t dataStart_;       // the lowest position holding data (positions_ for none)
    size_t appendStart_ = 0; // data placed at the end whose bits are not set yet:
    size_t appendEnd_ = 0;   // [appendStart_, appendEnd_)
    size_t prependStart_ = 0; // and at the start: [prependStart_, prependEnd_)
    size_t prependEnd_ = 0;
};

// Windows open over a few regions at a time; the other regions seen are
// kept closed, in region order, each as a Closed value that knows how to
// take a window's content and how to give it back, keeping what it needs in
// a Store that all share:
//   void close(uint32_t region, RegionWindow& window, Store& store);
//   uint64_t reopen(RegionWindow& window, Store& store); // bytes given back
// Records that go back and forth between a few regions find them open; the
// window used least recently is closed when another region needs one.
template <typename Closed, typename Store> class RegionWindows {
public:
    RegionWindows(size_t positions, Store& store) : positions_(positions), store_(store) {}

    // The window of the region opened last.
    RegionWindow& window() { return *currentWindow_; }
    bool isOpen(uint32_t region) const { return currentRegion_ == region; }

    // Makes region the current one, reopening it if it was closed. False
    // when reopening regions has cost more than the data read so far plus
    // an allowance: records that keep jumping between many regions.
    bool open(uint32_t region, uint64_t dataBytes)
    {
        if (isOpen(region))
            return true;
        ++clock_;
        for (slot_t& slot : slots_)
            if (slot.region == region) {
                makeCurrent(slot);
                return true;
            }
        slot_t& slot = freeSlot();
        slot.region = region;
        makeCurrent(slot);
        const auto found = closed_.find(region);
        if (found == closed_.end())
            return true;
        // Each reopening counts its bytes and, for the bit maps, a fixed amount.
        reopenCost_ += REOPEN_COST + found->second.reopen(*slot.window, store_);
        closed_.erase(found);
        return reopenCost_ <= dataBytes + REOPEN_ALLOWANCE;
    }

    // Closes every open window.
    void close()
    {
        for (slot_t& slot : slots_)
            closeSlot(slot);
    }

    // The closed regions, in region order.
    std::map<uint32_t, Closed>& closed() { return closed_; }

private:
    static constexpr size_t SLOTS = 4;
    static constexpr uint32_t NO_REGION = static_cast<uint32_t>(-1);
    static constexpr uint64_t REOPEN_ALLOWANCE = 1u << 20;
    static constexpr uint64_t REOPEN_COST = 4096;

    struct slot_t {
        std::unique_ptr<RegionWindow> window;
        uint32_t region;
        uint64_t lastUse;
    };

    void makeCurrent(slot_t& slot)
    {
        slot.lastUse = clock_;
        currentWindow_ = slot.window.get();
        currentRegion_ = slot.region;
    }

    void closeSlot(slot_t& slot)
    {
        if (slot.region == NO_REGION)
            return;
        if (!slot.window->empty())
            closed_[slot.region].close(slot.region, *slot.window, store_);
        slot.window->clear();
        if (currentRegion_ == slot.region)
            currentRegion_ = NO_REGION;
        slot.region = NO_REGION;
    }

    // A slot with no region open: a new one while there are fewer than
    // SLOTS, else the one used least recently, closed.
    slot_t& freeSlot()
    {
        if (slots_.size() < SLOTS) {
            slots_.push_back(slot_t{std::make_unique<RegionWindow>(positions_), NO_REGION, 0});
            return slots_.back();
        }
        slot_t* oldest = &slots_[0];
        for (slot_t& slot : slots_)
            if (slot.lastUse < oldest->lastUse)
                oldest = &slot;
        closeSlot(*oldest);
        return *oldest;
    }

    size_t positions_;
    Store& store_;
    std::vector<slot_t> slots_;
    RegionWindow* currentWindow_ = nullptr;
    uint32_t currentRegion_ = NO_REGION;
    uint64_t clock_ = 0;
    std::map<uint32_t, Closed> closed_;
    uint64_t reopenCost_ = 0;
};

} // namespace hexblocks::detail

#endif // HEXBLOCKS_REGION_WINDOW_H
