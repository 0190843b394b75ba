// Small pieces the round shapes share: exact unit vectors at the quarter turns, the
// decomposition of a 2x2 matrix into rotation, two radii and a mirror, the nearest point
// of an ellipse, and sampling of an ellipse arc.
#pragma once

#include <vector>

#include "xnl/std/base/cc2Vect.h"

class ccRoundGeometry {
public:
    // (cos a, sin a), exact at multiples of pi/2 (cos(pi/2) in doubles is 6e-17, which
    // would tilt an axis-aligned ellipse and move centres on its outline across).
    static cc2Vect UnitVector(double angle) noexcept;

    // M = R(rotation) diag(radiusX, radiusY) F R(angleOffset), with radiusX >= radiusY >= 0
    // and F = diag(1, -1) when mirrored (det M < 0), else the identity. So the point at
    // angle t of the unit circle goes to the point at angle t + angleOffset of the ellipse
    // (rotation, radiusX, radiusY), or at -(t + angleOffset) when mirrored.
    struct Decomposition {
        double rotation = 0, radiusX = 0, radiusY = 0, angleOffset = 0;
        bool mirrored = false;
    };
    static Decomposition Decompose(double m00, double m01, double m10, double m11) noexcept;

    // The angle t of the point (a cos t, b sin t) nearest to `local` (the point in the
    // ellipse's own axes), a, b > 0.
    static double NearestAngle(double a, double b, const cc2Vect& local) noexcept;

    // The largest step in angle that keeps consecutive samples of an ellipse of the given
    // radii at most maxStep apart.
    static double AngleStep(double radiusX, double radiusY, double maxStep) noexcept;
};
