// A filled circle: centre and radius > 0 (else ccQvShapesError::InvalidRadius; a refused
// setter changes nothing). The point at angle t is centre + radius (cos t, sin t).
//
// Map through any linear transform gives a ccEllipse2, even for a similarity that keeps
// the circle round: the image of a round shape under a general transform is an ellipse,
// and callers that map circles (MapLinear of the automation layer) always get the one
// class back. Translate keeps a ccCircle.
#pragma once

#include <string>
#include <vector>

#include "xnl/std/shapes/ccEllipse2.h"
#include "xnl/std/shapes/ccShape.h"

class ccCircle;
using ccCirclePtrh = ccPtrHandle<ccCircle>;
using ccCirclePtrh_const = ccPtrHandle_const<ccCircle>;

class ccCircle : public ccShape {
public:
    // The unit circle at the origin.
    ccCircle() noexcept = default;
    ccCircle(const cc2Vect& center, double radius);

    cc2Vect Center() const noexcept { return center_; }
    double Radius() const noexcept { return radius_; }
    void SetCenter(const cc2Vect& center) noexcept { center_ = center; }
    void SetRadius(double radius);
    void SetCenterRadius(const cc2Vect& center, double radius);

    // The same disc as a ccEllipse2 (radii equal, rotation 0).
    ccEllipse2Ptrh ToEllipse() const;
    cc2Vect PointAtAngle(double t) const noexcept;

    // ccShape
    ccCircle* Clone() const override { return new ccCircle(*this); }
    const char* TypeName() const noexcept override { return "ccCircle"; }
    bool IsRegion() const noexcept override { return true; }
    bool IsFinite() const noexcept override;
    bool IsConvex() const noexcept override { return true; }
    bool Equals(const ccShape& other) const noexcept override;
    std::string Description() const override;

    ccRectPtrh BoundingBox() const override;
    ccShapePtrh Map(const cc2XformLinear& xform) const override;
    ccShapePtrh Translate(const cc2Vect& offset) const override;
    // The centre itself maps to the point at angle 0.
    cc2Vect NearestPoint(const cc2Vect& point) const override;
    double DistanceToPoint(const cc2Vect& point) const override;
    void Sample(double maxStep, std::vector<cc2Vect>& points) const override;
    cc2Vect Centroid() const override { return center_; }

    bool Within(const cc2Vect& point) const override;
    double Area() const noexcept override;
    double Perimeter() const noexcept override;
    void ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const override;
    using ccShape::ScanConvert;
    ccPixelBox PixelBounds() const override;

protected:
    ~ccCircle() override = default;

private:
    cc2Vect center_{0.0, 0.0};
    double radius_ = 1.0;
};
