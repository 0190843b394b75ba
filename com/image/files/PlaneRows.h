// Moving one row of RGB pixels between the interleaved layout of the file formats (R G B,
// possibly followed by further samples) and the three planes of a cc3PlanePelBuffer.
#pragma once

#include <cstdint>

namespace tessaly::image {

class PlaneRows {
public:
    // `row` holds `width` pixels of `samples` (>= 3) bytes each, R G B first.
    static void Split(const uint8_t* row, int32_t width, int samples, uint8_t* r, uint8_t* g, uint8_t* b) noexcept {
        for (int32_t x = 0; x < width; ++x, row += samples) {
            r[x] = row[0];
            g[x] = row[1];
            b[x] = row[2];
        }
    }
    static void Join(const uint8_t* r, const uint8_t* g, const uint8_t* b, int32_t width, uint8_t* row) noexcept {
        for (int32_t x = 0; x < width; ++x, row += 3) {
            row[0] = r[x];
            row[1] = g[x];
            row[2] = b[x];
        }
    }
};

}  // namespace tessaly::image
