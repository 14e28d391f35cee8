#include "support/capture.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace {

void flushAll()
{
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
}

int makeTempFile()
{
    char name[] = "/tmp/intelhex-capture-XXXXXX";
    const int fd = mkstemp(name);
    if (fd < 0)
        throw std::runtime_error("mkstemp failed");
    unlink(name);
    return fd;
}

std::string readAll(int fd)
{
    std::string text;
    lseek(fd, 0, SEEK_SET);
    char chunk[4096];
    ssize_t got;
    while ((got = read(fd, chunk, sizeof chunk)) > 0)
        text.append(chunk, static_cast<size_t>(got));
    return text;
}

// Redirects one descriptor to a temporary file for its lifetime.
class Redirect {
public:
    explicit Redirect(int fd) : fd_(fd), saved_(dup(fd)), temp_(makeTempFile())
    {
        dup2(temp_, fd_);
    }
    ~Redirect()
    {
        dup2(saved_, fd_);
        close(saved_);
        close(temp_);
    }
    std::string text() const { return readAll(temp_); }

private:
    int fd_;
    int saved_;
    int temp_;
};

} // namespace

CapturedOutput captureOutputKeeping(const std::function<void()>& fn, CapturedOutput* captured)
{
    flushAll();
    Redirect out(STDOUT_FILENO);
    Redirect err(STDERR_FILENO);
    try {
        fn();
    } catch (...) {
        flushAll();
        if (captured != nullptr)
            *captured = CapturedOutput{out.text(), err.text()};
        throw;
    }
    flushAll();
    CapturedOutput result{out.text(), err.text()};
    if (captured != nullptr)
        *captured = result;
    return result;
}

CapturedOutput captureOutput(const std::function<void()>& fn)
{
    return captureOutputKeeping(fn, nullptr);
}
