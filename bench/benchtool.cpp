// Helper of bench/compare.sh:
//
//   benchtool image KIND OUT.hex OUT.bin [RECORD_BYTES [ORDER]]
//       writes a deterministic test image as Intel HEX and the flat binary it
//       stands for (gaps 0xFF; OUT.bin.zero with gaps 0x00). KIND: contiguous32m, firmware1m, sparse.
//       ORDER of the data records: ascending (default), descending (the
//       ascending file's records in reverse), or shuffled (the same records
//       in a random order within each 64 KiB linear base, and the bases in a
//       random order). Each run of records under one base is preceded by its
//       extended linear address record.
//   benchtool join OUT.bin FILE_0xADDR.bin...
//       joins per-block binary files, placed by the address in their names,
//       into one image from address 0 with 0xFF in the gaps.
//   benchtool run -- COMMAND ARGS...
//       runs COMMAND with its standard output discarded and prints
//       "SECONDS MAXRSS_KIB EXIT_CODE CPU_SECONDS": wall time, peak resident
//       memory, exit code, and the processor time it used (user and system).
//   benchtool elf OUT.elf IN.bin
//       writes IN.bin as a 32-bit little-endian ELF file with one loadable
//       segment at address 0.
#include "support/elf_builder.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

struct Segment {
    uint32_t address;
    std::vector<uint8_t> bytes;
};

void appendRecord(std::string& out, uint8_t type, uint16_t address, const uint8_t* data, size_t n)
{
    static const char digits[] = "0123456789ABCDEF";
    uint8_t head[4] = {static_cast<uint8_t>(n), static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address),
                       type};
    unsigned sum = 0;
    out += ':';
    auto put = [&](uint8_t b) {
        out += digits[b >> 4];
        out += digits[b & 15];
        sum += b;
    };
    for (uint8_t b : head)
        put(b);
    for (size_t i = 0; i < n; ++i)
        put(data[i]);
    put(static_cast<uint8_t>(0x100 - (sum & 0xFF)));
    out += '\n';
}

// One data record: its full address and its bytes.
struct Record {
    uint32_t address;
    const uint8_t* data;
    size_t length;
};

// Records of recordBytes each, never crossing a 64 KiB boundary.
std::vector<Record> splitIntoRecords(const std::vector<Segment>& segments, size_t recordBytes)
{
    std::vector<Record> records;
    for (const Segment& s : segments) {
        size_t offset = 0;
        while (offset < s.bytes.size()) {
            const uint32_t address = s.address + static_cast<uint32_t>(offset);
            const size_t toBoundary = 0x10000 - (address & 0xFFFF);
            const size_t n = std::min({recordBytes, s.bytes.size() - offset, toBoundary});
            records.push_back({address, s.bytes.data() + offset, n});
            offset += n;
        }
    }
    return records;
}

// Puts the records in the requested order. Shuffling keeps the records of
// one linear base together, so the file holds the same lines in every order.
bool orderRecords(std::vector<Record>& records, const std::string& order)
{
    if (order == "ascending")
        return true;
    if (order == "descending") {
        std::reverse(records.begin(), records.end());
        return true;
    }
    if (order != "shuffled")
        return false;
    std::mt19937 rng(7);
    std::vector<std::vector<Record>> bases;
    for (const Record& r : records) {
        if (bases.empty() || bases.back().front().address >> 16 != r.address >> 16)
            bases.emplace_back();
        bases.back().push_back(r);
    }
    std::shuffle(bases.begin(), bases.end(), rng);
    records.clear();
    for (std::vector<Record>& base : bases) {
        std::shuffle(base.begin(), base.end(), rng);
        records.insert(records.end(), base.begin(), base.end());
    }
    return true;
}

// The records as HEX text, a base record wherever the upper 16 bits change.
std::string encode(const std::vector<Record>& records)
{
    std::string out;
    int64_t base = -1;
    for (const Record& r : records) {
        if (static_cast<int64_t>(r.address >> 16) != base) {
            base = r.address >> 16;
            const uint8_t b[2] = {static_cast<uint8_t>(base >> 8), static_cast<uint8_t>(base)};
            appendRecord(out, 0x04, 0, b, 2);
        }
        appendRecord(out, 0x00, static_cast<uint16_t>(r.address), r.data, r.length);
    }
    out += ":00000001FF\n";
    return out;
}

std::vector<uint8_t> randomBytes(std::mt19937& rng, size_t n)
{
    std::vector<uint8_t> bytes(n);
    for (size_t i = 0; i < n; i += 4) {
        const uint32_t v = rng();
        for (size_t k = 0; k < 4 && i + k < n; ++k)
            bytes[i + k] = static_cast<uint8_t>(v >> (8 * k));
    }
    return bytes;
}

std::vector<Segment> makeSegments(const std::string& kind)
{
    std::mt19937 rng(20261121);
    std::vector<Segment> segments;
    if (kind == "contiguous32m") {
        segments.push_back({0, randomBytes(rng, 32u << 20)});
    } else if (kind == "firmware1m") {
        segments.push_back({0, randomBytes(rng, 1u << 20)});
    } else if (kind == "sparse") {
        // 2000 blocks of 16 to 1024 bytes with gaps of 1 to 8 KiB: about
        // 1 MiB of data spread over several linear bases.
        std::uniform_int_distribution<uint32_t> size(16, 1024), gap(1, 8192);
        uint32_t address = 0;
        for (int i = 0; i < 2000; ++i) {
            segments.push_back({address, randomBytes(rng, size(rng))});
            address += static_cast<uint32_t>(segments.back().bytes.size()) + gap(rng);
        }
    }
    return segments;
}

bool writeFile(const std::string& path, const void* data, size_t n)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr)
        return false;
    const bool ok = std::fwrite(data, 1, n, f) == n;
    return std::fclose(f) == 0 && ok;
}

std::vector<uint8_t> flatten(const std::vector<Segment>& segments, uint8_t fill)
{
    const Segment& last = segments.back();
    std::vector<uint8_t> flat(last.address + last.bytes.size(), fill);
    for (const Segment& s : segments)
        std::copy(s.bytes.begin(), s.bytes.end(), flat.begin() + s.address);
    return flat;
}

int makeImage(int argc, char** argv)
{
    if (argc < 5)
        return 2;
    const std::vector<Segment> segments = makeSegments(argv[2]);
    if (segments.empty()) {
        std::fprintf(stderr, "unknown image kind %s\n", argv[2]);
        return 2;
    }
    const size_t recordBytes = argc > 5 ? std::strtoul(argv[5], nullptr, 10) : 16;
    std::vector<Record> records = splitIntoRecords(segments, recordBytes);
    if (!orderRecords(records, argc > 6 ? argv[6] : "ascending")) {
        std::fprintf(stderr, "unknown record order %s\n", argv[6]);
        return 2;
    }
    const std::string hex = encode(records);
    // Gaps hold 0xFF in OUT.bin and 0x00 in OUT.bin.zero (what a writer that
    // seeks over gaps leaves).
    const std::vector<uint8_t> flat = flatten(segments, 0xFF);
    const std::vector<uint8_t> zero = flatten(segments, 0x00);
    return writeFile(argv[3], hex.data(), hex.size()) && writeFile(argv[4], flat.data(), flat.size()) &&
                   writeFile(std::string(argv[4]) + ".zero", zero.data(), zero.size())
               ? 0
               : 1;
}

int join(int argc, char** argv)
{
    std::vector<uint8_t> flat;
    for (int i = 3; i < argc; ++i) {
        const std::string path = argv[i];
        const std::string::size_type at = path.rfind("_0x");
        if (at == std::string::npos)
            return 2;
        const size_t address = std::strtoul(path.c_str() + at + 3, nullptr, 16);
        std::ifstream in(path, std::ios::binary);
        const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (flat.size() < address + bytes.size())
            flat.resize(address + bytes.size(), 0xFF);
        std::copy(bytes.begin(), bytes.end(), flat.begin() + static_cast<long>(address));
    }
    return writeFile(argv[2], flat.data(), flat.size()) ? 0 : 1;
}

// An ELF file (32-bit, little-endian) with IN.bin as one loadable segment
// at address 0.
int makeElf(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    std::ifstream in(argv[3], std::ios::binary);
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string elf = ElfBuilder(false, false).build(0, {ElfSegment{1, 0, 0, bytes}});
    return writeFile(argv[2], elf.data(), elf.size()) ? 0 : 1;
}

int run(int argc, char** argv)
{
    if (argc < 4 || std::strcmp(argv[2], "--") != 0)
        return 2;
    const auto start = std::chrono::steady_clock::now();
    const pid_t pid = fork();
    if (pid == 0) {
        // The command's own report would mix with ours.
        const int devNull = open("/dev/null", O_WRONLY);
        dup2(devNull, STDOUT_FILENO);
        execvp(argv[3], argv + 3);
        _exit(127);
    }
    int status = 0;
    struct rusage usage;
    wait4(pid, &status, 0, &usage);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                       static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    std::printf("%.4f %ld %d %.4f\n", seconds, usage.ru_maxrss, WIFEXITED(status) ? WEXITSTATUS(status) : -1, cpu);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "image")
        return makeImage(argc, argv);
    if (command == "join")
        return join(argc, argv);
    if (command == "run")
        return run(argc, argv);
    if (command == "elf")
        return makeElf(argc, argv);
    std::fprintf(stderr, "usage: benchtool image KIND OUT.hex OUT.bin [RECORD_BYTES [ORDER]] | join OUT.bin FILES... | "
                         "run -- COMMAND... | elf OUT.elf IN.bin\n");
    return 2;
}
