// The format table: one row for every format, with what the public
// format_info_t tells and the functions that read and write it. Reading,
// writing and format detection all go through it; adding a format is its
// reader and writer in a file of this layer and one row in
// format_table.cpp.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_FORMAT_TABLE_H
#define HEXBLOCKS_FORMAT_TABLE_H

#include "formats.h"
#include "image_writer.h"
#include "memory_image.h"
#include "result.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace hexblocks::detail {

struct format_row_t {
    format_info_t info;
    // Reads size bytes in memory into image; binary input goes at address.
    // Null for a format that is only written.
    read_result_t (*readMemory)(MemoryImage& image, const void* data, size_t size, uint32_t address);
    // Reads the regular file fd of size bytes into image.
    read_result_t (*readFile)(MemoryImage& image, int fd, uint64_t size, uint32_t address);
    // Checks the write options against the image; null when any will do.
    result_t (*checkOptions)(const WriterInput& input, const write_options_t& options);
    // Writes the image; null for a format that is only read.
    bool (*write)(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result);
};

// The rows, in the order detection tries them.
const std::vector<format_row_t>& formatRows();

// The row of format.
const format_row_t& formatRow(file_format_t format);

// The readers of each format (formats.cpp).
read_result_t readIntelHexMemory(MemoryImage& image, const void* data, size_t size, uint32_t address);
read_result_t readIntelHexFile(MemoryImage& image, int fd, uint64_t size, uint32_t address);
read_result_t readSrecordMemory(MemoryImage& image, const void* data, size_t size, uint32_t address);
read_result_t readSrecordFile(MemoryImage& image, int fd, uint64_t size, uint32_t address);
read_result_t readElfMemory(MemoryImage& image, const void* data, size_t size, uint32_t address);
read_result_t readElfFile(MemoryImage& image, int fd, uint64_t size, uint32_t address);
read_result_t readBinaryMemory(MemoryImage& image, const void* data, size_t size, uint32_t address);
read_result_t readBinaryFile(MemoryImage& image, int fd, uint64_t size, uint32_t address);

// How each format is told from an input's first bytes.
bool looksLikeIntelHex(const void* head, size_t size);
bool looksLikeSrecords(const void* head, size_t size);
bool looksLikeElf(const void* head, size_t size);

} // namespace hexblocks::detail

#endif // HEXBLOCKS_FORMAT_TABLE_H
