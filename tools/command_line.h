// The hexblocks command line: the options every command may be given, what
// a command is given besides them, exit codes and usage errors (the same
// for every command), and the parsing of a command's arguments by its entry
// in the command table.
#ifndef HEXBLOCKS_COMMAND_LINE_H
#define HEXBLOCKS_COMMAND_LINE_H

#include <hexblocks/checksum.h>
#include "command_table.h"
#include <hexblocks/digest.h>
#include <hexblocks/flash_plan.h>
#include "image_files.h"
#include <hexblocks/intelhex.h>
#include <hexblocks/memory_image.h>

#include <cstddef>
#include <optional>
#include <iosfwd>
#include <string>
#include <vector>

namespace hexblocks::cli {

// Exit codes.
const int EXIT_OK = 0;
const int EXIT_FAILED = 1; // a file could not be loaded or written, or an edit failed
const int EXIT_USAGE = 2;  // the command line is wrong
// diff and verify, like cmp: 0 same, 1 different, 2 trouble (a usage error,
// or an input that cannot be read).
const int EXIT_DIFFERENT = 1;
const int EXIT_TROUBLE = 2;

// One edit of convert's image; edits apply in the order given.
struct edit_t {
    enum class kind_t { OFFSET, CROP, EXCLUDE, FILL_RANGE, SWAP, INSERT_CRC, INSERT_DIGEST };
    kind_t kind = kind_t::OFFSET;
    std::string option;                       // as written, for messages: "--swap 4"
    std::vector<range_t> ranges; // CROP: their union; EXCLUDE, FILL_RANGE, INSERT_CRC, INSERT_DIGEST: one
    int64_t delta = 0;                        // OFFSET
    unsigned wordSize = 0;                    // SWAP
    uint32_t address = 0;                     // INSERT_CRC, INSERT_DIGEST: where the value goes
};

// The options of every command; each command uses its own subset.
struct options_t {
    std::string file;                // the first operand
    std::vector<std::string> inputs; // every operand: convert's inputs; verify: FILE and DUMP; diff: A and B
    std::string output;              // convert: the file; bin: the directory or file
    bool hasOutputFormat = false;
    file_format_t outputFormat = file_format_t::INTEL_HEX;
    bool hasInputFormat = false;
    file_format_t inputFormat = file_format_t::INTEL_HEX;
    write_options_t save; // its fill is also --fill for the edits and crc
    read_settings_t reading; // --word-width, --family and --overlap for every input
    merge_options_t merge;
    std::vector<edit_t> edits;
    Checksum::algorithm_t algorithm; // crc, and convert's --insert-crc: crc32 unless set
    std::optional<Digest::algorithm_t> digest; // --algorithm sha256 or sha512: crc and --insert-digest
    Checksum::byte_order_t crcOrder = Checksum::byte_order_t::LITTLE;
    bool hasRange = false;           // crc --range
    range_t range{0, 0};
    FlashPlan::geometry_t geometry;  // plan: --sectors, --page-size, --erased
    bool keepBlank = false;          // plan
    uint32_t dumpAddress = 0;        // verify --at
    diff_options_t diff; // diff --join
    bool oneBlock = false;
    bool strict = false;
    bool json = false;
    bool svg = false;                // map --svg
    bool reverse = false;
    bool hasBlock = false;
    size_t block = 0;
    size_t width = 64;
    bool help = false;
};

// What a command is given besides its options: its inputs, read before it
// runs.
struct inputs_t {
    IntelHexFile blocks; // info, map, bin, dump: FILE as blocks
    uint64_t uf2Blocks = 0;            // info: FILE's UF2 blocks; 0 when it is not UF2
    std::vector<uint32_t> uf2Families; // info: the families its UF2 blocks name
    MemoryImage image;   // convert, crc: every input merged; plan, verify: FILE; diff: A
    MemoryImage other;   // diff: B
    // convert: set when its one binary input is written straight to the
    // output, never held as an image (and then nothing above is read).
    bool streamed = false;
    input_spec_t streamedInput;
};

// Prints a usage error with usage and returns EXIT_USAGE.
int usageError(const std::string& message, const char* usage);

// Parses the arguments after the command name. Returns EXIT_OK, or the exit
// code of a usage error after printing it.
int parseCommandLine(const command_entry_t& command, int argc, char** argv, options_t& options);

} // namespace hexblocks::cli

#endif
