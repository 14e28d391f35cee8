/// @file formats.h
/// Reading images from files and memory, and writing them, in every format
/// the library knows: Intel HEX, Motorola S-records, ELF, raw binary, UF2,
/// TI-TXT, Verilog memory files, Intel MIF, Xilinx COE, C arrays and Intel
/// HEX addressed in 16-bit words.
///
/// @code
/// #include <hexblocks/formats.h>
///
/// hexblocks::MemoryImage image;
/// const hexblocks::read_result_t read = hexblocks::readFile(image, "firmware.hex");
/// if (!read) {
///     std::fprintf(stderr, "firmware.hex:%zu: %s\n", read.line, read.reason.c_str());
///     return 1;
/// }
/// hexblocks::write_options_t options;
/// options.format = hexblocks::file_format_t::SRECORD;
/// const hexblocks::result_t written = hexblocks::writeFile(image, "firmware.s37", options);
/// @endcode
///
/// Nothing here prints: every failure comes back in the result, with a
/// reason and, when a line of the input is to blame, its number.
#ifndef HEXBLOCKS_FORMATS_H
#define HEXBLOCKS_FORMATS_H

#include "export.h"
#include "memory_image.h"
#include "result.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace hexblocks {

/// The file formats an image is read from and written in.
enum class file_format_t {
    INTEL_HEX, ///< Intel HEX (read and written)
    SRECORD,   ///< Motorola S-records (read and written)
    BINARY,    ///< raw bytes (read at a given address; written from the lowest to the highest address)
    ELF,       ///< ELF, 32 or 64 bits, either byte order (read only)
    UF2,       ///< USB Flashing Format: 512-byte blocks (read and written)
    TI_TXT,    ///< TI-TXT, taken by MSP430 programmers (read and written)
    VERILOG,   ///< Verilog memory file for $readmemh (VMEM), in words (read and written)
    MIF,       ///< Intel (Altera) Memory Initialization File, in words (read and written)
    COE,       ///< Xilinx coefficient file, in words (written only)
    C_ARRAY,   ///< a C header with an array of bytes for each segment (written only)
    INTEL_HEX_16 ///< Intel HEX addressed in 16-bit words, INHX16 (read and written)
};

/// The write options that apply to a format, as bits of
/// format_info_t::writeOptions.
enum write_option_bits_t : unsigned {
    WRITES_RECORD_SIZE = 1u << 0,  ///< write_options_t::recordSize
    WRITES_ADDRESSING = 1u << 1,   ///< write_options_t::addressing
    WRITES_ADDRESS_SIZE = 1u << 2, ///< write_options_t::addressSize
    WRITES_CRLF = 1u << 3,         ///< write_options_t::crlf
    WRITES_FILL = 1u << 4,         ///< write_options_t::fill
    WRITES_WORD_WIDTH = 1u << 5,   ///< write_options_t::wordWidth
    WRITES_FAMILY = 1u << 6,       ///< write_options_t::family
    WRITES_NAME = 1u << 7          ///< write_options_t::name
};

/// What the library knows of a format: one row of its format table, from
/// which format detection, the names and extensions the tool takes, and
/// its help are all made.
struct format_info_t {
    file_format_t format; ///< The format.
    const char* name;     ///< The word that names it: "ihex", "srec", "elf", "bin", "uf2", ...
    const char* title;    ///< How people call it: "Intel HEX".
    /// The file extensions that stand for it, lower case, separated by
    /// spaces, the usual one first; "" for none.
    const char* extensions;
    /// What tells it from its content, in words ("'S' and a digit"); "" for
    /// a format that cannot be told.
    const char* recognisedBy;
    /// Tells the format from an input's first bytes; null for a format that
    /// cannot be told from its content (binary).
    bool (*recognise)(const void* head, size_t size);
    bool readable;         ///< Images are read from it.
    bool writable;         ///< Images are written in it.
    unsigned writeOptions; ///< The write options that apply, as write_option_bits_t.
};

/// @return every format the library knows, in the order detection tries
/// them.
HEXBLOCKS_API const std::vector<format_info_t>& formats();

/// @return the row of format.
HEXBLOCKS_API const format_info_t& formatInfo(file_format_t format);

/// @return the format a word names (a format_info_t::name, such as "ihex"
/// or "ti-txt"); none for another word.
HEXBLOCKS_API std::optional<file_format_t> formatByName(const std::string& name);

/// @return the format a file name's extension stands for, in any case; none
/// for a name without one of the table's extensions.
HEXBLOCKS_API std::optional<file_format_t> formatByExtension(const std::string& path);

/// How readFile() and readMemory() read their input.
struct read_options_t {
    /// Tell the format from the content (see detectFormat()) instead of
    /// taking format. Binary input cannot be told, so it is never chosen.
    bool detect = true;
    /// The format, when detect is false.
    file_format_t format = file_format_t::INTEL_HEX;
    /// Where binary input is placed.
    uint32_t address = 0;
    /// Verilog memory files: the width of a word in bits, 8, 16, 32 or 64
    /// (the file does not say). A MIF file gives its own.
    unsigned wordWidth = 8;
    /// Records of the input that give the same byte (Intel HEX, S-records,
    /// UF2 blocks, and the records of the other text formats): none for the
    /// default, the first value with a warning (and a record that starts
    /// where an earlier one started dropped whole); FIRST the first value
    /// without a warning; LAST the last value, as objcopy takes it;
    /// IDENTICAL equal values only; ERROR none. A refused record fails the
    /// read with OVERLAP, its line (UF2: its block in the reason), the
    /// address, and the line that gave the byte first.
    std::optional<overlap_policy_t> overlap;
    /// UF2: read only the blocks of this family (and those that name none);
    /// none to read every block, which fails when blocks of different
    /// families give the same addresses.
    std::optional<uint32_t> family;
};

/// Options that read input as format, without telling it from the content;
/// binary input at address.
inline read_options_t readAs(file_format_t format, uint32_t address = 0)
{
    read_options_t options;
    options.detect = false;
    options.format = format;
    options.address = address;
    return options;
}

/// Something worth telling about an input that was read all the same.
struct warning_t {
    size_t line = 0;     ///< The line it concerns; 0 for the whole input.
    std::string message; ///< One line of text without a final period.
};

/// What reading an image reports: a result, with the line to blame for a
/// failure in a text format, and the warnings. Converts to true on success.
struct read_result_t : result_t {
    /// In the order they were found; those found before a failure are kept.
    std::vector<warning_t> warnings;
    /// UF2: the blocks in the input, those skipped included.
    uint64_t blocks = 0;
    /// UF2: the family IDs its blocks name, ascending; empty when none does.
    /// Kept on failure: blocks of different families at the same addresses
    /// fail with OVERLAP until read_options_t::family selects one.
    std::vector<uint32_t> families;
    /// When the format could not be told because the content fits more
    /// than one (UNKNOWN_FORMAT): those formats, which a reader must choose
    /// from.
    std::vector<file_format_t> candidates;
};

/// Intel HEX addressing: extended linear (type 04) or extended segment
/// (type 02) address records.
enum class addressing_t { LINEAR, SEGMENT };

/// How writeStream() and writeFile() write an image.
struct write_options_t {
    /// INTEL_HEX, SRECORD or BINARY.
    file_format_t format = file_format_t::INTEL_HEX;
    /// Data bytes per record: 1 to 255 for Intel HEX; for S-records at most
    /// 255 less the address size and the checksum (252, 251, 250).
    unsigned recordSize = 16;
    /// Intel HEX address records; SEGMENT reaches only the first MiB.
    addressing_t addressing = addressing_t::LINEAR;
    /// S-record address size in bytes: 2 (S1/S9), 3 (S2/S8) or 4 (S3/S7);
    /// 0 for the smallest that holds every data address and the start
    /// address.
    unsigned addressSize = 0;
    /// End lines with CR LF instead of LF.
    bool crlf = false;
    /// The byte for addresses without data: between segments in binary and
    /// COE output, in the rest of a 256-byte UF2 page, and in the rest of a
    /// word that data covers only in part (Verilog, MIF, COE, INHX16).
    uint8_t fill = 0xFF;
    /// Verilog, MIF and COE: the width of a word in bits, 8, 16, 32 or 64.
    /// A word's first byte (lowest address) is its most significant.
    unsigned wordWidth = 8;
    /// UF2: the family ID every block names (the family flag set); none for
    /// blocks without one.
    std::optional<uint32_t> family;
    /// C arrays: the prefix of every name the header defines, a C identifier.
    std::string name = "image";
};

/// A UF2 family: the ID that names a kind of device in UF2 blocks.
struct uf2_family_t {
    uint32_t id;             ///< 0xE48BFF56
    const char* name;        ///< "rp2040": lower case, as options take it
    const char* description; ///< "Raspberry Pi RP2040"
};

/// @return the families the UF2 format's family list names, by ID.
HEXBLOCKS_API const std::vector<uf2_family_t>& uf2Families();

/// @return the family a name gives, in any case ("rp2040", "RP2350_ARM_S"),
/// or a number does ("0xE48BFF56"); none for anything else.
HEXBLOCKS_API std::optional<uint32_t> uf2FamilyByName(const std::string& name);

/// @return how a family is called: its name ("rp2040") where the family
/// list has it, else its ID ("0x12345678").
HEXBLOCKS_API std::string uf2FamilyName(uint32_t id);

/// What convertBinaryFile() reports. Converts to true on success.
struct convert_result_t : result_t {
    bool inputFailed = false; ///< The input was to blame (else the output or the options).
};

/// @name Reading
/// Intel HEX, the full format: record types 00 to 05, extended segment and
/// linear addresses, start addresses, blank lines and white space around
/// records, records in any order. A record that starts where an earlier one
/// started is dropped whole; where records overlap otherwise, each byte
/// keeps the first value given, with a warning. A file without an
/// end-of-file record is read, with a warning. S-records: S0 gives the
/// header (the first one is kept), S1 to S3 the data, S5 and S6 must match
/// the count of data records before them, S7 to S9 give the start address
/// (as a linear address, type 5; 0 means none, as writers put 0 there when
/// there is none) and end the file; white space and records in any order as
/// for Intel HEX; a data record that runs past 0xFFFFFFFF and S4 are errors.
/// ELF: the bytes of each allocated section with contents, at the load
/// address that the PT_LOAD segment holding its file bytes gives
/// (p_paddr + sh_offset - p_offset; the virtual addresses when every
/// physical address is 0); bytes of a segment that no section covers (loaded
/// headers, padding) are not data; a file without section headers is read
/// by its PT_LOAD segments whole. The entry point is the start address
/// (type 5; none for 0); a section, segment or entry point outside the
/// 32-bit address space, overlapping sections and a truncated file are
/// errors. Binary: the bytes at options.address. On success the image is
/// replaced by what was read; on failure it is left as it was.
/// @{

/// Reads the file at path into image ("-" is not special). A file that
/// cannot be rewound, such as a pipe, is read into memory first.
HEXBLOCKS_API read_result_t readFile(MemoryImage& image, const char* path,
                                     const read_options_t& options = read_options_t());

/// Reads size bytes of input from memory into image, such as firmware
/// received over a socket.
HEXBLOCKS_API read_result_t readMemory(MemoryImage& image, const void* data, size_t size,
                                       const read_options_t& options = read_options_t());

/// Tells the format from the first bytes of an input, with each format's
/// recognise(): ':' (after any white space) is Intel HEX, 'S' and a digit
/// S-records, the ELF magic bytes ELF, and so on (format_info_t::recognisedBy).
/// @return the format; none when the bytes are none of them, or when they
/// could be more than one (see recogniseFormats()).
HEXBLOCKS_API std::optional<file_format_t> detectFormat(const void* head, size_t size);

/// @return every format whose recognise() takes the first bytes of an
/// input, in table order: a TI-TXT file and a Verilog memory file that
/// starts with an address, for instance, cannot be told apart.
HEXBLOCKS_API std::vector<file_format_t> recogniseFormats(const void* head, size_t size);

/// @}

/// @name Finding the line of a byte
/// The line of the record that gives the byte at address in an Intel HEX or
/// S-record input, as reading it takes it (the first record that gives the
/// byte, ignoring records dropped for starting where an earlier one
/// started); none when no record gives it, the input cannot be read, or the
/// format has no lines (ELF, binary).
/// @{

/// The line in size bytes of input in memory.
HEXBLOCKS_API std::optional<size_t> findLineInMemory(const void* data, size_t size, uint32_t address,
                                                     const read_options_t& options = read_options_t());

/// The line in the file at path.
HEXBLOCKS_API std::optional<size_t> findLineInFile(const char* path, uint32_t address,
                                                   const read_options_t& options = read_options_t());

/// @}

/// @name Writing
/// Intel HEX: records of options.recordSize bytes that never cross a 64 KiB
/// boundary; an address record (type 04, or 02 in segment addressing)
/// whenever the upper address bits change, none while they are 0; the start
/// address (type 05 or 03, as the image holds it) and the end-of-file record
/// last; upper-case digits. S-records: an S0 record with the header, data
/// records of the address size chosen, an S5 (up to 65535 records) or S6 (up
/// to 16777215) count, and the S7, S8 or S9 record with the start address (0
/// when there is none). Binary: every byte from the lowest to the highest
/// address, fill where there is no data; nothing for an empty image.
/// @{

/// Writes image to out.
/// @return a failure for options the image cannot be written with (a record
/// size out of range, segment addressing for an image that reaches 1 MiB,
/// an address size too small for an address, ELF), or when out fails.
HEXBLOCKS_API result_t writeStream(const MemoryImage& image, std::ostream& out,
                                                const write_options_t& options = write_options_t());

/// Writes image to the end of out, as writeStream() would: the whole
/// output in memory, such as firmware to send over a socket. On failure out
/// is as it was.
HEXBLOCKS_API result_t writeMemory(const MemoryImage& image, std::string& out,
                                   const write_options_t& options = write_options_t());

/// Writes image to the file at path through a temporary file in the same
/// directory, renamed into place when every byte is written: a failure
/// leaves no partial file and an existing file as it was. A new file gets
/// mode 0666 less the umask, a replaced one keeps its mode. A path that
/// names something other than a regular file (a device, a pipe) is written
/// directly.
HEXBLOCKS_API result_t writeFile(const MemoryImage& image, const char* path,
                                              const write_options_t& options = write_options_t());

/// Writes the binary file at input, placed at address, to the file at
/// output exactly as readFile() (binary, at address) and then
/// writeFile(output, options) would, without holding the image: the bytes
/// are read a piece at a time while the output is written, so memory stays
/// at a few MiB however large the file, and reading overlaps writing. The
/// input is read as long as it was when opened. The failures are those of
/// readFile() (inputFailed set) and of writeFile(), with the same reasons,
/// and leave no output; an input that shrinks while it is read fails too.
/// An input that is not a regular file (a pipe) is read whole first.
HEXBLOCKS_API convert_result_t convertBinaryFile(const char* input, uint32_t address, const char* output,
                                                 const write_options_t& options = write_options_t());

/// @}

} // namespace hexblocks

#endif // HEXBLOCKS_FORMATS_H
