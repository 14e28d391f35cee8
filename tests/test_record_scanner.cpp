// The record scanner: the same records and line numbers whether the text is
// in memory, read from a pipe in pieces or from a stream buffer; each
// reader's line rules; and the reasons for bad lines.
#include "record_scanner.h"
#include "support/hex_text.h"
#include "support/temp_dir.h"
#include "support/understated_text.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace intelhex_internal;

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
