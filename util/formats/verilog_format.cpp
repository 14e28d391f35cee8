// Verilog memory files, as $readmemh reads them (VMEM): hex words separated
// by white space and comments (// and /* */), and "@ADDRESS" in words. A
// word's first byte, at the lowest address, is its most significant; the
// width of a word is not in the file, so it is given (8 bits by default).
#include "format_table.h"
#include "hex_format.h"
#include "output_buffer.h"
#include "record_assembler.h"
#include "text_lines.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace hexblocks::detail {

namespace {

const uint64_t ADDRESS_SPACE = 0x100000000ull;

// Reads a Verilog memory file for an assembler: the words of each line are
// a record, at the address where the words before them ended or where an
// "@" put them.
template <typename Assembler> class VerilogInterpreter {
public:
    VerilogInterpreter(Assembler& assembler, fullread_t& read, const read_options_t& options)
        : emitter_(assembler), read_(read), wordWidth_(options.wordWidth), wordBytes_(options.wordWidth / 8)
    {
    }

    bool run(TextSource& source)
    {
        read_.sawEndRecord = true;
        if (wordWidth_ != 8 && wordWidth_ != 16 && wordWidth_ != 32 && wordWidth_ != 64) {
            failRead(read_, fullread_t::status_t::BAD_LINE, 0,
                     "word width " + std::to_string(wordWidth_) + " is not 8, 16, 32 or 64 bits", "");
            return true;
        }
        if (!readWholeText(source, read_, emitter_, gaveUp_, [this](const char* p, const char* end) { readLines(p, end); }))
            return true;
        if (read_.status == fullread_t::status_t::OK && inComment_ && !gaveUp_)
            failRead(read_, fullread_t::status_t::BAD_LINE, commentLine_, "a /* comment that is never closed", "");
        return !gaveUp_;
    }

    uint8_t startType() const { return 0; }
    uint32_t startValue() const { return 0; }
    std::string header() const { return std::string(); }

private:
    bool fail(size_t line, const std::string& reason, const char* p, const char* end)
    {
        return failLine(read_, line, reason, p, static_cast<size_t>(end - p));
    }

    // Reads the lines of the text: the usual line of words at once, any
    // other line (addresses, comments, or one that breaks the rules) by
    // takeLine().
    void readLines(const char* p, const char* end)
    {
        const bool read = readLinesOf(
            p, end, wordBytes_, emitter_, address_, [this] { return !inComment_; },
            [this](size_t line, const char* text, size_t length) { return takeLine(line, text, length); });
        gaveUp_ = gaveUp_ || !read;
    }

    bool takeLine(size_t line, const char* p, size_t length)
    {
        const char* end = p + length;
        count_ = 0;
        lineStart_ = address_;
        while (p < end) {
            if (inComment_) {
                while (p + 1 < end && !(p[0] == '*' && p[1] == '/'))
                    ++p;
                if (p + 1 >= end)
                    return flush(line);
                p += 2;
                inComment_ = false;
                continue;
            }
            if (isBlank(*p)) {
                ++p;
                continue;
            }
            if (*p == '/' && p + 1 < end && p[1] == '/')
                break;
            if (*p == '/' && p + 1 < end && p[1] == '*') {
                inComment_ = true;
                commentLine_ = line;
                p += 2;
                continue;
            }
            if (*p == '@') {
                if (!flush(line) || !takeAddress(line, p, end))
                    return false;
                continue;
            }
            if (!takeWord(line, p, end))
                return false;
        }
        return flush(line);
    }

    bool takeAddress(size_t line, const char*& p, const char* end)
    {
        const char* start = p++;
        uint64_t word = 0;
        size_t digits = 0;
        if (!readHexNumber(p, end, word, digits) || (p < end && !isBlank(*p) && *p != '/'))
            return fail(line, "an address is '@' and hex digits", start, end);
        if (word >= ADDRESS_SPACE / wordBytes_)
            return fail(line, "word address " + hexAddress(word) + " lies outside the 32-bit address space", start,
                        end);
        address_ = word * wordBytes_;
        lineStart_ = address_;
        return true;
    }

    bool takeWord(size_t line, const char*& p, const char* end)
    {
        const char* start = p;
        uint64_t value = 0;
        size_t digits = 0;
        for (; p < end && !isBlank(*p) && *p != '/' && *p != '@'; ++p) {
            if (*p == '_')
                continue;
            const unsigned digit = HEX_DIGITS.value[static_cast<unsigned char>(*p)];
            if (digit >= 16)
                return fail(line, std::string("'") + *p + "' is not a hex digit", start, end);
            if (value >> (8 * wordBytes_ - 4) != 0)
                return fail(line, "a word wider than " + std::to_string(8 * wordBytes_) + " bits", start, end);
            value = value << 4 | digit;
            ++digits;
        }
        if (digits == 0)
            return fail(line, "a word without hex digits", start, end);
        if (address_ + wordBytes_ > ADDRESS_SPACE)
            return fail(line, "the data runs past address 0xFFFFFFFF", start, end);
        if (count_ + wordBytes_ > sizeof bytes_ && !flush(line))
            return false;
        for (size_t i = wordBytes_; i-- > 0;)
            bytes_[count_++] = static_cast<uint8_t>(value >> (8 * i));
        address_ += wordBytes_;
        return true;
    }

    // Hands the words gathered since the line's start or its last address on.
    bool flush(size_t line)
    {
        if (count_ == 0)
            return true;
        const size_t count = count_;
        count_ = 0;
        if (!emitter_.add(lineStart_, bytes_, count, line)) {
            gaveUp_ = true;
            return false;
        }
        lineStart_ += count;
        return true;
    }

    LineEmitter<Assembler> emitter_;
    fullread_t& read_;
    const unsigned wordWidth_;
    const size_t wordBytes_;
    uint8_t bytes_[4096];
    size_t count_ = 0;
    uint64_t address_ = 0;   // of the next word
    uint64_t lineStart_ = 0; // of the first word gathered
    bool inComment_ = false;
    size_t commentLine_ = 0;
    bool gaveUp_ = false;
};

// The longest line: sixteen bytes as "XX " and the line ending.
const size_t LINE_MAX = 3 * 16 + 8;

// Writes lines of sixteen bytes from bytes; returns the bytes written.
size_t putWholeLines(OutputBuffer& out, const uint8_t* bytes, size_t lines, size_t wordBytes, bool crlf)
{
    withWordBytes(wordBytes, [&](auto w) {
        putInBatches(out, lines, LINE_MAX, [&](char* p, size_t i) {
            return putLineEnd(putSpacedWordsOf<w>(p, bytes + 16 * i, 16 / w, false), crlf);
        });
    });
    return lines * 16;
}

bool writeVerilog(WriterInput& input, const write_options_t& options, OutputBuffer& out)
{
    const size_t wordBytes = options.wordWidth / 8;
    const size_t perLine = std::max<size_t>(1, 16 / wordBytes); // 16 bytes a line
    size_t onLine = 0; // words on the line so far
    const bool whole = forEachUnitRun(input, wordBytes, options.fill, [&](uint64_t address, const uint8_t* bytes,
                                                                          size_t size, bool continues) {
        if (!continues) {
            char* p = out.reserve(32);
            if (onLine > 0)
                p = putLineEnd(p, options.crlf);
            *p++ = '@';
            out.commit(putLineEnd(putEightDigits(p, address / wordBytes), options.crlf));
            onLine = 0;
        }
        size_t at = 0;
        if (onLine == 0 && size >= 16)
            at = putWholeLines(out, bytes, size / 16, wordBytes, options.crlf);
        for (; at < size;) {
            const size_t words = std::min((size - at) / wordBytes, perLine - onLine);
            char* p = putSpacedWords(out.reserve(LINE_MAX), bytes + at, words, wordBytes, onLine > 0);
            onLine += words;
            at += words * wordBytes;
            if (onLine == perLine) {
                p = putLineEnd(p, options.crlf);
                onLine = 0;
            }
            out.commit(p);
        }
    });
    if (whole && onLine > 0)
        out.commit(putLineEnd(out.reserve(2), options.crlf));
    return whole;
}

} // namespace

bool looksLikeVerilog(const void* head, size_t size)
{
    const char* p = static_cast<const char*>(head);
    const char* end = p + size;
    while (p < end && (isBlank(*p) || *p == '\n'))
        ++p;
    return end - p >= 2 && ((p[0] == '@' && HEX_DIGITS.value[static_cast<unsigned char>(p[1])] < 16) ||
                            (p[0] == '/' && (p[1] == '/' || p[1] == '*')));
}

read_result_t readVerilogMemory(MemoryImage& image, const void* data, size_t size, const read_options_t& options)
{
    MemoryText text(data, size);
    return recordsResult(readRecords<VerilogInterpreter>(text, image, assemblyOf(options), options), options);
}

read_result_t readVerilogFile(MemoryImage& image, int fd, uint64_t size, const read_options_t& options)
{
    return readMapped(image, fd, size, options, readVerilogMemory);
}

size_t locateVerilog(TextSource& source, uint32_t address, const read_options_t& options)
{
    return locateRecord<VerilogInterpreter>(source, address, options);
}

// The word width of Verilog, MIF and COE output.
result_t checkWordOptions(const WriterInput&, const write_options_t& options)
{
    if (options.wordWidth != 8 && options.wordWidth != 16 && options.wordWidth != 32 && options.wordWidth != 64)
        return failure(status_t::BAD_ARGUMENT,
                       "word width " + std::to_string(options.wordWidth) + " is not 8, 16, 32 or 64 bits");
    return result_t();
}

bool writeVerilogTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result)
{
    result = writeThrough(writeVerilog, input, options, sink, 3 * dataSizeOf(input) + 32 * input.segmentCount() + 16);
    return result.ok();
}

} // namespace hexblocks::detail
