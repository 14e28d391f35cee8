#include "digest.h"

#include "hex_format.h"
#include "image_ranges.h"
#include "sha2_blocks.h"

#include <algorithm>
#include <cstring>

namespace hexblocks {

namespace {

// The initial values: the fractional parts of the square roots of the
// first 8 primes.
constexpr uint32_t H256[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                              0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
constexpr uint64_t H512[8] = {0x6a09e667f3bcc908, 0xbb67ae8584caa73b, 0x3c6ef372fe94f82b, 0xa54ff53a5f1d36f1,
                              0x510e527fade682d1, 0x9b05688c2b3e6c1f, 0x1f83d9abfb41bd6b, 0x5be0cd19137e2179};

#if HEXBLOCKS_SHA256_EXTENSIONS
const bool SHA256_EXTENSIONS = detail::hasSha256Extensions();
#endif

} // namespace

std::optional<Digest::algorithm_t> Digest::findAlgorithm(const std::string& name)
{
    if (name == "sha256")
        return algorithm_t::SHA256;
    if (name == "sha512")
        return algorithm_t::SHA512;
    return std::nullopt;
}

const char* Digest::algorithmName(algorithm_t algorithm)
{
    return algorithm == algorithm_t::SHA512 ? "sha512" : "sha256";
}

Digest::Digest(algorithm_t algorithm) : algorithm_(algorithm)
{
    reset();
}

size_t Digest::size() const
{
    return algorithm_ == algorithm_t::SHA512 ? 64 : 32;
}

void Digest::reset()
{
    for (int i = 0; i < 8; ++i)
        state_[i] = algorithm_ == algorithm_t::SHA512 ? H512[i] : H256[i];
    pendingSize_ = 0;
    length_ = 0;
}

void Digest::compress(const uint8_t* blocks, size_t count)
{
    if (algorithm_ == algorithm_t::SHA512)
        detail::sha512Blocks(state_, blocks, count);
#if HEXBLOCKS_SHA256_EXTENSIONS
    else if (SHA256_EXTENSIONS)
        detail::sha256BlocksWithExtensions(state_, blocks, count);
#endif
    else
        detail::sha256Blocks(state_, blocks, count);
}

void Digest::update(const void* data, size_t size)
{
    if (size == 0)
        return; // data may be null then
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    const size_t block = algorithm_ == algorithm_t::SHA512 ? 128 : 64;
    length_ += size;
    if (pendingSize_ > 0) {
        const size_t take = std::min(size, block - pendingSize_);
        std::memcpy(pending_ + pendingSize_, bytes, take);
        pendingSize_ += take;
        bytes += take;
        size -= take;
        if (pendingSize_ < block)
            return;
        compress(pending_, 1);
        pendingSize_ = 0;
    }
    compress(bytes, size / block);
    bytes += size / block * block;
    std::memcpy(pending_, bytes, size % block);
    pendingSize_ = size % block;
}

void Digest::updateFill(uint8_t byte, uint64_t count)
{
    detail::feedFill(byte, count, [this](const uint8_t* bytes, size_t size) { update(bytes, size); });
}

void Digest::updateImage(const MemoryImage& image, const range_t& range, uint8_t fill)
{
    detail::walkRange(
        image, range, [this](const uint8_t* bytes, size_t size) { update(bytes, size); },
        [this, fill](uint64_t count) { updateFill(fill, count); });
}

std::vector<uint8_t> Digest::value() const
{
    // The padding on a copy, so that more bytes may be added afterwards:
    // 0x80, zeros, and the length in bits, big-endian, in the last 16 (8)
    // bytes of the last block.
    Digest last(*this);
    const size_t block = algorithm_ == algorithm_t::SHA512 ? 128 : 64;
    const size_t lengthSize = algorithm_ == algorithm_t::SHA512 ? 16 : 8;
    uint8_t tail[256] = {0x80};
    const size_t zeros = (block + block - lengthSize - 1 - pendingSize_ % block) % block;
    const size_t tailSize = 1 + zeros + lengthSize;
    const uint64_t bits = length_ << 3;
    for (size_t i = 0; i < 8; ++i)
        tail[tailSize - 1 - i] = static_cast<uint8_t>(bits >> (8 * i));
    if (lengthSize == 16)
        tail[tailSize - 9] = static_cast<uint8_t>(length_ >> 61);
    last.update(tail, tailSize);
    std::vector<uint8_t> digest(size());
    for (size_t i = 0; i < digest.size(); ++i) {
        const size_t wordBytes = algorithm_ == algorithm_t::SHA512 ? 8 : 4;
        digest[i] = static_cast<uint8_t>(last.state_[i / wordBytes] >> (8 * (wordBytes - 1 - i % wordBytes)));
    }
    return digest;
}

result_t Digest::insert(MemoryImage& image, algorithm_t algorithm, const range_t& range, uint8_t fill,
                        uint32_t address)
{
    using detail::hexAddress;
    Digest digest(algorithm);
    const std::string name = algorithmName(algorithm);
    const uint64_t end = static_cast<uint64_t>(address) + digest.size();
    if (end > 0x100000000ull)
        return failureAt(status_t::OUT_OF_RANGE,
                         "the " + name + " digest at " + hexAddress(address) + " would run past address 0xFFFFFFFF",
                         address);
    if (address < range.end && end > range.start && range.size() > 0)
        return failureAt(status_t::BAD_ARGUMENT,
                         "the " + name + " digest at " + hexAddress(address) +
                             " would lie inside the range it covers, " + hexAddress(range.start) + ":" +
                             hexAddress(range.end),
                         address);
    digest.updateImage(image, range, fill);
    const std::vector<uint8_t> value = digest.value();
    return image.write(address, value.data(), value.size());
}

} // namespace hexblocks
