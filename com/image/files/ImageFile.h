// Reading and writing image files on the core pixel buffers.
//
//     ImageFilePixels pixels = ReadImageFile("part.png");    // PNG, TIFF, PGM/PPM or JPEG
//     WriteImageFile("part.tif", pixels);                     // by the extension
//
// A file is read as what its content says it is (its first bytes), whatever its name;
// it is written as its extension says: .png, .tif or .tiff, .pgm (grey), .ppm (RGB8),
// .pnm (either), in any case. JPEG files are read, never written. docs/images.md lists
// what each format's layouts become.
//
// Failures are the ccImageFile family, whose details name the file and the reason
// ("part.png: truncated at row 17"): OpenFailed, ReadFailed, WriteFailed, BadFormat. Every
// size a file claims is checked against ImageFileLimits before a pixel is allocated.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "com/image/files/ImageFileLimits.h"
#include "com/image/files/ImageFilePixels.h"

namespace tessaly::image {

// The file's pixels: OpenFailed when it cannot be opened (missing, a directory, not
// readable), ReadFailed when reading it fails, BadFormat for content that is not an
// image of a supported layout or is larger than the limits (files above 2 GiB included).
ImageFilePixels ReadImageFile(const std::filesystem::path& path, const ImageFileLimits& limits = {});

// The same from bytes in memory; `name` is the file name the failures give.
ImageFilePixels ReadImageFileFromMemory(std::span<const uint8_t> bytes, const std::string& name,
                                        const ImageFileLimits& limits = {});

// Writes the pixels in the format of the path's extension. The file is written beside
// its final name and renamed over it once complete, so a failure leaves any file of that
// name as it was. WriteFailed for an extension that is not written (JPEG among them),
// pixels that the format does not hold (RGB8 as .pgm, grey as .ppm), an image of no
// pixels, and any failure to write.
void WriteImageFile(const std::filesystem::path& path, const ImageFilePixels& pixels);

}  // namespace tessaly::image
