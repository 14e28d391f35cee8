#include "image_files.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <sstream>
#include <vector>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace hexblocks::cli {

namespace {

bool exists(const std::string& path)
{
    struct stat status;
    return ::stat(path.c_str(), &status) == 0;
}

} // namespace

std::string formatWords(bool written, const std::string& separator, const std::string& last)
{
    std::vector<std::string> words;
    for (const format_info_t& f : formats())
        if (written ? f.writable : f.readable)
            words.push_back(f.name);
    std::string text;
    for (size_t i = 0; i < words.size(); ++i) {
        if (i > 0)
            text += i + 1 == words.size() && !last.empty() ? last : separator;
        text += words[i];
    }
    return text;
}

std::string outputExtensions()
{
    std::string text;
    for (const format_info_t& f : formats()) {
        if (!f.writable || *f.extensions == '\0')
            continue;
        if (!text.empty())
            text += ", ";
        std::istringstream words(f.extensions);
        for (std::string word; words >> word;)
            text += "." + word + " ";
        text += f.title;
    }
    return text;
}

std::string recognitionRules()
{
    std::string text;
    for (const format_info_t& f : formats())
        if (f.recognise != nullptr)
            text += std::string(text.empty() ? "" : ", ") + f.title + " by " + f.recognisedBy;
    return text;
}

bool parseNumber(const std::string& text, uint64_t low, uint64_t high, uint64_t& value)
{
    if (text.empty() || !std::isdigit(static_cast<unsigned char>(text[0])))
        return false;
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* digits = text.c_str() + (hex ? 2 : 0);
    if (!std::isxdigit(static_cast<unsigned char>(*digits)))
        return false;
    char* end = nullptr;
    errno = 0;
    const unsigned long long parsed = std::strtoull(digits, &end, hex ? 16 : 10);
    if (errno != 0 || *end != '\0' || parsed < low || parsed > high)
        return false;
    value = parsed;
    return true;
}

bool parseInput(const std::string& operand, const file_format_t* forced, const read_settings_t& settings,
                input_spec_t& input, std::string& error)
{
    input = input_spec_t();
    input.path = operand;
    input.settings = settings;
    const std::string::size_type at = operand.find_last_of('@');
    if (at != std::string::npos && at > 0 && !exists(operand)) {
        uint64_t address = 0;
        if (!parseNumber(operand.substr(at + 1), 0, 0xFFFFFFFF, address)) {
            error = "invalid address '" + operand.substr(at + 1) + "' in '" + operand + "' (0 to 0xFFFFFFFF)";
            return false;
        }
        input.path = operand.substr(0, at);
        input.detect = false;
        input.format = file_format_t::BINARY;
        input.address = static_cast<uint32_t>(address);
        return true;
    }
    if (forced != nullptr) {
        input.detect = false;
        input.format = *forced;
    } else if (const std::optional<file_format_t> named = formatByExtension(operand);
               named && formatInfo(*named).recognise == nullptr && formatInfo(*named).readable) {
        input.detect = false;
        input.format = *named;
    }
    return true;
}

namespace {

bool writeAll(int fd, const char* bytes, size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, bytes, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

// Copies standard input into a new file in memory; its descriptor, or -1
// with error set.
int copyStandardInput(std::string& error)
{
    const int fd = memfd_create("hexblocks-standard-input", MFD_CLOEXEC);
    if (fd < 0) {
        error = std::string("cannot keep standard input: ") + std::strerror(errno);
        return -1;
    }
    char piece[64 * 1024];
    for (;;) {
        const ssize_t got = ::read(STDIN_FILENO, piece, sizeof piece);
        if (got < 0 && errno == EINTR)
            continue;
        if (got == 0)
            return fd;
        if (got < 0 || !writeAll(fd, piece, static_cast<size_t>(got))) {
            error = std::string(got < 0 ? "cannot read standard input: " : "cannot keep standard input: ") +
                    std::strerror(errno);
            ::close(fd);
            return -1;
        }
    }
}

} // namespace

bool standardInputPath(std::string& path, std::string& error)
{
    // Standard input can be read once: the first call copies it, and every
    // call gives the copy, which stays open until the program ends.
    static std::string copy;
    static std::string failure;
    static bool copied = false;
    if (!copied) {
        copied = true;
        const int fd = copyStandardInput(failure);
        if (fd >= 0)
            copy = "/proc/self/fd/" + std::to_string(fd);
    }
    path = copy;
    error = failure;
    return !copy.empty();
}

read_options_t readOptionsOf(const input_spec_t& input)
{
    read_options_t options;
    options.detect = input.detect;
    options.format = input.format;
    options.address = input.address;
    options.wordWidth = input.settings.wordWidth;
    options.family = input.settings.family;
    options.overlap = input.settings.overlap;
    return options;
}

read_result_t readInput(const input_spec_t& input, MemoryImage& image)
{
    const read_options_t options = readOptionsOf(input);
    std::string path = input.path;
    read_result_t failed;
    if (input.path == "-" && !standardInputPath(path, failed.reason))
        return failed;
    return readFile(image, path.c_str(), options);
}

ranges_t rangesOf(const MemoryImage& image)
{
    ranges_t ranges;
    for (const segment_t& s : image.segments())
        ranges.emplace_back(s.address, s.endAddress());
    return ranges;
}

} // namespace hexblocks::cli
