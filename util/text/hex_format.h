// Hex numbers as the library's messages write them.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_HEX_FORMAT_H
#define HEXBLOCKS_HEX_FORMAT_H

#include <cstdint>
#include <string>

namespace hexblocks::detail {

// Two upper-case hex digits.
std::string hexByte(unsigned value);

// An address in messages: "0x" and at least eight upper-case hex digits
// ("0x100000000" for a value past 32 bits).
std::string hexAddress(uint64_t value);

} // namespace hexblocks::detail

#endif // HEXBLOCKS_HEX_FORMAT_H
