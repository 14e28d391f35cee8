// Text formatting shared by the hexblocks commands.
#ifndef HEXBLOCKS_TEXT_FORMAT_H
#define HEXBLOCKS_TEXT_FORMAT_H

#include <cstdint>
#include <string>

// "0x08004000": eight upper-case hex digits (more when the value needs them).
std::string hexAddress(uint64_t address);

// "0x0800": four upper-case hex digits.
std::string hex16(uint16_t value);

// A byte count for people: "64 B", "4 KiB", "1.5 KiB", "12.3 MiB", "256 MiB".
// Whole multiples print without decimals; otherwise one decimal.
std::string humanSize(uint64_t bytes);

// value as a JSON string literal, quotes included.
std::string jsonString(const std::string& value);

#endif
