// Images for C: making and destroying them, their segments and
// addresses, merging, the edits, verify and diff.
#include "c_support.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

using namespace hexblocks;
using namespace hexblocks::c_api;

namespace {

static_assert(static_cast<int>(difference_t::kind_t::ONLY_IMAGE) == HB_ONLY_IMAGE &&
                  static_cast<int>(difference_t::kind_t::ONLY_OTHER) == HB_ONLY_OTHER &&
                  static_cast<int>(difference_t::kind_t::DIFFER) == HB_DIFFER,
              "the kinds of difference");

// Fills the C verify result and the caller's mismatches from the library's.
hb_status_t reportVerify(const verify_result_t& verified, hb_verify_result_t* result, hb_mismatch_t* first,
                         size_t capacity, hb_error_t* error)
{
    if (result != nullptr) {
        result->compared = verified.compared;
        result->mismatches = verified.mismatches;
        result->notCovered = verified.notCovered;
        result->firstNotCovered = verified.firstNotCovered;
        result->listed = std::min(capacity, verified.first.size());
    }
    for (size_t i = 0; i < capacity && i < verified.first.size(); ++i)
        first[i] = hb_mismatch_t{verified.first[i].address, verified.first[i].expected, verified.first[i].found};
    return report(error, verified);
}

bool mergeOptionsOf(const hb_merge_options_t* options, merge_options_t& out, hb_error_t* error)
{
    out = merge_options_t();
    if (options == nullptr)
        return true;
    if (options->size == 0) {
        uninitialised(error, "hb_mergeOptionsInit");
        return false;
    }
    if (HB_REACHES(options, hb_merge_options_t, overlap)) {
        const std::optional<int64_t> overlap =
            enumeratorOf(options->overlap, HB_OVERLAP_ERROR, HB_OVERLAP_IDENTICAL, "overlap policy", error);
        if (!overlap)
            return false;
        out.overlap = static_cast<overlap_policy_t>(*overlap);
    }
    if (HB_REACHES(options, hb_merge_options_t, start)) {
        const std::optional<int64_t> start =
            enumeratorOf(options->start, HB_START_ERROR, HB_START_DROP, "start address policy", error);
        if (!start)
            return false;
        out.start = static_cast<start_policy_t>(*start);
    }
    return true;
}

} // namespace

extern "C" {

hb_status_t hb_imageCreate(hb_image_t** image, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        *image = new hb_image_t();
        return succeed(error);
    });
}

hb_status_t hb_imageClone(const hb_image_t* image, hb_image_t** copy, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr || copy == nullptr)
            return nullArgument(error, image == nullptr ? "image" : "copy");
        *copy = new hb_image_t(*image);
        return succeed(error);
    });
}

void hb_imageDestroy(hb_image_t* image)
{
    delete image;
}

size_t hb_imageSegmentCount(const hb_image_t* image)
{
    return image->image.segments().size();
}

hb_status_t hb_imageSegment(const hb_image_t* image, size_t index, hb_segment_t* segment, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        const std::vector<segment_t>& segments = image->image.segments();
        if (index >= segments.size())
            return badArgument(error, "segment " + std::to_string(index) + " of an image of " +
                                          std::to_string(segments.size()));
        if (segment != nullptr)
            *segment = hb_segment_t{segments[index].address, segments[index].bytes.size(), segments[index].bytes.data()};
        return succeed(error);
    });
}

int hb_imageEmpty(const hb_image_t* image)
{
    return image->image.empty();
}

uint32_t hb_imageLowestAddress(const hb_image_t* image)
{
    return image->image.lowestAddress();
}

uint32_t hb_imageHighestAddress(const hb_image_t* image)
{
    return image->image.highestAddress();
}

uint64_t hb_imageSpan(const hb_image_t* image)
{
    return image->image.span();
}

uint64_t hb_imageDataSize(const hb_image_t* image)
{
    return image->image.dataSize();
}

int hb_imageHasDataAt(const hb_image_t* image, uint32_t address)
{
    return image->image.hasDataAt(address);
}

void hb_imageCopyRange(const hb_image_t* image, uint32_t address, size_t size, uint8_t fill, void* out)
{
    image->image.copyRange(address, size, fill, static_cast<uint8_t*>(out));
}

int hb_imageStartAddress(const hb_image_t* image, hb_start_address_t* start)
{
    if (!image->image.hasStartAddress())
        return 0;
    if (start != nullptr)
        *start = hb_start_address_t{image->image.startAddress().type, image->image.startAddress().value};
    return 1;
}

hb_status_t hb_imageSetStartAddress(hb_image_t* image, const hb_start_address_t* start, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        if (start == nullptr)
            return nullArgument(error, "start");
        return report(error, image->image.setStartAddress(start_address_t{start->type, start->value}));
    });
}

void hb_imageClearStartAddress(hb_image_t* image)
{
    image->image.clearStartAddress();
}

const uint8_t* hb_imageHeader(const hb_image_t* image, size_t* size)
{
    const std::string& header = image->image.header();
    if (size != nullptr)
        *size = header.size();
    return reinterpret_cast<const uint8_t*>(header.data());
}

hb_status_t hb_imageSetHeader(hb_image_t* image, const void* header, size_t size, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        if (header == nullptr && size > 0)
            return nullArgument(error, "header");
        return report(error, image->image.setHeader(std::string(static_cast<const char*>(header), size)));
    });
}

hb_status_t hb_imageWrite(hb_image_t* image, uint32_t address, const void* data, size_t size, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        if (data == nullptr && size > 0)
            return nullArgument(error, "data");
        return report(error, image->image.write(address, static_cast<const uint8_t*>(data), size));
    });
}

void hb_imageClear(hb_image_t* image)
{
    image->image.clear();
}

hb_status_t hb_imageMerge(hb_image_t* image, const hb_image_t* other, const hb_merge_options_t* options,
                          hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        if (other == nullptr)
            return nullArgument(error, "other");
        merge_options_t merge;
        if (!mergeOptionsOf(options, merge, error))
            return HB_BAD_ARGUMENT;
        return report(error, image->image.merge(other->image, merge));
    });
}

hb_status_t hb_imageOffset(hb_image_t* image, int64_t delta, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        return report(error, image->image.offset(delta));
    });
}

hb_status_t hb_imageCrop(hb_image_t* image, const hb_range_t* ranges, size_t count, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        if (ranges == nullptr && count > 0)
            return nullArgument(error, "ranges");
        std::vector<range_t> kept;
        kept.reserve(count);
        for (size_t i = 0; i < count; ++i)
            kept.push_back(rangeOf(ranges[i]));
        image->image.crop(kept);
        return succeed(error);
    });
}

hb_status_t hb_imageExclude(hb_image_t* image, hb_range_t range, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        image->image.exclude(rangeOf(range));
        return succeed(error);
    });
}

hb_status_t hb_imageFillRange(hb_image_t* image, hb_range_t range, uint8_t fill, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        image->image.fillRange(rangeOf(range), fill);
        return succeed(error);
    });
}

hb_status_t hb_imageSwapBytes(hb_image_t* image, unsigned wordSize, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        return report(error, image->image.swapBytes(wordSize));
    });
}

hb_status_t hb_imageVerify(const hb_image_t* image, const void* dump, size_t size, uint32_t address,
                           hb_verify_result_t* result, hb_mismatch_t* first, size_t capacity, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        if (dump == nullptr && size > 0)
            return nullArgument(error, "dump");
        if (first == nullptr && capacity > 0)
            return nullArgument(error, "first");
        return reportVerify(image->image.verify(dump, size, address, capacity), result, first, capacity, error);
    });
}

hb_status_t hb_imageVerifyFile(const hb_image_t* image, const char* path, uint32_t address,
                               hb_verify_result_t* result, hb_mismatch_t* first, size_t capacity, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        if (path == nullptr)
            return nullArgument(error, "path");
        if (first == nullptr && capacity > 0)
            return nullArgument(error, "first");
        return reportVerify(image->image.verifyFile(path, address, capacity), result, first, capacity, error);
    });
}

hb_status_t hb_imageDiff(const hb_image_t* image, const hb_image_t* other, const hb_diff_options_t* options,
                         hb_difference_t** ranges, size_t* count, int* startDiffers, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        if (other == nullptr || ranges == nullptr || count == nullptr)
            return nullArgument(error, other == nullptr ? "other" : ranges == nullptr ? "ranges" : "count");
        diff_options_t diff;
        if (options != nullptr) {
            if (options->size == 0)
                return uninitialised(error, "hb_diffOptionsInit");
            if (HB_REACHES(options, hb_diff_options_t, join))
                diff.join = options->join;
        }
        const diff_result_t found = image->image.diff(other->image, diff);
        hb_difference_t* list = nullptr;
        if (!found.ranges.empty()) {
            list = static_cast<hb_difference_t*>(std::malloc(found.ranges.size() * sizeof(hb_difference_t)));
            if (list == nullptr)
                throw std::bad_alloc();
            for (size_t i = 0; i < found.ranges.size(); ++i) {
                const difference_t& d = found.ranges[i];
                list[i] = hb_difference_t{static_cast<hb_difference_kind_t>(d.kind), d.start, d.end, d.bytes};
            }
        }
        *ranges = list;
        *count = found.ranges.size();
        if (startDiffers != nullptr)
            *startDiffers = found.startDiffers;
        return succeed(error);
    });
}

} // extern "C"
