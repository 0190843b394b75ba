// The scan conversion of a filled ellipse, and the exact inside test it falls back on.
//
// The ellipse is the set {d : A dx^2 + B dx dy + C dy^2 < F}, d = p - centre, with the
// coefficients as doubles (a circle: A = C = 1, B = 0, F = r^2 held exactly as the sum of
// two doubles). The region these numbers describe is decided exactly: the sign of
// Q(d) = A dx^2 + B dx dy + C dy^2 - F is computed without rounding (error-free products
// and sums), and a centre exactly on the curve is decided by the inside rule
// (ccInsideRule): the sign of Q along p + (e, e^2), that is of the x component of the
// gradient first, then of (its y component + A).
//
// Per row the quadratic gives the two x limits in one square root; only centres within
// the rounding bound of a limit are tested exactly. A circle's rows take a shorter way:
// the square root only guesses the span, and the four centres on either side of its ends
// confirm it, each by the sign of Q in plain arithmetic against that evaluation's own error
// bound; a row they cannot confirm goes the general way. No allocation, O(1) per row.
#pragma once

#include <cstdint>

#include "xnl/std/base/cc2Vect.h"
#include "xnl/std/shapes/ccPixelBox.h"

class ccSpanSink;

class ccConicScan {
public:
    ccConicScan() noexcept = default;
    // An ellipse of the unit-circle matrix R(rotation) diag(rx, ry) about `center`.
    static ccConicScan Ellipse(const cc2Vect& center, double radiusX, double radiusY, double cosRotation,
                               double sinRotation) noexcept;
    // A circle: exact coefficients.
    static ccConicScan Circle(const cc2Vect& center, double radius) noexcept;

    // The inside rule at a point, exactly.
    bool Within(double x, double y) const noexcept;

    // The pixels of row `row` inside: [first, end) (first >= end when none).
    void RowSpan(int32_t row, int32_t& first, int32_t& end) const noexcept;

    // The rows [rowFirst, rowEnd) that may hold inside pixels, and the columns likewise.
    ccPixelBox Bounds() const noexcept;

    // The whole ellipse, clipped.
    void ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const;

private:
    // -1 outside, 1 inside, exactly.
    int ExactSide(double x, double y) const noexcept;
    // The rows of a circle: ScanConvert's loop when the conic is one.
    void ScanCircle(ccSpanSink& sink, const ccPixelBox& box) const;
    // The exact first centre at or after the limit `x` (which the true limit lies within
    // `tol` of) of the span that begins (`left`) or ends there.
    int32_t Settle(int32_t row, double x, double tol, bool left) const noexcept;

    cc2Vect center_;
    double a_ = 1, b_ = 0, c_ = 1;
    double fHi_ = 1, fLo_ = 0;
    double inverseTwoA_ = 0.5;
    double halfWidth_ = 1, halfHeight_ = 1;  // of the bounding box
    bool circle_ = false;  // A = C = 1, B = 0
};

// Exact signs of sums of products of doubles, as the scan converters of the round shapes
// need them near a boundary: error-free transformations (two-sum, two-product by fma)
// into a fixed array, summed exactly by growing a non-overlapping expansion. Exact unless
// a product overflows or underflows.
class ccExactSum {
public:
    static constexpr int kCapacity = 96;
    void Add(double value) noexcept;
    // + a * b, exactly.
    void AddProduct(double a, double b) noexcept;
    // + a * (b1 + b0) * (c1 + c0), exactly, where the b and c pairs are exact sums.
    void AddProduct3(double a, double b1, double b0, double c1, double c0) noexcept;
    int Sign() const noexcept;

private:
    double terms_[kCapacity];
    int count_ = 0;
};
