// The readers of UF2, TI-TXT, Verilog memory files, MIF and INHX16:
// arbitrary bytes read from memory in the format, word width, UF2 family
// and overlap policy that the first byte picks. A failed read must leave
// the image as it was; an image read must be well formed, come back the
// same through the HEX, S-record and binary writers, and keep every byte
// through its own format's writer and reader (which pad whole words and
// pages with the fill byte).
#include "fuzz_common.h"
#include "formats.h"
#include "memory_image.h"

#include <optional>
#include <sstream>
#include <string>

using namespace hexblocks;

namespace {

const file_format_t FORMATS[] = {file_format_t::UF2, file_format_t::TI_TXT, file_format_t::VERILOG,
                                 file_format_t::MIF, file_format_t::INTEL_HEX_16};
const unsigned WIDTHS[] = {8, 16, 32, 64};

// Writes image in options' format, reads it back, and checks that every
// byte of the image is there.
void checkOwnFormat(const MemoryImage& image, const write_options_t& options)
{
    std::ostringstream out;
    const result_t saved = writeStream(image, out, options);
    FUZZ_CHECK(saved.ok() == saved.reason.empty());
    if (!saved.ok())
        return;
    const std::string text = out.str();
    read_options_t readOptions = readAs(options.format);
    readOptions.wordWidth = options.wordWidth;
    MemoryImage read;
    const read_result_t result = readMemory(read, text.data(), text.size(), readOptions);
    FUZZ_CHECK(result.ok());
    for (const segment_t& s : image.segments())
        FUZZ_CHECK(read.copyRange(s.address, s.bytes.size()) == s.bytes);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const uint8_t pick = data[0];
    read_options_t options = readAs(FORMATS[pick % 5]);
    options.wordWidth = WIDTHS[pick / 5 % 4];
    if (pick / 20 % 2 == 1)
        options.family = 0xE48BFF56;
    const unsigned policy = pick / 40 % 5;
    if (policy > 0)
        options.overlap = static_cast<overlap_policy_t>(policy - 1);
    ++data;
    --size;

    MemoryImage image;
    const uint8_t mark = 0x5A;
    image.write(0x1234, &mark, 1);
    const read_result_t result = readMemory(image, data, size, options);
    FUZZ_CHECK(result.ok() == result.reason.empty());
    if (!result.ok()) {
        FUZZ_CHECK(image.segments().size() == 1 && image.lowestAddress() == 0x1234 && image.dataSize() == 1);
        return 0;
    }
    checkSegments(image);
    checkReadBackInEveryFormat(image);
    // Padding to words or pages makes a file at most twice as large: images
    // of a few MiB are enough to see them through.
    if (image.dataSize() > (4u << 20))
        return 0;
    write_options_t own;
    own.format = options.format;
    own.wordWidth = options.wordWidth;
    if (own.format == file_format_t::INTEL_HEX_16 && image.hasStartAddress() && image.startAddress().value % 2 != 0)
        return 0;
    checkOwnFormat(image, own);
    return 0;
}
