// The ELF reader: arbitrary bytes read from memory as ELF (32 or 64 bits,
// either byte order). It must never read outside the input, and must fail
// with a reason or give a well-formed image, which comes back the same
// through the HEX, S-record and binary writers; format detection must
// agree with it.
#include "fuzz_common.h"
#include "memory_image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    MemoryImage image;
    MemoryImage::readoptions_t options;
    options.detect = false;
    options.format = MemoryImage::fileformat_t::ELF;
    const MemoryImage::readresult_t result = image.readMemory(data, size, options);
    FUZZ_CHECK(result.ok == result.reason.empty());
    MemoryImage::fileformat_t detected;
    if (MemoryImage::detectFormat(data, size, detected) && detected == MemoryImage::fileformat_t::ELF) {
        MemoryImage byDetection;
        const MemoryImage::readresult_t detectedResult = byDetection.readMemory(data, size);
        FUZZ_CHECK(detectedResult.ok == result.ok && detectedResult.reason == result.reason);
        FUZZ_CHECK(sameSegments(byDetection, image));
    }
    if (!result.ok) {
        FUZZ_CHECK(image.empty() && !image.hasStartAddress());
        return 0;
    }
    checkSegments(image);
    checkReadBackInEveryFormat(image);
    return 0;
}
