#include "xnl/std/shapes/ccRect.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <typeinfo>

#include "xnl/std/base/ccSpanSink.h"
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccAffineRectangle.h"
#include "xnl/std/shapes/ccInsideRule.h"
#include "xnl/std/shapes/ccShapesError.h"

void ccRect::SetCenter(const cc2Vect& center) noexcept {
    x_ = center.X() - width_ / 2;
    y_ = center.Y() - height_ / 2;
}

ccRectPtrh ccRect::Intersect(const ccRect& other) const {
    const double x = std::max(x_, other.x_);
    const double y = std::max(y_, other.y_);
    if (IsEmpty() || other.IsEmpty()) return ccRectPtrh(new ccRect(x, y, 0, 0));
    const double right = std::min(Right(), other.Right());
    const double bottom = std::min(Bottom(), other.Bottom());
    if (!(right > x) || !(bottom > y)) return ccRectPtrh(new ccRect(x, y, 0, 0));
    return ccRectPtrh(new ccRect(x, y, right - x, bottom - y));
}

ccRectPtrh ccRect::Union(const ccRect& other) const {
    if (other.IsEmpty()) return ccRectPtrh(IsEmpty() ? new ccRect() : new ccRect(*this));
    if (IsEmpty()) return ccRectPtrh(new ccRect(other));
    const double x = std::min(x_, other.x_);
    const double y = std::min(y_, other.y_);
    return ccRectPtrh(new ccRect(x, y, std::max(Right(), other.Right()) - x, std::max(Bottom(), other.Bottom()) - y));
}

ccRectPtrh ccRect::Dilate(const ccRect& other) const {
    return ccRectPtrh(new ccRect(x_ + other.x_, y_ + other.y_, width_ + other.width_, height_ + other.height_));
}

ccRectPtrh ccRect::Erode(const ccRect& other) const {
    return ccRectPtrh(new ccRect(x_ - other.x_, y_ - other.y_, width_ - other.width_, height_ - other.height_));
}

bool ccRect::IsEmpty() const noexcept { return !(width_ > 0) || !(height_ > 0); }

bool ccRect::IsFinite() const noexcept {
    return std::isfinite(x_) && std::isfinite(y_) && std::isfinite(width_) && std::isfinite(height_);
}

bool ccRect::Equals(const ccShape& other) const noexcept {
    if (typeid(other) != typeid(*this)) return false;
    const auto& rect = static_cast<const ccRect&>(other);
    return x_ == rect.x_ && y_ == rect.y_ && width_ == rect.width_ && height_ == rect.height_;
}

std::string ccRect::Description() const {
    char text[160];
    std::snprintf(text, sizeof text, "ccRect(%.17g, %.17g, %.17g, %.17g)", x_, y_, width_, height_);
    return text;
}

ccRectPtrh ccRect::BoundingBox() const {
    if (!IsFinite()) throw ccShapesError::InfiniteExtent("BoundingBox of " + Description());
    return ccRectPtrh(new ccRect(*this));
}

ccShapePtrh ccRect::Map(const cc2XformLinear& xform) const {
    if (xform.Determinant() == 0) throw ccShapesError::DegenerateShape("Map of a ccRect through a singular transform");
    if (xform.M01() == 0 && xform.M10() == 0) {
        // Scalings and mirror images keep the sides on the axes; a mirrored axis takes its
        // least coordinate from the far side. Widths scale by the factor's size, so an
        // empty rectangle stays empty.
        const double m00 = xform.M00();
        const double m11 = xform.M11();
        const double x = (m00 > 0 ? m00 * x_ : m00 * Right()) + xform.TranslationX();
        const double y = (m11 > 0 ? m11 * y_ : m11 * Bottom()) + xform.TranslationY();
        return ccShapePtrh(new ccRect(x, y, std::fabs(m00) * width_, std::fabs(m11) * height_));
    }
    if (IsEmpty()) throw ccShapesError::DegenerateShape("Map of an empty ccRect into an affine rectangle");
    try {
        return ccShapePtrh(new ccAffineRectangle(xform.MapPoint(Origin()), xform.MapPoint({Right(), y_}),
                                                 xform.MapPoint({x_, Bottom()})));
    } catch (const ccAffineRectangle::Errors& error) {
        // Sides that the transform squeezes (almost) parallel.
        throw ccShapesError::DegenerateShape(std::string("Map of a ccRect: ") + error.Message());
    }
}

ccShapePtrh ccRect::Translate(const cc2Vect& offset) const {
    return ccShapePtrh(new ccRect(x_ + offset.X(), y_ + offset.Y(), width_, height_));
}

cc2Vect ccRect::NearestPoint(const cc2Vect& point) const {
    const cc2Vect corners[4] = {{x_, y_}, {Right(), y_}, {Right(), Bottom()}, {x_, Bottom()}};
    return NearestOnClosedPolygon(corners, 4, point);
}

void ccRect::Sample(double maxStep, std::vector<cc2Vect>& points) const {
    const cc2Vect corners[4] = {{x_, y_}, {Right(), y_}, {Right(), Bottom()}, {x_, Bottom()}};
    SampleClosedPolygon(corners, 4, maxStep, points);
}

bool ccRect::Within(const cc2Vect& point) const noexcept {
    // Half-open in both axes: the left and top edges are inside, the right and bottom ones
    // outside (an empty rectangle fails one of the tests).
    return point.X() >= x_ && point.X() < Right() && point.Y() >= y_ && point.Y() < Bottom();
}

double ccRect::Area() const noexcept { return IsEmpty() ? 0.0 : width_ * height_; }

double ccRect::Perimeter() const noexcept { return 2 * (std::max(width_, 0.0) + std::max(height_, 0.0)); }

ccPixelBox ccRect::PixelBounds() const noexcept {
    if (IsEmpty()) return {};
    ccPixelBox box{ccInsideRule::SpanFirst(x_), ccInsideRule::FirstRow(y_), ccInsideRule::SpanEnd(Right()),
                   ccInsideRule::EndRow(Bottom())};
    return box.IsEmpty() ? ccPixelBox{} : box;
}

void ccRect::ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const {
    const ccPixelBox box = PixelBounds().Intersect(clip).Intersect(ccPixelBox::Everything());
    if (box.IsEmpty()) return;
    sink.blitRect(box.x0, box.y0, box.x1 - box.x0, box.y1 - box.y0);
}
