// The native module's parts, each binding one part of the library's public
// API, and what they share: raising the package's exceptions, and the
// package's named tuples.
#ifndef HEXBLOCKS_PYTHON_BINDINGS_H
#define HEXBLOCKS_PYTHON_BINDINGS_H

#include <hexblocks/formats.h>
#include <hexblocks/memory_image.h>
#include <hexblocks/result.h>

#include <pybind11/pybind11.h>

#include <string>

namespace hexblocks::python {

namespace py = pybind11;

void bindErrors(py::module_& m);
void bindImage(py::module_& m);
void bindFormats(py::module_& m);
void bindChecksums(py::module_& m);
void bindFlash(py::module_& m);
void bindIntelHexSupport(py::module_& m);

// Raises the exception of the package that stands for result's status,
// with its reason, line and address, and the file when one is named.
[[noreturn]] void raise(const result_t& result, const std::string& file = std::string());

// Raises BadArgumentError with reason.
[[noreturn]] void raiseBadArgument(const std::string& reason);

inline void check(const result_t& result, const std::string& file = std::string())
{
    if (!result)
        raise(result, file);
}

// A class of the package's pure-Python module hexblocks._types (a named
// tuple), to make results with.
py::object type(const char* name);

// The policies by their Python names ("error", "first", "last",
// "identical"; "drop" for start addresses); BadArgumentError for others.
overlap_policy_t overlapPolicy(const std::string& name);
start_policy_t startPolicy(const std::string& name);

// A non-negative Python integer: TypeError for another type,
// BadArgumentError (a ValueError) when negative or beyond 64 bits. what
// names it in the message.
uint64_t unsignedOf(const py::handle& value, const char* what);

// A range [start, end) from Python's start and end, either None: the
// image's lowest address and one past its highest.
range_t rangeOf(const MemoryImage& image, const py::object& start, const py::object& end);

} // namespace hexblocks::python

#endif // HEXBLOCKS_PYTHON_BINDINGS_H
