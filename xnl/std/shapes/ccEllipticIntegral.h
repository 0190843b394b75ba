// Arc length on an ellipse, through Carlson's symmetric elliptic integrals.
//
// The ellipse p(t) = (a cos t, b sin t) (any rotation and centre leave lengths alone) has
// speed |p'(t)| = sqrt(a^2 sin^2 t + b^2 cos^2 t). ArcLength(a, b, t0, t1) integrates it
// from t0 to t1 (negative when t1 < t0), any number of turns. Within a quarter turn the
// integral from the nearest quarter point is an incomplete integral of the second kind,
// written as R_F and R_D with parameters that make both terms positive, so that nothing
// cancels; whole quarters use the complete integral. Tested against a long-double integral
// to 1e-12 relative for radii ratios down to 1e-6.
#pragma once

class ccEllipticIntegral {
public:
    // Carlson's R_F(x, y, z) and R_D(x, y, z): x, y, z >= 0, at most one of them 0 (R_D:
    // z > 0). Duplication to a relative error of about 1e-16.
    static double CarlsonRF(double x, double y, double z) noexcept;
    static double CarlsonRD(double x, double y, double z) noexcept;

    // The length of the ellipse arc of radii a, b > 0 from angle t0 to t1 (signed).
    static double ArcLength(double a, double b, double t0, double t1) noexcept;
    // The length of a quarter of it: from 0 to pi/2.
    static double QuarterLength(double a, double b) noexcept;
    // The whole perimeter, 4 QuarterLength.
    static double Perimeter(double a, double b) noexcept { return 4.0 * QuarterLength(a, b); }
    // The angle t with ArcLength(a, b, t0, t) == length (length of either sign), by
    // Newton's method on the monotone length, to a relative 1e-14.
    static double AngleAtLength(double a, double b, double t0, double length) noexcept;
};
