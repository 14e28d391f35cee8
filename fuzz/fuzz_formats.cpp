// Fuzzes the S-record and ELF readers and format detection through the
// public in-memory entry point, and checks that any image they read is
// written as Intel HEX and as S-records and read back the same. The first
// byte of the input picks the format: S-records, ELF, or told from the rest.
#include "fuzz_common.h"
#include "memory_image.h"

#include <sstream>
#include <string>

namespace {

// The start address as the linear address it stands for; 0 for none, as
// S-records cannot tell the two apart.
uint64_t linearStart(const MemoryImage& image)
{
    if (!image.hasStartAddress())
        return 0;
    const MemoryImage::startaddress_t start = image.startAddress();
    return start.type == 3 ? static_cast<uint64_t>(start.value >> 16) * 16 + (start.value & 0xFFFF) : start.value;
}

bool sameSegments(const MemoryImage& a, const MemoryImage& b)
{
    if (a.segments().size() != b.segments().size())
        return false;
    for (size_t i = 0; i < a.segments().size(); ++i)
        if (a.segments()[i].address != b.segments()[i].address || a.segments()[i].bytes != b.segments()[i].bytes)
            return false;
    return true;
}

void checkRoundTrip(const MemoryImage& image, MemoryImage::fileformat_t format)
{
    MemoryImage::saveoptions_t options;
    options.format = format;
    std::ostringstream out;
    FUZZ_CHECK(image.save(out, options));
    const std::string text = out.str();
    MemoryImage read;
    const MemoryImage::readresult_t result = read.readMemory(text.data(), text.size());
    FUZZ_CHECK(result.ok && result.warnings.empty());
    FUZZ_CHECK(sameSegments(read, image));
    if (format == MemoryImage::fileformat_t::INTEL_HEX) {
        FUZZ_CHECK(read.hasStartAddress() == image.hasStartAddress());
        FUZZ_CHECK(read.startAddress().type == image.startAddress().type);
        FUZZ_CHECK(read.startAddress().value == image.startAddress().value);
    } else {
        FUZZ_CHECK(linearStart(read) == linearStart(image));
        FUZZ_CHECK(read.header() == image.header());
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    silenceDiagnostics();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    MemoryImage::readoptions_t options;
    switch (data[0] % 3) {
    case 0:
        options.detect = false;
        options.format = MemoryImage::fileformat_t::SRECORD;
        break;
    case 1:
        options.detect = false;
        options.format = MemoryImage::fileformat_t::ELF;
        break;
    default:
        break;
    }
    MemoryImage image;
    const MemoryImage::readresult_t result = image.readMemory(data + 1, size - 1, options);
    FUZZ_CHECK(result.ok == result.reason.empty());
    if (!result.ok) {
        FUZZ_CHECK(image.empty() && !image.hasStartAddress());
        return 0;
    }
    const auto& segments = image.segments();
    for (size_t i = 0; i < segments.size(); ++i) {
        FUZZ_CHECK(!segments[i].bytes.empty());
        FUZZ_CHECK(segments[i].endAddress() <= 0x100000000ull);
        FUZZ_CHECK(i == 0 || segments[i - 1].endAddress() < segments[i].address);
    }
    checkRoundTrip(image, MemoryImage::fileformat_t::INTEL_HEX);
    checkRoundTrip(image, MemoryImage::fileformat_t::SRECORD);
    return 0;
}
