// The inside rule: the pixel index of a limit at the exact boundaries, the exact
// orientation test against integer arithmetic, the edge walker against an exact
// reference where centres lie on edges, regions that share edges owning each pixel once,
// and the affine rectangle's scan converter against a brute-force test of every centre
// on many random rectangles (axis-aligned ones with integer and half-integer edges,
// quarter turns, mirror images and negative cos(skew) among them).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <random>
#include <set>
#include <utility>

#include "shapes/ShapeTestSupport.h"
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccAffineRectangle.h"
#include "xnl/std/shapes/ccInsideRule.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccScanEdge.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace tessaly::test {
namespace {

constexpr double kPi = std::numbers::pi;
constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();

using Pixels = std::set<std::pair<int32_t, int32_t>>;

// The exact sign of (b - a) x (p - a) for coordinates that are multiples of 2^-50 below
// 2000 in size: scaled to integers, the products fit in 128 bits.
int ExactOrientation(const cc2Vect& a, const cc2Vect& b, const cc2Vect& p) {
    const auto scaled = [](double value) { return static_cast<__int128>(std::ldexp(value, 50)); };
    const __int128 determinant = (scaled(b.X()) - scaled(a.X())) * (scaled(p.Y()) - scaled(a.Y())) -
                                 (scaled(b.Y()) - scaled(a.Y())) * (scaled(p.X()) - scaled(a.X()));
    return determinant > 0 ? 1 : (determinant < 0 ? -1 : 0);
}

bool OnGrid(double value) { return std::ldexp(value, 50) == std::trunc(std::ldexp(value, 50)); }

Pixels ScanPixels(const ccShape& shape) {
    SpanRecorder recorder;
    shape.ScanConvert(recorder);
    return recorder.Pixels();
}

// The pixels of `box` whose centres are within `shape`, one test per pixel.
Pixels BruteForcePixels(const ccShape& shape, const ccPixelBox& box) {
    Pixels pixels;
    for (int32_t y = box.y0; y < box.y1; ++y)
        for (int32_t x = box.x0; x < box.x1; ++x)
            if (shape.Within({x + 0.5, y + 0.5})) pixels.insert({x, y});
    return pixels;
}

ccPixelBox Grown(const ccPixelBox& box, int32_t margin) {
    return {box.x0 - margin, box.y0 - margin, box.x1 + margin, box.y1 + margin};
}

}  // namespace

TEST(InsideRule, FirstCentreAtOrAfterIsExactAtEveryBoundary) {
    using R = ccInsideRule;
    EXPECT_EQ(R::FirstCentreAtOrAfter(0.0), 0);
    EXPECT_EQ(R::FirstCentreAtOrAfter(0.5), 0);  // a centre on the limit counts
    EXPECT_EQ(R::FirstCentreAtOrAfter(std::nextafter(0.5, 1.0)), 1);
    EXPECT_EQ(R::FirstCentreAtOrAfter(std::nextafter(0.5, 0.0)), 0);
    EXPECT_EQ(R::FirstCentreAtOrAfter(-0.5), -1);
    EXPECT_EQ(R::FirstCentreAtOrAfter(9.5), 9);
    EXPECT_EQ(R::FirstCentreAtOrAfter(10.0), 10);
    // limit - 0.5 rounds to -1 here, yet the centre -0.5 lies below the limit.
    EXPECT_EQ(R::FirstCentreAtOrAfter(std::nextafter(-0.5, 0.0)), 0);
    EXPECT_EQ(R::FirstCentreAtOrAfter(std::nextafter(-1.5, 0.0)), -1);
    EXPECT_EQ(R::FirstCentreAtOrAfter(1e-300), 0);
    EXPECT_EQ(R::FirstCentreAtOrAfter(-1e-300), 0);
    // Saturation, NaN making every span empty.
    EXPECT_EQ(R::FirstCentreAtOrAfter(std::numeric_limits<double>::quiet_NaN()), kMax);
    EXPECT_EQ(R::FirstCentreAtOrAfter(std::numeric_limits<double>::infinity()), kMax);
    EXPECT_EQ(R::FirstCentreAtOrAfter(-std::numeric_limits<double>::infinity()), kMin);
    EXPECT_EQ(R::FirstCentreAtOrAfter(1e300), kMax);
    EXPECT_EQ(R::FirstCentreAtOrAfter(-1e300), kMin);
    EXPECT_EQ(R::FirstCentreAtOrAfter(kMax - 1.5), kMax - 2);

    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> anywhere(-1e6, 1e6);
    for (int i = 0; i < 100000; ++i) {
        const double limit = i % 2 ? anywhere(random) : std::round(anywhere(random)) + 0.5;
        const int32_t first = R::FirstCentreAtOrAfter(limit);
        ASSERT_GE(first + 0.5, limit) << limit;
        ASSERT_LT(first - 0.5, limit) << limit;
    }
}

TEST(InsideRule, OrientationIsExact) {
    using R = ccInsideRule;
    EXPECT_EQ(R::Orientation({0, 0}, {1, 0}, {0, 1}), 1);
    EXPECT_EQ(R::Orientation({0, 0}, {1, 0}, {0, -1}), -1);
    EXPECT_EQ(R::Orientation({0, 0}, {1, 0}, {7, 0}), 0);

    std::mt19937_64 random(11);
    std::uniform_real_distribution<double> coordinate(-1000, 1000);
    std::uniform_int_distribution<int> step(-8, 16);
    int collinear = 0, tiny = 0;
    for (int i = 0; i < 200000; ++i) {
        cc2Vect a(coordinate(random), coordinate(random));
        cc2Vect b(coordinate(random), coordinate(random));
        if (i % 3 == 0) {  // on half-integers, so that the line meets many grid points
            a = {std::round(a.X()) + 0.5, std::round(a.Y()) + 0.5};
            b = {std::round(b.X()) + 0.5, std::round(b.Y()) + 0.5};
        }
        // A point on the line (exactly, when the arithmetic allows), then nudged by one
        // unit in the last place or not at all.
        const double t = step(random) / 8.0;
        cc2Vect p = a + (b - a) * t;
        if (i % 4 == 1) p.X(std::nextafter(p.X(), 1e9));
        if (i % 4 == 2) p.Y(std::nextafter(p.Y(), -1e9));
        if (i % 5 == 0) p = {coordinate(random), coordinate(random)};
        if (!OnGrid(a.X()) || !OnGrid(a.Y()) || !OnGrid(b.X()) || !OnGrid(b.Y()) || !OnGrid(p.X()) ||
            !OnGrid(p.Y()) || std::fabs(p.X()) >= 2000 || std::fabs(p.Y()) >= 2000)
            continue;
        const int expected = ExactOrientation(a, b, p);
        collinear += expected == 0;
        tiny += expected != 0 && p.Distance(a + (b - a) * t) < 1e-9;
        ASSERT_EQ(R::Orientation(a, b, p), expected)
            << a.X() << "," << a.Y() << " " << b.X() << "," << b.Y() << " " << p.X() << "," << p.Y();
        // Exact signs are antisymmetric under swapping the edge's ends.
        ASSERT_EQ(R::Orientation(b, a, p), -expected);
    }
    // The cases that matter were there.
    EXPECT_GT(collinear, 10000);
    EXPECT_GT(tiny, 10000);
}

TEST(InsideRule, EdgeWalkerFindsTheExactFirstCentreAtOrRight) {
    // Edges between half-integer points run through pixel centres on many rows.
    std::mt19937_64 random(5);
    std::uniform_int_distribution<int> grid(-40, 40);
    std::uniform_int_distribution<int> down(1, 30);
    int onEdge = 0;
    for (int i = 0; i < 3000; ++i) {
        const cc2Vect top(grid(random) + 0.5, grid(random) + 0.5);
        cc2Vect bottom(top.X() + grid(random), top.Y() + down(random));
        if (i % 2) bottom = {bottom.X() + grid(random) / 7.0, bottom.Y() + 1.0 / 3};  // off the grid
        const ccScanEdge edge(top, bottom);
        for (int32_t row = ccInsideRule::FirstRow(top.Y()); row < ccInsideRule::EndRow(bottom.Y()); ++row) {
            const double y = row + 0.5;
            // Brute force: the first centre, walking right, that is not strictly left.
            int32_t expected = -200;
            while (ccInsideRule::Orientation(top, bottom, {expected + 0.5, y}) > 0) ++expected;
            onEdge += ccInsideRule::Orientation(top, bottom, {expected + 0.5, y}) == 0;
            ASSERT_EQ(edge.FirstCentreAtOrRight(row), expected) << i << " row " << row;
        }
    }
    EXPECT_GT(onEdge, 1000);
}

TEST(InsideRule, RegionsSharingEdgesOwnEachPixelOnce) {
    // A parallelogram on half-integer corners, cut along its diagonal (which runs through
    // a centre on every row) and, separately, along the line between two side midpoints.
    const cc2Vect o(0.5, 0.5), x(6.5, 2.5), y(2.5, 6.5), opposite(8.5, 8.5);
    const cc2Vect whole[4] = {o, x, opposite, y};
    const cc2Vect lower[3] = {o, x, opposite};
    const cc2Vect upper[3] = {o, opposite, y};
    const cc2Vect m1(3.5, 1.5), m2(5.5, 7.5);
    const cc2Vect left[4] = {o, m1, m2, y};
    const cc2Vect right[4] = {m1, x, opposite, m2};
    int wholeCount = 0, onCut = 0;
    for (int32_t row = -2; row < 12; ++row) {
        for (int32_t column = -2; column < 12; ++column) {
            const cc2Vect centre(column + 0.5, row + 0.5);
            const bool inWhole = ccInsideRule::WithinConvex(whole, 4, centre);
            const bool inLower = ccInsideRule::WithinConvex(lower, 3, centre);
            const bool inUpper = ccInsideRule::WithinConvex(upper, 3, centre);
            const bool inLeft = ccInsideRule::WithinConvex(left, 4, centre);
            const bool inRight = ccInsideRule::WithinConvex(right, 4, centre);
            EXPECT_FALSE(inLower && inUpper) << column << "," << row;
            EXPECT_EQ(inLower || inUpper, inWhole) << column << "," << row;
            EXPECT_FALSE(inLeft && inRight) << column << "," << row;
            EXPECT_EQ(inLeft || inRight, inWhole) << column << "," << row;
            wholeCount += inWhole;
            onCut += ccInsideRule::Orientation(o, opposite, centre) == 0 || ccInsideRule::Orientation(m1, m2, centre) == 0;
        }
    }
    EXPECT_EQ(wholeCount, 32);  // the area, since the rule is fair to every edge
    EXPECT_GT(onCut, 8);

    // Two axis-aligned affine rectangles side by side (one of them a mirror image turned
    // a quarter): together exactly the pixels of the rectangle they tile.
    const ccAffineRectanglePtrh a(new ccAffineRectangle({0.5, 0.5}, {4.5, 0.5}, {0.5, 3.5}));
    const ccAffineRectanglePtrh b(new ccAffineRectangle({4.5, 0.5}, {4.5, 3.5}, {9.5, 0.5}));
    ASSERT_LT(std::cos(b->Skew()), 0);
    const Pixels pa = ScanPixels(*a), pb = ScanPixels(*b);
    Pixels both = pa;
    for (const auto& pixel : pb) EXPECT_TRUE(both.insert(pixel).second) << pixel.first << "," << pixel.second;
    EXPECT_EQ(both, ScanPixels(*Make<ccRect>(0.5, 0.5, 9, 3)));
}

TEST(InsideRule, AffineScanConversionAgreesWithEveryCentre) {
    std::mt19937_64 random(2024);
    std::uniform_real_distribution<double> position(-20, 60);
    std::uniform_real_distribution<double> length(0.2, 30);
    std::uniform_real_distribution<double> angle(-kPi, kPi);
    std::uniform_int_distribution<int> kind(0, 9);
    const double quarterTurns[] = {0.0, kPi / 2, -kPi, -kPi / 2};
    int clearCases = 0, axisAligned = 0;
    for (int i = 0; i < 1500; ++i) {
        cc2Vect center(position(random), position(random));
        double sideX = length(random), sideY = length(random);
        double rotation = angle(random), skew = angle(random);
        const int shape = kind(random);
        if (shape <= 3) {
            // Axis-aligned, on integer or half-integer edges: a rotation by quarter turns and
            // a skew of 0 or -pi (a mirror image).
            sideX = std::round(sideX) + 1;
            sideY = std::round(sideY) + 1;
            const double offset = shape % 2 ? 0.5 : 0.0;
            // An odd side needs a centre on a half-integer for its edges to land on the grid;
            // a quarter turn lays side X along the y axis.
            const bool turned = i % 2 == 1;
            const double halfAcross = std::fmod(turned ? sideY : sideX, 2) / 2;
            const double halfDown = std::fmod(turned ? sideX : sideY, 2) / 2;
            center = {std::round(center.X()) + halfAcross + offset, std::round(center.Y()) + halfDown + offset};
            rotation = quarterTurns[i % 4];
            skew = shape >= 2 ? -kPi : 0.0;
        } else if (shape == 4) {
            skew = kPi - 0.2;  // cos(skew) < 0
        } else if (shape == 5) {
            center = {std::round(center.X()) + 0.5, std::round(center.Y())};
            rotation = std::atan2(1.0, 2.0);  // edges through many centres, up to rounding
        }
        if (std::fabs(std::fabs(cc2XformLinear::NormalizeAngle(skew)) - kPi / 2) <= 0.01) skew = 0.3;
        const auto rect = Make<ccAffineRectangle>(center, sideX, sideY, rotation, skew);

        SpanRecorder recorder;
        rect->ScanConvert(recorder);  // checks the sink contract as it goes
        const Pixels scanned = recorder.Pixels();
        const ccPixelBox bounds = rect->PixelBounds();
        for (const auto& pixel : scanned) ASSERT_TRUE(bounds.Contains(pixel.first, pixel.second)) << rect->Description();
        ASSERT_EQ(scanned, BruteForcePixels(*rect, Grown(bounds, 2))) << rect->Description();
        EXPECT_NEAR(static_cast<double>(scanned.size()), rect->Area(), rect->Perimeter() + 4) << rect->Description();

        // Within itself against the parallelogram's own coordinates, wherever rounding
        // cannot matter.
        const cc2XformLinear toUnit = rect->UnitSquareMap().Inverse();
        for (int32_t row = bounds.y0 - 1; row <= bounds.y1; ++row) {
            for (int32_t column = bounds.x0 - 1; column <= bounds.x1; ++column) {
                const cc2Vect st = toUnit.MapPoint({column + 0.5, row + 0.5});
                const double margin = std::min({std::fabs(st.X()), std::fabs(1 - st.X()), std::fabs(st.Y()),
                                                std::fabs(1 - st.Y())});
                if (margin < 1e-9) continue;
                ++clearCases;
                const bool inside = st.X() > 0 && st.X() < 1 && st.Y() > 0 && st.Y() < 1;
                ASSERT_EQ(rect->Within({column + 0.5, row + 0.5}), inside) << rect->Description();
            }
        }

        // An axis-aligned one holds exactly the pixels of the same ccRect, whose test is a
        // plain comparison of coordinates.
        if (shape <= 3) {
            ++axisAligned;
            const ccRectPtrh box = rect->BoundingBox();
            ASSERT_EQ(scanned, ScanPixels(*box)) << rect->Description();
            EXPECT_EQ(static_cast<double>(scanned.size()), sideX * sideY) << rect->Description();
        }
    }
    EXPECT_GT(clearCases, 100000);
    EXPECT_GT(axisAligned, 400);
}

TEST(InsideRule, AffineScanConversionAgreesOnThinFarAndNearlyFlatOnes) {
    std::mt19937_64 random(99);
    std::uniform_real_distribution<double> unit(0, 1);
    const double nearlyFlat = kPi / 2 - 0.0011;
    int64_t total = 0;
    for (int i = 0; i < 400; ++i) {
        const double far = i % 4 == 0 ? 1e6 : (i % 4 == 1 ? -3e7 : 0);
        const cc2Vect center(far + 40 * unit(random), -far + 40 * unit(random));
        const double sideX = i % 3 == 0 ? 1e-3 + unit(random) : 1 + 60 * unit(random);
        const double sideY = i % 5 == 0 ? 1e-3 : 50 + 500 * unit(random);
        const double skew = i % 2 ? nearlyFlat : -nearlyFlat + (i % 7 == 0 ? kPi : 0);
        const auto rect = Make<ccAffineRectangle>(center, sideX, sideY, 2 * kPi * unit(random), skew);
        const Pixels scanned = ScanPixels(*rect);
        ASSERT_EQ(scanned, BruteForcePixels(*rect, Grown(rect->PixelBounds(), 2))) << rect->Description();
        total += static_cast<int64_t>(scanned.size());
    }
    EXPECT_GT(total, 2000);  // slivers, but not all of them empty
}

TEST(InsideRule, AffineScanConversionClipsAndHandlesNegativeCoordinates) {
    const auto rect = Make<ccAffineRectangle>(cc2Vect(0, 0), 40, 20, kPi / 6, 0.2);
    const Pixels all = ScanPixels(*rect);
    ASSERT_FALSE(all.empty());
    const ccPixelBox clip{-3, -7, 11, 5};
    SpanRecorder clipped;
    rect->ScanConvert(clipped, clip);
    Pixels expected;
    for (const auto& pixel : all)
        if (clip.Contains(pixel.first, pixel.second)) expected.insert(pixel);
    EXPECT_EQ(clipped.Pixels(), expected);
    SpanRecorder none;
    rect->ScanConvert(none, ccPixelBox{100, 100, 200, 200});
    EXPECT_TRUE(none.Spans().empty());
    EXPECT_THROW(Make<ccAffineRectangle>(cc2Vect(std::nan(""), 0), 1, 1, 0, 0)->ScanConvert(none), ccShapesError::BadGeom);
    EXPECT_THROW(Make<ccAffineRectangle>(cc2Vect(0, 0), 1.5e308, 1.5e308, 0.5, 0)->ScanConvert(none), ccShapesError::BadGeom);
    EXPECT_TRUE(none.Spans().empty());
}

}  // namespace tessaly::test
