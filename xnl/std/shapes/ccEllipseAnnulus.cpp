#include "xnl/std/shapes/ccEllipseAnnulus.h"

#include <cmath>
#include <cstdio>
#include <string>

#include "xnl/std/shapes/ccEllipse2.h"
#include "xnl/std/shapes/ccQvShapesError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccShapesError.h"

ccEllipseAnnulus::ccEllipseAnnulus(const cc2Vect& center, double radiusX, double radiusY, double rotation,
                                   double angleStart, double angleSpan, double radialScale) {
    SetAll(center, radiusX, radiusY, rotation, angleStart, angleSpan, radialScale);
}

void ccEllipseAnnulus::SetCenter(const cc2Vect& center) noexcept {
    g_ = ccGenAnnulus(center, RadiusX(), RadiusY(), Rotation(), AngleStart(), AngleSpan(), RadialScale());
}

void ccEllipseAnnulus::SetRadiusX(double radius) {
    ccEllipse2::ValidateRadius(radius, "RadiusX");
    g_ = ccGenAnnulus(Center(), radius, RadiusY(), Rotation(), AngleStart(), AngleSpan(), RadialScale());
}

void ccEllipseAnnulus::SetRadiusY(double radius) {
    ccEllipse2::ValidateRadius(radius, "RadiusY");
    g_ = ccGenAnnulus(Center(), RadiusX(), radius, Rotation(), AngleStart(), AngleSpan(), RadialScale());
}

void ccEllipseAnnulus::SetRotation(double rotation) noexcept {
    g_ = ccGenAnnulus(Center(), RadiusX(), RadiusY(), cc2XformLinear::NormalizeAngle(rotation), AngleStart(),
                      AngleSpan(), RadialScale());
}

void ccEllipseAnnulus::SetAngleStart(double angleStart) noexcept {
    g_ = ccGenAnnulus(Center(), RadiusX(), RadiusY(), Rotation(), cc2XformLinear::NormalizeAngle(angleStart),
                      AngleSpan(), RadialScale());
}

void ccEllipseAnnulus::SetAngleSpan(double angleSpan) {
    ccEllipseArc2::ValidateAngleSpan(angleSpan);
    g_ = ccGenAnnulus(Center(), RadiusX(), RadiusY(), Rotation(), AngleStart(), angleSpan, RadialScale());
}

void ccEllipseAnnulus::SetRadialScale(double radialScale) {
    ccGenAnnulus::ValidateRadialScale(radialScale);
    g_ = ccGenAnnulus(Center(), RadiusX(), RadiusY(), Rotation(), AngleStart(), AngleSpan(), radialScale);
}

void ccEllipseAnnulus::SetAll(const cc2Vect& center, double radiusX, double radiusY, double rotation,
                              double angleStart, double angleSpan, double radialScale) {
    ccEllipse2::ValidateRadius(radiusX, "RadiusX");
    ccEllipse2::ValidateRadius(radiusY, "RadiusY");
    ccEllipseArc2::ValidateAngleSpan(angleSpan);
    ccGenAnnulus::ValidateRadialScale(radialScale);
    g_ = ccGenAnnulus(center, radiusX, radiusY, cc2XformLinear::NormalizeAngle(rotation),
                      cc2XformLinear::NormalizeAngle(angleStart), angleSpan, radialScale);
}

ccEllipseArc2::UnitCircleParams ccEllipseAnnulus::GetUnitCircleParams() const noexcept {
    ccEllipseArc2::UnitCircleParams params;
    params.angleStart = AngleStart();
    params.angleSpan = AngleSpan();
    params.ellipseFromUnitCircle = ccEllipse2::UnitCircleTransformOf(Center(), RadiusX(), RadiusY(), Rotation());
    return params;
}

void ccEllipseAnnulus::SetFromUnitCircleParams(double unitAngleStart, double unitAngleSpan, double radialScale,
                                               const cc2XformLinear& ellipseFromUnitCircle) {
    ccGenAnnulus::ValidateRadialScale(radialScale);
    // The start arc does the decomposition (and refuses first, changing nothing here).
    ccEllipseArc2Ptrh arc(new ccEllipseArc2());
    arc->SetFromUnitCircleParams(unitAngleStart, unitAngleSpan, ellipseFromUnitCircle);
    g_ = ccGenAnnulus(arc->Center(), arc->RadiusX(), arc->RadiusY(), arc->Rotation(), arc->AngleStart(),
                      arc->AngleSpan(), radialScale);
}

ccEllipseArc2Ptrh ccEllipseAnnulus::ArcAtFraction(double fraction) const {
    if (!std::isfinite(fraction)) throw ccShapesError::BadParams("ArcAtFraction: the fraction is not finite");
    const double scale = g_.ScaleAtFraction(fraction);
    return ccEllipseArc2Ptrh(
        new ccEllipseArc2(Center(), RadiusX() * scale, RadiusY() * scale, Rotation(), AngleStart(), AngleSpan()));
}

bool ccEllipseAnnulus::Equals(const ccShape& other) const noexcept {
    const auto* e = dynamic_cast<const ccEllipseAnnulus*>(&other);
    return e && e->Center().X() == Center().X() && e->Center().Y() == Center().Y() && e->RadiusX() == RadiusX() &&
           e->RadiusY() == RadiusY() && e->Rotation() == Rotation() && e->AngleStart() == AngleStart() &&
           e->AngleSpan() == AngleSpan() && e->RadialScale() == RadialScale();
}

std::string ccEllipseAnnulus::Description() const {
    char text[320];
    std::snprintf(text, sizeof text,
                  "ccEllipseAnnulus(center (%.17g, %.17g), radii %.17g %.17g, rotation %.17g, start %.17g, span %.17g, "
                  "scale %.17g)",
                  Center().X(), Center().Y(), RadiusX(), RadiusY(), Rotation(), AngleStart(), AngleSpan(), RadialScale());
    return text;
}

ccRectPtrh ccEllipseAnnulus::BoundingBox() const {
    if (!IsFinite()) throw ccShapesError::InfiniteExtent("BoundingBox of " + Description());
    double x0, y0, x1, y1;
    g_.Bounds(x0, y0, x1, y1);
    return ccRectPtrh(new ccRect(x0, y0, x1 - x0, y1 - y0));
}

ccShapePtrh ccEllipseAnnulus::Map(const cc2XformLinear& xform) const {
    ccEllipseAnnulus* mapped = new ccEllipseAnnulus(*this);
    ccShapePtrh holder(mapped);
    const ccEllipseArc2::UnitCircleParams params = GetUnitCircleParams();
    try {
        mapped->SetFromUnitCircleParams(params.angleStart, params.angleSpan, RadialScale(),
                                        xform * params.ellipseFromUnitCircle);
    } catch (const ccShapesError::DegenerateShape&) {
        throw ccShapesError::DegenerateShape("Map of " + Description() + ": the transform is singular");
    }
    return holder;
}

ccShapePtrh ccEllipseAnnulus::Translate(const cc2Vect& offset) const {
    ccEllipseAnnulus* moved = new ccEllipseAnnulus(*this);
    moved->SetCenter(Center() + offset);
    return ccShapePtrh(moved);
}
