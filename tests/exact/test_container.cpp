// IntelHexFile as a container: the buffer and copy constructors, copying,
// clearing, reversing every block, and the index operator's exception.
#include "intelhex.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace {

const char OUT_OF_RANGE[] = "IntelHexFile::operator[](size_t id): id outside of range!";

std::vector<uint8_t> blockBytes(const IntelHexFileBlock& block)
{
    const uint8_t* p = block.getBuffer();
    return std::vector<uint8_t>(p, p + block.getSize());
}

// The text thrown by operator[], or "" when nothing was thrown.
std::string thrownByIndex(const IntelHexFile& image, size_t id)
{
    try {
        (void)image[id];
    } catch (const char* text) {
        return text;
    }
    return "";
}

IntelHexFile threeByteImage()
{
    const std::vector<uint8_t> a = {1, 2, 3};
    return IntelHexFile(0x0800, 0x0000, a.size(), a.data());
}

} // namespace

TEST(Container, DefaultIsEmpty)
{
    IntelHexFile image;
    EXPECT_FALSE(image.hasData());
    EXPECT_EQ(image.getBlockCount(), 0u);
    EXPECT_EQ(thrownByIndex(image, 0), OUT_OF_RANGE);
}

TEST(Container, IndexThrowsAConstCharPointer)
{
    IntelHexFile image;
    EXPECT_THROW((void)image[0], const char*);
    const uint8_t byte = 1;
    IntelHexFile one(0, 0, 1, &byte);
    EXPECT_NO_THROW((void)one[0]);
    EXPECT_EQ(thrownByIndex(one, 1), OUT_OF_RANGE);
    EXPECT_EQ(thrownByIndex(one, static_cast<size_t>(-1)), OUT_OF_RANGE);
    EXPECT_EQ(one.getBlockCount(), 1u);
}

TEST(Container, BufferConstructorWithSizeZeroHoldsOneEmptyBlock)
{
    IntelHexFile image(0x1234, 0x5678, 0, nullptr);
    EXPECT_TRUE(image.hasData());
    ASSERT_EQ(image.getBlockCount(), 1u);
    EXPECT_EQ(image[0].getLinearBase(), 0x1234);
    EXPECT_EQ(image[0].getStartAddress(), 0x5678);
    EXPECT_EQ(image[0].getSize(), 0u);
}

TEST(Container, BufferConstructorCopiesTheBytes)
{
    uint8_t bytes[] = {0xAA, 0xBB, 0xCC};
    IntelHexFile image(0x0800, 0x1000, sizeof bytes, bytes);
    ASSERT_EQ(image.getBlockCount(), 1u);
    EXPECT_TRUE(image.hasData());
    EXPECT_EQ(image[0].getLinearBase(), 0x0800);
    EXPECT_EQ(image[0].getStartAddress(), 0x1000);
    EXPECT_EQ(image[0].getSize(), 3u);
    EXPECT_EQ(blockBytes(image[0]), std::vector<uint8_t>({0xAA, 0xBB, 0xCC}));
    bytes[0] = 0; // the caller's buffer is not referenced afterwards
    EXPECT_EQ(image[0].getBuffer()[0], 0xAA);
    EXPECT_NE(image[0].getBuffer(), bytes);
}

TEST(Container, CopyThenReverseLeavesTheSourceUnchanged)
{
    const uint8_t bytes[] = {1, 2, 3, 4};
    IntelHexFile source(0x0002, 0x0010, sizeof bytes, bytes);
    IntelHexFile copy(source);
    ASSERT_EQ(copy.getBlockCount(), 1u);
    EXPECT_EQ(copy[0].getLinearBase(), 0x0002);
    EXPECT_EQ(copy[0].getStartAddress(), 0x0010);
    copy.reverseBuffers();
    EXPECT_EQ(blockBytes(copy[0]), std::vector<uint8_t>({4, 3, 2, 1}));
    EXPECT_EQ(blockBytes(source[0]), std::vector<uint8_t>({1, 2, 3, 4}));
}

TEST(Container, CopyOfEmptyIsEmpty)
{
    IntelHexFile source;
    IntelHexFile copy(source);
    EXPECT_FALSE(copy.hasData());
    EXPECT_EQ(copy.getBlockCount(), 0u);
}

TEST(Container, ClearEmptiesAndIndexingThrows)
{
    const uint8_t bytes[] = {1, 2};
    IntelHexFile image(0, 0, sizeof bytes, bytes);
    image.clear();
    EXPECT_EQ(image.getBlockCount(), 0u);
    EXPECT_FALSE(image.hasData());
    EXPECT_EQ(thrownByIndex(image, 0), OUT_OF_RANGE);
    image.clear(); // clearing an empty container is harmless
    EXPECT_EQ(image.getBlockCount(), 0u);
}

TEST(Container, ReverseBuffersReversesEveryBlock)
{
    const uint8_t bytes[] = {1, 2, 3};
    IntelHexFile image(0, 0, sizeof bytes, bytes);
    image.reverseBuffers();
    EXPECT_EQ(blockBytes(image[0]), std::vector<uint8_t>({3, 2, 1}));
    image.reverseBuffers();
    EXPECT_EQ(blockBytes(image[0]), std::vector<uint8_t>({1, 2, 3}));
}

TEST(ContainerAssignment, IsADeepCopy)
{
    const uint8_t a[] = {1, 2, 3};
    const uint8_t b[] = {9};
    IntelHexFile source(0x0800, 0x0100, sizeof a, a);
    IntelHexFile target(0x0001, 0x0002, sizeof b, b);
    target = source;
    ASSERT_EQ(target.getBlockCount(), 1u);
    EXPECT_EQ(target[0].getLinearBase(), 0x0800);
    EXPECT_EQ(target[0].getStartAddress(), 0x0100);
    EXPECT_EQ(blockBytes(target[0]), std::vector<uint8_t>({1, 2, 3}));
    EXPECT_NE(target[0].getBuffer(), source[0].getBuffer());
    target.reverseBuffers();
    EXPECT_EQ(blockBytes(source[0]), std::vector<uint8_t>({1, 2, 3}));
}

TEST(ContainerAssignment, SelfAssignmentKeepsTheBlocks)
{
    const uint8_t a[] = {1, 2, 3};
    IntelHexFile image(0, 0x10, sizeof a, a);
    IntelHexFile& alias = image;
    image = alias;
    ASSERT_EQ(image.getBlockCount(), 1u);
    EXPECT_EQ(blockBytes(image[0]), std::vector<uint8_t>({1, 2, 3}));
}

TEST(ContainerAssignment, FromEmptyEmpties)
{
    const uint8_t a[] = {1};
    IntelHexFile image(0, 0, sizeof a, a);
    image = IntelHexFile();
    EXPECT_FALSE(image.hasData());
}

TEST(ContainerAssignment, CopiesOfCopiesAreIndependent)
{
    IntelHexFile image = threeByteImage();
    IntelHexFile second;
    second = image;
    second.clear();
    ASSERT_EQ(image.getBlockCount(), 1u);
    EXPECT_EQ(blockBytes(image[0]), std::vector<uint8_t>({1, 2, 3}));
}

TEST(ContainerTypes, BlockArrayIsAVectorOfBlockPointers)
{
    EXPECT_TRUE((std::is_same<IntelHexFile::blockarray_t, std::vector<IntelHexFileBlock*>>::value));
}

TEST(ContainerTypes, BlocksCannotBeCopiedOrAssignedByCallers)
{
    EXPECT_FALSE(std::is_copy_constructible<IntelHexFileBlock>::value);
    EXPECT_FALSE(std::is_copy_assignable<IntelHexFileBlock>::value);
    EXPECT_FALSE(std::is_default_constructible<IntelHexFileBlock>::value);
    EXPECT_FALSE(std::is_destructible<IntelHexFileBlock>::value);
}
