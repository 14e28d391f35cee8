/** @file hexblocks.h
 * The hexblocks library for C (C99) and every language with a C foreign
 * function interface: read, write, merge, edit, check and flash firmware
 * images.
 *
 * @code
 * #include <hexblocks/hexblocks.h>
 *
 * hb_image_t* image = NULL;
 * hb_error_t error;
 * if (hb_imageCreate(&image, &error) != HB_OK ||
 *     hb_readFile(image, "app.hex", NULL, &error) != HB_OK) {
 *     fprintf(stderr, "app.hex:%zu: %s\n", error.line, error.reason);
 *     hb_imageDestroy(image);
 *     return 1;
 * }
 * for (size_t i = 0; i < hb_imageSegmentCount(image); ++i) {
 *     hb_segment_t segment;
 *     hb_imageSegment(image, i, &segment, NULL);
 *     printf("0x%08" PRIX32 ": %zu bytes\n", segment.address, segment.size);
 * }
 * hb_imageDestroy(image);
 * @endcode
 *
 * Every name starts with hb_ (functions and types) or HB_ (constants).
 *
 * - **Handles.** Images, flash plans, page walkers and checksums are opaque
 *   handles that the library creates (hb_...Create()) and destroys
 *   (hb_...Destroy(), which accepts NULL).
 * - **Errors.** Every function that can fail returns an hb_status_t, and
 *   fills the hb_error_t it is given (NULL for none) on every call: the
 *   status, the reason, and the line and address to blame where there are
 *   any; HB_OK and an empty reason on success. No C++ exception ever leaves
 *   the library: running out of memory is HB_OUT_OF_MEMORY, and what the
 *   library does not expect HB_INTERNAL. A function that fails changes
 *   nothing, unless it says otherwise.
 * - **Options** are structs whose first member is their size: initialise
 *   one with its hb_...OptionsInit() (inline, so that it knows the size the
 *   caller was built with), then set what differs from the defaults. A
 *   NULL options pointer means the defaults; options never initialised
 *   (size 0) are refused with HB_BAD_ARGUMENT. Fields added in later
 *   versions go at the end, and the library takes the defaults for those a
 *   caller's size does not reach.
 * - **Addresses** run from 0 to 0xFFFFFFFF on every platform; sizes and
 *   ends that can reach 2^32 are 64-bit.
 * - Nothing prints. The library is thread-safe as the C++ one is: a handle
 *   may be used by one thread at a time, and handles that are only read
 *   (an image being written, say) by any number.
 */
#ifndef HEXBLOCKS_HEXBLOCKS_H
#define HEXBLOCKS_HEXBLOCKS_H

#include "export.h"

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

/** @name Errors
 * @{ */

/** The kind of failure a function met; HB_OK when it met none. The values
 * never change. */
typedef enum hb_status_t {
    HB_OK = 0,             /**< it succeeded */
    HB_BAD_ARGUMENT = 1,   /**< an argument or option the function cannot take */
    HB_CANNOT_OPEN = 2,    /**< a file could not be opened or created */
    HB_CANNOT_READ = 3,    /**< reading failed, or a file changed while it was read */
    HB_CANNOT_WRITE = 4,   /**< writing a file or descriptor failed */
    HB_SYNTAX = 5,         /**< input that breaks the rules of its format */
    HB_CHECKSUM = 6,       /**< a record whose checksum is wrong */
    HB_UNSUPPORTED = 7,    /**< a record type or a kind of file the reader does not take */
    HB_UNKNOWN_FORMAT = 8, /**< input whose format cannot be told from its content */
    HB_OVERLAP = 9,        /**< two images, or two records, give different data or start addresses */
    HB_OUT_OF_RANGE = 10,  /**< an address beyond 0xFFFFFFFF, or data outside where it must lie */
    HB_TOO_LARGE = 11,     /**< more than a limit the function sets */
    HB_OUT_OF_MEMORY = 12, /**< the memory the function needs could not be had */
    HB_MISMATCH = 13,      /**< a comparison found bytes that differ or are missing */
    HB_INTERNAL = 14       /**< a failure the library did not expect; the reason says what it was */
} hb_status_t;

/** The room for a reason in hb_error_t, its final NUL included. */
#define HB_REASON_SIZE 512

/** What a function that failed reports. */
typedef struct hb_error_t {
    hb_status_t status; /**< HB_OK on success. */
    size_t line;        /**< The line of the input to blame; 0 when none is. */
    int hasAddress;     /**< Nonzero when address is set. */
    uint32_t address;   /**< The address to blame, when hasAddress. */
    /** Why it failed, one line without a final period, NUL-terminated; cut
     * (at a character boundary) where it would not fit. Empty on success. */
    char reason[HB_REASON_SIZE];
} hb_error_t;

/** @return the name of status as it is written after HB_, such as
 * "CHECKSUM"; "UNKNOWN" for a value that is none of them. */
HEXBLOCKS_API const char* hb_statusName(hb_status_t status);

/** @return the library's version, such as "0.6.0". */
HEXBLOCKS_API const char* hb_version(void);

/** Frees memory the library allocated for the caller (hb_writeMemory(),
 * hb_imageDiff()); NULL is accepted. */
HEXBLOCKS_API void hb_free(void* memory);

/** @} */

/** @name Images
 * A sparse 32-bit memory image: segments of contiguous bytes in ascending
 * address order, never overlapping or touching, and the program's start
 * address if one is known.
 * @{ */

/** An image. */
typedef struct hb_image_t hb_image_t;

/** A run of contiguous bytes. */
typedef struct hb_segment_t {
    uint32_t address;    /**< The address of the first byte. */
    size_t size;         /**< The number of bytes, at least 1. */
    const uint8_t* data; /**< The bytes: the image's own, valid until the image changes. */
} hb_segment_t;

/** The program's start address, as an input gave it. */
typedef struct hb_start_address_t {
    /** 3 (start segment address, CS:IP) or 5 (start linear address), as the
     * Intel HEX record type that gives it. */
    uint8_t type;
    /** Type 5: the address; type 3: CS in the upper, IP in the lower 16 bits. */
    uint32_t value;
} hb_start_address_t;

/** The addresses from start up to, not including, end (up to 2^32). */
typedef struct hb_range_t {
    uint32_t start; /**< The first address. */
    uint64_t end;   /**< One past the last address, up to 2^32. */
} hb_range_t;

/** Makes an empty image. */
HEXBLOCKS_API hb_status_t hb_imageCreate(hb_image_t** image, hb_error_t* error);

/** Makes a copy of image, with its start address and header. */
HEXBLOCKS_API hb_status_t hb_imageClone(const hb_image_t* image, hb_image_t** copy, hb_error_t* error);

/** Destroys an image; NULL is accepted. */
HEXBLOCKS_API void hb_imageDestroy(hb_image_t* image);

/** @return the number of segments. */
HEXBLOCKS_API size_t hb_imageSegmentCount(const hb_image_t* image);

/** The segment at index, lowest address first.
 * @return HB_BAD_ARGUMENT for an index past the last segment. */
HEXBLOCKS_API hb_status_t hb_imageSegment(const hb_image_t* image, size_t index, hb_segment_t* segment,
                                          hb_error_t* error);

/** @return nonzero when the image holds no data (it may have a start address). */
HEXBLOCKS_API int hb_imageEmpty(const hb_image_t* image);

/** @return the address of the first data byte; 0 for an empty image. */
HEXBLOCKS_API uint32_t hb_imageLowestAddress(const hb_image_t* image);

/** @return the address of the last data byte; 0 for an empty image. */
HEXBLOCKS_API uint32_t hb_imageHighestAddress(const hb_image_t* image);

/** @return the addresses from the lowest to the highest, both included
 * (up to 2^32); 0 for an empty image. */
HEXBLOCKS_API uint64_t hb_imageSpan(const hb_image_t* image);

/** @return the number of data bytes (up to 2^32). */
HEXBLOCKS_API uint64_t hb_imageDataSize(const hb_image_t* image);

/** @return nonzero when address holds data. */
HEXBLOCKS_API int hb_imageHasDataAt(const hb_image_t* image, uint32_t address);

/** Copies size bytes from address on into out; addresses without data
 * (those past 0xFFFFFFFF too) give fill. */
HEXBLOCKS_API void hb_imageCopyRange(const hb_image_t* image, uint32_t address, size_t size, uint8_t fill,
                                     void* out);

/** @return nonzero, with *start set, when the image has a start address. */
HEXBLOCKS_API int hb_imageStartAddress(const hb_image_t* image, hb_start_address_t* start);

/** Sets the start address.
 * @return HB_BAD_ARGUMENT for a type other than 3 and 5. */
HEXBLOCKS_API hb_status_t hb_imageSetStartAddress(hb_image_t* image, const hb_start_address_t* start,
                                                  hb_error_t* error);

/** Removes the start address. */
HEXBLOCKS_API void hb_imageClearStartAddress(hb_image_t* image);

/** @return the header (an S-record file's S0 record), with *size set to its
 * length; valid until the image changes. */
HEXBLOCKS_API const uint8_t* hb_imageHeader(const hb_image_t* image, size_t* size);

/** Sets the header that S-record output carries.
 * @return HB_TOO_LARGE for more than 252 bytes. */
HEXBLOCKS_API hb_status_t hb_imageSetHeader(hb_image_t* image, const void* header, size_t size, hb_error_t* error);

/** Places size bytes at address, replacing any data there.
 * @return HB_OUT_OF_RANGE when they would run past 0xFFFFFFFF. */
HEXBLOCKS_API hb_status_t hb_imageWrite(hb_image_t* image, uint32_t address, const void* data, size_t size,
                                        hb_error_t* error);

/** Removes all data, the start address and the header. */
HEXBLOCKS_API void hb_imageClear(hb_image_t* image);

/** @} */

/** @name Merging and editing
 * @{ */

/** What hb_imageMerge() does where both images give data. */
typedef enum hb_overlap_policy_t {
    HB_OVERLAP_ERROR = 0,    /**< fail at the lowest such address */
    HB_OVERLAP_FIRST = 1,    /**< keep the image's bytes */
    HB_OVERLAP_LAST = 2,     /**< take the other image's */
    HB_OVERLAP_IDENTICAL = 3 /**< accept equal bytes, fail at the lowest that differs */
} hb_overlap_policy_t;

/** What hb_imageMerge() does with the start addresses. */
typedef enum hb_start_policy_t {
    HB_START_ERROR = 0, /**< fail when both give one and they differ */
    HB_START_FIRST = 1, /**< keep the image's, or take the other's when the image has none */
    HB_START_LAST = 2,  /**< take the other's when it gives one */
    HB_START_DROP = 3   /**< the result has none */
} hb_start_policy_t;

/** How hb_imageMerge() combines two images. */
typedef struct hb_merge_options_t {
    size_t size;                 /**< sizeof(hb_merge_options_t), set by hb_mergeOptionsInit(). */
    hb_overlap_policy_t overlap; /**< Default HB_OVERLAP_ERROR. */
    hb_start_policy_t start;     /**< Default HB_START_ERROR. */
} hb_merge_options_t;

/** The default merge options. */
static inline void hb_mergeOptionsInit(hb_merge_options_t* options)
{
    memset(options, 0, sizeof *options);
    options->size = sizeof *options;
}

/** Adds the data of other, which comes later, to image, as the options say.
 * The image keeps its header, or takes other's when it has none.
 * @return HB_OVERLAP for a clash, with the lowest address of a data clash. */
HEXBLOCKS_API hb_status_t hb_imageMerge(hb_image_t* image, const hb_image_t* other,
                                        const hb_merge_options_t* options, hb_error_t* error);

/** Moves the data by delta (negative: down); a start address moves with it
 * and becomes linear (type 5).
 * @return HB_OUT_OF_RANGE when a byte or the start address would leave 0 to
 * 0xFFFFFFFF. */
HEXBLOCKS_API hb_status_t hb_imageOffset(hb_image_t* image, int64_t delta, hb_error_t* error);

/** Keeps only the data inside the count ranges (their union). */
HEXBLOCKS_API hb_status_t hb_imageCrop(hb_image_t* image, const hb_range_t* ranges, size_t count,
                                       hb_error_t* error);

/** Removes the data inside range. */
HEXBLOCKS_API hb_status_t hb_imageExclude(hb_image_t* image, hb_range_t range, hb_error_t* error);

/** Gives fill to every address in range that holds no data. */
HEXBLOCKS_API hb_status_t hb_imageFillRange(hb_image_t* image, hb_range_t range, uint8_t fill, hb_error_t* error);

/** Reverses the bytes of each aligned word of wordSize bytes (2 or 4).
 * @return HB_BAD_ARGUMENT, naming the first address, when some data does not
 * lie in whole words, or for another size. */
HEXBLOCKS_API hb_status_t hb_imageSwapBytes(hb_image_t* image, unsigned wordSize, hb_error_t* error);

/** @} */

/** @name Verify and diff
 * @{ */

/** A data byte that a read-back dump does not match. */
typedef struct hb_mismatch_t {
    uint32_t address; /**< Where. */
    uint8_t expected; /**< The image's byte. */
    uint8_t found;    /**< The dump's byte. */
} hb_mismatch_t;

/** What hb_imageVerify() and hb_imageVerifyFile() found. */
typedef struct hb_verify_result_t {
    uint64_t compared;        /**< Data bytes that lie in the dump, compared. */
    uint64_t mismatches;      /**< Of those, the bytes that differ. */
    uint64_t notCovered;      /**< Data bytes outside the dump. */
    uint32_t firstNotCovered; /**< The lowest of those, when there are any. */
    size_t listed;            /**< The mismatches written to the caller's array. */
} hb_verify_result_t;

/** Compares every data byte of image with the byte at the same address of
 * a dump of size bytes read back from address (a flash read-out). The
 * lowest mismatches, up to capacity of them, go to first (NULL when
 * capacity is 0).
 * @return HB_OK when every data byte lies in the dump and matches,
 * HB_MISMATCH when not; *result is filled in both cases. */
HEXBLOCKS_API hb_status_t hb_imageVerify(const hb_image_t* image, const void* dump, size_t size, uint32_t address,
                                         hb_verify_result_t* result, hb_mismatch_t* first, size_t capacity,
                                         hb_error_t* error);

/** As hb_imageVerify(), with the dump read from the file at path, a piece
 * at a time.
 * @return also HB_CANNOT_OPEN or HB_CANNOT_READ, with the counts up to the
 * failure. */
HEXBLOCKS_API hb_status_t hb_imageVerifyFile(const hb_image_t* image, const char* path, uint32_t address,
                                             hb_verify_result_t* result, hb_mismatch_t* first, size_t capacity,
                                             hb_error_t* error);

/** How two images differ in a range. */
typedef enum hb_difference_kind_t {
    HB_ONLY_IMAGE = 0, /**< only the image has data */
    HB_ONLY_OTHER = 1, /**< only the other image has data */
    HB_DIFFER = 2      /**< both have data, and some bytes differ */
} hb_difference_kind_t;

/** A range of addresses where two images differ. */
typedef struct hb_difference_t {
    hb_difference_kind_t kind; /**< How they differ. */
    uint32_t start;            /**< The first address. */
    uint64_t end;              /**< One past the last address, up to 2^32. */
    /** HB_ONLY_IMAGE, HB_ONLY_OTHER: the size of the range; HB_DIFFER: the
     * bytes that differ in it. */
    uint64_t bytes;
} hb_difference_t;

/** How hb_imageDiff() reports differing bytes. */
typedef struct hb_diff_options_t {
    size_t size; /**< sizeof(hb_diff_options_t), set by hb_diffOptionsInit(). */
    /** Differing bytes separated by at most this many equal ones share a
     * range; 0 gives every run its own. Default 16. */
    uint32_t join;
} hb_diff_options_t;

/** The default diff options. */
static inline void hb_diffOptionsInit(hb_diff_options_t* options)
{
    memset(options, 0, sizeof *options);
    options->size = sizeof *options;
    options->join = 16;
}

/** Compares image with other: the ranges where only one has data, those
 * where both have data and bytes differ, in address order, in an array
 * the library allocates (*ranges, to free with hb_free(); NULL when
 * *count is 0); and whether the start addresses differ (*startDiffers;
 * compared by the address they stand for). Headers are not compared. */
HEXBLOCKS_API hb_status_t hb_imageDiff(const hb_image_t* image, const hb_image_t* other,
                                       const hb_diff_options_t* options, hb_difference_t** ranges, size_t* count,
                                       int* startDiffers, hb_error_t* error);

/** @} */

/** @name Formats
 * @{ */

/** The file formats. The values never change. */
typedef enum hb_format_t {
    HB_FORMAT_INTEL_HEX = 0,    /**< Intel HEX (read and written) */
    HB_FORMAT_SRECORD = 1,      /**< Motorola S-records (read and written) */
    HB_FORMAT_BINARY = 2,       /**< raw bytes (read at an address; written from the lowest to the highest) */
    HB_FORMAT_ELF = 3,          /**< ELF (read) */
    HB_FORMAT_UF2 = 4,          /**< UF2 (read and written) */
    HB_FORMAT_TI_TXT = 5,       /**< TI-TXT (read and written) */
    HB_FORMAT_VERILOG = 6,      /**< Verilog memory file, VMEM (read and written) */
    HB_FORMAT_MIF = 7,          /**< Intel MIF (read and written) */
    HB_FORMAT_COE = 8,          /**< Xilinx COE (written) */
    HB_FORMAT_C_ARRAY = 9,      /**< a C header with arrays (written) */
    HB_FORMAT_INTEL_HEX_16 = 10 /**< Intel HEX in 16-bit words, INHX16 (read and written) */
} hb_format_t;

/** What the library knows of a format. */
typedef struct hb_format_info_t {
    const char* name;       /**< The word that names it: "ihex", "srec", "ti-txt", ... */
    const char* title;      /**< How people call it: "Intel HEX". */
    const char* extensions; /**< Its file extensions, separated by spaces; "" for none. */
    int readable;           /**< Images are read from it. */
    int writable;           /**< Images are written in it. */
} hb_format_info_t;

/** Describes format (strings of static storage).
 * @return HB_BAD_ARGUMENT for a value that is no format. */
HEXBLOCKS_API hb_status_t hb_formatInfo(hb_format_t format, hb_format_info_t* info, hb_error_t* error);

/** The format a word names ("ihex", "srec", "bin", "ti-txt", ...).
 * @return HB_BAD_ARGUMENT, listing the words, for another word. */
HEXBLOCKS_API hb_status_t hb_formatByName(const char* name, hb_format_t* format, hb_error_t* error);

/** The format a file name's extension stands for, in any case.
 * @return HB_UNKNOWN_FORMAT for a name without such an extension. */
HEXBLOCKS_API hb_status_t hb_formatByExtension(const char* path, hb_format_t* format, hb_error_t* error);

/** The format the first size bytes of an input show.
 * @return HB_UNKNOWN_FORMAT when they fit none, or more than one (see
 * hb_recogniseFormats()). */
HEXBLOCKS_API hb_status_t hb_detectFormat(const void* head, size_t size, hb_format_t* format, hb_error_t* error);

/** Every format the first size bytes of an input fit, in the order
 * detection tries them: up to capacity of them go to formats.
 * @return how many there are (more than capacity when they did not all fit). */
HEXBLOCKS_API size_t hb_recogniseFormats(const void* head, size_t size, hb_format_t* formats, size_t capacity);

/** @return the name of a UF2 family ("rp2040" for 0xE48BFF56), of static
 * storage; NULL for an ID the family list does not name. */
HEXBLOCKS_API const char* hb_uf2FamilyName(uint32_t id);

/** The ID of a UF2 family, by name ("rp2040") or number ("0xE48BFF56").
 * @return HB_BAD_ARGUMENT for another word. */
HEXBLOCKS_API hb_status_t hb_uf2FamilyByName(const char* name, uint32_t* id, hb_error_t* error);

/** @} */

/** @name Reading
 * @{ */

/** How reading takes its input. */
typedef struct hb_read_options_t {
    size_t size;        /**< sizeof(hb_read_options_t), set by hb_readOptionsInit(). */
    int detect;         /**< Tell the format from the content (default); else take format. */
    hb_format_t format; /**< The format, when detect is 0. */
    uint32_t address;   /**< Where binary input is placed. */
    unsigned wordWidth; /**< Verilog memory files: bits in a word, 8 (default), 16, 32 or 64. */
    /** Nonzero to apply overlap to records that give the same byte;
     * without it the first value is kept, with a warning. */
    int hasOverlap;
    hb_overlap_policy_t overlap; /**< When hasOverlap. */
    int hasFamily;               /**< UF2: nonzero to read only the blocks of family. */
    uint32_t family;             /**< When hasFamily. */
    /** Called for each warning, in order, with context, the line (0 for the
     * whole input) and the message; NULL to ignore them. */
    void (*warning)(void* context, size_t line, const char* message);
    void* context; /**< Handed to warning. */
} hb_read_options_t;

/** The default read options: the format told from the content. */
static inline void hb_readOptionsInit(hb_read_options_t* options)
{
    memset(options, 0, sizeof *options);
    options->size = sizeof *options;
    options->detect = 1;
    options->wordWidth = 8;
}

/** Reads the file at path into image (replacing what it held; on failure it
 * is left as it was). The line to blame is set for a failure in a text
 * format. */
HEXBLOCKS_API hb_status_t hb_readFile(hb_image_t* image, const char* path, const hb_read_options_t* options,
                                      hb_error_t* error);

/** As hb_readFile(), from size bytes in memory. */
HEXBLOCKS_API hb_status_t hb_readMemory(hb_image_t* image, const void* data, size_t size,
                                        const hb_read_options_t* options, hb_error_t* error);

/** As hb_readFile(), from what is left to read of an open descriptor (a
 * pipe, a socket, standard input, a file from its current offset), read to
 * its end. The descriptor is not closed. */
HEXBLOCKS_API hb_status_t hb_readFd(hb_image_t* image, int fd, const hb_read_options_t* options, hb_error_t* error);

/** The line of the record that gives the byte at address in a text input
 * (Intel HEX, S-records, ...), as reading takes it.
 * @return nonzero with *line set; 0 when no record gives it, the input
 * cannot be read, or the format has no lines. */
HEXBLOCKS_API int hb_findLineInFile(const char* path, uint32_t address, const hb_read_options_t* options,
                                    size_t* line);

/** As hb_findLineInFile(), in size bytes of input in memory. */
HEXBLOCKS_API int hb_findLineInMemory(const void* data, size_t size, uint32_t address,
                                      const hb_read_options_t* options, size_t* line);

/** @} */

/** @name Writing
 * @{ */

/** Intel HEX address records. */
typedef enum hb_addressing_t {
    HB_ADDRESSING_LINEAR = 0, /**< extended linear address records (type 04) */
    HB_ADDRESSING_SEGMENT = 1 /**< extended segment address records (type 02): the first MiB only */
} hb_addressing_t;

/** How an image is written. */
typedef struct hb_write_options_t {
    size_t size;                /**< sizeof(hb_write_options_t), set by hb_writeOptionsInit(). */
    hb_format_t format;         /**< Default HB_FORMAT_INTEL_HEX. */
    unsigned recordSize;        /**< Data bytes per record (default 16). */
    hb_addressing_t addressing; /**< Intel HEX (default linear). */
    /** S-records: address bytes 2, 3 or 4; 0 (default) for the smallest that
     * holds every address. */
    unsigned addressSize;
    int crlf;           /**< End lines with CR LF. */
    uint8_t fill;       /**< The byte where there is no data (default 0xFF). */
    unsigned wordWidth; /**< Verilog, MIF, COE: bits in a word, 8 (default), 16, 32 or 64. */
    int hasFamily;      /**< UF2: nonzero to name family in every block. */
    uint32_t family;    /**< When hasFamily. */
    const char* name;   /**< C arrays: the prefix of every name; NULL for "image". */
} hb_write_options_t;

/** The default write options: Intel HEX, 16-byte records. */
static inline void hb_writeOptionsInit(hb_write_options_t* options)
{
    memset(options, 0, sizeof *options);
    options->size = sizeof *options;
    options->recordSize = 16;
    options->fill = 0xFF;
    options->wordWidth = 8;
}

/** Writes image to the file at path through a temporary file renamed into
 * place: a failure leaves no partial file, and an existing one as it was. */
HEXBLOCKS_API hb_status_t hb_writeFile(const hb_image_t* image, const char* path,
                                       const hb_write_options_t* options, hb_error_t* error);

/** Writes image to memory the library allocates: *data (free it with
 * hb_free()) of *size bytes. */
HEXBLOCKS_API hb_status_t hb_writeMemory(const hb_image_t* image, const hb_write_options_t* options, void** data,
                                         size_t* size, hb_error_t* error);

/** Writes image to an open descriptor (a pipe, a socket, standard output),
 * which is not closed. Bad options write nothing; a failed write may leave
 * part of the output written. */
HEXBLOCKS_API hb_status_t hb_writeFd(const hb_image_t* image, int fd, const hb_write_options_t* options,
                                     hb_error_t* error);

/** Writes the binary file at input, placed at address, to the file at
 * output as reading and writing it would, a piece at a time: memory stays
 * at a few MiB however large the file. */
HEXBLOCKS_API hb_status_t hb_convertBinaryFile(const char* input, uint32_t address, const char* output,
                                               const hb_write_options_t* options, hb_error_t* error);

/** @} */

/** @name Checksums
 * @{ */

/** The parameters of a CRC. */
typedef struct hb_crc_model_t {
    unsigned width;  /**< 8, 16 or 32 bits. */
    uint32_t poly;   /**< The polynomial, without its top bit. */
    uint32_t init;   /**< The register before the first byte. */
    int reflectIn;   /**< Each input byte is taken least significant bit first. */
    int reflectOut;  /**< The register is reflected before the final XOR. */
    uint32_t xorOut; /**< XORed into the result. */
} hb_crc_model_t;

/** A named checksum algorithm. */
typedef struct hb_algorithm_info_t {
    const char* name; /**< "crc32", "crc16-xmodem", "stm32", "sum8", ... */
    unsigned size;    /**< The bytes of its value: 1, 2 or 4. */
    uint32_t check;   /**< Its value for the nine ASCII bytes "123456789". */
} hb_algorithm_info_t;

/** A running checksum. */
typedef struct hb_checksum_t hb_checksum_t;

/** How hb_checksumInsert() stores a value. */
typedef enum hb_byte_order_t {
    HB_LITTLE_ENDIAN = 0, /**< least significant byte first */
    HB_BIG_ENDIAN = 1     /**< most significant byte first */
} hb_byte_order_t;

/** @return the number of named algorithms. */
HEXBLOCKS_API size_t hb_algorithmCount(void);

/** Describes the named algorithm at index (strings of static storage).
 * @return HB_BAD_ARGUMENT for an index past the last. */
HEXBLOCKS_API hb_status_t hb_algorithmInfo(size_t index, hb_algorithm_info_t* info, hb_error_t* error);

/** Starts a checksum of a named algorithm. padding is the byte the stm32
 * algorithm pads a last partial word with (0xFF is usual).
 * @return HB_BAD_ARGUMENT for an unknown name. */
HEXBLOCKS_API hb_status_t hb_checksumCreate(hb_checksum_t** checksum, const char* algorithm, uint8_t padding,
                                            hb_error_t* error);

/** Starts a CRC of the given parameters.
 * @return HB_BAD_ARGUMENT for a width other than 8, 16 and 32, or values
 * that do not fit in it. */
HEXBLOCKS_API hb_status_t hb_checksumCreateCrc(hb_checksum_t** checksum, const hb_crc_model_t* model,
                                               hb_error_t* error);

/** Destroys a checksum; NULL is accepted. */
HEXBLOCKS_API void hb_checksumDestroy(hb_checksum_t* checksum);

/** Adds size bytes. */
HEXBLOCKS_API void hb_checksumUpdate(hb_checksum_t* checksum, const void* data, size_t size);

/** Adds count copies of byte. */
HEXBLOCKS_API void hb_checksumUpdateFill(hb_checksum_t* checksum, uint8_t byte, uint64_t count);

/** Adds the bytes of image in range, fill where there is no data. */
HEXBLOCKS_API void hb_checksumUpdateImage(hb_checksum_t* checksum, const hb_image_t* image, hb_range_t range,
                                          uint8_t fill);

/** @return the value of the bytes added so far; more may be added after. */
HEXBLOCKS_API uint32_t hb_checksumValue(const hb_checksum_t* checksum);

/** @return the bytes of the value: 1, 2 or 4. */
HEXBLOCKS_API unsigned hb_checksumSize(const hb_checksum_t* checksum);

/** Starts again with no bytes. */
HEXBLOCKS_API void hb_checksumReset(hb_checksum_t* checksum);

/** Computes a named algorithm over range of image (fill where there is no
 * data, and as stm32's padding) and writes the value at address in order,
 * replacing any data there.
 * @return HB_BAD_ARGUMENT when the value would lie inside range, or for an
 * unknown name; HB_OUT_OF_RANGE when it would run past 0xFFFFFFFF. */
HEXBLOCKS_API hb_status_t hb_checksumInsert(hb_image_t* image, const char* algorithm, hb_range_t range, uint8_t fill,
                                            uint32_t address, hb_byte_order_t order, hb_error_t* error);

/** As hb_checksumInsert(), with a CRC of the given parameters. */
HEXBLOCKS_API hb_status_t hb_checksumInsertCrc(hb_image_t* image, const hb_crc_model_t* model, hb_range_t range,
                                               uint8_t fill, uint32_t address, hb_byte_order_t order,
                                               hb_error_t* error);

/** @} */

/** @name Flash plans
 * Which sectors of a flash to erase and which pages to program for an
 * image, blank pages left out.
 * @{ */

/** A flash plan. */
typedef struct hb_flash_plan_t hb_flash_plan_t;

/** The pages a plan programs, one at a time. */
typedef struct hb_page_walker_t hb_page_walker_t;

/** How a plan lays an image out. */
typedef struct hb_plan_options_t {
    size_t size;       /**< sizeof(hb_plan_options_t), set by hb_planOptionsInit(). */
    uint32_t pageSize; /**< The program unit in bytes (default 256). */
    uint8_t erased;    /**< The value of an erased byte (default 0xFF). */
    int keepBlank;     /**< Program pages that hold erased bytes only too. */
} hb_plan_options_t;

/** The default plan options: 256-byte pages, erased bytes 0xFF. */
static inline void hb_planOptionsInit(hb_plan_options_t* options)
{
    memset(options, 0, sizeof *options);
    options->size = sizeof *options;
    options->pageSize = 256;
    options->erased = 0xFF;
}

/** A sector to erase. */
typedef struct hb_sector_t {
    uint32_t address; /**< Its first address. */
    uint32_t size;    /**< Its size in bytes. */
    int partial;      /**< Some of its addresses hold no data, and are erased. */
} hb_sector_t;

/** Plans flashing image onto the sectors that text such as
 * "0x08000000:4x16K,1x64K,7x128K" gives: the start address, a colon, and
 * groups COUNTxSIZE (sizes may end in K or M).
 * @return HB_SYNTAX for text of another form; HB_BAD_ARGUMENT for a
 * geometry that cannot be (pages that do not divide the sectors, sectors
 * past 2^32); HB_OUT_OF_RANGE, naming the lowest address, for data outside
 * the sectors. */
HEXBLOCKS_API hb_status_t hb_flashPlanCreate(hb_flash_plan_t** plan, const hb_image_t* image, const char* sectors,
                                             const hb_plan_options_t* options, hb_error_t* error);

/** Destroys a plan; NULL is accepted. */
HEXBLOCKS_API void hb_flashPlanDestroy(hb_flash_plan_t* plan);

/** The flash the plan was made for: the start of its first sector, one past
 * the end of its last (up to 2^32), the page size and the erased value. */
HEXBLOCKS_API void hb_flashPlanGeometry(const hb_flash_plan_t* plan, uint32_t* start, uint64_t* end,
                                        uint32_t* pageSize, uint8_t* erased);

/** @return the sectors to erase in address order, *count of them; valid
 * until the plan is destroyed. */
HEXBLOCKS_API const hb_sector_t* hb_flashPlanEraseList(const hb_flash_plan_t* plan, size_t* count);

/** @return the pages to program in address order, as ranges of whole
 * pages, *count of them; valid until the plan is destroyed. */
HEXBLOCKS_API const hb_range_t* hb_flashPlanWriteList(const hb_flash_plan_t* plan, size_t* count);

/** @return the sectors to erase that the image does not fill. */
HEXBLOCKS_API uint64_t hb_flashPlanPartialSectors(const hb_flash_plan_t* plan);

/** @return the bytes of the sectors to erase. */
HEXBLOCKS_API uint64_t hb_flashPlanEraseBytes(const hb_flash_plan_t* plan);

/** @return the pages to program. */
HEXBLOCKS_API uint64_t hb_flashPlanWritePages(const hb_flash_plan_t* plan);

/** @return the bytes of the pages to program. */
HEXBLOCKS_API uint64_t hb_flashPlanWriteBytes(const hb_flash_plan_t* plan);

/** @return the pages with data left out because they hold erased bytes only. */
HEXBLOCKS_API uint64_t hb_flashPlanSkippedBlank(const hb_flash_plan_t* plan);

/** Walks the pages plan programs over image, which must be the image the
 * plan was made for: both must outlive the walker and stay unchanged. One
 * page is held at a time. */
HEXBLOCKS_API hb_status_t hb_pageWalkerCreate(hb_page_walker_t** walker, const hb_image_t* image,
                                              const hb_flash_plan_t* plan, hb_error_t* error);

/** Destroys a page walker; NULL is accepted. */
HEXBLOCKS_API void hb_pageWalkerDestroy(hb_page_walker_t* walker);

/** Moves to the next page.
 * @return nonzero when there is one; 0 when the pages are done. */
HEXBLOCKS_API int hb_pageWalkerNext(hb_page_walker_t* walker);

/** @return the address of the current page. */
HEXBLOCKS_API uint32_t hb_pageWalkerAddress(const hb_page_walker_t* walker);

/** @return the bytes of the current page: the image's, the erased value
 * where it has no data; valid until the next hb_pageWalkerNext(). */
HEXBLOCKS_API const uint8_t* hb_pageWalkerData(const hb_page_walker_t* walker);

/** @return the page size. */
HEXBLOCKS_API size_t hb_pageWalkerSize(const hb_page_walker_t* walker);

/** @} */

#ifdef __cplusplus
}
#endif

#endif /* HEXBLOCKS_HEXBLOCKS_H */
