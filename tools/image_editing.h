// convert's edits: the image moved, cropped, cut, filled, byte-swapped and
// given a checksum, in the order the command line gives.
#ifndef HEXBLOCKS_IMAGE_EDITING_H
#define HEXBLOCKS_IMAGE_EDITING_H

#include "command_line.h"
#include <hexblocks/memory_image.h>

namespace hexblocks::cli {

// Applies options.edits to image in order; false after printing which edit
// failed and why.
bool applyEdits(const options_t& options, MemoryImage& image);

} // namespace hexblocks::cli

#endif
