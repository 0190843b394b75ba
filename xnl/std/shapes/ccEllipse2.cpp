#include "xnl/std/shapes/ccEllipse2.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <string>

#include "xnl/std/shapes/ccAffineRectangle.h"
#include "xnl/std/shapes/ccConicScan.h"
#include "xnl/std/shapes/ccEllipticIntegral.h"
#include "xnl/std/shapes/ccQvShapesError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccRoundGeometry.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace {
constexpr double kPi = std::numbers::pi;
}  // namespace

ccEllipse2::ccEllipse2(const cc2Vect& center, double radiusX, double radiusY, double rotation) {
    SetCenterRadiiRotation(center, radiusX, radiusY, rotation);
}

ccEllipse2::ccEllipse2(const cc2XformLinear& ellipseFromUnitCircle) { SetFromUnitCircleTransform(ellipseFromUnitCircle); }

void ccEllipse2::ValidateRadius(double radius, const char* name) {
    if (!(radius > 0)) throw ccQvShapesError::InvalidRadius(std::string(name) + " " + std::to_string(radius));
}

void ccEllipse2::SetRadiusX(double radius) {
    ValidateRadius(radius, "RadiusX");
    radiusX_ = radius;
}

void ccEllipse2::SetRadiusY(double radius) {
    ValidateRadius(radius, "RadiusY");
    radiusY_ = radius;
}

void ccEllipse2::SetRotation(double rotation) noexcept { rotation_ = cc2XformLinear::NormalizeAngle(rotation); }

void ccEllipse2::SetCenterRadiiRotation(const cc2Vect& center, double radiusX, double radiusY, double rotation) {
    ValidateRadius(radiusX, "RadiusX");
    ValidateRadius(radiusY, "RadiusY");
    center_ = center;
    radiusX_ = radiusX;
    radiusY_ = radiusY;
    rotation_ = cc2XformLinear::NormalizeAngle(rotation);
}

cc2XformLinear ccEllipse2::UnitCircleTransform() const noexcept {
    return UnitCircleTransformOf(center_, radiusX_, radiusY_, rotation_);
}

cc2XformLinear ccEllipse2::UnitCircleTransformOf(const cc2Vect& center, double radiusX, double radiusY,
                                                 double rotation) noexcept {
    const cc2Vect u = ccRoundGeometry::UnitVector(rotation);
    return cc2XformLinear(u.X() * radiusX, -u.Y() * radiusY, u.Y() * radiusX, u.X() * radiusY, center.X(), center.Y());
}

void ccEllipse2::SetFromUnitCircleTransform(const cc2XformLinear& t) {
    const double m[4] = {t.M00(), t.M01(), t.M10(), t.M11()};
    for (double v : m) {
        if (!std::isfinite(v)) throw ccShapesError::DegenerateShape("SetFromUnitCircleTransform: a matrix element is not finite");
    }
    const ccRoundGeometry::Decomposition d = ccRoundGeometry::Decompose(m[0], m[1], m[2], m[3]);
    if (!(d.radiusY > 0) || !(d.radiusX > 0))
        throw ccShapesError::DegenerateShape("SetFromUnitCircleTransform: the transform is singular");
    center_ = t.Translation();
    radiusX_ = d.radiusX;
    radiusY_ = d.radiusY;
    rotation_ = d.rotation;
}

ccAffineRectanglePtrh ccEllipse2::BoundingRectangleAffine(bool deSkew) const {
    // The transform kept has no skew, so both answers are the rectangle of the principal
    // axes; deSkew matters for the callers that hold a general unit-circle transform.
    (void)deSkew;
    return ccAffineRectanglePtrh(new ccAffineRectangle(center_, 2 * radiusX_, 2 * radiusY_, rotation_, 0.0));
}

void ccEllipse2::SetFromBoundingRectangleAffine(const ccAffineRectangle& rect) {
    // The square [-1, 1]^2 onto the parallelogram: half the side vectors and the centre.
    const cc2Vect u = rect.SideX() * 0.5;
    const cc2Vect v = rect.SideY() * 0.5;
    SetFromUnitCircleTransform(cc2XformLinear(u.X(), v.X(), u.Y(), v.Y(), rect.Center().X(), rect.Center().Y()));
}

cc2Vect ccEllipse2::PointAtAngle(double t) const noexcept {
    const cc2Vect r = ccRoundGeometry::UnitVector(rotation_);
    const double lx = radiusX_ * std::cos(t);
    const double ly = radiusY_ * std::sin(t);
    return {center_.X() + r.X() * lx - r.Y() * ly, center_.Y() + r.Y() * lx + r.X() * ly};
}

cc2Vect ccEllipse2::DerivativeAtAngle(double t) const noexcept {
    const cc2Vect r = ccRoundGeometry::UnitVector(rotation_);
    const double lx = -radiusX_ * std::sin(t);
    const double ly = radiusY_ * std::cos(t);
    return {r.X() * lx - r.Y() * ly, r.Y() * lx + r.X() * ly};
}

bool ccEllipse2::IsFinite() const noexcept {
    return std::isfinite(center_.X()) && std::isfinite(center_.Y()) && std::isfinite(radiusX_) &&
           std::isfinite(radiusY_) && std::isfinite(rotation_);
}

bool ccEllipse2::Equals(const ccShape& other) const noexcept {
    const auto* e = dynamic_cast<const ccEllipse2*>(&other);
    return e && e->center_.X() == center_.X() && e->center_.Y() == center_.Y() && e->radiusX_ == radiusX_ &&
           e->radiusY_ == radiusY_ && e->rotation_ == rotation_;
}

std::string ccEllipse2::Description() const {
    char text[256];
    std::snprintf(text, sizeof text, "ccEllipse2(center (%.17g, %.17g), radii %.17g %.17g, rotation %.17g)",
                  center_.X(), center_.Y(), radiusX_, radiusY_, rotation_);
    return text;
}

ccRectPtrh ccEllipse2::BoundingBox() const {
    if (!IsFinite()) throw ccShapesError::InfiniteExtent("BoundingBox of " + Description());
    const cc2Vect r = ccRoundGeometry::UnitVector(rotation_);
    const double hx = std::hypot(radiusX_ * r.X(), radiusY_ * r.Y());
    const double hy = std::hypot(radiusX_ * r.Y(), radiusY_ * r.X());
    return ccRectPtrh(new ccRect(center_.X() - hx, center_.Y() - hy, 2 * hx, 2 * hy));
}

ccShapePtrh ccEllipse2::Map(const cc2XformLinear& xform) const {
    try {
        return ccShapePtrh(new ccEllipse2(xform * UnitCircleTransform()));
    } catch (const ccShapesError::DegenerateShape&) {
        throw ccShapesError::DegenerateShape("Map of " + Description() + ": the transform is singular");
    }
}

ccShapePtrh ccEllipse2::Translate(const cc2Vect& offset) const {
    ccEllipse2* moved = new ccEllipse2(*this);
    moved->center_ = center_ + offset;
    return ccShapePtrh(moved);
}

cc2Vect ccEllipse2::NearestPoint(const cc2Vect& point) const {
    const cc2Vect r = ccRoundGeometry::UnitVector(rotation_);
    const cc2Vect d = point - center_;
    const cc2Vect local(r.X() * d.X() + r.Y() * d.Y(), -r.Y() * d.X() + r.X() * d.Y());
    return PointAtAngle(ccRoundGeometry::NearestAngle(radiusX_, radiusY_, local));
}

void ccEllipse2::Sample(double maxStep, std::vector<cc2Vect>& points) const {
    if (!(maxStep > 0)) throw ccShapesError::BadParams("Sample: the step must be greater than 0");
    if (!IsFinite()) throw ccShapesError::BadGeom("Sample of " + Description());
    const double steps = std::max(4.0, std::ceil(2 * kPi / ccRoundGeometry::AngleStep(radiusX_, radiusY_, maxStep)));
    if (!(steps + 1 <= static_cast<double>(kMaxSamplePoints)))
        throw ccShapesError::SampleOverflow("Sample: " + std::to_string(steps + 1) + " points");
    const auto n = static_cast<size_t>(steps);
    points.clear();
    points.reserve(n + 1);
    for (size_t k = 0; k < n; ++k) points.push_back(PointAtAngle(2 * kPi * static_cast<double>(k) / steps));
    points.push_back(points.front());
}

bool ccEllipse2::Within(const cc2Vect& point) const {
    if (!IsFinite()) throw ccShapesError::BadGeom("Within of " + Description());
    const cc2Vect r = ccRoundGeometry::UnitVector(rotation_);
    return ccConicScan::Ellipse(center_, radiusX_, radiusY_, r.X(), r.Y()).Within(point.X(), point.Y());
}

double ccEllipse2::Area() const noexcept { return kPi * radiusX_ * radiusY_; }

double ccEllipse2::Perimeter() const { return ccEllipticIntegral::Perimeter(radiusX_, radiusY_); }

void ccEllipse2::ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const {
    if (!IsFinite()) throw ccShapesError::BadGeom("ScanConvert of " + Description());
    const cc2Vect r = ccRoundGeometry::UnitVector(rotation_);
    ccConicScan::Ellipse(center_, radiusX_, radiusY_, r.X(), r.Y()).ScanConvert(sink, clip);
}

ccPixelBox ccEllipse2::PixelBounds() const {
    if (!IsFinite()) throw ccShapesError::BadGeom("PixelBounds of " + Description());
    const cc2Vect r = ccRoundGeometry::UnitVector(rotation_);
    return ccConicScan::Ellipse(center_, radiusX_, radiusY_, r.X(), r.Y()).Bounds();
}
