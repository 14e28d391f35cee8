// Raising the package's exceptions, and the helpers every part shares.
#include "bindings.h"

#include <utility>

namespace hexblocks::python {

namespace {

// The package's pure-Python modules, imported once. Kept for the life of
// the process: an object released after the interpreter has finished would
// crash at exit.
py::object* errorsModule = nullptr;
py::object* typesModule = nullptr;

py::object optionalInt(bool present, uint64_t value)
{
    return present ? py::object(py::int_(value)) : py::object(py::none());
}

} // namespace

void bindErrors(py::module_&)
{
    errorsModule = new py::object(py::module_::import("hexblocks._errors"));
    typesModule = new py::object(py::module_::import("hexblocks._types"));
}

void raise(const result_t& result, const std::string& file)
{
    const py::object error = errorsModule->attr("error_from_status")(
        statusName(result.status), result.reason, file.empty() ? py::object(py::none()) : py::object(py::str(file)),
        optionalInt(result.line != 0, result.line), optionalInt(result.address.has_value(), result.address.value_or(0)));
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
    throw py::error_already_set();
}

void raiseBadArgument(const std::string& reason)
{
    raise(failure(status_t::BAD_ARGUMENT, reason));
}

py::object type(const char* name)
{
    return typesModule->attr(name);
}

// The value a policy's name stands for, names in the order they are listed
// when a name is unknown; what names the policy in that message.
template <typename Policy, size_t N>
Policy policyNamed(const std::string& name, const std::pair<const char*, Policy> (&names)[N], const char* what)
{
    std::string known;
    for (size_t i = 0; i < N; ++i) {
        if (name == names[i].first)
            return names[i].second;
        known += std::string(i == 0 ? "" : i + 1 == N ? " or " : ", ") + names[i].first;
    }
    raiseBadArgument("unknown " + std::string(what) + " '" + name + "': " + known);
}

overlap_policy_t overlapPolicy(const std::string& name)
{
    static const std::pair<const char*, overlap_policy_t> NAMES[] = {{"error", overlap_policy_t::ERROR},
                                                                     {"first", overlap_policy_t::FIRST},
                                                                     {"last", overlap_policy_t::LAST},
                                                                     {"identical", overlap_policy_t::IDENTICAL}};
    return policyNamed(name, NAMES, "overlap policy");
}

start_policy_t startPolicy(const std::string& name)
{
    static const std::pair<const char*, start_policy_t> NAMES[] = {{"error", start_policy_t::ERROR},
                                                                   {"first", start_policy_t::FIRST},
                                                                   {"last", start_policy_t::LAST},
                                                                   {"drop", start_policy_t::DROP}};
    return policyNamed(name, NAMES, "start address policy");
}

uint64_t unsignedOf(const py::handle& value, const char* what)
{
    if (!PyLong_Check(value.ptr()))
        throw py::type_error(std::string(what) + " must be an int, not " +
                             std::string(py::str(value.get_type().attr("__name__"))));
    int overflow = 0;
    const long long signedValue = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
    if (overflow > 0) {
        const unsigned long long large = PyLong_AsUnsignedLongLong(value.ptr());
        if (PyErr_Occurred()) {
            PyErr_Clear();
            raiseBadArgument(std::string(what) + " is beyond 64 bits");
        }
        return large;
    }
    if (overflow < 0 || signedValue < 0)
        raiseBadArgument(std::string(what) + " must not be negative");
    return static_cast<uint64_t>(signedValue);
}

range_t rangeOf(const MemoryImage& image, const py::object& start, const py::object& end)
{
    const uint64_t first =
        start.is_none() ? (image.empty() ? 0 : image.lowestAddress()) : unsignedOf(start, "the start address");
    const uint64_t last = end.is_none() ? (image.empty() ? first : uint64_t{image.highestAddress()} + 1)
                                        : unsignedOf(end, "the end address");
    if (first > 0xFFFFFFFFull || last > 0x100000000ull)
        raiseBadArgument("a range must lie within the 32-bit address space");
    if (last < first)
        raiseBadArgument("a range must not end before it starts");
    return range_t{static_cast<uint32_t>(first), last};
}

} // namespace hexblocks::python
