// hexblocks._native: the library for Python. The package hexblocks puts
// Python's conventions around it.
#include "bindings.h"

PYBIND11_MODULE(_native, m)
{
    using namespace hexblocks::python;
    m.doc() = "The hexblocks library: firmware images read, changed, checked and written.";
    bindErrors(m);
    bindImage(m);
    bindFormats(m);
    bindChecksums(m);
    bindFlash(m);
    bindIntelHexSupport(m);
}
