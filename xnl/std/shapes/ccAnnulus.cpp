#include "xnl/std/shapes/ccAnnulus.h"

#include <cmath>
#include <cstdio>
#include <string>

#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccEllipse2.h"
#include "xnl/std/shapes/ccEllipseAnnulus.h"
#include "xnl/std/shapes/ccQvShapesError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccShapesError.h"

ccAnnulus::ccAnnulus(const cc2Vect& center, double radius, double angleStart, double angleSpan, double radialScale) {
    SetAll(center, radius, angleStart, angleSpan, radialScale);
}

void ccAnnulus::SetCenter(const cc2Vect& center) noexcept {
    g_ = ccGenAnnulus(center, Radius(), Radius(), 0.0, AngleStart(), AngleSpan(), RadialScale());
}

void ccAnnulus::SetRadius(double radius) {
    ccEllipse2::ValidateRadius(radius, "Radius");
    g_ = ccGenAnnulus(Center(), radius, radius, 0.0, AngleStart(), AngleSpan(), RadialScale());
}

void ccAnnulus::SetAngleStart(double angleStart) noexcept {
    g_ = ccGenAnnulus(Center(), Radius(), Radius(), 0.0, cc2XformLinear::NormalizeAngle(angleStart), AngleSpan(),
                      RadialScale());
}

void ccAnnulus::SetAngleSpan(double angleSpan) {
    ccEllipseArc2::ValidateAngleSpan(angleSpan);
    g_ = ccGenAnnulus(Center(), Radius(), Radius(), 0.0, AngleStart(), angleSpan, RadialScale());
}

void ccAnnulus::SetRadialScale(double radialScale) {
    ccGenAnnulus::ValidateRadialScale(radialScale);
    g_ = ccGenAnnulus(Center(), Radius(), Radius(), 0.0, AngleStart(), AngleSpan(), radialScale);
}

void ccAnnulus::SetAll(const cc2Vect& center, double radius, double angleStart, double angleSpan, double radialScale) {
    ccEllipse2::ValidateRadius(radius, "Radius");
    ccEllipseArc2::ValidateAngleSpan(angleSpan);
    ccGenAnnulus::ValidateRadialScale(radialScale);
    g_ = ccGenAnnulus(center, radius, radius, 0.0, cc2XformLinear::NormalizeAngle(angleStart), angleSpan, radialScale);
}

ccEllipseArc2Ptrh ccAnnulus::ArcAtFraction(double fraction) const {
    if (!std::isfinite(fraction)) throw ccShapesError::BadParams("ArcAtFraction: the fraction is not finite");
    const double radius = Radius() * g_.ScaleAtFraction(fraction);
    return ccEllipseArc2Ptrh(new ccEllipseArc2(Center(), radius, radius, 0.0, AngleStart(), AngleSpan()));
}

bool ccAnnulus::Equals(const ccShape& other) const noexcept {
    const auto* a = dynamic_cast<const ccAnnulus*>(&other);
    return a && a->Center().X() == Center().X() && a->Center().Y() == Center().Y() && a->Radius() == Radius() &&
           a->AngleStart() == AngleStart() && a->AngleSpan() == AngleSpan() && a->RadialScale() == RadialScale();
}

std::string ccAnnulus::Description() const {
    char text[256];
    std::snprintf(text, sizeof text, "ccAnnulus(center (%.17g, %.17g), radius %.17g, start %.17g, span %.17g, scale %.17g)",
                  Center().X(), Center().Y(), Radius(), AngleStart(), AngleSpan(), RadialScale());
    return text;
}

ccRectPtrh ccAnnulus::BoundingBox() const {
    if (!IsFinite()) throw ccShapesError::InfiniteExtent("BoundingBox of " + Description());
    double x0, y0, x1, y1;
    g_.Bounds(x0, y0, x1, y1);
    return ccRectPtrh(new ccRect(x0, y0, x1 - x0, y1 - y0));
}

ccShapePtrh ccAnnulus::Map(const cc2XformLinear& xform) const {
    ccEllipseAnnulusPtrh elliptical(
        new ccEllipseAnnulus(Center(), Radius(), Radius(), 0.0, AngleStart(), AngleSpan(), RadialScale()));
    try {
        return elliptical->Map(xform);
    } catch (const ccShapesError::DegenerateShape&) {
        throw ccShapesError::DegenerateShape("Map of " + Description() + ": the transform is singular");
    }
}

ccShapePtrh ccAnnulus::Translate(const cc2Vect& offset) const {
    return ccShapePtrh(new ccAnnulus(Center() + offset, Radius(), AngleStart(), AngleSpan(), RadialScale()));
}
