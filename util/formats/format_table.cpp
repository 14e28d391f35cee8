#include "format_table.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string>

namespace hexblocks {

namespace detail {

const std::vector<format_row_t>& formatRows()
{
    static const std::vector<format_row_t> ROWS = {
        {{file_format_t::INTEL_HEX, "ihex", "Intel HEX", "hex ihex ihx", "':' (after any white space)",
          looksLikeIntelHex, true, true, WRITES_RECORD_SIZE | WRITES_ADDRESSING | WRITES_CRLF},
         readIntelHexMemory, readIntelHexFile, locateIntelHex, checkIntelHexOptions, writeIntelHexTo},
        {{file_format_t::SRECORD, "srec", "S-records", "srec s19 s28 s37 mot", "'S' and a digit", looksLikeSrecords,
          true, true, WRITES_RECORD_SIZE | WRITES_ADDRESS_SIZE | WRITES_CRLF},
         readSrecordMemory, readSrecordFile, locateSrecords, checkSrecordOptions, writeSrecordsTo},
        {{file_format_t::ELF, "elf", "ELF", "elf axf", "the ELF magic bytes", looksLikeElf, true, false, 0},
         readElfMemory, readElfFile, nullptr, nullptr, nullptr},
        {{file_format_t::UF2, "uf2", "UF2", "uf2", "the UF2 magic numbers", looksLikeUf2, true, true,
          WRITES_FILL | WRITES_FAMILY},
         readUf2Memory, readUf2File, nullptr, nullptr, writeUf2To},
        {{file_format_t::TI_TXT, "ti-txt", "TI-TXT", "", "'@' and a hex address", looksLikeTiTxt, true, true,
          WRITES_CRLF},
         readTiTxtMemory, readTiTxtFile, locateTiTxt, nullptr, writeTiTxtTo},
        {{file_format_t::VERILOG, "vmem", "Verilog memory file", "mem vmem",
          "'@' and a hex address or a // or /* comment", looksLikeVerilog, true, true,
          WRITES_FILL | WRITES_WORD_WIDTH | WRITES_CRLF},
         readVerilogMemory, readVerilogFile, locateVerilog, checkWordOptions, writeVerilogTo},
        {{file_format_t::MIF, "mif", "Intel MIF", "mif", "a MIF keyword (DEPTH, WIDTH, ...) or comment", looksLikeMif,
          true, true, WRITES_FILL | WRITES_WORD_WIDTH | WRITES_CRLF},
         readMifMemory, readMifFile, locateMif, checkWordOptions, writeMifTo},
        {{file_format_t::COE, "coe", "Xilinx COE", "coe", "", nullptr, false, true,
          WRITES_FILL | WRITES_WORD_WIDTH | WRITES_CRLF},
         nullptr, nullptr, nullptr, checkWordOptions, writeCoeTo},
        {{file_format_t::C_ARRAY, "c", "C array", "c h", "", nullptr, false, true, WRITES_NAME | WRITES_CRLF},
         nullptr, nullptr, nullptr, checkCArrayOptions, writeCArrayTo},
        {{file_format_t::INTEL_HEX_16, "ihex16", "Intel HEX in 16-bit words (INHX16)", "", "", nullptr, true, true,
          WRITES_RECORD_SIZE | WRITES_FILL | WRITES_CRLF},
         readIntelHex16Memory, readIntelHex16File, locateIntelHex16, checkIntelHex16Options, writeIntelHex16To},
        {{file_format_t::BINARY, "bin", "binary", "bin", "", nullptr, true, true, WRITES_FILL}, readBinaryMemory,
         readBinaryFile, nullptr, nullptr, writeBinaryTo}};
    return ROWS;
}

const format_row_t& formatRow(file_format_t format)
{
    const std::vector<format_row_t>& rows = formatRows();
    return *std::find_if(rows.begin(), rows.end(), [format](const format_row_t& r) { return r.info.format == format; });
}

} // namespace detail

const std::vector<format_info_t>& formats()
{
    static const std::vector<format_info_t> INFO = [] {
        std::vector<format_info_t> info;
        for (const detail::format_row_t& row : detail::formatRows())
            info.push_back(row.info);
        return info;
    }();
    return INFO;
}

const format_info_t& formatInfo(file_format_t format)
{
    return detail::formatRow(format).info;
}

std::optional<file_format_t> formatByName(const std::string& name)
{
    for (const format_info_t& f : formats())
        if (name == f.name)
            return f.format;
    return std::nullopt;
}

std::optional<file_format_t> formatByExtension(const std::string& path)
{
    const std::string::size_type slash = path.find_last_of('/');
    const std::string name = path.substr(slash == std::string::npos ? 0 : slash + 1);
    const std::string::size_type dot = name.find_last_of('.');
    if (dot == std::string::npos || dot == 0)
        return std::nullopt;
    std::string extension = name.substr(dot + 1);
    for (char& c : extension)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const format_info_t& f : formats()) {
        std::istringstream words(f.extensions);
        for (std::string word; words >> word;)
            if (word == extension)
                return f.format;
    }
    return std::nullopt;
}

} // namespace hexblocks
