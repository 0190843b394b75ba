#include "xnl/std/base/cc2Vect.h"

#include <cmath>
#include <numbers>

double cc2Vect::Length() const noexcept { return std::hypot(x_, y_); }

double cc2Vect::Angle() const noexcept {
    const double angle = std::atan2(y_, x_);
    // atan2 answers +pi for (-x, +0); stored angles fold +pi to -pi.
    return angle >= std::numbers::pi ? -std::numbers::pi : angle;
}
