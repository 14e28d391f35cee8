// TI-TXT, the format of MSP430 programmers: "@ADDRESS" lines in hex, lines
// of hex bytes separated by spaces (16 a line when written), and "q" at the
// end.
#include "format_table.h"
#include "hex_format.h"
#include "output_buffer.h"
#include "record_assembler.h"
#include "text_lines.h"

#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace hexblocks::detail {

namespace {

const uint64_t ADDRESS_SPACE = 0x100000000ull;

// Reads TI-TXT for an assembler: each line of bytes is a record at the
// address where the one before it ended, or where the "@" line before it
// put it.
template <typename Assembler> class TiTxtInterpreter {
public:
    TiTxtInterpreter(Assembler& assembler, fullread_t& read) : emitter_(assembler), read_(read) {}

    bool run(TextSource& source)
    {
        if (!readWholeText(source, read_, emitter_, gaveUp_, [this](const char* p, const char* end) { readLines(p, end); }))
            return true;
        if (read_.status == fullread_t::status_t::OK && !ended_ && !gaveUp_)
            failRead(read_, fullread_t::status_t::BAD_LINE, 0, "the file ends without the end marker q", "");
        read_.sawEndRecord = true;
        return !gaveUp_;
    }

    uint8_t startType() const { return 0; }
    uint32_t startValue() const { return 0; }
    std::string header() const { return std::string(); }

private:
    bool fail(size_t line, const std::string& reason, const char* p, size_t length)
    {
        return failLine(read_, line, reason, p, length);
    }

    // Reads the lines of the text: the usual line of bytes at once, any
    // other line (or one that breaks the rules) by takeLine().
    void readLines(const char* p, const char* end)
    {
        const bool read = readLinesOf(
            p, end, 1, emitter_, address_, [this] { return addressed_ && !ended_; },
            [this](size_t line, const char* text, size_t length) { return takeLine(line, text, length); });
        gaveUp_ = gaveUp_ || !read;
    }

    bool takeLine(size_t line, const char* p, size_t length)
    {
        const char* end = p + length;
        while (p < end && isBlank(*p))
            ++p;
        if (p == end)
            return true;
        if (ended_)
            return fail(line, "text after the end marker q", p, static_cast<size_t>(end - p));
        if (*p == '@')
            return takeAddress(line, p, end);
        if ((*p == 'q' || *p == 'Q') && end - p == 1) {
            ended_ = true;
            return true;
        }
        return takeBytes(line, p, end);
    }

    bool takeAddress(size_t line, const char* p, const char* end)
    {
        const char* start = p++;
        uint64_t value = 0;
        size_t digits = 0;
        if (!readHexNumber(p, end, value, digits) || p != end)
            return fail(line, "an address line is '@' and hex digits", start, static_cast<size_t>(end - start));
        if (value >= ADDRESS_SPACE)
            return fail(line, "address " + hexAddress(value) + " lies outside the 32-bit address space", start,
                        static_cast<size_t>(end - start));
        address_ = value;
        addressed_ = true;
        return true;
    }

    bool takeBytes(size_t line, const char* p, const char* end)
    {
        const char* start = p;
        size_t count = 0;
        uint8_t* out = bytes_;
        while (p < end) {
            const unsigned high = HEX_DIGITS.value[static_cast<unsigned char>(p[0])];
            const unsigned low = end - p >= 2 ? HEX_DIGITS.value[static_cast<unsigned char>(p[1])] : 16u;
            if ((high | low) >= 16 || (end - p > 2 && !isBlank(p[2])))
                return fail(line, "a line of data is bytes of two hex digits separated by spaces", start,
                            static_cast<size_t>(end - start));
            if (count == sizeof bytes_)
                return fail(line, "more than " + std::to_string(sizeof bytes_) + " bytes on one line", start,
                            static_cast<size_t>(end - start));
            out[count++] = static_cast<uint8_t>(high << 4 | low);
            p += 2;
            while (p < end && isBlank(*p))
                ++p;
        }
        if (!addressed_)
            return fail(line, "data before the first address line", start, static_cast<size_t>(end - start));
        if (address_ + count > ADDRESS_SPACE)
            return fail(line, "the line's data runs past address 0xFFFFFFFF", start, static_cast<size_t>(end - start));
        return emit(line, count);
    }

    // Hands on the line's count bytes.
    bool emit(size_t line, size_t count)
    {
        if (!emitter_.add(address_, bytes_, count, line)) {
            gaveUp_ = true;
            return false;
        }
        address_ += count;
        return true;
    }

    LineEmitter<Assembler> emitter_;
    fullread_t& read_;
    uint8_t bytes_[4096];
    uint64_t address_ = 0;
    bool addressed_ = false;
    bool ended_ = false;
    bool gaveUp_ = false;
};

const size_t BYTES_PER_LINE = 16;

// "@ADDRESS" with at least four digits, as MSP430 tools write it.
char* putAddressLine(char* p, uint64_t address, bool crlf)
{
    *p++ = '@';
    p += std::snprintf(p, 16, "%04llX", static_cast<unsigned long long>(address));
    return putLineEnd(p, crlf);
}

bool writeTiTxt(WriterInput& input, const write_options_t& options, OutputBuffer& out)
{
    const size_t lineMax = 3 * BYTES_PER_LINE + 3;
    for (size_t s = 0; s < input.segmentCount(); ++s) {
        const uint64_t start = input.segmentAddress(s);
        out.commit(putAddressLine(out.reserve(32), start, options.crlf));
        // Pieces hold whole lines: lines are counted from the segment's start.
        const size_t pieceMax = PIECE / BYTES_PER_LINE * BYTES_PER_LINE;
        const bool whole = forEachPiece(input, s, pieceMax, 1, [&](uint64_t, const uint8_t* bytes, size_t piece) {
            for (size_t done = 0; done < piece; done += BYTES_PER_LINE) {
                const size_t length = std::min(BYTES_PER_LINE, piece - done);
                out.commit(putLineEnd(putSpacedWords(out.reserve(lineMax), bytes + done, length, 1, false), options.crlf));
            }
        });
        if (!whole)
            return false;
    }
    char* p = out.reserve(4);
    *p++ = 'q';
    out.commit(putLineEnd(p, options.crlf));
    return true;
}

} // namespace

bool looksLikeTiTxt(const void* head, size_t size)
{
    const char* p = static_cast<const char*>(head);
    const char* end = p + size;
    while (p < end && (isBlank(*p) || *p == '\n'))
        ++p;
    return end - p >= 2 && p[0] == '@' && HEX_DIGITS.value[static_cast<unsigned char>(p[1])] < 16;
}

read_result_t readTiTxtMemory(MemoryImage& image, const void* data, size_t size, const read_options_t& options)
{
    MemoryText text(data, size);
    return recordsResult(readRecords<TiTxtInterpreter>(text, image, assemblyOf(options)), options);
}

read_result_t readTiTxtFile(MemoryImage& image, int fd, uint64_t size, const read_options_t& options)
{
    return readMapped(image, fd, size, options, readTiTxtMemory);
}

size_t locateTiTxt(TextSource& source, uint32_t address, const read_options_t&)
{
    return locateRecord<TiTxtInterpreter>(source, address);
}

bool writeTiTxtTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result)
{
    result = writeThrough(writeTiTxt, input, options, sink, 3 * dataSizeOf(input) + 32 * input.segmentCount() + 16);
    return result.ok();
}

} // namespace hexblocks::detail
