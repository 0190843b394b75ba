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

int32_t ccScanEdge::ExactFirstCentreAtOrRight(int32_t row, double crossing) const noexcept {
    const int32_t candidate = ccInsideRule::FirstCentreAtOrAfter(crossing);
    // At the ends of the index range (and for a NaN crossing) the answer is saturated.
    if (candidate == std::numeric_limits<int32_t>::min() || candidate == std::numeric_limits<int32_t>::max())
        return candidate;
    // A centre (i + 0.5, centreY) is at or right of the downward edge when it is not
    // strictly to the left: Orientation <= 0.
    const double centreY = ccInsideRule::Centre(row);
    const auto atOrRight = [&](int32_t column) {
        return ccInsideRule::Orientation(top_, bottom_, {ccInsideRule::Centre(column), centreY}) <= 0;
    };
    int32_t column = candidate;
    while (column > std::numeric_limits<int32_t>::min() && atOrRight(column - 1)) --column;
    while (column < std::numeric_limits<int32_t>::max() && !atOrRight(column)) ++column;
    return column;
}
