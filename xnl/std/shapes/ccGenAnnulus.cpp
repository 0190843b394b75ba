#include "xnl/std/shapes/ccGenAnnulus.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <string>

#include "xnl/std/base/ccSpanSink.h"
#include "xnl/std/shapes/ccConicScan.h"
#include "xnl/std/shapes/ccEllipseArc2.h"
#include "xnl/std/shapes/ccEllipticIntegral.h"
#include "xnl/std/shapes/ccInsideRule.h"
#include "xnl/std/shapes/ccQvShapesError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccRoundGeometry.h"
#include "xnl/std/shapes/ccShape.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace {

constexpr double kTwoPi = 2 * std::numbers::pi;
constexpr double kPi = std::numbers::pi;
constexpr double kEps = std::numeric_limits<double>::epsilon();
constexpr int32_t kMinIndex = std::numeric_limits<int32_t>::min();
constexpr int32_t kMaxIndex = std::numeric_limits<int32_t>::max();

void TwoDiff(double a, double b, double& diff, double& error) noexcept {
    diff = a - b;
    const double bv = a - diff;
    const double av = diff + bv;
    error = (a - av) + (bv - b);
}

// The open half-plane {d : w x d > 0} (d = p - centre; x the cross product, so the region
// lies at positive angles from w), decided by the inside rule exactly.
struct HalfPlane {
    cc2Vect center;
    double wx = 1, wy = 0;

    bool Within(double x, double y) const noexcept {
        double dx1, dx0, dy1, dy0;
        TwoDiff(x, center.X(), dx1, dx0);
        TwoDiff(y, center.Y(), dy1, dy0);
        ccExactSum f;
        f.AddProduct(wx, dy1);
        f.AddProduct(wx, dy0);
        f.AddProduct(-wy, dx1);
        f.AddProduct(-wy, dx0);
        const int side = f.Sign();
        if (side != 0) return side > 0;
        // On the line: along (e, e^2) f grows by -wy e + wx e^2.
        if (wy != 0) return wy < 0;
        return wx > 0;
    }

    // The pixels of the row inside: [first, end), either end unbounded.
    void RowSpan(int32_t row, int32_t& first, int32_t& end) const noexcept {
        const double cy = ccInsideRule::Centre(row);
        const double dy = cy - center.Y();
        if (wy == 0) {
            const bool inside = Within(center.X(), cy);  // the whole row shares the side
            first = inside ? kMinIndex : 0;
            end = inside ? kMaxIndex : 0;
            return;
        }
        const double xb = center.X() + wx * dy / wy;
        const double tol = 8 * kEps * (std::fabs(center.X()) + std::fabs(xb) + std::fabs(wx * dy / wy)) + 1e-300;
        // Inside to the right of the crossing when wy < 0, to its left otherwise.
        int32_t limit = ccInsideRule::FirstCentreAtOrAfter(xb);
        if (ccInsideRule::Centre(limit) - xb <= tol || xb - (ccInsideRule::Centre(limit) - 1.0) <= tol) {
            int32_t i = ccInsideRule::FirstCentreAtOrAfter(xb - tol);
            const int32_t last = ccInsideRule::FirstCentreAtOrAfter(xb + tol);
            const bool rightInside = wy < 0;
            for (; i < last; ++i) {
                if (Within(ccInsideRule::Centre(i), cy) == rightInside) break;
            }
            limit = i;
        }
        if (wy < 0) {
            first = limit;
            end = kMaxIndex;
        } else {
            first = kMinIndex;
            end = limit;
        }
    }
};

struct Span {
    int32_t first, end;
};

// The geometry a scan or an inside test needs, built once.
struct Section {
    ccConicScan outer, inner;
    HalfPlane h1, h2;
    bool full = false;
    bool convexWedge = true;  // intersection of h1 and h2, else their union
};

Section MakeSection(const ccGenAnnulus& g) {
    Section s;
    const double lo = std::min(1.0, g.RadialScale());
    const double hi = std::max(1.0, g.RadialScale());
    const cc2Vect r = ccRoundGeometry::UnitVector(g.Rotation());
    if (g.RadiusX() == g.RadiusY()) {
        s.outer = ccConicScan::Circle(g.Center(), g.RadiusX() * hi);
        s.inner = ccConicScan::Circle(g.Center(), g.RadiusX() * lo);
    } else {
        s.outer = ccConicScan::Ellipse(g.Center(), g.RadiusX() * hi, g.RadiusY() * hi, r.X(), r.Y());
        s.inner = ccConicScan::Ellipse(g.Center(), g.RadiusX() * lo, g.RadiusY() * lo, r.X(), r.Y());
    }
    s.full = g.IsFullRing();
    if (!s.full) {
        // Counter-clockwise (increasing angle) from a over sweep in (0, 2 pi).
        double a = g.AngleStart();
        double sweep = g.AngleSpan();
        if (sweep < 0) {
            a += sweep;
            sweep = -sweep;
        }
        const cc2Vect ua = ccRoundGeometry::UnitVector(a);
        const cc2Vect ub = ccRoundGeometry::UnitVector(a + sweep);
        auto direction = [&](const cc2Vect& unit) {
            const double lx = g.RadiusX() * unit.X();
            const double ly = g.RadiusY() * unit.Y();
            return cc2Vect(r.X() * lx - r.Y() * ly, r.Y() * lx + r.X() * ly);
        };
        const cc2Vect u = direction(ua);
        const cc2Vect v = direction(ub);
        s.h1 = HalfPlane{g.Center(), u.X(), u.Y()};
        s.h2 = HalfPlane{g.Center(), -v.X(), -v.Y()};
        s.convexWedge = sweep <= kPi;
    }
    return s;
}

}  // namespace

ccGenAnnulus::ccGenAnnulus(const cc2Vect& center, double radiusX, double radiusY, double rotation, double angleStart,
                           double angleSpan, double radialScale) noexcept
    : center_(center),
      radiusX_(radiusX),
      radiusY_(radiusY),
      rotation_(rotation),
      angleStart_(angleStart),
      angleSpan_(angleSpan),
      radialScale_(radialScale) {}

void ccGenAnnulus::ValidateRadialScale(double radialScale) {
    if (!(radialScale > 0) || radialScale == 1.0)
        throw ccQvShapesError::InvalidRadialScale("RadialScale " + std::to_string(radialScale));
}

bool ccGenAnnulus::IsFullRing() const noexcept { return std::fabs(angleSpan_) >= kTwoPi; }

bool ccGenAnnulus::IsFinite() const noexcept {
    return std::isfinite(center_.X()) && std::isfinite(center_.Y()) && std::isfinite(radiusX_) &&
           std::isfinite(radiusY_) && std::isfinite(rotation_) && std::isfinite(angleStart_) &&
           std::isfinite(angleSpan_) && std::isfinite(radialScale_) && std::isfinite(radiusX_ * radialScale_) &&
           std::isfinite(radiusY_ * radialScale_);
}

double ccGenAnnulus::Area() const noexcept {
    const double sweep = std::min(std::fabs(angleSpan_), kTwoPi);
    return 0.5 * sweep * radiusX_ * radiusY_ * std::fabs(radialScale_ * radialScale_ - 1.0);
}

double ccGenAnnulus::Perimeter() const {
    const double sum = 1.0 + radialScale_;
    if (IsFullRing()) return sum * ccEllipticIntegral::Perimeter(radiusX_, radiusY_);
    const double arc = std::fabs(ccEllipticIntegral::ArcLength(radiusX_, radiusY_, angleStart_, angleStart_ + angleSpan_));
    const double gap = std::fabs(radialScale_ - 1.0);
    const double ends = std::hypot(radiusX_ * std::cos(angleStart_), radiusY_ * std::sin(angleStart_)) +
                        std::hypot(radiusX_ * std::cos(angleStart_ + angleSpan_), radiusY_ * std::sin(angleStart_ + angleSpan_));
    return sum * arc + gap * ends;
}

cc2Vect ccGenAnnulus::InnerOrOuterPoint(double scale, double angle) const noexcept {
    const cc2Vect r = ccRoundGeometry::UnitVector(rotation_);
    const double lx = scale * radiusX_ * std::cos(angle);
    const double ly = scale * radiusY_ * std::sin(angle);
    return {center_.X() + r.X() * lx - r.Y() * ly, center_.Y() + r.Y() * lx + r.X() * ly};
}

bool ccGenAnnulus::Within(const cc2Vect& point) const {
    if (!IsFinite()) throw ccShapesError::BadGeom("Within of an annulus section that is not finite");
    const Section s = MakeSection(*this);
    if (!s.outer.Within(point.X(), point.Y()) || s.inner.Within(point.X(), point.Y())) return false;
    if (s.full) return true;
    const bool in1 = s.h1.Within(point.X(), point.Y());
    const bool in2 = s.h2.Within(point.X(), point.Y());
    return s.convexWedge ? (in1 && in2) : (in1 || in2);
}

cc2Vect ccGenAnnulus::NearestPoint(const cc2Vect& point) const {
    const double hi = std::max(1.0, radialScale_);
    const double lo = std::min(1.0, radialScale_);
    const double span = IsFullRing() ? kTwoPi : angleSpan_;
    cc2Vect best;
    double bestDistance = std::numeric_limits<double>::infinity();
    auto consider = [&](const cc2Vect& p) {
        const double d = p.Distance(point);
        if (d < bestDistance) {
            bestDistance = d;
            best = p;
        }
    };
    for (double scale : {lo, hi}) {
        ccEllipseArc2Ptrh arc(
            new ccEllipseArc2(center_, radiusX_ * scale, radiusY_ * scale, rotation_, angleStart_, span));
        consider(arc->NearestPoint(point));
    }
    if (!IsFullRing()) {
        for (double angle : {angleStart_, angleStart_ + angleSpan_}) {
            const cc2Vect a = InnerOrOuterPoint(lo, angle);
            const cc2Vect b = InnerOrOuterPoint(hi, angle);
            const cc2Vect ab = b - a;
            const double len2 = ab.X() * ab.X() + ab.Y() * ab.Y();
            double t = len2 > 0 ? ((point.X() - a.X()) * ab.X() + (point.Y() - a.Y()) * ab.Y()) / len2 : 0;
            t = std::clamp(t, 0.0, 1.0);
            consider(a + ab * t);
        }
    }
    return best;
}

void ccGenAnnulus::Sample(double maxStep, std::vector<cc2Vect>& points) const {
    if (!(maxStep > 0)) throw ccShapesError::BadParams("Sample: the step must be greater than 0");
    if (!IsFinite()) throw ccShapesError::BadGeom("Sample of an annulus section that is not finite");
    const double span = IsFullRing() ? kTwoPi : angleSpan_;
    const double dt = ccRoundGeometry::AngleStep(radiusX_ * std::max(1.0, radialScale_),
                                                 radiusY_ * std::max(1.0, radialScale_), maxStep);
    const double arcSteps = std::max(1.0, std::ceil(std::fabs(span) / dt));
    const double gap = std::fabs(radialScale_ - 1.0) * std::max(radiusX_, radiusY_);
    const double radialSteps = IsFullRing() ? 0.0 : std::max(1.0, std::ceil(gap / maxStep));
    const double total = 2 * arcSteps + 2 * radialSteps + 3;
    if (!(total <= static_cast<double>(ccShape::kMaxSamplePoints)))
        throw ccShapesError::SampleOverflow("Sample: " + std::to_string(total) + " points");
    const auto n = static_cast<size_t>(arcSteps);
    const auto m = static_cast<size_t>(radialSteps);
    points.clear();
    points.reserve(static_cast<size_t>(total));
    // The start arc forwards.
    for (size_t k = 0; k < n; ++k) points.push_back(InnerOrOuterPoint(1.0, angleStart_ + span * (double(k) / n)));
    if (IsFullRing()) {
        points.push_back(InnerOrOuterPoint(1.0, angleStart_));
        for (size_t k = 0; k < n; ++k)
            points.push_back(InnerOrOuterPoint(radialScale_, angleStart_ + span * (double(k) / n)));
        points.push_back(InnerOrOuterPoint(radialScale_, angleStart_));
        return;
    }
    const double end = angleStart_ + span;
    // The radial side at the end, the end arc backwards, the radial side home.
    for (size_t k = 0; k < m; ++k) points.push_back(InnerOrOuterPoint(1.0 + (radialScale_ - 1.0) * (double(k) / m), end));
    for (size_t k = 0; k < n; ++k) points.push_back(InnerOrOuterPoint(radialScale_, end - span * (double(k) / n)));
    for (size_t k = 0; k < m; ++k)
        points.push_back(InnerOrOuterPoint(radialScale_ + (1.0 - radialScale_) * (double(k) / m), angleStart_));
    points.push_back(points.front());
}

void ccGenAnnulus::Bounds(double& x0, double& y0, double& x1, double& y1) const noexcept {
    const double hi = std::max(1.0, radialScale_);
    const double lo = std::min(1.0, radialScale_);
    const cc2Vect r = ccRoundGeometry::UnitVector(rotation_);
    const double hx = hi * std::hypot(radiusX_ * r.X(), radiusY_ * r.Y());
    const double hy = hi * std::hypot(radiusX_ * r.Y(), radiusY_ * r.X());
    if (IsFullRing()) {
        x0 = center_.X() - hx;
        x1 = center_.X() + hx;
        y0 = center_.Y() - hy;
        y1 = center_.Y() + hy;
        return;
    }
    // The corners, and the outer arc's extremes that lie on the wedge.
    x0 = y0 = std::numeric_limits<double>::infinity();
    x1 = y1 = -std::numeric_limits<double>::infinity();
    auto take = [&](const cc2Vect& p) {
        x0 = std::min(x0, p.X());
        x1 = std::max(x1, p.X());
        y0 = std::min(y0, p.Y());
        y1 = std::max(y1, p.Y());
    };
    for (double scale : {lo, hi}) {
        take(InnerOrOuterPoint(scale, angleStart_));
        take(InnerOrOuterPoint(scale, angleStart_ + angleSpan_));
    }
    const double tx = std::atan2(-radiusY_ * r.Y(), radiusX_ * r.X());
    const double ty = std::atan2(radiusY_ * r.X(), radiusX_ * r.Y());
    for (double t : {tx, tx + kPi, ty, ty + kPi}) {
        double offset = std::fmod((t - angleStart_) * (angleSpan_ > 0 ? 1 : -1), kTwoPi);
        if (offset < 0) offset += kTwoPi;
        if (offset <= std::fabs(angleSpan_)) take(InnerOrOuterPoint(hi, t));
    }
}

ccPixelBox ccGenAnnulus::PixelBounds() const {
    if (!IsFinite()) throw ccShapesError::BadGeom("PixelBounds of an annulus section that is not finite");
    double x0, y0, x1, y1;
    Bounds(x0, y0, x1, y1);
    // Widened by the rounding of the box itself; every emitted centre lies in it.
    const double mx = 8 * kEps * (std::fabs(x0) + std::fabs(x1)) + 1e-300;
    const double my = 8 * kEps * (std::fabs(y0) + std::fabs(y1)) + 1e-300;
    const ccPixelBox box{ccInsideRule::FirstCentreAtOrAfter(x0 - mx), ccInsideRule::FirstCentreAtOrAfter(y0 - my),
                         ccInsideRule::FirstCentreAtOrAfter(x1 + mx) + 1,
                         ccInsideRule::FirstCentreAtOrAfter(y1 + my) + 1};
    return box.Intersect(MakeSection(*this).outer.Bounds());
}

void ccGenAnnulus::ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const {
    if (!IsFinite()) throw ccShapesError::BadGeom("ScanConvert of an annulus section that is not finite");
    const Section s = MakeSection(*this);
    const ccPixelBox box = clip.Intersect(PixelBounds());
    if (box.IsEmpty()) return;
    for (int32_t row = box.y0; row < box.y1; ++row) {
        Span ring[2];
        int rings = 0;
        int32_t o0, o1, i0, i1;
        s.outer.RowSpan(row, o0, o1);
        o0 = std::max(o0, box.x0);
        o1 = std::min(o1, box.x1);
        if (o0 >= o1) continue;
        s.inner.RowSpan(row, i0, i1);
        if (i0 >= i1) {
            ring[rings++] = {o0, o1};
        } else {
            if (o0 < std::min(i0, o1)) ring[rings++] = {o0, std::min(i0, o1)};
            if (std::max(i1, o0) < o1) ring[rings++] = {std::max(i1, o0), o1};
        }
        if (s.full) {
            for (int k = 0; k < rings; ++k) sink.blitH(ring[k].first, row, ring[k].end - ring[k].first);
            continue;
        }
        Span wedge[2];
        int wedges = 0;
        int32_t a0, a1, b0, b1;
        s.h1.RowSpan(row, a0, a1);
        s.h2.RowSpan(row, b0, b1);
        if (s.convexWedge) {
            const int32_t w0 = std::max(a0, b0), w1 = std::min(a1, b1);
            if (w0 < w1) wedge[wedges++] = {w0, w1};
        } else {
            // The union of two half-lines (or of all and nothing), merged when they meet.
            Span parts[2] = {{a0, a1}, {b0, b1}};
            if (parts[1].first < parts[0].first) std::swap(parts[0], parts[1]);
            for (const Span& part : parts) {
                if (part.first >= part.end) continue;
                if (wedges > 0 && part.first <= wedge[wedges - 1].end) {
                    wedge[wedges - 1].end = std::max(wedge[wedges - 1].end, part.end);
                } else {
                    wedge[wedges++] = part;
                }
            }
        }
        // Ring pieces and wedge pieces are each sorted and apart; their intersections come
        // out sorted, and pieces that touch are joined before they go to the sink.
        int32_t pendingFirst = 0, pendingEnd = 0;
        bool pending = false;
        for (int k = 0; k < rings; ++k) {
            for (int w = 0; w < wedges; ++w) {
                const int32_t f = std::max(ring[k].first, wedge[w].first);
                const int32_t e = std::min(ring[k].end, wedge[w].end);
                if (f >= e) continue;
                if (pending && f <= pendingEnd) {
                    pendingEnd = std::max(pendingEnd, e);
                } else {
                    if (pending) sink.blitH(pendingFirst, row, pendingEnd - pendingFirst);
                    pendingFirst = f;
                    pendingEnd = e;
                    pending = true;
                }
            }
        }
        if (pending) sink.blitH(pendingFirst, row, pendingEnd - pendingFirst);
    }
}
