// Intel HEX memory images as contiguous memory blocks.
//
// IntelHexFile reads a HEX file (record types 00, 01 and 04) and holds its
// data as a list of IntelHexFileBlock objects, each one run of contiguous
// bytes with its 32-bit address split into a linear base (upper 16 bits) and
// a start address (lower 16 bits).
//
// Operations that can fail return bool and print their diagnostics: error
// lines starting with "#ERROR: " on standard error, the record parser's shape
// diagnostics on standard output; every line is flushed. Errors of the
// standard library (std::bad_alloc, std::out_of_range) reach the caller.
#ifndef INTELHEX_INTELHEX_H
#define INTELHEX_INTELHEX_H

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <set>
#include <string>
#include <vector>

class IntelHexFile;

// One contiguous run of memory contents and the address where it lies.
// Blocks are created, copied and destroyed only by IntelHexFile; callers hold
// const references obtained through IntelHexFile::operator[].
class IntelHexFileBlock {
public:
    // Reverses the order of the block's bytes in place; addresses stay.
    void reverseBuffer();

    // Writes every byte of the block to the open descriptor fd, in pieces of
    // at most 512 bytes, continuing after short writes. Returns true when all
    // bytes were written (at once for an empty block). On a failed write it
    // prints "#ERROR: write() returns an error." to standard error and returns
    // false; bytes written before stay written. fd is not closed.
    bool writeBinaryTo(int fd) const;

    // Creates or truncates the file fName and writes the block to it as raw
    // bytes. Returns the result of writeBinaryTo(int). When the file cannot be
    // created it prints "#ERROR: failed to create file "NAME"" to standard
    // error and returns false.
    bool writeBinaryTo(const char* fName) const;

    // Number of bytes of the block.
    size_t getSize() const;

    // Upper 16 bits of the block's 32-bit address.
    uint16_t getLinearBase() const;

    // Lower 16 bits of the address of the block's first byte.
    uint16_t getStartAddress() const;

    // Lower 16 bits of the address one past the block's last byte, that is
    // (start address + size) modulo 65536; equals the start address for an
    // empty block.
    uint16_t getEndAddress() const;

    // Pointer to the block's first byte (may be null for an empty block).
    const uint8_t* getBuffer() const;

protected:
    std::vector<uint8_t> buffer;
    uint16_t linearBase;
    uint16_t startAddr;
    size_t size;

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

// An Intel HEX image: the list of memory blocks read from a file or built
// from a caller's buffer. The container owns its blocks.
class IntelHexFile {
public:
    typedef std::vector<IntelHexFileBlock*> blockarray_t;

    // An empty container.
    IntelHexFile();

    // A deep copy: every block of obj is cloned, in order.
    IntelHexFile(const IntelHexFile& obj);

    // An empty container loaded from the HEX file fName, as load() does. The
    // result of the load is not kept: after a failure the container is empty
    // and the diagnostics have been printed.
    IntelHexFile(const char* fName, bool oneBlock);

    // A container with exactly one block at theLinearBase:theStartAddr holding
    // theSize bytes copied from theBuffer (one empty block when theSize is 0).
    IntelHexFile(uint16_t theLinearBase, uint16_t theStartAddr, size_t theSize,
                 const uint8_t* theBuffer);

    // Deep copy assignment: this container's blocks are replaced by clones of
    // obj's. If copying fails (std::bad_alloc) this container is unchanged.
    IntelHexFile& operator=(const IntelHexFile& obj);

    ~IntelHexFile();

    // The block at position id. Throws the C string
    // "IntelHexFile::operator[](size_t id): id outside of range!" (as
    // const char*) when id >= getBlockCount().
    const IntelHexFileBlock& operator[](size_t id) const;

    // Reads the HEX file fName and appends its blocks after any blocks the
    // container already holds. In normal mode each run of contiguous records
    // under one linear base becomes a block; with oneBlock the whole file
    // becomes a single block whose gaps hold 0xFF. Returns true on success.
    // On failure it prints its diagnostics and returns false, and the
    // container's blocks are unchanged. std::out_of_range (a data field
    // running past an even-length line) and std::bad_alloc (an impossible
    // byte count or one-block size) propagate.
    bool load(const char* fName, bool oneBlock);

    // Reverses the bytes of every block, first block to last.
    void reverseBuffers() const;

    // Deletes every block.
    void clear();

    // True when the container holds at least one block, even an empty one.
    bool hasData() const;

    // Number of blocks.
    size_t getBlockCount() const;

private:
    friend class IntelHexTestAccess;

    // One parsed HEX record. recordType 0xFF marks a line the parser rejected.
    struct hexfileline_t {
        uint8_t recordType;
        uint16_t linearBase;
        uint16_t address;
        size_t dataLen;
        std::vector<uint8_t> data;
    };
    friend bool operator<(const hexfileline_t& first, const hexfileline_t& second);

    typedef std::set<hexfileline_t> hexfilelineset_t;
    typedef hexfilelineset_t::const_iterator setconstiterator_t;

    setconstiterator_t getNextEnd(setconstiterator_t& from, setconstiterator_t& to);
    bool parseHexFile(std::ifstream& hexFile, hexfilelineset_t& lines);
    void parseLine(std::string& hexLine, hexfileline_t& line);
    void createNewBlock(setconstiterator_t& first, setconstiterator_t& last);

    // The reader of load(): the file is read with parseHexFile into an ordered
    // record set, and the set is turned into blocks.
    bool loadRecords(std::ifstream& hexFile, bool oneBlock);

    // A faster reader for the common case: a file whose records are all
    // well-formed type 00 and 04 records in ascending address order. It reads
    // the file in large pieces and builds the blocks without the record set.
    // Returns false, with nothing printed and the blocks unchanged, at the
    // first line outside that case; load() then reads the file again with
    // loadRecords(), which gives the same blocks and prints the diagnostics.
    bool loadPlain(std::ifstream& hexFile, bool oneBlock);

    // Appends a block that takes over bytes.
    void appendBlock(uint16_t theLinearBase, uint16_t theStartAddr, std::vector<uint8_t>& bytes);

    blockarray_t blocks;
};

// Orders records by linear base, then by 16-bit address.
bool operator<(const IntelHexFile::hexfileline_t& first,
               const IntelHexFile::hexfileline_t& second);

#endif // INTELHEX_INTELHEX_H
