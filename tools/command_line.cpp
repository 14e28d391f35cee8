#include "command_line.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iostream>

#include <getopt.h>

// Declared extern in the header, so these have external linkage.
const char PROGRAM[] = "hexblocks";

const char MAIN_USAGE[] =
    "usage: hexblocks COMMAND FILE [OPTIONS]\n"
    "       hexblocks convert INPUT... -o OUTPUT [OPTIONS]\n"
    "       hexblocks --help | --version\n";

const char MAIN_HELP[] =
    "Inspect, map, dump, extract and convert firmware images: Intel HEX,\n"
    "Motorola S-records, ELF and raw binary.\n"
    "\n"
    "Commands:\n"
    "  info FILE [--one-block] [--json]   list the blocks with their addresses and sizes\n"
    "  map FILE [--one-block]             draw the address space: blocks and gaps to scale\n"
    "  bin FILE [-o DIR] [--one-block] [--reverse]\n"
    "                                     write each block as a raw binary file\n"
    "  dump FILE [--block N] [--one-block]\n"
    "                                     hex and ASCII dump with full 32-bit addresses\n"
    "  convert INPUT... -o OUTPUT         combine inputs and write them as Intel HEX,\n"
    "                                     S-records or binary\n"
    "\n"
    "Options:\n"
    "  -h, --help      show help (after a command: that command's help)\n"
    "  -V, --version   show the version\n"
    "\n"
    "Inputs: the format is told from the content: ':' is Intel HEX, 'S' and a\n"
    "digit S-records, the ELF magic bytes ELF. Binary input is named\n"
    "FILE@ADDRESS (e.g. app.bin@0x08004000), or FILE.bin (placed at 0), or\n"
    "forced with --input-format bin. ADDRESS is decimal or 0x hexadecimal.\n"
    "\n"
    "Intel HEX is read with the whole format: record types 00 to 05, segment\n"
    "and linear addresses, start addresses, records in any order, blocks by\n"
    "full 32-bit address. With --strict it reads only types 00, 01 and 04\n"
    "instead, with blocks that never cross a 64 KiB linear base, and rejects a\n"
    "file with any other type or a missing end-of-file record. (--full-format,\n"
    "-F, names the default and is still accepted.) After a failed load of a\n"
    "HEX file the library's own diagnostics are followed by one line\n"
    "FILE:LINE: REASON.\n"
    "\n"
    "Exit status: 0 on success, 1 when a file cannot be read or written,\n"
    "2 on a usage error.\n";


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
    {"bin", "usage: hexblocks bin FILE [-o DIR] [--one-block] [--strict] [--reverse]\n",
     "Write each block of FILE as a raw binary file named after FILE and the\n"
     "block's full start address, e.g. app_0x08004000.bin, and print one line per\n"
     "file written. A file that cannot be written completely is removed.\n"
     "\n"
     "  -o, --output DIR  directory for the files (default: the current directory)\n"
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
     "input), combine them into one image and write it to OUTPUT as Intel HEX,\n"
     "S-records or binary, through a temporary file that is renamed into place:\n"
     "a failure leaves no OUTPUT and an existing one as it was. Inputs that give\n"
     "data at the same address, or different start addresses, are an error.\n"
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
     "      --fill BYTE           binary output: the byte for gaps (default 0xFF)\n"
     "  -h, --help                show this help\n"},
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
    OPT_FILL
};

// Parses the value of an option that sets a conversion option. Returns
// EXIT_OK, or the exit code of a usage error after printing it.
int parseValue(int option, const char* value, const CommandSpec& command, Options& options)
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
    }
    return EXIT_OK;
}

} // namespace

// Parses the arguments after the command name. Returns EXIT_OK, or the exit
// code of a usage error after printing it.
int parseCommandLine(const CommandSpec& command, int argc, char** argv, Options& options)
{
    const std::string name = command.name;
    const bool convert = name == "convert";
    // A leading ':' makes getopt report a missing value apart from an unknown
    // option; without '+' options may also follow the file name.
    std::string shortOptions = ":h";
    std::vector<option> longOptions = {{"help", no_argument, nullptr, 'h'}};
    if (convert) {
        shortOptions += "o:O:I:";
        longOptions.insert(longOptions.end(), {{"output", required_argument, nullptr, 'o'},
                                               {"output-format", required_argument, nullptr, 'O'},
                                               {"input-format", required_argument, nullptr, 'I'},
                                               {"record-size", required_argument, nullptr, OPT_RECORD_SIZE},
                                               {"addressing", required_argument, nullptr, OPT_ADDRESSING},
                                               {"address-size", required_argument, nullptr, OPT_ADDRESS_SIZE},
                                               {"crlf", no_argument, nullptr, OPT_CRLF},
                                               {"fill", required_argument, nullptr, OPT_FILL}});
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

    optind = 0; // restart getopt for the command's own arguments
    opterr = 0;
    for (;;) {
        const int c = getopt_long(argc, argv, shortOptions.c_str(), longOptions.data(), nullptr);
        if (c == -1)
            break;
        switch (c) {
        case 'h': options.help = true; break;
        case '1': options.oneBlock = true; break;
        case OPT_STRICT: options.strict = true; break;
        case 'F': break;
        case 'j': options.json = true; break;
        case 'r': options.reverse = true; break;
        case 'o': options.output = optarg; break;
        case OPT_CRLF: options.save.crlf = true; break;
        case 'w':
            if (!parseCount(optarg, 16, 1000, options.width))
                return usageError("invalid width '" + std::string(optarg) + "' (16 to 1000)", command.usage);
            break;
        case 'b':
            if (!parseCount(optarg, 0, static_cast<size_t>(-1), options.block))
                return usageError("invalid block number '" + std::string(optarg) + "'", command.usage);
            options.hasBlock = true;
            break;
        case 'O':
        case 'I':
        case OPT_INPUT_FORMAT:
        case OPT_RECORD_SIZE:
        case OPT_ADDRESSING:
        case OPT_ADDRESS_SIZE:
        case OPT_FILL: {
            const int parsed = parseValue(c, optarg, command, options);
            if (parsed != EXIT_OK)
                return parsed;
            break;
        }
        case ':':
            return usageError("option '" + offendingOption(argv) + "' needs a value", command.usage);
        default:
            return usageError("unknown option '" + offendingOption(argv) + "'", command.usage);
        }
    }
    if (options.help)
        return EXIT_OK;
    std::vector<std::string> operands(argv + optind, argv + argc);
    if (operands.empty())
        return usageError(convert ? "missing INPUT" : "missing FILE", command.usage);
    if (convert)
        return checkConvertLine(command, operands, options);
    if (operands.size() > 1)
        return usageError("unexpected argument '" + operands[1] + "'", command.usage);
    options.file = operands[0];
    return EXIT_OK;
}

