// Draws the address space of an image as text: a strip to scale with the
// gaps between the blocks, and a table of the regions it shows.
#ifndef HEXBLOCKS_MEMORY_MAP_H
#define HEXBLOCKS_MEMORY_MAP_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct MapBlock {
    uint64_t start; // full 32-bit address of the first byte
    uint64_t size;  // bytes
    size_t index;   // position in the image
};

struct MapOptions {
    size_t width = 64;     // columns of the strip
    size_t maxRegions = 16; // more blocks than this are grouped into regions
};

// The picture of blocks (in any order) as lines of text, ending in a newline.
std::string drawMemoryMap(std::vector<MapBlock> blocks, const MapOptions& options = MapOptions());

#endif
