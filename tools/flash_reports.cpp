#include "flash_reports.h"

#include "text_format.h"

#include <ostream>
#include <vector>

namespace hexblocks::cli {

namespace {


std::string plural(uint64_t count, const char* one, const char* many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

const char* kindName(difference_t::kind_t kind)
{
    switch (kind) {
    case difference_t::kind_t::ONLY_IMAGE: return "only_a";
    case difference_t::kind_t::ONLY_OTHER: return "only_b";
    case difference_t::kind_t::DIFFER: break;
    }
    return "differ";
}

std::string startAddressJson(const MemoryImage& image)
{
    if (!image.hasStartAddress())
        return "null";
    return "{\"type\": " + std::to_string(image.startAddress().type) +
           ", \"value\": " + std::to_string(image.startAddress().value) + "}";
}

std::string startAddressOf(const MemoryImage& image, const char* name)
{
    if (!image.hasStartAddress())
        return std::string("none in ") + name;
    return startAddressText(image.startAddress().type, image.startAddress().value) + " in " + name;
}

} // namespace

std::string sectorSizeText(uint64_t size)
{
    if (size % (1024 * 1024) == 0)
        return std::to_string(size / (1024 * 1024)) + "M";
    if (size % 1024 == 0)
        return std::to_string(size / 1024) + "K";
    return std::to_string(size);
}

void printPlan(const FlashPlan& plan, std::ostream& out)
{
    const std::vector<FlashPlan::sector_t>& sectors = plan.eraseList();
    for (size_t i = 0; i < sectors.size();) {
        // Adjacent sectors of the same size and flag share a line.
        size_t j = i + 1;
        while (j < sectors.size() && sectors[j].size == sectors[i].size && sectors[j].partial == sectors[i].partial &&
               sectors[j].address == static_cast<uint64_t>(sectors[j - 1].address) + sectors[j - 1].size)
            ++j;
        const uint64_t end = static_cast<uint64_t>(sectors[j - 1].address) + sectors[j - 1].size;
        out << "erase  " << addressRange(sectors[i].address, end) << "  " << (j - i) << " x "
            << sectorSizeText(sectors[i].size) << (sectors[i].partial ? "  partial" : "") << "\n";
        i = j;
    }
    const uint32_t pageSize = plan.geometry().pageSize;
    for (const range_t& run : plan.writeList())
        out << "write  " << addressRange(run.start, run.end) << "  " << plural(run.size() / pageSize, "page", "pages")
            << "\n";
    out << "total  erase " << plural(plan.eraseBytes(), "byte", "bytes") << " in "
        << plural(sectors.size(), "sector", "sectors") << " (" << plan.partialSectors() << " partial), write "
        << plural(plan.writeBytes(), "byte", "bytes") << " in " << plural(plan.writePages(), "page", "pages")
        << " of " << pageSize << ", " << plural(plan.skippedBlank(), "blank page", "blank pages") << " skipped"
        << std::endl;
}

void printPlanJson(const FlashPlan& plan, std::ostream& out)
{
    out << "{\n  \"erase\": [";
    const char* separator = "\n";
    for (const FlashPlan::sector_t& s : plan.eraseList()) {
        out << separator << "    {\"address\": " << s.address << ", \"size\": " << s.size
            << ", \"partial\": " << (s.partial ? "true" : "false") << "}";
        separator = ",\n";
    }
    out << (plan.eraseList().empty() ? "],\n" : "\n  ],\n") << "  \"write\": [";
    const uint32_t pageSize = plan.geometry().pageSize;
    separator = "\n";
    for (const range_t& run : plan.writeList()) {
        for (uint64_t page = run.start; page < run.end; page += pageSize) {
            out << separator << "    {\"address\": " << page << ", \"size\": " << pageSize << "}";
            separator = ",\n";
        }
    }
    out << (plan.writeList().empty() ? "],\n" : "\n  ],\n");
    out << "  \"skipped_blank\": " << plan.skippedBlank() << ",\n  \"page_size\": " << pageSize
        << ",\n  \"partial_sectors\": " << plan.partialSectors() << ",\n  \"erase_bytes\": " << plan.eraseBytes()
        << ",\n  \"write_bytes\": " << plan.writeBytes() << "\n}" << std::endl;
}

void printVerify(const verify_result_t& result, std::ostream& out)
{
    for (const mismatch_t& m : result.first)
        out << hexAddress(m.address) << "  expected " << hexNumber(m.expected, 2) << "  found "
            << hexNumber(m.found, 2) << "\n";
    out << plural(result.compared, "byte", "bytes") << " compared, "
        << plural(result.mismatches, "mismatch", "mismatches") << ", " << result.notCovered << " not covered";
    if (result.notCovered > 0)
        out << " (from " << hexAddress(result.firstNotCovered) << ")";
    out << ": " << (result.ok() ? "OK" : "FAILED") << std::endl;
}

void printVerifyJson(const verify_result_t& result, std::ostream& out)
{
    out << "{\n  \"compared\": " << result.compared << ",\n  \"mismatches\": " << result.mismatches
        << ",\n  \"not_covered\": " << result.notCovered << ",\n  \"first_not_covered\": ";
    if (result.notCovered > 0)
        out << result.firstNotCovered;
    else
        out << "null";
    out << ",\n  \"first\": [";
    const char* separator = "\n";
    for (const mismatch_t& m : result.first) {
        out << separator << "    {\"address\": " << m.address << ", \"expected\": " << static_cast<unsigned>(m.expected)
            << ", \"found\": " << static_cast<unsigned>(m.found) << "}";
        separator = ",\n";
    }
    out << (result.first.empty() ? "],\n" : "\n  ],\n") << "  \"ok\": " << (result.ok() ? "true" : "false") << "\n}"
        << std::endl;
}

void printDiff(const diff_result_t& result, const MemoryImage& a, const MemoryImage& b, std::ostream& out)
{
    using kind_t = difference_t::kind_t;
    for (const difference_t& d : result.ranges) {
        out << addressRange(d.start, d.end) << "  "
            << (d.kind == kind_t::DIFFER ? "differ" : d.kind == kind_t::ONLY_IMAGE ? "only in A" : "only in B") << " ("
            << plural(d.bytes, "byte", "bytes") << ")\n";
    }
    if (result.startDiffers)
        out << "start address: " << startAddressOf(a, "A") << ", " << startAddressOf(b, "B") << "\n";
    out.flush();
}

void printDiffJson(const diff_result_t& result, const MemoryImage& a, const MemoryImage& b,
                   std::ostream& out)
{
    out << "{\n  \"ranges\": [";
    const char* separator = "\n";
    for (const difference_t& d : result.ranges) {
        out << separator << "    {\"start\": " << d.start << ", \"end\": " << d.end << ", \"kind\": \""
            << kindName(d.kind) << "\", \"bytes\": " << d.bytes << "}";
        separator = ",\n";
    }
    out << (result.ranges.empty() ? "],\n" : "\n  ],\n") << "  \"start_address\": {\"a\": " << startAddressJson(a)
        << ", \"b\": " << startAddressJson(b) << ", \"differ\": " << (result.startDiffers ? "true" : "false")
        << "},\n  \"equal\": " << (result.equal() ? "true" : "false") << "\n}" << std::endl;
}

} // namespace hexblocks::cli
