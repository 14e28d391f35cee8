#include "sha2_blocks.h"

#if HEXBLOCKS_SHA256_EXTENSIONS
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace hexblocks::detail {

namespace {

// The round constants: the first 32 (SHA-256) or 64 (SHA-512) bits of the
// fractional parts of the cube roots of the first 64 or 80 primes.
constexpr uint32_t K256[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

constexpr uint64_t K512[80] = {
    0x428a2f98d728ae22, 0x7137449123ef65cd, 0xb5c0fbcfec4d3b2f, 0xe9b5dba58189dbbc, 0x3956c25bf348b538,
    0x59f111f1b605d019, 0x923f82a4af194f9b, 0xab1c5ed5da6d8118, 0xd807aa98a3030242, 0x12835b0145706fbe,
    0x243185be4ee4b28c, 0x550c7dc3d5ffb4e2, 0x72be5d74f27b896f, 0x80deb1fe3b1696b1, 0x9bdc06a725c71235,
    0xc19bf174cf692694, 0xe49b69c19ef14ad2, 0xefbe4786384f25e3, 0x0fc19dc68b8cd5b5, 0x240ca1cc77ac9c65,
    0x2de92c6f592b0275, 0x4a7484aa6ea6e483, 0x5cb0a9dcbd41fbd4, 0x76f988da831153b5, 0x983e5152ee66dfab,
    0xa831c66d2db43210, 0xb00327c898fb213f, 0xbf597fc7beef0ee4, 0xc6e00bf33da88fc2, 0xd5a79147930aa725,
    0x06ca6351e003826f, 0x142929670a0e6e70, 0x27b70a8546d22ffc, 0x2e1b21385c26c926, 0x4d2c6dfc5ac42aed,
    0x53380d139d95b3df, 0x650a73548baf63de, 0x766a0abb3c77b2a8, 0x81c2c92e47edaee6, 0x92722c851482353b,
    0xa2bfe8a14cf10364, 0xa81a664bbc423001, 0xc24b8b70d0f89791, 0xc76c51a30654be30, 0xd192e819d6ef5218,
    0xd69906245565a910, 0xf40e35855771202a, 0x106aa07032bbd1b8, 0x19a4c116b8d2d0c8, 0x1e376c085141ab53,
    0x2748774cdf8eeb99, 0x34b0bcb5e19b48a8, 0x391c0cb3c5c95a63, 0x4ed8aa4ae3418acb, 0x5b9cca4f7763e373,
    0x682e6ff3d6b2b8a3, 0x748f82ee5defb2fc, 0x78a5636f43172f60, 0x84c87814a1f0ab72, 0x8cc702081a6439ec,
    0x90befffa23631e28, 0xa4506cebde82bde9, 0xbef9a3f7b2c67915, 0xc67178f2e372532b, 0xca273eceea26619c,
    0xd186b8c721c0c207, 0xeada7dd6cde0eb1e, 0xf57d4f7fee6ed178, 0x06f067aa72176fba, 0x0a637dc5a2c898a6,
    0x113f9804bef90dae, 0x1b710b35131c471b, 0x28db77f523047d84, 0x32caab7b40c72493, 0x3c9ebe0a15c9bebc,
    0x431d67c49c100d4c, 0x4cc5d4becb3e42b6, 0x597f299cfc657e2a, 0x5fcb6fab3ad6faec, 0x6c44198c4a475817};

inline uint32_t rotr(uint32_t x, unsigned n)
{
    return x >> n | x << (32 - n);
}

inline uint64_t rotr(uint64_t x, unsigned n)
{
    return x >> n | x << (64 - n);
}

inline uint32_t load32(const uint8_t* p)
{
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | uint32_t{p[3]};
}

inline uint64_t load64(const uint8_t* p)
{
    return uint64_t{load32(p)} << 32 | load32(p + 4);
}

// One round of SHA-256 or SHA-512 on the working variables, which the
// caller names in rotated order instead of moving them.
#define HB_SHA_ROUND(a, b, c, d, e, f, g, h, k, w, S0, S1)                                                           \
    do {                                                                                                            \
        const auto t1 = h + S1(e) + (g ^ (e & (f ^ g))) + k + w;                                                   \
        const auto t2 = S0(a) + ((a & b) | (c & (a | b)));                                                          \
        d += t1;                                                                                                    \
        h = t1 + t2;                                                                                                \
    } while (0)

#define HB_SHA_EIGHT_ROUNDS(i, K, W, S0, S1)                                                                        \
    HB_SHA_ROUND(a, b, c, d, e, f, g, h, K[i], W[i], S0, S1);                                                       \
    HB_SHA_ROUND(h, a, b, c, d, e, f, g, K[i + 1], W[i + 1], S0, S1);                                               \
    HB_SHA_ROUND(g, h, a, b, c, d, e, f, K[i + 2], W[i + 2], S0, S1);                                               \
    HB_SHA_ROUND(f, g, h, a, b, c, d, e, K[i + 3], W[i + 3], S0, S1);                                               \
    HB_SHA_ROUND(e, f, g, h, a, b, c, d, K[i + 4], W[i + 4], S0, S1);                                               \
    HB_SHA_ROUND(d, e, f, g, h, a, b, c, K[i + 5], W[i + 5], S0, S1);                                               \
    HB_SHA_ROUND(c, d, e, f, g, h, a, b, K[i + 6], W[i + 6], S0, S1);                                               \
    HB_SHA_ROUND(b, c, d, e, f, g, h, a, K[i + 7], W[i + 7], S0, S1)

inline uint32_t bigSigma0(uint32_t x)
{
    return rotr(x, 2) ^ rotr(x, 13) ^ rotr(x, 22);
}
inline uint32_t bigSigma1(uint32_t x)
{
    return rotr(x, 6) ^ rotr(x, 11) ^ rotr(x, 25);
}
inline uint32_t smallSigma0(uint32_t x)
{
    return rotr(x, 7) ^ rotr(x, 18) ^ x >> 3;
}
inline uint32_t smallSigma1(uint32_t x)
{
    return rotr(x, 17) ^ rotr(x, 19) ^ x >> 10;
}
inline uint64_t bigSigma0(uint64_t x)
{
    return rotr(x, 28) ^ rotr(x, 34) ^ rotr(x, 39);
}
inline uint64_t bigSigma1(uint64_t x)
{
    return rotr(x, 14) ^ rotr(x, 18) ^ rotr(x, 41);
}
inline uint64_t smallSigma0(uint64_t x)
{
    return rotr(x, 1) ^ rotr(x, 8) ^ x >> 7;
}
inline uint64_t smallSigma1(uint64_t x)
{
    return rotr(x, 19) ^ rotr(x, 61) ^ x >> 6;
}

} // namespace

void sha256Blocks(uint64_t state[8], const uint8_t* block, size_t count)
{
    uint32_t a = static_cast<uint32_t>(state[0]), b = static_cast<uint32_t>(state[1]),
             c = static_cast<uint32_t>(state[2]), d = static_cast<uint32_t>(state[3]),
             e = static_cast<uint32_t>(state[4]), f = static_cast<uint32_t>(state[5]),
             g = static_cast<uint32_t>(state[6]), h = static_cast<uint32_t>(state[7]);
    for (; count > 0; --count, block += 64) {
        uint32_t w[64];
        for (int i = 0; i < 16; ++i)
            w[i] = load32(block + 4 * i);
        for (int i = 16; i < 64; ++i)
            w[i] = smallSigma1(w[i - 2]) + w[i - 7] + smallSigma0(w[i - 15]) + w[i - 16];
        const uint32_t a0 = a, b0 = b, c0 = c, d0 = d, e0 = e, f0 = f, g0 = g, h0 = h;
        for (int i = 0; i < 64; i += 8) {
            HB_SHA_EIGHT_ROUNDS(i, K256, w, bigSigma0, bigSigma1);
        }
        a += a0, b += b0, c += c0, d += d0, e += e0, f += f0, g += g0, h += h0;
    }
    state[0] = a, state[1] = b, state[2] = c, state[3] = d, state[4] = e, state[5] = f, state[6] = g, state[7] = h;
}

void sha512Blocks(uint64_t state[8], const uint8_t* block, size_t count)
{
    uint64_t a = state[0], b = state[1], c = state[2], d = state[3], e = state[4], f = state[5], g = state[6],
             h = state[7];
    for (; count > 0; --count, block += 128) {
        uint64_t w[80];
        for (int i = 0; i < 16; ++i)
            w[i] = load64(block + 8 * i);
        for (int i = 16; i < 80; ++i)
            w[i] = smallSigma1(w[i - 2]) + w[i - 7] + smallSigma0(w[i - 15]) + w[i - 16];
        const uint64_t a0 = a, b0 = b, c0 = c, d0 = d, e0 = e, f0 = f, g0 = g, h0 = h;
        for (int i = 0; i < 80; i += 8) {
            HB_SHA_EIGHT_ROUNDS(i, K512, w, bigSigma0, bigSigma1);
        }
        a += a0, b += b0, c += c0, d += d0, e += e0, f += f0, g += g0, h += h0;
    }
    state[0] = a, state[1] = b, state[2] = c, state[3] = d, state[4] = e, state[5] = f, state[6] = g, state[7] = h;
}

#undef HB_SHA_EIGHT_ROUNDS
#undef HB_SHA_ROUND

#if HEXBLOCKS_SHA256_EXTENSIONS

// SHA-256 with the processor's SHA extensions (x86-64 processors since
// about 2017). The state lives in two registers as ABEF and CDGH, the
// order the round instruction takes; each step does four rounds, and the
// message words of the steps after the fourth come from the four before
// (sha256msg1 adds sigma0 of the next word, sha256msg2 sigma1 of the
// words two before).
__attribute__((target("sha,sse4.1,ssse3"))) void sha256BlocksWithExtensions(uint64_t state[8],
                                                                                const uint8_t* block, size_t count)
{
    const __m128i BYTE_SWAP = _mm_set_epi64x(0x0c0d0e0f08090a0bll, 0x0405060700010203ll);
    const __m128i dcba = _mm_setr_epi32(static_cast<int>(state[0]), static_cast<int>(state[1]),
                                        static_cast<int>(state[2]), static_cast<int>(state[3]));
    const __m128i hgfe = _mm_setr_epi32(static_cast<int>(state[4]), static_cast<int>(state[5]),
                                        static_cast<int>(state[6]), static_cast<int>(state[7]));
    const __m128i cdab = _mm_shuffle_epi32(dcba, 0xB1);
    const __m128i efgh = _mm_shuffle_epi32(hgfe, 0x1B);
    __m128i abef = _mm_alignr_epi8(cdab, efgh, 8);
    __m128i cdgh = _mm_blend_epi16(efgh, cdab, 0xF0);
    for (; count > 0; --count, block += 64) {
        const __m128i abefBefore = abef, cdghBefore = cdgh;
        __m128i w[4];
        for (int step = 0; step < 16; ++step) {
            __m128i& words = w[step % 4];
            if (step < 4) {
                words = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(block + 16 * step)),
                                         BYTE_SWAP);
            } else {
                const __m128i& previous = w[(step + 3) % 4];
                const __m128i sevenBefore = _mm_alignr_epi8(previous, w[(step + 2) % 4], 4);
                words = _mm_sha256msg2_epu32(
                    _mm_add_epi32(_mm_sha256msg1_epu32(words, w[(step + 1) % 4]), sevenBefore), previous);
            }
            __m128i message =
                _mm_add_epi32(words, _mm_loadu_si128(reinterpret_cast<const __m128i*>(K256 + 4 * step)));
            cdgh = _mm_sha256rnds2_epu32(cdgh, abef, message);
            message = _mm_shuffle_epi32(message, 0x0E);
            abef = _mm_sha256rnds2_epu32(abef, cdgh, message);
        }
        abef = _mm_add_epi32(abef, abefBefore);
        cdgh = _mm_add_epi32(cdgh, cdghBefore);
    }
    const __m128i feba = _mm_shuffle_epi32(abef, 0x1B);
    const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xB1);
    const __m128i outDcba = _mm_blend_epi16(feba, dchg, 0xF0);
    const __m128i outHgfe = _mm_alignr_epi8(dchg, feba, 8);
    uint32_t words[8];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(words), outDcba);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(words + 4), outHgfe);
    for (int i = 0; i < 8; ++i)
        state[i] = words[i];
}

// Whether the processor has the SHA extensions and the SSE4.1 and SSSE3
// instructions the function above also uses.
bool hasSha256Extensions()
{
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx))
        return false;
    const bool sse = (ecx & bit_SSE4_1) != 0 && (ecx & bit_SSSE3) != 0;
    if (!sse || !__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx))
        return false;
    return (ebx & bit_SHA) != 0;
}

#endif

} // namespace hexblocks::detail
