/* Programs a firmware image into a simulated NOR flash the way a flasher
 * does, through the C API: plan, erase the sectors that hold data, program
 * page by page, then read the flash back and verify it. The same program as
 * flash_program.cpp, for flashers written in C.
 *
 *   flash_program_c FIRMWARE SECTORS READBACK.bin [PAGE_SIZE]
 *
 * FIRMWARE is in any format the library reads (told by the content);
 * SECTORS as "0x08000000:4x16K,1x64K,7x128K". The simulated flash starts
 * out holding an old firmware (0xA5 everywhere); erasing sets a sector to
 * the erased value, and programming can only clear bits, as on real NOR
 * flash. The read-back of the whole flash goes to READBACK.bin. */
#include <hexblocks/hexblocks.h>

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The simulated device: every cell of the flash. */
typedef struct nor_flash_t {
    uint32_t start;
    size_t size;
    uint8_t* cells;
} nor_flash_t;

static void eraseSector(nor_flash_t* flash, uint32_t address, uint32_t size, uint8_t erased)
{
    memset(flash->cells + (address - flash->start), erased, size);
}

static void programPage(nor_flash_t* flash, uint32_t address, const uint8_t* data, size_t size)
{
    size_t i;
    for (i = 0; i < size; ++i)
        flash->cells[address - flash->start + i] &= data[i]; /* bits only go from 1 to 0 */
}

/* Plans, erases, programs and verifies; returns the exit status. */
static int program(const hb_image_t* image, const char* firmware, const char* sectors, const char* readback,
                   const hb_plan_options_t* options)
{
    hb_flash_plan_t* plan = NULL;
    hb_page_walker_t* pages = NULL;
    hb_verify_result_t verified;
    hb_error_t error;
    const hb_sector_t* erase;
    nor_flash_t flash;
    uint64_t end;
    uint8_t erased;
    size_t count, i;
    int status = 1;
    FILE* out;

    /* 1. Plan. */
    if (hb_flashPlanCreate(&plan, image, sectors, options, &error) != HB_OK) {
        fprintf(stderr, "%s: %s\n", error.status == HB_OUT_OF_RANGE ? firmware : sectors, error.reason);
        return error.status == HB_OUT_OF_RANGE ? 1 : 2;
    }
    hb_flashPlanGeometry(plan, &flash.start, &end, NULL, &erased);
    flash.size = (size_t)(end - flash.start);
    flash.cells = malloc(flash.size);
    if (flash.cells == NULL) {
        fprintf(stderr, "out of memory\n");
        goto done;
    }
    memset(flash.cells, 0xA5, flash.size);

    /* 2. Erase, then program page by page: one page in memory at a time. */
    erase = hb_flashPlanEraseList(plan, &count);
    for (i = 0; i < count; ++i) {
        if (erase[i].partial)
            printf("sector 0x%08" PRIX32 " is partial: its bytes without data are erased\n", erase[i].address);
        eraseSector(&flash, erase[i].address, erase[i].size, erased);
    }
    if (hb_pageWalkerCreate(&pages, image, plan, &error) != HB_OK) {
        fprintf(stderr, "%s\n", error.reason);
        goto done;
    }
    while (hb_pageWalkerNext(pages))
        programPage(&flash, hb_pageWalkerAddress(pages), hb_pageWalkerData(pages), hb_pageWalkerSize(pages));

    /* 3. Read back and verify. */
    hb_imageVerify(image, flash.cells, flash.size, flash.start, &verified, NULL, 0, &error);
    printf("programmed %" PRIu64 " pages, %" PRIu64 " bytes compared, %" PRIu64 " mismatches: %s\n",
           hb_flashPlanWritePages(plan), verified.compared, verified.mismatches,
           error.status == HB_OK ? "OK" : "FAILED");
    out = fopen(readback, "wb");
    if (out == NULL || fwrite(flash.cells, 1, flash.size, out) != flash.size || fclose(out) != 0) {
        fprintf(stderr, "%s: cannot write the read-back\n", readback);
        goto done;
    }
    status = error.status == HB_OK ? 0 : 1;
done:
    hb_pageWalkerDestroy(pages);
    hb_flashPlanDestroy(plan);
    free(flash.cells);
    return status;
}

int main(int argc, char** argv)
{
    hb_image_t* image = NULL;
    hb_plan_options_t options;
    hb_error_t error;
    int status;
    if (argc < 4 || argc > 5) {
        fprintf(stderr, "usage: %s FIRMWARE SECTORS READBACK.bin [PAGE_SIZE]\n", argv[0]);
        return 2;
    }
    hb_planOptionsInit(&options);
    if (argc == 5)
        options.pageSize = (uint32_t)strtoul(argv[4], NULL, 0);
    if (hb_imageCreate(&image, &error) != HB_OK || hb_readFile(image, argv[1], NULL, &error) != HB_OK) {
        fprintf(stderr, "%s:%zu: %s\n", argv[1], error.line, error.reason);
        hb_imageDestroy(image);
        return 1;
    }
    status = program(image, argv[1], argv[2], argv[3], &options);
    hb_imageDestroy(image);
    return status;
}
