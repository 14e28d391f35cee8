#include "text_format.h"

#include <cstdio>

namespace hexblocks::cli {

std::string hexAddress(uint64_t address)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%08llX", static_cast<unsigned long long>(address));
    return text;
}

std::string hex16(uint16_t value)
{
    char text[8];
    std::snprintf(text, sizeof text, "0x%04X", value);
    return text;
}

std::string hexNumber(uint32_t value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*X", digits, static_cast<unsigned>(value));
    return text;
}

std::string humanSize(uint64_t bytes)
{
    static const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    if (bytes < 1024)
        return std::to_string(bytes) + " B";
    double value = static_cast<double>(bytes);
    int unit = 0;
    uint64_t divisor = 1;
    while (value >= 1024 && unit < 4) {
        value /= 1024;
        divisor *= 1024;
        ++unit;
    }
    char text[32];
    if (bytes % divisor == 0)
        std::snprintf(text, sizeof text, "%llu %s", static_cast<unsigned long long>(bytes / divisor), units[unit]);
    else
        std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
    return text;
}

std::string jsonString(const std::string& value)
{
    std::string out = "\"";
    for (unsigned char c : value) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20) {
                char esc[8];
                std::snprintf(esc, sizeof esc, "\\u%04x", c);
                out += esc;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    return out + "\"";
}

std::string padLeft(const std::string& text, size_t width)
{
    return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

std::string padRight(const std::string& text, size_t width)
{
    return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

std::string sizeText(uint64_t bytes)
{
    std::string text = std::to_string(bytes);
    if (bytes >= 1024)
        text += " (" + humanSize(bytes) + ")";
    return text;
}

std::string bytesText(uint64_t bytes)
{
    std::string text = std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    if (bytes >= 1024)
        text += " (" + humanSize(bytes) + ")";
    return text;
}

std::string startAddressText(uint8_t type, uint32_t value)
{
    if (type == 5)
        return hexAddress(value) + " (linear, type 05)";
    char text[64];
    std::snprintf(text, sizeof text, "%04X:%04X = %s (segment CS:IP, type 03)", value >> 16, value & 0xFFFF,
                  hexAddress(static_cast<uint64_t>(value >> 16) * 16 + (value & 0xFFFF)).c_str());
    return text;
}

std::string xmlText(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default: out += c;
        }
    }
    return out;
}

std::string addressRange(uint64_t start, uint64_t end)
{
    return hexAddress(start) + "-" + hexAddress(end - 1);
}

std::string wrapText(const std::string& text, size_t width)
{
    std::string wrapped, line;
    std::string::size_type from = 0;
    while (from < text.size()) {
        std::string::size_type space = text.find(' ', from);
        if (space == std::string::npos)
            space = text.size();
        const std::string word = text.substr(from, space - from);
        if (!line.empty() && line.size() + 1 + word.size() > width) {
            wrapped += line + "\n";
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
        from = space + 1;
    }
    return line.empty() ? wrapped : wrapped + line + "\n";
}

} // namespace hexblocks::cli
