#include "memory_map.h"

#include "text_format.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <sstream>

namespace hexblocks::cli {

namespace {

// A run of one or more neighbouring blocks drawn as one letter.
struct region_t {
    uint64_t start;
    uint64_t end;       // one past the last byte
    uint64_t dataBytes; // bytes held by the blocks
    size_t firstBlock;  // index of the first and last block in the image
    size_t lastBlock;
    size_t blockCount;
};

// One piece of the strip: a region or the gap after it.
struct piece_t {
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
void absorb(region_t& r, const region_t& next)
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
std::vector<region_t> groupIntoRegions(const std::vector<map_block_t>& blocks, size_t maxRegions)
{
    // First, touching or overlapping blocks are one region.
    std::vector<region_t> runs;
    for (const map_block_t& b : blocks) {
        const region_t single{b.start, b.start + b.size, b.size, b.index, b.index, 1};
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

    std::vector<region_t> regions;
    regions.push_back(runs[0]);
    for (size_t i = 0; i < gapCount; ++i) {
        if (separator[i])
            regions.push_back(runs[i + 1]);
        else
            absorb(regions.back(), runs[i + 1]);
    }
    return regions;
}

std::vector<piece_t> piecesOf(const std::vector<region_t>& regions)
{
    std::vector<piece_t> pieces;
    for (size_t i = 0; i < regions.size(); ++i) {
        if (i > 0)
            pieces.push_back(piece_t{true, regions[i].start - regions[i - 1].end, 0, false, 0});
        pieces.push_back(piece_t{false, regions[i].end - regions[i].start, i, false, 0});
    }
    return pieces;
}

// Gaps that would swallow the picture are cut out of the scale: while the
// largest gap is more than four times everything else still drawn to scale,
// it is drawn as a fixed break mark instead.
void cutHugeGaps(std::vector<piece_t>& pieces)
{
    for (;;) {
        uint64_t scaled = 0;
        piece_t* largest = nullptr;
        for (piece_t& p : pieces) {
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
void assignColumns(std::vector<piece_t>& pieces, size_t width)
{
    uint64_t scaled = 0;
    size_t fixed = 0;
    size_t scaledPieces = 0;
    for (const piece_t& p : pieces) {
        if (p.cut) {
            fixed += CUT_WIDTH;
        } else {
            scaled += p.size;
            ++scaledPieces;
        }
    }
    const size_t available = width > fixed + scaledPieces ? width - fixed : scaledPieces;
    const size_t spare = available - scaledPieces;

    std::vector<std::pair<double, piece_t*>> remainders;
    size_t given = 0;
    for (piece_t& p : pieces) {
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
                     [](const std::pair<double, piece_t*>& a, const std::pair<double, piece_t*>& b) {
                         return a.first > b.first;
                     });
    for (size_t i = 0; given < spare && i < remainders.size(); ++i, ++given)
        ++remainders[i].second->columns;
}

std::string drawStrip(const std::vector<piece_t>& pieces)
{
    std::string strip;
    for (const piece_t& p : pieces) {
        if (p.cut)
            strip += CUT_MARK;
        else
            strip.append(p.columns, p.isGap ? '.' : regionLetter(p.region));
    }
    return strip;
}

std::string describeRegion(const region_t& r)
{
    if (r.blockCount == 1)
        return "block " + std::to_string(r.firstBlock);
    std::ostringstream text;
    text << "blocks " << r.firstBlock << "-" << r.lastBlock << " (" << r.blockCount << " blocks, "
         << humanSize(r.dataBytes) << " of data)";
    return text.str();
}

// The regions and the pieces of the strip, with their columns, for blocks
// that hold data.
struct layout_t {
    std::vector<region_t> regions;
    std::vector<piece_t> pieces;
};

// Empty blocks hold no address range; they are left out.
std::vector<map_block_t> blocksWithData(std::vector<map_block_t> blocks)
{
    blocks.erase(std::remove_if(blocks.begin(), blocks.end(), [](const map_block_t& b) { return b.size == 0; }),
                 blocks.end());
    std::sort(blocks.begin(), blocks.end(),
              [](const map_block_t& a, const map_block_t& b) { return a.start < b.start; });
    return blocks;
}

layout_t layOut(const std::vector<map_block_t>& blocks, size_t maxRegions, size_t width)
{
    layout_t layout;
    layout.regions = groupIntoRegions(blocks, std::max<size_t>(1, std::min<size_t>(maxRegions, 26)));
    layout.pieces = piecesOf(layout.regions);
    cutHugeGaps(layout.pieces);
    assignColumns(layout.pieces, width);
    return layout;
}

// The addresses [first, second) a piece stands for.
std::pair<uint64_t, uint64_t> addressesOf(const layout_t& layout, size_t piece)
{
    const piece_t& p = layout.pieces[piece];
    if (!p.isGap)
        return {layout.regions[p.region].start, layout.regions[p.region].end};
    return {layout.regions[layout.pieces[piece - 1].region].end, layout.regions[layout.pieces[piece + 1].region].start};
}

std::string noData(size_t blockCount)
{
    return "no data (" + std::to_string(blockCount) + (blockCount == 1 ? " block" : " blocks") + ", 0 bytes)";
}

const char* const SVG_COLOURS[] = {"#4e79a7", "#f28e2b", "#59a14f", "#e15759", "#76b7b2", "#edc948", "#b07aa1", "#9c755f"};

} // namespace

std::string drawMemoryMap(std::vector<map_block_t> blocks, const map_options_t& options)
{
    const size_t blockCount = blocks.size();
    blocks = blocksWithData(std::move(blocks));
    std::ostringstream out;
    if (blocks.empty()) {
        out << noData(blockCount) << "\n";
        return out.str();
    }
    const layout_t layout = layOut(blocks, options.maxRegions, options.width);
    const std::vector<region_t>& regions = layout.regions;
    const std::vector<piece_t>& pieces = layout.pieces;
    const std::string strip = drawStrip(pieces);

    const uint64_t spanStart = regions.front().start;
    const uint64_t spanEnd = regions.back().end;
    const std::string left = hexAddress(spanStart);
    const std::string right = hexAddress(spanEnd - 1);
    const size_t labelGap = strip.size() > left.size() + right.size() ? strip.size() - left.size() - right.size() : 1;
    out << left << std::string(labelGap, ' ') << right << "\n";
    out << strip << "\n\n";

    const std::vector<piece_t>::size_type n = pieces.size();
    for (std::vector<piece_t>::size_type i = 0; i < n; ++i) {
        const piece_t& p = pieces[i];
        if (p.isGap) {
            const region_t& before = regions[pieces[i - 1].region];
            const region_t& after = regions[pieces[i + 1].region];
            out << "     " << addressRange(before.end, after.start) << "  " << padLeft(humanSize(p.size), 10)
                << "  gap" << (p.cut ? " (not to scale)" : "") << "\n";
        } else {
            const region_t& r = regions[p.region];
            out << "  " << regionLetter(p.region) << "  " << addressRange(r.start, r.end) << "  "
                << padLeft(humanSize(r.end - r.start), 10) << "  " << describeRegion(r) << "\n";
        }
    }
    return out.str();
}

std::string drawMemoryMapSvg(std::vector<map_block_t> blocks, const std::string& title, const map_start_t* start,
                             const map_options_t& options)
{
    const size_t blockCount = blocks.size();
    blocks = blocksWithData(std::move(blocks));
    const int width = 800, margin = 20, stripTop = 64, stripHeight = 40, rowHeight = 20;
    const size_t columns = 152; // of 5 pixels each
    const double columnWidth = static_cast<double>(width - 2 * margin) / columns;
    layout_t layout;
    if (!blocks.empty())
        layout = layOut(blocks, options.maxRegions, columns);
    const size_t rows = layout.pieces.size() + (start != nullptr ? 1 : 0) + (blocks.empty() ? 1 : 0);
    const int legendTop = stripTop + stripHeight + 46;
    const int height = legendTop + static_cast<int>(rows) * rowHeight + margin;

    std::ostringstream svg;
    svg << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\"" << height
        << "\" viewBox=\"0 0 " << width << " " << height << "\" font-family=\"monospace\" font-size=\"12\">\n"
        << "  <rect width=\"" << width << "\" height=\"" << height << "\" fill=\"#ffffff\"/>\n"
        << "  <text x=\"" << margin << "\" y=\"24\" font-size=\"14\" font-weight=\"bold\">" << xmlText(title)
        << "</text>\n";
    int row = 0;
    auto legendRow = [&](const std::string& colour, const std::string& text) {
        const int y = legendTop + row++ * rowHeight;
        if (!colour.empty())
            svg << "  <rect x=\"" << margin << "\" y=\"" << y - 11 << "\" width=\"12\" height=\"12\" fill=\"" << colour
                << "\"/>\n";
        svg << "  <text x=\"" << margin + 20 << "\" y=\"" << y << "\" xml:space=\"preserve\">" << xmlText(text)
            << "</text>\n";
    };
    if (blocks.empty())
        legendRow("", noData(blockCount));

    // The strip: regions to scale, gaps in grey, cut gaps as a break mark.
    double x = margin;
    std::vector<double> left(layout.pieces.size());
    for (size_t i = 0; i < layout.pieces.size(); ++i) {
        const piece_t& p = layout.pieces[i];
        const double w = static_cast<double>(p.columns) * columnWidth;
        left[i] = x;
        const std::string fill = p.isGap ? (p.cut ? "#ffffff" : "#e8e8e8") : SVG_COLOURS[p.region % 8];
        svg << "  <rect x=\"" << x << "\" y=\"" << stripTop << "\" width=\"" << w << "\" height=\"" << stripHeight
            << "\" fill=\"" << fill << "\" stroke=\"#555555\" stroke-width=\"0.5\"/>\n";
        const std::string label = p.cut ? "//" : p.isGap ? "" : std::string(1, regionLetter(p.region));
        if (!label.empty() && w >= 10)
            svg << "  <text x=\"" << x + w / 2 << "\" y=\"" << stripTop + stripHeight / 2 + 4
                << "\" text-anchor=\"middle\" font-weight=\"bold\"" << (p.isGap ? "" : " fill=\"#ffffff\"") << ">"
                << xmlText(label) << "</text>\n";
        x += w;
    }
    if (!blocks.empty()) {
        const std::pair<uint64_t, uint64_t> first = addressesOf(layout, 0);
        const std::pair<uint64_t, uint64_t> last = addressesOf(layout, layout.pieces.size() - 1);
        svg << "  <text x=\"" << margin << "\" y=\"" << stripTop + stripHeight + 18 << "\">"
            << hexAddress(first.first) << "</text>\n"
            << "  <text x=\"" << width - margin << "\" y=\"" << stripTop + stripHeight + 18
            << "\" text-anchor=\"end\">" << hexAddress(last.second - 1) << "</text>\n";
    }

    // The legend: every region and gap with its addresses and size.
    for (size_t i = 0; i < layout.pieces.size(); ++i) {
        const piece_t& p = layout.pieces[i];
        const std::pair<uint64_t, uint64_t> range = addressesOf(layout, i);
        if (p.isGap) {
            legendRow("", "   " + addressRange(range.first, range.second) + "  " + padLeft(humanSize(p.size), 10) +
                              "  gap" + (p.cut ? " (not to scale)" : ""));
        } else {
            const region_t& r = layout.regions[p.region];
            legendRow(SVG_COLOURS[p.region % 8], std::string(1, regionLetter(p.region)) + "  " +
                                                     addressRange(r.start, r.end) + "  " +
                                                     padLeft(humanSize(r.end - r.start), 10) + "  " + describeRegion(r));
        }
    }

    // The start address: a marker over the strip where it falls, and a line
    // in the legend.
    if (start != nullptr) {
        for (size_t i = 0; i < layout.pieces.size(); ++i) {
            const std::pair<uint64_t, uint64_t> range = addressesOf(layout, i);
            if (start->address < range.first || start->address >= range.second)
                continue;
            const double w = static_cast<double>(layout.pieces[i].columns) * columnWidth;
            const double at = left[i] + w * static_cast<double>(start->address - range.first) /
                                            static_cast<double>(range.second - range.first);
            svg << "  <path d=\"M " << at - 6 << " " << stripTop - 12 << " L " << at + 6 << " " << stripTop - 12
                << " L " << at << " " << stripTop - 1 << " Z\" fill=\"#d62728\"/>\n"
                << "  <text x=\"" << at << "\" y=\"" << stripTop - 16 << "\" text-anchor=\""
                << (at < width / 4 ? "start" : at > 3 * width / 4 ? "end" : "middle") << "\" fill=\"#d62728\">start "
                << hexAddress(start->address) << "</text>\n";
        }
        legendRow("#d62728", "start address: " + start->text);
    }
    svg << "</svg>\n";
    return svg.str();
}

} // namespace hexblocks::cli
