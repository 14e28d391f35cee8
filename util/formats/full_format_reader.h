// The full-format reader: the full Intel HEX format (record types 00 to
// 05), records in any order, into a MemoryImage. readFile() and
// readMemory() for Intel HEX, and IntelHexFile::loadFullFormat, all funnel
// into it; it prints nothing and reports what happened in a fullread_t,
// from which each of them makes its own report.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_FULL_FORMAT_READER_H
#define HEXBLOCKS_FULL_FORMAT_READER_H

#include "formats.h"
#include "memory_image.h"
#include "record_assembler.h"
#include "record_scanner.h"

#include <cstdint>
#include <string>
#include <vector>

namespace hexblocks::detail {

// Reads source with the full format. On success image is replaced by what
// was read; otherwise it is left as it was. Records that keep jumping between
// regions make the reader start again with a slower method that takes any
// order, so a source that cannot be rewound (a pipe) is read into memory
// first.
fullread_t readFullFormat(TextSource& source, MemoryImage& image, const assembly_t& assembly = assembly_t());

// The line of the record that gives the byte at address, as reading keeps
// it; 0 when none does. source must be able to rewind.
size_t locateFullFormat(TextSource& source, uint32_t address);

} // namespace hexblocks::detail

#endif // HEXBLOCKS_FULL_FORMAT_READER_H
