#include "xnl/std/shapes/ccAffineRectangle.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <typeinfo>

#include "xnl/std/base/ccSpanSink.h"
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccInsideRule.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccScanEdge.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kHalfPi = std::numbers::pi / 2;

// The unit vector at `angle`, exact at the quarter turns: cos(pi/2) in doubles is 6e-17,
// which would tilt the side of an axis-aligned affine rectangle and move pixel centres
// that lie on it across.
cc2Vect UnitVector(double angle) noexcept {
    const double a = cc2XformLinear::NormalizeAngle(angle);
    if (a == 0) return {1.0, 0.0};
    if (a == kHalfPi) return {0.0, 1.0};
    if (a == -kHalfPi) return {0.0, -1.0};
    if (a == -kPi) return {-1.0, 0.0};
    return {std::cos(a), std::sin(a)};
}

}  // namespace

ccAffineRectangle::ccAffineRectangle() noexcept = default;

ccAffineRectangle::ccAffineRectangle(const cc2Vect& center, double sideXLength, double sideYLength, double rotation,
                                     double skew) {
    SetCenterLengthsRotationSkew(center, sideXLength, sideYLength, rotation, skew);
}

ccAffineRectangle::ccAffineRectangle(FromOriginTag, const cc2Vect& origin, double sideXLength, double sideYLength,
                                     double rotation, double skew) {
    SetOriginLengthsRotationSkew(origin, sideXLength, sideYLength, rotation, skew);
}

ccAffineRectangle::ccAffineRectangle(const cc2Vect& origin, const cc2Vect& cornerX, const cc2Vect& cornerY) {
    SetOriginCornerXCornerY(origin, cornerX, cornerY);
}

ccAffineRectangle::ccAffineRectangle(const ccAffineRectangle& other) noexcept
    : ccShape(other),
      center_(other.center_),
      sideX_(other.sideX_),
      sideY_(other.sideY_),
      rotation_(other.rotation_),
      skew_(other.skew_) {
    // Only finished corners travel.
    const uint32_t bits = other.cacheBits_.load(std::memory_order_acquire);
    uint32_t ready = 0;
    for (int i = 0; i < 4; ++i) {
        if (bits & (kReady << i)) {
            corners_[i] = other.corners_[i];
            ready |= kReady << i;
        }
    }
    cacheBits_.store(ready, std::memory_order_release);
}

ccAffineRectangle& ccAffineRectangle::operator=(const ccAffineRectangle& other) noexcept {
    if (this != &other) {
        ccShape::operator=(other);
        Store(other.center_, other.sideX_, other.sideY_, other.rotation_, other.skew_);
    }
    return *this;
}

void ccAffineRectangle::ValidateLengths(double sideXLength, double sideYLength) {
    if (!(sideXLength > 0)) throw BadLength("SideXLength " + std::to_string(sideXLength));
    if (!(sideYLength > 0)) throw BadLength("SideYLength " + std::to_string(sideYLength));
}

double ccAffineRectangle::ValidatedSkew(double skew) {
    const double normalized = cc2XformLinear::NormalizeAngle(skew);
    // How far |skew| is from a quarter turn, itself as a normalised angle.
    const double distance = std::fabs(cc2XformLinear::NormalizeAngle(std::fabs(normalized) - kHalfPi));
    if (!(distance > kSkewMargin)) throw BadSkew("Skew " + std::to_string(skew));
    return normalized;
}

cc2Vect ccAffineRectangle::SideX() const noexcept { return UnitVector(rotation_) * sideX_; }

cc2Vect ccAffineRectangle::SideY() const noexcept {
    // (cos phi, sin phi) with phi = rotation + pi/2 + skew, written as a quarter turn of
    // the unit vector at rotation + skew, so that quarter turns stay exact.
    return UnitVector(rotation_ + skew_).Perpendicular() * sideY_;
}

cc2Vect ccAffineRectangle::ComputeCorner(Corner which) const noexcept {
    const cc2Vect u = SideX();
    const cc2Vect v = SideY();
    const cc2Vect origin = center_ - (u + v) / 2;
    switch (which) {
        case Corner::Origin: return origin;
        case Corner::X: return origin + u;
        case Corner::Y: return origin + v;
        case Corner::Opposite: return origin + u + v;
    }
    return origin;
}

cc2Vect ccAffineRectangle::CornerAt(Corner which) const noexcept {
    const int i = static_cast<int>(which);
    const uint32_t ready = kReady << i;
    const uint32_t busy = kBusy << i;
    const uint32_t bits = cacheBits_.load(std::memory_order_acquire);
    if (bits & ready) return corners_[i];
    if (!(bits & busy)) {
        const uint32_t before = cacheBits_.fetch_or(busy, std::memory_order_acq_rel);
        if (before & ready) return corners_[i];
        if (!(before & busy)) {
            // This thread owns the slot until it publishes it.
            const cc2Vect corner = ComputeCorner(which);
            corners_[i] = corner;
            cacheBits_.fetch_or(ready, std::memory_order_release);
            return corner;
        }
    }
    // Another thread is writing the slot: compute a copy rather than wait for it.
    return ComputeCorner(which);
}

cc2XformLinear ccAffineRectangle::UnitSquareMap() const noexcept {
    const cc2Vect u = SideX();
    const cc2Vect v = SideY();
    const cc2Vect origin = CornerOrigin();
    return cc2XformLinear(u.X(), v.X(), u.Y(), v.Y(), origin.X(), origin.Y());
}

void ccAffineRectangle::Store(const cc2Vect& center, double sideXLength, double sideYLength, double rotation,
                              double skew) noexcept {
    center_ = center;
    sideX_ = sideXLength;
    sideY_ = sideYLength;
    rotation_ = rotation;
    skew_ = skew;
    cacheBits_.store(0, std::memory_order_release);
}

void ccAffineRectangle::SetCenter(const cc2Vect& center) noexcept { Store(center, sideX_, sideY_, rotation_, skew_); }

void ccAffineRectangle::SetSideXLength(double length) {
    ValidateLengths(length, sideY_);
    Store(center_, length, sideY_, rotation_, skew_);
}

void ccAffineRectangle::SetSideYLength(double length) {
    ValidateLengths(sideX_, length);
    Store(center_, sideX_, length, rotation_, skew_);
}

void ccAffineRectangle::SetRotation(double rotation) noexcept {
    Store(center_, sideX_, sideY_, cc2XformLinear::NormalizeAngle(rotation), skew_);
}

void ccAffineRectangle::SetSkew(double skew) {
    const double normalized = ValidatedSkew(skew);
    Store(center_, sideX_, sideY_, rotation_, normalized);
}

void ccAffineRectangle::SetCenterLengthsRotationSkew(const cc2Vect& center, double sideXLength, double sideYLength,
                                                     double rotation, double skew) {
    ValidateLengths(sideXLength, sideYLength);
    const double normalizedSkew = ValidatedSkew(skew);
    Store(center, sideXLength, sideYLength, cc2XformLinear::NormalizeAngle(rotation), normalizedSkew);
}

void ccAffineRectangle::SetOriginLengthsRotationSkew(const cc2Vect& origin, double sideXLength, double sideYLength,
                                                     double rotation, double skew) {
    ValidateLengths(sideXLength, sideYLength);
    const double normalizedSkew = ValidatedSkew(skew);
    const double normalizedRotation = cc2XformLinear::NormalizeAngle(rotation);
    const cc2Vect u = UnitVector(normalizedRotation) * sideXLength;
    const cc2Vect v = UnitVector(normalizedRotation + normalizedSkew).Perpendicular() * sideYLength;
    Store(origin + (u + v) / 2, sideXLength, sideYLength, normalizedRotation, normalizedSkew);
}

void ccAffineRectangle::SetOriginCornerXCornerY(const cc2Vect& origin, const cc2Vect& cornerX,
                                                const cc2Vect& cornerY) {
    if (cornerX == origin) throw BadLength("CornerX equals the origin");
    const cc2Vect u = cornerX - origin;
    const cc2Vect v = cornerY - origin;
    if (u.Cross(v) == 0) throw BadLength("the sides are parallel");
    const double sideXLength = u.Length();
    const double sideYLength = v.Length();
    ValidateLengths(sideXLength, sideYLength);  // NaN corners end here
    const double rotation = u.Angle();
    const double skew = ValidatedSkew(v.Angle() - rotation - kHalfPi);
    Store(origin + (u + v) / 2, sideXLength, sideYLength, rotation, skew);
}

bool ccAffineRectangle::IsFinite() const noexcept {
    return std::isfinite(center_.X()) && std::isfinite(center_.Y()) && std::isfinite(sideX_) &&
           std::isfinite(sideY_) && std::isfinite(rotation_) && std::isfinite(skew_);
}

bool ccAffineRectangle::Equals(const ccShape& other) const noexcept {
    if (typeid(other) != typeid(*this)) return false;
    const auto& rect = static_cast<const ccAffineRectangle&>(other);
    return center_ == rect.center_ && sideX_ == rect.sideX_ && sideY_ == rect.sideY_ && rotation_ == rect.rotation_ &&
           skew_ == rect.skew_;
}

std::string ccAffineRectangle::Description() const {
    char text[256];
    std::snprintf(text, sizeof text, "ccAffineRectangle(center (%.17g, %.17g), sides %.17g %.17g, rotation %.17g, skew %.17g)",
                  center_.X(), center_.Y(), sideX_, sideY_, rotation_, skew_);
    return text;
}

ccRectPtrh ccAffineRectangle::BoundingBox() const {
    if (!IsFinite()) throw ccShapesError::InfiniteExtent("BoundingBox of " + Description());
    const cc2Vect corners[4] = {CornerOrigin(), CornerX(), CornerOpposite(), CornerY()};
    double left = corners[0].X(), right = left, top = corners[0].Y(), bottom = top;
    for (const cc2Vect& corner : corners) {
        left = std::min(left, corner.X());
        right = std::max(right, corner.X());
        top = std::min(top, corner.Y());
        bottom = std::max(bottom, corner.Y());
    }
    return ccRectPtrh(new ccRect(left, top, right - left, bottom - top));
}

ccShapePtrh ccAffineRectangle::Map(const cc2XformLinear& xform) const {
    if (xform.Determinant() == 0)
        throw ccShapesError::DegenerateShape("Map of a ccAffineRectangle through a singular transform");
    try {
        return ccShapePtrh(new ccAffineRectangle(xform.MapPoint(CornerOrigin()), xform.MapPoint(CornerX()),
                                                 xform.MapPoint(CornerY())));
    } catch (const Errors& error) {
        throw ccShapesError::DegenerateShape(std::string("Map of a ccAffineRectangle: ") + error.Message());
    }
}

ccShapePtrh ccAffineRectangle::Translate(const cc2Vect& offset) const {
    auto* moved = new ccAffineRectangle(*this);
    ccShapePtrh held(moved);
    moved->SetCenter(center_ + offset);
    return held;
}

cc2Vect ccAffineRectangle::NearestPoint(const cc2Vect& point) const {
    const cc2Vect corners[4] = {CornerOrigin(), CornerX(), CornerOpposite(), CornerY()};
    return NearestOnClosedPolygon(corners, 4, point);
}

void ccAffineRectangle::Sample(double maxStep, std::vector<cc2Vect>& points) const {
    const cc2Vect corners[4] = {CornerOrigin(), CornerX(), CornerOpposite(), CornerY()};
    SampleClosedPolygon(corners, 4, maxStep, points);
}

void ccAffineRectangle::ScanCorners(cc2Vect (&corners)[4]) const noexcept {
    cc2Vect cyclic[4] = {CornerOrigin(), CornerX(), CornerOpposite(), CornerY()};
    // cross(u, v) = sideX sideY cos(skew): with the second and fourth swapped for a
    // negative cosine, the corners always turn the positive way.
    if (std::cos(skew_) < 0) std::swap(cyclic[1], cyclic[3]);
    int start = 0;
    for (int i = 1; i < 4; ++i) {
        const cc2Vect& c = cyclic[i];
        const cc2Vect& s = cyclic[start];
        if (c.Y() < s.Y() || (c.Y() == s.Y() && c.X() < s.X())) start = i;
    }
    for (int k = 0; k < 4; ++k) corners[k] = cyclic[(start + k) % 4];
}

bool ccAffineRectangle::Within(const cc2Vect& point) const noexcept {
    if (!IsFinite()) return false;
    cc2Vect corners[4];
    ScanCorners(corners);
    return ccInsideRule::WithinConvex(corners, 4, point);
}

double ccAffineRectangle::Area() const noexcept { return sideX_ * sideY_ * std::fabs(std::cos(skew_)); }

double ccAffineRectangle::Perimeter() const noexcept { return 2 * (sideX_ + sideY_); }

ccPixelBox ccAffineRectangle::PixelBounds() const {
    const ccRectPtrh box = BoundingBox();
    ccPixelBox pixels{ccInsideRule::SpanFirst(box->X()), ccInsideRule::FirstRow(box->Y()),
                      ccInsideRule::SpanEnd(box->Right()), ccInsideRule::EndRow(box->Bottom())};
    return pixels.IsEmpty() ? ccPixelBox{} : pixels;
}

void ccAffineRectangle::ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const {
    if (!IsFinite()) throw ccShapesError::BadGeom("ScanConvert of " + Description());
    const ccPixelBox box = clip.Intersect(ccPixelBox::Everything());
    if (box.IsEmpty()) return;

    // corners[0] is the top; the right chain runs 0 -> 1 -> 2, the left chain 0 -> 3 -> 2,
    // and corners[2] is the bottom. A horizontal edge bounds no row: the row tests below
    // never pick it (a row whose centre lies on a corner's y takes the edge below it).
    cc2Vect corners[4];
    ScanCorners(corners);
    // Finite parameters may still overflow into infinite corners.
    for (const cc2Vect& corner : corners)
        if (!std::isfinite(corner.X()) || !std::isfinite(corner.Y()))
            throw ccShapesError::BadGeom("ScanConvert of " + Description() + ": a corner is not finite");
    const cc2Vect& top = corners[0];
    const cc2Vect& bottom = corners[2];
    const int32_t firstRow = std::max(ccInsideRule::FirstRow(top.Y()), box.y0);
    const int32_t endRow = std::min(ccInsideRule::EndRow(bottom.Y()), box.y1);
    if (firstRow >= endRow) return;

    const ccScanEdge rightUpper = corners[1].Y() > top.Y() ? ccScanEdge(top, corners[1]) : ccScanEdge();
    const ccScanEdge rightLower = bottom.Y() > corners[1].Y() ? ccScanEdge(corners[1], bottom) : ccScanEdge();
    const ccScanEdge leftUpper = corners[3].Y() > top.Y() ? ccScanEdge(top, corners[3]) : ccScanEdge();
    const ccScanEdge leftLower = bottom.Y() > corners[3].Y() ? ccScanEdge(corners[3], bottom) : ccScanEdge();
    // The first rows that take the lower edge of each chain.
    const int32_t rightTurn = ccInsideRule::FirstRow(corners[1].Y());
    const int32_t leftTurn = ccInsideRule::FirstRow(corners[3].Y());

    for (int32_t row = firstRow; row < endRow; ++row) {
        const ccScanEdge& left = row < leftTurn ? leftUpper : leftLower;
        const ccScanEdge& right = row < rightTurn ? rightUpper : rightLower;
        const int32_t first = std::max(left.FirstCentreAtOrRight(row), box.x0);
        const int32_t end = std::min(right.FirstCentreAtOrRight(row), box.x1);
        if (first < end) sink.blitH(first, row, end - first);
    }
}
