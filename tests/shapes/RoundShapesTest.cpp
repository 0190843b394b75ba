// The round shapes' values: refusals with their exact error and the shape unchanged,
// the unit-circle transform both ways (mirrors included), maps, bounding boxes against
// dense samples, the areas and perimeters of annulus sections, arcs at radial fractions,
// the ellipse-fraction check, and reversal.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "shapes/ShapeTestSupport.h"
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccAffineRectangle.h"
#include "xnl/std/shapes/ccAnnulus.h"
#include "xnl/std/shapes/ccCircle.h"
#include "xnl/std/shapes/ccEllipse2.h"
#include "xnl/std/shapes/ccEllipseAnnulus.h"
#include "xnl/std/shapes/ccEllipseArc2.h"
#include "xnl/std/shapes/ccEllipticIntegral.h"
#include "xnl/std/shapes/ccQvShapesError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace tessaly::test {
namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// The implicit value |U^-1 (p - c)|^2 of an ellipse: 1 on its outline.
double OnEllipse(const ccEllipse2& e, const cc2Vect& p) {
    const double c = std::cos(e.Rotation()), s = std::sin(e.Rotation());
    const cc2Vect d = p - e.Center();
    const double u = (c * d.X() + s * d.Y()) / e.RadiusX();
    const double v = (-s * d.X() + c * d.Y()) / e.RadiusY();
    return u * u + v * v;
}

TEST(RoundShapes, RefusalsNameTheirErrorAndChangeNothing) {
    auto circle = Make<ccCircle>(cc2Vect(1, 2), 3.0);
    const std::string before = circle->Description();
    EXPECT_THROW(circle->SetRadius(0.0), ccQvShapesError::InvalidRadius);
    EXPECT_THROW(circle->SetRadius(-1.0), ccQvShapesError::InvalidRadius);
    EXPECT_THROW(circle->SetRadius(kNaN), ccQvShapesError::InvalidRadius);
    EXPECT_THROW(circle->SetCenterRadius(cc2Vect(9, 9), 0.0), ccQvShapesError::InvalidRadius);
    EXPECT_EQ(circle->Description(), before);
    EXPECT_NO_THROW(circle->SetRadius(std::numeric_limits<double>::denorm_min()));
    EXPECT_THROW(Make<ccCircle>(cc2Vect(0, 0), 0.0), ccQvShapesError::InvalidRadius);

    auto ellipse = Make<ccEllipse2>(cc2Vect(1, 2), 3.0, 4.0, 0.5);
    const std::string ellipseBefore = ellipse->Description();
    EXPECT_THROW(ellipse->SetRadiusX(0.0), ccQvShapesError::InvalidRadius);
    EXPECT_THROW(ellipse->SetRadiusY(-2.0), ccQvShapesError::InvalidRadius);
    EXPECT_THROW(ellipse->SetCenterRadiiRotation(cc2Vect(5, 5), 1.0, 0.0, 1.0), ccQvShapesError::InvalidRadius);
    EXPECT_THROW(ellipse->SetFromUnitCircleTransform(cc2XformLinear(1, 2, 2, 4, 0, 0)), ccShapesError::DegenerateShape);
    EXPECT_THROW(ellipse->SetFromUnitCircleTransform(cc2XformLinear(kNaN, 0, 0, 1, 0, 0)), ccShapesError::DegenerateShape);
    EXPECT_EQ(ellipse->Description(), ellipseBefore);

    auto arc = Make<ccEllipseArc2>(cc2Vect(0, 0), 2.0, 1.0, 0.0, 0.25, 1.0);
    const std::string arcBefore = arc->Description();
    EXPECT_THROW(arc->SetAngleSpan(0.0), ccQvShapesError::InvalidAngleSpan);
    EXPECT_THROW(arc->SetAngleSpan(-0.0), ccQvShapesError::InvalidAngleSpan);
    EXPECT_THROW(arc->SetAngleSpan(kNaN), ccQvShapesError::InvalidAngleSpan);
    EXPECT_THROW(arc->SetAll(cc2Vect(4, 4), 1.0, 1.0, 0.0, 0.0, 0.0), ccQvShapesError::InvalidAngleSpan);
    EXPECT_THROW(arc->SetAll(cc2Vect(4, 4), 0.0, 1.0, 0.0, 0.0, 1.0), ccQvShapesError::InvalidRadius);
    EXPECT_THROW(arc->SetFromUnitCircleParams(0.0, 0.0, cc2XformLinear(1, 0, 0, 1, 0, 0)), ccQvShapesError::InvalidAngleSpan);
    EXPECT_THROW(arc->SetFromUnitCircleParams(0.0, 1.0, cc2XformLinear(0, 0, 0, 0, 0, 0)), ccShapesError::DegenerateShape);
    EXPECT_EQ(arc->Description(), arcBefore);
    EXPECT_NO_THROW(arc->SetAngleSpan(4 * kPi));
    EXPECT_NO_THROW(arc->SetAngleSpan(-1e-300));

    auto section = Make<ccAnnulus>(cc2Vect(0, 0), 10.0, 0.0, 1.0, 2.0);
    const std::string sectionBefore = section->Description();
    EXPECT_THROW(section->SetRadialScale(1.0), ccQvShapesError::InvalidRadialScale);
    EXPECT_THROW(section->SetRadialScale(0.0), ccQvShapesError::InvalidRadialScale);
    EXPECT_THROW(section->SetRadialScale(-2.0), ccQvShapesError::InvalidRadialScale);
    EXPECT_THROW(section->SetRadialScale(kNaN), ccQvShapesError::InvalidRadialScale);
    EXPECT_THROW(section->SetAngleSpan(0.0), ccQvShapesError::InvalidAngleSpan);
    EXPECT_THROW(section->SetRadius(0.0), ccQvShapesError::InvalidRadius);
    // SetAll checks everything before it changes anything.
    EXPECT_THROW(section->SetAll(cc2Vect(7, 7), 5.0, 1.0, 1.0, 1.0), ccQvShapesError::InvalidRadialScale);
    EXPECT_EQ(section->Description(), sectionBefore);
    EXPECT_NO_THROW(section->SetRadialScale(0.5));
    EXPECT_NO_THROW(section->SetRadialScale(2.0));

    auto elliptical = Make<ccEllipseAnnulus>(cc2Vect(0, 0), 10.0, 5.0, 0.3, 0.0, 1.0, 2.0);
    const std::string ellipticalBefore = elliptical->Description();
    EXPECT_THROW(elliptical->SetRadiusY(0.0), ccQvShapesError::InvalidRadius);
    EXPECT_THROW(elliptical->SetFromUnitCircleParams(0.0, 1.0, 1.0, cc2XformLinear(1, 0, 0, 1, 0, 0)),
                 ccQvShapesError::InvalidRadialScale);
    EXPECT_THROW(elliptical->SetFromUnitCircleParams(0.0, 1.0, 2.0, cc2XformLinear(1, 1, 1, 1, 0, 0)),
                 ccShapesError::DegenerateShape);
    EXPECT_EQ(elliptical->Description(), ellipticalBefore);
}

TEST(RoundShapes, RegionAndContourOperationsRefuseTheOtherKind) {
    auto arc = Make<ccEllipseArc2>();
    EXPECT_THROW(arc->Area(), ccShapesError::NotRegion);
    EXPECT_THROW(arc->Within(cc2Vect(0, 0)), ccShapesError::NotRegion);
    SpanRecorder recorder;
    EXPECT_THROW(arc->ScanConvert(recorder), ccShapesError::NotRegion);
    EXPECT_TRUE(recorder.Spans().empty());
    auto circle = Make<ccCircle>();
    EXPECT_THROW(circle->Length(), ccShapesError::NotOpenContour);
    EXPECT_THROW(circle->Reverse(), ccShapesError::NotReversible);
}

TEST(RoundShapes, UnitCircleTransformsRoundTripMirrorsIncluded) {
    std::mt19937_64 random(31);
    auto pick = [&](double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(random); };
    for (int n = 0; n < 2000; ++n) {
        const cc2XformLinear t(pick(-5, 5), pick(-5, 5), pick(-5, 5), pick(-5, 5), pick(-100, 100), pick(-100, 100));
        if (std::fabs(t.Determinant()) < 1e-3) continue;
        auto ellipse = Make<ccEllipse2>(t);
        EXPECT_GE(ellipse->RadiusX(), ellipse->RadiusY());
        EXPECT_GE(ellipse->Rotation(), -kPi);
        EXPECT_LT(ellipse->Rotation(), kPi);
        // The same set: the images of unit-circle points lie on it.
        for (double angle : {0.0, 1.0, 2.5, -2.0}) {
            const cc2Vect p = t.MapPoint(cc2Vect(std::cos(angle), std::sin(angle)));
            EXPECT_NEAR(OnEllipse(*ellipse, p), 1.0, 1e-9);
        }
        // And back: the ellipse's own transform gives the same ellipse.
        auto again = Make<ccEllipse2>(ellipse->UnitCircleTransform());
        EXPECT_NEAR(again->RadiusX(), ellipse->RadiusX(), 1e-12 * ellipse->RadiusX());
        EXPECT_NEAR(again->RadiusY(), ellipse->RadiusY(), 1e-12 * ellipse->RadiusX());

        // An arc keeps its points, start and end and direction, through any transform.
        const double start = pick(-4, 4), span = pick(-7, 7);
        auto arc = Make<ccEllipseArc2>();
        arc->SetFromUnitCircleParams(start, span, t);
        const double scale = ellipse->RadiusX();
        for (double f : {0.0, 0.3, 1.0}) {
            const double angle = start + f * span;
            const cc2Vect expected = t.MapPoint(cc2Vect(std::cos(angle), std::sin(angle)));
            EXPECT_NEAR(arc->PointAtAngle(arc->AngleStart() + f * arc->AngleSpan()).Distance(expected), 0, 1e-11 * scale)
                << "det " << t.Determinant() << " f " << f;
        }
        EXPECT_EQ(std::fabs(arc->AngleSpan()), std::fabs(span));
        EXPECT_EQ(arc->AngleSpan() < 0, (span < 0) != (t.Determinant() < 0));
    }
}

TEST(RoundShapes, MapsKeepTheirPointsAndCirclesBecomeEllipses) {
    const cc2XformLinear mirror(-2, 0.5, 0.25, 1.5, 10, -20);  // det < 0
    auto circle = Make<ccCircle>(cc2Vect(3, 4), 2.0);
    ccShapePtrh mapped = circle->Map(mirror);
    EXPECT_STREQ(mapped->TypeName(), "ccEllipse2");
    // Even a plain translation or rotation gives an ellipse through Map; Translate keeps a circle.
    EXPECT_STREQ(circle->Map(cc2XformLinear(0, -1, 1, 0, 5, 5))->TypeName(), "ccEllipse2");
    EXPECT_STREQ(circle->Translate(cc2Vect(1, 1))->TypeName(), "ccCircle");
    const auto* e = dynamic_cast<const ccEllipse2*>(mapped.Get());
    ASSERT_NE(e, nullptr);
    for (double angle : {0.0, 1.0, 4.0}) EXPECT_NEAR(OnEllipse(*e, mirror.MapPoint(circle->PointAtAngle(angle))), 1.0, 1e-12);
    EXPECT_NEAR(e->Area(), circle->Area() * std::fabs(mirror.Determinant()), 1e-12 * e->Area());

    auto section = Make<ccAnnulus>(cc2Vect(1, 1), 5.0, 0.5, 2.0, 0.5);
    ccShapePtrh mappedSection = section->Map(mirror);
    EXPECT_STREQ(mappedSection->TypeName(), "ccEllipseAnnulus");
    EXPECT_NEAR(mappedSection->Area(), section->Area() * std::fabs(mirror.Determinant()), 1e-10 * section->Area());
    // Points inside stay inside, points outside stay outside.
    for (const cc2Vect& p : {cc2Vect(1 + 4 * std::cos(1.5), 1 + 4 * std::sin(1.5)), cc2Vect(1, 1), cc2Vect(1 + 4 * std::cos(-1.0), 1 + 4 * std::sin(-1.0))})
        EXPECT_EQ(mappedSection->Within(mirror.MapPoint(p)), section->Within(p));
    EXPECT_THROW(circle->Map(cc2XformLinear(1, 2, 2, 4, 0, 0)), ccShapesError::DegenerateShape);
}

TEST(RoundShapes, BoundingBoxesHoldEverySampleAndTouchTheOutline) {
    std::mt19937_64 random(32);
    auto pick = [&](double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(random); };
    for (int n = 0; n < 300; ++n) {
        std::vector<ccShapePtrh> shapes{
            Make<ccEllipse2>(cc2Vect(pick(-50, 50), pick(-50, 50)), pick(0.1, 20), pick(0.1, 20), pick(-4, 4)),
            Make<ccEllipseArc2>(cc2Vect(pick(-50, 50), pick(-50, 50)), pick(0.1, 20), pick(0.1, 20), pick(-4, 4),
                                pick(-4, 4), pick(-8, 8)),
            Make<ccEllipseAnnulus>(cc2Vect(pick(-50, 50), pick(-50, 50)), pick(0.1, 20), pick(0.1, 20), pick(-4, 4),
                                   pick(-4, 4), pick(-8, 8), pick(0.2, 3))};
        for (const ccShapePtrh& shape : shapes) {
            const ccRectPtrh box = shape->BoundingBox();
            std::vector<cc2Vect> points;
            shape->Sample(0.001, points);
            double x0 = 1e300, y0 = 1e300, x1 = -1e300, y1 = -1e300;
            for (const cc2Vect& p : points) {
                x0 = std::min(x0, p.X()); x1 = std::max(x1, p.X());
                y0 = std::min(y0, p.Y()); y1 = std::max(y1, p.Y());
            }
            const double slack = 1e-9 * (1 + std::fabs(x0) + std::fabs(x1));
            EXPECT_LE(box->X(), x0 + slack) << shape->Description();
            EXPECT_LE(box->Y(), y0 + slack) << shape->Description();
            EXPECT_GE(box->X() + box->Width(), x1 - slack) << shape->Description();
            EXPECT_GE(box->Y() + box->Height(), y1 - slack) << shape->Description();
            // Exact, so no more than the sampling gap beyond the samples.
            EXPECT_NEAR(box->X(), x0, 1e-6) << shape->Description();
            EXPECT_NEAR(box->Y() + box->Height(), y1, 1e-6) << shape->Description();
        }
    }
}

TEST(RoundShapes, AnnulusSectionsMeasureTheirRegion) {
    // Half of a ring 10..20: area pi (400 - 100) / 2, outline two half circles and two sides.
    auto half = Make<ccAnnulus>(cc2Vect(0, 0), 10.0, 0.0, kPi, 2.0);
    EXPECT_NEAR(half->Area(), kPi * 150, 1e-12 * kPi * 150);
    EXPECT_NEAR(half->Perimeter(), kPi * 30 + 20, 1e-12 * 200);
    // The start arc is the outer one below scale 1: the same region.
    auto outerFirst = Make<ccAnnulus>(cc2Vect(0, 0), 20.0, 0.0, kPi, 0.5);
    EXPECT_NEAR(outerFirst->Area(), half->Area(), 1e-12 * half->Area());
    EXPECT_NEAR(outerFirst->Perimeter(), half->Perimeter(), 1e-12 * half->Perimeter());
    // Spans of a full turn and beyond: the full ring, no radial sides.
    for (double span : {2 * kPi, -2 * kPi, 4 * kPi, 13.0}) {
        auto ring = Make<ccAnnulus>(cc2Vect(0, 0), 10.0, 0.7, span, 2.0);
        EXPECT_NEAR(ring->Area(), kPi * 300, 1e-12 * kPi * 300) << span;
        EXPECT_NEAR(ring->Perimeter(), 2 * kPi * 30, 1e-12 * 200) << span;
    }
    // An elliptical section: the same in unit-circle terms, scaled by rx ry.
    auto elliptical = Make<ccEllipseAnnulus>(cc2Vect(5, 5), 8.0, 2.0, 0.4, 0.3, -1.2, 1.5);
    EXPECT_NEAR(elliptical->Area(), 0.5 * 1.2 * 8 * 2 * (2.25 - 1), 1e-12);
    const double arc = std::fabs(ccEllipticIntegral::ArcLength(8, 2, 0.3, 0.3 - 1.2));
    const double sides = 0.5 * (std::hypot(8 * std::cos(0.3), 2 * std::sin(0.3)) + std::hypot(8 * std::cos(-0.9), 2 * std::sin(-0.9)));
    EXPECT_NEAR(elliptical->Perimeter(), 2.5 * arc + sides, 1e-12 * 50);
}

TEST(RoundShapes, ArcsAtRadialFractionsAndTheEllipseFraction) {
    auto section = Make<ccAnnulus>(cc2Vect(2, 3), 10.0, 0.5, 1.5, 3.0);
    EXPECT_EQ(section->ArcAtFraction(0)->RadiusX(), 10.0);
    EXPECT_EQ(section->ArcAtFraction(0.5)->RadiusX(), 20.0);
    EXPECT_EQ(section->ArcAtFraction(1)->RadiusX(), 30.0);
    EXPECT_EQ(section->ArcAtFraction(1)->AngleSpan(), 1.5);
    EXPECT_THROW(section->ArcAtFraction(kNaN), ccShapesError::BadParams);
    EXPECT_THROW(section->ArcAtFraction(-0.5), ccQvShapesError::InvalidRadius);  // radius 0
    auto elliptical = Make<ccEllipseAnnulus>(cc2Vect(0, 0), 4.0, 2.0, 0.0, 0.0, 1.0, 0.5);
    EXPECT_EQ(elliptical->ArcAtFraction(1)->RadiusY(), 1.0);

    auto arc = Make<ccEllipseArc2>(cc2Vect(0, 0), 3.0, 3.0, 0.0, 0.0, kPi);
    EXPECT_NO_THROW(arc->PointAtFraction(0.000001));
    EXPECT_NO_THROW(arc->PointAtFraction(0.999999));
    EXPECT_THROW(arc->PointAtFraction(0.0000009), ccQvShapesError::InvalidEllipseFraction);
    EXPECT_THROW(arc->PointAtFraction(0.9999991), ccQvShapesError::InvalidEllipseFraction);
    EXPECT_THROW(arc->PointAtFraction(kNaN), ccQvShapesError::InvalidEllipseFraction);
    EXPECT_NEAR(arc->PointAtFraction(0.5).Distance(cc2Vect(0, 3)), 0, 1e-12);
}

TEST(RoundShapes, ReverseRunsTheSameArcBackwards) {
    auto arc = Make<ccEllipseArc2>(cc2Vect(1, 1), 5.0, 2.0, 0.3, 1.0, -2.5);
    ccShapePtrh back = arc->Reverse();
    EXPECT_NEAR(back->StartPoint().Distance(arc->EndPoint()), 0, 1e-12);
    EXPECT_NEAR(back->EndPoint().Distance(arc->StartPoint()), 0, 1e-12);
    EXPECT_NEAR(back->Length(), arc->Length(), 1e-12 * arc->Length());
    EXPECT_NEAR(back->PointAt(1.0).Distance(arc->PointAt(arc->Length() - 1.0)), 0, 1e-9);
    const cc2Vect tangent = arc->TangentAt(0.7);
    const cc2Vect reversed = back->TangentAt(arc->Length() - 0.7);
    EXPECT_NEAR(tangent.X(), -reversed.X(), 1e-9);
    EXPECT_NEAR(tangent.Y(), -reversed.Y(), 1e-9);
    // ArcLengthOf finds the length of a point on the arc.
    EXPECT_NEAR(arc->ArcLengthOf(arc->PointAt(3.0)), 3.0, 1e-9);
}

TEST(RoundShapes, BoundingRectanglesAndNearestPoints) {
    auto ellipse = Make<ccEllipse2>(cc2Vect(4, -2), 6.0, 1.5, 0.6);
    for (bool deSkew : {true, false}) {
        ccAffineRectanglePtrh rect = ellipse->BoundingRectangleAffine(deSkew);
        EXPECT_DOUBLE_EQ(rect->SideXLength(), 12.0);
        EXPECT_DOUBLE_EQ(rect->SideYLength(), 3.0);
        EXPECT_EQ(rect->Skew(), 0.0);
        auto back = Make<ccEllipse2>();
        back->SetFromBoundingRectangleAffine(*rect);
        EXPECT_NEAR(back->RadiusX(), 6.0, 1e-12);
        EXPECT_NEAR(back->RadiusY(), 1.5, 1e-12);
        EXPECT_NEAR(back->Rotation(), 0.6, 1e-12);
    }
    // The inscribed ellipse of a skewed parallelogram touches the midpoints of its sides.
    auto skewed = Make<ccAffineRectangle>(cc2Vect(0, 0), 4.0, 2.0, 0.2, 0.5);
    auto inscribed = Make<ccEllipse2>();
    inscribed->SetFromBoundingRectangleAffine(*skewed);
    EXPECT_NEAR(OnEllipse(*inscribed, (skewed->CornerOrigin() + skewed->CornerX()) * 0.5), 1.0, 1e-12);
    EXPECT_NEAR(OnEllipse(*inscribed, (skewed->CornerX() + skewed->CornerOpposite()) * 0.5), 1.0, 1e-12);

    // Nearest points lie on the outline and no sample of it is nearer.
    std::mt19937_64 random(33);
    std::vector<cc2Vect> samples;
    ellipse->Sample(0.01, samples);
    for (int n = 0; n < 200; ++n) {
        const cc2Vect p(std::uniform_real_distribution<double>(-10, 18)(random), std::uniform_real_distribution<double>(-10, 6)(random));
        const cc2Vect q = ellipse->NearestPoint(p);
        EXPECT_NEAR(OnEllipse(*ellipse, q), 1.0, 1e-9);
        double best = 1e300;
        for (const cc2Vect& s : samples) best = std::min(best, s.Distance(p));
        EXPECT_LE(q.Distance(p), best + 1e-9) << p.X() << "," << p.Y();
    }
    auto circle = Make<ccCircle>(cc2Vect(1, 1), 2.0);
    EXPECT_NEAR(circle->DistanceToPoint(cc2Vect(1, 6)), 3.0, 1e-15);
    EXPECT_NEAR(circle->DistanceToPoint(cc2Vect(1, 1)), 2.0, 1e-15);
}

}  // namespace
}  // namespace tessaly::test
