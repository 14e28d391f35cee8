// A temporary directory for the files a test writes, removed with its
// contents when the object goes out of scope.
#ifndef HEXBLOCKS_TESTS_TEMP_DIR_H
#define HEXBLOCKS_TESTS_TEMP_DIR_H

#include <cstdint>
#include <string>
#include <vector>

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }

    // Full path of name inside the directory.
    std::string file(const std::string& name) const;

    // Writes text to name, exactly as given (no newline is added), and
    // returns the full path.
    std::string write(const std::string& name, const std::string& text) const;

private:
    std::string path_;
};

// A named pipe that a child process fills with text, for code that must read
// what it cannot rewind. The child is waited for when the object goes.
class FifoFile {
public:
    FifoFile(const TempDir& dir, const std::string& name, const std::string& text);
    ~FifoFile();
    FifoFile(const FifoFile&) = delete;
    FifoFile& operator=(const FifoFile&) = delete;

    const std::string& path() const { return path_; }

    // Waits for the child: true when it wrote the whole text, false when a
    // write failed (the reader went away before taking it all).
    bool wroteAll();

private:
    std::string path_;
    int writer_;
    int status_ = -1; // the child's wait status, once waited for
};

// The whole content of a file as bytes; empty when it cannot be read.
std::vector<uint8_t> readFileBytes(const std::string& path);

// The whole content of a file as a string; empty when it cannot be read.
std::string readFileText(const std::string& path);

bool fileExists(const std::string& path);

// The names in directory path, sorted, without "." and "..".
std::vector<std::string> listFiles(const std::string& path);

// A new temporary file, already unlinked, open for reading and writing.
int openAnonymousFile();

// Everything written to fd so far, read from its start.
std::string readDescriptor(int fd);

#endif
