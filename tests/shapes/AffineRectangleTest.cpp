// The core affine rectangle: validation and the state a refusal leaves, angle
// normalisation, corners, area and perimeter from each parametrisation, the corner cache
// (cleared by changes, safe for concurrent readers), nearest points and their tie order,
// mapping, sampling, and the base operations it does not have.
#include <gtest/gtest.h>

#include <cmath>
#include <latch>
#include <limits>
#include <numbers>
#include <thread>
#include <vector>

#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccAffineRectangle.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccShapesError.h"
#include "shapes/ShapeTestSupport.h"

using tessaly::test::Make;

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

using Affine = ccAffineRectangle;

void ExpectNear(const cc2Vect& got, const cc2Vect& expected, double tolerance = 1e-12) {
    EXPECT_NEAR(got.X(), expected.X(), tolerance);
    EXPECT_NEAR(got.Y(), expected.Y(), tolerance);
}

// Every parameter and corner of `rect` equals those of `before`.
void ExpectUnchanged(const Affine& rect, const Affine& before) {
    EXPECT_TRUE(rect.Equals(before)) << rect.Description();
    EXPECT_EQ(rect.CornerOrigin(), before.CornerOrigin());
    EXPECT_EQ(rect.CornerX(), before.CornerX());
    EXPECT_EQ(rect.CornerY(), before.CornerY());
    EXPECT_EQ(rect.CornerOpposite(), before.CornerOpposite());
}

}  // namespace

TEST(AffineRectangle, RefusesBadLengthsAndSkewsAndKeepsItsState) {
    // Constructors.
    EXPECT_THROW(Make<Affine>(cc2Vect(0, 0), 0.0, 1.0, 0, 0), Affine::BadLength);
    EXPECT_THROW(Make<Affine>(cc2Vect(0, 0), 1.0, 0.0, 0, 0), Affine::BadLength);
    EXPECT_THROW(Make<Affine>(cc2Vect(0, 0), -1.0, 1.0, 0, 0), Affine::BadLength);
    EXPECT_THROW(Make<Affine>(cc2Vect(0, 0), kNaN, 1.0, 0, 0), Affine::BadLength);
    EXPECT_THROW(Make<Affine>(Affine::kFromOrigin, cc2Vect(0, 0), 1.0, 0.0, 0, 0), Affine::BadLength);
    EXPECT_THROW(Make<Affine>(cc2Vect(0, 0), 1.0, 1.0, 0, kPi / 2), Affine::BadSkew);
    EXPECT_THROW(Make<Affine>(cc2Vect(0, 0), 1.0, 1.0, 0, -kPi / 2), Affine::BadSkew);
    EXPECT_THROW(Make<Affine>(cc2Vect(0, 0), 1.0, 1.0, 0, 3 * kPi / 2), Affine::BadSkew);  // normalises to -pi/2
    EXPECT_THROW(Make<Affine>(cc2Vect(0, 0), 1.0, 1.0, 0, kPi / 2 + 0.0009), Affine::BadSkew);
    EXPECT_THROW(Make<Affine>(cc2Vect(0, 0), 1.0, 1.0, 0, -kPi / 2 - 0.0009), Affine::BadSkew);
    EXPECT_THROW(Make<Affine>(cc2Vect(0, 0), 1.0, 1.0, 0, kNaN), Affine::BadSkew);
    EXPECT_NO_THROW(Make<Affine>(cc2Vect(0, 0), 1.0, 1.0, 0, kPi / 2 + 0.0011));
    EXPECT_NO_THROW(Make<Affine>(cc2Vect(0, 0), 1.0, 1.0, 0, kPi / 2 + 0.002));  // where put_Skew conditions to
    EXPECT_NO_THROW(Make<Affine>(cc2Vect(0, 0), 1.0, 1.0, 0, 1.5));
    // The length is checked before the skew.
    EXPECT_THROW(Make<Affine>(cc2Vect(0, 0), 0.0, 1.0, 0, kPi / 2), Affine::BadLength);

    // From corners: the origin repeated, or parallel sides, however short or long.
    EXPECT_THROW(Make<Affine>(cc2Vect(1, 2), cc2Vect(1, 2), cc2Vect(1, 5)), Affine::BadLength);
    EXPECT_THROW(Make<Affine>(cc2Vect(1, 2), cc2Vect(4, 2), cc2Vect(7, 2)), Affine::BadLength);
    EXPECT_THROW(Make<Affine>(cc2Vect(1, 2), cc2Vect(4, 2), cc2Vect(1, 2)), Affine::BadLength);
    EXPECT_THROW(Make<Affine>(cc2Vect(0, 0), cc2Vect(1, 1), cc2Vect(-3, -3)), Affine::BadLength);
    // Not parallel but closer than 0.001 rad to it: the skew refuses.
    EXPECT_THROW(Make<Affine>(cc2Vect(0, 0), cc2Vect(1000, 0), cc2Vect(1000, 0.5)), Affine::BadSkew);

    // Setters leave everything as it was, corners already cached included.
    ccAffineRectanglePtrh rect(new Affine({3, 4}, 5, 2, 0.25, 0.5));
    const ccAffineRectanglePtrh before(rect->Clone());
    (void)rect->CornerOpposite();
    EXPECT_THROW(rect->SetSideXLength(0), Affine::BadLength);
    EXPECT_THROW(rect->SetSideYLength(-2), Affine::BadLength);
    EXPECT_THROW(rect->SetSkew(kPi / 2), Affine::BadSkew);
    EXPECT_THROW(rect->SetCenterLengthsRotationSkew({9, 9}, 1, 0, 1, 0), Affine::BadLength);
    EXPECT_THROW(rect->SetCenterLengthsRotationSkew({9, 9}, 1, 1, 1, -kPi / 2), Affine::BadSkew);
    EXPECT_THROW(rect->SetOriginLengthsRotationSkew({9, 9}, 0, 1, 1, 0), Affine::BadLength);
    EXPECT_THROW(rect->SetOriginCornerXCornerY({9, 9}, {9, 9}, {9, 10}), Affine::BadLength);
    EXPECT_THROW(rect->SetOriginCornerXCornerY({0, 0}, {2, 1}, {4, 2}), Affine::BadLength);
    ExpectUnchanged(*rect, *before);
}

TEST(AffineRectangle, StoresAnglesNormalised) {
    ccAffineRectanglePtrh rect(new Affine());
    rect->SetRotation(4);
    EXPECT_DOUBLE_EQ(rect->Rotation(), 4 - 2 * kPi);
    rect->SetRotation(kPi);
    EXPECT_EQ(rect->Rotation(), -kPi);
    rect->SetRotation(-kPi);
    EXPECT_EQ(rect->Rotation(), -kPi);
    rect->SetRotation(2 * kPi + 0.5);
    EXPECT_NEAR(rect->Rotation(), 0.5, 1e-15);
    rect->SetSkew(kPi);  // a mirror image: allowed, stored as -pi
    EXPECT_EQ(rect->Skew(), -kPi);
    rect->SetSkew(2 * kPi + 0.25);
    EXPECT_NEAR(rect->Skew(), 0.25, 1e-15);
    EXPECT_EQ(Make<Affine>(cc2Vect(0, 0), 1, 1, kPi, kPi)->Rotation(), -kPi);
    EXPECT_EQ(Make<Affine>(cc2Vect(0, 0), 1, 1, kPi, kPi)->Skew(), -kPi);
}

TEST(AffineRectangle, CornersAreaAndPerimeterFromEachParametrisation) {
    const cc2Vect center(10, 20);
    const double r = 0.3, k = 0.2, sx = 4, sy = 2;
    const auto rect = Make<Affine>(center, sx, sy, r, k);
    const cc2Vect u(sx * std::cos(r), sx * std::sin(r));
    const double phi = r + kPi / 2 + k;
    const cc2Vect v(sy * std::cos(phi), sy * std::sin(phi));
    const cc2Vect origin = center - (u + v) / 2;
    ExpectNear(rect->CornerOrigin(), origin);
    ExpectNear(rect->CornerX(), origin + u);
    ExpectNear(rect->CornerY(), origin + v);
    ExpectNear(rect->CornerOpposite(), origin + u + v);
    ExpectNear(rect->Centroid(), center);
    EXPECT_NEAR(rect->Area(), sx * sy * std::cos(k), 1e-12);
    EXPECT_DOUBLE_EQ(rect->Perimeter(), 2 * (sx + sy));
    // The unit square's map sends (0.5, 0.5) to the centre.
    ExpectNear(rect->UnitSquareMap().MapPoint({0.5, 0.5}), center);
    ExpectNear(rect->UnitSquareMap().MapPoint({1, 0}), origin + u);

    // From the origin: the same parallelogram.
    const auto fromOrigin = Make<Affine>(Affine::kFromOrigin, origin, sx, sy, r, k);
    ExpectNear(fromOrigin->Center(), center);
    ExpectNear(fromOrigin->CornerOpposite(), origin + u + v);

    // From three corners: the parameters come back, a negative cos(skew) included.
    const auto fromCorners = Make<Affine>(origin, origin + u, origin + v);
    EXPECT_NEAR(fromCorners->SideXLength(), sx, 1e-12);
    EXPECT_NEAR(fromCorners->SideYLength(), sy, 1e-12);
    EXPECT_NEAR(fromCorners->Rotation(), r, 1e-12);
    EXPECT_NEAR(fromCorners->Skew(), k, 1e-12);
    const auto mirrored = Make<Affine>(cc2Vect(0, 0), cc2Vect(10, 0), cc2Vect(0, -5));
    EXPECT_EQ(mirrored->Skew(), -kPi);
    EXPECT_DOUBLE_EQ(mirrored->Area(), 50);
    EXPECT_EQ(mirrored->CornerY(), cc2Vect(0, -5));
    EXPECT_EQ(mirrored->CornerOpposite(), cc2Vect(10, -5));

    // Quarter turns are exact: the sides of an axis-aligned one stay on the axes.
    const auto quarter = Make<Affine>(cc2Vect(0.5, 0), cc2Vect(0.5, 9), cc2Vect(-8.5, 0));
    EXPECT_EQ(quarter->CornerX(), cc2Vect(0.5, 9));
    EXPECT_EQ(quarter->CornerY(), cc2Vect(-8.5, 0));
    EXPECT_EQ(quarter->CornerOpposite(), cc2Vect(-8.5, 9));
    EXPECT_EQ(quarter->Rotation(), kPi / 2);
    EXPECT_EQ(quarter->Skew(), 0);
}

TEST(AffineRectangle, EveryChangeClearsTheCornerCacheAndCopiesKeepIt) {
    ccAffineRectanglePtrh rect(new Affine({0, 0}, 2, 2, 0, 0));
    EXPECT_EQ(rect->CornerOrigin(), cc2Vect(-1, -1));
    rect->SetCenter({5, 5});
    EXPECT_EQ(rect->CornerOrigin(), cc2Vect(4, 4));
    rect->SetSideXLength(4);
    EXPECT_EQ(rect->CornerX(), cc2Vect(7, 4));
    rect->SetSideYLength(6);
    EXPECT_EQ(rect->CornerY(), cc2Vect(3, 8));
    rect->SetRotation(kPi / 2);
    EXPECT_EQ(rect->CornerOrigin(), cc2Vect(8, 3));
    rect->SetSkew(-kPi);  // side Y turned round: the origin moves to the other end of it
    EXPECT_EQ(rect->CornerOrigin(), cc2Vect(2, 3));
    EXPECT_EQ(rect->CornerY(), cc2Vect(8, 3));
    rect->SetOriginCornerXCornerY({0, 0}, {1, 0}, {0, 1});
    EXPECT_EQ(rect->CornerOpposite(), cc2Vect(1, 1));
    rect->SetOriginLengthsRotationSkew({2, 2}, 1, 1, 0, 0);
    EXPECT_EQ(rect->CornerOpposite(), cc2Vect(3, 3));
    rect->SetCenterLengthsRotationSkew({0, 0}, 2, 2, 0, 0);
    EXPECT_EQ(rect->CornerOpposite(), cc2Vect(1, 1));

    // Copies: a handle shared, then made unique, holds its own cache.
    ccAffineRectanglePtrh shared = rect;
    shared.MakeUnique()->SetCenter({10, 10});
    EXPECT_EQ(rect->CornerOpposite(), cc2Vect(1, 1));
    EXPECT_EQ(shared->CornerOpposite(), cc2Vect(11, 11));
    ccAffineRectanglePtrh assigned(new Affine());
    *assigned = *shared;
    EXPECT_EQ(assigned->CornerOrigin(), cc2Vect(9, 9));
}

TEST(AffineRectangle, ConcurrentReadersOfOneValueAgree) {
    // Fresh values each round, so that the threads race to fill the same empty cache.
    for (int round = 0; round < 200; ++round) {
        const double angle = 0.01 * round;
        ccAffineRectanglePtrh_const rect(new Affine(cc2Vect(round * 1.5, 3), 7, 3, angle, 0.4));
        const ccAffineRectanglePtrh reference(rect->Clone());  // copied before any corner was asked for
        const cc2Vect expected[4] = {reference->CornerOrigin(), reference->CornerX(), reference->CornerOpposite(),
                                     reference->CornerY()};
        std::vector<std::thread> readers;
        std::vector<int> wrong(6, 0);
        std::latch start(6);  // all at once, so that they meet on the empty cache
        for (int t = 0; t < 6; ++t) {
            readers.emplace_back([&, t] {
                start.arrive_and_wait();
                for (int repeat = 0; repeat < 4; ++repeat) {
                    for (int c = 0; c < 4; ++c) {
                        const int which = (c + t) % 4;
                        if (!(rect->CornerAt(static_cast<Affine::Corner>(which)) == expected[which])) ++wrong[t];
                    }
                }
            });
        }
        for (std::thread& reader : readers) reader.join();
        for (int t = 0; t < 6; ++t) EXPECT_EQ(wrong[t], 0) << "round " << round << " reader " << t;
    }
}

TEST(AffineRectangle, NearestPointTakesTheSidesInOrderAndKeepsTheEarlierOnATie) {
    // The unit square from its origin (0, 0): the sides are top, right, bottom, left.
    const auto square = Make<Affine>(cc2Vect(0, 0), cc2Vect(1, 0), cc2Vect(0, 1));
    EXPECT_EQ(square->NearestPoint({0.5, 0.5}), cc2Vect(0.5, 0));  // all four tie: the first side
    EXPECT_EQ(square->NearestPoint({0.75, 0.5}), cc2Vect(1, 0.5));  // strictly closer than the top
    EXPECT_EQ(square->NearestPoint({0.5, 0.8}), cc2Vect(0.5, 1));
    EXPECT_EQ(square->NearestPoint({-3, 0.25}), cc2Vect(0, 0.25));
    EXPECT_EQ(square->NearestPoint({2, -1}), cc2Vect(1, 0));  // a corner, reached by two sides
    EXPECT_DOUBLE_EQ(square->DistanceToPoint({0.5, 0.8}), 1 - 0.8);

    // The same square from the opposite corner: its first side is now the bottom one, which
    // wins the four-way tie at the centre.
    const auto turned = Make<Affine>(cc2Vect(1, 1), cc2Vect(0, 1), cc2Vect(1, 0));
    EXPECT_EQ(turned->NearestPoint({0.5, 0.5}), cc2Vect(0.5, 1));
    // A two-way tie between the second and third sides (top and right here): the second.
    const auto fromBottomLeft = Make<Affine>(cc2Vect(0, 1), cc2Vect(0, 0), cc2Vect(1, 1));  // sides: left, top, right, bottom
    EXPECT_EQ(fromBottomLeft->NearestPoint({0.75, 0.25}), cc2Vect(0.75, 0));
}

TEST(AffineRectangle, MapsToAnAffineRectangleAndRefusesSingularTransforms) {
    const auto rect = Make<Affine>(cc2Vect(2, 1), 4, 2, 0.2, -0.3);
    const cc2XformLinear rotation = cc2XformLinear::FromScalingsRotations(2, 2, 0.5, 0.5, 10, -4);
    const ccShapePtrh mapped = rect->Map(rotation);
    ASSERT_EQ(std::string(mapped->TypeName()), "ccAffineRectangle");
    const auto& image = static_cast<const Affine&>(*mapped);
    ExpectNear(image.CornerOrigin(), rotation.MapPoint(rect->CornerOrigin()), 1e-11);
    ExpectNear(image.CornerX(), rotation.MapPoint(rect->CornerX()), 1e-11);
    ExpectNear(image.CornerY(), rotation.MapPoint(rect->CornerY()), 1e-11);
    ExpectNear(image.CornerOpposite(), rotation.MapPoint(rect->CornerOpposite()), 1e-11);
    EXPECT_NEAR(image.Area(), 4 * rect->Area(), 1e-11);
    EXPECT_NEAR(image.Skew(), rect->Skew(), 1e-12);

    // A mirror turns the skew round by pi.
    const ccShapePtrh mirrored = rect->Map(cc2XformLinear(1, 0, 0, -1, 0, 0));
    EXPECT_LT(std::cos(static_cast<const Affine&>(*mirrored).Skew()), 0);
    EXPECT_NEAR(mirrored->Area(), rect->Area(), 1e-12);

    EXPECT_THROW(rect->Map(cc2XformLinear(1, 2, 2, 4, 0, 0)), ccShapesError::DegenerateShape);
    // Sides squeezed within the skew margin of parallel: degenerate as well.
    EXPECT_THROW(Make<Affine>(cc2Vect(0, 0), 1, 1, 0, 0)->Map(cc2XformLinear(1, 1, 0, 0.0001, 0, 0)),
                 ccShapesError::DegenerateShape);

    // Translation moves the centre and nothing else, exactly.
    const ccShapePtrh moved = rect->Translate({0.5, -0.25});
    const auto& shifted = static_cast<const Affine&>(*moved);
    EXPECT_EQ(shifted.Center(), cc2Vect(2.5, 0.75));
    EXPECT_EQ(shifted.Rotation(), rect->Rotation());
    EXPECT_EQ(shifted.Skew(), rect->Skew());

    const ccRectPtrh box = rect->BoundingBox();
    for (const cc2Vect& corner : {rect->CornerOrigin(), rect->CornerX(), rect->CornerY(), rect->CornerOpposite()}) {
        EXPECT_GE(corner.X(), box->X());
        EXPECT_LE(corner.X(), box->Right());
        EXPECT_GE(corner.Y(), box->Y());
        EXPECT_LE(corner.Y(), box->Bottom());
    }
    EXPECT_THROW(Make<Affine>(cc2Vect(std::numeric_limits<double>::infinity(), 0), 1, 1, 0, 0)->BoundingBox(),
                 ccShapesError::InfiniteExtent);
}

TEST(AffineRectangle, SamplesItsOutlineWithinTheStep) {
    const auto rect = Make<Affine>(cc2Vect(0, 0), 10, 4, 0.7, 0.1);
    std::vector<cc2Vect> points{{99, 99}};
    rect->Sample(1.5, points);
    ASSERT_GE(points.size(), 5u);
    EXPECT_EQ(points.front(), rect->CornerOrigin());
    EXPECT_EQ(points.back(), rect->CornerOrigin());
    EXPECT_EQ(points.size(), 1u + 7 + 3 + 7 + 3);  // ceil(10 / 1.5) and ceil(4 / 1.5) per side
    for (size_t i = 1; i < points.size(); ++i) EXPECT_LE(points[i].Distance(points[i - 1]), 1.5 + 1e-12);
    for (const cc2Vect& point : points) EXPECT_LT(rect->DistanceToPoint(point), 1e-12);

    EXPECT_THROW(rect->Sample(0, points), ccShapesError::BadParams);
    EXPECT_THROW(rect->Sample(-1, points), ccShapesError::BadParams);
    EXPECT_THROW(rect->Sample(kNaN, points), ccShapesError::BadParams);
    EXPECT_THROW(rect->Sample(1e-9, points), ccShapesError::SampleOverflow);
}

TEST(AffineRectangle, OpenContourOperationsAndReversalAreNotItsOwn) {
    const ccShapePtrh shape(new Affine());
    EXPECT_TRUE(shape->IsRegion());
    EXPECT_FALSE(shape->IsOpenContour());
    EXPECT_FALSE(shape->IsReversible());
    EXPECT_THROW(shape->StartPoint(), ccShapesError::NotOpenContour);
    EXPECT_THROW(shape->EndPoint(), ccShapesError::NotOpenContour);
    EXPECT_THROW(shape->Length(), ccShapesError::NotOpenContour);
    EXPECT_THROW(shape->PointAt(0.5), ccShapesError::NotOpenContour);
    EXPECT_THROW(shape->TangentAt(0.5), ccShapesError::NotOpenContour);
    EXPECT_THROW(shape->StartAngle(), ccShapesError::NotOpenContour);
    EXPECT_THROW(shape->EndAngle(), ccShapesError::NotOpenContour);
    EXPECT_THROW(shape->ArcLengthOf({0, 0}), ccShapesError::NotOpenContour);
    EXPECT_THROW(shape->Reverse(), ccShapesError::NotReversible);
    try {
        shape->Reverse();
    } catch (const ccShapesError::NotReversible& error) {
        EXPECT_EQ(error.DetailedMessage(), "ccShapesError::NotReversible: Reverse on a ccAffineRectangle");
    }
    EXPECT_EQ(std::string(shape->PersistentClassName()), "ccAffineRectangle");
}
