#include "support/elf_builder.h"

size_t ElfBuilder::dataEnd(const std::vector<ElfSegment>& segments) const
{
    size_t end = headerSize() + entrySize() * segments.size();
    for (const ElfSegment& s : segments)
        end += s.bytes.size();
    return end;
}

std::string ElfBuilder::build(uint64_t entry, const std::vector<ElfSegment>& segments) const
{
    std::string names(1, '\0');
    for (size_t i = 0; i < segments.size(); ++i)
        names += ".s" + std::to_string(i) + '\0';
    const size_t namesAt = names.size();
    names += std::string(".shstrtab") + '\0';
    const uint64_t namesOffset = dataEnd(segments);
    const uint64_t sectionTable = namesOffset + names.size();

    std::string file = std::string("\x7F" "ELF", 4);
    file += static_cast<char>(is64_ ? 2 : 1);
    file += static_cast<char>(big_ ? 2 : 1);
    file += '\x01';
    file.resize(16, '\0');
    put(file, 2, 2);                      // e_type: executable
    put(file, 0, 2);                      // e_machine: none
    put(file, 1, 4);                      // e_version
    put(file, entry, word());             // e_entry
    put(file, headerSize(), word());      // e_phoff
    put(file, sections_ ? sectionTable : 0, word()); // e_shoff
    put(file, 0, 4);                      // e_flags
    put(file, headerSize(), 2);           // e_ehsize
    put(file, entrySize(), 2);            // e_phentsize
    put(file, segments.size(), 2);        // e_phnum
    put(file, is64_ ? 64 : 40, 2);        // e_shentsize
    put(file, sections_ ? segments.size() + 2 : 0, 2); // e_shnum
    put(file, sections_ ? segments.size() + 1 : 0, 2); // e_shstrndx
    uint64_t offset = headerSize() + entrySize() * segments.size();
    for (const ElfSegment& s : segments) {
        put(file, s.type, 4);
        if (is64_)
            put(file, 4, 4); // p_flags
        put(file, offset, word());
        put(file, s.virtualAddress, word());
        put(file, s.physical, word());
        put(file, s.bytes.size(), word()); // p_filesz
        put(file, s.bytes.size(), word()); // p_memsz
        if (!is64_)
            put(file, 4, 4); // p_flags
        put(file, 1, word()); // p_align
        offset += s.bytes.size();
    }
    for (const ElfSegment& s : segments)
        file.append(s.bytes.begin(), s.bytes.end());
    if (!sections_)
        return file;
    file += names;
    file.append(is64_ ? 64 : 40, '\0'); // the null section
    offset = headerSize() + entrySize() * segments.size();
    size_t nameAt = 1;
    for (size_t i = 0; i < segments.size(); ++i) {
        const ElfSegment& s = segments[i];
        const bool loaded = s.type == 1;
        putSection(file, nameAt, loaded ? 1 : 0, loaded ? 2 : 0, s.virtualAddress, offset, s.bytes.size());
        nameAt += 3 + std::to_string(i).size();
        offset += s.bytes.size();
    }
    putSection(file, namesAt, 3, 0, 0, namesOffset, names.size()); // SHT_STRTAB
    return file;
}

void ElfBuilder::putSection(std::string& file, uint64_t name, uint32_t type, uint64_t flags, uint64_t address,
                uint64_t offset, uint64_t size) const
{
    put(file, name, 4);
    put(file, type, 4);
    put(file, flags, word());
    put(file, address, word());
    put(file, offset, word());
    put(file, size, word());
    put(file, 0, 4);      // sh_link
    put(file, 0, 4);      // sh_info
    put(file, 1, word()); // sh_addralign
    put(file, 0, word()); // sh_entsize
}

void ElfBuilder::put(std::string& file, uint64_t value, size_t size) const
{
    for (size_t i = 0; i < size; ++i) {
        const size_t shift = 8 * (big_ ? size - 1 - i : i);
        file += static_cast<char>(value >> shift & 0xFF);
    }
}
