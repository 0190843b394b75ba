// A box of whole pixels, half-open in both axes: the columns x0 .. x1 - 1 of the rows
// y0 .. y1 - 1. It is what a scan converter may touch (ccShape::PixelBounds) and the clip
// a caller hands to ccShape::ScanConvert. Every pixel index lies in the int32_t range, so
// a box never holds the column or row INT32_MAX itself.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

struct ccPixelBox {
    int32_t x0 = 0;
    int32_t y0 = 0;
    int32_t x1 = 0;
    int32_t y1 = 0;

    // Every pixel a shape can emit: indices -2^30 .. 2^30 - 2, so that x1 - x0 <= INT32_MAX.
    static constexpr ccPixelBox Everything() noexcept {
        constexpr int32_t kLow = std::numeric_limits<int32_t>::min() / 2;
        constexpr int32_t kHigh = std::numeric_limits<int32_t>::max() / 2;
        return {kLow, kLow, kHigh, kHigh};
    }
    // The pixels of an image `width` x `height` whose first pixel is (0, 0).
    static constexpr ccPixelBox OfImage(int32_t width, int32_t height) noexcept { return {0, 0, width, height}; }

    constexpr bool IsEmpty() const noexcept { return x1 <= x0 || y1 <= y0; }
    // 64-bit: a box of any two int32_t limits may be up to 2^32 - 1 wide.
    constexpr int64_t Width() const noexcept { return IsEmpty() ? 0 : int64_t{x1} - x0; }
    constexpr int64_t Height() const noexcept { return IsEmpty() ? 0 : int64_t{y1} - y0; }
    constexpr bool Contains(int32_t x, int32_t y) const noexcept { return x >= x0 && x < x1 && y >= y0 && y < y1; }
    // The pixels in both (empty when they share none).
    constexpr ccPixelBox Intersect(const ccPixelBox& other) const noexcept {
        return {std::max(x0, other.x0), std::max(y0, other.y0), std::min(x1, other.x1), std::min(y1, other.y1)};
    }
    constexpr bool operator==(const ccPixelBox&) const noexcept = default;
};
