// The masks of circles, ellipses and annulus sections against a brute-force test of every
// pixel centre over thousands of random shapes (tiny, huge, thin, rotated, at negative
// coordinates; sections with negative spans, spans beyond 2 pi, radial scales below and
// above 1). The brute force is written independently in long double from the definitions;
// a centre within 1e-9 (relative) of the outline is left to the exact test and counted.
// Every pixel near the outline is also checked against the shape's own Within, which
// decides exactly, so that scan conversion and the inside test never disagree. Exact cases:
// centres on the outline of a circle, and sections that split one ring without overlap.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "shapes/ShapeTestSupport.h"
#include "xnl/std/shapes/ccAnnulus.h"
#include "xnl/std/shapes/ccCircle.h"
#include "xnl/std/shapes/ccEllipse2.h"
#include "xnl/std/shapes/ccEllipseAnnulus.h"
#include "xnl/std/shapes/ccShape.h"

namespace tessaly::test {
namespace {

constexpr long double kPiL = 3.141592653589793238462643383279502884L;
constexpr double kPi = std::numbers::pi;
using Pixels = std::set<std::pair<int32_t, int32_t>>;

Pixels MaskOf(const ccShape& shape, const ccPixelBox& clip) {
    SpanRecorder recorder;
    shape.ScanConvert(recorder, clip);
    return recorder.Pixels();
}

// 1 inside, 0 outside, -1 too close to call in long double.
struct Reference {
    long double cx, cy, rx, ry, rot;
    bool section = false;
    long double start = 0, span = 0, lo = 1, hi = 1;
    long double cosRot = 1, sinRot = 0;
    void Prepare() {
        cosRot = std::cos(rot);
        sinRot = std::sin(rot);
    }

    int Decide(int32_t i, int32_t j) const {
        const long double px = i + 0.5L, py = j + 0.5L;
        const long double dx = px - cx, dy = py - cy;
        const long double c = cosRot, s = sinRot;
        const long double u = (c * dx + s * dy) / rx;
        const long double v = (-s * dx + c * dy) / ry;
        const long double rho = std::sqrt(u * u + v * v);
        constexpr long double kNear = 1e-9L;
        if (!section) {
            if (std::fabs(rho - 1) < kNear) return -1;
            return rho < 1 ? 1 : 0;
        }
        if (std::fabs(rho - lo) < kNear * hi || std::fabs(rho - hi) < kNear * hi) return -1;
        if (!(rho > lo && rho < hi)) return 0;
        if (std::fabs(span) >= 2 * kPiL) return 1;
        // The angle on the unit circle, measured from the start in the direction of travel.
        const long double t = std::atan2(v, u);
        long double offset = std::fmod((t - start) * (span > 0 ? 1 : -1), 2 * kPiL);
        if (offset < 0) offset += 2 * kPiL;
        const long double sweep = std::fabs(span);
        const long double nearAngle = kNear * hi / std::max(rho, 1e-300L);
        if (offset < nearAngle || std::fabs(offset - sweep) < nearAngle || 2 * kPiL - offset < nearAngle) return -1;
        return offset < sweep ? 1 : 0;
    }
};

struct Tally {
    int64_t compared = 0;
    int64_t skipped = 0;
};

// Every pixel of the box around the shape: the mask must hold exactly the pixels the
// reference calls inside and none it calls outside; the undecided ones must follow Within.
// The mask as a dense bitmap of a box.
class DenseMask : public ccSpanSink {
public:
    explicit DenseMask(const ccPixelBox& box) : box_(box), bits_(static_cast<size_t>(box.Width() * box.Height())) {}
    void blitH(int32_t x, int32_t y, int32_t width) override {
        ASSERT_GE(width, 1);
        ASSERT_TRUE(box_.Contains(x, y) && box_.Contains(x + width - 1, y)) << "span outside the clip";
        if (y == lastY_) {
            ASSERT_GT(x, lastEnd_) << "spans overlap, touch or go backwards in row " << y;
        }
        ASSERT_GE(y, lastY_);
        lastY_ = y;
        lastEnd_ = x + width;
        for (int32_t i = x; i < x + width; ++i) bits_[Index(i, y)] = true;
    }
    bool At(int32_t x, int32_t y) const { return bits_[Index(x, y)]; }

private:
    size_t Index(int32_t x, int32_t y) const {
        return static_cast<size_t>((int64_t{y} - box_.y0) * box_.Width() + (int64_t{x} - box_.x0));
    }
    ccPixelBox box_;
    std::vector<bool> bits_;
    int32_t lastY_ = std::numeric_limits<int32_t>::min();
    int32_t lastEnd_ = 0;
};

void CompareWithReference(const ccShape& shape, Reference reference, Tally& tally) {
    reference.Prepare();
    const ccPixelBox bounds = shape.PixelBounds();
    const ccPixelBox box{bounds.x0 - 2, bounds.y0 - 2, bounds.x1 + 2, bounds.y1 + 2};
    ASSERT_LE(box.Width() * box.Height(), 12'000'000) << shape.Description();
    DenseMask mask(box);
    shape.ScanConvert(mask, box);
    ASSERT_FALSE(::testing::Test::HasFatalFailure());
    for (int32_t j = box.y0; j < box.y1; ++j) {
        for (int32_t i = box.x0; i < box.x1; ++i) {
            const bool inMask = mask.At(i, j);
            const int expected = reference.Decide(i, j);
            if (expected < 0) {
                ++tally.skipped;
                ASSERT_EQ(inMask, shape.Within(cc2Vect(i + 0.5, j + 0.5))) << shape.Description() << " at " << i << "," << j;
                continue;
            }
            ++tally.compared;
            ASSERT_EQ(inMask, expected == 1) << shape.Description() << " pixel " << i << "," << j;
        }
    }
    // Clipping to a part gives exactly that part.
    const ccPixelBox part{box.x0 + static_cast<int32_t>(box.Width() / 3), box.y0 + static_cast<int32_t>(box.Height() / 4),
                          box.x1 - static_cast<int32_t>(box.Width() / 5), box.y1};
    const Pixels clipped = MaskOf(shape, part);
    for (const auto& pixel : clipped) ASSERT_TRUE(part.Contains(pixel.first, pixel.second));
    int64_t expectedCount = 0;
    for (int32_t j = part.y0; j < part.y1; ++j)
        for (int32_t i = part.x0; i < part.x1; ++i) expectedCount += mask.At(i, j) ? 1 : 0;
    EXPECT_EQ(static_cast<int64_t>(clipped.size()), expectedCount) << shape.Description();
}

double Pick(std::mt19937_64& random, double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(random); }

// Radii from tiny to large, centres anywhere (negative ones too), sometimes on the pixel
// grid or half grid so that centres lie on the outline.
double RandomRadius(std::mt19937_64& random) {
    switch (random() % 5) {
        case 0: return Pick(random, 0.05, 1.5);
        case 1: return std::round(Pick(random, 1, 40));
        case 2: return Pick(random, 1, 60);
        case 3: return Pick(random, 100, 250);
        default: return std::round(Pick(random, 1, 30) * 2) / 2;
    }
}

double RandomCoordinate(std::mt19937_64& random) {
    double c = Pick(random, -300, 300);
    if (random() % 3 == 0) c = std::round(c * 2) / 2;
    if (random() % 7 == 0) c += 1e6 * (random() % 2 ? 1 : -1);
    return c;
}

TEST(RoundMaskProperty, CirclesAgreeWithTheCentreTestOfEveryPixel) {
    std::mt19937_64 random(11);
    Tally tally;
    for (int n = 0; n < 1500; ++n) {
        const cc2Vect centre(RandomCoordinate(random), RandomCoordinate(random));
        const double radius = RandomRadius(random);
        auto circle = Make<ccCircle>(centre, radius);
        Reference reference{centre.X(), centre.Y(), radius, radius, 0};
        CompareWithReference(*circle, reference, tally);
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(tally.compared, 1'000'000);
    RecordProperty("skipped", std::to_string(tally.skipped));
}

TEST(RoundMaskProperty, EllipsesAgreeWithTheCentreTestOfEveryPixel) {
    std::mt19937_64 random(12);
    Tally tally;
    for (int n = 0; n < 1500; ++n) {
        const cc2Vect centre(RandomCoordinate(random), RandomCoordinate(random));
        double rx = RandomRadius(random), ry = RandomRadius(random);
        if (n % 5 == 0) ry = rx * Pick(random, 0.001, 0.05);  // thin
        double rotation = Pick(random, -kPi, kPi);
        if (n % 4 == 0) rotation = (static_cast<int>(random() % 4) - 2) * kPi / 2;  // quarter turns
        auto ellipse = Make<ccEllipse2>(centre, rx, ry, rotation);
        Reference reference{centre.X(), centre.Y(), rx, ry, ellipse->Rotation()};
        CompareWithReference(*ellipse, reference, tally);
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(tally.compared, 1'000'000);
}

TEST(RoundMaskProperty, AnnulusSectionsAgreeWithTheCentreTestOfEveryPixel) {
    std::mt19937_64 random(13);
    Tally tally;
    for (int n = 0; n < 2000; ++n) {
        const cc2Vect centre(RandomCoordinate(random), RandomCoordinate(random));
        const double radius = RandomRadius(random);
        double span = Pick(random, -2 * kPi, 2 * kPi);
        if (n % 6 == 0) span = Pick(random, -13, 13);  // beyond a full turn either way
        if (n % 9 == 0) span = (static_cast<int>(random() % 8) - 4 + 0.5) * kPi / 2;
        if (span == 0) span = 1;
        const double start = n % 5 == 0 ? (static_cast<int>(random() % 4) - 2) * kPi / 2 : Pick(random, -4, 4);
        double scale = random() % 2 ? Pick(random, 0.1, 0.95) : Pick(random, 1.05, 3);
        if (n % 11 == 0) scale = 2;
        Reference reference{centre.X(), centre.Y(), radius, radius, 0, true};
        if (n % 2 == 0) {
            auto section = Make<ccAnnulus>(centre, radius, start, span, scale);
            reference.start = section->AngleStart();
            reference.span = span;
            reference.lo = std::min(1.0, scale);
            reference.hi = std::max(1.0, scale);
            CompareWithReference(*section, reference, tally);
        } else {
            const double ry = n % 3 == 0 ? radius * Pick(random, 0.01, 0.3) : RandomRadius(random);
            const double rotation = Pick(random, -4, 4);
            auto section = Make<ccEllipseAnnulus>(centre, radius, ry, rotation, start, span, scale);
            reference.ry = ry;
            reference.rot = section->Rotation();
            reference.start = section->AngleStart();
            reference.span = span;
            reference.lo = std::min(1.0, scale);
            reference.hi = std::max(1.0, scale);
            CompareWithReference(*section, reference, tally);
        }
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(tally.compared, 1'000'000);
}

TEST(RoundMaskProperty, CentresOnACircleFollowTheInsideRule) {
    // Radius 5 about a pixel centre: 69 lattice points strictly inside, 12 on the circle;
    // of those the left half (dx < 0: five) and the top point are inside.
    auto circle = Make<ccCircle>(cc2Vect(10.5, 10.5), 5.0);
    const Pixels mask = MaskOf(*circle, ccPixelBox::Everything());
    EXPECT_EQ(mask.size(), 75u);
    EXPECT_TRUE(mask.count({10, 5}));    // top (10.5, 5.5)
    EXPECT_FALSE(mask.count({10, 15}));  // bottom
    EXPECT_TRUE(mask.count({5, 10}));    // left
    EXPECT_FALSE(mask.count({15, 10}));  // right
    EXPECT_TRUE(mask.count({7, 6}));     // (-3, -4)
    EXPECT_FALSE(mask.count({13, 6}));   // (3, -4)
    EXPECT_TRUE(circle->Within(cc2Vect(10.5, 5.5)));
    EXPECT_FALSE(circle->Within(cc2Vect(15.5, 10.5)));
    // A circle of radius below 1/2 curves away faster than the step (e, e^2): its top
    // point is outside, and the one of radius 1/2 too.
    EXPECT_FALSE(Make<ccCircle>(cc2Vect(0.5, 0.75), 0.25)->Within(cc2Vect(0.5, 0.5)));
    EXPECT_FALSE(Make<ccCircle>(cc2Vect(0.5, 1.0), 0.5)->Within(cc2Vect(0.5, 0.5)));
    EXPECT_TRUE(Make<ccCircle>(cc2Vect(0.5, 1.25), 0.75)->Within(cc2Vect(0.5, 0.5)));
}

TEST(RoundMaskProperty, SectionsThatSplitARingOwnEachPixelOnce) {
    std::mt19937_64 random(14);
    for (int n = 0; n < 200; ++n) {
        const cc2Vect centre(std::round(Pick(random, -50, 50)) + (n % 2 ? 0.5 : 0), std::round(Pick(random, -50, 50)));
        const double rx = std::round(Pick(random, 3, 40));
        const double ry = n % 3 ? rx : std::round(Pick(random, 3, 40));
        const double rotation = n % 4 ? Pick(random, -3, 3) : 0;
        const double scale = n % 2 ? 0.5 : 2;
        auto ring = Make<ccEllipseAnnulus>(centre, rx, ry, rotation, 0.0, 2 * kPi, scale);
        const Pixels whole = MaskOf(*ring, ccPixelBox::Everything());
        // Cut at random angles (quarter turns among them, where rays are axis-parallel).
        std::vector<double> cuts{Pick(random, -kPi, kPi)};
        const int pieces = 2 + static_cast<int>(random() % 4);
        for (int k = 1; k < pieces; ++k) cuts.push_back(n % 5 == 0 ? cuts[0] + k * kPi / 2 : cuts.back() + Pick(random, 0.05, 1.5));
        Pixels joined;
        size_t total = 0;
        for (int k = 0; k < pieces; ++k) {
            const double from = cuts[k];
            const double to = k + 1 < pieces ? cuts[k + 1] : cuts[0] + 2 * kPi;
            if (to - from <= 0) continue;
            // Every other piece given backwards: the same region.
            auto piece = k % 2 ? Make<ccEllipseAnnulus>(centre, rx, ry, rotation, to, from - to, scale)
                               : Make<ccEllipseAnnulus>(centre, rx, ry, rotation, from, to - from, scale);
            const Pixels part = MaskOf(*piece, ccPixelBox::Everything());
            total += part.size();
            joined.insert(part.begin(), part.end());
        }
        if (cuts.back() - cuts[0] >= 2 * kPi) continue;  // the pieces overran a full turn
        EXPECT_EQ(total, joined.size()) << "pieces overlap, ring " << ring->Description();
        EXPECT_EQ(joined, whole) << ring->Description();
    }
}

TEST(RoundMaskProperty, SpansBeyondAFullTurnAndReversedSpansGiveTheSameRegion) {
    auto full = Make<ccAnnulus>(cc2Vect(3.5, -7.25), 20.0, 0.3, 2 * kPi, 1.5);
    auto twice = Make<ccAnnulus>(cc2Vect(3.5, -7.25), 20.0, -1.0, -4 * kPi, 1.5);
    EXPECT_EQ(MaskOf(*full, ccPixelBox::Everything()), MaskOf(*twice, ccPixelBox::Everything()));
    auto forwards = Make<ccAnnulus>(cc2Vect(0, 0), 30.0, 0.5, 2.5, 0.4);
    auto backwards = Make<ccAnnulus>(cc2Vect(0, 0), 30.0, 3.0, -2.5, 0.4);
    EXPECT_EQ(MaskOf(*forwards, ccPixelBox::Everything()), MaskOf(*backwards, ccPixelBox::Everything()));
    EXPECT_DOUBLE_EQ(forwards->Area(), backwards->Area());
    EXPECT_DOUBLE_EQ(forwards->Perimeter(), backwards->Perimeter());
}

}  // namespace
}  // namespace tessaly::test
