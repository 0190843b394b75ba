// JPEG files through libjpeg-turbo, read only: grey files become Grey8, colour files
// (YCbCr or RGB) RGB8; CMYK files are refused. A file that ends before its last scan is
// refused as truncated rather than shown with the grey libjpeg would fill in.
//
// libjpeg reports errors through its error manager, whose exit here is a longjmp: as for
// PNG, the calls that may fail are made from functions that set the jump buffer and hold
// no object with a destructor. Its messages are kept, never printed.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "com/image/files/ImageFileLimits.h"
#include "com/image/files/ImageFilePixels.h"

namespace tessaly::image {

class JpegCodec {
public:
    static bool Recognises(std::span<const uint8_t> bytes) noexcept;
    // ccImageFile::BadFormat naming `file` for anything libjpeg or the limits refuse.
    static ImageFilePixels Read(std::span<const uint8_t> bytes, const std::string& file, const ImageFileLimits& limits);
};

}  // namespace tessaly::image
