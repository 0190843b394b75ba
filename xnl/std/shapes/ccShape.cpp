#include "xnl/std/shapes/ccShape.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace {

// What a base error tells: which operation on which kind of shape.
std::string OperationOn(const ccShape& shape, const char* operation) {
    return std::string(operation) + " on a " + shape.TypeName();
}

}  // namespace

bool ccShape::IsOpenContour() const noexcept { return false; }
bool ccShape::IsEmpty() const noexcept { return false; }
bool ccShape::IsConvex() const noexcept { return false; }
bool ccShape::IsReversible() const noexcept { return false; }

ccShapePtrh ccShape::Translate(const cc2Vect& offset) const {
    return Map(cc2XformLinear(1.0, 0.0, 0.0, 1.0, offset.X(), offset.Y()));
}

double ccShape::DistanceToPoint(const cc2Vect& point) const { return point.Distance(NearestPoint(point)); }

void ccShape::Sample(double, std::vector<cc2Vect>&) const {
    throw ccShapesError::NotImplemented(OperationOn(*this, "Sample"));
}
cc2Vect ccShape::Centroid() const { throw ccShapesError::NotImplemented(OperationOn(*this, "Centroid")); }

bool ccShape::Within(const cc2Vect&) const { throw ccShapesError::NotRegion(OperationOn(*this, "Within")); }
double ccShape::Area() const { throw ccShapesError::NotRegion(OperationOn(*this, "Area")); }
double ccShape::Perimeter() const { throw ccShapesError::NotRegion(OperationOn(*this, "Perimeter")); }
void ccShape::ScanConvert(ccSpanSink&, const ccPixelBox&) const {
    throw ccShapesError::NotRegion(OperationOn(*this, "ScanConvert"));
}
ccPixelBox ccShape::PixelBounds() const { throw ccShapesError::NotRegion(OperationOn(*this, "PixelBounds")); }

cc2Vect ccShape::StartPoint() const { throw ccShapesError::NotOpenContour(OperationOn(*this, "StartPoint")); }
cc2Vect ccShape::EndPoint() const { throw ccShapesError::NotOpenContour(OperationOn(*this, "EndPoint")); }
double ccShape::Length() const { throw ccShapesError::NotOpenContour(OperationOn(*this, "Length")); }
cc2Vect ccShape::PointAt(double) const { throw ccShapesError::NotOpenContour(OperationOn(*this, "PointAt")); }
cc2Vect ccShape::TangentAt(double) const { throw ccShapesError::NotOpenContour(OperationOn(*this, "TangentAt")); }
double ccShape::StartAngle() const { throw ccShapesError::NotOpenContour(OperationOn(*this, "StartAngle")); }
double ccShape::EndAngle() const { throw ccShapesError::NotOpenContour(OperationOn(*this, "EndAngle")); }
double ccShape::ArcLengthOf(const cc2Vect&) const {
    throw ccShapesError::NotOpenContour(OperationOn(*this, "ArcLengthOf"));
}

ccShapePtrh ccShape::Reverse() const { throw ccShapesError::NotReversible(OperationOn(*this, "Reverse")); }

void ccShape::ScanConvert(ccSpanSink& sink) const { ScanConvert(sink, ccPixelBox::Everything()); }

void ccShape::SampleClosedPolygon(const cc2Vect* corners, int count, double maxStep, std::vector<cc2Vect>& points) {
    if (!(maxStep > 0)) throw ccShapesError::BadParams("Sample: the step must be greater than 0");
    // Counted in doubles first, so that a huge outline or a tiny step cannot overflow.
    double total = 1;
    for (int i = 0; i < count; ++i) {
        const cc2Vect& a = corners[i];
        const cc2Vect& b = corners[(i + 1) % count];
        if (!std::isfinite(a.X()) || !std::isfinite(a.Y())) throw ccShapesError::BadGeom("Sample: a corner is not finite");
        total += std::max(1.0, std::ceil(a.Distance(b) / maxStep));
    }
    if (!(total <= static_cast<double>(kMaxSamplePoints)))
        throw ccShapesError::SampleOverflow("Sample: " + std::to_string(total) + " points");
    points.clear();
    points.reserve(static_cast<size_t>(total));
    for (int i = 0; i < count; ++i) {
        const cc2Vect& a = corners[i];
        const cc2Vect& b = corners[(i + 1) % count];
        const auto steps = static_cast<size_t>(std::max(1.0, std::ceil(a.Distance(b) / maxStep)));
        const cc2Vect side = b - a;
        for (size_t k = 0; k < steps; ++k) points.push_back(a + side * (static_cast<double>(k) / steps));
    }
    points.push_back(corners[0]);
}

cc2Vect ccShape::NearestOnSegment(const cc2Vect& a, const cc2Vect& b, const cc2Vect& point) noexcept {
    const cc2Vect side = b - a;
    const double lengthSquared = side.LengthSquared();
    if (!(lengthSquared > 0)) return a;
    const double t = (point - a).Dot(side) / lengthSquared;
    if (t <= 0) return a;
    if (t >= 1) return b;
    return a + side * t;
}

cc2Vect ccShape::NearestOnClosedPolygon(const cc2Vect* corners, int count, const cc2Vect& point) noexcept {
    cc2Vect best = corners[0];
    double bestDistance = std::numeric_limits<double>::infinity();
    for (int i = 0; i < count; ++i) {
        const cc2Vect candidate = NearestOnSegment(corners[i], corners[(i + 1) % count], point);
        const double distance = (candidate - point).LengthSquared();
        if (distance < bestDistance) {
            best = candidate;
            bestDistance = distance;
        }
    }
    return best;
}
