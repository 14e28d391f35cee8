// The hexblocks command line: the commands and their help, the options of
// every command, and the parsing of both. Exit codes and usage errors are
// the same for every command.
#ifndef HEXBLOCKS_COMMAND_LINE_H
#define HEXBLOCKS_COMMAND_LINE_H

#include "checksum.h"
#include "flash_plan.h"
#include "image_files.h"
#include "memory_image.h"

#include <cstddef>
#include <string>
#include <vector>

extern const char PROGRAM[];

// Exit codes.
const int EXIT_OK = 0;
const int EXIT_FAILED = 1; // a file could not be loaded or written, or an edit failed
const int EXIT_USAGE = 2;  // the command line is wrong
// diff and verify, like cmp: 0 same, 1 different, 2 trouble (a usage error,
// or an input that cannot be read).
const int EXIT_DIFFERENT = 1;
const int EXIT_TROUBLE = 2;

extern const char MAIN_USAGE[];
extern const char MAIN_HELP[];

struct CommandSpec {
    const char* name;
    const char* usage;
    const char* help;
};

// The command called name; nullptr when there is none.
const CommandSpec* findCommand(const std::string& name);

// Prints a usage error with usage and returns EXIT_USAGE.
int usageError(const std::string& message, const char* usage);

// One edit of convert's image; edits apply in the order given.
struct Edit {
    enum class kind_t { OFFSET, CROP, EXCLUDE, FILL_RANGE, SWAP, INSERT_CRC };
    kind_t kind = kind_t::OFFSET;
    std::string option;                       // as written, for messages: "--swap 4"
    std::vector<MemoryImage::range_t> ranges; // CROP: their union; EXCLUDE, FILL_RANGE, INSERT_CRC: one
    int64_t delta = 0;                        // OFFSET
    unsigned wordSize = 0;                    // SWAP
    uint32_t address = 0;                     // INSERT_CRC: where the value goes
};

// Options of every command; each command uses its own subset.
struct Options {
    std::string file;
    std::vector<std::string> inputs; // convert; verify: FILE and DUMP; diff: A and B
    std::string output;              // convert: the file; bin: the directory
    bool hasOutputFormat = false;
    fileformat_t outputFormat = fileformat_t::INTEL_HEX;
    bool hasInputFormat = false;
    fileformat_t inputFormat = fileformat_t::INTEL_HEX;
    MemoryImage::saveoptions_t save; // its fill is also --fill for the edits and crc
    MemoryImage::mergeoptions_t merge;
    std::vector<Edit> edits;
    Checksum::algorithm_t algorithm; // crc, and convert's --insert-crc: crc32 unless set
    Checksum::byteorder_t crcOrder = Checksum::byteorder_t::LITTLE;
    bool hasRange = false;           // crc --range
    MemoryImage::range_t range{0, 0};
    FlashPlan::geometry_t geometry; // plan: --sectors, --page-size, --erased
    bool keepBlank = false;         // plan
    uint32_t dumpAddress = 0;       // verify --at
    MemoryImage::diffoptions_t diff; // diff --join
    bool oneBlock = false;
    bool strict = false;
    bool json = false;
    bool reverse = false;
    bool hasBlock = false;
    size_t block = 0;
    size_t width = 64;
    bool help = false;
};

// Parses the arguments after the command name. Returns EXIT_OK, or the exit
// code of a usage error after printing it.
int parseCommandLine(const CommandSpec& command, int argc, char** argv, Options& options);

#endif
