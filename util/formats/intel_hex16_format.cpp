// Intel HEX addressed in 16-bit words (INHX16), as some Microchip and TI
// tools (and srec_cat) write it: the records of Intel HEX, but a record's
// count is in words, its address, the extended addresses and the start
// address are word addresses, and each word of a record is four hex digits,
// most significant first, of a word whose low byte is at the lower byte
// address (word W is bytes 2W and 2W+1). So the text gives each pair of
// bytes in the reverse of memory order, the values of address records
// included (an extended address of 1 is "0100").
#include "format_table.h"
#include "hex_format.h"
#include "output_buffer.h"
#include "record_assembler.h"
#include "text_lines.h"

#include <cstring>
#include <string>
#include <vector>

namespace hexblocks::detail {

namespace {

const uint64_t ADDRESS_SPACE = 0x100000000ull;

// Copies size bytes (an even number) from from to to, the two bytes of each
// pair swapped: eight bytes at a time.
HEXBLOCKS_ALWAYS_INLINE void swapPairs(const uint8_t* from, uint8_t* to, size_t size)
{
    size_t i = 0;
#ifdef __SSE2__
    if (size == 16) { // the usual record, without the loops' tests
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_or_si128(_mm_slli_epi16(x, 8), _mm_srli_epi16(x, 8)));
        return;
    }
    for (; i + 16 <= size; i += 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i), _mm_or_si128(_mm_slli_epi16(x, 8), _mm_srli_epi16(x, 8)));
    }
#endif
    for (; i + 8 <= size; i += 8) {
        uint64_t v;
        std::memcpy(&v, from + i, 8);
        v = (v & 0x00FF00FF00FF00FFull) << 8 | (v >> 8 & 0x00FF00FF00FF00FFull);
        std::memcpy(to + i, &v, 8);
    }
    for (; i < size; i += 2) {
        to[i] = from[i + 1];
        to[i + 1] = from[i];
    }
}

// The first three characters at p, of at least four, as one number.
HEXBLOCKS_ALWAYS_INLINE uint32_t firstThree(const char* p)
{
    const unsigned char first[4] = {0xFF, 0xFF, 0xFF, 0x00};
    uint32_t value, mask;
    std::memcpy(&value, p, 4);
    std::memcpy(&mask, first, 4);
    return value & mask;
}

// Reads INHX16 for an assembler: each data record is a record at twice its
// word address.
template <typename Assembler> class IntelHex16Interpreter {
public:
    IntelHex16Interpreter(Assembler& assembler, fullread_t& read) : emitter_(assembler), read_(read) {}

    bool run(TextSource& source)
    {
        readWholeText(source, read_, emitter_, gaveUp_, [this](const char* p, const char* end) { readLines(p, end); });
        return !gaveUp_;
    }

    uint8_t startType() const { return startType_; }
    uint32_t startValue() const { return startValue_; }
    std::string header() const { return std::string(); }

private:
    // Reads the lines of the text: data records with their line endings a
    // run at a time, any other line by takeLine().
    void readLines(const char* p, const char* end)
    {
        for (size_t line = 1; p < end; ++line) {
            const long taken = readDataRecords(p, end, line);
            if (taken < 0)
                return;
            if (taken > 0) {
                line += static_cast<size_t>(taken) - 1;
                continue;
            }
            size_t length = 0;
            const char* start = p;
            p = lineAt(p, end, length);
            if (!takeLine(line, start, length))
                return;
        }
    }

    // Reads, at p, data records that are right, with the count and the
    // line ending (LF or CR LF) of the first: the usual file. Returns how
    // many it read (p is then past them): 0 when the line at p is anything
    // else (which takeLine() reads, and says what is wrong), -1 when the
    // assembler gave up.
    long readDataRecords(const char*& p, const char* end, size_t line)
    {
        if (end - p < 12 || p[0] != ':')
            return 0;
        const unsigned words = hexPair(p + 1);
        if (words == 0 || words > 0xFF)
            return 0;
        const size_t length = 11 + 4 * words;
        if (static_cast<size_t>(end - p) <= length)
            return 0;
        // Eight words, the usual count, with the sizes known to the compiler.
        return words == 8 ? readLikeRecords<16>(p, end, line, length, 16)
                          : readLikeRecords<0>(p, end, line, length, 2 * words);
    }

    // The loop of readDataRecords(), which looks only at what may differ
    // from line to line; BYTES is bytes when not 0.
    template <size_t BYTES>
    HEXBLOCKS_ALWAYS_INLINE long readLikeRecords(const char*& p, const char* end, size_t line, size_t length,
                                                 size_t bytes)
    {
        if (BYTES != 0) {
            bytes = BYTES;
            length = 11 + 2 * BYTES;
        }
        const char ending = p[length];
        const size_t lineLength = ending == '\r' ? length + 2 : length + 1;
        // ':' and the count, as one number.
        const uint32_t head = firstThree(p);
        long taken = 0;
        for (; static_cast<size_t>(end - p) >= lineLength; p += lineLength, ++taken) {
            if (firstThree(p) != head || p[lineLength - 1] != '\n' || p[length] != ending)
                break;
            uint8_t sum = 0;
            if (!decodeHex(p + 1, 5 + bytes, static_cast<size_t>(end - p) - 1, record_, sum) || sum != 0 ||
                record_[3] != 0)
                break;
            const uint64_t address = 2 * (upper_ + (static_cast<unsigned>(record_[1]) << 8 | record_[2]));
            if (address + bytes > ADDRESS_SPACE)
                break;
            uint8_t* to = emitter_.room(address, bytes);
            if (to == nullptr || (swapPairs(record_ + 4, to, bytes), !emitter_.commit(bytes, line + taken))) {
                gaveUp_ = true;
                return -1;
            }
        }
        return taken;
    }

    bool fail(size_t line, const std::string& reason, const char* p, size_t length)
    {
        return failLine(read_, line, reason, p, length);
    }

    bool takeLine(size_t line, const char* p, size_t length)
    {
        const char* end = p + length;
        while (p < end && isBlank(*p))
            ++p;
        if (p == end)
            return true;
        const size_t textLength = static_cast<size_t>(end - p);
        if (*p != ':')
            return fail(line, "a record starts with ':'", p, textLength);
        const size_t digits = textLength - 1;
        if (digits % 2 != 0 || digits < 10 || digits / 2 > 5 + 2 * 255)
            return fail(line, "a record is ':' and pairs of hex digits: count, address, type, data, checksum", p,
                        textLength);
        // Decoded as the Intel HEX reader decodes its records.
        uint8_t sum = 0;
        if (!decodeHex(p + 1, digits / 2, textLength - 1, record_, sum))
            return fail(line, "character that is not a hex digit", p, textLength);
        const size_t words = record_[0];
        if (digits / 2 != 5 + 2 * words)
            return fail(line, "word count " + std::to_string(words) + " does not match the length of the line", p,
                        textLength);
        if (sum != 0) {
            failRead(read_, fullread_t::status_t::BAD_LINE, line, "checksum error", excerpt(p, textLength));
            read_.badChecksum = true;
            return false;
        }
        return takeRecord(line, record_[3], static_cast<uint32_t>(record_[1] << 8 | record_[2]), record_ + 4, words,
                          p, textLength);
    }

    bool takeRecord(size_t line, uint8_t type, uint32_t offset, const uint8_t* data, size_t words, const char* p,
                    size_t textLength)
    {
        switch (type) {
        case 0: {
            if (words == 0)
                return true;
            const uint64_t address = 2 * (upper_ + offset);
            if (address + 2 * words > ADDRESS_SPACE)
                return fail(line, "the record's data runs past address 0xFFFFFFFF", p, textLength);
            for (size_t i = 0; i < words; ++i) {
                bytes_[2 * i] = data[2 * i + 1];
                bytes_[2 * i + 1] = data[2 * i];
            }
            if (emitter_.add(address, bytes_, 2 * words, line))
                return true;
            gaveUp_ = true;
            return false;
        }
        case 1:
            read_.sawEndRecord = true;
            return false;
        case 2:
        case 4:
            if (words != 1)
                return fail(line, "an extended address record holds one word", p, textLength);
            upper_ = static_cast<uint64_t>(data[1] << 8 | data[0]) << (type == 4 ? 16 : 4);
            return true;
        case 3:
        case 5:
            if (words != 2)
                return fail(line, "a start address record holds two words", p, textLength);
            if (startType_ == 0) {
                // A linear start address is a word address; CS:IP is kept as it is.
                const uint32_t value = static_cast<uint32_t>(data[1]) << 24 | static_cast<uint32_t>(data[0]) << 16 |
                                       static_cast<uint32_t>(data[3]) << 8 | data[2];
                if (type == 5 && value > 0x7FFFFFFF)
                    return fail(line, "the start address lies outside the 32-bit address space", p, textLength);
                startType_ = type;
                startValue_ = type == 5 ? value * 2 : value;
            }
            return true;
        default:
            failRead(read_, fullread_t::status_t::UNSUPPORTED_TYPE, line, "", excerpt(p, textLength));
            read_.type = type;
            return false;
        }
    }

    LineEmitter<Assembler> emitter_;
    fullread_t& read_;
    uint8_t record_[5 + 2 * 255 + HEX_DECODE_SLACK];
    uint8_t bytes_[2 * 255];
    uint64_t upper_ = 0; // the word address the last extended address record gave
    uint8_t startType_ = 0;
    uint32_t startValue_ = 0;
    bool gaveUp_ = false;
};

// A record of length bytes of data as they are to appear in the text.
char* putRecord(char* p, uint8_t type, uint16_t offset, const uint8_t* data, size_t length, bool crlf)
{
    return putHexRecordCounted(p, static_cast<uint8_t>(length / 2), type, offset, data, length, crlf);
}

bool writeIntelHex16(WriterInput& input, const write_options_t& options, OutputBuffer& out)
{
    const size_t lineMax = 1 + 2 * (5 + 510) + 2;
    uint64_t upper = 0;
    uint8_t words[510];
    const bool whole = forEachUnitRun(input, 2, options.fill, [&](uint64_t address, const uint8_t* bytes, size_t size, bool) {
        for (size_t at = 0; at < size;) {
            const uint64_t word = (address + at) / 2;
            if (word >> 16 != upper) {
                upper = word >> 16;
                const uint8_t value[2] = {static_cast<uint8_t>(upper), static_cast<uint8_t>(upper >> 8)};
                out.commit(putRecord(out.reserve(lineMax), 0x04, 0, value, 2, options.crlf));
            }
            // Up to the record size, and never across a 64 Ki-word boundary.
            const uint64_t boundary = ((word | 0xFFFF) + 1) * 2;
            const size_t whole = static_cast<size_t>(std::min<uint64_t>(size - at, boundary - (address + at)) / 16);
            if (options.recordSize == 16 && whole > 0) {
                putSixteenByteRecords<8, true>(out, static_cast<uint16_t>(word), bytes + at, whole, options.crlf);
                at += 16 * whole;
                continue;
            }
            const size_t length = static_cast<size_t>(
                std::min<uint64_t>({options.recordSize, size - at, boundary - (address + at)}));
            swapPairs(bytes + at, words, length);
            out.commit(putRecord(out.reserve(lineMax), 0x00, static_cast<uint16_t>(word), words, length, options.crlf));
            at += length;
        }
    });
    if (!whole)
        return false;
    if (input.hasStartAddress()) {
        const start_address_t start = input.startAddress();
        const uint32_t v = start.type == 5 ? start.value / 2 : start.value;
        const uint8_t value[4] = {static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 24), static_cast<uint8_t>(v),
                                  static_cast<uint8_t>(v >> 8)};
        out.commit(putRecord(out.reserve(lineMax), start.type, 0, value, 4, options.crlf));
    }
    out.commit(putRecord(out.reserve(lineMax), 0x01, 0, nullptr, 0, options.crlf));
    return true;
}

} // namespace

read_result_t readIntelHex16Memory(MemoryImage& image, const void* data, size_t size, const read_options_t& options)
{
    MemoryText text(data, size);
    return recordsResult(readRecords<IntelHex16Interpreter>(text, image, assemblyOf(options)), options);
}

read_result_t readIntelHex16File(MemoryImage& image, int fd, uint64_t size, const read_options_t& options)
{
    return readMapped(image, fd, size, options, readIntelHex16Memory);
}

size_t locateIntelHex16(TextSource& source, uint32_t address, const read_options_t&)
{
    return locateRecord<IntelHex16Interpreter>(source, address);
}

result_t checkIntelHex16Options(const WriterInput& input, const write_options_t& options)
{
    if (input.hasStartAddress() && input.startAddress().type == 5 && input.startAddress().value % 2 != 0)
        return failure(status_t::BAD_ARGUMENT, "INHX16 holds the start address in words, and " +
                                                   hexAddress(input.startAddress().value) + " is odd");
    if (options.recordSize < 2 || options.recordSize > 254 || options.recordSize % 2 != 0)
        return failure(status_t::BAD_ARGUMENT, "record size " + std::to_string(options.recordSize) +
                                                   " does not fit INHX16: an even number of bytes, 2 to 254");
    return result_t();
}

bool writeIntelHex16To(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result)
{
    result = writeThrough(writeIntelHex16, input, options, sink, outputBound(input, options) + dataSizeOf(input) / 4);
    return result.ok();
}

} // namespace hexblocks::detail
