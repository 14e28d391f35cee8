// Text formatting shared by the hexblocks commands.
#ifndef HEXBLOCKS_TEXT_FORMAT_H
#define HEXBLOCKS_TEXT_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace hexblocks::cli {

// "0x08004000": eight upper-case hex digits (more when the value needs them).
std::string hexAddress(uint64_t address);

// "0x0800": four upper-case hex digits.
std::string hex16(uint16_t value);

// "0x0F", "0x29B1", "0xCBF43926": value in at least digits upper-case hex digits.
std::string hexNumber(uint32_t value, int digits);

// A byte count for people: "64 B", "4 KiB", "1.5 KiB", "12.3 MiB", "256 MiB".
// Whole multiples print without decimals; otherwise one decimal.
std::string humanSize(uint64_t bytes);

// text padded with spaces on the left (padLeft) or right (padRight) to
// width characters; longer text is returned as it is.
std::string padLeft(const std::string& text, size_t width);
std::string padRight(const std::string& text, size_t width);

// "4096 (4 KiB)" where a larger unit helps, else just the count.
std::string sizeText(uint64_t bytes);

// "16448 bytes (16.1 KiB)", "64 bytes", "1 byte".
std::string bytesText(uint64_t bytes);

// A start address of the given type (5 linear, 3 segment CS:IP):
// "0x08000131 (linear, type 05)" or "0000:28F5 = 0x000028F5 (segment CS:IP, type 03)".
std::string startAddressText(uint8_t type, uint32_t value);

// value as a JSON string literal, quotes included.
std::string jsonString(const std::string& value);

// text with the characters XML gives a meaning escaped (& < > ").
std::string xmlText(const std::string& text);

// text (one paragraph) broken into lines of at most width characters, at
// spaces, each line ended by a newline.
std::string wrapText(const std::string& text, size_t width);

// "0x08000000-0x0800BFFF": the first and the last address of [start, end).
std::string addressRange(uint64_t start, uint64_t end);

} // namespace hexblocks::cli

#endif
