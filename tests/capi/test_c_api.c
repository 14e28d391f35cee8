/* The C API from C99: every function, every status code that can be
 * provoked, with exact values and reasons.
 *
 *   test_c_api [TEST]      runs every test, or the one named */
#define _POSIX_C_SOURCE 200809L

#include <hexblocks/hexblocks.h>

#include "support/c_check.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
#define UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define UNDER_ASAN 1
#endif
#endif

/* A record pair of four bytes at 0 and the end-of-file record. */
static const char FOUR_BYTES[] = ":0400000001020304F2\n:00000001FF\n";

static char work[256];

/* The path of a file in the work folder, valid for the next three calls. */
static const char* pathOf(const char* name)
{
    static char paths[4][512];
    static int next;
    char* path = paths[next++ % 4];
    snprintf(path, sizeof paths[0], "%s/%s", work, name);
    return path;
}

static void writeText(const char* name, const char* text)
{
    FILE* f = fopen(pathOf(name), "wb");
    CHECK(f != NULL);
    if (f == NULL)
        return;
    fputs(text, f);
    fclose(f);
}

/* The whole file, NUL-terminated, in memory the caller frees; its size
 * in *size. */
static char* readWhole(const char* path, size_t* size)
{
    FILE* f = fopen(path, "rb");
    char* text;
    long length;
    if (f == NULL)
        return NULL;
    fseek(f, 0, SEEK_END);
    length = ftell(f);
    fseek(f, 0, SEEK_SET);
    text = malloc((size_t)length + 1);
    if (text != NULL && fread(text, 1, (size_t)length, f) == (size_t)length) {
        text[length] = '\0';
        *size = (size_t)length;
    }
    fclose(f);
    return text;
}

static hb_image_t* imageOf(const char* text)
{
    hb_image_t* image = NULL;
    hb_error_t error;
    CHECK_EQ(hb_imageCreate(&image, &error), HB_OK);
    CHECK_EQ(hb_readMemory(image, text, strlen(text), NULL, &error), HB_OK);
    return image;
}

/* An image with bytes at the given address. */
static hb_image_t* imageWith(uint32_t address, const void* bytes, size_t size)
{
    hb_image_t* image = NULL;
    CHECK_EQ(hb_imageCreate(&image, NULL), HB_OK);
    CHECK_EQ(hb_imageWrite(image, address, bytes, size, NULL), HB_OK);
    return image;
}

/* --- Errors ------------------------------------------------------------- */

static void statusNamesAndVersion(void)
{
    static const char* const NAMES[] = {"OK",        "BAD_ARGUMENT",   "CANNOT_OPEN", "CANNOT_READ",  "CANNOT_WRITE",
                                        "SYNTAX",    "CHECKSUM",       "UNSUPPORTED", "UNKNOWN_FORMAT", "OVERLAP",
                                        "OUT_OF_RANGE", "TOO_LARGE", "OUT_OF_MEMORY", "MISMATCH",   "INTERNAL"};
    int status;
    for (status = HB_OK; status <= HB_INTERNAL; ++status)
        CHECK_STR(hb_statusName((hb_status_t)status), NAMES[status]);
    CHECK_STR(hb_statusName((hb_status_t)15), "UNKNOWN");
    CHECK_STR(hb_statusName((hb_status_t)-1), "UNKNOWN");
    CHECK_STR(hb_version(), HEXBLOCKS_TEST_VERSION);
    hb_free(NULL);
}

static void anErrorIsFilledOnEveryCallAndNullIsAccepted(void)
{
    hb_image_t* image = NULL;
    hb_error_t error;
    memset(&error, 0x55, sizeof error);
    CHECK_EQ(hb_imageCreate(&image, &error), HB_OK);
    CHECK_EQ(error.status, HB_OK);
    CHECK_STR(error.reason, "");
    CHECK_EQ(error.line, 0);
    CHECK_EQ(error.hasAddress, 0);
    CHECK_EQ(hb_readMemory(image, ":0400000001020304F3\n", 20, NULL, &error), HB_CHECKSUM);
    CHECK_EQ(error.line, 1);
    CHECK_STR(error.reason, "checksum error");
    CHECK_EQ(hb_readMemory(image, FOUR_BYTES, strlen(FOUR_BYTES), NULL, &error), HB_OK);
    CHECK_EQ(error.line, 0);
    CHECK_STR(error.reason, "");
    CHECK_EQ(hb_readMemory(image, ":0400000001020304F3\n", 20, NULL, NULL), HB_CHECKSUM);
    CHECK_EQ(hb_imageCreate(NULL, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "image is NULL");
    hb_imageDestroy(image);
    hb_imageDestroy(NULL);
    hb_checksumDestroy(NULL);
    hb_flashPlanDestroy(NULL);
    hb_pageWalkerDestroy(NULL);
}

static void aLongReasonIsCutAtACharacterBoundary(void)
{
    /* A name of 600 bytes of two-byte characters: the reason that quotes it
     * is cut to fit, never inside a character. */
    char name[700];
    hb_format_t format;
    hb_error_t error;
    size_t i, length;
    for (i = 0; i + 2 < 600; i += 2) {
        name[i] = (char)0xC3;
        name[i + 1] = (char)0xA9; /* é */
    }
    name[i] = '\0';
    CHECK_EQ(hb_formatByName(name, &format, &error), HB_BAD_ARGUMENT);
    length = strlen(error.reason);
    CHECK_EQ(length, HB_REASON_SIZE - 2); /* "unknown format '" is 16 bytes: an even cut falls at 510 */
    CHECK_EQ((unsigned char)error.reason[length - 1], 0xA9);
    CHECK(strncmp(error.reason, "unknown format '\xC3\xA9", 18) == 0);
    name[5] = '\0';
    CHECK_EQ(hb_formatByName(name + 1, &format, &error), HB_BAD_ARGUMENT);
    length = strlen(error.reason);
    CHECK(error.reason[length - 1] == 'n'); /* a whole reason: "... ihex16, bin" */
}

/* --- Images ------------------------------------------------------------- */

static void segmentsAddressesAndBytes(void)
{
    const uint8_t a[3] = {1, 2, 3}, b[2] = {9, 8};
    hb_image_t* image = imageWith(0x08000000, a, 3);
    hb_segment_t segment;
    hb_error_t error;
    uint8_t out[8];
    CHECK_EQ(hb_imageWrite(image, 0xFFFFFFFE, b, 2, &error), HB_OK);
    CHECK_EQ(hb_imageSegmentCount(image), 2);
    CHECK_EQ(hb_imageSegment(image, 0, &segment, &error), HB_OK);
    CHECK_EQ(segment.address, 0x08000000);
    CHECK_EQ(segment.size, 3);
    CHECK_BYTES(segment.data, a, 3);
    CHECK_EQ(hb_imageSegment(image, 1, &segment, NULL), HB_OK);
    CHECK_EQ(segment.address, 0xFFFFFFFE);
    CHECK_EQ(hb_imageSegment(image, 2, &segment, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "segment 2 of an image of 2");
    CHECK_EQ(hb_imageEmpty(image), 0);
    CHECK_EQ(hb_imageLowestAddress(image), 0x08000000);
    CHECK_EQ(hb_imageHighestAddress(image), 0xFFFFFFFF);
    CHECK_EQ(hb_imageSpan(image), 0xF8000000ull);
    CHECK_EQ(hb_imageDataSize(image), 5);
    CHECK_EQ(hb_imageHasDataAt(image, 0x08000002), 1);
    CHECK_EQ(hb_imageHasDataAt(image, 0x08000003), 0);
    hb_imageCopyRange(image, 0xFFFFFFFC, 8, 0xEE, out);
    CHECK_BYTES(out, "\xEE\xEE\x09\x08\xEE\xEE\xEE\xEE", 8);
    CHECK_EQ(hb_imageWrite(image, 0xFFFFFFFF, b, 2, &error), HB_OUT_OF_RANGE);
    CHECK_STR(error.reason, "the bytes would run past address 0xFFFFFFFF");
    CHECK_EQ(hb_imageWrite(image, 0, NULL, 1, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "data is NULL");
    CHECK_EQ(hb_imageWrite(image, 0, NULL, 0, &error), HB_OK);
    hb_imageClear(image);
    CHECK_EQ(hb_imageEmpty(image), 1);
    CHECK_EQ(hb_imageSegmentCount(image), 0);
    CHECK_EQ(hb_imageLowestAddress(image), 0);
    CHECK_EQ(hb_imageSpan(image), 0);
    hb_imageDestroy(image);
}

static void startAddressHeaderAndClone(void)
{
    hb_image_t* image = NULL;
    hb_image_t* copy = NULL;
    hb_start_address_t start = {5, 0x08000131};
    hb_error_t error;
    size_t size = 99;
    uint8_t header[253];
    CHECK_EQ(hb_imageCreate(&image, NULL), HB_OK);
    CHECK_EQ(hb_imageStartAddress(image, &start), 0);
    start.type = 5;
    start.value = 0x08000131;
    CHECK_EQ(hb_imageSetStartAddress(image, &start, &error), HB_OK);
    start.type = 4;
    CHECK_EQ(hb_imageSetStartAddress(image, &start, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "a start address has type 3 or 5, not 4");
    CHECK_EQ(hb_imageSetStartAddress(image, NULL, &error), HB_BAD_ARGUMENT);
    CHECK_EQ(hb_imageSetHeader(image, "v1.2", 4, &error), HB_OK);
    memset(header, 'x', sizeof header);
    CHECK_EQ(hb_imageSetHeader(image, header, 253, &error), HB_TOO_LARGE);
    CHECK_STR(error.reason, "a header holds at most 252 bytes, not 253");
    CHECK_EQ(hb_imageClone(image, &copy, &error), HB_OK);
    CHECK_EQ(hb_imageStartAddress(copy, &start), 1);
    CHECK_EQ(start.type, 5);
    CHECK_EQ(start.value, 0x08000131);
    CHECK_BYTES(hb_imageHeader(copy, &size), "v1.2", 4);
    CHECK_EQ(size, 4);
    hb_imageClearStartAddress(copy);
    CHECK_EQ(hb_imageStartAddress(copy, NULL), 0);
    CHECK_EQ(hb_imageStartAddress(image, NULL), 1);
    CHECK_EQ(hb_imageClone(image, NULL, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "copy is NULL");
    hb_imageDestroy(copy);
    hb_imageDestroy(image);
}

/* --- Merging and editing ------------------------------------------------ */

static void mergeWithThePolicies(void)
{
    const uint8_t a[4] = {1, 2, 3, 4}, b[4] = {1, 2, 7, 4};
    hb_image_t* image = imageWith(0x100, a, 4);
    hb_image_t* other = imageWith(0x102, b + 2, 2);
    hb_merge_options_t options;
    hb_error_t error;
    uint8_t out[4];
    CHECK_EQ(hb_imageMerge(image, other, NULL, &error), HB_OVERLAP);
    CHECK_EQ(error.hasAddress, 1);
    CHECK_EQ(error.address, 0x102);
    hb_mergeOptionsInit(&options);
    CHECK_EQ(options.size, sizeof options);
    CHECK_EQ(options.overlap, HB_OVERLAP_ERROR);
    CHECK_EQ(options.start, HB_START_ERROR);
    options.overlap = HB_OVERLAP_IDENTICAL;
    CHECK_EQ(hb_imageMerge(image, other, &options, &error), HB_OVERLAP);
    CHECK_EQ(error.address, 0x102);
    options.overlap = HB_OVERLAP_FIRST;
    CHECK_EQ(hb_imageMerge(image, other, &options, &error), HB_OK);
    hb_imageCopyRange(image, 0x100, 4, 0, out);
    CHECK_BYTES(out, a, 4);
    options.overlap = HB_OVERLAP_LAST;
    CHECK_EQ(hb_imageMerge(image, other, &options, &error), HB_OK);
    hb_imageCopyRange(image, 0x100, 4, 0, out);
    CHECK_BYTES(out, b, 4);
    options.overlap = (hb_overlap_policy_t)9;
    CHECK_EQ(hb_imageMerge(image, other, &options, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "unknown overlap policy 9");
    options.overlap = HB_OVERLAP_LAST;
    options.start = (hb_start_policy_t)4;
    CHECK_EQ(hb_imageMerge(image, other, &options, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "unknown start address policy 4");
    memset(&options, 0, sizeof options);
    CHECK_EQ(hb_imageMerge(image, other, &options, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "options not initialised: call hb_mergeOptionsInit()");
    CHECK_EQ(hb_imageMerge(image, NULL, NULL, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "other is NULL");
    hb_imageDestroy(other);
    hb_imageDestroy(image);
}

static void theEdits(void)
{
    const uint8_t bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    hb_image_t* image = imageWith(0x1000, bytes, 8);
    hb_range_t ranges[2] = {{0x1001, 0x1003}, {0x1006, 0x1007}};
    hb_range_t exclude = {0x1002, 0x1007};
    hb_range_t fill = {0x0FFE, 0x1004};
    hb_segment_t segment;
    hb_error_t error;
    uint8_t out[6];
    CHECK_EQ(hb_imageOffset(image, 0x10, &error), HB_OK);
    CHECK_EQ(hb_imageLowestAddress(image), 0x1010);
    CHECK_EQ(hb_imageOffset(image, -0x10, &error), HB_OK);
    CHECK_EQ(hb_imageOffset(image, -0x1001, &error), HB_OUT_OF_RANGE);
    CHECK_EQ(hb_imageLowestAddress(image), 0x1000);
    CHECK_EQ(hb_imageSwapBytes(image, 2, &error), HB_OK);
    hb_imageCopyRange(image, 0x1000, 4, 0, out);
    CHECK_BYTES(out, "\x02\x01\x04\x03", 4);
    CHECK_EQ(hb_imageSwapBytes(image, 3, &error), HB_BAD_ARGUMENT);
    CHECK_EQ(hb_imageCrop(image, ranges, 2, &error), HB_OK);
    CHECK_EQ(hb_imageSegmentCount(image), 2);
    CHECK_EQ(hb_imageSwapBytes(image, 2, &error), HB_BAD_ARGUMENT);
    CHECK_EQ(error.hasAddress, 1);
    CHECK_EQ(error.address, 0x1001);
    CHECK_EQ(hb_imageCrop(image, NULL, 1, &error), HB_BAD_ARGUMENT);
    CHECK_EQ(hb_imageExclude(image, exclude, &error), HB_OK);
    CHECK_EQ(hb_imageSegmentCount(image), 1);
    CHECK_EQ(hb_imageFillRange(image, fill, 0xAA, &error), HB_OK);
    CHECK_EQ(hb_imageSegment(image, 0, &segment, NULL), HB_OK);
    CHECK_EQ(segment.address, 0x0FFE);
    CHECK_EQ(segment.size, 6);
    CHECK_BYTES(segment.data, "\xAA\xAA\xAA\x01\xAA\xAA", 6);
    hb_imageDestroy(image);
}

/* --- Verify and diff ----------------------------------------------------- */

static void verifyADumpAndAFile(void)
{
    const uint8_t bytes[4] = {1, 2, 3, 4};
    const uint8_t dump[6] = {0xFF, 1, 2, 9, 4, 0xFF};
    hb_image_t* image = imageWith(0x2001, bytes, 4);
    hb_verify_result_t result;
    hb_mismatch_t first[2];
    hb_error_t error;
    FILE* f;
    CHECK_EQ(hb_imageVerify(image, dump, 6, 0x2000, &result, first, 2, &error), HB_MISMATCH);
    CHECK_EQ(result.compared, 4);
    CHECK_EQ(result.mismatches, 1);
    CHECK_EQ(result.notCovered, 0);
    CHECK_EQ(result.listed, 1);
    CHECK_EQ(first[0].address, 0x2003);
    CHECK_EQ(first[0].expected, 3);
    CHECK_EQ(first[0].found, 9);
    CHECK_EQ(hb_imageVerify(image, dump, 3, 0x2000, &result, NULL, 0, &error), HB_MISMATCH);
    CHECK_EQ(result.notCovered, 2);
    CHECK_EQ(result.firstNotCovered, 0x2003);
    CHECK_EQ(result.listed, 0);
    CHECK_EQ(hb_imageVerify(image, bytes, 4, 0x2001, &result, first, 2, &error), HB_OK);
    CHECK_EQ(result.compared, 4);
    CHECK_EQ(hb_imageVerify(image, dump, 6, 0x2000, &result, NULL, 2, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "first is NULL");
    f = fopen(pathOf("dump.bin"), "wb");
    CHECK(f != NULL && fwrite(dump, 1, 6, f) == 6);
    if (f != NULL)
        fclose(f);
    CHECK_EQ(hb_imageVerifyFile(image, pathOf("dump.bin"), 0x2000, &result, first, 2, &error), HB_MISMATCH);
    CHECK_EQ(result.mismatches, 1);
    CHECK_EQ(first[0].address, 0x2003);
    CHECK_EQ(hb_imageVerifyFile(image, pathOf("missing.bin"), 0x2000, &result, first, 2, &error), HB_CANNOT_OPEN);
    hb_imageDestroy(image);
}

static void diffTwoImages(void)
{
    const uint8_t a[6] = {1, 2, 3, 4, 5, 6}, b[6] = {1, 9, 3, 4, 9, 6};
    hb_image_t* image = imageWith(0x10, a, 6);
    hb_image_t* other = imageWith(0x10, b, 6);
    hb_difference_t* ranges = NULL;
    hb_diff_options_t options;
    hb_start_address_t start = {5, 0x10};
    size_t count = 99;
    int startDiffers = -1;
    hb_error_t error;
    CHECK_EQ(hb_imageWrite(other, 0x40, a, 2, NULL), HB_OK);
    CHECK_EQ(hb_imageSetStartAddress(other, &start, NULL), HB_OK);
    CHECK_EQ(hb_imageDiff(image, other, NULL, &ranges, &count, &startDiffers, &error), HB_OK);
    CHECK_EQ(count, 2);
    CHECK_EQ(startDiffers, 1);
    if (count == 2) {
        CHECK_EQ(ranges[0].kind, HB_DIFFER);
        CHECK_EQ(ranges[0].start, 0x11);
        CHECK_EQ(ranges[0].end, 0x15);
        CHECK_EQ(ranges[0].bytes, 2);
        CHECK_EQ(ranges[1].kind, HB_ONLY_OTHER);
        CHECK_EQ(ranges[1].start, 0x40);
        CHECK_EQ(ranges[1].end, 0x42);
    }
    hb_free(ranges);
    hb_diffOptionsInit(&options);
    CHECK_EQ(options.join, 16);
    options.join = 0;
    CHECK_EQ(hb_imageDiff(image, other, &options, &ranges, &count, NULL, &error), HB_OK);
    CHECK_EQ(count, 3);
    hb_free(ranges);
    CHECK_EQ(hb_imageDiff(image, image, &options, &ranges, &count, &startDiffers, &error), HB_OK);
    CHECK_EQ(count, 0);
    CHECK(ranges == NULL);
    CHECK_EQ(startDiffers, 0);
    options.size = 0;
    CHECK_EQ(hb_imageDiff(image, other, &options, &ranges, &count, NULL, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "options not initialised: call hb_diffOptionsInit()");
    hb_imageDestroy(other);
    hb_imageDestroy(image);
}

/* --- Formats -------------------------------------------------------------- */

static void theFormatTable(void)
{
    hb_format_info_t info;
    hb_format_t format = HB_FORMAT_BINARY;
    hb_format_t fits[4];
    hb_error_t error;
    CHECK_EQ(hb_formatInfo(HB_FORMAT_TI_TXT, &info, &error), HB_OK);
    CHECK_STR(info.name, "ti-txt");
    CHECK_STR(info.title, "TI-TXT");
    CHECK_EQ(info.readable, 1);
    CHECK_EQ(info.writable, 1);
    CHECK_EQ(hb_formatInfo(HB_FORMAT_COE, &info, &error), HB_OK);
    CHECK_EQ(info.readable, 0);
    CHECK_EQ(hb_formatInfo((hb_format_t)11, &info, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "unknown format 11");
    CHECK_EQ(hb_formatByName("srec", &format, &error), HB_OK);
    CHECK_EQ(format, HB_FORMAT_SRECORD);
    CHECK_EQ(hb_formatByName("hex", &format, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason,
              "unknown format 'hex': ihex, srec, elf, uf2, ti-txt, vmem, mif, coe, c, ihex16, bin");
    CHECK_EQ(hb_formatByExtension("APP.S37", &format, &error), HB_OK);
    CHECK_EQ(format, HB_FORMAT_SRECORD);
    CHECK_EQ(hb_formatByExtension("app.txt", &format, &error), HB_UNKNOWN_FORMAT);
    CHECK_STR(error.reason, "no format has the extension of 'app.txt'");
    CHECK_EQ(hb_detectFormat(FOUR_BYTES, 8, &format, &error), HB_OK);
    CHECK_EQ(format, HB_FORMAT_INTEL_HEX);
    CHECK_EQ(hb_detectFormat("@0000\n01\nq\n", 11, &format, &error), HB_UNKNOWN_FORMAT);
    CHECK_STR(error.reason, "the content could be TI-TXT or Verilog memory file");
    CHECK_EQ(hb_detectFormat("zzz", 3, &format, &error), HB_UNKNOWN_FORMAT);
    CHECK_STR(error.reason, "the content is of no format the library reads");
    CHECK_EQ(hb_recogniseFormats("@0000\n01\nq\n", 11, fits, 4), 2);
    CHECK_EQ(fits[0], HB_FORMAT_TI_TXT);
    CHECK_EQ(fits[1], HB_FORMAT_VERILOG);
    CHECK_EQ(hb_recogniseFormats("@0000\n01\nq\n", 11, fits, 1), 2);
    CHECK_EQ(hb_recogniseFormats("zzz", 3, NULL, 0), 0);
}

static void uf2Families(void)
{
    uint32_t id = 0;
    hb_error_t error;
    CHECK_STR(hb_uf2FamilyName(0xE48BFF56), "rp2040");
    CHECK_STR(hb_uf2FamilyName(0x12345678), NULL);
    CHECK_EQ(hb_uf2FamilyByName("rp2040", &id, &error), HB_OK);
    CHECK_EQ(id, 0xE48BFF56);
    CHECK_EQ(hb_uf2FamilyByName("0x12345678", &id, &error), HB_OK);
    CHECK_EQ(id, 0x12345678);
    CHECK_EQ(hb_uf2FamilyByName("no-such-chip", &id, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "unknown UF2 family 'no-such-chip': a name or a number");
}

/* --- Reading ---------------------------------------------------------------- */

typedef struct warnings_t {
    int count;
    size_t line;
    char message[200];
} warnings_t;

static void keepWarning(void* context, size_t line, const char* message)
{
    warnings_t* warnings = context;
    ++warnings->count;
    warnings->line = line;
    snprintf(warnings->message, sizeof warnings->message, "%s", message);
}

static void readingFromMemoryWithTheOptions(void)
{
    static const char OVERLAPPING[] = ":0400000001020304F2\n:0100020009F4\n:00000001FF\n";
    hb_image_t* image = NULL;
    hb_read_options_t options;
    warnings_t warnings = {0, 0, ""};
    hb_error_t error;
    uint8_t out[4];
    CHECK_EQ(hb_imageCreate(&image, NULL), HB_OK);
    hb_readOptionsInit(&options);
    CHECK_EQ(options.size, sizeof options);
    CHECK_EQ(options.detect, 1);
    CHECK_EQ(options.wordWidth, 8);
    options.warning = keepWarning;
    options.context = &warnings;
    CHECK_EQ(hb_readMemory(image, OVERLAPPING, strlen(OVERLAPPING), &options, &error), HB_OK);
    CHECK_EQ(warnings.count, 1);
    CHECK_EQ(warnings.line, 2);
    CHECK_STR(warnings.message, "1 bytes given by more than one record; the first value of each is kept");
    options.hasOverlap = 1;
    options.overlap = HB_OVERLAP_LAST;
    CHECK_EQ(hb_readMemory(image, OVERLAPPING, strlen(OVERLAPPING), &options, &error), HB_OK);
    CHECK_EQ(warnings.count, 1);
    hb_imageCopyRange(image, 0, 4, 0, out);
    CHECK_BYTES(out, "\x01\x02\x09\x04", 4);
    options.overlap = HB_OVERLAP_ERROR;
    CHECK_EQ(hb_readMemory(image, OVERLAPPING, strlen(OVERLAPPING), &options, &error), HB_OVERLAP);
    CHECK_EQ(error.line, 2);
    CHECK_EQ(error.address, 2);
    hb_imageCopyRange(image, 0, 4, 0, out);
    CHECK_BYTES(out, "\x01\x02\x09\x04", 4); /* as it was */
    options.overlap = (hb_overlap_policy_t)7;
    CHECK_EQ(hb_readMemory(image, OVERLAPPING, strlen(OVERLAPPING), &options, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "unknown overlap policy 7");
    hb_readOptionsInit(&options);
    options.detect = 0;
    options.format = HB_FORMAT_BINARY;
    options.address = 0xFFFFFFFC;
    CHECK_EQ(hb_readMemory(image, "abcd", 4, &options, &error), HB_OK);
    CHECK_EQ(hb_imageHighestAddress(image), 0xFFFFFFFF);
    CHECK_EQ(hb_readMemory(image, "abcde", 5, &options, &error), HB_OUT_OF_RANGE);
    options.format = (hb_format_t)42;
    CHECK_EQ(hb_readMemory(image, "abcd", 4, &options, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "unknown format 42");
    options.format = HB_FORMAT_COE;
    CHECK_EQ(hb_readMemory(image, "abcd", 4, &options, &error), HB_UNSUPPORTED);
    CHECK_STR(error.reason, "images cannot be read from Xilinx COE");
    memset(&options, 0, sizeof options);
    CHECK_EQ(hb_readMemory(image, FOUR_BYTES, 8, &options, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "options not initialised: call hb_readOptionsInit()");
    hb_imageDestroy(image);
}

static void readingFailuresSayWhy(void)
{
    hb_image_t* image = NULL;
    hb_error_t error;
    CHECK_EQ(hb_imageCreate(&image, NULL), HB_OK);
    CHECK_EQ(hb_readMemory(image, ":0400000001020304F2\nhello\n", 26, NULL, &error), HB_SYNTAX);
    CHECK_EQ(error.line, 2);
    CHECK_EQ(hb_readMemory(image, ":00000006FA\n:00000001FF\n", 24, NULL, &error), HB_UNSUPPORTED);
    CHECK_EQ(error.line, 1);
    CHECK_EQ(hb_readMemory(image, "zzz", 3, NULL, &error), HB_UNKNOWN_FORMAT);
    CHECK_EQ(hb_readFile(image, pathOf("missing.hex"), NULL, &error), HB_CANNOT_OPEN);
    CHECK_STR(error.reason, "cannot open the file: No such file or directory");
    CHECK_EQ(hb_readFile(image, work, NULL, &error), HB_CANNOT_READ);
    CHECK_EQ(hb_readFile(image, NULL, NULL, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "path is NULL");
    CHECK_EQ(hb_readMemory(NULL, "", 0, NULL, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "image is NULL");
    CHECK_EQ(hb_imageEmpty(image), 1);
    hb_imageDestroy(image);
}

static void readingAFileAndFindingLines(void)
{
    static const char TEXT[] = "\n:0400000001020304F2\n:0100020009F4\n:00000001FF\n";
    hb_image_t* image = NULL;
    hb_read_options_t options;
    size_t line = 0;
    writeText("lines.hex", TEXT);
    CHECK_EQ(hb_imageCreate(&image, NULL), HB_OK);
    CHECK_EQ(hb_readFile(image, pathOf("lines.hex"), NULL, NULL), HB_OK);
    CHECK_EQ(hb_imageDataSize(image), 4);
    CHECK_EQ(hb_findLineInFile(pathOf("lines.hex"), 2, NULL, &line), 1);
    CHECK_EQ(line, 2);
    CHECK_EQ(hb_findLineInMemory(TEXT, strlen(TEXT), 3, NULL, &line), 1);
    CHECK_EQ(line, 2);
    CHECK_EQ(hb_findLineInMemory(TEXT, strlen(TEXT), 4, NULL, &line), 0);
    CHECK_EQ(hb_findLineInFile(pathOf("missing.hex"), 0, NULL, &line), 0);
    hb_readOptionsInit(&options);
    options.detect = 0;
    options.format = HB_FORMAT_BINARY;
    CHECK_EQ(hb_findLineInMemory(TEXT, strlen(TEXT), 0, &options, &line), 0);
    hb_imageDestroy(image);
}

static void readingADescriptor(void)
{
    hb_image_t* image = NULL;
    hb_error_t error;
    int fds[2];
    int fd;
    CHECK_EQ(hb_imageCreate(&image, NULL), HB_OK);
    /* A pipe, read to its end. */
    CHECK(pipe(fds) == 0);
    CHECK(write(fds[1], FOUR_BYTES, strlen(FOUR_BYTES)) == (ssize_t)strlen(FOUR_BYTES));
    close(fds[1]);
    CHECK_EQ(hb_readFd(image, fds[0], NULL, &error), HB_OK);
    CHECK_EQ(hb_imageDataSize(image), 4);
    close(fds[0]);
    /* A file from its offset: the first line skipped. */
    writeText("offset.hex", ":0100000055AA\n:0400100001020304E2\n:00000001FF\n");
    fd = open(pathOf("offset.hex"), O_RDONLY);
    CHECK(fd >= 0);
    CHECK(lseek(fd, 14, SEEK_SET) == 14);
    CHECK_EQ(hb_readFd(image, fd, NULL, &error), HB_OK);
    CHECK_EQ(hb_imageLowestAddress(image), 0x10);
    CHECK_EQ(hb_imageDataSize(image), 4);
    CHECK_EQ(lseek(fd, 0, SEEK_CUR), 46);
    CHECK_EQ(hb_readFd(image, fd, NULL, &error), HB_UNKNOWN_FORMAT); /* nothing left */
    close(fd);
    /* A descriptor that cannot be read. */
    fd = open(pathOf("offset.hex"), O_WRONLY);
    CHECK_EQ(hb_readFd(image, fd, NULL, &error), HB_CANNOT_READ);
    CHECK_STR(error.reason, "cannot read the descriptor: Bad file descriptor");
    close(fd);
    CHECK_EQ(hb_readFd(image, -1, NULL, &error), HB_CANNOT_READ);
    CHECK_EQ(hb_imageDataSize(image), 4);
    hb_imageDestroy(image);
}

/* --- Writing ---------------------------------------------------------------- */

static void writingToMemoryAFileAndADescriptor(void)
{
    static const char SRECORDS[] = "S0030000FC\nS107000001020304EE\nS5030001FB\nS9030000FC\n";
    hb_image_t* image = imageOf(FOUR_BYTES);
    hb_write_options_t options;
    hb_error_t error;
    void* data = NULL;
    size_t size = 0;
    char* text;
    int fds[2];
    char piped[128];
    ssize_t got;
    hb_writeOptionsInit(&options);
    CHECK_EQ(options.size, sizeof options);
    CHECK_EQ(options.format, HB_FORMAT_INTEL_HEX);
    CHECK_EQ(options.recordSize, 16);
    CHECK_EQ(options.fill, 0xFF);
    CHECK_EQ(hb_writeMemory(image, NULL, &data, &size, &error), HB_OK);
    CHECK_EQ(size, strlen(FOUR_BYTES));
    CHECK_BYTES(data, FOUR_BYTES, strlen(FOUR_BYTES));
    hb_free(data);
    options.format = HB_FORMAT_SRECORD;
    CHECK_EQ(hb_writeMemory(image, &options, &data, &size, &error), HB_OK);
    CHECK_EQ(size, strlen(SRECORDS));
    CHECK_BYTES(data, SRECORDS, size);
    hb_free(data);
    CHECK_EQ(hb_writeFile(image, pathOf("out.s19"), &options, &error), HB_OK);
    text = readWhole(pathOf("out.s19"), &size);
    CHECK_STR(text, SRECORDS);
    free(text);
    /* A descriptor: a pipe. */
    CHECK(pipe(fds) == 0);
    CHECK_EQ(hb_writeFd(image, fds[1], NULL, &error), HB_OK);
    close(fds[1]);
    got = read(fds[0], piped, sizeof piped - 1);
    CHECK_EQ(got, (ssize_t)strlen(FOUR_BYTES));
    piped[got > 0 ? got : 0] = '\0';
    CHECK_STR(piped, FOUR_BYTES);
    close(fds[0]);
    /* Options a writer cannot take. */
    hb_writeOptionsInit(&options);
    options.recordSize = 0;
    CHECK_EQ(hb_writeMemory(image, &options, &data, &size, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "record size 0 is out of range (1 to 255)");
    CHECK_EQ(hb_writeFile(image, pathOf("bad.hex"), &options, &error), HB_BAD_ARGUMENT);
    CHECK(access(pathOf("bad.hex"), F_OK) != 0);
    hb_writeOptionsInit(&options);
    options.format = HB_FORMAT_ELF;
    CHECK_EQ(hb_writeMemory(image, &options, &data, &size, &error), HB_UNSUPPORTED);
    CHECK_STR(error.reason, "images cannot be saved as ELF");
    options.format = HB_FORMAT_INTEL_HEX;
    options.addressing = (hb_addressing_t)2;
    CHECK_EQ(hb_writeFd(image, 1, &options, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "unknown addressing 2");
    options.size = 0;
    CHECK_EQ(hb_writeFile(image, pathOf("bad.hex"), &options, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "options not initialised: call hb_writeOptionsInit()");
    hb_imageDestroy(image);
}

static void writingFailuresSayWhy(void)
{
    hb_image_t* image = imageOf(FOUR_BYTES);
    hb_error_t error;
    int fd;
    int fds[2];
    CHECK_EQ(hb_writeFile(image, pathOf("no-such-folder/out.hex"), NULL, &error), HB_CANNOT_OPEN);
    CHECK(strstr(error.reason, "no-such-folder/out.hex") != NULL);
    CHECK_EQ(hb_writeFile(image, "/dev/full", NULL, &error), HB_CANNOT_WRITE);
    fd = open(pathOf("readonly.hex"), O_RDONLY | O_CREAT, 0644);
    CHECK(fd >= 0);
    CHECK_EQ(hb_writeFd(image, fd, NULL, &error), HB_CANNOT_WRITE);
    CHECK_STR(error.reason, "cannot write to the descriptor: Bad file descriptor");
    close(fd);
    /* A pipe whose reader has gone (SIGPIPE is ignored by main()). */
    CHECK(pipe(fds) == 0);
    close(fds[0]);
    CHECK_EQ(hb_writeFd(image, fds[1], NULL, &error), HB_CANNOT_WRITE);
    CHECK_STR(error.reason, "cannot write to the descriptor: Broken pipe");
    close(fds[1]);
    CHECK_EQ(hb_writeMemory(image, NULL, NULL, NULL, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "data is NULL");
    hb_imageDestroy(image);
}

static void convertingABinaryFile(void)
{
    const uint8_t bytes[20] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
    hb_image_t* image = imageWith(0x0800FFF8, bytes, 20);
    hb_write_options_t options;
    hb_error_t error;
    void* expected = NULL;
    size_t expectedSize = 0, size = 0;
    char* text;
    FILE* f = fopen(pathOf("in.bin"), "wb");
    CHECK(f != NULL && fwrite(bytes, 1, 20, f) == 20);
    if (f != NULL)
        fclose(f);
    hb_writeOptionsInit(&options);
    options.recordSize = 8;
    CHECK_EQ(hb_convertBinaryFile(pathOf("in.bin"), 0x0800FFF8, pathOf("in.hex"), &options, &error), HB_OK);
    CHECK_EQ(hb_writeMemory(image, &options, &expected, &expectedSize, NULL), HB_OK);
    text = readWhole(pathOf("in.hex"), &size);
    CHECK_EQ(size, expectedSize);
    if (text != NULL && size == expectedSize)
        CHECK_BYTES(text, expected, size);
    free(text);
    hb_free(expected);
    CHECK_EQ(hb_convertBinaryFile(pathOf("in.bin"), 0xFFFFFFF0, pathOf("in.hex"), NULL, &error), HB_OUT_OF_RANGE);
    CHECK_EQ(hb_convertBinaryFile(pathOf("missing.bin"), 0, pathOf("x.hex"), NULL, &error), HB_CANNOT_OPEN);
    CHECK(access(pathOf("x.hex"), F_OK) != 0);
    hb_imageDestroy(image);
}

/* --- Checksums ---------------------------------------------------------------- */

static void namedAlgorithmsGiveTheirCheckValues(void)
{
    size_t i;
    hb_algorithm_info_t info;
    hb_checksum_t* checksum = NULL;
    hb_error_t error;
    CHECK_EQ(hb_algorithmCount(), 13);
    for (i = 0; i < hb_algorithmCount(); ++i) {
        CHECK_EQ(hb_algorithmInfo(i, &info, &error), HB_OK);
        CHECK_EQ(hb_checksumCreate(&checksum, info.name, 0xFF, &error), HB_OK);
        hb_checksumUpdate(checksum, "1234", 4);
        hb_checksumUpdate(checksum, "56789", 5);
        CHECK_EQ(hb_checksumValue(checksum), info.check);
        CHECK_EQ(hb_checksumSize(checksum), info.size);
        hb_checksumReset(checksum);
        hb_checksumUpdate(checksum, "123456789", 9);
        CHECK_EQ(hb_checksumValue(checksum), info.check);
        hb_checksumDestroy(checksum);
    }
    CHECK_EQ(hb_algorithmInfo(0, &info, NULL), HB_OK);
    CHECK_STR(info.name, "crc32");
    CHECK_EQ(info.check, 0xCBF43926);
    CHECK_EQ(hb_algorithmInfo(13, &info, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "algorithm 13 of 13");
    CHECK_EQ(hb_checksumCreate(&checksum, "crc33", 0xFF, &error), HB_BAD_ARGUMENT);
    CHECK(strncmp(error.reason, "unknown checksum algorithm 'crc33': crc32, ", 43) == 0);
}

static void customCrcsFillAndImages(void)
{
    /* CRC-16/XMODEM by its parameters. */
    hb_crc_model_t model = {16, 0x1021, 0, 0, 0, 0};
    const uint8_t bytes[2] = {'1', '2'};
    hb_image_t* image = imageWith(0x100, bytes, 2);
    hb_checksum_t* checksum = NULL;
    hb_checksum_t* named = NULL;
    hb_range_t range = {0x100, 0x104};
    hb_error_t error;
    CHECK_EQ(hb_checksumCreateCrc(&checksum, &model, &error), HB_OK);
    hb_checksumUpdate(checksum, "123456789", 9);
    CHECK_EQ(hb_checksumValue(checksum), 0x31C3);
    hb_checksumReset(checksum);
    hb_checksumUpdateImage(checksum, image, range, 0xFF);
    CHECK_EQ(hb_checksumCreate(&named, "crc16-xmodem", 0xFF, NULL), HB_OK);
    hb_checksumUpdate(named, "12", 2);
    hb_checksumUpdateFill(named, 0xFF, 2);
    CHECK_EQ(hb_checksumValue(checksum), hb_checksumValue(named));
    model.width = 12;
    CHECK_EQ(hb_checksumCreateCrc(&named, &model, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "a CRC is 8, 16 or 32 bits wide, not 12");
    CHECK_EQ(hb_checksumCreateCrc(&named, NULL, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "model is NULL");
    hb_checksumDestroy(checksum);
    hb_checksumDestroy(named);
    hb_imageDestroy(image);
}

static void checksumsStoredIntoAnImage(void)
{
    hb_crc_model_t crc32 = {32, 0x04C11DB7, 0xFFFFFFFF, 1, 1, 0xFFFFFFFF};
    hb_image_t* image = imageWith(0, "123456789", 9);
    hb_range_t range = {0, 9};
    hb_error_t error;
    uint8_t out[4];
    CHECK_EQ(hb_checksumInsert(image, "crc32", range, 0xFF, 0x10, HB_BIG_ENDIAN, &error), HB_OK);
    hb_imageCopyRange(image, 0x10, 4, 0, out);
    CHECK_BYTES(out, "\xCB\xF4\x39\x26", 4);
    CHECK_EQ(hb_checksumInsertCrc(image, &crc32, range, 0xFF, 0x20, HB_LITTLE_ENDIAN, &error), HB_OK);
    hb_imageCopyRange(image, 0x20, 4, 0, out);
    CHECK_BYTES(out, "\x26\x39\xF4\xCB", 4);
    CHECK_EQ(hb_checksumInsert(image, "crc32", range, 0xFF, 0x4, HB_BIG_ENDIAN, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "the crc32 value at 0x00000004 would lie inside the range it covers, 0x00000000:0x00000009");
    CHECK_EQ(hb_checksumInsert(image, "crc32", range, 0xFF, 0xFFFFFFFE, HB_BIG_ENDIAN, &error), HB_OUT_OF_RANGE);
    CHECK_STR(error.reason, "the crc32 value at 0xFFFFFFFE would run past address 0xFFFFFFFF");
    CHECK_EQ(hb_checksumInsert(image, "crc32", range, 0xFF, 0x30, (hb_byte_order_t)2, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "unknown byte order 2");
    CHECK_EQ(hb_checksumInsert(image, "nope", range, 0xFF, 0x30, HB_BIG_ENDIAN, &error), HB_BAD_ARGUMENT);
    CHECK_EQ(hb_imageHasDataAt(image, 0x30), 0);
    hb_imageDestroy(image);
}

/* --- Flash plans -------------------------------------------------------------- */

static void aFlashPlanAndItsPages(void)
{
    uint8_t bytes[300];
    hb_image_t* image;
    hb_flash_plan_t* plan = NULL;
    hb_page_walker_t* walker = NULL;
    hb_plan_options_t options;
    const hb_sector_t* sectors;
    const hb_range_t* writes;
    hb_error_t error;
    size_t count = 0, pages = 0;
    uint32_t start = 0, pageSize = 0;
    uint64_t end = 0;
    uint8_t erased = 0;
    memset(bytes, 0x11, sizeof bytes);
    image = imageWith(0x08004010, bytes, sizeof bytes);
    hb_planOptionsInit(&options);
    CHECK_EQ(options.pageSize, 256);
    CHECK_EQ(options.erased, 0xFF);
    CHECK_EQ(options.keepBlank, 0);
    options.pageSize = 128;
    CHECK_EQ(hb_flashPlanCreate(&plan, image, "0x08000000:4x16K,1x64K", &options, &error), HB_OK);
    hb_flashPlanGeometry(plan, &start, &end, &pageSize, &erased);
    CHECK_EQ(start, 0x08000000);
    CHECK_EQ(end, 0x08020000);
    CHECK_EQ(pageSize, 128);
    CHECK_EQ(erased, 0xFF);
    sectors = hb_flashPlanEraseList(plan, &count);
    CHECK_EQ(count, 1);
    CHECK_EQ(sectors[0].address, 0x08004000);
    CHECK_EQ(sectors[0].size, 0x4000);
    CHECK_EQ(sectors[0].partial, 1);
    writes = hb_flashPlanWriteList(plan, &count);
    CHECK_EQ(count, 1);
    CHECK_EQ(writes[0].start, 0x08004000);
    CHECK_EQ(writes[0].end, 0x08004180);
    CHECK_EQ(hb_flashPlanPartialSectors(plan), 1);
    CHECK_EQ(hb_flashPlanEraseBytes(plan), 0x4000);
    CHECK_EQ(hb_flashPlanWritePages(plan), 3);
    CHECK_EQ(hb_flashPlanWriteBytes(plan), 384);
    CHECK_EQ(hb_flashPlanSkippedBlank(plan), 0);
    CHECK_EQ(hb_pageWalkerCreate(&walker, image, plan, &error), HB_OK);
    while (hb_pageWalkerNext(walker)) {
        const uint8_t* data = hb_pageWalkerData(walker);
        CHECK_EQ(hb_pageWalkerAddress(walker), 0x08004000 + 128 * pages);
        CHECK_EQ(hb_pageWalkerSize(walker), 128);
        CHECK_EQ(data[0], pages == 0 ? 0xFF : 0x11);
        CHECK_EQ(data[127], pages == 2 ? 0xFF : 0x11);
        ++pages;
    }
    CHECK_EQ(pages, 3);
    CHECK_EQ(hb_pageWalkerNext(walker), 0);
    hb_pageWalkerDestroy(walker);
    hb_flashPlanDestroy(plan);
    CHECK_EQ(hb_flashPlanCreate(&plan, image, "0x08000000:4x1K", NULL, &error), HB_OUT_OF_RANGE);
    CHECK_EQ(error.address, 0x08004010);
    CHECK_STR(error.reason, "the data at 0x08004010 lies outside the flash (0x08000000-0x08000FFF)");
    CHECK_EQ(hb_flashPlanCreate(&plan, image, "0x08000000:4y16K", NULL, &error), HB_SYNTAX);
    CHECK_STR(error.reason, "expected ADDRESS:COUNTxSIZE[,COUNTxSIZE...], such as 0x08000000:4x16K,1x64K,7x128K");
    options.pageSize = 1000;
    CHECK_EQ(hb_flashPlanCreate(&plan, image, "0x08000000:4x16K", &options, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "the sector boundary 0x08000000 is not a multiple of the page size 1000");
    options.size = 0;
    CHECK_EQ(hb_flashPlanCreate(&plan, image, "0x08000000:4x16K", &options, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "options not initialised: call hb_planOptionsInit()");
    CHECK_EQ(hb_pageWalkerCreate(&walker, image, NULL, &error), HB_BAD_ARGUMENT);
    CHECK_STR(error.reason, "plan is NULL");
    hb_imageDestroy(image);
}

/* --- Out of memory ---------------------------------------------------------------- */

/* Under a limit on the address space (in a child process, so that the
 * limit stays there), filling the whole 4 GiB address space cannot get its
 * memory: the status says so, and the image is as it was. */
static void runningOutOfMemoryIsAStatus(void)
{
    const char* preload = getenv("LD_PRELOAD");
    pid_t child;
    int status = 0;
#ifdef UNDER_ASAN
    printf("skipped: AddressSanitizer reserves the address space a limit would take\n");
    return;
#endif
    if (preload != NULL && strstr(preload, "vgpreload") != NULL) {
        printf("skipped: under valgrind, whose allocator cannot report a failure as an exception\n");
        return;
    }
    fflush(stdout);
    child = fork();
    CHECK(child >= 0);
    if (child == 0) {
        struct rlimit limit = {256u << 20, 256u << 20};
        hb_image_t* image = NULL;
        hb_range_t everything = {0, 0x100000000ull};
        hb_error_t error;
        if (hb_imageCreate(&image, &error) != HB_OK)
            _exit(2);
        /* A 32-bit process cannot hold 4 GiB anyway (and under qemu-user the
         * emulator's own reservations lie beyond any small limit). */
        if (sizeof(void*) > 4 && setrlimit(RLIMIT_AS, &limit) != 0)
            _exit(2);
        if (hb_imageFillRange(image, everything, 0xFF, &error) != HB_OUT_OF_MEMORY)
            _exit(3);
        if (strcmp(error.reason, "out of memory") != 0 || !hb_imageEmpty(image))
            _exit(4);
        hb_imageDestroy(image);
        _exit(0);
    }
    CHECK(waitpid(child, &status, 0) == child);
    CHECK(WIFEXITED(status));
    CHECK_EQ(WEXITSTATUS(status), 0);
}

static const c_test_t TESTS[] = {
    {"statusNamesAndVersion", statusNamesAndVersion},
    {"anErrorIsFilledOnEveryCallAndNullIsAccepted", anErrorIsFilledOnEveryCallAndNullIsAccepted},
    {"aLongReasonIsCutAtACharacterBoundary", aLongReasonIsCutAtACharacterBoundary},
    {"segmentsAddressesAndBytes", segmentsAddressesAndBytes},
    {"startAddressHeaderAndClone", startAddressHeaderAndClone},
    {"mergeWithThePolicies", mergeWithThePolicies},
    {"theEdits", theEdits},
    {"verifyADumpAndAFile", verifyADumpAndAFile},
    {"diffTwoImages", diffTwoImages},
    {"theFormatTable", theFormatTable},
    {"uf2Families", uf2Families},
    {"readingFromMemoryWithTheOptions", readingFromMemoryWithTheOptions},
    {"readingFailuresSayWhy", readingFailuresSayWhy},
    {"readingAFileAndFindingLines", readingAFileAndFindingLines},
    {"readingADescriptor", readingADescriptor},
    {"writingToMemoryAFileAndADescriptor", writingToMemoryAFileAndADescriptor},
    {"writingFailuresSayWhy", writingFailuresSayWhy},
    {"convertingABinaryFile", convertingABinaryFile},
    {"namedAlgorithmsGiveTheirCheckValues", namedAlgorithmsGiveTheirCheckValues},
    {"customCrcsFillAndImages", customCrcsFillAndImages},
    {"checksumsStoredIntoAnImage", checksumsStoredIntoAnImage},
    {"aFlashPlanAndItsPages", aFlashPlanAndItsPages},
    {"runningOutOfMemoryIsAStatus", runningOutOfMemoryIsAStatus},
};

/* Removes the work folder and what the tests left in it. */
static void removeWork(void)
{
    static const char* const NAMES[] = {"dump.bin", "lines.hex", "offset.hex", "out.s19", "readonly.hex",
                                        "in.bin",   "in.hex",    "x.hex",      "bad.hex"};
    size_t i;
    for (i = 0; i < sizeof NAMES / sizeof NAMES[0]; ++i)
        unlink(pathOf(NAMES[i]));
    rmdir(work);
}

int main(int argc, char** argv)
{
    const char* tmp = getenv("TMPDIR");
    int status;
    signal(SIGPIPE, SIG_IGN);
    snprintf(work, sizeof work, "%s/hb-c-api-XXXXXX", tmp != NULL && *tmp != '\0' ? tmp : "/tmp");
    if (mkdtemp(work) == NULL) {
        perror("mkdtemp");
        return 1;
    }
    status = c_check_run(TESTS, sizeof TESTS / sizeof TESTS[0], argc > 1 ? argv[1] : NULL);
    removeWork();
    return status;
}
