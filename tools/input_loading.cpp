#include "input_loading.h"

#include "text_format.h"

#include <hexblocks/image_blocks.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>

namespace hexblocks::cli {

namespace {

// Prints a failed read as "FILE:LINE: reason" (or "FILE: reason"), and the
// warnings of a read as "FILE:LINE: warning: message".
void printRead(const std::string& file, const read_result_t& read)
{
    for (const warning_t& w : read.warnings) {
        std::cerr << file;
        if (w.line > 0)
            std::cerr << ":" << w.line;
        std::cerr << ": warning: " << w.message << std::endl;
    }
    if (read.ok())
        return;
    std::cerr << file;
    if (read.line > 0)
        std::cerr << ":" << read.line;
    std::cerr << ": " << read.reason;
    // What the command line can do about it.
    if (read.status == status_t::UNKNOWN_FORMAT && read.candidates.size() > 1)
        std::cerr << ": use --input-format";
    if (read.status == status_t::OVERLAP && read.families.size() > 1)
        std::cerr << ": use --family";
    std::cerr << std::endl;
}

// The format of input for --strict: forced or named, else told from the
// first bytes of the file; Intel HEX when they tell nothing (load() then
// says what is wrong).
file_format_t formatOf(const input_spec_t& input)
{
    if (!input.detect)
        return input.format;
    char head[4096];
    size_t size = 0;
    if (std::FILE* file = std::fopen(input.path.c_str(), "rb")) {
        size = std::fread(head, 1, sizeof head, file);
        std::fclose(file);
    }
    return detectFormat(head, size).value_or(file_format_t::INTEL_HEX);
}

// While it lives, sends what is written to std::cout and std::cerr to
// standard error and notes whether anything was: the exact reader prints its
// diagnostics on both streams, and the tool keeps standard output for the
// command's own output.
class DiagnosticsToError : private std::streambuf {
public:
    DiagnosticsToError()
        : error_((std::cout.flush(), std::cerr.rdbuf())), savedOut_(std::cout.rdbuf(this)),
          savedErr_(std::cerr.rdbuf(this))
    {
    }
    ~DiagnosticsToError()
    {
        std::cout.rdbuf(savedOut_);
        std::cerr.rdbuf(savedErr_);
    }
    DiagnosticsToError(const DiagnosticsToError&) = delete;
    DiagnosticsToError& operator=(const DiagnosticsToError&) = delete;

    bool printed() const { return printed_; }

private:
    int_type overflow(int_type c) override
    {
        if (traits_type::eq_int_type(c, traits_type::eof()))
            return traits_type::not_eof(c);
        printed_ = true;
        return error_->sputc(traits_type::to_char_type(c));
    }
    std::streamsize xsputn(const char* s, std::streamsize n) override
    {
        printed_ = printed_ || n > 0;
        return error_->sputn(s, n);
    }
    int sync() override { return error_->pubsync(); }

    std::streambuf* error_;
    std::streambuf* savedOut_;
    std::streambuf* savedErr_;
    bool printed_ = false;
};

// Loads Intel HEX with load(), the exact reader, for --strict: its own
// diagnostics are the point, so they appear once, on standard error, and the
// tool adds a line, "NAME:LINE: reason" (or "NAME: reason"), only when the
// reader printed nothing.
bool loadStrict(const options_t& options, const std::string& path, const std::string& name, IntelHexFile& image)
{
    DiagnosticsToError diagnostics;
    std::string reason;
    try {
        if (image.load(path.c_str(), options.oneBlock))
            return true;
    } catch (const std::out_of_range&) {
        reason = "a record's data runs past the end of its line";
    } catch (const std::bad_alloc&) {
        reason = "out of memory";
    }
    if (diagnostics.printed() && reason.empty())
        return false;
    if (!image.getErrorReason().empty())
        reason = image.getErrorReason();
    std::cerr << name;
    if (image.getErrorLine() > 0)
        std::cerr << ":" << image.getErrorLine();
    std::cerr << ": " << (reason.empty() ? "cannot load" : reason) << std::endl;
    return false;
}

} // namespace

// Loads options.file into image as blocks, whatever its format: with
// --strict through loadStrict(), else through a MemoryImage, as every other
// command reads.
bool loadImage(const options_t& options, inputs_t& inputs)
{
    IntelHexFile& image = inputs.blocks;
    input_spec_t input;
    std::string error;
    if (!parseInput(options.file, options.hasInputFormat ? &options.inputFormat : nullptr, options.reading, input, error)) {
        std::cerr << PROGRAM << ": " << error << std::endl;
        return false;
    }
    const std::string name = input.path; // as messages name it: "-" for standard input
    if (input.path == "-" && !standardInputPath(input.path, error)) {
        std::cerr << PROGRAM << ": " << error << std::endl;
        return false;
    }
    if (options.strict) {
        const file_format_t format = formatOf(input);
        if (format == file_format_t::INTEL_HEX)
            return loadStrict(options, input.path, name, image);
        std::cerr << name << ": --strict reads only Intel HEX, and this is " << formatInfo(format).name
                  << std::endl;
        return false;
    }
    MemoryImage read;
    const read_result_t result = readInput(input, read);
    printRead(name, result);
    if (!result)
        return false;
    inputs.uf2Blocks = result.blocks;
    inputs.uf2Families = result.families;
    block_options_t blockOptions;
    blockOptions.oneBlock = options.oneBlock;
    const result_t appended = appendToBlocks(std::move(read), image, blockOptions);
    if (!appended)
        std::cerr << name << ": " << appended.reason << std::endl;
    return static_cast<bool>(appended);
}

namespace {

// An input merged so far: its name, and where its data is.
struct merged_input_t {
    std::string operand; // as the command line names it
    input_spec_t source;    // where and how it is read
    ranges_t ranges;
};

bool holds(const ranges_t& ranges, uint32_t address)
{
    for (const auto& r : ranges)
        if (address >= r.first && address < r.second)
            return true;
    return false;
}

// "FILE:LINE" for the record of input that gives the byte at address, or
// just "FILE" when no line can be told.
std::string placeOf(const merged_input_t& input, uint32_t address)
{
    const read_options_t options = readOptionsOf(input.source);
    std::string path = input.source.path, error;
    const bool readable = path != "-" || standardInputPath(path, error);
    const std::optional<size_t> line = readable ? findLineInFile(path.c_str(), address, options) : std::nullopt;
    return line ? input.source.path + ":" + std::to_string(*line) : input.operand;
}

// Prints why input could not be merged after the earlier ones.
void printClash(const std::vector<merged_input_t>& earlier, const merged_input_t& input,
                const merge_result_t& result, overlap_policy_t overlap,
                const std::string& startFrom, uint32_t heldStart, uint32_t offeredStart)
{
    using clash_t = merge_result_t::clash_t;
    if (result.clash == clash_t::START_ADDRESS) {
        std::cerr << PROGRAM << ": " << startFrom << " and " << input.operand << " give different start addresses ("
                  << hexAddress(heldStart) << " and " << hexAddress(offeredStart) << ")" << std::endl;
        return;
    }
    // The earlier input that gave the byte: with either policy that fails,
    // the first one that holds the address gave it, or gave the same byte.
    const uint32_t address = result.address.value_or(0);
    const auto owner = std::find_if(earlier.begin(), earlier.end(),
                                    [address](const merged_input_t& e) { return holds(e.ranges, address); });
    const std::string first = owner == earlier.end() ? std::string("an earlier input") : placeOf(*owner, address);
    std::cerr << PROGRAM << ": " << first << " and " << placeOf(input, address);
    if (overlap == overlap_policy_t::IDENTICAL)
        std::cerr << " give different bytes at " << hexAddress(address) << " (" << hexNumber(result.imageByte, 2)
                  << " and " << hexNumber(result.otherByte, 2) << ")" << std::endl;
    else
        std::cerr << " both give data at " << hexAddress(address) << std::endl;
}

// Reads the input operand names into image; false after printing why it
// cannot.
bool readOperand(const options_t& options, const std::string& operand, input_spec_t& source, MemoryImage& image)
{
    std::string error;
    if (!parseInput(operand, options.hasInputFormat ? &options.inputFormat : nullptr, options.reading, source, error)) {
        std::cerr << PROGRAM << ": " << error << std::endl;
        return false;
    }
    const read_result_t read = readInput(source, image);
    printRead(source.path, read);
    return read.ok();
}

} // namespace

bool streamsBinaryInput(const options_t& options, input_spec_t& source)
{
    if (options.inputs.size() != 1 || !options.edits.empty() || options.output == "-")
        return false;
    std::string error;
    input_spec_t input;
    struct stat status;
    if (!parseInput(options.inputs[0], options.hasInputFormat ? &options.inputFormat : nullptr, options.reading, input, error) ||
        input.detect || input.format != file_format_t::BINARY || input.path == "-" ||
        ::stat(input.path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    source = input;
    return true;
}

bool readOneInput(const options_t& options, const std::string& operand, MemoryImage& image)
{
    input_spec_t source;
    return readOperand(options, operand, source, image);
}

// Reads every input and merges them by options.merge; false after printing
// why when one cannot be read or the policies refuse a merge.
bool readInputs(const options_t& options, MemoryImage& combined)
{
    std::vector<merged_input_t> earlier;
    std::string startFrom; // the input that gave the start address kept so far
    for (const std::string& operand : options.inputs) {
        merged_input_t input;
        input.operand = operand;
        MemoryImage image;
        if (!readOperand(options, operand, input.source, image))
            return false;
        input.ranges = rangesOf(image);
        const bool givesStart = image.hasStartAddress() &&
                                (!combined.hasStartAddress() || options.merge.start == start_policy_t::LAST);
        const uint32_t offeredStart = image.startAddress().value;
        const merge_result_t merged = combined.merge(std::move(image), options.merge);
        if (!merged) {
            printClash(earlier, input, merged, options.merge.overlap, startFrom, combined.startAddress().value,
                       offeredStart);
            return false;
        }
        if (givesStart)
            startFrom = input.operand;
        earlier.push_back(std::move(input));
    }
    return true;
}

} // namespace hexblocks::cli
