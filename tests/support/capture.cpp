#include "support/capture.h"

#include "support/temp_dir.h"

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

// Redirects one descriptor to a temporary file for its lifetime.
class Redirect {
public:
    explicit Redirect(int fd) : fd_(fd), saved_(dup(fd)), temp_(openAnonymousFile())
    {
        dup2(temp_, fd_);
    }
    ~Redirect()
    {
        dup2(saved_, fd_);
        close(saved_);
        close(temp_);
    }
    std::string text() const { return readDescriptor(temp_); }

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
