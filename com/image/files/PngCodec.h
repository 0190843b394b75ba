// PNG files through libpng. Reading: grey stays grey (1, 2 and 4 bits expand to 8 with
// values scaled to 0..255; 16 bits stay 16 bits, in host order), palette images expand to
// RGB8, 16-bit colour is scaled to 8 bits, and alpha (a channel or a transparency chunk)
// is dropped. Writing: Grey8, Grey16 (bit for bit) and RGB8, not interlaced.
//
// libpng reports errors by longjmp: each call into it that may fail is made from a
// function that sets the jump buffer and holds no object with a destructor, so a jump
// never skips one; the C++ side allocates before and checks after.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "com/image/files/ImageFileLimits.h"
#include "com/image/files/ImageFilePixels.h"

namespace tessaly::image {

class PngCodec {
public:
    static bool Recognises(std::span<const uint8_t> bytes) noexcept;
    // ccImageFile::BadFormat naming `file` for anything libpng or the limits refuse.
    static ImageFilePixels Read(std::span<const uint8_t> bytes, const std::string& file, const ImageFileLimits& limits);
    // ccImageFile::WriteFailed naming `file` when libpng fails.
    static std::vector<uint8_t> Write(const ImageFilePixels& pixels, const std::string& file);
};

}  // namespace tessaly::image
