/// @file digest.h
/// SHA-256 and SHA-512 (FIPS 180-4) over bytes and over ranges of a
/// MemoryImage, and a digest stored into an image, as a secure bootloader
/// checks an application before it starts it.
///
/// @code
/// #include <hexblocks/digest.h>
///
/// using namespace hexblocks;
/// Digest sha256(Digest::algorithm_t::SHA256);
/// // The application's flash region; addresses without data count as 0xFF.
/// sha256.updateImage(image, range_t{0x08004000, 0x0803FFE0}, 0xFF);
/// const std::vector<uint8_t> value = sha256.value(); // 32 bytes
///
/// // The same digest stored in the last 32 bytes of the region.
/// const result_t stored =
///     Digest::insert(image, Digest::algorithm_t::SHA256, range_t{0x08004000, 0x0803FFE0}, 0xFF, 0x0803FFE0);
/// @endcode
///
/// The range and fill rules are those of the checksums (checksum.h); the
/// digest's bytes are stored in the order the standard gives them. Nothing
/// here prints.
#ifndef HEXBLOCKS_DIGEST_H
#define HEXBLOCKS_DIGEST_H

#include "export.h"
#include "memory_image.h"
#include "result.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace hexblocks {

/// A running SHA-256 or SHA-512.
class HEXBLOCKS_API Digest {
public:
    /// The digests.
    enum class algorithm_t {
        SHA256, ///< 32 bytes, over 64-byte blocks
        SHA512  ///< 64 bytes, over 128-byte blocks
    };

    /// @return the algorithm a name gives: "sha256" or "sha512"; none for
    /// another name.
    static std::optional<algorithm_t> findAlgorithm(const std::string& name);

    /// @return the name of algorithm: "sha256" or "sha512".
    static const char* algorithmName(algorithm_t algorithm);

    /// Starts a digest.
    explicit Digest(algorithm_t algorithm);

    /// Adds size bytes.
    void update(const void* data, size_t size);

    /// Adds count copies of byte.
    void updateFill(uint8_t byte, uint64_t count);

    /// Adds the bytes of image in range, fill for addresses without data.
    void updateImage(const MemoryImage& image, const range_t& range, uint8_t fill);

    /// @return the digest of the bytes added so far, size() bytes; more may
    /// be added afterwards.
    std::vector<uint8_t> value() const;

    /// @return the number of bytes of the digest: 32 or 64.
    size_t size() const;

    /// Starts again with no bytes.
    void reset();

    /// Computes algorithm over range of image (fill where there is no data)
    /// and writes the digest at address, replacing any data there.
    /// @return a failure, with the image unchanged, when the digest would
    /// lie inside range (BAD_ARGUMENT) or run past 0xFFFFFFFF (OUT_OF_RANGE).
    static result_t insert(MemoryImage& image, algorithm_t algorithm, const range_t& range, uint8_t fill,
                           uint32_t address);

private:
    void compress(const uint8_t* blocks, size_t count);

    algorithm_t algorithm_;
    uint64_t state_[8];     // SHA-256 keeps its 32-bit words in the low halves
    uint8_t pending_[128];  // the bytes of a block not yet complete
    size_t pendingSize_;
    uint64_t length_;       // bytes added, modulo 2^64
};

} // namespace hexblocks

#endif // HEXBLOCKS_DIGEST_H
