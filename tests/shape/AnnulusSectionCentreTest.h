// The pixels whose centres lie inside an annulus section, worked out pixel by pixel for the
// section tests: a centre is taken into the unit-circle frame of the start arc's ellipse
// (centre, radii, rotation), where the section is every point rho (cos t, sin t) with rho
// between 1 and the radial scale and t in the wedge from the start over the span (a span
// of 2 pi or more: the whole ring; a negative span: the wedge from start + span over
// -span). Centres too close to an edge for rounding to decide are collected in `unsure`.
#pragma once

#include <cmath>
#include <numbers>
#include <set>
#include <utility>

#include "TessalyCore.h"

namespace tessaly::test {

using PixelSet = std::set<std::pair<LONG, LONG>>;

struct SectionGeometry {
    double centerX, centerY, radiusX, radiusY, rotation, angleStart, angleSpan, radialScale;
};

inline PixelSet CentresInsideSection(const SectionGeometry& s, PixelSet& unsure) {
    constexpr double kTwoPi = 2 * std::numbers::pi;
    constexpr double kTolerance = 1e-9;
    const double outer = std::fmax(1.0, s.radialScale) * std::fmax(s.radiusX, s.radiusY);
    double start = s.angleStart, span = s.angleSpan;
    if (span < 0) start += span, span = -span;
    const bool fullRing = span >= kTwoPi;
    const double low = std::fmin(1.0, s.radialScale), high = std::fmax(1.0, s.radialScale);
    const double c = std::cos(s.rotation), n = std::sin(s.rotation);
    PixelSet inside;
    unsure.clear();
    for (LONG j = static_cast<LONG>(std::floor(s.centerY - outer)) - 2; j <= static_cast<LONG>(std::ceil(s.centerY + outer)) + 2; ++j)
        for (LONG i = static_cast<LONG>(std::floor(s.centerX - outer)) - 2; i <= static_cast<LONG>(std::ceil(s.centerX + outer)) + 2; ++i) {
            const double dx = i + 0.5 - s.centerX, dy = j + 0.5 - s.centerY;
            const double ux = (c * dx + n * dy) / s.radiusX, uy = (-n * dx + c * dy) / s.radiusY;
            const double rho = std::hypot(ux, uy);
            bool edge = std::fabs(rho - low) < kTolerance * high || std::fabs(rho - high) < kTolerance * high;
            bool wedge = true;
            if (!fullRing) {
                double d = std::fmod(std::atan2(uy, ux) - start, kTwoPi);
                if (d < 0) d += kTwoPi;
                wedge = d <= span;
                const double closest = std::fmin(std::fmin(d, kTwoPi - d), std::fabs(d - span));
                if (closest * std::fmax(rho, 1e-300) < 1e-7) edge = true;
            }
            if (edge) unsure.insert({i, j});
            if (rho >= low && rho <= high && wedge) inside.insert({i, j});
        }
    return inside;
}

}  // namespace tessaly::test
