// The ELF reader: the bytes of an ELF file's allocated sections at their
// load addresses (the bytes of its PT_LOAD segments when it has no section
// headers), and the entry point as the start address.
// 32- and 64-bit files, either byte order, through the system's <elf.h>.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_ELF_READER_H
#define HEXBLOCKS_ELF_READER_H

#include "formats.h"
#include "memory_image.h"

#include <cstddef>
#include <cstdint>

namespace hexblocks::detail {

// Random access to the bytes of a file or a buffer.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    virtual uint64_t size() const = 0;
    // Reads length bytes at offset into out; false when they are not all there.
    virtual bool readAt(uint64_t offset, void* out, size_t length) = 0;
};

// A caller's buffer.
class MemoryBytes : public ByteSource {
public:
    MemoryBytes(const void* bytes, size_t size) : bytes_(static_cast<const uint8_t*>(bytes)), size_(size) {}
    uint64_t size() const override { return size_; }
    bool readAt(uint64_t offset, void* out, size_t length) override;

private:
    const uint8_t* bytes_;
    size_t size_;
};

// A regular file, read with pread so that only the bytes needed are read.
class DescriptorBytes : public ByteSource {
public:
    DescriptorBytes(int fd, uint64_t size) : fd_(fd), size_(size) {}
    uint64_t size() const override { return size_; }
    bool readAt(uint64_t offset, void* out, size_t length) override;

private:
    int fd_;
    uint64_t size_;
};

// Reads an ELF file. On success image is replaced by what was read;
// otherwise it is left as it was and the result says why.
read_result_t readElf(ByteSource& source, MemoryImage& image);

} // namespace hexblocks::detail

#endif // HEXBLOCKS_ELF_READER_H
