// The block functions of SHA-256 and SHA-512 (FIPS 180-4): each adds count
// whole blocks (64 or 128 bytes) to a state of eight words (SHA-256's in
// the low halves). Digest pads and finishes.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_SHA2_BLOCKS_H
#define HEXBLOCKS_SHA2_BLOCKS_H

#include <cstddef>
#include <cstdint>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define HEXBLOCKS_SHA256_EXTENSIONS 1
#else
#define HEXBLOCKS_SHA256_EXTENSIONS 0
#endif

namespace hexblocks::detail {

void sha256Blocks(uint64_t state[8], const uint8_t* blocks, size_t count);
void sha512Blocks(uint64_t state[8], const uint8_t* blocks, size_t count);

#if HEXBLOCKS_SHA256_EXTENSIONS
// SHA-256 with the processor's SHA extensions; only where
// hasSha256Extensions().
void sha256BlocksWithExtensions(uint64_t state[8], const uint8_t* blocks, size_t count);
bool hasSha256Extensions();
#endif

} // namespace hexblocks::detail

#endif // HEXBLOCKS_SHA2_BLOCKS_H
