// The exporter behind segment views: a type made with the C API, because a
// view's release must be counted, which pybind11's buffer support does not
// offer.
#include "segment_bytes.h"

namespace hexblocks::python {

namespace {

struct segmentbytes_t {
    PyObject_HEAD
    PyObject* owner;  // the Image, kept alive
    PyImage* image;   // inside owner
    const uint8_t* data;
    Py_ssize_t size;
    uint64_t version; // the image's version when the view was made
};

PyTypeObject* segmentBytesType = nullptr;

int getBuffer(PyObject* self, Py_buffer* view, int flags)
{
    segmentbytes_t* bytes = reinterpret_cast<segmentbytes_t*>(self);
    if (bytes->image->version != bytes->version) {
        PyErr_SetString(PyExc_BufferError, "the image has changed since this segment was listed");
        view->obj = nullptr;
        return -1;
    }
    if (PyBuffer_FillInfo(view, self, const_cast<uint8_t*>(bytes->data), bytes->size, 1, flags) < 0)
        return -1;
    ++bytes->image->exports;
    return 0;
}

void releaseBuffer(PyObject* self, Py_buffer*)
{
    --reinterpret_cast<segmentbytes_t*>(self)->image->exports;
}

void deallocate(PyObject* self)
{
    PyTypeObject* type = Py_TYPE(self);
    Py_XDECREF(reinterpret_cast<segmentbytes_t*>(self)->owner);
    type->tp_free(self);
    Py_DECREF(type);
}

} // namespace

void PyImage::willChange()
{
    if (exports > 0)
        throw py::buffer_error("the image's bytes are in use by " + std::to_string(exports) +
                               " memoryview(s) of its segments: release them (memoryview.release(), or drop the "
                               "segment list) before changing the image");
    ++version;
}

void defineSegmentBytes(py::module_&)
{
    static PyType_Slot slots[] = {{Py_tp_dealloc, reinterpret_cast<void*>(deallocate)},
                                  {Py_bf_getbuffer, reinterpret_cast<void*>(getBuffer)},
                                  {Py_bf_releasebuffer, reinterpret_cast<void*>(releaseBuffer)},
                                  {Py_tp_doc, const_cast<char*>("The bytes of one segment of an image, read-only.")},
                                  {0, nullptr}};
    static PyType_Spec typeSpec = {"hexblocks._native.SegmentBytes", sizeof(segmentbytes_t), 0, Py_TPFLAGS_DEFAULT,
                               slots};
    PyObject* type = PyType_FromSpec(&typeSpec);
    if (type == nullptr)
        throw py::error_already_set();
    segmentBytesType = reinterpret_cast<PyTypeObject*>(type);
}

py::memoryview segmentView(const py::object& owner, PyImage& image, const uint8_t* data, size_t size)
{
    segmentbytes_t* bytes = PyObject_New(segmentbytes_t, segmentBytesType);
    if (bytes == nullptr)
        throw py::error_already_set();
    Py_INCREF(owner.ptr());
    bytes->owner = owner.ptr();
    bytes->image = &image;
    bytes->data = data;
    bytes->size = static_cast<Py_ssize_t>(size);
    bytes->version = image.version;
    const py::object exporter = py::reinterpret_steal<py::object>(reinterpret_cast<PyObject*>(bytes));
    PyObject* view = PyMemoryView_FromObject(exporter.ptr());
    if (view == nullptr)
        throw py::error_already_set();
    return py::reinterpret_steal<py::memoryview>(view);
}

} // namespace hexblocks::python
