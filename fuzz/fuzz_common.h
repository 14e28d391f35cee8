// Helpers shared by the fuzz targets.
#ifndef HEXBLOCKS_FUZZ_COMMON_H
#define HEXBLOCKS_FUZZ_COMMON_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

// The library's diagnostics would flood the fuzzer's output: a stream in a
// failed state prints nothing.
inline void silenceDiagnostics()
{
    std::cout.setstate(std::ios::badbit);
    std::cerr.setstate(std::ios::badbit);
}

// Every target starts with the library's diagnostics silenced.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    silenceDiagnostics();
    return 0;
}

// What the library prints while an object of this class lives, kept
// instead of printed.
class CapturedStreams {
public:
    CapturedStreams() : out_(std::cout.rdbuf(outText_.rdbuf())), err_(std::cerr.rdbuf(errText_.rdbuf()))
    {
        std::cout.clear();
        std::cerr.clear();
    }
    ~CapturedStreams()
    {
        std::cout.rdbuf(out_);
        std::cerr.rdbuf(err_);
        silenceDiagnostics();
    }
    CapturedStreams(const CapturedStreams&) = delete;
    CapturedStreams& operator=(const CapturedStreams&) = delete;
    std::string text() const { return outText_.str() + "\n--- stderr\n" + errText_.str(); }

private:
    std::ostringstream outText_, errText_;
    std::streambuf* out_;
    std::streambuf* err_;
};

#define FUZZ_CHECK(condition)                                                                                     \
    do {                                                                                                          \
        if (!(condition)) {                                                                                       \
            std::fprintf(stderr, "check failed: %s (%s:%d)\n", #condition, __FILE__, __LINE__);                  \
            std::abort();                                                                                         \
        }                                                                                                         \
    } while (0)

// Checks what every image read must be: segments with bytes, ascending with
// a gap between each two, within the 32-bit address space.
#include "formats.h"
#include "memory_image.h"

using namespace hexblocks;

inline void checkSegments(const MemoryImage& image)
{
    const auto& segments = image.segments();
    for (size_t i = 0; i < segments.size(); ++i) {
        FUZZ_CHECK(!segments[i].bytes.empty());
        FUZZ_CHECK(segments[i].endAddress() <= 0x100000000ull);
        FUZZ_CHECK(i == 0 || segments[i - 1].endAddress() < segments[i].address);
    }
}

inline bool sameSegments(const MemoryImage& a, const MemoryImage& b)
{
    if (a.segments().size() != b.segments().size())
        return false;
    for (size_t i = 0; i < a.segments().size(); ++i)
        if (a.segments()[i].address != b.segments()[i].address || a.segments()[i].bytes != b.segments()[i].bytes)
            return false;
    return true;
}

// The start address as the linear address it stands for; 0 for none, as
// S-records cannot tell the two apart.
inline uint64_t linearStart(const MemoryImage& image)
{
    if (!image.hasStartAddress())
        return 0;
    const start_address_t start = image.startAddress();
    return start.type == 3 ? static_cast<uint64_t>(start.value >> 16) * 16 + (start.value & 0xFFFF) : start.value;
}

// An image read back from text that save() wrote must be the image saved:
// the same segments, and the same start address (S-records hold only the
// address it stands for) and header (S-records only).
inline void checkReadBack(const MemoryImage& image, const write_options_t& options)
{
    // A flat binary of two bytes far apart would be gigabytes; 64 KiB is
    // enough to see gaps filled.
    if (options.format == file_format_t::BINARY && image.span() > 0x10000)
        return;
    std::ostringstream out;
    const result_t saved = writeStream(image, out, options);
    FUZZ_CHECK(saved.ok() == saved.reason.empty());
    if (!saved.ok())
        return;
    const std::string text = out.str();
    read_options_t readOptions;
    readOptions.detect = false;
    readOptions.format = options.format;
    readOptions.address = image.empty() ? 0 : image.lowestAddress();
    MemoryImage read;
    const read_result_t result = readMemory(read, text.data(), text.size(), readOptions);
    FUZZ_CHECK(result.ok() && result.warnings.empty());
    if (options.format == file_format_t::BINARY) {
        // The flat image from the lowest to the highest address.
        if (image.empty()) {
            FUZZ_CHECK(read.empty());
            return;
        }
        FUZZ_CHECK(read.segments().size() == 1 && read.lowestAddress() == image.lowestAddress());
        FUZZ_CHECK(read.segments()[0].bytes ==
                   image.copyRange(image.lowestAddress(), static_cast<size_t>(image.span()), options.fill));
        return;
    }
    FUZZ_CHECK(sameSegments(read, image));
    if (options.format == file_format_t::INTEL_HEX) {
        FUZZ_CHECK(read.hasStartAddress() == image.hasStartAddress());
        FUZZ_CHECK(read.startAddress().type == image.startAddress().type);
        FUZZ_CHECK(read.startAddress().value == image.startAddress().value);
    } else {
        FUZZ_CHECK(linearStart(read) == linearStart(image));
        FUZZ_CHECK(read.header() == image.header());
    }
}

// An image read from arbitrary bytes, written in each format and read back.
inline void checkReadBackInEveryFormat(const MemoryImage& image)
{
    for (file_format_t format : {file_format_t::INTEL_HEX, file_format_t::SRECORD,
                                             file_format_t::BINARY}) {
        write_options_t options;
        options.format = format;
        checkReadBack(image, options);
    }
}

#endif
