#include "command_line.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <initializer_list>
#include <iostream>
#include <utility>

#include <getopt.h>

// Declared extern in the header, so these have external linkage.
const char PROGRAM[] = "hexblocks";

const char MAIN_USAGE[] =
    "usage: hexblocks COMMAND FILE [OPTIONS]\n"
    "       hexblocks convert INPUT... -o OUTPUT [OPTIONS]\n"
    "       hexblocks verify FILE DUMP --at ADDRESS [OPTIONS]\n"
    "       hexblocks diff A B [OPTIONS]\n"
    "       hexblocks --help | --version\n";

const char MAIN_HELP[] =
    "Inspect, map, dump, extract, convert and check firmware images (Intel HEX,\n"
    "Motorola S-records, ELF and raw binary), plan flashing, verify read-backs\n"
    "and diff images.\n"
    "\n"
    "Commands:\n"
    "  info FILE [--one-block] [--json]   list the blocks with their addresses and sizes\n"
    "  map FILE [--one-block]             draw the address space: blocks and gaps to scale\n"
    "  bin FILE [-o DIR] [--one-block] [--reverse]\n"
    "                                     write each block as a raw binary file\n"
    "  dump FILE [--block N] [--one-block]\n"
    "                                     hex and ASCII dump with full 32-bit addresses\n"
    "  convert INPUT... -o OUTPUT         merge inputs, edit the image, insert a CRC and\n"
    "                                     write it as Intel HEX, S-records or binary\n"
    "  crc FILE [--algorithm NAME]        CRC or sum of a range of the image\n"
    "  plan FILE --sectors SECTORS        the sectors to erase and pages to write to flash\n"
    "  verify FILE DUMP --at ADDRESS      compare the image with a read-back binary dump\n"
    "  diff A B                           the address ranges where two images differ\n"
    "\n"
    "Options:\n"
    "  -h, --help      show help (after a command: that command's help)\n"
    "  -V, --version   show the version\n"
    "\n"
    "Inputs: the format is told from the content: ':' is Intel HEX, 'S' and a\n"
    "digit S-records, the ELF magic bytes ELF. Binary input is named\n"
    "FILE@ADDRESS (e.g. app.bin@0x08004000), or FILE.bin (placed at 0), or\n"
    "forced with --input-format bin. ADDRESS is decimal or 0x hexadecimal.\n"
    "\"-\" is standard input, read once, for every command.\n"
    "\n"
    "Intel HEX is read with the whole format: record types 00 to 05, segment\n"
    "and linear addresses, start addresses, records in any order, blocks by\n"
    "full 32-bit address. With --strict it reads only types 00, 01 and 04\n"
    "instead, with blocks that never cross a 64 KiB linear base, and rejects a\n"
    "file with any other type or a missing end-of-file record. (--full-format,\n"
    "-F, names the default and is still accepted.) After a failed load of a\n"
    "HEX file the library's own diagnostics, all on standard error, are\n"
    "followed by one line FILE:LINE: REASON.\n"
    "\n"
    "Exit status: 0 on success, 1 when a file cannot be read or written, a\n"
    "merge or edit is refused or a plan finds data outside the flash, 2 on a\n"
    "usage error. verify and diff, like cmp: 0 when the images match, 1 when\n"
    "they differ, 2 on trouble (a usage error or an input that cannot be read).\n";


const CommandSpec COMMANDS[] = {
    {"info", "usage: hexblocks info FILE [--one-block] [--strict] [--json]\n",
     "List the blocks of FILE: index, full 32-bit start and end address (the\n"
     "last byte), size, linear base (upper 16 bits) and 16-bit start address,\n"
     "then a total line with the number of blocks, the bytes and the span.\n"
     "\n"
     "It also shows the start address, if the file gives one.\n"
     "\n"
     "  -1, --one-block   load the whole file as one block, gaps filled with 0xFF\n"
     "      --strict      read only record types 00, 01 and 04, blocks within a linear base\n"
     "  -j, --json        print the same as JSON\n"
     "      --input-format ihex|srec|elf|bin\n"
     "                    read FILE in this format instead of telling it from the content\n"
     "  -h, --help        show this help\n"},
    {"map", "usage: hexblocks map FILE [--one-block] [--strict] [--width N]\n",
     "Draw the address space of FILE: a strip in which every block has a letter\n"
     "and takes room in proportion to its size, '.' marks a gap, and \"=//=\"\n"
     "marks a gap too large to draw to scale; then one line per block and gap.\n"
     "Files with many blocks are shown as at most 16 regions of neighbouring blocks.\n"
     "\n"
     "  -1, --one-block   load the whole file as one block\n"
     "      --strict      read only record types 00, 01 and 04, blocks within a linear base\n"
     "  -w, --width N     width of the strip in columns (16 to 1000, default 64)\n"
     "      --input-format ihex|srec|elf|bin\n"
     "                    read FILE in this format instead of telling it from the content\n"
     "  -h, --help        show this help\n"},
    {"bin", "usage: hexblocks bin FILE [-o DIR|OUTPUT|-] [--one-block] [--strict] [--reverse]\n",
     "Write each block of FILE as a raw binary file named after FILE and the\n"
     "block's full start address, e.g. app_0x08004000.bin, and print one line per\n"
     "file written. A file that cannot be written completely is removed.\n"
     "\n"
     "With -o naming anything but a directory, write the one block of FILE (with\n"
     "--one-block: the whole image, gaps filled with 0xFF) to that file, or to\n"
     "standard output for \"-\"; FILE must then have at most one block.\n"
     "\n"
     "  -o, --output DIR|OUTPUT|-\n"
     "                    a directory for the files (default: the current\n"
     "                    directory; an existing one, or a name ending in '/'),\n"
     "                    else the one file to write\n"
     "  -1, --one-block   load the whole file as one block, gaps filled with 0xFF\n"
     "      --strict      read only record types 00, 01 and 04, blocks within a linear base\n"
     "  -r, --reverse     reverse the bytes of every block before writing\n"
     "      --input-format ihex|srec|elf|bin\n"
     "                    read FILE in this format instead of telling it from the content\n"
     "  -h, --help        show this help\n"},
    {"dump", "usage: hexblocks dump FILE [--block N] [--one-block] [--strict]\n",
     "Print the blocks of FILE as hex and ASCII, 16 bytes a line, in the style of\n"
     "xxd, with full 32-bit addresses.\n"
     "\n"
     "  -b, --block N     dump only block N (counted from 0)\n"
     "  -1, --one-block   load the whole file as one block\n"
     "      --strict      read only record types 00, 01 and 04, blocks within a linear base\n"
     "      --input-format ihex|srec|elf|bin\n"
     "                    read FILE in this format instead of telling it from the content\n"
     "  -h, --help        show this help\n"},
    {"convert", "usage: hexblocks convert INPUT... -o OUTPUT [OPTIONS]\n",
     "Read every INPUT (Intel HEX, S-records, ELF or binary; \"-\" is standard\n"
     "input), merge them into one image, apply the edits in the order given, and\n"
     "write the image to OUTPUT as Intel HEX, S-records or binary, through a\n"
     "temporary file that is renamed into place: a failure leaves no OUTPUT and an\n"
     "existing one as it was.\n"
     "\n"
     "The output format comes from OUTPUT's extension: .hex .ihex .ihx Intel HEX,\n"
     ".srec .s19 .s28 .s37 .mot S-records, .bin binary.\n"
     "\n"
     "  -o, --output OUTPUT       the file to write; \"-\" is standard output\n"
     "  -O, --output-format ihex|srec|bin\n"
     "                            the output format, whatever the extension says;\n"
     "                            needed when OUTPUT is \"-\"\n"
     "  -I, --input-format ihex|srec|elf|bin\n"
     "                            read every INPUT in this format\n"
     "      --record-size N       data bytes per record (Intel HEX 1 to 255, S-records\n"
     "                            up to 250-252; default 16)\n"
     "      --addressing linear|segment\n"
     "                            Intel HEX address records: type 04 (default) or\n"
     "                            type 02, which reaches only the first MiB\n"
     "      --address-size 2|3|4  S-record address bytes (S1, S2, S3); default: the\n"
     "                            smallest that holds every address\n"
     "      --crlf                end lines with CR LF instead of LF\n"
     "      --fill BYTE           the byte for addresses without data: in binary\n"
     "                            output, --fill-range and --insert-crc (default 0xFF)\n"
     "\n"
     "Merging:\n"
     "      --overlap error|first|last|identical\n"
     "                            data that two inputs give at the same address: an\n"
     "                            error naming both inputs and lines (default), the\n"
     "                            earlier or the later input wins, or only equal bytes\n"
     "      --start-address error|first|last|drop\n"
     "                            different start addresses: an error (default), the\n"
     "                            earlier input's, the later input's, or none at all\n"
     "\n"
     "Edits, in the order given (RANGE is START:END, END exclusive and at most\n"
     "0x100000000; numbers are decimal or 0x hexadecimal):\n"
     "      --offset N            move the image by N, which may be negative\n"
     "      --crop RANGE          keep only the data in RANGE; --crop options that\n"
     "                            follow each other keep the union of their ranges\n"
     "      --exclude RANGE       remove the data in RANGE\n"
     "      --fill-range RANGE    give every address in RANGE without data the fill byte\n"
     "      --swap 2|4            reverse the bytes of each aligned 16- or 32-bit word\n"
     "      --insert-crc RANGE@ADDRESS\n"
     "                            store the checksum of RANGE (addresses without data\n"
     "                            count as the fill byte) at ADDRESS, outside RANGE\n"
     "      --algorithm NAME      the checksum --insert-crc stores (default crc32; the\n"
     "                            names are listed by 'hexblocks crc --help')\n"
     "      --crc-endian little|big\n"
     "                            byte order of the stored checksum (default little)\n"
     "      --width 8|16|32 --poly N [--init N] [--xorout N] [--reflect-in] [--reflect-out]\n"
     "                            a CRC of your own instead of --algorithm\n"
     "  -h, --help                show this help\n"},
    {"crc", "usage: hexblocks crc FILE [--algorithm NAME] [--range START:END] [--fill BYTE] [--json]\n",
     "Compute a CRC or sum over a range of FILE (Intel HEX, S-records, ELF or\n"
     "binary, as convert reads them; \"-\" is standard input) and print one line:\n"
     "the algorithm, the value in hexadecimal, the range and the byte count.\n"
     "Addresses without data count as the fill byte.\n"
     "\n"
     "  -a, --algorithm NAME      one of the names below (default crc32)\n"
     "      --range START:END     the addresses to cover, END exclusive and at most\n"
     "                            0x100000000 (default: lowest to highest address)\n"
     "      --fill BYTE           the byte for addresses without data (default 0xFF)\n"
     "      --width 8|16|32       a CRC of your own: its width,\n"
     "      --poly N              polynomial (needed with --width),\n"
     "      --init N              initial value (default 0),\n"
     "      --xorout N            final XOR (default 0),\n"
     "      --reflect-in          input bytes least significant bit first,\n"
     "      --reflect-out         the result reflected before the final XOR\n"
     "  -I, --input-format ihex|srec|elf|bin\n"
     "                            read FILE in this format\n"
     "  -j, --json                print {\"algorithm\", \"value\", \"start\", \"size\", \"fill\"}\n"
     "  -h, --help                show this help\n"
     "\n"
     "Algorithms (the value for the nine ASCII bytes \"123456789\"):\n"
     "  crc32              0xCBF43926   CRC-32 (zlib, Ethernet)\n"
     "  crc32c             0xE3069283   CRC-32C (Castagnoli)\n"
     "  crc32-mpeg2        0x0376E6E7\n"
     "  crc32-bzip2        0xFC891918\n"
     "  crc16-ccitt-false  0x29B1\n"
     "  crc16-xmodem       0x31C3\n"
     "  crc16-kermit       0x2189\n"
     "  crc16-modbus       0x4B37\n"
     "  crc16-arc          0xBB3D\n"
     "  crc8               0xF4\n"
     "  stm32              0xD9020D98   an STM32 CRC unit fed 32-bit little-endian\n"
     "                                  words: crc32-mpeg2 of each 4 bytes in reverse\n"
     "                                  order, the range padded with the fill byte\n"
     "  sum8               0xDD         the sum of the bytes modulo 256\n"
     "  sum16              0x01DD       the sum of the bytes modulo 65536\n"},
    {"plan", "usage: hexblocks plan FILE --sectors SECTORS [--page-size N] [--erased BYTE] [--keep-blank] [--json]\n",
     "Plan writing FILE (Intel HEX, S-records, ELF or binary; \"-\" is standard\n"
     "input) to flash: the sectors to erase, those that hold at least one data\n"
     "byte, each marked partial when some of its bytes hold no data (an erase\n"
     "loses what they held); the pages to write, those that hold at least one\n"
     "data byte, adjacent pages on one line; and the totals. A page whose bytes\n"
     "all equal the erased value, gaps included, is skipped. Data outside the\n"
     "sectors is an error naming its first address.\n"
     "\n"
     "  -s, --sectors SECTORS     ADDRESS:COUNTxSIZE[,COUNTxSIZE...], sizes with an\n"
     "                            optional K or M: 0x08000000:64x4K is uniform flash,\n"
     "                            0x08000000:4x16K,1x64K,7x128K an STM32F4\n"
     "  -p, --page-size N         the program unit in bytes, K or M allowed (default\n"
     "                            256); every sector boundary must be a multiple of it\n"
     "  -e, --erased BYTE         the value of erased flash (default 0xFF)\n"
     "      --keep-blank          write blank pages too\n"
     "  -I, --input-format ihex|srec|elf|bin\n"
     "                            read FILE in this format\n"
     "  -j, --json                print {\"erase\": [{\"address\", \"size\", \"partial\"}],\n"
     "                            \"write\": [{\"address\", \"size\"}] (every page),\n"
     "                            \"skipped_blank\", and the totals}\n"
     "  -h, --help                show this help\n"},
    {"verify", "usage: hexblocks verify FILE DUMP --at ADDRESS [--json]\n",
     "Compare every data byte of FILE (any input format) with the byte at the\n"
     "same address of DUMP, a raw binary read back from ADDRESS (\"-\" is\n"
     "standard input). Print the first 10 mismatches, one a line, and a summary\n"
     "line; data outside DUMP is not covered and fails the check.\n"
     "\n"
     "      --at ADDRESS          the address of DUMP's first byte\n"
     "  -I, --input-format ihex|srec|elf|bin\n"
     "                            read FILE in this format\n"
     "  -j, --json                print {\"compared\", \"mismatches\", \"not_covered\",\n"
     "                            \"first_not_covered\", \"first\": [{\"address\",\n"
     "                            \"expected\", \"found\"}], \"ok\"}\n"
     "  -h, --help                show this help\n"
     "\n"
     "Exit status: 0 when every byte matches, 1 when not, 2 on trouble.\n"},
    {"diff", "usage: hexblocks diff A B [--join N] [--json]\n",
     "Compare two images, each in any input format (FILE@ADDRESS for binary):\n"
     "one line per address range where only A or only B has data, or where both\n"
     "have data and bytes differ, such as\n"
     "  0x08000400-0x080007FF  differ (17 bytes)\n"
     "and one line for the start addresses when they differ. Equal images print\n"
     "nothing.\n"
     "\n"
     "      --join N              differing bytes separated by at most N equal bytes\n"
     "                            share a range (default 16; 0: each run of its own)\n"
     "  -I, --input-format ihex|srec|elf|bin\n"
     "                            read A and B in this format\n"
     "  -j, --json                print {\"ranges\": [{\"start\", \"end\" (exclusive),\n"
     "                            \"kind\": \"only_a\"|\"only_b\"|\"differ\", \"bytes\"}],\n"
     "                            \"start_address\", \"equal\"}\n"
     "  -h, --help                show this help\n"
     "\n"
     "Exit status: 0 when the images are equal, 1 when they differ, 2 on trouble.\n"},
};

const CommandSpec* findCommand(const std::string& name)
{
    for (const CommandSpec& c : COMMANDS)
        if (name == c.name)
            return &c;
    return nullptr;
}

int usageError(const std::string& message, const char* usage)
{
    std::cerr << PROGRAM << ": " << message << "\n"
              << usage << "Try 'hexblocks --help' for more information." << std::endl;
    return EXIT_USAGE;
}

namespace {

bool parseCount(const char* text, size_t low, size_t high, size_t& value)
{
    if (text == nullptr || *text == '\0' || *text == '-' || *text == '+')
        return false;
    char* end = nullptr;
    errno = 0;
    const unsigned long long parsed = std::strtoull(text, &end, 10);
    if (errno != 0 || *end != '\0' || parsed < low || parsed > high)
        return false;
    value = static_cast<size_t>(parsed);
    return true;
}

// The option getopt_long just refused, as the user wrote it.
std::string offendingOption(char** argv)
{
    const std::string last = argv[optind - 1];
    if (last.compare(0, 2, "--") == 0)
        return last.substr(0, last.find('='));
    if (optopt != 0)
        return std::string("-") + static_cast<char>(optopt);
    return last;
}

// Checks convert's operands and output. Returns EXIT_OK, or the exit code of
// a usage error after printing it.
int checkConvertLine(const CommandSpec& command, const std::vector<std::string>& operands, Options& options)
{
    if (options.output.empty())
        return usageError("missing -o OUTPUT", command.usage);
    if (std::count(operands.begin(), operands.end(), "-") > 1)
        return usageError("standard input ('-') can be read only once", command.usage);
    for (const std::string& operand : operands) {
        InputSpec input;
        std::string error;
        if (!parseInput(operand, options.hasInputFormat ? &options.inputFormat : nullptr, input, error))
            return usageError(error, command.usage);
    }
    if (!options.hasOutputFormat) {
        if (options.output == "-")
            return usageError("--output-format is needed to write to standard output", command.usage);
        if (!formatByExtension(options.output, options.outputFormat))
            return usageError("cannot tell the output format from '" + options.output +
                                  "': use --output-format ihex|srec|bin",
                              command.usage);
    }
    options.save.format = options.outputFormat;
    options.inputs = operands;
    return EXIT_OK;
}

// Long options without a short form.
enum LongOnly {
    OPT_STRICT = 256,
    OPT_INPUT_FORMAT,
    OPT_RECORD_SIZE,
    OPT_ADDRESSING,
    OPT_ADDRESS_SIZE,
    OPT_CRLF,
    OPT_FILL,
    OPT_OVERLAP,
    OPT_START_ADDRESS,
    OPT_OFFSET,
    OPT_CROP,
    OPT_EXCLUDE,
    OPT_FILL_RANGE,
    OPT_SWAP,
    OPT_INSERT_CRC,
    OPT_CRC_ENDIAN,
    OPT_CRC_WIDTH,
    OPT_POLY,
    OPT_INIT,
    OPT_XOROUT,
    OPT_REFLECT_IN,
    OPT_REFLECT_OUT,
    OPT_RANGE,
    OPT_KEEP_BLANK,
    OPT_AT,
    OPT_JOIN
};

// The checksum options as given: a named algorithm, or the parameters of a
// CRC of the user's own.
struct CrcChoice {
    bool named = false;
    bool custom = false;
    bool hasWidth = false;
    bool hasPoly = false;
    Checksum::crcmodel_t model{32, 0, 0, false, false, 0};
};

// The value text names in names; false when it names none.
template <typename Value>
bool valueByName(const std::string& text, std::initializer_list<std::pair<const char*, Value>> names, Value& value)
{
    for (const auto& n : names) {
        if (text == n.first) {
            value = n.second;
            return true;
        }
    }
    return false;
}

// START:END, END exclusive: START up to 0xFFFFFFFF, END above START and up
// to 0x100000000.
bool parseRange(const std::string& text, MemoryImage::range_t& range)
{
    const std::string::size_type colon = text.find(':');
    uint64_t start = 0, end = 0;
    if (colon == std::string::npos || !parseNumber(text.substr(0, colon), 0, 0xFFFFFFFF, start) ||
        !parseNumber(text.substr(colon + 1), 1, 0x100000000ull, end) || end <= start)
        return false;
    range = MemoryImage::range_t{static_cast<uint32_t>(start), end};
    return true;
}

// A number with an optional sign, of at most 0xFFFFFFFF either way.
bool parseSigned(const std::string& text, int64_t& value)
{
    const bool negative = !text.empty() && text[0] == '-';
    const bool sign = !text.empty() && (text[0] == '-' || text[0] == '+');
    uint64_t magnitude = 0;
    if (!parseNumber(text.substr(sign ? 1 : 0), 0, 0xFFFFFFFF, magnitude))
        return false;
    value = negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude);
    return true;
}

const char RANGE_FORM[] = " (START:END, END exclusive, above START and at most 0x100000000)";

// Parses an edit option of convert into options.edits. Returns EXIT_OK, or
// the exit code of a usage error after printing it.
int parseEdit(int option, const std::string& text, bool followsCrop, const CommandSpec& command, Options& options)
{
    Edit edit;
    MemoryImage::range_t range{0, 0};
    switch (option) {
    case OPT_OFFSET:
        edit.kind = Edit::kind_t::OFFSET;
        edit.option = "--offset " + text;
        if (!parseSigned(text, edit.delta))
            return usageError("invalid offset '" + text + "' (-0xFFFFFFFF to 0xFFFFFFFF)", command.usage);
        break;
    case OPT_CROP:
    case OPT_EXCLUDE:
    case OPT_FILL_RANGE: {
        const char* name = option == OPT_CROP ? "--crop" : option == OPT_EXCLUDE ? "--exclude" : "--fill-range";
        if (!parseRange(text, range))
            return usageError("invalid range '" + text + "' for " + name + RANGE_FORM, command.usage);
        if (option == OPT_CROP && followsCrop) {
            options.edits.back().ranges.push_back(range);
            options.edits.back().option += " " + std::string(name) + " " + text;
            return EXIT_OK;
        }
        edit.kind = option == OPT_CROP ? Edit::kind_t::CROP
                  : option == OPT_EXCLUDE ? Edit::kind_t::EXCLUDE : Edit::kind_t::FILL_RANGE;
        edit.option = std::string(name) + " " + text;
        edit.ranges.push_back(range);
        break;
    }
    case OPT_SWAP:
        edit.kind = Edit::kind_t::SWAP;
        edit.option = "--swap " + text;
        if (text != "2" && text != "4")
            return usageError("invalid word size '" + text + "' for --swap (2 or 4)", command.usage);
        edit.wordSize = text == "2" ? 2 : 4;
        break;
    case OPT_INSERT_CRC: {
        edit.kind = Edit::kind_t::INSERT_CRC;
        edit.option = "--insert-crc " + text;
        const std::string::size_type at = text.find('@');
        uint64_t address = 0;
        if (at == std::string::npos || !parseRange(text.substr(0, at), range) ||
            !parseNumber(text.substr(at + 1), 0, 0xFFFFFFFF, address))
            return usageError("invalid --insert-crc '" + text +
                                  "' (START:END@ADDRESS, END exclusive and at most 0x100000000)",
                              command.usage);
        edit.ranges.push_back(range);
        edit.address = static_cast<uint32_t>(address);
        break;
    }
    }
    options.edits.push_back(edit);
    return EXIT_OK;
}

// Parses the value of an option that sets a conversion or checksum option.
// Returns EXIT_OK, or the exit code of a usage error after printing it.
int parseValue(int option, const char* value, const CommandSpec& command, Options& options, CrcChoice& crc)
{
    const std::string text = value;
    uint64_t number = 0;
    switch (option) {
    case 'O':
        if (!formatByName(text, options.outputFormat) || options.outputFormat == fileformat_t::ELF)
            return usageError("invalid output format '" + text + "' (ihex, srec or bin)", command.usage);
        options.hasOutputFormat = true;
        break;
    case 'I':
    case OPT_INPUT_FORMAT:
        if (!formatByName(text, options.inputFormat))
            return usageError("invalid input format '" + text + "' (ihex, srec, elf or bin)", command.usage);
        options.hasInputFormat = true;
        break;
    case OPT_RECORD_SIZE:
        if (!parseNumber(text, 1, 255, number))
            return usageError("invalid record size '" + text + "' (1 to 255)", command.usage);
        options.save.recordSize = static_cast<unsigned>(number);
        break;
    case OPT_ADDRESSING:
        if (text != "linear" && text != "segment")
            return usageError("invalid addressing '" + text + "' (linear or segment)", command.usage);
        options.save.addressing =
            text == "linear" ? MemoryImage::addressing_t::LINEAR : MemoryImage::addressing_t::SEGMENT;
        break;
    case OPT_ADDRESS_SIZE:
        if (!parseNumber(text, 2, 4, number))
            return usageError("invalid address size '" + text + "' (2, 3 or 4)", command.usage);
        options.save.addressSize = static_cast<unsigned>(number);
        break;
    case OPT_FILL:
        if (!parseNumber(text, 0, 255, number))
            return usageError("invalid fill byte '" + text + "' (0 to 255, or 0x00 to 0xFF)", command.usage);
        options.save.fill = static_cast<uint8_t>(number);
        break;
    case OPT_OVERLAP: {
        using policy_t = MemoryImage::overlappolicy_t;
        if (!valueByName(text, {{"error", policy_t::ERROR}, {"first", policy_t::FIRST}, {"last", policy_t::LAST},
                                {"identical", policy_t::IDENTICAL}},
                         options.merge.overlap))
            return usageError("invalid overlap policy '" + text + "' (error, first, last or identical)", command.usage);
        break;
    }
    case OPT_START_ADDRESS: {
        using policy_t = MemoryImage::startpolicy_t;
        if (!valueByName(text, {{"error", policy_t::ERROR}, {"first", policy_t::FIRST}, {"last", policy_t::LAST},
                                {"drop", policy_t::DROP}},
                         options.merge.start))
            return usageError("invalid start address policy '" + text + "' (error, first, last or drop)",
                              command.usage);
        break;
    }
    case 'a':
        if (!Checksum::findAlgorithm(text, options.algorithm))
            return usageError("unknown algorithm '" + text + "' (see 'hexblocks crc --help')", command.usage);
        crc.named = true;
        break;
    case OPT_CRC_ENDIAN:
        if (!valueByName(text, {{"little", Checksum::byteorder_t::LITTLE}, {"big", Checksum::byteorder_t::BIG}},
                         options.crcOrder))
            return usageError("invalid byte order '" + text + "' for --crc-endian (little or big)", command.usage);
        break;
    case OPT_RANGE:
        if (!parseRange(text, options.range))
            return usageError("invalid range '" + text + "'" + RANGE_FORM, command.usage);
        options.hasRange = true;
        break;
    case 'p':
        if (!FlashPlan::parseSize(text, options.geometry.pageSize))
            return usageError("invalid page size '" + text + "' (1 to 0xFFFFFFFF, K or M allowed)", command.usage);
        break;
    case 'e':
        if (!parseNumber(text, 0, 255, number))
            return usageError("invalid erased value '" + text + "' (0 to 255, or 0x00 to 0xFF)", command.usage);
        options.geometry.erased = static_cast<uint8_t>(number);
        break;
    case OPT_AT:
        if (!parseNumber(text, 0, 0xFFFFFFFF, number))
            return usageError("invalid address '" + text + "' for --at (0 to 0xFFFFFFFF)", command.usage);
        options.dumpAddress = static_cast<uint32_t>(number);
        break;
    case OPT_JOIN:
        if (!parseNumber(text, 0, 0xFFFFFFFF, number))
            return usageError("invalid --join '" + text + "' (0 to 0xFFFFFFFF)", command.usage);
        options.diff.join = static_cast<uint32_t>(number);
        break;
    case OPT_CRC_WIDTH:
    case OPT_POLY:
    case OPT_INIT:
    case OPT_XOROUT: {
        const bool width = option == OPT_CRC_WIDTH;
        const char* name = width ? "width" : option == OPT_POLY ? "polynomial" : option == OPT_INIT ? "initial value"
                                                                                            : "final XOR";
        if (!parseNumber(text, width ? 8 : 0, width ? 32 : 0xFFFFFFFF, number) ||
            (width && number != 8 && number != 16 && number != 32))
            return usageError(std::string("invalid CRC ") + name + " '" + text + "'" + (width ? " (8, 16 or 32)" : ""),
                              command.usage);
        crc.custom = true;
        const uint32_t v = static_cast<uint32_t>(number);
        if (width) {
            crc.model.width = v;
            crc.hasWidth = true;
        } else if (option == OPT_POLY) {
            crc.model.poly = v;
            crc.hasPoly = true;
        } else {
            (option == OPT_INIT ? crc.model.init : crc.model.xorOut) = v;
        }
        break;
    }
    }
    return EXIT_OK;
}

// Settles the checksum: the named one, crc32 by default, or a CRC of the
// user's own. Returns EXIT_OK, or the exit code of a usage error after
// printing it.
int chooseChecksum(const CrcChoice& crc, const CommandSpec& command, Options& options)
{
    if (!crc.custom)
        return EXIT_OK;
    if (crc.named)
        return usageError("--algorithm and a CRC of your own (--width, --poly, ...) exclude each other", command.usage);
    if (!crc.hasWidth || !crc.hasPoly)
        return usageError("a CRC of your own needs --width and --poly", command.usage);
    std::string reason;
    if (!Checksum::checkModel(crc.model, reason))
        return usageError(reason, command.usage);
    options.algorithm = Checksum::algorithm_t{"custom", Checksum::kind_t::CRC, crc.model, 0};
    return EXIT_OK;
}

} // namespace

// Parses the arguments after the command name. Returns EXIT_OK, or the exit
// code of a usage error after printing it.
int parseCommandLine(const CommandSpec& command, int argc, char** argv, Options& options)
{
    const std::string name = command.name;
    const bool convert = name == "convert";
    const bool crcCommand = name == "crc";
    // A leading ':' makes getopt report a missing value apart from an unknown
    // option; without '+' options may also follow the file name.
    std::string shortOptions = ":h";
    std::vector<option> longOptions = {{"help", no_argument, nullptr, 'h'}};
    const std::vector<option> checksumOptions = {{"algorithm", required_argument, nullptr, 'a'},
                                                 {"width", required_argument, nullptr, OPT_CRC_WIDTH},
                                                 {"poly", required_argument, nullptr, OPT_POLY},
                                                 {"init", required_argument, nullptr, OPT_INIT},
                                                 {"xorout", required_argument, nullptr, OPT_XOROUT},
                                                 {"reflect-in", no_argument, nullptr, OPT_REFLECT_IN},
                                                 {"reflect-out", no_argument, nullptr, OPT_REFLECT_OUT},
                                                 {"fill", required_argument, nullptr, OPT_FILL}};
    if (convert) {
        shortOptions += "o:O:I:";
        longOptions.insert(longOptions.end(), {{"output", required_argument, nullptr, 'o'},
                                               {"output-format", required_argument, nullptr, 'O'},
                                               {"input-format", required_argument, nullptr, 'I'},
                                               {"record-size", required_argument, nullptr, OPT_RECORD_SIZE},
                                               {"addressing", required_argument, nullptr, OPT_ADDRESSING},
                                               {"address-size", required_argument, nullptr, OPT_ADDRESS_SIZE},
                                               {"crlf", no_argument, nullptr, OPT_CRLF},
                                               {"overlap", required_argument, nullptr, OPT_OVERLAP},
                                               {"start-address", required_argument, nullptr, OPT_START_ADDRESS},
                                               {"offset", required_argument, nullptr, OPT_OFFSET},
                                               {"crop", required_argument, nullptr, OPT_CROP},
                                               {"exclude", required_argument, nullptr, OPT_EXCLUDE},
                                               {"fill-range", required_argument, nullptr, OPT_FILL_RANGE},
                                               {"swap", required_argument, nullptr, OPT_SWAP},
                                               {"insert-crc", required_argument, nullptr, OPT_INSERT_CRC},
                                               {"crc-endian", required_argument, nullptr, OPT_CRC_ENDIAN}});
        longOptions.insert(longOptions.end(), checksumOptions.begin(), checksumOptions.end());
    } else if (crcCommand) {
        shortOptions += "I:a:j";
        longOptions.insert(longOptions.end(), {{"input-format", required_argument, nullptr, 'I'},
                                               {"range", required_argument, nullptr, OPT_RANGE},
                                               {"json", no_argument, nullptr, 'j'}});
        longOptions.insert(longOptions.end(), checksumOptions.begin(), checksumOptions.end());
    } else if (name == "plan") {
        shortOptions += "I:js:p:e:";
        longOptions.insert(longOptions.end(), {{"input-format", required_argument, nullptr, 'I'},
                                               {"sectors", required_argument, nullptr, 's'},
                                               {"page-size", required_argument, nullptr, 'p'},
                                               {"erased", required_argument, nullptr, 'e'},
                                               {"keep-blank", no_argument, nullptr, OPT_KEEP_BLANK},
                                               {"json", no_argument, nullptr, 'j'}});
    } else if (name == "verify" || name == "diff") {
        shortOptions += "I:j";
        longOptions.insert(longOptions.end(), {{"input-format", required_argument, nullptr, 'I'},
                                               {"json", no_argument, nullptr, 'j'}});
        if (name == "verify")
            longOptions.push_back({"at", required_argument, nullptr, OPT_AT});
        else
            longOptions.push_back({"join", required_argument, nullptr, OPT_JOIN});
    } else {
        shortOptions += "1F";
        longOptions.insert(longOptions.end(), {{"one-block", no_argument, nullptr, '1'},
                                               {"strict", no_argument, nullptr, OPT_STRICT},
                                               {"input-format", required_argument, nullptr, OPT_INPUT_FORMAT},
                                               // The whole format is the default; the option stays accepted.
                                               {"full-format", no_argument, nullptr, 'F'}});
    }
    if (name == "info") {
        shortOptions += "j";
        longOptions.push_back({"json", no_argument, nullptr, 'j'});
    } else if (name == "map") {
        shortOptions += "w:";
        longOptions.push_back({"width", required_argument, nullptr, 'w'});
    } else if (name == "bin") {
        shortOptions += "o:r";
        longOptions.push_back({"output", required_argument, nullptr, 'o'});
        longOptions.push_back({"reverse", no_argument, nullptr, 'r'});
    } else if (name == "dump") {
        shortOptions += "b:";
        longOptions.push_back({"block", required_argument, nullptr, 'b'});
    }
    longOptions.push_back({nullptr, 0, nullptr, 0});

    Checksum::findAlgorithm("crc32", options.algorithm);
    CrcChoice crc;
    std::string sectors; // plan --sectors, read once the page size is known
    bool hasAt = false;
    int previous = 0; // the option before, to join --crop options that follow each other
    optind = 0; // restart getopt for the command's own arguments
    opterr = 0;
    for (;;) {
        const int c = getopt_long(argc, argv, shortOptions.c_str(), longOptions.data(), nullptr);
        if (c == -1)
            break;
        int parsed = EXIT_OK;
        switch (c) {
        case 'h': options.help = true; break;
        case '1': options.oneBlock = true; break;
        case OPT_STRICT: options.strict = true; break;
        case 'F': break;
        case 'j': options.json = true; break;
        case 'r': options.reverse = true; break;
        case 'o': options.output = optarg; break;
        case OPT_CRLF: options.save.crlf = true; break;
        case OPT_KEEP_BLANK: options.keepBlank = true; break;
        case 's': sectors = optarg; break;
        case OPT_REFLECT_IN: crc.custom = crc.model.reflectIn = true; break;
        case OPT_REFLECT_OUT: crc.custom = crc.model.reflectOut = true; break;
        case 'w':
            if (!parseCount(optarg, 16, 1000, options.width))
                return usageError("invalid width '" + std::string(optarg) + "' (16 to 1000)", command.usage);
            break;
        case 'b':
            if (!parseCount(optarg, 0, static_cast<size_t>(-1), options.block))
                return usageError("invalid block number '" + std::string(optarg) + "'", command.usage);
            options.hasBlock = true;
            break;
        case OPT_OFFSET:
        case OPT_CROP:
        case OPT_EXCLUDE:
        case OPT_FILL_RANGE:
        case OPT_SWAP:
        case OPT_INSERT_CRC:
            parsed = parseEdit(c, optarg, previous == OPT_CROP, command, options);
            break;
        case 'O':
        case 'I':
        case 'a':
        case OPT_INPUT_FORMAT:
        case OPT_RECORD_SIZE:
        case OPT_ADDRESSING:
        case OPT_ADDRESS_SIZE:
        case OPT_FILL:
        case OPT_OVERLAP:
        case OPT_START_ADDRESS:
        case OPT_CRC_ENDIAN:
        case OPT_RANGE:
        case OPT_CRC_WIDTH:
        case OPT_POLY:
        case OPT_INIT:
        case OPT_XOROUT:
        case 'p':
        case 'e':
        case OPT_AT:
        case OPT_JOIN:
            hasAt = hasAt || c == OPT_AT;
            parsed = parseValue(c, optarg, command, options, crc);
            break;
        case ':':
            return usageError("option '" + offendingOption(argv) + "' needs a value", command.usage);
        default:
            return usageError("unknown option '" + offendingOption(argv) + "'", command.usage);
        }
        if (parsed != EXIT_OK)
            return parsed;
        previous = c;
    }
    if (options.help)
        return EXIT_OK;
    const int chosen = chooseChecksum(crc, command, options);
    if (chosen != EXIT_OK)
        return chosen;
    std::vector<std::string> operands(argv + optind, argv + argc);
    if (operands.empty())
        return usageError(convert ? "missing INPUT" : name == "diff" ? "missing A" : "missing FILE", command.usage);
    if (convert)
        return checkConvertLine(command, operands, options);
    const size_t wanted = name == "verify" || name == "diff" ? 2 : 1;
    if (operands.size() > wanted)
        return usageError("unexpected argument '" + operands[wanted] + "'", command.usage);
    if (operands.size() < wanted)
        return usageError(name == "verify" ? "missing DUMP" : "missing B", command.usage);
    if (wanted == 2 && operands[0] == "-" && operands[1] == "-")
        return usageError("standard input ('-') can be read only once", command.usage);
    if (name == "verify" && !hasAt)
        return usageError("missing --at ADDRESS", command.usage);
    if (name == "plan") {
        if (sectors.empty())
            return usageError("missing --sectors", command.usage);
        const FlashPlan::result_t parsedSectors = FlashPlan::parseSectors(sectors, options.geometry);
        if (!parsedSectors)
            return usageError("invalid --sectors '" + sectors + "': " + parsedSectors.reason, command.usage);
    }
    options.file = operands[0];
    options.inputs = operands;
    return EXIT_OK;
}

