// A deliberately plain reader of Intel HEX and S-record text, written apart
// from the library, for checking what other tools write: every data record
// with its full address, and the start address.
#ifndef HEXBLOCKS_TESTS_REFERENCE_RECORDS_H
#define HEXBLOCKS_TESTS_REFERENCE_RECORDS_H

#include "memory_image.h"
#include "support/image_view.h"

#include <string>
#include <vector>

struct ReferenceRecords {
    std::vector<SegmentView> records; // in file order
    bool hasStart = false;
    uint32_t start = 0; // the linear start address
    std::string error;  // empty when the text was understood
};

ReferenceRecords readHexReference(const std::string& text);
ReferenceRecords readSrecordReference(const std::string& text);

// Checks that records hold exactly the data of image: every byte of every
// record equals the image's byte there, and there are as many bytes as the
// image holds (records given by tools never overlap).
void expectSameData(const MemoryImage& image, const ReferenceRecords& records, const std::string& what);

#endif
