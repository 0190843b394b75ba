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
    // dx / dy, rounded once.
    double Slope() const noexcept { return slope_; }
    // The crossing of the row's centre line as FirstCentreAtOrRight computes it, and the
    // bound of its rounding error (for rows of the edge): a converter that steps the
    // crossing from row to row starts from here and widens the bound by its own steps.
    double Crossing(int32_t row) const noexcept { return top_.X() + (row + 0.5 - top_.Y()) * slope_; }
    double Tolerance() const noexcept { return tolerance_; }

    // The least column whose centre at row `row` is at or right of the edge's line. The
    // common case is inline: it runs once per row and edge.
    int32_t FirstCentreAtOrRight(int32_t row) const noexcept {
        const double crossing = Crossing(row);
        // The first centre at or after the crossing is ceil(crossing - 0.5), taken by a
        // truncating conversion rather than a call of ceil.
        const double shifted = crossing - 0.5;
        constexpr double kSafe = 2147483000.0;  // well inside int32_t; NaN fails the test
        if (shifted > -kSafe && shifted < kSafe) [[likely]] {
            const double truncated = static_cast<double>(static_cast<int32_t>(shifted));
            const double ceiling = truncated < shifted ? truncated + 1 : truncated;
            // Far enough from the centres on either side, the rounding of the crossing
            // cannot matter.
            if (ceiling - shifted > tolerance_ && shifted - (ceiling - 1) > tolerance_) [[likely]]
                return static_cast<int32_t>(ceiling);
        }
        return ExactFirstCentreAtOrRight(row, crossing);
    }

private:
    // Decides the centres next to `crossing` exactly (ccInsideRule::Orientation).
    int32_t ExactFirstCentreAtOrRight(int32_t row, double crossing) const noexcept;

    cc2Vect top_;
    cc2Vect bottom_;
    double slope_ = 0.0;      // dx / dy
    double tolerance_ = 0.0;  // bound of the rounding error of a crossing
};
