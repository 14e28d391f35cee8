// The exact reader: IntelHexFile's record parser, file reader and block
// assembly (their definitions are in exact_reader.cpp), and the pieces of it
// that the other loaders share: one-block placement and the diagnostics.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_EXACT_READER_H
#define HEXBLOCKS_EXACT_READER_H

#include "intelhex.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hexblocks::detail {

// Copies length bytes into buffer starting at position, which may lie before
// the buffer; whatever would fall outside the buffer is left out.
void copyClipped(const uint8_t* bytes, size_t length, long long position, std::vector<uint8_t>& buffer);

// Diagnostics of both loaders, each a line on its stream, flushed.
void printOpenFailure(const char* fName);
void printCorruptLine(const std::string& line);
void printUnsupportedType(const std::string& line, unsigned type);

} // namespace hexblocks::detail

#endif // HEXBLOCKS_EXACT_READER_H
