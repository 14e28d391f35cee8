// The vector hex decoders against the scalar one on arbitrary text: for any
// count of byte pairs and any room to read past them, every decoder this
// build and processor have must give the scalar decoder's verdict, and when
// the digits are good, its bytes and sum; none may read past the room it is
// given (the sanitizer sees the input's end) or write past its slack.
#include "fuzz_common.h"
#include "hex_decoder.h"

#include <cstring>
#include <vector>

using namespace hexblocks::detail;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    // The first byte: how many of the characters that follow the digits
    // may be read (up to 63). The rest: the digits, then that room.
    const size_t room = data[0] & 0x3F;
    const char* digits = reinterpret_cast<const char*>(data + 1);
    const size_t characters = size - 1;
    const size_t count = (characters > room ? characters - room : 0) / 2;
    const size_t readable = characters;

    std::vector<uint8_t> reference(count + HEX_DECODE_SLACK);
    uint8_t referenceSum = 0x5A;
    const bool referenceValid =
        decodeHexWith(hexdecoder_t::SCALAR, digits, count, readable, reference.data(), referenceSum);
    for (hexdecoder_t decoder : {hexdecoder_t::SSE2, hexdecoder_t::NEON}) {
        if (!hexDecoderAvailable(decoder))
            continue;
        // Exactly the room a decoder may write to, so that the sanitizer
        // catches a write past it.
        std::vector<uint8_t> bytes(count + HEX_DECODE_SLACK);
        uint8_t sum = 0x5A;
        const bool valid = decodeHexWith(decoder, digits, count, readable, bytes.data(), sum);
        FUZZ_CHECK(valid == referenceValid);
        if (valid) {
            FUZZ_CHECK(sum == referenceSum);
            FUZZ_CHECK(std::memcmp(bytes.data(), reference.data(), count) == 0);
        }
    }
    return 0;
}
