#include "full_format_reader.h"

#include "record_assembler.h"

#include <cerrno>
#include <cstring>

namespace hexblocks::detail {

namespace {

// Interprets the records of source for an assembler: data records become
// pieces, the other types set the base or the start address.
template <typename Assembler> class RecordInterpreter {
public:
    RecordInterpreter(Assembler& assembler, fullread_t& read) : assembler_(assembler), read_(read) {}

    // False when the assembler gave up; read_ tells the rest.
    bool run(TextSource& source)
    {
        scanInto<linerules_t::FULL_FORMAT, Assembler>(source, read_, *this);
        return !gaveUp_;
    }

    uint8_t startType() const { return startType_; }
    uint32_t startValue() const { return startValue_; }
    std::string header() const { return std::string(); }

    // For scanInto: a run of data records, and any record.
    bool takeRun(const datarun_t& run)
    {
        if (assembler_.addRun(base_ + run.address, run.data, run.length))
            return true;
        gaveUp_ = true;
        return false;
    }

    HEXBLOCKS_ALWAYS_INLINE bool take(const scannedrecord_t& record)
    {
        // The usual record: data that does not run past offset 0xFFFF.
        if (record.type == 0x00 && record.offset + record.length <= 0x10000u && record.length > 0) {
            const piece_t piece{base_ + record.offset, record.data, record.length};
            if (assembler_.addRecord(&piece, 1, record.line))
                return true;
            gaveUp_ = true;
            return false;
        }
        return takeOther(record);
    }

private:
    static std::string textOf(const scannedrecord_t& record) { return std::string(record.text, record.textLength); }

    // Any other record.
    bool takeOther(const scannedrecord_t& record)
    {
        switch (record.type) {
        case 0x00:
            return takeData(record);
        case 0x02:
        case 0x04:
            if (record.length != 2)
                return failRecord(read_, record, std::string(record.type == 0x02 ? "extended segment" : "extended linear") +
                                             " address record needs 2 data bytes");
            segmented_ = record.type == 0x02;
            base_ = segmented_ ? static_cast<uint32_t>(record.data[0] << 8 | record.data[1]) * 16
                               : static_cast<uint32_t>(record.data[0] << 8 | record.data[1]) << 16;
            return true;
        case 0x03:
        case 0x05:
            return takeStart(record);
        default:
            failRead(read_, fullread_t::status_t::UNSUPPORTED_TYPE, record.line, "", textOf(record));
            read_.type = record.type;
            return false;
        }
    }

    bool takeStart(const scannedrecord_t& record)
    {
        if (record.length != 4)
            return failRecord(read_, record, std::string(record.type == 0x03 ? "start segment" : "start linear") +
                                         " address record needs 4 data bytes");
        const uint32_t value = static_cast<uint32_t>(record.data[0]) << 24 |
                               static_cast<uint32_t>(record.data[1]) << 16 |
                               static_cast<uint32_t>(record.data[2]) << 8 | record.data[3];
        if (startType_ == 0) {
            startType_ = record.type;
            startValue_ = value;
        } else if (startType_ != record.type || startValue_ != value) {
            read_.ignoredStartLines.push_back(record.line); // the first one wins
        }
        return true;
    }

    // A data record as one or two pieces: segment offsets wrap at 64 KiB, and
    // full addresses at 4 GiB. Linear bases are multiples of 64 KiB, so either
    // can only happen to a record that runs past its offset 0xFFFF.
    bool takeData(const scannedrecord_t& record)
    {
        if (record.length == 0)
            return true;
        const uint32_t address = base_ + record.offset;
        piece_t pieces[2];
        pieces[0] = piece_t{address, record.data, record.length};
        size_t count = 1;
        if (record.offset + record.length > 0x10000u) {
            const uint64_t room = segmented_ ? 0x10000u - record.offset : 0x100000000ull - address;
            if (record.length > room) {
                pieces[0].length = static_cast<uint32_t>(room);
                pieces[1] = {segmented_ ? base_ : 0, record.data + room, static_cast<uint32_t>(record.length - room)};
                count = 2;
            }
        }
        if (assembler_.addRecord(pieces, count, record.line))
            return true;
        gaveUp_ = true;
        return false;
    }

    Assembler& assembler_;
    fullread_t& read_;
    bool segmented_ = false;
    uint32_t base_ = 0;
    uint8_t startType_ = 0;
    uint32_t startValue_ = 0;
    bool gaveUp_ = false;
};

} // namespace

fullread_t readFullFormat(TextSource& source, MemoryImage& image, const assembly_t& assembly)
{
    return readRecords<RecordInterpreter>(source, image, assembly);
}

size_t locateFullFormat(TextSource& source, uint32_t address)
{
    return locateRecord<RecordInterpreter>(source, address);
}

} // namespace hexblocks::detail
