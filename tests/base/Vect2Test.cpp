// cc2Vect: arithmetic, products, and length and angle at the edges of double range and at
// the folding point of angles.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "xnl/std/base/cc2Vect.h"

namespace tessaly::test {
namespace {

constexpr double kPi = std::numbers::pi;

static_assert(cc2Vect(1, 2) + cc2Vect(3, 5) == cc2Vect(4, 7));
static_assert(cc2Vect(1, 2) - cc2Vect(3, 5) == cc2Vect(-2, -3));
static_assert(2.0 * cc2Vect(1, -2) == cc2Vect(1, -2) * 2.0);
static_assert(cc2Vect(3, 4).LengthSquared() == 25.0);

TEST(Vect2Test, ArithmeticAndProducts) {
    cc2Vect v(3, -4);
    v += cc2Vect(1, 1);
    EXPECT_EQ(v, cc2Vect(4, -3));
    v -= cc2Vect(4, -3);
    EXPECT_EQ(v, cc2Vect());
    v = cc2Vect(6, 9);
    v /= 3;
    EXPECT_EQ(v, cc2Vect(2, 3));
    v *= -1;
    EXPECT_EQ(v, -cc2Vect(2, 3));
    v.X(10);
    v.Y(-0.5);
    EXPECT_EQ(v.X(), 10);
    EXPECT_EQ(v.Y(), -0.5);

    const cc2Vect a(2, 1);
    const cc2Vect b(-1, 3);
    EXPECT_EQ(a.Dot(b), 1);
    EXPECT_EQ(a.Cross(b), 7) << "b lies counter-clockwise of a";
    EXPECT_EQ(b.Cross(a), -7);
    EXPECT_EQ(a.Cross(a * 3), 0) << "parallel vectors span no area";
    EXPECT_EQ(a.Dot(a.Perpendicular()), 0);
    EXPECT_GT(a.Cross(a.Perpendicular()), 0);
    EXPECT_EQ(cc2Vect(0, 0).Distance(cc2Vect(3, 4)), 5);

    EXPECT_EQ(cc2Vect(0.0, 1.0), cc2Vect(-0.0, 1.0)) << "zeros compare equal whatever their sign";
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(cc2Vect(nan, 0) == cc2Vect(nan, 0));
}

TEST(Vect2Test, LengthNeitherOverflowsNorUnderflows) {
    EXPECT_EQ(cc2Vect(3, 4).Length(), 5);
    EXPECT_EQ(cc2Vect().Length(), 0);
    const double huge = 1e200;  // its square overflows
    EXPECT_NEAR(cc2Vect(huge, huge).Length() / huge, std::numbers::sqrt2, 1e-15);
    const double tiny = 1e-200;  // its square underflows to 0
    EXPECT_NEAR(cc2Vect(tiny, -tiny).Length() / tiny, std::numbers::sqrt2, 1e-15);
    const double largest = std::numeric_limits<double>::max();
    EXPECT_EQ(cc2Vect(largest, 0).Length(), largest);
    EXPECT_TRUE(std::isinf(cc2Vect(largest, largest).Length())) << "only a length beyond double range is infinite";
}

TEST(Vect2Test, AnglesLieInMinusPiToPiWithPiFoldedToMinusPi) {
    EXPECT_EQ(cc2Vect(1, 0).Angle(), 0);
    EXPECT_EQ(cc2Vect(0, 1).Angle(), kPi / 2);
    EXPECT_EQ(cc2Vect(0, -1).Angle(), -kPi / 2);
    EXPECT_EQ(cc2Vect(-1, 1).Angle(), 3 * kPi / 4);
    EXPECT_EQ(cc2Vect(0, 0).Angle(), 0) << "the zero vector has angle 0";
    // Along -x the angle is -pi, whichever sign the zero y carries.
    EXPECT_EQ(cc2Vect(-1, 0.0).Angle(), -kPi);
    EXPECT_EQ(cc2Vect(-1, -0.0).Angle(), -kPi);
    EXPECT_EQ(cc2Vect(-2.5, 0.0).Angle(), -kPi);
    // Just above -x it is just below pi, just below -x just above -pi.
    const double justAbove = cc2Vect(-1, 1e-10).Angle();
    EXPECT_LT(justAbove, kPi);
    EXPECT_GT(justAbove, 3.14);
    const double justBelow = cc2Vect(-1, -1e-10).Angle();
    EXPECT_GT(justBelow, -kPi);
    EXPECT_LT(justBelow, -3.14);
    // So close above -x that the nearest double is pi: folded like pi itself.
    EXPECT_EQ(cc2Vect(-1, 1e-300).Angle(), -kPi);
}

}  // namespace
}  // namespace tessaly::test
