// Placeholder bodies until the geometry lands.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#pragma GCC diagnostic ignored "-Wterminate"
#include "xnl/std/shapes/ccAnnulus.h"
#include "xnl/std/shapes/ccShapesError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccAffineRectangle.h"

ccAnnulus::ccAnnulus(const cc2Vect& center, double radius, double angleStart, double angleSpan, double radialScale) { throw ccShapesError::NotImplemented("ccAnnulus"); }
void ccAnnulus::SetCenter(const cc2Vect& center) noexcept { throw ccShapesError::NotImplemented("ccAnnulus::SetCenter"); }
void ccAnnulus::SetRadius(double radius) { throw ccShapesError::NotImplemented("ccAnnulus::SetRadius"); }
void ccAnnulus::SetAngleStart(double angleStart) noexcept { throw ccShapesError::NotImplemented("ccAnnulus::SetAngleStart"); }
void ccAnnulus::SetAngleSpan(double angleSpan) { throw ccShapesError::NotImplemented("ccAnnulus::SetAngleSpan"); }
void ccAnnulus::SetRadialScale(double radialScale) { throw ccShapesError::NotImplemented("ccAnnulus::SetRadialScale"); }
void ccAnnulus::SetAll(const cc2Vect& center, double radius, double angleStart, double angleSpan, double radialScale) { throw ccShapesError::NotImplemented("ccAnnulus::SetAll"); }
ccEllipseArc2Ptrh ccAnnulus::ArcAtFraction(double fraction) const { throw ccShapesError::NotImplemented("ccAnnulus::ArcAtFraction"); }
bool ccAnnulus::Equals(const ccShape& other) const noexcept { throw ccShapesError::NotImplemented("ccAnnulus::Equals"); }
std::string ccAnnulus::Description() const { throw ccShapesError::NotImplemented("ccAnnulus::Description"); }
ccRectPtrh ccAnnulus::BoundingBox() const { throw ccShapesError::NotImplemented("ccAnnulus::BoundingBox"); }
ccShapePtrh ccAnnulus::Map(const cc2XformLinear& xform) const { throw ccShapesError::NotImplemented("ccAnnulus::Map"); }
ccShapePtrh ccAnnulus::Translate(const cc2Vect& offset) const { throw ccShapesError::NotImplemented("ccAnnulus::Translate"); }
