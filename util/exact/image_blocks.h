/// @file image_blocks.h
/// Between a hexblocks::MemoryImage and the blocks of an IntelHexFile.
///
/// @code
/// #include <hexblocks/image_blocks.h>
///
/// IntelHexFile file;
/// hexblocks::block_options_t options;
/// options.oneBlock = true;
/// if (!hexblocks::appendToBlocks(image, file, options)) ...
/// @endcode
#ifndef HEXBLOCKS_IMAGE_BLOCKS_H
#define HEXBLOCKS_IMAGE_BLOCKS_H

#include "export.h"
#include "intelhex.h"
#include "memory_image.h"

#include <cstdint>

namespace hexblocks {

/// How appendToBlocks() turns an image into blocks.
struct block_options_t {
    /// One block from the lowest to the highest address, with fill in the
    /// gaps, instead of one block per segment.
    bool oneBlock = false;
    /// The byte for addresses without data in one-block mode.
    uint8_t fill = 0xFF;
    /// Largest one-block image, in bytes; a wider image fails.
    uint64_t maxImageSize = 256u << 20;
};

/// An image holding the blocks of file, at their full 32-bit addresses
/// (linear base times 65536 plus start address, modulo 2^32), and its start
/// address if it has one. Where blocks overlap, the later block's bytes
/// replace the earlier's, as one-block mode does for records.
HEXBLOCKS_API MemoryImage imageFromBlocks(const IntelHexFile& file);

/// Appends image to file as blocks, after any blocks it holds: one block per
/// segment (its linear base the upper and its start address the lower 16
/// bits of the segment's address; a block may exceed 64 KiB), or in
/// one-block mode a single block over the whole span. Sets file's start
/// address when the image has one.
/// @return a failure, with file unchanged, when a one-block image would
/// exceed options.maxImageSize.
HEXBLOCKS_API result_t appendToBlocks(const MemoryImage& image, IntelHexFile& file,
                                                   const block_options_t& options = block_options_t());

/// As appendToBlocks(), moving the segments' bytes into the blocks instead
/// of copying them. The image is empty afterwards, unless it failed.
HEXBLOCKS_API result_t appendToBlocks(MemoryImage&& image, IntelHexFile& file,
                                                   const block_options_t& options = block_options_t());

} // namespace hexblocks

#endif // HEXBLOCKS_IMAGE_BLOCKS_H
