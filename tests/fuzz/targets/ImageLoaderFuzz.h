// What each image loader's fuzz target does with an input: load it with the pixel count
// lowered to 2^22 (so that an accepted size never needs more than a few tens of MiB),
// accept only success or a ccImageFile failure, and check what loaded: every pixel is
// read, and a small image written as PNG and read back must come back bit for bit.
// Anything else (another exception, a sanitizer report, an allocation above
// -malloc_limit_mb) is a finding.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

#include "com/image/files/ImageFileLimits.h"
#include "com/image/files/ImageFilePixels.h"
#include "com/image/files/PngCodec.h"
#include "com/image/files/ccImageFile.h"

namespace tessaly::test {

// A hash of every pixel value in order (FNV-1a over the values).
inline uint64_t PixelHash(const image::ImageFilePixels& pixels) {
    uint64_t sum = 1469598103934665603u;
    const auto add = [&](uint32_t value) { sum = (sum ^ value) * 1099511628211u; };
    for (int32_t y = 0; y < pixels.Height(); ++y)
        for (int32_t x = 0; x < pixels.Width(); ++x) switch (pixels.Kind()) {
                case image::ImageFileKind::Grey8: add(pixels.Grey8().RowPointer(y)[x]); break;
                case image::ImageFileKind::Grey16: add(pixels.Grey16().RowPointer(y)[x]); break;
                case image::ImageFileKind::Rgb8:
                    for (int p = 0; p < 3; ++p) add(pixels.Rgb8().Plane(p).RowPointer(y)[x]);
                    break;
            }
    return sum;
}

template <class Read>
void FuzzImageLoader(const uint8_t* data, size_t size, Read read) {
    image::ImageFileLimits limits;
    limits.maxPixels = int64_t{1} << 22;
    const std::span<const uint8_t> bytes(data, size);
    try {
        const image::ImageFilePixels pixels = read(bytes, "fuzz", limits);
        const uint64_t sum = PixelHash(pixels);
        if (int64_t{pixels.Width()} * pixels.Height() <= 4096) {
            const auto png = image::PngCodec::Write(pixels, "fuzz.png");
            const image::ImageFilePixels again = image::PngCodec::Read(png, "fuzz.png", limits);
            if (again.Kind() != pixels.Kind() || again.Width() != pixels.Width() ||
                again.Height() != pixels.Height() || PixelHash(again) != sum) {
                std::fprintf(stderr, "the loaded pixels do not survive a PNG round trip\n");
                std::abort();
            }
        }
    } catch (const ccImageFile::Errors&) {
    }
}

}  // namespace tessaly::test
