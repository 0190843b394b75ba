// One non-horizontal edge of a region's outline as a scan converter walks it, from its
// upper end down to its lower end. For the row with centre y it answers the first pixel
// whose centre lies at or to the right of the edge: that is where the region's span begins
// when the edge bounds it on the left, and where the span ends when it bounds it on the
// right (the inside rule of ccInsideRule: a centre on a left edge is inside, on a right
// edge outside).
//
// The crossing is one multiply-add from the row's centre; only when it lies so close to a
// pixel centre that rounding could decide the side is the centre tested exactly
// (ccInsideRule::Orientation). No allocation, no per-pixel work.
#pragma once

#include <cstdint>

#include "xnl/std/base/cc2Vect.h"

class ccScanEdge {
public:
    ccScanEdge() noexcept = default;
    // `top` must have the smaller y (equal y makes a horizontal edge, which bounds no row
    // and must not be asked).
    ccScanEdge(const cc2Vect& top, const cc2Vect& bottom) noexcept;

    double TopY() const noexcept { return top_.Y(); }
    double BottomY() const noexcept { return bottom_.Y(); }

    // The least column whose centre at row `row` is at or right of the edge's line.
    int32_t FirstCentreAtOrRight(int32_t row) const noexcept;

private:
    cc2Vect top_;
    cc2Vect bottom_;
    double slope_ = 0.0;      // dx / dy
    double tolerance_ = 0.0;  // bound of the rounding error of a crossing
};
