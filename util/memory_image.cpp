#include "memory_image.h"

#include "elf_reader.h"
#include "exact_reader.h"
#include "full_format_reader.h"
#include "image_writer.h"
#include "output_file.h"
#include "record_assembler.h"
#include "record_scanner.h"
#include "srecord_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <ostream>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

using intelhex_internal::fullread_t;

namespace {

const uint64_t ADDRESS_SPACE = 0x100000000ull;

// The first segment that ends after address.
std::vector<MemoryImage::segment_t>::const_iterator firstEndingAfter(const std::vector<MemoryImage::segment_t>& segments,
                                                                     uint64_t address)
{
    return std::upper_bound(segments.begin(), segments.end(), address,
                            [](uint64_t a, const MemoryImage::segment_t& s) { return a < s.endAddress(); });
}

MemoryImage::readresult_t resultOf(const fullread_t& read)
{
    MemoryImage::readresult_t result;
    result.ok = read.status == fullread_t::status_t::OK;
    result.line = read.line;
    result.reason = read.status == fullread_t::status_t::UNSUPPORTED_TYPE && read.reason.empty()
                        ? "unsupported record type " + intelhex_internal::hexByte(read.type)
                        : read.reason;
    result.warnings = intelhex_internal::warningsOf(read);
    return result;
}

MemoryImage::readresult_t failedRead(const std::string& reason)
{
    MemoryImage::readresult_t result;
    result.reason = reason;
    return result;
}

// Why a binary file of size bytes cannot be read into memory; empty when it can.
std::string binaryFileSizeError(uint64_t size)
{
    if (size <= std::numeric_limits<size_t>::max())
        return std::string();
    return "the file is too large: " + std::to_string(size) + " bytes";
}

// Why size bytes of binary input cannot go at address; empty when they can.
std::string binaryPlacementError(uint64_t size, uint32_t address)
{
    if (static_cast<uint64_t>(address) + size <= ADDRESS_SPACE)
        return std::string();
    return "binary input of " + std::to_string(size) + " bytes at " + intelhex_internal::hexAddress(address) +
           " would run past address 0xFFFFFFFF";
}

// Makes bytes, placed at address, the whole image.
MemoryImage::readresult_t readBinaryBytes(MemoryImage& image, std::vector<uint8_t>&& bytes, uint32_t address)
{
    const std::string placement = binaryPlacementError(bytes.size(), address);
    if (!placement.empty())
        return failedRead(placement);
    std::vector<MemoryImage::segment_t> segments;
    if (!bytes.empty())
        segments.push_back(MemoryImage::segment_t{address, std::move(bytes)});
    MemoryImageBuilder::assign(image, std::move(segments), 0, 0, std::string());
    MemoryImage::readresult_t result;
    result.ok = true;
    return result;
}

const char UNKNOWN_FORMAT[] = "not Intel HEX, S-records or ELF (the format of binary input must be given)";

// Asks for huge pages for a large buffer, where the system gives them: one
// fault per 2 MiB rather than per 4 KiB page. (Asking for all the pages at
// once as well, with MADV_POPULATE_WRITE, made the system compact memory
// first and cost more than the faults it saved.)
void prepareLargeBuffer(void* data, size_t size)
{
#ifdef __linux__
    const uintptr_t PAGE = 4096;
    if (size < (1u << 20))
        return;
    const uintptr_t begin = (reinterpret_cast<uintptr_t>(data) + PAGE - 1) & ~(PAGE - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(data) + size) & ~(PAGE - 1);
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#else
    (void)data;
    (void)size;
#endif
}

// Reads the rest of fd straight into bytes, sized for expected bytes and
// grown only when there are more; false with errno set when reading fails.
bool readDescriptor(int fd, std::vector<uint8_t>& bytes, size_t expected)
{
    bytes.reserve(expected);
    prepareLargeBuffer(bytes.data(), bytes.capacity());
    bytes.resize(expected);
    size_t held = 0;
    for (;;) {
        uint8_t probe[4096]; // tells the end from more than expected
        uint8_t* to = held < bytes.size() ? bytes.data() + held : probe;
        const size_t room = held < bytes.size() ? bytes.size() - held : sizeof probe;
        const ssize_t got = ::read(fd, to, room);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return false;
        if (got == 0)
            break;
        if (to == probe) {
            bytes.resize(std::max<size_t>(held * 2, 64 * 1024));
            std::memcpy(bytes.data() + held, probe, static_cast<size_t>(got));
        }
        held += static_cast<size_t>(got);
    }
    bytes.resize(held);
    return true;
}

// Reads a pipe or a device, whose size is known only at its end, whole into
// bytes. It is read through the descriptor that looked at it: opening it
// again would leave a moment without a reader, in which a pipe's writer
// fails and what it wrote is lost. Empty when read, else the reason.
std::string readUnsized(int fd, std::vector<uint8_t>& bytes)
{
    if (readDescriptor(fd, bytes, 0))
        return std::string();
    return std::string("cannot read the file: ") + std::strerror(errno);
}

// Sends save()'s output to a stream.
class StreamSink : public intelhex_internal::ByteSink {
public:
    explicit StreamSink(std::ostream& out) : out_(out) {}
    bool put(const char* bytes, size_t size) override
    {
        out_.write(bytes, static_cast<std::streamsize>(size));
        return static_cast<bool>(out_);
    }
    std::string failure() const override { return "cannot write to the stream"; }

private:
    std::ostream& out_;
};

} // namespace

MemoryImage::MemoryImage() : start_{0, 0}, hasStart_(false) {}

// ---------------------------------------------------------------------------
// Queries

const std::vector<MemoryImage::segment_t>& MemoryImage::segments() const
{
    return segments_;
}

bool MemoryImage::empty() const
{
    return segments_.empty();
}

uint32_t MemoryImage::lowestAddress() const
{
    return segments_.empty() ? 0 : segments_.front().address;
}

uint32_t MemoryImage::highestAddress() const
{
    return segments_.empty() ? 0 : segments_.back().lastAddress();
}

uint64_t MemoryImage::span() const
{
    return segments_.empty() ? 0 : segments_.back().endAddress() - segments_.front().address;
}

uint64_t MemoryImage::dataSize() const
{
    uint64_t size = 0;
    for (const segment_t& s : segments_)
        size += s.bytes.size();
    return size;
}

bool MemoryImage::hasDataAt(uint32_t address) const
{
    const auto s = firstEndingAfter(segments_, address);
    return s != segments_.end() && s->address <= address;
}

void MemoryImage::copyRange(uint32_t address, size_t length, uint8_t fill, uint8_t* out) const
{
    std::fill(out, out + length, fill);
    const uint64_t end = static_cast<uint64_t>(address) + length;
    for (auto s = firstEndingAfter(segments_, address); s != segments_.end() && s->address < end; ++s) {
        const uint64_t from = std::max<uint64_t>(address, s->address);
        const uint64_t to = std::min(end, s->endAddress());
        std::copy(s->bytes.begin() + static_cast<long>(from - s->address),
                  s->bytes.begin() + static_cast<long>(to - s->address), out + (from - address));
    }
}

std::vector<uint8_t> MemoryImage::copyRange(uint32_t address, size_t length, uint8_t fill) const
{
    std::vector<uint8_t> bytes(length);
    copyRange(address, length, fill, bytes.data());
    return bytes;
}

bool MemoryImage::hasStartAddress() const
{
    return hasStart_;
}

MemoryImage::startaddress_t MemoryImage::startAddress() const
{
    return start_;
}

const std::string& MemoryImage::header() const
{
    return header_;
}

// ---------------------------------------------------------------------------
// Changing the image

MemoryImage::result_t MemoryImage::write(uint32_t address, const uint8_t* data, size_t length)
{
    result_t result;
    if (length == 0)
        return result;
    const uint64_t end = static_cast<uint64_t>(address) + length;
    if (end > ADDRESS_SPACE) {
        result.ok = false;
        result.reason = "the bytes would run past address 0xFFFFFFFF";
        return result;
    }
    // The segments the new bytes overlap or touch: [first, last).
    const auto first = std::lower_bound(segments_.begin(), segments_.end(), static_cast<uint64_t>(address),
                                        [](const segment_t& s, uint64_t a) { return s.endAddress() < a; });
    const auto last = std::upper_bound(first, segments_.end(), end,
                                       [](uint64_t e, const segment_t& s) { return e < s.address; });
    if (first == last) {
        segments_.insert(first, segment_t{address, std::vector<uint8_t>(data, data + length)});
        return result;
    }
    // Everything goes into the first of them, grown to take the rest.
    segment_t& target = *first;
    const uint32_t start = std::min(target.address, address);
    const uint64_t stop = std::max(std::prev(last)->endAddress(), end);
    if (start < target.address)
        target.bytes.insert(target.bytes.begin(), target.address - start, 0);
    target.address = start;
    target.bytes.resize(static_cast<size_t>(stop - start));
    for (auto s = std::next(first); s != last; ++s)
        std::copy(s->bytes.begin(), s->bytes.end(), target.bytes.begin() + static_cast<long>(s->address - start));
    std::copy(data, data + length, target.bytes.begin() + static_cast<long>(address - start));
    segments_.erase(std::next(first), last);
    return result;
}

MemoryImage::result_t MemoryImage::setStartAddress(const startaddress_t& start)
{
    result_t result;
    if (start.type != 3 && start.type != 5) {
        result.ok = false;
        result.reason = "a start address has type 3 or 5, not " + std::to_string(start.type);
        return result;
    }
    start_ = start;
    hasStart_ = true;
    return result;
}

void MemoryImage::clearStartAddress()
{
    start_ = startaddress_t{0, 0};
    hasStart_ = false;
}

MemoryImage::result_t MemoryImage::setHeader(const std::string& header)
{
    result_t result;
    if (header.size() > 252) {
        result.ok = false;
        result.reason = "a header holds at most 252 bytes, not " + std::to_string(header.size());
        return result;
    }
    header_ = header;
    return result;
}

void MemoryImage::clear()
{
    segments_.clear();
    clearStartAddress();
    header_.clear();
}

// ---------------------------------------------------------------------------
// Reading Intel HEX

MemoryImage::readresult_t MemoryImage::readHexFile(const char* path)
{
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return failedRead(std::string("cannot open the file: ") + std::strerror(errno));
    intelhex_internal::DescriptorText file(fd);
    const readresult_t result = resultOf(intelhex_internal::readFullFormat(file, *this));
    ::close(fd);
    return result;
}

MemoryImage::readresult_t MemoryImage::readHex(const void* text, size_t size)
{
    intelhex_internal::MemoryText memory(text, size);
    return resultOf(intelhex_internal::readFullFormat(memory, *this));
}

// ---------------------------------------------------------------------------
// Reading any format

bool MemoryImage::detectFormat(const void* head, size_t size, fileformat_t& format)
{
    const unsigned char* bytes = static_cast<const unsigned char*>(head);
    if (size >= 4 && std::memcmp(bytes, "\x7F" "ELF", 4) == 0) {
        format = fileformat_t::ELF;
        return true;
    }
    size_t i = 0;
    if (size >= 3 && std::memcmp(bytes, "\xEF\xBB\xBF", 3) == 0)
        i = 3; // a UTF-8 byte order mark
    while (i < size && (bytes[i] == ' ' || bytes[i] == '\t' || bytes[i] == '\r' || bytes[i] == '\n'))
        ++i;
    if (i < size && bytes[i] == ':') {
        format = fileformat_t::INTEL_HEX;
        return true;
    }
    if (i + 1 < size && bytes[i] == 'S' && bytes[i + 1] >= '0' && bytes[i + 1] <= '9') {
        format = fileformat_t::SRECORD;
        return true;
    }
    return false;
}

MemoryImage::readresult_t MemoryImage::readMemory(const void* data, size_t size, const readoptions_t& options)
{
    fileformat_t format = options.format;
    if (options.detect && !detectFormat(data, size, format))
        return failedRead(size == 0 ? "the input is empty" : UNKNOWN_FORMAT);
    switch (format) {
    case fileformat_t::INTEL_HEX:
        return readHex(data, size);
    case fileformat_t::SRECORD: {
        intelhex_internal::MemoryText text(data, size);
        return resultOf(intelhex_internal::readSrecords(text, *this));
    }
    case fileformat_t::ELF: {
        intelhex_internal::MemoryBytes bytes(data, size);
        return intelhex_internal::readElf(bytes, *this);
    }
    case fileformat_t::BINARY:
        break;
    }
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    return readBinaryBytes(*this, std::vector<uint8_t>(bytes, bytes + size), options.address);
}

MemoryImage::readresult_t MemoryImage::readFile(const char* path, const readoptions_t& options)
{
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return failedRead(std::string("cannot open the file: ") + std::strerror(errno));
    struct stat status;
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        std::vector<uint8_t> bytes;
        const std::string error = readUnsized(fd, bytes);
        ::close(fd);
        if (!error.empty())
            return failedRead(error);
        return readMemory(bytes.data(), bytes.size(), options);
    }
    fileformat_t format = options.format;
    if (options.detect) {
        unsigned char head[4096];
        const ssize_t got = ::pread(fd, head, sizeof head, 0);
        if (got < 0 || !detectFormat(head, static_cast<size_t>(got), format)) {
            const int error = errno;
            ::close(fd);
            return failedRead(got < 0 ? std::string("cannot read the file: ") + std::strerror(error)
                                      : got == 0 ? "the file is empty" : UNKNOWN_FORMAT);
        }
    }
    readresult_t result;
    if (format == fileformat_t::INTEL_HEX || format == fileformat_t::SRECORD) {
        intelhex_internal::DescriptorText text(fd);
        result = resultOf(format == fileformat_t::SRECORD ? intelhex_internal::readSrecords(text, *this)
                                                          : intelhex_internal::readFullFormat(text, *this));
    } else if (format == fileformat_t::ELF) {
        intelhex_internal::DescriptorBytes bytes(fd, static_cast<uint64_t>(status.st_size));
        result = intelhex_internal::readElf(bytes, *this);
    } else if (!binaryFileSizeError(static_cast<uint64_t>(status.st_size)).empty()) {
        result = failedRead(binaryFileSizeError(static_cast<uint64_t>(status.st_size)));
    } else {
        // Straight into the segment's bytes.
        std::vector<uint8_t> bytes;
        try {
            if (!readDescriptor(fd, bytes, static_cast<size_t>(status.st_size)))
                result = failedRead(std::string("cannot read the file: ") + std::strerror(errno));
            else
                result = readBinaryBytes(*this, std::move(bytes), options.address);
        } catch (const std::bad_alloc&) {
            result = failedRead("out of memory for " + std::to_string(status.st_size) + " bytes");
        }
    }
    ::close(fd);
    return result;
}

// ---------------------------------------------------------------------------
// Finding the line of a byte

size_t MemoryImage::findLine(const void* data, size_t size, uint32_t address, const readoptions_t& options)
{
    fileformat_t format = options.format;
    if (options.detect && !detectFormat(data, size, format))
        return 0;
    intelhex_internal::MemoryText text(data, size);
    if (format == fileformat_t::INTEL_HEX)
        return intelhex_internal::locateFullFormat(text, address);
    if (format == fileformat_t::SRECORD)
        return intelhex_internal::locateSrecord(text, address);
    return 0;
}

size_t MemoryImage::findLineInFile(const char* path, uint32_t address, const readoptions_t& options)
{
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return 0;
    std::vector<uint8_t> bytes;
    bool read = false;
    try {
        read = readDescriptor(fd, bytes, 0);
    } catch (const std::bad_alloc&) {
    }
    ::close(fd);
    return read ? findLine(bytes.data(), bytes.size(), address, options) : 0;
}

// ---------------------------------------------------------------------------
// Saving

MemoryImage::result_t MemoryImage::save(std::ostream& out, const saveoptions_t& options) const
{
    StreamSink sink(out);
    return intelhex_internal::writeImage(*this, options, sink);
}

namespace {

// Writes input to the file at path through a temporary file (see
// saveFile()). Bad options leave no file, not even an empty one.
MemoryImage::result_t writeInputToFile(intelhex_internal::WriterInput& input, const char* path,
                                       const MemoryImage::saveoptions_t& options)
{
    MemoryImage::result_t result = intelhex_internal::checkSaveOptions(input, options);
    if (!result)
        return result;
    intelhex_internal::OutputFile file;
    if (!file.open(path)) {
        result.ok = false;
        result.reason = file.failure();
        return result;
    }
    result = intelhex_internal::writeImage(input, options, file);
    if (result && !file.commit()) {
        result.ok = false;
        result.reason = file.failure();
    }
    return result;
}

// A binary file as the writers' input, read a piece at a time as they ask:
// one segment of the file's size (as it was when opened) at an address.
class BinaryFileInput : public intelhex_internal::WriterInput {
public:
    BinaryFileInput(int fd, uint32_t address, uint64_t size) : fd_(fd), address_(address), size_(size) {}
    size_t segmentCount() const override { return size_ > 0 ? 1 : 0; }
    uint32_t segmentAddress(size_t) const override { return address_; }
    uint64_t segmentSize(size_t) const override { return size_; }
    bool hasStartAddress() const override { return false; }
    MemoryImage::startaddress_t startAddress() const override { return MemoryImage::startaddress_t(); }
    std::string header() const override { return std::string(); }
    std::string failure() const override { return failure_; }

    const uint8_t* bytes(size_t, uint64_t, size_t size) override
    {
        if (buffer_.size() < size)
            buffer_.resize(size);
        size_t held = 0;
        while (held < size) {
            const ssize_t got = ::read(fd_, buffer_.data() + held, size - held);
            if (got < 0 && errno == EINTR)
                continue;
            if (got < 0) {
                failure_ = std::string("cannot read the file: ") + std::strerror(errno);
                return nullptr;
            }
            if (got == 0) {
                failure_ = "the file became shorter while it was read";
                return nullptr;
            }
            held += static_cast<size_t>(got);
        }
        return buffer_.data();
    }

private:
    int fd_;
    uint32_t address_;
    uint64_t size_;
    std::vector<uint8_t> buffer_;
    std::string failure_;
};

MemoryImage::convertresult_t convertFailure(bool inputFailed, const std::string& reason)
{
    MemoryImage::convertresult_t result;
    result.inputFailed = inputFailed;
    result.reason = reason;
    return result;
}

} // namespace

MemoryImage::convertresult_t MemoryImage::convertBinaryFile(const char* input, uint32_t address, const char* output,
                                                            const saveoptions_t& options)
{
    const int fd = ::open(input, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return convertFailure(true, std::string("cannot open the file: ") + std::strerror(errno));
    struct stat status;
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        std::vector<uint8_t> bytes;
        const std::string error = readUnsized(fd, bytes);
        ::close(fd);
        if (!error.empty())
            return convertFailure(true, error);
        MemoryImage image;
        const readresult_t read = readBinaryBytes(image, std::move(bytes), address);
        if (!read)
            return convertFailure(true, read.reason);
        const result_t saved = image.saveFile(output, options);
        convertresult_t result = convertFailure(false, saved.reason);
        result.ok = saved.ok;
        return result;
    }
    const uint64_t size = static_cast<uint64_t>(status.st_size);
    std::string reason = binaryFileSizeError(size);
    if (reason.empty())
        reason = binaryPlacementError(size, address);
    convertresult_t result = convertFailure(true, reason);
    if (reason.empty()) {
        BinaryFileInput bytes(fd, address, size);
        const result_t written = writeInputToFile(bytes, output, options);
        result = convertFailure(!bytes.failure().empty(), written.reason);
        result.ok = written.ok;
    }
    ::close(fd);
    return result;
}

MemoryImage::result_t MemoryImage::saveFile(const char* path, const saveoptions_t& options) const
{
    intelhex_internal::ImageInput input(*this);
    return writeInputToFile(input, path, options);
}

// ---------------------------------------------------------------------------
// IntelHexFile blocks

MemoryImage MemoryImage::fromBlocks(const IntelHexFile& file)
{
    MemoryImage image;
    for (size_t i = 0; i < file.getBlockCount(); ++i) {
        const IntelHexFileBlock& block = file[i];
        const uint32_t address = static_cast<uint32_t>(block.getLinearBase()) << 16 | block.getStartAddress();
        const uint8_t* bytes = block.getBuffer();
        size_t size = block.getSize();
        // A block that runs past 0xFFFFFFFF goes on at 0.
        const size_t below = static_cast<size_t>(std::min<uint64_t>(size, ADDRESS_SPACE - address));
        image.write(address, bytes, below);
        image.write(0, bytes + below, size - below);
    }
    if (file.hasStartAddress())
        image.setStartAddress(startaddress_t{file.getStartAddressType(), file.getStartAddressValue()});
    return image;
}

MemoryImage::result_t MemoryImage::appendTo(IntelHexFile& file, const blockoptions_t& options) const&
{
    MemoryImage copy(*this);
    return std::move(copy).appendTo(file, options);
}

MemoryImage::result_t MemoryImage::appendTo(IntelHexFile& file, const blockoptions_t& options) &&
{
    result_t result;
    if (options.oneBlock && span() > options.maxImageSize) {
        result.ok = false;
        result.reason = "image spans " + std::to_string(span()) + " bytes, more than the limit of " +
                        std::to_string(options.maxImageSize) + " bytes";
        return result;
    }
    if (options.oneBlock && segments_.size() > 1) {
        // Each segment's bytes are released as soon as they are copied.
        const uint32_t lowest = segments_.front().address;
        std::vector<uint8_t> flat(static_cast<size_t>(span()), options.fill);
        for (segment_t& s : segments_) {
            std::copy(s.bytes.begin(), s.bytes.end(), flat.begin() + static_cast<long>(s.address - lowest));
            std::vector<uint8_t>().swap(s.bytes);
        }
        segments_.assign(1, segment_t{lowest, std::move(flat)});
    }
    for (segment_t& s : segments_)
        file.appendBlock(static_cast<uint16_t>(s.address >> 16), static_cast<uint16_t>(s.address), s.bytes);
    if (hasStart_) {
        file.startAddressType = start_.type;
        file.startAddressValue = start_.value;
    }
    clear();
    return result;
}
