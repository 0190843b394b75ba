#include "com/acq/simulated/SimulatedFrames.h"

#include <string>

#include "com/acq/AcqErrors.h"
#include "com/acq/PixelFormatConversion.h"

namespace tessaly::acq {

namespace {

void PutBytes(uint8_t* row, int32_t width, uint32_t value) {
    for (int32_t i = 0; i < 4 && i < width; ++i) row[i] = static_cast<uint8_t>(value >> (8 * i));
}

uint32_t GetBytes(const uint8_t* row, int32_t width) {
    uint32_t value = 0;
    for (int32_t i = 0; i < 4 && i < width; ++i) value |= uint32_t{row[i]} << (8 * i);
    return value;
}

}  // namespace

image::ImageFilePixels PatternFrame(LuxImagePixelFormatConstants format, int32_t width, int32_t height,
                                    uint32_t triggerNumber) {
    const uint32_t shift = 4 * triggerNumber;
    if (format == luxImagePixelFormatGrey16) {
        ccPelBuffer<uint16_t> frame(width, height);
        for (int32_t y = 0; y < height; ++y) {
            uint16_t* row = frame.RowPointer(y);
            const uint32_t base = static_cast<uint32_t>(y) + shift;
            for (int32_t x = 0; x < width; ++x) row[x] = static_cast<uint16_t>(64 * (base + static_cast<uint32_t>(x)));
        }
        uint16_t* first = frame.RowPointer(0);
        if (width > 0) first[0] = static_cast<uint16_t>(triggerNumber);
        if (width > 1) first[1] = static_cast<uint16_t>(triggerNumber >> 16);
        return image::ImageFilePixels(frame);
    }
    if (format == luxImagePixelFormatPlanarRGB8) {
        cc3PlanePelBuffer frame(width, height);
        for (int32_t y = 0; y < height; ++y) {
            uint8_t* red = frame.Plane(0).RowPointer(y);
            uint8_t* green = frame.Plane(1).RowPointer(y);
            uint8_t* blue = frame.Plane(2).RowPointer(y);
            const uint32_t base = static_cast<uint32_t>(y) + shift;
            const auto g = static_cast<uint8_t>(base);
            for (int32_t x = 0; x < width; ++x) {
                red[x] = static_cast<uint8_t>(static_cast<uint32_t>(x) + shift);
                green[x] = g;
                blue[x] = static_cast<uint8_t>(base + static_cast<uint32_t>(x));
            }
        }
        PutBytes(frame.Plane(0).RowPointer(0), width, triggerNumber);
        return image::ImageFilePixels(frame);
    }
    ccPelBuffer<uint8_t> frame(width, height);
    if (format == luxImagePixelFormatBayer8) {
        for (int32_t y = 0; y < height; ++y) {
            uint8_t* row = frame.RowPointer(y);
            const uint32_t base = static_cast<uint32_t>(y) + shift;
            for (int32_t x = 0; x < width; ++x) {
                const bool evenRow = (y & 1) == 0, evenColumn = (x & 1) == 0;
                const uint32_t value = evenRow && evenColumn   ? static_cast<uint32_t>(x) + shift  // red
                                       : evenRow || evenColumn ? base                              // green
                                                               : base + static_cast<uint32_t>(x);  // blue
                row[x] = static_cast<uint8_t>(value);
            }
        }
    } else {
        for (int32_t y = 0; y < height; ++y) {
            uint8_t* row = frame.RowPointer(y);
            const uint32_t base = static_cast<uint32_t>(y) + shift;
            for (int32_t x = 0; x < width; ++x) row[x] = static_cast<uint8_t>(base + static_cast<uint32_t>(x));
        }
    }
    if (height > 0) PutBytes(frame.RowPointer(0), width, triggerNumber);
    return image::ImageFilePixels(frame);
}

uint32_t TriggerNumberOfPattern(const image::ImageFilePixels& frame) {
    switch (frame.Kind()) {
        case image::ImageFileKind::Grey8: return GetBytes(frame.Grey8().RowPointer(0), frame.Width());
        case image::ImageFileKind::Rgb8: return GetBytes(frame.Rgb8().Plane(0).RowPointer(0), frame.Width());
        case image::ImageFileKind::Grey16: {
            const uint16_t* row = frame.Grey16().RowPointer(0);
            return uint32_t{row[0]} | (frame.Width() > 1 ? uint32_t{row[1]} << 16 : 0u);
        }
    }
    return 0;
}

image::ImageFilePixels FolderFrame(const image::ImageFilePixels& file, LuxImagePixelFormatConstants format) {
    using image::ImageFileKind;
    const ImageFileKind kind = file.Kind();
    if (format == luxImagePixelFormatGrey16) {
        if (kind != ImageFileKind::Grey16)
            ThrowAcqError(e_LuxAcq_Abnormal, std::string("a 16-bit video format takes 16-bit grey files, not ") +
                                                 image::ImageFilePixels::KindName(kind));
        return file;
    }
    // Grey of 8 bits first, for the grey and Bayer formats and the grey files of colour ones.
    const auto grey = [&] {
        if (kind == ImageFileKind::Grey8) return file;
        if (kind == ImageFileKind::Grey16)
            return ConvertAcquiredPixels(file, luxImagePixelFormatGrey16, luxImagePixelFormatGrey8);
        return ConvertAcquiredPixels(file, luxImagePixelFormatPlanarRGB8, luxImagePixelFormatGrey8);
    };
    if (format == luxImagePixelFormatPlanarRGB8) {
        if (kind == ImageFileKind::Rgb8) return file;
        return ConvertAcquiredPixels(grey(), luxImagePixelFormatGrey8, luxImagePixelFormatPlanarRGB8);
    }
    if (format == luxImagePixelFormatBayer8 && kind == ImageFileKind::Rgb8) {
        const cc3PlanePelBuffer& planes = file.Rgb8();
        ccPelBuffer<uint8_t> mosaic(planes.Width(), planes.Height());
        for (int32_t y = 0; y < planes.Height(); ++y) {
            uint8_t* row = mosaic.RowPointer(y);
            for (int32_t x = 0; x < planes.Width(); ++x) {
                const int plane = (y & 1) == 0 ? ((x & 1) == 0 ? 0 : 1) : ((x & 1) == 0 ? 1 : 2);
                row[x] = planes.Plane(plane).Get(x, y);
            }
        }
        return image::ImageFilePixels(mosaic);
    }
    return grey();
}

}  // namespace tessaly::acq
