// The tables of hexblocks: every option with its help, every command with
// its texts, options, inputs and function, and the texts of the main help.
#include "command_table.h"

#include "command_line.h"
#include "commands.h"
#include "image_files.h"
#include "text_format.h"

#include <algorithm>
#include <initializer_list>

namespace hexblocks::cli {

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
    "Motorola S-records, ELF, UF2, TI-TXT, Verilog and MIF memory files, raw\n"
    "binary and more), plan flashing, verify read-backs and diff images.\n";

const char MAIN_OPTIONS[] =
    "Options:\n"
    "  -h, --help      show help (after a command: that command's help)\n"
    "  -V, --version   show the version\n"
    "      --generate man|complete-bash\n"
    "                  print the manual page or the bash completion script\n";

// The words that name the formats, and the help's lines about them, made
// from the library's format table.
const std::string INPUT_FORMAT_WORDS = formatWords(false, "|");
const std::string OUTPUT_FORMAT_WORDS = formatWords(true, "|");

const std::string MAIN_NOTES =
    wrapText("Inputs: the format is told from the content: " + recognitionRules() +
                 "; content that fits two formats (TI-TXT and Verilog files both start with '@') needs "
                 "--input-format, as do INHX16 (which looks like Intel HEX) and binary. Binary input is named FILE@ADDRESS (e.g. app.bin@0x08004000), or FILE.bin (placed at 0), or "
                 "forced with --input-format bin. ADDRESS is decimal or 0x hexadecimal. \"-\" is standard input, "
                 "read once, for every command.",
             75) +
    "\n"
    "Intel HEX is read with the full format: record types 00 to 05, segment\n"
    "and linear addresses, start addresses, records in any order, blocks by\n"
    "full 32-bit address. With --strict it reads only types 00, 01 and 04\n"
    "instead, with blocks that never cross a 64 KiB linear base, and rejects a\n"
    "file with any other type or a missing end-of-file record. (--full-format,\n"
    "-F, names the default and is still accepted.)\n"
    "\n"
    "An input that cannot be read gives one line on standard error,\n"
    "FILE:LINE: REASON (or FILE: REASON). With --strict the reader's own\n"
    "diagnostics take its place, all on standard error.\n";

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

const std::vector<option_entry_t> OPTIONS = {
    {option_t::HELP, "help", 'h', nullptr, "show this help"},
    {option_t::ONE_BLOCK, "one-block", '1', nullptr, "load the whole file as one block, gaps filled\nwith 0xFF"},
    {option_t::STRICT, "strict", 0, nullptr, "read only record types 00, 01 and 04, blocks\nwithin a linear base"},
    // The full format is the default; the option stays accepted.
    {option_t::FULL_FORMAT, "full-format", 'F', nullptr, nullptr},
    {option_t::INPUT_FORMAT, "input-format", 'I', INPUT_FORMAT_WORDS.c_str(),
     "read FILE in this format instead of telling it\nfrom the content"},
    {option_t::JSON, "json", 'j', nullptr, "print the same as JSON"},
    {option_t::WIDTH, "width", 'w', "N", "width of the strip in columns (16 to 1000,\ndefault 64)"},
    {option_t::OUTPUT, "output", 'o', "OUTPUT", "the file to write; \"-\" is standard output"},
    {option_t::REVERSE, "reverse", 'r', nullptr, "reverse the bytes of every block before writing"},
    {option_t::BLOCK, "block", 'b', "N", "dump only block N (counted from 0)"},
    {option_t::OUTPUT_FORMAT, "output-format", 'O', OUTPUT_FORMAT_WORDS.c_str(),
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
     "data given twice, by two inputs or by two records of\none input: an error naming both inputs or lines,\n"
     "the earlier or the later value wins (last: as\nobjcopy), or only equal bytes; default: between\n"
     "inputs an error, within one the earlier value with\na warning"},
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
    {option_t::INSERT_DIGEST, "insert-digest", 0, "RANGE@ADDRESS",
     "store the SHA-256 (or, with --algorithm sha512,\nSHA-512) digest of RANGE at ADDRESS, outside RANGE"},
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
    {option_t::WORD_WIDTH, "word-width", 0, "8|16|32|64",
     "bits in a word of a Verilog memory file (default 8);\nMIF files give their own"},
    {option_t::FAMILY, "family", 0, "NAME|ID",
     "UF2: read only the blocks of this family (rp2040,\nrp2350_arm_s, nrf52840, 0xE48BFF56, ...)"},
    {option_t::ARRAY_NAME, "array-name", 0, "NAME",
     "C array output: the prefix of every name (default\nimage)"},
    {option_t::JOIN, "join", 0, "N",
     "differing bytes separated by at most N equal bytes\nshare a range (default 16; 0: each run of its own)"},
};

// How the commands that read one file as blocks read it.
const std::vector<option_use_t> BLOCK_READING = {{option_t::ONE_BLOCK},    {option_t::STRICT},
                                                 {option_t::FULL_FORMAT},  {option_t::INPUT_FORMAT},
                                                 {option_t::WORD_WIDTH}, {option_t::FAMILY}};

// A CRC of the user's own.
const std::vector<option_use_t> CUSTOM_CRC = {{option_t::CRC_WIDTH}, {option_t::POLY},       {option_t::INIT},
                                           {option_t::XOROUT},    {option_t::REFLECT_IN}, {option_t::REFLECT_OUT}};

std::vector<option_use_t> joined(std::initializer_list<std::vector<option_use_t>> parts)
{
    std::vector<option_use_t> all;
    for (const std::vector<option_use_t>& part : parts)
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
    "  sum16              0x01DD       the sum of the bytes modulo 65536\n"
    "  sha256             ba7816bf...  SHA-256 (FIPS 180-4), 32 bytes; for \"abc\"\n"
    "  sha512             ddaf35a1...  SHA-512 (FIPS 180-4), 64 bytes; for \"abc\"\n";

const std::vector<command_entry_t>& commandTable()
{
    static const std::string CONVERT_DESCRIPTION =
        "Read every INPUT (in any format the tool reads; \"-\" is standard input),\n"
        "merge them into one image, apply the edits in the order given, and write\n"
        "the image to OUTPUT in any format it writes, through a temporary file that\n"
        "is renamed into place: a failure leaves no OUTPUT and an existing one as it\n"
        "was.\n"
        "\n" +
        wrapText("The output format comes from OUTPUT's extension: " + outputExtensions() + ".", 78);
    static const std::vector<command_entry_t> table = {
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
         "merge inputs, edit the image, insert a CRC and\nwrite it in any format",
         CONVERT_DESCRIPTION.c_str(),
         joined({{{option_t::OUTPUT},
                  {option_t::OUTPUT_FORMAT},
                  {option_t::INPUT_FORMAT, "read every INPUT in this format"},
                  {option_t::WORD_WIDTH,
                   "bits in a word of Verilog, MIF and COE output, and\nof Verilog input (default 8)"},
                  {option_t::FAMILY,
                   "UF2: the family of the blocks written (the family\nflag set), and of those read: rp2040,\n"
                   "rp2350_arm_s, nrf52840, 0xE48BFF56, ... (see\n'hexblocks info --help')"},
                  {option_t::ARRAY_NAME},
                  {option_t::RECORD_SIZE},
                  {option_t::ADDRESSING},
                  {option_t::ADDRESS_SIZE},
                  {option_t::CRLF},
                  {option_t::FILL,
                   "the byte for addresses without data: in binary and\nCOE output, the rest of a UF2 page or of a word,\n"
                   "--fill-range and --insert-crc (default 0xFF)"},
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
                  {option_t::INSERT_DIGEST},
                  {option_t::ALGORITHM,
                   "the checksum --insert-crc stores (default crc32), or\nthe digest --insert-digest stores "
                   "(sha256 or\nsha512; default sha256); the names are listed by\n'hexblocks crc --help'"},
                  {option_t::CRC_ENDIAN}},
                 CUSTOM_CRC,
                 {{option_t::HELP}}}),
         "", {"INPUT"}, true, loading_t::STREAMED, EXIT_FAILED, runConvert},
        {"crc", "usage: hexblocks crc FILE [--algorithm NAME] [--range START:END] [--fill BYTE] [--json]\n",
         "crc FILE [--algorithm NAME]", "CRC, sum or SHA-2 digest of a range of the image",
         "Compute a CRC, sum or SHA-2 digest over a range of FILE (any input format,\n"
         "as convert reads them; \"-\" is standard input) and print one line:\n"
         "the algorithm, the value in hexadecimal, the range and the byte count.\n"
         "Addresses without data count as the fill byte.\n",
         joined({{{option_t::ALGORITHM}, {option_t::RANGE}, {option_t::FILL}},
                 CUSTOM_CRC,
                 {{option_t::INPUT_FORMAT, "read FILE in this format"},
          {option_t::WORD_WIDTH},
          {option_t::FAMILY},
                  {option_t::JSON, "print {\"algorithm\", \"value\", \"start\", \"size\", \"fill\"};\na digest's value is a string of hex digits"},
                  {option_t::HELP}}}),
         ALGORITHMS, {"FILE"}, false, loading_t::MERGED, EXIT_FAILED, runCrc},
        {"plan", "usage: hexblocks plan FILE --sectors SECTORS [--page-size N] [--erased BYTE] [--keep-blank] [--json]\n",
         "plan FILE --sectors SECTORS", "the sectors to erase and pages to write to flash",
         "Plan writing FILE (any input format; \"-\" is standard input) to\n"
         "flash: the sectors to erase, those that hold at least one data\n"
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
          {option_t::WORD_WIDTH},
          {option_t::FAMILY},
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
          {option_t::WORD_WIDTH},
          {option_t::FAMILY},
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
          {option_t::WORD_WIDTH},
          {option_t::FAMILY},
          {option_t::JSON,
           "print {\"ranges\": [{\"start\", \"end\" (exclusive),\n\"kind\": \"only_a\"|\"only_b\"|\"differ\", "
           "\"bytes\"}],\n\"start_address\", \"equal\"}"},
          {option_t::HELP}},
         "Exit status: 0 when the images are equal, 1 when they differ, 2 on trouble.\n", {"A", "B"}, false,
         loading_t::FIRST_TWO, EXIT_TROUBLE, runDiff},
    };
    return table;
}


} // namespace

const std::vector<command_entry_t>& commands()
{
    return commandTable();
}

const command_entry_t* findCommand(const std::string& name)
{
    for (const command_entry_t& c : commands())
        if (name == c.name)
            return &c;
    return nullptr;
}

const option_entry_t& optionEntry(option_t id)
{
    return *std::find_if(OPTIONS.begin(), OPTIONS.end(), [id](const option_entry_t& o) { return o.id == id; });
}

} // namespace hexblocks::cli
