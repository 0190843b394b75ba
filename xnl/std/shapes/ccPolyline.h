// An open chain of vertices: a contour that runs from the first vertex through each one to
// the last, with two ends. Arc length is measured from the first vertex along the sides.
//
// Open-contour operations need at least one vertex (EmptyShape otherwise); a chain of one
// vertex, or one whose vertices all coincide, has length 0 and no tangent (NoTangent).
// Arc lengths outside [0, Length] are clamped to the ends.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "xnl/std/shapes/ccShape.h"

class ccPolyline;
using ccPolylinePtrh = ccPtrHandle<ccPolyline>;
using ccPolylinePtrh_const = ccPtrHandle_const<ccPolyline>;

class ccPolyline : public ccShape {
public:
    ccPolyline() noexcept = default;
    explicit ccPolyline(std::vector<cc2Vect> vertices) noexcept : vertices_(std::move(vertices)) {}
    ccPolyline(const ccPolyline&) = default;
    ccPolyline& operator=(const ccPolyline&) = default;

    size_t NumVertices() const noexcept { return vertices_.size(); }
    const std::vector<cc2Vect>& Vertices() const noexcept { return vertices_; }
    // BadIndex unless index < NumVertices.
    const cc2Vect& Vertex(size_t index) const;
    void SetVertex(size_t index, const cc2Vect& vertex);
    void AddVertex(const cc2Vect& vertex) { vertices_.push_back(vertex); }
    void SetVertices(std::vector<cc2Vect> vertices) noexcept { vertices_ = std::move(vertices); }

    // ccShape
    ccPolyline* Clone() const override { return new ccPolyline(*this); }
    const char* TypeName() const noexcept override { return "ccPolyline"; }
    bool IsRegion() const noexcept override { return false; }
    bool IsOpenContour() const noexcept override { return true; }
    bool IsEmpty() const noexcept override { return vertices_.empty(); }
    bool IsFinite() const noexcept override;
    bool IsReversible() const noexcept override { return true; }
    bool Equals(const ccShape& other) const noexcept override;
    std::string Description() const override;

    ccRectPtrh BoundingBox() const override;          // EmptyShape without vertices
    ccShapePtrh Map(const cc2XformLinear& xform) const override;  // any transform, singular too
    cc2Vect NearestPoint(const cc2Vect& point) const override;   // EmptyShape without vertices
    // From the first vertex to the last, each side in equal steps of at most maxStep.
    void Sample(double maxStep, std::vector<cc2Vect>& points) const override;
    // The centre of mass of the chain (by length); the first vertex when the length is 0.
    cc2Vect Centroid() const override;

    cc2Vect StartPoint() const override;
    cc2Vect EndPoint() const override;
    double Length() const noexcept override;
    cc2Vect PointAt(double arcLength) const override;
    // The direction of the side at that arc length (the later side at a vertex, the last
    // side at the end); zero-length sides are passed over.
    cc2Vect TangentAt(double arcLength) const override;
    double StartAngle() const override;
    double EndAngle() const override;
    double ArcLengthOf(const cc2Vect& point) const override;
    ccShapePtrh Reverse() const override;

protected:
    ~ccPolyline() override = default;

private:
    void RequireVertices(const char* operation) const;
    std::vector<cc2Vect> vertices_;
};
