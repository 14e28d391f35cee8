// Intel (Altera) Memory Initialization Files: a header that gives the
// width of a word in bits and the depth in words, and the radixes of
// addresses and data; then "CONTENT BEGIN", entries "ADDRESS : WORD ...;"
// or "[FIRST..LAST] : WORD ...;", and "END;". Comments are "--" to the end
// of a line and "%...%". A word's first byte is its most significant.
#include "format_table.h"
#include "hex_format.h"
#include "output_buffer.h"
#include "record_assembler.h"
#include "text_lines.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

namespace hexblocks::detail {

namespace {

const uint64_t ADDRESS_SPACE = 0x100000000ull;

struct token_t {
    enum class kind_t { WORD, SYMBOL, END } kind;
    const char* text;
    size_t length;
    size_t line;

    bool is(const char* symbol) const
    {
        const size_t n = std::strlen(symbol);
        if (n != length)
            return false;
        for (size_t i = 0; i < n; ++i)
            if (std::toupper(static_cast<unsigned char>(text[i])) != symbol[i])
                return false;
        return true;
    }
    std::string str() const { return std::string(text, length); }
};

// Splits MIF text into words (letters, digits, '_' and '-' of a negative
// number) and symbols (= ; : [ ] ..), skipping white space and comments.
class MifLexer {
public:
    MifLexer(const char* text, size_t size) : p_(text), end_(text + size) {}

    // False, with why set, for a comment that is never closed.
    bool next(token_t& token, std::string& why)
    {
        for (;;) {
            while (p_ < end_ && (isBlank(*p_) || *p_ == '\n')) {
                if (*p_ == '\n')
                    ++line_;
                ++p_;
            }
            if (p_ + 1 < end_ && p_[0] == '-' && p_[1] == '-') {
                while (p_ < end_ && *p_ != '\n')
                    ++p_;
                continue;
            }
            if (p_ < end_ && *p_ == '%') {
                const size_t opened = line_;
                for (++p_; p_ < end_ && *p_ != '%'; ++p_)
                    if (*p_ == '\n')
                        ++line_;
                if (p_ == end_) {
                    why = "a % comment that is never closed";
                    line_ = opened;
                    token = token_t{token_t::kind_t::END, p_, 0, line_};
                    return false;
                }
                ++p_;
                continue;
            }
            break;
        }
        token = token_t{token_t::kind_t::END, p_, 0, line_};
        if (p_ == end_)
            return true;
        const char* start = p_;
        if (std::isalnum(static_cast<unsigned char>(*p_)) || *p_ == '_' || *p_ == '-') {
            ++p_;
            while (p_ < end_ && (std::isalnum(static_cast<unsigned char>(*p_)) || *p_ == '_'))
                ++p_;
            token = token_t{token_t::kind_t::WORD, start, static_cast<size_t>(p_ - start), line_};
            return true;
        }
        p_ += p_ + 1 < end_ && p_[0] == '.' && p_[1] == '.' ? 2 : 1;
        token = token_t{token_t::kind_t::SYMBOL, start, static_cast<size_t>(p_ - start), line_};
        return true;
    }

    // Where the next token starts, past white space (not comments), and its
    // line; for readers of the usual entry, which move on with skipTo().
    const char* position(size_t& line)
    {
        while (p_ < end_ && (isBlank(*p_) || *p_ == '\n')) {
            if (*p_ == '\n')
                ++line_;
            ++p_;
        }
        line = line_;
        return p_;
    }

    // Moves on to p, past lines line endings.
    void skipTo(const char* p, size_t lines)
    {
        p_ = p;
        line_ += lines;
    }

    const char* end() const { return end_; }

private:
    const char* p_;
    const char* end_;
    size_t line_ = 1;
};

// A number in a radix (2, 8, 10 or 16; -10 for signed decimal) that fits in
// bits bits: false when it does not, or is not a number.
bool parseNumber(const token_t& token, int radix, unsigned bits, uint64_t& value)
{
    const char* p = token.text;
    const char* end = p + token.length;
    const bool negative = radix == -10 && p < end && *p == '-';
    if (negative)
        ++p;
    const unsigned base = static_cast<unsigned>(radix < 0 ? -radix : radix);
    if (p == end)
        return false;
    value = 0;
    const uint64_t limit = bits >= 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
    for (; p < end; ++p) {
        const unsigned digit = HEX_DIGITS.value[static_cast<unsigned char>(*p)];
        if (digit >= base)
            return false;
        if (value > (limit - digit) / base)
            return false;
        value = value * base + digit;
    }
    if (negative) {
        if (bits < 64 && value > (uint64_t{1} << (bits - 1)))
            return false;
        value = (~value + 1) & limit;
    }
    return true;
}

// A radix keyword: HEX, DEC (signed), UNS, BIN or OCT; 0 for another word.
int radixOf(const token_t& token)
{
    return token.is("HEX") ? 16 : token.is("DEC") ? -10 : token.is("UNS") ? 10 : token.is("BIN") ? 2 : token.is("OCT") ? 8 : 0;
}

// Reads a MIF file for an assembler: each entry is a record, at its
// address in words times the bytes of a word.
template <typename Assembler> class MifInterpreter {
public:
    MifInterpreter(Assembler& assembler, fullread_t& read) : emitter_(assembler), read_(read) {}

    bool run(TextSource& source)
    {
        read_.sawEndRecord = true;
        readWholeText(source, read_, emitter_, gaveUp_, [this](const char* text, const char* end) {
            MifLexer lexer(text, static_cast<size_t>(end - text));
            lexer_ = &lexer;
            textSize_ = static_cast<size_t>(end - text);
            if (readHeader() && readContent())
                expectEnd();
            lexer_ = nullptr;
        });
        return !gaveUp_;
    }

    uint8_t startType() const { return 0; }
    uint32_t startValue() const { return 0; }
    std::string header() const { return std::string(); }

private:
    bool fail(const token_t& at, const std::string& reason)
    {
        failRead(read_, fullread_t::status_t::BAD_LINE, at.line, reason, at.str());
        return false;
    }

    bool next(token_t& token)
    {
        std::string why;
        if (lexer_->next(token, why))
            return true;
        failRead(read_, fullread_t::status_t::BAD_LINE, token.line, why, "");
        return false;
    }

    bool expect(const char* symbol, token_t& token, const std::string& where)
    {
        if (!next(token))
            return false;
        return token.is(symbol) || fail(token, "expected '" + std::string(symbol) + "' " + where + ", found " +
                                                   (token.kind == token_t::kind_t::END ? "the end of the file"
                                                                                       : "'" + token.str() + "'"));
    }

    // KEY = VALUE; statements up to CONTENT BEGIN.
    bool readHeader()
    {
        token_t key;
        for (;;) {
            if (!next(key))
                return false;
            if (key.is("CONTENT"))
                break;
            token_t equals, value, semicolon;
            if (key.kind != token_t::kind_t::WORD)
                return fail(key, key.kind == token_t::kind_t::END ? "the file ends before CONTENT BEGIN"
                                                                  : "expected a header keyword, found '" + key.str() + "'");
            if (!expect("=", equals, "after " + key.str()) || !next(value))
                return false;
            if (key.is("WIDTH") || key.is("DEPTH")) {
                uint64_t number = 0;
                if (!parseNumber(value, 10, 64, number) || number == 0)
                    return fail(value, key.str() + " is a positive decimal number");
                if (key.is("WIDTH") && number > 64)
                    return fail(value, "WIDTH " + value.str() + " is more than 64 bits");
                (key.is("WIDTH") ? width_ : depth_) = number;
            } else if (key.is("ADDRESS_RADIX") || key.is("DATA_RADIX")) {
                const int radix = radixOf(value);
                if (radix == 0)
                    return fail(value, "a radix is HEX, DEC, UNS, BIN or OCT");
                (key.is("ADDRESS_RADIX") ? addressRadix_ : dataRadix_) = radix;
            } else {
                return fail(key, "unknown header keyword " + key.str());
            }
            if (!expect(";", semicolon, "after " + key.str()))
                return false;
        }
        token_t begin;
        if (!expect("BEGIN", begin, "after CONTENT"))
            return false;
        if (width_ == 0)
            return fail(begin, "the header gives no WIDTH");
        wordBytes_ = static_cast<size_t>((width_ + 7) / 8);
        return true;
    }

    // Entries up to END.
    bool readContent()
    {
        const bool plain = addressRadix_ == 16 && dataRadix_ == 16 && width_ == 8 * wordBytes_ &&
                           (wordBytes_ == 1 || wordBytes_ == 2 || wordBytes_ == 4 || wordBytes_ == 8);
        for (;;) {
            if (plain) {
                const int fast = readUsualEntry();
                if (fast < 0)
                    return false;
                if (fast > 0)
                    continue;
            }
            token_t first;
            if (!next(first))
                return false;
            if (first.is("END"))
                return true;
            if (first.kind == token_t::kind_t::END)
                return fail(first, "the file ends before END");
            if (!readEntry(first))
                return false;
        }
    }

    bool address(const token_t& token, uint64_t& word)
    {
        if (!parseNumber(token, addressRadix_ == -10 ? 10 : addressRadix_, 64, word))
            return fail(token, "'" + token.str() + "' is not an address in the address radix");
        if (depth_ != 0 && word >= depth_)
            return fail(token, "address " + token.str() + " is not below the depth " + std::to_string(depth_));
        if (word >= ADDRESS_SPACE / wordBytes_)
            return fail(token, "address " + token.str() + " lies outside the 32-bit address space");
        return true;
    }

    bool readEntry(const token_t& first)
    {
        uint64_t from = 0, to = 0;
        token_t token;
        if (first.is("[")) {
            token_t low, dots, high, close;
            if (!next(low) || !address(low, from) || !expect("..", dots, "in an address range") || !next(high) ||
                !address(high, to) || !expect("]", close, "after an address range"))
                return false;
            if (to < from)
                return fail(high, "an address range that ends before it starts");
        } else {
            if (!address(first, from))
                return false;
            to = from;
        }
        if (!expect(":", token, "after the address"))
            return false;
        std::vector<uint64_t>& words = words_;
        words.clear();
        for (;;) {
            if (!next(token))
                return false;
            if (token.is(";"))
                break;
            uint64_t value = 0;
            if (token.kind != token_t::kind_t::WORD)
                return fail(token, "expected a word or ';', found " +
                                       (token.kind == token_t::kind_t::END ? std::string("the end of the file")
                                                                           : "'" + token.str() + "'"));
            if (!parseNumber(token, dataRadix_, static_cast<unsigned>(width_), value))
                return fail(token, "'" + token.str() + "' is not a word of " + std::to_string(width_) +
                                       " bits in the data radix");
            words.push_back(value);
        }
        if (words.empty())
            return fail(token, "an entry without words");
        // "A : D0 D1 D2" fills from A on; "[A..B] : D0 D1" repeats D0 D1 up to B.
        const uint64_t count = first.is("[") ? to - from + 1 : words.size();
        if (from + count > ADDRESS_SPACE / wordBytes_)
            return fail(first, "the entry's data runs past address 0xFFFFFFFF");
        if (depth_ != 0 && from + count > depth_)
            return fail(first, "the entry's words run past the depth " + std::to_string(depth_));
        if (first.is("[")) {
            // Address ranges could ask for gigabytes in a few characters:
            // they may give up to 16 MiB, or 256 bytes for each of the file.
            rangeBytes_ += count * wordBytes_;
            const uint64_t allowed = std::max<uint64_t>(16u << 20, 256 * uint64_t{textSize_});
            if (rangeBytes_ > allowed)
                return fail(first, "address ranges give more than " + std::to_string(allowed) +
                                       " bytes, more than a file of this size can mean");
        }
        return place(from, count, first.line);
    }

    // Reads the usual entry, as MIF writers write it: a hex address, " : "
    // (or ": "), 16 bytes of hex words separated by single spaces, ";" and
    // the line ending. 1 when it read one, 0 for anything else (which the
    // tokens then read), -1 when the assembler gave up.
    int readUsualEntry()
    {
        size_t line = 0;
        const char* p = lexer_->position(line);
        const char* end = lexer_->end();
        uint64_t word = 0;
        if (!usualAddress(p, end, word))
            return 0;
        const uint64_t words = 16 / wordBytes_;
        if (!fits(word, words))
            return 0;
        // The ascending assembler takes the entries that follow at the next
        // addresses into the same room; the others one entry at a time.
        const size_t room = std::is_same_v<Assembler, AscendingAssembler> ? LineEmitter<Assembler>::RUN_SIZE : 16;
        uint8_t* to = emitter_.room(word * wordBytes_, room);
        if (to == nullptr) {
            gaveUp_ = true;
            return -1;
        }
        if (!scanSixteenByteLine<true>(p, end, wordBytes_, to))
            return 0;
        size_t count = 16;
        size_t lines = 1;
        for (uint64_t next = word + words; count + 16 <= room; next += words) {
            const char* q = p;
            uint64_t at = 0;
            if (!usualAddress(q, end, at) || at != next || !fits(at, words) ||
                !scanSixteenByteLine<true>(q, end, wordBytes_, to + count))
                break;
            p = q;
            count += 16;
            ++lines;
        }
        if (!emitter_.commit(count, line + lines - 1)) {
            gaveUp_ = true;
            return -1;
        }
        lexer_->skipTo(p, lines);
        return 1;
    }

    // Reads, at p, the address and colon that start the usual entry: a hex
    // address (eight digits, as writers write it, read at once), " : " or
    // ": ". Moves p past them.
    HEXBLOCKS_ALWAYS_INLINE static bool usualAddress(const char*& p, const char* end, uint64_t& word)
    {
        if (end - p >= 11 && (p[8] == ' ' || p[8] == ':')) {
            const unsigned a = hexPair(p), b = hexPair(p + 2), c = hexPair(p + 4), d = hexPair(p + 6);
            if (((a | b | c | d) & 0x100) != 0)
                return false;
            word = static_cast<uint64_t>(a) << 24 | b << 16 | c << 8 | d;
            p += 8;
        } else {
            size_t digits = 0;
            if (!readHexNumber(p, end, word, digits) || digits > 8 || end - p < 3)
                return false;
        }
        if (*p == ' ')
            ++p;
        if (end - p < 2 || p[0] != ':' || p[1] != ' ')
            return false;
        p += 2;
        return true;
    }

    // Whether words words from word address word on lie within the depth
    // and the address space (else the tokens read the entry and say why).
    HEXBLOCKS_ALWAYS_INLINE bool fits(uint64_t word, uint64_t words) const
    {
        return (depth_ == 0 || word + words <= depth_) && (word + words) * wordBytes_ <= ADDRESS_SPACE;
    }

    // Hands count words from word address from on, repeating words_, in
    // records of at most a few KiB.
    bool place(uint64_t from, uint64_t count, size_t line)
    {
        size_t held = 0;
        uint64_t start = from * wordBytes_;
        for (uint64_t i = 0; i < count; ++i) {
            const uint64_t value = words_[static_cast<size_t>(i % words_.size())];
            for (size_t b = wordBytes_; b-- > 0;)
                bytes_[held++] = static_cast<uint8_t>(value >> (8 * b));
            if (held + wordBytes_ > sizeof bytes_ || i + 1 == count) {
                if (!emitter_.add(start, bytes_, held, line)) {
                    gaveUp_ = true;
                    return false;
                }
                start += held;
                held = 0;
            }
        }
        return true;
    }

    void expectEnd()
    {
        token_t token;
        if (!next(token))
            return;
        if (token.is(";") && !next(token))
            return;
        if (token.kind != token_t::kind_t::END)
            fail(token, "text after END");
    }

    LineEmitter<Assembler> emitter_;
    fullread_t& read_;
    MifLexer* lexer_ = nullptr;
    uint64_t width_ = 0;
    uint64_t depth_ = 0;
    int addressRadix_ = 16;
    int dataRadix_ = 16;
    size_t wordBytes_ = 1;
    size_t textSize_ = 0;
    uint64_t rangeBytes_ = 0; // bytes the address ranges gave so far
    std::vector<uint64_t> words_;
    uint8_t bytes_[4096];
    bool gaveUp_ = false;
};

// The depth of the memory that holds input: one past its highest word.
uint64_t depthOf(const WriterInput& input, size_t wordBytes)
{
    return isEmpty(input) ? 1 : highestOf(input) / wordBytes + 1;
}

// An entry's address in words, and the colon after it.
char* putEntryAddress(char* p, uint64_t word)
{
    p = putEightDigits(p, word);
    *p++ = ' ';
    *p++ = ':';
    return p;
}

// The longest entry: the address, sixteen bytes as " XX", ";" and the line
// ending.
const size_t ENTRY_MAX = 3 * 16 + 24;

// Writes entries of sixteen bytes from bytes at address; returns the bytes
// written.
size_t putWholeEntries(OutputBuffer& out, uint64_t address, const uint8_t* bytes, size_t entries, size_t wordBytes,
                       bool crlf)
{
    withWordBytes(wordBytes, [&](auto w) {
        putInBatches(out, entries, ENTRY_MAX, [&](char* p, size_t i) {
            p = putSpacedWordsOf<w>(putEntryAddress(p, (address + 16 * i) / w), bytes + 16 * i, 16 / w, true);
            *p++ = ';';
            return putLineEnd(p, crlf);
        });
    });
    return entries * 16;
}

bool writeMif(WriterInput& input, const write_options_t& options, OutputBuffer& out)
{
    const size_t wordBytes = options.wordWidth / 8;
    const size_t perLine = std::max<size_t>(1, 16 / wordBytes);
    const std::string nl = options.crlf ? "\r\n" : "\n";
    const std::string header = "-- written by hexblocks" + nl + "WIDTH = " + std::to_string(options.wordWidth) + ";" +
                               nl + "DEPTH = " + std::to_string(depthOf(input, wordBytes)) + ";" + nl +
                               "ADDRESS_RADIX = HEX;" + nl + "DATA_RADIX = HEX;" + nl + "CONTENT BEGIN" + nl;
    out.put(header.data(), header.size());
    size_t onLine = 0; // words on the entry so far
    const auto endEntry = [&](char* p) { *p++ = ';'; return putLineEnd(p, options.crlf); };
    const bool whole = forEachUnitRun(input, wordBytes, options.fill, [&](uint64_t address, const uint8_t* bytes,
                                                                          size_t size, bool continues) {
        if (!continues && onLine > 0) {
            out.commit(endEntry(out.reserve(4)));
            onLine = 0;
        }
        size_t at = 0;
        if (onLine == 0 && size >= 16)
            at = putWholeEntries(out, address, bytes, size / 16, wordBytes, options.crlf);
        for (; at < size;) {
            const size_t words = std::min((size - at) / wordBytes, perLine - onLine);
            char* p = out.reserve(ENTRY_MAX);
            if (onLine == 0)
                p = putEntryAddress(p, (address + at) / wordBytes);
            p = putSpacedWords(p, bytes + at, words, wordBytes, true);
            onLine += words;
            at += words * wordBytes;
            if (onLine == perLine) {
                p = endEntry(p);
                onLine = 0;
            }
            out.commit(p);
        }
    });
    if (!whole)
        return false;
    if (onLine > 0)
        out.commit(endEntry(out.reserve(4)));
    const std::string end = "END;" + nl;
    out.put(end.data(), end.size());
    return true;
}

} // namespace

bool looksLikeMif(const void* head, size_t size)
{
    const char* p = static_cast<const char*>(head);
    const char* end = p + size;
    while (p < end && (isBlank(*p) || *p == '\n'))
        ++p;
    if (end - p >= 2 && p[0] == '-' && p[1] == '-')
        return true;
    if (p < end && *p == '%')
        return true;
    std::string word;
    for (; p < end && word.size() < 16 && (std::isalpha(static_cast<unsigned char>(*p)) || *p == '_'); ++p)
        word += static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
    while (p < end && isBlank(*p))
        ++p;
    return (word == "DEPTH" || word == "WIDTH" || word == "ADDRESS_RADIX" || word == "DATA_RADIX") && p < end && *p == '=';
}

read_result_t readMifMemory(MemoryImage& image, const void* data, size_t size, const read_options_t& options)
{
    MemoryText text(data, size);
    return recordsResult(readRecords<MifInterpreter>(text, image, assemblyOf(options)), options);
}

read_result_t readMifFile(MemoryImage& image, int fd, uint64_t size, const read_options_t& options)
{
    return readMapped(image, fd, size, options, readMifMemory);
}

size_t locateMif(TextSource& source, uint32_t address, const read_options_t&)
{
    return locateRecord<MifInterpreter>(source, address);
}

bool writeMifTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result)
{
    result = writeThrough(writeMif, input, options, sink, 3 * dataSizeOf(input) + 32 * input.segmentCount() + 256);
    return result.ok();
}

} // namespace hexblocks::detail
