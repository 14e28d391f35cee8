// hexblocks map --svg: a valid SVG document (Python's XML parser reads it)
// with the blocks to scale, each labelled with its address range and size,
// huge gaps cut, the start address marked; written to standard output or
// through -o; rendered to a PNG by rsvg-convert that is not blank; and the
// tool guide's picture is what the tool draws.
#include "formats.h"
#include "memory_image.h"

#include "support/image_view.h"
#include "support/run_tool.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace hexblocks;

namespace {

// What Python prints for an SVG document given on its standard input: the
// root's tag, the number of rectangles, and the texts, one a line.
std::string parsedSvg(const std::string& svg)
{
    const ProcessResult r = runProcessWithInput(
        PYTHON3_PATH,
        {"-c", "import sys, xml.etree.ElementTree as ET\n"
               "root = ET.parse(sys.stdin).getroot()\n"
               "ns = '{http://www.w3.org/2000/svg}'\n"
               "print(root.tag, len(root.findall(ns + 'rect')), len(root.findall(ns + 'path')))\n"
               "for t in root.findall(ns + 'text'):\n"
               "    print(t.text)\n"},
        svg);
    EXPECT_EQ(r.exitCode, 0) << r.err << svg;
    return r.out;
}

} // namespace

TEST(MapSvg, IsValidSvgWithEveryBlockLabelled)
{
    const ProcessResult r = runTool({"map", "--svg", SAMPLE_HEX});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, "");
    // 1 background, 5 pieces of the strip, 3 legend squares; no start address.
    EXPECT_EQ(parsedSvg(r.out), "{http://www.w3.org/2000/svg}svg 9 0\n" + std::string(SAMPLE_HEX) +
                                    ": 3 blocks, 16.1 KiB of data in 127.1 KiB\n"
                                    "A\nB\n0x08000000\n0x0801FC3F\n"
                                    "A  0x08000000-0x08000FFF       4 KiB  block 0\n"
                                    "   0x08001000-0x08003FFF      12 KiB  gap\n"
                                    "B  0x08004000-0x08006FFF      12 KiB  block 1\n"
                                    "   0x08007000-0x0801FBFF      99 KiB  gap\n"
                                    "C  0x0801FC00-0x0801FC3F        64 B  block 2\n");
}

TEST(MapSvg, MarksTheStartAddressAndCutsHugeGaps)
{
    TempDir dir;
    MemoryImage image = imageOf({{0x08000000, std::vector<uint8_t>(0x1000, 1)},
                                 {0x08004000, std::vector<uint8_t>(0x3000, 2)},
                                 {0x1FFF7800, std::vector<uint8_t>(16, 3)}});
    ASSERT_TRUE(image.setStartAddress({5, 0x08004101}));
    const std::string hex = dir.file("fw.hex");
    ASSERT_TRUE(writeFile(image, hex.c_str()));
    const std::string svg = dir.file("map.svg");
    const ProcessResult r = runTool({"map", hex, "--svg", "-o", svg});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "");
    const std::string parsed = parsedSvg(readFileText(svg));
    EXPECT_EQ(parsed.substr(0, parsed.find('\n')), "{http://www.w3.org/2000/svg}svg 10 1");
    for (const char* text : {"//", "start 0x08004101", "start address: 0x08004101 (linear, type 05)",
                             "   0x08007000-0x1FFF77FF   383.9 MiB  gap (not to scale)",
                             "C  0x1FFF7800-0x1FFF780F        16 B  block 2"})
        EXPECT_NE(parsed.find(std::string("\n") + text + "\n"), std::string::npos) << text << "\n" << parsed;

    // Names in the title are escaped for XML.
    const std::string odd = dir.file("a&b<c>.hex");
    ASSERT_TRUE(writeFile(image, odd.c_str()));
    const ProcessResult escaped = runTool({"map", "--svg", odd});
    EXPECT_NE(escaped.out.find("a&amp;b&lt;c&gt;.hex"), std::string::npos);
    EXPECT_NE(parsedSvg(escaped.out).find("a&b<c>.hex: 3 blocks"), std::string::npos);
}

TEST(MapSvg, RendersToAPictureThatIsNotBlank)
{
    TempDir dir;
    const std::string png = dir.file("map.png");
    const std::string svg = dir.file("map.svg");
    ASSERT_EQ(runTool({"map", "--svg", SAMPLE_HEX, "-o", svg}).exitCode, 0);
    const ProcessResult rendered = runProcess(RSVG_CONVERT_PATH, {svg, "-o", png});
    ASSERT_EQ(rendered.exitCode, 0) << rendered.err;
    // Python decodes the PNG's pixels and counts the colours in them.
    const ProcessResult colours = runProcess(
        PYTHON3_PATH,
        {"-c", "import sys, struct, zlib\n"
               "data = open(sys.argv[1], 'rb').read()\n"
               "assert data[:8] == b'\\x89PNG\\r\\n\\x1a\\n'\n"
               "pos, idat, size = 8, b'', None\n"
               "while pos < len(data):\n"
               "    length, kind = struct.unpack('>I4s', data[pos:pos + 8])\n"
               "    body = data[pos + 8:pos + 8 + length]\n"
               "    if kind == b'IHDR': size = struct.unpack('>II', body[:8])\n"
               "    if kind == b'IDAT': idat += body\n"
               "    pos += 12 + length\n"
               "raw = zlib.decompress(idat)\n"
               "width, height = size\n"
               "stride = len(raw) // height\n"
               "pixels = set()\n"
               "for y in range(height):\n"
               "    row = raw[y * stride + 1:(y + 1) * stride]\n"
               "    if raw[y * stride] == 0:\n"
               "        pixels.update(row[i:i + 4] for i in range(0, len(row), 4))\n"
               "print(width, height, len(pixels) > 4)\n",
         png});
    EXPECT_EQ(colours.exitCode, 0) << colours.err;
    EXPECT_EQ(colours.out, "800 270 True\n");
}

TEST(MapSvg, TheReadmePictureIsWhatTheToolDraws)
{
    const ProcessResult r = runTool({"map", "--svg", "examples/sample.hex"}, PROJECT_SOURCE_DIR);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, readFileText(std::string(PROJECT_SOURCE_DIR) + "/examples/sample-map.svg"))
        << "run: hexblocks map --svg examples/sample.hex -o examples/sample-map.svg";
}

TEST(MapSvg, OutputNeedsSvg)
{
    const ProcessResult r = runTool({"map", SAMPLE_HEX, "-o", "map.txt"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.substr(0, r.err.find('\n')), "hexblocks: -o writes the SVG picture: add --svg");
}
