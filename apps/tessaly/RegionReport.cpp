#include "RegionReport.h"

#include <algorithm>
#include <cstdio>

#include "com/image/files/ImageFileObjects.h"

namespace tessaly::cli {

namespace {

int SignificantBits(LuxImage16EncodingConstants encoding) {
    switch (encoding) {
        case luxImage16EncodingGrey8: return 8;
        case luxImage16EncodingGrey10: return 10;
        case luxImage16EncodingGrey12: return 12;
        case luxImage16EncodingGrey14: return 14;
        case luxImage16EncodingGrey16: return 16;
    }
    return 16;
}

ccPelBuffer<uint8_t> Luminance(const cc3PlanePelBuffer& rgb) {
    ccPelBuffer<uint8_t> grey(rgb.Width(), rgb.Height());
    for (int32_t y = 0; y < rgb.Height(); ++y) {
        const uint8_t* r = rgb.Plane(0).RowPointer(y);
        const uint8_t* g = rgb.Plane(1).RowPointer(y);
        const uint8_t* b = rgb.Plane(2).RowPointer(y);
        uint8_t* out = grey.RowPointer(y);
        for (int32_t x = 0; x < rgb.Width(); ++x)
            out[x] = static_cast<uint8_t>((299 * r[x] + 587 * g[x] + 114 * b[x] + 500) / 1000);
    }
    return grey;
}

std::string Fixed(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

}  // namespace

RegionReport RegionReport::Measure(ILuxImage* image, const ccRLEBuffer& mask, int32_t maskX, int32_t maskY) {
    RegionReport report;
    const image::ImageFilePixels pixels = image::FilePixelsOfImage(image);
    switch (pixels.Kind()) {
        case image::ImageFileKind::Grey8:
            report.statistics_.emplace(pixels.Grey8(), mask, maskX, maskY);
            report.measured_ = "8-bit grey";
            report.Bin(8);
            break;
        case image::ImageFileKind::Grey16: {
            ComPtr<ILuxImage16Grey> grey;
            LuxImage16EncodingConstants encoding = luxImage16EncodingGrey16;
            if (SUCCEEDED(image->QueryInterface(IID_ILuxImage16Grey, grey.OutVoid())) && grey)
                grey->get_Encoding(&encoding);
            const int bits = SignificantBits(encoding);
            report.statistics_.emplace(pixels.Grey16(), mask, maskX, maskY);
            report.measured_ = "16-bit grey (" + std::to_string(bits) + " significant bits)";
            report.Bin(bits);
            break;
        }
        case image::ImageFileKind::Rgb8:
            report.statistics_.emplace(Luminance(pixels.Rgb8()), mask, maskX, maskY);
            report.measured_ = "luminance of RGB (0.299 R + 0.587 G + 0.114 B)";
            report.Bin(8);
            break;
    }
    return report;
}

void RegionReport::Bin(int significantBits) {
    significantBits_ = significantBits;
    histogram_.assign(kBins, 0);
    const std::vector<uint64_t>& full = statistics_->Histogram();
    const uint64_t range = uint64_t{1} << significantBits;
    for (size_t value = 0; value < full.size(); ++value) {
        if (full[value] == 0) continue;
        const uint64_t bin = std::min<uint64_t>(kBins - 1, value * kBins / range);
        histogram_[bin] += full[value];
    }
}

void RegionReport::Print(std::ostream& out, bool trimEmptyEnds) const {
    const ccRegionPixelStatistics& s = *statistics_;
    out << "measured   " << measured_ << '\n'
        << "area       " << s.Count() << " pixels\n";
    if (s.Count() == 0) {
        out << "           (the region covers no pixel of the image)\n";
        return;
    }
    out << "mean       " << Fixed(s.Mean()) << '\n'
        << "std dev    " << Fixed(s.StandardDeviation()) << '\n'
        << "min, max   " << s.Min() << ", " << s.Max() << '\n'
        << "median     " << s.Median() << '\n';
    const uint64_t width = (uint64_t{1} << significantBits_) / kBins;
    out << "histogram  " << kBins << " bins of " << width << " values"
        << (trimEmptyEnds ? ", empty ones at the ends left out" : "") << '\n';
    const uint64_t most = *std::max_element(histogram_.begin(), histogram_.end());
    int first = 0, last = kBins - 1;
    if (trimEmptyEnds) {
        while (histogram_[first] == 0) ++first;  // Count > 0: some bin is filled
        while (histogram_[last] == 0) --last;
    }
    for (int bin = first; bin <= last; ++bin) {
        const uint64_t low = bin * width;
        const std::string range = std::to_string(low) + ".." + std::to_string(low + width - 1);
        char line[64];
        std::snprintf(line, sizeof line, "  %13s %9llu", range.c_str(), static_cast<unsigned long long>(histogram_[bin]));
        // Bars of up to 40 characters; any count above 0 shows at least one.
        const size_t bar = static_cast<size_t>((histogram_[bin] * 40 + most - 1) / most);
        out << line << (bar ? "  " + std::string(bar, '#') : std::string()) << '\n';
    }
}

}  // namespace tessaly::cli
