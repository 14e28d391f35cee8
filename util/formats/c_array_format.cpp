// C arrays: a header that a C or C++ program includes, with an array of
// bytes for each segment, a table of the segments (address, size, bytes)
// and the start address. Every name starts with the name the options give.
#include "format_table.h"
#include "output_buffer.h"

#include <cctype>
#include <cstdio>
#include <string>

namespace hexblocks::detail {

namespace {

std::string upperCase(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

const size_t BYTES_PER_LINE = 12;

bool writeCArray(WriterInput& input, const write_options_t& options, OutputBuffer& out)
{
    const std::string nl = options.crlf ? "\r\n" : "\n";
    const std::string& name = options.name;
    const std::string macro = upperCase(name);
    const auto put = [&out](const std::string& text) { out.put(text.data(), text.size()); };
    put("/* written by hexblocks: " + std::to_string(input.segmentCount()) + " segments, " +
        std::to_string(dataSizeOf(input)) + " bytes of data */" + nl + "#ifndef " + macro + "_H_INCLUDED" + nl +
        "#define " + macro + "_H_INCLUDED" + nl + nl + "#include <stddef.h>" + nl + "#include <stdint.h>" + nl + nl);
    for (size_t s = 0; s < input.segmentCount(); ++s) {
        char address[16];
        std::snprintf(address, sizeof address, "0x%08X", static_cast<unsigned>(input.segmentAddress(s)));
        put("/* " + std::string(address) + ", " + std::to_string(input.segmentSize(s)) + " bytes */" + nl +
            "static const uint8_t " + name + "_segment_" + std::to_string(s) + "[" +
            std::to_string(input.segmentSize(s)) + "] = {" + nl);
        const uint64_t size = input.segmentSize(s);
        const size_t pieceMax = PIECE / BYTES_PER_LINE * BYTES_PER_LINE;
        const bool whole = forEachPiece(input, s, pieceMax, 1, [&](uint64_t at, const uint8_t* bytes, size_t piece) {
            for (size_t done = 0; done < piece; done += BYTES_PER_LINE) {
                const size_t length = std::min(BYTES_PER_LINE, piece - done);
                char* p = out.reserve(6 * BYTES_PER_LINE + 8);
                *p++ = ' ';
                *p++ = ' ';
                *p++ = ' ';
                *p++ = ' ';
                for (size_t i = 0; i < length; ++i) {
                    *p++ = '0';
                    *p++ = 'x';
                    p = putByte(p, bytes[done + i]);
                    if (at + done + i + 1 < size)
                        *p++ = ',';
                    if (i + 1 < length)
                        *p++ = ' ';
                }
                out.commit(putLineEnd(p, options.crlf));
            }
        });
        if (!whole)
            return false;
        put("};" + nl + nl);
    }
    put("struct " + name + "_segment {" + nl + "    uint32_t address;" + nl + "    uint32_t size;" + nl +
        "    const uint8_t *bytes;" + nl + "};" + nl + nl + "#define " + macro + "_SEGMENT_COUNT " +
        std::to_string(input.segmentCount()) + "u" + nl);
    if (input.segmentCount() == 0) {
        put("static const struct " + name + "_segment *const " + name + "_segments = NULL;" + nl);
    } else {
        put("static const struct " + name + "_segment " + name + "_segments[" + macro + "_SEGMENT_COUNT] = {" + nl);
        for (size_t s = 0; s < input.segmentCount(); ++s) {
            char line[64];
            std::snprintf(line, sizeof line, "    {0x%08Xu, %lluu, ", static_cast<unsigned>(input.segmentAddress(s)),
                          static_cast<unsigned long long>(input.segmentSize(s)));
            put(line + name + "_segment_" + std::to_string(s) + "}" +
                (s + 1 < input.segmentCount() ? "," : "") + nl);
        }
        put("};" + nl);
    }
    if (input.hasStartAddress()) {
        const start_address_t start = input.startAddress();
        char value[16];
        std::snprintf(value, sizeof value, "0x%08Xu", static_cast<unsigned>(start.value));
        put(nl + "/* The start address, as " + (start.type == 3 ? "CS:IP (segment start address)" : "a linear address") +
            " */" + nl + "#define " + macro + "_START_ADDRESS " + value + nl);
    }
    put(nl + "#endif" + nl);
    return true;
}

bool isIdentifier(const std::string& name)
{
    if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0])))
        return false;
    for (char c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_')
            return false;
    return true;
}

} // namespace

result_t checkCArrayOptions(const WriterInput&, const write_options_t& options)
{
    if (!isIdentifier(options.name))
        return failure(status_t::BAD_ARGUMENT, "the name \"" + options.name + "\" is not a C identifier");
    return result_t();
}

bool writeCArrayTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result)
{
    result = writeThrough(writeCArray, input, options, sink, 6 * dataSizeOf(input) + 200 * input.segmentCount() + 1024);
    return result.ok();
}

} // namespace hexblocks::detail
