// The full-format reader: the whole Intel HEX format (record types 00 to
// 05), records in any order, into a MemoryImage. MemoryImage::readHex and
// IntelHexFile::loadFullFormat both funnel into it; it prints nothing and
// reports what happened in a fullread_t, from which each of them makes its
// own report.
//
// Internal to the library: not installed.
#ifndef INTELHEX_FULL_FORMAT_READER_H
#define INTELHEX_FULL_FORMAT_READER_H

#include "memory_image.h"
#include "record_scanner.h"

#include <cstdint>
#include <string>
#include <vector>

namespace intelhex_internal {

// What the full-format reader found.
struct fullread_t {
    enum class status_t {
        OK,
        BAD_LINE,         // a malformed record: line, reason and text say which and why
        UNSUPPORTED_TYPE, // a record of type 06 or above: line, type and text
        READ_ERROR        // the source could not be read
    };
    status_t status = status_t::OK;
    size_t line = 0;
    std::string reason;
    std::string text; // the offending line without surrounding white space
    uint8_t type = 0;

    // Warnings: a second, different start address, kept after a failure too;
    // the others only after a success.
    std::vector<size_t> ignoredStartLines;
    bool sawEndRecord = false;
    uint64_t repeatedBytes = 0; // bytes given again by overlapping records
    size_t firstRepeatLine = 0; // the first line that gave one

    bool sorted = false; // the records were placed by sorting them
};

// How records are placed: in a window per region, falling back to sorting
// when records jump between regions too often; or by sorting alone.
enum class placement_t { WINDOWS, SORTING };

// Reads source with the whole format. On success image is replaced by what
// was read; otherwise it is left as it was. Records that keep jumping between
// regions make the reader start again with a slower method that takes any
// order, so a source that cannot be rewound (a pipe) is read into memory
// first.
fullread_t readFullFormat(TextSource& source, MemoryImage& image, placement_t placement = placement_t::WINDOWS);

// The warnings of a read, as MemoryImage reports them.
std::vector<MemoryImage::warning_t> warningsOf(const fullread_t& read);

} // namespace intelhex_internal

#endif // INTELHEX_FULL_FORMAT_READER_H
