// Placeholder bodies until the geometry lands.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#pragma GCC diagnostic ignored "-Wterminate"
#include "xnl/std/shapes/ccEllipticIntegral.h"
#include "xnl/std/shapes/ccShapesError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccAffineRectangle.h"

double ccEllipticIntegral::CarlsonRD(double x, double y, double z) noexcept { throw ccShapesError::NotImplemented("ccEllipticIntegral::CarlsonRD"); }
double ccEllipticIntegral::ArcLength(double a, double b, double t0, double t1) noexcept { throw ccShapesError::NotImplemented("ccEllipticIntegral::ArcLength"); }
double ccEllipticIntegral::QuarterLength(double a, double b) noexcept { throw ccShapesError::NotImplemented("ccEllipticIntegral::QuarterLength"); }
double ccEllipticIntegral::AngleAtLength(double a, double b, double t0, double length) noexcept { throw ccShapesError::NotImplemented("ccEllipticIntegral::AngleAtLength"); }
