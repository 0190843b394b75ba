#include "com/image/files/ImageFileLimits.h"

#include <algorithm>
#include <string>

#include "com/image/files/ccImageFile.h"

namespace tessaly::image {

void ImageFileLimits::Check(int64_t width, int64_t height, std::string_view file) const {
    const std::string size = std::to_string(width) + " x " + std::to_string(height);
    if (width <= 0 || height <= 0) throw ccImageFile::BadFormat(std::string(file) + ": no pixels (" + size + ")");
    const int64_t pixels = std::min(maxPixels, kMaxPixels);
    // Each side is checked first, so that the product cannot overflow.
    if (width > kMaxSide || height > kMaxSide || width * height > pixels)
        throw ccImageFile::BadFormat(std::string(file) + ": image too large (" + size + " pixels; at most " +
                                     std::to_string(kMaxSide) + " a side and " + std::to_string(pixels) +
                                     " in all)");
}

}  // namespace tessaly::image
