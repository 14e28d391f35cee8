#include "support/hex_text.h"

#include <cstdio>

namespace {

void appendByte(std::string& text, unsigned value)
{
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02X", value & 0xFF);
    text += digits;
}

} // namespace

std::string hexRecord(uint8_t type, uint16_t address, const std::vector<uint8_t>& data)
{
    std::string text = ":";
    unsigned sum = static_cast<unsigned>(data.size()) + (address >> 8) + (address & 0xFF) + type;
    appendByte(text, static_cast<unsigned>(data.size()));
    appendByte(text, address >> 8);
    appendByte(text, address & 0xFF);
    appendByte(text, type);
    for (uint8_t byte : data) {
        appendByte(text, byte);
        sum += byte;
    }
    appendByte(text, 0x100 - (sum & 0xFF));
    return text;
}

std::string dataRecord(uint16_t address, const std::vector<uint8_t>& data)
{
    return hexRecord(0x00, address, data);
}

std::string srecordLine(unsigned type, unsigned addressSize, uint32_t address, const std::vector<uint8_t>& data)
{
    std::string text = "S" + std::to_string(type);
    const unsigned count = addressSize + static_cast<unsigned>(data.size()) + 1;
    unsigned sum = count;
    appendByte(text, count);
    for (unsigned i = addressSize; i-- > 0;) {
        appendByte(text, (address >> (8 * i)) & 0xFF);
        sum += (address >> (8 * i)) & 0xFF;
    }
    for (uint8_t byte : data) {
        appendByte(text, byte);
        sum += byte;
    }
    appendByte(text, ~sum & 0xFF);
    return text;
}

std::string linearBaseRecord(uint16_t linearBase)
{
    return hexRecord(0x04, 0, {static_cast<uint8_t>(linearBase >> 8), static_cast<uint8_t>(linearBase)});
}

std::vector<uint8_t> countingBytes(size_t n, uint8_t first)
{
    std::vector<uint8_t> bytes(n);
    for (size_t i = 0; i < n; ++i)
        bytes[i] = static_cast<uint8_t>(first + i);
    return bytes;
}

std::vector<uint8_t> concat(std::vector<uint8_t> a, const std::vector<uint8_t>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

std::string joinLines(const std::vector<std::string>& lines, const std::string& ending)
{
    std::string text;
    for (const std::string& line : lines)
        text += line + ending;
    return text;
}

std::vector<std::string> splitLines(const std::string& text, const std::string& ending)
{
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t next = text.find(ending, at);
        if (next == std::string::npos) {
            lines.push_back(text.substr(at));
            break;
        }
        lines.push_back(text.substr(at, next - at));
        at = next + ending.size();
    }
    return lines;
}
