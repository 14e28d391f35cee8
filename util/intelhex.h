/// @file intelhex.h
/// Intel HEX memory images as contiguous memory blocks.
///
/// IntelHexFile reads a HEX file (record types 00, 01 and 04) and holds its
/// data as a list of IntelHexFileBlock objects, each one run of contiguous
/// bytes with its 32-bit address split into a linear base (upper 16 bits) and
/// a start address (lower 16 bits).
///
/// Operations that can fail return bool and print their diagnostics: error
/// lines starting with "#ERROR: " on standard error, the record parser's shape
/// diagnostics on standard output; every line is flushed. Errors of the
/// standard library (std::bad_alloc, std::out_of_range) reach the caller.
///
/// For a 32-bit memory image read from the full format, with failures
/// reported as values instead of printed, see hexblocks::MemoryImage
/// (memory_image.h, formats.h); image_blocks.h turns one into blocks.
#ifndef INTELHEX_INTELHEX_H
#define INTELHEX_INTELHEX_H

#include "export.h"

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <set>
#include <string>
#include <vector>


class IntelHexFile;

namespace hexblocks::detail {
class BlockBridge;
}

/// One contiguous run of memory contents and the address where it lies.
///
/// Blocks are created, copied and destroyed only by IntelHexFile; callers hold
/// const references obtained through IntelHexFile::operator[]. The full
/// address of byte k is (getLinearBase() << 16) + getStartAddress() + k.
class HEXBLOCKS_API IntelHexFileBlock {
public:
    /// Reverses the order of the block's bytes in place; the address fields
    /// stay as they are. Prints nothing.
    void reverseBuffer();

    /// Writes every byte of the block to the open descriptor fd, lowest
    /// address first, in pieces of at most 512 bytes, continuing after short
    /// writes. fd is neither positioned nor closed.
    /// @return true when all bytes were written (at once for an empty block);
    /// false when a write fails, after printing
    /// "#ERROR: write() returns an error." to standard error. Bytes written
    /// before the failure stay written.
    bool writeBinaryTo(int fd) const;

    /// Creates or truncates the file fName and writes the block to it as raw
    /// bytes through writeBinaryTo(int).
    /// @return the result of writeBinaryTo(int); false when the file cannot be
    /// created, after printing "#ERROR: failed to create file "NAME"" to
    /// standard error.
    bool writeBinaryTo(const char* fName) const;

    /// @return the number of bytes of the block.
    size_t getSize() const;

    /// @return the upper 16 bits of the block's 32-bit address.
    uint16_t getLinearBase() const;

    /// @return the lower 16 bits of the address of the block's first byte.
    uint16_t getStartAddress() const;

    /// @return the lower 16 bits of the address one past the block's last
    /// byte, (start address + size) modulo 65536; the start address for an
    /// empty block.
    uint16_t getEndAddress() const;

    /// @return a pointer to the block's first byte (null for an empty block).
    const uint8_t* getBuffer() const;

protected:
    std::vector<uint8_t> buffer; ///< The bytes, lowest address first.
    uint16_t linearBase;         ///< Upper 16 bits of the 32-bit address.
    uint16_t startAddr;          ///< Lower 16 bits of the address of buffer[0].
    size_t size;                 ///< Number of bytes, as reported by getSize().

private:
    friend class IntelHexFile;
    friend class IntelHexTestAccess;

    IntelHexFileBlock();
    IntelHexFileBlock(IntelHexFileBlock& obj);
    IntelHexFileBlock& operator=(const IntelHexFileBlock&) = delete;
    ~IntelHexFileBlock();

    // Zeroes the address fields and size and empties the buffer.
    void clear();

    // A new block copied from this one; the caller owns it.
    IntelHexFileBlock* clone();
};

/// An Intel HEX image: the list of memory blocks read from a file or built
/// from a caller's buffer. The container owns its blocks.
class HEXBLOCKS_API IntelHexFile {
public:
    /// A vector of the blocks the container owns, in the order they were added.
    typedef std::vector<IntelHexFileBlock*> blockarray_t;

    /// An empty container.
    IntelHexFile();

    /// A deep copy: every block of obj is cloned, in order. Prints nothing.
    IntelHexFile(const IntelHexFile& obj);

    /// An empty container loaded from the HEX file fName, as load() does. The
    /// result of the load is not kept: after a failure the container is empty
    /// and load()'s diagnostics have been printed. Exceptions of load()
    /// propagate.
    IntelHexFile(const char* fName, bool oneBlock);

    /// A container with exactly one block at theLinearBase:theStartAddr
    /// holding theSize bytes copied from theBuffer (one empty block when
    /// theSize is 0). theBuffer must point to at least theSize bytes.
    IntelHexFile(uint16_t theLinearBase, uint16_t theStartAddr, size_t theSize, const uint8_t* theBuffer);

    /// Deep copy assignment: this container's blocks are replaced by clones of
    /// obj's. If copying fails (std::bad_alloc) this container is unchanged.
    IntelHexFile& operator=(const IntelHexFile& obj);

    /// Deletes every block.
    ~IntelHexFile();

    /// @return the block at position id, counted from 0.
    /// @throw const char* "IntelHexFile::operator[](size_t id): id outside of
    /// range!" when id >= getBlockCount().
    const IntelHexFileBlock& operator[](size_t id) const;

    /// Reads the HEX file fName and appends its blocks after any blocks the
    /// container already holds. In normal mode each run of contiguous records
    /// under one linear base becomes a block, in ascending order of linear
    /// base and start address; with oneBlock the whole file becomes a single
    /// block whose gaps hold 0xFF, its records placed by their 16-bit address.
    ///
    /// Diagnostics: "#ERROR: ..." lines on standard error (file not opened,
    /// checksum error, corrupt line, unsupported record type, no end-of-file
    /// record, zero-length record warning); the parser's "hexline to short"
    /// and "second unexpected end of line" lines on standard output, as is
    /// the text of a record of an unsupported type.
    /// @return true when the file was read and its blocks appended; false on
    /// any error, with the container's blocks unchanged.
    /// @throw std::out_of_range when a record's data runs past the end of an
    /// even-length line.
    /// @throw std::bad_alloc for a byte count that converts to a negative
    /// number, for a one-block image whose size wraps, or when memory runs out.
    bool load(const char* fName, bool oneBlock);

    /// Reverses the bytes of every block, first block to last. Prints nothing.
    void reverseBuffers() const;

    /// Deletes every block; the container is then empty and can be loaded again.
    void clear();

    /// @return true when the container holds at least one block, even an empty one.
    bool hasData() const;

    /// @return the number of blocks.
    size_t getBlockCount() const;

    /// @name Reading the full format
    /// load() reads the record types 00, 01 and 04 exactly as it always has.
    /// loadFullFormat() is an addition for files from every toolchain: it
    /// reads all six record types of the format and places data by its full
    /// 32-bit address.
    /// @{

    /// Options of loadFullFormat().
    struct fulloptions_t {
        /// Build one block from the lowest to the highest address, with 0xFF
        /// in the gaps, instead of one block per run of contiguous data.
        bool oneBlock = false;
        /// Largest one-block image, in bytes; a file spanning more fails.
        size_t maxImageSize = 256u << 20;
    };

    /// Reads the HEX file fName with the full format and appends its blocks
    /// after any blocks the container already holds.
    ///
    /// - Types 00 (data) and 01 (end of file): any type-01 record ends the
    ///   file and nothing after it is read. Blank lines, white space around
    ///   a record and carriage returns are skipped. A file that ends without
    ///   an end-of-file record still loads, after the warning
    ///   "#WARNING: end of file reached without EoF-record." on standard error.
    /// - Type 04 sets the upper 16 bits of the address; type 02 sets a
    ///   segment base (its value times 16), and data byte i of a record then
    ///   lies at base + ((offset + i) mod 65536). Each replaces the base set
    ///   by either before it. Both must carry two data bytes.
    /// - Types 03 and 05 give the program's start address (4 data bytes);
    ///   see hasStartAddress(). If a file gives a different one later, the
    ///   first is kept and "#WARNING: a second, different start address in
    ///   line N is ignored." goes to standard error.
    /// - Any other type fails as in load(): the line on standard output, then
    ///   "#ERROR: unsupported record type found (N)" on standard error.
    /// - A rejected line prints "#ERROR: " and the reason (for a bad
    ///   checksum "#ERROR: checksum error.", as load() does), then
    ///   "#ERROR: corrupt line data in line "LINE"", on standard error.
    ///
    /// In normal mode each maximal run of contiguous data, by full 32-bit
    /// address, becomes a block, in ascending order of address (a block may
    /// cross a 64 KiB boundary, so its size may exceed 65536). A record that
    /// starts at the same address as an earlier one is dropped whole, as in
    /// load(). Where records overlap otherwise, every byte keeps the value
    /// of the first record that gives it, and one warning line
    /// "#WARNING: N bytes given by more than one record, first in line L; the
    /// first value of each is kept." goes to standard error.
    ///
    /// In one-block mode the block spans the lowest to the highest address;
    /// a span above options.maxImageSize fails with
    /// "#ERROR: image spans N bytes, more than the limit of M bytes." instead
    /// of allocating it.
    /// @return true when the file was read and its blocks appended; false on
    /// any error, with the container's blocks and start address unchanged.
    /// @throw std::bad_alloc when memory runs out.
    bool loadFullFormat(const char* fName, const fulloptions_t& options);

    /// loadFullFormat() with default options apart from oneBlock.
    bool loadFullFormat(const char* fName, bool oneBlock);

    /// @return true when a file read by loadFullFormat() gave a start address
    /// (record type 03 or 05), or an image appended by hexblocks::appendToBlocks()
    /// had one; cleared by clear().
    bool hasStartAddress() const;

    /// @return the type of the record that gave the start address: 3 (start
    /// segment address, CS:IP) or 5 (start linear address); 0 when none.
    uint8_t getStartAddressType() const;

    /// @return the start address as the record gave it: for type 5 the 32-bit
    /// linear address, for type 3 CS in the upper and IP in the lower 16 bits
    /// (the address it stands for is CS * 16 + IP); 0 when none.
    uint32_t getStartAddressValue() const;

    /// @}

    /// @name Where a load failed
    /// @{

    /// @return the 1-based number of the line that made the last load()
    /// or loadFullFormat() fail (or throw); 0 after a success, or when the
    /// failure was not caused by a line (a file that cannot be opened, a
    /// one-block image that is too large).
    size_t getErrorLine() const;

    /// @return a one-line description of why the last load failed, such as
    /// "checksum error" or "unsupported record type 02"; empty after a success.
    const std::string& getErrorReason() const;

    /// @}

private:
    friend class IntelHexTestAccess;
    friend class hexblocks::detail::BlockBridge;

    // One parsed HEX record. recordType 0xFF marks a line the parser rejected.
    struct hexfileline_t {
        uint8_t recordType;
        uint16_t linearBase;
        uint16_t address;
        size_t dataLen;
        std::vector<uint8_t> data;
    };
    friend HEXBLOCKS_API bool operator<(const hexfileline_t& first, const hexfileline_t& second);

    typedef std::set<hexfileline_t> hexfilelineset_t;
    typedef hexfilelineset_t::const_iterator setconstiterator_t;

    setconstiterator_t getNextEnd(setconstiterator_t& from, setconstiterator_t& to);
    bool parseHexFile(std::ifstream& hexFile, hexfilelineset_t& lines);
    void parseLine(std::string& hexLine, hexfileline_t& line);
    void createNewBlock(setconstiterator_t& first, setconstiterator_t& last);
    bool loadOpened(std::ifstream& hexFile, bool oneBlock);
    bool loadExact(std::ifstream& hexFile, bool oneBlock);
    uint32_t runSize(uint16_t firstAddress, uint16_t finalAddress, size_t finalLength);
    void appendBlock(uint16_t theLinearBase, uint16_t theStartAddr, std::vector<uint8_t>& bytes);
    void setError(size_t line, const std::string& reason);

    blockarray_t blocks;
    uint8_t startAddressType = 0;
    uint32_t startAddressValue = 0;
    size_t errorLine = 0;
    std::string errorReason;
    const char* parseProblem = "";
};

/// @cond INTERNAL
// Orders records by linear base, then by 16-bit address.
HEXBLOCKS_API bool operator<(const IntelHexFile::hexfileline_t& first, const IntelHexFile::hexfileline_t& second);
/// @endcond

#endif // INTELHEX_INTELHEX_H
