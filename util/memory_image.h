/// @file memory_image.h
/// A sparse 32-bit memory image: ordered runs of bytes at full 32-bit
/// addresses, and the program's start address if one is known.
///
/// @code
/// #include "memory_image.h"
///
/// MemoryImage image;
/// const MemoryImage::readresult_t read = image.readHexFile("firmware.hex");
/// if (!read) {
///     std::fprintf(stderr, "firmware.hex:%zu: %s\n", read.line, read.reason.c_str());
///     return 1;
/// }
/// for (const MemoryImage::segment_t& s : image.segments())
///     std::printf("0x%08X: %zu bytes\n", s.address, s.bytes.size());
/// // The flash page at 0x08004000, 0xFF where the file gives no data.
/// std::vector<uint8_t> page = image.copyRange(0x08004000, 2048, 0xFF);
/// @endcode
///
/// Nothing here prints: every operation that can fail reports through its
/// result, with a reason and, when a line of the input is to blame, its
/// number. Addresses run from 0 to 0xFFFFFFFF on every platform; an image
/// whose last byte is at 0xFFFFFFFF is legal, and sizes and spans that can
/// reach 2^32 are 64-bit.
#ifndef INTELHEX_MEMORY_IMAGE_H
#define INTELHEX_MEMORY_IMAGE_H

#include "intelhex.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// A sparse 32-bit memory image.
///
/// The image is a list of segments in ascending address order. Segments never
/// overlap and never touch: between two segments there is at least one
/// address without data, so every segment is a maximal run of contiguous
/// data. A segment is never empty.
class INTELHEX_API MemoryImage {
public:
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
    struct startaddress_t {
        /// The kind, as the Intel HEX record type that gives it: 3 (start
        /// segment address, CS:IP) or 5 (start linear address).
        uint8_t type;
        /// For type 5 the linear address; for type 3 CS in the upper and IP
        /// in the lower 16 bits (the address it stands for is CS * 16 + IP).
        uint32_t value;
    };

    /// Something worth telling about an input that was read all the same.
    struct warning_t {
        size_t line;         ///< The line it concerns; 0 for the whole input.
        std::string message; ///< One line of text without a final period.
    };

    /// What reading an image reports. Converts to true on success.
    struct readresult_t {
        bool ok = false;                 ///< The image was read.
        size_t line = 0;                 ///< The line to blame for a failure; 0 when none is.
        std::string reason;              ///< Why reading failed; empty on success.
        /// In the order they were found; those found before a failure are kept.
        std::vector<warning_t> warnings;

        /// @return ok.
        explicit operator bool() const { return ok; }
    };

    /// What an operation that can fail reports. Converts to true on success.
    struct result_t {
        bool ok = true;     ///< It succeeded.
        std::string reason; ///< Why it failed; empty on success.

        /// @return ok.
        explicit operator bool() const { return ok; }
    };

    /// Options for turning an image into IntelHexFile blocks.
    struct blockoptions_t {
        /// One block from the lowest to the highest address, with fill in the
        /// gaps, instead of one block per segment.
        bool oneBlock;
        /// The byte for addresses without data in one-block mode.
        uint8_t fill;
        /// Largest one-block image, in bytes; a wider image fails.
        uint64_t maxImageSize;

        /// One block per segment; for one-block mode, fill 0xFF and a limit of
        /// 256 MiB.
        blockoptions_t() : oneBlock(false), fill(0xFF), maxImageSize(256u << 20) {}
    };

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
    startaddress_t startAddress() const;

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
    result_t setStartAddress(const startaddress_t& start);

    /// Removes the start address.
    void clearStartAddress();

    /// Removes all data and the start address.
    void clear();

    /// @}

    /// @name Reading Intel HEX
    /// The whole format: record types 00 to 05, extended segment and linear
    /// addresses, start addresses, blank lines and white space around
    /// records, records in any order. A record that starts where an earlier
    /// one started is dropped whole; where records overlap otherwise, each
    /// byte keeps the first value given, with a warning. A file without an
    /// end-of-file record is read, with a warning. On success the image is
    /// replaced by what was read; on failure it is left as it was.
    /// @{

    /// Reads the Intel HEX file at path ("-" is not special). A file that
    /// cannot be rewound, such as a pipe, is read into memory first.
    readresult_t readHexFile(const char* path);

    /// Reads Intel HEX text of size bytes from memory, such as firmware
    /// received over a socket.
    readresult_t readHex(const void* text, size_t size);

    /// @}

    /// @name IntelHexFile blocks
    /// @{

    /// An image holding the blocks of file, at their full 32-bit addresses
    /// (linear base times 65536 plus start address, modulo 2^32), and its
    /// start address if it has one. Where blocks overlap, the later block's
    /// bytes replace the earlier's, as one-block mode does for records.
    static MemoryImage fromBlocks(const IntelHexFile& file);

    /// Appends the image to file as blocks, after any blocks it holds: one
    /// block per segment (its linear base the upper and its start address the
    /// lower 16 bits of the segment's address; a block may exceed 64 KiB),
    /// or in one-block mode a single block over the whole span. Sets file's
    /// start address when the image has one.
    /// @return a failure, with file unchanged, when a one-block image would
    /// exceed options.maxImageSize.
    result_t appendTo(IntelHexFile& file, const blockoptions_t& options = blockoptions_t()) const&;

    /// As appendTo, moving the segments' bytes into the blocks instead of
    /// copying them. The image is empty afterwards, unless it failed.
    result_t appendTo(IntelHexFile& file, const blockoptions_t& options = blockoptions_t()) &&;

    /// @}

private:
    friend class MemoryImageBuilder;

    std::vector<segment_t> segments_;
    startaddress_t start_;
    bool hasStart_;
};

#endif // INTELHEX_MEMORY_IMAGE_H
