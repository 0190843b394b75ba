#include "xnl/std/shapes/ccRoundGeometry.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "xnl/std/math/cc2XformLinear.h"

namespace {
constexpr double kPi = std::numbers::pi;
constexpr double kHalfPi = std::numbers::pi / 2;
}  // namespace

cc2Vect ccRoundGeometry::UnitVector(double angle) noexcept {
    const double a = cc2XformLinear::NormalizeAngle(angle);
    if (a == 0) return {1.0, 0.0};
    if (a == kHalfPi) return {0.0, 1.0};
    if (a == -kHalfPi) return {0.0, -1.0};
    if (a == -kPi) return {-1.0, 0.0};
    return {std::cos(a), std::sin(a)};
}

ccRoundGeometry::Decomposition ccRoundGeometry::Decompose(double m00, double m01, double m10, double m11) noexcept {
    // M = R(phi) diag(q + r, q - r) R(theta) with
    // q = |(e, h)|, r = |(f, g)|, e = (m00 + m11)/2, f = (m00 - m11)/2, g = (m10 + m01)/2,
    // h = (m10 - m01)/2, phi = (atan2(h, e) + atan2(g, f))/2, theta = (atan2(h, e) - atan2(g, f))/2.
    const double e = 0.5 * (m00 + m11);
    const double f = 0.5 * (m00 - m11);
    const double g = 0.5 * (m10 + m01);
    const double h = 0.5 * (m10 - m01);
    const double q = std::hypot(e, h);
    const double r = std::hypot(f, g);
    const double a1 = std::atan2(g, f);
    const double a2 = std::atan2(h, e);
    Decomposition d;
    d.radiusX = q + r;
    const double sy = q - r;
    d.radiusY = std::fabs(sy);
    d.mirrored = sy < 0;
    d.rotation = cc2XformLinear::NormalizeAngle(0.5 * (a2 + a1));
    d.angleOffset = 0.5 * (a2 - a1);
    // Normalising the rotation moves it by a multiple of 2 pi (or by rounding only): the
    // same axes, so the angle offset stands.
    return d;
}

double ccRoundGeometry::NearestAngle(double a, double b, const cc2Vect& local) noexcept {
    // In the first quadrant with the reflections undone at the end; the normal through
    // the point is found by bisection on t of
    // F(s) = (a x / (s + a^2))^2 + (b y / (s + b^2))^2 - 1 (robust for every point).
    const double x = std::fabs(local.X());
    const double y = std::fabs(local.Y());
    double px, py;
    if (y == 0 && x == 0) {
        // The centre: the nearest points are the ends of the minor axis.
        px = a <= b ? a : 0;
        py = a <= b ? 0 : b;
    } else {
        const double a2 = a * a, b2 = b * b;
        double lo = -std::min(a2, b2);
        double hi = std::hypot(a * x, b * y);  // F(hi) <= 0
        // Where a coordinate is 0 the bisection's lower end is the other axis's value.
        if (y == 0 && a > b) {
            // On the major axis (x) inside the evolute, the nearest points leave the axis.
            const double xc = (a2 - b2) / a;
            if (x < xc) {
                const double cx = a2 * x / (a2 - b2);
                return std::atan2(std::sqrt(std::max(0.0, 1 - (cx / a) * (cx / a))) * (local.Y() < 0 ? -1 : 1),
                                  cx / a * (local.X() < 0 ? -1 : 1));
            }
            lo = -a2;
            hi = std::max(hi, 0.0);
        } else if (x == 0 && b > a) {
            const double yc = (b2 - a2) / b;
            if (y < yc) {
                const double cy = b2 * y / (b2 - a2);
                return std::atan2(cy / b * (local.Y() < 0 ? -1 : 1),
                                  std::sqrt(std::max(0.0, 1 - (cy / b) * (cy / b))) * (local.X() < 0 ? -1 : 1));
            }
            lo = -b2;
        } else {
            lo = -std::min(a2, b2);
        }
        for (int i = 0; i < 200; ++i) {
            const double s = 0.5 * (lo + hi);
            if (s == lo || s == hi) break;
            const double u = a * x / (s + a2);
            const double v = b * y / (s + b2);
            const double fvalue = u * u + v * v - 1;
            if (fvalue > 0) lo = s;
            else hi = s;
        }
        const double s = 0.5 * (lo + hi);
        px = a2 * x / (s + a2);
        py = b2 * y / (s + b2);
        if (!std::isfinite(px)) px = x >= a ? a : x;
        if (!std::isfinite(py)) py = y >= b ? b : y;
    }
    const double c = std::clamp(px / a, -1.0, 1.0);
    const double sn = std::clamp(py / b, -1.0, 1.0);
    return std::atan2(local.Y() < 0 ? -sn : sn, local.X() < 0 ? -c : c);
}

double ccRoundGeometry::AngleStep(double radiusX, double radiusY, double maxStep) noexcept {
    // The chord is at most the arc, and the arc of an angle step dt at most max(r) dt.
    return maxStep / std::max(radiusX, radiusY);
}
