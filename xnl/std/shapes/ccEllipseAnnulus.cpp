// Placeholder bodies until the geometry lands.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#pragma GCC diagnostic ignored "-Wterminate"
#include "xnl/std/shapes/ccEllipseAnnulus.h"
#include "xnl/std/shapes/ccShapesError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccAffineRectangle.h"

ccEllipseAnnulus::ccEllipseAnnulus(const cc2Vect& center, double radiusX, double radiusY, double rotation, double angleStart, double angleSpan, double radialScale) { throw ccShapesError::NotImplemented("ccEllipseAnnulus"); }
void ccEllipseAnnulus::SetCenter(const cc2Vect& center) noexcept { throw ccShapesError::NotImplemented("ccEllipseAnnulus::SetCenter"); }
void ccEllipseAnnulus::SetRadiusX(double radius) { throw ccShapesError::NotImplemented("ccEllipseAnnulus::SetRadiusX"); }
void ccEllipseAnnulus::SetRadiusY(double radius) { throw ccShapesError::NotImplemented("ccEllipseAnnulus::SetRadiusY"); }
void ccEllipseAnnulus::SetRotation(double rotation) noexcept { throw ccShapesError::NotImplemented("ccEllipseAnnulus::SetRotation"); }
void ccEllipseAnnulus::SetAngleStart(double angleStart) noexcept { throw ccShapesError::NotImplemented("ccEllipseAnnulus::SetAngleStart"); }
void ccEllipseAnnulus::SetAngleSpan(double angleSpan) { throw ccShapesError::NotImplemented("ccEllipseAnnulus::SetAngleSpan"); }
void ccEllipseAnnulus::SetRadialScale(double radialScale) { throw ccShapesError::NotImplemented("ccEllipseAnnulus::SetRadialScale"); }
void ccEllipseAnnulus::SetAll(const cc2Vect& center, double radiusX, double radiusY, double rotation, double angleStart, double angleSpan, double radialScale) { throw ccShapesError::NotImplemented("ccEllipseAnnulus::SetAll"); }
ccEllipseArc2::UnitCircleParams ccEllipseAnnulus::GetUnitCircleParams() const noexcept { throw ccShapesError::NotImplemented("ccEllipseAnnulus::GetUnitCircleParams"); }
void ccEllipseAnnulus::SetFromUnitCircleParams(double unitAngleStart, double unitAngleSpan, double radialScale, const cc2XformLinear& ellipseFromUnitCircle) { throw ccShapesError::NotImplemented("ccEllipseAnnulus::SetFromUnitCircleParams"); }
ccEllipseArc2Ptrh ccEllipseAnnulus::ArcAtFraction(double fraction) const { throw ccShapesError::NotImplemented("ccEllipseAnnulus::ArcAtFraction"); }
bool ccEllipseAnnulus::Equals(const ccShape& other) const noexcept { throw ccShapesError::NotImplemented("ccEllipseAnnulus::Equals"); }
std::string ccEllipseAnnulus::Description() const { throw ccShapesError::NotImplemented("ccEllipseAnnulus::Description"); }
ccRectPtrh ccEllipseAnnulus::BoundingBox() const { throw ccShapesError::NotImplemented("ccEllipseAnnulus::BoundingBox"); }
ccShapePtrh ccEllipseAnnulus::Map(const cc2XformLinear& xform) const { throw ccShapesError::NotImplemented("ccEllipseAnnulus::Map"); }
ccShapePtrh ccEllipseAnnulus::Translate(const cc2Vect& offset) const { throw ccShapesError::NotImplemented("ccEllipseAnnulus::Translate"); }
