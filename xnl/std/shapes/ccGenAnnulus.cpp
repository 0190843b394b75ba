// Placeholder bodies until the geometry lands.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#pragma GCC diagnostic ignored "-Wterminate"
#include "xnl/std/shapes/ccGenAnnulus.h"
#include "xnl/std/shapes/ccShapesError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccAffineRectangle.h"

ccGenAnnulus::ccGenAnnulus(const cc2Vect& center, double radiusX, double radiusY, double rotation, double angleStart, double angleSpan, double radialScale) noexcept { throw ccShapesError::NotImplemented("ccGenAnnulus"); }
void ccGenAnnulus::ValidateRadialScale(double radialScale) { throw ccShapesError::NotImplemented("ccGenAnnulus::ValidateRadialScale"); }
bool ccGenAnnulus::IsFullRing() const noexcept { throw ccShapesError::NotImplemented("ccGenAnnulus::IsFullRing"); }
double ccGenAnnulus::Area() const noexcept { throw ccShapesError::NotImplemented("ccGenAnnulus::Area"); }
double ccGenAnnulus::Perimeter() const { throw ccShapesError::NotImplemented("ccGenAnnulus::Perimeter"); }
cc2Vect ccGenAnnulus::InnerOrOuterPoint(double scale, double angle) const noexcept { throw ccShapesError::NotImplemented("ccGenAnnulus::InnerOrOuterPoint"); }
bool ccGenAnnulus::Within(const cc2Vect& point) const { throw ccShapesError::NotImplemented("ccGenAnnulus::Within"); }
cc2Vect ccGenAnnulus::NearestPoint(const cc2Vect& point) const { throw ccShapesError::NotImplemented("ccGenAnnulus::NearestPoint"); }
void ccGenAnnulus::Sample(double maxStep, std::vector<cc2Vect>& points) const { throw ccShapesError::NotImplemented("ccGenAnnulus::Sample"); }
void ccGenAnnulus::Bounds(double& x0, double& y0, double& x1, double& y1) const noexcept { throw ccShapesError::NotImplemented("ccGenAnnulus::Bounds"); }
ccPixelBox ccGenAnnulus::PixelBounds() const { throw ccShapesError::NotImplemented("ccGenAnnulus::PixelBounds"); }
void ccGenAnnulus::ScanConvert(ccSpanSink& sink, const ccPixelBox& clip) const { throw ccShapesError::NotImplemented("ccGenAnnulus::ScanConvert"); }
bool ccGenAnnulus::IsFinite() const noexcept { throw ccShapesError::NotImplemented("ccGenAnnulus::IsFinite"); }
