// An output file that appears only when it is complete: the bytes go to a
// temporary file in the same directory, renamed into place by commit(). A
// file that is not committed is removed, so a failure leaves no partial file
// and an existing file as it was. A path that names something other than a
// regular file (a device, a pipe) is written directly.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_OUTPUT_FILE_H
#define HEXBLOCKS_OUTPUT_FILE_H

#include "image_writer.h"

#include <string>

namespace hexblocks::detail {

class OutputFile : public ByteSink {
public:
    OutputFile() = default;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile() override;

    // Opens the temporary file for path; false, with failure() saying why,
    // when it cannot.
    bool open(const std::string& path);

    bool put(const char* bytes, size_t size) override;
    std::string failure() const override { return failure_; }

    // Closes the file and renames it into place; false, with the temporary
    // file removed and failure() saying why, when that fails.
    bool commit();

private:
    bool fail(const std::string& what);
    void discard();

    std::string path_;
    std::string temporary_; // empty when writing path_ directly
    int fd_ = -1;
    std::string failure_;
};

} // namespace hexblocks::detail

#endif // HEXBLOCKS_OUTPUT_FILE_H
