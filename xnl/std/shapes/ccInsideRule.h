// The one inside rule of every region, in one place, so that every scan converter and
// every inside test answers alike (docs/regions.md draws it).
//
// Pixel (i, j) is the unit square [i, i+1) x [j, j+1) with its centre at (i + 0.5, j + 0.5);
// it is inside a region when its centre is. A point p is within a region when
// p + (e, e^2) lies in the region's interior for every small enough e > 0. On the outline,
// the step to the right decides: p is inside on a left edge (one where the region lies to
// the right, so that a row's span starts there) and outside on a right edge (where a span
// ends); only on a horizontal edge does the step down decide: inside on a top edge,
// outside on a bottom one. Half-open in both axes, like the pixels themselves. So the
// rectangle x = 0, y = 0, width = 10, height = 10 holds the pixels 0..9 x 0..9, and two
// regions that share an edge never both own a pixel.
//
// In a row with centre y, a region bounded by a left limit xl and a right limit xr (the
// region's limits just below y) holds the pixels whose centres cx satisfy xl <= cx < xr:
// the pixels [FirstCentreAtOrAfter(xl), FirstCentreAtOrAfter(xr)). Rows work the same way
// between the top and the bottom. Slanted edges decide their centres exactly through
// Orientation (ccScanEdge), so rounding never puts a centre on the wrong side.
#pragma once

#include <cstdint>

#include "xnl/std/base/cc2Vect.h"

class ccInsideRule {
public:
    // The least i whose centre i + 0.5 is >= limit, exactly; saturated to the int32_t
    // range (-inf and anything below gives INT32_MIN, +inf, NaN and anything above give
    // INT32_MAX, so a span with a NaN limit is empty).
    static int32_t FirstCentreAtOrAfter(double limit) noexcept;

    // The rows with centres in [top, bottom): [FirstRow(top), EndRow(bottom)).
    static int32_t FirstRow(double top) noexcept { return FirstCentreAtOrAfter(top); }
    static int32_t EndRow(double bottom) noexcept { return FirstCentreAtOrAfter(bottom); }
    // The pixels of a row with centres in [left, right): [SpanFirst(left), SpanEnd(right)).
    static int32_t SpanFirst(double left) noexcept { return FirstCentreAtOrAfter(left); }
    static int32_t SpanEnd(double right) noexcept { return FirstCentreAtOrAfter(right); }

    // The centre of a row or a column: exact for every int32_t index.
    static constexpr double Centre(int32_t index) noexcept { return index + 0.5; }

    // The sign of the cross product (b - a) x (p - a), computed exactly: 1 when p lies to
    // the left of the line from a to b (counter-clockwise with y up), -1 to the right, 0 on
    // it. Exact for all finite coordinates whose products neither overflow nor underflow.
    static int Orientation(const cc2Vect& a, const cc2Vect& b, const cc2Vect& p) noexcept;

    // Whether p lies within a convex polygon of `count` corners that turn counter-
    // clockwise (positive Orientation of each corner after the previous edge; y up), by
    // the rule above, exactly. The reference every convex scan converter agrees with.
    static bool WithinConvex(const cc2Vect* corners, int count, const cc2Vect& p) noexcept;
};
