#include "record_scanner.h"

#include <algorithm>
#include <cerrno>
#include <ios>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

namespace hexblocks::detail {

const char* MemoryText::wholeText(size_t& size) const
{
    size = size_;
    return text_;
}

ssize_t MemoryText::read(char* buffer, size_t capacity)
{
    const size_t n = std::min(capacity, size_ - position_);
    std::memcpy(buffer, text_ + position_, n);
    position_ += n;
    return static_cast<ssize_t>(n);
}

bool MemoryText::rewind()
{
    position_ = 0;
    return true;
}

DescriptorText::DescriptorText(int fd) : fd_(fd), start_(lseek(fd, 0, SEEK_CUR)) {}

ssize_t DescriptorText::read(char* buffer, size_t capacity)
{
    for (;;) {
        const ssize_t got = ::read(fd_, buffer, capacity);
        if (got >= 0 || errno != EINTR)
            return got;
    }
}

uint64_t DescriptorText::sizeLeft() const
{
    struct stat status;
    if (fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode))
        return 0;
    const off_t position = lseek(fd_, 0, SEEK_CUR);
    return position >= 0 && status.st_size > position ? static_cast<uint64_t>(status.st_size - position) : 0;
}

bool DescriptorText::rewind()
{
    return canRewind() && lseek(fd_, start_, SEEK_SET) == start_;
}

StreamBufferText::StreamBufferText(std::streambuf& buffer)
    : buffer_(buffer), start_(buffer.pubseekoff(0, std::ios_base::cur, std::ios_base::in))
{
}

ssize_t StreamBufferText::read(char* buffer, size_t capacity)
{
    // A file stream's buffer throws when the system's read fails (a
    // directory, an I/O error); the stream itself would take that as a read
    // that yields nothing, so this reports it as a failed read rather than
    // letting it leave the library.
    try {
        return static_cast<ssize_t>(buffer_.sgetn(buffer, static_cast<std::streamsize>(capacity)));
    } catch (const std::ios_base::failure& e) {
        const std::error_code code = e.code();
        const bool fromSystem = code.category() == std::generic_category() || code.category() == std::system_category();
        errno = fromSystem && code.value() != 0 ? code.value() : EIO;
        return -1;
    } catch (...) {
        errno = EIO;
        return -1;
    }
}

uint64_t StreamBufferText::sizeLeft() const
{
    if (!canRewind())
        return 0;
    const std::streampos here = buffer_.pubseekoff(0, std::ios_base::cur, std::ios_base::in);
    const std::streampos end = buffer_.pubseekoff(0, std::ios_base::end, std::ios_base::in);
    buffer_.pubseekpos(here, std::ios_base::in);
    return here != std::streampos(-1) && end > here ? static_cast<uint64_t>(end - here) : 0;
}

bool StreamBufferText::rewind()
{
    return canRewind() && buffer_.pubseekpos(start_, std::ios_base::in) == start_;
}

bool readWhole(TextSource& source, std::vector<char>& text)
{
    const size_t PIECE = 1 << 20;
    for (;;) {
        const size_t held = text.size();
        text.resize(held + PIECE);
        const ssize_t got = source.read(text.data() + held, PIECE);
        text.resize(held + static_cast<size_t>(got > 0 ? got : 0));
        if (got <= 0)
            return got == 0;
    }
}

RecordScannerBase::lineaction_t RecordScannerBase::badLine(const char* reason, const char* text, size_t length)
{
    return badLine(std::string(reason), text, length);
}

RecordScannerBase::lineaction_t RecordScannerBase::badLine(const std::string& reason, const char* text, size_t length)
{
    badLine_.line = line_;
    badLine_.badChecksum = false;
    badLine_.reason = reason;
    badLine_.text.assign(text, length);
    return lineaction_t::BAD;
}

RecordScannerBase::lineaction_t RecordScannerBase::badChecksum(const char* text, size_t length)
{
    badLine("checksum error", text, length);
    badLine_.badChecksum = true;
    return lineaction_t::BAD;
}

} // namespace hexblocks::detail
