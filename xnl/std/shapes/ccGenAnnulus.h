// The geometry every annulus section shares, circular (ccAnnulus) or elliptical
// (ccEllipseAnnulus): not a shape itself, but the value both shapes compute with.
//
// Given an ellipse E (centre c, radii rx, ry, rotation; a circle when rx == ry), a start
// angle a, a signed span s and a radial scale k > 0, k != 1:
//
//   - the start arc is E's arc from a over s (angles on E's unit circle, ccEllipseArc2);
//   - the end arc is the start arc scaled by k about c;
//   - the section is the region between them, closed by the two radial segments from the
//     start arc's ends to the end arc's ends.
//
// In E's unit-circle frame the section is {rho (cos t, sin t): rho between 1 and k, t in
// the wedge from a over s}. Spans:
//   - |s| >= 2 pi is the full ring between the two ellipses (no radial sides; the
//     perimeter is the two full ellipses);
//   - a negative span runs clockwise (in increasing-angle terms): it is the same region as
//     the positive span |s| from a + s. Only the direction of the outline differs.
// The inside rule (ccInsideRule) decides the points on the outline, in pixel space; the
// wedge's sides and the ellipses' curves are tested exactly at pixel centres that lie on
// them, up to the rounding of the parameters themselves.
#pragma once

#include <vector>

#include "xnl/std/base/cc2Vect.h"
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccPixelBox.h"

class ccSpanSink;

class ccGenAnnulus {
public:
    ccGenAnnulus() noexcept = default;
    // No checks here; the shapes validate before they build one.
    ccGenAnnulus(const cc2Vect& center, double radiusX, double radiusY, double rotation, double angleStart,
                 double angleSpan, double radialScale) noexcept;

    // InvalidRadialScale unless scale > 0 and scale != 1 (NaN refused).
    static void ValidateRadialScale(double radialScale);

    cc2Vect Center() const noexcept { return center_; }
    double RadiusX() const noexcept { return radiusX_; }
    double RadiusY() const noexcept { return radiusY_; }
    double Rotation() const noexcept { return rotation_; }
    double AngleStart() const noexcept { return angleStart_; }
    double AngleSpan() const noexcept { return angleSpan_; }
    double RadialScale() const noexcept { return radialScale_; }
    bool IsFullRing() const noexcept;

    // The ellipse scaled by 1 + f (k - 1): f = 0 the start arc's ellipse, 1 the end arc's.
    double ScaleAtFraction(double fraction) const noexcept { return 1.0 + fraction * (radialScale_ - 1.0); }

    double Area() const noexcept;
    double Perimeter() const;
    // The point at `angle` of the ellipse scaled by `scale` (1: the start arc's, k: the end arc's).
    cc2Vect InnerOrOuterPoint(double scale, double angle) const noexcept;
    bool Within(const cc2Vect& point) const;
    cc2Vect NearestPoint(const cc2Vect& point) const;
    // The outline: the start arc, the radial side at its end, the end arc backwards, the
    // radial side back to the start (a full ring: the start ellipse, then the end ellipse).
    void Sample(double maxStep, std::vector<cc2Vect>& points) const;
    // Exact bounding box of the region: the arcs' extremes and the corners.
    void Bounds(double& x0, double& y0, double& x1, double& y1) const noexcept;
    ccPixelBox PixelBounds() const;
    void ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const;
    bool IsFinite() const noexcept;

private:
    cc2Vect center_{0.0, 0.0};
    double radiusX_ = 1.0;
    double radiusY_ = 1.0;
    double rotation_ = 0.0;
    double angleStart_ = 0.0;
    double angleSpan_ = 3.14159265358979323846;
    double radialScale_ = 2.0;
};
