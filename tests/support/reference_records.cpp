#include "support/reference_records.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace hexblocks;

namespace {

std::vector<uint8_t> bytesOf(const std::string& digits)
{
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

uint32_t bigEndian(const std::vector<uint8_t>& bytes, size_t from, size_t count)
{
    uint32_t value = 0;
    for (size_t i = 0; i < count; ++i)
        value = value << 8 | bytes[from + i];
    return value;
}

} // namespace

ReferenceRecords readHexReference(const std::string& text)
{
    ReferenceRecords result;
    std::istringstream lines(text);
    std::string line;
    uint32_t base = 0;
    while (std::getline(lines, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty())
            continue;
        if (line[0] != ':') {
            result.error = "not a record: " + line;
            return result;
        }
        const std::vector<uint8_t> b = bytesOf(line.substr(1));
        const uint8_t type = b[3];
        const std::vector<uint8_t> data(b.begin() + 4, b.end() - 1);
        if (type == 0)
            result.records.push_back({base + bigEndian(b, 1, 2), data});
        else if (type == 1)
            break;
        else if (type == 2)
            base = bigEndian(data, 0, 2) * 16;
        else if (type == 4)
            base = bigEndian(data, 0, 2) << 16;
        else if (type == 3 || type == 5) {
            result.hasStart = true;
            result.start = type == 5 ? bigEndian(data, 0, 4) : bigEndian(data, 0, 2) * 16 + bigEndian(data, 2, 2);
        }
    }
    return result;
}

ReferenceRecords readSrecordReference(const std::string& text)
{
    ReferenceRecords result;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty())
            continue;
        if (line.size() < 4 || line[0] != 'S') {
            result.error = "not a record: " + line;
            return result;
        }
        const int type = line[1] - '0';
        const std::vector<uint8_t> b = bytesOf(line.substr(2));
        const size_t addressSize = type == 1 || type == 9 ? 2 : type == 2 || type == 8 ? 3 : 4;
        if (type >= 1 && type <= 3)
            result.records.push_back(
                {bigEndian(b, 1, addressSize), std::vector<uint8_t>(b.begin() + 1 + addressSize, b.end() - 1)});
        if (type >= 7 && type <= 9) {
            result.start = bigEndian(b, 1, addressSize);
            result.hasStart = result.start != 0;
            break;
        }
    }
    return result;
}

void expectSameData(const MemoryImage& image, const ReferenceRecords& records, const std::string& what)
{
    ASSERT_EQ(records.error, "") << what;
    uint64_t bytes = 0;
    for (const SegmentView& r : records.records) {
        bytes += r.bytes.size();
        ASSERT_EQ(image.copyRange(r.address, r.bytes.size(), 0), r.bytes) << what << ": record at " << r.address;
        for (size_t i = 0; i < r.bytes.size(); ++i)
            ASSERT_TRUE(image.hasDataAt(static_cast<uint32_t>(r.address + i))) << what << ": " << r.address + i;
    }
    EXPECT_EQ(bytes, image.dataSize()) << what;
}
