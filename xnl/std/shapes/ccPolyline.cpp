#include "xnl/std/shapes/ccPolyline.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <typeinfo>

#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccShapesError.h"

const cc2Vect& ccPolyline::Vertex(size_t index) const {
    if (index >= vertices_.size())
        throw ccShapesError::BadIndex("vertex " + std::to_string(index) + " of " + std::to_string(vertices_.size()));
    return vertices_[index];
}

void ccPolyline::SetVertex(size_t index, const cc2Vect& vertex) {
    Vertex(index);
    vertices_[index] = vertex;
}

void ccPolyline::RequireVertices(const char* operation) const {
    if (vertices_.empty()) throw ccShapesError::EmptyShape(std::string(operation) + " of a polyline without vertices");
}

bool ccPolyline::IsFinite() const noexcept {
    return std::all_of(vertices_.begin(), vertices_.end(),
                       [](const cc2Vect& v) { return std::isfinite(v.X()) && std::isfinite(v.Y()); });
}

bool ccPolyline::Equals(const ccShape& other) const noexcept {
    return typeid(other) == typeid(*this) && static_cast<const ccPolyline&>(other).vertices_ == vertices_;
}

std::string ccPolyline::Description() const {
    std::string text = "ccPolyline(" + std::to_string(vertices_.size()) + " vertices";
    constexpr size_t kShown = 8;
    char point[80];
    for (size_t i = 0; i < std::min(vertices_.size(), kShown); ++i) {
        std::snprintf(point, sizeof point, "%s(%.17g, %.17g)", i == 0 ? ": " : ", ", vertices_[i].X(), vertices_[i].Y());
        text += point;
    }
    if (vertices_.size() > kShown) text += ", ...";
    return text + ")";
}

ccRectPtrh ccPolyline::BoundingBox() const {
    RequireVertices("BoundingBox");
    if (!IsFinite()) throw ccShapesError::InfiniteExtent("BoundingBox of " + Description());
    double left = vertices_[0].X(), right = left, top = vertices_[0].Y(), bottom = top;
    for (const cc2Vect& v : vertices_) {
        left = std::min(left, v.X());
        right = std::max(right, v.X());
        top = std::min(top, v.Y());
        bottom = std::max(bottom, v.Y());
    }
    return ccRectPtrh(new ccRect(left, top, right - left, bottom - top));
}

ccShapePtrh ccPolyline::Map(const cc2XformLinear& xform) const {
    std::vector<cc2Vect> mapped(vertices_.size());
    xform.MapPoints(vertices_.data(), mapped.data(), vertices_.size());
    return ccShapePtrh(new ccPolyline(std::move(mapped)));
}

cc2Vect ccPolyline::NearestPoint(const cc2Vect& point) const {
    RequireVertices("NearestPoint");
    cc2Vect best = vertices_[0];
    double bestDistance = (best - point).LengthSquared();
    for (size_t i = 1; i < vertices_.size(); ++i) {
        const cc2Vect candidate = NearestOnSegment(vertices_[i - 1], vertices_[i], point);
        const double distance = (candidate - point).LengthSquared();
        if (distance < bestDistance) {
            best = candidate;
            bestDistance = distance;
        }
    }
    return best;
}

void ccPolyline::Sample(double maxStep, std::vector<cc2Vect>& points) const {
    if (!(maxStep > 0)) throw ccShapesError::BadParams("Sample step " + std::to_string(maxStep));
    RequireVertices("Sample");
    if (!IsFinite()) throw ccShapesError::BadGeom("Sample of " + Description());
    size_t total = 1;
    for (size_t i = 1; i < vertices_.size(); ++i) {
        const double steps = std::ceil(vertices_[i - 1].Distance(vertices_[i]) / maxStep);
        if (!(steps < static_cast<double>(kMaxSamplePoints))) throw ccShapesError::SampleOverflow(Description());
        total += std::max<size_t>(static_cast<size_t>(steps), 1);
        if (total > kMaxSamplePoints) throw ccShapesError::SampleOverflow(Description());
    }
    points.clear();
    points.reserve(total);
    points.push_back(vertices_[0]);
    for (size_t i = 1; i < vertices_.size(); ++i) {
        const cc2Vect& a = vertices_[i - 1];
        const cc2Vect& b = vertices_[i];
        const size_t steps = std::max<size_t>(static_cast<size_t>(std::ceil(a.Distance(b) / maxStep)), 1);
        for (size_t k = 1; k < steps; ++k) points.push_back(a + (b - a) * (static_cast<double>(k) / steps));
        points.push_back(b);
    }
}

cc2Vect ccPolyline::Centroid() const {
    RequireVertices("Centroid");
    double length = 0, x = 0, y = 0;
    for (size_t i = 1; i < vertices_.size(); ++i) {
        const double side = vertices_[i - 1].Distance(vertices_[i]);
        length += side;
        x += side * (vertices_[i - 1].X() + vertices_[i].X()) / 2;
        y += side * (vertices_[i - 1].Y() + vertices_[i].Y()) / 2;
    }
    return length > 0 ? cc2Vect{x / length, y / length} : vertices_[0];
}

cc2Vect ccPolyline::StartPoint() const {
    RequireVertices("StartPoint");
    return vertices_.front();
}

cc2Vect ccPolyline::EndPoint() const {
    RequireVertices("EndPoint");
    return vertices_.back();
}

double ccPolyline::Length() const noexcept {
    double length = 0;
    for (size_t i = 1; i < vertices_.size(); ++i) length += vertices_[i - 1].Distance(vertices_[i]);
    return length;
}

cc2Vect ccPolyline::PointAt(double arcLength) const {
    RequireVertices("PointAt");
    if (!(arcLength > 0)) return vertices_.front();
    double walked = 0;
    for (size_t i = 1; i < vertices_.size(); ++i) {
        const double side = vertices_[i - 1].Distance(vertices_[i]);
        if (arcLength < walked + side) {
            const double t = (arcLength - walked) / side;
            return vertices_[i - 1] + (vertices_[i] - vertices_[i - 1]) * t;
        }
        walked += side;
    }
    return vertices_.back();
}

cc2Vect ccPolyline::TangentAt(double arcLength) const {
    RequireVertices("TangentAt");
    double walked = 0;
    size_t chosen = 0;  // the side (ending at vertex `chosen`) whose direction answers
    for (size_t i = 1; i < vertices_.size(); ++i) {
        const double side = vertices_[i - 1].Distance(vertices_[i]);
        if (side == 0) continue;
        chosen = i;
        if (arcLength < walked + side) break;
        walked += side;
    }
    if (chosen == 0) throw ccShapesError::NoTangent("TangentAt of a polyline of length 0");
    const cc2Vect direction = vertices_[chosen] - vertices_[chosen - 1];
    return direction / direction.Length();
}

double ccPolyline::StartAngle() const { return TangentAt(0).Angle(); }

double ccPolyline::EndAngle() const { return TangentAt(Length()).Angle(); }

double ccPolyline::ArcLengthOf(const cc2Vect& point) const {
    RequireVertices("ArcLengthOf");
    double walked = 0, best = 0;
    double bestDistance = (vertices_[0] - point).LengthSquared();
    for (size_t i = 1; i < vertices_.size(); ++i) {
        const cc2Vect& a = vertices_[i - 1];
        const cc2Vect& b = vertices_[i];
        const cc2Vect nearest = NearestOnSegment(a, b, point);
        const double distance = (nearest - point).LengthSquared();
        if (distance < bestDistance) {
            bestDistance = distance;
            best = walked + a.Distance(nearest);
        }
        walked += a.Distance(b);
    }
    return best;
}

ccShapePtrh ccPolyline::Reverse() const {
    std::vector<cc2Vect> reversed(vertices_.rbegin(), vertices_.rend());
    return ccShapePtrh(new ccPolyline(std::move(reversed)));
}
