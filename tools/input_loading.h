// How the hexblocks commands read their inputs: one file as IntelHexFile
// blocks, whatever its format, for info, map, bin and dump; every input of
// convert combined into one image; and one input as an image. Each prints
// what went wrong.
#ifndef HEXBLOCKS_INPUT_LOADING_H
#define HEXBLOCKS_INPUT_LOADING_H

#include "command_line.h"
#include <hexblocks/intelhex.h>
#include <hexblocks/memory_image.h>

namespace hexblocks::cli {

// Loads options.file into image as blocks: read as an image, as every
// command reads, or with --strict through IntelHexFile::load() (which prints
// its own diagnostics). False after printing why.
bool loadImage(const options_t& options, inputs_t& inputs);

// Reads every input (convert's, or crc's one) and merges them by
// options.merge; false after printing why when one cannot be read or the
// policies refuse a merge, naming both inputs and, where they can be told,
// their lines.
bool readInputs(const options_t& options, MemoryImage& combined);

// Whether convert can write its input straight to its output file, without
// holding it as an image: one input, binary (FILE@ADDRESS, FILE.bin or
// --input-format bin) and a regular file, no edits, and an output file
// rather than standard output. Sets source to that input when it can.
bool streamsBinaryInput(const options_t& options, input_spec_t& source);

// Reads the one input operand names (a file, FILE@ADDRESS or "-") into
// image; false after printing why it cannot.
bool readOneInput(const options_t& options, const std::string& operand, MemoryImage& image);

} // namespace hexblocks::cli

#endif
