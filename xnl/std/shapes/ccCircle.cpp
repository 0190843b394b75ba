// Placeholder bodies until the geometry lands.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#pragma GCC diagnostic ignored "-Wterminate"
#include "xnl/std/shapes/ccCircle.h"
#include "xnl/std/shapes/ccShapesError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccAffineRectangle.h"

ccCircle::ccCircle(const cc2Vect& center, double radius) { throw ccShapesError::NotImplemented("ccCircle"); }
void ccCircle::SetRadius(double radius) { throw ccShapesError::NotImplemented("ccCircle::SetRadius"); }
void ccCircle::SetCenterRadius(const cc2Vect& center, double radius) { throw ccShapesError::NotImplemented("ccCircle::SetCenterRadius"); }
ccEllipse2Ptrh ccCircle::ToEllipse() const { throw ccShapesError::NotImplemented("ccCircle::ToEllipse"); }
cc2Vect ccCircle::PointAtAngle(double t) const noexcept { throw ccShapesError::NotImplemented("ccCircle::PointAtAngle"); }
bool ccCircle::IsFinite() const noexcept { throw ccShapesError::NotImplemented("ccCircle::IsFinite"); }
bool ccCircle::Equals(const ccShape& other) const noexcept { throw ccShapesError::NotImplemented("ccCircle::Equals"); }
std::string ccCircle::Description() const { throw ccShapesError::NotImplemented("ccCircle::Description"); }
ccRectPtrh ccCircle::BoundingBox() const { throw ccShapesError::NotImplemented("ccCircle::BoundingBox"); }
ccShapePtrh ccCircle::Map(const cc2XformLinear& xform) const { throw ccShapesError::NotImplemented("ccCircle::Map"); }
ccShapePtrh ccCircle::Translate(const cc2Vect& offset) const { throw ccShapesError::NotImplemented("ccCircle::Translate"); }
cc2Vect ccCircle::NearestPoint(const cc2Vect& point) const { throw ccShapesError::NotImplemented("ccCircle::NearestPoint"); }
double ccCircle::DistanceToPoint(const cc2Vect& point) const { throw ccShapesError::NotImplemented("ccCircle::DistanceToPoint"); }
void ccCircle::Sample(double maxStep, std::vector<cc2Vect>& points) const { throw ccShapesError::NotImplemented("ccCircle::Sample"); }
bool ccCircle::Within(const cc2Vect& point) const { throw ccShapesError::NotImplemented("ccCircle::Within"); }
double ccCircle::Area() const noexcept { throw ccShapesError::NotImplemented("ccCircle::Area"); }
double ccCircle::Perimeter() const noexcept { throw ccShapesError::NotImplemented("ccCircle::Perimeter"); }
void ccCircle::ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const { throw ccShapesError::NotImplemented("ccCircle::ScanConvert"); }
ccPixelBox ccCircle::PixelBounds() const { throw ccShapesError::NotImplemented("ccCircle::PixelBounds"); }
