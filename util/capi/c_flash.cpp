// Flash plans for C: a plan from a geometry string, its lists and counts,
// and the page walker.
#include "c_support.h"

using namespace hexblocks;
using namespace hexblocks::c_api;

namespace {

bool planOptionsOf(const hb_plan_options_t* options, FlashPlan::geometry_t& geometry, bool& keepBlank,
                   hb_error_t* error)
{
    keepBlank = false;
    if (options == nullptr)
        return true;
    if (options->size == 0) {
        uninitialised(error, "hb_planOptionsInit");
        return false;
    }
    if (HB_REACHES(options, hb_plan_options_t, pageSize))
        geometry.pageSize = options->pageSize;
    if (HB_REACHES(options, hb_plan_options_t, erased))
        geometry.erased = options->erased;
    if (HB_REACHES(options, hb_plan_options_t, keepBlank))
        keepBlank = options->keepBlank != 0;
    return true;
}

} // namespace

extern "C" {

hb_status_t hb_flashPlanCreate(hb_flash_plan_t** plan, const hb_image_t* image, const char* sectors,
                               const hb_plan_options_t* options, hb_error_t* error)
{
    return guarded(error, [&] {
        if (plan == nullptr || image == nullptr || sectors == nullptr)
            return nullArgument(error, plan == nullptr ? "plan" : image == nullptr ? "image" : "sectors");
        FlashPlan::geometry_t geometry;
        bool keepBlank = false;
        if (!planOptionsOf(options, geometry, keepBlank, error))
            return HB_BAD_ARGUMENT;
        const result_t parsed = FlashPlan::parseSectors(sectors, geometry);
        if (!parsed)
            return report(error, parsed);
        std::unique_ptr<hb_flash_plan_t> made(new hb_flash_plan_t());
        const result_t planned = made->plan.make(image->image, geometry, keepBlank);
        if (!planned)
            return report(error, planned);
        for (const FlashPlan::sector_t& s : made->plan.eraseList())
            made->erase.push_back(hb_sector_t{s.address, s.size, s.partial});
        for (const range_t& r : made->plan.writeList())
            made->write.push_back(hb_range_t{r.start, r.end});
        *plan = made.release();
        return succeed(error);
    });
}

void hb_flashPlanDestroy(hb_flash_plan_t* plan)
{
    delete plan;
}

void hb_flashPlanGeometry(const hb_flash_plan_t* plan, uint32_t* start, uint64_t* end, uint32_t* pageSize,
                          uint8_t* erased)
{
    const FlashPlan::geometry_t& geometry = plan->plan.geometry();
    if (start != nullptr)
        *start = geometry.start;
    if (end != nullptr)
        *end = geometry.end();
    if (pageSize != nullptr)
        *pageSize = geometry.pageSize;
    if (erased != nullptr)
        *erased = geometry.erased;
}

const hb_sector_t* hb_flashPlanEraseList(const hb_flash_plan_t* plan, size_t* count)
{
    if (count != nullptr)
        *count = plan->erase.size();
    return plan->erase.data();
}

const hb_range_t* hb_flashPlanWriteList(const hb_flash_plan_t* plan, size_t* count)
{
    if (count != nullptr)
        *count = plan->write.size();
    return plan->write.data();
}

uint64_t hb_flashPlanPartialSectors(const hb_flash_plan_t* plan)
{
    return plan->plan.partialSectors();
}

uint64_t hb_flashPlanEraseBytes(const hb_flash_plan_t* plan)
{
    return plan->plan.eraseBytes();
}

uint64_t hb_flashPlanWritePages(const hb_flash_plan_t* plan)
{
    return plan->plan.writePages();
}

uint64_t hb_flashPlanWriteBytes(const hb_flash_plan_t* plan)
{
    return plan->plan.writeBytes();
}

uint64_t hb_flashPlanSkippedBlank(const hb_flash_plan_t* plan)
{
    return plan->plan.skippedBlank();
}

hb_status_t hb_pageWalkerCreate(hb_page_walker_t** walker, const hb_image_t* image, const hb_flash_plan_t* plan,
                                hb_error_t* error)
{
    return guarded(error, [&] {
        if (walker == nullptr || image == nullptr || plan == nullptr)
            return nullArgument(error, walker == nullptr ? "walker" : image == nullptr ? "image" : "plan");
        *walker = new hb_page_walker_t(image->image, plan->plan);
        return succeed(error);
    });
}

void hb_pageWalkerDestroy(hb_page_walker_t* walker)
{
    delete walker;
}

int hb_pageWalkerNext(hb_page_walker_t* walker)
{
    return walker->walker.next();
}

uint32_t hb_pageWalkerAddress(const hb_page_walker_t* walker)
{
    return walker->walker.address();
}

const uint8_t* hb_pageWalkerData(const hb_page_walker_t* walker)
{
    return walker->walker.data();
}

size_t hb_pageWalkerSize(const hb_page_walker_t* walker)
{
    return walker->walker.size();
}

} // extern "C"
