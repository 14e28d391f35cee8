#include "input_loading.h"

#include "text_format.h"

#include <cstdio>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

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

} // namespace

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

