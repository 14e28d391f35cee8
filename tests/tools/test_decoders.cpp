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

// The vector decoder of this processor's family: SSE2, which every x86-64
// processor has, or NEON, which the tool uses where the processor has it
// (elsewhere it falls back to the scalar decoder, and the comparison holds
// all the same).
#if defined(__x86_64__) || defined(__i386__)
const char* const VECTOR_DECODER = "sse2";
#elif defined(__arm__) || defined(__aarch64__)
const char* const VECTOR_DECODER = "neon";
#else
const char* const VECTOR_DECODER = "scalar";
#endif

class Decoders : public ::testing::Test {
protected:
    TempDir dir;

    // The inputs made from one generated image (kind 0 to 3: 16 and 32-byte
    // records, CR LF in the last): HEX and S-records, and copies with one
    // damaged line of each kind.
    std::vector<std::string> inputs(int kind)
    {
        std::mt19937 random(23 + kind);
        const MemoryImage image = randomImage(random, kind % 2 == 0);
        write_options_t options;
        options.recordSize = kind < 2 ? 16 : 32;
        options.crlf = kind == 3;
        const std::string hex = saved(image, options);
        options.format = file_format_t::SRECORD;
        const std::string srec = saved(image, options);
        const std::string n = std::to_string(kind);
        return {dir.write("image" + n + ".hex", hex),
                dir.write("image" + n + ".srec", srec),
                dir.write("lower" + n + ".hex", lowerCase(hex)),
                dir.write("checksum" + n + ".hex", damage(hex, 3, '0', '1')),
                dir.write("digit" + n + ".hex", damage(hex, 2, '0', 'g')),
                dir.write("digit" + n + ".srec", damage(srec, 2, '0', ':'))};
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

// One test for each kind of input, so that they can run side by side.
class DecodersOnInputs : public Decoders, public ::testing::WithParamInterface<int> {};

TEST_P(DecodersOnInputs, EveryDecoderGivesTheSameResults)
{
    for (const std::string& path : inputs(GetParam())) {
        const std::vector<std::vector<std::string>> commands = {
            {"info", path}, {"info", "--strict", path}, {"convert", path, "-o", "-", "-O", "srec"}};
        for (const auto& command : commands) {
            const ProcessResult scalar = runWith("scalar", command);
            const ProcessResult other = runWith(VECTOR_DECODER, command);
            EXPECT_EQ(describe(other), describe(scalar)) << VECTOR_DECODER << ": " << command[0] << " " << path;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, DecodersOnInputs, ::testing::Range(0, 4));

TEST_F(Decoders, TheDamagedInputsFail)
{
    // The comparison above means something only if the bad inputs do fail.
    for (int kind = 0; kind < 3; ++kind)
        inputs(kind);
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
    const std::string path = inputs(0).front();
    const ProcessResult best = runTool({"info", path});
    EXPECT_EQ(best.exitCode, 0);
    EXPECT_EQ(describe(runWith("avx512", {"info", path})), describe(best));
}

} // namespace
