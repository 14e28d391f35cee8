#include "command_line.h"

#include "commands.h"
#include "text_format.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <initializer_list>
#include <iostream>
#include <sstream>
#include <utility>

#include <getopt.h>

// Declared extern in the header, so these have external linkage.
const char PROGRAM[] = "hexblocks";

const char MAIN_USAGE[] =
    "usage: hexblocks COMMAND FILE [OPTIONS]\n"
    "       hexblocks convert INPUT... -o OUTPUT [OPTIONS]\n"
    "       hexblocks verify FILE DUMP --at ADDRESS [OPTIONS]\n"
    "       hexblocks diff A B [OPTIONS]\n"
    "       hexblocks --help | --version | --generate man|complete-bash\n";

const char MAIN_INTRO[] =
    "Inspect, map, dump, extract, convert and check firmware images (Intel HEX,\n"
    "Motorola S-records, ELF and raw binary), plan flashing, verify read-backs\n"
    "and diff images.\n";

const char MAIN_OPTIONS[] =
    "Options:\n"
    "  -h, --help      show help (after a command: that command's help)\n"
    "  -V, --version   show the version\n"
    "      --generate man|complete-bash\n"
    "                  print the manual page or the bash completion script\n";

const char MAIN_NOTES[] =
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
    "followed by one line FILE:LINE: REASON.\n";

const char EXIT_STATUS[] =
    "Exit status: 0 on success, 1 when a file cannot be read or written, a\n"
    "merge or edit is refused or a plan finds data outside the flash, 2 on a\n"
    "usage error. verify and diff, like cmp: 0 when the images match, 1 when\n"
    "they differ, 2 on trouble (a usage error or an input that cannot be read).\n";

const char EXAMPLES[] =
    "Examples:\n"
    "  hexblocks info fw.hex\n"
    "      list the blocks of a HEX file\n"
    "  hexblocks convert app.elf -o app.hex\n"
    "      ELF to Intel HEX\n"
    "  hexblocks bin --one-block -o fw.bin fw.hex\n"
    "      a flat binary from the lowest to the highest address, gaps 0xFF\n"
    "  hexblocks convert boot.hex app.hex -o factory.hex \\\n"
    "      --fill-range 0x08004000:0x08040000 \\\n"
    "      --insert-crc 0x08004000:0x0803FFFC@0x0803FFFC --algorithm stm32\n"
    "      a bootloader and an application merged, with the application's CRC\n"
    "  hexblocks plan fw.hex --sectors 0x08000000:4x16K,1x64K,7x128K\n"
    "      the sectors to erase and the pages to write on an STM32F4\n"
    "  hexblocks verify fw.hex readback.bin --at 0x08000000\n"
    "      check a read-back of the flash\n"
    "  hexblocks diff release-1.hex release-2.hex\n"
    "      the address ranges where two releases differ\n";

namespace {

// The column where option help starts.
const size_t HELP_COLUMN = 28;

const std::vector<OptionEntry> OPTIONS = {
    {option_t::HELP, "help", 'h', nullptr, "show this help"},
    {option_t::ONE_BLOCK, "one-block", '1', nullptr, "load the whole file as one block, gaps filled\nwith 0xFF"},
    {option_t::STRICT, "strict", 0, nullptr, "read only record types 00, 01 and 04, blocks\nwithin a linear base"},
    // The whole format is the default; the option stays accepted.
    {option_t::FULL_FORMAT, "full-format", 'F', nullptr, nullptr},
    {option_t::INPUT_FORMAT, "input-format", 'I', "ihex|srec|elf|bin",
     "read FILE in this format instead of telling it\nfrom the content"},
    {option_t::JSON, "json", 'j', nullptr, "print the same as JSON"},
    {option_t::WIDTH, "width", 'w', "N", "width of the strip in columns (16 to 1000,\ndefault 64)"},
    {option_t::OUTPUT, "output", 'o', "OUTPUT", "the file to write; \"-\" is standard output"},
    {option_t::REVERSE, "reverse", 'r', nullptr, "reverse the bytes of every block before writing"},
    {option_t::BLOCK, "block", 'b', "N", "dump only block N (counted from 0)"},
    {option_t::OUTPUT_FORMAT, "output-format", 'O', "ihex|srec|bin",
     "the output format, whatever the extension says;\nneeded when OUTPUT is \"-\""},
    {option_t::RECORD_SIZE, "record-size", 0, "N",
     "data bytes per record (Intel HEX 1 to 255,\nS-records up to 250-252; default 16)"},
    {option_t::ADDRESSING, "addressing", 0, "linear|segment",
     "Intel HEX address records: type 04 (default) or\ntype 02, which reaches only the first MiB"},
    {option_t::ADDRESS_SIZE, "address-size", 0, "2|3|4",
     "S-record address bytes (S1, S2, S3); default: the\nsmallest that holds every address"},
    {option_t::CRLF, "crlf", 0, nullptr, "end lines with CR LF instead of LF"},
    {option_t::FILL, "fill", 0, "BYTE", "the byte for addresses without data (default 0xFF)"},
    {option_t::OVERLAP, "overlap", 0, "error|first|last|identical",
     "data that two inputs give at the same address: an\nerror naming both inputs and lines (default), the\n"
     "earlier or the later input wins, or only equal bytes"},
    {option_t::START_ADDRESS, "start-address", 0, "error|first|last|drop",
     "different start addresses: an error (default), the\nearlier input's, the later input's, or none at all"},
    {option_t::OFFSET, "offset", 0, "N", "move the image by N, which may be negative"},
    {option_t::CROP, "crop", 0, "RANGE",
     "keep only the data in RANGE; --crop options that\nfollow each other keep the union of their ranges"},
    {option_t::EXCLUDE, "exclude", 0, "RANGE", "remove the data in RANGE"},
    {option_t::FILL_RANGE, "fill-range", 0, "RANGE", "give every address in RANGE without data the\nfill byte"},
    {option_t::SWAP, "swap", 0, "2|4", "reverse the bytes of each aligned 16- or\n32-bit word"},
    {option_t::INSERT_CRC, "insert-crc", 0, "RANGE@ADDRESS",
     "store the checksum of RANGE (addresses without data\ncount as the fill byte) at ADDRESS, outside RANGE"},
    {option_t::ALGORITHM, "algorithm", 'a', "NAME", "one of the names below (default crc32)"},
    {option_t::CRC_ENDIAN, "crc-endian", 0, "little|big", "byte order of the stored checksum (default little)"},
    {option_t::CRC_WIDTH, "width", 0, "8|16|32", "a CRC of your own instead of --algorithm:\nits width,"},
    {option_t::POLY, "poly", 0, "N", "polynomial (needed with --width),"},
    {option_t::INIT, "init", 0, "N", "initial value (default 0),"},
    {option_t::XOROUT, "xorout", 0, "N", "final XOR (default 0),"},
    {option_t::REFLECT_IN, "reflect-in", 0, nullptr, "input bytes least significant bit first,"},
    {option_t::REFLECT_OUT, "reflect-out", 0, nullptr, "the result reflected before the final XOR"},
    {option_t::RANGE, "range", 0, "START:END",
     "the addresses to cover, END exclusive and at most\n0x100000000 (default: lowest to highest address)"},
    {option_t::SECTORS, "sectors", 's', "SECTORS",
     "ADDRESS:COUNTxSIZE[,COUNTxSIZE...], sizes with an\noptional K or M: 0x08000000:64x4K is uniform flash,\n"
     "0x08000000:4x16K,1x64K,7x128K an STM32F4"},
    {option_t::PAGE_SIZE, "page-size", 'p', "N",
     "the program unit in bytes, K or M allowed (default\n256); every sector boundary must be a multiple of it"},
    {option_t::ERASED, "erased", 'e', "BYTE", "the value of erased flash (default 0xFF)"},
    {option_t::KEEP_BLANK, "keep-blank", 0, nullptr, "write blank pages too"},
    {option_t::AT, "at", 0, "ADDRESS", "the address of DUMP's first byte"},
    {option_t::SVG, "svg", 0, nullptr, "draw the map as an SVG picture"},
    {option_t::JOIN, "join", 0, "N",
     "differing bytes separated by at most N equal bytes\nshare a range (default 16; 0: each run of its own)"},
};

// How the commands that read one file as blocks read it.
const std::vector<OptionUse> BLOCK_READING = {{option_t::ONE_BLOCK}, {option_t::STRICT}, {option_t::FULL_FORMAT},
                                              {option_t::INPUT_FORMAT}};

// A CRC of the user's own.
const std::vector<OptionUse> CUSTOM_CRC = {{option_t::CRC_WIDTH}, {option_t::POLY},       {option_t::INIT},
                                           {option_t::XOROUT},    {option_t::REFLECT_IN}, {option_t::REFLECT_OUT}};

std::vector<OptionUse> joined(std::initializer_list<std::vector<OptionUse>> parts)
{
    std::vector<OptionUse> all;
    for (const std::vector<OptionUse>& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

const char ALGORITHMS[] =
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
    "  sum16              0x01DD       the sum of the bytes modulo 65536\n";

const std::vector<CommandEntry>& commandTable()
{
    static const std::vector<CommandEntry> table = {
        {"info", "usage: hexblocks info FILE [--one-block] [--strict] [--json]\n", "info FILE [--one-block] [--json]",
         "list the blocks with their addresses and sizes",
         "List the blocks of FILE: index, full 32-bit start and end address (the\n"
         "last byte), size, linear base (upper 16 bits) and 16-bit start address,\n"
         "then a total line with the number of blocks, the bytes and the span.\n"
         "\n"
         "It also shows the start address, if the file gives one.\n",
         joined({BLOCK_READING, {{option_t::JSON}, {option_t::HELP}}}), "", {"FILE"}, false, loading_t::BLOCKS,
         EXIT_FAILED, runInfo},
        {"map", "usage: hexblocks map FILE [--one-block] [--strict] [--width N] [--svg [-o OUTPUT]]\n",
         "map FILE [--one-block] [--svg]", "draw the address space: blocks and gaps to scale",
         "Draw the address space of FILE: a strip in which every block has a letter\n"
         "and takes room in proportion to its size, '.' marks a gap, and \"=//=\"\n"
         "marks a gap too large to draw to scale; then one line per block and gap.\n"
         "Files with many blocks are shown as at most 16 regions of neighbouring blocks.\n"
         "\n"
         "With --svg, draw the same as an SVG picture: the strip to scale, each block\n"
         "labelled with its address range and size, and the start address marked.\n",
         joined({BLOCK_READING,
                 {{option_t::WIDTH},
                  {option_t::SVG},
                  {option_t::OUTPUT, "the SVG file to write (default: standard\noutput)"},
                  {option_t::HELP}}}),
         "", {"FILE"}, false, loading_t::BLOCKS, EXIT_FAILED, runMap},
        {"bin", "usage: hexblocks bin FILE [-o DIR|OUTPUT|-] [--one-block] [--strict] [--reverse]\n",
         "bin FILE [-o DIR] [--one-block] [--reverse]", "write each block as a raw binary file",
         "Write each block of FILE as a raw binary file named after FILE and the\n"
         "block's full start address, e.g. app_0x08004000.bin, and print one line per\n"
         "file written. A file that cannot be written completely is removed.\n"
         "\n"
         "With -o naming anything but a directory, write the one block of FILE (with\n"
         "--one-block: the whole image, gaps filled with 0xFF) to that file, or to\n"
         "standard output for \"-\"; FILE must then have at most one block.\n",
         joined({{{option_t::OUTPUT,
                   "a directory for the files (default: the current\ndirectory; an existing one, or a name ending in\n"
                   "'/'), else the one file to write",
                   "DIR|OUTPUT|-"}},
                 BLOCK_READING,
                 {{option_t::REVERSE}, {option_t::HELP}}}),
         "", {"FILE"}, false, loading_t::BLOCKS, EXIT_FAILED, runBin},
        {"dump", "usage: hexblocks dump FILE [--block N] [--one-block] [--strict]\n",
         "dump FILE [--block N] [--one-block]", "hex and ASCII dump with full 32-bit addresses",
         "Print the blocks of FILE as hex and ASCII, 16 bytes a line, in the style of\n"
         "xxd, with full 32-bit addresses.\n",
         joined({{{option_t::BLOCK}}, BLOCK_READING, {{option_t::HELP}}}), "", {"FILE"}, false, loading_t::BLOCKS,
         EXIT_FAILED, runDump},
        {"convert", "usage: hexblocks convert INPUT... -o OUTPUT [OPTIONS]\n", "convert INPUT... -o OUTPUT",
         "merge inputs, edit the image, insert a CRC and\nwrite it as Intel HEX, S-records or binary",
         "Read every INPUT (Intel HEX, S-records, ELF or binary; \"-\" is standard\n"
         "input), merge them into one image, apply the edits in the order given, and\n"
         "write the image to OUTPUT as Intel HEX, S-records or binary, through a\n"
         "temporary file that is renamed into place: a failure leaves no OUTPUT and an\n"
         "existing one as it was.\n"
         "\n"
         "The output format comes from OUTPUT's extension: .hex .ihex .ihx Intel HEX,\n"
         ".srec .s19 .s28 .s37 .mot S-records, .bin binary.\n",
         joined({{{option_t::OUTPUT},
                  {option_t::OUTPUT_FORMAT},
                  {option_t::INPUT_FORMAT, "read every INPUT in this format"},
                  {option_t::RECORD_SIZE},
                  {option_t::ADDRESSING},
                  {option_t::ADDRESS_SIZE},
                  {option_t::CRLF},
                  {option_t::FILL,
                   "the byte for addresses without data: in binary\noutput, --fill-range and --insert-crc (default "
                   "0xFF)"},
                  {option_t::OVERLAP, nullptr, nullptr, "Merging:"},
                  {option_t::START_ADDRESS},
                  {option_t::OFFSET, nullptr, nullptr,
                   "Edits, in the order given (RANGE is START:END, END exclusive and at most\n"
                   "0x100000000; numbers are decimal or 0x hexadecimal):"},
                  {option_t::CROP},
                  {option_t::EXCLUDE},
                  {option_t::FILL_RANGE},
                  {option_t::SWAP},
                  {option_t::INSERT_CRC},
                  {option_t::ALGORITHM,
                   "the checksum --insert-crc stores (default crc32; the\nnames are listed by 'hexblocks crc "
                   "--help')"},
                  {option_t::CRC_ENDIAN}},
                 CUSTOM_CRC,
                 {{option_t::HELP}}}),
         "", {"INPUT"}, true, loading_t::MERGED, EXIT_FAILED, runConvert},
        {"crc", "usage: hexblocks crc FILE [--algorithm NAME] [--range START:END] [--fill BYTE] [--json]\n",
         "crc FILE [--algorithm NAME]", "CRC or sum of a range of the image",
         "Compute a CRC or sum over a range of FILE (Intel HEX, S-records, ELF or\n"
         "binary, as convert reads them; \"-\" is standard input) and print one line:\n"
         "the algorithm, the value in hexadecimal, the range and the byte count.\n"
         "Addresses without data count as the fill byte.\n",
         joined({{{option_t::ALGORITHM}, {option_t::RANGE}, {option_t::FILL}},
                 CUSTOM_CRC,
                 {{option_t::INPUT_FORMAT, "read FILE in this format"},
                  {option_t::JSON, "print {\"algorithm\", \"value\", \"start\", \"size\", \"fill\"}"},
                  {option_t::HELP}}}),
         ALGORITHMS, {"FILE"}, false, loading_t::MERGED, EXIT_FAILED, runCrc},
        {"plan", "usage: hexblocks plan FILE --sectors SECTORS [--page-size N] [--erased BYTE] [--keep-blank] [--json]\n",
         "plan FILE --sectors SECTORS", "the sectors to erase and pages to write to flash",
         "Plan writing FILE (Intel HEX, S-records, ELF or binary; \"-\" is standard\n"
         "input) to flash: the sectors to erase, those that hold at least one data\n"
         "byte, each marked partial when some of its bytes hold no data (an erase\n"
         "loses what they held); the pages to write, those that hold at least one\n"
         "data byte, adjacent pages on one line; and the totals. A page whose bytes\n"
         "all equal the erased value, gaps included, is skipped. Data outside the\n"
         "sectors is an error naming its first address.\n",
         {{option_t::SECTORS},
          {option_t::PAGE_SIZE},
          {option_t::ERASED},
          {option_t::KEEP_BLANK},
          {option_t::INPUT_FORMAT, "read FILE in this format"},
          {option_t::JSON,
           "print {\"erase\": [{\"address\", \"size\", \"partial\"}],\n\"write\": [{\"address\", \"size\"}] (every "
           "page),\n\"skipped_blank\", and the totals}"},
          {option_t::HELP}},
         "", {"FILE"}, false, loading_t::FIRST, EXIT_FAILED, runPlan},
        {"verify", "usage: hexblocks verify FILE DUMP --at ADDRESS [--json]\n", "verify FILE DUMP --at ADDRESS",
         "compare the image with a read-back binary dump",
         "Compare every data byte of FILE (any input format) with the byte at the\n"
         "same address of DUMP, a raw binary read back from ADDRESS (\"-\" is\n"
         "standard input). Print the first 10 mismatches, one a line, and a summary\n"
         "line; data outside DUMP is not covered and fails the check.\n",
         {{option_t::AT},
          {option_t::INPUT_FORMAT, "read FILE in this format"},
          {option_t::JSON,
           "print {\"compared\", \"mismatches\", \"not_covered\",\n\"first_not_covered\", \"first\": [{\"address\",\n"
           "\"expected\", \"found\"}], \"ok\"}"},
          {option_t::HELP}},
         "Exit status: 0 when every byte matches, 1 when not, 2 on trouble.\n", {"FILE", "DUMP"}, false,
         loading_t::FIRST, EXIT_TROUBLE, runVerify},
        {"diff", "usage: hexblocks diff A B [--join N] [--json]\n", "diff A B",
         "the address ranges where two images differ",
         "Compare two images, each in any input format (FILE@ADDRESS for binary):\n"
         "one line per address range where only A or only B has data, or where both\n"
         "have data and bytes differ, such as\n"
         "  0x08000400-0x080007FF  differ (17 bytes)\n"
         "and one line for the start addresses when they differ. Equal images print\n"
         "nothing.\n",
         {{option_t::JOIN},
          {option_t::INPUT_FORMAT, "read A and B in this format"},
          {option_t::JSON,
           "print {\"ranges\": [{\"start\", \"end\" (exclusive),\n\"kind\": \"only_a\"|\"only_b\"|\"differ\", "
           "\"bytes\"}],\n\"start_address\", \"equal\"}"},
          {option_t::HELP}},
         "Exit status: 0 when the images are equal, 1 when they differ, 2 on trouble.\n", {"A", "B"}, false,
         loading_t::FIRST_TWO, EXIT_TROUBLE, runDiff},
    };
    return table;
}

// text with every line after the first indented to column.
std::string indentedLines(const std::string& text, size_t column)
{
    std::string out;
    for (const char c : text) {
        out += c;
        if (c == '\n')
            out += std::string(column, ' ');
    }
    return out;
}

// "  -s, --sectors SECTORS" or "      --crlf".
std::string optionLabel(const OptionEntry& entry, const char* value)
{
    std::string label = entry.letter != 0 ? std::string("  -") + entry.letter + ", " : "      ";
    label += std::string("--") + entry.name;
    if (value != nullptr)
        label += std::string(" ") + value;
    return label;
}

} // namespace

const std::vector<CommandEntry>& commands()
{
    return commandTable();
}

const CommandEntry* findCommand(const std::string& name)
{
    for (const CommandEntry& c : commands())
        if (name == c.name)
            return &c;
    return nullptr;
}

const OptionEntry& optionEntry(option_t id)
{
    return *std::find_if(OPTIONS.begin(), OPTIONS.end(), [id](const OptionEntry& o) { return o.id == id; });
}

int usageError(const std::string& message, const char* usage)
{
    std::cerr << PROGRAM << ": " << message << "\n"
              << usage << "Try 'hexblocks --help' for more information." << std::endl;
    return EXIT_USAGE;
}

std::string mainHelp()
{
    std::string help = std::string(MAIN_USAGE) + "\n" + MAIN_INTRO + "\nCommands:\n";
    const size_t column = 37;
    for (const CommandEntry& c : commands()) {
        const std::string synopsis = std::string("  ") + c.synopsis;
        help += synopsis.size() + 1 < column ? padRight(synopsis, column) : synopsis + "\n" + std::string(column, ' ');
        help += indentedLines(c.summary, column) + "\n";
    }
    return help + "\n" + MAIN_OPTIONS + "\n" + MAIN_NOTES + "\n" + EXIT_STATUS + "\n" + EXAMPLES;
}

std::string commandHelp(const CommandEntry& command)
{
    std::string help = std::string(command.usage) + "\n" + command.description + "\n";
    for (const OptionUse& use : command.options) {
        const OptionEntry& entry = optionEntry(use.id);
        const char* text = use.help != nullptr ? use.help : entry.help;
        if (text == nullptr)
            continue;
        if (use.heading != nullptr)
            help += std::string("\n") + use.heading + "\n";
        const std::string label = optionLabel(entry, use.value != nullptr ? use.value : entry.value);
        help += label.size() + 2 <= HELP_COLUMN ? padRight(label, HELP_COLUMN)
                                                 : label + "\n" + std::string(HELP_COLUMN, ' ');
        help += indentedLines(text, HELP_COLUMN) + "\n";
    }
    if (*command.notes != '\0')
        help += std::string("\n") + command.notes;
    return help;
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
int checkConvertLine(const CommandEntry& command, const std::vector<std::string>& operands, Options& options)
{
    if (options.output.empty())
        return usageError("missing -o OUTPUT", command.usage);
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
    return EXIT_OK;
}

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
int parseEdit(option_t option, const std::string& text, bool followsCrop, const CommandEntry& command,
              Options& options)
{
    Edit edit;
    MemoryImage::range_t range{0, 0};
    switch (option) {
    case option_t::OFFSET:
        edit.kind = Edit::kind_t::OFFSET;
        edit.option = "--offset " + text;
        if (!parseSigned(text, edit.delta))
            return usageError("invalid offset '" + text + "' (-0xFFFFFFFF to 0xFFFFFFFF)", command.usage);
        break;
    case option_t::CROP:
    case option_t::EXCLUDE:
    case option_t::FILL_RANGE: {
        const std::string name = std::string("--") + optionEntry(option).name;
        if (!parseRange(text, range))
            return usageError("invalid range '" + text + "' for " + name + RANGE_FORM, command.usage);
        if (option == option_t::CROP && followsCrop) {
            options.edits.back().ranges.push_back(range);
            options.edits.back().option += " " + name + " " + text;
            return EXIT_OK;
        }
        edit.kind = option == option_t::CROP      ? Edit::kind_t::CROP
                  : option == option_t::EXCLUDE   ? Edit::kind_t::EXCLUDE
                                                  : Edit::kind_t::FILL_RANGE;
        edit.option = name + " " + text;
        edit.ranges.push_back(range);
        break;
    }
    case option_t::SWAP:
        edit.kind = Edit::kind_t::SWAP;
        edit.option = "--swap " + text;
        if (text != "2" && text != "4")
            return usageError("invalid word size '" + text + "' for --swap (2 or 4)", command.usage);
        edit.wordSize = text == "2" ? 2 : 4;
        break;
    default: {
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

// Parses the parameters of a CRC of the user's own. Returns EXIT_OK, or the
// exit code of a usage error after printing it.
int parseCrcParameter(option_t option, const std::string& text, const CommandEntry& command, CrcChoice& crc)
{
    const bool width = option == option_t::CRC_WIDTH;
    const char* name = width                    ? "width"
                     : option == option_t::POLY ? "polynomial"
                     : option == option_t::INIT ? "initial value"
                                                : "final XOR";
    uint64_t number = 0;
    if (!parseNumber(text, width ? 8 : 0, width ? 32 : 0xFFFFFFFF, number) ||
        (width && number != 8 && number != 16 && number != 32))
        return usageError(std::string("invalid CRC ") + name + " '" + text + "'" + (width ? " (8, 16 or 32)" : ""),
                          command.usage);
    crc.custom = true;
    const uint32_t v = static_cast<uint32_t>(number);
    if (width) {
        crc.model.width = v;
        crc.hasWidth = true;
    } else if (option == option_t::POLY) {
        crc.model.poly = v;
        crc.hasPoly = true;
    } else {
        (option == option_t::INIT ? crc.model.init : crc.model.xorOut) = v;
    }
    return EXIT_OK;
}

// The state of parsing besides the options: what is read once everything
// is known, and what joins options that follow each other.
struct ParseState {
    CrcChoice crc;
    std::string sectors; // plan --sectors, read once the page size is known
    bool hasAt = false;
    option_t previous = option_t::HELP; // the option before, to join --crop options that follow each other
};

// Applies one option with its value (nullptr for a flag). Returns EXIT_OK,
// or the exit code of a usage error after printing it.
int applyOption(option_t option, const char* value, const CommandEntry& command, Options& options, ParseState& state)
{
    const std::string text = value != nullptr ? value : "";
    uint64_t number = 0;
    switch (option) {
    case option_t::HELP: options.help = true; break;
    case option_t::ONE_BLOCK: options.oneBlock = true; break;
    case option_t::STRICT: options.strict = true; break;
    case option_t::FULL_FORMAT: break;
    case option_t::JSON: options.json = true; break;
    case option_t::SVG: options.svg = true; break;
    case option_t::REVERSE: options.reverse = true; break;
    case option_t::OUTPUT: options.output = text; break;
    case option_t::CRLF: options.save.crlf = true; break;
    case option_t::KEEP_BLANK: options.keepBlank = true; break;
    case option_t::REFLECT_IN: state.crc.custom = state.crc.model.reflectIn = true; break;
    case option_t::REFLECT_OUT: state.crc.custom = state.crc.model.reflectOut = true; break;
    case option_t::SECTORS: state.sectors = text; break;
    case option_t::WIDTH:
        if (!parseCount(value, 16, 1000, options.width))
            return usageError("invalid width '" + text + "' (16 to 1000)", command.usage);
        break;
    case option_t::BLOCK:
        if (!parseCount(value, 0, static_cast<size_t>(-1), options.block))
            return usageError("invalid block number '" + text + "'", command.usage);
        options.hasBlock = true;
        break;
    case option_t::OFFSET:
    case option_t::CROP:
    case option_t::EXCLUDE:
    case option_t::FILL_RANGE:
    case option_t::SWAP:
    case option_t::INSERT_CRC:
        return parseEdit(option, text, state.previous == option_t::CROP, command, options);
    case option_t::OUTPUT_FORMAT:
        if (!formatByName(text, options.outputFormat) || options.outputFormat == fileformat_t::ELF)
            return usageError("invalid output format '" + text + "' (ihex, srec or bin)", command.usage);
        options.hasOutputFormat = true;
        break;
    case option_t::INPUT_FORMAT:
        if (!formatByName(text, options.inputFormat))
            return usageError("invalid input format '" + text + "' (ihex, srec, elf or bin)", command.usage);
        options.hasInputFormat = true;
        break;
    case option_t::RECORD_SIZE:
        if (!parseNumber(text, 1, 255, number))
            return usageError("invalid record size '" + text + "' (1 to 255)", command.usage);
        options.save.recordSize = static_cast<unsigned>(number);
        break;
    case option_t::ADDRESSING:
        if (!valueByName(text, {{"linear", MemoryImage::addressing_t::LINEAR}, {"segment", MemoryImage::addressing_t::SEGMENT}},
                         options.save.addressing))
            return usageError("invalid addressing '" + text + "' (linear or segment)", command.usage);
        break;
    case option_t::ADDRESS_SIZE:
        if (!parseNumber(text, 2, 4, number))
            return usageError("invalid address size '" + text + "' (2, 3 or 4)", command.usage);
        options.save.addressSize = static_cast<unsigned>(number);
        break;
    case option_t::FILL:
        if (!parseNumber(text, 0, 255, number))
            return usageError("invalid fill byte '" + text + "' (0 to 255, or 0x00 to 0xFF)", command.usage);
        options.save.fill = static_cast<uint8_t>(number);
        break;
    case option_t::OVERLAP: {
        using policy_t = MemoryImage::overlappolicy_t;
        if (!valueByName(text, {{"error", policy_t::ERROR}, {"first", policy_t::FIRST}, {"last", policy_t::LAST},
                                {"identical", policy_t::IDENTICAL}},
                         options.merge.overlap))
            return usageError("invalid overlap policy '" + text + "' (error, first, last or identical)", command.usage);
        break;
    }
    case option_t::START_ADDRESS: {
        using policy_t = MemoryImage::startpolicy_t;
        if (!valueByName(text, {{"error", policy_t::ERROR}, {"first", policy_t::FIRST}, {"last", policy_t::LAST},
                                {"drop", policy_t::DROP}},
                         options.merge.start))
            return usageError("invalid start address policy '" + text + "' (error, first, last or drop)",
                              command.usage);
        break;
    }
    case option_t::ALGORITHM:
        if (!Checksum::findAlgorithm(text, options.algorithm))
            return usageError("unknown algorithm '" + text + "' (see 'hexblocks crc --help')", command.usage);
        state.crc.named = true;
        break;
    case option_t::CRC_ENDIAN:
        if (!valueByName(text, {{"little", Checksum::byteorder_t::LITTLE}, {"big", Checksum::byteorder_t::BIG}},
                         options.crcOrder))
            return usageError("invalid byte order '" + text + "' for --crc-endian (little or big)", command.usage);
        break;
    case option_t::RANGE:
        if (!parseRange(text, options.range))
            return usageError("invalid range '" + text + "'" + RANGE_FORM, command.usage);
        options.hasRange = true;
        break;
    case option_t::CRC_WIDTH:
    case option_t::POLY:
    case option_t::INIT:
    case option_t::XOROUT:
        return parseCrcParameter(option, text, command, state.crc);
    case option_t::PAGE_SIZE:
        if (!FlashPlan::parseSize(text, options.geometry.pageSize))
            return usageError("invalid page size '" + text + "' (1 to 0xFFFFFFFF, K or M allowed)", command.usage);
        break;
    case option_t::ERASED:
        if (!parseNumber(text, 0, 255, number))
            return usageError("invalid erased value '" + text + "' (0 to 255, or 0x00 to 0xFF)", command.usage);
        options.geometry.erased = static_cast<uint8_t>(number);
        break;
    case option_t::AT:
        if (!parseNumber(text, 0, 0xFFFFFFFF, number))
            return usageError("invalid address '" + text + "' for --at (0 to 0xFFFFFFFF)", command.usage);
        options.dumpAddress = static_cast<uint32_t>(number);
        state.hasAt = true;
        break;
    case option_t::JOIN:
        if (!parseNumber(text, 0, 0xFFFFFFFF, number))
            return usageError("invalid --join '" + text + "' (0 to 0xFFFFFFFF)", command.usage);
        options.diff.join = static_cast<uint32_t>(number);
        break;
    }
    return EXIT_OK;
}

// Settles the checksum: the named one, crc32 by default, or a CRC of the
// user's own. Returns EXIT_OK, or the exit code of a usage error after
// printing it.
int chooseChecksum(const CrcChoice& crc, const CommandEntry& command, Options& options)
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

// Checks the operands against the command's, and what needs all options
// known. Returns EXIT_OK, or the exit code of a usage error after printing it.
int checkOperands(const CommandEntry& command, const std::vector<std::string>& operands, const ParseState& state,
                  Options& options)
{
    const size_t wanted = command.operands.size();
    if (operands.size() < wanted)
        return usageError(std::string("missing ") + command.operands[operands.size()], command.usage);
    if (!command.variadic && operands.size() > wanted)
        return usageError("unexpected argument '" + operands[wanted] + "'", command.usage);
    if (std::count(operands.begin(), operands.end(), "-") > 1)
        return usageError("standard input ('-') can be read only once", command.usage);
    options.file = operands[0];
    options.inputs = operands;
    const std::string name = command.name;
    if (name == "convert")
        return checkConvertLine(command, operands, options);
    if (name == "map" && !options.output.empty() && !options.svg)
        return usageError("-o writes the SVG picture: add --svg", command.usage);
    if (name == "verify" && !state.hasAt)
        return usageError("missing --at ADDRESS", command.usage);
    if (name == "plan") {
        if (state.sectors.empty())
            return usageError("missing --sectors", command.usage);
        const FlashPlan::result_t parsed = FlashPlan::parseSectors(state.sectors, options.geometry);
        if (!parsed)
            return usageError("invalid --sectors '" + state.sectors + "': " + parsed.reason, command.usage);
    }
    return EXIT_OK;
}

} // namespace

int parseCommandLine(const CommandEntry& command, int argc, char** argv, Options& options)
{
    // A leading ':' makes getopt report a missing value apart from an unknown
    // option; without '+' options may also follow the file name. Options
    // with a letter come back as it, the others as 256 + their id.
    std::string shortOptions = ":";
    std::vector<option> longOptions;
    for (const OptionUse& use : command.options) {
        const OptionEntry& entry = optionEntry(use.id);
        const int hasValue = entry.value != nullptr ? required_argument : no_argument;
        if (entry.letter != 0)
            shortOptions += std::string(1, entry.letter) + (hasValue == required_argument ? ":" : "");
        longOptions.push_back({entry.name, hasValue, nullptr, entry.letter != 0 ? entry.letter : 256 + static_cast<int>(entry.id)});
    }
    longOptions.push_back({nullptr, 0, nullptr, 0});

    Checksum::findAlgorithm("crc32", options.algorithm);
    ParseState state;
    optind = 0; // restart getopt for the command's own arguments
    opterr = 0;
    for (;;) {
        const int c = getopt_long(argc, argv, shortOptions.c_str(), longOptions.data(), nullptr);
        if (c == -1)
            break;
        if (c == ':')
            return usageError("option '" + offendingOption(argv) + "' needs a value", command.usage);
        const auto use = std::find_if(command.options.begin(), command.options.end(), [c](const OptionUse& u) {
            const OptionEntry& entry = optionEntry(u.id);
            return c < 256 ? entry.letter == c : static_cast<int>(entry.id) == c - 256;
        });
        if (c == '?' || use == command.options.end())
            return usageError("unknown option '" + offendingOption(argv) + "'", command.usage);
        const int applied = applyOption(use->id, optarg, command, options, state);
        if (applied != EXIT_OK)
            return applied;
        state.previous = use->id;
    }
    if (options.help)
        return EXIT_OK;
    const int chosen = chooseChecksum(state.crc, command, options);
    if (chosen != EXIT_OK)
        return chosen;
    return checkOperands(command, std::vector<std::string>(argv + optind, argv + argc), state, options);
}
