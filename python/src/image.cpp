// hexblocks.Image: the memory image, its bytes, its edits and comparisons.
#include "image.h"

#include "segment_bytes.h"

#include <pybind11/stl.h>

#include <cstring>
#include <string>
#include <vector>

namespace hexblocks::python {

namespace {

// Python's index of a byte: an address. Negative or beyond 0xFFFFFFFF is a
// BadArgumentError (a ValueError), as an address given anywhere else.
uint32_t addressOf(const py::handle& value, const char* what)
{
    const uint64_t address = unsignedOf(value, what);
    if (address > 0xFFFFFFFFull)
        raiseBadArgument(std::string(what) + " " + std::to_string(address) + " lies beyond 0xFFFFFFFF");
    return static_cast<uint32_t>(address);
}

// [start, stop) of a slice over addresses; the image's own bounds where the
// slice gives none.
range_t sliceRange(const MemoryImage& image, const py::slice& slice)
{
    const py::object step = slice.attr("step");
    if (!step.is_none() && step.cast<py::int_>().cast<long long>() != 1)
        raiseBadArgument("a slice of an image takes every address: its step must be 1");
    return rangeOf(image, slice.attr("start"), slice.attr("stop"));
}

py::bytes copyOf(const MemoryImage& image, const range_t& range, uint8_t fill)
{
    if (range.size() > static_cast<uint64_t>(PY_SSIZE_T_MAX))
        raise(failure(status_t::TOO_LARGE, "the range holds more bytes than a bytes object can"));
    py::bytes bytes(nullptr, static_cast<size_t>(range.size()));
    char* data = PyBytes_AsString(bytes.ptr());
    {
        py::gil_scoped_release release;
        image.copyRange(range.start, static_cast<size_t>(range.size()), fill, reinterpret_cast<uint8_t*>(data));
    }
    return bytes;
}

void put(PyImage& self, uint32_t address, const py::buffer& data)
{
    const py::buffer_info info = data.request();
    const size_t size = static_cast<size_t>(info.size * info.itemsize);
    self.willChange();
    check(self.image.write(address, static_cast<const uint8_t*>(info.ptr), size));
}

py::object startAddressOf(const MemoryImage& image)
{
    if (!image.hasStartAddress())
        return py::none();
    const start_address_t start = image.startAddress();
    return type("StartAddress")(start.type, start.value);
}

void setStartAddress(PyImage& self, const py::object& value)
{
    self.willChange();
    if (value.is_none()) {
        self.image.clearStartAddress();
        return;
    }
    start_address_t start{5, 0};
    if (PyLong_Check(value.ptr())) {
        start.value = addressOf(value, "the start address");
    } else {
        const py::tuple pair = py::cast<py::tuple>(value);
        if (pair.size() != 2)
            raiseBadArgument("a start address is an address, or a pair (type, value) with type 3 or 5");
        start.type = static_cast<uint8_t>(unsignedOf(pair[0], "the start address type") & 0xFF);
        start.value = addressOf(pair[1], "the start address");
    }
    check(self.image.setStartAddress(start));
}

py::object verifyResultOf(const verify_result_t& result)
{
    if (!result && result.status != status_t::MISMATCH)
        raise(result);
    py::list first;
    for (const mismatch_t& m : result.first)
        first.append(type("Mismatch")(m.address, m.expected, m.found));
    return type("VerifyResult")(result.ok(), result.compared, result.mismatches, result.notCovered,
                                result.notCovered > 0 ? py::object(py::int_(result.firstNotCovered)) : py::none(),
                                first, result.reason);
}

const char* kindName(difference_t::kind_t kind)
{
    switch (kind) {
    case difference_t::kind_t::ONLY_IMAGE:
        return "only_image";
    case difference_t::kind_t::ONLY_OTHER:
        return "only_other";
    default:
        return "differ";
    }
}

// A copy with the image's bytes, and no views of them in use.
PyImage copyOfImage(const PyImage& self)
{
    PyImage copy;
    copy.image = self.image;
    return copy;
}

std::string describe(const MemoryImage& image)
{
    if (image.empty())
        return "<hexblocks.Image: empty>";
    char bounds[64];
    std::snprintf(bounds, sizeof bounds, "0x%08X-0x%08X", image.lowestAddress(), image.highestAddress());
    return "<hexblocks.Image: " + std::to_string(image.segments().size()) + " segment(s), " +
           std::to_string(image.dataSize()) + " bytes, " + bounds + ">";
}

} // namespace

void bindImage(py::module_& m)
{
    defineSegmentBytes(m);
    py::class_<PyImage>(m, "Image", R"(A memory image: data bytes at 32-bit addresses, as segments of
contiguous bytes in address order, with an optional start address and
S-record header.

Image() is empty; hexblocks.read() makes one from a file or bytes.
Indexing takes addresses: image[0x08000000] is the byte there, and
image[0x08000000:0x08000100] the bytes of that range, 0xFF where the image
has no data. Assigning to either writes bytes into the image.)")
        .def(py::init<>())
        .def_property_readonly(
            "segments",
            [](const py::object& self) {
                PyImage& image = self.cast<PyImage&>();
                py::list list;
                for (const segment_t& s : image.image.segments())
                    list.append(type("Segment")(s.address, segmentView(self, image, s.bytes.data(), s.bytes.size())));
                return list;
            },
            R"(The segments, lowest address first: Segment(address, data), data a
read-only memoryview of the image's own bytes. While such a view is in
use the image refuses to change (BufferError): release it, or drop the
list, first.)")
        .def_property("start_address", [](const PyImage& self) { return startAddressOf(self.image); },
                      setStartAddress,
                      R"(StartAddress(type, value), or None. type 5 is a linear address (EIP),
type 3 a segment address (CS:IP, value CS << 16 | IP). Assign an address
(type 5), a (type, value) pair, or None.)")
        .def_property(
            "header", [](const PyImage& self) { return py::bytes(self.image.header()); },
            [](PyImage& self, const py::bytes& header) {
                self.willChange();
                check(self.image.setHeader(header.cast<std::string>()));
            },
            "The S-record header (S0) as bytes; b'' for none.")
        .def_property_readonly(
            "lowest_address",
            [](const PyImage& self) {
                return self.image.empty() ? py::object(py::none()) : py::object(py::int_(self.image.lowestAddress()));
            },
            "The lowest address that holds data; None for an empty image.")
        .def_property_readonly(
            "highest_address",
            [](const PyImage& self) {
                return self.image.empty() ? py::object(py::none()) : py::object(py::int_(self.image.highestAddress()));
            },
            "The highest address that holds data; None for an empty image.")
        .def_property_readonly("span", [](const PyImage& self) { return self.image.span(); },
                               "Bytes from the lowest to the highest address, gaps included; 0 when empty.")
        .def_property_readonly("data_size", [](const PyImage& self) { return self.image.dataSize(); },
                               "The number of data bytes.")
        .def("__len__", [](const PyImage& self) { return self.image.dataSize(); }, "The number of data bytes.")
        .def(
            "__contains__",
            [](const PyImage& self, const py::object& address) {
                if (!PyLong_Check(address.ptr()))
                    return false;
                const py::int_ value = address;
                return value.cast<long long>() >= 0 && value.cast<long long>() <= 0xFFFFFFFFll &&
                       self.image.hasDataAt(static_cast<uint32_t>(value.cast<long long>()));
            },
            "Whether the address holds data.")
        .def(
            "__getitem__",
            [](const PyImage& self, const py::object& index) -> py::object {
                if (py::isinstance<py::slice>(index))
                    return copyOf(self.image, sliceRange(self.image, index.cast<py::slice>()), 0xFF);
                uint8_t byte = 0xFF;
                self.image.copyRange(addressOf(index, "the address"), 1, 0xFF, &byte);
                return py::int_(byte);
            },
            "The byte at an address (0xFF where there is no data), or the bytes of a slice of addresses.")
        .def(
            "__setitem__",
            [](PyImage& self, const py::object& index, const py::object& value) {
                if (py::isinstance<py::slice>(index)) {
                    // image[a:b] = data needs b - a bytes; image[a:] takes any.
                    const py::buffer data = py::cast<py::buffer>(value);
                    const py::slice slice = index.cast<py::slice>();
                    const py::buffer_info info = data.request();
                    const uint64_t size = static_cast<uint64_t>(info.size * info.itemsize);
                    if (slice.attr("stop").is_none()) {
                        const py::object start = slice.attr("start");
                        put(self, start.is_none() ? self.image.lowestAddress() : addressOf(start, "the address"),
                            data);
                        return;
                    }
                    const range_t range = sliceRange(self.image, slice);
                    if (size != range.size())
                        raiseBadArgument("the slice covers " + std::to_string(range.size()) + " addresses and " +
                                         std::to_string(size) + " bytes were given");
                    put(self, range.start, data);
                    return;
                }
                const uint64_t byte = unsignedOf(value, "a byte");
                if (byte > 0xFF)
                    raiseBadArgument("a byte is 0 to 255, not " + std::to_string(byte));
                const uint8_t b = static_cast<uint8_t>(byte);
                self.willChange();
                check(self.image.write(addressOf(index, "the address"), &b, 1));
            },
            "Writes a byte at an address, or bytes from the start of a slice of addresses.")
        .def(
            "put", [](PyImage& self, const py::object& address, const py::buffer& data) {
                put(self, addressOf(address, "the address"), data);
            },
            py::arg("address"), py::arg("data"), "Writes the bytes of data from address on, over any there.")
        .def(
            "copy_range",
            [](const PyImage& self, const py::object& address, const py::object& length, uint8_t fill) {
                const uint64_t start = addressOf(address, "the address");
                return copyOf(self.image, rangeOf(self.image, address, py::int_(start + unsignedOf(length, "length"))),
                              fill);
            },
            py::arg("address"), py::arg("length"), py::arg("fill") = 0xFF,
            "length bytes from address on, fill where the image has no data.")
        .def(
            "clear",
            [](PyImage& self) {
                self.willChange();
                self.image.clear();
            },
            "Removes every byte, the start address and the header.")
        .def("copy", copyOfImage, "A copy of the image.")
        .def("__copy__", copyOfImage)
        .def(
            "__deepcopy__", [](const PyImage& self, const py::object&) { return copyOfImage(self); },
            py::arg("memo"))
        .def(
            "__eq__",
            [](const PyImage& self, const py::object& other) {
                if (!py::isinstance<PyImage>(other))
                    return false;
                const MemoryImage& image = other.cast<const PyImage&>().image;
                return self.image.diff(image, diff_options_t{0}).equal() && self.image.header() == image.header();
            },
            "Equal data at the same addresses, start address and header.")
        .def("__repr__", [](const PyImage& self) { return describe(self.image); })
        .def(
            "merge",
            [](PyImage& self, const PyImage& other, const std::string& overlap, const std::string& start) {
                merge_options_t options;
                options.overlap = overlapPolicy(overlap);
                options.start = startPolicy(start);
                if (&self == &other)
                    raiseBadArgument("an image cannot be merged with itself");
                self.willChange();
                check(self.image.merge(other.image, options));
            },
            py::arg("other"), py::kw_only(), py::arg("overlap") = "error", py::arg("start") = "error",
            R"(Adds other's data and start address. overlap, for data at the same
address: "error" (OverlapError, the image unchanged), "first" (keep
this image's), "last" (take other's), "identical" (accept equal bytes).
start, for two start addresses: "error", "first", "last", "drop".)")
        .def(
            "offset",
            [](PyImage& self, long long delta) {
                self.willChange();
                check(self.image.offset(delta));
            },
            py::arg("delta"), "Moves every byte and a linear start address by delta (negative moves down).")
        .def(
            "crop",
            [](PyImage& self, const std::vector<std::pair<py::object, py::object>>& ranges) {
                std::vector<range_t> kept;
                for (const auto& r : ranges)
                    kept.push_back(rangeOf(self.image, r.first, r.second));
                self.willChange();
                self.image.crop(kept);
            },
            py::arg("ranges"), "Keeps only the data within the given (start, end) ranges, end exclusive.")
        .def(
            "exclude",
            [](PyImage& self, const py::object& start, const py::object& end) {
                const range_t range = rangeOf(self.image, start, end);
                self.willChange();
                self.image.exclude(range);
            },
            py::arg("start"), py::arg("end"), "Removes the data in [start, end).")
        .def(
            "fill_range",
            [](PyImage& self, const py::object& start, const py::object& end, uint8_t value) {
                const range_t range = rangeOf(self.image, start, end);
                self.willChange();
                self.image.fillRange(range, value);
            },
            py::arg("start"), py::arg("end"), py::arg("value") = 0xFF,
            "Gives value to every address of [start, end) that holds no data.")
        .def(
            "swap_bytes",
            [](PyImage& self, unsigned wordSize) {
                self.willChange();
                check(self.image.swapBytes(wordSize));
            },
            py::arg("word_size"), "Reverses the bytes of each word of word_size (2 or 4) bytes.")
        .def(
            "verify",
            [](const PyImage& self, const py::object& dump, const py::object& address, size_t maxListed) {
                const uint32_t at = addressOf(address, "the address");
                if (py::isinstance<py::str>(dump) || py::hasattr(dump, "__fspath__")) {
                    const std::string path = py::str(py::module_::import("os").attr("fspath")(dump));
                    verify_result_t result;
                    {
                        py::gil_scoped_release release;
                        result = self.image.verifyFile(path.c_str(), at, maxListed);
                    }
                    if (!result && result.status != status_t::MISMATCH)
                        raise(result, path);
                    return verifyResultOf(result);
                }
                const py::buffer_info info = py::cast<py::buffer>(dump).request();
                verify_result_t result;
                {
                    py::gil_scoped_release release;
                    result = self.image.verify(info.ptr, static_cast<size_t>(info.size * info.itemsize), at, maxListed);
                }
                return verifyResultOf(result);
            },
            py::arg("dump"), py::arg("address") = 0, py::kw_only(), py::arg("max_listed") = 10,
            R"(Compares every data byte with a read-back dump (bytes, or the path of
a file) that starts at address: VerifyResult(ok, compared, mismatches,
not_covered, first_not_covered, first, reason), first the lowest
mismatches, Mismatch(address, expected, found).)")
        .def(
            "diff",
            [](const PyImage& self, const PyImage& other, uint32_t join) {
                const diff_result_t diff = self.image.diff(other.image, diff_options_t{join});
                py::list ranges;
                for (const difference_t& d : diff.ranges)
                    ranges.append(type("Difference")(kindName(d.kind), d.start, d.end, d.bytes));
                return type("Diff")(ranges, diff.startDiffers, diff.equal());
            },
            py::arg("other"), py::kw_only(), py::arg("join") = 16,
            R"(How other differs: Diff(ranges, start_differs, equal), each range
Difference(kind, start, end, bytes), kind "only_image", "only_other" or
"differ"; differing ranges less than join bytes apart are joined.)");
}

} // namespace hexblocks::python
