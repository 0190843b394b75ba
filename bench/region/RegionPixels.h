// The pixels of a region as spans per row, the one form in which bench_region compares the
// rasterisers it measures (ours, cv::fillPoly, AGG) before it times them. Each rasteriser
// hands its pixels over in its own way (runs of a ccRLEBuffer, a dense mask, AGG's
// scanlines); here they all become spans and are compared with the reference: the inside
// rule applied to every pixel centre exactly.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "xnl/std/base/cc2Vect.h"
#include "xnl/std/rlebuf/ccRLEBuffer.h"
#include "xnl/std/shapes/ccPixelBox.h"

namespace tessaly::bench {

// A convex quadrilateral: its corners in order around it (either way round).
using Quad = std::array<cc2Vect, 4>;

// The inside pixels of the rows y0 .. y0 + rows.size() - 1: rows[r] holds the spans
// [begin, end) of row y0 + r in absolute pixel coordinates, in increasing x.
struct PixelRows {
    int32_t y0 = 0;
    std::vector<std::vector<std::pair<int32_t, int32_t>>> rows;

    PixelRows(int32_t firstRow, int32_t rowCount) : y0(firstRow), rows(static_cast<size_t>(rowCount)) {}
    // Appends a span of row y (rows outside are a fault of the caller's box: false).
    bool Add(int32_t y, int32_t begin, int32_t end);
    int64_t Count() const;
};

// The pixels whose centres (i + 0.5, j + 0.5) the inside rule puts in the quadrilateral:
// a centre on a left or top edge is in, one on a right or bottom edge is out. Exact: the
// sign of every edge test is taken in 113-bit arithmetic, in which the products of the
// corners' and centres' differences are exact. `box` must hold every inside pixel.
PixelRows ReferencePixels(const Quad& quad, const ccPixelBox& box);

// The runs of value `inside` of a buffer whose pixel (0, 0) is pixel (x0, y0).
PixelRows PixelsOfRuns(const ccRLEBuffer& mask, int32_t x0, int32_t y0, uint8_t inside);
// The same for runs as the automation layer hands them out (LuxRLERun's layout).
PixelRows PixelsOfRuns(const ccRLERun* runs, int64_t numRuns, int32_t x0, int32_t y0, int32_t width, int32_t height,
                       uint8_t inside);
// The non-zero pixels of a dense 8-bit mask whose pixel (0, 0) is pixel (x0, y0).
PixelRows PixelsOfMask(const cv::Mat& mask, int32_t x0, int32_t y0);

// Sets the pixels to 255 in a dense mask whose pixel (0, 0) is pixel (x0, y0); those
// outside the mask are left out.
void Paint(const PixelRows& pixels, cv::Mat& mask, int32_t x0, int32_t y0);

// How a rasteriser's pixels differ from the reference's.
struct PixelDifference {
    int64_t missing = 0;  // inside by the rule, left out
    int64_t extra = 0;    // outside by the rule, put in
    int64_t atCorners = 0;  // of those, pixels whose centres lie within 1.5 px of a corner
    // The greatest distance from a differing pixel's centre to the outline (0 when none
    // differ): a convention that differs from ours moves pixels along the outline only.
    double farthest = 0;
    // The same, leaving out the pixels at the corners.
    double farthestAlongEdges = 0;
    bool rowsOutside = false;  // spans in rows that the reference's box does not hold

    bool Exact() const { return missing == 0 && extra == 0 && !rowsOutside; }
    std::string Describe(int64_t perimeterPixels) const;
};
PixelDifference Compare(const PixelRows& reference, const PixelRows& other, const Quad& quad);

}  // namespace tessaly::bench
