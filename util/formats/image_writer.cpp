#include "image_writer.h"

#include "hex_format.h"
#include "output_buffer.h"

#include <algorithm>
#include <string>
#include <vector>

namespace hexblocks::detail {

namespace {

using result_t = result_t;

// Options that the image cannot be written with.
result_t badOptions(const std::string& reason)
{
    return failure(status_t::BAD_ARGUMENT, reason);
}

// Options whose addresses cannot hold the image's address.
result_t outOfReach(const std::string& reason, uint32_t address)
{
    return failureAt(status_t::OUT_OF_RANGE, reason, address);
}

// --- Intel HEX ---------------------------------------------------------------

char* putHexRecord(char* p, uint8_t type, uint16_t offset, const uint8_t* data, size_t length, bool crlf)
{
    return putHexRecordCounted(p, static_cast<uint8_t>(length), type, offset, data, length, crlf);
}

bool writeIntelHex(WriterInput& input, const write_options_t& options, OutputBuffer& out)
{
    const bool segmented = options.addressing == addressing_t::SEGMENT;
    const size_t lineMax = 1 + 2 * (5 + 255) + 2;
    uint32_t upper = 0; // the upper 16 bits the last address record gave
    for (size_t s = 0; s < input.segmentCount(); ++s) {
        const uint64_t start = input.segmentAddress(s);
        // A piece ends on a 64 KiB boundary, where a record ends anyway.
        const bool whole = forEachPiece(input, s, PIECE, 0x10000, [&](uint64_t at, const uint8_t* bytes, size_t piece) {
            const uint64_t pieceStart = start + at;
            const uint64_t pieceEnd = pieceStart + piece;
            for (uint64_t address = pieceStart; address < pieceEnd;) {
                const uint32_t high = static_cast<uint32_t>(address >> 16);
                if (high != upper) {
                    // Segment addressing: a base of high * 0x1000 paragraphs.
                    const uint16_t value = static_cast<uint16_t>(segmented ? high << 12 : high);
                    const uint8_t base[2] = {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
                    out.commit(putHexRecord(out.reserve(lineMax), segmented ? 0x02 : 0x04, 0, base, 2, options.crlf));
                    upper = high;
                }
                // Up to the record size, and never across a 64 KiB boundary.
                const uint64_t boundary = (address | 0xFFFF) + 1;
                const size_t sixteens = static_cast<size_t>((std::min(pieceEnd, boundary) - address) / 16);
                if (options.recordSize == 16 && sixteens > 0) {
                    putSixteenByteRecords<16, false>(out, static_cast<uint16_t>(address),
                                                 bytes + (address - pieceStart), sixteens, options.crlf);
                    address += 16 * sixteens;
                    continue;
                }
                const size_t length =
                    static_cast<size_t>(std::min<uint64_t>({options.recordSize, pieceEnd - address, boundary - address}));
                out.commit(putHexRecord(out.reserve(lineMax), 0x00, static_cast<uint16_t>(address),
                                        bytes + (address - pieceStart), length, options.crlf));
                address += length;
            }
        });
        if (!whole)
            return false;
    }
    if (input.hasStartAddress()) {
        const start_address_t start = input.startAddress();
        const uint8_t value[4] = {static_cast<uint8_t>(start.value >> 24), static_cast<uint8_t>(start.value >> 16),
                                  static_cast<uint8_t>(start.value >> 8), static_cast<uint8_t>(start.value)};
        out.commit(putHexRecord(out.reserve(lineMax), start.type, 0, value, 4, options.crlf));
    }
    out.commit(putHexRecord(out.reserve(lineMax), 0x01, 0, nullptr, 0, options.crlf));
    return true;
}

// --- S-records -----------------------------------------------------------------

// The start address an S7 to S9 record carries: a linear address, CS * 16 + IP
// for a segment start address, 0 when there is none.
uint64_t srecordStart(const WriterInput& input)
{
    if (!input.hasStartAddress())
        return 0;
    const start_address_t start = input.startAddress();
    if (start.type == 3)
        return static_cast<uint64_t>(start.value >> 16) * 16 + (start.value & 0xFFFF);
    return start.value;
}

unsigned addressSizeFor(uint64_t address)
{
    return address <= 0xFFFF ? 2 : address <= 0xFFFFFF ? 3 : 4;
}

unsigned srecordAddressSize(const WriterInput& input, const write_options_t& options)
{
    if (options.addressSize != 0)
        return options.addressSize;
    return std::max(addressSizeFor(isEmpty(input) ? 0 : highestOf(input)), addressSizeFor(srecordStart(input)));
}

char* putSrecord(char* p, unsigned type, unsigned addressSize, uint32_t address, const uint8_t* data, size_t length,
                 bool crlf)
{
    const unsigned count = addressSize + static_cast<unsigned>(length) + 1;
    unsigned sum = count;
    *p++ = 'S';
    *p++ = static_cast<char>('0' + type);
    p = putByte(p, static_cast<uint8_t>(count));
    for (unsigned i = addressSize; i-- > 0;) {
        const uint8_t byte = static_cast<uint8_t>(address >> (8 * i));
        sum += byte;
        p = putByte(p, byte);
    }
    p = putBytes(p, data, length, sum);
    p = putByte(p, static_cast<uint8_t>(~sum));
    return putLineEnd(p, crlf);
}

bool writeSrecords(WriterInput& input, const write_options_t& options, OutputBuffer& out)
{
    const unsigned addressSize = srecordAddressSize(input, options);
    const unsigned dataType = addressSize - 1; // S1, S2, S3
    const size_t lineMax = 2 + 2 * 256 + 2;
    const std::string header = input.header();
    out.commit(putSrecord(out.reserve(lineMax), 0, 2, 0, reinterpret_cast<const uint8_t*>(header.data()), header.size(),
                          options.crlf));
    // Records are counted from the segment's start, so pieces hold whole ones.
    const size_t pieceMax = std::max<size_t>(1, PIECE / options.recordSize) * options.recordSize;
    uint64_t records = 0;
    for (size_t s = 0; s < input.segmentCount(); ++s) {
        const uint64_t address = input.segmentAddress(s);
        const bool whole = forEachPiece(input, s, pieceMax, 1, [&](uint64_t at, const uint8_t* bytes, size_t piece) {
            for (size_t done = 0; done < piece;) {
                const size_t length = std::min<size_t>(options.recordSize, piece - done);
                out.commit(putSrecord(out.reserve(lineMax), dataType, addressSize,
                                      static_cast<uint32_t>(address + at + done), bytes + done, length, options.crlf));
                done += length;
                ++records;
            }
        });
        if (!whole)
            return false;
    }
    if (records <= 0xFFFF)
        out.commit(putSrecord(out.reserve(lineMax), 5, 2, static_cast<uint32_t>(records), nullptr, 0, options.crlf));
    else if (records <= 0xFFFFFF)
        out.commit(putSrecord(out.reserve(lineMax), 6, 3, static_cast<uint32_t>(records), nullptr, 0, options.crlf));
    out.commit(putSrecord(out.reserve(lineMax), 11 - addressSize, addressSize, static_cast<uint32_t>(srecordStart(input)),
                          nullptr, 0, options.crlf));
    return true;
}

// --- Binary ----------------------------------------------------------------------

bool writeBinary(WriterInput& input, const write_options_t& options, OutputBuffer& out)
{
    if (isEmpty(input))
        return true;
    const uint64_t lowest = input.segmentAddress(0);
    std::vector<char> fill(static_cast<size_t>(std::min<uint64_t>(highestOf(input) - lowest + 1, 64 * 1024)),
                           static_cast<char>(options.fill));
    uint64_t next = lowest;
    for (size_t s = 0; s < input.segmentCount(); ++s) {
        const uint64_t address = input.segmentAddress(s);
        for (uint64_t gap = address - next; gap > 0;) {
            const size_t take = static_cast<size_t>(std::min<uint64_t>(gap, fill.size()));
            out.put(fill.data(), take);
            gap -= take;
        }
        const bool whole = forEachPiece(input, s, PIECE, 1, [&](uint64_t, const uint8_t* bytes, size_t piece) {
            out.put(reinterpret_cast<const char*>(bytes), piece);
        });
        if (!whole)
            return false;
        next = address + input.segmentSize(s);
    }
    return true;
}

} // namespace

// The options of Intel HEX that the input cannot be written with.
result_t checkIntelHexOptions(const WriterInput& input, const write_options_t& options)
{
    if (options.recordSize < 1 || options.recordSize > 255)
        return badOptions("record size " + std::to_string(options.recordSize) + " is out of range (1 to 255)");
    if (options.addressing == addressing_t::SEGMENT && !isEmpty(input) && highestOf(input) > 0xFFFFF)
        return outOfReach("segment addressing reaches only the first MiB, and the image goes up to " +
                              hexAddress(highestOf(input)),
                          static_cast<uint32_t>(highestOf(input)));
    return result_t();
}

// The options of S-records that the input cannot be written with.
result_t checkSrecordOptions(const WriterInput& input, const write_options_t& options)
{
    if (options.addressSize != 0 && (options.addressSize < 2 || options.addressSize > 4))
        return badOptions("S-record address size " + std::to_string(options.addressSize) + " is not 2, 3 or 4");
    const unsigned addressSize = srecordAddressSize(input, options);
    const unsigned most = 255 - addressSize - 1;
    if (options.recordSize < 1 || options.recordSize > most)
        return badOptions("record size " + std::to_string(options.recordSize) + " is out of range: S-records with " +
                          std::to_string(addressSize) + "-byte addresses hold 1 to " + std::to_string(most) +
                          " data bytes");
    const uint64_t limit = (1ull << (8 * addressSize)) - 1;
    if (!isEmpty(input) && highestOf(input) > limit)
        return outOfReach("S-record address size " + std::to_string(addressSize) + " cannot hold address " +
                              hexAddress(highestOf(input)),
                          static_cast<uint32_t>(highestOf(input)));
    if (srecordStart(input) > limit)
        return outOfReach("S-record address size " + std::to_string(addressSize) + " cannot hold the start address " +
                              hexAddress(srecordStart(input)),
                          static_cast<uint32_t>(srecordStart(input)));
    return result_t();
}

// At least the size of the output: two digits a byte, and no more records
// than the record size, the 64 KiB boundaries and the segments make, with the
// longest record layout, an address record for each, and the header.
uint64_t outputBound(const WriterInput& input, const write_options_t& options)
{
    if (isEmpty(input))
        return 1024;
    if (options.format == file_format_t::BINARY)
        return highestOf(input) - input.segmentAddress(0) + 1;
    const uint64_t data = dataSizeOf(input);
    const uint64_t records = data / std::max(options.recordSize, 1u) + data / 0x10000 + 2 * input.segmentCount() + 4;
    return 2 * data + 2 * 17 * records + 1024;
}

bool writeIntelHexTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result)
{
    result = writeThrough(writeIntelHex, input, options, sink, outputBound(input, options));
    return result.ok();
}

bool writeSrecordsTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result)
{
    result = writeThrough(writeSrecords, input, options, sink, outputBound(input, options));
    return result.ok();
}

bool writeBinaryTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result)
{
    result = writeThrough(writeBinary, input, options, sink, outputBound(input, options));
    return result.ok();
}

} // namespace hexblocks::detail
