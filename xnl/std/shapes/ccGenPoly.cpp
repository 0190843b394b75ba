#include "xnl/std/shapes/ccGenPoly.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <set>
#include <typeinfo>

#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccInsideRule.h"
#include "xnl/std/shapes/ccPolygonScan.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace {

bool Finite(const cc2Vect& v) noexcept { return std::isfinite(v.X()) && std::isfinite(v.Y()); }

// The vertices with consecutive repeats dropped, the last against the first too.
std::vector<cc2Vect> WithoutRepeats(const std::vector<cc2Vect>& vertices) {
    std::vector<cc2Vect> distinct;
    distinct.reserve(vertices.size());
    for (const cc2Vect& v : vertices)
        if (distinct.empty() || !(distinct.back() == v)) distinct.push_back(v);
    while (distinct.size() > 1 && distinct.back() == distinct.front()) distinct.pop_back();
    return distinct;
}

// Points in the sweep's order: by x, then by y.
bool LexLess(const cc2Vect& a, const cc2Vect& b) noexcept { return a.X() < b.X() || (a.X() == b.X() && a.Y() < b.Y()); }

// Whether q lies on the closed segment a-b, given that the three are collinear.
bool WithinBounds(const cc2Vect& a, const cc2Vect& b, const cc2Vect& q) noexcept {
    return std::min(a.X(), b.X()) <= q.X() && q.X() <= std::max(a.X(), b.X()) && std::min(a.Y(), b.Y()) <= q.Y() &&
           q.Y() <= std::max(a.Y(), b.Y());
}

// Whether the closed segments a-b and c-d share a point, exactly.
bool SegmentsMeet(const cc2Vect& a, const cc2Vect& b, const cc2Vect& c, const cc2Vect& d) noexcept {
    const int o1 = ccInsideRule::Orientation(a, b, c);
    const int o2 = ccInsideRule::Orientation(a, b, d);
    const int o3 = ccInsideRule::Orientation(c, d, a);
    const int o4 = ccInsideRule::Orientation(c, d, b);
    if (o1 * o2 < 0 && o3 * o4 < 0) return true;
    return (o1 == 0 && WithinBounds(a, b, c)) || (o2 == 0 && WithinBounds(a, b, d)) ||
           (o3 == 0 && WithinBounds(c, d, a)) || (o4 == 0 && WithinBounds(c, d, b));
}

// Whether b, between a and c on one line, is passed straight through (not a fold back).
// The signs of the rounded differences are exact, and on a line both products agree.
bool Straight(const cc2Vect& a, const cc2Vect& b, const cc2Vect& c) noexcept {
    return ccInsideRule::Orientation(a, b, c) == 0 && (b - a).Dot(c - b) > 0;
}

// The points that may be corners of the hull: every point except those strictly inside
// the polygon of the extreme points (least x, least y, greatest x, greatest y), which no
// hull corner can be. Decided by the exact orientation test, so the hull is the same; the
// sort that follows has fewer points to order.
std::vector<cc2Vect> HullCandidates(const std::vector<cc2Vect>& vertices) {
    if (vertices.size() < 8) return vertices;
    cc2Vect extremes[4] = {vertices[0], vertices[0], vertices[0], vertices[0]};  // left, low y, right, high y
    for (const cc2Vect& v : vertices) {
        if (v.X() < extremes[0].X()) extremes[0] = v;
        if (v.Y() < extremes[1].Y()) extremes[1] = v;
        if (v.X() > extremes[2].X()) extremes[2] = v;
        if (v.Y() > extremes[3].Y()) extremes[3] = v;
    }
    cc2Vect ring[4];
    int count = 0;
    for (const cc2Vect& e : extremes)
        if (count == 0 || !(ring[count - 1] == e)) ring[count++] = e;
    if (count > 1 && ring[count - 1] == ring[0]) --count;
    if (count < 3) return vertices;
    for (const cc2Vect& e : ring)
        if (!Finite(e)) return vertices;
    // Left, low, right, high turn the positive way; a point strictly left of every side is
    // strictly inside.
    std::vector<cc2Vect> candidates;
    candidates.reserve(vertices.size());
    for (const cc2Vect& v : vertices) {
        bool inside = true;
        for (int k = 0; k < count && inside; ++k)
            inside = ccInsideRule::Orientation(ring[k], ring[(k + 1) % count], v) > 0;
        if (!inside) candidates.push_back(v);
    }
    return candidates;
}

}  // namespace

ccGenPoly::ccGenPoly(std::vector<cc2Vect> vertices, FillMode fill) noexcept : vertices_(std::move(vertices)), fill_(fill) {}

ccGenPoly::ccGenPoly(const cc2Vect* vertices, size_t count, FillMode fill)
    : vertices_(vertices, vertices + count), fill_(fill) {}

const cc2Vect& ccGenPoly::Vertex(size_t index) const {
    if (index >= vertices_.size())
        throw ccShapesError::BadIndex("vertex " + std::to_string(index) + " of " + std::to_string(vertices_.size()));
    return vertices_[index];
}

void ccGenPoly::SetVertex(size_t index, const cc2Vect& vertex) {
    Vertex(index);
    vertices_[index] = vertex;
}

void ccGenPoly::InsertVertex(size_t index, const cc2Vect& vertex) {
    if (index > vertices_.size())
        throw ccShapesError::BadIndex("insert at " + std::to_string(index) + " of " + std::to_string(vertices_.size()));
    vertices_.insert(vertices_.begin() + static_cast<std::ptrdiff_t>(index), vertex);
}

void ccGenPoly::RemoveVertex(size_t index) {
    Vertex(index);
    vertices_.erase(vertices_.begin() + static_cast<std::ptrdiff_t>(index));
}

void ccGenPoly::SetVertices(const cc2Vect* vertices, size_t count) { vertices_.assign(vertices, vertices + count); }

double ccGenPoly::SignedArea() const noexcept {
    const size_t n = vertices_.size();
    if (n < 3) return 0;
    // About the first vertex, so that far polygons lose no digits.
    const cc2Vect origin = vertices_[0];
    double twice = 0;
    cc2Vect previous{0, 0};
    for (size_t i = 1; i < n; ++i) {
        const cc2Vect current = vertices_[i] - origin;
        twice += previous.Cross(current);
        previous = current;
    }
    return twice / 2;
}

double ccGenPoly::Area() const noexcept { return std::fabs(SignedArea()); }

double ccGenPoly::Perimeter() const noexcept {
    const size_t n = vertices_.size();
    if (n < 2) return 0;
    double length = 0;
    for (size_t i = 0; i < n; ++i) length += vertices_[i].Distance(vertices_[i + 1 == n ? 0 : i + 1]);
    return length;
}

ccGenPoly::Moments2 ccGenPoly::AreaMoments2() const noexcept {
    Moments2 m;
    const size_t n = vertices_.size();
    if (n < 3) return m;
    // Green's theorem side by side about the first vertex (local x, y), then moved back.
    const cc2Vect origin = vertices_[0];
    double a = 0, sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0;
    double x0 = 0, y0 = 0;
    for (size_t i = 1; i <= n; ++i) {
        const cc2Vect p = i == n ? origin : vertices_[i];
        const double x1 = p.X() - origin.X(), y1 = p.Y() - origin.Y();
        const double c = x0 * y1 - x1 * y0;
        a += c;
        sx += (x0 + x1) * c;
        sy += (y0 + y1) * c;
        sxx += (x0 * x0 + x0 * x1 + x1 * x1) * c;
        syy += (y0 * y0 + y0 * y1 + y1 * y1) * c;
        sxy += (x0 * y1 + 2 * x0 * y0 + 2 * x1 * y1 + x1 * y0) * c;
        x0 = x1;
        y0 = y1;
    }
    const double sign = a < 0 ? -1.0 : 1.0;
    a *= sign / 2;
    sx *= sign / 6;
    sy *= sign / 6;
    sxx *= sign / 12;
    syy *= sign / 12;
    sxy *= sign / 24;
    const double ox = origin.X(), oy = origin.Y();
    m.sum = a;
    m.sumX = sx + ox * a;
    m.sumY = sy + oy * a;
    m.sumXX = sxx + 2 * ox * sx + ox * ox * a;
    m.sumYY = syy + 2 * oy * sy + oy * oy * a;
    m.sumXY = sxy + ox * sy + oy * sx + ox * oy * a;
    return m;
}

ccGenPoly::Moments1 ccGenPoly::AreaMoments1() const noexcept {
    Moments1 m;
    const size_t n = vertices_.size();
    if (n < 3) return m;
    const cc2Vect origin = vertices_[0];
    double a = 0, sx = 0, sy = 0;
    double x0 = 0, y0 = 0;
    for (size_t i = 1; i <= n; ++i) {
        const cc2Vect p = i == n ? origin : vertices_[i];
        const double x1 = p.X() - origin.X(), y1 = p.Y() - origin.Y();
        const double c = x0 * y1 - x1 * y0;
        a += c;
        sx += (x0 + x1) * c;
        sy += (y0 + y1) * c;
        x0 = x1;
        y0 = y1;
    }
    const double sign = a < 0 ? -1.0 : 1.0;
    m.sum = a * sign / 2;
    m.sumX = sx * sign / 6 + origin.X() * m.sum;
    m.sumY = sy * sign / 6 + origin.Y() * m.sum;
    return m;
}

cc2Vect ccGenPoly::AreaCenter() const {
    const Moments1 m = AreaMoments1();
    if (!(m.sum != 0)) throw ccShapesError::DegenerateShape("AreaCenter of a polygon of area 0");
    return {m.sumX / m.sum, m.sumY / m.sum};
}

ccGenPoly::Moments2 ccGenPoly::ArcMoments2() const noexcept {
    Moments2 m;
    const size_t n = vertices_.size();
    if (n < 2) return m;
    for (size_t i = 0; i < n; ++i) {
        const cc2Vect& p = vertices_[i];
        const cc2Vect& q = vertices_[i + 1 == n ? 0 : i + 1];
        const double length = p.Distance(q);
        const double x0 = p.X(), y0 = p.Y(), x1 = q.X(), y1 = q.Y();
        m.sum += length;
        m.sumX += length * (x0 + x1) / 2;
        m.sumY += length * (y0 + y1) / 2;
        m.sumXX += length * (x0 * x0 + x0 * x1 + x1 * x1) / 3;
        m.sumYY += length * (y0 * y0 + y0 * y1 + y1 * y1) / 3;
        m.sumXY += length * (2 * x0 * y0 + x0 * y1 + x1 * y0 + 2 * x1 * y1) / 6;
    }
    return m;
}

ccGenPoly::Moments1 ccGenPoly::ArcMoments1() const noexcept {
    Moments1 m;
    const size_t n = vertices_.size();
    if (n < 2) return m;
    for (size_t i = 0; i < n; ++i) {
        const cc2Vect& p = vertices_[i];
        const cc2Vect& q = vertices_[i + 1 == n ? 0 : i + 1];
        const double length = p.Distance(q);
        m.sum += length;
        m.sumX += length * (p.X() + q.X()) / 2;
        m.sumY += length * (p.Y() + q.Y()) / 2;
    }
    return m;
}

cc2Vect ccGenPoly::ArcCenter() const {
    const Moments1 m = ArcMoments1();
    if (!(m.sum != 0)) throw ccShapesError::DegenerateShape("ArcCenter of a polygon of perimeter 0");
    return {m.sumX / m.sum, m.sumY / m.sum};
}

cc2Vect ccGenPoly::MeanVertex() const {
    if (vertices_.empty()) throw ccShapesError::DegenerateShape("MeanVertex of a polygon without vertices");
    double x = 0, y = 0;
    for (const cc2Vect& v : vertices_) {
        x += v.X();
        y += v.Y();
    }
    const double n = static_cast<double>(vertices_.size());
    return {x / n, y / n};
}

size_t ccGenPoly::NearestVertex(const cc2Vect& point) const {
    if (vertices_.empty()) throw ccShapesError::DegenerateShape("NearestVertex of a polygon without vertices");
    size_t best = 0;
    double bestDistance = (vertices_[0] - point).LengthSquared();
    for (size_t i = 1; i < vertices_.size(); ++i) {
        const double distance = (vertices_[i] - point).LengthSquared();
        if (distance < bestDistance) {
            best = i;
            bestDistance = distance;
        }
    }
    return best;
}

ccGenPolyPtrh ccGenPoly::ConvexHull() const {
    // Andrew's monotone chain with the exact orientation test: points sorted by x then y,
    // the lower and upper chains keep only strict positive turns.
    if (!IsFinite()) throw ccShapesError::BadGeom("ConvexHull of a polygon with a non-finite vertex");
    std::vector<cc2Vect> points = HullCandidates(vertices_);
    std::sort(points.begin(), points.end(), [](const cc2Vect& l, const cc2Vect& r) {
        return l.X() < r.X() || (l.X() == r.X() && l.Y() < r.Y());
    });
    points.erase(std::unique(points.begin(), points.end()), points.end());
    const size_t n = points.size();
    std::vector<cc2Vect> hull;
    if (n < 3) {
        hull = points;
    } else {
        hull.resize(2 * n);
        size_t k = 0;
        for (size_t i = 0; i < n; ++i) {
            while (k >= 2 && ccInsideRule::Orientation(hull[k - 2], hull[k - 1], points[i]) <= 0) --k;
            hull[k++] = points[i];
        }
        for (size_t i = n - 1, lower = k + 1; i-- > 0;) {
            while (k >= lower && ccInsideRule::Orientation(hull[k - 2], hull[k - 1], points[i]) <= 0) --k;
            hull[k++] = points[i];
        }
        hull.resize(k - 1);  // the last point is the first again
    }
    return ccGenPolyPtrh(new ccGenPoly(std::move(hull), fill_));
}

bool ccGenPoly::IsComplex() const {
    const std::vector<cc2Vect> ring = WithoutRepeats(vertices_);
    const size_t m = ring.size();
    if (m < 3) return false;
    for (const cc2Vect& v : ring)
        if (!Finite(v)) throw ccShapesError::BadGeom("IsComplex of a polygon with a non-finite vertex");
    const auto at = [&](size_t i) -> const cc2Vect& { return ring[i % m]; };
    // Neighbours share a vertex; they overlap when the second folds back along the first.
    for (size_t i = 0; i < m; ++i) {
        const cc2Vect& a = at(i);
        const cc2Vect& b = at(i + 1);
        const cc2Vect& c = at(i + 2);
        if (ccInsideRule::Orientation(a, b, c) == 0 && !((b - a).Dot(c - b) > 0)) return true;
    }
    if (m == 3) return false;

    // A vertex met twice: two sides that are not neighbours touch there.
    {
        std::vector<cc2Vect> sorted(ring);
        std::sort(sorted.begin(), sorted.end(), LexLess);
        if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end()) return true;
    }
    // A sweep over x with the sides it crosses kept in order from low y to high y; two sides
    // are tested whenever they become neighbours in that order, so the first meeting point
    // in the sweep's order is always found (all vertices are distinct from here on).
    struct Side {
        cc2Vect left, right;
    };
    std::vector<Side> sides(m);
    for (size_t i = 0; i < m; ++i) {
        const cc2Vect& a = at(i);
        const cc2Vect& b = at(i + 1);
        sides[i] = LexLess(a, b) ? Side{a, b} : Side{b, a};
    }
    bool touching = false;  // set by the order when a side starts on another one
    const auto below = [&](uint32_t a, uint32_t b) {
        const Side& s = sides[a];
        const Side& t = sides[b];
        if (s.left == t.left) return ccInsideRule::Orientation(t.left, t.right, s.right) < 0;
        if (LexLess(t.left, s.left)) {
            const int o = ccInsideRule::Orientation(t.left, t.right, s.left);
            if (o == 0) touching = true;
            return o < 0 || (o == 0 && a < b);
        }
        const int o = ccInsideRule::Orientation(s.left, s.right, t.left);
        if (o == 0) touching = true;
        return o > 0 || (o == 0 && a < b);
    };
    std::set<uint32_t, decltype(below)> order(below);
    std::vector<typename std::set<uint32_t, decltype(below)>::iterator> where(m, order.end());
    const auto neighbours = [&](size_t i, size_t j) { return (i + 1) % m == j || (j + 1) % m == i; };
    const auto meet = [&](uint32_t i, uint32_t j) {
        return !neighbours(i, j) && SegmentsMeet(sides[i].left, sides[i].right, sides[j].left, sides[j].right);
    };
    std::vector<uint32_t> events(m);  // the vertices in the sweep's order
    for (size_t i = 0; i < m; ++i) events[i] = static_cast<uint32_t>(i);
    std::sort(events.begin(), events.end(), [&](uint32_t l, uint32_t r) { return LexLess(ring[l], ring[r]); });
    for (const uint32_t v : events) {
        const uint32_t incident[2] = {static_cast<uint32_t>((v + m - 1) % m), v};  // the sides into and out of v
        for (const uint32_t s : incident) {
            if (!(sides[s].right == ring[v])) continue;
            auto it = where[s];
            auto next = std::next(it);
            if (it != order.begin() && next != order.end() && meet(*std::prev(it), *next)) return true;
            order.erase(it);
        }
        for (const uint32_t s : incident) {
            if (!(sides[s].left == ring[v])) continue;
            const auto it = order.insert(s).first;
            if (touching) return true;
            where[s] = it;
            if (it != order.begin() && meet(*std::prev(it), s)) return true;
            if (std::next(it) != order.end() && meet(s, *std::next(it))) return true;
        }
    }
    return false;
}

bool ccGenPoly::IsConvex() const noexcept {
    if (!IsFinite()) return false;
    const std::vector<cc2Vect> distinct = WithoutRepeats(vertices_);
    const size_t m = distinct.size();
    if (m < 3) return false;
    std::vector<cc2Vect> corners;
    corners.reserve(m);
    for (size_t i = 0; i < m; ++i)
        if (!Straight(distinct[(i + m - 1) % m], distinct[i], distinct[(i + 1) % m])) corners.push_back(distinct[i]);
    const ccGenPolyPtrh hull = ConvexHull();
    const std::vector<cc2Vect>& h = hull->Vertices();
    const size_t k = h.size();
    if (k < 3 || corners.size() != k) return false;
    const auto start = std::find(corners.begin(), corners.end(), h[0]);
    if (start == corners.end()) return false;
    const size_t s = static_cast<size_t>(start - corners.begin());
    bool forward = true, backward = true;
    for (size_t i = 0; i < k; ++i) {
        forward = forward && corners[(s + i) % k] == h[i];
        backward = backward && corners[(s + k - i) % k] == h[i];
    }
    return forward || backward;
}

bool ccGenPoly::IsFinite() const noexcept {
    return std::all_of(vertices_.begin(), vertices_.end(), Finite);
}

bool ccGenPoly::Equals(const ccShape& other) const noexcept {
    if (typeid(other) != typeid(*this)) return false;
    const auto& poly = static_cast<const ccGenPoly&>(other);
    return fill_ == poly.fill_ && vertices_ == poly.vertices_;
}

std::string ccGenPoly::Description() const {
    std::string text = "ccGenPoly(" + std::string(fill_ == FillMode::EvenOdd ? "even-odd" : "winding") + ", " +
                       std::to_string(vertices_.size()) + " vertices";
    constexpr size_t kShown = 8;
    char point[80];
    for (size_t i = 0; i < std::min(vertices_.size(), kShown); ++i) {
        std::snprintf(point, sizeof point, "%s(%.17g, %.17g)", i == 0 ? ": " : ", ", vertices_[i].X(), vertices_[i].Y());
        text += point;
    }
    if (vertices_.size() > kShown) text += ", ...";
    return text + ")";
}

ccRectPtrh ccGenPoly::BoundingBox() const {
    if (vertices_.empty()) throw ccShapesError::EmptyShape("BoundingBox of a polygon without vertices");
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

ccGenPolyPtrh ccGenPoly::MapPoly(const cc2XformLinear& xform) const {
    if (xform.Determinant() == 0)
        throw ccShapesError::DegenerateShape("Map of a ccGenPoly through a singular transform");
    std::vector<cc2Vect> mapped(vertices_.size());
    xform.MapPoints(vertices_.data(), mapped.data(), vertices_.size());
    return ccGenPolyPtrh(new ccGenPoly(std::move(mapped), fill_));
}

ccShapePtrh ccGenPoly::Map(const cc2XformLinear& xform) const { return MapPoly(xform); }

ccShapePtrh ccGenPoly::Translate(const cc2Vect& offset) const {
    std::vector<cc2Vect> moved(vertices_.size());
    for (size_t i = 0; i < vertices_.size(); ++i) moved[i] = vertices_[i] + offset;
    return ccShapePtrh(new ccGenPoly(std::move(moved), fill_));
}

cc2Vect ccGenPoly::NearestPoint(const cc2Vect& point) const {
    if (vertices_.empty()) throw ccShapesError::EmptyShape("NearestPoint of a polygon without vertices");
    return NearestOnClosedPolygon(vertices_.data(), static_cast<int>(vertices_.size()), point);
}

void ccGenPoly::Sample(double maxStep, std::vector<cc2Vect>& points) const {
    if (vertices_.empty()) throw ccShapesError::EmptyShape("Sample of a polygon without vertices");
    SampleClosedPolygon(vertices_.data(), static_cast<int>(vertices_.size()), maxStep, points);
}

ccShapePtrh ccGenPoly::Reverse() const {
    std::vector<cc2Vect> reversed(vertices_);
    if (reversed.size() > 1) std::reverse(reversed.begin() + 1, reversed.end());
    return ccShapePtrh(new ccGenPoly(std::move(reversed), fill_));
}

bool ccGenPoly::Within(const cc2Vect& point) const noexcept {
    if (vertices_.size() < 3 || !IsFinite()) return false;
    return ccPolygonScan::Within(vertices_.data(), vertices_.size(), fill_ == FillMode::Winding, point);
}

void ccGenPoly::ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const {
    if (!IsFinite()) throw ccShapesError::BadGeom("ScanConvert of " + Description());
    ccPolygonScan::Scan(vertices_.data(), vertices_.size(), fill_ == FillMode::Winding, sink, clip);
}

ccPixelBox ccGenPoly::PixelBounds() const {
    if (vertices_.size() < 3) return {};
    const ccRectPtrh box = BoundingBox();
    ccPixelBox pixels{ccInsideRule::SpanFirst(box->X()), ccInsideRule::FirstRow(box->Y()),
                      ccInsideRule::SpanEnd(box->Right()), ccInsideRule::EndRow(box->Bottom())};
    return pixels.IsEmpty() ? ccPixelBox{} : pixels;
}
