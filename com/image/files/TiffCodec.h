// TIFF files through libtiff. Reading takes the first page of a file: 8- and 16-bit grey
// (min-is-black or min-is-white, extra samples such as alpha dropped), 8-bit RGB with the
// samples contiguous or in separate planes, and 1-bit bilevel images as 0 and 255. Every
// other layout (other sample sizes, floating-point or signed samples, palettes, YCbCr,
// CMYK, tiles) is refused by name. Writing: Grey8, Grey16 and RGB8 (contiguous), deflate
// compressed, bit for bit.
//
// libtiff's messages go to handlers of each open file, never to the error stream; the
// first error is what the failure reports.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "com/image/files/ImageFileLimits.h"
#include "com/image/files/ImageFilePixels.h"

namespace tessaly::image {

class TiffCodec {
public:
    static bool Recognises(std::span<const uint8_t> bytes) noexcept;
    // ccImageFile::BadFormat naming `file` for anything libtiff or the limits refuse.
    static ImageFilePixels Read(std::span<const uint8_t> bytes, const std::string& file, const ImageFileLimits& limits);
    // ccImageFile::WriteFailed naming `file` when libtiff fails.
    static std::vector<uint8_t> Write(const ImageFilePixels& pixels, const std::string& file);
};

}  // namespace tessaly::image
