// The writers: a MemoryImage as Intel HEX, S-records or raw binary, into a
// sink in large pieces. They format into a buffer of their own, so the
// whole text never has to be held in memory.
//
// Internal to the library: not installed.
#ifndef INTELHEX_IMAGE_WRITER_H
#define INTELHEX_IMAGE_WRITER_H

#include "memory_image.h"

#include <cstddef>

namespace intelhex_internal {

// Where written bytes go.
class ByteSink {
public:
    virtual ~ByteSink() = default;
    // Takes all of size bytes; false when they could not be written.
    virtual bool put(const char* bytes, size_t size) = 0;
    // Why the last put() failed.
    virtual std::string failure() const = 0;
};

// Checks that image can be written with options; on failure says why.
MemoryImage::result_t checkSaveOptions(const MemoryImage& image, const MemoryImage::saveoptions_t& options);

// Writes image to sink as options say. Checks the options first and writes
// nothing when they do not fit the image.
MemoryImage::result_t writeImage(const MemoryImage& image, const MemoryImage::saveoptions_t& options, ByteSink& sink);

} // namespace intelhex_internal

#endif // INTELHEX_IMAGE_WRITER_H
