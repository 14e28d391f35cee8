#include "srecord_reader.h"

#include <cerrno>
#include <cstring>
#include <string>

namespace hexblocks::detail {

namespace {

// Interprets S-records for an assembler: data records become pieces, S0
// gives the header, S5 and S6 are checked against the data records before
// them, and S7 to S9 give the start address and end the file.
template <typename Assembler> class SrecordInterpreter {
public:
    SrecordInterpreter(Assembler& assembler, fullread_t& read) : assembler_(assembler), read_(read)
    {
        read_.endRecordName = "a termination record (S7, S8 or S9)";
    }

    // False when the assembler gave up; read_ tells the rest.
    bool run(TextSource& source)
    {
        scanInto<linerules_t::SRECORD, Assembler>(source, read_, *this);
        return !gaveUp_;
    }

    uint8_t startType() const { return start_ != 0 ? 5 : 0; }
    uint32_t startValue() const { return start_; }
    std::string header() const { return header_; }

    // For scanInto: a run of data records, and any record.
    bool takeRun(const datarun_t& run)
    {
        dataRecords_ += run.records;
        if (assembler_.addRun(run.address, run.data, run.length))
            return true;
        gaveUp_ = true;
        return false;
    }

    HEXBLOCKS_ALWAYS_INLINE bool take(const scannedrecord_t& record)
    {
        // The usual record: data, within the 32-bit address space.
        if (record.type >= 1 && record.type <= 3 && record.length > 0 &&
            static_cast<uint64_t>(record.address) + record.length <= 0x100000000ull) {
            ++dataRecords_;
            const piece_t piece{record.address, record.data, record.length};
            if (assembler_.addRecord(&piece, 1, record.line))
                return true;
            gaveUp_ = true;
            return false;
        }
        return takeOther(record);
    }

private:
    // Any other record. (It comes by value, so that the usual record need
    // not be kept in memory for this call.)
    bool takeOther(scannedrecord_t record)
    {
        switch (record.type) {
        case 0:
            if (!sawHeader_)
                header_.assign(reinterpret_cast<const char*>(record.data), record.length);
            sawHeader_ = true;
            return true;
        case 1:
        case 2:
        case 3:
            return takeData(record);
        case 5:
        case 6:
            return checkCount(record);
        case 7:
        case 8:
        case 9:
            if (record.length != 0)
                return failRecord(read_, record, "a termination record holds no data");
            // Writers put 0 here when there is no start address.
            start_ = record.address;
            return true;
        default:
            failRead(read_, fullread_t::status_t::UNSUPPORTED_TYPE, record.line, "unsupported record type S" +
                                                                          std::to_string(record.type),
                 std::string(record.text, record.textLength));
            read_.type = record.type;
            return false;
        }
    }

    bool takeData(const scannedrecord_t& record)
    {
        ++dataRecords_;
        if (record.length == 0)
            return true;
        if (static_cast<uint64_t>(record.address) + record.length > 0x100000000ull)
            return failRecord(read_, record, "the record's data runs past address 0xFFFFFFFF");
        const piece_t piece{record.address, record.data, record.length};
        if (assembler_.addRecord(&piece, 1, record.line))
            return true;
        gaveUp_ = true;
        return false;
    }

    bool checkCount(const scannedrecord_t& record)
    {
        if (record.length != 0)
            return failRecord(read_, record, "a count record holds no data");
        if (record.address != dataRecords_)
            return failRecord(read_, record, "record count " + std::to_string(record.address) + " does not match the " +
                                         std::to_string(dataRecords_) + " data records before it");
        return true;
    }

    Assembler& assembler_;
    fullread_t& read_;
    std::string header_;
    bool sawHeader_ = false;
    uint32_t start_ = 0;
    uint64_t dataRecords_ = 0;
    bool gaveUp_ = false;
};

} // namespace

fullread_t readSrecords(TextSource& source, MemoryImage& image, const assembly_t& assembly)
{
    return readRecords<SrecordInterpreter>(source, image, assembly);
}

size_t locateSrecord(TextSource& source, uint32_t address)
{
    return locateRecord<SrecordInterpreter>(source, address);
}

} // namespace hexblocks::detail
