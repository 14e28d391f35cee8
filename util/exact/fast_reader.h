// The fast reader behind IntelHexFile::load(): it reads files that the exact
// reader would take without printing a word, in any record order, and finds
// the same runs of records that the exact reader's block assembly finds. It
// gives up, having built nothing and printed nothing, on anything else; load()
// then reads the file again with the exact reader.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_FAST_READER_H
#define HEXBLOCKS_FAST_READER_H

#include "record_scanner.h"

#include <cstdint>
#include <vector>

namespace hexblocks::detail {

// A run of contiguous records under one linear base, as the exact reader's
// getNextEnd() delimits it.
struct fastrun_t {
    uint16_t linearBase;
    uint16_t startAddr;
    uint16_t lastRecordAddr; // the run's final record, whose end one-block
    uint8_t lastRecordLen;   // mode takes for the end of the block
    std::vector<uint8_t> bytes;
};

// Reads source to its end-of-file record and fills runs in ascending order
// of linear base and start address. Records in ascending order are appended
// as they come; at the first record out of order the source is read again
// from the start with a window per linear base. Returns false, with runs
// empty, when the exact reader would print anything for the file, when
// records out of order overlap, or when the source cannot be read again.
bool readFast(TextSource& source, std::vector<fastrun_t>& runs);

} // namespace hexblocks::detail

#endif // HEXBLOCKS_FAST_READER_H
