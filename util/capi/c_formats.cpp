// Formats for C: the format table, reading from files, memory and
// descriptors, and writing to them.
#include "c_support.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <streambuf>
#include <ostream>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace hexblocks;
using namespace hexblocks::c_api;

namespace {

// Hands the warnings of a read to the caller's callback.
void passWarnings(const read_result_t& result, const hb_read_options_t* options)
{
    if (options == nullptr || !HB_REACHES(options, hb_read_options_t, context) || options->warning == nullptr)
        return;
    for (const warning_t& w : result.warnings)
        options->warning(options->context, w.line, w.message.c_str());
}

hb_status_t reportRead(const read_result_t& result, const hb_read_options_t* options, hb_error_t* error)
{
    passWarnings(result, options);
    return report(error, result);
}

// The reason of a failing system call.
std::string systemReason(const char* what, int number)
{
    return std::string(what) + ": " + std::strerror(number);
}

// What is left to read of a descriptor: a regular file mapped from its
// offset, anything else read to its end.
class DescriptorInput {
public:
    // False, with error filled, when it cannot be read.
    bool open(int fd, hb_error_t* error)
    {
        struct stat status;
        if (::fstat(fd, &status) != 0) {
            report(error, HB_CANNOT_READ, systemReason("cannot read the descriptor", errno));
            return false;
        }
        const off_t offset = S_ISREG(status.st_mode) ? ::lseek(fd, 0, SEEK_CUR) : -1;
        if (offset >= 0 && offset < status.st_size && mapFrom(fd, offset, status.st_size))
            return true;
        if (offset >= 0 && offset >= status.st_size)
            return true; // nothing left
        return readAll(fd, error);
    }

    ~DescriptorInput()
    {
        if (mapping_ != nullptr)
            ::munmap(mapping_, mappingSize_);
    }

    const void* data() const { return data_; }
    size_t size() const { return size_; }

private:
    bool mapFrom(int fd, off_t offset, off_t end)
    {
        const off_t page = static_cast<off_t>(::sysconf(_SC_PAGESIZE));
        const off_t base = offset / page * page;
        if (static_cast<uint64_t>(end - base) > SIZE_MAX)
            return false;
        mappingSize_ = static_cast<size_t>(end - base);
        void* mapped = ::mmap(nullptr, mappingSize_, PROT_READ, MAP_PRIVATE, fd, base);
        if (mapped == MAP_FAILED)
            return false;
        mapping_ = mapped;
        data_ = static_cast<const char*>(mapped) + (offset - base);
        size_ = static_cast<size_t>(end - offset);
        // The descriptor ends where reading it would have left it.
        ::lseek(fd, end, SEEK_SET);
        return true;
    }

    bool readAll(int fd, hb_error_t* error)
    {
        char chunk[65536];
        for (;;) {
            const ssize_t got = ::read(fd, chunk, sizeof chunk);
            if (got == 0)
                break;
            if (got < 0) {
                if (errno == EINTR)
                    continue;
                report(error, HB_CANNOT_READ, systemReason("cannot read the descriptor", errno));
                return false;
            }
            bytes_.insert(bytes_.end(), chunk, chunk + got);
        }
        data_ = bytes_.data();
        size_ = bytes_.size();
        return true;
    }

    void* mapping_ = nullptr;
    size_t mappingSize_ = 0;
    std::vector<char> bytes_;
    const void* data_ = "";
    size_t size_ = 0;
};

// An output stream's buffer that writes to a descriptor as it fills.
class DescriptorBuffer : public std::streambuf {
public:
    explicit DescriptorBuffer(int fd) : fd_(fd) {}
    int failure() const { return failure_; }

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize size) override
    {
        for (std::streamsize done = 0; done < size;) {
            const ssize_t put = ::write(fd_, bytes + done, static_cast<size_t>(size - done));
            if (put < 0 && errno == EINTR)
                continue;
            if (put <= 0) {
                failure_ = put < 0 ? errno : EIO;
                return done;
            }
            done += put;
        }
        return size;
    }

    int_type overflow(int_type c) override
    {
        if (traits_type::eq_int_type(c, traits_type::eof()))
            return traits_type::not_eof(c);
        const char byte = traits_type::to_char_type(c);
        return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
    }

private:
    int fd_;
    int failure_ = 0;
};

} // namespace

extern "C" {

hb_status_t hb_formatInfo(hb_format_t format, hb_format_info_t* info, hb_error_t* error)
{
    return guarded(error, [&] {
        if (info == nullptr)
            return nullArgument(error, "info");
        const std::optional<int64_t> value =
            enumeratorOf(format, HB_FORMAT_INTEL_HEX, HB_FORMAT_INTEL_HEX_16, "format", error);
        if (!value)
            return HB_BAD_ARGUMENT;
        const format_info_t& row = formatInfo(static_cast<file_format_t>(*value));
        *info = hb_format_info_t{row.name, row.title, row.extensions, row.readable, row.writable};
        return succeed(error);
    });
}

hb_status_t hb_formatByName(const char* name, hb_format_t* format, hb_error_t* error)
{
    return guarded(error, [&] {
        if (name == nullptr || format == nullptr)
            return nullArgument(error, name == nullptr ? "name" : "format");
        const std::optional<file_format_t> found = formatByName(name);
        if (!found) {
            std::string names;
            for (const format_info_t& row : formats())
                names += std::string(names.empty() ? "" : ", ") + row.name;
            return badArgument(error, "unknown format '" + std::string(name) + "': " + names);
        }
        *format = static_cast<hb_format_t>(*found);
        return succeed(error);
    });
}

hb_status_t hb_formatByExtension(const char* path, hb_format_t* format, hb_error_t* error)
{
    return guarded(error, [&] {
        if (path == nullptr || format == nullptr)
            return nullArgument(error, path == nullptr ? "path" : "format");
        const std::optional<file_format_t> found = formatByExtension(path);
        if (!found)
            return report(error, HB_UNKNOWN_FORMAT, "no format has the extension of '" + std::string(path) + "'");
        *format = static_cast<hb_format_t>(*found);
        return succeed(error);
    });
}

hb_status_t hb_detectFormat(const void* head, size_t size, hb_format_t* format, hb_error_t* error)
{
    return guarded(error, [&] {
        if ((head == nullptr && size > 0) || format == nullptr)
            return nullArgument(error, format == nullptr ? "format" : "head");
        const std::optional<file_format_t> found = detectFormat(head, size);
        if (!found) {
            const std::vector<file_format_t> fits = recogniseFormats(head, size);
            std::string reason = "the content is of no format the library reads";
            if (fits.size() > 1) {
                reason = "the content could be";
                for (size_t i = 0; i < fits.size(); ++i)
                    reason += std::string(i == 0 ? " " : i + 1 == fits.size() ? " or " : ", ") +
                              formatInfo(fits[i]).title;
            }
            return report(error, HB_UNKNOWN_FORMAT, reason);
        }
        *format = static_cast<hb_format_t>(*found);
        return succeed(error);
    });
}

size_t hb_recogniseFormats(const void* head, size_t size, hb_format_t* formats, size_t capacity)
{
    if (head == nullptr)
        size = 0;
    try {
        const std::vector<file_format_t> fits = recogniseFormats(head == nullptr ? "" : head, size);
        for (size_t i = 0; i < fits.size() && i < capacity; ++i)
            formats[i] = static_cast<hb_format_t>(fits[i]);
        return fits.size();
    } catch (...) {
        return 0;
    }
}

const char* hb_uf2FamilyName(uint32_t id)
{
    for (const uf2_family_t& family : uf2Families())
        if (family.id == id)
            return family.name;
    return nullptr;
}

hb_status_t hb_uf2FamilyByName(const char* name, uint32_t* id, hb_error_t* error)
{
    return guarded(error, [&] {
        if (name == nullptr || id == nullptr)
            return nullArgument(error, name == nullptr ? "name" : "id");
        const std::optional<uint32_t> found = uf2FamilyByName(name);
        if (!found)
            return badArgument(error, "unknown UF2 family '" + std::string(name) + "': a name or a number");
        *id = *found;
        return succeed(error);
    });
}

hb_status_t hb_readFile(hb_image_t* image, const char* path, const hb_read_options_t* options, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr || path == nullptr)
            return nullArgument(error, image == nullptr ? "image" : "path");
        read_options_t read;
        if (!readOptionsOf(options, read, error))
            return HB_BAD_ARGUMENT;
        return reportRead(readFile(image->image, path, read), options, error);
    });
}

hb_status_t hb_readMemory(hb_image_t* image, const void* data, size_t size, const hb_read_options_t* options,
                          hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr || (data == nullptr && size > 0))
            return nullArgument(error, image == nullptr ? "image" : "data");
        read_options_t read;
        if (!readOptionsOf(options, read, error))
            return HB_BAD_ARGUMENT;
        return reportRead(readMemory(image->image, data == nullptr ? "" : data, size, read), options, error);
    });
}

hb_status_t hb_readFd(hb_image_t* image, int fd, const hb_read_options_t* options, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        read_options_t read;
        if (!readOptionsOf(options, read, error))
            return HB_BAD_ARGUMENT;
        DescriptorInput input;
        if (!input.open(fd, error))
            return error != nullptr ? error->status : HB_CANNOT_READ;
        return reportRead(readMemory(image->image, input.data(), input.size(), read), options, error);
    });
}

int hb_findLineInFile(const char* path, uint32_t address, const hb_read_options_t* options, size_t* line)
{
    try {
        read_options_t read;
        if (path == nullptr || !readOptionsOf(options, read, nullptr))
            return 0;
        const std::optional<size_t> found = findLineInFile(path, address, read);
        if (found && line != nullptr)
            *line = *found;
        return found.has_value();
    } catch (...) {
        return 0;
    }
}

int hb_findLineInMemory(const void* data, size_t size, uint32_t address, const hb_read_options_t* options,
                        size_t* line)
{
    try {
        read_options_t read;
        if ((data == nullptr && size > 0) || !readOptionsOf(options, read, nullptr))
            return 0;
        const std::optional<size_t> found = findLineInMemory(data == nullptr ? "" : data, size, address, read);
        if (found && line != nullptr)
            *line = *found;
        return found.has_value();
    } catch (...) {
        return 0;
    }
}

hb_status_t hb_writeFile(const hb_image_t* image, const char* path, const hb_write_options_t* options,
                         hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr || path == nullptr)
            return nullArgument(error, image == nullptr ? "image" : "path");
        write_options_t write;
        if (!writeOptionsOf(options, write, error))
            return HB_BAD_ARGUMENT;
        return report(error, writeFile(image->image, path, write));
    });
}

hb_status_t hb_writeMemory(const hb_image_t* image, const hb_write_options_t* options, void** data, size_t* size,
                           hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr || data == nullptr || size == nullptr)
            return nullArgument(error, image == nullptr ? "image" : data == nullptr ? "data" : "size");
        write_options_t write;
        if (!writeOptionsOf(options, write, error))
            return HB_BAD_ARGUMENT;
        std::string text;
        const result_t written = writeMemory(image->image, text, write);
        if (!written)
            return report(error, written);
        void* copy = std::malloc(std::max<size_t>(text.size(), 1));
        if (copy == nullptr)
            throw std::bad_alloc();
        std::memcpy(copy, text.data(), text.size());
        *data = copy;
        *size = text.size();
        return succeed(error);
    });
}

hb_status_t hb_writeFd(const hb_image_t* image, int fd, const hb_write_options_t* options, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        write_options_t write;
        if (!writeOptionsOf(options, write, error))
            return HB_BAD_ARGUMENT;
        DescriptorBuffer buffer(fd);
        std::ostream out(&buffer);
        const result_t written = writeStream(image->image, out, write);
        if (!written && buffer.failure() != 0)
            return report(error, HB_CANNOT_WRITE, systemReason("cannot write to the descriptor", buffer.failure()));
        return report(error, written);
    });
}

hb_status_t hb_convertBinaryFile(const char* input, uint32_t address, const char* output,
                                 const hb_write_options_t* options, hb_error_t* error)
{
    return guarded(error, [&] {
        if (input == nullptr || output == nullptr)
            return nullArgument(error, input == nullptr ? "input" : "output");
        write_options_t write;
        if (!writeOptionsOf(options, write, error))
            return HB_BAD_ARGUMENT;
        return report(error, convertBinaryFile(input, address, output, write));
    });
}

} // extern "C"
