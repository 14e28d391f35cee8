// IntelHexFileBlock: its accessors, reversing its bytes, its lifetime
// operations, and writing it as a raw binary file or to a descriptor, with
// the diagnostics and the write() calls observed.
#include "intelhex.h"
#include "support/capture.h"
#include "support/temp_dir.h"
#include "support/test_access.h"
#include "support/write_spy.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

std::vector<uint8_t> pattern(size_t n)
{
    std::vector<uint8_t> bytes(n);
    for (size_t i = 0; i < n; ++i)
        bytes[i] = static_cast<uint8_t>(i * 7 + 3);
    return bytes;
}

std::vector<uint8_t> blockBytes(const IntelHexFileBlock& block)
{
    const uint8_t* p = block.getBuffer();
    return std::vector<uint8_t>(p, p + block.getSize());
}

// Owns a block made through the container-only operations.
struct BlockDeleter {
    void operator()(IntelHexFileBlock* b) const { IntelHexTestAccess::deleteBlock(b); }
};
using BlockPtr = std::unique_ptr<IntelHexFileBlock, BlockDeleter>;

int openForWriting(const std::string& path)
{
    return ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
}

const char WRITE_ERROR[] = "#ERROR: write() returns an error.\n";

} // namespace

TEST(BlockGetters, ReportFieldsOfTheBlock)
{
    const std::vector<uint8_t> bytes = {0xAA, 0xBB, 0xCC};
    IntelHexFile image(0x0800, 0x1000, bytes.size(), bytes.data());
    const IntelHexFileBlock& block = image[0];
    EXPECT_EQ(block.getLinearBase(), 0x0800);
    EXPECT_EQ(block.getStartAddress(), 0x1000);
    EXPECT_EQ(block.getSize(), 3u);
    EXPECT_EQ(blockBytes(block), bytes);
}

TEST(BlockGetters, EndAddressIsOnePastTheLastByte)
{
    const std::vector<uint8_t> bytes = pattern(0x10);
    IntelHexFile image(0, 0x1000, bytes.size(), bytes.data());
    EXPECT_EQ(image[0].getEndAddress(), 0x1010);
}

TEST(BlockGetters, EndAddressWrapsAt64KiB)
{
    const std::vector<uint8_t> bytes = pattern(0x20);
    IntelHexFile image(0x0001, 0xFFF0, bytes.size(), bytes.data());
    EXPECT_EQ(image[0].getEndAddress(), 0x0010);
}

TEST(BlockGetters, EndAddressOfEmptyBlockIsItsStart)
{
    IntelHexFile image(0x0002, 0x1234, 0, nullptr);
    EXPECT_EQ(image[0].getEndAddress(), 0x1234);
}

TEST(BlockGetters, SizeFieldIsReportedEvenWhenItDiffersFromTheBuffer)
{
    BlockPtr block(IntelHexTestAccess::newBlock());
    IntelHexTestAccess::setBlock(*block, 0, 0, {1, 2, 3});
    EXPECT_EQ(block->getSize(), 3u);
    EXPECT_EQ(block->getBuffer()[2], 3);
}

TEST(BlockReverse, EmptyBufferUnchanged)
{
    IntelHexFile image(0x0100, 0x0200, 0, nullptr);
    image.reverseBuffers();
    EXPECT_EQ(image[0].getSize(), 0u);
    EXPECT_EQ(image[0].getLinearBase(), 0x0100);
    EXPECT_EQ(image[0].getStartAddress(), 0x0200);
}

TEST(BlockReverse, OneByteUnchanged)
{
    const uint8_t byte = 0x5A;
    IntelHexFile image(0x0100, 0x0200, 1, &byte);
    image.reverseBuffers();
    EXPECT_EQ(blockBytes(image[0]), std::vector<uint8_t>({0x5A}));
}

TEST(BlockReverse, ReversesBytesAndKeepsAddresses)
{
    BlockPtr block(IntelHexTestAccess::newBlock());
    IntelHexTestAccess::setBlock(*block, 0x0800, 0x4000, {0x01, 0x02, 0x03});
    block->reverseBuffer();
    EXPECT_EQ(blockBytes(*block), std::vector<uint8_t>({0x03, 0x02, 0x01}));
    EXPECT_EQ(block->getLinearBase(), 0x0800);
    EXPECT_EQ(block->getStartAddress(), 0x4000);
    EXPECT_EQ(block->getSize(), 3u);
}

TEST(BlockReverse, EvenLength)
{
    BlockPtr block(IntelHexTestAccess::newBlock());
    IntelHexTestAccess::setBlock(*block, 0, 0, {1, 2, 3, 4});
    block->reverseBuffer();
    EXPECT_EQ(blockBytes(*block), std::vector<uint8_t>({4, 3, 2, 1}));
}

TEST(BlockWriteFd, EmptyBlockWritesNothingAndSucceeds)
{
    TempDir dir;
    IntelHexFile image(0, 0, 0, nullptr);
    const int fd = openForWriting(dir.file("empty.bin"));
    ASSERT_GE(fd, 0);
    WriteSpy spy;
    bool ok = false;
    const CapturedOutput io = captureOutput([&] { ok = image[0].writeBinaryTo(fd); });
    ::close(fd);
    EXPECT_TRUE(ok);
    EXPECT_TRUE(spy.requested().empty());
    EXPECT_TRUE(readFileBytes(dir.file("empty.bin")).empty());
    EXPECT_EQ(io.out, "");
    EXPECT_EQ(io.err, "");
}

TEST(BlockWriteFd, WritesInPiecesOf512Bytes)
{
    TempDir dir;
    const std::vector<uint8_t> bytes = pattern(1300);
    IntelHexFile image(0, 0, bytes.size(), bytes.data());
    const int fd = openForWriting(dir.file("out.bin"));
    ASSERT_GE(fd, 0);
    bool ok = false;
    std::vector<size_t> calls;
    {
        WriteSpy spy;
        ok = image[0].writeBinaryTo(fd);
        calls = spy.requested();
    }
    ::close(fd);
    EXPECT_TRUE(ok);
    EXPECT_EQ(calls, std::vector<size_t>({512, 512, 276}));
    EXPECT_EQ(readFileBytes(dir.file("out.bin")), bytes);
}

TEST(BlockWriteFd, ExactMultipleOf512)
{
    TempDir dir;
    const std::vector<uint8_t> bytes = pattern(1024);
    IntelHexFile image(0, 0, bytes.size(), bytes.data());
    const int fd = openForWriting(dir.file("out.bin"));
    WriteSpy spy;
    EXPECT_TRUE(image[0].writeBinaryTo(fd));
    ::close(fd);
    EXPECT_EQ(spy.requested(), std::vector<size_t>({512, 512}));
    EXPECT_EQ(readFileBytes(dir.file("out.bin")), bytes);
}

TEST(BlockWriteFd, ShortWriteContinuesWithTheRemainder)
{
    TempDir dir;
    const std::vector<uint8_t> bytes = pattern(600);
    IntelHexFile image(0, 0, bytes.size(), bytes.data());
    const int fd = openForWriting(dir.file("out.bin"));
    WriteSpy spy;
    spy.shortNext(100);
    EXPECT_TRUE(image[0].writeBinaryTo(fd));
    ::close(fd);
    // 100 of 512 written, then the remaining 500 as 500 (less than 512).
    EXPECT_EQ(spy.requested(), std::vector<size_t>({512, 500}));
    EXPECT_EQ(readFileBytes(dir.file("out.bin")), bytes);
}

TEST(BlockWriteFd, ZeroByteWriteIsRepeatedWithTheSameArguments)
{
    TempDir dir;
    const std::vector<uint8_t> bytes = pattern(300);
    IntelHexFile image(0, 0, bytes.size(), bytes.data());
    const int fd = openForWriting(dir.file("out.bin"));
    WriteSpy spy;
    spy.shortNext(0);
    spy.shortNext(0);
    EXPECT_TRUE(image[0].writeBinaryTo(fd));
    ::close(fd);
    EXPECT_EQ(spy.requested(), std::vector<size_t>({300, 300, 300}));
    EXPECT_EQ(readFileBytes(dir.file("out.bin")), bytes);
}

TEST(BlockWriteFd, FailingDescriptorPrintsErrorAndReturnsFalse)
{
    TempDir dir;
    dir.write("readonly.bin", "");
    const int fd = ::open(dir.file("readonly.bin").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    const std::vector<uint8_t> bytes = pattern(10);
    IntelHexFile image(0, 0, bytes.size(), bytes.data());
    bool ok = true;
    WriteSpy spy;
    const CapturedOutput io = captureOutput([&] { ok = image[0].writeBinaryTo(fd); });
    ::close(fd);
    EXPECT_FALSE(ok);
    EXPECT_EQ(spy.requested(), std::vector<size_t>({10})); // no retry
    EXPECT_EQ(io.out, "");
    EXPECT_EQ(io.err, WRITE_ERROR);
}

TEST(BlockWriteFd, InvalidDescriptorFails)
{
    const std::vector<uint8_t> bytes = pattern(4);
    IntelHexFile image(0, 0, bytes.size(), bytes.data());
    bool ok = true;
    const CapturedOutput io = captureOutput([&] { ok = image[0].writeBinaryTo(-1); });
    EXPECT_FALSE(ok);
    EXPECT_EQ(io.out, "");
    EXPECT_EQ(io.err, WRITE_ERROR);
}

TEST(BlockWriteFd, FailureAfterAPieceLeavesThatPieceWritten)
{
    TempDir dir;
    const std::vector<uint8_t> bytes = pattern(1300);
    IntelHexFile image(0, 0, bytes.size(), bytes.data());
    const int fd = openForWriting(dir.file("out.bin"));
    WriteSpy spy;
    spy.shortNext(512); // first piece written in full
    spy.failNext();
    bool ok = true;
    const CapturedOutput io = captureOutput([&] { ok = image[0].writeBinaryTo(fd); });
    ::close(fd);
    EXPECT_FALSE(ok);
    EXPECT_EQ(spy.requested(), std::vector<size_t>({512, 512}));
    EXPECT_EQ(io.err, WRITE_ERROR);
    EXPECT_EQ(readFileBytes(dir.file("out.bin")), std::vector<uint8_t>(bytes.begin(), bytes.begin() + 512));
}

TEST(BlockWriteFd, DescriptorIsNeitherClosedNorRepositioned)
{
    TempDir dir;
    const std::vector<uint8_t> bytes = {1, 2, 3};
    IntelHexFile image(0, 0, bytes.size(), bytes.data());
    const int fd = openForWriting(dir.file("out.bin"));
    ASSERT_EQ(::write(fd, "xy", 2), 2);
    EXPECT_TRUE(image[0].writeBinaryTo(fd));
    EXPECT_TRUE(image[0].writeBinaryTo(fd)); // still open, appends after
    ::close(fd);
    EXPECT_EQ(readFileBytes(dir.file("out.bin")), std::vector<uint8_t>({'x', 'y', 1, 2, 3, 1, 2, 3}));
}

TEST(BlockWriteFile, EmptyBlockCreatesEmptyFile)
{
    TempDir dir;
    IntelHexFile image(0, 0, 0, nullptr);
    const std::string path = dir.file("empty.bin");
    bool ok = false;
    const CapturedOutput io = captureOutput([&] { ok = image[0].writeBinaryTo(path.c_str()); });
    EXPECT_TRUE(ok);
    EXPECT_TRUE(fileExists(path));
    EXPECT_TRUE(readFileBytes(path).empty());
    EXPECT_EQ(io.out, "");
    EXPECT_EQ(io.err, "");
}

TEST(BlockWriteFile, WritesAllBytesIn512BytePieces)
{
    TempDir dir;
    const std::vector<uint8_t> bytes = pattern(1300);
    IntelHexFile image(0x0800, 0, bytes.size(), bytes.data());
    const std::string path = dir.file("image.bin");
    WriteSpy spy;
    EXPECT_TRUE(image[0].writeBinaryTo(path.c_str()));
    EXPECT_EQ(spy.requested(), std::vector<size_t>({512, 512, 276}));
    EXPECT_EQ(readFileBytes(path), bytes);
}

TEST(BlockWriteFile, TruncatesAnExistingFile)
{
    TempDir dir;
    const std::string path = dir.write("image.bin", std::string(5000, 'z'));
    const std::vector<uint8_t> bytes = {9, 8, 7};
    IntelHexFile image(0, 0, bytes.size(), bytes.data());
    EXPECT_TRUE(image[0].writeBinaryTo(path.c_str()));
    EXPECT_EQ(readFileBytes(path), bytes);
}

TEST(BlockWriteFile, UncreatableFileNamesThePathInQuotes)
{
    TempDir dir;
    const std::string path = dir.file("no-such-dir/image.bin");
    const std::vector<uint8_t> bytes = {1};
    IntelHexFile image(0, 0, bytes.size(), bytes.data());
    bool ok = true;
    const CapturedOutput io = captureOutput([&] { ok = image[0].writeBinaryTo(path.c_str()); });
    EXPECT_FALSE(ok);
    EXPECT_EQ(io.out, "");
    EXPECT_EQ(io.err, "#ERROR: failed to create file \"" + path + "\"\n");
    EXPECT_FALSE(fileExists(path));
}

TEST(BlockWriteFile, FailedWriteLeavesThePartialFile)
{
    TempDir dir;
    const std::vector<uint8_t> bytes = pattern(700);
    IntelHexFile image(0, 0, bytes.size(), bytes.data());
    const std::string path = dir.file("partial.bin");
    WriteSpy spy;
    spy.shortNext(512);
    spy.failNext();
    bool ok = true;
    const CapturedOutput io = captureOutput([&] { ok = image[0].writeBinaryTo(path.c_str()); });
    EXPECT_FALSE(ok);
    EXPECT_EQ(io.err, WRITE_ERROR);
    EXPECT_EQ(readFileBytes(path), std::vector<uint8_t>(bytes.begin(), bytes.begin() + 512));
}

TEST(BlockLifetime, DefaultBlockIsEmptyAtZero)
{
    BlockPtr block(IntelHexTestAccess::newBlock());
    EXPECT_EQ(block->getSize(), 0u);
    EXPECT_EQ(block->getLinearBase(), 0);
    EXPECT_EQ(block->getStartAddress(), 0);
    EXPECT_EQ(IntelHexTestAccess::bufferLength(*block), 0u);
}

TEST(BlockLifetime, CopyConstructorCopiesBytesAndFields)
{
    BlockPtr source(IntelHexTestAccess::newBlock());
    IntelHexTestAccess::setBlock(*source, 0x0800, 0x4000, {1, 2, 3});
    BlockPtr copy(IntelHexTestAccess::copyBlock(*source));
    EXPECT_EQ(copy->getLinearBase(), 0x0800);
    EXPECT_EQ(copy->getStartAddress(), 0x4000);
    EXPECT_EQ(copy->getSize(), 3u);
    EXPECT_EQ(blockBytes(*copy), std::vector<uint8_t>({1, 2, 3}));
    EXPECT_NE(copy->getBuffer(), source->getBuffer());
    copy->reverseBuffer();
    EXPECT_EQ(blockBytes(*source), std::vector<uint8_t>({1, 2, 3}));
}

TEST(BlockLifetime, CloneIsAnIndependentCopy)
{
    BlockPtr source(IntelHexTestAccess::newBlock());
    IntelHexTestAccess::setBlock(*source, 0x0001, 0xFFF0, {4, 5});
    BlockPtr clone(IntelHexTestAccess::cloneBlock(*source));
    EXPECT_EQ(clone->getLinearBase(), 0x0001);
    EXPECT_EQ(clone->getStartAddress(), 0xFFF0);
    EXPECT_EQ(blockBytes(*clone), std::vector<uint8_t>({4, 5}));
    clone->reverseBuffer();
    EXPECT_EQ(blockBytes(*source), std::vector<uint8_t>({4, 5}));
}

TEST(BlockLifetime, ClearZeroesFieldsAndKeepsStorage)
{
    BlockPtr block(IntelHexTestAccess::newBlock());
    IntelHexTestAccess::setBlock(*block, 0x0800, 0x4000, pattern(100));
    const size_t capacity = IntelHexTestAccess::bufferCapacity(*block);
    IntelHexTestAccess::clearBlock(*block);
    EXPECT_EQ(block->getSize(), 0u);
    EXPECT_EQ(block->getLinearBase(), 0);
    EXPECT_EQ(block->getStartAddress(), 0);
    EXPECT_EQ(IntelHexTestAccess::bufferLength(*block), 0u);
    EXPECT_EQ(IntelHexTestAccess::bufferCapacity(*block), capacity);
}
