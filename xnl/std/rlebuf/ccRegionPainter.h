// Draws a region mask over a colour image: its outline in a colour, and on request a tint
// of everything inside. What shapes draw when they are rendered over an image.
//
//     ccRegionPainter painter(image, cc3PlanePel{255, 0, 0});   // planes 0, 1, 2
//     painter.Tint(mask, maskX, maskY);                         // inside at 35 %
//     painter.Outline(mask, maskX, maskY, 3);                   // 3 pixels wide
//
// The mask is placed with its pixel (0, 0) on pixel (maskX, maskY) of the image; its
// inside is the runs of the inside value (255 for the masks shapes build), everything
// else, and everything beyond the mask's own bounds, is outside. The outline is drawn on
// inside pixels only, so it lies exactly on the region and never spills out of it:
//
//  - the edge: the inside pixels that have a 4-neighbour outside;
//  - a line `width` pixels wide: the inside pixels within Chebyshev distance width - 1 of
//    an edge pixel (width 1 is the edge alone);
//  - whatever falls outside the image is left out.
//
// The work goes from the runs, row by row, as lists of intervals: the edge of a row comes
// from the row and its two neighbours, the line of a row from the edges of the
// 2 width - 1 rows around it. Only the rows that land on the image and the width - 1 (+1)
// rows around them are looked at; no dense copy of the mask is made.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "xnl/std/pelbuf/cc3PlanePelBuffer.h"
#include "xnl/std/rlebuf/ccRLEBuffer.h"

class ccRegionPainter {
public:
    // Widths beyond this draw as this: a line that wide fills any mask a buffer can hold
    // in one dimension's worth of rows, and it bounds the rows looked at around each row.
    static constexpr int32_t kMaxLineWidth = 1 << 16;
    // The share of the colour in a tinted pixel, in per cent.
    static constexpr int kTintPercent = 35;

    // ccPel::UnboundWindow for an unbound image.
    ccRegionPainter(cc3PlanePelBuffer image, const cc3PlanePel& colour, uint8_t insideValue = 255);

    // Paints the outline, `width` pixels wide (a width below 1 draws 1). An uninitialised
    // mask is ccRLEBuffer::Degenerate.
    void Outline(const ccRLEBuffer& mask, int32_t maskX, int32_t maskY, int32_t width) const;
    // Blends the colour into every inside pixel: v' = (65 v + 35 c + 50) / 100 per plane.
    void Tint(const ccRLEBuffer& mask, int32_t maskX, int32_t maskY) const;

    // Intervals [begin, end) of one row in mask coordinates, ordered and disjoint.
    using Intervals = std::vector<std::pair<int32_t, int32_t>>;
    // The outline's pixels of mask row y, `width` wide, before any clipping to an image:
    // what Outline paints, for callers that want the pixels rather than the paint.
    static Intervals OutlineRow(const ccRLEBuffer& mask, int32_t y, int32_t width, uint8_t insideValue = 255);

private:
    void PaintRow(int32_t imageY, int32_t maskX, const Intervals& intervals) const;

    cc3PlanePelBuffer image_;
    cc3PlanePel colour_;
    uint8_t inside_;
};
