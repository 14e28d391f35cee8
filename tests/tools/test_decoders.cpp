// hexblocks with each hex decoder, chosen through HEXBLOCKS_HEX_DECODER: the
// same output, diagnostics and exit status from the scalar decoder and from
// the vector decoder of the processor, on good and bad HEX and S-records.
#include "formats.h"
#include "memory_image.h"

#include "support/image_view.h"
#include "support/run_tool.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using namespace hexblocks;

namespace {

// Sets an environment variable for the life of the object.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::string& value) : name_(name) { setenv(name, value.c_str(), 1); }
    ~ScopedEnvironment() { unsetenv(name_); }

private:
    const char* name_;
};

std::string describe(const ProcessResult& r)
{
    return "exit " + std::to_string(r.exitCode) + "\n--- stdout\n" + r.out + "--- stderr\n" + r.err;
}

class Decoders : public ::testing::Test {
protected:
    TempDir dir;

    // The inputs: generated images as HEX (16 and 32-byte records, CR LF)
    // and S-records, and copies with one damaged line of each kind.
    std::vector<std::string> inputs()
    {
        std::vector<std::string> paths;
        std::mt19937 random(23);
        for (int i = 0; i < 4; ++i) {
            const MemoryImage image = randomImage(random, i % 2 == 0);
            write_options_t options;
            options.recordSize = i < 2 ? 16 : 32;
            options.crlf = i == 3;
            const std::string hex = saved(image, options);
            options.format = file_format_t::SRECORD;
            const std::string srec = saved(image, options);
            const std::string n = std::to_string(i);
            paths.push_back(dir.write("image" + n + ".hex", hex));
            paths.push_back(dir.write("image" + n + ".srec", srec));
            paths.push_back(dir.write("lower" + n + ".hex", lowerCase(hex)));
            paths.push_back(dir.write("checksum" + n + ".hex", damage(hex, 3, '0', '1')));
            paths.push_back(dir.write("digit" + n + ".hex", damage(hex, 2, '0', 'g')));
            paths.push_back(dir.write("digit" + n + ".srec", damage(srec, 2, '0', ':')));
        }
        return paths;
    }

    static std::string saved(const MemoryImage& image, const write_options_t& options)
    {
        std::ostringstream out;
        EXPECT_TRUE(writeStream(image, out, options).ok());
        return out.str();
    }

    static std::string lowerCase(std::string text)
    {
        for (char& c : text)
            if (c >= 'A' && c <= 'F')
                c = static_cast<char>(c - 'A' + 'a');
        return text;
    }

    // Changes one character from to into to on the given line (0-based),
    // after its first few characters.
    static std::string damage(std::string text, size_t line, char from, char to)
    {
        size_t start = 0;
        for (size_t i = 0; i < line; ++i)
            start = text.find('\n', start) + 1;
        const size_t at = text.find(from, start + 9);
        if (at != std::string::npos && at < text.find('\n', start))
            text[at] = to;
        return text;
    }

    ProcessResult runWith(const std::string& decoder, const std::vector<std::string>& args)
    {
        ScopedEnvironment environment("HEXBLOCKS_HEX_DECODER", decoder);
        return runTool(args);
    }
};

TEST_F(Decoders, EveryDecoderGivesTheSameResults)
{
    for (const std::string& path : inputs()) {
        const std::vector<std::vector<std::string>> commands = {
            {"info", path}, {"info", "--strict", path}, {"convert", path, "-o", "-", "-O", "srec"}};
        for (const auto& command : commands) {
            const ProcessResult scalar = runWith("scalar", command);
            for (const char* vector : {"sse2", "neon"}) {
                const ProcessResult other = runWith(vector, command);
                EXPECT_EQ(describe(other), describe(scalar)) << vector << ": " << command[0] << " " << path;
            }
        }
    }
}

TEST_F(Decoders, TheDamagedInputsFail)
{
    // The comparison above means something only if the bad inputs do fail.
    inputs();
    for (const char* name : {"checksum0.hex", "digit1.hex", "digit2.srec"}) {
        const ProcessResult r = runWith("scalar", {"info", dir.file(name)});
        EXPECT_EQ(r.exitCode, 1) << name << "\n" << describe(r);
        EXPECT_EQ(r.out, "") << name;
    }
    const ProcessResult good = runWith("scalar", {"info", dir.file("lower1.hex")});
    EXPECT_EQ(good.exitCode, 0) << describe(good);
}

TEST_F(Decoders, AnUnknownDecoderNameIsIgnored)
{
    const std::string path = inputs().front();
    const ProcessResult best = runTool({"info", path});
    EXPECT_EQ(best.exitCode, 0);
    EXPECT_EQ(describe(runWith("avx512", {"info", path})), describe(best));
}

} // namespace
