// The pixel types of roots and buffers, and the concepts that say which template may be
// made of which:
//
//   pixel type           root   buffer (and _const)   conversion root
//   uint8_t, uint16_t,    yes    yes                   yes
//   uint32_t, double,
//   int16_t
//   int8_t, int32_t       yes    -                     -
//   ccPackedRGB16Pel,     yes    yes                   -
//   ccPackedRGB32Pel,
//   cc3PlanePel
//
// The colour pixels are plain values of their exact size, so that a row of them is the
// memory layout other code (files, cameras, NumPy) expects.
#pragma once

#include <concepts>
#include <cstdint>
#include <type_traits>

// 16-bit colour, 5-6-5: red in bits 11-15, green in bits 5-10, blue in bits 0-4.
struct ccPackedRGB16Pel {
    uint16_t value = 0;

    constexpr ccPackedRGB16Pel() noexcept = default;
    constexpr explicit ccPackedRGB16Pel(uint16_t packed) noexcept : value(packed) {}
    // From components already reduced to 5, 6 and 5 bits (higher bits are dropped).
    static constexpr ccPackedRGB16Pel FromComponents(uint32_t r5, uint32_t g6, uint32_t b5) noexcept {
        return ccPackedRGB16Pel(static_cast<uint16_t>(((r5 & 0x1Fu) << 11) | ((g6 & 0x3Fu) << 5) | (b5 & 0x1Fu)));
    }
    constexpr uint32_t R() const noexcept { return (value >> 11) & 0x1Fu; }
    constexpr uint32_t G() const noexcept { return (value >> 5) & 0x3Fu; }
    constexpr uint32_t B() const noexcept { return value & 0x1Fu; }
    constexpr bool operator==(const ccPackedRGB16Pel&) const noexcept = default;
};

// 32-bit colour 0xXXRRGGBB: in memory (little-endian) the bytes blue, green, red and an
// unused byte, the order of 32-bit frame buffers and of most camera drivers.
struct ccPackedRGB32Pel {
    uint32_t value = 0;

    constexpr ccPackedRGB32Pel() noexcept = default;
    constexpr explicit ccPackedRGB32Pel(uint32_t packed) noexcept : value(packed) {}
    static constexpr ccPackedRGB32Pel FromComponents(uint8_t r, uint8_t g, uint8_t b) noexcept {
        return ccPackedRGB32Pel((uint32_t{r} << 16) | (uint32_t{g} << 8) | uint32_t{b});
    }
    constexpr uint8_t R() const noexcept { return static_cast<uint8_t>(value >> 16); }
    constexpr uint8_t G() const noexcept { return static_cast<uint8_t>(value >> 8); }
    constexpr uint8_t B() const noexcept { return static_cast<uint8_t>(value); }
    constexpr bool operator==(const ccPackedRGB32Pel&) const noexcept = default;
};

// One pixel of three coincident 8-bit planes: the value of plane 0, 1 and 2 at one place.
// A root of this type keeps the three values side by side (3 bytes a pixel); planar
// storage, as colour images keep it, is cc3PlanePelBuffer over three 8-bit roots.
struct cc3PlanePel {
    uint8_t plane0 = 0;
    uint8_t plane1 = 0;
    uint8_t plane2 = 0;

    constexpr bool operator==(const cc3PlanePel&) const noexcept = default;
};

static_assert(sizeof(ccPackedRGB16Pel) == 2 && sizeof(ccPackedRGB32Pel) == 4 && sizeof(cc3PlanePel) == 3);
static_assert(std::is_trivially_copyable_v<ccPackedRGB16Pel> && std::is_trivially_copyable_v<ccPackedRGB32Pel> &&
              std::is_trivially_copyable_v<cc3PlanePel>);

template <class T>
concept ccPelBufferType = std::same_as<T, uint8_t> || std::same_as<T, uint16_t> || std::same_as<T, uint32_t> ||
                          std::same_as<T, double> || std::same_as<T, int16_t> ||
                          std::same_as<T, ccPackedRGB16Pel> || std::same_as<T, ccPackedRGB32Pel> ||
                          std::same_as<T, cc3PlanePel>;

template <class T>
concept ccPelRootType = ccPelBufferType<T> || std::same_as<T, int8_t> || std::same_as<T, int32_t>;

template <class T>
concept ccPelCvtType = std::same_as<T, uint8_t> || std::same_as<T, uint16_t> || std::same_as<T, uint32_t> ||
                       std::same_as<T, double> || std::same_as<T, int16_t>;
