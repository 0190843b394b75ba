#include "xnl/std/shapes/ccEllipseArc2.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <string>

#include "xnl/std/shapes/ccEllipticIntegral.h"
#include "xnl/std/shapes/ccQvShapesError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccRoundGeometry.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kTwoPi = 2 * std::numbers::pi;

// Whether the angle t lies on the arc that starts at `start` and sweeps `span`.
bool AngleOnArc(double t, double start, double span) noexcept {
    if (std::fabs(span) >= kTwoPi) return true;
    double offset = std::fmod((t - start) * (span > 0 ? 1 : -1), kTwoPi);
    if (offset < 0) offset += kTwoPi;
    return offset <= std::fabs(span);
}

}  // namespace

ccEllipseArc2::ccEllipseArc2(const cc2Vect& center, double radiusX, double radiusY, double rotation, double angleStart,
                             double angleSpan) {
    SetAll(center, radiusX, radiusY, rotation, angleStart, angleSpan);
}

ccEllipseArc2::ccEllipseArc2(const ccEllipse2& ellipse, double angleStart, double angleSpan) {
    SetAll(ellipse.Center(), ellipse.RadiusX(), ellipse.RadiusY(), ellipse.Rotation(), angleStart, angleSpan);
}

void ccEllipseArc2::ValidateAngleSpan(double angleSpan) {
    if (!(angleSpan != 0) || std::isnan(angleSpan))
        throw ccQvShapesError::InvalidAngleSpan("AngleSpan " + std::to_string(angleSpan));
}

void ccEllipseArc2::ValidateEllipseFraction(double fraction) {
    if (!(fraction >= kMinEllipseFraction && fraction <= kMaxEllipseFraction))
        throw ccQvShapesError::InvalidEllipseFraction("fraction " + std::to_string(fraction));
}

ccEllipse2Ptrh ccEllipseArc2::Ellipse() const {
    return ccEllipse2Ptrh(new ccEllipse2(center_, radiusX_, radiusY_, rotation_));
}

void ccEllipseArc2::SetRadiusX(double radius) {
    ccEllipse2::ValidateRadius(radius, "RadiusX");
    radiusX_ = radius;
}

void ccEllipseArc2::SetRadiusY(double radius) {
    ccEllipse2::ValidateRadius(radius, "RadiusY");
    radiusY_ = radius;
}

void ccEllipseArc2::SetRotation(double rotation) noexcept { rotation_ = cc2XformLinear::NormalizeAngle(rotation); }

void ccEllipseArc2::SetAngleStart(double angleStart) noexcept {
    angleStart_ = cc2XformLinear::NormalizeAngle(angleStart);
}

void ccEllipseArc2::SetAngleSpan(double angleSpan) {
    ValidateAngleSpan(angleSpan);
    angleSpan_ = angleSpan;
}

void ccEllipseArc2::SetAll(const cc2Vect& center, double radiusX, double radiusY, double rotation, double angleStart,
                           double angleSpan) {
    ccEllipse2::ValidateRadius(radiusX, "RadiusX");
    ccEllipse2::ValidateRadius(radiusY, "RadiusY");
    ValidateAngleSpan(angleSpan);
    center_ = center;
    radiusX_ = radiusX;
    radiusY_ = radiusY;
    rotation_ = cc2XformLinear::NormalizeAngle(rotation);
    angleStart_ = cc2XformLinear::NormalizeAngle(angleStart);
    angleSpan_ = angleSpan;
}

ccEllipseArc2::UnitCircleParams ccEllipseArc2::GetUnitCircleParams() const noexcept {
    UnitCircleParams params;
    params.angleStart = angleStart_;
    params.angleSpan = angleSpan_;
    params.ellipseFromUnitCircle = ccEllipse2::UnitCircleTransformOf(center_, radiusX_, radiusY_, rotation_);
    return params;
}

void ccEllipseArc2::SetFromUnitCircleParams(double unitAngleStart, double unitAngleSpan,
                                            const cc2XformLinear& ellipseFromUnitCircle) {
    ValidateAngleSpan(unitAngleSpan);
    const double m[4] = {ellipseFromUnitCircle.M00(), ellipseFromUnitCircle.M01(), ellipseFromUnitCircle.M10(),
                         ellipseFromUnitCircle.M11()};
    for (double v : m) {
        if (!std::isfinite(v)) throw ccShapesError::DegenerateShape("SetFromUnitCircleParams: a matrix element is not finite");
    }
    const ccRoundGeometry::Decomposition d = ccRoundGeometry::Decompose(m[0], m[1], m[2], m[3]);
    if (!(d.radiusY > 0) || !(d.radiusX > 0))
        throw ccShapesError::DegenerateShape("SetFromUnitCircleParams: the transform is singular");
    // The unit-circle point at t lies at ellipse angle t + offset, or -(t + offset) through
    // a mirror.
    const double start = d.mirrored ? -(unitAngleStart + d.angleOffset) : unitAngleStart + d.angleOffset;
    const double span = d.mirrored ? -unitAngleSpan : unitAngleSpan;
    center_ = ellipseFromUnitCircle.Translation();
    radiusX_ = d.radiusX;
    radiusY_ = d.radiusY;
    rotation_ = d.rotation;
    angleStart_ = cc2XformLinear::NormalizeAngle(start);
    angleSpan_ = span;
}

cc2Vect ccEllipseArc2::PointAtAngle(double t) const noexcept {
    const cc2Vect r = ccRoundGeometry::UnitVector(rotation_);
    const double lx = radiusX_ * std::cos(t);
    const double ly = radiusY_ * std::sin(t);
    return {center_.X() + r.X() * lx - r.Y() * ly, center_.Y() + r.Y() * lx + r.X() * ly};
}

double ccEllipseArc2::LengthToAngle(double t) const {
    return std::fabs(ccEllipticIntegral::ArcLength(radiusX_, radiusY_, angleStart_, t));
}

double ccEllipseArc2::AngleAtLength(double s) const {
    const double clamped = std::clamp(s, 0.0, Length());
    return ccEllipticIntegral::AngleAtLength(radiusX_, radiusY_, angleStart_, angleSpan_ > 0 ? clamped : -clamped);
}

cc2Vect ccEllipseArc2::PointAtFraction(double fraction) const {
    ValidateEllipseFraction(fraction);
    return PointAtAngle(AngleAtLength(fraction * Length()));
}

bool ccEllipseArc2::IsFinite() const noexcept {
    return std::isfinite(center_.X()) && std::isfinite(center_.Y()) && std::isfinite(radiusX_) &&
           std::isfinite(radiusY_) && std::isfinite(rotation_) && std::isfinite(angleStart_) &&
           std::isfinite(angleSpan_);
}

bool ccEllipseArc2::Equals(const ccShape& other) const noexcept {
    const auto* e = dynamic_cast<const ccEllipseArc2*>(&other);
    return e && e->center_.X() == center_.X() && e->center_.Y() == center_.Y() && e->radiusX_ == radiusX_ &&
           e->radiusY_ == radiusY_ && e->rotation_ == rotation_ && e->angleStart_ == angleStart_ &&
           e->angleSpan_ == angleSpan_;
}

std::string ccEllipseArc2::Description() const {
    char text[256];
    std::snprintf(text, sizeof text,
                  "ccEllipseArc2(center (%.17g, %.17g), radii %.17g %.17g, rotation %.17g, start %.17g, span %.17g)",
                  center_.X(), center_.Y(), radiusX_, radiusY_, rotation_, angleStart_, angleSpan_);
    return text;
}

ccRectPtrh ccEllipseArc2::BoundingBox() const {
    if (!IsFinite()) throw ccShapesError::InfiniteExtent("BoundingBox of " + Description());
    // The ends, and the extremes in x and y that lie on the arc: x is extreme where
    // tan t = -(ry sin r) / (rx cos r), y where tan t = (ry cos r) / (rx sin r).
    const cc2Vect r = ccRoundGeometry::UnitVector(rotation_);
    cc2Vect a = StartPoint(), b = EndPoint();
    double x0 = std::min(a.X(), b.X()), x1 = std::max(a.X(), b.X());
    double y0 = std::min(a.Y(), b.Y()), y1 = std::max(a.Y(), b.Y());
    const double tx = std::atan2(-radiusY_ * r.Y(), radiusX_ * r.X());
    const double ty = std::atan2(radiusY_ * r.X(), radiusX_ * r.Y());
    for (double t : {tx, tx + kPi, ty, ty + kPi}) {
        if (!AngleOnArc(t, angleStart_, angleSpan_)) continue;
        const cc2Vect p = PointAtAngle(t);
        x0 = std::min(x0, p.X());
        x1 = std::max(x1, p.X());
        y0 = std::min(y0, p.Y());
        y1 = std::max(y1, p.Y());
    }
    return ccRectPtrh(new ccRect(x0, y0, x1 - x0, y1 - y0));
}

ccShapePtrh ccEllipseArc2::Map(const cc2XformLinear& xform) const {
    ccEllipseArc2* mapped = new ccEllipseArc2(*this);
    ccShapePtrh holder(mapped);
    try {
        const UnitCircleParams params = GetUnitCircleParams();
        mapped->SetFromUnitCircleParams(params.angleStart, params.angleSpan, xform * params.ellipseFromUnitCircle);
    } catch (const ccShapesError::DegenerateShape&) {
        throw ccShapesError::DegenerateShape("Map of " + Description() + ": the transform is singular");
    }
    return holder;
}

ccShapePtrh ccEllipseArc2::Translate(const cc2Vect& offset) const {
    ccEllipseArc2* moved = new ccEllipseArc2(*this);
    moved->center_ = center_ + offset;
    return ccShapePtrh(moved);
}

cc2Vect ccEllipseArc2::NearestPoint(const cc2Vect& point) const {
    // The nearest point of the whole ellipse when it lies on the arc; otherwise the best
    // of the ends and of a local search from the best of 64 samples per turn.
    const cc2Vect r = ccRoundGeometry::UnitVector(rotation_);
    const cc2Vect d = point - center_;
    const cc2Vect local(r.X() * d.X() + r.Y() * d.Y(), -r.Y() * d.X() + r.X() * d.Y());
    const double t = ccRoundGeometry::NearestAngle(radiusX_, radiusY_, local);
    if (AngleOnArc(t, angleStart_, angleSpan_)) return PointAtAngle(t);
    cc2Vect best = StartPoint();
    double bestDistance = best.Distance(point);
    const double span = std::clamp(angleSpan_, -kTwoPi, kTwoPi);
    const int n = static_cast<int>(std::ceil(std::fabs(span) / kTwoPi * 64)) + 1;
    double bestT = angleStart_;
    for (int i = 1; i <= n; ++i) {
        const double ti = angleStart_ + span * i / n;
        const cc2Vect p = PointAtAngle(ti);
        if (p.Distance(point) < bestDistance) {
            best = p;
            bestDistance = p.Distance(point);
            bestT = ti;
        }
    }
    // Golden-section refinement in the neighbourhood of the best sample, kept on the arc.
    const double lo0 = std::min(angleStart_, angleStart_ + span);
    const double hi0 = std::max(angleStart_, angleStart_ + span);
    double lo = std::max(lo0, bestT - std::fabs(span) / n);
    double hi = std::min(hi0, bestT + std::fabs(span) / n);
    const double g = 0.5 * (std::sqrt(5.0) - 1);
    for (int i = 0; i < 100 && hi - lo > 1e-15; ++i) {
        const double m1 = hi - g * (hi - lo);
        const double m2 = lo + g * (hi - lo);
        if (PointAtAngle(m1).Distance(point) < PointAtAngle(m2).Distance(point)) hi = m2;
        else lo = m1;
    }
    const cc2Vect refined = PointAtAngle(0.5 * (lo + hi));
    return refined.Distance(point) < bestDistance ? refined : best;
}

void ccEllipseArc2::Sample(double maxStep, std::vector<cc2Vect>& points) const {
    if (!(maxStep > 0)) throw ccShapesError::BadParams("Sample: the step must be greater than 0");
    if (!IsFinite()) throw ccShapesError::BadGeom("Sample of " + Description());
    const double steps =
        std::max(1.0, std::ceil(std::fabs(angleSpan_) / ccRoundGeometry::AngleStep(radiusX_, radiusY_, maxStep)));
    if (!(steps + 1 <= static_cast<double>(kMaxSamplePoints)))
        throw ccShapesError::SampleOverflow("Sample: " + std::to_string(steps + 1) + " points");
    const auto n = static_cast<size_t>(steps);
    points.clear();
    points.reserve(n + 1);
    for (size_t k = 0; k < n; ++k) points.push_back(PointAtAngle(angleStart_ + angleSpan_ * (static_cast<double>(k) / steps)));
    points.push_back(EndPoint());
}

cc2Vect ccEllipseArc2::Centroid() const {
    // The length-weighted mean of the curve by the midpoint rule on 4096 steps per turn.
    const double steps = std::max(64.0, std::ceil(std::fabs(angleSpan_) / kTwoPi * 4096));
    const auto n = static_cast<int>(std::min(steps, 1e7));
    double sx = 0, sy = 0, sw = 0;
    for (int i = 0; i < n; ++i) {
        const double t = angleStart_ + angleSpan_ * (i + 0.5) / n;
        const double w = std::hypot(radiusX_ * std::sin(t), radiusY_ * std::cos(t));
        const cc2Vect p = PointAtAngle(t);
        sx += w * p.X();
        sy += w * p.Y();
        sw += w;
    }
    return {sx / sw, sy / sw};
}

cc2Vect ccEllipseArc2::StartPoint() const noexcept { return PointAtAngle(angleStart_); }
cc2Vect ccEllipseArc2::EndPoint() const noexcept { return PointAtAngle(angleStart_ + angleSpan_); }

double ccEllipseArc2::Length() const {
    return std::fabs(ccEllipticIntegral::ArcLength(radiusX_, radiusY_, angleStart_, angleStart_ + angleSpan_));
}

cc2Vect ccEllipseArc2::PointAt(double arcLength) const { return PointAtAngle(AngleAtLength(arcLength)); }

cc2Vect ccEllipseArc2::TangentAt(double arcLength) const {
    const double t = AngleAtLength(arcLength);
    const cc2Vect r = ccRoundGeometry::UnitVector(rotation_);
    const double direction = angleSpan_ > 0 ? 1.0 : -1.0;
    const double lx = -radiusX_ * std::sin(t) * direction;
    const double ly = radiusY_ * std::cos(t) * direction;
    const cc2Vect d(r.X() * lx - r.Y() * ly, r.Y() * lx + r.X() * ly);
    const double length = std::hypot(d.X(), d.Y());
    return {d.X() / length, d.Y() / length};
}

double ccEllipseArc2::StartAngle() const {
    const cc2Vect t = TangentAt(0.0);
    return cc2XformLinear::NormalizeAngle(std::atan2(t.Y(), t.X()));
}

double ccEllipseArc2::EndAngle() const {
    const cc2Vect t = TangentAt(Length());
    return cc2XformLinear::NormalizeAngle(std::atan2(t.Y(), t.X()));
}

double ccEllipseArc2::ArcLengthOf(const cc2Vect& point) const {
    // The angle of the nearest point, taken on the first turn of the arc.
    const cc2Vect nearest = NearestPoint(point);
    const cc2Vect r = ccRoundGeometry::UnitVector(rotation_);
    const cc2Vect d = nearest - center_;
    const double lx = (r.X() * d.X() + r.Y() * d.Y()) / radiusX_;
    const double ly = (-r.Y() * d.X() + r.X() * d.Y()) / radiusY_;
    const double t = std::atan2(ly, lx);
    const double direction = angleSpan_ > 0 ? 1.0 : -1.0;
    double offset = std::fmod((t - angleStart_) * direction, kTwoPi);
    if (offset < 0) offset += kTwoPi;
    offset = std::min(offset, std::fabs(angleSpan_));
    return LengthToAngle(angleStart_ + direction * offset);
}

ccShapePtrh ccEllipseArc2::Reverse() const {
    return ccShapePtrh(
        new ccEllipseArc2(center_, radiusX_, radiusY_, rotation_, angleStart_ + angleSpan_, -angleSpan_));
}
