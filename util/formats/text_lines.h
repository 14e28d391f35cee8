// What the readers of the simpler text formats (TI-TXT, Verilog memory
// files, MIF, INHX16) share: the whole text in memory, its lines, hex
// digits, and numbers of any size checked against the 32-bit address space.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_TEXT_LINES_H
#define HEXBLOCKS_TEXT_LINES_H

#include "record_assembler.h"
#include "record_scanner.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#ifdef __SSE2__
#include <emmintrin.h>
#endif
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace hexblocks::detail {

// Points text and size at the whole of source: its own memory, or storage,
// into which it is read. False, with read failed, when it cannot be read.
inline bool wholeTextOf(TextSource& source, const char*& text, size_t& size, std::vector<char>& storage,
                        fullread_t& read)
{
    text = source.wholeText(size);
    if (text != nullptr)
        return true;
    if (!readWhole(source, storage)) {
        failRead(read, fullread_t::status_t::READ_ERROR, 0, std::string("cannot read the file: ") + std::strerror(errno),
                 "");
        return false;
    }
    text = storage.data();
    size = storage.size();
    return true;
}

// The line at p: sets length to its length without its line ending (LF or
// CR LF) and the white space before it, and returns where the next line
// starts.
inline const char* lineAt(const char* p, const char* end, size_t& length)
{
    const char* newline = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(end - p)));
    const char* stop = newline != nullptr ? newline : end;
    const char* last = stop;
    while (last > p && (last[-1] == '\r' || last[-1] == ' ' || last[-1] == '\t'))
        --last;
    length = static_cast<size_t>(last - p);
    return newline != nullptr ? newline + 1 : end;
}

// Hands take(line, text, length) each line of a text, numbered from 1,
// as lineAt() gives it. Stops when take returns false.
template <typename Take> void forEachLine(const char* text, size_t size, Take&& take)
{
    const char* end = text + size;
    size_t line = 0;
    for (const char* p = text; p < end;) {
        size_t length = 0;
        const char* start = p;
        p = lineAt(p, end, length);
        if (!take(++line, start, length))
            return;
    }
}

// The line's text for a message: at most 80 characters.
inline std::string excerpt(const char* text, size_t length)
{
    return std::string(text, length < 80 ? length : 80);
}

// Fails read at a line, quoting it. Returns false, for a reader to stop.
inline bool failLine(fullread_t& read, size_t line, const std::string& reason, const char* text, size_t length)
{
    failRead(read, fullread_t::status_t::BAD_LINE, line, reason, excerpt(text, length));
    return false;
}

// Reads the hex digits at p (up to end) into value: false when there are
// none, or more than fit in 64 bits. p is left after them.
inline bool readHexNumber(const char*& p, const char* end, uint64_t& value, size_t& digits)
{
    value = 0;
    digits = 0;
    for (; p < end && HEX_DIGITS.value[static_cast<unsigned char>(*p)] < 16; ++p, ++digits) {
        if (value >> 60 != 0)
            return false;
        value = value << 4 | HEX_DIGITS.value[static_cast<unsigned char>(*p)];
    }
    return digits > 0;
}

// The value of two hex digits, read together as a 16-bit word in the
// machine's byte order, or 0x100 when either is not a hex digit: one look-up
// a byte in the readers' inner loops.
struct hexpairvalues_t {
    uint16_t value[65536];
    constexpr hexpairvalues_t() : value()
    {
        for (unsigned first = 0; first < 256; ++first)
            for (unsigned second = 0; second < 256; ++second) {
                const unsigned high = HEX_DIGITS.value[first];
                const unsigned low = HEX_DIGITS.value[second];
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
                const unsigned index = first << 8 | second;
#else
                const unsigned index = second << 8 | first;
#endif
                value[index] = static_cast<uint16_t>((high | low) >= 16 ? 0x100 : high << 4 | low);
            }
    }
};
inline constexpr hexpairvalues_t HEX_PAIR_VALUES{};

// The value of the two hex digits at p, or 0x100 when they are not both hex
// digits.
HEXBLOCKS_ALWAYS_INLINE unsigned hexPair(const char* p)
{
    uint16_t pair;
    std::memcpy(&pair, p, 2);
    return HEX_PAIR_VALUES.value[pair];
}

// The positions of the spaces in a line of 16 bytes in words of W bytes, as
// bits: 2, 5, ..., 44 for bytes; 4, 9, ..., 34 for 16-bit words.
template <size_t W> constexpr uint64_t spacesOfSixteen()
{
    uint64_t bits = 0;
    for (size_t k = 0; k + 1 < 16 / W; ++k)
        bits |= uint64_t{1} << (2 * W + k * (2 * W + 1));
    return bits;
}

// Whether the 48 characters at p have spaces where a line of 16 bytes in
// words of W bytes has them.
template <size_t W> HEXBLOCKS_ALWAYS_INLINE bool sixteenByteSpaces(const char* p)
{
    constexpr uint64_t WANTED = spacesOfSixteen<W>();
#ifdef __SSE2__
    const __m128i spaces = _mm_set1_epi8(' ');
    const auto match = [&](int at) HEXBLOCKS_ALWAYS_INLINE_LAMBDA {
        return static_cast<uint64_t>(static_cast<unsigned>(
            _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + at)), spaces))));
    };
    uint64_t found = match(0) | match(16) << 16;
    if constexpr ((WANTED >> 32) != 0)
        found |= match(32) << 32;
    return (found & WANTED) == WANTED;
#else
    unsigned other = 0;
    for (size_t k = 0; k < 48; ++k)
        if ((WANTED >> k & 1) != 0)
            other |= static_cast<unsigned char>(p[k]) ^ ' ';
    return other == 0;
#endif
}

// Decodes the 16 bytes of a line of words of W bytes at p: word w's byte b
// is the pair of digits at w * (2W + 1) + 2b. Written out, one look-up a
// byte (compilers leave such a loop rolled); the result has 0x100 set when
// a pair is not hex digits.
template <size_t W, size_t K> HEXBLOCKS_ALWAYS_INLINE void decodeByte(const char* p, uint8_t* out, unsigned& bad)
{
    const unsigned value = hexPair(p + K / W * (2 * W + 1) + 2 * (K % W));
    bad |= value;
    out[K] = static_cast<uint8_t>(value);
}

template <size_t W, size_t... K>
HEXBLOCKS_ALWAYS_INLINE unsigned decodeSixteen(const char* p, uint8_t* out, std::index_sequence<K...>)
{
    unsigned bad = 0;
    (decodeByte<W, K>(p, out, bad), ...);
    return bad;
}

// The line of 16 bytes that our writers, and most others, write: words of
// W bytes ("XX XX ... XX", "XXXX XXXX ...", ...) and LF or CR LF. Decodes
// it into out and moves start past it; false, leaving start, for any other
// line.
template <size_t W, bool SEMICOLON = false>
HEXBLOCKS_ALWAYS_INLINE bool scanSixteenByteLine(const char*& start, const char* end, uint8_t* out)
{
    constexpr size_t WORDS = 16 / W;
    constexpr size_t DIGITS = 32 + WORDS - 1;
    constexpr size_t LENGTH = DIGITS + (SEMICOLON ? 1 : 0); // a MIF entry's words end with ';'
    // (48 characters are read to look for the spaces.)
    if (end - start < 50 || !(start[LENGTH] == '\n' || (start[LENGTH] == '\r' && start[LENGTH + 1] == '\n')) ||
        (SEMICOLON && start[DIGITS] != ';') || !sixteenByteSpaces<W>(start))
        return false;
    if constexpr (W <= 2) {
        if ((decodeSixteen<W>(start, out, std::make_index_sequence<16>()) & 0x100) != 0)
            return false;
    } else {
#ifdef __SSE2__
        // Words of 4 or 8 bytes: their digits gathered into two blocks of
        // 16, which are decoded together.
        const auto load = [start](size_t at) HEXBLOCKS_ALWAYS_INLINE_LAMBDA {
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(start + at));
        };
        const auto loadEight = [start](size_t at) HEXBLOCKS_ALWAYS_INLINE_LAMBDA {
            return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(start + at));
        };
        const bool decoded =
            W == 4 ? hex_decoder_detail::decodeHex32Sse2(_mm_unpacklo_epi64(loadEight(0), loadEight(9)),
                                                         _mm_unpacklo_epi64(loadEight(18), loadEight(27)), out)
                   : hex_decoder_detail::decodeHex32Sse2(load(0), load(17), out);
        if (!decoded)
            return false;
#else
        // Words of 4 or 8 bytes: their digits gathered, then decoded as the
        // Intel HEX reader decodes a record's, 16 digits at a time.
        char digits[32 + HEX_DECODE_SLACK];
        for (size_t w = 0; w < WORDS; ++w)
            std::memcpy(digits + 2 * W * w, start + (2 * W + 1) * w, 2 * W);
        uint8_t bytes[16 + HEX_DECODE_SLACK];
        uint8_t sum = 0;
        if (!decodeHex(digits, 16, sizeof digits, bytes, sum))
            return false;
        std::memcpy(out, bytes, 16);
#endif
    }
    start += start[LENGTH] == '\n' ? LENGTH + 1 : LENGTH + 2;
    return true;
}

// scanSixteenByteLine() for a word size known only when running.
template <bool SEMICOLON = false>
HEXBLOCKS_ALWAYS_INLINE bool scanSixteenByteLine(const char*& start, const char* end, size_t wordBytes, uint8_t* out)
{
    switch (wordBytes) {
    case 1:
        return scanSixteenByteLine<1, SEMICOLON>(start, end, out);
    case 2:
        return scanSixteenByteLine<2, SEMICOLON>(start, end, out);
    case 4:
        return scanSixteenByteLine<4, SEMICOLON>(start, end, out);
    case 8:
        return scanSixteenByteLine<8, SEMICOLON>(start, end, out);
    default:
        return false;
    }
}

// Reads, at start, the usual line of TI-TXT and Verilog files: words of
// wordBytes bytes (2 * wordBytes hex digits each) separated by single
// spaces, a space before the line ending allowed, ending with LF, CR LF or
// the end of the text. Decodes it into out (room for capacity bytes), moves
// start past the line ending and returns the bytes; returns 0, leaving
// start, for any other line, which the readers then take the slow way (and
// so say what is wrong with it).
HEXBLOCKS_ALWAYS_INLINE size_t scanWordLine(const char*& start, const char* end, size_t wordBytes, uint8_t* out,
                                             size_t capacity)
{
    if (capacity >= 16 && scanSixteenByteLine(start, end, wordBytes, out))
        return 16;
    const char* p = start;
    size_t count = 0;
    unsigned bad = 0;
    for (;;) {
        if (count > 0 && p < end && (*p == '\n' || *p == '\r'))
            break; // the line ending after a trailing space
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        if (wordBytes == 1) {
            // Two bytes and the spaces after them at once.
            uint64_t v;
            while (end - p >= 8 && count + 2 <= capacity &&
                   (std::memcpy(&v, p, 8), ((v ^ 0x0000200000200000ull) & 0x0000FF0000FF0000ull) == 0)) {
                const unsigned first = HEX_PAIR_VALUES.value[v & 0xFFFF];
                const unsigned second = HEX_PAIR_VALUES.value[v >> 24 & 0xFFFF];
                bad |= first | second;
                out[count] = static_cast<uint8_t>(first);
                out[count + 1] = static_cast<uint8_t>(second);
                count += 2;
                p += 6;
            }
        }
#endif
        if (static_cast<size_t>(end - p) < 2 * wordBytes || count + wordBytes > capacity)
            return 0;
        for (size_t b = 0; b < wordBytes; ++b) {
            const unsigned value = hexPair(p + 2 * b);
            bad |= value;
            out[count++] = static_cast<uint8_t>(value);
        }
        p += 2 * wordBytes;
        if (p == end || *p == '\n' || *p == '\r')
            break;
        if (*p != ' ')
            return 0;
        if (++p == end)
            break;
    }
    if (p < end && *p == '\r') {
        if (p + 1 == end || p[1] != '\n')
            return 0;
        ++p;
    }
    if (p < end)
        ++p; // the LF
    if ((bad & 0x100) != 0)
        return 0;
    start = p;
    return count;
}

// Hands the bytes of consecutive lines to an assembler: to the ascending
// assembler gathered into runs, one call for many lines (as the Intel HEX
// scanner hands it runs of records); to the others one record a line, so
// that what they report names the line.
template <typename Assembler> class LineEmitter {
public:
    // The most room a reader may ask for: at least a line's bytes. Runs
    // this small are copied with vector moves, as the Intel HEX scanner's
    // are (larger ones make memcpy switch to a string instruction that is
    // no faster).
    static constexpr size_t RUN_SIZE = 4096;

    explicit LineEmitter(Assembler& assembler)
        : assembler_(assembler), run_(std::is_same_v<Assembler, AscendingAssembler> ? RUN_SIZE : 0)
    {
    }

    // Room for up to capacity bytes that follow address, into which a line
    // is decoded and then committed; nullptr when the assembler gave up.
    uint8_t* room(uint64_t address, size_t capacity)
    {
        if constexpr (std::is_same_v<Assembler, AscendingAssembler>) {
            if (held_ > 0 && (address != start_ + held_ || held_ + capacity > RUN_SIZE) && !flush())
                return nullptr;
            if (held_ == 0)
                start_ = address;
            return run_.data() + held_;
        } else {
            start_ = address;
            if (line_.size() < capacity)
                line_.resize(capacity);
            return line_.data();
        }
    }

    // The count bytes decoded into room() are the line's; false when the
    // assembler gave up or refused them.
    bool commit(size_t count, size_t line)
    {
        if constexpr (std::is_same_v<Assembler, AscendingAssembler>) {
            (void)line;
            held_ += count;
            return true;
        } else {
            const piece_t piece{static_cast<uint32_t>(start_), line_.data(), static_cast<uint32_t>(count)};
            return assembler_.addRecord(&piece, 1, line);
        }
    }

    // False when the assembler gave up or refused the bytes.
    bool add(uint64_t address, const uint8_t* data, size_t length, size_t line)
    {
        if constexpr (std::is_same_v<Assembler, AscendingAssembler>) {
            if (held_ > 0 && (address != start_ + held_ || held_ + length > RUN_SIZE) && !flush())
                return false;
            if (held_ == 0)
                start_ = address;
            std::memcpy(run_.data() + held_, data, length);
            held_ += length;
            return true;
        } else {
            const piece_t piece{static_cast<uint32_t>(address), data, static_cast<uint32_t>(length)};
            return assembler_.addRecord(&piece, 1, line);
        }
    }

    // Hands on what is gathered; false when the assembler gave up.
    bool flush()
    {
        if constexpr (std::is_same_v<Assembler, AscendingAssembler>) {
            const size_t held = held_;
            held_ = 0;
            return held == 0 || assembler_.addRun(static_cast<uint32_t>(start_), run_.data(), held);
        } else {
            return true;
        }
    }

private:
    Assembler& assembler_;
    uint64_t start_ = 0;
    size_t held_ = 0;
    std::vector<uint8_t> run_;
    std::vector<uint8_t> line_; // the other assemblers: the line's bytes
};

// Reads, at p, the usual lines of words (see scanWordLine()) into emitter at
// address: one, or, for the ascending assembler, as many lines of 16 bytes
// as follow it, into the same room. Returns the lines read, with p and
// address moved past them; 0 when the line at p is of another kind (which the
// reader then reads its own way); -1 when the assembler gave up.
template <typename Assembler>
long readUsualLines(const char*& p, const char* end, size_t wordBytes, LineEmitter<Assembler>& emitter,
                    uint64_t& address, size_t line)
{
    const size_t ROOM = LineEmitter<Assembler>::RUN_SIZE;
    if (address + ROOM > 0x100000000ull)
        return 0; // near the end of the address space the general path checks each line
    uint8_t* to = emitter.room(address, ROOM);
    if (to == nullptr)
        return -1;
    const char* next = p;
    size_t count = scanWordLine(next, end, wordBytes, to, ROOM);
    if (count == 0)
        return 0;
    long lines = 1;
    if constexpr (std::is_same_v<Assembler, AscendingAssembler>) {
        while (count + 16 <= ROOM && scanSixteenByteLine(next, end, wordBytes, to + count)) {
            count += 16;
            ++lines;
        }
    }
    if (!emitter.commit(count, line + static_cast<size_t>(lines) - 1))
        return -1;
    address += count;
    p = next;
    return lines;
}

// Reads the lines of a text: the usual lines of words at once through
// readUsualLines() while usual() allows them, any other line by
// takeLine(line, text, length), which returns false to stop. False when the
// assembler gave up.
template <typename Assembler, typename Usual, typename TakeLine>
bool readLinesOf(const char* p, const char* end, size_t wordBytes, LineEmitter<Assembler>& emitter,
                 uint64_t& address, Usual&& usual, TakeLine&& takeLine)
{
    for (size_t line = 1; p < end;) {
        if (usual()) {
            const long lines = readUsualLines(p, end, wordBytes, emitter, address, line);
            if (lines < 0)
                return false;
            if (lines > 0) {
                line += static_cast<size_t>(lines);
                continue;
            }
        }
        size_t length = 0;
        const char* start = p;
        p = lineAt(p, end, length);
        if (!takeLine(line++, start, length))
            return true;
    }
    return true;
}

// How a text reader reads its source: readText(text, end) over the whole
// text, then the emitter hands on what it still holds; gaveUp is set when
// the assembler gave up. False when the text could not be read (read says
// why).
template <typename Assembler, typename ReadText>
bool readWholeText(TextSource& source, fullread_t& read, LineEmitter<Assembler>& emitter, bool& gaveUp,
                   ReadText&& readText)
{
    const char* text = nullptr;
    size_t size = 0;
    std::vector<char> storage;
    if (!wholeTextOf(source, text, size, storage, read))
        return false;
    readText(text, text + size);
    if (!gaveUp && !emitter.flush())
        gaveUp = true;
    return true;
}

} // namespace hexblocks::detail

#endif // HEXBLOCKS_TEXT_LINES_H
