// Turns pairs of hex digits into bytes and sums them: the inner loop of every
// text-format reader. Three decoders give identical results on every input:
// a portable scalar one, which is the reference, SSE2 on x86-64, and NEON on
// 32-bit ARM when the processor has it (armhf does not promise NEON, so it is
// looked for at run time). The fastest one available is used unless a test
// or a benchmark picks another.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_HEX_DECODER_H
#define HEXBLOCKS_HEX_DECODER_H

#include <cstddef>
#include <atomic>
#include <cstdint>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

// For the few functions of the inner loop that the compiler would rather call.
#if defined(__GNUC__)
#define HEXBLOCKS_ALWAYS_INLINE inline __attribute__((always_inline))
#define HEXBLOCKS_ALWAYS_INLINE_LAMBDA __attribute__((always_inline))
#define HEXBLOCKS_NOINLINE __attribute__((noinline))
#else
#define HEXBLOCKS_ALWAYS_INLINE inline
#define HEXBLOCKS_ALWAYS_INLINE_LAMBDA
#define HEXBLOCKS_NOINLINE
#endif

namespace hexblocks::detail {

// Value of each character as a hex digit; 0x10 for any other character.
struct hexdigits_t {
    uint8_t value[256];
    constexpr hexdigits_t() : value()
    {
        for (int c = 0; c < 256; ++c)
            value[c] = 0x10;
        for (int d = 0; d < 10; ++d)
            value['0' + d] = static_cast<uint8_t>(d);
        for (int d = 0; d < 6; ++d) {
            value['A' + d] = static_cast<uint8_t>(10 + d);
            value['a' + d] = static_cast<uint8_t>(10 + d);
        }
    }
};
inline constexpr hexdigits_t HEX_DIGITS{};

enum class hexdecoder_t { SCALAR, SSE2, NEON };

// Room a decoder may write past the last byte it decodes.
const size_t HEX_DECODE_SLACK = 16;

// Decodes count bytes from the 2 * count hex digits at digits into bytes and
// adds them to sum. readable is how many characters from digits on may be
// read (at least 2 * count): a vector decoder reads whole blocks of 16
// characters where they fit, and decodes the rest one pair at a time. bytes
// needs room for count + HEX_DECODE_SLACK bytes; sum is kept modulo 256,
// as record checksums are. Returns false when a character is not a hex
// digit (either case); bytes and sum are then unspecified.
inline bool decodeHex(const char* digits, size_t count, size_t readable, uint8_t* bytes, uint8_t& sum);

// The decoder decodeHex() uses.
hexdecoder_t hexDecoder();

// Whether this build and this processor have a decoder.
bool hexDecoderAvailable(hexdecoder_t decoder);

// Makes decodeHex() use decoder; false, changing nothing, when it is not
// available. For tests and benchmarks.
bool selectHexDecoder(hexdecoder_t decoder);

// "scalar", "sse2" or "neon".
const char* hexDecoderName(hexdecoder_t decoder);

// One decoder, called directly (it must be available).
bool decodeHexWith(hexdecoder_t decoder, const char* digits, size_t count, size_t readable, uint8_t* bytes,
                   uint8_t& sum);

// --- the decoders that can be inlined --------------------------------------

// The reference: one pair of digits at a time, through a table.
inline bool decodeHexScalar(const char* digits, size_t count, size_t, uint8_t* bytes, uint8_t& sum)
{
    const unsigned char* text = reinterpret_cast<const unsigned char*>(digits);
    unsigned invalid = 0;
    unsigned total = 0;
    for (size_t i = 0; i < count; ++i) {
        const unsigned high = HEX_DIGITS.value[text[2 * i]];
        const unsigned low = HEX_DIGITS.value[text[2 * i + 1]];
        invalid |= high | low;
        const unsigned byte = (high << 4 | low) & 0xFF;
        bytes[i] = static_cast<uint8_t>(byte);
        total += byte;
    }
    sum = static_cast<uint8_t>(sum + total);
    return (invalid & 0x10) == 0;
}

// 16 bytes of 0xFF then 16 of 0: 16 bytes loaded from LANE_MASK + 16 - n
// keep the first n lanes of a vector.
alignas(16) inline constexpr uint8_t LANE_MASK[32] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                                      0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0,
                                                      0, 0, 0, 0, 0, 0, 0, 0};

#ifdef __SSE2__
namespace hex_decoder_detail {

// The digit values of 16 characters (meaningful where they are hex digits),
// and a mark of the lanes that are not hex digits in bad: 0xFF there, less
// elsewhere. A character c is a decimal digit when a = c - '0' is below 10
// and a letter when b = (c | 0x20) - 'a' is below 6; adding 245 to a and 249
// to b with saturation reaches 0xFF exactly when they are not. The value is
// the smaller of a and b + 10: for a digit, b + 10 wraps to 0xD9 or more,
// and for a letter a is 0x11 or more.
HEXBLOCKS_ALWAYS_INLINE __m128i digitValuesSse2(__m128i c, __m128i& bad)
{
    const __m128i a = _mm_sub_epi8(c, _mm_set1_epi8('0'));
    const __m128i b = _mm_sub_epi8(_mm_or_si128(c, _mm_set1_epi8(0x20)), _mm_set1_epi8('a'));
    bad = _mm_min_epu8(_mm_adds_epu8(a, _mm_set1_epi8(static_cast<char>(245))),
                       _mm_adds_epu8(b, _mm_set1_epi8(static_cast<char>(249))));
    return _mm_min_epu8(a, _mm_add_epi8(b, _mm_set1_epi8(10)));
}

// The bytes of two blocks of digit values: the high digits (even lanes) and
// the low digits (odd lanes) are packed apart, then joined.
HEXBLOCKS_ALWAYS_INLINE __m128i joinDigitsSse2(__m128i values0, __m128i values1)
{
    const __m128i evenLanes = _mm_set1_epi16(0x00FF);
    const __m128i high = _mm_packus_epi16(_mm_and_si128(values0, evenLanes), _mm_and_si128(values1, evenLanes));
    const __m128i low = _mm_packus_epi16(_mm_srli_epi16(values0, 8), _mm_srli_epi16(values1, 8));
    return _mm_or_si128(_mm_slli_epi16(high, 4), low);
}

// The 16 bytes of 32 digits in two blocks, stored at bytes; false when a
// character is not a hex digit.
HEXBLOCKS_ALWAYS_INLINE bool decodeHex32Sse2(__m128i digits0, __m128i digits1, uint8_t* bytes)
{
    __m128i bad0, bad1;
    const __m128i values0 = digitValuesSse2(digits0, bad0);
    const __m128i values1 = digitValuesSse2(digits1, bad1);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes), joinDigitsSse2(values0, values1));
    return _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_max_epu8(bad0, bad1), _mm_set1_epi8(-1))) == 0;
}

// The usual record of 16 data bytes (42 digits; any count from 33 to 48
// digits), without a loop: two whole blocks and a third whose lanes past the
// end read as '0'. All 48 characters must be readable.
HEXBLOCKS_ALWAYS_INLINE bool decodeHex48Sse2(const char* digits, size_t characters, uint8_t* bytes, uint8_t& sum)
{
    const __m128i keep = _mm_loadu_si128(reinterpret_cast<const __m128i*>(LANE_MASK + (48 - characters)));
    const __m128i c2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(digits + 32));
    __m128i bad0, bad1, bad2;
    const __m128i values0 = digitValuesSse2(_mm_loadu_si128(reinterpret_cast<const __m128i*>(digits)), bad0);
    const __m128i values1 = digitValuesSse2(_mm_loadu_si128(reinterpret_cast<const __m128i*>(digits + 16)), bad1);
    const __m128i values2 =
        digitValuesSse2(_mm_or_si128(_mm_and_si128(c2, keep), _mm_andnot_si128(keep, _mm_set1_epi8('0'))), bad2);
    const __m128i first = joinDigitsSse2(values0, values1);
    const __m128i second = joinDigitsSse2(values2, _mm_setzero_si128());
    _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes), first);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(bytes + 16), second);
    const __m128i sums = _mm_sad_epu8(_mm_add_epi8(first, second), _mm_setzero_si128());
    sum = static_cast<uint8_t>(sum + _mm_cvtsi128_si32(sums) + _mm_cvtsi128_si32(_mm_unpackhi_epi64(sums, sums)));
    const __m128i bad = _mm_max_epu8(_mm_max_epu8(bad0, bad1), bad2);
    return _mm_movemask_epi8(_mm_cmpeq_epi8(bad, _mm_set1_epi8(-1))) == 0;
}

} // namespace hex_decoder_detail

// 32 characters at a time, then 16; a last block of fewer than 16 is read
// whole when it can be, its lanes past the end read as '0', and what cannot
// be read whole is left to the scalar loop.
HEXBLOCKS_ALWAYS_INLINE bool decodeHexSse2(const char* digits, size_t count, size_t readable, uint8_t* bytes,
                                          uint8_t& sum)
{
    using namespace hex_decoder_detail;
    const size_t characters = 2 * count;
    if (characters > 32 && characters <= 48 && readable >= 48)
        return decodeHex48Sse2(digits, characters, bytes, sum);
    __m128i total = _mm_setzero_si128(); // modulo 256 in each byte
    __m128i bad = _mm_setzero_si128();   // the largest mark of each lane
    size_t done = 0;
    for (; done + 32 <= characters; done += 32) {
        __m128i bad0, bad1;
        const __m128i values0 =
            digitValuesSse2(_mm_loadu_si128(reinterpret_cast<const __m128i*>(digits + done)), bad0);
        const __m128i values1 =
            digitValuesSse2(_mm_loadu_si128(reinterpret_cast<const __m128i*>(digits + done + 16)), bad1);
        bad = _mm_max_epu8(bad, _mm_max_epu8(bad0, bad1));
        const __m128i decoded = joinDigitsSse2(values0, values1);
        total = _mm_add_epi8(total, decoded);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes + done / 2), decoded);
    }
    // The rest, fewer than 32 characters, in blocks of 16 read whole.
    const __m128i zeros = _mm_set1_epi8('0');
    for (; done < characters && done + 16 <= readable; done += 16) {
        const size_t left = characters - done;
        __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(digits + done));
        if (left < 16) {
            const __m128i keep = _mm_loadu_si128(reinterpret_cast<const __m128i*>(LANE_MASK + (16 - left)));
            c = _mm_or_si128(_mm_and_si128(c, keep), _mm_andnot_si128(keep, zeros));
        }
        __m128i bad0;
        const __m128i values = digitValuesSse2(c, bad0);
        bad = _mm_max_epu8(bad, bad0);
        const __m128i pairs = _mm_and_si128(_mm_or_si128(_mm_slli_epi16(values, 4), _mm_srli_epi16(values, 8)),
                                            _mm_set1_epi16(0x00FF));
        const __m128i decoded = _mm_packus_epi16(pairs, _mm_setzero_si128());
        total = _mm_add_epi8(total, decoded);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(bytes + done / 2), decoded);
    }
    done = done < characters ? done : characters;
    const __m128i sums = _mm_sad_epu8(total, _mm_setzero_si128());
    sum = static_cast<uint8_t>(sum + _mm_cvtsi128_si32(sums) + _mm_cvtsi128_si32(_mm_unpackhi_epi64(sums, sums)));
    const bool valid = _mm_movemask_epi8(_mm_cmpeq_epi8(bad, _mm_set1_epi8(-1))) == 0;
    if (done < characters)
        return decodeHexScalar(digits + done, count - done / 2, 0, bytes + done / 2, sum) && valid;
    return valid;
}
#endif

namespace hex_decoder_detail {
using decodefunction_t = bool (*)(const char*, size_t, size_t, uint8_t*, uint8_t&);
#ifdef __SSE2__
// Whether a test has asked for the scalar decoder.
extern std::atomic<bool> scalarSelected;
#else
// The decoder in use; it starts as one that picks the best and calls it.
extern std::atomic<decodefunction_t> selected;
#endif
} // namespace hex_decoder_detail

HEXBLOCKS_ALWAYS_INLINE bool decodeHex(const char* digits, size_t count, size_t readable, uint8_t* bytes, uint8_t& sum)
{
#ifdef __SSE2__
    if (!hex_decoder_detail::scalarSelected.load(std::memory_order_relaxed))
        return decodeHexSse2(digits, count, readable, bytes, sum);
    return decodeHexScalar(digits, count, readable, bytes, sum);
#else
    return hex_decoder_detail::selected.load(std::memory_order_relaxed)(digits, count, readable, bytes, sum);
#endif
}

} // namespace hexblocks::detail

#endif // HEXBLOCKS_HEX_DECODER_H
