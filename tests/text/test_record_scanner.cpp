// The record scanner: the same records and line numbers whether the text is
// in memory, read from a pipe in pieces or from a stream buffer; each
// reader's line rules; and the reasons for bad lines.
#include "record_scanner.h"
#include "support/hex_text.h"
#include "support/temp_dir.h"
#include "support/understated_text.h"

#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace hexblocks::detail;

struct Scanned {
    scanend_t end;
    std::vector<std::string> records; // "line:type:offset:length:data"
    badline_t bad;
    size_t lines;
};

std::string describe(const scannedrecord_t& r)
{
    std::string text = std::to_string(r.line) + ":" + std::to_string(r.type) + ":" + std::to_string(r.offset) + ":" +
                       std::to_string(r.length) + ":";
    for (size_t i = 0; i < r.length; ++i)
        text += std::to_string(r.data[i]) + ",";
    return text + std::string(r.text, r.textLength);
}

template <linerules_t RULES> Scanned scanWith(TextSource& source)
{
    Scanned s;
    RecordScanner<RULES> scanner;
    s.end = scanner.scan(source, [&](const scannedrecord_t& r) {
        s.records.push_back(describe(r));
        return true;
    });
    s.bad = scanner.badLine();
    s.lines = scanner.lineCount();
    return s;
}

Scanned scanWith(TextSource& source, linerules_t rules)
{
    switch (rules) {
    case linerules_t::STRICT:
        return scanWith<linerules_t::STRICT>(source);
    case linerules_t::FULL_FORMAT:
        return scanWith<linerules_t::FULL_FORMAT>(source);
    default:
        return scanWith<linerules_t::SRECORD>(source);
    }
}

Scanned scanMemory(const std::string& text, linerules_t rules)
{
    MemoryText source(text.data(), text.size());
    return scanWith(source, rules);
}

// The same text through a pipe, which is read in pieces and cannot be rewound.
Scanned scanPipe(const std::string& text, linerules_t rules)
{
    int fds[2];
    EXPECT_EQ(pipe(fds), 0);
    const pid_t writer = fork();
    if (writer == 0) {
        close(fds[0]);
        for (size_t done = 0; done < text.size();) {
            // Small, uneven writes, so that reads end in odd places.
            const ssize_t n = write(fds[1], text.data() + done, std::min<size_t>(text.size() - done, 4093));
            if (n <= 0)
                _exit(1);
            done += static_cast<size_t>(n);
        }
        _exit(0);
    }
    close(fds[1]);
    DescriptorText source(fds[0]);
    EXPECT_FALSE(source.canRewind());
    EXPECT_FALSE(source.rewind());
    const Scanned s = scanWith(source, rules);
    close(fds[0]);
    int status = 0;
    waitpid(writer, &status, 0);
    return s;
}

void expectSameEverywhere(const std::string& text, linerules_t rules, const std::string& what)
{
    SCOPED_TRACE(what);
    const Scanned memory = scanMemory(text, rules);
    const Scanned piped = scanPipe(text, rules);
    TempDir dir;
    std::ifstream file(dir.write("in.hex", text));
    StreamBufferText stream(*file.rdbuf());
    const Scanned streamed = scanWith(stream, rules);
    for (const Scanned* other : {&piped, &streamed}) {
        EXPECT_EQ(other->end, memory.end);
        EXPECT_EQ(other->records, memory.records);
        EXPECT_EQ(other->bad.line, memory.bad.line);
        EXPECT_EQ(other->bad.reason, memory.bad.reason);
        EXPECT_EQ(other->bad.text, memory.bad.text);
        EXPECT_EQ(other->lines, memory.lines);
    }
}

// A source that fails after handing out its first piece.
class FailingText : public TextSource {
public:
    ssize_t read(char* buffer, size_t capacity) override
    {
        if (calls_++ > 0)
            return -1;
        const std::string text = dataRecord(0, {1}) + "\n";
        const size_t n = std::min(capacity, text.size());
        text.copy(buffer, n);
        return static_cast<ssize_t>(n);
    }
    bool canRewind() const override { return false; }
    bool rewind() override { return false; }

private:
    int calls_ = 0;
};

} // namespace

TEST(RecordScanner, SameRecordsFromMemoryPipesAndStreams)
{
    // Lines of every length, so that some end exactly at a piece's end and
    // some run across it.
    std::string text;
    for (size_t i = 0; text.size() < 3 * (MAX_LINE_LENGTH + 1); ++i)
        text += dataRecord(static_cast<uint16_t>(i), countingBytes(i % 256)) + (i % 3 == 0 ? "\r\n" : "\n");
    const std::string withEnd = text + EOF_RECORD + "\ngarbage";
    for (linerules_t rules : {linerules_t::STRICT, linerules_t::FULL_FORMAT}) {
        expectSameEverywhere(withEnd, rules, "with an end record");
        expectSameEverywhere(text, rules, "without one");
        expectSameEverywhere(text + dataRecord(7, {7}), rules, "last line without a newline");
        expectSameEverywhere(text + std::string(MAX_LINE_LENGTH + 1, '0') + "\n", rules, "a line too long");
        expectSameEverywhere(text + std::string(MAX_LINE_LENGTH, ' ') + EOF_RECORD, rules, "the longest line");
        expectSameEverywhere("", rules, "nothing");
    }
    const Scanned s = scanMemory(withEnd, linerules_t::FULL_FORMAT);
    EXPECT_EQ(s.end, scanend_t::END_RECORD);
    EXPECT_EQ(s.records.size() + 1, s.lines);
}

TEST(RecordScanner, StrictRules)
{
    const std::string d = dataRecord(0x1234, {0xAB, 0xCD});
    Scanned s = scanMemory(d + "\r\n:00000001FFtrailing text\n" + d, linerules_t::STRICT);
    EXPECT_EQ(s.end, scanend_t::END_RECORD);
    EXPECT_EQ(s.records, std::vector<std::string>({"1:0:4660:2:171,205," + d}));
    EXPECT_EQ(s.lines, 2u);

    // Anything else is a bad line, with no reason given.
    const std::vector<std::string> badLines = {" " + d,          d + " ",          d + "\r\r",      "",
                                               ":0000000",       d.substr(0, d.size() - 1), ":0300300002337A1F",
                                               ":+1000000AB54",  "x" + d};
    for (const std::string& bad : badLines) {
        s = scanMemory(joinLines({d, bad, EOF_RECORD}), linerules_t::STRICT);
        EXPECT_EQ(s.end, scanend_t::BAD_LINE) << bad;
        EXPECT_EQ(s.records.size(), 1u) << bad;
        EXPECT_EQ(s.lines, 2u) << bad;
        EXPECT_EQ(s.bad.reason, "") << bad;
    }
    // The end record in lower case is just a record of type 1 here; the
    // reader decides what to make of it.
    s = scanMemory(":00000001ff\n", linerules_t::STRICT);
    EXPECT_EQ(s.end, scanend_t::END_OF_INPUT);
    EXPECT_EQ(s.records, std::vector<std::string>({"1:1:0:0::00000001ff"}));
}

TEST(RecordScanner, FullFormatRules)
{
    const std::string d = dataRecord(0x0010, {1});
    Scanned s = scanMemory("\n \t\r\n  " + d + " \r\n\n" + ":00000001ff\n" + d, linerules_t::FULL_FORMAT);
    EXPECT_EQ(s.end, scanend_t::END_RECORD);
    EXPECT_EQ(s.records, std::vector<std::string>({"3:0:16:1:1," + d}));
    EXPECT_EQ(s.lines, 5u);

    const std::vector<std::pair<std::string, std::string>> cases = {
        {"0300300002337A1E", "a record must start with ':'"},
        {":0300300002337A1", "odd number of hex digits"},
        {":00000001", "record too short"},
        {":0300300002337G1E", "character that is not a hex digit"},
        {":0400300002337A1B", "byte count 4 does not match the length of the line"},
        {":0300300002337A1F", "checksum error"},
        {":" + std::string(600, '0'), "byte count 0 does not match the length of the line"},
    };
    for (const auto& c : cases) {
        s = scanMemory(joinLines({d, "  " + c.first + "\t", EOF_RECORD}), linerules_t::FULL_FORMAT);
        EXPECT_EQ(s.end, scanend_t::BAD_LINE) << c.first;
        EXPECT_EQ(s.bad.line, 2u) << c.first;
        EXPECT_EQ(s.bad.reason, c.second);
        EXPECT_EQ(s.bad.text, c.first);
    }
    s = scanMemory(joinLines({d, std::string(MAX_LINE_LENGTH + 1, ' ')}), linerules_t::FULL_FORMAT);
    EXPECT_EQ(s.end, scanend_t::BAD_LINE);
    EXPECT_EQ(s.bad.line, 2u);
    EXPECT_EQ(s.bad.reason, "line too long");
    EXPECT_EQ(s.bad.text, "");
}

TEST(RecordScanner, HandlerStopsTheScan)
{
    const std::string text = joinLines({dataRecord(0, {1}), dataRecord(1, {2}), EOF_RECORD});
    MemoryText source(text.data(), text.size());
    RecordScanner<linerules_t::FULL_FORMAT> scanner;
    EXPECT_EQ(scanner.scan(source, [](const scannedrecord_t&) { return false; }), scanend_t::STOPPED);
    EXPECT_EQ(scanner.lineCount(), 1u);
}

TEST(RecordScanner, ReadErrors)
{
    FailingText source;
    RecordScanner<linerules_t::FULL_FORMAT> scanner;
    size_t records = 0;
    EXPECT_EQ(scanner.scan(source, [&](const scannedrecord_t&) { return ++records > 0; }), scanend_t::READ_ERROR);
    EXPECT_EQ(records, 1u);
}

TEST(RecordScanner, SourcesRewind)
{
    const std::string text = joinLines({dataRecord(0, {1}), EOF_RECORD});
    MemoryText memory(text.data(), text.size());
    std::vector<char> all;
    ASSERT_TRUE(readWhole(memory, all));
    EXPECT_EQ(std::string(all.begin(), all.end()), text);
    ASSERT_TRUE(memory.rewind());
    all.clear();
    ASSERT_TRUE(readWhole(memory, all));
    EXPECT_EQ(all.size(), text.size());

    TempDir dir;
    const std::string path = dir.write("in.hex", "xx" + text);
    FILE* file = fopen(path.c_str(), "r");
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(fseek(file, 2, SEEK_SET), 0); // a descriptor is read from where it stands
    DescriptorText descriptor(fileno(file));
    EXPECT_TRUE(descriptor.canRewind());
    all.clear();
    ASSERT_TRUE(readWhole(descriptor, all));
    EXPECT_EQ(std::string(all.begin(), all.end()), text);
    ASSERT_TRUE(descriptor.rewind());
    all.clear();
    ASSERT_TRUE(readWhole(descriptor, all));
    EXPECT_EQ(std::string(all.begin(), all.end()), text);
    fclose(file);

    FailingText failing;
    EXPECT_FALSE(readWhole(failing, all));
}

TEST(RecordScanner, ASourceLongerThanItSaidIsReadWhole)
{
    // Read in pieces from a source that says it holds 20 bytes, with a line
    // longer than that: the same records, lines and bad line as from memory.
    const std::string text =
        joinLines({dataRecord(0, std::vector<uint8_t>(200, 0xAB)), dataRecord(0x100, {1, 2, 3}), ":0300", EOF_RECORD});
    for (linerules_t rules : {linerules_t::STRICT, linerules_t::FULL_FORMAT}) {
        UnderstatedText understated(text, 20);
        const Scanned pieces = scanWith(understated, rules);
        const Scanned memory = scanMemory(text, rules);
        EXPECT_EQ(pieces.records, memory.records);
        EXPECT_EQ(pieces.end, memory.end);
        EXPECT_EQ(pieces.lines, memory.lines);
        EXPECT_EQ(pieces.bad.line, memory.bad.line);
        EXPECT_EQ(pieces.bad.reason, memory.bad.reason);
        EXPECT_EQ(pieces.records.size(), 2u);
    }
}

namespace {

// A handler that takes runs: what it was given, in order, as text.
struct RunTaker {
    std::vector<std::string> taken;
    bool operator()(const scannedrecord_t& r)
    {
        taken.push_back("record " + std::to_string(r.type) + "@" + std::to_string(r.offset) + "+" +
                        std::to_string(r.length));
        return true;
    }
    bool takeRun(const datarun_t& run)
    {
        std::string bytes;
        for (size_t i = 0; i < run.length; ++i)
            bytes += std::to_string(run.data[i]) + ",";
        taken.push_back("run @" + std::to_string(run.address) + "+" + std::to_string(run.length) + " x" +
                        std::to_string(run.records) + " last " + std::to_string(run.lastOffset) + "+" +
                        std::to_string(run.lastLength) + " " + bytes);
        return true;
    }
};

} // namespace

TEST(RecordScanner, DataRecordsThatFollowEachOtherComeInRuns)
{
    const std::string text = joinLines({dataRecord(0x10, {1, 2}), dataRecord(0x12, {3}), // one run
                                        dataRecord(0x20, {4}),                          // a gap: another
                                        linearBaseRecord(1),                            // hands the run on
                                        dataRecord(0x21, {5}), "", dataRecord(0x22, {6}), // a blank line splits
                                        dataRecord(0xFFFF, {7, 8}),                     // past 0xFFFF: alone
                                        dataRecord(0x30, {}),                           // empty: alone
                                        EOF_RECORD});
    MemoryText source(text.data(), text.size());
    RecordScanner<linerules_t::FULL_FORMAT> scanner;
    RunTaker taker;
    EXPECT_EQ(scanner.scan(source, taker), scanend_t::END_RECORD);
    EXPECT_EQ(taker.taken, (std::vector<std::string>{"run @16+3 x2 last 18+1 1,2,3,", "run @32+1 x1 last 32+1 4,",
                                                     "record 4@0+2", "run @33+1 x1 last 33+1 5,",
                                                     "run @34+1 x1 last 34+1 6,", "record 0@65535+2",
                                                     "record 0@48+0"}));
}

TEST(RecordScanner, RunsEndWhereTheTextEndsOrTheirBufferIsFull)
{
    // 300 records of 16 bytes one after another, and no end record: runs of
    // at most 4096 bytes, handed on when the text ends, holding every byte.
    std::vector<std::string> lines;
    std::vector<uint8_t> all;
    for (uint32_t i = 0; i < 300; ++i) {
        std::vector<uint8_t> bytes(16);
        for (size_t j = 0; j < 16; ++j)
            bytes[j] = static_cast<uint8_t>(i * 16 + j);
        all.insert(all.end(), bytes.begin(), bytes.end());
        lines.push_back(dataRecord(static_cast<uint16_t>(i * 16), bytes));
    }
    const std::string text = joinLines(lines);
    for (bool pieces : {false, true}) {
        MemoryText memory(text.data(), text.size());
        UnderstatedText understated(text, text.size());
        RecordScanner<linerules_t::STRICT> scanner;
        struct Collector {
            std::vector<uint8_t> bytes;
            std::vector<size_t> runs;
            bool operator()(const scannedrecord_t&) { return false; }
            bool takeRun(const datarun_t& run)
            {
                EXPECT_EQ(run.address, bytes.size());
                bytes.insert(bytes.end(), run.data, run.data + run.length);
                runs.push_back(run.length);
                return true;
            }
        } collector;
        EXPECT_EQ(scanner.scan(pieces ? static_cast<TextSource&>(understated) : memory, collector),
                  scanend_t::END_OF_INPUT);
        EXPECT_EQ(collector.bytes, all);
        EXPECT_EQ(collector.runs, (std::vector<size_t>{4096, 704}));
        EXPECT_EQ(scanner.lineCount(), 300u);
    }
}

TEST(RecordScanner, AHandlerThatStopsAtARunStopsTheScan)
{
    const std::string text = joinLines({dataRecord(0, {1}), dataRecord(1, {2}), linearBaseRecord(1), EOF_RECORD});
    MemoryText source(text.data(), text.size());
    RecordScanner<linerules_t::FULL_FORMAT> scanner;
    struct Refuser {
        size_t records = 0;
        bool operator()(const scannedrecord_t&) { return ++records > 0; }
        bool takeRun(const datarun_t&) { return false; }
    } refuser;
    EXPECT_EQ(scanner.scan(source, refuser), scanend_t::STOPPED);
    EXPECT_EQ(refuser.records, 0u);
}

TEST(RecordScanner, SrecordRunsCountTheirRecords)
{
    const std::string text = "S1060000010203F3\nS1050003040DE6\nS9030000FC\n";
    MemoryText source(text.data(), text.size());
    RecordScanner<linerules_t::SRECORD> scanner;
    RunTaker taker;
    EXPECT_EQ(scanner.scan(source, taker), scanend_t::END_RECORD);
    ASSERT_EQ(taker.taken.size(), 2u);
    EXPECT_EQ(taker.taken[0], "run @0+5 x2 last 3+2 1,2,3,4,13,");
    EXPECT_EQ(taker.taken[1], "record 9@0+0");
}

namespace {

// Everything a handler is given, as text: the bytes of data records that
// can join a run one by one with their addresses (whether they came in a
// run or alone), and any other record whole.
struct Events {
    std::vector<std::string> seen;
    size_t runRecords = 0; // data records counted by the runs
    bool srecord = false;

    void addBytes(uint64_t address, const uint8_t* data, size_t length)
    {
        for (size_t i = 0; i < length; ++i)
            seen.push_back(std::to_string(address + i) + "=" + std::to_string(data[i]));
    }
    bool joinsRuns(const scannedrecord_t& r) const
    {
        if (srecord)
            return r.type >= 1 && r.type <= 3 && r.length > 0 && uint64_t{r.address} + r.length <= 0x100000000ull;
        return r.type == 0 && r.length > 0 && r.offset + r.length <= 0x10000u;
    }
    bool operator()(const scannedrecord_t& r)
    {
        if (joinsRuns(r))
            addBytes(srecord ? r.address : r.offset, r.data, r.length);
        else
            seen.push_back(describe(r));
        return true;
    }
};

// The same, taking runs; a run's last record ends where the run ends.
struct RunEvents : Events {
    bool takeRun(const datarun_t& run)
    {
        EXPECT_GT(run.lastLength, 0u);
        if (!srecord) {
            EXPECT_EQ(uint64_t{run.lastOffset} + run.lastLength, uint64_t{run.address} + run.length);
        }
        addBytes(run.address, run.data, run.length);
        runRecords += run.records;
        return true;
    }
};

// Lines that mostly continue each other in one shape, and now and then
// something that ends such a stretch: another count, another line ending,
// a gap, a record of another type with the same count, an address record,
// the end of a 64 KiB window (or of the address space), lower-case digits,
// a blank line, and rarely a wrong checksum or a character that is not a
// digit, which end the scan.
std::string mixedText(std::mt19937& random, bool srecord, size_t lines)
{
    auto chance = [&](unsigned in) { return random() % in == 0; };
    std::string text;
    unsigned count = 16;
    const unsigned type = srecord ? 1 + random() % 3 : 0;
    uint32_t address = srecord && type == 3 ? 0xFFFFF000u + random() % 0x800 : random() % 0xF000;
    for (size_t i = 0; i < lines; ++i) {
        if (chance(25))
            count = 1 + random() % 40;
        if (chance(40))
            address += 1 + random() % 64;
        if (chance(60))
            address = srecord ? (type == 3 ? 0xFFFFFFF8u : 0xFFF8u) : 0xFFF8u;
        std::vector<uint8_t> bytes(count);
        for (uint8_t& b : bytes)
            b = static_cast<uint8_t>(random());
        std::string line;
        if (srecord) {
            const unsigned lineType = chance(30) ? 5 + random() % 5 : type;
            line = srecordLine(lineType, lineType >= 5 ? (lineType == 5 || lineType == 9 ? 2 : lineType == 6 || lineType == 8 ? 3 : 4) : type + 1,
                               address, bytes);
        } else if (chance(30)) {
            line = hexRecord(static_cast<uint8_t>(1 + random() % 5), static_cast<uint16_t>(address), bytes);
        } else if (chance(40)) {
            line = linearBaseRecord(static_cast<uint16_t>(random()));
        } else {
            line = dataRecord(static_cast<uint16_t>(address), bytes);
        }
        if (chance(30))
            for (char& c : line)
                c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (chance(400))
            line[line.size() - 1] = line[line.size() - 1] == '0' ? '1' : '0'; // a wrong checksum
        if (chance(400))
            line[3 + random() % (line.size() - 3)] = 'g';
        text += line + (chance(20) ? "\r\n" : "\n");
        if (chance(80))
            text += "\n";
        address += count;
    }
    return text;
}

template <linerules_t RULES, typename Handler> Scanned scanEvents(TextSource& source, Handler& handler)
{
    RecordScanner<RULES> scanner;
    Scanned s;
    s.end = scanner.scan(source, handler);
    s.bad = scanner.badLine();
    s.lines = scanner.lineCount();
    return s;
}

template <linerules_t RULES> void expectRunsGiveWhatRecordsGive(const std::string& text)
{
    const bool srecord = RULES == linerules_t::SRECORD;
    Events records;
    records.srecord = srecord;
    MemoryText memory(text.data(), text.size());
    const Scanned byRecord = scanEvents<RULES>(memory, records);
    size_t dataRecords = 0;
    {
        // How many records the runs should count.
        Events counter;
        counter.srecord = srecord;
        MemoryText again(text.data(), text.size());
        RecordScanner<RULES> scanner;
        scanner.scan(again, [&](const scannedrecord_t& r) {
            dataRecords += counter.joinsRuns(r) ? 1 : 0;
            return true;
        });
    }
    for (bool pieces : {false, true}) {
        SCOPED_TRACE(pieces ? "read in pieces" : "in memory");
        RunEvents runs;
        runs.srecord = srecord;
        MemoryText inMemory(text.data(), text.size());
        UnderstatedText understated(text, 100);
        const Scanned byRun = scanEvents<RULES>(pieces ? static_cast<TextSource&>(understated) : inMemory, runs);
        EXPECT_EQ(byRun.end, byRecord.end);
        EXPECT_EQ(byRun.bad.line, byRecord.bad.line);
        EXPECT_EQ(byRun.bad.reason, byRecord.bad.reason);
        EXPECT_EQ(byRun.lines, byRecord.lines);
        EXPECT_EQ(runs.seen, records.seen);
        // A scan that ended early may leave records past the bad line out
        // of the count that the separate scan made.
        if (byRecord.end != scanend_t::BAD_LINE) {
            EXPECT_EQ(runs.runRecords, dataRecords);
        }
    }
}

} // namespace

TEST(RecordScanner, RunsGiveWhatRecordsGiveWhateverComesBetween)
{
    std::mt19937 random(20261122);
    for (int i = 0; i < 300; ++i) {
        SCOPED_TRACE("text " + std::to_string(i));
        const size_t lines = 1 + random() % 400;
        const std::string hex = mixedText(random, false, lines);
        expectRunsGiveWhatRecordsGive<linerules_t::STRICT>(hex);
        expectRunsGiveWhatRecordsGive<linerules_t::FULL_FORMAT>(hex);
        expectRunsGiveWhatRecordsGive<linerules_t::SRECORD>(mixedText(random, true, lines));
        if (HasFailure())
            return;
    }
}

TEST(RecordScanner, ALineAsLongAsThoseBeforeItButOfAnotherShapeIsReadAsWhatItIs)
{
    // After records of 16 bytes: a line of the same length whose count says
    // 17 (and whose checksum fits that count) is a line whose length does
    // not match its count, not a record of 16 bytes.
    std::string odd = dataRecord(0x20, countingBytes(16, 0x20));
    odd[2] = '1';
    unsigned sum = 0;
    for (size_t i = 1; i + 2 < odd.size(); i += 2)
        sum += static_cast<unsigned>(std::stoul(odd.substr(i, 2), nullptr, 16));
    const char* digits = "0123456789ABCDEF";
    odd[odd.size() - 2] = digits[(-sum >> 4) & 0xF];
    odd[odd.size() - 1] = digits[-sum & 0xF];
    const std::string hex = joinLines({dataRecord(0, countingBytes(16)), dataRecord(0x10, countingBytes(16, 0x10)), odd,
                                       EOF_RECORD});
    const Scanned full = scanMemory(hex, linerules_t::FULL_FORMAT);
    EXPECT_EQ(full.end, scanend_t::BAD_LINE);
    EXPECT_EQ(full.bad.line, 3u);
    EXPECT_EQ(full.bad.reason, "byte count 17 does not match the length of the line");
    RunEvents runs;
    MemoryText source(hex.data(), hex.size());
    EXPECT_EQ(scanEvents<linerules_t::FULL_FORMAT>(source, runs).end, scanend_t::BAD_LINE);
    EXPECT_EQ(runs.seen.size(), 32u);

    // S-records: an S2 record after S1 records with the same count has a
    // three-byte address.
    const std::string srec = srecordLine(1, 2, 0x1000, countingBytes(16)) + "\n" +
                             srecordLine(1, 2, 0x1010, countingBytes(16)) + "\n" +
                             srecordLine(2, 3, 0x101020, countingBytes(15)) + "\n";
    RunEvents srecRuns;
    srecRuns.srecord = true;
    MemoryText srecSource(srec.data(), srec.size());
    EXPECT_EQ(scanEvents<linerules_t::SRECORD>(srecSource, srecRuns).end, scanend_t::END_OF_INPUT);
    ASSERT_EQ(srecRuns.seen.size(), 47u);
    EXPECT_EQ(srecRuns.seen[32], std::to_string(0x101020) + "=0");
}
