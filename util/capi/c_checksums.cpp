// Checksums for C: the named algorithms, custom CRCs, running checksums
// and a checksum stored into an image.
#include "c_support.h"

using namespace hexblocks;
using namespace hexblocks::c_api;

namespace {

// The named algorithm; false (error filled) for an unknown name.
bool algorithmNamed(const char* name, Checksum::algorithm_t& algorithm, hb_error_t* error)
{
    if (name == nullptr) {
        nullArgument(error, "algorithm");
        return false;
    }
    if (Checksum::findAlgorithm(name, algorithm))
        return true;
    std::string names;
    for (const Checksum::algorithm_t& a : Checksum::algorithms())
        names += (names.empty() ? "" : ", ") + a.name;
    badArgument(error, "unknown checksum algorithm '" + std::string(name) + "': " + names);
    return false;
}

// A CRC of the caller's parameters; false (error filled) for parameters
// that are not valid.
bool algorithmOf(const hb_crc_model_t* model, Checksum::algorithm_t& algorithm, hb_error_t* error)
{
    if (model == nullptr) {
        nullArgument(error, "model");
        return false;
    }
    algorithm.name = "custom";
    algorithm.kind = Checksum::kind_t::CRC;
    algorithm.crc = Checksum::crc_model_t{model->width,          model->poly,           model->init,
                                          model->reflectIn != 0, model->reflectOut != 0, model->xorOut};
    algorithm.check = 0;
    std::string reason;
    if (Checksum::checkModel(algorithm.crc, reason))
        return true;
    badArgument(error, reason);
    return false;
}

hb_status_t create(hb_checksum_t** checksum, const Checksum::algorithm_t& algorithm, uint8_t padding,
                   hb_error_t* error)
{
    *checksum = new hb_checksum_t(algorithm, padding);
    return succeed(error);
}

hb_status_t insert(hb_image_t* image, const Checksum::algorithm_t& algorithm, hb_range_t range, uint8_t fill,
                   uint32_t address, const hb_byte_order_t& order, hb_error_t* error)
{
    const std::optional<int64_t> value = enumeratorOf(order, HB_LITTLE_ENDIAN, HB_BIG_ENDIAN, "byte order", error);
    if (!value)
        return HB_BAD_ARGUMENT;
    return report(error, Checksum::insert(image->image, algorithm, rangeOf(range), fill, address,
                                          *value == HB_BIG_ENDIAN ? Checksum::byte_order_t::BIG
                                                                  : Checksum::byte_order_t::LITTLE));
}

} // namespace

extern "C" {

size_t hb_algorithmCount(void)
{
    return Checksum::algorithms().size();
}

hb_status_t hb_algorithmInfo(size_t index, hb_algorithm_info_t* info, hb_error_t* error)
{
    return guarded(error, [&] {
        if (info == nullptr)
            return nullArgument(error, "info");
        const std::vector<Checksum::algorithm_t>& all = Checksum::algorithms();
        if (index >= all.size())
            return badArgument(error, "algorithm " + std::to_string(index) + " of " + std::to_string(all.size()));
        const Checksum::algorithm_t& algorithm = all[index];
        *info = hb_algorithm_info_t{algorithm.name.c_str(), Checksum(algorithm).size(), algorithm.check};
        return succeed(error);
    });
}

hb_status_t hb_checksumCreate(hb_checksum_t** checksum, const char* algorithm, uint8_t padding, hb_error_t* error)
{
    return guarded(error, [&] {
        if (checksum == nullptr)
            return nullArgument(error, "checksum");
        Checksum::algorithm_t named;
        if (!algorithmNamed(algorithm, named, error))
            return HB_BAD_ARGUMENT;
        return create(checksum, named, padding, error);
    });
}

hb_status_t hb_checksumCreateCrc(hb_checksum_t** checksum, const hb_crc_model_t* model, hb_error_t* error)
{
    return guarded(error, [&] {
        if (checksum == nullptr)
            return nullArgument(error, "checksum");
        Checksum::algorithm_t custom;
        if (!algorithmOf(model, custom, error))
            return HB_BAD_ARGUMENT;
        return create(checksum, custom, 0xFF, error);
    });
}

void hb_checksumDestroy(hb_checksum_t* checksum)
{
    delete checksum;
}

void hb_checksumUpdate(hb_checksum_t* checksum, const void* data, size_t size)
{
    if (size > 0)
        checksum->checksum.update(data, size);
}

void hb_checksumUpdateFill(hb_checksum_t* checksum, uint8_t byte, uint64_t count)
{
    checksum->checksum.updateFill(byte, count);
}

void hb_checksumUpdateImage(hb_checksum_t* checksum, const hb_image_t* image, hb_range_t range, uint8_t fill)
{
    checksum->checksum.updateImage(image->image, rangeOf(range), fill);
}

uint32_t hb_checksumValue(const hb_checksum_t* checksum)
{
    return checksum->checksum.value();
}

unsigned hb_checksumSize(const hb_checksum_t* checksum)
{
    return checksum->checksum.size();
}

void hb_checksumReset(hb_checksum_t* checksum)
{
    checksum->checksum.reset();
}

hb_status_t hb_checksumInsert(hb_image_t* image, const char* algorithm, hb_range_t range, uint8_t fill,
                              uint32_t address, hb_byte_order_t order, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        Checksum::algorithm_t named;
        if (!algorithmNamed(algorithm, named, error))
            return HB_BAD_ARGUMENT;
        return insert(image, named, range, fill, address, order, error);
    });
}

hb_status_t hb_checksumInsertCrc(hb_image_t* image, const hb_crc_model_t* model, hb_range_t range, uint8_t fill,
                                 uint32_t address, hb_byte_order_t order, hb_error_t* error)
{
    return guarded(error, [&] {
        if (image == nullptr)
            return nullArgument(error, "image");
        Checksum::algorithm_t custom;
        if (!algorithmOf(model, custom, error))
            return HB_BAD_ARGUMENT;
        return insert(image, custom, range, fill, address, order, error);
    });
}

} // extern "C"
