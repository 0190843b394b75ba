#include "com/acq/PixelFormatConversion.h"

#include <cstddef>
#include <cstdint>

#include "xnl/std/except/ccStdError.h"

namespace tessaly::acq {
namespace {

using image::ImageFileKind;
using image::ImageFilePixels;

bool IsDeepGrey(LuxImagePixelFormatConstants format) noexcept {
    return format == luxImagePixelFormatGrey16 || format == luxImagePixelFormatGrey10 ||
           format == luxImagePixelFormatGrey12 || format == luxImagePixelFormatGrey14;
}

int SignificantBits(LuxImagePixelFormatConstants format) noexcept {
    switch (format) {
        case luxImagePixelFormatGrey10: return 10;
        case luxImagePixelFormatGrey12: return 12;
        case luxImagePixelFormatGrey14: return 14;
        default: return 16;
    }
}

uint8_t Luminance(unsigned r, unsigned g, unsigned b) noexcept {
    return static_cast<uint8_t>((77 * r + 150 * g + 29 * b + 128) >> 8);
}

// An index mirrored about the edge pixels (-1 -> 1, n -> n - 2), kept inside a
// frame of one pixel, where there is nothing to mirror.
int32_t Mirrored(int32_t i, int32_t n) noexcept {
    if (i < 0) i = -i;
    if (i >= n) i = 2 * n - 2 - i;
    return i < 0 ? 0 : (i >= n ? n - 1 : i);
}

ccPelBuffer<uint8_t> GreyFromDeepGrey(const ccPelBuffer<uint16_t>& source, int bits) {
    const int shift = bits - 8;
    ccPelBuffer<uint8_t> target(source.Width(), source.Height());
    for (int32_t y = 0; y < source.Height(); ++y) {
        const uint16_t* in = source.RowPointer(y);
        uint8_t* out = target.RowPointer(y);
        for (int32_t x = 0; x < source.Width(); ++x) {
            const unsigned value = in[x] >> shift;
            out[x] = static_cast<uint8_t>(value > 255 ? 255 : value);  // bits above the depth
        }
    }
    return target;
}

cc3PlanePelBuffer PlanesFromGrey(const ccPelBuffer<uint8_t>& source) {
    cc3PlanePelBuffer target(source.Width(), source.Height());
    for (int plane = 0; plane < 3; ++plane) target.Plane(plane).CopyFrom(source);
    return target;
}

// Bilinear demosaic of an RGGB mosaic into three planes.
cc3PlanePelBuffer DemosaicRGGB(const ccPelBuffer<uint8_t>& mosaic) {
    const int32_t width = mosaic.Width();
    const int32_t height = mosaic.Height();
    cc3PlanePelBuffer target(width, height);
    for (int32_t y = 0; y < height; ++y) {
        const uint8_t* up = mosaic.RowPointer(Mirrored(y - 1, height));
        const uint8_t* row = mosaic.RowPointer(y);
        const uint8_t* down = mosaic.RowPointer(Mirrored(y + 1, height));
        uint8_t* red = target.Plane(0).RowPointer(y);
        uint8_t* green = target.Plane(1).RowPointer(y);
        uint8_t* blue = target.Plane(2).RowPointer(y);
        const bool redRow = (y & 1) == 0;
        for (int32_t x = 0; x < width; ++x) {
            const int32_t left = (x > 0) ? x - 1 : Mirrored(-1, width);
            const int32_t right = (x + 1 < width) ? x + 1 : Mirrored(width, width);
            const unsigned self = row[x];
            const unsigned cross = (up[x] + down[x] + row[left] + row[right] + 2) >> 2;
            const unsigned diagonal = (up[left] + up[right] + down[left] + down[right] + 2) >> 2;
            const unsigned across = (row[left] + row[right] + 1) >> 1;
            const unsigned vertical = (up[x] + down[x] + 1) >> 1;
            const bool evenColumn = (x & 1) == 0;
            unsigned r, g, b;
            if (redRow && evenColumn) {
                r = self, g = cross, b = diagonal;
            } else if (redRow) {
                r = across, g = self, b = vertical;
            } else if (evenColumn) {
                r = vertical, g = self, b = across;
            } else {
                r = diagonal, g = cross, b = self;
            }
            red[x] = static_cast<uint8_t>(r);
            green[x] = static_cast<uint8_t>(g);
            blue[x] = static_cast<uint8_t>(b);
        }
    }
    return target;
}

ccPelBuffer<uint8_t> GreyFromPlanes(const cc3PlanePelBuffer& planes) {
    ccPelBuffer<uint8_t> target(planes.Width(), planes.Height());
    for (int32_t y = 0; y < planes.Height(); ++y) {
        const uint8_t* r = planes.Plane(0).RowPointer(y);
        const uint8_t* g = planes.Plane(1).RowPointer(y);
        const uint8_t* b = planes.Plane(2).RowPointer(y);
        uint8_t* out = target.RowPointer(y);
        for (int32_t x = 0; x < planes.Width(); ++x) out[x] = Luminance(r[x], g[x], b[x]);
    }
    return target;
}

}  // namespace

ImageFileKind BufferKindOf(LuxImagePixelFormatConstants format) {
    if (format == luxImagePixelFormatGrey8 || format == luxImagePixelFormatBayer8) return ImageFileKind::Grey8;
    if (IsDeepGrey(format)) return ImageFileKind::Grey16;
    if (format == luxImagePixelFormatPlanarRGB8) return ImageFileKind::Rgb8;
    throw ccStdError::BadArgument("format");
}

bool CanConvertAcquiredPixels(LuxImagePixelFormatConstants acquired, LuxImagePixelFormatConstants output) noexcept {
    try {
        BufferKindOf(acquired);
    } catch (...) {
        return false;
    }
    if (acquired == output) return true;
    switch (output) {
        case luxImagePixelFormatGrey16: return IsDeepGrey(acquired);
        case luxImagePixelFormatGrey8:
            return IsDeepGrey(acquired) || acquired == luxImagePixelFormatBayer8 ||
                   acquired == luxImagePixelFormatPlanarRGB8;
        case luxImagePixelFormatPlanarRGB8:
            return acquired == luxImagePixelFormatGrey8 || acquired == luxImagePixelFormatBayer8;
        default: return false;
    }
}

ImageFilePixels ConvertAcquiredPixels(const ImageFilePixels& pixels, LuxImagePixelFormatConstants acquired,
                                      LuxImagePixelFormatConstants output) {
    if (!CanConvertAcquiredPixels(acquired, output)) throw ccStdError::BadArgument("output");
    if (pixels.Kind() != BufferKindOf(acquired)) throw ccStdError::BadArgument("pixels");
    if (acquired == output || (output == luxImagePixelFormatGrey16 && IsDeepGrey(acquired))) return pixels;
    if (IsDeepGrey(acquired)) return ImageFilePixels(GreyFromDeepGrey(pixels.Grey16(), SignificantBits(acquired)));
    if (acquired == luxImagePixelFormatGrey8) return ImageFilePixels(PlanesFromGrey(pixels.Grey8()));
    if (acquired == luxImagePixelFormatPlanarRGB8) return ImageFilePixels(GreyFromPlanes(pixels.Rgb8()));
    cc3PlanePelBuffer colour = DemosaicRGGB(pixels.Grey8());  // Bayer8
    if (output == luxImagePixelFormatPlanarRGB8) return ImageFilePixels(colour);
    return ImageFilePixels(GreyFromPlanes(colour));
}

}  // namespace tessaly::acq
