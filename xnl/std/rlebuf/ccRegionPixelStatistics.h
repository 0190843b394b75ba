// Statistics of the pixels of an image that lie under a region mask: the pixels under the
// runs of a ccRLEBuffer whose value equals the inside value (255 for the masks that
// shapes build; any other value counts as outside). The mask is placed with its pixel
// (0, 0) on pixel (maskX, maskY) of the image; inside pixels that fall outside the image
// are skipped and counted apart (OutsideImage).
//
//     ccRegionPixelStatistics stats(image, mask, 10, 20);
//     stats.Count(); stats.Mean(); stats.StandardDeviation(); stats.Median();
//     std::vector<uint64_t> coarse = stats.Histogram(16);
//
// One pass over the inside pixels fills the full histogram (256 bins for 8-bit pixels,
// 65536 for 16-bit), walking each inside run with a pointer and no branch per pixel;
// everything else is derived from the histogram, exactly: sums in 128-bit integers.
//
// An empty region (Count 0) has Sum 0, Mean and StandardDeviation 0, and Min, Max and
// Median 0.
#pragma once

#include <cstdint>
#include <vector>

#include "xnl/std/pelbuf/ccPelBuffer_const.h"
#include "xnl/std/rlebuf/ccRLEBuffer.h"

class ccRegionPixelStatistics {
public:
    // ccRLEBuffer::Degenerate for an uninitialised mask, ccPel::UnboundWindow for an
    // unbound image.
    ccRegionPixelStatistics(const ccPelBuffer_const<uint8_t>& image, const ccRLEBuffer& mask, int32_t maskX,
                            int32_t maskY, uint8_t insideValue = 255);
    ccRegionPixelStatistics(const ccPelBuffer_const<uint16_t>& image, const ccRLEBuffer& mask, int32_t maskX,
                            int32_t maskY, uint8_t insideValue = 255);

    // Inside pixels that lie on the image (the area), and those that do not.
    uint64_t Count() const noexcept { return count_; }
    uint64_t OutsideImage() const noexcept { return outsideImage_; }
    // Sum of the values, as a double (exact up to 2^53) and exactly.
    double Sum() const noexcept { return static_cast<double>(sum_); }
    unsigned __int128 ExactSum() const noexcept { return sum_; }
    double Mean() const noexcept;
    // The population standard deviation (divided by Count, not Count - 1).
    double StandardDeviation() const noexcept;
    uint32_t Min() const noexcept { return min_; }
    uint32_t Max() const noexcept { return max_; }
    // The lower median: the value at position (Count - 1) / 2 of the sorted values.
    uint32_t Median() const noexcept { return median_; }

    // One bin a value: 256 bins for 8-bit images, 65536 for 16-bit.
    const std::vector<uint64_t>& Histogram() const noexcept { return histogram_; }
    // `bins` bins over the whole value range of the pixel type (0..255 or 0..65535): bin i
    // holds the values v with v * bins / range == i, range being 256 or 65536. `bins` in
    // 1..range (ccRLEBuffer::Degenerate otherwise).
    std::vector<uint64_t> Histogram(int32_t bins) const;

private:
    void Derive();

    std::vector<uint64_t> histogram_;
    uint64_t count_ = 0;
    uint64_t outsideImage_ = 0;
    unsigned __int128 sum_ = 0;
    unsigned __int128 sumOfSquares_ = 0;
    uint32_t min_ = 0, max_ = 0, median_ = 0;
};
