#include "checksum.h"

#include "hex_format.h"
#include "image_ranges.h"

#include <algorithm>
#include <cstring>

namespace hexblocks {

namespace {

uint32_t widthMask(unsigned width)
{
    return width >= 32 ? 0xFFFFFFFFu : (1u << width) - 1;
}

// The width a checksum works with: 8, 16, or 32 for anything else.
unsigned effectiveWidth(unsigned width)
{
    return width == 8 || width == 16 ? width : 32;
}

uint32_t reflect(uint32_t value, unsigned width)
{
    uint32_t reflected = 0;
    for (unsigned i = 0; i < width; ++i)
        if (value & (1u << i))
            reflected |= 1u << (width - 1 - i);
    return reflected;
}

uint32_t loadLittle(const uint8_t* p)
{
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

uint32_t loadBig(const uint8_t* p)
{
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 | static_cast<uint32_t>(p[2]) << 8 |
           static_cast<uint32_t>(p[3]);
}

Checksum::algorithm_t crc(const char* name, unsigned width, uint32_t poly, uint32_t init, bool reflected,
                          uint32_t xorOut, uint32_t check)
{
    return Checksum::algorithm_t{name, Checksum::kind_t::CRC,
                                 Checksum::crc_model_t{width, poly, init, reflected, reflected, xorOut}, check};
}

Checksum::algorithm_t sum(const char* name, Checksum::kind_t kind, unsigned width, uint32_t check)
{
    return Checksum::algorithm_t{name, kind, Checksum::crc_model_t{width, 0, 0, false, false, 0}, check};
}

std::vector<Checksum::algorithm_t> makeAlgorithms()
{
    std::vector<Checksum::algorithm_t> algorithms = {
        crc("crc32", 32, 0x04C11DB7, 0xFFFFFFFF, true, 0xFFFFFFFF, 0xCBF43926),
        crc("crc32c", 32, 0x1EDC6F41, 0xFFFFFFFF, true, 0xFFFFFFFF, 0xE3069283),
        crc("crc32-mpeg2", 32, 0x04C11DB7, 0xFFFFFFFF, false, 0, 0x0376E6E7),
        crc("crc32-bzip2", 32, 0x04C11DB7, 0xFFFFFFFF, false, 0xFFFFFFFF, 0xFC891918),
        crc("crc16-ccitt-false", 16, 0x1021, 0xFFFF, false, 0, 0x29B1),
        crc("crc16-xmodem", 16, 0x1021, 0, false, 0, 0x31C3),
        crc("crc16-kermit", 16, 0x1021, 0, true, 0, 0x2189),
        crc("crc16-modbus", 16, 0x8005, 0xFFFF, true, 0, 0x4B37),
        crc("crc16-arc", 16, 0x8005, 0, true, 0, 0xBB3D),
        crc("crc8", 8, 0x07, 0, false, 0, 0xF4),
        // crc32-mpeg2 of "4321", "8765" and, padded with 0xFF, "\xFF\xFF\xFF9".
        Checksum::algorithm_t{"stm32", Checksum::kind_t::STM32,
                              Checksum::crc_model_t{32, 0x04C11DB7, 0xFFFFFFFF, false, false, 0}, 0xD9020D98},
        sum("sum8", Checksum::kind_t::SUM8, 8, 0xDD),
        sum("sum16", Checksum::kind_t::SUM16, 16, 0x01DD),
    };
    return algorithms;
}

} // namespace

const std::vector<Checksum::algorithm_t>& Checksum::algorithms()
{
    static const std::vector<algorithm_t> all = makeAlgorithms();
    return all;
}

bool Checksum::findAlgorithm(const std::string& name, algorithm_t& algorithm)
{
    for (const algorithm_t& a : algorithms()) {
        if (a.name == name) {
            algorithm = a;
            return true;
        }
    }
    return false;
}

bool Checksum::checkModel(const crc_model_t& model, std::string& reason)
{
    if (model.width != 8 && model.width != 16 && model.width != 32) {
        reason = "a CRC is 8, 16 or 32 bits wide, not " + std::to_string(model.width);
        return false;
    }
    const uint32_t mask = widthMask(model.width);
    const char* tooWide = (model.poly & ~mask) ? "polynomial" : (model.init & ~mask) ? "initial value"
                                                              : (model.xorOut & ~mask) ? "final XOR" : nullptr;
    if (tooWide != nullptr) {
        reason = std::string("the ") + tooWide + " does not fit in " + std::to_string(model.width) + " bits";
        return false;
    }
    return true;
}

Checksum::Checksum(const algorithm_t& algorithm, uint8_t padding) : algorithm_(algorithm), padding_(padding)
{
    crc_model_t& model = algorithm_.crc;
    model.width = effectiveWidth(model.width);
    const uint32_t mask = widthMask(model.width);
    model.poly &= mask;
    model.init &= mask;
    model.xorOut &= mask;
    // Reflected CRCs keep the register in the low bits and shift right; the
    // others keep it in the high bits and shift left, whatever the width.
    if (model.reflectIn) {
        const uint32_t poly = reflect(model.poly, model.width);
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i;
            for (int bit = 0; bit < 8; ++bit)
                c = (c >> 1) ^ ((c & 1) ? poly : 0);
            table_[0][i] = c;
        }
        for (int k = 1; k < 8; ++k)
            for (uint32_t i = 0; i < 256; ++i)
                table_[k][i] = (table_[k - 1][i] >> 8) ^ table_[0][table_[k - 1][i] & 0xFF];
    } else {
        const uint32_t poly = model.poly << (32 - model.width);
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i << 24;
            for (int bit = 0; bit < 8; ++bit)
                c = (c << 1) ^ ((c & 0x80000000u) ? poly : 0);
            table_[0][i] = c;
        }
        for (int k = 1; k < 8; ++k)
            for (uint32_t i = 0; i < 256; ++i)
                table_[k][i] = (table_[k - 1][i] << 8) ^ table_[0][table_[k - 1][i] >> 24];
    }
    reset();
}

void Checksum::reset()
{
    const crc_model_t& model = algorithm_.crc;
    switch (algorithm_.kind) {
    case kind_t::CRC:
    case kind_t::STM32:
        register_ = model.reflectIn ? reflect(model.init, model.width) : model.init << (32 - model.width);
        break;
    case kind_t::SUM8:
    case kind_t::SUM16:
        register_ = 0;
        break;
    }
    pendingSize_ = 0;
}

unsigned Checksum::size() const
{
    switch (algorithm_.kind) {
    case kind_t::SUM8:
        return 1;
    case kind_t::SUM16:
        return 2;
    default:
        return algorithm_.crc.width / 8;
    }
}

void Checksum::updateCrc(const uint8_t* p, size_t size)
{
    uint32_t r = register_;
    const uint32_t(&t)[8][256] = table_;
    if (algorithm_.crc.reflectIn) {
        for (; size >= 8; size -= 8, p += 8) {
            const uint32_t one = loadLittle(p) ^ r;
            const uint32_t two = loadLittle(p + 4);
            r = t[7][one & 0xFF] ^ t[6][(one >> 8) & 0xFF] ^ t[5][(one >> 16) & 0xFF] ^ t[4][one >> 24] ^
                t[3][two & 0xFF] ^ t[2][(two >> 8) & 0xFF] ^ t[1][(two >> 16) & 0xFF] ^ t[0][two >> 24];
        }
        for (; size > 0; --size, ++p)
            r = (r >> 8) ^ t[0][(r ^ *p) & 0xFF];
    } else {
        for (; size >= 8; size -= 8, p += 8) {
            const uint32_t one = loadBig(p) ^ r;
            const uint32_t two = loadBig(p + 4);
            r = t[7][one >> 24] ^ t[6][(one >> 16) & 0xFF] ^ t[5][(one >> 8) & 0xFF] ^ t[4][one & 0xFF] ^
                t[3][two >> 24] ^ t[2][(two >> 16) & 0xFF] ^ t[1][(two >> 8) & 0xFF] ^ t[0][two & 0xFF];
        }
        for (; size > 0; --size, ++p)
            r = (r << 8) ^ t[0][(r >> 24) ^ *p];
    }
    register_ = r;
}

void Checksum::update(const void* data, size_t size)
{
    const uint8_t* p = static_cast<const uint8_t*>(data);
    switch (algorithm_.kind) {
    case kind_t::CRC:
        updateCrc(p, size);
        return;
    case kind_t::SUM8:
    case kind_t::SUM16: {
        uint32_t total = register_;
        for (size_t i = 0; i < size; ++i)
            total += p[i];
        register_ = total;
        return;
    }
    case kind_t::STM32:
        break;
    }
    // STM32: each word's bytes go in from the last to the first.
    while (size > 0 && pendingSize_ > 0) {
        pending_[pendingSize_++] = *p++;
        --size;
        if (pendingSize_ == 4) {
            const uint8_t word[4] = {pending_[3], pending_[2], pending_[1], pending_[0]};
            updateCrc(word, 4);
            pendingSize_ = 0;
        }
    }
    if (size == 0)
        return;
    uint8_t reversed[4096];
    while (size >= 4) {
        const size_t chunk = std::min(size - size % 4, sizeof reversed);
        for (size_t i = 0; i < chunk; i += 4) {
            reversed[i] = p[i + 3];
            reversed[i + 1] = p[i + 2];
            reversed[i + 2] = p[i + 1];
            reversed[i + 3] = p[i];
        }
        updateCrc(reversed, chunk);
        p += chunk;
        size -= chunk;
    }
    std::memcpy(pending_, p, size);
    pendingSize_ = static_cast<unsigned>(size);
}

void Checksum::updateFill(uint8_t byte, uint64_t count)
{
    detail::feedFill(byte, count, [this](const uint8_t* bytes, size_t size) { update(bytes, size); });
}

void Checksum::updateImage(const MemoryImage& image, const range_t& range, uint8_t fill)
{
    detail::walkRange(
        image, range, [this](const uint8_t* bytes, size_t size) { update(bytes, size); },
        [this, fill](uint64_t count) { updateFill(fill, count); });
}

uint32_t Checksum::value() const
{
    const crc_model_t& model = algorithm_.crc;
    switch (algorithm_.kind) {
    case kind_t::SUM8:
        return register_ & 0xFF;
    case kind_t::SUM16:
        return register_ & 0xFFFF;
    case kind_t::CRC:
    case kind_t::STM32:
        break;
    }
    uint32_t r = register_;
    if (pendingSize_ > 0) {
        // The last word, padded: its padding comes first, reversed.
        Checksum last(*this);
        const uint8_t padding[4] = {padding_, padding_, padding_, padding_};
        last.update(padding, 4 - pendingSize_);
        r = last.register_;
    }
    if (!model.reflectIn)
        r >>= 32 - model.width;
    if (model.reflectIn != model.reflectOut)
        r = reflect(r, model.width);
    return (r ^ model.xorOut) & widthMask(model.width);
}

result_t Checksum::insert(MemoryImage& image, const algorithm_t& algorithm, const range_t& range, uint8_t fill,
                          uint32_t address, byte_order_t order)
{
    using detail::hexAddress;
    Checksum checksum(algorithm, fill);
    result_t result;
    const uint64_t end = static_cast<uint64_t>(address) + checksum.size();
    if (end > 0x100000000ull)
        return failureAt(status_t::OUT_OF_RANGE,
                         "the " + algorithm.name + " value at " + hexAddress(address) +
                             " would run past address 0xFFFFFFFF",
                         address);
    if (address < range.end && end > range.start && range.size() > 0)
        return failureAt(status_t::BAD_ARGUMENT,
                         "the " + algorithm.name + " value at " + hexAddress(address) +
                             " would lie inside the range it covers, " + hexAddress(range.start) + ":" +
                             hexAddress(range.end),
                         address);
    checksum.updateImage(image, range, fill);
    const uint32_t value = checksum.value();
    uint8_t bytes[4];
    const unsigned size = checksum.size();
    for (unsigned i = 0; i < size; ++i) {
        const unsigned shift = 8 * (order == byte_order_t::LITTLE ? i : size - 1 - i);
        bytes[i] = static_cast<uint8_t>(value >> shift);
    }
    return image.write(address, bytes, size);
}

} // namespace hexblocks
