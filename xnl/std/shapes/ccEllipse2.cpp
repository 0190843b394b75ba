// Placeholder bodies until the geometry lands.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#pragma GCC diagnostic ignored "-Wterminate"
#include "xnl/std/shapes/ccEllipse2.h"
#include "xnl/std/shapes/ccShapesError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccAffineRectangle.h"

ccEllipse2::ccEllipse2(const cc2Vect& center, double radiusX, double radiusY, double rotation) { throw ccShapesError::NotImplemented("ccEllipse2"); }
ccEllipse2::ccEllipse2(const cc2XformLinear& ellipseFromUnitCircle) { throw ccShapesError::NotImplemented("ccEllipse2"); }
void ccEllipse2::ValidateRadius(double radius, const char* name) { throw ccShapesError::NotImplemented("ccEllipse2::ValidateRadius"); }
void ccEllipse2::SetRadiusX(double radius) { throw ccShapesError::NotImplemented("ccEllipse2::SetRadiusX"); }
void ccEllipse2::SetRadiusY(double radius) { throw ccShapesError::NotImplemented("ccEllipse2::SetRadiusY"); }
void ccEllipse2::SetRotation(double rotation) noexcept { throw ccShapesError::NotImplemented("ccEllipse2::SetRotation"); }
void ccEllipse2::SetCenterRadiiRotation(const cc2Vect& center, double radiusX, double radiusY, double rotation) { throw ccShapesError::NotImplemented("ccEllipse2::SetCenterRadiiRotation"); }
cc2XformLinear ccEllipse2::UnitCircleTransform() const noexcept { throw ccShapesError::NotImplemented("ccEllipse2::UnitCircleTransform"); }
void ccEllipse2::SetFromUnitCircleTransform(const cc2XformLinear& ellipseFromUnitCircle) { throw ccShapesError::NotImplemented("ccEllipse2::SetFromUnitCircleTransform"); }
ccAffineRectanglePtrh ccEllipse2::BoundingRectangleAffine(bool deSkew) const { throw ccShapesError::NotImplemented("ccEllipse2::BoundingRectangleAffine"); }
void ccEllipse2::SetFromBoundingRectangleAffine(const ccAffineRectangle& rect) { throw ccShapesError::NotImplemented("ccEllipse2::SetFromBoundingRectangleAffine"); }
cc2Vect ccEllipse2::PointAtAngle(double t) const noexcept { throw ccShapesError::NotImplemented("ccEllipse2::PointAtAngle"); }
cc2Vect ccEllipse2::DerivativeAtAngle(double t) const noexcept { throw ccShapesError::NotImplemented("ccEllipse2::DerivativeAtAngle"); }
bool ccEllipse2::IsFinite() const noexcept { throw ccShapesError::NotImplemented("ccEllipse2::IsFinite"); }
bool ccEllipse2::Equals(const ccShape& other) const noexcept { throw ccShapesError::NotImplemented("ccEllipse2::Equals"); }
std::string ccEllipse2::Description() const { throw ccShapesError::NotImplemented("ccEllipse2::Description"); }
ccRectPtrh ccEllipse2::BoundingBox() const { throw ccShapesError::NotImplemented("ccEllipse2::BoundingBox"); }
ccShapePtrh ccEllipse2::Map(const cc2XformLinear& xform) const { throw ccShapesError::NotImplemented("ccEllipse2::Map"); }
ccShapePtrh ccEllipse2::Translate(const cc2Vect& offset) const { throw ccShapesError::NotImplemented("ccEllipse2::Translate"); }
cc2Vect ccEllipse2::NearestPoint(const cc2Vect& point) const { throw ccShapesError::NotImplemented("ccEllipse2::NearestPoint"); }
void ccEllipse2::Sample(double maxStep, std::vector<cc2Vect>& points) const { throw ccShapesError::NotImplemented("ccEllipse2::Sample"); }
bool ccEllipse2::Within(const cc2Vect& point) const { throw ccShapesError::NotImplemented("ccEllipse2::Within"); }
double ccEllipse2::Area() const noexcept { throw ccShapesError::NotImplemented("ccEllipse2::Area"); }
double ccEllipse2::Perimeter() const { throw ccShapesError::NotImplemented("ccEllipse2::Perimeter"); }
void ccEllipse2::ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const { throw ccShapesError::NotImplemented("ccEllipse2::ScanConvert"); }
ccPixelBox ccEllipse2::PixelBounds() const { throw ccShapesError::NotImplemented("ccEllipse2::PixelBounds"); }
