// Reaches the private parts of the library that the tests exercise directly:
// the record parser, the file reader and the block lifetime operations.
#ifndef HEXBLOCKS_TESTS_TEST_ACCESS_H
#define HEXBLOCKS_TESTS_TEST_ACCESS_H

#include "intelhex.h"

#include <fstream>
#include <sstream>
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

    // load() and the exact reader on text in memory: an unopened stream
    // whose buffer is a string's, read as load() reads an opened file.
    static bool loadText(IntelHexFile& container, const std::string& text, bool oneBlock)
    {
        std::stringbuf buffer(text, std::ios::in);
        std::ifstream stream;
        stream.std::ios::rdbuf(&buffer);
        return container.loadOpened(stream, oneBlock);
    }

    static bool loadExactText(IntelHexFile& container, const std::string& text, bool oneBlock)
    {
        std::stringbuf buffer(text, std::ios::in);
        std::ifstream stream;
        stream.std::ios::rdbuf(&buffer);
        return container.loadExact(stream, oneBlock);
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
