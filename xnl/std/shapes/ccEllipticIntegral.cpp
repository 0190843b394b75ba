#include "xnl/std/shapes/ccEllipticIntegral.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kHalfPi = std::numbers::pi / 2;

// (3 * 2^-53)^(-1/6) rounded up: once the spread of the arguments times this lies below
// their mean, the fifth-order series is exact to the last bit.
constexpr double kDuplicationBound = 410.0;

// The speed of (a cos t, b sin t).
double Speed(double a, double b, double t) noexcept { return std::hypot(a * std::sin(t), b * std::cos(t)); }

// The integral of sqrt(b^2 cos^2 u + a^2 sin^2 u) from 0 to phi, |phi| <= pi/2, for
// a >= b. With m = 1 - (a/b)^2 <= 0 it is b (s R_F(c^2, 1 - m s^2, 1) - m/3 s^3 R_D(...)),
// and both terms have the sign of s: nothing cancels.
double FromMinorEnd(double a, double b, double phi) noexcept {
    const double s = std::sin(phi);
    const double c = std::cos(phi);
    const double ratio = a / b;
    const double c2 = c * c;
    const double y = c2 + ratio * ratio * s * s;
    const double minusM = (ratio - 1.0) * (ratio + 1.0);
    return b * (s * ccEllipticIntegral::CarlsonRF(c2, y, 1.0) +
                minusM / 3.0 * s * s * s * ccEllipticIntegral::CarlsonRD(c2, y, 1.0));
}

// G(t): the integral of the speed from the reference angle, where the speed is least
// (0 when a >= b, pi/2 otherwise), to t; G(t + pi) = G(t) + 2 Q.
double FromReference(double major, double minor, double t, double quarter) noexcept {
    const double turns = std::nearbyint(t / kPi);
    double r = t - turns * kPi;
    r = std::clamp(r, -kHalfPi, kHalfPi);
    return 2.0 * quarter * turns + FromMinorEnd(major, minor, r);
}

// Gauss-Legendre, 10 points on [-1, 1].
constexpr double kNodes[5] = {0.1488743389816312108848260, 0.4333953941292471907992659, 0.6794095682990244062343274,
                              0.8650633666889845107320967, 0.9739065285171717200779640};
constexpr double kWeights[5] = {0.2955242247147528701738930, 0.2692667193099963550912269,
                                 0.2190863625159820439955349, 0.1494513491505805931457763,
                                 0.0666713443086881375935688};

double GaussLegendre(double a, double b, double t0, double t1) noexcept {
    const double mid = 0.5 * (t0 + t1);
    const double half = 0.5 * (t1 - t0);
    double sum = 0;
    for (int i = 0; i < 5; ++i) {
        sum += kWeights[i] * (Speed(a, b, mid - half * kNodes[i]) + Speed(a, b, mid + half * kNodes[i]));
    }
    return sum * half;
}

// For short arcs whose ends lie far from the reference angle, where the difference of two
// G values would cancel: adaptive Gauss-Legendre. The speed is analytic with its nearest
// singularities at distance ~ asinh(minor / major) from the real axis at the reference
// angles, so the recursion stops after a few levels.
double Adaptive(double a, double b, double t0, double t1, double whole, int depth) noexcept {
    const double mid = 0.5 * (t0 + t1);
    const double left = GaussLegendre(a, b, t0, mid);
    const double right = GaussLegendre(a, b, mid, t1);
    if (depth >= 40 || std::fabs(left + right - whole) <= 1e-15 * std::fabs(left + right)) return left + right;
    return Adaptive(a, b, t0, mid, left, depth + 1) + Adaptive(a, b, mid, t1, right, depth + 1);
}

}  // namespace

double ccEllipticIntegral::CarlsonRF(double x, double y, double z) noexcept {
    double a = (x + y + z) / 3.0;
    const double a0 = a;
    double q = kDuplicationBound * std::max({std::fabs(a - x), std::fabs(a - y), std::fabs(a - z)});
    double xn = x, yn = y, zn = z;
    double scale = 1.0;  // 4^-n
    while (q * scale >= std::fabs(a) && scale > 1e-300) {
        const double sx = std::sqrt(xn), sy = std::sqrt(yn), sz = std::sqrt(zn);
        const double lambda = sx * (sy + sz) + sy * sz;
        xn = 0.25 * (xn + lambda);
        yn = 0.25 * (yn + lambda);
        zn = 0.25 * (zn + lambda);
        a = 0.25 * (a + lambda);
        scale *= 0.25;
    }
    const double dx = (a0 - x) * scale / a;
    const double dy = (a0 - y) * scale / a;
    const double dz = -(dx + dy);
    const double e2 = dx * dy - dz * dz;
    const double e3 = dx * dy * dz;
    return (1.0 - e2 / 10.0 + e3 / 14.0 + e2 * e2 / 24.0 - 3.0 * e2 * e3 / 44.0) / std::sqrt(a);
}

double ccEllipticIntegral::CarlsonRD(double x, double y, double z) noexcept {
    double a = (x + y + 3.0 * z) / 5.0;
    const double a0 = a;
    double q = kDuplicationBound * std::max({std::fabs(a - x), std::fabs(a - y), std::fabs(a - z)});
    double xn = x, yn = y, zn = z;
    double scale = 1.0;
    double sum = 0.0;
    while (q * scale >= std::fabs(a) && scale > 1e-300) {
        const double sx = std::sqrt(xn), sy = std::sqrt(yn), sz = std::sqrt(zn);
        const double lambda = sx * (sy + sz) + sy * sz;
        sum += scale / (sz * (zn + lambda));
        xn = 0.25 * (xn + lambda);
        yn = 0.25 * (yn + lambda);
        zn = 0.25 * (zn + lambda);
        a = 0.25 * (a + lambda);
        scale *= 0.25;
    }
    const double dx = (a0 - x) * scale / a;
    const double dy = (a0 - y) * scale / a;
    const double dz = -(dx + dy) / 3.0;
    const double xy = dx * dy;
    const double z2 = dz * dz;
    const double e2 = xy - 6.0 * z2;
    const double e3 = (3.0 * xy - 8.0 * z2) * dz;
    const double e4 = 3.0 * (xy - z2) * z2;
    const double e5 = xy * z2 * dz;
    const double series = 1.0 - 3.0 * e2 / 14.0 + e3 / 6.0 + 9.0 * e2 * e2 / 88.0 - 3.0 * e4 / 22.0 -
                          9.0 * e2 * e3 / 52.0 + 3.0 * e5 / 26.0;
    return scale * series / (a * std::sqrt(a)) + 3.0 * sum;
}

double ccEllipticIntegral::QuarterLength(double a, double b) noexcept {
    return FromMinorEnd(std::max(a, b), std::min(a, b), kHalfPi);
}

double ccEllipticIntegral::ArcLength(double a, double b, double t0, double t1) noexcept {
    if (t0 == t1) return 0.0;
    if (t1 < t0) return -ArcLength(a, b, t1, t0);
    // Measured from the angle of least speed: there the integral of the swapped ellipse
    // (a' = max, b' = min) starts.
    const double major = std::max(a, b);
    const double minor = std::min(a, b);
    const double shift = a >= b ? 0.0 : kHalfPi;
    double u0 = t0 - shift;
    double u1 = t1 - shift;
    const double quarter = QuarterLength(a, b);
    // Whole half turns off both ends first: they are exactly 2 Q each.
    const double turns = std::floor(u0 / kPi + 0.5);
    u0 -= turns * kPi;
    u1 -= turns * kPi;
    const double g0 = FromReference(major, minor, u0, quarter);
    const double g1 = FromReference(major, minor, u1, quarter);
    const double length = g1 - g0;
    if (length >= 0.5 * std::max(std::fabs(g0), std::fabs(g1))) return length;
    return Adaptive(a, b, t0, t1, GaussLegendre(a, b, t0, t1), 0);
}

double ccEllipticIntegral::AngleAtLength(double a, double b, double t0, double length) noexcept {
    if (length == 0) return t0;
    if (length < 0) {
        // By the symmetry t -> -t of the speed.
        return -AngleAtLength(a, b, -t0, -length);
    }
    const double perimeter = Perimeter(a, b);
    const double turns = std::floor(length / perimeter);
    double rest = length - turns * perimeter;
    const double base = t0 + turns * 2.0 * kPi;
    // Bracket in [base, base + 2 pi]; safeguarded Newton.
    double lo = 0.0, hi = 2.0 * kPi;
    double t = rest / perimeter * 2.0 * kPi;
    for (int i = 0; i < 200; ++i) {
        const double f = ArcLength(a, b, t0, t0 + t) - rest;
        if (f == 0) break;
        if (f < 0) lo = t;
        else hi = t;
        double next = t - f / Speed(a, b, t0 + t);
        if (!(next > lo && next < hi)) next = 0.5 * (lo + hi);
        if (std::fabs(next - t) <= 1e-15 * std::max(1.0, std::fabs(t))) {
            t = next;
            break;
        }
        t = next;
    }
    return base + t;
}
