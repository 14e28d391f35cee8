#include "image_editing.h"

#include <hexblocks/checksum.h>
#include <hexblocks/image_blocks.h>

#include <iostream>

namespace hexblocks::cli {

namespace {

// The widest --fill-range: one-block mode's limit, the largest image the
// tool makes in one piece elsewhere, so that a typing slip does not fill 4 GiB.
const uint64_t MAX_FILL = block_options_t().maxImageSize;

// Applies one edit; a failure's reason otherwise.
result_t applyEdit(const edit_t& edit, const options_t& options, MemoryImage& image)
{
    result_t result;
    switch (edit.kind) {
    case edit_t::kind_t::OFFSET:
        return image.offset(edit.delta);
    case edit_t::kind_t::CROP:
        image.crop(edit.ranges);
        break;
    case edit_t::kind_t::EXCLUDE:
        image.exclude(edit.ranges[0]);
        break;
    case edit_t::kind_t::FILL_RANGE:
        if (edit.ranges[0].size() > MAX_FILL)
            return failure(status_t::TOO_LARGE, "the range spans " + std::to_string(edit.ranges[0].size()) +
                                                    " bytes, more than the limit of " + std::to_string(MAX_FILL) +
                                                    " bytes");
        image.fillRange(edit.ranges[0], options.save.fill);
        break;
    case edit_t::kind_t::SWAP:
        return image.swapBytes(edit.wordSize);
    case edit_t::kind_t::INSERT_CRC:
        return Checksum::insert(image, options.algorithm, edit.ranges[0], options.save.fill, edit.address,
                                options.crcOrder);
    case edit_t::kind_t::INSERT_DIGEST:
        return Digest::insert(image, options.digest.value_or(Digest::algorithm_t::SHA256), edit.ranges[0],
                              options.save.fill, edit.address);
    }
    return result;
}

} // namespace

bool applyEdits(const options_t& options, MemoryImage& image)
{
    for (const edit_t& edit : options.edits) {
        const result_t result = applyEdit(edit, options, image);
        if (!result) {
            std::cerr << PROGRAM << ": " << edit.option << ": " << result.reason << std::endl;
            return false;
        }
    }
    return true;
}

} // namespace hexblocks::cli
