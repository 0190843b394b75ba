// Placeholder bodies until the geometry lands.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#pragma GCC diagnostic ignored "-Wterminate"
#include "xnl/std/shapes/ccEllipseArc2.h"
#include "xnl/std/shapes/ccShapesError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccAffineRectangle.h"

ccEllipseArc2::ccEllipseArc2(const cc2Vect& center, double radiusX, double radiusY, double rotation, double angleStart, double angleSpan) { throw ccShapesError::NotImplemented("ccEllipseArc2"); }
ccEllipseArc2::ccEllipseArc2(const ccEllipse2& ellipse, double angleStart, double angleSpan) { throw ccShapesError::NotImplemented("ccEllipseArc2"); }
void ccEllipseArc2::ValidateAngleSpan(double angleSpan) { throw ccShapesError::NotImplemented("ccEllipseArc2::ValidateAngleSpan"); }
void ccEllipseArc2::ValidateEllipseFraction(double fraction) { throw ccShapesError::NotImplemented("ccEllipseArc2::ValidateEllipseFraction"); }
ccEllipse2Ptrh ccEllipseArc2::Ellipse() const { throw ccShapesError::NotImplemented("ccEllipseArc2::Ellipse"); }
void ccEllipseArc2::SetRadiusX(double radius) { throw ccShapesError::NotImplemented("ccEllipseArc2::SetRadiusX"); }
void ccEllipseArc2::SetRadiusY(double radius) { throw ccShapesError::NotImplemented("ccEllipseArc2::SetRadiusY"); }
void ccEllipseArc2::SetRotation(double rotation) noexcept { throw ccShapesError::NotImplemented("ccEllipseArc2::SetRotation"); }
void ccEllipseArc2::SetAngleStart(double angleStart) noexcept { throw ccShapesError::NotImplemented("ccEllipseArc2::SetAngleStart"); }
void ccEllipseArc2::SetAngleSpan(double angleSpan) { throw ccShapesError::NotImplemented("ccEllipseArc2::SetAngleSpan"); }
void ccEllipseArc2::SetAll(const cc2Vect& center, double radiusX, double radiusY, double rotation, double angleStart, double angleSpan) { throw ccShapesError::NotImplemented("ccEllipseArc2::SetAll"); }
ccEllipseArc2::UnitCircleParams ccEllipseArc2::GetUnitCircleParams() const noexcept { throw ccShapesError::NotImplemented("ccEllipseArc2::GetUnitCircleParams"); }
void ccEllipseArc2::SetFromUnitCircleParams(double unitAngleStart, double unitAngleSpan, const cc2XformLinear& ellipseFromUnitCircle) { throw ccShapesError::NotImplemented("ccEllipseArc2::SetFromUnitCircleParams"); }
cc2Vect ccEllipseArc2::PointAtAngle(double t) const noexcept { throw ccShapesError::NotImplemented("ccEllipseArc2::PointAtAngle"); }
double ccEllipseArc2::LengthToAngle(double t) const { throw ccShapesError::NotImplemented("ccEllipseArc2::LengthToAngle"); }
double ccEllipseArc2::AngleAtLength(double s) const { throw ccShapesError::NotImplemented("ccEllipseArc2::AngleAtLength"); }
cc2Vect ccEllipseArc2::PointAtFraction(double fraction) const { throw ccShapesError::NotImplemented("ccEllipseArc2::PointAtFraction"); }
bool ccEllipseArc2::IsFinite() const noexcept { throw ccShapesError::NotImplemented("ccEllipseArc2::IsFinite"); }
bool ccEllipseArc2::Equals(const ccShape& other) const noexcept { throw ccShapesError::NotImplemented("ccEllipseArc2::Equals"); }
std::string ccEllipseArc2::Description() const { throw ccShapesError::NotImplemented("ccEllipseArc2::Description"); }
ccRectPtrh ccEllipseArc2::BoundingBox() const { throw ccShapesError::NotImplemented("ccEllipseArc2::BoundingBox"); }
ccShapePtrh ccEllipseArc2::Map(const cc2XformLinear& xform) const { throw ccShapesError::NotImplemented("ccEllipseArc2::Map"); }
ccShapePtrh ccEllipseArc2::Translate(const cc2Vect& offset) const { throw ccShapesError::NotImplemented("ccEllipseArc2::Translate"); }
cc2Vect ccEllipseArc2::NearestPoint(const cc2Vect& point) const { throw ccShapesError::NotImplemented("ccEllipseArc2::NearestPoint"); }
void ccEllipseArc2::Sample(double maxStep, std::vector<cc2Vect>& points) const { throw ccShapesError::NotImplemented("ccEllipseArc2::Sample"); }
cc2Vect ccEllipseArc2::Centroid() const { throw ccShapesError::NotImplemented("ccEllipseArc2::Centroid"); }
cc2Vect ccEllipseArc2::StartPoint() const noexcept { throw ccShapesError::NotImplemented("ccEllipseArc2::StartPoint"); }
cc2Vect ccEllipseArc2::EndPoint() const noexcept { throw ccShapesError::NotImplemented("ccEllipseArc2::EndPoint"); }
double ccEllipseArc2::Length() const { throw ccShapesError::NotImplemented("ccEllipseArc2::Length"); }
cc2Vect ccEllipseArc2::PointAt(double arcLength) const { throw ccShapesError::NotImplemented("ccEllipseArc2::PointAt"); }
cc2Vect ccEllipseArc2::TangentAt(double arcLength) const { throw ccShapesError::NotImplemented("ccEllipseArc2::TangentAt"); }
double ccEllipseArc2::StartAngle() const { throw ccShapesError::NotImplemented("ccEllipseArc2::StartAngle"); }
double ccEllipseArc2::EndAngle() const { throw ccShapesError::NotImplemented("ccEllipseArc2::EndAngle"); }
double ccEllipseArc2::ArcLengthOf(const cc2Vect& point) const { throw ccShapesError::NotImplemented("ccEllipseArc2::ArcLengthOf"); }
ccShapePtrh ccEllipseArc2::Reverse() const { throw ccShapesError::NotImplemented("ccEllipseArc2::Reverse"); }
