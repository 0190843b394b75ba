// An axis-aligned rectangle: the corner (x, y) with the least coordinates, a width and a
// height. The core takes any numbers; a rectangle whose width or height is <= 0 (or NaN) is
// empty: it holds no point and no pixel, has area 0, and its operations say so below. The
// automation layer refuses widths and heights <= 0 before they get here.
//
// As a region it covers x <= px < x + width, y <= py < y + height (the inside rule of
// ccShape): the rectangle (0, 0, 10, 10) holds exactly the pixels 0..9 x 0..9.
//
// Its corners in their cyclic order, used by NearestPoint and Sample: origin (x, y), then
// (x + width, y), (x + width, y + height), (x, y + height).
#pragma once

#include <string>

#include "xnl/std/shapes/ccShape.h"

class ccRect : public ccShape {
public:
    // The empty rectangle at the origin.
    ccRect() noexcept = default;
    ccRect(double x, double y, double width, double height) noexcept : x_(x), y_(y), width_(width), height_(height) {}
    ccRect(const cc2Vect& origin, const cc2Vect& size) noexcept
        : ccRect(origin.X(), origin.Y(), size.X(), size.Y()) {}
    ccRect(const ccRect&) = default;
    ccRect& operator=(const ccRect&) = default;

    double X() const noexcept { return x_; }
    double Y() const noexcept { return y_; }
    double Width() const noexcept { return width_; }
    double Height() const noexcept { return height_; }
    double Right() const noexcept { return x_ + width_; }
    double Bottom() const noexcept { return y_ + height_; }
    cc2Vect Origin() const noexcept { return {x_, y_}; }
    cc2Vect Size() const noexcept { return {width_, height_}; }
    cc2Vect Center() const noexcept { return {x_ + width_ / 2, y_ + height_ / 2}; }

    void Set(double x, double y, double width, double height) noexcept {
        x_ = x;
        y_ = y;
        width_ = width;
        height_ = height;
    }
    void SetX(double x) noexcept { x_ = x; }
    void SetY(double y) noexcept { y_ = y; }
    void SetWidth(double width) noexcept { width_ = width; }
    void SetHeight(double height) noexcept { height_ = height; }
    // Keeps the size: x = center.x - width / 2, y = center.y - height / 2.
    void SetCenter(const cc2Vect& center) noexcept;

    // The part both hold. Rectangles that do not meet (or an empty operand) give an empty
    // rectangle of width and height 0 at (max x, max y).
    ccRectPtrh Intersect(const ccRect& other) const;
    // The smallest rectangle holding both. An empty operand is ignored; two empty ones give
    // the empty rectangle (0, 0, 0, 0).
    ccRectPtrh Union(const ccRect& other) const;
    // The Minkowski sum with `other`: (x + o.x, y + o.y, w + o.w, h + o.h), so that every
    // point of this plus every point of other lies in the result.
    ccRectPtrh Dilate(const ccRect& other) const;
    // The inverse of Dilate: (x - o.x, y - o.y, w - o.w, h - o.h). Eroding by a rectangle
    // larger than this one gives a rectangle of width or height <= 0, which is empty; it
    // is handed back as computed so that dilating it again gives this rectangle.
    ccRectPtrh Erode(const ccRect& other) const;

    // ccShape
    ccRect* Clone() const override { return new ccRect(*this); }
    const char* TypeName() const noexcept override { return "ccRect"; }
    bool IsRegion() const noexcept override { return true; }
    // Width or height <= 0, or NaN.
    bool IsEmpty() const noexcept override;
    bool IsFinite() const noexcept override;
    bool IsConvex() const noexcept override { return true; }
    bool Equals(const ccShape& other) const noexcept override;
    std::string Description() const override;

    // A copy of this rectangle (empty ones too); InfiniteExtent when not finite.
    ccRectPtrh BoundingBox() const override;
    // A ccRect when the matrix is diagonal (scalings, mirror images along the axes,
    // translations), else a ccAffineRectangle whose origin corner is the image of this
    // origin. DegenerateShape for a singular matrix, and for an empty rectangle mapped
    // into an affine rectangle (which cannot be empty).
    ccShapePtrh Map(const cc2XformLinear& xform) const override;
    ccShapePtrh Translate(const cc2Vect& offset) const override;
    // On the outline, sides in the cyclic order above, the earliest side winning a tie.
    // An empty rectangle's outline is still its four (possibly collapsed) sides.
    cc2Vect NearestPoint(const cc2Vect& point) const override;
    void Sample(double maxStep, std::vector<cc2Vect>& points) const override;
    cc2Vect Centroid() const override { return Center(); }

    bool Within(const cc2Vect& point) const noexcept override;
    // 0 when empty.
    double Area() const noexcept override;
    // 2 (w + h) with each of w and h taken as 0 when negative.
    double Perimeter() const noexcept override;
    void ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const override;
    using ccShape::ScanConvert;
    // Exactly the pixels ScanConvert emits (an empty box when none).
    ccPixelBox PixelBounds() const noexcept override;

protected:
    ~ccRect() override = default;

private:
    double x_ = 0.0;
    double y_ = 0.0;
    double width_ = 0.0;
    double height_ = 0.0;
};
