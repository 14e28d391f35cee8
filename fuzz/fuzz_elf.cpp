// The ELF reader: arbitrary bytes read from memory as ELF (32 or 64 bits,
// either byte order). It must never read outside the input, and must fail
// with a reason or give a well-formed image, which comes back the same
// through the HEX, S-record and binary writers; format detection must
// agree with it.
#include "fuzz_common.h"

#include <optional>
#include "formats.h"
#include "memory_image.h"

using namespace hexblocks;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    MemoryImage image;
    read_options_t options;
    options.detect = false;
    options.format = file_format_t::ELF;
    const read_result_t result = readMemory(image, data, size, options);
    FUZZ_CHECK(result.ok() == result.reason.empty());
    FUZZ_CHECK(result.ok() == (result.status == status_t::OK));
    if (detectFormat(data, size) == std::optional<file_format_t>(file_format_t::ELF)) {
        MemoryImage byDetection;
        const read_result_t detectedResult = readMemory(byDetection, data, size);
        FUZZ_CHECK(detectedResult.status == result.status && detectedResult.reason == result.reason);
        FUZZ_CHECK(sameSegments(byDetection, image));
    }
    if (!result.ok()) {
        FUZZ_CHECK(image.empty() && !image.hasStartAddress());
        return 0;
    }
    checkSegments(image);
    checkReadBackInEveryFormat(image);
    return 0;
}
