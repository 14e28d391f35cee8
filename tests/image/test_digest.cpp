// Digest: SHA-256 and SHA-512 on the test vectors of FIPS 180-4, against
// Python's hashlib on random data of every length around the block sizes,
// fed in pieces of every size, over ranges of images with fill, and stored
// into an image.
#include "digest.h"
#include "sha2_blocks.h"
#include "support/image_view.h"
#include "support/run_process.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {

const Digest::algorithm_t SHA256 = Digest::algorithm_t::SHA256;
const Digest::algorithm_t SHA512 = Digest::algorithm_t::SHA512;

std::string hexOf(const std::vector<uint8_t>& bytes)
{
    std::string text;
    char pair[3];
    for (uint8_t b : bytes) {
        std::snprintf(pair, sizeof pair, "%02x", b);
        text += pair;
    }
    return text;
}

std::string digestOf(Digest::algorithm_t algorithm, const std::string& text)
{
    Digest digest(algorithm);
    digest.update(text.data(), text.size());
    return hexOf(digest.value());
}

std::vector<uint8_t> randomBytes(std::mt19937& random, size_t size)
{
    std::vector<uint8_t> bytes(size);
    for (uint8_t& b : bytes)
        b = static_cast<uint8_t>(random());
    return bytes;
}

} // namespace

TEST(Digest, TheTestVectorsOfTheStandard)
{
    EXPECT_EQ(digestOf(SHA256, "abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(digestOf(SHA256, ""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(digestOf(SHA256, "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(digestOf(SHA512, "abc"), "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
                                       "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f");
    EXPECT_EQ(digestOf(SHA512, ""), "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
                                    "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e");
    EXPECT_EQ(digestOf(SHA512, "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqr"
                               "lmnopqrsmnopqrstnopqrstu"),
              "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018"
              "501d289e4900f7e4331b99dec4b5433ac7d329eeb6dd26545e96e55b874be909");
    // One million 'a'.
    Digest million256(SHA256), million512(SHA512);
    million256.updateFill('a', 1000000);
    million512.updateFill('a', 1000000);
    EXPECT_EQ(hexOf(million256.value()), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
    EXPECT_EQ(hexOf(million512.value()), "e718483d0ce769644e2e42c7bc15b4638e1f98b13b2044285632a803afa973eb"
                                         "de0ff244877ea60a4cb0432ce577c31beb009c5c2c49aa2e4eadb217ad8cc09b");
}

TEST(Digest, NamesSizesAndReset)
{
    EXPECT_EQ(Digest::findAlgorithm("sha256"), SHA256);
    EXPECT_EQ(Digest::findAlgorithm("sha512"), SHA512);
    EXPECT_EQ(Digest::findAlgorithm("SHA256"), std::nullopt);
    EXPECT_EQ(Digest::findAlgorithm("sha384"), std::nullopt);
    EXPECT_STREQ(Digest::algorithmName(SHA256), "sha256");
    EXPECT_STREQ(Digest::algorithmName(SHA512), "sha512");
    Digest digest(SHA512);
    EXPECT_EQ(digest.size(), 64u);
    EXPECT_EQ(Digest(SHA256).size(), 32u);
    digest.update("xyz", 3);
    const std::vector<uint8_t> partial = digest.value();
    // value() leaves the digest running.
    digest.update("abc", 3);
    EXPECT_NE(digest.value(), partial);
    digest.reset();
    digest.update("abc", 3);
    EXPECT_EQ(hexOf(digest.value()), digestOf(SHA512, "abc"));
}

TEST(Digest, PythonHashlibAgreesOnEveryLengthAroundTheBlocksInPiecesOfEverySize)
{
    TempDir dir;
    std::mt19937 random(29);
    const std::string scriptPath = dir.file("sha.py");
    std::ofstream(scriptPath) << "import sys, hashlib\n"
                                 "for path in sys.argv[1:]:\n"
                                 "    data = open(path, 'rb').read()\n"
                                 "    print(hashlib.sha256(data).hexdigest(), hashlib.sha512(data).hexdigest())\n";
    std::vector<std::string> args = {scriptPath};
    std::vector<std::vector<uint8_t>> inputs;
    std::vector<size_t> sizes;
    for (size_t size = 0; size <= 260; ++size)
        sizes.push_back(size);
    for (int i = 0; i < 20; ++i)
        sizes.push_back(261 + random() % 100000);
    for (size_t size : sizes) {
        inputs.push_back(randomBytes(random, size));
        const std::string path = dir.file("data" + std::to_string(inputs.size()));
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(inputs.back().data()), static_cast<std::streamsize>(size));
        args.push_back(path);
    }
    const ProcessResult python = runProcess(PYTHON3_PATH, args);
    ASSERT_EQ(python.exitCode, 0) << python.err;
    std::istringstream lines(python.out);
    for (const std::vector<uint8_t>& data : inputs) {
        std::string sha256, sha512;
        ASSERT_TRUE(lines >> sha256 >> sha512);
        // Whole, and in pieces of a random size each.
        Digest whole256(SHA256), whole512(SHA512), pieces256(SHA256), pieces512(SHA512);
        whole256.update(data.data(), data.size());
        whole512.update(data.data(), data.size());
        for (size_t at = 0; at < data.size();) {
            const size_t piece = std::min<size_t>(data.size() - at, random() % 300);
            pieces256.update(data.data() + at, piece);
            pieces512.update(data.data() + at, piece);
            at += piece;
        }
        EXPECT_EQ(hexOf(whole256.value()), sha256) << data.size() << " bytes";
        EXPECT_EQ(hexOf(whole512.value()), sha512) << data.size() << " bytes";
        EXPECT_EQ(hexOf(pieces256.value()), sha256) << data.size() << " bytes";
        EXPECT_EQ(hexOf(pieces512.value()), sha512) << data.size() << " bytes";
    }
}

TEST(Digest, ARangeOfAnImageIsItsBytesWithFillInTheGaps)
{
    std::mt19937 random(30);
    for (int i = 0; i < 20; ++i) {
        const MemoryImage image = randomImage(random, false, true);
        const uint32_t start = image.lowestAddress() - static_cast<uint32_t>(random() % 3 == 0 ? 0 : random() % 100);
        const uint64_t end = std::min<uint64_t>(image.highestAddress() + uint64_t{1} + random() % 100, 1ull << 32);
        const uint8_t fill = static_cast<uint8_t>(random());
        const std::vector<uint8_t> flat = image.copyRange(start, static_cast<size_t>(end - start), fill);
        for (Digest::algorithm_t algorithm : {SHA256, SHA512}) {
            Digest fromImage(algorithm), fromFlat(algorithm);
            fromImage.updateImage(image, range_t{start, end}, fill);
            fromFlat.update(flat.data(), flat.size());
            EXPECT_EQ(fromImage.value(), fromFlat.value()) << i;
        }
    }
}

TEST(Digest, InsertStoresTheDigestInTheStandardsOrder)
{
    MemoryImage image;
    ASSERT_TRUE(image.write(0x1000, reinterpret_cast<const uint8_t*>("abc"), 3));
    ASSERT_TRUE(Digest::insert(image, SHA256, range_t{0x1000, 0x1003}, 0xFF, 0x2000));
    EXPECT_EQ(hexOf(image.copyRange(0x2000, 32)), digestOf(SHA256, "abc"));
    // The gap up to the end of the range counts as fill.
    ASSERT_TRUE(Digest::insert(image, SHA512, range_t{0x1000, 0x1005}, 0x01, 0x3000));
    EXPECT_EQ(hexOf(image.copyRange(0x3000, 64)), digestOf(SHA512, std::string("abc\x01\x01")));

    const MemoryImage before = image;
    result_t result = Digest::insert(image, SHA256, range_t{0x1000, 0x1010}, 0xFF, 0x0FF0);
    EXPECT_EQ(result.status, status_t::BAD_ARGUMENT);
    EXPECT_EQ(result.reason,
              "the sha256 digest at 0x00000FF0 would lie inside the range it covers, 0x00001000:0x00001010");
    EXPECT_EQ(result.address, 0x0FF0u);
    result = Digest::insert(image, SHA512, range_t{0x1000, 0x1010}, 0xFF, 0xFFFFFFC1);
    EXPECT_EQ(result.status, status_t::OUT_OF_RANGE);
    EXPECT_EQ(result.reason, "the sha512 digest at 0xFFFFFFC1 would run past address 0xFFFFFFFF");
    EXPECT_EQ(segmentsOf(image), segmentsOf(before));
    // Right up to the top of the address space.
    ASSERT_TRUE(Digest::insert(image, SHA512, range_t{0x1000, 0x1003}, 0xFF, 0xFFFFFFC0));
    EXPECT_EQ(image.highestAddress(), 0xFFFFFFFFu);
}

#if HEXBLOCKS_SHA256_EXTENSIONS
TEST(Digest, TheProcessorsShaExtensionsGiveWhatThePortableCodeGives)
{
    // Digest takes the extensions where the processor has them; the
    // portable block function is checked against them here, and on its
    // own (through Digest) on every other processor.
    if (!detail::hasSha256Extensions())
        GTEST_SKIP() << "this processor has no SHA extensions";
    std::mt19937 random(31);
    for (size_t blocks : {0u, 1u, 2u, 7u, 100u}) {
        const std::vector<uint8_t> data = randomBytes(random, 64 * blocks);
        uint64_t portable[8], extensions[8];
        for (int i = 0; i < 8; ++i)
            portable[i] = extensions[i] = random();
        for (uint64_t& word : portable)
            word &= 0xFFFFFFFF;
        std::copy(portable, portable + 8, extensions);
        detail::sha256Blocks(portable, data.data(), blocks);
        detail::sha256BlocksWithExtensions(extensions, data.data(), blocks);
        EXPECT_EQ(std::vector<uint64_t>(portable, portable + 8), std::vector<uint64_t>(extensions, extensions + 8))
            << blocks << " blocks";
    }
}
#endif
