// The S-record reader: Motorola S-records (S0 header, S1 to S3 data, S5 and
// S6 counts, S7 to S9 start address) into a MemoryImage, through the same
// record scanner and assemblers as the full-format Intel HEX reader, so the
// same rules hold: records in any order, first value of each byte kept,
// records that repeat an earlier record's address dropped.
//
// Internal to the library: not installed.
#ifndef HEXBLOCKS_SRECORD_READER_H
#define HEXBLOCKS_SRECORD_READER_H

#include "formats.h"
#include "memory_image.h"
#include "record_assembler.h"
#include "record_scanner.h"

namespace hexblocks::detail {

// Reads source as S-records. On success image is replaced by what was read;
// otherwise it is left as it was.
fullread_t readSrecords(TextSource& source, MemoryImage& image, const assembly_t& assembly = assembly_t());

// The line of the record that gives the byte at address, as reading keeps
// it; 0 when none does. source must be able to rewind.
size_t locateSrecord(TextSource& source, uint32_t address);

} // namespace hexblocks::detail

#endif // HEXBLOCKS_SRECORD_READER_H
