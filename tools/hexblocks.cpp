// hexblocks: inspect, map, dump, extract and convert firmware images (Intel
// HEX, S-records, ELF, raw binary), built on the intelhex library's public
// interface.
#include "image_files.h"
#include "intelhex.h"
#include "memory_image.h"
#include "memory_map.h"
#include "text_format.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#ifndef HEXBLOCKS_VERSION
#define HEXBLOCKS_VERSION "unknown"
#endif

namespace {

const char PROGRAM[] = "hexblocks";

// Exit codes.
const int EXIT_OK = 0;
const int EXIT_FAILED = 1; // a file could not be loaded or written
const int EXIT_USAGE = 2;  // the command line is wrong

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

struct CommandSpec {
    const char* name;
    const char* usage;
    const char* help;
};

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

// Options of every command; each command uses its own subset.
struct Options {
    std::string file;
    std::vector<std::string> inputs; // convert
    std::string output;              // convert: the file; bin: the directory
    bool hasOutputFormat = false;
    fileformat_t outputFormat = fileformat_t::INTEL_HEX;
    bool hasInputFormat = false;
    fileformat_t inputFormat = fileformat_t::INTEL_HEX;
    MemoryImage::saveoptions_t save;
    bool oneBlock = false;
    bool strict = false;
    bool json = false;
    bool reverse = false;
    bool hasBlock = false;
    size_t block = 0;
    size_t width = 64;
    bool help = false;
};

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

mode_t currentUmask()
{
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
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

// Prints a failed read as "FILE:LINE: reason" (or "FILE: reason"), and the
// warnings of a read as "FILE:LINE: warning: message".
void printRead(const std::string& file, const MemoryImage::readresult_t& read)
{
    for (const MemoryImage::warning_t& w : read.warnings) {
        std::cerr << file;
        if (w.line > 0)
            std::cerr << ":" << w.line;
        std::cerr << ": warning: " << w.message << std::endl;
    }
    if (read.ok)
        return;
    std::cerr << file;
    if (read.line > 0)
        std::cerr << ":" << read.line;
    std::cerr << ": " << read.reason << std::endl;
}

// The format of input as it will be read: forced or named, else told from
// the first bytes of the file; Intel HEX when they tell nothing (the HEX
// reader then says what is wrong).
fileformat_t formatOf(const InputSpec& input)
{
    if (!input.detect)
        return input.format;
    char head[4096];
    size_t size = 0;
    if (std::FILE* file = std::fopen(input.path.c_str(), "rb")) {
        size = std::fread(head, 1, sizeof head, file);
        std::fclose(file);
    }
    fileformat_t format = fileformat_t::INTEL_HEX;
    MemoryImage::detectFormat(head, size, format);
    return format;
}

// Loads Intel HEX with the library's IntelHexFile readers: the whole
// format, or with --strict load(). The library prints its own diagnostics;
// this adds one line, "FILE:LINE: reason" (or "FILE: reason" when no line is
// to blame).
bool loadHex(const Options& options, const std::string& path, IntelHexFile& image)
{
    try {
        const bool loaded = options.strict ? image.load(path.c_str(), options.oneBlock)
                                           : image.loadFullFormat(path.c_str(), options.oneBlock);
        if (loaded)
            return true;
    } catch (const std::out_of_range&) {
    } catch (const std::bad_alloc&) {
        if (image.getErrorReason().empty())
            std::cerr << path << ": out of memory" << std::endl;
    }
    std::cerr << path;
    if (image.getErrorLine() > 0)
        std::cerr << ":" << image.getErrorLine();
    std::cerr << ": " << (image.getErrorReason().empty() ? "cannot load" : image.getErrorReason()) << std::endl;
    return false;
}

// Loads options.file into image as blocks, whatever its format: Intel HEX
// through loadHex(), the other formats through a MemoryImage.
bool loadImage(const Options& options, IntelHexFile& image)
{
    InputSpec input;
    std::string error;
    if (!parseInput(options.file, options.hasInputFormat ? &options.inputFormat : nullptr, input, error)) {
        std::cerr << PROGRAM << ": " << error << std::endl;
        return false;
    }
    const fileformat_t format = formatOf(input);
    if (format == fileformat_t::INTEL_HEX)
        return loadHex(options, input.path, image);
    if (options.strict) {
        std::cerr << options.file << ": --strict reads only Intel HEX, and this is " << formatName(format)
                  << std::endl;
        return false;
    }
    input.detect = false;
    input.format = format;
    MemoryImage read;
    const MemoryImage::readresult_t result = readInput(input, read);
    printRead(input.path, result);
    if (!result)
        return false;
    MemoryImage::blockoptions_t blockOptions;
    blockOptions.oneBlock = options.oneBlock;
    const MemoryImage::result_t appended = std::move(read).appendTo(image, blockOptions);
    if (!appended)
        std::cerr << input.path << ": " << appended.reason << std::endl;
    return static_cast<bool>(appended);
}

uint64_t fullStart(const IntelHexFileBlock& block)
{
    return static_cast<uint64_t>(block.getLinearBase()) << 16 | block.getStartAddress();
}

// "4096 (4 KiB)" where a larger unit helps, else just the count.
std::string sizeText(uint64_t bytes)
{
    std::string text = std::to_string(bytes);
    if (bytes >= 1024)
        text += " (" + humanSize(bytes) + ")";
    return text;
}

// "16448 bytes (16.1 KiB)", "64 bytes", "1 byte".
std::string bytesText(uint64_t bytes)
{
    std::string text = std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    if (bytes >= 1024)
        text += " (" + humanSize(bytes) + ")";
    return text;
}



struct Totals {
    uint64_t bytes = 0;
    bool hasSpan = false;
    uint64_t spanStart = 0;
    uint64_t spanEnd = 0; // one past the last byte
};

Totals totalsOf(const IntelHexFile& image)
{
    Totals t;
    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        const IntelHexFileBlock& b = image[i];
        t.bytes += b.getSize();
        if (b.getSize() == 0)
            continue;
        const uint64_t start = fullStart(b);
        const uint64_t end = start + b.getSize();
        t.spanStart = t.hasSpan ? std::min(t.spanStart, start) : start;
        t.spanEnd = t.hasSpan ? std::max(t.spanEnd, end) : end;
        t.hasSpan = true;
    }
    return t;
}

// "0x08000131 (linear, type 05)" or "0000:28F5 = 0x000028F5 (segment CS:IP, type 03)".
std::string startAddressText(const IntelHexFile& image)
{
    const uint32_t value = image.getStartAddressValue();
    if (image.getStartAddressType() == 5)
        return hexAddress(value) + " (linear, type 05)";
    char text[64];
    std::snprintf(text, sizeof text, "%04X:%04X = %s (segment CS:IP, type 03)", value >> 16, value & 0xFFFF,
                  hexAddress(static_cast<uint64_t>(value >> 16) * 16 + (value & 0xFFFF)).c_str());
    return text;
}

void printInfoTable(const IntelHexFile& image)
{
    const size_t count = image.getBlockCount();
    const std::vector<std::string> header = {"#", "start", "end", "size", "base", "start16"};
    std::vector<std::vector<std::string>> rows;
    for (size_t i = 0; i < count; ++i) {
        const IntelHexFileBlock& b = image[i];
        const uint64_t start = fullStart(b);
        rows.push_back({std::to_string(i), hexAddress(start),
                        b.getSize() == 0 ? "-" : hexAddress(start + b.getSize() - 1), sizeText(b.getSize()),
                        hex16(b.getLinearBase()), hex16(b.getStartAddress())});
    }
    std::vector<size_t> widths;
    for (const std::string& h : header)
        widths.push_back(h.size());
    for (const auto& row : rows)
        for (size_t c = 0; c < row.size(); ++c)
            widths[c] = std::max(widths[c], row[c].size());

    auto printRow = [&](const std::vector<std::string>& row) {
        std::string line;
        for (size_t c = 0; c < row.size(); ++c) {
            // Numbers right-aligned, addresses left-aligned.
            const bool right = c == 0 || c == 3;
            line += (c == 0 ? "" : "  ") + (right ? padLeft(row[c], widths[c]) : padRight(row[c], widths[c]));
        }
        while (!line.empty() && line.back() == ' ')
            line.pop_back();
        std::cout << line << "\n";
    };
    printRow(header);
    for (const auto& row : rows)
        printRow(row);

    const Totals t = totalsOf(image);
    std::cout << "total: " << count << (count == 1 ? " block, " : " blocks, ") << bytesText(t.bytes);
    if (t.hasSpan)
        std::cout << ", span " << hexAddress(t.spanStart) << "-" << hexAddress(t.spanEnd - 1) << ", "
                  << bytesText(t.spanEnd - t.spanStart);
    std::cout << "\n";
    if (image.hasStartAddress())
        std::cout << "start address: " << startAddressText(image) << "\n";
}

void printInfoJson(const IntelHexFile& image, const Options& options)
{
    const Totals t = totalsOf(image);
    std::cout << "{\n  \"file\": " << jsonString(options.file) << ",\n  \"mode\": \""
              << (options.oneBlock ? "one-block" : "normal") << "\",\n";
    std::cout << "  \"format\": \"" << (options.strict ? "strict" : "full") << "\",\n  \"start_address\": ";
    if (image.hasStartAddress())
        std::cout << "{\"type\": " << static_cast<unsigned>(image.getStartAddressType())
                  << ", \"value\": " << image.getStartAddressValue() << "}";
    else
        std::cout << "null";
    std::cout << ",\n";
    std::cout << "  \"blocks\": [";
    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        const IntelHexFileBlock& b = image[i];
        const uint64_t start = fullStart(b);
        std::cout << (i == 0 ? "\n" : ",\n") << "    {\"index\": " << i << ", \"start\": " << start
                  << ", \"end\": ";
        if (b.getSize() == 0)
            std::cout << "null";
        else
            std::cout << start + b.getSize() - 1;
        std::cout << ", \"size\": " << b.getSize() << ", \"linear_base\": " << b.getLinearBase()
                  << ", \"start_address\": " << b.getStartAddress() << "}";
    }
    std::cout << (image.getBlockCount() == 0 ? "],\n" : "\n  ],\n");
    std::cout << "  \"total\": {\"blocks\": " << image.getBlockCount() << ", \"bytes\": " << t.bytes;
    if (t.hasSpan)
        std::cout << ", \"span_start\": " << t.spanStart << ", \"span_end\": " << t.spanEnd - 1
                  << ", \"span_bytes\": " << t.spanEnd - t.spanStart;
    else
        std::cout << ", \"span_start\": null, \"span_end\": null, \"span_bytes\": 0";
    std::cout << "}\n}\n";
}

int runInfo(const Options& options)
{
    IntelHexFile image;
    if (!loadImage(options, image))
        return EXIT_FAILED;
    if (options.json)
        printInfoJson(image, options);
    else
        printInfoTable(image);
    return EXIT_OK;
}

int runMap(const Options& options)
{
    IntelHexFile image;
    if (!loadImage(options, image))
        return EXIT_FAILED;
    std::vector<MapBlock> blocks;
    for (size_t i = 0; i < image.getBlockCount(); ++i)
        blocks.push_back(MapBlock{fullStart(image[i]), image[i].getSize(), i});
    const Totals t = totalsOf(image);
    const size_t count = image.getBlockCount();
    std::cout << options.file << ": " << count << (count == 1 ? " block, " : " blocks, ") << humanSize(t.bytes)
              << " of data";
    if (t.hasSpan)
        std::cout << " in " << humanSize(t.spanEnd - t.spanStart);
    std::cout << "\n\n";
    MapOptions mapOptions;
    mapOptions.width = options.width;
    std::cout << drawMemoryMap(blocks, mapOptions);
    return EXIT_OK;
}

// The input's file name without directory and extension: the prefix of the
// binary files written for it.
std::string baseNameOf(const std::string& path)
{
    std::string name = path.substr(path.find_last_of('/') == std::string::npos ? 0 : path.find_last_of('/') + 1);
    const std::string::size_type dot = name.find_last_of('.');
    if (dot != std::string::npos && dot > 0)
        name.erase(dot);
    return name.empty() ? "image" : name;
}

// Writes all of bytes to fd in large pieces (the library's own writer goes in
// 512-byte pieces, which costs a system call per 512 bytes). Returns false
// with errno set on failure.
bool writeAll(int fd, const uint8_t* bytes, size_t size)
{
    const size_t PIECE = 1 << 20;
    while (size > 0) {
        const ssize_t written = ::write(fd, bytes, std::min(size, PIECE));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

// Writes one block to path through a temporary file in the same directory,
// renamed into place only when every byte is written, so that a failure
// leaves no partial file behind.
bool writeBlockFile(const IntelHexFileBlock& block, const std::string& path, mode_t fileMode)
{
    const std::string::size_type slash = path.find_last_of('/');
    const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash);
    std::string temp = dir + "/.hexblocks-XXXXXX";
    std::vector<char> tempName(temp.begin(), temp.end());
    tempName.push_back('\0');
    const int fd = mkstemp(tempName.data());
    if (fd < 0) {
        std::cerr << PROGRAM << ": cannot create '" << path << "': " << std::strerror(errno) << std::endl;
        return false;
    }
    temp = tempName.data();
    bool ok = writeAll(fd, block.getBuffer(), block.getSize()) && fchmod(fd, fileMode) == 0;
    int error = ok ? 0 : errno;
    if (::close(fd) != 0 && ok) {
        ok = false;
        error = errno;
    }
    if (ok && std::rename(temp.c_str(), path.c_str()) != 0) {
        ok = false;
        error = errno;
    }
    if (!ok) {
        std::remove(temp.c_str());
        std::cerr << PROGRAM << ": cannot write '" << path << "': " << std::strerror(error) << std::endl;
    }
    return ok;
}

int runBin(const Options& options)
{
    IntelHexFile image;
    if (!loadImage(options, image))
        return EXIT_FAILED;
    if (options.reverse)
        image.reverseBuffers();
    const std::string outputDir = options.output.empty() ? "." : options.output;
    const std::string prefix = outputDir + (outputDir.back() == '/' ? "" : "/") +
                               baseNameOf(options.file) + "_";
    // Files get the usual mode of a new file: 0666 less the umask.
    const mode_t fileMode = 0666 & ~currentUmask();
    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        const IntelHexFileBlock& b = image[i];
        const std::string path = prefix + hexAddress(fullStart(b)) + ".bin";
        if (!writeBlockFile(b, path, fileMode))
            return EXIT_FAILED;
        std::cout << path << "  " << bytesText(b.getSize()) << std::endl;
    }
    return EXIT_OK;
}

void dumpBlock(const IntelHexFileBlock& block, size_t index)
{
    const uint64_t start = fullStart(block);
    std::cout << "block " << index << ": " << hexAddress(start);
    if (block.getSize() > 0)
        std::cout << "-" << hexAddress(start + block.getSize() - 1);
    std::cout << ", " << bytesText(block.getSize()) << "\n";
    const uint8_t* bytes = block.getBuffer();
    char line[128];
    for (size_t offset = 0; offset < block.getSize(); offset += 16) {
        const size_t n = std::min<size_t>(16, block.getSize() - offset);
        int pos = std::snprintf(line, sizeof line, "%08llx:", static_cast<unsigned long long>(start + offset));
        for (size_t i = 0; i < 16; ++i) {
            if (i % 2 == 0)
                line[pos++] = ' ';
            if (i < n)
                pos += std::snprintf(line + pos, sizeof line - static_cast<size_t>(pos), "%02x", bytes[offset + i]);
            else
                pos += std::snprintf(line + pos, sizeof line - static_cast<size_t>(pos), "  ");
        }
        line[pos++] = ' ';
        line[pos++] = ' ';
        for (size_t i = 0; i < n; ++i) {
            const uint8_t c = bytes[offset + i];
            line[pos++] = c >= 0x20 && c < 0x7F ? static_cast<char>(c) : '.';
        }
        line[pos] = '\0';
        std::cout << line << "\n";
    }
}

int runDump(const Options& options)
{
    IntelHexFile image;
    if (!loadImage(options, image))
        return EXIT_FAILED;
    if (options.hasBlock) {
        if (options.block >= image.getBlockCount()) {
            std::cerr << PROGRAM << ": no block " << options.block << " in '" << options.file << "' (it has "
                      << image.getBlockCount() << (image.getBlockCount() == 1 ? " block)" : " blocks)") << std::endl;
            return EXIT_FAILED;
        }
        dumpBlock(image[options.block], options.block);
        return EXIT_OK;
    }
    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        if (i > 0)
            std::cout << "\n";
        dumpBlock(image[i], i);
    }
    return EXIT_OK;
}

// Reads every input of convert and combines them; false after printing why
// when one cannot be read, or two give the same address or different start
// addresses.
bool readInputs(const Options& options, MemoryImage& combined)
{
    std::vector<std::pair<std::string, ranges_t>> earlier; // each input read so far and where its data is
    std::string startFrom; // the input that gave the start address
    for (const std::string& operand : options.inputs) {
        InputSpec input;
        std::string error;
        if (!parseInput(operand, options.hasInputFormat ? &options.inputFormat : nullptr, input, error)) {
            std::cerr << PROGRAM << ": " << error << std::endl;
            return false;
        }
        MemoryImage image;
        const MemoryImage::readresult_t read = readInput(input, image);
        printRead(input.path, read);
        if (!read)
            return false;
        for (const auto& other : earlier) {
            uint32_t shared = 0;
            if (firstSharedAddress(other.second, image, shared)) {
                std::cerr << PROGRAM << ": " << other.first << " and " << input.path << " both give data at "
                          << hexAddress(shared) << std::endl;
                return false;
            }
        }
        if (image.hasStartAddress()) {
            const MemoryImage::startaddress_t start = image.startAddress();
            const MemoryImage::startaddress_t held = combined.startAddress();
            if (combined.hasStartAddress() && (start.type != held.type || start.value != held.value)) {
                std::cerr << PROGRAM << ": " << startFrom << " and " << input.path
                          << " give different start addresses (" << hexAddress(held.value) << " and "
                          << hexAddress(start.value) << ")" << std::endl;
                return false;
            }
        }
        earlier.emplace_back(input.path, rangesOf(image));
        if (earlier.size() == 1) {
            combined = std::move(image); // one input: no copy
        } else {
            if (image.hasStartAddress() && !combined.hasStartAddress())
                combined.setStartAddress(image.startAddress());
            if (combined.header().empty())
                combined.setHeader(image.header());
            addImage(combined, image);
        }
        if (combined.hasStartAddress() && startFrom.empty())
            startFrom = input.path;
    }
    return true;
}

int runConvert(const Options& options)
{
    MemoryImage image;
    if (!readInputs(options, image))
        return EXIT_FAILED;
    MemoryImage::result_t saved;
    if (options.output == "-") {
        saved = image.save(std::cout, options.save);
        std::cout.flush();
        if (saved && !std::cout) {
            saved.ok = false;
            saved.reason = "cannot write to standard output";
        }
    } else {
        saved = image.saveFile(options.output.c_str(), options.save);
    }
    if (!saved) {
        std::cerr << PROGRAM << ": " << (options.output == "-" ? "standard output" : options.output) << ": "
                  << saved.reason << std::endl;
        return EXIT_FAILED;
    }
    return EXIT_OK;
}

int runCommand(const CommandSpec& command, const Options& options)
{
    const std::string name = command.name;
    if (name == "info")
        return runInfo(options);
    if (name == "map")
        return runMap(options);
    if (name == "bin")
        return runBin(options);
    if (name == "convert")
        return runConvert(options);
    return runDump(options);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return usageError("missing command", MAIN_USAGE);

    const std::string first = argv[1];
    if (first == "-h" || first == "--help" || first == "help") {
        if (first == "help" && argc > 2) {
            if (const CommandSpec* c = findCommand(argv[2])) {
                std::cout << c->usage << "\n" << c->help;
                return EXIT_OK;
            }
            return usageError("unknown command '" + std::string(argv[2]) + "'", MAIN_USAGE);
        }
        std::cout << MAIN_USAGE << "\n" << MAIN_HELP;
        return EXIT_OK;
    }
    if (first == "-V" || first == "--version") {
        std::cout << PROGRAM << " " << HEXBLOCKS_VERSION << "\n";
        return EXIT_OK;
    }
    const CommandSpec* command = findCommand(first);
    if (command == nullptr) {
        if (!first.empty() && first[0] == '-')
            return usageError("unknown option '" + first + "'", MAIN_USAGE);
        return usageError("unknown command '" + first + "'", MAIN_USAGE);
    }

    Options options;
    const int parsed = parseCommandLine(*command, argc - 1, argv + 1, options);
    if (parsed != EXIT_OK)
        return parsed;
    if (options.help) {
        std::cout << command->usage << "\n" << command->help;
        return EXIT_OK;
    }
    return runCommand(*command, options);
}
