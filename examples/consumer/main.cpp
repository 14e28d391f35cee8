// Loads a HEX file with the installed intelhex library and prints its blocks.
#include <intelhex/intelhex.h>

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
    return 0;
}
