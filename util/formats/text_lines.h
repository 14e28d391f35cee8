// What the readers of the simpler text formats (TI-TXT, Verilog memory
// files, MIF, INHX16) share: the whole text in memory, its lines, hex
// digits, and numbers of any size checked against the 32-bit address space.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_TEXT_LINES_H
#define HEXBLOCKS_TEXT_LINES_H

#include "record_assembler.h"
#include "record_scanner.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace hexblocks::detail {

// Points text and size at the whole of source: its own memory, or storage,
// into which it is read. False, with read failed, when it cannot be read.
inline bool wholeTextOf(TextSource& source, const char*& text, size_t& size, std::vector<char>& storage,
                        fullread_t& read)
{
    text = source.wholeText(size);
    if (text != nullptr)
        return true;
    if (!readWhole(source, storage)) {
        failRead(read, fullread_t::status_t::READ_ERROR, 0, std::string("cannot read the file: ") + std::strerror(errno),
                 "");
        return false;
    }
    text = storage.data();
    size = storage.size();
    return true;
}

// Hands take(line, text, length) each line of a text, numbered from 1,
// without its line ending (LF or CR LF) and its trailing white space. Stops
// when take returns false.
template <typename Take> void forEachLine(const char* text, size_t size, Take&& take)
{
    const char* end = text + size;
    size_t line = 0;
    for (const char* p = text; p < end;) {
        const char* newline = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(end - p)));
        const char* stop = newline != nullptr ? newline : end;
        const char* last = stop;
        while (last > p && (last[-1] == '\r' || last[-1] == ' ' || last[-1] == '\t'))
            --last;
        if (!take(++line, p, static_cast<size_t>(last - p)))
            return;
        p = stop + 1;
    }
}

// The line's text for a message: at most 80 characters.
inline std::string excerpt(const char* text, size_t length)
{
    return std::string(text, length < 80 ? length : 80);
}

// Reads the hex digits at p (up to end) into value: false when there are
// none, or more than fit in 64 bits. p is left after them.
inline bool readHexNumber(const char*& p, const char* end, uint64_t& value, size_t& digits)
{
    value = 0;
    digits = 0;
    for (; p < end && HEX_DIGITS.value[static_cast<unsigned char>(*p)] < 16; ++p, ++digits) {
        if (value >> 60 != 0)
            return false;
        value = value << 4 | HEX_DIGITS.value[static_cast<unsigned char>(*p)];
    }
    return digits > 0;
}

} // namespace hexblocks::detail

#endif // HEXBLOCKS_TEXT_LINES_H
