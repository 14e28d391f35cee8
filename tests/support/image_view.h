// MemoryImage contents as plain values that tests compare and print, and
// random images for tests that check readers and writers against each
// other and against other tools.
#ifndef HEXBLOCKS_TESTS_IMAGE_VIEW_H
#define HEXBLOCKS_TESTS_IMAGE_VIEW_H

#include "memory_image.h"

#include <cstdint>
#include <map>
#include <ostream>
#include <random>
#include <string>
#include <vector>

using hexblocks::MemoryImage;

struct SegmentView {
    uint32_t address;
    std::vector<uint8_t> bytes;
    bool operator==(const SegmentView& o) const { return address == o.address && bytes == o.bytes; }
};

std::ostream& operator<<(std::ostream& os, const SegmentView& s);

std::vector<SegmentView> segmentsOf(const MemoryImage& image);

// Every data byte of an image by address: the plain model that tests of
// edits, plans and comparisons check against.
using bytemap_t = std::map<uint32_t, uint8_t>;
bytemap_t bytesOf(const MemoryImage& image);

// An image holding parts (written in order, so later parts win).
MemoryImage imageOf(const std::vector<SegmentView>& parts);

// Segments ascend, never touch, are never empty and end by 2^32.
void expectWellFormed(const MemoryImage& image);

// The start address as text, "none" when there is none: for comparisons.
std::string startOf(const MemoryImage& image);

// A random image of 1 to 8 segments with gaps, spread over up to three
// areas of a few 64 KiB windows each; one image in four ends at 0xFFFFFFFF
// and one in four begins at 0. The span stays under 2 MiB per area, so
// that flat binaries of each area stay small. withStart gives it a start
// address (type 5, not 0). Under 64 KiB when small is true.
MemoryImage randomImage(std::mt19937& random, bool withStart, bool small = false);

#endif
