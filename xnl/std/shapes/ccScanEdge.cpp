#include "xnl/std/shapes/ccScanEdge.h"

#include <cmath>
#include <limits>

#include "xnl/std/shapes/ccInsideRule.h"

ccScanEdge::ccScanEdge(const cc2Vect& top, const cc2Vect& bottom) noexcept
    : top_(top), bottom_(bottom), slope_((bottom.X() - top.X()) / (bottom.Y() - top.Y())) {
    // The crossing top.x + (y - top.y) slope carries at most a few rounding errors of the
    // size of its terms; |(y - top.y) slope| <= |bottom.x - top.x| for rows of the edge.
    // The bound is generous (64 units in the last place of the largest term, plus a
    // floor for coordinates near 0): it only decides when to test exactly.
    constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
    tolerance_ = 64 * kEpsilon * (std::fabs(top.X()) + std::fabs(bottom.X() - top.X()) + 1.0);
}

int32_t ccScanEdge::FirstCentreAtOrRight(int32_t row) const noexcept {
    const double centreY = ccInsideRule::Centre(row);
    const double crossing = top_.X() + (centreY - top_.Y()) * slope_;
    // The first centre at or after the crossing is ceil(crossing - 0.5), taken by a
    // truncating conversion rather than a call of ceil: this runs once per row and edge.
    const double shifted = crossing - 0.5;
    constexpr double kSafe = 2147483000.0;  // well inside int32_t, and NaN fails the test
    if (!(shifted > -kSafe && shifted < kSafe)) return ccInsideRule::FirstCentreAtOrAfter(crossing);
    const double truncated = static_cast<double>(static_cast<int32_t>(shifted));
    const double ceiling = truncated < shifted ? truncated + 1 : truncated;
    // Far enough from the centres on either side, the rounding of the crossing cannot
    // matter.
    if (ceiling - shifted > tolerance_ && shifted - (ceiling - 1) > tolerance_) return static_cast<int32_t>(ceiling);

    // A centre (i + 0.5, centreY) is at or right of the downward edge when it is not
    // strictly to the left: Orientation <= 0.
    const auto atOrRight = [&](int32_t column) {
        return ccInsideRule::Orientation(top_, bottom_, {ccInsideRule::Centre(column), centreY}) <= 0;
    };
    int32_t column = static_cast<int32_t>(ceiling);
    while (column > std::numeric_limits<int32_t>::min() && atOrRight(column - 1)) --column;
    while (column < std::numeric_limits<int32_t>::max() && !atOrRight(column)) ++column;
    return column;
}
