// What every writer of a text or block format uses: a buffer that hands
// its bytes to a sink in large pieces (on a thread of its own while the
// next piece is formatted), hex digits, and the pieces of a segment.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_OUTPUT_BUFFER_H
#define HEXBLOCKS_OUTPUT_BUFFER_H

#include "hex_decoder.h"
#include "image_writer.h"
#include "result.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#ifdef __SSE2__
#include <emmintrin.h>
#endif
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <vector>

namespace hexblocks::detail {

// Each byte as two upper-case hex digits.
struct hexpairs_t {
    char digits[256][2];
    constexpr hexpairs_t() : digits()
    {
        const char DIGITS[] = "0123456789ABCDEF";
        for (int b = 0; b < 256; ++b) {
            digits[b][0] = DIGITS[b >> 4];
            digits[b][1] = DIGITS[b & 0xF];
        }
    }
};
inline constexpr hexpairs_t HEX_PAIRS{};

// Formats into a buffer of its own and hands it to the sink when full. Full
// buffers go to a thread of its own, which puts them into the sink while the
// next one is formatted: writing a large file costs the system about as much
// as formatting it, and the two then overlap. An output that fits in one
// buffer never starts the thread; where a thread cannot be started, buffers
// are put from the caller's thread.
class OutputBuffer {
public:
    // expected is at least the size of the whole output, when it is known
    // to be less than a buffer: a small output then gets a small buffer.
    OutputBuffer(ByteSink& sink, uint64_t expected)
        : sink_(sink), size_(static_cast<size_t>(std::min<uint64_t>(std::max<uint64_t>(expected, 4096), CAPACITY))),
          buffer_(new char[size_])
    {
    }

    OutputBuffer(const OutputBuffer&) = delete;
    OutputBuffer& operator=(const OutputBuffer&) = delete;

    ~OutputBuffer() { stopWriter(); }

    // Room for at least size bytes at the returned position.
    char* reserve(size_t size)
    {
        if (used_ + size > size_)
            flush();
        if (size > size_)
            grow(size);
        return buffer_.get() + used_;
    }

    // The bytes up to end, from the last reserve(), are written.
    void commit(const char* end) { used_ = static_cast<size_t>(end - buffer_.get()); }

    void put(const char* bytes, size_t size)
    {
        while (size > 0) {
            const size_t room = size_ - used_;
            if (room == 0) {
                flush();
                continue;
            }
            const size_t take = std::min(room, size);
            std::memcpy(buffer_.get() + used_, bytes, take);
            used_ += take;
            bytes += take;
            size -= take;
        }
    }

    result_t finish()
    {
        if (writer_.joinable()) {
            flush();
            stopWriter();
        } else if (used_ > 0 && ok_) {
            ok_ = sink_.put(buffer_.get(), used_);
        }
        used_ = 0;
        return ok_ ? result_t() : failure(status_t::CANNOT_WRITE, sink_.failure());
    }

private:
    static constexpr size_t CAPACITY = 1024 * 1024;

    // Makes the buffers hold at least size bytes (the buffer is empty).
    void grow(size_t size)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return pendingSize_ == 0; });
        buffer_.reset(new char[size]);
        if (spare_)
            spare_.reset(new char[size]);
        size_ = size;
    }

    // Hands the buffer to the writer thread, once it has put the previous one.
    void flush()
    {
        if (used_ == 0)
            return;
        if (!writer_.joinable() && !startWriter()) {
            if (ok_)
                ok_ = sink_.put(buffer_.get(), used_);
            used_ = 0;
            return;
        }
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return pendingSize_ == 0; });
        buffer_.swap(spare_);
        pendingSize_ = used_;
        used_ = 0;
        changed_.notify_all();
    }

    bool startWriter()
    {
        spare_.reset(new char[size_]);
        try {
            writer_ = std::thread([this] { writeBuffers(); });
        } catch (const std::system_error&) {
            return false;
        }
        return true;
    }

    // The writer thread: puts each buffer handed to it (spare_) into the sink.
    void writeBuffers()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            changed_.wait(lock, [this] { return pendingSize_ > 0 || stopping_; });
            if (pendingSize_ == 0)
                return;
            const size_t size = pendingSize_;
            const bool ok = ok_;
            lock.unlock();
            const bool put = ok && sink_.put(spare_.get(), size);
            lock.lock();
            ok_ = ok_ && put;
            pendingSize_ = 0;
            changed_.notify_all();
        }
    }

    void stopWriter()
    {
        if (!writer_.joinable())
            return;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            changed_.wait(lock, [this] { return pendingSize_ == 0; });
            stopping_ = true;
            changed_.notify_all();
        }
        writer_.join();
    }

    // The buffers are not zeroed: each byte is written before it is put.
    ByteSink& sink_;
    size_t size_;                    // of each buffer
    std::unique_ptr<char[]> buffer_; // being formatted
    std::unique_ptr<char[]> spare_;  // being written by the writer thread
    size_t used_ = 0;
    std::thread writer_;
    std::mutex mutex_;
    std::condition_variable changed_;
    size_t pendingSize_ = 0; // bytes of spare_ to write; 0 when the writer is idle
    bool stopping_ = false;
    bool ok_ = true; // no put has failed
};

// Writes count items of at most itemMax bytes each, put(p, i) writing item
// i at p and returning its end: many items to one reservation of out.
template <typename Put> void putInBatches(OutputBuffer& out, size_t count, size_t itemMax, Put&& put)
{
    const size_t BATCH = 256;
    for (size_t done = 0; done < count;) {
        const size_t take = std::min(count - done, BATCH);
        char* p = out.reserve(take * itemMax);
        for (size_t i = done; i < done + take; ++i)
            p = put(p, i);
        out.commit(p);
        done += take;
    }
}

inline char* putByte(char* p, uint8_t byte)
{
    p[0] = HEX_PAIRS.digits[byte][0];
    p[1] = HEX_PAIRS.digits[byte][1];
    return p + 2;
}

// Four bytes as eight upper-case hex digits, computed in one 64-bit word:
// each byte's nibbles are spread to a byte each, then turned into digits
// ('0' plus the nibble, plus 7 more from 10 up) without a carry between
// them. About half the work of two table look-ups per byte.
inline char* putFourBytes(char* p, const uint8_t* bytes)
{
    const uint64_t w = static_cast<uint64_t>(bytes[0]) | static_cast<uint64_t>(bytes[1]) << 16 |
                       static_cast<uint64_t>(bytes[2]) << 32 | static_cast<uint64_t>(bytes[3]) << 48;
    const uint64_t NIBBLES = 0x000F000F000F000Full;
    // In memory order: the high nibble of each byte, then the low one.
    const uint64_t n = (w >> 4 & NIBBLES) | (w & NIBBLES) << 8;
    const uint64_t letters = (n + 0x0606060606060606ull) >> 4 & 0x0101010101010101ull;
    uint64_t digits = n + 0x3030303030303030ull + letters * 7;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    digits = __builtin_bswap64(digits);
#endif
    std::memcpy(p, &digits, 8);
    return p + 8;
}

// A word of W bytes (1, 2, 4 or 8) as hex digits, first byte first.
template <size_t W> HEXBLOCKS_ALWAYS_INLINE char* putWordOf(char* p, const uint8_t* bytes)
{
    if constexpr (W >= 4) {
        for (size_t k = 0; k < W; k += 4)
            p = putFourBytes(p, bytes + k);
        return p;
    } else {
        for (size_t k = 0; k < W; ++k)
            std::memcpy(p + 2 * k, HEX_PAIRS.digits[bytes[k]], 2);
        return p + 2 * W;
    }
}

// The low 32 bits of value as eight hex digits (an address in a file).
inline char* putEightDigits(char* p, uint64_t value)
{
    const uint8_t bytes[4] = {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
                              static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
    return putFourBytes(p, bytes);
}

// Calls put(std::integral_constant<size_t, W>()) for a word of wordBytes
// bytes (1, 2, 4, or else 8): the writers' loops, made once for each width.
template <typename Put> HEXBLOCKS_ALWAYS_INLINE auto withWordBytes(size_t wordBytes, Put&& put)
{
    switch (wordBytes) {
    case 1:
        return put(std::integral_constant<size_t, 1>());
    case 2:
        return put(std::integral_constant<size_t, 2>());
    case 4:
        return put(std::integral_constant<size_t, 4>());
    default:
        return put(std::integral_constant<size_t, 8>());
    }
}

#ifdef __SSE2__
// The 32 hex digits of sixteen bytes, with SSE2 (always there on x86-64).
inline void putSixteenBytesDigits(char* p, __m128i x)
{
    const __m128i low4 = _mm_set1_epi8(0x0F);
    const __m128i high = _mm_and_si128(_mm_srli_epi16(x, 4), low4);
    const __m128i low = _mm_and_si128(x, low4);
    const __m128i nine = _mm_set1_epi8(9);
    const __m128i zero = _mm_set1_epi8('0');
    const __m128i seven = _mm_set1_epi8(7);
    // The high nibble of each byte, then the low one.
    __m128i first = _mm_unpacklo_epi8(high, low);
    __m128i second = _mm_unpackhi_epi8(high, low);
    first = _mm_add_epi8(_mm_add_epi8(first, zero), _mm_and_si128(_mm_cmpgt_epi8(first, nine), seven));
    second = _mm_add_epi8(_mm_add_epi8(second, zero), _mm_and_si128(_mm_cmpgt_epi8(second, nine), seven));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), first);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p + 16), second);
}

// Sixteen bytes as 32 hex digits; adds the bytes to sum.
inline char* putSixteenBytes(char* p, const uint8_t* bytes, unsigned& sum)
{
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    putSixteenBytesDigits(p, x);
    const __m128i sums = _mm_sad_epu8(x, _mm_setzero_si128());
    sum += static_cast<unsigned>(_mm_cvtsi128_si32(sums) + _mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
    return p + 32;
}
#endif

// The 32 hex digits of sixteen bytes.
inline void putSixteenDigitPairs(char* p, const uint8_t* bytes)
{
#ifdef __SSE2__
    putSixteenBytesDigits(p, _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)));
#else
    for (size_t i = 0; i < 16; i += 4)
        p = putFourBytes(p, bytes + i);
#endif
}

// Each byte as two upper-case hex digits and a space, in four characters
// of which the writers keep three: one copy a byte.
struct hexspaced_t {
    char text[256][4];
    constexpr hexspaced_t() : text()
    {
        const char DIGITS[] = "0123456789ABCDEF";
        for (int b = 0; b < 256; ++b) {
            text[b][0] = DIGITS[b >> 4];
            text[b][1] = DIGITS[b & 0xF];
            text[b][2] = ' ';
            text[b][3] = ' ';
        }
    }
};
inline constexpr hexspaced_t HEX_SPACED{};

// Words of W bytes (2, 4 or 8) as hex digits, each followed by separator
// (of 1 to 4 characters, written as 4): sixteen bytes' digits at once, then
// laid out word by word. Returns the end of the last word's separator.
template <size_t W> HEXBLOCKS_ALWAYS_INLINE char* putSixteenBytesOfWords(char* p, const uint8_t* bytes, const char* separator, size_t separatorLength)
{
    char digits[32];
    putSixteenDigitPairs(digits, bytes);
#pragma GCC unroll 8
    for (size_t k = 0; k < 16 / W; ++k) {
        std::memcpy(p, digits + 2 * W * k, 2 * W);
        std::memcpy(p + 2 * W, separator, 4);
        p += 2 * W + separatorLength;
    }
    return p;
}

// Bytes as hex digits, a space before each but the first unless
// spaceFirst; writes one character past the end it returns.
HEXBLOCKS_ALWAYS_INLINE char* putSpacedBytes(char* p, const uint8_t* bytes, size_t count, bool spaceFirst)
{
    if (count == 0)
        return p;
    // A space before each byte is a space after each but the last;
    // sixteen at a time, at fixed offsets.
    *p = ' ';
    p += spaceFirst ? 1 : 0;
    size_t i = 0;
    for (; i + 16 <= count; i += 16, p += 48) {
#pragma GCC unroll 16
        for (size_t k = 0; k < 16; ++k)
            std::memcpy(p + 3 * k, HEX_SPACED.text[bytes[i + k]], 4);
    }
    for (; i < count; ++i, p += 3)
        std::memcpy(p, HEX_SPACED.text[bytes[i]], 4);
    return p - 1;
}

// putSpacedWords() for words of W bytes, W of 1, 2, 4 or 8.
template <size_t W> HEXBLOCKS_ALWAYS_INLINE char* putSpacedWordsOf(char* p, const uint8_t* bytes, size_t count, bool spaceFirst)
{
    if constexpr (W == 1)
        return putSpacedBytes(p, bytes, count, spaceFirst);
    size_t i = 0;
    if (count >= 16 / W) {
        // A space before each word is a space after each but the last.
        *p = ' ';
        p += spaceFirst ? 1 : 0;
        for (; i + 16 / W <= count; i += 16 / W, bytes += 16)
            p = putSixteenBytesOfWords<W>(p, bytes, "    ", 1);
        --p;
        spaceFirst = true;
    }
    for (; i < count; ++i, bytes += W) {
        *p = ' ';
        p += i > 0 || spaceFirst ? 1 : 0;
        p = putWordOf<W>(p, bytes);
    }
    return p;
}

// count words of wordBytes bytes as hex digits, a space before each but
// the first unless spaceFirst. Writes up to four characters past the end it
// returns.
inline char* putSpacedWords(char* p, const uint8_t* bytes, size_t count, size_t wordBytes, bool spaceFirst)
{
    if (count == 0)
        return p;
    return withWordBytes(wordBytes, [&](auto w) { return putSpacedWordsOf<w>(p, bytes, count, spaceFirst); });
}

// count words of W bytes (1, 2, 4 or 8), step bytes apart (0 for one word
// again and again), each followed by separator (of 1 to 4 characters,
// written as 4). Writes up to four characters past the end it returns.
template <size_t W>
char* putWordsWithSeparatorOf(char* p, const uint8_t* bytes, size_t count, size_t step, const char* separator,
                              size_t separatorLength)
{
    size_t i = 0;
    if constexpr (W > 1) {
        if (step == W)
            for (; i + 16 / W <= count; i += 16 / W, bytes += 16)
                p = putSixteenBytesOfWords<W>(p, bytes, separator, separatorLength);
    }
    for (; i < count; ++i, bytes += step) {
        p = putWordOf<W>(p, bytes);
        std::memcpy(p, separator, 4);
        p += separatorLength;
    }
    return p;
}

inline char* putWordsWithSeparator(char* p, const uint8_t* bytes, size_t count, size_t wordBytes, size_t step,
                                   const char* separator, size_t separatorLength)
{
    return withWordBytes(wordBytes, [&](auto w) {
        return putWordsWithSeparatorOf<w>(p, bytes, count, step, separator, separatorLength);
    });
}


// length bytes as hex digits; returns the end of the digits and adds the
// bytes to sum.
inline char* putBytes(char* p, const uint8_t* data, size_t length, unsigned& sum)
{
    size_t i = 0;
#ifdef __SSE2__
    for (; i + 16 <= length; i += 16)
        p = putSixteenBytes(p, data + i, sum);
#endif
    for (; i + 4 <= length; i += 4) {
        p = putFourBytes(p, data + i);
        sum += data[i] + data[i + 1] + data[i + 2] + data[i + 3];
    }
    for (; i < length; ++i) {
        sum += data[i];
        p = putByte(p, data[i]);
    }
    return p;
}

inline char* putLineEnd(char* p, bool crlf)
{
    if (crlf)
        *p++ = '\r';
    *p++ = '\n';
    return p;
}

// An Intel HEX record (or an INHX16 one, whose count is in words): ':',
// count, offset, type, the length bytes of data and the checksum over all
// of them, and the line ending.
inline char* putHexRecordCounted(char* p, uint8_t count, uint8_t type, uint16_t offset, const uint8_t* data,
                                 size_t length, bool crlf)
{
    unsigned sum = static_cast<unsigned>(count) + (offset >> 8) + (offset & 0xFF) + type;
    *p++ = ':';
    p = putByte(p, count);
    p = putByte(p, static_cast<uint8_t>(offset >> 8));
    p = putByte(p, static_cast<uint8_t>(offset));
    p = putByte(p, type);
    p = putBytes(p, data, length, sum);
    p = putByte(p, static_cast<uint8_t>(-sum));
    return putLineEnd(p, crlf);
}

// An Intel HEX data record of sixteen bytes whose count field is COUNT (16,
// or 8 in INHX16's words), with the bytes of each pair swapped when
// SWAPPED (INHX16's words are little-endian in the text).
template <uint8_t COUNT, bool SWAPPED>
HEXBLOCKS_ALWAYS_INLINE char* putSixteenByteRecord(char* p, uint16_t offset, const uint8_t* bytes, bool crlf)
{
    unsigned sum = COUNT + (offset >> 8) + (offset & 0xFFu);
    *p = ':';
    p = putByte(p + 1, COUNT);
    p = putByte(p, static_cast<uint8_t>(offset >> 8));
    p = putByte(p, static_cast<uint8_t>(offset));
    p = putByte(p, 0);
#ifdef __SSE2__
    __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    const __m128i sums = _mm_sad_epu8(x, _mm_setzero_si128());
    sum += static_cast<unsigned>(_mm_cvtsi128_si32(sums) + _mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
    if constexpr (SWAPPED)
        x = _mm_or_si128(_mm_slli_epi16(x, 8), _mm_srli_epi16(x, 8));
    putSixteenBytesDigits(p, x);
    p += 32;
#else
    uint8_t ordered[16];
    for (size_t i = 0; i < 16; ++i)
        ordered[i] = bytes[SWAPPED ? i ^ 1 : i];
    p = putBytes(p, ordered, 16, sum);
#endif
    p = putByte(p, static_cast<uint8_t>(-sum));
    return putLineEnd(p, crlf);
}

// records data records of sixteen bytes from bytes on, the first at offset
// and each COUNT further (so none may cross a 64 Ki-unit boundary), many
// to one reservation of out.
template <uint8_t COUNT, bool SWAPPED>
void putSixteenByteRecords(OutputBuffer& out, uint16_t offset, const uint8_t* bytes, size_t records, bool crlf)
{
    const size_t RECORD_MAX = 1 + 2 * (5 + 16) + 2;
    putInBatches(out, records, RECORD_MAX, [&](char* p, size_t i) {
        return putSixteenByteRecord<COUNT, SWAPPED>(p, static_cast<uint16_t>(offset + COUNT * i), bytes + 16 * i, crlf);
    });
}

// The bytes the writers ask an input for at a time: large enough that
// asking costs nothing, small enough to stay in the cache.
inline constexpr size_t PIECE = 1 << 20;

inline bool isEmpty(const WriterInput& input)
{
    return input.segmentCount() == 0;
}

inline uint64_t highestOf(const WriterInput& input)
{
    const size_t last = input.segmentCount() - 1;
    return input.segmentAddress(last) + input.segmentSize(last) - 1;
}

inline uint64_t dataSizeOf(const WriterInput& input)
{
    uint64_t size = 0;
    for (size_t i = 0; i < input.segmentCount(); ++i)
        size += input.segmentSize(i);
    return size;
}

// Hands take(offset, bytes, size) a segment's bytes in pieces, in order:
// the piece at offset at is at most pieceMax bytes and never crosses an
// address that is a multiple of align (a power of 2; 1 for none). False when
// the input cannot give one.
template <typename Take>
bool forEachPiece(WriterInput& input, size_t segment, size_t pieceMax, uint64_t align, Take&& take)
{
    const uint64_t start = input.segmentAddress(segment);
    const uint64_t size = input.segmentSize(segment);
    for (uint64_t at = 0; at < size;) {
        const uint64_t limit = std::max((start + at + pieceMax) & ~(align - 1), start + at + 1) - start;
        const size_t piece = static_cast<size_t>(std::min<uint64_t>(limit, size) - at);
        const uint8_t* bytes = input.bytes(segment, at, piece);
        if (bytes == nullptr)
            return false;
        take(at, bytes, piece);
        at += piece;
    }
    return true;
}

// Hands emit(address, bytes, size, continues) the input's data in runs of
// whole units (unit a power of 2 up to 64 KiB): each run starts and ends on
// a multiple of unit, holds every unit that has data from its first to its
// last, and has fill in the bytes no segment gives. A run comes in pieces of
// at most 64 KiB; continues is true for every piece but a run's first.
// False when the input cannot give its bytes.
template <typename Emit> bool forEachUnitRun(WriterInput& input, uint64_t unit, uint8_t fill, Emit&& emit)
{
    const size_t CHUNK = 64 * 1024;
    std::vector<uint8_t> buffer(CHUNK);
    uint64_t base = 0;  // the address of buffer[0]
    size_t filled = 0;  // buffer[0, filled) holds what is to be emitted
    uint64_t end = 0;   // one past the last data byte placed
    bool open = false;  // a run is under way
    bool continues = false;
    const auto alignDown = [unit](uint64_t a) { return a & ~(unit - 1); };
    const auto alignUp = [unit](uint64_t a) { return (a + unit - 1) & ~(unit - 1); };
    // Only the bytes that no segment gives are filled.
    const auto fillTo = [&](size_t to) {
        if (to > filled)
            std::memset(buffer.data() + filled, fill, to - filled);
        filled = std::max(filled, to);
    };
    const auto emitChunk = [&](size_t size) {
        fillTo(size);
        emit(base, buffer.data(), size, continues);
        filled = 0;
    };
    for (size_t s = 0; s < input.segmentCount(); ++s) {
        const uint64_t start = input.segmentAddress(s);
        if (open && alignDown(start) > alignUp(end)) {
            emitChunk(static_cast<size_t>(alignUp(end) - base));
            open = false;
        }
        if (!open) {
            base = alignDown(start);
            open = true;
            continues = false;
        }
        const bool whole = forEachPiece(input, s, PIECE, 1, [&](uint64_t at, const uint8_t* bytes, size_t size) {
            uint64_t address = start + at;
            while (size > 0) {
                if (filled == 0 && address == base && size >= CHUNK) {
                    // A whole chunk of the segment: handed on as it is.
                    emit(base, bytes, CHUNK, continues);
                    continues = true;
                    base += CHUNK;
                    address += CHUNK;
                    bytes += CHUNK;
                    size -= CHUNK;
                    continue;
                }
                if (address - base >= CHUNK) {
                    emitChunk(CHUNK);
                    continues = true;
                    base += CHUNK;
                    continue;
                }
                const size_t offset = static_cast<size_t>(address - base);
                const size_t take = std::min(size, CHUNK - offset);
                fillTo(offset);
                std::memcpy(buffer.data() + offset, bytes, take);
                filled = offset + take;
                address += take;
                bytes += take;
                size -= take;
            }
        });
        if (!whole)
            return false;
        end = start + input.segmentSize(s);
    }
    if (open)
        emitChunk(static_cast<size_t>(alignUp(end) - base));
    return true;
}

// The number of units (a power of 2) that hold data, as forEachUnitRun()
// hands them on.
inline uint64_t unitsWithData(const WriterInput& input, uint64_t unit)
{
    uint64_t units = 0;
    uint64_t covered = 0; // one past the last unit counted, as an address
    for (size_t s = 0; s < input.segmentCount(); ++s) {
        const uint64_t first = std::max<uint64_t>(input.segmentAddress(s) & ~(unit - 1), covered);
        const uint64_t last = (input.segmentAddress(s) + input.segmentSize(s) + unit - 1) & ~(unit - 1);
        if (last > first)
            units += (last - first) / unit;
        covered = std::max(covered, last);
    }
    return units;
}

// Writes input to sink with a writer that formats into an output buffer;
// bound is at least the size of the output when it is small (see
// OutputBuffer).
inline result_t writeThrough(bool (*writer)(WriterInput&, const write_options_t&, OutputBuffer&), WriterInput& input,
                             const write_options_t& options, ByteSink& sink, uint64_t bound)
{
    OutputBuffer out(sink, bound);
    const bool whole = writer(input, options, out);
    const result_t written = out.finish();
    return whole ? written : failure(status_t::CANNOT_READ, input.failure());
}

} // namespace hexblocks::detail

#endif // HEXBLOCKS_OUTPUT_BUFFER_H
