// Loads a HEX file with the installed hexblocks library and prints its blocks,
// then reads it as a memory image and prints the CRC-32 of its span.
#include <hexblocks/checksum.h>
#include <hexblocks/formats.h>
#include <hexblocks/intelhex.h>
#include <hexblocks/memory_image.h>

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FILE.hex\n", argv[0]);
        return 2;
    }
    IntelHexFile image;
    if (!image.load(argv[1], false))
        return 1;
    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        const IntelHexFileBlock& block = image[i];
        std::printf("block %zu: 0x%04X%04X, %zu bytes\n", i, block.getLinearBase(), block.getStartAddress(),
                    block.getSize());
    }
    hexblocks::MemoryImage memory;
    const hexblocks::read_result_t read = hexblocks::readFile(memory, argv[1], hexblocks::readAs(hexblocks::file_format_t::INTEL_HEX));
    if (!read) {
        std::fprintf(stderr, "%s:%zu: %s\n", argv[1], read.line, read.reason.c_str());
        return 1;
    }
    std::printf("image: %zu segments, %llu bytes in %llu\n", memory.segments().size(),
                static_cast<unsigned long long>(memory.dataSize()), static_cast<unsigned long long>(memory.span()));
    hexblocks::Checksum::algorithm_t crc32;
    if (!hexblocks::Checksum::findAlgorithm("crc32", crc32))
        return 1;
    hexblocks::Checksum checksum(crc32);
    checksum.updateImage(memory, hexblocks::range_t{memory.lowestAddress(), memory.lowestAddress() + memory.span()},
                         0xFF);
    std::printf("crc32: 0x%08X\n", static_cast<unsigned>(checksum.value()));
    return 0;
}
