// The tables of hexblocks: one of options and one of commands, from which
// the option parsing, the help texts, the manual page and the shell
// completion are all made. Adding a command means one entry here and one
// function in commands.cpp.
#ifndef HEXBLOCKS_COMMAND_TABLE_H
#define HEXBLOCKS_COMMAND_TABLE_H

#include <string>
#include <vector>

namespace hexblocks::cli {

struct options_t;
struct inputs_t;

extern const char PROGRAM[];

// The parts of the main help besides the commands.
extern const char MAIN_USAGE[];
extern const char MAIN_INTRO[];
extern const char MAIN_OPTIONS[];
extern const std::string MAIN_NOTES;
extern const char EXIT_STATUS[];
extern const char EXAMPLES[];

// How a command's inputs are read.
enum class loading_t {
    BLOCKS,      // the one FILE as IntelHexFile blocks
    MERGED,      // every operand, merged by --overlap and --start-address
    FIRST,       // the first operand as an image (the others are the command's)
    FIRST_TWO,   // the first two operands as two images
    STREAMED     // convert: one binary file written straight to the output when it can be, else MERGED
};

// Every option of every command.
enum class option_t {
    HELP, ONE_BLOCK, STRICT, FULL_FORMAT, INPUT_FORMAT, JSON, WIDTH, OUTPUT, REVERSE, BLOCK,
    OUTPUT_FORMAT, RECORD_SIZE, ADDRESSING, ADDRESS_SIZE, CRLF, FILL, OVERLAP, START_ADDRESS,
    OFFSET, CROP, EXCLUDE, FILL_RANGE, SWAP, INSERT_CRC, INSERT_DIGEST, ALGORITHM, CRC_ENDIAN,
    CRC_WIDTH, POLY, INIT, XOROUT, REFLECT_IN, REFLECT_OUT, RANGE,
    SECTORS, PAGE_SIZE, ERASED, KEEP_BLANK, AT, JOIN, SVG, WORD_WIDTH, FAMILY, ARRAY_NAME
};

// An option as the command line writes it and its help, written once for
// every command that takes it.
struct option_entry_t {
    option_t id;
    const char* name;  // the long name, without "--"
    char letter;       // the short name, 0 for none
    const char* value; // the value's name in the help, nullptr for a flag
    const char* help;  // lines of at most 52 characters; nullptr: not shown (kept for old command lines)
};

// An option a command takes, with help of its own where the shared one does
// not fit.
struct option_use_t {
    option_t id;
    const char* help = nullptr;    // nullptr: the option's own
    const char* value = nullptr;   // the value's name, nullptr: the option's own
    const char* heading = nullptr; // a heading to print before it in the help
};

// One command: its texts, its options, how its inputs are read and the
// function that runs it.
struct command_entry_t {
    const char* name;
    const char* usage;            // "usage: hexblocks info FILE [...]\n"
    const char* synopsis;         // for the list of commands: "info FILE [--one-block] [--json]"
    const char* summary;          // for the list of commands: what it does, in a few words
    const char* description;      // its help before the options
    std::vector<option_use_t> options;
    const char* notes;            // its help after the options; "" for none
    std::vector<const char*> operands; // their names; the last repeats when variadic
    bool variadic;
    loading_t loading;
    int unreadable;               // the exit code when an input cannot be read
    int (*run)(const options_t& options, inputs_t& inputs);
};

// The commands, in the order the help lists them.
const std::vector<command_entry_t>& commands();

// The command called name; nullptr when there is none.
const command_entry_t* findCommand(const std::string& name);

// The option with this id.
const option_entry_t& optionEntry(option_t id);

} // namespace hexblocks::cli

#endif
