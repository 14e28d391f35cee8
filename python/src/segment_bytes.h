// Read-only views of a segment's bytes, without a copy: a memoryview over a
// small exporter object that keeps the image alive and counts the views in
// use, so that the image refuses to change while one is.
#ifndef HEXBLOCKS_PYTHON_SEGMENT_BYTES_H
#define HEXBLOCKS_PYTHON_SEGMENT_BYTES_H

#include "bindings.h"
#include "image.h"

namespace hexblocks::python {

// Makes the exporter type; once, when the module is imported.
void defineSegmentBytes(py::module_& m);

// A read-only memoryview of size bytes at data, which lie in the image that
// owner (a Python Image) holds.
py::memoryview segmentView(const py::object& owner, PyImage& image, const uint8_t* data, size_t size);

} // namespace hexblocks::python

#endif // HEXBLOCKS_PYTHON_SEGMENT_BYTES_H
