// Reaches the private parts of the library that the tests exercise directly:
// the record parser, the file reader and the block lifetime operations.
#ifndef INTELHEX_TESTS_TEST_ACCESS_H
#define INTELHEX_TESTS_TEST_ACCESS_H

#include "intelhex.h"

#include <fstream>
#include <string>

class IntelHexTestAccess {
public:
    using Line = IntelHexFile::hexfileline_t;
    using LineSet = IntelHexFile::hexfilelineset_t;

    static void parseLine(std::string& hexLine, Line& line)
    {
        IntelHexFile container;
        container.parseLine(hexLine, line);
    }

    static bool parseHexFile(std::ifstream& hexFile, LineSet& lines)
    {
        IntelHexFile container;
        return container.parseHexFile(hexFile, lines);
    }

    static bool less(const Line& a, const Line& b) { return a < b; }

    // The exact reader alone, on a file opened here.
    static bool loadExact(IntelHexFile& container, const std::string& path, bool oneBlock)
    {
        std::ifstream hexFile(path);
        return container.loadExact(hexFile, oneBlock);
    }

    // Block lifetime operations reserved to the container.
    static IntelHexFileBlock* newBlock() { return new IntelHexFileBlock(); }
    static IntelHexFileBlock* copyBlock(IntelHexFileBlock& block) { return new IntelHexFileBlock(block); }
    static IntelHexFileBlock* cloneBlock(IntelHexFileBlock& block) { return block.clone(); }
    static void clearBlock(IntelHexFileBlock& block) { block.clear(); }
    static void deleteBlock(IntelHexFileBlock* block) { delete block; }
    static void setBlock(IntelHexFileBlock& block, uint16_t linearBase, uint16_t startAddr,
                         std::vector<uint8_t> bytes)
    {
        block.linearBase = linearBase;
        block.startAddr = startAddr;
        block.size = bytes.size();
        block.buffer = std::move(bytes);
    }
    static size_t bufferCapacity(const IntelHexFileBlock& block) { return block.buffer.capacity(); }
    static size_t bufferLength(const IntelHexFileBlock& block) { return block.buffer.size(); }
};

#endif
