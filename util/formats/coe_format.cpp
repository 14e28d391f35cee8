// Xilinx coefficient files (COE): the radix, then the memory's words from
// its first, separated by commas and ended by a semicolon. A COE file has
// no addresses: its first word is the word that holds the image's lowest
// address (a comment says which), and the words in its gaps are fill. An
// image at 0 is what a block RAM holds; one elsewhere is moved there by the
// tool that loads the file (or by --offset before writing it).
#include "hex_format.h"
#include "format_table.h"
#include "output_buffer.h"

#include <string>

namespace hexblocks::detail {

namespace {

bool writeCoe(WriterInput& input, const write_options_t& options, OutputBuffer& out)
{
    const size_t wordBytes = options.wordWidth / 8;
    const std::string nl = options.crlf ? "\r\n" : "\n";
    const uint64_t first = isEmpty(input) ? 0 : input.segmentAddress(0) / wordBytes;
    const uint64_t words = isEmpty(input) ? 0 : highestOf(input) / wordBytes + 1 - first;
    const std::string header = "; written by hexblocks: " + std::to_string(words) + " words of " +
                               std::to_string(options.wordWidth) + " bits from address " +
                               hexAddress(first * wordBytes) + nl +
                               "memory_initialization_radix=16;" + nl + "memory_initialization_vector=" + nl;
    out.put(header.data(), header.size());
    uint64_t written = 0; // words written so far
    // Words, each on a line of its own ending with ',' (';' for the last).
    const char separator[4] = {',', options.crlf ? '\r' : '\n', options.crlf ? '\n' : '\0', '\0'};
    const size_t separatorLength = options.crlf ? 3 : 2;
    const auto putWords = [&](const uint8_t* bytes, size_t count, size_t step) {
        const size_t lineMax = 2 * wordBytes + 4;
        for (size_t done = 0; done < count;) {
            const size_t take = std::min<size_t>(count - done, 256);
            char* p = out.reserve(take * lineMax + 4);
            p = putWordsWithSeparator(p, bytes + done * step, take, wordBytes, step, separator, separatorLength);
            done += take;
            written += take;
            if (written == words) // the last word ends the vector
                p[-static_cast<ptrdiff_t>(separatorLength)] = ';';
            out.commit(p);
        }
    };
    const std::vector<uint8_t> fill(wordBytes, options.fill);
    const bool whole = forEachUnitRun(input, wordBytes, options.fill,
                                      [&](uint64_t address, const uint8_t* bytes, size_t size, bool) {
                                          const uint64_t at = address / wordBytes - first;
                                          if (at > written)
                                              putWords(fill.data(), static_cast<size_t>(at - written), 0);
                                          putWords(bytes, size / wordBytes, wordBytes);
                                      });
    if (words == 0) {
        char* p = out.reserve(4);
        *p++ = ';';
        out.commit(putLineEnd(p, options.crlf));
    }
    return whole;
}

} // namespace

bool writeCoeTo(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result)
{
    const uint64_t words = isEmpty(input) ? 0 : (highestOf(input) - input.segmentAddress(0)) / (options.wordWidth / 8) + 2;
    result = writeThrough(writeCoe, input, options, sink, words * (options.wordWidth / 4 + 3) + 256);
    return result.ok();
}

} // namespace hexblocks::detail
