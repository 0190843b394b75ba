// Image files made byte by byte for the tests: PNG chunks around deflated scanlines, TIFF
// directories around raw strips, JPEG through libjpeg's encoder; and the comparisons the
// suites share.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "com/image/files/ImageFilePixels.h"

namespace tessaly::test {

using Bytes = std::vector<uint8_t>;

// A PNG of the given header whose IDAT holds `scanlines` (each row led by its filter
// byte) deflated; `chunks` (type, data) go between IHDR and IDAT.
Bytes MakePng(uint32_t width, uint32_t height, int bitDepth, int colourType, const Bytes& scanlines,
              const std::vector<std::pair<std::string, Bytes>>& chunks = {}, int interlace = 0);

struct TiffEntry {
    uint16_t tag;
    uint16_t type;  // 3 SHORT, 4 LONG
    std::vector<uint32_t> values;
};

struct TiffPage {
    uint32_t width = 0;
    uint32_t height = 0;
    uint16_t bits = 8;
    uint16_t samples = 1;
    uint16_t photometric = 1;
    uint16_t planar = 1;
    std::vector<Bytes> strips;  // one strip per plane, uncompressed
    std::vector<TiffEntry> extra;
};

// A little-endian TIFF holding the pages in order.
Bytes MakeTiff(const std::vector<TiffPage>& pages);

// A JPEG (quality 95) of `components` (1 or 3) interleaved 8-bit samples.
Bytes MakeJpeg(uint32_t width, uint32_t height, int components, const Bytes& samples);

Bytes ReadBytes(const std::filesystem::path& path);
void WriteBytes(const std::filesystem::path& path, const Bytes& bytes);

// Pixels of the kind with values from a fixed pseudo-random sequence (16-bit values over
// the whole range).
image::ImageFilePixels RandomPixels(image::ImageFileKind kind, int32_t width, int32_t height, uint32_t seed);

// An empty message when the two hold the same kind, size and pixels; else the first
// difference.
std::string Difference(const image::ImageFilePixels& expected, const image::ImageFilePixels& actual);

}  // namespace tessaly::test
