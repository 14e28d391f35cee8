// Builds Intel HEX and S-record text for the tests.
#ifndef HEXBLOCKS_TESTS_HEX_TEXT_H
#define HEXBLOCKS_TESTS_HEX_TEXT_H

#include <cstdint>
#include <string>
#include <vector>

// One record line without line ending, upper-case digits, correct checksum.
std::string hexRecord(uint8_t type, uint16_t address, const std::vector<uint8_t>& data);

// A data record (type 00).
std::string dataRecord(uint16_t address, const std::vector<uint8_t>& data);

// An extended linear address record (type 04) for the given upper 16 bits.
std::string linearBaseRecord(uint16_t linearBase);

// One S-record line without line ending: type, an address of addressSize
// bytes, data and a correct checksum.
std::string srecordLine(unsigned type, unsigned addressSize, uint32_t address, const std::vector<uint8_t>& data);

// n bytes counting up from first.
std::vector<uint8_t> countingBytes(size_t n, uint8_t first = 0);

// a followed by b.
std::vector<uint8_t> concat(std::vector<uint8_t> a, const std::vector<uint8_t>& b);

// Joins lines, each followed by ending (default "\n").
std::string joinLines(const std::vector<std::string>& lines, const std::string& ending = "\n");

// The lines of text, each of which ends with ending, without it: the
// inverse of joinLines().
std::vector<std::string> splitLines(const std::string& text, const std::string& ending = "\n");

const char EOF_RECORD[] = ":00000001FF";

#endif
