// Programs a firmware image into a simulated NOR flash the way a flasher
// does: plan, erase the sectors that hold data, program page by page, then
// read the flash back and verify it.
//
//   flash_program FIRMWARE SECTORS READBACK.bin [PAGE_SIZE]
//
// FIRMWARE is Intel HEX, S-records, ELF (told by the content); SECTORS as
// "0x08000000:4x16K,1x64K,7x128K". The simulated flash starts out holding
// an old firmware (0xA5 everywhere); erasing sets a sector to 0xFF, and
// programming can only clear bits, as on real NOR flash. The read-back of
// the whole flash goes to READBACK.bin, for `hexblocks verify`.
#include <hexblocks/flash_plan.h>
#include <hexblocks/formats.h>
#include <hexblocks/memory_image.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

// The simulated device.
class NorFlash {
public:
    explicit NorFlash(const hexblocks::FlashPlan::geometry_t& geometry)
        : start_(geometry.start), erased_(geometry.erased),
          cells_(static_cast<size_t>(geometry.end() - geometry.start), 0xA5)
    {
    }

    void eraseSector(uint32_t address, uint32_t size)
    {
        std::fill_n(cells_.begin() + (address - start_), size, erased_);
    }

    void programPage(uint32_t address, const uint8_t* data, size_t size)
    {
        for (size_t i = 0; i < size; ++i)
            cells_[address - start_ + i] &= data[i]; // bits only go from 1 to 0
    }

    const std::vector<uint8_t>& readBack() const { return cells_; }

private:
    uint32_t start_;
    uint8_t erased_;
    std::vector<uint8_t> cells_;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4 || argc > 5) {
        std::fprintf(stderr, "usage: %s FIRMWARE SECTORS READBACK.bin [PAGE_SIZE]\n", argv[0]);
        return 2;
    }
    hexblocks::MemoryImage image;
    const hexblocks::read_result_t read = hexblocks::readFile(image, argv[1]);
    if (!read) {
        std::fprintf(stderr, "%s:%zu: %s\n", argv[1], read.line, read.reason.c_str());
        return 1;
    }
    hexblocks::FlashPlan::geometry_t geometry;
    if (argc == 5)
        geometry.pageSize = static_cast<uint32_t>(std::strtoul(argv[4], nullptr, 0));
    const hexblocks::result_t parsed = hexblocks::FlashPlan::parseSectors(argv[2], geometry);
    if (!parsed) {
        std::fprintf(stderr, "%s: %s\n", argv[2], parsed.reason.c_str());
        return 2;
    }

    // 1. Plan.
    hexblocks::FlashPlan plan;
    const hexblocks::result_t made = plan.make(image, geometry);
    if (!made) {
        std::fprintf(stderr, "%s: %s\n", argv[1], made.reason.c_str());
        return 1;
    }

    // 2. Erase, then program page by page: one page in memory at a time.
    NorFlash flash(geometry);
    for (const hexblocks::FlashPlan::sector_t& sector : plan.eraseList()) {
        if (sector.partial)
            std::printf("sector 0x%08X is partial: its bytes without data are erased\n",
                        static_cast<unsigned>(sector.address));
        flash.eraseSector(sector.address, sector.size);
    }
    hexblocks::FlashPlan::PageWalker pages(image, plan);
    while (pages.next())
        flash.programPage(pages.address(), pages.data(), pages.size());

    // 3. Read back and verify.
    const std::vector<uint8_t>& cells = flash.readBack();
    const hexblocks::verify_result_t verified = image.verify(cells.data(), cells.size(), geometry.start);
    std::printf("programmed %llu pages, %llu bytes compared, %llu mismatches: %s\n",
                static_cast<unsigned long long>(plan.writePages()),
                static_cast<unsigned long long>(verified.compared),
                static_cast<unsigned long long>(verified.mismatches), verified ? "OK" : "FAILED");
    std::FILE* out = std::fopen(argv[3], "wb");
    bool written = out != nullptr && std::fwrite(cells.data(), 1, cells.size(), out) == cells.size();
    if (out != nullptr && std::fclose(out) != 0)
        written = false;
    if (!written) {
        std::fprintf(stderr, "%s: cannot write the read-back\n", argv[3]);
        return 1;
    }
    return verified ? 0 : 1;
}
