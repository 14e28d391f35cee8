// The exact reader: IntelHexFile's record parser, file reader and block
// assembly (their definitions are in exact_reader.cpp), and the pieces of it
// that the other loaders share: one-block placement and the diagnostics.
//
// Internal to the library: not installed.
#ifndef INTELHEX_EXACT_READER_H
#define INTELHEX_EXACT_READER_H

#include "intelhex.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace intelhex_internal {

// Copies length bytes into buffer starting at position, which may lie before
// the buffer; whatever would fall outside the buffer is left out.
void copyClipped(const uint8_t* bytes, size_t length, long long position, std::vector<uint8_t>& buffer);

// Two upper-case hex digits.
std::string hexByte(unsigned value);

// An address in messages: "0x" and at least eight upper-case hex digits
// ("0x100000000" for a value past 32 bits).
std::string hexAddress(uint64_t value);

// Diagnostics of both loaders, each a line on its stream, flushed.
void printOpenFailure(const char* fName);
void printCorruptLine(const std::string& line);
void printUnsupportedType(const std::string& line, unsigned type);

} // namespace intelhex_internal

#endif // INTELHEX_EXACT_READER_H
