// The image as Python holds it: a MemoryImage, and what keeps the views of
// its bytes that Python code holds valid.
#ifndef HEXBLOCKS_PYTHON_IMAGE_H
#define HEXBLOCKS_PYTHON_IMAGE_H

#include <hexblocks/memory_image.h>

#include <cstddef>
#include <cstdint>

namespace hexblocks::python {

struct PyImage {
    MemoryImage image;
    size_t exports = 0;   // buffers over the image's bytes in use (memoryviews)
    uint64_t version = 0; // counts the changes to the image

    // Before any change: raises BufferError while a view of the bytes is
    // in use (the change could move the bytes under it), then counts the
    // change.
    void willChange();
};

} // namespace hexblocks::python

#endif // HEXBLOCKS_PYTHON_IMAGE_H
