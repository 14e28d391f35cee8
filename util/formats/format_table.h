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
#include "record_assembler.h"
#include "record_scanner.h"
#include "memory_image.h"
#include "result.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace hexblocks::detail {

struct format_row_t {
    format_info_t info;
    // Reads size bytes in memory into image. Null for a format that is only
    // written.
    read_result_t (*readMemory)(MemoryImage& image, const void* data, size_t size, const read_options_t& options);
    // Reads the regular file fd of size bytes into image.
    read_result_t (*readFile)(MemoryImage& image, int fd, uint64_t size, const read_options_t& options);
    // The line of the record that gives the byte at address, as reading
    // keeps it (0 for none); null for a format without lines.
    size_t (*locate)(TextSource& source, uint32_t address, const read_options_t& options);
    // Checks the write options against the image; null when any will do.
    result_t (*checkOptions)(const WriterInput& input, const write_options_t& options);
    // Writes the image; null for a format that is only read.
    bool (*write)(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result);
};

// The rows, in the order detection tries them.
const std::vector<format_row_t>& formatRows();

// The row of format.
const format_row_t& formatRow(file_format_t format);

// Reads the regular file fd of size bytes as readMemory would read its
// bytes, which are mapped into memory (or read, where they cannot be).
read_result_t readMapped(MemoryImage& image, int fd, uint64_t size, const read_options_t& options,
                         read_result_t (*readMemory)(MemoryImage&, const void*, size_t, const read_options_t&));

// How the record formats place records for options.
assembly_t assemblyOf(const read_options_t& options);

// What reading reports for what a record format's reader found, as options
// asked: bytes given again are a warning only when no policy was chosen.
read_result_t recordsResult(fullread_t read, const read_options_t& options);

// The readers of each format (formats.cpp and a file for each newer format).
read_result_t readIntelHexMemory(MemoryImage& image, const void* data, size_t size, const read_options_t& options);
read_result_t readIntelHexFile(MemoryImage& image, int fd, uint64_t size, const read_options_t& options);
size_t locateIntelHex(TextSource& source, uint32_t address, const read_options_t& options);
read_result_t readSrecordMemory(MemoryImage& image, const void* data, size_t size, const read_options_t& options);
read_result_t readSrecordFile(MemoryImage& image, int fd, uint64_t size, const read_options_t& options);
size_t locateSrecords(TextSource& source, uint32_t address, const read_options_t& options);
read_result_t readElfMemory(MemoryImage& image, const void* data, size_t size, const read_options_t& options);
read_result_t readElfFile(MemoryImage& image, int fd, uint64_t size, const read_options_t& options);
read_result_t readBinaryMemory(MemoryImage& image, const void* data, size_t size, const read_options_t& options);
read_result_t readBinaryFile(MemoryImage& image, int fd, uint64_t size, const read_options_t& options);
read_result_t readUf2Memory(MemoryImage& image, const void* data, size_t size, const read_options_t& options);
read_result_t readUf2File(MemoryImage& image, int fd, uint64_t size, const read_options_t& options);
read_result_t readTiTxtMemory(MemoryImage& image, const void* data, size_t size, const read_options_t& options);
read_result_t readTiTxtFile(MemoryImage& image, int fd, uint64_t size, const read_options_t& options);
size_t locateTiTxt(TextSource& source, uint32_t address, const read_options_t& options);
read_result_t readVerilogMemory(MemoryImage& image, const void* data, size_t size, const read_options_t& options);
read_result_t readVerilogFile(MemoryImage& image, int fd, uint64_t size, const read_options_t& options);
size_t locateVerilog(TextSource& source, uint32_t address, const read_options_t& options);
read_result_t readMifMemory(MemoryImage& image, const void* data, size_t size, const read_options_t& options);
read_result_t readMifFile(MemoryImage& image, int fd, uint64_t size, const read_options_t& options);
size_t locateMif(TextSource& source, uint32_t address, const read_options_t& options);
read_result_t readIntelHex16Memory(MemoryImage& image, const void* data, size_t size, const read_options_t& options);
read_result_t readIntelHex16File(MemoryImage& image, int fd, uint64_t size, const read_options_t& options);
size_t locateIntelHex16(TextSource& source, uint32_t address, const read_options_t& options);

// The writers of the newer formats, and their checks of the options.
bool writeUf2To(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result);
bool writeTiTxtTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result);
result_t checkWordOptions(const WriterInput& input, const write_options_t& options);
bool writeVerilogTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result);
bool writeMifTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result);
bool writeCoeTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result);
result_t checkCArrayOptions(const WriterInput& input, const write_options_t& options);
bool writeCArrayTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result);
result_t checkIntelHex16Options(const WriterInput& input, const write_options_t& options);
bool writeIntelHex16To(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result);

// How each format is told from an input's first bytes.
bool looksLikeIntelHex(const void* head, size_t size);
bool looksLikeSrecords(const void* head, size_t size);
bool looksLikeElf(const void* head, size_t size);
bool looksLikeUf2(const void* head, size_t size);
bool looksLikeTiTxt(const void* head, size_t size);
bool looksLikeVerilog(const void* head, size_t size);
bool looksLikeMif(const void* head, size_t size);

} // namespace hexblocks::detail

#endif // HEXBLOCKS_FORMAT_TABLE_H
