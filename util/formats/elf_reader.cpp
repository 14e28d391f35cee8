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
    uint64_t shoff;
    uint32_t shentsize;
    uint32_t shnum;
    uint32_t shstrndx;
};

struct loadsegment_t {
    size_t index; // in the program header table
    uint64_t offset;
    uint64_t fileSize;
    uint64_t physical;
    uint64_t virtualAddress;
};

// An allocated section with contents in the file.
struct section_t {
    std::string name; // ".text"; "section 3" when it has none
    uint64_t offset;
    uint64_t size;
    uint64_t address; // its virtual address
};

// Bytes of the file that become data: a section, or a whole segment when the
// file has no section headers.
struct loadpiece_t {
    std::string name; // "section 3", "segment 1"
    uint64_t offset;
    uint64_t size;
    uint64_t address; // the load address
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
template <typename Ehdr, typename Phdr, typename Shdr> class ElfClassReader {
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
        header.shoff = fromFile(e.e_shoff, swap_);
        header.shentsize = fromFile(e.e_shentsize, swap_);
        header.shnum = fromFile(e.e_shnum, swap_);
        header.shstrndx = fromFile(e.e_shstrndx, swap_);
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

    // The allocated sections with contents; none when the file has no
    // section headers. A file with 65280 or more sections gives their count
    // in the first section header.
    bool readSections(header_t& header, std::vector<section_t>& sections, std::string& reason)
    {
        if (header.shoff == 0)
            return true;
        if (header.shentsize < sizeof(Shdr)) {
            reason = "bad ELF file: section header entries of " + std::to_string(header.shentsize) +
                     " bytes, less than " + std::to_string(sizeof(Shdr));
            return false;
        }
        uint64_t count = header.shnum;
        for (uint64_t i = 0; i < count || (i == 0 && count == 0); ++i) {
            Shdr sh;
            if (!source_.readAt(header.shoff + i * header.shentsize, &sh, sizeof sh)) {
                reason = "truncated ELF file: section header " + std::to_string(i) + " lies past its end";
                return false;
            }
            if (i == 0 && count == 0) {
                count = fromFile(sh.sh_size, swap_);
                if (count == 0)
                    return true;
            }
            if (i == 0 && header.shstrndx == SHN_XINDEX)
                header.shstrndx = fromFile(sh.sh_link, swap_);
            if (i == 0)
                continue;
            const uint64_t flags = fromFile(sh.sh_flags, swap_);
            const uint64_t size = fromFile(sh.sh_size, swap_);
            if ((flags & SHF_ALLOC) == 0 || fromFile(sh.sh_type, swap_) == SHT_NOBITS || size == 0)
                continue;
            sections.push_back(section_t{sectionName(header, fromFile(sh.sh_name, swap_), i),
                                         fromFile(sh.sh_offset, swap_), size, fromFile(sh.sh_addr, swap_)});
        }
        return true;
    }

    // The name of section index from the table of names, for messages;
    // "section N" when it cannot be had.
    std::string sectionName(const header_t& header, uint32_t nameOffset, uint64_t index)
    {
        const std::string fallback = "section " + std::to_string(index);
        Shdr names;
        if (header.shstrndx == SHN_UNDEF ||
            !source_.readAt(header.shoff + static_cast<uint64_t>(header.shstrndx) * header.shentsize, &names,
                            sizeof names))
            return fallback;
        const uint64_t size = fromFile(names.sh_size, swap_);
        if (nameOffset >= size)
            return fallback;
        char name[64] = {};
        const size_t length = static_cast<size_t>(std::min<uint64_t>(sizeof name - 1, size - nameOffset));
        if (!source_.readAt(fromFile(names.sh_offset, swap_) + nameOffset, name, length) || name[0] == '\0')
            return fallback;
        return "section " + std::string(name);
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

// The data of a file without section headers: its load segments whole.
std::vector<loadpiece_t> wholeSegments(const std::vector<loadsegment_t>& segments)
{
    std::vector<loadpiece_t> pieces;
    for (const loadsegment_t& s : segments)
        pieces.push_back(loadpiece_t{"segment " + std::to_string(s.index), s.offset, s.fileSize, s.physical});
    return pieces;
}

// The data of a file with section headers: each allocated section with
// contents, at the load address of the segment that holds its bytes in the
// file (where a section's run-time address differs, such as .data, which is
// copied from flash to RAM at start-up), or at its own address when no
// segment holds it. Bytes of a segment that no section covers (the ELF
// headers that some linker scripts load, padding) are not data.
std::vector<loadpiece_t> placeSections(const std::vector<section_t>& sections,
                                       const std::vector<loadsegment_t>& segments)
{
    std::vector<loadpiece_t> pieces;
    for (const section_t& s : sections) {
        uint64_t address = s.address;
        for (const loadsegment_t& segment : segments)
            if (s.offset >= segment.offset && s.offset - segment.offset <= segment.fileSize &&
                s.size <= segment.fileSize - (s.offset - segment.offset)) {
                address = segment.physical + (s.offset - segment.offset);
                break;
            }
        pieces.push_back(loadpiece_t{s.name, s.offset, s.size, address});
    }
    return pieces;
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
    std::vector<section_t> sections;
    std::string reason;
    bool ok;
    if (ident[EI_CLASS] == ELFCLASS32) {
        ElfClassReader<Elf32_Ehdr, Elf32_Phdr, Elf32_Shdr> reader(source, swap);
        ok = reader.readHeader(header, reason) && reader.readSegments(header, segments, reason) &&
             reader.readSections(header, sections, reason);
    } else {
        ElfClassReader<Elf64_Ehdr, Elf64_Phdr, Elf64_Shdr> reader(source, swap);
        ok = reader.readHeader(header, reason) && reader.readSegments(header, segments, reason) &&
             reader.readSections(header, sections, reason);
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
    for (const loadsegment_t& s : segments)
        if (s.offset > source.size() || s.fileSize > source.size() - s.offset)
            return failure<read_result_t>(status_t::SYNTAX, "truncated ELF file: segment " + std::to_string(s.index) + " needs bytes " +
                           std::to_string(s.offset) + " to " + std::to_string(s.offset + s.fileSize) +
                           ", the file has " + std::to_string(source.size()));
    std::vector<loadpiece_t> pieces = sections.empty() && header.shoff == 0 ? wholeSegments(segments)
                                                                            : placeSections(sections, segments);
    for (const loadpiece_t& p : pieces) {
        if (p.offset > source.size() || p.size > source.size() - p.offset)
            return failure<read_result_t>(status_t::SYNTAX, "truncated ELF file: " + p.name + " needs bytes " +
                           std::to_string(p.offset) + " to " + std::to_string(p.offset + p.size) +
                           ", the file has " + std::to_string(source.size()));
        if (p.address >= ADDRESS_SPACE || p.size > ADDRESS_SPACE - p.address)
            return failure<read_result_t>(status_t::OUT_OF_RANGE, p.name + " at " + hexAddress(p.address) + " (" +
                                                                      std::to_string(p.size) +
                                                                      " bytes) lies outside the 32-bit address space");
    }
    std::sort(pieces.begin(), pieces.end(),
              [](const loadpiece_t& a, const loadpiece_t& b) { return a.address < b.address; });
    for (size_t i = 1; i < pieces.size(); ++i)
        if (pieces[i].address < pieces[i - 1].address + pieces[i - 1].size)
            return failedReadAt(status_t::OVERLAP,
                                pieces[i - 1].name + " and " + pieces[i].name + " overlap at " +
                                    hexAddress(pieces[i].address),
                                pieces[i].address);

    // Pieces that meet are joined; each is read straight into its place.
    std::vector<segment_t> joined;
    for (size_t i = 0; i < pieces.size();) {
        size_t j = i + 1;
        uint64_t end = pieces[i].address + pieces[i].size;
        while (j < pieces.size() && pieces[j].address == end)
            end += pieces[j++].size;
        segment_t segment{static_cast<uint32_t>(pieces[i].address), {}};
        const uint64_t size = end - pieces[i].address;
        if (size > std::numeric_limits<size_t>::max())
            return failedReadAt(status_t::OUT_OF_MEMORY,
                                "out of memory for " + std::to_string(size) + " bytes at " +
                                    hexAddress(pieces[i].address),
                                pieces[i].address);
        try {
            segment.bytes.resize(static_cast<size_t>(size));
        } catch (const std::bad_alloc&) {
            return failedReadAt(status_t::OUT_OF_MEMORY,
                                "out of memory for " + std::to_string(size) + " bytes at " +
                                    hexAddress(pieces[i].address),
                                pieces[i].address);
        }
        for (size_t k = i; k < j; ++k)
            if (!source.readAt(pieces[k].offset, segment.bytes.data() + (pieces[k].address - pieces[i].address),
                               static_cast<size_t>(pieces[k].size)))
                return failure<read_result_t>(status_t::CANNOT_READ, std::string("cannot read the file: ") + std::strerror(errno));
        joined.push_back(std::move(segment));
        i = j;
    }
    ImageBuilder::assign(image, std::move(joined), header.entry != 0 ? 5 : 0,
                               static_cast<uint32_t>(header.entry), std::string());
    return read_result_t();
}

} // namespace hexblocks::detail
