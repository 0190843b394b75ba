// The scan converter of polygons (ccGenPoly and whatever else has a vertex ring): an
// active-edge table. The non-horizontal sides are sorted by their first row; each row
// takes the crossing of every active side at the row's centre from ccScanEdge (one
// multiply-add, exact near pixel centres), sorts the crossings by insertion (from one row
// to the next they barely move) and emits the spans the fill rule gives:
//   even-odd  between the first and second crossing, the third and fourth, ...
//   winding   wherever the sum of the directions of the crossings to the left is not 0
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
    // tables once per call.
    static void Scan(const cc2Vect* vertices, size_t count, bool winding, ccSpanSink& sink, const ccPixelBox& clip);

    // The same rule at one point, exactly (ccInsideRule::Orientation for every side the
    // row through the point meets): the reference Scan agrees with at every pixel centre.
    static bool Within(const cc2Vect* vertices, size_t count, bool winding, const cc2Vect& point) noexcept;
};
