// PGM and PPM files (netpbm), plain (P2, P3) and raw (P5, P6). A maxval up to 255 gives
// 8-bit pixels, above 255 (up to 65535) 16-bit grey; RGB is 8-bit only. Values are kept
// as stored, not scaled to the full range; a value above the maxval is refused. Comments
// ('#' to the end of the line) may stand wherever whitespace may.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "com/image/files/ImageFileLimits.h"
#include "com/image/files/ImageFilePixels.h"

namespace tessaly::image {

class PnmCodec {
public:
    // Whether the bytes start like a PGM or PPM file (P2, P3, P5, P6 and whitespace).
    static bool Recognises(std::span<const uint8_t> bytes) noexcept;

    // ccImageFile::BadFormat naming `file` for anything that is not a well-formed file.
    static ImageFilePixels Read(std::span<const uint8_t> bytes, const std::string& file, const ImageFileLimits& limits);

    // Raw PGM (P5; maxval 255 for Grey8, 65535 for Grey16, samples big-endian) or PPM
    // (P6, maxval 255). `ppm` says which the file name asked for: the pixels must fit
    // (ccImageFile::WriteFailed naming `file` otherwise).
    static std::vector<uint8_t> Write(const ImageFilePixels& pixels, bool ppm, const std::string& file);
};

}  // namespace tessaly::image
