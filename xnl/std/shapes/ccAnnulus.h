// A circular annulus section: the region between the arc of the circle (centre, radius)
// from angleStart over angleSpan (the start arc) and that arc scaled by radialScale about
// the centre, closed by the two radial sides. The geometry, and what negative spans and
// spans beyond 2 pi mean, is ccGenAnnulus's. radius > 0 (InvalidRadius), span != 0
// (InvalidAngleSpan), radialScale > 0 and != 1 (InvalidRadialScale); a refused setter
// changes nothing. With radialScale > 1 the start arc is the inner one, below 1 the outer.
//
// Map through a linear transform always gives a ccEllipseAnnulus.
#pragma once

#include <string>
#include <vector>

#include "xnl/std/shapes/ccEllipseArc2.h"
#include "xnl/std/shapes/ccGenAnnulus.h"
#include "xnl/std/shapes/ccShape.h"

class ccAnnulus;
using ccAnnulusPtrh = ccPtrHandle<ccAnnulus>;
using ccAnnulusPtrh_const = ccPtrHandle_const<ccAnnulus>;

class ccAnnulus : public ccShape {
public:
    // Centre (0, 0), radius 1, angleStart 0, angleSpan pi, radialScale 2.
    ccAnnulus() noexcept = default;
    ccAnnulus(const cc2Vect& center, double radius, double angleStart, double angleSpan, double radialScale);

    cc2Vect Center() const noexcept { return g_.Center(); }
    double Radius() const noexcept { return g_.RadiusX(); }
    double AngleStart() const noexcept { return g_.AngleStart(); }
    double AngleSpan() const noexcept { return g_.AngleSpan(); }
    double RadialScale() const noexcept { return g_.RadialScale(); }
    const ccGenAnnulus& Geometry() const noexcept { return g_; }

    void SetCenter(const cc2Vect& center) noexcept;
    void SetRadius(double radius);
    void SetAngleStart(double angleStart) noexcept;
    void SetAngleSpan(double angleSpan);
    void SetRadialScale(double radialScale);
    void SetAll(const cc2Vect& center, double radius, double angleStart, double angleSpan, double radialScale);

    // The circular arc at radial fraction f, radius r (1 + f (radialScale - 1)): 0 the
    // start arc, 0.5 the centre arc, 1 the end arc. BadParams for a non-finite f,
    // InvalidRadius when the radius it gives is not > 0.
    ccEllipseArc2Ptrh ArcAtFraction(double fraction) const;

    // ccShape
    ccAnnulus* Clone() const override { return new ccAnnulus(*this); }
    const char* TypeName() const noexcept override { return "ccAnnulus"; }
    bool IsRegion() const noexcept override { return true; }
    bool IsFinite() const noexcept override { return g_.IsFinite(); }
    bool Equals(const ccShape& other) const noexcept override;
    std::string Description() const override;

    ccRectPtrh BoundingBox() const override;
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
    ~ccAnnulus() override = default;

private:
    ccGenAnnulus g_;
};
