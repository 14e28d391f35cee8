// What plan, verify and diff print: a flash plan, the verification of a
// read-back dump and the differences of two images, each as text for people
// and as JSON.
#ifndef HEXBLOCKS_FLASH_REPORTS_H
#define HEXBLOCKS_FLASH_REPORTS_H

#include <hexblocks/flash_plan.h>
#include <hexblocks/memory_image.h>

#include <cstdint>
#include <iosfwd>
#include <string>

namespace hexblocks::cli {

// A sector or page size as --sectors writes it: "128K", "1M", "528".
std::string sectorSizeText(uint64_t size);

// The erase list (adjacent sectors of one size and partial flag on one
// line), the write list (adjacent pages on one line) and the totals.
void printPlan(const FlashPlan& plan, std::ostream& out);

// {"erase": [...], "write": [every page], "skipped_blank": N, ...totals}.
void printPlanJson(const FlashPlan& plan, std::ostream& out);

// The first mismatches, one a line, and a summary line ending in OK or FAILED.
void printVerify(const verify_result_t& result, std::ostream& out);

// {"compared": N, "mismatches": M, "not_covered": K, "first": [...]}.
void printVerifyJson(const verify_result_t& result, std::ostream& out);

// One line per range, "0x08000400-0x080007FF  differ (17 bytes)", and one
// for the start addresses when they differ; nothing for equal images.
void printDiff(const diff_result_t& result, const MemoryImage& a, const MemoryImage& b,
               std::ostream& out);

// {"ranges": [...], "start_address": {"a": ..., "b": ..., "differ": BOOL}}.
void printDiffJson(const diff_result_t& result, const MemoryImage& a, const MemoryImage& b,
                   std::ostream& out);

} // namespace hexblocks::cli

#endif
