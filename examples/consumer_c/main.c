/* Reads a firmware file with the installed hexblocks library's C API and
 * prints its segments and the CRC-32 of its span (gaps as 0xFF). */
#include <hexblocks/hexblocks.h>

#include <inttypes.h>
#include <stdio.h>

int main(int argc, char** argv)
{
    hb_image_t* image = NULL;
    hb_checksum_t* crc = NULL;
    hb_error_t error;
    hb_range_t span;
    size_t i;
    if (argc != 2) {
        fprintf(stderr, "usage: %s FILE\n", argv[0]);
        return 2;
    }
    if (hb_imageCreate(&image, &error) != HB_OK || hb_readFile(image, argv[1], NULL, &error) != HB_OK ||
        hb_checksumCreate(&crc, "crc32", 0xFF, &error) != HB_OK) {
        fprintf(stderr, "%s:%zu: %s\n", argv[1], error.line, error.reason);
        hb_imageDestroy(image);
        return 1;
    }
    for (i = 0; i < hb_imageSegmentCount(image); ++i) {
        hb_segment_t segment;
        hb_imageSegment(image, i, &segment, NULL);
        printf("segment %zu: 0x%08" PRIX32 ", %zu bytes\n", i, segment.address, segment.size);
    }
    span.start = hb_imageLowestAddress(image);
    span.end = span.start + hb_imageSpan(image);
    hb_checksumUpdateImage(crc, image, span, 0xFF);
    printf("image: %zu segments, %" PRIu64 " bytes in %" PRIu64 "\ncrc32: 0x%08" PRIX32 "\n",
           hb_imageSegmentCount(image), hb_imageDataSize(image), hb_imageSpan(image), hb_checksumValue(crc));
    hb_checksumDestroy(crc);
    hb_imageDestroy(image);
    return 0;
}
