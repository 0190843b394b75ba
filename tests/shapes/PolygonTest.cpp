// The polygon's geometry: area and moments against closed forms for triangles and
// rectangles and against a fan of triangles, the arc moments of a square, the hull against
// a brute-force hull, complexity against a brute-force test of every pair of sides,
// convexity, the vertex list's refusals (exact error, list unchanged), degenerate measures,
// mapping, and the open chain ccPolyline.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <set>
#include <vector>

#include "shapes/ShapeTestSupport.h"
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccGenPoly.h"
#include "xnl/std/shapes/ccPolyline.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace tessaly::test {
namespace {

using Fill = ccGenPoly::FillMode;
using Points = std::vector<cc2Vect>;

// Moments of a triangle in closed form (the vertex sums), signed by its orientation.
ccGenPoly::Moments2 TriangleMoments(const cc2Vect& a, const cc2Vect& b, const cc2Vect& c) {
    const double area = ((b - a).Cross(c - a)) / 2;
    const double sx = a.X() + b.X() + c.X(), sy = a.Y() + b.Y() + c.Y();
    ccGenPoly::Moments2 m;
    m.sum = area;
    m.sumX = area * sx / 3;
    m.sumY = area * sy / 3;
    const auto pairs = [](double p, double q, double r) { return p * p + q * q + r * r + p * q + p * r + q * r; };
    m.sumXX = area / 6 * pairs(a.X(), b.X(), c.X());
    m.sumYY = area / 6 * pairs(a.Y(), b.Y(), c.Y());
    m.sumXY = area / 12 * (sx * sy + a.X() * a.Y() + b.X() * b.Y() + c.X() * c.Y());
    return m;
}

void ExpectMomentsNear(const ccGenPoly::Moments2& actual, const ccGenPoly::Moments2& expected, double tolerance) {
    const auto near = [&](double a, double e) { EXPECT_NEAR(a, e, tolerance * (1 + std::fabs(e))); };
    near(actual.sum, expected.sum);
    near(actual.sumX, expected.sumX);
    near(actual.sumY, expected.sumY);
    near(actual.sumXX, expected.sumXX);
    near(actual.sumYY, expected.sumYY);
    near(actual.sumXY, expected.sumXY);
}

int64_t Cross(const cc2Vect& a, const cc2Vect& b, const cc2Vect& p) {  // small integer points
    const auto i = [](double v) { return static_cast<int64_t>(v); };
    return (i(b.X()) - i(a.X())) * (i(p.Y()) - i(a.Y())) - (i(b.Y()) - i(a.Y())) * (i(p.X()) - i(a.X()));
}

bool OnClosedSegment(const cc2Vect& a, const cc2Vect& b, const cc2Vect& p) {
    return Cross(a, b, p) == 0 && std::min(a.X(), b.X()) <= p.X() && p.X() <= std::max(a.X(), b.X()) &&
           std::min(a.Y(), b.Y()) <= p.Y() && p.Y() <= std::max(a.Y(), b.Y());
}

// Every pair of sides of the ring without consecutive repeats.
bool BruteForceComplex(const Points& vertices) {
    Points ring;
    for (const cc2Vect& v : vertices)
        if (ring.empty() || !(ring.back() == v)) ring.push_back(v);
    while (ring.size() > 1 && ring.back() == ring.front()) ring.pop_back();
    const size_t m = ring.size();
    if (m < 3) return false;
    for (size_t i = 0; i < m; ++i)
        for (size_t j = i + 1; j < m; ++j) {
            const cc2Vect &a = ring[i], &b = ring[(i + 1) % m], &c = ring[j], &d = ring[(j + 1) % m];
            const bool adjacent = j == i + 1 || (i == 0 && j == m - 1);
            if (adjacent) {
                // Sharing one end, they overlap when a point other than it is on both.
                const cc2Vect& shared = j == i + 1 ? b : a;
                const cc2Vect& p = j == i + 1 ? a : b;
                const cc2Vect& q = j == i + 1 ? d : c;
                if ((OnClosedSegment(c, d, p) && !(p == shared)) || (OnClosedSegment(a, b, q) && !(q == shared)))
                    return true;
                if (Cross(p, shared, q) == 0 && ((shared - p).Dot(q - shared) < 0)) return true;
                continue;
            }
            const int64_t o1 = Cross(a, b, c), o2 = Cross(a, b, d), o3 = Cross(c, d, a), o4 = Cross(c, d, b);
            if (((o1 > 0 && o2 < 0) || (o1 < 0 && o2 > 0)) && ((o3 > 0 && o4 < 0) || (o3 < 0 && o4 > 0))) return true;
            if (OnClosedSegment(a, b, c) || OnClosedSegment(a, b, d) || OnClosedSegment(c, d, a) ||
                OnClosedSegment(c, d, b))
                return true;
        }
    return false;
}

// The hull's corners: p is one when some other point q has every point on its left or on
// the closed segment p-q (so collinear points between corners are not corners).
std::set<std::pair<double, double>> BruteForceHullCorners(const Points& points) {
    std::set<std::pair<double, double>> corners;
    for (const cc2Vect& p : points)
        for (const cc2Vect& q : points) {
            if (p == q) continue;
            bool edge = true;
            for (const cc2Vect& r : points) {
                const int64_t cross = Cross(p, q, r);
                if (cross < 0 || (cross == 0 && !OnClosedSegment(p, q, r))) edge = false;
            }
            if (edge) corners.insert({p.X(), p.Y()}), corners.insert({q.X(), q.Y()});
        }
    return corners;
}

}  // namespace

TEST(Polygon, AreaAndMomentsOfTrianglesRectanglesAndFans) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> coordinate(-100.0, 100.0);
    for (int trial = 0; trial < 200; ++trial) {
        const cc2Vect a{coordinate(random), coordinate(random)}, b{coordinate(random), coordinate(random)},
            c{coordinate(random), coordinate(random)};
        ccGenPoly::Moments2 expected = TriangleMoments(a, b, c);
        const double sign = expected.sum < 0 ? -1 : 1;
        EXPECT_NEAR(Make<ccGenPoly>(Points{a, b, c})->SignedArea(), expected.sum, 1e-9 * (1 + std::fabs(expected.sum)));
        for (double* value : {&expected.sum, &expected.sumX, &expected.sumY, &expected.sumXX, &expected.sumYY,
                              &expected.sumXY})
            *value *= sign;
        // Either way round, the same (positive) moments.
        ExpectMomentsNear(Make<ccGenPoly>(Points{a, b, c})->AreaMoments2(), expected, 1e-9);
        ExpectMomentsNear(Make<ccGenPoly>(Points{c, b, a})->AreaMoments2(), expected, 1e-9);
    }
    // The rectangle [x, x + w] x [y, y + h] far from the origin.
    const double x = 1e6 + 3, y = -2e6 + 5, w = 7, h = 2;
    const auto rect = Make<ccGenPoly>(Points{{x, y}, {x + w, y}, {x + w, y + h}, {x, y + h}});
    const ccGenPoly::Moments2 m = rect->AreaMoments2();
    EXPECT_DOUBLE_EQ(m.sum, w * h);
    EXPECT_DOUBLE_EQ(m.sumX, w * h * (x + w / 2));
    EXPECT_DOUBLE_EQ(m.sumYY, w * (y * y * h + y * h * h + h * h * h / 3));
    EXPECT_NEAR(m.sumXY, w * h * (x + w / 2) * (y + h / 2), 1e-9 * std::fabs(m.sumXY));
    EXPECT_EQ(rect->AreaCenter(), (cc2Vect{x + w / 2, y + h / 2}));
    const ccGenPoly::Moments1 m1 = rect->AreaMoments1();
    EXPECT_EQ(m1.sum, m.sum);
    EXPECT_EQ(m1.sumX, m.sumX);
    EXPECT_EQ(m1.sumY, m.sumY);

    // A star-shaped polygon against the sum of the triangles of a fan from its kernel.
    for (int trial = 0; trial < 100; ++trial) {
        Points vertices;
        const cc2Vect centre{coordinate(random), coordinate(random)};
        const int count = 3 + trial % 40;
        for (int k = 0; k < count; ++k) {
            const double angle = 6.283185307179586 * (k + 0.5 * std::uniform_real_distribution<double>(0, 1)(random)) / count;
            const double radius = 1 + 50 * std::uniform_real_distribution<double>(0, 1)(random);
            vertices.push_back(centre + cc2Vect{std::cos(angle), std::sin(angle)} * radius);
        }
        ccGenPoly::Moments2 fan;
        for (int k = 0; k < count; ++k) {
            const ccGenPoly::Moments2 t = TriangleMoments(centre, vertices[k], vertices[(k + 1) % count]);
            fan.sum += t.sum, fan.sumX += t.sumX, fan.sumY += t.sumY;
            fan.sumXX += t.sumXX, fan.sumYY += t.sumYY, fan.sumXY += t.sumXY;
        }
        ExpectMomentsNear(Make<ccGenPoly>(vertices)->AreaMoments2(), fan, 1e-9);
    }
}

TEST(Polygon, ArcMomentsPerimeterAndTheSmallCounts) {
    const auto square = Make<ccGenPoly>(Points{{0, 0}, {2, 0}, {2, 2}, {0, 2}});
    const ccGenPoly::Moments2 arc = square->ArcMoments2();
    EXPECT_DOUBLE_EQ(arc.sum, 8);
    EXPECT_DOUBLE_EQ(arc.sumX, 8);  // centre (1, 1)
    // x^2 along the sides: 2 * 8/3 (horizontal) + 2 * 0 + 2 * 4 (the side x = 2).
    EXPECT_DOUBLE_EQ(arc.sumXX, 16.0 / 3 + 8);
    EXPECT_DOUBLE_EQ(arc.sumXY, 8);  // by symmetry about (1, 1): the mean of xy is 1
    EXPECT_EQ(square->ArcCenter(), (cc2Vect{1, 1}));
    EXPECT_DOUBLE_EQ(square->Perimeter(), 8);

    EXPECT_EQ(Make<ccGenPoly>(Points{{5, 5}})->Perimeter(), 0);
    EXPECT_EQ(Make<ccGenPoly>(Points{})->Perimeter(), 0);
    const auto two = Make<ccGenPoly>(Points{{0, 0}, {3, 4}});
    EXPECT_EQ(two->Area(), 0);
    EXPECT_EQ(two->Perimeter(), 10);  // there and back
    EXPECT_THROW(two->AreaCenter(), ccShapesError::DegenerateShape);
    EXPECT_EQ(two->ArcCenter(), (cc2Vect{1.5, 2}));
    EXPECT_THROW(Make<ccGenPoly>(Points{{1, 1}, {1, 1}, {1, 1}})->ArcCenter(), ccShapesError::DegenerateShape);
    const auto empty = Make<ccGenPoly>();
    EXPECT_THROW(empty->MeanVertex(), ccShapesError::DegenerateShape);
    EXPECT_THROW(empty->NearestVertex({0, 0}), ccShapesError::DegenerateShape);
    EXPECT_THROW(empty->BoundingBox(), ccShapesError::EmptyShape);
    try {
        empty->AreaCenter();
        FAIL() << "no refusal";
    } catch (const ccShapesError::Errors& error) {
        EXPECT_EQ(error.Code(), 0x10300001u);
    }
}

TEST(Polygon, MeanAndNearestVertexTakeTheLowestIndexOnTies) {
    const auto poly = Make<ccGenPoly>(Points{{0, 0}, {4, 0}, {4, 4}, {0, 4}, {4, 0}});
    EXPECT_EQ(poly->MeanVertex(), (cc2Vect{2.4, 1.6}));
    EXPECT_EQ(poly->NearestVertex({2, 0}), 0u);  // 0 and 1 equally near
    EXPECT_EQ(poly->NearestVertex({5, -1}), 1u);  // 1 and 4 coincide
    EXPECT_EQ(poly->NearestVertex({3, 3.5}), 2u);
}

TEST(Polygon, VertexListRefusalsChangeNothing) {
    const auto poly = Make<ccGenPoly>(Points{{0, 0}, {1, 0}, {1, 1}});
    const Points before = poly->Vertices();
    EXPECT_THROW(poly->Vertex(3), ccShapesError::BadIndex);
    EXPECT_THROW(poly->SetVertex(3, {9, 9}), ccShapesError::BadIndex);
    EXPECT_THROW(poly->RemoveVertex(3), ccShapesError::BadIndex);
    EXPECT_THROW(poly->InsertVertex(4, {9, 9}), ccShapesError::BadIndex);
    EXPECT_EQ(poly->Vertices(), before);
    poly->InsertVertex(3, {0, 1});  // at the count: appends
    EXPECT_EQ(poly->Vertex(3), (cc2Vect{0, 1}));
    poly->InsertVertex(0, {-1, -1});
    EXPECT_EQ(poly->Vertex(0), (cc2Vect{-1, -1}));
    poly->RemoveVertex(0);
    EXPECT_EQ(poly->NumVertices(), 4u);
    poly->VertexReserve(100);
    EXPECT_GE(poly->VertexCapacity(), 100u);
    EXPECT_EQ(poly->NumVertices(), 4u);
    poly->Resize(6, {7, 7});
    EXPECT_EQ(poly->Vertex(5), (cc2Vect{7, 7}));
    poly->Resize(2);
    EXPECT_EQ(poly->Vertices(), (Points{{0, 0}, {1, 0}}));
}

TEST(Polygon, ConvexHullAgainstBruteForce) {
    std::mt19937 random(5);
    for (int trial = 0; trial < 1000; ++trial) {
        const int range = trial % 2 ? 4 : 30;  // small ranges: many collinear and repeated points
        std::uniform_int_distribution<int> coordinate(-range, range);
        Points points;
        const int count = 1 + trial % 25;
        for (int k = 0; k < count; ++k) points.push_back({double(coordinate(random)), double(coordinate(random))});
        const ccGenPolyPtrh hull = Make<ccGenPoly>(points)->ConvexHull();
        const Points& h = hull->Vertices();
        const auto expected = BruteForceHullCorners(points);
        if (expected.size() >= 3) {
            std::set<std::pair<double, double>> got;
            for (const cc2Vect& v : h) got.insert({v.X(), v.Y()});
            ASSERT_EQ(got, expected) << "trial " << trial;
            ASSERT_EQ(h.size(), expected.size());
            for (size_t k = 0; k < h.size(); ++k)
                ASSERT_GT(Cross(h[k], h[(k + 1) % h.size()], h[(k + 2) % h.size()]), 0) << "turns the positive way";
            for (const cc2Vect& v : h)
                ASSERT_TRUE(h[0].X() < v.X() || (h[0].X() == v.X() && h[0].Y() <= v.Y())) << "starts at least x";
            ASSERT_TRUE(hull->IsConvex());
            ASSERT_TRUE(Make<ccGenPoly>(Points(h.rbegin(), h.rend()))->IsConvex());
        } else {
            ASSERT_LE(h.size(), 2u);
            ASSERT_FALSE(hull->IsConvex());
        }
    }
}

TEST(Polygon, ComplexityAgainstEveryPairOfSides) {
    std::mt19937 random(9);
    int complexCount = 0;
    for (int trial = 0; trial < 4000; ++trial) {
        const int range = trial % 3 == 0 ? 3 : 20;
        std::uniform_int_distribution<int> coordinate(0, range);
        Points points;
        const int count = 3 + trial % 10;
        for (int k = 0; k < count; ++k) points.push_back({double(coordinate(random)), double(coordinate(random))});
        const bool expected = BruteForceComplex(points);
        complexCount += expected;
        ASSERT_EQ(Make<ccGenPoly>(points)->IsComplex(), expected) << Make<ccGenPoly>(points)->Description();
    }
    EXPECT_GT(complexCount, 400);
    EXPECT_LT(complexCount, 3900);
    // Longer rings whose sides meet rarely: random walks of small steps.
    int longComplex = 0;
    for (int trial = 0; trial < 300; ++trial) {
        std::uniform_int_distribution<int> step(-2, 2);
        Points points{{0, 0}};
        const int count = 20 + trial % 150;
        for (int k = 1; k < count; ++k) points.push_back(points.back() + cc2Vect{double(step(random)), double(step(random))});
        const bool expected = BruteForceComplex(points);
        longComplex += expected;
        ASSERT_EQ(Make<ccGenPoly>(points)->IsComplex(), expected) << Make<ccGenPoly>(points)->Description();
    }
    EXPECT_GT(longComplex, 0);
    // Many sides: a convex 2000-gon with one vertex pushed across the far side, or not.
    Points ring;
    for (int k = 0; k < 2000; ++k)
        ring.push_back({std::round(1e6 * std::cos(k * 0.0031415926)), std::round(1e6 * std::sin(k * 0.0031415926))});
    EXPECT_FALSE(Make<ccGenPoly>(ring)->IsComplex());
    EXPECT_EQ(Make<ccGenPoly>(ring)->IsComplex(), BruteForceComplex(ring));
    ring[1000] = {2e6, 5};  // through the sides on the other side of the ring
    EXPECT_EQ(Make<ccGenPoly>(ring)->IsComplex(), BruteForceComplex(ring));
    EXPECT_TRUE(Make<ccGenPoly>(ring)->IsComplex());
}

TEST(Polygon, ConvexityAndComplexityOfNamedShapes) {
    const Points square{{0, 0}, {10, 0}, {10, 10}, {0, 10}};
    EXPECT_TRUE(Make<ccGenPoly>(square)->IsConvex());
    EXPECT_FALSE(Make<ccGenPoly>(square)->IsComplex());
    EXPECT_TRUE(Make<ccGenPoly>(Points{{0, 0}, {0, 10}, {10, 10}, {10, 0}})->IsConvex());
    EXPECT_TRUE(Make<ccGenPoly>(Points{{0, 0}, {5, 0}, {10, 0}, {10, 10}, {0, 10}})->IsConvex()) << "mid-side vertex";
    EXPECT_TRUE(Make<ccGenPoly>(Points{{0, 0}, {10, 0}, {10, 0}, {10, 10}, {0, 10}, {0, 0}})->IsConvex())
        << "repeated vertices";
    const auto bowTie = Make<ccGenPoly>(Points{{0, 0}, {10, 10}, {10, 0}, {0, 10}});
    EXPECT_TRUE(bowTie->IsComplex());
    EXPECT_FALSE(bowTie->IsConvex());
    EXPECT_FALSE(Make<ccGenPoly>(Points{{0, 0}, {10, 0}, {3, 3}, {0, 10}})->IsConvex()) << "concave";
    EXPECT_FALSE(Make<ccGenPoly>(Points{{0, 0}, {10, 0}, {10, 10}, {10, 4}, {0, 10}})->IsConvex()) << "folded side";
    EXPECT_TRUE(Make<ccGenPoly>(Points{{0, 0}, {10, 0}, {10, 10}, {10, 4}, {0, 10}})->IsComplex());
    EXPECT_FALSE(Make<ccGenPoly>(Points{{0, 0}, {5, 0}, {10, 0}})->IsConvex()) << "no area";
    EXPECT_TRUE(Make<ccGenPoly>(Points{{0, 0}, {5, 0}, {10, 0}})->IsComplex()) << "flat: the last side folds back";
    // A pentagram turns the same way at every vertex but winds twice.
    Points pentagram;
    for (int k = 0; k < 5; ++k)
        pentagram.push_back({std::round(100 * std::cos(k * 2 * 2.0 * 3.14159265358979 / 5)),
                             std::round(100 * std::sin(k * 2 * 2.0 * 3.14159265358979 / 5))});
    EXPECT_FALSE(Make<ccGenPoly>(pentagram)->IsConvex());
    EXPECT_TRUE(Make<ccGenPoly>(pentagram)->IsComplex());
    // Touching without crossing: a vertex on a non-neighbouring side.
    EXPECT_TRUE(Make<ccGenPoly>(Points{{0, 0}, {10, 0}, {10, 10}, {5, 0}, {0, 10}})->IsComplex());
    EXPECT_FALSE(Make<ccGenPoly>(Points{{0, 0}, {1, 1}})->IsComplex());
}

TEST(Polygon, MapTranslateReverseAndEquality) {
    const auto poly = Make<ccGenPoly>(Points{{0, 0}, {4, 0}, {4, 2}}, Fill::Winding);
    const cc2XformLinear xform(2, 0, 0, 3, 10, 20);
    const ccShapePtrh mapped = poly->Map(xform);
    EXPECT_TRUE(mapped->Equals(*Make<ccGenPoly>(Points{{10, 20}, {18, 20}, {18, 26}}, Fill::Winding)));
    EXPECT_DOUBLE_EQ(mapped->Area(), 6 * poly->Area());
    EXPECT_THROW(poly->Map(cc2XformLinear(1, 2, 2, 4, 0, 0)), ccShapesError::DegenerateShape);
    EXPECT_TRUE(poly->Translate({1, 1})->Equals(*Make<ccGenPoly>(Points{{1, 1}, {5, 1}, {5, 3}}, Fill::Winding)));
    EXPECT_TRUE(poly->Reverse()->Equals(*Make<ccGenPoly>(Points{{0, 0}, {4, 2}, {4, 0}}, Fill::Winding)));
    EXPECT_FALSE(poly->Equals(*Make<ccGenPoly>(poly->Vertices(), Fill::EvenOdd)));
    EXPECT_EQ(poly->NearestPoint({2, -3}), (cc2Vect{2, 0}));
    const ccRectPtrh box = poly->BoundingBox();
    EXPECT_EQ(box->X(), 0);
    EXPECT_EQ(box->Width(), 4);
    EXPECT_EQ(box->Height(), 2);
    EXPECT_THROW(Make<ccGenPoly>(Points{{0, 0}, {INFINITY, 0}})->BoundingBox(), ccShapesError::InfiniteExtent);
    const auto broken = Make<ccGenPoly>(Points{{0, 0}, {4, 0}, {NAN, 3}, {0, 4}});
    EXPECT_THROW(broken->ConvexHull(), ccShapesError::BadGeom);
    EXPECT_THROW(broken->IsComplex(), ccShapesError::BadGeom);
    EXPECT_FALSE(broken->IsConvex());
}

TEST(Polyline, LengthPointsTangentsAndEnds) {
    const auto line = Make<ccPolyline>(Points{{0, 0}, {3, 4}, {3, 4}, {3, 10}});
    EXPECT_DOUBLE_EQ(line->Length(), 11);
    EXPECT_EQ(line->PointAt(-1), (cc2Vect{0, 0}));
    EXPECT_EQ(line->PointAt(2.5), (cc2Vect{1.5, 2}));
    EXPECT_EQ(line->PointAt(8), (cc2Vect{3, 7}));
    EXPECT_EQ(line->PointAt(99), (cc2Vect{3, 10}));
    EXPECT_EQ(line->TangentAt(1), (cc2Vect{0.6, 0.8}));
    EXPECT_EQ(line->TangentAt(5), (cc2Vect{0, 1})) << "the later side at a vertex, past the repeated one";
    EXPECT_EQ(line->TangentAt(11), (cc2Vect{0, 1}));
    EXPECT_DOUBLE_EQ(line->ArcLengthOf({10, 7}), 8);
    EXPECT_EQ(line->StartPoint(), (cc2Vect{0, 0}));
    EXPECT_EQ(line->EndPoint(), (cc2Vect{3, 10}));
    EXPECT_TRUE(line->Reverse()->Equals(*Make<ccPolyline>(Points{{3, 10}, {3, 4}, {3, 4}, {0, 0}})));
    std::vector<cc2Vect> samples;
    line->Sample(2, samples);
    EXPECT_EQ(samples.size(), 1u + 3 + 1 + 3);
    EXPECT_EQ(samples.back(), (cc2Vect{3, 10}));
    EXPECT_THROW(line->Sample(0, samples), ccShapesError::BadParams);
    EXPECT_TRUE(line->Map(cc2XformLinear(0, 0, 0, 0, 1, 1))->Equals(*Make<ccPolyline>(Points(4, {1, 1}))))
        << "an open chain may collapse";

    const auto point = Make<ccPolyline>(Points{{2, 2}});
    EXPECT_EQ(point->Length(), 0);
    EXPECT_THROW(point->TangentAt(0), ccShapesError::NoTangent);
    EXPECT_THROW(point->StartAngle(), ccShapesError::NoTangent);
    const auto none = Make<ccPolyline>();
    EXPECT_THROW(none->StartPoint(), ccShapesError::EmptyShape);
    EXPECT_THROW(none->PointAt(0), ccShapesError::EmptyShape);
    EXPECT_THROW(none->Within({0, 0}), ccShapesError::NotRegion);
}

}  // namespace tessaly::test
