#include "hex_format.h"

#include <cstdio>

namespace hexblocks::detail {

std::string hexByte(unsigned value)
{
    static const char DIGITS[] = "0123456789ABCDEF";
    return std::string{DIGITS[value >> 4 & 0xF], DIGITS[value & 0xF]};
}

std::string hexAddress(uint64_t value)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%08llX", static_cast<unsigned long long>(value));
    return text;
}

} // namespace hexblocks::detail
