// Draws the address space of an image as text or as an SVG picture: a strip
// to scale with the gaps between the blocks, and a table of the regions it
// shows.
#ifndef HEXBLOCKS_MEMORY_MAP_H
#define HEXBLOCKS_MEMORY_MAP_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hexblocks::cli {

struct map_block_t {
    uint64_t start; // full 32-bit address of the first byte
    uint64_t size;  // bytes
    size_t index;   // position in the image
};

struct map_options_t {
    size_t width = 64;     // columns of the strip
    size_t maxRegions = 16; // more blocks than this are grouped into regions
};

// The start address to mark on a map.
struct map_start_t {
    uint64_t address; // the address it stands for
    std::string text; // as the legend names it
};

// The picture of blocks (in any order) as lines of text, ending in a newline.
std::string drawMemoryMap(std::vector<map_block_t> blocks, const map_options_t& options = map_options_t());

// The same picture as an SVG document: the strip to scale (huge gaps cut as
// in the text), each region labelled in a legend with its address range and
// size, under title, and the start address marked when start is given.
std::string drawMemoryMapSvg(std::vector<map_block_t> blocks, const std::string& title, const map_start_t* start,
                             const map_options_t& options = map_options_t());

} // namespace hexblocks::cli

#endif
