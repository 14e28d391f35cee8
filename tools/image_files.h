// How hexblocks names its inputs and outputs: formats by name and by file
// extension, binary inputs as FILE@ADDRESS, numbers in hex or decimal, and
// the images of several inputs combined into one.
#ifndef HEXBLOCKS_IMAGE_FILES_H
#define HEXBLOCKS_IMAGE_FILES_H

#include <hexblocks/formats.h>
#include <hexblocks/memory_image.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace hexblocks::cli {

// An input as named on the command line.
// How inputs are read, whatever their format: the options that say so.
struct read_settings_t {
    unsigned wordWidth = 8;                  // Verilog memory files: bits a word
    std::optional<uint32_t> family;          // UF2: the family to read
    std::optional<overlap_policy_t> overlap; // records that give a byte again
};

struct input_spec_t {
    std::string path;    // "-" for standard input
    bool detect = true;  // tell the format from the content
    file_format_t format = file_format_t::INTEL_HEX;
    uint32_t address = 0; // where binary input goes
    read_settings_t settings;
};

// How the library is to read input.
read_options_t readOptionsOf(const input_spec_t& input);

// The words that name the formats read (or written), from the library's
// format table, joined by separator ("ihex|srec|elf|bin"); with last, the
// final two are joined by it instead ("ihex, srec, elf or bin").
std::string formatWords(bool written, const std::string& separator, const std::string& last = "");

// The extensions of the formats written, for the help: ".hex .ihex .ihx
// Intel HEX, .srec ... S-records, .bin binary".
std::string outputExtensions();

// How the formats are told from their content, for the help: "':' (after
// any white space) is Intel HEX, 'S' and a digit S-records, ...".
std::string recognitionRules();

// A number in decimal or, after "0x", hexadecimal, from low to high.
bool parseNumber(const std::string& text, uint64_t low, uint64_t high, uint64_t& value);

// The input an operand names: FILE@ADDRESS is binary input at ADDRESS
// (unless a file with the whole name exists), FILE.bin binary input at 0
// (an extension of a format that cannot be told from its content),
// and forced, when it is not null, the format for every input; it is read
// with settings. False with error set when ADDRESS is not an address.
bool parseInput(const std::string& operand, const file_format_t* forced, const read_settings_t& settings,
                input_spec_t& input, std::string& error);

// A path that reads what came on standard input: the first call copies
// standard input, which can be read only once, into a file in memory, a
// piece at a time; every call gives that file's path. False with error set
// when standard input cannot be read or kept.
bool standardInputPath(std::string& path, std::string& error);

// Reads input into image; "-" is standard input (see standardInputPath()).
read_result_t readInput(const input_spec_t& input, MemoryImage& image);

// The address ranges [first, second) an image holds data in.
using ranges_t = std::vector<std::pair<uint64_t, uint64_t>>;
ranges_t rangesOf(const MemoryImage& image);

} // namespace hexblocks::cli

#endif
