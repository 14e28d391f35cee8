#include "image_editing.h"

#include "checksum.h"

#include <iostream>

namespace {

// The widest --fill-range: one-block mode's limit, the largest image the
// tool makes in one piece elsewhere, so that a typing slip does not fill 4 GiB.
const uint64_t MAX_FILL = MemoryImage::blockoptions_t().maxImageSize;

// Applies one edit; a failure's reason otherwise.
MemoryImage::result_t applyEdit(const Edit& edit, const Options& options, MemoryImage& image)
{
    MemoryImage::result_t result;
    switch (edit.kind) {
    case Edit::kind_t::OFFSET:
        return image.offset(edit.delta);
    case Edit::kind_t::CROP:
        image.crop(edit.ranges);
        break;
    case Edit::kind_t::EXCLUDE:
        image.exclude(edit.ranges[0]);
        break;
    case Edit::kind_t::FILL_RANGE:
        if (edit.ranges[0].size() > MAX_FILL) {
            result.ok = false;
            result.reason = "the range spans " + std::to_string(edit.ranges[0].size()) +
                            " bytes, more than the limit of " + std::to_string(MAX_FILL) + " bytes";
            return result;
        }
        image.fillRange(edit.ranges[0], options.save.fill);
        break;
    case Edit::kind_t::SWAP:
        return image.swapBytes(edit.wordSize);
    case Edit::kind_t::INSERT_CRC:
        return Checksum::insert(image, options.algorithm, edit.ranges[0], options.save.fill, edit.address,
                                options.crcOrder);
    }
    return result;
}

} // namespace

bool applyEdits(const Options& options, MemoryImage& image)
{
    for (const Edit& edit : options.edits) {
        const MemoryImage::result_t result = applyEdit(edit, options, image);
        if (!result) {
            std::cerr << PROGRAM << ": " << edit.option << ": " << result.reason << std::endl;
            return false;
        }
    }
    return true;
}
