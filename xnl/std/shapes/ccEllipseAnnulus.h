// An elliptical annulus section: the region between an arc of an ellipse (the start arc)
// and the same arc scaled by radialScale about the centre, closed by the two radial
// sides (ccGenAnnulus gives the geometry and the meaning of negative spans and of spans
// beyond 2 pi). radiusX, radiusY > 0 (InvalidRadius), span != 0 (InvalidAngleSpan),
// radialScale > 0 and != 1 (InvalidRadialScale); a refused setter changes nothing.
// With radialScale > 1 the start arc is the inner one, below 1 the outer one.
#pragma once

#include <string>
#include <vector>

#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccEllipseArc2.h"
#include "xnl/std/shapes/ccGenAnnulus.h"
#include "xnl/std/shapes/ccShape.h"

class ccEllipseAnnulus;
using ccEllipseAnnulusPtrh = ccPtrHandle<ccEllipseAnnulus>;
using ccEllipseAnnulusPtrh_const = ccPtrHandle_const<ccEllipseAnnulus>;

class ccEllipseAnnulus : public ccShape {
public:
    // Unit ellipse, angleStart 0, angleSpan pi, radialScale 2.
    ccEllipseAnnulus() noexcept = default;
    ccEllipseAnnulus(const cc2Vect& center, double radiusX, double radiusY, double rotation, double angleStart,
                     double angleSpan, double radialScale);

    cc2Vect Center() const noexcept { return g_.Center(); }
    double RadiusX() const noexcept { return g_.RadiusX(); }
    double RadiusY() const noexcept { return g_.RadiusY(); }
    double Rotation() const noexcept { return g_.Rotation(); }
    double AngleStart() const noexcept { return g_.AngleStart(); }
    double AngleSpan() const noexcept { return g_.AngleSpan(); }
    double RadialScale() const noexcept { return g_.RadialScale(); }
    const ccGenAnnulus& Geometry() const noexcept { return g_; }

    void SetCenter(const cc2Vect& center) noexcept;
    void SetRadiusX(double radius);
    void SetRadiusY(double radius);
    void SetRotation(double rotation) noexcept;
    void SetAngleStart(double angleStart) noexcept;
    void SetAngleSpan(double angleSpan);
    void SetRadialScale(double radialScale);
    void SetAll(const cc2Vect& center, double radiusX, double radiusY, double rotation, double angleStart,
                double angleSpan, double radialScale);

    // As ccEllipseArc2: the start arc's unit-circle angles and the ellipse's transform.
    ccEllipseArc2::UnitCircleParams GetUnitCircleParams() const noexcept;
    void SetFromUnitCircleParams(double unitAngleStart, double unitAngleSpan, double radialScale,
                                 const cc2XformLinear& ellipseFromUnitCircle);

    // The arc at radial fraction f: the start arc scaled by 1 + f (radialScale - 1); 0 the
    // start arc, 1 the end arc. Any finite f (BadParams otherwise; the scale it gives must
    // stay > 0, else InvalidRadius).
    ccEllipseArc2Ptrh ArcAtFraction(double fraction) const;

    // ccShape
    ccEllipseAnnulus* Clone() const override { return new ccEllipseAnnulus(*this); }
    const char* TypeName() const noexcept override { return "ccEllipseAnnulus"; }
    bool IsRegion() const noexcept override { return true; }
    bool IsFinite() const noexcept override { return g_.IsFinite(); }
    bool Equals(const ccShape& other) const noexcept override;
    std::string Description() const override;

    ccRectPtrh BoundingBox() const override;
    // Always a ccEllipseAnnulus; a mirror negates the span.
    ccShapePtrh Map(const cc2XformLinear& xform) const override;
    ccShapePtrh Translate(const cc2Vect& offset) const override;
    cc2Vect NearestPoint(const cc2Vect& point) const override { return g_.NearestPoint(point); }
    void Sample(double maxStep, std::vector<cc2Vect>& points) const override { g_.Sample(maxStep, points); }

    bool Within(const cc2Vect& point) const override { return g_.Within(point); }
    double Area() const noexcept override { return g_.Area(); }
    double Perimeter() const override { return g_.Perimeter(); }
    void ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const override { g_.ScanConvert(sink, clip); }
    using ccShape::ScanConvert;
    ccPixelBox PixelBounds() const override { return g_.PixelBounds(); }

protected:
    ~ccEllipseAnnulus() override = default;

private:
    ccGenAnnulus g_;
};
