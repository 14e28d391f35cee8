// The writers: a MemoryImage as Intel HEX, S-records or raw binary, into a
// sink in large pieces. They format into a buffer of their own, so the
// whole text never has to be held in memory.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_IMAGE_WRITER_H
#define HEXBLOCKS_IMAGE_WRITER_H

#include "formats.h"
#include "memory_image.h"

#include <cstddef>
#include <string>

namespace hexblocks::detail {

// Where written bytes go.
class ByteSink {
public:
    virtual ~ByteSink() = default;
    // Takes all of size bytes; false when they could not be written.
    virtual bool put(const char* bytes, size_t size) = 0;
    // Why the last put() failed.
    virtual std::string failure() const = 0;
};

// What the writers write: the places of the segments (ascending, apart),
// the start address and the header, and the segments' bytes, which they ask
// for in order, a piece at a time, so that an input need not be held whole.
class WriterInput {
public:
    virtual ~WriterInput() = default;
    virtual size_t segmentCount() const = 0;
    virtual uint32_t segmentAddress(size_t segment) const = 0;
    virtual uint64_t segmentSize(size_t segment) const = 0;
    virtual bool hasStartAddress() const = 0;
    virtual start_address_t startAddress() const = 0;
    virtual std::string header() const = 0;
    // size bytes of a segment from offset on, valid until the next call;
    // nullptr when they cannot be had (failure() says why). Pieces are asked
    // for in order, each where the one before ended.
    virtual const uint8_t* bytes(size_t segment, uint64_t offset, size_t size) = 0;
    virtual std::string failure() const { return std::string(); }
};

// A MemoryImage as writer input.
class ImageInput : public WriterInput {
public:
    explicit ImageInput(const MemoryImage& image) : image_(image) {}
    size_t segmentCount() const override { return image_.segments().size(); }
    uint32_t segmentAddress(size_t segment) const override { return image_.segments()[segment].address; }
    uint64_t segmentSize(size_t segment) const override { return image_.segments()[segment].bytes.size(); }
    bool hasStartAddress() const override { return image_.hasStartAddress(); }
    start_address_t startAddress() const override { return image_.startAddress(); }
    std::string header() const override { return image_.header(); }
    const uint8_t* bytes(size_t segment, uint64_t offset, size_t) override
    {
        return image_.segments()[segment].bytes.data() + offset;
    }

private:
    const MemoryImage& image_;
};

// Each format's checks of the write options, and each format's writer,
// which writes input to sink as options say, in large pieces; false with
// result saying why when it fails. The format table holds them.
result_t checkIntelHexOptions(const WriterInput& input, const write_options_t& options);
result_t checkSrecordOptions(const WriterInput& input, const write_options_t& options);
bool writeIntelHexTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result);
bool writeSrecordsTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result);
bool writeBinaryTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result);

// At least the size of Intel HEX, S-record or binary output of input.
uint64_t outputBound(const WriterInput& input, const write_options_t& options);

} // namespace hexblocks::detail

#endif // HEXBLOCKS_IMAGE_WRITER_H
