// Flash plans: the sectors to erase, the pages to program, and the pages
// themselves.
#include "bindings.h"
#include "image.h"

#include <hexblocks/flash_plan.h>

#include <memory>

namespace hexblocks::python {

namespace {

// A plan and the image it was made for, which its pages are read from.
struct PyFlashPlan {
    FlashPlan plan;
    py::object image; // a hexblocks.Image
};

// The pages of a plan, one at a time; keeps the plan (and so the image)
// alive.
struct PyPages {
    py::object owner; // the PyFlashPlan
    std::unique_ptr<FlashPlan::PageWalker> walker;
};

} // namespace

void bindFlash(py::module_& m)
{
    py::class_<PyPages>(m, "_Pages")
        .def("__iter__", [](py::object self) { return self; })
        .def("__next__", [](PyPages& self) {
            if (!self.walker->next())
                throw py::stop_iteration();
            return type("Page")(self.walker->address(),
                                py::bytes(reinterpret_cast<const char*>(self.walker->data()), self.walker->size()));
        });

    py::class_<PyFlashPlan>(m, "FlashPlan", R"(Which sectors of a flash to erase and which pages to program for an
image: FlashPlan(image, "0x08000000:4x16K,1x64K,7x128K", page_size=256).
The sectors are the start address, a colon, and groups COUNTxSIZE (sizes
may end in K or M). Pages that would be programmed with erased bytes only
are left out unless keep_blank.)")
        .def(py::init([](const py::object& image, const std::string& sectors, uint32_t pageSize, uint8_t erased,
                         bool keepBlank) {
                 FlashPlan::geometry_t geometry;
                 check(FlashPlan::parseSectors(sectors, geometry));
                 geometry.pageSize = pageSize;
                 geometry.erased = erased;
                 check(FlashPlan::checkGeometry(geometry));
                 PyFlashPlan plan{FlashPlan(), image};
                 check(plan.plan.make(image.cast<const PyImage&>().image, geometry, keepBlank));
                 return plan;
             }),
             py::arg("image"), py::arg("sectors"), py::kw_only(), py::arg("page_size") = 256,
             py::arg("erased") = 0xFF, py::arg("keep_blank") = false)
        .def_property_readonly(
            "erase_list",
            [](const PyFlashPlan& self) {
                py::list list;
                for (const FlashPlan::sector_t& s : self.plan.eraseList())
                    list.append(type("Sector")(s.address, s.size, s.partial));
                return list;
            },
            "The sectors to erase, lowest first: Sector(address, size, partial).")
        .def_property_readonly(
            "write_list",
            [](const PyFlashPlan& self) {
                py::list list;
                for (const range_t& r : self.plan.writeList())
                    list.append(py::make_tuple(r.start, r.end));
                return list;
            },
            "The ranges to program, (start, end) with end exclusive, whole pages.")
        .def_property_readonly("partial_sectors", [](const PyFlashPlan& self) { return self.plan.partialSectors(); },
                               "Sectors to erase that the image does not fill.")
        .def_property_readonly("erase_bytes", [](const PyFlashPlan& self) { return self.plan.eraseBytes(); },
                               "The bytes of the sectors to erase.")
        .def_property_readonly("write_pages", [](const PyFlashPlan& self) { return self.plan.writePages(); },
                               "The pages to program.")
        .def_property_readonly("write_bytes", [](const PyFlashPlan& self) { return self.plan.writeBytes(); },
                               "The bytes of the pages to program.")
        .def_property_readonly("skipped_blank", [](const PyFlashPlan& self) { return self.plan.skippedBlank(); },
                               "Pages left out because they hold erased bytes only.")
        .def(
            "pages",
            [](const py::object& self) {
                PyFlashPlan& plan = self.cast<PyFlashPlan&>();
                return PyPages{self, std::make_unique<FlashPlan::PageWalker>(
                                         plan.image.cast<const PyImage&>().image, plan.plan)};
            },
            R"(The pages to program, in address order: Page(address, data), data a
whole page, erased bytes where the image has none.)");
}

} // namespace hexblocks::python
