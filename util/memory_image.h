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
///
/// // Any format in (Intel HEX, S-records or ELF, told by the content), S-records out.
/// MemoryImage app;
/// if (!app.readFile("app.elf")) ...
/// MemoryImage::saveoptions_t options;
/// options.format = MemoryImage::fileformat_t::SRECORD;
/// const MemoryImage::result_t saved = app.saveFile("app.s37", options);
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
#include <iosfwd>
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

    /// The file formats an image is read from and saved in.
    enum class fileformat_t {
        INTEL_HEX, ///< Intel HEX (read and saved)
        SRECORD,   ///< Motorola S-records (read and saved)
        BINARY,    ///< raw bytes (read at a given address; saved from the lowest to the highest address)
        ELF        ///< ELF, 32 or 64 bits, either byte order (read only)
    };

    /// How readFile() and readMemory() read their input.
    struct readoptions_t {
        /// Tell the format from the content (see detectFormat()) instead of
        /// taking format. Binary input cannot be told, so it is never chosen.
        bool detect;
        /// The format, when detect is false.
        fileformat_t format;
        /// Where binary input is placed.
        uint32_t address;

        /// Detect the format; binary input at address 0.
        readoptions_t() : detect(true), format(fileformat_t::INTEL_HEX), address(0) {}
    };

    /// Intel HEX addressing: extended linear (type 04) or extended segment
    /// (type 02) address records.
    enum class addressing_t { LINEAR, SEGMENT };

    /// How save() and saveFile() write the image.
    struct saveoptions_t {
        /// INTEL_HEX, SRECORD or BINARY.
        fileformat_t format;
        /// Data bytes per record: 1 to 255 for Intel HEX; for S-records at
        /// most 255 less the address size and the checksum (252, 251, 250).
        unsigned recordSize;
        /// Intel HEX address records; SEGMENT reaches only the first MiB.
        addressing_t addressing;
        /// S-record address size in bytes: 2 (S1/S9), 3 (S2/S8) or 4
        /// (S3/S7); 0 for the smallest that holds every data address and the
        /// start address.
        unsigned addressSize;
        /// End lines with CR LF instead of LF.
        bool crlf;
        /// Binary output: the byte for addresses without data.
        uint8_t fill;

        /// Intel HEX, 16 bytes a record, linear addressing, LF, fill 0xFF.
        saveoptions_t()
            : format(fileformat_t::INTEL_HEX), recordSize(16), addressing(addressing_t::LINEAR), addressSize(0),
              crlf(false), fill(0xFF)
        {
        }
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
    enum class overlappolicy_t {
        ERROR,    ///< fail
        FIRST,    ///< keep the image's byte
        LAST,     ///< take the other image's byte
        IDENTICAL ///< accept equal bytes, fail at different ones
    };

    /// What merge() does with the start addresses.
    enum class startpolicy_t {
        ERROR, ///< fail when both images give one and they differ
        FIRST, ///< keep the image's, or take the other's when the image has none
        LAST,  ///< take the other image's when it gives one
        DROP   ///< the result has none
    };

    /// How merge() combines two images.
    struct mergeoptions_t {
        overlappolicy_t overlap; ///< for data at the same address
        startpolicy_t start;     ///< for the start addresses

        /// Both ERROR.
        mergeoptions_t() : overlap(overlappolicy_t::ERROR), start(startpolicy_t::ERROR) {}
    };

    /// What merge() reports. Converts to true on success.
    struct mergeresult_t {
        /// What stopped the merge.
        enum class clash_t {
            NONE,         ///< nothing: it succeeded
            DATA,         ///< both images give data at address
            START_ADDRESS ///< the images give different start addresses
        };
        bool ok = true;               ///< It succeeded.
        clash_t clash = clash_t::NONE; ///< What stopped it; NONE on success.
        std::string reason;           ///< Why it failed; empty on success.
        uint32_t address = 0;         ///< DATA: the lowest address of the clash.
        uint8_t imageByte = 0;        ///< DATA: the image's byte there.
        uint8_t otherByte = 0;        ///< DATA: the other image's byte there.

        /// @return ok.
        explicit operator bool() const { return ok; }
    };

    /// A data byte that a read-back dump does not match.
    struct mismatch_t {
        uint32_t address; ///< Where.
        uint8_t expected; ///< The image's byte.
        uint8_t found;    ///< The dump's byte.
    };

    /// What verify() and verifyFile() report. Converts to true when every
    /// data byte of the image lies in the dump and matches.
    struct verifyresult_t {
        bool ok = false;               ///< Every data byte lies in the dump and matches.
        /// verifyFile(): why the dump could not be read (the counts are then
        /// those up to the failure); empty when it was read.
        std::string reason;
        uint64_t compared = 0;         ///< Data bytes that lie in the dump, compared.
        uint64_t mismatches = 0;       ///< Of those, the bytes that differ.
        uint64_t notCovered = 0;       ///< Data bytes outside the dump.
        uint32_t firstNotCovered = 0;  ///< The lowest of those, when there are any.
        std::vector<mismatch_t> first; ///< The lowest mismatches, as many as asked for.

        /// @return ok.
        explicit operator bool() const { return ok; }
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
    struct diffoptions_t {
        /// Differing bytes separated by at most this many equal ones share a
        /// DIFFER range; 0 gives every run of differing bytes its own.
        uint32_t join;

        /// join 16.
        diffoptions_t() : join(16) {}
    };

    /// What diff() reports.
    struct diffresult_t {
        /// Where the images differ, in address order; the ranges never overlap.
        std::vector<difference_t> ranges;
        /// One image has a start address and the other none, or they stand
        /// for different addresses.
        bool startDiffers = false;

        /// @return true when the images hold the same data and start address.
        bool equal() const { return ranges.empty() && !startDiffers; }
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
    result_t setStartAddress(const startaddress_t& start);

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
    mergeresult_t merge(const MemoryImage& other, const mergeoptions_t& options = mergeoptions_t());

    /// As merge(), moving other's bytes instead of copying them where they
    /// can be moved whole. other is left empty, unless it failed.
    mergeresult_t merge(MemoryImage&& other, const mergeoptions_t& options = mergeoptions_t());

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
    verifyresult_t verify(const void* dump, size_t size, uint32_t address, size_t maxListed = 10) const;

    /// As verify(), with the dump read from the file at path, a piece at a
    /// time; the parts of the file next to no data are skipped where the file
    /// can seek. A pipe or device is read as it comes.
    verifyresult_t verifyFile(const char* path, uint32_t address, size_t maxListed = 10) const;

    /// Compares the image with other: the ranges where only one of them has
    /// data, the ranges where both have data and bytes differ, and the start
    /// addresses, compared by the address they stand for (CS * 16 + IP for
    /// a segment start address). The headers are not compared.
    diffresult_t diff(const MemoryImage& other, const diffoptions_t& options = diffoptions_t()) const;

    /// @}

    /// @name Finding the line of a byte
    /// The line of the record that gives the byte at address in an Intel
    /// HEX or S-record input, as reading it takes it (the first record that
    /// gives the byte, ignoring records dropped for starting where an
    /// earlier one started); 0 when no record gives it, the input cannot be
    /// read, or the format has no lines (ELF, binary).
    /// @{

    /// The line in size bytes of input in memory.
    static size_t findLine(const void* data, size_t size, uint32_t address,
                           const readoptions_t& options = readoptions_t());

    /// The line in the file at path.
    static size_t findLineInFile(const char* path, uint32_t address, const readoptions_t& options = readoptions_t());

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

    /// @name Reading any format
    /// Intel HEX as readHex() reads it. S-records: S0 gives the header (the
    /// first one is kept), S1 to S3 the data, S5 and S6 must match the count
    /// of data records before them, S7 to S9 give the start address (as a
    /// linear address, type 5; 0 means none, as writers put 0 there when
    /// there is none) and end the file; white space and records in any order
    /// as for Intel HEX; a data record that runs past 0xFFFFFFFF and S4 are
    /// errors. ELF: the bytes of the PT_LOAD segments at their physical
    /// addresses (the virtual ones when every physical address is 0), the
    /// entry point as the start address (type 5; none for 0); a segment or
    /// entry point outside the 32-bit address space, overlapping segments
    /// and a truncated file are errors. Binary: the bytes at
    /// options.address. On success the image is replaced by what was read;
    /// on failure it is left as it was.
    /// @{

    /// Reads the file at path ("-" is not special). A file that cannot be
    /// rewound, such as a pipe, is read into memory first.
    readresult_t readFile(const char* path, const readoptions_t& options = readoptions_t());

    /// Reads size bytes of input from memory.
    readresult_t readMemory(const void* data, size_t size, const readoptions_t& options = readoptions_t());

    /// Tells the format from the first bytes of an input: ':' (after any
    /// white space) is Intel HEX, 'S' and a digit S-records, the ELF magic
    /// bytes ELF.
    /// @return false when the bytes are none of them.
    static bool detectFormat(const void* head, size_t size, fileformat_t& format);

    /// @}

    /// @name Saving
    /// Intel HEX: records of options.recordSize bytes that never cross a
    /// 64 KiB boundary; an address record (type 04, or 02 in segment
    /// addressing) whenever the upper address bits change, none while they
    /// are 0; the start address (type 05 or 03, as the image holds it) and
    /// the end-of-file record last; upper-case digits. S-records: an S0
    /// record with the header, data records of the address size chosen, an
    /// S5 (up to 65535 records) or S6 (up to 16777215) count, and the S7,
    /// S8 or S9 record with the start address (0 when there is none).
    /// Binary: every byte from the lowest to the highest address, fill where
    /// there is no data; nothing for an empty image.
    /// @{

    /// Writes the image to out.
    /// @return a failure for options the image cannot be written with (a
    /// record size out of range, segment addressing for an image that
    /// reaches 1 MiB, an address size too small for an address, ELF), or
    /// when out fails.
    result_t save(std::ostream& out, const saveoptions_t& options = saveoptions_t()) const;

    /// Writes the image to the file at path through a temporary file in
    /// the same directory, renamed into place when every byte is written: a
    /// failure leaves no partial file and an existing file as it was. A new
    /// file gets mode 0666 less the umask, a replaced one keeps its mode. A
    /// path that names something other than a regular file (a device, a
    /// pipe) is written directly.
    result_t saveFile(const char* path, const saveoptions_t& options = saveoptions_t()) const;

    /// What convertBinaryFile() reports. Converts to true on success.
    struct convertresult_t {
        bool ok = false;          ///< The output was written.
        bool inputFailed = false; ///< The input was to blame (else the output or the options).
        std::string reason;       ///< Why it failed; empty on success.

        /// @return ok.
        explicit operator bool() const { return ok; }
    };

    /// Writes the binary file at input, placed at address, to the file at
    /// output exactly as readFile() (binary, at address) and then
    /// saveFile(output, options) would, without holding the image: the
    /// bytes are read a piece at a time while the output is written, so
    /// memory stays at a few MiB however large the file, and reading
    /// overlaps writing. The input is read as long as it was when opened.
    /// The failures are those of readFile() (inputFailed set) and of
    /// saveFile(), with the same reasons, and leave no output; an input that
    /// shrinks while it is read fails too. An input that is not a regular
    /// file (a pipe) is read whole first.
    static convertresult_t convertBinaryFile(const char* input, uint32_t address, const char* output,
                                             const saveoptions_t& options = saveoptions_t());

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
    std::string header_;
};

#endif // INTELHEX_MEMORY_IMAGE_H
