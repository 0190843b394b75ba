// A closed polygon: an ordered list of vertices, each joined to the next and the last to
// the first by a straight side. The list may be empty; any count is held. The core of the
// automation layer's polygon (com/shape), which keeps its vertices here.
//
// Inside and outside follow a fill mode:
//   EvenOdd  a point is inside when a ray from it crosses the outline an odd number of times
//   Winding  a point is inside when the outline winds round it a non-zero number of times
// applied with the one inside rule of every region (ccInsideRule): a point p counts as
// inside when p + (e, e^2) does for every small enough e > 0, so a pixel centre on the
// outline is decided the same way by Within, ScanConvert and every other shape.
//
// Orientation: "positive" is the turn ccInsideRule::Orientation calls 1 (counter-clockwise
// with y up, which is clockwise on an image whose y grows downwards). SignedArea is
// positive for a polygon whose vertices run the positive way.
//
// Measures of the enclosed region (Area, AreaMoments1/2, AreaCenter) are integrals over
// the plane of the outline's winding number w(p), by Green's theorem, sign-corrected so that
// a polygon run either way gives the same values: for a polygon that is not complex this is
// exactly the region under either fill mode. For a complex polygon they are the weighted
// integrals of w (a part wound twice counts twice, parts wound in opposite senses cancel),
// not the region of either fill mode; Area of a figure-eight whose two loops turn opposite
// ways is the difference of the loops' areas.
//
// Failures: vertex indices out of range throw BadIndex; measures that need extent throw
// DegenerateShape (AreaCenter with zero area, ArcCenter with zero perimeter, MeanVertex
// and NearestVertex without vertices). A refused call changes nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "xnl/std/shapes/ccShape.h"

class ccGenPoly;
using ccGenPolyPtrh = ccPtrHandle<ccGenPoly>;
using ccGenPolyPtrh_const = ccPtrHandle_const<ccGenPoly>;

class ccGenPoly : public ccShape {
public:
    enum class FillMode : uint8_t { EvenOdd = 0, Winding = 1 };

    // Zeroth and first moments: the integral of 1, x and y.
    struct Moments1 {
        double sum = 0, sumX = 0, sumY = 0;
    };
    // And of x^2, y^2 and xy.
    struct Moments2 {
        double sum = 0, sumX = 0, sumY = 0, sumXX = 0, sumYY = 0, sumXY = 0;
    };

    ccGenPoly() noexcept = default;
    explicit ccGenPoly(std::vector<cc2Vect> vertices, FillMode fill = FillMode::EvenOdd) noexcept;
    ccGenPoly(const cc2Vect* vertices, size_t count, FillMode fill = FillMode::EvenOdd);
    ccGenPoly(const ccGenPoly&) = default;
    ccGenPoly& operator=(const ccGenPoly&) = default;

    // vertices
    size_t NumVertices() const noexcept { return vertices_.size(); }
    const std::vector<cc2Vect>& Vertices() const noexcept { return vertices_; }
    // BadIndex unless index < NumVertices.
    const cc2Vect& Vertex(size_t index) const;
    void SetVertex(size_t index, const cc2Vect& vertex);
    // Inserts before `index`; index == NumVertices appends. BadIndex beyond that.
    void InsertVertex(size_t index, const cc2Vect& vertex);
    void AddVertex(const cc2Vect& vertex) { vertices_.push_back(vertex); }
    void RemoveVertex(size_t index);
    void SetVertices(std::vector<cc2Vect> vertices) noexcept { vertices_ = std::move(vertices); }
    void SetVertices(const cc2Vect* vertices, size_t count);
    // Truncates, or extends with copies of `fill`.
    void Resize(size_t count, const cc2Vect& fill = {}) { vertices_.resize(count, fill); }
    // How many vertices are held without reallocating; VertexReserve makes room for at
    // least `count` and leaves the list unchanged.
    size_t VertexCapacity() const noexcept { return vertices_.capacity(); }
    void VertexReserve(size_t count) { vertices_.reserve(count); }

    FillMode Fill() const noexcept { return fill_; }
    void SetFill(FillMode fill) noexcept { fill_ = fill; }

    // measures
    // Half the sum of the cross products of consecutive vertices: positive for a polygon
    // run the positive way. 0 for fewer than 3 vertices.
    double SignedArea() const noexcept;
    double Area() const noexcept override;          // |SignedArea|
    double Perimeter() const noexcept override;     // 0 for fewer than 2 vertices
    Moments1 AreaMoments1() const noexcept;
    Moments2 AreaMoments2() const noexcept;
    // AreaMoments1 divided by its sum; DegenerateShape when the area is 0.
    cc2Vect AreaCenter() const;
    // Integrals along the outline (arc length element ds). Sum is the perimeter.
    Moments1 ArcMoments1() const noexcept;
    Moments2 ArcMoments2() const noexcept;
    // DegenerateShape when the perimeter is 0.
    cc2Vect ArcCenter() const;
    // The mean of the vertices; DegenerateShape without vertices.
    cc2Vect MeanVertex() const;
    // The index of the vertex nearest to `point`, the lowest index among equally near
    // ones; DegenerateShape without vertices.
    size_t NearestVertex(const cc2Vect& point) const;

    // The convex hull of the vertices (the fill mode kept): the corners only, collinear and
    // repeated points dropped, run the positive way from the vertex of least x (least y
    // among equals). Fewer than 3 distinct points give those points (0, 1 or 2, the two
    // extremes of a collinear set). BadGeom for a non-finite vertex.
    ccGenPolyPtrh ConvexHull() const;
    // Whether two sides that are not neighbours meet (cross or touch), or two neighbouring
    // sides overlap along more than their shared vertex (a side folded back on the one
    // before it). Sides of zero length (repeated vertices) are skipped: they are part of
    // their neighbours. Exact. Fewer than 3 distinct consecutive vertices are never
    // complex. A vertex met twice makes it complex; otherwise a sweep over x keeps the
    // sides it crosses in order and tests sides as they become neighbours (the first
    // meeting point is always found): O(n log n). BadGeom for a non-finite vertex.
    bool IsComplex() const;
    // Whether the polygon is identical to the convex hull of its vertices: after dropping
    // repeated consecutive vertices and vertices in the middle of a straight run (which
    // change no point of the outline), the remaining ones are the hull's corners in their
    // cyclic order, either way round. A hull of fewer than 3 corners (no area) is not
    // convex, nor is a polygon with a non-finite vertex. So a square with a vertex in the
    // middle of a side is convex; a square with a spike folded back along a side is not.
    bool IsConvex() const noexcept override;

    // ccShape
    ccGenPoly* Clone() const override { return new ccGenPoly(*this); }
    const char* TypeName() const noexcept override { return "ccGenPoly"; }
    bool IsRegion() const noexcept override { return true; }
    // No vertices, or no area under the rule (fewer than 3 vertices).
    bool IsEmpty() const noexcept override { return vertices_.size() < 3; }
    bool IsFinite() const noexcept override;
    bool IsReversible() const noexcept override { return true; }
    // The same class, fill mode and vertices, exactly.
    bool Equals(const ccShape& other) const noexcept override;
    std::string Description() const override;

    // EmptyShape without vertices; InfiniteExtent when not finite.
    ccRectPtrh BoundingBox() const override;
    // Every vertex through the transform, in one pass; DegenerateShape for a singular one.
    ccShapePtrh Map(const cc2XformLinear& xform) const override;
    ccGenPolyPtrh MapPoly(const cc2XformLinear& xform) const;
    ccShapePtrh Translate(const cc2Vect& offset) const override;
    // On the outline, the sides in order; a later side wins only when strictly closer.
    // EmptyShape without vertices.
    cc2Vect NearestPoint(const cc2Vect& point) const override;
    void Sample(double maxStep, std::vector<cc2Vect>& points) const override;
    // AreaCenter.
    cc2Vect Centroid() const override { return AreaCenter(); }
    // The vertices in the opposite order, starting with the same first vertex.
    ccShapePtrh Reverse() const override;

    // The inside rule under the fill mode, exactly; false for fewer than 3 vertices or any
    // non-finite vertex.
    bool Within(const cc2Vect& point) const noexcept override;
    // An active-edge scan converter under the fill mode, with the inside rule applied as
    // ccScanEdge applies it. Allocates its edge table (one entry per non-horizontal side);
    // BadGeom for non-finite vertices.
    void ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const override;
    using ccShape::ScanConvert;
    ccPixelBox PixelBounds() const override;

protected:
    ~ccGenPoly() override = default;

private:
    std::vector<cc2Vect> vertices_;
    FillMode fill_ = FillMode::EvenOdd;
};
