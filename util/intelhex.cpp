#include "intelhex.h"

#include "utility.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <new>
#include <string_view>

#include <unistd.h>

// The end-of-file record as it must stand at the start of a line.
const char HEX_FILE_EOF[] = ":00000001FF";

namespace {

const size_t HEX_FILE_EOF_LEN = sizeof(HEX_FILE_EOF) - 1;

// Largest piece handed to a single write() call.
const size_t WRITE_CHUNK = 512;

// A record's byte count is two hex digits, so at most 255. Only a signed field
// such as "-1" converts to more: it would ask for a buffer of nearly the whole
// address space, which no allocation can satisfy.
const size_t MAX_RECORD_DATA = 0xFF;

// In one-block mode the block spans from the first record's 16-bit address to
// the end of the last record's data: at most 0xFFFF + MAX_RECORD_DATA bytes.
// A larger size is the unsigned wrap of a last record lying below the first.
const uint32_t MAX_ONE_BLOCK_SIZE = 0xFFFF + MAX_RECORD_DATA;

const char PARSE_LINE_SIGNATURE[] =
    "void IntelHexFile::parseLine(std::string&, IntelHexFile::hexfileline_t&)";

// Value of a hex digit, or 0x10 for any other character.
struct HexDigitTable {
    uint8_t value[256];
    HexDigitTable()
    {
        for (int c = 0; c < 256; ++c)
            value[c] = 0x10;
        for (int d = 0; d < 10; ++d)
            value['0' + d] = static_cast<uint8_t>(d);
        for (int d = 0; d < 6; ++d) {
            value['A' + d] = static_cast<uint8_t>(10 + d);
            value['a' + d] = static_cast<uint8_t>(10 + d);
        }
    }
};
const HexDigitTable HEX_DIGITS;

// Converts the field of len characters at pos as strtol does in base 16:
// leading white space, a sign and a 0x prefix are accepted, conversion stops
// at the first non-digit and a field without digits is 0. A pos beyond the end
// of the line throws std::out_of_range from substr.
long convertField(const std::string& line, size_t pos, size_t len)
{
    if (pos <= line.size()) {
        // A field of hex digits only, the usual case, converts directly.
        const size_t n = std::min(len, line.size() - pos);
        long value = 0;
        size_t i = 0;
        for (; i < n; ++i) {
            const uint8_t digit = HEX_DIGITS.value[static_cast<unsigned char>(line[pos + i])];
            if (digit > 0xF)
                break;
            value = value * 16 + digit;
        }
        if (n > 0 && i == n)
            return value;
    }
    // Everything else goes through strtol itself.
    const std::string field = line.substr(pos, len);
    return std::strtol(field.c_str(), nullptr, 16);
}

// Copies bytes into buffer starting at position, which may lie before the
// buffer; whatever would fall outside the buffer is left out.
void copyClipped(const std::vector<uint8_t>& bytes, long long position, std::vector<uint8_t>& buffer)
{
    const long long begin = std::max(0LL, position);
    const long long end =
        std::min(static_cast<long long>(buffer.size()), position + static_cast<long long>(bytes.size()));
    if (begin < end)
        std::copy(bytes.begin() + (begin - position), bytes.begin() + (end - position), buffer.begin() + begin);
}

std::string hexByte(unsigned value)
{
    static const char digits[] = "0123456789ABCDEF";
    return std::string{digits[value >> 4 & 0xF], digits[value & 0xF]};
}

bool startsWithEofRecord(const std::string& line)
{
    return line.compare(0, HEX_FILE_EOF_LEN, HEX_FILE_EOF) == 0;
}

// Diagnostics that both readers print.
void printOpenFailure(const char* fName)
{
    std::cerr << "#ERROR: failed to open \"" << fName << "\"" << std::endl;
}

void printCorruptLine(const std::string& line)
{
    std::cerr << "#ERROR: corrupt line data in line \"" << line << "\"" << std::endl;
}

void printUnsupportedType(const std::string& line, unsigned type)
{
    std::cout << line << std::endl;
    std::cerr << "#ERROR: unsupported record type found (" << type << ")" << std::endl;
}

// The result of a line handed to readLines' callback.
enum class LineAction { next, stop, fail };
// Why readLines ended.
enum class LinesEnd { stopped, failed, endOfInput, lineTooLong };

// Reads input in large pieces and hands each line (without its newline; the
// last one also when no newline follows it) to takeLine(const char*, size_t),
// until takeLine says stop or fail, or the input ends. A line longer than the
// read buffer ends reading: no record comes near that length.
template <typename TakeLine> LinesEnd readLines(std::streambuf& input, TakeLine takeLine)
{
    const size_t CHUNK_SIZE = 256 * 1024;
    std::vector<char> buffer(CHUNK_SIZE);
    size_t held = 0; // bytes of an unfinished line carried over
    for (;;) {
        const std::streamsize got =
            input.sgetn(buffer.data() + held, static_cast<std::streamsize>(buffer.size() - held));
        const bool atEnd = got <= 0;
        const char* lineStart = buffer.data();
        const char* const end = buffer.data() + held + static_cast<size_t>(got > 0 ? got : 0);
        for (;;) {
            const char* newline =
                static_cast<const char*>(std::memchr(lineStart, '\n', static_cast<size_t>(end - lineStart)));
            if (newline == nullptr)
                break;
            const LineAction action = takeLine(lineStart, static_cast<size_t>(newline - lineStart));
            if (action != LineAction::next)
                return action == LineAction::stop ? LinesEnd::stopped : LinesEnd::failed;
            lineStart = newline + 1;
        }
        held = static_cast<size_t>(end - lineStart);
        if (atEnd) {
            if (held == 0)
                return LinesEnd::endOfInput;
            const LineAction action = takeLine(lineStart, held);
            if (action == LineAction::next)
                return LinesEnd::endOfInput;
            return action == LineAction::stop ? LinesEnd::stopped : LinesEnd::failed;
        }
        if (held == buffer.size())
            return LinesEnd::lineTooLong;
        std::memmove(buffer.data(), lineStart, held);
    }
}

} // namespace

// ---------------------------------------------------------------------------
// IntelHexFileBlock

IntelHexFileBlock::IntelHexFileBlock() : linearBase(0), startAddr(0), size(0) {}

IntelHexFileBlock::IntelHexFileBlock(IntelHexFileBlock& obj)
    : buffer(obj.buffer), linearBase(obj.linearBase), startAddr(obj.startAddr), size(obj.size)
{
}

IntelHexFileBlock::~IntelHexFileBlock()
{
    clear();
}

void IntelHexFileBlock::clear()
{
    linearBase = 0;
    startAddr = 0;
    size = 0;
    buffer.clear();
}

IntelHexFileBlock* IntelHexFileBlock::clone()
{
    return new IntelHexFileBlock(*this);
}

void IntelHexFileBlock::reverseBuffer()
{
    std::reverse(buffer.begin(), buffer.end());
}

bool IntelHexFileBlock::writeBinaryTo(int fd) const
{
    if (buffer.empty())
        return true;

    const uint8_t* position = buffer.data();
    size_t bytesLeft = buffer.size();
    while (bytesLeft > 0) {
        const size_t bytesToWrite = std::min(WRITE_CHUNK, bytesLeft);
        const size_t cnt = static_cast<size_t>(::write(fd, position, bytesToWrite));
        if (cnt == static_cast<size_t>(-1)) {
            std::cerr << "#ERROR: write() returns an error." << std::endl;
            return false;
        }
        // A short write goes on with the remainder; a write of 0 bytes is
        // simply tried again.
        position += cnt;
        bytesLeft -= cnt;
    }
    return true;
}

bool IntelHexFileBlock::writeBinaryTo(const char* fName) const
{
    FILE* file = std::fopen(fName, "wb");
    if (file == nullptr) {
        std::cerr << "#ERROR: failed to create file \"" << fName << "\"" << std::endl;
        return false;
    }
    const bool written = writeBinaryTo(fileno(file));
    std::fclose(file);
    return written;
}

size_t IntelHexFileBlock::getSize() const
{
    return size;
}

uint16_t IntelHexFileBlock::getLinearBase() const
{
    return linearBase;
}

uint16_t IntelHexFileBlock::getStartAddress() const
{
    return startAddr;
}

uint16_t IntelHexFileBlock::getEndAddress() const
{
    return static_cast<uint16_t>(startAddr + size);
}

const uint8_t* IntelHexFileBlock::getBuffer() const
{
    return buffer.data();
}

// ---------------------------------------------------------------------------
// IntelHexFile: container

IntelHexFile::IntelHexFile() {}

IntelHexFile::IntelHexFile(const IntelHexFile& obj)
    : startAddressType(obj.startAddressType), startAddressValue(obj.startAddressValue),
      errorLine(obj.errorLine), errorReason(obj.errorReason)
{
    blocks.reserve(obj.blocks.size());
    try {
        for (IntelHexFileBlock* block : obj.blocks)
            blocks.push_back(block->clone());
    } catch (...) {
        clear();
        throw;
    }
}

IntelHexFile::IntelHexFile(const char* fName, bool oneBlock)
{
    load(fName, oneBlock);
}

IntelHexFile::IntelHexFile(uint16_t theLinearBase, uint16_t theStartAddr, size_t theSize,
                           const uint8_t* theBuffer)
{
    std::vector<uint8_t> bytes;
    if (theSize > 0)
        bytes.assign(theBuffer, theBuffer + theSize);
    appendBlock(theLinearBase, theStartAddr, bytes);
}

IntelHexFile& IntelHexFile::operator=(const IntelHexFile& obj)
{
    if (this != &obj) {
        IntelHexFile copy(obj);
        blocks.swap(copy.blocks);
        startAddressType = copy.startAddressType;
        startAddressValue = copy.startAddressValue;
        errorLine = copy.errorLine;
        errorReason.swap(copy.errorReason);
    }
    return *this;
}

IntelHexFile::~IntelHexFile()
{
    clear();
}

const IntelHexFileBlock& IntelHexFile::operator[](size_t id) const
{
    if (id >= blocks.size())
        throw "IntelHexFile::operator[](size_t id): id outside of range!";
    return *blocks[id];
}

void IntelHexFile::reverseBuffers() const
{
    for (IntelHexFileBlock* block : blocks)
        block->reverseBuffer();
}

void IntelHexFile::clear()
{
    for (IntelHexFileBlock* block : blocks)
        delete block;
    blocks.clear();
    startAddressType = 0;
    startAddressValue = 0;
}

bool IntelHexFile::hasStartAddress() const
{
    return startAddressType != 0;
}

uint8_t IntelHexFile::getStartAddressType() const
{
    return startAddressType;
}

uint32_t IntelHexFile::getStartAddressValue() const
{
    return startAddressValue;
}

size_t IntelHexFile::getErrorLine() const
{
    return errorLine;
}

const std::string& IntelHexFile::getErrorReason() const
{
    return errorReason;
}

void IntelHexFile::setError(size_t line, const std::string& reason)
{
    errorLine = line;
    errorReason = reason;
}

bool IntelHexFile::hasData() const
{
    return !blocks.empty();
}

size_t IntelHexFile::getBlockCount() const
{
    return blocks.size();
}

// ---------------------------------------------------------------------------
// IntelHexFile: record parser

bool operator<(const IntelHexFile::hexfileline_t& first, const IntelHexFile::hexfileline_t& second)
{
    if (first.linearBase != second.linearBase)
        return first.linearBase < second.linearBase;
    return first.address < second.address;
}

void IntelHexFile::parseLine(std::string& hexLine, hexfileline_t& line)
{
    line.recordType = 0xFF;
    strTrim(hexLine, " ");
    strRemove(hexLine, "\r");

    const size_t lineLen = hexLine.size();
    if (lineLen <= 10 || hexLine[0] != ':') {
        parseProblem = "line too short or not starting with ':'";
        std::cout << PARSE_LINE_SIGNATURE << ": hexline to short" << std::endl;
        return;
    }

    line.dataLen = static_cast<size_t>(convertField(hexLine, 1, 2));
    line.address = static_cast<uint16_t>(convertField(hexLine, 3, 4));
    const uint16_t recType = static_cast<uint16_t>(convertField(hexLine, 7, 2));

    // Ten zero digits are not a record, although their checksum is right.
    if (line.dataLen == 0 && recType == 0 && line.address == 0) {
        parseProblem = "ten zero digits are not a record";
        return;
    }

    if (line.dataLen > MAX_RECORD_DATA)
        throw std::bad_alloc();
    line.data.resize(line.dataLen);
    if (line.data.empty())
        std::cerr << "#ERROR: line.data.size() is zero" << std::endl;

    uint32_t curPos = 9;
    for (size_t x = 0; x < line.dataLen; ++x) {
        line.data[x] = static_cast<uint8_t>(convertField(hexLine, curPos, 2));
        curPos += 2;
        // The line ends where the checksum should begin.
        if (curPos == lineLen) {
            parseProblem = "the line ends where the checksum should begin";
            return;
        }
    }

    // The sum covers everything from the byte count to the end of the line.
    uint8_t theSum = 0;
    for (size_t pos = 1; pos < lineLen; pos += 2)
        theSum = static_cast<uint8_t>(theSum + convertField(hexLine, pos, 2));
    if (theSum != 0) {
        parseProblem = "checksum error";
        std::cerr << "#ERROR: checksum error." << std::endl;
        return;
    }

    if (curPos + 2 == lineLen) {
        line.recordType = static_cast<uint8_t>(recType);
        return;
    }

    parseProblem = "the line does not end right after its checksum";
    std::cout << PARSE_LINE_SIGNATURE << ": second unexpected end of line" << std::endl;
    std::cout << (curPos + 2) << ", " << lineLen << std::endl;
}

// ---------------------------------------------------------------------------
// IntelHexFile: file reader

bool IntelHexFile::parseHexFile(std::ifstream& hexFile, hexfilelineset_t& lines)
{
    std::string rawLine;
    hexfileline_t hexLine = hexfileline_t();
    uint16_t linearBase = 0;
    size_t currentLine = 0; // 1-based number of rawLine

    for (;;) {
        if (startsWithEofRecord(rawLine))
            return true;
        if (hexFile.eof()) {
            setError(currentLine, "end of file without an end-of-file record");
            std::cerr << "#ERROR: end of file reached without EoF-record. HEX file might be corrupt."
                      << std::endl;
            return false;
        }
        std::getline(hexFile, rawLine);
        ++currentLine;
        // Compared as read: exact case, no leading white space, and anything
        // after the first 11 characters is ignored.
        if (startsWithEofRecord(rawLine))
            return true;

        hexLine.data.clear();
        try {
            parseLine(rawLine, hexLine);
        } catch (const std::out_of_range&) {
            setError(currentLine, "the record's data runs past the end of the line");
            throw;
        } catch (const std::bad_alloc&) {
            setError(currentLine, "impossible byte count");
            throw;
        }

        switch (hexLine.recordType) {
        case 0x04:
            // The base is two big-endian bytes; a shorter record has no base
            // to give and is treated as corrupt rather than read beyond.
            if (hexLine.data.size() < 2) {
                setError(currentLine, "extended linear address record with fewer than 2 data bytes");
                printCorruptLine(rawLine);
                return false;
            }
            linearBase = static_cast<uint16_t>(hexLine.data[0] << 8 | hexLine.data[1]);
            break;
        case 0xFF:
            setError(currentLine, parseProblem);
            printCorruptLine(rawLine);
            return false;
        case 0x00:
            // An equivalent record already in the set wins; this one is dropped.
            hexLine.linearBase = linearBase;
            lines.insert(hexLine);
            break;
        default:
            setError(currentLine, "unsupported record type " + hexByte(hexLine.recordType));
            printUnsupportedType(rawLine, hexLine.recordType);
            return false;
        }
    }
}

// ---------------------------------------------------------------------------
// IntelHexFile: block assembly and loading

bool IntelHexFile::load(const char* fName, bool oneBlock)
{
    setError(0, "");
    std::ifstream hexFile(fName);
    if (hexFile.fail()) {
        setError(0, "cannot open the file");
        printOpenFailure(fName);
        return false;
    }

    // The fast reader needs to start again from the top when it gives up, so
    // it is tried only on files that can be rewound (not on pipes).
    const std::streampos start = hexFile.tellg();
    if (start != std::streampos(-1)) {
        if (loadPlain(hexFile, oneBlock))
            return true;
        hexFile.clear();
        hexFile.seekg(start);
        if (hexFile.fail()) {
            setError(0, "cannot read the file again");
            return false;
        }
    }
    return loadRecords(hexFile, oneBlock);
}

bool IntelHexFile::loadRecords(std::ifstream& hexFile, bool oneBlock)
{
    hexfilelineset_t lineSet;
    if (!parseHexFile(hexFile, lineSet))
        return false;

    setconstiterator_t first = lineSet.begin();
    setconstiterator_t end = lineSet.end();
    if (oneBlock) {
        createNewBlock(first, end);
        return true;
    }
    do {
        setconstiterator_t last = getNextEnd(first, end);
        createNewBlock(first, last);
        first = last;
    } while (first != end);
    return true;
}

IntelHexFile::setconstiterator_t IntelHexFile::getNextEnd(setconstiterator_t& from,
                                                         setconstiterator_t& to)
{
    if (from == to)
        return to;
    setconstiterator_t x = from;
    for (;;) {
        const uint16_t lastAddr = static_cast<uint16_t>(x->address + x->data.size());
        setconstiterator_t next = std::next(x);
        if (next == to || next->linearBase != x->linearBase || next->address != lastAddr)
            return next;
        x = next;
    }
}

void IntelHexFile::createNewBlock(setconstiterator_t& first, setconstiterator_t& last)
{
    // A file with no data records yields an empty run, and no block.
    if (first == last)
        return;

    const setconstiterator_t to = std::prev(last);
    const uint16_t offset = first->address;
    std::vector<uint8_t> bytes(runSize(offset, to->address, to->data.size()), 0xFF);

    // Records are clipped to the buffer: in one-block mode an earlier, longer
    // record can reach past the end, and a record of a later linear base can
    // start below the first record's address.
    for (setconstiterator_t i = first; i != last; ++i)
        copyClipped(i->data, static_cast<long long>(i->address) - offset, bytes);
    appendBlock(first->linearBase, offset, bytes);
}

uint32_t IntelHexFile::runSize(uint16_t firstAddress, uint16_t finalAddress, size_t finalLength)
{
    const uint32_t size =
        static_cast<uint32_t>(finalAddress) - firstAddress + static_cast<uint32_t>(finalLength);
    // Only one-block mode can get here with a wrapped size; refuse it as the
    // failed allocation of nearly 4 GiB that it would be.
    if (size > MAX_ONE_BLOCK_SIZE) {
        setError(0, "the one-block image size wraps around (records of several linear bases)");
        throw std::bad_alloc();
    }
    return size;
}

// ---------------------------------------------------------------------------
// IntelHexFile: fast reader for plain files

namespace {

// Count, address (2), type, 255 data bytes, checksum.
const size_t MAX_RECORD_BYTES = 5 + 255;

// A run of contiguous data records under one linear base, as the exact
// reader's block assembly would find it.
struct PlainRun {
    uint16_t linearBase;
    uint16_t startAddr;
    uint16_t lastRecordAddr; // the run's final record, which one-block mode
    uint8_t lastRecordLen;   // uses for the size of the block
    std::vector<uint8_t> bytes;
};

// Reads the lines of a plain file into runs. Any line that the exact reader
// would treat differently from a well-formed record (a warning, an error,
// trimming, a record out of order or repeated) makes read() return false.
class PlainHexReader {
public:
    explicit PlainHexReader(std::vector<PlainRun>& runs) : runs_(runs) {}

    // True when the file is plain to its end-of-file record.
    bool read(std::streambuf& input)
    {
        const LinesEnd end = readLines(input, [this](const char* line, size_t length) {
            if (!takeLine(line, length))
                return LineAction::fail;
            return sawEndRecord_ ? LineAction::stop : LineAction::next;
        });
        return end == LinesEnd::stopped && finishRun();
    }

private:
    static const size_t MAX_RECORD_BYTES = 5 + 255;

    bool takeLine(const char* line, size_t length)
    {
        if (length >= HEX_FILE_EOF_LEN && std::memcmp(line, HEX_FILE_EOF, HEX_FILE_EOF_LEN) == 0) {
            sawEndRecord_ = true;
            return true;
        }
        if (length > 0 && line[length - 1] == '\r')
            --length;
        if (length < 11 || line[0] != ':' || length % 2 == 0)
            return false;
        const size_t byteCount = (length - 1) / 2;
        if (byteCount > MAX_RECORD_BYTES)
            return false;

        uint8_t record[MAX_RECORD_BYTES];
        unsigned invalid = 0;
        unsigned sum = 0;
        const unsigned char* digits = reinterpret_cast<const unsigned char*>(line + 1);
        for (size_t i = 0; i < byteCount; ++i) {
            const unsigned high = HEX_DIGITS.value[digits[2 * i]];
            const unsigned low = HEX_DIGITS.value[digits[2 * i + 1]];
            invalid |= high | low;
            record[i] = static_cast<uint8_t>(high << 4 | low);
            sum += record[i];
        }
        if ((invalid & 0x10) != 0 || (sum & 0xFF) != 0 || record[0] != byteCount - 5)
            return false;

        const uint8_t dataLen = record[0];
        const uint16_t address = static_cast<uint16_t>(record[1] << 8 | record[2]);
        switch (record[3]) {
        case 0x00:
            return dataLen != 0 && addData(address, record + 4, dataLen);
        case 0x04:
            if (dataLen < 2)
                return false;
            linearBase_ = static_cast<uint16_t>(record[4] << 8 | record[5]);
            return true;
        default:
            return false;
        }
    }

    bool addData(uint16_t address, const uint8_t* data, uint8_t length)
    {
        if (!runs_.empty()) {
            PlainRun& run = runs_.back();
            // Only strictly ascending records: the exact reader would reorder
            // the others or drop them as duplicates.
            const uint32_t key = static_cast<uint32_t>(linearBase_) << 16 | address;
            const uint32_t lastKey = static_cast<uint32_t>(run.linearBase) << 16 | run.lastRecordAddr;
            if (key <= lastKey)
                return false;
            const uint16_t runEnd = static_cast<uint16_t>(run.lastRecordAddr + run.lastRecordLen);
            if (run.linearBase == linearBase_ && runEnd == address) {
                run.bytes.insert(run.bytes.end(), data, data + length);
                run.lastRecordAddr = address;
                run.lastRecordLen = length;
                return true;
            }
            finishRun();
        }
        runs_.push_back(PlainRun{linearBase_, address, address, length, std::vector<uint8_t>(data, data + length)});
        return true;
    }

    // Gives back the spare capacity of the run just finished.
    bool finishRun()
    {
        if (!runs_.empty()) {
            std::vector<uint8_t>& bytes = runs_.back().bytes;
            if (bytes.capacity() - bytes.size() > bytes.size() / 8)
                bytes.shrink_to_fit();
        }
        return true;
    }

    std::vector<PlainRun>& runs_;
    uint16_t linearBase_ = 0;
    bool sawEndRecord_ = false;
};

} // namespace

bool IntelHexFile::loadPlain(std::ifstream& hexFile, bool oneBlock)
{
    std::vector<PlainRun> runs;
    PlainHexReader reader(runs);
    if (!reader.read(*hexFile.rdbuf()))
        return false;
    if (runs.empty())
        return true;

    if (!oneBlock) {
        for (PlainRun& run : runs)
            appendBlock(run.linearBase, run.startAddr, run.bytes);
        return true;
    }

    // One block from the first record to the end of the final one, placed by
    // 16-bit addresses and clipped, exactly as createNewBlock does.
    const PlainRun& first = runs.front();
    const PlainRun& final = runs.back();
    std::vector<uint8_t> image(runSize(first.startAddr, final.lastRecordAddr, final.lastRecordLen), 0xFF);
    for (const PlainRun& run : runs)
        copyClipped(run.bytes, static_cast<long long>(run.startAddr) - first.startAddr, image);
    appendBlock(first.linearBase, first.startAddr, image);
    return true;
}

void IntelHexFile::appendBlock(uint16_t theLinearBase, uint16_t theStartAddr, std::vector<uint8_t>& bytes)
{
    IntelHexFileBlock* block = new IntelHexFileBlock();
    try {
        block->linearBase = theLinearBase;
        block->startAddr = theStartAddr;
        block->size = bytes.size();
        block->buffer.swap(bytes);
        blocks.push_back(block);
    } catch (...) {
        delete block;
        throw;
    }
}

// ---------------------------------------------------------------------------
// IntelHexFile: reader of the whole format

namespace {

// White space that may stand around a record or make up a blank line.
bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

// A piece of data at its full 32-bit address. A record whose bytes wrap
// (past 0xFFFFFFFF, or past the end of a 64 KiB segment) gives two pieces;
// the first of them starts the record.
struct DataPiece {
    uint32_t address;
    uint32_t length;
    size_t dataOffset; // into the reader's byte store
    uint32_t line;     // of the record; also its order in the file
    bool recordStart;
};

// Reads every line of a HEX file with the record types 00 to 05, keeping
// data pieces and the start address. It prints the diagnostics of a failing
// line and reports where and why it failed.
class FullHexReader {
public:
    std::vector<DataPiece> pieces;
    std::vector<uint8_t> store;
    uint8_t startType = 0;
    uint32_t startValue = 0;
    bool sawEndRecord = false;
    size_t failedLine = 0;
    std::string failure;

    // True when every line up to the end-of-file record (or the end of the
    // input) was acceptable.
    bool read(std::streambuf& input)
    {
        const LinesEnd end = readLines(input, [this](const char* line, size_t length) {
            if (!takeLine(line, length))
                return LineAction::fail;
            return sawEndRecord ? LineAction::stop : LineAction::next;
        });
        if (end == LinesEnd::lineTooLong) {
            ++line_;
            return fail("line too long", "");
        }
        return end != LinesEnd::failed;
    }

private:
    bool fail(const std::string& reason, const std::string& text)
    {
        failedLine = line_;
        failure = reason;
        std::cerr << "#ERROR: " << reason << "." << std::endl;
        printCorruptLine(text);
        return false;
    }

    bool takeLine(const char* line, size_t length)
    {
        ++line_;
        // White space around a record, carriage returns included, is skipped.
        const char* first = line;
        const char* last = line + length;
        while (first < last && isBlank(*first))
            ++first;
        while (last > first && isBlank(last[-1]))
            --last;
        if (first == last)
            return true; // blank lines are skipped
        const std::string_view text(first, static_cast<size_t>(last - first));

        if (text[0] != ':')
            return fail("a record must start with ':'", std::string(text));
        const size_t digits = text.size() - 1;
        if (digits % 2 != 0)
            return fail("odd number of hex digits", std::string(text));
        if (digits < 10)
            return fail("record too short", std::string(text));
        // Every character is checked; no more than a record's bytes are kept.
        uint8_t bytes[MAX_RECORD_BYTES];
        const size_t byteCount = digits / 2;
        unsigned sum = 0;
        for (size_t i = 0; i < byteCount; ++i) {
            const uint8_t high = HEX_DIGITS.value[static_cast<unsigned char>(text[1 + 2 * i])];
            const uint8_t low = HEX_DIGITS.value[static_cast<unsigned char>(text[2 + 2 * i])];
            if (high > 0xF || low > 0xF)
                return fail("character that is not a hex digit", std::string(text));
            const uint8_t byte = static_cast<uint8_t>(high << 4 | low);
            if (i < MAX_RECORD_BYTES)
                bytes[i] = byte;
            sum += byte;
        }
        const size_t dataLen = bytes[0];
        if (byteCount != dataLen + 5)
            return fail("byte count " + std::to_string(dataLen) + " does not match the length of the line",
                        std::string(text));
        if ((sum & 0xFF) != 0)
            return fail("checksum error", std::string(text));

        const uint16_t offset = static_cast<uint16_t>(bytes[1] << 8 | bytes[2]);
        const uint8_t type = bytes[3];
        const uint8_t* data = bytes + 4;
        switch (type) {
        case 0x00:
            addData(offset, data, dataLen);
            return true;
        case 0x01:
            sawEndRecord = true;
            return true;
        case 0x02:
        case 0x04:
            if (dataLen != 2)
                return fail(std::string(type == 0x02 ? "extended segment" : "extended linear") +
                                " address record needs 2 data bytes",
                            std::string(text));
            segmented_ = type == 0x02;
            base_ = segmented_ ? static_cast<uint32_t>(data[0] << 8 | data[1]) * 16
                               : static_cast<uint32_t>(data[0] << 8 | data[1]) << 16;
            return true;
        case 0x03:
        case 0x05: {
            if (dataLen != 4)
                return fail(std::string(type == 0x03 ? "start segment" : "start linear") +
                                " address record needs 4 data bytes",
                            std::string(text));
            const uint32_t value = static_cast<uint32_t>(data[0]) << 24 | static_cast<uint32_t>(data[1]) << 16 |
                                   static_cast<uint32_t>(data[2]) << 8 | data[3];
            if (startType == 0) {
                startType = type;
                startValue = value;
            } else if (startType != type || startValue != value) {
                // The first start address wins, as the first record does.
                std::cerr << "#WARNING: a second, different start address in line " << line_ << " is ignored."
                          << std::endl;
            }
            return true;
        }
        default:
            failedLine = line_;
            failure = "unsupported record type " + hexByte(type);
            printUnsupportedType(std::string(text), type);
            return false;
        }
    }

    // Stores a data record as one or two pieces: segment offsets wrap at
    // 64 KiB, and full addresses at 4 GiB.
    void addData(uint16_t offset, const uint8_t* data, size_t length)
    {
        if (length == 0)
            return;
        const size_t stored = store.size();
        store.insert(store.end(), data, data + length);
        const size_t first = segmented_
                                 ? std::min<size_t>(length, 0x10000 - offset)
                                 : static_cast<size_t>(std::min<uint64_t>(
                                       length, 0x100000000ull - (base_ + static_cast<uint64_t>(offset))));
        const uint32_t address = base_ + offset; // wraps at 4 GiB
        const uint32_t line = static_cast<uint32_t>(line_);
        pieces.push_back(DataPiece{address, static_cast<uint32_t>(first), stored, line, true});
        if (first < length) {
            const uint32_t wrapped = segmented_ ? base_ : 0;
            pieces.push_back(
                DataPiece{wrapped, static_cast<uint32_t>(length - first), stored + first, line, false});
        }
    }

    size_t line_ = 0;
    bool segmented_ = false;
    uint32_t base_ = 0;
};

// Drops every record that starts where an earlier record started, with all
// its pieces: the first record for an address wins. pieces end up sorted by
// address.
void dropRepeatedRecords(std::vector<DataPiece>& pieces)
{
    std::stable_sort(pieces.begin(), pieces.end(),
                     [](const DataPiece& a, const DataPiece& b) { return a.address < b.address; });
    std::vector<uint32_t> dropped; // lines of the records dropped
    const DataPiece* previousStart = nullptr;
    for (const DataPiece& p : pieces) {
        if (!p.recordStart)
            continue;
        if (previousStart != nullptr && previousStart->address == p.address)
            dropped.push_back(p.line);
        else
            previousStart = &p;
    }
    if (dropped.empty())
        return;
    std::sort(dropped.begin(), dropped.end());
    pieces.erase(std::remove_if(pieces.begin(), pieces.end(),
                                [&](const DataPiece& p) {
                                    return std::binary_search(dropped.begin(), dropped.end(), p.line);
                                }),
                 pieces.end());
}

// A run of contiguous addresses covered by data, [start, end).
struct DataRun {
    uint64_t start;
    uint64_t end;
};

} // namespace

bool IntelHexFile::loadFullFormat(const char* fName, bool oneBlock)
{
    fulloptions_t options;
    options.oneBlock = oneBlock;
    return loadFullFormat(fName, options);
}

bool IntelHexFile::loadFullFormat(const char* fName, const fulloptions_t& options)
{
    setError(0, "");
    std::ifstream hexFile(fName, std::ios::binary);
    if (hexFile.fail()) {
        setError(0, "cannot open the file");
        printOpenFailure(fName);
        return false;
    }

    FullHexReader reader;
    if (!reader.read(*hexFile.rdbuf())) {
        setError(reader.failedLine, reader.failure);
        return false;
    }
    if (!reader.sawEndRecord)
        std::cerr << "#WARNING: end of file reached without EoF-record." << std::endl;

    std::vector<DataPiece>& kept = reader.pieces;
    dropRepeatedRecords(kept);

    // Maximal runs of contiguous data by full address.
    std::vector<DataRun> runs;
    bool overlaps = false;
    for (const DataPiece& p : kept) {
        const uint64_t end = static_cast<uint64_t>(p.address) + p.length;
        if (!runs.empty() && p.address <= runs.back().end) {
            overlaps = overlaps || p.address < runs.back().end;
            runs.back().end = std::max(runs.back().end, end);
        } else {
            runs.push_back(DataRun{p.address, end});
        }
    }

    if (options.oneBlock && !runs.empty()) {
        const uint64_t span = runs.back().end - runs.front().start;
        if (span > options.maxImageSize) {
            setError(0, "image spans " + std::to_string(span) + " bytes, more than the limit of " +
                            std::to_string(options.maxImageSize) + " bytes");
            std::cerr << "#ERROR: " << errorReason << "." << std::endl;
            return false;
        }
        runs.assign(1, DataRun{runs.front().start, runs.back().end});
    }

    // One buffer per run; pieces go in in file order, and a byte already
    // written keeps its value.
    std::vector<std::vector<uint8_t>> buffers(runs.size());
    std::vector<std::vector<bool>> written(runs.size());
    for (size_t r = 0; r < runs.size(); ++r) {
        buffers[r].assign(static_cast<size_t>(runs[r].end - runs[r].start), 0xFF);
        if (overlaps)
            written[r].assign(buffers[r].size(), false);
    }
    std::stable_sort(kept.begin(), kept.end(), [](const DataPiece& a, const DataPiece& b) { return a.line < b.line; });
    uint64_t repeated = 0;
    size_t firstRepeatLine = 0;
    for (const DataPiece& p : kept) {
        const size_t r = static_cast<size_t>(
            std::upper_bound(runs.begin(), runs.end(), p.address,
                             [](uint64_t address, const DataRun& run) { return address < run.start; }) -
            runs.begin() - 1);
        const size_t at = static_cast<size_t>(p.address - runs[r].start);
        const uint8_t* bytes = reader.store.data() + p.dataOffset;
        if (!overlaps) {
            std::copy(bytes, bytes + p.length, buffers[r].begin() + static_cast<long>(at));
            continue;
        }
        for (size_t i = 0; i < p.length; ++i) {
            if (written[r][at + i]) {
                if (repeated++ == 0)
                    firstRepeatLine = p.line;
                continue;
            }
            written[r][at + i] = true;
            buffers[r][at + i] = bytes[i];
        }
    }
    if (repeated > 0)
        std::cerr << "#WARNING: " << repeated << " bytes given by more than one record, first in line "
                  << firstRepeatLine << "; the first value of each is kept." << std::endl;

    for (size_t r = 0; r < runs.size(); ++r)
        appendBlock(static_cast<uint16_t>(runs[r].start >> 16), static_cast<uint16_t>(runs[r].start),
                    buffers[r]);
    if (reader.startType != 0) {
        startAddressType = reader.startType;
        startAddressValue = reader.startValue;
    }
    return true;
}
