// The hexblocks command line: one table of commands and one table of
// options, from which the option parsing, the help texts, the manual page
// and the shell completion are all made. Exit codes and usage errors are the
// same for every command.
#ifndef HEXBLOCKS_COMMAND_LINE_H
#define HEXBLOCKS_COMMAND_LINE_H

#include "checksum.h"
#include "flash_plan.h"
#include "image_files.h"
#include "intelhex.h"
#include "memory_image.h"

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

extern const char PROGRAM[];
// The parts of the main help besides the commands.
extern const char MAIN_USAGE[];
extern const char MAIN_INTRO[];
extern const char MAIN_OPTIONS[];
extern const char MAIN_NOTES[];
extern const char EXIT_STATUS[];
extern const char EXAMPLES[];

// Exit codes.
const int EXIT_OK = 0;
const int EXIT_FAILED = 1; // a file could not be loaded or written, or an edit failed
const int EXIT_USAGE = 2;  // the command line is wrong
// diff and verify, like cmp: 0 same, 1 different, 2 trouble (a usage error,
// or an input that cannot be read).
const int EXIT_DIFFERENT = 1;
const int EXIT_TROUBLE = 2;

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
    std::string file;                // the first operand
    std::vector<std::string> inputs; // every operand: convert's inputs; verify: FILE and DUMP; diff: A and B
    std::string output;              // convert: the file; bin: the directory or file
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
    FlashPlan::geometry_t geometry;  // plan: --sectors, --page-size, --erased
    bool keepBlank = false;          // plan
    uint32_t dumpAddress = 0;        // verify --at
    MemoryImage::diffoptions_t diff; // diff --join
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
struct Inputs {
    IntelHexFile blocks; // info, map, bin, dump: FILE as blocks
    MemoryImage image;   // convert, crc: every input merged; plan, verify: FILE; diff: A
    MemoryImage other;   // diff: B
};

// How a command's inputs are read.
enum class loading_t {
    BLOCKS,      // the one FILE as IntelHexFile blocks
    MERGED,      // every operand, merged by --overlap and --start-address
    FIRST,       // the first operand as an image (the others are the command's)
    FIRST_TWO    // the first two operands as two images
};

// Every option of every command.
enum class option_t {
    HELP, ONE_BLOCK, STRICT, FULL_FORMAT, INPUT_FORMAT, JSON, WIDTH, OUTPUT, REVERSE, BLOCK,
    OUTPUT_FORMAT, RECORD_SIZE, ADDRESSING, ADDRESS_SIZE, CRLF, FILL, OVERLAP, START_ADDRESS,
    OFFSET, CROP, EXCLUDE, FILL_RANGE, SWAP, INSERT_CRC, ALGORITHM, CRC_ENDIAN,
    CRC_WIDTH, POLY, INIT, XOROUT, REFLECT_IN, REFLECT_OUT, RANGE,
    SECTORS, PAGE_SIZE, ERASED, KEEP_BLANK, AT, JOIN, SVG
};

// An option as the command line writes it and its help, written once for
// every command that takes it.
struct OptionEntry {
    option_t id;
    const char* name;  // the long name, without "--"
    char letter;       // the short name, 0 for none
    const char* value; // the value's name in the help, nullptr for a flag
    const char* help;  // lines of at most 52 characters; nullptr: not shown (kept for old command lines)
};

// An option a command takes, with help of its own where the shared one does
// not fit.
struct OptionUse {
    option_t id;
    const char* help = nullptr;    // nullptr: the option's own
    const char* value = nullptr;   // the value's name, nullptr: the option's own
    const char* heading = nullptr; // a heading to print before it in the help
};

// One command: its texts, its options, how its inputs are read and the
// function that runs it.
struct CommandEntry {
    const char* name;
    const char* usage;            // "usage: hexblocks info FILE [...]\n"
    const char* synopsis;         // for the list of commands: "info FILE [--one-block] [--json]"
    const char* summary;          // for the list of commands: what it does, in a few words
    const char* description;      // its help before the options
    std::vector<OptionUse> options;
    const char* notes;            // its help after the options; "" for none
    std::vector<const char*> operands; // their names; the last repeats when variadic
    bool variadic;
    loading_t loading;
    int unreadable;               // the exit code when an input cannot be read
    int (*run)(const Options& options, Inputs& inputs);
};

// The commands, in the order the help lists them.
const std::vector<CommandEntry>& commands();

// The command called name; nullptr when there is none.
const CommandEntry* findCommand(const std::string& name);

// The option with this id.
const OptionEntry& optionEntry(option_t id);

// Prints a usage error with usage and returns EXIT_USAGE.
int usageError(const std::string& message, const char* usage);

// The main help: the usage, the commands, the general notes, exit status.
std::string mainHelp();

// A command's help: its usage, description, options and notes.
std::string commandHelp(const CommandEntry& command);

// Parses the arguments after the command name. Returns EXIT_OK, or the exit
// code of a usage error after printing it.
int parseCommandLine(const CommandEntry& command, int argc, char** argv, Options& options);

#endif
