// What the C functions share: the handles behind the opaque types, the
// filling of hb_error_t from the library's results, the guard that turns
// every exception into a status, and the reading of versioned options.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_C_SUPPORT_H
#define HEXBLOCKS_C_SUPPORT_H

#include "checksum.h"
#include "flash_plan.h"
#include "formats.h"
#include "hexblocks.h"
#include "memory_image.h"
#include "result.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

struct hb_image_t {
    hexblocks::MemoryImage image;
};

struct hb_checksum_t {
    explicit hb_checksum_t(const hexblocks::Checksum::algorithm_t& algorithm, uint8_t padding)
        : checksum(algorithm, padding)
    {
    }
    hexblocks::Checksum checksum;
};

// The plan, and its lists as C arrays.
struct hb_flash_plan_t {
    hexblocks::FlashPlan plan;
    std::vector<hb_sector_t> erase;
    std::vector<hb_range_t> write;
};

struct hb_page_walker_t {
    hb_page_walker_t(const hexblocks::MemoryImage& image, const hexblocks::FlashPlan& plan) : walker(image, plan) {}
    hexblocks::FlashPlan::PageWalker walker;
};

namespace hexblocks::c_api {

// Fills error (when given) with status, reason, line and address; gives
// the status back. Never throws.
hb_status_t report(hb_error_t* error, hb_status_t status, const char* reason, size_t line = 0,
                   const std::optional<uint32_t>& address = std::nullopt) noexcept;

inline hb_status_t report(hb_error_t* error, hb_status_t status, const std::string& reason)
{
    return report(error, status, reason.c_str());
}

// Fills error with what result says, HB_OK and nothing else on success.
hb_status_t report(hb_error_t* error, const result_t& result);

hb_status_t succeed(hb_error_t* error);

hb_status_t badArgument(hb_error_t* error, const std::string& reason);

// "NAME is NULL" as a bad argument.
hb_status_t nullArgument(hb_error_t* error, const char* name);

// HB_INTERNAL with what was thrown.
hb_status_t reportInternal(hb_error_t* error, const char* what) noexcept;

// Runs work, which returns a status (having filled error), and turns any
// exception it throws into one: std::bad_alloc into HB_OUT_OF_MEMORY,
// anything else into HB_INTERNAL.
template <typename Work> hb_status_t guarded(hb_error_t* error, Work&& work) noexcept
{
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return report(error, HB_OUT_OF_MEMORY, "out of memory");
    } catch (const std::exception& e) {
        return reportInternal(error, e.what());
    } catch (...) {
        return reportInternal(error, "an exception of an unknown type");
    }
}

// Whether options, of the caller's size, reach member (whose offset and
// size are given): fields a caller's older struct lacks take defaults.
inline bool reaches(size_t size, size_t offset, size_t memberSize)
{
    return size >= offset + memberSize;
}

#define HB_REACHES(options, Type, member) \
    ::hexblocks::c_api::reaches((options)->size, offsetof(Type, member), sizeof((options)->member))

// "options not initialised: call INIT()" for options whose size is 0.
hb_status_t uninitialised(hb_error_t* error, const char* init);

// Turns C options into the library's; false (error filled) when they are
// not valid.
bool readOptionsOf(const hb_read_options_t* options, read_options_t& out, hb_error_t* error);
bool writeOptionsOf(const hb_write_options_t* options, write_options_t& out, hb_error_t* error);

// The value of an enumeration a C caller gave, read as its bytes: a C
// caller may pass any value of the underlying type, and taking one outside
// the enumerators as the C++ enumeration is undefined.
template <typename Enum> int64_t valueOf(const Enum& value)
{
    std::underlying_type_t<Enum> raw;
    std::memcpy(&raw, &value, sizeof raw);
    return static_cast<int64_t>(raw);
}

// The value of a C enumeration when it lies from first to last; otherwise
// nothing, with error filled: "unknown WHAT VALUE".
template <typename Enum>
std::optional<int64_t> enumeratorOf(const Enum& value, int64_t first, int64_t last, const char* what,
                                    hb_error_t* error)
{
    const int64_t v = valueOf(value);
    if (v >= first && v <= last)
        return v;
    badArgument(error, std::string("unknown ") + what + " " + std::to_string(v));
    return std::nullopt;
}

// A range of the C API as the library's.
inline range_t rangeOf(hb_range_t range)
{
    return range_t{range.start, range.end};
}

} // namespace hexblocks::c_api

#endif // HEXBLOCKS_C_SUPPORT_H
