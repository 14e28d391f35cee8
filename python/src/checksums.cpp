// Checksums: the named algorithms, custom CRCs, and CRC insertion.
#include "bindings.h"
#include "image.h"

#include <hexblocks/checksum.h>

namespace hexblocks::python {

namespace {

const char* kindName(Checksum::kind_t kind)
{
    switch (kind) {
    case Checksum::kind_t::CRC:
        return "crc";
    case Checksum::kind_t::STM32:
        return "stm32";
    case Checksum::kind_t::SUM8:
        return "sum8";
    default:
        return "sum16";
    }
}

// An algorithm by name, or a custom CRC from a CrcModel (or any object
// with its fields).
Checksum::algorithm_t algorithmOf(const py::object& algorithm)
{
    Checksum::algorithm_t found;
    if (py::isinstance<py::str>(algorithm)) {
        const std::string name = algorithm.cast<std::string>();
        if (!Checksum::findAlgorithm(name, found))
            raiseBadArgument("unknown checksum algorithm '" + name + "': see hexblocks.algorithms()");
        return found;
    }
    Checksum::crc_model_t model{};
    model.width = static_cast<unsigned>(unsignedOf(algorithm.attr("width"), "a CRC's width"));
    model.poly = static_cast<uint32_t>(unsignedOf(algorithm.attr("poly"), "a CRC's polynomial"));
    model.init = static_cast<uint32_t>(unsignedOf(algorithm.attr("init"), "a CRC's initial value"));
    model.reflectIn = algorithm.attr("reflect_in").cast<bool>();
    model.reflectOut = algorithm.attr("reflect_out").cast<bool>();
    model.xorOut = static_cast<uint32_t>(unsignedOf(algorithm.attr("xor_out"), "a CRC's final XOR"));
    std::string reason;
    if (!Checksum::checkModel(model, reason))
        raiseBadArgument(reason);
    found.name = "custom";
    found.kind = Checksum::kind_t::CRC;
    found.crc = model;
    found.check = 0;
    return found;
}

Checksum::byte_order_t byteOrderOf(const std::string& order)
{
    if (order == "little")
        return Checksum::byte_order_t::LITTLE;
    if (order == "big")
        return Checksum::byte_order_t::BIG;
    raiseBadArgument("unknown byte order '" + order + "': little or big");
}

} // namespace

void bindChecksums(py::module_& m)
{
    m.def(
        "algorithms",
        [] {
            py::list list;
            for (const Checksum::algorithm_t& a : Checksum::algorithms())
                list.append(type("Algorithm")(a.name, kindName(a.kind), a.crc.width, a.crc.poly, a.crc.init,
                                              a.crc.reflectIn, a.crc.reflectOut, a.crc.xorOut, a.check));
            return list;
        },
        R"(The checksum algorithms by name: Algorithm(name, kind, width, poly, init,
reflect_in, reflect_out, xor_out, check), kind "crc", "stm32", "sum8" or
"sum16", check the value for the bytes b"123456789".)");

    py::class_<Checksum>(m, "Checksum", R"(A running checksum: Checksum("crc32"), or a custom CRC,
Checksum(CrcModel(width=16, poly=0x1021, init=0xFFFF)). update() adds
bytes; value is the checksum of what was added.)")
        .def(py::init([](const py::object& algorithm, uint8_t padding) {
                 return Checksum(algorithmOf(algorithm), padding);
             }),
             py::arg("algorithm"), py::arg("padding") = 0xFF)
        .def(
            "update",
            [](Checksum& self, const py::buffer& data) {
                const py::buffer_info info = data.request();
                py::gil_scoped_release release;
                self.update(info.ptr, static_cast<size_t>(info.size * info.itemsize));
            },
            py::arg("data"), "Adds the bytes of data.")
        .def("update_fill", &Checksum::updateFill, py::arg("byte"), py::arg("count"), "Adds count copies of byte.")
        .def(
            "update_image",
            [](Checksum& self, const PyImage& image, const py::object& start, const py::object& end, uint8_t fill) {
                const range_t range = rangeOf(image.image, start, end);
                py::gil_scoped_release release;
                self.updateImage(image.image, range, fill);
            },
            py::arg("image"), py::arg("start") = py::none(), py::arg("end") = py::none(), py::arg("fill") = 0xFF,
            "Adds the bytes of image from start to end (exclusive), fill where it has no data.")
        .def_property_readonly("value", &Checksum::value, "The checksum of the bytes added so far.")
        .def_property_readonly("size", &Checksum::size, "The checksum's size in bytes: 1, 2 or 4.")
        .def("reset", &Checksum::reset, "Starts again, as if no byte had been added.");

    m.def(
        "checksum",
        [](const PyImage& image, const py::object& algorithm, const py::object& start, const py::object& end,
           uint8_t fill) {
            Checksum checksum(algorithmOf(algorithm));
            const range_t range = rangeOf(image.image, start, end);
            py::gil_scoped_release release;
            checksum.updateImage(image.image, range, fill);
            return checksum.value();
        },
        py::arg("image"), py::arg("algorithm") = "crc32", py::kw_only(), py::arg("start") = py::none(),
        py::arg("end") = py::none(), py::arg("fill") = 0xFF,
        R"(The checksum of image's bytes from start to end (exclusive; the whole
image by default), fill where it has no data.)");
    m.def(
        "insert_checksum",
        [](PyImage& image, const py::object& algorithm, const py::object& start, const py::object& end,
           const py::object& address, uint8_t fill, const std::string& byteorder) {
            const Checksum::algorithm_t chosen = algorithmOf(algorithm);
            const range_t range = rangeOf(image.image, start, end);
            const uint64_t at = unsignedOf(address, "the address");
            if (at > 0xFFFFFFFFull)
                raiseBadArgument("the address lies beyond 0xFFFFFFFF");
            const Checksum::byte_order_t order = byteOrderOf(byteorder);
            image.willChange();
            check(Checksum::insert(image.image, chosen, range, fill, static_cast<uint32_t>(at), order));
        },
        py::arg("image"), py::arg("algorithm"), py::kw_only(), py::arg("start"), py::arg("end"), py::arg("address"),
        py::arg("fill") = 0xFF, py::arg("byteorder") = "little",
        R"(Computes the checksum of [start, end) and writes it at address, in the
byte order given; the range must not hold address.)");
}

} // namespace hexblocks::python
