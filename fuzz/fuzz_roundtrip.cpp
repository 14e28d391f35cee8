// Round trips: an image made from the input (segments anywhere in the 32-bit
// address space, up to its very top, a start address of either kind or none,
// an S-record header) is written as Intel HEX, as S-records and as a flat
// binary with the options the input picks, and each is read back: it must be
// the same image, start address included. A write may fail only for the
// reasons the writers give (segment addressing past 1 MiB, an address size
// too small); it must then say why.
#include "fuzz_common.h"
#include "formats.h"
#include "memory_image.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <string>
#include <vector>

using namespace hexblocks;

namespace {

MemoryImage imageFrom(FuzzedDataProvider& input)
{
    MemoryImage image;
    const unsigned segments = input.ConsumeIntegralInRange<unsigned>(0, 6);
    for (unsigned i = 0; i < segments; ++i) {
        // Addresses near 0, near a 64 KiB or 1 MiB edge, near the top, or anywhere.
        uint32_t address = input.ConsumeIntegral<uint32_t>();
        switch (input.ConsumeIntegralInRange<int>(0, 4)) {
        case 0:
            address &= 0xFFF;
            break;
        case 1:
            address = (address & 0xFFFF0000u) - (address & 0x3F);
            break;
        case 2:
            address = 0x100000u - (address & 0xFF);
            break;
        case 3:
            address = 0xFFFFFFFFu - (address & 0x1FF);
            break;
        default:
            break;
        }
        const size_t length = input.ConsumeIntegralInRange<size_t>(1, 600);
        std::vector<uint8_t> bytes = input.ConsumeBytes<uint8_t>(length);
        if (bytes.empty())
            bytes.push_back(0);
        const size_t room = static_cast<size_t>(0x100000000ull - address);
        if (bytes.size() > room)
            bytes.resize(room);
        FUZZ_CHECK(image.write(address, bytes.data(), bytes.size()));
    }
    switch (input.ConsumeIntegralInRange<int>(0, 2)) {
    case 1:
        FUZZ_CHECK(image.setStartAddress(start_address_t{5, input.ConsumeIntegral<uint32_t>()}));
        break;
    case 2:
        FUZZ_CHECK(image.setStartAddress(start_address_t{3, input.ConsumeIntegral<uint32_t>()}));
        break;
    default:
        break;
    }
    std::string header = input.ConsumeRandomLengthString(40);
    if (!image.setHeader(header))
        image.setHeader("");
    return image;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider input(data, size);
    write_options_t hex;
    hex.recordSize = input.ConsumeIntegralInRange<unsigned>(1, 255);
    hex.addressing = input.ConsumeBool() ? addressing_t::SEGMENT : addressing_t::LINEAR;
    hex.crlf = input.ConsumeBool();
    write_options_t srec;
    srec.format = file_format_t::SRECORD;
    srec.addressSize = input.ConsumeIntegralInRange<unsigned>(0, 4);
    if (srec.addressSize == 1)
        srec.addressSize = 0;
    srec.recordSize = input.ConsumeIntegralInRange<unsigned>(1, 250);
    srec.crlf = input.ConsumeBool();
    write_options_t binary;
    binary.format = file_format_t::BINARY;
    binary.fill = input.ConsumeIntegral<uint8_t>();

    const MemoryImage image = imageFrom(input);
    checkReadBack(image, hex);
    checkReadBack(image, srec);
    checkReadBack(image, binary);
    return 0;
}
