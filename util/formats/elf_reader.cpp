#include "elf_reader.h"

#include "hex_format.h"
#include "image_builder.h"
#include "record_assembler.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <elf.h>
#include <unistd.h>

namespace hexblocks::detail {

bool MemoryBytes::readAt(uint64_t offset, void* out, size_t length)
{
    if (offset > size_ || length > size_ - offset)
        return false;
    std::memcpy(out, bytes_ + offset, length);
    return true;
}

bool DescriptorBytes::readAt(uint64_t offset, void* out, size_t length)
{
    if (offset > size_ || length > size_ - offset)
        return false;
    uint8_t* to = static_cast<uint8_t*>(out);
    while (length > 0) {
        const ssize_t got = ::pread(fd_, to, length, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        to += got;
        offset += static_cast<uint64_t>(got);
        length -= static_cast<size_t>(got);
    }
    return true;
}

namespace {

const uint64_t ADDRESS_SPACE = 0x100000000ull;

// The header fields and program header fields the reader uses, in the
// host's byte order, whatever the file's class and byte order.
struct header_t {
    uint64_t entry;
    uint64_t phoff;
    uint32_t phentsize;
    uint32_t phnum;
};

struct loadsegment_t {
    size_t index; // in the program header table
    uint64_t offset;
    uint64_t fileSize;
    uint64_t physical;
    uint64_t virtualAddress;
};

template <typename T> T fromFile(T value, bool swap)
{
    if (!swap)
        return value;
    T swapped = 0;
    for (size_t i = 0; i < sizeof(T); ++i) {
        swapped = static_cast<T>(swapped << 8 | (value & 0xFF));
        value = static_cast<T>(value >> 8);
    }
    return swapped;
}

bool hostIsLittleEndian()
{
    const uint16_t one = 1;
    uint8_t first = 0;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

// Reads the file's program headers for one class of ELF (Ehdr, Phdr).
template <typename Ehdr, typename Phdr> class ElfClassReader {
public:
    ElfClassReader(ByteSource& source, bool swap) : source_(source), swap_(swap) {}

    bool readHeader(header_t& header, std::string& reason)
    {
        Ehdr e;
        if (!source_.readAt(0, &e, sizeof e)) {
            reason = "truncated ELF file: the header needs " + std::to_string(sizeof e) + " bytes, the file has " +
                     std::to_string(source_.size());
            return false;
        }
        header.entry = fromFile(e.e_entry, swap_);
        header.phoff = fromFile(e.e_phoff, swap_);
        header.phentsize = fromFile(e.e_phentsize, swap_);
        header.phnum = fromFile(e.e_phnum, swap_);
        if (header.phnum == PN_XNUM) {
            reason = "ELF files with 65535 or more program headers are not supported";
            return false;
        }
        if (header.phnum > 0 && header.phentsize < sizeof(Phdr)) {
            reason = "bad ELF file: program header entries of " + std::to_string(header.phentsize) +
                     " bytes, less than " + std::to_string(sizeof(Phdr));
            return false;
        }
        return true;
    }

    bool readSegments(const header_t& header, std::vector<loadsegment_t>& segments, std::string& reason)
    {
        for (uint32_t i = 0; i < header.phnum; ++i) {
            Phdr p;
            if (!source_.readAt(header.phoff + static_cast<uint64_t>(i) * header.phentsize, &p, sizeof p)) {
                reason = "truncated ELF file: program header " + std::to_string(i) + " lies past its end";
                return false;
            }
            if (fromFile(p.p_type, swap_) != PT_LOAD)
                continue;
            segments.push_back(loadsegment_t{i, fromFile(p.p_offset, swap_), fromFile(p.p_filesz, swap_),
                                             fromFile(p.p_paddr, swap_), fromFile(p.p_vaddr, swap_)});
        }
        return true;
    }

private:
    ByteSource& source_;
    bool swap_;
};


read_result_t failedReadAt(status_t status, const std::string& reason, uint64_t address)
{
    read_result_t result = failure<read_result_t>(status, reason);
    if (address < ADDRESS_SPACE)
        result.address = static_cast<uint32_t>(address);
    return result;
}

// Where each segment goes: its physical address, unless every segment has
// physical address 0, which means the linker left them unset and the
// virtual addresses are the load addresses.
void chooseLoadAddresses(std::vector<loadsegment_t>& segments)
{
    const bool allZero = std::all_of(segments.begin(), segments.end(),
                                     [](const loadsegment_t& s) { return s.physical == 0; });
    if (allZero)
        for (loadsegment_t& s : segments)
            s.physical = s.virtualAddress;
}

} // namespace

read_result_t readElf(ByteSource& source, MemoryImage& image)
{
    unsigned char ident[EI_NIDENT] = {};
    const bool haveIdent = source.readAt(0, ident, sizeof ident);
    if (!haveIdent && source.size() >= SELFMAG)
        source.readAt(0, ident, SELFMAG);
    if (source.size() < SELFMAG || std::memcmp(ident, ELFMAG, SELFMAG) != 0)
        return failure<read_result_t>(status_t::SYNTAX, "not an ELF file: it does not start with the ELF magic bytes");
    if (!haveIdent)
        return failure<read_result_t>(status_t::SYNTAX, "truncated ELF file: " + std::to_string(source.size()) + " bytes");
    if (ident[EI_CLASS] != ELFCLASS32 && ident[EI_CLASS] != ELFCLASS64)
        return failure<read_result_t>(status_t::UNSUPPORTED, "bad ELF file: unknown class " + std::to_string(ident[EI_CLASS]));
    if (ident[EI_DATA] != ELFDATA2LSB && ident[EI_DATA] != ELFDATA2MSB)
        return failure<read_result_t>(status_t::UNSUPPORTED, "bad ELF file: unknown byte order " + std::to_string(ident[EI_DATA]));
    const bool swap = (ident[EI_DATA] == ELFDATA2LSB) != hostIsLittleEndian();

    header_t header{};
    std::vector<loadsegment_t> segments;
    std::string reason;
    bool ok;
    if (ident[EI_CLASS] == ELFCLASS32) {
        ElfClassReader<Elf32_Ehdr, Elf32_Phdr> reader(source, swap);
        ok = reader.readHeader(header, reason) && reader.readSegments(header, segments, reason);
    } else {
        ElfClassReader<Elf64_Ehdr, Elf64_Phdr> reader(source, swap);
        ok = reader.readHeader(header, reason) && reader.readSegments(header, segments, reason);
    }
    if (!ok)
        return failure<read_result_t>(status_t::SYNTAX, reason);
    if (header.phnum == 0)
        return failure<read_result_t>(status_t::UNSUPPORTED, "no program headers: a relocatable object file, not a linked program");
    if (header.entry >= ADDRESS_SPACE)
        return failure<read_result_t>(status_t::OUT_OF_RANGE,
                          "the entry point " + hexAddress(header.entry) + " lies outside the 32-bit address space");

    segments.erase(std::remove_if(segments.begin(), segments.end(), [](const loadsegment_t& s) { return s.fileSize == 0; }),
                   segments.end());
    chooseLoadAddresses(segments);
    for (const loadsegment_t& s : segments) {
        if (s.offset > source.size() || s.fileSize > source.size() - s.offset)
            return failure<read_result_t>(status_t::SYNTAX, "truncated ELF file: segment " + std::to_string(s.index) + " needs bytes " +
                           std::to_string(s.offset) + " to " + std::to_string(s.offset + s.fileSize) +
                           ", the file has " + std::to_string(source.size()));
        if (s.physical >= ADDRESS_SPACE || s.fileSize > ADDRESS_SPACE - s.physical)
            return failure<read_result_t>(status_t::OUT_OF_RANGE, "segment " + std::to_string(s.index) + " at " +
                                                          hexAddress(s.physical) + " (" + std::to_string(s.fileSize) +
                                                          " bytes) lies outside the 32-bit address space");
    }
    std::sort(segments.begin(), segments.end(),
              [](const loadsegment_t& a, const loadsegment_t& b) { return a.physical < b.physical; });
    for (size_t i = 1; i < segments.size(); ++i)
        if (segments[i].physical < segments[i - 1].physical + segments[i - 1].fileSize)
            return failedReadAt(status_t::OVERLAP,
                                "segments " + std::to_string(segments[i - 1].index) + " and " +
                                    std::to_string(segments[i].index) + " overlap at " +
                                    hexAddress(segments[i].physical),
                                segments[i].physical);

    // Segments that meet are joined; each is read straight into its place.
    std::vector<segment_t> joined;
    for (size_t i = 0; i < segments.size();) {
        size_t j = i + 1;
        uint64_t end = segments[i].physical + segments[i].fileSize;
        while (j < segments.size() && segments[j].physical == end)
            end += segments[j++].fileSize;
        segment_t segment{static_cast<uint32_t>(segments[i].physical), {}};
        const uint64_t size = end - segments[i].physical;
        if (size > std::numeric_limits<size_t>::max())
            return failedReadAt(status_t::OUT_OF_MEMORY,
                                "out of memory for " + std::to_string(size) + " bytes at " +
                                    hexAddress(segments[i].physical),
                                segments[i].physical);
        try {
            segment.bytes.resize(static_cast<size_t>(size));
        } catch (const std::bad_alloc&) {
            return failedReadAt(status_t::OUT_OF_MEMORY,
                                "out of memory for " + std::to_string(size) + " bytes at " +
                                    hexAddress(segments[i].physical),
                                segments[i].physical);
        }
        for (size_t k = i; k < j; ++k)
            if (!source.readAt(segments[k].offset, segment.bytes.data() + (segments[k].physical - segments[i].physical),
                               static_cast<size_t>(segments[k].fileSize)))
                return failure<read_result_t>(status_t::CANNOT_READ, std::string("cannot read the file: ") + std::strerror(errno));
        joined.push_back(std::move(segment));
        i = j;
    }
    ImageBuilder::assign(image, std::move(joined), header.entry != 0 ? 5 : 0,
                               static_cast<uint32_t>(header.entry), std::string());
    return read_result_t();
}

} // namespace hexblocks::detail
