// For hexblocks.intelhex: the base class that reads a byte by address at
// the speed of a dictionary look-up, and whether Intel HEX text is plain, so that the
// library's reader gives what python intelhex's rules give for it, and the
// careful reader written in Python for those rules is not needed. Plain:
// every line up to the first end-of-file record is empty, or a record
// exactly as long as its count says (then LF, CR LF or the end); records of
// type 00 (none that reaches past 0xFFFFFFFF), 01 (count 0), 04 (count 2,
// offset 0000), and at most one of type 03 or 05 (count 4, offset 0000). Extended segment addresses (02), where
// the two sets of rules place bytes differently, are not plain; neither is
// anything else, and the careful reader then says what is wrong, as python
// intelhex would.
#include "bindings.h"
#include "image.h"

#include <cstring>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace hexblocks::python {

namespace {

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

int pairValue(const char* p)
{
    const int high = hexValue(p[0]);
    const int low = hexValue(p[1]);
    return high < 0 || low < 0 ? -1 : high << 4 | low;
}

// The check, line by line, so that a file can be fed a piece at a time.
class PlainCheck {
public:
    // Takes one line without its LF; false when it is not plain.
    bool line(const char* p, const char* end)
    {
        if (ended_)
            return true; // nothing after the end record is read
        while (end > p && end[-1] == '\r')
            --end;
        const size_t length = static_cast<size_t>(end - p);
        if (length == 0)
            return true;
        if (p[0] != ':' || length < 11)
            return false;
        const int count = pairValue(p + 1);
        const int type = pairValue(p + 7);
        if (count < 0 || type < 0 || length != 11 + 2 * static_cast<size_t>(count))
            return false;
        const bool zeroOffset = std::memcmp(p + 3, "0000", 4) == 0;
        switch (type) {
        case 0x00: {
            // Data past 0xFFFFFFFF: the library wraps it to 0, as the format
            // says; python intelhex keeps it above.
            const int high = pairValue(p + 3);
            const int low = pairValue(p + 5);
            return high >= 0 && low >= 0 && base_ + static_cast<uint64_t>(high << 8 | low) + count <= 0x100000000ull;
        }
        case 0x01:
            ended_ = true;
            return count == 0;
        case 0x04: {
            const int high = pairValue(p + 9);
            const int low = pairValue(p + 11);
            if (count != 2 || !zeroOffset || high < 0 || low < 0)
                return false;
            base_ = static_cast<uint64_t>(high << 8 | low) << 16;
            return true;
        }
        case 0x03:
        case 0x05:
            return count == 4 && zeroOffset && ++starts_ <= 1;
        default:
            return false;
        }
    }

private:
    bool ended_ = false;
    size_t starts_ = 0;
    uint64_t base_ = 0; // the extended linear address
};

// Feeds the lines of text to check; false at the first that is not plain.
// Returns where the last line, which no LF ends, begins.
bool feedLines(PlainCheck& check, const char*& text, const char* end)
{
    for (;;) {
        const char* newline = static_cast<const char*>(std::memchr(text, '\n', static_cast<size_t>(end - text)));
        if (newline == nullptr)
            return true;
        if (!check.line(text, newline))
            return false;
        text = newline + 1;
    }
}

bool isPlain(const char* text, size_t size)
{
    PlainCheck check;
    const char* end = text + size;
    return feedLines(check, text, end) && check.line(text, end);
}

// isPlain() for the file at path, read a piece at a time, so that the text
// is never held whole; false when it cannot be read.
bool isPlainFile(const char* path)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    std::vector<char> buffer(1 << 20);
    size_t held = 0;
    PlainCheck check;
    bool plain = true;
    for (;;) {
        if (held == buffer.size())
            buffer.resize(buffer.size() * 2); // a line longer than the buffer
        const ssize_t got = read(fd, buffer.data() + held, buffer.size() - held);
        if (got < 0) {
            plain = false;
            break;
        }
        const char* p = buffer.data();
        const char* end = p + held + static_cast<size_t>(got);
        if (got == 0) {
            plain = check.line(p, end);
            break;
        }
        if (!feedLines(check, p, end)) {
            plain = false;
            break;
        }
        held = static_cast<size_t>(end - p);
        std::memmove(buffer.data(), p, held);
    }
    close(fd);
    return plain;
}

// IntelHex's base: ih[address] for an int address, as one C call that
// reads self._image, or self.padding where it holds no data. Any other key
// (a slice, a negative address, another type) goes to the Python method
// _getitem_other, which raises what python intelhex raises.
PyObject* imageName = nullptr;
PyObject* paddingName = nullptr;
PyObject* otherName = nullptr;

PyObject* subscript(PyObject* self, PyObject* key)
{
    if (PyLong_CheckExact(key)) {
        int overflow = 0;
        const long long address = PyLong_AsLongLongAndOverflow(key, &overflow);
        if (overflow == 0 && address >= 0 && address <= 0xFFFFFFFFll) {
            PyObject* image = PyObject_GetAttr(self, imageName);
            if (image == nullptr)
                return nullptr;
            PyImage* held = nullptr;
            try {
                held = py::cast<PyImage*>(py::handle(image));
            } catch (const py::cast_error&) {
            }
            Py_DECREF(image); // self still holds it
            if (held != nullptr) {
                const uint32_t at = static_cast<uint32_t>(address);
                if (!held->image.hasDataAt(at))
                    return PyObject_GetAttr(self, paddingName);
                uint8_t byte = 0;
                held->image.copyRange(at, 1, 0, &byte);
                return PyLong_FromLong(byte);
            }
        }
    }
    return PyObject_CallMethodObjArgs(self, otherName, key, nullptr);
}

void defineIntelHexBase(py::module_& m)
{
    imageName = PyUnicode_InternFromString("_image");
    paddingName = PyUnicode_InternFromString("padding");
    otherName = PyUnicode_InternFromString("_getitem_other");
    static PyType_Slot slots[] = {{Py_mp_subscript, reinterpret_cast<void*>(subscript)},
                                  {Py_tp_doc, const_cast<char*>("The base of hexblocks.intelhex.IntelHex.")},
                                  {0, nullptr}};
    static PyType_Spec typeSpec = {"hexblocks._native._IntelHexBase", sizeof(PyObject), 0,
                               Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE, slots};
    PyObject* type = PyType_FromSpec(&typeSpec);
    if (type == nullptr)
        throw py::error_already_set();
    m.add_object("_IntelHexBase", py::reinterpret_steal<py::object>(type));
}

} // namespace

void bindIntelHexSupport(py::module_& m)
{
    defineIntelHexBase(m);
    m.def(
        "_intelhex_plain",
        [](const py::buffer& data) {
            const py::buffer_info info = data.request();
            py::gil_scoped_release release;
            return isPlain(static_cast<const char*>(info.ptr), static_cast<size_t>(info.size * info.itemsize));
        },
        py::arg("data"));
    m.def(
        "_intelhex_plain_file",
        [](const std::string& path) {
            py::gil_scoped_release release;
            return isPlainFile(path.c_str());
        },
        py::arg("path"));
}

} // namespace hexblocks::python
