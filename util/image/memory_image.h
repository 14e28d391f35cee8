/// @file memory_image.h
/// A sparse 32-bit memory image: ordered runs of bytes at full 32-bit
/// addresses, and the program's start address if one is known.
///
/// @code
/// #include <hexblocks/formats.h>
/// #include <hexblocks/memory_image.h>
///
/// hexblocks::MemoryImage image;
/// const hexblocks::read_result_t read = hexblocks::readFile(image, "firmware.hex");
/// if (!read) {
///     std::fprintf(stderr, "firmware.hex:%zu: %s\n", read.line, read.reason.c_str());
///     return 1;
/// }
/// for (const hexblocks::segment_t& s : image.segments())
///     std::printf("0x%08X: %zu bytes\n", s.address, s.bytes.size());
/// // The flash page at 0x08004000, 0xFF where the file gives no data.
/// std::vector<uint8_t> page = image.copyRange(0x08004000, 2048, 0xFF);
/// @endcode
///
/// Reading and writing files is in formats.h; turning an image into
/// IntelHexFile blocks in image_blocks.h.
///
/// Nothing here prints: every operation that can fail reports through its
/// result, with a reason. Addresses run from 0 to 0xFFFFFFFF on every
/// platform; an image whose last byte is at 0xFFFFFFFF is legal, and sizes
/// and spans that can reach 2^32 are 64-bit.
#ifndef HEXBLOCKS_MEMORY_IMAGE_H
#define HEXBLOCKS_MEMORY_IMAGE_H

#include "export.h"
#include "result.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hexblocks {

namespace detail {
class ImageBuilder;
}

/// A run of contiguous bytes at a full 32-bit address.
struct segment_t {
    uint32_t address;           ///< Address of the first byte.
    std::vector<uint8_t> bytes; ///< The bytes, lowest address first.

    /// @return the address of the last byte.
    uint32_t lastAddress() const { return static_cast<uint32_t>(address + (bytes.size() - 1)); }
    /// @return the address one past the last byte (up to 2^32).
    uint64_t endAddress() const { return static_cast<uint64_t>(address) + bytes.size(); }
};

/// The program's start address, as the input gave it.
struct start_address_t {
    /// The kind, as the Intel HEX record type that gives it: 3 (start
    /// segment address, CS:IP) or 5 (start linear address).
    uint8_t type;
    /// For type 5 the linear address; for type 3 CS in the upper and IP
    /// in the lower 16 bits (the address it stands for is CS * 16 + IP).
    uint32_t value;
};

/// The addresses from start up to, not including, end; end may be 2^32
/// for a range that runs to the top of the address space.
struct range_t {
    uint32_t start; ///< The first address.
    uint64_t end;   ///< One past the last address, up to 2^32.

    /// @return the number of addresses (0 when end <= start).
    uint64_t size() const { return end > start ? end - start : 0; }
};

/// What merge() does at an address both images give data at.
enum class overlap_policy_t {
    ERROR,    ///< fail
    FIRST,    ///< keep the image's byte
    LAST,     ///< take the other image's byte
    IDENTICAL ///< accept equal bytes, fail at different ones
};

/// What merge() does with the start addresses.
enum class start_policy_t {
    ERROR, ///< fail when both images give one and they differ
    FIRST, ///< keep the image's, or take the other's when the image has none
    LAST,  ///< take the other image's when it gives one
    DROP   ///< the result has none
};

/// How merge() combines two images.
struct merge_options_t {
    overlap_policy_t overlap = overlap_policy_t::ERROR; ///< for data at the same address
    start_policy_t start = start_policy_t::ERROR;       ///< for the start addresses
};

/// What merge() reports: on a clash, status OVERLAP, and for data the
/// lowest address of the clash with both bytes there. Converts to true on
/// success.
struct merge_result_t : result_t {
    /// What stopped the merge.
    enum class clash_t {
        NONE,         ///< nothing: it succeeded
        DATA,         ///< both images give data at address
        START_ADDRESS ///< the images give different start addresses
    };
    clash_t clash = clash_t::NONE; ///< What stopped it; NONE on success.
    uint8_t imageByte = 0;         ///< DATA: the image's byte at address.
    uint8_t otherByte = 0;         ///< DATA: the other image's byte at address.
};

/// A data byte that a read-back dump does not match.
struct mismatch_t {
    uint32_t address; ///< Where.
    uint8_t expected; ///< The image's byte.
    uint8_t found;    ///< The dump's byte.
};

/// What verify() and verifyFile() report. Converts to true when every
/// data byte of the image lies in the dump and matches; status is MISMATCH
/// when some do not, and for verifyFile() CANNOT_OPEN or CANNOT_READ when the
/// dump could not be read (the counts are then those up to the failure).
struct verify_result_t : result_t {
    uint64_t compared = 0;         ///< Data bytes that lie in the dump, compared.
    uint64_t mismatches = 0;       ///< Of those, the bytes that differ.
    uint64_t notCovered = 0;       ///< Data bytes outside the dump.
    uint32_t firstNotCovered = 0;  ///< The lowest of those, when there are any.
    std::vector<mismatch_t> first; ///< The lowest mismatches, as many as asked for.
};

/// A range of addresses where two images differ.
struct difference_t {
    /// How they differ there.
    enum class kind_t {
        ONLY_IMAGE, ///< only the image has data
        ONLY_OTHER, ///< only the other image has data
        DIFFER      ///< both have data, and some bytes differ
    };
    kind_t kind;    ///< How they differ.
    uint32_t start; ///< The first address.
    uint64_t end;   ///< One past the last address, up to 2^32.
    /// ONLY_IMAGE, ONLY_OTHER: the size of the range; DIFFER: the bytes
    /// that differ in it.
    uint64_t bytes;
};

/// How diff() reports differing bytes.
struct diff_options_t {
    /// Differing bytes separated by at most this many equal ones share a
    /// DIFFER range; 0 gives every run of differing bytes its own.
    uint32_t join = 16;
};

/// What diff() reports.
struct diff_result_t {
    /// Where the images differ, in address order; the ranges never overlap.
    std::vector<difference_t> ranges;
    /// One image has a start address and the other none, or they stand
    /// for different addresses.
    bool startDiffers = false;

    /// @return true when the images hold the same data and start address.
    bool equal() const { return ranges.empty() && !startDiffers; }
};

/// A sparse 32-bit memory image.
///
/// The image is a list of segments in ascending address order. Segments never
/// overlap and never touch: between two segments there is at least one
/// address without data, so every segment is a maximal run of contiguous
/// data. A segment is never empty.
class HEXBLOCKS_API MemoryImage {
public:
    /// An empty image without a start address.
    MemoryImage();

    /// @name Queries
    /// @{

    /// @return the segments in ascending address order.
    const std::vector<segment_t>& segments() const;

    /// @return true when the image holds no data (it may still have a start
    /// address).
    bool empty() const;

    /// @return the address of the first data byte; 0 for an empty image.
    uint32_t lowestAddress() const;

    /// @return the address of the last data byte; 0 for an empty image.
    uint32_t highestAddress() const;

    /// @return the number of addresses from the lowest to the highest,
    /// both included, data or not (up to 2^32); 0 for an empty image.
    uint64_t span() const;

    /// @return the number of data bytes (up to 2^32).
    uint64_t dataSize() const;

    /// @return true when address holds data.
    bool hasDataAt(uint32_t address) const;

    /// Copies length bytes starting at address into out; addresses without
    /// data, including any past 0xFFFFFFFF, give fill.
    void copyRange(uint32_t address, size_t length, uint8_t fill, uint8_t* out) const;

    /// @return length bytes starting at address, fill where there is no data.
    /// @throw std::bad_alloc when length bytes cannot be allocated.
    std::vector<uint8_t> copyRange(uint32_t address, size_t length, uint8_t fill = 0xFF) const;

    /// @return true when a start address is set.
    bool hasStartAddress() const;

    /// @return the start address; type and value 0 when none is set.
    start_address_t startAddress() const;

    /// @return the header: the bytes of an S-record file's S0 record (often
    /// a name or a version); empty when there is none.
    const std::string& header() const;

    /// @}

    /// @name Changing the image
    /// @{

    /// Places length bytes at address, replacing any data there; segments
    /// that meet or overlap the new bytes are joined with them.
    /// @return a failure, with nothing changed, when the bytes would run past
    /// 0xFFFFFFFF.
    result_t write(uint32_t address, const uint8_t* data, size_t length);

    /// Sets the start address; type must be 3 or 5.
    /// @return a failure, with nothing changed, for another type.
    result_t setStartAddress(const start_address_t& start);

    /// Removes the start address.
    void clearStartAddress();

    /// Sets the header that S-record output carries in its S0 record.
    /// @return a failure, with nothing changed, for more than 252 bytes, the
    /// most an S0 record holds.
    result_t setHeader(const std::string& header);

    /// Removes all data, the start address and the header.
    void clear();

    /// @}

    /// @name Merging and editing
    /// Each of these changes nothing when it fails.
    /// @{

    /// Adds the data of other, which comes later, to the image. Where both
    /// give data, options.overlap decides: fail at the lowest such address
    /// (ERROR), keep the image's bytes (FIRST), take other's (LAST), or fail
    /// at the lowest address where the bytes differ (IDENTICAL).
    /// options.start decides the start address. The image keeps its header,
    /// or takes other's when it has none.
    merge_result_t merge(const MemoryImage& other, const merge_options_t& options = merge_options_t());

    /// As merge(), moving other's bytes instead of copying them where they
    /// can be moved whole. other is left empty, unless it failed.
    merge_result_t merge(MemoryImage&& other, const merge_options_t& options = merge_options_t());

    /// Moves the data by delta (negative: down). A start address moves with
    /// it and becomes linear (type 5).
    /// @return a failure when a data byte or the start address would leave
    /// 0 to 0xFFFFFFFF.
    result_t offset(int64_t delta);

    /// Keeps only the data inside the ranges (their union).
    void crop(const std::vector<range_t>& ranges);

    /// Removes the data inside range.
    void exclude(const range_t& range);

    /// Gives fill to every address in range that holds no data.
    /// @throw std::bad_alloc when the memory runs out.
    void fillRange(const range_t& range, uint8_t fill);

    /// Reverses the bytes inside each wordSize-byte word (2 or 4), words
    /// being aligned to their size.
    /// @return a failure, naming the first address, when some data does not
    /// lie in whole words of data, or for another word size.
    result_t swapBytes(unsigned wordSize);

    /// @}

    /// @name Comparing
    /// @{

    /// Compares every data byte of the image with the byte at the same
    /// address of a dump of size bytes read back from address (a flash
    /// read-out, say). Data bytes outside the dump are not covered, and fail
    /// the check. The first maxListed mismatches, lowest address first, are
    /// listed.
    verify_result_t verify(const void* dump, size_t size, uint32_t address, size_t maxListed = 10) const;

    /// As verify(), with the dump read from the file at path, a piece at a
    /// time; the parts of the file next to no data are skipped where the file
    /// can seek. A pipe or device is read as it comes.
    verify_result_t verifyFile(const char* path, uint32_t address, size_t maxListed = 10) const;

    /// Compares the image with other: the ranges where only one of them has
    /// data, the ranges where both have data and bytes differ, and the start
    /// addresses, compared by the address they stand for (CS * 16 + IP for
    /// a segment start address). The headers are not compared.
    diff_result_t diff(const MemoryImage& other, const diff_options_t& options = diff_options_t()) const;

    /// @}

private:
    friend class detail::ImageBuilder;

    std::vector<segment_t> segments_;
    start_address_t start_;
    bool hasStart_;
    std::string header_;
};

} // namespace hexblocks

#endif // HEXBLOCKS_MEMORY_IMAGE_H
