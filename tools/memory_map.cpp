#include "memory_map.h"

#include "text_format.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <sstream>

namespace {

// A run of one or more neighbouring blocks drawn as one letter.
struct Region {
    uint64_t start;
    uint64_t end;       // one past the last byte
    uint64_t dataBytes; // bytes held by the blocks
    size_t firstBlock;  // index of the first and last block in the image
    size_t lastBlock;
    size_t blockCount;
};

// One piece of the strip: a region or the gap after it.
struct Piece {
    bool isGap;
    uint64_t size;
    size_t region; // for a region: its position in the region list
    bool cut;      // a gap too large to draw to scale
    size_t columns;
};

const char CUT_MARK[] = "=//=";
const size_t CUT_WIDTH = sizeof(CUT_MARK) - 1;

char regionLetter(size_t region)
{
    return static_cast<char>('A' + region);
}

// Makes next part of region r.
void absorb(Region& r, const Region& next)
{
    r.end = std::max(r.end, next.end);
    r.dataBytes += next.dataBytes;
    r.firstBlock = std::min(r.firstBlock, next.firstBlock);
    r.lastBlock = std::max(r.lastBlock, next.lastBlock);
    r.blockCount += next.blockCount;
}

// Joins neighbouring blocks into at most maxRegions regions. The largest gaps
// separate the regions, so the largest holes stay visible; among gaps of equal
// size the separators are spread evenly, so regions come out balanced.
std::vector<Region> groupIntoRegions(const std::vector<MapBlock>& blocks, size_t maxRegions)
{
    // First, touching or overlapping blocks are one region.
    std::vector<Region> runs;
    for (const MapBlock& b : blocks) {
        const Region single{b.start, b.start + b.size, b.size, b.index, b.index, 1};
        if (!runs.empty() && b.start <= runs.back().end)
            absorb(runs.back(), single);
        else
            runs.push_back(single);
    }
    if (runs.size() <= maxRegions)
        return runs;

    // gap i lies between runs i and i + 1.
    const size_t gapCount = runs.size() - 1;
    const size_t separatorsWanted = maxRegions - 1;
    auto gapSize = [&](size_t i) { return runs[i + 1].start - runs[i].end; };
    // The size of the separatorsWanted-th largest gap.
    uint64_t threshold = 0;
    if (separatorsWanted > 0) {
        std::vector<uint64_t> sizes(gapCount);
        for (size_t i = 0; i < gapCount; ++i)
            sizes[i] = gapSize(i);
        std::nth_element(sizes.begin(), sizes.begin() + static_cast<long>(separatorsWanted - 1), sizes.end(),
                         std::greater<uint64_t>());
        threshold = sizes[separatorsWanted - 1];
    }

    std::vector<bool> separator(gapCount, false);
    std::vector<size_t> ties;
    size_t chosen = 0;
    for (size_t i = 0; i < gapCount && separatorsWanted > 0; ++i) {
        if (gapSize(i) > threshold) {
            separator[i] = true;
            ++chosen;
        } else if (gapSize(i) == threshold) {
            ties.push_back(i);
        }
    }
    const size_t fromTies = separatorsWanted - chosen;
    for (size_t k = 0; k < fromTies; ++k)
        separator[ties[(k + 1) * (ties.size() + 1) / (fromTies + 1) - 1]] = true;

    std::vector<Region> regions;
    regions.push_back(runs[0]);
    for (size_t i = 0; i < gapCount; ++i) {
        if (separator[i])
            regions.push_back(runs[i + 1]);
        else
            absorb(regions.back(), runs[i + 1]);
    }
    return regions;
}

std::vector<Piece> piecesOf(const std::vector<Region>& regions)
{
    std::vector<Piece> pieces;
    for (size_t i = 0; i < regions.size(); ++i) {
        if (i > 0)
            pieces.push_back(Piece{true, regions[i].start - regions[i - 1].end, 0, false, 0});
        pieces.push_back(Piece{false, regions[i].end - regions[i].start, i, false, 0});
    }
    return pieces;
}

// Gaps that would swallow the picture are cut out of the scale: while the
// largest gap is more than four times everything else still drawn to scale,
// it is drawn as a fixed break mark instead.
void cutHugeGaps(std::vector<Piece>& pieces)
{
    for (;;) {
        uint64_t scaled = 0;
        Piece* largest = nullptr;
        for (Piece& p : pieces) {
            if (p.cut)
                continue;
            scaled += p.size;
            if (p.isGap && (largest == nullptr || p.size > largest->size))
                largest = &p;
        }
        if (largest == nullptr || largest->size <= 4 * (scaled - largest->size))
            return;
        largest->cut = true;
    }
}

// Shares the columns out in proportion to size; every region and every gap
// gets at least one column so that nothing disappears.
void assignColumns(std::vector<Piece>& pieces, size_t width)
{
    uint64_t scaled = 0;
    size_t fixed = 0;
    size_t scaledPieces = 0;
    for (const Piece& p : pieces) {
        if (p.cut) {
            fixed += CUT_WIDTH;
        } else {
            scaled += p.size;
            ++scaledPieces;
        }
    }
    const size_t available = width > fixed + scaledPieces ? width - fixed : scaledPieces;
    const size_t spare = available - scaledPieces;

    std::vector<std::pair<double, Piece*>> remainders;
    size_t given = 0;
    for (Piece& p : pieces) {
        if (p.cut) {
            p.columns = CUT_WIDTH;
            continue;
        }
        const double share = scaled == 0 ? 0.0 : static_cast<double>(p.size) / static_cast<double>(scaled) * static_cast<double>(spare);
        const size_t whole = static_cast<size_t>(std::floor(share));
        p.columns = 1 + whole;
        given += whole;
        remainders.push_back(std::make_pair(share - static_cast<double>(whole), &p));
    }
    std::stable_sort(remainders.begin(), remainders.end(),
                     [](const std::pair<double, Piece*>& a, const std::pair<double, Piece*>& b) {
                         return a.first > b.first;
                     });
    for (size_t i = 0; given < spare && i < remainders.size(); ++i, ++given)
        ++remainders[i].second->columns;
}

std::string drawStrip(const std::vector<Piece>& pieces)
{
    std::string strip;
    for (const Piece& p : pieces) {
        if (p.cut)
            strip += CUT_MARK;
        else
            strip.append(p.columns, p.isGap ? '.' : regionLetter(p.region));
    }
    return strip;
}

std::string describeRegion(const Region& r)
{
    if (r.blockCount == 1)
        return "block " + std::to_string(r.firstBlock);
    std::ostringstream text;
    text << "blocks " << r.firstBlock << "-" << r.lastBlock << " (" << r.blockCount << " blocks, "
         << humanSize(r.dataBytes) << " of data)";
    return text.str();
}

std::string rangeText(uint64_t start, uint64_t end)
{
    return hexAddress(start) + "-" + hexAddress(end - 1);
}


} // namespace

std::string drawMemoryMap(std::vector<MapBlock> blocks, const MapOptions& options)
{
    // Empty blocks hold no address range; they are counted but not drawn.
    const size_t blockCount = blocks.size();
    blocks.erase(std::remove_if(blocks.begin(), blocks.end(), [](const MapBlock& b) { return b.size == 0; }),
                 blocks.end());
    std::ostringstream out;
    if (blocks.empty()) {
        out << "no data (" << blockCount << (blockCount == 1 ? " block" : " blocks") << ", 0 bytes)\n";
        return out.str();
    }
    std::sort(blocks.begin(), blocks.end(),
              [](const MapBlock& a, const MapBlock& b) { return a.start < b.start; });

    const size_t maxRegions = std::max<size_t>(1, std::min<size_t>(options.maxRegions, 26));
    const std::vector<Region> regions = groupIntoRegions(blocks, maxRegions);
    std::vector<Piece> pieces = piecesOf(regions);
    cutHugeGaps(pieces);
    assignColumns(pieces, options.width);
    const std::string strip = drawStrip(pieces);

    const uint64_t spanStart = regions.front().start;
    const uint64_t spanEnd = regions.back().end;
    const std::string left = hexAddress(spanStart);
    const std::string right = hexAddress(spanEnd - 1);
    const size_t labelGap = strip.size() > left.size() + right.size() ? strip.size() - left.size() - right.size() : 1;
    out << left << std::string(labelGap, ' ') << right << "\n";
    out << strip << "\n\n";

    const std::vector<Piece>::size_type n = pieces.size();
    for (std::vector<Piece>::size_type i = 0; i < n; ++i) {
        const Piece& p = pieces[i];
        if (p.isGap) {
            const Region& before = regions[pieces[i - 1].region];
            const Region& after = regions[pieces[i + 1].region];
            out << "     " << rangeText(before.end, after.start) << "  " << padLeft(humanSize(p.size), 10)
                << "  gap" << (p.cut ? " (not to scale)" : "") << "\n";
        } else {
            const Region& r = regions[p.region];
            out << "  " << regionLetter(p.region) << "  " << rangeText(r.start, r.end) << "  "
                << padLeft(humanSize(r.end - r.start), 10) << "  " << describeRegion(r) << "\n";
        }
    }
    return out.str();
}
