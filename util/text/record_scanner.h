// The one place that splits text into records, Intel HEX or S-records: it
// finds and counts lines, applies a reader's white-space rules, decodes hex
// digits through a table, and checks byte counts and checksums. The fast
// reader, the full-format reader and the S-record reader use it; the exact
// reader keeps its own strtol-based parser, which is the reference the fast
// reader is tested against.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_RECORD_SCANNER_H
#define HEXBLOCKS_RECORD_SCANNER_H

#include "hex_decoder.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <streambuf>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace hexblocks::detail {

// Longest line the scanner takes, without its line ending.
const size_t MAX_LINE_LENGTH = 256 * 1024 - 1;

// Count, address (2), type, 255 data bytes, checksum; an S-record's count
// and up to 255 more bytes fit too.
const size_t MAX_RECORD_BYTES = 5 + 255;

// Where the text of a HEX file comes from. A source either holds the whole
// text in memory already (a caller's buffer) or hands it out in pieces.
class TextSource {
public:
    virtual ~TextSource() = default;

    // The whole text, when it is in memory; nullptr otherwise.
    virtual const char* wholeText(size_t& size) const
    {
        size = 0;
        return nullptr;
    }

    // Reads up to capacity bytes into buffer: the count, 0 at the end of the
    // text, -1 when reading fails.
    virtual ssize_t read(char* buffer, size_t capacity) = 0;

    // Whether rewind() can work.
    virtual bool canRewind() const = 0;

    // How many bytes are left to read, when that is known (a buffer, a
    // regular file); 0 otherwise. A hint for reserving room.
    virtual uint64_t sizeLeft() const { return 0; }

    // Starts the text again from its beginning; false when it cannot.
    virtual bool rewind() = 0;
};

// A caller's buffer.
class MemoryText : public TextSource {
public:
    MemoryText(const void* text, size_t size) : text_(static_cast<const char*>(text)), size_(size) {}
    const char* wholeText(size_t& size) const override;
    ssize_t read(char* buffer, size_t capacity) override;
    bool canRewind() const override { return true; }
    uint64_t sizeLeft() const override { return size_ - position_; }
    bool rewind() override;

private:
    const char* text_;
    size_t size_;
    size_t position_ = 0;
};

// A file descriptor, read from where it stands at construction. A file that
// cannot be rewound (a pipe) can be read only once.
class DescriptorText : public TextSource {
public:
    explicit DescriptorText(int fd);
    ssize_t read(char* buffer, size_t capacity) override;
    bool canRewind() const override { return start_ >= 0; }
    uint64_t sizeLeft() const override;
    bool rewind() override;

private:
    int fd_;
    off_t start_;
};

// A stream buffer (that of an opened std::ifstream), read from where it
// stands at construction.
class StreamBufferText : public TextSource {
public:
    explicit StreamBufferText(std::streambuf& buffer);
    ssize_t read(char* buffer, size_t capacity) override;
    bool canRewind() const override { return start_ != std::streampos(-1); }
    uint64_t sizeLeft() const override;
    bool rewind() override;

private:
    std::streambuf& buffer_;
    std::streampos start_;
};

// Reads what is left of source into text; false when reading fails.
bool readWhole(TextSource& source, std::vector<char>& text);

// How a reader wants lines treated.
enum class linerules_t {
    // The fast reader: a line is a record exactly as the exact reader takes
    // it without a word (no white space but one final carriage return); a
    // line that begins with ":00000001FF" ends the file. Every other line is
    // a bad line, with no reason given.
    STRICT,
    // The full-format reader: white space around a record is skipped, blank
    // lines are skipped, and any type-01 record ends the file. A bad line
    // comes with its reason and its text.
    FULL_FORMAT,
    // S-records, with the full-format reader's white-space rules. Types 7, 8
    // and 9 end the file after the handler has taken them.
    SRECORD
};

// A record with a correct shape and checksum.
struct scannedrecord_t {
    size_t line;         // 1-based line number
    const uint8_t* data; // the data bytes; valid until the next record
    const char* text;    // the record's text, without white space around it
    size_t textLength;
    uint16_t offset; // Intel HEX: the 16-bit load offset
    uint8_t type;    // Intel HEX: the record type; S-records: the digit after 'S'
    uint8_t length;  // number of data bytes
    uint32_t address = 0; // S-records: the address field
};

// Data records that follow one another without a gap, gathered by the
// scanner for a handler that takes them together: one with a member
// bool takeRun(const datarun_t&) beside its bool operator()(const
// scannedrecord_t&). Intel HEX: data records (type 00) with bytes, each
// within its 64 KiB (offset + length <= 0x10000), with no other record
// between them; address is the first one's 16-bit offset. S-records: S1 to
// S3 records with bytes; address is the first one's address. The scanner
// hands a run on before any other record, before the end of the text, and
// when its buffer is full, so a handler may get runs that continue each
// other. Such a handler gets data records only in runs.
struct datarun_t {
    uint32_t address;
    const uint8_t* data; // valid until the handler returns
    size_t length;
    size_t records;
    uint16_t lastOffset; // Intel HEX: the final record's offset and length
    uint8_t lastLength;
};

template <typename Handler, typename = void> struct takesRuns : std::false_type {};
template <typename Handler>
struct takesRuns<Handler, std::void_t<decltype(std::declval<Handler&>().takeRun(std::declval<const datarun_t&>()))>>
    : std::true_type {};

// Copies a record's data bytes: the most common length, 16, inline, without
// a call.
HEXBLOCKS_ALWAYS_INLINE void copyRecordData(uint8_t* to, const uint8_t* from, size_t length)
{
    if (length == 16)
        std::memcpy(to, from, 16);
    else
        std::memcpy(to, from, length);
}

// The width of an S-record's address field, by type; 0 for S4, which has no
// defined layout.
inline unsigned srecordAddressSize(unsigned type)
{
    static const unsigned SIZES[10] = {2, 2, 3, 4, 0, 2, 3, 4, 3, 2};
    return type < 10 ? SIZES[type] : 0;
}

// Why scanning ended.
enum class scanend_t {
    END_RECORD,   // the end-of-file record was reached
    END_OF_INPUT, // the text ended without one
    STOPPED,      // the record handler asked to stop
    BAD_LINE,     // a line broke the rules; see RecordScanner::badLine()
    READ_ERROR    // the source could not be read
};

// A line that broke the rules (FULL_FORMAT rules fill in reason and text).
struct badline_t {
    size_t line = 0;
    std::string reason;
    std::string text;          // the line without surrounding white space
    bool badChecksum = false;  // the line is a record in shape, with a wrong checksum
};

// What a record scanner keeps whatever its line rules: the line count, the
// bad line, the decoded record and the buffer for text read in pieces.
class RecordScannerBase {
public:
    const badline_t& badLine() const { return badLine_; }

    // Lines seen so far, including the one that ended the scan.
    size_t lineCount() const { return line_; }

protected:
    enum class lineaction_t { NEXT, END_RECORD, STOP, BAD };

    bool decodeDigits(const char* digits, size_t byteCount, uint8_t& sum);
    lineaction_t badLine(const char* reason, const char* text, size_t length);
    lineaction_t badLine(const std::string& reason, const char* text, size_t length);
    lineaction_t badChecksum(const char* text, size_t length);
    static scanend_t endOf(lineaction_t action);

    size_t line_ = 0;
    badline_t badLine_;
    uint8_t record_[MAX_RECORD_BYTES + HEX_DECODE_SLACK] = {}; // cleared: an S-record's address is read four bytes at a time
    const char* textEnd_ = nullptr;     // where the text in memory ends, for decodeHex()
    std::unique_ptr<char[]> buffer_; // for sources read in pieces
    size_t bufferSize_ = 0;

    // The run being gathered, for a handler that takes runs.
    static constexpr size_t RUN_CAPACITY = 4096;
    std::unique_ptr<uint8_t[]> run_;

    // The run being gathered: a local of the scan loop, so that it stays in
    // registers.
    struct runstate_t {
        size_t length = 0;
        uint64_t end = 0; // the address after the run's last byte
        uint32_t address = 0;
        uint32_t records = 0;
        uint32_t last = 0; // the final record's address and length
        uint8_t lastLength = 0;
    };
};

// Scans a source line by line with a reader's line rules and hands each
// record to a handler bool(const scannedrecord_t&), which returns false to
// stop.
template <linerules_t RULES> class RecordScanner : public RecordScannerBase {
public:
    template <typename OnRecord> scanend_t scan(TextSource& source, OnRecord&& onRecord);

private:
    template <typename OnRecord> lineaction_t takeLine(const char* text, size_t length, OnRecord& onRecord);
    template <typename OnRecord> lineaction_t takeSrecord(const char* text, size_t length, OnRecord& onRecord);
    template <typename OnRecord>
    lineaction_t takeDecoded(const char* text, size_t length, size_t byteCount, bool valid, uint8_t sum,
                             OnRecord& onRecord);
    template <typename OnRecord>
    lineaction_t takeDecodedSrecord(const char* text, size_t length, size_t byteCount, uint8_t sum,
                                    OnRecord& onRecord);
    template <typename OnRecord>
    const char* takeNextLine(const char* line, const char* end, lineaction_t& action, OnRecord& onRecord,
                             runstate_t& run);
    template <typename OnRecord>
    const char* takeUsualLine(const char* line, const char* end, lineaction_t& action, OnRecord& onRecord,
                              runstate_t& run);
    const char* takeRunLines(const char* line, const char* end, const char* shape, size_t length, size_t ending,
                             runstate_t& run);

    template <typename OnRecord> scanend_t scanMemory(const char* text, size_t size, OnRecord& onRecord);
    template <typename OnRecord> scanend_t scanPieces(TextSource& source, OnRecord& onRecord);
    template <typename OnRecord>
    bool addToRun(uint32_t address, const uint8_t* data, uint8_t length, OnRecord& onRecord, runstate_t& run);
    template <typename OnRecord> bool flushRun(OnRecord& onRecord, runstate_t& run);
};

// --- implementation of the templates -------------------------------------

inline bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

template <linerules_t RULES>
template <typename OnRecord>
scanend_t RecordScanner<RULES>::scan(TextSource& source, OnRecord&& onRecord)
{
    line_ = 0;
    badLine_ = badline_t();
    size_t size = 0;
    if (const char* text = source.wholeText(size))
        return scanMemory(text, size, onRecord);
    return scanPieces(source, onRecord);
}

template <linerules_t RULES>
template <typename OnRecord>
HEXBLOCKS_ALWAYS_INLINE bool RecordScanner<RULES>::addToRun(uint32_t address, const uint8_t* data, uint8_t length,
                                                           OnRecord& onRecord, runstate_t& run)
{
    if (run.length > 0 && address == run.end && run.length + length <= RUN_CAPACITY) {
        copyRecordData(run_.get() + run.length, data, length);
    } else {
        if (!flushRun(onRecord, run))
            return false;
        if (!run_)
            run_.reset(new uint8_t[RUN_CAPACITY]);
        std::memcpy(run_.get(), data, length);
        run.address = address;
        run.records = 0;
        run.end = address;
    }
    run.length += length;
    run.records += 1;
    run.last = address;
    run.lastLength = length;
    run.end += length;
    return true;
}

// Hands the run gathered so far, if any, to a handler that takes runs;
// false when the handler asks to stop.
template <linerules_t RULES>
template <typename OnRecord>
HEXBLOCKS_ALWAYS_INLINE bool RecordScanner<RULES>::flushRun(OnRecord& onRecord, runstate_t& run)
{
    if constexpr (takesRuns<std::remove_reference_t<OnRecord>>::value) {
        if (run.length == 0)
            return true;
        const datarun_t taken{run.address, run_.get(), run.length, run.records, static_cast<uint16_t>(run.last),
                              run.lastLength};
        run.length = 0;
        return onRecord.takeRun(taken);
    } else {
        (void)onRecord;
        (void)run;
        return true;
    }
}

inline scanend_t RecordScannerBase::endOf(lineaction_t action)
{
    switch (action) {
    case lineaction_t::END_RECORD:
        return scanend_t::END_RECORD;
    case lineaction_t::STOP:
        return scanend_t::STOPPED;
    default:
        return scanend_t::BAD_LINE;
    }
}

template <linerules_t RULES>
template <typename OnRecord>
HEXBLOCKS_ALWAYS_INLINE const char* RecordScanner<RULES>::takeNextLine(const char* line, const char* end,
                                                                      lineaction_t& action, OnRecord& onRecord,
                                                                      runstate_t& run)
{
    if (const char* next = takeUsualLine(line, end, action, onRecord, run))
        return next;
    const char* newline = static_cast<const char*>(std::memchr(line, '\n', static_cast<size_t>(end - line)));
    if (newline == nullptr)
        return nullptr;
    // A run goes before whatever this line holds.
    if (!flushRun(onRecord, run)) {
        action = lineaction_t::STOP;
        return newline + 1;
    }
    action = takeLine(line, static_cast<size_t>(newline - line), onRecord);
    return newline + 1;
}

template <linerules_t RULES>
template <typename OnRecord>
scanend_t RecordScanner<RULES>::scanMemory(const char* text, size_t size, OnRecord& onRecord)
{
    const char* const end = text + size;
    textEnd_ = end;
    runstate_t run;
    for (const char* line = text; line < end;) {
        lineaction_t action = lineaction_t::NEXT;
        const char* next = takeNextLine(line, end, action, onRecord, run);
        if (next == nullptr) {
            // The last line, with no newline after it.
            action = flushRun(onRecord, run) ? takeLine(line, static_cast<size_t>(end - line), onRecord)
                                             : lineaction_t::STOP;
            next = end;
        }
        if (action != lineaction_t::NEXT)
            return endOf(action);
        line = next;
    }
    return flushRun(onRecord, run) ? scanend_t::END_OF_INPUT : scanend_t::STOPPED;
}

template <linerules_t RULES>
template <typename OnRecord>
scanend_t RecordScanner<RULES>::scanPieces(TextSource& source, OnRecord& onRecord)
{
    // Large reads; a line cut at the end of a piece is moved to the front
    // and completed by the next read. A short text gets a buffer of its
    // size (and a byte, to see that it ends), which grows to a whole piece if
    // the text turns out longer.
    const size_t PIECE = MAX_LINE_LENGTH + 1;
    const uint64_t expected = source.sizeLeft();
    size_t capacity = expected > 0 && expected < PIECE ? static_cast<size_t>(expected) + 1 : PIECE;
    if (!buffer_ || bufferSize_ < capacity) {
        buffer_.reset(new char[capacity]); // not cleared: only what is read is looked at
        bufferSize_ = capacity;
    }
    capacity = bufferSize_;
    size_t held = 0;
    uint64_t taken = 0; // bytes read so far
    runstate_t run;
    for (;;) {
        if (capacity < PIECE && taken > expected) {
            std::unique_ptr<char[]> larger(new char[PIECE]);
            std::memcpy(larger.get(), buffer_.get(), held);
            buffer_ = std::move(larger);
            bufferSize_ = capacity = PIECE;
        }
        char* const buffer = buffer_.get();
        const ssize_t got = held < capacity ? source.read(buffer + held, capacity - held) : 0;
        if (got < 0)
            return scanend_t::READ_ERROR;
        taken += static_cast<uint64_t>(got);
        const char* const end = buffer + held + got;
        textEnd_ = end;
        const char* line = buffer;
        for (;;) {
            lineaction_t action = lineaction_t::NEXT;
            const char* next = takeNextLine(line, end, action, onRecord, run);
            if (next == nullptr)
                break;
            if (action != lineaction_t::NEXT)
                return endOf(action);
            line = next;
        }
        held = static_cast<size_t>(end - line);
        if (got == 0) {
            if (!flushRun(onRecord, run))
                return scanend_t::STOPPED;
            if (held == 0)
                return scanend_t::END_OF_INPUT;
            // The last line, with no newline after it (or too long).
            const lineaction_t action = takeLine(line, held, onRecord);
            return action == lineaction_t::NEXT ? scanend_t::END_OF_INPUT : endOf(action);
        }
        std::memmove(buffer, line, held);
    }
}

template <linerules_t RULES>
template <typename OnRecord>
typename RecordScanner<RULES>::lineaction_t RecordScanner<RULES>::takeLine(const char* text, size_t length, OnRecord& onRecord)
{
    ++line_;
    if (length > MAX_LINE_LENGTH)
        return badLine("line too long", text, 0);

    if constexpr (RULES == linerules_t::STRICT) {
        // As read: exact case, nothing before it, anything after it ignored.
        static const char EOF_RECORD[] = ":00000001FF";
        if (length >= sizeof EOF_RECORD - 1 && std::memcmp(text, EOF_RECORD, sizeof EOF_RECORD - 1) == 0)
            return lineaction_t::END_RECORD;
        if (length > 0 && text[length - 1] == '\r')
            --length;
        if (length < 11 || text[0] != ':' || length % 2 == 0)
            return lineaction_t::BAD;
    } else {
        while (length > 0 && isBlank(*text)) {
            ++text;
            --length;
        }
        while (length > 0 && isBlank(text[length - 1]))
            --length;
        if (length == 0)
            return lineaction_t::NEXT; // a blank line
        if constexpr (RULES == linerules_t::SRECORD)
            return takeSrecord(text, length, onRecord);
        if (text[0] != ':')
            return badLine("a record must start with ':'", text, length);
        if ((length - 1) % 2 != 0)
            return badLine("odd number of hex digits", text, length);
        if (length - 1 < 10)
            return badLine("record too short", text, length);
    }

    const size_t byteCount = (length - 1) / 2;
    uint8_t sum = 0;
    const bool valid = decodeDigits(text + 1, byteCount, sum);
    return takeDecoded(text, length, byteCount, valid, sum, onRecord);
}

// An Intel HEX record whose byteCount bytes are decoded into record_: its
// count and checksum are checked, and it is handed on.
template <linerules_t RULES>
template <typename OnRecord>
HEXBLOCKS_ALWAYS_INLINE typename RecordScanner<RULES>::lineaction_t RecordScanner<RULES>::takeDecoded(const char* text, size_t length, size_t byteCount, bool valid,
                                                       uint8_t sum, OnRecord& onRecord)
{
    const bool strict = RULES == linerules_t::STRICT;
    if (!valid)
        return strict ? lineaction_t::BAD : badLine("character that is not a hex digit", text, length);
    if (byteCount != static_cast<size_t>(record_[0]) + 5)
        return strict ? lineaction_t::BAD
                      : badLine("byte count " + std::to_string(record_[0]) + " does not match the length of the line",
                                text, length);
    if (sum != 0)
        return strict ? lineaction_t::BAD : badChecksum(text, length);

    const uint8_t type = record_[3];
    if (!strict && type == 0x01)
        return lineaction_t::END_RECORD;
    const scannedrecord_t record{line_, record_ + 4, text, length, static_cast<uint16_t>(record_[1] << 8 | record_[2]),
                                 type, record_[0]};
    return onRecord(record) ? lineaction_t::NEXT : lineaction_t::STOP;
}

// Most lines are a record exactly as long as its byte count says, followed
// by "\n" or "\r\n". Such a line is decoded at once, without looking for its
// end first, and taken as takeLine() would take it. Returns where the next
// line starts; nullptr, having done nothing, for any other line (and for one
// whose end is not before end), which then goes through takeLine(). The
// end-of-file records go through takeLine() too.
template <linerules_t RULES>
template <typename OnRecord>
HEXBLOCKS_ALWAYS_INLINE const char* RecordScanner<RULES>::takeUsualLine(const char* line, const char* end,
                                                                       lineaction_t& action, OnRecord& onRecord,
                                                                       runstate_t& run)
{
    const bool srecord = RULES == linerules_t::SRECORD;
    const size_t countAt = srecord ? 2 : 1;
    const size_t room = static_cast<size_t>(end - line);
    if (room < countAt + 2 || line[0] != (srecord ? 'S' : ':'))
        return nullptr;
    const unsigned high = HEX_DIGITS.value[static_cast<unsigned char>(line[countAt])];
    const unsigned low = HEX_DIGITS.value[static_cast<unsigned char>(line[countAt + 1])];
    if (((high | low) & 0x10) != 0)
        return nullptr;
    const size_t byteCount = (high << 4 | low) + (srecord ? 1 : 5);
    const size_t length = countAt + 2 * byteCount;
    if (room <= length)
        return nullptr;
    const char* next = line + length + 1;
    if (line[length] == '\r' && next < end && *next == '\n')
        ++next;
    else if (line[length] != '\n')
        return nullptr;
    // S-records: only data records (S1, S2, S3) are taken here.
    if (srecord && (line[1] < '1' || line[1] > '3'))
        return nullptr;
    uint8_t sum = 0;
    if (!decodeHex(line + countAt, byteCount, room - countAt, record_, sum))
        return nullptr;
    if (srecord) {
        // The usual S-record: data with room for its address and a right
        // checksum; any other goes through the general path.
        const unsigned type = static_cast<unsigned>(line[1] - '0');
        const unsigned addressSize = type + 1;
        if (sum != 0xFF || record_[0] < addressSize + 1)
            return nullptr;
        // The address: the first four bytes after the count, big-endian,
        // less the bytes past the address.
        const uint32_t address = (static_cast<uint32_t>(record_[1]) << 24 | static_cast<uint32_t>(record_[2]) << 16 |
                                  static_cast<uint32_t>(record_[3]) << 8 | record_[4]) >>
                                 (8 * (4 - addressSize));
        const uint8_t dataLength = static_cast<uint8_t>(record_[0] - addressSize - 1);
        if constexpr (takesRuns<std::remove_reference_t<OnRecord>>::value) {
            if (dataLength > 0 && static_cast<uint64_t>(address) + dataLength <= 0x100000000ull) {
                ++line_;
                if (!addToRun(address, record_ + 1 + addressSize, dataLength, onRecord, run)) {
                    action = lineaction_t::STOP;
                    return next;
                }
                return takeRunLines(next, end, line, length, static_cast<size_t>(next - line) - length, run);
            }
            if (!flushRun(onRecord, run)) {
                action = lineaction_t::STOP;
                return next;
            }
        }
        ++line_;
        scannedrecord_t record{line_, record_ + 1 + addressSize, line, length, 0, static_cast<uint8_t>(type),
                               dataLength};
        record.address = address;
        action = onRecord(record) ? lineaction_t::NEXT : lineaction_t::STOP;
        return next;
    }
    // A checksum error, or an end-of-file record: the general path says
    // which, and what it means under the rules.
    if (sum != 0 || record_[3] == 0x01)
        return nullptr;
    if constexpr (takesRuns<std::remove_reference_t<OnRecord>>::value) {
        const uint32_t offset = static_cast<uint32_t>(record_[1]) << 8 | record_[2];
        if (record_[3] == 0x00 && record_[0] > 0 && offset + record_[0] <= 0x10000u) {
            ++line_;
            if (!addToRun(offset, record_ + 4, record_[0], onRecord, run)) {
                action = lineaction_t::STOP;
                return next;
            }
            return takeRunLines(next, end, line, length, static_cast<size_t>(next - line) - length, run);
        }
        if (!flushRun(onRecord, run)) {
            action = lineaction_t::STOP;
            return next;
        }
    }
    ++line_;
    const scannedrecord_t record{line_,   record_ + 4, line, length, static_cast<uint16_t>(record_[1] << 8 | record_[2]),
                                 record_[3], record_[0]};
    action = onRecord(record) ? lineaction_t::NEXT : lineaction_t::STOP;
    return next;
}

// The first four characters of a line as a little-endian number.
HEXBLOCKS_ALWAYS_INLINE uint32_t firstFour(const char* text)
{
    const unsigned char* c = reinterpret_cast<const unsigned char*>(text);
    return static_cast<uint32_t>(c[0]) | static_cast<uint32_t>(c[1]) << 8 | static_cast<uint32_t>(c[2]) << 16 |
           static_cast<uint32_t>(c[3]) << 24;
}

// After a data record that went into the run: the lines that follow it and
// look like it (the same start, so the same type and count, and the same line
// ending) are taken in a loop that knows their length, as long as each is a
// data record with a right checksum that continues the run and fits in it.
// shape is the record's line, length its length without the line ending.
// Returns where the first line not taken starts; that line goes through the
// usual steps, which say what it is.
template <linerules_t RULES>
HEXBLOCKS_NOINLINE const char* RecordScanner<RULES>::takeRunLines(const char* line, const char* end, const char* shape,
                                                                 size_t length, size_t ending, runstate_t& run)
{
    const bool srecord = RULES == linerules_t::SRECORD;
    const size_t countAt = srecord ? 2 : 1;
    const size_t byteCount = (length - countAt) / 2;
    // The bytes before the data: the count, the address and, in Intel HEX, the type.
    const size_t addressSize = srecord ? static_cast<size_t>(shape[1] - '0') + 1 : 2;
    const size_t headLength = 1 + addressSize + (srecord ? 0 : 1);
    const size_t dataLength = byteCount - headLength - 1;
    const uint8_t rightSum = srecord ? 0xFF : 0x00;
    const size_t lineLength = length + ending;
    // The line's first four characters, as one number: S-records compare all
    // four, Intel HEX the first three (the fourth is an address digit).
    const uint32_t shapeMask = srecord ? 0xFFFFFFFFu : 0x00FFFFFFu;
    const uint32_t shapeWord = firstFour(shape) & shapeMask;
    // The last character of a line is '\n'; with CR LF the one before it is '\r'.
    const char beforeLast = ending == 1 ? '\n' : '\r';
    // The run in locals, which the loop keeps in registers. A record that
    // continues the run (its address is the run's end) stays inside the
    // address space (in Intel HEX, inside its 64 KiB) while the run's end is
    // at most lastEnd, and fits while the run holds at most fullLength bytes.
    const uint64_t lastEnd = (srecord ? 0x100000000ull : 0x10000u) - dataLength;
    const size_t fullLength = RUN_CAPACITY - dataLength;
    uint8_t* const runBytes = run_.get();
    size_t runLength = run.length;
    uint64_t runEnd = run.end;
    size_t taken = 0;
    for (; static_cast<size_t>(end - line) >= lineLength; line += lineLength, ++taken) {
        if ((firstFour(line) & shapeMask) != shapeWord || line[lineLength - 1] != '\n' || line[length] != beforeLast)
            break;
        if (runLength > fullLength || runEnd > lastEnd)
            break;
        uint8_t sum = 0;
        if (!decodeHex(line + countAt, byteCount, static_cast<size_t>(end - line) - countAt, record_, sum) ||
            sum != rightSum)
            break;
        uint32_t address;
        if (srecord) {
            address = (static_cast<uint32_t>(record_[1]) << 24 | static_cast<uint32_t>(record_[2]) << 16 |
                       static_cast<uint32_t>(record_[3]) << 8 | record_[4]) >>
                      (8 * (4 - addressSize));
        } else {
            if (record_[3] != 0x00)
                break;
            address = static_cast<uint32_t>(record_[1]) << 8 | record_[2];
        }
        if (address != runEnd)
            break;
        copyRecordData(runBytes + runLength, record_ + headLength, dataLength);
        runLength += dataLength;
        runEnd += dataLength;
    }
    if (taken > 0) {
        line_ += taken;
        run.length = runLength;
        run.end = runEnd;
        run.records += static_cast<uint32_t>(taken);
        run.last = static_cast<uint32_t>(runEnd - dataLength);
        run.lastLength = static_cast<uint8_t>(dataLength);
    }
    return line;
}

// Decodes byteCount bytes of hex digits into record_ (no more than a
// record's bytes are kept, but every digit is checked) and sums them; false
// when a character is not a hex digit.
inline bool RecordScannerBase::decodeDigits(const char* text, size_t byteCount, uint8_t& sum)
{
    const size_t kept = byteCount < MAX_RECORD_BYTES ? byteCount : MAX_RECORD_BYTES;
    sum = 0;
    bool valid = decodeHex(text, kept, static_cast<size_t>(textEnd_ - text), record_, sum);
    const unsigned char* digits = reinterpret_cast<const unsigned char*>(text);
    for (size_t i = 2 * kept; i < 2 * byteCount; ++i)
        valid = valid && HEX_DIGITS.value[digits[i]] < 0x10;
    return valid;
}

// An S-record: 'S', a type digit, then hex digits: the count of the bytes
// that follow it, the address, the data and a checksum that makes the
// bytes from the count on sum to 0xFF.
template <linerules_t RULES>
template <typename OnRecord>
typename RecordScanner<RULES>::lineaction_t RecordScanner<RULES>::takeSrecord(const char* text, size_t length, OnRecord& onRecord)
{
    if (text[0] != 'S')
        return badLine("an S-record must start with 'S'", text, length);
    if (length < 2 || text[1] < '0' || text[1] > '9')
        return badLine("'S' must be followed by the record type, a digit", text, length);
    if ((length - 2) % 2 != 0)
        return badLine("odd number of hex digits", text, length);
    const size_t byteCount = (length - 2) / 2;
    uint8_t sum = 0;
    if (!decodeDigits(text + 2, byteCount, sum))
        return badLine("character that is not a hex digit", text, length);
    return takeDecodedSrecord(text, length, byteCount, sum, onRecord);
}

// An S-record whose byteCount bytes (from its count on) are decoded into
// record_: its count, length and checksum are checked, and it is handed on.
template <linerules_t RULES>
template <typename OnRecord>
typename RecordScanner<RULES>::lineaction_t RecordScanner<RULES>::takeDecodedSrecord(const char* text, size_t length, size_t byteCount,
                                                              uint8_t sum, OnRecord& onRecord)
{
    const unsigned type = static_cast<unsigned>(text[1] - '0');
    if (byteCount == 0 || byteCount != static_cast<size_t>(record_[0]) + 1)
        return badLine("byte count " + std::string(byteCount == 0 ? "missing" : std::to_string(record_[0])) +
                           (byteCount == 0 ? "" : " does not match the length of the line"),
                       text, length);
    const unsigned addressSize = srecordAddressSize(type);
    if (addressSize != 0 && record_[0] < addressSize + 1)
        return badLine("record too short for an S" + std::to_string(type) + " record", text, length);
    if (sum != 0xFF)
        return badChecksum(text, length);
    uint32_t address = 0;
    for (unsigned i = 0; i < addressSize; ++i)
        address = address << 8 | record_[1 + i];
    scannedrecord_t record{line_, record_ + 1 + addressSize, text, length, 0, static_cast<uint8_t>(type),
                           static_cast<uint8_t>(addressSize == 0 ? 0 : record_[0] - addressSize - 1)};
    record.address = address;
    if (!onRecord(record))
        return lineaction_t::STOP;
    return type >= 7 ? lineaction_t::END_RECORD : lineaction_t::NEXT;
}

} // namespace hexblocks::detail

#endif // HEXBLOCKS_RECORD_SCANNER_H
