#include "exact_reader.h"

#include "fast_reader.h"
#include "hex_format.h"
#include "record_scanner.h"
#include "utility.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <new>
#include <stdexcept>

using hexblocks::detail::HEX_DIGITS;

// The end-of-file record as it must stand at the start of a line.
const char HEX_FILE_EOF[] = ":00000001FF";

namespace {

const size_t HEX_FILE_EOF_LEN = sizeof(HEX_FILE_EOF) - 1;

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

bool startsWithEofRecord(const std::string& line)
{
    return line.compare(0, HEX_FILE_EOF_LEN, HEX_FILE_EOF) == 0;
}

} // namespace

namespace hexblocks::detail {

void copyClipped(const uint8_t* bytes, size_t length, long long position, std::vector<uint8_t>& buffer)
{
    const long long begin = std::max(0LL, position);
    const long long end = std::min(static_cast<long long>(buffer.size()), position + static_cast<long long>(length));
    if (begin < end)
        std::copy(bytes + (begin - position), bytes + (end - position), buffer.begin() + begin);
}

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

} // namespace hexblocks::detail

using hexblocks::detail::copyClipped;
using hexblocks::detail::hexByte;
using hexblocks::detail::printCorruptLine;
using hexblocks::detail::printOpenFailure;
using hexblocks::detail::printUnsupportedType;

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
    return loadOpened(hexFile, oneBlock);
}

bool IntelHexFile::loadOpened(std::ifstream& hexFile, bool oneBlock)
{
    // The fast reader needs to start again from the top when it gives up, so
    // it is tried only on files that can be rewound (not on pipes). The
    // stream's buffer is the one it reads through (a test may give it a
    // buffer over text in memory).
    hexblocks::detail::StreamBufferText text(*static_cast<std::istream&>(hexFile).rdbuf());
    if (text.canRewind()) {
        std::vector<hexblocks::detail::fastrun_t> runs;
        if (hexblocks::detail::readFast(text, runs)) {
            if (runs.empty())
                return true;
            if (!oneBlock) {
                for (hexblocks::detail::fastrun_t& run : runs)
                    appendBlock(run.linearBase, run.startAddr, run.bytes);
                return true;
            }
            // One block from the first record to the end of the final one,
            // placed by 16-bit addresses and clipped, as createNewBlock does.
            const hexblocks::detail::fastrun_t& first = runs.front();
            const hexblocks::detail::fastrun_t& final = runs.back();
            std::vector<uint8_t> image(runSize(first.startAddr, final.lastRecordAddr, final.lastRecordLen), 0xFF);
            for (const hexblocks::detail::fastrun_t& run : runs)
                copyClipped(run.bytes.data(), run.bytes.size(), static_cast<long long>(run.startAddr) - first.startAddr,
                            image);
            appendBlock(first.linearBase, first.startAddr, image);
            return true;
        }
        if (!text.rewind()) {
            setError(0, "cannot read the file again");
            return false;
        }
    }
    return loadExact(hexFile, oneBlock);
}

bool IntelHexFile::loadExact(std::ifstream& hexFile, bool oneBlock)
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
        copyClipped(i->data.data(), i->data.size(), static_cast<long long>(i->address) - offset, bytes);
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

