#include "c_support.h"

#include <cstdlib>
#include <cstring>

namespace hexblocks::c_api {

namespace {

// The length of text cut to fit size bytes with its NUL, at a character
// boundary: a UTF-8 continuation byte is never the first one left out.
size_t fittingLength(const char* text, size_t size)
{
    size_t length = std::strlen(text);
    if (length < size)
        return length;
    length = size - 1;
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
        --length;
    return length;
}

// The C status of a library status: the same values, in the same order.
hb_status_t statusOf(status_t status)
{
    return static_cast<hb_status_t>(status);
}

#define HB_SAME_STATUS(NAME) static_assert(static_cast<int>(status_t::NAME) == HB_##NAME, #NAME)
HB_SAME_STATUS(OK);
HB_SAME_STATUS(BAD_ARGUMENT);
HB_SAME_STATUS(CANNOT_OPEN);
HB_SAME_STATUS(CANNOT_READ);
HB_SAME_STATUS(CANNOT_WRITE);
HB_SAME_STATUS(SYNTAX);
HB_SAME_STATUS(CHECKSUM);
HB_SAME_STATUS(UNSUPPORTED);
HB_SAME_STATUS(UNKNOWN_FORMAT);
HB_SAME_STATUS(OVERLAP);
HB_SAME_STATUS(OUT_OF_RANGE);
HB_SAME_STATUS(TOO_LARGE);
HB_SAME_STATUS(OUT_OF_MEMORY);
HB_SAME_STATUS(MISMATCH);
#undef HB_SAME_STATUS

#define HB_SAME_FORMAT(NAME) \
    static_assert(static_cast<int>(file_format_t::NAME) == HB_FORMAT_##NAME, #NAME)
HB_SAME_FORMAT(INTEL_HEX);
HB_SAME_FORMAT(SRECORD);
HB_SAME_FORMAT(BINARY);
HB_SAME_FORMAT(ELF);
HB_SAME_FORMAT(UF2);
HB_SAME_FORMAT(TI_TXT);
HB_SAME_FORMAT(VERILOG);
HB_SAME_FORMAT(MIF);
HB_SAME_FORMAT(COE);
HB_SAME_FORMAT(C_ARRAY);
HB_SAME_FORMAT(INTEL_HEX_16);
#undef HB_SAME_FORMAT

// The library's format of a C format; false (error filled) for a value
// that is none.
bool formatOf(const hb_format_t& value, file_format_t& format, hb_error_t* error)
{
    const std::optional<int64_t> v = enumeratorOf(value, HB_FORMAT_INTEL_HEX, HB_FORMAT_INTEL_HEX_16, "format", error);
    if (v)
        format = static_cast<file_format_t>(*v);
    return v.has_value();
}

} // namespace

hb_status_t report(hb_error_t* error, hb_status_t status, const char* reason, size_t line,
                   const std::optional<uint32_t>& address) noexcept
{
    if (error != nullptr) {
        error->status = status;
        error->line = line;
        error->hasAddress = address.has_value();
        error->address = address.value_or(0);
        const size_t length = fittingLength(reason, sizeof error->reason);
        std::memcpy(error->reason, reason, length);
        error->reason[length] = '\0';
    }
    return status;
}

hb_status_t report(hb_error_t* error, const result_t& result)
{
    return report(error, statusOf(result.status), result.reason.c_str(), result.line, result.address);
}

hb_status_t succeed(hb_error_t* error)
{
    return report(error, HB_OK, "");
}

hb_status_t badArgument(hb_error_t* error, const std::string& reason)
{
    return report(error, HB_BAD_ARGUMENT, reason);
}

hb_status_t nullArgument(hb_error_t* error, const char* name)
{
    return badArgument(error, std::string(name) + " is NULL");
}

hb_status_t reportInternal(hb_error_t* error, const char* what) noexcept
{
    char reason[HB_REASON_SIZE];
    const char* prefix = "unexpected failure: ";
    const size_t prefixLength = std::strlen(prefix);
    std::memcpy(reason, prefix, prefixLength);
    const size_t length = fittingLength(what, sizeof reason - prefixLength);
    std::memcpy(reason + prefixLength, what, length);
    reason[prefixLength + length] = '\0';
    return report(error, HB_INTERNAL, reason);
}

hb_status_t uninitialised(hb_error_t* error, const char* init)
{
    return badArgument(error, std::string("options not initialised: call ") + init + "()");
}

// The calls that reach the warning callback of hb_read_options_t are in
// the reading functions; these only carry the values.
bool readOptionsOf(const hb_read_options_t* options, read_options_t& out, hb_error_t* error)
{
    out = read_options_t();
    if (options == nullptr)
        return true;
    if (options->size == 0) {
        uninitialised(error, "hb_readOptionsInit");
        return false;
    }
    if (HB_REACHES(options, hb_read_options_t, detect))
        out.detect = options->detect != 0;
    if (HB_REACHES(options, hb_read_options_t, format) && !out.detect && !formatOf(options->format, out.format, error))
        return false;
    if (HB_REACHES(options, hb_read_options_t, address))
        out.address = options->address;
    if (HB_REACHES(options, hb_read_options_t, wordWidth))
        out.wordWidth = options->wordWidth;
    if (HB_REACHES(options, hb_read_options_t, overlap) && options->hasOverlap) {
        const std::optional<int64_t> policy =
            enumeratorOf(options->overlap, HB_OVERLAP_ERROR, HB_OVERLAP_IDENTICAL, "overlap policy", error);
        if (!policy)
            return false;
        out.overlap = static_cast<overlap_policy_t>(*policy);
    }
    if (HB_REACHES(options, hb_read_options_t, family) && options->hasFamily)
        out.family = options->family;
    return true;
}

bool writeOptionsOf(const hb_write_options_t* options, write_options_t& out, hb_error_t* error)
{
    out = write_options_t();
    if (options == nullptr)
        return true;
    if (options->size == 0) {
        uninitialised(error, "hb_writeOptionsInit");
        return false;
    }
    if (HB_REACHES(options, hb_write_options_t, format) && !formatOf(options->format, out.format, error))
        return false;
    if (HB_REACHES(options, hb_write_options_t, recordSize))
        out.recordSize = options->recordSize;
    if (HB_REACHES(options, hb_write_options_t, addressing)) {
        const std::optional<int64_t> addressing =
            enumeratorOf(options->addressing, HB_ADDRESSING_LINEAR, HB_ADDRESSING_SEGMENT, "addressing", error);
        if (!addressing)
            return false;
        out.addressing = *addressing == HB_ADDRESSING_SEGMENT ? addressing_t::SEGMENT : addressing_t::LINEAR;
    }
    if (HB_REACHES(options, hb_write_options_t, addressSize))
        out.addressSize = options->addressSize;
    if (HB_REACHES(options, hb_write_options_t, crlf))
        out.crlf = options->crlf != 0;
    if (HB_REACHES(options, hb_write_options_t, fill))
        out.fill = options->fill;
    if (HB_REACHES(options, hb_write_options_t, wordWidth))
        out.wordWidth = options->wordWidth;
    if (HB_REACHES(options, hb_write_options_t, family) && options->hasFamily)
        out.family = options->family;
    if (HB_REACHES(options, hb_write_options_t, name) && options->name != nullptr)
        out.name = options->name;
    return true;
}

} // namespace hexblocks::c_api

using namespace hexblocks;
using namespace hexblocks::c_api;

extern "C" {

const char* hb_statusName(hb_status_t status)
{
    const int64_t value = valueOf(status);
    if (value < HB_OK || value > HB_INTERNAL)
        return "UNKNOWN";
    if (value == HB_INTERNAL)
        return "INTERNAL";
    return statusName(static_cast<status_t>(value));
}

const char* hb_version(void)
{
    return HEXBLOCKS_VERSION;
}

void hb_free(void* memory)
{
    std::free(memory);
}

} // extern "C"
