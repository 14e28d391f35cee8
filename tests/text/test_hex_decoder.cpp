// The hex decoders: every decoder this build and processor have gives the
// scalar decoder's bytes, sum and verdict on every input, whatever the
// length and however much can be read past the digits; none writes past its
// slack; and selecting a decoder makes the record scanner use it.
#include "hex_decoder.h"
#include "record_scanner.h"

#include <gtest/gtest.h>

#include <dirent.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace hexblocks::detail;

const hexdecoder_t ALL_DECODERS[] = {hexdecoder_t::SCALAR, hexdecoder_t::SSE2, hexdecoder_t::NEON};

std::vector<hexdecoder_t> availableDecoders()
{
    std::vector<hexdecoder_t> decoders;
    for (hexdecoder_t decoder : ALL_DECODERS)
        if (hexDecoderAvailable(decoder))
            decoders.push_back(decoder);
    return decoders;
}

// What one decoder made of some digits.
struct Decoded {
    bool valid = false;
    std::vector<uint8_t> bytes; // count bytes, then the slack
    uint8_t sum = 0;
};

const uint8_t UNTOUCHED = 0xA5;

// Decodes count bytes from text at offset, with readable characters from
// there on; the output has guard bytes past the slack.
Decoded decodeWith(hexdecoder_t decoder, const std::string& text, size_t offset, size_t count, size_t readable)
{
    Decoded result;
    std::vector<uint8_t> out(count + HEX_DECODE_SLACK + 16, UNTOUCHED);
    result.sum = 0x5A; // the decoders add to it
    result.valid = decodeHexWith(decoder, text.data() + offset, count, readable, out.data(), result.sum);
    for (size_t i = count + HEX_DECODE_SLACK; i < out.size(); ++i)
        EXPECT_EQ(out[i], UNTOUCHED) << hexDecoderName(decoder) << " wrote past its slack at " << i;
    out.resize(count + HEX_DECODE_SLACK);
    result.bytes = out;
    return result;
}

// Checks every available decoder against the scalar one on one input.
void expectAllAgree(const std::string& text, size_t offset, size_t count, size_t readable, const std::string& what)
{
    const Decoded reference = decodeWith(hexdecoder_t::SCALAR, text, offset, count, readable);
    for (hexdecoder_t decoder : availableDecoders()) {
        const Decoded got = decodeWith(decoder, text, offset, count, readable);
        ASSERT_EQ(got.valid, reference.valid) << hexDecoderName(decoder) << ": " << what;
        if (!reference.valid)
            continue;
        ASSERT_EQ(got.sum, reference.sum) << hexDecoderName(decoder) << ": " << what;
        ASSERT_TRUE(std::equal(reference.bytes.begin(), reference.bytes.begin() + static_cast<long>(count),
                               got.bytes.begin()))
            << hexDecoderName(decoder) << ": " << what;
    }
}

std::string randomDigits(std::mt19937& random, size_t length)
{
    static const char DIGITS[] = "0123456789ABCDEFabcdef";
    std::string text(length, '0');
    for (char& c : text)
        c = DIGITS[random() % 22];
    return text;
}

TEST(HexDecoder, ScalarDecodesPairsOfEitherCase)
{
    const std::string text = "00ff7FaB10c9";
    uint8_t bytes[6 + HEX_DECODE_SLACK];
    uint8_t sum = 1;
    ASSERT_TRUE(decodeHexWith(hexdecoder_t::SCALAR, text.data(), 6, text.size(), bytes, sum));
    EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 6), (std::vector<uint8_t>{0x00, 0xFF, 0x7F, 0xAB, 0x10, 0xC9}));
    EXPECT_EQ(sum, static_cast<uint8_t>(1 + 0x00 + 0xFF + 0x7F + 0xAB + 0x10 + 0xC9));
}

TEST(HexDecoder, ScalarRefusesEveryOtherCharacter)
{
    for (int c = 0; c < 256; ++c) {
        std::string text = "0000";
        text[1] = static_cast<char>(c);
        uint8_t bytes[2 + HEX_DECODE_SLACK];
        uint8_t sum = 0;
        const bool isDigit = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
        EXPECT_EQ(decodeHexWith(hexdecoder_t::SCALAR, text.data(), 2, 4, bytes, sum), isDigit) << c;
    }
}

TEST(HexDecoder, TheBuildHasTheDecodersOfItsProcessor)
{
    EXPECT_TRUE(hexDecoderAvailable(hexdecoder_t::SCALAR));
#if defined(__x86_64__)
    EXPECT_TRUE(hexDecoderAvailable(hexdecoder_t::SSE2));
    EXPECT_FALSE(hexDecoderAvailable(hexdecoder_t::NEON));
#elif defined(__arm__) && defined(__GNUC__) && !defined(__clang__)
    // qemu-arm's default processor, like most ARM Linux boards, has NEON.
    EXPECT_TRUE(hexDecoderAvailable(hexdecoder_t::NEON));
    EXPECT_FALSE(hexDecoderAvailable(hexdecoder_t::SSE2));
#endif
    EXPECT_STREQ(hexDecoderName(hexdecoder_t::SCALAR), "scalar");
    EXPECT_STREQ(hexDecoderName(hexdecoder_t::SSE2), "sse2");
    EXPECT_STREQ(hexDecoderName(hexdecoder_t::NEON), "neon");
}

TEST(HexDecoder, TheBestAvailableDecoderIsInUse)
{
    // The tests run without HEXBLOCKS_HEX_DECODER.
    const hexdecoder_t expected = hexDecoderAvailable(hexdecoder_t::SSE2)   ? hexdecoder_t::SSE2
                                  : hexDecoderAvailable(hexdecoder_t::NEON) ? hexdecoder_t::NEON
                                                                            : hexdecoder_t::SCALAR;
    EXPECT_EQ(hexDecoder(), expected);
}

TEST(HexDecoder, EveryLengthAndReadableRoomAgrees)
{
    std::mt19937 random(7);
    for (size_t count = 0; count <= 70; ++count)
        for (size_t room = 0; room <= 40; ++room) {
            const std::string text = randomDigits(random, 2 * count + room);
            expectAllAgree(text, 0, count, text.size(),
                           "count " + std::to_string(count) + ", room " + std::to_string(room));
        }
}

TEST(HexDecoder, RecordSizedInputsAgree)
{
    // Up to a whole record's bytes, at every alignment in a larger text.
    std::mt19937 random(11);
    for (int round = 0; round < 3000; ++round) {
        const size_t count = random() % (MAX_RECORD_BYTES + 1);
        const size_t offset = random() % 17;
        const size_t room = random() % 48;
        const std::string text = randomDigits(random, offset + 2 * count + room);
        expectAllAgree(text, offset, count, text.size() - offset, "round " + std::to_string(round));
    }
}

TEST(HexDecoder, EveryCharacterAtEveryPositionIsJudgedAlike)
{
    // Each of the 256 byte values in each place of a 16-byte record's digits
    // (42), with and without room to read past them, in either case.
    std::mt19937 random(13);
    for (size_t room : {size_t(0), size_t(6), size_t(32)}) {
        const std::string digits = randomDigits(random, 42 + room);
        for (size_t position = 0; position < 42; ++position)
            for (int c = 0; c < 256; ++c) {
                std::string text = digits;
                text[position] = static_cast<char>(c);
                expectAllAgree(text, 0, 21, text.size(),
                               "character " + std::to_string(c) + " at " + std::to_string(position));
            }
    }
}

TEST(HexDecoder, BadCharactersPastTheDigitsAreNotLookedAt)
{
    // The characters after the digits (a line end, the next line) are read
    // by the vector decoders but must not count.
    for (size_t count = 1; count <= 40; ++count) {
        std::string text(2 * count, 'f');
        text += std::string(40, '\n');
        expectAllAgree(text, 0, count, text.size(), "count " + std::to_string(count));
        for (hexdecoder_t decoder : availableDecoders())
            EXPECT_TRUE(decodeWith(decoder, text, 0, count, text.size()).valid) << hexDecoderName(decoder);
    }
}

TEST(HexDecoder, LongRunsOfDigitsSumModulo256)
{
    // More bytes than a record, so that the vector sums wrap many times.
    std::mt19937 random(17);
    for (size_t count : {size_t(256), size_t(1000), size_t(4096), size_t(70000)}) {
        const std::string text(2 * count, 'F');
        expectAllAgree(text, 0, count, text.size(), "all 0xFF, " + std::to_string(count));
        expectAllAgree(randomDigits(random, 2 * count), 0, count, 2 * count, "random, " + std::to_string(count));
    }
}

// The records the scanner finds, as text.
template <linerules_t RULES> std::string scanRecords(const std::string& text)
{
    std::string found;
    MemoryText source(text.data(), text.size());
    RecordScanner<RULES> scanner;
    const scanend_t end = scanner.scan(source, [&](const scannedrecord_t& r) {
        found += std::to_string(r.line) + ":" + std::to_string(r.type) + ":" + std::to_string(r.offset) + ":";
        for (size_t i = 0; i < r.length; ++i)
            found += std::to_string(r.data[i]) + ",";
        found += "\n";
        return true;
    });
    found += "end " + std::to_string(static_cast<int>(end)) + " line " + std::to_string(scanner.badLine().line) +
             " " + scanner.badLine().reason;
    return found;
}

TEST(HexDecoder, KeptFuzzInputsAgree)
{
    // As the fuzz target reads them: the first byte's low six bits are the
    // room past the digits, the rest the characters.
    const std::string dir = std::string(HEXBLOCKS_TEST_DATA_DIR) + "/regressions/decoder";
    size_t files = 0;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d)) {
            if (e->d_name[0] == '.')
                continue;
            std::ifstream in(dir + "/" + e->d_name, std::ios::binary);
            const std::string input((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            ASSERT_GE(input.size(), 2u) << e->d_name;
            const size_t room = static_cast<unsigned char>(input[0]) & 0x3F;
            const std::string text = input.substr(1);
            const size_t count = (text.size() > room ? text.size() - room : 0) / 2;
            expectAllAgree(text, 0, count, text.size(), e->d_name);
            ++files;
        }
        closedir(d);
    }
    EXPECT_GE(files, 1u);
}

TEST(HexDecoder, SelectingADecoderMakesTheScannerUseIt)
{
    const hexdecoder_t before = hexDecoder();
    const std::string hex = ":10010000214601360121470136007EFE09D2190140\n"
                            ":100110002146017E17C20001FF5F16002148011928\n"
                            ":0400000500000000F7\n"
                            ":10012000194E79234623965778239EDA3F01B2CA3F\n" // a bad checksum
                            ":00000001FF\n";
    const std::string srec = "S00600004844521B\nS1130000285F245F2212226A000424290008237C2A\nS9030000FC\n";
    std::vector<std::string> hexResults, srecResults;
    for (hexdecoder_t decoder : availableDecoders()) {
        ASSERT_TRUE(selectHexDecoder(decoder));
        EXPECT_EQ(hexDecoder(), decoder);
        hexResults.push_back(scanRecords<linerules_t::FULL_FORMAT>(hex));
        srecResults.push_back(scanRecords<linerules_t::SRECORD>(srec));
    }
    ASSERT_TRUE(selectHexDecoder(before));
    for (size_t i = 1; i < hexResults.size(); ++i) {
        EXPECT_EQ(hexResults[i], hexResults[0]);
        EXPECT_EQ(srecResults[i], srecResults[0]);
    }
    EXPECT_NE(hexResults[0].find("checksum error"), std::string::npos) << hexResults[0];
    EXPECT_NE(hexResults[0].find("1:0:256:33,70,1,54,1,33,71,1,54,0,126,254,9,210,25,1,"), std::string::npos)
        << hexResults[0];
}

TEST(HexDecoder, AnUnavailableDecoderIsNotSelected)
{
    const hexdecoder_t before = hexDecoder();
    for (hexdecoder_t decoder : ALL_DECODERS)
        if (!hexDecoderAvailable(decoder)) {
            EXPECT_FALSE(selectHexDecoder(decoder));
            EXPECT_EQ(hexDecoder(), before);
        }
}

} // namespace
