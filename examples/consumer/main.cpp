// Loads a HEX file with the installed intelhex library and prints its blocks,
// then reads it as a memory image and prints the CRC-32 of its span.
#include <intelhex/checksum.h>
#include <intelhex/intelhex.h>
#include <intelhex/memory_image.h>

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
    MemoryImage memory;
    const MemoryImage::readresult_t read = memory.readHexFile(argv[1]);
    if (!read) {
        std::fprintf(stderr, "%s:%zu: %s\n", argv[1], read.line, read.reason.c_str());
        return 1;
    }
    std::printf("image: %zu segments, %llu bytes in %llu\n", memory.segments().size(),
                static_cast<unsigned long long>(memory.dataSize()), static_cast<unsigned long long>(memory.span()));
    Checksum::algorithm_t crc32;
    if (!Checksum::findAlgorithm("crc32", crc32))
        return 1;
    Checksum checksum(crc32);
    checksum.updateImage(memory, MemoryImage::range_t{memory.lowestAddress(), memory.lowestAddress() + memory.span()},
                         0xFF);
    std::printf("crc32: 0x%08X\n", static_cast<unsigned>(checksum.value()));
    return 0;
}
