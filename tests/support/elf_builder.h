// Builds small ELF files for the tests: the header, the program headers
// right after it, each segment's bytes in turn, then the names of the
// sections and the section header table: a null section, one section for
// each segment (objcopy works on sections) named .s0, .s1, ..., and the
// table of names. Segments of another type than PT_LOAD get a section that
// is not allocated.
#ifndef HEXBLOCKS_TESTS_ELF_BUILDER_H
#define HEXBLOCKS_TESTS_ELF_BUILDER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct ElfSegment {
    uint32_t type; // PT_LOAD = 1
    uint64_t physical;
    uint64_t virtualAddress;
    std::vector<uint8_t> bytes;
};

class ElfBuilder {
public:
    ElfBuilder(bool is64, bool bigEndian) : is64_(is64), big_(bigEndian) {}

    // Leaves out the section header table and the names, as a file whose
    // sections were stripped.
    ElfBuilder& withoutSections()
    {
        sections_ = false;
        return *this;
    }

    // Where the segments' bytes end: the sections come after them.
    size_t dataEnd(const std::vector<ElfSegment>& segments) const;

    std::string build(uint64_t entry, const std::vector<ElfSegment>& segments) const;

private:
    size_t word() const { return is64_ ? 8 : 4; }
    size_t headerSize() const { return is64_ ? 64 : 52; }
    size_t entrySize() const { return is64_ ? 56 : 32; }
    void putSection(std::string& file, uint64_t name, uint32_t type, uint64_t flags, uint64_t address,
                    uint64_t offset, uint64_t size) const;
    void put(std::string& file, uint64_t value, size_t size) const;

    bool is64_;
    bool big_;
    bool sections_ = true;
};

#endif
