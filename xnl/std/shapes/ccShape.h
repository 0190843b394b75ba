// The base of the core geometry: every shape (rectangle, affine rectangle, circle,
// ellipse, arc, polygon, line, contour, shape tree) is a ccShape. The automation layer's
// shape objects build one from their parameters whenever they map, measure, sample or
// rasterise themselves, and read the result back.
//
// Shapes are counted values shared through handles, copied on write (ccPtrHandleBase):
//
//     ccRectPtrh rect(new ccRect(0, 0, 10, 10));
//     ccShapePtrh shape = rect;                          // the same value, two holders
//     ccShapePtrh mapped = shape->Map(xform);           // a new value; rect is unchanged
//     ccShapePtrh_const view = rect;                    // read-only from here on
//
// A value is only changed through a handle that holds it alone (MakeUnique); any number
// of threads may call the const operations of one value at once.
//
// Coordinates are doubles in the shape's own space, x to the right and y downwards as in
// an image. Angles are radians; stored angles lie in [-pi, pi).
//
// The inside rule (docs/regions.md): a point p is within a region when the point
// p + (e, e^2) lies in the region's interior for every small enough e > 0. So a point on a
// left edge (where a row's span starts) or on a horizontal top edge is inside, one on a
// right edge (where a span ends) or a horizontal bottom edge outside, and two regions that
// share an edge never both hold a point of it. Pixel (i, j) is the unit square
// [i, i+1) x [j, j+1); it is inside when its centre (i + 0.5, j + 0.5) is within. Every
// shape's Within and ScanConvert apply this one rule, through ccInsideRule.
//
// The 31 operations. A shape overrides exactly those that make sense for it; the others
// keep the base behaviour given here.
//
//  identity and kind
//   1 Clone            a new copy (what MakeUnique calls)                       pure
//   2 TypeName         the class name, "ccRect"                                 pure
//   3 IsRegion         closed: has an inside                                    pure
//   4 IsOpenContour    a contour with two ends (segment, arc, polyline)         false
//   5 IsEmpty          has no extent (a rectangle of width <= 0)                false
//   6 IsFinite         every number it holds is finite                          pure
//   7 IsConvex         a region whose every row is one span                     false
//   8 IsReversible     has a direction that Reverse turns round                 false
//   9 Equals           the same class with the same numbers, exactly            pure
//  10 Description      "ccRect(0, 0, 10, 10)", for messages and tests           pure
//  geometry of any shape
//  11 BoundingBox      smallest axis-aligned rectangle holding the shape        pure
//                      (InfiniteExtent for an unbounded or non-finite shape)
//  12 Map              the shape through a linear transform: a new shape, whose
//                      class may differ (a rectangle through a rotation becomes
//                      an affine rectangle); DegenerateShape for a singular one  pure
//  13 Translate        moved by a vector                                         Map
//  14 NearestPoint     the point of the shape's outline nearest to a point       pure
//  15 DistanceToPoint  the distance from a point to the outline                  |p - NearestPoint(p)|
//  16 Sample           points along the outline, consecutive points at most
//                      maxStep apart (SampleOverflow beyond kMaxSamplePoints)   NotImplemented
//  17 Centroid         centre of mass of the region, or of the contour           NotImplemented
//  regions (base: NotRegion)
//  18 Within           the inside rule at a point
//  19 Area
//  20 Perimeter        length of the outline
//  21 ScanConvert      the pixels inside, as spans to a ccSpanSink, clipped to a box
//  22 PixelBounds      a box holding every pixel ScanConvert can emit
//  open contours (base: NotOpenContour)
//  23 StartPoint       24 EndPoint       25 Length
//  26 PointAt          the point at an arc length from the start
//  27 TangentAt        the unit tangent at an arc length (NoTangent where none)
//  28 StartAngle       29 EndAngle       directions of the tangent at the ends
//  30 ArcLengthOf      arc length from the start to the contour point nearest a point
//  direction (base: NotReversible)
//  31 Reverse          the same contour run the other way
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "xnl/std/base/cc2Vect.h"
#include "xnl/std/base/ccPersistent.h"
#include "xnl/std/base/ccPtrHandle.h"
#include "xnl/std/base/ccPtrHandle_const.h"
#include "xnl/std/base/ccRefCounted.h"
#include "xnl/std/shapes/ccPixelBox.h"

class cc2XformLinear;
class ccSpanSink;
class ccShape;
class ccRect;

using ccShapePtrh = ccPtrHandle<ccShape>;
using ccShapePtrh_const = ccPtrHandle_const<ccShape>;
using ccRectPtrh = ccPtrHandle<ccRect>;
using ccRectPtrh_const = ccPtrHandle_const<ccRect>;

class ccShape : public ccRefCounted, public ccPersistent {
public:
    // The most points Sample hands back.
    static constexpr size_t kMaxSamplePoints = size_t{1} << 24;

    // identity and kind
    virtual ccShape* Clone() const = 0;
    virtual const char* TypeName() const noexcept = 0;
    virtual bool IsRegion() const noexcept = 0;
    virtual bool IsOpenContour() const noexcept;
    virtual bool IsEmpty() const noexcept;
    virtual bool IsFinite() const noexcept = 0;
    virtual bool IsConvex() const noexcept;
    virtual bool IsReversible() const noexcept;
    virtual bool Equals(const ccShape& other) const noexcept = 0;
    virtual std::string Description() const = 0;

    // geometry of any shape
    virtual ccRectPtrh BoundingBox() const = 0;
    virtual ccShapePtrh Map(const cc2XformLinear& xform) const = 0;
    virtual ccShapePtrh Translate(const cc2Vect& offset) const;
    virtual cc2Vect NearestPoint(const cc2Vect& point) const = 0;
    virtual double DistanceToPoint(const cc2Vect& point) const;
    // Replaces `points` with the samples. A closed outline starts at its first defining
    // point and ends with that point again. maxStep must be > 0 (else BadParams).
    virtual void Sample(double maxStep, std::vector<cc2Vect>& points) const;
    virtual cc2Vect Centroid() const;

    // regions
    virtual bool Within(const cc2Vect& point) const;
    virtual double Area() const;
    virtual double Perimeter() const;
    // Emits the inside pixels that lie in `clip` (and in ccPixelBox::Everything()) to
    // `sink`, keeping the sink's contract (rows in increasing y, spans in increasing x,
    // neither overlapping nor touching, no empty spans). Allocates nothing.
    virtual void ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const;
    virtual ccPixelBox PixelBounds() const;

    // open contours
    virtual cc2Vect StartPoint() const;
    virtual cc2Vect EndPoint() const;
    virtual double Length() const;
    virtual cc2Vect PointAt(double arcLength) const;
    virtual cc2Vect TangentAt(double arcLength) const;
    virtual double StartAngle() const;
    virtual double EndAngle() const;
    virtual double ArcLengthOf(const cc2Vect& point) const;

    // direction
    virtual ccShapePtrh Reverse() const;

    // Not virtual: every pixel a shape can emit (ccPixelBox::Everything()) as the clip.
    void ScanConvert(ccSpanSink& sink) const;

    // ccPersistent: the stored class name is the type name.
    const char* PersistentClassName() const noexcept override { return TypeName(); }

protected:
    // What the polygonal shapes share. The outline of a closed polygon of `count` corners,
    // sampled side by side (each side in equal steps of at most maxStep, the first corner
    // repeated at the end): BadParams for maxStep not > 0, BadGeom for non-finite corners,
    // SampleOverflow beyond kMaxSamplePoints.
    static void SampleClosedPolygon(const cc2Vect* corners, int count, double maxStep, std::vector<cc2Vect>& points);
    // The point of the outline nearest to `point`, the sides taken in order from
    // corners[0] -> corners[1]; a later side wins only when strictly closer.
    static cc2Vect NearestOnClosedPolygon(const cc2Vect* corners, int count, const cc2Vect& point) noexcept;
    // The point of the segment a-b nearest to `point` (a itself for a == b).
    static cc2Vect NearestOnSegment(const cc2Vect& a, const cc2Vect& b, const cc2Vect& point) noexcept;

    ccShape() = default;
    ccShape(const ccShape&) = default;
    ccShape& operator=(const ccShape&) = default;
    ~ccShape() override = default;
};
