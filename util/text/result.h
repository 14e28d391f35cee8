/// @file result.h
/// What every operation of the library that can fail reports: a status
/// that names the kind of failure, a reason, and the line and the address to
/// blame where there are any.
///
/// @code
/// const hexblocks::read_result_t read = hexblocks::readFile(image, "app.hex");
/// if (read.status == hexblocks::status_t::CHECKSUM)
///     std::fprintf(stderr, "app.hex:%zu: %s\n", read.line, read.reason.c_str());
/// @endcode
#ifndef HEXBLOCKS_RESULT_H
#define HEXBLOCKS_RESULT_H

#include "export.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace hexblocks {

/// The kind of failure an operation met; OK when it met none.
enum class status_t {
    OK,             ///< it succeeded
    BAD_ARGUMENT,   ///< an argument or option the operation cannot take
    CANNOT_OPEN,    ///< a file could not be opened or created
    CANNOT_READ,    ///< reading failed, or a file changed while it was read
    CANNOT_WRITE,   ///< writing a file or stream failed
    SYNTAX,         ///< input that breaks the rules of its format
    CHECKSUM,       ///< a record whose checksum is wrong
    UNSUPPORTED,    ///< a record type or a kind of file the reader does not take
    UNKNOWN_FORMAT, ///< input whose format cannot be told from its content
    OVERLAP,        ///< two images give different data or start addresses
    OUT_OF_RANGE,   ///< an address beyond 0xFFFFFFFF, or data outside where it must lie
    TOO_LARGE,      ///< more than a limit the operation sets
    OUT_OF_MEMORY,  ///< the memory the operation needs could not be had
    MISMATCH        ///< a comparison found bytes that differ or are missing
};

/// @return the name of status as it is written in the code, such as
/// "CHECKSUM".
HEXBLOCKS_API const char* statusName(status_t status);

/// What an operation that can fail reports. Converts to true on success.
struct result_t {
    status_t status = status_t::OK; ///< What went wrong; OK on success.
    std::string reason;             ///< Why it failed, one line without a final period; empty on success.
    size_t line = 0;                ///< The line of the input to blame; 0 when none is.
    std::optional<uint32_t> address; ///< The address to blame, when there is one.

    /// @return true when status is OK.
    bool ok() const { return status == status_t::OK; }
    /// @return ok().
    explicit operator bool() const { return ok(); }
};

/// @return a result (result_t, or one derived from it) with status, reason
/// and line.
template <typename Result = result_t> Result failure(status_t status, std::string reason, size_t line = 0)
{
    Result result;
    result.status = status;
    result.reason = std::move(reason);
    result.line = line;
    return result;
}

/// @return a result (result_t, or one derived from it) with status and
/// reason that blames address.
template <typename Result = result_t> Result failureAt(status_t status, std::string reason, uint32_t address)
{
    Result result = failure<Result>(status, std::move(reason));
    result.address = address;
    return result;
}

} // namespace hexblocks

#endif // HEXBLOCKS_RESULT_H
