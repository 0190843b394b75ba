// The scan converter of polygons (ccGenPoly and whatever else has a vertex ring): an
// active-edge table. The non-horizontal sides are sorted by their first row. Each active
// side carries its crossing of the row's centre line in fixed point (crossing + 0.5 in
// units of 2^-32 pixel), stepped by one integer addition a row and started afresh from
// ccScanEdge every 1024 rows and where the side begins; the first centre at or right of
// it, ceil(crossing - 0.5), is the integer part, unless the fraction lies within the
// steps' error bound of a whole number: then ccScanEdge decides that row exactly. Sides whose crossings lie
// beyond 2^30 pixels take ccScanEdge's crossing on every row. The active sides stay in the
// order of their columns (re-sorted by insertion in the rare row where it changes), and
// the spans the fill rule gives go to the sink as one row (ccSpanSink::blitRow):
//   even-odd  between the first and second crossing, the third and fourth, ...
//   winding   wherever the sum of the directions of the crossings to the left is not 0
// In most rows the columns rise strictly and pair up as they stand (even-odd, or winding
// with directions that alternate): they are handed over as the row's bounds, untouched.
// A crossing at column c means the centres c, c + 1, ... lie at or right of that side,
// which is the inside rule of ccInsideRule (a centre on a left edge is inside).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "xnl/std/base/cc2Vect.h"
#include "xnl/std/shapes/ccPixelBox.h"

class ccSpanSink;

class ccPolygonScan {
public:
    // Emits the pixels of the closed ring vertices[0] .. vertices[count - 1] (the last
    // joined to the first) that lie in `clip`. The vertices must be finite. Allocates its
    // tables once per call (three blocks), nothing per row.
    static void Scan(const cc2Vect* vertices, size_t count, bool winding, ccSpanSink& sink, const ccPixelBox& clip);

    // The same rule at one point, exactly (ccInsideRule::Orientation for every side the
    // row through the point meets): the reference Scan agrees with at every pixel centre.
    static bool Within(const cc2Vect* vertices, size_t count, bool winding, const cc2Vect& point) noexcept;
};
