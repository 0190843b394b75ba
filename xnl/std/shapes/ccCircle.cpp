#include "xnl/std/shapes/ccCircle.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <string>

#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccConicScan.h"
#include "xnl/std/shapes/ccQvShapesError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccRoundGeometry.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace {
constexpr double kPi = std::numbers::pi;
}  // namespace

ccCircle::ccCircle(const cc2Vect& center, double radius) { SetCenterRadius(center, radius); }

void ccCircle::SetRadius(double radius) {
    ccEllipse2::ValidateRadius(radius, "Radius");
    radius_ = radius;
}

void ccCircle::SetCenterRadius(const cc2Vect& center, double radius) {
    ccEllipse2::ValidateRadius(radius, "Radius");
    center_ = center;
    radius_ = radius;
}

ccEllipse2Ptrh ccCircle::ToEllipse() const { return ccEllipse2Ptrh(new ccEllipse2(center_, radius_, radius_, 0.0)); }

cc2Vect ccCircle::PointAtAngle(double t) const noexcept {
    return {center_.X() + radius_ * std::cos(t), center_.Y() + radius_ * std::sin(t)};
}

bool ccCircle::IsFinite() const noexcept {
    return std::isfinite(center_.X()) && std::isfinite(center_.Y()) && std::isfinite(radius_);
}

bool ccCircle::Equals(const ccShape& other) const noexcept {
    const auto* c = dynamic_cast<const ccCircle*>(&other);
    return c && c->center_.X() == center_.X() && c->center_.Y() == center_.Y() && c->radius_ == radius_;
}

std::string ccCircle::Description() const {
    char text[160];
    std::snprintf(text, sizeof text, "ccCircle(center (%.17g, %.17g), radius %.17g)", center_.X(), center_.Y(), radius_);
    return text;
}

ccRectPtrh ccCircle::BoundingBox() const {
    if (!IsFinite()) throw ccShapesError::InfiniteExtent("BoundingBox of " + Description());
    return ccRectPtrh(new ccRect(center_.X() - radius_, center_.Y() - radius_, 2 * radius_, 2 * radius_));
}

ccShapePtrh ccCircle::Map(const cc2XformLinear& xform) const {
    try {
        return ccShapePtrh(new ccEllipse2(xform * cc2XformLinear(radius_, 0, 0, radius_, center_.X(), center_.Y())));
    } catch (const ccShapesError::DegenerateShape&) {
        throw ccShapesError::DegenerateShape("Map of " + Description() + ": the transform is singular");
    }
}

ccShapePtrh ccCircle::Translate(const cc2Vect& offset) const {
    return ccShapePtrh(new ccCircle(center_ + offset, radius_));
}

cc2Vect ccCircle::NearestPoint(const cc2Vect& point) const {
    const cc2Vect d = point - center_;
    const double length = std::hypot(d.X(), d.Y());
    if (length == 0) return {center_.X() + radius_, center_.Y()};
    return center_ + d * (radius_ / length);
}

double ccCircle::DistanceToPoint(const cc2Vect& point) const {
    return std::fabs(std::hypot(point.X() - center_.X(), point.Y() - center_.Y()) - radius_);
}

void ccCircle::Sample(double maxStep, std::vector<cc2Vect>& points) const {
    if (!(maxStep > 0)) throw ccShapesError::BadParams("Sample: the step must be greater than 0");
    if (!IsFinite()) throw ccShapesError::BadGeom("Sample of " + Description());
    const double steps = std::max(4.0, std::ceil(2 * kPi * radius_ / maxStep));
    if (!(steps + 1 <= static_cast<double>(kMaxSamplePoints)))
        throw ccShapesError::SampleOverflow("Sample: " + std::to_string(steps + 1) + " points");
    const auto n = static_cast<size_t>(steps);
    points.clear();
    points.reserve(n + 1);
    for (size_t k = 0; k < n; ++k) points.push_back(PointAtAngle(2 * kPi * static_cast<double>(k) / steps));
    points.push_back(points.front());
}

bool ccCircle::Within(const cc2Vect& point) const {
    if (!IsFinite()) throw ccShapesError::BadGeom("Within of " + Description());
    return ccConicScan::Circle(center_, radius_).Within(point.X(), point.Y());
}

double ccCircle::Area() const noexcept { return kPi * radius_ * radius_; }

double ccCircle::Perimeter() const noexcept { return 2 * kPi * radius_; }

void ccCircle::ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const {
    if (!IsFinite()) throw ccShapesError::BadGeom("ScanConvert of " + Description());
    ccConicScan::Circle(center_, radius_).ScanConvert(sink, clip);
}

ccPixelBox ccCircle::PixelBounds() const {
    if (!IsFinite()) throw ccShapesError::BadGeom("PixelBounds of " + Description());
    return ccConicScan::Circle(center_, radius_).Bounds();
}
