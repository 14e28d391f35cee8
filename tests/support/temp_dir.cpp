#include "support/temp_dir.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <dirent.h>
#include <ftw.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

int removeEntry(const char* path, const struct stat*, int, struct FTW*)
{
    return ::remove(path);
}

} // namespace

TempDir::TempDir()
{
    char name[] = "/tmp/hexblocks-test-XXXXXX";
    if (mkdtemp(name) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    path_ = name;
}

TempDir::~TempDir()
{
    nftw(path_.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
}

std::string TempDir::file(const std::string& name) const
{
    return path_ + "/" + name;
}

std::string TempDir::write(const std::string& name, const std::string& text) const
{
    const std::string full = file(name);
    std::ofstream out(full, std::ios::binary);
    out << text;
    if (!out)
        throw std::runtime_error("cannot write " + full);
    return full;
}

std::vector<uint8_t> readFileBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string readFileText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool fileExists(const std::string& path)
{
    struct stat info;
    return ::stat(path.c_str(), &info) == 0;
}

int openAnonymousFile()
{
    char name[] = "/tmp/hexblocks-anon-XXXXXX";
    const int fd = mkstemp(name);
    if (fd < 0)
        throw std::runtime_error("mkstemp failed");
    unlink(name);
    return fd;
}

std::string readDescriptor(int fd)
{
    std::string text;
    lseek(fd, 0, SEEK_SET);
    char chunk[4096];
    ssize_t got;
    while ((got = read(fd, chunk, sizeof chunk)) > 0)
        text.append(chunk, static_cast<size_t>(got));
    return text;
}

FifoFile::FifoFile(const TempDir& dir, const std::string& name, const std::string& text) : path_(dir.file(name))
{
    if (mkfifo(path_.c_str(), 0600) != 0)
        throw std::runtime_error("mkfifo failed");
    writer_ = fork();
    if (writer_ < 0)
        throw std::runtime_error("fork failed");
    if (writer_ == 0) {
        FILE* f = std::fopen(path_.c_str(), "w");
        const bool written = f != nullptr && std::fwrite(text.data(), 1, text.size(), f) == text.size();
        _exit(f != nullptr && std::fclose(f) == 0 && written ? 0 : 1);
    }
}

bool FifoFile::wroteAll()
{
    if (status_ == -1 && waitpid(writer_, &status_, 0) != writer_)
        status_ = 1;
    return WIFEXITED(status_) && WEXITSTATUS(status_) == 0;
}

FifoFile::~FifoFile()
{
    wroteAll();
}

std::vector<std::string> listFiles(const std::string& path)
{
    std::vector<std::string> names;
    if (DIR* dir = opendir(path.c_str())) {
        while (dirent* entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..")
                names.push_back(name);
        }
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}
