#include "output_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace hexblocks::detail {

OutputFile::~OutputFile()
{
    discard();
}

bool OutputFile::fail(const std::string& what)
{
    failure_ = what + " '" + path_ + "': " + std::strerror(errno);
    return false;
}

void OutputFile::discard()
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
    if (!temporary_.empty())
        ::unlink(temporary_.c_str());
    temporary_.clear();
}

bool OutputFile::open(const std::string& path)
{
    discard();
    path_ = path;
    struct stat existing;
    const bool exists = ::stat(path.c_str(), &existing) == 0;
    if (exists && !S_ISREG(existing.st_mode)) {
        fd_ = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
        return fd_ >= 0 || fail("cannot open");
    }
    // A name of our own next to the file: mode 0666 less the umask, as for
    // any new file, or the mode of the file it replaces.
    for (unsigned attempt = 0; attempt < 100; ++attempt) {
        temporary_ = path + ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(attempt);
        fd_ = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd_ >= 0 || errno != EEXIST)
            break;
    }
    if (fd_ < 0) {
        temporary_.clear();
        return fail("cannot create");
    }
    if (exists && ::fchmod(fd_, existing.st_mode & 07777) != 0) {
        const bool failed = fail("cannot set the mode of");
        discard();
        return failed;
    }
    return true;
}

bool OutputFile::put(const char* bytes, size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd_, bytes, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            if (written == 0)
                errno = EIO;
            return fail("cannot write");
        }
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

bool OutputFile::commit()
{
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0) {
        fail("cannot write");
        discard();
        return false;
    }
    if (!temporary_.empty() && ::rename(temporary_.c_str(), path_.c_str()) != 0) {
        fail("cannot write");
        discard();
        return false;
    }
    temporary_.clear();
    return true;
}

} // namespace hexblocks::detail
