// UF2, the USB Flashing Format: 512-byte blocks, each with three magic
// numbers, flags, a target address, up to 476 bytes of payload, its number,
// the number of blocks and a family ID. The layout and the family list are
// those the format's authors publish (github.com/microsoft/uf2).
#include "format_table.h"
#include "hex_format.h"
#include "output_buffer.h"
#include "record_assembler.h"
#include "text_lines.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace hexblocks {

namespace {

const size_t BLOCK_SIZE = 512;
const size_t PAYLOAD_MAX = 476;
const size_t HEADER_SIZE = 32;
const uint32_t MAGIC_START_0 = 0x0A324655; // "UF2\n"
const uint32_t MAGIC_START_1 = 0x9E5D5157;
const uint32_t MAGIC_END = 0x0AB16F30;
const uint32_t NOT_MAIN_FLASH = 0x00000001;
const uint32_t FILE_CONTAINER = 0x00001000;
const uint32_t FAMILY_PRESENT = 0x00002000;
// Payloads that writers put in a block: what the RP2040 boot ROM requires,
// and what every bootloader takes.
const uint32_t PAYLOAD_WRITTEN = 256;

uint32_t littleEndian32(const uint8_t* p)
{
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

void putLittleEndian32(uint8_t* p, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<uint8_t>(value >> (8 * i));
}

// The fields of a block.
struct uf2block_t {
    uint32_t flags;
    uint32_t address;
    uint32_t payloadSize;
    uint32_t number;
    uint32_t count;
    uint32_t family;
    const uint8_t* payload;

    explicit uf2block_t(const uint8_t* p)
        : flags(littleEndian32(p + 8)), address(littleEndian32(p + 12)), payloadSize(littleEndian32(p + 16)),
          number(littleEndian32(p + 20)), count(littleEndian32(p + 24)), family(littleEndian32(p + 28)),
          payload(p + HEADER_SIZE)
    {
    }

    bool hasFamily() const { return (flags & FAMILY_PRESENT) != 0; }
    // Blocks that are not for the device's flash: comments, embedded files.
    bool skipped() const { return (flags & (NOT_MAIN_FLASH | FILE_CONTAINER)) != 0; }
};

std::string familyList(const std::vector<uint32_t>& families)
{
    std::string list;
    for (size_t i = 0; i < families.size(); ++i) {
        const std::string name = uf2FamilyName(families[i]);
        list += (i == 0 ? "" : i + 1 == families.size() ? " and " : ", ") + name;
        if (name[0] != '0')
            list += " (" + detail::hexAddress(families[i]) + ")";
    }
    return list;
}

// Reads UF2 blocks for an assembler: checks every block first, finds the
// families and whether blocks of two families give the same addresses, then
// hands the blocks to read to the assembler, each as a record numbered by
// its block (counted from 1, as lines are).
template <typename Assembler> class Uf2Interpreter {
public:
    Uf2Interpreter(Assembler& assembler, detail::fullread_t& read, const read_options_t& options)
        : assembler_(assembler), read_(read), options_(options)
    {
        read_.recordName = "block";
    }

    bool run(detail::TextSource& source)
    {
        size_t size = 0;
        const char* bytes = nullptr;
        std::vector<char> text;
        if (!detail::wholeTextOf(source, bytes, size, text, read_))
            return true;
        read_.sawEndRecord = true;
        const uint8_t* blocks = reinterpret_cast<const uint8_t*>(bytes);
        if (!checkBlocks(blocks, size) || !chooseFamily())
            return true;
        for (size_t i = 0; i * BLOCK_SIZE < size; ++i) {
            const uf2block_t block(blocks + i * BLOCK_SIZE);
            if (!wanted(block))
                continue;
            const detail::piece_t piece{block.address, block.payload, block.payloadSize};
            if (!assembler_.addRecord(&piece, 1, i + 1))
                return false;
        }
        return true;
    }

    uint8_t startType() const { return 0; }
    uint32_t startValue() const { return 0; }
    std::string header() const { return std::string(); }

private:
    bool fail(size_t block, const std::string& reason)
    {
        detail::failRead(read_, detail::fullread_t::status_t::BAD_LINE, 0, "block " + std::to_string(block) + ": " + reason,
                         "");
        return false;
    }

    // Checks every block, and notes the families and where their blocks go.
    bool checkBlocks(const uint8_t* bytes, size_t size)
    {
        for (size_t i = 0; i * BLOCK_SIZE < size; ++i) {
            const uint8_t* p = bytes + i * BLOCK_SIZE;
            if (size - i * BLOCK_SIZE < BLOCK_SIZE)
                return fail(i, "truncated: the file ends " + std::to_string(size - i * BLOCK_SIZE) +
                                   " bytes into its 512");
            if (littleEndian32(p) != MAGIC_START_0 || littleEndian32(p + 4) != MAGIC_START_1 ||
                littleEndian32(p + BLOCK_SIZE - 4) != MAGIC_END)
                return fail(i, "bad magic number: not a UF2 block");
            const uf2block_t block(p);
            if (block.payloadSize > PAYLOAD_MAX)
                return fail(i, "payload of " + std::to_string(block.payloadSize) + " bytes, more than 476");
            if (block.number >= block.count)
                return fail(i, "block number " + std::to_string(block.number) + " is not below the block count " +
                                   std::to_string(block.count));
            if (static_cast<uint64_t>(block.address) + block.payloadSize > 0x100000000ull)
                return fail(i, "its data runs past address 0xFFFFFFFF");
            ++read_.blocks;
            if (block.hasFamily() && !block.skipped()) {
                if (std::find(read_.families.begin(), read_.families.end(), block.family) == read_.families.end())
                    read_.families.push_back(block.family);
                if (block.payloadSize > 0)
                    placed_.push_back(placed_t{block.address, block.address + uint64_t{block.payloadSize}, block.family});
            }
        }
        std::sort(read_.families.begin(), read_.families.end());
        return true;
    }

    // With no family selected, blocks of two families must not give the same
    // addresses; with one selected, it must be in the file if any is.
    bool chooseFamily()
    {
        if (options_.family) {
            if (read_.families.empty() ||
                std::find(read_.families.begin(), read_.families.end(), *options_.family) != read_.families.end())
                return true;
            detail::failRead(read_, detail::fullread_t::status_t::BAD_LINE, 0,
                             "no block of family " + familyList({*options_.family}) + ": the file holds " +
                                 familyList(read_.families),
                             "");
            read_.failureStatus = status_t::MISMATCH;
            return false;
        }
        if (read_.families.size() < 2)
            return true;
        std::sort(placed_.begin(), placed_.end(),
                  [](const placed_t& a, const placed_t& b) { return a.address < b.address; });
        uint64_t reach = 0;
        uint32_t reachFamily = 0;
        for (const placed_t& p : placed_) {
            if (p.address < reach && p.family != reachFamily) {
                detail::failRead(read_, detail::fullread_t::status_t::BAD_LINE, 0,
                                 "blocks of families " + familyList(read_.families) +
                                     " give the same addresses: a family must be selected",
                                 "");
                read_.failureStatus = status_t::OVERLAP;
                return false;
            }
            if (p.end > reach) {
                reach = p.end;
                reachFamily = p.family;
            }
        }
        return true;
    }

    bool wanted(const uf2block_t& block) const
    {
        if (block.skipped() || block.payloadSize == 0)
            return false;
        return !options_.family || !block.hasFamily() || block.family == *options_.family;
    }

    struct placed_t {
        uint32_t address;
        uint64_t end;
        uint32_t family;
    };

    Assembler& assembler_;
    detail::fullread_t& read_;
    const read_options_t& options_;
    std::vector<placed_t> placed_;
};

// Blocks that give bytes again are told by block number, not by line.
read_result_t blockResult(const detail::fullread_t& read, const read_options_t& options)
{
    read_result_t result = detail::recordsResult(read, options);
    for (warning_t& w : result.warnings)
        if (w.line > 0) {
            w.message += " (first in block " + std::to_string(w.line - 1) + ")";
            w.line = 0;
        }
    return result;
}

bool writeUf2(detail::WriterInput& input, const write_options_t& options, detail::OutputBuffer& out)
{
    const uint64_t count = detail::unitsWithData(input, PAYLOAD_WRITTEN);
    uint32_t number = 0;
    return detail::forEachUnitRun(input, PAYLOAD_WRITTEN, options.fill,
                                  [&](uint64_t address, const uint8_t* bytes, size_t size, bool) {
                                      for (size_t at = 0; at < size; at += PAYLOAD_WRITTEN) {
                                          uint8_t* block = reinterpret_cast<uint8_t*>(out.reserve(BLOCK_SIZE));
                                          std::memset(block, 0, BLOCK_SIZE);
                                          putLittleEndian32(block, MAGIC_START_0);
                                          putLittleEndian32(block + 4, MAGIC_START_1);
                                          putLittleEndian32(block + 8, options.family ? FAMILY_PRESENT : 0);
                                          putLittleEndian32(block + 12, static_cast<uint32_t>(address + at));
                                          putLittleEndian32(block + 16, PAYLOAD_WRITTEN);
                                          putLittleEndian32(block + 20, number++);
                                          putLittleEndian32(block + 24, static_cast<uint32_t>(count));
                                          putLittleEndian32(block + 28, options.family.value_or(0));
                                          std::memcpy(block + HEADER_SIZE, bytes + at, PAYLOAD_WRITTEN);
                                          putLittleEndian32(block + BLOCK_SIZE - 4, MAGIC_END);
                                          out.commit(reinterpret_cast<char*>(block) + BLOCK_SIZE);
                                      }
                                  });
}

} // namespace

const std::vector<uf2_family_t>& uf2Families()
{
    static const std::vector<uf2_family_t> FAMILIES = {
        {0x16573617u, "atmega32", "Microchip (Atmel) ATmega32"},
        {0x1851780Au, "saml21", "Microchip (Atmel) SAML21"},
        {0x1B57745Fu, "nrf52", "Nordic NRF52"},
        {0x1C5F21B0u, "esp32", "ESP32"},
        {0x1E1F432Du, "stm32l1", "ST STM32L1xx"},
        {0x202E3A91u, "stm32l0", "ST STM32L0xx"},
        {0x21460FF0u, "stm32wl", "ST STM32WLxx"},
        {0x22E0D6FCu, "rtl8710b", "Realtek AmebaZ RTL8710B"},
        {0x2ABC77ECu, "lpc55", "NXP LPC55xx"},
        {0x300F5633u, "stm32g0", "ST STM32G0xx"},
        {0x31D228C6u, "gd32f350", "GD32F350"},
        {0x3379CFE2u, "rtl8720d", "Realtek AmebaD RTL8720D"},
        {0x04240BDFu, "stm32l5", "ST STM32L5xx"},
        {0x4C71240Au, "stm32g4", "ST STM32G4xx"},
        {0x4FB2D5BDu, "mimxrt10xx", "NXP i.MX RT10XX"},
        {0x51E903A8u, "xr809", "Xradiotech 809"},
        {0x53B80F00u, "stm32f7", "ST STM32F7xx"},
        {0x55114460u, "samd51", "Microchip (Atmel) SAMD51"},
        {0x57755A57u, "stm32f4", "ST STM32F4xx"},
        {0x5A18069Bu, "fx2", "Cypress FX2"},
        {0x5D1A0A2Eu, "stm32f2", "ST STM32F2xx"},
        {0x5EE21072u, "stm32f1", "ST STM32F103"},
        {0x621E937Au, "nrf52833", "Nordic NRF52833"},
        {0x647824B6u, "stm32f0", "ST STM32F0xx"},
        {0x675A40B0u, "bk7231u", "Beken 7231U/7231T"},
        {0x68ED2B88u, "samd21", "Microchip (Atmel) SAMD21"},
        {0x6A82CC42u, "bk7251", "Beken 7251/7252"},
        {0x6B846188u, "stm32f3", "ST STM32F3xx"},
        {0x6D0922FAu, "stm32f407", "ST STM32F407"},
        {0x4E8F1C5Du, "stm32h5", "ST STM32H5xx"},
        {0x6DB66082u, "stm32h7", "ST STM32H7xx"},
        {0x70D16653u, "stm32wb", "ST STM32WBxx"},
        {0x7B3EF230u, "bk7231n", "Beken 7231N"},
        {0x7EAB61EDu, "esp8266", "ESP8266"},
        {0x7F83E793u, "kl32l2", "NXP KL32L2x"},
        {0x8FB060FEu, "stm32f407vg", "ST STM32F407VG"},
        {0x9FFFD543u, "rtl8710a", "Realtek Ameba1 RTL8710A"},
        {0xADA52840u, "nrf52840", "Nordic NRF52840"},
        {0x820D9A5Fu, "nrf52820", "Nordic NRF52820_xxAA"},
        {0xBFDD4EEEu, "esp32s2", "ESP32-S2"},
        {0xC47E5767u, "esp32s3", "ESP32-S3"},
        {0xD42BA06Cu, "esp32c3", "ESP32-C3"},
        {0x2B88D29Cu, "esp32c2", "ESP32-C2"},
        {0x332726F6u, "esp32h2", "ESP32-H2"},
        {0x540DDF62u, "esp32c6", "ESP32-C6"},
        {0x3D308E94u, "esp32p4", "ESP32-P4"},
        {0xF71C0343u, "esp32c5", "ESP32-C5"},
        {0x77D850C4u, "esp32c61", "ESP32-C61"},
        {0xB6DD00AFu, "esp32h21", "ESP32-H21"},
        {0x9E0BAA8Au, "esp32h4", "ESP32-H4"},
        {0x3101F7C1u, "esp32s31", "ESP32-S31"},
        {0xDE1270B7u, "bl602", "Boufallo 602"},
        {0xE08F7564u, "rtl8720c", "Realtek AmebaZ2 RTL8720C"},
        {0xE48BFF56u, "rp2040", "Raspberry Pi RP2040"},
        {0xE48BFF57u, "rp2xxx_absolute", "Raspberry Pi Microcontrollers: Absolute (unpartitioned) download"},
        {0xE48BFF58u, "rp2xxx_data", "Raspberry Pi Microcontrollers: Data partition download"},
        {0xE48BFF59u, "rp2350_arm_s", "Raspberry Pi RP2350, Secure Arm image"},
        {0xE48BFF5Au, "rp2350_riscv", "Raspberry Pi RP2350, RISC-V image"},
        {0xE48BFF5Bu, "rp2350_arm_ns", "Raspberry Pi RP2350, Non-secure Arm image"},
        {0x00FF6919u, "stm32l4", "ST STM32L4xx"},
        {0x9AF03E33u, "gd32vf103", "GigaDevice GD32VF103"},
        {0x4F6ACE52u, "csk4", "LISTENAI CSK300x/400x"},
        {0x6E7348A8u, "csk6", "LISTENAI CSK60xx"},
        {0x11DE784Au, "m0sense", "M0SENSE BL702"},
        {0x4B684D71u, "maixplay-u4", "Sipeed MaixPlay-U4(BL618)"},
        {0x9517422Fu, "rza1lu", "Renesas RZ/A1LU (R7S7210xx)"},
        {0x2DC309C5u, "stm32f411xe", "ST STM32F411xE"},
        {0x06D1097Bu, "stm32f411xc", "ST STM32F411xC"},
        {0x72721D4Eu, "nrf52832xxaa", "Nordic NRF52832xxAA"},
        {0x6F752678u, "nrf52832xxab", "Nordic NRF52832xxAB"},
        {0xA0C97B8Eu, "at32f415", "ArteryTek AT32F415"},
        {0x699B62ECu, "ch32v", "WCH CH32V2xx and CH32V3xx"},
        {0x7BE8976Du, "ra4m1", "Renesas RA4M1"},
        {0x7410520Au, "max32690", "Analog Devices MAX32690"},
        {0xD63F8632u, "max32650", "Analog Devices MAX32650/1/2"},
        {0xF0C30D71u, "max32666", "Analog Devices MAX32665/6"},
        {0x91D3FD18u, "max78002", "Analog Devices MAX78002"},
        {0x7D7A66EFu, "py32f071-uvk5-v3", "Quansheng UV-K5 V3 amateur radio based on Puya Semiconductor PY32F071"},
    };
    return FAMILIES;
}

std::optional<uint32_t> uf2FamilyByName(const std::string& name)
{
    std::string lower = name;
    for (char& c : lower)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const uf2_family_t& f : uf2Families())
        if (lower == f.name)
            return f.id;
    if (lower.size() > 2 && lower.size() <= 10 && lower.compare(0, 2, "0x") == 0 &&
        lower.find_first_not_of("0123456789abcdef", 2) == std::string::npos)
        return static_cast<uint32_t>(std::strtoul(lower.c_str() + 2, nullptr, 16));
    if (!lower.empty() && lower.size() <= 10 && lower.find_first_not_of("0123456789") == std::string::npos) {
        const unsigned long long value = std::strtoull(lower.c_str(), nullptr, 10);
        if (value <= 0xFFFFFFFFull)
            return static_cast<uint32_t>(value);
    }
    return std::nullopt;
}

std::string uf2FamilyName(uint32_t id)
{
    for (const uf2_family_t& f : uf2Families())
        if (f.id == id)
            return f.name;
    return detail::hexAddress(id);
}

namespace detail {

bool looksLikeUf2(const void* head, size_t size)
{
    const uint8_t* bytes = static_cast<const uint8_t*>(head);
    return size >= 8 && littleEndian32(bytes) == MAGIC_START_0 && littleEndian32(bytes + 4) == MAGIC_START_1;
}

read_result_t readUf2Memory(MemoryImage& image, const void* data, size_t size, const read_options_t& options)
{
    MemoryText text(data, size);
    return blockResult(readRecords<Uf2Interpreter>(text, image, assemblyOf(options), options), options);
}

read_result_t readUf2File(MemoryImage& image, int fd, uint64_t size, const read_options_t& options)
{
    return readMapped(image, fd, size, options, readUf2Memory);
}

bool writeUf2To(WriterInput& input, const write_options_t& options, ByteSink& sink, result_t& result)
{
    result = writeThrough(writeUf2, input, options, sink, unitsWithData(input, PAYLOAD_WRITTEN) * BLOCK_SIZE + 1);
    return result.ok();
}

} // namespace detail

} // namespace hexblocks
