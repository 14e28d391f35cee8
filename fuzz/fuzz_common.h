// Helpers shared by the fuzz targets.
#ifndef INTELHEX_FUZZ_COMMON_H
#define INTELHEX_FUZZ_COMMON_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

// A file in memory holding the input, named through /proc so that load()
// opens it as it would any file (seekable, so both readers are reached).
class MemoryFile {
public:
    MemoryFile(const uint8_t* data, size_t size) : fd_(memfd_create("fuzz-input", 0))
    {
        if (fd_ < 0 || (size > 0 && ::write(fd_, data, size) != static_cast<ssize_t>(size)))
            std::abort();
        path_ = "/proc/self/fd/" + std::to_string(fd_);
    }
    ~MemoryFile() { ::close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    const char* path() const { return path_.c_str(); }

private:
    int fd_;
    std::string path_;
};

// The library's diagnostics would flood the fuzzer's output: a stream in a
// failed state prints nothing.
inline void silenceDiagnostics()
{
    std::cout.setstate(std::ios::badbit);
    std::cerr.setstate(std::ios::badbit);
}

#define FUZZ_CHECK(condition)                                                                                     \
    do {                                                                                                          \
        if (!(condition)) {                                                                                       \
            std::fprintf(stderr, "check failed: %s (%s:%d)\n", #condition, __FILE__, __LINE__);                  \
            std::abort();                                                                                         \
        }                                                                                                         \
    } while (0)

#endif
