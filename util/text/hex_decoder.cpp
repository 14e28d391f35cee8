#include "hex_decoder.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#if defined(__arm__) && defined(__linux__) && defined(__GNUC__) && !defined(__clang__)
#include <arm_neon.h>
#include <asm/hwcap.h>
#include <sys/auxv.h>
#define HEXBLOCKS_HAVE_NEON 1
// The build's baseline may lack NEON: only these functions use it, and only
// on a processor that has it.
#define HEXBLOCKS_NEON_FUNCTION __attribute__((target("fpu=neon")))
#endif

namespace hexblocks::detail {

namespace {

bool decodeScalar(const char* digits, size_t count, size_t readable, uint8_t* bytes, uint8_t& sum)
{
    return decodeHexScalar(digits, count, readable, bytes, sum);
}

#ifdef __SSE2__
bool decodeSse2(const char* digits, size_t count, size_t readable, uint8_t* bytes, uint8_t& sum)
{
    return decodeHexSse2(digits, count, readable, bytes, sum);
}
#endif

#ifdef HEXBLOCKS_HAVE_NEON

// The digit values of 16 characters; valid is 0xFF in each lane that holds a
// hex digit.
HEXBLOCKS_NEON_FUNCTION inline uint8x8_t digitValuesNeon(uint8x8_t c, uint8x8_t& valid)
{
    const uint8x8_t decimal = vsub_u8(c, vdup_n_u8('0'));
    const uint8x8_t isDecimal = vclt_u8(decimal, vdup_n_u8(10));
    const uint8x8_t letter = vsub_u8(vorr_u8(c, vdup_n_u8(0x20)), vdup_n_u8('a'));
    const uint8x8_t isLetter = vclt_u8(letter, vdup_n_u8(6));
    valid = vorr_u8(isDecimal, isLetter);
    return vbsl_u8(isDecimal, decimal, vadd_u8(letter, vdup_n_u8(10)));
}

// Whether every lane of v is 0xFF.
HEXBLOCKS_NEON_FUNCTION inline bool allSetNeon(uint8x8_t v)
{
    return vget_lane_u64(vreinterpret_u64_u8(v), 0) == ~static_cast<uint64_t>(0);
}

HEXBLOCKS_NEON_FUNCTION bool decodeNeon(const char* digits, size_t count, size_t readable, uint8_t* bytes,
                                       uint8_t& sum)
{
    const size_t characters = 2 * count;
    const uint8_t* text = reinterpret_cast<const uint8_t*>(digits);
    uint16x8_t total = vdupq_n_u16(0);
    uint8x8_t valid = vdup_n_u8(0xFF);
    size_t done = 0;
    // Up to 255 blocks of 16 characters, each adding at most 8 * 255 to a
    // lane pair: the 16-bit lanes of the total cannot overflow before a
    // record's 260 bytes are summed, so they are widened every 256 blocks.
    size_t blocks = 0;
    uint32x4_t wide = vdupq_n_u32(0);
    for (; done < characters && done + 16 <= readable; done += 16) {
        const uint8x8x2_t pairs = vld2_u8(text + done); // even and odd characters
        uint8x8_t validHigh, validLow;
        const uint8x8_t high = digitValuesNeon(pairs.val[0], validHigh);
        const uint8x8_t low = digitValuesNeon(pairs.val[1], validLow);
        uint8x8_t decoded = vsli_n_u8(low, high, 4);
        const size_t lanes = characters - done < 16 ? (characters - done) / 2 : 8;
        const uint8x8_t keep = vld1_u8(LANE_MASK + (16 - lanes));
        decoded = vand_u8(decoded, keep);
        valid = vand_u8(valid, vorr_u8(vand_u8(validHigh, validLow), vmvn_u8(keep)));
        total = vaddw_u8(total, decoded);
        vst1_u8(bytes + done / 2, decoded);
        if (++blocks == 256) {
            wide = vpadalq_u16(wide, total);
            total = vdupq_n_u16(0);
            blocks = 0;
        }
    }
    wide = vpadalq_u16(wide, total);
    const uint64x2_t sums = vpaddlq_u32(wide);
    sum = static_cast<uint8_t>(sum + vgetq_lane_u64(sums, 0) + vgetq_lane_u64(sums, 1));
    // Digits left when the last block of 16 could not be read as one.
    done = done < characters ? done : characters;
    const bool tailValid = decodeScalar(digits + done, count - done / 2, 0, bytes + done / 2, sum);
    return allSetNeon(valid) && tailValid;
}

bool processorHasNeon()
{
    return (getauxval(AT_HWCAP) & HWCAP_NEON) != 0;
}

#endif // HEXBLOCKS_HAVE_NEON

using hex_decoder_detail::decodefunction_t;

decodefunction_t functionOf(hexdecoder_t decoder)
{
    switch (decoder) {
#ifdef __SSE2__
    case hexdecoder_t::SSE2:
        return decodeSse2;
#endif
#ifdef HEXBLOCKS_HAVE_NEON
    case hexdecoder_t::NEON:
        return processorHasNeon() ? decodeNeon : nullptr;
#endif
    case hexdecoder_t::SCALAR:
        return decodeScalar;
    default:
        return nullptr;
    }
}

hexdecoder_t bestDecoder()
{
    for (hexdecoder_t decoder : {hexdecoder_t::SSE2, hexdecoder_t::NEON})
        if (functionOf(decoder) != nullptr)
            return decoder;
    return hexdecoder_t::SCALAR;
}

// The best decoder, unless HEXBLOCKS_HEX_DECODER names another that is
// available ("scalar", "sse2" or "neon"): a way to run a whole program, or a
// test of it, with each decoder.
hexdecoder_t initialDecoder()
{
    if (const char* name = std::getenv("HEXBLOCKS_HEX_DECODER"))
        for (hexdecoder_t decoder : {hexdecoder_t::SCALAR, hexdecoder_t::SSE2, hexdecoder_t::NEON})
            if (std::strcmp(name, hexDecoderName(decoder)) == 0 && functionOf(decoder) != nullptr)
                return decoder;
    return bestDecoder();
}

#ifndef __SSE2__
// The first decode picks the decoder, and calls it.
bool decodeWithInitial(const char* digits, size_t count, size_t readable, uint8_t* bytes, uint8_t& sum)
{
    const decodefunction_t function = functionOf(initialDecoder());
    hex_decoder_detail::selected.store(function, std::memory_order_relaxed);
    return function(digits, count, readable, bytes, sum);
}
#endif

} // namespace

namespace hex_decoder_detail {
#ifdef __SSE2__
std::atomic<bool> scalarSelected{initialDecoder() == hexdecoder_t::SCALAR};
#else
std::atomic<decodefunction_t> selected{decodeWithInitial};
#endif
} // namespace hex_decoder_detail

hexdecoder_t hexDecoder()
{
#ifdef __SSE2__
    return hex_decoder_detail::scalarSelected.load(std::memory_order_relaxed) ? hexdecoder_t::SCALAR
                                                                              : hexdecoder_t::SSE2;
#else
    decodefunction_t function = hex_decoder_detail::selected.load(std::memory_order_relaxed);
    if (function == decodeWithInitial)
        return initialDecoder();
    for (hexdecoder_t decoder : {hexdecoder_t::NEON, hexdecoder_t::SCALAR})
        if (functionOf(decoder) == function)
            return decoder;
    return hexdecoder_t::SCALAR;
#endif
}

bool hexDecoderAvailable(hexdecoder_t decoder)
{
    return functionOf(decoder) != nullptr;
}

bool selectHexDecoder(hexdecoder_t decoder)
{
    const decodefunction_t function = functionOf(decoder);
    if (function == nullptr)
        return false;
#ifdef __SSE2__
    hex_decoder_detail::scalarSelected.store(decoder == hexdecoder_t::SCALAR, std::memory_order_relaxed);
#else
    hex_decoder_detail::selected.store(function, std::memory_order_relaxed);
#endif
    return true;
}

const char* hexDecoderName(hexdecoder_t decoder)
{
    switch (decoder) {
    case hexdecoder_t::SSE2:
        return "sse2";
    case hexdecoder_t::NEON:
        return "neon";
    default:
        return "scalar";
    }
}

bool decodeHexWith(hexdecoder_t decoder, const char* digits, size_t count, size_t readable, uint8_t* bytes,
                   uint8_t& sum)
{
    return functionOf(decoder)(digits, count, readable, bytes, sum);
}

} // namespace hexblocks::detail
