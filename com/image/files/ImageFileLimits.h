// The sizes an image file may claim. Every reader checks the size a file claims against
// these before it allocates a pixel, so no file, however made, can ask for more memory
// than the limits allow: at most 999,999 pixels a side and 2^28 pixels in all (768 MiB
// of RGB8), files of at most 2 GiB.
#pragma once

#include <cstdint>
#include <string_view>

namespace tessaly::image {

struct ImageFileLimits {
    static constexpr int64_t kMaxSide = 999999;
    static constexpr int64_t kMaxPixels = int64_t{1} << 28;
    static constexpr int64_t kMaxFileBytes = int64_t{1} << 31;

    // The pixel count a reader accepts; a caller may lower it (the fuzz targets do), not
    // raise it above kMaxPixels.
    int64_t maxPixels = kMaxPixels;

    // Refuses, as ccImageFile::BadFormat naming the file, a size with no pixels ("no
    // pixels (0 x 5)") or above the limits ("image too large (1000000 x 1 pixels)").
    void Check(int64_t width, int64_t height, std::string_view file) const;
};

}  // namespace tessaly::image
