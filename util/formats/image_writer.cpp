#include "image_writer.h"

#include "hex_format.h"

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#ifdef __SSE2__
#include <emmintrin.h>
#endif
#include <cstring>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace hexblocks::detail {

namespace {

using result_t = result_t;

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
constexpr hexpairs_t HEX_PAIRS{};

// Options that the image cannot be written with.
result_t badOptions(const std::string& reason)
{
    return failure(status_t::BAD_ARGUMENT, reason);
}

// Options whose addresses cannot hold the image's address.
result_t outOfReach(const std::string& reason, uint32_t address)
{
    return failureAt(status_t::OUT_OF_RANGE, reason, address);
}

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
        : sink_(sink), buffer_(static_cast<size_t>(std::min<uint64_t>(std::max<uint64_t>(expected, 4096), CAPACITY)))
    {
    }

    OutputBuffer(const OutputBuffer&) = delete;
    OutputBuffer& operator=(const OutputBuffer&) = delete;

    ~OutputBuffer() { stopWriter(); }

    // Room for at least size bytes at the returned position.
    char* reserve(size_t size)
    {
        if (used_ + size > buffer_.size())
            flush();
        if (size > buffer_.size())
            buffer_.resize(size);
        return buffer_.data() + used_;
    }

    // The bytes up to end, from the last reserve(), are written.
    void commit(const char* end) { used_ = static_cast<size_t>(end - buffer_.data()); }

    void put(const char* bytes, size_t size)
    {
        while (size > 0) {
            const size_t room = buffer_.size() - used_;
            if (room == 0) {
                flush();
                continue;
            }
            const size_t take = std::min(room, size);
            std::memcpy(buffer_.data() + used_, bytes, take);
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
            ok_ = sink_.put(buffer_.data(), used_);
        }
        used_ = 0;
        return ok_ ? result_t() : failure(status_t::CANNOT_WRITE, sink_.failure());
    }

private:
    static constexpr size_t CAPACITY = 1024 * 1024;

    // Hands the buffer to the writer thread, once it has put the previous one.
    void flush()
    {
        if (used_ == 0)
            return;
        if (!writer_.joinable() && !startWriter()) {
            if (ok_)
                ok_ = sink_.put(buffer_.data(), used_);
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
        spare_.resize(buffer_.size());
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
            const bool put = ok && sink_.put(spare_.data(), size);
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

    ByteSink& sink_;
    std::vector<char> buffer_; // being formatted
    std::vector<char> spare_;  // being written by the writer thread
    size_t used_ = 0;
    std::thread writer_;
    std::mutex mutex_;
    std::condition_variable changed_;
    size_t pendingSize_ = 0; // bytes of spare_ to write; 0 when the writer is idle
    bool stopping_ = false;
    bool ok_ = true; // no put has failed
};

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

#ifdef __SSE2__
// Sixteen bytes as 32 hex digits with SSE2 (always there on x86-64); adds
// the bytes to sum.
inline char* putSixteenBytes(char* p, const uint8_t* bytes, unsigned& sum)
{
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
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
    const __m128i sums = _mm_sad_epu8(x, _mm_setzero_si128());
    sum += static_cast<unsigned>(_mm_cvtsi128_si32(sums) + _mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
    return p + 32;
}
#endif

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

// --- Intel HEX ---------------------------------------------------------------

char* putHexRecord(char* p, uint8_t type, uint16_t offset, const uint8_t* data, size_t length, bool crlf)
{
    unsigned sum = static_cast<unsigned>(length) + (offset >> 8) + (offset & 0xFF) + type;
    *p++ = ':';
    p = putByte(p, static_cast<uint8_t>(length));
    p = putByte(p, static_cast<uint8_t>(offset >> 8));
    p = putByte(p, static_cast<uint8_t>(offset));
    p = putByte(p, type);
    p = putBytes(p, data, length, sum);
    p = putByte(p, static_cast<uint8_t>(-sum));
    return putLineEnd(p, crlf);
}

// The bytes the writers ask an input for at a time: large enough that
// asking costs nothing, small enough to stay in the cache.
const size_t PIECE = 1 << 20;

bool isEmpty(const WriterInput& input)
{
    return input.segmentCount() == 0;
}

uint64_t highestOf(const WriterInput& input)
{
    const size_t last = input.segmentCount() - 1;
    return input.segmentAddress(last) + input.segmentSize(last) - 1;
}

uint64_t dataSizeOf(const WriterInput& input)
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

bool writeIntelHex(WriterInput& input, const write_options_t& options, OutputBuffer& out)
{
    const bool segmented = options.addressing == addressing_t::SEGMENT;
    const size_t lineMax = 1 + 2 * (5 + 255) + 2;
    uint32_t upper = 0; // the upper 16 bits the last address record gave
    for (size_t s = 0; s < input.segmentCount(); ++s) {
        const uint64_t start = input.segmentAddress(s);
        // A piece ends on a 64 KiB boundary, where a record ends anyway.
        const bool whole = forEachPiece(input, s, PIECE, 0x10000, [&](uint64_t at, const uint8_t* bytes, size_t piece) {
            const uint64_t pieceStart = start + at;
            const uint64_t pieceEnd = pieceStart + piece;
            for (uint64_t address = pieceStart; address < pieceEnd;) {
                const uint32_t high = static_cast<uint32_t>(address >> 16);
                if (high != upper) {
                    // Segment addressing: a base of high * 0x1000 paragraphs.
                    const uint16_t value = static_cast<uint16_t>(segmented ? high << 12 : high);
                    const uint8_t base[2] = {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
                    out.commit(putHexRecord(out.reserve(lineMax), segmented ? 0x02 : 0x04, 0, base, 2, options.crlf));
                    upper = high;
                }
                // Up to the record size, and never across a 64 KiB boundary.
                const uint64_t boundary = (address | 0xFFFF) + 1;
                const size_t length =
                    static_cast<size_t>(std::min<uint64_t>({options.recordSize, pieceEnd - address, boundary - address}));
                out.commit(putHexRecord(out.reserve(lineMax), 0x00, static_cast<uint16_t>(address),
                                        bytes + (address - pieceStart), length, options.crlf));
                address += length;
            }
        });
        if (!whole)
            return false;
    }
    if (input.hasStartAddress()) {
        const start_address_t start = input.startAddress();
        const uint8_t value[4] = {static_cast<uint8_t>(start.value >> 24), static_cast<uint8_t>(start.value >> 16),
                                  static_cast<uint8_t>(start.value >> 8), static_cast<uint8_t>(start.value)};
        out.commit(putHexRecord(out.reserve(lineMax), start.type, 0, value, 4, options.crlf));
    }
    out.commit(putHexRecord(out.reserve(lineMax), 0x01, 0, nullptr, 0, options.crlf));
    return true;
}

// --- S-records -----------------------------------------------------------------

// The start address an S7 to S9 record carries: a linear address, CS * 16 + IP
// for a segment start address, 0 when there is none.
uint64_t srecordStart(const WriterInput& input)
{
    if (!input.hasStartAddress())
        return 0;
    const start_address_t start = input.startAddress();
    if (start.type == 3)
        return static_cast<uint64_t>(start.value >> 16) * 16 + (start.value & 0xFFFF);
    return start.value;
}

unsigned addressSizeFor(uint64_t address)
{
    return address <= 0xFFFF ? 2 : address <= 0xFFFFFF ? 3 : 4;
}

unsigned srecordAddressSize(const WriterInput& input, const write_options_t& options)
{
    if (options.addressSize != 0)
        return options.addressSize;
    return std::max(addressSizeFor(isEmpty(input) ? 0 : highestOf(input)), addressSizeFor(srecordStart(input)));
}

char* putSrecord(char* p, unsigned type, unsigned addressSize, uint32_t address, const uint8_t* data, size_t length,
                 bool crlf)
{
    const unsigned count = addressSize + static_cast<unsigned>(length) + 1;
    unsigned sum = count;
    *p++ = 'S';
    *p++ = static_cast<char>('0' + type);
    p = putByte(p, static_cast<uint8_t>(count));
    for (unsigned i = addressSize; i-- > 0;) {
        const uint8_t byte = static_cast<uint8_t>(address >> (8 * i));
        sum += byte;
        p = putByte(p, byte);
    }
    p = putBytes(p, data, length, sum);
    p = putByte(p, static_cast<uint8_t>(~sum));
    return putLineEnd(p, crlf);
}

bool writeSrecords(WriterInput& input, const write_options_t& options, OutputBuffer& out)
{
    const unsigned addressSize = srecordAddressSize(input, options);
    const unsigned dataType = addressSize - 1; // S1, S2, S3
    const size_t lineMax = 2 + 2 * 256 + 2;
    const std::string header = input.header();
    out.commit(putSrecord(out.reserve(lineMax), 0, 2, 0, reinterpret_cast<const uint8_t*>(header.data()), header.size(),
                          options.crlf));
    // Records are counted from the segment's start, so pieces hold whole ones.
    const size_t pieceMax = std::max<size_t>(1, PIECE / options.recordSize) * options.recordSize;
    uint64_t records = 0;
    for (size_t s = 0; s < input.segmentCount(); ++s) {
        const uint64_t address = input.segmentAddress(s);
        const bool whole = forEachPiece(input, s, pieceMax, 1, [&](uint64_t at, const uint8_t* bytes, size_t piece) {
            for (size_t done = 0; done < piece;) {
                const size_t length = std::min<size_t>(options.recordSize, piece - done);
                out.commit(putSrecord(out.reserve(lineMax), dataType, addressSize,
                                      static_cast<uint32_t>(address + at + done), bytes + done, length, options.crlf));
                done += length;
                ++records;
            }
        });
        if (!whole)
            return false;
    }
    if (records <= 0xFFFF)
        out.commit(putSrecord(out.reserve(lineMax), 5, 2, static_cast<uint32_t>(records), nullptr, 0, options.crlf));
    else if (records <= 0xFFFFFF)
        out.commit(putSrecord(out.reserve(lineMax), 6, 3, static_cast<uint32_t>(records), nullptr, 0, options.crlf));
    out.commit(putSrecord(out.reserve(lineMax), 11 - addressSize, addressSize, static_cast<uint32_t>(srecordStart(input)),
                          nullptr, 0, options.crlf));
    return true;
}

// --- Binary ----------------------------------------------------------------------

bool writeBinary(WriterInput& input, const write_options_t& options, OutputBuffer& out)
{
    if (isEmpty(input))
        return true;
    const uint64_t lowest = input.segmentAddress(0);
    std::vector<char> fill(static_cast<size_t>(std::min<uint64_t>(highestOf(input) - lowest + 1, 64 * 1024)),
                           static_cast<char>(options.fill));
    uint64_t next = lowest;
    for (size_t s = 0; s < input.segmentCount(); ++s) {
        const uint64_t address = input.segmentAddress(s);
        for (uint64_t gap = address - next; gap > 0;) {
            const size_t take = static_cast<size_t>(std::min<uint64_t>(gap, fill.size()));
            out.put(fill.data(), take);
            gap -= take;
        }
        const bool whole = forEachPiece(input, s, PIECE, 1, [&](uint64_t, const uint8_t* bytes, size_t piece) {
            out.put(reinterpret_cast<const char*>(bytes), piece);
        });
        if (!whole)
            return false;
        next = address + input.segmentSize(s);
    }
    return true;
}

} // namespace

// The options of Intel HEX that the input cannot be written with.
result_t checkIntelHexOptions(const WriterInput& input, const write_options_t& options)
{
    if (options.recordSize < 1 || options.recordSize > 255)
        return badOptions("record size " + std::to_string(options.recordSize) + " is out of range (1 to 255)");
    if (options.addressing == addressing_t::SEGMENT && !isEmpty(input) && highestOf(input) > 0xFFFFF)
        return outOfReach("segment addressing reaches only the first MiB, and the image goes up to " +
                              hexAddress(highestOf(input)),
                          static_cast<uint32_t>(highestOf(input)));
    return result_t();
}

// The options of S-records that the input cannot be written with.
result_t checkSrecordOptions(const WriterInput& input, const write_options_t& options)
{
    if (options.addressSize != 0 && (options.addressSize < 2 || options.addressSize > 4))
        return badOptions("S-record address size " + std::to_string(options.addressSize) + " is not 2, 3 or 4");
    const unsigned addressSize = srecordAddressSize(input, options);
    const unsigned most = 255 - addressSize - 1;
    if (options.recordSize < 1 || options.recordSize > most)
        return badOptions("record size " + std::to_string(options.recordSize) + " is out of range: S-records with " +
                          std::to_string(addressSize) + "-byte addresses hold 1 to " + std::to_string(most) +
                          " data bytes");
    const uint64_t limit = (1ull << (8 * addressSize)) - 1;
    if (!isEmpty(input) && highestOf(input) > limit)
        return outOfReach("S-record address size " + std::to_string(addressSize) + " cannot hold address " +
                              hexAddress(highestOf(input)),
                          static_cast<uint32_t>(highestOf(input)));
    if (srecordStart(input) > limit)
        return outOfReach("S-record address size " + std::to_string(addressSize) + " cannot hold the start address " +
                              hexAddress(srecordStart(input)),
                          static_cast<uint32_t>(srecordStart(input)));
    return result_t();
}

// At least the size of the output: two digits a byte, and no more records
// than the record size, the 64 KiB boundaries and the segments make, with the
// longest record layout, an address record for each, and the header.
uint64_t outputBound(const WriterInput& input, const write_options_t& options)
{
    if (isEmpty(input))
        return 1024;
    if (options.format == file_format_t::BINARY)
        return highestOf(input) - input.segmentAddress(0) + 1;
    const uint64_t data = dataSizeOf(input);
    const uint64_t records = data / std::max(options.recordSize, 1u) + data / 0x10000 + 2 * input.segmentCount() + 4;
    return 2 * data + 2 * 17 * records + 1024;
}

namespace {

// Writes input to sink with one format's writer, through a buffer.
result_t writeWith(bool (*writer)(WriterInput&, const write_options_t&, OutputBuffer&), WriterInput& input,
                   const write_options_t& options, ByteSink& sink)
{
    OutputBuffer out(sink, outputBound(input, options));
    const bool whole = writer(input, options, out);
    const result_t written = out.finish();
    return whole ? written : failure(status_t::CANNOT_READ, input.failure());
}

} // namespace

bool writeIntelHexTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result)
{
    result = writeWith(writeIntelHex, input, options, sink);
    return result.ok();
}

bool writeSrecordsTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result)
{
    result = writeWith(writeSrecords, input, options, sink);
    return result.ok();
}

bool writeBinaryTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result)
{
    result = writeWith(writeBinary, input, options, sink);
    return result.ok();
}

} // namespace hexblocks::detail
