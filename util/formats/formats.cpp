// Reading images from files and memory in every format, finding the line
// of a byte, and writing images to streams and files.
#include "formats.h"

#include "elf_reader.h"
#include "format_table.h"
#include "full_format_reader.h"
#include "hex_format.h"
#include "image_builder.h"
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
#include <memory>
#include <new>
#include <ostream>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace hexblocks {


namespace {

const uint64_t ADDRESS_SPACE = 0x100000000ull;

// Why reading fd failed, from errno.
read_result_t failedReading()
{
    return failure<read_result_t>(status_t::CANNOT_READ, std::string("cannot read the file: ") + std::strerror(errno));
}

read_result_t failedOpening()
{
    return failure<read_result_t>(status_t::CANNOT_OPEN, std::string("cannot open the file: ") + std::strerror(errno));
}

// Whether a binary file of size bytes can be read into memory, and whether
// it fits at address: a failure when not.
read_result_t checkBinarySize(uint64_t size, uint32_t address)
{
    if (size > std::numeric_limits<size_t>::max())
        return failure<read_result_t>(status_t::TOO_LARGE, "the file is too large: " + std::to_string(size) + " bytes");
    if (static_cast<uint64_t>(address) + size > ADDRESS_SPACE) {
        read_result_t result = failure<read_result_t>(status_t::OUT_OF_RANGE,
                                          "binary input of " + std::to_string(size) + " bytes at " +
                                              detail::hexAddress(address) + " would run past address 0xFFFFFFFF");
        result.address = address;
        return result;
    }
    return read_result_t();
}

// Makes bytes, placed at address, the whole image.
read_result_t readBinaryBytes(MemoryImage& image, std::vector<uint8_t>&& bytes, uint32_t address)
{
    const read_result_t checked = checkBinarySize(bytes.size(), address);
    if (!checked)
        return checked;
    std::vector<segment_t> segments;
    if (!bytes.empty())
        segments.push_back(segment_t{address, std::move(bytes)});
    detail::ImageBuilder::assign(image, std::move(segments), 0, 0, std::string());
    return read_result_t();
}

// Why the format of an input's first bytes cannot be told, or none when it
// can: the formats it could be, or that it is none of those that can be told.
std::optional<std::string> whyNotDetected(const void* head, size_t size, bool wholeInput)
{
    if (size == 0)
        return std::string(wholeInput ? "the input is empty" : "the file is empty");
    const std::vector<file_format_t> found = recogniseFormats(head, size);
    if (found.size() == 1)
        return std::nullopt;
    if (found.empty()) {
        std::vector<std::string> known;
        for (const format_info_t& f : formats())
            if (f.recognise != nullptr)
                known.push_back(f.title);
        std::string list;
        for (size_t i = 0; i < known.size(); ++i)
            list += (i == 0 ? "" : i + 1 == known.size() ? " or " : ", ") + known[i];
        return "not " + list + " (the format of binary input must be given)";
    }
    std::string titles, names;
    for (size_t i = 0; i < found.size(); ++i) {
        const char* joint = i == 0 ? "" : i + 1 == found.size() ? " or " : ", ";
        titles += joint + std::string(formatInfo(found[i]).title);
        names += joint + std::string(formatInfo(found[i]).name);
    }
    return "the content could be " + titles + ": the format must be given (" + names + ")";
}

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
// fails and what it wrote is lost.
read_result_t readUnsized(int fd, std::vector<uint8_t>& bytes)
{
    try {
        if (!readDescriptor(fd, bytes, 0))
            return failedReading();
    } catch (const std::bad_alloc&) {
        return failure<read_result_t>(status_t::OUT_OF_MEMORY, "out of memory after " + std::to_string(bytes.size()) + " bytes");
    }
    return read_result_t();
}

// Checks that input can be written with options: the format's own checks;
// a failure says why.
result_t checkWriteOptions(const detail::WriterInput& input, const write_options_t& options)
{
    const detail::format_row_t& row = detail::formatRow(options.format);
    if (row.write == nullptr)
        return failure(status_t::UNSUPPORTED, std::string("images cannot be saved as ") + row.info.title);
    return row.checkOptions != nullptr ? row.checkOptions(input, options) : result_t();
}

// Writes input to sink as options say, with the format's writer. Checks the
// options first and writes nothing when they do not fit the input.
result_t writeInput(detail::WriterInput& input, const write_options_t& options, detail::ByteSink& sink)
{
    result_t result = checkWriteOptions(input, options);
    if (result)
        detail::formatRow(options.format).write(input, options, sink, result);
    return result;
}

// Sends writeStream()'s output to a stream.
class StreamSink : public detail::ByteSink {
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

// Sends writeMemory()'s output to the end of a string.
class StringSink : public detail::ByteSink {
public:
    explicit StringSink(std::string& out) : out_(out) {}
    bool put(const char* bytes, size_t size) override
    {
        try {
            out_.append(bytes, size);
        } catch (const std::bad_alloc&) {
            return false;
        } catch (const std::length_error&) {
            return false;
        }
        return true;
    }
    std::string failure() const override { return "not enough memory for the output"; }

private:
    std::string& out_;
};



} // namespace

// ---------------------------------------------------------------------------
// Reading any format

namespace detail {

bool looksLikeElf(const void* head, size_t size)
{
    return size >= 4 && std::memcmp(head, "\x7F" "ELF", 4) == 0;
}

namespace {

// Where the first character of a text is, past a UTF-8 byte order mark and
// white space.
size_t firstCharacter(const unsigned char* bytes, size_t size)
{
    size_t i = 0;
    if (size >= 3 && std::memcmp(bytes, "\xEF\xBB\xBF", 3) == 0)
        i = 3;
    while (i < size && (bytes[i] == ' ' || bytes[i] == '\t' || bytes[i] == '\r' || bytes[i] == '\n'))
        ++i;
    return i;
}

} // namespace

bool looksLikeIntelHex(const void* head, size_t size)
{
    const unsigned char* bytes = static_cast<const unsigned char*>(head);
    const size_t i = firstCharacter(bytes, size);
    return i < size && bytes[i] == ':';
}

bool looksLikeSrecords(const void* head, size_t size)
{
    const unsigned char* bytes = static_cast<const unsigned char*>(head);
    const size_t i = firstCharacter(bytes, size);
    return i + 1 < size && bytes[i] == 'S' && bytes[i + 1] >= '0' && bytes[i + 1] <= '9';
}

assembly_t assemblyOf(const read_options_t& options)
{
    return assembly_t(placement_t::ASCENDING, options.overlap.value_or(overlap_policy_t::FIRST));
}

read_result_t recordsResult(fullread_t read, const read_options_t& options)
{
    if (options.overlap)
        read.repeatedBytes = 0;
    return readResultOf(read);
}

read_result_t readIntelHexMemory(MemoryImage& image, const void* data, size_t size, const read_options_t& options)
{
    MemoryText text(data, size);
    return recordsResult(readFullFormat(text, image, assemblyOf(options)), options);
}

read_result_t readIntelHexFile(MemoryImage& image, int fd, uint64_t, const read_options_t& options)
{
    DescriptorText text(fd);
    return recordsResult(readFullFormat(text, image, assemblyOf(options)), options);
}

read_result_t readSrecordMemory(MemoryImage& image, const void* data, size_t size, const read_options_t& options)
{
    MemoryText text(data, size);
    return recordsResult(readSrecords(text, image, assemblyOf(options)), options);
}

read_result_t readSrecordFile(MemoryImage& image, int fd, uint64_t, const read_options_t& options)
{
    DescriptorText text(fd);
    return recordsResult(readSrecords(text, image, assemblyOf(options)), options);
}

size_t locateIntelHex(TextSource& source, uint32_t address, const read_options_t&)
{
    return locateFullFormat(source, address);
}

size_t locateSrecords(TextSource& source, uint32_t address, const read_options_t&)
{
    return locateSrecord(source, address);
}

read_result_t readMapped(MemoryImage& image, int fd, uint64_t size, const read_options_t& options,
                         read_result_t (*readMemory)(MemoryImage&, const void*, size_t, const read_options_t&))
{
    if (size > std::numeric_limits<size_t>::max() / 2)
        return failure<read_result_t>(status_t::TOO_LARGE, "the file is too large: " + std::to_string(size) + " bytes");
    if (size == 0)
        return readMemory(image, "", 0, options);
    void* mapped = ::mmap(nullptr, static_cast<size_t>(size), PROT_READ, MAP_PRIVATE, fd, 0);
    if (mapped == MAP_FAILED) {
        std::vector<uint8_t> bytes;
        try {
            if (!readDescriptor(fd, bytes, static_cast<size_t>(size)))
                return failedReading();
        } catch (const std::bad_alloc&) {
            return failure<read_result_t>(status_t::OUT_OF_MEMORY, "out of memory for " + std::to_string(size) + " bytes");
        }
        return readMemory(image, bytes.data(), bytes.size(), options);
    }
    ::madvise(mapped, static_cast<size_t>(size), MADV_SEQUENTIAL);
    read_result_t result = readMemory(image, mapped, static_cast<size_t>(size), options);
    ::munmap(mapped, static_cast<size_t>(size));
    return result;
}

read_result_t readElfMemory(MemoryImage& image, const void* data, size_t size, const read_options_t&)
{
    MemoryBytes bytes(data, size);
    return readElf(bytes, image);
}

read_result_t readElfFile(MemoryImage& image, int fd, uint64_t size, const read_options_t&)
{
    DescriptorBytes bytes(fd, size);
    return readElf(bytes, image);
}

read_result_t readBinaryMemory(MemoryImage& image, const void* data, size_t size, const read_options_t& options)
{
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    return readBinaryBytes(image, std::vector<uint8_t>(bytes, bytes + size), options.address);
}

read_result_t readBinaryFile(MemoryImage& image, int fd, uint64_t size, const read_options_t& options)
{
    const read_result_t checked = checkBinarySize(size, 0);
    if (!checked)
        return checked;
    // Straight into the segment's bytes.
    std::vector<uint8_t> bytes;
    try {
        if (!readDescriptor(fd, bytes, static_cast<size_t>(size)))
            return failedReading();
        return readBinaryBytes(image, std::move(bytes), options.address);
    } catch (const std::bad_alloc&) {
        return failure<read_result_t>(status_t::OUT_OF_MEMORY, "out of memory for " + std::to_string(size) + " bytes");
    }
}

} // namespace detail

std::vector<file_format_t> recogniseFormats(const void* head, size_t size)
{
    std::vector<file_format_t> found;
    for (const format_info_t& f : formats())
        if (f.recognise != nullptr && f.recognise(head, size))
            found.push_back(f.format);
    return found;
}

std::optional<file_format_t> detectFormat(const void* head, size_t size)
{
    const std::vector<file_format_t> found = recogniseFormats(head, size);
    return found.size() == 1 ? std::optional<file_format_t>(found[0]) : std::nullopt;
}

read_result_t readMemory(MemoryImage& image, const void* data, size_t size, const read_options_t& options)
{
    file_format_t format = options.format;
    if (options.detect) {
        if (const std::optional<std::string> why = whyNotDetected(data, size, true)) {
            read_result_t failed = failure<read_result_t>(status_t::UNKNOWN_FORMAT, *why);
            failed.candidates = recogniseFormats(data, size);
            return failed;
        }
        format = *detectFormat(data, size);
    }
    const detail::format_row_t& row = detail::formatRow(format);
    if (row.readMemory == nullptr)
        return failure<read_result_t>(status_t::UNSUPPORTED, std::string("images cannot be read from ") + row.info.title);
    return row.readMemory(image, data, size, options);
}

read_result_t readFile(MemoryImage& image, const char* path, const read_options_t& options)
{
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return failedOpening();
    struct stat status;
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        std::vector<uint8_t> bytes;
        const read_result_t read = readUnsized(fd, bytes);
        ::close(fd);
        if (!read)
            return read;
        return readMemory(image, bytes.data(), bytes.size(), options);
    }
    file_format_t format = options.format;
    if (options.detect) {
        unsigned char head[4096];
        const ssize_t got = ::pread(fd, head, sizeof head, 0);
        if (got < 0) {
            ::close(fd);
            return failedReading();
        }
        const size_t headSize = static_cast<size_t>(got);
        const std::vector<file_format_t> candidates = recogniseFormats(head, headSize);
        // Content that fits several formats is read as the one the file's
        // extension names, when it names one of them.
        const std::optional<file_format_t> named =
            candidates.size() > 1 ? formatByExtension(path) : std::optional<file_format_t>();
        if (candidates.size() == 1) {
            format = candidates[0];
        } else if (named && std::find(candidates.begin(), candidates.end(), *named) != candidates.end()) {
            format = *named;
        } else {
            read_result_t failed =
                failure<read_result_t>(status_t::UNKNOWN_FORMAT, whyNotDetected(head, headSize, false).value_or(""));
            failed.candidates = candidates;
            ::close(fd);
            return failed;
        }
    }
    const detail::format_row_t& row = detail::formatRow(format);
    const read_result_t result =
        row.readFile == nullptr
            ? failure<read_result_t>(status_t::UNSUPPORTED, std::string("images cannot be read from ") + row.info.title)
            : row.readFile(image, fd, static_cast<uint64_t>(status.st_size), options);
    ::close(fd);
    return result;
}

// ---------------------------------------------------------------------------
// Finding the line of a byte

std::optional<size_t> findLineInMemory(const void* data, size_t size, uint32_t address, const read_options_t& options)
{
    file_format_t format = options.format;
    if (options.detect) {
        const std::optional<file_format_t> detected = detectFormat(data, size);
        if (!detected)
            return std::nullopt;
        format = *detected;
    }
    detail::MemoryText text(data, size);
    const detail::format_row_t& row = detail::formatRow(format);
    const size_t line = row.locate != nullptr ? row.locate(text, address, options) : 0;
    return line > 0 ? std::optional<size_t>(line) : std::nullopt;
}

std::optional<size_t> findLineInFile(const char* path, uint32_t address, const read_options_t& options)
{
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    std::vector<uint8_t> bytes;
    bool read = false;
    try {
        read = readDescriptor(fd, bytes, 0);
    } catch (const std::bad_alloc&) {
    }
    ::close(fd);
    return read ? findLineInMemory(bytes.data(), bytes.size(), address, options) : std::nullopt;
}

// ---------------------------------------------------------------------------
// Saving

result_t writeStream(const MemoryImage& image, std::ostream& out, const write_options_t& options)
{
    StreamSink sink(out);
    detail::ImageInput input(image);
    return writeInput(input, options, sink);
}

result_t writeMemory(const MemoryImage& image, std::string& out, const write_options_t& options)
{
    const size_t before = out.size();
    StringSink sink(out);
    detail::ImageInput input(image);
    const result_t result = writeInput(input, options, sink);
    if (!result)
        out.resize(before);
    return result;
}

namespace {

// Writes input to the file at path through a temporary file (see
// writeFile()). Bad options leave no file, not even an empty one.
result_t writeInputToFile(detail::WriterInput& input, const char* path,
                                       const write_options_t& options)
{
    result_t result = checkWriteOptions(input, options);
    if (!result)
        return result;
    detail::OutputFile file;
    if (!file.open(path))
        return failure(status_t::CANNOT_OPEN, file.failure());
    result = writeInput(input, options, file);
    if (result && !file.commit())
        return failure(status_t::CANNOT_WRITE, file.failure());
    return result;
}

// A binary file as the writers' input, read a piece at a time as they ask:
// one segment of the file's size (as it was when opened) at an address.
class BinaryFileInput : public detail::WriterInput {
public:
    BinaryFileInput(int fd, uint32_t address, uint64_t size) : fd_(fd), address_(address), size_(size) {}
    size_t segmentCount() const override { return size_ > 0 ? 1 : 0; }
    uint32_t segmentAddress(size_t) const override { return address_; }
    uint64_t segmentSize(size_t) const override { return size_; }
    bool hasStartAddress() const override { return false; }
    start_address_t startAddress() const override { return start_address_t(); }
    std::string header() const override { return std::string(); }
    std::string failure() const override { return failure_; }

    const uint8_t* bytes(size_t, uint64_t, size_t size) override
    {
        if (capacity_ < size) {
            // Not zeroed: it is read into at once.
            buffer_.reset(new uint8_t[size]);
            capacity_ = size;
        }
        size_t held = 0;
        while (held < size) {
            const ssize_t got = ::read(fd_, buffer_.get() + held, size - held);
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
        return buffer_.get();
    }

private:
    int fd_;
    uint32_t address_;
    uint64_t size_;
    std::unique_ptr<uint8_t[]> buffer_;
    size_t capacity_ = 0;
    std::string failure_;
};

// What converting reports for the outcome of reading or writing.
convert_result_t convertResultOf(const result_t& outcome, bool inputFailed)
{
    convert_result_t result;
    static_cast<result_t&>(result) = outcome;
    result.inputFailed = !outcome.ok() && inputFailed;
    return result;
}

} // namespace

convert_result_t convertBinaryFile(const char* input, uint32_t address, const char* output,
                                   const write_options_t& options)
{
    const int fd = ::open(input, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return convertResultOf(failedOpening(), true);
    struct stat status;
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        std::vector<uint8_t> bytes;
        read_result_t read = readUnsized(fd, bytes);
        ::close(fd);
        MemoryImage image;
        if (read)
            read = readBinaryBytes(image, std::move(bytes), address);
        if (!read)
            return convertResultOf(read, true);
        return convertResultOf(writeFile(image, output, options), false);
    }
    const uint64_t size = static_cast<uint64_t>(status.st_size);
    convert_result_t result = convertResultOf(checkBinarySize(size, address), true);
    if (result) {
        BinaryFileInput bytes(fd, address, size);
        const result_t written = writeInputToFile(bytes, output, options);
        result = convertResultOf(written, !bytes.failure().empty());
    }
    ::close(fd);
    return result;
}

result_t writeFile(const MemoryImage& image, const char* path, const write_options_t& options)
{
    detail::ImageInput input(image);
    return writeInputToFile(input, path, options);
}

} // namespace hexblocks
