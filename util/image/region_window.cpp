#include "region_window.h"

#include <algorithm>
#include <new>
#include <utility>

#include <sys/mman.h>
#include <unistd.h>

namespace hexblocks::detail {

// ---------------------------------------------------------------------------
// PageBytes

PageBytes::PageBytes(size_t size) : size_(size)
{
    if (size == 0)
        return;
    // The pages are about to be written: mapping them all at once costs less
    // than taking a fault for each.
    void* pages = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (pages == MAP_FAILED)
        throw std::bad_alloc();
    data_ = static_cast<uint8_t*>(pages);
}

PageBytes::~PageBytes()
{
    if (data_ != nullptr)
        munmap(data_, size_);
}

PageBytes::PageBytes(PageBytes&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0))
{
}

PageBytes& PageBytes::operator=(PageBytes&& other) noexcept
{
    if (this != &other) {
        PageBytes old(std::move(*this));
        data_ = std::exchange(other.data_, nullptr);
        size_ = std::exchange(other.size_, 0);
    }
    return *this;
}

// ---------------------------------------------------------------------------
// RegionWindow

namespace {

const size_t NO_WORD = static_cast<size_t>(-1);

// Calls fn(word, mask) for the words covering [position, position + length).
template <typename Fn> void forEachWord(size_t position, size_t length, Fn fn)
{
    const size_t end = position + length;
    while (position < end) {
        const size_t bit = position % 64;
        const size_t take = std::min<size_t>(64 - bit, end - position);
        const uint64_t mask = (take == 64 ? ~uint64_t(0) : (uint64_t(1) << take) - 1) << bit;
        fn(position / 64, mask);
        position += take;
    }
}

// The first position at or after from whose bit equals wanted, looking no
// further than the word lastWord; NO_WORD when there is none.
size_t findBit(const std::vector<uint64_t>& words, size_t from, size_t lastWord, bool wanted)
{
    size_t w = from / 64;
    if (w > lastWord)
        return NO_WORD;
    uint64_t word = (wanted ? words[w] : ~words[w]) & (~uint64_t(0) << (from % 64));
    while (word == 0) {
        if (++w > lastWord)
            return NO_WORD;
        word = wanted ? words[w] : ~words[w];
    }
    return w * 64 + static_cast<size_t>(__builtin_ctzll(word));
}

} // namespace

RegionWindow::RegionWindow(size_t positions)
    : positions_(positions), bytes_(positions), data_((positions + 63) / 64 + 1), starts_(data_.size()),
      low_(data_.size()), high_(0), dataStart_(positions)
{
}

PageBytes RegionWindow::takeBytes()
{
    PageBytes taken(positions_);
    std::swap(taken, bytes_);
    clear();
    return taken;
}

void RegionWindow::settleRuns()
{
    const auto settleRun = [this](size_t& start, size_t end) {
        if (start == end)
            return;
        touch(start / 64, (end - 1) / 64);
        forEachWord(start, end - start, [&](size_t w, uint64_t mask) { data_[w] |= mask; });
        start = end;
    };
    settleRun(appendStart_, appendEnd_);
    settleRun(prependStart_, prependEnd_);
}

void RegionWindow::clear()
{
    settle();
    dataEnd_ = appendStart_ = appendEnd_ = prependStart_ = prependEnd_ = 0;
    dataStart_ = positions_;
    if (low_ <= high_) {
        std::fill(data_.begin() + static_cast<long>(low_), data_.begin() + static_cast<long>(high_) + 1, 0);
        std::fill(starts_.begin() + static_cast<long>(low_), starts_.begin() + static_cast<long>(high_) + 1, 0);
    }
    low_ = data_.size();
    high_ = 0;
}

void RegionWindow::markStart(size_t position)
{
    starts_[position / 64] |= uint64_t(1) << (position % 64);
    touch(position / 64, position / 64);
}

bool RegionWindow::holdsData(size_t position, size_t length)
{
    settle();
    uint64_t any = 0;
    forEachWord(position, length, [&](size_t w, uint64_t mask) { any |= data_[w] & mask; });
    return any != 0;
}

size_t RegionWindow::placeNew(size_t position, const uint8_t* data, size_t length)
{
    if (length == 0)
        return 0;
    dataEnd_ = std::max(dataEnd_, position + length);
    dataStart_ = std::min(dataStart_, position);
    touch(position / 64, (position + length - 1) / 64);
    if (!holdsData(position, length)) { // sets the append run's bits first
        std::memcpy(bytes_.data() + position, data, length);
        forEachWord(position, length, [&](size_t w, uint64_t mask) { data_[w] |= mask; });
        return 0;
    }
    size_t repeated = 0;
    for (size_t i = 0; i < length; ++i) {
        uint64_t& word = data_[(position + i) / 64];
        const uint64_t bit = uint64_t(1) << ((position + i) % 64);
        if ((word & bit) != 0) {
            ++repeated;
            continue;
        }
        word |= bit;
        bytes_.data()[position + i] = data[i];
    }
    return repeated;
}

void RegionWindow::overwrite(size_t position, const uint8_t* data, size_t length)
{
    placeNew(position, data, length); // marks the positions as holding data
    std::memcpy(bytes_.data() + position, data, length);
}

size_t RegionWindow::placeRecordElsewhere(size_t position, const uint8_t* data, size_t length)
{
    const size_t word = position / 64;
    const uint64_t bit = uint64_t(1) << (position % 64);
    if ((starts_[word] & bit) != 0)
        return REPEATED_START;
    starts_[word] |= bit; // placeNew() marks the word as used
    const size_t repeated = placeNew(position, data, length);
    followWith(position + length);
    return repeated;
}

std::vector<run_t> RegionWindow::runs()
{
    settle();
    std::vector<run_t> found;
    if (empty())
        return found;
    // No bit is set beyond high_ (nor at or beyond positions_), and the bit
    // map has a word more than the positions need: every run ends by then.
    for (size_t position = low_ * 64;;) {
        const size_t start = findBit(data_, position, high_, true);
        if (start == NO_WORD)
            return found;
        const size_t stop = findBit(data_, start, high_ + 1, false);
        found.push_back(run_t{static_cast<uint32_t>(start), static_cast<uint32_t>(stop - start)});
        position = stop;
    }
}

size_t RegionWindow::lastStartBefore(size_t before) const
{
    for (size_t position = before; position > 0;) {
        --position;
        const uint64_t word = starts_[position / 64] & (~uint64_t(0) >> (63 - position % 64));
        if (word != 0)
            return position / 64 * 64 + 63 - static_cast<size_t>(__builtin_clzll(word));
        position -= position % 64; // the rest of this word holds no start
    }
    return before;
}

namespace {

// The bits of a progression with stride (a divisor of 64) whose first bit in
// a word is at offset.
uint64_t periodicBits(uint32_t offset, uint32_t stride)
{
    uint64_t bits = 0;
    for (uint32_t b = offset; b < 64; b += stride)
        bits |= uint64_t(1) << b;
    return bits;
}

} // namespace

std::vector<progression_t> RegionWindow::starts()
{
    settle();
    std::vector<progression_t> found;
    if (empty())
        return found;
    uint64_t pattern = 0; // what the next word holds if the last progression goes on through it
    for (size_t w = low_; w <= high_; ++w) {
        const uint64_t word = starts_[w];
        if (pattern != 0 && word == pattern) {
            found.back().count += static_cast<uint32_t>(64 / found.back().stride);
            continue;
        }
        for (uint64_t rest = word; rest != 0; rest &= rest - 1) {
            const uint32_t position = static_cast<uint32_t>(w * 64 + static_cast<size_t>(__builtin_ctzll(rest)));
            if (!found.empty()) {
                progression_t& p = found.back();
                if (p.count == 1) {
                    p.stride = position - p.first;
                    p.count = 2;
                    continue;
                }
                if (position - p.last() == p.stride) {
                    ++p.count;
                    continue;
                }
            }
            found.push_back(progression_t{position, 0, 1});
        }
        pattern = 0;
        if (!found.empty() && found.back().count > 1 && found.back().stride <= 64 && 64 % found.back().stride == 0) {
            const progression_t& p = found.back();
            const uint64_t next = p.last() + uint64_t(p.stride);
            if (next / 64 == w + 1)
                pattern = periodicBits(static_cast<uint32_t>(next % 64), p.stride);
        }
    }
    return found;
}

void RegionWindow::markStarts(const std::vector<progression_t>& progressions)
{
    for (const progression_t& p : progressions)
        for (uint32_t i = 0, position = p.first; i < p.count; ++i, position += p.stride)
            markStart(position);
}

} // namespace hexblocks::detail
