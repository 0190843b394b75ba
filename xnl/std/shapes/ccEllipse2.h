// A filled ellipse: the image of the unit disc under the unit-circle transform
//
//     p(u) = centre + R(rotation) * diag(radiusX, radiusY) * u,      |u| <= 1,
//
// so radiusX is measured along the ellipse's own x-axis, the direction `rotation` from the
// x-axis of its space. Both radii are > 0 (else ccQvShapesError::InvalidRadius); the
// rotation is stored normalised into [-pi, pi) (cc2XformLinear::NormalizeAngle). A
// refused setter changes nothing.
//
// The point at angle t is p((cos t, sin t)): angles are measured on the unit circle, from
// the ellipse's x-axis, as the arcs (ccEllipseArc2) and sections (ccEllipseAnnulus) use them.
//
// The perimeter is the complete elliptic integral of the second kind, computed with
// Carlson's symmetric integrals R_F and R_D (ccEllipticIntegral); tested to 1e-12 relative.
#pragma once

#include <string>
#include <vector>

#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccShape.h"

class ccEllipse2;
class ccAffineRectangle;
using ccEllipse2Ptrh = ccPtrHandle<ccEllipse2>;
using ccEllipse2Ptrh_const = ccPtrHandle_const<ccEllipse2>;
using ccAffineRectanglePtrh = ccPtrHandle<ccAffineRectangle>;

class ccEllipse2 : public ccShape {
public:
    // The unit circle: centre (0, 0), radii 1, rotation 0.
    ccEllipse2() noexcept = default;
    ccEllipse2(const cc2Vect& center, double radiusX, double radiusY, double rotation);
    // The ellipse a non-singular linear transform makes of the unit circle
    // (SetFromUnitCircleTransform).
    explicit ccEllipse2(const cc2XformLinear& ellipseFromUnitCircle);

    // InvalidRadius unless radius > 0 (NaN refused); `name` goes into the message.
    static void ValidateRadius(double radius, const char* name);

    cc2Vect Center() const noexcept { return center_; }
    double RadiusX() const noexcept { return radiusX_; }
    double RadiusY() const noexcept { return radiusY_; }
    double Rotation() const noexcept { return rotation_; }

    void SetCenter(const cc2Vect& center) noexcept { center_ = center; }
    void SetRadiusX(double radius);
    void SetRadiusY(double radius);
    void SetRotation(double rotation) noexcept;
    void SetCenterRadiiRotation(const cc2Vect& center, double radiusX, double radiusY, double rotation);

    // centre + R(rotation) diag(radiusX, radiusY): the unit circle onto this ellipse.
    cc2XformLinear UnitCircleTransform() const noexcept;
    static cc2XformLinear UnitCircleTransformOf(const cc2Vect& center, double radiusX, double radiusY,
                                                double rotation) noexcept;
    // From any non-singular linear transform T: the ellipse T makes of the unit circle.
    // The 2x2 matrix is decomposed by its singular values, M = R(a) diag(s1, s2) V with V
    // orthogonal; the ellipse is centre T(0,0), radiusX = s1 >= radiusY = s2, rotation a.
    // A mirror (det < 0) lies wholly in V and changes the set of points nothing; only the
    // direction of angles on it, which ccEllipseArc2 keeps by negating its span.
    // ccShapesError::DegenerateShape for a singular matrix (either singular value 0 or a
    // non-finite element); nothing changes then.
    void SetFromUnitCircleTransform(const cc2XformLinear& ellipseFromUnitCircle);

    // The bounding parallelogram. deSkew: the rectangle of the principal axes (centre,
    // sides 2 radiusX and 2 radiusY, rotation, skew 0). Otherwise the image of the square
    // [-1, 1]^2 under the unit-circle transform as it is given - for a ccEllipse2 that is
    // the same rectangle, since the transform it keeps has no skew.
    ccAffineRectanglePtrh BoundingRectangleAffine(bool deSkew) const;
    // The ellipse inscribed in a parallelogram: the image of the unit circle under the map
    // of the square [-1, 1]^2 onto it (its sides touch the ellipse at their midpoints).
    void SetFromBoundingRectangleAffine(const ccAffineRectangle& rect);

    // The point at unit-circle angle t, and the derivative d p / d t there.
    cc2Vect PointAtAngle(double t) const noexcept;
    cc2Vect DerivativeAtAngle(double t) const noexcept;

    // ccShape
    ccEllipse2* Clone() const override { return new ccEllipse2(*this); }
    const char* TypeName() const noexcept override { return "ccEllipse2"; }
    bool IsRegion() const noexcept override { return true; }
    bool IsFinite() const noexcept override;
    bool IsConvex() const noexcept override { return true; }
    bool Equals(const ccShape& other) const noexcept override;
    std::string Description() const override;

    // Exact: centre +- (sqrt(a^2 c^2 + b^2 s^2), sqrt(a^2 s^2 + b^2 c^2)).
    ccRectPtrh BoundingBox() const override;
    // Always a ccEllipse2 (the image of the unit-circle transform, decomposed again).
    ccShapePtrh Map(const cc2XformLinear& xform) const override;
    ccShapePtrh Translate(const cc2Vect& offset) const override;
    cc2Vect NearestPoint(const cc2Vect& point) const override;
    // From angle 0 round in increasing angle, the first point repeated at the end.
    void Sample(double maxStep, std::vector<cc2Vect>& points) const override;
    cc2Vect Centroid() const override { return center_; }

    bool Within(const cc2Vect& point) const override;
    double Area() const noexcept override;
    double Perimeter() const override;
    void ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const override;
    using ccShape::ScanConvert;
    ccPixelBox PixelBounds() const override;

protected:
    ~ccEllipse2() override = default;

private:
    cc2Vect center_{0.0, 0.0};
    double radiusX_ = 1.0;
    double radiusY_ = 1.0;
    double rotation_ = 0.0;
};
