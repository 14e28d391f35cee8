/* Reads a firmware image from standard input (Intel HEX, S-records or any
 * format the library tells from the content) and prints its segments and
 * the CRC-32 of its data, through the C API.
 *
 *   hex_segments < firmware.hex */
#include <hexblocks/hexblocks.h>

#include <inttypes.h>
#include <stdio.h>

int main(void)
{
    hb_image_t* image = NULL;
    hb_checksum_t* crc = NULL;
    hb_start_address_t start;
    hb_error_t error;
    size_t i;
    if (hb_imageCreate(&image, &error) != HB_OK || hb_readFd(image, 0, NULL, &error) != HB_OK ||
        hb_checksumCreate(&crc, "crc32", 0xFF, &error) != HB_OK) {
        if (error.line > 0)
            fprintf(stderr, "stdin:%zu: %s\n", error.line, error.reason);
        else
            fprintf(stderr, "stdin: %s\n", error.reason);
        hb_imageDestroy(image);
        return 1;
    }
    for (i = 0; i < hb_imageSegmentCount(image); ++i) {
        hb_segment_t segment;
        hb_imageSegment(image, i, &segment, NULL);
        printf("0x%08" PRIX32 "-0x%08" PRIX32 "  %zu bytes\n", segment.address,
               (uint32_t)(segment.address + (segment.size - 1)), segment.size);
        hb_checksumUpdate(crc, segment.data, segment.size);
    }
    if (hb_imageStartAddress(image, &start))
        printf("start address 0x%08" PRIX32 " (type %u)\n", start.value, (unsigned)start.type);
    printf("%zu segments, %" PRIu64 " bytes, CRC-32 of the data 0x%08" PRIX32 "\n", hb_imageSegmentCount(image),
           hb_imageDataSize(image), hb_checksumValue(crc));
    hb_checksumDestroy(crc);
    hb_imageDestroy(image);
    return 0;
}
