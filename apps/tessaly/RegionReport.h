// The statistics of the pixels under a region mask, as `tessaly inspect` and `tessaly
// demo` print them:
//
//     area      18001 pixels
//     mean      121.37
//     std dev   40.12
//     min, max  64, 239
//     median    117
//     histogram 16 bins of 16 values
//          0..15          0
//         16..31          0
//         ...
//        112..127      4410  ##########################
//
// Grey images of 8 bits are measured as they are; 16-bit images too, with the histogram's
// 16 bins spread over the values their Encoding gives (0..4095 for 12 bits); colour images
// by their luminance, (299 R + 587 G + 114 B + 500) / 1000 rounded to 8 bits.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "TessalyCore.h"
#include "xnl/std/rlebuf/ccRLEBuffer.h"
#include "xnl/std/rlebuf/ccRegionPixelStatistics.h"

namespace tessaly::cli {

class RegionReport {
public:
    static constexpr int kBins = 16;

    // Measures the pixels of `image` under the inside (255) runs of `mask`, whose pixel
    // (0, 0) lies on pixel (maskX, maskY) of the image. Throws on failure.
    static RegionReport Measure(ILuxImage* image, const ccRLEBuffer& mask, int32_t maskX, int32_t maskY);

    // What was measured: "8-bit grey", "16-bit grey (12 significant bits)", "luminance of RGB".
    const std::string& Measured() const noexcept { return measured_; }
    uint64_t Area() const noexcept { return statistics_->Count(); }
    const ccRegionPixelStatistics& Statistics() const noexcept { return *statistics_; }
    // kBins bins over 0 .. 2^bits - 1; values beyond it count in the last bin.
    const std::vector<uint64_t>& Histogram() const noexcept { return histogram_; }

    // With `trimEmptyEnds` the empty bins below the first and above the last filled one are
    // left out of the histogram (the demo's shorter table).
    void Print(std::ostream& out, bool trimEmptyEnds = false) const;

private:
    RegionReport() = default;
    void Bin(int significantBits);

    std::optional<ccRegionPixelStatistics> statistics_;
    std::string measured_;
    int significantBits_ = 8;
    std::vector<uint64_t> histogram_;
};

}  // namespace tessaly::cli
