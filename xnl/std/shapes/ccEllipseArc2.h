// An arc of an ellipse (ccEllipse2): the points p(t) = centre + R(rotation) diag(rx, ry)
// (cos t, sin t) for t from angleStart to angleStart + angleSpan. The span is signed (its
// sign is the direction of travel) and may be any value except exactly 0 (else
// ccQvShapesError::InvalidAngleSpan); a span beyond 2 pi runs round more than once and
// its length counts every turn. The start angle is stored normalised into [-pi, pi).
// An arc of a circle is the arc of an ellipse with equal radii.
//
// An open contour: it has no inside, so the region operations throw NotRegion.
// Length and arc-length positions use the incomplete elliptic integral of the second kind
// (ccEllipticIntegral), relative error below 1e-12.
#pragma once

#include <string>
#include <vector>

#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccEllipse2.h"
#include "xnl/std/shapes/ccShape.h"

class ccEllipseArc2;
using ccEllipseArc2Ptrh = ccPtrHandle<ccEllipseArc2>;
using ccEllipseArc2Ptrh_const = ccPtrHandle_const<ccEllipseArc2>;

class ccEllipseArc2 : public ccShape {
public:
    // The upper half of the unit circle: angleStart 0, angleSpan pi.
    ccEllipseArc2() noexcept = default;
    ccEllipseArc2(const cc2Vect& center, double radiusX, double radiusY, double rotation, double angleStart,
                  double angleSpan);
    ccEllipseArc2(const ccEllipse2& ellipse, double angleStart, double angleSpan);

    // InvalidAngleSpan for exactly 0 (and NaN).
    static void ValidateAngleSpan(double angleSpan);
    // InvalidEllipseFraction outside [kMinEllipseFraction, kMaxEllipseFraction] (NaN too).
    static constexpr double kMinEllipseFraction = 0.000001;
    static constexpr double kMaxEllipseFraction = 0.999999;
    static void ValidateEllipseFraction(double fraction);

    cc2Vect Center() const noexcept { return center_; }
    double RadiusX() const noexcept { return radiusX_; }
    double RadiusY() const noexcept { return radiusY_; }
    double Rotation() const noexcept { return rotation_; }
    double AngleStart() const noexcept { return angleStart_; }
    double AngleSpan() const noexcept { return angleSpan_; }
    double AngleEnd() const noexcept { return angleStart_ + angleSpan_; }
    // The full ellipse the arc lies on.
    ccEllipse2Ptrh Ellipse() const;

    void SetCenter(const cc2Vect& center) noexcept { center_ = center; }
    void SetRadiusX(double radius);
    void SetRadiusY(double radius);
    void SetRotation(double rotation) noexcept;
    void SetAngleStart(double angleStart) noexcept;
    void SetAngleSpan(double angleSpan);
    void SetAll(const cc2Vect& center, double radiusX, double radiusY, double rotation, double angleStart,
                double angleSpan);

    // The unit-circle parameters: the arc is the image under `ellipseFromUnitCircle` of the
    // unit-circle arc from unitAngleStart over unitAngleSpan. Get answers the ellipse's own
    // transform and angles. Set accepts any non-singular linear transform; a mirror in it
    // turns the direction of travel, so the stored span has the opposite sign. Nothing
    // changes on a refusal (InvalidAngleSpan, DegenerateShape).
    struct UnitCircleParams {
        double angleStart = 0.0;
        double angleSpan = 0.0;
        cc2XformLinear ellipseFromUnitCircle;
    };
    UnitCircleParams GetUnitCircleParams() const noexcept;
    void SetFromUnitCircleParams(double unitAngleStart, double unitAngleSpan, const cc2XformLinear& ellipseFromUnitCircle);

    // The point at the angle t.
    cc2Vect PointAtAngle(double t) const noexcept;
    // The arc length from the start to the angle t (t between start and end).
    double LengthToAngle(double t) const;
    // The angle at arc length s from the start, s in [0, Length()].
    double AngleAtLength(double s) const;
    // The point at fraction f of the length from the start; f is an ellipse fraction,
    // refused outside [kMinEllipseFraction, kMaxEllipseFraction] (the ends are
    // StartPoint and EndPoint).
    cc2Vect PointAtFraction(double fraction) const;

    // ccShape
    ccEllipseArc2* Clone() const override { return new ccEllipseArc2(*this); }
    const char* TypeName() const noexcept override { return "ccEllipseArc2"; }
    bool IsRegion() const noexcept override { return false; }
    bool IsOpenContour() const noexcept override { return true; }
    bool IsFinite() const noexcept override;
    bool IsReversible() const noexcept override { return true; }
    bool Equals(const ccShape& other) const noexcept override;
    std::string Description() const override;

    ccRectPtrh BoundingBox() const override;
    // Always a ccEllipseArc2; a mirroring transform negates the span.
    ccShapePtrh Map(const cc2XformLinear& xform) const override;
    ccShapePtrh Translate(const cc2Vect& offset) const override;
    cc2Vect NearestPoint(const cc2Vect& point) const override;
    void Sample(double maxStep, std::vector<cc2Vect>& points) const override;
    // The centre of mass of the curve (by sampling at a fine step).
    cc2Vect Centroid() const override;

    cc2Vect StartPoint() const noexcept override;
    cc2Vect EndPoint() const noexcept override;
    double Length() const override;
    // Arc length beyond the ends is clamped to them.
    cc2Vect PointAt(double arcLength) const override;
    cc2Vect TangentAt(double arcLength) const override;
    double StartAngle() const override;
    double EndAngle() const override;
    double ArcLengthOf(const cc2Vect& point) const override;
    // Start at the old end, the span negated.
    ccShapePtrh Reverse() const override;

protected:
    ~ccEllipseArc2() override = default;

private:
    cc2Vect center_{0.0, 0.0};
    double radiusX_ = 1.0;
    double radiusY_ = 1.0;
    double rotation_ = 0.0;
    double angleStart_ = 0.0;
    double angleSpan_ = 3.14159265358979323846;
};
