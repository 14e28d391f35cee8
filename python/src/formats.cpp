// Reading and writing images in every format, and the format table.
#include "bindings.h"
#include "image.h"

#include <pybind11/stl.h>

#include <string>

namespace hexblocks::python {

namespace {

file_format_t formatNamed(const std::string& name)
{
    const std::optional<file_format_t> format = formatByName(name);
    if (!format) {
        std::string names;
        for (const format_info_t& info : formats())
            names += std::string(names.empty() ? "" : ", ") + info.name;
        raiseBadArgument("unknown format '" + name + "': " + names);
    }
    return *format;
}

std::optional<uint32_t> familyOf(const py::object& family)
{
    if (family.is_none())
        return std::nullopt;
    if (py::isinstance<py::str>(family)) {
        const std::string name = family.cast<std::string>();
        const std::optional<uint32_t> id = uf2FamilyByName(name);
        if (!id)
            raiseBadArgument("unknown UF2 family '" + name + "': a name from uf2_families(), or a number");
        return id;
    }
    const uint64_t id = unsignedOf(family, "a UF2 family");
    if (id > 0xFFFFFFFFull)
        raiseBadArgument("a UF2 family is a 32-bit number");
    return static_cast<uint32_t>(id);
}

// An address, as the library takes it: 0 to 0xFFFFFFFF.
uint32_t addressOf(const py::object& address)
{
    const uint64_t at = unsignedOf(address, "the address");
    if (at > 0xFFFFFFFFull)
        raiseBadArgument("the address lies beyond 0xFFFFFFFF");
    return static_cast<uint32_t>(at);
}

read_options_t readOptions(const py::object& format, const py::object& address, unsigned wordWidth,
                           const py::object& overlap, const py::object& family)
{
    read_options_t options;
    if (!format.is_none()) {
        options.detect = false;
        options.format = formatNamed(format.cast<std::string>());
    }
    options.address = addressOf(address);
    options.wordWidth = wordWidth;
    if (!overlap.is_none())
        options.overlap = overlapPolicy(overlap.cast<std::string>());
    options.family = familyOf(family);
    return options;
}

// (image, warnings) of a read, each warning (line, message); or the
// exception.
py::tuple readOutcome(PyImage&& image, const read_result_t& result, const std::string& file)
{
    if (!result)
        raise(result, file);
    py::list warnings;
    for (const warning_t& w : result.warnings)
        warnings.append(py::make_tuple(w.line, w.message));
    return py::make_tuple(std::move(image), warnings);
}

write_options_t writeOptions(const std::string& format, unsigned recordSize, const std::string& addressing,
                             unsigned addressSize, bool crlf, uint8_t fill, unsigned wordWidth,
                             const py::object& family, const std::string& name)
{
    write_options_t options;
    options.format = formatNamed(format);
    options.recordSize = recordSize;
    if (addressing == "linear")
        options.addressing = addressing_t::LINEAR;
    else if (addressing == "segment")
        options.addressing = addressing_t::SEGMENT;
    else
        raiseBadArgument("unknown addressing '" + addressing + "': linear or segment");
    options.addressSize = addressSize;
    options.crlf = crlf;
    options.fill = fill;
    options.wordWidth = wordWidth;
    options.family = familyOf(family);
    options.name = name;
    return options;
}

py::object lineOrNone(const std::optional<size_t>& line)
{
    return line ? py::object(py::int_(*line)) : py::object(py::none());
}

py::object formatName(file_format_t format)
{
    return py::str(formatInfo(format).name);
}

// The keyword arguments of the writers, with their defaults.
#define HEXBLOCKS_WRITE_ARGS                                                                                           \
    py::arg("format"), py::arg("record_size") = 16, py::arg("addressing") = "linear", py::arg("address_size") = 0,    \
        py::arg("crlf") = false, py::arg("fill") = 0xFF, py::arg("word_width") = 8, py::arg("family") = py::none(),   \
        py::arg("name") = "image"

} // namespace

void bindFormats(py::module_& m)
{
    m.def(
        "_read_file",
        [](const std::string& path, const py::object& format, const py::object& address, unsigned wordWidth,
           const py::object& overlap, const py::object& family) {
            const read_options_t options = readOptions(format, address, wordWidth, overlap, family);
            PyImage image;
            read_result_t result;
            {
                py::gil_scoped_release release;
                result = readFile(image.image, path.c_str(), options);
            }
            return readOutcome(std::move(image), result, path);
        },
        py::arg("path"), py::arg("format"), py::arg("address"), py::arg("word_width"), py::arg("overlap"),
        py::arg("family"));
    m.def(
        "_read_memory",
        [](const py::buffer& data, const py::object& format, const py::object& address, unsigned wordWidth,
           const py::object& overlap, const py::object& family) {
            const read_options_t options = readOptions(format, address, wordWidth, overlap, family);
            const py::buffer_info info = data.request();
            PyImage image;
            read_result_t result;
            {
                py::gil_scoped_release release;
                result = readMemory(image.image, info.ptr, static_cast<size_t>(info.size * info.itemsize), options);
            }
            return readOutcome(std::move(image), result, std::string());
        },
        py::arg("data"), py::arg("format"), py::arg("address"), py::arg("word_width"), py::arg("overlap"),
        py::arg("family"));
    m.def(
        "_write_file",
        [](const PyImage& image, const std::string& path, const std::string& format, unsigned recordSize,
           const std::string& addressing, unsigned addressSize, bool crlf, uint8_t fill, unsigned wordWidth,
           const py::object& family, const std::string& name) {
            const write_options_t options =
                writeOptions(format, recordSize, addressing, addressSize, crlf, fill, wordWidth, family, name);
            result_t result;
            {
                py::gil_scoped_release release;
                result = writeFile(image.image, path.c_str(), options);
            }
            check(result, path);
        },
        py::arg("image"), py::arg("path"), HEXBLOCKS_WRITE_ARGS);
    m.def(
        "_write_bytes",
        [](const PyImage& image, const std::string& format, unsigned recordSize, const std::string& addressing,
           unsigned addressSize, bool crlf, uint8_t fill, unsigned wordWidth, const py::object& family,
           const std::string& name) {
            const write_options_t options =
                writeOptions(format, recordSize, addressing, addressSize, crlf, fill, wordWidth, family, name);
            std::string out;
            result_t result;
            {
                py::gil_scoped_release release;
                result = writeMemory(image.image, out, options);
            }
            check(result);
            return py::bytes(out);
        },
        py::arg("image"), HEXBLOCKS_WRITE_ARGS);
    m.def(
        "_convert_binary_file",
        [](const std::string& input, const py::object& address, const std::string& output, const std::string& format,
           unsigned recordSize, const std::string& addressing, unsigned addressSize, bool crlf, uint8_t fill,
           unsigned wordWidth, const py::object& family, const std::string& name) {
            const uint32_t at = addressOf(address);
            const write_options_t options =
                writeOptions(format, recordSize, addressing, addressSize, crlf, fill, wordWidth, family, name);
            convert_result_t result;
            {
                py::gil_scoped_release release;
                result = convertBinaryFile(input.c_str(), at, output.c_str(), options);
            }
            check(result, result.inputFailed ? input : output);
        },
        py::arg("input"), py::arg("address"), py::arg("output"), HEXBLOCKS_WRITE_ARGS);
    m.def(
        "_find_line_in_file",
        [](const std::string& path, const py::object& address, const py::object& format, unsigned wordWidth,
           const py::object& overlap, const py::object& family) {
            const uint32_t at = addressOf(address);
            const read_options_t options = readOptions(format, py::int_(0), wordWidth, overlap, family);
            std::optional<size_t> line;
            {
                py::gil_scoped_release release;
                line = findLineInFile(path.c_str(), at, options);
            }
            return lineOrNone(line);
        },
        py::arg("path"), py::arg("address"), py::arg("format"), py::arg("word_width"), py::arg("overlap"),
        py::arg("family"));
    m.def(
        "_find_line_in_memory",
        [](const py::buffer& data, const py::object& address, const py::object& format, unsigned wordWidth,
           const py::object& overlap, const py::object& family) {
            const uint32_t at = addressOf(address);
            const read_options_t options = readOptions(format, py::int_(0), wordWidth, overlap, family);
            const py::buffer_info info = data.request();
            std::optional<size_t> line;
            {
                py::gil_scoped_release release;
                line = findLineInMemory(info.ptr, static_cast<size_t>(info.size * info.itemsize), at, options);
            }
            return lineOrNone(line);
        },
        py::arg("data"), py::arg("address"), py::arg("format"), py::arg("word_width"), py::arg("overlap"),
        py::arg("family"));
    m.def(
        "formats",
        [] {
            py::list list;
            for (const format_info_t& info : formats())
                list.append(type("FormatInfo")(info.name, info.title, py::str(info.extensions).attr("split")(),
                                               info.readable, info.writable));
            return list;
        },
        "Every format: FormatInfo(name, title, extensions, readable, writable).");
    m.def(
        "format_by_extension",
        [](const std::string& path) {
            const std::optional<file_format_t> format = formatByExtension(path);
            return format ? formatName(*format) : py::object(py::none());
        },
        py::arg("path"), "The name of the format a file name's extension implies, or None.");
    m.def(
        "detect_format",
        [](const py::buffer& data) {
            const py::buffer_info info = data.request();
            const std::optional<file_format_t> format =
                detectFormat(info.ptr, static_cast<size_t>(info.size * info.itemsize));
            return format ? formatName(*format) : py::object(py::none());
        },
        py::arg("data"),
        "The name of the format the start of a file's content shows; None for none, or when it could be more "
        "than one (see recognise_formats()).");
    m.def(
        "recognise_formats",
        [](const py::buffer& data) {
            const py::buffer_info info = data.request();
            py::list names;
            for (file_format_t format : recogniseFormats(info.ptr, static_cast<size_t>(info.size * info.itemsize)))
                names.append(formatName(format));
            return names;
        },
        py::arg("data"),
        "The names of every format the start of a file's content fits, in the order of formats(): a TI-TXT file "
        "and a Verilog memory file that starts with an address both start with '@'.");
    m.def(
        "uf2_families",
        [] {
            py::list list;
            for (const uf2_family_t& family : uf2Families())
                list.append(type("Uf2Family")(family.id, family.name, family.description));
            return list;
        },
        "The UF2 families the library knows: Uf2Family(id, name, description).");
}

} // namespace hexblocks::python
