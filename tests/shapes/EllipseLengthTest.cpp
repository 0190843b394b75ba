// Perimeters and arc lengths of ellipses against an independent long-double integral of
// the speed (adaptive Gauss-Legendre, split at the quarter turns), to 1e-12 relative:
// circles, moderate and very eccentric ellipses (ratio 1e-3 and 1e-6), short arcs far
// from the axes, arcs of either direction and spans of several turns. Then the inverse
// (the angle at an arc length) and the arc's PointAt through it.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "shapes/ShapeTestSupport.h"
#include "xnl/std/shapes/ccEllipse2.h"
#include "xnl/std/shapes/ccEllipseArc2.h"
#include "xnl/std/shapes/ccEllipticIntegral.h"

namespace tessaly::test {
namespace {

constexpr double kPi = std::numbers::pi;
constexpr long double kPiL = 3.141592653589793238462643383279502884L;

long double Speed(long double a, long double b, long double t) {
    return std::sqrt(a * a * std::sin(t) * std::sin(t) + b * b * std::cos(t) * std::cos(t));
}

// 20-point Gauss-Legendre nodes and weights on [-1, 1] (the positive half).
constexpr long double kX[10] = {0.0765265211334973337546404L, 0.2277858511416450780804962L, 0.3737060887154195606725482L,
                                0.5108670019508270980043641L, 0.6360536807265150254528367L, 0.7463319064601507926143051L,
                                0.8391169718222188233945291L, 0.9122344282513259058677524L, 0.9639719272779137912676661L,
                                0.9931285991850949247861224L};
constexpr long double kW[10] = {0.1527533871307258506980843L, 0.1491729864726037467878287L, 0.1420961093183820513292983L,
                                0.1316886384491766268984945L, 0.1181945319615184173123774L, 0.1019301198172404350367501L,
                                0.0832767415767047487247581L, 0.0626720483341090635695065L, 0.0406014298003869413310400L,
                                0.0176140071391521183118620L};

long double Rule(long double a, long double b, long double t0, long double t1) {
    const long double mid = 0.5L * (t0 + t1), half = 0.5L * (t1 - t0);
    long double sum = 0;
    for (int i = 0; i < 10; ++i) sum += kW[i] * (Speed(a, b, mid - half * kX[i]) + Speed(a, b, mid + half * kX[i]));
    return sum * half;
}

long double Adaptive(long double a, long double b, long double t0, long double t1, long double whole, int depth) {
    const long double mid = 0.5L * (t0 + t1);
    const long double left = Rule(a, b, t0, mid), right = Rule(a, b, mid, t1);
    if (depth > 50 || std::fabs(left + right - whole) <= 1e-17L * std::fabs(left + right)) return left + right;
    return Adaptive(a, b, t0, mid, left, depth + 1) + Adaptive(a, b, mid, t1, right, depth + 1);
}

// The integral from t0 to t1 >= t0, split where the speed has its kinks (the quarter turns).
long double ReferenceLength(long double a, long double b, long double t0, long double t1) {
    long double total = 0;
    long double from = t0;
    while (from < t1) {
        long double to = (std::floor(from / (kPiL / 2)) + 1) * (kPiL / 2);
        if (to <= from) to = from + kPiL / 2;
        to = std::min(to, t1);
        total += Adaptive(a, b, from, to, Rule(a, b, from, to), 0);
        from = to;
    }
    return total;
}

void ExpectRelative(double actual, long double expected, double tolerance, const char* what) {
    EXPECT_LE(std::fabs((actual - expected) / expected), tolerance)
        << what << ": " << actual << " against " << static_cast<double>(expected);
}

TEST(EllipseLength, PerimeterMatchesTheIntegralFromCirclesToNeedles) {
    for (double ratio : {1.0, 0.999999, 0.9, 0.5, 0.1, 0.01, 1e-3, 1e-6}) {
        for (double major : {1.0, 37.5, 1e5}) {
            const double minor = major * ratio;
            const long double expected = ReferenceLength(major, minor, 0, 2 * kPiL);
            ExpectRelative(ccEllipticIntegral::Perimeter(major, minor), expected, 1e-12, "perimeter");
            ExpectRelative(ccEllipticIntegral::Perimeter(minor, major), expected, 1e-12, "perimeter, radii swapped");
            ExpectRelative(Make<ccEllipse2>(cc2Vect(-4, 9), minor, major, 1.0)->Perimeter(), expected, 1e-12, "ccEllipse2");
        }
    }
    // Known values: the circle, and the limit 4 a of the flattened ellipse.
    EXPECT_NEAR(ccEllipticIntegral::Perimeter(3, 3), 6 * kPi, 1e-14 * 6 * kPi);
    EXPECT_NEAR(ccEllipticIntegral::Perimeter(1, 1e-12), 4.0, 1e-10);
}

TEST(EllipseLength, ArcLengthsMatchTheIntegralForAnySpan) {
    std::mt19937_64 random(21);
    auto pick = [&](double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(random); };
    for (int n = 0; n < 3000; ++n) {
        const double a = std::exp(pick(-3, 5));
        double b = a * std::exp(pick(-7, 7));
        if (n % 10 == 0) b = a * 1e-3;
        if (n % 10 == 1) b = a / 1e-3;
        const double t0 = pick(-20, 20);
        double span;
        switch (n % 4) {
            case 0: span = pick(-1e-6, 1e-6); break;   // short arcs anywhere
            case 1: span = pick(-2, 2); break;
            case 2: span = pick(-30, 30); break;       // several turns
            default: span = pick(-1e-2, 1e-2); break;
        }
        if (span == 0) continue;
        const double t1 = t0 + span;
        const long double expected = span > 0 ? ReferenceLength(a, b, t0, t1) : ReferenceLength(a, b, t1, t0);
        const double actual = ccEllipticIntegral::ArcLength(a, b, t0, t1);
        ExpectRelative(span > 0 ? actual : -actual, expected, 1e-12, "arc length");
        if (HasFailure()) {
            ADD_FAILURE() << "a " << a << " b " << b << " t0 " << t0 << " span " << span;
            return;
        }
    }
}

TEST(EllipseLength, ArcsMeasureEveryTurnAndTheirPointsLieAtTheirLengths) {
    auto arc = Make<ccEllipseArc2>(cc2Vect(10, -3), 5.0, 0.005, 0.4, 1.0, 4 * kPi + 0.5);
    const long double expected = ReferenceLength(5.0L, 0.005L, 1.0L, 1.0L + 4 * kPiL + 0.5L);
    ExpectRelative(arc->Length(), expected, 1e-12, "two turns and a half radian");
    auto backwards = Make<ccEllipseArc2>(cc2Vect(10, -3), 5.0, 0.005, 0.4, 1.0, -(4 * kPi + 0.5));
    ExpectRelative(backwards->Length(), ReferenceLength(5.0L, 0.005L, 1.0L - 4 * kPiL - 0.5L, 1.0L), 1e-12, "backwards");

    // The angle at a length, and back.
    std::mt19937_64 random(22);
    for (int n = 0; n < 500; ++n) {
        const double a = std::exp(std::uniform_real_distribution<double>(-2, 3)(random));
        const double b = a * std::exp(std::uniform_real_distribution<double>(-5, 5)(random));
        const double t0 = std::uniform_real_distribution<double>(-3, 3)(random);
        const double length = std::uniform_real_distribution<double>(-3, 3)(random) * ccEllipticIntegral::Perimeter(a, b);
        const double t = ccEllipticIntegral::AngleAtLength(a, b, t0, length);
        EXPECT_NEAR(ccEllipticIntegral::ArcLength(a, b, t0, t), length, 1e-12 * ccEllipticIntegral::Perimeter(a, b) * 4)
            << a << " " << b << " " << t0 << " " << length;
    }
    // PointAt walks the arc: the start, the end, and the point at half the length lies
    // where half the length is reached.
    auto quarter = Make<ccEllipseArc2>(cc2Vect(0, 0), 4.0, 1.0, 0.0, 0.0, kPi / 2);
    EXPECT_NEAR(quarter->PointAt(0).Distance(quarter->StartPoint()), 0, 1e-12);
    EXPECT_NEAR(quarter->PointAt(quarter->Length()).Distance(quarter->EndPoint()), 0, 1e-12);
    EXPECT_NEAR(quarter->PointAt(1e9).Distance(quarter->EndPoint()), 0, 1e-12);  // clamped
    const double half = quarter->AngleAtLength(quarter->Length() / 2);
    EXPECT_NEAR(quarter->LengthToAngle(half), quarter->Length() / 2, 1e-12);
}

}  // namespace
}  // namespace tessaly::test
