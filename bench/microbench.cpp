// Microbenchmarks of the load path: one record line through the parser, a
// whole file through each reader (load() in both modes, the exact reader,
// the full-format reader into a MemoryImage), in ascending and shuffled order;
// and checksums over a 32 MiB image beside the reading of that image's file.
#include "checksum.h"
#include "flash_plan.h"
#include "intelhex.h"
#include "formats.h"
#include "memory_image.h"
#include "support/elf_builder.h"
#include "support/hex_text.h"
#include "support/temp_dir.h"
#include "support/test_access.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

using namespace hexblocks;

namespace {

// A firmware-sized image: 1 MiB (or size bytes) in 16-byte records,
// ascending, one gap per 64 KiB, as a file in a temporary directory.
struct ImageFile {
    TempDir dir;
    std::string path;
    size_t textBytes = 0;
    size_t dataBytes = 0;

    explicit ImageFile(bool shuffled, uint32_t size = 1u << 20)
    {
        std::mt19937 rng(1);
        std::vector<std::string> lines;
        for (uint32_t address = 0; address < size; address += 16) {
            if ((address & 0xFFFF) == 0)
                lines.push_back(linearBaseRecord(static_cast<uint16_t>(address >> 16)));
            if ((address & 0xFFFF) == 0x8000)
                continue; // a gap
            std::vector<uint8_t> data(16);
            for (uint8_t& b : data)
                b = static_cast<uint8_t>(rng());
            lines.push_back(dataRecord(static_cast<uint16_t>(address), data));
            dataBytes += 16;
        }
        if (shuffled) // swap neighbours within each base: still one base per record
            for (size_t i = 2; i + 1 < lines.size(); i += 2)
                if (lines[i][8] == '0' && lines[i + 1][8] == '0')
                    std::swap(lines[i], lines[i + 1]);
        lines.push_back(EOF_RECORD);
        const std::string text = joinLines(lines);
        textBytes = text.size();
        path = dir.write("image.hex", text);
    }
};

void BM_ParseLine(benchmark::State& state)
{
    const std::string record = dataRecord(0x1230, countingBytes(16, 0x40));
    IntelHexTestAccess::Line line = IntelHexTestAccess::Line();
    for (auto _ : state) {
        std::string text = record;
        line.data.clear();
        IntelHexTestAccess::parseLine(text, line);
        benchmark::DoNotOptimize(line.recordType);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * (record.size() + 1)));
}
BENCHMARK(BM_ParseLine);

// load(): records in ascending order take the fast reader's direct path.
void BM_Load(benchmark::State& state)
{
    static const ImageFile file(false);
    const bool oneBlock = state.range(0) != 0;
    for (auto _ : state) {
        IntelHexFile image;
        benchmark::DoNotOptimize(image.load(file.path.c_str(), oneBlock));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file.textBytes));
}
BENCHMARK(BM_Load)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// The exact reader: record set, then block assembly (normal and one-block).
void BM_LoadExact(benchmark::State& state)
{
    static const ImageFile file(false);
    const bool oneBlock = state.range(0) != 0;
    for (auto _ : state) {
        IntelHexFile image;
        benchmark::DoNotOptimize(IntelHexTestAccess::loadExact(image, file.path, oneBlock));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file.textBytes));
}
BENCHMARK(BM_LoadExact)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// Records out of order: load() reads them with the fast reader's windows.
void BM_LoadShuffled(benchmark::State& state)
{
    static const ImageFile file(true);
    for (auto _ : state) {
        IntelHexFile image;
        benchmark::DoNotOptimize(image.load(file.path.c_str(), false));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file.textBytes));
}
BENCHMARK(BM_LoadShuffled)->Unit(benchmark::kMillisecond);

// The full-format reader from a file, records ascending (0) or shuffled (1).
void BM_ReadHexFile(benchmark::State& state)
{
    static const ImageFile ascending(false);
    static const ImageFile shuffled(true);
    const ImageFile& file = state.range(0) != 0 ? shuffled : ascending;
    for (auto _ : state) {
        MemoryImage image;
        benchmark::DoNotOptimize(readFile(image, file.path.c_str(), readAs(file_format_t::INTEL_HEX)).ok());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file.textBytes));
}
BENCHMARK(BM_ReadHexFile)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// The 32 MiB image read from its HEX file (about 92 MB), for the checksums
// below to be measured against.
const ImageFile& file32MiB()
{
    static const ImageFile file(false, 32u << 20);
    return file;
}

void BM_ReadHexFile32MiB(benchmark::State& state)
{
    const ImageFile& file = file32MiB();
    for (auto _ : state) {
        MemoryImage image;
        benchmark::DoNotOptimize(readFile(image, file.path.c_str(), readAs(file_format_t::INTEL_HEX)).ok());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file.dataBytes));
}
BENCHMARK(BM_ReadHexFile32MiB)->Unit(benchmark::kMillisecond);

// The 32 MiB image's file read by each reader, records ascending: the
// full-format HEX reader into a MemoryImage (0), load() (1), and the same
// image as S-records (2) and as an ELF file (3) into a MemoryImage.
// Throughput counts bytes of the file read.
struct OtherFormats {
    TempDir dir;
    std::string srecordPath, elfPath;
    size_t srecordBytes = 0, elfBytes = 0;

    OtherFormats()
    {
        MemoryImage image;
        if (!readFile(image, file32MiB().path.c_str(), readAs(file_format_t::INTEL_HEX)))
            std::abort();
        write_options_t options;
        options.format = file_format_t::SRECORD;
        srecordPath = dir.file("image.srec");
        if (!writeFile(image, srecordPath.c_str(), options))
            std::abort();
        std::vector<ElfSegment> segments;
        for (const segment_t& s : image.segments())
            segments.push_back(ElfSegment{1, s.address, s.address, s.bytes});
        const std::string elf = ElfBuilder(false, false).build(0, segments);
        elfPath = dir.write("image.elf", elf);
        srecordBytes = static_cast<size_t>(std::ifstream(srecordPath, std::ios::ate | std::ios::binary).tellg());
        elfBytes = elf.size();
    }
};

const OtherFormats& otherFormats32MiB()
{
    static const OtherFormats files;
    return files;
}

void BM_Read32MiB(benchmark::State& state)
{
    const ImageFile& file = file32MiB();
    const OtherFormats* others = state.range(0) >= 2 ? &otherFormats32MiB() : nullptr;
    size_t bytes = file.textBytes;
    for (auto _ : state) {
        switch (state.range(0)) {
        case 0: {
            MemoryImage image;
            benchmark::DoNotOptimize(readFile(image, file.path.c_str(), readAs(file_format_t::INTEL_HEX)).ok());
            break;
        }
        case 1: {
            IntelHexFile image;
            benchmark::DoNotOptimize(image.load(file.path.c_str(), false));
            break;
        }
        default: {
            MemoryImage image;
            const bool elf = state.range(0) == 3;
            benchmark::DoNotOptimize(readFile(image, elf ? others->elfPath.c_str() : others->srecordPath.c_str()).ok());
            bytes = elf ? others->elfBytes : others->srecordBytes;
            break;
        }
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_Read32MiB)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

// Each named checksum over the whole span of the 32 MiB image, gaps as fill.
// The image of the 32 MiB HEX file, read once.
const MemoryImage& image32MiB()
{
    static MemoryImage image;
    if (image.empty())
        readFile(image, file32MiB().path.c_str(), readAs(file_format_t::INTEL_HEX));
    return image;
}

void BM_Checksum32MiB(benchmark::State& state)
{
    const MemoryImage& image = image32MiB();
    const Checksum::algorithm_t& algorithm = Checksum::algorithms()[static_cast<size_t>(state.range(0))];
    state.SetLabel(algorithm.name);
    const range_t range{image.lowestAddress(), image.lowestAddress() + image.span()};
    for (auto _ : state) {
        Checksum checksum(algorithm);
        checksum.updateImage(image, range, 0xFF);
        benchmark::DoNotOptimize(checksum.value());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * range.size()));
}
BENCHMARK(BM_Checksum32MiB)->DenseRange(0, 12)->Unit(benchmark::kMillisecond);

// Planning the 32 MiB image onto 4 KiB sectors and 256-byte pages (Arg 0),
// and walking every page of the plan as a flasher does (Arg 1).
void BM_Plan32MiB(benchmark::State& state)
{
    const MemoryImage& image = image32MiB();
    FlashPlan::geometry_t geometry;
    geometry.start = image.lowestAddress() & ~0xFFFu;
    geometry.sectors.push_back({static_cast<uint32_t>((image.span() + 0x2000) / 0x1000), 0x1000});
    for (auto _ : state) {
        FlashPlan plan;
        plan.make(image, geometry);
        if (state.range(0) == 1) {
            FlashPlan::PageWalker pages(image, plan);
            uint64_t sum = 0;
            while (pages.next())
                sum += pages.data()[0];
            benchmark::DoNotOptimize(sum);
        }
        benchmark::DoNotOptimize(plan.writePages());
    }
    state.SetLabel(state.range(0) == 1 ? "plan+walk" : "plan");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * image.dataSize()));
}
BENCHMARK(BM_Plan32MiB)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// Verifying the 32 MiB image against its own flat dump in memory, and
// diffing it against a copy with one byte changed.
void BM_Compare32MiB(benchmark::State& state)
{
    const MemoryImage& image = image32MiB();
    static const std::vector<uint8_t> dump = image.copyRange(image.lowestAddress(), image.span(), 0xFF);
    static MemoryImage other;
    if (other.empty()) {
        other = image;
        const uint8_t byte = static_cast<uint8_t>(~image.copyRange(image.highestAddress(), 1)[0]);
        other.write(image.highestAddress(), &byte, 1);
    }
    for (auto _ : state) {
        if (state.range(0) == 0)
            benchmark::DoNotOptimize(image.verify(dump.data(), dump.size(), image.lowestAddress()).compared);
        else
            benchmark::DoNotOptimize(image.diff(other).ranges.size());
    }
    state.SetLabel(state.range(0) == 0 ? "verify" : "diff");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * image.dataSize()));
}
BENCHMARK(BM_Compare32MiB)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// UF2 in process: the 32 MiB image written as UF2 into memory (Arg 0) and
// that UF2 read from memory (Arg 1); bytes are bytes of UF2.
void BM_Uf2_32MiB(benchmark::State& state)
{
    const MemoryImage& image = image32MiB();
    write_options_t options;
    options.format = file_format_t::UF2;
    options.family = 0xE48BFF56;
    static std::string uf2;
    if (uf2.empty()) {
        std::ostringstream out;
        writeStream(image, out, options);
        uf2 = out.str();
    }
    // Output that goes nowhere: the writer's own cost.
    struct Discard : std::streambuf {
        std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
        int overflow(int c) override { return c; }
    };
    for (auto _ : state) {
        if (state.range(0) == 0) {
            Discard discard;
            std::ostream out(&discard);
            benchmark::DoNotOptimize(writeStream(image, out, options).ok());
        } else {
            MemoryImage read;
            benchmark::DoNotOptimize(readMemory(read, uf2.data(), uf2.size()).ok());
        }
    }
    state.SetLabel(state.range(0) == 0 ? "write" : "read");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * uf2.size()));
}
BENCHMARK(BM_Uf2_32MiB)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
