// Checksum: every named algorithm's check value, the sliced CRC against a
// bit-by-bit model for random parameters and data, Python's zlib and
// binascii as independent judges, ranges of images with fill, and storing a
// value into an image.
#include "checksum.h"

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

const std::string NINE = "123456789";

// The CRC model computed one bit at a time, as it is defined.
uint32_t bitwiseCrc(const Checksum::crc_model_t& m, const std::vector<uint8_t>& data)
{
    const uint32_t top = 1u << (m.width - 1);
    const uint32_t mask = m.width == 32 ? 0xFFFFFFFFu : (1u << m.width) - 1;
    uint32_t reg = m.init;
    for (uint8_t byte : data) {
        for (int bit = 0; bit < 8; ++bit) {
            const int which = m.reflectIn ? bit : 7 - bit;
            const bool in = (byte >> which) & 1;
            const bool out = (reg & top) != 0;
            reg = (reg << 1) & mask;
            if (in != out)
                reg ^= m.poly;
        }
    }
    if (m.reflectOut) {
        uint32_t r = 0;
        for (unsigned i = 0; i < m.width; ++i)
            if (reg & (1u << i))
                r |= 1u << (m.width - 1 - i);
        reg = r;
    }
    return (reg ^ m.xorOut) & mask;
}

// What an algorithm gives for data, by the models: the bit-by-bit CRC,
// words reversed and padded for STM32, plain sums.
uint32_t referenceValue(const Checksum::algorithm_t& a, std::vector<uint8_t> data, uint8_t padding = 0xFF)
{
    switch (a.kind) {
    case Checksum::kind_t::SUM8:
    case Checksum::kind_t::SUM16: {
        uint32_t sum = 0;
        for (uint8_t b : data)
            sum += b;
        return sum & (a.kind == Checksum::kind_t::SUM8 ? 0xFF : 0xFFFF);
    }
    case Checksum::kind_t::STM32:
        while (data.size() % 4 != 0)
            data.push_back(padding);
        for (size_t i = 0; i < data.size(); i += 4)
            std::reverse(data.begin() + static_cast<long>(i), data.begin() + static_cast<long>(i + 4));
        break;
    case Checksum::kind_t::CRC:
        break;
    }
    return bitwiseCrc(a.crc, data);
}

uint32_t valueOf(const Checksum::algorithm_t& a, const std::vector<uint8_t>& data)
{
    Checksum checksum(a);
    checksum.update(data.data(), data.size());
    return checksum.value();
}

std::vector<uint8_t> bytesOf(const std::string& text)
{
    return std::vector<uint8_t>(text.begin(), text.end());
}

std::vector<uint8_t> randomBytes(std::mt19937& random, size_t size)
{
    std::vector<uint8_t> bytes(size);
    for (uint8_t& b : bytes)
        b = static_cast<uint8_t>(random());
    return bytes;
}

Checksum::algorithm_t named(const std::string& name)
{
    Checksum::algorithm_t a;
    EXPECT_TRUE(Checksum::findAlgorithm(name, a)) << name;
    return a;
}

} // namespace

TEST(Checksum, EveryNamedAlgorithmGivesItsCheckValue)
{
    const std::vector<std::pair<std::string, uint32_t>> expected = {
        {"crc32", 0xCBF43926},        {"crc32c", 0xE3069283},       {"crc32-mpeg2", 0x0376E6E7},
        {"crc32-bzip2", 0xFC891918},  {"crc16-ccitt-false", 0x29B1}, {"crc16-xmodem", 0x31C3},
        {"crc16-kermit", 0x2189},     {"crc16-modbus", 0x4B37},     {"crc16-arc", 0xBB3D},
        {"crc8", 0xF4},               {"stm32", 0xD9020D98},        {"sum8", 0xDD},
        {"sum16", 0x01DD}};
    ASSERT_EQ(Checksum::algorithms().size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        const Checksum::algorithm_t& a = Checksum::algorithms()[i];
        EXPECT_EQ(a.name, expected[i].first);
        EXPECT_EQ(a.check, expected[i].second) << a.name;
        EXPECT_EQ(valueOf(a, bytesOf(NINE)), expected[i].second) << a.name;
        EXPECT_EQ(referenceValue(a, bytesOf(NINE)), expected[i].second) << a.name << ": the model itself";
    }
}

TEST(Checksum, NamedAlgorithmsHaveTheirParameters)
{
    const Checksum::algorithm_t kermit = named("crc16-kermit");
    EXPECT_EQ(kermit.kind, Checksum::kind_t::CRC);
    EXPECT_EQ(kermit.crc.width, 16u);
    EXPECT_EQ(kermit.crc.poly, 0x1021u);
    EXPECT_EQ(kermit.crc.init, 0u);
    EXPECT_TRUE(kermit.crc.reflectIn);
    EXPECT_TRUE(kermit.crc.reflectOut);
    EXPECT_EQ(kermit.crc.xorOut, 0u);
    const Checksum::algorithm_t stm32 = named("stm32");
    EXPECT_EQ(stm32.kind, Checksum::kind_t::STM32);
    EXPECT_EQ(stm32.crc.poly, 0x04C11DB7u);
    EXPECT_FALSE(stm32.crc.reflectIn);
    Checksum::algorithm_t none;
    EXPECT_FALSE(Checksum::findAlgorithm("crc64", none));
    EXPECT_FALSE(Checksum::findAlgorithm("CRC32", none));
}

TEST(Checksum, SizeIsTheBytesOfTheValue)
{
    EXPECT_EQ(Checksum(named("crc32")).size(), 4u);
    EXPECT_EQ(Checksum(named("stm32")).size(), 4u);
    EXPECT_EQ(Checksum(named("crc16-arc")).size(), 2u);
    EXPECT_EQ(Checksum(named("sum16")).size(), 2u);
    EXPECT_EQ(Checksum(named("crc8")).size(), 1u);
    EXPECT_EQ(Checksum(named("sum8")).size(), 1u);
}

TEST(Checksum, MatchesTheBitwiseModelForRandomDataInRandomPieces)
{
    std::mt19937 random(13);
    for (const Checksum::algorithm_t& a : Checksum::algorithms()) {
        for (int round = 0; round < 20; ++round) {
            const std::vector<uint8_t> data = randomBytes(random, random() % 600);
            Checksum checksum(a, 0xA5);
            size_t at = 0;
            while (at < data.size()) {
                const size_t piece = std::min<size_t>(data.size() - at, random() % 40);
                checksum.update(data.data() + at, piece);
                at += piece;
            }
            EXPECT_EQ(checksum.value(), referenceValue(a, data, 0xA5)) << a.name << ", " << data.size() << " bytes";
        }
    }
}

TEST(Checksum, CustomModelsOfEveryWidthMatchTheBitwiseModel)
{
    std::mt19937 random(21);
    for (int round = 0; round < 300; ++round) {
        const unsigned width = round % 3 == 0 ? 8 : round % 3 == 1 ? 16 : 32;
        const uint32_t mask = width == 32 ? 0xFFFFFFFFu : (1u << width) - 1;
        const Checksum::crc_model_t model{width, static_cast<uint32_t>(random()) & mask,
                                         static_cast<uint32_t>(random()) & mask, (random() & 1) != 0,
                                         (random() & 1) != 0, static_cast<uint32_t>(random()) & mask};
        std::string reason;
        ASSERT_TRUE(Checksum::checkModel(model, reason)) << reason;
        const Checksum::algorithm_t custom{"custom", Checksum::kind_t::CRC, model, 0};
        const std::vector<uint8_t> data = randomBytes(random, random() % 100);
        EXPECT_EQ(valueOf(custom, data), bitwiseCrc(model, data)) << "width " << width << " poly " << model.poly;
    }
}

TEST(Checksum, CheckModelRejectsWidthsAndValuesThatDoNotFit)
{
    std::string reason;
    EXPECT_FALSE(Checksum::checkModel(Checksum::crc_model_t{12, 0x80F, 0, false, false, 0}, reason));
    EXPECT_EQ(reason, "a CRC is 8, 16 or 32 bits wide, not 12");
    EXPECT_FALSE(Checksum::checkModel(Checksum::crc_model_t{16, 0x18005, 0, true, true, 0}, reason));
    EXPECT_EQ(reason, "the polynomial does not fit in 16 bits");
    EXPECT_FALSE(Checksum::checkModel(Checksum::crc_model_t{8, 0x07, 0x100, false, false, 0}, reason));
    EXPECT_EQ(reason, "the initial value does not fit in 8 bits");
    EXPECT_FALSE(Checksum::checkModel(Checksum::crc_model_t{8, 0x07, 0, false, false, 0x1FF}, reason));
    EXPECT_EQ(reason, "the final XOR does not fit in 8 bits");
    EXPECT_TRUE(Checksum::checkModel(Checksum::crc_model_t{32, 0x04C11DB7, 0xFFFFFFFF, true, true, 0xFFFFFFFF}, reason));
}

TEST(Checksum, ValueLeavesTheChecksumGoingAndResetStartsAgain)
{
    for (const char* name : {"crc32", "stm32", "sum16"}) {
        Checksum checksum(named(name));
        checksum.update("12345", 5);
        const uint32_t partial = checksum.value();
        EXPECT_EQ(partial, referenceValue(named(name), bytesOf("12345"))) << name;
        EXPECT_EQ(checksum.value(), partial) << name;
        checksum.update("6789", 4);
        EXPECT_EQ(checksum.value(), named(name).check) << name;
        checksum.reset();
        EXPECT_EQ(checksum.value(), referenceValue(named(name), {})) << name;
    }
}

TEST(Checksum, Stm32PadsTheLastWordWithTheGivenByte)
{
    Checksum zeros(named("stm32"), 0x00);
    zeros.update("12345", 5);
    EXPECT_EQ(zeros.value(), bitwiseCrc(named("crc32-mpeg2").crc, bytesOf(std::string("4321") + '\0' + '\0' + '\0' + "5")));
    Checksum aligned(named("stm32"), 0x00);
    aligned.update("12345678", 8);
    EXPECT_EQ(aligned.value(), bitwiseCrc(named("crc32-mpeg2").crc, bytesOf("43218765")));
}

TEST(Checksum, UpdateFillIsTheSameAsTheBytes)
{
    for (const Checksum::algorithm_t& a : Checksum::algorithms()) {
        Checksum filled(a);
        filled.update("x", 1);
        filled.updateFill(0x5A, 10000);
        std::vector<uint8_t> bytes(1, 'x');
        bytes.resize(10001, 0x5A);
        EXPECT_EQ(filled.value(), referenceValue(a, bytes)) << a.name;
    }
}

TEST(Checksum, UpdateImageCountsAddressesWithoutDataAsFill)
{
    std::mt19937 random(5);
    for (int round = 0; round < 30; ++round) {
        const MemoryImage image = randomImage(random, false, true);
        const uint32_t start = image.lowestAddress() - std::min<uint32_t>(image.lowestAddress(), random() % 64);
        const uint64_t end = std::min<uint64_t>(image.lowestAddress() + image.span() + random() % 64, 0x100000000ull);
        const std::vector<uint8_t> flat = image.copyRange(start, static_cast<size_t>(end - start), 0x3C);
        for (const char* name : {"crc32", "crc16-modbus", "stm32"}) {
            Checksum checksum(named(name), 0x3C);
            checksum.updateImage(image, range_t{start, end}, 0x3C);
            EXPECT_EQ(checksum.value(), referenceValue(named(name), flat, 0x3C)) << name << ", round " << round;
        }
        // A range inside the image's data, and one beside it.
        Checksum inside(named("crc32"));
        const uint32_t from = image.segments()[0].address;
        inside.updateImage(image, range_t{from, from + 1ull}, 0x3C);
        EXPECT_EQ(inside.value(), valueOf(named("crc32"), {image.segments()[0].bytes[0]}));
    }
}

TEST(Checksum, UpdateImageReachesTheTopOfTheAddressSpace)
{
    MemoryImage image;
    const uint8_t top[2] = {0x12, 0x34};
    ASSERT_TRUE(image.write(0xFFFFFFFE, top, 2));
    Checksum checksum(named("crc32"));
    checksum.updateImage(image, range_t{0xFFFFFF00, 0x100000000ull}, 0xFF);
    std::vector<uint8_t> flat(256, 0xFF);
    flat[254] = 0x12;
    flat[255] = 0x34;
    EXPECT_EQ(checksum.value(), valueOf(named("crc32"), flat));
}

TEST(Checksum, PythonZlibAndBinasciiAgree)
{
    TempDir dir;
    std::mt19937 random(8);
    std::ostringstream script;
    script << "import sys, zlib, binascii\n"
              "for path in sys.argv[1:]:\n"
              "    data = open(path, 'rb').read()\n"
              "    print(zlib.crc32(data), binascii.crc_hqx(data, 0), binascii.crc_hqx(data, 0xFFFF))\n";
    const std::string scriptPath = dir.file("crc.py");
    std::ofstream(scriptPath) << script.str();
    std::vector<std::string> args = {scriptPath};
    std::vector<std::vector<uint8_t>> inputs;
    for (int i = 0; i < 40; ++i) {
        inputs.push_back(randomBytes(random, i == 0 ? 0 : random() % 5000));
        const std::string path = dir.file("data" + std::to_string(i));
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(inputs.back().data()), static_cast<std::streamsize>(inputs.back().size()));
        args.push_back(path);
    }
    const ProcessResult python = runProcess(PYTHON3_PATH, args);
    ASSERT_EQ(python.exitCode, 0) << python.err;
    std::istringstream lines(python.out);
    for (const std::vector<uint8_t>& data : inputs) {
        uint32_t crc32 = 0, xmodem = 0, ccitt = 0;
        ASSERT_TRUE(lines >> crc32 >> xmodem >> ccitt);
        EXPECT_EQ(valueOf(named("crc32"), data), crc32) << data.size() << " bytes";
        EXPECT_EQ(valueOf(named("crc16-xmodem"), data), xmodem) << data.size() << " bytes";
        EXPECT_EQ(valueOf(named("crc16-ccitt-false"), data), ccitt) << data.size() << " bytes";
    }
}

TEST(Checksum, InsertStoresTheValueInEitherByteOrder)
{
    MemoryImage image;
    const std::vector<uint8_t> nine = bytesOf(NINE);
    ASSERT_TRUE(image.write(0x1000, nine.data(), nine.size()));
    ASSERT_TRUE(Checksum::insert(image, named("crc32"), range_t{0x1000, 0x1009}, 0xFF, 0x1010,
                                 Checksum::byte_order_t::LITTLE));
    EXPECT_EQ(image.copyRange(0x1010, 4), (std::vector<uint8_t>{0x26, 0x39, 0xF4, 0xCB}));
    ASSERT_TRUE(Checksum::insert(image, named("crc16-xmodem"), range_t{0x1000, 0x1009}, 0xFF, 0x1014,
                                 Checksum::byte_order_t::BIG));
    EXPECT_EQ(image.copyRange(0x1014, 2), (std::vector<uint8_t>{0x31, 0xC3}));
    // The range's gap up to the value counts as fill.
    ASSERT_TRUE(Checksum::insert(image, named("sum8"), range_t{0x1000, 0x100C}, 0x01, 0x0FFF,
                                 Checksum::byte_order_t::BIG));
    EXPECT_EQ(image.copyRange(0x0FFF, 1), (std::vector<uint8_t>{0xDD + 3}));
}

TEST(Checksum, InsertRefusesAValueInsideItsRangeOrPastTheTop)
{
    MemoryImage image = imageOf({{0x2000, {1, 2, 3, 4, 5, 6, 7, 8}}});
    const std::vector<SegmentView> before = segmentsOf(image);
    result_t r = Checksum::insert(image, named("crc32"), range_t{0x2000, 0x2008}, 0xFF,
                                               0x2006, Checksum::byte_order_t::LITTLE);
    EXPECT_FALSE(r);
    EXPECT_EQ(r.reason, "the crc32 value at 0x00002006 would lie inside the range it covers, 0x00002000:0x00002008");
    r = Checksum::insert(image, named("crc32"), range_t{0x2000, 0x2008}, 0xFF, 0x1FFD,
                         Checksum::byte_order_t::LITTLE);
    EXPECT_FALSE(r) << "its last byte would be the range's first";
    r = Checksum::insert(image, named("crc32"), range_t{0x2000, 0x2008}, 0xFF, 0xFFFFFFFE,
                         Checksum::byte_order_t::LITTLE);
    EXPECT_FALSE(r);
    EXPECT_EQ(r.reason, "the crc32 value at 0xFFFFFFFE would run past address 0xFFFFFFFF");
    EXPECT_EQ(segmentsOf(image), before);
    // Just outside on both sides is fine.
    EXPECT_TRUE(Checksum::insert(image, named("crc32"), range_t{0x2000, 0x2008}, 0xFF, 0x1FFC,
                                 Checksum::byte_order_t::LITTLE));
    EXPECT_TRUE(Checksum::insert(image, named("crc32"), range_t{0x2000, 0x2008}, 0xFF, 0x2008,
                                 Checksum::byte_order_t::LITTLE));
    EXPECT_TRUE(Checksum::insert(image, named("crc8"), range_t{0x2000, 0x2008}, 0xFF, 0xFFFFFFFF,
                                 Checksum::byte_order_t::LITTLE));
}
