// The hexblocks commands: what each prints or writes from its options and
// its inputs, which main() has read.
#include "commands.h"

#include <hexblocks/checksum.h>
#include <hexblocks/digest.h>
#include "flash_reports.h"
#include "image_editing.h"
#include "image_files.h"
#include "input_loading.h"
#include <hexblocks/intelhex.h>
#include <hexblocks/memory_image.h>
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

#include <sys/stat.h>
#include <unistd.h>

namespace hexblocks::cli {

namespace {

uint64_t fullStart(const IntelHexFileBlock& block)
{
    return static_cast<uint64_t>(block.getLinearBase()) << 16 | block.getStartAddress();
}

struct totals_t {
    uint64_t bytes = 0;
    bool hasSpan = false;
    uint64_t spanStart = 0;
    uint64_t spanEnd = 0; // one past the last byte
};

totals_t totalsOf(const IntelHexFile& image)
{
    totals_t t;
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

// "family rp2040 (0xE48BFF56)", "families a (0x...) and b (0x...)", or "no family".
std::string familiesText(const std::vector<uint32_t>& families)
{
    if (families.empty())
        return "no family";
    std::string text = families.size() == 1 ? "family " : "families ";
    for (size_t i = 0; i < families.size(); ++i) {
        const std::string name = uf2FamilyName(families[i]);
        text += (i == 0 ? "" : i + 1 == families.size() ? " and " : ", ") + name;
        if (name != hexAddress(families[i]))
            text += " (" + hexAddress(families[i]) + ")";
    }
    return text;
}

void printInfoTable(const IntelHexFile& image, const inputs_t& inputs)
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

    const totals_t t = totalsOf(image);
    std::cout << "total: " << count << (count == 1 ? " block, " : " blocks, ") << bytesText(t.bytes);
    if (t.hasSpan)
        std::cout << ", span " << hexAddress(t.spanStart) << "-" << hexAddress(t.spanEnd - 1) << ", "
                  << bytesText(t.spanEnd - t.spanStart);
    std::cout << "\n";
    if (image.hasStartAddress())
        std::cout << "start address: "
                  << startAddressText(image.getStartAddressType(), image.getStartAddressValue()) << "\n";
    if (inputs.uf2Blocks > 0)
        std::cout << "UF2: " << inputs.uf2Blocks << (inputs.uf2Blocks == 1 ? " block, " : " blocks, ")
                  << familiesText(inputs.uf2Families) << "\n";
}

void printInfoJson(const IntelHexFile& image, const options_t& options, const inputs_t& inputs)
{
    const totals_t t = totalsOf(image);
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
    std::cout << "}";
    if (inputs.uf2Blocks > 0) {
        std::cout << ",\n  \"uf2\": {\"blocks\": " << inputs.uf2Blocks << ", \"families\": [";
        for (size_t i = 0; i < inputs.uf2Families.size(); ++i)
            std::cout << (i == 0 ? "" : ", ") << "{\"id\": " << inputs.uf2Families[i]
                      << ", \"name\": " << jsonString(uf2FamilyName(inputs.uf2Families[i])) << "}";
        std::cout << "]}";
    }
    std::cout << "\n}\n";
}

mode_t currentUmask()
{
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

// The input's file name without directory and extension: the prefix of the
// binary files written for it.
std::string baseNameOf(const std::string& path)
{
    std::string name = path.substr(path.find_last_of('/') == std::string::npos ? 0 : path.find_last_of('/') + 1);
    const std::string::size_type dot = name.find_last_of('.');
    if (dot != std::string::npos && dot > 0)
        name.erase(dot);
    return name == "-" ? "stdin" : name.empty() ? "image" : name;
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

// Writes size bytes to path through a temporary file in the same directory,
// renamed into place only when every byte is written, so that a failure
// leaves no partial file behind.
bool writeBinaryFile(const uint8_t* bytes, size_t size, const std::string& path, mode_t fileMode)
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
    bool ok = writeAll(fd, bytes, size) && fchmod(fd, fileMode) == 0;
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

// True when bin's -o names a directory for one file per block: none given,
// one ending in '/', or an existing directory.
bool namesDirectory(const std::string& output)
{
    struct stat info;
    return output.empty() || output.back() == '/' || (stat(output.c_str(), &info) == 0 && S_ISDIR(info.st_mode));
}

// Writes the image's one block (nothing for an image without data) to the
// file output names, or to standard output for "-".
int writeSingleBinary(const IntelHexFile& image, const options_t& options)
{
    const size_t count = image.getBlockCount();
    if (count > 1) {
        std::cerr << PROGRAM << ": " << options.file << " has " << count << " blocks: give -o a directory for one"
                  << " file per block, or use --one-block for one file" << std::endl;
        return EXIT_FAILED;
    }
    const uint8_t* bytes = count == 0 ? nullptr : image[0].getBuffer();
    const size_t size = count == 0 ? 0 : image[0].getSize();
    if (options.output == "-") {
        if (!writeAll(STDOUT_FILENO, bytes, size)) {
            std::cerr << PROGRAM << ": cannot write to standard output: " << std::strerror(errno) << std::endl;
            return EXIT_FAILED;
        }
        return EXIT_OK;
    }
    if (!writeBinaryFile(bytes, size, options.output, 0666 & ~currentUmask()))
        return EXIT_FAILED;
    std::cout << options.output << "  " << bytesText(size) << std::endl;
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

} // namespace

int runInfo(const options_t& options, inputs_t& inputs)
{
    const IntelHexFile& image = inputs.blocks;
    if (options.json)
        printInfoJson(image, options, inputs);
    else
        printInfoTable(image, inputs);
    return EXIT_OK;
}

int runMap(const options_t& options, inputs_t& inputs)
{
    const IntelHexFile& image = inputs.blocks;
    std::vector<map_block_t> blocks;
    for (size_t i = 0; i < image.getBlockCount(); ++i)
        blocks.push_back(map_block_t{fullStart(image[i]), image[i].getSize(), i});
    const totals_t t = totalsOf(image);
    const size_t count = image.getBlockCount();
    std::string title = options.file + ": " + std::to_string(count) + (count == 1 ? " block, " : " blocks, ") +
                        humanSize(t.bytes) + " of data";
    if (t.hasSpan)
        title += " in " + humanSize(t.spanEnd - t.spanStart);
    map_options_t mapOptions;
    mapOptions.width = options.width;
    if (!options.svg) {
        std::cout << title << "\n\n" << drawMemoryMap(blocks, mapOptions);
        return EXIT_OK;
    }
    map_start_t start{0, ""};
    if (image.hasStartAddress()) {
        const uint32_t value = image.getStartAddressValue();
        start.address = image.getStartAddressType() == 5 ? value : (value >> 16) * 16ull + (value & 0xFFFF);
        start.text = startAddressText(image.getStartAddressType(), value);
    }
    const std::string svg = drawMemoryMapSvg(blocks, title, image.hasStartAddress() ? &start : nullptr, mapOptions);
    if (options.output.empty() || options.output == "-") {
        std::cout << svg << std::flush;
        return std::cout ? EXIT_OK : EXIT_FAILED;
    }
    const bool written = writeBinaryFile(reinterpret_cast<const uint8_t*>(svg.data()), svg.size(), options.output,
                                         0666 & ~currentUmask());
    return written ? EXIT_OK : EXIT_FAILED;
}

int runBin(const options_t& options, inputs_t& inputs)
{
    IntelHexFile& image = inputs.blocks;
    if (options.reverse)
        image.reverseBuffers();
    if (!namesDirectory(options.output))
        return writeSingleBinary(image, options);
    const std::string outputDir = options.output.empty() ? "." : options.output;
    const std::string prefix = outputDir + (outputDir.back() == '/' ? "" : "/") +
                               baseNameOf(options.file) + "_";
    // Files get the usual mode of a new file: 0666 less the umask.
    const mode_t fileMode = 0666 & ~currentUmask();
    for (size_t i = 0; i < image.getBlockCount(); ++i) {
        const IntelHexFileBlock& b = image[i];
        const std::string path = prefix + hexAddress(fullStart(b)) + ".bin";
        if (!writeBinaryFile(b.getBuffer(), b.getSize(), path, fileMode))
            return EXIT_FAILED;
        std::cout << path << "  " << bytesText(b.getSize()) << std::endl;
    }
    return EXIT_OK;
}

int runDump(const options_t& options, inputs_t& inputs)
{
    const IntelHexFile& image = inputs.blocks;
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

// convert of one binary file: written as it is read.
int runStreamedConvert(const options_t& options, const input_spec_t& input)
{
    const convert_result_t converted =
        convertBinaryFile(input.path.c_str(), input.address, options.output.c_str(), options.save);
    if (converted)
        return EXIT_OK;
    if (converted.inputFailed)
        std::cerr << input.path << ": " << converted.reason << std::endl;
    else
        std::cerr << PROGRAM << ": " << options.output << ": " << converted.reason << std::endl;
    return EXIT_FAILED;
}

int runConvert(const options_t& options, inputs_t& inputs)
{
    if (inputs.streamed)
        return runStreamedConvert(options, inputs.streamedInput);
    MemoryImage& image = inputs.image;
    if (!applyEdits(options, image))
        return EXIT_FAILED;
    result_t saved;
    if (options.output == "-") {
        saved = writeStream(image, std::cout, options.save);
        std::cout.flush();
        if (saved && !std::cout)
            saved = failure(status_t::CANNOT_WRITE, "cannot write to standard output");
    } else {
        saved = writeFile(image, options.output.c_str(), options.save);
    }
    if (!saved) {
        std::cerr << PROGRAM << ": " << (options.output == "-" ? "standard output" : options.output) << ": "
                  << saved.reason << std::endl;
        return EXIT_FAILED;
    }
    return EXIT_OK;
}

int runCrc(const options_t& options, inputs_t& inputs)
{
    const MemoryImage& image = inputs.image;
    const uint64_t end = image.empty() ? 0 : image.lowestAddress() + image.span();
    const range_t range = options.hasRange ? options.range : range_t{image.lowestAddress(), end};
    const uint8_t fill = options.save.fill;
    if (options.digest) {
        Digest digest(*options.digest);
        digest.updateImage(image, range, fill);
        // Lower case, as sha256sum prints it.
        std::string value;
        for (uint8_t byte : digest.value()) {
            value += "0123456789abcdef"[byte >> 4];
            value += "0123456789abcdef"[byte & 0xF];
        }
        const char* name = Digest::algorithmName(*options.digest);
        if (options.json)
            std::cout << "{\"algorithm\": " << jsonString(name) << ", \"value\": " << jsonString(value)
                      << ", \"start\": " << range.start << ", \"size\": " << range.size()
                      << ", \"fill\": " << static_cast<unsigned>(fill) << "}" << std::endl;
        else
            std::cout << name << ": " << value << " over " << hexAddress(range.start) << ":" << hexAddress(range.end)
                      << ", " << range.size() << (range.size() == 1 ? " byte" : " bytes") << std::endl;
        return EXIT_OK;
    }
    Checksum checksum(options.algorithm, fill);
    checksum.updateImage(image, range, fill);
    const uint32_t value = checksum.value();
    if (options.json) {
        std::cout << "{\"algorithm\": " << jsonString(options.algorithm.name) << ", \"value\": " << value
                  << ", \"start\": " << range.start << ", \"size\": " << range.size()
                  << ", \"fill\": " << static_cast<unsigned>(fill) << "}" << std::endl;
    } else {
        std::cout << options.algorithm.name << ": " << hexNumber(value, 2 * static_cast<int>(checksum.size()))
                  << " over " << hexAddress(range.start) << ":" << hexAddress(range.end) << ", " << range.size()
                  << (range.size() == 1 ? " byte" : " bytes") << std::endl;
    }
    return EXIT_OK;
}

int runPlan(const options_t& options, inputs_t& inputs)
{
    FlashPlan plan;
    const result_t made = plan.make(inputs.image, options.geometry, options.keepBlank);
    if (!made) {
        std::cerr << PROGRAM << ": " << options.file << ": " << made.reason << std::endl;
        return EXIT_FAILED;
    }
    if (options.json)
        printPlanJson(plan, std::cout);
    else
        printPlan(plan, std::cout);
    return EXIT_OK;
}

int runVerify(const options_t& options, inputs_t& inputs)
{
    const std::string& dump = options.inputs[1];
    const verify_result_t result =
        inputs.image.verifyFile(dump == "-" ? "/dev/stdin" : dump.c_str(), options.dumpAddress);
    if (!result && result.status != status_t::MISMATCH) {
        std::cerr << dump << ": " << result.reason << std::endl;
        return EXIT_TROUBLE;
    }
    if (options.json)
        printVerifyJson(result, std::cout);
    else
        printVerify(result, std::cout);
    return result.ok() ? EXIT_OK : EXIT_DIFFERENT;
}

int runDiff(const options_t& options, inputs_t& inputs)
{
    const diff_result_t result = inputs.image.diff(inputs.other, options.diff);
    if (options.json)
        printDiffJson(result, inputs.image, inputs.other, std::cout);
    else
        printDiff(result, inputs.image, inputs.other, std::cout);
    return result.equal() ? EXIT_OK : EXIT_DIFFERENT;
}

} // namespace hexblocks::cli
