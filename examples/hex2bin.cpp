// Loads an Intel HEX file and writes each of its blocks as a raw binary file.
//
//   hex2bin FILE.hex [OUTDIR]
//
// Each block goes to OUTDIR/block_<full 32-bit start address>.bin.
#include <hexblocks/intelhex.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 3) {
        std::fprintf(stderr, "usage: %s FILE.hex [OUTDIR]\n", argv[0]);
        return 2;
    }
    const std::string outDir = argc == 3 ? argv[2] : ".";

    IntelHexFile image;
    if (!image.load(argv[1], false)) {
        std::fprintf(stderr, "%s: cannot load %s\n", argv[0], argv[1]);
        return 1;
    }

    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        const IntelHexFileBlock& block = image[i];
        const unsigned long address =
            static_cast<unsigned long>(block.getLinearBase()) << 16 | block.getStartAddress();
        char name[32];
        std::snprintf(name, sizeof name, "block_0x%08lX.bin", address);
        const std::string path = outDir + "/" + name;
        if (!block.writeBinaryTo(path.c_str()))
            return 1;
        std::printf("0x%08lX  %8zu bytes  %s\n", address, block.getSize(), path.c_str());
    }
    return 0;
}
