#include "result.h"

namespace hexblocks {

const char* statusName(status_t status)
{
    switch (status) {
    case status_t::OK:
        return "OK";
    case status_t::BAD_ARGUMENT:
        return "BAD_ARGUMENT";
    case status_t::CANNOT_OPEN:
        return "CANNOT_OPEN";
    case status_t::CANNOT_READ:
        return "CANNOT_READ";
    case status_t::CANNOT_WRITE:
        return "CANNOT_WRITE";
    case status_t::SYNTAX:
        return "SYNTAX";
    case status_t::CHECKSUM:
        return "CHECKSUM";
    case status_t::UNSUPPORTED:
        return "UNSUPPORTED";
    case status_t::UNKNOWN_FORMAT:
        return "UNKNOWN_FORMAT";
    case status_t::OVERLAP:
        return "OVERLAP";
    case status_t::OUT_OF_RANGE:
        return "OUT_OF_RANGE";
    case status_t::TOO_LARGE:
        return "TOO_LARGE";
    case status_t::OUT_OF_MEMORY:
        return "OUT_OF_MEMORY";
    case status_t::MISMATCH:
        return "MISMATCH";
    }
    return "UNKNOWN";
}

} // namespace hexblocks
