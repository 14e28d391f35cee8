#include "intelhex.h"

#include "exact_reader.h"
#include "full_format_reader.h"
#include "hex_format.h"
#include "image_blocks.h"
#include "memory_image.h"
#include "record_scanner.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

#include <unistd.h>

namespace {

// Largest piece handed to a single write() call.
const size_t WRITE_CHUNK = 512;

} // namespace

// ---------------------------------------------------------------------------
// IntelHexFileBlock

IntelHexFileBlock::IntelHexFileBlock() : linearBase(0), startAddr(0), size(0) {}

IntelHexFileBlock::IntelHexFileBlock(IntelHexFileBlock& obj)
    : buffer(obj.buffer), linearBase(obj.linearBase), startAddr(obj.startAddr), size(obj.size)
{
}

IntelHexFileBlock::~IntelHexFileBlock()
{
    clear();
}

void IntelHexFileBlock::clear()
{
    linearBase = 0;
    startAddr = 0;
    size = 0;
    buffer.clear();
}

IntelHexFileBlock* IntelHexFileBlock::clone()
{
    return new IntelHexFileBlock(*this);
}

void IntelHexFileBlock::reverseBuffer()
{
    std::reverse(buffer.begin(), buffer.end());
}

bool IntelHexFileBlock::writeBinaryTo(int fd) const
{
    if (buffer.empty())
        return true;

    const uint8_t* position = buffer.data();
    size_t bytesLeft = buffer.size();
    while (bytesLeft > 0) {
        const size_t bytesToWrite = std::min(WRITE_CHUNK, bytesLeft);
        const size_t cnt = static_cast<size_t>(::write(fd, position, bytesToWrite));
        if (cnt == static_cast<size_t>(-1)) {
            std::cerr << "#ERROR: write() returns an error." << std::endl;
            return false;
        }
        // A short write goes on with the remainder; a write of 0 bytes is
        // simply tried again.
        position += cnt;
        bytesLeft -= cnt;
    }
    return true;
}

bool IntelHexFileBlock::writeBinaryTo(const char* fName) const
{
    FILE* file = std::fopen(fName, "wb");
    if (file == nullptr) {
        std::cerr << "#ERROR: failed to create file \"" << fName << "\"" << std::endl;
        return false;
    }
    const bool written = writeBinaryTo(fileno(file));
    std::fclose(file);
    return written;
}

size_t IntelHexFileBlock::getSize() const
{
    return size;
}

uint16_t IntelHexFileBlock::getLinearBase() const
{
    return linearBase;
}

uint16_t IntelHexFileBlock::getStartAddress() const
{
    return startAddr;
}

uint16_t IntelHexFileBlock::getEndAddress() const
{
    return static_cast<uint16_t>(startAddr + size);
}

const uint8_t* IntelHexFileBlock::getBuffer() const
{
    return buffer.data();
}

// ---------------------------------------------------------------------------
// IntelHexFile: container

IntelHexFile::IntelHexFile() {}

IntelHexFile::IntelHexFile(const IntelHexFile& obj)
    : startAddressType(obj.startAddressType), startAddressValue(obj.startAddressValue),
      errorLine(obj.errorLine), errorReason(obj.errorReason)
{
    blocks.reserve(obj.blocks.size());
    try {
        for (IntelHexFileBlock* block : obj.blocks)
            blocks.push_back(block->clone());
    } catch (...) {
        clear();
        throw;
    }
}

IntelHexFile::IntelHexFile(const char* fName, bool oneBlock)
{
    load(fName, oneBlock);
}

IntelHexFile::IntelHexFile(uint16_t theLinearBase, uint16_t theStartAddr, size_t theSize,
                           const uint8_t* theBuffer)
{
    std::vector<uint8_t> bytes;
    if (theSize > 0)
        bytes.assign(theBuffer, theBuffer + theSize);
    appendBlock(theLinearBase, theStartAddr, bytes);
}

IntelHexFile& IntelHexFile::operator=(const IntelHexFile& obj)
{
    if (this != &obj) {
        IntelHexFile copy(obj);
        blocks.swap(copy.blocks);
        startAddressType = copy.startAddressType;
        startAddressValue = copy.startAddressValue;
        errorLine = copy.errorLine;
        errorReason.swap(copy.errorReason);
    }
    return *this;
}

IntelHexFile::~IntelHexFile()
{
    clear();
}

const IntelHexFileBlock& IntelHexFile::operator[](size_t id) const
{
    if (id >= blocks.size())
        throw "IntelHexFile::operator[](size_t id): id outside of range!";
    return *blocks[id];
}

void IntelHexFile::reverseBuffers() const
{
    for (IntelHexFileBlock* block : blocks)
        block->reverseBuffer();
}

void IntelHexFile::clear()
{
    for (IntelHexFileBlock* block : blocks)
        delete block;
    blocks.clear();
    startAddressType = 0;
    startAddressValue = 0;
}

bool IntelHexFile::hasStartAddress() const
{
    return startAddressType != 0;
}

uint8_t IntelHexFile::getStartAddressType() const
{
    return startAddressType;
}

uint32_t IntelHexFile::getStartAddressValue() const
{
    return startAddressValue;
}

size_t IntelHexFile::getErrorLine() const
{
    return errorLine;
}

const std::string& IntelHexFile::getErrorReason() const
{
    return errorReason;
}

void IntelHexFile::setError(size_t line, const std::string& reason)
{
    errorLine = line;
    errorReason = reason;
}

bool IntelHexFile::hasData() const
{
    return !blocks.empty();
}

size_t IntelHexFile::getBlockCount() const
{
    return blocks.size();
}

void IntelHexFile::appendBlock(uint16_t theLinearBase, uint16_t theStartAddr, std::vector<uint8_t>& bytes)
{
    IntelHexFileBlock* block = new IntelHexFileBlock();
    try {
        block->linearBase = theLinearBase;
        block->startAddr = theStartAddr;
        block->size = bytes.size();
        block->buffer.swap(bytes);
        blocks.push_back(block);
    } catch (...) {
        delete block;
        throw;
    }
}


// ---------------------------------------------------------------------------
// IntelHexFile: reading the full format

bool IntelHexFile::loadFullFormat(const char* fName, bool oneBlock)
{
    fulloptions_t options;
    options.oneBlock = oneBlock;
    return loadFullFormat(fName, options);
}

bool IntelHexFile::loadFullFormat(const char* fName, const fulloptions_t& options)
{
    using hexblocks::detail::fullread_t;
    setError(0, "");
    std::ifstream hexFile(fName, std::ios::binary);
    if (hexFile.fail()) {
        setError(0, "cannot open the file");
        hexblocks::detail::printOpenFailure(fName);
        return false;
    }

    hexblocks::MemoryImage image;
    hexblocks::detail::StreamBufferText file(*hexFile.rdbuf());
    const fullread_t read = hexblocks::detail::readFullFormat(file, image);

    for (size_t line : read.ignoredStartLines)
        std::cerr << "#WARNING: a second, different start address in line " << line << " is ignored." << std::endl;
    switch (read.status) {
    case fullread_t::status_t::OK:
        break;
    case fullread_t::status_t::UNSUPPORTED_TYPE:
        setError(read.line, "unsupported record type " + hexblocks::detail::hexByte(read.type));
        hexblocks::detail::printUnsupportedType(read.text, read.type);
        return false;
    case fullread_t::status_t::BAD_LINE:
        setError(read.line, read.reason);
        std::cerr << "#ERROR: " << read.reason << "." << std::endl;
        hexblocks::detail::printCorruptLine(read.text);
        return false;
    case fullread_t::status_t::READ_ERROR:
        setError(0, read.reason);
        std::cerr << "#ERROR: " << read.reason << "." << std::endl;
        return false;
    }
    if (!read.sawEndRecord)
        std::cerr << "#WARNING: end of file reached without EoF-record." << std::endl;

    hexblocks::block_options_t blockOptions;
    blockOptions.oneBlock = options.oneBlock;
    blockOptions.maxImageSize = options.maxImageSize;
    const hexblocks::result_t appended = hexblocks::appendToBlocks(std::move(image), *this, blockOptions);
    if (!appended) {
        setError(0, appended.reason);
        std::cerr << "#ERROR: " << errorReason << "." << std::endl;
        return false;
    }
    if (read.repeatedBytes > 0)
        std::cerr << "#WARNING: " << read.repeatedBytes << " bytes given by more than one record, first in line "
                  << read.firstRepeatLine << "; the first value of each is kept." << std::endl;
    return true;
}
