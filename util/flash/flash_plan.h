/// @file flash_plan.h
/// Laying an image out on flash memory: which sectors to erase and which
/// pages to program, with blank pages left out.
///
/// @code
/// #include <hexblocks/flash_plan.h>
///
/// using namespace hexblocks;
/// // An STM32F4: four 16 KiB sectors, one of 64 KiB, seven of 128 KiB.
/// FlashPlan::geometry_t geometry;
/// if (!FlashPlan::parseSectors("0x08000000:4x16K,1x64K,7x128K", geometry)) ...
/// geometry.pageSize = 256;
///
/// FlashPlan plan;
/// const result_t made = plan.make(image, geometry);
/// if (!made) {
///     std::fprintf(stderr, "%s\n", made.reason.c_str()); // e.g. data outside the flash
///     return 1;
/// }
/// for (const FlashPlan::sector_t& s : plan.eraseList())
///     eraseSector(s.address);                   // s.partial: bytes without data are lost
/// FlashPlan::PageWalker pages(image, plan);    // one page in memory at a time
/// while (pages.next())
///     programPage(pages.address(), pages.data(), pages.size());
/// @endcode
///
/// Nothing here prints; failures carry a status and a reason (result.h). Addresses run up to
/// 0xFFFFFFFF, and sizes that can reach 2^32 are 64-bit.
#ifndef HEXBLOCKS_FLASH_PLAN_H
#define HEXBLOCKS_FLASH_PLAN_H

#include "memory_image.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hexblocks {

/// Which sectors of a flash to erase and which pages to program for an image.
///
/// The flash is one run of sectors (erase units) from a start address; a
/// sector is a whole number of pages (program units), and pages are aligned
/// to their size. A plan erases every sector that holds at least one data
/// byte and programs every page that does, with the erased value where the
/// page has no data; a page whose bytes all equal the erased value is left
/// out unless blank pages are kept.
class HEXBLOCKS_API FlashPlan {
public:
    /// count sectors of size bytes each, one after the other.
    struct sector_group_t {
        uint32_t count; ///< How many sectors, at least 1.
        uint32_t size;  ///< Bytes in each, at least 1.
    };

    /// The layout of a flash.
    struct geometry_t {
        uint32_t start;                     ///< Address of the first sector.
        std::vector<sector_group_t> sectors; ///< The sector groups in address order.
        uint32_t pageSize;                  ///< The program unit in bytes.
        uint8_t erased;                     ///< The value of an erased byte.

        /// No sectors at address 0; pages of 256 bytes; erased value 0xFF.
        geometry_t() : start(0), pageSize(256), erased(0xFF) {}

        /// @return one past the last address of the last sector (up to
        /// 2^32; more for a geometry that checkGeometry() refuses).
        uint64_t end() const;
    };

    /// A sector to erase.
    struct sector_t {
        uint32_t address; ///< Its first address.
        uint32_t size;    ///< Its size in bytes.
        bool partial;     ///< Some of its addresses hold no data.
    };

    /// Reads the sectors of a flash from text such as
    /// "0x08000000:4x16K,1x64K,7x128K": the start address, a colon, and
    /// groups COUNTxSIZE separated by commas. Numbers are decimal or 0x
    /// hexadecimal; a size may end in K (KiB) or M (MiB). Without
    /// "ADDRESS:" the flash starts at 0. Sets geometry's start and sectors
    /// and leaves its page size and erased value alone.
    /// @return a failure, with geometry unchanged, for text of another form
    /// or a geometry that checkGeometry() refuses.
    static result_t parseSectors(const std::string& text, geometry_t& geometry);

    /// Reads a size as parseSectors() does: a decimal number, or a
    /// hexadecimal one after "0x", with an optional K (KiB) or M (MiB), from
    /// 1 to 0xFFFFFFFF bytes.
    /// @return false, with size unchanged, for text of another form.
    static bool parseSize(const std::string& text, uint32_t& size);

    /// Checks that geometry has sectors and a page size of at least 1, that
    /// every sector boundary is a multiple of the page size, and that the
    /// sectors end at 2^32 at the latest.
    static result_t checkGeometry(const geometry_t& geometry);

    /// An empty plan.
    FlashPlan();

    /// Plans flashing image onto geometry, replacing the plan. With
    /// keepBlank, pages whose bytes all equal the erased value are written
    /// too.
    /// @return a failure, with the plan empty, for a geometry that
    /// checkGeometry() refuses or data outside the sectors (address names
    /// the lowest such byte).
    result_t make(const MemoryImage& image, const geometry_t& geometry, bool keepBlank = false);

    /// @return the geometry of the last plan made.
    const geometry_t& geometry() const;

    /// @return the sectors to erase, in address order.
    const std::vector<sector_t>& eraseList() const;

    /// @return the pages to write, in address order, as ranges of adjacent
    /// pages; each range is a whole number of pages.
    const std::vector<range_t>& writeList() const;

    /// @return the number of sectors to erase that are partial.
    uint64_t partialSectors() const;

    /// @return the bytes to erase: the sizes of the sectors to erase.
    uint64_t eraseBytes() const;

    /// @return the number of pages to write.
    uint64_t writePages() const;

    /// @return the bytes to write: the pages to write times the page size.
    uint64_t writeBytes() const;

    /// @return the number of pages with data left out because all their
    /// bytes equal the erased value.
    uint64_t skippedBlank() const;

    /// Walks the pages a plan writes, in address order, holding one page
    /// in memory: its bytes are the image's, the erased value where the
    /// image has no data.
    class HEXBLOCKS_API PageWalker {
    public:
        /// Walks plan's pages over image, which must be the image the plan
        /// was made for; both must outlive the walker and stay unchanged.
        PageWalker(const MemoryImage& image, const FlashPlan& plan);

        /// Moves to the next page.
        /// @return false when there is none left.
        bool next();

        /// @return the address of the current page.
        uint32_t address() const;

        /// @return the bytes of the current page.
        const uint8_t* data() const;

        /// @return the page size.
        size_t size() const;

    private:
        const MemoryImage& image_;
        const FlashPlan& plan_;
        size_t run_;       // the write range of the next page
        uint64_t next_;    // the address of the next page
        uint32_t address_; // the current page
        std::vector<uint8_t> page_;
    };

private:
    geometry_t geometry_;
    std::vector<sector_t> erase_;
    std::vector<range_t> write_;
    uint64_t partialSectors_;
    uint64_t eraseBytes_;
    uint64_t writePages_;
    uint64_t skippedBlank_;
};

} // namespace hexblocks

#endif // HEXBLOCKS_FLASH_PLAN_H
