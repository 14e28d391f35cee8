/// @file checksum.h
/// CRCs and sums over bytes and over ranges of a MemoryImage, and a
/// checksum stored into an image, as a bootloader checks an application.
///
/// @code
/// #include <hexblocks/checksum.h>
///
/// using namespace hexblocks;
/// Checksum::algorithm_t crc32;
/// Checksum::findAlgorithm("crc32", crc32);
/// Checksum checksum(crc32);
/// // The application's flash region; addresses without data count as 0xFF.
/// checksum.updateImage(image, range_t{0x08004000, 0x08040000}, 0xFF);
/// std::printf("0x%08X\n", checksum.value());
///
/// // The same CRC stored little endian in the last 4 bytes of the region.
/// const result_t stored = Checksum::insert(
///     image, crc32, range_t{0x08004000, 0x0803FFFC}, 0xFF, 0x0803FFFC, Checksum::byte_order_t::LITTLE);
/// @endcode
///
/// A CRC is given by the usual parameters (width, polynomial, initial
/// value, reflected input, reflected output, final XOR); algorithms() lists
/// the common ones by name, with the value each gives for the nine ASCII
/// bytes "123456789". Nothing here prints.
#ifndef HEXBLOCKS_CHECKSUM_H
#define HEXBLOCKS_CHECKSUM_H

#include "memory_image.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hexblocks {

/// A running CRC or sum.
class HEXBLOCKS_API Checksum {
public:
    /// The parameters of a CRC.
    struct crc_model_t {
        unsigned width;   ///< 8, 16 or 32 bits.
        uint32_t poly;    ///< The polynomial, without its top bit.
        uint32_t init;    ///< The register's value before the first byte.
        bool reflectIn;   ///< Each input byte is taken least significant bit first.
        bool reflectOut;  ///< The register is reflected before the final XOR.
        uint32_t xorOut;  ///< XORed into the result.
    };

    /// What an algorithm computes.
    enum class kind_t {
        CRC,   ///< the CRC of crc_model_t
        STM32, ///< an STM32 CRC unit fed 32-bit little-endian words: the CRC over each group of 4 bytes taken in reverse order, the input padded to a multiple of 4
        SUM8,  ///< the sum of the bytes modulo 256
        SUM16  ///< the sum of the bytes modulo 65536
    };

    /// A named algorithm.
    struct algorithm_t {
        std::string name; ///< As findAlgorithm() takes it, e.g. "crc32".
        kind_t kind;      ///< What it computes.
        crc_model_t crc;  ///< The CRC, for CRC and STM32.
        uint32_t check;  ///< The value for the nine ASCII bytes "123456789".
    };

    /// How insert() stores a value.
    enum class byte_order_t { LITTLE, BIG };

    /// @return the named algorithms: crc32, crc32c, crc32-mpeg2,
    /// crc32-bzip2, crc16-ccitt-false, crc16-xmodem, crc16-kermit,
    /// crc16-modbus, crc16-arc, crc8, stm32, sum8 and sum16.
    static const std::vector<algorithm_t>& algorithms();

    /// Finds an algorithm of algorithms() by name.
    /// @return false when there is none of that name.
    static bool findAlgorithm(const std::string& name, algorithm_t& algorithm);

    /// Checks a CRC's parameters: a width of 8, 16 or 32, and a polynomial,
    /// initial value and final XOR that fit in it.
    /// @return false with reason set when they are wrong.
    static bool checkModel(const crc_model_t& model, std::string& reason);

    /// Starts a checksum. padding is the byte STM32 pads a last partial
    /// word with. A CRC model should pass checkModel(); one that does not is
    /// taken modulo its width, and a width other than 8 or 16 counts as 32.
    explicit Checksum(const algorithm_t& algorithm, uint8_t padding = 0xFF);

    /// Adds size bytes.
    void update(const void* data, size_t size);

    /// Adds count copies of byte.
    void updateFill(uint8_t byte, uint64_t count);

    /// Adds the bytes of image in range, fill for addresses without data.
    void updateImage(const MemoryImage& image, const range_t& range, uint8_t fill);

    /// @return the value of the bytes added so far (STM32 pads a partial
    /// last word); more bytes may be added afterwards.
    uint32_t value() const;

    /// Starts again with no bytes.
    void reset();

    /// @return the number of bytes the value takes: 1, 2 or 4.
    unsigned size() const;

    /// Computes algorithm over range of image (fill where there is no
    /// data, and as STM32's padding) and writes the value at address in
    /// order, replacing any data there.
    /// @return a failure, with the image unchanged, when the value would
    /// lie inside range or run past 0xFFFFFFFF.
    static result_t insert(MemoryImage& image, const algorithm_t& algorithm,
                                        const range_t& range, uint8_t fill, uint32_t address,
                                        byte_order_t order);

private:
    void updateCrc(const uint8_t* data, size_t size);

    algorithm_t algorithm_;
    uint32_t table_[8][256];  // slicing by 8
    uint32_t register_;
    uint8_t pending_[4];      // STM32: the bytes of a word not yet complete
    unsigned pendingSize_;
    uint8_t padding_;
};

} // namespace hexblocks

#endif // HEXBLOCKS_CHECKSUM_H
