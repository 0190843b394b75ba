// The polygon scan converter against a reference that shares none of its code: every
// pixel centre tested on its own with integer arithmetic (vertices on a half- or
// quarter-pixel grid, so that many centres lie exactly on sides and vertices and the rule
// decides them). Convex, star, self-intersecting (bow-ties, pentagrams, random), tiny,
// huge, thin, negative, repeated-vertex and collinear-run polygons, under both fill modes.
// Then random real coordinates against Within, clipping, and the affine rectangle's own
// converter on the same four corners.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "shapes/ShapeTestSupport.h"
#include "xnl/std/shapes/ccAffineRectangle.h"
#include "xnl/std/shapes/ccGenPoly.h"
#include "xnl/std/shapes/ccInsideRule.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace tessaly::test {
namespace {

using Pixels = std::set<std::pair<int32_t, int32_t>>;
using Fill = ccGenPoly::FillMode;

// Vertices as integers in units of 1/scale pixel.
struct GridPolygon {
    std::vector<std::pair<int64_t, int64_t>> points;
    int64_t scale = 2;
};

// The rule at the centre of pixel (i, j): the centre moved by (e, e^2) counts the sides
// whose rows hold it (top <= y < bottom) and that it lies at or right of.
bool ReferenceInside(const GridPolygon& poly, int64_t i, int64_t j, Fill fill) {
    const int64_t s = poly.scale;
    const int64_t cx = (2 * i + 1) * s, cy = (2 * j + 1) * s;  // in units of 1/(2 scale)
    int64_t winding = 0;
    const size_t n = poly.points.size();
    for (size_t k = 0; k < n; ++k) {
        int64_t ax = 2 * poly.points[k].first, ay = 2 * poly.points[k].second;
        int64_t bx = 2 * poly.points[(k + 1) % n].first, by = 2 * poly.points[(k + 1) % n].second;
        if (ay == by) continue;
        const int64_t direction = ay < by ? 1 : -1;
        if (ay > by) {
            std::swap(ax, bx);
            std::swap(ay, by);
        }
        if (!(ay <= cy && cy < by)) continue;
        const int64_t cross = (bx - ax) * (cy - ay) - (by - ay) * (cx - ax);
        if (cross <= 0) winding += direction;
    }
    return fill == Fill::Winding ? winding != 0 : (winding % 2) != 0;
}

ccGenPolyPtrh ToPoly(const GridPolygon& grid, Fill fill) {
    std::vector<cc2Vect> vertices;
    for (const auto& [x, y] : grid.points)
        vertices.push_back({static_cast<double>(x) / grid.scale, static_cast<double>(y) / grid.scale});
    return Make<ccGenPoly>(std::move(vertices), fill);
}

Pixels Scan(const ccShape& shape, const ccPixelBox& clip = ccPixelBox::Everything()) {
    SpanRecorder recorder;
    shape.ScanConvert(recorder, clip);
    return recorder.Pixels();
}

// Scan, reference and Within at every centre of the box around the polygon.
void ExpectMatchesReference(const GridPolygon& grid, Fill fill, const std::string& what) {
    const ccGenPolyPtrh poly = ToPoly(grid, fill);
    int64_t x0 = INT64_MAX, y0 = INT64_MAX, x1 = INT64_MIN, y1 = INT64_MIN;
    for (const auto& [x, y] : grid.points) {
        x0 = std::min(x0, x), y0 = std::min(y0, y), x1 = std::max(x1, x), y1 = std::max(y1, y);
    }
    Pixels expected;
    for (int64_t j = y0 / grid.scale - 2; j <= y1 / grid.scale + 2; ++j)
        for (int64_t i = x0 / grid.scale - 2; i <= x1 / grid.scale + 2; ++i) {
            const bool inside = ReferenceInside(grid, i, j, fill);
            if (inside) expected.insert({static_cast<int32_t>(i), static_cast<int32_t>(j)});
            ASSERT_EQ(poly->Within({i + 0.5, j + 0.5}), inside) << what << " Within at " << i << "," << j;
        }
    const Pixels scanned = Scan(*poly);
    ASSERT_EQ(scanned.size(), expected.size()) << what << " " << poly->Description();
    ASSERT_TRUE(scanned == expected) << what << " " << poly->Description();
}

GridPolygon Star(int points, int step, int64_t radius, int64_t cx, int64_t cy, int64_t scale) {
    GridPolygon grid;
    grid.scale = scale;
    for (int k = 0; k < points; ++k) {
        const double angle = 2 * std::numbers::pi * ((k * step) % points) / points;
        grid.points.push_back({cx + std::llround(radius * std::cos(angle)), cy + std::llround(radius * std::sin(angle))});
    }
    return grid;
}

}  // namespace

TEST(PolygonMask, NamedShapesUnderBothFillModes) {
    const std::vector<std::pair<std::string, GridPolygon>> cases = {
        {"square", {{{0, 0}, {20, 0}, {20, 20}, {0, 20}}, 2}},
        {"square reversed", {{{0, 0}, {0, 20}, {20, 20}, {20, 0}}, 2}},
        {"bow-tie", {{{0, 0}, {20, 20}, {20, 0}, {0, 20}}, 2}},
        {"pentagram", Star(5, 2, 40, 3, -7, 2)},
        {"heptagram", Star(7, 3, 60, -11, 5, 4)},
        {"doubly wound square", {{{0, 0}, {16, 0}, {16, 16}, {0, 16}, {0, 0}, {16, 0}, {16, 16}, {0, 16}}, 2}},
        {"thin sliver", {{{0, 0}, {200, 1}, {0, 2}}, 2}},
        {"tiny", {{{1, 1}, {2, 1}, {2, 2}}, 4}},
        {"negative", {{{-40, -30}, {-2, -35}, {-10, -3}, {-33, -9}}, 2}},
        {"repeated vertices", {{{0, 0}, {0, 0}, {12, 0}, {12, 0}, {12, 12}, {0, 12}, {0, 12}}, 2}},
        {"collinear runs", {{{0, 0}, {4, 0}, {8, 0}, {12, 0}, {12, 6}, {12, 12}, {6, 6}}, 2}},
        {"spike folded back", {{{0, 0}, {10, 0}, {10, 10}, {10, 4}, {20, 4}, {10, 4}, {0, 10}}, 2}},
        {"far and large", Star(9, 4, 600, 2000001, -3000001, 2)},
    };
    for (const auto& [name, grid] : cases)
        for (Fill fill : {Fill::EvenOdd, Fill::Winding})
            ExpectMatchesReference(grid, fill, name + (fill == Fill::Winding ? " winding" : " even-odd"));
}

TEST(PolygonMask, RandomPolygonsOnHalfAndQuarterGrids) {
    std::mt19937 random(20261123);
    for (int trial = 0; trial < 3000; ++trial) {
        GridPolygon grid;
        grid.scale = trial % 2 ? 2 : 4;
        const int count = 3 + static_cast<int>(random() % 9);
        // Small ranges give many repeated, collinear and on-centre vertices.
        const int64_t range = trial % 3 == 0 ? 6 : 40;
        std::uniform_int_distribution<int64_t> coordinate(-range, range);
        for (int k = 0; k < count; ++k) grid.points.push_back({coordinate(random), coordinate(random)});
        const Fill fill = trial % 4 < 2 ? Fill::EvenOdd : Fill::Winding;
        ExpectMatchesReference(grid, fill, "trial " + std::to_string(trial));
        if (HasFatalFailure()) return;
    }
}

TEST(PolygonMask, RealCoordinatesAgreeWithWithinAndClipKeepsTheRest) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> coordinate(-30.0, 30.0);
    for (int trial = 0; trial < 500; ++trial) {
        std::vector<cc2Vect> vertices;
        const int count = 3 + trial % 10;
        for (int k = 0; k < count; ++k) vertices.push_back({coordinate(random), coordinate(random)});
        const auto poly = Make<ccGenPoly>(vertices, trial % 2 ? Fill::Winding : Fill::EvenOdd);
        Pixels expected;
        for (int32_t y = -32; y < 32; ++y)
            for (int32_t x = -32; x < 32; ++x)
                if (poly->Within({x + 0.5, y + 0.5})) expected.insert({x, y});
        ASSERT_TRUE(Scan(*poly) == expected) << poly->Description();
        // A clip keeps exactly the pixels inside it.
        const ccPixelBox clip{-5, -9, 7, 4};
        Pixels clipped;
        for (const auto& pixel : expected)
            if (clip.Contains(pixel.first, pixel.second)) clipped.insert(pixel);
        ASSERT_TRUE(Scan(*poly, clip) == clipped) << poly->Description();
        const ccPixelBox bounds = poly->PixelBounds();
        for (const auto& pixel : expected) ASSERT_TRUE(bounds.Contains(pixel.first, pixel.second));
    }
}

TEST(PolygonMask, SameCornersSamePixelsAsTheAffineRectangle) {
    std::mt19937 random(11);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int trial = 0; trial < 300; ++trial) {
        const auto rect = Make<ccAffineRectangle>(cc2Vect{unit(random) * 40 - 20, unit(random) * 40 - 20},
                                                  1 + unit(random) * 30, 1 + unit(random) * 30,
                                                  unit(random) * 6.28 - 3.14, unit(random) - 0.5);
        const std::vector<cc2Vect> corners = {rect->CornerOrigin(), rect->CornerX(), rect->CornerOpposite(),
                                              rect->CornerY()};
        for (Fill fill : {Fill::EvenOdd, Fill::Winding})
            ASSERT_TRUE(Scan(*Make<ccGenPoly>(corners, fill)) == Scan(*rect)) << rect->Description();
    }
}

TEST(PolygonMask, NoPixelsWithoutThreeVerticesAndRefusesNonFiniteOnes) {
    for (size_t count : {0u, 1u, 2u}) {
        const std::vector<cc2Vect> vertices(count, cc2Vect{3, 3});
        EXPECT_TRUE(Scan(*Make<ccGenPoly>(vertices)).empty());
        EXPECT_TRUE(Make<ccGenPoly>(vertices)->PixelBounds().IsEmpty());
    }
    const auto poly = Make<ccGenPoly>(std::vector<cc2Vect>{{0, 0}, {NAN, 4}, {4, 4}});
    SpanRecorder recorder;
    EXPECT_THROW(poly->ScanConvert(recorder), ccShapesError::BadGeom);
    EXPECT_TRUE(recorder.Spans().empty());
    EXPECT_FALSE(poly->Within({1, 3}));
}

}  // namespace tessaly::test
